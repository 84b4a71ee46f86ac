#include "platform/FormatMessage.h"

#include "platform/CRuntime.h"
#include "platform/LastError.h"

#include <cstdint>
#include <cwchar>
#include <string>

namespace {

constexpr DWORD kKnownFlags = FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_STRING
                              | FORMAT_MESSAGE_ARGUMENT_ARRAY | FORMAT_MESSAGE_MAX_WIDTH_MASK;

// Lays the formatted characters out into the caller's buffer: line breaks as CR LF, and in the
// wrapping widths words and the blanks between them held back until it is known on which line
// they go. Once the buffer is full it only records that, and the caller stops.
class MessageLayout
{
public:
    MessageLayout(wchar_t* buffer, DWORD size, DWORD width)
        : m_out(buffer), m_capacity(size - 1), m_width(width), m_wraps(width > 0 && width < FORMAT_MESSAGE_MAX_WIDTH_MASK)
    {
    }

    // One character of the text or of an insert; a CR LF pair counts as one line break.
    // Returns where the next character begins.
    const wchar_t* putText(const wchar_t* at, const wchar_t* end)
    {
        if (*at == L'\r' && at + 1 < end && at[1] == L'\n') {
            putTextLineBreak();
            return at + 2;
        }
        putCharacter(*at);
        return at + 1;
    }

    void putTextRun(const wchar_t* text, std::size_t length)
    {
        const wchar_t* const end = text + length;
        while (text < end && !m_full)
            text = putText(text, end);
    }

    void putCharacter(wchar_t c)
    {
        switch (c) {
        case L'\n':
            putTextLineBreak();
            break;
        case L'\r':
            putCarriageReturn();
            break;
        case L' ':
        case L'\t':
            putBlank(c);
            break;
        default:
            putWordCharacter(c);
            break;
        }
    }

    void putWordCharacter(wchar_t c)
    {
        if (!m_wraps || m_inLongWord) {
            emit(c);
            ++m_column;
            return;
        }
        m_word[m_wordCount++] = c;
        if (m_wordCount > m_width) {
            // It fits on no line: place what there is, and the rest follows on the same line.
            placeWord();
            m_inLongWord = true;
        }
    }

    void putBlank(wchar_t c)
    {
        if (!m_wraps) {
            emit(c);
            return;
        }
        endWord();
        if (m_blankCount < kHeldQty)
            m_blanks[m_blankCount] = c;
        ++m_blankCount; // beyond kHeldQty they can never fit on a line, and are only counted
    }

    // A line break of the text: kept at width 0, a blank at any other width.
    void putTextLineBreak()
    {
        if (m_width == 0)
            emitLineBreak();
        else
            putBlank(L' ');
    }

    // %n, kept at every width.
    void putHardLineBreak()
    {
        endLine();
        emitLineBreak();
    }

    void putCarriageReturn()
    {
        endLine();
        emit(L'\r');
        m_column = 0;
    }

    void finish() { endLine(); }

    bool isFull() const { return m_full; }
    DWORD count() const { return m_count; }

private:
    // The widest line is 254 columns, so a word or a run of blanks of 255 already fits on none.
    static constexpr std::size_t kHeldQty = 256;

    void emit(wchar_t c)
    {
        if (m_count < m_capacity)
            m_out[m_count++] = c;
        else
            m_full = true;
    }

    void emitLineBreak()
    {
        emit(L'\r');
        emit(L'\n');
        m_column = 0;
    }

    void endWord()
    {
        if (m_inLongWord)
            m_inLongWord = false;
        else
            placeWord();
    }

    // A word goes after the blanks before it when both fit on the line; otherwise it starts the
    // next line (unless this one is still empty) and the blanks are dropped.
    void placeWord()
    {
        if (m_wordCount == 0)
            return;
        if (m_column + m_blankCount + m_wordCount > m_width) {
            if (m_column > 0)
                emitLineBreak();
        } else {
            emitBlanks();
        }
        m_blankCount = 0;
        for (std::size_t i = 0; i < m_wordCount; ++i)
            emit(m_word[i]);
        m_column += m_wordCount;
        m_wordCount = 0;
    }

    // Blanks at the end of a line stay when they fit on it.
    void endLine()
    {
        if (!m_wraps)
            return;
        endWord();
        if (m_column + m_blankCount <= m_width)
            emitBlanks();
        m_blankCount = 0;
    }

    void emitBlanks()
    {
        for (std::size_t i = 0; i < m_blankCount; ++i)
            emit(m_blanks[i]);
        m_column += m_blankCount;
    }

    wchar_t* m_out;
    DWORD m_capacity; // characters, without the terminator
    DWORD m_count = 0;
    bool m_full = false;

    std::size_t m_width;
    bool m_wraps;
    std::size_t m_column = 0;
    wchar_t m_word[kHeldQty];
    std::size_t m_wordCount = 0;
    bool m_inLongWord = false;
    wchar_t m_blanks[kHeldQty];
    std::size_t m_blankCount = 0;
};

// What an insert's printf format takes from its slots.
struct InsertFormat
{
    enum class Value { Pointer, Bits32, Bits64 };

    Value value = Value::Pointer;
    int starQty = 0; // slots read for the width and the precision before the value
    bool isPlainText = true; // a wide string without width or precision: copied directly
    bool isPlainDecimal = false; // d, i or u without flags, width or precision: converted here
    bool isSigned = false;
};

// The longest format between the exclamation marks; "-#08.12I64X" is 11 characters.
constexpr std::size_t kFormatQty = 32;

bool isDigit(wchar_t c)
{
    return c >= L'0' && c <= L'9';
}

// Reads a format of the Windows runtime between `begin` and `end`: flags, width, precision,
// size and type, nothing before or after. Floating point, %n and unknown types are refused.
bool learnInsertFormat(const wchar_t* begin, const wchar_t* end, InsertFormat& format)
{
    if (begin == end || static_cast<std::size_t>(end - begin) > kFormatQty)
        return false;
    const wchar_t* at = begin;
    while (at < end && *at != 0 && std::wcschr(L"-+ #0", *at) != nullptr)
        ++at;
    if (at < end && *at == L'*') {
        ++format.starQty;
        ++at;
    }
    while (at < end && isDigit(*at))
        ++at;
    if (at < end && *at == L'.') {
        ++at;
        if (at < end && *at == L'*') {
            ++format.starQty;
            ++at;
        }
        while (at < end && isDigit(*at))
            ++at;
    }
    const wchar_t* const size = at;
    bool wide64 = false;
    const std::size_t left = static_cast<std::size_t>(end - at);
    if (left >= 3 && std::wcsncmp(at, L"I64", 3) == 0) {
        wide64 = true;
        at += 3;
    } else if (left >= 3 && std::wcsncmp(at, L"I32", 3) == 0) {
        at += 3;
    } else if (left >= 2 && (std::wcsncmp(at, L"ll", 2) == 0 || std::wcsncmp(at, L"hh", 2) == 0)) {
        wide64 = at[0] == L'l';
        at += 2;
    } else if (left >= 1 && *at != 0 && std::wcschr(L"hlwI", *at) != nullptr) {
        wide64 = *at == L'I'; // pointer-sized
        ++at;
    }
    const std::wstring sizeText(size, at);
    if (at + 1 != end || *at == 0)
        return false;
    const wchar_t type = *at;
    const bool plainFormat = begin == size;
    if (std::wcschr(L"sScC", type) != nullptr) {
        if (!(sizeText.empty() || sizeText == L"h" || sizeText == L"l" || sizeText == L"w"))
            return false;
        const bool text = type == L's' || type == L'S';
        format.value = text ? InsertFormat::Value::Pointer : InsertFormat::Value::Bits32;
        format.isPlainText = plainFormat && type == L's' && sizeText != L"h";
        return true;
    }
    format.isPlainText = false;
    if (type == L'p') {
        format.value = InsertFormat::Value::Pointer;
        return sizeText.empty();
    }
    if (std::wcschr(L"diuxXo", type) == nullptr || sizeText == L"w")
        return false;
    format.value = wide64 ? InsertFormat::Value::Bits64 : InsertFormat::Value::Bits32;
    format.isSigned = type == L'd' || type == L'i';
    format.isPlainDecimal = plainFormat && (format.isSigned || type == L'u') && (sizeText.empty() || sizeText == L"l"
                                                                                  || wide64 || sizeText == L"I32");
    return true;
}

// The Windows runtime reads a * as an int: the low 32 bits of its slot.
int slotAsInt(u64 slot)
{
    return static_cast<int>(static_cast<std::int32_t>(static_cast<std::uint32_t>(slot)));
}

template <typename Value>
int printInsert(wchar_t* out, std::size_t count, const wchar_t* format, const u64* slots, int starQty, Value value)
{
    switch (starQty) {
    case 0:
        return _snwprintf(out, count, format, value);
    case 1:
        return _snwprintf(out, count, format, slotAsInt(slots[0]), value);
    default:
        return _snwprintf(out, count, format, slotAsInt(slots[0]), slotAsInt(slots[1]), value);
    }
}

int printInsert(wchar_t* out, std::size_t count, const wchar_t* format, const u64* slots, const InsertFormat& insert)
{
    const u64 slot = slots[insert.starQty];
    switch (insert.value) {
    case InsertFormat::Value::Pointer:
        return printInsert(out, count, format, slots, insert.starQty,
                           reinterpret_cast<const void*>(static_cast<std::uintptr_t>(slot)));
    case InsertFormat::Value::Bits64:
        return printInsert(out, count, format, slots, insert.starQty, static_cast<unsigned long long>(slot));
    default:
        return printInsert(out, count, format, slots, insert.starQty, static_cast<unsigned int>(slot));
    }
}

// The common plain numbers, without a trip through the runtime's printf.
void putDecimal(MessageLayout& layout, u64 slot, const InsertFormat& insert)
{
    u64 magnitude = slot;
    bool negative = false;
    if (insert.value == InsertFormat::Value::Bits32) {
        magnitude = static_cast<std::uint32_t>(slot);
        if (insert.isSigned && static_cast<std::int32_t>(magnitude) < 0) {
            negative = true;
            magnitude = 0x100000000ull - magnitude;
        }
    } else if (insert.isSigned && static_cast<i64>(slot) < 0) {
        negative = true;
        magnitude = ~slot + 1; // also right for the lowest value
    }
    wchar_t digits[24];
    wchar_t* at = digits + sizeof digits / sizeof *digits;
    do {
        *--at = static_cast<wchar_t>(L'0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    if (negative)
        *--at = L'-';
    for (; at != digits + sizeof digits / sizeof *digits; ++at)
        layout.putWordCharacter(*at);
}

// Formats the insert whose first slot is `slots[0]` with the format between `begin` and `end`,
// or as !s! when `begin` is null. False for a format that is refused.
bool putInsert(MessageLayout& layout, const u64* slots, const wchar_t* begin, const wchar_t* end)
{
    InsertFormat insert;
    if (begin != nullptr && !learnInsertFormat(begin, end, insert))
        return false;
    if (insert.isPlainText) {
        const auto* text = reinterpret_cast<const wchar_t*>(static_cast<std::uintptr_t>(slots[0]));
        if (text == nullptr)
            text = L"(null)";
        layout.putTextRun(text, std::wcslen(text));
        return true;
    }
    if (insert.isPlainDecimal) {
        putDecimal(layout, slots[0], insert);
        return true;
    }
    wchar_t format[kFormatQty + 2] = L"%";
    std::wmemcpy(format + 1, begin, static_cast<std::size_t>(end - begin));
    format[1 + (end - begin)] = 0;

    wchar_t local[128];
    int length = printInsert(local, sizeof local / sizeof *local, format, slots, insert);
    if (length >= 0) {
        layout.putTextRun(local, static_cast<std::size_t>(length));
        return true;
    }
    // Too long for the local buffer (a wide field, a long string): ask for the size.
    length = printInsert(nullptr, 0, format, slots, insert);
    if (length < 0)
        return false;
    std::wstring large(static_cast<std::size_t>(length) + 1, L'\0');
    length = printInsert(&large[0], large.size(), format, slots, insert);
    if (length < 0)
        return false;
    layout.putTextRun(large.data(), static_cast<std::size_t>(length));
    return true;
}

DWORD failWith(DWORD error, wchar_t* buffer, DWORD size)
{
    if (buffer != nullptr && size > 0)
        buffer[0] = 0;
    SetLastError(error);
    return 0;
}

} // namespace

DWORD FormatMessageW(DWORD flags, const void* source, DWORD /*messageId*/, DWORD /*languageId*/, wchar_t* buffer,
                     DWORD size, const u64* inserts)
{
    if ((flags & FORMAT_MESSAGE_FROM_STRING) == 0 || (flags & ~kKnownFlags) != 0 || source == nullptr
        || buffer == nullptr)
        return failWith(ERROR_INVALID_PARAMETER, buffer, size);
    if (size == 0)
        return failWith(ERROR_INSUFFICIENT_BUFFER, buffer, size);

    const bool ignoresInserts = (flags & FORMAT_MESSAGE_IGNORE_INSERTS) != 0;
    MessageLayout layout(buffer, size, flags & FORMAT_MESSAGE_MAX_WIDTH_MASK);
    const auto* at = static_cast<const wchar_t*>(source);
    const wchar_t* const unbounded = at + std::wcslen(at);
    while (*at != 0 && !layout.isFull()) {
        if (*at != L'%') {
            at = layout.putText(at, unbounded);
            continue;
        }
        const wchar_t escaped = at[1];
        if (escaped == 0) {
            layout.putWordCharacter(L'%');
            ++at;
            continue;
        }
        if (escaped >= L'1' && escaped <= L'9') {
            const wchar_t* const insert = at;
            std::size_t number = static_cast<std::size_t>(escaped - L'0');
            at += 2;
            if (isDigit(*at))
                number = number * 10 + static_cast<std::size_t>(*at++ - L'0');
            const wchar_t* formatBegin = nullptr;
            const wchar_t* formatEnd = nullptr;
            if (*at == L'!') {
                formatBegin = at + 1;
                formatEnd = std::wcschr(formatBegin, L'!');
                if (formatEnd == nullptr)
                    return failWith(ERROR_INVALID_PARAMETER, buffer, size);
                at = formatEnd + 1;
            }
            if (ignoresInserts)
                layout.putTextRun(insert, static_cast<std::size_t>(at - insert));
            else if (inserts == nullptr || !putInsert(layout, inserts + (number - 1), formatBegin, formatEnd))
                return failWith(ERROR_INVALID_PARAMETER, buffer, size);
            continue;
        }
        at += 2;
        if (escaped == L'0')
            break;
        switch (escaped) {
        case L'n':
            layout.putHardLineBreak();
            break;
        case L'r':
            layout.putCarriageReturn();
            break;
        case L't':
            layout.putBlank(L'\t');
            break;
        case L'b':
            layout.putBlank(L' ');
            break;
        default:
            layout.putCharacter(escaped); // %% %. %! and any other: the character itself
            break;
        }
    }
    layout.finish();
    if (layout.isFull())
        return failWith(ERROR_INSUFFICIENT_BUFFER, buffer, size);
    buffer[layout.count()] = 0;
    return layout.count();
}
