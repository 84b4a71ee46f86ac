// The product's settings as a data set's behaviour: the log variables, the two-step translation
// between log output level, enablement word and behaviour criteria, and the assertiveness level
// from the settings store.
#include "owner/ZarnDataZGW.h"

#include "monitor/Zarn.h"
#include "monitor/ZarnData.h"
#include "platform/LastError.h"
#include "platform/Registry.h"

namespace {

// Each enablement bit stands for one group of four neighbouring criteria bits, in this order.
struct EnablementGroup
{
    unsigned int enablement;
    unsigned long long criteria;
};
constexpr EnablementGroup kEnablementGroups[] = {
    {0x08, 0x1E000000ull},      {0x02, 0x1E0000000ull},      {0x20, 0x1E00000000ull},
    {0x01, 0x1E000000000ull},   {0x10, 0x1E00000000000ull},  {0x04, 0x1E000000000000ull},
};
// Set whenever any enablement is, and ignored on the way back.
constexpr unsigned long long kRespondMask = 0xE000000000000000ull;

// Enablement words of the log output levels 0 to 6.
constexpr unsigned int kLevelEnablements[] = {0, 3, 35, 39, 47, 63, 63};
constexpr unsigned long kLevel_Max = 6;

// The masks that give a level back, tested in this order: 63 always gives 6, never 5.
struct LevelMask
{
    unsigned int mask;
    unsigned long level;
};
constexpr LevelMask kLevelMasks[] = {{63, 6}, {47, 4}, {39, 3}, {35, 2}, {3, 1}};

// Deliberately not the word of level 1, which is what the level is reset to.
constexpr unsigned int kInvalidEnablements = 11;
constexpr unsigned long kInvalidLevelResetTo = 1;

constexpr wchar_t kAssertivenessKey[] = L"SOFTWARE\\Quorvane\\Farrowlink\\AppServer";
constexpr wchar_t kAssertivenessValue[] = L"ZM_Assertiveness";
constexpr REGSAM kAllAccess = 0xF003F;
constexpr DWORD kAssertiveness_Limit = 11; // levels 0 to 10

} // namespace

// ---------------------------------------------------------------------------------------------
// Levels, enablements and criteria

void ZarnDataZGW::mapBehaviorCriteriaZMI_ToEnablementsZMP(unsigned long long criteria, unsigned int& enablements)
{
    enablements = 0;
    if (criteria == 0)
        return;
    for (const EnablementGroup& group : kEnablementGroups) {
        if ((criteria & group.criteria) != 0)
            enablements |= group.enablement;
    }
}

void ZarnDataZGW::mapEnablementsZMP_ToBehaviorCriteriaZMI(unsigned int enablements, unsigned long long& criteria)
{
    criteria = 0;
    if (enablements == 0)
        return;
    criteria = kRespondMask;
    for (const EnablementGroup& group : kEnablementGroups) {
        if ((enablements & group.enablement) != 0)
            criteria |= group.criteria;
    }
}

bool ZarnDataZGW::mapEnablementsZMP_ToLogOutputLevel(unsigned int& enablements, unsigned long& level)
{
    level = 0;
    if (enablements == 0)
        return true;
    for (const LevelMask& row : kLevelMasks) {
        if ((enablements & row.mask) == row.mask) {
            level = row.level;
            return true;
        }
    }
    enablements = kInvalidEnablements;
    level = kInvalidLevelResetTo;
    return false;
}

bool ZarnDataZGW::mapLogOutputLevelToEnablementsZMP(unsigned long& level, unsigned int& enablements)
{
    if (level > kLevel_Max) {
        enablements = kInvalidEnablements;
        level = kInvalidLevelResetTo;
        return false;
    }
    enablements = kLevelEnablements[level];
    return true;
}

unsigned long long ZarnDataZGW::obtainBehaviorCriteria()
{
    unsigned long level = obtainLogFileOutputLevel();
    unsigned int enablements = kInvalidEnablements;
    // An invalid level keeps the failure word, which the map leaves in `enablements`.
    mapLogOutputLevelToEnablementsZMP(level, enablements);
    unsigned long long criteria = 0;
    mapEnablementsZMP_ToBehaviorCriteriaZMI(enablements, criteria);
    return criteria;
}

unsigned long long ZarnDataZGW::updateBehaviorCriteria(ZarnData* data)
{
    const unsigned long long criteria = obtainBehaviorCriteria();
    if (data != nullptr)
        data->setBehaviorCriteria(criteria);
    return criteria;
}

// ---------------------------------------------------------------------------------------------
// The log variables

unsigned long ZarnDataZGW::obtainLogFileOutputLevel()
{
    return ZarnData::getLogOutputLevel();
}

unsigned long ZarnDataZGW::obtainLogFileAgeLimit()
{
    return ZarnData::getLogMaxFileAge();
}

unsigned long long ZarnDataZGW::obtainLogFileByteCountLimit()
{
    // Deliberately unscaled: the setting must already be in bytes. The starting value of 20 is
    // refused by the data set, which then keeps its own limit.
    return static_cast<unsigned long long>(ZarnData::getLogMaxFileSize());
}

unsigned long long ZarnDataZGW::updateLogFileByteCountLimit(ZarnData* data)
{
    const unsigned long long limit = obtainLogFileByteCountLimit();
    if (data != nullptr) {
        unsigned long long previous = 0;
        data->setLogFileByteCountLimit(limit, previous);
    }
    return limit;
}

unsigned long ZarnDataZGW::obtainLogFileMaintenanceOperation()
{
    return ZarnData::getLogBackupEnabled() ? 0 : 1;
}

// ---------------------------------------------------------------------------------------------
// The assertiveness level

bool ZarnDataZGW::obtainAssertivenessLevel(Zarn_DX_MODE& mode)
{
    // Unlike the rest of the class, the status stays here; m_selfDX_Code1 is left alone.
    int status = 0;
    LONG result = ERROR_SUCCESS;
    HKEY key = nullptr;
    SetLastError(0);
    mode = 0;
    try {
        result = RegOpenKeyExW(HKEY_LOCAL_MACHINE, kAssertivenessKey, 0, kAllAccess, &key);
        if (result != ERROR_SUCCESS) {
            key = nullptr;
            throw ZGW_LEVEL_KEY_NOT_OPENED;
        }
        DWORD type = REG_DWORD;
        DWORD size = sizeof(DWORD);
        DWORD value = 0;
        result = RegQueryValueExW(key, kAssertivenessValue, nullptr, &type, reinterpret_cast<BYTE*>(&value), &size);
        if (result == ERROR_SUCCESS && type == REG_DWORD && size == sizeof(DWORD) && value < kAssertiveness_Limit) {
            mode = static_cast<Zarn_DX_MODE>(value);
        } else {
            mode = 0;
            // A missing or out-of-range number repairs itself; a value of another shape is the
            // product's, and stays.
            if (result != static_cast<LONG>(ERROR_FILE_NOT_FOUND) && (type != REG_DWORD || size != sizeof(DWORD)))
                throw ZGW_LEVEL_VALUE_UNUSABLE;
            const DWORD zero = 0;
            result = RegSetValueExW(key, kAssertivenessValue, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&zero),
                                    sizeof(zero));
            if (result != ERROR_SUCCESS)
                throw ZGW_LEVEL_VALUE_NOT_WRITTEN;
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), ZGW_LEVEL_UNKNOWN_EXCEPTION, status);
    }
    // A key that won't close is of no consequence here.
    if (key != nullptr && RegCloseKey(key) != ERROR_SUCCESS)
        SetLastError(0);
    if (status != 0) {
        Zarn_TRACE(L"Function ZarnDataZGW::obtainAssertivenessLevel () failed (ZGW%d/WLE%ld).\n", status, result);
        SetLastError(0);
        mode = 0;
    }
    return status == 0;
}
