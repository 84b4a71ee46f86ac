#include "platform/LastError.h"
#include "platform/Modules.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <functional>
#include <string>

namespace {

const std::string kModuleDir = ZMU_TEST_MODULE_DIR;

std::wstring widen(const std::string& ascii)
{
    return std::wstring(ascii.begin(), ascii.end());
}

std::string canonical(const std::string& path)
{
    char* resolved = ::realpath(path.c_str(), nullptr);
    if (resolved == nullptr)
        return path;
    std::string result(resolved);
    std::free(resolved);
    return result;
}

std::string fileNameOf(HMODULE module)
{
    wchar_t buffer[4096];
    const DWORD size = GetModuleFileNameW(module, buffer, 4096);
    return std::string(buffer, buffer + size);
}

// Loads a test module by its Windows name with a path, and frees it at the end of the test.
class LoadedModule
{
public:
    explicit LoadedModule(const std::string& windowsName)
        : m_module(LoadLibraryW(widen(kModuleDir + "/" + windowsName).c_str()))
    {
    }
    ~LoadedModule()
    {
        if (m_module != nullptr)
            FreeLibrary(m_module);
    }
    LoadedModule(const LoadedModule&) = delete;
    LoadedModule& operator=(const LoadedModule&) = delete;
    HMODULE get() const { return m_module; }

private:
    HMODULE m_module;
};

TEST(Modules, ProcessImageIsTheLoadersMainProgram)
{
    void* system = ::dlopen(nullptr, RTLD_LAZY);
    ASSERT_NE(nullptr, system);
    EXPECT_EQ(system, static_cast<void*>(GetModuleHandleW(nullptr)));
    EXPECT_EQ(system, static_cast<void*>(GetModuleHandleA(nullptr)));
    ::dlclose(system);
}

TEST(Modules, ZmuDllIsThisLibrary)
{
    Dl_info info{};
    ASSERT_NE(0, ::dladdr(reinterpret_cast<void*>(&GetLastError), &info));
    void* system = ::dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD);
    ASSERT_NE(nullptr, system);
    ::dlclose(system);

    EXPECT_EQ(system, static_cast<void*>(GetModuleHandleW(L"zmu.dll")));
    EXPECT_EQ(system, static_cast<void*>(GetModuleHandleW(L"ZMU.DLL")));
    EXPECT_EQ(system, static_cast<void*>(GetModuleHandleA("zmu.dll")));
    EXPECT_EQ(canonical(info.dli_fname), canonical(fileNameOf(GetModuleHandleW(L"zmu.dll"))));
}

TEST(Modules, ProcessImageDoesNotAnswerWithALibraryFunction)
{
    // The loader's global scope has libzmu's string table; the process image does not export it.
    void* libraryEntry = ::dlsym(RTLD_DEFAULT, "ZRLoadStringW");
    ASSERT_NE(nullptr, libraryEntry);
    SetLastError(0);
    EXPECT_EQ(nullptr, GetProcAddress(GetModuleHandleW(nullptr), "ZRLoadStringW"));
    EXPECT_EQ(ERROR_PROC_NOT_FOUND, GetLastError());

    EXPECT_EQ(libraryEntry, reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"zmu.dll"), "ZRLoadStringW")));
}

TEST(Modules, LoadsByWindowsNameAndFindsOnlyWhileLoaded)
{
    const std::string path = kModuleDir + "/libzmu_test_strings.so";
    SetLastError(0);
    EXPECT_EQ(nullptr, GetModuleHandleW(L"zmu_test_strings.dll"));
    EXPECT_EQ(ERROR_MOD_NOT_FOUND, GetLastError());
    {
        LoadedModule strings("zmu_test_strings.dll");
        ASSERT_NE(nullptr, strings.get()) << ::dlerror();
        void* system = ::dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
        EXPECT_EQ(system, static_cast<void*>(strings.get()));
        ::dlclose(system);

        // A bare name finds the module wherever it was loaded from, as Windows does.
        EXPECT_EQ(strings.get(), GetModuleHandleW(L"zmu_test_strings.dll"));
        EXPECT_EQ(strings.get(), GetModuleHandleW(L"zmu_test_strings"));
        EXPECT_EQ(strings.get(), GetModuleHandleA("libzmu_test_strings.so"));
        EXPECT_EQ(strings.get(), GetModuleHandleW(widen(path).c_str()));
        EXPECT_EQ(canonical(path), canonical(fileNameOf(strings.get())));
    }
    EXPECT_EQ(nullptr, ::dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD));
    SetLastError(0);
    EXPECT_EQ(nullptr, GetModuleHandleW(L"zmu_test_strings.dll"));
    EXPECT_EQ(ERROR_MOD_NOT_FOUND, GetLastError());
}

TEST(Modules, FindingDoesNotRaiseTheCountButLoadingDoes)
{
    const std::string path = kModuleDir + "/libzmu_test_plain.so";
    const HMODULE first = LoadLibraryA(path.c_str());
    ASSERT_NE(nullptr, first);
    EXPECT_EQ(first, GetModuleHandleW(L"zmu_test_plain.dll"));
    const HMODULE second = LoadLibraryExW(widen(kModuleDir + "/zmu_test_plain.exe").c_str(), nullptr, 0);
    EXPECT_EQ(first, second);

    EXPECT_EQ(TRUE, FreeLibrary(second));
    EXPECT_EQ(first, GetModuleHandleW(L"zmu_test_plain.dll"));
    EXPECT_EQ(TRUE, FreeLibrary(first));
    EXPECT_EQ(nullptr, GetModuleHandleW(L"zmu_test_plain.dll"));
}

TEST(Modules, ExportsComeOnlyFromTheModuleItself)
{
    LoadedModule strings("zmu_test_strings.dll");
    ASSERT_NE(nullptr, strings.get());

    const auto marker = reinterpret_cast<int (*)()>(GetProcAddress(strings.get(), "zmuTestModuleMarker"));
    ASSERT_NE(nullptr, marker);
    EXPECT_EQ(42, marker());
    EXPECT_NE(nullptr, GetProcAddress(strings.get(), "ZRLoadStringW"));

    // The loader would answer from the module's dependencies (the C library).
    ASSERT_NE(nullptr, ::dlsym(static_cast<void*>(strings.get()), "wcslen"));
    SetLastError(0);
    EXPECT_EQ(nullptr, GetProcAddress(strings.get(), "wcslen"));
    EXPECT_EQ(ERROR_PROC_NOT_FOUND, GetLastError());
}

TEST(Modules, FailuresSetTheirCodes)
{
    struct Row
    {
        const char* name;
        std::function<bool()> succeeds;
        DWORD error;
    };
    const Row rows[] = {
        {"load of a missing module", [] { return LoadLibraryW(L"zmu_no_such_module.dll") != nullptr; },
         ERROR_MOD_NOT_FOUND},
        {"load of a null name", [] { return LoadLibraryW(nullptr) != nullptr; }, ERROR_INVALID_PARAMETER},
        {"load of an empty name", [] { return LoadLibraryW(L"") != nullptr; }, ERROR_INVALID_PARAMETER},
        {"load with a reserved handle",
         [] { return LoadLibraryExW(L"zmu.dll", reinterpret_cast<HANDLE>(1), 0) != nullptr; },
         ERROR_INVALID_PARAMETER},
        {"handle of a missing module", [] { return GetModuleHandleW(L"zmu_no_such_module.dll") != nullptr; },
         ERROR_MOD_NOT_FOUND},
        {"entry of a null module", [] { return GetProcAddress(nullptr, "GetLastError") != nullptr; },
         ERROR_INVALID_HANDLE},
        {"missing entry", [] { return GetProcAddress(GetModuleHandleW(L"zmu.dll"), "zmuNoSuchEntry") != nullptr; },
         ERROR_PROC_NOT_FOUND},
        {"null entry name", [] { return GetProcAddress(GetModuleHandleW(L"zmu.dll"), nullptr) != nullptr; },
         ERROR_PROC_NOT_FOUND},
        {"free of a null handle", [] { return FreeLibrary(nullptr) != FALSE; }, ERROR_INVALID_HANDLE},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        SetLastError(0);
        EXPECT_FALSE(row.succeeds());
        EXPECT_EQ(row.error, GetLastError());
    }
}

TEST(Modules, FileNameOfTheProcessImageIsProcSelfExe)
{
    char system[PATH_MAX];
    const ssize_t size = ::readlink("/proc/self/exe", system, sizeof system);
    ASSERT_GT(size, 0);
    const std::string expected(system, static_cast<std::size_t>(size));
    EXPECT_EQ(expected, fileNameOf(nullptr));
    EXPECT_EQ(expected, fileNameOf(GetModuleHandleW(nullptr)));
}

TEST(Modules, FileNameIsCutToTheBufferWith122)
{
    const std::string full = fileNameOf(nullptr);
    ASSERT_GT(full.size(), 5u);
    wchar_t buffer[6] = {L'#', L'#', L'#', L'#', L'#', L'#'};
    SetLastError(0);
    EXPECT_EQ(5u, GetModuleFileNameW(nullptr, buffer, 5));
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, GetLastError());
    EXPECT_EQ(widen(full.substr(0, 4)), std::wstring(buffer));
    EXPECT_EQ(L'#', buffer[5]);

    // Room for the text but not for its terminator is cut too.
    std::wstring exact(full.size(), L'#');
    SetLastError(0);
    EXPECT_EQ(full.size(), GetModuleFileNameW(nullptr, &exact[0], static_cast<DWORD>(full.size())));
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, GetLastError());

    SetLastError(0);
    EXPECT_EQ(0u, GetModuleFileNameW(nullptr, buffer, 0));
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, GetLastError());
    SetLastError(0);
    EXPECT_EQ(0u, GetModuleFileNameW(nullptr, nullptr, 5));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, GetLastError());
}

TEST(Modules, LoadStringAnswersThroughTheModulesLoader)
{
    LoadedModule strings("zmu_test_strings.dll");
    ASSERT_NE(nullptr, strings.get());
    struct Row
    {
        const char* name;
        UINT id;
        int bufferMax;
        int count;
        const wchar_t* text;
        DWORD error;
    };
    const Row rows[] = {
        {"whole string", 1, 64, 3, L"one", 0},
        {"empty string exists", 2, 64, 0, L"", 0},
        {"cut to bufferMax - 1", 7, 6, 5, L"seven", 0},
        {"room for the terminator only", 7, 1, 0, L"", 0},
        {"exact fit", 1, 4, 3, L"one", 0},
        {"missing row", 3, 64, 0, L"", ERROR_RESOURCE_NAME_NOT_FOUND},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        wchar_t buffer[64];
        std::fill(buffer, buffer + 64, L'#');
        SetLastError(12345);
        EXPECT_EQ(row.count, LoadStringW(strings.get(), row.id, buffer, row.bufferMax));
        EXPECT_EQ(row.error, GetLastError());
        EXPECT_EQ(std::wstring(row.text), std::wstring(buffer));
    }
}

TEST(Modules, LoadStringFindsNothingWithoutALoader)
{
    LoadedModule plain("zmu_test_plain.dll");
    ASSERT_NE(nullptr, plain.get());
    const HMODULE modules[] = {plain.get(), GetModuleHandleW(nullptr), nullptr};
    for (HMODULE module : modules) {
        SCOPED_TRACE(module == nullptr ? "null module" : "module without loader");
        wchar_t buffer[16] = L"stale";
        SetLastError(0);
        EXPECT_EQ(0, LoadStringW(module, 1, buffer, 16));
        EXPECT_EQ(ERROR_RESOURCE_NAME_NOT_FOUND, GetLastError());
        EXPECT_EQ(L'\0', buffer[0]);
    }
    wchar_t buffer[4];
    SetLastError(0);
    EXPECT_EQ(0, LoadStringW(plain.get(), 1, buffer, 0));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, GetLastError());
    SetLastError(0);
    EXPECT_EQ(0, LoadStringW(plain.get(), 1, nullptr, 4));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, GetLastError());
}

TEST(Modules, LoadStringANarrowsAndCuts)
{
    LoadedModule strings("zmu_test_strings.dll");
    ASSERT_NE(nullptr, strings.get());
    char buffer[64];
    EXPECT_EQ(3, LoadStringA(strings.get(), 1, buffer, 64));
    EXPECT_STREQ("one", buffer);
    EXPECT_EQ(6, LoadStringA(strings.get(), 7, buffer, 7));
    EXPECT_STREQ("seven:", buffer);
    SetLastError(0);
    EXPECT_EQ(0, LoadStringA(strings.get(), 3, buffer, 64));
    EXPECT_EQ(ERROR_RESOURCE_NAME_NOT_FOUND, GetLastError());
    EXPECT_STREQ("", buffer);
}

} // namespace
