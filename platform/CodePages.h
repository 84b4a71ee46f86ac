// Conversions between the narrow code page (UTF-8 here) and wide text (wchar_t code points).
#pragma once

#include "platform/WinTypes.h"

// WideCharToMultiByte flag: fail on a wide value that is no Unicode scalar value.
constexpr DWORD WC_ERR_INVALID_CHARS = 0x80;

// Like MultiByteToWideChar for code page 0 (CP_ACP) or CP_UTF8, both UTF-8 here.
// A source length of -1 converts up to and including the terminator; a source length of 0 is
// a bad argument. With a zero output size the result is the size needed. 0 with last error 122
// when the output is too small, 1113 for an invalid sequence (an overlong form, a surrogate, a
// value above 0x10FFFF, a cut sequence), 87 for bad arguments or another code page. UTF-8 is
// always validated strictly, whatever the flags: as if MB_ERR_INVALID_CHARS were given.
int MultiByteToWideChar(UINT codePage, DWORD flags, const char* source, int sourceLength, wchar_t* output,
                        int outputSize);

// Like WideCharToMultiByte for code page 0 or CP_UTF8. A wide value that is no Unicode scalar
// value (a surrogate, or above 0x10FFFF) is written as U+FFFD (for code page 0: as `defaultChar`
// if given, reported through `usedDefaultChar`), or fails with 1113 under WC_ERR_INVALID_CHARS.
// CP_UTF8 takes no default character: non-null `defaultChar` or `usedDefaultChar` is 87.
// Return conventions as above.
int WideCharToMultiByte(UINT codePage, DWORD flags, const wchar_t* source, int sourceLength, char* output,
                        int outputSize, const char* defaultChar, BOOL* usedDefaultChar);
