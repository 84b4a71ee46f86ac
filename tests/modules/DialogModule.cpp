// The owner's resource module of the status window's tests: its dialog templates, status texts,
// and a response spec whose plug-in 0 shows the situation in the status window.
#include "platform/Windows.h"

#include "StringRows.h"

namespace {

// Dialog 101 starts hidden, 102 shown; both have their text control as 1001.
const ZRDialogTemplate kStatusDialog = {WS_POPUP | WS_CAPTION, 440, 76, L"Status", 1001, SS_LEFT, 16, 16, 408, 44};
const ZRDialogTemplate kShownDialog = {WS_POPUP | WS_CAPTION | WS_VISIBLE, 240, 60, nullptr, 1001, SS_CENTER,
                                       8, 8, 224, 44};

const StringRow kRows[] = {
    {100, L"Reading the session profile"},
    {101, L""},
    // Kind 2 with a wide-string argument from the cursor, no display text, plug-in 0.
    {6001, L"2~536870912~2~s~0||0``Profile %1!s! loaded"},
};

} // namespace

extern "C" __attribute__((visibility("default"))) const ZRDialogTemplate* ZRDialogTemplateW(int dialogID)
{
    switch (dialogID) {
    case 101:
        return &kStatusDialog;
    case 102:
        return &kShownDialog;
    default:
        return nullptr;
    }
}

extern "C" __attribute__((visibility("default"))) int ZRLoadStringW(unsigned int id, wchar_t* buffer, int bufferMax)
{
    return serveStringRow(kRows, id, buffer, bufferMax);
}
