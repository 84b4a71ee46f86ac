#include "foundation/TimedMutex.h"

#include "platform/Synchronization.h"

TimedMutex::TimedMutex() : m_handle(CreateMutexA(nullptr, FALSE, nullptr)) {}

TimedMutex::~TimedMutex()
{
    if (m_handle != nullptr) {
        CloseHandle(m_handle);
        m_handle = nullptr;
    }
}

void TimedMutex::lock()
{
    WaitForSingleObject(m_handle, INFINITE);
}

DWORD TimedMutex::lock(unsigned milliseconds)
{
    return WaitForSingleObject(m_handle, milliseconds);
}

BOOL TimedMutex::unlock()
{
    return ReleaseMutex(m_handle);
}
