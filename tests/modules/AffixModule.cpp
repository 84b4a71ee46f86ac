// A resource module for the tests of description affixes: serves affix strings from ID 700 on
// through the exported string loader, as an owner's resource module does.
#include <cwchar>

namespace {
struct Row
{
    unsigned int id;
    const wchar_t* text;
};

const Row kRows[] = {
    {700, L"[prefix] "},
    {701, L" [suffix]"},
    // An affix with an insert of its own: formatting runs after the affixes are in place.
    {702, L"<%1!u!>"},
    // Present and empty: an affix that adds nothing is refused.
    {703, L""},
    // Long enough to be cut by the room left in a target.
    {704, L"0123456789012345678901234567890123456789"},
    // 705 is missing on purpose.
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
