// Mapping between the platform's time records and the C library's broken-down time.
#include "localize/ZarnLocalizeHelpers.h"

#include "foundation/SystemTime.h"

#include <cstring>

tm& ZarnLocalizeHelpers::mapSYSTEMTIME_to_tm(const SYSTEMTIME& systemTime, tm& out, int isDst)
{
    std::memset(&out, 0, sizeof out);
    out.tm_sec = systemTime.wSecond;
    out.tm_min = systemTime.wMinute;
    out.tm_hour = systemTime.wHour;
    out.tm_mday = systemTime.wDay;
    out.tm_mon = systemTime.wMonth - 1;
    out.tm_year = systemTime.wYear - 1900;
    out.tm_wday = systemTime.wDayOfWeek;
    out.tm_isdst = isDst;
    return out;
}

tm& ZarnLocalizeHelpers::mapFILETIME_to_tm(const FILETIME& fileTime, tm& out, int isDst)
{
    std::memset(&out, 0, sizeof out);
    SYSTEMTIME systemTime = {};
    if (FileTimeToSystemTime(&fileTime, &systemTime))
        mapSYSTEMTIME_to_tm(systemTime, out, isDst);
    return out;
}

tm& ZarnLocalizeHelpers::mapSMTIME_to_tm(long long time, tm& out, int isDst)
{
    std::memset(&out, 0, sizeof out);
    const zr::SystemTime stamp(time);
    out.tm_sec = stamp.Sec();
    out.tm_min = stamp.Min();
    out.tm_hour = stamp.Hour();
    out.tm_mday = stamp.Day();
    out.tm_mon = stamp.Month() - 1;
    out.tm_year = stamp.Year() - 1900;
    out.tm_isdst = isDst;
    return out;
}

SYSTEMTIME& ZarnLocalizeHelpers::map_tm_to_SYSTEMTIME(const tm& in, SYSTEMTIME& out)
{
    // The month is copied without adding 1, unlike the mirror mapping, and a two-digit year is
    // read as 20xx (99 gives 2099): both deliberate, the stored records depend on them.
    out.wYear = static_cast<WORD>(in.tm_year);
    out.wMonth = static_cast<WORD>(in.tm_mon);
    out.wDayOfWeek = static_cast<WORD>(in.tm_wday);
    out.wDay = static_cast<WORD>(in.tm_mday);
    out.wHour = static_cast<WORD>(in.tm_hour);
    out.wMinute = static_cast<WORD>(in.tm_min);
    out.wSecond = static_cast<WORD>(in.tm_sec);
    out.wMilliseconds = 0;
    if (out.wYear < 100)
        out.wYear += 100;
    if (out.wYear < 1900)
        out.wYear += 1900;
    return out;
}

FILETIME& ZarnLocalizeHelpers::map_tm_to_FILETIME(const tm& in, FILETIME& out)
{
    std::memset(&out, 0, sizeof out);
    SYSTEMTIME systemTime = {};
    map_tm_to_SYSTEMTIME(in, systemTime);
    // A record the conversion refuses (a January tm, month 0) leaves `out` zero.
    SystemTimeToFileTime(&systemTime, &out);
    return out;
}
