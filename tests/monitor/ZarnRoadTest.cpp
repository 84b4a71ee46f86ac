// The whole road of a situation, as a module of the product drives it: Zarn::create, then
// respondToSituation with the specs of a resource module, ending at a display function, the proxy
// module and plug-ins that each record what reached them.
#include "monitor/Zarn.h"

#include "MonitorRig.h"
#include "monitor/ZarnBehaviorCriteria.h"
#include "support/TestLogPath.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

using namespace monitor_test;

namespace {

constexpr int kTextCharacters = 1024;

// The monitor of the test in hand, for the display function and the plug-ins to look through.
const Zarn* g_monitor = nullptr;

std::wstring logText()
{
    wchar_t text[kTextCharacters];
    g_monitor->getDescriptionForLogFile(text, kTextCharacters);
    return text;
}

std::wstring displayText()
{
    wchar_t text[kTextCharacters];
    g_monitor->getDescriptionForDisplay(text, kTextCharacters);
    return text;
}

// What the display function was shown, and the log text of the situation at that moment.
struct DisplayCalls
{
    int count = 0;
    std::wstring text;
    std::wstring caption;
    unsigned int type = 0;
    int situationID = 0;
    std::wstring logText;
    int answer = 6;
};
DisplayCalls g_display;

int recordingDisplay(HWND, const wchar_t* text, const wchar_t* caption, unsigned int type)
{
    ++g_display.count;
    g_display.text = text;
    g_display.caption = caption != nullptr ? caption : L"(null)";
    g_display.type = type;
    g_display.situationID = g_monitor->getSituationID();
    g_display.logText = logText();
    return g_display.answer;
}

// What one plug-in read of the situation through its monitor.
struct PlugInTurn
{
    std::string plugIn;
    const Zarn* monitor = nullptr;
    int situationID = 0;
    u64 firstFiller = 0;
    unsigned int firstArg = 0;
    std::wstring display;
    std::wstring logFile;
    int dialogAnswer = 0;
};
std::vector<PlugInTurn> g_plugInTurns;

bool observe(const char* name, const Zarn* monitor)
{
    PlugInTurn turn;
    turn.plugIn = name;
    turn.monitor = monitor;
    turn.situationID = monitor->getSituationID();
    const u64* fillers = monitor->getDescriptionFillers();
    turn.firstFiller = fillers != nullptr ? fillers[0] : 0;
    turn.firstArg = monitor->getArg_UInt(0);
    turn.display = displayText();
    turn.logFile = logText();
    turn.dialogAnswer = monitor->getDisplayDlgBoxResult();
    g_plugInTurns.push_back(turn);
    return true;
}

// Row 0 fails, row 3 succeeds; rows 1 and 2 are null.
bool plugIn0(const Zarn* monitor)
{
    observe("plug-in 0", monitor);
    return false;
}
bool plugIn3(const Zarn* monitor)
{
    return observe("plug-in 3", monitor);
}

class ZarnRoad : public testing::Test
{
protected:
    void SetUp() override
    {
        Zarn::destroy();
        g_monitor = nullptr;
        g_display = DisplayCalls();
        g_plugInTurns.clear();
        m_specs = loadTestModule("libzmu_test_report_specs.so");
        ASSERT_NE(m_specs, nullptr);
    }

    void TearDown() override
    {
        Zarn::destroy();
        g_monitor = nullptr;
        if (m_specs != nullptr) {
            EXPECT_TRUE(FreeLibrary(m_specs));
        }
    }

    // A monitor configured as an owner would: wide strings, recorded argument slots, two affixes
    // from ID 4000, a caption, the recording display function and a table of four plug-ins.
    Zarn* createMonitor(i64 instantiatorID = 0)
    {
        OpenData dataSet;
        dataSet.setNonnativeInstantiatorID(instantiatorID);
        dataSet.configure(2, 3);
        dataSet.setDescriptionAffixID_Min(4000);
        dataSet.setDescriptionAffixIDsQty(2);
        dataSet.recordDialogBoxCaption(L"Road caption");
        dataSet.setDisplayDlgBoxFunction(&recordingDisplay);
        ZarnPlugIn* plugIns = dataSet.createPlugIns(4);
        plugIns[0] = &plugIn0;
        plugIns[3] = &plugIn3;
        dataSet.recordLogFileNomenclature(m_logName.data(), nullptr, Zarn_LOG_HTML);

        Zarn* monitor = Zarn::create(&dataSet);
        EXPECT_NE(monitor, nullptr) << "create failed with " << dataSet.getSelfDX_Code();
        g_monitor = monitor;
        return monitor;
    }

    HMODULE m_specs = nullptr;
    std::wstring m_logName = testLogPath(L"road");
};

// The text of a log file: UTF-16 behind a leading U+FEFF.
std::wstring readLogFile(const std::wstring& name)
{
    std::ifstream file(std::filesystem::path(name), std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    std::wstring text;
    for (size_t at = 0; at + 1 < bytes.size(); at += 2)
        text.push_back(static_cast<wchar_t>(static_cast<unsigned char>(bytes[at])
                                            | (static_cast<unsigned char>(bytes[at + 1]) << 8)));
    return text;
}

} // namespace

TEST_F(ZarnRoad, SituationsReachTheDisplayWithTheirFormattedTexts)
{
    const struct { const char* name; std::function<bool(Zarn*, HMODULE)> respond; int situationID;
                   const wchar_t* display; const wchar_t* logFile; unsigned int type; } rows[] = {
        {"cursor arguments of three letters, a dialog spec of three numbers",
         [](Zarn* m, HMODULE specs) { return m->respondToSituation(3001, specs, -5, 7u, L"wide"); }, 3001,
         L"Shown -5 7 wide", L"Logged -5 7 wide", 36},
        {"recorded arguments, chosen by slot",
         [](Zarn* m, HMODULE) {
             m->recordSituationID(3002);
             EXPECT_EQ(m->recordArgument(9u, ZARN_ARG_NEXT), 0);
             EXPECT_EQ(m->recordArgument(L"kept", 1), 1);
             EXPECT_EQ(m->recordArgument(-3, 2), 2);
             return m->respondToSituation();
         },
         3002, L"Recorded 9 kept -3", L"Recorded log 9 kept -3", 48},
        {"the dupe form shows the log text",
         [](Zarn* m, HMODULE specs) { return m->respondToSituation(3003, specs, L"copied"); }, 3003,
         L"Dupe of copied", L"Dupe of copied", 48},
        {"width 255 keeps the hard break; style 1",
         [](Zarn* m, HMODULE specs) { return m->respondToSituation(3008, specs, 4u); }, 3008,
         L"Pressed 4\r\nSecond line", L"Logged 4", 1},
    };
    Zarn* monitor = createMonitor();
    ASSERT_NE(monitor, nullptr);
    monitor->setResourceModule(m_specs); // for the form without a module argument
    int answer = 100;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        g_display = DisplayCalls();
        g_display.answer = ++answer;

        EXPECT_TRUE(row.respond(monitor, m_specs));
        EXPECT_EQ(monitor->getSelfDX_Code(), 0);
        EXPECT_NE(readLogFile(m_logName).find(row.logFile), std::wstring::npos) << "no entry in the log file";
        EXPECT_EQ(g_display.count, 1);
        EXPECT_EQ(g_display.text, row.display);
        EXPECT_EQ(g_display.caption, L"Road caption");
        EXPECT_EQ(g_display.type, row.type);
        EXPECT_EQ(g_display.situationID, row.situationID);
        EXPECT_EQ(g_display.logText, row.logFile);
        // The answer outlives the situation; the situation itself is forgotten.
        EXPECT_EQ(monitor->getDisplayDlgBoxResult(), answer);
        EXPECT_EQ(monitor->getSituationID(), 0);
        EXPECT_EQ(logText(), L"");
    }
}

TEST_F(ZarnRoad, PlugInsSeeTheSituationThroughTheirMonitorAndANullRowStopsNone)
{
    Zarn* monitor = createMonitor();
    ASSERT_NE(monitor, nullptr);
    monitor->setResourceModule(m_specs);
    g_display.answer = 7;
    monitor->recordSituationID(3004);
    ASSERT_EQ(monitor->recordArgument(9u, 0), 0);

    EXPECT_TRUE(monitor->respondToSituation());
    EXPECT_EQ(monitor->getSelfDX_Code(), 0) << "a failing plug-in does not fail the situation";
    ASSERT_EQ(g_plugInTurns.size(), 2u);
    EXPECT_EQ(g_plugInTurns[0].plugIn, "plug-in 0");
    EXPECT_EQ(g_plugInTurns[1].plugIn, "plug-in 3") << "the null row 2 stops nothing";
    for (const PlugInTurn& turn : g_plugInTurns) {
        SCOPED_TRACE(turn.plugIn);
        EXPECT_EQ(turn.monitor, monitor);
        EXPECT_EQ(turn.situationID, 3004);
        EXPECT_EQ(turn.firstFiller, 9u);
        EXPECT_EQ(turn.firstArg, 9u);
        EXPECT_EQ(turn.display, L"Plug 9");
        EXPECT_EQ(turn.logFile, L"Plug log 9");
        EXPECT_EQ(turn.dialogAnswer, 7) << "the plug-ins run after the display";
    }
    EXPECT_EQ(monitor->getSituationID(), 0);
    EXPECT_EQ(monitor->getArg_UInt(0), 0u);
}

// The kind and traits of a real spec reach the proxy module, found by its name: kind 2 sends the
// bit of every field that passes.
TEST_F(ZarnRoad, NonnativeSituationsTravelThroughTheProxy)
{
    ProxyModule proxy;
    ASSERT_TRUE(proxy.loaded());
    Zarn* monitor = createMonitor(kNonnative);
    ASSERT_NE(monitor, nullptr);

    EXPECT_TRUE(monitor->respondToSituation(3007, m_specs, L"both"));
    EXPECT_EQ(monitor->getSelfDX_Code(), 0);
    EXPECT_EQ(proxy.count(), 1);
    EXPECT_EQ(proxy.enablements(), 3u);
    EXPECT_EQ(proxy.instantiator(), kNonnative);
    EXPECT_EQ(proxy.negatedID(), -3007);
    EXPECT_STREQ(proxy.format(), L"%s");
    EXPECT_STREQ(proxy.description(), L"Two fields both");
    Zarn::destroy();
}

// Threads of one monitor run whole situations through the real road at once: each sees its own
// texts, and the display function, which runs under the data set's lock, needs no lock of its own.
class ZarnRoadThreadsConcurrency : public ZarnRoad
{
};

TEST_F(ZarnRoadThreadsConcurrency, ThreadsSeeOnlyTheirOwnSituations)
{
    constexpr int kThreads = 3;
    constexpr int kSituations = 15;
    Zarn* monitor = createMonitor();
    ASSERT_NE(monitor, nullptr);
    static int mismatches = 0; // written only by the display function, under the lock
    mismatches = 0;
    monitor->setDisplayDlgBoxFunction([](HWND, const wchar_t* text, const wchar_t*, unsigned int) {
        ++g_display.count;
        // "Shown t i thread" against "Logged t i thread" of the same engine.
        if (std::wstring(text).substr(6) != logText().substr(7))
            ++mismatches;
        return 1;
    });
    // The module is set once: a module passed with each call is swapped in and back without the
    // lock, so threads sharing a monitor would undo each other's swap.
    monitor->setResourceModule(m_specs);
    std::vector<std::thread> threads;
    std::atomic<int> failures{0};
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            for (int situation = 0; situation < kSituations; ++situation) {
                monitor->respondToSituation(3001, nullptr, thread, static_cast<unsigned int>(situation), L"thread");
                if (monitor->getSelfDX_Code() != 0)
                    ++failures;
            }
            monitor->removeThread();
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(g_display.count, kThreads * kSituations);
    EXPECT_EQ(mismatches, 0);
    const std::wstring logged = readLogFile(m_logName);
    for (int thread = 0; thread < kThreads; ++thread) {
        const std::wstring last =
            L"Logged " + std::to_wstring(thread) + L" " + std::to_wstring(kSituations - 1) + L" thread";
        EXPECT_NE(logged.find(last), std::wstring::npos) << "thread " << thread;
    }
}
