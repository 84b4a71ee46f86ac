#include "sysinfo/ZarnSysInfoEnvOp.h"

#include "localize/ZarnLocalizeHelpers.h"
#include "platform/CRuntime.h"
#include "platform/Files.h"
#include "platform/LastError.h"
#include "platform/Registry.h"

#include <QDir>
#include <QString>

#include <algorithm>
#include <cwchar>
#include <string>
#include <vector>

namespace {

constexpr unsigned int kCategoryID = 15401;           // "Operating Environment"
constexpr unsigned int kUserDomainVariableID = 15404; // "USERDOMAIN"
constexpr unsigned int kDomainCaptionID = 15415;
constexpr unsigned int kPlatformCaptionID = 15420;
constexpr unsigned int kLanguageCaptionID = 15429;
constexpr unsigned int kLanguageFormatID = 14009;  // "0x%04X"
constexpr unsigned int kUnknownID = 14017;         // "Unknown"
constexpr unsigned int kUnknownWithCodeID = 14018; // "Unknown (%lu)"

constexpr unsigned int kWindowsID = 15431;
constexpr unsigned int kWindowsXP_ID = 15432;
constexpr unsigned int kServer2003_ID = 15433;
constexpr unsigned int kServer2003R2_ID = 15434;
constexpr unsigned int kVistaID = 15445;
constexpr unsigned int kServer2008_ID = 15446;
constexpr unsigned int kServer2008R2_ID = 15447;
constexpr unsigned int kWindows7_ID = 15448;
constexpr unsigned int kWindowsXP_x64_ID = 15449;
constexpr unsigned int kLinuxID = 15450;

constexpr int kShortTextQty = 64;
constexpr int kHotfixTextQty = 20240;
constexpr int kKeyNameQty = 256;
constexpr std::uint64_t kMegabyte = 0x100000;

const wchar_t* const kHotfixKey = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\HotFix";
const wchar_t* const kSubsystemsKey = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\SubSystems";

// The captions given as text, by position; null where the caption is loaded or composed.
const wchar_t* const kCaptions[] = {
    nullptr,
    L"Platform Version",
    L"Platform Build Number",
    L"Platform Information",
    L"Hotfixes",
    L"Computer Name",
    nullptr,
    nullptr,
    L"Windows Directory",
    L"System Directory",
    L"TEMP Directory",
    L"Total Physical Memory",
    L"Available Physical Memory",
    L"Maximum Pagefile Size",
    L"Available Space in Pagefile",
    nullptr,
    nullptr,
    L"Processor Information",
    L"Number of Processors",
    nullptr,
    nullptr,
    nullptr,
    L"System Wide Max Heap Size",
    L"Per Desktop Heap Size",
    L"Non-Interactive Heap Size",
};
constexpr int kPositionQty = int(sizeof kCaptions / sizeof kCaptions[0]);

// Closes a registry key on every way out of a scope, a failure thrown in it too.
class KeyCloser
{
public:
    explicit KeyCloser(HKEY& key) : m_key(key) {}
    ~KeyCloser()
    {
        if (m_key != nullptr)
            RegCloseKey(m_key);
    }
    KeyCloser(const KeyCloser&) = delete;
    KeyCloser& operator=(const KeyCloser&) = delete;

private:
    HKEY& m_key;
};

// Copies `text` into a work text of ZarnSysInfoEnvOp::kTextQty characters, cut to fit.
void recordWorkText(wchar_t* target, const std::wstring& text)
{
    const size_t length = std::min(text.size(), size_t(ZarnSysInfoEnvOp::kTextQty - 1));
    std::wmemset(target, L'\0', ZarnSysInfoEnvOp::kTextQty);
    std::wmemcpy(target, text.data(), length);
}

} // namespace

ZarnSysInfoEnvOp::ZarnSysInfoEnvOp()
    : m_desktopInfoLearned(false),
      m_perDesktopHeapKB(0),
      m_systemWideHeapKB(0),
      m_nonInteractiveHeapKB(0),
      m_memoryStatus{},
      m_fixedDrives(kFixedDrivesUnlearned),
      m_versionInfo{},
      m_text1{},
      m_text2{}
{
    m_memoryStatus.dwLength = sizeof m_memoryStatus;
    if (!GlobalMemoryStatusEx(&m_memoryStatus))
        m_memoryStatus = MEMORYSTATUSEX{};
    m_versionInfo.dwOSVersionInfoSize = sizeof m_versionInfo;
    if (!GetVersionExW(&m_versionInfo)) {
        m_versionInfo = OSVERSIONINFOEXW{};
        m_versionInfo.dwPlatformId = kPlatformUnknown;
        std::wcscpy(m_versionInfo.szCSDVersion, L"Unknown");
    }
    SetLastError(0);

    wchar_t category[kShortTextQty] = {};
    if (ZarnLocalizeHelpers::loadIntrinsicString(kCategoryID, category, kShortTextQty) && category[0] != L'\0')
        recordCategory(category);
    else
        recordCategory(L"Operating Environment");
}

ZarnSysInfoEnvOp::~ZarnSysInfoEnvOp() = default;

bool ZarnSysInfoEnvOp::getDataPair(int position, wchar_t* caption, wchar_t* datum, int captionSize, int datumSize)
{
    // Deliberately 19 to 21 give false: a walk ends at 19, and 22 to 24 are reached only by
    // asking for them.
    if (position < 0 || position >= kPositionQty || (position >= 19 && position <= 21))
        return false;
    std::wmemset(m_text1, L'\0', kTextQty);
    std::wmemset(m_text2, L'\0', kTextQty);
    const wchar_t* captionText = kCaptions[position];

    try {
        switch (position) {
        case 0:
            ZarnLocalizeHelpers::loadIntrinsicString(learnPlatformNameID(), m_text2, kTextQty);
            return formatIntrinsicPair(kPlatformCaptionID, m_text2, caption, datum, captionSize, datumSize);
        case 1:
            if (_snwprintf(m_text2, kTextQty - 1, L"%d.%d", int(m_versionInfo.dwMajorVersion),
                           int(m_versionInfo.dwMinorVersion)) < 1)
                throw false;
            break;
        case 2:
        case 18: {
            int value;
            if (position == 2) {
                DWORD build = m_versionInfo.dwBuildNumber;
                if (m_versionInfo.dwPlatformId == VER_PLATFORM_WIN32_WINDOWS)
                    build &= 0xFFFF;
                value = int(build);
            } else {
                SYSTEM_INFO info;
                GetSystemInfo(&info);
                if (info.dwNumberOfProcessors == 0)
                    throw false;
                value = int(info.dwNumberOfProcessors);
            }
            const int errorBefore = m_error;
            const bool result = formatDataPair(caption, datum, captionSize, datumSize, captionText, value, false);
            if (!result && errorBefore == 0)
                throw false; // the number could not be written
            return result;
        }
        case 3:
            recordWorkText(m_text2, m_versionInfo.szCSDVersion[0] != L'\0' ? m_versionInfo.szCSDVersion : L"None");
            break;
        case 4: {
            std::wstring hotfixes;
            obtainHotfixes(hotfixes);
            return formatDataPair(caption, datum, captionSize, datumSize, captionText, hotfixes.c_str());
        }
        case 5: {
            DWORD size = kTextQty;
            if (!GetComputerNameW(m_text2, &size))
                throw false;
            break;
        }
        case 6:
            obtainAccountDomain();
            return formatIntrinsicPair(kDomainCaptionID, m_text2, caption, datum, captionSize, datumSize);
        case 7: {
            const LANGID language = GetSystemDefaultLangID();
            if (language == 0)
                throw int(GetLastError());
            ZarnLocalizeHelpers::loadIntrinsicString(kLanguageFormatID, m_text1, kShortTextQty);
            if (_snwprintf(m_text2, kTextQty - 1, m_text1, unsigned(language)) < 1)
                throw int(GetLastError());
            return formatIntrinsicPair(kLanguageCaptionID, m_text2, caption, datum, captionSize, datumSize);
        }
        case 8:
        case 9: {
            const UINT length =
                position == 8 ? GetWindowsDirectoryW(m_text2, kTextQty) : GetSystemDirectoryW(m_text2, kTextQty);
            if (length == 0)
                throw int(GetLastError());
            if (length >= UINT(kTextQty))
                throw int(ERROR_INSUFFICIENT_BUFFER);
            break;
        }
        case 10: {
            const QString path = QDir::tempPath().left(kTextQty - 1);
            m_text2[path.toWCharArray(m_text2)] = L'\0';
            break;
        }
        case 11:
            // Deliberately a full megabyte is added before dividing: an exact multiple reads one
            // megabyte high, and position 11 reads one above position 12 on every machine.
            obtainMegabytes(m_memoryStatus.ullTotalPhys + kMegabyte);
            break;
        case 12:
            // Deliberately the total, not the available memory, under this caption.
            obtainMegabytes(m_memoryStatus.ullTotalPhys);
            break;
        case 13:
        case 14:
            if (m_memoryStatus.dwLength == 0)
                throw false;
            obtainMegabytes(position == 13 ? m_memoryStatus.ullTotalPageFile : m_memoryStatus.ullAvailPageFile);
            break;
        case 15: {
            if (m_fixedDrives == kFixedDrivesUnlearned && !learnNumFixedDrives())
                throw false;
            std::uint64_t freeBytes = 0;
            if (_snwprintf(m_text1, kTextQty - 1, L"Available Space on Drive %ls", m_driveRoot.c_str()) < 1 ||
                !GetDiskFreeSpaceExW(m_driveRoot.c_str(), nullptr, nullptr, &freeBytes))
                throw false;
            obtainMegabytes(freeBytes);
            captionText = m_text1;
            break;
        }
        case 16:
            if (m_fixedDrives == kFixedDrivesUnlearned && !learnNumFixedDrives())
                throw false;
            if (!GetVolumeInformationW(m_driveRoot.c_str(), nullptr, 0, nullptr, nullptr, nullptr, m_text2,
                                       kTextQty) ||
                _snwprintf(m_text1, kTextQty - 1, L"%ls %ls", m_driveRoot.c_str(), L"Partition Type") < 1)
                throw false;
            captionText = m_text1;
            break;
        case 17:
            obtainProcessorInformation();
            break;
        default: { // 22 to 24
            if (!m_desktopInfoLearned && !learnDesktopInfo())
                return false;
            const int kilobytes = position == 22   ? m_systemWideHeapKB
                                  : position == 23 ? m_perDesktopHeapKB
                                                   : m_nonInteractiveHeapKB;
            if (_snwprintf(m_text2, kTextQty - 1, L"%d KB", kilobytes) < 1)
                throw false;
            break;
        }
        }
        return formatDataPair(caption, datum, captionSize, datumSize, captionText, m_text2);
    } catch (int error) {
        return formatFallbackPair(position, DWORD(error), caption, datum, captionSize, datumSize);
    } catch (...) {
        return formatFallbackPair(position, 0, caption, datum, captionSize, datumSize);
    }
}

bool ZarnSysInfoEnvOp::learnNextPosition()
{
    if (!m_updatePosition)
        return true;
    if (m_position == 16 && m_fixedDrives != 0) {
        m_position = 15;
        recordDriveRoot(__builtin_ctz(m_fixedDrives));
        m_fixedDrives &= m_fixedDrives - 1;
    } else {
        ++m_position;
    }
    return true;
}

bool ZarnSysInfoEnvOp::learnNumFixedDrives()
{
    m_driveRoots.clear();
    m_driveRoot.clear();
    m_fixedDrives = 0;
    // The list is asked for its size first; it may grow in between, so the ask repeats a little.
    std::vector<wchar_t> list;
    DWORD length = GetLogicalDriveStringsW(0, nullptr);
    for (int attempt = 0; attempt < 3 && length >= list.size(); ++attempt) {
        list.assign(size_t(length) + 1, L'\0');
        length = GetLogicalDriveStringsW(DWORD(list.size()), list.data());
    }
    if (length < list.size()) {
        for (const wchar_t* root = list.data(); *root != L'\0'; root += std::wcslen(root) + 1)
            m_driveRoots.emplace_back(root);
    }
    if (m_driveRoots.empty()) {
        m_error = kErrorDrivesNotListed;
        return false;
    }
    const int tried = std::min(int(m_driveRoots.size()), kDriveQty);
    for (int index = 0; index < tried; ++index) {
        recordDriveRoot(index);
        if (GetDriveTypeW(m_driveRoot.c_str()) == DRIVE_FIXED)
            m_fixedDrives |= DWORD(1) << index;
    }
    // With no fixed drive the last one tried stays current, and its pairs are reported all the same.
    if (m_fixedDrives != 0) {
        recordDriveRoot(__builtin_ctz(m_fixedDrives));
        m_fixedDrives &= m_fixedDrives - 1;
    }
    return true;
}

void ZarnSysInfoEnvOp::recordDriveRoot(int index)
{
    m_driveRoot = index < int(m_driveRoots.size()) ? m_driveRoots[size_t(index)] : std::wstring();
}

// Learned once, when it succeeds: after a failure each ask of 22 to 24 tries again and fails again.
bool ZarnSysInfoEnvOp::learnDesktopInfo()
{
    m_systemWideHeapKB = 1024;
    m_perDesktopHeapKB = 3072;
    m_nonInteractiveHeapKB = 3072;

    // The windowing subsystem's command line, at most 2048 bytes of UTF-16 on Windows.
    HKEY key = nullptr;
    KeyCloser closeKey(key);
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSubsystemsKey, 0, KEY_READ, &key) != ERROR_SUCCESS)
        return false;
    std::vector<wchar_t> line(size_t(kTextQty) + 1, L'\0');
    DWORD type = 0;
    DWORD size = DWORD(kTextQty * sizeof(wchar_t));
    if (RegQueryValueExW(key, L"Windows", nullptr, &type, reinterpret_cast<BYTE*>(line.data()), &size) !=
        ERROR_SUCCESS)
        return false;

    const std::wstring text(line.data());
    const std::wstring keyword = L"SharedSection=";
    std::wstring sizes;
    bool found = false;
    for (size_t at = 0; at <= text.size() && !found;) {
        size_t end = text.find(L' ', at);
        if (end == std::wstring::npos)
            end = text.size();
        const std::wstring word = text.substr(at, end - at);
        if (word.size() >= keyword.size() && _wcsicmp(word.substr(0, keyword.size()).c_str(), keyword.c_str()) == 0) {
            sizes = word.substr(keyword.size());
            found = true;
        }
        at = end + 1;
    }
    if (!found)
        return false;
    int* const targets[] = {&m_systemWideHeapKB, &m_perDesktopHeapKB, &m_nonInteractiveHeapKB};
    size_t at = 0;
    for (int* target : targets) {
        if (at > sizes.size())
            return false;
        size_t end = sizes.find(L',', at);
        if (end == std::wstring::npos)
            end = sizes.size();
        if (end == at)
            return false;
        *target = int(std::wcstol(sizes.substr(at, end - at).c_str(), nullptr, 10));
        at = end + 1;
    }
    m_desktopInfoLearned = true;
    return true;
}

// The Windows names by version, with this platform's own name before them.
unsigned int ZarnSysInfoEnvOp::learnPlatformNameID() const
{
    if (m_versionInfo.dwPlatformId == VER_PLATFORM_LINUX)
        return kLinuxID;
    if (m_versionInfo.dwPlatformId != VER_PLATFORM_WIN32_NT)
        return kUnknownID;
    const DWORD major = m_versionInfo.dwMajorVersion;
    const DWORD minor = m_versionInfo.dwMinorVersion;
    const bool workstation = m_versionInfo.wProductType == VER_NT_WORKSTATION;
    if (major == 5 && minor == 1)
        return kWindowsXP_ID;
    if (major == 5 && minor == 2) {
        SYSTEM_INFO info;
        GetSystemInfo(&info);
        if (workstation && info.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_AMD64)
            return kWindowsXP_x64_ID;
        return GetSystemMetrics(SM_SERVERR2) == 0 ? kServer2003_ID : kServer2003R2_ID;
    }
    if (major == 6 && minor == 0)
        return workstation ? kVistaID : kServer2008_ID;
    if (major == 6 && minor == 1)
        return workstation ? kWindows7_ID : kServer2008R2_ID;
    return kWindowsID;
}

void ZarnSysInfoEnvOp::obtainHotfixes(std::wstring& list) const
{
    HKEY key = nullptr;
    KeyCloser closeKey(key);
    DWORD count = 0;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kHotfixKey, 0, KEY_READ, &key) != ERROR_SUCCESS ||
        RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &count, nullptr, nullptr, nullptr, nullptr, nullptr,
                         nullptr, nullptr) != ERROR_SUCCESS)
        throw false;
    if (count == 0) {
        list = L"None";
        return;
    }
    for (DWORD index = 0; index < count; ++index) {
        wchar_t name[kKeyNameQty] = {};
        DWORD nameSize = kKeyNameQty;
        if (RegEnumKeyExW(key, index, name, &nameSize, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
            throw false;
        if (index > 0)
            list += L", ";
        list += name;
        HKEY hotfix = nullptr;
        KeyCloser closeHotfix(hotfix);
        if (RegOpenKeyExW(key, name, 0, KEY_READ, &hotfix) != ERROR_SUCCESS)
            throw false;
        DWORD type = 0;
        DWORD installed = 0;
        DWORD size = sizeof installed;
        if (RegQueryValueExW(hotfix, L"Installed", nullptr, &type, reinterpret_cast<BYTE*>(&installed), &size) ==
                ERROR_SUCCESS &&
            type == REG_DWORD) {
            wchar_t number[20] = {};
            _snwprintf(number, 19, L"(%d)", int(installed));
            list += number;
        }
    }
    if (list.size() >= size_t(kHotfixTextQty))
        list.resize(size_t(kHotfixTextQty) - 1);
}

void ZarnSysInfoEnvOp::obtainAccountDomain()
{
    wchar_t name[kShortTextQty] = {};
    ZarnLocalizeHelpers::loadIntrinsicString(kUserDomainVariableID, name, kShortTextQty);
    std::wstring reference = L"%";
    reference += name;
    reference += L"%";
    unsigned long long length = 0;
    // An unset variable stays as its reference; a variable set to nothing gives nothing.
    if (ZarnLocalizeHelpers::expandEnvironmentVarStrsW(&reference[0], m_text2, m_scratch, length, kTextQty) !=
            nullptr &&
        length > 0 && reference != m_text2)
        return;

    // The system's own domain. (Windows asks the account of the process's token here.)
    std::wmemset(m_text2, L'\0', kTextQty);
    DWORD size = kTextQty;
    if (!GetComputerNameExW(ComputerNameDnsDomain, m_text2, &size) || m_text2[0] == L'\0')
        throw false;
}

void ZarnSysInfoEnvOp::obtainProcessorInformation()
{
    const DWORD textBytes = DWORD((kTextQty - 1) * sizeof(wchar_t));
    DWORD size = textBytes;
    if (QueryCentralProcessorValueW(0, L"VendorIdentifier", m_text2, &size) != LONG(ERROR_SUCCESS))
        throw false;
    std::wstring text = m_text2;
    if (text.empty() || text.back() != L' ')
        text += L' ';
    size = textBytes;
    if (QueryCentralProcessorValueW(0, L"Identifier", m_text1, &size) != LONG(ERROR_SUCCESS)) {
        text.pop_back();
    } else {
        text += m_text1;
        text += L" ~";
        DWORD megahertz = 0;
        size = sizeof megahertz;
        if (QueryCentralProcessorValueW(0, L"~MHz", &megahertz, &size) == LONG(ERROR_SUCCESS) && megahertz != 0) {
            wchar_t number[24] = {};
            _snwprintf(number, 23, L"%d MHz", int(megahertz));
            text += number;
        }
    }
    recordWorkText(m_text2, text);
}

void ZarnSysInfoEnvOp::obtainMegabytes(std::uint64_t bytes)
{
    if (_snwprintf(m_text2, kTextQty - 1, L"%I64u MB", bytes / kMegabyte) < 1)
        throw false;
}

bool ZarnSysInfoEnvOp::formatIntrinsicPair(unsigned int captionID, const wchar_t* datumText, wchar_t* caption,
                                           wchar_t* datum, int captionSize, int datumSize)
{
    wchar_t captionText[kShortTextQty] = {};
    ZarnLocalizeHelpers::loadIntrinsicString(captionID, captionText, kShortTextQty);
    return formatDataPair(caption, datum, captionSize, datumSize, captionText, datumText);
}

bool ZarnSysInfoEnvOp::formatFallbackPair(int position, DWORD error, wchar_t* caption, wchar_t* datum,
                                          int captionSize, int datumSize)
{
    std::wmemset(m_text1, L'\0', kTextQty);
    std::wmemset(m_text2, L'\0', kTextQty);
    switch (position) {
    case 1:
    case 2:
    case 5:
    case 11:
    case 12:
    case 13:
    case 14:
    case 17:
    case 18:
        return formatDataPair(caption, datum, captionSize, datumSize, kCaptions[position], L"Unknown");
    case 4:
        return formatDataPair(caption, datum, captionSize, datumSize, kCaptions[position], L"Unavailable");
    case 6:
        ZarnLocalizeHelpers::loadIntrinsicString(kUnknownID, m_text2, kTextQty);
        return formatIntrinsicPair(kDomainCaptionID, m_text2, caption, datum, captionSize, datumSize);
    case 7:
        ZarnLocalizeHelpers::loadIntrinsicString(kUnknownWithCodeID, m_text1, kShortTextQty);
        _snwprintf(m_text2, kTextQty - 1, m_text1, error);
        return formatIntrinsicPair(kLanguageCaptionID, m_text2, caption, datum, captionSize, datumSize);
    case 8:
    case 9:
        _snwprintf(m_text2, kTextQty - 1, L"Unknown (%d)", int(error));
        return formatDataPair(caption, datum, captionSize, datumSize, kCaptions[position], m_text2);
    case 15:
        _snwprintf(m_text1, kTextQty - 1, L"Available Space on Drive %s", m_driveRoot.c_str());
        return formatDataPair(caption, datum, captionSize, datumSize, m_text1, L"Unknown");
    case 16:
        return formatDataPair(caption, datum, captionSize, datumSize, L"Partition Type", L"Unknown");
    default: // the items without a fallback
        return false;
    }
}

bool GetAccountDomainW(wchar_t* buffer, int size)
{
    try {
        ZarnSysInfoEnvOp source;
        return source.getDataPair(6, nullptr, buffer, 0, size);
    } catch (...) {
        return false;
    }
}
