#include "foundation/Mutex.h"

Mutex::Mutex() : m_lockCount(0)
{
    InitializeCriticalSection(&m_section);
}

Mutex::~Mutex()
{
    DeleteCriticalSection(&m_section);
}

int Mutex::lock()
{
    EnterCriticalSection(&m_section);
    m_lockCount.fetch_add(1, std::memory_order_relaxed);
    return 0;
}

bool Mutex::unlock()
{
    // Deliberately checked before leaving and not per thread: a caller who does not hold the lock
    // is refused only while nobody holds it at all.
    if (m_lockCount.load(std::memory_order_relaxed) == 0)
        return false;
    m_lockCount.fetch_sub(1, std::memory_order_relaxed);
    LeaveCriticalSection(&m_section);
    return true;
}
