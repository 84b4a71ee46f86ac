#include "foundation/Synchronized.h"

#include "foundation/Mutex.h"

Synchronized::Synchronized(Mutex& mutex) : m_mutex(&mutex)
{
    m_mutex->lock();
}

Synchronized::~Synchronized()
{
    m_mutex->unlock();
}
