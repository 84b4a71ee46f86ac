#include "log/loadStringCopy.h"

#include "foundation/UTL_String.h"

#include <cwchar>

int loadStringCopy(HMODULE module, unsigned int id, wchar_t* scratch, int scratchLength, wchar_t** copy)
{
    if (module == nullptr || scratch == nullptr || copy == nullptr || scratchLength < 1)
        return -1;
    const size_t scratchCharacters = static_cast<size_t>(scratchLength);
    int length = -1;
    try {
        if (scratch[0] != L'\0')
            std::wmemset(scratch, 0, scratchCharacters);
        const UTL_String text(module, id, static_cast<unsigned>(scratchLength));
        // The loader cuts to its capacity, so the text and its terminator fit the scratch buffer.
        const wchar_t* const wide = text.wideText();
        const size_t count = std::wcslen(wide);
        if (count >= scratchCharacters)
            throw 0;
        std::wmemcpy(scratch, wide, count + 1);
        delete[] *copy;
        *copy = nullptr;
        *copy = new wchar_t[count + 1];
        std::wmemcpy(*copy, scratch, count + 1);
        length = static_cast<int>(count);
    } catch (...) {
        length = -1;
    }
    std::wmemset(scratch, 0, scratchCharacters);
    return length;
}
