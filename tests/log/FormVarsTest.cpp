#include "FormRig.h"

#include "localize/ZRLoadStringW.h"
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

} // namespace

TEST(FormVars, SectionsCompileToFormatsAndVariables)
{
    struct Row
    {
        const char* name;
        std::wstring text;
        int code;
        std::wstring format; // when the code is 0
        std::vector<int> vars;
    };
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
        {"unknown name", L"[NOT_A_VARIABLE]", 188, L"", {}},
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
        std::wstring name = names[var];
        EXPECT_EQ(rig.data().convertLogFileFormVarNameToIndex(&name[0]), var);
        CompiledSection section;
        ASSERT_EQ(rig.compile(L"<" + name + L">[" + name + L"]", section), 0);
        EXPECT_EQ(section.format, L"<" + name + L">%1!" + formats[var] + L"!");
        EXPECT_EQ(section.vars, std::vector<int>{var});
    }
}

TEST(FormVars, LookUpRefusesWhatTheTableLacks)
{
    NamedRig rig;
    ASSERT_TRUE(rig.learned());
    std::wstring before = L"AAA";     // sorts before the first name
    std::wstring after = L"ZZZ";      // after the last
    std::wstring between = L"DAZ";    // between two names
    std::wstring empty;
    for (std::wstring* name : {&before, &after, &between})
        EXPECT_EQ(rig.data().convertLogFileFormVarNameToEnum(&(*name)[0]), Zarn_FORM_VAR_UNKNOWN);
    empty.resize(1);
    EXPECT_EQ(rig.data().convertLogFileFormVarNameToIndex(&empty[0]), -1);
    EXPECT_EQ(rig.data().convertLogFileFormVarNameToIndex(nullptr), -1);

    // Without a table nothing is found.
    rig.data().freeLogFileFormData();
    std::wstring day = L"DAY";
    EXPECT_EQ(rig.data().convertLogFileFormVarNameToIndex(&day[0]), -1);
}

// The built-in body compiles to exactly this format, with these variables.
TEST(FormVars, BuiltInBodyCompiles)
{
    NamedRig rig;
    ASSERT_TRUE(rig.learned());
    wchar_t scratch[1024];
    std::wmemset(scratch, 0, 1024);
    ASSERT_GT(ZRLoadStringW(10021, scratch, 1024), 0);
    CompiledSection section;
    ASSERT_EQ(rig.compile(scratch, section), 0);
    EXPECT_EQ(section.format, builtInBodyFormat());
    EXPECT_EQ(section.vars, builtInBodyVars());
}

// Text beyond a scratch buffer's room is compiled in space of its own; only plain characters are
// held to that space's limit, so inserts longer than their names still fit.
TEST(FormVars, LongSectionsCompileBeyondTheScratchBuffer)
{
    NamedRig rig;
    ASSERT_TRUE(rig.learned());
    std::wstring text;
    std::wstring expected;
    std::vector<int> vars;
    for (int insert = 1; insert <= 300; ++insert) {
        text += L"[DAY]";
        expected += L"%" + std::to_wstring(insert) + L"!02d!";
        vars.push_back(Zarn_FORM_VAR_DAY);
    }
    CompiledSection section;
    ASSERT_EQ(rig.compile(text, section), 0);
    EXPECT_EQ(section.format, expected);
    EXPECT_EQ(section.vars, vars);
    EXPECT_GT(section.format.size(), text.size() + 1);

    // Past the limit, the next plain character is refused.
    EXPECT_EQ(rig.compile(text + L"x", section), 193);
}

// Within the scratch buffer the limit is 1023 characters of output.
TEST(FormVars, ScratchBufferOutputStopsAtItsLimit)
{
    NamedRig rig;
    ASSERT_TRUE(rig.learned());
    std::wstring text;
    for (int insert = 0; insert < 100; ++insert)
        text += L"[DAY]"; // 500 characters of text, 792 of output
    CompiledSection section;
    EXPECT_EQ(rig.compile(text + std::wstring(231, L'x'), section), 0);
    EXPECT_EQ(section.format.size(), 1023u);
    EXPECT_EQ(rig.compile(text + std::wstring(232, L'x'), section), 193);
}

// Reformatting checks what counting would have caught, for a caller that did not count.
TEST(FormVars, ReformattingRefusesWhatCountingWouldNot)
{
    struct Row
    {
        const wchar_t* text;
        int count;
        int code;
    };
    const Row rows[] = {
        {L"[[DAY]", 1, 189}, {L"DAY]", 1, 190}, {L"[DAY][DAY]", 1, 195}, {L"[DAY]", 2, 195},
    };
    NamedRig rig;
    ASSERT_TRUE(rig.learned());
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << std::string(row.text, row.text + std::wcslen(row.text)) << " / "
                                        << row.count);
        const size_t length = std::wcslen(row.text);
        wchar_t* format = new wchar_t[length + 1];
        std::wmemcpy(format, row.text, length + 1);
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
    ASSERT_NE(vars, nullptr);
    ASSERT_NE(values, nullptr);
    for (int index = 0; index < 3; ++index) {
        EXPECT_EQ(vars[index], 0);
        EXPECT_EQ(values[index], 0u);
    }
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
