#include "platform/SystemInformation.h"

#include "platform/LastError.h"
#include "platform/Utf8Text.h"

#include <fcntl.h>
#include <sched.h>
#include <strings.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace {

constexpr DWORD kErrorGenFailure = 31;
constexpr DWORD kErrorBufferOverflow = 111;
constexpr DWORD kErrorCallNotImplemented = 120;
constexpr DWORD kErrorDirNotRoot = 144;
constexpr DWORD kErrorNotFound = 1168;

// A system file larger than this is not one of ours.
constexpr std::size_t kSystemFileLimit = 4u << 20;

std::mutex s_rootLock;
std::string s_root;

std::string systemPath(const char* path)
{
    std::lock_guard<std::mutex> guard(s_rootLock);
    return s_root + path;
}

DWORD errorOfErrno(int error)
{
    switch (error) {
    case ENOENT:
        return ERROR_FILE_NOT_FOUND;
    case ENOTDIR:
        return ERROR_PATH_NOT_FOUND;
    case EACCES:
    case EPERM:
        return ERROR_ACCESS_DENIED;
    case ENOMEM:
        return ERROR_NOT_ENOUGH_MEMORY;
    default:
        return kErrorGenFailure;
    }
}

// The whole text of a system file (kernel files report no size, so it is read to its end). On
// failure the last error is set.
bool readSystemFile(const char* path, std::string& text)
{
    text.clear();
    int fd;
    do {
        fd = ::open(systemPath(path).c_str(), O_RDONLY | O_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) {
        SetLastError(errorOfErrno(errno));
        return false;
    }
    char chunk[4096];
    for (;;) {
        const ssize_t got = ::read(fd, chunk, sizeof chunk);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0) {
            const int error = errno;
            ::close(fd);
            SetLastError(errorOfErrno(error));
            return false;
        }
        if (got == 0 || text.size() + std::size_t(got) > kSystemFileLimit)
            break;
        text.append(chunk, std::size_t(got));
    }
    ::close(fd);
    return true;
}

std::string trimmed(const std::string& text)
{
    const char* blanks = " \t\r\n";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos)
        return std::string();
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> lines;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string::npos)
            end = text.size();
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

std::vector<std::string> wordsOf(const std::string& line)
{
    std::vector<std::string> words;
    std::size_t at = 0;
    while ((at = line.find_first_not_of(" \t", at)) != std::string::npos) {
        const std::size_t end = line.find_first_of(" \t", at);
        words.push_back(line.substr(at, end == std::string::npos ? std::string::npos : end - at));
        at = end;
    }
    return words;
}

// The first line of a one-value kernel file such as /proc/sys/kernel/hostname.
bool readSystemValue(const char* path, std::string& value)
{
    if (!readSystemFile(path, value))
        return false;
    value = trimmed(value.substr(0, value.find('\n')));
    return true;
}

// Reads a decimal number at `at`; false if there is no digit.
bool readNumber(const char*& at, DWORD& value)
{
    if (*at < '0' || *at > '9')
        return false;
    unsigned long long number = 0;
    while (*at >= '0' && *at <= '9') {
        number = number * 10 + unsigned(*at++ - '0');
        if (number > 0xFFFFFFFFull)
            number = 0xFFFFFFFFull;
    }
    value = DWORD(number);
    return true;
}

bool isDecimal(const std::string& text)
{
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

// Copies `text` for the size conventions of GetComputerNameW: `size` in, the buffer's room; out,
// the length copied, or the size needed with `tooSmall` as the last error.
BOOL copyName(const std::wstring& text, wchar_t* buffer, DWORD* size, DWORD tooSmall)
{
    if (size == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (buffer == nullptr || *size <= text.size()) {
        *size = DWORD(text.size() + 1);
        SetLastError(tooSmall);
        return FALSE;
    }
    std::wmemcpy(buffer, text.c_str(), text.size() + 1);
    *size = DWORD(text.size());
    return TRUE;
}

// ---- /proc/cpuinfo -----------------------------------------------------------------------------

using Fields = std::map<std::string, std::string>;

// The "key : value" lines of the block of processor `processor`; false if there is none.
bool readProcessorFields(DWORD processor, Fields& fields)
{
    std::string text;
    if (!readSystemFile("/proc/cpuinfo", text))
        return false;
    bool inBlock = false;
    bool found = false;
    for (const std::string& line : linesOf(text)) {
        const std::size_t colon = line.find(':');
        if (colon == std::string::npos) {
            inBlock = false;
            continue;
        }
        const std::string key = trimmed(line.substr(0, colon));
        const std::string value = trimmed(line.substr(colon + 1));
        if (key == "processor")
            inBlock = isDecimal(value) && std::strtoul(value.c_str(), nullptr, 10) == processor;
        if (inBlock) {
            found = true;
            fields.emplace(key, value);
        }
    }
    if (!found)
        SetLastError(ERROR_FILE_NOT_FOUND);
    return found;
}

bool hasFlag(const Fields& fields, const char* flag)
{
    const auto flags = fields.find("flags");
    if (flags == fields.end())
        return false;
    for (const std::string& word : wordsOf(flags->second)) {
        if (word == flag)
            return true;
    }
    return false;
}

// "Intel64 Family 6 Model 15 Stepping 11", the way Windows names an x86 processor; empty if the
// block lacks one of the three numbers.
std::string processorIdentifier(const Fields& fields)
{
    const auto vendor = fields.find("vendor_id");
    const auto family = fields.find("cpu family");
    const auto model = fields.find("model");
    const auto stepping = fields.find("stepping");
    if (family == fields.end() || model == fields.end() || stepping == fields.end() || !isDecimal(family->second) ||
        !isDecimal(model->second) || !isDecimal(stepping->second))
        return std::string();
    const bool intel = vendor != fields.end() && vendor->second == "GenuineIntel";
    const char* word = !hasFlag(fields, "lm") ? "x86" : intel ? "Intel64" : "AMD64";
    return std::string(word) + " Family " + family->second + " Model " + model->second + " Stepping " +
           stepping->second;
}

// ---- Drives --------------------------------------------------------------------------------------

struct Drive
{
    std::string mountPoint;
    std::string type;
};

// Undoes the octal escapes of /proc/self/mounts ("\040" for a blank).
std::string unescapeMountField(const std::string& field)
{
    std::string plain;
    for (std::size_t at = 0; at < field.size(); ++at) {
        if (field[at] == '\\' && at + 3 < field.size() && field[at + 1] >= '0' && field[at + 1] <= '3' &&
            field[at + 2] >= '0' && field[at + 2] <= '7' && field[at + 3] >= '0' && field[at + 3] <= '7') {
            plain.push_back(char((field[at + 1] - '0') * 64 + (field[at + 2] - '0') * 8 + (field[at + 3] - '0')));
            at += 3;
        } else {
            plain.push_back(field[at]);
        }
    }
    return plain;
}

// The file system types that live on a block device: those /proc/filesystems does not mark "nodev".
std::set<std::string> blockDeviceTypes()
{
    std::set<std::string> types;
    std::string text;
    if (!readSystemFile("/proc/filesystems", text))
        return types;
    for (const std::string& line : linesOf(text)) {
        const std::vector<std::string> words = wordsOf(line);
        if (words.size() == 1)
            types.insert(words[0]);
    }
    return types;
}

bool isDirectory(const std::string& path)
{
    struct stat status;
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// The drives, in the order of the mount list. False, with the last error, if it can't be read.
bool listDrives(std::vector<Drive>& drives)
{
    drives.clear();
    std::string text;
    if (!readSystemFile("/proc/self/mounts", text))
        return false;
    const std::set<std::string> blockTypes = blockDeviceTypes();
    std::set<std::string> devices;
    for (const std::string& line : linesOf(text)) {
        const std::vector<std::string> fields = wordsOf(line);
        if (fields.size() < 3)
            continue;
        const std::string device = unescapeMountField(fields[0]);
        const std::string mountPoint = unescapeMountField(fields[1]);
        const std::string& type = fields[2];
        // A later mount on the same point hides the earlier one.
        bool hidden = false;
        for (Drive& drive : drives) {
            if (drive.mountPoint == mountPoint) {
                drive.type = type;
                hidden = true;
            }
        }
        if (hidden)
            continue;
        if (mountPoint != "/" && (blockTypes.count(type) == 0 || devices.count(device) != 0))
            continue;
        if (!isDirectory(mountPoint))
            continue;
        devices.insert(device);
        drives.push_back(Drive{mountPoint, type});
    }
    return true;
}

// The drive whose mount point `rootPath` names; false (last error 144) if none.
bool findDrive(const wchar_t* rootPath, Drive& found)
{
    std::vector<Drive> drives;
    if (rootPath != nullptr && listDrives(drives)) {
        const std::string wanted = zmu_platform::narrowToUtf8(rootPath);
        for (const Drive& drive : drives) {
            if (drive.mountPoint == wanted) {
                found = drive;
                return true;
            }
        }
    }
    SetLastError(kErrorDirNotRoot);
    return false;
}

bool isRemovable(const std::string& mountPoint)
{
    struct stat status;
    if (::stat(mountPoint.c_str(), &status) != 0)
        return false;
    const std::string device = "/sys/dev/block/" + std::to_string(major(status.st_dev)) + ":" +
                               std::to_string(minor(status.st_dev));
    // A partition has no flag of its own; its disk, the folder above, has.
    for (const char* tail : {"/removable", "/../removable"}) {
        std::string flag;
        if (readSystemValue((device + tail).c_str(), flag))
            return flag == "1";
    }
    return false;
}

// ---- Language --------------------------------------------------------------------------------------

struct LocaleLanguage
{
    const char* locale;
    LANGID language;
};

constexpr LocaleLanguage kLocaleLanguages[] = {
    {"ar_SA", 0x0401}, {"cs_CZ", 0x0405}, {"da_DK", 0x0406}, {"de_AT", 0x0C07}, {"de_CH", 0x0807},
    {"de_DE", 0x0407}, {"el_GR", 0x0408}, {"en_AU", 0x0C09}, {"en_CA", 0x1009}, {"en_GB", 0x0809},
    {"en_IE", 0x1809}, {"en_NZ", 0x1409}, {"en_US", 0x0409}, {"es_ES", 0x0C0A}, {"es_MX", 0x080A},
    {"fi_FI", 0x040B}, {"fr_BE", 0x080C}, {"fr_CA", 0x0C0C}, {"fr_CH", 0x100C}, {"fr_FR", 0x040C},
    {"he_IL", 0x040D}, {"hu_HU", 0x040E}, {"it_IT", 0x0410}, {"ja_JP", 0x0411}, {"ko_KR", 0x0412},
    {"nb_NO", 0x0414}, {"nl_BE", 0x0813}, {"nl_NL", 0x0413}, {"pl_PL", 0x0415}, {"pt_BR", 0x0416},
    {"pt_PT", 0x0816}, {"ru_RU", 0x0419}, {"sv_SE", 0x041D}, {"tr_TR", 0x041F}, {"zh_CN", 0x0804},
    {"zh_HK", 0x0C04}, {"zh_TW", 0x0404},
};
constexpr LANGID kLanguageInvariant = 0x007F;
constexpr LANGID kPrimaryLanguageMask = 0x03FF;

// The value of LANG= in a file of shell assignments; empty if there is none.
std::string readLangAssignment(const char* path)
{
    std::string text;
    if (!readSystemFile(path, text))
        return std::string();
    for (const std::string& line : linesOf(text)) {
        const std::string assignment = trimmed(line);
        if (assignment.compare(0, 5, "LANG=") != 0)
            continue;
        std::string value = assignment.substr(5);
        if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') && value.back() == value.front())
            value = value.substr(1, value.size() - 2);
        return value;
    }
    return std::string();
}

std::string systemLocale()
{
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(name);
        if (value != nullptr && *value != '\0')
            return value;
    }
    for (const char* path : {"/etc/locale.conf", "/etc/default/locale"}) {
        const std::string value = readLangAssignment(path);
        if (!value.empty())
            return value;
    }
    return "C";
}

} // namespace

// ---- Version and processors ------------------------------------------------------------------------

BOOL GetVersionExW(OSVERSIONINFOEXW* info)
{
    if (info == nullptr || info->dwOSVersionInfoSize != sizeof(OSVERSIONINFOEXW)) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    std::string release;
    if (!readSystemValue("/proc/sys/kernel/osrelease", release))
        return FALSE;
    DWORD numbers[3] = {0, 0, 0};
    const char* at = release.c_str();
    if (!readNumber(at, numbers[0]) || *at++ != '.' || !readNumber(at, numbers[1])) {
        SetLastError(ERROR_INVALID_DATA);
        return FALSE;
    }
    if (*at == '.')
        readNumber(++at, numbers[2]);
    *info = OSVERSIONINFOEXW{};
    info->dwOSVersionInfoSize = sizeof(OSVERSIONINFOEXW);
    info->dwMajorVersion = numbers[0];
    info->dwMinorVersion = numbers[1];
    info->dwBuildNumber = numbers[2];
    info->dwPlatformId = VER_PLATFORM_LINUX;
    const std::wstring wide = zmu_platform::widenUtf8(release.c_str());
    std::wcsncpy(info->szCSDVersion, wide.c_str(), 127);
    return TRUE;
}

void GetSystemInfo(SYSTEM_INFO* info)
{
    if (info == nullptr)
        return;
    *info = SYSTEM_INFO{};
    struct utsname names;
    const std::string machine = ::uname(&names) == 0 ? names.machine : "";
    if (machine == "x86_64")
        info->wProcessorArchitecture = PROCESSOR_ARCHITECTURE_AMD64;
    else if (machine.size() == 4 && machine[0] == 'i' && machine.compare(2, 2, "86") == 0)
        info->wProcessorArchitecture = PROCESSOR_ARCHITECTURE_INTEL;
    else if (machine == "aarch64")
        info->wProcessorArchitecture = PROCESSOR_ARCHITECTURE_ARM64;
    else if (machine.compare(0, 3, "arm") == 0)
        info->wProcessorArchitecture = PROCESSOR_ARCHITECTURE_ARM;
    else if (machine == "ia64")
        info->wProcessorArchitecture = PROCESSOR_ARCHITECTURE_IA64;
    else
        info->wProcessorArchitecture = PROCESSOR_ARCHITECTURE_UNKNOWN;
    if (info->wProcessorArchitecture == PROCESSOR_ARCHITECTURE_AMD64)
        info->dwProcessorType = 8664;
    else if (info->wProcessorArchitecture == PROCESSOR_ARCHITECTURE_INTEL)
        info->dwProcessorType = 586;

    const long pageSize = ::sysconf(_SC_PAGESIZE);
    info->dwPageSize = pageSize > 0 ? DWORD(pageSize) : 4096;
    info->dwAllocationGranularity = info->dwPageSize;
    const long online = ::sysconf(_SC_NPROCESSORS_ONLN);
    info->dwNumberOfProcessors = online > 0 ? DWORD(online) : 0;
    const unsigned bits = sizeof(std::uintptr_t) * 8;
    info->dwActiveProcessorMask = info->dwNumberOfProcessors >= bits
                                      ? ~std::uintptr_t(0)
                                      : (std::uintptr_t(1) << info->dwNumberOfProcessors) - 1;

    const DWORD savedError = GetLastError();
    Fields fields;
    if (readProcessorFields(0, fields) && !processorIdentifier(fields).empty()) {
        info->wProcessorLevel = WORD(std::strtoul(fields["cpu family"].c_str(), nullptr, 10));
        info->wProcessorRevision = WORD((std::strtoul(fields["model"].c_str(), nullptr, 10) << 8) |
                                        (std::strtoul(fields["stepping"].c_str(), nullptr, 10) & 0xFF));
    }
    SetLastError(savedError);
}

LONG QueryCentralProcessorValueW(DWORD processor, const wchar_t* valueName, void* data, DWORD* size)
{
    if (valueName == nullptr || size == nullptr)
        return LONG(ERROR_INVALID_PARAMETER);
    const DWORD savedError = GetLastError();
    Fields fields;
    const bool found = readProcessorFields(processor, fields);
    SetLastError(savedError);
    if (!found)
        return LONG(ERROR_FILE_NOT_FOUND);

    std::string text;
    bool isNumber = false;
    DWORD number = 0;
    if (::wcscasecmp(valueName, L"VendorIdentifier") == 0) {
        const auto vendor = fields.find("vendor_id");
        if (vendor != fields.end())
            text = vendor->second;
    } else if (::wcscasecmp(valueName, L"Identifier") == 0) {
        text = processorIdentifier(fields);
    } else if (::wcscasecmp(valueName, L"~MHz") == 0) {
        const auto speed = fields.find("cpu MHz");
        char* end = nullptr;
        const double megahertz = speed == fields.end() ? -1.0 : std::strtod(speed->second.c_str(), &end);
        if (megahertz >= 0.0 && megahertz < 4.0e9 && end != speed->second.c_str()) {
            isNumber = true;
            number = DWORD(std::lround(megahertz));
        }
    }
    if (!isNumber && text.empty())
        return LONG(ERROR_FILE_NOT_FOUND);

    const std::wstring wide = zmu_platform::widenUtf8(text.c_str());
    const DWORD needed = isNumber ? DWORD(sizeof(DWORD)) : DWORD((wide.size() + 1) * sizeof(wchar_t));
    if (data == nullptr) {
        *size = needed;
        return LONG(ERROR_SUCCESS);
    }
    if (*size < needed) {
        *size = needed;
        return LONG(ERROR_MORE_DATA);
    }
    if (isNumber)
        std::memcpy(data, &number, sizeof number);
    else
        std::memcpy(data, wide.c_str(), needed);
    *size = needed;
    return LONG(ERROR_SUCCESS);
}

// ---- Names and language ------------------------------------------------------------------------

BOOL GetComputerNameW(wchar_t* buffer, DWORD* size)
{
    std::string name;
    if (!readSystemValue("/proc/sys/kernel/hostname", name))
        return FALSE;
    return copyName(zmu_platform::widenUtf8(name.c_str()), buffer, size, kErrorBufferOverflow);
}

BOOL GetComputerNameExW(COMPUTER_NAME_FORMAT format, wchar_t* buffer, DWORD* size)
{
    if (format != ComputerNameDnsDomain) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const DWORD savedError = GetLastError();
    std::string domain;
    std::string host;
    if (readSystemValue("/proc/sys/kernel/hostname", host) && host.find('.') != std::string::npos)
        domain = host.substr(host.find('.') + 1);
    std::string text;
    if (domain.empty() && readSystemFile("/etc/resolv.conf", text)) {
        std::string searchFirst;
        for (const std::string& line : linesOf(text)) {
            const std::vector<std::string> words = wordsOf(line.substr(0, line.find_first_of("#;")));
            if (words.size() < 2)
                continue;
            if (words[0] == "domain")
                domain = words[1];
            else if (words[0] == "search")
                searchFirst = words[1];
        }
        if (domain.empty())
            domain = searchFirst;
    }
    if (!domain.empty() && domain.back() == '.')
        domain.pop_back();
    SetLastError(savedError);
    return copyName(zmu_platform::widenUtf8(domain.c_str()), buffer, size, ERROR_MORE_DATA);
}

LANGID GetSystemDefaultLangID()
{
    const DWORD savedError = GetLastError();
    std::string locale = systemLocale();
    SetLastError(savedError);
    locale = locale.substr(0, locale.find_first_of(".@"));
    if (locale == "C" || locale == "POSIX")
        return kLanguageInvariant;
    const std::string language = locale.substr(0, locale.find('_'));
    LANGID primary = 0;
    for (const LocaleLanguage& row : kLocaleLanguages) {
        if (locale == row.locale)
            return row.language;
        if (!language.empty() && language == std::string(row.locale).substr(0, language.size()) &&
            row.locale[language.size()] == '_')
            primary = LANGID(row.language & kPrimaryLanguageMask);
    }
    if (primary == 0)
        SetLastError(kErrorNotFound);
    return primary;
}

UINT GetWindowsDirectoryW(wchar_t*, UINT)
{
    SetLastError(kErrorCallNotImplemented);
    return 0;
}

// ---- Memory ------------------------------------------------------------------------------------------

BOOL GlobalMemoryStatusEx(MEMORYSTATUSEX* status)
{
    if (status == nullptr || status->dwLength != sizeof(MEMORYSTATUSEX)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    std::string text;
    if (!readSystemFile("/proc/meminfo", text))
        return FALSE;
    std::map<std::string, std::uint64_t> kilobytes;
    for (const std::string& line : linesOf(text)) {
        const std::size_t colon = line.find(':');
        if (colon != std::string::npos)
            kilobytes[line.substr(0, colon)] = std::strtoull(line.c_str() + colon + 1, nullptr, 10);
    }
    if (kilobytes.count("MemTotal") == 0) {
        SetLastError(ERROR_INVALID_DATA);
        return FALSE;
    }
    const std::uint64_t total = kilobytes["MemTotal"];
    std::uint64_t available = kilobytes.count("MemAvailable") != 0
                                  ? kilobytes["MemAvailable"]
                                  : kilobytes["MemFree"] + kilobytes["Buffers"] + kilobytes["Cached"];
    if (available > total)
        available = total;
    *status = MEMORYSTATUSEX{};
    status->dwLength = sizeof(MEMORYSTATUSEX);
    status->dwMemoryLoad = total == 0 ? 0 : DWORD((total - available) * 100 / total);
    status->ullTotalPhys = total * 1024;
    status->ullAvailPhys = available * 1024;
    status->ullTotalPageFile = (total + kilobytes["SwapTotal"]) * 1024;
    status->ullAvailPageFile = (available + kilobytes["SwapFree"]) * 1024;
    return TRUE;
}

// ---- Drives ------------------------------------------------------------------------------------------

DWORD GetLogicalDriveStringsW(DWORD size, wchar_t* buffer)
{
    std::vector<Drive> drives;
    if (!listDrives(drives))
        return 0;
    std::wstring list;
    for (const Drive& drive : drives) {
        list += zmu_platform::widenUtf8(drive.mountPoint.c_str());
        list.push_back(L'\0');
    }
    if (buffer == nullptr || size < list.size() + 1)
        return DWORD(list.size() + 1);
    std::wmemcpy(buffer, list.data(), list.size());
    buffer[list.size()] = L'\0';
    if (list.empty())
        SetLastError(ERROR_SUCCESS);
    return DWORD(list.size());
}

UINT GetDriveTypeW(const wchar_t* rootPath)
{
    const DWORD savedError = GetLastError();
    Drive drive;
    const bool found = findDrive(rootPath, drive);
    SetLastError(savedError);
    if (!found)
        return DRIVE_NO_ROOT_DIR;
    if (drive.type == "iso9660" || drive.type == "udf")
        return DRIVE_CDROM;
    return isRemovable(drive.mountPoint) ? DRIVE_REMOVABLE : DRIVE_FIXED;
}

BOOL GetDiskFreeSpaceExW(const wchar_t* directory, std::uint64_t* freeBytesAvailable, std::uint64_t* totalBytes,
                         std::uint64_t* totalFreeBytes)
{
    const std::string path = directory != nullptr ? zmu_platform::narrowToUtf8(directory) : ".";
    struct statvfs space;
    if (::statvfs(path.c_str(), &space) != 0) {
        const int error = errno;
        SetLastError(error == ENOENT || error == ENOTDIR ? ERROR_PATH_NOT_FOUND : errorOfErrno(error));
        return FALSE;
    }
    const std::uint64_t unit = space.f_frsize != 0 ? space.f_frsize : space.f_bsize;
    if (freeBytesAvailable != nullptr)
        *freeBytesAvailable = std::uint64_t(space.f_bavail) * unit;
    if (totalBytes != nullptr)
        *totalBytes = std::uint64_t(space.f_blocks) * unit;
    if (totalFreeBytes != nullptr)
        *totalFreeBytes = std::uint64_t(space.f_bfree) * unit;
    return TRUE;
}

BOOL GetVolumeInformationW(const wchar_t* rootPath, wchar_t* volumeName, DWORD volumeNameSize, DWORD* serialNumber,
                           DWORD* maximumComponentLength, DWORD* fileSystemFlags, wchar_t* fileSystemName,
                           DWORD fileSystemNameSize)
{
    Drive drive;
    if (!findDrive(rootPath, drive))
        return FALSE;
    struct statvfs space;
    if (::statvfs(drive.mountPoint.c_str(), &space) != 0) {
        SetLastError(errorOfErrno(errno));
        return FALSE;
    }
    const std::wstring type = zmu_platform::widenUtf8(drive.type.c_str());
    if ((volumeName != nullptr && volumeNameSize < 1) ||
        (fileSystemName != nullptr && fileSystemNameSize < type.size() + 1)) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    if (volumeName != nullptr)
        volumeName[0] = L'\0';
    if (serialNumber != nullptr)
        *serialNumber = DWORD(space.f_fsid);
    if (maximumComponentLength != nullptr)
        *maximumComponentLength = DWORD(space.f_namemax);
    if (fileSystemFlags != nullptr)
        *fileSystemFlags = 0;
    if (fileSystemName != nullptr)
        std::wmemcpy(fileSystemName, type.c_str(), type.size() + 1);
    return TRUE;
}

int GetSystemMetrics(int)
{
    return 0;
}

void SetSystemInformationRoot(const char* root)
{
    std::lock_guard<std::mutex> guard(s_rootLock);
    s_root = root != nullptr ? root : "";
}
