// The machine's own description under the Windows calls that report it: version, names, language,
// directories, memory, processor and drives. The sources are the kernel's files (/proc, /sys) and
// the system's configuration (/etc); a test can point them at a directory of its own.
#pragma once

#include "platform/WinTypes.h"

#include <cstdint>

using LANGID = WORD;

// ---- Version ----

constexpr DWORD VER_PLATFORM_WIN32_WINDOWS = 1;
constexpr DWORD VER_PLATFORM_WIN32_NT = 2;
constexpr DWORD VER_PLATFORM_LINUX = 0x4C; // ours: Windows has no value for this platform
constexpr BYTE VER_NT_WORKSTATION = 1;

struct OSVERSIONINFOEXW
{
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    wchar_t szCSDVersion[128];
    WORD wServicePackMajor;
    WORD wServicePackMinor;
    WORD wSuiteMask;
    BYTE wProductType;
    BYTE wReserved;
};

// Like GetVersionExW with the extended structure, whose size field must be set (else FALSE, 122).
// Here: platform VER_PLATFORM_LINUX; major, minor and build are the first three numbers of the
// kernel release ("6.8.0-45-generic" gives 6, 8, 0, a missing third one 0); szCSDVersion holds the
// whole release, cut to 127 characters; product type, suite and service pack stay 0. An unreadable
// release: FALSE with 2 (or 5); one that does not begin with "N.N": FALSE with 13.
BOOL GetVersionExW(OSVERSIONINFOEXW* info);

// ---- Processors ----

constexpr WORD PROCESSOR_ARCHITECTURE_INTEL = 0;
constexpr WORD PROCESSOR_ARCHITECTURE_ARM = 5;
constexpr WORD PROCESSOR_ARCHITECTURE_IA64 = 6;
constexpr WORD PROCESSOR_ARCHITECTURE_AMD64 = 9;
constexpr WORD PROCESSOR_ARCHITECTURE_ARM64 = 12;
constexpr WORD PROCESSOR_ARCHITECTURE_UNKNOWN = 0xFFFF;

struct SYSTEM_INFO
{
    WORD wProcessorArchitecture;
    WORD wReserved;
    DWORD dwPageSize;
    void* lpMinimumApplicationAddress;
    void* lpMaximumApplicationAddress;
    std::uintptr_t dwActiveProcessorMask;
    DWORD dwNumberOfProcessors;
    DWORD dwProcessorType;
    DWORD dwAllocationGranularity;
    WORD wProcessorLevel;
    WORD wProcessorRevision;
};

// Like GetSystemInfo: never fails. The architecture is the kernel's machine (x86_64 9, i?86 0,
// aarch64 12, arm 5, ia64 6, else 0xFFFF); the count is the online processors (sysconf; 0 if the
// system can't tell), the active mask has that many low bits set; page size and allocation
// granularity are the page size. Level and revision are the x86 family and (model << 8) |
// stepping of the first processor, else 0. The application address range is left null.
void GetSystemInfo(SYSTEM_INFO* info);

// Like reading the values of HKEY_LOCAL_MACHINE\HARDWARE\DESCRIPTION\System\CentralProcessor\<n>
// by RegQueryValueExW (ours: there is no registry behind it). "VendorIdentifier" ("GenuineIntel")
// and "Identifier" ("Intel64 Family 6 Model 15 Stepping 11") are texts copied with their
// terminator, "~MHz" is a DWORD; `size` is in bytes, in and out. Returns 0; 2 for a processor or
// value that the kernel's description lacks (the identifier needs an x86 family, model and
// stepping: "Intel64" for a 64-bit GenuineIntel, "AMD64" for another 64-bit vendor, else "x86");
// 234 when `size` is too small, with `size` then the bytes needed (a null `data` asks for the size:
// 0 and the size). 87 for a null name or size.
LONG QueryCentralProcessorValueW(DWORD processor, const wchar_t* valueName, void* data, DWORD* size);

// ---- Names and language ----

// Like GetComputerNameW: the kernel's host name, as it stands (not cut to 15 characters, not
// upper-cased). `size` is in characters: in, the buffer's; out, the length copied without
// terminator, or when the buffer is too small (FALSE, 111) the size needed with terminator.
BOOL GetComputerNameW(wchar_t* buffer, DWORD* size);

enum COMPUTER_NAME_FORMAT
{
    ComputerNameNetBIOS = 0,
    ComputerNameDnsHostname = 1,
    ComputerNameDnsDomain = 2,
};

// Like GetComputerNameExW, for ComputerNameDnsDomain only (another format: FALSE, 87). The DNS
// domain is the part of the host name behind its first dot, else the "domain" line of
// /etc/resolv.conf, else the first name of its "search" line ("." does not count); none of them
// is an empty text and TRUE. No query goes to the network. Sizes as GetComputerNameW, but a
// buffer too small gives 234.
BOOL GetComputerNameExW(COMPUTER_NAME_FORMAT format, wchar_t* buffer, DWORD* size);

// Like GetSystemDefaultLangID, from the first locale found in LC_ALL, LC_MESSAGES and LANG, then
// LANG= in /etc/locale.conf or /etc/default/locale. "ll_CC" (before any "." or "@") is looked up
// in a table of common locales (en_US 0x0409, de_DE 0x0407, ...); a known language with another
// country gives the language alone (de_LU 0x0007); "C" and "POSIX", also with a code set, give
// 0x007F, the invariant language; no locale anywhere counts as "C". Anything else: 0 with 1168.
LANGID GetSystemDefaultLangID();

// ---- Directories ----

// Like GetWindowsDirectoryW; this system has no such directory: always 0 with 120.
// (GetSystemDirectoryW is in platform/Files.h.)
UINT GetWindowsDirectoryW(wchar_t* buffer, UINT size);

// ---- Memory ----

struct MEMORYSTATUSEX
{
    DWORD dwLength;
    DWORD dwMemoryLoad;
    std::uint64_t ullTotalPhys;
    std::uint64_t ullAvailPhys;
    std::uint64_t ullTotalPageFile;
    std::uint64_t ullAvailPageFile;
    std::uint64_t ullTotalVirtual;
    std::uint64_t ullAvailVirtual;
    std::uint64_t ullAvailExtendedVirtual;
};

// Like GlobalMemoryStatusEx, whose length field must be set (else FALSE, 87), from /proc/meminfo:
// physical memory is MemTotal and MemAvailable (MemFree + Buffers + Cached on kernels without
// it); the page file is the commit limit as Windows counts it, physical memory plus swap
// (MemTotal + SwapTotal, MemAvailable + SwapFree); the load is the percentage of physical memory
// in use. The virtual fields stay 0: a process here has no fixed virtual size. An unreadable file:
// FALSE with 2 (or 5); no MemTotal: FALSE with 13.
BOOL GlobalMemoryStatusEx(MEMORYSTATUSEX* status);

// ---- Drives ----

// What a drive is here: a locally mounted file system that lives on a block device (its type is
// not "nodev" in /proc/filesystems), named by its mount point, which must be a directory; the
// first mount of each device counts, later ones (bind mounts) do not. The root file system is
// always a drive, whatever its type, as the system's drive. Order: that of /proc/self/mounts.

constexpr UINT DRIVE_UNKNOWN = 0;
constexpr UINT DRIVE_NO_ROOT_DIR = 1;
constexpr UINT DRIVE_REMOVABLE = 2;
constexpr UINT DRIVE_FIXED = 3;
constexpr UINT DRIVE_CDROM = 5;

// Like GetLogicalDriveStringsW: the drives' mount points, each with its terminator, and one more
// terminator at the end. Returns the characters copied without the last terminator; when `size`
// is too small, the size needed with it (nothing written). An empty list returns 0 with last
// error 0; an unreadable mount list 0 with 2 (or 5).
DWORD GetLogicalDriveStringsW(DWORD size, wchar_t* buffer);
// Like GetDriveTypeW for a drive of that list: DRIVE_CDROM for iso9660 and udf, DRIVE_REMOVABLE
// when /sys/dev/block says the device (or the disk of the partition) is removable, else
// DRIVE_FIXED. Any other path, also null: DRIVE_NO_ROOT_DIR.
UINT GetDriveTypeW(const wchar_t* rootPath);
// Like GetDiskFreeSpaceExW, by statvfs of any directory (null: the working directory): bytes
// free to this user, total bytes, free bytes. Each output may be null. Failure: FALSE with 3 (no
// such directory), 5 (no access) or 31.
BOOL GetDiskFreeSpaceExW(const wchar_t* directory, std::uint64_t* freeBytesAvailable, std::uint64_t* totalBytes,
                         std::uint64_t* totalFreeBytes);
// Like GetVolumeInformationW for a drive of the list: the file system's name is its mount type
// ("ext4"); the volume name is empty, the serial number the file system id, the component length
// statvfs's name limit; the flags stay 0. Each output may be null. Another path: FALSE with 144; a
// buffer too small: FALSE with 122.
BOOL GetVolumeInformationW(const wchar_t* rootPath, wchar_t* volumeName, DWORD volumeNameSize, DWORD* serialNumber,
                           DWORD* maximumComponentLength, DWORD* fileSystemFlags, wchar_t* fileSystemName,
                           DWORD fileSystemNameSize);

// ---- Display ----

constexpr int SM_SERVERR2 = 89;

// Like GetSystemMetrics for SM_SERVERR2: 0, there being no such server release here. Other
// indexes are not answered here: 0.
int GetSystemMetrics(int index);

// ---- Test hook (ours) ----

// The files that the operations above read under /proc, /sys and /etc are read below `root`
// instead (so "/proc/meminfo" becomes "<root>/proc/meminfo"); null or "" returns to the system's
// own. Mount points and directories named by a caller are never redirected. Thread-safe.
void SetSystemInformationRoot(const char* root);
