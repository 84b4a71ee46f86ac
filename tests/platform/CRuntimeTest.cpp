#include "platform/CRuntime.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <ctime>
#include <cwchar>
#include <string>
#include <tuple>

namespace {

// The text formatted into a generous buffer, or a note that names a wrong count.
template <class... Args>
std::wstring formatted(const wchar_t* format, Args... args)
{
    wchar_t buffer[256];
    const int count = _snwprintf(buffer, 256, format, args...);
    if (count < 0 || size_t(count) != std::wcslen(buffer))
        return L"<count " + std::to_wstring(count) + L">";
    return buffer;
}

TEST(WindowsWideFormat, ConversionsAndSizesFollowWindows)
{
    static const wchar_t unterminated[3] = {L'x', L'y', L'z'};
    const std::pair<std::wstring, const wchar_t*> rows[] = {
        {formatted(L"[%s|%S]", L"wide", "caf\xC3\xA9"), L"[wide|caf\xE9]"}, // %s wide, %S narrow UTF-8
        {formatted(L"%hs %ls %ws %lS", "n", L"w", L"w", L"w"), L"n w w w"},
        {formatted(L"%c%C%hc%lc", L'\x3A9', 'x', 'y', L'\x20AC'), L"\x3A9xy\x20AC"},
        {formatted(L"%s", static_cast<wchar_t*>(nullptr)), L"(null)"},
        {formatted(L"[%5s|%-5s|%05s]", L"ab", L"ab", L"ab"), L"[   ab|ab   |000ab]"},
        {formatted(L"[%.3s|%*.*s|%*s]", L"abcdef", 6, 2, L"abcdef", -4, L"ab"), L"[abc|    ab|ab  ]"},
        {formatted(L"[%.3S]", "ab\xC3\xA9z"), L"[ab\xFFFD]"}, // narrow precision counts bytes
        {formatted(L"[%.3s]", unterminated), L"[xyz]"},
        {formatted(L"100%% %p", reinterpret_cast<void*>(0xABCDEF)), L"100% 0000000000ABCDEF"},
        {formatted(L"%lu %ld %lx %s", 0xFFFFFFFFu, -5, 0xBEEFu, L"next"), L"4294967295 -5 beef next"}, // l: 32 bits
        {formatted(L"%I64d %I64u", -1234567890123LL, 18446744073709551615ULL), L"-1234567890123 18446744073709551615"},
        {formatted(L"%I64X %lld %I32d %Iu", 0x123456789ABCULL, -9000000000LL, -7, size_t(1) << 40),
         L"123456789ABC -9000000000 -7 1099511627776"},
        {formatted(L"%hd %hhu [%05d|%-4d|%+d|%#x|%*d]", 70000, 300, 42, 7, 3, 255, 4, 9),
         L"4464 44 [00042|7   |+3|0xff|   9]"},
    };
    for (const auto& [actual, expected] : rows)
        EXPECT_EQ(actual, expected);
}

// Where Windows and C agree, the C library's own wide formatting is the reference.
TEST(WindowsWideFormat, AgreesWithTheCLibraryOnPortableConversions)
{
    const struct { const wchar_t* format; int i1; double r1; int i2; double r2; } rows[] = {
        {L"%d|%f|%x|%8.3e", -12, 3.5, 255, 12345.678},  {L"%+5d|%G|%o|%-10.2f", 42, 0.000012, 8, -2.5},
        {L"%X|%a|%u|% .0f", 48879, 1.0, 7, 2.5},         {L"%#o|%#.0e|%d|%g", 8, 3.0, INT_MIN, 1e300},
        {L"%.3d|%.10g|%-+6i|%E", 5, 1.0 / 3, -3, -0.0}, {L"%08X|%F|%i|%8.3f", 0xABC, 1e-5, 0, 3.14159},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::PrintToString(std::wstring(row.format)));
        wchar_t expected[128];
        wchar_t actual[128];
        const int systemCount = std::swprintf(expected, 128, row.format, row.i1, row.r1, row.i2, row.r2);
        EXPECT_EQ(_snwprintf(actual, 128, row.format, row.i1, row.r1, row.i2, row.r2), systemCount);
        EXPECT_EQ(std::wstring(actual), expected);
    }
}

// An exact fit gets no terminator, a longer text is cut with -1; what Windows refuses is -1 with EINVAL.
TEST(WindowsWideFormat, CountsAndCutsTheWindowsWay)
{
    const struct { const wchar_t* format; int count; const wchar_t* written; } rows[] = {
        {L"abc", 3, L"abc"}, {L"abcdefg", 7, L"abcdefg#"}, {L"12345-overflow", -1, L"12345-o#"}};
    wchar_t buffer[9];
    for (const auto& row : rows) {
        std::wcscpy(buffer, L"########");
        EXPECT_EQ(_snwprintf(buffer, 7, L"%s", row.format), row.count) << row.format;
        EXPECT_EQ(std::wstring(buffer), row.written);
    }
    EXPECT_EQ(_snwprintf(nullptr, 0, L"%d %s", 42, L"answers"), 10);

    int count = 0;
    for (const wchar_t* refused : {static_cast<const wchar_t*>(nullptr), L"ab%n", L"%y", L"abc%"}) {
        errno = 0;
        EXPECT_EQ(_snwprintf(buffer, 8, refused, &count), -1) << (refused != nullptr ? refused : L"null");
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_EQ(count, 0);
    errno = 0;
    EXPECT_EQ(_snwprintf(nullptr, 4, L"x"), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(WideCaseCompare, IgnoresCaseAndRefusesNull)
{
    EXPECT_EQ(_wcsicmp(L"Zarn-1", L"zARN-1"), 0);
    EXPECT_LT(_wcsicmp(L"abc", L"ABD"), 0);
    EXPECT_GT(_wcsicmp(L"a", L""), 0);
    EXPECT_LT(_wcsicmp(L"[", L"A"), 0); // compared lower-case: '[' stands between 'Z' and 'a'
    errno = 0;
    EXPECT_EQ(_wcsicmp(nullptr, L"a"), INT_MAX);
    EXPECT_EQ(errno, EINVAL);
}

// Local time as localtime_r gives it, within 1970 to 3000; outside, EINVAL and every field -1.
TEST(Time64, IsTheSystemClockAndItsLocalTime)
{
    const std::time_t before = std::time(nullptr);
    i64 stored = 0;
    const i64 now = _time64(&stored);
    EXPECT_EQ(now, stored);
    EXPECT_LE(i64(before), now);
    EXPECT_GE(i64(std::time(nullptr)), now);

    const auto fieldsOf = [](const std::tm& t) { return std::make_tuple(t.tm_year, t.tm_yday, t.tm_hour, t.tm_isdst); };
    std::tm expected{};
    std::tm actual{};
    for (const i64 moment : {i64(0), i64(32535215999)}) { // the first and last moment Windows takes
        const std::time_t systemMoment = std::time_t(moment);
        ASSERT_NE(::localtime_r(&systemMoment, &expected), nullptr);
        EXPECT_EQ(_localtime64_s(&actual, &moment), 0);
        EXPECT_EQ(fieldsOf(actual), fieldsOf(expected));
    }
    const i64 refused[] = {-1, 32535216000};
    for (const i64* moment : {&refused[0], &refused[1], static_cast<const i64*>(nullptr)}) {
        EXPECT_EQ(_localtime64_s(&actual, moment), EINVAL);
        EXPECT_EQ(fieldsOf(actual), std::make_tuple(-1, -1, -1, -1));
    }
    EXPECT_EQ(_localtime64_s(nullptr, &refused[0]), EINVAL);
}

} // namespace
