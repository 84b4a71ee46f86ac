#include "platform/Threads.h"

#include <gtest/gtest.h>

#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>
#include <thread>
#include <vector>

namespace {

DWORD systemThreadId()
{
    return static_cast<DWORD>(::syscall(SYS_gettid));
}

TEST(Threads, IdsAreTheSystems)
{
    EXPECT_EQ(GetCurrentProcessId(), DWORD(::getpid()));
    EXPECT_EQ(GetCurrentThreadId(), systemThreadId());
    EXPECT_NE(0u, GetCurrentThreadId());
    EXPECT_EQ(GetCurrentThreadId(), GetCurrentThreadId());
}

// The id is cached per thread; a forked child runs on a new thread and must not report the
// parent's.
TEST(Threads, ForkedChildHasItsOwnIds)
{
    const DWORD parentThread = GetCurrentThreadId();
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const bool right = GetCurrentThreadId() == systemThreadId() && GetCurrentThreadId() != parentThread
                           && GetCurrentProcessId() == DWORD(::getpid());
        ::_exit(right ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(child, ::waitpid(child, &status, 0));
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(0, WEXITSTATUS(status));
}

TEST(ThreadsConcurrency, EachThreadHasItsOwnStableId)
{
    constexpr int kThreads = 4;
    std::vector<DWORD> ids(kThreads);
    std::vector<DWORD> systemIds(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&ids, &systemIds, t] {
            const DWORD first = GetCurrentThreadId();
            std::this_thread::yield();
            ids[t] = GetCurrentThreadId() == first ? first : 0;
            systemIds[t] = systemThreadId();
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(systemIds, ids);
    std::set<DWORD> distinct(ids.begin(), ids.end());
    distinct.insert(GetCurrentThreadId());
    EXPECT_EQ(static_cast<std::size_t>(kThreads + 1), distinct.size());
    EXPECT_EQ(0u, distinct.count(0));
}

} // namespace
