#include "platform/Environment.h"

#include "platform/LastError.h"
#include "platform/Utf8Text.h"

#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string>

namespace {

// The value of a variable in the text's own width, or false if it is not set.
bool lookUp(const std::string& name, std::string& value)
{
    const char* found = name.empty() ? nullptr : std::getenv(name.c_str());
    if (found == nullptr)
        return false;
    value = found;
    return true;
}

bool lookUp(const std::wstring& name, std::wstring& value)
{
    std::string narrowValue;
    if (!lookUp(zmu_platform::narrowToUtf8(name.data(), name.size()), narrowValue))
        return false;
    value = zmu_platform::widenUtf8(narrowValue.data(), narrowValue.size());
    return true;
}

// Replaces each %NAME% of a defined variable by its value. An undefined reference is copied
// whole, both % signs with it, and the scan goes on after its closing %; a % with no closing one
// is copied as it stands.
template <typename Char>
std::basic_string<Char> expand(const Char* source)
{
    using Text = std::basic_string<Char>;
    Text result;
    Text value;
    const Char* at = source;
    while (*at != 0) {
        if (*at != Char('%')) {
            result.push_back(*at++);
            continue;
        }
        const Char* close = at + 1;
        while (*close != 0 && *close != Char('%'))
            ++close;
        if (*close == 0) {
            result.append(at);
            break;
        }
        if (lookUp(Text(at + 1, close), value))
            result.append(value);
        else
            result.append(at, close + 1);
        at = close + 1;
    }
    return result;
}

template <typename Char>
DWORD expandInto(const Char* source, Char* destination, DWORD size)
{
    if (source == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const std::basic_string<Char> result = expand(source);
    const DWORD needed = static_cast<DWORD>(result.size() + 1);
    if (destination != nullptr && needed <= size)
        std::memcpy(destination, result.c_str(), needed * sizeof(Char));
    return needed;
}

} // namespace

DWORD ExpandEnvironmentStringsW(const wchar_t* source, wchar_t* destination, DWORD size)
{
    return expandInto(source, destination, size);
}

DWORD ExpandEnvironmentStringsA(const char* source, char* destination, DWORD size)
{
    return expandInto(source, destination, size);
}

DWORD GetTempPathW(DWORD size, wchar_t* buffer)
{
    const char* directory = std::getenv("TMPDIR");
    if (directory == nullptr || *directory == '\0')
        directory = "/tmp";
    std::wstring path = zmu_platform::widenUtf8(directory);
    if (path.back() != L'/')
        path.push_back(L'/');
    const DWORD length = static_cast<DWORD>(path.size());
    if (buffer == nullptr || length >= size) {
        if (buffer == nullptr && size != 0) {
            SetLastError(ERROR_INVALID_PARAMETER);
            return 0;
        }
        return length + 1;
    }
    std::wmemcpy(buffer, path.c_str(), path.size() + 1);
    return length;
}
