#include "platform/MessageBox.h"

#include "platform/Utf8Text.h"

#include <unistd.h>

#include <cerrno>
#include <string>

namespace {

// The buttons of each button set, left to right; MB_DEFBUTTONn picks the n-th.
struct ButtonSet
{
    int buttons[3];
    int count;
};

constexpr ButtonSet kButtonSets[] = {
    {{IDOK}, 1},                             // MB_OK
    {{IDOK, IDCANCEL}, 2},                   // MB_OKCANCEL
    {{IDABORT, IDRETRY, IDIGNORE}, 3},       // MB_ABORTRETRYIGNORE
    {{IDYES, IDNO, IDCANCEL}, 3},            // MB_YESNOCANCEL
    {{IDYES, IDNO}, 2},                      // MB_YESNO
    {{IDRETRY, IDCANCEL}, 2},                // MB_RETRYCANCEL
    {{IDCANCEL, IDTRYAGAIN, IDCONTINUE}, 3}, // MB_CANCELTRYCONTINUE
};

int defaultButton(UINT type)
{
    const UINT set = type & MB_TYPEMASK;
    if (set >= sizeof kButtonSets / sizeof kButtonSets[0])
        return IDOK;
    const ButtonSet& buttons = kButtonSets[set];
    const int chosen = static_cast<int>((type & MB_DEFMASK) >> 8);
    // A default button that the set does not have falls back to the first, as on Windows.
    return chosen < buttons.count ? buttons.buttons[chosen] : buttons.buttons[0];
}

// One write call for the whole block where the system allows, so that the box is not interleaved
// with other writers' lines; retried on EINTR and continued after a short write.
void writeToStandardError(const std::string& block)
{
    const char* data = block.data();
    std::size_t size = block.size();
    while (size > 0) {
        const ssize_t written = ::write(STDERR_FILENO, data, size);
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return;
        }
        data += written;
        size -= static_cast<std::size_t>(written);
    }
}

} // namespace

int MessageBoxW(HWND, const wchar_t* text, const wchar_t* caption, UINT type)
{
    std::string block = "[";
    block += zmu_platform::narrowToUtf8(caption == nullptr ? L"Error" : caption);
    block += "]\n";
    if (text != nullptr)
        block += zmu_platform::narrowToUtf8(text);
    if (block.back() != '\n')
        block += '\n';
    writeToStandardError(block);
    return defaultButton(type);
}
