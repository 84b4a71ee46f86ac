// The user's login name and the file tests and folder creation of the log directory, with the
// contracts of Windows and of the Microsoft C runtime. Paths are POSIX paths in wide text: "/"
// separates, "\" is an ordinary character.
#pragma once

#include "platform/WinTypes.h"

#include <sys/stat.h>

#include <cstdint>

// glibc's struct stat keeps its times in st_atim, st_mtim and st_ctim and defines st_atime,
// st_mtime and st_ctime as macros for their seconds. The runtime's structure below has members of
// those names, so the macros go; platform sources read struct stat's times as st_mtim.tv_sec.
#undef st_atime
#undef st_mtime
#undef st_ctime

constexpr DWORD ERROR_CANNOT_MAKE = 82;
constexpr DWORD ERROR_ALREADY_EXISTS = 183;
constexpr DWORD ERROR_FILENAME_EXCED_RANGE = 206;
constexpr DWORD ERROR_NO_SUCH_USER = 1317;
constexpr DWORD UNLEN = 256;

// Like GetUserNameW: the login name of the effective user (its passwd entry, else $USER). `*size`
// is the buffer's room in characters; on success it becomes the length including the terminator.
// FALSE with 122 and the size needed (terminator included) when the buffer is too small or null,
// 87 for a null `size`, 1317 when the user has neither a passwd entry nor $USER.
BOOL GetUserNameW(wchar_t* buffer, DWORD* size);

// Like CreateDirectoryW: makes one folder with the default rights (0777 less the umask); the
// security attributes are ignored. FALSE with 183 if the path exists (folder or file), 3 if a
// folder above it is missing or is a file (and for an empty path), 5 when refused (permissions,
// a read-only mount), 206 for a name too long, 112 for a full disk, 82 otherwise; 87 for null.
BOOL CreateDirectoryW(const wchar_t* path, void* securityAttributes);

// Like _waccess: 0 if the file or folder exists and allows `mode`: 0 existence, 2 writing,
// 4 reading, 6 both. Else -1 with errno ENOENT (missing, or a path that cannot lead to it) or
// EACCES (refused; also a read-only mount). A folder is tested for the rights asked, where
// Windows tests only that it exists. Another mode or a null path: -1 with EINVAL.
int _waccess(const wchar_t* path, int mode);

// The runtime's mode bits. The permission bits keep their POSIX places, which match these.
constexpr unsigned short _S_IFMT = 0xF000;
constexpr unsigned short _S_IFDIR = 0x4000;
constexpr unsigned short _S_IFCHR = 0x2000;
constexpr unsigned short _S_IFIFO = 0x1000;
constexpr unsigned short _S_IFREG = 0x8000;
constexpr unsigned short _S_IREAD = 0x0100;
constexpr unsigned short _S_IWRITE = 0x0080;
constexpr unsigned short _S_IEXEC = 0x0040;

// The runtime's layout: a 32-bit size and 64-bit times in seconds since 1970 (UTC).
struct _stat64i32
{
    unsigned int st_dev;  // the device number, cut to 32 bits (Windows: the drive number)
    unsigned short st_ino; // 0, as on Windows
    unsigned short st_mode; // one of _S_IFDIR, _S_IFREG, _S_IFCHR, _S_IFIFO (other kinds: none) | rwxrwxrwx
    short st_nlink;
    short st_uid; // 0, as on Windows
    short st_gid; // 0, as on Windows
    unsigned int st_rdev;
    std::int32_t st_size;
    std::int64_t st_atime;
    std::int64_t st_mtime;
    std::int64_t st_ctime;
};

// Like _wstat64i32: fills `buffer` for the file or folder (a symbolic link is followed) and
// returns 0. -1 with errno EINVAL for a null argument, EOVERFLOW for a file of 2 GiB or more
// (`buffer` untouched), ENOENT for any other failure.
int _wstat64i32(const wchar_t* path, struct _stat64i32* buffer);
