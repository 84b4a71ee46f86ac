#include "platform/Synchronization.h"

#include "platform/LastError.h"
#include "platform/Threads.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <string>

void InitializeCriticalSection(CRITICAL_SECTION*) {}

void DeleteCriticalSection(CRITICAL_SECTION*) {}

void EnterCriticalSection(CRITICAL_SECTION* section)
{
    section->lock.lock();
}

BOOL TryEnterCriticalSection(CRITICAL_SECTION* section)
{
    return section->lock.try_lock() ? TRUE : FALSE;
}

void LeaveCriticalSection(CRITICAL_SECTION* section)
{
    section->lock.unlock();
}

namespace {
constexpr DWORD ERROR_ALREADY_EXISTS = 183;

// An event or a mutex. One condition variable serves every waiter; `signalled()` tells whether
// a waiter may pass, `consume()` what passing does to the object.
struct KernelObject
{
    enum class Kind { Event, Mutex };

    explicit KernelObject(Kind k) : kind(k) {}

    bool signalled() const
    {
        if (kind == Kind::Event)
            return eventSet;
        return owner == 0 || owner == GetCurrentThreadId();
    }

    void consume()
    {
        if (kind == Kind::Event) {
            if (!manualReset)
                eventSet = false;
            return;
        }
        owner = GetCurrentThreadId();
        ++recursion;
    }

    const Kind kind;
    std::mutex guard;
    std::condition_variable changed;
    bool manualReset = true;
    bool eventSet = false;
    DWORD owner = 0;
    unsigned recursion = 0;
    int handleCount = 1;
    std::string name;
};

// Named objects are shared within the process. The table and the handle counts have one lock.
std::mutex s_tableLock;
std::map<std::string, KernelObject*>& namedObjects()
{
    static std::map<std::string, KernelObject*> table;
    return table;
}

HANDLE createObject(KernelObject::Kind kind, const char* name, void (*setUp)(KernelObject&, BOOL, BOOL), BOOL a,
                    BOOL b)
{
    std::lock_guard<std::mutex> tableGuard(s_tableLock);
    if (name != nullptr && *name != '\0') {
        auto found = namedObjects().find(name);
        if (found != namedObjects().end()) {
            if (found->second->kind != kind) {
                SetLastError(ERROR_INVALID_HANDLE);
                return nullptr;
            }
            ++found->second->handleCount;
            SetLastError(ERROR_ALREADY_EXISTS);
            return found->second;
        }
    }
    auto object = std::make_unique<KernelObject>(kind);
    setUp(*object, a, b);
    if (name != nullptr && *name != '\0') {
        object->name = name;
        namedObjects()[object->name] = object.get();
    }
    SetLastError(ERROR_SUCCESS);
    return object.release();
}

KernelObject* objectOf(HANDLE handle, KernelObject::Kind kind)
{
    auto* object = static_cast<KernelObject*>(handle);
    if (object == nullptr || object->kind != kind) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return object;
}
} // namespace

HANDLE CreateEventA(void*, BOOL manualReset, BOOL initialState, const char* name)
{
    return createObject(
        KernelObject::Kind::Event, name,
        [](KernelObject& event, BOOL manual, BOOL set) {
            event.manualReset = manual != FALSE;
            event.eventSet = set != FALSE;
        },
        manualReset, initialState);
}

BOOL SetEvent(HANDLE handle)
{
    KernelObject* event = objectOf(handle, KernelObject::Kind::Event);
    if (event == nullptr)
        return FALSE;
    {
        std::lock_guard<std::mutex> guard(event->guard);
        event->eventSet = true;
    }
    event->changed.notify_all();
    return TRUE;
}

BOOL ResetEvent(HANDLE handle)
{
    KernelObject* event = objectOf(handle, KernelObject::Kind::Event);
    if (event == nullptr)
        return FALSE;
    std::lock_guard<std::mutex> guard(event->guard);
    event->eventSet = false;
    return TRUE;
}

HANDLE CreateMutexA(void*, BOOL initialOwner, const char* name)
{
    return createObject(
        KernelObject::Kind::Mutex, name,
        [](KernelObject& mutex, BOOL owned, BOOL) {
            if (owned) {
                mutex.owner = GetCurrentThreadId();
                mutex.recursion = 1;
            }
        },
        initialOwner, FALSE);
}

BOOL ReleaseMutex(HANDLE handle)
{
    KernelObject* mutex = objectOf(handle, KernelObject::Kind::Mutex);
    if (mutex == nullptr)
        return FALSE;
    {
        std::lock_guard<std::mutex> guard(mutex->guard);
        if (mutex->owner != GetCurrentThreadId() || mutex->recursion == 0) {
            SetLastError(ERROR_NOT_OWNER);
            return FALSE;
        }
        if (--mutex->recursion > 0)
            return TRUE;
        mutex->owner = 0;
    }
    mutex->changed.notify_all();
    return TRUE;
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds)
{
    auto* object = static_cast<KernelObject*>(handle);
    if (object == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    std::unique_lock<std::mutex> guard(object->guard);
    auto passes = [object] { return object->signalled(); };
    if (milliseconds == INFINITE) {
        object->changed.wait(guard, passes);
    } else if (!object->changed.wait_for(guard, std::chrono::milliseconds(milliseconds), passes)) {
        return WAIT_TIMEOUT;
    }
    object->consume();
    return WAIT_OBJECT_0;
}

BOOL CloseHandle(HANDLE handle)
{
    auto* object = static_cast<KernelObject*>(handle);
    if (object == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    std::lock_guard<std::mutex> tableGuard(s_tableLock);
    if (--object->handleCount > 0)
        return TRUE;
    if (!object->name.empty())
        namedObjects().erase(object->name);
    delete object;
    return TRUE;
}
