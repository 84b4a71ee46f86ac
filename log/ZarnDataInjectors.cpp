// Form injectors: reports of the system written once into temporary files and read by each head.
//
// The injector block of a form, between its injector marker and its head marker:
//   a count line, whose first run of digits is the number of injectors (3 at most);
//   for each injector, a definition line "VARIABLE captionPairs datumPairs shortForm", four fields
//   separated by single blanks, followed by its caption pairs and then its datum pairs, each pair
//   a prefix line and a suffix line.
#include "monitor/ZarnData.h"

#include "foundation/free_Array.h"
#include "monitor/Zarn.h"
#include "platform/WinTypes.h"
#include "sysinfo/ZarnSysInfoEnvApp.h"
#include "sysinfo/ZarnSysInfoEnvOp.h"
#include "sysinfo/ZarnSysInfoEnvVars.h"
#include "sysinfo/ZarnSysInfoFormatterHTML.h"

#include <QDir>
#include <QString>
#include <QTemporaryFile>
#include <QTextStream>

#include <algorithm>
#include <climits>
#include <cwchar>
#include <new>
#include <string>

namespace {

// The longest line that one read gives, as for the rest of the form.
constexpr qint64 kFormLineCharacters = 1024;
constexpr int kDefinitionFields = 4;
const wchar_t kDigits[] = L"0123456789";
const wchar_t kShortFormFlags[] = L"01";
const char kInjectorFileTemplate[] = "/FarrowlinkXXXXXX";

// Like _wtol on a text that starts with a digit: the run of digits, held at the largest 32-bit
// value when there are too many. Reading from the first digit, it never gives a negative value.
LONG readDigits(const wchar_t* digits)
{
    long long value = 0;
    for (; *digits >= L'0' && *digits <= L'9'; ++digits)
        value = std::min<long long>(value * 10 + (*digits - L'0'), LONG_MAX);
    return static_cast<LONG>(value);
}

// One line of the block: 79 if the form ends first, 88 if it can't be read.
QString readBlockLine(QTextStream& form)
{
    QString line = form.readLine(kFormLineCharacters);
    if (line.isNull())
        throw form.atEnd() ? 79 : 88;
    return line;
}

// Puts `line` into a zeroed buffer of ZarnScratchpad::kCharacters; a line that fills it leaves
// no terminator, which the caller takes as too long.
void copyLine(const QString& line, wchar_t* buffer)
{
    std::wmemset(buffer, 0, ZarnScratchpad::kCharacters);
    const int kept = std::min(line.size(), ZarnScratchpad::kCharacters);
    line.left(kept).toWCharArray(buffer);
}

// Fields separated by single blanks, counted up to one past `limit`: two blanks in a row make an
// empty field between them.
int countFields(const wchar_t* text, int limit)
{
    int fields = 1;
    for (; *text != L'\0' && fields <= limit; ++text) {
        if (*text == L' ')
            ++fields;
    }
    return fields;
}

// Cuts `text` at each blank into `fields`, which must have room for countFields of it.
void splitFields(wchar_t* text, wchar_t** fields)
{
    int field = 0;
    fields[field++] = text;
    for (; *text != L'\0'; ++text) {
        if (*text == L' ') {
            *text = L'\0';
            fields[field++] = text + 1;
        }
    }
}

// The data source of an injector variable: null if it can't be made, an exception of its
// constructor included. 77 for any other variable.
ZarnSysInfo* makeSource(Zarn_FORM_VAR var)
{
    if (var < Zarn_FORM_VAR_SYS_INFO_ENV_APP || var > Zarn_FORM_VAR_SYS_INFO_VARS_ENV)
        throw 77;
    try {
        if (var == Zarn_FORM_VAR_SYS_INFO_ENV_APP)
            return new (std::nothrow) ZarnSysInfoEnvApp();
        if (var == Zarn_FORM_VAR_SYS_INFO_ENV_OP)
            return new (std::nothrow) ZarnSysInfoEnvOp();
        return new (std::nothrow) ZarnSysInfoEnvVars();
    } catch (...) {
        return nullptr;
    }
}

} // namespace

bool ZarnData::mustLearnLogFileFormInjectors(long injectorStart, unsigned long mask)
{
    struct Section
    {
        unsigned long bit;
        int count;
        const Zarn_FORM_VAR* vars;
    };
    const Section sections[] = {
        {SECTION_HEAD, m_fileLog.m_headVarCount, m_fileLog.m_headVars},
        {SECTION_BODY, m_fileLog.m_bodyVarCount, m_fileLog.m_bodyVars},
        {SECTION_TAIL, m_fileLog.m_tailVarCount, m_fileLog.m_tailVars},
    };
    bool requested = false;
    for (const Section& section : sections) {
        if ((mask & section.bit) == 0 || section.vars == nullptr)
            continue;
        for (int index = 0; index < section.count && !requested; ++index) {
            const Zarn_FORM_VAR var = section.vars[index];
            requested = var >= Zarn_FORM_VAR_SYS_INFO_ENV_APP && var <= Zarn_FORM_VAR_SYS_INFO_VARS_ENV;
        }
        if (requested)
            break;
    }
    // However much the block holds, it is read only if a section asks for what it defines.
    if (!requested)
        return false;
    if (injectorStart >= 0)
        return true;
    // The variable then comes out as an empty string.
    Zarn_TRACE(L"ZarnData::mustLearnLogFileFormInjectors (%ld, %lu) detected a request for an undefined log file "
               L"form injector.\n",
               static_cast<LONG>(injectorStart), static_cast<DWORD>(mask));
    return false;
}

bool ZarnData::learnLogFileFormInjectors(long injectorStart)
{
    if (injectorStart < 0)
        return isSelfSatisfied();
    ZarnDataFile& file = m_fileLog;
    ZarnSysInfo* source = nullptr;
    ZarnSysInfoFormatterHTML* formatter = nullptr;
    bool arraysMade = false;
    try {
        QTextStream* const form = file.m_formStream;
        if (form == nullptr || file.m_injectorFiles != nullptr || file.m_injectorStreams != nullptr)
            throw 78;
        file.m_injectorFiles = new (std::nothrow) QTemporaryFile[ZarnDataFile::kInjectorsQty];
        file.m_injectorStreams = new (std::nothrow) QTextStream*[ZarnDataFile::kInjectorsQty]();
        arraysMade = true;
        if (file.m_injectorFiles == nullptr || file.m_injectorStreams == nullptr)
            throw 86;
        if (!form->seek(injectorStart))
            throw 80;
        m_scratchpad.setMemberVarsToDefaults(1, 8);
        wchar_t* const line = m_scratchpad.m_scratchA;
        wchar_t* const copy = m_scratchpad.m_scratchB;

        // The count line; at the end of the form it reads as a line without digits.
        const QString countLine = form->readLine(kFormLineCharacters);
        if (countLine.isNull() && !form->atEnd())
            throw 88;
        copyLine(countLine, line);
        line[ZarnScratchpad::kCharacters - 1] = L'\0';
        const wchar_t* const countDigits = std::wcspbrk(line, kDigits);
        if (countDigits == nullptr)
            throw 71;
        const LONG count = readDigits(countDigits);
        if (count == 0)
            throw 0; // a block that defines nothing, quietly
        // Here and for fields 2 and 3: a guard only, since a number read from its first digit is never negative.
        if (count < 0)
            throw 72;
        const int injectorsQty = std::min<LONG>(count, ZarnDataFile::kInjectorsQty);

        for (int definition = 0; definition < injectorsQty; ++definition) {
            copyLine(readBlockLine(*form), line);
            std::wmemcpy(copy, line, ZarnScratchpad::kCharacters);
            if (copy[ZarnScratchpad::kCharacters - 1] != L'\0')
                throw 92;
            if (countFields(copy, kDefinitionFields) != kDefinitionFields)
                throw 92;
            wchar_t* fields[kDefinitionFields] = {};
            splitFields(line, fields);

            const Zarn_FORM_VAR var = convertLogFileFormVarNameToEnum(fields[0]);
            if (var < Zarn_FORM_VAR_SYS_INFO_ENV_APP || var > Zarn_FORM_VAR_SYS_INFO_VARS_ENV)
                throw 75;
            const wchar_t* const captionDigits = std::wcspbrk(fields[1], kDigits);
            if (captionDigits == nullptr)
                throw 69;
            const LONG captionPairs = readDigits(captionDigits);
            if (captionPairs < 0)
                throw 70;
            const wchar_t* const datumDigits = std::wcspbrk(fields[2], kDigits);
            if (datumDigits == nullptr)
                throw 73;
            const LONG datumPairs = readDigits(datumDigits);
            if (datumPairs < 0)
                throw 74;
            if (file.m_logKind != Zarn_LOG_HTML)
                throw 83;
            const wchar_t* const shortFormFlag = std::wcspbrk(fields[3], kShortFormFlags);
            if (shortFormFlag == nullptr)
                throw 89;

            source = makeSource(var);
            if (source == nullptr)
                throw 84;
            formatter = new (std::nothrow) ZarnSysInfoFormatterHTML(nullptr);
            if (formatter == nullptr)
                throw 85;
            formatter->useShortForm(*shortFormFlag == L'1');
            formatter->setSysInfo(source);

            // A second definition of the same variable replaces the first one's report: the file,
            // which a close keeps, is emptied when it opens again.
            const int index = var - Zarn_FORM_VAR_SYS_INFO_ENV_APP;
            if (file.m_injectorStreams[index] != nullptr)
                eliminateLogFileFormInjector(index);
            QTemporaryFile& temporary = file.m_injectorFiles[index];
            temporary.setFileTemplate(QDir::tempPath() + QLatin1String(kInjectorFileTemplate));
            if (!temporary.open())
                throw 90;
            // Qt keeps a new temporary file unnamed until its name is asked for; named, the report
            // lies beside the others in the temporary directory for as long as the data set lives.
            temporary.fileName();
            temporary.resize(0);
            QTextStream* const stream = new QTextStream(&temporary);
            file.m_injectorStreams[index] = stream;
            // Any text a report holds must survive the trip through the file.
            stream->setCodec("UTF-8");
            formatter->setOutputDestination(stream);

            // An abandoned injector still consumes its lines, so that the next definition is found.
            bool abandoned = false;
            const auto readPairs = [&](LONG pairs, int (ZarnSysInfoFormatter::*addPrefix)(const wchar_t*),
                                       int (ZarnSysInfoFormatter::*addSuffix)(const wchar_t*)) {
                for (LONG pair = 0; pair < pairs; ++pair) {
                    const std::wstring prefix = readBlockLine(*form).toStdWString();
                    const std::wstring suffix = readBlockLine(*form).toStdWString();
                    if (abandoned)
                        continue;
                    try {
                        abandoned = (formatter->*addPrefix)(prefix.c_str()) == -1
                                    || (formatter->*addSuffix)(suffix.c_str()) == -1;
                    } catch (...) {
                        abandoned = true;
                    }
                }
            };
            readPairs(captionPairs, &ZarnSysInfoFormatter::addCaptionPrefix, &ZarnSysInfoFormatter::addCaptionSuffix);
            readPairs(datumPairs, &ZarnSysInfoFormatter::addDatumPrefix, &ZarnSysInfoFormatter::addDatumSuffix);
            if (!abandoned) {
                try {
                    abandoned = !formatter->reportSystemInformation();
                } catch (...) {
                    abandoned = true;
                }
            }
            // A report that fails costs its own text only, not the form.
            if (abandoned)
                eliminateLogFileFormInjector(index);

            formatter->setSysInfo(nullptr);
            delete source;
            source = nullptr;
            delete formatter;
            formatter = nullptr;
        }
        // The lines of any further definitions, and whatever else stands before the head, stay unread.
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 68);
    }
    if (!isSelfSatisfied() && arraysMade) {
        for (int index = 0; index < ZarnDataFile::kInjectorsQty; ++index)
            eliminateLogFileFormInjector(index);
        free_Array(file.m_injectorStreams);
        delete[] file.m_injectorFiles; // removes the temporary files from the disk
        file.m_injectorFiles = nullptr;
    }
    if (formatter != nullptr)
        formatter->setSysInfo(nullptr);
    delete formatter;
    delete source;
    m_scratchpad.setMemberVarsToDefaults(1, 8);
    return isSelfSatisfied();
}

bool ZarnData::eliminateLogFileFormInjector(int index)
{
    if (index < 0 || index >= ZarnDataFile::kInjectorsQty)
        return false;
    try {
        if (m_fileLog.m_injectorFiles != nullptr) {
            if (m_fileLog.m_injectorStreams != nullptr) {
                delete m_fileLog.m_injectorStreams[index];
                m_fileLog.m_injectorStreams[index] = nullptr;
            }
            // Closed only: the file leaves the disk when its array is deleted.
            m_fileLog.m_injectorFiles[index].close();
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 1150);
        return false;
    }
    return true;
}
