#include "LogDocument.h"

#include <QFile>
#include <QRegularExpression>

#include <unistd.h>

#include <algorithm>

namespace {

// The built-in form's sections as they reach the file: the formatter writes each line feed of the
// form as CR LF, and a time stamp has a four-digit year and three-digit milliseconds.
#define ZMU_LOG_STAMP R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3})"

const QRegularExpression& headPattern()
{
    static const QRegularExpression pattern(QStringLiteral(
        R"(<html><body>\r\n<!-- ProductVersion=[^ <>]* FileVersion=[^ <>]* -->)" ZMU_LOG_STAMP
        R"( The log template file is inaccessible, corrupt, or perhaps too large to format; will use default )"
        R"(layout instead\.<br>\r\n)"));
    return pattern;
}

// A description here holds no markup and no line break, so that a torn entry cannot run on into
// the next one's text and pass as a single entry.
const QRegularExpression& entryPattern()
{
    static const QRegularExpression pattern(
        QStringLiteral(R"(<!-- SituationID=(\d+) -->)" ZMU_LOG_STAMP R"( ([^<\r\n]*)<br>\r\n)"));
    return pattern;
}

#undef ZMU_LOG_STAMP

const QString& tailText()
{
    static const QString text = QStringLiteral("</body><html>\r\n");
    return text;
}

QRegularExpressionMatch matchAt(const QRegularExpression& pattern, const QString& text, int offset)
{
    return pattern.match(text, offset, QRegularExpression::NormalMatch,
                         QRegularExpression::AnchoredMatchOption
                             | QRegularExpression::DontCheckSubjectStringMatchOption);
}

// Whether the text from `offset` on is one write that stopped at a page boundary of the file: its
// piece up to the boundary begins an entry followed by the rest of the tail that the entry was
// overwriting, or begins the tail followed by nothing.
bool isCutAtPage(const QString& text, int offset)
{
    static const long long page = sysconf(_SC_PAGESIZE);
    // Byte offsets in the file, behind the two bytes of the mark.
    const long long start = 2 + 2LL * offset;
    const long long end = 2 + 2LL * text.size();
    for (long long boundary = (start / page + 1) * page; boundary <= end; boundary += page) {
        const int written = static_cast<int>((boundary - start) / 2);
        const QString piece = text.mid(offset, written);
        const bool beginsTail = piece.size() < tailText().size() && tailText().startsWith(piece);
        const bool beginsEntry =
            entryPattern()
                .match(piece, 0, QRegularExpression::PartialPreferCompleteMatch,
                       QRegularExpression::AnchoredMatchOption)
                .hasPartialMatch();
        if (!beginsTail && !beginsEntry)
            return false; // a longer piece holds this one, so no later boundary can do better
        // An entry is written over the tail, whose end stays until the entry covers it; a tail is
        // written at the end of the file.
        const QStringView after = QStringView(text).mid(offset + written);
        if (beginsEntry && after == QStringView(tailText()).mid(std::min(written, tailText().size())))
            return true;
        if (beginsTail && after.isEmpty())
            return true;
    }
    return false;
}

QString excerpt(const QString& text, int offset)
{
    return QStringLiteral(" at character %1: \"%2\"").arg(offset).arg(text.mid(offset, 120));
}

} // namespace

LogDocument LogDocument::read(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        LogDocument document;
        document.m_problem = QStringLiteral("cannot open ") + path;
        return document;
    }
    return parse(file.readAll());
}

LogDocument LogDocument::parse(const QByteArray& bytes)
{
    LogDocument document;
    document.m_byteCount = bytes.size();
    if (bytes.isEmpty())
        return document;
    if (bytes.size() % 2 != 0) {
        document.m_problem = QStringLiteral("an odd count of %1 bytes: a code unit is torn").arg(bytes.size());
        return document;
    }
    if (static_cast<unsigned char>(bytes[0]) != 0xFF || static_cast<unsigned char>(bytes[1]) != 0xFE) {
        document.m_problem = QStringLiteral("no UTF-16LE byte-order mark");
        return document;
    }
    document.m_ending = Ending::Mark;
    // Decoded by hand, so that the reading does not depend on the host's byte order.
    QString text(static_cast<int>(bytes.size() / 2 - 1), Qt::Uninitialized);
    for (int unit = 0; unit < text.size(); ++unit) {
        const auto low = static_cast<unsigned char>(bytes[2 + 2 * unit]);
        const auto high = static_cast<unsigned char>(bytes[3 + 2 * unit]);
        text[unit] = QChar(static_cast<ushort>(low | high << 8));
    }
    if (text.isEmpty())
        return document;
    if (!text.isValidUtf16()) {
        document.m_problem = QStringLiteral("a surrogate without its pair");
        return document;
    }

    const QRegularExpressionMatch head = matchAt(headPattern(), text, 0);
    if (!head.hasMatch()) {
        document.m_problem = QStringLiteral("no whole head") + excerpt(text, 0);
        return document;
    }
    document.m_ending = Ending::Head;
    int offset = head.capturedEnd();
    while (offset < text.size()) {
        // The tail counts only as the very last text: a tail with anything after it is a problem.
        if (text.size() - offset == tailText().size() && QStringView(text).mid(offset) == tailText()) {
            document.m_ending = Ending::Tail;
            return document;
        }
        const QRegularExpressionMatch entry = matchAt(entryPattern(), text, offset);
        if (!entry.hasMatch() && isCutAtPage(text, offset)) {
            document.m_ending = Ending::CutAtPage;
            return document;
        }
        if (!entry.hasMatch()) {
            document.m_problem = QStringLiteral("neither a whole entry nor the tail at the end") + excerpt(text, offset);
            return document;
        }
        document.m_entries.push_back(
            {entry.captured(1).toInt(), entry.captured(2), 2LL * entry.capturedLength()});
        document.m_ending = Ending::Entry;
        offset = entry.capturedEnd();
    }
    return document;
}

const char* endingName(LogDocument::Ending ending)
{
    switch (ending) {
    case LogDocument::Ending::Empty:
        return "empty";
    case LogDocument::Ending::Mark:
        return "mark only";
    case LogDocument::Ending::Head:
        return "head without tail";
    case LogDocument::Ending::Entry:
        return "entry without tail";
    case LogDocument::Ending::CutAtPage:
        return "write cut at a page boundary";
    case LogDocument::Ending::Tail:
        return "whole document";
    }
    return "?";
}
