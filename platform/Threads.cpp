#include "platform/Threads.h"

#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

namespace {
// The kernel's thread id is positive and unique among live threads, so never 0. It is cached per
// thread; a forked child's thread forgets the cache, since it has a new id.
thread_local DWORD t_threadId = 0;

void forgetThreadIdInChild()
{
    t_threadId = 0;
}

const int s_atForkRegistered = ::pthread_atfork(nullptr, nullptr, forgetThreadIdInChild);
} // namespace

DWORD GetCurrentThreadId()
{
    (void)s_atForkRegistered;
    if (t_threadId == 0)
        t_threadId = static_cast<DWORD>(::syscall(SYS_gettid));
    return t_threadId;
}

DWORD GetCurrentProcessId()
{
    return static_cast<DWORD>(::getpid());
}

void Sleep(DWORD milliseconds)
{
    if (milliseconds == 0) {
        ::sched_yield();
        return;
    }
    if (milliseconds == INFINITE) {
        for (;;)
            ::pause();
    }
    timespec remaining{static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1000000L};
    while (::nanosleep(&remaining, &remaining) != 0 && errno == EINTR) {
    }
}
