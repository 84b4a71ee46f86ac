#include "monitor/Zarn.h"

#include "monitor/ZarnData.h"
#include "monitor/ZarnDataForThread.h"
#include "platform/Modules.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include "support/TestLogPath.h"

#include <cwchar>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int kFailingSituation = 13;
constexpr int kStageCode = 4001; // what the recording engine's stage fails with

// What the recording engine saw in its last description stage.
struct Observations
{
    int described = 0;
    u64 firstArg = 0;
    u64 secondArg = 0;
    HMODULE module = nullptr;
};

// Replaces the description stage: records the front's hand-over, and fails situation 13 after
// leaving texts behind (a failed situation is not forgotten).
class RecordingEngine : public ZarnDataForThread
{
public:
    explicit RecordingEngine(Observations* seen) : m_seen(seen) {}

    bool describeSituation() override
    {
        ++m_seen->described;
        m_seen->module = getDataSet()->getResourceModule();
        ZarnArgCursor* cursor = getDescriptionArgV();
        m_seen->firstArg = cursor->isEmpty() ? 0 : cursor->nextSigned();
        m_seen->secondArg = cursor->isEmpty() ? 0 : cursor->nextString();
        if (getSituationID() != kFailingSituation)
            return true;
        std::wcscpy(m_descriptionForLogFile, L"log text of the failed situation");
        std::wcscpy(m_descriptionForDisplay, L"display text");
        setSelfDX_Code(kStageCode);
        return false;
    }

private:
    Observations* m_seen;
};

class RoadData : public ZarnData
{
public:
    explicit RoadData(i64 instantiatorID = 0) : ZarnData(instantiatorID) {}
    ZarnProxyRespondToSituation proxy() const { return m_proxyRespondToSituation; }
    mutable Observations seen;

protected:
    ZarnDataForThread* newDataForThread() const override { return new RecordingEngine(&seen); }
};

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
template <class Data = ZarnData>
std::unique_ptr<Data> makeDataSet(i64 instantiatorID = 0)
{
    auto dataSet = std::make_unique<Data>(instantiatorID);
    dataSet->setCharSetExternal(2);
    dataSet->setArgsIntQty(3);
    std::wstring logName = testLogPath(L"monitor");
    dataSet->recordLogFileNomenclature(logName.data(), nullptr, Zarn_LOG_HTML);
    return dataSet;
}

std::unique_ptr<ProbeZarn> makeRoadMonitor(RoadData*& dataSet, i64 instantiatorID = 0)
{
    auto owned = makeDataSet<RoadData>(instantiatorID);
    EXPECT_TRUE(owned->establishLogFile(true));
    dataSet = owned.get();
    return std::make_unique<ProbeZarn>(owned.release());
}

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
    struct Row
    {
        const char* name;
        int target;
        int start;
        bool wrap;
        bool found;
    };
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

TEST_F(ZarnRegistry, NonnativeMonitorNeedsTheProxyModule)
{
    // Without the proxy loaded, the new data set's code (2) lands in the caller's. Another test
    // of this program may hold the module loaded, which would hide the failure half.
    if (GetModuleHandleW(L"cs4s3.dll") == nullptr) {
        auto dataSet = makeDataSet(77);
        EXPECT_EQ(Zarn::create(dataSet.get()), nullptr);
        EXPECT_EQ(dataSet->getSelfDX_Code(), 2);
    }

    const std::string path = ZMU_TEST_MODULE_DIR "/libcs4s3.so";
    HMODULE proxyModule = LoadLibraryW(std::wstring(path.begin(), path.end()).c_str());
    ASSERT_NE(proxyModule, nullptr);
    auto dataSet = makeDataSet(77);
    EXPECT_NE(Zarn::create(dataSet.get()), nullptr) << dataSet->getSelfDX_Code();

    // The data set resolves the module's entry, which records its calls for the reporting tests.
    RoadData* roadData = nullptr;
    auto monitor = makeRoadMonitor(roadData, 77);
    ASSERT_EQ(reinterpret_cast<FARPROC>(roadData->proxy()), GetProcAddress(proxyModule, "ProxyRespondToSituation"));
    auto reset = reinterpret_cast<void (*)()>(GetProcAddress(proxyModule, "zmuProxyReset"));
    auto* count = reinterpret_cast<int*>(GetProcAddress(proxyModule, "zmuProxyCallCount"));
    auto* refuses = reinterpret_cast<int*>(GetProcAddress(proxyModule, "zmuProxyRefuses"));
    auto* description = reinterpret_cast<wchar_t*>(GetProcAddress(proxyModule, "zmuProxyLastDescription"));
    auto* negatedID = reinterpret_cast<int*>(GetProcAddress(proxyModule, "zmuProxyLastNegatedSituationID"));
    ASSERT_TRUE(reset && count && refuses && description && negatedID);
    reset();
    EXPECT_EQ(roadData->proxy()(11, 77, -5, L"%s", L"text"), 1);
    *refuses = 1;
    EXPECT_EQ(roadData->proxy()(11, 77, -6, L"%s", L"other"), 0);
    EXPECT_EQ(*count, 2);
    EXPECT_EQ(*negatedID, -6);
    EXPECT_STREQ(description, L"other");
    reset();
    monitor.reset();
    Zarn::destroy();
    EXPECT_TRUE(FreeLibrary(proxyModule));
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
    struct Row
    {
        const char* name;
        i64 instantiatorID;
        int dataSetCode;
        int expected;
    };
    const Row rows[] = {
        {"native and clean", 0, 0, 0},
        {"not running natively", 9, 0, 141},
        {"the data set's code stands", 0, 7, 7},
    };
    // The clean row replaces the log for real, in the process's log directory: the tests' own here.
    const std::wstring previous = ZarnData::getLogDirectory();
    const std::wstring sibling = testLogPath(L"successor");
    const auto recordLogDirectory = [](const std::wstring& directory) {
        ZarnData::setLogVariables(directory.c_str(), ZarnData::getLogOutputLevel(), ZarnData::getLogBackupEnabled(),
                                  ZarnData::getLogMaxFileSize(), ZarnData::getLogMaxFileAge());
    };
    recordLogDirectory(sibling.substr(0, sibling.rfind(L'/') + 1));
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
    recordLogDirectory(previous);
}

TEST(Zarn, BothRespondFormsHandOverArgumentsAndModuleAndDifferInTheirResult)
{
    struct Row
    {
        const char* name;
        bool vectorForm;
        int situationID;
        bool result;
        int code;
    };
    const Row rows[] = {
        {"variadic, situation passes", false, 5, true, 0},
        {"variadic, situation fails: still true", false, kFailingSituation, true, kStageCode},
        {"vector, situation passes", true, 5, true, 0},
        {"vector, situation fails", true, kFailingSituation, false, kStageCode},
    };
    RoadData* dataSet = nullptr;
    auto monitor = makeRoadMonitor(dataSet);
    const HMODULE home = dataSet->getResourceModule();
    const HMODULE visited = GetModuleHandleW(L"zmu.dll");
    ASSERT_NE(home, visited);
    const wchar_t* text = L"argument";
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        dataSet->seen = Observations();
        u64 slots[2] = {static_cast<u64>(-17), reinterpret_cast<u64>(text)};
        char* argV = reinterpret_cast<char*>(slots);
        const bool result = row.vectorForm ? monitor->respondToSituation(row.situationID, &argV, visited)
                                           : monitor->respondToSituation(row.situationID, visited, -17, text);
        EXPECT_EQ(result, row.result);
        EXPECT_EQ(monitor->getSelfDX_Code(), row.code);
        EXPECT_EQ(dataSet->seen.described, 1);
        EXPECT_EQ(dataSet->seen.firstArg, static_cast<u64>(-17));
        EXPECT_EQ(dataSet->seen.secondArg, reinterpret_cast<u64>(text));
        if (row.vectorForm) {
            EXPECT_EQ(argV, reinterpret_cast<char*>(slots + 2)) << "the caller's own cursor was walked";
        }
        EXPECT_EQ(dataSet->seen.module, visited);
        EXPECT_EQ(dataSet->getResourceModule(), home) << "restored after the situation";
        monitor->forgetSelfDX_Code();
    }
}

TEST(Zarn, DescriptionGettersEmptyTheBufferAndCutTheText)
{
    RoadData* dataSet = nullptr;
    auto monitor = makeRoadMonitor(dataSet);
    char* noArgs = nullptr;
    EXPECT_FALSE(monitor->respondToSituation(kFailingSituation, &noArgs, nullptr)); // leaves its texts

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

TEST(Zarn, HeldCodeIsStickyWithoutToleranceAndForgivenWithIt)
{
    for (Zarn_TOLERANCE tolerance : {Zarn_TOLERANCE_NONE, Zarn_TOLERANCE_FORGIVING}) {
        SCOPED_TRACE(tolerance);
        RoadData* dataSet = nullptr;
        auto monitor = makeRoadMonitor(dataSet);
        dataSet->setSelfDX_FaultTolerance(tolerance);
        char* noArgs = nullptr;
        EXPECT_FALSE(monitor->respondToSituation(kFailingSituation, &noArgs, nullptr));
        EXPECT_EQ(dataSet->seen.described, 1);

        const bool forgiving = tolerance == Zarn_TOLERANCE_FORGIVING;
        EXPECT_EQ(monitor->respondToSituation(5, &noArgs, nullptr), forgiving);
        EXPECT_EQ(dataSet->seen.described, forgiving ? 2 : 1) << "a held code stops before the stages";
        EXPECT_EQ(monitor->getSelfDX_Code(), forgiving ? 0 : kStageCode);
        monitor->forgetSelfDX_Code();
        EXPECT_TRUE(monitor->respondToSituation(5, &noArgs, nullptr));
    }
}

TEST(Zarn, CodeOnTheDataSetMakesEnginesUnobtainable)
{
    RoadData* dataSet = nullptr;
    auto monitor = makeRoadMonitor(dataSet);
    EXPECT_EQ(monitor->recordArgument(5, ZARN_ARG_NEXT), 0);
    monitor->forgetSituation();

    dataSet->setSelfDX_Code(77);
    EXPECT_EQ(monitor->recordArgument(5, ZARN_ARG_NEXT), -1);
    monitor->recordSituationID(9);
    EXPECT_EQ(monitor->getSituationID(), 0);
    EXPECT_TRUE(monitor->isSituationNormal());
    wchar_t buffer[4];
    EXPECT_FALSE(monitor->getDescriptionForLogFile(buffer, 4));
    char* noArgs = nullptr;
    EXPECT_FALSE(monitor->respondToSituation(5, &noArgs, nullptr));
    EXPECT_TRUE(monitor->respondToSituation(5, nullptr, 1, L"x"));
    EXPECT_EQ(dataSet->seen.described, 0);
    EXPECT_EQ(monitor->getSelfDX_Code(), 77);

    monitor->forgetSelfDX_Code();
    EXPECT_EQ(monitor->recordArgument(5, ZARN_ARG_NEXT), 0);
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
