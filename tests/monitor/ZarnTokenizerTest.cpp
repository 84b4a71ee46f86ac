#include "monitor/ZarnTokenizer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

constexpr std::size_t kUnmeasured = static_cast<std::size_t>(-1);

std::vector<wchar_t> writable(const std::wstring& text)
{
    return std::vector<wchar_t>(text.c_str(), text.c_str() + text.size() + 1);
}

// All tokens, cut as a parser cuts them: state 0, 0, -1, then nextToken until null.
std::vector<std::wstring> tokensOf(const std::wstring& text, const wchar_t* delimiters)
{
    std::vector<wchar_t> buffer = writable(text);
    std::vector<std::wstring> tokens;
    std::size_t start = 0, position = 0, length = kUnmeasured;
    while (const wchar_t* token = nextToken(buffer.data(), delimiters, start, position, length)) {
        tokens.emplace_back(token);
        if (tokens.size() > text.size() + 1)
            break; // a list that does not end
    }
    return tokens;
}

} // namespace

TEST(ZarnTokenizer, NextTokenCutsAtEveryDelimiterWithoutMerging)
{
    using Tokens = std::vector<std::wstring>;
    const struct { const char* name; const wchar_t* text; const wchar_t* delimiters; Tokens expected; } rows[] = {
        {"empty text has no tokens", L"", L"~", Tokens{}},
        {"no delimiter", L"abc", L"~", Tokens{L"abc"}},
        {"two tokens", L"a~b", L"~", Tokens{L"a", L"b"}},
        {"delimiter at the end gives a last empty token", L"a~b~", L"~", Tokens{L"a", L"b", L""}},
        {"delimiter at the start", L"~a", L"~", Tokens{L"", L"a"}},
        {"lone delimiter", L"~", L"~", Tokens{L"", L""}},
        {"doubled delimiters", L"a~~b", L"~", Tokens{L"a", L"", L"b"}},
        {"any of several delimiters", L"a|b~c", L"|~", Tokens{L"a", L"b", L"c"}},
        {"white space is kept", L" a ~ b ", L"~", Tokens{L" a ", L" b "}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(tokensOf(row.text, row.delimiters), row.expected);
    }
}

TEST(ZarnTokenizer, NextTokenOverwritesDelimitersAndStaysAtTheEnd)
{
    std::vector<wchar_t> buffer = writable(L"ab~c");
    std::size_t start = 0, position = 0, length = kUnmeasured;
    EXPECT_EQ(nextToken(buffer.data(), L"~", start, position, length), buffer.data());
    EXPECT_EQ(length, 4u);
    EXPECT_EQ(nextToken(buffer.data(), L"~", start, position, length), buffer.data() + 3);
    EXPECT_EQ(std::wstring(buffer.data(), 5), std::wstring(L"ab\0c\0", 5));
    EXPECT_LT(position, start) << "the end of the list is position below start";
    EXPECT_EQ(nextToken(buffer.data(), L"~", start, position, length), nullptr);
    EXPECT_EQ(nextToken(buffer.data(), L"~", start, position, length), nullptr);
}

TEST(ZarnTokenizer, NextTokenHonoursTheCallersState)
{
    std::vector<wchar_t> buffer = writable(L"a~b~c");
    std::size_t start = 0, position = 0, length = 3; // a given length is not measured again
    EXPECT_STREQ(nextToken(buffer.data(), L"~", start, position, length), L"a");
    EXPECT_EQ(nextToken(buffer.data(), L"~", start, position, length), buffer.data() + 2);
    EXPECT_EQ(nextToken(buffer.data(), L"~", start, position, length), nullptr);
    EXPECT_EQ(buffer[3], L'~') << "the scan stops at the given length";

    start = 5, position = 2, length = kUnmeasured;
    EXPECT_EQ(nextToken(buffer.data(), L"~", start, position, length), nullptr);
    EXPECT_EQ(length, kUnmeasured) << "refused before measuring";
    start = 6, position = 6;
    EXPECT_EQ(nextToken(buffer.data(), L"~", start, position, length), nullptr) << "start beyond the text";
}

TEST(ZarnTokenizer, NextTokenRefusesNullAndEmptyArguments)
{
    std::vector<wchar_t> buffer = writable(L"a~b");
    const struct { const char* name; wchar_t* text; const wchar_t* delimiters; } rows[] = {
        {"null text", nullptr, L"~"}, {"null delimiters", buffer.data(), nullptr},
        {"empty delimiters", buffer.data(), L""}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::size_t start = 0, position = 0, length = kUnmeasured;
        EXPECT_EQ(nextToken(row.text, row.delimiters, start, position, length), nullptr);
        EXPECT_EQ(length, kUnmeasured);
    }
    EXPECT_EQ(buffer[1], L'~');
}

TEST(ZarnTokenizer, CountTokensRefusesMoreThanTheMaximum)
{
    const struct { const char* name; const wchar_t* text; int maximum; bool result; int count; } rows[] = {
        {"no maximum", L"a~b~", 0, true, 3},
        {"count equals maximum", L"a~b~", 3, true, 3},
        {"count passes maximum", L"a~b~", 2, false, 0},
        {"empty text", L"", 1, true, 0},
        {"negative maximum refuses even no tokens", L"", -1, false, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::vector<wchar_t> buffer = writable(row.text);
        int count = 99;
        EXPECT_EQ(countTokens(buffer.data(), L"~", count, row.maximum), row.result);
        EXPECT_EQ(count, row.count);
    }
}

TEST(ZarnTokenizer, CountTokensDestroysItsInputAndAcceptsNull)
{
    std::vector<wchar_t> buffer = writable(L"a~b");
    int count = 99;
    EXPECT_TRUE(countTokens(buffer.data(), L"~", count, 0));
    EXPECT_EQ(count, 2);
    EXPECT_EQ(buffer[1], L'\0');

    count = 99;
    EXPECT_TRUE(countTokens(nullptr, L"~", count, 3));
    EXPECT_EQ(count, 0);
}

TEST(ZarnTokenizer, SkipWhitespace)
{
    std::vector<wchar_t> mixed = writable(L" \t\n\r\v\fx y");
    EXPECT_EQ(skipWhitespace(mixed.data()), mixed.data() + 6);
    std::vector<wchar_t> none = writable(L"u0");
    EXPECT_EQ(skipWhitespace(none.data()), none.data());
    std::vector<wchar_t> blank = writable(L"   ");
    EXPECT_EQ(skipWhitespace(blank.data()), blank.data() + 3);
    EXPECT_EQ(skipWhitespace(nullptr), nullptr);
}
