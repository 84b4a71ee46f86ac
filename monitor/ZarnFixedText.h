// Fixed text buffers of the engine: copies that report an overflow by the buffer's last character,
// and the engine's present token separator, saved and restored around a parser.
#pragma once

#include <cstddef>
#include <cwchar>

// Copies `source` (null counts as empty) into `target` of `capacity` characters. False when the
// text filled the last character: the buffer is then unterminated, and the caller must treat the
// copy as failed. The rest of the buffer is zeroed.
inline bool copyZarnFixedText(wchar_t* target, std::size_t capacity, const wchar_t* source)
{
    if (target == nullptr || capacity == 0)
        return false;
    std::wcsncpy(target, source != nullptr ? source : L"", capacity);
    return target[capacity - 1] == L'\0';
}

// Appends `source` to the text in `target` of `capacity` characters, with the same overflow test.
inline bool appendZarnFixedText(wchar_t* target, std::size_t capacity, const wchar_t* source)
{
    if (target == nullptr || capacity == 0)
        return false;
    std::size_t length = 0;
    while (length < capacity && target[length] != L'\0')
        ++length;
    if (length == capacity)
        return false;
    return copyZarnFixedText(target + length, capacity - length, source);
}

// Keeps the separator that a parser found, and puts it back when the parser leaves, however it
// leaves: the parsers call one another, and each sets the separator it cuts at.
class ZarnTokenSeparatorKeeper
{
public:
    explicit ZarnTokenSeparatorKeeper(wchar_t (&separator)[2])
        : m_separator(separator), m_saved{separator[0], separator[1]}
    {
    }
    ~ZarnTokenSeparatorKeeper()
    {
        m_separator[0] = m_saved[0];
        m_separator[1] = m_saved[1];
    }
    ZarnTokenSeparatorKeeper(const ZarnTokenSeparatorKeeper&) = delete;
    ZarnTokenSeparatorKeeper& operator=(const ZarnTokenSeparatorKeeper&) = delete;

    // Makes `character` the present separator, as a one-character string.
    void use(wchar_t character)
    {
        m_separator[0] = character;
        m_separator[1] = L'\0';
    }

private:
    wchar_t (&m_separator)[2];
    wchar_t m_saved[2];
};
