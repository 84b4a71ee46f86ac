// A recursive in-process lock that counts how often it is held.
#pragma once

#include "platform/Synchronization.h"

#include <atomic>
#include <cstdint>

class Mutex
{
public:
    Mutex();
    virtual ~Mutex();

    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    // Enters the lock, waiting as long as another thread holds it. Always 0.
    int lock();
    // Leaves the lock once. False, without touching the lock, when nobody holds it: releasing an
    // unheld lock is a harmless refusal.
    bool unlock();

private:
    CRITICAL_SECTION m_section;
    // Changed only while the lock is held; `unlock` reads it before it knows whether its caller
    // holds the lock, which is why it is atomic (relaxed: the lock itself orders the changes).
    std::atomic<std::uint32_t> m_lockCount;
};
