// The stages of ZarnDataForThread that fetch a situation's response spec and parse its header.
//
// A spec is cut at the field separator (|) into header, display description and log description;
// the header at the group separator (~) into approval kind, response traits, argument source,
// fillers and plug-in IDs; fillers and plug-in IDs at the record separator (the backtick). The
// tokeniser destroys what it cuts, so each parser counts on one copy and cuts another. Each parser
// leaves its own products empty when it fails.
#include "monitor/ZarnDataForThread.h"

#include "foundation/UTL_String.h"
#include "monitor/ZarnData.h"
#include "monitor/ZarnDecimal.h"
#include "monitor/ZarnFixedText.h"
#include "monitor/ZarnTokenizer.h"

#include <climits>
#include <cstdint>
#include <cwchar>

namespace {

constexpr std::size_t kScratchCharacters = ZarnScratchpad::kCharacters;
constexpr int kSpecFieldsQty = 3;
constexpr int kHeaderGroupsQty_Min = 2;
constexpr int kHeaderGroupsQty_Max = 5;

// The tokeniser's state, set for the first call.
struct TokenCursor
{
    std::size_t start = 0;
    std::size_t position = 0;
    std::size_t length = static_cast<std::size_t>(-1);

    wchar_t* next(wchar_t* text, const wchar_t* separator) { return nextToken(text, separator, start, position, length); }
};

// Zeroes a whole buffer. After a cut in place the first character may be zero with text behind
// it, so testing the first character is not enough.
void zeroText(wchar_t* buffer, std::size_t characters)
{
    std::wmemset(buffer, 0, characters);
}

wchar_t* findFirstDigit(wchar_t* text)
{
    for (; *text != L'\0'; ++text) {
        if (isZarnDecimalDigit(*text))
            return text;
    }
    return nullptr;
}

wchar_t* findFirstDigitOrMinus(wchar_t* text)
{
    for (; *text != L'\0'; ++text) {
        if (isZarnDecimalDigit(*text) || *text == L'-')
            return text;
    }
    return nullptr;
}

// The number written by the run of digits at `digits` (none reads as 0, whatever follows is
// ignored). A number above `maximum` raises `failureCode`: each step that reads a number names
// the code its overflow stands for.
u64 readDecimalOrRaise(const wchar_t* digits, u64 maximum, int failureCode)
{
    u64 value = 0;
    for (; isZarnDecimalDigit(*digits); ++digits) {
        const u64 digit = static_cast<u64>(*digits - L'0');
        if (value > (maximum - digit) / 10)
            throw failureCode;
        value = value * 10 + digit;
    }
    return value;
}

// The spec whose string ID is the situation's number, cut to what scratch A holds. A module that
// exports ZRLoadStringW serves it from there, else from its string table. Any failure is 255.
UTL_String loadResponseSpec(HMODULE module, int situationID)
{
    try {
        return UTL_String(module, static_cast<unsigned>(situationID), static_cast<unsigned>(kScratchCharacters));
    } catch (...) {
        throw 255;
    }
}

// A string argument as an insert: the pointer itself, which the formatter reads as %n!s!.
template <class Character>
u64 fillerOfString(const Character* text)
{
    return static_cast<u64>(reinterpret_cast<std::uintptr_t>(text));
}

} // namespace

bool ZarnDataForThread::obtainResponseSpecs()
{
    ZarnTokenSeparatorKeeper separator(m_tokenSeparator);
    wchar_t* const scratchA = m_scratchpad.m_scratchA;
    wchar_t* const scratchB = m_scratchpad.m_scratchB;
    try {
        passGuards();
        zeroText(scratchA, kScratchCharacters);
        zeroText(scratchB, kScratchCharacters);
        zeroText(m_responseSpecHeader, kHeaderCharacters);
        zeroText(m_descriptionForDisplay, kDisplayCharacters);
        zeroText(m_descriptionForLogFile, kLogFileCharacters);
        separator.use(m_dataSet->getResStrTokenSepField());

        const UTL_String spec = loadResponseSpec(m_dataSet->getResourceModule(), m_situationID);
        const wchar_t* const specText = spec.wideText();
        if (!copyZarnFixedText(scratchA, kScratchCharacters, specText))
            throw 256;

        int fields = 0;
        if (!copyZarnFixedText(scratchB, kScratchCharacters, specText)
            || !countTokens(scratchB, m_tokenSeparator, fields, kSpecFieldsQty) || fields != kSpecFieldsQty)
            throw 261;
        zeroText(scratchB, kScratchCharacters);

        TokenCursor cursor;
        int field = 0;
        for (wchar_t* token = cursor.next(scratchA, m_tokenSeparator); token != nullptr;
             token = cursor.next(scratchA, m_tokenSeparator), ++field) {
            switch (field) {
            case 0:
                if (!copyZarnFixedText(m_responseSpecHeader, kHeaderCharacters, token) || m_responseSpecHeader[0] == L'\0')
                    throw 259;
                break;
            case 1: // an empty display description shows nothing
                if (!copyZarnFixedText(m_descriptionForDisplay, kDisplayCharacters, token))
                    throw 258;
                break;
            case 2:
                if (!copyZarnFixedText(m_descriptionForLogFile, kLogFileCharacters, token)
                    || m_descriptionForLogFile[0] == L'\0')
                    throw 260;
                break;
            default:
                throw 257;
            }
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 254);
    }
    if (!isSelfSatisfied()) {
        zeroText(m_responseSpecHeader, kHeaderCharacters);
        zeroText(m_descriptionForDisplay, kDisplayCharacters);
        zeroText(m_descriptionForLogFile, kLogFileCharacters);
    }
    zeroText(scratchA, kScratchCharacters);
    zeroText(scratchB, kScratchCharacters);
    return isSelfSatisfied();
}

bool ZarnDataForThread::parseResponseSpecHeader(u64* fillerStrings)
{
    ZarnTokenSeparatorKeeper separator(m_tokenSeparator);
    wchar_t* const scratchA = m_scratchpad.m_scratchA;
    try {
        passGuards();
        // Dormant: nothing here raises the strictness, but a subclass may.
        if (m_specStrictness >= 6 && m_responseSpecHeader[0] == L'\0')
            throw 235;
        separator.use(m_dataSet->getResStrTokenSepGroup());
        forgetPlugInsIndirectIndices();
        m_argSource = 0;

        int groups = 0;
        if (!copyZarnFixedText(scratchA, kScratchCharacters, m_responseSpecHeader)
            || !countTokens(scratchA, m_tokenSeparator, groups, kHeaderGroupsQty_Max) || groups < kHeaderGroupsQty_Min)
            throw 244;

        // The header itself is cut. The source (group 2) is read before the fillers (group 3),
        // which depend on it.
        TokenCursor cursor;
        for (int group = 0; group < groups; ++group) {
            wchar_t* const token = cursor.next(m_responseSpecHeader, m_tokenSeparator);
            if (token == nullptr)
                break;
            switch (group) {
            case 0: {
                // A minus in front is not seen: "-1" is kind 1.
                const wchar_t* const digits = findFirstDigit(token);
                if (digits == nullptr)
                    throw 251;
                const u64 kind = readDecimalOrRaise(digits, INT_MAX, 252);
                if (kind != 1 && kind != 2)
                    throw 252;
                m_situationApprovalKind = static_cast<unsigned int>(kind);
                break;
            }
            case 1: {
                const wchar_t* const number = findFirstDigitOrMinus(token);
                if (number == nullptr)
                    throw 234;
                const bool negative = *number == L'-';
                const u64 magnitude = readDecimalOrRaise(number + (negative ? 1 : 0), UINT64_MAX, 234);
                // A minus wraps, as in any unsigned conversion: -1 sets every bit.
                m_situationResponseTraits = negative ? u64(0) - magnitude : magnitude;
                break;
            }
            case 2: {
                m_argSource = 0;
                const wchar_t* const digits = findFirstDigit(token);
                if (digits != nullptr) {
                    const u64 source = readDecimalOrRaise(digits, INT_MAX, 242);
                    if (source > 2)
                        throw 242;
                    m_argSource = static_cast<int>(source);
                }
                break;
            }
            case 3:
                if (!parseResponseSpecHeaderFillers(fillerStrings, skipWhitespace(token)))
                    throw getSelfDX_Code();
                break;
            case 4:
                if (!parseResponseSpecHeaderPlugInIDs(token))
                    throw getSelfDX_Code();
                break;
            default:
                throw 243;
            }
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 233);
    }
    if (!isSelfSatisfied())
        zeroText(m_responseSpecHeader, kHeaderCharacters);
    zeroText(scratchA, kScratchCharacters);
    return isSelfSatisfied();
}

bool ZarnDataForThread::parseResponseSpecHeaderFillers(u64* fillerStrings, wchar_t* const text)
{
    // No fillers named: the situation's fillers stay as they are.
    if (text == nullptr || text[0] == L'\0')
        return isSelfSatisfied();

    ZarnTokenSeparatorKeeper separator(m_tokenSeparator);
    wchar_t* const scratchA = m_scratchpad.m_scratchA;
    try {
        passGuards();
        if (m_argSource != 1 && m_argSource != 2)
            throw 242;
        if (m_argSource == 2 && m_descriptionArgV.isEmpty())
            throw 237;
        separator.use(m_dataSet->getResStrTokenSepRecord());
        forgetDescriptionFillers();

        const int fillersQty = m_dataSet->getDescriptionFillersQty();
        int records = 0;
        if (!copyZarnFixedText(scratchA, kScratchCharacters, text)
            || !countTokens(scratchA, m_tokenSeparator, records, fillersQty) || records > fillersQty)
            throw 238;
        if (m_descriptionFillers == nullptr)
            throw 236; // no array to fill: the stage's own code

        copyZarnFixedText(scratchA, kScratchCharacters, text);
        // Narrow string fillers are also handed back to a caller that asks for them.
        const bool collecting = fillerStrings != nullptr && m_dataSet->getCharSetExternal() != 2;
        int stringsCollected = 0;
        TokenCursor cursor;
        for (int index = 0; index < records; ++index) {
            wchar_t* const record = cursor.next(scratchA, m_tokenSeparator);
            if (record == nullptr)
                break;
            u64 filler = 0;
            bool isString = false;
            if (m_argSource == 1) {
                // A letter and the slot of a recorded argument, as in u0 or s2.
                wchar_t* const digits = findFirstDigit(record);
                if (digits == nullptr)
                    throw 239;
                const i64 slot = static_cast<i64>(readDecimalOrRaise(digits, INT_MAX, 240));
                *digits = L'\0';
                if (std::wcscmp(record, L"d") == 0) {
                    if (slot >= m_dataSet->getArgsIntQty() || m_argsInt == nullptr)
                        throw 240;
                    filler = static_cast<u64>(static_cast<i64>(m_argsInt[slot]));
                } else if (std::wcscmp(record, L"s") == 0) {
                    if (slot >= m_dataSet->getArgsStrQty() || (m_argsStrA == nullptr && m_argsStrW == nullptr))
                        throw 240;
                    filler = m_argsStrA != nullptr ? fillerOfString(m_argsStrA[slot]) : fillerOfString(m_argsStrW[slot]);
                    isString = true;
                } else if (std::wcscmp(record, L"u") == 0) {
                    if (slot >= m_dataSet->getArgsUIntQty() || m_argsUInt == nullptr)
                        throw 240;
                    filler = static_cast<u64>(m_argsUInt[slot]);
                } else {
                    throw 241;
                }
            } else {
                // One letter, which takes the next 8-byte slot of the caller's cursor and moves it.
                const wchar_t letter = record[0] != L'\0' && record[1] == L'\0' ? record[0] : L'\0';
                switch (letter) {
                case L'd':
                    filler = m_descriptionArgV.nextSigned();
                    break;
                case L'u':
                    filler = m_descriptionArgV.nextUnsigned();
                    break;
                case L's':
                    filler = m_descriptionArgV.nextString();
                    isString = true;
                    break;
                default:
                    throw 241;
                }
            }
            m_descriptionFillers[index] = filler;
            if (isString && collecting)
                fillerStrings[stringsCollected++] = filler;
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 236);
    }
    if (!isSelfSatisfied())
        forgetDescriptionFillers();
    zeroText(scratchA, kScratchCharacters);
    return isSelfSatisfied();
}

bool ZarnDataForThread::parseResponseSpecHeaderPlugInIDs(wchar_t* const text)
{
    if (text == nullptr || text[0] == L'\0')
        return isSelfSatisfied();

    ZarnTokenSeparatorKeeper separator(m_tokenSeparator);
    wchar_t* const scratchA = m_scratchpad.m_scratchA;
    try {
        passGuards();
        if (m_plugInsIndirectIndices == nullptr)
            throw 250;
        separator.use(m_dataSet->getResStrTokenSepRecord());
        forgetPlugInsIndirectIndices();

        const int plugInsQty = m_dataSet->getPlugInsQty();
        int records = 0;
        if (!copyZarnFixedText(scratchA, kScratchCharacters, text)
            || !countTokens(scratchA, m_tokenSeparator, records, plugInsQty) || records > plugInsQty)
            throw 249;

        copyZarnFixedText(scratchA, kScratchCharacters, text);
        TokenCursor cursor;
        int stored = 0;
        while (stored < records) {
            wchar_t* const record = cursor.next(scratchA, m_tokenSeparator);
            if (record == nullptr)
                break;
            const wchar_t* const digits = findFirstDigit(record);
            if (digits == nullptr)
                throw 246;
            const i64 plugIn = static_cast<i64>(readDecimalOrRaise(digits, INT_MAX, 247));
            if (plugIn >= plugInsQty)
                throw 247;
            // A plug-in runs once per situation.
            for (int earlier = 0; earlier < stored; ++earlier) {
                if (m_plugInsIndirectIndices[earlier] == plugIn)
                    throw 245;
            }
            m_plugInsIndirectIndices[stored++] = static_cast<int>(plugIn);
        }
        m_plugInsIndirectQty = stored;
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 248);
    }
    if (!isSelfSatisfied())
        forgetPlugInsIndirectIndices();
    zeroText(scratchA, kScratchCharacters);
    return isSelfSatisfied();
}
