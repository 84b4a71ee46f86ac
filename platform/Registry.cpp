#include "platform/Registry.h"

#include "platform/Utf8Text.h"

#include <dirent.h>
#include <fcntl.h>
#include <locale.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwctype>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace {

constexpr char kDefaultRoot[] = "/var/lib/zmu/registry";
constexpr char kReadOnlyMarker[] = "/readonly";
// A stored name leaves room for the "=" that starts a value file within a 255-byte file name.
constexpr std::size_t kStoredNameMax = 254;

constexpr REGSAM kDelete = 0x00010000;
constexpr REGSAM kReadControl = 0x00020000;
constexpr REGSAM kWriteDac = 0x00040000;
constexpr REGSAM kWriteOwner = 0x00080000;
constexpr REGSAM kWriteRights = KEY_SET_VALUE | KEY_CREATE_SUB_KEY | KEY_CREATE_LINK | kDelete | kWriteDac | kWriteOwner;
constexpr REGSAM kReadRights = KEY_QUERY_VALUE | KEY_ENUMERATE_SUB_KEYS | KEY_NOTIFY | kReadControl;

// A key as a handle names it. A hive (the folder of a predefined key) counts as existing even
// before its folder is made, as the predefined keys always exist on Windows.
struct KeyPlace
{
    std::string root;
    std::string folder;
    REGSAM access = 0;
    bool hive = false;
};

// Open handles step by 4 from 0x1000 and are never reused, so they stay far from the predefined
// values. The table lives to the process's end, since exit-time code may still close keys.
std::mutex s_tableLock;
std::uintptr_t s_lastHandle = 0x1000;
std::unordered_map<std::uintptr_t, KeyPlace>& openKeys()
{
    static auto* keys = new std::unordered_map<std::uintptr_t, KeyPlace>;
    return *keys;
}

std::string storeRoot()
{
    const char* root = std::getenv("ZMU_REGISTRY_ROOT");
    std::string path = root != nullptr && *root != '\0' ? root : kDefaultRoot;
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

bool findKey(HKEY key, KeyPlace& place)
{
    if (key == HKEY_LOCAL_MACHINE || key == HKEY_CURRENT_USER) {
        place.root = storeRoot();
        place.folder = place.root + (key == HKEY_LOCAL_MACHINE ? "/hkey_local_machine" : "/hkey_current_user");
        place.access = KEY_ALL_ACCESS;
        place.hive = true;
        return true;
    }
    std::lock_guard<std::mutex> guard(s_tableLock);
    const auto found = openKeys().find(reinterpret_cast<std::uintptr_t>(key));
    if (found == openKeys().end())
        return false;
    place = found->second;
    return true;
}

HKEY enterKey(KeyPlace place)
{
    std::lock_guard<std::mutex> guard(s_tableLock);
    s_lastHandle += 4;
    openKeys().emplace(s_lastHandle, std::move(place));
    return reinterpret_cast<HKEY>(s_lastHandle);
}

// The lower case of a fixed locale, so that the stored form of a name does not depend on the
// locale the process happens to run in.
wchar_t foldCase(wchar_t c)
{
    static const locale_t s_utf8 = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", locale_t(nullptr));
    if (s_utf8 != locale_t(nullptr))
        return static_cast<wchar_t>(::towlower_l(static_cast<wint_t>(c), s_utf8));
    return c >= L'A' && c <= L'Z' ? wchar_t(c - L'A' + L'a') : c;
}

// The stored form of a name: lower-case UTF-8 with "%XX" for the bytes a file name cannot hold or
// that the layout reserves ("/", "%", "=" that starts a value, "~" that starts a file being
// written, control bytes, and "." at the start, so that "." and ".." stay ordinary names).
bool storeName(const wchar_t* name, std::size_t length, std::string& stored)
{
    std::wstring folded(name, length);
    for (wchar_t& c : folded)
        c = foldCase(c);
    const std::string bytes = zmu_platform::narrowToUtf8(folded.data(), folded.size());
    stored.clear();
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        const auto byte = static_cast<unsigned char>(bytes[at]);
        if (byte < 0x20 || byte == 0x7F || byte == '/' || byte == '%' || byte == '=' || byte == '~' ||
            (at == 0 && byte == '.')) {
            char escaped[4];
            std::snprintf(escaped, sizeof escaped, "%%%02X", byte);
            stored += escaped;
        } else {
            stored += static_cast<char>(byte);
        }
    }
    return stored.size() <= kStoredNameMax;
}

bool storeName(const wchar_t* name, std::string& stored)
{
    return storeName(name != nullptr ? name : L"", name != nullptr ? std::wcslen(name) : 0, stored);
}

int hexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

bool readStoredName(const std::string& stored, std::wstring& name)
{
    std::string bytes;
    for (std::size_t at = 0; at < stored.size(); ++at) {
        if (stored[at] != '%') {
            bytes += stored[at];
            continue;
        }
        if (at + 2 >= stored.size() || hexDigit(stored[at + 1]) < 0 || hexDigit(stored[at + 2]) < 0)
            return false;
        bytes += static_cast<char>(hexDigit(stored[at + 1]) * 16 + hexDigit(stored[at + 2]));
        at += 2;
    }
    name = zmu_platform::widenUtf8(bytes.data(), bytes.size());
    return true;
}

// The stored folder names of a key path "a\b\c". One trailing "\" is ignored.
DWORD splitKeyPath(const wchar_t* subKey, std::vector<std::string>& parts)
{
    if (subKey == nullptr || *subKey == L'\0')
        return ERROR_SUCCESS;
    const wchar_t* start = subKey;
    for (;;) {
        const wchar_t* end = start;
        while (*end != L'\0' && *end != L'\\')
            ++end;
        if (end == start)
            return ERROR_BAD_PATHNAME;
        std::string stored;
        if (!storeName(start, static_cast<std::size_t>(end - start), stored))
            return ERROR_INVALID_PARAMETER;
        parts.push_back(std::move(stored));
        if (*end == L'\0' || end[1] == L'\0')
            return ERROR_SUCCESS;
        start = end + 1;
    }
}

DWORD fromErrno(int error)
{
    switch (error) {
    case EACCES:
    case EPERM:
    case EROFS:
        return ERROR_ACCESS_DENIED;
    case ENOSPC:
    case EDQUOT:
        return ERROR_DISK_FULL;
    default:
        return ERROR_REGISTRY_IO_FAILED;
    }
}

bool isFolder(const std::string& path)
{
    struct stat status{};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::string nearestExistingFolder(std::string path)
{
    while (!isFolder(path)) {
        const std::size_t slash = path.rfind('/');
        if (slash == std::string::npos || slash == 0)
            return "/";
        path.erase(slash);
    }
    return path;
}

// Whether the store refuses changes in `folder`: a "readonly" file at the root, or a folder the
// process may not write (permissions, a read-only mount).
bool refusesWriting(const std::string& root, const std::string& folder)
{
    if (::access((root + kReadOnlyMarker).c_str(), F_OK) == 0)
        return true;
    if (::access(folder.c_str(), W_OK) == 0)
        return false;
    return errno == EACCES || errno == EPERM || errno == EROFS;
}

bool refusesReading(const std::string& folder)
{
    return ::access(folder.c_str(), R_OK | X_OK) != 0 && (errno == EACCES || errno == EPERM);
}

// Makes the folder and any missing folder above it; `made` tells whether the last one was new.
DWORD makeFolders(const std::string& folder, bool& made)
{
    made = false;
    for (std::size_t slash = folder.find('/', 1);; slash = folder.find('/', slash + 1)) {
        const std::string step = folder.substr(0, slash);
        made = !isFolder(step);
        if (made && ::mkdir(step.c_str(), 0755) != 0) {
            if (errno != EEXIST)
                return fromErrno(errno);
            if (!isFolder(step))
                return ERROR_REGISTRY_CORRUPT; // a file stands where the key's folder belongs
            made = false;                      // made meanwhile by another caller
        }
        if (slash == std::string::npos)
            return ERROR_SUCCESS;
    }
}

// Whether a key that is being opened exists and may be opened with `access`.
DWORD checkOpening(const KeyPlace& place, REGSAM access)
{
    struct stat status{};
    if (!place.hive && ::stat(place.folder.c_str(), &status) != 0)
        return errno == ENOENT || errno == ENOTDIR ? ERROR_FILE_NOT_FOUND : fromErrno(errno);
    if (!place.hive && !S_ISDIR(status.st_mode))
        return ERROR_FILE_NOT_FOUND;
    if ((access & kWriteRights) != 0 && refusesWriting(place.root, nearestExistingFolder(place.folder)))
        return ERROR_ACCESS_DENIED;
    if ((access & kReadRights) != 0 && refusesReading(place.folder))
        return ERROR_ACCESS_DENIED;
    return ERROR_SUCCESS;
}

// ---- Values --------------------------------------------------------------------------------------

struct StoredValue
{
    DWORD type = REG_NONE;
    std::string bytes;
};

std::string valueFile(const std::string& folder, const std::string& storedName)
{
    return folder + "/=" + storedName;
}

std::string valueHeader(DWORD type, DWORD size)
{
    char header[64];
    std::snprintf(header, sizeof header, "zmu-registry-value 1 type=%u size=%u\n", unsigned(type), unsigned(size));
    return header;
}

// A value file is its header line and then exactly `size` bytes of data. The header is read back
// by writing it again from the numbers found, so that only the one spelling counts.
bool parseValue(const std::string& content, StoredValue& value)
{
    const std::size_t lineEnd = content.find('\n');
    if (lineEnd == std::string::npos || lineEnd >= 64)
        return false;
    unsigned long type = 0;
    unsigned long size = 0;
    if (std::sscanf(content.c_str(), "zmu-registry-value 1 type=%lu size=%lu", &type, &size) != 2 ||
        type > 0xFFFFFFFFUL || size != content.size() - lineEnd - 1 ||
        valueHeader(DWORD(type), DWORD(size)) != content.substr(0, lineEnd + 1))
        return false;
    value.type = DWORD(type);
    value.bytes = content.substr(lineEnd + 1);
    return true;
}

DWORD readValue(const std::string& file, StoredValue& value)
{
    const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return errno == ENOENT || errno == ENOTDIR ? ERROR_FILE_NOT_FOUND : fromErrno(errno);
    std::string content;
    char block[4096];
    for (;;) {
        const ssize_t got = ::read(fd, block, sizeof block);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0) {
            const int error = errno;
            ::close(fd);
            return fromErrno(error);
        }
        if (got == 0)
            break;
        content.append(block, static_cast<std::size_t>(got));
    }
    ::close(fd);
    return parseValue(content, value) ? ERROR_SUCCESS : ERROR_REGISTRY_CORRUPT;
}

bool writeAll(int fd, const std::string& bytes)
{
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t put = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (put < 0 && errno == EINTR)
            continue;
        if (put <= 0)
            return false;
        done += static_cast<std::size_t>(put);
    }
    return true;
}

// Written to a new file in the key's folder and renamed over the value, so that a reader sees the
// whole old value or the whole new one. Not synced: as on Windows, a set value reaches the disk
// lazily.
DWORD writeValue(const std::string& folder, const std::string& storedName, DWORD type, const BYTE* data, DWORD size)
{
    std::string content = valueHeader(type, size);
    if (size != 0)
        content.append(reinterpret_cast<const char*>(data), size);
    std::string temporary = folder + "/~XXXXXX";
    const int fd = ::mkostemp(&temporary[0], O_CLOEXEC);
    if (fd < 0)
        return errno == ENOENT || errno == ENOTDIR ? ERROR_KEY_DELETED : fromErrno(errno);
    bool written = writeAll(fd, content) && ::fchmod(fd, 0644) == 0;
    int error = errno;
    if (::close(fd) != 0 && written) {
        written = false;
        error = errno;
    }
    if (written && ::rename(temporary.c_str(), valueFile(folder, storedName).c_str()) == 0)
        return ERROR_SUCCESS;
    if (written)
        error = errno;
    ::unlink(temporary.c_str());
    return fromErrno(error);
}

// ---- Listing ------------------------------------------------------------------------------------

struct Entry
{
    std::wstring name;
    std::string stored;
    bool operator<(const Entry& other) const { return name < other.name; }
};

struct KeyContents
{
    std::vector<Entry> subKeys;
    std::vector<Entry> values;
};

DWORD listKey(const KeyPlace& place, KeyContents& contents)
{
    DIR* folder = ::opendir(place.folder.c_str());
    if (folder == nullptr) {
        if (errno == ENOENT || errno == ENOTDIR)
            return place.hive ? ERROR_SUCCESS : ERROR_KEY_DELETED;
        return fromErrno(errno);
    }
    while (const dirent* item = ::readdir(folder)) {
        const std::string stored = item->d_name;
        if (stored == "." || stored == ".." || stored[0] == '~')
            continue;
        Entry entry;
        if (stored[0] == '=') {
            entry.stored = stored.substr(1);
            if (readStoredName(entry.stored, entry.name))
                contents.values.push_back(std::move(entry));
            continue;
        }
        bool isSubFolder = item->d_type == DT_DIR;
        if (item->d_type == DT_UNKNOWN) {
            struct stat status{};
            isSubFolder = ::fstatat(::dirfd(folder), item->d_name, &status, 0) == 0 && S_ISDIR(status.st_mode);
        }
        entry.stored = stored;
        if (isSubFolder && readStoredName(stored, entry.name))
            contents.subKeys.push_back(std::move(entry));
    }
    ::closedir(folder);
    std::sort(contents.subKeys.begin(), contents.subKeys.end());
    std::sort(contents.values.begin(), contents.values.end());
    return ERROR_SUCCESS;
}

FILETIME changeTime(const std::string& path)
{
    struct stat status{};
    FILETIME time{0, 0};
    if (::stat(path.c_str(), &status) != 0)
        return time;
    constexpr long long kSecondsFrom1601To1970 = 11644473600LL;
    const long long seconds = static_cast<long long>(status.st_mtim.tv_sec) + kSecondsFrom1601To1970;
    if (seconds < 0)
        return time;
    const unsigned long long ticks = static_cast<unsigned long long>(seconds) * 10000000ULL +
                                     static_cast<unsigned long long>(status.st_mtim.tv_nsec / 100);
    time.dwLowDateTime = static_cast<DWORD>(ticks);
    time.dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    return time;
}

} // namespace

LONG RegOpenKeyExW(HKEY key, const wchar_t* subKey, DWORD options, REGSAM access, HKEY* result)
{
    if (result != nullptr)
        *result = nullptr;
    KeyPlace place;
    if (!findKey(key, place))
        return ERROR_INVALID_HANDLE;
    if (result == nullptr || (options & ~REG_OPTION_OPEN_LINK) != 0)
        return ERROR_INVALID_PARAMETER;
    std::vector<std::string> parts;
    if (const DWORD error = splitKeyPath(subKey, parts))
        return LONG(error);
    for (const std::string& part : parts)
        place.folder += "/" + part;
    place.hive = place.hive && parts.empty();
    if (const DWORD error = checkOpening(place, access))
        return LONG(error);
    place.access = access;
    *result = enterKey(std::move(place));
    return ERROR_SUCCESS;
}

LONG RegCreateKeyExW(HKEY key, const wchar_t* subKey, DWORD reserved, wchar_t* keyClass, DWORD options,
                     REGSAM access, void* securityAttributes, HKEY* result, DWORD* disposition)
{
    static_cast<void>(keyClass);
    static_cast<void>(securityAttributes);
    if (result != nullptr)
        *result = nullptr;
    KeyPlace place;
    if (!findKey(key, place))
        return ERROR_INVALID_HANDLE;
    if (subKey == nullptr || result == nullptr || reserved != 0 || (options & ~REG_OPTION_VOLATILE) != 0)
        return ERROR_INVALID_PARAMETER;
    std::vector<std::string> parts;
    if (const DWORD error = splitKeyPath(subKey, parts))
        return LONG(error);
    if (!place.hive && !isFolder(place.folder))
        return ERROR_KEY_DELETED;
    const std::string base = place.folder;
    for (const std::string& part : parts)
        place.folder += "/" + part;
    place.hive = place.hive && parts.empty();

    bool made = false;
    if (!isFolder(place.folder)) {
        if (refusesWriting(place.root, nearestExistingFolder(place.folder)))
            return ERROR_ACCESS_DENIED;
        if (const DWORD error = makeFolders(place.folder, made))
            return LONG(error);
        made = made && place.folder != base;
    }
    if (const DWORD error = checkOpening(place, access))
        return LONG(error);
    place.access = access;
    *result = enterKey(std::move(place));
    if (disposition != nullptr)
        *disposition = made ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
    return ERROR_SUCCESS;
}

LONG RegQueryValueExW(HKEY key, const wchar_t* name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* dataSize)
{
    KeyPlace place;
    if (!findKey(key, place))
        return ERROR_INVALID_HANDLE;
    if (reserved != nullptr || (data != nullptr && dataSize == nullptr))
        return ERROR_INVALID_PARAMETER;
    if ((place.access & KEY_QUERY_VALUE) == 0)
        return ERROR_ACCESS_DENIED;
    std::string stored;
    if (!storeName(name, stored))
        return ERROR_FILE_NOT_FOUND; // too long to have been stored
    StoredValue value;
    if (const DWORD error = readValue(valueFile(place.folder, stored), value))
        return LONG(error);
    if (type != nullptr)
        *type = value.type;
    const auto size = static_cast<DWORD>(value.bytes.size());
    if (data == nullptr) {
        if (dataSize != nullptr)
            *dataSize = size;
        return ERROR_SUCCESS;
    }
    if (*dataSize < size) {
        *dataSize = size;
        return ERROR_MORE_DATA;
    }
    std::memcpy(data, value.bytes.data(), size);
    *dataSize = size;
    return ERROR_SUCCESS;
}

LONG RegSetValueExW(HKEY key, const wchar_t* name, DWORD reserved, DWORD type, const BYTE* data, DWORD size)
{
    KeyPlace place;
    if (!findKey(key, place))
        return ERROR_INVALID_HANDLE;
    std::string stored;
    if (reserved != 0 || (data == nullptr && size != 0) || !storeName(name, stored))
        return ERROR_INVALID_PARAMETER;
    if ((place.access & KEY_SET_VALUE) == 0)
        return ERROR_ACCESS_DENIED;
    const bool folderExists = isFolder(place.folder);
    if (!folderExists && !place.hive)
        return ERROR_KEY_DELETED;
    if (refusesWriting(place.root, nearestExistingFolder(place.folder)))
        return ERROR_ACCESS_DENIED;
    bool made = false;
    if (!folderExists)
        if (const DWORD error = makeFolders(place.folder, made))
            return LONG(error);
    return LONG(writeValue(place.folder, stored, type, data, size));
}

LONG RegEnumKeyExW(HKEY key, DWORD index, wchar_t* name, DWORD* nameSize, DWORD* reserved, wchar_t* keyClass,
                   DWORD* keyClassSize, FILETIME* lastWriteTime)
{
    KeyPlace place;
    if (!findKey(key, place))
        return ERROR_INVALID_HANDLE;
    if (name == nullptr || nameSize == nullptr || reserved != nullptr || (keyClass != nullptr && keyClassSize == nullptr))
        return ERROR_INVALID_PARAMETER;
    if ((place.access & KEY_ENUMERATE_SUB_KEYS) == 0)
        return ERROR_ACCESS_DENIED;
    KeyContents contents;
    if (const DWORD error = listKey(place, contents))
        return LONG(error);
    if (index >= contents.subKeys.size())
        return ERROR_NO_MORE_ITEMS;
    const Entry& found = contents.subKeys[index];
    if (found.name.size() + 1 > *nameSize || (keyClass != nullptr && *keyClassSize < 1))
        return ERROR_MORE_DATA;
    std::wmemcpy(name, found.name.c_str(), found.name.size() + 1);
    *nameSize = static_cast<DWORD>(found.name.size());
    if (keyClass != nullptr) {
        keyClass[0] = L'\0';
        *keyClassSize = 0;
    }
    if (lastWriteTime != nullptr)
        *lastWriteTime = changeTime(place.folder + "/" + found.stored);
    return ERROR_SUCCESS;
}

LONG RegQueryInfoKeyW(HKEY key, wchar_t* keyClass, DWORD* keyClassSize, DWORD* reserved, DWORD* subKeys,
                      DWORD* maxSubKeyLength, DWORD* maxClassLength, DWORD* values, DWORD* maxValueNameLength,
                      DWORD* maxValueLength, DWORD* securityDescriptorSize, FILETIME* lastWriteTime)
{
    KeyPlace place;
    if (!findKey(key, place))
        return ERROR_INVALID_HANDLE;
    if (reserved != nullptr || (keyClass != nullptr && keyClassSize == nullptr))
        return ERROR_INVALID_PARAMETER;
    if ((place.access & KEY_QUERY_VALUE) == 0)
        return ERROR_ACCESS_DENIED;
    KeyContents contents;
    if (const DWORD error = listKey(place, contents))
        return LONG(error);
    if (keyClass != nullptr && *keyClassSize < 1)
        return ERROR_MORE_DATA;

    std::size_t longestSubKey = 0;
    for (const Entry& entry : contents.subKeys)
        longestSubKey = std::max(longestSubKey, entry.name.size());
    std::size_t longestValueName = 0;
    std::size_t largestValue = 0;
    for (const Entry& entry : contents.values) {
        longestValueName = std::max(longestValueName, entry.name.size());
        StoredValue value;
        if (readValue(valueFile(place.folder, entry.stored), value) == ERROR_SUCCESS)
            largestValue = std::max(largestValue, value.bytes.size());
    }
    if (keyClass != nullptr)
        keyClass[0] = L'\0';
    const std::pair<DWORD*, std::size_t> outputs[] = {
        {keyClassSize, 0},          {subKeys, contents.subKeys.size()},    {maxSubKeyLength, longestSubKey},
        {maxClassLength, 0},        {values, contents.values.size()},      {maxValueNameLength, longestValueName},
        {maxValueLength, largestValue}, {securityDescriptorSize, 0}};
    for (const auto& [output, number] : outputs) {
        if (output != nullptr)
            *output = static_cast<DWORD>(number);
    }
    if (lastWriteTime != nullptr)
        *lastWriteTime = changeTime(place.folder);
    return ERROR_SUCCESS;
}

LONG RegCloseKey(HKEY key)
{
    if (key == HKEY_LOCAL_MACHINE || key == HKEY_CURRENT_USER)
        return ERROR_SUCCESS;
    std::lock_guard<std::mutex> guard(s_tableLock);
    return openKeys().erase(reinterpret_cast<std::uintptr_t>(key)) == 1 ? LONG(ERROR_SUCCESS) : LONG(ERROR_INVALID_HANDLE);
}
