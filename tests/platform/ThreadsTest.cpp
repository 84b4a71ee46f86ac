#include "platform/Threads.h"

#include <gtest/gtest.h>

#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

namespace {

DWORD systemThreadId()
{
    return DWORD(::syscall(SYS_gettid));
}

// The id is cached per thread; a forked child runs on a new thread and must not report the parent's.
TEST(Threads, IdsAreTheSystemsAlsoInAForkedChild)
{
    EXPECT_EQ(GetCurrentProcessId(), DWORD(::getpid()));
    const DWORD parentThread = GetCurrentThreadId();
    EXPECT_EQ(parentThread, systemThreadId());
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const bool right = GetCurrentThreadId() == systemThreadId() && GetCurrentThreadId() != parentThread
                           && GetCurrentProcessId() == DWORD(::getpid());
        ::_exit(right ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

// The id is cached per thread, not per process.
TEST(ThreadsConcurrency, EachThreadReportsItsOwnId)
{
    const DWORD mine = GetCurrentThreadId();
    DWORD other = 0;
    DWORD otherSystem = 1;
    std::thread([&] {
        other = GetCurrentThreadId();
        otherSystem = systemThreadId();
    }).join();
    EXPECT_EQ(other, otherSystem);
    EXPECT_NE(other, mine);
    EXPECT_EQ(GetCurrentThreadId(), mine);
}

} // namespace
