#include "platform/CodePages.h"
#include "platform/LastError.h"

#include <gtest/gtest.h>

#include <climits>
#include <cwchar>
#include <functional>
#include <iterator>
#include <locale.h>
#include <string>
#include <utility>
#include <vector>

namespace {

// Converts into exactly the size that a size query gave, as the library's strings do; an exact fit
// must get no terminator.
std::wstring toWide(const std::string& narrow, UINT codePage = CP_ACP)
{
    std::wstring wide(64, L'#');
    const int needed = MultiByteToWideChar(codePage, 0, narrow.data(), int(narrow.size()), nullptr, 0);
    const int count = MultiByteToWideChar(codePage, 0, narrow.data(), int(narrow.size()), &wide[0], needed);
    return count > 0 && count == needed && wide[size_t(count)] == L'#' ? wide.substr(0, size_t(count)) : L"<failed>";
}

std::string toNarrow(const std::wstring& wide, UINT codePage = CP_ACP)
{
    std::string narrow(64, '#');
    const int size = int(wide.size());
    const int needed = WideCharToMultiByte(codePage, 0, wide.data(), size, nullptr, 0, nullptr, nullptr);
    const int count = WideCharToMultiByte(codePage, 0, wide.data(), size, &narrow[0], needed, nullptr, nullptr);
    return count > 0 && count == needed && narrow[size_t(count)] == '#' ? narrow.substr(0, size_t(count)) : "<failed>";
}

// The C library's codec is the reference: each length's first and last value, then a sparse grid.
TEST(CodePages, AgreesWithTheCLibraryUtf8Codec)
{
    locale_t utf8 = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", locale_t(nullptr));
    if (utf8 == locale_t(nullptr))
        GTEST_SKIP() << "no C.UTF-8 locale here";
    const locale_t previous = ::uselocale(utf8);
    std::vector<char32_t> values = {0x7F, 0x80, 0x7FF, 0x800, 0xD7FF, 0xE000, 0xFFFF, 0x10000, 0x10FFFF};
    for (char32_t value = 1; value <= 0x10FFFF; value += value < 0x1000 ? 1 : 251) {
        if (value < 0xD800 || value > 0xDFFF)
            values.push_back(value);
    }
    for (char32_t value : values) {
        char reference[MB_LEN_MAX];
        std::mbstate_t state{};
        const size_t size = std::wcrtomb(reference, wchar_t(value), &state);
        ASSERT_NE(size, size_t(-1)) << std::hex << value;
        ASSERT_EQ(toNarrow(std::wstring(1, wchar_t(value))), std::string(reference, size)) << std::hex << value;
        ASSERT_EQ(toWide(std::string(reference, size)), std::wstring(1, wchar_t(value))) << std::hex << value;
    }
    ::uselocale(previous);
    ::freelocale(utf8);
}

// UTF-8 is validated strictly with or without MB_ERR_INVALID_CHARS.
TEST(CodePages, InvalidUtf8Fails1113)
{
    const std::string rows[] = {
        "\xC0\x80", "\xC1\xBF", "\xE0\x80\x80", "\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF",     // overlong
        "\xED\xA0\x80", "\xED\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF", // no scalar value
        "\x80", "\xC3\x28", "ab\xE2\x82", "\xF0\x9F\x98", std::string("\xE2\x82\xAC", 2), // broken or cut
    };
    for (const std::string& bytes : rows) {
        SCOPED_TRACE(::testing::PrintToString(bytes));
        wchar_t output[16];
        SetLastError(0);
        EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, bytes.data(), int(bytes.size()), nullptr, 0), 0);
        EXPECT_EQ(GetLastError(), ERROR_NO_UNICODE_TRANSLATION);
        SetLastError(0);
        EXPECT_EQ(MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, bytes.data(), int(bytes.size()), output, 16), 0);
        EXPECT_EQ(GetLastError(), ERROR_NO_UNICODE_TRANSLATION);
    }
}

// An explicit length takes embedded zeros; a length of -1 ends at the terminator and counts it.
TEST(CodePages, LengthsAndTerminators)
{
    const std::string narrow("a\0\xC3\xA9\xF0\x9F\x98\x80", 8);
    const std::wstring wide(L"a\0\xE9\x1F600", 4);
    for (UINT codePage : {UINT(CP_ACP), UINT(CP_UTF8)}) {
        EXPECT_EQ(toWide(narrow, codePage), wide);
        EXPECT_EQ(toNarrow(wide, codePage), narrow);
    }
    wchar_t wideOut[8];
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "a\xC3\xA9z", -1, nullptr, 0), 4);
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "a\xC3\xA9z", -1, wideOut, 8), 4);
    EXPECT_EQ(std::wstring(wideOut), L"a\xE9z");
    char narrowOut[8];
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, L"a\xE9z", -1, nullptr, 0, nullptr, nullptr), 5);
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, L"a\xE9z", -1, narrowOut, 8, nullptr, nullptr), 5);
    EXPECT_STREQ(narrowOut, "a\xC3\xA9z");
}

// Each argument that Windows checks, in both directions; for CP_UTF8 a default character or its
// flag is refused too.
TEST(CodePages, TooSmallOutputFails122AndBadArguments87)
{
    wchar_t w[4];
    char n[4];
    BOOL used = FALSE;
    const std::pair<std::function<int()>, DWORD> rows[] = {
        {[&] { return MultiByteToWideChar(CP_ACP, 0, "abc", -1, w, 3); }, 122},
        {[&] { return WideCharToMultiByte(CP_ACP, 0, L"\x20AC", 1, n, 2, nullptr, nullptr); }, 122},
        {[&] { return MultiByteToWideChar(1252, 0, "a", 1, w, 4); }, 87},
        {[&] { return WideCharToMultiByte(1252, 0, L"a", 1, n, 4, nullptr, nullptr); }, 87},
        {[&] { return MultiByteToWideChar(CP_ACP, 0, nullptr, 1, w, 4); }, 87},
        {[&] { return WideCharToMultiByte(CP_ACP, 0, nullptr, 1, n, 4, nullptr, nullptr); }, 87},
        {[&] { return MultiByteToWideChar(CP_ACP, 0, "a", 0, w, 4); }, 87},
        {[&] { return WideCharToMultiByte(CP_ACP, 0, L"a", 0, n, 4, nullptr, nullptr); }, 87},
        {[&] { return MultiByteToWideChar(CP_ACP, 0, "a", -2, w, 4); }, 87},
        {[&] { return WideCharToMultiByte(CP_ACP, 0, L"a", -2, n, 4, nullptr, nullptr); }, 87},
        {[&] { return MultiByteToWideChar(CP_ACP, 0, "a", 1, nullptr, 4); }, 87},
        {[&] { return WideCharToMultiByte(CP_ACP, 0, L"a", 1, nullptr, 4, nullptr, nullptr); }, 87},
        {[&] { return MultiByteToWideChar(CP_ACP, 0, "a", 1, w, -1); }, 87},
        {[&] { return WideCharToMultiByte(CP_UTF8, 0, L"a", 1, n, 4, "?", nullptr); }, 87},
        {[&] { return WideCharToMultiByte(CP_UTF8, 0, L"a", 1, n, 4, nullptr, &used); }, 87},
    };
    for (size_t i = 0; i < std::size(rows); ++i) {
        SCOPED_TRACE(i);
        SetLastError(0);
        EXPECT_EQ(rows[i].first(), 0);
        EXPECT_EQ(GetLastError(), rows[i].second);
    }
}

// A surrogate or a value above U+10FFFF becomes U+FFFD, or the default character of code page 0.
TEST(CodePages, NonScalarWideValuesBecomeReplacementOrFail1113)
{
    char narrow[8];
    BOOL used = TRUE;
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, L"ok", 2, narrow, 8, "?", &used), 2);
    EXPECT_FALSE(used);
    for (wchar_t value : {wchar_t(0xD800), wchar_t(0xDFFF), wchar_t(0x110000), wchar_t(-1)}) {
        SCOPED_TRACE(long(value));
        const wchar_t text[] = {L'a', value, L'b'};
        EXPECT_EQ(toNarrow(std::wstring(text, 3)), "a\xEF\xBF\xBD" "b");
        EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, text, 3, narrow, 8, "?", &used), 3);
        EXPECT_EQ(std::string(narrow, 3), "a?b");
        EXPECT_TRUE(used);
        SetLastError(0);
        EXPECT_EQ(WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, text, 3, narrow, 8, nullptr, nullptr), 0);
        EXPECT_EQ(GetLastError(), ERROR_NO_UNICODE_TRANSLATION);
    }
}

} // namespace
