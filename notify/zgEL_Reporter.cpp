#include "notify/zgEL_Reporter.h"

#include "monitor/Zarn.h"
#include "platform/EventLog.h"
#include "platform/LastError.h"

#include <cstdint>
#include <new>
#include <string>

namespace {

constexpr DWORD kBadArgument = 87;                // ERROR_INVALID_PARAMETER
constexpr DWORD kSourceAlreadyRegistered = 1609;  // ERROR_INVALID_HANDLE_STATE
constexpr int kReporterAlreadyExists = 5010;      // ERROR_OBJECT_ALREADY_EXISTS
constexpr int kReporterNotMade = 1;
constexpr int kAllPasses = 0x7FFFFFFF;

// The library's message table (language 1033). The top two bits of an id are its severity, the
// low 16 bits count from 40000. Ids that no situation sends are kept for the product's own use.
struct EventMessage
{
    DWORD eventID;
    const wchar_t* text;
};

const EventMessage kEventMessages[] = {
    {0x40009C40, L"%1\r\n"},
    {0x80009C41, L"%1\r\n"},
    {0xC0009C42, L"%1\r\n"},
    {0x40009C43, L"The %1!s! began successfully.\r\n"},
    {0x40009C44, L"The %1!s! failed to start.\r\n"},
    {0x40009C45, L"The %1!s! shut down successfully.\r\n"},
    {0x40009C46, L"The %1!s! failed to shut down.\r\n"},
    {0x40009C47, L"User %1!s! successfully logged on to session \"%2!s!\", and the session was renamed to \"%3!s!\".\r\n"},
    {0x40009C48, L"User %1!s! could not log on to the %2!s!.\r\n"},
    {0x40009C49, L"Session \"%1!s!\" stopped.\r\n"},
    {0x40009C4A, L"User %1!s! failed to log off from the %2!s!.\r\n"},
    {0x40009C4B, L"Client %1!s! has successfully connected to the %2!s!.\r\n"},
    {0x40009C4C, L"Client %1!s! has failed to connect to the %2!s!.\r\n"},
    {0x40009C4D, L"Client %1!s! has successfully disconnected from the %2!s!.\r\n"},
    {0x40009C4E, L"Client %1!s! has failed to disconnect from the %2!s!.\r\n"},
    {0x40009C4F, L"Process #%1!s! (%2!s!) started in session \"%3!s!\".\r\n"},
    {0x40009C50, L"Process #%1!s! (%2!s!) failed to start in session \"%3!s!\".\r\n"},
    {0x40009C51, L"Process #%1!s! (%2!s!) stopped in session \"%3!s!\".\r\n"},
    {0x40009C52, L"Process #%1!s! (%2!s!) failed to stop in session \"%3!s!\" successfully.\r\n"},
    {0x40009C53, L"Session \"%1!s!\" started.\r\n"},
    {0x40009C54, L"Session \"%1!s!\" failed to start.\r\n"},
};

// The situations that have an event. The session and process events deliberately pass one string
// more than their texts use; the two product events pass exactly theirs.
struct SituationEvent
{
    int situationID;
    DWORD eventID;
    WORD stringCount;
};

constexpr WORD kMostStrings = 4;
const SituationEvent kSituationEvents[] = {
    {3313, 0x40009C49, 2}, {3315, 0x40009C47, 4}, {3317, 0x40009C4F, 4}, {3319, 0x40009C51, 4},
    {3322, 0x40009C53, 2}, {3323, 0x40009C45, 1}, {3325, 0x40009C43, 1},
};

const wchar_t* lookUpEventMessage(DWORD eventID)
{
    for (const EventMessage& message : kEventMessages) {
        if (message.eventID == eventID)
            return message.text;
    }
    return nullptr;
}

const SituationEvent* findSituationEvent(int situationID)
{
    for (const SituationEvent& row : kSituationEvents) {
        if (row.situationID == situationID)
            return &row;
    }
    return nullptr;
}

HANDLE registerEventSource(const char* source, const char* server)
{
    return RegisterEventSourceA(server, source);
}

HANDLE registerEventSource(const wchar_t* source, const wchar_t* server)
{
    return RegisterEventSourceW(server, source);
}

} // namespace

zgEL_Reporter* zgEL_Reporter::m_LoneInstance = nullptr;

template <class Char>
zgEL_Reporter* zgEL_Reporter::createFor(const Char* source, const Char* server, unsigned long firstFillerIndex)
{
    // The status stays here: a caller learns only from the null result.
    int status = 0;
    if (m_LoneInstance != nullptr) {
        status = kReporterAlreadyExists;
    } else if (source == nullptr || source[0] == 0) {
        status = kBadArgument;
    } else {
        try {
            m_LoneInstance = new zgEL_Reporter(source, server, firstFillerIndex);
        } catch (...) {
        }
        if (m_LoneInstance == nullptr)
            status = kReporterNotMade;
    }
    return status == 0 ? m_LoneInstance : nullptr;
}

zgEL_Reporter* zgEL_Reporter::create(const char* source, const char* server, unsigned long firstFillerIndex)
{
    return createFor(source, server, firstFillerIndex);
}

zgEL_Reporter* zgEL_Reporter::create(const wchar_t* source, const wchar_t* server, unsigned long firstFillerIndex)
{
    return createFor(source, server, firstFillerIndex);
}

zgEL_Reporter* zgEL_Reporter::getLoneInstance()
{
    return m_LoneInstance;
}

zgEL_Reporter* zgEL_Reporter::getLoneInstance(const char* source, const char* server, unsigned long firstFillerIndex)
{
    return m_LoneInstance != nullptr ? m_LoneInstance : create(source, server, firstFillerIndex);
}

zgEL_Reporter* zgEL_Reporter::getLoneInstance(const wchar_t* source, const wchar_t* server,
                                              unsigned long firstFillerIndex)
{
    return m_LoneInstance != nullptr ? m_LoneInstance : create(source, server, firstFillerIndex);
}

void zgEL_Reporter::destroy()
{
    if (m_LoneInstance != nullptr) {
        delete m_LoneInstance;
        m_LoneInstance = nullptr;
    }
}

template <class Char>
void zgEL_Reporter::establish(const Char* source, const Char* server, unsigned long firstFillerIndex)
{
    zgEL_Reporter_(firstFillerIndex);
    registerSource(source, server);
    if (!isStatusOK()) {
        const int error = static_cast<int>(m_error);
        setMemberVarsToDefaults(kAllPasses);
        throw error;
    }
}

zgEL_Reporter::zgEL_Reporter(const char* source, const char* server, unsigned long firstFillerIndex)
    : m_error(0), m_firstFillerIndex(0), m_eventSource(nullptr)
{
    establish(source, server, firstFillerIndex);
}

zgEL_Reporter::zgEL_Reporter(const wchar_t* source, const wchar_t* server, unsigned long firstFillerIndex)
    : m_error(0), m_firstFillerIndex(0), m_eventSource(nullptr)
{
    establish(source, server, firstFillerIndex);
}

zgEL_Reporter::~zgEL_Reporter()
{
    setMemberVarsToDefaults(kAllPasses);
}

void zgEL_Reporter::zgEL_Reporter_(unsigned long firstFillerIndex)
{
    m_eventSource = nullptr;
    setMemberVarsToDefaults(kAllPasses);
    m_firstFillerIndex = static_cast<DWORD>(firstFillerIndex);
}

bool zgEL_Reporter::setMemberVarsToDefaults(int passes)
{
    if (passes < 1)
        return false;
    bool result = true;
    if (m_eventSource != nullptr && !deregisterSource())
        result = false;
    m_error = 0;
    m_firstFillerIndex = 0;
    return result;
}

template <class Char>
bool zgEL_Reporter::registerSourceFor(const Char* source, const Char* server)
{
    setError(0);
    if (m_eventSource != nullptr) {
        setError(kSourceAlreadyRegistered);
    } else if (source == nullptr) {
        setError(kBadArgument);
    } else {
        // This library is the message file of the sources it registers.
        SetEventMessageTable(&lookUpEventMessage);
        m_eventSource = registerEventSource(source, server);
        if (m_eventSource == nullptr)
            m_error = GetLastError();
    }
    return isStatusOK();
}

bool zgEL_Reporter::registerSource(const char* source, const char* server)
{
    return registerSourceFor(source, server);
}

bool zgEL_Reporter::registerSource(const wchar_t* source, const wchar_t* server)
{
    return registerSourceFor(source, server);
}

bool zgEL_Reporter::deregisterSource()
{
    setError(0);
    if (m_eventSource != nullptr) {
        if (DeregisterEventSource(m_eventSource))
            m_eventSource = nullptr;
        else
            m_error = GetLastError();
    }
    return isStatusOK();
}

bool zgEL_Reporter::write(const Zarn* monitor)
{
    return m_LoneInstance != nullptr && m_LoneInstance->write_(monitor);
}

bool zgEL_Reporter::write_(const Zarn* monitor) const
{
    setError(0);
    const u64* fillers = nullptr;
    const SituationEvent* event = nullptr;
    if (monitor == nullptr || m_eventSource == nullptr)
        setError(kBadArgument);
    else if ((fillers = monitor->getDescriptionFillers()) == nullptr)
        setError(kBadArgument);
    else if ((event = findSituationEvent(monitor->getSituationID())) == nullptr)
        setError(kBadArgument);

    if (isStatusOK()) {
        // The fillers from m_firstFillerIndex on are the insertion strings: each 8-byte slot holds
        // a wide string's address. They are read out slot by slot rather than by recasting the
        // table, and the first index is deliberately not checked against the table's size.
        const wchar_t* strings[kMostStrings] = {};
        for (WORD index = 0; index < event->stringCount; ++index)
            strings[index] = reinterpret_cast<const wchar_t*>(
                static_cast<std::uintptr_t>(fillers[m_firstFillerIndex + index]));
        try {
            // The journal entry also names the situation, which the event id alone does not tell.
            EventReportFields situation({"ZMU_SITUATION=" + std::to_string(event->situationID)});
            if (!ReportEventW(m_eventSource, EVENTLOG_INFORMATION_TYPE, 0, event->eventID, nullptr,
                              event->stringCount, 0, strings, nullptr))
                m_error = GetLastError();
        } catch (const std::bad_alloc&) {
            setError(ERROR_NOT_ENOUGH_MEMORY);
        }
    }
    return isStatusOK();
}

unsigned long zgEL_Reporter::getError() const
{
    return m_error;
}

unsigned long zgEL_Reporter::setError(unsigned long error) const
{
    const unsigned long previous = m_error;
    m_error = static_cast<DWORD>(error);
    SetLastError(m_error);
    return previous;
}

bool zgEL_Reporter::isStatusOK() const
{
    return m_error == 0;
}
