// A wide UTL_String that is filled from UTF-8 bytes and written out as UTF-8 bytes.
//
// The decoder knows the one-, two- and three-byte forms only: a character beyond U+FFFF is invalid
// input, and overlong forms are accepted.
#pragma once

#include "foundation/UTL_String.h"

class UTF8String : public UTL_String
{
public:
    UTF8String();
    UTF8String(const wchar_t* text);
    // Decodes `utf8`; a null pointer gives the empty string, invalid input throws code 11.
    UTF8String(const char* utf8);
    ~UTF8String() override;

    // Encodes the text into `buffer` without a terminator and returns the bytes written. -1 when a
    // character's bytes do not fit; when the space is used up exactly, the walk stops there and
    // the bytes so far count as a success even if text is left. A null buffer counts as no space.
    int toUtf8(char* buffer, unsigned size) const;
};
