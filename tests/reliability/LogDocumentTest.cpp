// The reader of log files that the reliability tests trust: documents built here byte by byte, whole,
// cut between two writes, cut at a page boundary, and torn or doubled in the ways a faulty writer
// would leave them.
#include "LogDocument.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <functional>
#include <string>

namespace {

const QString kHead = QStringLiteral(
    "<html><body>\r\n<!-- ProductVersion=4.1 FileVersion=4.1.0.7 -->2024-05-02 14:03:07.045 The log template file "
    "is inaccessible, corrupt, or perhaps too large to format; will use default layout instead.<br>\r\n");
const QString kTail = QStringLiteral("</body><html>\r\n");

QString entry(int situationID, const QString& description)
{
    return QStringLiteral("<!-- SituationID=%1 -->2024-05-02 14:03:07.%2 %3<br>\r\n")
        .arg(situationID)
        .arg(situationID % 1000, 3, 10, QLatin1Char('0'))
        .arg(description);
}

QByteArray utf16(const QString& text)
{
    QByteArray bytes("\xFF\xFE", 2);
    for (const QChar c : text) {
        bytes.append(static_cast<char>(c.unicode() & 0xFF));
        bytes.append(static_cast<char>(c.unicode() >> 8));
    }
    return bytes;
}

long long pageSize()
{
    return sysconf(_SC_PAGESIZE);
}

// Head and entries that fill the first page but for `spare` characters, so that the next write
// crosses into the second page after that many characters.
QString firstPageBut(int spare)
{
    const int fill = static_cast<int>((pageSize() - 2) / 2) - kHead.size() - entry(1, QString()).size() - spare;
    return kHead + entry(1, QString(fill, QLatin1Char('f')));
}

// What a write of `section` at the end of `before` leaves when it stops at the next page boundary,
// `spare` characters in: the piece written, then whatever the previous text had beyond it.
QByteArray cutAtPage(int spare, const QString& section, const QString& previousEnd)
{
    const QString before = firstPageBut(spare);
    QString after = previousEnd.mid(spare);
    return utf16(before + section.left(spare) + after);
}

struct DocumentRow
{
    const char* name;
    std::function<QByteArray()> bytes;
    bool problem;
    LogDocument::Ending ending; // when there is no problem
    int entries;                // when there is no problem
};

const QString kFirst = QStringLiteral("Kind one first");
const QString kSecond = QStringLiteral("This log file is #2 in a series that began with /tmp/log/first.html.");

} // namespace

TEST(LogDocument, TellsWholeCutTornAndDoubledFilesApart)
{
    using Ending = LogDocument::Ending;
    const QString long_ = QString(300, QLatin1Char('x'));
    const DocumentRow rows[] = {
        {"whole with two entries", [&] { return utf16(kHead + entry(3005, kFirst) + entry(10006, kSecond) + kTail); },
         false, Ending::Tail, 2},
        {"whole without entries", [&] { return utf16(kHead + kTail); }, false, Ending::Tail, 0},
        {"nothing written", [] { return QByteArray(); }, false, Ending::Empty, 0},
        {"the mark alone", [] { return QByteArray("\xFF\xFE", 2); }, false, Ending::Mark, 0},
        {"the head alone", [&] { return utf16(kHead); }, false, Ending::Head, 0},
        {"an entry whose tail has not come", [&] { return utf16(kHead + entry(3005, kFirst)); }, false, Ending::Entry,
         1},
        {"an entry cut where the page ends", [&] { return cutAtPage(40, entry(3005, long_), QString()); }, false,
         Ending::CutAtPage, 1},
        {"an entry cut at the page, the old tail's end behind it",
         [&] { return cutAtPage(6, entry(3005, long_), kTail); }, false, Ending::CutAtPage, 1},
        {"a tail cut where the page ends", [&] { return cutAtPage(7, kTail, QString()); }, false, Ending::CutAtPage, 1},
        {"an odd byte count", [&] { return utf16(kHead + kTail) + QByteArray(1, 'x'); }, true, Ending::Empty, 0},
        {"no byte-order mark", [&] { return utf16(kHead + kTail).mid(2); }, true, Ending::Empty, 0},
        {"big-endian mark", [&] { return QByteArray("\xFE\xFF", 2) + utf16(kHead + kTail).mid(2); }, true,
         Ending::Empty, 0},
        {"a lone surrogate", [&] { return utf16(kHead + QChar(0xD800) + kTail); }, true, Ending::Empty, 0},
        {"a head cut short", [&] { return utf16(kHead.left(kHead.size() - 3)); }, true, Ending::Empty, 0},
        {"two tails", [&] { return utf16(kHead + entry(3005, kFirst) + kTail + kTail); }, true, Ending::Empty, 0},
        {"an entry after the tail", [&] { return utf16(kHead + kTail + entry(3005, kFirst) + kTail); }, true,
         Ending::Empty, 0},
        {"text after the tail", [&] { return utf16(kHead + kTail + QStringLiteral("ml>\r\n")); }, true, Ending::Empty, 0},
        {"an entry without its end, then another",
         [&] { return utf16(kHead + entry(3005, kFirst).left(40) + entry(3005, kFirst) + kTail); }, true,
         Ending::Empty, 0},
        {"an entry torn before its end",
         [&] { return utf16(kHead + entry(3005, kFirst) + entry(3005, kFirst).left(50)); }, true, Ending::Empty, 0},
        {"an entry torn, the old tail's end behind it",
         [&] { return utf16(kHead + entry(3005, kFirst) + entry(3005, kFirst).left(5) + kTail.mid(5)); }, true,
         Ending::Empty, 0},
        {"a cut at the page with foreign text behind it",
         [&] { return cutAtPage(6, entry(3005, long_), QStringLiteral("xxxxxxxxxxxxxxx")); }, true, Ending::Empty,
         0},
        {"an entry cut at the page without the old tail's end",
         [&] { return cutAtPage(6, entry(3005, long_), QString()); }, true, Ending::Empty, 0},
        {"a tail cut at the page with text behind it",
         [&] { return cutAtPage(7, kTail, QStringLiteral("xxxxxxxxxxxxxxx")); }, true, Ending::Empty, 0},
        {"a cut one character before the page",
         [&] { return cutAtPage(41, entry(3005, long_), QString()).chopped(2); }, true, Ending::Empty, 0},
        {"a tail without its line end", [&] { return utf16(kHead + kTail.chopped(2)); }, true, Ending::Empty, 0},
        {"an entry with a line break in its text",
         [&] { return utf16(kHead + entry(3005, QStringLiteral("one\r\ntwo")) + kTail); }, true, Ending::Empty, 0},
    };
    for (const DocumentRow& row : rows) {
        SCOPED_TRACE(row.name);
        const LogDocument document = LogDocument::parse(row.bytes());
        EXPECT_EQ(document.problem().isEmpty(), !row.problem) << document.problem().toStdString();
        if (row.problem)
            continue;
        EXPECT_EQ(document.ending(), row.ending) << endingName(document.ending());
        EXPECT_EQ(document.isWhole(), row.ending == Ending::Tail);
        EXPECT_EQ(static_cast<int>(document.entries().size()), row.entries);
    }
}

TEST(LogDocument, GivesEachEntryItsSituationTextAndSize)
{
    const QString first = entry(3005, kFirst);
    const QString second = entry(10006, kSecond);
    const QByteArray bytes = utf16(kHead + first + second + kTail);
    const LogDocument document = LogDocument::parse(bytes);
    ASSERT_TRUE(document.isWhole()) << document.problem().toStdString();
    ASSERT_EQ(document.entries().size(), 2u);
    EXPECT_EQ(document.entries()[0].situationID, 3005);
    EXPECT_EQ(document.entries()[0].description, kFirst);
    EXPECT_EQ(document.entries()[0].byteCount, 2LL * first.size());
    EXPECT_EQ(document.entries()[1].situationID, 10006);
    EXPECT_EQ(document.entries()[1].description, kSecond);
    EXPECT_EQ(document.byteCount(), bytes.size());
}
