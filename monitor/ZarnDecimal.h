// Reading decimal numbers out of the texts of response specs.
#pragma once

#include <climits>

// Only the ASCII digits count: a spec's numbers are never written in other scripts.
inline bool isZarnDecimalDigit(wchar_t character)
{
    return character >= L'0' && character <= L'9';
}

// Reads the run of decimal digits that starts `text` into `value`, ignoring whatever follows it
// ("16px" is 16). False, with `value` untouched, if `text` is null, does not start with a digit,
// or names a number above INT_MAX.
inline bool readZarnDecimal(const wchar_t* text, int& value)
{
    if (text == nullptr || !isZarnDecimalDigit(*text))
        return false;
    long long number = 0;
    for (; isZarnDecimalDigit(*text); ++text) {
        number = number * 10 + (*text - L'0');
        if (number > INT_MAX)
            return false;
    }
    value = static_cast<int>(number);
    return true;
}
