#include "tools/SpecChecker.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

const std::string kData = ZMU_TOOLS_TEST_DATA;
const std::string kReportSpecs = ZMU_TEST_MODULE_DIR "/libzmu_test_report_specs.so";
// The options the two test scripts are written for.
const std::string kScriptOptions = " --affix-min 5000 --affix-qty 4 --plug-ins 4";

struct ToolRun
{
    int exitCode;
    std::string out;
    std::string errors;
};

std::string readAll(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// Runs zmu-speccheck with `arguments` (already quoted where needed).
ToolRun runChecker(const std::string& arguments)
{
    // Named by the process: ctest may run several of these tests at once.
    const std::string stem = testing::TempDir() + "zmu_speccheck_" + std::to_string(getpid());
    const std::string out = stem + "_out.txt";
    const std::string errors = stem + "_errors.txt";
    const int status =
        std::system((std::string(ZMU_SPECCHECK_TOOL) + " " + arguments + " >'" + out + "' 2>'" + errors + "'").c_str());
    ToolRun run{WIFEXITED(status) ? WEXITSTATUS(status) : -1, readAll(out), readAll(errors)};
    std::remove(out.c_str());
    std::remove(errors.c_str());
    return run;
}

// The verdict of each spec line: "OK", or the code after FAIL ("-" for the checker's own finding),
// and the explanation.
struct Verdict
{
    std::string code;
    std::string reason;
};

std::map<unsigned int, Verdict> verdictsOf(const std::string& out)
{
    std::map<unsigned int, Verdict> verdicts;
    std::istringstream lines(out);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        unsigned int id = 0;
        std::string status;
        if (!(words >> id >> status) || (status != "OK" && status != "FAIL"))
            continue;
        Verdict verdict{"OK", ""};
        if (status == "FAIL") {
            words >> verdict.code;
            std::getline(words, verdict.reason);
        }
        verdicts[id] = verdict;
    }
    return verdicts;
}

std::string lastLine(const std::string& out)
{
    const std::size_t end = out.find_last_not_of('\n');
    return end == std::string::npos ? std::string() : out.substr(out.rfind('\n', end) + 1, end - out.rfind('\n', end));
}

TEST(SpecCheckerTool, EachBadSpecFailsWithItsOwnCode)
{
    // What each spec of bad_specs.rc gets wrong, and the code the parsers leave for it.
    const std::map<unsigned int, std::string> expected = {
        {3001, "261"}, {3002, "261"}, {3003, "260"}, {3004, "258"}, {3005, "244"}, {3006, "252"}, {3007, "234"},
        {3008, "242"}, {3009, "242"}, {3010, "241"}, {3011, "239"}, {3012, "240"}, {3013, "238"}, {3014, "245"},
        {3015, "246"}, {3016, "247"}, {3017, "249"}, {3018, "29"},  {3019, "41"},  {3020, "38"},  {3021, "39"},
        {3022, "32"},  {3023, "33"},  {3024, "34"},  {3025, "34"},  {3026, "37"},  {3027, "24"},  {3028, "24"},
        {3029, "19"},  {3030, "17"},  {3031, "15"},  {3032, "13"},  {3033, "12"},  {3034, "53"},  {3035, "50"},
        // Inserts that the library formats without a code, wrongly or dangerously.
        {3036, "-"},   {3037, "-"},   {3038, "-"},   {3039, "-"},   {3040, "-"},
    };
    const ToolRun run = runChecker("'" + kData + "/bad_specs.rc'" + kScriptOptions);
    EXPECT_EQ(run.exitCode, 1) << run.errors;
    const std::map<unsigned int, Verdict> verdicts = verdictsOf(run.out);
    EXPECT_EQ(verdicts.size(), expected.size()) << run.out;
    for (const auto& [id, code] : expected) {
        SCOPED_TRACE(id);
        const auto verdict = verdicts.find(id);
        ASSERT_NE(verdict, verdicts.end());
        EXPECT_EQ(verdict->second.code, code);
        EXPECT_NE(verdict->second.reason, " see the trace");
        EXPECT_GT(verdict->second.reason.size(), 10u);
    }
    EXPECT_EQ(lastLine(run.out), "40 specs, 40 failed");
}

TEST(SpecCheckerTool, AGoodTablePassesAndOtherStringsAreNotSpecs)
{
    const ToolRun run = runChecker("'" + kData + "/good_specs.rc'" + kScriptOptions);
    EXPECT_EQ(run.exitCode, 0) << run.out << run.errors;
    const std::map<unsigned int, Verdict> verdicts = verdictsOf(run.out);
    for (unsigned int id = 3101; id <= 3106; ++id)
        EXPECT_EQ(verdicts.count(id) == 1 ? verdicts.at(id).code : "missing", "OK") << id;
    EXPECT_EQ(verdicts.size(), 6u) << run.out; // not 3107, nor the affixes
    EXPECT_EQ(lastLine(run.out), "6 specs, 0 failed");
}

TEST(SpecCheckerTool, RenderShowsWhatTheLibraryWouldDisplayAndLog)
{
    struct Case
    {
        const char* name;
        std::string arguments;
        std::string out;
    };
    const Case cases[] = {
        {"recorded arguments, dialog style, both affixes, the suffix with an insert",
         "--render 3102 --arg 42 --arg 'disk C:'",
         "3102 OK\ndisplay (style 36): [pre] Shown 42 disk C: [post 42]\nlog: Logged 42 disk C:\n"},
        {"the dupe form shows the log text; a negative d", "--render 3103 --arg -7",
         "3103 OK\ndisplay (style 48): Dupe -7\nlog: Dupe -7\n"},
        {"samples for fillers without an argument", "--render 3101",
         "3101 OK\ndisplay: nothing shown\nlog: This log file is #0 in a series that began with sample.\n"},
        {"a quote inside the text, the dupe form among blanks", "--render 3104 --arg 'x'", "3104 OK\ndisplay (style 48): He said \"x\"\nlog: He said \"x\"\n"},
        {"the largest u and the smallest d", "--render 3106 --arg 4294967295 --arg -2147483648",
         "3106 OK\ndisplay (style 48): Count 4294967295 [post 4294967295]\nlog: Count 4294967295 of -2147483648\n"},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.name);
        const ToolRun run = runChecker("'" + kData + "/good_specs.rc'" + kScriptOptions + " " + row.arguments);
        EXPECT_EQ(run.exitCode, 0) << run.errors;
        EXPECT_EQ(run.out, row.out + "1 specs, 0 failed\n");
    }

    // A failed spec shows nothing.
    const ToolRun failed = runChecker("'" + kData + "/bad_specs.rc'" + kScriptOptions + " --render 3021");
    EXPECT_EQ(failed.exitCode, 1);
    EXPECT_EQ(failed.out, "3021 FAIL 39 the line width is above 255\n1 specs, 1 failed\n");
}

TEST(SpecCheckerTool, ReadsAModuleByPathOrByName)
{
    // Without its affixes and plug-ins the module's specs 3009 and 3004 fail.
    const ToolRun bare = runChecker("'" + kReportSpecs + "'");
    EXPECT_EQ(bare.exitCode, 1) << bare.errors;
    std::map<unsigned int, Verdict> verdicts = verdictsOf(bare.out);
    EXPECT_EQ(verdicts.size(), 11u) << bare.out;
    EXPECT_EQ(verdicts[3004].code, "250");
    EXPECT_EQ(verdicts[3009].code, "33");
    EXPECT_EQ(verdicts[0].code, "OK");
    EXPECT_EQ(lastLine(bare.out), "11 specs, 2 failed");

    // The Windows name of the module, as LoadLibraryW takes it.
    const ToolRun named =
        runChecker("'" ZMU_TEST_MODULE_DIR "/zmu_test_report_specs.dll' --affix-min 4000 --affix-qty 2 --plug-ins 4");
    EXPECT_EQ(named.exitCode, 0) << named.out << named.errors;
    EXPECT_EQ(lastLine(named.out), "11 specs, 0 failed");

    const ToolRun some = runChecker("'" + kReportSpecs + "' --ids 3003-3004,3009,4000-4001");
    verdicts = verdictsOf(some.out);
    EXPECT_EQ(verdicts.size(), 3u) << some.out;
    EXPECT_EQ(verdicts[3003].code, "OK");
    EXPECT_EQ(lastLine(some.out), "3 specs, 2 failed");
}

TEST(SpecCheckerTool, BadUsageOrUnreadableInputExitsWithTwo)
{
    struct Case
    {
        std::string arguments;
        std::string error; // a part of what stderr says
    };
    const std::string script = testing::TempDir() + "zmu_speccheck_bad_script_" + std::to_string(getpid()) + ".rc";
    std::ofstream(script) << "STRINGTABLE\nBEGIN\n  3001, \"2~0||0``a\"\n  3001, \"again\"\nEND\n";
    const Case cases[] = {
        {"", "no input given"},
        {"--fillers 4 '" + kReportSpecs + "'", "fillers quantity"},
        {"--ids 9-3 '" + kReportSpecs + "'", "--ids takes"},
        {"--ids 70000 '" + kReportSpecs + "'", "--ids takes"},
        {"--arg 1 '" + kReportSpecs + "'", "--arg is only for --render"},
        {"--render '" + kReportSpecs + "'", "--render takes"},
        {"--frobnicate 1 '" + kReportSpecs + "'", "unknown option --frobnicate"},
        {"--render 3001 --arg 1 --arg 2 --arg 3 --arg 4 '" + kReportSpecs + "'", "4 arguments given"},
        {"--render 3001 --arg x '" + kReportSpecs + "'", "argument 1 (\"x\") is no signed 32-bit number"},
        {"--render 3001 --arg 1 --arg -1 '" + kReportSpecs + "'", "argument 2 (\"-1\") is no unsigned"},
        {"'" + kData + "/absent.rc'", kData + "/absent.rc: cannot read"},
        {"'" + script + "'", script + ":4:"},
        {"'" + kData + "/absent.so'", "cannot load the module"},
        {"'" ZMU_TEST_MODULE_DIR "/libzmu_test_plain.so'", "exports no ZRLoadStringW"},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.arguments);
        const ToolRun run = runChecker(row.arguments);
        EXPECT_EQ(run.exitCode, 2);
        EXPECT_NE(run.errors.find(row.error), std::string::npos) << run.errors;
    }
    std::remove(script.c_str());
}

TEST(SpecChecker, ReadsIdsAndRanges)
{
    struct Case
    {
        const char* text;
        bool valid;
        SpecIdRanges ranges;
    };
    const Case cases[] = {
        {"3001", true, {{3001, 3001}}},
        {"3000-3999,4100", true, {{3000, 3999}, {4100, 4100}}},
        {"0-65535", true, {{0, 65535}}},
        {"7-7", true, {{7, 7}}},
        {"65536", false, {}},
        {"9-3", false, {}},
        {"", false, {}},
        {"1,", false, {}},
        {"1-", false, {}},
        {"-5", false, {}},
        {"1;2", false, {}},
        {"+1", false, {}},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.text);
        SpecIdRanges ranges = {{1, 2}};
        EXPECT_EQ(SpecChecker::parseIdRanges(row.text, ranges), row.valid);
        EXPECT_EQ(ranges, row.ranges);
    }
}

TEST(SpecChecker, FindsTheSpecsOfAModuleAndFillsTheirSlotsInFillerOrder)
{
    SpecCheckSettings settings;
    settings.descriptionAffixID_Min = 4000;
    settings.descriptionAffixIDsQty = 2;
    settings.plugInsQty = 4;
    SpecChecker checker(settings);
    std::string error;
    ASSERT_TRUE(checker.openModule(kReportSpecs, error)) << error;

    // Every spec of the module, and not its affixes 4000 and 4001.
    std::vector<unsigned int> expected = {0};
    for (unsigned int id = 3001; id <= 3010; ++id)
        expected.push_back(id);
    EXPECT_EQ(checker.learnSpecIDs({}), expected);
    EXPECT_EQ(checker.learnSpecIDs({{3005, 4001}, {0, 0}}), (std::vector<unsigned int>{0, 3005, 3006, 3007, 3008, 3009, 3010}));

    // Recorded arguments: u0, s1 and d2 take the arguments to their own slots.
    SpecCheckResult recorded = checker.checkSpec(3002, {"9", "text", "-1"});
    EXPECT_TRUE(recorded.passed()) << recorded.dxCode << recorded.finding << recorded.argumentError;
    EXPECT_TRUE(recorded.displayShown);
    EXPECT_EQ(recorded.displayStyle, 48u);
    EXPECT_EQ(recorded.displayText, L"Recorded 9 text -1");
    EXPECT_EQ(recorded.logText, L"Recorded log 9 text -1");

    // Width 255 keeps the hard break; style 1.
    const SpecCheckResult wide = checker.checkSpec(3008, {"3"});
    EXPECT_EQ(wide.displayStyle, 1u);
    EXPECT_EQ(wide.displayText, L"Pressed 3\r\nSecond line");

    // A spec that is missing is one the library cannot load.
    EXPECT_EQ(checker.checkSpec(3999).dxCode, 255);
}

} // namespace
