// Form injectors: the injector block of a form is learned into three reports of the system, each
// in a temporary file of its own.
#include "FormRig.h"
#include "InjectorRig.h"

#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <bitset>
#include <string>
#include <vector>

namespace {

constexpr unsigned kApp = 1;
constexpr unsigned kOp = 2;
constexpr unsigned kVars = 4;

// A form whose head shows all three reports, around the injector block `block`.
std::string formWithBlock(const std::string& block)
{
    return "^INJECT_SYS_INFO\n" + block
           + "^HEAD\n<table>[SYS_INFO_ENV_APP]</table><table>[SYS_INFO_ENV_OP]</table>"
             "<table>[SYS_INFO_VARS_ENV]</table>\n"
             "^BODY\n<p>[SITUATION_DSCRP]</p>\n^TAIL\n</html>\n";
}

// A definition line followed by its pairs: captions as <th></th>, data as <td></td>.
std::string injector(const std::string& definition, int captionPairs, int datumPairs)
{
    std::string text = definition + "\n";
    for (int pair = 0; pair < captionPairs; ++pair)
        text += "<th>\n</th>\n";
    for (int pair = 0; pair < datumPairs; ++pair)
        text += "<td>\n</td>\n";
    return text;
}

int occurrences(const QString& text, const char* what)
{
    return text.count(QLatin1String(what));
}

} // namespace

// Every malformed block either costs the whole form, which the built-in form replaces, or is
// learned with the injectors it could make; the files of a dismissed block leave the disk at once.
TEST(Injectors, EveryBlockIsLearnedOrDismissedWithItsCode)
{
    enum Captions
    {
        AnyForm,
        LongForm,  // every pair shows its caption
        ShortForm, // runs of pairs that share a first word show it once
    };
    struct Row
    {
        const char* name;
        std::string block;
        int dismissed; // the code the form file is dismissed with; 0 if it is kept
        unsigned held; // its files are all the temporary directory holds
        const char* reportStart = nullptr; // how the first held report begins
        Captions captions = AnyForm;       // of the first held report
        TempPathScope::Kind temporary = TempPathScope::Existing;
    };
    const std::string op = injector("SYS_INFO_ENV_OP 1 1 0", 1, 1);
    const std::string vars = injector("SYS_INFO_VARS_ENV 1 1 0", 1, 1);
    const Row rows[] = {
        {"one injector", "1\n" + op, 0, kOp, "<th>"},
        {"letters before the count", "injectors: 1\n" + op, 0, kOp},
        {"a count of 0 reads no further", "0\nNOT_AN_INJECTOR\n", 0, 0},
        {"a count of 5 learns three and leaves the rest unread",
         "5\n" + injector("SYS_INFO_ENV_APP 1 1 0", 1, 1) + op + vars + "NOT_AN_INJECTOR 0 0 0\nx\n", 0,
         kApp | kOp | kVars},
        {"the same variable twice: the later report replaces the earlier",
         "2\n" + injector("SYS_INFO_VARS_ENV 1 0 0", 0, 0) + "<b>\n</b>\n" + injector("SYS_INFO_VARS_ENV 1 0 0", 0, 0)
             + "<i>\n</i>\n",
         0, kVars, "<i>"},
        {"a field 2 of n=2 counts 2", "1\n" + injector("SYS_INFO_ENV_OP n=2 0 0", 2, 0), 0, kOp},
        {"a definition of 1023 characters", "1\n" + paddedLine("SYS_INFO_VARS_ENV 0 0 ", 1023, '0') + "\n", 0, kVars},
        // The first 0 or 1 anywhere in field 4 chooses the form.
        {"a field 4 of x1", "1\n" + injector("SYS_INFO_ENV_APP 1 1 x1", 1, 1), 0, kApp, nullptr, ShortForm},
        {"a field 4 of 10", "1\n" + injector("SYS_INFO_ENV_APP 1 1 10", 1, 1), 0, kApp, nullptr, ShortForm},
        {"a field 4 of 0", "1\n" + injector("SYS_INFO_ENV_APP 1 1 0", 1, 1), 0, kApp, nullptr, LongForm},
        {"no count", "none\n" + op, 71, 0},
        {"an empty block meets the head marker", "", 71, 0},
        {"three fields", "1\nSYS_INFO_ENV_OP 0 0\n", 92, 0},
        {"five fields", "1\nSYS_INFO_ENV_OP 0 0 0 0\n", 92, 0},
        {"a trailing blank makes a fifth field", "1\nSYS_INFO_ENV_OP 0 0 0 \n", 92, 0},
        {"too few definitions meet the head marker", "2\n" + op, 92, 0},
        {"a definition of 1024 characters", "1\n" + paddedLine("SYS_INFO_VARS_ENV 0 0 ", 1024, '0') + "\n", 92, 0},
        {"two blanks make field 2 empty", "1\nSYS_INFO_ENV_OP  0 0\n", 69, 0},
        {"field 2 without a digit", "1\nSYS_INFO_ENV_OP n 0 0\n", 69, 0},
        {"field 3 without a digit", "1\nSYS_INFO_ENV_OP 0 - 0\n", 73, 0},
        {"field 4 without 0 or 1", "1\nSYS_INFO_ENV_OP 0 0 2\n", 89, 0},
        {"a variable that isn't an injector's", "1\nYEAR 0 0 0\n", 75, 0},
        {"an injector variable in lower case", "1\nsys_info_env_op 0 0 0\n", 75, 0},
        {"the form ends inside the pairs", "1\n" + injector("SYS_INFO_ENV_OP 99999 0 0", 0, 0), 79, 0},
        {"a later definition fails after a report was made", "2\n" + vars + "SYS_INFO_ENV_OP 0 0\n", 92, 0},
        {"the temporary directory is a plain file", "1\n" + op, 90, 0, nullptr, AnyForm, TempPathScope::PlainFile},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        FormRig rig(formWithBlock(row.block));
        const TempPathScope temporary(row.temporary);
        TraceCapture trace;
        ASSERT_TRUE(rig.data().obtainLogFileFormData(kAllSections));
        const ZarnDataFile& file = rig.file();
        EXPECT_EQ(file.m_formIsBuiltIn, row.dismissed != 0);
        if (row.dismissed != 0) {
            EXPECT_TRUE(trace.contains(dismissal(row.dismissed)));
            EXPECT_EQ(file.m_injectorFiles, nullptr);
            EXPECT_EQ(file.m_injectorStreams, nullptr);
        } else {
            EXPECT_FALSE(trace.contains(L"is dismissing"));
        }
        EXPECT_EQ(injectorsWithText(file), row.held);
        if (row.temporary == TempPathScope::Existing) {
            EXPECT_EQ(countInjectorFiles(), static_cast<int>(std::bitset<3>(row.held).count()));
        }
        if (row.held == 0)
            continue;
        int first = 0;
        while ((row.held & (1u << first)) == 0)
            ++first;
        const QString report = injectorText(file, first);
        EXPECT_FALSE(report.isEmpty());
        if (row.reportStart != nullptr) {
            EXPECT_TRUE(report.startsWith(QLatin1String(row.reportStart))) << report.left(80).toStdString();
        }
        if (row.captions == LongForm) {
            EXPECT_EQ(occurrences(report, "<th>"), occurrences(report, "<td>"));
        } else if (row.captions == ShortForm) {
            EXPECT_LT(occurrences(report, "<th>"), occurrences(report, "<td>"));
        }
    }
}
