// Critical sections, events, mutexes and waits, with the Windows contracts.
#pragma once

#include "platform/WinTypes.h"

#include <mutex>

// A critical section is a recursive in-process lock: the thread that holds it may enter it again,
// and must leave it as often.
struct CRITICAL_SECTION
{
    std::recursive_mutex lock;
};

void InitializeCriticalSection(CRITICAL_SECTION* section);
void DeleteCriticalSection(CRITICAL_SECTION* section);
void EnterCriticalSection(CRITICAL_SECTION* section);
// Like TryEnterCriticalSection: TRUE if the lock was taken (or is already held by this thread).
BOOL TryEnterCriticalSection(CRITICAL_SECTION* section);
void LeaveCriticalSection(CRITICAL_SECTION* section);

// Like CreateEventA: an event that is manual-reset or auto-reset, set or clear at the start.
// A name makes the event shared within the process: a second create with the same name returns a
// handle to the same event (last error 183) and ignores the other arguments. Null on failure.
HANDLE CreateEventA(void* securityAttributes, BOOL manualReset, BOOL initialState, const char* name);
BOOL SetEvent(HANDLE event);
BOOL ResetEvent(HANDLE event);

// Like CreateMutexA: a recursive mutex that may be owned at the start by the creating thread.
// Names are shared within the process as for events.
HANDLE CreateMutexA(void* securityAttributes, BOOL initialOwner, const char* name);
// Like ReleaseMutex: FALSE with last error 288 if the calling thread does not own the mutex.
BOOL ReleaseMutex(HANDLE mutex);

// Like WaitForSingleObject on an event or a mutex: WAIT_OBJECT_0 when signalled (an auto-reset
// event is cleared, a mutex is taken), WAIT_ABANDONED when the mutex is taken from an owner thread
// that ended without releasing it, WAIT_TIMEOUT when the limit in milliseconds passed,
// WAIT_FAILED with last error 6 for a null or closed handle. INFINITE waits without limit.
DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds);

// Like CloseHandle: releases the handle; the object dies with its last handle. FALSE with last
// error 6 for a null or already closed handle.
BOOL CloseHandle(HANDLE object);
