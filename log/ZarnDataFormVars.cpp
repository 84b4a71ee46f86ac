// Form variables: the name table, and compiling a section's bracketed names into inserts.
#include "monitor/ZarnData.h"

#include "foundation/free_Array.h"
#include "log/loadStringCopy.h"
#include "platform/CRuntime.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <memory>
#include <new>

namespace {

constexpr unsigned int kVarNameStringID_Min = 12001;

// The insert format of each variable, indexed by Zarn_FORM_VAR.
const wchar_t* const kVarInsertFormats[Zarn_FORM_VAR_Qty] = {
    L"s",   // COMPANY_KNOW_BASE
    L"s",   // COMPANY_NAME_LONG
    L"s",   // COMPANY_NAME_SHORT
    L"s",   // COMPANY_WEBSITE
    L"02d", // DAY
    L"X",   // ENTRY_COLOR
    L"d",   // ENTRY_ID
    L"s",   // FILE_VERSION
    L"s",   // HOME_DIRECTORY
    L"02d", // HOURS
    L"s",   // LOGFILE_NAME
    L"03d", // MILLISECONDS
    L"02d", // MINUTES
    L"s",   // MODULE_FILE_NAME
    L"s",   // MODULE_NAME
    L"02d", // MONTH
    L"s",   // NAME_OF_DOMAIN
    L"s",   // NAME_OF_HOST
    L"s",   // NAME_OF_SESSION
    L"s",   // NAME_OF_USER
    L"lu",  // PROCESS_ID
    L"s",   // PRODUCT_NAME
    L"s",   // PRODUCT_VERSION
    L"02d", // SECONDS
    L"s",   // SITUATION_DSCRP
    L"d",   // SITUATION_ID
    L"s",   // SUITE_NAME
    L"s",   // SYS_INFO_ENV_APP
    L"s",   // SYS_INFO_ENV_OP
    L"s",   // SYS_INFO_VARS_ENV
    L"d",   // YEAR
};

// The working space is reckoned in bytes of 16-bit text: what fits the 2048 bytes of a scratch
// buffer is compiled there, anything longer in space of its own.
constexpr size_t kScratchTextBytes = 2048;
constexpr size_t kTextUnitBytes = 2;
// The longest name that a bracket may hold; a 1023rd character is refused with 194.
constexpr size_t kVarNameCharacters_Max = ZarnScratchpad::kCharacters - 2;
// The formatter takes a slot for every insert a section's text names, its own %n among them, up to
// %99 with two stars (the 101st), and cannot tell where the values end: the slots behind the
// variables stay zero, so that such an insert reads 0 or a null text instead of memory past them.
constexpr size_t kFormatterSlotsQty = 101;
// Room for the longest insert, "%2147483647!03d!", and its terminator.
constexpr size_t kInsertCharacters = 24;

} // namespace

bool ZarnData::learnLogFileFormVarNames()
{
    try {
        if (!isSelfApproving())
            throw getSelfDX_Code();
        if (m_selfResourceModule == nullptr && !learnSelfResourceModule())
            throw getSelfDX_Code();
        ZarnDataFile& file = m_fileLog;
        if (file.m_varNames != nullptr) { // not freed beforehand: never leak the old table
            for (int index = 0; index < file.m_varNamesQty; ++index)
                delete[] file.m_varNames[index];
            free_Array(file.m_varNames);
        }
        file.m_varNames = new wchar_t*[static_cast<size_t>(file.m_varNamesQty)]();
        for (int index = 0; index < file.m_varNamesQty; ++index) {
            if (loadStringCopy(m_selfResourceModule, kVarNameStringID_Min + static_cast<unsigned>(index),
                               m_scratchpad.m_scratchA, ZarnScratchpad::kCharacters, &file.m_varNames[index])
                < 1)
                throw 200;
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 47);
        ZarnDataFile& file = m_fileLog;
        if (file.m_varNames != nullptr) {
            for (int index = 0; index < file.m_varNamesQty; ++index)
                delete[] file.m_varNames[index];
            free_Array(file.m_varNames);
        }
    }
    ZarnScratchpad::clearIfNotEmpty(m_scratchpad.m_scratchA, sizeof m_scratchpad.m_scratchA);
    ZarnScratchpad::clearIfNotEmpty(m_scratchpad.m_scratchB, sizeof m_scratchpad.m_scratchB);
    return isSelfSatisfied();
}

Zarn_FORM_VAR ZarnData::convertLogFileFormVarNameToEnum(wchar_t* const name)
{
    return static_cast<Zarn_FORM_VAR>(convertLogFileFormVarNameToIndex(name));
}

int ZarnData::convertLogFileFormVarNameToIndex(wchar_t* const name)
{
    const ZarnDataFile& file = m_fileLog;
    if (name == nullptr || name[0] == L'\0' || file.m_varNames == nullptr || file.m_varNamesQty < 1)
        return -1;
    // The table is sorted by character code, and names regard case.
    int low = 0;
    int high = file.m_varNamesQty - 1;
    while (low <= high) {
        const int middle = (low + high) / 2;
        const wchar_t* const entry = file.m_varNames[middle];
        if (entry == nullptr)
            return -1;
        const int order = std::wcscmp(name, entry);
        if (order == 0)
            return middle;
        if (order < 0)
            high = middle - 1;
        else
            low = middle + 1;
    }
    return -1;
}

bool ZarnData::countLogFileFormSectionVarNames(wchar_t* const text, int& count)
{
    count = 0;
    try {
        if (!isSelfApproving())
            throw getSelfDX_Code();
        if (text != nullptr) {
            int depth = 0;
            for (const wchar_t* at = text; *at != L'\0'; ++at) {
                if (*at == m_fileLog.m_varOpenBracket) {
                    if (depth > 0)
                        throw 204;
                    depth = 1;
                } else if (*at == m_fileLog.m_varCloseBracket) {
                    if (depth != 1)
                        throw 203;
                    depth = 0;
                    ++count;
                }
            }
            // An open bracket left unclosed is no error here; its text is dropped when compiled.
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 202);
    }
    return isSelfSatisfied();
}

bool ZarnData::createLogFileFormSectionArgV_Enums(int count, Zarn_FORM_VAR** vars)
{
    try {
        if (!isSelfApproving())
            throw getSelfDX_Code();
        if (vars == nullptr)
            throw 147;
        if (*vars != nullptr)
            throw 148;
        if (count > 0) {
            try {
                *vars = new (std::nothrow) Zarn_FORM_VAR[static_cast<size_t>(count)]();
            } catch (...) {
                *vars = nullptr;
            }
            if (*vars == nullptr)
                throw 149;
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 147);
        if (vars != nullptr) {
            delete[] *vars;
            *vars = nullptr;
        }
    }
    return isSelfSatisfied();
}

bool ZarnData::createLogFileFormSectionArgV_Values(int count, unsigned long long** values)
{
    try {
        if (!isSelfApproving())
            throw getSelfDX_Code();
        if (values == nullptr)
            throw 150;
        if (*values != nullptr)
            throw 151;
        if (count > 0) {
            try {
                const size_t slots = std::max(static_cast<size_t>(count), kFormatterSlotsQty);
                *values = new (std::nothrow) unsigned long long[slots]();
            } catch (...) {
                *values = nullptr;
            }
            if (*values == nullptr)
                throw 152;
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 150);
        if (values != nullptr) {
            delete[] *values;
            *values = nullptr;
        }
    }
    return isSelfSatisfied();
}

bool ZarnData::composeLogFileFormSectionFormat(wchar_t** format, int& count, Zarn_FORM_VAR** vars,
                                               unsigned long long** values)
{
    count = 0;
    try {
        if (!isSelfApproving())
            throw getSelfDX_Code();
        if (format == nullptr)
            throw 159;
        if (!countLogFileFormSectionVarNames(*format, count))
            throw getSelfDX_Code();
        // A section without variables is its own format.
        if (count == 0)
            return isSelfSatisfied();
        if (!createLogFileFormSectionArgV_Enums(count, vars))
            throw getSelfDX_Code();
        if (!createLogFileFormSectionArgV_Values(count, values))
            throw getSelfDX_Code();
        if (!reformatLogFileFormSection(format, count, *vars))
            throw getSelfDX_Code();
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 159);
    }
    return isSelfSatisfied();
}

bool ZarnData::reformatLogFileFormSection(wchar_t** format, int count, Zarn_FORM_VAR* vars)
{
    if (format == nullptr || *format == nullptr || (count == 0 && vars == nullptr))
        return isSelfSatisfied();
    wchar_t* const name = m_scratchpad.m_scratchB;
    bool usesScratch = false;
    std::unique_ptr<wchar_t[]> ownSpace;
    try {
        if (!isSelfApproving())
            throw getSelfDX_Code();
        std::memset(name, 0, sizeof m_scratchpad.m_scratchB);

        const size_t length = std::wcslen(*format);
        const auto needed = static_cast<size_t>((kTextUnitBytes * length + 2) * 1.05);
        wchar_t* output = nullptr;
        size_t limit = 0;    // the limit on plain characters
        size_t capacity = 0; // what the space really holds
        if (needed <= kScratchTextBytes) {
            std::memset(m_scratchpad.m_scratchA, 0, sizeof m_scratchpad.m_scratchA);
            output = m_scratchpad.m_scratchA;
            usesScratch = true;
            limit = ZarnScratchpad::kCharacters;
            capacity = ZarnScratchpad::kCharacters;
        } else {
            // Inserts are not held to the limit, so this space has room for every insert beyond it.
            const size_t units = ((needed + 15) / 16 * 16) / kTextUnitBytes;
            capacity = units + static_cast<size_t>(count) * kInsertCharacters;
            ownSpace.reset(new (std::nothrow) wchar_t[capacity]());
            if (!ownSpace)
                throw 186;
            output = ownSpace.get();
            limit = length + 1;
        }

        const wchar_t open = m_fileLog.m_varOpenBracket;
        const wchar_t close = m_fileLog.m_varCloseBracket;
        int remaining = count;
        int insert = 0;
        bool inName = false;
        size_t nameLength = 0;
        size_t outputLength = 0;
        for (const wchar_t* at = *format; *at != L'\0'; ++at) {
            const wchar_t c = *at;
            if (c == open) {
                if (inName)
                    throw 189;
                inName = true;
                nameLength = 0;
            } else if (c != close) {
                if (inName) {
                    if (nameLength >= kVarNameCharacters_Max)
                        throw 194;
                    name[nameLength++] = c;
                } else {
                    // Only plain characters are held to the limit; an insert may pass it unnoticed.
                    if (outputLength >= limit - 1)
                        throw 193;
                    output[outputLength++] = c;
                }
            } else {
                if (!inName)
                    throw 190;
                inName = false;
                --remaining;
                if (nameLength == 0)
                    throw 187;
                const Zarn_FORM_VAR var = convertLogFileFormVarNameToEnum(name);
                if (var == Zarn_FORM_VAR_UNKNOWN)
                    throw 188;
                // More names than the arrays hold: the count disagrees, and nothing is written past them.
                if (vars == nullptr || insert >= count)
                    throw 195;
                vars[insert] = var;
                std::wmemset(name, 0, nameLength);
                nameLength = 0;
                if (var < 0 || var >= Zarn_FORM_VAR_Qty)
                    throw 191;
                ++insert;
                wchar_t text[kInsertCharacters] = {};
                const int written = _snwprintf(text, kInsertCharacters - 1, L"%%%d!%ls!", insert,
                                               kVarInsertFormats[var]);
                if (written < 1)
                    throw 185;
                // The space itself is never overrun, even where the limit is not asked.
                if (outputLength + static_cast<size_t>(written) >= capacity)
                    throw 193;
                std::wmemcpy(output + outputLength, text, static_cast<size_t>(written));
                outputLength += static_cast<size_t>(written);
            }
        }
        // The text after an open bracket that never closes is dropped: it went into the name.
        if (remaining != 0)
            throw 195;

        delete[] *format;
        *format = nullptr;
        *format = new (std::nothrow) wchar_t[outputLength + 1];
        if (*format == nullptr)
            throw 192;
        std::wmemcpy(*format, output, outputLength);
        (*format)[outputLength] = L'\0';
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 185);
    }
    if (usesScratch)
        std::memset(m_scratchpad.m_scratchA, 0, sizeof m_scratchpad.m_scratchA);
    std::memset(name, 0, sizeof m_scratchpad.m_scratchB);
    return isSelfSatisfied();
}

bool ZarnData::isVarInLogFileFormSection(Zarn_FORM_VAR var, int count, Zarn_FORM_VAR* const vars)
{
    if (var == Zarn_FORM_VAR_UNKNOWN || count < 1 || vars == nullptr)
        return false;
    for (int index = 0; index < count; ++index) {
        if (vars[index] == var)
            return true;
    }
    return false;
}
