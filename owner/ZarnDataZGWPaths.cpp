// Where the log goes: its directory, the log file's name and the log form's name.
#include "owner/ZarnDataZGW.h"

#include "foundation/UTL_String.h"
#include "localize/ZarnLocalizeHelpers.h"
#include "monitor/Zarn.h"
#include "monitor/ZarnData.h"
#include "platform/CRuntime.h"
#include "platform/LastError.h"
#include "platform/UserAndFiles.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QString>

#include <cwchar>

namespace {

// Every path is built in a buffer of this many characters, and measured against it.
constexpr unsigned long kPathQty = 1024;
constexpr unsigned int kTextQty = 1024;
constexpr unsigned int kUnknownStringID = 10007;
constexpr unsigned int kLogFolderStringID = 10008;
constexpr unsigned int kFormFolderStringID = 10011;
constexpr int kWriteAccess = 2;
constexpr DWORD ERROR_DIRECTORY = 267; // the directory name is invalid

// The platform's separator is what a directory's name ends in here; either kind is accepted.
const wchar_t kSeparator = QDir::separator().unicode();

bool isSeparator(wchar_t c)
{
    return c == L'/' || c == L'\\';
}

bool endsInSeparator(const wchar_t* text)
{
    const size_t length = std::wcslen(text);
    return length > 0 && isSeparator(text[length - 1]);
}

UTL_String nativeText(const wchar_t* path)
{
    return UTL_String(QDir::toNativeSeparators(QString::fromWCharArray(path)).toStdWString().c_str());
}

} // namespace

// ---------------------------------------------------------------------------------------------
// The log directory

bool ZarnDataZGW::obtainLogDirectorySpecifier()
{
    if (m_logDirectorySpecifier == nullptr)
        return false;
    return obtainLogDirectorySpecifier(*m_logDirectorySpecifier, m_resourceModuleExternal);
}

bool ZarnDataZGW::obtainLogDirectorySpecifier(UTL_String& directory, HINSTANCE module)
{
    // One spare character, so that a text too long for the buffer still measures too long.
    wchar_t path[kPathQty + 1] = {};
    wchar_t scratch[kPathQty] = {};

    // The first pass takes the configured directory as it is: it never creates it and never
    // fails because it is missing, and whatever fails in it is forgotten.
    try {
        m_selfDX_Code1 = 0;
        m_selfDX_Code2 = 0;
        directory.clear();
        SetLastError(0);
        const wchar_t* const configured = ZarnData::getLogDirectory();
        if (configured == nullptr || configured[0] == L'\0')
            throw ZGW_DIR_NOT_SET;
        std::wcsncpy(path, configured, kPathQty);
        unsigned long long length = 0;
        if (ZarnLocalizeHelpers::expandEnvironmentVarStrsW(path, path, scratch, length, kPathQty) == nullptr)
            throw ZGW_DIR_NOT_EXPANDED;
        if (!endsInSeparator(path)) {
            if (length + 1 >= kPathQty)
                throw ZGW_DIR_NO_ROOM_FOR_SEPARATOR;
            path[length++] = kSeparator;
        }
        // Deliberately this narrow: only a writable path whose status can't be read fails, so a
        // path that names a file passes.
        const wchar_t separator = path[length - 1];
        path[length - 1] = L'\0';
        struct _stat64i32 status = {};
        if (_waccess(path, kWriteAccess) == 0 && _wstat64i32(path, &status) != 0
            && (status.st_mode & _S_IFDIR) == 0) {
            m_selfDX_Code2 = ERROR_DIRECTORY;
            throw ZGW_DIR_NOT_A_DIRECTORY;
        }
        path[length - 1] = separator;
        try {
            directory = nativeText(path);
        } catch (...) {
            throw ZGW_DIR_NOT_ASSIGNED;
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), ZGW_DIR_FIRST_PASS_UNKNOWN_EXCEPTION);
    }
    if (m_selfDX_Code1 != 0) {
        directory.clear();
        m_selfDX_Code1 = 0;
        m_selfDX_Code2 = 0;
        SetLastError(0);
    }
    if (directory.length() > 0)
        return true;

    // The second pass makes sure of the directory, and creates its last level if need be.
    try {
        std::wmemset(path, L'\0', kPathQty + 1);
        std::wmemset(scratch, L'\0', kPathQty);
        const wchar_t* const configured = ZarnData::getLogDirectory();
        if (configured != nullptr) {
            std::wcsncpy(path, configured, kPathQty - 1);
        } else {
            // Only a failed allocation of the configured directory leads here: a "Log" folder
            // beside the application's folder.
            UTL_String home;
            if (!getLogTagValue(home, Zarn_FORM_TAG_HOME_DIRECTORY, 0, module, nullptr, nullptr, 0, nullptr))
                throw ZGW_DIR_NO_HOME_DIRECTORY;
            const QString parent = QFileInfo(QString::fromWCharArray(home.wideText())).path();
            UTL_String folder(L"zmu.dll", kLogFolderStringID, kTextQty);
            if (!endsInSeparator(folder.wideText())) {
                if (folder.length() + 1 >= kPathQty)
                    throw ZGW_DIR_TOO_LONG;
                const wchar_t separator[] = {kSeparator, L'\0'};
                folder += UTL_String(separator);
            }
            if (static_cast<u64>(parent.size()) + folder.length() >= kPathQty)
                throw ZGW_DIR_TOO_LONG;
            const QString composed = parent + QLatin1Char('/') + QString::fromWCharArray(folder.wideText());
            if (static_cast<unsigned long>(composed.size()) >= kPathQty)
                throw ZGW_DIR_TOO_LONG;
            composed.toWCharArray(path);
        }

        size_t length = std::wcslen(path);
        const bool cut = length > 0 && isSeparator(path[length - 1]);
        if (cut)
            path[--length] = L'\0';
        const QFileInfo info(QString::fromWCharArray(path));
        if (info.isWritable()) {
            if (!info.isDir()) {
                m_selfDX_Code2 = ERROR_DIRECTORY;
                throw ZGW_DIR_NOT_A_DIRECTORY;
            }
        } else {
            m_selfDX_Code2 = GetLastError();
            if (info.exists())
                throw m_selfDX_Code2 == ERROR_DIRECTORY ? ZGW_DIR_NOT_A_DIRECTORY : ZGW_DIR_UNUSABLE;
            // Only one level is created.
            if (!CreateDirectoryW(path, nullptr)) {
                m_selfDX_Code2 = GetLastError();
                throw ZGW_DIR_NOT_CREATED;
            }
        }
        if (cut)
            path[length] = kSeparator;
        try {
            directory = UTL_String(path);
        } catch (...) {
            throw ZGW_DIR_NOT_ASSIGNED;
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), ZGW_DIR_SECOND_PASS_UNKNOWN_EXCEPTION);
    }
    if (m_selfDX_Code1 != 0) {
        directory.clear();
        Zarn_TRACE(L"Function ZarnDataZGW::obtainLogDirectorySpecifier () [1] failed in its second pass "
                   L"(ZGW%d/WLE%lu).\n",
                   m_selfDX_Code1, m_selfDX_Code2);
    }
    return m_selfDX_Code1 == 0;
}

// ---------------------------------------------------------------------------------------------
// The log file and the log form

bool ZarnDataZGW::learnLogFileFQPath(UTL_String& path)
{
    wchar_t composed[kPathQty] = {};
    try {
        setMemberVarsToDefaults(1, 2);
        path.clear();
        if (m_logDirectorySpecifier != nullptr)
            m_logDirectorySpecifier->clear();
        if (!obtainLogDirectorySpecifier())
            throw ZGW_FILE_NO_DIRECTORY;

        // The program's name; the comparison with ".exe" is case-sensitive on purpose.
        wchar_t program[MAX_PATH] = {};
        QString programName = QFileInfo(QCoreApplication::applicationFilePath()).fileName();
        if (programName.endsWith(QStringLiteral(".exe"), Qt::CaseSensitive))
            programName.chop(4);
        if (programName.size() < MAX_PATH)
            programName.toWCharArray(program);

        const QDateTime now = QDateTime::currentDateTime();
        UTL_String unknown;
        try {
            unknown = UTL_String(m_resourceModuleInternal, kUnknownStringID, kTextQty);
        } catch (...) {
            throw ZGW_TEXT_NOT_LOADED;
        }
        if (unknown.length() == 0)
            throw ZGW_FILE_UNKNOWN_TEXT_EMPTY;

        // Only the first log file of these owners bears the user's name: a rollover's temporary
        // object has owner 0. The result is not looked at, for "Unknown" is a name too.
        UTL_String user;
        if (m_ownerStandalone && findZarnOwnerRecord(m_ownerID).userNamesLogFile)
            getLogTagValue(user, Zarn_FORM_TAG_NAME_OF_USER);

        const wchar_t* const extension =
            m_logType == Zarn_LOG_HTML ? L"html" : m_logType == Zarn_LOG_TEXT ? L"txt" : unknown.wideText();
        const wchar_t* const programText = program[0] != L'\0' ? program : unknown.wideText();
        const QDate date = now.date();
        const QTime time = now.time();
        int count = 0;
        if (user.length() > 0)
            count = _snwprintf(composed, kPathQty - 1, L"%ls%ls_%ls_%4d-%02d-%02d_%02d-%02d-%02d-%03d.%ls",
                               m_logDirectorySpecifier->wideText(), user.wideText(), programText, date.year(),
                               date.month(), date.day(), time.hour(), time.minute(), time.second(), time.msec(),
                               extension);
        else
            count = _snwprintf(composed, kPathQty - 1, L"%ls%ls_%4d-%02d-%02d_%02d-%02d-%02d-%03d.%ls",
                               m_logDirectorySpecifier->wideText(), programText, date.year(), date.month(),
                               date.day(), time.hour(), time.minute(), time.second(), time.msec(), extension);
        if (count < 1)
            composed[kPathQty - 1] = L'\0';
        try {
            path = nativeText(composed);
        } catch (...) {
            path.clear();
        }
        if (path.length() == 0)
            throw ZGW_FILE_PATH_EMPTY;
    } catch (...) {
        keepFirstDxCode(std::current_exception(), ZGW_FILE_UNKNOWN_EXCEPTION);
    }
    if (m_selfDX_Code1 != 0) {
        Zarn_TRACE(L"Function ZarnDataZGW::learnLogFileFQPath () failed (ZGW%d).\n", m_selfDX_Code1);
        path.clear();
    }
    return m_selfDX_Code1 == 0;
}

bool ZarnDataZGW::learnLogFormFQPath(UTL_String& path)
{
    try {
        setMemberVarsToDefaults(1, 2);
        path.clear();
        if ((m_logDirectorySpecifier == nullptr || m_logDirectorySpecifier->length() == 0)
            && !obtainLogDirectorySpecifier())
            throw m_selfDX_Code1;
        try {
            path = *m_logDirectorySpecifier;
        } catch (...) {
            throw ZGW_FORM_DIRECTORY_NOT_COPIED;
        }
        // The forms lie in a folder under the log directory, not under the application.
        UTL_String folder;
        try {
            folder = UTL_String(m_resourceModuleInternal, kFormFolderStringID, kTextQty);
        } catch (...) {
            throw ZGW_TEXT_NOT_LOADED;
        }
        if (folder.length() == 0)
            throw ZGW_FORM_FOLDER_EMPTY;
        if (!endsInSeparator(folder.wideText())) {
            if (folder.length() + 1 >= kPathQty)
                throw ZGW_FORM_FOLDER_TOO_LONG;
            const wchar_t separator[] = {kSeparator, L'\0'};
            folder += UTL_String(separator);
        }
        try {
            path += folder;
        } catch (...) {
            throw ZGW_FORM_FOLDER_NOT_APPENDED;
        }
        UTL_String name;
        try {
            name = UTL_String(m_resourceModuleInternal, findZarnOwnerRecord(m_ownerID).formNameStringID, kTextQty);
        } catch (...) {
            throw ZGW_FORM_NAME_NOT_LOADED;
        }
        if (name.length() == 0)
            throw ZGW_FORM_NAME_EMPTY;
        try {
            path += name;
        } catch (...) {
            throw ZGW_FORM_NAME_NOT_APPENDED;
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), ZGW_FORM_UNKNOWN_EXCEPTION);
    }
    if (m_selfDX_Code1 != 0) {
        Zarn_TRACE(L"Function ZarnDataZGW::learnLogFormFQPath () failed (ZGW%d/WLE%lu).\n", m_selfDX_Code1,
                   m_selfDX_Code2);
        path.clear();
    }
    return m_selfDX_Code1 == 0;
}

wchar_t* ZarnDataZGW::getLogFileFQPath(wchar_t* buffer, unsigned long long capacity)
{
    if (buffer == nullptr)
        return buffer;
    buffer[0] = L'\0';
    if (capacity == 0)
        return buffer;
    std::wmemset(buffer, L'\0', capacity);
    // A buffer shorter than a module path comes back empty, with no report.
    if (capacity >= MAX_PATH && m_logFileFQPath != nullptr && m_logFileFQPath->length() < capacity)
        std::wmemcpy(buffer, m_logFileFQPath->wideText(), m_logFileFQPath->length());
    return buffer;
}
