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
#include <utility>

// Reaches the fields, to check what the class keeps and to build states that it never produces.
struct UTL_StringTestAccess
{
    static u64& encoding(UTL_String& s) { return s.m_encoding; }
    static const void* activeBuffer(const UTL_String& s) { return s.m_encoding == 1 ? static_cast<void*>(s.m_narrow) : s.m_wide; }
    static const void* otherBuffer(const UTL_String& s) { return s.m_encoding == 1 ? static_cast<void*>(s.m_wide) : s.m_narrow; }
    // A copy of `source` with `encoding` forced into it; 0 drops its buffers instead.
    static std::unique_ptr<UTL_String> broken(const UTL_String& source, u64 encoding)
    {
        auto s = std::make_unique<UTL_String>(source);
        if (encoding == 0) {
            delete[] s->m_narrow;
            delete[] s->m_wide;
            s->m_narrow = nullptr;
            s->m_wide = nullptr;
        } else {
            s->m_encoding = encoding;
        }
        return s;
    }
};

namespace {

using Access = UTL_StringTestAccess;
using Rows = std::pair<std::function<void()>, unsigned>[];
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

std::string narrow(const UTL_String& s) { return std::string(s.narrowText(), s.convertedLength(UTL_String::Narrow)); }
std::wstring wide(const UTL_String& s) { return std::wstring(s.wideText(), s.convertedLength(UTL_String::Wide)); }
u64 encodingOf(const UTL_String& s) { return Access::encoding(const_cast<UTL_String&>(s)); }

} // namespace

TEST(UTL_String, EmptyStringsReadAsTheSharedEmptyText)
{
    const UTL_String nullNarrow(static_cast<const char*>(nullptr));
    const UTL_String nullWide(static_cast<const wchar_t*>(nullptr));
    EXPECT_EQ(encodingOf(nullWide), u64(UTL_String::Narrow));
    UTL_String cleared(L"abc");
    cleared.clear();
    const UTL_String emptyWide(L"");
    const UTL_String copiedEmpty(emptyWide); // the copy always allocates
    EXPECT_NE(Access::activeBuffer(copiedEmpty), nullptr);
    const UTL_String* cases[] = {&nullNarrow, &nullWide, &cleared, &emptyWide, &copiedEmpty};
    for (const UTL_String* s : cases) {
        EXPECT_EQ(s->length(), 0u);
        EXPECT_STREQ(s->narrowText(), "");
        EXPECT_STREQ(s->wideText(), L"");
        EXPECT_EQ(static_cast<const void*>(s->narrowText()), static_cast<const void*>(s->wideText()));
    }
}

// The other form is rebuilt on every accessor call, so it follows in-place changes; a copy takes
// the active text only.
TEST(UTL_String, ConversionIsRedoneOnEveryCallAndNeverCopied)
{
    UTL_String path("a/b");
    EXPECT_STREQ(path.wideText(), L"a/b");
    EXPECT_EQ(Access::otherBuffer(UTL_String(path)), nullptr);
    path.useBackslashes();
    EXPECT_STREQ(path.wideText(), L"a\\b");
    EXPECT_EQ(path.narrowText(), path.narrowText()); // the active text stays put

    UTL_String widePath(L"/x/");
    EXPECT_STREQ(widePath.narrowText(), "/x/");
    widePath.useBackslashes();
    EXPECT_STREQ(widePath.narrowText(), "\\x\\");
}

TEST(UTL_String, AssignmentKeepsTheBufferOnlyWhenTheOldTextIsAtLeastAsLong)
{
    struct Row { const char* name; UTL_String target, source; bool keepsBuffer; };
    const Row rows[] = {
        {"shorter narrow", UTL_String("abcdef"), UTL_String("xy"), true},
        {"as long narrow", UTL_String("abc"), UTL_String("xyz"), true},
        {"shorter wide", UTL_String(L"abcdef"), UTL_String(L"xy"), true},
        {"longer narrow", UTL_String("ab"), UTL_String("wxyz"), false},
        {"narrow into wide", UTL_String(L"abcdef"), UTL_String("xy"), false},
        {"wide into narrow", UTL_String("abcdef"), UTL_String(L"xy"), false},
        {"empty into wide", UTL_String(L"abc"), UTL_String(L""), false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        UTL_String target(row.target);
        target.narrowText(); // leaves a cache in a wide string
        target.wideText();   // and in a narrow one
        const void* before = Access::activeBuffer(target);
        target = row.source;
        EXPECT_EQ(Access::otherBuffer(target), nullptr);
        if (row.keepsBuffer) {
            EXPECT_EQ(Access::activeBuffer(target), before);
        }
        // An empty source leaves the string narrow, whatever it was.
        EXPECT_EQ(encodingOf(target), row.source.length() ? encodingOf(row.source) : u64(UTL_String::Narrow));
        EXPECT_EQ(target.length(), row.source.length());
        EXPECT_EQ(wide(target), wide(row.source));
    }
    UTL_String self(L"same");
    self = self;
    EXPECT_STREQ(self.wideText(), L"same");
}

TEST(UTL_String, ConcatenationKeepsTheLeftOperandsEncoding)
{
    // A lone surrogate has no UTF-8 form: appended to a narrow string it is lost.
    UTL_String narrowSum("x");
    narrowSum += UTL_String(L"a\xD800");
    EXPECT_EQ(encodingOf(narrowSum), u64(UTL_String::Narrow));
    EXPECT_EQ(wide(narrowSum), L"xa\uFFFD");

    UTL_String wideSum(L"x");
    wideSum += "\xC3\xA9\xE2\x82\xAC"; // five bytes, two characters
    EXPECT_EQ(wideSum.length(), 3u);
    EXPECT_EQ(wide(wideSum), L"x\u00E9\u20AC");

    EXPECT_EQ(encodingOf(L"" + UTL_String("cd")), u64(UTL_String::Wide));
    EXPECT_EQ(narrow("ab" + UTL_String(L"\u00E9")), "ab\xC3\xA9");
    const UTL_String left(L"left");
    EXPECT_EQ(wide(left + UTL_String()), L"left");
    EXPECT_EQ(wide(left + left), L"leftleft");
}

TEST(UTL_String, ComparesNarrowForms)
{
    struct Row { const char* name; UTL_String a, b; bool equal; };
    const Row rows[] = {
        {"two empties", UTL_String(), UTL_String(L""), true},
        {"other encodings", UTL_String("abc"), UTL_String(L"abc"), true},
        {"one element differs", UTL_String("abc"), UTL_String("abd"), false},
        {"prefix", UTL_String("ab"), UTL_String("abc"), false},
        // Each length counts its own encoding's elements: 2 bytes against 1 character.
        {"same character", UTL_String("\xC3\xA9"), UTL_String(L"\u00E9"), false},
        // Both surrogates become U+FFFD in the narrow form.
        {"differ where UTF-8 cannot hold", UTL_String(L"a\xD800"), UTL_String(L"a\xDC00"), true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.a == row.b, row.equal);
        EXPECT_EQ(row.b == row.a, row.equal);
    }
    const UTL_String s(L"hello");
    EXPECT_TRUE(s == s);
    EXPECT_TRUE(UTL_String("abc") < UTL_String(L"abd"));
    EXPECT_FALSE(UTL_String(L"b") < UTL_String("a"));
    EXPECT_TRUE(s.beginsWith("he") && !s.beginsWith("hello!"));
    EXPECT_TRUE(s.endsWith(L"llo") && !s.endsWith("hell"));
    EXPECT_FALSE(s.endsWith("hello world"));
}

TEST(UTL_String, SubstringClampsItsRange)
{
    struct Row { u64 start, count; const wchar_t* expected; };
    const Row rows[] = {{0, 5, L"hello"}, {1, 3, L"ell"}, {3, npos, L"lo"}, {2, 0, L""}, {5, 5, L""}, {6, 5, L""}};
    for (const UTL_String& text : {UTL_String("hello"), UTL_String(L"hello")}) {
        for (const Row& row : rows) {
            SCOPED_TRACE(std::to_string(encodingOf(text)) + " from " + std::to_string(row.start));
            EXPECT_EQ(wide(text.substring(row.start, row.count)), row.expected);
            EXPECT_EQ(text.substring(row.start, row.count).length(), std::wcslen(row.expected));
        }
    }
}

TEST(UTL_String, FindsTextsAndCharacters)
{
    using Search = std::function<u64(const UTL_String&)>;
    const std::pair<Search, u64> rows[] = {
        {[](const UTL_String& s) { return s.find("bc"); }, 1},
        {[](const UTL_String& s) { return s.find("bc", 2); }, 4},
        {[](const UTL_String& s) { return s.find(UTL_String(), 2); }, 2},
        {[](const UTL_String& s) { return s.find("abcabcX"); }, npos},
        {[](const UTL_String& s) { return s.findLast("bc"); }, 4},
        {[](const UTL_String& s) { return s.findLast("abc", 3); }, 3},
        {[](const UTL_String& s) { return s.findLast("abc", 4); }, npos},
        {[](const UTL_String& s) { return s.find('c', 3); }, 5},
        {[](const UTL_String& s) { return s.find(L'b', 2); }, 4},
        {[](const UTL_String& s) { return s.findLast('a', 3); }, 3},
        {[](const UTL_String& s) { return s.findLast('a', 4); }, npos},
        {[](const UTL_String& s) { return s.findLast(L'c'); }, 5},
    };
    for (const UTL_String& text : {UTL_String("abcabc"), UTL_String(L"abcabc")}) {
        for (size_t i = 0; i < std::size(rows); ++i) {
            SCOPED_TRACE("encoding " + std::to_string(encodingOf(text)) + ", row " + std::to_string(i));
            EXPECT_EQ(rows[i].first(text), rows[i].second);
        }
    }
    EXPECT_EQ(UTL_String().find('a'), npos);
    EXPECT_EQ(UTL_String().findLast(L'a'), npos);
    // A character search counts in the character's width, which is not length()'s for UTF-8.
    const UTL_String narrowText("\xC3\xA9/x");
    EXPECT_EQ(narrowText.find('/'), 2u);
    EXPECT_EQ(narrowText.findLast(L'/'), 1u);
    EXPECT_EQ(UTL_String(L"\u20AC/x").findLast('x'), 4u);
}

TEST(UTL_String, EqualsPartTakesTheLimitAsACount)
{
    struct Row { const char *a, *b; unsigned limit, start; bool expected; };
    const Row rows[] = {
        {"", "", 0, 0, true},
        {"abcdef", "abcxyz", 3, 0, true},
        {"abcdef", "abcxyz", 0, 0, false}, // zero limit: the shorter length
        {"abc", "abcdef", 10, 0, true},    // limit lowered to the lengths
        {"abcdef", "abcdeX", 3, 2, true},  // compares [2, 5)
        {"abcdef", "abcdeX", 4, 2, false}, // compares [2, 6), past the limit
        {"abcdeX", "abcdeY", 2, 5, true},  // a start above the limit becomes 0
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.a) + "/" + row.b + " " + std::to_string(row.limit) + "," + std::to_string(row.start));
        EXPECT_EQ(UTL_String(row.a).equalsPart(row.b, row.limit, row.start), row.expected);
    }
}

TEST(UTL_String, PrefixTrimAndQuotes)
{
    using Operation = UTL_String (*)(const UTL_String&, const char*);
    const Operation prefix = [](const UTL_String& s, const char* delimiters) { return s.prefixBefore(delimiters); };
    const Operation trim = [](const UTL_String& s, const char*) { return s.trimmed(); };
    const Operation strip = [](const UTL_String& s, const char*) { return s.stripQuotes(); };
    struct Row { Operation operation; const char *text, *argument, *expected; };
    const Row rows[] = {
        {prefix, "key=value;x", "=;", "key"},
        {prefix, "a;b=c", "=;", "a;b"}, // "=" is tried first and occurs, although ";" stands earlier
        {prefix, "a;b", "=;", "a"},   {prefix, "abc", ";", "abc"},    {prefix, "abc", "", ""},
        {trim, "  abc  ", "", "abc"}, {trim, "\t\na b\n", "", "a b"}, {trim, "abc\r", "", "abc\r"},
        {trim, "\rabc ", "", "\rabc"}, {trim, " \t\n ", "", ""},      {trim, "a ", "", "a"},
        {strip, "\"abc\"", "", "abc"}, {strip, "\"\"", "", ""},       {strip, "\"", "", "\""},
        {strip, "\"abc", "", "\"abc"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.text) + " / " + row.argument);
        EXPECT_EQ(narrow(row.operation(UTL_String(row.text), row.argument)), row.expected);
        EXPECT_EQ(narrow(row.operation(UTL_String(UTL_String(row.text).wideText()), row.argument)), row.expected);
    }
    EXPECT_STREQ(UTL_String("AbC-1").toLower().narrowText(), "abc-1");
    EXPECT_STREQ(UTL_String("AbC-1").toUpper().narrowText(), "ABC-1");
    EXPECT_EQ(UTL_String(L"AbC").toLower().length(), 0u); // not offered for wide text
}

TEST(UTL_String, MatchesWildcardsWithAStrictTrailingStar)
{
    struct Row { const char *text, *pattern; bool expected; };
    const Row rows[] = {
        {"a", "a*", true},    {"ab", "a*", false}, // a trailing "*" takes no remaining text
        {"", "*", true},      {"x", "*", false},     {"ab", "*b", true},  {"abc", "a?c", true},
        {"ac", "a?c", false}, {"abc", "a**c", true}, {"a", "a**", true},  {"ab", "abc", false},
        {"abc", "ab", false}, {"", "?", false},      {"operator_pw_log.html", "*_pw_*.html", true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.text) + " ~ " + row.pattern);
        EXPECT_EQ(UTL_String(row.text).matches(row.pattern), row.expected);
        EXPECT_EQ(UTL_String(UTL_String(row.text).wideText()).matches(row.pattern), row.expected);
    }
    const UTL_String starry(L"a*");
    EXPECT_FALSE(starry.matches(starry));
}

TEST(UTL_String, FormattingExpansionAndShortPath)
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
    EXPECT_STREQ(UTL_String("%ZMU_UTL_STRING_UNSET%").expandEnvironment().narrowText(), "%ZMU_UTL_STRING_UNSET%");
    ::unsetenv("ZMU_UTL_STRING_TEST");
    // Without "%" the text is copied, embedded zero and all: the system's expansion would have
    // ended it at the zero.
    EXPECT_EQ(UTL_String(8, "a%cb", 0).expandEnvironment().length(), 3u);
    EXPECT_STREQ(UTL_String("/tmp/a").shortPath().narrowText(), "/tmp/a");
}

TEST(UTL_String, FailuresThrowTheirCodes)
{
    UTL_String window("old");
    EXPECT_EQ(window.loadWindowText(nullptr, UTL_String::Wide), 0);
    EXPECT_EQ(window.length(), 0u);
    EXPECT_EQ(encodingOf(window), u64(UTL_String::Wide));

    const Rows rows = {
        {[] { UTL_String(3, "%s", "abc"); }, 1}, // the capacity is a hard limit
        {[] { UTL_String(3, L"%s", L"abc"); }, 1},
        {[] { UTL_String(0, L""); }, 1},
        {[&] { window.loadWindowText(reinterpret_cast<HWND>(std::uintptr_t(0x1234)), UTL_String::Narrow); }, 2},
        {[] { UTL_String("a\xFF").wideText(); }, 12},
        {[] { UTL_String(L"a") + "\xC3"; }, 12},
        {[] { UTL_String("a").convertedLength(3); }, 4},
        {[] { Access::broken("abc", 0)->wideText(); }, 5},
        {[] { Access::broken(L"abc", 0)->narrowText(); }, 6},
        {[] { Access::broken("abc", 3)->wideText(); }, 15},
        {[] { Access::broken(L"abc", 0xFF)->narrowText(); }, 15},
        {[] { UTL_String copy(*Access::broken("abc", 3)); }, 15},
        {[] { UTL_String target; target = *Access::broken("abc", 3); }, 15},
        {[] { Access::broken("abc", 3)->convertedLength(UTL_String::Narrow); }, 15},
    };
    for (size_t i = 0; i < std::size(rows); ++i) {
        SCOPED_TRACE("row " + std::to_string(i));
        EXPECT_EQ(codeThrownBy(rows[i].first), rows[i].second);
    }
    EXPECT_FALSE(*Access::broken("abc", 3) < UTL_String("b"));
    // A failed conversion leaves the string as it stood.
    UTL_String s("ok\xFF");
    EXPECT_EQ(codeThrownBy([&] { s.wideText(); }), 12u);
    EXPECT_STREQ(s.narrowText(), "ok\xFF");
}

// The test modules: one serves strings through its exported ZRLoadStringW, one has no strings.
TEST(UTL_StringModules, LoadsStringsFromModules)
{
    HMODULE strings = LoadLibraryW(UTL_String(ZMU_TEST_MODULE_DIR "/libzmu_test_strings.so").wideText());
    HMODULE plain = LoadLibraryW(UTL_String(ZMU_TEST_MODULE_DIR "/libzmu_test_plain.so").wideText());
    ASSERT_NE(strings, nullptr);
    ASSERT_NE(plain, nullptr);

    struct Row { const char* name; HMODULE module; unsigned id, capacity; const wchar_t* expected; DWORD lastError; };
    const Row rows[] = {
        {"a string", strings, 1, 16, L"one", 0},
        {"cut to the capacity", strings, 7, 6, L"seven", 0},
        {"an empty string", strings, 2, 16, L"", 0},
        {"a missing string", strings, 99, 16, L"", ERROR_RESOURCE_NAME_NOT_FOUND},
        {"a module without strings", plain, 1, 16, L"", ERROR_RESOURCE_NAME_NOT_FOUND},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        UTL_String s("previous text");
        SetLastError(12345);
        EXPECT_EQ(s.loadFromModule(row.module, row.id, row.capacity), int(std::wcslen(row.expected)));
        EXPECT_EQ(GetLastError(), row.lastError);
        EXPECT_EQ(wide(s), row.expected);
    }
    EXPECT_STREQ(UTL_String(strings, 1, 32).wideText(), L"one");
    EXPECT_EQ(UTL_String(strings, 2, 32).length(), 0u); // exists and is empty: passes
    EXPECT_STREQ(UTL_String("zmu_test_strings.dll", 1, 16).narrowText(), "one");
    EXPECT_STREQ(UTL_String(L"zmu_test_strings.dll", 7, 6).wideText(), L"seven");

    // The narrow and the wide constructor by name differ in their code for bad arguments, deliberately.
    UTL_String kept("kept");
    const Rows failures = {
        {[&] { kept.loadFromModule(nullptr, 1, 16); }, 2},
        {[&] { kept.loadFromModule(strings, 1, 0); }, 2},
        {[] { UTL_String(HMODULE(nullptr), 1, 32); }, 2},
        {[&] { UTL_String(strings, 99, 32); }, 7},
        {[&] { UTL_String(plain, 1, 32); }, 7},
        {[] { UTL_String(static_cast<const char*>(nullptr), 1, 16); }, 4},
        {[] { UTL_String("zmu_test_strings.dll", 1, 0); }, 4},
        {[] { UTL_String(static_cast<const wchar_t*>(nullptr), 1, 16); }, 2},
        {[] { UTL_String(L"zmu_test_strings.dll", 1, 0); }, 2},
        {[] { UTL_String("zmu_no_such_module.dll", 1, 16); }, 10},
        {[] { UTL_String(L"zmu_no_such_module.dll", 1, 16); }, 10},
        {[] { UTL_String("zmu_test_strings.dll", 2, 16); }, 7}, // an empty string fails on this path
        {[] { UTL_String(L"zmu_test_plain.dll", 1, 16); }, 7},
    };
    for (size_t i = 0; i < std::size(failures); ++i) {
        SCOPED_TRACE("failure row " + std::to_string(i));
        EXPECT_EQ(codeThrownBy(failures[i].first), failures[i].second);
    }
    EXPECT_STREQ(kept.narrowText(), "kept");
    FreeLibrary(strings);
    FreeLibrary(plain);
}
