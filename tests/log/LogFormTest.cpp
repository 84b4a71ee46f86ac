#include "FormRig.h"

#include "localize/ZRLoadStringW.h"
#include "log/loadStringCopy.h"
#include "platform/Modules.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <QTextStream>

#include <atomic>
#include <cwchar>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr unsigned long kAllSections = SECTION_HEAD | SECTION_BODY | SECTION_TAIL;

std::wstring dismissal(int code)
{
    return L"ZarnData::processFileLogForm (7) is dismissing exception #" + std::to_wstring(code) + L".";
}

// The three sections as the built-in HTML form compiles them, and nothing from a form file.
void expectBuiltInForm(FormRig& rig)
{
    const ZarnDataFile& file = rig.file();
    EXPECT_TRUE(file.m_formIsBuiltIn);
    EXPECT_EQ(file.m_formStream, nullptr);
    EXPECT_EQ(headOf(file).format, builtInHeadFormat());
    EXPECT_EQ(headOf(file).vars, builtInHeadVars());
    EXPECT_EQ(bodyOf(file).format, builtInBodyFormat());
    EXPECT_EQ(bodyOf(file).vars, builtInBodyVars());
    EXPECT_EQ(tailOf(file).format, L"</body><html>\n");
    EXPECT_TRUE(tailOf(file).vars.empty());
}

HMODULE loadFormKeywordModule()
{
    const std::string path = ZMU_TEST_MODULE_DIR "/libzmu_test_form_keywords.so";
    return LoadLibraryW(std::wstring(path.begin(), path.end()).c_str());
}

using KeywordLoader = int (*)(unsigned int, wchar_t*, int);
using SetFormKeywords = void (*)(const wchar_t*, const wchar_t*, const wchar_t*, const wchar_t*, KeywordLoader);

// The test resource module with the keywords of one test; it unloads at the end of the test.
class KeywordModule
{
public:
    KeywordModule(const wchar_t* body, const wchar_t* head, const wchar_t* injector, const wchar_t* tail,
                  KeywordLoader fallback = &ZRLoadStringW)
        : m_module(loadFormKeywordModule())
    {
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
    HMODULE m_module;
};

const std::string kGoodBody = "^BODY\n<p>[SITUATION_DSCRP]</p>\n";
const std::string kGoodTail = "^TAIL\n</html>\n";

} // namespace

// Each failure of a form file is dismissed with its code, and the built-in form takes over.
TEST(LogForm, EveryFailedFormFileGivesWayToTheBuiltInForm)
{
    struct Row
    {
        const char* name;
        std::string form;
        FormName kind;
        int code;
    };
    const Row rows[] = {
        {"missing file", "", FormName::Missing, 45},
        {"empty form name", "", FormName::Empty, 127},
        {"no form name", "", FormName::Null, 129},
        {"no ^HEAD", kGoodBody + kGoodTail, FormName::File, 108},
        {"repeated ^HEAD", "^HEAD\nh\n^HEAD\nh\n" + kGoodBody + kGoodTail, FormName::File, 107},
        {"lower-case marker", "^head\nh\n" + kGoodBody + kGoodTail, FormName::File, 107},
        {"unknown marker", "^HEAD\nh\n^FOOT\n" + kGoodBody + kGoodTail, FormName::File, 107},
        {"marker with a trailing blank", "^HEAD \nh\n" + kGoodBody + kGoodTail, FormName::File, 107},
        {"^BODY repeated after ^TAIL", "^HEAD\nh\n" + kGoodBody + kGoodTail + "^BODY\n", FormName::File, 107},
        {"^TAIL before ^BODY", "^HEAD\nh\n" + kGoodTail + kGoodBody, FormName::File, 111},
        {"^INJECT_SYS_INFO after ^HEAD", "^HEAD\nh\n^INJECT_SYS_INFO\n0\n" + kGoodBody + kGoodTail, FormName::File,
         110},
        {"unknown variable", "^HEAD\n[NO_SUCH_VARIABLE]\n" + kGoodBody + kGoodTail, FormName::File, 188},
        {"variable in lower case", "^HEAD\nh\n^BODY\n[situation_dscrp]\n" + kGoodTail, FormName::File, 188},
        {"empty brackets", "^HEAD\n[]\n" + kGoodBody + kGoodTail, FormName::File, 187},
        {"nested brackets", "^HEAD\nh\n^BODY\n[[SITUATION_DSCRP]]\n" + kGoodTail, FormName::File, 204},
        {"close bracket alone", "^HEAD\nh]\n" + kGoodBody + kGoodTail, FormName::File, 203},
        {"body without SITUATION_DSCRP", "^HEAD\nh\n^BODY\n[SITUATION_ID]\n" + kGoodTail, FormName::File, 146},
        {"no ^TAIL", "^HEAD\nh\n" + kGoodBody, FormName::File, 197},
        {"empty tail", "^HEAD\nh\n" + kGoodBody + "^TAIL\n", FormName::File, 197},
        {"empty head", "^HEAD\n" + kGoodBody + kGoodTail, FormName::File, 164},
        {"empty body", "^HEAD\nh\n^BODY\n" + kGoodTail, FormName::File, 99},
        {"markers only", "^HEAD\n^BODY\n^TAIL\n", FormName::File, 101},
        {"no markers at all", "<html>[SITUATION_DSCRP]</html>\n", FormName::File, 101},
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

// The three sections of a good form, with text outside them and an injector block left out.
TEST(LogForm, GoodFormCompilesItsThreeSections)
{
    FormRig rig("preamble [NOT_A_VARIABLE] never read\n"
                "^INJECT_SYS_INFO\n"
                "1\n"
                "SYS_INFO_ENV_OP 1 1 0\n"
                "<tr><td>\n"
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
    EXPECT_NE(file.m_headValues, nullptr);
    EXPECT_NE(file.m_bodyValues, nullptr);
    // No section uses an injector, so the block is not read at all.
    EXPECT_TRUE(rig.data().injectorStarts.empty());
    EXPECT_TRUE(trace.lines().empty());
}

TEST(LogForm, LinesEndingInCarriageReturnsKeepThemInTheSections)
{
    FormRig rig("^HEAD\r\nh\r\n^BODY\r\n[SITUATION_DSCRP]\r\n^TAIL\r\nt\r\n");
    ASSERT_TRUE(rig.data().obtainLogFileFormData(kAllSections));
    EXPECT_FALSE(rig.file().m_formIsBuiltIn);
    EXPECT_EQ(headOf(rig.file()).format, L"h\r\n");
    EXPECT_EQ(bodyOf(rig.file()).format, L"%1!s!\r\n");
    EXPECT_EQ(tailOf(rig.file()).format, L"t\r\n");
}

// A byte above 0x7F is widened as a signed char: 0xE9 becomes 0xFFE9, not U+00E9.
TEST(LogForm, BytesAboveAsciiAreSignExtended)
{
    FormRig rig("^HEAD\ncaf\xE9\n^BODY\n\x80[SITUATION_DSCRP]\xFF\n" + kGoodTail);
    ASSERT_TRUE(rig.data().obtainLogFileFormData(kAllSections));
    ASSERT_FALSE(rig.file().m_formIsBuiltIn);
    EXPECT_EQ(headOf(rig.file()).format, std::wstring(L"caf") + wchar_t(0xFFE9) + L"\n");
    EXPECT_EQ(bodyOf(rig.file()).format, std::wstring(1, wchar_t(0xFF80)) + L"%1!s!" + wchar_t(0xFFFF) + L"\n");
}

// A line longer than one read arrives in pieces; the section still runs to its end.
TEST(LogForm, LongLinesStayWholeInTheirSection)
{
    const std::string longText(3000, 'a');
    FormRig rig("^HEAD\nh\n^BODY\n" + longText + "[SITUATION_DSCRP]\n" + kGoodTail);
    ASSERT_TRUE(rig.data().obtainLogFileFormData(kAllSections));
    ASSERT_FALSE(rig.file().m_formIsBuiltIn);
    EXPECT_EQ(bodyOf(rig.file()).format, std::wstring(3000, L'a') + L"%1!s!\n");
    EXPECT_EQ(tailOf(rig.file()).format, L"</html>\n");
}

// The body alone, as a nonnative instantiator asks for it, needs no tail and no head.
TEST(LogForm, BodyOnlyMaskAcceptsAFormWithoutTail)
{
    FormRig rig("^HEAD\nh\n" + kGoodBody);
    TraceCapture trace;
    ASSERT_TRUE(rig.data().obtainLogFileFormData(SECTION_BODY));
    EXPECT_FALSE(rig.file().m_formIsBuiltIn);
    EXPECT_FALSE(headOf(rig.file()).present);
    EXPECT_FALSE(tailOf(rig.file()).present);
    EXPECT_EQ(bodyOf(rig.file()).format, L"<p>%1!s!</p>\n");
    EXPECT_FALSE(trace.contains(L"dismissing"));
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
    struct Row
    {
        const char* name;
        std::string form;
        unsigned long mask;
        std::vector<long> starts;
        bool undefinedTraced;
    };
    const Row rows[] = {
        {"head uses it", preamble + "0\n^HEAD\n[SYS_INFO_ENV_OP]\n" + kGoodBody + kGoodTail, kAllSections, {22},
         false},
        {"tail uses it", preamble + "0\n^HEAD\nh\n" + kGoodBody + "^TAIL\n[SYS_INFO_VARS_ENV]\n", kAllSections,
         {22}, false},
        {"only the head uses it, head not asked", preamble + "^HEAD\n[SYS_INFO_ENV_APP]\n" + kGoodBody,
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
        EXPECT_EQ(rig.data().injectorStarts, row.starts);
        EXPECT_EQ(trace.contains(L"ZarnData::mustLearnLogFileFormInjectors (-1, 7) detected a request for an "
                                 L"undefined log file form injector."),
                  row.undefinedTraced);
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

namespace {
// The built-in strings without the built-in body.
int loadStringWithoutBuiltInBody(unsigned int id, wchar_t* buffer, int bufferMax)
{
    return id == 10021 ? 0 : ZRLoadStringW(id, buffer, bufferMax);
}
} // namespace

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
    FormRig rig("", FormName::Null);
    ASSERT_TRUE(rig.data().obtainLogFileFormData(kAllSections));
    rig.data().freeLogFileFormSectionHeadData();
    EXPECT_FALSE(headOf(rig.file()).present);
    EXPECT_EQ(rig.file().m_headVarCount, 0);
    EXPECT_EQ(rig.file().m_headValues, nullptr);
    EXPECT_EQ(bodyOf(rig.file()).format, builtInBodyFormat());
    EXPECT_EQ(tailOf(rig.file()).format, L"</body><html>\n");

    rig.data().freeLogFileFormData();
    EXPECT_EQ(rig.file().m_bodyFormat, nullptr);
    EXPECT_EQ(rig.file().m_varNames, nullptr);
    EXPECT_EQ(rig.file().m_varNamesQty, 31);
    EXPECT_FALSE(rig.file().m_formIsBuiltIn);
}

TEST(LoadStringCopy, CopiesTheStringAndClearsTheScratch)
{
    const HMODULE self = GetModuleHandleW(L"zmu.dll");
    ASSERT_NE(self, nullptr);
    wchar_t scratch[16];
    std::wmemset(scratch, L'x', 16);
    wchar_t* copy = new wchar_t[3]{L'o', L'l', L'\0'};

    EXPECT_EQ(loadStringCopy(self, 11003, scratch, 16, &copy), 15);
    ASSERT_NE(copy, nullptr);
    EXPECT_STREQ(copy, L"INJECT_SYS_INFO");
    EXPECT_EQ(std::wstring(scratch, 16), std::wstring(16, L'\0'));

    // Cut to the scratch buffer, terminator included.
    EXPECT_EQ(loadStringCopy(self, 11003, scratch, 7, &copy), 6);
    EXPECT_STREQ(copy, L"INJECT");
    delete[] copy;
}

TEST(LoadStringCopy, RefusesBadArgumentsAndMissingStrings)
{
    const HMODULE self = GetModuleHandleW(L"zmu.dll");
    ASSERT_NE(self, nullptr);
    wchar_t scratch[16] = {};
    wchar_t* copy = nullptr;
    struct Row
    {
        const char* name;
        HMODULE module;
        unsigned int id;
        wchar_t* scratch;
        int length;
        wchar_t** copy;
    };
    const Row rows[] = {
        {"null module", nullptr, 11001, scratch, 16, &copy},
        {"null scratch", self, 11001, nullptr, 16, &copy},
        {"scratch length 0", self, 11001, scratch, 0, &copy},
        {"null copy slot", self, 11001, scratch, 16, nullptr},
        {"string the module lacks", self, 11999, scratch, 16, &copy},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(loadStringCopy(row.module, row.id, row.scratch, row.length, row.copy), -1);
        EXPECT_EQ(copy, nullptr);
    }
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
