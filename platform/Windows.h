// Windows, dialogs and the few drawing objects of the status window, over Qt Widgets.
//
// A window handle names a QWidget in a table of the layer: the handle stays unique for the
// process, so a handle whose widget was destroyed (by DestroyWindow or by anyone else) is simply
// no window any more (IsWindow FALSE, other calls FALSE or null with last error 1400); it never
// reaches freed memory. Widgets come in two ways: CreateDialogParamW builds a dialog from the
// template a resource module offers (ZRDialogTemplateW below), and an owner wraps widgets it made
// itself with AdoptWindowW (platform/QtWindows.h).
//
// Every call needs a QApplication. Without one there are no windows: calls taking a handle fail
// with 1400, CreateDialogParamW with 1407, SystemParametersInfoW with 50. Widgets live on the
// application's thread. A call from another thread is carried to that thread and waits there
// until its event loop runs it (exec or processEvents), as a cross-thread window message waits on
// Windows; the last error comes back to the caller's thread.
#pragma once

#include "platform/WinTypes.h"

#include <cstdint>

struct HBRUSH__;
using HBRUSH = HBRUSH__*;
struct HFONT__;
using HFONT = HFONT__*;
struct HDC__;
using HDC = HDC__*;
using HGDIOBJ = void*;
using COLORREF = DWORD; // 0x00BBGGRR
using WPARAM = unsigned long long;
using LPARAM = long long;
using INT_PTR = long long;
using LONG_PTR = long long;
using LRESULT = long long;
using DLGPROC = INT_PTR (*)(HWND, UINT, WPARAM, LPARAM);

struct RECT
{
    LONG left;
    LONG top;
    LONG right;
    LONG bottom;
};

constexpr int LF_FACESIZE = 32;
struct LOGFONTW
{
    LONG lfHeight; // below 0: the character height in pixels; above 0: the cell height
    LONG lfWidth;
    LONG lfEscapement;
    LONG lfOrientation;
    LONG lfWeight; // 100 to 900, 400 normal, 700 bold
    BYTE lfItalic;
    BYTE lfUnderline;
    BYTE lfStrikeOut;
    BYTE lfCharSet;
    BYTE lfOutPrecision;
    BYTE lfClipPrecision;
    BYTE lfQuality;
    BYTE lfPitchAndFamily;
    wchar_t lfFaceName[LF_FACESIZE];
};

// Windows' layout; its size is 504 bytes only where wide characters are 16-bit.
struct NONCLIENTMETRICSW
{
    UINT cbSize;
    int iBorderWidth;
    int iScrollWidth;
    int iScrollHeight;
    int iCaptionWidth;
    int iCaptionHeight;
    LOGFONTW lfCaptionFont;
    int iSmCaptionWidth;
    int iSmCaptionHeight;
    LOGFONTW lfSmCaptionFont;
    int iMenuWidth;
    int iMenuHeight;
    LOGFONTW lfMenuFont;
    LOGFONTW lfStatusFont;
    LOGFONTW lfMessageFont;
    int iPaddedBorderWidth;
};

constexpr DWORD ERROR_NOT_SUPPORTED = 50;
constexpr DWORD ERROR_INVALID_WINDOW_HANDLE = 1400;
constexpr DWORD ERROR_CANNOT_FIND_WND_CLASS = 1407;
constexpr DWORD ERROR_INVALID_INDEX = 1413;
constexpr DWORD ERROR_CONTROL_ID_NOT_FOUND = 1421;
constexpr DWORD ERROR_INVALID_GW_COMMAND = 1405;

constexpr UINT WM_DESTROY = 0x0002;
constexpr UINT WM_SETFONT = 0x0030;
constexpr UINT WM_GETFONT = 0x0031;
constexpr UINT WM_INITDIALOG = 0x0110;
constexpr UINT WM_CTLCOLORDLG = 0x0136;
constexpr UINT WM_CTLCOLORSTATIC = 0x0138;

constexpr LONG_PTR WS_POPUP = 0x80000000;
constexpr LONG_PTR WS_CHILD = 0x40000000;
constexpr LONG_PTR WS_MINIMIZE = 0x20000000;
constexpr LONG_PTR WS_VISIBLE = 0x10000000;
constexpr LONG_PTR WS_DISABLED = 0x08000000;
constexpr LONG_PTR WS_MAXIMIZE = 0x01000000;
constexpr LONG_PTR WS_CAPTION = 0x00C00000;
constexpr LONG_PTR WS_SYSMENU = 0x00080000;
constexpr LONG_PTR WS_EX_TOPMOST = 0x00000008;
constexpr LONG_PTR CS_SAVEBITS = 0x0800;
constexpr LONG_PTR CS_DBLCLKS = 0x0008;
// Static control styles: the alignment of the text.
constexpr DWORD SS_LEFT = 0x0;
constexpr DWORD SS_CENTER = 0x1;
constexpr DWORD SS_RIGHT = 0x2;

constexpr int GWL_EXSTYLE = -20;
constexpr int GWL_STYLE = -16;
constexpr int GCL_STYLE = -26;

constexpr UINT GW_HWNDNEXT = 2;
constexpr UINT GW_OWNER = 4;
constexpr UINT GW_CHILD = 5;

constexpr int SW_HIDE = 0;
constexpr int SW_SHOWNORMAL = 1;
constexpr int SW_SHOWMINIMIZED = 2;
constexpr int SW_SHOWMAXIMIZED = 3;
constexpr int SW_SHOWNOACTIVATE = 4;
constexpr int SW_SHOW = 5;
constexpr int SW_MINIMIZE = 6;
constexpr int SW_RESTORE = 9;

constexpr UINT SWP_NOSIZE = 0x0001;
constexpr UINT SWP_NOMOVE = 0x0002;
constexpr UINT SWP_NOZORDER = 0x0004;
constexpr UINT SWP_NOACTIVATE = 0x0010;
constexpr UINT SWP_FRAMECHANGED = 0x0020;
constexpr UINT SWP_SHOWWINDOW = 0x0040;
constexpr UINT SWP_HIDEWINDOW = 0x0080;
inline const HWND HWND_TOP = nullptr;
inline const HWND HWND_BOTTOM = reinterpret_cast<HWND>(std::intptr_t(1));
inline const HWND HWND_TOPMOST = reinterpret_cast<HWND>(std::intptr_t(-1));
inline const HWND HWND_NOTOPMOST = reinterpret_cast<HWND>(std::intptr_t(-2));

constexpr int COLOR_WINDOW = 5;
constexpr int COLOR_WINDOWTEXT = 8;
constexpr int COLOR_3DFACE = 15;
constexpr COLORREF CLR_INVALID = 0xFFFFFFFF;
constexpr int TRANSPARENT = 1;
constexpr int OPAQUE = 2;

constexpr UINT SPI_GETNONCLIENTMETRICS = 0x0029;
constexpr UINT SPI_GETWORKAREA = 0x0030;

inline const wchar_t* MAKEINTRESOURCEW(int id)
{
    return reinterpret_cast<const wchar_t*>(std::uintptr_t(WORD(id)));
}

// ---- Dialog templates ----------------------------------------------------------------------------

// What a resource module offers for a dialog id: a window with one static text control. Sizes and
// positions are pixels (not dialog units); the window's size is its inner size.
struct ZRDialogTemplate
{
    DWORD style;          // WS_VISIBLE: shown at once; WS_CAPTION, WS_SYSMENU: its frame
    int width;
    int height;
    const wchar_t* title; // null: none
    int textControlID;
    DWORD textStyle;      // SS_LEFT, SS_CENTER or SS_RIGHT; the text wraps at word boundaries
    int textLeft;
    int textTop;
    int textWidth;
    int textHeight;
};
// The module's exported entry "ZRDialogTemplateW": the template of `dialogID`, or null. The
// template must stay valid while the module is loaded.
using ZRDialogTemplateW_Function = const ZRDialogTemplate* (*)(int dialogID);

// Like CreateDialogParamW: builds the dialog of `templateName` (an id made with MAKEINTRESOURCEW)
// from the module's template, owned by `parent` if given, sends WM_INITDIALOG (wParam: the text
// control, lParam: `initParam`) to `procedure`, and shows it if the template has WS_VISIBLE.
// Null with 1813 if the module offers no templates, 1814 if it has none for the id, 87 for a null
// module or a name that is no id, 1400 for a parent that is no window.
HWND CreateDialogParamW(HINSTANCE module, const wchar_t* templateName, HWND parent, DLGPROC procedure,
                        LPARAM initParam);
// Like GetDlgItem: the direct child with the control id; null with 1421 if there is none.
HWND GetDlgItem(HWND dialog, int controlID);
// Like GetDlgCtrlID: the window's control id, 0 for none.
int GetDlgCtrlID(HWND window);

// ---- Windows ------------------------------------------------------------------------------------

// Like IsWindow: the handle names a widget that still exists.
BOOL IsWindow(HWND window);
// Like IsWindowVisible: the widget and all its ancestors are shown.
BOOL IsWindowVisible(HWND window);
// Like DestroyWindow: sends WM_DESTROY to the dialog procedure, if any, then deletes the widget
// and its children at once. Only for widgets that may be deleted: the layer's own dialogs and
// adopted widgets made with new.
BOOL DestroyWindow(HWND window);
// Like ShowWindow: SW_HIDE, SW_SHOW, SW_SHOWNORMAL, SW_SHOWNOACTIVATE, SW_SHOWMINIMIZED,
// SW_SHOWMAXIMIZED, SW_MINIMIZE, SW_RESTORE. Returns whether it was visible before.
BOOL ShowWindow(HWND window, int command);
// Like SetForegroundWindow: raises and activates the window.
BOOL SetForegroundWindow(HWND window);

// Like SetWindowTextW/GetWindowTextW: a window's title, or a control's text (a label, a button,
// a line edit). GetWindowText copies at most size - 1 characters and terminates them, and returns
// the count copied (0 for size 0). The A forms use UTF-8, cut at a character boundary.
BOOL SetWindowTextW(HWND window, const wchar_t* text);
int GetWindowTextLengthW(HWND window);
int GetWindowTextW(HWND window, wchar_t* buffer, int size);
int GetWindowTextLengthA(HWND window);
int GetWindowTextA(HWND window, char* buffer, int size);

// Like GetWindowLongPtrW/SetWindowLongPtrW for GWL_STYLE and GWL_EXSTYLE (else 0 with 1413).
// Reading gives the word last set, with WS_VISIBLE, WS_MINIMIZE, WS_MAXIMIZE, WS_DISABLED,
// WS_CHILD and WS_EX_TOPMOST as the widget has them now. Setting stores the word; as on Windows
// the frame follows only at SetWindowPos with SWP_FRAMECHANGED. A success leaves the last error.
LONG_PTR GetWindowLongPtrW(HWND window, int index);
LONG_PTR SetWindowLongPtrW(HWND window, int index, LONG_PTR value);
// Like GetClassLongPtrW/SetClassLongPtrW for GCL_STYLE; each window has its own class here.
// A dialog starts with CS_SAVEBITS | CS_DBLCLKS, an adopted window with 0. The word has no effect.
unsigned long long GetClassLongPtrW(HWND window, int index);
unsigned long long SetClassLongPtrW(HWND window, int index, long long value);

// Like GetWindowRect: screen coordinates of the window's frame (a child's rectangle, for a control).
BOOL GetWindowRect(HWND window, RECT* rect);
// Like SetWindowPos: position in screen coordinates for a window, in its parent's for a control;
// the size is the outer size. HWND_TOPMOST and HWND_NOTOPMOST set and clear staying on top,
// HWND_BOTTOM lowers, HWND_TOP (or any window) raises; SWP_FRAMECHANGED applies the styles set
// before (child or window, caption, system menu, WS_EX_TOPMOST).
BOOL SetWindowPos(HWND window, HWND insertAfter, int x, int y, int width, int height, UINT flags);
// Like GetParent: a control's parent; a WS_POPUP window's owner; else null.
HWND GetParent(HWND window);
// Like GetWindow: GW_CHILD (first control), GW_HWNDNEXT (next control of the same parent),
// GW_OWNER (a window's owner). Other commands: null with 1405.
HWND GetWindow(HWND window, UINT command);

// Like InvalidateRect: marks the window for painting (a null rect: all of it; a null window: all
// windows). With `erase`, the next painting asks the dialog procedure for its colours again.
BOOL InvalidateRect(HWND window, const RECT* rect, BOOL erase);
// Like UpdateWindow: paints at once what is marked. A dialog procedure is asked first,
// WM_CTLCOLORDLG for the dialog and WM_CTLCOLORSTATIC for each label (wParam: the device context,
// lParam: the control); an answered brush becomes the background, the context's text colour the
// text colour.
BOOL UpdateWindow(HWND window);

// Like SendMessageW: WM_SETFONT (wParam a font from CreateFontIndirectW; the widget keeps a copy)
// and WM_GETFONT are handled here; any other message goes to the dialog procedure, if any, else 0.
LRESULT SendMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

// ---- Drawing objects and system data -------------------------------------------------------------

// Like GetSysColor: COLOR_WINDOW, COLOR_WINDOWTEXT, COLOR_3DFACE from the application's palette
// (Windows' defaults without an application); 0 for another index.
COLORREF GetSysColor(int index);
// Like GetSysColorBrush: the system's brush of that colour, never to be deleted; null for an
// index without one.
HBRUSH GetSysColorBrush(int index);
// Like CreateFontIndirectW: a font of that face, height, weight and slant; null with 87 for a null
// description.
HFONT CreateFontIndirectW(const LOGFONTW* description);
// Like DeleteObject: deletes a font; a system brush is accepted and kept. FALSE for anything else.
BOOL DeleteObject(HGDIOBJ object);
// Like SetTextColor and SetBkMode on a device context that the layer handed to a dialog
// procedure: they return the previous value (CLR_INVALID, 0 for a null context).
COLORREF SetTextColor(HDC context, COLORREF color);
int SetBkMode(HDC context, int mode);
// Like GdiFlush: pushes pending window system requests out.
BOOL GdiFlush();

// Like SystemParametersInfoW for SPI_GETWORKAREA (`data` a RECT: the primary screen's available
// area) and SPI_GETNONCLIENTMETRICS (`data` a NONCLIENTMETRICSW whose cbSize and `size` are its
// size; every font is the application's font). Other actions, or a wrong size: FALSE with 87.
BOOL SystemParametersInfoW(UINT action, UINT size, void* data, UINT winIni);
