// The default display function of a monitor: a modal text box that works where there is no screen.
#pragma once

#include "platform/WinTypes.h"

// The button sets and default-button choices of the style word, beside those in WinTypes.h.
constexpr UINT MB_ABORTRETRYIGNORE = 0x2;
constexpr UINT MB_YESNOCANCEL = 0x3;
constexpr UINT MB_RETRYCANCEL = 0x5;
constexpr UINT MB_CANCELTRYCONTINUE = 0x6;
constexpr UINT MB_TYPEMASK = 0xF;
constexpr UINT MB_DEFBUTTON1 = 0x000;
constexpr UINT MB_DEFBUTTON2 = 0x100;
constexpr UINT MB_DEFBUTTON3 = 0x200;
constexpr UINT MB_DEFBUTTON4 = 0x300;
constexpr UINT MB_DEFMASK = 0xF00;
constexpr int IDABORT = 3;
constexpr int IDRETRY = 4;
constexpr int IDIGNORE = 5;
constexpr int IDTRYAGAIN = 10;
constexpr int IDCONTINUE = 11;

// Like MessageBoxW with nobody to press a button: writes the caption and the text to standard
// error as one block, and answers with the style's default button (IDOK for MB_OK, IDYES for
// MB_YESNO, the button named by MB_DEFBUTTONn where the set has one). A null caption is "Error",
// as on Windows; `parent` is not used.
int MessageBoxW(HWND parent, const wchar_t* text, const wchar_t* caption, UINT type);
