#include "platform/TimeRecords.h"

#include "PlatformRig.h"

#include <cstdint>
#include <cstring>
#include <ctime>

namespace {

constexpr std::uint64_t kTicksPerSecond = 10000000;
constexpr std::int64_t kSecondsFrom1601To1970 = 11644473600;

FILETIME fileTimeOf(std::uint64_t ticks)
{
    return FILETIME{DWORD(ticks), DWORD(ticks >> 32)};
}

std::uint64_t ticksOf(const FILETIME& time)
{
    return (std::uint64_t(time.dwHighDateTime) << 32) | time.dwLowDateTime;
}

bool sameFields(const SYSTEMTIME& a, const SYSTEMTIME& b)
{
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// Fixed points, both ways: the epoch, leap days, a cycle's last day, the last representable value.
TEST(TimeRecords, KnownInstantsConvertBothWays)
{
    const struct { const char* name; SYSTEMTIME time; std::uint64_t ticks; } rows[] = {
        // year, month, day of week, day, hour, minute, second, ms
        {"epoch", {1601, 1, 1, 1, 0, 0, 0, 0}, 0},
        {"leap century", {2000, 2, 2, 29, 12, 34, 56, 789}, 125963012967890000},
        {"last day of a 400-year cycle", {2000, 12, 0, 31, 23, 59, 59, 999}, 126227807999990000},
        {"after leap day", {2024, 3, 5, 1, 0, 0, 0, 0}, 133537248000000000},
        {"last valid", {30828, 9, 4, 14, 2, 48, 5, 477}, 0x7FFFFFFFFFFFFFFF},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        SYSTEMTIME time{};
        const FILETIME file = fileTimeOf(row.ticks);
        ASSERT_TRUE(FileTimeToSystemTime(&file, &time));
        EXPECT_TRUE(sameFields(time, row.time));
        SYSTEMTIME input = row.time;
        input.wDayOfWeek = 9; // not read
        FILETIME back{};
        if (row.time.wYear <= 30827) { // SYSTEMTIME's documented range ends before the last FILETIME
            ASSERT_TRUE(SystemTimeToFileTime(&input, &back));
            EXPECT_EQ(ticksOf(back), row.ticks);
        }
    }
}

// Every 7919th hour-and-a-bit across the whole range against the C library's own calendar.
TEST(TimeRecords, AgreesWithTheCLibraryAcrossTheRange)
{
    const std::uint64_t step = 7919 * 3600 * kTicksPerSecond + 1234567;
    for (std::uint64_t ticks = 0; ticks < 0x7FFFFFFFFFFFFFFF - step; ticks += step) {
        const std::time_t seconds = std::time_t(ticks / kTicksPerSecond) - kSecondsFrom1601To1970;
        std::tm expected{};
        ASSERT_NE(::gmtime_r(&seconds, &expected), nullptr);
        SYSTEMTIME time{};
        const FILETIME file = fileTimeOf(ticks);
        ASSERT_TRUE(FileTimeToSystemTime(&file, &time));
        const SYSTEMTIME wanted{WORD(expected.tm_year + 1900), WORD(expected.tm_mon + 1),
                                WORD(expected.tm_wday),        WORD(expected.tm_mday),
                                WORD(expected.tm_hour),        WORD(expected.tm_min),
                                WORD(expected.tm_sec),         WORD(ticks / 10000 % 1000)};
        ASSERT_TRUE(sameFields(time, wanted)) << "ticks " << ticks;
        FILETIME back{};
        if (time.wYear <= 30827) {
            ASSERT_TRUE(SystemTimeToFileTime(&time, &back));
            ASSERT_EQ(ticksOf(back), ticks - ticks % 10000) << "ticks " << ticks;
        }
    }
}

TEST(TimeRecords, InvalidFieldsFailWithInvalidParameter)
{
    const std::pair<const char*, SYSTEMTIME> rows[] = {
        {"year 1600", {1600, 12, 0, 31, 0, 0, 0, 0}},  {"year 30828", {30828, 1, 0, 1, 0, 0, 0, 0}},
        {"month 0", {2000, 0, 0, 1, 0, 0, 0, 0}},      {"month 13", {2000, 13, 0, 1, 0, 0, 0, 0}},
        {"day 0", {2000, 1, 0, 0, 0, 0, 0, 0}},        {"January 32", {2000, 1, 0, 32, 0, 0, 0, 0}},
        {"April 31", {2023, 4, 0, 31, 0, 0, 0, 0}},    {"1900-02-29", {1900, 2, 0, 29, 0, 0, 0, 0}},
        {"2023-02-29", {2023, 2, 0, 29, 0, 0, 0, 0}},  {"2000-02-30", {2000, 2, 0, 30, 0, 0, 0, 0}},
        {"hour 24", {2000, 1, 0, 1, 24, 0, 0, 0}},     {"minute 60", {2000, 1, 0, 1, 0, 60, 0, 0}},
        {"second 60", {2000, 1, 0, 1, 0, 0, 60, 0}},   {"ms 1000", {2000, 1, 0, 1, 0, 0, 0, 1000}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.first);
        FILETIME file{0x1234, 0x5678};
        EXPECT_EQ(platform_test::outcomeOf([&] { return SystemTimeToFileTime(&row.second, &file); }), 87u);
        EXPECT_EQ(ticksOf(file), 0x567800001234u);
    }
    for (const std::uint64_t ticks : {std::uint64_t(1) << 63, ~std::uint64_t(0)}) {
        SCOPED_TRACE(ticks);
        const FILETIME file = fileTimeOf(ticks);
        SYSTEMTIME time{};
        EXPECT_EQ(platform_test::outcomeOf([&] { return FileTimeToSystemTime(&file, &time); }), 87u);
    }
}

} // namespace
