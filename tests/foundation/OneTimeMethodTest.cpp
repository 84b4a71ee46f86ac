#include "foundation/OneTimeMethod.h"
#include "foundation/Signal.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

// A one-shot object whose work is a function given by the test; it counts how often it ran.
class RecordingMethod : public OneTimeMethod
{
public:
    explicit RecordingMethod(std::function<void(RecordingMethod&, int)> body) : m_body(std::move(body)) {}

    int runCount() const { return m_runCount; }

protected:
    int work(int argument) override
    {
        ++m_runCount;
        m_body(*this, argument);
        return 12345; // ignored: results go through setResult
    }

private:
    std::function<void(RecordingMethod&, int)> m_body;
    std::atomic<int> m_runCount{0};
};

} // namespace

TEST(OneTimeMethod, FreshObjectHasNoResult)
{
    RecordingMethod method([](RecordingMethod&, int) {});
    EXPECT_EQ(method.state(), OneTimeMethod_NOT_STARTED);
    int out = 99;
    EXPECT_EQ(method.result(&out), OneTimeMethod_NO_RESULT);
    EXPECT_EQ(out, 99);
    EXPECT_EQ(method.result(nullptr), OneTimeMethod_FAILED);
    EXPECT_EQ(method.waitForFinish(0), OneTimeMethod_TIMED_OUT);
}

// The first run does the work with its argument; every later run answers "finished" without
// running it again, with or without waiting.
TEST(OneTimeMethod, WorkRunsOnceWithTheFirstArgument)
{
    RecordingMethod method([](RecordingMethod& self, int argument) { self.setResult(argument * 2); });
    EXPECT_EQ(method.run(false, 21), OneTimeMethod_SUCCESS);
    for (bool waitForFinish : {false, true}) {
        SCOPED_TRACE(waitForFinish ? "waiting" : "not waiting");
        EXPECT_EQ(method.run(waitForFinish, 1), OneTimeMethod_FINISHED);
    }
    EXPECT_EQ(method.runCount(), 1);
    EXPECT_EQ(method.state(), OneTimeMethod_FINISHED);
    int out = 0;
    EXPECT_EQ(method.result(&out), OneTimeMethod_SUCCESS);
    EXPECT_EQ(out, 42);
    EXPECT_EQ(method.waitForFinish(0), OneTimeMethod_SUCCESS);
}

TEST(OneTimeMethod, WorkThatThrowsIsFinishedAndNeverRetried)
{
    RecordingMethod method([](RecordingMethod&, int) { throw std::runtime_error("work failed"); });
    EXPECT_EQ(method.run(false, 0), OneTimeMethod_THREW);
    EXPECT_EQ(method.state(), OneTimeMethod_FINISHED);
    EXPECT_EQ(method.run(false, 0), OneTimeMethod_FINISHED);
    EXPECT_EQ(method.runCount(), 1);
    int out = 0;
    EXPECT_EQ(method.result(&out), OneTimeMethod_SUCCESS);
    EXPECT_EQ(out, -1); // nothing was recorded
    EXPECT_EQ(method.waitForFinish(0), OneTimeMethod_SUCCESS);
}

TEST(OneTimeMethod, WorkSeesItselfRunning)
{
    OneTimeMethodState stateInside = OneTimeMethod_FAILED;
    OneTimeMethodState resultInside = OneTimeMethod_FAILED;
    OneTimeMethodState waitInside = OneTimeMethod_FAILED;
    OneTimeMethodState runInside = OneTimeMethod_FAILED;
    int out = 5;
    RecordingMethod method([&](RecordingMethod& self, int) {
        stateInside = self.state();
        resultInside = self.result(&out);
        waitInside = self.waitForFinish(100); // must not wait for itself: 100 ms would time out
        runInside = self.run(false, 0);
    });
    EXPECT_EQ(method.run(false, 0), OneTimeMethod_SUCCESS);
    EXPECT_EQ(stateInside, OneTimeMethod_RUNNING);
    EXPECT_EQ(resultInside, OneTimeMethod_NO_RESULT);
    EXPECT_EQ(out, 5);
    EXPECT_EQ(waitInside, OneTimeMethod_RUNNING);
    EXPECT_EQ(runInside, OneTimeMethod_RUNNING);
    EXPECT_EQ(method.runCount(), 1);
}

TEST(OneTimeMethodConcurrency, ConcurrentRunsDoTheWorkOnce)
{
    constexpr int threadQty = 6;
    std::atomic<int> arrived{0};
    RecordingMethod method([](RecordingMethod& self, int argument) { self.setResult(argument); });
    std::vector<OneTimeMethodState> answers(threadQty, OneTimeMethod_FAILED);
    std::vector<std::thread> threads;
    for (int t = 0; t < threadQty; ++t) {
        threads.emplace_back([&, t] {
            ++arrived;
            while (arrived < threadQty) // start together, for the best chance of a race
                std::this_thread::yield();
            answers[t] = method.run(true, t);
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(method.runCount(), 1);
    int runners = 0;
    int runnerArgument = -1;
    for (int t = 0; t < threadQty; ++t) {
        SCOPED_TRACE(t);
        if (answers[t] == OneTimeMethod_SUCCESS) {
            ++runners;
            runnerArgument = t;
        } else {
            EXPECT_EQ(answers[t], OneTimeMethod_FINISHED); // each waited for the end
        }
    }
    EXPECT_EQ(runners, 1);
    int out = -2;
    EXPECT_EQ(method.result(&out), OneTimeMethod_SUCCESS);
    EXPECT_EQ(out, runnerArgument);
}

// Callers on other threads see the work running, may wait for it with or without a limit, and
// are not taken for its owner.
TEST(OneTimeMethodConcurrency, OtherThreadsWaitForTheRunningWork)
{
    Signal started;
    Signal mayFinish;
    RecordingMethod method([&](RecordingMethod& self, int) {
        started.set();
        mayFinish.wait();
        self.setResult(8);
    });
    std::thread runner([&] { method.run(false, 0); });
    ASSERT_EQ(started.wait(), WAIT_OBJECT_0);

    EXPECT_EQ(method.state(), OneTimeMethod_RUNNING);
    EXPECT_EQ(method.run(false, 0), OneTimeMethod_RUNNING);
    EXPECT_EQ(method.waitForFinish(1), OneTimeMethod_TIMED_OUT);

    OneTimeMethodState waited = OneTimeMethod_FAILED;
    OneTimeMethodState ranAfterWaiting = OneTimeMethod_FAILED;
    std::thread waiter([&] { waited = method.waitForFinish(0xFFFFFFFF); });
    std::thread lateRunner([&] { ranAfterWaiting = method.run(true, 0); });
    mayFinish.set();
    waiter.join();
    lateRunner.join();
    runner.join();

    EXPECT_EQ(waited, OneTimeMethod_SUCCESS);
    EXPECT_EQ(ranAfterWaiting, OneTimeMethod_FINISHED);
    int out = 0;
    EXPECT_EQ(method.result(&out), OneTimeMethod_SUCCESS);
    EXPECT_EQ(out, 8);
    EXPECT_EQ(method.runCount(), 1);
}
