// The stages of ZarnDataForThread that write sections of the log file: the head when a file is
// established, and for each situation an entry over the old tail followed by a fresh tail.
//
// The file on disk is UTF-16 with a leading U+FEFF. The tail is rewritten after every entry, so
// the file is a whole document between two situations.
#include "monitor/ZarnDataForThread.h"

#include "foundation/free_Array.h"
#include "log/ZarnDataFile.h"
#include "monitor/Zarn.h"
#include "monitor/ZarnData.h"
#include "platform/FormatMessage.h"
#include "platform/LastError.h"
#include "platform/LocalMemory.h"
#include "platform/Modules.h"
#include "platform/Threads.h"

#include <QChar>
#include <QDate>
#include <QDateTime>
#include <QFileDevice>
#include <QString>
#include <QTextCodec>
#include <QTextStream>
#include <QTime>

#include <algorithm>
#include <cstring>
#include <cwchar>

namespace {

// The text codecs whose bytes are two to a UTF-16 unit (QTextCodec::mibEnum).
constexpr int kMibUtf16 = 1015;
constexpr int kMibUtf16LE = 1014;

// Pushes what the stream holds to the file. A write that the file system refused (a full disk)
// keeps its rest in the file's buffer, to go out once there is room; the stream's error is cleared,
// for Qt would otherwise drop every later section without a word.
void flushLogStream(QTextStream& stream)
{
    stream.flush();
    if (stream.status() != QTextStream::Ok)
        stream.resetStatus();
}

// Writes a section's text and returns its bytes. In the log's UTF-16 they are known without the
// device, so the text waits in the stream and goes out with the tail that follows it: an entry
// and its tail reach the file in one write, and a process killed between two writes cannot leave
// an entry without a tail. Another codec is counted on the device, after a flush.
unsigned long long writeSectionText(QTextStream& stream, const QString& text)
{
    const int mib = stream.codec() != nullptr ? stream.codec()->mibEnum() : 0;
    if (mib == kMibUtf16 || mib == kMibUtf16LE) {
        stream << text;
        return 2ull * static_cast<unsigned long long>(text.size());
    }
    const qint64 start = stream.pos();
    stream << text;
    flushLogStream(stream);
    const qint64 end = stream.pos();
    return end > start ? static_cast<unsigned long long>(end - start) : 0;
}

// FORMAT_MESSAGE_FROM_STRING with FORMAT_MESSAGE_ARGUMENT_ARRAY; FORMAT_MESSAGE_ALLOCATE_BUFFER is
// added only while the head is written.
constexpr unsigned long kSectionFormatFlags = FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ARGUMENT_ARRAY;
static_assert(kSectionFormatFlags == 0x2400, "the section's formatter flags");
static_assert(FORMAT_MESSAGE_ALLOCATE_BUFFER == 0x100, "the allocating formatter flag");

// Sizes of the allocated result, in characters: where it starts and the last it grows to.
constexpr DWORD kAllocatedSize_Start = 65536;
constexpr DWORD kAllocatedSize_Final = 524288;

// The table row that stands in for an injected text given up for lack of room.
constexpr unsigned int kMemoryLimitationRowID = 10034;

constexpr unsigned long long kByteCountSaturated = ~0ull;

static_assert(sizeof(unsigned long long) == sizeof(u64), "a section's values are the formatter's inserts");

// What an absent text is inserted as.
const wchar_t kEmptyText[] = L"";

// Zeroes a scratch buffer by its recorded size, never past the buffer itself.
void zeroScratch(wchar_t (&buffer)[ZarnScratchpad::kCharacters], unsigned long bytes)
{
    std::memset(buffer, 0, std::min<unsigned long>(bytes, sizeof buffer));
}

bool isEmptyText(const wchar_t* text)
{
    return text == nullptr || text[0] == L'\0';
}

unsigned long long textValue(const wchar_t* text)
{
    return reinterpret_cast<unsigned long long>(text != nullptr ? text : kEmptyText);
}

void addSaturating(unsigned long long& count, unsigned long long bytes)
{
    count = bytes >= kByteCountSaturated - count ? kByteCountSaturated : count + bytes;
}

// The tag that fills a form variable, or -1 if the variable isn't a tag.
int tagOfFormVar(int var)
{
    switch (var) {
    case Zarn_FORM_VAR_COMPANY_KNOW_BASE: return Zarn_FORM_TAG_COMPANY_KNOW_BASE;
    case Zarn_FORM_VAR_COMPANY_NAME_LONG: return Zarn_FORM_TAG_COMPANY_NAME_LONG;
    case Zarn_FORM_VAR_COMPANY_NAME_SHORT: return Zarn_FORM_TAG_COMPANY_NAME_SHORT;
    case Zarn_FORM_VAR_COMPANY_WEBSITE: return Zarn_FORM_TAG_COMPANY_WEBSITE;
    case Zarn_FORM_VAR_FILE_VERSION: return Zarn_FORM_TAG_FILE_VERSION;
    case Zarn_FORM_VAR_HOME_DIRECTORY: return Zarn_FORM_TAG_HOME_DIRECTORY;
    case Zarn_FORM_VAR_MODULE_FILE_NAME: return Zarn_FORM_TAG_MODULE_FILE_NAME;
    case Zarn_FORM_VAR_MODULE_NAME: return Zarn_FORM_TAG_MODULE_NAME;
    case Zarn_FORM_VAR_NAME_OF_DOMAIN: return Zarn_FORM_TAG_NAME_OF_DOMAIN;
    case Zarn_FORM_VAR_NAME_OF_HOST: return Zarn_FORM_TAG_NAME_OF_HOST;
    case Zarn_FORM_VAR_NAME_OF_SESSION: return Zarn_FORM_TAG_NAME_OF_SESSION;
    case Zarn_FORM_VAR_NAME_OF_USER: return Zarn_FORM_TAG_NAME_OF_USER;
    case Zarn_FORM_VAR_PRODUCT_NAME: return Zarn_FORM_TAG_PRODUCT_NAME;
    case Zarn_FORM_VAR_PRODUCT_VERSION: return Zarn_FORM_TAG_PRODUCT_VERSION;
    case Zarn_FORM_VAR_SUITE_NAME: return Zarn_FORM_TAG_SUITE_NAME;
    default: return -1;
    }
}

// A heap copy of what an injector's formatter wrote, read back from the start of its stream; null
// if it can't be had, which leaves that injector without text but the section going.
wchar_t* obtainInjectedText(QTextStream* stream)
{
    wchar_t* copy = nullptr;
    try {
        // Seeking flushes what the formatter left in the stream's buffer.
        stream->seek(0);
        const QString text = stream->readAll();
        const size_t length = static_cast<size_t>(text.length());
        copy = new wchar_t[length + 2];
        // Deliberately only length + 2 bytes are zeroed; the terminator below is what ends the text.
        std::memset(copy, 0, length + 2);
        copy[text.toWCharArray(copy)] = L'\0';
    } catch (...) {
        free_Array(copy);
    }
    return copy;
}

// Whether a value slot still points at `text`.
bool isTextInValues(const wchar_t* text, const unsigned long long* values, int count)
{
    for (int i = 0; i < count; ++i) {
        if (values[i] == reinterpret_cast<unsigned long long>(text))
            return true;
    }
    return false;
}

} // namespace

bool ZarnDataForThread::logFormSection(wchar_t* const format, int varCount, Zarn_FORM_VAR* const vars,
                                       unsigned long long* const values, unsigned long long& bytesWritten,
                                       bool countBytes)
{
    constexpr int kInjectorsQty = ZarnDataFile::kInjectorsQty;
    bool entered = false;
    bool allocating = false;
    wchar_t* injectorText[kInjectorsQty] = {};
    // Deliberately {-1, 0, 0}: a section without the later injector variables still gives up
    // "their" text by putting the row into argument 0 (see the discarding step below).
    int injectorArg[kInjectorsQty] = {-1, 0, 0};
    int injectorsOutstanding = 0;
    wchar_t* allocated = nullptr;
    try {
        entered = enterCriticalSection();
        bytesWritten = 0;
        SetLastError(0);
        passGuards();
        if (!m_dataSet->isInstantiatorRunningNatively())
            throw 177;
        if (!entered)
            throw 262;
        ZarnDataFile* const file = m_dataSet->getFileLog();
        if (file == nullptr)
            throw 136;
        if (isEmptyText(format)) {
            if (varCount != 0 || vars != nullptr || values != nullptr)
                throw 184;
            throw 0; // an empty section with nothing to fill: nothing to write
        }
        QTextStream* const stream = file->m_logStream;
        if (stream == nullptr)
            throw 120;

        // Only the head may allocate; entries are written with the engine's own buffers alone.
        allocating = m_dataSet->isSafeToAllocateMemory();
        if (allocating && file->m_injectorStreams != nullptr) {
            for (int injector = 0; injector < kInjectorsQty; ++injector) {
                if (file->m_injectorStreams[injector] != nullptr)
                    injectorText[injector] = obtainInjectedText(file->m_injectorStreams[injector]);
            }
        }

        // One moment for every time variable of the section.
        const QDateTime now = QDateTime::currentDateTime();
        const QDate date = now.date();
        const QTime time = now.time();
        bool countsAsEntry = false;
        for (int i = 0; vars != nullptr && values != nullptr && i < varCount; ++i) {
            values[i] = 0;
            const int var = vars[i];
            const int tag = tagOfFormVar(var);
            if (tag >= 0) {
                values[i] = textValue(m_dataSet->getTag(static_cast<Zarn_FORM_TAG>(tag)));
                continue;
            }
            switch (var) {
            case Zarn_FORM_VAR_DAY: values[i] = static_cast<unsigned long long>(date.day()); break;
            case Zarn_FORM_VAR_HOURS: values[i] = static_cast<unsigned long long>(time.hour()); break;
            case Zarn_FORM_VAR_MILLISECONDS: values[i] = static_cast<unsigned long long>(time.msec()); break;
            case Zarn_FORM_VAR_MINUTES: values[i] = static_cast<unsigned long long>(time.minute()); break;
            case Zarn_FORM_VAR_MONTH: values[i] = static_cast<unsigned long long>(date.month()); break;
            case Zarn_FORM_VAR_SECONDS: values[i] = static_cast<unsigned long long>(time.second()); break;
            case Zarn_FORM_VAR_YEAR: values[i] = static_cast<unsigned long long>(date.year()); break;
            case Zarn_FORM_VAR_ENTRY_COLOR:
                values[i] = (m_dataSet->getSituationsCount() % 2) != 0 ? file->m_entryColorOdd : file->m_entryColorEven;
                break;
            case Zarn_FORM_VAR_ENTRY_ID:
                values[i] = m_dataSet->getSituationsCount() + 1;
                countsAsEntry = true;
                break;
            case Zarn_FORM_VAR_LOGFILE_NAME: values[i] = textValue(file->m_logName); break;
            case Zarn_FORM_VAR_PROCESS_ID: values[i] = GetCurrentProcessId(); break;
            case Zarn_FORM_VAR_SITUATION_DSCRP: values[i] = textValue(m_descriptionForLogFile); break;
            case Zarn_FORM_VAR_SITUATION_ID:
                values[i] = static_cast<unsigned long long>(m_situationID_Remote != 0 ? m_situationID_Remote
                                                                                     : m_situationID);
                break;
            case Zarn_FORM_VAR_SYS_INFO_ENV_APP:
            case Zarn_FORM_VAR_SYS_INFO_ENV_OP:
            case Zarn_FORM_VAR_SYS_INFO_VARS_ENV: {
                const int injector = var - Zarn_FORM_VAR_SYS_INFO_ENV_APP;
                if (injectorText[injector] != nullptr)
                    ++injectorsOutstanding;
                values[i] = textValue(injectorText[injector]);
                injectorArg[injector] = i;
                break;
            }
            default:
                throw 201;
            }
        }

        u64* const inserts = reinterpret_cast<u64*>(values);
        wchar_t* text = nullptr;
        unsigned long count = 0;
        if (!allocating) {
            wchar_t* const scratch = m_scratchpad.m_scratchA;
            zeroScratch(m_scratchpad.m_scratchA, m_scratchpad.m_scratchA_Bytes);
            count = Zarn::formatMessage(kSectionFormatFlags, format, scratch, ZarnScratchpad::kCharacters, inserts);
            // An entry of 1024 characters or more is lost here, and the file stays as it was.
            if (count == 0)
                throw 178;
            text = scratch;
        } else {
            DWORD size = kAllocatedSize_Start;
            bool rowLoaded = false;
            for (;;) {
                allocated = nullptr;
                count = Zarn::formatMessage(kSectionFormatFlags | FORMAT_MESSAGE_ALLOCATE_BUFFER, format,
                                            reinterpret_cast<wchar_t*>(&allocated), static_cast<int>(size), inserts);
                if (count != 0)
                    break;
                LocalFree(allocated);
                allocated = nullptr;
                if (injectorsOutstanding < 1 && size >= kAllocatedSize_Final)
                    throw 178;
                if (size < kAllocatedSize_Final) {
                    size *= 2;
                } else {
                    // Give up one injected text, the last injector first.
                    int injector = kInjectorsQty - 1;
                    while (injector >= 0 && injectorArg[injector] == -1)
                        --injector;
                    // Every argument of an injector is given up already: trying again would change nothing.
                    if (injector < 0)
                        throw 178;
                    if (!rowLoaded) {
                        // A row that can't be loaded leaves the empty text in its place.
                        zeroScratch(m_scratchpad.m_scratchB, m_scratchpad.m_scratchB_Bytes);
                        LoadStringW(m_dataSet->getSelfResourceModule(), kMemoryLimitationRowID,
                                    m_scratchpad.m_scratchB, ZarnScratchpad::kCharacters);
                        rowLoaded = true;
                    }
                    values[injectorArg[injector]] = textValue(m_scratchpad.m_scratchB);
                    injectorArg[injector] = -1;
                    // A variable used twice still points at the text; it is freed with the others then.
                    if (!isTextInValues(injectorText[injector], values, varCount)) {
                        free_Array(injectorText[injector]);
                    }
                    --injectorsOutstanding;
                    size = kAllocatedSize_Start;
                }
                SetLastError(0);
            }
            if (allocated == nullptr)
                throw 172;
            text = allocated;
        }

        if (std::wcslen(text) != count) {
            m_selfDX_Code = 160;
        } else {
            stream->setGenerateByteOrderMark(false);
            bytesWritten = writeSectionText(*stream, QString::fromWCharArray(text, static_cast<int>(count)));
        }
        if (countBytes && file->m_logByteCount != kByteCountSaturated)
            addSaturating(file->m_logByteCount, bytesWritten);
        if (countsAsEntry)
            m_dataSet->incrementSituationsCount(1);
        if (!isSelfSatisfied())
            throw getSelfDX_Code();
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 145);
    }
    LocalFree(allocated);
    for (wchar_t* const copy : injectorText)
        delete[] copy;
    if (!allocating)
        zeroScratch(m_scratchpad.m_scratchA, m_scratchpad.m_scratchA_Bytes);
    if (!isSelfSatisfied())
        bytesWritten = 0;
    if (entered && !leaveCriticalSection() && isSelfSatisfied())
        m_selfDX_Code = 263;
    return isSelfSatisfied();
}

bool ZarnDataForThread::logFormSectionHead()
{
    bool entered = false;
    try {
        entered = enterCriticalSection();
        passGuards();
        if (!m_dataSet->isInstantiatorRunningNatively())
            throw 171;
        if (!entered)
            throw 262;
        ZarnDataFile* const file = m_dataSet->getFileLog();
        if (file == nullptr)
            throw 136;
        if (isEmptyText(file->m_headFormat)) {
            if (file->m_headVarCount != 0 || file->m_headVars != nullptr || file->m_headValues != nullptr)
                throw 167;
            throw 0;
        }
        QTextStream* const stream = file->m_logStream;
        if (stream == nullptr)
            throw 120;
        // A head goes only at the start of a file.
        if (file->m_tailPosition > 0)
            throw 165;
        if (!stream->seek(file->m_tailPosition))
            throw 169;

        QTextCodec* const codec = QTextCodec::codecForName("UTF-16");
        if (codec == nullptr)
            throw 163;
        stream->setAutoDetectUnicode(false);
        stream->setCodec(codec);
        // The mark is written by hand; the codec would otherwise add one of its own.
        stream->setGenerateByteOrderMark(false);
        *stream << QChar(0xFEFF);
        unsigned long long headBytes = 2;
        addSaturating(file->m_logByteCount, 2);

        unsigned long long sectionBytes = 0;
        if (!logFormSection(file->m_headFormat, file->m_headVarCount, file->m_headVars, file->m_headValues,
                            sectionBytes, true))
            throw getSelfDX_Code();
        headBytes += sectionBytes;
        file->m_tailPosition += static_cast<int>(headBytes);
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 163);
    }
    if (entered && !leaveCriticalSection() && isSelfSatisfied())
        m_selfDX_Code = 263;
    return isSelfSatisfied();
}

bool ZarnDataForThread::logFormSectionBody()
{
    bool entered = false;
    try {
        entered = enterCriticalSection();
        passGuards();
        if (!m_dataSet->isInstantiatorRunningNatively())
            throw 158;
        if (!entered)
            throw 262;
        ZarnDataFile* const file = m_dataSet->getFileLog();
        if (file == nullptr)
            throw 136;
        if (isEmptyText(file->m_bodyFormat)) {
            if (file->m_bodyVarCount != 0 || file->m_bodyVars != nullptr || file->m_bodyValues != nullptr)
                throw 155;
            throw 0;
        }
        QTextStream* const stream = file->m_logStream;
        if (stream == nullptr)
            throw 120;
        if (file->m_tailPosition < 0)
            throw 157;
        // What a refused write left in the file's buffer goes out first, where that write stopped;
        // a seek that failed once no longer writes it, and would leave it for this entry's place.
        if (auto* const device = qobject_cast<QFileDevice*>(stream->device()))
            device->flush();
        // The entry goes over the previous tail.
        if (!stream->seek(file->m_tailPosition))
            throw 156;

        unsigned long long sectionBytes = 0;
        if (!logFormSection(file->m_bodyFormat, file->m_bodyVarCount, file->m_bodyVars, file->m_bodyValues,
                            sectionBytes, true))
            throw getSelfDX_Code();
        file->m_tailPosition += static_cast<int>(sectionBytes);
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 153);
    }
    if (entered && !leaveCriticalSection() && isSelfSatisfied())
        m_selfDX_Code = 263;
    return isSelfSatisfied();
}

bool ZarnDataForThread::logFormSectionTail()
{
    bool entered = false;
    try {
        entered = enterCriticalSection();
        passGuards();
        if (!m_dataSet->isInstantiatorRunningNatively())
            throw 199;
        if (!entered)
            throw 262;
        ZarnDataFile* const file = m_dataSet->getFileLog();
        if (file == nullptr)
            throw 136;
        if (isEmptyText(file->m_tailFormat)) {
            // Without a tail, what the head or entry left in the stream goes out alone.
            if (file->m_logStream != nullptr)
                flushLogStream(*file->m_logStream);
            if (file->m_tailVarCount != 0 || file->m_tailVars != nullptr || file->m_tailValues != nullptr)
                throw 198;
            throw 0;
        }
        if (file->m_logStream == nullptr)
            throw 120;
        // No seek: the tail follows the head or entry just written, and m_tailPosition stays before
        // it, so that the next entry overwrites it.
        unsigned long long sectionBytes = 0;
        const bool written = logFormSection(file->m_tailFormat, file->m_tailVarCount, file->m_tailVars,
                                            file->m_tailValues, sectionBytes, file->m_tailCountsBytes);
        // The head or entry and this tail reach the file together, before the call returns.
        flushLogStream(*file->m_logStream);
        if (!written)
            throw getSelfDX_Code();
        // A tail's bytes count once for each file, however often it is rewritten.
        file->m_tailCountsBytes = false;
        // The section has counted itself as an entry; a tail is none. A head has no such correction.
        if (file->m_tailHasEntryId)
            m_dataSet->decrementSituationsCount(1);
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 196);
    }
    if (entered && !leaveCriticalSection() && isSelfSatisfied())
        m_selfDX_Code = 263;
    return isSelfSatisfied();
}
