// A recursive lock whose acquisition can be given a time limit.
#pragma once

#include "platform/WinTypes.h"

class TimedMutex
{
public:
    // Unnamed, not owned by anybody.
    TimedMutex();
    virtual ~TimedMutex();

    TimedMutex(const TimedMutex&) = delete;
    TimedMutex& operator=(const TimedMutex&) = delete;

    // Waits without limit for the lock.
    void lock();
    // Waits at most `milliseconds`: WAIT_OBJECT_0 when the lock was taken, WAIT_TIMEOUT, or
    // WAIT_FAILED for a mutex whose creation failed. 0xFFFFFFFF is the platform's INFINITE.
    DWORD lock(unsigned milliseconds);
    // FALSE when the calling thread does not own the lock.
    BOOL unlock();

private:
    HANDLE m_handle;
};
