// The road of a situation driven from several threads at once, through engines whose stages watch
// the data set's lock.
#include "monitor/Zarn.h"

#include "MonitorRig.h"

#include <gtest/gtest.h>

#include "support/TestLogPath.h"

#include <atomic>
#include <thread>

using monitor_test::OpenData;

namespace {

constexpr int kThreads = 4;
constexpr int kSituations = 40;
constexpr int kFailingThread = 2;
constexpr int kFailingRound = 5;
constexpr int kStageCode = 4002;

// Shared by all engines of one data set. `handled` is a plain int on purpose: only the data set's
// lock orders its updates, so a situation that ran outside it shows up under ThreadSanitizer.
struct RoadWatch
{
    std::atomic<int> inside{0};
    std::atomic<bool> overlapped{false};
    std::atomic<bool> foreignEngine{false};
    int handled = 0;
};

// Marks the stretch from describeSituation to the end of forgetSituation: the whole situation.
// A situation whose ID is negative fails in its description stage.
class WatchingEngine : public ZarnDataForThread
{
public:
    explicit WatchingEngine(RoadWatch* watch) : m_watch(watch), m_thread(std::this_thread::get_id()) {}

    bool describeSituation() override
    {
        if (std::this_thread::get_id() != m_thread)
            m_watch->foreignEngine = true;
        if (m_watch->inside.fetch_add(1) != 0)
            m_watch->overlapped = true;
        std::this_thread::yield(); // widen the window in which another thread could come in
        if (getSituationID() < 0) {
            m_watch->inside.fetch_sub(1);
            setSelfDX_Code(kStageCode);
            return false;
        }
        ++m_watch->handled;
        return true;
    }

    bool forgetSituation() override
    {
        const bool forgotten = ZarnDataForThread::forgetSituation();
        m_watch->inside.fetch_sub(1);
        return forgotten;
    }

private:
    RoadWatch* m_watch;
    std::thread::id m_thread;
};

void nameLogFile(ZarnData& dataSet)
{
    dataSet.setCharSetExternal(2);
    std::wstring logName = testLogPath(L"monitor");
    dataSet.recordLogFileNomenclature(logName.data(), nullptr, Zarn_LOG_HTML);
}

} // namespace

TEST(ZarnRoadConcurrency, EachThreadRunsWholeSituationsUnderTheLockAndOnlyItsOwnFails)
{
    RoadWatch watch;
    OpenData dataSet;
    dataSet.makeEngine = [&watch] { return new WatchingEngine(&watch); };
    nameLogFile(dataSet);
    ASSERT_TRUE(dataSet.establishLogFile(true));

    std::vector<int> passed(kThreads, 0);
    std::vector<int> codes(kThreads, -1);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < kSituations; ++round) {
                const bool failing = t == kFailingThread && round == kFailingRound;
                dataSet.recordSituationID(failing ? -(100 + t) : 100 + t);
                if (dataSet.getSituationID() != (failing ? -(100 + t) : 100 + t))
                    ADD_FAILURE() << "thread " << t << " sees another thread's situation";
                if (dataSet.respondToSituation())
                    ++passed[t];
            }
            codes[t] = dataSet.getSelfDX_Code();
            dataSet.removeThread();
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_FALSE(watch.overlapped) << "two situations were inside at once";
    EXPECT_FALSE(watch.foreignEngine) << "a thread ran on an engine it does not own";
    for (int t = 0; t < kThreads; ++t) {
        SCOPED_TRACE(t);
        // With no tolerance the failing thread's code is sticky: its later situations are refused.
        EXPECT_EQ(passed[t], t == kFailingThread ? kFailingRound : kSituations);
        EXPECT_EQ(codes[t], t == kFailingThread ? kStageCode : 0);
    }
    EXPECT_EQ(watch.handled, (kThreads - 1) * kSituations + kFailingRound);
    EXPECT_TRUE(dataSet.isSelfSatisfied()) << "the data set and this thread's engine stay clean";
}

// Through the front: each thread's situation lives in its own engine, whatever the stages make of it.
TEST(ZarnRoadConcurrency, MonitorKeepsEachThreadsSituationApart)
{
    Zarn::destroy();
    ZarnData dataSet;
    nameLogFile(dataSet);
    dataSet.setSelfDX_FaultTolerance(Zarn_TOLERANCE_FORGIVING);
    Zarn* monitor = Zarn::create(&dataSet);
    ASSERT_NE(monitor, nullptr) << dataSet.getSelfDX_Code();

    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < kSituations; ++round) {
                monitor->recordSituationID_Remote(300 + t);
                monitor->recordSituationID(200 + t);
                std::this_thread::yield();
                if (monitor->getSituationID() != 200 + t || !monitor->respondToSituation(200 + t, nullptr))
                    ++failures;
            }
            if (!monitor->removeThread())
                ++failures;
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(Zarn::destroy(), 1);
}
