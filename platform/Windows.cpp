// The window services over Qt Widgets. Every widget the layer has handed out a handle for has a
// record in one table; the table and the widgets are touched only on the application's thread.
#include "platform/Windows.h"

#include "platform/LastError.h"
#include "platform/Modules.h"
#include "platform/QtWindows.h"

#include <QAbstractButton>
#include <QApplication>
#include <QFont>
#include <QLabel>
#include <QLineEdit>
#include <QPalette>
#include <QPointer>
#include <QScreen>
#include <QStyle>
#include <QThread>
#include <QVariant>
#include <QWidget>

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <deque>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>

struct HBRUSH__
{
    int colorIndex;
};

struct HFONT__
{
    QFont font;
};

// The device context that a dialog procedure receives with WM_CTLCOLOR...: it only records what
// the procedure chose.
struct HDC__
{
    COLORREF textColor = 0;
    bool textColorChosen = false;
    int backgroundMode = OPAQUE;
};

namespace {

// ---- The application's thread ------------------------------------------------------------------

QApplication* application()
{
    return qobject_cast<QApplication*>(QCoreApplication::instance());
}

// One call carried to the application's thread: the caller's body and last error go in, the
// body's last error comes out. The call lives on the caller's stack until it is done.
struct CarriedCall
{
    std::function<void()> body;
    DWORD lastError = 0;
    bool done = false;
    bool ran = false;
};

// The calls waiting for the application's thread. They travel in this queue under this lock, not
// inside Qt's events, so that the hand-over between the threads is one that race detectors can
// follow; a Qt event only wakes the application's loop.
struct Carrier
{
    std::mutex lock;
    std::condition_variable finished;
    std::deque<CarriedCall*> pending;
    const QCoreApplication* watched = nullptr; // the application whose end abandons the calls
};

Carrier& carrier()
{
    static auto* theCarrier = new Carrier();
    return *theCarrier;
}

// On the application's thread: runs every waiting call. The body sees its caller's last error,
// and this thread keeps its own.
void runCarriedCalls()
{
    Carrier& queue = carrier();
    for (;;) {
        CarriedCall* call = nullptr;
        {
            std::lock_guard<std::mutex> guard(queue.lock);
            if (queue.pending.empty())
                return;
            call = queue.pending.front();
            queue.pending.pop_front();
        }
        const DWORD ownError = GetLastError();
        SetLastError(call->lastError);
        call->body();
        const DWORD bodyError = GetLastError();
        SetLastError(ownError);
        std::lock_guard<std::mutex> guard(queue.lock);
        call->lastError = bodyError;
        call->ran = true;
        call->done = true;
        queue.finished.notify_all();
    }
}

// The application is going away: its loop will run no more calls.
void abandonCarriedCalls()
{
    Carrier& queue = carrier();
    std::lock_guard<std::mutex> guard(queue.lock);
    for (CarriedCall* call : queue.pending)
        call->done = true;
    queue.pending.clear();
    queue.watched = nullptr;
    queue.finished.notify_all();
}

// Runs `body` on the application's thread and returns its result there; from another thread the
// call waits for that thread's event loop. Without an application: `Result()` and `noApplication`.
template <class Result, class Body>
Result onWindowThread(DWORD noApplication, Body body)
{
    QApplication* app = application();
    if (app == nullptr) {
        SetLastError(noApplication);
        return Result();
    }
    if (QThread::currentThread() == app->thread())
        return body();

    Result result = Result();
    CarriedCall call;
    call.body = [&result, &body] { result = body(); };
    call.lastError = GetLastError();
    Carrier& queue = carrier();
    bool firstForApplication = false;
    {
        std::lock_guard<std::mutex> guard(queue.lock);
        firstForApplication = queue.watched != app;
        queue.watched = app;
        queue.pending.push_back(&call);
    }
    if (firstForApplication)
        QObject::connect(app, &QObject::destroyed, [] { abandonCarriedCalls(); });
    QMetaObject::invokeMethod(app, [] { runCarriedCalls(); }, Qt::QueuedConnection);

    std::unique_lock<std::mutex> guard(queue.lock);
    queue.finished.wait(guard, [&call] { return call.done; });
    SetLastError(call.ran ? call.lastError : noApplication);
    return call.ran ? result : Result();
}

// ---- The table of windows ----------------------------------------------------------------------

struct WindowRecord
{
    QPointer<QWidget> widget;
    DLGPROC procedure = nullptr; // only dialogs made by CreateDialogParamW have one
    int controlID = 0;
    // The structural style bits as last set; the state bits are read from the widget.
    LONG_PTR style = 0;
    LONG_PTR exStyle = 0;
    unsigned long long classStyle = 0;
    HFONT font = nullptr;
    bool paintPending = false;
    bool colorsPending = false;
};

constexpr LONG_PTR kStateBits = WS_VISIBLE | WS_MINIMIZE | WS_MAXIMIZE | WS_DISABLED;
constexpr const char* kHandleProperty = "zmuWindowHandle";

// Never destroyed: widgets may outlive the statics of the process.
std::unordered_map<std::uintptr_t, WindowRecord>& windowTable()
{
    static auto* table = new std::unordered_map<std::uintptr_t, WindowRecord>();
    return *table;
}

std::set<HFONT>& liveFonts()
{
    static auto* fonts = new std::set<HFONT>();
    return *fonts;
}

HWND asHandle(std::uintptr_t number)
{
    return reinterpret_cast<HWND>(number);
}

std::uintptr_t numberOf(HWND window)
{
    return reinterpret_cast<std::uintptr_t>(window);
}

bool hasCustomFrame(const QWidget* widget)
{
    return widget->windowFlags().testFlag(Qt::CustomizeWindowHint);
}

// The structural style a widget has now.
LONG_PTR frameStyleOf(const QWidget* widget)
{
    if (!widget->isWindow())
        return WS_CHILD;
    const Qt::WindowFlags flags = widget->windowFlags();
    LONG_PTR style = WS_POPUP;
    if (!flags.testFlag(Qt::FramelessWindowHint)) {
        if (!hasCustomFrame(widget) || flags.testFlag(Qt::WindowTitleHint))
            style |= WS_CAPTION;
        if (!hasCustomFrame(widget) || flags.testFlag(Qt::WindowSystemMenuHint))
            style |= WS_SYSMENU;
    }
    return style;
}

LONG_PTR topmostOf(const QWidget* widget)
{
    return widget->windowFlags().testFlag(Qt::WindowStaysOnTopHint) ? WS_EX_TOPMOST : 0;
}

HWND handleOf(QWidget* widget)
{
    const QVariant known = widget->property(kHandleProperty);
    if (known.isValid())
        return asHandle(static_cast<std::uintptr_t>(known.toULongLong()));
    // Numbers are never reused, so a stale handle can only name nothing.
    static std::uintptr_t lastNumber = 0x10000;
    lastNumber += 4;
    const std::uintptr_t number = lastNumber;
    WindowRecord& record = windowTable()[number];
    record.widget = widget;
    record.style = frameStyleOf(widget);
    record.exStyle = topmostOf(widget);
    widget->setProperty(kHandleProperty, QVariant(qulonglong(number)));
    QObject::connect(widget, &QObject::destroyed, [number] { windowTable().erase(number); });
    return asHandle(number);
}

// The record of a live window, or null with 1400.
WindowRecord* recordOf(HWND window)
{
    auto found = windowTable().find(numberOf(window));
    if (found == windowTable().end() || found->second.widget.isNull()) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return nullptr;
    }
    return &found->second;
}

QWidget* widgetOf(HWND window)
{
    WindowRecord* record = recordOf(window);
    return record != nullptr ? record->widget.data() : nullptr;
}

// The direct children that are controls, not owned windows, in their order of creation.
QList<QWidget*> controlsOf(const QWidget* widget)
{
    QList<QWidget*> controls;
    for (QWidget* child : widget->findChildren<QWidget*>(QString(), Qt::FindDirectChildrenOnly)) {
        if (!child->isWindow())
            controls.append(child);
    }
    return controls;
}

// ---- Texts -------------------------------------------------------------------------------------

QString textOf(const QWidget* widget)
{
    if (const auto* label = qobject_cast<const QLabel*>(widget))
        return label->text();
    if (const auto* button = qobject_cast<const QAbstractButton*>(widget))
        return button->text();
    if (const auto* edit = qobject_cast<const QLineEdit*>(widget))
        return edit->text();
    return widget->windowTitle();
}

void setTextOf(QWidget* widget, const QString& text)
{
    if (auto* label = qobject_cast<QLabel*>(widget))
        label->setText(text);
    else if (auto* button = qobject_cast<QAbstractButton*>(widget))
        button->setText(text);
    else if (auto* edit = qobject_cast<QLineEdit*>(widget))
        edit->setText(text);
    else
        widget->setWindowTitle(text);
}

std::wstring wideTextOf(const QWidget* widget)
{
    return textOf(widget).toStdWString();
}

// ---- Colours and fonts -------------------------------------------------------------------------

HBRUSH__ g_systemBrushes[] = {{COLOR_WINDOW}, {COLOR_WINDOWTEXT}, {COLOR_3DFACE}};

HBRUSH systemBrush(int index)
{
    for (HBRUSH__& brush : g_systemBrushes) {
        if (brush.colorIndex == index)
            return &brush;
    }
    return nullptr;
}

bool isSystemBrush(const void* object)
{
    for (const HBRUSH__& brush : g_systemBrushes) {
        if (object == &brush)
            return true;
    }
    return false;
}

COLORREF colorRefOf(const QColor& color)
{
    return COLORREF(color.red()) | COLORREF(color.green()) << 8 | COLORREF(color.blue()) << 16;
}

QColor colorOf(COLORREF color)
{
    return QColor(int(color & 0xFF), int((color >> 8) & 0xFF), int((color >> 16) & 0xFF));
}

// The application's colour of a system colour index (application's thread only).
COLORREF systemColor(int index)
{
    const QPalette palette = QApplication::palette();
    switch (index) {
    case COLOR_WINDOW:
        return colorRefOf(palette.color(QPalette::Base));
    case COLOR_WINDOWTEXT:
        return colorRefOf(palette.color(QPalette::WindowText));
    case COLOR_3DFACE:
        return colorRefOf(palette.color(QPalette::Window));
    default:
        return 0;
    }
}

// Windows' own values, for a process without an application.
COLORREF defaultSystemColor(int index)
{
    switch (index) {
    case COLOR_WINDOW:
        return 0xFFFFFF;
    case COLOR_3DFACE:
        return 0xF0F0F0;
    default:
        return 0;
    }
}

// Windows' weights 100 to 900 and Qt's 0 to 99.
const std::pair<LONG, int> kWeights[] = {{100, QFont::Thin},   {200, QFont::ExtraLight}, {300, QFont::Light},
                                         {400, QFont::Normal}, {500, QFont::Medium},     {600, QFont::DemiBold},
                                         {700, QFont::Bold},   {800, QFont::ExtraBold},  {900, QFont::Black}};

int qtWeightOf(LONG weight)
{
    const auto nearest = std::min_element(std::begin(kWeights), std::end(kWeights), [weight](auto a, auto b) {
        return std::abs(a.first - weight) < std::abs(b.first - weight);
    });
    return nearest->second;
}

LONG windowsWeightOf(int weight)
{
    const auto nearest = std::min_element(std::begin(kWeights), std::end(kWeights), [weight](auto a, auto b) {
        return std::abs(a.second - weight) < std::abs(b.second - weight);
    });
    return nearest->first;
}

void describeFont(const QFont& font, LOGFONTW& description)
{
    description = LOGFONTW{};
    int pixels = font.pixelSize();
    if (pixels <= 0) {
        const QScreen* screen = QGuiApplication::primaryScreen();
        const double dpi = screen != nullptr ? screen->logicalDotsPerInchY() : 96.0;
        pixels = int(font.pointSizeF() * dpi / 72.0 + 0.5);
    }
    description.lfHeight = -pixels;
    description.lfWeight = windowsWeightOf(font.weight());
    description.lfItalic = font.italic() ? 1 : 0;
    description.lfUnderline = font.underline() ? 1 : 0;
    description.lfStrikeOut = font.strikeOut() ? 1 : 0;
    const std::wstring face = font.family().toStdWString().substr(0, LF_FACESIZE - 1);
    std::wmemcpy(description.lfFaceName, face.c_str(), face.size());
}

// ---- Painting ----------------------------------------------------------------------------------

// Asks a dialog procedure for the colours of the dialog and of its labels, as painting does on
// Windows, and puts the answers into the palettes. The procedure may destroy the window meanwhile.
void askColors(HWND dialog)
{
    WindowRecord* record = recordOf(dialog);
    if (record == nullptr || record->procedure == nullptr)
        return;
    const DLGPROC procedure = record->procedure;
    record->colorsPending = false;
    QPointer<QWidget> widget = record->widget;

    HDC__ context;
    context.textColor = colorRefOf(widget->palette().color(QPalette::WindowText));
    const INT_PTR answer = procedure(dialog, WM_CTLCOLORDLG, WPARAM(&context), LPARAM(dialog));
    if (widget.isNull())
        return;
    if (isSystemBrush(reinterpret_cast<const void*>(answer))) {
        QPalette palette = widget->palette();
        palette.setColor(QPalette::Window, colorOf(systemColor(reinterpret_cast<HBRUSH>(answer)->colorIndex)));
        widget->setPalette(palette);
        widget->setAutoFillBackground(true);
    }
    for (QWidget* control : controlsOf(widget)) {
        if (qobject_cast<QLabel*>(control) == nullptr)
            continue;
        QPointer<QWidget> label = control;
        HDC__ labelContext;
        labelContext.textColor = colorRefOf(label->palette().color(QPalette::WindowText));
        const INT_PTR labelAnswer = procedure(dialog, WM_CTLCOLORSTATIC, WPARAM(&labelContext), LPARAM(handleOf(control)));
        if (widget.isNull())
            return;
        if (label.isNull())
            continue;
        QPalette palette = label->palette();
        if (labelContext.textColorChosen)
            palette.setColor(QPalette::WindowText, colorOf(labelContext.textColor));
        const bool filled = isSystemBrush(reinterpret_cast<const void*>(labelAnswer))
                            && labelContext.backgroundMode != TRANSPARENT;
        if (filled)
            palette.setColor(QPalette::Window, colorOf(systemColor(reinterpret_cast<HBRUSH>(labelAnswer)->colorIndex)));
        label->setPalette(palette);
        label->setAutoFillBackground(filled);
    }
}

// ---- Frames ------------------------------------------------------------------------------------

// A window's outer rectangle in screen coordinates. The frame is known only once the window is
// on the screen; until then the window is its inner rectangle.
QRect outerRectOf(const QWidget* widget)
{
    if (!widget->isWindow())
        return QRect(widget->mapToGlobal(QPoint(0, 0)), widget->size());
    if (widget->isVisible() && widget->testAttribute(Qt::WA_WState_Created))
        return widget->frameGeometry();
    return QRect(widget->pos(), widget->size());
}

Qt::WindowFlags withFlag(Qt::WindowFlags flags, Qt::WindowFlags flag, bool on)
{
    return on ? (flags | flag) : (flags & ~flag);
}

// Brings the widget's frame to the recorded style; `all` false applies only staying on top.
void applyFrameStyles(WindowRecord& record, bool all)
{
    QWidget* widget = record.widget;
    const Qt::WindowFlags flags = widget->windowFlags();
    Qt::WindowFlags wanted = flags;
    const bool child = (record.style & WS_CHILD) != 0;
    if (all && child != !widget->isWindow())
        wanted = (flags & ~Qt::WindowType_Mask) | (child ? Qt::Widget : Qt::Dialog);
    if (!child) {
        wanted = withFlag(wanted, Qt::WindowStaysOnTopHint, (record.exStyle & WS_EX_TOPMOST) != 0);
        const LONG_PTR frameNow = frameStyleOf(widget) & (WS_CAPTION | WS_SYSMENU);
        const LONG_PTR frameWanted = record.style & (WS_CAPTION | WS_SYSMENU);
        if (all && frameNow != frameWanted) {
            wanted |= Qt::CustomizeWindowHint;
            wanted = withFlag(wanted, Qt::WindowTitleHint, (frameWanted & WS_CAPTION) == WS_CAPTION);
            wanted = withFlag(wanted, Qt::WindowSystemMenuHint | Qt::WindowCloseButtonHint,
                              (frameWanted & WS_SYSMENU) != 0);
        }
    }
    if (wanted == flags)
        return;
    // Qt hides a window whose flags change; it comes back where it was.
    const bool shown = !widget->isHidden();
    const QPoint position = widget->pos();
    widget->setWindowFlags(wanted);
    widget->move(position);
    if (shown)
        widget->show();
}

BOOL showWindow(WindowRecord& record, int command)
{
    QWidget* widget = record.widget;
    const BOOL wasShown = widget->isHidden() ? FALSE : TRUE;
    if (command != SW_HIDE && record.colorsPending)
        askColors(handleOf(widget));
    if (record.widget.isNull())
        return wasShown;
    if (command == SW_HIDE) {
        widget->hide();
    } else if (!widget->isWindow()) {
        widget->show();
    } else if (command == SW_SHOWMINIMIZED || command == SW_MINIMIZE) {
        widget->showMinimized();
    } else if (command == SW_SHOWMAXIMIZED) {
        widget->showMaximized();
    } else if (command == SW_SHOWNORMAL || command == SW_RESTORE) {
        widget->showNormal();
    } else {
        widget->setAttribute(Qt::WA_ShowWithoutActivating, command == SW_SHOWNOACTIVATE);
        widget->show();
    }
    return wasShown;
}

template <class Char>
int copyText(const std::basic_string<Char>& text, Char* buffer, int size)
{
    if (buffer == nullptr || size < 1)
        return 0;
    const int count = int(std::min<std::size_t>(text.size(), std::size_t(size - 1)));
    std::char_traits<Char>::copy(buffer, text.data(), std::size_t(count));
    buffer[count] = Char(0);
    return count;
}

} // namespace

// ---- Owner bridge --------------------------------------------------------------------------------

HWND AdoptWindowW(QWidget* widget, int controlID)
{
    if (widget == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return onWindowThread<HWND>(ERROR_INVALID_WINDOW_HANDLE, [&]() -> HWND {
        const HWND window = handleOf(widget);
        if (controlID != 0)
            recordOf(window)->controlID = controlID;
        return window;
    });
}

QWidget* GetWindowWidget(HWND window)
{
    return onWindowThread<QWidget*>(ERROR_INVALID_WINDOW_HANDLE, [&] { return widgetOf(window); });
}

// ---- Dialogs -------------------------------------------------------------------------------------

HWND CreateDialogParamW(HINSTANCE module, const wchar_t* templateName, HWND parent, DLGPROC procedure,
                        LPARAM initParam)
{
    const std::uintptr_t name = reinterpret_cast<std::uintptr_t>(templateName);
    if (module == nullptr || (name >> 16) != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    const auto offer = reinterpret_cast<ZRDialogTemplateW_Function>(GetProcAddress(module, "ZRDialogTemplateW"));
    if (offer == nullptr) {
        SetLastError(ERROR_RESOURCE_TYPE_NOT_FOUND);
        return nullptr;
    }
    const ZRDialogTemplate* dialogTemplate = offer(int(name));
    if (dialogTemplate == nullptr) {
        SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
        return nullptr;
    }
    return onWindowThread<HWND>(ERROR_CANNOT_FIND_WND_CLASS, [&]() -> HWND {
        QWidget* owner = nullptr;
        if (parent != nullptr && (owner = widgetOf(parent)) == nullptr)
            return nullptr;
        const bool child = owner != nullptr && (dialogTemplate->style & WS_CHILD) != 0;
        Qt::WindowFlags flags = child ? Qt::Widget : (Qt::Dialog | Qt::CustomizeWindowHint);
        if (!child && (dialogTemplate->style & WS_CAPTION) == WS_CAPTION)
            flags |= Qt::WindowTitleHint;
        if (!child && (dialogTemplate->style & WS_SYSMENU) != 0)
            flags |= Qt::WindowSystemMenuHint | Qt::WindowCloseButtonHint;
        QWidget* dialog = new QWidget(owner, flags);
        dialog->resize(dialogTemplate->width, dialogTemplate->height);
        if (dialogTemplate->title != nullptr)
            dialog->setWindowTitle(QString::fromWCharArray(dialogTemplate->title));

        auto* label = new QLabel(dialog);
        label->setTextFormat(Qt::PlainText);
        label->setWordWrap(true);
        const Qt::Alignment across = dialogTemplate->textStyle == SS_CENTER ? Qt::AlignHCenter
                                     : dialogTemplate->textStyle == SS_RIGHT ? Qt::AlignRight
                                                                             : Qt::AlignLeft;
        label->setAlignment(across | Qt::AlignTop);
        label->setGeometry(dialogTemplate->textLeft, dialogTemplate->textTop, dialogTemplate->textWidth,
                           dialogTemplate->textHeight);

        const HWND window = handleOf(dialog);
        WindowRecord* record = recordOf(window);
        record->procedure = procedure;
        record->style = (dialogTemplate->style & ~(kStateBits | WS_CHILD | WS_POPUP)) | (child ? WS_CHILD : WS_POPUP);
        record->classStyle = CS_SAVEBITS | CS_DBLCLKS;
        record->colorsPending = true;
        const HWND text = handleOf(label);
        recordOf(text)->controlID = dialogTemplate->textControlID;

        if (procedure != nullptr)
            procedure(window, WM_INITDIALOG, WPARAM(text), initParam);
        record = recordOf(window);
        if (record == nullptr)
            return nullptr;
        if ((dialogTemplate->style & WS_VISIBLE) != 0)
            showWindow(*record, SW_SHOW);
        return window;
    });
}

HWND GetDlgItem(HWND dialog, int controlID)
{
    return onWindowThread<HWND>(ERROR_INVALID_WINDOW_HANDLE, [&]() -> HWND {
        QWidget* widget = widgetOf(dialog);
        if (widget == nullptr)
            return nullptr;
        for (QWidget* control : controlsOf(widget)) {
            if (control->property(kHandleProperty).isValid() && recordOf(handleOf(control))->controlID == controlID)
                return handleOf(control);
        }
        SetLastError(ERROR_CONTROL_ID_NOT_FOUND);
        return nullptr;
    });
}

int GetDlgCtrlID(HWND window)
{
    return onWindowThread<int>(ERROR_INVALID_WINDOW_HANDLE, [&] {
        const WindowRecord* record = recordOf(window);
        return record != nullptr ? record->controlID : 0;
    });
}

// ---- Windows -------------------------------------------------------------------------------------

BOOL IsWindow(HWND window)
{
    if (window == nullptr)
        return FALSE;
    // No last error is set by asking.
    const DWORD kept = GetLastError();
    const BOOL alive = onWindowThread<BOOL>(kept, [&] { return widgetOf(window) != nullptr ? TRUE : FALSE; });
    SetLastError(kept);
    return alive;
}

BOOL IsWindowVisible(HWND window)
{
    return onWindowThread<BOOL>(ERROR_INVALID_WINDOW_HANDLE, [&] {
        const QWidget* widget = widgetOf(window);
        return widget != nullptr && widget->isVisible() ? TRUE : FALSE;
    });
}

BOOL DestroyWindow(HWND window)
{
    return onWindowThread<BOOL>(ERROR_INVALID_WINDOW_HANDLE, [&] {
        WindowRecord* record = recordOf(window);
        if (record == nullptr)
            return FALSE;
        QPointer<QWidget> widget = record->widget;
        if (record->procedure != nullptr)
            record->procedure(window, WM_DESTROY, 0, 0);
        delete widget.data(); // the record leaves the table with the widget
        return TRUE;
    });
}

BOOL ShowWindow(HWND window, int command)
{
    return onWindowThread<BOOL>(ERROR_INVALID_WINDOW_HANDLE, [&] {
        WindowRecord* record = recordOf(window);
        return record != nullptr ? showWindow(*record, command) : FALSE;
    });
}

BOOL SetForegroundWindow(HWND window)
{
    return onWindowThread<BOOL>(ERROR_INVALID_WINDOW_HANDLE, [&] {
        QWidget* widget = widgetOf(window);
        if (widget == nullptr)
            return FALSE;
        widget->window()->raise();
        widget->window()->activateWindow();
        return TRUE;
    });
}

BOOL SetWindowTextW(HWND window, const wchar_t* text)
{
    return onWindowThread<BOOL>(ERROR_INVALID_WINDOW_HANDLE, [&] {
        QWidget* widget = widgetOf(window);
        if (widget == nullptr)
            return FALSE;
        setTextOf(widget, text != nullptr ? QString::fromWCharArray(text) : QString());
        return TRUE;
    });
}

int GetWindowTextLengthW(HWND window)
{
    return onWindowThread<int>(ERROR_INVALID_WINDOW_HANDLE, [&] {
        const QWidget* widget = widgetOf(window);
        return widget != nullptr ? int(wideTextOf(widget).size()) : 0;
    });
}

int GetWindowTextW(HWND window, wchar_t* buffer, int size)
{
    return onWindowThread<int>(ERROR_INVALID_WINDOW_HANDLE, [&] {
        const QWidget* widget = widgetOf(window);
        if (widget == nullptr) {
            if (buffer != nullptr && size > 0)
                buffer[0] = L'\0';
            return 0;
        }
        return copyText(wideTextOf(widget), buffer, size);
    });
}

int GetWindowTextLengthA(HWND window)
{
    return onWindowThread<int>(ERROR_INVALID_WINDOW_HANDLE, [&] {
        const QWidget* widget = widgetOf(window);
        return widget != nullptr ? int(textOf(widget).toUtf8().size()) : 0;
    });
}

int GetWindowTextA(HWND window, char* buffer, int size)
{
    return onWindowThread<int>(ERROR_INVALID_WINDOW_HANDLE, [&] {
        const QWidget* widget = widgetOf(window);
        if (widget == nullptr) {
            if (buffer != nullptr && size > 0)
                buffer[0] = '\0';
            return 0;
        }
        if (buffer == nullptr || size < 1)
            return 0;
        std::string text = textOf(widget).toUtf8().toStdString();
        // Cut at a character boundary: never inside a sequence of UTF-8 bytes.
        std::size_t count = std::min<std::size_t>(text.size(), std::size_t(size - 1));
        while (count > 0 && count < text.size() && (static_cast<unsigned char>(text[count]) & 0xC0) == 0x80)
            --count;
        return copyText(text.substr(0, count), buffer, size);
    });
}

LONG_PTR GetWindowLongPtrW(HWND window, int index)
{
    return onWindowThread<LONG_PTR>(ERROR_INVALID_WINDOW_HANDLE, [&]() -> LONG_PTR {
        const WindowRecord* record = recordOf(window);
        if (record == nullptr)
            return 0;
        const QWidget* widget = record->widget;
        if (index == GWL_EXSTYLE)
            return (record->exStyle & ~WS_EX_TOPMOST) | topmostOf(widget);
        if (index != GWL_STYLE) {
            SetLastError(ERROR_INVALID_INDEX);
            return 0;
        }
        LONG_PTR style = record->style & ~kStateBits;
        if (!widget->isHidden())
            style |= WS_VISIBLE;
        if (widget->testAttribute(Qt::WA_Disabled))
            style |= WS_DISABLED;
        if (widget->isWindow() && widget->windowState().testFlag(Qt::WindowMinimized))
            style |= WS_MINIMIZE;
        if (widget->isWindow() && widget->windowState().testFlag(Qt::WindowMaximized))
            style |= WS_MAXIMIZE;
        return style;
    });
}

LONG_PTR SetWindowLongPtrW(HWND window, int index, LONG_PTR value)
{
    return onWindowThread<LONG_PTR>(ERROR_INVALID_WINDOW_HANDLE, [&]() -> LONG_PTR {
        WindowRecord* record = recordOf(window);
        if (record == nullptr)
            return 0;
        LONG_PTR* word = index == GWL_STYLE ? &record->style : index == GWL_EXSTYLE ? &record->exStyle : nullptr;
        if (word == nullptr) {
            SetLastError(ERROR_INVALID_INDEX);
            return 0;
        }
        return std::exchange(*word, index == GWL_STYLE ? (value & ~kStateBits) : value);
    });
}

unsigned long long GetClassLongPtrW(HWND window, int index)
{
    return onWindowThread<unsigned long long>(ERROR_INVALID_WINDOW_HANDLE, [&]() -> unsigned long long {
        const WindowRecord* record = recordOf(window);
        if (record == nullptr)
            return 0;
        if (index != GCL_STYLE) {
            SetLastError(ERROR_INVALID_INDEX);
            return 0;
        }
        return record->classStyle;
    });
}

unsigned long long SetClassLongPtrW(HWND window, int index, long long value)
{
    return onWindowThread<unsigned long long>(ERROR_INVALID_WINDOW_HANDLE, [&]() -> unsigned long long {
        WindowRecord* record = recordOf(window);
        if (record == nullptr)
            return 0;
        if (index != GCL_STYLE) {
            SetLastError(ERROR_INVALID_INDEX);
            return 0;
        }
        return std::exchange(record->classStyle, static_cast<unsigned long long>(value));
    });
}

BOOL GetWindowRect(HWND window, RECT* rect)
{
    if (rect == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    return onWindowThread<BOOL>(ERROR_INVALID_WINDOW_HANDLE, [&] {
        const QWidget* widget = widgetOf(window);
        if (widget == nullptr)
            return FALSE;
        const QRect area = outerRectOf(widget);
        *rect = RECT{area.left(), area.top(), area.left() + area.width(), area.top() + area.height()};
        return TRUE;
    });
}

BOOL SetWindowPos(HWND window, HWND insertAfter, int x, int y, int width, int height, UINT flags)
{
    return onWindowThread<BOOL>(ERROR_INVALID_WINDOW_HANDLE, [&] {
        WindowRecord* record = recordOf(window);
        if (record == nullptr)
            return FALSE;
        QWidget* widget = record->widget;
        bool topmostChanged = false;
        if ((flags & SWP_NOZORDER) == 0) {
            if (insertAfter == HWND_TOPMOST || insertAfter == HWND_NOTOPMOST) {
                const LONG_PTR topmost = insertAfter == HWND_TOPMOST ? WS_EX_TOPMOST : 0;
                topmostChanged = (record->exStyle & WS_EX_TOPMOST) != topmost;
                record->exStyle = (record->exStyle & ~WS_EX_TOPMOST) | topmost;
            }
        }
        if ((flags & SWP_FRAMECHANGED) != 0 || topmostChanged)
            applyFrameStyles(*record, (flags & SWP_FRAMECHANGED) != 0);
        if ((flags & SWP_NOZORDER) == 0) {
            if (insertAfter == HWND_BOTTOM)
                widget->lower();
            else if (insertAfter != HWND_NOTOPMOST)
                widget->raise();
        }
        if ((flags & SWP_NOMOVE) == 0)
            widget->move(x, y);
        if ((flags & SWP_NOSIZE) == 0) {
            const QSize frame = outerRectOf(widget).size() - widget->size();
            widget->resize(std::max(0, width - frame.width()), std::max(0, height - frame.height()));
        }
        if ((flags & SWP_SHOWWINDOW) != 0)
            showWindow(*record, SW_SHOW);
        else if ((flags & SWP_HIDEWINDOW) != 0)
            widget->hide();
        return TRUE;
    });
}

HWND GetParent(HWND window)
{
    return onWindowThread<HWND>(ERROR_INVALID_WINDOW_HANDLE, [&]() -> HWND {
        const WindowRecord* record = recordOf(window);
        if (record == nullptr)
            return nullptr;
        QWidget* parent = record->widget->parentWidget();
        if (parent == nullptr || (record->widget->isWindow() && (record->style & WS_POPUP) == 0))
            return nullptr;
        return handleOf(parent);
    });
}

HWND GetWindow(HWND window, UINT command)
{
    return onWindowThread<HWND>(ERROR_INVALID_WINDOW_HANDLE, [&]() -> HWND {
        QWidget* widget = widgetOf(window);
        if (widget == nullptr)
            return nullptr;
        if (command == GW_CHILD) {
            const QList<QWidget*> controls = controlsOf(widget);
            return controls.isEmpty() ? nullptr : handleOf(controls.first());
        }
        if (command == GW_HWNDNEXT) {
            if (widget->isWindow() || widget->parentWidget() == nullptr)
                return nullptr;
            const QList<QWidget*> siblings = controlsOf(widget->parentWidget());
            const int at = siblings.indexOf(widget);
            return at >= 0 && at + 1 < siblings.size() ? handleOf(siblings.at(at + 1)) : nullptr;
        }
        if (command == GW_OWNER)
            return widget->isWindow() && widget->parentWidget() != nullptr ? handleOf(widget->parentWidget()) : nullptr;
        SetLastError(ERROR_INVALID_GW_COMMAND);
        return nullptr;
    });
}

BOOL InvalidateRect(HWND window, const RECT* rect, BOOL erase)
{
    return onWindowThread<BOOL>(ERROR_INVALID_WINDOW_HANDLE, [&] {
        const auto mark = [rect, erase](WindowRecord& record) {
            record.paintPending = true;
            record.colorsPending = record.colorsPending || erase != FALSE;
            if (rect != nullptr)
                record.widget->update(QRect(QPoint(rect->left, rect->top), QPoint(rect->right - 1, rect->bottom - 1)));
            else
                record.widget->update();
        };
        if (window == nullptr) {
            for (auto& entry : windowTable()) {
                if (!entry.second.widget.isNull())
                    mark(entry.second);
            }
            return TRUE;
        }
        WindowRecord* record = recordOf(window);
        if (record == nullptr)
            return FALSE;
        mark(*record);
        return TRUE;
    });
}

BOOL UpdateWindow(HWND window)
{
    return onWindowThread<BOOL>(ERROR_INVALID_WINDOW_HANDLE, [&] {
        WindowRecord* record = recordOf(window);
        if (record == nullptr)
            return FALSE;
        if (record->colorsPending)
            askColors(window);
        if ((record = recordOf(window)) == nullptr)
            return FALSE;
        if (record->paintPending) {
            record->paintPending = false;
            if (record->widget->isVisible())
                record->widget->repaint();
        }
        return TRUE;
    });
}

LRESULT SendMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    return onWindowThread<LRESULT>(ERROR_INVALID_WINDOW_HANDLE, [&]() -> LRESULT {
        WindowRecord* record = recordOf(window);
        if (record == nullptr)
            return 0;
        if (message == WM_SETFONT) {
            const HFONT font = reinterpret_cast<HFONT>(wParam);
            if (liveFonts().count(font) == 0)
                return 0;
            record->font = font;
            record->widget->setFont(font->font);
            if (lParam != 0)
                record->widget->update();
            return 0;
        }
        if (message == WM_GETFONT)
            return liveFonts().count(record->font) != 0 ? reinterpret_cast<LRESULT>(record->font) : 0;
        return record->procedure != nullptr ? record->procedure(window, message, wParam, lParam) : 0;
    });
}

// ---- Drawing objects and system data -------------------------------------------------------------

COLORREF GetSysColor(int index)
{
    if (application() == nullptr)
        return defaultSystemColor(index);
    return onWindowThread<COLORREF>(ERROR_SUCCESS, [&] { return systemColor(index); });
}

HBRUSH GetSysColorBrush(int index)
{
    return systemBrush(index);
}

HFONT CreateFontIndirectW(const LOGFONTW* description)
{
    if (description == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return onWindowThread<HFONT>(ERROR_NOT_SUPPORTED, [&] {
        QFont font;
        const std::size_t faceLength = wcsnlen(description->lfFaceName, LF_FACESIZE);
        if (faceLength > 0)
            font.setFamily(QString::fromWCharArray(description->lfFaceName, int(faceLength)));
        if (description->lfHeight != 0)
            font.setPixelSize(std::abs(description->lfHeight));
        if (description->lfWeight > 0)
            font.setWeight(qtWeightOf(description->lfWeight));
        font.setItalic(description->lfItalic != 0);
        font.setUnderline(description->lfUnderline != 0);
        font.setStrikeOut(description->lfStrikeOut != 0);
        const HFONT made = new HFONT__{font};
        liveFonts().insert(made);
        return made;
    });
}

BOOL DeleteObject(HGDIOBJ object)
{
    if (object == nullptr)
        return FALSE;
    if (isSystemBrush(object))
        return TRUE;
    return onWindowThread<BOOL>(ERROR_INVALID_HANDLE, [&] {
        const HFONT font = static_cast<HFONT>(object);
        if (liveFonts().erase(font) == 0)
            return FALSE;
        delete font;
        return TRUE;
    });
}

COLORREF SetTextColor(HDC context, COLORREF color)
{
    if (context == nullptr)
        return CLR_INVALID;
    context->textColorChosen = true;
    return std::exchange(context->textColor, color);
}

int SetBkMode(HDC context, int mode)
{
    if (context == nullptr || (mode != TRANSPARENT && mode != OPAQUE))
        return 0;
    return std::exchange(context->backgroundMode, mode);
}

BOOL GdiFlush()
{
    return onWindowThread<BOOL>(ERROR_NOT_SUPPORTED, [] {
        QGuiApplication::sync();
        return TRUE;
    });
}

BOOL SystemParametersInfoW(UINT action, UINT size, void* data, UINT)
{
    if (data == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    return onWindowThread<BOOL>(ERROR_NOT_SUPPORTED, [&] {
        if (action == SPI_GETWORKAREA) {
            const QScreen* screen = QGuiApplication::primaryScreen();
            if (screen == nullptr) {
                SetLastError(ERROR_NOT_SUPPORTED);
                return FALSE;
            }
            const QRect area = screen->availableGeometry();
            *static_cast<RECT*>(data) =
                RECT{area.left(), area.top(), area.left() + area.width(), area.top() + area.height()};
            return TRUE;
        }
        auto* metrics = static_cast<NONCLIENTMETRICSW*>(data);
        // Like Windows, the form without the padded border width is accepted as well.
        const bool sized = metrics->cbSize == size
                           && (size == sizeof(NONCLIENTMETRICSW) || size == sizeof(NONCLIENTMETRICSW) - sizeof(int));
        if (action != SPI_GETNONCLIENTMETRICS || !sized) {
            SetLastError(ERROR_INVALID_PARAMETER);
            return FALSE;
        }
        const QStyle* style = QApplication::style();
        const int caption = style->pixelMetric(QStyle::PM_TitleBarHeight);
        const int scroll = style->pixelMetric(QStyle::PM_ScrollBarExtent);
        LOGFONTW font{};
        describeFont(QApplication::font(), font);
        std::memset(static_cast<void*>(reinterpret_cast<char*>(metrics) + sizeof(UINT)), 0, size - sizeof(UINT));
        metrics->iBorderWidth = 1;
        metrics->iScrollWidth = metrics->iScrollHeight = scroll;
        metrics->iCaptionWidth = metrics->iCaptionHeight = caption;
        metrics->iSmCaptionWidth = metrics->iSmCaptionHeight = caption;
        metrics->iMenuWidth = metrics->iMenuHeight = caption;
        metrics->lfCaptionFont = metrics->lfSmCaptionFont = metrics->lfMenuFont = font;
        metrics->lfStatusFont = metrics->lfMessageFont = font;
        return TRUE;
    });
}
