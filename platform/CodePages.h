// Conversions between the narrow code page (UTF-8 here) and wide text (wchar_t code points).
#pragma once

#include "platform/WinTypes.h"

// Like MultiByteToWideChar for code page 0 (CP_ACP) or CP_UTF8, both UTF-8 here.
// A source length of -1 converts up to and including the terminator. With a zero output size the
// result is the size needed. 0 with last error 122 when the output is too small, 1113 for an
// invalid sequence, 87 for bad arguments or another code page.
int MultiByteToWideChar(UINT codePage, DWORD flags, const char* source, int sourceLength, wchar_t* output,
                        int outputSize);

// Like WideCharToMultiByte for code page 0 or CP_UTF8. A wide value that is no Unicode scalar
// value (a surrogate, or above 0x10FFFF) is written as U+FFFD. Return conventions as above.
int WideCharToMultiByte(UINT codePage, DWORD flags, const wchar_t* source, int sourceLength, char* output,
                        int outputSize, const char* defaultChar, BOOL* usedDefaultChar);
