#include "platform/Files.h"

#include "PlatformRig.h"
#include "foundation/IntegerWidths.h"
#include "platform/Synchronization.h"

#include <sys/stat.h>

#include <cstring>
#include <cwchar>
#include <string>

namespace {

using platform_test::outcomeOf;
using platform_test::widen;

class FilesTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_scratch.isValid());
        for (const char* name : {"libmapped.so", "plain.dll", "empty"})
            m_scratch.write(name, "");
        m_scratch.write("data.bin", "0123456789");
    }
    platform_test::Scratch m_scratch;
};

HANDLE openForReading(const std::wstring& path)
{
    return CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
                       nullptr);
}

TEST_F(FilesTest, OpenFileGivesSizeTimeAndAReadOnlyView)
{
    const HANDLE file = openForReading(m_scratch.wide("data.bin"));
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    DWORD high = 7;
    EXPECT_EQ(GetFileSize(file, &high), 10u);
    EXPECT_EQ(high, 0u);
    struct stat status{};
    ASSERT_EQ(::stat(m_scratch.path("data.bin").c_str(), &status), 0);
    FILETIME written{};
    ASSERT_TRUE(GetFileTime(file, nullptr, nullptr, &written));
    EXPECT_EQ(u64(written.dwHighDateTime) << 32 | written.dwLowDateTime,
              116444736000000000ULL + u64(status.st_mtim.tv_sec) * 10000000 + u64(status.st_mtim.tv_nsec) / 100);

    const HANDLE mapping = CreateFileMappingW(file, nullptr, PAGE_READONLY, 0, 0, nullptr);
    ASSERT_NE(mapping, nullptr);
    ASSERT_TRUE(CloseHandle(file)); // the mapping keeps the file
    void* view = MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0);
    ASSERT_NE(view, nullptr);
    ASSERT_TRUE(CloseHandle(mapping)); // and the view outlives the mapping
    EXPECT_EQ(std::memcmp(view, "0123456789", 10), 0);
    EXPECT_TRUE(UnmapViewOfFile(view));
    EXPECT_EQ(outcomeOf([&] { return UnmapViewOfFile(view) != FALSE; }), ERROR_INVALID_ADDRESS);
    EXPECT_EQ(outcomeOf([&] { return GetFileSize(file, nullptr) != INVALID_FILE_SIZE; }), ERROR_INVALID_HANDLE);
}

TEST_F(FilesTest, FailuresGiveTheWindowsCodes)
{
    const auto opens = [](const std::wstring& path) {
        return [path] { return openForReading(path) != INVALID_HANDLE_VALUE; };
    };
    const HANDLE empty = openForReading(m_scratch.wide("empty"));
    ASSERT_NE(empty, INVALID_HANDLE_VALUE);
    const HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    FILETIME time{};
    platform_test::expectOutcomes({
        {"missing", opens(m_scratch.wide("missing.bin")), ERROR_FILE_NOT_FOUND},
        {"file as a directory", opens(m_scratch.wide("data.bin/inner")), ERROR_PATH_NOT_FOUND},
        {"directory", opens(widen(m_scratch.root())), ERROR_ACCESS_DENIED},
        {"empty file", [&] { return CreateFileMappingW(empty, nullptr, PAGE_READONLY, 0, 0, nullptr); },
         ERROR_FILE_INVALID},
        {"an event is no file", [&] { return GetFileTime(event, nullptr, nullptr, &time); }, ERROR_INVALID_HANDLE},
        {"a file is no waitable object", [&] { return WaitForSingleObject(empty, 0) != WAIT_FAILED; },
         ERROR_INVALID_HANDLE},
        {"no name to search", [] { return SearchPathW(nullptr, L"", nullptr, 0, nullptr, nullptr); },
         ERROR_INVALID_PARAMETER},
    });
    CloseHandle(empty);
    CloseHandle(event);
}

TEST_F(FilesTest, SearchPathFollowsTheModuleNameRule)
{
    const std::wstring list = widen("/nonexistent:" + m_scratch.root());
    const struct { const wchar_t* name; const wchar_t* extension; const char* found; } searches[] = {
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
        if (search.found == nullptr) {
            EXPECT_EQ(outcomeOf([&] { return SearchPathW(list.c_str(), search.name, nullptr, 512, buffer, nullptr); }),
                      ERROR_FILE_NOT_FOUND);
            continue;
        }
        const std::wstring expected = m_scratch.wide(search.found);
        EXPECT_EQ(SearchPathW(list.c_str(), search.name, search.extension, 512, buffer, &filePart), expected.size());
        EXPECT_EQ(buffer, expected);
        EXPECT_STREQ(filePart, widen(search.found).c_str());
        // Too small: the size needed with the terminator, and nothing written.
        wchar_t small[4] = {L'x', 0, 0, 0};
        EXPECT_EQ(SearchPathW(list.c_str(), search.name, search.extension, 4, small, nullptr), expected.size() + 1);
        EXPECT_EQ(small[0], L'x');
    }
}

TEST(Files, SystemDirectoryHoldsTheCLibrary)
{
    const UINT needed = GetSystemDirectoryW(nullptr, 0);
    ASSERT_GT(needed, 1u);
    std::wstring directory(needed, L'\0');
    ASSERT_EQ(GetSystemDirectoryW(&directory[0], needed), needed - 1);
    struct stat status{};
    const std::string libc(directory.begin(), directory.end() - 1);
    EXPECT_EQ(::stat((libc + "/libc.so.6").c_str(), &status), 0) << libc;

    // The default search finds it there too.
    wchar_t found[512] = {};
    ASSERT_GT(SearchPathW(nullptr, L"libc.so.6", nullptr, 512, found, nullptr), 0u);
}

} // namespace
