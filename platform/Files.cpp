#include "platform/Files.h"

#include "platform/HandleTable.h"
#include "platform/LastError.h"
#include "platform/Utf8Text.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <glob.h>
#include <gnu/libc-version.h>
#include <strings.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace {

using zmu_platform::HandleObject;

class OpenFile : public HandleObject
{
public:
    explicit OpenFile(int descriptor) : fd(descriptor) {}
    ~OpenFile() override { ::close(fd); }
    const int fd;
};

// Holds a descriptor of its own, so that the mapping outlives the file's handle as on Windows.
class FileMapping : public HandleObject
{
public:
    FileMapping(int descriptor, std::size_t bytes) : fd(descriptor), size(bytes) {}
    ~FileMapping() override { ::close(fd); }
    const int fd;
    const std::size_t size;
};

template <class Object>
Object* objectOf(HANDLE handle)
{
    auto* object = dynamic_cast<Object*>(zmu_platform::objectBehindHandle(handle));
    if (object == nullptr)
        SetLastError(ERROR_INVALID_HANDLE);
    return object;
}

bool statusOf(int fd, struct stat& status)
{
    if (::fstat(fd, &status) == 0)
        return true;
    SetLastError(ERROR_INVALID_HANDLE);
    return false;
}

DWORD errorOfErrno(int error)
{
    switch (error) {
    case ENOENT:
        return ERROR_FILE_NOT_FOUND;
    case ENOTDIR:
    case ENAMETOOLONG:
        return ERROR_PATH_NOT_FOUND;
    case ENOMEM:
        return ERROR_NOT_ENOUGH_MEMORY;
    default:
        return ERROR_ACCESS_DENIED;
    }
}

FILETIME fileTimeOf(const timespec& moment)
{
    // 100-ns ticks from 1601-01-01 to 1970-01-01.
    constexpr std::uint64_t kUnixEpochTicks = 116444736000000000ULL;
    const std::int64_t ticks = static_cast<std::int64_t>(moment.tv_sec) * 10000000 + moment.tv_nsec / 100;
    const std::uint64_t value =
        ticks < -static_cast<std::int64_t>(kUnixEpochTicks) ? 0 : kUnixEpochTicks + static_cast<std::uint64_t>(ticks);
    return FILETIME{static_cast<DWORD>(value), static_cast<DWORD>(value >> 32)};
}

// The views by base address with their lengths, which munmap needs. Lives to the process's end,
// like the handle table.
std::mutex s_viewLock;
std::map<const void*, std::size_t>& liveViews()
{
    static auto* views = new std::map<const void*, std::size_t>;
    return *views;
}

// ---- The file search ----------------------------------------------------------------------------

bool endsWithNoCase(const std::string& text, const char* suffix)
{
    const std::size_t size = std::strlen(suffix);
    return text.size() >= size && ::strcasecmp(text.c_str() + text.size() - size, suffix) == 0;
}

// The module-name rule of LoadLibraryW on a file name: "x.dll" or "x.exe" is "libx.so", then the
// name as given. Unlike LoadLibraryW, a name without extension gets none.
std::vector<std::string> candidateFiles(const std::string& file)
{
    std::vector<std::string> candidates;
    if (endsWithNoCase(file, ".dll") || endsWithNoCase(file, ".exe"))
        candidates.push_back("lib" + file.substr(0, file.size() - 4) + ".so");
    candidates.push_back(file);
    return candidates;
}

void appendList(const std::string& list, const char* separators, std::vector<std::string>& directories)
{
    std::size_t start = 0;
    while (start <= list.size()) {
        const std::size_t end = list.find_first_of(separators, start);
        const std::string item = list.substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (!item.empty())
            directories.push_back(item);
        if (end == std::string::npos)
            break;
        start = end + 1;
    }
}

// The directories of an ld.so.conf file and the files it includes, in order.
void readLoaderConfiguration(const std::string& file, int depth, std::vector<std::string>& directories)
{
    std::ifstream in(file);
    std::string line;
    while (depth < 8 && std::getline(in, line)) {
        line = line.substr(0, line.find('#'));
        const std::size_t first = line.find_first_not_of(" \t\r");
        if (first == std::string::npos)
            continue;
        line = line.substr(first, line.find_last_not_of(" \t\r") - first + 1);
        if (line.compare(0, 8, "include ") == 0 || line.compare(0, 8, "include\t") == 0) {
            std::string pattern = line.substr(line.find_first_not_of(" \t", 8));
            if (pattern[0] != '/')
                pattern = file.substr(0, file.rfind('/') + 1) + pattern;
            glob_t matches{};
            if (::glob(pattern.c_str(), 0, nullptr, &matches) == 0) {
                for (std::size_t i = 0; i < matches.gl_pathc; ++i)
                    readLoaderConfiguration(matches.gl_pathv[i], depth + 1, directories);
            }
            ::globfree(&matches);
        } else if (line.compare(0, 5, "hwcap") != 0) {
            std::vector<std::string> items;
            appendList(line, " \t:,", items);
            for (std::string& item : items) {
                item = item.substr(0, item.find('=')); // an old "dir=libc5" names a library type
                if (!item.empty() && item[0] == '/')
                    directories.push_back(item);
            }
        }
    }
}

// The system's library directories: what ld.so.conf lists, then the loader's trusted ones. Read
// once per process.
const std::vector<std::string>& systemLibraryDirectories()
{
    static const std::vector<std::string> directories = [] {
        std::vector<std::string> found;
        readLoaderConfiguration("/etc/ld.so.conf", 0, found);
#if defined(__x86_64__)
        const std::string multiarch = "x86_64-linux-gnu";
#elif defined(__aarch64__)
        const std::string multiarch = "aarch64-linux-gnu";
#elif defined(__i386__)
        const std::string multiarch = "i386-linux-gnu";
#else
        const std::string multiarch;
#endif
        if (!multiarch.empty()) {
            found.push_back("/lib/" + multiarch);
            found.push_back("/usr/lib/" + multiarch);
        }
        for (const char* directory : {"/lib", "/usr/lib", "/usr/local/lib"})
            found.push_back(directory);
        return found;
    }();
    return directories;
}

std::string programDirectory()
{
    char path[4096];
    const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path - 1);
    if (length <= 0)
        return std::string();
    const std::string program(path, static_cast<std::size_t>(length));
    return program.substr(0, program.rfind('/'));
}

std::vector<std::string> defaultSearchOrder()
{
    std::vector<std::string> directories;
    const std::string program = programDirectory();
    if (!program.empty())
        directories.push_back(program);
    if (const char* libraryPath = std::getenv("LD_LIBRARY_PATH"))
        appendList(libraryPath, ":;", directories);
    const std::vector<std::string>& system = systemLibraryDirectories();
    directories.insert(directories.end(), system.begin(), system.end());
    return directories;
}

bool isFile(const std::string& path)
{
    struct stat status{};
    return ::stat(path.c_str(), &status) == 0 && !S_ISDIR(status.st_mode);
}

std::string joinPath(const std::string& directory, const std::string& file)
{
    if (directory.empty() || directory.back() == '/')
        return directory + file;
    return directory + "/" + file;
}

std::string absolutePath(const std::string& path)
{
    if (!path.empty() && path[0] == '/')
        return path;
    char directory[4096];
    if (::getcwd(directory, sizeof directory) == nullptr)
        return path;
    return joinPath(directory, path);
}

// Copies `text` out under the size rule of GetSystemDirectoryW.
UINT copyOut(const std::string& text, wchar_t* buffer, UINT size)
{
    const std::wstring wide = zmu_platform::widenUtf8(text.c_str(), text.size());
    if (buffer == nullptr || size < wide.size() + 1)
        return static_cast<UINT>(wide.size() + 1);
    std::wmemcpy(buffer, wide.c_str(), wide.size() + 1);
    return static_cast<UINT>(wide.size());
}

} // namespace

HANDLE CreateFileW(const wchar_t* fileName, DWORD access, DWORD /*shareMode*/, void* /*securityAttributes*/,
                   DWORD disposition, DWORD /*flagsAndAttributes*/, HANDLE /*templateFile*/)
{
    if (fileName == nullptr || access != GENERIC_READ || disposition != OPEN_EXISTING) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    const std::string path = zmu_platform::narrowToUtf8(fileName);
    int fd;
    do {
        fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) {
        SetLastError(errorOfErrno(errno));
        return INVALID_HANDLE_VALUE;
    }
    struct stat status{};
    if (::fstat(fd, &status) != 0 || S_ISDIR(status.st_mode)) {
        ::close(fd);
        SetLastError(ERROR_ACCESS_DENIED);
        return INVALID_HANDLE_VALUE;
    }
    return zmu_platform::openObjectHandle(std::make_unique<OpenFile>(fd));
}

DWORD GetFileSize(HANDLE file, DWORD* sizeHigh)
{
    const OpenFile* open = objectOf<OpenFile>(file);
    struct stat status{};
    if (open == nullptr || !statusOf(open->fd, status))
        return INVALID_FILE_SIZE;
    const auto size = static_cast<std::uint64_t>(status.st_size);
    if (sizeHigh != nullptr)
        *sizeHigh = static_cast<DWORD>(size >> 32);
    if (static_cast<DWORD>(size) == INVALID_FILE_SIZE)
        SetLastError(ERROR_SUCCESS);
    return static_cast<DWORD>(size);
}

BOOL GetFileTime(HANDLE file, FILETIME* creation, FILETIME* lastAccess, FILETIME* lastWrite)
{
    const OpenFile* open = objectOf<OpenFile>(file);
    struct stat status{};
    if (open == nullptr || !statusOf(open->fd, status))
        return FALSE;
    if (creation != nullptr)
        *creation = fileTimeOf(status.st_ctim);
    if (lastAccess != nullptr)
        *lastAccess = fileTimeOf(status.st_atim);
    if (lastWrite != nullptr)
        *lastWrite = fileTimeOf(status.st_mtim);
    return TRUE;
}

HANDLE CreateFileMappingW(HANDLE file, void* /*securityAttributes*/, DWORD protect, DWORD maximumSizeHigh,
                          DWORD maximumSizeLow, const wchar_t* name)
{
    const OpenFile* open = objectOf<OpenFile>(file);
    if (open == nullptr)
        return nullptr;
    if (protect != PAGE_READONLY || maximumSizeHigh != 0 || maximumSizeLow != 0 || name != nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    struct stat status{};
    if (!statusOf(open->fd, status))
        return nullptr;
    if (status.st_size <= 0) {
        SetLastError(ERROR_FILE_INVALID);
        return nullptr;
    }
    const int fd = ::fcntl(open->fd, F_DUPFD_CLOEXEC, 0);
    if (fd < 0) {
        SetLastError(errorOfErrno(errno));
        return nullptr;
    }
    return zmu_platform::openObjectHandle(std::make_unique<FileMapping>(fd, static_cast<std::size_t>(status.st_size)));
}

void* MapViewOfFile(HANDLE mapping, DWORD access, DWORD offsetHigh, DWORD offsetLow, std::size_t bytes)
{
    const FileMapping* source = objectOf<FileMapping>(mapping);
    if (source == nullptr)
        return nullptr;
    if (access != FILE_MAP_READ || offsetHigh != 0 || offsetLow != 0 || bytes > source->size) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    const std::size_t length = bytes == 0 ? source->size : bytes;
    void* base = ::mmap(nullptr, length, PROT_READ, MAP_PRIVATE, source->fd, 0);
    if (base == MAP_FAILED) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    std::lock_guard<std::mutex> guard(s_viewLock);
    liveViews()[base] = length;
    return base;
}

BOOL UnmapViewOfFile(const void* base)
{
    std::size_t length = 0;
    {
        std::lock_guard<std::mutex> guard(s_viewLock);
        auto found = liveViews().find(base);
        if (found == liveViews().end()) {
            SetLastError(ERROR_INVALID_ADDRESS);
            return FALSE;
        }
        length = found->second;
        liveViews().erase(found);
    }
    ::munmap(const_cast<void*>(base), length);
    return TRUE;
}

DWORD SearchPathW(const wchar_t* path, const wchar_t* fileName, const wchar_t* extension, DWORD bufferLength,
                  wchar_t* buffer, wchar_t** filePart)
{
    if (fileName == nullptr || fileName[0] == L'\0' || (buffer == nullptr && bufferLength != 0)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    std::string name = zmu_platform::narrowToUtf8(fileName);
    const std::size_t slash = name.rfind('/');
    const std::string file = slash == std::string::npos ? name : name.substr(slash + 1);
    if (extension != nullptr && file.find('.') == std::string::npos)
        name += zmu_platform::narrowToUtf8(extension);

    std::vector<std::string> directories;
    if (slash != std::string::npos)
        directories.push_back(name.substr(0, slash + 1));
    else if (path != nullptr)
        appendList(zmu_platform::narrowToUtf8(path), ":;", directories);
    else
        directories = defaultSearchOrder();
    const std::string wanted = slash == std::string::npos ? name : name.substr(slash + 1);

    std::string found;
    for (const std::string& directory : directories) {
        for (const std::string& candidate : candidateFiles(wanted)) {
            const std::string full = joinPath(directory, candidate);
            if (isFile(full)) {
                found = absolutePath(full);
                break;
            }
        }
        if (!found.empty())
            break;
    }
    if (found.empty()) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return 0;
    }
    const std::wstring wide = zmu_platform::widenUtf8(found.c_str(), found.size());
    if (bufferLength < wide.size() + 1)
        return static_cast<DWORD>(wide.size() + 1);
    std::wmemcpy(buffer, wide.c_str(), wide.size() + 1);
    if (filePart != nullptr)
        *filePart = buffer + wide.rfind(L'/') + 1;
    return static_cast<DWORD>(wide.size());
}

UINT GetSystemDirectoryW(wchar_t* buffer, UINT size)
{
    // A glibc function that no sanitizer intercepts, so that its address lies in the C library.
    Dl_info info{};
    const char* library = nullptr;
    if (::dladdr(reinterpret_cast<void*>(&::gnu_get_libc_version), &info) != 0)
        library = info.dli_fname;
    const char* slash = library == nullptr ? nullptr : std::strrchr(library, '/');
    if (slash == nullptr || slash == library) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return 0;
    }
    return copyOut(std::string(library, static_cast<std::size_t>(slash - library)), buffer, size);
}

UINT GetKernelImagePathW(wchar_t* buffer, UINT size)
{
    struct utsname system{};
    if (::uname(&system) != 0 || system.release[0] == '\0') {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return 0;
    }
    return copyOut(std::string("/boot/vmlinuz-") + system.release, buffer, size);
}
