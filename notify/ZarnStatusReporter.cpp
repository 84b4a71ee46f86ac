#include "notify/ZarnStatusReporter.h"

#include "foundation/DxCode.h"
#include "monitor/Zarn.h"
#include "platform/CRuntime.h"
#include "platform/LastError.h"
#include "platform/Modules.h"
#include "platform/Threads.h"

#include <cstdarg>
#include <cstring>

namespace {

constexpr int kDialogID_Limit = 28672;
constexpr int kControlID_Min = 8;
constexpr int kControlID_Limit = 57344;
constexpr DWORD kStylesKept = 0xFFFF0000;
constexpr DWORD kStyleTopmost = 0x10000;

bool isBlank(const wchar_t* text)
{
    return text == nullptr || text[0] == L'\0';
}

bool isControlID(long long id)
{
    return id >= kControlID_Min && id < kControlID_Limit;
}

} // namespace

ZarnStatusReporter* ZarnStatusReporter::m_loneInstance = nullptr;
int ZarnStatusReporter::m_DX_Code1 = 0;
DWORD ZarnStatusReporter::m_DX_Code2 = 0;
HBRUSH ZarnStatusReporter::m_dialogWindowColorBackground = nullptr;
COLORREF ZarnStatusReporter::m_dialogWindowColorText = 0;
HFONT ZarnStatusReporter::m_dialogWindowLogicalFont = nullptr;
DWORD ZarnStatusReporter::m_dialogWindowStyles = kStyleTopmost;
void (*ZarnStatusReporter::m_dsFlushDisplayServer)() = nullptr;

// ---- The lone instance --------------------------------------------------------------------------

ZarnStatusReporter* ZarnStatusReporter::create(const wchar_t* title, unsigned long styles, const wchar_t* resourceFile,
                                               unsigned long loadFlags, int dialogID, int textControlID,
                                               DLGPROC procedure, HWND parent)
{
    clearDiagnostics();
    if (m_loneInstance != nullptr) {
        m_DX_Code1 = 21;
        return nullptr;
    }
    try {
        m_loneInstance = new ZarnStatusReporter(title, styles, resourceFile, loadFlags, dialogID, textControlID,
                                                procedure, parent);
    } catch (...) {
        keepFirstStatus(std::current_exception(), 20);
    }
    return m_DX_Code1 == 0 ? m_loneInstance : nullptr;
}

ZarnStatusReporter* ZarnStatusReporter::create(HWND dialog, int textControlID, DLGPROC procedure,
                                               const wchar_t* resourceFile, unsigned long loadFlags)
{
    clearDiagnostics();
    if (m_loneInstance != nullptr) {
        m_DX_Code1 = 23;
        return nullptr;
    }
    try {
        m_loneInstance = new ZarnStatusReporter(dialog, textControlID, procedure, resourceFile, loadFlags);
    } catch (...) {
        keepFirstStatus(std::current_exception(), 22);
    }
    return m_DX_Code1 == 0 ? m_loneInstance : nullptr;
}

void ZarnStatusReporter::destroy()
{
    // Taken out first, so that nothing run while the window goes finds a half-destroyed reporter.
    ZarnStatusReporter* instance = m_loneInstance;
    m_loneInstance = nullptr;
    delete instance;
}

ZarnStatusReporter* ZarnStatusReporter::getLoneInstance()
{
    return m_loneInstance;
}

ZarnStatusReporter::ZarnStatusReporter(const wchar_t* title, unsigned long styles, const wchar_t* resourceFile,
                                       unsigned long loadFlags, int dialogID, int textControlID, DLGPROC procedure,
                                       HWND parent)
    : m_textControl(nullptr), m_dialogProcedure(nullptr), m_dialogWindow(nullptr), m_textMessage{},
      m_resourceModule(nullptr), m_resourceModuleIsOurs(false), m_dialogWindowIsOurs(true), m_waitingPeriod(0)
{
    clearDiagnostics();
    try {
        if (m_loneInstance != nullptr)
            throw 16;
        setMemberVarsToDefaults(1, 10);
        if (isBlank(resourceFile) || dialogID < 1 || dialogID >= kDialogID_Limit)
            throw 15;
        if (!obtainModuleHandle(resourceFile, loadFlags, m_resourceModule, m_resourceModuleIsOurs))
            throw m_DX_Code1;
        m_dialogProcedure = procedure != nullptr ? procedure : &processDialogMessages;
        m_dialogWindowStyles = DWORD(styles) & kStylesKept;
        establishDlgBox_Aesthetics(); // the window is usable without them
        m_dialogWindow = CreateDialogParamW(m_resourceModule, MAKEINTRESOURCEW(dialogID), parent, m_dialogProcedure, 0);
        if (m_dialogWindow == nullptr)
            raiseWithLastError(14);
        ZarnStatusReporter_(title, textControlID);
    } catch (...) {
        keepConstructionFailure(std::current_exception());
    }
    if (m_DX_Code1 != 0)
        failConstruction();
}

ZarnStatusReporter::ZarnStatusReporter(HWND dialog, int textControlID, DLGPROC procedure, const wchar_t* resourceFile,
                                       unsigned long loadFlags)
    : m_textControl(nullptr), m_dialogProcedure(nullptr), m_dialogWindow(dialog), m_textMessage{},
      m_resourceModule(nullptr), m_resourceModuleIsOurs(false), m_dialogWindowIsOurs(false), m_waitingPeriod(0)
{
    try {
        if (m_loneInstance != nullptr)
            throw 19;
        setMemberVarsToDefaults(1, 10);
        if (dialog == nullptr || isBlank(resourceFile))
            throw 17;
        // An adopted dialog has its own procedure; the built-in one needs the aesthetics that
        // this form does not set up.
        if (procedure == nullptr || procedure == &processDialogMessages)
            throw 18;
        if (!obtainModuleHandle(resourceFile, loadFlags, m_resourceModule, m_resourceModuleIsOurs))
            throw m_DX_Code1;
        m_dialogProcedure = procedure;
        ZarnStatusReporter_(nullptr, textControlID);
    } catch (...) {
        keepConstructionFailure(std::current_exception());
    }
    if (m_DX_Code1 != 0)
        failConstruction();
}

ZarnStatusReporter::~ZarnStatusReporter()
{
    setMemberVarsToDefaults(1, 12);
}

void ZarnStatusReporter::keepConstructionFailure(const std::exception_ptr& failure)
{
    try {
        std::rethrow_exception(failure);
    } catch (int status) {
        if (m_DX_Code1 == 0)
            m_DX_Code1 = status;
    } catch (...) {
        // Not a status: the members go back to their defaults and the exception to the caller.
        setMemberVarsToDefaults(1, 12);
        throw;
    }
}

void ZarnStatusReporter::failConstruction()
{
    // Destroying the window runs the dialog procedure, which clears the codes: they are put back.
    const int status = m_DX_Code1;
    const DWORD lastError = m_DX_Code2;
    setMemberVarsToDefaults(1, 12);
    m_DX_Code1 = status;
    m_DX_Code2 = lastError;
    throw status;
}

bool ZarnStatusReporter::ZarnStatusReporter_(const wchar_t* title, int textControlID)
{
    if (m_DX_Code1 != 0)
        return false;
    SetLastError(0);
    try {
        if (m_textControl != nullptr || !isViable() || !isControlID(textControlID))
            throw 13;
        m_textControl = GetDlgItem(m_dialogWindow, textControlID);
        if (m_textControl == nullptr)
            raiseWithLastError(12);
        if (title != nullptr)
            SetWindowTextW(m_dialogWindow, title); // an untitled window still serves
    } catch (...) {
        keepFirstStatus(std::current_exception(), 13);
    }
    return m_DX_Code1 == 0;
}

bool ZarnStatusReporter::setMemberVarsToDefaults(int passes, unsigned long mask)
{
    if (passes < 1)
        return false;
    bool freed = true;
    if ((mask & 4) != 0)
        freed = freeResources();
    if ((mask & 2) != 0)
        clearDiagnostics();
    if ((mask & 8) != 0) {
        m_textControl = nullptr;
        m_dialogProcedure = nullptr;
        m_dialogWindowColorBackground = nullptr;
        m_dialogWindowColorText = 0;
        std::memset(m_textMessage, 0, sizeof(m_textMessage));
        m_waitingPeriod = 0;
    }
    return freed;
}

bool ZarnStatusReporter::freeResources()
{
    bool freed = true;
    if (m_dialogWindow != nullptr && m_dialogWindowIsOurs && IsWindow(m_dialogWindow)
        && !DestroyWindow(m_dialogWindow)) {
        freed = false;
        SetLastError(0);
    }
    m_dialogWindow = nullptr;
    if (!freeDLL_Resources())
        freed = false;
    // The brush is the system's, and is never deleted.
    if (m_dialogWindowLogicalFont != nullptr) {
        if (!DeleteObject(m_dialogWindowLogicalFont)) {
            freed = false;
            SetLastError(0);
        }
        m_dialogWindowLogicalFont = nullptr;
    }
    return freed;
}

bool ZarnStatusReporter::freeDLL_Resources()
{
    bool freed = true;
    if (m_resourceModuleIsOurs && !FreeLibrary(m_resourceModule)) {
        freed = false;
        SetLastError(0);
    }
    m_resourceModule = nullptr;
    m_resourceModuleIsOurs = false;
    return freed;
}

// ---- Aesthetics and the built-in procedure ------------------------------------------------------

bool ZarnStatusReporter::establishDlgBox_Aesthetics() const
{
    const bool background = establishDlgBoxColorBackground();
    const bool text = establishDlgBoxColorText();
    const bool font = establishDlgBoxLogicalFont();
    return background && text && font;
}

bool ZarnStatusReporter::establishDlgBoxColorBackground() const
{
    clearDiagnostics();
    try {
        if (m_dialogWindowColorBackground != nullptr)
            throw 26;
        m_dialogWindowColorBackground = GetSysColorBrush(COLOR_3DFACE);
        if (m_dialogWindowColorBackground == nullptr)
            throw 25;
    } catch (...) {
        keepFirstStatus(std::current_exception(), 25);
    }
    // A window without its own colours still serves: nothing of the failure remains.
    const bool established = m_DX_Code1 == 0;
    clearDiagnostics();
    return established;
}

bool ZarnStatusReporter::establishDlgBoxColorText() const
{
    m_dialogWindowColorText = GetSysColor(COLOR_WINDOWTEXT);
    // Black is 0, as is a failure: a brush of the colour tells them apart.
    return m_dialogWindowColorText != 0 || GetSysColorBrush(COLOR_WINDOWTEXT) != nullptr;
}

bool ZarnStatusReporter::establishDlgBoxLogicalFont() const
{
    clearDiagnostics();
    try {
        if (!m_dialogWindowIsOurs || m_dialogWindowLogicalFont != nullptr)
            throw 29;
        NONCLIENTMETRICSW metrics{};
        metrics.cbSize = sizeof(metrics);
        if (!SystemParametersInfoW(SPI_GETNONCLIENTMETRICS, sizeof(metrics), &metrics, 0))
            raiseWithLastError(30);
        m_dialogWindowLogicalFont = CreateFontIndirectW(&metrics.lfMessageFont);
        if (m_dialogWindowLogicalFont == nullptr)
            raiseWithLastError(28);
    } catch (...) {
        keepFirstStatus(std::current_exception(), 27);
    }
    const bool established = m_DX_Code1 == 0;
    clearDiagnostics();
    return established;
}

long long ZarnStatusReporter::processDialogMessages(HWND window, unsigned int message, unsigned long long wParam,
                                                    long long)
{
    clearDiagnostics();
    long long result = 0;
    switch (message) {
    case WM_INITDIALOG:
        if (window == nullptr)
            m_DX_Code1 = 24;
        else
            establishDialogWindow(window);
        break;
    case WM_CTLCOLORDLG:
    case WM_CTLCOLORSTATIC:
        if (m_dialogWindowColorBackground != nullptr) {
            const HDC context = reinterpret_cast<HDC>(wParam);
            if (SetTextColor(context, m_dialogWindowColorText) != CLR_INVALID)
                SetBkMode(context, TRANSPARENT);
            result = reinterpret_cast<long long>(m_dialogWindowColorBackground);
        }
        break;
    case WM_DESTROY:
        if (m_dialogWindowLogicalFont != nullptr) {
            DeleteObject(m_dialogWindowLogicalFont);
            m_dialogWindowLogicalFont = nullptr;
        }
        break;
    default:
        break;
    }
    // The procedure never reports.
    clearDiagnostics();
    return result;
}

void ZarnStatusReporter::establishDialogWindow(HWND window)
{
    const unsigned long long classStyle = GetClassLongPtrW(window, GCL_STYLE);
    if ((classStyle & CS_SAVEBITS) != 0)
        SetClassLongPtrW(window, GCL_STYLE, static_cast<long long>(classStyle & ~static_cast<unsigned long long>(CS_SAVEBITS)));

    const LONG_PTR style = GetWindowLongPtrW(window, GWL_STYLE);
    const LONG_PTR popupStyle = (style & ~(WS_CHILD | WS_SYSMENU)) | WS_POPUP;
    const LONG_PTR exStyle = GetWindowLongPtrW(window, GWL_EXSTYLE);
    const bool topmost = (m_dialogWindowStyles & kStyleTopmost) != 0;
    const LONG_PTR placedExStyle = topmost ? (exStyle | WS_EX_TOPMOST) : (exStyle & ~WS_EX_TOPMOST);
    const HWND insertAfter = topmost ? HWND_TOPMOST : HWND_TOP;
    if (popupStyle != style)
        SetWindowLongPtrW(window, GWL_STYLE, popupStyle);
    if (placedExStyle != exStyle)
        SetWindowLongPtrW(window, GWL_EXSTYLE, placedExStyle);
    if (popupStyle != style || placedExStyle != exStyle)
        SetWindowPos(window, insertAfter, 0, 0, 0, 0, SWP_NOSIZE | SWP_NOMOVE | SWP_FRAMECHANGED);

    if (m_dialogWindowLogicalFont != nullptr) {
        for (HWND child = GetWindow(window, GW_CHILD); child != nullptr; child = GetWindow(child, GW_HWNDNEXT)) {
            if (GetDlgCtrlID(child) != 0)
                SendMessageW(child, WM_SETFONT, reinterpret_cast<WPARAM>(m_dialogWindowLogicalFont), TRUE);
        }
    }
    centerWindow(window, insertAfter);
    SetForegroundWindow(window);
    SetLastError(0);
}

// ---- Showing ------------------------------------------------------------------------------------

bool ZarnStatusReporter::appear() const
{
    clearDiagnostics();
    if (!isViable())
        return true;
    try {
        ShowWindow(m_dialogWindow, SW_SHOW);
        SetForegroundWindow(m_dialogWindow); // the window shows also behind others
        if (!InvalidateRect(m_dialogWindow, nullptr, TRUE))
            raiseWithLastError(1);
        if (!UpdateWindow(m_dialogWindow))
            raiseWithLastError(2);
    } catch (...) {
        keepFirstStatus(std::current_exception(), 1);
    }
    return m_DX_Code1 == 0;
}

bool ZarnStatusReporter::disappear() const
{
    clearDiagnostics();
    if (!isViable())
        return false;
    ShowWindow(m_dialogWindow, SW_HIDE);
    return true;
}

bool ZarnStatusReporter::isViable() const
{
    return m_dialogWindow != nullptr && IsWindow(m_dialogWindow);
}

bool ZarnStatusReporter::isVisible() const
{
    return isViable() && IsWindowVisible(m_dialogWindow);
}

HWND ZarnStatusReporter::getDialogWindowHandle() const
{
    return isViable() ? m_dialogWindow : nullptr;
}

bool ZarnStatusReporter::composeTextMessage(const wchar_t* format, ...)
{
    clearDiagnostics();
    std::memset(m_textMessage, 0, sizeof(m_textMessage));
    try {
        if (format == nullptr)
            throw 10;
        va_list args;
        va_start(args, format);
        int count = 0;
        try {
            count = _vsnwprintf(m_textMessage, kTextMessageQty - 1, format, args);
        } catch (...) {
            va_end(args);
            throw;
        }
        va_end(args);
        // A text cut at the buffer's end is shown as far as it goes.
        const bool cut = count == -1 && m_textMessage[kTextMessageQty - 2] != L'\0';
        if (count < 0 && !cut)
            throw 11;
    } catch (...) {
        keepFirstStatus(std::current_exception(), 9);
    }
    if (m_DX_Code1 != 0)
        std::memset(m_textMessage, 0, sizeof(m_textMessage));
    return m_DX_Code1 == 0;
}

bool ZarnStatusReporter::updateDisplay() const
{
    return updateDisplay(m_textMessage);
}

bool ZarnStatusReporter::updateDisplay(const wchar_t* text) const
{
    clearDiagnostics();
    try {
        if (!isViable() || text == nullptr || m_textControl == nullptr || !IsWindow(m_textControl))
            throw 40;
        if (!SetWindowTextW(m_textControl, text))
            raiseWithLastError(43);
        // A text that could not be drawn stays in the control for the next painting.
        if (!InvalidateRect(m_textControl, nullptr, TRUE))
            throw 41;
        if (!UpdateWindow(m_textControl))
            throw 42;
        GdiFlush();
        flushDisplayServer();
        // Deliberately blocks the caller, so that a person can read each text.
        if (m_waitingPeriod > 0)
            Sleep(m_waitingPeriod);
    } catch (...) {
        keepFirstStatus(std::current_exception(), 40);
    }
    return m_DX_Code1 == 0;
}

bool ZarnStatusReporter::updateDisplay(unsigned int stringID, HINSTANCE module) const
{
    clearDiagnostics();
    std::memset(m_textMessage, 0, sizeof(m_textMessage));
    try {
        if ((module == nullptr && m_resourceModule == nullptr) || !isControlID(stringID))
            throw 38;
        if (LoadStringW(module != nullptr ? module : m_resourceModule, stringID, m_textMessage, kTextMessageQty) < 1)
            raiseWithLastError(39);
    } catch (...) {
        keepFirstStatus(std::current_exception(), 39);
        return false;
    }
    return updateDisplay(m_textMessage);
}

bool ZarnStatusReporter::updateDisplay(const Zarn* monitor)
{
    return m_loneInstance != nullptr && m_loneInstance->updateDisplay_(monitor);
}

bool ZarnStatusReporter::updateDisplay_(const Zarn* monitor) const
{
    clearDiagnostics();
    std::memset(m_textMessage, 0, sizeof(m_textMessage));
    try {
        if (monitor == nullptr)
            throw 37;
        if (!monitor->getDescriptionForLogFile(m_textMessage, kTextMessageQty))
            throw 36;
    } catch (...) {
        keepFirstStatus(std::current_exception(), 36);
        return false;
    }
    return updateDisplay(m_textMessage);
}

// The product's display server, when this process runs on it, pushes the text out at once. Its
// module is only looked for, never loaded from here.
void ZarnStatusReporter::flushDisplayServer()
{
    if (m_dsFlushDisplayServer == nullptr) {
        if (const HMODULE displayServer = GetModuleHandleW(L"ds.dll"))
            m_dsFlushDisplayServer = reinterpret_cast<void (*)()>(GetProcAddress(displayServer, "dsFlushDisplayServer"));
        SetLastError(0);
    }
    if (m_dsFlushDisplayServer != nullptr)
        m_dsFlushDisplayServer();
}

unsigned long ZarnStatusReporter::setWaitingPeriod(unsigned long milliseconds)
{
    const unsigned long previous = m_waitingPeriod;
    m_waitingPeriod = DWORD(milliseconds);
    return previous;
}

// ---- Resources ----------------------------------------------------------------------------------

bool ZarnStatusReporter::setDLL_Resources(const wchar_t* file, unsigned long loadFlags)
{
    clearDiagnostics();
    if (isBlank(file)) {
        m_DX_Code1 = 35;
        return false;
    }
    freeDLL_Resources();
    return obtainModuleHandle(file, loadFlags, m_resourceModule, m_resourceModuleIsOurs);
}

bool ZarnStatusReporter::setDLL_Resources(HINSTANCE module)
{
    clearDiagnostics();
    if (module == nullptr) {
        m_DX_Code1 = 34;
        return false;
    }
    freeDLL_Resources();
    m_resourceModule = module;
    m_resourceModuleIsOurs = false;
    return true;
}

bool ZarnStatusReporter::obtainModuleHandle(const wchar_t* file, unsigned long loadFlags, HINSTANCE& module,
                                            bool& loadedHere)
{
    clearDiagnostics();
    try {
        if (module != nullptr)
            throw 31;
        loadedHere = false;
        if (isBlank(file))
            throw 32;
        // A module found in memory is someone else's, and is never freed here.
        module = GetModuleHandleW(file);
        if (module == nullptr) {
            SetLastError(0);
            module = LoadLibraryExW(file, nullptr, DWORD(loadFlags));
            if (module == nullptr)
                raiseWithLastError(33);
            loadedHere = true;
        }
    } catch (...) {
        keepFirstStatus(std::current_exception(), 33);
    }
    return m_DX_Code1 == 0;
}

// ---- Placement ----------------------------------------------------------------------------------

bool ZarnStatusReporter::centerWindow(HWND window, HWND insertAfter)
{
    clearDiagnostics();
    try {
        if (window == nullptr || !IsWindow(window))
            throw 5;
        const LONG_PTR style = GetWindowLongPtrW(window, GWL_STYLE);
        if (style == 0)
            raiseWithLastError(5);
        if ((style & (WS_MAXIMIZE | WS_MINIMIZE)) != 0)
            throw 5;
        RECT workArea{};
        if (!SystemParametersInfoW(SPI_GETWORKAREA, 0, &workArea, 0))
            raiseWithLastError(6);
        const LONG workWidth = workArea.right - workArea.left;
        const LONG workHeight = workArea.bottom - workArea.top;
        RECT windowRect{};
        if (!GetWindowRect(window, &windowRect))
            raiseWithLastError(7);

        // The work area's size from the origin, not from the work area's own corner.
        RECT target{0, 0, workWidth, workHeight};
        const HWND owner = learnParentWindowOwner(window);
        RECT ownerRect{};
        const bool ownerServes = owner != nullptr && owner != window && IsWindow(owner) && IsWindowVisible(owner)
                                 && (GetWindowLongPtrW(owner, GWL_STYLE) & (WS_MAXIMIZE | WS_MINIMIZE)) == 0
                                 && GetWindowRect(owner, &ownerRect);
        if (ownerServes)
            target = ownerRect;
        else
            SetLastError(0);
        const LONG targetWidth = target.right - target.left;
        const LONG targetHeight = target.bottom - target.top;
        if (targetWidth == 0 || targetHeight == 0)
            throw 4;

        // Both rules run in turn, so a window wider than the work area ends flush with its right edge.
        const LONG windowWidth = windowRect.right - windowRect.left;
        const LONG windowHeight = windowRect.bottom - windowRect.top;
        LONG left = target.left + (targetWidth - windowWidth) / 2;
        if (left < 0)
            left = 0;
        if (left + windowWidth > workWidth)
            left = workWidth - windowWidth;
        LONG top = target.top + (targetHeight - windowHeight) / 2;
        if (top < 0)
            top = 0;
        if (top + windowHeight > workHeight)
            top = workHeight - windowHeight;

        // Deliberately compared with the whole rectangle, whose right and bottom are seldom 0: the
        // window is nearly always placed again.
        const RECT placement{left, top, 0, 0};
        if (std::memcmp(&placement, &windowRect, sizeof(RECT)) != 0
            && !SetWindowPos(window, insertAfter, left, top, 0, 0, SWP_NOSIZE | SWP_FRAMECHANGED))
            raiseWithLastError(8);
    } catch (...) {
        keepFirstStatus(std::current_exception(), 3);
    }
    return m_DX_Code1 == 0;
}

HWND ZarnStatusReporter::learnParentWindowOwner(HWND window)
{
    if (window == nullptr || !IsWindow(window))
        return nullptr;
    HWND reached = window;
    while ((GetWindowLongPtrW(reached, GWL_STYLE) & WS_CHILD) != 0) {
        const HWND parent = GetParent(reached);
        if (parent == nullptr)
            break;
        reached = parent;
    }
    SetLastError(0);
    return reached;
}

// ---- Diagnostics --------------------------------------------------------------------------------

void ZarnStatusReporter::clearDiagnostics()
{
    m_DX_Code1 = 0;
    m_DX_Code2 = 0;
}

int ZarnStatusReporter::getDX_Code1()
{
    return m_DX_Code1;
}

unsigned long ZarnStatusReporter::getDX_Code2()
{
    return m_DX_Code2;
}

void ZarnStatusReporter::keepFirstStatus(const std::exception_ptr& failure, int catchAllCode)
{
    const int status = dxCodeOf(failure, catchAllCode);
    if (m_DX_Code1 == 0)
        m_DX_Code1 = status;
}

void ZarnStatusReporter::raiseWithLastError(int status)
{
    if (m_DX_Code1 == 0)
        m_DX_Code2 = GetLastError();
    throw status;
}

// ---- For callers without a pointer --------------------------------------------------------------

bool ZarnStatusReporter_MACRO_Appear()
{
    const ZarnStatusReporter* reporter = ZarnStatusReporter::getLoneInstance();
    return reporter != nullptr && reporter->appear();
}

bool ZarnStatusReporter_MACRO_Disappear()
{
    const ZarnStatusReporter* reporter = ZarnStatusReporter::getLoneInstance();
    return reporter != nullptr && reporter->disappear();
}

HWND ZarnStatusReporter_MACRO_GetDialogWindowHandle()
{
    const ZarnStatusReporter* reporter = ZarnStatusReporter::getLoneInstance();
    return reporter != nullptr ? reporter->getDialogWindowHandle() : nullptr;
}

bool ZarnStatusReporter_MACRO_IsViable()
{
    const ZarnStatusReporter* reporter = ZarnStatusReporter::getLoneInstance();
    return reporter != nullptr && reporter->isViable();
}

bool ZarnStatusReporter_MACRO_IsVisible()
{
    const ZarnStatusReporter* reporter = ZarnStatusReporter::getLoneInstance();
    return reporter != nullptr && reporter->isVisible();
}

bool ZarnStatusReporter_MACRO_SetDLL_Resources(const wchar_t* file, unsigned long loadFlags)
{
    ZarnStatusReporter* reporter = ZarnStatusReporter::getLoneInstance();
    return reporter != nullptr && reporter->setDLL_Resources(file, loadFlags);
}

bool ZarnStatusReporter_MACRO_SetDLL_Resources(HINSTANCE module)
{
    ZarnStatusReporter* reporter = ZarnStatusReporter::getLoneInstance();
    return reporter != nullptr && reporter->setDLL_Resources(module);
}

unsigned long ZarnStatusReporter_MACRO_SetWaitingPeriod(unsigned long milliseconds)
{
    ZarnStatusReporter* reporter = ZarnStatusReporter::getLoneInstance();
    return reporter != nullptr ? reporter->setWaitingPeriod(milliseconds) : 0;
}

bool ZarnStatusReporter_MACRO_UpdateDisplay(const wchar_t* text)
{
    const ZarnStatusReporter* reporter = ZarnStatusReporter::getLoneInstance();
    return reporter != nullptr && reporter->updateDisplay(text);
}

bool ZarnStatusReporter_MACRO_UpdateDisplay(unsigned int stringID, HINSTANCE module)
{
    const ZarnStatusReporter* reporter = ZarnStatusReporter::getLoneInstance();
    return reporter != nullptr && reporter->updateDisplay(stringID, module);
}

bool ZarnStatusReporter_MACRO_UpdateDisplay()
{
    const ZarnStatusReporter* reporter = ZarnStatusReporter::getLoneInstance();
    return reporter != nullptr && reporter->updateDisplay();
}
