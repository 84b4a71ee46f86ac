#include "monitor/ZarnDataForThread.h"

#include "MonitorRig.h"
#include "platform/LastError.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cwctype>

using namespace monitor_test;

namespace {

constexpr u8 kDataSetDisplayLineWd = 50; // not the library's defaults, so that a reset is seen to
constexpr u8 kDataSetLogFileLineWd = 7;  // come from the data set

// Lets a test make one inner parser throw something that is not a code.
struct Probe : OpenEngine
{
    std::string throwingStage;

    bool parseDescriptionSpecDisplayDlgBox(wchar_t* const text) override
    {
        throwIf("dlgBox");
        return OpenEngine::parseDescriptionSpecDisplayDlgBox(text);
    }
    bool parseDescriptionSpec_MessageFormat(wchar_t* const text, Zarn_MSG_FMT format, wchar_t* scratch,
                                            unsigned long scratchBytes) override
    {
        throwIf("messageFormat");
        return OpenEngine::parseDescriptionSpec_MessageFormat(text, format, scratch, scratchBytes);
    }
    bool parseDescriptionSpec_MessageAffix(wchar_t* text, wchar_t* target, u64 targetCharacters) override
    {
        throwIf("affix");
        return OpenEngine::parseDescriptionSpec_MessageAffix(text, target, targetCharacters);
    }

    void throwIf(const char* stage)
    {
        if (throwingStage == stage)
            throw std::runtime_error(stage);
    }
    bool scratchesAreZero() const
    {
        const auto zero = [](const wchar_t* buffer) {
            return std::all_of(buffer, buffer + ZarnScratchpad::kCharacters, [](wchar_t c) { return c == 0; });
        };
        return zero(m_scratchpad.m_scratchA) && zero(m_scratchpad.m_scratchB);
    }
};

// The affix IDs 700 to 705 of the test module: 702 holds insert 1, 703 is empty, 705 missing.
class DescriptionSpecs : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_affixModule = loadTestModule("libzmu_test_affixes.so");
        ASSERT_NE(m_affixModule, nullptr);
        dataSet.setCharSetExternal(2);
        dataSet.setDescriptionAffixID_Min(700);
        dataSet.setDescriptionAffixIDsQty(6);
        dataSet.setResourceModule(m_affixModule);
        dataSet.m_descriptionDisplayLineWd = kDataSetDisplayLineWd;
        dataSet.m_descriptionLogFileLineWd = kDataSetLogFileLineWd;
        ASSERT_TRUE(engine.initialize(&dataSet));
    }
    void TearDown() override { FreeLibrary(m_affixModule); }

    // Parses a log description as the engine's road would, with a foreign separator in place.
    bool parseLog(const std::wstring& spec)
    {
        std::wcscpy(engine.m_descriptionForLogFile, spec.c_str());
        engine.m_descriptionLogFileLineWd = 99;
        std::wcscpy(engine.m_tokenSeparator, L"|");
        return engine.parseDescriptionSpecLogFile();
    }
    bool parseDisplay(const std::wstring& spec)
    {
        std::wcscpy(engine.m_descriptionForDisplay, spec.c_str());
        engine.m_descriptionDisplayLineWd = 99;
        engine.m_descriptionDisplayIsDupe = true;
        engine.m_displayDlgBoxType = engine.m_displayDlgBoxSpecA = engine.m_displayDlgBoxSpecB = 9;
        std::wcscpy(engine.m_tokenSeparator, L"|");
        return engine.parseDescriptionSpecDisplay();
    }
    void restart()
    {
        engine.forgetSelfDX_Code();
        engine.throwingStage.clear();
    }

    HMODULE m_affixModule = nullptr;
    OpenData dataSet;
    Probe engine;
};

} // namespace

TEST_F(DescriptionSpecs, LogDescriptionParsesOrLeavesAnEmptyTextWithTheDefaultWidth)
{
    struct Row { const char* name; std::wstring spec; int code; std::wstring text; int width; };
    const std::wstring fits(1019, L'x');
    const Row rows[] = {
        {"blank width and affixes", L"``plain text", 0, L"plain text", kDataSetLogFileLineWd},
        {"width after white space, empty suffix", L"  40``text`", 0, L"text", 40},
        {"prefix and suffix", L"0`0`body`1", 0, L"[prefix] body [suffix]", 0},
        {"affixes alone", L"255`1``0", 0, L" [suffix][prefix] ", 255},
        {"a suffix cut to the room left", L"``" + fits + L"`4", 0, fits + L"0123", kDataSetLogFileLineWd},
        {"a ~ in the log description", L"~``x", 29, L"", kDataSetLogFileLineWd},
        {"no log description", L"", 29, L"", kDataSetLogFileLineWd},
        {"two records", L"`text", 41, L"", kDataSetLogFileLineWd},
        {"five records", L"````x", 41, L"", kDataSetLogFileLineWd},
        {"width 256", L"256``x", 39, L"", kDataSetLogFileLineWd},
        {"width too large to read", L"99999999999``x", 39, L"", kDataSetLogFileLineWd},
        {"width -1", L"-1``x", 38, L"", kDataSetLogFileLineWd},
        {"a width read before a later failure", L"40`a``", 32, L"", kDataSetLogFileLineWd},
        {"affix number equal to the quantity", L"`6`x", 33, L"", kDataSetLogFileLineWd},
        {"an empty affix", L"`3`x", 34, L"", kDataSetLogFileLineWd},
        {"a missing affix", L"0`5`x", 34, L"", kDataSetLogFileLineWd},
        {"a prefix that pushes the text past the end", L"`0`" + fits + L"x", 37, L"", kDataSetLogFileLineWd},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(parseLog(row.spec), row.code == 0);
        EXPECT_EQ(engine.getSelfDX_Code(), row.code);
        EXPECT_EQ(std::wstring(engine.m_descriptionForLogFile), row.text);
        EXPECT_EQ(engine.m_descriptionLogFileLineWd, row.width);
        EXPECT_STREQ(engine.m_tokenSeparator, L"|");
        EXPECT_TRUE(engine.scratchesAreZero());
        restart();
    }
}

TEST_F(DescriptionSpecs, DisplayDescriptionParsesOrResetsItsFields)
{
    struct Row { const char* name; std::wstring spec; int code; std::wstring text; bool dupe;
                 int width, type, specB, specA; };
    const int w = kDataSetDisplayLineWd;
    const Row rows[] = {
        {"nothing", L"", 0, L"", false, w, 48, 0, 0},
        {"white space only", L" \t ", 0, L"", false, w, 48, 0, 0},
        {"a single &", L"&", 0, L"&", true, w, 48, 0, 0},
        {"& and text", L"  & and more", 0, L"  & and more", true, w, 48, 0, 0},
        {"a message without dialog spec", L"~``Hello", 0, L"Hello", false, w, 48, 0, 0},
        {"three dialog numbers", L"  16 ` 3 `4 ~30``Hi", 0, L"Hi", false, 30, 16, 3, 4},
        {"a blank first dialog record keeps 48", L"`5~``Hi", 0, L"Hi", false, w, 48, 5, 0},
        {"a suffix", L"36~``Hi`1", 0, L"Hi [suffix]", false, w, 36, 0, 0},
        {"&x", L"&x", 24, L"", false, w, 48, 0, 0},
        {"a dialog spec and no message format", L"16`1`2", 24, L"", false, w, 48, 0, 0},
        {"three groups", L"a~b~c", 24, L"", false, w, 48, 0, 0},
        {"dialog type not a number", L"x~``Hi", 19, L"", false, w, 48, 0, 0},
        {"second dialog number not a number", L"1`x~``Hi", 17, L"", false, w, 48, 0, 0},
        {"third dialog number not a number", L"1`2`x~``Hi", 15, L"", false, w, 48, 0, 0},
        {"four dialog records", L"1`2`3`4~``Hi", 13, L"", false, w, 48, 0, 0},
        {"a dialog number too large to read", L"99999999999~``Hi", 12, L"", false, w, 48, 0, 0},
        {"width 256 after a good dialog spec", L"16`2~256``Hi", 39, L"", false, w, 48, 0, 0},
        {"affix not a number", L"16~`x`Hi", 32, L"", false, w, 48, 0, 0},
        {"text past the end", L"~`0`" + std::wstring(503, L'x'), 37, L"", false, w, 48, 0, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(parseDisplay(row.spec), row.code == 0);
        EXPECT_EQ(engine.getSelfDX_Code(), row.code);
        EXPECT_EQ(std::wstring(engine.m_descriptionForDisplay), row.text);
        EXPECT_EQ(engine.m_descriptionDisplayIsDupe, row.dupe);
        EXPECT_EQ(engine.m_descriptionDisplayLineWd, row.width);
        EXPECT_EQ(engine.m_displayDlgBoxType, unsigned(row.type));
        EXPECT_EQ(engine.m_displayDlgBoxSpecB, row.specB);
        EXPECT_EQ(engine.m_displayDlgBoxSpecA, row.specA);
        EXPECT_STREQ(engine.m_tokenSeparator, L"|");
        EXPECT_TRUE(engine.scratchesAreZero());
        restart();
    }
}

TEST_F(DescriptionSpecs, MonitorThatMayNotRespondLeavesTheDisplayFieldRaw)
{
    dataSet.setBehaviorCriteria(0);
    EXPECT_TRUE(parseDisplay(L"&x"));
    EXPECT_STREQ(engine.m_descriptionForDisplay, L"&x");
    EXPECT_TRUE(engine.m_descriptionDisplayIsDupe) << "nothing was reset";
}

// Catch-all codes: a stage that fails with something other than a code.
TEST_F(DescriptionSpecs, ForeignFailuresGiveEachParsersOwnCode)
{
    struct Row { const char* stage; std::function<bool()> parse; int code; };
    const Row rows[] = {
        {"messageFormat", [&] { return parseLog(L"``text"); }, 25},
        {"messageFormat", [&] { return parseDisplay(L"~``text"); }, 11},
        {"dlgBox", [&] { return parseDisplay(L"16~``text"); }, 11},
        {"affix", [&] { return parseLog(L"`0`text"); }, 35},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.stage) + " " + std::to_string(row.code));
        engine.throwingStage = row.stage;
        EXPECT_FALSE(row.parse());
        EXPECT_EQ(engine.getSelfDX_Code(), row.code);
        EXPECT_STREQ(engine.m_descriptionForLogFile, L"");
        EXPECT_STREQ(engine.m_descriptionForDisplay, L"");
        restart();
    }
}

TEST_F(DescriptionSpecs, DirectCallsOfTheInnerParsers)
{
    wchar_t* const scratch = engine.m_scratchpad.m_scratchA;
    const unsigned long scratchBytes = engine.m_scratchpad.m_scratchA_Bytes;

    std::wcscpy(engine.m_descriptionForLogFile, L"old");
    wchar_t spec[] = L"``new";
    EXPECT_FALSE(engine.parseDescriptionSpec_MessageFormat(spec, static_cast<Zarn_MSG_FMT>(2), scratch, scratchBytes));
    EXPECT_EQ(engine.getSelfDX_Code(), 36);
    EXPECT_STREQ(engine.m_descriptionForLogFile, L"old") << "no target to reset";
    restart();

    // Affixes go behind what the target holds, and are cut to the room left.
    wchar_t target[16] = L"abc";
    wchar_t zero[] = L"0";
    EXPECT_TRUE(engine.parseDescriptionSpec_MessageAffix(zero, target, 16));
    EXPECT_STREQ(target, L"abc[prefix] ");
    wchar_t four[] = L"4";
    EXPECT_TRUE(engine.parseDescriptionSpec_MessageAffix(four, target, 16));
    EXPECT_STREQ(target, L"abc[prefix] 012");
    EXPECT_FALSE(engine.parseDescriptionSpec_MessageAffix(zero, target, 16)) << "no room at all";
    EXPECT_EQ(engine.getSelfDX_Code(), 34);
    EXPECT_STREQ(target, L"");
    restart();

    EXPECT_FALSE(engine.parseDescriptionSpec_MessageAffix(zero, nullptr, 16));
    EXPECT_EQ(engine.getSelfDX_Code(), 30);
    restart();

    // The strict test exists for a subclass that raises the strictness; the engine leaves it at 0.
    wchar_t full[4] = {L'a', L'b', L'c', L'd'};
    engine.m_specStrictness = 6;
    EXPECT_FALSE(engine.parseDescriptionSpec_MessageAffix(zero, full, 4));
    EXPECT_EQ(engine.getSelfDX_Code(), 31);
    EXPECT_EQ(full[0], L'\0');
    engine.m_specStrictness = 0;
    restart();

    engine.m_displayDlgBoxType = 9;
    EXPECT_TRUE(engine.parseDescriptionSpecDisplayDlgBox(nullptr)) << "nothing to parse";
    EXPECT_EQ(engine.m_displayDlgBoxType, 9u) << "and nothing reset";
}

TEST_F(DescriptionSpecs, FormattingFillsInsertsAndCutsAtTheBufferEnd)
{
    const std::wstring word300(300, L'w');
    const std::wstring word1100(1100, L'l');
    u64* fillers = engine.getDescriptionFillers();
    struct Row { const char* name; bool display; std::wstring spec; std::vector<u64> inserts; int code;
                 std::wstring text; };
    const Row rows[] = {
        {"log inserts", false, L"0``Value %1!u! name %2!s!", {42, u64(uintptr_t(L"wide"))}, 0, L"Value 42 name wide"},
        {"an affix with an insert", false, L"0`2`text", {42}, 0, L"<42>text"},
        {"display inserts", true, L"~255``%1!d! and %2", {u64(-3), u64(uintptr_t(L"two"))}, 0, L"-3 and two"},
        {"display of 600 characters", true, L"~255``%1%1", {u64(uintptr_t(word300.c_str()))}, 0,
         std::wstring(511, L'w')},
        {"log of exactly 1023 characters", false, L"0``%1!.1023s!", {u64(uintptr_t(word1100.c_str()))}, 0,
         std::wstring(1023, L'l')},
        {"log longer than the formatter's output", false, L"0``%1", {u64(uintptr_t(word1100.c_str()))}, 53, L""},
        {"log with a broken insert", false, L"0``bad %1!u", {1}, 53, L""},
        {"display with a broken insert", true, L"~0``bad %1!u", {1}, 50, L""},
        {"log that formats to nothing", false, L"0``%0tail", {}, 53, L""},
        // The slots behind the fillers read as zeros: never memory past the array.
        {"inserts that no filler fills", false, L"0``%11!u! %12 %99!*.*s!end", {}, 0, L"0 (null) end"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::fill(fillers, fillers + dataSet.getDescriptionFillersQty(), 0);
        std::copy(row.inserts.begin(), row.inserts.end(), fillers);
        ASSERT_TRUE(row.display ? parseDisplay(row.spec) : parseLog(row.spec)) << engine.getSelfDX_Code();
        SetLastError(5);
        EXPECT_EQ(row.display ? engine.formatDescriptionForDisplay() : engine.formatDescriptionForLogFile(),
                  row.code == 0);
        EXPECT_EQ(engine.getSelfDX_Code(), row.code);
        EXPECT_EQ(std::wstring(row.display ? engine.m_descriptionForDisplay : engine.m_descriptionForLogFile),
                  row.text);
        if (!row.display && row.code == 0) {
            EXPECT_EQ(GetLastError(), 0u) << "the log formatter clears the last error";
        }
        EXPECT_TRUE(engine.scratchesAreZero());
        restart();
    }
}

TEST_F(DescriptionSpecs, FormattingAppliesTheParsedWidth)
{
    const std::wstring words = L"alpha beta gamma delta epsilon zeta eta theta";
    const auto withoutBlanks = [](std::wstring text) {
        text.erase(std::remove_if(text.begin(), text.end(), [](wchar_t c) { return std::iswspace(c) != 0; }),
                   text.end());
        return text;
    };
    for (const int width : {0, 10, 255}) {
        SCOPED_TRACE(width);
        ASSERT_TRUE(parseDisplay(L"~" + std::to_wstring(width) + L"``" + words));
        ASSERT_TRUE(engine.formatDescriptionForDisplay());
        const std::wstring text = engine.m_descriptionForDisplay;
        EXPECT_EQ(text.find(L"\r\n") != std::wstring::npos, width == 10) << "only 10 wraps this text";
        EXPECT_EQ(withoutBlanks(text), withoutBlanks(words)) << "wrapping moves no word";
    }
}

TEST_F(DescriptionSpecs, DupeDisplayIsClearedByFormattingAndLeavesTheLogText)
{
    ASSERT_TRUE(parseLog(L"0``log text"));
    ASSERT_TRUE(parseDisplay(L"& the log"));
    EXPECT_TRUE(engine.formatDescriptions());
    EXPECT_STREQ(engine.m_descriptionForDisplay, L"");
    EXPECT_TRUE(engine.m_descriptionDisplayIsDupe);
    EXPECT_STREQ(engine.m_descriptionForLogFile, L"log text");
}
