#include "platform/Synchronization.h"

#include "platform/HandleTable.h"
#include "platform/LastError.h"
#include "platform/Threads.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

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

// A handle is a number, never reused within the process, that the table maps to its object:
// a closed handle then fails instead of reaching freed memory or a later object at the same
// address. Numbers step by 4, as Windows handles do.
using HandleValue = std::uintptr_t;

// An event, a mutex, or another platform object (a file, a file mapping) that only shares the
// table. One condition variable serves every waiter; `signalled()` tells whether a waiter may
// pass, `consume()` what passing does to the object.
struct KernelObject
{
    enum class Kind { Event, Mutex, Other };

    KernelObject(Kind k, HandleValue h) : kind(k), handle(h) {}

    bool signalled() const
    {
        if (kind == Kind::Event)
            return eventSet;
        return owner == 0 || owner == GetCurrentThreadId();
    }

    // WAIT_OBJECT_0, or WAIT_ABANDONED for a mutex whose last owner ended without releasing it.
    DWORD consume();

    const Kind kind;
    const HandleValue handle;
    std::mutex guard;
    std::condition_variable changed;
    bool manualReset = true;
    bool eventSet = false;
    DWORD owner = 0;
    unsigned recursion = 0;
    bool abandoned = false;
    int handleCount = 1;
    std::string name;
    std::unique_ptr<zmu_platform::HandleObject> other;
};

// The live objects by handle and by name, with the handle counts, under one lock. The tables
// live to the process's end, since threads may still end (and abandon their mutexes) after
// static destruction began.
std::mutex s_tableLock;
HandleValue s_lastHandle = 0;
std::map<HandleValue, KernelObject*>& liveObjects()
{
    static auto* live = new std::map<HandleValue, KernelObject*>;
    return *live;
}
std::map<std::string, KernelObject*>& namedObjects()
{
    static auto* named = new std::map<std::string, KernelObject*>;
    return *named;
}

KernelObject* findLive(HandleValue handle) // s_tableLock held
{
    auto found = liveObjects().find(handle);
    return found == liveObjects().end() ? nullptr : found->second;
}

KernelObject* liveObject(HANDLE handle)
{
    std::lock_guard<std::mutex> tableGuard(s_tableLock);
    return findLive(reinterpret_cast<HandleValue>(handle));
}

// The mutexes that the calling thread holds. When the thread ends still owning one, the mutex
// is abandoned, as on Windows: its next waiter takes it with WAIT_ABANDONED instead of waiting
// forever, and a later thread that happens to get the same id does not own it.
class OwnedMutexes
{
public:
    void add(const KernelObject* mutex) { m_owned.push_back(mutex->handle); }
    void remove(const KernelObject* mutex)
    {
        m_owned.erase(std::remove(m_owned.begin(), m_owned.end(), mutex->handle), m_owned.end());
    }
    ~OwnedMutexes()
    {
        if (m_owned.empty())
            return;
        const DWORD self = GetCurrentThreadId();
        std::lock_guard<std::mutex> tableGuard(s_tableLock);
        for (HandleValue handle : m_owned) {
            KernelObject* mutex = findLive(handle);
            if (mutex == nullptr)
                continue;
            {
                std::lock_guard<std::mutex> guard(mutex->guard);
                if (mutex->owner != self)
                    continue;
                mutex->owner = 0;
                mutex->recursion = 0;
                mutex->abandoned = true;
            }
            mutex->changed.notify_all();
        }
    }

private:
    std::vector<HandleValue> m_owned;
};
thread_local OwnedMutexes t_ownedMutexes;

DWORD KernelObject::consume()
{
    if (kind == Kind::Event) {
        if (!manualReset)
            eventSet = false;
        return WAIT_OBJECT_0;
    }
    if (recursion++ == 0) {
        owner = GetCurrentThreadId();
        t_ownedMutexes.add(this);
    }
    if (!abandoned)
        return WAIT_OBJECT_0;
    abandoned = false;
    return WAIT_ABANDONED;
}

HANDLE asHandle(const KernelObject* object)
{
    return reinterpret_cast<HANDLE>(object->handle);
}

HANDLE createObject(KernelObject::Kind kind, const char* name, void (*setUp)(KernelObject&, BOOL, BOOL), BOOL a,
                    BOOL b)
{
    std::lock_guard<std::mutex> tableGuard(s_tableLock);
    const bool named = name != nullptr && *name != '\0';
    if (named) {
        auto found = namedObjects().find(name);
        if (found != namedObjects().end()) {
            if (found->second->kind != kind) {
                SetLastError(ERROR_INVALID_HANDLE);
                return nullptr;
            }
            ++found->second->handleCount;
            SetLastError(ERROR_ALREADY_EXISTS);
            return asHandle(found->second);
        }
    }
    s_lastHandle += 4;
    auto object = std::make_unique<KernelObject>(kind, s_lastHandle);
    setUp(*object, a, b);
    if (named) {
        object->name = name;
        namedObjects()[object->name] = object.get();
    }
    liveObjects()[object->handle] = object.get();
    SetLastError(ERROR_SUCCESS);
    return asHandle(object.release());
}

KernelObject* objectOf(HANDLE handle, KernelObject::Kind kind)
{
    KernelObject* object = liveObject(handle);
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
            if (owned)
                mutex.consume();
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
        t_ownedMutexes.remove(mutex);
    }
    mutex->changed.notify_all();
    return TRUE;
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds)
{
    // Closing a handle while another thread waits on it is not allowed, as on Windows.
    KernelObject* object = liveObject(handle);
    if (object == nullptr || object->kind == KernelObject::Kind::Other) {
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
    return object->consume();
}

BOOL CloseHandle(HANDLE handle)
{
    std::lock_guard<std::mutex> tableGuard(s_tableLock);
    KernelObject* object = findLive(reinterpret_cast<HandleValue>(handle));
    if (object == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (--object->handleCount > 0)
        return TRUE;
    if (!object->name.empty())
        namedObjects().erase(object->name);
    liveObjects().erase(object->handle);
    delete object;
    return TRUE;
}

HANDLE zmu_platform::openObjectHandle(std::unique_ptr<HandleObject> object)
{
    std::lock_guard<std::mutex> tableGuard(s_tableLock);
    s_lastHandle += 4;
    auto entry = std::make_unique<KernelObject>(KernelObject::Kind::Other, s_lastHandle);
    entry->other = std::move(object);
    liveObjects()[entry->handle] = entry.get();
    return asHandle(entry.release());
}

zmu_platform::HandleObject* zmu_platform::objectBehindHandle(HANDLE handle)
{
    KernelObject* object = liveObject(handle);
    return object == nullptr || object->kind != KernelObject::Kind::Other ? nullptr : object->other.get();
}
