// The status window: one small modeless, always-on-top window that shows one line of progress or
// failure text to the person at the screen. There is at most one in the process.
//
// The window is a Qt widget (platform/Windows.h), and the library runs no event loop. The owner
// must create a QApplication on its GUI thread before `create`, make the reporter there, and let
// that thread's event loop run (QApplication::exec, or processEvents between its own work) so the
// window is drawn and moved. The reporter's own calls paint at once on that thread. A call from
// another thread is carried to the GUI thread and waits until its event loop runs it: never make
// such a call while the GUI thread waits for the calling thread. The status codes are process-wide
// and describe the last operation of any thread.
#pragma once

#include "monitor/ZarnFwd.h"
#include "platform/Windows.h"

#include <exception>

class ZarnStatusReporter
{
public:
    // Makes the dialog `dialogID` (1 to 28671) of `resourceFile`, with the text control
    // `textControlID` (8 to 57343), and shows `title` on it. `styles` keeps only its high 16 bits:
    // 0x10000 keeps the window on top. A null `procedure` takes the built-in one, which gives the
    // window the system's colours and message font and centres it. Null if a reporter exists (21),
    // or if the window cannot be made (the constructor's code).
    static ZarnStatusReporter* create(const wchar_t* title, unsigned long styles, const wchar_t* resourceFile,
                                      unsigned long loadFlags, int dialogID, int textControlID, DLGPROC procedure,
                                      HWND parent);
    // Adopts a dialog that the owner made (platform/QtWindows.h: AdoptWindowW), with its own
    // procedure, and `resourceFile` for strings. The dialog is never destroyed here. Null if a
    // reporter exists (23), or as the constructor fails.
    static ZarnStatusReporter* create(HWND dialog, int textControlID, DLGPROC procedure, const wchar_t* resourceFile,
                                      unsigned long loadFlags);
    static void destroy();
    static ZarnStatusReporter* getLoneInstance();

    // Shows the window in front; true also when there is no window any more.
    bool appear() const;
    bool disappear() const;

    bool isViable() const;
    bool isVisible() const;
    HWND getDialogWindowHandle() const;

    // Formats the text that updateDisplay() shows, cut to 2047 characters.
    bool composeTextMessage(const wchar_t* format, ...);
    // Shows the composed text.
    bool updateDisplay() const;
    // Shows `text` as it is, and waits for the waiting period after it.
    bool updateDisplay(const wchar_t* text) const;
    // Shows string `stringID` (8 to 57343) of `module`, or of the reporter's resource module.
    bool updateDisplay(unsigned int stringID, HINSTANCE module) const;
    // Shows the log description of the monitor's situation in hand (from a plug-in, say); false
    // if there is no reporter.
    static bool updateDisplay(const Zarn* monitor);

    // Milliseconds to sleep after each text, so a person can read it; returns the previous value.
    unsigned long setWaitingPeriod(unsigned long milliseconds);

    bool setDLL_Resources(const wchar_t* file, unsigned long loadFlags);
    // The module stays the caller's: it is never freed here.
    bool setDLL_Resources(HINSTANCE module);

    // Centres `window` on its top-level ancestor, if it is a control of a visible, normal window,
    // and otherwise on the work area, kept inside the work area's size.
    static bool centerWindow(HWND window, HWND insertAfter);
    // The top-level window that a control belongs to; a top-level window itself.
    static HWND learnParentWindowOwner(HWND window);
    // A module found loaded is used as it is; otherwise it is loaded, and `loadedHere` tells so.
    static bool obtainModuleHandle(const wchar_t* file, unsigned long loadFlags, HINSTANCE& module, bool& loadedHere);

    // The codes of the last operation: a status, and the system's last error where there is one.
    //   1, 2      appear: InvalidateRect, UpdateWindow failed
    //   3 to 8    centerWindow: unknown exception, empty target area, bad (or maximized or
    //             minimized) window, work area, GetWindowRect, SetWindowPos failed
    //   9 to 11   composeTextMessage: unknown exception, null format, format failure
    //   12, 13    text control: GetDlgItem failed; bad state or id
    //   14 to 16  resource constructor: dialog not made, bad arguments, a reporter exists
    //   17 to 19  adopting constructor: bad arguments, bad procedure, a reporter exists
    //   20, 21    resource create: unknown exception, a reporter exists
    //   22, 23    adopting create: unknown exception, a reporter exists
    //   24        WM_INITDIALOG without a window
    //   25, 26    background: no brush, brush already set
    //   27 to 30  font: unknown exception, not made, bad state, metrics not read
    //   31 to 33  obtainModuleHandle: module already set, no file, not loaded
    //   34, 35    setDLL_Resources: null module, no file
    //   36, 37    monitor form of updateDisplay: no description, no monitor
    //   38, 39    string form of updateDisplay: no module or bad id, string not loaded
    //   40 to 43  updateDisplay: not usable, InvalidateRect, UpdateWindow, SetWindowTextW failed
    static void clearDiagnostics();
    static int getDX_Code1();
    static unsigned long getDX_Code2();

    // Virtual operations in slot order: freeResources, the destructor.
protected:
    virtual bool freeResources();
    virtual ~ZarnStatusReporter();

    // Both throw their status as an int, after clearing up.
    ZarnStatusReporter(const wchar_t* title, unsigned long styles, const wchar_t* resourceFile, unsigned long loadFlags,
                       int dialogID, int textControlID, DLGPROC procedure, HWND parent);
    ZarnStatusReporter(HWND dialog, int textControlID, DLGPROC procedure, const wchar_t* resourceFile,
                       unsigned long loadFlags);
    ZarnStatusReporter(const ZarnStatusReporter&) = delete;
    ZarnStatusReporter& operator=(const ZarnStatusReporter&) = delete;

    // The built-in dialog procedure. It never reports: it leaves no status behind.
    static long long processDialogMessages(HWND window, unsigned int message, unsigned long long wParam,
                                           long long lParam);
    bool establishDlgBox_Aesthetics() const;
    bool establishDlgBoxColorBackground() const;
    bool establishDlgBoxColorText() const;
    bool establishDlgBoxLogicalFont() const;
    bool freeDLL_Resources();
    // passes < 1: false. Mask bit 2 clears the codes, 4 frees the resources, 8 resets the members.
    bool setMemberVarsToDefaults(int passes, unsigned long mask);
    // Finds the text control and sets the title; does nothing once a status is set.
    bool ZarnStatusReporter_(const wchar_t* title, int textControlID);
    bool updateDisplay_(const Zarn* monitor) const;

private:
    static constexpr int kTextMessageQty = 2048;

    // Stores the failure's code while no status is set.
    static void keepFirstStatus(const std::exception_ptr& failure, int catchAllCode);
    // Sets the status with the thread's last error, and raises it.
    [[noreturn]] static void raiseWithLastError(int status);
    [[noreturn]] void failConstruction();
    // A constructor's failure: an int is kept as the status unless one is set; anything else resets
    // the members and goes on to the caller.
    void keepConstructionFailure(const std::exception_ptr& failure);
    // WM_INITDIALOG of the built-in procedure; every failure is ignored.
    static void establishDialogWindow(HWND window);
    static void flushDisplayServer();

    HWND m_textControl;
    DLGPROC m_dialogProcedure;
    HWND m_dialogWindow;
    mutable wchar_t m_textMessage[kTextMessageQty];
    HINSTANCE m_resourceModule;
    bool m_resourceModuleIsOurs;
    bool m_dialogWindowIsOurs;
    DWORD m_waitingPeriod;

    static ZarnStatusReporter* m_loneInstance;
    static int m_DX_Code1;
    static DWORD m_DX_Code2;
    static HBRUSH m_dialogWindowColorBackground;
    static COLORREF m_dialogWindowColorText;
    static HFONT m_dialogWindowLogicalFont;
    static DWORD m_dialogWindowStyles;
    // The product display server's flush entry, once found in a loaded "ds.dll".
    static void (*m_dsFlushDisplayServer)();
};

// For callers that hold no pointer: each forwards to the lone reporter, and answers false, 0 or
// null when there is none.
bool ZarnStatusReporter_MACRO_Appear();
bool ZarnStatusReporter_MACRO_Disappear();
HWND ZarnStatusReporter_MACRO_GetDialogWindowHandle();
bool ZarnStatusReporter_MACRO_IsViable();
bool ZarnStatusReporter_MACRO_IsVisible();
bool ZarnStatusReporter_MACRO_SetDLL_Resources(const wchar_t* file, unsigned long loadFlags);
bool ZarnStatusReporter_MACRO_SetDLL_Resources(HINSTANCE module);
unsigned long ZarnStatusReporter_MACRO_SetWaitingPeriod(unsigned long milliseconds);
bool ZarnStatusReporter_MACRO_UpdateDisplay(const wchar_t* text);
bool ZarnStatusReporter_MACRO_UpdateDisplay(unsigned int stringID, HINSTANCE module);
bool ZarnStatusReporter_MACRO_UpdateDisplay();
