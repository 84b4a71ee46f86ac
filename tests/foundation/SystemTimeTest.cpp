#include "foundation/SystemTime.h"
#include "foundation/UTL_String.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>

namespace {

// Sets the process's time zone for one scope and puts the old one back.
class ZoneOverride
{
public:
    explicit ZoneOverride(const char* zone)
    {
        const char* old = std::getenv("TZ");
        m_hadZone = old != nullptr;
        if (m_hadZone)
            m_oldZone = old;
        ::setenv("TZ", zone, 1);
        ::tzset();
    }
    ~ZoneOverride()
    {
        if (m_hadZone)
            ::setenv("TZ", m_oldZone.c_str(), 1);
        else
            ::unsetenv("TZ");
        ::tzset();
    }

private:
    bool m_hadZone = false;
    std::string m_oldZone;
};

long long utcMoment(int year, int month, int day, int hour, int minute, int second)
{
    std::tm fields{};
    fields.tm_year = year - 1900;
    fields.tm_mon = month - 1;
    fields.tm_mday = day;
    fields.tm_hour = hour;
    fields.tm_min = minute;
    fields.tm_sec = second;
    return static_cast<long long>(::timegm(&fields));
}

std::wstring textOf(const zr::SystemTime& stamp)
{
    const UTL_String text = stamp;
    return std::wstring(text.wideText());
}

} // namespace

// The first moment of 1970 in UTC falls on another calendar day on either side of it.
TEST(SystemTime, EpochReadsInTheLocalZone)
{
    const struct
    {
        const char* zone;
        int year, month, day, hour;
    } rows[] = {
        {"UTC", 1970, 1, 1, 0},
        {"XST5", 1969, 12, 31, 19}, // five hours behind UTC
        {"YST-9", 1970, 1, 1, 9},   // nine hours ahead
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.zone);
        ZoneOverride zone(row.zone);
        const zr::SystemTime epoch(0);
        EXPECT_EQ(static_cast<long long>(epoch), 0);
        EXPECT_EQ(epoch.Year(), row.year);
        EXPECT_EQ(epoch.Month(), row.month);
        EXPECT_EQ(epoch.Day(), row.day);
        EXPECT_EQ(epoch.Hour(), row.hour);
        EXPECT_EQ(epoch.Min(), 0);
        EXPECT_EQ(epoch.Sec(), 0);
    }
}

TEST(SystemTime, TextIsZeroPaddedDateAndTime)
{
    const struct
    {
        int year, month, day, hour, minute, second;
        const wchar_t* text;
    } rows[] = {
        {2026, 3, 5, 7, 9, 2, L"2026-03-05_07-09-02"},
        {2000, 12, 31, 23, 59, 59, L"2000-12-31_23-59-59"},
        {1970, 1, 1, 0, 0, 0, L"1970-01-01_00-00-00"},
    };
    ZoneOverride zone("UTC");
    for (const auto& row : rows) {
        const zr::SystemTime stamp(utcMoment(row.year, row.month, row.day, row.hour, row.minute, row.second));
        SCOPED_TRACE(static_cast<long long>(stamp));
        EXPECT_EQ(stamp.Year(), row.year);
        EXPECT_EQ(stamp.Month(), row.month);
        EXPECT_EQ(stamp.Day(), row.day);
        EXPECT_EQ(stamp.Hour(), row.hour);
        EXPECT_EQ(stamp.Min(), row.minute);
        EXPECT_EQ(stamp.Sec(), row.second);
        EXPECT_EQ(textOf(stamp), row.text);
    }
}

TEST(SystemTime, DefaultIsTheCurrentMoment)
{
    const long long before = static_cast<long long>(std::time(nullptr));
    const zr::SystemTime now;
    const long long after = static_cast<long long>(std::time(nullptr));
    const long long stamped = now;
    EXPECT_GE(stamped, before);
    EXPECT_LE(stamped, after);

    const std::time_t asTimeT = static_cast<std::time_t>(stamped);
    std::tm local{};
    ASSERT_NE(::localtime_r(&asTimeT, &local), nullptr);
    EXPECT_EQ(now.Year(), local.tm_year + 1900);
    EXPECT_EQ(now.Month(), local.tm_mon + 1);
    EXPECT_EQ(now.Day(), local.tm_mday);
    EXPECT_EQ(now.Hour(), local.tm_hour);
    EXPECT_EQ(now.Min(), local.tm_min);
    EXPECT_EQ(now.Sec(), local.tm_sec);
}
