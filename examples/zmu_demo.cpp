// zmu_demo: the pump station controller, a module of the Farrowlink product, as a standalone owner
// of a monitor. It builds its monitor through ZarnDataZGW with the example log form, reports
// situations of every kind from its own string table (demo_strings.rc), from two threads as well,
// writes a milestone to the system journal, shows the status window when there is a screen, fills
// a log file up to the smallest byte limit so that it rolls over, and lists the log files it wrote.
//
//     zmu_demo [DIRECTORY] [--status]
//
// Everything it writes lies under DIRECTORY (default ./zmu-demo-logs): the logs, the log form, the
// settings store, the brand file, the trace and the temporary files. --status shows the status
// window even without a screen (drawn offscreen).
#include "foundation/IntegerWidths.h"
#include "monitor/Zarn.h"
#include "monitor/ZarnData.h"
#include "notify/ZarnStatusReporter.h"
#include "notify/zgEL_Reporter.h"
#include "owner/ZarnDataZGW.h"
#include "platform/LastError.h"
#include "platform/Modules.h"
#include "platform/QtWindows.h"
#include "platform/Registry.h"

#include <QApplication>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QLabel>
#include <QString>
#include <QVBoxLayout>
#include <QWidget>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// Fontconfig keeps its caches to the end of the process, and LeakSanitizer would report them.
extern "C" __attribute__((visibility("default"), used)) const char* __lsan_default_suppressions()
{
    return "leak:libfontconfig.so\n";
}

namespace {

// The application lives to the end of the process: Qt's offscreen platform leaks its screen when
// the application is deleted.
QCoreApplication* g_application = nullptr;

// An owner that the library's table of owners does not single out: its log file name holds no
// user name, and its module and product name are brand text 16.
constexpr long long kOwnerPumpStation = 0x80400000;

// The situations of demo_strings.rc.
constexpr int kPumpStarted = 3001;
constexpr int kTankLow = 3002;
constexpr int kValveRetried = 3003;
constexpr int kFlowMeterSilent = 3004;
constexpr int kPressureAlarm = 3005;
constexpr int kPumpRunningWide = 3006;
constexpr int kVibrationDetail = 3007;
constexpr int kLoopCycle = 3008;
constexpr int kPressureHistory = 3009;
constexpr int kStatusText = 3010;
constexpr int kControllerBegan = 3325;

// Affix N of a spec is string kAffixID_Min + N.
constexpr int kAffixID_Min = 3900;
constexpr int kAffixIDsQty = 2;

// Plug-in rows, as the specs name them.
constexpr int kPlugInObserver = 0;
constexpr int kPlugInJournal = 1;
constexpr int kPlugInStatus = 2;
constexpr int kPlugInsQty = 3;

constexpr unsigned long long kSmallestLogLimit = 1048576;
constexpr unsigned int kLogMaxFileSize = 20971520; // in bytes, as the data set takes it

// The product's key in the settings store, and the owner's value there.
constexpr wchar_t kProductKey[] = L"SOFTWARE\\Quorvane\\Farrowlink\\AppServer";
constexpr wchar_t kAssertivenessValue[] = L"ZM_Assertiveness";
constexpr int kTextCharacters = 1024;
constexpr int kStatusTextID = 1001;

// A step that failed: what it was, and the code that says why ("DX code 255", "last error 2").
struct DemoFailure
{
    std::string step;
    std::string code;
};

DemoFailure dxFailure(const std::string& step, int code)
{
    return {step, "DX code " + std::to_string(code)};
}

DemoFailure systemFailure(const std::string& step)
{
    return {step, "last error " + std::to_string(GetLastError())};
}

std::mutex g_outputLock;

// One line of output; threads and the library's callbacks print through here.
void say(const char* format, ...)
{
    std::lock_guard<std::mutex> guard(g_outputLock);
    va_list args;
    va_start(args, format);
    std::vprintf(format, args);
    va_end(args);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

void heading(const char* title)
{
    say("\n== %s ==", title);
}

// Wide text as UTF-8, whatever the C locale of the process.
std::string utf8(const wchar_t* text)
{
    return text != nullptr ? QString::fromWCharArray(text).toStdString() : std::string("(null)");
}

std::string utf8(const QString& text)
{
    return text.toStdString();
}

// The library keeps a monitor's data set to the monitor and its subclasses. ZarnDataZGW makes no
// plug-ins and no affixes, so the owner reaches the data set the way a subclass would.
struct MonitorAccess : Zarn
{
    static ZarnData* dataSetOf(const Zarn* monitor) { return (monitor->*(&MonitorAccess::getDataSet))(); }
};

// ---- What the library calls back ----------------------------------------------------------------

// The display function: prints what a dialog would show and answers at once, as IDOK would.
int showOnConsole(HWND, const wchar_t* text, const wchar_t* caption, unsigned int type)
{
    std::string shown = utf8(text);
    shown.erase(std::remove(shown.begin(), shown.end(), '\r'), shown.end());
    for (size_t at = shown.find('\n'); at != std::string::npos; at = shown.find('\n', at + 1))
        shown.insert(at + 1, "             ");
    say("  display  [%s, style %u] %s", utf8(caption).c_str(), type, shown.c_str());
    return 1;
}

// Plug-in 0: prints what it reads of the situation through its monitor. Its situation has an
// unsigned filler and a string filler.
bool observeSituation(const Zarn* monitor)
{
    const u64* fillers = monitor->getDescriptionFillers();
    wchar_t logText[kTextCharacters];
    monitor->getDescriptionForLogFile(logText, kTextCharacters);
    say("  plug-in  read situation %d: fillers %llu and \"%s\", dialog answer %d, log text \"%s\"",
        monitor->getSituationID(), static_cast<unsigned long long>(fillers[0]),
        utf8(reinterpret_cast<const wchar_t*>(fillers[1])).c_str(), monitor->getDisplayDlgBoxResult(),
        utf8(logText).c_str());
    return true;
}

// What plug-in 1 got from the event reporter.
struct JournalResult
{
    bool ran = false;
    bool written = false;
    unsigned long error = 0;
};
JournalResult g_journal;

// Plug-in 1: the situation in hand goes to the system journal as a milestone. A journal that
// refuses it costs the situation nothing.
bool writeMilestone(const Zarn* monitor)
{
    g_journal.ran = true;
    g_journal.written = zgEL_Reporter::write(monitor);
    const zgEL_Reporter* reporter = zgEL_Reporter::getLoneInstance();
    g_journal.error = reporter != nullptr ? reporter->getError() : GetLastError();
    return true;
}

// Plug-in 2: the status window shows the situation's log text.
bool showStatus(const Zarn* monitor)
{
    return ZarnStatusReporter::updateDisplay(monitor);
}

// ---- Helpers of the steps -------------------------------------------------------------------

// A situation that failed ends the demo with its code.
void checkSituation(const Zarn* monitor, int situationID)
{
    const int code = monitor->getSelfDX_Code();
    if (code != 0)
        throw dxFailure("situation " + std::to_string(situationID), code);
}

std::wstring logFileNameOf(const Zarn* monitor)
{
    wchar_t name[kTextCharacters];
    if (!monitor->getFileLogName(name, kTextCharacters))
        throw dxFailure("reading the log file name", monitor->getSelfDX_Code());
    return name;
}

// The traits of one of the owner's own specs: the second group of its header.
u64 learnSpecTraits(HMODULE module, int situationID)
{
    wchar_t spec[kTextCharacters] = {};
    if (LoadStringW(module, static_cast<UINT>(situationID), spec, kTextCharacters) < 1)
        throw systemFailure("loading spec " + std::to_string(situationID));
    const wchar_t* traits = std::wcschr(spec, L'~');
    return traits != nullptr ? std::wcstoull(traits + 1, nullptr, 10) : 0;
}

// The assertiveness level as the settings store holds it.
std::string storedAssertiveness()
{
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kProductKey, 0, KEY_READ, &key) != 0)
        return "(no key)";
    DWORD type = 0;
    DWORD value = 0;
    DWORD size = sizeof(value);
    const LONG result =
        RegQueryValueExW(key, kAssertivenessValue, nullptr, &type, reinterpret_cast<BYTE*>(&value), &size);
    RegCloseKey(key);
    if (result != 0 || type != REG_DWORD)
        return "(none)";
    return std::to_string(value);
}

// Sets a variable that the library reads, unless the user has set it already.
void pointUnlessSet(const char* name, const QString& value)
{
    if (!qEnvironmentVariableIsSet(name))
        qputenv(name, value.toUtf8());
    say("%-18s %s", name, qgetenv(name).constData());
}

// The first file that exists: beside the program, else where the build found it.
QString locateBuiltFile(const QString& besideProgram, const char* fromBuild)
{
    const QString beside = QCoreApplication::applicationDirPath() + QLatin1Char('/') + besideProgram;
    return QFileInfo::exists(beside) ? beside : QString::fromUtf8(fromBuild);
}

void processEventsFor(int milliseconds)
{
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < milliseconds)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
}

// How many lines the library traced, if its trace goes to a file: the file is made at the first line.
std::string traceSummary()
{
    const QString target = qEnvironmentVariable("ZMU_TRACE");
    if (target.isEmpty() || target == QStringLiteral("stderr"))
        return "the library's trace lines went to " + utf8(target.isEmpty() ? QStringLiteral("syslog") : target);
    QFile trace(target);
    const int lines = trace.open(QIODevice::ReadOnly) ? static_cast<int>(trace.readAll().count('\n')) : 0;
    return "the library traced " + std::to_string(lines) + " lines (" + utf8(target) + ")";
}

// The offscreen platform says of each window call it leaves out that it does; nothing else of Qt's
// is held back.
QtMessageHandler g_qtMessageHandler = nullptr;

void passQtMessage(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    if (type == QtWarningMsg && message.startsWith(QStringLiteral("This plugin does not support")))
        return;
    g_qtMessageHandler(type, context, message);
}

INT_PTR statusWindowProcedure(HWND, UINT, WPARAM, LPARAM)
{
    return 0;
}

// ---- The steps --------------------------------------------------------------------------------

struct Demo
{
    QString directory; // with a trailing "/"
    QString stringsModulePath;
    HMODULE strings = nullptr;
    ZarnDataZGW* owner = nullptr;
    Zarn* monitor = nullptr;
    ZarnData* dataSet = nullptr;
    std::vector<std::wstring> logFiles;
    bool statusWindow = false;

    ~Demo()
    {
        ZarnStatusReporter::destroy();
        zgEL_Reporter::destroy();
        ZarnDataZGW::destroyZarnMonitor(monitor);
        delete owner;
        if (strings != nullptr)
            FreeLibrary(strings);
    }

    void noteLogFile()
    {
        const std::wstring name = logFileNameOf(monitor);
        if (logFiles.empty() || logFiles.back() != name)
            logFiles.push_back(name);
    }

    void prepareOwner()
    {
        heading("Owner: pump station controller");
        stringsModulePath = locateBuiltFile(QStringLiteral(ZMU_DEMO_STRINGS_FILE), ZMU_DEMO_STRINGS_MODULE);
        strings = LoadLibraryW(stringsModulePath.toStdWString().c_str());
        if (strings == nullptr)
            throw systemFailure("loading the string module " + utf8(stringsModulePath));
        say("string module      %s", utf8(stringsModulePath).c_str());

        // The form is looked up in "Templates/" of the log directory.
        const QString form = locateBuiltFile(QStringLiteral("forms/bpw_template.html"), ZMU_DEMO_FORM);
        const QString formCopy = directory + QStringLiteral("Templates/bpw_template.html");
        QDir().mkpath(directory + QStringLiteral("Templates"));
        QFile::remove(formCopy);
        QFile formFile(form);
        if (!formFile.copy(formCopy))
            throw DemoFailure{"copying the log form " + utf8(form), utf8(formFile.errorString())};
        say("log form           %s", utf8(formCopy).c_str());

        // The product's settings: log output level 1 and a file size limit of 20 MiB. Its installer
        // makes the key of the assertiveness level; the owner writes a missing value as 0.
        ZarnData::setLogVariables(directory.toStdWString().c_str(), 1, true, kLogMaxFileSize, 7);
        HKEY key = nullptr;
        if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, kProductKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr)
            == 0)
            RegCloseKey(key);
        // The class's two status codes tell a failure: its own, and the system's or the data set's.
        const auto ownerCodes = [] {
            return "ZGW" + std::to_string(ZarnDataZGW::getDX_Code1()) + "/"
                   + std::to_string(ZarnDataZGW::getDX_Code2());
        };
        try {
            owner = new ZarnDataZGW(kOwnerPumpStation, true, nullptr, strings, Zarn_LOG_HTML);
        } catch (int) {
            throw DemoFailure{"building the owner's data set", ownerCodes()};
        }
        monitor = owner->createZarnMonitor();
        if (monitor == nullptr)
            throw DemoFailure{"creating the monitor", ownerCodes()};
        dataSet = MonitorAccess::dataSetOf(monitor);

        monitor->setDisplayDlgBoxFunction(&showOnConsole);
        monitor->setBehaviorCriteria(ZarnDataZGW::obtainBehaviorCriteria());
        ZarnPlugIn* plugIns = dataSet->createPlugIns(kPlugInsQty);
        if (plugIns == nullptr)
            throw dxFailure("making the plug-in table", dataSet->getSelfDX_Code());
        plugIns[kPlugInObserver] = &observeSituation;
        plugIns[kPlugInJournal] = &writeMilestone;
        plugIns[kPlugInStatus] = &showStatus;
        if (!dataSet->setDescriptionAffixID_Min(kAffixID_Min) || !dataSet->setDescriptionAffixIDsQty(kAffixIDsQty))
            throw dxFailure("setting the affixes", dataSet->getSelfDX_Code());
        // This thread's engine was born with the monitor, when there were no plug-ins yet, and has
        // no room for their numbers: its next situation makes it anew.
        if (!monitor->removeThread())
            throw dxFailure("renewing this thread's engine", monitor->getSelfDX_Code());

        noteLogFile();
        say("monitor            criteria 0x%016llX, log limit %llu bytes, situation mode %d",
            static_cast<unsigned long long>(monitor->getBehaviorCriteria()),
            static_cast<unsigned long long>(dataSet->getLogFileByteCountLimit()), monitor->getSituationMode());
        say("settings store     %s = %s", utf8(kAssertivenessValue).c_str(), storedAssertiveness().c_str());
        say("log file           %s", utf8(logFiles.back().c_str()).c_str());
        say("plug-ins           %d rows; affixes from string %d", dataSet->getPlugInsQty(), kAffixID_Min);
    }

    void reportSituations()
    {
        heading("Situations from the string table");
        say("cursor arguments (d, u, s), dialog style 64:");
        monitor->respondToSituation(kPumpStarted, nullptr, -12, 1450u, L"P-101");
        checkSituation(monitor, kPumpStarted);

        say("recorded arguments, by slot:");
        monitor->recordSituationID(kTankLow);
        monitor->recordArgument(L"T-2", 0);
        monitor->recordArgument(18u, 0);
        monitor->recordArgument(45u, 1);
        monitor->respondToSituation();
        checkSituation(monitor, kTankLow);

        say("the dupe form & shows the log text:");
        monitor->respondToSituation(kValveRetried, nullptr, L"V-7");
        checkSituation(monitor, kValveRetried);

        say("prefix and suffix affixes:");
        monitor->respondToSituation(kFlowMeterSilent, nullptr, 30u);
        checkSituation(monitor, kFlowMeterSilent);

        say("a plug-in, arguments from a vector of 8-byte slots:");
        u64 argumentSlots[] = {612, reinterpret_cast<u64>(L"discharge line")};
        char* cursor = reinterpret_cast<char*>(argumentSlots);
        monitor->respondToSituation(kPressureAlarm, &cursor, nullptr);
        checkSituation(monitor, kPressureAlarm);
        say("  the caller's cursor moved by %d slots",
            static_cast<int>((cursor - reinterpret_cast<char*>(argumentSlots)) / sizeof(u64)));

        say("wide strings:");
        monitor->respondToSituation(kPumpRunningWide, nullptr, L"Süd-Ost");
        checkSituation(monitor, kPumpRunningWide);
    }

    void reportFromThreads()
    {
        heading("Two threads");
        constexpr int kCycles = 4;
        struct Loop
        {
            const wchar_t* name;
            int failures = 0;
            int firstCode = 0;
        };
        Loop loops[] = {{L"suction"}, {L"discharge"}};
        std::vector<std::thread> threads;
        for (Loop& loop : loops) {
            threads.emplace_back([this, &loop] {
                for (unsigned int cycle = 1; cycle <= kCycles; ++cycle) {
                    monitor->respondToSituation(kLoopCycle, nullptr, loop.name, cycle);
                    if (const int code = monitor->getSelfDX_Code(); code != 0 && ++loop.failures == 1)
                        loop.firstCode = code;
                }
                // The thread leaves: its engine goes with it.
                monitor->removeThread();
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        for (const Loop& loop : loops) {
            if (loop.failures != 0)
                throw dxFailure("the " + utf8(loop.name) + " loop's situations", loop.firstCode);
            say("loop %-13s situation %d, %d times from its own thread", utf8(loop.name).c_str(), kLoopCycle, kCycles);
        }
    }

    void showTraitLevels()
    {
        heading("Trait levels");
        const u64 criteria = monitor->getBehaviorCriteria();
        say("behaviour criteria 0x%016llX: log output level %lu, levels up to 15 in the fields of enablements 1 and 2",
            static_cast<unsigned long long>(criteria), ZarnDataZGW::obtainLogFileOutputLevel());
        for (const int situationID : {kPumpStarted, kVibrationDetail}) {
            const u64 traits = learnSpecTraits(strings, situationID);
            const bool approved = dataSet->approveSituationResponseTraits(traits);
            say("situation %d     traits 0x%016llX: %s", situationID, static_cast<unsigned long long>(traits),
                approved ? "approved" : "above the criteria");
            if (approved)
                continue;
            // A monitor that writes its own log takes every situation it is given; the level is
            // the reporting module's test, made with the monitor's own assessor.
            say("  not reported, so neither logged nor shown");
        }
    }

    void writeMilestoneToJournal()
    {
        heading("Event reporter");
        if (zgEL_Reporter::create(L"zmu-demo", nullptr, 0) == nullptr)
            throw systemFailure("registering the event source");
        monitor->respondToSituation(kControllerBegan, nullptr, L"pump station controller");
        checkSituation(monitor, kControllerBegan);
        if (!g_journal.ran)
            throw DemoFailure{"situation " + std::to_string(kControllerBegan), "its plug-in did not run"};
        if (g_journal.written)
            say("milestone %d     written to the system journal (source zmu-demo)", kControllerBegan);
        else
            say("milestone %d     not written, error %lu%s; the situation is logged all the same", kControllerBegan,
                g_journal.error, g_journal.error == 1062 ? " (no journal here)" : "");
        zgEL_Reporter::destroy();
    }

    void showStatusWindow()
    {
        heading("Status window");
        if (!statusWindow) {
            say("skipped: no screen (DISPLAY, WAYLAND_DISPLAY) and no --status");
            return;
        }
        say("platform           %s", utf8(QApplication::platformName()).c_str());
        auto* window = new QWidget(nullptr, Qt::Tool);
        window->setWindowTitle(QStringLiteral("Farrowlink"));
        auto* text = new QLabel(window);
        text->setMinimumWidth(420);
        (new QVBoxLayout(window))->addWidget(text);
        const HWND handle = AdoptWindowW(window);
        AdoptWindowW(text, kStatusTextID);
        ZarnStatusReporter* status = ZarnStatusReporter::create(handle, kStatusTextID, &statusWindowProcedure,
                                                                stringsModulePath.toStdWString().c_str(), 0);
        if (status == nullptr) {
            delete window;
            throw DemoFailure{"making the status window", "status " + std::to_string(ZarnStatusReporter::getDX_Code1())
                                                              + "/WLE"
                                                              + std::to_string(ZarnStatusReporter::getDX_Code2())};
        }
        status->appear();
        ZarnStatusReporter::centerWindow(handle, HWND_TOP);
        status->updateDisplay(L"Pump station controller: starting the pumps");
        say("shown              \"%s\"", utf8(text->text()).c_str());
        processEventsFor(800);

        monitor->respondToSituation(kStatusText, nullptr, L"tank T-2 refilled");
        checkSituation(monitor, kStatusText);
        say("shown by plug-in   \"%s\"", utf8(text->text()).c_str());
        processEventsFor(800);

        ZarnStatusReporter::destroy();
        delete window; // an adopted window stays its owner's
    }

    void rollOver()
    {
        heading("Rollover");
        unsigned long long previous = 0;
        if (!monitor->setLogFileByteCountLimit(kSmallestLogLimit, previous))
            throw dxFailure("setting the log file's byte limit", monitor->getSelfDX_Code());
        say("byte limit         %llu (was %llu)", kSmallestLogLimit, previous);
        const std::wstring first = logFiles.back();
        constexpr unsigned int kMostSituations = 20000;
        unsigned int sample = 1;
        for (; sample <= kMostSituations && logFileNameOf(monitor) == first; ++sample) {
            monitor->respondToSituation(kPressureHistory, nullptr, sample);
            checkSituation(monitor, kPressureHistory);
        }
        noteLogFile();
        if (logFiles.back() == first)
            throw DemoFailure{"rolling the log file over",
                              "still one file after " + std::to_string(kMostSituations) + " situations"};
        say("rolled over after  %u situations %d", sample - 1, kPressureHistory);
        say("new log file       %s", utf8(logFiles.back().c_str()).c_str());
        say("its first entry is situation 10006, which names the series' first file");
        monitor->respondToSituation(kPressureHistory, nullptr, sample);
        checkSituation(monitor, kPressureHistory);
    }

    void listLogFiles()
    {
        // Closing the monitor finishes its file.
        if (!ZarnDataZGW::destroyZarnMonitor(monitor))
            throw dxFailure("destroying the monitor", monitor->getSelfDX_Code());
        dataSet = nullptr;
        heading("Log files written");
        for (const std::wstring& name : logFiles) {
            const QFileInfo file(QString::fromStdWString(name));
            say("%s  %lld bytes", utf8(file.absoluteFilePath()).c_str(), static_cast<long long>(file.size()));
        }
    }
};

} // namespace

int main(int argc, char** argv)
{
    // Arguments before Qt sees them: the application is a QApplication only for the status window.
    std::string directoryArgument = "zmu-demo-logs";
    bool statusAsked = false;
    for (int index = 1; index < argc; ++index) {
        const std::string argument = argv[index];
        if (argument == "--help" || argument == "-h") {
            std::printf("usage: %s [DIRECTORY] [--status]\n"
                        "Runs the pump station controller against the zmu library; writes only under DIRECTORY\n"
                        "(default ./zmu-demo-logs). --status shows the status window even without a screen.\n",
                        argv[0]);
            return 0;
        }
        if (argument == "--status")
            statusAsked = true;
        else if (argument.rfind("--", 0) == 0) {
            std::fprintf(stderr, "zmu_demo: unknown option %s (try --help)\n", argument.c_str());
            return 2;
        } else
            directoryArgument = argument;
    }
    const bool hasScreen = !qEnvironmentVariableIsEmpty("DISPLAY") || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
    const bool statusWindow = hasScreen || statusAsked;

    // Everything the library would read from or write to system places goes under the directory,
    // and is set before the first call into the library.
    const QString directory = QDir(QString::fromStdString(directoryArgument)).absolutePath() + QLatin1Char('/');
    if (!QDir().mkpath(directory) || !QDir().mkpath(directory + QStringLiteral("registry"))
        || !QDir().mkpath(directory + QStringLiteral("tmp"))) {
        std::fprintf(stderr, "zmu_demo: cannot make the directory %s\n", directory.toUtf8().constData());
        return 1;
    }
    std::printf("zmu demo: a pump station controller, writing under %s\n", directory.toUtf8().constData());
    heading("Settings");
    pointUnlessSet("ZMU_REGISTRY_ROOT", directory + QStringLiteral("registry"));
    if (!qEnvironmentVariableIsSet("ZMU_BRAND_FILE")) {
        // Brand text 16 names the product and, for this owner, the module.
        QFile brand(directory + QStringLiteral("farrowlink.brand"));
        if (brand.open(QIODevice::WriteOnly | QIODevice::Truncate))
            brand.write("# Brand texts of the demo, one id=text a line.\n16=Farrowlink Pump Station Controller\n");
    }
    pointUnlessSet("ZMU_BRAND_FILE", directory + QStringLiteral("farrowlink.brand"));
    pointUnlessSet("ZMU_TRACE", directory + QStringLiteral("trace.log"));
    // The log form's system reports are written to temporary files first.
    pointUnlessSet("TMPDIR", directory + QStringLiteral("tmp"));
    if (statusWindow) {
        // A screen that cannot be reached falls back to drawing offscreen.
        if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
            qputenv("QT_QPA_PLATFORM", !hasScreen                                   ? "offscreen"
                                       : !qEnvironmentVariableIsEmpty("DISPLAY") ? "xcb;offscreen"
                                                                                 : "wayland;offscreen");
        // Qt's runtime files and the font cache would go to the user's folders.
        const QString runtime = directory + QStringLiteral("tmp/runtime");
        QDir().mkpath(runtime);
        QFile::setPermissions(runtime, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        pointUnlessSet("XDG_RUNTIME_DIR", runtime);
        pointUnlessSet("XDG_CACHE_HOME", directory + QStringLiteral("cache"));
        g_qtMessageHandler = qInstallMessageHandler(&passQtMessage);
    }

    // The library takes the program's name and folder from the application.
    if (statusWindow)
        g_application = new QApplication(argc, argv);
    else
        g_application = new QCoreApplication(argc, argv);
    Demo demo;
    demo.directory = directory;
    demo.statusWindow = statusWindow;

    try {
        demo.prepareOwner();
        demo.reportSituations();
        demo.reportFromThreads();
        demo.showTraitLevels();
        demo.writeMilestoneToJournal();
        demo.showStatusWindow();
        demo.rollOver();
        demo.listLogFiles();
    } catch (const DemoFailure& failure) {
        std::fprintf(stderr, "zmu_demo: %s failed (%s)\n", failure.step.c_str(), failure.code.c_str());
        return 1;
    }
    say("\n%s", traceSummary().c_str());
    return 0;
}
