#include "foundation/OneTimeMethod.h"

#include "foundation/Synchronized.h"
#include "platform/Threads.h"

OneTimeMethod::OneTimeMethod() : m_done(), m_result(-1), m_lock(), m_state(OneTimeMethod_NOT_STARTED), m_owner(0) {}

OneTimeMethod::~OneTimeMethod()
{
    m_state = OneTimeMethod_DESTROYED;
    m_result = -1;
    m_owner = 0;
}

OneTimeMethodState OneTimeMethod::run(bool waitForFinish, int argument)
{
    m_lock.lock();
    if (m_state == OneTimeMethod_NOT_STARTED) {
        m_state = OneTimeMethod_RUNNING;
        m_owner = GetCurrentThreadId();
        m_lock.unlock();

        OneTimeMethodState answer = OneTimeMethod_SUCCESS;
        try {
            work(argument);
        } catch (...) {
            answer = OneTimeMethod_THREW;
        }

        m_lock.lock();
        m_state = OneTimeMethod_FINISHED;
        m_owner = 0;
        m_done.set();
        m_lock.unlock();
        return answer;
    }

    if (waitForFinish) {
        m_lock.unlock();
        m_done.wait();
        // Read without the lock: the runner wrote the state before it set m_done, and it never
        // changes again while the object lives.
        return m_state;
    }

    const OneTimeMethodState answer = m_state;
    m_lock.unlock();
    return answer;
}

OneTimeMethodState OneTimeMethod::state()
{
    Synchronized guard(m_lock);
    return m_state;
}

OneTimeMethodState OneTimeMethod::result(int* out)
{
    Synchronized guard(m_lock);
    if (out == nullptr)
        return OneTimeMethod_FAILED;
    if (m_state != OneTimeMethod_FINISHED)
        return OneTimeMethod_NO_RESULT;
    *out = m_result;
    return OneTimeMethod_SUCCESS;
}

void OneTimeMethod::setResult(int value)
{
    Synchronized guard(m_lock);
    m_result = value;
}

OneTimeMethodState OneTimeMethod::waitForFinish(unsigned milliseconds)
{
    {
        // The state and the owner are read together under the lock; only the owner itself can
        // find its own id there while the work runs.
        Synchronized guard(m_lock);
        if (m_state == OneTimeMethod_RUNNING && m_owner == GetCurrentThreadId())
            return OneTimeMethod_RUNNING;
    }
    switch (m_done.wait(milliseconds, 0)) {
    case WAIT_OBJECT_0:
        return OneTimeMethod_SUCCESS;
    case WAIT_TIMEOUT:
        return OneTimeMethod_TIMED_OUT;
    default:
        return OneTimeMethod_FAILED;
    }
}
