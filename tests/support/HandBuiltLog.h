// A data set whose log file is set up by hand, for the tests of the section writers: the stream
// is opened here, and compiled sections and injected texts go straight into the file record, so
// the writers run without the form learner or the file lifecycle.
#pragma once

#include "log/ZarnDataFile.h"
#include "monitor/ZarnData.h"
#include "monitor/ZarnDataForThread.h"

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QTemporaryDir>
#include <QTemporaryFile>
#include <QTextStream>

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <initializer_list>
#include <new>
#include <string>
#include <vector>

// An engine whose protected stages and state the tests reach, and whose lock can be refused.
class HandBuiltLogEngine : public ZarnDataForThread
{
public:
    using ZarnDataForThread::logFormSection;
    using ZarnDataForThread::logFormSectionBody;

    void setDescriptionForLogFile(const std::wstring& text)
    {
        std::memset(m_descriptionForLogFile, 0, sizeof m_descriptionForLogFile);
        std::wcsncpy(m_descriptionForLogFile, text.c_str(), kLogFileCharacters - 1);
    }
    const wchar_t* scratchB() const { return m_scratchpad.m_scratchB; }

    bool enterCriticalSection() const override { return !m_refuseEnter && ZarnDataForThread::enterCriticalSection(); }
    // Leaves for real, then reports what the test asked for.
    bool leaveCriticalSection() const override
    {
        const bool left = ZarnDataForThread::leaveCriticalSection();
        return left && !m_refuseLeave;
    }

    bool m_refuseEnter = false;
    bool m_refuseLeave = false;
};

class HandBuiltLogData : public ZarnData
{
public:
    HandBuiltLogEngine* engine() { return static_cast<HandBuiltLogEngine*>(obtainDataForCurrentThread(true)); }
    void setSafeToAllocateMemory(bool safe) { m_safeToAllocateMemory = safe; }
    void setSituationsCount(unsigned long count) { m_situationsCount = count; }

protected:
    ZarnDataForThread* newDataForThread() const override { return new (std::nothrow) HandBuiltLogEngine; }
};

enum class LogSection
{
    Head,
    Body,
    Tail
};

// Owns what it puts into the record and takes it back before the data set dies, so that neither
// frees it twice.
class HandBuiltLog
{
public:
    HandBuiltLog()
    {
        m_data.initialize();
        m_path = m_dir.filePath(QStringLiteral("log.html"));
        auto* device = new QFile(m_path);
        device->open(QIODevice::ReadWrite);
        auto* stream = new QTextStream(device);
        // As the file lifecycle leaves a freshly opened log.
        stream->setGenerateByteOrderMark(true);
        stream->setAutoDetectUnicode(true);
        file()->m_logStream = stream;
        const std::wstring name = m_path.toStdWString();
        file()->m_logName = new wchar_t[name.size() + 1];
        std::wcscpy(file()->m_logName, name.c_str());
    }

    ~HandBuiltLog()
    {
        ZarnDataFile* const record = file();
        if (record->m_logStream != nullptr) {
            delete record->m_logStream->device();
            delete record->m_logStream;
            record->m_logStream = nullptr;
        }
        delete[] record->m_logName;
        record->m_logName = nullptr;
        for (LogSection section : {LogSection::Head, LogSection::Body, LogSection::Tail})
            clearSection(section);
        forgetInjectors();
    }

    HandBuiltLog(const HandBuiltLog&) = delete;
    HandBuiltLog& operator=(const HandBuiltLog&) = delete;

    HandBuiltLogData& data() { return m_data; }
    HandBuiltLogEngine& engine() { return *m_data.engine(); }
    ZarnDataFile* file() { return m_data.getFileLog(); }
    const QString& path() const { return m_path; }

    // A compiled section: its format with inserts and the variable of each insert. A head or a
    // tail records whether it uses ENTRY_ID, as the form learner does.
    void setSection(LogSection section, const wchar_t* format, std::vector<Zarn_FORM_VAR> vars = {})
    {
        clearSection(section);
        const SectionPlace place = placeOf(section);
        if (format != nullptr) {
            *place.format = new wchar_t[std::wcslen(format) + 1];
            std::wcscpy(*place.format, format);
        }
        if (!vars.empty()) {
            *place.vars = new Zarn_FORM_VAR[vars.size()];
            std::copy(vars.begin(), vars.end(), *place.vars);
            *place.values = new unsigned long long[vars.size()]();
        }
        *place.count = static_cast<int>(vars.size());
        if (place.hasEntryId != nullptr)
            *place.hasEntryId = std::find(vars.begin(), vars.end(), Zarn_FORM_VAR_ENTRY_ID) != vars.end();
    }

    void clearSection(LogSection section)
    {
        const SectionPlace place = placeOf(section);
        delete[] *place.format;
        delete[] *place.vars;
        delete[] *place.values;
        *place.format = nullptr;
        *place.vars = nullptr;
        *place.values = nullptr;
        *place.count = 0;
        if (place.hasEntryId != nullptr)
            *place.hasEntryId = false;
    }

    unsigned long long* values(LogSection section) { return *placeOf(section).values; }

    // Injected texts as the injector learner leaves them: written to temporary files through
    // streams that have not been flushed. A null text leaves that injector without a stream.
    void setInjectors(std::initializer_list<const QString*> texts)
    {
        forgetInjectors();
        ZarnDataFile* const record = file();
        record->m_injectorFiles = new QTemporaryFile[ZarnDataFile::kInjectorsQty];
        record->m_injectorStreams = new QTextStream*[ZarnDataFile::kInjectorsQty]();
        int injector = 0;
        for (const QString* text : texts) {
            if (text != nullptr) {
                QTemporaryFile& temporary = record->m_injectorFiles[injector];
                temporary.setFileTemplate(m_dir.filePath(QStringLiteral("injectorXXXXXX")));
                temporary.open();
                record->m_injectorStreams[injector] = new QTextStream(&temporary);
                *record->m_injectorStreams[injector] << *text;
            }
            ++injector;
        }
    }

    void forgetInjectors()
    {
        ZarnDataFile* const record = file();
        if (record->m_injectorStreams != nullptr) {
            for (int injector = 0; injector < ZarnDataFile::kInjectorsQty; ++injector)
                delete record->m_injectorStreams[injector];
        }
        delete[] record->m_injectorStreams;
        delete[] record->m_injectorFiles;
        record->m_injectorStreams = nullptr;
        record->m_injectorFiles = nullptr;
    }

    // The head as establishing a file writes it: the only section written with allocation allowed.
    bool writeHead()
    {
        m_data.setSafeToAllocateMemory(true);
        const bool written = engine().logFormSectionHead();
        m_data.setSafeToAllocateMemory(false);
        return written;
    }

    // One described situation, as the reporting path writes it: body then tail, under the lock.
    bool writeEntry(const std::wstring& description)
    {
        engine().setDescriptionForLogFile(description);
        if (!m_data.enterCriticalSection())
            return false;
        const bool written = engine().logFormSectionBody() && engine().logFormSectionTail();
        m_data.leaveCriticalSection();
        return written;
    }

    // What the file holds once the stream has let go of it: a section waits in the stream for the
    // tail that goes out with it.
    QByteArray bytes() const
    {
        if (m_data.getFileLog()->m_logStream != nullptr)
            m_data.getFileLog()->m_logStream->flush();
        QFile reader(m_path);
        reader.open(QIODevice::ReadOnly);
        return reader.readAll();
    }

    // The file's text after its byte-order mark, which it must have.
    QString text() const
    {
        const QByteArray all = bytes();
        if (all.size() < 2 || all.left(2) != QByteArray("\xFF\xFE", 2))
            return QStringLiteral("<no UTF-16LE byte-order mark>");
        return QString::fromUtf16(reinterpret_cast<const char16_t*>(all.constData() + 2), (all.size() - 2) / 2);
    }

    // What a file holding `text` must be, byte for byte: U+FEFF and UTF-16LE.
    static QByteArray utf16Bytes(const QString& text)
    {
        QByteArray expected("\xFF\xFE", 2);
        for (QChar c : text) {
            expected.append(static_cast<char>(c.unicode() & 0xFF));
            expected.append(static_cast<char>(c.unicode() >> 8));
        }
        return expected;
    }

private:
    struct SectionPlace
    {
        wchar_t** format;
        Zarn_FORM_VAR** vars;
        unsigned long long** values;
        int* count;
        bool* hasEntryId; // null for the body, which has no such flag
    };

    SectionPlace placeOf(LogSection section)
    {
        ZarnDataFile* const record = file();
        switch (section) {
        case LogSection::Head:
            return {&record->m_headFormat, &record->m_headVars, &record->m_headValues, &record->m_headVarCount,
                    &record->m_headHasEntryId};
        case LogSection::Body:
            return {&record->m_bodyFormat, &record->m_bodyVars, &record->m_bodyValues, &record->m_bodyVarCount,
                    nullptr};
        case LogSection::Tail:
        default:
            return {&record->m_tailFormat, &record->m_tailVars, &record->m_tailValues, &record->m_tailVarCount,
                    &record->m_tailHasEntryId};
        }
    }

    QTemporaryDir m_dir;
    QString m_path;
    HandBuiltLogData m_data;
};
