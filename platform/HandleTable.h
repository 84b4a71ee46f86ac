// Objects other than events and mutexes that stand behind a handle of the one handle table, so
// that CloseHandle releases them as well: open files and file mappings (Files.cpp). Internal to
// platform/.
#pragma once

#include "platform/WinTypes.h"

#include <memory>

namespace zmu_platform {

class HandleObject
{
public:
    virtual ~HandleObject() = default;
};

// A new handle that owns `object`; the object dies at the handle's CloseHandle. Waits, events and
// mutex calls refuse such a handle with last error 6.
HANDLE openObjectHandle(std::unique_ptr<HandleObject> object);

// The object behind `handle`, or null if the handle is not live or stands for an event or mutex.
// Like any handle, it must not be closed while another thread uses it.
HandleObject* objectBehindHandle(HANDLE handle);

} // namespace zmu_platform
