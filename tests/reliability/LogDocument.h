// A log file of the built-in form read back strictly, as a reader of the log would: the byte-order
// mark FF FE, the head, whole entries only and one whole tail at the very end. A file that a killed
// writer left between two of its writes is told apart from a torn or doubled one.
#pragma once

#include <QByteArray>
#include <QString>

#include <vector>

struct LoggedEntry
{
    int situationID;
    QString description;
    long long byteCount; // what the entry takes in the file
};

class LogDocument
{
public:
    // Where the text stops. Only Tail is a whole document; each of the others is a point between
    // two writes of the log's writer, where a killed process may leave the file.
    enum class Ending
    {
        Empty, // opened, nothing written
        Mark,  // the byte-order mark alone
        Head,  // mark and head, the first tail not yet written
        Entry, // an entry written over the tail, its fresh tail not yet
        // The last write stopped at a page boundary of the file: the text up to the boundary begins
        // an entry or the tail, and after it comes only the rest of the tail that the write was
        // overwriting. Linux copies a write page by page and gives up between two pages when the
        // writer is killed, so a SIGKILL can leave this, and nothing else can.
        CutAtPage,
        Tail, // a whole document
    };

    static LogDocument read(const QString& path);
    static LogDocument parse(const QByteArray& bytes);

    // Empty unless the bytes are torn, doubled or foreign: no ending above describes them.
    const QString& problem() const { return m_problem; }
    Ending ending() const { return m_ending; }
    bool isWhole() const { return m_problem.isEmpty() && m_ending == Ending::Tail; }
    const std::vector<LoggedEntry>& entries() const { return m_entries; }
    long long byteCount() const { return m_byteCount; }

private:
    QString m_problem;
    Ending m_ending = Ending::Empty;
    std::vector<LoggedEntry> m_entries;
    long long m_byteCount = 0;
};

const char* endingName(LogDocument::Ending ending);
