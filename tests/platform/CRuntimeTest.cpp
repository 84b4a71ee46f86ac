#include "platform/CRuntime.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <ctime>
#include <cwchar>
#include <functional>
#include <string>

namespace {

using Format = std::function<int(wchar_t*, size_t)>;

struct FormatRow
{
    const char* name;
    Format format;
    const wchar_t* expected;
};

// Formats with a generous buffer and checks the count against the text.
std::wstring formatted(const Format& format)
{
    wchar_t buffer[256];
    const int count = format(buffer, 256);
    EXPECT_GE(count, 0);
    if (count < 0)
        return L"<failed>";
    EXPECT_EQ(static_cast<size_t>(count), std::wcslen(buffer));
    return buffer;
}

TEST(WindowsWideFormat, TextAndCharacterWidthsFollowWindows)
{
    const FormatRow rows[] = {
        {"%s is wide", [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"[%s]", L"wide"); }, L"[wide]"},
        {"%S is narrow UTF-8",
         [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"[%S]", "caf\xC3\xA9"); }, L"[caf\xE9]"},
        {"%hs is narrow", [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"%hs", "narrow"); }, L"narrow"},
        {"%ls is wide", [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"%ls", L"wide"); }, L"wide"},
        {"%ws is wide", [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"%ws", L"wide"); }, L"wide"},
        {"%lS is wide", [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"%lS", L"wide"); }, L"wide"},
        {"%c is wide", [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"%c", L'\x3A9'); }, L"\x3A9"},
        {"%C is narrow", [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"%C", 'x'); }, L"x"},
        {"%hc is narrow", [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"%hc", 'y'); }, L"y"},
        {"%lc is wide", [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"%lc", L'\x20AC'); }, L"\x20AC"},
        {"null text", [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"%s", static_cast<wchar_t*>(nullptr)); },
         L"(null)"},
        {"width", [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"[%5s]", L"ab"); }, L"[   ab]"},
        {"left", [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"[%-5s]", L"ab"); }, L"[ab   ]"},
        {"zero pads text", [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"[%05s]", L"ab"); }, L"[000ab]"},
        {"precision", [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"[%.3s]", L"abcdef"); }, L"[abc]"},
        {"star width and precision",
         [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"[%*.*s]", 6, 2, L"abcdef"); }, L"[    ab]"},
        {"negative star width is left",
         [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"[%*s]", -4, L"ab"); }, L"[ab  ]"},
        {"narrow precision counts bytes",
         [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"[%.3S]", "ab\xC3\xA9z"); }, L"[ab\xFFFD]"},
        {"unterminated text with precision",
         [](wchar_t* b, size_t n) {
             static const wchar_t noEnd[3] = {L'x', L'y', L'z'};
             return _snwprintf(b, n, L"[%.3s]", noEnd);
         },
         L"[xyz]"},
        {"percent", [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"100%%"); }, L"100%"},
        {"pointer", [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"%p", reinterpret_cast<void*>(0xABCDEF)); },
         L"0000000000ABCDEF"},
    };
    for (const FormatRow& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(std::wstring(row.expected), formatted(row.format));
    }
}

TEST(WindowsWideFormat, IntegerSizesFollowWindows)
{
    const FormatRow rows[] = {
        {"l is 32 bits", [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"%lu", 0xFFFFFFFFu); }, L"4294967295"},
        {"l signed", [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"%ld", -5); }, L"-5"},
        {"l then the next argument",
         [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"%lx %s", 0xBEEFu, L"next"); }, L"beef next"},
        {"I64", [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"%I64d", -1234567890123LL); },
         L"-1234567890123"},
        {"I64 unsigned",
         [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"%I64u", 18446744073709551615ULL); },
         L"18446744073709551615"},
        {"I64 hex", [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"%I64X", 0x123456789ABCULL); },
         L"123456789ABC"},
        {"ll", [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"%lld", -9000000000LL); }, L"-9000000000"},
        {"I32", [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"%I32d", -7); }, L"-7"},
        {"I is the pointer's width",
         [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"%Iu", static_cast<size_t>(1) << 40); },
         L"1099511627776"},
        {"h is short", [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"%hd", 70000); }, L"4464"},
        {"hh is char", [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"%hhu", 300); }, L"44"},
        {"flags and width", [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"[%05d|%-4d|%+d]", 42, 7, 3); },
         L"[00042|7   |+3]"},
        {"alternate hex", [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"%#x", 255); }, L"0xff"},
        {"star width", [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"[%*d]", 4, 9); }, L"[   9]"},
        {"mixed widths in a row",
         [](wchar_t* b, size_t n) {
             return _snwprintf(b, n, L"%I64u/%lu/%s/%hs", 1ULL << 33, 4000000000u, L"w", "n");
         },
         L"8589934592/4000000000/w/n"},
    };
    for (const FormatRow& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(std::wstring(row.expected), formatted(row.format));
    }
}

// Where Windows and C agree, the C library's own wide formatting is the reference.
TEST(WindowsWideFormat, AgreesWithTheCLibraryOnPortableConversions)
{
    struct Row
    {
        const wchar_t* format; // an integer conversion, then a floating one
        int integer;
        double real;
    };
    const Row rows[] = {
        {L"%d|%f", -12, 3.5},         {L"%i|%8.3f", 0, 3.14159},      {L"%x|%e", 255, 12345.678},
        {L"%o|%G", 8, 0.000012},      {L"%+5d|%-10.2f", 42, -2.5},    {L"%X|%a", 48879, 1.0},
        {L"%u|% .0f", 7, 2.5},        {L"%#o|%#.0e", 8, 3.0},         {L"%d|%g", INT_MIN, 1e300},
        {L"%.3d|%.10g", 5, 1.0 / 3},  {L"%-+6i|%E", -3, -0.0},        {L"%08X|%F", 0xABC, 1e-5},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::PrintToString(std::wstring(row.format)));
        wchar_t expected[128];
        wchar_t actual[128];
        const int systemCount = std::swprintf(expected, 128, row.format, row.integer, row.real);
        ASSERT_GT(systemCount, 0);
        EXPECT_EQ(systemCount, _snwprintf(actual, 128, row.format, row.integer, row.real));
        EXPECT_EQ(std::wstring(expected), std::wstring(actual));
    }
}

TEST(WindowsWideFormat, CountsAndCutsTheWindowsWay)
{
    wchar_t buffer[8];
    std::wmemset(buffer, L'#', 8);
    EXPECT_EQ(3, _snwprintf(buffer, 7, L"%s", L"abc"));
    EXPECT_EQ(std::wstring(L"abc"), std::wstring(buffer));

    // A text that fills the buffer exactly is written without terminator.
    std::wmemset(buffer, L'#', 8);
    EXPECT_EQ(7, _snwprintf(buffer, 7, L"%s", L"abcdefg"));
    EXPECT_EQ(std::wstring(L"abcdefg#"), std::wstring(buffer, 8));

    // A longer one is cut: -1, the buffer full, its last position not zero.
    std::wmemset(buffer, L'#', 8);
    EXPECT_EQ(-1, _snwprintf(buffer, 7, L"%d-%s", 12345, L"overflow"));
    EXPECT_EQ(std::wstring(L"12345-o#"), std::wstring(buffer, 8));

    EXPECT_EQ(10, _snwprintf(nullptr, 0, L"%d %s", 42, L"answers"));
}

TEST(WindowsWideFormat, RefusedFormatsGiveMinusOneWithEinval)
{
    wchar_t buffer[32];
    int count = 0;
    const FormatRow rows[] = {
        {"null format", [](wchar_t* b, size_t n) { return _snwprintf(b, n, nullptr); }, nullptr},
        {"null buffer with a count", [](wchar_t*, size_t n) { return _snwprintf(nullptr, n, L"x"); }, nullptr},
        {"%n", [&count](wchar_t* b, size_t n) { return _snwprintf(b, n, L"ab%n", &count); }, nullptr},
        {"unknown conversion", [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"%y", 1); }, nullptr},
        {"format cut after %", [](wchar_t* b, size_t n) { return _snwprintf(b, n, L"abc%"); }, nullptr},
    };
    for (const FormatRow& row : rows) {
        SCOPED_TRACE(row.name);
        errno = 0;
        EXPECT_EQ(-1, row.format(buffer, 32));
        EXPECT_EQ(EINVAL, errno);
    }
    EXPECT_EQ(0, count);
}

TEST(WideCaseCompare, MatchesTheCLibrarysRule)
{
    struct Row
    {
        const wchar_t* left;
        const wchar_t* right;
    };
    const Row rows[] = {
        {L"abc", L"ABC"}, {L"abc", L"abd"}, {L"ABD", L"abc"}, {L"", L""},       {L"a", L""},
        {L"Zarn", L"zARN"}, {L"x1", L"X2"}, {L"[", L"a"},     {L"\xC9t\xE9", L"\xE9T\xC9"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::PrintToString(std::wstring(row.left) + L" / " + row.right));
        const int expected = ::wcscasecmp(row.left, row.right);
        const int actual = _wcsicmp(row.left, row.right);
        EXPECT_EQ(expected < 0, actual < 0);
        EXPECT_EQ(expected == 0, actual == 0);
        EXPECT_EQ(expected > 0, actual > 0);
    }
    EXPECT_EQ(0, _wcsicmp(L"MiXeD", L"mIxEd"));
    errno = 0;
    EXPECT_EQ(INT_MAX, _wcsicmp(nullptr, L"a"));
    EXPECT_EQ(EINVAL, errno);
}

TEST(Time64, IsTheSystemClock)
{
    const std::time_t before = std::time(nullptr);
    i64 stored = 0;
    const i64 now = _time64(&stored);
    const std::time_t after = std::time(nullptr);
    EXPECT_EQ(now, stored);
    EXPECT_LE(static_cast<i64>(before), now);
    EXPECT_GE(static_cast<i64>(after), now);
    EXPECT_LE(static_cast<i64>(before), _time64(nullptr));
}

TEST(Time64, LocalTimeIsLocaltimeWithinTheWindowsRange)
{
    const i64 moments[] = {0, 86399, 1700000000, 4102444800, 32535215999};
    for (i64 moment : moments) {
        SCOPED_TRACE(moment);
        const std::time_t systemMoment = static_cast<std::time_t>(moment);
        std::tm expected{};
        ASSERT_NE(nullptr, ::localtime_r(&systemMoment, &expected));
        std::tm actual{};
        EXPECT_EQ(0, _localtime64_s(&actual, &moment));
        EXPECT_EQ(expected.tm_year, actual.tm_year);
        EXPECT_EQ(expected.tm_yday, actual.tm_yday);
        EXPECT_EQ(expected.tm_hour, actual.tm_hour);
        EXPECT_EQ(expected.tm_sec, actual.tm_sec);
        EXPECT_EQ(expected.tm_isdst, actual.tm_isdst);
    }
}

TEST(Time64, RefusedMomentsGiveEinvalAndMinusOneFields)
{
    const i64 refused[] = {-1, 32535216000};
    for (i64 moment : refused) {
        SCOPED_TRACE(moment);
        std::tm result{};
        EXPECT_EQ(EINVAL, _localtime64_s(&result, &moment));
        EXPECT_EQ(-1, result.tm_year);
        EXPECT_EQ(-1, result.tm_mday);
        EXPECT_EQ(-1, result.tm_isdst);
    }
    std::tm result{};
    EXPECT_EQ(EINVAL, _localtime64_s(&result, nullptr));
    EXPECT_EQ(-1, result.tm_hour);
    const i64 moment = 0;
    EXPECT_EQ(EINVAL, _localtime64_s(nullptr, &moment));
}

} // namespace
