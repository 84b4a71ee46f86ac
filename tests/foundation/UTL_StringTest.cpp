#include "foundation/UTL_String.h"

#include "foundation/UTL_Exception.h"
#include "platform/LastError.h"
#include "platform/Modules.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cwchar>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <tuple>
#include <utility>

// Reaches the fields, to check what the class keeps and to build states that it never produces.
struct UTL_StringTestAccess
{
    static u64 encoding(const UTL_String& s) { return s.m_encoding; }
    static const void* cache(const UTL_String& s)
    {
        return s.m_encoding == 1 ? static_cast<const void*>(s.m_wide) : s.m_narrow;
    }
    // A copy of `source` with `encoding` forced into it; 0 drops its buffers instead.
    static std::unique_ptr<UTL_String> broken(const UTL_String& source, u64 encoding)
    {
        auto s = std::make_unique<UTL_String>(source);
        if (encoding != 0) {
            s->m_encoding = encoding;
            return s;
        }
        delete[] s->m_narrow;
        delete[] s->m_wide;
        s->m_narrow = nullptr;
        s->m_wide = nullptr;
        return s;
    }
};

namespace {

using Access = UTL_StringTestAccess;
using Row = std::pair<std::function<void()>, unsigned>; // an action and the code it throws
const u64 npos = UTL_String::npos;

// The code of the UTL_Exception that `action` throws; 0 if it throws none.
unsigned codeThrownBy(const std::function<void()>& action)
{
    try {
        action();
    } catch (const UTL_Exception& e) {
        return UTL_ExceptionAccess::codeOf(e);
    }
    return 0;
}

template <size_t N>
void expectCodes(const Row (&rows)[N])
{
    for (size_t i = 0; i < N; ++i)
        EXPECT_EQ(codeThrownBy(rows[i].first), rows[i].second) << "row " << i;
}

std::string narrow(const UTL_String& s) { return std::string(s.narrowText(), s.convertedLength(UTL_String::Narrow)); }
std::wstring wide(const UTL_String& s) { return std::wstring(s.wideText(), s.convertedLength(UTL_String::Wide)); }

} // namespace

TEST(UTL_String, NullAndEmptyTextsReadAsEmptyInBothForms)
{
    UTL_String cleared(L"abc");
    cleared.clear();
    for (const UTL_String& s : {UTL_String(static_cast<const char*>(nullptr)),
                                UTL_String(static_cast<const wchar_t*>(nullptr)), UTL_String(L""), cleared}) {
        EXPECT_EQ(s.length(), 0u);
        EXPECT_STREQ(s.narrowText(), "");
        EXPECT_STREQ(s.wideText(), L"");
    }
    EXPECT_EQ(Access::encoding(UTL_String(static_cast<const wchar_t*>(nullptr))), u64(UTL_String::Narrow));
}

// The other form is rebuilt on every call, so it follows in-place changes; a copy takes the
// active text only.
TEST(UTL_String, ConversionIsRedoneOnEveryCallAndNeverCopied)
{
    UTL_String path("a/b");
    EXPECT_STREQ(path.wideText(), L"a/b");
    EXPECT_EQ(Access::cache(UTL_String(path)), nullptr);
    path.useBackslashes();
    EXPECT_STREQ(path.wideText(), L"a\\b");
    UTL_String widePath(L"/x/");
    EXPECT_STREQ(widePath.narrowText(), "/x/");
    widePath.useBackslashes();
    EXPECT_STREQ(widePath.narrowText(), "\\x\\");
}

// The target takes the source's text and encoding (an empty source leaves it narrow) and drops
// its cache, whatever the lengths, also assigned to itself.
TEST(UTL_String, AssignmentTakesTextAndEncoding)
{
    const std::pair<UTL_String, UTL_String> rows[] = {
        {"abcdef", "xy"}, {"abc", "xyz"}, {"ab", "wxyz"}, {L"abcdef", L"xy"},
        {L"abcdef", "xy"}, {"abcdef", L"xy"}, {L"abc", L""},
    };
    for (const auto& [original, source] : rows) {
        SCOPED_TRACE(narrow(original) + " = " + narrow(source));
        UTL_String target(original);
        target.narrowText(); // leaves a cache in a wide string
        target.wideText();   // and in a narrow one
        target = source;
        EXPECT_EQ(Access::cache(target), nullptr);
        EXPECT_EQ(Access::encoding(target), source.length() ? Access::encoding(source) : u64(UTL_String::Narrow));
        EXPECT_EQ(target.length(), source.length());
        EXPECT_EQ(wide(target), wide(source));
    }
    UTL_String self(L"same");
    self = self;
    EXPECT_STREQ(self.wideText(), L"same");
}

// The sum keeps the left operand's encoding, with the losses of converting the right one to it.
TEST(UTL_String, ConcatenationKeepsTheLeftOperandsEncoding)
{
    UTL_String narrowSum("x");
    narrowSum += UTL_String(L"a\xD800"); // a lone surrogate has no UTF-8 form
    EXPECT_EQ(Access::encoding(narrowSum), u64(UTL_String::Narrow));
    EXPECT_EQ(wide(narrowSum), L"xa\uFFFD");
    UTL_String wideSum(L"x");
    wideSum += "\xC3\xA9\xE2\x82\xAC"; // five bytes, two characters
    EXPECT_EQ(wideSum.length(), 3u);
    EXPECT_EQ(wide(wideSum), L"x\u00E9\u20AC");
    EXPECT_EQ(Access::encoding(L"" + UTL_String("cd")), u64(UTL_String::Wide));
    EXPECT_EQ(narrow("ab" + UTL_String(L"\u00E9")), "ab\xC3\xA9");
    const UTL_String left(L"left");
    EXPECT_EQ(wide(left + UTL_String()), L"left");
    EXPECT_EQ(wide(left + left), L"leftleft");
}

// Equality compares the narrow forms, each length counted in its own encoding's elements.
TEST(UTL_String, ComparesNarrowForms)
{
    const std::tuple<UTL_String, UTL_String, bool> rows[] = {
        {UTL_String(), UTL_String(L""), true},           {UTL_String("abc"), UTL_String(L"abc"), true},
        {UTL_String("abc"), UTL_String("abd"), false},   {UTL_String("ab"), UTL_String("abc"), false},
        {UTL_String("\xC3\xA9"), UTL_String(L"\u00E9"), false}, // 2 bytes against 1 character
        {UTL_String(L"a\xD800"), UTL_String(L"a\xDC00"), true},  // both surrogates become U+FFFD
    };
    for (const auto& [a, b, equal] : rows) {
        EXPECT_EQ(a == b, equal) << narrow(a) << " == " << narrow(b);
        EXPECT_EQ(b == a, equal) << narrow(b) << " == " << narrow(a);
    }
    EXPECT_TRUE(UTL_String("abc") < UTL_String(L"abd"));
    EXPECT_FALSE(UTL_String(L"b") < UTL_String("a"));
    const UTL_String s(L"hello");
    EXPECT_TRUE(s.beginsWith("he") && !s.beginsWith("hello!"));
    EXPECT_TRUE(s.endsWith(L"llo") && !s.endsWith("hell") && !s.endsWith("hello world"));
}

TEST(UTL_String, FindsAndCutsInEitherEncoding)
{
    const std::tuple<u64, u64, const wchar_t*> cuts[] = {
        {0, 6, L"abcabc"}, {1, 3, L"bca"}, {3, npos, L"abc"}, {2, 0, L""}, {6, 5, L""}, {7, 5, L""}};
    for (const UTL_String& s : {UTL_String("abcabc"), UTL_String(L"abcabc")}) {
        SCOPED_TRACE(Access::encoding(s) == UTL_String::Narrow ? "narrow" : "wide");
        const std::pair<u64, u64> found[] = {
            {s.find("bc"), 1},      {s.find("bc", 2), 4},      {s.find(UTL_String(), 2), 2}, {s.find("abcabcX"), npos},
            {s.findLast("bc"), 4},  {s.findLast("abc", 3), 3}, {s.findLast("abc", 4), npos}, {s.find('c', 3), 5},
            {s.find(L'b', 2), 4},   {s.findLast('a', 3), 3},   {s.findLast('a', 4), npos},   {s.findLast(L'c'), 5},
        };
        for (size_t i = 0; i < std::size(found); ++i)
            EXPECT_EQ(found[i].first, found[i].second) << "search " << i;
        for (const auto& [start, count, expected] : cuts) {
            EXPECT_EQ(wide(s.substring(start, count)), expected) << start << ", " << count;
            EXPECT_EQ(s.substring(start, count).length(), std::wcslen(expected)) << start << ", " << count;
        }
    }
    EXPECT_EQ(UTL_String().find('a'), npos);
    // A character search counts in the character's width, which is not length()'s for UTF-8.
    EXPECT_EQ(UTL_String("\xC3\xA9/x").find('/'), 2u);
    EXPECT_EQ(UTL_String("\xC3\xA9/x").findLast(L'/'), 1u);
    EXPECT_EQ(UTL_String(L"\u20AC/x").findLast('x'), 4u);
}

TEST(UTL_String, EqualsPartTakesTheLimitAsACount)
{
    const std::tuple<const char*, const char*, unsigned, unsigned, bool> rows[] = {
        {"", "", 0, 0, true},
        {"abcdef", "abcxyz", 3, 0, true},
        {"abcdef", "abcxyz", 0, 0, false}, // zero limit: the shorter length
        {"abc", "abcdef", 10, 0, true},    // limit lowered to the lengths
        {"abcdef", "abcdeX", 3, 2, true},  // compares [2, 5)
        {"abcdef", "abcdeX", 4, 2, false}, // compares [2, 6), past the limit
        {"abcdeX", "abcdeY", 2, 5, true},  // a start above the limit becomes 0
    };
    for (const auto& [a, b, limit, start, expected] : rows)
        EXPECT_EQ(UTL_String(a).equalsPart(b, limit, start), expected) << a << "/" << b << " " << limit << "," << start;
}

// prefixBefore tries the delimiters in the order given; trimmed leaves carriage returns.
TEST(UTL_String, PrefixTrimAndQuotes)
{
    using Operation = UTL_String (*)(const UTL_String&, const char*);
    const Operation prefix = [](const UTL_String& s, const char* delimiters) { return s.prefixBefore(delimiters); };
    const Operation trim = [](const UTL_String& s, const char*) { return s.trimmed(); };
    const Operation strip = [](const UTL_String& s, const char*) { return s.stripQuotes(); };
    const std::tuple<Operation, const char*, const char*, const char*> rows[] = {
        {prefix, "a;b=c", "=;", "a;b"}, {prefix, "a;b", "=;", "a"},     {prefix, "abc", ";", "abc"},
        {prefix, "abc", "", ""},        {trim, "\t\na b\n", "", "a b"}, {trim, "abc\r", "", "abc\r"},
        {trim, "\rabc ", "", "\rabc"},  {trim, " \t\n ", "", ""},      {strip, "\"abc\"", "", "abc"},
        {strip, "\"\"", "", ""},        {strip, "\"", "", "\""},       {strip, "\"abc", "", "\"abc"},
    };
    for (const auto& [operation, text, argument, expected] : rows) {
        SCOPED_TRACE(::testing::PrintToString(std::string(text)) + " / " + argument);
        EXPECT_EQ(narrow(operation(UTL_String(text), argument)), expected);
        EXPECT_EQ(narrow(operation(UTL_String(UTL_String(text).wideText()), argument)), expected);
    }
    EXPECT_STREQ(UTL_String("AbC-1").toLower().narrowText(), "abc-1");
    EXPECT_STREQ(UTL_String("AbC-1").toUpper().narrowText(), "ABC-1");
    EXPECT_EQ(UTL_String(L"AbC").toLower().length(), 0u); // not offered for wide text
}

// "?" is any one character, "*" a run, but a trailing "*" matches no remaining text.
TEST(UTL_String, MatchesWildcardsWithAStrictTrailingStar)
{
    const std::tuple<const char*, const char*, bool> rows[] = {
        {"a", "a*", true},     {"ab", "a*", false}, {"", "*", true},     {"ab", "*b", true},   {"abc", "a?c", true},
        {"ac", "a?c", false},  {"abc", "a**c", true}, {"a", "a**", true}, {"ab", "abc", false}, {"abc", "ab", false},
        {"", "?", false},      {"operator_pw_log.html", "*_pw_*.html", true},
    };
    for (const auto& [text, pattern, expected] : rows) {
        EXPECT_EQ(UTL_String(text).matches(pattern), expected) << text << " ~ " << pattern;
        EXPECT_EQ(UTL_String(UTL_String(text).wideText()).matches(pattern), expected) << text << " ~ " << pattern;
    }
}

TEST(UTL_String, FormatsConvertsAndExpands)
{
    EXPECT_STREQ(UTL_String(16, "%d-%s", 5, "x").narrowText(), "5-x");
    EXPECT_STREQ(UTL_String(16, L"%s=%d", L"k", 3).wideText(), L"k=3");
    EXPECT_EQ(UTL_String(4, "%s", "abc").length(), 3u);
    EXPECT_EQ(UTL_String(4, L"%s", L"abc").length(), 3u);
    EXPECT_EQ(UTL_String(-2147483647 - 1).toInt(), -2147483647 - 1);
    EXPECT_EQ(UTL_String(L"123abc").toInt(), 123);

    ::setenv("ZMU_UTL_STRING_TEST", "value", 1);
    EXPECT_STREQ(UTL_String("%ZMU_UTL_STRING_TEST%/x").expandEnvironment().narrowText(), "value/x");
    EXPECT_STREQ(UTL_String(L"a%ZMU_UTL_STRING_TEST%").expandEnvironment().wideText(), L"avalue");
    ::unsetenv("ZMU_UTL_STRING_TEST");
    // Without "%" the text is copied, embedded zero and all (the system's expansion would end there).
    EXPECT_EQ(UTL_String(8, "a%cb", 0).expandEnvironment().length(), 3u);
}

// Every failure throws its code and leaves the string as it stood.
TEST(UTL_String, FailuresThrowTheirCodes)
{
    UTL_String window("old");
    EXPECT_EQ(window.loadWindowText(nullptr, UTL_String::Wide), 0);
    EXPECT_EQ(window.length(), 0u);
    EXPECT_EQ(Access::encoding(window), u64(UTL_String::Wide));
    // A handle that names no window reads as an empty text, as on Windows.
    EXPECT_EQ(window.loadWindowText(reinterpret_cast<HWND>(std::uintptr_t(0x1234)), UTL_String::Narrow), 0);
    EXPECT_EQ(Access::encoding(window), u64(UTL_String::Narrow));
    const Row rows[] = {
        {[] { UTL_String(3, "%s", "abc"); }, 1}, // the capacity is a hard limit
        {[] { UTL_String(3, L"%s", L"abc"); }, 1},              {[] { UTL_String(0, L""); }, 1},
        {[] { UTL_String("a\xFF").wideText(); }, 12},           {[] { UTL_String(L"a") + "\xC3"; }, 12},
        {[] { UTL_String("a").convertedLength(3); }, 4},        {[] { Access::broken("abc", 0)->wideText(); }, 5},
        {[] { Access::broken(L"abc", 0)->narrowText(); }, 6},   {[] { Access::broken("abc", 3)->wideText(); }, 15},
        {[] { Access::broken(L"abc", 0xFF)->narrowText(); }, 15},
        {[] { UTL_String copy(*Access::broken("abc", 3)); }, 15},
        {[] { UTL_String target; target = *Access::broken("abc", 3); }, 15},
        {[] { Access::broken("abc", 3)->convertedLength(UTL_String::Narrow); }, 15},
    };
    expectCodes(rows);
    EXPECT_FALSE(*Access::broken("abc", 3) < UTL_String("b"));
    UTL_String s("ok\xFF");
    EXPECT_EQ(codeThrownBy([&] { s.wideText(); }), 12u);
    EXPECT_STREQ(s.narrowText(), "ok\xFF");
}

// The test modules: one serves strings through its exported ZRLoadStringW, one has no strings.
TEST(UTL_StringModules, LoadsStringsFromModules)
{
    HMODULE strings = LoadLibraryW(UTL_String(ZMU_TEST_MODULE_DIR "/libzmu_test_strings.so").wideText());
    HMODULE plain = LoadLibraryW(UTL_String(ZMU_TEST_MODULE_DIR "/libzmu_test_plain.so").wideText());
    ASSERT_TRUE(strings != nullptr && plain != nullptr);
    const std::tuple<HMODULE, unsigned, unsigned, const wchar_t*, DWORD> rows[] = {
        {strings, 1, 16, L"one", 0}, {strings, 7, 6, L"seven", 0}, {strings, 2, 16, L"", 0},
        {strings, 99, 16, L"", ERROR_RESOURCE_NAME_NOT_FOUND}, {plain, 1, 16, L"", ERROR_RESOURCE_NAME_NOT_FOUND},
    };
    for (const auto& [module, id, capacity, expected, lastError] : rows) {
        SCOPED_TRACE(id);
        UTL_String s("previous text");
        SetLastError(12345);
        EXPECT_EQ(s.loadFromModule(module, id, capacity), int(std::wcslen(expected)));
        EXPECT_EQ(GetLastError(), lastError);
        EXPECT_EQ(wide(s), expected);
    }
    EXPECT_EQ(UTL_String(strings, 2, 32).length(), 0u); // exists and is empty: passes
    EXPECT_STREQ(UTL_String("zmu_test_strings.dll", 1, 16).narrowText(), "one");
    EXPECT_STREQ(UTL_String(L"zmu_test_strings.dll", 7, 6).wideText(), L"seven");

    // The narrow and the wide constructor by name differ in their code for bad arguments, deliberately.
    UTL_String kept("kept");
    const Row failures[] = {
        {[&] { kept.loadFromModule(nullptr, 1, 16); }, 2},     {[&] { kept.loadFromModule(strings, 1, 0); }, 2},
        {[] { UTL_String(HMODULE(nullptr), 1, 32); }, 2},       {[&] { UTL_String(strings, 99, 32); }, 7},
        {[&] { UTL_String(plain, 1, 32); }, 7},                 {[] { UTL_String("zmu_test_strings.dll", 1, 0); }, 4},
        {[] { UTL_String(static_cast<const char*>(nullptr), 1, 16); }, 4},
        {[] { UTL_String(static_cast<const wchar_t*>(nullptr), 1, 16); }, 2},
        {[] { UTL_String(L"zmu_test_strings.dll", 1, 0); }, 2}, {[] { UTL_String(L"zmu_test_plain.dll", 1, 16); }, 7},
        {[] { UTL_String("zmu_no_such_module.dll", 1, 16); }, 10},
        {[] { UTL_String(L"zmu_no_such_module.dll", 1, 16); }, 10},
        {[] { UTL_String("zmu_test_strings.dll", 2, 16); }, 7}, // an empty string fails on this path
    };
    expectCodes(failures);
    EXPECT_STREQ(kept.narrowText(), "kept");
    FreeLibrary(strings);
    FreeLibrary(plain);
}
