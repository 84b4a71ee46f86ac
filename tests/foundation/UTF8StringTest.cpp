#include "foundation/UTF8String.h"

#include "foundation/UTL_Exception.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

// Overlong forms and encoded surrogates pass; anything else outside the one- to three-byte forms
// (a null text in the table) throws 11.
TEST(UTF8String, DecodesOneToThreeByteForms)
{
    const std::pair<const char*, const wchar_t*> rows[] = {
        {"", L""}, {"abc", L"abc"}, {"\xC3\xA9", L"\u00E9"}, {"x\xE2\x82\xAC", L"x\u20AC"},
        {"\xC1\x81", L"A"}, {"\xE0\x81\x81", L"A"}, {"\xED\xA0\x80", L"\xD800"},
        {"\xE2\x82", nullptr}, {"a\xC3", nullptr}, {"\x80", nullptr}, {"\xC3\x41", nullptr},
        {"\xE2\x82\x41", nullptr}, {"\xF0\x9F\x98\x80", nullptr},
    };
    for (const auto& [bytes, text] : rows) {
        SCOPED_TRACE(::testing::PrintToString(std::string(bytes)));
        try {
            const UTF8String s(bytes);
            EXPECT_EQ(std::wstring(s.wideText(), s.length()), text != nullptr ? text : L"<invalid>");
        } catch (const UTL_Exception& e) {
            EXPECT_EQ(text, nullptr);
            EXPECT_EQ(UTL_ExceptionAccess::codeOf(e), 11u);
        }
    }
    EXPECT_EQ(UTF8String(static_cast<const char*>(nullptr)).length(), 0u);
}

// No terminator is written; a character that does not fit gives -1, while space used up exactly
// counts as success even with text left.
TEST(UTF8String, EncodesEachCodeUnitIntoWhatRemains)
{
    const struct { const wchar_t* text; unsigned size; int result; const char* bytes; } rows[] = {
        {L"", 0, 0, ""},                          {L"abc", 10, 3, "abc"},
        {L"\u00E9\u20AC", 10, 5, "\xC3\xA9\xE2\x82\xAC"}, {L"abc", 2, 2, "ab"},
        {L"\u20ACz", 3, 3, "\xE2\x82\xAC"},       {L"\u00E9", 1, -1, ""},
        {L"a\u20AC", 3, -1, ""},                  {L"a", 0, -1, ""},
        {L"\xDC00", 3, 3, "\xED\xB0\x80"},        {L"a\U0001F600", 10, -1, ""}, // beyond 16 bits: no form
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::PrintToString(std::wstring(row.text)) + " into " + std::to_string(row.size));
        char buffer[16];
        std::memset(buffer, '#', sizeof buffer);
        const int result = UTF8String(row.text).toUtf8(buffer, row.size);
        EXPECT_EQ(result, row.result);
        EXPECT_EQ(std::string(buffer, size_t(std::max(result, 0))), row.bytes);
        EXPECT_EQ(buffer[row.size], '#') << "wrote past the size given, or a terminator";
    }
    EXPECT_EQ(UTF8String(L"a").toUtf8(nullptr, 8), -1);
    EXPECT_EQ(UTF8String().toUtf8(nullptr, 8), 0);
}
