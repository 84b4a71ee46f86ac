#include "FormRig.h"

#include "localize/ZRLoadStringW.h"
#include "log/loadStringCopy.h"
#include "platform/Modules.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cwchar>
#include <string>
#include <thread>
#include <vector>

namespace {

using KeywordLoader = int (*)(unsigned int, wchar_t*, int);
using SetFormKeywords = void (*)(const wchar_t*, const wchar_t*, const wchar_t*, const wchar_t*, KeywordLoader);

// The test resource module with the keywords of one test; it unloads at the end of the test.
class KeywordModule
{
public:
    KeywordModule(const wchar_t* body, const wchar_t* head, const wchar_t* injector, const wchar_t* tail,
                  KeywordLoader fallback = &ZRLoadStringW)
    {
        const std::string path = ZMU_TEST_MODULE_DIR "/libzmu_test_form_keywords.so";
        m_module = LoadLibraryW(std::wstring(path.begin(), path.end()).c_str());
        const auto set = reinterpret_cast<SetFormKeywords>(GetProcAddress(m_module, "zmuTestSetFormKeywords"));
        if (set != nullptr)
            set(body, head, injector, tail, fallback);
    }
    ~KeywordModule()
    {
        if (m_module != nullptr)
            FreeLibrary(m_module);
    }
    HMODULE handle() const { return m_module; }

private:
    HMODULE m_module = nullptr;
};

const std::string kGoodBody = "^BODY\n<p>[SITUATION_DSCRP]</p>\n";
const std::string kGoodTail = "^TAIL\n</html>\n";

// The built-in strings without the built-in body.
int loadStringWithoutBuiltInBody(unsigned int id, wchar_t* buffer, int bufferMax)
{
    return id == 10021 ? 0 : ZRLoadStringW(id, buffer, bufferMax);
}

} // namespace

// Each failure of a form file is dismissed with its code, and the built-in form takes over.
TEST(LogForm, EveryFailedFormFileGivesWayToTheBuiltInForm)
{
    struct Row { const char* name; std::string form; int code; FormName kind = FormName::File; };
    const Row rows[] = {
        {"missing file", "", 45, FormName::Missing},
        {"empty form name", "", 127, FormName::Empty},
        {"no form name", "", 129, FormName::Null},
        {"no ^HEAD", kGoodBody + kGoodTail, 108},
        {"repeated ^HEAD", "^HEAD\nh\n^HEAD\nh\n" + kGoodBody + kGoodTail, 107},
        {"lower-case marker", "^head\nh\n" + kGoodBody + kGoodTail, 107},
        {"unknown marker", "^HEAD\nh\n^FOOT\n" + kGoodBody + kGoodTail, 107},
        {"marker with a trailing blank", "^HEAD \nh\n" + kGoodBody + kGoodTail, 107},
        {"^BODY repeated after ^TAIL", "^HEAD\nh\n" + kGoodBody + kGoodTail + "^BODY\n", 107},
        {"^TAIL before ^BODY", "^HEAD\nh\n" + kGoodTail + kGoodBody, 111},
        {"^INJECT_SYS_INFO after ^HEAD", "^HEAD\nh\n^INJECT_SYS_INFO\n0\n" + kGoodBody + kGoodTail, 110},
        // Every code of the section compiler fails the form; one from the head and one from the body.
        {"unknown variable in the head", "^HEAD\n[NO_SUCH_VARIABLE]\n" + kGoodBody + kGoodTail, 188},
        {"nested brackets in the body", "^HEAD\nh\n^BODY\n[[SITUATION_DSCRP]]\n" + kGoodTail, 204},
        {"body without SITUATION_DSCRP", "^HEAD\nh\n^BODY\n[SITUATION_ID]\n" + kGoodTail, 146},
        {"no ^TAIL", "^HEAD\nh\n" + kGoodBody, 197},
        {"empty tail", "^HEAD\nh\n" + kGoodBody + "^TAIL\n", 197},
        {"empty head", "^HEAD\n" + kGoodBody + kGoodTail, 164},
        {"empty body", "^HEAD\nh\n^BODY\n" + kGoodTail, 99},
        {"markers only", "^HEAD\n^BODY\n^TAIL\n", 101},
        {"no markers at all", "<html>[SITUATION_DSCRP]</html>\n", 101},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        FormRig rig(row.form, row.kind);
        TraceCapture trace;
        EXPECT_TRUE(rig.data().obtainLogFileFormData(kAllSections));
        EXPECT_EQ(rig.data().getSelfDX_Code(), 0);
        EXPECT_TRUE(trace.contains(dismissal(row.code)));
        expectBuiltInForm(rig);
    }
}

// The three sections of a good form, with text before them that no section takes.
TEST(LogForm, GoodFormCompilesItsThreeSections)
{
    FormRig rig("preamble [NOT_A_VARIABLE] never read\n"
                "^HEAD\n"
                "<html>[PRODUCT_NAME] #[ENTRY_ID]\n"
                "^BODY\n"
                "<tr bgcolor=\"#[ENTRY_COLOR]\"><td>[SITUATION_ID]</td><td>[SITUATION_DSCRP]</td></tr>\n"
                "^\n"
                "100%% sure\n"
                "^TAIL\n"
                "</table>[PROCESS_ID]</html>\n");
    TraceCapture trace;
    ASSERT_TRUE(rig.data().obtainLogFileFormData(kAllSections));
    const ZarnDataFile& file = rig.file();
    EXPECT_FALSE(file.m_formIsBuiltIn);
    EXPECT_NE(file.m_formStream, nullptr); // kept open for the life of the data set
    EXPECT_EQ(headOf(file).format, L"<html>%1!s! #%2!d!\n");
    EXPECT_EQ(headOf(file).vars, (std::vector<int>{21, 6}));
    EXPECT_TRUE(file.m_headHasEntryId);
    // A line holding "^" alone is text, and a percent sign goes on to the formatter as it stands.
    EXPECT_EQ(bodyOf(file).format, L"<tr bgcolor=\"#%1!X!\"><td>%2!d!</td><td>%3!s!</td></tr>\n^\n100%% sure\n");
    EXPECT_EQ(bodyOf(file).vars, (std::vector<int>{5, 25, 24}));
    EXPECT_EQ(tailOf(file).format, L"</table>%1!lu!</html>\n");
    EXPECT_EQ(tailOf(file).vars, (std::vector<int>{20}));
    EXPECT_FALSE(file.m_tailHasEntryId);
    EXPECT_TRUE(trace.lines().empty());
}

// Carriage returns stay, a byte above 0x7F is widened as a signed char (0xE9 becomes 0xFFE9, not
// U+00E9), and a line longer than one read arrives in pieces but stays whole in its section.
TEST(LogForm, SectionsKeepTheFormsCharacters)
{
    struct Row { const char* name; std::string form; std::wstring head; std::wstring body; };
    const Row rows[] = {
        {"CR LF", "^HEAD\r\nh\r\n^BODY\r\n[SITUATION_DSCRP]\r\n^TAIL\r\n</html>\n", L"h\r\n", L"%1!s!\r\n"},
        {"bytes above ASCII", "^HEAD\ncaf\xE9\n^BODY\n\x80[SITUATION_DSCRP]\xFF\n" + kGoodTail,
         std::wstring(L"caf") + wchar_t(0xFFE9) + L"\n",
         std::wstring(1, wchar_t(0xFF80)) + L"%1!s!" + wchar_t(0xFFFF) + L"\n"},
        {"a line of 3000", "^HEAD\nh\n^BODY\n" + std::string(3000, 'a') + "[SITUATION_DSCRP]\n" + kGoodTail, L"h\n",
         std::wstring(3000, L'a') + L"%1!s!\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        FormRig rig(row.form);
        ASSERT_TRUE(rig.data().obtainLogFileFormData(kAllSections));
        ASSERT_FALSE(rig.file().m_formIsBuiltIn);
        EXPECT_EQ(headOf(rig.file()).format, row.head);
        EXPECT_EQ(bodyOf(rig.file()).format, row.body);
        EXPECT_EQ(tailOf(rig.file()).format, L"</html>\n");
    }
}

// A form learned from a file keeps its stream; asking again fails with 131 and lets go of it all.
TEST(LogForm, SecondObtainingOfAFileFormFailsWith131)
{
    FormRig rig("^HEAD\nh\n" + kGoodBody + kGoodTail);
    ASSERT_TRUE(rig.data().obtainLogFileFormData(kAllSections));
    TraceCapture trace;
    EXPECT_FALSE(rig.data().obtainLogFileFormData(kAllSections));
    EXPECT_EQ(rig.data().getSelfDX_Code(), 131);
    EXPECT_EQ(rig.file().m_formStream, nullptr);
    EXPECT_EQ(rig.file().m_bodyFormat, nullptr);
    EXPECT_EQ(rig.file().m_varNames, nullptr);
    EXPECT_TRUE(trace.contains(L"ZarnData::processFileLogForm (7) caught exception #131."));
    EXPECT_TRUE(trace.contains(L"ZarnData::obtainLogFileFormData (7)  caught exception #131."));
    EXPECT_FALSE(trace.contains(L"dismissing"));
}

TEST(LogForm, ObtainingBeforeInitialisationFailsWith266)
{
    FormProbe data;
    TraceCapture trace;
    EXPECT_FALSE(data.obtainLogFileFormData(kAllSections));
    EXPECT_EQ(data.getSelfDX_Code(), 266);
    EXPECT_TRUE(trace.contains(L"ZarnData::obtainLogFileFormData (7)  caught exception #266."));
}

// The injector block is read only when a section in the mask uses one of its variables.
TEST(LogForm, InjectorsAreLearnedOnlyWhenASectionAsksForThem)
{
    const std::string preamble = "text\n^INJECT_SYS_INFO\n"; // the block starts after these 22 bytes
    struct Row { const char* name; std::string form; unsigned long mask; std::vector<long> starts; bool undefined; };
    const Row rows[] = {
        {"head uses it", preamble + "0\n^HEAD\n[SYS_INFO_ENV_OP]\n" + kGoodBody + kGoodTail, kAllSections, {22},
         false},
        {"tail uses it", preamble + "0\n^HEAD\nh\n" + kGoodBody + "^TAIL\n[SYS_INFO_VARS_ENV]\n", kAllSections,
         {22}, false},
        // The body alone, as a nonnative instantiator asks for it, needs no tail and no head.
        {"only the head uses it, body alone asked", preamble + "^HEAD\n[SYS_INFO_ENV_APP]\n" + kGoodBody,
         SECTION_BODY, {}, false},
        {"block without a user", preamble + "1\n^HEAD\nh\n" + kGoodBody + kGoodTail, kAllSections, {}, false},
        {"user without a block", "^HEAD\n[SYS_INFO_ENV_APP]\n" + kGoodBody + kGoodTail, kAllSections, {}, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        FormRig rig(row.form);
        TraceCapture trace;
        ASSERT_TRUE(rig.data().obtainLogFileFormData(row.mask));
        EXPECT_FALSE(rig.file().m_formIsBuiltIn);
        EXPECT_EQ(headOf(rig.file()).present, (row.mask & SECTION_HEAD) != 0);
        EXPECT_EQ(tailOf(rig.file()).present, (row.mask & SECTION_TAIL) != 0);
        EXPECT_EQ(rig.data().injectorStarts, row.starts);
        EXPECT_EQ(trace.contains(L"ZarnData::mustLearnLogFileFormInjectors (-1, 7) detected a request for an "
                                 L"undefined log file form injector."),
                  row.undefined);
    }
}

// The keywords are the self resource module's: renamed ones replace the built-in words, and
// keywords that the module lacks or that differ only by case fail the form file.
TEST(LogForm, MarkerKeywordsComeFromTheSelfResourceModule)
{
    struct Row
    {
        const char* name;
        const wchar_t* body;
        const wchar_t* head;
        const wchar_t* injector;
        const wchar_t* tail;
        std::string form;
        int code; // 0: the form file is accepted
    };
    const std::string renamedForm = "^KOPF\nh\n^RUMPF\n[SITUATION_DSCRP]\n^ENDE\nt\n";
    const Row rows[] = {
        {"renamed", L"RUMPF", L"KOPF", L"SPRITZE", L"ENDE", renamedForm, 0},
        {"renamed, old words used", L"RUMPF", L"KOPF", L"SPRITZE", L"ENDE", "^HEAD\nh\n" + kGoodBody + kGoodTail,
         107},
        {"two alike but for case", L"BODY", L"HEAD", L"INJECT_SYS_INFO", L"Body", renamedForm, 183},
        {"injector keyword missing", L"BODY", L"HEAD", nullptr, L"TAIL", renamedForm, 181},
        {"head keyword missing", L"BODY", nullptr, L"INJECT_SYS_INFO", L"TAIL", renamedForm, 180},
        {"body keyword missing", nullptr, L"HEAD", L"INJECT_SYS_INFO", L"TAIL", renamedForm, 179},
        {"tail keyword missing", L"BODY", L"HEAD", L"INJECT_SYS_INFO", nullptr, renamedForm, 182},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        KeywordModule module(row.body, row.head, row.injector, row.tail);
        ASSERT_NE(module.handle(), nullptr);
        FormRig rig(row.form, FormName::File, module.handle());
        TraceCapture trace;
        ASSERT_TRUE(rig.data().obtainLogFileFormData(kAllSections));
        if (row.code == 0) {
            EXPECT_FALSE(rig.file().m_formIsBuiltIn);
            EXPECT_EQ(bodyOf(rig.file()).format, L"%1!s!\n");
            EXPECT_FALSE(trace.contains(L"dismissing"));
        } else {
            EXPECT_TRUE(trace.contains(dismissal(row.code)));
            expectBuiltInForm(rig);
        }
    }
}

// Only a failure of the built-in form itself stops the form.
TEST(LogForm, FailedBuiltInFormFailsTheWhole)
{
    KeywordModule module(L"BODY", L"HEAD", L"INJECT_SYS_INFO", L"TAIL", &loadStringWithoutBuiltInBody);
    ASSERT_NE(module.handle(), nullptr);
    FormRig rig("", FormName::Missing, module.handle());
    TraceCapture trace;
    EXPECT_FALSE(rig.data().obtainLogFileFormData(kAllSections));
    EXPECT_EQ(rig.data().getSelfDX_Code(), 94);
    EXPECT_TRUE(trace.contains(dismissal(45)));
    EXPECT_TRUE(trace.contains(L"ZarnData::learnLogFileFormSectionsFinished (7, 0) [2] caught exception #94."));
    EXPECT_TRUE(trace.contains(L"ZarnData::processFileLogForm (7) caught exception #94."));
    EXPECT_FALSE(rig.file().m_formIsBuiltIn);
    EXPECT_EQ(rig.file().m_headFormat, nullptr);
    EXPECT_EQ(rig.file().m_varNames, nullptr);
}

TEST(LogForm, OnlyTheHtmlKindIsServed)
{
    FormRig rig("", FormName::Null);
    ASSERT_TRUE(rig.data().obtainLogFileFormData(kAllSections));
    TraceCapture trace;
    // The usable sections of the built-in form are still refused for a text log.
    EXPECT_FALSE(rig.data().areLogFileFormSectionsUsable(kAllSections, Zarn_LOG_TEXT));
    EXPECT_EQ(rig.data().getSelfDX_Code(), 206);
    EXPECT_TRUE(trace.contains(L"ZarnData::areLogFileFormSectionsUsable (7, 1) caught exception #206."));
    rig.data().forgetSelfDX_Code();
    EXPECT_TRUE(rig.data().areLogFileFormSectionsUsable(kAllSections, Zarn_LOG_UNSET));
}

TEST(LogForm, FreeingTheHeadKeepsBodyAndTail)
{
    FormRig rig("^HEAD\n[DAY]\n" + kGoodBody + kGoodTail);
    ASSERT_TRUE(rig.data().obtainLogFileFormData(kAllSections));
    rig.data().freeLogFileFormSectionHeadData();
    EXPECT_FALSE(headOf(rig.file()).present);
    EXPECT_EQ(rig.file().m_headVarCount, 0);
    EXPECT_EQ(rig.file().m_headValues, nullptr);
    EXPECT_EQ(bodyOf(rig.file()).format, L"<p>%1!s!</p>\n");
    EXPECT_EQ(tailOf(rig.file()).format, L"</html>\n");
}

TEST(LoadStringCopy, CopiesCutsAndRefuses)
{
    const HMODULE self = GetModuleHandleW(L"zmu.dll");
    ASSERT_NE(self, nullptr);
    wchar_t scratch[16];
    std::wmemset(scratch, L'x', 16);
    wchar_t* copy = new wchar_t[3]{L'o', L'l', L'\0'}; // an old copy is replaced

    EXPECT_EQ(loadStringCopy(self, 11003, scratch, 16, &copy), 15);
    EXPECT_STREQ(copy, L"INJECT_SYS_INFO");
    EXPECT_EQ(std::wstring(scratch, 16), std::wstring(16, L'\0'));
    // Cut to the scratch buffer, terminator included.
    EXPECT_EQ(loadStringCopy(self, 11003, scratch, 7, &copy), 6);
    EXPECT_STREQ(copy, L"INJECT");
    delete[] copy;

    copy = nullptr;
    EXPECT_EQ(loadStringCopy(nullptr, 11001, scratch, 16, &copy), -1);
    EXPECT_EQ(loadStringCopy(self, 11001, nullptr, 16, &copy), -1);
    EXPECT_EQ(loadStringCopy(self, 11001, scratch, 0, &copy), -1);
    EXPECT_EQ(loadStringCopy(self, 11001, scratch, 16, nullptr), -1);
    EXPECT_EQ(loadStringCopy(self, 11999, scratch, 16, &copy), -1) << "a string the module lacks";
    EXPECT_EQ(copy, nullptr);
}

// Every caller obtains the form under the data set's lock, so threads may relearn it side by side.
TEST(LogFormConcurrency, ThreadsObtainTheFormOneAtATime)
{
    FormRig rig("", FormName::Null);
    TraceCapture quiet;
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&rig, &failures]() {
            for (int round = 0; round < 20; ++round) {
                if (!rig.data().obtainLogFileFormData(kAllSections))
                    ++failures;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(failures.load(), 0);
    expectBuiltInForm(rig);
}
