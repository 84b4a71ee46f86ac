// Situations per second through the whole road into an HTML log file, on one thread and on two
// threads of one monitor, beside a floor: a plain loop that writes the bytes of one situation with
// one write and one flush of a UTF-16 text stream, the flush the engine itself relies on.
#include "monitor/Zarn.h"
#include "monitor/ZarnData.h"
#include "platform/Modules.h"

#include <benchmark/benchmark.h>

#include <QDateTime>
#include <QFile>
#include <QString>
#include <QTemporaryDir>
#include <QTextStream>

#include <memory>
#include <string>

namespace {

// The library's own series note: a spec with two inserts, a number and a wide string, whose
// entry reads "This log file is #%1!u! in a series that began with %2!s!.".
constexpr int kSeriesSituation = 10006;
const wchar_t kSeriesOrigin[] = L"/var/log/farrowlink/first.html";
// The highest limit the engine takes: a file is replaced only after some 75 MiB.
constexpr unsigned long long kByteCountLimit = 78643200;

struct Road
{
    std::unique_ptr<QTemporaryDir> directory;
    Zarn* monitor = nullptr;
    HMODULE library = nullptr;
};
Road g_road;

// A monitor with the built-in form (the form is named where no file is) and its log in a fresh
// directory, which is also the process's log directory, so that a replaced file's successor goes
// there too; the directory goes with the monitor, files and all.
void openRoad(const benchmark::State&)
{
    g_road.directory = std::make_unique<QTemporaryDir>();
    g_road.library = GetModuleHandleW(L"zmu.dll");
    ZarnData::setLogVariables((g_road.directory->path() + QLatin1Char('/')).toStdWString().c_str(), 0, false, 0, 0);
    std::wstring logName = g_road.directory->filePath(QStringLiteral("road.html")).toStdWString();
    const std::wstring formName = g_road.directory->filePath(QStringLiteral("Templates/none.html")).toStdWString();
    ZarnData dataSet;
    dataSet.setCharSetExternal(2);
    dataSet.recordLogFileNomenclature(&logName[0], formName.c_str(), Zarn_LOG_HTML);
    g_road.monitor = Zarn::create(&dataSet);
    unsigned long long previous = 0;
    if (g_road.monitor != nullptr && !g_road.monitor->setLogFileByteCountLimit(kByteCountLimit, previous))
        g_road.monitor = nullptr;
}

void closeRoad(const benchmark::State&)
{
    Zarn::destroy();
    g_road.monitor = nullptr;
    g_road.directory.reset();
}

void BM_LogRoad(benchmark::State& state)
{
    Zarn* const monitor = g_road.monitor;
    if (monitor == nullptr) {
        state.SkipWithError("no monitor");
        return;
    }
    unsigned int number = 1;
    for (auto _ : state) {
        monitor->respondToSituation(kSeriesSituation, g_road.library, ++number, kSeriesOrigin);
        if (monitor->getSelfDX_Code() != 0) {
            state.SkipWithError("a situation failed");
            break;
        }
    }
    monitor->removeThread();
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}
BENCHMARK(BM_LogRoad)->Setup(openRoad)->Teardown(closeRoad)->Threads(1)->Threads(2)->UseRealTime();

// What one situation of the road writes: its entry of the built-in form, where the old tail was,
// and the tail after it; here in one piece, appended.
QString situationText()
{
    const QString stamp = QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz"));
    return QStringLiteral("<!-- SituationID=10006 -->") + stamp
        + QStringLiteral(" This log file is #100000 in a series that began with ")
        + QString::fromWCharArray(kSeriesOrigin) + QStringLiteral(".<br>\r\n</body><html>\r\n");
}

void BM_LogRoadFloor(benchmark::State& state)
{
    QTemporaryDir directory;
    QFile file(directory.filePath(QStringLiteral("floor.html")));
    if (!file.open(QIODevice::ReadWrite)) {
        state.SkipWithError("no file");
        return;
    }
    QTextStream stream(&file);
    stream.setCodec("UTF-16");
    stream.setGenerateByteOrderMark(false);
    stream << QChar(0xFEFF);
    stream.flush();
    const QString text = situationText();
    for (auto _ : state) {
        stream << text;
        stream.flush();
        // Kept within the road's limit, as the road's replacement keeps its files.
        if (file.size() >= static_cast<qint64>(kByteCountLimit))
            stream.seek(2);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}
BENCHMARK(BM_LogRoadFloor)->UseRealTime();

} // namespace
