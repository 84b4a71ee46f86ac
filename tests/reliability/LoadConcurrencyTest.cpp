// Many threads, many situations and many rollovers at the smallest byte limit, read back file by
// file: every situation is logged once and in its thread's order, every file is a whole document,
// and every successor opens with its series note.
#include "LogDocument.h"
#include "LogSeriesRig.h"

#include "monitor/Zarn.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <map>
#include <set>
#include <thread>
#include <vector>

// Threads of different monitors meet only inside libraries that are not built for ThreadSanitizer,
// whose own locks it cannot see: glibc's time zone state, which mktime and localtime renew under
// glibc's lock at every time stamp, and the wait conditions that Qt's lock around its file engines
// makes and frees under contention when two files are opened or closed at once.
extern "C" __attribute__((visibility("default"), used)) const char* __tsan_default_suppressions()
{
    return "race:tzset_internal\nrace:QWaitCondition::~QWaitCondition\n";
}

namespace {

struct LoadShape
{
    int monitors;
    int threadsPerMonitor;
    int situationsPerThread;
    int paddingCharacters; // makes entries longer, for more rollovers from fewer situations
};

// One monitor under load: its first file and, per thread, the names of the files the thread saw
// its situations go to, in the order it saw them.
struct MonitorUnderLoad
{
    QString firstFile;
    Zarn* monitor = nullptr;
    std::vector<std::vector<QString>> filesSeen;
};

struct SeriesNote
{
    int monitor;
    int number;
    QString origin;
};

// What the read-back found, over all monitors.
struct LoadFigures
{
    int files = 0;
    long long entries = 0;
    std::vector<SeriesNote> notes;
};

QString fileLogName(const Zarn* monitor)
{
    wchar_t name[1024] = {};
    monitor->getFileLogName(name, 1024);
    return QString::fromWCharArray(name);
}

QString loadText(int monitor, int thread, int situation, const QString& padding)
{
    return QStringLiteral("M%1 T%2 N%3 ").arg(monitor).arg(thread).arg(situation) + padding;
}

// Reads "M<m> T<t> N<n> " at the start of `text`; false if it is not there.
bool parseLoadText(const QString& text, int& monitor, int& thread, int& situation, QString& rest)
{
    int values[3] = {};
    const QChar letters[3] = {QLatin1Char('M'), QLatin1Char('T'), QLatin1Char('N')};
    int position = 0;
    for (int field = 0; field < 3; ++field) {
        if (position >= text.size() || text[position] != letters[field])
            return false;
        const int digits = ++position;
        while (position < text.size() && text[position].isDigit())
            values[field] = values[field] * 10 + text[position++].digitValue();
        if (position == digits || position >= text.size() || text[position] != QLatin1Char(' '))
            return false;
        ++position;
    }
    monitor = values[0];
    thread = values[1];
    situation = values[2];
    rest = text.mid(position);
    return true;
}

// The files of one monitor's series in order: its first file, then the successors its threads
// saw, whose names sort in the order they were made.
std::vector<QString> seriesOf(const MonitorUnderLoad& run)
{
    std::set<QString> successors;
    for (const std::vector<QString>& seen : run.filesSeen) {
        for (const QString& file : seen) {
            if (file != run.firstFile)
                successors.insert(file);
        }
    }
    std::vector<QString> series{run.firstFile};
    series.insert(series.end(), successors.begin(), successors.end());
    return series;
}

// Reads one monitor's series back and checks it: whole documents, each replaced right after the
// entry that reached the limit, a note at the head of each successor and nowhere else, and every
// situation of the monitor once, in its thread's order.
void checkSeries(const LoadShape& shape, int monitorIndex, const MonitorUnderLoad& run, const QString& padding,
                 LoadFigures& figures)
{
    SCOPED_TRACE(QStringLiteral("monitor %1").arg(monitorIndex).toStdString());
    const std::vector<QString> series = seriesOf(run);
    std::vector<int> next(static_cast<size_t>(shape.threadsPerMonitor), 0);
    for (size_t index = 0; index < series.size(); ++index) {
        SCOPED_TRACE(series[index].toStdString());
        const LogDocument document = LogDocument::read(series[index]);
        ASSERT_TRUE(document.isWhole()) << endingName(document.ending()) << "; "
                                        << document.problem().toStdString();
        ++figures.files;
        const std::vector<LoggedEntry>& entries = document.entries();
        if (index + 1 < series.size()) {
            // Replaced after the entry that reached the limit, not before it and not later.
            ASSERT_FALSE(entries.empty());
            EXPECT_GE(document.byteCount(), static_cast<long long>(kSmallestByteCountLimit));
            EXPECT_LT(document.byteCount() - entries.back().byteCount, static_cast<long long>(kSmallestByteCountLimit));
        }
        for (size_t position = 0; position < entries.size(); ++position) {
            const LoggedEntry& entry = entries[position];
            ++figures.entries;
            if (entry.situationID == kSeriesNoteSituation) {
                ASSERT_TRUE(index > 0 && position == 0) << "a series note at entry " << position;
                const QRegularExpressionMatch match =
                    QRegularExpression(QStringLiteral("^This log file is #(\\d+) in a series that began with (.+)\\.$"))
                        .match(entry.description);
                ASSERT_TRUE(match.hasMatch()) << entry.description.toStdString();
                figures.notes.push_back({monitorIndex, match.captured(1).toInt(), match.captured(2)});
                continue;
            }
            ASSERT_FALSE(index > 0 && position == 0) << "a successor without its series note";
            int monitor = -1;
            int thread = -1;
            int situation = -1;
            QString rest;
            ASSERT_TRUE(parseLoadText(logTextOf(entry), monitor, thread, situation, rest))
                << entry.description.toStdString();
            ASSERT_EQ(monitor, monitorIndex) << "another monitor's entry";
            ASSERT_GE(thread, 0);
            ASSERT_LT(thread, shape.threadsPerMonitor);
            ASSERT_EQ(situation, next[thread]) << "thread " << thread << " out of order or doubled";
            ASSERT_EQ(rest, padding) << entry.description.toStdString();
            ++next[thread];
        }
    }
    EXPECT_EQ(next, std::vector<int>(static_cast<size_t>(shape.threadsPerMonitor), shape.situationsPerThread))
        << "situations missing at the end";
}

class LoadConcurrency : public testing::Test
{
protected:
    void SetUp() override
    {
        Zarn::destroy();
        LogSeriesStatics::restart();
        ASSERT_TRUE(m_dir.isValid());
        ASSERT_NE(m_specs.handle(), nullptr);
    }

    void TearDown() override { Zarn::destroy(); }

    // Runs the shape: each monitor's first file in a folder of its own, its threads reporting
    // together, all monitors at once; then reads every series back.
    void runLoad(const char* name, const LoadShape& shape)
    {
        const auto started = std::chrono::steady_clock::now();
        const QString successorsDir = m_dir.filePath(QStringLiteral("successors"));
        ASSERT_TRUE(QDir().mkpath(successorsDir));
        const LogDirectoryScope successorsHere(successorsDir);
        const QString padding(shape.paddingCharacters, QLatin1Char('p'));

        std::vector<MonitorUnderLoad> runs(static_cast<size_t>(shape.monitors));
        for (int m = 0; m < shape.monitors; ++m) {
            MonitorUnderLoad& run = runs[m];
            const QString folder = m_dir.filePath(QStringLiteral("monitor%1").arg(m));
            ASSERT_TRUE(QDir().mkpath(folder));
            run.firstFile = QDir(folder).filePath(QStringLiteral("first.html"));
            int code = 0;
            run.monitor = createBuiltInFormMonitor(run.firstFile, m_specs.handle(), kSmallestByteCountLimit, code);
            ASSERT_NE(run.monitor, nullptr) << code;
            ASSERT_EQ(code, 0);
            run.filesSeen.resize(static_cast<size_t>(shape.threadsPerMonitor));
        }

        std::atomic<int> failures{0};
        std::atomic<int> firstCode{0};
        std::atomic<bool> go{false};
        std::vector<std::thread> threads;
        for (int m = 0; m < shape.monitors; ++m) {
            for (int t = 0; t < shape.threadsPerMonitor; ++t) {
                threads.emplace_back([&, m, t] {
                    MonitorUnderLoad& run = runs[m];
                    std::vector<QString>& seen = run.filesSeen[t];
                    while (!go.load())
                        std::this_thread::yield();
                    for (int situation = 0; situation < shape.situationsPerThread; ++situation) {
                        const QString text = loadText(m, t, situation, padding);
                        const int code = reportLogText(run.monitor, text);
                        if (code != 0) {
                            int none = 0;
                            firstCode.compare_exchange_strong(none, code);
                            ++failures;
                            break;
                        }
                        const QString file = fileLogName(run.monitor);
                        if (seen.empty() || seen.back() != file)
                            seen.push_back(file);
                    }
                    run.monitor->removeThread();
                });
            }
        }
        go = true;
        for (std::thread& thread : threads)
            thread.join();
        const auto reported = std::chrono::steady_clock::now();
        ASSERT_EQ(failures.load(), 0) << "first code " << firstCode.load();
        // Closes every file, so that what is read back is what the monitors left.
        Zarn::destroy();

        LoadFigures figures;
        std::set<QString> claimed;
        for (int m = 0; m < shape.monitors; ++m) {
            checkSeries(shape, m, runs[m], padding, figures);
            if (HasFatalFailure())
                return;
            for (const QString& file : seriesOf(runs[m])) {
                EXPECT_TRUE(claimed.insert(QFileInfo(file).canonicalFilePath()).second)
                    << file.toStdString() << " is in two series";
            }
        }
        // Every successor in the directory belongs to a series that was read.
        for (const QString& file : logFilesIn(successorsDir)) {
            EXPECT_EQ(claimed.count(QFileInfo(file).canonicalFilePath()), 1u) << file.toStdString() << " unread";
        }

        const long long situations =
            static_cast<long long>(shape.monitors) * shape.threadsPerMonitor * shape.situationsPerThread;
        const int rollovers = figures.files - shape.monitors;
        EXPECT_EQ(figures.entries, situations + rollovers) << "one note per rollover besides the situations";
        EXPECT_EQ(static_cast<int>(figures.notes.size()), rollovers);
        checkNotes(runs, figures.notes);

        const auto checked = std::chrono::steady_clock::now();
        using Seconds = std::chrono::duration<double>;
        std::printf("%s: %d monitor(s) x %d threads x %d situations = %lld situations, %d rollovers, %d files, "
                    "%lld entries read back; reported in %.1f s, checked in %.1f s\n",
                    name, shape.monitors, shape.threadsPerMonitor, shape.situationsPerThread, situations, rollovers,
                    figures.files, figures.entries, Seconds(reported - started).count(),
                    Seconds(checked - reported).count());
        std::fflush(stdout);
    }

    // The series count and origin belong to the process, not to a monitor: the notes of all
    // monitors count one series on from #2, and all name the first file of the monitor that
    // replaced a file first, the one whose note is #2.
    static void checkNotes(const std::vector<MonitorUnderLoad>& runs, const std::vector<SeriesNote>& notes)
    {
        std::vector<int> numbers;
        std::map<int, int> lastNumberOfMonitor;
        for (const SeriesNote& note : notes) {
            numbers.push_back(note.number);
            EXPECT_GT(note.number, lastNumberOfMonitor[note.monitor]) << "monitor " << note.monitor;
            lastNumberOfMonitor[note.monitor] = note.number;
            if (note.number == 2) {
                EXPECT_EQ(note.origin, runs[note.monitor].firstFile);
            }
        }
        std::sort(numbers.begin(), numbers.end());
        for (size_t index = 0; index < numbers.size(); ++index)
            EXPECT_EQ(numbers[index], static_cast<int>(index) + 2);
        for (const SeriesNote& note : notes)
            EXPECT_EQ(note.origin, notes.front().origin) << "note #" << note.number;
    }

    QTemporaryDir m_dir;
    ReportSpecsModule m_specs;
};

} // namespace

TEST_F(LoadConcurrency, ThreadsOfOneMonitorLogEverySituationOnceAcrossRollovers)
{
    // Short entries: the most situations. Under ThreadSanitizer fewer, with padding for rollovers.
    const LoadShape shape = kUnderThreadSanitizer ? LoadShape{1, 4, 2000, 600} : LoadShape{1, 4, 25000, 0};
    runLoad("LoadConcurrency one monitor", shape);
}

TEST_F(LoadConcurrency, SeveralMonitorsInOneProcessKeepTheirOwnSeries)
{
    const LoadShape shape = kUnderThreadSanitizer ? LoadShape{3, 2, 800, 600} : LoadShape{3, 2, 4000, 500};
    runLoad("LoadConcurrency several monitors", shape);
}
