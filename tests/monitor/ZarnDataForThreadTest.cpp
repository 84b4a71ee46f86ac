#include "monitor/ZarnDataForThread.h"

#include "foundation/CriticalSection.h"
#include "foundation/UTL_String.h"
#include "monitor/ZarnBehaviorCriteria.h"
#include "monitor/ZarnData.h"

#include <gtest/gtest.h>

#include "support/TestLogPath.h"

#include <atomic>
#include <cwchar>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

// Opens the engine's protected parts to the tests.
struct Probe : ZarnDataForThread
{
    using ZarnDataForThread::createArgsInt, ZarnDataForThread::createArgsStr, ZarnDataForThread::createArgsStrA,
        ZarnDataForThread::createArgsStrW;
    using ZarnDataForThread::m_argSource, ZarnDataForThread::m_argsIntCount, ZarnDataForThread::m_argsStrA,
        ZarnDataForThread::m_argsStrW, ZarnDataForThread::m_descriptionDisplayIsDupe,
        ZarnDataForThread::m_descriptionDisplayLineWd, ZarnDataForThread::m_descriptionForDisplay,
        ZarnDataForThread::m_descriptionForLogFile, ZarnDataForThread::m_descriptionLogFileLineWd,
        ZarnDataForThread::m_displayDlgBoxResult, ZarnDataForThread::m_displayDlgBoxSpecA,
        ZarnDataForThread::m_displayDlgBoxSpecB, ZarnDataForThread::m_displayDlgBoxType,
        ZarnDataForThread::m_plugInsIndirectIndices, ZarnDataForThread::m_plugInsIndirectQty,
        ZarnDataForThread::m_responseSpecHeader, ZarnDataForThread::m_scratchpad,
        ZarnDataForThread::m_situationApprovalKind, ZarnDataForThread::m_situationResponseTraits;
};

// A data set whose fixed settings a test may change.
struct TunedDataSet : ZarnData
{
    TunedDataSet(int charSet, int qty)
    {
        if (charSet >= 0)
            setCharSetExternal(charSet);
        setArgsIntQty(qty);
        setArgsStrQty(qty);
        setArgsUIntQty(qty);
    }
    using ZarnData::m_descriptionDisplayLineWd, ZarnData::m_descriptionFillersQty, ZarnData::m_descriptionLogFileLineWd;
};

// What the stages of a StageEngine do: record their names, fail with a code, or raise a non-int.
struct Script
{
    std::vector<std::string> calls;
    std::map<std::string, int> failures;
    std::string throwing;
    bool refuseLock = false;
    bool refuseLeave = false;
    int namedPlugIns = 0;
    bool lockHeldWhileReporting = false;
    CriticalSection* section = nullptr;
};

// A stage that records its call and then fails as scripted, or does what the engine does.
#define ZARN_RECORDED_STAGE(name) \
    bool name() override { return stage(#name, [&] { return Base::name(); }); }

class StageEngine : public ZarnDataForThread
{
public:
    explicit StageEngine(Script& script) : m_script(script) {}

    ZARN_RECORDED_STAGE(describeSituation)
    ZARN_RECORDED_STAGE(learnResponse)
    ZARN_RECORDED_STAGE(parseDescriptionSpecLogFile)
    ZARN_RECORDED_STAGE(parseDescriptionSpecDisplay)
    ZARN_RECORDED_STAGE(formatDescriptions)
    ZARN_RECORDED_STAGE(formatDescriptionForLogFile)
    ZARN_RECORDED_STAGE(formatDescriptionForDisplay)
    ZARN_RECORDED_STAGE(activatePlugIns)
    ZARN_RECORDED_STAGE(forgetSituation)
    bool learnResponseSpecs(u64* f) override { return stage("learnResponseSpecs", [&] { return Base::learnResponseSpecs(f); }); }
    bool parseResponseSpecs(u64* f) override { return stage("parseResponseSpecs", [&] { return Base::parseResponseSpecs(f); }); }
    bool obtainResponseSpecs() override
    {
        // Stands in for the string load: the process image has no specs to serve.
        return stage("obtainResponseSpecs", [&] {
            std::wcscpy(m_responseSpecHeader, L"2~536870912");
            std::wcscpy(m_descriptionForLogFile, L"``log text"); // a message format: width, prefix, text
            return isSelfSatisfied();
        });
    }
    bool parseResponseSpecHeader(u64* f) override
    {
        // The header parser starts by forgetting the plug-ins, so they are named behind it.
        return stage("parseResponseSpecHeader", [&] {
            const bool parsed = Base::parseResponseSpecHeader(f);
            m_plugInsIndirectQty = m_script.namedPlugIns;
            return parsed;
        });
    }
    bool reportDescriptions() override
    {
        return stage("reportDescriptions", [&] {
            // Held by this thread if one release succeeds; it is taken again at once.
            m_script.lockHeldWhileReporting = m_script.section != nullptr && m_script.section->unlock();
            if (m_script.lockHeldWhileReporting)
                m_script.section->lock();
            return Base::reportDescriptions();
        });
    }
    void forgetArgs() override { stage("forgetArgs", [&] { Base::forgetArgs(); return true; }); }
    bool enterCriticalSection() const override { return !m_script.refuseLock && Base::enterCriticalSection(); }
    bool leaveCriticalSection() const override { return Base::leaveCriticalSection() && !m_script.refuseLeave; }

private:
    using Base = ZarnDataForThread;

    bool stage(const std::string& name, const std::function<bool()>& base)
    {
        m_script.calls.push_back(name);
        if (m_script.throwing == name)
            throw std::runtime_error(name);
        const auto failure = m_script.failures.find(name);
        if (failure == m_script.failures.end())
            return base();
        if (isSelfSatisfied())
            setSelfDX_Code(failure->second);
        return false;
    }

    Script& m_script;
};
#undef ZARN_RECORDED_STAGE

// Gives every thread a StageEngine; remembers the last one made.
class StageDataSet : public ZarnData
{
public:
    explicit StageDataSet(Script& script) : m_script(script) {}
    CriticalSection* section() const { return m_criticalSection; }
    mutable StageEngine* m_engine = nullptr;

protected:
    ZarnDataForThread* newDataForThread() const override { return m_engine = new StageEngine(m_script); }

private:
    Script& m_script;
};

const std::vector<std::string> kRoad = {
    "describeSituation", "learnResponse", "learnResponseSpecs", "obtainResponseSpecs", "parseResponseSpecs",
    "parseResponseSpecHeader", "parseDescriptionSpecLogFile", "parseDescriptionSpecDisplay", "formatDescriptions",
    "formatDescriptionForLogFile", "formatDescriptionForDisplay", "reportDescriptions", "forgetSituation", "forgetArgs",
};

// The road up to and including `last`.
std::vector<std::string> roadUpTo(const std::string& last)
{
    std::vector<std::string> calls;
    for (const std::string& call : kRoad) {
        calls.push_back(call);
        if (call == last)
            break;
    }
    return calls;
}

class ZarnDataForThreadRoad : public ::testing::Test
{
protected:
    void SetUp() override
    {
        dataSet.setCharSetExternal(2);
        dataSet.setArgsUIntQty(5);
        dataSet.createPlugIns(2);
        ASSERT_TRUE(dataSet.recordLogFileNomenclature(logName.data(), nullptr, Zarn_LOG_HTML));
        ASSERT_TRUE(dataSet.establishLogFile(true)) << dataSet.getSelfDX_Code();
        engine = dataSet.m_engine;
        ASSERT_NE(engine, nullptr);
        script.section = dataSet.section();
        script.calls.clear();
    }

    Script script;
    std::wstring logName = testLogPath(L"road");
    StageDataSet dataSet{script};
    StageEngine* engine = nullptr;
};

} // namespace

TEST_F(ZarnDataForThreadRoad, RunsTheStagesInOrderAndForgetsTheSituation)
{
    struct Row
    {
        const char* name;
        u64 criteria;
        int namedPlugIns;
        std::vector<std::string> expected;
    };
    std::vector<std::string> withoutDisplay = kRoad;
    withoutDisplay.erase(withoutDisplay.begin() + 7);
    std::vector<std::string> withPlugIns = kRoad;
    withPlugIns.insert(withPlugIns.begin() + 12, "activatePlugIns");
    const Row rows[] = {
        {"default criteria, plug-ins declared but none named", ZARN_DEFAULT_BEHAVIOR_CRITERIA, 0, kRoad},
        {"criteria that may not respond skip the display spec", 0, 0, withoutDisplay},
        {"a named plug-in runs after the reports", ZARN_DEFAULT_BEHAVIOR_CRITERIA, 1, withPlugIns},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        script.calls.clear();
        script.namedPlugIns = row.namedPlugIns;
        dataSet.setBehaviorCriteria(row.criteria);
        engine->recordSituationID(42);

        EXPECT_TRUE(engine->respondToSituation());
        EXPECT_EQ(script.calls, row.expected);
        EXPECT_TRUE(script.lockHeldWhileReporting);
        EXPECT_FALSE(dataSet.section()->unlock()) << "the lock was not left";
        EXPECT_EQ(engine->getSituationID(), 0);
        EXPECT_STREQ(engine->getDescriptionForLogFile(), L"");
    }
}

// A failing stage ends the road there; its code is the engine's, and the situation stays.
TEST_F(ZarnDataForThreadRoad, FailedStageStopsTheRoadAndLeavesTheSituation)
{
    struct Row
    {
        std::map<std::string, int> failures;
        std::string throwing;
        std::string lastCall;
        int expectedCode;
        bool logTextSurvives;
    };
    const Row rows[] = {
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
    for (const Row& row : rows) {
        SCOPED_TRACE(row.lastCall + " / " + std::to_string(row.expectedCode));
        script.calls.clear();
        script.failures = row.failures;
        script.throwing = row.throwing;
        engine->recordSituationID(42);
        ASSERT_EQ(engine->recordArgument(7u, ZARN_ARG_NEXT), 0);

        EXPECT_FALSE(engine->respondToSituation());
        EXPECT_EQ(engine->getSelfDX_Code(), row.expectedCode);
        EXPECT_EQ(script.calls, roadUpTo(row.lastCall));
        EXPECT_FALSE(dataSet.section()->unlock()) << "the lock was not left";
        if (row.lastCall != "forgetArgs") {
            EXPECT_EQ(engine->getSituationID(), 42);
            EXPECT_EQ(engine->getArg_UInt(0), 7u);
            EXPECT_STREQ(engine->getDescriptionForLogFile(), row.logTextSurvives ? L"log text" : L"");
        }
        script.failures.clear();
        script.throwing.clear();
        dataSet.forgetSelfDX_Code();
        engine->forgetSituation();
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

        script.failures.clear();
        script.calls.clear();
        // Recorded arguments stay after a failure, so the next one goes behind them.
        EXPECT_EQ(engine->recordArgument(8u, ZARN_ARG_NEXT), 1);
        const bool forgiven = tolerance == Zarn_TOLERANCE_FORGIVING;
        EXPECT_EQ(engine->respondToSituation(), forgiven);
        EXPECT_EQ(engine->getSelfDX_Code(), forgiven ? 0 : 226);
        EXPECT_EQ(script.calls, forgiven ? kRoad : std::vector<std::string>{});
        dataSet.forgetSelfDX_Code();
        engine->forgetSituation();
    }
}

TEST_F(ZarnDataForThreadRoad, DataSetCodeStopsTheEngineAtItsGuard)
{
    dataSet.setSelfDX_Code(231);
    EXPECT_FALSE(engine->respondToSituation());
    EXPECT_EQ(engine->getSelfDX_Code(), 231);
    EXPECT_TRUE(script.calls.empty());
    dataSet.setSelfDX_Code(0);
}

TEST_F(ZarnDataForThreadRoad, LockRefusalsGive262And263)
{
    script.refuseLock = true;
    EXPECT_FALSE(engine->respondToSituation());
    EXPECT_EQ(engine->getSelfDX_Code(), 262);
    EXPECT_TRUE(script.calls.empty());

    script.refuseLock = false;
    script.refuseLeave = true;
    dataSet.forgetSelfDX_Code();
    EXPECT_FALSE(engine->respondToSituation());
    EXPECT_EQ(engine->getSelfDX_Code(), 263);
    // The reports leave the lock themselves, so the refusal already stops the road there.
    EXPECT_EQ(script.calls, roadUpTo("reportDescriptions"));

    // A failure of the situation outranks the failure to leave.
    dataSet.forgetSelfDX_Code();
    script.failures = {{"reportDescriptions", 226}};
    EXPECT_FALSE(engine->respondToSituation());
    EXPECT_EQ(engine->getSelfDX_Code(), 226);
    EXPECT_FALSE(dataSet.section()->unlock()) << "the refused leave still left";
}

TEST(ZarnDataForThread, GuardedOperationsWithoutDataSetGive265)
{
    const std::vector<std::pair<const char*, std::function<bool(ZarnDataForThread&)>>> rows = {
        {"respondToSituation", [](ZarnDataForThread& e) { return e.respondToSituation(); }},
        {"describeSituation", [](ZarnDataForThread& e) { return e.describeSituation(); }},
        {"learnResponse", [](ZarnDataForThread& e) { return e.learnResponse(); }},
        {"learnResponseSpecs", [](ZarnDataForThread& e) { return e.learnResponseSpecs(nullptr); }},
        {"formatDescriptions", [](ZarnDataForThread& e) { return e.formatDescriptions(); }},
        {"obtainResponseSpecs", [](ZarnDataForThread& e) { return e.obtainResponseSpecs(); }},
        {"reportDescriptions", [](ZarnDataForThread& e) { return e.reportDescriptions(); }},
        {"initialize", [](ZarnDataForThread& e) { return e.initialize(nullptr); }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.first);
        ZarnDataForThread engine;
        EXPECT_FALSE(row.second(engine));
        EXPECT_EQ(engine.getSelfDX_Code(), 265);
    }
    ZarnDataForThread engine;
    EXPECT_FALSE(engine.parseResponseSpecs(nullptr));
    EXPECT_TRUE(engine.forgetSituation()) << "forgetting needs no data set";
    EXPECT_EQ(engine.getSelfDX_Code(), 0);
    EXPECT_EQ(engine.formatLogHyperlinkWinSDK(5), nullptr);
}

TEST(ZarnDataForThread, InitializeMakesTheArraysTheDataSetAsksFor)
{
    struct Row
    {
        const char* name;
        int charSet;
        int fillersQty;
        int expectedCode;
    };
    const Row rows[] = {
        {"wide strings", 2, 10, 0},
        {"narrow strings", 0, 10, 0},
        {"strings with the character set unset", -1, 10, 7},
        {"fillers beyond 99", 2, 100, 10},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        TunedDataSet dataSet(row.charSet, 3);
        dataSet.m_descriptionFillersQty = row.fillersQty;
        dataSet.m_descriptionDisplayLineWd = 40;
        dataSet.m_descriptionLogFileLineWd = 90;
        Probe engine;
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
    TunedDataSet dataSet(2, 3);
    dataSet.createPlugIns(3);
    Probe engine;
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

    TunedDataSet unset(-1, 3);
    Probe other;
    other.initialize(&unset);
    EXPECT_EQ(other.createArgsStr(), nullptr);
    EXPECT_EQ(Probe().createArgsInt(), nullptr) << "no data set";
}

TEST(ZarnDataForThread, RecordArgumentFillsSlotsOrRefuses)
{
    TunedDataSet wideSet(2, 10);
    TunedDataSet narrowSet(0, 10);
    TunedDataSet emptySet(2, 0);
    struct Row
    {
        const char* name;
        ZarnData* dataSet;
        std::function<int(Probe&)> record;
        int expected;
        int intCount;
    };
    const Row rows[] = {
        {"next twice", &wideSet, [](Probe& e) { e.recordArgument(5, ZARN_ARG_NEXT); return e.recordArgument(5, ZARN_ARG_NEXT); }, 1, 2},
        {"a gap", &wideSet, [](Probe& e) { return e.recordArgument(5, 7); }, 7, 8},
        {"last slot", &wideSet, [](Probe& e) { return e.recordArgument(5, 9); }, 9, 10},
        {"past the end", &wideSet, [](Probe& e) { return e.recordArgument(5, 10); }, -1, 0},
        {"negative", &wideSet, [](Probe& e) { return e.recordArgument(5, -1); }, -1, 0},
        {"next on a full array", &wideSet, [](Probe& e) { e.recordArgument(5, 9); return e.recordArgument(5, ZARN_ARG_NEXT); }, -1, 10},
        {"unsigned", &wideSet, [](Probe& e) { return e.recordArgument(5u, 3); }, 3, 0},
        {"narrow text on a wide set", &wideSet, [](Probe& e) { return e.recordArgument("t", 0); }, -1, 0},
        {"wide text on a wide set", &wideSet, [](Probe& e) { return e.recordArgument(L"t", 0); }, 0, 0},
        {"wide text on a narrow set", &narrowSet, [](Probe& e) { return e.recordArgument(L"t", 0); }, -1, 0},
        {"narrow text on a narrow set", &narrowSet, [](Probe& e) { return e.recordArgument("t", 4); }, 4, 0},
        {"no slots", &emptySet, [](Probe& e) { return e.recordArgument(5, 0); }, -1, 0},
        {"no data set", nullptr, [](Probe& e) { return e.recordArgument(5, 0); }, -1, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Probe engine;
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
    TunedDataSet dataSet(2, 3);
    Probe engine;
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
    TunedDataSet dataSet(2, 3);
    dataSet.createPlugIns(2);
    Probe engine;
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
    for (wchar_t* text : {engine.m_descriptionForDisplay, engine.m_descriptionForLogFile, engine.m_responseSpecHeader,
                          engine.m_scratchpad.m_scratchA, engine.m_scratchpad.m_scratchB})
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
    for (const wchar_t* text : {engine.m_descriptionForDisplay, engine.m_descriptionForLogFile,
                                engine.m_responseSpecHeader, engine.m_scratchpad.m_scratchA,
                                engine.m_scratchpad.m_scratchB})
        EXPECT_STREQ(text, L"");
}

TEST(ZarnDataForThread, LogHyperlinkComesFromTheDataSetsString10003)
{
    ZarnData dataSet;
    dataSet.setCharSetExternal(2);
    std::wstring logName = testLogPath(L"hyperlink");
    ASSERT_TRUE(dataSet.recordLogFileNomenclature(logName.data(), nullptr, Zarn_LOG_HTML));
    ASSERT_TRUE(dataSet.establishLogFile(true)) << dataSet.getSelfDX_Code();
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
    struct OverlapDataSet : ZarnData
    {
        ZarnDataForThread* newDataForThread() const override { return new OverlapEngine(m_inside, m_overlaps); }
        mutable std::atomic<int> m_inside{0};
        mutable std::atomic<int> m_overlaps{0};
    };
    OverlapDataSet dataSet;
    dataSet.setCharSetExternal(2);
    dataSet.setArgsIntQty(2);
    std::wstring logName = testLogPath(L"overlap");
    ASSERT_TRUE(dataSet.recordLogFileNomenclature(logName.data(), nullptr, Zarn_LOG_HTML));
    ASSERT_TRUE(dataSet.establishLogFile(true));
    std::atomic<int> failures{0};
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
    EXPECT_EQ(dataSet.m_overlaps.load(), 0);
}
