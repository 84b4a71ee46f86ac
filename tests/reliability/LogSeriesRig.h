// What the reliability tests share: monitors built by hand on the built-in form with the report
// specs' module, the process's log directory, and a log series read back file by file.
#pragma once

#include "LogDocument.h"

#include "monitor/ZarnData.h"
#include "platform/Modules.h"

#include <QString>

#include <string>
#include <vector>

class Zarn;

// Sanitized builds run several times slower; the tests scale their sizes down under them.
#if defined(__SANITIZE_THREAD__)
#define ZMU_RELIABILITY_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define ZMU_RELIABILITY_TSAN 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define ZMU_RELIABILITY_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZMU_RELIABILITY_ASAN 1
#endif
#endif
#ifdef ZMU_RELIABILITY_TSAN
constexpr bool kUnderThreadSanitizer = true;
#else
constexpr bool kUnderThreadSanitizer = false;
#endif
#ifdef ZMU_RELIABILITY_ASAN
constexpr bool kUnderAddressSanitizer = true;
#else
constexpr bool kUnderAddressSanitizer = false;
#endif

// "Kind one %1!s!" of the report specs' module: a log text of one wide insert, nothing to show.
constexpr int kLogTextSituation = 3005;
// The library's own note that opens each successor in a series.
constexpr int kSeriesNoteSituation = 10006;
// The smallest limit a log file may have.
constexpr unsigned long long kSmallestByteCountLimit = 1048576;

// The series statics of the process, started afresh so that the next file to be replaced opens
// the series. Only while no monitor replaces a file.
struct LogSeriesStatics : ZarnData
{
    static void restart();
};

// The process's log directory, where every successor file is composed: the test's own while the
// scope lasts, then the one before.
class LogDirectoryScope
{
public:
    explicit LogDirectoryScope(const QString& directory);
    ~LogDirectoryScope();
    LogDirectoryScope(const LogDirectoryScope&) = delete;
    LogDirectoryScope& operator=(const LogDirectoryScope&) = delete;

private:
    static void record(const wchar_t* directory);

    std::wstring m_previous;
};

// The report specs' module, loaded for the test's life.
class ReportSpecsModule
{
public:
    ReportSpecsModule();
    ~ReportSpecsModule();
    ReportSpecsModule(const ReportSpecsModule&) = delete;
    ReportSpecsModule& operator=(const ReportSpecsModule&) = delete;

    HMODULE handle() const { return m_module; }

private:
    HMODULE m_module;
};

// A monitor on the built-in form whose first log file is `logName`, with the specs' module as its
// own (threads that share it then pass null) and the given byte limit. Null on failure, with the
// code in `code`.
Zarn* createBuiltInFormMonitor(const QString& logName, HMODULE specs, unsigned long long limit, int& code);

// The data set behind a monitor, for a test that holds its lock or reads its file record.
ZarnData* dataSetOf(const Zarn* monitor);

// One situation with a log text only; its code, 0 if it went all the way.
int reportLogText(Zarn* monitor, const QString& text);

// The text that situation kLogTextSituation logged, without its fixed words; empty for another.
QString logTextOf(const LoggedEntry& entry);

// The note that opens file number `number` of a series whose first file is `origin`.
QString seriesNoteText(int number, const QString& origin);

// The log files in `directory`, by name. A successor is named after the moment it was made, to the
// millisecond, so successors of one series sort in the order they were made.
std::vector<QString> logFilesIn(const QString& directory);
