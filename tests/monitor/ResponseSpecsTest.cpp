// The response spec parsers of ZarnDataForThread: obtainResponseSpecs and the header parsers, each
// driven directly on an engine, one table per parser, every row checking what a failure leaves.
#include "monitor/ZarnDataForThread.h"

#include "ResponseSpecsRig.h"

#include <gtest/gtest.h>

#include <cwchar>
#include <functional>
#include <optional>
#include <string>
#include <vector>

using namespace spec_test;

namespace {

const wchar_t kAlpha[] = L"alpha";
const wchar_t kBeta[] = L"beta";
const wchar_t kGamma[] = L"gamma";

using Prepare = std::function<void(SpecRig&)>;

const Prepare kNoDataSet = [](SpecRig& rig) { rig.engine.m_dataSet = nullptr; };
const Prepare kHeldCode = [](SpecRig& rig) { rig.dataSet.setSelfDX_Code(231); };

// Any separator but the parsers' own: each must put back what it found.
constexpr wchar_t kForeignSeparator = L'#';

std::vector<u64> fillersOf(const SpecRig& rig)
{
    const u64* fillers = rig.engine.getDescriptionFillers();
    return std::vector<u64>(fillers, fillers + rig.dataSet.getDescriptionFillersQty());
}

std::vector<int> plugInsOf(const SpecRig& rig)
{
    const int* indices = rig.engine.m_plugInsIndirectIndices;
    return std::vector<int>(indices, indices + rig.dataSet.getPlugInsQty());
}

// `head` followed by `fill` up to `size` entries.
template <class T>
std::vector<T> padded(std::vector<T> head, std::size_t size, T fill)
{
    head.resize(size, fill);
    return head;
}

} // namespace

// 254, 256 and 257 cannot be produced: every failure of the load is 255, the load stops at 1023
// characters, which scratch A holds, and the count admits three fields only.
TEST(ResponseSpecs, ObtainCutsTheSpecIntoItsThreeFieldsOrGivesItsCode)
{
    const std::wstring header255(255, L'h');
    const std::wstring display511(511, L'd');
    struct Row
    {
        const char* name;
        std::optional<std::wstring> spec; // none: the module has no such string
        int code;
        std::wstring header = L"", display = L"", log = L"";
        Prepare prepare = nullptr;
    };
    const Row rows[] = {
        {"two separators give three fields", L"1~0|shown|logged", 0, L"1~0", L"shown", L"logged"},
        {"the display field may be empty", L"1~0||logged", 0, L"1~0", L"", L"logged"},
        {"a header of 255 characters fits", header255 + L"|d|l", 0, header255, L"d", L"l"},
        {"a display field of 511 characters fits", L"1|" + display511 + L"|l", 0, L"1", display511, L"l"},
        {"a spec beyond 1023 characters is cut by the load", L"1||" + std::wstring(1100, L'x'), 0, L"1", L"",
         std::wstring(1020, L'x')},
        {"a missing string", std::nullopt, 255},
        {"one separator", L"1~0|logged", 261},
        {"three separators", L"1~0|a|b|c", 261},
        {"an empty header", L"|shown|logged", 259},
        {"a header of 256 characters", header255 + L"h|d|l", 259},
        {"a display field of 512 characters", L"1|" + display511 + L"d|l", 258},
        {"an empty log field", L"1~0|shown|", 260},
        {"no data set", L"1~0||l", 265, {}, {}, {}, kNoDataSet},
        {"a code held by the data set", L"1~0||l", 231, {}, {}, {}, kHeldCode},
    };
    SpecModule module;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        SpecRig rig;
        SpecEngine& engine = rig.engine;
        module.serve(kSituation, row.spec ? row.spec->c_str() : nullptr);
        rig.dataSet.setResourceModule(module.get());
        for (wchar_t* field : {engine.m_responseSpecHeader, engine.m_descriptionForDisplay, engine.m_descriptionForLogFile})
            std::wcscpy(field, L"stale");
        engine.m_tokenSeparator[0] = kForeignSeparator;
        if (row.prepare)
            row.prepare(rig);

        EXPECT_EQ(engine.obtainResponseSpecs(), row.code == 0);
        EXPECT_EQ(engine.getSelfDX_Code(), row.code);
        const bool loaded = row.code != 265 && row.code != 231;
        EXPECT_EQ(module.lastAskedID(), loaded ? unsigned(kSituation) : 0u) << "the situation is the string ID";
        if (row.code == 0) {
            EXPECT_EQ(engine.m_responseSpecHeader, row.header);
            EXPECT_EQ(engine.m_descriptionForDisplay, row.display);
            EXPECT_EQ(engine.m_descriptionForLogFile, row.log);
        } else {
            EXPECT_TRUE(isZeroed(engine.m_responseSpecHeader, ZarnDataForThread::kHeaderCharacters));
            EXPECT_TRUE(isZeroed(engine.m_descriptionForDisplay, ZarnDataForThread::kDisplayCharacters));
            EXPECT_TRUE(isZeroed(engine.m_descriptionForLogFile, ZarnDataForThread::kLogFileCharacters));
        }
        EXPECT_TRUE(isZeroed(engine.m_scratchpad.m_scratchA, ZarnScratchpad::kCharacters));
        EXPECT_TRUE(isZeroed(engine.m_scratchpad.m_scratchB, ZarnScratchpad::kCharacters));
        EXPECT_EQ(engine.m_tokenSeparator[0], kForeignSeparator);
    }
}

// 243 cannot be produced: the count admits five groups only.
TEST(ResponseSpecs, HeaderReadsKindTraitsSourceFillersAndPlugInsOrGivesItsCode)
{
    struct Row { const char* name; const wchar_t* header; int code; unsigned int kind = 0; u64 traits = 0;
                 int source = 0; std::vector<int> plugIns = {}; Prepare prepare = nullptr; };
    const Row rows[] = {
        {"the series note's header", L"1~-1~2~u`s~", 0, 1, ~u64(0), 2},
        {"two groups", L"2~0", 0, 2, 0},
        {"a minus before the kind is not seen", L"-1~5", 0, 1, 5},
        {"numbers are read where their digits start", L" k2x~ t536870912 ~ a1 ~ u0~p3", 0, 2, 536870912, 1, {3}},
        {"traits of all 64 bits", L"2~18446744073709551615", 0, 2, ~u64(0)},
        {"a minus wraps the traits", L"2~-2", 0, 2, ~u64(1)},
        {"a source without digits reads 0", L"2~1~none~~", 0, 2, 1},
        {"strictness passes a header that is not empty", L"2~0", 0, 2, 0, 0, {},
         [](SpecRig& rig) { rig.engine.m_specStrictness = 6; }},
        {"an empty header", L"", 244},
        {"one group", L"2", 244},
        {"six groups", L"1~2~3~4~5~6", 244},
        {"a kind without digits", L"x~1", 251},
        {"kind 0", L"0~1", 252},
        {"kind 3", L"3~1", 252},
        {"a kind beyond an int", L"2147483649~1", 252},
        {"traits without digits", L"1~x", 234},
        {"traits beyond 64 bits", L"1~18446744073709551616", 234},
        {"source 3", L"1~1~3", 242},
        {"a source beyond an int", L"1~1~99999999999", 242},
        {"fillers of source 0", L"1~1~0~u0", 242},
        {"a filler's code passes through", L"1~1~1~x0", 241},
        {"a plug-in's code passes through and the plug-ins are reset", L"1~1~0~~0`0", 245},
        {"an empty header under strictness", L"", 235, 0, 0, 0, {}, [](SpecRig& rig) { rig.engine.m_specStrictness = 6; }},
        {"an exception that is no code", L"1~1", 233, 0, 0, 0, {}, [](SpecRig& rig) { rig.engine.plugInsForgetThrows = 1; }},
        {"no data set", L"1~1", 265, 0, 0, 0, {}, kNoDataSet},
        {"a code held by the data set", L"1~1", 231, 0, 0, 0, {}, kHeldCode},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        SpecRig rig;
        SpecEngine& engine = rig.engine;
        u64 slots[] = {1, 2};
        char* cursor = reinterpret_cast<char*>(slots);
        engine.setDescriptionArgV(&cursor);
        engine.recordArgument(9u, 0);
        std::wcscpy(engine.m_responseSpecHeader, row.header);
        engine.m_tokenSeparator[0] = kForeignSeparator;
        if (row.prepare)
            row.prepare(rig);

        EXPECT_EQ(engine.parseResponseSpecHeader(nullptr), row.code == 0);
        EXPECT_EQ(engine.getSelfDX_Code(), row.code);
        if (row.code == 0) {
            EXPECT_EQ(engine.m_situationApprovalKind, row.kind);
            EXPECT_EQ(engine.m_situationResponseTraits, row.traits);
            EXPECT_EQ(engine.m_argSource, row.source);
        } else {
            EXPECT_TRUE(isZeroed(engine.m_responseSpecHeader, ZarnDataForThread::kHeaderCharacters));
        }
        EXPECT_EQ(engine.m_plugInsIndirectQty, int(row.plugIns.size()));
        EXPECT_EQ(plugInsOf(rig), padded(row.plugIns, kPlugInsQty, -1));
        EXPECT_TRUE(isZeroed(engine.m_scratchpad.m_scratchA, ZarnScratchpad::kCharacters));
        EXPECT_EQ(engine.m_tokenSeparator[0], kForeignSeparator);
    }
}

TEST(ResponseSpecs, FillersTakeRecordedArgumentsOrTheCursorOrGiveTheirCode)
{
    std::wstring tenRecords = L"u0";
    for (int record = 1; record < 10; ++record)
        tenRecords += L"`u0";
    struct Row
    {
        const char* name;
        int source;
        std::wstring text;
        int code;
        std::vector<u64> fillers = {}; // the rest of the array is zero
        long cursorAdvance = 0;
        Prepare prepare = nullptr;
    };
    const std::vector<u64> untouched(10, 99);
    const Row rows[] = {
        {"recorded arguments by letter and slot", 1, L"d0`u0`s1", 0, {u64(-5), 4000000000u, fillerOf(kBeta)}, 0},
        {"blanks behind a slot number", 1, L"d1 `d0", 0, {7, u64(-5)}, 0},
        {"the cursor by letter, 8 bytes each", 2, L"d`u`s", 0, {u64(-3), 5, fillerOf(kGamma)}, 24},
        {"as many records as fillers", 1, tenRecords, 0, std::vector<u64>(10, 4000000000u), 0},
        {"no text leaves the fillers as they are", 0, L"", 0, untouched, 0},
        {"fillers of source 0", 0, L"u0", 242},
        {"source 3", 3, L"u0", 242},
        {"an empty cursor", 2, L"u", 237, {}, 0, [](SpecRig& rig) { rig.engine.setDescriptionArgV(nullptr); }},
        {"more records than fillers", 1, tenRecords + L"`u0", 238},
        {"a record without a slot", 1, L"u", 239},
        {"an empty record", 1, L"u0``u0", 239},
        {"an unsigned slot equal to the quantity", 1, L"u3", 240},
        {"a string slot equal to the quantity", 1, L"s3", 240},
        {"a slot beyond an int", 1, L"d99999999999", 240},
        {"a letter other than d, s, u", 1, L"x0", 241},
        {"a cursor record of two letters moves the cursor up to it", 2, L"d`us", 241, {}, 8},
        {"a capital letter", 2, L"D", 241},
        {"an exception that is no code", 1, L"u0", 236, {}, 0, [](SpecRig& rig) { rig.engine.fillersForgetThrows = 1; }},
        {"no data set, which also keeps the fillers", 1, L"u0", 265, untouched, 0, kNoDataSet},
        {"a code held by the data set", 1, L"u0", 231, {}, 0, kHeldCode},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        SpecRig rig;
        SpecEngine& engine = rig.engine;
        const int fillersQty = rig.dataSet.getDescriptionFillersQty();
        u64 slots[] = {0xFFFFFFFDu, 0x100000005u, fillerOf(kGamma)};
        char* cursor = reinterpret_cast<char*>(slots);
        engine.setDescriptionArgV(&cursor);
        engine.recordArgument(-5, 0);
        engine.recordArgument(7, 1);
        engine.recordArgument(4000000000u, 0);
        engine.recordArgument(kAlpha, 0);
        engine.recordArgument(kBeta, 1);
        std::fill(engine.getDescriptionFillers(), engine.getDescriptionFillers() + fillersQty, 99);
        engine.m_argSource = row.source;
        engine.m_tokenSeparator[0] = kForeignSeparator;
        std::wstring text = row.text;
        if (row.prepare)
            row.prepare(rig);

        EXPECT_EQ(engine.parseResponseSpecHeaderFillers(nullptr, text.data()), row.code == 0);
        EXPECT_EQ(engine.getSelfDX_Code(), row.code);
        EXPECT_EQ(fillersOf(rig), padded(row.fillers, std::size_t(fillersQty), u64(0)));
        EXPECT_EQ(cursor - reinterpret_cast<char*>(slots), row.cursorAdvance) << "the caller's cursor moves";
        EXPECT_TRUE(isZeroed(engine.m_scratchpad.m_scratchA, ZarnScratchpad::kCharacters));
        EXPECT_EQ(engine.m_tokenSeparator[0], kForeignSeparator);
    }
}

TEST(ResponseSpecs, StringFillersAreHandedBackOnlyForNarrowStrings)
{
    for (const int charSet : {0, 2}) {
        SCOPED_TRACE(charSet);
        SpecRig rig(charSet);
        const char* const narrow[] = {"alpha", "beta"};
        const u64 first = charSet == 2 ? fillerOf(kAlpha) : fillerOf(narrow[0]);
        const u64 second = charSet == 2 ? fillerOf(kBeta) : fillerOf(narrow[1]);
        for (int slot = 0; slot < 2; ++slot)
            ASSERT_EQ(charSet == 2 ? rig.engine.recordArgument(slot == 0 ? kAlpha : kBeta, slot)
                                   : rig.engine.recordArgument(narrow[slot], slot),
                      slot);
        rig.engine.recordArgument(5u, 0);
        std::wcscpy(rig.engine.m_responseSpecHeader, L"2~0~1~s1`u0`s0");
        std::vector<u64> strings(std::size_t(rig.dataSet.getDescriptionFillersQty()), 0);

        ASSERT_TRUE(rig.engine.parseResponseSpecHeader(strings.data())) << rig.engine.getSelfDX_Code();
        EXPECT_EQ(fillersOf(rig), padded<u64>({second, 5, first}, strings.size(), 0));
        const std::vector<u64> handedBack = charSet == 2 ? std::vector<u64>{} : std::vector<u64>{second, first};
        EXPECT_EQ(strings, padded(handedBack, strings.size(), u64(0)));
    }
}

TEST(ResponseSpecs, PlugInIDsNameEachPlugInOnceOrGiveTheirCode)
{
    struct Row { const char* name; const wchar_t* text; int code; std::vector<int> plugIns = {};
                 Prepare prepare = nullptr; bool withPlugIns = true; };
    const Row rows[] = {
        {"three plug-ins", L"0`2`3", 0, {0, 2, 3}},
        {"numbers are read where their digits start", L"p3` 1", 0, {3, 1}},
        {"every plug-in once", L"3`2`1`0", 0, {3, 2, 1, 0}},
        {"no text leaves the plug-ins as they are", L"", 0, {2}},
        {"more records than plug-ins", L"0`1`2`3`0", 249},
        {"a plug-in named twice", L"1`1", 245},
        {"a record without digits", L"x", 246},
        {"a plug-in beyond the table", L"4", 247},
        {"a number beyond an int", L"99999999999", 247},
        {"an exception that is no code", L"1", 248, {}, [](SpecRig& rig) { rig.engine.plugInsForgetThrows = 1; }},
        {"a data set without plug-ins", L"1", 250, {}, nullptr, false},
        {"no data set", L"1", 265, {}, kNoDataSet},
        {"a code held by the data set", L"1", 231, {}, kHeldCode},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        SpecRig rig(2, row.withPlugIns);
        SpecEngine& engine = rig.engine;
        if (engine.m_plugInsIndirectIndices != nullptr) {
            engine.m_plugInsIndirectIndices[0] = 2; // as an earlier situation left them
            engine.m_plugInsIndirectQty = 1;
        }
        engine.m_tokenSeparator[0] = kForeignSeparator;
        std::wstring text = row.text;
        if (row.prepare)
            row.prepare(rig);

        EXPECT_EQ(engine.parseResponseSpecHeaderPlugInIDs(text.data()), row.code == 0);
        EXPECT_EQ(engine.getSelfDX_Code(), row.code);
        EXPECT_EQ(engine.m_plugInsIndirectQty, int(row.plugIns.size()));
        if (engine.m_plugInsIndirectIndices != nullptr && engine.m_dataSet != nullptr) {
            EXPECT_EQ(plugInsOf(rig), padded(row.plugIns, kPlugInsQty, -1));
        }
        EXPECT_TRUE(isZeroed(engine.m_scratchpad.m_scratchA, ZarnScratchpad::kCharacters));
        EXPECT_EQ(engine.m_tokenSeparator[0], kForeignSeparator);
    }
}

// The library's own spec 10006, from its own string table: the note that opens a log file.
TEST(ResponseSpecs, BuiltInSeriesNoteParsesAsItsLogFileNeeds)
{
    SpecRig rig;
    SpecEngine& engine = rig.engine;
    const HMODULE self = GetModuleHandleW(L"zmu.dll");
    ASSERT_NE(self, nullptr);
    rig.dataSet.setResourceModule(self);
    engine.recordSituationID(10006);
    const wchar_t firstLog[] = L"first.html";
    u64 slots[] = {3, fillerOf(firstLog)};
    char* cursor = reinterpret_cast<char*>(slots);
    engine.setDescriptionArgV(&cursor);

    ASSERT_TRUE(engine.obtainResponseSpecs()) << engine.getSelfDX_Code();
    EXPECT_STREQ(engine.m_descriptionForDisplay, L"");
    EXPECT_STREQ(engine.m_descriptionForLogFile, L"``This log file is #%1!u! in a series that began with %2!s!.`");
    ASSERT_TRUE(engine.parseResponseSpecHeader(nullptr)) << engine.getSelfDX_Code();
    EXPECT_EQ(engine.m_situationApprovalKind, 1u);
    EXPECT_EQ(engine.m_situationResponseTraits, 0xFFFFFFFFFFFFFFFFu);
    EXPECT_EQ(engine.m_argSource, 2);
    EXPECT_EQ(fillersOf(rig), padded<u64>({3, fillerOf(firstLog)}, 10, 0));
    EXPECT_EQ(cursor, reinterpret_cast<char*>(slots) + 16);
    EXPECT_EQ(engine.m_plugInsIndirectQty, 0);
}
