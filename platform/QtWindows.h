// The bridge between Qt widgets and the window handles of platform/Windows.h, for an owner that
// makes its windows with Qt and hands them to the library.
#pragma once

#include "platform/WinTypes.h"

class QWidget;

// The handle of `widget`, made at the first call and the same for every later call. A non-zero
// `controlID` (also on a later call) makes the widget the control that GetDlgItem finds by that id
// among its parent's children. Null with 87 for a null widget. The handle never owns the widget,
// but DestroyWindow on it deletes the widget.
HWND AdoptWindowW(QWidget* widget, int controlID = 0);
// The widget of a handle, or null if the handle names no window any more.
QWidget* GetWindowWidget(HWND window);
