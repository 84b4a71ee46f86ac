// A base class whose work runs at most once, however many threads ask for it.
#pragma once

#include "foundation/Mutex.h"
#include "foundation/Signal.h"

#include <cstdint>

// The states of a OneTimeMethod and the answers of its operations share one numbering.
enum OneTimeMethodState : std::int32_t
{
    OneTimeMethod_FAILED = 1,      // a null argument, or a wait that ended in neither success nor timeout
    OneTimeMethod_THREW = 2,       // the work ended by throwing
    OneTimeMethod_FINISHED = 3,    // state
    OneTimeMethod_RUNNING = 4,     // state
    OneTimeMethod_DESTROYED = 5,   // state
    OneTimeMethod_NOT_STARTED = 6, // state
    OneTimeMethod_NO_RESULT = 7,
    OneTimeMethod_SUCCESS = 8,
    OneTimeMethod_TIMED_OUT = 9,
};

class OneTimeMethod
{
public:
    OneTimeMethod();
    virtual ~OneTimeMethod();

    OneTimeMethod(const OneTimeMethod&) = delete;
    OneTimeMethod& operator=(const OneTimeMethod&) = delete;

    // The first caller runs the work on its own thread and gets SUCCESS, or THREW when the work
    // threw (the exception stops here, and a work that threw is finished for good). Later callers
    // get the state: with `waitForFinish` they first wait, without limit, for the work to end, so
    // they get FINISHED. A work that runs itself with `waitForFinish` waits for ever.
    OneTimeMethodState run(bool waitForFinish, int argument);

    OneTimeMethodState state();
    // SUCCESS with `*out` set to what the work recorded, once the work has finished (-1 if it
    // recorded nothing); NO_RESULT before, leaving `*out` alone; FAILED for a null `out`.
    OneTimeMethodState result(int* out);
    // For the work, to record its result.
    void setResult(int value);
    // SUCCESS once the work has finished, TIMED_OUT after `milliseconds` (0xFFFFFFFF: no limit),
    // FAILED when the wait itself failed. RUNNING at once when the work calls it, since a work
    // that waits for itself would never end.
    OneTimeMethodState waitForFinish(unsigned milliseconds);

protected:
    // The work. Its return value is ignored: it reports through `setResult`. It runs without the
    // object's lock, so it may call `state`, `result` and `setResult`.
    virtual int work(int argument) = 0;

private:
    Signal m_done; // set once when the work ends, never reset
    std::int32_t m_result;
    Mutex m_lock;  // never held across the work
    OneTimeMethodState m_state;
    DWORD m_owner; // the thread running the work, 0 when none
};
