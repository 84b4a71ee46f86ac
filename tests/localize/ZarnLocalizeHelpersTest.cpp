#include "localize/ZarnLocalizeHelpers.h"

#include "platform/Modules.h"

#include <gtest/gtest.h>

#include <climits>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

using H = ZarnLocalizeHelpers;
constexpr const char* kGrouping = "en_US.UTF-8"; // groups of 3, ",", "-"

// Makes `name` the user's default locale for the helpers' setlocale(LC_ALL, ""), and puts the
// environment and the process locale back afterwards.
class ScopedUserLocale
{
public:
    explicit ScopedUserLocale(const char* name) : m_locale(std::setlocale(LC_ALL, nullptr))
    {
        const char* previous = std::getenv("LC_ALL");
        m_env = previous ? previous : "";
        setenv("LC_ALL", name, 1);
    }
    ~ScopedUserLocale()
    {
        m_env.empty() ? unsetenv("LC_ALL") : setenv("LC_ALL", m_env.c_str(), 1);
        std::setlocale(LC_ALL, m_locale.c_str());
    }
    static bool exists(const char* name)
    {
        const std::string saved = std::setlocale(LC_ALL, nullptr);
        const bool found = std::setlocale(LC_ALL, name) != nullptr;
        std::setlocale(LC_ALL, saved.c_str());
        return found;
    }

private:
    std::string m_locale, m_env;
};

std::wstring widen(const std::string& text)
{
    return std::wstring(text.begin(), text.end()); // ASCII only
}

std::wstring modulePath(const char* name)
{
    return widen(std::string(ZMU_TEST_MODULE_DIR "/lib") + name + ".so");
}

} // namespace

// ---- Numbers ----

TEST(ZarnLocalizeHelpers, IntToPunctuatedTextFollowsTheLocale)
{
    if (!ScopedUserLocale::exists(kGrouping))
        GTEST_SKIP() << kGrouping << " is not installed (scripts/install-deps.sh generates it)";
    struct Row { const char* locale; long long value; unsigned long long capacity; const char* text; };
    const Row rows[] = {
        {kGrouping, 0, 64, "0"},
        {kGrouping, 999, 64, "999"},
        {kGrouping, 1000, 64, "1,000"},
        {kGrouping, 1234567, 64, "1,234,567"},
        {kGrouping, -1234, 64, "-1,234"},
        {kGrouping, LLONG_MIN, 64, "-9,223,372,036,854,775,808"},
        {kGrouping, 1000, 6, "1,000"},
        {kGrouping, 1000, 5, ""}, // the length must stay below the capacity
        {kGrouping, 10, 2, ""},
        {"C", 1234567, 64, "1234567"},  // no grouping
        {"C", -1234, 64, ""},           // the C locale's negative sign is empty
        {"C", 0, 64, "0"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.locale) + " " + std::to_string(row.value) + " / " + std::to_string(row.capacity));
        ScopedUserLocale locale(row.locale);
        char narrow[64];
        wchar_t wide[64];
        std::memset(narrow, 'x', sizeof narrow);
        std::wmemset(wide, L'x', 64);
        EXPECT_EQ(H::convertIntToPunctuatedStrA(row.value, narrow, row.capacity), std::strlen(row.text));
        EXPECT_EQ(H::convertIntToPunctuatedStrW(row.value, wide, row.capacity), std::strlen(row.text));
        const std::size_t zeros = row.capacity - std::strlen(row.text); // the rest of the buffer is zeroed
        EXPECT_EQ(std::string(narrow, row.capacity), std::string(row.text) + std::string(zeros, '\0'));
        EXPECT_EQ(std::wstring(wide, row.capacity), widen(row.text) + std::wstring(zeros, L'\0'));
    }
}

TEST(ZarnLocalizeHelpers, PunctuatedTextToIntFollowsTheLocale)
{
    if (!ScopedUserLocale::exists(kGrouping))
        GTEST_SKIP() << kGrouping << " is not installed (scripts/install-deps.sh generates it)";
    struct Row { const char* locale; const char* text; unsigned long long length; bool ok; long long value; };
    const Row rows[] = {
        {kGrouping, "  1,234xyz", 64, true, 1234},
        {kGrouping, "-1,234", 64, true, -1234},
        {kGrouping, "1,2,3,4", 64, true, 1234},  // group marks are skipped wherever they stand
        {kGrouping, "12345", 3, true, 123},
        {kGrouping, "5", 10, true, 5},
        {kGrouping, "5", 1, false, 0},           // a length below 2 is refused
        {kGrouping, "-", 64, false, 0},
        {kGrouping, "   ", 64, false, 0},
        {kGrouping, "+42", 64, false, 0},        // this locale's positive sign is empty
        {kGrouping, "9223372036854775807", 64, true, LLONG_MAX},
        {kGrouping, "9223372036854775808", 64, false, 0},
        {kGrouping, "-9223372036854775808", 64, true, LLONG_MIN},
        // A product that overflows by itself is not caught by the bound test: it wraps.
        {kGrouping, "9999999999999999999", 64, true, static_cast<long long>(9999999999999999999ULL)},
        {"C", "  42", 64, true, 42},
        {"C", "1,234", 64, true, 1},             // "," is no group mark here and ends the number
        {"C", "-12", 64, false, 0},              // nor is "-" a sign
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.locale) + " \"" + row.text + "\"");
        ScopedUserLocale locale(row.locale);
        std::string narrow = row.text;
        long long value = 77;
        EXPECT_EQ(H::convertPunctuatedStrToIntA(&narrow[0], row.length, value), row.ok);
        EXPECT_EQ(value, row.value);
    }
}

// The wide form reads the whole text, 1 to 63 characters, but passes that length on.
TEST(ZarnLocalizeHelpers, WidePunctuatedTextIsBoundedByItsOwnLength)
{
    struct Row { std::wstring text; unsigned long long length; bool ok; long long value; };
    const Row rows[] = {
        {L"12345", 2, true, 12345},
        {L"7", 10, false, 0},
        {L"12", 1, false, 0},
        {std::wstring(63, L'1').replace(0, 44, 44, L' '), 64, true, 1111111111111111111LL},
        {std::wstring(64, L' ').replace(60, 4, L"1234"), 64, false, 0},
    };
    ScopedUserLocale locale("C");
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text.size());
        std::wstring text = row.text;
        long long value = 77;
        EXPECT_EQ(H::convertPunctuatedStrToIntW(&text[0], row.length, value), row.ok);
        EXPECT_EQ(value, row.value);
    }
}

// ---- Time records ----

TEST(ZarnLocalizeHelpers, TimeRecordsMapWithTheirAsymmetries)
{
    const FILETIME unixEpoch = {0xD53E8000, 0x019DB1DE}; // 1970-01-01 00:00:00, a Thursday
    tm fields{};
    H::mapFILETIME_to_tm(unixEpoch, fields, 1);
    EXPECT_EQ(fields.tm_year, 70);
    EXPECT_EQ(fields.tm_mon, 0);
    EXPECT_EQ(fields.tm_mday, 1);
    EXPECT_EQ(fields.tm_wday, 4);
    EXPECT_EQ(fields.tm_isdst, 1);

    // The way back does not add 1 to the month, so January (0) is refused and gives zero; and
    // year 70 is read as 2070.
    FILETIME back{1, 1};
    H::map_tm_to_FILETIME(fields, back);
    EXPECT_EQ(back.dwLowDateTime | back.dwHighDateTime, 0U);
    fields.tm_mon = 1;
    H::map_tm_to_FILETIME(fields, back);
    const unsigned long long ticks2070 = 148002336000000000ULL; // 2070-01-01 00:00:00
    EXPECT_EQ((static_cast<unsigned long long>(back.dwHighDateTime) << 32) | back.dwLowDateTime, ticks2070);

    const FILETIME invalid = {0, 0x80000000};
    H::mapFILETIME_to_tm(invalid, fields, 1);
    EXPECT_EQ(fields.tm_year | fields.tm_mday | fields.tm_isdst, 0);

    struct Row { int tmYear; WORD year; };
    const Row years[] = {{124, 2024}, {99, 2099}, {0, 2000}, {1000, 2900}, {2000, 2000}};
    for (const Row& row : years) {
        SCOPED_TRACE(row.tmYear);
        tm in{};
        in.tm_year = row.tmYear;
        in.tm_mon = 5;
        SYSTEMTIME out{};
        H::map_tm_to_SYSTEMTIME(in, out);
        EXPECT_EQ(out.wYear, row.year);
        EXPECT_EQ(out.wMonth, 5);
    }
}

TEST(ZarnLocalizeHelpers, SecondsMapToLocalFieldsWithoutWeekday)
{
    const long long moment = 1700000000;
    const time_t asTimeT = static_cast<time_t>(moment);
    tm fields{};
    H::mapSMTIME_to_tm(moment, fields, -1);
    EXPECT_EQ(fields.tm_wday, 0);
    EXPECT_EQ(std::mktime(&fields), asTimeT); // mktime reads the fields and the isdst hint -1
}

// ---- Environment ----

TEST(ZarnLocalizeHelpers, ExpansionRepeatsUntilTheLengthStays)
{
    setenv("ZLH_OUTER", "x%ZLH_INNER%y", 1);
    setenv("ZLH_INNER", "inner", 1);
    setenv("ZLH_SAME", "%ZLH_NEXT%", 1); // same length as "%ZLH_SAME%": one pass and no more
    setenv("ZLH_NEXT", "final", 1);
    struct Row { const char* source; unsigned long limit; const char* result; };
    const Row rows[] = {
        {"a %ZLH_OUTER% b", 64, "a xinnery b"},
        {"%ZLH_SAME%", 64, "%ZLH_NEXT%"},
        {"keep %ZLH_UNDEFINED_NAME% as is", 64, "keep %ZLH_UNDEFINED_NAME% as is"},
        {"", 64, ""},
        {"0123456789", 10, nullptr},
        {"ab", 1, nullptr},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.source);
        std::string source = row.source, destination(64, 'd'), scratch(64, 's');
        unsigned long long length = 99;
        char* narrow = H::expandEnvironmentVarStrsA(&source[0], &destination[0], &scratch[0], length, row.limit);
        EXPECT_EQ(narrow == nullptr ? std::string("(null)") : std::string(narrow), row.result ? row.result : "(null)");
        EXPECT_EQ(length, row.result ? std::strlen(row.result) : 0);

        // Wide, expanded in place: the source is the destination.
        std::wstring wide = widen(row.source) + std::wstring(64 - std::strlen(row.source), L'\0');
        std::wstring wideScratch(64, L's');
        wchar_t* result = H::expandEnvironmentVarStrsW(&wide[0], &wide[0], &wideScratch[0], length, row.limit);
        EXPECT_EQ(result == nullptr ? L"(null)" : std::wstring(result), row.result ? widen(row.result) : L"(null)");
    }
}

// ---- Own resource module and its strings ----

TEST(ZarnLocalizeHelpers, SelfResourceModuleIsLearntAfresh)
{
    const HINSTANCE self = GetModuleHandleW(L"zmu.dll");
    ASSERT_NE(self, nullptr);
    H::setSelfResourceModule(nullptr);
    EXPECT_EQ(H::getSelfResourceModule(), nullptr);
    EXPECT_EQ(H::getSelfResourceModuleSafe(nullptr), self);
    EXPECT_EQ(H::getSelfResourceModule(), self);
    const HINSTANCE other = reinterpret_cast<HINSTANCE>(&modulePath);
    EXPECT_EQ(H::getSelfResourceModuleSafe(other), other);

    wchar_t text[64];
    EXPECT_TRUE(H::loadIntrinsicString(13002, text, 64));
    EXPECT_EQ(std::wstring(text), L"Internal Error %ls.%0*d");
    EXPECT_TRUE(H::loadIntrinsicString(13003, text, 5));
    EXPECT_EQ(std::wstring(text), L"Comp");
    std::wmemset(text, L'x', 64);
    EXPECT_FALSE(H::loadIntrinsicString(12999, text, 64));
    EXPECT_EQ(std::wstring(text, 64), std::wstring(64, L'\0'));
    text[0] = L'x';
    EXPECT_FALSE(H::loadIntrinsicString(13002, text, 0));
    EXPECT_EQ(text[0], L'\0');
}

// ---- Version data ----

namespace {

using ByFile = bool (*)(const wchar_t*, wchar_t*, unsigned long long, const wchar_t*, const wchar_t*, wchar_t);
using ByModule = bool (*)(HINSTANCE, wchar_t*, unsigned long long, const wchar_t*, const wchar_t*, wchar_t);
using ByBlock = bool (*)(void*&, wchar_t*, unsigned long long, const wchar_t*, const wchar_t*, wchar_t);

// `stamped`: the value as tests/modules/CMakeLists.txt stamps zmu_test_versioned, or null.
struct Wrapper { const char* name; ByFile byFile; ByModule byModule; ByBlock byBlock; const wchar_t* stamped; };

#define ZLH_WRAPPER(fn, stamped) {#fn, &H::fn, &H::fn, &H::fn, stamped}
const Wrapper kWrappers[] = {
    ZLH_WRAPPER(extractModuleVerValueSFI_CompNm, L"Quorvane Pr\u00fcfstand"),
    ZLH_WRAPPER(extractModuleVerValueSFI_FDscrp, L"a=b \\ \"c\""),
    ZLH_WRAPPER(extractModuleVerValueSFI_FVer, L"4.1.0.7"),
    ZLH_WRAPPER(extractModuleVerValueSFI_IntrnNm, nullptr),
    ZLH_WRAPPER(extractModuleVerValueSFI_LegalCN, nullptr),
    ZLH_WRAPPER(extractModuleVerValueSFI_LegalTM, nullptr),
    ZLH_WRAPPER(extractModuleVerValueSFI_OrigFNm, L"versioned.dll"),
    ZLH_WRAPPER(extractModuleVerValueSFI_ProdNm, L"Farrowlink Test"),
    ZLH_WRAPPER(extractModuleVerValueSFI_ProdVer, L"4.1"),
};
#undef ZLH_WRAPPER

constexpr wchar_t kSfi[] = L"StringFileInfo";

} // namespace

// Every named value, read by file (without loading the module), by block and by module.
TEST(ZarnLocalizeHelpers, StampedValuesReadByFileBlockAndModule)
{
    const std::wstring path = modulePath("zmu_test_versioned");
    ASSERT_EQ(GetModuleHandleW(path.c_str()), nullptr);
    void* block = nullptr;
    ASSERT_TRUE(H::extractModuleVerBlock(path.c_str(), block));
    wchar_t value[64];
    const auto expectStamped = [&value](const Wrapper& w, bool read) {
        EXPECT_EQ(read, w.stamped != nullptr);
        EXPECT_EQ(std::wstring(value), w.stamped ? w.stamped : L"");
        std::wmemset(value, L'x', 64);
    };
    std::wmemset(value, L'x', 64);
    for (const Wrapper& w : kWrappers) {
        SCOPED_TRACE(w.name);
        expectStamped(w, w.byFile(path.c_str(), value, 64, nullptr, kSfi, L'\\'));
        expectStamped(w, w.byBlock(block, value, 64, nullptr, kSfi, L'\\'));
    }
    EXPECT_EQ(GetModuleHandleW(path.c_str()), nullptr) << "the by-file read must not load the module";

    unsigned short language = 0, codePage = 0;
    EXPECT_TRUE(H::extractModuleVerTranslation(block, language, codePage, L"\\VarFileInfo\\Translation"));
    EXPECT_EQ(language, 0x0407);
    EXPECT_EQ(codePage, 0x04E4);
    wchar_t key[16];
    EXPECT_TRUE(H::extractModuleVerTranslation(path.c_str(), key, 16, L"\\VarFileInfo\\Translation"));
    EXPECT_EQ(std::wstring(key), L"040704E4");
    EXPECT_FALSE(H::extractModuleVerTranslation(block, key, 8, L"\\VarFileInfo\\Translation")); // 7 usable
    EXPECT_EQ(key[0], L'\0');

    struct Row { const char* name; const wchar_t* translation; unsigned int id; unsigned long long capacity;
                 const wchar_t* value; };
    const Row rows[] = {
        {"caller's key, other case", L"040704e4", 13005, 64, L"4.1.0.7"},
        {"caller's key is used unchecked", L"040904B0", 13005, 64, L""},
        {"cut to the capacity", nullptr, 13010, 5, L"Farr"},
        {"id below the names", nullptr, 13002, 64, L""},
        {"id above the names", nullptr, 13012, 64, L""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::wmemset(value, L'x', 64);
        EXPECT_EQ(H::extractModuleVerValueSFI_(block, value, row.capacity, row.id, row.translation, kSfi, L'\\'),
                  row.value[0] != L'\0');
        EXPECT_EQ(std::wstring(value), row.value);
    }
    H::deleteModuleVerBlock(block);
    EXPECT_EQ(block, nullptr);

    const HMODULE module = LoadLibraryW(path.c_str());
    ASSERT_NE(module, nullptr);
    for (const Wrapper& w : kWrappers) {
        SCOPED_TRACE(w.name);
        expectStamped(w, w.byModule(module, value, 64, nullptr, kSfi, L'\\'));
    }
    FreeLibrary(module);
}

// No version section, or an empty translation list: every read comes back empty.
TEST(ZarnLocalizeHelpers, MissingVersionDataGivesEmptyResults)
{
    for (const char* name : {"zmu_test_plain", "zmu_test_versioned_bare", "no_such_module"}) {
        SCOPED_TRACE(name);
        const std::wstring path = modulePath(name);
        void* block = nullptr;
        const bool hasBlock = H::extractModuleVerBlock(path.c_str(), block);
        EXPECT_EQ(hasBlock, std::string(name) == "zmu_test_versioned_bare");
        H::deleteModuleVerBlock(block);
        wchar_t value[16];
        std::wmemset(value, L'x', 16);
        EXPECT_FALSE(H::extractModuleVerValueSFI_FVer(path.c_str(), value, 16, nullptr, kSfi, L'\\'));
        EXPECT_EQ(std::wstring(value, 16), std::wstring(16, L'\0'));
        unsigned short language = 1, codePage = 1;
        EXPECT_FALSE(H::extractModuleVerTranslation(path.c_str(), language, codePage, L"\\VarFileInfo\\Translation"));
        EXPECT_EQ(language | codePage, 0);
    }
}

// "pv.dll" holds the product's versions and wins over the module's own once it can be found.
TEST(ZarnLocalizeHelpers, ProductVersionFileComesFirst)
{
    const HMODULE module = LoadLibraryW(modulePath("zmu_test_error_box").c_str());
    ASSERT_NE(module, nullptr);
    ASSERT_EQ(GetModuleHandleW(L"pv.dll"), nullptr);
    wchar_t version[32];
    EXPECT_TRUE(H::obtainVersionZGW(version, 32, Zarn_FORM_TAG_FILE_VERSION, module));
    EXPECT_EQ(std::wstring(version), L"4.1");
    EXPECT_FALSE(H::obtainVersionZGW(version, 32, Zarn_FORM_TAG_FILE_VERSION, nullptr));
    EXPECT_FALSE(H::obtainVersionZGW(version, 32, Zarn_FORM_TAG_COMPANY_NAME_LONG, module));
    EXPECT_EQ(version[0], L'\0');

    const HMODULE pv = LoadLibraryW(modulePath("pv").c_str());
    ASSERT_NE(pv, nullptr);
    EXPECT_TRUE(H::obtainVersionZGW(version, 32, Zarn_FORM_TAG_FILE_VERSION, module));
    EXPECT_EQ(std::wstring(version), L"9.8.7.6");
    EXPECT_TRUE(H::obtainVersionZGW(version, 32, Zarn_FORM_TAG_PRODUCT_VERSION, nullptr));
    EXPECT_EQ(std::wstring(version), L"9.8");
    FreeLibrary(pv);
    FreeLibrary(module);
}

// ---- Error box ----

namespace {

// What the display function was shown; a null caption is recorded as "(null)".
struct Shown { int calls = 0; std::wstring text, caption; UINT type = 0; int answer = IDOK; };
Shown g_shown;

int recordDisplay(HWND, const wchar_t* text, const wchar_t* caption, UINT type)
{
    ++g_shown.calls;
    g_shown.text = text;
    g_shown.caption = caption ? caption : L"(null)";
    g_shown.type = type;
    return g_shown.answer;
}

} // namespace

TEST(ZarnLocalizeHelpers, ShowErrorComposesItsText)
{
    const HMODULE box = LoadLibraryW(modulePath("zmu_test_error_box").c_str());
    const HMODULE unversioned = LoadLibraryW(modulePath("zmu_test_strings").c_str());
    ASSERT_TRUE(box != nullptr && unversioned != nullptr);
    // A null text: nothing is shown and 0 comes back.
    struct Row { const char* name; int error; HMODULE module; const wchar_t *detail, *caption; int answer;
                 const wchar_t *text, *shownCaption; };
    const Row rows[] = {
        {"version 4.1, error 2042", 2042, box, nullptr, nullptr, IDOK,
         L"Internal Error 4.1.042\n\nThe journal could not be opened.", L"Farrowlink Error"},
        {"detail and own caption", 5, box, L" on drive C", L"100%% sure", IDYES,
         L"Internal Error 4.1.005 on drive C\n\nFive went wrong.", L"100% sure"},
        {"no version, no product name", 1, unversioned, L"", nullptr, IDOK, L"Internal Error 0.001\n\none", L"  Error"},
        {"error 0", 0, box, nullptr, nullptr, IDOK, nullptr, nullptr},
        {"no module", 2042, nullptr, nullptr, nullptr, IDOK, nullptr, nullptr},
        {"empty text", 2043, box, nullptr, nullptr, IDOK, nullptr, nullptr},
        {"missing text", 2044, box, nullptr, nullptr, IDOK, nullptr, nullptr},
        {"display refuses", 2042, box, nullptr, nullptr, 0,
         L"Internal Error 4.1.042\n\nThe journal could not be opened.", L"Farrowlink Error"},
    };
    const H::ErrorDisplayFunction previous = H::setErrorDisplayFunction(&recordDisplay);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        g_shown = Shown();
        g_shown.answer = row.answer;
        const int answer = H::showError(row.error, row.module, row.detail, nullptr, row.caption, MB_ICONERROR);
        EXPECT_EQ(answer, row.text ? row.answer : 0);
        EXPECT_EQ(g_shown.calls, row.text ? 1 : 0);
        if (row.text) {
            EXPECT_EQ(g_shown.text, row.text);
            EXPECT_EQ(g_shown.caption, row.shownCaption);
            EXPECT_EQ(g_shown.type, UINT(MB_ICONERROR));
        }
    }
    H::setErrorDisplayFunction(previous);
    FreeLibrary(unversioned);
    FreeLibrary(box);
}
