#include "platform/FormatMessage.h"

#include "platform/CRuntime.h"
#include "platform/LastError.h"
#include "platform/LocalMemory.h"

#include <algorithm>
#include <cstdint>
#include <cwchar>
#include <memory>
#include <new>
#include <string>

namespace {

constexpr DWORD kKnownFlags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS
                              | FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ARGUMENT_ARRAY
                              | FORMAT_MESSAGE_MAX_WIDTH_MASK;

// The text being formatted. A wrap rewrites the line already written, so the whole result is
// kept here before it goes to the caller; a usual message fits the inline room without the heap.
class WideText
{
public:
    WideText() = default;
    WideText(const WideText&) = delete;
    WideText& operator=(const WideText&) = delete;

    std::size_t size() const { return m_size; }
    const wchar_t* data() const { return m_data; }

    void append(const wchar_t* text, std::size_t count)
    {
        reserve(m_size + count);
        std::wmemcpy(m_data + m_size, text, count);
        m_size += count;
    }

    void append(wchar_t c)
    {
        if (m_size == m_capacity)
            reserve(m_size + 1);
        m_data[m_size++] = c;
    }

    // Puts CR LF in the place of the characters from `begin` to `end`.
    void replaceWithLineBreak(std::size_t begin, std::size_t end)
    {
        const std::size_t tail = m_size - end;
        const std::size_t newSize = begin + 2 + tail;
        reserve(newSize);
        std::wmemmove(m_data + begin + 2, m_data + end, tail);
        m_data[begin] = L'\r';
        m_data[begin + 1] = L'\n';
        m_size = newSize;
    }

private:
    static constexpr std::size_t kInlineQty = 1024;

    void reserve(std::size_t count)
    {
        if (count <= m_capacity)
            return;
        const std::size_t capacity = count > 2 * m_capacity ? count : 2 * m_capacity;
        std::unique_ptr<wchar_t[]> grown(new wchar_t[capacity]);
        std::wmemcpy(grown.get(), m_data, m_size);
        m_heap = std::move(grown);
        m_data = m_heap.get();
        m_capacity = capacity;
    }

    wchar_t m_inline[kInlineQty];
    std::unique_ptr<wchar_t[]> m_heap;
    wchar_t* m_data = m_inline;
    std::size_t m_size = 0;
    std::size_t m_capacity = kInlineQty;
};

// Lays the message out element by element: a character, an escape, or a whole insert. At the
// wrapping widths it remembers the last run of the text's own blanks on the current line, where
// the line is broken once an element brings it to the width.
class MessageLayout
{
public:
    explicit MessageLayout(DWORD width)
        : m_width(width), m_wraps(width > 0 && width < FORMAT_MESSAGE_MAX_WIDTH_MASK)
    {
    }

    // Characters written as they are; a CR or an LF among them starts a new line.
    void putElement(const wchar_t* text, std::size_t count)
    {
        const std::size_t begin = m_text.size();
        m_text.append(text, count);
        for (std::size_t at = m_text.size(); at > begin; --at) {
            const wchar_t c = m_text.data()[at - 1];
            if (c == L'\r' || c == L'\n') {
                startLine(at);
                break;
            }
        }
        if (count > 0)
            wrapIfDue();
    }

    void putCharacter(wchar_t c)
    {
        m_text.append(c);
        if (c == L'\r' || c == L'\n')
            startLine(m_text.size());
        wrapIfDue();
    }

    // A space of the text: a place where a line may be broken.
    void putBlank()
    {
        const std::size_t at = m_text.size();
        m_text.append(L' ');
        if (!(m_hasRun && m_runEnd == at))
            m_runBegin = at;
        m_runEnd = at + 1;
        m_hasRun = true;
        wrapIfDue();
    }

    void putLineBreak() { putElement(L"\r\n", 2); }

    // A line break of the text itself.
    void putTextLineBreak()
    {
        if (m_width == 0)
            putLineBreak();
        else
            putBlank();
    }

    // %t: a tab at width 0 only; at every other width, 255 included, a line break as on Windows.
    void putTab()
    {
        if (m_width == 0)
            putCharacter(L'\t');
        else
            putLineBreak();
    }

    const WideText& text() const { return m_text; }

private:
    void startLine(std::size_t at)
    {
        m_lineStart = at;
        m_hasRun = false;
    }

    // One break per element: a line still at the width after it (a long insert after a blank)
    // is broken again only after the next element, as on Windows.
    void wrapIfDue()
    {
        if (!m_wraps || m_text.size() - m_lineStart < m_width)
            return;
        if (m_hasRun) {
            m_text.replaceWithLineBreak(m_runBegin, m_runEnd);
            startLine(m_runBegin + 2);
        } else {
            m_text.append(L"\r\n", 2);
            startLine(m_text.size());
        }
    }

    WideText m_text;
    std::size_t m_width;
    bool m_wraps;
    std::size_t m_lineStart = 0;
    bool m_hasRun = false;
    std::size_t m_runBegin = 0;
    std::size_t m_runEnd = 0;
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

// The horizon of an allocated block, which holds the whole text: no field is held short of it.
constexpr std::size_t kUnboundedHorizon = static_cast<std::size_t>(-1) / 4;

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
    while (at < end && std::wcschr(L"-+ #0", *at) != nullptr)
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
    } else if (left >= 1 && std::wcschr(L"hlwI", *at) != nullptr) {
        wide64 = *at == L'I'; // pointer-sized
        ++at;
    }
    const std::wstring sizeText(size, at);
    if (at + 1 != end)
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
    format.isPlainDecimal = plainFormat && (format.isSigned || type == L'u')
                            && (sizeText.empty() || sizeText == L"l" || wide64 || sizeText == L"I32");
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
    wchar_t* const end = digits + sizeof digits / sizeof *digits;
    wchar_t* at = end;
    do {
        *--at = static_cast<wchar_t>(L'0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    if (negative)
        *--at = L'-';
    layout.putElement(at, static_cast<std::size_t>(end - at));
}

// Prints an insert with a whole printf format (its "%" included) and lays it out as one element.
bool putPrintedInsert(MessageLayout& layout, const wchar_t* format, const u64* slots, const InsertFormat& insert)
{
    wchar_t local[128];
    int length = printInsert(local, sizeof local / sizeof *local, format, slots, insert);
    if (length >= 0) {
        layout.putElement(local, static_cast<std::size_t>(length));
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
    layout.putElement(large.data(), static_cast<std::size_t>(length));
    return true;
}

// The field of an insert's format: its flags, width and precision with the values of their stars
// read as the runtime reads them, and where the size and type begin.
struct InsertField
{
    std::wstring flags;
    std::size_t width = 0;
    bool leftAligned = false; // from a negative * only; a "-" written stays among the flags
    bool hasPrecision = false;
    std::size_t precision = 0;
    const wchar_t* sizeAndType = nullptr;
    bool isWellFormed = true; // false for digits behind a *, which the runtime refuses
};

std::size_t readFieldNumber(const wchar_t*& at, const wchar_t* end)
{
    std::size_t value = 0;
    for (; at < end && isDigit(*at); ++at)
        value = value < 0x80000000u ? value * 10 + static_cast<std::size_t>(*at - L'0') : value;
    return value;
}

// For a format that learnInsertFormat accepted.
InsertField learnInsertField(const wchar_t* begin, const wchar_t* end, const u64* slots)
{
    InsertField field;
    const wchar_t* at = begin;
    while (at < end && std::wcschr(L"-+ #0", *at) != nullptr)
        field.flags.push_back(*at++);
    if (at < end && *at == L'*') {
        const long long width = slotAsInt(*slots++);
        field.leftAligned = width < 0;
        field.width = static_cast<std::size_t>(width < 0 ? -width : width);
        ++at;
        field.isWellFormed = !(at < end && isDigit(*at));
    } else {
        field.width = readFieldNumber(at, end);
    }
    if (at < end && *at == L'.') {
        ++at;
        field.hasPrecision = true;
        if (at < end && *at == L'*') {
            const int precision = slotAsInt(*slots);
            field.hasPrecision = precision >= 0; // a negative precision counts as none, as in C
            field.precision = static_cast<std::size_t>(precision < 0 ? 0 : precision);
            ++at;
            field.isWellFormed = field.isWellFormed && !(at < end && isDigit(*at));
        } else {
            field.precision = readFieldNumber(at, end);
        }
    }
    field.sizeAndType = at;
    return field;
}

// A field far wider, or a number's precision far longer, than the `horizon` beyond which the
// caller sees nothing: the insert is printed held short, with the same first `horizon` characters
// (and at least that many) and the same padding in view, without making the billions of characters
// that nobody would see. A text's precision only limits what is read, so it is never held.
bool putHeldInsert(MessageLayout& layout, const u64* slots, const wchar_t* end, const InsertFormat& insert,
                   const InsertField& field, std::size_t horizon)
{
    InsertFormat held = insert;
    held.starQty = 0;
    const u64* const value = slots + insert.starQty;
    const std::wstring sizeAndType(field.sizeAndType, end);
    // A number's zeros run ahead of at most 22 digits and a sign or prefix of 3 characters.
    const std::size_t precisionReach = horizon + 32;
    const bool holdsPrecision = insert.value != InsertFormat::Value::Pointer && std::wcschr(L"cC", end[-1]) == nullptr
                                && field.hasPrecision && field.precision > precisionReach;
    std::wstring precision;
    if (field.hasPrecision)
        precision = L"." + std::to_wstring(holdsPrecision ? precisionReach : field.precision);

    // The text without its field first: how long it is decides the padding.
    const std::wstring natural = L"%" + field.flags + precision + sizeAndType;
    const int naturalLength = printInsert(nullptr, 0, natural.c_str(), value, held);
    if (naturalLength < 0)
        return false;
    std::size_t length = static_cast<std::size_t>(naturalLength);
    if (holdsPrecision)
        length += field.precision - precisionReach; // each digit of precision one more zero
    const std::size_t padding = field.width > length ? field.width - length : 0;
    const std::size_t width = padding == 0 ? 0 : static_cast<std::size_t>(naturalLength) + std::min(padding, horizon);
    // No width is written as none: a lone 0 would read as a flag.
    const std::wstring widthText =
        width == 0 ? std::wstring() : (field.leftAligned ? L"-" : L"") + std::to_wstring(width);
    const std::wstring format = L"%" + field.flags + widthText + precision + sizeAndType;
    return putPrintedInsert(layout, format.c_str(), value, held);
}

// Formats the insert whose first slot is `slots[0]` with the format between `begin` and `end`,
// or as a wide string when `begin` is null, and lays it out as one element. An insert's
// characters from `horizon` on can never reach the caller (see FormatMessageW). False for a format
// that is refused.
bool putInsert(MessageLayout& layout, const u64* slots, const wchar_t* begin, const wchar_t* end, std::size_t horizon)
{
    InsertFormat insert;
    if (begin != nullptr && !learnInsertFormat(begin, end, insert))
        return false;
    if (insert.isPlainText) {
        const auto* text = reinterpret_cast<const wchar_t*>(static_cast<std::uintptr_t>(slots[0]));
        if (text == nullptr)
            text = L"(null)";
        layout.putElement(text, std::wcslen(text));
        return true;
    }
    if (insert.isPlainDecimal) {
        putDecimal(layout, slots[0], insert);
        return true;
    }
    const InsertField field = learnInsertField(begin, end, slots);
    // A format the runtime refuses is refused before it writes anything, however wide its field.
    if (field.isWellFormed && (field.width > horizon || (field.hasPrecision && field.precision > horizon)))
        return putHeldInsert(layout, slots, end, insert, field, horizon);

    wchar_t format[kFormatQty + 2] = L"%";
    std::wmemcpy(format + 1, begin, static_cast<std::size_t>(end - begin));
    format[1 + (end - begin)] = 0;
    return putPrintedInsert(layout, format, slots, insert);
}

// Formats `text` into `layout`: 0, or the error that stopped it, with what came before it kept.
// Characters of an insert from `horizon` on are never delivered (see putInsert).
DWORD layOutMessage(MessageLayout& layout, const wchar_t* text, bool ignoresInserts, const u64* inserts,
                    std::size_t horizon)
{
    const wchar_t* at = text;
    while (*at != 0) {
        if (*at == L'\r' || *at == L'\n') {
            at += at[0] == L'\r' && at[1] == L'\n' ? 2 : 1;
            layout.putTextLineBreak();
            continue;
        }
        if (*at != L'%') {
            if (*at == L' ')
                layout.putBlank();
            else
                layout.putCharacter(*at);
            ++at;
            continue;
        }
        const wchar_t escaped = at[1];
        if (escaped == 0)
            return ERROR_INVALID_PARAMETER; // a % with nothing to escape
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
                    return ERROR_INVALID_PARAMETER;
                at = formatEnd + 1;
            }
            if (ignoresInserts)
                layout.putElement(insert, static_cast<std::size_t>(at - insert));
            else if (inserts == nullptr
                     || !putInsert(layout, inserts + (number - 1), formatBegin, formatEnd, horizon))
                return ERROR_INVALID_PARAMETER;
            continue;
        }
        at += 2;
        switch (escaped) {
        case L'0':
            return 0;
        case L'n':
            layout.putLineBreak();
            break;
        case L't':
            layout.putTab();
            break;
        case L'r':
            layout.putCharacter(L'\r');
            break;
        case L'b':
            layout.putCharacter(L' '); // a space, like "% ": never a wrapping point
            break;
        default:
            layout.putCharacter(escaped); // "% " among them: a space, but not a blank of the text
            break;
        }
    }
    return 0;
}

DWORD failWith(DWORD error)
{
    SetLastError(error);
    return 0;
}

// Hands the text to a caller's buffer of `size` characters: what fits of it, and a terminator.
DWORD deliverInto(wchar_t* buffer, DWORD size, const WideText& text, DWORD error)
{
    if (size > 0) {
        const std::size_t count = text.size() < size ? text.size() : size - 1;
        std::wmemcpy(buffer, text.data(), count);
        buffer[count] = 0;
    }
    if (error == 0 && text.size() >= size)
        error = ERROR_INSUFFICIENT_BUFFER;
    return error != 0 ? failWith(error) : static_cast<DWORD>(text.size());
}

// Hands the text over in a LocalAlloc block of at least `size` characters.
DWORD deliverAllocated(wchar_t** pointer, DWORD size, const WideText& text)
{
    if (text.size() >= 0xFFFFFFFFull)
        return failWith(ERROR_NOT_ENOUGH_MEMORY); // a count that a DWORD cannot return
    const std::size_t characters = text.size() + 1 > size ? text.size() + 1 : size;
    auto* const block = static_cast<wchar_t*>(LocalAlloc(LMEM_FIXED, characters * sizeof(wchar_t)));
    if (block == nullptr)
        return 0; // LocalAlloc set the last error
    std::wmemcpy(block, text.data(), text.size());
    block[text.size()] = 0;
    *pointer = block;
    return static_cast<DWORD>(text.size());
}

} // namespace

DWORD FormatMessageW(DWORD flags, const void* source, DWORD /*messageId*/, DWORD /*languageId*/, wchar_t* buffer,
                     DWORD size, const u64* inserts)
{
    const bool allocates = (flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) != 0;
    wchar_t** const allocated = allocates ? reinterpret_cast<wchar_t**>(buffer) : nullptr;
    if (allocated != nullptr)
        *allocated = nullptr;
    if ((flags & FORMAT_MESSAGE_FROM_STRING) == 0 || (flags & ~kKnownFlags) != 0 || source == nullptr
        || buffer == nullptr) {
        if (buffer != nullptr && !allocates && size > 0)
            buffer[0] = 0;
        return failWith(ERROR_INVALID_PARAMETER);
    }
    try {
        MessageLayout layout(flags & FORMAT_MESSAGE_MAX_WIDTH_MASK);
        // A caller's buffer shows at most `size` characters. A wrap can pull an insert back by no
        // more than a run of the text's own blanks, so no character of an insert from `size` plus
        // the text's length on is ever seen; an insert that long breaks its line at every width. An
        // allocated block shows everything.
        const auto* const text = static_cast<const wchar_t*>(source);
        const std::size_t shown = size > FORMAT_MESSAGE_MAX_WIDTH_MASK ? size : FORMAT_MESSAGE_MAX_WIDTH_MASK;
        const std::size_t horizon = allocates ? kUnboundedHorizon : shown + std::wcslen(text) + 2;
        DWORD error = layOutMessage(layout, text, (flags & FORMAT_MESSAGE_IGNORE_INSERTS) != 0, inserts, horizon);
        if (error == 0 && layout.text().size() == 0)
            error = ERROR_NO_WORK_DONE;
        if (!allocates)
            return deliverInto(buffer, size, layout.text(), error);
        return error != 0 ? failWith(error) : deliverAllocated(allocated, size, layout.text());
    } catch (const std::bad_alloc&) {
        if (!allocates && size > 0)
            buffer[0] = 0;
        return failWith(ERROR_NOT_ENOUGH_MEMORY);
    }
}
