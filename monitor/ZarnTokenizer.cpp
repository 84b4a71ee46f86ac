#include "monitor/ZarnTokenizer.h"

#include <cwchar>
#include <cwctype>

namespace {

constexpr std::size_t kUnmeasured = static_cast<std::size_t>(-1);

bool isDelimiter(wchar_t character, const wchar_t* delimiters)
{
    // wcschr would find the terminator of `delimiters` itself, so a null character never matches.
    return character != L'\0' && std::wcschr(delimiters, character) != nullptr;
}

} // namespace

wchar_t* nextToken(wchar_t* text, const wchar_t* delimiters, std::size_t& start, std::size_t& position,
                   std::size_t& length)
{
    // `position` below `start` is how the last token marks the end of the list.
    if (text == nullptr || delimiters == nullptr || delimiters[0] == L'\0' || position < start)
        return nullptr;
    if (length == kUnmeasured)
        length = std::wcslen(text);
    if (length == 0 || start > length || position > length)
        return nullptr;

    wchar_t* const token = text + start;
    // A terminator inside the measured length also ends the text, so a length that the caller
    // gave too large never leads the scan past the string.
    for (; position < length && text[position] != L'\0'; ++position) {
        if (isDelimiter(text[position], delimiters)) {
            text[position] = L'\0';
            ++position;
            start = position;
            return token;
        }
    }
    start = position + 1;
    return token;
}

bool countTokens(wchar_t* text, const wchar_t* delimiters, int& count, int maximum)
{
    count = 0;
    std::size_t start = 0;
    std::size_t position = 0;
    std::size_t length = kUnmeasured;
    const auto passesMaximum = [&] { return maximum != 0 && count > maximum; };
    while (!passesMaximum() && nextToken(text, delimiters, start, position, length) != nullptr)
        ++count;
    // A negative maximum is passed even by no tokens, and refuses every text.
    if (passesMaximum()) {
        count = 0;
        return false;
    }
    return true;
}

wchar_t* skipWhitespace(wchar_t* text)
{
    if (text == nullptr)
        return nullptr;
    while (std::iswspace(static_cast<wint_t>(*text)))
        ++text;
    return text;
}
