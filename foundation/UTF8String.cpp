#include "foundation/UTF8String.h"

#include "foundation/UTL_Exception.h"

#include <cstdint>
#include <cstring>
#include <memory>

namespace {

bool isContinuation(unsigned char byte)
{
    return (byte & 0xC0) == 0x80;
}

// Decodes one character from `remaining` (> 0) bytes. Returns the bytes used, or 0 for an invalid
// sequence.
size_t decodeCharacter(const unsigned char* bytes, size_t remaining, wchar_t& character)
{
    const unsigned char lead = bytes[0];
    if (lead < 0x80) {
        character = wchar_t(lead);
        return 1;
    }
    if ((lead & 0xE0) == 0xC0 && remaining >= 2 && isContinuation(bytes[1])) {
        character = wchar_t(((lead & 0x1F) << 6) | (bytes[1] & 0x3F));
        return 2;
    }
    if ((lead & 0xF0) == 0xE0 && remaining >= 3 && isContinuation(bytes[1]) && isContinuation(bytes[2])) {
        character = wchar_t(((lead & 0x0F) << 12) | ((bytes[1] & 0x3F) << 6) | (bytes[2] & 0x3F));
        return 3;
    }
    return 0;
}

} // namespace

UTF8String::UTF8String() = default;

UTF8String::UTF8String(const wchar_t* text) : UTL_String(text) {}

UTF8String::UTF8String(const char* utf8)
{
    if (utf8 == nullptr)
        return;
    const auto* bytes = reinterpret_cast<const unsigned char*>(utf8);
    const size_t size = std::strlen(utf8);
    wchar_t character = 0;

    // One decoder, two walks: count (and validate), then store.
    size_t count = 0;
    for (size_t at = 0; at < size; ++count) {
        const size_t used = decodeCharacter(bytes + at, size - at, character);
        if (used == 0)
            throw UTL_Exception(11);
        at += used;
    }
    std::unique_ptr<wchar_t[]> decoded;
    try {
        decoded.reset(new wchar_t[count + 1]);
    } catch (...) {
        throw UTL_Exception(3);
    }
    size_t stored = 0;
    for (size_t at = 0; at < size; ++stored)
        at += decodeCharacter(bytes + at, size - at, decoded[stored]);
    decoded[stored] = L'\0';
    // Assigned as a terminated text: an overlong zero (C0 80) ends it.
    UTL_String::operator=(decoded.get());
}

UTF8String::~UTF8String() = default;

int UTF8String::toUtf8(char* buffer, unsigned size) const
{
    const wchar_t* text = wideText();
    const u64 count = convertedLength(Wide);
    if (buffer == nullptr)
        size = 0;
    unsigned written = 0;
    for (u64 i = 0; i < count; ++i) {
        const auto unit = static_cast<std::uint32_t>(text[i]);
        const unsigned remaining = size - written;
        // A surrogate is encoded by itself as three bytes. A wide value above 0xFFFF has no form
        // here (there is no four-byte form), so it counts as a character that does not fit.
        if (unit > 0xFFFF)
            return -1;
        if (unit < 0x80) {
            if (remaining < 1)
                return -1;
            buffer[written++] = char(unit);
        } else if (unit < 0x800) {
            if (remaining < 2)
                return -1;
            buffer[written++] = char(0xC0 | (unit >> 6));
            buffer[written++] = char(0x80 | (unit & 0x3F));
        } else {
            if (remaining < 3)
                return -1;
            buffer[written++] = char(0xE0 | (unit >> 12));
            buffer[written++] = char(0x80 | ((unit >> 6) & 0x3F));
            buffer[written++] = char(0x80 | (unit & 0x3F));
        }
        if (written == size)
            break;
    }
    return int(written);
}
