#include "LogSeriesRig.h"

#include "monitor/Zarn.h"

#include <QDir>
#include <QStringList>

void LogSeriesStatics::restart()
{
    s_logSeriesCount = 1;
    s_logSeriesOrigin[0] = L'\0';
}

LogDirectoryScope::LogDirectoryScope(const QString& directory)
    : m_previous(ZarnData::getLogDirectory() != nullptr ? ZarnData::getLogDirectory() : L"")
{
    record((directory + QLatin1Char('/')).toStdWString().c_str());
}

LogDirectoryScope::~LogDirectoryScope()
{
    record(m_previous.empty() ? nullptr : m_previous.c_str());
}

void LogDirectoryScope::record(const wchar_t* directory)
{
    ZarnData::setLogVariables(directory, ZarnData::getLogOutputLevel(), ZarnData::getLogBackupEnabled(),
                              ZarnData::getLogMaxFileSize(), ZarnData::getLogMaxFileAge());
}

ReportSpecsModule::ReportSpecsModule()
{
    const std::string path = ZMU_TEST_MODULE_DIR "/libzmu_test_report_specs.so";
    m_module = LoadLibraryW(std::wstring(path.begin(), path.end()).c_str());
}

ReportSpecsModule::~ReportSpecsModule()
{
    if (m_module != nullptr)
        FreeLibrary(m_module);
}

Zarn* createBuiltInFormMonitor(const QString& logName, HMODULE specs, unsigned long long limit, int& code)
{
    std::wstring name = logName.toStdWString();
    ZarnData dataSet;
    dataSet.setCharSetExternal(2);
    // No form name: the built-in form serves.
    if (!dataSet.recordLogFileNomenclature(&name[0], nullptr, Zarn_LOG_HTML)) {
        code = dataSet.getSelfDX_Code();
        return nullptr;
    }
    Zarn* const monitor = Zarn::create(&dataSet);
    if (monitor == nullptr) {
        code = dataSet.getSelfDX_Code();
        return nullptr;
    }
    // A module passed with each situation is swapped in and out without a lock, so threads that
    // share a monitor would undo each other's: the monitor keeps this one instead.
    monitor->setResourceModule(specs);
    unsigned long long previous = 0;
    code = monitor->setLogFileByteCountLimit(limit, previous) ? 0 : monitor->getSelfDX_Code();
    return monitor;
}

namespace {

// The front's getter is protected, but a pointer to it taken through a subclass applies to any monitor.
struct MonitorInside : Zarn
{
    static ZarnData* dataSetOf(const Zarn* monitor) { return (monitor->*(&MonitorInside::getDataSet))(); }
};

} // namespace

ZarnData* dataSetOf(const Zarn* monitor)
{
    return MonitorInside::dataSetOf(monitor);
}

int reportLogText(Zarn* monitor, const QString& text)
{
    const std::wstring argument = text.toStdWString();
    monitor->respondToSituation(kLogTextSituation, nullptr, argument.c_str());
    return monitor->getSelfDX_Code();
}

QString logTextOf(const LoggedEntry& entry)
{
    static const QString words = QStringLiteral("Kind one ");
    if (entry.situationID != kLogTextSituation || !entry.description.startsWith(words))
        return QString();
    return entry.description.mid(words.size());
}

QString seriesNoteText(int number, const QString& origin)
{
    return QStringLiteral("This log file is #%1 in a series that began with %2.").arg(number).arg(origin);
}

std::vector<QString> logFilesIn(const QString& directory)
{
    const QDir dir(directory);
    std::vector<QString> files;
    for (const QString& name : dir.entryList({QStringLiteral("*.html")}, QDir::Files, QDir::Name))
        files.push_back(dir.filePath(name));
    return files;
}
