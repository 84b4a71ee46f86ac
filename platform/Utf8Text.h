// UTF-8 and wide text helpers shared by the platform sources; the rest of the library converts
// through MultiByteToWideChar and WideCharToMultiByte.
#pragma once

#include <cstddef>
#include <string>

namespace zmu_platform {

// Decodes UTF-8 that comes from the system (paths, environment values) and must not be lost:
// each byte of an invalid or cut sequence becomes U+FFFD instead of failing the whole text.
std::wstring widenUtf8(const char* text, std::size_t length);
std::wstring widenUtf8(const char* text);

// Encodes wide text as UTF-8; a value that is no Unicode scalar value becomes U+FFFD.
std::string narrowToUtf8(const wchar_t* text, std::size_t length);
std::string narrowToUtf8(const wchar_t* text);

} // namespace zmu_platform
