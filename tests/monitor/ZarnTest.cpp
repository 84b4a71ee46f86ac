#include "monitor/Zarn.h"

#include "MonitorRig.h"
#include "support/TestLogPath.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

using namespace monitor_test;

namespace {

// A monitor built without the registry, which can also lose its data set.
class ProbeZarn : public Zarn
{
public:
    explicit ProbeZarn(ZarnData* dataSet) : Zarn(dataSet) {}
    ~ProbeZarn() override = default;
    using Zarn::free_Memory;
    using Zarn::getDataSet;
};

// A data set that Zarn::create accepts; its log file is named but not opened.
std::unique_ptr<OpenData> makeDataSet(i64 instantiatorID = 0)
{
    auto dataSet = std::make_unique<OpenData>(instantiatorID);
    dataSet->configure(2, 3);
    std::wstring logName = testLogPath(L"monitor");
    dataSet->recordLogFileNomenclature(logName.data(), nullptr, Zarn_LOG_HTML);
    return dataSet;
}

// A monitor outside the registry with scripted engines and an open log.
struct RoadMonitor
{
    RoadMonitor()
    {
        auto owned = makeDataSet();
        owned->makeEngine = [this] { return new ScriptedEngine(script); };
        EXPECT_TRUE(owned->establishLogFile(true)) << owned->getSelfDX_Code();
        dataSet = owned.get();
        monitor = std::make_unique<ProbeZarn>(owned.release());
    }

    Script script;
    OpenData* dataSet = nullptr;
    std::unique_ptr<ProbeZarn> monitor;
};

// Every test of the registry starts and ends with it empty.
class ZarnRegistry : public testing::Test
{
protected:
    void SetUp() override { Zarn::destroy(); }
    void TearDown() override
    {
        Zarn::destroy();
        EXPECT_EQ(Zarn::getZarnMonitorsCount(), 0);
    }

    Zarn* create()
    {
        auto dataSet = makeDataSet();
        return Zarn::create(dataSet.get());
    }
};

} // namespace

TEST_F(ZarnRegistry, CreateEmptiesTheCallersDataSetAndTheEleventhIsRefusedWith223)
{
    for (int index = 0; index < 10; ++index) {
        auto dataSet = makeDataSet();
        Zarn* monitor = Zarn::create(dataSet.get());
        ASSERT_NE(monitor, nullptr) << "create " << index << " failed with " << dataSet->getSelfDX_Code();
        EXPECT_EQ(Zarn::getZarnMonitor(index), monitor);
        EXPECT_TRUE(monitor->isSelfSatisfied());
        EXPECT_FALSE(dataSet->isValid()) << "the caller's data set is left an empty shell";
        EXPECT_EQ(dataSet->getFileLogName(), nullptr);
        EXPECT_EQ(dataSet->getResourceModule(), nullptr);
    }
    auto eleventh = makeDataSet();
    EXPECT_EQ(Zarn::create(eleventh.get()), nullptr);
    EXPECT_EQ(eleventh->getSelfDX_Code(), 223);
    EXPECT_EQ(Zarn::getZarnMonitorsCount(), 10);
    EXPECT_EQ(Zarn::destroy(), 10);
}

TEST_F(ZarnRegistry, RefusedDataSetsGetTheirCode)
{
    EXPECT_EQ(Zarn::create(nullptr), nullptr);
    ZarnData unset; // no character set, no log name: not valid
    EXPECT_EQ(Zarn::create(&unset), nullptr);
    EXPECT_EQ(unset.getSelfDX_Code(), 223);
    EXPECT_EQ(Zarn::getZarnMonitorsCount(), 0);
}

TEST_F(ZarnRegistry, HolesAreNotReusedAndTheNextCreateOverwritesTheEntryAtTheCount)
{
    Zarn* first = create();
    Zarn* second = create();
    Zarn* third = create();
    ASSERT_TRUE(first && second && third);

    ASSERT_TRUE(Zarn::destroy(&first, 0, false));
    EXPECT_EQ(first, nullptr);
    EXPECT_EQ(Zarn::getZarnMonitorsCount(), 2);
    EXPECT_EQ(Zarn::getZarnMonitor(0), nullptr) << "a hole below the count";
    EXPECT_EQ(Zarn::getZarnMonitor(2), nullptr) << "index 2 is not below the count any more";
    EXPECT_EQ(Zarn::getZarnMonitor(-1), nullptr);

    Zarn* fourth = create();
    EXPECT_EQ(Zarn::getZarnMonitor(2), fourth) << "stored at the count, over the live third monitor";
    EXPECT_EQ(Zarn::getZarnMonitor(1), second);
    EXPECT_EQ(Zarn::getZarnMonitor(0), nullptr);

    // The overwritten monitor is still alive; planted above the count, destroy() still finds it.
    Zarn::getZarnMonitors()[7] = third;
    EXPECT_EQ(Zarn::destroy(), 3);
    EXPECT_EQ(Zarn::getZarnMonitorsCount(), 0);
}

TEST_F(ZarnRegistry, DestroyOneSearchesFromItsStartIndex)
{
    struct Row { const char* name; int target; int start; bool wrap; bool found; };
    const Row rows[] = {
        {"plain search", 2, 0, false, true},
        {"start at the monitor", 3, 3, false, true},
        {"start past the monitor", 1, 2, false, false},
        {"wrapping reaches the entries before the start", 1, 2, true, true},
        {"wrapping from 0 is a plain search", 3, 0, true, true},
        {"negative start", 0, -1, true, false},
        {"start at the capacity", 0, 10, false, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        for (int index = 0; index < 4; ++index)
            ASSERT_NE(create(), nullptr);
        Zarn* monitor = Zarn::getZarnMonitor(row.target);
        EXPECT_EQ(Zarn::destroy(&monitor, row.start, row.wrap), row.found);
        EXPECT_EQ(monitor == nullptr, row.found);
        EXPECT_EQ(Zarn::getZarnMonitors()[row.target] == nullptr, row.found);
        EXPECT_EQ(Zarn::getZarnMonitorsCount(), row.found ? 3 : 4);
        Zarn::destroy();
    }

    Zarn* none = nullptr;
    EXPECT_FALSE(Zarn::destroy(&none, 0, false));
    EXPECT_FALSE(Zarn::destroy(nullptr, 0, false));
    // A monitor that is not registered: the wrapped search ends at the entry before its start.
    auto unregistered = std::make_unique<ProbeZarn>(makeDataSet().release());
    Zarn* stranger = unregistered.get();
    EXPECT_FALSE(Zarn::destroy(&stranger, 5, true));
    EXPECT_EQ(stranger, unregistered.get());
}

TEST_F(ZarnRegistry, SetBehaviorCriteriaChangesEveryRegisteredMonitor)
{
    Zarn* first = create();
    Zarn* second = create();
    ASSERT_TRUE(first && second);
    first->setBehaviorCriteria(0x2000000000000000ULL);
    EXPECT_EQ(first->getBehaviorCriteria(), 0x2000000000000000ULL);
    EXPECT_EQ(second->getBehaviorCriteria(), 0x2000000000000000ULL);
    second->setBehaviorCriteria(0);
    EXPECT_EQ(first->canRespondToSituations(), Zarn_FUZZY_NO);
}

// The new data set's code lands in the caller's: 2, for a non-native one without the proxy module.
TEST_F(ZarnRegistry, NonnativeMonitorNeedsTheProxyModule)
{
    if (GetModuleHandleW(L"cs4s3.dll") != nullptr)
        GTEST_SKIP() << "the proxy module is loaded already in this process";
    auto dataSet = makeDataSet(kNonnative);
    EXPECT_EQ(Zarn::create(dataSet.get()), nullptr);
    EXPECT_EQ(dataSet->getSelfDX_Code(), 2);
}

TEST(Zarn, GetPrintableStringMarksNullAndOptionallyBlank)
{
    const char* text = "text";
    EXPECT_STREQ(Zarn::getPrintableString(static_cast<const char*>(nullptr), false), "(NULL)");
    EXPECT_STREQ(Zarn::getPrintableString("", true), "(BLANK)");
    EXPECT_STREQ(Zarn::getPrintableString("", false), "");
    EXPECT_EQ(Zarn::getPrintableString(text, true), text);
    const wchar_t* wide = L"text";
    EXPECT_STREQ(Zarn::getPrintableString(static_cast<const wchar_t*>(nullptr), true), L"(NULL)");
    EXPECT_STREQ(Zarn::getPrintableString(L"", true), L"(BLANK)");
    EXPECT_STREQ(Zarn::getPrintableString(L"", false), L"");
    EXPECT_EQ(Zarn::getPrintableString(wide, false), wide);
}

TEST(Zarn, WithoutDataSetEveryOperationAnswersEmptyAndTheCodeIs265)
{
    ProbeZarn monitor(makeDataSet().release());
    ASSERT_TRUE(monitor.isSelfSatisfied());
    monitor.free_Memory();

    EXPECT_EQ(monitor.getSelfDX_Code(), 265);
    EXPECT_FALSE(monitor.isSelfSatisfied());
    monitor.forgetSelfDX_Code();
    EXPECT_EQ(monitor.getSelfDX_Code(), 265);

    EXPECT_EQ(monitor.canRespondToSituations(), Zarn_FUZZY_UNKNOWN);
    EXPECT_EQ(monitor.getBehaviorCriteria(), 0xE00001E1E0000000ULL);
    EXPECT_TRUE(monitor.isSituationNormal());
    EXPECT_EQ(monitor.recordArgument(5, ZARN_ARG_NEXT), -1);
    EXPECT_EQ(monitor.recordArgument(5u, ZARN_ARG_NEXT), -1);
    EXPECT_EQ(monitor.recordArgument("a", ZARN_ARG_NEXT), -1);
    EXPECT_EQ(monitor.recordArgument(L"a", ZARN_ARG_NEXT), -1);
    EXPECT_EQ(monitor.recordSituationID(7), 0);
    EXPECT_EQ(monitor.getSituationID(), 0);
    EXPECT_FALSE(monitor.forgetSituation());
    EXPECT_FALSE(monitor.removeThread());
    EXPECT_EQ(monitor.setResourceModule(GetModuleHandleW(nullptr)), nullptr);
    EXPECT_EQ(monitor.getDescriptionFillers(), nullptr);
    EXPECT_EQ(monitor.getTag(static_cast<Zarn_FORM_TAG>(0)), nullptr);
    unsigned long long previous = 9;
    EXPECT_FALSE(monitor.setLogFileByteCountLimit(1000, previous));
    wchar_t buffer[8] = L"old";
    EXPECT_FALSE(monitor.getFileLogName(buffer, 8));
    EXPECT_FALSE(monitor.getDescriptionForLogFile(buffer, 8));
    EXPECT_EQ(buffer[0], L'\0');
    char* noArgs = nullptr;
    EXPECT_FALSE(monitor.respondToSituation(7, nullptr, 1, L"x"));
    EXPECT_FALSE(monitor.respondToSituation(7, &noArgs, nullptr));
    EXPECT_FALSE(monitor.respondToSituation());

    TraceCapture capture;
    EXPECT_FALSE(monitor.reestablishLogFile(true));
    EXPECT_TRUE(capture.contains(L"Zarn::reestablishLogFile () caught exception #265."));
}

TEST(Zarn, ReestablishLogFileKeepsTheFirstCodeAndTracesIt)
{
    struct Row { const char* name; i64 instantiatorID; int dataSetCode; int expected; };
    const Row rows[] = {
        {"native and clean", 0, 0, 0},
        {"not running natively", 9, 0, 141},
        {"the data set's code stands", 0, 7, 7},
    };
    // The clean row replaces the log for real, in the process's log directory: the tests' own here.
    const std::wstring sibling = testLogPath(L"successor");
    ScopedLogDirectory logDirectory(sibling.substr(0, sibling.rfind(L'/') + 1));
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ProbeZarn monitor(makeDataSet(row.instantiatorID).release());
        monitor.getDataSet()->setSelfDX_Code(row.dataSetCode);
        TraceCapture capture;
        EXPECT_EQ(monitor.reestablishLogFile(false), row.expected == 0);
        EXPECT_EQ(monitor.getSelfDX_Code(), row.expected);
        const std::wstring line =
            L"Zarn::reestablishLogFile () caught exception #" + std::to_wstring(row.expected) + L".";
        EXPECT_EQ(capture.contains(line), row.expected != 0);
        monitor.forgetSelfDX_Code();
        EXPECT_EQ(monitor.getSelfDX_Code(), 0);
    }
}

TEST(Zarn, BothRespondFormsHandOverArgumentsAndModuleAndDifferInTheirResult)
{
    const struct { const char* name; bool vectorForm; int code; bool result; } rows[] = {
        {"variadic, situation passes", false, 0, true},
        {"variadic, situation fails: still true", false, 4001, true},
        {"vector, situation passes", true, 0, true},
        {"vector, situation fails", true, 4001, false},
    };
    RoadMonitor road;
    OpenData* const dataSet = road.dataSet;
    ProbeZarn* const monitor = road.monitor.get();
    const HMODULE home = dataSet->getResourceModule();
    const HMODULE visited = GetModuleHandleW(L"zmu.dll");
    ASSERT_NE(home, visited);
    const wchar_t* text = L"argument";
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        road.script.reset();
        if (row.code != 0)
            road.script.failures = {{"describeSituation", row.code}};
        u64 slots[2] = {static_cast<u64>(-17), reinterpret_cast<u64>(text)};
        char* argV = reinterpret_cast<char*>(slots);
        const bool result = row.vectorForm ? monitor->respondToSituation(5, &argV, visited)
                                           : monitor->respondToSituation(5, visited, -17, text);
        EXPECT_EQ(result, row.result);
        EXPECT_EQ(monitor->getSelfDX_Code(), row.code);
        EXPECT_EQ(std::count(road.script.calls.begin(), road.script.calls.end(), "describeSituation"), 1);
        EXPECT_EQ(road.script.firstArg, static_cast<u64>(-17));
        EXPECT_EQ(road.script.secondArg, reinterpret_cast<u64>(text));
        if (row.vectorForm) {
            EXPECT_EQ(argV, reinterpret_cast<char*>(slots + 2)) << "the caller's own cursor was walked";
        }
        EXPECT_EQ(road.script.module, visited);
        EXPECT_EQ(dataSet->getResourceModule(), home) << "restored after the situation";
        monitor->forgetSelfDX_Code();
        monitor->forgetSituation();
    }
}

TEST(Zarn, DescriptionGettersEmptyTheBufferAndCutTheText)
{
    RoadMonitor road;
    ProbeZarn* const monitor = road.monitor.get();
    road.dataSet->engine<ScriptedEngine>()->setDescriptions(L"display text", L"log text of the situation");

    wchar_t buffer[16];
    std::wmemset(buffer, L'x', 16);
    EXPECT_TRUE(monitor->getDescriptionForLogFile(buffer, 8));
    EXPECT_EQ(std::wstring(buffer), L"log tex");
    EXPECT_EQ(buffer[8], L'x') << "nothing written past size";
    EXPECT_TRUE(monitor->getDescriptionForDisplay(buffer, 16));
    EXPECT_EQ(std::wstring(buffer), L"display text");
    buffer[0] = L'x';
    EXPECT_FALSE(monitor->getDescriptionForDisplay(buffer, 0));
    EXPECT_EQ(buffer[0], L'\0');
    EXPECT_FALSE(monitor->getDescriptionForDisplay(nullptr, 16));
}

TEST(Zarn, TraceLinesStopAt1023Characters)
{
    const std::wstring longText(2000, L'y');
    TraceCapture capture;
    Zarn_TRACE(L"%s|%d", longText.c_str(), 5);
    Zarn_TRACE_W(L"short %d %s", 42, L"line");
    const std::vector<std::wstring> lines = capture.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], std::wstring(1023, L'y'));
    EXPECT_EQ(lines[1], L"short 42 line");
}

TEST(Zarn, FormatMessageFillsInsertsFromSlotsAndFailsWithZero)
{
    wchar_t format[] = L"%1!u! of %2";
    u64 inserts[] = {5, reinterpret_cast<u64>(L"six")};
    wchar_t output[16];
    EXPECT_EQ(Zarn::formatMessage(0x2400, format, output, 16, inserts), 8u);
    EXPECT_STREQ(output, L"5 of six");
    EXPECT_EQ(Zarn::formatMessage(0x2400, format, output, 4, inserts), 0u) << "does not fit";
    EXPECT_EQ(Zarn::formatMessage(0x2400, format, output, -1, inserts), 0u);
}
