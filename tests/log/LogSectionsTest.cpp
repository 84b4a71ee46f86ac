// The section writers of the engine: head, entries and tail of a log file, byte for byte.
#include "support/HandBuiltLog.h"

#include <QDateTime>
#include <QRegularExpression>
#include <QStringList>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>

namespace {

constexpr unsigned long long kAllOnes = ~0ull;

enum class Writer { Section, Head, Body, Tail };
const Writer kWriters[] = {Writer::Section, Writer::Head, Writer::Body, Writer::Tail};
const char* const kWriterNames[] = {"logFormSection", "logFormSectionHead", "logFormSectionBody", "logFormSectionTail"};

// Each writer as its callers call it; the bare section writer is given the body.
bool runWriter(Writer writer, HandBuiltLogEngine& engine, ZarnDataFile* file)
{
    unsigned long long bytes = 0;
    switch (writer) {
    case Writer::Section:
        return engine.logFormSection(file->m_bodyFormat, file->m_bodyVarCount, file->m_bodyVars, file->m_bodyValues,
                                     bytes, true);
    case Writer::Head: return engine.logFormSectionHead();
    case Writer::Body: return engine.logFormSectionBody();
    case Writer::Tail: return engine.logFormSectionTail();
    }
    return false;
}

LogSection sectionOf(Writer writer)
{
    return writer == Writer::Head ? LogSection::Head : writer == Writer::Tail ? LogSection::Tail : LogSection::Body;
}

// Starts the file as establishing does, so that entries are UTF-16; the tests read what follows.
void writeShortHead(HandBuiltLog& log)
{
    log.setSection(LogSection::Head, L"H:");
    ASSERT_TRUE(log.writeHead()) << log.engine().getSelfDX_Code();
}

QString textAfterShortHead(const HandBuiltLog& log)
{
    return log.text().mid(2);
}

// Every time stamp in the text, padded as the sections write it, each checked against the clock.
QStringList timeStampsWithin(const QString& text, const QDateTime& before, const QDateTime& after)
{
    static const QRegularExpression stamp(QStringLiteral(R"((\d+)-(\d\d)-(\d\d) (\d\d):(\d\d):(\d\d)\.(\d\d\d))"));
    QStringList found;
    for (auto matches = stamp.globalMatch(text); matches.hasNext();) {
        const QRegularExpressionMatch m = matches.next();
        const QDateTime when(QDate(m.captured(1).toInt(), m.captured(2).toInt(), m.captured(3).toInt()),
                             QTime(m.captured(4).toInt(), m.captured(5).toInt(), m.captured(6).toInt(),
                                   m.captured(7).toInt()));
        EXPECT_TRUE(when >= before && when <= after) << m.captured(0).toStdString() << " is outside the clock window";
        found << m.captured(0);
    }
    return found;
}

} // namespace

// Head and first tail when the file is established; each entry goes where the tail began and a
// fresh tail follows it. The formatter writes the sections' line feeds as CR LF.
TEST(LogSections, HeadEntriesAndTailAreByteExact)
{
    HandBuiltLog log;
    log.setSection(LogSection::Head, L"<table>\n");
    log.setSection(LogSection::Body,
                   L"<tr><td>%1!d!-%2!02d!-%3!02d! %4!02d!:%5!02d!:%6!02d!.%7!03d!</td><td>%8!s!</td></tr>\n",
                   {Zarn_FORM_VAR_YEAR, Zarn_FORM_VAR_MONTH, Zarn_FORM_VAR_DAY, Zarn_FORM_VAR_HOURS,
                    Zarn_FORM_VAR_MINUTES, Zarn_FORM_VAR_SECONDS, Zarn_FORM_VAR_MILLISECONDS,
                    Zarn_FORM_VAR_SITUATION_DSCRP});
    log.setSection(LogSection::Tail, L"</table>\n");
    const QString head = QStringLiteral("<table>\r\n");
    const QString tail = QStringLiteral("</table>\r\n");
    ASSERT_TRUE(log.writeHead()) << log.engine().getSelfDX_Code();
    ASSERT_TRUE(log.engine().logFormSectionTail()) << log.engine().getSelfDX_Code();
    EXPECT_EQ(log.bytes(), HandBuiltLog::utf16Bytes(head + tail));

    const QDateTime before = QDateTime::currentDateTime();
    QString entries;
    for (const QString& text : {QStringLiteral("first & <b>bold</b>"),
                                QString::fromWCharArray(L"zweite: Gr\u00FC\u00DFe \u20AC \U0001F600")}) {
        ASSERT_TRUE(log.writeEntry(text.toStdWString())) << log.engine().getSelfDX_Code();
        const QStringList stamps = timeStampsWithin(log.text(), before, QDateTime::currentDateTime());
        ASSERT_FALSE(stamps.isEmpty()) << log.text().toStdString();
        entries += QStringLiteral("<tr><td>%1</td><td>%2</td></tr>\r\n").arg(stamps.back(), text);
        EXPECT_EQ(log.bytes(), HandBuiltLog::utf16Bytes(head + entries + tail));
        EXPECT_EQ(log.file()->m_tailPosition, 2 + 2 * (head + entries).size());
    }
    EXPECT_EQ(log.file()->m_logByteCount, static_cast<unsigned long long>(2 + 2 * (head + entries + tail).size()))
        << "a tail counts once";
}

TEST(LogSections, EntryIdInHeadCountsAndInTailDoesNot)
{
    // A head that uses ENTRY_ID takes number 1; a tail shows the next number without taking it.
    HandBuiltLog log;
    log.setSection(LogSection::Head, L"[%1!d!]", {Zarn_FORM_VAR_ENTRY_ID});
    log.setSection(LogSection::Body, L"<%1!d!>", {Zarn_FORM_VAR_ENTRY_ID});
    log.setSection(LogSection::Tail, L"(%1!d!)", {Zarn_FORM_VAR_ENTRY_ID});
    ASSERT_TRUE(log.writeHead());
    ASSERT_TRUE(log.engine().logFormSectionTail());
    ASSERT_TRUE(log.writeEntry(L"x"));
    ASSERT_TRUE(log.writeEntry(L"y"));
    EXPECT_EQ(log.text(), QStringLiteral("[1]<2><3>(4)"));
    EXPECT_EQ(log.data().getSituationsCount(), 3ul);
}

// The body adds 7 characters to the description, and the text and its terminator must fit 1024.
// A longer entry is lost whole; the next one is written as usual.
TEST(LogSections, EntryTooLongForTheScratchBufferIsLostWith178)
{
    HandBuiltLog log;
    log.setSection(LogSection::Head, L"<html>\n");
    log.setSection(LogSection::Body, L"<p>%1!s!</p>", {Zarn_FORM_VAR_SITUATION_DSCRP});
    log.setSection(LogSection::Tail, L"</html>\n");
    ASSERT_TRUE(log.writeHead() && log.engine().logFormSectionTail());
    const QString longest(1016, QLatin1Char('d'));
    ASSERT_TRUE(log.writeEntry(longest.toStdWString())) << log.engine().getSelfDX_Code();
    const QByteArray before = log.bytes();
    const unsigned long long counted = log.file()->m_logByteCount;

    EXPECT_FALSE(log.writeEntry(std::wstring(1017, L'd')));
    EXPECT_EQ(log.engine().getSelfDX_Code(), 178);
    EXPECT_EQ(log.bytes(), before) << "nothing of a lost entry reaches the file";
    EXPECT_EQ(log.file()->m_logByteCount, counted);
    log.engine().forgetSelfDX_Code();
    ASSERT_TRUE(log.writeEntry(L"next"));
    EXPECT_EQ(log.text(), QStringLiteral("<html>\r\n<p>%1</p><p>next</p></html>\r\n").arg(longest));
}

TEST(LogSections, FormattedLengthThatDisagreesWritesNothingWith160)
{
    // A character insert of 0 ends the text early while the formatter counts on past it.
    HandBuiltLog log;
    writeShortHead(log);
    log.setSection(LogSection::Body, L"<%1!c!>", {Zarn_FORM_VAR_SITUATION_ID});
    log.engine().recordSituationID(0);
    const QByteArray before = log.bytes();
    const int position = log.file()->m_tailPosition;
    EXPECT_FALSE(log.engine().logFormSectionBody());
    EXPECT_EQ(log.engine().getSelfDX_Code(), 160);
    EXPECT_EQ(log.bytes(), before);
    EXPECT_EQ(log.file()->m_tailPosition, position);
}

TEST(LogSections, EmptySectionIsQuietUnlessItHasVariables)
{
    struct Row { Writer writer; const wchar_t* format; bool withVariable; int code; };
    const Row rows[] = {
        {Writer::Section, nullptr, false, 0}, {Writer::Section, L"", false, 0}, {Writer::Head, nullptr, false, 0},
        {Writer::Head, L"", false, 0},        {Writer::Body, nullptr, false, 0}, {Writer::Tail, L"", false, 0},
        {Writer::Section, L"", true, 184},    {Writer::Head, nullptr, true, 167}, {Writer::Body, L"", true, 155},
        {Writer::Tail, nullptr, true, 198},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::Message() << kWriterNames[static_cast<int>(row.writer)] << ", variable "
                                          << row.withVariable);
        HandBuiltLog log;
        log.setSection(sectionOf(row.writer), row.format,
                       row.withVariable ? std::vector<Zarn_FORM_VAR>{Zarn_FORM_VAR_DAY} : std::vector<Zarn_FORM_VAR>{});
        EXPECT_EQ(runWriter(row.writer, log.engine(), log.file()), row.code == 0);
        EXPECT_EQ(log.engine().getSelfDX_Code(), row.code);
        EXPECT_EQ(log.bytes().size(), 0);
        EXPECT_EQ(log.file()->m_logByteCount, 0u);
        EXPECT_EQ(log.file()->m_tailPosition, 0);
        EXPECT_TRUE(log.file()->m_tailCountsBytes);
    }
}

TEST(LogSections, ByteCountSaturatesAtAllOnes)
{
    struct Row { unsigned long long start; unsigned long long expected; };
    // The entry "abc" is 6 bytes.
    for (const Row& row : {Row{10, 16}, Row{kAllOnes - 3, kAllOnes}, Row{kAllOnes - 6, kAllOnes}, Row{kAllOnes, kAllOnes}}) {
        SCOPED_TRACE(::testing::Message() << "from " << row.start);
        HandBuiltLog log;
        writeShortHead(log);
        log.setSection(LogSection::Body, L"%1!s!", {Zarn_FORM_VAR_SITUATION_DSCRP});
        log.file()->m_logByteCount = row.start;
        const int position = log.file()->m_tailPosition;
        ASSERT_TRUE(log.writeEntry(L"abc"));
        EXPECT_EQ(log.file()->m_logByteCount, row.expected);
        EXPECT_EQ(log.file()->m_tailPosition, position + 6);
    }
}

TEST(LogSections, VariablesTakeTheirValues)
{
    struct Row { const char* name; Zarn_FORM_VAR var; int local, remote; unsigned long countBefore;
                 const char* expected; unsigned long countAfter; };
    const Row rows[] = {
        {"local situation id when no remote one", Zarn_FORM_VAR_SITUATION_ID, 7, 0, 0, "7", 0},
        {"remote situation id when set", Zarn_FORM_VAR_SITUATION_ID, 7, 42, 0, "42", 0},
        {"negative local id", Zarn_FORM_VAR_SITUATION_ID, -5, 0, 0, "-5", 0},
        {"a tag without a value", Zarn_FORM_VAR_COMPANY_WEBSITE, 0, 0, 0, "", 0},
        {"a recorded tag", Zarn_FORM_VAR_SUITE_NAME, 0, 0, 0, "Suite", 0},
        {"the colour alone counts no entry", Zarn_FORM_VAR_ENTRY_COLOR, 0, 0, 7, "F7F7FF", 7},
        {"the entry id counts an entry", Zarn_FORM_VAR_ENTRY_ID, 0, 0, 41, "42", 42},
        {"the entry id at the top", Zarn_FORM_VAR_ENTRY_ID, 0, 0, 0xFFFFFFFFul, "0", 0xFFFFFFFFul},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        HandBuiltLog log;
        writeShortHead(log);
        log.data().recordTag(L"Suite", Zarn_FORM_TAG_SUITE_NAME);
        log.engine().recordSituationID(row.local);
        log.engine().recordSituationID_Remote(row.remote);
        log.data().setSituationsCount(row.countBefore);
        const bool numeric = row.var != Zarn_FORM_VAR_COMPANY_WEBSITE && row.var != Zarn_FORM_VAR_SUITE_NAME;
        const wchar_t* const format = row.var == Zarn_FORM_VAR_ENTRY_COLOR ? L"[%1!X!]" : numeric ? L"[%1!d!]" : L"[%1!s!]";
        log.setSection(LogSection::Body, format, {row.var});
        ASSERT_TRUE(log.engine().logFormSectionBody()) << log.engine().getSelfDX_Code();
        EXPECT_EQ(textAfterShortHead(log), QStringLiteral("[%1]").arg(QLatin1String(row.expected)));
        EXPECT_EQ(log.data().getSituationsCount(), row.countAfter);
    }
}

TEST(LogSections, InjectedTextReachesTheHeadButNoBody)
{
    // The body is written with allocation forbidden, so its injector variables come out empty.
    HandBuiltLog log;
    const QString app = QStringLiteral("<tr><td>app</td></tr>");
    const QString vars = QString::fromWCharArray(L"<tr><td>PATH=/\u00FCber</td></tr>");
    log.setInjectors({&app, nullptr, &vars});
    std::vector<Zarn_FORM_VAR> injectors = {Zarn_FORM_VAR_SYS_INFO_ENV_APP, Zarn_FORM_VAR_SYS_INFO_ENV_OP,
                                            Zarn_FORM_VAR_SYS_INFO_VARS_ENV};
    log.setSection(LogSection::Head, L"<h>%1!s!|%2!s!|%3!s!</h>", injectors);
    injectors.push_back(Zarn_FORM_VAR_SITUATION_DSCRP);
    log.setSection(LogSection::Body, L"<b>%1!s!|%2!s!|%3!s!|%4!s!</b>", injectors);
    ASSERT_TRUE(log.writeHead()) << log.engine().getSelfDX_Code();
    ASSERT_TRUE(log.writeEntry(L"entry"));
    EXPECT_EQ(log.text(), QStringLiteral("<h>%1||%2</h><b>|||entry</b>").arg(app, vars));
}

TEST(LogSections, GuardsRaiseTheirCodes)
{
    using Arrange = std::function<void(HandBuiltLog&, HandBuiltLogEngine&)>;
    const auto everySection = [](const wchar_t* format, Zarn_FORM_VAR var) {
        return [format, var](HandBuiltLog& log, HandBuiltLogEngine&) {
            for (LogSection section : {LogSection::Head, LogSection::Body, LogSection::Tail})
                log.setSection(section, format, {var});
        };
    };
    struct Row { const char* name; Arrange arrange; int codes[4]; }; // codes in the order of kWriters
    const Row rows[] = {
        {"not native", [](HandBuiltLog& log, HandBuiltLogEngine&) { log.data().setNonnativeInstantiatorID(5); },
         {177, 171, 158, 199}},
        {"no log stream",
         [](HandBuiltLog& log, HandBuiltLogEngine&) {
             delete log.file()->m_logStream->device();
             delete log.file()->m_logStream;
             log.file()->m_logStream = nullptr;
         },
         {120, 120, 120, 120}},
        {"lock refused", [](HandBuiltLog&, HandBuiltLogEngine& engine) { engine.m_refuseEnter = true; }, {262, 262, 262, 262}},
        {"lock not left", [](HandBuiltLog&, HandBuiltLogEngine& engine) { engine.m_refuseLeave = true; }, {263, 263, 263, 263}},
        {"data set holds a code", [](HandBuiltLog& log, HandBuiltLogEngine&) { log.data().setSelfDX_Code(77); },
         {77, 77, 77, 77}},
        {"variable above 30", everySection(L"%1!d!", static_cast<Zarn_FORM_VAR>(31)), {201, 201, 201, 201}},
        {"negative variable", everySection(L"%1!d!", static_cast<Zarn_FORM_VAR>(-1)), {201, 201, 201, 201}},
        {"position past the start", [](HandBuiltLog& log, HandBuiltLogEngine&) { log.file()->m_tailPosition = 4; },
         {0, 165, 0, 0}},
        {"negative position", [](HandBuiltLog& log, HandBuiltLogEngine&) { log.file()->m_tailPosition = -2; },
         {0, 169, 157, 0}},
    };
    for (const Row& row : rows) {
        for (int w = 0; w < 4; ++w) {
            SCOPED_TRACE(::testing::Message() << row.name << ", " << kWriterNames[w]);
            HandBuiltLog log;
            for (LogSection section : {LogSection::Head, LogSection::Body, LogSection::Tail})
                log.setSection(section, L"text");
            HandBuiltLogEngine& engine = log.engine();
            row.arrange(log, engine);
            EXPECT_EQ(runWriter(kWriters[w], engine, log.file()), row.codes[w] == 0);
            EXPECT_EQ(engine.getSelfDX_Code(), row.codes[w]);
            log.data().setSelfDX_Code(0);
            if (row.codes[w] != 0 && row.codes[w] != 263 && log.file()->m_logStream != nullptr) {
                // A head puts its mark down before it fills its section.
                EXPECT_EQ(log.bytes().size(), kWriters[w] == Writer::Head && row.codes[w] == 201 ? 2 : 0);
            }
        }
    }
    for (int w = 0; w < 4; ++w) {
        SCOPED_TRACE(::testing::Message() << "no data set, " << kWriterNames[w]);
        HandBuiltLogEngine engine;
        ZarnDataFile file;
        EXPECT_FALSE(runWriter(kWriters[w], engine, &file));
        EXPECT_EQ(engine.getSelfDX_Code(), 265);
    }
}

TEST(LogSectionsConcurrency, EntriesOfManyThreadsStayWholeAndInOrder)
{
    constexpr int kThreads = 4;
    constexpr int kEntriesPerThread = 25;
    HandBuiltLog log;
    log.setSection(LogSection::Head, L"<table>\n");
    log.setSection(LogSection::Body, L"<tr bgcolor=#%1!X!><td>%2!d!</td><td>%3!s!</td></tr>\n",
                   {Zarn_FORM_VAR_ENTRY_COLOR, Zarn_FORM_VAR_ENTRY_ID, Zarn_FORM_VAR_SITUATION_DSCRP});
    log.setSection(LogSection::Tail, L"</table>\n");
    ASSERT_TRUE(log.writeHead() && log.engine().logFormSectionTail());

    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&log, &failures, t] {
            // Each thread has an engine of its own; they meet at the data set's lock and its file.
            HandBuiltLogEngine* const engine = log.data().engine();
            for (int i = 0; i < kEntriesPerThread; ++i) {
                engine->setDescriptionForLogFile(L"thread " + std::to_wstring(t) + L" entry " + std::to_wstring(i));
                log.data().enterCriticalSection();
                if (!engine->logFormSectionBody() || !engine->logFormSectionTail())
                    ++failures;
                log.data().leaveCriticalSection();
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    ASSERT_EQ(failures.load(), 0);

    const QStringList lines = log.text().split(QStringLiteral("\r\n"), Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), kThreads * kEntriesPerThread + 2);
    EXPECT_EQ(lines.front(), QStringLiteral("<table>"));
    EXPECT_EQ(lines.back(), QStringLiteral("</table>"));
    static const QRegularExpression entry(
        QStringLiteral(R"(^<tr bgcolor=#(F0F0FF|F7F7FF)><td>(\d+)</td><td>thread \d entry \d+</td></tr>$)"));
    for (int i = 1; i + 1 < lines.size(); ++i) {
        const QRegularExpressionMatch m = entry.match(lines[i]);
        ASSERT_TRUE(m.hasMatch()) << lines[i].toStdString();
        EXPECT_EQ(m.captured(2).toInt(), i);
        EXPECT_EQ(m.captured(1), i % 2 == 1 ? QStringLiteral("F0F0FF") : QStringLiteral("F7F7FF"));
    }
}
