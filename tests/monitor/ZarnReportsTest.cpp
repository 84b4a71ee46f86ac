// The reporting stages of the engine: the log text to the log file or the proxy, the display text to
// the display function, the plug-ins. The descriptions are placed in the engine by hand, so that
// these tests see the reports alone.
#include "monitor/ZarnDataForThread.h"

#include "foundation/CriticalSection.h"
#include "monitor/Zarn.h"
#include "monitor/ZarnBehaviorCriteria.h"
#include "monitor/ZarnData.h"
#include "platform/Threads.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cwchar>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr i64 kNonnative = 77;
const HWND kParent = reinterpret_cast<HWND>(0x1234);

// What the engine's reporting sub-stages do: record their call, or fail with a code.
struct ReportScript
{
    std::vector<std::string> calls;
    std::map<std::string, int> failures;
    std::vector<std::string> skipped; // stages that succeed without doing anything
    bool refuseLock = false;
    bool refuseLeave = false;
    int lockEntries = 0;
};

class ReportEngine : public ZarnDataForThread
{
public:
    explicit ReportEngine(ReportScript& script) : m_script(script) {}

    using ZarnDataForThread::m_descriptionDisplayIsDupe, ZarnDataForThread::m_displayDlgBoxResult,
        ZarnDataForThread::m_displayDlgBoxType, ZarnDataForThread::m_plugInsIndirectIndices,
        ZarnDataForThread::m_plugInsIndirectQty, ZarnDataForThread::m_situationApprovalKind,
        ZarnDataForThread::m_situationResponseTraits;

    void setDescriptions(const wchar_t* display, const wchar_t* logFile)
    {
        std::wcsncpy(m_descriptionForDisplay, display, kDisplayCharacters - 1);
        std::wcsncpy(m_descriptionForLogFile, logFile, kLogFileCharacters - 1);
    }

    bool reportDescriptionToLogFileDirectly() override
    {
        return stage("direct", [this] { return Base::reportDescriptionToLogFileDirectly(); });
    }
    bool reportDescriptionToLogFileIndirectly() override
    {
        return stage("indirect", [this] { return Base::reportDescriptionToLogFileIndirectly(); });
    }
    bool reportDescriptionToDisplay() override
    {
        return stage("display", [this] { return Base::reportDescriptionToDisplay(); });
    }
    bool enterCriticalSection() const override
    {
        ++m_script.lockEntries;
        return !m_script.refuseLock && Base::enterCriticalSection();
    }
    bool leaveCriticalSection() const override { return Base::leaveCriticalSection() && !m_script.refuseLeave; }

private:
    using Base = ZarnDataForThread;

    template <class Run>
    bool stage(const std::string& name, Run run)
    {
        m_script.calls.push_back(name);
        if (std::find(m_script.skipped.begin(), m_script.skipped.end(), name) != m_script.skipped.end())
            return true;
        const auto failure = m_script.failures.find(name);
        if (failure == m_script.failures.end())
            return run();
        setSelfDX_Code(failure->second);
        return false;
    }

    ReportScript& m_script;
};

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
    ++g_proxy.count;
    g_proxy.enablements = enablements;
    g_proxy.instantiator = instantiator;
    g_proxy.negatedID = negatedID;
    g_proxy.format = format;
    g_proxy.description = description;
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
    int answer = 6;
};
DisplayCalls g_display;

int recordingDisplay(HWND parent, const wchar_t* text, const wchar_t* caption, unsigned int type)
{
    ++g_display.count;
    g_display.parent = parent;
    g_display.text = text;
    g_display.caption = caption != nullptr ? caption : L"(null)";
    g_display.type = type;
    return g_display.answer;
}

int raisingDisplay(HWND, const wchar_t*, const wchar_t*, unsigned int)
{
    throw std::runtime_error("the dialog could not be shown");
}

// Plug-ins that record their turn and the monitor they were handed.
std::vector<std::string> g_plugInTurns;
const Zarn* g_plugInOwner = nullptr;

bool failingPlugIn(const Zarn* owner)
{
    g_plugInTurns.push_back("fails");
    g_plugInOwner = owner;
    return false;
}
bool succeedingPlugIn(const Zarn* owner)
{
    g_plugInTurns.push_back("succeeds");
    g_plugInOwner = owner;
    return true;
}
bool raisingPlugIn(const Zarn*)
{
    g_plugInTurns.push_back("raises");
    throw 99;
}

class ReportData : public ZarnData
{
public:
    ReportData(i64 instantiatorID, ReportScript& script) : ZarnData(instantiatorID), m_script(script)
    {
        // The proxy entry is given here, so that a non-native set needs no proxy module.
        m_proxyRespondToSituation = &recordingProxy;
    }
    CriticalSection* section() const { return m_criticalSection; }
    using ZarnData::m_fileLog, ZarnData::m_logFileByteCountLimit, ZarnData::m_plugIns, ZarnData::m_plugInsQty;
    mutable ReportEngine* engine = nullptr;

protected:
    ZarnDataForThread* newDataForThread() const override { return engine = new ReportEngine(m_script); }

private:
    ReportScript& m_script;
};

class ZarnReports : public testing::Test
{
protected:
    void SetUp() override
    {
        g_proxy = ProxyCalls();
        g_display = DisplayCalls();
        g_plugInTurns.clear();
    }

    // An initialised data set with its engine, a recording display and four plug-in rows.
    ReportEngine* start(ReportData& data)
    {
        data.setCharSetExternal(2);
        data.setDisplayDlgBoxFunction(&recordingDisplay);
        data.setDisplayDlgBoxParent(kParent);
        data.recordDialogBoxCaption(L"Report caption");
        ZarnPlugIn* rows = data.createPlugIns(4);
        rows[0] = &failingPlugIn;
        rows[1] = &succeedingPlugIn;
        rows[3] = &raisingPlugIn;
        EXPECT_TRUE(data.initialize()) << data.getSelfDX_Code();
        script.calls.clear();
        script.lockEntries = 0;
        return data.engine;
    }

    ReportScript script;
};

} // namespace

TEST_F(ZarnReports, ReportDescriptionsLogsThenShowsAndRanksTheLogsFailureFirst)
{
    struct Row
    {
        const char* name;
        i64 instantiator;
        u64 criteria;
        std::map<std::string, int> failures;
        std::vector<std::string> calls;
        int code;
        bool shown;
    };
    const u64 criteria = ZARN_DEFAULT_BEHAVIOR_CRITERIA;
    const Row rows[] = {
        {"native: the log directly, then the display", 0, criteria, {}, {"direct", "display"}, 0, true},
        {"non-native: the proxy, then the display", kNonnative, criteria, {}, {"indirect", "display"}, 0, true},
        {"criteria that may not respond: the log all the same, no dialog", 0, 0, {}, {"direct", "display"}, 0,
         false},
        {"a failed log is still shown, and its code outranks the display's", 0, criteria,
         {{"direct", 226}, {"display", 4}}, {"direct", "display"}, 226, false},
        {"a failed log is still shown", 0, criteria, {{"direct", 226}}, {"direct", "display"}, 226, true},
        {"a failed proxy road is still shown", kNonnative, criteria, {{"indirect", 228}}, {"indirect", "display"},
         228, true},
        {"the display's failure alone", 0, criteria, {{"display", 5}}, {"direct", "display"}, 5, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        g_display = DisplayCalls();
        ReportData data(row.instantiator, script);
        ReportEngine* engine = start(data);
        ASSERT_NE(engine, nullptr);
        engine->recordSituationID(12);
        data.setBehaviorCriteria(row.criteria);
        engine->setDescriptions(L"display text", L"log text");
        script.failures = row.failures;
        TraceCapture trace;

        EXPECT_EQ(engine->reportDescriptions(), row.code == 0);
        EXPECT_EQ(engine->getSelfDX_Code(), row.code);
        EXPECT_EQ(script.calls, row.calls);
        EXPECT_EQ(g_display.count, row.shown ? 1 : 0);
        EXPECT_FALSE(data.section()->unlock()) << "the lock was not left";
        const std::wstring caught =
            L"ZarnDataForThread::reportDescriptions () caught exception #" + std::to_wstring(row.code) + L".";
        EXPECT_EQ(trace.contains(caught), row.code != 0);
        EXPECT_EQ(trace.contains(L"ZarnDataForThread::reportDescriptions ()"), row.code != 0);
    }
}

// The byte limit is tested after the entry, so that an entry is never split over two files.
TEST_F(ZarnReports, LogAtItsLimitIsReplacedAtOnceAfterTheEntry)
{
    struct Row
    {
        const char* name;
        u64 limit;          // 0: none
        u64 count;          // bytes counted before the report
        bool entryCounts;   // the entry is written (and counted), else it leaves the count as it is
        int directFailure;  // the log entry fails with this code
        bool directoryGone; // the successor cannot be opened
        bool replaced;
        int code;
    };
    const u64 limit = ZarnData::kDefaultLogFileByteCountLimit;
    const Row rows[] = {
        {"exactly at the limit: replaced at once", limit, limit, false, 0, false, true, 0},
        {"one byte below the limit: kept", limit, limit - 1, false, 0, false, false, 0},
        {"an entry that reaches the limit: replaced", limit, limit - 1, true, 0, false, true, 0},
        {"a limit of 0: never replaced", 0, limit, true, 0, false, false, 0},
        {"a failed entry skips the replacement", limit, limit, true, 226, false, false, 226},
        {"a failed replacement is 230", limit, limit, true, 0, true, false, 230},
    };
    static int series = 0;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const std::filesystem::path directory = std::filesystem::temp_directory_path()
            / ("zmu_reports_" + std::to_string(GetCurrentProcessId()) + "_" + std::to_string(++series));
        std::filesystem::create_directories(directory);
        std::wstring logName = (directory / "entries.html").wstring();
        // A successor is named in the log directory of the process: this one, for the row.
        const std::wstring logDirectory = ZarnData::getLogDirectory();
        ZarnData::setLogVariables((directory.wstring() + L"/").c_str(), ZarnData::getLogOutputLevel(),
                                  ZarnData::getLogBackupEnabled(), ZarnData::getLogMaxFileSize(),
                                  ZarnData::getLogMaxFileAge());
        {
            ReportData data(0, script);
            data.setCharSetExternal(2);
            data.recordLogFileNomenclature(logName.data(), nullptr, Zarn_LOG_HTML);
            ASSERT_TRUE(data.establishLogFile(true)) << data.getSelfDX_Code();
            ReportEngine* engine = data.engine;
            ASSERT_NE(engine, nullptr);
            engine->setDescriptions(L"", L"an entry");
            script.failures.clear();
            if (row.directFailure != 0)
                script.failures["direct"] = row.directFailure;
            script.skipped.clear();
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
                EXPECT_TRUE(trace.contains(L"ZarnDataForThread::reportDescriptions () caught exception #230."));
                engine->forgetSelfDX_Code();
                EXPECT_EQ(data.getSelfDX_Code(), 0) << "the replacement's own code is not left on the data set";
            }
        }
        ZarnData::setLogVariables(logDirectory.c_str(), ZarnData::getLogOutputLevel(),
                                  ZarnData::getLogBackupEnabled(), ZarnData::getLogMaxFileSize(),
                                  ZarnData::getLogMaxFileAge());
        std::error_code ignored;
        std::filesystem::remove_all(directory, ignored);
    }
    script.failures.clear();
    script.skipped.clear();
}

TEST_F(ZarnReports, LockFailuresOfTheReportsGive262And263WithTheirTraces)
{
    struct Row
    {
        const char* name;
        bool direct; // call reportDescriptionToLogFileDirectly itself, else reportDescriptions
        bool refuseLock;
        bool refuseLeave;
        int code;
        std::vector<std::string> calls;
        std::vector<std::wstring> traces;
    };
    const std::wstring reports = L"ZarnDataForThread::reportDescriptions () ";
    const std::wstring direct = L"ZarnDataForThread::reportDescriptionToLogFileDirectly () ";
    const Row rows[] = {
        {"reports: lock refused", false, true, false, 262, {}, {reports + L"caught exception #262."}},
        {"reports: lock not left, first by the direct log", false, false, true, 263, {"direct", "display"},
         {direct + L"failed to leave critical section.", reports + L"caught exception #263.",
          reports + L"failed to leave critical section."}},
        {"direct log: lock refused", true, true, false, 262, {"direct"}, {direct + L"caught exception #262."}},
        {"direct log: lock not left", true, false, true, 263, {"direct"},
         {direct + L"failed to leave critical section."}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ReportData data(0, script);
        ReportEngine* engine = start(data);
        ASSERT_NE(engine, nullptr);
        engine->setDescriptions(L"", L"log text");
        script.refuseLock = row.refuseLock;
        script.refuseLeave = row.refuseLeave;
        TraceCapture trace;

        const bool reported = row.direct ? engine->reportDescriptionToLogFileDirectly() : engine->reportDescriptions();
        EXPECT_FALSE(reported);
        EXPECT_EQ(engine->getSelfDX_Code(), row.code);
        EXPECT_EQ(script.calls, row.calls);
        for (const std::wstring& line : row.traces)
            EXPECT_TRUE(trace.contains(line)) << std::string(line.begin(), line.end());
        EXPECT_FALSE(data.section()->unlock()) << "an entered lock was not left";
        script.refuseLock = false;
        script.refuseLeave = false;
    }
}

TEST_F(ZarnReports, DirectLogNeedsTextAndANativeProcess)
{
    struct Row
    {
        const char* name;
        i64 instantiator;
        const wchar_t* logText;
        int heldByDataSet;
        int code;
        bool locks;
    };
    const Row rows[] = {
        {"native with a log text", 0, L"log text", 0, 0, true},
        {"no log text: nothing to do, no lock taken", 0, L"", 0, 0, false},
        {"a non-native process has no log of its own", kNonnative, L"log text", 0, 227, true},
        {"a code held by the data set stops it at the guard", 0, L"log text", 231, 231, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ReportData data(row.instantiator, script);
        ReportEngine* engine = start(data);
        ASSERT_NE(engine, nullptr);
        engine->setDescriptions(L"", row.logText);
        data.setSelfDX_Code(row.heldByDataSet);
        TraceCapture trace;

        EXPECT_EQ(engine->reportDescriptionToLogFileDirectly(), row.code == 0);
        EXPECT_EQ(engine->getSelfDX_Code(), row.code);
        EXPECT_EQ(script.lockEntries > 0, row.locks);
        EXPECT_EQ(trace.contains(L"ZarnDataForThread::reportDescriptionToLogFileDirectly () caught exception #"
                                 + std::to_wstring(row.code) + L"."),
                  row.code != 0);
        data.setSelfDX_Code(0);
    }
}

TEST_F(ZarnReports, ProxyRoadSendsApprovedTraitsAndTurnsRefusalsInto228WithoutALock)
{
    struct Row
    {
        const char* name;
        int heldCode;
        const wchar_t* logText;
        int situationID;
        unsigned int kind;
        u64 traits;
        u64 criteria;
        bool refuses;
        int code;
        int calls;
        unsigned int enablements;
    };
    const u64 levelFiveAtBit2 = 5ull << 29;
    const u64 levelThreeCriteria = ZARN_RESPOND_MASK | (3ull << 29);
    const Row rows[] = {
        {"kind 1 sends 11 whatever the traits", 0, L"proxy text", 5, 1, 0, ZARN_DEFAULT_BEHAVIOR_CRITERIA, false, 0, 1, 11},
        {"kind 2 sends the bits of every approving field", 0, L"proxy text", 6, 2, (2ull << 29) | (4ull << 37),
         ZARN_DEFAULT_BEHAVIOR_CRITERIA, false, 0, 1, 3},
        {"kind 2 above the criteria sends nothing and succeeds", 0, L"proxy text", 7, 2, levelFiveAtBit2,
         levelThreeCriteria, false, 0, 0, 0},
        {"criteria that may not respond send nothing", 0, L"proxy text", 8, 1, 0, 0, false, 0, 0, 0},
        {"situation 0 is refused, as 228", 0, L"proxy text", 0, 1, 0, ZARN_DEFAULT_BEHAVIOR_CRITERIA, false, 228, 0, 0},
        {"a refusing proxy is 228", 0, L"proxy text", 9, 1, 0, ZARN_DEFAULT_BEHAVIOR_CRITERIA, true, 228, 1, 11},
        {"no log text: nothing", 0, L"", 10, 1, 0, ZARN_DEFAULT_BEHAVIOR_CRITERIA, false, 0, 0, 0},
        {"a held code: nothing, and the code stays", 4711, L"proxy text", 11, 1, 0, ZARN_DEFAULT_BEHAVIOR_CRITERIA,
         false, 4711, 0, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        g_proxy = ProxyCalls();
        g_proxy.refuses = row.refuses;
        ReportData data(kNonnative, script);
        ReportEngine* engine = start(data);
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
    struct Row
    {
        const char* name;
        u64 criteria;
        const wchar_t* display;
        const wchar_t* logText;
        bool dupe;
        Function function;
        const wchar_t* shown; // null: nothing is shown
        int code;
    };
    const Row rows[] = {
        {"the display text", ZARN_DEFAULT_BEHAVIOR_CRITERIA, L"display text", L"log text", false, Recording,
         L"display text", 0},
        {"the dupe form shows the log text", ZARN_DEFAULT_BEHAVIOR_CRITERIA, L"", L"log text", true, Recording,
         L"log text", 0},
        {"criteria that may not respond show nothing", 0, L"display text", L"log text", false, Recording, nullptr, 0},
        {"no display text", ZARN_DEFAULT_BEHAVIOR_CRITERIA, L"", L"log text", false, Recording, nullptr, 0},
        {"dupe form with no log text", ZARN_DEFAULT_BEHAVIOR_CRITERIA, L"display text", L"", true, Recording,
         nullptr, 0},
        {"no display function, with text: 4", ZARN_DEFAULT_BEHAVIOR_CRITERIA, L"display text", L"", false, Null,
         nullptr, 4},
        {"no display function, nothing to show", ZARN_DEFAULT_BEHAVIOR_CRITERIA, L"", L"log text", false, Null,
         nullptr, 0},
        {"a display function that raises: 5", ZARN_DEFAULT_BEHAVIOR_CRITERIA, L"display text", L"", false, Raising,
         nullptr, 5},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        g_display = DisplayCalls();
        ReportData data(0, script);
        ReportEngine* engine = start(data);
        ASSERT_NE(engine, nullptr);
        data.setBehaviorCriteria(row.criteria);
        if (row.function != Recording)
            data.setDisplayDlgBoxFunction(row.function == Null ? nullptr : &raisingDisplay);
        engine->setDescriptions(row.display, row.logText);
        engine->m_descriptionDisplayIsDupe = row.dupe;
        engine->m_displayDlgBoxType = 36;
        engine->m_displayDlgBoxResult = 99; // an answer left from an earlier situation

        EXPECT_EQ(engine->reportDescriptionToDisplay(), row.code == 0);
        EXPECT_EQ(engine->getSelfDX_Code(), row.code);
        EXPECT_EQ(g_display.count, row.shown != nullptr ? 1 : 0);
        EXPECT_EQ(engine->getDisplayDlgBoxResult(), row.shown != nullptr ? g_display.answer : 0);
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
    struct Row
    {
        const char* name;
        std::vector<int> named;
        std::vector<std::string> turns;
    };
    const Row rows[] = {
        {"a raising plug-in, a null row and a failing plug-in stop none", {3, 2, 0, 1}, {"raises", "fails", "succeeds"}},
        {"numbers outside the table are passed over", {9, -1, 1}, {"succeeds"}},
        {"none named: nothing runs", {}, {}},
    };
    alignas(Zarn) unsigned char owner[sizeof(Zarn)] = {};
    const Zarn* const ownerMonitor = reinterpret_cast<const Zarn*>(owner); // only compared, never used
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        g_plugInTurns.clear();
        g_plugInOwner = nullptr;
        ReportData data(0, script);
        ReportEngine* engine = start(data);
        ASSERT_NE(engine, nullptr);
        data.setOwner(const_cast<Zarn*>(ownerMonitor));
        for (size_t turn = 0; turn < row.named.size(); ++turn)
            engine->m_plugInsIndirectIndices[turn] = row.named[turn];
        engine->m_plugInsIndirectQty = static_cast<int>(row.named.size());

        EXPECT_TRUE(engine->activatePlugIns());
        EXPECT_EQ(engine->getSelfDX_Code(), 0);
        EXPECT_EQ(g_plugInTurns, row.turns);
        if (!row.turns.empty()) {
            EXPECT_EQ(g_plugInOwner, ownerMonitor);
        }
    }
}

TEST_F(ZarnReports, PlugInsRefuseAnInconsistentTable)
{
    struct Row
    {
        const char* name;
        int named;       // m_plugInsIndirectQty
        int tableQty;    // the data set's quantity during the call
        bool table;      // the data set keeps its table
        bool indices;    // the engine keeps its indices
        int heldByDataSet;
        int code;
    };
    const Row rows[] = {
        {"more named than the table holds", 5, 4, true, true, 0, 213},
        {"a table of no rows", 1, 0, true, true, 0, 213},
        {"no table", 1, 4, false, true, 0, 220},
        {"no indices", 1, 4, true, false, 0, 218},
        {"a code held by the data set", 1, 4, true, true, 231, 231},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        g_plugInTurns.clear();
        ReportData data(0, script);
        ReportEngine* engine = start(data);
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

TEST(ZarnReportsWithoutDataSet, EveryReportGives265)
{
    ReportScript script;
    ReportEngine engine(script);
    engine.setDescriptions(L"display text", L"log text");
    engine.m_plugInsIndirectQty = 1;
    const std::vector<std::pair<const char*, bool (ZarnDataForThread::*)()>> stages = {
        {"reportDescriptions", &ZarnDataForThread::reportDescriptions},
        {"reportDescriptionToDisplay", &ZarnDataForThread::reportDescriptionToDisplay},
        {"reportDescriptionToLogFileDirectly", &ZarnDataForThread::reportDescriptionToLogFileDirectly},
        {"reportDescriptionToLogFileIndirectly", &ZarnDataForThread::reportDescriptionToLogFileIndirectly},
        {"activatePlugIns", &ZarnDataForThread::activatePlugIns},
    };
    for (const auto& [name, stage] : stages) {
        SCOPED_TRACE(name);
        engine.forgetSelfDX_Code();
        EXPECT_FALSE((engine.*stage)());
        EXPECT_EQ(engine.getSelfDX_Code(), 265);
    }
    engine.m_plugInsIndirectQty = 0;
}
