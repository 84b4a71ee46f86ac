#include "foundation/CriticalSection.h"
#include "foundation/Mutex.h"
#include "foundation/Synchronized.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

TEST(Mutex, GuardLetsGoAlsoWhenLeftByAnException)
{
    Mutex mutex;
    try {
        Synchronized guard(mutex);
        throw 7;
    } catch (int) {
    }
    EXPECT_FALSE(mutex.unlock()) << "still held, or an unheld lock was released";
}

// Each hold needs its own release before another thread enters; one release more is refused.
TEST(MutexConcurrency, LockTakenTwiceNeedsTwoUnlocksBeforeAnotherThreadEnters)
{
    Mutex mutex;
    std::atomic<bool> entered{false};
    EXPECT_EQ(mutex.lock(), 0);
    EXPECT_EQ(mutex.lock(), 0);
    std::thread other([&] {
        mutex.lock();
        entered = true;
        mutex.unlock();
    });
    EXPECT_TRUE(mutex.unlock());
    std::this_thread::sleep_for(std::chrono::milliseconds(30)); // a fair chance to get in wrongly
    EXPECT_FALSE(entered);
    EXPECT_TRUE(mutex.unlock());
    other.join();
    EXPECT_TRUE(entered);
    EXPECT_FALSE(mutex.unlock());
}

TEST(MutexConcurrency, NestedGuardsOnACriticalSectionKeepACounterExact)
{
    CriticalSection section;
    long counter = 0; // protected by nothing but the lock under test
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int round = 0; round < 2000; ++round) {
                Synchronized outer(section);
                Synchronized inner(section); // re-entry must not break the exclusion
                counter = counter + 1;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(counter, 4 * 2000);
    EXPECT_FALSE(section.unlock()); // every guard let go
}
