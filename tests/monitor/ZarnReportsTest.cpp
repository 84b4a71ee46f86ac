// The reporting stages of the engine: the log text to the log file or the proxy, the display text to
// the display function, the plug-ins. The descriptions are placed in the engine by hand, so that
// these tests see the reports alone.
#include "monitor/ZarnDataForThread.h"

#include "MonitorRig.h"
#include "monitor/Zarn.h"
#include "monitor/ZarnBehaviorCriteria.h"
#include "support/TestLogPath.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <filesystem>

using namespace monitor_test;

namespace {

const HWND kParent = reinterpret_cast<HWND>(0x1234);

// The last call of the proxy, as the proxy module would receive it.
struct ProxyCalls
{
    int count = 0;
    unsigned int enablements = 0;
    i64 instantiator = 0;
    int negatedID = 0;
    std::wstring format;
    std::wstring description;
    bool refuses = false;
};
ProxyCalls g_proxy;

int recordingProxy(unsigned int enablements, i64 instantiator, int negatedID, const wchar_t* format,
                   const wchar_t* description)
{
    g_proxy = {g_proxy.count + 1, enablements, instantiator, negatedID, format, description, g_proxy.refuses};
    return g_proxy.refuses ? 0 : 1;
}

// What the display function was shown.
struct DisplayCalls
{
    int count = 0;
    HWND parent = nullptr;
    std::wstring text;
    std::wstring caption;
    unsigned int type = 0;
};
DisplayCalls g_display;
constexpr int kAnswer = 6;

int recordingDisplay(HWND parent, const wchar_t* text, const wchar_t* caption, unsigned int type)
{
    g_display = {g_display.count + 1, parent, text, caption != nullptr ? caption : L"(null)", type};
    return kAnswer;
}

int raisingDisplay(HWND, const wchar_t*, const wchar_t*, unsigned int)
{
    throw std::runtime_error("the dialog could not be shown");
}

// Plug-ins that record their turn and the monitor they were handed.
std::vector<std::string> g_plugInTurns;
const Zarn* g_plugInOwner = nullptr;

bool takeTurn(const char* name, const Zarn* owner, bool result)
{
    g_plugInTurns.push_back(name);
    g_plugInOwner = owner;
    return result;
}
bool failingPlugIn(const Zarn* owner) { return takeTurn("fails", owner, false); }
bool succeedingPlugIn(const Zarn* owner) { return takeTurn("succeeds", owner, true); }
bool raisingPlugIn(const Zarn* owner)
{
    takeTurn("raises", owner, true);
    throw 99;
}

class ZarnReports : public testing::Test
{
protected:
    void SetUp() override
    {
        g_proxy = ProxyCalls();
        g_display = DisplayCalls();
        g_plugInTurns.clear();
        g_plugInOwner = nullptr;
    }

    // Initialises the data set with a scripted engine, the recording proxy (so that a non-native
    // set needs no proxy module) and display, and a table of four plug-ins; returns the engine.
    ScriptedEngine* start(OpenData& data)
    {
        data.makeEngine = [this] { return new ScriptedEngine(script); };
        data.m_proxyRespondToSituation = &recordingProxy;
        data.setCharSetExternal(2);
        data.setDisplayDlgBoxFunction(&recordingDisplay);
        data.setDisplayDlgBoxParent(kParent);
        data.recordDialogBoxCaption(L"Report caption");
        ZarnPlugIn* rows = data.createPlugIns(4);
        rows[0] = &failingPlugIn;
        rows[1] = &succeedingPlugIn;
        rows[3] = &raisingPlugIn;
        EXPECT_TRUE(data.initialize()) << data.getSelfDX_Code();
        script.reset();
        return data.engine<ScriptedEngine>();
    }

    Script script;
};

const std::wstring kReports = L"ZarnDataForThread::reportDescriptions () ";
const std::wstring kDirect = L"ZarnDataForThread::reportDescriptionToLogFileDirectly () ";

std::wstring caught(const std::wstring& stage, int code)
{
    return stage + L"caught exception #" + std::to_wstring(code) + L".";
}

} // namespace

TEST_F(ZarnReports, ReportDescriptionsLogsThenShowsAndRanksTheLogsFailureFirst)
{
    const u64 criteria = ZARN_DEFAULT_BEHAVIOR_CRITERIA;
    const struct { const char* name; i64 instantiator; u64 criteria; std::map<std::string, int> failures;
                   std::vector<std::string> calls; int code; bool shown; } rows[] = {
        {"native: the log directly, then the display", 0, criteria, {}, {"direct", "display"}, 0, true},
        {"non-native: the proxy, then the display", kNonnative, criteria, {}, {"indirect", "display"}, 0, true},
        {"criteria that may not respond: the log all the same, no dialog", 0, 0, {}, {"direct", "display"}, 0, false},
        {"a failed log is still shown, and its code outranks the display's", 0, criteria,
         {{"direct", 226}, {"display", 4}}, {"direct", "display"}, 226, false},
        {"a failed log is still shown", 0, criteria, {{"direct", 226}}, {"direct", "display"}, 226, true},
        {"a failed proxy road is still shown", kNonnative, criteria, {{"indirect", 228}}, {"indirect", "display"}, 228,
         true},
        {"the display's failure alone", 0, criteria, {{"display", 5}}, {"direct", "display"}, 5, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        g_display = DisplayCalls();
        OpenData data(row.instantiator);
        ScriptedEngine* engine = start(data);
        ASSERT_NE(engine, nullptr);
        engine->recordSituationID(12);
        data.setBehaviorCriteria(row.criteria);
        engine->setDescriptions(L"display text", L"log text");
        script.failures = row.failures;
        TraceCapture trace;

        EXPECT_EQ(engine->reportDescriptions(), row.code == 0);
        EXPECT_EQ(engine->getSelfDX_Code(), row.code);
        ASSERT_FALSE(script.calls.empty());
        EXPECT_EQ(std::vector<std::string>(script.calls.begin() + 1, script.calls.end()), row.calls);
        EXPECT_EQ(g_display.count, row.shown ? 1 : 0);
        EXPECT_FALSE(data.m_criticalSection->unlock()) << "the lock was not left";
        EXPECT_EQ(trace.contains(caught(kReports, row.code)), row.code != 0);
        EXPECT_EQ(trace.contains(kReports), row.code != 0);
    }
}

// The byte limit is tested after the entry, so that an entry is never split over two files.
TEST_F(ZarnReports, LogAtItsLimitIsReplacedAtOnceAfterTheEntry)
{
    const u64 limit = ZarnData::kDefaultLogFileByteCountLimit;
    const struct
    {
        const char* name;
        u64 limit;          // 0: none
        u64 count;          // bytes counted before the report
        bool entryCounts;   // the entry is written (and counted), else it leaves the count as it is
        int directFailure;  // the log entry fails with this code
        bool directoryGone; // the successor cannot be opened
        bool replaced;
        int code;
    } rows[] = {
        {"exactly at the limit: replaced at once", limit, limit, false, 0, false, true, 0},
        {"one byte below the limit: kept", limit, limit - 1, false, 0, false, false, 0},
        {"an entry that reaches the limit: replaced", limit, limit - 1, true, 0, false, true, 0},
        {"a limit of 0: never replaced", 0, limit, true, 0, false, false, 0},
        {"a failed entry skips the replacement", limit, limit, true, 226, false, false, 226},
        {"a failed replacement is 230", limit, limit, true, 0, true, false, 230},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        // A successor is named in the process's log directory: one of the row's own.
        const std::filesystem::path directory = std::filesystem::path(testLogPath(L"limit")).replace_extension();
        std::filesystem::create_directories(directory);
        ScopedLogDirectory logDirectory(directory.wstring() + L"/");
        std::wstring logName = (directory / "entries.html").wstring();

        OpenData data;
        data.makeEngine = [this] { return new ScriptedEngine(script); };
        data.setCharSetExternal(2);
        data.recordLogFileNomenclature(logName.data(), nullptr, Zarn_LOG_HTML);
        ASSERT_TRUE(data.establishLogFile(true)) << data.getSelfDX_Code();
        ScriptedEngine* engine = data.engine<ScriptedEngine>();
        ASSERT_NE(engine, nullptr);
        engine->setDescriptions(L"", L"an entry");
        script.reset();
        if (row.directFailure != 0)
            script.failures["direct"] = row.directFailure;
        if (!row.entryCounts)
            script.skipped.push_back("direct");
        data.m_logFileByteCountLimit = row.limit;
        data.m_fileLog.m_logByteCount = row.count;
        if (row.directoryGone)
            std::filesystem::remove_all(directory);
        TraceCapture trace;

        EXPECT_EQ(engine->reportDescriptions(), row.code == 0);
        EXPECT_EQ(engine->getSelfDX_Code(), row.code);
        if (row.code != 230) {
            EXPECT_EQ(std::wstring(data.getFileLogName()) != logName, row.replaced);
        } else {
            EXPECT_TRUE(trace.contains(caught(kReports, 230)));
            engine->forgetSelfDX_Code();
            EXPECT_EQ(data.getSelfDX_Code(), 0) << "the replacement's own code is not left on the data set";
        }
    }
}

TEST_F(ZarnReports, LockFailuresOfTheReportsGive262And263WithTheirTraces)
{
    const struct
    {
        const char* name;
        bool direct; // call reportDescriptionToLogFileDirectly itself, else reportDescriptions
        bool refuseLock;
        bool refuseLeave;
        int code;
        std::vector<std::string> calls;
        std::vector<std::wstring> traces;
    } rows[] = {
        {"reports: lock refused", false, true, false, 262, {"reportDescriptions"}, {caught(kReports, 262)}},
        {"reports: lock not left, first by the direct log", false, false, true, 263,
         {"reportDescriptions", "direct", "display"},
         {kDirect + L"failed to leave critical section.", caught(kReports, 263),
          kReports + L"failed to leave critical section."}},
        {"direct log: lock refused", true, true, false, 262, {"direct"}, {caught(kDirect, 262)}},
        {"direct log: lock not left", true, false, true, 263, {"direct"},
         {kDirect + L"failed to leave critical section."}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        OpenData data;
        ScriptedEngine* engine = start(data);
        ASSERT_NE(engine, nullptr);
        engine->setDescriptions(L"", L"log text");
        data.refuseLock = row.refuseLock;
        data.refuseLeave = row.refuseLeave;
        TraceCapture trace;

        EXPECT_FALSE(row.direct ? engine->reportDescriptionToLogFileDirectly() : engine->reportDescriptions());
        EXPECT_EQ(engine->getSelfDX_Code(), row.code);
        EXPECT_EQ(script.calls, row.calls);
        for (const std::wstring& line : row.traces)
            EXPECT_TRUE(trace.contains(line)) << std::string(line.begin(), line.end());
        EXPECT_FALSE(data.m_criticalSection->unlock()) << "an entered lock was not left";
    }
}

TEST_F(ZarnReports, DirectLogNeedsTextAndANativeProcess)
{
    const struct { const char* name; i64 instantiator; const wchar_t* logText; int heldByDataSet, code; bool locks; }
        rows[] = {
        {"native with a log text", 0, L"log text", 0, 0, true},
        {"no log text: nothing to do, no lock taken", 0, L"", 0, 0, false},
        {"a non-native process has no log of its own", kNonnative, L"log text", 0, 227, true},
        {"a code held by the data set stops it at the guard", 0, L"log text", 231, 231, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        OpenData data(row.instantiator);
        ScriptedEngine* engine = start(data);
        ASSERT_NE(engine, nullptr);
        engine->setDescriptions(L"", row.logText);
        data.setSelfDX_Code(row.heldByDataSet);
        TraceCapture trace;

        EXPECT_EQ(engine->reportDescriptionToLogFileDirectly(), row.code == 0);
        EXPECT_EQ(engine->getSelfDX_Code(), row.code);
        EXPECT_EQ(script.lockEntries > 0, row.locks);
        EXPECT_EQ(trace.contains(caught(kDirect, row.code)), row.code != 0);
        data.setSelfDX_Code(0);
    }
}

TEST_F(ZarnReports, ProxyRoadSendsApprovedTraitsAndTurnsRefusalsInto228WithoutALock)
{
    const u64 standard = ZARN_DEFAULT_BEHAVIOR_CRITERIA;
    const struct { const char* name; int heldCode; const wchar_t* logText; int situationID; unsigned int kind;
                   u64 traits; u64 criteria; bool refuses; int code; int calls; unsigned int enablements; } rows[] = {
        {"kind 1 sends 11 whatever the traits", 0, L"proxy text", 5, 1, 0, standard, false, 0, 1, 11},
        {"kind 2 sends the bits of every approving field", 0, L"proxy text", 6, 2, (2ull << 29) | (4ull << 37),
         standard, false, 0, 1, 3},
        {"kind 2 above the criteria sends nothing and succeeds", 0, L"proxy text", 7, 2, 5ull << 29,
         ZARN_RESPOND_MASK | (3ull << 29), false, 0, 0, 0},
        {"criteria that may not respond send nothing", 0, L"proxy text", 8, 1, 0, 0, false, 0, 0, 0},
        {"situation 0 is refused, as 228", 0, L"proxy text", 0, 1, 0, standard, false, 228, 0, 0},
        {"a refusing proxy is 228", 0, L"proxy text", 9, 1, 0, standard, true, 228, 1, 11},
        {"no log text: nothing", 0, L"", 10, 1, 0, standard, false, 0, 0, 0},
        {"a held code: nothing, and the code stays", 4711, L"proxy text", 11, 1, 0, standard, false, 4711, 0, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        g_proxy = ProxyCalls();
        g_proxy.refuses = row.refuses;
        OpenData data(kNonnative);
        ScriptedEngine* engine = start(data);
        ASSERT_NE(engine, nullptr);
        data.setBehaviorCriteria(row.criteria);
        engine->recordSituationID(row.situationID);
        engine->m_situationApprovalKind = row.kind;
        engine->m_situationResponseTraits = row.traits;
        engine->setDescriptions(L"", row.logText);
        engine->setSelfDX_Code(row.heldCode);
        script.lockEntries = 0;

        EXPECT_EQ(engine->reportDescriptionToLogFileIndirectly(), row.code == 0);
        EXPECT_EQ(engine->getSelfDX_Code(), row.code);
        EXPECT_EQ(g_proxy.count, row.calls);
        EXPECT_EQ(script.lockEntries, 0);
        if (row.calls > 0) {
            EXPECT_EQ(g_proxy.enablements, row.enablements);
            EXPECT_EQ(g_proxy.instantiator, kNonnative);
            EXPECT_EQ(g_proxy.negatedID, -row.situationID);
            EXPECT_EQ(g_proxy.format, L"%s");
            EXPECT_EQ(g_proxy.description, row.logText);
        }
        // The proxy road's own code is not left on the data set, where it would stop every thread.
        engine->forgetSelfDX_Code();
        EXPECT_EQ(data.getSelfDX_Code(), 0);
    }
}

TEST_F(ZarnReports, DisplayShowsTheTextInUseAndKeepsTheAnswer)
{
    enum Function { Recording, Null, Raising };
    const struct
    {
        const char* name;
        const wchar_t* display;
        const wchar_t* logText;
        bool dupe;
        Function function;
        const wchar_t* shown; // null: nothing is shown
        int code;
    } rows[] = {
        {"the display text", L"display text", L"log text", false, Recording, L"display text", 0},
        {"the dupe form shows the log text", L"", L"log text", true, Recording, L"log text", 0},
        {"no display text", L"", L"log text", false, Recording, nullptr, 0},
        {"dupe form with no log text", L"display text", L"", true, Recording, nullptr, 0},
        {"no display function, with text: 4", L"display text", L"", false, Null, nullptr, 4},
        {"no display function, nothing to show", L"", L"log text", false, Null, nullptr, 0},
        {"a display function that raises: 5", L"display text", L"", false, Raising, nullptr, 5},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        g_display = DisplayCalls();
        OpenData data;
        ScriptedEngine* engine = start(data);
        ASSERT_NE(engine, nullptr);
        if (row.function != Recording)
            data.setDisplayDlgBoxFunction(row.function == Null ? nullptr : &raisingDisplay);
        engine->setDescriptions(row.display, row.logText);
        engine->m_descriptionDisplayIsDupe = row.dupe;
        engine->m_displayDlgBoxType = 36;
        engine->m_displayDlgBoxResult = 99; // an answer left from an earlier situation

        EXPECT_EQ(engine->reportDescriptionToDisplay(), row.code == 0);
        EXPECT_EQ(engine->getSelfDX_Code(), row.code);
        EXPECT_EQ(g_display.count, row.shown != nullptr ? 1 : 0);
        EXPECT_EQ(engine->getDisplayDlgBoxResult(), row.shown != nullptr ? kAnswer : 0);
        if (row.shown != nullptr) {
            EXPECT_EQ(g_display.text, row.shown);
            EXPECT_EQ(g_display.caption, L"Report caption");
            EXPECT_EQ(g_display.parent, kParent);
            EXPECT_EQ(g_display.type, 36u);
        }
    }
}

TEST_F(ZarnReports, PlugInsRunInOrderAndOneFailureStopsNoOther)
{
    // Table rows: 0 fails, 1 succeeds, 2 is null, 3 raises.
    const struct { const char* name; std::vector<int> named; std::vector<std::string> turns; } rows[] = {
        {"a raising plug-in, a null row and a failing plug-in stop none", {3, 2, 0, 1},
         {"raises", "fails", "succeeds"}},
        {"numbers outside the table are passed over", {9, -1, 1}, {"succeeds"}},
        {"none named: nothing runs", {}, {}},
    };
    alignas(Zarn) unsigned char owner[sizeof(Zarn)] = {};
    Zarn* const ownerMonitor = reinterpret_cast<Zarn*>(owner); // only compared, never used
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        g_plugInTurns.clear();
        g_plugInOwner = nullptr;
        OpenData data;
        ScriptedEngine* engine = start(data);
        ASSERT_NE(engine, nullptr);
        data.setOwner(ownerMonitor);
        std::copy(row.named.begin(), row.named.end(), engine->m_plugInsIndirectIndices);
        engine->m_plugInsIndirectQty = static_cast<int>(row.named.size());

        EXPECT_TRUE(engine->activatePlugIns());
        EXPECT_EQ(engine->getSelfDX_Code(), 0);
        EXPECT_EQ(g_plugInTurns, row.turns);
        EXPECT_EQ(g_plugInOwner, row.turns.empty() ? nullptr : ownerMonitor);
    }
}

TEST_F(ZarnReports, PlugInsRefuseAnInconsistentTable)
{
    const struct
    {
        const char* name;
        int named;    // m_plugInsIndirectQty
        int tableQty; // the data set's quantity during the call
        bool table;   // the data set keeps its table
        bool indices; // the engine keeps its indices
        int heldByDataSet;
        int code;
    } rows[] = {
        {"more named than the table holds", 5, 4, true, true, 0, 213},
        {"a table of no rows", 1, 0, true, true, 0, 213},
        {"no table", 1, 4, false, true, 0, 220},
        {"no indices", 1, 4, true, false, 0, 218},
        {"a code held by the data set", 1, 4, true, true, 231, 231},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        OpenData data;
        ScriptedEngine* engine = start(data);
        ASSERT_NE(engine, nullptr);
        engine->m_plugInsIndirectIndices[0] = 1;
        engine->m_plugInsIndirectQty = row.named;
        ZarnPlugIn* const table = data.m_plugIns;
        int* const indices = engine->m_plugInsIndirectIndices;
        data.m_plugInsQty = row.tableQty;
        if (!row.table)
            data.m_plugIns = nullptr;
        if (!row.indices)
            engine->m_plugInsIndirectIndices = nullptr;
        data.setSelfDX_Code(row.heldByDataSet);

        EXPECT_FALSE(engine->activatePlugIns());
        EXPECT_EQ(engine->getSelfDX_Code(), row.code);
        EXPECT_TRUE(g_plugInTurns.empty());

        // Put back what the data set and the engine free.
        data.setSelfDX_Code(0);
        data.m_plugInsQty = 4;
        data.m_plugIns = table;
        engine->m_plugInsIndirectIndices = indices;
        engine->m_plugInsIndirectQty = 0;
    }
}
