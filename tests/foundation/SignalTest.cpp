#include "foundation/Signal.h"
#include "foundation/TimedMutex.h"
#include "platform/Synchronization.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

TEST(Signal, StartsClearAndStaysSetUntilReset)
{
    Signal signal;
    EXPECT_EQ(signal.wait(0, 0), WAIT_TIMEOUT);
    EXPECT_TRUE(signal.set());
    EXPECT_EQ(signal.wait(0, 0), WAIT_OBJECT_0);
    EXPECT_EQ(signal.wait(), WAIT_OBJECT_0); // manual reset: a wait does not clear it
    EXPECT_TRUE(signal.reset());
    EXPECT_EQ(signal.wait(1, 0), WAIT_TIMEOUT);
}

// One name, one event, whose first creation decides its state. A name taken by a mutex makes no
// event: every call reports the failure instead of crashing.
TEST(Signal, NamedSignalsShareOneEvent)
{
    Signal first("zmu.SignalTest.shared", true);
    Signal second("zmu.SignalTest.shared", false);
    EXPECT_EQ(second.wait(0, 0), WAIT_OBJECT_0);
    second.reset();
    EXPECT_EQ(first.wait(0, 0), WAIT_TIMEOUT);

    HANDLE mutex = CreateMutexA(nullptr, FALSE, "zmu.SignalTest.taken");
    ASSERT_NE(mutex, nullptr);
    Signal failed("zmu.SignalTest.taken", false);
    EXPECT_FALSE(failed.set());
    EXPECT_FALSE(failed.reset());
    EXPECT_EQ(failed.wait(0, 0), WAIT_FAILED);
    EXPECT_EQ(failed.wait(), WAIT_FAILED);
    EXPECT_TRUE(CloseHandle(mutex));
}

// Waiters without limit, by either form, all pass when the signal is set later.
TEST(SignalConcurrency, SetReleasesEveryWaiter)
{
    Signal signal;
    std::atomic<int> released{0};
    std::vector<std::thread> waiters;
    for (int w = 0; w < 4; ++w) {
        waiters.emplace_back(
            [&, w] { released += (w % 2 != 0 ? signal.wait() : signal.wait(0xFFFFFFFF, 0)) == WAIT_OBJECT_0; });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(released, 0);
    signal.set();
    for (std::thread& waiter : waiters)
        waiter.join();
    EXPECT_EQ(released, 4);
}

// Recursive for its owner; another thread times out while it is held and gets it once released.
TEST(TimedMutexConcurrency, KeepsOtherThreadsOutUntilReleasedAsOftenAsTaken)
{
    TimedMutex mutex;
    EXPECT_FALSE(mutex.unlock()); // nobody owns it
    EXPECT_EQ(mutex.lock(0), WAIT_OBJECT_0);
    mutex.lock();
    EXPECT_TRUE(mutex.unlock());
    DWORD whileHeld = 0;
    std::thread([&] { whileHeld = mutex.lock(10); }).join();
    EXPECT_EQ(whileHeld, WAIT_TIMEOUT);

    std::atomic<bool> releasedByOther{false};
    std::thread taker([&] {
        if (mutex.lock(0xFFFFFFFF) == WAIT_OBJECT_0)
            releasedByOther = mutex.unlock() != FALSE;
    });
    EXPECT_TRUE(mutex.unlock()); // the taker is kept out until here, as the timed lock showed
    taker.join();
    EXPECT_TRUE(releasedByOther);
    EXPECT_FALSE(mutex.unlock());
}
