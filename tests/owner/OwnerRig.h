// What the owner tests share: a Qt application (which gives the program's name and folder), the
// settings store, the brand file and the log directory in temporary folders of the test process,
// and readers of what a monitor holds.
#pragma once

#include "monitor/Zarn.h"
#include "monitor/ZarnData.h"

#include <QString>

#include <string>

namespace ownerRig {

// Makes the application and the folders once; then, for the next test: no monitor, an empty store
// and no brand file (ZMU_REGISTRY_ROOT, ZMU_BRAND_FILE), the starting log variables on an empty
// log directory, and a log series that starts afresh.
void prepare();
QString logDirectory(); // with a trailing "/"
QString brandFile();
// Writes the brand file; an empty text leaves none, and "/" puts a folder in its place.
void writeBrandFile(const QByteArray& text);
// In a forked child: its exit must not remove the parent's folders.
void keepFoldersAtExit();

// The ZM_Assertiveness value: its key made, the value written with `type` and `size` bytes of
// `data` (null: the key alone), or read back.
void storeAssertiveness(DWORD type, const void* data, DWORD size);
void readAssertiveness(DWORD& type, DWORD& value); // REG_NONE and 0 if there is none

ZarnData* dataOf(const Zarn* monitor);
std::wstring readLogFile(const std::wstring& name); // UTF-16 text
HMODULE loadTestModule(const char* file);
std::wstring userName();

} // namespace ownerRig
