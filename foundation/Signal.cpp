#include "foundation/Signal.h"

#include "platform/Synchronization.h"

Signal::Signal() : m_event(CreateEventA(nullptr, TRUE, FALSE, nullptr)) {}

Signal::Signal(const char* name, bool initiallySet)
    : m_event(CreateEventA(nullptr, TRUE, initiallySet ? TRUE : FALSE, name))
{
}

Signal::~Signal()
{
    if (m_event != nullptr) {
        CloseHandle(m_event);
        m_event = nullptr;
    }
}

BOOL Signal::set()
{
    return SetEvent(m_event);
}

BOOL Signal::reset()
{
    return ResetEvent(m_event);
}

DWORD Signal::wait()
{
    return WaitForSingleObject(m_event, INFINITE);
}

DWORD Signal::wait(unsigned milliseconds, int)
{
    if (milliseconds < 0xFFFFFFFF)
        return WaitForSingleObject(m_event, milliseconds);
    return wait();
}
