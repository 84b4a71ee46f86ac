#include "platform/Modules.h"

#include "PlatformRig.h"

#include <dlfcn.h>

#include <cstdlib>
#include <cwchar>
#include <iterator>
#include <string>

namespace {

using platform_test::outcomeOf;
using platform_test::widen;

const std::string kModuleDir = ZMU_TEST_MODULE_DIR;

std::string canonical(const std::string& path)
{
    char* resolved = ::realpath(path.c_str(), nullptr);
    const std::string result = resolved != nullptr ? resolved : path;
    std::free(resolved);
    return result;
}

std::string fileNameOf(HMODULE module)
{
    wchar_t buffer[4096];
    const DWORD size = GetModuleFileNameW(module, buffer, 4096);
    return std::string(buffer, buffer + size);
}

// The process image is the loader's main program; "zmu.dll" is this library. The loader's global
// scope has libzmu's string table, but only libzmu answers with it, never the process image.
TEST(Modules, ProcessImageAndZmuDllAreTheLoadersOwn)
{
    void* image = ::dlopen(nullptr, RTLD_LAZY);
    Dl_info info{};
    ASSERT_NE(::dladdr(reinterpret_cast<void*>(&GetLastError), &info), 0);
    void* zmu = ::dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD);
    ASSERT_TRUE(image != nullptr && zmu != nullptr);
    ::dlclose(image);
    ::dlclose(zmu);
    EXPECT_EQ(static_cast<void*>(GetModuleHandleW(nullptr)), image);
    EXPECT_EQ(static_cast<void*>(GetModuleHandleA(nullptr)), image);
    for (HMODULE module : {GetModuleHandleW(L"zmu.dll"), GetModuleHandleW(L"ZMU.DLL"), GetModuleHandleA("zmu.dll")})
        EXPECT_EQ(static_cast<void*>(module), zmu);
    EXPECT_EQ(fileNameOf(nullptr), canonical("/proc/self/exe"));
    EXPECT_EQ(fileNameOf(static_cast<HMODULE>(image)), canonical("/proc/self/exe"));
    EXPECT_EQ(canonical(fileNameOf(static_cast<HMODULE>(zmu))), canonical(info.dli_fname));

    void* const stringTable = ::dlsym(RTLD_DEFAULT, "ZRLoadStringW");
    ASSERT_NE(stringTable, nullptr);
    EXPECT_EQ(reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(zmu), "ZRLoadStringW")), stringTable);
    EXPECT_EQ(outcomeOf([&] { return GetProcAddress(static_cast<HMODULE>(image), "ZRLoadStringW"); }),
              ERROR_PROC_NOT_FOUND);
}

// "x.dll" and "x.exe" load libx.so; finding by any name works only while loaded and takes no count.
TEST(Modules, LoadsByWindowsNameAndFindsOnlyWhileLoaded)
{
    const std::string path = kModuleDir + "/libzmu_test_strings.so";
    EXPECT_EQ(outcomeOf([] { return GetModuleHandleW(L"zmu_test_strings.dll"); }), ERROR_MOD_NOT_FOUND);

    const HMODULE loaded = LoadLibraryW(widen(kModuleDir + "/zmu_test_strings.dll").c_str());
    ASSERT_NE(loaded, nullptr);
    void* system = ::dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    ::dlclose(system);
    EXPECT_EQ(static_cast<void*>(loaded), system);
    EXPECT_EQ(LoadLibraryExW(widen(kModuleDir + "/zmu_test_strings.exe").c_str(), nullptr, 0), loaded);
    EXPECT_EQ(LoadLibraryA(path.c_str()), loaded);
    for (HMODULE found : {GetModuleHandleW(L"zmu_test_strings.dll"), GetModuleHandleW(L"zmu_test_strings"),
                          GetModuleHandleA("libzmu_test_strings.so"), GetModuleHandleW(widen(path).c_str())})
        EXPECT_EQ(found, loaded);
    EXPECT_EQ(canonical(fileNameOf(loaded)), canonical(path));

    EXPECT_TRUE(FreeLibrary(loaded));
    EXPECT_TRUE(FreeLibrary(loaded));
    EXPECT_EQ(GetModuleHandleW(L"zmu_test_strings.dll"), loaded);
    EXPECT_TRUE(FreeLibrary(loaded));
    EXPECT_EQ(::dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD), nullptr);
    EXPECT_EQ(GetModuleHandleW(L"zmu_test_strings.dll"), nullptr);
}

// Cut to the buffer with 122, also when only the terminator does not fit.
TEST(Modules, FileNameIsCutToTheBufferWith122)
{
    const std::string full = fileNameOf(nullptr);
    wchar_t buffer[6] = {L'#', L'#', L'#', L'#', L'#', L'#'};
    SetLastError(0);
    EXPECT_EQ(GetModuleFileNameW(nullptr, buffer, 5), 5u);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(std::wstring(buffer), widen(full.substr(0, 4)));
    EXPECT_EQ(buffer[5], L'#');
    std::wstring exact(full.size(), L'#');
    SetLastError(0);
    EXPECT_EQ(GetModuleFileNameW(nullptr, &exact[0], DWORD(full.size())), full.size());
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
}

// The test modules: one serves strings through its exported ZRLoadStringW, one has no strings.
class LoadedModules : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(m_strings != nullptr && m_plain != nullptr); }
    void TearDown() override
    {
        FreeLibrary(m_strings);
        FreeLibrary(m_plain);
    }

    const HMODULE m_strings = LoadLibraryW(widen(kModuleDir + "/zmu_test_strings.dll").c_str());
    const HMODULE m_plain = LoadLibraryW(widen(kModuleDir + "/zmu_test_plain.dll").c_str());
};

// The loader would answer from the module's dependencies (the C library); GetProcAddress does not.
TEST_F(LoadedModules, ExportsComeOnlyFromTheModuleItself)
{
    const auto marker = reinterpret_cast<int (*)()>(GetProcAddress(m_strings, "zmuTestModuleMarker"));
    ASSERT_NE(marker, nullptr);
    EXPECT_EQ(marker(), 42);
    EXPECT_NE(GetProcAddress(m_strings, "ZRLoadStringW"), nullptr);
    ASSERT_NE(::dlsym(static_cast<void*>(m_strings), "wcslen"), nullptr);
    EXPECT_EQ(outcomeOf([this] { return GetProcAddress(m_strings, "wcslen"); }), ERROR_PROC_NOT_FOUND);
}

TEST_F(LoadedModules, FailuresSetTheirCodes)
{
    wchar_t buffer[4];
    platform_test::expectOutcomes({
        {"no such module", [] { return LoadLibraryW(L"zmu_no_such_module.dll"); }, ERROR_MOD_NOT_FOUND},
        {"null name", [] { return LoadLibraryW(nullptr); }, ERROR_INVALID_PARAMETER},
        {"empty name", [] { return LoadLibraryW(L""); }, ERROR_INVALID_PARAMETER},
        {"a file handle", [] { return LoadLibraryExW(L"zmu.dll", reinterpret_cast<HANDLE>(1), 0); },
         ERROR_INVALID_PARAMETER},
        {"not loaded", [] { return GetModuleHandleW(L"zmu_no_such_module.dll"); }, ERROR_MOD_NOT_FOUND},
        {"entry of null", [] { return GetProcAddress(nullptr, "GetLastError"); }, ERROR_INVALID_HANDLE},
        {"no such entry", [this] { return GetProcAddress(m_strings, "zmuNoSuchEntry"); }, ERROR_PROC_NOT_FOUND},
        {"null entry name", [this] { return GetProcAddress(m_strings, nullptr); }, ERROR_PROC_NOT_FOUND},
        {"free null", [] { return FreeLibrary(nullptr); }, ERROR_INVALID_HANDLE},
        {"file name, no room", [&] { return GetModuleFileNameW(nullptr, buffer, 0); }, ERROR_INSUFFICIENT_BUFFER},
        {"file name, no buffer", [] { return GetModuleFileNameW(nullptr, nullptr, 5); }, ERROR_INVALID_PARAMETER},
        {"string, no room", [&] { return LoadStringW(m_plain, 1, buffer, 0); }, ERROR_INVALID_PARAMETER},
        {"string, no buffer", [&] { return LoadStringW(m_strings, 1, nullptr, 4); }, ERROR_INVALID_PARAMETER},
    });
}

// A module without a string loader has no strings: 1814, as for an id its loader lacks.
TEST_F(LoadedModules, LoadStringAnswersThroughTheModulesLoader)
{
    const struct { HMODULE module; UINT id; int bufferMax; int count; const wchar_t* text; DWORD error; } rows[] = {
        {m_strings, 1, 64, 3, L"one", 0},      {m_strings, 1, 4, 3, L"one", 0},
        {m_strings, 2, 64, 0, L"", 0},         {m_strings, 7, 6, 5, L"seven", 0}, // cut to bufferMax - 1
        {m_strings, 7, 1, 0, L"", 0},          {m_strings, 3, 64, 0, L"", 1814},
        {m_plain, 1, 16, 0, L"", 1814},        {GetModuleHandleW(nullptr), 1, 16, 0, L"", 1814},
        {nullptr, 1, 16, 0, L"", 1814},
    };
    for (size_t i = 0; i < std::size(rows); ++i) {
        SCOPED_TRACE(i);
        wchar_t buffer[64];
        std::wmemset(buffer, L'#', 63);
        buffer[63] = 0;
        SetLastError(12345);
        EXPECT_EQ(LoadStringW(rows[i].module, rows[i].id, buffer, rows[i].bufferMax), rows[i].count);
        EXPECT_EQ(GetLastError(), rows[i].error);
        EXPECT_EQ(std::wstring(buffer), rows[i].text);
    }
    char narrow[8];
    EXPECT_EQ(LoadStringA(m_strings, 7, narrow, 7), 6);
    EXPECT_STREQ(narrow, "seven:");
    EXPECT_EQ(outcomeOf([&] { return LoadStringA(m_strings, 3, narrow, 8); }), 1814u);
    EXPECT_STREQ(narrow, "");
}

} // namespace
