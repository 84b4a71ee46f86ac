// The form of a data set's log: finding it, cutting it into sections, the built-in form.
#include "monitor/ZarnData.h"

#include "foundation/free_Array.h"
#include "log/loadStringCopy.h"
#include "monitor/Zarn.h"
#include "platform/CRuntime.h"

#include <QString>
#include <QTemporaryFile>
#include <QTextStream>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <new>

namespace {

// The marker keywords in the self resource module.
constexpr unsigned int kKeywordBodyID = 11001;
constexpr unsigned int kKeywordHeadID = 11002;
constexpr unsigned int kKeywordInjectorID = 11003;
constexpr unsigned int kKeywordTailID = 11004;

// The sections of the built-in forms, by kind of log.
struct BuiltInFormIDs
{
    unsigned int head;
    unsigned int body;
    unsigned int tail;
};
constexpr BuiltInFormIDs kBuiltInFormHTML = {10022, 10021, 10023};
constexpr BuiltInFormIDs kBuiltInFormText = {10032, 10031, 10033}; // only a resource module could hold them

// The longest line that one read gives; a longer line arrives as several.
constexpr qint64 kFormLineCharacters = 1024;
// One byte of the form is one character, and positions count bytes.
constexpr const char* kFormCodecName = "ISO-8859-1";

// A byte of the form becomes a character as a signed char does on a 16-bit wide character:
// 0x80 to 0xFF become 0xFF80 to 0xFFFF. Deliberate: no encoding is decoded here, and none is guessed.
wchar_t widenFormByte(char byte)
{
    return static_cast<wchar_t>(static_cast<std::uint16_t>(static_cast<std::int16_t>(static_cast<signed char>(byte))));
}

// Zeroes bufferLength bytes of a buffer of bufferLength 16-bit characters: the first half of it.
// Only the first half is cleared, deliberately; every reader stops at the length it was given.
void zeroFirstHalf(wchar_t* buffer, size_t bufferLength)
{
    std::memset(buffer, 0, bufferLength * sizeof(wchar_t) / 2);
}

} // namespace

bool ZarnData::obtainLogFileFormData(unsigned long mask)
{
    const bool entered = enterCriticalSection();
    try {
        if (!m_initialized)
            throw 266;
        if (!entered)
            throw 262;
        freeLogFileFormData();
        if (!learnLogFileFormVarNames())
            throw getSelfDX_Code();
        if (!processFileLogForm(mask))
            throw getSelfDX_Code();
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 144);
    }
    if (!isSelfSatisfied()) {
        freeLogFileFormData();
        Zarn_TRACE(L"ZarnData::obtainLogFileFormData (%lu)  caught exception #%d.\n", static_cast<DWORD>(mask),
                   getSelfDX_Code());
    }
    if (entered && !leaveCriticalSection() && isSelfSatisfied())
        m_selfDX_Code = 263;
    return isSelfSatisfied();
}

bool ZarnData::processFileLogForm(unsigned long mask)
{
    ZarnDataFile& file = m_fileLog;
    // A stream whose close fails is let go: it is not closed twice.
    auto closeFormStream = [this, &file]() {
        if (file.m_formStream != nullptr && !closeFile(file.m_formStream, file.m_formName))
            file.m_formStream = nullptr;
    };
    try {
        // The stream of a form already learned stays open; the form file is not read twice.
        if (file.m_formStream != nullptr)
            throw 131;
        // A failure of the form file is held here, not in the data set: it is dismissed in any case.
        int dismissedCode = 0;
        if (file.m_formName == nullptr)
            dismissedCode = 129;
        else if (file.m_formName[0] == L'\0')
            dismissedCode = 127;
        if (dismissedCode == 0 && !(openLogFileForm(file.m_formName) && learnLogFileForm(mask))) {
            dismissedCode = getSelfDX_Code();
            if (dismissedCode == 0)
                dismissedCode = 130;
        }
        if (dismissedCode != 0) {
            // A bad template costs the layout only: the built-in form takes over, and its head says so.
            Zarn_TRACE(L"ZarnData::processFileLogForm (%lu) is dismissing exception #%d.\n", static_cast<DWORD>(mask),
                       dismissedCode);
            forgetSelfDX_Code();
            closeFormStream();
            if (!supplantLogFileFormFromResDLL(mask))
                throw getSelfDX_Code();
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 130);
    }
    if (!isSelfSatisfied()) {
        Zarn_TRACE(L"ZarnData::processFileLogForm (%lu) caught exception #%d.\n", static_cast<DWORD>(mask),
                   getSelfDX_Code());
        closeFormStream();
    }
    return isSelfSatisfied();
}

bool ZarnData::learnLogFileForm(unsigned long mask)
{
    try {
        if (!isSelfApproving())
            throw getSelfDX_Code();
        if (m_selfResourceModule == nullptr && !learnSelfResourceModule())
            throw getSelfDX_Code();
        ZarnDataFile& file = m_fileLog;
        if (file.m_formName == nullptr)
            throw 129;
        if (file.m_formName[0] == L'\0')
            throw 127;
        if (file.m_formStream == nullptr)
            throw 123;
        if (file.m_injectorFiles != nullptr)
            throw 82;
        if (file.m_injectorStreams != nullptr)
            throw 87;
        // Read as one byte to a character, whatever the locale says; a byte-order mark still wins.
        file.m_formStream->setCodec(kFormCodecName);

        long injectorStart = -1;
        long headStart = -1;
        long bodyStart = -1;
        long tailStart = -1;
        size_t headLength = 0;
        size_t bodyLength = 0;
        size_t tailLength = 0;
        if (!learnLogFileFormSectionsRaw(injectorStart, headStart, headLength, bodyStart, bodyLength, tailStart,
                                         tailLength))
            throw getSelfDX_Code();
        if (!learnLogFileFormSectionsFinished(headStart, headLength, bodyStart, bodyLength, tailStart, tailLength,
                                              mask))
            throw getSelfDX_Code();
        if (mustLearnLogFileFormInjectors(injectorStart, mask) && !learnLogFileFormInjectors(injectorStart))
            throw getSelfDX_Code();
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 67);
    }
    if (!isSelfSatisfied())
        Zarn_TRACE(L"ZarnData::learnLogFileForm (%lu) caught exception #%d.\n", static_cast<DWORD>(mask),
                   getSelfDX_Code());
    return isSelfSatisfied();
}

bool ZarnData::learnLogFileFormSectionsRaw(long& injectorStart, long& headStart, size_t& headLength, long& bodyStart,
                                           size_t& bodyLength, long& tailStart, size_t& tailLength)
{
    injectorStart = -1;
    headStart = -1;
    bodyStart = -1;
    tailStart = -1;
    headLength = 0;
    bodyLength = 0;
    tailLength = 0;
    wchar_t* keywordInjector = nullptr;
    wchar_t* keywordHead = nullptr;
    wchar_t* keywordBody = nullptr;
    wchar_t* keywordTail = nullptr;
    wchar_t* const text = m_scratchpad.m_scratchA;
    try {
        m_scratchpad.setMemberVarsToDefaults(1, 8);
        if (loadStringCopy(m_selfResourceModule, kKeywordInjectorID, text, ZarnScratchpad::kCharacters,
                           &keywordInjector)
            < 1)
            throw 181;
        if (loadStringCopy(m_selfResourceModule, kKeywordHeadID, text, ZarnScratchpad::kCharacters, &keywordHead) < 1)
            throw 180;
        if (loadStringCopy(m_selfResourceModule, kKeywordBodyID, text, ZarnScratchpad::kCharacters, &keywordBody) < 1)
            throw 179;
        if (loadStringCopy(m_selfResourceModule, kKeywordTailID, text, ZarnScratchpad::kCharacters, &keywordTail) < 1)
            throw 182;
        // Markers compare with regard to case; keywords that differ by case alone would still confuse a reader.
        const wchar_t* const keywords[] = {keywordInjector, keywordHead, keywordBody, keywordTail};
        for (size_t first = 0; first < 4; ++first) {
            for (size_t second = first + 1; second < 4; ++second) {
                if (_wcsicmp(keywords[first], keywords[second]) == 0)
                    throw 183;
            }
        }

        QTextStream* const stream = m_fileLog.m_formStream;
        if (stream == nullptr)
            throw 102;
        stream->seek(0);
        for (;;) {
            const QString line = stream->readLine(kFormLineCharacters);
            if (line.isNull())
                break;
            std::wmemset(text, 0, ZarnScratchpad::kCharacters);
            const int kept = std::min(line.size(), ZarnScratchpad::kCharacters - 1);
            line.left(kept).toWCharArray(text);
            const long pos = static_cast<long>(stream->pos());

            // "^" alone is text; a marker is the marker character and a word.
            const bool isMarker = text[0] == m_fileLog.m_formMarker && text[1] != L'\0';
            if (!isMarker) {
                if (injectorStart != -1 && headStart == -1)
                    continue; // the injector block, read by the injectors themselves
                if (tailStart != -1)
                    tailLength = static_cast<size_t>(pos - tailStart);
                else if (bodyStart != -1)
                    bodyLength = static_cast<size_t>(pos - bodyStart);
                else if (headStart != -1)
                    headLength = static_cast<size_t>(pos - headStart);
                continue;
            }

            const wchar_t* const word = text + 1;
            if (injectorStart == -1 && std::wcscmp(word, keywordInjector) == 0) {
                if (headStart != -1 || bodyStart != -1 || tailStart != -1)
                    throw 110;
                injectorStart = pos;
                if (injectorStart == -1)
                    throw 105;
            } else if (headStart == -1 && std::wcscmp(word, keywordHead) == 0) {
                if (bodyStart != -1 || tailStart != -1)
                    throw 109;
                headStart = pos;
                if (headStart == -1)
                    throw 104;
            } else if (bodyStart == -1 && std::wcscmp(word, keywordBody) == 0) {
                if (headStart == -1 || tailStart != -1)
                    throw 108;
                bodyStart = pos;
                if (bodyStart == -1)
                    throw 103;
            } else if (tailStart != -1 || std::wcscmp(word, keywordTail) != 0) {
                throw 107; // unknown, or repeated
            } else if (headStart == -1 || bodyStart == -1) {
                throw 111;
            } else {
                tailStart = pos;
                if (tailStart == -1)
                    throw 106;
            }
        }
        if (!stream->atEnd())
            throw 112;
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 102);
    }
    delete[] keywordInjector;
    delete[] keywordHead;
    delete[] keywordBody;
    delete[] keywordTail;
    m_scratchpad.setMemberVarsToDefaults(1, 8);
    return isSelfSatisfied();
}

bool ZarnData::learnLogFileFormSectionsFinished(long headStart, size_t headLength, long bodyStart, size_t bodyLength,
                                                long tailStart, size_t tailLength, unsigned long mask)
{
    ZarnDataFile& file = m_fileLog;
    wchar_t* buffer = nullptr;
    try {
        const size_t largest = std::max({headLength, bodyLength, tailLength});
        if (largest == 0)
            throw 101;
        file.m_formIsBuiltIn = false;
        const size_t bufferLength = largest + 1;
        buffer = new (std::nothrow) wchar_t[bufferLength]();
        if (buffer == nullptr)
            throw 100;
        if ((mask & SECTION_HEAD) != 0 && headLength > 0
            && !learnLogFileFormSectionFinished(headStart, headLength, buffer, bufferLength, &file.m_headFormat,
                                                file.m_headVarCount, &file.m_headVars, &file.m_headValues,
                                                &file.m_headHasEntryId))
            throw getSelfDX_Code();
        if ((mask & SECTION_BODY) != 0) {
            if (bodyLength == 0)
                throw 99;
            if (!learnLogFileFormSectionFinished(bodyStart, bodyLength, buffer, bufferLength, &file.m_bodyFormat,
                                                 file.m_bodyVarCount, &file.m_bodyVars, &file.m_bodyValues, nullptr))
                throw getSelfDX_Code();
        }
        if ((mask & SECTION_TAIL) != 0 && tailLength > 0
            && !learnLogFileFormSectionFinished(tailStart, tailLength, buffer, bufferLength, &file.m_tailFormat,
                                                file.m_tailVarCount, &file.m_tailVars, &file.m_tailValues,
                                                &file.m_tailHasEntryId))
            throw getSelfDX_Code();
        if (!areLogFileFormSectionsUsable(mask, file.m_logKind))
            throw getSelfDX_Code();
        file.m_formIsBuiltIn = false;
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 98);
    }
    if (!isSelfSatisfied())
        Zarn_TRACE(L"ZarnData::learnLogFileFormSectionsFinished (%ld, %u, %ld, %u, %ld, %u, %lu) [1] caught "
                   L"exception #%d.\n",
                   static_cast<LONG>(headStart), static_cast<unsigned>(headLength), static_cast<LONG>(bodyStart),
                   static_cast<unsigned>(bodyLength), static_cast<LONG>(tailStart), static_cast<unsigned>(tailLength),
                   static_cast<DWORD>(mask), getSelfDX_Code());
    delete[] buffer;
    return isSelfSatisfied();
}

bool ZarnData::learnLogFileFormSectionsFinished(unsigned long mask, Zarn_LOG kind)
{
    ZarnDataFile& file = m_fileLog;
    try {
        if (kind == Zarn_LOG_UNSET)
            kind = Zarn_LOG_HTML;
        file.m_formIsBuiltIn = false;
        BuiltInFormIDs ids = {0, 0, 0};
        if (kind == Zarn_LOG_HTML)
            ids = kBuiltInFormHTML;
        else if (kind == Zarn_LOG_TEXT)
            ids = kBuiltInFormText;
        if ((mask & SECTION_HEAD) != 0
            && !learnLogFileFormSectionFinished(ids.head, &file.m_headFormat, file.m_headVarCount, &file.m_headVars,
                                                &file.m_headValues, &file.m_headHasEntryId))
            throw getSelfDX_Code();
        if ((mask & SECTION_BODY) != 0
            && !learnLogFileFormSectionFinished(ids.body, &file.m_bodyFormat, file.m_bodyVarCount, &file.m_bodyVars,
                                                &file.m_bodyValues, nullptr))
            throw getSelfDX_Code();
        if ((mask & SECTION_TAIL) != 0
            && !learnLogFileFormSectionFinished(ids.tail, &file.m_tailFormat, file.m_tailVarCount, &file.m_tailVars,
                                                &file.m_tailValues, &file.m_tailHasEntryId))
            throw getSelfDX_Code();
        if (!areLogFileFormSectionsUsable(mask, kind))
            throw getSelfDX_Code();
        file.m_formIsBuiltIn = true;
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 98);
    }
    if (!isSelfSatisfied())
        Zarn_TRACE(L"ZarnData::learnLogFileFormSectionsFinished (%lu, %d) [2] caught exception #%d.\n",
                   static_cast<DWORD>(mask), static_cast<int>(kind), getSelfDX_Code());
    return isSelfSatisfied();
}

bool ZarnData::learnLogFileFormSectionFinished(long start, size_t length, wchar_t* buffer, size_t bufferLength,
                                               wchar_t** format, int& varCount, Zarn_FORM_VAR** vars,
                                               unsigned long long** values, bool* hasEntryId)
{
    if (length == 0)
        return isSelfSatisfied();
    try {
        QTextStream* const stream = m_fileLog.m_formStream;
        if (stream == nullptr || start < 0 || buffer == nullptr || format == nullptr || length >= bufferLength)
            throw 95;
        if (!stream->seek(start))
            throw 97;
        if (buffer[0] != L'\0')
            zeroFirstHalf(buffer, bufferLength);
        // One byte at a time, white space included.
        for (size_t index = 0; index < length; ++index) {
            char byte = 0;
            *stream >> byte;
            buffer[index] = widenFormByte(byte);
        }
        delete[] *format;
        *format = nullptr;
        *format = new (std::nothrow) wchar_t[length + 1];
        if (*format == nullptr)
            throw 94;
        std::wmemcpy(*format, buffer, length);
        (*format)[length] = L'\0';
        if (!learnLogFileFormSectionFinishedBasic(format, varCount, vars, values, hasEntryId))
            throw getSelfDX_Code();
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 93);
    }
    if (!isSelfSatisfied() && format != nullptr) {
        delete[] *format;
        *format = nullptr;
    }
    if (buffer != nullptr && buffer[0] != L'\0')
        zeroFirstHalf(buffer, bufferLength);
    return isSelfSatisfied();
}

bool ZarnData::learnLogFileFormSectionFinished(unsigned int stringId, wchar_t** format, int& varCount,
                                               Zarn_FORM_VAR** vars, unsigned long long** values, bool* hasEntryId)
{
    try {
        if (format == nullptr)
            throw 95;
        const int length = loadStringCopy(m_selfResourceModule, stringId, m_scratchpad.m_scratchA,
                                          ZarnScratchpad::kCharacters, format);
        if (length == -1)
            throw 94;
        if (length == 0) { // an empty section
            delete[] *format;
            *format = nullptr;
        } else if (!learnLogFileFormSectionFinishedBasic(format, varCount, vars, values, hasEntryId)) {
            throw getSelfDX_Code();
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 93);
    }
    if (!isSelfSatisfied() && format != nullptr) {
        delete[] *format;
        *format = nullptr;
    }
    return isSelfSatisfied();
}

bool ZarnData::learnLogFileFormSectionFinishedBasic(wchar_t** format, int& varCount, Zarn_FORM_VAR** vars,
                                                    unsigned long long** values, bool* hasEntryId)
{
    try {
        if (hasEntryId != nullptr)
            *hasEntryId = false;
        if (!composeLogFileFormSectionFormat(format, varCount, vars, values))
            throw getSelfDX_Code();
        if (hasEntryId != nullptr && vars != nullptr && *vars != nullptr)
            *hasEntryId = isVarInLogFileFormSection(Zarn_FORM_VAR_ENTRY_ID, varCount, *vars);
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 93);
    }
    if (!isSelfSatisfied() && hasEntryId != nullptr)
        *hasEntryId = false;
    return isSelfSatisfied();
}

bool ZarnData::areLogFileFormSectionsUsable(unsigned long mask, Zarn_LOG kind)
{
    const ZarnDataFile& file = m_fileLog;
    try {
        if ((mask & SECTION_BODY) != 0) {
            if (file.m_bodyFormat == nullptr || file.m_bodyFormat[0] == L'\0')
                throw 154;
            // A body must carry the description, or the log would say nothing.
            if (!isVarInLogFileFormSection(Zarn_FORM_VAR_SITUATION_DSCRP, file.m_bodyVarCount, file.m_bodyVars))
                throw 146;
        }
        if (kind == Zarn_LOG_UNSET)
            kind = Zarn_LOG_HTML;
        if (kind != Zarn_LOG_HTML)
            throw 206;
        if ((mask & SECTION_HEAD) != 0 && (file.m_headFormat == nullptr || file.m_headFormat[0] == L'\0'))
            throw 164;
        if ((mask & SECTION_TAIL) != 0 && (file.m_tailFormat == nullptr || file.m_tailFormat[0] == L'\0'))
            throw 197;
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 205);
    }
    if (!isSelfSatisfied())
        Zarn_TRACE(L"ZarnData::areLogFileFormSectionsUsable (%lu, %d) caught exception #%d.\n",
                   static_cast<DWORD>(mask), static_cast<int>(kind), getSelfDX_Code());
    return isSelfSatisfied();
}

bool ZarnData::supplantLogFileFormFromResDLL(unsigned long mask)
{
    for (int index = 0; index < ZarnDataFile::kInjectorsQty; ++index)
        eliminateLogFileFormInjector(index);
    freeLogFileFormDataForSections();
    learnLogFileFormSectionsFinished(mask, m_fileLog.m_logKind);
    return isSelfSatisfied();
}

void ZarnData::freeLogFileFormDataForSections()
{
    ZarnDataFile& file = m_fileLog;
    free_Array(file.m_bodyFormat);
    free_Array(file.m_bodyVars);
    free_Array(file.m_bodyValues);
    free_Array(file.m_headVars);
    free_Array(file.m_headValues);
    free_Array(file.m_headFormat);
    free_Array(file.m_tailVars);
    free_Array(file.m_tailValues);
    free_Array(file.m_tailFormat);
    file.m_formIsBuiltIn = false;
    file.m_headHasEntryId = false;
    file.m_tailHasEntryId = false;
    file.m_bodyVarCount = 0;
    file.m_headVarCount = 0;
    file.m_tailVarCount = 0;
    file.m_tailPosition = 0;
}

void ZarnData::freeLogFileFormData()
{
    ZarnDataFile& file = m_fileLog;
    if (file.m_injectorStreams != nullptr) {
        // A stream goes before the file it reads.
        for (int index = 0; index < ZarnDataFile::kInjectorsQty; ++index)
            delete file.m_injectorStreams[index];
        free_Array(file.m_injectorStreams);
    }
    delete[] file.m_injectorFiles; // removes the temporary files from the disk
    file.m_injectorFiles = nullptr;
    if (file.m_varNames != nullptr) {
        for (int index = 0; index < file.m_varNamesQty; ++index)
            delete[] file.m_varNames[index];
        free_Array(file.m_varNames);
    }
    file.m_varNamesQty = Zarn_FORM_VAR_Qty;
    freeLogFileFormDataForSections();
}

void ZarnData::freeLogFileFormSectionHeadData()
{
    ZarnDataFile& file = m_fileLog;
    file.m_headVarCount = 0;
    file.m_headHasEntryId = false;
    free_Array(file.m_headVars);
    free_Array(file.m_headValues);
    free_Array(file.m_headFormat);
    if (file.m_injectorStreams == nullptr)
        return;
    // An injector is kept only while the body or the tail still shows its text.
    bool anyRemains = false;
    for (int index = 0; index < ZarnDataFile::kInjectorsQty; ++index) {
        if (file.m_injectorStreams[index] == nullptr)
            continue;
        const auto var = static_cast<Zarn_FORM_VAR>(Zarn_FORM_VAR_SYS_INFO_ENV_APP + index);
        if (!isVarInLogFileFormSection(var, file.m_bodyVarCount, file.m_bodyVars)
            && !isVarInLogFileFormSection(var, file.m_tailVarCount, file.m_tailVars))
            eliminateLogFileFormInjector(index);
        else
            anyRemains = true;
    }
    if (!anyRemains) {
        free_Array(file.m_injectorStreams);
        free_Array(file.m_injectorFiles);
    }
}
