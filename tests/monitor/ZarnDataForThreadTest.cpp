#include "monitor/ZarnDataForThread.h"

#include "MonitorRig.h"
#include "foundation/UTL_String.h"
#include "monitor/ZarnBehaviorCriteria.h"
#include "support/TestLogPath.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>

using namespace monitor_test;

namespace {

// Every stage of a situation that passes, as a scripted engine records them.
const std::vector<std::string> kRoad = {
    "describeSituation", "learnResponse", "learnResponseSpecs", "obtainResponseSpecs", "parseResponseSpecs",
    "parseResponseSpecHeader", "parseDescriptionSpecLogFile", "parseDescriptionSpecDisplay", "formatDescriptions",
    "formatDescriptionForLogFile", "formatDescriptionForDisplay", "reportDescriptions", "direct", "display",
    "forgetSituation", "forgetArgs",
};

std::vector<std::string> roadUpTo(const std::string& last)
{
    return std::vector<std::string>(kRoad.begin(), std::find(kRoad.begin(), kRoad.end(), last) + 1);
}

// A data set with an open log whose engines are scripted; `engine` is this thread's.
class ZarnDataForThreadRoad : public ::testing::Test
{
protected:
    void SetUp() override
    {
        dataSet.makeEngine = [this] { return new ScriptedEngine(script); };
        dataSet.setCharSetExternal(2);
        dataSet.setArgsUIntQty(5);
        dataSet.createPlugIns(2);
        ASSERT_TRUE(dataSet.recordLogFileNomenclature(logName.data(), nullptr, Zarn_LOG_HTML));
        ASSERT_TRUE(dataSet.establishLogFile(true)) << dataSet.getSelfDX_Code();
        engine = dataSet.engine<ScriptedEngine>();
        ASSERT_NE(engine, nullptr);
        script.section = dataSet.m_criticalSection;
        script.reset();
    }
    // Forgets what a row left: its script, codes and situation.
    void restart()
    {
        script.reset();
        dataSet.forgetSelfDX_Code();
        engine->forgetSituation();
        script.calls.clear();
    }

    Script script;
    std::wstring logName = testLogPath(L"road");
    OpenData dataSet;
    ScriptedEngine* engine = nullptr;
};

} // namespace

TEST_F(ZarnDataForThreadRoad, RunsTheStagesInOrderAndForgetsTheSituation)
{
    std::vector<std::string> withoutDisplay = kRoad;
    withoutDisplay.erase(std::find(withoutDisplay.begin(), withoutDisplay.end(), "parseDescriptionSpecDisplay"));
    std::vector<std::string> withPlugIns = kRoad;
    withPlugIns.insert(std::find(withPlugIns.begin(), withPlugIns.end(), "forgetSituation"), "activatePlugIns");
    const struct { const char* name; u64 criteria; int namedPlugIns; std::vector<std::string> expected; } rows[] = {
        {"default criteria, plug-ins declared but none named", ZARN_DEFAULT_BEHAVIOR_CRITERIA, 0, kRoad},
        {"criteria that may not respond skip the display spec", 0, 0, withoutDisplay},
        {"a named plug-in runs after the reports", ZARN_DEFAULT_BEHAVIOR_CRITERIA, 1, withPlugIns},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        script.calls.clear();
        script.namedPlugIns = row.namedPlugIns;
        dataSet.setBehaviorCriteria(row.criteria);
        engine->recordSituationID(42);

        EXPECT_TRUE(engine->respondToSituation());
        EXPECT_EQ(script.calls, row.expected);
        EXPECT_TRUE(script.lockHeldWhileReporting);
        EXPECT_FALSE(dataSet.m_criticalSection->unlock()) << "the lock was not left";
        EXPECT_EQ(engine->getSituationID(), 0);
        EXPECT_STREQ(engine->getDescriptionForLogFile(), L"");
    }
}

// A failing stage ends the road there; its code is the engine's, and the situation stays.
TEST_F(ZarnDataForThreadRoad, FailedStageStopsTheRoadAndLeavesTheSituation)
{
    const struct { std::map<std::string, int> failures; std::string throwing; std::string lastCall; int expectedCode;
                   bool logTextSurvives; } rows[] = {
        {{{"obtainResponseSpecs", 255}}, "", "obtainResponseSpecs", 255, false},
        {{{"parseResponseSpecHeader", 252}}, "", "parseResponseSpecHeader", 252, false},
        {{{"parseDescriptionSpecDisplay", 24}}, "", "parseDescriptionSpecDisplay", 24, false},
        {{{"formatDescriptionForLogFile", 53}}, "", "formatDescriptionForDisplay", 53, true},
        {{{"formatDescriptionForLogFile", 53}, {"formatDescriptionForDisplay", 50}}, "", "formatDescriptionForDisplay", 53, true},
        {{{"formatDescriptionForDisplay", 50}}, "", "formatDescriptionForDisplay", 50, true},
        {{{"reportDescriptions", 226}}, "", "reportDescriptions", 226, true},
        {{}, "describeSituation", "describeSituation", 65, false},
        {{}, "learnResponse", "learnResponse", 3, false},
        {{}, "learnResponseSpecs", "learnResponseSpecs", 113, false},
        {{}, "obtainResponseSpecs", "obtainResponseSpecs", 253, false},
        {{}, "parseResponseSpecHeader", "parseResponseSpecHeader", 253, false},
        {{}, "formatDescriptionForLogFile", "formatDescriptionForLogFile", 54, true},
        {{}, "forgetArgs", "forgetArgs", 46, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.lastCall + " / " + std::to_string(row.expectedCode));
        script.failures = row.failures;
        script.throwing = row.throwing;
        engine->recordSituationID(42);
        ASSERT_EQ(engine->recordArgument(7u, ZARN_ARG_NEXT), 0);

        EXPECT_FALSE(engine->respondToSituation());
        EXPECT_EQ(engine->getSelfDX_Code(), row.expectedCode);
        EXPECT_EQ(script.calls, roadUpTo(row.lastCall));
        EXPECT_FALSE(dataSet.m_criticalSection->unlock()) << "the lock was not left";
        if (row.lastCall != "forgetArgs") {
            EXPECT_EQ(engine->getSituationID(), 42);
            EXPECT_EQ(engine->getArg_UInt(0), 7u);
            EXPECT_STREQ(engine->getDescriptionForLogFile(), row.logTextSurvives ? L"log text" : L"");
        }
        restart();
    }
}

TEST_F(ZarnDataForThreadRoad, HeldCodeIsStickyWithoutToleranceAndForgivenWithIt)
{
    for (const Zarn_TOLERANCE tolerance : {Zarn_TOLERANCE_NONE, Zarn_TOLERANCE_FORGIVING}) {
        SCOPED_TRACE(tolerance);
        dataSet.setSelfDX_FaultTolerance(tolerance);
        script.failures = {{"reportDescriptions", 226}};
        ASSERT_EQ(engine->recordArgument(7u, ZARN_ARG_NEXT), 0);
        ASSERT_FALSE(engine->respondToSituation());

        script.reset();
        // Recorded arguments stay after a failure, so the next one goes behind them.
        EXPECT_EQ(engine->recordArgument(8u, ZARN_ARG_NEXT), 1);
        const bool forgiven = tolerance == Zarn_TOLERANCE_FORGIVING;
        EXPECT_EQ(engine->respondToSituation(), forgiven);
        EXPECT_EQ(engine->getSelfDX_Code(), forgiven ? 0 : 226);
        EXPECT_EQ(script.calls, forgiven ? kRoad : std::vector<std::string>{});
        restart();
    }
}

TEST_F(ZarnDataForThreadRoad, LockRefusalsGive262And263)
{
    dataSet.refuseLock = true;
    EXPECT_FALSE(engine->respondToSituation());
    EXPECT_EQ(engine->getSelfDX_Code(), 262);
    EXPECT_TRUE(script.calls.empty());

    dataSet.refuseLock = false;
    dataSet.refuseLeave = true;
    dataSet.forgetSelfDX_Code();
    EXPECT_FALSE(engine->respondToSituation());
    EXPECT_EQ(engine->getSelfDX_Code(), 263);
    // The reports leave the lock themselves, so the refusal already stops the road there.
    EXPECT_EQ(script.calls, roadUpTo("display"));

    // A failure of the situation outranks the failure to leave.
    dataSet.forgetSelfDX_Code();
    script.failures = {{"reportDescriptions", 226}};
    EXPECT_FALSE(engine->respondToSituation());
    EXPECT_EQ(engine->getSelfDX_Code(), 226);
    EXPECT_FALSE(dataSet.m_criticalSection->unlock()) << "the refused leave still left";
    dataSet.refuseLeave = false;
}

// Every stage that passes the guards, and initialize, refuse an engine without a data set.
TEST(ZarnDataForThread, GuardedStagesWithoutDataSetGive265)
{
    using Stage = std::function<bool(OpenEngine&)>;
    const std::vector<std::pair<const char*, Stage>> rows = {
        {"respondToSituation", [](OpenEngine& e) { return e.respondToSituation(); }},
        {"describeSituation", [](OpenEngine& e) { return e.describeSituation(); }},
        {"learnResponse", [](OpenEngine& e) { return e.learnResponse(); }},
        {"learnResponseSpecs", [](OpenEngine& e) { return e.learnResponseSpecs(nullptr); }},
        {"obtainResponseSpecs", [](OpenEngine& e) { return e.obtainResponseSpecs(); }},
        {"formatDescriptions", [](OpenEngine& e) { return e.formatDescriptions(); }},
        {"formatDescriptionForDisplay", [](OpenEngine& e) { return e.formatDescriptionForDisplay(); }},
        {"formatDescriptionForLogFile", [](OpenEngine& e) { return e.formatDescriptionForLogFile(); }},
        {"parseDescriptionSpecLogFile", [](OpenEngine& e) { return e.parseDescriptionSpecLogFile(); }},
        {"parseDescriptionSpecDisplay", [](OpenEngine& e) { return e.parseDescriptionSpecDisplay(); }},
        {"parseDescriptionSpecDisplayDlgBox", [](OpenEngine& e) { wchar_t t[] = L"16";
             return e.parseDescriptionSpecDisplayDlgBox(t); }},
        {"parseDescriptionSpec_MessageAffix", [](OpenEngine& e) { wchar_t t[] = L"0";
             return e.parseDescriptionSpec_MessageAffix(t, e.m_descriptionForLogFile, 1024); }},
        {"reportDescriptions", [](OpenEngine& e) { return e.reportDescriptions(); }},
        {"reportDescriptionToDisplay", [](OpenEngine& e) { return e.reportDescriptionToDisplay(); }},
        {"reportDescriptionToLogFileDirectly", [](OpenEngine& e) { return e.reportDescriptionToLogFileDirectly(); }},
        {"reportDescriptionToLogFileIndirectly",
         [](OpenEngine& e) { return e.reportDescriptionToLogFileIndirectly(); }},
        {"activatePlugIns", [](OpenEngine& e) { return e.activatePlugIns(); }},
        {"initialize", [](OpenEngine& e) { return e.initialize(nullptr); }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.first);
        OpenEngine engine;
        engine.setDescriptions(L"~``text", L"``text"); // the reports and parsers have work to do
        engine.m_plugInsIndirectQty = 1;
        EXPECT_FALSE(row.second(engine));
        EXPECT_EQ(engine.getSelfDX_Code(), 265);
    }

    // The message format parser resets its target to the library's defaults on the way out.
    OpenEngine engine;
    wchar_t spec[] = L"``x";
    engine.setDescriptions(L"stale", L"");
    engine.m_descriptionDisplayLineWd = 5;
    EXPECT_FALSE(engine.parseDescriptionSpec_MessageFormat(spec, Zarn_MSG_FMT_DISPLAY, engine.m_scratchpad.m_scratchA,
                                                           engine.m_scratchpad.m_scratchA_Bytes));
    EXPECT_EQ(engine.getSelfDX_Code(), 265);
    EXPECT_STREQ(engine.m_descriptionForDisplay, L"");
    EXPECT_EQ(engine.m_descriptionDisplayLineWd, 67);

    OpenEngine unguarded;
    EXPECT_FALSE(unguarded.parseResponseSpecs(nullptr));
    EXPECT_TRUE(unguarded.forgetSituation()) << "forgetting needs no data set";
    EXPECT_EQ(unguarded.getSelfDX_Code(), 0);
    EXPECT_EQ(unguarded.formatLogHyperlinkWinSDK(5), nullptr);
}

TEST(ZarnDataForThread, InitializeMakesTheArraysTheDataSetAsksFor)
{
    const struct { const char* name; int charSet; int fillersQty; int expectedCode; } rows[] = {
        {"wide strings", 2, 10, 0},
        {"narrow strings", 0, 10, 0},
        {"strings with the character set unset", -1, 10, 7},
        {"fillers beyond 99", 2, 100, 10},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        OpenData dataSet;
        dataSet.configure(row.charSet, 3);
        dataSet.m_descriptionFillersQty = row.fillersQty;
        dataSet.m_descriptionDisplayLineWd = 40;
        dataSet.m_descriptionLogFileLineWd = 90;
        OpenEngine engine;
        EXPECT_EQ(engine.initialize(&dataSet), row.expectedCode == 0);
        EXPECT_EQ(engine.getSelfDX_Code(), row.expectedCode);
        EXPECT_EQ(engine.m_descriptionDisplayLineWd, 40);
        EXPECT_EQ(engine.m_descriptionLogFileLineWd, 90);
        if (row.expectedCode != 0)
            continue;
        EXPECT_EQ(engine.m_argsStrW != nullptr, row.charSet == 2);
        EXPECT_EQ(engine.m_argsStrA != nullptr, row.charSet != 2);
        ASSERT_NE(engine.getDescriptionFillers(), nullptr);
        EXPECT_EQ(engine.getDescriptionFillers()[row.fillersQty - 1], 0u);
    }
}

TEST(ZarnDataForThread, CreatorsKeepOneStringArrayAndClearWhatExists)
{
    OpenData dataSet;
    dataSet.configure(2, 3).createPlugIns(3);
    OpenEngine engine;
    ASSERT_TRUE(engine.initialize(&dataSet));
    for (int slot = 0; slot < 3; ++slot)
        EXPECT_EQ(engine.m_plugInsIndirectIndices[slot], -1) << "a free plug-in slot is -1, not 0";

    EXPECT_EQ(engine.createArgsStrA(), nullptr) << "narrow array for a wide set";
    const wchar_t** wide = engine.createArgsStrW();
    ASSERT_EQ(engine.recordArgument(L"kept", 2), 2);
    EXPECT_EQ(engine.createArgsStrW(), wide) << "an existing array is kept";
    EXPECT_EQ(wide[2], nullptr) << "and cleared";

    dataSet.setCharSetExternal(0);
    EXPECT_EQ(engine.createArgsStr(), nullptr) << "the wide array exists";
    dataSet.setCharSetExternal(2);
    dataSet.setArgsStrQty(0);
    EXPECT_EQ(engine.createArgsStrW(), nullptr);
    EXPECT_EQ(engine.m_argsStrW, nullptr) << "a quantity of 0 frees the array";
    dataSet.setCharSetExternal(0);
    dataSet.setArgsStrQty(3);
    EXPECT_NE(engine.createArgsStr(), nullptr) << "with the wide array gone, the narrow one can be made";
    EXPECT_NE(engine.m_argsStrA, nullptr);

    OpenData unset;
    unset.configure(-1, 3);
    OpenEngine other;
    other.initialize(&unset);
    EXPECT_EQ(other.createArgsStr(), nullptr);
    EXPECT_EQ(OpenEngine().createArgsInt(), nullptr) << "no data set";
}

TEST(ZarnDataForThread, RecordArgumentFillsSlotsOrRefuses)
{
    OpenData wideSet, narrowSet, emptySet;
    wideSet.configure(2, 10);
    narrowSet.configure(0, 10);
    emptySet.configure(2, 0);
    const struct { const char* name; ZarnData* dataSet; std::function<int(OpenEngine&)> record; int expected;
                   int intCount; } rows[] = {
        {"next twice", &wideSet, [](OpenEngine& e) { e.recordArgument(5, ZARN_ARG_NEXT); return e.recordArgument(5, ZARN_ARG_NEXT); }, 1, 2},
        {"last slot", &wideSet, [](OpenEngine& e) { return e.recordArgument(5, 9); }, 9, 10},
        {"past the end", &wideSet, [](OpenEngine& e) { return e.recordArgument(5, 10); }, -1, 0},
        {"negative", &wideSet, [](OpenEngine& e) { return e.recordArgument(5, -1); }, -1, 0},
        {"next on a full array", &wideSet, [](OpenEngine& e) { e.recordArgument(5, 9); return e.recordArgument(5, ZARN_ARG_NEXT); }, -1, 10},
        {"unsigned", &wideSet, [](OpenEngine& e) { return e.recordArgument(5u, 3); }, 3, 0},
        {"narrow text on a wide set", &wideSet, [](OpenEngine& e) { return e.recordArgument("t", 0); }, -1, 0},
        {"wide text on a wide set", &wideSet, [](OpenEngine& e) { return e.recordArgument(L"t", 0); }, 0, 0},
        {"wide text on a narrow set", &narrowSet, [](OpenEngine& e) { return e.recordArgument(L"t", 0); }, -1, 0},
        {"narrow text on a narrow set", &narrowSet, [](OpenEngine& e) { return e.recordArgument("t", 4); }, 4, 0},
        {"no slots", &emptySet, [](OpenEngine& e) { return e.recordArgument(5, 0); }, -1, 0},
        {"no data set", nullptr, [](OpenEngine& e) { return e.recordArgument(5, 0); }, -1, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        OpenEngine engine;
        if (row.dataSet != nullptr) {
            ASSERT_TRUE(engine.initialize(row.dataSet));
        }
        EXPECT_EQ(row.record(engine), row.expected);
        EXPECT_EQ(engine.m_argsIntCount, row.intCount);
        EXPECT_EQ(engine.getSelfDX_Code(), 0) << "a refusal leaves no code";
    }
}

TEST(ZarnDataForThread, FilledUnsignedArrayCannotBeRead)
{
    OpenData dataSet;
    dataSet.configure(2, 3);
    OpenEngine engine;
    ASSERT_TRUE(engine.initialize(&dataSet));
    EXPECT_EQ(engine.getArg_UInt(0), 0u) << "nothing recorded";
    engine.recordArgument(11u, ZARN_ARG_NEXT);
    engine.recordArgument(12u, ZARN_ARG_NEXT);
    EXPECT_EQ(engine.getArg_UInt(1), 12u);
    EXPECT_EQ(engine.getArg_UInt(2), 0u) << "beyond the count";
    EXPECT_EQ(engine.getArg_UInt(-1), 0u);
    engine.recordArgument(13u, ZARN_ARG_NEXT);
    EXPECT_EQ(engine.getArg_UInt(0), 0u) << "deliberately unreadable once every slot is used";
}

TEST(ZarnDataForThread, ForgetSituationResetsTheSituationButKeepsCodeAndAnswer)
{
    OpenData dataSet;
    dataSet.configure(2, 3).createPlugIns(2);
    OpenEngine engine;
    ASSERT_TRUE(engine.initialize(&dataSet));
    u64 slot = 0;
    char* cursor = reinterpret_cast<char*>(&slot);
    engine.setDescriptionArgV(&cursor);
    engine.recordArgument(1, 0);
    engine.recordArgument(2u, 0);
    engine.recordArgument(L"s", 0);
    engine.recordSituationID(9);
    engine.recordSituationID_Remote(4);
    engine.getDescriptionFillers()[0] = 5;
    engine.m_plugInsIndirectIndices[0] = 1;
    engine.m_plugInsIndirectQty = 1;
    engine.m_argSource = 2;
    engine.m_descriptionDisplayIsDupe = true;
    engine.m_displayDlgBoxSpecA = engine.m_displayDlgBoxSpecB = 3;
    engine.m_displayDlgBoxType = 16;
    engine.m_situationApprovalKind = 1;
    engine.m_situationResponseTraits = ~u64(0);
    engine.m_descriptionDisplayLineWd = engine.m_descriptionLogFileLineWd = 30;
    wchar_t* const texts[] = {engine.m_descriptionForDisplay, engine.m_descriptionForLogFile,
                              engine.m_responseSpecHeader, engine.m_scratchpad.m_scratchA,
                              engine.m_scratchpad.m_scratchB};
    for (wchar_t* text : texts)
        std::wcscpy(text, L"text");
    engine.m_displayDlgBoxResult = 6;
    engine.setSelfDX_Code(40);

    EXPECT_FALSE(engine.forgetSituation()) << "the held code answers";
    EXPECT_EQ(engine.getSelfDX_Code(), 40);
    EXPECT_EQ(engine.getDisplayDlgBoxResult(), 6);
    EXPECT_TRUE(engine.isSituationNormal());
    EXPECT_EQ(engine.getSituationID_Remote(), 0);
    EXPECT_EQ(engine.m_argsIntCount, 0);
    EXPECT_EQ(engine.m_argsStrW[0], nullptr);
    EXPECT_EQ(engine.getDescriptionFillers()[0], 0u);
    EXPECT_EQ(engine.m_plugInsIndirectIndices[0], -1);
    EXPECT_EQ(engine.m_plugInsIndirectQty, 0);
    EXPECT_TRUE(engine.getDescriptionArgV()->isEmpty());
    EXPECT_EQ(engine.m_argSource, 0);
    EXPECT_FALSE(engine.m_descriptionDisplayIsDupe);
    EXPECT_EQ(engine.m_displayDlgBoxSpecA + engine.m_displayDlgBoxSpecB, 0);
    EXPECT_EQ(engine.m_displayDlgBoxType, ZarnDataForThread::kDefaultDisplayDlgBoxType);
    EXPECT_EQ(engine.m_situationApprovalKind, 2u);
    EXPECT_EQ(engine.m_situationResponseTraits, ZARN_DEFAULT_RESPONSE_TRAITS);
    EXPECT_EQ(engine.m_descriptionDisplayLineWd, dataSet.getDescriptionDisplayLineWd());
    EXPECT_EQ(engine.m_descriptionLogFileLineWd, dataSet.getDescriptionLogFileLineWd());
    for (const wchar_t* text : texts)
        EXPECT_STREQ(text, L"");
}

TEST(ZarnDataForThread, LogHyperlinkComesFromTheDataSetsString10003)
{
    ZarnData dataSet;
    ASSERT_TRUE(dataSet.initialize()); // learns its own module, whose table has the link templates
    ZarnDataForThread engine;
    ASSERT_TRUE(engine.initialize(&dataSet));
    UTL_String expected;
    ASSERT_NE(dataSet.formatLogHyperlink(5, 10003, expected), nullptr) << dataSet.getSelfDX_Code();
    const wchar_t* link = engine.formatLogHyperlinkWinSDK(5);
    ASSERT_NE(link, nullptr);
    EXPECT_STREQ(link, expected.wideText());
    EXPECT_NE(std::wcsstr(link, L"WLE5"), nullptr);
}

// Each thread has its own engine; the data set's lock keeps their situations apart.
TEST(ZarnDataForThreadConcurrency, SituationsOfTwoThreadsDoNotOverlap)
{
    struct OverlapEngine : ZarnDataForThread
    {
        explicit OverlapEngine(std::atomic<int>& inside, std::atomic<int>& overlaps)
            : m_inside(inside), m_overlaps(overlaps)
        {
        }
        // Stands in for the string load: the process image has no specs to serve.
        bool obtainResponseSpecs() override
        {
            std::wcscpy(m_responseSpecHeader, L"2~536870912");
            std::wcscpy(m_descriptionForLogFile, L"``Overlap");
            return isSelfSatisfied();
        }
        bool reportDescriptions() override
        {
            if (m_inside.fetch_add(1) != 0)
                ++m_overlaps;
            for (int turn = 0; turn < 50; ++turn)
                std::this_thread::yield();
            m_inside.fetch_sub(1);
            return ZarnDataForThread::reportDescriptions();
        }
        std::atomic<int>& m_inside;
        std::atomic<int>& m_overlaps;
    };
    std::atomic<int> inside{0}, overlaps{0}, failures{0};
    OpenData dataSet;
    dataSet.makeEngine = [&] { return new OverlapEngine(inside, overlaps); };
    dataSet.configure(2, 2);
    std::wstring logName = testLogPath(L"overlap");
    ASSERT_TRUE(dataSet.recordLogFileNomenclature(logName.data(), nullptr, Zarn_LOG_HTML));
    ASSERT_TRUE(dataSet.establishLogFile(true));
    auto reporter = [&](int value) {
        for (int round = 0; round < 100; ++round) {
            dataSet.recordSituationID(value);
            dataSet.recordArgument(value, ZARN_ARG_NEXT);
            if (!dataSet.respondToSituation() || dataSet.getSituationID() != 0)
                ++failures;
        }
    };
    std::thread first(reporter, 1);
    std::thread second(reporter, 2);
    first.join();
    second.join();
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(overlaps.load(), 0);
}
