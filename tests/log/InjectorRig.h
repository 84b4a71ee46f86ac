// Helpers for the tests of form injectors: a temporary directory of the test's own for the
// injectors' files, and the reports as the learned form holds them.
#pragma once

#include "log/ZarnDataFile.h"
#include "monitor/Zarn.h"
#include "support/TestLogPath.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>
#include <QStringList>
#include <QTextStream>

#include <string>
#include <vector>

// Points QDir::tempPath at a fresh directory inside the test process's own while it lives, so that
// the injectors' files are counted without meeting any other process's. A scope may also point it
// at a plain file, where no temporary file can be made, whoever runs the test.
class TempPathScope
{
public:
    enum Kind { Existing, PlainFile };

    explicit TempPathScope(Kind kind = Existing)
        : m_hadPrevious(qEnvironmentVariableIsSet("TMPDIR")), m_previous(qgetenv("TMPDIR"))
    {
        // The log path is unique to this process and this call; its stem names the directory.
        QString path = QString::fromStdWString(testLogPath(L"temp"));
        path.chop(QStringLiteral(".html").size());
        if (kind == Existing)
            QDir().mkpath(path);
        else
            QFile(path).open(QIODevice::WriteOnly);
        qputenv("TMPDIR", QFile::encodeName(path));
        m_path = path;
    }
    ~TempPathScope()
    {
        if (m_hadPrevious)
            qputenv("TMPDIR", m_previous);
        else
            qunsetenv("TMPDIR");
    }
    TempPathScope(const TempPathScope&) = delete;
    TempPathScope& operator=(const TempPathScope&) = delete;

    const QString& path() const { return m_path; }

private:
    bool m_hadPrevious;
    QByteArray m_previous;
    QString m_path;
};

// The data set behind a monitor: the front's getter is protected, but a pointer to it taken
// through a subclass applies to any monitor.
struct MonitorInside : Zarn
{
    static ZarnData* dataSetOf(const Zarn* monitor) { return (monitor->*(&MonitorInside::getDataSet))(); }
};

// The injectors' files in the temporary directory.
inline int countInjectorFiles()
{
    return QDir(QDir::tempPath())
        .entryList(QStringList(QStringLiteral("Farrowlink*")), QDir::Files | QDir::Hidden | QDir::System)
        .size();
}

// Which injectors hold a report: bit 0 for SYS_INFO_ENV_APP, 1 for ..._OP, 2 for ..._VARS_ENV.
inline unsigned injectorsWithText(const ZarnDataFile& file)
{
    unsigned held = 0;
    for (int index = 0; file.m_injectorStreams != nullptr && index < ZarnDataFile::kInjectorsQty; ++index) {
        if (file.m_injectorStreams[index] != nullptr)
            held |= 1u << index;
    }
    return held;
}

// The report of one injector, read back as a head reads it.
inline QString injectorText(const ZarnDataFile& file, int index)
{
    if (file.m_injectorStreams == nullptr || file.m_injectorStreams[index] == nullptr)
        return QString();
    QTextStream& stream = *file.m_injectorStreams[index];
    stream.seek(0);
    return stream.readAll();
}

// The bytes of a form file kept with the sources.
inline std::string exampleForm(const char* name)
{
    const QString path = QFileInfo(QStringLiteral(__FILE__)).dir().filePath(QStringLiteral("../../examples/forms/"))
                         + QLatin1String(name);
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::string();
    return file.readAll().toStdString();
}

// A line of `length` characters that holds `text` and then as many copies of `fill` as it needs.
inline std::string paddedLine(const std::string& text, size_t length, char fill)
{
    return text + std::string(length > text.size() ? length - text.size() : 0, fill);
}

// The text behind the byte-order mark; empty unless the file starts with FF FE and holds whole,
// valid UTF-16.
inline QString logFileText(const QString& name)
{
    QFile file(name);
    const QByteArray bytes = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    if (!bytes.startsWith(QByteArray("\xFF\xFE", 2)) || bytes.size() % 2 != 0)
        return QString();
    const QString text =
        QString::fromUtf16(reinterpret_cast<const char16_t*>(bytes.constData() + 2), (bytes.size() - 2) / 2);
    return text.isValidUtf16() ? text : QString();
}
