#include "foundation/CriticalSection.h"
#include "foundation/Mutex.h"
#include "foundation/Synchronized.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace {

// Starts a thread that locks `mutex` and raises `entered` once it is inside.
std::thread startEntering(Mutex& mutex, std::atomic<bool>& entered)
{
    return std::thread([&mutex, &entered] {
        mutex.lock();
        entered = true;
        mutex.unlock();
    });
}

} // namespace

// Each hold needs its own release, and releasing an unheld lock is refused harmlessly.
TEST(Mutex, IsReleasedAsOftenAsItWasTakenAndRefusesMore)
{
    Mutex mutex;
    EXPECT_FALSE(mutex.unlock());
    for (int depth = 0; depth < 3; ++depth)
        EXPECT_EQ(mutex.lock(), 0);
    for (int depth = 0; depth < 3; ++depth)
        EXPECT_TRUE(mutex.unlock()) << "release " << depth + 1;
    EXPECT_FALSE(mutex.unlock());
    EXPECT_EQ(mutex.lock(), 0); // still usable after the refusals
    EXPECT_TRUE(mutex.unlock());
}

TEST(MutexConcurrency, LockTakenTwiceNeedsTwoUnlocksBeforeAnotherThreadEnters)
{
    Mutex mutex;
    std::atomic<bool> entered{false};
    mutex.lock();
    mutex.lock();
    std::thread other = startEntering(mutex, entered);

    EXPECT_TRUE(mutex.unlock());
    // Still held once: give the other thread a fair chance to get in wrongly.
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_FALSE(entered);

    EXPECT_TRUE(mutex.unlock());
    other.join();
    EXPECT_TRUE(entered);
}

TEST(MutexConcurrency, NestedGuardsOnACriticalSectionKeepACounterExact)
{
    CriticalSection section;
    long counter = 0; // protected by nothing but the lock under test
    constexpr int threadQty = 4;
    constexpr int roundQty = 2000;
    std::vector<std::thread> threads;
    for (int t = 0; t < threadQty; ++t) {
        threads.emplace_back([&] {
            for (int round = 0; round < roundQty; ++round) {
                Synchronized outer(section);
                Synchronized inner(section); // re-entry must not break the exclusion
                const long seen = counter;
                counter = seen + 1;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(counter, long(threadQty) * roundQty);
    EXPECT_FALSE(section.unlock()); // every guard let go
}

TEST(MutexConcurrency, GuardLeftByExceptionLetsAnotherThreadIn)
{
    Mutex mutex;
    try {
        Synchronized guard(mutex);
        throw 7;
    } catch (int) {
    }
    std::atomic<bool> entered{false};
    std::thread other = startEntering(mutex, entered);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    while (!entered && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    EXPECT_TRUE(entered);
    if (!entered)
        mutex.unlock(); // the guard kept this thread's hold: give it up so that the join ends
    other.join();
}
