// Integers to and from text in the user's locale: digit groups and signs from localeconv.
#include "localize/ZarnLocalizeHelpers.h"

#include "platform/CRuntime.h"

#include <cctype>
#include <climits>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <cwchar>

namespace {

// Every number text is built in, or passes through, a local buffer of this many characters.
constexpr int kNumberTextQty = 64;

// A grouping byte that ends the grouping (CHAR_MAX in localeconv's terms).
constexpr int kNoMoreGroups = 127;

// The user's default locale, switched on for the whole process and left so; null if refused.
const lconv* learnUserLocale()
{
    if (std::setlocale(LC_ALL, "") == nullptr)
        return nullptr;
    return std::localeconv();
}

char firstCharOf(const char* text)
{
    return text != nullptr ? text[0] : '\0';
}

} // namespace

unsigned long long ZarnLocalizeHelpers::convertIntToPunctuatedStrA(long long value, char* buffer,
                                                                   unsigned long long capacity)
{
    if (buffer == nullptr || capacity < 2)
        return 0;
    std::memset(buffer, 0, capacity);

    const bool negative = value < 0;
    // Negated in unsigned arithmetic, so that the most negative value keeps all its digits.
    unsigned long long rest = negative ? 0ULL - static_cast<unsigned long long>(value)
                                       : static_cast<unsigned long long>(value);

    const lconv* conventions = learnUserLocale();
    if (conventions == nullptr)
        return 0;
    const char* grouping = conventions->grouping;
    const char separator = firstCharOf(conventions->thousands_sep);
    const char negativeSign = firstCharOf(conventions->negative_sign);

    int groupCounter = 0;
    if (grouping != nullptr && grouping[0] >= 0 && grouping[0] != kNoMoreGroups)
        groupCounter = grouping[0];

    // Filled from the right; the last position stays the terminator.
    char text[kNumberTextQty] = {};
    int position = kNumberTextQty - 2;
    bool full = false;
    for (;;) {
        text[position] = static_cast<char>('0' + rest % 10);
        rest /= 10;
        if (position == 0) {
            full = true;
            if (rest != 0)
                return 0;
            break;
        }
        if (rest == 0)
            break;
        --position;
        if (groupCounter < 1)
            continue;
        if (--groupCounter > 0)
            continue;
        text[position] = separator;
        if (position == 0)
            return 0;
        --position;
        // The last group size repeats: the step to the next byte stops before its terminator.
        if (grouping[0] != 0 && grouping[0] != kNoMoreGroups) {
            if (grouping[1] != 0)
                ++grouping;
            groupCounter = grouping[0];
        } else {
            groupCounter = 0;
        }
    }

    if (negative) {
        if (full)
            return 0;
        // An empty sign stores its terminator here, so the text comes out empty: deliberate, and
        // callers read the 0 as a failure.
        text[--position] = negativeSign;
    }

    const unsigned long long length = std::strlen(text + position);
    if (length >= capacity)
        return 0;
    std::memcpy(buffer, text + position, length + 1);
    return length;
}

unsigned long long ZarnLocalizeHelpers::convertIntToPunctuatedStrW(long long value, wchar_t* buffer,
                                                                   unsigned long long capacity)
{
    if (buffer == nullptr || capacity < 2)
        return 0;
    std::wmemset(buffer, L'\0', capacity);

    char text[kNumberTextQty] = {};
    const unsigned long long length = convertIntToPunctuatedStrA(value, text, kNumberTextQty);
    if (length >= capacity)
        return 0;
    const int count = _snwprintf(buffer, capacity, L"%hs", text);
    if (count < 0 || static_cast<unsigned long long>(count) != length) {
        std::wmemset(buffer, L'\0', capacity);
        return 0;
    }
    return length;
}

bool ZarnLocalizeHelpers::convertPunctuatedStrToIntA(char* text, unsigned long long length, long long& value)
{
    value = 0;
    // A one-character text is refused even when it is a digit: deliberate, callers rely on it.
    if (text == nullptr || length < 2)
        return false;
    const lconv* conventions = learnUserLocale();
    if (conventions == nullptr)
        return false;
    const char separator = firstCharOf(conventions->thousands_sep);
    const char negativeSign = firstCharOf(conventions->negative_sign);
    const char positiveSign = firstCharOf(conventions->positive_sign);

    unsigned long long at = 0;
    while (at < length && text[at] != '\0' && std::isspace(static_cast<unsigned char>(text[at])))
        ++at;
    if (at == length || text[at] == '\0')
        return false;

    bool negative = false;
    if (text[at] == negativeSign || text[at] == positiveSign) {
        negative = text[at] == negativeSign;
        ++at;
        if (at == length || text[at] == '\0')
            return false;
    }

    const long long bound = negative ? LLONG_MIN : LLONG_MAX;
    bool digitSeen = false;
    long long number = 0;
    for (; at < length && text[at] != '\0'; ++at) {
        const char c = text[at];
        if (std::isdigit(static_cast<unsigned char>(c))) {
            digitSeen = true;
            const int digit = c - '0';
            // The bound is tested after the multiplication, so a product that overflows by itself
            // wraps unseen: deliberate, it is the long-standing result for such texts.
            number = static_cast<long long>(static_cast<unsigned long long>(number) * 10U);
            if (negative ? bound + digit > number : bound - digit < number)
                return false;
            number = negative ? number - digit : number + digit;
        } else if (c != separator) {
            break; // group marks are skipped wherever they stand; anything else ends the number
        }
    }
    if (!digitSeen)
        return false;
    value = number;
    return true;
}

bool ZarnLocalizeHelpers::convertPunctuatedStrToIntW(wchar_t* text, unsigned long long length, long long& value)
{
    value = 0;
    if (text == nullptr || length < 2)
        return false;
    // The text's own length decides; `length` only guards the entry.
    const std::size_t trueLength = std::wcslen(text);
    if (trueLength < 1 || trueLength > kNumberTextQty - 1)
        return false;
    char narrow[kNumberTextQty] = {};
    const int count = std::snprintf(narrow, sizeof narrow, "%ls", text);
    if (count < 0 || static_cast<std::size_t>(count) != trueLength)
        return false;
    return convertPunctuatedStrToIntA(narrow, trueLength, value);
}
