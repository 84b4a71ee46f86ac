#include "tools/StringTableScript.h"

#include "platform/Modules.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct ExpectedRow
{
    unsigned int id;
    std::wstring text;
    int line;
};

struct GoodScript
{
    const char* name;
    std::string script;
    std::vector<ExpectedRow> rows; // in id order
};

const std::string kLongest(StringTableScript::kMaxTextLength, 'x');

const GoodScript kGoodScripts[] = {
    {"BEGIN and END with a comma", "STRINGTABLE\nBEGIN\n    1, \"one\"\nEND\n", {{1, L"one", 3}}},
    {"braces, no comma", "STRINGTABLE {\n 2 \"two\" }", {{2, L"two", 2}}},
    {"simple escapes in a wide string", R"(STRINGTABLE BEGIN 1 L"\n\t\r\a\\\"x" END)", {{1, L"\n\t\r\a\\\"x", 1}}},
    {"doubled quote", R"(STRINGTABLE BEGIN 1 "say ""hi""" END)", {{1, L"say \"hi\"", 1}}},
    // Two hex digits in a narrow string, four in a wide one.
    {"hex escapes", R"(STRINGTABLE BEGIN 1 "\x414" 2 L"\x41424" END)", {{1, L"A4", 1}, {2, L"\x4142" L"4", 1}}},
    {"octal escapes", R"(STRINGTABLE BEGIN 1 "\101\0\1234" END)", {{1, std::wstring(L"A\0S4", 4), 1}}},
    {"escaped surrogate pair", R"(STRINGTABLE BEGIN 1 L"<\xD83D\xDE00>" END)", {{1, L"<\U0001F600>", 1}}},
    {"literals on one line concatenate", "STRINGTABLE BEGIN 1 \"a\" L\"b\" /* c */ \"c\"\nEND", {{1, L"abc", 1}}},
    {"id and string on two lines", "STRINGTABLE BEGIN\n 1,\n \"a\"\nEND", {{1, L"a", 2}}},
    {"rows on one line", "STRINGTABLE BEGIN 1 \"a\" 2 \"b\" END", {{1, L"a", 1}, {2, L"b", 1}}},
    {"decimal, hex and the id range", "STRINGTABLE BEGIN\n0 \"z\"\n0x10 \"h\"\n65535 \"m\"\nEND",
     {{0, L"z", 2}, {16, L"h", 3}, {65535, L"m", 4}}},
    {"symbolic ids, defined before their use",
     "#define IDS_A 5\n#  define IDS_B 0x20 // hex\nSTRINGTABLE BEGIN\nIDS_B \"b\"\n#define IDS_C 6\nIDS_C, \"c\"\nEND\n"
     "#define IDS_D 7\nSTRINGTABLE BEGIN IDS_A \"a\" IDS_D \"d\" END",
     {{5, L"a", 9}, {6, L"c", 6}, {7, L"d", 9}, {32, L"b", 4}}},
    {"other directives are skipped, a continued one whole",
     "#include \"resource.h\"\n#pragma code_page(65001)\n#ifdef X\n#define LONG \\\n  not a row\n#endif\n"
     "STRINGTABLE BEGIN 1 \"a\" END",
     {{1, L"a", 7}}},
    {"comments", "// top\n/* two\n lines */ STRINGTABLE // after\nBEGIN /* in */ 1 /* x */ , \"a\" // \"b\"\nEND",
     {{1, L"a", 4}}},
    {"optional statements and memory flags",
     "STRINGTABLE PRELOAD DISCARDABLE\nLANGUAGE LANG_ENGLISH, SUBLANG_ENGLISH_US\nCHARACTERISTICS 7\nVERSION 0x2\n"
     "BEGIN 1 \"a\" END",
     {{1, L"a", 5}}},
    {"a LANGUAGE statement between blocks", "LANGUAGE 9, 1\nSTRINGTABLE BEGIN 1 \"a\" END", {{1, L"a", 2}}},
    {"two blocks, rows sorted by id", "STRINGTABLE BEGIN 9 \"nine\" END\nSTRINGTABLE { 3 \"three\" }",
     {{3, L"three", 2}, {9, L"nine", 1}}},
    {"byte order mark and CRLF", "\xEF\xBB\xBFSTRINGTABLE\r\nBEGIN\r\n 1 \"x\"\r\nEND\r\n", {{1, L"x", 3}}},
    {"UTF-8 text", "STRINGTABLE BEGIN 1 \"Grüße 漢 😀\" END", {{1, L"Gr\u00fc\u00dfe \u6f22 \U0001F600", 1}}},
    {"keywords in any case", "StringTable begin 1 \"x\" End", {{1, L"x", 1}}},
    {"the longest text", "STRINGTABLE BEGIN 1 \"" + kLongest + "\" END", {{1, std::wstring(kLongest.begin(), kLongest.end()), 1}}},
    {"empty text", "STRINGTABLE BEGIN 1 \"\" END", {{1, L"", 1}}},
    {"no table at all", "// nothing\n#define A 1\n", {}},
};

TEST(StringTableScript, GoodScriptsGiveTheirRows)
{
    for (const GoodScript& good : kGoodScripts) {
        SCOPED_TRACE(good.name);
        StringTableScript script;
        ASSERT_TRUE(script.parse(good.script)) << script.errorMessage("script");
        ASSERT_EQ(script.rows().size(), good.rows.size());
        for (std::size_t i = 0; i < good.rows.size(); ++i) {
            const StringTableRow& row = script.rows()[i];
            EXPECT_EQ(row.id, good.rows[i].id);
            EXPECT_EQ(row.text, good.rows[i].text);
            EXPECT_EQ(row.line, good.rows[i].line);
            EXPECT_EQ(script.find(row.id), &row);
        }
        EXPECT_EQ(script.find(12345), nullptr);
    }
}

struct BadScript
{
    const char* name;
    std::string script;
    int line;
    const char* fault; // a part of the error text
};

const BadScript kBadScripts[] = {
    {"text outside a table", "#define A 1\nhello", 2, "expected STRINGTABLE, found 'hello'"},
    {"row outside a table", "STRINGTABLE BEGIN END\n1 \"a\"", 2, "expected STRINGTABLE, found '1'"},
    {"a # that does not start its line", "STRINGTABLE # x\nBEGIN END", 1, "found '#'"},
    {"no BEGIN", "\nSTRINGTABLE\n", 2, "STRINGTABLE without BEGIN"},
    {"a word before BEGIN", "STRINGTABLE FOO BEGIN END", 1, "expected BEGIN after STRINGTABLE, found 'FOO'"},
    {"LANGUAGE with one value", "STRINGTABLE LANGUAGE 9 BEGIN END", 1, "expected ','"},
    {"BEGIN without END", "STRINGTABLE\nBEGIN\n 1 \"a\"\n", 2, "BEGIN without END"},
    {"duplicate id", "STRINGTABLE\nBEGIN\n 1 \"a\"\n 0x1 \"b\"\nEND", 4, "duplicate id 1 (first on line 3)"},
    {"duplicate id across tables", "#define B 7\nSTRINGTABLE { 7 \"a\" }\nSTRINGTABLE { B \"b\" }", 3,
     "duplicate id 7 (first on line 2)"},
    {"string ending with its line", "STRINGTABLE BEGIN\n 1 \"abc\n\" END", 2, "unterminated string"},
    {"string ending with its CRLF line", "STRINGTABLE BEGIN\r\n\r\n 1 \"abc\r\n\" END", 3, "unterminated string"},
    {"string ending with the file", "STRINGTABLE BEGIN 1 \"abc", 1, "unterminated string"},
    {"string ending in a backslash", "STRINGTABLE BEGIN 1 \"abc\\\n\" END", 1, "unterminated string"},
    {"id above the range", "STRINGTABLE BEGIN\n65536 \"a\" END", 2, "id '65536' out of range (0..65535)"},
    {"hex id above the range", "STRINGTABLE BEGIN 0x10000 \"a\" END", 1, "id '0x10000' out of range"},
    {"negative id", "STRINGTABLE BEGIN -1 \"a\" END", 1, "id '-1' out of range"},
    {"huge id", "STRINGTABLE BEGIN 99999999999999999999999999 \"a\" END", 1, "out of range"},
    {"symbol above the range", "#define BIG 70000\nSTRINGTABLE BEGIN BIG \"a\" END", 2, "id 'BIG' (70000) out of range"},
    {"bad number", "STRINGTABLE BEGIN 12ab \"a\" END", 1, "bad number '12ab'"},
    {"string without id", "STRINGTABLE BEGIN\n\"a\"\nEND", 2, "missing id"},
    {"literal on the next line", "STRINGTABLE BEGIN\n1 \"a\"\n  L\"b\"\nEND", 3, "missing id"},
    {"id without string", "STRINGTABLE BEGIN 1, 2 \"a\" END", 1, "expected a string after id 1, found '2'"},
    {"unknown symbol", "STRINGTABLE BEGIN\nIDS_X \"a\" END", 2, "unknown symbol 'IDS_X'"},
    {"undefined symbol", "#define A 1\n#undef A\nSTRINGTABLE BEGIN A \"a\" END", 3, "unknown symbol 'A'"},
    {"symbol that is no number", "#define A 1\n#define A B\nSTRINGTABLE BEGIN A \"a\" END", 3, "unknown symbol 'A'"},
    {"unknown escape", "STRINGTABLE BEGIN\n1 \"a\\qb\" END", 2, "bad escape '\\q'"},
    {"hex escape without digits", "STRINGTABLE BEGIN 1 \"\\xg\" END", 1, "bad escape '\\x' without hex digits"},
    {"high surrogate alone", "STRINGTABLE BEGIN 1 L\"\\xD800x\" END", 1, "bad escape: a high surrogate"},
    {"low surrogate alone", "STRINGTABLE BEGIN 1 L\"\\xDC00\" END", 1, "bad escape: a low surrogate"},
    {"text too long", "STRINGTABLE BEGIN\n1 \"" + kLongest + "y\" END", 2, "string longer than 4097 characters"},
    {"text too long when joined", "STRINGTABLE BEGIN 1 \"" + kLongest + "\" \"y\" END", 1, "string longer than"},
    {"comment without end", "STRINGTABLE BEGIN\n/* 1 \"a\"\nEND", 2, "unterminated comment"},
    {"cut UTF-8", "STRINGTABLE BEGIN 1 \"\xC3(\" END", 1, "invalid UTF-8"},
    {"overlong UTF-8", "STRINGTABLE BEGIN 1 \"\xC0\xAF\" END", 1, "invalid UTF-8"},
    {"UTF-8 surrogate", "STRINGTABLE BEGIN 1 \"\xED\xA0\x80\" END", 1, "invalid UTF-8"},
    {"UTF-8 above U+10FFFF", "STRINGTABLE BEGIN 1 \"\xF4\x90\x80\x80\" END", 1, "invalid UTF-8"},
};

TEST(StringTableScript, BadScriptsTellTheLineAndTheFault)
{
    for (const BadScript& bad : kBadScripts) {
        SCOPED_TRACE(bad.name);
        StringTableScript script;
        EXPECT_FALSE(script.parse(bad.script));
        EXPECT_EQ(script.errorLine(), bad.line);
        EXPECT_NE(script.errorText().find(bad.fault), std::string::npos) << script.errorText();
        EXPECT_TRUE(script.rows().empty());
    }
}

TEST(StringTableScript, AGoodParseClearsTheLastFault)
{
    StringTableScript script;
    ASSERT_FALSE(script.parse("STRINGTABLE BEGIN 1 \"a\" 1 \"b\" END"));
    ASSERT_TRUE(script.parse("STRINGTABLE BEGIN 2 \"b\" END"));
    EXPECT_EQ(script.errorLine(), 0);
    EXPECT_EQ(script.errorText(), "");
    ASSERT_EQ(script.rows().size(), 1u);
    EXPECT_EQ(script.rows()[0].text, L"b");
}

// Every cut of a real script is read to an answer, and a fault lies on a line the cut holds.
TEST(StringTableScript, EveryPrefixOfAScriptGetsAnAnswer)
{
    StringTableScript whole;
    ASSERT_TRUE(whole.load(ZMU_TOOLS_TEST_DATA "/rc_strings.rc")) << whole.errorMessage("rc_strings.rc");
    std::ifstream file(ZMU_TOOLS_TEST_DATA "/rc_strings.rc", std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    for (std::size_t size = 0; size < text.size(); ++size) {
        const std::string prefix = text.substr(0, size);
        StringTableScript script;
        if (script.parse(prefix))
            continue;
        const long lines = std::count(prefix.begin(), prefix.end(), '\n') + 1;
        ASSERT_GE(script.errorLine(), 1) << size;
        ASSERT_LE(script.errorLine(), lines) << size;
    }
}

TEST(StringTableScript, FaultsAreNamedLikeACompilersAndAnUnreadableFileIsLineZero)
{
    StringTableScript script;
    ASSERT_FALSE(script.parse("\n\nSTRINGTABLE BEGIN 1 \"a\\q\" END"));
    EXPECT_EQ(script.errorMessage("app.rc"), "app.rc:3: " + script.errorText());
    EXPECT_FALSE(script.load(ZMU_TOOLS_TEST_DATA "/no such file.rc"));
    EXPECT_EQ(script.errorLine(), 0);
    EXPECT_EQ(script.errorMessage("x.rc"), "x.rc: cannot read the file");
}

std::string readAll(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

bool exists(const std::string& path)
{
    return std::ifstream(path).good();
}

// Runs zmu-strings with `arguments`, its stderr kept in `errors`; the exit code.
int runTool(const std::string& arguments, const std::string& errors)
{
    const int status = std::system((std::string(ZMU_STRINGS_TOOL) + " " + arguments + " 2>'" + errors + "' >/dev/null").c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(StringTableScriptTool, WritesTheModuleOrTellsTheFaultAndWritesNothing)
{
    // Named for this process, so that test runs side by side do not share the files.
    const std::string dir = testing::TempDir() + std::to_string(::getpid()) + "_";
    const std::string bad = dir + "zmu_strings_bad.rc";
    const std::string good = dir + "zmu_strings_good.rc";
    const std::string output = dir + "zmu_strings_out.cpp";
    const std::string errors = dir + "zmu_strings_errors.txt";
    std::remove(output.c_str());
    std::ofstream(bad) << "STRINGTABLE\nBEGIN\n  1 \"open\nEND\n";
    std::ofstream(good) << "STRINGTABLE { 5 \"five\" }\n";

    EXPECT_EQ(runTool("'" + bad + "' '" + output + "'", errors), 1);
    EXPECT_NE(readAll(errors).find(bad + ":3: unterminated string"), std::string::npos) << readAll(errors);
    EXPECT_FALSE(exists(output));
    EXPECT_FALSE(exists(output + ".part"));

    EXPECT_EQ(runTool("'" + good + "'", errors), 2);
    EXPECT_NE(readAll(errors).find("usage: zmu-strings"), std::string::npos);
    EXPECT_EQ(runTool("--help", errors), 0);

    EXPECT_EQ(runTool("'" + good + "' '" + output + "'", errors), 0);
    StringTableScript script;
    ASSERT_TRUE(script.load(good));
    EXPECT_EQ(readAll(output), script.moduleSource());
    EXPECT_FALSE(exists(output + ".part"));

    for (const std::string& path : {bad, good, output, errors})
        std::remove(path.c_str());
}

// The module that zmu_add_string_module built from rc_strings.rc, read as every resource module is.
class StringModule : public testing::Test
{
protected:
    void SetUp() override
    {
        const std::string path = ZMU_TEST_MODULE_DIR "/libzmu_test_rc_strings.so";
        m_module = LoadLibraryW(std::wstring(path.begin(), path.end()).c_str());
        ASSERT_NE(m_module, nullptr);
    }
    void TearDown() override
    {
        if (m_module != nullptr)
            FreeLibrary(m_module);
    }

    std::wstring load(unsigned int id, int bufferMax = 8192)
    {
        std::vector<wchar_t> buffer(static_cast<std::size_t>(bufferMax), L'#');
        const int count = LoadStringW(m_module, id, buffer.data(), bufferMax);
        EXPECT_EQ(buffer[static_cast<std::size_t>(count)], L'\0');
        return std::wstring(buffer.data(), static_cast<std::size_t>(count));
    }

    HMODULE m_module = nullptr;
};

TEST_F(StringModule, ServesEveryRowOfItsScript)
{
    StringTableScript script;
    ASSERT_TRUE(script.load(ZMU_TOOLS_TEST_DATA "/rc_strings.rc")) << script.errorMessage("rc_strings.rc");
    ASSERT_FALSE(script.rows().empty());
    for (const StringTableRow& row : script.rows()) {
        SCOPED_TRACE(row.id);
        EXPECT_EQ(load(row.id), row.text);
    }
    // What the script says, read by eye.
    EXPECT_EQ(load(40), L"Gr\u00fc\u00dfe, \u6f22\u5b57 and \U0001F600");
    EXPECT_EQ(load(0x2A), L"hex id: tab\there, quote \"q\" and \"doubled\"");
    EXPECT_EQ(load(43), std::wstring(L"\u00e9" L"cafe\u00e9" L"A\0end", 11));
    EXPECT_EQ(load(44), L"a\\b?\r\njoined");
    EXPECT_EQ(load(65535), L"pair \U0001F600");
}

TEST_F(StringModule, CutsAtBufferMaxLessOneAndHasNoMissingIds)
{
    EXPECT_EQ(load(7, 5), L"seve");
    EXPECT_EQ(load(7, 1), L"");
    EXPECT_EQ(load(2), L"");
    EXPECT_EQ(load(65534), L"");

    // The module's own loader: a missing id or a bad buffer leaves the buffer as it was.
    const auto loader = reinterpret_cast<ZRLoadStringW_Function>(GetProcAddress(m_module, "ZRLoadStringW"));
    ASSERT_NE(loader, nullptr);
    wchar_t buffer[8] = {L'#', L'#'};
    EXPECT_EQ(loader(2, buffer, 8), 0);
    EXPECT_EQ(loader(1, buffer, 0), 0);
    EXPECT_EQ(loader(1, nullptr, 8), 0);
    EXPECT_EQ(buffer[0], L'#');
    EXPECT_EQ(loader(45, buffer, 8), 0); // present but empty: the terminator is written
    EXPECT_EQ(buffer[0], L'\0');
    EXPECT_EQ(loader(1, buffer, 3), 2);
    EXPECT_EQ(std::wstring(buffer), L"on");
}

} // namespace
