#include "monitor/ZarnData.h"
#include "monitor/ZarnDataForThread.h"

#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QFileInfo>
#include <QString>
#include <QTemporaryDir>
#include <QTextStream>

#include <atomic>
#include <cwchar>
#include <string>
#include <thread>
#include <vector>

namespace {

int acceptingProxy(unsigned int, i64, int, const wchar_t*, const wchar_t*)
{
    return 1;
}

// A data set whose stages the tests control: the form it learns, a head failure, the successor's
// name, a refused lock or close.
class LogData : public ZarnData
{
public:
    explicit LogData(i64 instantiatorID = 0) : ZarnData(instantiatorID)
    {
        setCharSetExternal(2);
        m_proxyRespondToSituation = &acceptingProxy; // a nonnative instantiator's log needs one
    }
    ~LogData() override
    {
        if (m_fileLog.m_headFormat == m_head) { // still ours: no form stage freed it
            delete[] m_head;
            m_fileLog.m_headFormat = nullptr;
        }
    }
    using ZarnData::closeLogFile;

    std::vector<unsigned long> formMasks;
    bool installHead = false;
    bool headIsBuiltIn = false;
    int failHeadWith = 0; // held by the engine once the log is open, so the first head fails
    int headFrees = 0;
    std::vector<std::wstring> successors; // handed out in order; then the default composes one
    size_t successorsTaken = 0;
    bool successorFails = false;
    int successorThrows = 0;
    bool refuseLock = false;
    bool refuseClose = false;

    bool openFile(wchar_t** nameSlot, QTextStream** streamSlot, wchar_t* const name, int openMode) override
    {
        const bool opened = ZarnData::openFile(nameSlot, streamSlot, name, openMode);
        if (opened && streamSlot == &m_fileLog.m_logStream && failHeadWith != 0)
            findDataForCurrentThread()->setSelfDX_Code(failHeadWith);
        return opened;
    }
    bool closeFile(QTextStream*& stream, const wchar_t* name) override
    {
        return !refuseClose && ZarnData::closeFile(stream, name);
    }

protected:
    bool obtainLogFileFormData(unsigned long mask) override
    {
        formMasks.push_back(mask);
        freeLogFileFormData();
        learnLogFileFormVarNames();
        if (installHead) {
            m_head = new wchar_t[5]{L'h', L'e', L'a', L'd', L'\0'};
            m_fileLog.m_headFormat = m_head;
            m_fileLog.m_formIsBuiltIn = headIsBuiltIn;
        }
        return isSelfSatisfied();
    }
    void freeLogFileFormSectionHeadData() override
    {
        ++headFrees;
        ZarnData::freeLogFileFormSectionHeadData();
    }
    bool learnSuccessorLogFileName(wchar_t* buffer, size_t size) override
    {
        if (successorThrows != 0)
            throw successorThrows;
        if (successorFails)
            return false;
        if (successorsTaken == successors.size())
            return ZarnData::learnSuccessorLogFileName(buffer, size);
        std::wcsncpy(buffer, successors[successorsTaken++].c_str(), size);
        return true;
    }
    bool enterCriticalSection() const override { return !refuseLock && ZarnData::enterCriticalSection(); }

private:
    wchar_t* m_head = nullptr;
};

class ZarnDataLogFile : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(dir.isValid()); }
    std::wstring path(const char* name) const { return (dir.path() + QLatin1Char('/') + name).toStdWString(); }
    // A successor's name that the process has not used yet: a replacement won't repeat the last one.
    std::wstring freshSuccessor() { return path(("next" + std::to_string(++successorsNamed) + ".html").c_str()); }
    static qint64 sizeOf(const std::wstring& file) { return QFileInfo(QString::fromStdWString(file)).size(); }
    static bool exists(const std::wstring& file) { return QFileInfo::exists(QString::fromStdWString(file)); }
    // Records `log` (and `form`) and establishes it.
    static void establish(LogData& data, std::wstring log, const wchar_t* form = nullptr)
    {
        ASSERT_TRUE(data.recordLogFileNomenclature(&log[0], form, Zarn_LOG_HTML));
        ASSERT_TRUE(data.establishLogFile(true)) << data.getSelfDX_Code();
    }
    // A place where no file can be made, whoever runs the test: a "directory" that is really a file.
    std::wstring unwritablePath() const
    {
        QFile plain(dir.path() + QStringLiteral("/plain"));
        plain.open(QIODevice::WriteOnly);
        return (plain.fileName() + QStringLiteral("/log.html")).toStdWString();
    }

    QTemporaryDir dir;
    int successorsNamed = 0;
};

} // namespace

TEST_F(ZarnDataLogFile, OpenFileRefusesWithItsCodesAndTracesInThreePieces)
{
    struct Row { const char* name; std::wstring file; bool slotInUse; int mode; int heldCode; int code; };
    const Row rows[] = {
        {"unwritable directory", unwritablePath(), false, 3, 0, 45},
        {"missing form file", path("missing.html"), false, 1, 0, 45},
        {"stream slot in use", path("log.html"), true, 3, 0, 43},
        {"empty name", L"", false, 3, 0, 43},
        {"code already held", path("held.html"), false, 3, 7, 7},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        LogData data;
        data.setSelfDX_Code(row.heldCode);
        QString text;
        QTextStream inUse(&text);
        QTextStream* stream = row.slotInUse ? &inUse : nullptr;
        wchar_t* nameSlot = nullptr;
        std::wstring file = row.file;
        TraceCapture capture;
        EXPECT_FALSE(data.openFile(&nameSlot, &stream, &file[0], row.mode));
        EXPECT_EQ(data.getSelfDX_Code(), row.code);
        EXPECT_EQ(stream, row.slotInUse ? &inUse : nullptr);
        EXPECT_EQ(nameSlot, nullptr) << "a name copied by the failed call is deleted";
        EXPECT_FALSE(exists(row.file));
        std::vector<std::wstring> expected = {L"ZarnData::openFile () caught exception #" + std::to_wstring(row.code)};
        if (!row.file.empty())
            expected.push_back(L" when trying to open file " + row.file);
        expected.push_back(L".");
        EXPECT_EQ(capture.lines(), expected);
    }
}

// The log opens read-write without truncation and writes nothing of its own: with no head in the
// form, a new file stays at 0 bytes (no byte-order mark) and an old one keeps its bytes. A nonnative
// instantiator learns the body only and opens nothing.
TEST_F(ZarnDataLogFile, EstablishingWithoutAHeadLeavesTheFileAsItWas)
{
    struct Row { i64 instantiator; QByteArray before; unsigned long mask; };
    for (const Row& row : {Row{0, "", 7}, Row{0, "old bytes", 7}, Row{77, "", 2}}) {
        SCOPED_TRACE(row.before.constData() + std::to_string(row.instantiator));
        const std::wstring log = path("log.html");
        QFile::remove(QString::fromStdWString(log));
        if (!row.before.isEmpty()) {
            QFile old(QString::fromStdWString(log));
            ASSERT_TRUE(old.open(QIODevice::WriteOnly));
            old.write(row.before);
        }
        LogData data(row.instantiator);
        establish(data, log);
        EXPECT_EQ(data.formMasks, std::vector<unsigned long>{row.mask});
        EXPECT_EQ(data.getFileLog()->m_logStream != nullptr, row.instantiator == 0);
        EXPECT_EQ(data.closeLogFile(), row.instantiator == 0);
        EXPECT_EQ(data.getFileLog()->m_logStream, nullptr);
        EXPECT_EQ(exists(log), row.instantiator == 0);
        EXPECT_EQ(sizeOf(log), row.before.size());
        EXPECT_FALSE(data.isSafeToAllocateMemory());
    }
}

// The counters are reset before the open, so a file that won't open isn't retried at every situation.
TEST_F(ZarnDataLogFile, FailedOpenResetsTheCountersKeepsTheNameAndTraces)
{
    LogData data;
    std::wstring log = unwritablePath();
    ASSERT_TRUE(data.recordLogFileNomenclature(&log[0], nullptr, Zarn_LOG_HTML));
    data.incrementSituationsCount(5);
    data.getFileLog()->m_logByteCount = 123;
    data.getFileLog()->m_tailCountsBytes = false;
    TraceCapture capture;
    EXPECT_FALSE(data.establishLogFile(true));
    EXPECT_EQ(data.getSelfDX_Code(), 45);
    EXPECT_TRUE(capture.contains(L"ZarnData::establishLogFile (true) caught exception #45."));
    EXPECT_STREQ(data.getFileLogName(), log.c_str());
    EXPECT_EQ(data.getSituationsCount(), 0u);
    EXPECT_EQ(data.getFileLog()->m_logByteCount, 0u);
    EXPECT_TRUE(data.getFileLog()->m_tailCountsBytes);
}

TEST_F(ZarnDataLogFile, AHeadThatFailsFromAFormFileGivesWayToTheBuiltInForm)
{
    struct Row { bool builtIn; int code; int headFrees; };
    for (const Row& row : {Row{false, 0, 1}, Row{true, 165, 2}}) {
        SCOPED_TRACE(row.builtIn);
        LogData data;
        data.installHead = true;
        data.headIsBuiltIn = row.builtIn;
        data.failHeadWith = 165;
        std::wstring log = path(row.builtIn ? "builtin.html" : "file.html");
        ASSERT_TRUE(data.recordLogFileNomenclature(&log[0], nullptr, Zarn_LOG_HTML));
        TraceCapture capture;
        EXPECT_EQ(data.establishLogFile(true), row.code == 0);
        EXPECT_EQ(data.getSelfDX_Code(), row.code);
        EXPECT_EQ(data.headFrees, row.headFrees);
        EXPECT_EQ(data.getFileLog()->m_logStream != nullptr, row.code == 0) << "a failed establishment closes";
        EXPECT_EQ(capture.contains(L"ZarnData::establishLogFile (true) caught exception #165."), row.code != 0);
        EXPECT_FALSE(data.isSafeToAllocateMemory());
    }
}

TEST_F(ZarnDataLogFile, ReplacementRefusesANameItCannotUse)
{
    struct Row
    {
        const char* name;
        std::wstring successor;
        bool fails;
        int throws;
        bool refuseClose;
        bool refuseLock;
        i64 instantiator;
        int code;
        const wchar_t* trace;
    };
    const Row rows[] = {
        {"blank name", L" \t ", false, 0, false, false, 0, 132, L"[1] caught exception #132."},
        {"form name in other case", path("FORM.HTML"), false, 0, false, false, 0, 135, L"[1] caught exception #135."},
        {"old file won't close", freshSuccessor(), false, 0, true, false, 0, 119, L"[1] caught exception #119."},
        {"no path composed", L"", false, 0, false, false, 0, 140, L"[2] caught exception #140/0."},
        {"no successor", L"", true, 0, false, false, 0, 142, L"[2] caught exception #142/0."},
        {"successor raised 7", L"", false, 7, false, false, 0, 142, L"[2] caught exception #142/7."},
        {"lock refused", freshSuccessor(), false, 0, false, true, 0, 262, L"[2] caught exception #262/0."},
        {"nonnative", freshSuccessor(), false, 0, false, false, 77, 141, L"[2] caught exception #141/0."},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        LogData data(row.instantiator);
        const std::wstring log = path("log.html");
        const std::wstring form = path("form.html");
        establish(data, log, form.c_str());
        data.successors = {row.successor};
        data.successorFails = row.fails;
        data.successorThrows = row.throws;
        data.refuseClose = row.refuseClose;
        data.refuseLock = row.refuseLock;
        TraceCapture capture;
        EXPECT_FALSE(data.reestablishLogFile(false));
        EXPECT_EQ(data.getSelfDX_Code(), row.code);
        EXPECT_TRUE(capture.contains(std::wstring(L"ZarnData::reestablishLogFile () ") + row.trace));
        EXPECT_STREQ(data.getFileLogName(), log.c_str()) << "the old file stays recorded";
        data.refuseClose = false;
        data.refuseLock = false;
    }
}

// Forcing is deliberately no replacement of a file at its limit; unforced, a file is always replaced.
// A form name stored empty counts as a change: it is dropped and the form learned anew.
TEST_F(ZarnDataLogFile, ReplacementTakesTheSuccessorUnlessForcedAtTheLimit)
{
    struct Row { const char* name; bool force; u64 belowLimit; bool emptyForm; bool replaced; };
    const Row rows[] = {
        {"unforced at the limit", false, 0, false, true},
        {"forced below the limit", true, 1, false, true},
        {"forced at the limit", true, 0, false, false},
        {"form name stored empty", false, 0, true, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        LogData data;
        const std::wstring log = path("log.html");
        const std::wstring form = row.emptyForm ? L"" : path("form.html");
        establish(data, log, form.c_str());
        const std::wstring next = freshSuccessor();
        data.successors = {next};
        data.getFileLog()->m_logByteCount = data.getLogFileByteCountLimit() - row.belowLimit;
        EXPECT_TRUE(data.reestablishLogFile(row.force)) << data.getSelfDX_Code();
        EXPECT_EQ(data.successorsTaken, row.replaced ? 1u : 0u);
        EXPECT_STREQ(data.getFileLogName(), (row.replaced ? next : log).c_str());
        EXPECT_EQ(exists(next), row.replaced);
        EXPECT_EQ(data.getFileLog()->m_logByteCount, row.replaced ? 0u : data.getLogFileByteCountLimit());
        EXPECT_EQ(data.formMasks.size(), row.emptyForm ? 2u : 1u);
        EXPECT_EQ(data.getFileLog()->m_formName == nullptr, row.emptyForm);
    }
}

TEST_F(ZarnDataLogFile, LimitKeepsItsBoundsAndReplacesAFileThatAlreadyReachedIt)
{
    struct Row { u64 limit; u64 count; bool successorFails; int code; bool replaced; };
    const Row rows[] = {
        {1048576, 0, false, 0, false},       {78643200, 0, false, 0, false},    {1048575, 0, false, 117, false},
        {78643201, 0, false, 116, false},    {1048576, 1048576, false, 0, true}, {1048576, 1048575, false, 0, false},
        {1048576, 1048576, true, 118, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::to_string(row.limit) + "/" + std::to_string(row.count));
        LogData data;
        const std::wstring log = path("log.html");
        establish(data, log);
        const std::wstring next = freshSuccessor();
        data.successors = {next};
        data.successorFails = row.successorFails;
        data.getFileLog()->m_logByteCount = row.count;
        TraceCapture capture;
        unsigned long long previous = 1;
        EXPECT_EQ(data.setLogFileByteCountLimit(row.limit, previous), row.code == 0);
        EXPECT_EQ(data.getSelfDX_Code(), row.code);
        EXPECT_EQ(previous, row.code == 0 ? ZarnData::kDefaultLogFileByteCountLimit : 0u);
        EXPECT_EQ(data.getLogFileByteCountLimit(), row.code == 0 ? row.limit : ZarnData::kDefaultLogFileByteCountLimit);
        EXPECT_STREQ(data.getFileLogName(), (row.replaced ? next : log).c_str());
        EXPECT_EQ(capture.contains(L"ZarnData::setLogFileByteCountLimit () caught exception #"
                                   + std::to_wstring(row.code) + L"."),
                  row.code != 0);
    }
}

TEST_F(ZarnDataLogFile, FileLogNameNeedsRoomForItsTerminator)
{
    LogData data;
    const std::wstring log = path("log.html");
    establish(data, log);
    std::vector<wchar_t> buffer(log.size() + 2, L'?');
    EXPECT_FALSE(data.getFileLogName(buffer.data(), log.size()));
    EXPECT_EQ(data.getSelfDX_Code(), 64);
    EXPECT_EQ(buffer[0], L'\0');
    data.setSelfDX_Code(0);
    EXPECT_TRUE(data.getFileLogName(buffer.data(), log.size() + 1));
    EXPECT_EQ(std::wstring(buffer.data()), log);
}

// Readers of the name on other threads see one whole name or another while the file is replaced.
TEST(ZarnDataLogFileConcurrency, NameReadersSeeWholeNamesDuringReplacement)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const std::wstring names[] = {(dir.path() + QStringLiteral("/a.html")).toStdWString(),
                                  (dir.path() + QStringLiteral("/b.html")).toStdWString()};
    LogData data;
    std::wstring first = names[0];
    ASSERT_TRUE(data.recordLogFileNomenclature(&first[0], nullptr, Zarn_LOG_HTML));
    ASSERT_TRUE(data.establishLogFile(true));
    for (int round = 1; round <= 20; ++round)
        data.successors.push_back(names[round % 2]);

    std::atomic<bool> done{false};
    std::atomic<int> torn{0};
    std::atomic<int> reads{0};
    std::vector<std::thread> readers;
    for (int reader = 0; reader < 2; ++reader) {
        readers.emplace_back([&] {
            wchar_t buffer[MAX_PATH];
            while (!done.load()) {
                if (!data.getFileLogName(buffer, MAX_PATH) || (buffer != names[0] && buffer != names[1]))
                    ++torn;
                ++reads;
            }
        });
    }
    while (reads.load() == 0)
        std::this_thread::yield();
    for (int round = 0; round < 20; ++round)
        EXPECT_TRUE(data.reestablishLogFile(false)) << data.getSelfDX_Code();
    done = true;
    for (std::thread& reader : readers)
        reader.join();
    EXPECT_EQ(torn.load(), 0);
    EXPECT_GT(reads.load(), 0);
    EXPECT_STREQ(data.getFileLogName(), names[0].c_str());
}
