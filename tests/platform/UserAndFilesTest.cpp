#include "platform/LastError.h"
#include "platform/UserAndFiles.h"

#include "support/RegistrySandbox.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>

#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

namespace {

// A folder of the test's own, open to every user, with "file" (1234 bytes) and "folder" in it.
struct Scratch
{
    Scratch()
    {
        ::chmod(root.path().toUtf8().constData(), 0755);
        ::mkdir(path("folder").c_str(), 0755);
        const int fd = ::open(path("file").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
        EXPECT_EQ(::ftruncate(fd, 1234), 0);
        ::close(fd);
    }
    std::string path(const char* name) const { return root.path().toStdString() + "/" + name; }
    std::wstring wide(const char* name) const
    {
        const std::string narrow = path(name);
        return std::wstring(narrow.begin(), narrow.end());
    }
    QTemporaryDir root;
};

// The effective user's passwd name; the size counts the terminator, and a buffer too small (or
// none) fails with 122 and the size needed.
TEST(GetUserName, GivesTheLoginNameWithWindowsSizeRules)
{
    const passwd* entry = ::getpwuid(::geteuid());
    ASSERT_NE(entry, nullptr);
    const std::string login = entry->pw_name;
    const std::wstring expected(login.begin(), login.end());
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
    EXPECT_FALSE(GetUserNameW(nullptr, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(CreateDirectory, MakesOneLevelAndTellsWhyNot)
{
    const Scratch scratch;
    const std::pair<std::wstring, DWORD> rows[] = {
        {scratch.wide("new"), 0},
        {scratch.wide("new"), ERROR_ALREADY_EXISTS},
        {scratch.wide("file"), ERROR_ALREADY_EXISTS},
        {scratch.wide("missing/new"), ERROR_PATH_NOT_FOUND},
        {scratch.wide("file/new"), ERROR_PATH_NOT_FOUND},
        {scratch.wide("folder/new/"), 0},
        {scratch.wide("folder/") + std::wstring(300, L'n'), ERROR_FILENAME_EXCED_RANGE},
        {L"", ERROR_PATH_NOT_FOUND},
    };
    for (const auto& [path, error] : rows) {
        SCOPED_TRACE(std::string(path.begin(), path.end()));
        SetLastError(0);
        EXPECT_EQ(CreateDirectoryW(path.c_str(), nullptr), error == 0 ? TRUE : FALSE);
        EXPECT_EQ(GetLastError(), error);
    }
    struct stat status{};
    EXPECT_TRUE(::stat(scratch.path("folder/new").c_str(), &status) == 0 && S_ISDIR(status.st_mode));
    EXPECT_FALSE(CreateDirectoryW(nullptr, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(FileAccess, TestsExistenceAndRightsWithRuntimeErrors)
{
    const Scratch scratch;
    const struct
    {
        const char* name;
        int mode;
        int error; // 0: allowed
    } rows[] = {{"file", 0, 0},           {"file", 6, 0},         {"folder", 2, 0},  {"missing", 0, ENOENT},
                {"file/below", 4, ENOENT}, {"file", 1, EINVAL},   {"file", 8, EINVAL}};
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

    const int big = ::open(scratch.path("big").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
    ASSERT_EQ(::ftruncate(big, 0x80000000LL), 0); // sparse: no space used
    ::close(big);
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
