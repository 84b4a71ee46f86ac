// The string table of a test resource module: rows of ids and texts, served the way a module's
// ZRLoadStringW answers (the text cut to bufferMax - 1 characters; 0 for a missing id).
#pragma once

#include <cstddef>
#include <cwchar>

struct StringRow
{
    unsigned int id;
    const wchar_t* text;
};

template <std::size_t N>
int serveStringRow(const StringRow (&rows)[N], unsigned int id, wchar_t* buffer, int bufferMax)
{
    for (const StringRow& row : rows) {
        if (row.id != id)
            continue;
        if (buffer == nullptr || bufferMax < 1)
            return 0;
        int count = static_cast<int>(std::wcslen(row.text));
        if (count >= bufferMax)
            count = bufferMax - 1;
        std::wmemcpy(buffer, row.text, static_cast<std::size_t>(count));
        buffer[count] = L'\0';
        return count;
    }
    return 0;
}
