#include "platform/UserAndFiles.h"

#include "PlatformRig.h"
#include "support/RegistrySandbox.h"

#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

namespace {

using platform_test::kUntouched;

// A scratch folder with "file" (1234 bytes, 0644) and "folder" in it.
struct Scratch : platform_test::Scratch
{
    Scratch()
    {
        ::mkdir(path("folder").c_str(), 0755);
        EXPECT_EQ(::truncate(write("file", "").c_str(), 1234), 0);
        ::chmod(path("file").c_str(), 0644);
    }
};

// The effective user's passwd name; the size counts the terminator, and a buffer too small (or
// none) fails with 122 and the size needed.
TEST(GetUserName, GivesTheLoginNameWithWindowsSizeRules)
{
    const passwd* entry = ::getpwuid(::geteuid());
    ASSERT_NE(entry, nullptr);
    const std::wstring expected = platform_test::widen(entry->pw_name);
    const auto needed = DWORD(expected.size() + 1);
    const std::pair<DWORD, bool> rows[] = {{0, false}, {64, false}, {needed - 1, true}, {needed, true}, {needed + 8, true}};
    for (const auto& [room, withBuffer] : rows) {
        SCOPED_TRACE(testing::Message() << room << (withBuffer ? " with buffer" : " without buffer"));
        const bool fits = withBuffer && room >= needed;
        wchar_t buffer[128] = L"#";
        DWORD size = room;
        SetLastError(0);
        EXPECT_EQ(GetUserNameW(withBuffer ? buffer : nullptr, &size), fits ? TRUE : FALSE);
        EXPECT_EQ(size, needed);
        EXPECT_EQ(GetLastError(), fits ? 0u : ERROR_INSUFFICIENT_BUFFER);
        EXPECT_EQ(std::wstring(buffer), fits ? expected : L"#");
    }
    EXPECT_EQ(platform_test::outcomeOf([] { return GetUserNameW(nullptr, nullptr); }), ERROR_INVALID_PARAMETER);
}

TEST(CreateDirectory, MakesOneLevelAndTellsWhyNot)
{
    const Scratch scratch;
    const auto creates = [](const std::wstring& path) {
        return [path] { return CreateDirectoryW(path.c_str(), nullptr); };
    };
    platform_test::expectOutcomes({
        {"new", creates(scratch.wide("new")), kUntouched},
        {"again", creates(scratch.wide("new")), ERROR_ALREADY_EXISTS},
        {"a file's name", creates(scratch.wide("file")), ERROR_ALREADY_EXISTS},
        {"parent missing", creates(scratch.wide("missing/new")), ERROR_PATH_NOT_FOUND},
        {"parent is a file", creates(scratch.wide("file/new")), ERROR_PATH_NOT_FOUND},
        {"trailing slash", creates(scratch.wide("folder/new/")), kUntouched},
        {"name too long", creates(scratch.wide("folder/" + std::string(300, 'n'))), ERROR_FILENAME_EXCED_RANGE},
        {"empty", creates(L""), ERROR_PATH_NOT_FOUND},
        {"null", [] { return CreateDirectoryW(nullptr, nullptr); }, ERROR_INVALID_PARAMETER},
    });
    struct stat status{};
    EXPECT_TRUE(::stat(scratch.path("folder/new").c_str(), &status) == 0 && S_ISDIR(status.st_mode));
}

TEST(FileAccess, TestsExistenceAndRightsWithRuntimeErrors)
{
    const Scratch scratch;
    const struct { const char* name; int mode; int error; } rows[] = { // error 0: allowed
        {"file", 0, 0},            {"file", 6, 0},     {"folder", 2, 0}, {"missing", 0, ENOENT},
        {"file/below", 4, ENOENT}, {"file", 1, EINVAL}, {"file", 8, EINVAL}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.name << " mode " << row.mode);
        errno = 0;
        EXPECT_EQ(_waccess(scratch.wide(row.name).c_str(), row.mode), row.error == 0 ? 0 : -1);
        EXPECT_EQ(errno, row.error);
    }
}

// Permissions refuse what root would be granted: a folder without write permission.
TEST(FileAccess, RefusedWritingIsDeniedForOrdinaryUsers)
{
    const Scratch scratch;
    ASSERT_EQ(::chmod(scratch.path("folder").c_str(), 0555), 0);
    const std::wstring folder = scratch.wide("folder");
    EXPECT_EQ(runWithoutRootRights([&folder] {
                  if (CreateDirectoryW((folder + L"/new").c_str(), nullptr) || GetLastError() != ERROR_ACCESS_DENIED)
                      return 1;
                  if (_waccess(folder.c_str(), 2) != -1 || errno != EACCES)
                      return 2;
                  return _waccess(folder.c_str(), 4) == 0 ? 0 : 3;
              }),
              0);
    ::chmod(scratch.path("folder").c_str(), 0755);
}

// The fields agree with stat(2); a size beyond 31 bits and a missing file fail with the runtime's
// errors and leave the record alone.
TEST(FileStatus, FillsTheRuntimeRecordFromTheSystem)
{
    const Scratch scratch;
    const timespec times[2] = {{1600000000, 0}, {1700000000, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, scratch.path("file").c_str(), times, 0), 0);
    struct _stat64i32 file{};
    ASSERT_EQ(_wstat64i32(scratch.wide("file").c_str(), &file), 0);
    EXPECT_EQ(file.st_mode, _S_IFREG | 0644);
    EXPECT_EQ(file.st_size, 1234);
    EXPECT_EQ(file.st_atime, 1600000000);
    EXPECT_EQ(file.st_mtime, 1700000000);
    struct _stat64i32 folder{};
    ASSERT_EQ(_wstat64i32(scratch.wide("folder").c_str(), &folder), 0);
    EXPECT_EQ(folder.st_mode & _S_IFMT, 0x4000);

    ASSERT_EQ(::truncate(scratch.write("big", "").c_str(), 0x80000000LL), 0); // sparse: no space used
    const std::pair<const char*, int> failures[] = {{"big", EOVERFLOW}, {"missing", ENOENT}, {"file/below", ENOENT}};
    for (const auto& [name, error] : failures) {
        SCOPED_TRACE(name);
        errno = 0;
        EXPECT_EQ(_wstat64i32(scratch.wide(name).c_str(), &file), -1);
        EXPECT_EQ(errno, error);
        EXPECT_EQ(file.st_size, 1234);
    }
    EXPECT_EQ(_wstat64i32(nullptr, &file), -1);
    EXPECT_EQ(errno, EINVAL);
}

} // namespace
