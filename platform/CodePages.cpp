#include "platform/CodePages.h"

#include "platform/LastError.h"
#include "platform/Utf8Text.h"

#include <climits>
#include <cstring>
#include <cwchar>

namespace {
constexpr char32_t kReplacement = 0xFFFD;
constexpr char kReplacementUtf8[] = "\xEF\xBF\xBD";

bool isUtf8CodePage(UINT codePage)
{
    return codePage == CP_ACP || codePage == CP_UTF8;
}

bool isScalarValue(char32_t value)
{
    return value <= 0x10FFFF && (value < 0xD800 || value > 0xDFFF);
}

// Reads one well-formed UTF-8 sequence at the front of `text` (Unicode's table of well-formed
// byte sequences: no overlong form, no surrogate, nothing above U+10FFFF). Returns its byte
// count and stores its value, or returns 0 for an invalid or cut sequence.
std::size_t decodeOne(const unsigned char* text, std::size_t length, char32_t& value)
{
    const unsigned char lead = text[0];
    if (lead < 0x80) {
        value = lead;
        return 1;
    }
    std::size_t size = 0;
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        size = 2;
        value = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        size = 3;
        value = lead & 0x0F;
        if (lead == 0xE0)
            low = 0xA0; // below: overlong
        else if (lead == 0xED)
            high = 0x9F; // above: surrogates
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        size = 4;
        value = lead & 0x07;
        if (lead == 0xF0)
            low = 0x90; // below: overlong
        else if (lead == 0xF4)
            high = 0x8F; // above: beyond U+10FFFF
    } else {
        return 0; // a continuation byte, C0, C1 or F5..FF
    }
    if (length < size)
        return 0;
    for (std::size_t i = 1; i < size; ++i) {
        const unsigned char next = text[i];
        if (next < low || next > high)
            return 0;
        low = 0x80;
        high = 0xBF;
        value = (value << 6) | (next & 0x3F);
    }
    return size;
}

// Writes the UTF-8 form of a scalar value into `out` (room for 4) and returns its byte count.
std::size_t encodeOne(char32_t value, char* out)
{
    if (value < 0x80) {
        out[0] = static_cast<char>(value);
        return 1;
    }
    if (value < 0x800) {
        out[0] = static_cast<char>(0xC0 | (value >> 6));
        out[1] = static_cast<char>(0x80 | (value & 0x3F));
        return 2;
    }
    if (value < 0x10000) {
        out[0] = static_cast<char>(0xE0 | (value >> 12));
        out[1] = static_cast<char>(0x80 | ((value >> 6) & 0x3F));
        out[2] = static_cast<char>(0x80 | (value & 0x3F));
        return 3;
    }
    out[0] = static_cast<char>(0xF0 | (value >> 18));
    out[1] = static_cast<char>(0x80 | ((value >> 12) & 0x3F));
    out[2] = static_cast<char>(0x80 | ((value >> 6) & 0x3F));
    out[3] = static_cast<char>(0x80 | (value & 0x3F));
    return 4;
}

char32_t valueOf(wchar_t unit)
{
    // wchar_t is signed here; a negative value turns into one far above U+10FFFF.
    return static_cast<char32_t>(static_cast<std::uint32_t>(unit));
}

int failWith(DWORD error)
{
    SetLastError(error);
    return 0;
}
} // namespace

int MultiByteToWideChar(UINT codePage, DWORD, const char* source, int sourceLength, wchar_t* output, int outputSize)
{
    if (!isUtf8CodePage(codePage) || source == nullptr || sourceLength == 0 || sourceLength < -1 || outputSize < 0
        || (output == nullptr && outputSize != 0))
        return failWith(ERROR_INVALID_PARAMETER);
    std::size_t length = static_cast<std::size_t>(sourceLength);
    if (sourceLength == -1) {
        length = std::strlen(source) + 1;
        if (length > static_cast<std::size_t>(INT_MAX))
            return failWith(ERROR_INVALID_PARAMETER);
    }

    // Flags are not consulted: every invalid sequence fails, as with MB_ERR_INVALID_CHARS.
    const auto* bytes = reinterpret_cast<const unsigned char*>(source);
    int needed = 0;
    for (std::size_t at = 0; at < length; ++needed) {
        char32_t value = 0;
        const std::size_t size = decodeOne(bytes + at, length - at, value);
        if (size == 0)
            return failWith(ERROR_NO_UNICODE_TRANSLATION);
        at += size;
    }
    if (outputSize == 0)
        return needed;
    if (needed > outputSize)
        return failWith(ERROR_INSUFFICIENT_BUFFER);

    int written = 0;
    for (std::size_t at = 0; at < length;) {
        char32_t value = 0;
        at += decodeOne(bytes + at, length - at, value);
        output[written++] = static_cast<wchar_t>(value);
    }
    return written;
}

int WideCharToMultiByte(UINT codePage, DWORD flags, const wchar_t* source, int sourceLength, char* output,
                        int outputSize, const char* defaultChar, BOOL* usedDefaultChar)
{
    if (!isUtf8CodePage(codePage) || source == nullptr || sourceLength == 0 || sourceLength < -1 || outputSize < 0
        || (output == nullptr && outputSize != 0))
        return failWith(ERROR_INVALID_PARAMETER);
    // As on Windows, UTF-8 has no default character; the system code page takes one.
    if (codePage == CP_UTF8 && (defaultChar != nullptr || usedDefaultChar != nullptr))
        return failWith(ERROR_INVALID_PARAMETER);
    std::size_t length = static_cast<std::size_t>(sourceLength);
    if (sourceLength == -1) {
        length = std::wcslen(source) + 1;
        if (length > static_cast<std::size_t>(INT_MAX))
            return failWith(ERROR_INVALID_PARAMETER);
    }
    const bool strict = (flags & WC_ERR_INVALID_CHARS) != 0;
    const char* replacement = defaultChar != nullptr ? defaultChar : kReplacementUtf8;
    const std::size_t replacementSize = std::strlen(replacement);

    std::size_t needed = 0;
    bool replaced = false;
    for (std::size_t i = 0; i < length; ++i) {
        const char32_t value = valueOf(source[i]);
        if (isScalarValue(value)) {
            needed += value < 0x80 ? 1 : value < 0x800 ? 2 : value < 0x10000 ? 3 : 4;
        } else if (strict) {
            return failWith(ERROR_NO_UNICODE_TRANSLATION);
        } else {
            needed += replacementSize;
            replaced = true;
        }
    }
    if (needed > static_cast<std::size_t>(INT_MAX))
        return failWith(ERROR_INVALID_PARAMETER);
    if (usedDefaultChar != nullptr)
        *usedDefaultChar = replaced ? TRUE : FALSE;
    if (outputSize == 0)
        return static_cast<int>(needed);
    if (needed > static_cast<std::size_t>(outputSize))
        return failWith(ERROR_INSUFFICIENT_BUFFER);

    char* out = output;
    for (std::size_t i = 0; i < length; ++i) {
        const char32_t value = valueOf(source[i]);
        if (isScalarValue(value)) {
            out += encodeOne(value, out);
        } else {
            std::memcpy(out, replacement, replacementSize);
            out += replacementSize;
        }
    }
    return static_cast<int>(out - output);
}

namespace zmu_platform {

std::wstring widenUtf8(const char* text, std::size_t length)
{
    std::wstring wide;
    if (text == nullptr)
        return wide;
    wide.reserve(length);
    const auto* bytes = reinterpret_cast<const unsigned char*>(text);
    for (std::size_t at = 0; at < length;) {
        char32_t value = 0;
        const std::size_t size = decodeOne(bytes + at, length - at, value);
        if (size == 0) {
            wide.push_back(static_cast<wchar_t>(kReplacement));
            ++at;
        } else {
            wide.push_back(static_cast<wchar_t>(value));
            at += size;
        }
    }
    return wide;
}

std::wstring widenUtf8(const char* text)
{
    return text == nullptr ? std::wstring() : widenUtf8(text, std::strlen(text));
}

std::string narrowToUtf8(const wchar_t* text, std::size_t length)
{
    std::string narrow;
    if (text == nullptr)
        return narrow;
    narrow.reserve(length);
    char bytes[4];
    for (std::size_t i = 0; i < length; ++i) {
        char32_t value = valueOf(text[i]);
        if (!isScalarValue(value))
            value = kReplacement;
        narrow.append(bytes, encodeOne(value, bytes));
    }
    return narrow;
}

std::string narrowToUtf8(const wchar_t* text)
{
    return text == nullptr ? std::string() : narrowToUtf8(text, std::wcslen(text));
}

} // namespace zmu_platform
