#include "platform/FormatMessage.h"

#include "platform/LastError.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cwchar>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr DWORD kFromArray = FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ARGUMENT_ARRAY;

u64 slot(const void* pointer)
{
    return static_cast<u64>(reinterpret_cast<std::uintptr_t>(pointer));
}

struct Outcome
{
    DWORD count = 0;
    std::wstring text;
    DWORD error = 0;
};

// Formats into a buffer of `size` characters inside a larger one, and fails the test if
// anything past `size` was touched.
Outcome format(DWORD flags, const wchar_t* text, const std::vector<u64>& inserts, DWORD size = 1024)
{
    constexpr wchar_t kUntouched = L'\x2603';
    std::vector<wchar_t> buffer(size + 16, kUntouched);
    SetLastError(0);
    Outcome outcome;
    outcome.count = FormatMessageW(flags, text, 0, 0, buffer.data(), size, inserts.empty() ? nullptr : inserts.data());
    outcome.error = GetLastError();
    for (std::size_t i = size; i < buffer.size(); ++i)
        EXPECT_EQ(buffer[i], kUntouched) << "written past the size at " << i;
    if (size > 0)
        outcome.text.assign(buffer.data(), ::wcsnlen(buffer.data(), size));
    return outcome;
}

struct Row
{
    const char* name;
    DWORD width;
    const wchar_t* text;
    std::vector<u64> inserts;
    const wchar_t* expected;
};

void expectRows(const std::vector<Row>& rows)
{
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Outcome outcome = format(kFromArray | row.width, row.text, row.inserts);
        EXPECT_EQ(outcome.text, std::wstring(row.expected));
        EXPECT_EQ(outcome.count, std::wcslen(row.expected));
        EXPECT_EQ(outcome.error, 0u);
    }
}

} // namespace

TEST(FormatMessage, EscapesStandForTheirCharacters)
{
    expectRows({
        {"percent", 0, L"100%% sure", {}, L"100% sure"},
        {"full stop", 0, L"%.start", {}, L".start"},
        {"exclamation mark", 0, L"Stop%!", {}, L"Stop!"},
        {"carriage return", 0, L"a%rb", {}, L"a\rb"},
        {"tab", 0, L"a%tb", {}, L"a\tb"},
        {"space", 0, L"a%bb%b", {}, L"a b "},
        {"hard break", 0, L"a%nb", {}, L"a\r\nb"},
        {"other character", 0, L"%q%-%~", {}, L"q-~"},
        {"percent at the end", 0, L"100%", {}, L"100%"},
        {"end mark stops the text", 0, L"Prompt: %0ignored%n", {}, L"Prompt: "},
        {"end mark at the end", 0, L"Prompt: %0", {}, L"Prompt: "},
        {"end mark after a line break", 0, L"line\r\n%0", {}, L"line\r\n"},
        {"empty text", 0, L"", {}, L""},
    });
}

TEST(FormatMessage, InsertsFollowTheirPrintfFormat)
{
    const wchar_t* const wide = L"first.html";
    const char* const narrow = "caf\xC3\xA9";
    expectRows({
        {"design example", 0, L"This log file is #%1!u! in a series that began with %2!s!.", {3, slot(wide)},
         L"This log file is #3 in a series that began with first.html."},
        {"no format is a string", 0, L"<%1>", {slot(wide)}, L"<first.html>"},
        {"null string", 0, L"<%1!s!>", {0}, L"<(null)>"},
        {"narrow string S", 0, L"%1!S!", {slot(narrow)}, L"caf\u00E9"},
        {"narrow string hs", 0, L"%1!hs!", {slot(narrow)}, L"caf\u00E9"},
        {"width and precision of a string", 0, L"[%1!5.2s!]", {slot(L"abcdef")}, L"[   ab]"},
        {"left-aligned string", 0, L"[%1!-5s!]", {slot(L"ab")}, L"[ab   ]"},
        {"unsigned from the low half", 0, L"%1!u!", {0x100000005ull}, L"5"},
        {"l is 32 bits", 0, L"%1!lu!", {0x1FFFFFFFFull}, L"4294967295"},
        {"I64 is 64 bits", 0, L"%1!I64u!", {0x100000005ull}, L"4294967301"},
        {"ll is 64 bits", 0, L"%1!llu!", {0x100000005ull}, L"4294967301"},
        {"signed", 0, L"%1!d! %1!i! %1!ld!", {0xFFFFFFFFull}, L"-1 -1 -1"},
        {"lowest signed", 0, L"%1!d! %2!I64d!", {0x80000000ull, 0x8000000000000000ull},
         L"-2147483648 -9223372036854775808"},
        {"signed 64 bits", 0, L"%1!I64d! %1!lld! %1!I64u!", {~0ull}, L"-1 -1 18446744073709551615"},
        {"short", 0, L"%1!hd! %1!hu!", {0x1FFFFull}, L"-1 65535"},
        {"wide string ls", 0, L"%1!ls! %1!ws!", {slot(L"w")}, L"w w"},
        {"zero padded", 0, L"%1!02d!:%2!02d!", {4, 12}, L"04:12"},
        {"hexadecimal", 0, L"%1!x! %1!X! %1!#x!", {255}, L"ff FF 0xff"},
        {"octal", 0, L"%1!o!", {8}, L"10"},
        {"character", 0, L"%1!c!", {L'A'}, L"A"},
        {"star width takes the next slot", 0, L"[%1!*d!]", {5, 42}, L"[   42]"},
        {"stars take two slots", 0, L"%1!*.*s! %4 %5!*s!", {6, 2, slot(L"abcdef"), slot(L"x"), 3, slot(L"yz")},
         L"    ab x  yz"},
        {"order and repetition", 0, L"%2-%1-%2", {slot(L"a"), slot(L"b")}, L"b-a-b"},
        {"two digits", 0, L"%12", {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, slot(L"twelve")}, L"twelve"},
        {"at most two digits", 0, L"%100", {0, 0, 0, 0, 0, 0, 0, 0, 0, slot(L"ten")}, L"ten0"},
        {"escapes inside inserted text are plain", 0, L"%1", {slot(L"%n%1")}, L"%n%1"},
    });
}

TEST(FormatMessage, LineWidthDecidesTheLineBreaks)
{
    const wchar_t* const breaks = L"one\ntwo\r\nthree";
    expectRows({
        {"0 keeps text breaks", 0, breaks, {}, L"one\r\ntwo\r\nthree"},
        {"0 never wraps", 0, L"aaaa bbbb cccc dddd", {}, L"aaaa bbbb cccc dddd"},
        {"255 turns text breaks into blanks", 255, breaks, {}, L"one two three"},
        {"255 keeps hard breaks", 255, L"one\ntwo%nthree", {}, L"one two\r\nthree"},
        {"10 wraps at white space", 10, L"The quick brown fox jumps over the lazy dog", {},
         L"The quick\r\nbrown fox\r\njumps over\r\nthe lazy\r\ndog"},
        {"10 turns text breaks into blanks", 10, breaks, {}, L"one two\r\nthree"},
        {"10 keeps hard breaks", 10, L"ab%ncd", {}, L"ab\r\ncd"},
        {"a trailing text break becomes a blank", 10, L"one\r\n", {}, L"one "},
        {"blanks at a wrap are dropped", 5, L"abc    def", {}, L"abc\r\ndef"},
        {"blanks inside a line stay", 20, L"a  b\t%tc", {}, L"a  b\t\tc"},
        {"a word that fills the line", 8, L"abcd efg hij", {}, L"abcd efg\r\nhij"},
        {"a long word gets its own line", 10, L"hi abcdefghijklmnop end", {}, L"hi\r\nabcdefghijklmnop\r\nend"},
        {"a long word first", 10, L"abcdefghijklmnop end", {}, L"abcdefghijklmnop\r\nend"},
        {"inserted text wraps too", 10, L"%1", {slot(L"aaa bbb\nccc")}, L"aaa bbb\r\nccc"},
        {"a carriage return restarts the column", 10, L"abcdefgh%rxy zz", {}, L"abcdefgh\rxy zz"},
        {"a lone CR of the text too", 10, L"abcdefgh\rxy zz", {}, L"abcdefgh\rxy zz"},
        {"end mark in a wrapped text", 10, L"one two three%0four", {}, L"one two\r\nthree"},
        {"design example fits 67", 67, L"This log file is #%1!u! in a series that began with %2!s!.",
         {3, slot(L"first.html")}, L"This log file is #3 in a series that began with first.html."},
    });
}

// A long text of words of many lengths: at 67 every line is as full as it can be, and no word is
// lost, split or reordered; at 0 and 255 nothing is wrapped.
TEST(FormatMessage, WrapsALongTextGreedily)
{
    std::wstring text;
    std::vector<std::wstring> words;
    for (int i = 0; text.size() < 1000; ++i) {
        words.push_back(std::wstring(1 + (i * 7) % 13, static_cast<wchar_t>(L'a' + i % 26)));
        text += words.back() + (i % 9 == 8 ? L"\r\n" : L" ");
    }
    for (DWORD width : {0u, 255u}) {
        SCOPED_TRACE(width);
        const Outcome outcome = format(kFromArray | width, text.c_str(), {}, 2048);
        ASSERT_GT(outcome.count, 0u);
        EXPECT_EQ(outcome.text.find(L"\r\n") != std::wstring::npos, width == 0);
    }

    const Outcome outcome = format(kFromArray | 67, text.c_str(), {}, 2048);
    ASSERT_GT(outcome.count, 0u);
    std::vector<std::wstring> lines;
    for (std::size_t begin = 0;;) {
        const std::size_t end = outcome.text.find(L"\r\n", begin);
        lines.push_back(outcome.text.substr(begin, end - begin));
        if (end == std::wstring::npos)
            break;
        begin = end + 2;
    }
    std::vector<std::wstring> found;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        SCOPED_TRACE(i);
        const std::wstring& line = lines[i];
        EXPECT_LE(line.size(), 67u);
        EXPECT_NE(line.front(), L' ');
        std::wistringstream in(line);
        for (std::wstring word; in >> word;)
            found.push_back(word);
        if (i + 1 < lines.size()) {
            EXPECT_NE(line.back(), L' ');
            const std::size_t nextWord = lines[i + 1].find(L' ');
            EXPECT_GT(line.size() + 1 + std::min(nextWord, lines[i + 1].size()), 67u) << "line could hold more";
        }
    }
    EXPECT_EQ(found, words);
}

TEST(FormatMessage, IgnoredInsertsAreCopied)
{
    const Outcome outcome =
        format(FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_IGNORE_INSERTS, L"a %1!u! %2 %12%%%n", {});
    EXPECT_EQ(outcome.text, L"a %1!u! %2 %12%\r\n");
    EXPECT_EQ(outcome.error, 0u);
}

TEST(FormatMessage, TextWithoutInsertsNeedsNoArray)
{
    const Outcome outcome = format(kFromArray, L"plain%n", {});
    EXPECT_EQ(outcome.text, L"plain\r\n");
}

TEST(FormatMessage, RefusesWhatItCannotFormat)
{
    struct Failure
    {
        const char* name;
        DWORD flags;
        const wchar_t* text;
        std::vector<u64> inserts;
        DWORD size;
        DWORD error;
    };
    const std::vector<Failure> failures = {
        {"insert without an array", kFromArray, L"a %1 b", {}, 64, ERROR_INVALID_PARAMETER},
        {"unclosed format", kFromArray, L"%1!u", {1}, 64, ERROR_INVALID_PARAMETER},
        {"empty format", kFromArray, L"%1!!", {1}, 64, ERROR_INVALID_PARAMETER},
        {"floating point", kFromArray, L"%1!f!", {1}, 64, ERROR_INVALID_PARAMETER},
        {"count of written characters", kFromArray, L"%1!n!", {1}, 64, ERROR_INVALID_PARAMETER},
        {"unknown type", kFromArray, L"%1!q!", {1}, 64, ERROR_INVALID_PARAMETER},
        {"text after the type", kFromArray, L"%1!ux!", {1}, 64, ERROR_INVALID_PARAMETER},
        {"64-bit string", kFromArray, L"%1!I64s!", {1}, 64, ERROR_INVALID_PARAMETER},
        {"no string source", FORMAT_MESSAGE_ARGUMENT_ARRAY, L"text", {}, 64, ERROR_INVALID_PARAMETER},
        {"module source", kFromArray | 0x800, L"text", {}, 64, ERROR_INVALID_PARAMETER},
        {"allocated buffer", kFromArray | 0x100, L"text", {}, 64, ERROR_INVALID_PARAMETER},
        {"size 0", kFromArray, L"", {}, 0, ERROR_INSUFFICIENT_BUFFER},
        {"one over", kFromArray, L"abcd", {}, 4, ERROR_INSUFFICIENT_BUFFER},
        {"insert one over", kFromArray, L"ab%1", {slot(L"cd")}, 4, ERROR_INSUFFICIENT_BUFFER},
        {"hard break one over", kFromArray, L"abc%n", {}, 5, ERROR_INSUFFICIENT_BUFFER},
        {"wrap break one over", kFromArray | 3, L"ab cd", {}, 6, ERROR_INSUFFICIENT_BUFFER},
        {"held blanks one over", kFromArray | 10, L"abc  ", {}, 5, ERROR_INSUFFICIENT_BUFFER},
    };
    for (const Failure& failure : failures) {
        SCOPED_TRACE(failure.name);
        const Outcome outcome = format(failure.flags, failure.text, failure.inserts, failure.size);
        EXPECT_EQ(outcome.count, 0u);
        EXPECT_EQ(outcome.error, failure.error);
        EXPECT_EQ(outcome.text, L"") << "a failure leaves an empty text";
    }
}

TEST(FormatMessage, ExactFitSucceeds)
{
    struct Fit
    {
        const char* name;
        DWORD flags;
        const wchar_t* text;
        std::vector<u64> inserts;
        const wchar_t* expected;
    };
    const std::vector<Fit> fits = {
        {"text", kFromArray, L"abcd", {}, L"abcd"},
        {"insert", kFromArray, L"ab%1", {slot(L"cd")}, L"abcd"},
        {"hard break", kFromArray, L"abc%n", {}, L"abc\r\n"},
        {"wrap break", kFromArray | 3, L"ab cd", {}, L"ab\r\ncd"},
        {"held blanks", kFromArray | 10, L"abc  ", {}, L"abc  "},
        {"empty", kFromArray, L"%0abc", {}, L""},
    };
    for (const Fit& fit : fits) {
        SCOPED_TRACE(fit.name);
        const DWORD size = static_cast<DWORD>(std::wcslen(fit.expected) + 1);
        const Outcome outcome = format(fit.flags, fit.text, fit.inserts, size);
        EXPECT_EQ(outcome.count, size - 1);
        EXPECT_EQ(outcome.text, fit.expected);
        EXPECT_EQ(outcome.error, 0u);
    }
}

TEST(FormatMessage, NullTextOrBufferIsRefused)
{
    wchar_t buffer[8] = L"x";
    SetLastError(0);
    EXPECT_EQ(FormatMessageW(kFromArray, nullptr, 0, 0, buffer, 8, nullptr), 0u);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(buffer[0], L'\0');
    SetLastError(0);
    EXPECT_EQ(FormatMessageW(kFromArray, L"text", 0, 0, nullptr, 8, nullptr), 0u);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

// The formatter keeps no state between calls: threads formatting at once each get their own text.
TEST(FormatMessageConcurrency, ThreadsFormatIndependently)
{
    constexpr int kThreadQty = 4;
    std::vector<std::thread> threads;
    std::vector<int> failures(kThreadQty, 0);
    for (int t = 0; t < kThreadQty; ++t) {
        threads.emplace_back([t, &failures] {
            const std::wstring name = L"thread" + std::to_wstring(t);
            const std::wstring expected = L"Log #" + std::to_wstring(t) + L" of " + name + L"\r\nand more words";
            const u64 inserts[] = {static_cast<u64>(t), slot(name.c_str())};
            for (int i = 0; i < 2000; ++i) {
                wchar_t buffer[64];
                const DWORD count =
                    FormatMessageW(kFromArray | 20, L"Log #%1!u! of %2 and more words", 0, 0, buffer, 64, inserts);
                if (count != expected.size() || expected != buffer)
                    ++failures[t];
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(failures, std::vector<int>(kThreadQty, 0));
}
