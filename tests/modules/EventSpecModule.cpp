// A resource module for the tests of the event reporter: the same response spec under every
// situation number from 3300 to 3329. Each takes five wide strings from the caller as its fillers,
// logs the first and runs plug-in 0, the one that writes the event.
#include <cwchar>

namespace {
const wchar_t kSpec[] = L"1~0~2~s`s`s`s`s~0||0``Milestone %1!s!";
} // namespace

extern "C" __attribute__((visibility("default"))) int ZRLoadStringW(unsigned int id, wchar_t* buffer, int bufferMax)
{
    if (id < 3300 || id > 3329 || buffer == nullptr || bufferMax < 1)
        return 0;
    int count = static_cast<int>(std::wcslen(kSpec));
    if (count >= bufferMax)
        count = bufferMax - 1;
    std::wmemcpy(buffer, kSpec, static_cast<size_t>(count));
    buffer[count] = L'\0';
    return count;
}
