// The library's owning string: narrow (UTF-8) or wide text, converted to the other form on demand.
//
// One representation is active and is the authority; the other buffer, if present, is a cache of
// the last conversion. Every call of the accessor of the non-active form releases and rebuilds that
// cache, so such a pointer stays good only until the next call of the same accessor or the next
// change of the string. The accessors are const but rewrite the cache: two threads may read one
// string at once only through the accessor of its active representation.
//
// Every failure throws UTL_Exception by value, and leaves the string as it stood at the throw.
#pragma once

#include "foundation/IntegerWidths.h"
#include "platform/WinTypes.h"

#include <cstddef>

class UTL_String
{
public:
    enum StringEncoding : u64 { Narrow = 1, Wide = 2 };

    // What the searches return when nothing is found.
    static constexpr u64 npos = ~u64(0);

    UTL_String();
    // A null text gives the empty string.
    UTL_String(const char* text);
    UTL_String(const wchar_t* text);
    // Copies the active text only, and always allocates, also for an empty string.
    UTL_String(const UTL_String& other);
    // The value formatted with "%d", narrow.
    explicit UTL_String(int value);
    // Formats into `capacity` elements. `capacity` is a hard limit that the caller makes large enough:
    // text that does not fit (terminator included) throws code 1 rather than being cut.
    UTL_String(size_t capacity, const char* format, ...) __attribute__((format(printf, 3, 4)));
    // As above with the Windows meaning of a wide format (%s takes wide text).
    UTL_String(size_t capacity, const wchar_t* format, ...);
    // String resource `id` of a module that is loaded already (code 10 if not), read through
    // LoadStringA / LoadStringW into `capacity` elements; an empty or missing string throws 7.
    // Bad arguments throw 4 for the narrow form and 2 for the wide form: both codes are kept on purpose.
    UTL_String(const char* moduleName, unsigned id, unsigned capacity);
    UTL_String(const wchar_t* moduleName, unsigned id, unsigned capacity);
    // Wide string `id` of an open module through loadFromModule; throws 7 only if nothing was
    // obtained and the last error is set, so a string that exists and is empty passes.
    UTL_String(HMODULE module, unsigned id, unsigned capacity);
    virtual ~UTL_String();

    u64 length() const { return m_length; }
    const wchar_t* wideText() const;
    const char* narrowText() const;
    operator const wchar_t*() const { return wideText(); }
    operator const char*() const { return narrowText(); }
    int toInt() const;
    // Element count that the text needs in `target` (1 narrow, 2 wide), without terminator.
    u64 convertedLength(u64 target) const;

    void clear();
    // Keeps the old buffer when the encodings agree and the old text was at least as long.
    UTL_String& operator=(const UTL_String& source);
    UTL_String& operator+=(const UTL_String& other);
    // Loads wide string `id` into `capacity` code units. A module's exported ZRLoadStringW has
    // priority over LoadStringW. Returns the number of characters obtained.
    int loadFromModule(HMODULE module, unsigned id, unsigned capacity);
    // Turns every "/" of the active text into a backslash.
    void useBackslashes();
    // Clears, selects `encoding` (the narrow or the wide form) and reads the window's text.
    // A null window leaves the empty string. Returns the length.
    int loadWindowText(HWND window, StringEncoding encoding);

    // The result keeps this string's encoding; `other` is converted to it, with that conversion's losses.
    UTL_String operator+(const UTL_String& other) const;
    UTL_String substring(u64 start, u64 count) const;
    UTL_String stripQuotes() const;
    // The text before the first occurrence of the first delimiter (in the order given) that occurs.
    UTL_String prefixBefore(const UTL_String& delimiters) const;
    // Without leading and trailing spaces, tabs and line feeds (not carriage returns).
    UTL_String trimmed() const;
    // Case mapping of narrow text; for a wide string the result is empty: not offered for wide text.
    UTL_String toLower() const;
    UTL_String toUpper() const;
    UTL_String expandEnvironment() const;
    UTL_String shortPath() const;

    // Compares the narrow forms, also of two wide strings.
    bool operator==(const UTL_String& other) const;
    bool operator==(const char* other) const { return *this == UTL_String(other); }
    bool operator==(const wchar_t* other) const { return *this == UTL_String(other); }
    // Compares in this string's encoding.
    bool operator<(const UTL_String& other) const;
    bool beginsWith(const UTL_String& other) const;
    bool endsWith(const UTL_String& other) const;
    // Compares `limit` elements from `start`; `limit` counts elements, it is no end index.
    bool equalsPart(const UTL_String& other, unsigned limit, unsigned start) const;
    u64 find(const UTL_String& text, u64 from = 0) const;
    u64 find(char c, u64 from = 0) const;
    u64 find(wchar_t c, u64 from = 0) const;
    u64 findLast(const UTL_String& text, u64 from = 0) const;
    u64 findLast(char c, u64 from = 0) const;
    u64 findLast(wchar_t c, u64 from = 0) const;
    // Wildcards: "?" any one character, "*" a run; a trailing "*" matches no remaining text.
    bool matches(const UTL_String& pattern) const;

private:
    friend struct UTL_StringTestAccess; // lets tests reach states that the class never produces

    const char* narrowTextCounted(u64& count) const;
    const wchar_t* wideTextCounted(u64& count) const;
    void adoptText(char* buffer, u64 length);
    void adoptText(wchar_t* buffer, u64 length);

    mutable wchar_t* m_wide;
    mutable char* m_narrow;
    u64 m_length;
    u64 m_encoding;
};

UTL_String operator+(const char* text, const UTL_String& other);
UTL_String operator+(const wchar_t* text, const UTL_String& other);
