#include "platform/Files.h"

#include "platform/LastError.h"
#include "platform/Synchronization.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstring>
#include <cwchar>
#include <fstream>
#include <string>

namespace {

std::wstring widen(const std::string& text)
{
    return std::wstring(text.begin(), text.end()); // ASCII only
}

class FilesTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_directory.isValid());
        m_root = m_directory.path().toStdString();
        std::ofstream(m_root + "/data.bin", std::ios::binary) << "0123456789";
        std::ofstream(m_root + "/libmapped.so", std::ios::binary) << "elf";
        std::ofstream(m_root + "/plain.dll", std::ios::binary) << "pe";
        std::ofstream(m_root + "/empty", std::ios::binary);
    }
    std::wstring path(const char* name) const { return widen(m_root + "/" + name); }

    QTemporaryDir m_directory;
    std::string m_root;
};

HANDLE openForReading(const std::wstring& path)
{
    return CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
                       nullptr);
}

} // namespace

TEST_F(FilesTest, OpenFileGivesSizeTimeAndAReadOnlyView)
{
    const HANDLE file = openForReading(path("data.bin"));
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    DWORD high = 7;
    EXPECT_EQ(GetFileSize(file, &high), 10u);
    EXPECT_EQ(high, 0u);

    struct stat status{};
    ASSERT_EQ(stat((m_root + "/data.bin").c_str(), &status), 0);
    FILETIME written{};
    ASSERT_TRUE(GetFileTime(file, nullptr, nullptr, &written));
    const unsigned long long ticks = (unsigned long long)written.dwHighDateTime << 32 | written.dwLowDateTime;
    EXPECT_EQ(ticks, 116444736000000000ULL + (unsigned long long)status.st_mtim.tv_sec * 10000000
                         + (unsigned long long)status.st_mtim.tv_nsec / 100);

    const HANDLE mapping = CreateFileMappingW(file, nullptr, PAGE_READONLY, 0, 0, nullptr);
    ASSERT_NE(mapping, nullptr);
    ASSERT_TRUE(CloseHandle(file)); // the mapping keeps the file
    void* view = MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0);
    ASSERT_NE(view, nullptr);
    ASSERT_TRUE(CloseHandle(mapping)); // and the view outlives the mapping
    EXPECT_EQ(std::memcmp(view, "0123456789", 10), 0);
    EXPECT_TRUE(UnmapViewOfFile(view));
    EXPECT_FALSE(UnmapViewOfFile(view));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_ADDRESS);

    // A closed handle is no file any more; neither is an event.
    EXPECT_EQ(GetFileSize(file, nullptr), INVALID_FILE_SIZE);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    const HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    EXPECT_FALSE(GetFileTime(event, nullptr, nullptr, &written));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    CloseHandle(event);
}

TEST_F(FilesTest, FailuresGiveTheWindowsCodes)
{
    const struct
    {
        const char* name;
        std::wstring file;
        DWORD error;
    } opens[] = {
        {"missing", path("missing.bin"), ERROR_FILE_NOT_FOUND},
        {"file as a directory", path("data.bin/inner"), ERROR_PATH_NOT_FOUND},
        {"directory", widen(m_root), ERROR_ACCESS_DENIED},
    };
    for (const auto& open : opens) {
        SCOPED_TRACE(open.name);
        EXPECT_EQ(openForReading(open.file), INVALID_HANDLE_VALUE);
        EXPECT_EQ(GetLastError(), open.error);
    }
    const HANDLE empty = openForReading(path("empty"));
    ASSERT_NE(empty, INVALID_HANDLE_VALUE);
    EXPECT_EQ(CreateFileMappingW(empty, nullptr, PAGE_READONLY, 0, 0, nullptr), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_FILE_INVALID);
    EXPECT_EQ(WaitForSingleObject(empty, 0), WAIT_FAILED); // a file handle is no waitable object here
    CloseHandle(empty);
}

TEST_F(FilesTest, SearchPathFollowsTheModuleNameRule)
{
    const std::wstring list = widen("/nonexistent:" + m_root);
    const struct
    {
        const wchar_t* name;
        const wchar_t* extension;
        const char* found; // null: not found
    } searches[] = {
        {L"mapped.dll", nullptr, "libmapped.so"},   // "x.dll" is looked for as "libx.so"
        {L"plain.dll", nullptr, "plain.dll"},       // then as given
        {L"libmapped", L".so", "libmapped.so"},     // an extension is added to a name without one
        {L"data.bin", L".so", "data.bin"},          // and not to a name with one
        {L"missing.dll", nullptr, nullptr},
    };
    for (const auto& search : searches) {
        SCOPED_TRACE(search.found == nullptr ? "missing" : search.found);
        wchar_t buffer[512] = {};
        wchar_t* filePart = nullptr;
        SetLastError(0);
        const DWORD length = SearchPathW(list.c_str(), search.name, search.extension, 512, buffer, &filePart);
        if (search.found == nullptr) {
            EXPECT_EQ(length, 0u);
            EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
            continue;
        }
        const std::wstring expected = path(search.found);
        EXPECT_EQ(buffer, expected);
        EXPECT_EQ(length, expected.size());
        EXPECT_STREQ(filePart, widen(search.found).c_str());
        // Too small: the size needed with the terminator, and nothing written.
        wchar_t small[4] = {L'x', 0, 0, 0};
        EXPECT_EQ(SearchPathW(list.c_str(), search.name, search.extension, 4, small, nullptr), expected.size() + 1);
        EXPECT_EQ(small[0], L'x');
    }
    EXPECT_EQ(SearchPathW(nullptr, L"", nullptr, 0, nullptr, nullptr), 0u);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(Files, SystemDirectoryHoldsTheCLibrary)
{
    const UINT needed = GetSystemDirectoryW(nullptr, 0);
    ASSERT_GT(needed, 1u);
    std::wstring directory(needed, L'\0');
    ASSERT_EQ(GetSystemDirectoryW(&directory[0], needed), needed - 1);
    directory.resize(needed - 1);
    struct stat status{};
    const std::string libc(directory.begin(), directory.end());
    EXPECT_EQ(stat((libc + "/libc.so.6").c_str(), &status), 0) << libc;

    // The default search finds it there too.
    wchar_t found[512] = {};
    ASSERT_GT(SearchPathW(nullptr, L"libc.so.6", nullptr, 512, found, nullptr), 0u);
}
