// Faults of the resources a monitor depends on: the log directory, the disk, the form file, the
// resource module and the proxy module. Each test provokes the fault for real and shows the code
// it gives, that the monitor goes on working once the fault is gone, and what the log kept.
#include "monitor/Zarn.h"
#include "monitor/ZarnData.h"
#include "platform/Modules.h"
#include "reliability/LogSeriesRig.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QString>
#include <QTemporaryDir>

#include <csignal>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr i64 kNonnative = 77;

using Texts = std::vector<std::string>;

// The log texts of a file's whole entries, in order.
Texts textsOf(const LogDocument& document)
{
    Texts texts;
    for (const LoggedEntry& entry : document.entries())
        texts.push_back(entry.description.toStdString());
    return texts;
}

HMODULE loadTestModule(const char* file)
{
    const std::string path = std::string(ZMU_TEST_MODULE_DIR "/") + file;
    return LoadLibraryW(std::wstring(path.begin(), path.end()).c_str());
}

// A data set that arrives with a proxy module already loaded, as a caller may hand one over.
struct ProxyPreset : ZarnData
{
    explicit ProxyPreset(i64 instantiatorID) : ZarnData(instantiatorID) {}
    void presetProxyModule(HMODULE module) { m_proxyModule = module; }
};

// A full disk for this process: no file may grow past `bytes`, and a write that would is refused
// (EFBIG) rather than killing the process. The old limit comes back at the end.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes) : m_handler(std::signal(SIGXFSZ, SIG_IGN))
    {
        getrlimit(RLIMIT_FSIZE, &m_previous);
        rlimit limit = m_previous;
        limit.rlim_cur = bytes;
        m_set = setrlimit(RLIMIT_FSIZE, &limit) == 0;
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &m_previous);
        std::signal(SIGXFSZ, m_handler);
    }
    bool isSet() const { return m_set; }

private:
    void (*m_handler)(int);
    rlimit m_previous = {};
    bool m_set = false;
};

class ResourceFaults : public testing::Test
{
protected:
    void SetUp() override
    {
        Zarn::destroy();
        ASSERT_TRUE(m_dir.isValid());
        m_specs = loadTestModule("libzmu_test_report_specs.so");
        ASSERT_NE(m_specs, nullptr);
    }
    void TearDown() override
    {
        Zarn::destroy();
        EXPECT_TRUE(FreeLibrary(m_specs));
    }

    QString path(const char* name) const { return m_dir.filePath(QLatin1String(name)); }

    // A monitor whose own resource module holds the test's specs; null, with the code that the
    // caller's data set was given in `code`, if it can't be made.
    Zarn* createMonitor(const QString& log, const QString& form = QString(), i64 instantiator = 0,
                        int* code = nullptr, HMODULE proxyModule = nullptr)
    {
        ProxyPreset dataSet(instantiator);
        dataSet.setCharSetExternal(2);
        dataSet.presetProxyModule(proxyModule);
        std::wstring logName = log.toStdWString();
        const std::wstring formName = form.toStdWString();
        EXPECT_TRUE(dataSet.recordLogFileNomenclature(&logName[0], form.isEmpty() ? nullptr : formName.c_str(),
                                                      Zarn_LOG_HTML));
        Zarn* const monitor = Zarn::create(&dataSet);
        if (code != nullptr)
            *code = dataSet.getSelfDX_Code();
        if (monitor != nullptr)
            monitor->setResourceModule(m_specs);
        return monitor;
    }

    // One situation with a log text only. Returns its code and forgets it, as a caller does to go
    // on: a held code would stop every later situation.
    static int report(Zarn* monitor, const char* text, HMODULE module = nullptr)
    {
        const std::wstring argument = QString::fromLatin1(text).toStdWString();
        monitor->respondToSituation(kLogTextSituation, module, argument.c_str());
        const int code = monitor->getSelfDX_Code();
        monitor->forgetSelfDX_Code();
        return code;
    }

    QTemporaryDir m_dir;
    HMODULE m_specs = nullptr;
};

// Directories where no file can be made: the first two for any user, the last only for one whom
// permissions bind.
enum class Unwritable { ThroughAFile, InProc, ReadOnlyMode };

class LogDirectoryFault : public ResourceFaults, public testing::WithParamInterface<Unwritable>
{
};

// The first file can't be opened: no monitor, and the caller's data set holds 45. At a rollover
// into such a directory the old file stays whole and the situation gives 230; the next entry
// finds no stream (120), until the file is replaced in a usable directory.
TEST_P(LogDirectoryFault, RefusesTheFileKeepsTheOldOneAndRecoversOnReplacement)
{
    QString bad = path("bad");
    if (GetParam() == Unwritable::ThroughAFile) {
        QFile plain(bad);
        ASSERT_TRUE(plain.open(QIODevice::WriteOnly));
    } else if (GetParam() == Unwritable::InProc) {
        bad = QStringLiteral("/proc/zmu-no-such-directory");
    } else {
        if (geteuid() == 0)
            GTEST_SKIP() << "permissions do not bind root";
        ASSERT_TRUE(QDir().mkdir(bad));
        ASSERT_TRUE(QFile::setPermissions(bad, QFileDevice::ReadOwner | QFileDevice::ExeOwner));
    }
    int code = 0;
    TraceCapture capture;
    EXPECT_EQ(createMonitor(bad + QStringLiteral("/first.html"), QString(), 0, &code), nullptr);
    EXPECT_EQ(code, 45);
    EXPECT_TRUE(capture.contains(L"ZarnData::establishLogFile (true) caught exception #45."));

    const QString first = path("first.html");
    Zarn* const monitor = createMonitor(first);
    ASSERT_NE(monitor, nullptr);
    ASSERT_EQ(report(monitor, "one"), 0);
    {
        const LogDirectoryScope successorsThere(bad);
        unsigned long long previous = 0;
        ASSERT_TRUE(monitor->setLogFileByteCountLimit(kSmallestByteCountLimit, previous));
        // The file is taken to its limit by its count, as a long day's entries would take it.
        dataSetOf(monitor)->getFileLog()->m_logByteCount = kSmallestByteCountLimit;
        EXPECT_EQ(report(monitor, "two"), 230);
        EXPECT_EQ(report(monitor, "three"), 120);
    }
    const LogDocument old = LogDocument::read(first);
    EXPECT_TRUE(old.isWhole()) << old.problem().toStdString();
    EXPECT_EQ(textsOf(old), (Texts{"Kind one one", "Kind one two"}));

    const LogDirectoryScope successorsHere(m_dir.path());
    ASSERT_TRUE(monitor->reestablishLogFile(false)) << monitor->getSelfDX_Code();
    ASSERT_EQ(report(monitor, "four"), 0);
    wchar_t name[MAX_PATH] = {};
    ASSERT_TRUE(monitor->getFileLogName(name, MAX_PATH));
    const LogDocument next = LogDocument::read(QString::fromWCharArray(name));
    EXPECT_TRUE(next.isWhole()) << next.problem().toStdString();
    ASSERT_EQ(next.entries().size(), 2u);
    EXPECT_EQ(next.entries()[0].situationID, kSeriesNoteSituation) << "a successor tells its place in the series first";
    EXPECT_EQ(textsOf(next)[1], "Kind one four");
}

std::string unwritableName(const testing::TestParamInfo<Unwritable>& info)
{
    static const char* const names[] = {"ThroughAFile", "InProc", "ReadOnlyMode"};
    return names[static_cast<int>(info.param)];
}

INSTANTIATE_TEST_SUITE_P(ResourceFaults, LogDirectoryFault,
                         testing::Values(Unwritable::ThroughAFile, Unwritable::InProc, Unwritable::ReadOnlyMode),
                         unwritableName);

// The entry that meets the full disk is cut short. Its write isn't examined, so it reports 0, and
// its rest waits in the file's buffer. The next entry can't seek past that rest (156) and is lost.
// Once there is room the rest goes out where it stopped, and the file is whole again.
TEST_F(ResourceFaults, FullDiskLosesOnlyTheEntryItRefused)
{
    const QString log = path("full.html");
    Zarn* const monitor = createMonitor(log);
    ASSERT_NE(monitor, nullptr);
    ASSERT_EQ(report(monitor, "one"), 0);
    ASSERT_EQ(report(monitor, "two"), 0);
    int cut = -1;
    int refused = -1;
    QByteArray during;
    {
        // Room for a part of the next entry only. Nothing in here may print: stdout may be a file.
        const FileSizeLimit full(static_cast<rlim_t>(QFile(log).size() + 40));
        ASSERT_TRUE(full.isSet());
        cut = report(monitor, "three");
        QFile file(log);
        during = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
        refused = report(monitor, "four");
    }
    EXPECT_EQ(cut, 0);
    EXPECT_EQ(refused, 156);
    EXPECT_EQ(textsOf(LogDocument::parse(during)), (Texts{"Kind one one", "Kind one two"}));

    ASSERT_EQ(report(monitor, "five"), 0);
    const LogDocument after = LogDocument::read(log);
    EXPECT_TRUE(after.isWhole()) << after.problem().toStdString();
    EXPECT_EQ(textsOf(after), (Texts{"Kind one one", "Kind one two", "Kind one three", "Kind one five"}));
}

// A form file that can't be read or cut into its sections is dismissed with a trace of why, and
// the built-in form serves: the whole documents read here are of that form.
TEST_F(ResourceFaults, UnreadableFormGivesWayToTheBuiltInForm)
{
    enum class Make { Text, Nothing, Directory, LinkToItself };
    struct Row
    {
        const char* name;
        Make make;
        const char* text;
        int dismissed;
    };
    const Row rows[] = {
        {"no file", Make::Nothing, nullptr, 45},
        {"a directory in its place", Make::Directory, nullptr, 45},
        {"a link to itself", Make::LinkToItself, nullptr, 45},
        {"no markers", Make::Text, "<html>[SITUATION_DSCRP]</html>\n", 101},
        {"a second head", Make::Text, "^HEAD\n<html>\n^HEAD\n<body>\n^BODY\n[SITUATION_DSCRP]\n^TAIL\n</html>\n", 107},
        {"a body without the description", Make::Text, "^HEAD\n<html>\n^BODY\n[SITUATION_ID]\n^TAIL\n</html>\n", 146},
        {"no tail", Make::Text, "^HEAD\n<html><body>\n^BODY\n<p>[SITUATION_DSCRP]</p>\n", 197},
    };
    ASSERT_TRUE(QDir(m_dir.path()).mkdir(QStringLiteral("Templates")));
    int number = 0;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const QString form = m_dir.filePath(QStringLiteral("Templates/form%1.html").arg(++number));
        if (row.make == Make::Text) {
            QFile file(form);
            ASSERT_TRUE(file.open(QIODevice::WriteOnly));
            file.write(row.text);
        } else if (row.make == Make::Directory) {
            ASSERT_TRUE(QDir().mkdir(form));
        } else if (row.make == Make::LinkToItself) {
            ASSERT_EQ(symlink(form.toLocal8Bit().constData(), form.toLocal8Bit().constData()), 0);
        }
        const QString log = m_dir.filePath(QStringLiteral("form%1.html").arg(number));
        TraceCapture capture;
        Zarn* const monitor = createMonitor(log, form);
        ASSERT_NE(monitor, nullptr);
        EXPECT_TRUE(capture.contains(L"ZarnData::processFileLogForm (7) is dismissing exception #"
                                     + std::to_wstring(row.dismissed) + L"."));
        EXPECT_EQ(report(monitor, "one"), 0);
        EXPECT_EQ(report(monitor, "two"), 0);
        const LogDocument document = LogDocument::read(log);
        EXPECT_TRUE(document.isWhole()) << document.problem().toStdString();
        EXPECT_EQ(textsOf(document), (Texts{"Kind one one", "Kind one two"}));
        Zarn::destroy();
    }
}

// A module that can't serve the spec costs its situation 255 and nothing else: the monitor's own
// module is back for the next situation, and the log holds every situation that had a spec.
TEST_F(ResourceFaults, MissingResourceModuleFailsOnlyItsSituation)
{
    const HMODULE plain = loadTestModule("libzmu_test_plain.so");
    ASSERT_NE(plain, nullptr);
    struct Row
    {
        const char* name;
        HMODULE module;
        int code;
    };
    const Row rows[] = {
        // Null: the monitor's own module serves, as for a caller that names none.
        {"a module that could not be loaded", LoadLibraryW(L"zmu-no-such-module.dll"), 0},
        {"a module without strings", plain, 255},
        {"the process image, which has none", GetModuleHandleW(nullptr), 255},
    };
    const QString log = path("modules.html");
    Zarn* const monitor = createMonitor(log);
    ASSERT_NE(monitor, nullptr);
    Texts logged;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(report(monitor, row.name, row.module), row.code);
        if (row.code == 0)
            logged.push_back(std::string("Kind one ") + row.name);
        EXPECT_EQ(report(monitor, "after"), 0);
        logged.push_back("Kind one after");
    }
    const LogDocument document = LogDocument::read(log);
    EXPECT_TRUE(document.isWhole()) << document.problem().toStdString();
    EXPECT_EQ(textsOf(document), logged);
    Zarn::destroy();
    EXPECT_TRUE(FreeLibrary(plain));
}

// Without its proxy a nonnative monitor isn't made: 2 if the module is missing, 1 if it lacks the
// entry. A proxy that refuses a description costs that situation 228; the next one reaches it.
TEST_F(ResourceFaults, FailingProxyCostsOnlyTheSituationItRefused)
{
    int code = 0;
    if (GetModuleHandleW(L"cs4s3.dll") == nullptr) {
        EXPECT_EQ(createMonitor(path("none.html"), QString(), kNonnative, &code), nullptr);
        EXPECT_EQ(code, 2);
    }
    // The data set takes the module over and frees it with itself.
    const HMODULE plain = loadTestModule("libzmu_test_plain.so");
    ASSERT_NE(plain, nullptr);
    EXPECT_EQ(createMonitor(path("entry.html"), QString(), kNonnative, &code, plain), nullptr);
    EXPECT_EQ(code, 1);

    const HMODULE proxy = loadTestModule("libcs4s3.so");
    ASSERT_NE(proxy, nullptr);
    auto* const reset = reinterpret_cast<void (*)()>(GetProcAddress(proxy, "zmuProxyReset"));
    auto* const calls = reinterpret_cast<int*>(GetProcAddress(proxy, "zmuProxyCallCount"));
    auto* const refuses = reinterpret_cast<int*>(GetProcAddress(proxy, "zmuProxyRefuses"));
    auto* const description = reinterpret_cast<const wchar_t*>(GetProcAddress(proxy, "zmuProxyLastDescription"));
    ASSERT_TRUE(reset && calls && refuses && description);
    reset();
    Zarn* const monitor = createMonitor(path("proxy.html"), QString(), kNonnative, &code);
    ASSERT_NE(monitor, nullptr) << code;
    EXPECT_EQ(report(monitor, "one"), 0);
    *refuses = 1;
    EXPECT_EQ(report(monitor, "two"), 228);
    *refuses = 0;
    EXPECT_EQ(report(monitor, "three"), 0);
    EXPECT_EQ(*calls, 3);
    EXPECT_STREQ(description, L"Kind one three");
    reset();
    Zarn::destroy();
    EXPECT_TRUE(FreeLibrary(proxy));
}

} // namespace
