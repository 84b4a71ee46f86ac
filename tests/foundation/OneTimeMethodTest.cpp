#include "foundation/OneTimeMethod.h"
#include "foundation/Signal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

// A one-shot object whose work is a function given by the test; it counts how often it ran.
struct RecordingMethod : OneTimeMethod
{
    explicit RecordingMethod(std::function<void(RecordingMethod&, int)> body) : m_body(std::move(body)) {}
    int work(int argument) override
    {
        ++runCount;
        m_body(*this, argument);
        return 12345; // ignored: results go through setResult
    }

    std::function<void(RecordingMethod&, int)> m_body;
    std::atomic<int> runCount{0};
};

} // namespace

// No result before the run; the first run does the work with its argument, later runs answer
// "finished" without running it again. A work that threw is finished for good, recording nothing (-1).
TEST(OneTimeMethod, WorkRunsOnceWithTheFirstArgument)
{
    for (bool throws : {false, true}) {
        SCOPED_TRACE(throws ? "throwing work" : "work");
        RecordingMethod method([throws](RecordingMethod& self, int argument) {
            if (throws)
                throw std::runtime_error("work failed");
            self.setResult(argument * 2);
        });
        int out = 99;
        EXPECT_EQ(method.state(), OneTimeMethod_NOT_STARTED);
        EXPECT_EQ(method.result(&out), OneTimeMethod_NO_RESULT);
        EXPECT_EQ(out, 99);
        EXPECT_EQ(method.waitForFinish(0), OneTimeMethod_TIMED_OUT);

        EXPECT_EQ(method.run(false, 21), throws ? OneTimeMethod_THREW : OneTimeMethod_SUCCESS);
        EXPECT_EQ(method.run(false, 1), OneTimeMethod_FINISHED);
        EXPECT_EQ(method.run(true, 1), OneTimeMethod_FINISHED);
        EXPECT_EQ(method.runCount, 1);
        EXPECT_EQ(method.state(), OneTimeMethod_FINISHED);
        EXPECT_EQ(method.waitForFinish(0), OneTimeMethod_SUCCESS);
        EXPECT_EQ(method.result(&out), OneTimeMethod_SUCCESS);
        EXPECT_EQ(out, throws ? -1 : 42);
        EXPECT_EQ(method.result(nullptr), OneTimeMethod_FAILED);
    }
}

// A work that waited for itself would never end: its waitForFinish answers RUNNING (4) at once.
TEST(OneTimeMethod, WorkSeesItselfRunning)
{
    int waited = 0;
    std::vector<OneTimeMethodState> inside;
    int out = 5;
    RecordingMethod method([&](RecordingMethod& self, int) {
        waited = self.waitForFinish(100);
        inside = {self.state(), self.run(false, 0), self.result(&out)};
    });
    EXPECT_EQ(method.run(false, 0), OneTimeMethod_SUCCESS);
    EXPECT_EQ(waited, 4);
    EXPECT_EQ(inside, (std::vector<OneTimeMethodState>{OneTimeMethod_RUNNING, OneTimeMethod_RUNNING,
                                                       OneTimeMethod_NO_RESULT}));
    EXPECT_EQ(out, 5);
    EXPECT_EQ(method.runCount, 1);
}

// Six threads run at once: one does the work; the others, and this thread, see it running and
// are not taken for its owner; every wait ends with the work.
TEST(OneTimeMethodConcurrency, ConcurrentRunsDoTheWorkOnce)
{
    Signal started;
    Signal mayFinish;
    RecordingMethod method([&](RecordingMethod& self, int argument) {
        started.set();
        mayFinish.wait();
        self.setResult(argument);
    });
    std::atomic<int> arrived{0};
    std::vector<OneTimeMethodState> answers(6, OneTimeMethod_FAILED);
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t) {
        threads.emplace_back([&, t] {
            for (++arrived; arrived < 6;) // start together, for the best chance of a race
                std::this_thread::yield();
            answers[size_t(t)] = method.run(true, t);
        });
    }
    EXPECT_EQ(started.wait(), WAIT_OBJECT_0);
    EXPECT_EQ(method.state(), OneTimeMethod_RUNNING);
    EXPECT_EQ(method.run(false, 0), OneTimeMethod_RUNNING);
    EXPECT_EQ(method.waitForFinish(1), OneTimeMethod_TIMED_OUT);
    OneTimeMethodState waited = OneTimeMethod_FAILED;
    threads.emplace_back([&] { waited = method.waitForFinish(0xFFFFFFFF); });
    mayFinish.set();
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(method.runCount, 1);
    EXPECT_EQ(waited, OneTimeMethod_SUCCESS);
    const auto runner = std::find(answers.begin(), answers.end(), OneTimeMethod_SUCCESS);
    ASSERT_NE(runner, answers.end());
    EXPECT_EQ(std::count(answers.begin(), answers.end(), OneTimeMethod_FINISHED), 5);
    int out = -2;
    EXPECT_EQ(method.result(&out), OneTimeMethod_SUCCESS);
    EXPECT_EQ(out, runner - answers.begin());
}
