// The event log: event sources and their reports, written to the system journal.
#pragma once

#include "platform/WinTypes.h"

#include <string>
#include <vector>

constexpr WORD EVENTLOG_SUCCESS = 0x0;
constexpr WORD EVENTLOG_ERROR_TYPE = 0x1;
constexpr WORD EVENTLOG_WARNING_TYPE = 0x2;
constexpr WORD EVENTLOG_INFORMATION_TYPE = 0x4;
constexpr WORD EVENTLOG_AUDIT_SUCCESS = 0x8;
constexpr WORD EVENTLOG_AUDIT_FAILURE = 0x10;

constexpr DWORD ERROR_SERVICE_NOT_ACTIVE = 1062;

// Ours, standing in for the message file that an installer names for an event source: the text of
// an event id, with inserts %1 to %99 as FormatMessageW reads them, or null for an id it lacks.
using EventMessageTable = const wchar_t* (*)(DWORD eventID);

// Ours: makes `table` the message file of the event sources registered from now on in this process
// (a source keeps the table it was registered with); returns the previous one. Null means none.
EventMessageTable SetEventMessageTable(EventMessageTable table);

// Like RegisterEventSourceW: a handle for reports under the name `source`, which becomes the
// journal's SYSLOG_IDENTIFIER. `server` is not examined: the journal is always the local one.
// A null source gives null with 87; success leaves the last error as it was.
HANDLE RegisterEventSourceW(const wchar_t* server, const wchar_t* source);
// Like RegisterEventSourceA: the same with UTF-8 names.
HANDLE RegisterEventSourceA(const char* server, const char* source);

// Like DeregisterEventSource: closes the handle. A null, unknown or closed handle gives FALSE with
// 6; success leaves the last error as it was.
BOOL DeregisterEventSource(HANDLE eventLog);

// Like ReportEventW: writes one journal entry. Its fields:
//   MESSAGE             the source's message text of `eventID` formatted with `strings` (a missing
//                       string shows as its insert, "%2", as the event viewer shows it), without
//                       the text's trailing line breaks; with no text, "Event 0x40009C40" and the
//                       strings after it, each behind a blank.
//   PRIORITY            from the severity in the top two bits of `eventID`: 0 success LOG_NOTICE,
//                       1 informational LOG_INFO, 2 warning LOG_WARNING, 3 error LOG_ERR.
//   SYSLOG_IDENTIFIER   the source's name.
//   ZMU_EVENT_ID        as 0x40009C49; ZMU_EVENT_TYPE and ZMU_EVENT_CATEGORY in decimal.
//   ZMU_STRING_1..n     the insertion strings in UTF-8 (empty for a null one).
//   ZMU_EVENT_DATA      the raw data, if `dataSize` is not 0.
//   and the fields of the calling thread's EventReportFields scopes.
// `userSid` is not used. FALSE with 6 for a null, unknown or closed handle; 87 for strings or raw
// data announced but null; 8 when memory is short; 1062 (ERROR_SERVICE_NOT_ACTIVE) when the
// journal cannot be reached. Success leaves the last error as it was.
BOOL ReportEventW(HANDLE eventLog, WORD type, WORD category, DWORD eventID, void* userSid, WORD numStrings,
                  DWORD dataSize, const wchar_t** strings, void* rawData);

// Ours: while it lives, ReportEventW on the creating thread adds `fields` to every entry it writes,
// after those of any enclosing scope. Each field is "NAME=value" in UTF-8, NAME in capital letters,
// digits and '_', not starting with '_'. Scopes end in the reverse order of their creation.
class EventReportFields
{
public:
    explicit EventReportFields(std::vector<std::string> fields);
    ~EventReportFields();
    EventReportFields(const EventReportFields&) = delete;
    EventReportFields& operator=(const EventReportFields&) = delete;

private:
    friend struct EventReportFieldsReader;

    std::vector<std::string> m_fields;
    const EventReportFields* m_enclosing;
};
