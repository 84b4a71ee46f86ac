// The log file of a data set: opening, closing, establishing and replacing it, and its byte limit.
#include "monitor/ZarnData.h"

#include "foundation/free_Array.h"
#include "monitor/Zarn.h"
#include "monitor/ZarnDataForThread.h"
#include "owner/ZarnDataZGW.h"
#include "platform/CRuntime.h"
#include "platform/Threads.h"

#include <QFile>
#include <QString>
#include <QTextStream>

#include <cwchar>
#include <cwctype>
#include <mutex>
#include <new>

// One more than the 260 characters that may be copied, for the terminator that wcsncpy leaves out
// when a name fills them all.
wchar_t ZarnData::s_logSeriesOrigin[MAX_PATH + 1] = {};
int ZarnData::s_logSeriesCount = 1;

namespace {

constexpr u64 kLogFileByteCountLimit_Min = 1048576;  // 1 MiB
constexpr u64 kLogFileByteCountLimit_Max = 78643200; // 75 MiB

constexpr int kOpenModeReadOnly = 1;  // QIODevice::ReadOnly
constexpr int kOpenModeReadWrite = 3; // QIODevice::ReadWrite, never with truncation

constexpr unsigned long kFormMaskNative = SECTION_HEAD | SECTION_BODY | SECTION_TAIL;
constexpr unsigned long kFormMaskNonnative = SECTION_BODY;

// The situation that opens every successor file with its number in the series and the series' first file.
constexpr int kSeriesSituationID = 10006;
// How often a successor's name is composed again while it repeats the last one.
constexpr int kSuccessorNameAttempts = 20;

// Replacements of every monitor of the process, one at a time: the series statics, the last
// successor's name and the temporary owner object that composes it are shared by all monitors.
// Taken after the data set's lock, never before it, so that two monitors cannot wait for each other.
std::recursive_mutex& replacementLock()
{
    static std::recursive_mutex lock;
    return lock;
}

// The name of the last successor of any monitor of the process.
wchar_t s_lastSuccessorName[MAX_PATH] = {};

// What both forms of a replacement ask first: a data set without a code, a native process, its lock.
void passReplacementGuards(const ZarnData& dataSet, bool entered)
{
    if (!dataSet.isSelfApproving())
        throw dataSet.getSelfDX_Code();
    if (!dataSet.isInstantiatorRunningNatively())
        throw 141;
    if (!entered)
        throw 262;
}

bool holdsOnlyWhiteSpace(const wchar_t* text)
{
    for (; *text != L'\0'; ++text) {
        if (!std::iswspace(static_cast<wint_t>(*text)))
            return false;
    }
    return true;
}

bool equalsIgnoringCase(const wchar_t* left, const wchar_t* right)
{
    return left != nullptr && right != nullptr && _wcsicmp(left, right) == 0;
}

} // namespace

// ---------------------------------------------------------------------------------------------
// Opening and closing

bool ZarnData::openFile(wchar_t** nameSlot, QTextStream** streamSlot, wchar_t* const name, int openMode)
{
    QTextStream* madeStream = nullptr;
    bool madeName = false;
    try {
        if (!isSelfApproving())
            throw getSelfDX_Code();
        if (nameSlot == nullptr || streamSlot == nullptr || *streamSlot != nullptr || name == nullptr
            || name[0] == L'\0')
            throw 43;
        if (*nameSlot != name) {
            const size_t length = std::wcslen(name);
            wchar_t* const copy = new (std::nothrow) wchar_t[length + 1];
            delete[] *nameSlot;
            *nameSlot = copy;
            if (copy == nullptr)
                throw 44;
            std::wmemcpy(copy, name, length + 1);
            madeName = true;
        }
        QFile* file = nullptr;
        try {
            file = new QFile(QString::fromWCharArray(name));
        } catch (...) {
            throw 45;
        }
        if (!file->open(QIODevice::OpenMode(openMode))) {
            delete file;
            throw 45;
        }
        try {
            madeStream = new QTextStream(file);
        } catch (...) {
            delete file;
            throw;
        }
        *streamSlot = madeStream;
        madeStream->setGenerateByteOrderMark(true);
        madeStream->setAutoDetectUnicode(true);
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 42);
    }
    if (isSelfSatisfied())
        return true;

    Zarn_TRACE(L"ZarnData::openFile () caught exception #%d", getSelfDX_Code());
    if (name != nullptr && name[0] != L'\0')
        Zarn_TRACE(L" when trying to open file %ls", name);
    Zarn_TRACE(L".\n");
    if (madeStream != nullptr) {
        QTextStream* stream = madeStream;
        if (!closeFile(stream, name))
            Zarn_TRACE(L"ZarnData::openFile () failed during error recovery mode operations to close the file "
                       L"it opened.\n");
        *streamSlot = nullptr;
    }
    if (madeName) {
        delete[] *nameSlot;
        *nameSlot = nullptr;
    }
    return false;
}

bool ZarnData::closeFile(QTextStream*& stream, const wchar_t* name)
{
    (void)name;
    if (stream == nullptr)
        return true;
    try {
        stream->flush();
        // The stream owns its file through its device; deleting the device closes the file.
        delete stream->device();
        delete stream;
        stream = nullptr;
        return true;
    } catch (...) {
        return false;
    }
}

bool ZarnData::openLogFile(wchar_t* const name)
{
    if (!isInstantiatorRunningNatively())
        return false;
    // A new file starts its counts afresh, and does so even if it then fails to open: a failed
    // open must not leave the byte count at the limit, where every situation would retry it.
    m_situationsCount = 0;
    m_situationsQty = 0;
    m_fileLog.m_logByteCount = 0;
    m_fileLog.m_tailPosition = 0;
    m_fileLog.m_tailCountsBytes = true;
    return openFile(&m_fileLog.m_logName, &m_fileLog.m_logStream, name, kOpenModeReadWrite);
}

bool ZarnData::openLogFileForm(wchar_t* const name)
{
    return openFile(&m_fileLog.m_formName, &m_fileLog.m_formStream, name, kOpenModeReadOnly);
}

bool ZarnData::closeLogFile()
{
    if (!isInstantiatorRunningNatively())
        return false;
    return closeFile(m_fileLog.m_logStream, m_fileLog.m_logName);
}

// ---------------------------------------------------------------------------------------------
// Establishing

bool ZarnData::establishLogFile(bool learnForm)
{
    const bool native = isInstantiatorRunningNatively();
    bool entered = false;
    try {
        if (!m_initialized && !initialize())
            throw getSelfDX_Code();
        if (!isSelfApproving())
            throw getSelfDX_Code();
        entered = enterCriticalSection();
        if (!entered)
            throw 262;
        // A nonnative instantiator hands its entries to the proxy, so it needs the body only.
        if (learnForm && !obtainLogFileFormData(native ? kFormMaskNative : kFormMaskNonnative))
            throw getSelfDX_Code();
        if (!native) {
            m_safeToAllocateMemory = false;
        } else {
            if (!openLogFile(m_fileLog.m_logName))
                throw getSelfDX_Code();
            // Without a head (both forms failed and the head data was freed) the file stays empty
            // until its first entry.
            if (m_fileLog.m_headFormat != nullptr) {
                ZarnDataForThread* const engine = obtainDataForCurrentThread(true);
                if (engine == nullptr)
                    throw 271;
                // Only the head may allocate: it alone carries the injected reports.
                const auto writeHead = [this, engine]() {
                    m_safeToAllocateMemory = true;
                    engine->logFormSectionHead();
                    m_safeToAllocateMemory = false;
                };
                writeHead();
                if (!isSelfSatisfied()) {
                    freeLogFileFormSectionHeadData();
                    // A form file whose head can't be written gives way to the built-in form.
                    if (!m_fileLog.m_formIsBuiltIn) {
                        forgetSelfDX_Code();
                        supplantLogFileFormFromResDLL(kFormMaskNative);
                        writeHead();
                    }
                    if (!isSelfSatisfied()) {
                        const int code = getSelfDX_Code();
                        freeLogFileFormSectionHeadData();
                        throw code;
                    }
                }
                if (!engine->logFormSectionTail())
                    throw engine->getSelfDX_Code();
            }
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 121);
    }
    if (!isSelfSatisfied()) {
        if (native)
            closeLogFile();
        Zarn_TRACE(L"ZarnData::establishLogFile (%s) caught exception #%d.\n", learnForm ? L"true" : L"false",
                   getSelfDX_Code());
    }
    if (entered && !leaveCriticalSection() && isSelfSatisfied())
        m_selfDX_Code = 263;
    return isSelfSatisfied();
}

// ---------------------------------------------------------------------------------------------
// Replacing

bool ZarnData::reestablishLogFile(wchar_t* logName, wchar_t* formName, Zarn_LOG kind)
{
    const bool entered = enterCriticalSection();
    try {
        passReplacementGuards(*this, entered);
        const std::lock_guard<std::recursive_mutex> oneAtATime(replacementLock());
        // The series is named after its first file, whichever file is being replaced now.
        if (s_logSeriesOrigin[0] == L'\0' && m_fileLog.m_logName != nullptr)
            std::wcsncpy(s_logSeriesOrigin, m_fileLog.m_logName, MAX_PATH);
        if (logName == nullptr)
            throw 134;
        if (holdsOnlyWhiteSpace(logName))
            throw 132;
        const wchar_t* const effectiveForm = formName != nullptr ? formName : m_fileLog.m_formName;
        if (equalsIgnoringCase(effectiveForm, logName))
            throw 135;

        if (!closeLogFile())
            throw 119;
        if (!equalsIgnoringCase(m_fileLog.m_logName, logName)
            && !duplicate_String(&m_fileLog.m_logName, logName, true))
            throw 133;

        // A null form name with a stored form counts as a change, and clears the stored form.
        const bool storedForm = m_fileLog.m_formName != nullptr;
        const bool givenForm = formName != nullptr && formName[0] != L'\0';
        const bool formChanged =
            storedForm != givenForm || (storedForm && givenForm && !equalsIgnoringCase(m_fileLog.m_formName, formName));
        if (formChanged) {
            free_Array(m_fileLog.m_formName);
            if (givenForm && !duplicate_String(&m_fileLog.m_formName, formName, false))
                forgetSelfDX_Code();
        }
        if (kind != Zarn_LOG_UNSET)
            m_fileLog.m_logKind = kind;

        if (!establishLogFile(formChanged))
            throw getSelfDX_Code();
        ++s_logSeriesCount;

        if (m_owner != nullptr && m_selfResourceModule != nullptr) {
            // Situation 10006 is one of the library's own, so its spec comes from the library's module.
            const HMODULE previous = setResourceModule(m_selfResourceModule);
            if (!m_owner->respondToSituation(kSeriesSituationID, nullptr, static_cast<unsigned int>(s_logSeriesCount),
                                             s_logSeriesOrigin))
                m_owner->forgetSituation();
            if (previous != nullptr)
                setResourceModule(previous);
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 139);
    }
    if (!isSelfSatisfied())
        Zarn_TRACE(L"ZarnData::reestablishLogFile () [1] caught exception #%d.\n", getSelfDX_Code());
    if (entered && !leaveCriticalSection()) {
        if (isSelfSatisfied())
            m_selfDX_Code = 263;
        Zarn_TRACE(L"ZarnData::reestablishLogFile () [1] failed to leave critical section.\n");
    }
    return isSelfSatisfied();
}

bool ZarnData::reestablishLogFile(const bool& force)
{
    const bool entered = enterCriticalSection();
    int successorCode = 0;
    try {
        passReplacementGuards(*this, entered);
        // Deliberately no replacement when forced on a file at its limit: the engine's rollover
        // passes false, which always replaces.
        if (force && m_fileLog.m_logStream != nullptr && m_fileLog.m_logByteCount >= m_logFileByteCountLimit)
            throw 0;

        const std::lock_guard<std::recursive_mutex> oneAtATime(replacementLock());
        wchar_t successor[MAX_PATH] = {};
        bool composed = false;
        // A successor is named to the millisecond: another monitor's replacement in the same
        // millisecond would otherwise write into the same file.
        for (int attempt = 0; attempt < kSuccessorNameAttempts; ++attempt) {
            if (attempt > 0)
                Sleep(1);
            try {
                composed = learnSuccessorLogFileName(successor, MAX_PATH);
            } catch (int code) {
                successorCode = code;
            } catch (...) {
            }
            if (!composed || std::wcscmp(successor, s_lastSuccessorName) != 0)
                break;
        }
        if (!composed)
            throw 142;
        if (successor[0] == L'\0')
            throw 140;
        std::wcsncpy(s_lastSuccessorName, successor, MAX_PATH - 1);
        // Its result is its code, which stays in this data set.
        reestablishLogFile(successor, m_fileLog.m_formName, m_fileLog.m_logKind);
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 139);
    }
    if (!isSelfSatisfied())
        Zarn_TRACE(L"ZarnData::reestablishLogFile () [2] caught exception #%d/%d.\n", getSelfDX_Code(), successorCode);
    if (entered && !leaveCriticalSection() && isSelfSatisfied())
        m_selfDX_Code = 263;
    return isSelfSatisfied();
}

bool ZarnData::learnSuccessorLogFileName(wchar_t* buffer, size_t size)
{
    if (buffer == nullptr || size == 0)
        return false;
    std::wmemset(buffer, 0, size);
    // A temporary owner object composes the name as the first file's was composed, from the log
    // directory and the present time. It has owner 0, so a successor never bears a user's name.
    // An int that its constructor throws goes to the caller's trace.
    ZarnDataZGW successor(0, true, m_selfResourceModule, m_resModuleBootstrap, m_fileLog.m_logKind);
    successor.getLogFileFQPath(buffer, size);
    return true;
}

// ---------------------------------------------------------------------------------------------
// The byte limit and the name

bool ZarnData::setLogFileByteCountLimit(unsigned long long limit, unsigned long long& previous)
{
    const bool entered = enterCriticalSection();
    try {
        if (!isSelfApproving())
            throw getSelfDX_Code();
        if (!entered)
            throw 262;
        if (!isInstantiatorRunningNatively())
            throw 115;
        if (limit > kLogFileByteCountLimit_Max)
            throw 116;
        if (limit < kLogFileByteCountLimit_Min)
            throw 117;
        previous = m_logFileByteCountLimit;
        m_logFileByteCountLimit = limit;
        // A file already at the new limit would otherwise wait for the next situation to be replaced.
        if (m_fileLog.m_logStream != nullptr && m_fileLog.m_logByteCount >= limit && !reestablishLogFile(false)) {
            m_logFileByteCountLimit = previous;
            forgetSelfDX_Code();
            throw 118;
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 114);
    }
    if (!isSelfSatisfied()) {
        Zarn_TRACE(L"ZarnData::setLogFileByteCountLimit () caught exception #%d.\n", getSelfDX_Code());
        previous = 0;
    }
    if (entered && !leaveCriticalSection()) {
        if (isSelfSatisfied())
            m_selfDX_Code = 263;
        Zarn_TRACE(L"ZarnData::setLogFileByteCountLimit () failed to leave critical section.\n");
    }
    return isSelfSatisfied();
}

bool ZarnData::getFileLogName(wchar_t* buffer, size_t size)
{
    const bool entered = enterCriticalSection();
    try {
        if (!isSelfApproving())
            throw getSelfDX_Code();
        if (!entered)
            throw 262;
        if (buffer == nullptr)
            throw 63;
        buffer[0] = L'\0';
        if (m_fileLog.m_logStream == nullptr)
            throw 61;
        if (m_fileLog.m_logName == nullptr || m_fileLog.m_logName[0] == L'\0')
            throw 62;
        const size_t length = std::wcslen(m_fileLog.m_logName);
        if (length >= size)
            throw 64;
        std::wmemset(buffer, 0, size);
        std::wmemcpy(buffer, m_fileLog.m_logName, length);
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 60);
        if (buffer != nullptr)
            buffer[0] = L'\0';
    }
    if (entered && !leaveCriticalSection() && isSelfSatisfied())
        m_selfDX_Code = 263;
    return isSelfSatisfied();
}
