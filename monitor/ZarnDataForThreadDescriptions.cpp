// The stages of ZarnDataForThread that parse the description specs into message templates, and
// fill those templates with the situation's inserts.
//
// A description is cut at the group separator (~) into a dialog spec and a message format, and a
// message format at the record separator (the backtick) into line width, prefix affix, message
// text and suffix affix. The tokeniser destroys what it cuts, so every parser counts on one copy
// and cuts another. Each parser leaves its target empty, with its defaults back, when it fails.
#include "monitor/ZarnDataForThread.h"

#include "foundation/UTL_String.h"
#include "monitor/Zarn.h"
#include "monitor/ZarnData.h"
#include "monitor/ZarnDecimal.h"
#include "monitor/ZarnFixedText.h"
#include "monitor/ZarnTokenizer.h"
#include "platform/LastError.h"

#include <cstring>
#include <cwchar>
#include <cwctype>

namespace {

constexpr u8 kNoDataSetDisplayLineWd = 67;
constexpr u8 kNoDataSetLogFileLineWd = 0;
constexpr int kLineWd_Max = 255;
constexpr unsigned long kFormatFlags = 0x2400; // the text is the source; inserts are an array of 64-bit slots

// Zeroes a whole buffer. A text that was cut in place may have its first character zeroed and
// the rest still standing, so "clear if not empty" is not enough after a cut.
void zeroText(wchar_t* buffer, unsigned long bytes)
{
    if (buffer != nullptr)
        std::memset(buffer, 0, bytes);
}

std::size_t charactersOf(unsigned long bytes)
{
    return bytes / sizeof(wchar_t);
}

// The tokeniser's state, set for the first call.
struct TokenCursor
{
    std::size_t start = 0;
    std::size_t position = 0;
    std::size_t length = static_cast<std::size_t>(-1);

    wchar_t* next(wchar_t* text, const wchar_t* separator) { return nextToken(text, separator, start, position, length); }
};

} // namespace

bool ZarnDataForThread::parseDescriptionSpecLogFile()
{
    ZarnTokenSeparatorKeeper separator(m_tokenSeparator);
    wchar_t* const scratchA = m_scratchpad.m_scratchA;
    wchar_t* const scratchB = m_scratchpad.m_scratchB;
    try {
        passGuards();
        ZarnScratchpad::clearIfNotEmpty(scratchA, m_scratchpad.m_scratchA_Bytes);
        ZarnScratchpad::clearIfNotEmpty(scratchB, m_scratchpad.m_scratchB_Bytes);
        separator.use(m_dataSet->getResStrTokenSepGroup());
        m_descriptionLogFileLineWd = m_dataSet->getDescriptionLogFileLineWd();

        // The log description is one group only: a ~ in it is refused.
        int groups = 0;
        if (!copyZarnFixedText(scratchA, charactersOf(m_scratchpad.m_scratchA_Bytes), m_descriptionForLogFile)
            || !countTokens(scratchA, m_tokenSeparator, groups, 1) || groups != 1)
            throw 29;

        if (!copyZarnFixedText(scratchB, charactersOf(m_scratchpad.m_scratchB_Bytes), m_descriptionForLogFile))
            throw 29;
        TokenCursor cursor;
        int index = 0;
        for (wchar_t* token = cursor.next(scratchB, m_tokenSeparator); token != nullptr;
             token = cursor.next(scratchB, m_tokenSeparator), ++index) {
            if (index != 0)
                throw 27;
            if (groups != 1)
                throw 28;
            if (!parseDescriptionSpec_MessageFormat(token, Zarn_MSG_FMT_LOGFILE, scratchA,
                                                    m_scratchpad.m_scratchA_Bytes))
                throw getSelfDX_Code();
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 25);
    }
    if (!isSelfSatisfied()) {
        zeroText(m_descriptionForLogFile, sizeof m_descriptionForLogFile);
        m_descriptionLogFileLineWd =
            m_dataSet != nullptr ? m_dataSet->getDescriptionLogFileLineWd() : kNoDataSetLogFileLineWd;
    }
    zeroText(scratchA, m_scratchpad.m_scratchA_Bytes);
    zeroText(scratchB, m_scratchpad.m_scratchB_Bytes);
    return isSelfSatisfied();
}

bool ZarnDataForThread::parseDescriptionSpecDisplay()
{
    // A monitor that may not respond shows nothing, and its display field is left as it came.
    if (m_dataSet != nullptr && m_dataSet->canRespondToSituations() != Zarn_FUZZY_YES)
        return isSelfSatisfied();

    ZarnTokenSeparatorKeeper separator(m_tokenSeparator);
    wchar_t* const scratchA = m_scratchpad.m_scratchA;
    wchar_t* const scratchB = m_scratchpad.m_scratchB;
    const auto resetDisplayFields = [this] {
        m_descriptionDisplayIsDupe = false;
        m_descriptionDisplayLineWd =
            m_dataSet != nullptr ? m_dataSet->getDescriptionDisplayLineWd() : kNoDataSetDisplayLineWd;
        m_displayDlgBoxSpecA = 0;
        m_displayDlgBoxSpecB = 0;
        m_displayDlgBoxType = kDefaultDisplayDlgBoxType;
    };
    try {
        passGuards();
        ZarnScratchpad::clearIfNotEmpty(scratchA, m_scratchpad.m_scratchA_Bytes);
        ZarnScratchpad::clearIfNotEmpty(scratchB, m_scratchpad.m_scratchB_Bytes);
        separator.use(m_dataSet->getResStrTokenSepGroup());
        resetDisplayFields();

        const wchar_t* const text = skipWhitespace(m_descriptionForDisplay);
        if (*text == L'\0') {
            // Nothing to show for this situation.
            zeroText(m_descriptionForDisplay, sizeof m_descriptionForDisplay);
        } else {
            int groups = 0;
            if (!copyZarnFixedText(scratchA, charactersOf(m_scratchpad.m_scratchA_Bytes), m_descriptionForDisplay)
                || !countTokens(scratchA, m_tokenSeparator, groups, 2) || groups > 2)
                throw 24;
            // The dupe form, "&" alone or before white space, shows the log text in the dialog;
            // the raw field keeps its text until formatting clears it.
            const wchar_t dupeOp = m_dataSet->getDescriptionDisplayDupeOp();
            if (groups == 1 && text[0] == dupeOp && (text[1] == L'\0' || std::iswspace(static_cast<wint_t>(text[1]))))
                m_descriptionDisplayIsDupe = true;
            else if (groups < 2)
                throw 24;

            if (!m_descriptionDisplayIsDupe) {
                if (!copyZarnFixedText(scratchB, charactersOf(m_scratchpad.m_scratchB_Bytes), m_descriptionForDisplay))
                    throw 24;
                TokenCursor cursor;
                int index = 0;
                for (wchar_t* token = cursor.next(scratchB, m_tokenSeparator); token != nullptr;
                     token = cursor.next(scratchB, m_tokenSeparator), ++index) {
                    if (index == 0) {
                        if (!parseDescriptionSpecDisplayDlgBox(skipWhitespace(token)))
                            throw getSelfDX_Code();
                    } else if (index == 1) {
                        if (groups != 2)
                            throw 23;
                        if (!parseDescriptionSpec_MessageFormat(token, Zarn_MSG_FMT_DISPLAY, scratchA,
                                                                m_scratchpad.m_scratchA_Bytes))
                            throw getSelfDX_Code();
                        break;
                    } else {
                        throw 22;
                    }
                }
            }
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 11);
    }
    if (!isSelfSatisfied()) {
        zeroText(m_descriptionForDisplay, sizeof m_descriptionForDisplay);
        resetDisplayFields();
    }
    zeroText(scratchA, m_scratchpad.m_scratchA_Bytes);
    zeroText(scratchB, m_scratchpad.m_scratchB_Bytes);
    return isSelfSatisfied();
}

bool ZarnDataForThread::parseDescriptionSpecDisplayDlgBox(wchar_t* const text)
{
    if (text == nullptr || *text == L'\0')
        return isSelfSatisfied();

    ZarnTokenSeparatorKeeper separator(m_tokenSeparator);
    wchar_t* const scratchA = m_scratchpad.m_scratchA;
    const auto resetDlgBoxFields = [this] {
        m_displayDlgBoxType = kDefaultDisplayDlgBoxType;
        m_displayDlgBoxSpecB = 0;
        m_displayDlgBoxSpecA = 0;
    };
    try {
        passGuards();
        ZarnScratchpad::clearIfNotEmpty(scratchA, m_scratchpad.m_scratchA_Bytes);
        separator.use(m_dataSet->getResStrTokenSepRecord());
        resetDlgBoxFields();

        const std::size_t characters = charactersOf(m_scratchpad.m_scratchA_Bytes);
        int records = 0;
        if (!copyZarnFixedText(scratchA, characters, text) || !countTokens(scratchA, m_tokenSeparator, records, 3)
            || records < 0 || records > 3)
            throw 13;

        copyZarnFixedText(scratchA, characters, text);
        // Per record: the code for a record that does not start with a digit, and its field. A
        // blank record keeps the field's default.
        struct Record
        {
            int notADigit;
            int* field;
        };
        int type = static_cast<int>(kDefaultDisplayDlgBoxType);
        const Record fields[] = {{19, &type}, {17, &m_displayDlgBoxSpecB}, {15, &m_displayDlgBoxSpecA}};
        TokenCursor cursor;
        int index = 0;
        for (wchar_t* token = cursor.next(scratchA, m_tokenSeparator); token != nullptr;
             token = cursor.next(scratchA, m_tokenSeparator), ++index) {
            if (index > 2)
                throw 14;
            const wchar_t* const number = skipWhitespace(token);
            if (*number == L'\0')
                continue;
            if (!isZarnDecimalDigit(*number))
                throw fields[index].notADigit;
            // A number too large to read fails like any other fault of this parser.
            if (!readZarnDecimal(number, *fields[index].field))
                throw 12;
        }
        m_displayDlgBoxType = static_cast<unsigned int>(type);
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 12);
    }
    if (!isSelfSatisfied())
        resetDlgBoxFields();
    zeroText(scratchA, m_scratchpad.m_scratchA_Bytes);
    return isSelfSatisfied();
}

bool ZarnDataForThread::parseDescriptionSpec_MessageFormat(wchar_t* const text, Zarn_MSG_FMT format,
                                                           wchar_t* scratch, unsigned long scratchBytes)
{
    ZarnTokenSeparatorKeeper separator(m_tokenSeparator);
    // The target, its capacity and its width field, by the format.
    wchar_t* target = nullptr;
    std::size_t targetCharacters = 0;
    u8* lineWd = nullptr;
    if (format == Zarn_MSG_FMT_DISPLAY) {
        target = m_descriptionForDisplay;
        targetCharacters = kDisplayCharacters;
        lineWd = &m_descriptionDisplayLineWd;
    } else if (format == Zarn_MSG_FMT_LOGFILE) {
        target = m_descriptionForLogFile;
        targetCharacters = kLogFileCharacters;
        lineWd = &m_descriptionLogFileLineWd;
    }
    const auto defaultLineWd = [this, format] {
        if (m_dataSet == nullptr)
            return format == Zarn_MSG_FMT_DISPLAY ? kNoDataSetDisplayLineWd : kNoDataSetLogFileLineWd;
        return format == Zarn_MSG_FMT_DISPLAY ? m_dataSet->getDescriptionDisplayLineWd()
                                              : m_dataSet->getDescriptionLogFileLineWd();
    };
    try {
        passGuards();
        if (target == nullptr)
            throw 36;

        ZarnScratchpad::clearIfNotEmpty(scratch, scratchBytes);
        separator.use(m_dataSet->getResStrTokenSepRecord());
        zeroText(target, static_cast<unsigned long>(targetCharacters * sizeof(wchar_t)));
        *lineWd = defaultLineWd();

        // Width, prefix and text, and a suffix that may be left out.
        const std::size_t scratchCharacters = charactersOf(scratchBytes);
        int records = 0;
        if (!copyZarnFixedText(scratch, scratchCharacters, text)
            || !countTokens(scratch, m_tokenSeparator, records, 4) || records < 3 || records > 4)
            throw 41;

        copyZarnFixedText(scratch, scratchCharacters, text);
        TokenCursor cursor;
        int index = 0;
        for (wchar_t* token = cursor.next(scratch, m_tokenSeparator); token != nullptr;
             token = cursor.next(scratch, m_tokenSeparator), ++index) {
            switch (index) {
            case 0: {
                const wchar_t* const number = skipWhitespace(token);
                if (*number == L'\0')
                    break; // the default width stands
                if (!isZarnDecimalDigit(*number))
                    throw 38;
                int width = 0;
                if (!readZarnDecimal(number, width) || width > kLineWd_Max)
                    throw 39;
                *lineWd = static_cast<u8>(width);
                break;
            }
            case 1:
            case 3:
                if (*token != L'\0'
                    && !parseDescriptionSpec_MessageAffix(token, target, static_cast<u64>(targetCharacters)))
                    throw getSelfDX_Code();
                break;
            case 2:
                if (*token != L'\0' && !appendZarnFixedText(target, targetCharacters, token))
                    throw 37;
                break;
            default:
                throw 40;
            }
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 35);
    }
    if (!isSelfSatisfied() && target != nullptr) {
        zeroText(target, static_cast<unsigned long>(targetCharacters * sizeof(wchar_t)));
        *lineWd = defaultLineWd();
    }
    zeroText(scratch, scratchBytes);
    return isSelfSatisfied();
}

bool ZarnDataForThread::parseDescriptionSpec_MessageAffix(wchar_t* text, wchar_t* target, u64 targetCharacters)
{
    if (text == nullptr || *text == L'\0')
        return isSelfSatisfied();

    ZarnTokenSeparatorKeeper separator(m_tokenSeparator);
    try {
        passGuards();
        // Deliberately dormant: nothing sets the strictness above 0, and the test is kept for a
        // subclass that does.
        if (m_specStrictness > 5
            && (target == nullptr || targetCharacters == 0 || target[targetCharacters - 1] != L'\0'))
            throw 31;
        if (target == nullptr || targetCharacters == 0)
            throw 30; // no place to write to: a fault of the caller, not of the spec
        separator.use(m_dataSet->getResStrTokenSepRecord());

        // Affixes follow whatever the target holds already.
        std::size_t length = 0;
        while (length < targetCharacters && target[length] != L'\0')
            ++length;
        wchar_t* write = target + length;
        u64 room = targetCharacters - length;

        TokenCursor cursor;
        for (wchar_t* token = cursor.next(text, m_tokenSeparator); token != nullptr && *token != L'\0';
             token = cursor.next(text, m_tokenSeparator)) {
            if (!isZarnDecimalDigit(*token))
                throw 32;
            int affix = 0;
            if (!readZarnDecimal(token, affix) || affix >= m_dataSet->getDescriptionAffixIDsQty())
                throw 33;
            const unsigned int id = static_cast<unsigned int>(affix + m_dataSet->getDescriptionAffixID_Min());
            // Room for one character and the terminator at least; a text that does not fit is cut.
            if (room < 2)
                throw 34;
            u64 loaded = 0;
            try {
                const UTL_String affixText(m_dataSet->getResourceModule(), id, static_cast<unsigned int>(room));
                loaded = affixText.length();
                if (loaded >= room)
                    loaded = room - 1;
                std::wmemcpy(write, affixText.wideText(), static_cast<std::size_t>(loaded));
                write[loaded] = L'\0';
            } catch (...) {
                throw 34;
            }
            if (loaded == 0)
                throw 34;
            write += loaded;
            room -= loaded;
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 30);
    }
    if (!isSelfSatisfied() && target != nullptr && targetCharacters > 0 && *target != L'\0')
        zeroText(target, static_cast<unsigned long>(targetCharacters * sizeof(wchar_t)));
    return isSelfSatisfied();
}

bool ZarnDataForThread::formatDescriptionForDisplay()
{
    if (m_descriptionForDisplay[0] == L'\0')
        return isSelfSatisfied();
    if (m_descriptionDisplayIsDupe) {
        // The dialog shows the log text; the raw "&" is of no further use.
        zeroText(m_descriptionForDisplay, sizeof m_descriptionForDisplay);
        return isSelfSatisfied();
    }

    wchar_t* const scratchA = m_scratchpad.m_scratchA;
    try {
        passGuards();
        zeroText(scratchA, m_scratchpad.m_scratchA_Bytes);
        const int outputCharacters = static_cast<int>(charactersOf(m_scratchpad.m_scratchA_Bytes));
        const unsigned long count = Zarn::formatMessage(m_descriptionDisplayLineWd | kFormatFlags,
                                                        m_descriptionForDisplay, scratchA, outputCharacters,
                                                        m_descriptionFillers);
        if (count == 0)
            throw 50;
        zeroText(m_descriptionForDisplay, sizeof m_descriptionForDisplay);
        // A text longer than the display buffer is cut silently at its end.
        if (count >= static_cast<unsigned long>(kDisplayCharacters))
            scratchA[kDisplayCharacters - 1] = L'\0';
        copyZarnFixedText(m_descriptionForDisplay, kDisplayCharacters, scratchA);
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 48);
    }
    if (!isSelfSatisfied())
        zeroText(m_descriptionForDisplay, sizeof m_descriptionForDisplay);
    zeroText(scratchA, m_scratchpad.m_scratchA_Bytes);
    return isSelfSatisfied();
}

bool ZarnDataForThread::formatDescriptionForLogFile()
{
    SetLastError(0);
    if (m_descriptionForLogFile[0] == L'\0')
        return isSelfSatisfied();

    wchar_t* const scratchA = m_scratchpad.m_scratchA;
    try {
        passGuards();
        zeroText(scratchA, m_scratchpad.m_scratchA_Bytes);
        const int outputCharacters = static_cast<int>(charactersOf(m_scratchpad.m_scratchA_Bytes));
        const unsigned long count = Zarn::formatMessage(m_descriptionLogFileLineWd | kFormatFlags,
                                                        m_descriptionForLogFile, scratchA, outputCharacters,
                                                        m_descriptionFillers);
        if (count == 0)
            throw 53;
        zeroText(m_descriptionForLogFile, sizeof m_descriptionForLogFile);
        if (count >= static_cast<unsigned long>(kLogFileCharacters)) {
            scratchA[kLogFileCharacters - 1] = L'\0';
            SetLastError(0);
        }
        copyZarnFixedText(m_descriptionForLogFile, kLogFileCharacters, scratchA);
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 51);
    }
    if (!isSelfSatisfied())
        zeroText(m_descriptionForLogFile, sizeof m_descriptionForLogFile);
    zeroText(scratchA, m_scratchpad.m_scratchA_Bytes);
    return isSelfSatisfied();
}
