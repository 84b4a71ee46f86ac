// The owner's data set from construction to hand-over and clean-up.
#include "owner/ZarnDataZGW.h"

#include "foundation/DxCode.h"
#include "foundation/UTL_String.h"
#include "localize/ZarnLocalizeHelpers.h"
#include "monitor/Zarn.h"
#include "monitor/ZarnData.h"
#include "platform/LastError.h"
#include "platform/Modules.h"

#include <cstdint>
#include <new>

HINSTANCE ZarnDataZGW::m_resourceModuleInternal = nullptr;
int ZarnDataZGW::m_selfDX_Code1 = 0;
DWORD ZarnDataZGW::m_selfDX_Code2 = 0;

namespace {

constexpr unsigned long kMaskStatus = 2;
constexpr unsigned long kMaskResources = 4;
constexpr unsigned long kMaskStartup = 10;  // status, and the members this class has none of
constexpr unsigned long kMaskRecovery = 12; // resources, and the members this class has none of

// No status of this class is negative, so -1 can stand for "not an int".
constexpr int kRaisedNoInt = -1;

constexpr int kDescriptionFillersQty = 20;
constexpr int kArgsQty = 10;

// The traces show handles as eight hex digits.
unsigned int traceValue(const void* handle)
{
    return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(handle));
}

} // namespace

const ZarnOwnerRecord& findZarnOwnerRecord(long long ownerID)
{
    constexpr int kRows = sizeof(kZarnOwners) / sizeof(kZarnOwners[0]);
    for (int row = 0; row < kRows - 1; ++row) {
        if (kZarnOwners[row].ownerID == ownerID)
            return kZarnOwners[row];
    }
    return kZarnOwners[kRows - 1];
}

void ZarnDataZGW::keepFirstDxCode(const std::exception_ptr& failure, int catchAllCode, int& code)
{
    const int raised = dxCodeOf(failure, kRaisedNoInt);
    if (raised == kRaisedNoInt)
        code = catchAllCode;
    else if (code == 0)
        code = raised;
}

// ---------------------------------------------------------------------------------------------
// Construction and destruction

ZarnDataZGW::ZarnDataZGW(long long ownerID, bool standalone, HINSTANCE resourceModuleInternal,
                         HINSTANCE resourceModuleExternal, Zarn_LOG logType)
    : m_productBranderIsOurs(false), m_resourceModuleExternalIsOurs(false), m_ownerID(ownerID),
      m_ownerStandalone(standalone), m_logDirectorySpecifier(nullptr), m_logFileFQPath(nullptr), m_logType(logType),
      m_logTagValues(nullptr), m_logTagValuesQty(0), m_productBrander(nullptr), m_productBranderModuleName(nullptr),
      m_dataSet(nullptr), m_resourceModuleExternal(resourceModuleExternal)
{
    try {
        if (!setMemberVarsToDefaults(1, kMaskStartup))
            Zarn_TRACE(L"ZarnDataZGW::ZarnDataZGW () [3]: The startup call to ZarnDataZGW::setMemberVarsToDefaults "
                       L"(1, 0x%08x) was not completely successful.\n",
                       static_cast<unsigned int>(kMaskStartup));
        try {
            if (m_resourceModuleInternal == nullptr)
                m_resourceModuleInternal =
                    resourceModuleInternal != nullptr ? resourceModuleInternal : GetModuleHandleW(L"zmu.dll");
        } catch (...) {
        }
        if (m_resourceModuleInternal == nullptr) {
            // Deliberately forgotten: the first built-in text that is needed fails in its place.
            m_selfDX_Code1 = ZGW_CTOR_NO_BOOTSTRAP_RESOURCES;
            m_selfDX_Code2 = GetLastError();
            Zarn_TRACE(L"Function ZarnDataZGW::ZarnDataZGW () [3] is ignoring a failure to access the Zarn Monitor's "
                       L"bootstrap resources in file %ls (ZGW%d/WLE%lu).\n",
                       L"zmu.dll", m_selfDX_Code1, m_selfDX_Code2);
            setMemberVarsToDefaults(1, kMaskStatus);
        }
        if (m_resourceModuleExternal == nullptr)
            m_resourceModuleExternal = GetModuleHandleW(nullptr);
        if (m_resourceModuleExternal == nullptr) {
            SetLastError(0);
            const ZarnOwnerRecord& owner = findZarnOwnerRecord(m_ownerID);
            if (owner.moduleName != nullptr) {
                m_resourceModuleExternal = LoadLibraryW(owner.moduleName);
                if (m_resourceModuleExternal != nullptr) {
                    m_resourceModuleExternalIsOurs = true;
                } else {
                    m_selfDX_Code2 = GetLastError();
                    Zarn_TRACE(L"Function ZarnDataZGW::ZarnDataZGW () [3] is ignoring a failure to confirm that "
                               L"resources of its owner-module, %ls, are mapped into the address space of the "
                               L"calling process (ZGW%d/WLE%lu).\n",
                               owner.moduleName, m_selfDX_Code1, m_selfDX_Code2);
                    setMemberVarsToDefaults(1, kMaskStatus);
                }
            }
        }
        if (!initialize())
            throw m_selfDX_Code1;
    } catch (...) {
        keepFirstDxCode(std::current_exception(), ZGW_CTOR_UNKNOWN_EXCEPTION);
    }
    if (m_selfDX_Code1 == 0)
        return;

    Zarn_TRACE(L"ZarnDataZGW::ZarnDataZGW (0x%08x, 0x%08x, %d) [3] failed (ZGW%d/WLE%lu).\n",
               static_cast<unsigned int>(ownerID), traceValue(resourceModuleExternal), static_cast<int>(logType),
               m_selfDX_Code1, m_selfDX_Code2);
    // Mask 12 leaves the codes standing for the owner to read.
    if (!setMemberVarsToDefaults(1, kMaskRecovery))
        Zarn_TRACE(L"ZarnDataZGW::ZarnDataZGW () [3]: The recovery mode call to "
                   L"ZarnDataZGW::setMemberVarsToDefaults (1, 0x%08x) was not completely successful.\n",
                   static_cast<unsigned int>(kMaskRecovery));
    throw m_selfDX_Code1;
}

ZarnDataZGW::~ZarnDataZGW()
{
    if (!setMemberVarsToDefaults(1, kMaskRecovery))
        Zarn_TRACE(L"ZarnDataZGW::~ZarnDataZGW (): The call to ZarnDataZGW::setMemberVarsToDefaults (1, 0x%08x) "
                   L"was not completely successful.\n",
                   static_cast<unsigned int>(kMaskRecovery));
}

int ZarnDataZGW::getDX_Code1()
{
    return m_selfDX_Code1;
}

unsigned long ZarnDataZGW::getDX_Code2()
{
    return m_selfDX_Code2;
}

// ---------------------------------------------------------------------------------------------
// Initialisation

bool ZarnDataZGW::initialize()
{
    try {
        setMemberVarsToDefaults(1, kMaskStatus);
        // A second call on a live object always fails.
        if (m_dataSet != nullptr || m_logDirectorySpecifier != nullptr || m_logFileFQPath != nullptr
            || m_productBranderModuleName != nullptr)
            throw ZGW_INIT_AGAIN;

        // An instantiator of 0 makes the data set native: a standalone owner keeps a log file of its
        // own, any other hands its descriptions to the proxy. m_ownerID keeps the real value.
        const i64 instantiator = m_ownerStandalone ? 0 : m_ownerID;
        m_dataSet = new (std::nothrow) ZarnData(instantiator);
        if (m_dataSet == nullptr)
            throw ZGW_INIT_NO_DATA_SET;
        if (m_dataSet->getSelfResourceModule() == nullptr) {
            if (m_resourceModuleInternal != nullptr) {
                m_dataSet->setSelfResourceModule(m_resourceModuleInternal);
            } else if (!m_dataSet->learnSelfResourceModule()) {
                m_selfDX_Code2 = static_cast<DWORD>(m_dataSet->getSelfDX_Code());
                throw ZGW_INIT_DATA_SET_FAILED;
            }
        }
        // The helpers' own module; a failure here is theirs to report when they need it.
        if (m_resourceModuleInternal != nullptr)
            ZarnLocalizeHelpers::setSelfResourceModule(m_resourceModuleInternal);
        else
            ZarnLocalizeHelpers::learnSelfResourceModule();

        if (!obtainProductBrander())
            throw m_selfDX_Code1;
        if (!obtainLogTagValues())
            throw ZGW_INIT_NO_TAG_VALUES;
        m_logDirectorySpecifier = new (std::nothrow) UTL_String;
        if (m_logDirectorySpecifier == nullptr)
            throw ZGW_INIT_NO_DIRECTORY_STRING;
        m_logFileFQPath = new (std::nothrow) UTL_String;
        if (m_logFileFQPath == nullptr)
            throw ZGW_INIT_NO_FILE_STRING;
        if (m_ownerStandalone && !learnLogFileFQPath(*m_logFileFQPath))
            throw ZGW_INIT_NO_LOG_FILE_PATH;

        // Deliberately ignored in name only: the code that learnLogFormFQPath left stays, the steps
        // below run all the same, and initialize fails at its end.
        UTL_String formPath;
        if (!learnLogFormFQPath(formPath)) {
            Zarn_TRACE(L"Function ZarnDataZGW::initialize () is ignoring the failure of learnLogFormFQPath ().\n");
            formPath.clear();
        }

        m_dataSet->setSelfDX_FaultTolerance(Zarn_TOLERANCE_FORGIVING);
        m_dataSet->setCharSetExternal(2);
        if (m_ownerStandalone) {
            // With the starting size of 20 this fails, and the data set keeps its own limit.
            unsigned long long previous = 0;
            if (!m_dataSet->setLogFileByteCountLimit(obtainLogFileByteCountLimit(), previous))
                m_dataSet->forgetSelfDX_Code();
        }
        for (int tag = 0; tag < Zarn_FORM_TAG_Qty && tag < m_logTagValuesQty; ++tag) {
            if (!m_dataSet->recordTag(m_logTagValues[tag].wideText(), static_cast<Zarn_FORM_TAG>(tag))
                && !m_dataSet->isSelfSatisfied())
                m_dataSet->forgetSelfDX_Code();
        }
        // The data set copies both names.
        if (!m_dataSet->recordLogFileNomenclature(const_cast<wchar_t*>(m_logFileFQPath->wideText()),
                                                  formPath.wideText(), m_logType)) {
            m_selfDX_Code2 = static_cast<DWORD>(m_dataSet->getSelfDX_Code());
            throw ZGW_INIT_DATA_SET_FAILED;
        }
        if (m_ownerStandalone) {
            Zarn_DX_MODE mode = 0;
            if (!obtainAssertivenessLevel(mode))
                mode = 0;
            m_dataSet->setSituationMode(mode);
        }
        if (m_resourceModuleExternal != nullptr)
            m_dataSet->setResourceModule(m_resourceModuleExternal);
        if (!m_dataSet->setDescriptionFillersQty(kDescriptionFillersQty) || !m_dataSet->setArgsIntQty(kArgsQty)
            || !m_dataSet->setArgsStrQty(kArgsQty) || !m_dataSet->setArgsUIntQty(kArgsQty)) {
            m_selfDX_Code2 = static_cast<DWORD>(m_dataSet->getSelfDX_Code());
            throw ZGW_INIT_DATA_SET_FAILED;
        }
        if (m_logTagValuesQty > Zarn_FORM_TAG_PRODUCT_NAME
            && m_logTagValues[Zarn_FORM_TAG_PRODUCT_NAME].length() > 0
            && !m_dataSet->recordDialogBoxCaption(m_logTagValues[Zarn_FORM_TAG_PRODUCT_NAME].wideText())) {
            if (!m_dataSet->isSelfSatisfied())
                m_dataSet->forgetSelfDX_Code();
            m_dataSet->recordDialogBoxCaption(static_cast<const wchar_t*>(nullptr));
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), ZGW_INIT_UNKNOWN_EXCEPTION);
    }
    if (m_selfDX_Code1 != 0) {
        Zarn_TRACE(L"Function ZarnDataZGW::initialize () failed (status codes %d/%lu).\n", m_selfDX_Code1,
                   m_selfDX_Code2);
        freeResources();
    }
    return m_selfDX_Code1 == 0;
}

// ---------------------------------------------------------------------------------------------
// Hand-over

bool ZarnDataZGW::customizeForOwner()
{
    setMemberVarsToDefaults(1, kMaskStatus);
    if (m_dataSet == nullptr)
        m_selfDX_Code1 = ZGW_CUSTOMIZE_NO_DATA_SET;
    if (m_selfDX_Code1 != 0)
        Zarn_TRACE(L"ZarnDataZGW::customizeForOwner () failed (ZGW%d/%lu).\n", m_selfDX_Code1, m_selfDX_Code2);
    return m_selfDX_Code1 == 0;
}

Zarn* ZarnDataZGW::createZarnMonitor()
{
    Zarn* monitor = nullptr;
    setMemberVarsToDefaults(1, kMaskStatus);
    if (m_dataSet == nullptr) {
        m_selfDX_Code1 = ZGW_CREATE_NO_DATA_SET;
    } else if (!customizeForOwner()) {
        if (m_selfDX_Code1 == 0)
            m_selfDX_Code1 = ZGW_CUSTOMIZE_FAILED;
    } else {
        try {
            monitor = Zarn::create(m_dataSet);
        } catch (...) {
            monitor = nullptr;
        }
        if (monitor == nullptr) {
            m_selfDX_Code1 = ZGW_CREATE_MONITOR_FAILED;
            m_selfDX_Code2 = static_cast<DWORD>(m_dataSet->getSelfDX_Code());
        }
    }
    if (m_selfDX_Code1 == 0) {
        // The monitor has taken the data set's contents; what is left is an empty shell.
        delete m_dataSet;
        m_dataSet = nullptr;
        return monitor;
    }
    Zarn_TRACE(L"ZarnDataZGW::createZarnMonitor () failed (ZGW status codes %d/%lu).\n", m_selfDX_Code1,
               m_selfDX_Code2);
    if (monitor != nullptr && !destroyZarnMonitor(monitor))
        Zarn_TRACE(L"Function ZarnDataZGW::createZarnMonitor (): The recovery mode effort to destroy an unusable "
                   L"Zarn Monitor failed.\n");
    return nullptr;
}

bool ZarnDataZGW::destroyZarnMonitor(Zarn*& monitor)
{
    if (monitor == nullptr)
        return true;
    // Zarn::destroy nulls the pointer only when it destroyed the monitor.
    return Zarn::destroy(&monitor, 0, true);
}

// ---------------------------------------------------------------------------------------------
// Clean-up

bool ZarnDataZGW::setMemberVarsToDefaults(int passes, unsigned long mask)
{
    if (passes < 1)
        return false;
    bool result = true;
    if ((mask & kMaskResources) != 0 && !freeResources())
        result = false;
    if ((mask & kMaskStatus) != 0) {
        m_selfDX_Code1 = 0;
        m_selfDX_Code2 = 0;
        SetLastError(0);
    }
    return result;
}

bool ZarnDataZGW::freeResources()
{
    delete m_logDirectorySpecifier;
    m_logDirectorySpecifier = nullptr;
    delete m_logFileFQPath;
    m_logFileFQPath = nullptr;
    freeLogTagValues();
    destroyProductBrander();
    delete m_dataSet;
    m_dataSet = nullptr;
    return freeResourceModuleExternal();
}

bool ZarnDataZGW::freeResourceModuleExternal()
{
    SetLastError(0);
    bool freed = true;
    // A handle that was not loaded here is only forgotten.
    if (m_resourceModuleExternalIsOurs && m_resourceModuleExternal != nullptr
        && !FreeLibrary(m_resourceModuleExternal)) {
        SetLastError(0);
        freed = false;
    }
    m_resourceModuleExternal = nullptr;
    m_resourceModuleExternalIsOurs = false;
    return freed;
}
