// Threads that meet in one data set: engines made and removed at once, and the shared scratchpad.
#include "monitor/ZarnData.h"

#include "MonitorRig.h"
#include "foundation/UTL_String.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

using monitor_test::OpenData;

namespace {

constexpr int kThreads = 8;

// Holds every thread until all have started, so that their first requests come together.
class StartLine
{
public:
    explicit StartLine(int threads) : m_waiting(threads) {}
    void arriveAndWait()
    {
        m_waiting.fetch_sub(1);
        while (m_waiting.load() > 0)
            std::this_thread::yield();
    }

private:
    std::atomic<int> m_waiting;
};

} // namespace

// Each thread gets an engine of its own at its first request, keeps its own situation in it, and
// takes the engine away again with removeThread.
TEST(ZarnDataConcurrency, ThreadsObtainAndRemoveTheirOwnEnginesAtOnce)
{
    OpenData data;
    ASSERT_TRUE(data.initialize());
    ZarnDataForThread* const mainEngine = data.findDataForCurrentThread();

    StartLine start(kThreads);
    StartLine allAlive(kThreads); // engines are compared while none is deleted yet
    std::vector<const ZarnDataForThread*> engines(kThreads, nullptr);
    std::vector<int> failures(kThreads, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            start.arriveAndWait();
            const int situation = 1000 + t;
            if (data.recordSituationID(situation) != 0)
                ++failures[t];
            engines[t] = data.findDataForCurrentThread();
            allAlive.arriveAndWait();
            for (int round = 0; round < 50; ++round) {
                if (data.getSituationID() != situation)
                    ++failures[t];
            }
            if (data.getSelfDX_Code() != 0 || !data.removeThread() || data.findDataForCurrentThread() != nullptr)
                ++failures[t];
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    for (int t = 0; t < kThreads; ++t) {
        SCOPED_TRACE(t);
        EXPECT_EQ(failures[t], 0);
        EXPECT_NE(engines[t], nullptr);
        EXPECT_NE(engines[t], mainEngine);
        for (int other = 0; other < t; ++other)
            EXPECT_NE(engines[t], engines[other]);
    }
    EXPECT_EQ(data.findDataForCurrentThread(), mainEngine);
    EXPECT_EQ(data.getSelfDX_Code(), 0);
}

// The data set's scratchpad is shared; the lock keeps one thread's link out of another's.
TEST(ZarnDataConcurrency, LogHyperlinksOfManyThreadsDoNotMix)
{
    ZarnData data;
    ASSERT_TRUE(data.initialize());
    StartLine start(kThreads);
    std::vector<int> wrong(kThreads, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            start.arriveAndWait();
            const unsigned long code = 7000 + t;
            const std::wstring expected =
                L"<a href=\"Codes/WSE.html#" + std::to_wstring(code) + L"\">WSE" + std::to_wstring(code) + L"</a>";
            UTL_String out;
            for (int round = 0; round < 40; ++round) {
                const wchar_t* link = data.formatLogHyperlink(code, 10004, out);
                if (link == nullptr || expected != link)
                    ++wrong[t];
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (int t = 0; t < kThreads; ++t)
        EXPECT_EQ(wrong[t], 0) << t;
    EXPECT_EQ(data.getSelfDX_Code(), 0);
}
