// The fifteen form tags of a data set, each from its source, and the product brander that gives
// the branded ones.
#include "owner/ZarnDataZGW.h"

#include "foundation/free_Array.h"
#include "foundation/UTL_String.h"
#include "localize/ZarnLocalizeHelpers.h"
#include "monitor/Zarn.h"
#include "owner/ZRpbr.h"
#include "platform/LastError.h"
#include "platform/Modules.h"
#include "platform/UserAndFiles.h"
#include "sysinfo/ZarnSysInfoEnvOp.h"

#include <QCoreApplication>
#include <QString>

#include <cstdint>
#include <new>

namespace {

constexpr unsigned long long kTextQty = 1024;
constexpr unsigned int kUnknownStringID = 10007;

// Positions of the operating environment's data pairs.
constexpr int kEnvOpComputerName = 5;
constexpr int kEnvOpDomain = 6;

unsigned int traceValue(const void* handle)
{
    return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(handle));
}

// `module`, or the process image in its place; raises 61 with the last error in `code2`.
HINSTANCE moduleOrImage(HINSTANCE module, DWORD& code2)
{
    if (module != nullptr)
        return module;
    const HINSTANCE image = GetModuleHandleW(nullptr);
    if (image == nullptr) {
        code2 = GetLastError();
        throw ZGW_TAG_NO_MODULE;
    }
    return image;
}

// Brander text `id` into `value`; raises 59 for anything the call or the copy throws.
void assignBrandText(UTL_String& value, ZRpbr* brander, int id, wchar_t* buffer, unsigned long long capacity)
{
    try {
        value = UTL_String(brander->getBrandText(id, buffer, capacity));
    } catch (...) {
        throw ZGW_TAG_BRAND_TEXT_FAILED;
    }
}

UTL_String loadUnknownText(HINSTANCE module)
{
    return UTL_String(module, kUnknownStringID, static_cast<unsigned>(kTextQty));
}

} // namespace

// ---------------------------------------------------------------------------------------------
// One tag

bool ZarnDataZGW::obtainLogTagValue(UTL_String& value, Zarn_FORM_TAG tag, wchar_t* buffer,
                                    unsigned long long capacity)
{
    return obtainLogTagValue(value, tag, m_ownerID, m_resourceModuleExternal, m_productBrander, m_selfDX_Code1,
                             m_selfDX_Code2, buffer, capacity);
}

bool ZarnDataZGW::obtainLogTagValue(UTL_String& value, Zarn_FORM_TAG tag, long long ownerID,
                                    HINSTANCE const& module, ZRpbr* brander, int& code1, DWORD& code2,
                                    wchar_t* buffer, unsigned long long capacity)
{
    wchar_t local[kTextQty];
    try {
        code1 = 0;
        code2 = 0;
        SetLastError(0);
        value.clear();
        if (buffer == nullptr) {
            local[0] = L'\0';
            buffer = local;
            capacity = kTextQty;
        } else if (capacity == 0) {
            throw ZGW_TAG_NO_CAPACITY;
        }
        const ZarnOwnerRecord& owner = findZarnOwnerRecord(ownerID);
        // Tags 0 to 3, 7 and 14 are brand texts; tag 12 only if there is a brander.
        int brandTextID = -1;
        switch (tag) {
        case Zarn_FORM_TAG_COMPANY_KNOW_BASE: brandTextID = ZRpbr::kBrandTextCompanyKnowBase; break;
        case Zarn_FORM_TAG_COMPANY_NAME_LONG: brandTextID = ZRpbr::kBrandTextCompanyNameLong; break;
        case Zarn_FORM_TAG_COMPANY_NAME_SHORT: brandTextID = ZRpbr::kBrandTextCompanyNameShort; break;
        case Zarn_FORM_TAG_COMPANY_WEBSITE: brandTextID = ZRpbr::kBrandTextCompanyWebsite; break;
        case Zarn_FORM_TAG_MODULE_NAME: brandTextID = owner.brandTextID; break;
        case Zarn_FORM_TAG_SUITE_NAME: brandTextID = ZRpbr::kBrandTextSuiteName; break;
        default: break;
        }
        if (brandTextID >= 0) {
            if (brander == nullptr)
                throw ZGW_TAG_NO_BRANDER;
            assignBrandText(value, brander, brandTextID, buffer, capacity);
        }

        switch (tag) {
        case Zarn_FORM_TAG_FILE_VERSION:
        case Zarn_FORM_TAG_PRODUCT_VERSION:
            if (!ZarnLocalizeHelpers::obtainVersionZGW(buffer, capacity, tag, moduleOrImage(module, code2)))
                throw ZGW_TAG_SOURCE_FAILED;
            value = UTL_String(buffer);
            break;
        case Zarn_FORM_TAG_HOME_DIRECTORY:
            value = UTL_String(QCoreApplication::applicationDirPath().toStdWString().c_str());
            break;
        case Zarn_FORM_TAG_NAME_OF_DOMAIN:
        case Zarn_FORM_TAG_NAME_OF_HOST: {
            ZarnSysInfoEnvOp environment;
            const int position = tag == Zarn_FORM_TAG_NAME_OF_DOMAIN ? kEnvOpDomain : kEnvOpComputerName;
            if (!environment.getDataPair(position, nullptr, buffer, 0, capacity))
                throw ZGW_TAG_SOURCE_FAILED;
            value = UTL_String(buffer);
            break;
        }
        case Zarn_FORM_TAG_NAME_OF_USER: {
            DWORD size = capacity > 0xFFFFFFFFull ? 0xFFFFFFFFu : static_cast<DWORD>(capacity);
            if (!GetUserNameW(buffer, &size)) {
                code2 = GetLastError();
                throw ZGW_TAG_SOURCE_FAILED;
            }
            value = UTL_String(buffer);
            break;
        }
        case Zarn_FORM_TAG_PRODUCT_NAME:
            if (brander != nullptr)
                assignBrandText(value, brander, owner.brandTextID, buffer, capacity);
            if (value.length() > 0)
                break;
            [[fallthrough]]; // no brand text: the module's original file name, as MODULE_FILE_NAME
        case Zarn_FORM_TAG_MODULE_FILE_NAME:
            if (!ZarnLocalizeHelpers::extractModuleVerValueSFI_OrigFNm(moduleOrImage(module, code2), buffer, capacity,
                                                                      nullptr, L"StringFileInfo", L'\\'))
                throw ZGW_TAG_SOURCE_FAILED;
            value = UTL_String(buffer);
            break;
        default:
            // NAME_OF_SESSION has no source, and tags from 15 up have none either.
            break;
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), ZGW_TAG_UNKNOWN_EXCEPTION, code1);
    }
    if (code1 != 0) {
        Zarn_TRACE(L"Function ZarnDataZGW::obtainLogTagValue (tag, %d, 0x%08x, 0x%08x, 0x%08x, et alia) [1] failed "
                   L"(ZGW%d/WLE%lu).\n",
                   static_cast<int>(tag), static_cast<unsigned int>(ownerID), traceValue(module), traceValue(brander),
                   code1, code2);
        value.clear();
        SetLastError(0);
    }
    // An empty value is a failure even without a code.
    return value.length() > 0;
}

// ---------------------------------------------------------------------------------------------
// All tags

bool ZarnDataZGW::obtainLogTagValues()
{
    return obtainLogTagValues(m_logTagValues, m_logTagValuesQty, m_ownerID, m_resourceModuleExternal,
                              m_productBrander, m_selfDX_Code1, m_selfDX_Code2);
}

bool ZarnDataZGW::obtainLogTagValues(UTL_String*& values, int& quantity, long long ownerID, HINSTANCE const& module,
                                     ZRpbr* brander, int& code1, DWORD& code2)
{
    try {
        code1 = 0;
        code2 = 0;
        SetLastError(0);
        if (brander == nullptr)
            throw ZGW_TAGS_NO_BRANDER;
        UTL_String unknown;
        try {
            unknown = loadUnknownText(m_resourceModuleInternal);
        } catch (...) {
        }
        if (unknown.length() == 0)
            throw ZGW_TAGS_UNKNOWN_TEXT_EMPTY;
        freeLogTagValues(values, quantity);
        values = new (std::nothrow) UTL_String[Zarn_FORM_TAG_Qty];
        if (values == nullptr)
            throw ZGW_TAGS_NO_MEMORY;
        quantity = Zarn_FORM_TAG_Qty;
        // Each call resets code1, so only SUITE_NAME's failure is the operation's: any earlier
        // tag's failure is absorbed into its "Unknown".
        wchar_t shared[kTextQty];
        for (int tag = 0; tag < Zarn_FORM_TAG_Qty; ++tag) {
            shared[0] = L'\0';
            if (!obtainLogTagValue(values[tag], static_cast<Zarn_FORM_TAG>(tag), ownerID, module, brander, code1,
                                   code2, shared, kTextQty))
                values[tag] = unknown;
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), ZGW_TAGS_UNKNOWN_EXCEPTION, code1);
    }
    if (code1 != 0) {
        Zarn_TRACE(L"Function ZarnDataZGW::obtainLogTagValues (0x%08x, %d, 0x%08x, 0x%08x, 0x%08x, %d, %lu) [1] "
                   L"failed.\n",
                   traceValue(values), quantity, static_cast<unsigned int>(ownerID), traceValue(module),
                   traceValue(brander), code1, code2);
        freeLogTagValues(values, quantity);
        SetLastError(0);
    }
    return code1 == 0;
}

// ---------------------------------------------------------------------------------------------
// Looking a tag up

bool ZarnDataZGW::getLogTagValue(UTL_String& value, Zarn_FORM_TAG tag)
{
    return getLogTagValue(value, tag, m_ownerID, m_resourceModuleExternal, m_productBrander, m_logTagValues,
                          m_logTagValuesQty, nullptr);
}

bool ZarnDataZGW::getLogTagValue(UTL_String& value, Zarn_FORM_TAG tag, long long ownerID, HINSTANCE module,
                                 ZRpbr* brander, const UTL_String* values, int quantity, Zarn* monitor)
{
    try {
        value.clear();
        const wchar_t* const recorded = monitor != nullptr ? monitor->getTag(tag) : nullptr;
        if (recorded != nullptr && recorded[0] != L'\0') {
            value = UTL_String(recorded);
        } else if (values != nullptr && tag >= 0 && quantity > tag && values[tag].length() > 0) {
            value = values[tag];
        } else if (!obtainLogTagValue(value, tag, ownerID, module, brander, m_selfDX_Code1, m_selfDX_Code2, nullptr,
                                      0)) {
            try {
                value = loadUnknownText(m_resourceModuleInternal);
            } catch (...) {
                value.clear();
            }
            m_selfDX_Code1 = 0;
            m_selfDX_Code2 = 0;
            SetLastError(0);
        }
    } catch (...) {
        value.clear();
    }
    return value.length() > 0;
}

void ZarnDataZGW::freeLogTagValues()
{
    freeLogTagValues(m_logTagValues, m_logTagValuesQty);
}

void ZarnDataZGW::freeLogTagValues(UTL_String*& values, int& quantity)
{
    if (values != nullptr) {
        for (int tag = 0; tag < quantity; ++tag)
            values[tag].clear();
        free_Array(values);
    }
    quantity = 0;
}

// ---------------------------------------------------------------------------------------------
// The product brander

bool ZarnDataZGW::obtainProductBrander()
{
    setMemberVarsToDefaults(1, 2);
    return obtainProductBrander(m_productBrander, m_productBranderModuleName, m_productBranderIsOurs);
}

bool ZarnDataZGW::obtainProductBrander(ZRpbr*& brander, UTL_String*& moduleName, bool& createdHere)
{
    try {
        m_selfDX_Code2 = 0;
        if (brander != nullptr && moduleName != nullptr && moduleName->length() > 0)
            return m_selfDX_Code1 == 0;
        if (brander == nullptr) {
            // A brander already alive belongs to whoever made it.
            brander = ZRpbr::getProductBrander();
            if (brander != nullptr) {
                createdHere = false;
            } else {
                brander = ZRpbr::create(ZRpbr::kKindWide);
                createdHere = brander != nullptr;
                if (brander == nullptr) {
                    m_selfDX_Code2 = static_cast<DWORD>(ZRpbr::getSelfDX_Code());
                    throw ZGW_BRANDER_NOT_CREATED;
                }
            }
        }
        try {
            if (moduleName == nullptr)
                moduleName = new UTL_String(L"zbr4");
            else if (moduleName->length() == 0)
                *moduleName = UTL_String(L"zbr4");
        } catch (...) {
            if (moduleName != nullptr)
                moduleName->clear();
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), ZGW_BRANDER_UNKNOWN_EXCEPTION);
    }
    if (m_selfDX_Code1 != 0) {
        destroyProductBrander(brander, &moduleName);
        createdHere = false;
    }
    return m_selfDX_Code1 == 0;
}

void ZarnDataZGW::relinquishProductBrander(ZRpbr*& brander, UTL_String** moduleName)
{
    brander = m_productBrander;
    m_productBrander = nullptr;
    if (moduleName != nullptr)
        *moduleName = m_productBranderModuleName;
    // Deliberately nulled even when the caller does not take the name.
    m_productBranderModuleName = nullptr;
}

void ZarnDataZGW::destroyProductBrander()
{
    // A brander that was found and not made here stays alive for its real owner.
    ZRpbr* ours = m_productBranderIsOurs ? m_productBrander : nullptr;
    destroyProductBrander(ours, &m_productBranderModuleName);
    m_productBrander = nullptr;
    m_productBranderIsOurs = false;
}

void ZarnDataZGW::destroyProductBrander(ZRpbr*& brander, UTL_String** moduleName)
{
    try {
        if (brander != nullptr) {
            ZRpbr::destroy();
            brander = nullptr;
        }
        if (moduleName != nullptr && *moduleName != nullptr) {
            (*moduleName)->clear();
            delete *moduleName;
            *moduleName = nullptr;
        }
    } catch (...) {
    }
}
