// A process that reports situations without pause, rolling its log over at the smallest limit, is
// killed with SIGKILL at random moments, many times; after each kill every log file it wrote is read
// back. An entry and its tail (a head and its first tail) reach the file in one write, so whatever
// the moment of the kill, every file is a whole document, except that the newest may end inside
// its last write at a page boundary where the kernel gave that write up, and a successor may still
// be empty. No entry is ever lost, doubled or torn elsewhere.
//
// The child is this test itself, run again by this program with an environment variable that names
// its log directory; the parent never runs library code in a forked copy of itself.
#include "LogDocument.h"
#include "LogSeriesRig.h"

#include "monitor/Zarn.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace {

constexpr const char* kChildDirVariable = "ZMU_CRASH_CHILD_LOG_DIR";
constexpr const char* kSeedVariable = "ZMU_CRASH_SEED";
constexpr const char* kKeepVariable = "ZMU_CRASH_KEEP"; // keeps the files of a failed round
constexpr int kReadyDescriptor = 3; // where the child finds the write end of the parent's pipe
constexpr const char* kFirstFileName = "first.html";

// Sanitized children report several times slower: fewer kills, each given longer, so that the
// kills still find the child in its second or third file now and then.
constexpr int kKills = kUnderThreadSanitizer ? 25 : kUnderAddressSanitizer ? 40 : 120;
// The latest kill after the child is ready: some three files' worth of situations.
constexpr int kLatestKillMicroseconds = kUnderThreadSanitizer ? 900000 : kUnderAddressSanitizer ? 300000 : 120000;

// The log text of situation `number`: its number, then a run of one letter whose length varies
// from entry to entry, so that writes start and end at all sorts of offsets within the file's pages.
QString crashText(long long number)
{
    const int length = 40 + static_cast<int>((number * 7919) % 760);
    return QStringLiteral("N%1 ").arg(number) + QString(length, QLatin1Char(static_cast<char>('a' + number % 26)));
}

[[noreturn]] void runChild(const QString& directory)
{
    const ReportSpecsModule specs;
    const LogDirectoryScope successorsHere(directory);
    int code = 0;
    Zarn* const monitor = createBuiltInFormMonitor(QDir(directory).filePath(QLatin1String(kFirstFileName)),
                                                   specs.handle(), kSmallestByteCountLimit, code);
    if (monitor == nullptr || code != 0) {
        std::fprintf(stderr, "child: no monitor, code %d\n", code);
        std::_Exit(3);
    }
    const char ready = 'r';
    if (write(kReadyDescriptor, &ready, 1) != 1)
        std::_Exit(4);
    close(kReadyDescriptor);
    for (long long number = 0;; ++number) {
        const int failed = reportLogText(monitor, crashText(number));
        if (failed != 0) {
            std::fprintf(stderr, "child: situation %lld failed with %d\n", number, failed);
            std::_Exit(5);
        }
    }
}

std::string ownProgram()
{
    char path[4096] = {};
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    return length > 0 ? std::string(path, static_cast<size_t>(length)) : std::string();
}

// A child reporting into `directory`, started with posix_spawn, its output kept in a file there.
class ReportingChild
{
public:
    ReportingChild(const std::string& program, const std::string& testName, const QString& directory)
        : m_outputPath(QDir(directory).filePath(QStringLiteral("child-output.txt")))
    {
        int ready[2] = {-1, -1};
        if (pipe2(ready, O_CLOEXEC) != 0) {
            m_problem = std::string("pipe: ") + std::strerror(errno);
            return;
        }
        m_ready = ready[0];
        // A dup2 onto itself would keep the close-on-exec flag, so the write end must not be there already.
        if (ready[1] == kReadyDescriptor) {
            const int moved = fcntl(ready[1], F_DUPFD_CLOEXEC, kReadyDescriptor + 1);
            close(ready[1]);
            ready[1] = moved;
        }
        std::vector<std::string> environment;
        for (char** variable = environ; *variable != nullptr; ++variable)
            environment.emplace_back(*variable);
        environment.push_back(std::string(kChildDirVariable) + "=" + directory.toStdString());
        std::vector<char*> envp;
        for (std::string& variable : environment)
            envp.push_back(&variable[0]);
        envp.push_back(nullptr);
        std::string filter = "--gtest_filter=" + testName;
        char* argv[] = {const_cast<char*>(program.c_str()), &filter[0], nullptr};

        const std::string output = m_outputPath.toStdString();
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ready[1], kReadyDescriptor);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
        const int spawned = posix_spawn(&m_pid, program.c_str(), &actions, nullptr, argv, envp.data());
        posix_spawn_file_actions_destroy(&actions);
        close(ready[1]);
        if (spawned != 0) {
            m_pid = -1;
            m_problem = std::string("posix_spawn: ") + std::strerror(spawned);
        }
    }

    ~ReportingChild()
    {
        if (m_pid > 0) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, nullptr, 0);
        }
        if (m_ready >= 0)
            close(m_ready);
    }

    ReportingChild(const ReportingChild&) = delete;
    ReportingChild& operator=(const ReportingChild&) = delete;

    // Waits until the child has its monitor; false with a problem if it stopped or never came.
    bool awaitReady(int timeoutMilliseconds)
    {
        if (!m_problem.empty())
            return false;
        pollfd readable = {m_ready, POLLIN, 0};
        char byte = 0;
        if (poll(&readable, 1, timeoutMilliseconds) == 1 && read(m_ready, &byte, 1) == 1)
            return true;
        m_problem = "the child did not get ready: " + output();
        return false;
    }

    // Kills the child with SIGKILL; false with a problem if it had already stopped by itself.
    bool killNow()
    {
        kill(m_pid, SIGKILL);
        int status = 0;
        const pid_t waited = waitpid(m_pid, &status, 0);
        m_pid = -1;
        if (waited > 0 && WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL)
            return true;
        m_problem = "the child stopped before the kill (status " + std::to_string(status) + "): " + output();
        return false;
    }

    const std::string& problem() const { return m_problem; }

private:
    std::string output() const
    {
        QFile file(m_outputPath);
        return file.open(QIODevice::ReadOnly) ? file.readAll().right(2000).toStdString() : std::string();
    }

    QString m_outputPath;
    pid_t m_pid = -1;
    int m_ready = -1;
    std::string m_problem;
};

struct CrashFigures
{
    int files = 0;
    long long entries = 0;
    int rollovers = 0;
    std::map<LogDocument::Ending, int> lastFileEndings;
};

// Reads the series a killed child left in `directory`. Every file but the newest was closed after a
// whole situation, so it is a whole document. The newest was being written: it is whole, or ends in
// a write cut at a page boundary, or is a successor not yet written at all; the first file had its
// head and tail before the child reported ready. Each successor opens with its series note, and the
// situations follow each other from number 0 without a gap.
std::string checkSeries(const QString& directory, CrashFigures& figures)
{
    const QString first = QDir(directory).filePath(QLatin1String(kFirstFileName));
    std::vector<QString> series{first};
    for (const QString& file : logFilesIn(directory)) {
        if (file != first)
            series.push_back(file);
    }
    long long next = 0;
    for (size_t index = 0; index < series.size(); ++index) {
        const std::string where = series[index].toStdString() + ": ";
        const LogDocument document = LogDocument::read(series[index]);
        if (!document.problem().isEmpty())
            return where + document.problem().toStdString();
        const bool newest = index + 1 == series.size();
        const LogDocument::Ending ending = document.ending();
        if (!newest && ending != LogDocument::Ending::Tail)
            return where + "a replaced file ends as " + endingName(ending);
        // An entry goes out with its tail, a head with its first tail, in one write each: only a
        // write cut at a page, or a successor killed before its first write, is anything but whole.
        const bool allowed = ending == LogDocument::Ending::Tail || ending == LogDocument::Ending::CutAtPage
                             || (index > 0 && ending == LogDocument::Ending::Empty);
        if (!allowed)
            return where + "the newest file ends as " + endingName(ending);
        ++figures.files;
        if (newest)
            ++figures.lastFileEndings[ending];

        const std::vector<LoggedEntry>& entries = document.entries();
        size_t position = 0;
        if (index > 0) {
            // Only a successor killed before its note was written may lack it.
            if (entries.empty()) {
                if (!newest)
                    return where + "a replaced successor without its series note";
            } else if (entries[0].situationID != kSeriesNoteSituation
                       || entries[0].description != seriesNoteText(static_cast<int>(index) + 1, first)) {
                return where + "not the series note: " + entries[0].description.toStdString();
            } else {
                position = 1;
            }
        }
        for (; position < entries.size(); ++position) {
            if (logTextOf(entries[position]) != crashText(next))
                return where + "entry " + std::to_string(position) + " should be situation " + std::to_string(next)
                       + ": " + entries[position].description.left(80).toStdString();
            ++next;
        }
        figures.entries += static_cast<long long>(entries.size());
    }
    figures.rollovers += static_cast<int>(series.size()) - 1;
    return std::string();
}

unsigned int chooseSeed()
{
    if (const char* given = std::getenv(kSeedVariable))
        return static_cast<unsigned int>(std::strtoul(given, nullptr, 10));
    return std::random_device{}();
}

} // namespace

TEST(CrashConsistency, EveryLogFileIsWholeAfterAKillBarAWriteCutAtAPage)
{
    if (const char* directory = std::getenv(kChildDirVariable))
        runChild(QString::fromLocal8Bit(directory));

    const testing::TestInfo* const test = testing::UnitTest::GetInstance()->current_test_info();
    const std::string testName = std::string(test->test_suite_name()) + "." + test->name();
    const std::string program = ownProgram();
    ASSERT_FALSE(program.empty());
    QTemporaryDir rounds;
    ASSERT_TRUE(rounds.isValid());

    const unsigned int seed = chooseSeed();
    std::printf("CrashConsistency: seed %u (set %s to repeat), %d kills\n", seed, kSeedVariable, kKills);
    std::fflush(stdout);
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> killDelay(0, kLatestKillMicroseconds);

    const auto started = std::chrono::steady_clock::now();
    CrashFigures figures;
    for (int round = 0; round < kKills; ++round) {
        const int delay = killDelay(random);
        SCOPED_TRACE("round " + std::to_string(round) + ", seed " + std::to_string(seed) + ", kill after "
                     + std::to_string(delay) + " us");
        const QString directory = QDir(rounds.path()).filePath(QStringLiteral("round%1").arg(round));
        ASSERT_TRUE(QDir().mkpath(directory));
        {
            ReportingChild child(program, testName, directory);
            ASSERT_TRUE(child.awaitReady(60000)) << child.problem();
            std::this_thread::sleep_for(std::chrono::microseconds(delay));
            ASSERT_TRUE(child.killNow()) << child.problem();
        }
        const std::string problem = checkSeries(directory, figures);
        if (!problem.empty() && std::getenv(kKeepVariable) != nullptr)
            rounds.setAutoRemove(false);
        ASSERT_EQ(problem, "") << "(set " << kKeepVariable << " to keep the files)";
        QDir(directory).removeRecursively();
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();

    std::string endings;
    for (const auto& ending : figures.lastFileEndings) {
        endings += std::string(endings.empty() ? "" : ", ") + endingName(ending.first) + " "
                   + std::to_string(ending.second);
    }
    std::printf("CrashConsistency: %d kills survived, %d files and %lld entries checked, %d rollovers; newest file "
                "at the kill: %s; %.1f s\n",
                kKills, figures.files, figures.entries, figures.rollovers, endings.c_str(), seconds);
    std::fflush(stdout);
    // Without rollovers the kills would have tested one file only.
    EXPECT_GT(figures.rollovers, 0);
}
