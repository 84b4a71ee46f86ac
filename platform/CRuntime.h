// The Microsoft C runtime functions the library's logic uses, with their Windows behaviour.
#pragma once

#include "foundation/IntegerWidths.h"

#include <cstdarg>
#include <cstddef>
#include <ctime>

// Like _wcsicmp: case-insensitive comparison by the C library's rule for the current locale
// (towlower). A null argument gives INT_MAX (_NLSCMPERROR) with errno EINVAL.
int _wcsicmp(const wchar_t* left, const wchar_t* right);

// Like _vsnwprintf with the Windows meaning of the format: %s and %c take wide text, %S and %C
// narrow (UTF-8), %hs/%hc narrow and %ls/%ws/%lc/%wc wide; "l" on an integer means 32 bits,
// "I64", "ll" and "j" 64 bits, "I32" 32 bits, "I", "z" and "t" the pointer's width; %p writes
// upper-case hexadecimal of the pointer's full width; flags, width, precision and "*" as in C,
// and "0" pads text with zeros. Writes at most `count` characters and returns the count written
// without terminator: when the text fills the buffer exactly, no terminator is written; -1 when
// the output was cut (the buffer then holds the first `count` characters, unterminated). A null
// buffer with a count of 0 returns the length the text needs. -1 with errno EINVAL for a null
// format, a null buffer with a non-zero count, or a conversion Windows refuses (%n, unknown).
int _vsnwprintf(wchar_t* buffer, size_t count, const wchar_t* format, va_list args);
int _snwprintf(wchar_t* buffer, size_t count, const wchar_t* format, ...);

// Like _time64: seconds since 1970-01-01 UTC, also stored through `destination` when not null.
i64 _time64(i64* destination);
// Like _localtime64_s: the local broken-down time of `time`; 0, or 22 (EINVAL) for a null
// argument or a moment outside 1970-01-01 to 3000-12-31 23:59:59 UTC, which the Windows runtime
// refuses (then every field of `destination`, if there is one, is -1).
int _localtime64_s(std::tm* destination, const i64* time);

// Like _get_daylight: the C library's daylight flag after reading the time zone, 1 if the zone has
// a summer time rule, else 0. 0, or EINVAL (22) for a null pointer.
int _get_daylight(int* hours);
