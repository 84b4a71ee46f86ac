// The whole road of a situation, as a module of the product drives it: Zarn::create, then
// respondToSituation with the specs of a resource module, ending at a display function, the proxy
// module and plug-ins that each record what reached them.
#include "monitor/Zarn.h"

#include "monitor/ZarnBehaviorCriteria.h"
#include "monitor/ZarnData.h"
#include "platform/Modules.h"
#include "platform/Threads.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr i64 kNonnative = 77;
constexpr int kTextCharacters = 1024;

HMODULE loadTestModule(const char* file)
{
    const std::string path = std::string(ZMU_TEST_MODULE_DIR "/") + file;
    return LoadLibraryW(std::wstring(path.begin(), path.end()).c_str());
}

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

// Row 0 fails, row 1 is never named, row 2 is null, row 3 succeeds.
bool plugIn0(const Zarn* monitor)
{
    observe("plug-in 0", monitor);
    return false;
}
bool plugIn1(const Zarn* monitor)
{
    return observe("plug-in 1", monitor);
}
bool plugIn3(const Zarn* monitor)
{
    return observe("plug-in 3", monitor);
}

// The exported records of the test proxy module.
struct ProxyRecords
{
    explicit ProxyRecords(HMODULE module)
    {
        const auto entry = [module](const char* name) { return GetProcAddress(module, name); };
        reset = reinterpret_cast<void (*)()>(entry("zmuProxyReset"));
        count = reinterpret_cast<int*>(entry("zmuProxyCallCount"));
        refuses = reinterpret_cast<int*>(entry("zmuProxyRefuses"));
        enablements = reinterpret_cast<unsigned int*>(entry("zmuProxyLastEnablements"));
        instantiator = reinterpret_cast<long long*>(entry("zmuProxyLastInstantiatorID"));
        negatedID = reinterpret_cast<int*>(entry("zmuProxyLastNegatedSituationID"));
        format = reinterpret_cast<wchar_t*>(entry("zmuProxyLastFormat"));
        description = reinterpret_cast<wchar_t*>(entry("zmuProxyLastDescription"));
    }
    bool complete() const
    {
        return reset && count && refuses && enablements && instantiator && negatedID && format && description;
    }

    void (*reset)();
    int* count;
    int* refuses;
    unsigned int* enablements;
    long long* instantiator;
    int* negatedID;
    wchar_t* format;
    wchar_t* description;
};

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
        static int series = 0;
        m_logName = (std::filesystem::temp_directory_path()
                     / ("zmu_road_" + std::to_string(GetCurrentProcessId()) + "_" + std::to_string(++series) + ".html"))
                        .wstring();
    }

    void TearDown() override
    {
        Zarn::destroy();
        g_monitor = nullptr;
        if (m_specs != nullptr) {
            EXPECT_TRUE(FreeLibrary(m_specs));
        }
        std::error_code ignored;
        std::filesystem::remove(std::filesystem::path(m_logName), ignored);
    }

    // A monitor configured as an owner would: wide strings, recorded argument slots, two affixes
    // from ID 4000, a caption, the recording display function and a table of four plug-ins.
    Zarn* createMonitor(i64 instantiatorID = 0)
    {
        ZarnData dataSet;
        dataSet.setNonnativeInstantiatorID(instantiatorID);
        dataSet.setCharSetExternal(2);
        dataSet.setArgsIntQty(3);
        dataSet.setArgsStrQty(3);
        dataSet.setArgsUIntQty(3);
        dataSet.setDescriptionAffixID_Min(4000);
        dataSet.setDescriptionAffixIDsQty(2);
        dataSet.recordDialogBoxCaption(L"Road caption");
        dataSet.setDisplayDlgBoxFunction(&recordingDisplay);
        ZarnPlugIn* plugIns = dataSet.createPlugIns(4);
        plugIns[0] = &plugIn0;
        plugIns[1] = &plugIn1;
        plugIns[3] = &plugIn3;
        std::vector<wchar_t> logName(m_logName.begin(), m_logName.end());
        logName.push_back(L'\0');
        dataSet.recordLogFileNomenclature(logName.data(), nullptr, Zarn_LOG_HTML);

        Zarn* monitor = Zarn::create(&dataSet);
        EXPECT_NE(monitor, nullptr) << "create failed with " << dataSet.getSelfDX_Code();
        g_monitor = monitor;
        return monitor;
    }

    HMODULE m_specs = nullptr;
    std::wstring m_logName;
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

// One situation, reported through one of the three respond forms.
using Respond = std::function<bool(Zarn*, HMODULE)>;

} // namespace

TEST_F(ZarnRoad, SituationsReachTheDisplayWithTheirFormattedTexts)
{
    struct Row
    {
        const char* name;
        Respond respond;
        int situationID;
        const wchar_t* display; // null: nothing is shown
        const wchar_t* logFile;
        unsigned int type;
    };
    u64 slots[] = {static_cast<u64>(static_cast<i64>(-8)), 9, reinterpret_cast<std::uintptr_t>(L"vector")};
    char* cursor = reinterpret_cast<char*>(slots);
    const Row rows[] = {
        {"cursor arguments of three letters, a dialog spec of three numbers",
         [](Zarn* m, HMODULE specs) { return m->respondToSituation(3001, specs, -5, 7u, L"wide"); }, 3001,
         L"Shown -5 7 wide", L"Logged -5 7 wide", 36},
        {"the vector form reads 8-byte slots and moves the caller's cursor",
         [&cursor](Zarn* m, HMODULE specs) { return m->respondToSituation(3001, &cursor, specs); }, 3001,
         L"Shown -8 9 vector", L"Logged -8 9 vector", 36},
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
        {"the dupe form followed by more text",
         [](Zarn* m, HMODULE specs) { return m->respondToSituation(3010, specs, L"again"); }, 3010,
         L"Dupe again again", L"Dupe again again", 48},
        {"width 255 keeps the hard break; style 1",
         [](Zarn* m, HMODULE specs) { return m->respondToSituation(3008, specs, 4u); }, 3008,
         L"Pressed 4\r\nSecond line", L"Logged 4", 1},
        {"affixes around the text, with inserts of their own",
         [](Zarn* m, HMODULE specs) { return m->respondToSituation(3009, specs, 5u); }, 3009,
         L"[Pre] Affix 5 [Post 5]", L"[Pre] Logged affix 5 [Post 5]", 48},
        {"no display text: nothing is shown, and the answer reads 0",
         [](Zarn* m, HMODULE specs) { return m->respondToSituation(3005, specs, L"quiet"); }, 3005, nullptr,
         L"Kind one quiet", 0},
    };
    Zarn* monitor = createMonitor();
    ASSERT_NE(monitor, nullptr);
    monitor->setResourceModule(m_specs); // for the form without a module argument
    int answer = 100;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        g_display = DisplayCalls();
        g_display.answer = ++answer;

        EXPECT_TRUE(row.respond(monitor, m_specs));
        EXPECT_EQ(monitor->getSelfDX_Code(), 0);
        EXPECT_EQ(g_display.count, row.display != nullptr ? 1 : 0);
        EXPECT_NE(readLogFile(m_logName).find(row.logFile), std::wstring::npos) << "no entry in the log file";
        if (row.display != nullptr) {
            EXPECT_EQ(g_display.text, row.display);
            EXPECT_EQ(g_display.caption, L"Road caption");
            EXPECT_EQ(g_display.type, row.type);
            EXPECT_EQ(g_display.situationID, row.situationID);
            EXPECT_EQ(g_display.logText, row.logFile);
        }
        // The answer outlives the situation; the situation itself is forgotten.
        EXPECT_EQ(monitor->getDisplayDlgBoxResult(), row.display != nullptr ? answer : 0);
        EXPECT_EQ(monitor->getSituationID(), 0);
        EXPECT_EQ(logText(), L"");
        monitor->forgetSelfDX_Code();
    }
    EXPECT_EQ(cursor, reinterpret_cast<char*>(slots + 3));
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

TEST_F(ZarnRoad, NonnativeSituationsTravelThroughTheProxy)
{
    const HMODULE proxyModule = loadTestModule("libcs4s3.so");
    ASSERT_NE(proxyModule, nullptr);
    ProxyRecords proxy(proxyModule);
    ASSERT_TRUE(proxy.complete());
    struct Row
    {
        const char* name;
        u64 criteria;
        bool refuses;
        Respond respond;
        int calls;
        unsigned int enablements;
        int negatedID;
        const wchar_t* description;
        int code;
        bool shown;
    };
    const u64 levelThree = ZARN_RESPOND_MASK | (3ull << 29);
    const Row rows[] = {
        {"kind 1 sends 11 and the negated ID", ZARN_DEFAULT_BEHAVIOR_CRITERIA, false,
         [](Zarn* m, HMODULE specs) { return m->respondToSituation(3005, specs, L"far"); }, 1, 11, -3005,
         L"Kind one far", 0, false},
        {"kind 2 sends the bit of every field that passes", ZARN_DEFAULT_BEHAVIOR_CRITERIA, false,
         [](Zarn* m, HMODULE specs) { return m->respondToSituation(3007, specs, L"both"); }, 1, 3, -3007,
         L"Two fields both", 0, false},
        {"a level above the criteria sends nothing and succeeds", levelThree, false,
         [](Zarn* m, HMODULE specs) { return m->respondToSituation(3006, specs, L"high"); }, 0, 0, 0, nullptr, 0,
         false},
        {"situation 0 is refused by the proxy road: 228", ZARN_DEFAULT_BEHAVIOR_CRITERIA, false,
         [](Zarn* m, HMODULE specs) { return m->respondToSituation(0, specs, L"zero"); }, 0, 0, 0, nullptr, 228,
         false},
        {"a refusing proxy: 228", ZARN_DEFAULT_BEHAVIOR_CRITERIA, true,
         [](Zarn* m, HMODULE specs) { return m->respondToSituation(3005, specs, L"refused"); }, 1, 11, -3005,
         L"Kind one refused", 228, false},
        {"the display is shown on this road too", ZARN_DEFAULT_BEHAVIOR_CRITERIA, false,
         [](Zarn* m, HMODULE specs) { return m->respondToSituation(3001, specs, 1, 2u, L"both ways"); }, 1, 2,
         -3001, L"Logged 1 2 both ways", 0, true},
    };
    {
        Zarn* monitor = createMonitor(kNonnative);
        ASSERT_NE(monitor, nullptr);
        for (const Row& row : rows) {
            SCOPED_TRACE(row.name);
            proxy.reset();
            *proxy.refuses = row.refuses ? 1 : 0;
            g_display = DisplayCalls();
            monitor->setBehaviorCriteria(row.criteria);

            EXPECT_TRUE(row.respond(monitor, m_specs));
            EXPECT_EQ(monitor->getSelfDX_Code(), row.code);
            EXPECT_EQ(*proxy.count, row.calls);
            if (row.calls > 0) {
                EXPECT_EQ(*proxy.enablements, row.enablements);
                EXPECT_EQ(*proxy.instantiator, kNonnative);
                EXPECT_EQ(*proxy.negatedID, row.negatedID);
                EXPECT_STREQ(proxy.format, L"%s");
                EXPECT_STREQ(proxy.description, row.description);
            }
            EXPECT_EQ(g_display.count, row.shown ? 1 : 0);
            // A failed situation stays in hand until it is forgotten; the next one starts clean.
            monitor->forgetSelfDX_Code();
            monitor->forgetSituation();
        }
        proxy.reset();
        Zarn::destroy();
    }
    EXPECT_TRUE(FreeLibrary(proxyModule));
}

TEST_F(ZarnRoad, CriteriaThatMayNotRespondStillLogButShowNothing)
{
    Zarn* monitor = createMonitor();
    ASSERT_NE(monitor, nullptr);
    monitor->setResourceModule(m_specs);
    monitor->setBehaviorCriteria(0);
    monitor->recordSituationID(3004);
    ASSERT_EQ(monitor->recordArgument(11u, 0), 0);

    EXPECT_TRUE(monitor->respondToSituation());
    EXPECT_EQ(monitor->getSelfDX_Code(), 0);
    EXPECT_EQ(g_display.count, 0);
    EXPECT_EQ(monitor->getDisplayDlgBoxResult(), 0);
    // The log entry is written all the same: the criteria gate only the display and the proxy.
    EXPECT_NE(readLogFile(m_logName).find(L"Plug log 11"), std::wstring::npos);
    ASSERT_EQ(g_plugInTurns.size(), 2u);
    EXPECT_EQ(g_plugInTurns[0].logFile, L"Plug log 11");
}

TEST_F(ZarnRoad, NullDisplayFunctionFailsWith4AfterTheLog)
{
    Zarn* monitor = createMonitor();
    ASSERT_NE(monitor, nullptr);
    EXPECT_EQ(monitor->setDisplayDlgBoxFunction(nullptr), &recordingDisplay);
    TraceCapture trace;

    EXPECT_TRUE(monitor->respondToSituation(3001, m_specs, -1, 2u, L"unseen")) << "the variadic form answers true";
    EXPECT_EQ(monitor->getSelfDX_Code(), 4);
    EXPECT_TRUE(trace.contains(L"ZarnDataForThread::reportDescriptions () caught exception #4."));
    // The entry was written before the display failed; the failed situation stays in hand.
    EXPECT_NE(readLogFile(m_logName).find(L"Logged -1 2 unseen"), std::wstring::npos);
    EXPECT_EQ(monitor->getSituationID(), 3001);
    EXPECT_EQ(logText(), L"Logged -1 2 unseen");

    monitor->forgetSelfDX_Code();
    monitor->forgetSituation();
    EXPECT_TRUE(monitor->respondToSituation(3005, m_specs, L"no display needed"));
    EXPECT_EQ(monitor->getSelfDX_Code(), 0);
}

TEST_F(ZarnRoad, MissingSpecFailsBothFormsButOnlyTheVectorFormSaysSo)
{
    Zarn* monitor = createMonitor();
    ASSERT_NE(monitor, nullptr);
    char* cursor = nullptr;
    EXPECT_FALSE(monitor->respondToSituation(3999, &cursor, m_specs));
    const int code = monitor->getSelfDX_Code();
    EXPECT_NE(code, 0);
    monitor->forgetSelfDX_Code();
    monitor->forgetSituation();

    EXPECT_TRUE(monitor->respondToSituation(3999, m_specs));
    EXPECT_EQ(monitor->getSelfDX_Code(), code);
    EXPECT_EQ(g_display.count, 0);
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
