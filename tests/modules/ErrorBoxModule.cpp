// A resource module with version data, for the error box: its file version, product name and the
// texts of a few error numbers.
#include <cwchar>

namespace {
struct Row
{
    unsigned int id;
    const wchar_t* text;
};
const Row kRows[] = {
    {5, L"Five went wrong."},
    {2042, L"The journal could not be opened."},
    {2043, L""},
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
