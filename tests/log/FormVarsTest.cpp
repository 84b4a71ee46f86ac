#include "FormRig.h"

#include "platform/FormatMessage.h"
#include "platform/Modules.h"

#include <gtest/gtest.h>

#include <cwchar>
#include <string>
#include <vector>

namespace {

// A data set with the variable names learned, as the form reader has them.
class NamedRig
{
public:
    NamedRig() : m_rig("", FormName::Null)
    {
        data().freeLogFileFormData();
        m_learned = data().learnLogFileFormVarNames();
    }
    bool learned() const { return m_learned; }
    FormProbe& data() { return m_rig.data(); }

    // Compiles `text` as one section; the code is the one the data set was left with, then forgotten.
    int compile(const std::wstring& text, CompiledSection& section)
    {
        wchar_t* format = new wchar_t[text.size() + 1];
        std::wmemcpy(format, text.c_str(), text.size() + 1);
        int count = -1;
        Zarn_FORM_VAR* vars = nullptr;
        unsigned long long* values = nullptr;
        data().composeLogFileFormSectionFormat(&format, count, &vars, &values);
        const int code = data().getSelfDX_Code();
        data().forgetSelfDX_Code();
        section = compiledSection(format, count, vars);
        m_valuesMade = values != nullptr;
        delete[] format;
        delete[] vars;
        delete[] values;
        return code;
    }
    bool valuesMade() const { return m_valuesMade; }

private:
    FormRig m_rig;
    bool m_learned = false;
    bool m_valuesMade = false;
};

// `inserts` times [DAY] and then `plain` characters, with the format they compile to.
struct DaySection { std::wstring text; std::wstring format; };
DaySection daySection(int inserts, size_t plain)
{
    DaySection section;
    for (int insert = 1; insert <= inserts; ++insert) {
        section.text += L"[DAY]";
        section.format += L"%" + std::to_wstring(insert) + L"!02d!";
    }
    section.text += std::wstring(plain, L'x');
    section.format += std::wstring(plain, L'x');
    return section;
}

} // namespace

TEST(FormVars, SectionsCompileToFormatsAndVariables)
{
    struct Row { const char* name; std::wstring text; int code; std::wstring format; std::vector<int> vars; };
    const Row rows[] = {
        {"two variables", L"[DAY]-[SITUATION_DSCRP]", 0, L"%1!02d!-%2!s!", {4, 24}},
        {"one variable twice", L"[DAY][DAY]", 0, L"%1!02d!%2!02d!", {4, 4}},
        {"no variables", L"<hr>100%% plain</hr>\n", 0, L"<hr>100%% plain</hr>\n", {}},
        {"empty text", L"", 0, L"", {}},
        {"unclosed name alone", L"abc[DAY", 0, L"abc[DAY", {}},
        {"unclosed name after a variable", L"[YEAR]abc[DAY", 0, L"%1!d!abc", {30}},
        {"percent beside a variable", L"%[DAY]%", 0, L"%%1!02d!%", {4}},
        {"empty name", L"[]", 187, L"", {}},
        {"nested open bracket", L"[[X]", 204, L"", {}},
        {"close bracket without open", L"X]", 203, L"", {}},
        {"name in lower case", L"[day]", 188, L"", {}},
        // The names are looked up in a sorted table: before its first, between two, after its last.
        {"name before the first", L"[AAA]", 188, L"", {}},
        {"unknown name", L"[NOT_A_VARIABLE]", 188, L"", {}},
        {"name after the last", L"[ZZZ]", 188, L"", {}},
        {"name of 1022 characters", L"[" + std::wstring(1022, L'N') + L"]", 188, L"", {}},
        {"name of 1023 characters", L"[" + std::wstring(1023, L'N') + L"]", 194, L"", {}},
    };
    NamedRig rig;
    ASSERT_TRUE(rig.learned());
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        CompiledSection section;
        EXPECT_EQ(rig.compile(row.text, section), row.code);
        if (row.code == 0) {
            EXPECT_EQ(section.format, row.format);
            EXPECT_EQ(section.vars, row.vars);
            // A section without variables keeps no arrays.
            EXPECT_EQ(rig.valuesMade(), !row.vars.empty());
        }
    }
}

// Every name of the table is found, and each variable takes its own insert format.
TEST(FormVars, EveryVariableHasItsInsertFormat)
{
    const wchar_t* const names[Zarn_FORM_VAR_Qty] = {
        L"COMPANY_KNOW_BASE", L"COMPANY_NAME_LONG", L"COMPANY_NAME_SHORT", L"COMPANY_WEBSITE", L"DAY",
        L"ENTRY_COLOR",       L"ENTRY_ID",          L"FILE_VERSION",       L"HOME_DIRECTORY",  L"HOURS",
        L"LOGFILE_NAME",      L"MILLISECONDS",      L"MINUTES",            L"MODULE_FILE_NAME", L"MODULE_NAME",
        L"MONTH",             L"NAME_OF_DOMAIN",    L"NAME_OF_HOST",       L"NAME_OF_SESSION", L"NAME_OF_USER",
        L"PROCESS_ID",        L"PRODUCT_NAME",      L"PRODUCT_VERSION",    L"SECONDS",         L"SITUATION_DSCRP",
        L"SITUATION_ID",      L"SUITE_NAME",        L"SYS_INFO_ENV_APP",   L"SYS_INFO_ENV_OP", L"SYS_INFO_VARS_ENV",
        L"YEAR",
    };
    const wchar_t* const formats[Zarn_FORM_VAR_Qty] = {
        L"s", L"s", L"s",   L"s", L"02d", L"X", L"d",   L"s", L"s",   L"02d", L"s", L"03d", L"02d", L"s", L"s",   L"02d",
        L"s", L"s", L"s",   L"s", L"lu",  L"s", L"s",   L"02d", L"s", L"d",   L"s", L"s",   L"s",   L"s", L"d",
    };
    NamedRig rig;
    ASSERT_TRUE(rig.learned());
    for (int var = 0; var < Zarn_FORM_VAR_Qty; ++var) {
        SCOPED_TRACE(testing::Message() << "variable " << var);
        const std::wstring name = names[var];
        CompiledSection section;
        ASSERT_EQ(rig.compile(L"<" + name + L">[" + name + L"]", section), 0);
        EXPECT_EQ(section.format, L"<" + name + L">%1!" + formats[var] + L"!");
        EXPECT_EQ(section.vars, std::vector<int>{var});
    }
}

TEST(FormVars, LookUpWithoutANameOrATableFindsNothing)
{
    NamedRig rig;
    std::wstring empty(1, L'\0');
    EXPECT_EQ(rig.data().convertLogFileFormVarNameToIndex(&empty[0]), -1);
    EXPECT_EQ(rig.data().convertLogFileFormVarNameToIndex(nullptr), -1);
    rig.data().freeLogFileFormData();
    std::wstring day = L"DAY";
    EXPECT_EQ(rig.data().convertLogFileFormVarNameToIndex(&day[0]), -1);
}

// A short text is compiled in the scratch buffer, held to 1023 characters of output. A longer one
// gets space of its own, where only plain characters are held to the text's length, so inserts
// longer than their names still fit.
TEST(FormVars, OutputStopsAtItsLimit)
{
    struct Row { const char* name; int inserts; size_t plain; int code; };
    const Row rows[] = {
        {"scratch buffer filled to 1023", 100, 231, 0}, // 731 characters of text, 1023 of output
        {"scratch buffer one past", 100, 232, 193},
        {"own space, output twice the text", 300, 0, 0},
        {"own space, then one plain character", 300, 1, 193},
    };
    NamedRig rig;
    ASSERT_TRUE(rig.learned());
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const DaySection expected = daySection(row.inserts, row.plain);
        CompiledSection section;
        EXPECT_EQ(rig.compile(expected.text, section), row.code);
        if (row.code == 0) {
            EXPECT_EQ(section.format, expected.format);
            EXPECT_EQ(section.vars, std::vector<int>(static_cast<size_t>(row.inserts), Zarn_FORM_VAR_DAY));
        }
    }
}

// Reformatting checks what counting would have caught, for a caller that did not count.
TEST(FormVars, ReformattingRefusesWhatCountingWouldNot)
{
    struct Row { std::wstring text; int count; int code; };
    const Row rows[] = {{L"[[DAY]", 1, 189}, {L"DAY]", 1, 190}, {L"[DAY][DAY]", 1, 195}, {L"[DAY]", 2, 195}};
    NamedRig rig;
    ASSERT_TRUE(rig.learned());
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.text) + " / " + std::to_string(row.count));
        wchar_t* format = new wchar_t[row.text.size() + 1];
        std::wmemcpy(format, row.text.c_str(), row.text.size() + 1);
        std::vector<Zarn_FORM_VAR> vars(static_cast<size_t>(row.count), Zarn_FORM_VAR_UNKNOWN);
        EXPECT_FALSE(rig.data().reformatLogFileFormSection(&format, row.count, vars.data()));
        EXPECT_EQ(rig.data().getSelfDX_Code(), row.code);
        rig.data().forgetSelfDX_Code();
        delete[] format;
    }
}

TEST(FormVars, ArgumentArraysAreMadeOnceAndZeroed)
{
    NamedRig rig;
    Zarn_FORM_VAR* vars = nullptr;
    unsigned long long* values = nullptr;
    ASSERT_TRUE(rig.data().createLogFileFormSectionArgV_Enums(3, &vars));
    ASSERT_TRUE(rig.data().createLogFileFormSectionArgV_Values(3, &values));
    ASSERT_TRUE(vars != nullptr && values != nullptr);
    EXPECT_EQ(std::vector<int>(vars, vars + 3), std::vector<int>(3, 0));
    EXPECT_EQ(std::vector<unsigned long long>(values, values + 3), std::vector<unsigned long long>(3, 0));
    // The formatter takes a slot for every insert a section names, a stray % of its text included.
    wchar_t shown[16] = {};
    EXPECT_EQ(FormatMessageW(0x2400, L"%1!d! %7 %99!*.*s!|", 0, 0, shown, 16, reinterpret_cast<const u64*>(values)),
              10u);
    EXPECT_STREQ(shown, L"0 (null) |");
    // An array that exists already is refused, and let go.
    EXPECT_FALSE(rig.data().createLogFileFormSectionArgV_Enums(3, &vars));
    EXPECT_EQ(rig.data().getSelfDX_Code(), 148);
    EXPECT_EQ(vars, nullptr);
    rig.data().forgetSelfDX_Code();
    EXPECT_FALSE(rig.data().createLogFileFormSectionArgV_Values(3, &values));
    EXPECT_EQ(rig.data().getSelfDX_Code(), 151);
    EXPECT_EQ(values, nullptr);
    rig.data().forgetSelfDX_Code();
    // No variables, no arrays.
    EXPECT_TRUE(rig.data().createLogFileFormSectionArgV_Enums(0, &vars));
    EXPECT_EQ(vars, nullptr);
}

// A self resource module without the names leaves no table behind.
TEST(FormVars, NamesMissingFromTheSelfModuleFailWith200)
{
    const std::string path = ZMU_TEST_MODULE_DIR "/libzmu_test_strings.so";
    const HMODULE strings = LoadLibraryW(std::wstring(path.begin(), path.end()).c_str());
    ASSERT_NE(strings, nullptr);
    {
        FormRig rig("", FormName::Null, strings);
        rig.data().freeLogFileFormData();
        EXPECT_FALSE(rig.data().learnLogFileFormVarNames());
        EXPECT_EQ(rig.data().getSelfDX_Code(), 200);
        EXPECT_EQ(rig.file().m_varNames, nullptr);
    }
    FreeLibrary(strings);
}
