#include "foundation/UTL_String.h"

#include "foundation/UTL_Exception.h"
#include "platform/CRuntime.h"
#include "platform/CodePages.h"
#include "platform/Environment.h"
#include "platform/LastError.h"
#include "platform/Modules.h"
#include "platform/Windows.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string>

namespace {

// Four zero bytes: the text of every empty string, narrow and wide alike.
const wchar_t kEmptyText[1] = {L'\0'};
static_assert(sizeof(kEmptyText) == 4, "the shared empty text is four zero bytes");

const char* emptyNarrow()
{
    return reinterpret_cast<const char*>(kEmptyText);
}

template <typename Char>
Char* allocateText(u64 count)
{
    try {
        return new Char[count];
    } catch (...) {
        throw UTL_Exception(3);
    }
}

// Copies `count` elements and terminates them; source and destination may overlap.
template <typename Char>
void moveText(Char* destination, const Char* source, u64 count)
{
    std::char_traits<Char>::move(destination, source, count);
    destination[count] = Char(0);
}

// A new terminated buffer holding `length` elements of `text` followed by `moreLength` of `more`.
template <typename Char>
Char* copyOf(const Char* text, u64 length, const Char* more = nullptr, u64 moreLength = 0)
{
    Char* buffer = allocateText<Char>(length + moreLength + 1);
    moveText(buffer, text, length);
    moveText(buffer + length, more, moreLength);
    return buffer;
}

// Copies `length` elements into `buffer`, which is allocated if there is none. Assigning a string
// to itself finds its own buffer there, and copies nothing.
template <typename Char>
void storeText(Char*& buffer, const Char* text, u64 length)
{
    if (buffer == nullptr)
        buffer = allocateText<Char>(length + 1);
    if (buffer != text)
        moveText(buffer, text, length);
}

template <typename Char>
u64 firstIndexOf(const Char* text, u64 count, Char c, u64 from)
{
    for (u64 i = from; i < count; ++i) {
        if (text[i] == c)
            return i;
    }
    return UTL_String::npos;
}

// The highest index at or above `from` that holds `c`.
template <typename Char>
u64 lastIndexOf(const Char* text, u64 count, Char c, u64 from)
{
    for (u64 i = count; i > from; --i) {
        if (text[i - 1] == c)
            return i - 1;
    }
    return UTL_String::npos;
}

// The two-call pattern of ExpandEnvironmentStrings: learn the size, then expand into a buffer of
// that size plus one. The result is measured anew, since the reported size is no length.
template <typename Char, typename Expander>
UTL_String expandWith(Expander expand, const Char* text)
{
    const DWORD size = expand(text, nullptr, 0);
    Char* buffer = allocateText<Char>(u64(size) + 1);
    buffer[size] = Char(0);
    const DWORD written = expand(text, buffer, size);
    if (written == 0 || written > size) {
        delete[] buffer;
        throw UTL_Exception(1);
    }
    UTL_String result(static_cast<const Char*>(buffer));
    delete[] buffer;
    return result;
}

// The wildcard walk over narrow text. A "*" never swallows the empty tail of the text: the
// recursive tries stop short of the end, so "a*" does not match "ab". Deliberate, and kept.
bool matchWildcards(const char* text, u64 textLength, const char* pattern, u64 patternLength)
{
    u64 t = 0;
    u64 p = 0;
    while (t < textLength) {
        if (p == patternLength)
            return false;
        if (pattern[p] == '*')
            break;
        if (pattern[p] != '?' && pattern[p] != text[t])
            return false;
        ++t;
        ++p;
    }
    const bool textUsedUp = t == textLength;
    while (p < patternLength && pattern[p] == '*')
        ++p;
    if (textUsedUp)
        return p == patternLength;
    for (u64 i = t; i < textLength; ++i) {
        if (matchWildcards(text + i, textLength - i, pattern + p, patternLength - p))
            return true;
    }
    return false;
}

int clampToInt(u64 count)
{
    return count > u64(INT_MAX) ? INT_MAX : int(count);
}

} // namespace

UTL_String::UTL_String() : m_wide(nullptr), m_narrow(nullptr), m_length(0), m_encoding(Narrow) {}

UTL_String::UTL_String(const char* text) : UTL_String()
{
    if (text == nullptr)
        return;
    const u64 length = std::strlen(text);
    if (length != 0)
        adoptText(copyOf(text, length), length);
}

UTL_String::UTL_String(const wchar_t* text) : UTL_String()
{
    if (text == nullptr)
        return;
    m_encoding = Wide; // also for an empty text, so that L"" + other is wide
    const u64 length = std::wcslen(text);
    if (length != 0)
        adoptText(copyOf(text, length), length);
}

UTL_String::UTL_String(const UTL_String& other) : UTL_String()
{
    if (other.m_encoding == Narrow)
        adoptText(copyOf(other.narrowText(), other.m_length), other.m_length);
    else if (other.m_encoding == Wide)
        adoptText(copyOf(other.wideText(), other.m_length), other.m_length);
    else
        throw UTL_Exception(15);
}

UTL_String::UTL_String(int value) : UTL_String()
{
    char text[32];
    std::snprintf(text, sizeof text, "%d", value);
    *this = text;
}

// A formatter fault (a null format, or text that does not fit with its terminator) throws code 1:
// the capacity is a hard limit, and a cut text is never returned.
UTL_String::UTL_String(size_t capacity, const char* format, ...) : UTL_String()
{
    if (format == nullptr)
        throw UTL_Exception(1);
    char* buffer = allocateText<char>(capacity);
    va_list args;
    va_start(args, format);
    const int count = std::vsnprintf(buffer, capacity, format, args);
    va_end(args);
    if (count < 0 || size_t(count) >= capacity) {
        delete[] buffer;
        throw UTL_Exception(1);
    }
    adoptText(buffer, u64(count));
}

UTL_String::UTL_String(size_t capacity, const wchar_t* format, ...) : UTL_String()
{
    wchar_t* buffer = allocateText<wchar_t>(capacity);
    va_list args;
    va_start(args, format);
    const int count = _vsnwprintf(buffer, capacity, format, args);
    va_end(args);
    // A count equal to the capacity means the terminator did not fit.
    if (count < 0 || size_t(count) >= capacity) {
        delete[] buffer;
        throw UTL_Exception(1);
    }
    buffer[count] = L'\0';
    adoptText(buffer, u64(count));
}

UTL_String::UTL_String(const char* moduleName, unsigned id, unsigned capacity) : UTL_String()
{
    if (capacity == 0 || moduleName == nullptr)
        throw UTL_Exception(4);
    HMODULE module = GetModuleHandleA(moduleName);
    if (module == nullptr)
        throw UTL_Exception(10);
    m_narrow = allocateText<char>(capacity);
    const int count = LoadStringA(module, id, m_narrow, clampToInt(capacity));
    if (count <= 0 || unsigned(count) >= capacity)
        throw UTL_Exception(7);
    m_length = u64(count);
}

UTL_String::UTL_String(const wchar_t* moduleName, unsigned id, unsigned capacity) : UTL_String()
{
    if (capacity == 0 || moduleName == nullptr)
        throw UTL_Exception(2);
    HMODULE module = GetModuleHandleW(moduleName);
    if (module == nullptr)
        throw UTL_Exception(10);
    m_encoding = Wide;
    m_wide = allocateText<wchar_t>(capacity);
    const int count = LoadStringW(module, id, m_wide, clampToInt(capacity));
    if (count <= 0 || unsigned(count) >= capacity)
        throw UTL_Exception(7);
    m_length = u64(count);
}

UTL_String::UTL_String(HMODULE module, unsigned id, unsigned capacity) : UTL_String()
{
    if (loadFromModule(module, id, capacity) == 0 && GetLastError() != 0)
        throw UTL_Exception(7);
}

UTL_String::~UTL_String()
{
    clear();
}

const char* UTL_String::narrowText() const
{
    u64 count = 0;
    return narrowTextCounted(count);
}

const wchar_t* UTL_String::wideText() const
{
    u64 count = 0;
    return wideTextCounted(count);
}

const char* UTL_String::narrowTextCounted(u64& count) const
{
    count = 0;
    if (m_encoding == Narrow) {
        if (m_length == 0)
            return emptyNarrow();
        if (m_narrow == nullptr)
            throw UTL_Exception(5);
        count = m_length;
        return m_narrow;
    }
    if (m_encoding != Wide)
        throw UTL_Exception(15);
    if (m_length == 0)
        return emptyNarrow();
    if (m_wide == nullptr)
        throw UTL_Exception(6);
    // The cache is rebuilt on every call, never reused.
    delete[] m_narrow;
    m_narrow = nullptr;
    const u64 n = convertedLength(Narrow);
    char* cache = allocateText<char>(n + 1);
    cache[n] = '\0';
    const int written = WideCharToMultiByte(CP_ACP, 0, m_wide, int(m_length), cache, int(n), nullptr, nullptr);
    if (u64(written) != n) {
        delete[] cache;
        throw UTL_Exception(14);
    }
    m_narrow = cache;
    count = n;
    return m_narrow;
}

const wchar_t* UTL_String::wideTextCounted(u64& count) const
{
    count = 0;
    if (m_encoding == Wide) {
        if (m_length == 0)
            return kEmptyText;
        if (m_wide == nullptr)
            throw UTL_Exception(6);
        count = m_length;
        return m_wide;
    }
    if (m_encoding != Narrow)
        throw UTL_Exception(15);
    if (m_length == 0)
        return kEmptyText;
    if (m_narrow == nullptr)
        throw UTL_Exception(5);
    delete[] m_wide;
    m_wide = nullptr;
    const u64 n = convertedLength(Wide);
    wchar_t* cache = allocateText<wchar_t>(n + 1);
    cache[n] = L'\0';
    const int written = MultiByteToWideChar(CP_ACP, 0, m_narrow, int(m_length), cache, int(n));
    if (u64(written) != n) {
        delete[] cache;
        throw UTL_Exception(9);
    }
    m_wide = cache;
    count = n;
    return m_wide;
}

int UTL_String::toInt() const
{
    return std::atoi(narrowText());
}

u64 UTL_String::convertedLength(u64 target) const
{
    if (m_encoding != Narrow && m_encoding != Wide)
        throw UTL_Exception(15);
    if (target != Narrow && target != Wide)
        throw UTL_Exception(4);
    if (target == m_encoding)
        return m_length;
    if (m_length == 0)
        return 0;
    // The code page calls count in int: a longer text cannot be measured.
    if (m_length > u64(INT_MAX))
        throw UTL_Exception(m_encoding == Narrow ? 1 : 13);
    if (m_encoding == Narrow) {
        const int count = MultiByteToWideChar(CP_ACP, 0, m_narrow, int(m_length), nullptr, 0);
        if (count > 0)
            return u64(count);
        const DWORD error = GetLastError();
        if (error == ERROR_INSUFFICIENT_BUFFER)
            throw UTL_Exception(8);
        if (error == ERROR_NO_UNICODE_TRANSLATION)
            throw UTL_Exception(12);
        throw UTL_Exception(1);
    }
    const int count = WideCharToMultiByte(CP_ACP, 0, m_wide, int(m_length), nullptr, 0, nullptr, nullptr);
    if (count <= 0)
        throw UTL_Exception(13);
    return u64(count);
}

void UTL_String::clear()
{
    delete[] m_wide;
    delete[] m_narrow;
    m_wide = nullptr;
    m_narrow = nullptr;
    m_length = 0;
    m_encoding = Narrow;
}

void UTL_String::adoptText(char* buffer, u64 length)
{
    clear();
    m_narrow = buffer;
    m_length = length;
}

void UTL_String::adoptText(wchar_t* buffer, u64 length)
{
    clear();
    m_wide = buffer;
    m_length = length;
    m_encoding = Wide;
}

UTL_String& UTL_String::operator=(const UTL_String& source)
{
    if (source.m_encoding != Narrow && source.m_encoding != Wide)
        throw UTL_Exception(15);
    if (source.m_length == 0) {
        clear();
        return *this;
    }
    // The buffer is kept exactly when the encodings agree and the old text was at least as long.
    if (m_encoding != source.m_encoding || m_length < source.m_length)
        clear();
    // Only the source's active text is read; its cache is ignored.
    m_encoding = source.m_encoding;
    if (m_encoding == Narrow) {
        delete[] m_wide;
        m_wide = nullptr;
        storeText(m_narrow, source.narrowText(), source.m_length);
    } else {
        delete[] m_narrow;
        m_narrow = nullptr;
        storeText(m_wide, source.wideText(), source.m_length);
    }
    m_length = source.m_length;
    return *this;
}

UTL_String& UTL_String::operator+=(const UTL_String& other)
{
    return *this = *this + other;
}

int UTL_String::loadFromModule(HMODULE module, unsigned id, unsigned capacity)
{
    if (capacity == 0 || module == nullptr)
        throw UTL_Exception(2);
    clear();
    SetLastError(0);
    wchar_t* buffer = allocateText<wchar_t>(capacity);
    buffer[0] = L'\0';
    adoptText(buffer, 0);
    const int bufferMax = clampToInt(capacity);

    // A module may serve its strings through an exported loader, which has priority over the
    // string table. A count that the buffer could not hold is not believed.
    int length = 0;
    if (FARPROC entry = GetProcAddress(module, "ZRLoadStringW")) {
        length = reinterpret_cast<ZRLoadStringW_Function>(entry)(id, buffer, bufferMax);
        if (length < 0 || length >= bufferMax)
            length = 0;
    } else {
        SetLastError(ERROR_FILE_NOT_FOUND);
    }
    if (length == 0) {
        length = LoadStringW(module, id, buffer, bufferMax);
        if (length < 0 || length >= bufferMax)
            length = 0;
    }
    buffer[length] = L'\0';
    m_length = u64(length);
    return length;
}

void UTL_String::useBackslashes()
{
    if (m_length == 0)
        return;
    if (m_encoding == Narrow)
        std::replace(m_narrow, m_narrow + m_length, '/', '\\');
    else if (m_encoding == Wide)
        std::replace(m_wide, m_wide + m_length, L'/', L'\\');
}

namespace {

// Reads a window's text through the length-then-text pair of one width. A text that changed
// between the two calls is no reading.
template <typename Char>
Char* readWindowText(HWND window, int (*measure)(HWND), int (*read)(HWND, Char*, int), int& length)
{
    length = std::max(measure(window), 0);
    Char* buffer = allocateText<Char>(u64(length) + 1);
    buffer[0] = Char(0);
    const int count = read(window, buffer, length + 1);
    if (count != length) {
        delete[] buffer;
        throw UTL_Exception(2);
    }
    buffer[length] = Char(0);
    return buffer;
}

} // namespace

int UTL_String::loadWindowText(HWND window, StringEncoding encoding)
{
    if (encoding != Narrow && encoding != Wide)
        throw UTL_Exception(15);
    clear();
    m_encoding = encoding;
    if (window == nullptr)
        return 0;
    int length = 0;
    if (encoding == Narrow) {
        char* text = readWindowText<char>(window, GetWindowTextLengthA, GetWindowTextA, length);
        adoptText(text, u64(length));
    } else {
        wchar_t* text = readWindowText<wchar_t>(window, GetWindowTextLengthW, GetWindowTextW, length);
        adoptText(text, u64(length));
    }
    return length;
}

UTL_String UTL_String::operator+(const UTL_String& other) const
{
    if (other.m_length == 0)
        return *this;
    UTL_String sum;
    // The appended text is measured in this string's encoding: a UTF-8 character may take more
    // than one element, so the two lengths need not agree.
    u64 otherCount = 0;
    if (m_encoding == Narrow) {
        const char* otherText = other.narrowTextCounted(otherCount);
        sum.adoptText(copyOf(narrowText(), m_length, otherText, otherCount), m_length + otherCount);
    } else if (m_encoding == Wide) {
        const wchar_t* otherText = other.wideTextCounted(otherCount);
        sum.adoptText(copyOf(wideText(), m_length, otherText, otherCount), m_length + otherCount);
    } else {
        throw UTL_Exception(15);
    }
    return sum;
}

UTL_String operator+(const char* text, const UTL_String& other)
{
    UTL_String sum(text);
    sum += other;
    return sum;
}

UTL_String operator+(const wchar_t* text, const UTL_String& other)
{
    UTL_String sum(text);
    sum += other;
    return sum;
}

UTL_String UTL_String::substring(u64 start, u64 count) const
{
    UTL_String part(*this); // always holds a buffer, also when empty
    if (start > part.m_length) {
        part.clear();
        return part;
    }
    count = std::min(count, part.m_length - start);
    if (part.m_encoding == Narrow)
        moveText(part.m_narrow, part.m_narrow + start, count);
    else
        moveText(part.m_wide, part.m_wide + start, count);
    part.m_length = count;
    return part;
}

UTL_String UTL_String::stripQuotes() const
{
    if (m_length > 1) {
        const bool quoted = m_encoding == Narrow ? narrowText()[0] == '"' && narrowText()[m_length - 1] == '"'
                                                 : wideText()[0] == L'"' && wideText()[m_length - 1] == L'"';
        if (quoted)
            return substring(1, m_length - 2);
    }
    return *this;
}

// Deliberately not the text before the earliest delimiter: the delimiters are tried in their
// order, and the first one that occurs anywhere decides.
UTL_String UTL_String::prefixBefore(const UTL_String& delimiters) const
{
    u64 end = 0;
    for (u64 i = 0; i < delimiters.length(); ++i) {
        end = find(delimiters.substring(i, 1));
        if (end != npos)
            break;
    }
    return substring(0, end);
}

UTL_String UTL_String::trimmed() const
{
    const auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\n'; };
    const char* text = narrowText();
    u64 first = 0;
    while (first < m_length && isBlank(text[first]))
        ++first;
    if (first == m_length)
        return UTL_String();
    // The trailing walk never looks at index 0; the leading walk has settled it.
    u64 last = m_length - 1;
    while (last > 0 && isBlank(text[last]))
        --last;
    return substring(first, last - first + 1);
}

UTL_String UTL_String::toLower() const
{
    if (m_encoding == Wide)
        return UTL_String();
    UTL_String lower(*this);
    for (u64 i = 0; i < lower.m_length; ++i)
        lower.m_narrow[i] = char(std::tolower(static_cast<unsigned char>(lower.m_narrow[i])));
    return lower;
}

UTL_String UTL_String::toUpper() const
{
    if (m_encoding == Wide)
        return UTL_String();
    UTL_String upper(*this);
    for (u64 i = 0; i < upper.m_length; ++i)
        upper.m_narrow[i] = char(std::toupper(static_cast<unsigned char>(upper.m_narrow[i])));
    return upper;
}

UTL_String UTL_String::expandEnvironment() const
{
    if (m_encoding == Narrow) {
        if (find('%') == npos)
            return *this;
        return expandWith<char>(ExpandEnvironmentStringsA, narrowText());
    }
    if (find(L'%') == npos)
        return *this;
    return expandWith<wchar_t>(ExpandEnvironmentStringsW, wideText());
}

// Linux has no short names: a path's short form is the path as it stands.
UTL_String UTL_String::shortPath() const
{
    return *this;
}

bool UTL_String::operator==(const UTL_String& other) const
{
    if (m_length == 0 && other.m_length == 0)
        return true;
    if (m_length != other.m_length)
        return false;
    // A second accessor call on the same string would release the first call's text.
    if (&other == this)
        return true;
    return std::strcmp(narrowText(), other.narrowText()) == 0;
}

bool UTL_String::operator<(const UTL_String& other) const
{
    if (m_encoding == Narrow)
        return std::strcmp(narrowText(), other.narrowText()) < 0;
    if (m_encoding == Wide)
        return std::wcscmp(wideText(), other.wideText()) < 0;
    return false;
}

bool UTL_String::beginsWith(const UTL_String& other) const
{
    return substring(0, other.length()) == other;
}

bool UTL_String::endsWith(const UTL_String& other) const
{
    // Deliberately a signed 32-bit difference: kept as the class defines it.
    const std::int32_t difference = std::int32_t(m_length - other.length());
    if (difference < 0)
        return false;
    return substring(u64(difference), other.length()) == other;
}

// With a non-zero start the compared text may run past `limit`, which counts elements from
// `start` rather than ending there. Deliberate, and kept.
bool UTL_String::equalsPart(const UTL_String& other, unsigned limit, unsigned start) const
{
    u64 count = limit;
    if (count != 0)
        count = std::min({count, m_length, other.m_length});
    else
        count = std::min(m_length, other.m_length);
    const u64 from = start > count ? 0 : start;
    return substring(from, count) == other.substring(from, count);
}

u64 UTL_String::find(const UTL_String& text, u64 from) const
{
    if (m_length < text.length())
        return npos;
    for (u64 i = from; i <= m_length - text.length(); ++i) {
        if (substring(i, text.length()) == text)
            return i;
    }
    return npos;
}

u64 UTL_String::findLast(const UTL_String& text, u64 from) const
{
    if (m_length < text.length())
        return npos;
    for (u64 i = m_length - text.length(); i >= from; --i) {
        if (substring(i, text.length()) == text)
            return i;
        if (i == 0)
            break;
    }
    return npos;
}

// The character searches read the text in the character's width; its element count there may
// differ from length() when that is not the active representation.
u64 UTL_String::find(char c, u64 from) const
{
    u64 count = 0;
    const char* text = narrowTextCounted(count); // sets count
    return firstIndexOf(text, count, c, from);
}

u64 UTL_String::find(wchar_t c, u64 from) const
{
    u64 count = 0;
    const wchar_t* text = wideTextCounted(count); // sets count
    return firstIndexOf(text, count, c, from);
}

u64 UTL_String::findLast(char c, u64 from) const
{
    u64 count = 0;
    const char* text = narrowTextCounted(count); // sets count
    return lastIndexOf(text, count, c, from);
}

u64 UTL_String::findLast(wchar_t c, u64 from) const
{
    u64 count = 0;
    const wchar_t* text = wideTextCounted(count); // sets count
    return lastIndexOf(text, count, c, from);
}

bool UTL_String::matches(const UTL_String& pattern) const
{
    u64 textLength = 0;
    const char* text = narrowTextCounted(textLength);
    u64 patternLength = textLength;
    const char* patternText = text;
    if (&pattern != this) // a second accessor call on this string would release `text`
        patternText = pattern.narrowTextCounted(patternLength);
    return matchWildcards(text, textLength, patternText, patternLength);
}
