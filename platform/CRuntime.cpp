#include "platform/CRuntime.h"

#include "platform/Utf8Text.h"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <cwchar>
#include <cwctype>
#include <string>

int _wcsicmp(const wchar_t* left, const wchar_t* right)
{
    if (left == nullptr || right == nullptr) {
        errno = EINVAL;
        return INT_MAX; // _NLSCMPERROR
    }
    return ::wcscasecmp(left, right);
}

namespace {

// Collects formatted output: keeps what fits into the caller's buffer and counts all of it.
class WideSink
{
public:
    WideSink(wchar_t* buffer, std::size_t count) : m_buffer(buffer), m_count(buffer == nullptr ? 0 : count) {}

    void put(wchar_t c)
    {
        if (m_total < m_count)
            m_buffer[m_total] = c;
        ++m_total;
    }
    void put(const wchar_t* text, std::size_t size)
    {
        for (std::size_t i = 0; i < size; ++i)
            put(text[i]);
    }
    void repeat(wchar_t c, std::size_t times)
    {
        for (std::size_t i = 0; i < times; ++i)
            put(c);
    }
    // Narrow output of the C library's number formatting: ASCII, except perhaps a locale's
    // decimal point, which the locale writes in its own encoding (UTF-8 here).
    void putNarrow(const char* text, std::size_t size)
    {
        bool ascii = true;
        for (std::size_t i = 0; i < size && ascii; ++i)
            ascii = static_cast<unsigned char>(text[i]) < 0x80;
        if (ascii) {
            for (std::size_t i = 0; i < size; ++i)
                put(static_cast<wchar_t>(text[i]));
            return;
        }
        const std::wstring wide = zmu_platform::widenUtf8(text, size);
        put(wide.data(), wide.size());
    }

    std::size_t total() const { return m_total; }
    std::size_t capacity() const { return m_count; }

private:
    wchar_t* m_buffer;
    std::size_t m_count;
    std::size_t m_total = 0;
};

// One conversion of a format, as written.
struct Conversion
{
    std::string flags;   // of "-+ #0"
    int width = -1;      // -1: none
    int precision = -1;  // -1: none
    enum class Size { Default, Char, Short, Bits32, Bits64, Pointer, LongDouble, Narrow, Wide } size = Size::Default;
    wchar_t type = 0;

    bool leftAligned() const { return flags.find('-') != std::string::npos; }
    bool zeroPadded() const { return flags.find('0') != std::string::npos; }
};

// Formats with the Windows meaning of a wide format. Numbers go through the C library one
// conversion at a time, with the argument already taken at its Windows width; text and
// characters are written here, so that narrow text is read as UTF-8 whatever the locale.
class WindowsWideFormatter
{
public:
    WindowsWideFormatter(WideSink& sink, va_list args) : m_sink(sink) { va_copy(m_args, args); }
    ~WindowsWideFormatter() { va_end(m_args); }
    WindowsWideFormatter(const WindowsWideFormatter&) = delete;
    WindowsWideFormatter& operator=(const WindowsWideFormatter&) = delete;

    // False for a format that Windows refuses (an unknown conversion, %n).
    bool format(const wchar_t* format)
    {
        for (const wchar_t* at = format; *at != 0;) {
            if (*at != L'%') {
                m_sink.put(*at++);
                continue;
            }
            ++at;
            if (*at == L'%') {
                m_sink.put(L'%');
                ++at;
                continue;
            }
            Conversion conversion;
            at = readConversion(at, conversion);
            if (at == nullptr || !write(conversion))
                return false;
        }
        return true;
    }

private:
    const wchar_t* readConversion(const wchar_t* at, Conversion& conversion)
    {
        while (*at != 0 && std::wcschr(L"-+ #0", *at) != nullptr)
            conversion.flags.push_back(static_cast<char>(*at++));
        if (*at == L'*') {
            int width = va_arg(m_args, int);
            if (width < 0) {
                conversion.flags.push_back('-');
                width = width == INT_MIN ? INT_MAX : -width;
            }
            conversion.width = width;
            ++at;
        } else {
            at = readNumber(at, conversion.width);
        }
        if (*at == L'.') {
            ++at;
            if (*at == L'*') {
                const int precision = va_arg(m_args, int);
                conversion.precision = precision < 0 ? -1 : precision;
                ++at;
            } else {
                conversion.precision = 0;
                at = readNumber(at, conversion.precision);
            }
        }
        at = readSize(at, conversion.size);
        if (*at == 0)
            return nullptr;
        conversion.type = *at++;
        return at;
    }

    static const wchar_t* readNumber(const wchar_t* at, int& number)
    {
        if (*at < L'0' || *at > L'9')
            return at;
        long value = 0;
        while (*at >= L'0' && *at <= L'9') {
            if (value < INT_MAX)
                value = value * 10 + (*at - L'0');
            ++at;
        }
        number = value > INT_MAX ? INT_MAX : static_cast<int>(value);
        return at;
    }

    static const wchar_t* readSize(const wchar_t* at, Conversion::Size& size)
    {
        using Size = Conversion::Size;
        switch (*at) {
        case L'h':
            if (at[1] == L'h') {
                size = Size::Char;
                return at + 2;
            }
            size = Size::Short;
            return at + 1;
        case L'l':
            if (at[1] == L'l') {
                size = Size::Bits64;
                return at + 2;
            }
            size = Size::Bits32; // long is 32 bits on Windows
            return at + 1;
        case L'w':
            size = Size::Wide;
            return at + 1;
        case L'L':
            size = Size::LongDouble;
            return at + 1;
        case L'I':
            if (at[1] == L'6' && at[2] == L'4') {
                size = Size::Bits64;
                return at + 3;
            }
            if (at[1] == L'3' && at[2] == L'2') {
                size = Size::Bits32;
                return at + 3;
            }
            size = Size::Pointer;
            return at + 1;
        case L'j':
            size = Size::Bits64;
            return at + 1;
        case L'z':
        case L't':
            size = Size::Pointer;
            return at + 1;
        default:
            return at;
        }
    }

    bool write(const Conversion& conversion)
    {
        using Size = Conversion::Size;
        switch (conversion.type) {
        case L'd':
        case L'i':
            return writeSigned(conversion);
        case L'u':
        case L'o':
        case L'x':
        case L'X':
            return writeUnsigned(conversion);
        case L'e':
        case L'E':
        case L'f':
        case L'F':
        case L'g':
        case L'G':
        case L'a':
        case L'A':
            return writeFloating(conversion);
        case L'c':
        case L'C': {
            const bool narrow = conversion.size == Size::Short
                                || (conversion.type == L'C' && conversion.size != Size::Bits32 && conversion.size != Size::Wide);
            const int value = va_arg(m_args, int);
            wchar_t c = static_cast<wchar_t>(value);
            if (narrow)
                c = static_cast<unsigned char>(value) < 0x80 ? static_cast<wchar_t>(value & 0x7F) : L'\xFFFD';
            writePadded(&c, 1, conversion);
            return true;
        }
        case L's':
        case L'S': {
            const bool narrow = conversion.size == Size::Short
                                || (conversion.type == L'S' && conversion.size != Size::Bits32 && conversion.size != Size::Wide);
            if (narrow)
                writeNarrowText(va_arg(m_args, const char*), conversion);
            else
                writeWideText(va_arg(m_args, const wchar_t*), conversion);
            return true;
        }
        case L'p': {
            // Windows writes a pointer as fixed-width upper-case hexadecimal, without "0x".
            char digits[2 * sizeof(void*) + 1];
            const int size = std::snprintf(digits, sizeof digits, "%0*llX", static_cast<int>(2 * sizeof(void*)),
                                           static_cast<unsigned long long>(
                                               reinterpret_cast<std::uintptr_t>(va_arg(m_args, void*))));
            wchar_t wide[sizeof digits];
            for (int i = 0; i < size; ++i)
                wide[i] = static_cast<wchar_t>(digits[i]);
            Conversion spaces = conversion;
            spaces.flags = conversion.leftAligned() ? "-" : "";
            writePadded(wide, static_cast<std::size_t>(size), spaces);
            return true;
        }
        case L'%':
            m_sink.put(L'%');
            return true;
        default:
            return false; // %n and anything unknown: refused, as by the Windows runtime
        }
    }

    bool writeSigned(const Conversion& conversion)
    {
        using Size = Conversion::Size;
        long long value = 0;
        switch (conversion.size) {
        case Size::Char:
            value = static_cast<signed char>(va_arg(m_args, int));
            break;
        case Size::Short:
            value = static_cast<short>(va_arg(m_args, int));
            break;
        case Size::Bits64:
        case Size::Pointer:
        case Size::LongDouble:
            value = va_arg(m_args, long long);
            break;
        default:
            value = va_arg(m_args, int);
            break;
        }
        return writeNumber(conversion, "ll", value);
    }

    bool writeUnsigned(const Conversion& conversion)
    {
        using Size = Conversion::Size;
        unsigned long long value = 0;
        switch (conversion.size) {
        case Size::Char:
            value = static_cast<unsigned char>(va_arg(m_args, unsigned int));
            break;
        case Size::Short:
            value = static_cast<unsigned short>(va_arg(m_args, unsigned int));
            break;
        case Size::Bits64:
        case Size::Pointer:
        case Size::LongDouble:
            value = va_arg(m_args, unsigned long long);
            break;
        default:
            value = va_arg(m_args, unsigned int);
            break;
        }
        return writeNumber(conversion, "ll", value);
    }

    bool writeFloating(const Conversion& conversion)
    {
        if (conversion.size == Conversion::Size::LongDouble)
            return writeNumber(conversion, "L", va_arg(m_args, long double));
        return writeNumber(conversion, "", va_arg(m_args, double));
    }

    template <typename Value>
    bool writeNumber(const Conversion& conversion, const char* length, Value value)
    {
        std::string spec = "%" + conversion.flags;
        if (conversion.width >= 0)
            spec += std::to_string(conversion.width);
        if (conversion.precision >= 0)
            spec += "." + std::to_string(conversion.precision);
        spec += length;
        spec.push_back(static_cast<char>(conversion.type));

        char local[128];
        const int size = std::snprintf(local, sizeof local, spec.c_str(), value);
        if (size < 0)
            return false;
        if (static_cast<std::size_t>(size) < sizeof local) {
            m_sink.putNarrow(local, static_cast<std::size_t>(size));
            return true;
        }
        std::string large(static_cast<std::size_t>(size) + 1, '\0');
        std::snprintf(&large[0], large.size(), spec.c_str(), value);
        m_sink.putNarrow(large.data(), static_cast<std::size_t>(size));
        return true;
    }

    void writeWideText(const wchar_t* text, const Conversion& conversion)
    {
        if (text == nullptr)
            text = L"(null)";
        // With a precision the text need not be terminated: read no further than that.
        const std::size_t size = conversion.precision >= 0
                                     ? ::wcsnlen(text, static_cast<std::size_t>(conversion.precision))
                                     : std::wcslen(text);
        writePadded(text, size, conversion);
    }

    void writeNarrowText(const char* text, const Conversion& conversion)
    {
        if (text == nullptr)
            text = "(null)";
        // The precision counts bytes read, as the Windows runtime counts them for narrow text.
        const std::size_t bytes = conversion.precision >= 0
                                      ? ::strnlen(text, static_cast<std::size_t>(conversion.precision))
                                      : std::strlen(text);
        const std::wstring wide = zmu_platform::widenUtf8(text, bytes);
        writePadded(wide.data(), wide.size(), conversion);
    }

    // Pads text to the width: on the right with "-", else on the left, with zeros under "0" (the
    // Windows runtime pads text with zeros too).
    void writePadded(const wchar_t* text, std::size_t size, const Conversion& conversion)
    {
        const std::size_t width = conversion.width > 0 ? static_cast<std::size_t>(conversion.width) : 0;
        const std::size_t padding = width > size ? width - size : 0;
        if (conversion.leftAligned()) {
            m_sink.put(text, size);
            m_sink.repeat(L' ', padding);
            return;
        }
        m_sink.repeat(conversion.zeroPadded() ? L'0' : L' ', padding);
        m_sink.put(text, size);
    }

    WideSink& m_sink;
    va_list m_args;
};

} // namespace

int _vsnwprintf(wchar_t* buffer, size_t count, const wchar_t* format, va_list args)
{
    if (format == nullptr || (buffer == nullptr && count != 0)) {
        errno = EINVAL;
        return -1;
    }
    WideSink sink(buffer, count);
    WindowsWideFormatter formatter(sink, args);
    if (!formatter.format(format)) {
        errno = EINVAL;
        return -1;
    }
    const std::size_t total = sink.total();
    if (total > static_cast<std::size_t>(INT_MAX))
        return -1;
    if (buffer == nullptr)
        return static_cast<int>(total); // the size query of a null buffer and a count of 0
    if (total > count)
        return -1;
    if (total < count)
        buffer[total] = L'\0';
    return static_cast<int>(total);
}

int _snwprintf(wchar_t* buffer, size_t count, const wchar_t* format, ...)
{
    va_list args;
    va_start(args, format);
    const int result = _vsnwprintf(buffer, count, format, args);
    va_end(args);
    return result;
}

namespace {
// What the Windows runtime leaves in a broken-down time it could not compute: every field -1.
void markInvalid(std::tm& moment)
{
    moment = std::tm{};
    moment.tm_sec = moment.tm_min = moment.tm_hour = -1;
    moment.tm_mday = moment.tm_mon = moment.tm_year = -1;
    moment.tm_wday = moment.tm_yday = moment.tm_isdst = -1;
}
} // namespace

i64 _time64(i64* destination)
{
    const i64 now = static_cast<i64>(std::time(nullptr));
    if (destination != nullptr)
        *destination = now;
    return now;
}

int _localtime64_s(std::tm* destination, const i64* time)
{
    // The Windows runtime converts moments from 1970-01-01 up to 3000-12-31 23:59:59 UTC.
    constexpr i64 kLatest = 32535215999;
    if (destination == nullptr)
        return EINVAL;
    const std::time_t moment = time == nullptr ? 0 : static_cast<std::time_t>(*time);
    if (time == nullptr || *time < 0 || *time > kLatest || ::localtime_r(&moment, destination) == nullptr) {
        markInvalid(*destination);
        return EINVAL;
    }
    return 0;
}

int _get_daylight(int* hours)
{
    if (hours == nullptr)
        return EINVAL;
    ::tzset();
    *hours = ::daylight != 0 ? 1 : 0;
    return 0;
}
