#include "platform/LastError.h"
#include "platform/Synchronization.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

// Closes a handle at the end of a test.
class Handle
{
public:
    explicit Handle(HANDLE handle) : m_handle(handle) {}
    ~Handle()
    {
        if (m_handle != nullptr)
            CloseHandle(m_handle);
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    HANDLE get() const { return m_handle; }

private:
    HANDLE m_handle;
};

TEST(CriticalSection, IsRecursive)
{
    CRITICAL_SECTION section;
    InitializeCriticalSection(&section);
    EnterCriticalSection(&section);
    EnterCriticalSection(&section);
    EXPECT_EQ(TRUE, TryEnterCriticalSection(&section));
    LeaveCriticalSection(&section);
    LeaveCriticalSection(&section);
    LeaveCriticalSection(&section);
    DeleteCriticalSection(&section);
}

TEST(Event, ManualResetStaysSetUntilReset)
{
    Handle event(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    ASSERT_NE(nullptr, event.get());
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(event.get(), 0));
    EXPECT_EQ(TRUE, SetEvent(event.get()));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event.get(), 0));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event.get(), 0));
    EXPECT_EQ(TRUE, ResetEvent(event.get()));
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(event.get(), 0));
}

TEST(Event, AutoResetLetsOneWaitThrough)
{
    Handle event(CreateEventA(nullptr, FALSE, TRUE, nullptr));
    ASSERT_NE(nullptr, event.get());
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event.get(), 0));
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(event.get(), 0));
    SetEvent(event.get());
    SetEvent(event.get()); // an event is set or not; two sets let one wait through
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(event.get(), 0));
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(event.get(), 0));
}

TEST(Event, TimedWaitWaitsItsTime)
{
    Handle event(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(event.get(), 30));
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(30));
}

TEST(Event, NamedEventIsSharedWithinTheProcess)
{
    SetLastError(12345);
    Handle first(CreateEventA(nullptr, TRUE, FALSE, "zmu.SynchronizationTest.shared"));
    EXPECT_EQ(ERROR_SUCCESS, GetLastError());
    Handle second(CreateEventA(nullptr, FALSE, TRUE, "zmu.SynchronizationTest.shared"));
    EXPECT_EQ(183u, GetLastError());
    ASSERT_EQ(first.get(), second.get());
    // The second create's arguments were ignored: still manual-reset and clear.
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(second.get(), 0));
    SetEvent(first.get());
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(second.get(), 0));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(second.get(), 0));

    SetLastError(0);
    EXPECT_EQ(nullptr, CreateMutexA(nullptr, FALSE, "zmu.SynchronizationTest.shared"));
    EXPECT_EQ(ERROR_INVALID_HANDLE, GetLastError());
}

TEST(Event, NameIsFreeAgainWhenTheLastHandleCloses)
{
    HANDLE first = CreateEventA(nullptr, TRUE, TRUE, "zmu.SynchronizationTest.reused");
    ASSERT_NE(nullptr, first);
    ASSERT_EQ(TRUE, CloseHandle(first));
    SetLastError(12345);
    Handle again(CreateEventA(nullptr, TRUE, FALSE, "zmu.SynchronizationTest.reused"));
    EXPECT_EQ(ERROR_SUCCESS, GetLastError());
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(again.get(), 0));
}

TEST(Mutex, IsRecursiveAndCountsReleases)
{
    Handle mutex(CreateMutexA(nullptr, FALSE, nullptr));
    ASSERT_NE(nullptr, mutex.get());
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(mutex.get(), 0));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(mutex.get(), INFINITE));
    EXPECT_EQ(TRUE, ReleaseMutex(mutex.get()));
    EXPECT_EQ(TRUE, ReleaseMutex(mutex.get()));
    SetLastError(0);
    EXPECT_EQ(FALSE, ReleaseMutex(mutex.get()));
    EXPECT_EQ(ERROR_NOT_OWNER, GetLastError());
}

TEST(Mutex, InitialOwnerHoldsIt)
{
    Handle mutex(CreateMutexA(nullptr, TRUE, nullptr));
    EXPECT_EQ(TRUE, ReleaseMutex(mutex.get()));
    SetLastError(0);
    EXPECT_EQ(FALSE, ReleaseMutex(mutex.get()));
    EXPECT_EQ(ERROR_NOT_OWNER, GetLastError());
}

TEST(Handles, NullClosedAndWrongKindFailWith6)
{
    HANDLE closed = CreateEventA(nullptr, TRUE, TRUE, nullptr);
    ASSERT_EQ(TRUE, CloseHandle(closed));
    Handle mutex(CreateMutexA(nullptr, FALSE, nullptr));
    Handle event(CreateEventA(nullptr, TRUE, FALSE, nullptr));

    struct Row
    {
        const char* name;
        std::function<bool()> succeeds;
    };
    const Row rows[] = {
        {"wait on null", [] { return WaitForSingleObject(nullptr, 0) != WAIT_FAILED; }},
        {"wait on a closed handle", [&] { return WaitForSingleObject(closed, 0) != WAIT_FAILED; }},
        {"close of null", [] { return CloseHandle(nullptr) != FALSE; }},
        {"second close", [&] { return CloseHandle(closed) != FALSE; }},
        {"set of a closed event", [&] { return SetEvent(closed) != FALSE; }},
        {"set of a mutex", [&] { return SetEvent(mutex.get()) != FALSE; }},
        {"reset of a mutex", [&] { return ResetEvent(mutex.get()) != FALSE; }},
        {"release of an event", [&] { return ReleaseMutex(event.get()) != FALSE; }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        SetLastError(0);
        EXPECT_FALSE(row.succeeds());
        EXPECT_EQ(ERROR_INVALID_HANDLE, GetLastError());
    }
}

// A thread that takes a mutex, tells it has it, and keeps it until told to let go (or to end
// without releasing it).
class MutexHolder
{
public:
    MutexHolder(HANDLE mutex, bool releaseAtEnd)
        : m_taken(CreateEventA(nullptr, TRUE, FALSE, nullptr)), m_letGo(CreateEventA(nullptr, TRUE, FALSE, nullptr))
    {
        m_thread = std::thread([this, mutex, releaseAtEnd] {
            WaitForSingleObject(mutex, INFINITE);
            SetEvent(m_taken.get());
            WaitForSingleObject(m_letGo.get(), INFINITE);
            if (releaseAtEnd)
                ReleaseMutex(mutex);
        });
        WaitForSingleObject(m_taken.get(), INFINITE);
    }
    ~MutexHolder() { letGo(); }
    MutexHolder(const MutexHolder&) = delete;
    MutexHolder& operator=(const MutexHolder&) = delete;

    void letGo()
    {
        if (!m_thread.joinable())
            return;
        SetEvent(m_letGo.get());
        m_thread.join();
    }

private:
    Handle m_taken;
    Handle m_letGo;
    std::thread m_thread;
};

TEST(MutexConcurrency, OtherOwnerMakesWaitsTimeOutAndReleasesFail288)
{
    Handle mutex(CreateMutexA(nullptr, FALSE, nullptr));
    MutexHolder holder(mutex.get(), true);
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(mutex.get(), 20));
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(20));
    SetLastError(0);
    EXPECT_EQ(FALSE, ReleaseMutex(mutex.get()));
    EXPECT_EQ(ERROR_NOT_OWNER, GetLastError());

    holder.letGo();
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(mutex.get(), 0));
    EXPECT_EQ(TRUE, ReleaseMutex(mutex.get()));
}

TEST(MutexConcurrency, WaitPassesWhenTheOwnerReleasesInTime)
{
    Handle mutex(CreateMutexA(nullptr, FALSE, nullptr));
    MutexHolder holder(mutex.get(), true);
    std::thread releaser([&holder] { holder.letGo(); });
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(mutex.get(), 5000));
    releaser.join();
    EXPECT_EQ(TRUE, ReleaseMutex(mutex.get()));
}

TEST(MutexConcurrency, OwnerThatEndsAbandonsIt)
{
    Handle mutex(CreateMutexA(nullptr, FALSE, nullptr));
    {
        MutexHolder holder(mutex.get(), false);
    }
    EXPECT_EQ(WAIT_ABANDONED, WaitForSingleObject(mutex.get(), 0));
    // Taken by this thread now, once.
    EXPECT_EQ(TRUE, ReleaseMutex(mutex.get()));
    EXPECT_EQ(FALSE, ReleaseMutex(mutex.get()));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(mutex.get(), 0));
    EXPECT_EQ(TRUE, ReleaseMutex(mutex.get()));
}

TEST(MutexConcurrency, ExcludesOtherThreads)
{
    Handle mutex(CreateMutexA(nullptr, FALSE, nullptr));
    long counter = 0; // guarded by the mutex only
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 500; ++i) {
                ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(mutex.get(), INFINITE));
                ++counter;
                ReleaseMutex(mutex.get());
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(2000, counter);
}

TEST(CriticalSectionConcurrency, ExcludesOtherThreads)
{
    CRITICAL_SECTION section;
    InitializeCriticalSection(&section);
    long counter = 0; // guarded by the section only
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 1000; ++i) {
                EnterCriticalSection(&section);
                EnterCriticalSection(&section);
                ++counter;
                LeaveCriticalSection(&section);
                LeaveCriticalSection(&section);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(4000, counter);
    DeleteCriticalSection(&section);
}

TEST(CriticalSectionConcurrency, TryEnterFailsWhileAnotherThreadHoldsIt)
{
    CRITICAL_SECTION section;
    InitializeCriticalSection(&section);
    EnterCriticalSection(&section);
    BOOL taken = TRUE;
    std::thread([&] { taken = TryEnterCriticalSection(&section); }).join();
    EXPECT_EQ(FALSE, taken);
    LeaveCriticalSection(&section);
    DeleteCriticalSection(&section);
}

TEST(EventConcurrency, ManualResetReleasesEveryWaiter)
{
    Handle event(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    std::atomic<int> passed{0};
    std::vector<std::thread> waiters;
    for (int t = 0; t < 4; ++t) {
        waiters.emplace_back([&] {
            if (WaitForSingleObject(event.get(), 5000) == WAIT_OBJECT_0)
                ++passed;
        });
    }
    SetEvent(event.get());
    for (std::thread& waiter : waiters)
        waiter.join();
    EXPECT_EQ(4, passed.load());
}

TEST(EventConcurrency, AutoResetReleasesOneWaiterPerSet)
{
    Handle event(CreateEventA(nullptr, FALSE, FALSE, nullptr));
    std::atomic<int> passed{0};
    std::vector<std::thread> waiters;
    for (int t = 0; t < 2; ++t) {
        waiters.emplace_back([&] {
            if (WaitForSingleObject(event.get(), 5000) == WAIT_OBJECT_0)
                ++passed;
        });
    }
    SetEvent(event.get());
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(5);
    while (passed.load() == 0 && Clock::now() < deadline)
        std::this_thread::yield();
    ASSERT_EQ(1, passed.load());
    // The one set was consumed: the other waiter is still held.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(1, passed.load());
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(event.get(), 0));

    SetEvent(event.get());
    for (std::thread& waiter : waiters)
        waiter.join();
    EXPECT_EQ(2, passed.load());
}

} // namespace
