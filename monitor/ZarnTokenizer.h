// The tokeniser of response specs: cuts wide text at single delimiter characters, in place.
#pragma once

#include <cstddef>

// Returns the next token of `text`, or null at the end of the list. The state is `start`,
// `position` and `length`, which the caller sets to 0, 0 and size_t(-1) before the first call
// (-1 makes the first call measure `text`). Each delimiter found is overwritten by a terminator,
// so `text` is destroyed. Delimiters are not merged: two in a row give an empty token, and one at
// the very end gives a last, empty token ("a~b~" has three tokens). An empty text has none.
// Null text or delimiters, or empty delimiters, give null.
wchar_t* nextToken(wchar_t* text, const wchar_t* delimiters, std::size_t& start, std::size_t& position,
                   std::size_t& length);

// Sets `count` to the number of tokens of `text` as nextToken cuts them, destroying `text` too.
// If `maximum` is non-zero and the count passes it, returns false with `count` 0; else true.
bool countTokens(wchar_t* text, const wchar_t* delimiters, int& count, int maximum);

// The first character of `text` that is not white space (by iswspace); null gives null.
wchar_t* skipWhitespace(wchar_t* text);
