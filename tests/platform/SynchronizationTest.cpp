#include "platform/Synchronization.h"

#include "PlatformRig.h"

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <thread>
#include <vector>

namespace {

using platform_test::outcomeOf;
using Clock = std::chrono::steady_clock;
using Handle = std::unique_ptr<void, BOOL (*)(HANDLE)>;

Handle owned(HANDLE handle)
{
    return Handle(handle, &CloseHandle);
}

// Manual reset stays set until reset; auto reset lets one wait through per set, however often set.
TEST(Event, ManualResetStaysSetAutoResetLetsOneWaitThrough)
{
    const Handle manual = owned(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    const Handle automatic = owned(CreateEventA(nullptr, FALSE, TRUE, nullptr));
    ASSERT_TRUE(manual && automatic);
    EXPECT_EQ(WaitForSingleObject(manual.get(), 0), WAIT_TIMEOUT);
    EXPECT_TRUE(SetEvent(manual.get()));
    EXPECT_EQ(WaitForSingleObject(manual.get(), 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(manual.get(), 0), WAIT_OBJECT_0);
    EXPECT_TRUE(ResetEvent(manual.get()));
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(WaitForSingleObject(manual.get(), 30), WAIT_TIMEOUT);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(30));

    EXPECT_EQ(WaitForSingleObject(automatic.get(), 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(automatic.get(), 0), WAIT_TIMEOUT);
    SetEvent(automatic.get());
    SetEvent(automatic.get());
    EXPECT_EQ(WaitForSingleObject(automatic.get(), 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(automatic.get(), 0), WAIT_TIMEOUT);
}

// A second create reaches the same event (183) and its arguments are ignored; the name is free
// again once the last handle is closed.
TEST(Event, NamedEventIsSharedWithinTheProcess)
{
    SetLastError(12345);
    HANDLE first = CreateEventA(nullptr, TRUE, FALSE, "zmu.SynchronizationTest.shared");
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    HANDLE second = CreateEventA(nullptr, FALSE, TRUE, "zmu.SynchronizationTest.shared");
    EXPECT_EQ(GetLastError(), 183u);
    ASSERT_EQ(second, first);
    EXPECT_EQ(WaitForSingleObject(second, 0), WAIT_TIMEOUT); // clear, as the first create made it
    SetEvent(first);
    EXPECT_EQ(WaitForSingleObject(second, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(second, 0), WAIT_OBJECT_0); // manual reset, as the first create made it
    EXPECT_EQ(outcomeOf([] { return CreateMutexA(nullptr, FALSE, "zmu.SynchronizationTest.shared"); }),
              ERROR_INVALID_HANDLE);

    EXPECT_TRUE(CloseHandle(first));
    EXPECT_TRUE(CloseHandle(second));
    SetLastError(12345);
    const Handle again = owned(CreateEventA(nullptr, TRUE, FALSE, "zmu.SynchronizationTest.shared"));
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    EXPECT_EQ(WaitForSingleObject(again.get(), 0), WAIT_TIMEOUT);
}

// Owned from its creation here, taken twice more: three releases, and the fourth fails with 288.
TEST(Mutex, IsRecursiveAndCountsReleases)
{
    const Handle mutex = owned(CreateMutexA(nullptr, TRUE, nullptr));
    ASSERT_NE(mutex.get(), nullptr);
    EXPECT_EQ(WaitForSingleObject(mutex.get(), 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(mutex.get(), INFINITE), WAIT_OBJECT_0);
    for (int release = 1; release <= 3; ++release)
        EXPECT_TRUE(ReleaseMutex(mutex.get())) << "release " << release;
    EXPECT_EQ(outcomeOf([&] { return ReleaseMutex(mutex.get()); }), ERROR_NOT_OWNER);
}

TEST(Handles, NullClosedAndWrongKindFailWith6)
{
    HANDLE closed = CreateEventA(nullptr, TRUE, TRUE, nullptr);
    ASSERT_TRUE(CloseHandle(closed));
    const Handle mutex = owned(CreateMutexA(nullptr, FALSE, nullptr));
    const Handle event = owned(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    platform_test::expectOutcomes({
        {"wait for null", [] { return WaitForSingleObject(nullptr, 0) != WAIT_FAILED; }, ERROR_INVALID_HANDLE},
        {"wait for closed", [&] { return WaitForSingleObject(closed, 0) != WAIT_FAILED; }, ERROR_INVALID_HANDLE},
        {"close null", [] { return CloseHandle(nullptr); }, ERROR_INVALID_HANDLE},
        {"close twice", [&] { return CloseHandle(closed); }, ERROR_INVALID_HANDLE},
        {"set closed", [&] { return SetEvent(closed); }, ERROR_INVALID_HANDLE},
        {"set a mutex", [&] { return SetEvent(mutex.get()); }, ERROR_INVALID_HANDLE},
        {"reset a mutex", [&] { return ResetEvent(mutex.get()); }, ERROR_INVALID_HANDLE},
        {"release an event", [&] { return ReleaseMutex(event.get()); }, ERROR_INVALID_HANDLE},
    });
}

// Recursive for its holder, closed to other threads until left as often as entered.
TEST(CriticalSectionConcurrency, IsRecursiveAndExcludesOtherThreads)
{
    CRITICAL_SECTION section;
    InitializeCriticalSection(&section);
    const auto takenByOtherThread = [&section] {
        BOOL taken = FALSE;
        std::thread([&] {
            if ((taken = TryEnterCriticalSection(&section)))
                LeaveCriticalSection(&section);
        }).join();
        return taken;
    };
    EnterCriticalSection(&section);
    EXPECT_TRUE(TryEnterCriticalSection(&section));
    EXPECT_FALSE(takenByOtherThread());
    LeaveCriticalSection(&section);
    EXPECT_FALSE(takenByOtherThread());
    LeaveCriticalSection(&section);
    EXPECT_TRUE(takenByOtherThread());
    DeleteCriticalSection(&section);
}

// While another thread owns it, waits time out and releases fail with 288; a wait in progress
// takes it when the owner lets go; an owner that ends without releasing abandons it.
TEST(MutexConcurrency, OtherOwnerMakesWaitsTimeOutAndReleasesFail288)
{
    const Handle mutex = owned(CreateMutexA(nullptr, FALSE, nullptr));
    std::promise<void> taken;
    std::promise<void> letGo;
    std::thread owner([&] {
        WaitForSingleObject(mutex.get(), INFINITE);
        taken.set_value();
        letGo.get_future().wait();
        ReleaseMutex(mutex.get());
    });
    taken.get_future().wait();
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(WaitForSingleObject(mutex.get(), 20), WAIT_TIMEOUT);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(20));
    EXPECT_EQ(outcomeOf([&] { return ReleaseMutex(mutex.get()); }), ERROR_NOT_OWNER);

    std::thread releaser([&] { letGo.set_value(); });
    EXPECT_EQ(WaitForSingleObject(mutex.get(), 5000), WAIT_OBJECT_0);
    releaser.join();
    owner.join();
    EXPECT_TRUE(ReleaseMutex(mutex.get()));

    std::thread([&] { WaitForSingleObject(mutex.get(), INFINITE); }).join();
    EXPECT_EQ(WaitForSingleObject(mutex.get(), 0), WAIT_ABANDONED);
    EXPECT_TRUE(ReleaseMutex(mutex.get())); // taken once
    EXPECT_FALSE(ReleaseMutex(mutex.get()));
}

TEST(MutexConcurrency, ExcludesOtherThreads)
{
    const Handle mutex = owned(CreateMutexA(nullptr, FALSE, nullptr));
    long counter = 0; // guarded by the mutex only
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 500; ++i) {
                ASSERT_EQ(WaitForSingleObject(mutex.get(), INFINITE), WAIT_OBJECT_0);
                ++counter;
                ReleaseMutex(mutex.get());
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(counter, 2000);
}

// One set releases every waiter of a manual-reset event, and one waiter of an auto-reset event
// (the others time out).
TEST(EventConcurrency, SetReleasesEveryWaiterOrOne)
{
    for (BOOL manualReset : {TRUE, FALSE}) {
        SCOPED_TRACE(manualReset ? "manual reset" : "auto reset");
        const Handle event = owned(CreateEventA(nullptr, manualReset, FALSE, nullptr));
        std::atomic<int> passed{0};
        std::vector<std::thread> waiters;
        for (int t = 0; t < 3; ++t)
            waiters.emplace_back(
                [&] { passed += WaitForSingleObject(event.get(), manualReset ? 5000 : 100) == WAIT_OBJECT_0; });
        SetEvent(event.get());
        for (std::thread& waiter : waiters)
            waiter.join();
        EXPECT_EQ(passed, manualReset ? 3 : 1);
    }
}

} // namespace
