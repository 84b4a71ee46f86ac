#include "foundation/UTF8String.h"

#include "foundation/UTL_Exception.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

TEST(UTF8String, DecodesOneToThreeByteForms)
{
    struct Row { const char* name; const char* bytes; const wchar_t* text; }; // text null: invalid
    const Row rows[] = {
        {"empty", "", L""},
        {"ASCII", "abc", L"abc"},
        {"two bytes", "\xC3\xA9", L"\u00E9"},
        {"three bytes", "x\xE2\x82\xAC", L"x\u20AC"},
        {"overlong two-byte form", "\xC1\x81", L"A"},
        {"overlong three-byte form", "\xE0\x81\x81", L"A"},
        {"encoded surrogate", "\xED\xA0\x80", L"\xD800"},
        {"cut three-byte form", "\xE2\x82", nullptr},
        {"cut two-byte form", "a\xC3", nullptr},
        {"lone continuation byte", "\x80", nullptr},
        {"second byte no continuation", "\xC3\x41", nullptr},
        {"third byte no continuation", "\xE2\x82\x41", nullptr},
        {"four-byte form", "\xF0\x9F\x98\x80", nullptr},
        {"byte FF", "\xFF", nullptr},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        try {
            const UTF8String s(row.bytes);
            EXPECT_NE(row.text, nullptr);
            EXPECT_EQ(std::wstring(s.wideText(), s.length()), row.text ? row.text : L"");
        } catch (const UTL_Exception& e) {
            EXPECT_EQ(row.text, nullptr);
            EXPECT_EQ(UTL_ExceptionAccess::codeOf(e), 11u);
        }
    }
    EXPECT_EQ(UTF8String(static_cast<const char*>(nullptr)).length(), 0u);
    EXPECT_STREQ(UTF8String(L"w\u00E9").wideText(), L"w\u00E9");
}

TEST(UTF8String, EncodesEachCodeUnitIntoWhatRemains)
{
    struct Row { const char* name; const wchar_t* text; unsigned size; int result; const char* bytes; };
    const Row rows[] = {
        {"empty", L"", 0, 0, ""},
        {"fits with room", L"abc", 10, 3, "abc"},
        {"two and three bytes", L"\u00E9\u20AC", 10, 5, "\xC3\xA9\xE2\x82\xAC"},
        {"space used up exactly, text left", L"abc", 2, 2, "ab"},
        {"used up exactly by a three-byte form", L"\u20ACz", 3, 3, "\xE2\x82\xAC"},
        {"character does not fit", L"\u00E9", 1, -1, ""},
        {"later character does not fit", L"a\u20AC", 3, -1, ""},
        {"nothing fits in no space", L"a", 0, -1, ""},
        {"surrogate by itself", L"\xDC00", 3, 3, "\xED\xB0\x80"},
        {"beyond 16 bits has no form", L"a\U0001F600", 10, -1, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        char buffer[16];
        std::memset(buffer, '#', sizeof buffer);
        const int result = UTF8String(row.text).toUtf8(buffer, row.size);
        EXPECT_EQ(result, row.result);
        EXPECT_EQ(std::string(buffer, size_t(std::max(result, 0))), row.bytes);
        EXPECT_EQ(buffer[row.size], '#') << "wrote past the size given, or a terminator";
    }
    EXPECT_EQ(UTF8String(L"a").toUtf8(nullptr, 8), -1);
    EXPECT_EQ(UTF8String().toUtf8(nullptr, 8), 0);

    const char* bytes = "Gr\xC3\xBC\xC3\x9F\x65 \xE2\x82\xAC \xE4\xB8\xAD";
    char buffer[32] = {};
    const int size = UTF8String(bytes).toUtf8(buffer, sizeof buffer);
    EXPECT_EQ(std::string(buffer, size_t(size)), bytes) << "round trip";
}
