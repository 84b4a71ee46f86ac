#include "sysinfo/ZarnSysInfo.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

constexpr wchar_t kUntouched = L'#';

// Fixed pairs; the position moves only by the walk, as in a source that never sets it itself.
class TinySource : public ZarnSysInfo
{
public:
    explicit TinySource(const wchar_t* category = L"Tiny") { recordCategory(category); }

    bool getDataPair(int position, wchar_t* caption, wchar_t* datum, int captionSize, int datumSize) override
    {
        asked.push_back(position);
        const wchar_t* const captions[] = {L"a", L"b", L"c", L"d"};
        return position < 4 && formatDataPair(caption, datum, captionSize, datumSize, captions[position], L"x");
    }
    void raiseError(int code) { m_error = code; }

    std::vector<int> asked;

protected:
    bool learnNextPosition() override { return ++m_position > 0; }
};

} // namespace

// One side of a pair in a buffer of `size`: the text before the terminator, and nothing touched
// past `size`. A null caption of size 0 asks for the datum alone.
TEST(ZarnSysInfo, DatumIsCutToItsSizeWithDots)
{
    struct Row
    {
        const char* name;
        const wchar_t* text;
        int size;
        std::wstring expected;
    };
    const Row rows[] = {
        {"size - 1 characters are whole", L"abcdef", 7, L"abcdef"},
        {"size characters end in dots", L"abcdefg", 7, L"abc..."},
        {"size 4 leaves only the dots", L"abcdef", 4, L"..."},
        {"size 3 cuts without dots", L"abcdef", 3, L"ab"},
        {"size 1 leaves an empty text", L"abcdef", 1, L""},
        {"size 0 writes nothing", L"abcdef", 0, std::wstring(8, kUntouched)},
        {"null text writes nothing", nullptr, 5, std::wstring(13, kUntouched)},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        TinySource source;
        std::vector<wchar_t> datum(size_t(row.size) + 8, kUntouched);
        datum.push_back(L'\0');
        EXPECT_TRUE(source.formatDataPair(nullptr, datum.data(), 0, row.size, L"caption", row.text));
        EXPECT_EQ(std::wstring(datum.data()).substr(0, row.expected.size() + 1), row.expected);
        for (size_t index = size_t(row.size); index + 1 < datum.size(); ++index)
            ASSERT_EQ(datum[index], kUntouched) << "written past size at " << index;
    }
}

TEST(ZarnSysInfo, NumberPairs)
{
    struct Row
    {
        int value;
        bool hex;
        const wchar_t* expected;
    };
    const Row rows[] = {{0x1A2B, true, L"0x00001A2B"}, {0x1A2B, false, L"6699"}, {-1, true, L"0xFFFFFFFF"},
                        {-42, false, L"-42"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << row.value << (row.hex ? " hex" : " decimal"));
        TinySource source;
        wchar_t caption[16] = {};
        wchar_t datum[16] = {};
        EXPECT_TRUE(source.formatDataPair(caption, datum, 16, 16, L"Number", row.value, row.hex));
        EXPECT_EQ(std::wstring(caption) + L"=" + datum, std::wstring(L"Number=") + row.expected);
    }
}

TEST(ZarnSysInfo, CategorySizes)
{
    TinySource source; // "Tiny": 5 with terminator
    wchar_t buffer[5] = {kUntouched, kUntouched, kUntouched, kUntouched, kUntouched};
    EXPECT_EQ(source.getCategory(nullptr, 0), 5);
    EXPECT_EQ(source.getCategory(buffer, 4), 5);
    EXPECT_EQ(std::wstring(buffer, 5), std::wstring(5, kUntouched)) << "one short: nothing copied";
    EXPECT_EQ(source.getCategory(buffer, 5), 5);
    EXPECT_EQ(std::wstring(buffer), L"Tiny");
    EXPECT_EQ(TinySource(nullptr).getCategory(buffer, 5), -1);
}

// Once set, m_error is never cleared: later pairs are still written, but report false, which
// ends a walk.
TEST(ZarnSysInfo, ErrorIsSticky)
{
    TinySource source;
    source.raiseError(ZarnSysInfo::kErrorNumberNotFormatted);
    wchar_t caption[16] = {};
    wchar_t datum[16] = {};
    EXPECT_FALSE(source.formatDataPair(caption, datum, 16, 16, L"number", 7, false));
    EXPECT_EQ(std::wstring(caption), L"number"); // the datum is not reached
    EXPECT_FALSE(source.getFirstDataPair(caption, datum, 16, 16));
    EXPECT_EQ(std::wstring(caption), L"a");
    EXPECT_EQ(source.getError(), ZarnSysInfo::kErrorNumberNotFormatted);
}

// getFirstDataPair asks for position 0 without storing it: a source that doesn't rewind itself
// carries on from where the last walk stood.
TEST(ZarnSysInfo, FirstPairDoesNotRewindThePosition)
{
    TinySource source;
    wchar_t caption[8] = {};
    wchar_t datum[8] = {};
    EXPECT_TRUE(source.getFirstDataPair(caption, datum, 8, 8));
    EXPECT_TRUE(source.getNextDataPair(caption, datum, 8, 8));
    EXPECT_TRUE(source.getFirstDataPair(caption, datum, 8, 8));
    EXPECT_EQ(std::wstring(caption), L"a");
    EXPECT_TRUE(source.getNextDataPair(caption, datum, 8, 8));
    EXPECT_EQ(std::wstring(caption), L"d");
    EXPECT_FALSE(source.getNextDataPair(caption, datum, 8, 8));
    EXPECT_EQ(source.asked, (std::vector<int>{0, 1, 0, 3, 4}));

    EXPECT_TRUE(source.setShouldUpdateCurrentPosition(false));
    EXPECT_FALSE(source.setShouldUpdateCurrentPosition(true));
}
