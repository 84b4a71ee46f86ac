#include "platform/TimeRecords.h"

#include "platform/LastError.h"

#include <cstdint>

namespace {

constexpr std::uint64_t kTicksPerMillisecond = 10000;
constexpr std::uint64_t kTicksPerSecond = 1000 * kTicksPerMillisecond;
constexpr std::uint64_t kTicksPerDay = 86400 * kTicksPerSecond;
constexpr std::uint64_t kFirstInvalidTicks = std::uint64_t(1) << 63;

// Calendar cycles counted from 1601, the first year of a 400-year cycle: every fourth year is a
// leap year, except three of the four century years.
constexpr std::uint64_t kDaysPer400Years = 146097;
constexpr std::uint64_t kDaysPer100Years = 36524; // the last century of a cycle has one more
constexpr std::uint64_t kDaysPer4Years = 1461;    // the last group of a century may have one less
constexpr std::uint64_t kDaysPerYear = 365;

constexpr WORD kDaysBeforeMonth[2][13] = {
    {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365},
    {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335, 366},
};

bool isLeapYear(unsigned year)
{
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

unsigned daysInMonth(unsigned year, unsigned month)
{
    const bool leap = isLeapYear(year);
    return kDaysBeforeMonth[leap][month] - kDaysBeforeMonth[leap][month - 1];
}

std::uint64_t daysSince1601(unsigned year, unsigned month, unsigned day)
{
    const std::uint64_t years = year - 1601;
    return years * kDaysPerYear + years / 4 - years / 100 + years / 400
           + kDaysBeforeMonth[isLeapYear(year)][month - 1] + day - 1;
}

bool isValid(const SYSTEMTIME& time)
{
    return time.wYear >= 1601 && time.wYear <= 30827 && time.wMonth >= 1 && time.wMonth <= 12
           && time.wDay >= 1 && time.wDay <= daysInMonth(time.wYear, time.wMonth) && time.wHour < 24
           && time.wMinute < 60 && time.wSecond < 60 && time.wMilliseconds < 1000;
}

} // namespace

BOOL FileTimeToSystemTime(const FILETIME* fileTime, SYSTEMTIME* systemTime)
{
    if (fileTime == nullptr || systemTime == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const std::uint64_t ticks = (std::uint64_t(fileTime->dwHighDateTime) << 32) | fileTime->dwLowDateTime;
    if (ticks >= kFirstInvalidTicks) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }

    const std::uint64_t days = ticks / kTicksPerDay;
    const std::uint64_t timeOfDay = ticks % kTicksPerDay;

    std::uint64_t rest = days % kDaysPer400Years;
    std::uint64_t year = 1601 + 400 * (days / kDaysPer400Years);
    // The caps catch the last day of a longer cycle, which would otherwise start a new one.
    const std::uint64_t centuries = rest / kDaysPer100Years < 3 ? rest / kDaysPer100Years : 3;
    rest -= centuries * kDaysPer100Years;
    year += 100 * centuries + 4 * (rest / kDaysPer4Years);
    rest %= kDaysPer4Years;
    const std::uint64_t years = rest / kDaysPerYear < 3 ? rest / kDaysPerYear : 3;
    rest -= years * kDaysPerYear;
    year += years;

    const WORD* before = kDaysBeforeMonth[isLeapYear(unsigned(year))];
    unsigned month = 1;
    while (rest >= before[month])
        ++month;

    systemTime->wYear = WORD(year);
    systemTime->wMonth = WORD(month);
    systemTime->wDay = WORD(rest - before[month - 1] + 1);
    systemTime->wDayOfWeek = WORD((days + 1) % 7); // 1601-01-01 was a Monday
    systemTime->wHour = WORD(timeOfDay / (3600 * kTicksPerSecond));
    systemTime->wMinute = WORD(timeOfDay / (60 * kTicksPerSecond) % 60);
    systemTime->wSecond = WORD(timeOfDay / kTicksPerSecond % 60);
    systemTime->wMilliseconds = WORD(timeOfDay / kTicksPerMillisecond % 1000);
    return TRUE;
}

BOOL SystemTimeToFileTime(const SYSTEMTIME* systemTime, FILETIME* fileTime)
{
    if (systemTime == nullptr || fileTime == nullptr || !isValid(*systemTime)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const std::uint64_t days = daysSince1601(systemTime->wYear, systemTime->wMonth, systemTime->wDay);
    const std::uint64_t ticks = days * kTicksPerDay
                                + systemTime->wHour * 3600 * kTicksPerSecond
                                + systemTime->wMinute * 60 * kTicksPerSecond
                                + systemTime->wSecond * kTicksPerSecond
                                + systemTime->wMilliseconds * kTicksPerMillisecond;
    fileTime->dwLowDateTime = DWORD(ticks);
    fileTime->dwHighDateTime = DWORD(ticks >> 32);
    return TRUE;
}
