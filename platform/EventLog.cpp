// The event log on a system without one: each report becomes one entry of the system journal,
// sent with sd_journal_sendv to the journal's socket.
//
// The message texts belong to whoever writes the events, not to this layer. On Windows the
// installer names a message file for each source and the event viewer finds the texts there; here
// the library hands in a lookup function once (SetEventMessageTable), and each source keeps the
// one that was in force when it was registered. A function pointer keeps this layer free of any
// product's ids and texts, and lets a test give a table of its own.
#include "platform/EventLog.h"

#include "platform/FormatMessage.h"
#include "platform/LastError.h"
#include "platform/LocalMemory.h"
#include "platform/Utf8Text.h"

#include <atomic>
#include <cerrno>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <new>
#include <unordered_map>

#include <sys/uio.h>
#include <syslog.h>
#include <unistd.h>
// An entry names the event, not the line of this file that sent it.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>

struct EventReportFieldsReader
{
    static const EventReportFields*& innermost()
    {
        thread_local const EventReportFields* scope = nullptr;
        return scope;
    }

    // The fields of the calling thread's open scopes, outermost first.
    static void appendTo(std::vector<std::string>& fields)
    {
        std::vector<const EventReportFields*> scopes;
        for (const EventReportFields* scope = innermost(); scope != nullptr; scope = scope->m_enclosing)
            scopes.push_back(scope);
        for (auto scope = scopes.rbegin(); scope != scopes.rend(); ++scope)
            fields.insert(fields.end(), (*scope)->m_fields.begin(), (*scope)->m_fields.end());
    }
};

EventReportFields::EventReportFields(std::vector<std::string> fields)
    : m_fields(std::move(fields)), m_enclosing(EventReportFieldsReader::innermost())
{
    EventReportFieldsReader::innermost() = this;
}

EventReportFields::~EventReportFields()
{
    EventReportFieldsReader::innermost() = m_enclosing;
}

namespace {

constexpr int kInsertsQty = 99;

// The journal's native socket; sd_journal_sendv has no other address.
constexpr char kJournalSocket[] = "/run/systemd/journal/socket";

struct EventSource
{
    std::string identifier;
    EventMessageTable table;
};

// The open sources by handle. A handle is a number that is never given out twice, so a source that
// was deregistered stays refused even when a new one is registered. Never destroyed, so that a report
// at the process's end still finds its table.
struct EventSources
{
    std::mutex lock;
    std::uintptr_t lastHandle = 0;
    std::unordered_map<HANDLE, std::unique_ptr<EventSource>> byHandle;
};

EventSources& eventSources()
{
    static EventSources* const sources = new EventSources;
    return *sources;
}

std::atomic<EventMessageTable> g_messageTable{nullptr};

HANDLE registerEventSource(std::string identifier)
{
    try {
        auto source = std::make_unique<EventSource>(EventSource{std::move(identifier), g_messageTable.load()});
        EventSources& sources = eventSources();
        std::lock_guard<std::mutex> guard(sources.lock);
        sources.lastHandle += 4;
        const HANDLE handle = reinterpret_cast<HANDLE>(sources.lastHandle);
        sources.byHandle.emplace(handle, std::move(source));
        return handle;
    } catch (const std::bad_alloc&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
}

// The text of the event with its inserts filled, or the text as it stands if it cannot be
// formatted. A string that was not passed shows as its insert, as the event viewer shows it.
std::wstring formatEventText(const wchar_t* text, WORD numStrings, const wchar_t** strings)
{
    std::wstring placeholders[kInsertsQty];
    u64 slots[kInsertsQty];
    for (int index = 0; index < kInsertsQty; ++index) {
        if (index < numStrings) {
            slots[index] = reinterpret_cast<std::uintptr_t>(strings[index]);
        } else {
            placeholders[index] = L"%" + std::to_wstring(index + 1);
            slots[index] = reinterpret_cast<std::uintptr_t>(placeholders[index].c_str());
        }
    }
    const DWORD lastError = GetLastError();
    wchar_t* formatted = nullptr;
    const DWORD count =
        FormatMessageW(FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ARGUMENT_ARRAY | FORMAT_MESSAGE_ALLOCATE_BUFFER, text,
                       0, 0, reinterpret_cast<wchar_t*>(&formatted), 0, slots);
    SetLastError(lastError);
    std::wstring message = count != 0 ? std::wstring(formatted, count) : std::wstring(text);
    LocalFree(formatted);
    return message;
}

std::wstring composeMessage(EventMessageTable table, DWORD eventID, WORD numStrings, const wchar_t** strings)
{
    const wchar_t* const text = table != nullptr ? table(eventID) : nullptr;
    std::wstring message;
    if (text != nullptr) {
        message = formatEventText(text, numStrings, strings);
    } else {
        wchar_t head[24];
        std::swprintf(head, 24, L"Event 0x%08" PRIX32, eventID);
        message = head;
        for (WORD index = 0; index < numStrings; ++index)
            message.append(L" ").append(strings[index] != nullptr ? strings[index] : L"");
    }
    // Message texts end in a line break of their own, which a journal entry does not need.
    while (!message.empty() && (message.back() == L'\r' || message.back() == L'\n'))
        message.pop_back();
    return message;
}

int priorityOfSeverity(DWORD eventID)
{
    static const int kPriorities[4] = {LOG_NOTICE, LOG_INFO, LOG_WARNING, LOG_ERR};
    return kPriorities[eventID >> 30];
}

DWORD errorOfJournalFailure(int result)
{
    if (result == -ENOMEM)
        return ERROR_NOT_ENOUGH_MEMORY;
    if (result == -EINVAL)
        return ERROR_INVALID_PARAMETER;
    return ERROR_SERVICE_NOT_ACTIVE;
}

} // namespace

EventMessageTable SetEventMessageTable(EventMessageTable table)
{
    return g_messageTable.exchange(table);
}

HANDLE RegisterEventSourceW(const wchar_t* /*server*/, const wchar_t* source)
{
    if (source == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return registerEventSource(zmu_platform::narrowToUtf8(source));
}

HANDLE RegisterEventSourceA(const char* /*server*/, const char* source)
{
    if (source == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return registerEventSource(source);
}

BOOL DeregisterEventSource(HANDLE eventLog)
{
    std::unique_ptr<EventSource> closed;
    EventSources& sources = eventSources();
    std::lock_guard<std::mutex> guard(sources.lock);
    const auto found = sources.byHandle.find(eventLog);
    if (eventLog == nullptr || found == sources.byHandle.end()) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    closed = std::move(found->second);
    sources.byHandle.erase(found);
    return TRUE;
}

BOOL ReportEventW(HANDLE eventLog, WORD type, WORD category, DWORD eventID, void* /*userSid*/, WORD numStrings,
                  DWORD dataSize, const wchar_t** strings, void* rawData)
{
    try {
        EventSource source;
        {
            EventSources& sources = eventSources();
            std::lock_guard<std::mutex> guard(sources.lock);
            const auto found = sources.byHandle.find(eventLog);
            if (eventLog == nullptr || found == sources.byHandle.end()) {
                SetLastError(ERROR_INVALID_HANDLE);
                return FALSE;
            }
            source = *found->second;
        }
        if ((numStrings != 0 && strings == nullptr) || (dataSize != 0 && rawData == nullptr)) {
            SetLastError(ERROR_INVALID_PARAMETER);
            return FALSE;
        }

        char eventIDText[16];
        std::snprintf(eventIDText, sizeof eventIDText, "0x%08" PRIX32, eventID);
        std::vector<std::string> fields = {
            "MESSAGE=" + zmu_platform::narrowToUtf8(composeMessage(source.table, eventID, numStrings, strings).c_str()),
            "PRIORITY=" + std::to_string(priorityOfSeverity(eventID)),
            "SYSLOG_IDENTIFIER=" + source.identifier,
            std::string("ZMU_EVENT_ID=") + eventIDText,
            "ZMU_EVENT_TYPE=" + std::to_string(type),
            "ZMU_EVENT_CATEGORY=" + std::to_string(category),
        };
        for (WORD index = 0; index < numStrings; ++index)
            fields.push_back("ZMU_STRING_" + std::to_string(index + 1) + "="
                             + zmu_platform::narrowToUtf8(strings[index]));
        if (dataSize != 0)
            fields.push_back("ZMU_EVENT_DATA=" + std::string(static_cast<const char*>(rawData), dataSize));
        EventReportFieldsReader::appendTo(fields);

        // With no journal at all, sd_journal_sendv drops the entry and reports success; an event
        // log that is not there fails the report instead, as it does on Windows.
        if (access(kJournalSocket, F_OK) != 0) {
            SetLastError(ERROR_SERVICE_NOT_ACTIVE);
            return FALSE;
        }
        std::vector<iovec> parts;
        parts.reserve(fields.size());
        for (std::string& field : fields)
            parts.push_back(iovec{field.data(), field.size()});
        const int result = sd_journal_sendv(parts.data(), static_cast<int>(parts.size()));
        if (result < 0) {
            SetLastError(errorOfJournalFailure(result));
            return FALSE;
        }
        return TRUE;
    } catch (const std::bad_alloc&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return FALSE;
    }
}
