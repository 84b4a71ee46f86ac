#include "monitor/Zarn.h"

#include "foundation/DxCode.h"
#include "monitor/ZarnData.h"
#include "platform/CRuntime.h"
#include "platform/DebugOutput.h"
#include "platform/FormatMessage.h"

#include <cstdarg>
#include <cwchar>
#include <new>

namespace {

// The code of every operation that finds no data set behind its monitor.
constexpr int kNoDataSet = 265;

constexpr int kTraceCharacters = 1024;

void traceLine(const wchar_t* format, va_list args)
{
    wchar_t line[kTraceCharacters] = {};
    const int written = _vsnwprintf(line, kTraceCharacters - 1, format, args);
    if (written < 1)
        line[kTraceCharacters - 1] = L'\0';
    OutputDebugStringW(line);
}

// The rules of both description getters: the caller's buffer is emptied before anything can fail,
// and a text is cut to size - 1 characters.
bool copyDescription(const wchar_t* text, wchar_t* buffer, int size)
{
    std::wmemset(buffer, 0, static_cast<size_t>(size));
    if (text == nullptr)
        return false;
    std::wcsncpy(buffer, text, static_cast<size_t>(size - 1));
    return true;
}

} // namespace

Zarn* Zarn::m_zarnMonitors[10] = {};
int Zarn::m_zarnMonitorsCount = 0;
int Zarn::m_zarnMonitorsQty = 10;

// ---- The registry ---------------------------------------------------------------------------

Zarn* Zarn::create(ZarnData* dataSet)
{
    int code = 0;
    ZarnData* newData = nullptr;
    bool newDataIsOwned = false;
    Zarn* monitor = nullptr;
    try {
        if (m_zarnMonitorsCount < 0 || m_zarnMonitorsQty < 0 || m_zarnMonitorsCount >= m_zarnMonitorsQty ||
            dataSet == nullptr || !dataSet->isValid())
            throw 223;
        // The monitor owns a data set of its own; the caller's stays the caller's.
        newData = new (std::nothrow) ZarnData(0);
        if (newData == nullptr)
            throw 222;
        if (!newData->assimilateDataSetContents(dataSet))
            throw newData->getSelfDX_Code();
        if (!newData->establishLogFile(true))
            throw newData->getSelfDX_Code();
        monitor = new (std::nothrow) Zarn(newData);
        if (monitor == nullptr)
            throw 224;
        newDataIsOwned = true;
        newData->setOwner(monitor);
        // Deliberately not compacted: a new monitor goes to index count, which may overwrite a live entry.
        m_zarnMonitors[m_zarnMonitorsCount] = monitor;
        ++m_zarnMonitorsCount;
        return monitor;
    } catch (...) {
        code = dxCodeOf(std::current_exception(), 221);
    }
    if (code != 0 && dataSet != nullptr)
        dataSet->setSelfDX_Code(code);
    if (!newDataIsOwned)
        delete newData;
    delete monitor;
    return nullptr;
}

int Zarn::destroy()
{
    if (m_zarnMonitorsQty < 1) {
        m_zarnMonitorsCount = 0;
        return 0;
    }
    int destroyed = 0;
    try {
        // The whole capacity, not only up to the count: holes leave live monitors above it.
        for (int index = 0; index < m_zarnMonitorsQty; ++index) {
            if (m_zarnMonitors[index] == nullptr)
                continue;
            if (destroyed < 0x7FFFFFFF)
                ++destroyed;
            delete m_zarnMonitors[index];
            m_zarnMonitors[index] = nullptr;
            --m_zarnMonitorsCount;
        }
    } catch (...) {
        // Negated, so that the caller sees how far the walk came.
        return -destroyed;
    }
    return destroyed;
}

bool Zarn::destroy(Zarn** monitor, int startIndex, bool wrap)
{
    if (monitor == nullptr || *monitor == nullptr || m_zarnMonitorsQty < 1 || startIndex < 0 ||
        startIndex >= m_zarnMonitorsQty)
        return false;
    int last = m_zarnMonitorsQty - 1;
    if (wrap) {
        if (startIndex == 0)
            wrap = false;
        else
            last = startIndex - 1;
    }
    for (int index = startIndex;;) {
        if (m_zarnMonitors[index] == *monitor) {
            delete *monitor;
            *monitor = nullptr;
            m_zarnMonitors[index] = nullptr;
            if (m_zarnMonitorsCount >= 1)
                --m_zarnMonitorsCount;
            return true;
        }
        if (index == last)
            return false;
        ++index;
        if (wrap && index == m_zarnMonitorsQty)
            index = 0;
    }
}

Zarn* Zarn::getZarnMonitor(int index)
{
    if (index < 0 || index >= m_zarnMonitorsCount)
        return nullptr;
    return m_zarnMonitors[index];
}

Zarn** Zarn::getZarnMonitors()
{
    return m_zarnMonitors;
}

int Zarn::getZarnMonitorsCount()
{
    return m_zarnMonitorsCount;
}

int Zarn::getZarnMonitorsQty()
{
    return m_zarnMonitorsQty;
}

// ---- Text utilities -------------------------------------------------------------------------

const char* Zarn::getPrintableString(const char* text, bool blankIsMarked)
{
    if (text == nullptr)
        return "(NULL)";
    if (*text == '\0' && blankIsMarked)
        return "(BLANK)";
    return text;
}

const wchar_t* Zarn::getPrintableString(const wchar_t* text, bool blankIsMarked)
{
    if (text == nullptr)
        return L"(NULL)";
    if (*text == L'\0' && blankIsMarked)
        return L"(BLANK)";
    return text;
}

unsigned long Zarn::formatMessage(unsigned long flags, wchar_t* format, wchar_t* output, int outputSize,
                                 u64* inserts)
{
    const DWORD size = outputSize < 0 ? 0 : static_cast<DWORD>(outputSize);
    return FormatMessageW(static_cast<DWORD>(flags), format, 0, 0, output, size, inserts);
}

// ---- Life of a monitor ----------------------------------------------------------------------

Zarn::Zarn(ZarnData* const dataSet) : m_dataSet(nullptr), m_initialized(false), m_selfDX_Code(0)
{
    try {
        if (!initialize(dataSet))
            throw false;
    } catch (...) {
        m_initialized = false;
        free_Memory();
        throw false;
    }
}

Zarn::Zarn(const Zarn& other)
    : m_dataSet(other.m_dataSet), m_initialized(other.m_initialized), m_selfDX_Code(other.m_selfDX_Code)
{
}

Zarn& Zarn::operator=(const Zarn& other)
{
    m_dataSet = other.m_dataSet;
    m_initialized = other.m_initialized;
    m_selfDX_Code = other.m_selfDX_Code;
    return *this;
}

Zarn::~Zarn()
{
    free_Memory();
}

bool Zarn::free_Memory()
{
    if (m_dataSet != nullptr) {
        delete m_dataSet;
        m_dataSet = nullptr;
    }
    return true;
}

bool Zarn::initialize(ZarnData* const dataSet)
{
    try {
        if (m_initialized || dataSet == nullptr || !dataSet->isValid())
            throw false;
        m_dataSet = dataSet;
        m_initialized = true;
        return true;
    } catch (...) {
        m_initialized = false;
        free_Memory();
        return false;
    }
}

void Zarn::keepFirstDxCode(const std::exception_ptr& failure, int catchAllCode)
{
    if (isSelfSatisfied())
        m_selfDX_Code = dxCodeOf(failure, catchAllCode);
}

// ---- Responding -----------------------------------------------------------------------------

bool Zarn::respondToSituation(int situationID, void* resourceModule, ...)
{
    bool result = false;
    HMODULE savedModule = nullptr;
    try {
        if (m_dataSet == nullptr)
            throw kNoDataSet;
        m_dataSet->recordSituationID(situationID);
        if (resourceModule != nullptr)
            savedModule = m_dataSet->setResourceModule(resourceModule);
        va_list args;
        va_start(args, resourceModule);
        try {
            m_dataSet->respondToSituation(&args);
        } catch (...) {
            va_end(args);
            throw;
        }
        va_end(args);
        // Deliberately true whatever the situation became: this form reports only that it got past
        // the guard, and callers read isSelfSatisfied() for the rest.
        result = true;
    } catch (...) {
        result = false;
    }
    if (savedModule != nullptr)
        m_dataSet->setResourceModule(savedModule);
    return result;
}

bool Zarn::respondToSituation(int situationID, char** argV, void* resourceModule)
{
    bool result = false;
    HMODULE savedModule = nullptr;
    try {
        if (m_dataSet == nullptr)
            throw kNoDataSet;
        m_dataSet->recordSituationID(situationID);
        if (resourceModule != nullptr)
            savedModule = m_dataSet->setResourceModule(resourceModule);
        result = m_dataSet->respondToSituation(argV);
    } catch (...) {
        result = false;
    }
    if (savedModule != nullptr)
        m_dataSet->setResourceModule(savedModule);
    return result;
}

bool Zarn::respondToSituation()
{
    return m_dataSet != nullptr && m_dataSet->respondToSituation();
}

bool Zarn::reestablishLogFile(const bool& force)
{
    try {
        if (m_dataSet == nullptr)
            throw kNoDataSet;
        if (!m_dataSet->isInstantiatorRunningNatively())
            throw 141;
        if (!m_dataSet->reestablishLogFile(force))
            throw 138;
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 139);
    }
    if (!isSelfSatisfied())
        Zarn_TRACE(L"Zarn::reestablishLogFile () caught exception #%d.\n", getSelfDX_Code());
    return isSelfSatisfied();
}

// ---- Diagnostics ----------------------------------------------------------------------------

int Zarn::getSelfDX_Code() const
{
    if (m_selfDX_Code != 0)
        return m_selfDX_Code;
    if (m_dataSet == nullptr)
        return kNoDataSet;
    return m_dataSet->getSelfDX_Code();
}

void Zarn::forgetSelfDX_Code()
{
    m_selfDX_Code = 0;
    if (m_dataSet != nullptr)
        m_dataSet->forgetSelfDX_Code();
}

void Zarn::setBehaviorCriteria(u64 criteria)
{
    // Deliberately every registered monitor, not this one alone: the criteria are the process's.
    for (int index = 0; index < m_zarnMonitorsCount; ++index) {
        Zarn* monitor = m_zarnMonitors[index];
        if (monitor != nullptr && monitor->m_dataSet != nullptr)
            monitor->m_dataSet->setBehaviorCriteria(criteria);
    }
}

bool Zarn::getDescriptionForDisplay(wchar_t* buffer, int size) const
{
    if (buffer == nullptr)
        return false;
    buffer[0] = L'\0'; // deliberately before the size test: a caller's buffer is never left with old text
    if (size < 1)
        return false;
    return copyDescription(m_dataSet == nullptr ? nullptr : m_dataSet->getDescriptionForDisplay(), buffer, size);
}

bool Zarn::getDescriptionForLogFile(wchar_t* buffer, int size) const
{
    if (buffer == nullptr)
        return false;
    buffer[0] = L'\0'; // deliberately before the size test, as above
    if (size < 1)
        return false;
    return copyDescription(m_dataSet == nullptr ? nullptr : m_dataSet->getDescriptionForLogFile(), buffer, size);
}

// ---- Forwarders: each answers for a monitor without a data set without recording anything -----

Zarn_FUZZY_CHOICE Zarn::canRespondToSituations() const
{
    return m_dataSet == nullptr ? Zarn_FUZZY_UNKNOWN : m_dataSet->canRespondToSituations();
}

bool Zarn::forgetSituation()
{
    return m_dataSet != nullptr && m_dataSet->forgetSituation();
}

const wchar_t* Zarn::formatLogHyperlink(unsigned long code, unsigned int stringID, UTL_String& out) const
{
    return m_dataSet == nullptr ? nullptr : m_dataSet->formatLogHyperlink(code, stringID, out);
}

const wchar_t* Zarn::formatLogHyperlinkWinSDK(unsigned long code) const
{
    return m_dataSet == nullptr ? nullptr : m_dataSet->formatLogHyperlinkWinSDK(code);
}

u64 Zarn::getBehaviorCriteria() const
{
    return m_dataSet == nullptr ? ZARN_DEFAULT_BEHAVIOR_CRITERIA : m_dataSet->getBehaviorCriteria();
}

u64* Zarn::getDescriptionFillers() const
{
    return m_dataSet == nullptr ? nullptr : m_dataSet->getDescriptionFillers();
}

HWND Zarn::getDisplayDlgBoxParent() const
{
    return m_dataSet == nullptr ? nullptr : m_dataSet->getDisplayDlgBoxParent();
}

int Zarn::getDisplayDlgBoxResult() const
{
    return m_dataSet == nullptr ? 0 : m_dataSet->getDisplayDlgBoxResult();
}

bool Zarn::getFileLogName(wchar_t* buffer, size_t size) const
{
    return m_dataSet != nullptr && m_dataSet->getFileLogName(buffer, size);
}

int Zarn::getSituationID() const
{
    return m_dataSet == nullptr ? 0 : m_dataSet->getSituationID();
}

Zarn_DX_MODE Zarn::getSituationMode() const
{
    return m_dataSet == nullptr ? 0 : m_dataSet->getSituationMode();
}

unsigned long Zarn::getSituationsCount() const
{
    return m_dataSet == nullptr ? 0 : m_dataSet->getSituationsCount();
}

unsigned long Zarn::getSituationsQty() const
{
    return m_dataSet == nullptr ? 0 : m_dataSet->getSituationsQty();
}

const wchar_t* Zarn::getTag(Zarn_FORM_TAG tag) const
{
    return m_dataSet == nullptr ? nullptr : m_dataSet->getTag(tag);
}

bool Zarn::isSituationNormal() const
{
    return m_dataSet == nullptr || m_dataSet->isSituationNormal();
}

int Zarn::recordArgument(const char* value, int position)
{
    return m_dataSet == nullptr ? -1 : m_dataSet->recordArgument(value, position);
}

int Zarn::recordArgument(const wchar_t* value, int position)
{
    return m_dataSet == nullptr ? -1 : m_dataSet->recordArgument(value, position);
}

int Zarn::recordArgument(int value, int position)
{
    return m_dataSet == nullptr ? -1 : m_dataSet->recordArgument(value, position);
}

int Zarn::recordArgument(unsigned int value, int position)
{
    return m_dataSet == nullptr ? -1 : m_dataSet->recordArgument(value, position);
}

int Zarn::recordSituationID(int situationID)
{
    return m_dataSet == nullptr ? 0 : m_dataSet->recordSituationID(situationID);
}

int Zarn::recordSituationID_Remote(int situationID)
{
    return m_dataSet == nullptr ? 0 : m_dataSet->recordSituationID_Remote(situationID);
}

bool Zarn::removeThread()
{
    return m_dataSet != nullptr && m_dataSet->removeThread();
}

ZarnDisplayDlgBoxFunction Zarn::setDisplayDlgBoxFunction(ZarnDisplayDlgBoxFunction function)
{
    return m_dataSet == nullptr ? nullptr : m_dataSet->setDisplayDlgBoxFunction(function);
}

HWND Zarn::setDisplayDlgBoxParent(HWND parent)
{
    return m_dataSet == nullptr ? nullptr : m_dataSet->setDisplayDlgBoxParent(parent);
}

bool Zarn::setLogFileByteCountLimit(unsigned long long limit, unsigned long long& previous)
{
    return m_dataSet != nullptr && m_dataSet->setLogFileByteCountLimit(limit, previous);
}

HMODULE Zarn::setResourceModule(void* module)
{
    return m_dataSet == nullptr ? nullptr : m_dataSet->setResourceModule(module);
}

unsigned int Zarn::getArg_UInt(int index) const
{
    return m_dataSet == nullptr ? 0 : m_dataSet->getArg_UInt(index);
}

// ---- Traces ---------------------------------------------------------------------------------

void Zarn_TRACE(const wchar_t* format, ...)
{
    va_list args;
    va_start(args, format);
    traceLine(format, args);
    va_end(args);
}

void Zarn_TRACE_W(const wchar_t* format, ...)
{
    va_list args;
    va_start(args, format);
    traceLine(format, args);
    va_end(args);
}
