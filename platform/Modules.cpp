#include "platform/Modules.h"

#include "platform/CodePages.h"
#include "platform/LastError.h"
#include "platform/Utf8Text.h"

#include <dlfcn.h>
#include <link.h>
#include <strings.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string>
#include <vector>

namespace {

HMODULE asModule(void* loaderHandle)
{
    return static_cast<HMODULE>(loaderHandle);
}

void* asLoaderHandle(HMODULE module)
{
    return static_cast<void*>(module);
}

// The path under which the loader knows this library, found from the address of one of its
// functions: that is what "zmu.dll" names.
std::string thisLibraryPath()
{
    Dl_info info{};
    if (::dladdr(reinterpret_cast<void*>(&thisLibraryPath), &info) == 0 || info.dli_fname == nullptr)
        return std::string();
    return info.dli_fname;
}

bool endsWithNoCase(const std::string& text, const char* suffix)
{
    const std::size_t size = std::strlen(suffix);
    return text.size() >= size && ::strcasecmp(text.c_str() + text.size() - size, suffix) == 0;
}

// The files that a Windows module name stands for, in the order they are tried. The rule works on
// the file name part: "x.dll" or "x.exe" is "libx.so", then the name as given; a name with no
// extension is taken as "x.dll", as Windows appends that. "zmu.dll" alone is this library.
std::vector<std::string> candidateFiles(const std::string& name)
{
    std::vector<std::string> candidates;
    const std::size_t slash = name.rfind('/');
    const std::string directory = slash == std::string::npos ? std::string() : name.substr(0, slash + 1);
    const std::string file = slash == std::string::npos ? name : name.substr(slash + 1);

    if (directory.empty() && ::strcasecmp(file.c_str(), "zmu.dll") == 0) {
        const std::string self = thisLibraryPath();
        if (!self.empty())
            candidates.push_back(self);
        return candidates;
    }
    if (endsWithNoCase(file, ".dll") || endsWithNoCase(file, ".exe")) {
        candidates.push_back(directory + "lib" + file.substr(0, file.size() - 4) + ".so");
    } else if (!file.empty() && file.find('.') == std::string::npos) {
        candidates.push_back(directory + "lib" + file + ".so");
    }
    if (!file.empty())
        candidates.push_back(name);
    return candidates;
}

// The path of a loaded object whose file name part is `file`: how Windows finds a module loaded
// from any directory by its bare name. The loader only matches the names an object was opened by.
std::string loadedObjectNamed(const std::string& file)
{
    struct Search
    {
        const std::string* file;
        std::string found;
    } search{&file, std::string()};
    ::dl_iterate_phdr(
        [](dl_phdr_info* object, std::size_t, void* data) -> int {
            auto* wanted = static_cast<Search*>(data);
            if (object->dlpi_name == nullptr || object->dlpi_name[0] == '\0')
                return 0;
            const char* slash = std::strrchr(object->dlpi_name, '/');
            const char* base = slash == nullptr ? object->dlpi_name : slash + 1;
            if (*wanted->file != base)
                return 0;
            wanted->found = object->dlpi_name;
            return 1;
        },
        &search);
    return search.found;
}

// The handle of an already loaded module, with the loader's count as it was.
void* findLoaded(const std::string& name)
{
    for (const std::string& candidate : candidateFiles(name)) {
        void* handle = ::dlopen(candidate.c_str(), RTLD_LAZY | RTLD_NOLOAD);
        if (handle == nullptr && candidate.find('/') == std::string::npos) {
            const std::string path = loadedObjectNamed(candidate);
            if (!path.empty())
                handle = ::dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
        }
        if (handle != nullptr) {
            ::dlclose(handle); // RTLD_NOLOAD still counts a reference; GetModuleHandle does not
            return handle;
        }
    }
    return nullptr;
}

void* load(const std::string& name)
{
    // Eager binding and a local scope, like a DLL: its imports are resolved at load, and its
    // names do not join the global scope of the process.
    for (const std::string& candidate : candidateFiles(name)) {
        if (void* handle = ::dlopen(candidate.c_str(), RTLD_NOW | RTLD_LOCAL))
            return handle;
    }
    return nullptr;
}

link_map* linkMapOf(void* handle)
{
    link_map* map = nullptr;
    if (::dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0)
        return nullptr;
    return map;
}

std::string processImagePath()
{
    std::vector<char> path(PATH_MAX);
    for (;;) {
        const ssize_t size = ::readlink("/proc/self/exe", path.data(), path.size());
        if (size < 0)
            return std::string();
        if (static_cast<std::size_t>(size) < path.size())
            return std::string(path.data(), static_cast<std::size_t>(size));
        path.resize(path.size() * 2);
    }
}

// The file of a module: the loader's name of the object, made absolute; the process image has
// an empty name there.
std::string moduleFilePath(HMODULE module)
{
    if (module == nullptr)
        return processImagePath();
    link_map* map = linkMapOf(asLoaderHandle(module));
    if (map == nullptr)
        return std::string();
    if (map->l_name == nullptr || map->l_name[0] == '\0')
        return processImagePath();
    if (map->l_name[0] != '/') {
        if (char* absolute = ::realpath(map->l_name, nullptr)) {
            std::string path(absolute);
            std::free(absolute);
            return path;
        }
    }
    return map->l_name;
}

HMODULE loadNarrow(const char* fileName)
{
    if (fileName == nullptr || *fileName == '\0') {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    void* handle = load(fileName);
    if (handle == nullptr)
        SetLastError(ERROR_MOD_NOT_FOUND);
    return asModule(handle);
}

HMODULE findNarrow(const char* moduleName)
{
    if (moduleName == nullptr) {
        // The process image is never unloaded, so the count raised here may be dropped at once.
        void* handle = ::dlopen(nullptr, RTLD_LAZY);
        if (handle != nullptr)
            ::dlclose(handle);
        return asModule(handle);
    }
    void* handle = *moduleName == '\0' ? nullptr : findLoaded(moduleName);
    if (handle == nullptr)
        SetLastError(ERROR_MOD_NOT_FOUND);
    return asModule(handle);
}

std::string narrowName(const wchar_t* name)
{
    return zmu_platform::narrowToUtf8(name);
}

// Marks a buffer as untouched by a string loader: a loader that does not know an id leaves the
// buffer as it was, one that has an empty string writes a terminator.
constexpr wchar_t kUntouched = static_cast<wchar_t>(0xFFFF);

} // namespace

HMODULE GetModuleHandleW(const wchar_t* moduleName)
{
    if (moduleName == nullptr)
        return findNarrow(nullptr);
    return findNarrow(narrowName(moduleName).c_str());
}

HMODULE GetModuleHandleA(const char* moduleName)
{
    return findNarrow(moduleName);
}

HMODULE LoadLibraryW(const wchar_t* fileName)
{
    if (fileName == nullptr)
        return loadNarrow(nullptr);
    return loadNarrow(narrowName(fileName).c_str());
}

HMODULE LoadLibraryA(const char* fileName)
{
    return loadNarrow(fileName);
}

HMODULE LoadLibraryExW(const wchar_t* fileName, HANDLE reserved, DWORD)
{
    if (reserved != nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return LoadLibraryW(fileName);
}

BOOL FreeLibrary(HMODULE module)
{
    if (module == nullptr || ::dlclose(asLoaderHandle(module)) != 0) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    return TRUE;
}

FARPROC GetProcAddress(HMODULE module, const char* procName)
{
    if (module == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    if (procName == nullptr || *procName == '\0') {
        SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    void* handle = asLoaderHandle(module);
    void* symbol = ::dlsym(handle, procName);
    if (symbol == nullptr) {
        SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    // dlsym also answers from the module's dependencies and, for the process image, from every
    // object in the global scope; an entry counts only where the module itself defines it.
    Dl_info info{};
    link_map* definedIn = nullptr;
    const bool located = ::dladdr1(symbol, &info, reinterpret_cast<void**>(&definedIn), RTLD_DL_LINKMAP) != 0;
    if (!located || definedIn == nullptr || definedIn != linkMapOf(handle)) {
        SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    return reinterpret_cast<FARPROC>(symbol);
}

DWORD GetModuleFileNameW(HMODULE module, wchar_t* fileName, DWORD size)
{
    if (fileName == nullptr && size != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const std::string path = moduleFilePath(module);
    if (path.empty()) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return 0;
    }
    if (size == 0) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    const std::wstring wide = zmu_platform::widenUtf8(path.c_str(), path.size());
    if (wide.size() < size) {
        std::wmemcpy(fileName, wide.c_str(), wide.size() + 1);
        return static_cast<DWORD>(wide.size());
    }
    std::wmemcpy(fileName, wide.c_str(), size - 1);
    fileName[size - 1] = L'\0';
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return size;
}

int LoadStringW(HINSTANCE module, UINT id, wchar_t* buffer, int bufferMax)
{
    // A size of 0 asks Windows for a pointer into the resource itself; a string loader has no
    // such thing to give, so it is refused with the other bad arguments.
    if (buffer == nullptr || bufferMax < 1) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    if (module == nullptr)
        module = GetModuleHandleW(nullptr);
    const auto loader = reinterpret_cast<ZRLoadStringW_Function>(GetProcAddress(module, "ZRLoadStringW"));
    if (loader == nullptr) {
        buffer[0] = L'\0';
        SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
        return 0;
    }
    buffer[0] = kUntouched;
    int count = loader(id, buffer, bufferMax);
    if (count <= 0 && buffer[0] == kUntouched) {
        buffer[0] = L'\0';
        SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
        return 0;
    }
    if (count < 0)
        count = 0;
    if (count > bufferMax - 1)
        count = bufferMax - 1;
    buffer[count] = L'\0';
    SetLastError(ERROR_SUCCESS);
    return count;
}

int LoadStringA(HINSTANCE module, UINT id, char* buffer, int bufferMax)
{
    if (buffer == nullptr || bufferMax < 1) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    // A narrow text of n bytes holds at most n characters, so bufferMax wide units are enough.
    std::vector<wchar_t> wide(static_cast<std::size_t>(bufferMax));
    const int count = LoadStringW(module, id, wide.data(), bufferMax);
    buffer[0] = '\0';
    if (count == 0)
        return 0;
    const std::string narrow = zmu_platform::narrowToUtf8(wide.data(), static_cast<std::size_t>(count));
    std::size_t size = narrow.size();
    if (size > static_cast<std::size_t>(bufferMax - 1)) {
        // Cut before the lead byte of a character that does not fit whole.
        size = static_cast<std::size_t>(bufferMax - 1);
        while (size > 0 && (static_cast<unsigned char>(narrow[size]) & 0xC0) == 0x80)
            --size;
    }
    std::memcpy(buffer, narrow.data(), size);
    buffer[size] = '\0';
    return static_cast<int>(size);
}
