#include "platform/UserAndFiles.h"

#include "platform/LastError.h"
#include "platform/Utf8Text.h"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cwchar>
#include <string>
#include <vector>

namespace {

std::string loginName()
{
    const long suggested = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> room(suggested > 0 ? static_cast<std::size_t>(suggested) : 1024);
    passwd entry{};
    passwd* found = nullptr;
    for (;;) {
        const int error = ::getpwuid_r(::geteuid(), &entry, room.data(), room.size(), &found);
        if (error == EINTR)
            continue;
        if (error == ERANGE && room.size() < (1u << 20)) {
            room.resize(room.size() * 2);
            continue;
        }
        break;
    }
    if (found != nullptr && found->pw_name != nullptr && *found->pw_name != '\0')
        return found->pw_name;
    const char* user = std::getenv("USER");
    return user != nullptr ? user : "";
}

DWORD createDirectoryError(int error)
{
    switch (error) {
    case EEXIST:
        return ERROR_ALREADY_EXISTS;
    case ENOENT:
    case ENOTDIR:
    case ELOOP:
        return ERROR_PATH_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EROFS:
        return ERROR_ACCESS_DENIED;
    case ENAMETOOLONG:
        return ERROR_FILENAME_EXCED_RANGE;
    case ENOSPC:
    case EDQUOT:
        return ERROR_DISK_FULL;
    default:
        return ERROR_CANNOT_MAKE;
    }
}

unsigned short runtimeMode(mode_t mode)
{
    unsigned short kind = 0;
    if (S_ISDIR(mode))
        kind = _S_IFDIR;
    else if (S_ISREG(mode))
        kind = _S_IFREG;
    else if (S_ISCHR(mode))
        kind = _S_IFCHR;
    else if (S_ISFIFO(mode))
        kind = _S_IFIFO;
    return static_cast<unsigned short>(kind | (mode & 0777));
}

} // namespace

BOOL GetUserNameW(wchar_t* buffer, DWORD* size)
{
    if (size == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const std::string name = loginName();
    if (name.empty()) {
        SetLastError(ERROR_NO_SUCH_USER);
        return FALSE;
    }
    const std::wstring wide = zmu_platform::widenUtf8(name.data(), name.size());
    const auto needed = static_cast<DWORD>(wide.size() + 1);
    if (buffer == nullptr || *size < needed) {
        *size = needed;
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    std::wmemcpy(buffer, wide.c_str(), needed);
    *size = needed;
    return TRUE;
}

BOOL CreateDirectoryW(const wchar_t* path, void* securityAttributes)
{
    static_cast<void>(securityAttributes);
    if (path == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (::mkdir(zmu_platform::narrowToUtf8(path).c_str(), 0777) != 0) {
        SetLastError(createDirectoryError(errno));
        return FALSE;
    }
    return TRUE;
}

int _waccess(const wchar_t* path, int mode)
{
    if (path == nullptr || (mode & ~6) != 0) {
        errno = EINVAL;
        return -1;
    }
    const int wanted = (mode & 2 ? W_OK : 0) | (mode & 4 ? R_OK : 0);
    if (::access(zmu_platform::narrowToUtf8(path).c_str(), wanted == 0 ? F_OK : wanted) == 0)
        return 0;
    errno = errno == EACCES || errno == EPERM || errno == EROFS || errno == ETXTBSY ? EACCES : ENOENT;
    return -1;
}

int _wstat64i32(const wchar_t* path, struct _stat64i32* buffer)
{
    if (path == nullptr || buffer == nullptr) {
        errno = EINVAL;
        return -1;
    }
    struct stat status{};
    if (::stat(zmu_platform::narrowToUtf8(path).c_str(), &status) != 0) {
        errno = ENOENT;
        return -1;
    }
    if (status.st_size > INT32_MAX) {
        errno = EOVERFLOW;
        return -1;
    }
    buffer->st_dev = static_cast<unsigned int>(status.st_dev);
    buffer->st_ino = 0;
    buffer->st_mode = runtimeMode(status.st_mode);
    buffer->st_nlink = static_cast<short>(status.st_nlink < SHRT_MAX ? status.st_nlink : SHRT_MAX);
    buffer->st_uid = 0;
    buffer->st_gid = 0;
    buffer->st_rdev = static_cast<unsigned int>(status.st_rdev);
    buffer->st_size = static_cast<std::int32_t>(status.st_size);
    buffer->st_atime = status.st_atim.tv_sec;
    buffer->st_mtime = status.st_mtim.tv_sec;
    buffer->st_ctime = status.st_ctim.tv_sec;
    return 0;
}
