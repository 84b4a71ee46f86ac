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

TEST(Signal, NamedSignalsShareOneEvent)
{
    Signal first("zmu.SignalTest.shared", true);
    EXPECT_EQ(first.wait(0, 0), WAIT_OBJECT_0);
    Signal second("zmu.SignalTest.shared", false); // the existing event wins over this state
    EXPECT_EQ(second.wait(0, 0), WAIT_OBJECT_0);
    second.reset();
    EXPECT_EQ(first.wait(0, 0), WAIT_TIMEOUT);
}

// A name taken by a mutex cannot make an event: the Signal holds no event, and every call reports
// the failure instead of crashing.
TEST(Signal, FailedCreationShowsOnlyInTheResults)
{
    HANDLE mutex = CreateMutexA(nullptr, FALSE, "zmu.SignalTest.taken");
    ASSERT_NE(mutex, nullptr);
    {
        Signal signal("zmu.SignalTest.taken", false);
        EXPECT_FALSE(signal.set());
        EXPECT_FALSE(signal.reset());
        EXPECT_EQ(signal.wait(0, 0), WAIT_FAILED);
        EXPECT_EQ(signal.wait(), WAIT_FAILED);
    }
    EXPECT_TRUE(CloseHandle(mutex));
}

TEST(TimedMutex, OwnerMayTakeItAgainAndMustReleaseAsOften)
{
    TimedMutex mutex;
    EXPECT_FALSE(mutex.unlock()); // nobody owns it
    EXPECT_EQ(mutex.lock(0), WAIT_OBJECT_0);
    mutex.lock();
    EXPECT_TRUE(mutex.unlock());
    EXPECT_TRUE(mutex.unlock());
    EXPECT_FALSE(mutex.unlock());
}

TEST(SignalConcurrency, UnlimitedWaitReturnsWhenSetLater)
{
    Signal signal;
    std::atomic<bool> setterRan{false};
    std::thread setter([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        setterRan = true;
        signal.set();
    });
    EXPECT_EQ(signal.wait(0xFFFFFFFF, 0), WAIT_OBJECT_0);
    EXPECT_TRUE(setterRan);
    setter.join();
}

TEST(SignalConcurrency, SetReleasesEveryWaiter)
{
    Signal signal;
    constexpr int waiterQty = 4;
    std::atomic<int> released{0};
    std::vector<std::thread> waiters;
    for (int w = 0; w < waiterQty; ++w) {
        waiters.emplace_back([&] {
            if (signal.wait() == WAIT_OBJECT_0)
                ++released;
        });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(released, 0);
    signal.set();
    for (std::thread& waiter : waiters)
        waiter.join();
    EXPECT_EQ(released, waiterQty);
    EXPECT_EQ(signal.wait(0, 0), WAIT_OBJECT_0); // and later waiters too
}

TEST(SignalConcurrency, TimedMutexKeepsOtherThreadsOutUntilReleased)
{
    TimedMutex mutex;
    mutex.lock();
    DWORD whileHeld = 0;
    std::thread other([&] { whileHeld = mutex.lock(10); });
    other.join();
    EXPECT_EQ(whileHeld, WAIT_TIMEOUT);

    std::atomic<bool> releasedByOther{false};
    std::thread taker([&] {
        if (mutex.lock(0xFFFFFFFF) == WAIT_OBJECT_0)
            releasedByOther = mutex.unlock() != FALSE;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_FALSE(releasedByOther);
    EXPECT_TRUE(mutex.unlock());
    taker.join();
    EXPECT_TRUE(releasedByOther);
}
