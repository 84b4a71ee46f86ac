// A resource module for tests: serves a few strings through the exported string loader.
#include <cwchar>

namespace {
struct Row
{
    unsigned int id;
    const wchar_t* text;
};
const Row kRows[] = {
    {1, L"one"},
    {2, L""},
    {7, L"seven: a longer text for truncation"},
    {10006, L"1~-1~2~u`s~||``test series note %1!u! %2!s!`"},
};
} // namespace

extern "C" __attribute__((visibility("default"))) int ZRLoadStringW(unsigned int id, wchar_t* buffer, int bufferMax)
{
    for (const Row& row : kRows) {
        if (row.id != id)
            continue;
        if (buffer == nullptr || bufferMax < 1)
            return 0;
        int count = static_cast<int>(std::wcslen(row.text));
        if (count >= bufferMax)
            count = bufferMax - 1;
        std::wmemcpy(buffer, row.text, static_cast<size_t>(count));
        buffer[count] = L'\0';
        return count;
    }
    return 0;
}

extern "C" __attribute__((visibility("default"))) int zmuTestModuleMarker()
{
    return 42;
}
