// A kernel-style event, manual-reset: once set it releases every waiter, present and future,
// until it is reset.
#pragma once

#include "platform/WinTypes.h"

class Signal
{
public:
    // Unnamed and clear.
    Signal();
    // A named event is shared within the process: a second Signal of the same name reaches the
    // same event, and its `initiallySet` is ignored.
    Signal(const char* name, bool initiallySet);
    virtual ~Signal();

    Signal(const Signal&) = delete;
    Signal& operator=(const Signal&) = delete;

    // The platform's results are passed on unchecked: a Signal whose creation failed holds no
    // event, and every call on it answers with the platform's failure.
    BOOL set();
    BOOL reset();
    // Waits without limit: WAIT_OBJECT_0, or WAIT_FAILED.
    DWORD wait();
    // Waits at most `milliseconds`: WAIT_OBJECT_0, WAIT_TIMEOUT or WAIT_FAILED. 0xFFFFFFFF waits
    // without limit. `reserved` is ignored.
    DWORD wait(unsigned milliseconds, int reserved);

private:
    HANDLE m_event;
};
