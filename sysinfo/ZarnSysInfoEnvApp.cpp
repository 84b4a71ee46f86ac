#include "sysinfo/ZarnSysInfoEnvApp.h"

#include "localize/ZarnLocalizeHelpers.h"
#include "platform/CRuntime.h"
#include "platform/Files.h"
#include "platform/LastError.h"
#include "platform/Modules.h"
#include "platform/Synchronization.h"
#include "platform/UserAndFiles.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <cwchar>
#include <iterator>

namespace {

const ZarnSysInfoEnvApp_MODULE kDefaultModules[] = {
    {L"libad.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"aps", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"libblm.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"libclipc4.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"libclips.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"libcm.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"cm", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"libcplc4.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"libcpls.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"libcs4.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"libcs4s3.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"libcs4u.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"libdc4.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"libds.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"libfilec4.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"libfiles.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"libga.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"libzgdd.so", ZarnSysInfoEnvApp_HOME_SYSTEM_DIR},
    {L"libzglocress.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"libzgperf.so", ZarnSysInfoEnvApp_HOME_SYSTEM_DIR},
    {L"libZrPrintMon.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"zgse.sys", ZarnSysInfoEnvApp_HOME_DRIVERS_DIR},
    {L"libZGSetupHelper.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"zg-client", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"Logon", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"libzbr4.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"libzbr4u.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"libzmu.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"libZrPrintClient.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"libpv.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"libpw.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"pw", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"libComponents.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"libsc4.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"libscres4.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"libsmc.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"libskin.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"libsms.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"libsndc4.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"libsnds.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"lmgrd", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {L"lmtools", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    // The system's core libraries that the product runs on.
    {L"libc.so.6", ZarnSysInfoEnvApp_HOME_SYSTEM_DIR},
    {L"libm.so.6", ZarnSysInfoEnvApp_HOME_SYSTEM_DIR},
    {L"libstdc++.so.6", ZarnSysInfoEnvApp_HOME_SYSTEM_DIR},
    {L"libgcc_s.so.1", ZarnSysInfoEnvApp_HOME_SYSTEM_DIR},
    {L"libQt5Core.so.5", ZarnSysInfoEnvApp_HOME_SYSTEM_DIR},
    {L"libVBM_UserMode.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
    {nullptr, ZarnSysInfoEnvApp_HOME_SYSTEM_DIR}, // the running kernel's image
    {L"VBM_NTOSKRNL.SYS", ZarnSysInfoEnvApp_HOME_DRIVERS_DIR},
    {L"VBM_WIN32K.SYS", ZarnSysInfoEnvApp_HOME_DRIVERS_DIR},
};

// Caption format and fallback word of each item, 1 to 7.
struct ItemWords
{
    const wchar_t* captionFormat;
    const wchar_t* word;
};
const ItemWords kItems[ZarnSysInfoEnvApp::kItemQty + 1] = {
    {nullptr, nullptr},
    {L"%s File Version", L"File Version"},
    {L"%s Version", L"Version"},
    {L"%s Checksum", L"Checksum"},
    {L"%s Timestamp", L"Timestamp"},
    {L"%s Date", L"Date"},
    {L"%s Location", L"Location"},
    {L"%s Size", L"Size"},
};

constexpr unsigned kFileVersionId = 13005;
constexpr unsigned kProductVersionId = 13011;
constexpr unsigned kDateFormatId = 15202;
constexpr unsigned kSizeFormatId = 14011;
constexpr int kCaptionLimit = 1023;
constexpr unsigned long long kVersionValueQty = 1024;
constexpr int kFormatQty = 64;
const wchar_t kDrivers[] = L"drivers/";
const wchar_t kKernelImageName[] = L"vmlinuz";

bool isSeparator(wchar_t character)
{
    return character == L'/' || character == L'\\';
}

// Ends a directory with a separator; "/" is read as one by both Linux and Windows. False if the
// buffer of `size` has no room left.
bool endWithSeparator(wchar_t* directory, int size)
{
    const size_t length = std::wcslen(directory);
    if (length > 0 && isSeparator(directory[length - 1]))
        return true;
    if (static_cast<int>(length) + 2 > size)
        return false;
    directory[length] = L'/';
    directory[length + 1] = L'\0';
    return true;
}

// ---- Image headers --------------------------------------------------------------------------------

// Bounded reads of a mapped image in one byte order.
class ImageBytes
{
public:
    ImageBytes(const unsigned char* base, std::size_t size, bool bigEndian)
        : m_base(base), m_size(size), m_bigEndian(bigEndian)
    {
    }
    bool holds(std::uint64_t offset, std::uint64_t bytes) const { return offset <= m_size && bytes <= m_size - offset; }
    const unsigned char* at(std::uint64_t offset) const { return m_base + offset; }
    // `bytes` of 2, 4 or 8 at `offset`, which the caller has checked with holds().
    std::uint64_t number(std::uint64_t offset, int bytes) const
    {
        std::uint64_t value = 0;
        for (int i = 0; i < bytes; ++i) {
            const int shift = m_bigEndian ? 8 * (bytes - 1 - i) : 8 * i;
            value |= static_cast<std::uint64_t>(m_base[offset + i]) << shift;
        }
        return value;
    }

private:
    const unsigned char* m_base;
    std::size_t m_size;
    bool m_bigEndian;
};

// PE: the header's offset at 60 of the DOS header; in the header after "PE\0\0" the link time
// stamp lies at 8 and the checksum at 88.
bool learnPeWord(const ImageBytes& image, bool checksum, DWORD& value)
{
    if (!image.holds(0, 64) || std::memcmp(image.at(0), "MZ", 2) != 0)
        return false;
    const std::uint64_t header = image.number(60, 4);
    if (!image.holds(header, 92) || std::memcmp(image.at(header), "PE\0\0", 4) != 0)
        return false;
    value = static_cast<DWORD>(image.number(header + (checksum ? 88 : 8), 4));
    return true;
}

bool isElf(const ImageBytes& image)
{
    return image.holds(0, 64) && std::memcmp(image.at(0), "\x7f" "ELF", 4) == 0;
}

// The first four bytes of a GNU build ID note in the notes at [offset, offset + size).
bool findBuildIdPrefix(const ImageBytes& image, std::uint64_t offset, std::uint64_t size, std::uint64_t align,
                       DWORD& prefix)
{
    constexpr std::uint64_t kBuildIdType = 3;
    if (!image.holds(offset, size))
        return false;
    const std::uint64_t step = align == 8 ? 8 : 4;
    auto padded = [step](std::uint64_t length) { return (length + step - 1) / step * step; };
    const std::uint64_t end = offset + size;
    std::uint64_t note = offset;
    while (note + 12 <= end) {
        const std::uint64_t nameSize = image.number(note, 4);
        const std::uint64_t descSize = image.number(note + 4, 4);
        const std::uint64_t type = image.number(note + 8, 4);
        const std::uint64_t name = note + 12;
        const std::uint64_t desc = name + padded(nameSize);
        if (desc > end || descSize > end - desc)
            return false;
        if (type == kBuildIdType && nameSize == 4 && std::memcmp(image.at(name), "GNU", 4) == 0 && descSize >= 4) {
            const unsigned char* id = image.at(desc);
            prefix = DWORD(id[0]) << 24 | DWORD(id[1]) << 16 | DWORD(id[2]) << 8 | DWORD(id[3]);
            return true;
        }
        note = desc + padded(descSize);
    }
    return false;
}

// The build ID's prefix from the note sections, or from the note segments of an object whose
// section headers were stripped. Elf32 and Elf64 of either byte order.
bool learnElfBuildIdPrefix(const unsigned char* base, std::size_t size, DWORD& prefix)
{
    constexpr std::uint64_t kNoteSection = 7;
    constexpr std::uint64_t kNoteSegment = 4;
    const unsigned char elfClass = base[4];
    const unsigned char elfData = base[5];
    if ((elfClass != 1 && elfClass != 2) || (elfData != 1 && elfData != 2))
        return false;
    const ImageBytes image(base, size, elfData == 2);
    const bool wide = elfClass == 2;
    const int word = wide ? 8 : 4;

    const std::uint64_t sectionTable = image.number(wide ? 0x28 : 0x20, word);
    const std::uint64_t sectionEntry = image.number(wide ? 0x3A : 0x2E, 2);
    const std::uint64_t sectionCount = image.number(wide ? 0x3C : 0x30, 2);
    for (std::uint64_t i = 0; sectionTable != 0 && sectionEntry >= (wide ? 64u : 40u) && i < sectionCount; ++i) {
        const std::uint64_t entry = sectionTable + i * sectionEntry;
        if (!image.holds(entry, sectionEntry))
            break;
        if (image.number(entry + 4, 4) == kNoteSection
            && findBuildIdPrefix(image, image.number(entry + (wide ? 24 : 16), word),
                                 image.number(entry + (wide ? 32 : 20), word),
                                 image.number(entry + (wide ? 48 : 32), word), prefix))
            return true;
    }
    const std::uint64_t segmentTable = image.number(wide ? 0x20 : 0x1C, word);
    const std::uint64_t segmentEntry = image.number(wide ? 0x36 : 0x2A, 2);
    const std::uint64_t segmentCount = image.number(wide ? 0x38 : 0x2C, 2);
    for (std::uint64_t i = 0; segmentTable != 0 && segmentEntry >= (wide ? 56u : 32u) && i < segmentCount; ++i) {
        const std::uint64_t entry = segmentTable + i * segmentEntry;
        if (!image.holds(entry, segmentEntry))
            break;
        if (image.number(entry, 4) == kNoteSegment
            && findBuildIdPrefix(image, image.number(entry + (wide ? 8 : 4), word),
                                 image.number(entry + (wide ? 32 : 16), word),
                                 image.number(entry + (wide ? 48 : 28), word), prefix))
            return true;
    }
    return false;
}

} // namespace

// ---- Construction ---------------------------------------------------------------------------------

ZarnSysInfoEnvApp::ZarnSysInfoEnvApp() : ZarnSysInfoEnvApp(kDefaultModules, int(std::size(kDefaultModules))) {}

ZarnSysInfoEnvApp::ZarnSysInfoEnvApp(const ZarnSysInfoEnvApp_MODULE* modules, int count)
    : m_file(nullptr), m_moduleName{}, m_modulePath{}, m_mapping(nullptr), m_homeDirectories{}, m_view(nullptr),
      m_versionBlock(nullptr), m_text1{}, m_text2{}, m_viewSize(0)
{
    recordModules(modules, count);
    m_position = kFirstPosition;
    learnModuleHomeDirectory(ZarnSysInfoEnvApp_HOME_PROGRAM_DIR);
    learnModuleHomeDirectory(ZarnSysInfoEnvApp_HOME_SYSTEM_DIR);
    learnModuleHomeDirectory(ZarnSysInfoEnvApp_HOME_DRIVERS_DIR);
    SetLastError(0);
    recordCategory(L"Application Environment");
}

ZarnSysInfoEnvApp::~ZarnSysInfoEnvApp()
{
    forgetModuleDataPairDeterminants();
}

const ZarnSysInfoEnvApp_MODULE* ZarnSysInfoEnvApp::getDefaultModules(int& count)
{
    count = int(std::size(kDefaultModules));
    return kDefaultModules;
}

void ZarnSysInfoEnvApp::recordModules(const ZarnSysInfoEnvApp_MODULE* modules, int count)
{
    for (int i = 0; modules != nullptr && i < count; ++i) {
        Module module{std::wstring(), modules[i].fileName == nullptr, modules[i].home};
        if (modules[i].fileName != nullptr)
            module.fileName.assign(modules[i].fileName, std::min<size_t>(std::wcslen(modules[i].fileName), kNameQty - 1));
        m_modules.push_back(module);
    }
}

bool ZarnSysInfoEnvApp::isModuleNumber(long long module) const
{
    return module >= kModuleStep && module % kModuleStep == 0
           && module <= static_cast<long long>(m_modules.size()) * kModuleStep;
}

// ---- The walk -------------------------------------------------------------------------------------

bool ZarnSysInfoEnvApp::getFirstDataPair(wchar_t* caption, wchar_t* datum, int captionSize, int datumSize)
{
    m_position = kFirstPosition;
    learnModuleDataPairDeterminants(kModuleStep);
    const bool result = getDataPair(m_position, caption, datum, captionSize, datumSize);
    learnNextPosition();
    return result;
}

bool ZarnSysInfoEnvApp::getNextDataPair(wchar_t* caption, wchar_t* datum, int captionSize, int datumSize)
{
    const int module = m_position & ~15;
    const int item = m_position & 15;
    if (module > static_cast<long long>(m_modules.size()) * kModuleStep || item > kItemQty)
        return false;
    if (item == 1)
        learnModuleDataPairDeterminants(static_cast<unsigned long>(module));
    const bool result = getDataPair(m_position, caption, datum, captionSize, datumSize);
    learnNextPosition();
    return result;
}

bool ZarnSysInfoEnvApp::learnNextPosition()
{
    if (!m_updatePosition)
        return true;
    ++m_position;
    const int item = m_position & 15;
    if (item == 0 || item > kItemQty)
        m_position = (m_position & ~15) + kFirstPosition;
    return true;
}

// ---- Modules --------------------------------------------------------------------------------------

bool ZarnSysInfoEnvApp::learnModuleDataPairDeterminants(unsigned long module)
{
    SetLastError(0);
    forgetModuleDataPairDeterminants();
    if (!isModuleNumber(static_cast<long long>(module)))
        return false;
    // No step stops the later ones: each item checks for what it needs.
    bool result = learnModuleFileNomenclature(static_cast<int>(module));
    if (m_modulePath[0] == L'\0') {
        SetLastError(0);
        return result;
    }
    if (!ZarnLocalizeHelpers::extractModuleVerBlock(m_modulePath, m_versionBlock))
        result = false;
    m_file = CreateFileW(m_modulePath, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
                         nullptr);
    if (!isFileOpen()) {
        result = false;
    } else {
        m_mapping = CreateFileMappingW(m_file, nullptr, PAGE_READONLY, 0, 0, nullptr);
        if (m_mapping == nullptr) {
            result = false;
        } else {
            DWORD high = 0;
            SetLastError(0);
            const DWORD low = GetFileSize(m_file, &high);
            m_view = low == INVALID_FILE_SIZE && GetLastError() != 0 ? nullptr
                                                                      : MapViewOfFile(m_mapping, FILE_MAP_READ, 0, 0, 0);
            if (m_view == nullptr)
                result = false;
            else
                m_viewSize = static_cast<std::size_t>(std::uint64_t(high) << 32 | low);
        }
    }
    SetLastError(0);
    return result;
}

bool ZarnSysInfoEnvApp::forgetModuleDataPairDeterminants()
{
    bool result = true;
    if (m_view != nullptr && !UnmapViewOfFile(m_view))
        result = false;
    m_view = nullptr;
    m_viewSize = 0;
    if (m_mapping != nullptr && !CloseHandle(m_mapping))
        result = false;
    m_mapping = nullptr;
    if (isFileOpen() && !CloseHandle(m_file))
        result = false;
    m_file = nullptr;
    std::wmemset(m_moduleName, L'\0', kNameQty);
    std::wmemset(m_modulePath, L'\0', kNameQty);
    ZarnLocalizeHelpers::deleteModuleVerBlock(m_versionBlock);
    SetLastError(0);
    return result;
}

bool ZarnSysInfoEnvApp::learnModuleFileNomenclature(int module)
{
    if (!isModuleNumber(module))
        return false;
    std::wmemset(m_moduleName, L'\0', kNameQty);
    std::wmemset(m_modulePath, L'\0', kNameQty);
    const Module& entry = m_modules[static_cast<size_t>(module / kModuleStep - 1)];
    if (entry.kernelImage && learnKernelImageNomenclature())
        return learnModuleFileLocation();
    std::wcscpy(m_moduleName, entry.kernelImage ? kKernelImageName : entry.fileName.c_str());
    const wchar_t* home = m_homeDirectories[entry.home];
    if (home[0] != L'\0' && _snwprintf(m_modulePath, kNameQty - 1, L"%s%s", home, m_moduleName) < 1)
        std::wmemset(m_modulePath, L'\0', kNameQty);
    return learnModuleFileLocation();
}

// The kernel's image by its release. Unlike a module, its directory comes with it: /boot.
bool ZarnSysInfoEnvApp::learnKernelImageNomenclature()
{
    const UINT length = GetKernelImagePathW(m_modulePath, kNameQty);
    const wchar_t* slash = length == 0 || length >= kNameQty ? nullptr : std::wcsrchr(m_modulePath, L'/');
    if (slash == nullptr || slash[1] == L'\0') {
        std::wmemset(m_modulePath, L'\0', kNameQty);
        SetLastError(0);
        return false;
    }
    std::wcscpy(m_moduleName, slash + 1);
    return true;
}

// The file at m_modulePath if it is there, else the one the search finds. A path where nothing
// was found stays, so that the Location row shows where the module was expected.
bool ZarnSysInfoEnvApp::learnModuleFileLocation()
{
    if (m_modulePath[0] != L'\0' && _waccess(m_modulePath, 0) == 0)
        return true;
    wchar_t found[kNameQty] = {};
    const DWORD length = SearchPathW(nullptr, m_moduleName, nullptr, kNameQty, found, nullptr);
    if (length == 0 || length >= static_cast<DWORD>(kNameQty)) {
        SetLastError(0);
        return false;
    }
    std::wcscpy(m_modulePath, found);
    return true;
}

bool ZarnSysInfoEnvApp::learnModuleHomeDirectory(ZarnSysInfoEnvApp_HOME_DIR_ID id)
{
    if (id < ZarnSysInfoEnvApp_HOME_PROGRAM_DIR || id >= ZarnSysInfoEnvApp_HOME_DIR_Qty)
        return false;
    wchar_t* directory = m_homeDirectories[id];
    std::wmemset(directory, L'\0', kNameQty);
    if (id == ZarnSysInfoEnvApp_HOME_PROGRAM_DIR) {
        const DWORD length = GetModuleFileNameW(nullptr, directory, kNameQty);
        if (length == 0 || length >= static_cast<DWORD>(kNameQty) || directory[kNameQty - 1] != L'\0') {
            std::wmemset(directory, L'\0', kNameQty);
            return false;
        }
        wchar_t* end = directory + length;
        while (end > directory && !isSeparator(end[-1]))
            *--end = L'\0';
        return endWithSeparator(directory, kNameQty);
    }
    const UINT length = GetSystemDirectoryW(directory, kNameQty);
    if (length == 0 || length >= static_cast<UINT>(kNameQty) || directory[kNameQty - 1] != L'\0'
        || !endWithSeparator(directory, kNameQty)) {
        std::wmemset(directory, L'\0', kNameQty);
        return false;
    }
    if (id == ZarnSysInfoEnvApp_HOME_DRIVERS_DIR) {
        const size_t used = std::wcslen(directory);
        if (used + std::size(kDrivers) > static_cast<size_t>(kNameQty)) {
            std::wmemset(directory, L'\0', kNameQty);
            return false;
        }
        std::wcscpy(directory + used, kDrivers);
    }
    return true;
}

// ---- Items ----------------------------------------------------------------------------------------

bool ZarnSysInfoEnvApp::getDataPair(int position, wchar_t* caption, wchar_t* datum, int captionSize, int datumSize)
{
    SetLastError(0);
    const int module = position & ~15;
    const int item = position & 15;
    if (!isModuleNumber(module) || item < 1 || item > kItemQty)
        return false;
    // Without a walk the module is held for this one call. A held module is trusted: the module
    // bits of `position` are not compared with it.
    const bool learnedHere = m_moduleName[0] == L'\0';
    if (learnedHere) {
        learnModuleDataPairDeterminants(static_cast<unsigned long>(module));
        if (m_moduleName[0] == L'\0') {
            forgetModuleDataPairDeterminants();
            return false;
        }
    }

    int code = 0;
    bool datumObtained = false;
    try {
        formatItem(item, caption, datum, captionSize, datumSize, datumObtained);
    } catch (int raised) {
        code = raised;
    } catch (...) {
        code = -1;
    }
    // Two fallbacks, so that one bad item does not end the report.
    if (code != 0 && datumObtained) {
        std::wmemset(m_text2, L'\0', kTextQty);
        if (_snwprintf(m_text2, kCaptionLimit, kItems[item].captionFormat, m_moduleName) >= 1
            && formatDataPair(caption, datum, captionSize, datumSize, m_text2, L"Unavailable"))
            code = 0;
    } else if (code != 0 && m_moduleName[0] != L'\0') {
        std::wmemset(m_text2, L'\0', kTextQty);
        if (_snwprintf(m_text2, kCaptionLimit, L"%s %s", m_moduleName, kItems[item].word) >= 1
            && formatDataPair(caption, datum, captionSize, datumSize, m_text2, L"Unknown"))
            code = 0;
    }

    if (learnedHere)
        forgetModuleDataPairDeterminants();
    SetLastError(0);
    return code == 0;
}

void ZarnSysInfoEnvApp::formatItemCaption(int item)
{
    std::wmemset(m_text2, L'\0', kTextQty);
    if (_snwprintf(m_text2, kCaptionLimit, kItems[item].captionFormat, m_moduleName) < 1)
        throw 5;
}

bool ZarnSysInfoEnvApp::isFileOpen() const
{
    return m_file != nullptr && m_file != INVALID_HANDLE_VALUE;
}

void ZarnSysInfoEnvApp::formatItem(int item, wchar_t* caption, wchar_t* datum, int captionSize, int datumSize,
                                   bool& datumObtained)
{
    std::wmemset(m_text1, L'\0', kTextQty);
    switch (item) {
    case 1:
    case 2:
        if (m_versionBlock == nullptr
            || !ZarnLocalizeHelpers::extractModuleVerValueSFI_(m_versionBlock, m_text1, kVersionValueQty,
                                                               item == 1 ? kFileVersionId : kProductVersionId, nullptr,
                                                               L"StringFileInfo", L'\\'))
            throw 1;
        break;
    case 3:
    case 4: {
        DWORD value = 0;
        if (!learnImageWord(item, value))
            throw 2;
        datumObtained = true;
        formatItemCaption(item);
        if (!formatDataPair(caption, datum, captionSize, datumSize, m_text2, static_cast<int>(value), true))
            throw 6;
        return;
    }
    case 5: {
        FILETIME written = {};
        if (!isFileOpen() || !GetFileTime(m_file, nullptr, nullptr, &written))
            throw 3;
        int daylight = 0;
        _get_daylight(&daylight);
        std::tm moment = {};
        ZarnLocalizeHelpers::mapFILETIME_to_tm(written, moment, daylight);
        wchar_t format[kFormatQty] = {};
        if (!ZarnLocalizeHelpers::loadIntrinsicString(kDateFormatId, format, kFormatQty) || format[0] == L'\0')
            std::wcscpy(format, L"%m/%d/%y");
        if (std::wcsftime(m_text1, kTextQty, format, &moment) == 0)
            throw 4;
        break;
    }
    case 6: {
        const wchar_t* end = m_modulePath + std::wcslen(m_modulePath);
        while (end > m_modulePath && !isSeparator(end[-1]))
            --end;
        if (m_modulePath[0] == L'\0')
            throw 7;
        std::wmemcpy(m_text1, m_modulePath, static_cast<size_t>(end - m_modulePath));
        break;
    }
    case 7: {
        if (!isFileOpen())
            throw 3;
        DWORD high = 0;
        const DWORD low = GetFileSize(m_file, &high);
        if (low == INVALID_FILE_SIZE) // deliberately also a real size with this low half, as the Windows code did
            throw 3;
        wchar_t number[kFormatQty] = {};
        if (ZarnLocalizeHelpers::convertIntToPunctuatedStrW(static_cast<long long>(std::uint64_t(high) << 32 | low),
                                                            number, kFormatQty)
            == 0)
            throw 8;
        wchar_t format[kFormatQty] = {};
        if (!ZarnLocalizeHelpers::loadIntrinsicString(kSizeFormatId, format, kFormatQty)
            || _snwprintf(m_text1, kTextQty - 1, format, number) < 1) {
            std::wmemset(m_text1, L'\0', kTextQty);
            std::wcscpy(m_text1, number);
        }
        break;
    }
    default:
        throw 9;
    }
    datumObtained = true;
    formatItemCaption(item);
    if (!formatDataPair(caption, datum, captionSize, datumSize, m_text2, m_text1))
        throw 6;
}

bool ZarnSysInfoEnvApp::learnImageWord(int item, DWORD& value)
{
    if (m_view == nullptr)
        return false;
    const auto* base = static_cast<const unsigned char*>(m_view);
    const bool checksum = item == 3;
    if (!isElf(ImageBytes(base, m_viewSize, false)))
        return learnPeWord(ImageBytes(base, m_viewSize, false), checksum, value);
    if (checksum)
        return learnElfBuildIdPrefix(base, m_viewSize, value);
    // An ELF object keeps no link time: the file's last write time stands in, in seconds since 1970.
    FILETIME written = {};
    if (!isFileOpen() || !GetFileTime(m_file, nullptr, nullptr, &written))
        return false;
    constexpr std::uint64_t kUnixEpochTicks = 116444736000000000ULL;
    const std::uint64_t ticks = std::uint64_t(written.dwHighDateTime) << 32 | written.dwLowDateTime;
    if (ticks < kUnixEpochTicks)
        return false;
    value = static_cast<DWORD>((ticks - kUnixEpochTicks) / 10000000);
    return true;
}
