// The status window as an owner drives it: a QApplication drawing offscreen, a dialog from the
// test resource module (or one the owner made), texts read back through the window layer.
#include "notify/ZarnStatusReporter.h"

#include "foundation/UTL_String.h"
#include "monitor/Zarn.h"
#include "monitor/ZarnData.h"
#include "platform/LastError.h"
#include "platform/Modules.h"
#include "platform/QtWindows.h"
#include "support/TestLogPath.h"

#include <QApplication>
#include <QImage>
#include <QLabel>
#include <QPointer>
#include <QWidget>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

// Fontconfig keeps caches, and Qt's offscreen platform its screen, to the end of the process;
// LeakSanitizer would report both (and what the screen holds).
extern "C" __attribute__((visibility("default"), used)) const char* __lsan_default_suppressions()
{
    return "leak:libfontconfig.so\nleak:libqoffscreen.so\nleak:QScreen::QScreen\nleak:QPlatformScreen::QPlatformScreen\n";
}

// Qt is not built for ThreadSanitizer, which therefore cannot see the locks that hand a posted
// event to the application's thread: the event posted to wake the loop would look like a race.
extern "C" __attribute__((visibility("default"), used)) const char* __tsan_default_suppressions()
{
    return "race:invokeMethod\n";
}

namespace {

constexpr int kStatusDialog = 101; // hidden at first
constexpr int kShownDialog = 102;  // shown at once
constexpr int kTextID = 1001;

std::wstring modulePath(const char* file)
{
    const std::string path = std::string(ZMU_TEST_MODULE_DIR "/") + file;
    return std::wstring(path.begin(), path.end());
}

const std::wstring kDialogModule = modulePath("libzmu_test_dialog.so");

INT_PTR ownerProcedure(HWND, UINT, WPARAM, LPARAM)
{
    return 0;
}

// Reaches the built-in procedure, to offer it where it does not belong.
struct BuiltIn : ZarnStatusReporter
{
    static DLGPROC procedure() { return &ZarnStatusReporter::processDialogMessages; }
};

// Widgets need an application; these tests draw offscreen. It lives to the end of the process:
// Qt's offscreen platform leaks its screen when the application is deleted.
class WithApplication : public testing::Test
{
public:
    static void SetUpTestSuite()
    {
        if (QCoreApplication::instance() != nullptr)
            return;
        qputenv("QT_QPA_PLATFORM", "offscreen");
        static int argc = 1;
        static char name[] = "zmu_test_notify";
        static char* argv[] = {name, nullptr};
        static QApplication* application = new QApplication(argc, argv);
        (void)application;
    }

protected:
    void SetUp() override { ZarnStatusReporter::destroy(); }
    void TearDown() override { ZarnStatusReporter::destroy(); }

    static ZarnStatusReporter* createStatusWindow(unsigned long styles = 0x10000, int dialogID = kStatusDialog)
    {
        return ZarnStatusReporter::create(L"Farrowlink", styles, kDialogModule.c_str(), 0, dialogID, kTextID, nullptr,
                                          nullptr);
    }
    // What the text control shows, read back through the window layer.
    static std::wstring shownText()
    {
        UTL_String text;
        text.loadWindowText(GetDlgItem(ZarnStatusReporter_MACRO_GetDialogWindowHandle(), kTextID), UTL_String::Wide);
        return text.wideText();
    }
    static int status() { return ZarnStatusReporter::getDX_Code1(); }
};

using ZarnStatusReporterTest = WithApplication;
using ZarnStatusReporterConcurrency = WithApplication;

} // namespace

TEST_F(ZarnStatusReporterTest, CreateRefusesWhatItCannotUse)
{
    QWidget owner;
    AdoptWindowW(new QLabel(&owner), kTextID);
    const HWND adopted = AdoptWindowW(&owner);
    const std::wstring plain = modulePath("libzmu_test_plain.so");
    const std::wstring missing = modulePath("libzmu_test_missing.so");
    const wchar_t* dialog = kDialogModule.c_str();
    const auto fromTemplate = [](const wchar_t* file, int dialogID, int textID) {
        return [=] { return ZarnStatusReporter::create(L"t", 0x10000, file, 0, dialogID, textID, nullptr, nullptr); };
    };
    const auto adopting = [](HWND window, int textID, DLGPROC procedure, const wchar_t* file) {
        return [=] { return ZarnStatusReporter::create(window, textID, procedure, file, 0); };
    };
    struct Row { const char* name; std::function<ZarnStatusReporter*()> create; int status; DWORD lastError; };
    const Row rows[] = {
        {"no resource file", fromTemplate(nullptr, kStatusDialog, kTextID), 15, 0},
        {"an empty resource file", fromTemplate(L"", kStatusDialog, kTextID), 15, 0},
        {"dialog id 0", fromTemplate(dialog, 0, kTextID), 15, 0},
        {"dialog id 28672", fromTemplate(dialog, 28672, kTextID), 15, 0},
        {"dialog id 28671 passes, but has no template", fromTemplate(dialog, 28671, kTextID), 14,
         ERROR_RESOURCE_NAME_NOT_FOUND},
        {"a module that offers no templates", fromTemplate(plain.c_str(), kStatusDialog, kTextID), 14,
         ERROR_RESOURCE_TYPE_NOT_FOUND},
        {"a module that is not there", fromTemplate(missing.c_str(), kStatusDialog, kTextID), 33, ERROR_MOD_NOT_FOUND},
        {"text control id 7", fromTemplate(dialog, kStatusDialog, 7), 13, 0},
        {"text control id 57344", fromTemplate(dialog, kStatusDialog, 57344), 13, 0},
        {"text control id 8 passes, but is missing", fromTemplate(dialog, kStatusDialog, 8), 12,
         ERROR_CONTROL_ID_NOT_FOUND},
        {"adopting no dialog", adopting(nullptr, kTextID, ownerProcedure, dialog), 17, 0},
        {"adopting without a resource file", adopting(adopted, kTextID, ownerProcedure, L""), 17, 0},
        {"adopting without a procedure", adopting(adopted, kTextID, nullptr, dialog), 18, 0},
        {"adopting with the built-in procedure", adopting(adopted, kTextID, BuiltIn::procedure(), dialog), 18, 0},
        {"adopting with text control id 7", adopting(adopted, 7, ownerProcedure, dialog), 13, 0},
    };
    const int windowsBefore = QApplication::topLevelWidgets().size();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.create(), nullptr);
        EXPECT_EQ(status(), row.status);
        EXPECT_EQ(ZarnStatusReporter::getDX_Code2(), row.lastError);
        EXPECT_EQ(ZarnStatusReporter::getLoneInstance(), nullptr);
        EXPECT_EQ(QApplication::topLevelWidgets().size(), windowsBefore) << "a failed create leaves no window";
    }
    EXPECT_TRUE(IsWindow(adopted)) << "a failed adoption leaves the owner's dialog alone";
}

TEST_F(ZarnStatusReporterTest, OneReporterAtATime)
{
    ZarnStatusReporter* first = createStatusWindow();
    ASSERT_NE(first, nullptr);
    const HWND window = first->getDialogWindowHandle();
    EXPECT_EQ(createStatusWindow(), nullptr);
    EXPECT_EQ(status(), 21);
    EXPECT_EQ(ZarnStatusReporter::create(window, kTextID, ownerProcedure, kDialogModule.c_str(), 0), nullptr);
    EXPECT_EQ(status(), 23);
    EXPECT_EQ(ZarnStatusReporter::getLoneInstance(), first);
    EXPECT_TRUE(first->updateDisplay(L"still here"));
    EXPECT_EQ(shownText(), L"still here");

    ZarnStatusReporter::destroy();
    EXPECT_EQ(ZarnStatusReporter::getLoneInstance(), nullptr);
    EXPECT_FALSE(IsWindow(window));
    EXPECT_NE(createStatusWindow(), nullptr) << "destroy makes room for a new reporter";
}

TEST_F(ZarnStatusReporterTest, AWindowDestroyedElsewhereLeavesADeadReporter)
{
    ZarnStatusReporter* reporter = createStatusWindow();
    ASSERT_NE(reporter, nullptr);
    ASSERT_TRUE(DestroyWindow(reporter->getDialogWindowHandle()));
    EXPECT_FALSE(reporter->isViable());
    EXPECT_FALSE(reporter->isVisible());
    EXPECT_EQ(reporter->getDialogWindowHandle(), nullptr);
    EXPECT_TRUE(reporter->appear()) << "nothing to show is no failure";
    EXPECT_FALSE(reporter->disappear());
    EXPECT_FALSE(reporter->updateDisplay(L"lost"));
    EXPECT_EQ(status(), 40);
}

TEST_F(ZarnStatusReporterTest, ShowsTextsInEveryForm)
{
    // Loaded here, so that the reporter finds it in memory and swapping it out does not unload it.
    const HMODULE dialog = LoadLibraryW(kDialogModule.c_str());
    const HMODULE strings = LoadLibraryW(modulePath("libzmu_test_strings.so").c_str());
    ASSERT_TRUE(dialog != nullptr && strings != nullptr);
    ZarnStatusReporter* reporter = createStatusWindow();
    ASSERT_NE(reporter, nullptr);
    struct Row { const char* name; std::function<bool()> show; const wchar_t* shown; };
    const Row rows[] = {
        {"a text as it is", [] { return ZarnStatusReporter_MACRO_UpdateDisplay(L"Copying «profile» — 3 of 7"); },
         L"Copying «profile» — 3 of 7"},
        {"markup stays text", [] { return ZarnStatusReporter_MACRO_UpdateDisplay(L"<b>7</b>"); }, L"<b>7</b>"},
        {"a composed text", [=] { return reporter->composeTextMessage(L"%s: %d of %u", L"Copying", 3, 7u)
                                         && ZarnStatusReporter_MACRO_UpdateDisplay(); },
         L"Copying: 3 of 7"},
        {"a string of the resource module", [] { return ZarnStatusReporter_MACRO_UpdateDisplay(100u, nullptr); },
         L"Reading the session profile"},
        {"a string of the module given, not of the resource module",
         [=] { return reporter->setDLL_Resources(strings) && reporter->updateDisplay(100u, dialog); },
         L"Reading the session profile"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_TRUE(row.show());
        EXPECT_EQ(status(), 0);
        EXPECT_EQ(shownText(), row.shown);
    }
    ZarnStatusReporter::destroy();
    EXPECT_TRUE(FreeLibrary(strings) && FreeLibrary(dialog)) << "a module handed over stays the caller's";
}

// Every refusal answers false with its code, and leaves the shown text alone.
TEST_F(ZarnStatusReporterTest, RefusalsKeepTheShownText)
{
    ZarnStatusReporter* reporter = createStatusWindow();
    ASSERT_NE(reporter, nullptr);
    ASSERT_TRUE(reporter->updateDisplay(L"kept"));
    QWidget maximized;
    maximized.showMaximized();
    QPointer<QWidget> gone = new QWidget();
    const HWND stale = AdoptWindowW(gone);
    delete gone.data();
    struct Row { const char* name; std::function<bool()> call; int status; DWORD lastError; };
    const Row rows[] = {
        {"no text", [=] { return reporter->updateDisplay(static_cast<const wchar_t*>(nullptr)); }, 40, 0},
        {"string id 7", [=] { return reporter->updateDisplay(7u, nullptr); }, 38, 0},
        {"string id 57344", [=] { return reporter->updateDisplay(57344u, nullptr); }, 38, 0},
        {"a string the module lacks", [=] { return reporter->updateDisplay(999u, nullptr); }, 39,
         ERROR_RESOURCE_NAME_NOT_FOUND},
        {"an empty string", [=] { return reporter->updateDisplay(101u, nullptr); }, 39, 0},
        {"no monitor", [] { return ZarnStatusReporter::updateDisplay(static_cast<const Zarn*>(nullptr)); }, 37, 0},
        {"no format", [=] { return reporter->composeTextMessage(nullptr); }, 10, 0},
        {"a format the formatter refuses", [=] { return reporter->composeTextMessage(L"%d %n", 5); }, 11, 0},
        {"no resource file to swap in", [] { return ZarnStatusReporter_MACRO_SetDLL_Resources(nullptr, 0); }, 35, 0},
        {"no module to swap in", [] { return ZarnStatusReporter_MACRO_SetDLL_Resources(HINSTANCE(nullptr)); }, 34, 0},
        {"no file to obtain a module from, and not loaded here",
         [] {
             HINSTANCE module = nullptr;
             bool loadedHere = true;
             return ZarnStatusReporter::obtainModuleHandle(nullptr, 0, module, loadedHere) || loadedHere;
         },
         32, 0},
        {"a module handle already set",
         [] {
             HINSTANCE module = reinterpret_cast<HINSTANCE>(1);
             bool loadedHere = false;
             return ZarnStatusReporter::obtainModuleHandle(kDialogModule.c_str(), 0, module, loadedHere);
         },
         31, 0},
        {"centring no window", [] { return ZarnStatusReporter::centerWindow(nullptr, HWND_TOP); }, 5, 0},
        {"centring a destroyed window", [=] { return ZarnStatusReporter::centerWindow(stale, HWND_TOP); }, 5, 0},
        {"centring a maximized window",
         [&] { return ZarnStatusReporter::centerWindow(AdoptWindowW(&maximized), HWND_TOP); }, 5, 0},
        // Last: the failed swap leaves the reporter without a resource module.
        {"a resource module that could not be swapped in",
         [=] {
             return reporter->setDLL_Resources(modulePath("libzmu_test_missing.so").c_str(), 0)
                    || reporter->updateDisplay(100u, nullptr);
         },
         38, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_FALSE(row.call());
        EXPECT_EQ(status(), row.status);
        EXPECT_EQ(ZarnStatusReporter::getDX_Code2(), row.lastError);
        EXPECT_EQ(shownText(), L"kept");
    }
    EXPECT_TRUE(reporter->updateDisplay()) << "a failed composition leaves an empty text";
    EXPECT_EQ(shownText(), L"");

    const std::wstring longText(3000, L'x');
    EXPECT_TRUE(reporter->composeTextMessage(L"%s", longText.c_str())) << "a cut text still counts";
    EXPECT_TRUE(reporter->updateDisplay());
    EXPECT_EQ(shownText(), std::wstring(2047, L'x'));
}

TEST_F(ZarnStatusReporterTest, TheBuiltInProcedureShapesTheWindow)
{
    struct Row { unsigned long styles; int dialogID; bool topmost; bool visible; };
    const Row rows[] = {{0x10000, kStatusDialog, true, false},
                        {0, kStatusDialog, false, false},
                        {0xFFFF, kStatusDialog, false, false}, // the low bits have no effect
                        {0x1FFFF, kShownDialog, true, true}};
    RECT workArea{};
    ASSERT_TRUE(SystemParametersInfoW(SPI_GETWORKAREA, 0, &workArea, 0));
    for (const Row& row : rows) {
        SCOPED_TRACE(row.styles);
        ZarnStatusReporter* reporter = createStatusWindow(row.styles, row.dialogID);
        ASSERT_NE(reporter, nullptr);
        const HWND window = reporter->getDialogWindowHandle();
        QWidget* widget = GetWindowWidget(window);
        EXPECT_EQ((GetWindowLongPtrW(window, GWL_EXSTYLE) & WS_EX_TOPMOST) != 0, row.topmost);
        EXPECT_EQ(widget->windowFlags().testFlag(Qt::WindowStaysOnTopHint), row.topmost);
        EXPECT_EQ(reporter->isVisible(), row.visible) << "the template decides";
        EXPECT_EQ(GetWindowLongPtrW(window, GWL_STYLE) & (WS_POPUP | WS_CHILD | WS_SYSMENU), WS_POPUP);
        EXPECT_EQ(GetClassLongPtrW(window, GCL_STYLE) & CS_SAVEBITS, 0u);
        EXPECT_NE(SendMessageW(GetDlgItem(window, kTextID), WM_GETFONT, 0, 0), 0) << "the message font is set";
        // Centred when made, before the window has a frame.
        RECT rect{};
        ASSERT_TRUE(GetWindowRect(window, &rect));
        EXPECT_EQ(rect.left, (workArea.right - workArea.left - widget->width()) / 2);
        EXPECT_EQ(rect.top, (workArea.bottom - workArea.top - widget->height()) / 2);
        // Drawn in the system's face colour, with the text in a dark one.
        ASSERT_TRUE(reporter->appear() && reporter->updateDisplay(L"Copying the session profile — file 3 of 7"));
        const QImage picture = widget->grab().toImage();
        const QRgb face = picture.pixel(2, 2);
        EXPECT_EQ(COLORREF(qRed(face) | qGreen(face) << 8 | qBlue(face) << 16), GetSysColor(COLOR_3DFACE));
        int inked = 0;
        for (int y = 0; y < picture.height(); ++y) {
            for (int x = 0; x < picture.width(); ++x)
                inked += qGray(picture.pixel(x, y)) < 96 ? 1 : 0;
        }
        EXPECT_GT(inked, 100);
        ZarnStatusReporter::destroy();
    }
}

TEST_F(ZarnStatusReporterTest, CenterWindowPlacesOnTheOwnerOrTheWorkArea)
{
    RECT workArea{};
    ASSERT_TRUE(SystemParametersInfoW(SPI_GETWORKAREA, 0, &workArea, 0));
    const int workWidth = workArea.right - workArea.left;
    const int workHeight = workArea.bottom - workArea.top;
    enum class Owner { None, Shown, Hidden, Minimized };
    const auto onWorkArea = [=](int width, int height) {
        return [=](const RECT&) { return QPoint((workWidth - width) / 2, (workHeight - height) / 2); };
    };
    struct Row { const char* name; Owner owner; QPoint ownerAt; QSize size;
                 std::function<QPoint(const RECT& owner)> expected; };
    const Row rows[] = {
        {"a window on the work area", Owner::None, {}, {300, 100}, onWorkArea(300, 100)},
        {"a window wider than the work area ends flush right", Owner::None, {}, {workWidth + 100, 50},
         [=](const RECT&) { return QPoint(-100, (workHeight - 50) / 2); }},
        {"a control on its shown owner", Owner::Shown, {100, 50}, {100, 60},
         [](const RECT& o) { return QPoint(o.left + (o.right - o.left - 100) / 2, o.top + (o.bottom - o.top - 60) / 2); }},
        {"a control of an owner at the right edge stays inside", Owner::Shown, {workWidth - 150, 0}, {100, 60},
         [=](const RECT& o) { return QPoint(workWidth - 100, o.top + (o.bottom - o.top - 60) / 2); }},
        {"a control of a minimized owner goes to the work area", Owner::Minimized, {100, 50}, {100, 60},
         onWorkArea(100, 60)},
        {"a control of a hidden owner goes to the work area", Owner::Hidden, {100, 50}, {100, 60},
         onWorkArea(100, 60)},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        QWidget owner;
        owner.setGeometry(QRect(row.ownerAt, QSize(400, 300)));
        QWidget* placed = row.owner == Owner::None ? new QWidget(&owner, Qt::Window) : new QWidget(&owner);
        placed->resize(row.size);
        if (row.owner == Owner::Shown)
            owner.show();
        else if (row.owner == Owner::Minimized)
            owner.showMinimized();
        RECT ownerRect{};
        ASSERT_TRUE(GetWindowRect(AdoptWindowW(&owner), &ownerRect));
        EXPECT_TRUE(ZarnStatusReporter::centerWindow(AdoptWindowW(placed), HWND_TOP));
        EXPECT_EQ(status(), 0);
        EXPECT_EQ(placed->pos(), row.expected(ownerRect));
    }
}

TEST_F(ZarnStatusReporterTest, AMonitorShowsItsLogDescription)
{
    const HMODULE specs = LoadLibraryW(kDialogModule.c_str());
    ASSERT_NE(specs, nullptr);
    ASSERT_NE(createStatusWindow(), nullptr);
    static std::wstring seen;
    ZarnData dataSet;
    dataSet.setCharSetExternal(2);
    dataSet.createPlugIns(1)[0] = [](const Zarn* monitor) {
        const bool shown = ZarnStatusReporter::updateDisplay(monitor);
        seen = shown ? shownText() : L"<not shown>";
        return shown;
    };
    std::wstring logName = testLogPath(L"status");
    dataSet.recordLogFileNomenclature(logName.data(), nullptr, Zarn_LOG_HTML);
    Zarn* monitor = Zarn::create(&dataSet);
    ASSERT_NE(monitor, nullptr) << dataSet.getSelfDX_Code();

    EXPECT_TRUE(monitor->respondToSituation(6001, specs, L"alpha"));
    EXPECT_EQ(seen, L"Profile alpha loaded");
    ZarnStatusReporter::destroy();
    EXPECT_FALSE(ZarnStatusReporter::updateDisplay(monitor)) << "no reporter";
    Zarn::destroy();
    FreeLibrary(specs);
}

TEST_F(ZarnStatusReporterTest, MacroFunctionsForwardToTheLoneReporter)
{
    const HMODULE dialog = LoadLibraryW(kDialogModule.c_str());
    ASSERT_NE(dialog, nullptr);
    const auto everyAnswer = [dialog] {
        return std::vector<long long>{ZarnStatusReporter_MACRO_IsViable(),
                                      ZarnStatusReporter_MACRO_Appear(),
                                      ZarnStatusReporter_MACRO_IsVisible(),
                                      ZarnStatusReporter_MACRO_GetDialogWindowHandle() != nullptr,
                                      ZarnStatusReporter_MACRO_UpdateDisplay(L"macro"),
                                      ZarnStatusReporter_MACRO_UpdateDisplay(100u, nullptr),
                                      ZarnStatusReporter_MACRO_UpdateDisplay(),
                                      ZarnStatusReporter_MACRO_SetDLL_Resources(dialog),
                                      ZarnStatusReporter_MACRO_SetDLL_Resources(kDialogModule.c_str(), 0),
                                      static_cast<long long>(ZarnStatusReporter_MACRO_SetWaitingPeriod(0)),
                                      ZarnStatusReporter_MACRO_Disappear(),
                                      ZarnStatusReporter_MACRO_IsVisible()};
    };
    EXPECT_EQ(everyAnswer(), std::vector<long long>(12, 0)) << "no reporter: false, 0 or null";

    ZarnStatusReporter* reporter = createStatusWindow();
    ASSERT_NE(reporter, nullptr);
    reporter->setWaitingPeriod(1);
    EXPECT_EQ(everyAnswer(), (std::vector<long long>{1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0}));
    EXPECT_EQ(ZarnStatusReporter_MACRO_GetDialogWindowHandle(), reporter->getDialogWindowHandle());
    ZarnStatusReporter::destroy();
    FreeLibrary(dialog);
}

TEST_F(ZarnStatusReporterTest, AnAdoptedDialogStaysTheOwners)
{
    auto* owner = new QWidget();
    auto* label = new QLabel(owner);
    const QFont font = label->font();
    const HWND dialog = AdoptWindowW(owner);
    AdoptWindowW(label, kTextID);
    ZarnStatusReporter* reporter = ZarnStatusReporter::create(dialog, kTextID, ownerProcedure, kDialogModule.c_str(), 0);
    ASSERT_NE(reporter, nullptr) << status();
    EXPECT_TRUE(reporter->updateDisplay(L"adopted"));
    EXPECT_EQ(label->text(), QString("adopted"));
    ZarnStatusReporter::destroy();
    QPointer<QWidget> alive = owner;
    ASSERT_FALSE(alive.isNull()) << "destroy never destroys an adopted dialog";
    EXPECT_EQ(label->font(), font);
    delete owner;
}

TEST_F(ZarnStatusReporterTest, ModulesLoadedHereAreFreedAndOthersKept)
{
    ASSERT_EQ(GetModuleHandleW(kDialogModule.c_str()), nullptr);
    ASSERT_NE(createStatusWindow(), nullptr);
    ZarnStatusReporter::destroy();
    EXPECT_EQ(GetModuleHandleW(kDialogModule.c_str()), nullptr) << "a module loaded by the reporter is freed";

    const HMODULE held = LoadLibraryW(kDialogModule.c_str());
    ASSERT_NE(createStatusWindow(), nullptr);
    ZarnStatusReporter::destroy();
    EXPECT_EQ(GetModuleHandleW(kDialogModule.c_str()), held) << "a module found in memory stays";
    FreeLibrary(held);
}

TEST_F(ZarnStatusReporterTest, UpdatesWaitAndFlushTheDisplayServer)
{
    // Loaded for the rest of the process: the reporter keeps the flush entry once found.
    const HMODULE displayServer = LoadLibraryW(modulePath("libds.so").c_str());
    ASSERT_NE(displayServer, nullptr);
    const int* flushes = reinterpret_cast<const int*>(GetProcAddress(displayServer, "dsFlushCount"));
    ASSERT_NE(flushes, nullptr);
    ZarnStatusReporter* reporter = createStatusWindow();
    ASSERT_NE(reporter, nullptr);
    EXPECT_EQ(reporter->setWaitingPeriod(20), 0u);
    EXPECT_EQ(reporter->setWaitingPeriod(20), 20u);

    const int before = *flushes;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(reporter->updateDisplay(L"one"));
    EXPECT_TRUE(reporter->updateDisplay(L"two"));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(40));
    EXPECT_EQ(*flushes, before + 2);
}

TEST_F(ZarnStatusReporterConcurrency, AnUpdateFromAnotherThreadWaitsForTheEventLoop)
{
    ASSERT_NE(createStatusWindow(), nullptr);
    std::atomic<bool> done{false};
    bool updated = false;
    std::wstring readBack;
    std::thread worker([&] {
        updated = ZarnStatusReporter_MACRO_UpdateDisplay(L"from a worker");
        readBack = shownText();
        done = true;
    });
    while (!done)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    worker.join();
    EXPECT_TRUE(updated);
    EXPECT_EQ(readBack, L"from a worker");
    EXPECT_EQ(shownText(), L"from a worker");
}
