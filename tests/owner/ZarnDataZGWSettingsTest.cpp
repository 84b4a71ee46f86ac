// The settings of an owner: levels, enablements and criteria, the log file's byte limit, and the
// assertiveness level in the settings store.
#include "owner/ZarnDataZGW.h"

#include "OwnerRig.h"
#include "monitor/Zarn.h"
#include "monitor/ZarnData.h"
#include "platform/Registry.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QString>

#include <string>

namespace {

using Z = ZarnDataZGW;

// A standalone owner whose level a test reads on demand.
struct LevelProbe : ZarnDataZGW
{
    LevelProbe() : ZarnDataZGW(0, true, nullptr, nullptr, Zarn_LOG_HTML) {}
    using ZarnDataZGW::obtainAssertivenessLevel;
};

} // namespace

TEST(ZarnDataZGWSettings, LevelsEnablementsAndCriteriaMapOneSidedly)
{
    // Level to enablements; an invalid level gives 11 and is reset to 1.
    const unsigned int levels[] = {0, 3, 35, 39, 47, 63, 63, 11};
    for (unsigned long row = 0; row < 8; ++row) {
        unsigned long level = row;
        unsigned int enablements = 99;
        EXPECT_EQ(Z::mapLogOutputLevelToEnablementsZMP(level, enablements), row < 7) << row;
        EXPECT_EQ(enablements, levels[row]) << row;
        EXPECT_EQ(level, row < 7 ? row : 1) << row;
    }
    // Enablements to level: the first mask contained in full wins, so 63 never gives 5 and 43
    // gives 2; a word with none of them gives false, 11 and 1.
    struct Word { unsigned int enablements; unsigned long level; };
    const Word words[] = {{0, 0}, {63, 6}, {47, 4}, {39, 3}, {43, 2}, {3, 1}, {12, 0}};
    for (const Word& row : words) {
        unsigned int enablements = row.enablements;
        unsigned long level = 99;
        const bool valid = row.enablements == 0 || row.level != 0;
        EXPECT_EQ(Z::mapEnablementsZMP_ToLogOutputLevel(enablements, level), valid) << row.enablements;
        EXPECT_EQ(level, valid ? row.level : 1) << row.enablements;
        EXPECT_EQ(enablements, valid ? row.enablements : 11) << row.enablements;
    }
    // Criteria to enablements and back, by groups of four bits.
    struct Criteria { unsigned long long criteria; unsigned int enablements; bool roundTrip; };
    const Criteria groups[] = {
        {0, 0, true},
        {0xE00001E1E0000000, 3, true},   // the starting level 1
        {0xE002202222000000, 63, false}, // one bit of each group counts for it
        {0x1E0000000000, 0, false},      // the group of no enablement
        {0xE000000000000000, 0, false},  // the respond mask is ignored on the way back
    };
    for (const Criteria& row : groups) {
        unsigned int enablements = 99;
        Z::mapBehaviorCriteriaZMI_ToEnablementsZMP(row.criteria, enablements);
        EXPECT_EQ(enablements, row.enablements) << std::hex << row.criteria;
        unsigned long long criteria = 99;
        Z::mapEnablementsZMP_ToBehaviorCriteriaZMI(enablements, criteria);
        EXPECT_EQ(criteria == row.criteria, row.roundTrip) << std::hex << row.criteria;
    }
    ownerRig::prepare();
    ZarnData::setLogVariables(ownerRig::logDirectory().toStdWString().c_str(), 9, false, 20, 3);
    unsigned long long invalid = 0;
    Z::mapEnablementsZMP_ToBehaviorCriteriaZMI(11, invalid);
    EXPECT_EQ(Z::updateBehaviorCriteria(nullptr), invalid) << "an invalid level gives the word of 11";
    EXPECT_EQ(Z::obtainLogFileMaintenanceOperation(), 1ul);
}

// A missing or out-of-range number repairs itself; a value of another shape stays and fails.
TEST(ZarnDataZGWSettings, AssertivenessLevelRepairsItsValue)
{
    enum Store { Writable, NoKey, ReadOnly };
    // type: of the value written before (REG_NONE: the key alone); typeAfter REG_NONE: no value
    struct Row { const char* name; DWORD type; DWORD stored; Store store; int level; int status; DWORD typeAfter; };
    const Row rows[] = {
        {"missing value is written as 0", REG_NONE, 0, Writable, 0, 0, REG_DWORD},
        {"a level in range", REG_DWORD, 10, Writable, 10, 0, REG_DWORD},
        {"11 is rewritten to 0", REG_DWORD, 11, Writable, 0, 0, REG_DWORD},
        {"a string stays, with 33", REG_SZ, 0, Writable, 0, 33, REG_SZ},
        {"no key: 32", REG_NONE, 0, NoKey, 0, 32, REG_NONE},
        {"a read-only store: 32", REG_NONE, 0, ReadOnly, 0, 32, REG_NONE},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ownerRig::prepare();
        LevelProbe probe; // built on an empty store, where its own reading changes nothing
        if (row.store != NoKey)
            ownerRig::storeAssertiveness(row.type, row.type == REG_NONE ? nullptr : &row.stored, sizeof(DWORD));
        if (row.store == ReadOnly)
            QFile(qEnvironmentVariable("ZMU_REGISTRY_ROOT") + QStringLiteral("/readonly")).open(QIODevice::WriteOnly);
        TraceCapture capture;
        Zarn_DX_MODE level = 99;
        EXPECT_EQ(probe.obtainAssertivenessLevel(level), row.status == 0);
        EXPECT_EQ(level, row.level);
        EXPECT_EQ(capture.contains(L"obtainAssertivenessLevel () failed (ZGW" + std::to_wstring(row.status) + L"/"),
                  row.status != 0);
        DWORD type = REG_NONE, value = 99;
        ownerRig::readAssertiveness(type, value);
        EXPECT_EQ(type, row.typeAfter);
        EXPECT_EQ(value, row.typeAfter == REG_DWORD ? static_cast<DWORD>(row.level) : row.stored);
    }
}

// A standalone owner's data set takes its situation mode from the store, and the size setting as
// bytes: the starting 20 is refused, and the data set keeps its own limit.
TEST(ZarnDataZGWSettings, DataSetTakesTheStoredModeAndAnUnscaledByteLimit)
{
    ownerRig::prepare();
    const DWORD stored = 7;
    ownerRig::storeAssertiveness(REG_DWORD, &stored, sizeof(stored));
    EXPECT_EQ(Z::obtainLogFileByteCountLimit(), 20u);
    ZarnDataZGW owner(ZGW_OWNER_LOGON, true, nullptr, nullptr, Zarn_LOG_HTML);
    Zarn* monitor = owner.createZarnMonitor();
    ASSERT_NE(monitor, nullptr) << Z::getDX_Code1();
    EXPECT_EQ(monitor->getSituationMode(), 7);
    EXPECT_EQ(ownerRig::dataOf(monitor)->getLogFileByteCountLimit(), ZarnData::kDefaultLogFileByteCountLimit);
    EXPECT_TRUE(Z::destroyZarnMonitor(monitor));
}
