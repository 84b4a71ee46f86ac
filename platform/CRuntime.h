// The Microsoft C runtime functions the library's logic uses, with their Windows behaviour.
#pragma once

#include "foundation/IntegerWidths.h"

#include <cstdarg>
#include <cstddef>
#include <ctime>

// Like _wcsicmp: case-insensitive comparison by the C library's rule for the current locale.
int _wcsicmp(const wchar_t* left, const wchar_t* right);

// Like _vsnwprintf with the Windows meaning of the format: %s and %c take wide text, %S and %C
// narrow, "l" on an integer means 32 bits, "I64" and "ll" mean 64 bits. Writes at most `count`
// characters; returns the count written without terminator, or -1 when the output was cut (then
// no terminator is guaranteed), or for a null buffer or format.
int _vsnwprintf(wchar_t* buffer, size_t count, const wchar_t* format, va_list args);
int _snwprintf(wchar_t* buffer, size_t count, const wchar_t* format, ...);

// Like _time64: seconds since 1970-01-01 UTC, also stored through `destination` when not null.
i64 _time64(i64* destination);
// Like _localtime64_s: the local broken-down time of `time`; 0, or 22 (EINVAL) for a null
// argument or a moment the C library cannot convert.
int _localtime64_s(std::tm* destination, const i64* time);
