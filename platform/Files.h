// Files read as data: opening, size and times, read-only mappings, and the search for a file by
// name, with the Windows contracts. Only reading is offered; that is all the library does with
// the files of other modules.
#pragma once

#include "platform/TimeRecords.h"
#include "platform/WinTypes.h"

inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-1));

constexpr DWORD GENERIC_READ = 0x80000000;
constexpr DWORD FILE_SHARE_READ = 0x1;
constexpr DWORD OPEN_EXISTING = 3;
constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;
constexpr DWORD PAGE_READONLY = 0x2;
constexpr DWORD FILE_MAP_READ = 0x4;
constexpr DWORD INVALID_FILE_SIZE = 0xFFFFFFFF;

constexpr DWORD ERROR_INVALID_ADDRESS = 487;
constexpr DWORD ERROR_FILE_INVALID = 1006;

// Like CreateFileW for reading an existing file: `access` GENERIC_READ, `disposition`
// OPEN_EXISTING; the share mode, attributes and template are accepted and have no effect here.
// INVALID_HANDLE_VALUE on failure with last error 2 (missing), 3 (a directory on the way is
// missing), 5 (no permission, or a directory), 87 (null name, other access or disposition).
// The handle is released with CloseHandle (platform/Synchronization.h).
HANDLE CreateFileW(const wchar_t* fileName, DWORD access, DWORD shareMode, void* securityAttributes,
                   DWORD disposition, DWORD flagsAndAttributes, HANDLE templateFile);

// Like GetFileSize: the low 32 bits of the size, the high ones through `sizeHigh` if not null.
// INVALID_FILE_SIZE with last error 6 for a handle that is no open file; when a real size has
// that low half, the last error is set to 0 so that a caller can tell.
DWORD GetFileSize(HANDLE file, DWORD* sizeHigh);

// Like GetFileTime: each non-null pointer receives a time in UTC. Linux keeps no creation time
// in a file's status, so `creation` receives the time of the last status change.
// FALSE with last error 6 for a handle that is no open file.
BOOL GetFileTime(HANDLE file, FILETIME* creation, FILETIME* lastAccess, FILETIME* lastWrite);

// Like CreateFileMappingW for a read-only mapping of a whole file: `protect` PAGE_READONLY, both
// size halves 0, no name (87 otherwise). Null on failure with last error 6 (no open file), 1006
// (an empty file, which cannot be mapped). The mapping is independent of the file handle, which
// may be closed before it; release it with CloseHandle.
HANDLE CreateFileMappingW(HANDLE file, void* securityAttributes, DWORD protect, DWORD maximumSizeHigh,
                          DWORD maximumSizeLow, const wchar_t* name);

// Like MapViewOfFile with FILE_MAP_READ from offset 0: `bytes` 0 maps the whole mapping, fewer
// bytes map a beginning of it. Null with last error 6 (no mapping), 87 (other access, an offset,
// more bytes than the mapping has), 8 (no room). The view outlives the mapping's handle. Unlike
// Windows, Linux lets a mapped file be cut short; reading a view beyond the new end then faults.
void* MapViewOfFile(HANDLE mapping, DWORD access, DWORD offsetHigh, DWORD offsetLow, std::size_t bytes);

// Like UnmapViewOfFile: releases a view by its base. FALSE with last error 487 for an address that
// is no view's base.
BOOL UnmapViewOfFile(const void* base);

// Like SearchPathW: looks for `fileName` and writes its full path. `extension` (".so") is
// appended if the name has none. The module-name rule of LoadLibraryW applies: "x.dll" and
// "x.exe" are looked for as "libx.so", then as given, in each directory. A name with a "/" is
// checked where it points. Otherwise the directories are `path`, a list separated by ":" or ";",
// or if `path` is null the default order: the program's directory, LD_LIBRARY_PATH, the
// directories that /etc/ld.so.conf lists, then /lib/<multiarch>, /usr/lib/<multiarch>, /lib,
// /usr/lib, /usr/local/lib. A match must be no directory; symbolic links are not resolved.
// Returns the path's length without terminator and sets *filePart (if not null) to its file name;
// if `bufferLength` is too small, returns the size needed with the terminator and writes nothing.
// 0 with last error 2 if nothing was found, 87 for a null or empty name or a null buffer with a
// non-zero length.
DWORD SearchPathW(const wchar_t* path, const wchar_t* fileName, const wchar_t* extension, DWORD bufferLength,
                  wchar_t* buffer, wchar_t** filePart);

// Like GetSystemDirectoryW: the directory the loader took the C library from (such as
// /lib/x86_64-linux-gnu), without a trailing "/". Returns the length without terminator, or the
// size needed with the terminator when `size` is too small; 0 with last error 2 if unknown.
UINT GetSystemDirectoryW(wchar_t* buffer, UINT size);

// Ours: the file of the running kernel's image, /boot/vmlinuz-<release> by the kernel's release,
// whether or not that file is there. Size conventions as GetSystemDirectoryW; 0 with last error 2
// if the release is unknown.
UINT GetKernelImagePathW(wchar_t* buffer, UINT size);
