// The Windows time records FILETIME and SYSTEMTIME, with the published layout, and the UTC
// conversions between them.
#pragma once

#include "platform/WinTypes.h"

// A count of 100-nanosecond ticks since 1601-01-01 00:00 UTC, split into two 32-bit halves.
struct FILETIME
{
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};

// Calendar fields of the proleptic Gregorian calendar; wDayOfWeek counts from Sunday = 0.
struct SYSTEMTIME
{
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
};

static_assert(sizeof(FILETIME) == 8, "FILETIME has the Windows layout");
static_assert(sizeof(SYSTEMTIME) == 16, "SYSTEMTIME has the Windows layout");

// Like FileTimeToSystemTime: fills all eight fields, ticks below a millisecond dropped. FALSE with
// last error 87 for a value of 0x8000000000000000 or more, or a null pointer (then nothing is
// written). The last error is left alone on success.
BOOL FileTimeToSystemTime(const FILETIME* fileTime, SYSTEMTIME* systemTime);

// Like SystemTimeToFileTime: wDayOfWeek is ignored; the other fields must lie in their ranges
// (year 1601 to 30827, month 1 to 12, a day that the month has, hour below 24, minute and second
// below 60, milliseconds below 1000). FALSE with last error 87 otherwise, or for a null pointer,
// and the output is untouched.
BOOL SystemTimeToFileTime(const SYSTEMTIME* systemTime, FILETIME* fileTime);
