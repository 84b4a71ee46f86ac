#include "monitor/ZarnArgCursor.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdint>
#include <string>
#include <vector>

namespace {

u64 addressOf(const void* pointer)
{
    return static_cast<u64>(reinterpret_cast<std::uintptr_t>(pointer));
}

// Reads one value per letter of `letters` (d, u or s) through a cursor over this call's list.
std::vector<u64> readVariadic(const char* letters, ...)
{
    va_list args;
    va_start(args, letters);
    ZarnArgCursor cursor(&args);
    std::vector<u64> values;
    for (const char* letter = letters; *letter != '\0'; ++letter) {
        if (*letter == 'd')
            values.push_back(cursor.nextSigned());
        else if (*letter == 'u')
            values.push_back(cursor.nextUnsigned());
        else
            values.push_back(cursor.nextString());
    }
    EXPECT_FALSE(cursor.isEmpty());
    va_end(args);
    return values;
}

} // namespace

TEST(ZarnArgCursor, ReadsSlotsByLetterAndMovesTheCallersCursor)
{
    const wchar_t* text = L"text";
    // The upper halves hold noise: a 32-bit filler must not see it.
    u64 slots[] = {0x12345678FFFFFFFEull, 0xABCDEF00FFFFFFFFull, addressOf(text), 0x7FFFFFFFull};
    char* position = reinterpret_cast<char*>(slots);
    ZarnArgCursor cursor(&position);
    ASSERT_FALSE(cursor.isEmpty());

    EXPECT_EQ(cursor.nextSigned(), static_cast<u64>(i64(-2)));
    EXPECT_EQ(position, reinterpret_cast<char*>(slots) + 8);
    EXPECT_EQ(cursor.nextUnsigned(), 0xFFFFFFFFull);
    EXPECT_EQ(cursor.nextString(), addressOf(text));
    EXPECT_EQ(cursor.nextSigned(), 0x7FFFFFFFull);
    EXPECT_EQ(position, reinterpret_cast<char*>(slots) + sizeof slots);
}

TEST(ZarnArgCursor, ReadsAVariadicListByTheSameLetters)
{
    const wchar_t* text = L"text";
    const std::vector<u64> values = readVariadic("dus", -3, 0xFFFFFFFFu, text);
    ASSERT_EQ(values.size(), 3u);
    EXPECT_EQ(values[0], static_cast<u64>(i64(-3)));
    EXPECT_EQ(values[1], 0xFFFFFFFFull);
    EXPECT_EQ(values[2], addressOf(text));
}

TEST(ZarnArgCursor, EmptyCursorsReadZerosAndMoveNothing)
{
    char* nullPosition = nullptr;
    u64 slot = 9;
    char* position = reinterpret_cast<char*>(&slot);
    ZarnArgCursor forgotten(&position);
    forgotten.forget();

    struct Row { const char* name; ZarnArgCursor cursor; };
    Row rows[] = {
        {"default", ZarnArgCursor()},
        {"null argV", ZarnArgCursor(static_cast<char**>(nullptr))},
        {"argV at null", ZarnArgCursor(&nullPosition)},
        {"forgotten", forgotten},
    };
    for (Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_TRUE(row.cursor.isEmpty());
        EXPECT_EQ(row.cursor.nextSigned(), 0u);
        EXPECT_EQ(row.cursor.nextUnsigned(), 0u);
        EXPECT_EQ(row.cursor.nextString(), 0u);
    }
    EXPECT_EQ(position, reinterpret_cast<char*>(&slot));
    EXPECT_EQ(nullPosition, nullptr);
}
