#include "platform/CodePages.h"
#include "platform/LastError.h"

#include <gtest/gtest.h>

#include <climits>
#include <clocale>
#include <cwchar>
#include <functional>
#include <locale.h>
#include <string>
#include <vector>

namespace {

// Converts with a size query first, as the library's strings do; empty on failure.
std::wstring toWide(const std::string& narrow, UINT codePage = CP_ACP)
{
    const int size = static_cast<int>(narrow.size());
    const int needed = MultiByteToWideChar(codePage, 0, narrow.data(), size, nullptr, 0);
    if (needed <= 0)
        return std::wstring();
    std::wstring wide(static_cast<std::size_t>(needed), L'\0');
    EXPECT_EQ(needed, MultiByteToWideChar(codePage, 0, narrow.data(), size, &wide[0], needed));
    return wide;
}

std::string toNarrow(const std::wstring& wide, UINT codePage = CP_ACP)
{
    const int size = static_cast<int>(wide.size());
    const int needed = WideCharToMultiByte(codePage, 0, wide.data(), size, nullptr, 0, nullptr, nullptr);
    if (needed <= 0)
        return std::string();
    std::string narrow(static_cast<std::size_t>(needed), '\0');
    EXPECT_EQ(needed, WideCharToMultiByte(codePage, 0, wide.data(), size, &narrow[0], needed, nullptr, nullptr));
    return narrow;
}

struct RoundTrip
{
    const char* name;
    std::string narrow;
    std::wstring wide;
};

const RoundTrip kRoundTrips[] = {
    {"ascii", "plain text", L"plain text"},
    {"last one-byte", "\x7F", L"\x7F"},
    {"first two-byte", "\xC2\x80", L"\x80"},
    {"two-byte", "caf\xC3\xA9", L"caf\xE9"},
    {"last two-byte", "\xDF\xBF", L"\x7FF"},
    {"first three-byte", "\xE0\xA0\x80", L"\x800"},
    {"euro sign", "\xE2\x82\xAC", L"\x20AC"},
    {"before surrogates", "\xED\x9F\xBF", L"\xD7FF"},
    {"after surrogates", "\xEE\x80\x80", L"\xE000"},
    {"last three-byte", "\xEF\xBF\xBF", L"\xFFFF"},
    {"first four-byte", "\xF0\x90\x80\x80", L"\x10000"},
    {"emoji", "\xF0\x9F\x98\x80", L"\x1F600"},
    {"last scalar value", "\xF4\x8F\xBF\xBF", L"\x10FFFF"},
    {"embedded null", std::string("a\0b", 3), std::wstring(L"a\0b", 3)},
};

TEST(CodePages, RoundTripsEveryEncodingLength)
{
    for (const RoundTrip& row : kRoundTrips) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.wide, toWide(row.narrow));
        EXPECT_EQ(row.wide, toWide(row.narrow, CP_UTF8));
        EXPECT_EQ(row.narrow, toNarrow(row.wide));
        EXPECT_EQ(row.narrow, toNarrow(row.wide, CP_UTF8));
    }
}

// The C library's own UTF-8 codec is the reference for every scalar value on a sparse grid.
TEST(CodePages, AgreesWithTheCLibraryUtf8Codec)
{
    locale_t utf8 = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(nullptr));
    if (utf8 == static_cast<locale_t>(nullptr))
        GTEST_SKIP() << "no C.UTF-8 locale here";
    const locale_t previous = ::uselocale(utf8);
    for (char32_t value = 1; value <= 0x10FFFF; value += value < 0x1000 ? 1 : 251) {
        if (value >= 0xD800 && value <= 0xDFFF)
            continue;
        char reference[MB_LEN_MAX];
        std::mbstate_t state{};
        const std::size_t size = std::wcrtomb(reference, static_cast<wchar_t>(value), &state);
        ASSERT_NE(static_cast<std::size_t>(-1), size) << std::hex << value;
        const std::string narrow(reference, size);
        const std::wstring wide(1, static_cast<wchar_t>(value));
        ASSERT_EQ(narrow, toNarrow(wide)) << std::hex << value;
        ASSERT_EQ(wide, toWide(narrow)) << std::hex << value;
    }
    ::uselocale(previous);
    ::freelocale(utf8);
}

TEST(CodePages, InvalidUtf8Fails1113)
{
    struct Row
    {
        const char* name;
        std::string bytes;
    };
    const Row rows[] = {
        {"overlong NUL", "\xC0\x80"},
        {"overlong two-byte", "\xC1\xBF"},
        {"overlong three-byte", "\xE0\x80\x80"},
        {"overlong three-byte, top", "\xE0\x9F\xBF"},
        {"overlong four-byte", "\xF0\x8F\xBF\xBF"},
        {"high surrogate", "\xED\xA0\x80"},
        {"low surrogate", "\xED\xBF\xBF"},
        {"above U+10FFFF", "\xF4\x90\x80\x80"},
        {"lead F5", "\xF5\x80\x80\x80"},
        {"lead FF", "\xFF"},
        {"lone continuation", "\x80"},
        {"continuation missing", "\xC3\x28"},
        {"cut three-byte", "ab\xE2\x82"},
        {"cut four-byte", "\xF0\x9F\x98"},
        {"cut by the length", std::string("\xE2\x82\xAC", 2)},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const int size = static_cast<int>(row.bytes.size());
        SetLastError(0);
        EXPECT_EQ(0, MultiByteToWideChar(CP_ACP, 0, row.bytes.data(), size, nullptr, 0));
        EXPECT_EQ(ERROR_NO_UNICODE_TRANSLATION, GetLastError());
        wchar_t output[16];
        SetLastError(0);
        EXPECT_EQ(0, MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, row.bytes.data(), size, output, 16));
        EXPECT_EQ(ERROR_NO_UNICODE_TRANSLATION, GetLastError());
    }
}

TEST(CodePages, MinusOneLengthIncludesTheTerminator)
{
    wchar_t wide[8];
    EXPECT_EQ(4, MultiByteToWideChar(CP_ACP, 0, "a\xC3\xA9z", -1, nullptr, 0));
    ASSERT_EQ(4, MultiByteToWideChar(CP_ACP, 0, "a\xC3\xA9z", -1, wide, 8));
    EXPECT_EQ(std::wstring(L"a\xE9z"), std::wstring(wide));

    char narrow[8];
    EXPECT_EQ(5, WideCharToMultiByte(CP_ACP, 0, L"a\xE9z", -1, nullptr, 0, nullptr, nullptr));
    ASSERT_EQ(5, WideCharToMultiByte(CP_ACP, 0, L"a\xE9z", -1, narrow, 8, nullptr, nullptr));
    EXPECT_STREQ("a\xC3\xA9z", narrow);
}

TEST(CodePages, ExactFitWritesNoTerminatorAndOneLessFails122)
{
    wchar_t wide[4] = {L'#', L'#', L'#', L'#'};
    EXPECT_EQ(3, MultiByteToWideChar(CP_ACP, 0, "abc", 3, wide, 3));
    EXPECT_EQ(L'#', wide[3]);
    SetLastError(0);
    EXPECT_EQ(0, MultiByteToWideChar(CP_ACP, 0, "abc", -1, wide, 3));
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, GetLastError());

    char narrow[4] = {'#', '#', '#', '#'};
    EXPECT_EQ(2, WideCharToMultiByte(CP_ACP, 0, L"\xE9", 1, narrow, 2, nullptr, nullptr));
    EXPECT_EQ('#', narrow[2]);
    SetLastError(0);
    EXPECT_EQ(0, WideCharToMultiByte(CP_ACP, 0, L"\x20AC", 1, narrow, 2, nullptr, nullptr));
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, GetLastError());
}

TEST(CodePages, BadArgumentsFail87)
{
    wchar_t wide[4];
    char narrow[4];
    BOOL used = FALSE;
    struct Row
    {
        const char* name;
        std::function<int()> call;
    };
    const Row rows[] = {
        {"narrow: other code page", [&] { return MultiByteToWideChar(1252, 0, "a", 1, wide, 4); }},
        {"narrow: null source", [&] { return MultiByteToWideChar(CP_ACP, 0, nullptr, 1, wide, 4); }},
        {"narrow: zero length", [&] { return MultiByteToWideChar(CP_ACP, 0, "a", 0, wide, 4); }},
        {"narrow: length below -1", [&] { return MultiByteToWideChar(CP_ACP, 0, "a", -2, wide, 4); }},
        {"narrow: null output with a size", [&] { return MultiByteToWideChar(CP_ACP, 0, "a", 1, nullptr, 4); }},
        {"narrow: negative size", [&] { return MultiByteToWideChar(CP_ACP, 0, "a", 1, wide, -1); }},
        {"wide: other code page", [&] { return WideCharToMultiByte(1252, 0, L"a", 1, narrow, 4, nullptr, nullptr); }},
        {"wide: null source", [&] { return WideCharToMultiByte(CP_ACP, 0, nullptr, 1, narrow, 4, nullptr, nullptr); }},
        {"wide: zero length", [&] { return WideCharToMultiByte(CP_ACP, 0, L"a", 0, narrow, 4, nullptr, nullptr); }},
        {"wide: length below -1",
         [&] { return WideCharToMultiByte(CP_ACP, 0, L"a", -2, narrow, 4, nullptr, nullptr); }},
        {"wide: null output with a size",
         [&] { return WideCharToMultiByte(CP_ACP, 0, L"a", 1, nullptr, 4, nullptr, nullptr); }},
        {"wide: UTF-8 with a default char",
         [&] { return WideCharToMultiByte(CP_UTF8, 0, L"a", 1, narrow, 4, "?", nullptr); }},
        {"wide: UTF-8 asking for the default's use",
         [&] { return WideCharToMultiByte(CP_UTF8, 0, L"a", 1, narrow, 4, nullptr, &used); }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        SetLastError(0);
        EXPECT_EQ(0, row.call());
        EXPECT_EQ(ERROR_INVALID_PARAMETER, GetLastError());
    }
}

TEST(CodePages, NonScalarWideValuesBecomeReplacementOrFail1113)
{
    const std::wstring values[] = {std::wstring(1, static_cast<wchar_t>(0xD800)),
                                   std::wstring(1, static_cast<wchar_t>(0xDFFF)),
                                   std::wstring(1, static_cast<wchar_t>(0x110000)),
                                   std::wstring(1, static_cast<wchar_t>(-1))};
    for (const std::wstring& value : values) {
        SCOPED_TRACE(static_cast<long>(value[0]));
        const std::wstring text = L"a" + value + L"b";
        EXPECT_EQ("a\xEF\xBF\xBD" "b", toNarrow(text));

        char narrow[8];
        SetLastError(0);
        EXPECT_EQ(0, WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, text.data(), 3, narrow, 8, nullptr, nullptr));
        EXPECT_EQ(ERROR_NO_UNICODE_TRANSLATION, GetLastError());

        BOOL used = FALSE;
        ASSERT_EQ(3, WideCharToMultiByte(CP_ACP, 0, text.data(), 3, narrow, 8, "?", &used));
        EXPECT_EQ("a?b", std::string(narrow, 3));
        EXPECT_EQ(TRUE, used);
    }
    BOOL used = TRUE;
    char narrow[8];
    EXPECT_EQ(2, WideCharToMultiByte(CP_ACP, 0, L"ok", 2, narrow, 8, "?", &used));
    EXPECT_EQ(FALSE, used);
}

} // namespace
