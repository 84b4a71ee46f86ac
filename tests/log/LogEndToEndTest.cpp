// The HTML log end to end: monitors made with Zarn::create report situations with the specs of a
// test resource module, and the tests read the log files back as a reader of the log would.
#include "InjectorRig.h"

#include "monitor/Zarn.h"
#include "monitor/ZarnData.h"
#include "platform/Modules.h"
#include "sysinfo/ZarnSysInfoEnvApp.h"
#include "sysinfo/ZarnSysInfoEnvOp.h"
#include "sysinfo/ZarnSysInfoEnvVars.h"
#include "sysinfo/ZarnSysInfoFormatterHTML.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

// "Kind one %1!s!": a log text of one wide insert, and nothing to show.
constexpr int kLogOnlySituation = 3005;
constexpr int kSeriesSituation = 10006;

const char kTestForm[] =
    "Text before the first marker reaches no section.\n"
    "^HEAD\n"
    "<html><head><title>[PRODUCT_NAME] [PRODUCT_VERSION]</title></head><body>\n"
    "<p>[LOGFILE_NAME] opened [YEAR]-[MONTH]-[DAY] [HOURS]:[MINUTES]:[SECONDS].[MILLISECONDS] by [PROCESS_ID]</p>\n"
    "<table>\n"
    "^BODY\n"
    "<tr id=\"e[ENTRY_ID]\" bgcolor=\"#[ENTRY_COLOR]\"><td>[SITUATION_ID]</td>"
    "<td>[YEAR]-[MONTH]-[DAY] [HOURS]:[MINUTES]:[SECONDS].[MILLISECONDS]</td><td>[SITUATION_DSCRP]</td></tr>\n"
    "^TAIL\n"
    "</table>\n"
    "</body></html>\n";

// A form and the text it makes of a log file. Placeholders: {T} a padded time stamp, {LOG} the
// file's name, {PID} the process, {ID} and {COLOR} the entry's number and row colour, {SIT} the
// situation ID, {DSCRP} its log text. The formatter writes the form's line feeds as CR LF.
struct FormShape
{
    const char* name;
    const char* formFile; // null: no file where the form is named, so the built-in form serves
    QString head;
    QString entry;
    QString tail;
};

FormShape builtInForm()
{
    return {"built-in form", nullptr,
            QStringLiteral("<html><body>\r\n<!-- ProductVersion=4.1 FileVersion=4.1.0.7 -->{T} The log template "
                           "file is inaccessible, corrupt, or perhaps too large to format; will use default layout "
                           "instead.<br>\r\n"),
            QStringLiteral("<!-- SituationID={SIT} -->{T} {DSCRP}<br>\r\n"), QStringLiteral("</body><html>\r\n")};
}

FormShape testForm()
{
    return {"form file", kTestForm,
            QStringLiteral("<html><head><title>Farrowlink 4.1</title></head><body>\r\n<p>{LOG} opened {T} by "
                           "{PID}</p>\r\n<table>\r\n"),
            QStringLiteral("<tr id=\"e{ID}\" bgcolor=\"#{COLOR}\"><td>{SIT}</td><td>{T}</td><td>{DSCRP}</td></tr>\r\n"),
            QStringLiteral("</table>\r\n</body></html>\r\n")};
}

struct LoggedEntry { int situationID; QString description; int characters; };

// A log file read as its form's document: byte-order mark, head, whole entries, one tail.
struct LogDocument
{
    QString problem; // empty for a complete document
    std::vector<LoggedEntry> entries;
};

QString patternOf(const QString& section, const QString& logName)
{
    QString pattern = QRegularExpression::escape(section);
    const std::pair<const char*, QString> fields[] = {
        {"{T}", QStringLiteral(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3})")},
        {"{LOG}", QRegularExpression::escape(logName)},
        {"{PID}", QString::number(QCoreApplication::applicationPid())},
        {"{ID}", QStringLiteral("(?<id>\\d+)")},
        {"{COLOR}", QStringLiteral("(?<color>[0-9A-F]+)")},
        {"{SIT}", QStringLiteral("(?<sit>\\d+)")},
        {"{DSCRP}", QStringLiteral("(?<dscrp>.*?)")},
    };
    for (const auto& field : fields)
        pattern.replace(QRegularExpression::escape(QLatin1String(field.first)), field.second);
    return pattern;
}

// Entries carry their numbers from 1 in each file, and the colours alternate from F0F0FF.
LogDocument readDocument(const QString& file, const FormShape& form)
{
    LogDocument document;
    const QString text = logFileText(file);
    const QRegularExpression head(patternOf(form.head, file));
    const QRegularExpression entry(patternOf(form.entry, file));
    const QRegularExpression tail(patternOf(form.tail, file) + QStringLiteral("\\z"));
    const auto matchAt = [&text](const QRegularExpression& section, int offset) {
        return section.match(text, offset, QRegularExpression::NormalMatch,
                             QRegularExpression::AnchoredMatchOption
                                 | QRegularExpression::DontCheckSubjectStringMatchOption);
    };
    QRegularExpressionMatch match = matchAt(head, 0);
    if (!match.hasMatch()) {
        document.problem = QStringLiteral("no byte-order mark and head: ") + text.left(200);
        return document;
    }
    for (int offset = match.capturedEnd(); !matchAt(tail, offset).hasMatch(); offset = match.capturedEnd()) {
        match = matchAt(entry, offset);
        if (!match.hasMatch()) {
            document.problem =
                QStringLiteral("neither a whole entry nor the tail at %1: %2").arg(offset).arg(text.mid(offset, 200));
            return document;
        }
        const int id = match.captured(QStringLiteral("id")).toInt();
        const QString colour = match.captured(QStringLiteral("color"));
        const int number = static_cast<int>(document.entries.size()) + 1;
        if ((!colour.isEmpty() || id != 0) && (id != number || colour != (number % 2 != 0 ? "F0F0FF" : "F7F7FF"))) {
            document.problem = QStringLiteral("entry %1 is numbered %2 with colour %3").arg(number).arg(id).arg(colour);
            return document;
        }
        document.entries.push_back({match.captured(QStringLiteral("sit")).toInt(),
                                    match.captured(QStringLiteral("dscrp")), match.capturedLength()});
    }
    return document;
}

// Only the inserts of kLogOnlySituation, in order.
std::vector<QString> logTexts(const std::vector<LoggedEntry>& entries)
{
    std::vector<QString> texts;
    for (const LoggedEntry& entry : entries) {
        if (entry.situationID == kLogOnlySituation)
            texts.push_back(entry.description.mid(QStringLiteral("Kind one ").size()));
    }
    return texts;
}

// The series statics of the process, started afresh so that a test's first file opens the series.
struct LogSeries : ZarnData
{
    static void restart()
    {
        s_logSeriesCount = 1;
        s_logSeriesOrigin[0] = L'\0';
    }
};

// The process's log directory, where a replaced log file's successor may be composed: the test's
// own while the scope lasts, then the one before.
class LogDirectoryScope
{
public:
    explicit LogDirectoryScope(const QString& directory)
        : m_previous(ZarnData::getLogDirectory() != nullptr ? ZarnData::getLogDirectory() : L"")
    {
        record((directory + QLatin1Char('/')).toStdWString().c_str());
    }
    ~LogDirectoryScope() { record(m_previous.empty() ? nullptr : m_previous.c_str()); }

private:
    static void record(const wchar_t* directory)
    {
        ZarnData::setLogVariables(directory, ZarnData::getLogOutputLevel(), ZarnData::getLogBackupEnabled(),
                                  ZarnData::getLogMaxFileSize(), ZarnData::getLogMaxFileAge());
    }

    std::wstring m_previous;
};

class LogEndToEnd : public testing::Test
{
protected:
    void SetUp() override
    {
        Zarn::destroy();
        LogSeries::restart();
        ASSERT_TRUE(m_dir.isValid());
        const std::string module = ZMU_TEST_MODULE_DIR "/libzmu_test_report_specs.so";
        m_specs = LoadLibraryW(std::wstring(module.begin(), module.end()).c_str());
        ASSERT_NE(m_specs, nullptr);
    }

    void TearDown() override
    {
        Zarn::destroy();
        if (m_specs != nullptr) {
            EXPECT_TRUE(FreeLibrary(m_specs));
        }
    }

    // A monitor as a module builds one by hand: wide text, the tags that the forms show, a log in
    // the test's directory and a form file holding `form`, or none where the form is named.
    Zarn* createMonitor(const char* form)
    {
        QDir(m_dir.path()).mkdir(QStringLiteral("Templates"));
        const QString formName = m_dir.filePath(QStringLiteral("Templates/form.html"));
        QFile::remove(formName);
        if (form != nullptr) {
            QFile file(formName);
            EXPECT_TRUE(file.open(QIODevice::WriteOnly));
            file.write(form);
        }
        m_logName = m_dir.filePath(QStringLiteral("e2e.html"));
        std::wstring logName = m_logName.toStdWString();
        ZarnData dataSet;
        dataSet.setCharSetExternal(2);
        dataSet.recordTag(L"Farrowlink", Zarn_FORM_TAG_PRODUCT_NAME);
        dataSet.recordTag(L"4.1", Zarn_FORM_TAG_PRODUCT_VERSION);
        dataSet.recordTag(L"4.1.0.7", Zarn_FORM_TAG_FILE_VERSION);
        EXPECT_TRUE(dataSet.recordLogFileNomenclature(&logName[0], formName.toStdWString().c_str(), Zarn_LOG_HTML));
        Zarn* const monitor = Zarn::create(&dataSet);
        EXPECT_NE(monitor, nullptr) << "create failed with " << dataSet.getSelfDX_Code();
        // The specs' module is the monitor's own from here. A module passed with each situation is
        // swapped in and out without a lock, so threads sharing a monitor would undo each other's.
        if (monitor != nullptr)
            monitor->setResourceModule(m_specs);
        return monitor;
    }

    // One situation with a log text only; its code, 0 if it went all the way.
    int report(Zarn* monitor, const QString& text)
    {
        const std::wstring argument = text.toStdWString();
        monitor->respondToSituation(kLogOnlySituation, nullptr, argument.c_str());
        return monitor->getSelfDX_Code();
    }

    static QString fileLogName(const Zarn* monitor)
    {
        wchar_t name[MAX_PATH] = {};
        monitor->getFileLogName(name, MAX_PATH);
        return QString::fromWCharArray(name);
    }

    QTemporaryDir m_dir;
    HMODULE m_specs = nullptr;
    QString m_logName;
};

} // namespace

// Head and first tail at creation; each entry goes where the tail was and a fresh tail follows it.
TEST_F(LogEndToEnd, FileIsAWholeDocumentAfterEverySituation)
{
    const std::vector<QString> texts = {QStringLiteral("first & <b>bold</b>"),
                                        QString::fromWCharArray(L"zweite Gr\u00FC\u00DFe \u20AC \U0001F600")};
    for (const FormShape& form : {builtInForm(), testForm()}) {
        SCOPED_TRACE(form.name);
        Zarn* const monitor = createMonitor(form.formFile);
        ASSERT_NE(monitor, nullptr);
        for (size_t reported = 0; reported <= texts.size(); ++reported) {
            SCOPED_TRACE(reported);
            if (reported > 0) {
                ASSERT_EQ(report(monitor, texts[reported - 1]), 0);
            }
            const LogDocument document = readDocument(m_logName, form);
            ASSERT_TRUE(document.problem.isEmpty()) << document.problem.toStdString();
            ASSERT_EQ(document.entries.size(), reported);
            EXPECT_EQ(logTexts(document.entries), std::vector<QString>(texts.begin(), texts.begin() + reported));
        }
        Zarn::destroy();
        QFile::remove(m_logName);
    }
}

// Each successor opens with situation 10006, which counts on and names the series' first file.
TEST_F(LogEndToEnd, ReplacementAtTheLimitContinuesTheSeriesInWholeDocuments)
{
    constexpr unsigned long long kLimit = 1048576;
    const LogDirectoryScope successorsHere(m_dir.path());
    Zarn* const monitor = createMonitor(kTestForm);
    ASSERT_NE(monitor, nullptr);
    unsigned long long previous = 0;
    ASSERT_TRUE(monitor->setLogFileByteCountLimit(kLimit, previous));

    // Entries of about 1900 bytes: some 550 to a file.
    const QString padding(850, QLatin1Char('x'));
    std::vector<QString> series = {m_logName};
    int situations = 0;
    for (bool last = false; !last && situations < 5000; ++situations) {
        last = series.size() == 3; // one situation more goes into the third file
        ASSERT_EQ(report(monitor, QStringLiteral("S%1 ").arg(situations) + padding), 0) << situations;
        if (fileLogName(monitor) != series.back())
            series.push_back(fileLogName(monitor));
    }
    ASSERT_EQ(series.size(), 3u) << situations << " situations";

    std::vector<QString> logged;
    for (size_t index = 0; index < series.size(); ++index) {
        SCOPED_TRACE(series[index].toStdString());
        const LogDocument document = readDocument(series[index], testForm());
        ASSERT_TRUE(document.problem.isEmpty()) << document.problem.toStdString();
        ASSERT_FALSE(document.entries.empty());
        if (index > 0) {
            EXPECT_EQ(document.entries.front().situationID, kSeriesSituation);
            EXPECT_EQ(document.entries.front().description.toStdString(),
                      QStringLiteral("This log file is #%1 in a series that began with %2.")
                          .arg(index + 1)
                          .arg(m_logName)
                          .toStdString());
        }
        if (index + 1 < series.size()) {
            // Replaced after the entry that reached the limit, not before it.
            const qint64 size = QFile(series[index]).size();
            EXPECT_GE(size, static_cast<qint64>(kLimit));
            EXPECT_LT(size - 2 * document.entries.back().characters, static_cast<qint64>(kLimit));
        }
        const std::vector<QString> texts = logTexts(document.entries);
        logged.insert(logged.end(), texts.begin(), texts.end());
    }
    ASSERT_EQ(logged.size(), static_cast<size_t>(situations));
    for (int situation = 0; situation < situations; ++situation)
        EXPECT_EQ(logged[situation].toStdString(), (QStringLiteral("S%1 ").arg(situation) + padding).toStdString());
}

namespace {

// The captions of one walk of a fresh source.
std::vector<QString> captionsOf(ZarnSysInfo&& source)
{
    constexpr int kTextQty = ZarnSysInfoFormatterHTML::kTextQty;
    std::vector<QString> captions;
    std::vector<wchar_t> caption(kTextQty), datum(kTextQty);
    for (bool more = source.getFirstDataPair(caption.data(), datum.data(), kTextQty, kTextQty); more;
         more = source.getNextDataPair(caption.data(), datum.data(), kTextQty, kTextQty))
        captions.push_back(QString::fromWCharArray(caption.data()));
    return captions;
}

// The captions of one report table as the example form lays it out, or none if the table holds
// anything but whole rows.
std::vector<QString> tableCaptions(const QString& log, const char* heading, QString* table)
{
    const QRegularExpression section(QStringLiteral("<h2>%1</h2>\r\n<table class=\"sysinfo\">\r\n(.*?)</table>")
                                         .arg(QLatin1String(heading)),
                                     QRegularExpression::DotMatchesEverythingOption);
    *table = section.match(log).captured(1);
    const QRegularExpression row(QStringLiteral("<tr class=\"(?:odd|even)\"><th>(.*?)</th><td>.*?</td></tr>"),
                                 QRegularExpression::DotMatchesEverythingOption);
    std::vector<QString> captions;
    int consumed = 0;
    for (QRegularExpressionMatchIterator rows = row.globalMatch(*table); rows.hasNext();) {
        const QRegularExpressionMatch next = rows.next();
        if (next.capturedStart() != consumed)
            return {};
        captions.push_back(next.captured(1));
        consumed = next.capturedEnd();
    }
    return consumed == table->size() ? captions : std::vector<QString>();
}

} // namespace

// The example form learns as it stands, and its reports are made once: the successor of a replaced
// log file opens with the very same tables. The reports' files go when the monitor's data set does.
TEST_F(LogEndToEnd, EveryFileOfTheSeriesOpensWithTheSameThreeReports)
{
    const TempPathScope temporary;
    const LogDirectoryScope successorsHere(m_dir.path());
    const std::string form = exampleForm("bpw_template.html");
    ASSERT_FALSE(form.empty());
    Zarn* const monitor = createMonitor(form.c_str());
    ASSERT_NE(monitor, nullptr);
    EXPECT_EQ(countInjectorFiles(), 3);
    for (const char* text : {"first", "second", "third"})
        EXPECT_EQ(report(monitor, QLatin1String(text)), 0);
    const QString first = fileLogName(monitor);
    ASSERT_TRUE(MonitorInside::dataSetOf(monitor)->reestablishLogFile(false));
    const QString second = fileLogName(monitor);
    ASSERT_NE(second, first);
    EXPECT_EQ(report(monitor, QStringLiteral("fourth")), 0);
    EXPECT_EQ(countInjectorFiles(), 3) << "a successor reuses the reports";

    const QString firstLog = logFileText(first);
    const QString secondLog = logFileText(second);
    EXPECT_TRUE(firstLog.startsWith(QStringLiteral("<!DOCTYPE html>\r\n<html>\r\n<head>\r\n<title>Farrowlink 4.1 log")));
    EXPECT_EQ(firstLog.count(QStringLiteral("<td>Kind one ")), 3);
    EXPECT_EQ(secondLog.count(QStringLiteral("<td>Kind one fourth</td>")), 1);
    const std::pair<const char*, std::vector<QString>> reports[] = {
        {"Application Environment", captionsOf(ZarnSysInfoEnvApp())},
        {"Operating Environment", captionsOf(ZarnSysInfoEnvOp())},
        {"Environment Variables", captionsOf(ZarnSysInfoEnvVars())},
    };
    for (const auto& shown : reports) {
        SCOPED_TRACE(shown.first);
        QString firstTable;
        QString secondTable;
        EXPECT_EQ(tableCaptions(firstLog, shown.first, &firstTable), shown.second);
        tableCaptions(secondLog, shown.first, &secondTable);
        EXPECT_TRUE(secondTable == firstTable) << "the successor's table differs";
    }

    Zarn::destroy();
    EXPECT_EQ(countInjectorFiles(), 0);
}

class LogEndToEndConcurrency : public LogEndToEnd
{
};

// Threads of one monitor write one log; a reader holding the data set's lock, between two
// situations, always finds a whole document.
TEST_F(LogEndToEndConcurrency, ThreadsWriteWholeEntriesIntoOneDocument)
{
    constexpr int kThreads = 4;
    constexpr int kSituations = 50;
    Zarn* const monitor = createMonitor(kTestForm);
    ASSERT_NE(monitor, nullptr);
    ZarnData* const dataSet = MonitorInside::dataSetOf(monitor);

    std::atomic<int> failures{0};
    std::atomic<int> writersLeft{kThreads};
    std::atomic<bool> sampling{false};
    std::vector<std::thread> writers;
    for (int thread = 0; thread < kThreads; ++thread) {
        writers.emplace_back([&, thread] {
            while (!sampling.load())
                std::this_thread::yield();
            for (int situation = 0; situation < kSituations; ++situation) {
                if (report(monitor, QStringLiteral("T%1 N%2").arg(thread).arg(situation)) != 0)
                    ++failures;
            }
            monitor->removeThread();
            --writersLeft;
        });
    }
    int samples = 0;
    QString sampleProblem;
    size_t sampledEntries = 0;
    do {
        if (!dataSet->enterCriticalSection()) {
            sampleProblem = QStringLiteral("the lock was refused");
            break;
        }
        const LogDocument document = readDocument(m_logName, testForm());
        dataSet->leaveCriticalSection();
        ++samples;
        if (!document.problem.isEmpty())
            sampleProblem = document.problem;
        if (document.entries.size() < sampledEntries)
            sampleProblem = QStringLiteral("entries went missing");
        sampledEntries = document.entries.size();
        sampling = true;
        std::this_thread::yield();
    } while (writersLeft.load() > 0 && sampleProblem.isEmpty());
    for (std::thread& writer : writers)
        writer.join();

    EXPECT_TRUE(sampleProblem.isEmpty()) << sampleProblem.toStdString() << " (sample " << samples << ")";
    EXPECT_EQ(failures.load(), 0);
    const LogDocument document = readDocument(m_logName, testForm());
    ASSERT_TRUE(document.problem.isEmpty()) << document.problem.toStdString();
    ASSERT_EQ(document.entries.size(), static_cast<size_t>(kThreads * kSituations));
    // Every situation once, and each thread's in the order it reported them.
    std::vector<int> next(kThreads, 0);
    for (const QString& text : logTexts(document.entries)) {
        const QRegularExpressionMatch match = QRegularExpression(QStringLiteral("^T(\\d) N(\\d+)$")).match(text);
        ASSERT_TRUE(match.hasMatch()) << text.toStdString();
        const int thread = match.captured(1).toInt();
        ASSERT_LT(thread, kThreads);
        EXPECT_EQ(match.captured(2).toInt(), next[thread]++) << text.toStdString();
    }
    EXPECT_EQ(next, std::vector<int>(kThreads, kSituations));
}
