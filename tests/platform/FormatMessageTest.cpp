#include "platform/FormatMessage.h"

#include "platform/LastError.h"
#include "platform/LocalMemory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cwchar>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

namespace {

constexpr DWORD kFromArray = FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ARGUMENT_ARRAY;
constexpr wchar_t kUntouched = L'\x2603';

u64 slot(const void* pointer)
{
    return static_cast<u64>(reinterpret_cast<std::uintptr_t>(pointer));
}

struct Outcome
{
    DWORD count = 0;
    std::wstring text; // up to the terminator, or the whole buffer when there is none
    DWORD error = 0;

    std::tuple<std::wstring, DWORD, DWORD> seen() const { return {text, count, error}; }
};

// Formats into a buffer of `size` characters inside a larger one, and fails the test if anything
// past `size` was touched.
Outcome format(DWORD flags, const std::wstring& text, const std::vector<u64>& inserts, DWORD size = 1024)
{
    std::vector<wchar_t> buffer(size + 16, kUntouched);
    SetLastError(0);
    Outcome outcome;
    outcome.count = FormatMessageW(flags, text.c_str(), 0, 0, buffer.data(), size,
                                   inserts.empty() ? nullptr : inserts.data());
    outcome.error = GetLastError();
    for (std::size_t i = size; i < buffer.size(); ++i)
        EXPECT_EQ(buffer[i], kUntouched) << "written past the size at " << i;
    outcome.text.assign(buffer.data(), ::wcsnlen(buffer.data(), size));
    return outcome;
}

// The same through FORMAT_MESSAGE_ALLOCATE_BUFFER; the block is freed here.
Outcome formatAllocated(DWORD flags, const std::wstring& text, const std::vector<u64>& inserts, DWORD size = 0)
{
    wchar_t stale = kUntouched;
    wchar_t* block = &stale; // must be overwritten, with null on failure
    SetLastError(0);
    Outcome outcome;
    outcome.count = FormatMessageW(flags | FORMAT_MESSAGE_ALLOCATE_BUFFER, text.c_str(), 0, 0,
                                   reinterpret_cast<wchar_t*>(&block), size,
                                   inserts.empty() ? nullptr : inserts.data());
    outcome.error = GetLastError();
    if (block == &stale || (block == nullptr) != (outcome.count == 0)) {
        ADD_FAILURE() << "no block, or a block on failure";
        return outcome;
    }
    outcome.text = block != nullptr ? block : L"";
    EXPECT_EQ(LocalFree(block), nullptr);
    return outcome;
}

struct Row
{
    const char* name;
    DWORD width;
    std::wstring text;
    std::vector<u64> inserts;
    std::wstring expected;
};

// Every row is checked at an exact fit, one character short, and with an allocated buffer.
void expectRows(const std::vector<Row>& rows)
{
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const DWORD flags = kFromArray | row.width;
        const DWORD length = static_cast<DWORD>(row.expected.size());
        const auto success = std::make_tuple(row.expected, length, 0u);
        EXPECT_EQ(format(flags, row.text, row.inserts, length + 1).seen(), success);
        EXPECT_EQ(format(flags, row.text, row.inserts, length).seen(),
                  std::make_tuple(row.expected.substr(0, length - 1), 0u, ERROR_INSUFFICIENT_BUFFER));
        EXPECT_EQ(formatAllocated(flags, row.text, row.inserts).seen(), success);
    }
}

} // namespace

TEST(FormatMessage, EscapesAndTheTextsLineBreaks)
{
    expectRows({
        {"characters", 0, L"100%% %.%!%q%b", {}, L"100% .!q "},
        {"hard break and carriage return", 0, L"a%nb%rc", {}, L"a\r\nb\rc"},
        {"tab at width 0", 0, L"a%tb", {}, L"a\tb"},
        {"tab under a width", 20, L"a%tb", {}, L"a\r\nb"},
        {"tab at 255", 255, L"a%tb", {}, L"a\r\nb"},
        {"percent space", 0, L"a% b", {}, L"a b"},
        {"%0 ends without a break", 0, L"Prompt: %0ignored%n", {}, L"Prompt: "},
        {"breaks at 0 are CR LF", 0, L"a\nb\rc\r\nd\n\re", {}, L"a\r\nb\r\nc\r\nd\r\n\r\ne"},
        {"a body ending in LF", 0, L"entry\n", {}, L"entry\r\n"},
        {"breaks at 255 are blanks", 255, L"a\nb\rc\r\nd\n\re", {}, L"a b c d  e"},
        {"breaks under a width are blanks", 20, L"one\ntwo\r\n", {}, L"one two "},
        {"%n under a width stays", 255, L"a\nb%nc", {}, L"a b\r\nc"},
    });
}

TEST(FormatMessage, InsertsFollowTheirPrintfFormat)
{
    expectRows({
        {"design example", 0, L"This log file is #%1!u! in a series that began with %2!s!.",
         {3, slot(L"first.html")}, L"This log file is #3 in a series that began with first.html."},
        {"no format is a wide string", 0, L"<%1>", {slot(L"x y")}, L"<x y>"},
        {"null strings", 0, L"%1 %1!s! %1!ls! %1!hs!", {0}, L"(null) (null) (null) (null)"},
        {"narrow and wide strings", 0, L"%1!hs! %2!ls!", {slot("caf\xC3\xA9"), slot(L"w")}, L"caf\u00E9 w"},
        {"32 bits of the slot", 0, L"%1!u! %1!d! %1!i! %1!lu! %1!ld!", {0x1FFFFFFFEull},
         L"4294967294 -2 -2 4294967294 -2"},
        {"64 bits with I64", 0, L"%1!I64u! %1!I64d! %2!I64d!", {~0ull, 0x8000000000000000ull},
         L"18446744073709551615 -1 -9223372036854775808"},
        {"hexadecimal, octal, character", 0, L"%1!x! %1!X! %1!o! %2!c!", {255, L'A'}, L"ff FF 377 A"},
        {"width and zero padding", 0, L"%1!02d!:%2!5u!|%2!-5u!|%3!04x!", {4, 12, 10}, L"04:   12|12   |000a"},
        {"stars come before the value", 0, L"[%1!*.*u!] %4", {6, 3, 7, slot(L"x")}, L"[   007] x"},
        {"two digits at most", 0, L"%123%2", {0, slot(L"2"), 0, 0, 0, 0, 0, 0, 0, 0, 0, slot(L"twelve")}, L"twelve32"},
        {"inserted text is copied as it is", 0, L"a%1b", {slot(L"%n\nx")}, L"a%n\nxb"},
    });
}

TEST(FormatMessage, WrapsAtTheLastBlankOfTheText)
{
    expectRows({
        {"a line reaching the width breaks", 10, L"The quick brown fox jumps over the lazy dog", {},
         L"The quick\r\nbrown fox\r\njumps\r\nover the\r\nlazy dog"},
        {"ending at the width", 5, L"abcde", {}, L"abcde\r\n"},
        {"a long word is cut", 4, L"abcdefghij", {}, L"abcd\r\nefgh\r\nij"},
        {"after a blank, a long word is cut", 5, L"a bcdefgh", {}, L"a\r\nbcdef\r\ngh"},
        {"a run of blanks becomes one break", 6, L"abc    def", {}, L"abc\r\n def"},
        {"a text break is a wrapping point", 8, L"one two\nthree", {}, L"one two\r\nthree"},
        {"tab, hyphen and percent space are not", 6, L"ab\tcd-ef% ghi jk", {}, L"ab\tcd-\r\nef ghi\r\n jk"},
        {"an insert is one element, once broken", 10, L"ab %1 c", {slot(L"xxxx yyyyy")},
         L"ab\r\nxxxx yyyyy\r\nc"},
        {"an insert without a blank before it", 4, L"%1x", {slot(L"abcdef")}, L"abcdef\r\nx"},
        {"a CR restarts the line", 5, L"abcd%rxyzw", {}, L"abcd\rxyzw"},
        {"an LF in an insert restarts the line", 5, L"%1cd", {slot(L"abc\nx")}, L"abc\nxcd"},
        {"254 wraps", 254, std::wstring(300, L'a'), {}, std::wstring(254, L'a') + L"\r\n" + std::wstring(46, L'a')},
        {"255 never wraps", 255, std::wstring(300, L'a'), {}, std::wstring(300, L'a')},
        {"0 never wraps", 0, std::wstring(300, L'a'), {}, std::wstring(300, L'a')},
    });
}

// Over many widths, a text without inserts: no line passes the width, and the non-blank
// characters come out whole and in order.
TEST(FormatMessage, WrappingLosesNothing)
{
    std::wstring text, letters;
    for (int i = 0; text.size() < 700; ++i) {
        const std::wstring word(1 + (i * 7) % 13, static_cast<wchar_t>(L'a' + i % 26));
        letters += word;
        text += word + (i % 9 == 8 ? L"\n" : L"  ");
    }
    for (DWORD width : {1u, 2u, 7u, 13u, 67u, 254u}) {
        SCOPED_TRACE(width);
        const Outcome outcome = formatAllocated(kFromArray | width, text, {});
        std::wstring found;
        std::size_t lineLength = 0;
        for (wchar_t c : outcome.text) {
            lineLength = c == L'\r' || c == L'\n' ? 0 : lineLength + 1;
            ASSERT_LE(lineLength, width);
            if (c != L' ' && c != L'\r' && c != L'\n')
                found += c;
        }
        EXPECT_EQ(found, letters);
    }
}

TEST(FormatMessage, IgnoredInsertsAreCopiedWhole)
{
    const DWORD ignore = FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_IGNORE_INSERTS;
    EXPECT_EQ(format(ignore, L"a %1!u! %2 %12%%%n", {}).text, L"a %1!u! %2 %12%\r\n");
    EXPECT_EQ(format(ignore | 4, L"%1!u!x", {}).text, L"%1!u!\r\nx") << "one element, never split";
}

TEST(FormatMessage, FailuresKeepWhatCameBefore)
{
    struct Failure
    {
        const char* name;
        DWORD flags;
        const wchar_t* text;
        std::vector<u64> inserts;
        DWORD size, error;
        std::wstring left; // in the caller's buffer
    };
    const std::vector<Failure> failures = {
        {"lone % at the end", kFromArray, L"abc%", {}, 64, ERROR_INVALID_PARAMETER, L"abc"},
        {"lone % cut to the size", kFromArray, L"abcdef%", {}, 4, ERROR_INVALID_PARAMETER, L"abc"},
        {"insert without an array", kFromArray, L"ab %1", {}, 64, ERROR_INVALID_PARAMETER, L"ab "},
        {"unclosed format", kFromArray, L"x%1!u", {1}, 64, ERROR_INVALID_PARAMETER, L"x"},
        {"floating point", kFromArray, L"%1!f!", {1}, 64, ERROR_INVALID_PARAMETER, L""},
        {"count of characters", kFromArray, L"%1!n!", {1}, 64, ERROR_INVALID_PARAMETER, L""},
        {"no string source", FORMAT_MESSAGE_ARGUMENT_ARRAY, L"text", {}, 64, ERROR_INVALID_PARAMETER, L""},
        {"module source", kFromArray | 0x800, L"text", {}, 64, ERROR_INVALID_PARAMETER, L""},
        {"empty text", kFromArray, L"", {}, 64, ERROR_NO_WORK_DONE, L""},
        {"text starting with %0", kFromArray, L"%0abc", {}, 64, ERROR_NO_WORK_DONE, L""},
        // Not recorded: an insert that makes the whole result empty counts as an empty result.
        {"empty insert", kFromArray, L"%1", {slot(L"")}, 64, ERROR_NO_WORK_DONE, L""},
        {"size 0 writes nothing", kFromArray, L"abc", {}, 0, ERROR_INSUFFICIENT_BUFFER, L""},
    };
    for (const Failure& failure : failures) {
        SCOPED_TRACE(failure.name);
        EXPECT_EQ(format(failure.flags, failure.text, failure.inserts, failure.size).seen(),
                  std::make_tuple(failure.left, 0u, failure.error));
        if (failure.error != ERROR_INSUFFICIENT_BUFFER) {
            EXPECT_EQ(formatAllocated(failure.flags, failure.text, failure.inserts).seen(),
                      std::make_tuple(std::wstring(), 0u, failure.error));
        }
    }
}

// A field of billions of characters in a caller's buffer: what the buffer shows, the start of the
// field and any wrap before it, is what the whole field would give, and nothing beyond is built.
TEST(FormatMessage, HugeFieldsShowTheirStartInTheBuffer)
{
    const u64 huge = 2000000000;
    const u64 negativeHuge = static_cast<u64>(-2000000000LL);
    struct Row
    {
        const char* name;
        DWORD width;
        const wchar_t* text;
        std::vector<u64> inserts;
        std::wstring shown; // in a buffer of 16 characters
    };
    const std::vector<Row> rows = {
        {"right-aligned number", 0, L"%1!2000000000d!", {7}, std::wstring(15, L' ')},
        {"left-aligned number", 0, L"%1!-2000000000d!|", {7}, L"7" + std::wstring(14, L' ')},
        {"zero-padded number", 0, L"%1!+02000000000d!", {7}, L"+" + std::wstring(14, L'0')},
        {"long precision", 0, L"%1!.2000000000d!", {u64(-5)}, L"-" + std::wstring(14, L'0')},
        {"width and precision from stars", 0, L"%1!*.*u!", {huge, huge, 7}, std::wstring(15, L'0')},
        {"negative star: left-aligned text", 0, L"%1!*s!", {negativeHuge, slot(L"abc")},
         L"abc" + std::wstring(12, L' ')},
        {"text precision only limits", 0, L"%1!.2000000000s!", {slot(L"abc")}, L"abc"},
        {"the wrap before the field", 10, L"ab cd%1!2000000000s!", {slot(L"x")}, L"ab\r\ncd" + std::wstring(9, L' ')},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Outcome outcome = format(kFromArray | row.width, row.text, row.inserts, 16);
        const DWORD error = row.shown.size() == 15 ? ERROR_INSUFFICIENT_BUFFER : 0;
        EXPECT_EQ(outcome.text, row.shown);
        EXPECT_EQ(outcome.error, error);
    }
    // A field short enough to build whole shows the same start as one held short.
    const std::vector<std::pair<const wchar_t*, std::vector<u64>>> moderate = {
        {L"%1!5000d!", {7}},
        {L"%1!-5000X!", {0xBEEF}},
        {L"%1!.5000d!", {u64(-12345)}},
        {L"a b %1!*.*d!", {5000, 4000, u64(-12345)}},
        {L"%1!-*s!", {5000, slot(L"text")}},
    };
    for (const auto& [text, inserts] : moderate) {
        SCOPED_TRACE(testing::Message() << text);
        const Outcome whole = formatAllocated(kFromArray | 20, text, inserts);
        const Outcome held = format(kFromArray | 20, text, inserts, 64);
        EXPECT_EQ(held.text, whole.text.substr(0, 63));
        EXPECT_EQ(held.error, ERROR_INSUFFICIENT_BUFFER);
    }
}

TEST(FormatMessage, AllocatedBufferHasNoLimitButTheSize)
{
    wchar_t* block = nullptr;
    ASSERT_EQ(FormatMessageW(kFromArray | FORMAT_MESSAGE_ALLOCATE_BUFFER, L"abc", 0, 0,
                             reinterpret_cast<wchar_t*>(&block), 4096, nullptr),
              3u);
    ASSERT_NE(block, nullptr);
    EXPECT_STREQ(block, L"abc");
    block[4095] = L'x'; // the block holds `size` characters: the address sanitizer checks this
    EXPECT_EQ(LocalFree(block), nullptr);

    const std::wstring large(300000, L'w'); // far beyond Windows' 64K and 128K limits
    const Outcome outcome = formatAllocated(kFromArray, L"<%1>", {slot(large.c_str())}, 16);
    EXPECT_EQ(outcome.count, large.size() + 2);
    EXPECT_EQ(outcome.text, L"<" + large + L">");

    SetLastError(0);
    EXPECT_EQ(FormatMessageW(kFromArray | FORMAT_MESSAGE_ALLOCATE_BUFFER, L"abc", 0, 0, nullptr, 0, nullptr), 0u);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

// The formatter keeps no state between calls: threads formatting at once each get their own text.
TEST(FormatMessageConcurrency, ThreadsFormatIndependently)
{
    std::vector<int> failures(4, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t, &failures] {
            const std::wstring name = L"thread" + std::to_wstring(t);
            const std::wstring expected = L"Log #" + std::to_wstring(t) + L" of " + name + L"\r\nand more words";
            const std::vector<u64> inserts = {static_cast<u64>(t), slot(name.c_str())};
            for (int i = 0; i < 1000; ++i) {
                const Outcome outcome = formatAllocated(kFromArray | 20, L"Log #%1!u! of %2 and more words", inserts);
                failures[t] += outcome.text != expected;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(failures, std::vector<int>(4, 0));
}
