#include "platform/VersionResources.h"

#include "platform/LastError.h"
#include "platform/Modules.h"
#include "platform/Utf8Text.h"

#include <elf.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <cwctype>
#include <string>
#include <vector>

namespace {

const char kSectionName[] = ".zmu_version";
const char kFormatLine[] = "zmu-version 1";
// Windows keeps a version resource within 64 KiB; a longer section is not one of ours.
constexpr std::uint64_t kSectionBytesMax = 65536;

// ---- Finding the file -------------------------------------------------------------------------

bool endsWithNoCase(const std::string& text, const char* suffix)
{
    const std::size_t size = std::strlen(suffix);
    return text.size() >= size && ::strcasecmp(text.c_str() + text.size() - size, suffix) == 0;
}

// The files a module name stands for, in the order LoadLibraryW's stand-in tries them.
std::vector<std::string> candidateFiles(const std::string& name)
{
    const std::size_t slash = name.rfind('/');
    const std::string directory = slash == std::string::npos ? std::string() : name.substr(0, slash + 1);
    const std::string file = slash == std::string::npos ? name : name.substr(slash + 1);
    std::vector<std::string> candidates;
    if (endsWithNoCase(file, ".dll") || endsWithNoCase(file, ".exe"))
        candidates.push_back(directory + "lib" + file.substr(0, file.size() - 4) + ".so");
    else if (!file.empty() && file.find('.') == std::string::npos)
        candidates.push_back(directory + "lib" + file + ".so");
    candidates.push_back(name);
    return candidates;
}

std::string moduleFilePath(HMODULE module)
{
    std::vector<wchar_t> path(4096);
    const DWORD length = GetModuleFileNameW(module, path.data(), DWORD(path.size()));
    if (length == 0 || length >= path.size())
        return std::string();
    return zmu_platform::narrowToUtf8(path.data(), length);
}

int openReadOnly(const std::string& path)
{
    int fd;
    do {
        fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

// Opens the file that `name` stands for; -1 if there is none.
int openModuleFile(const wchar_t* name)
{
    const std::string narrow = zmu_platform::narrowToUtf8(name);
    if (narrow.empty())
        return -1;
    const bool bare = narrow.find('/') == std::string::npos;
    if (bare) {
        if (HMODULE loaded = GetModuleHandleW(name)) {
            const std::string path = moduleFilePath(loaded);
            const int fd = path.empty() ? -1 : openReadOnly(path);
            if (fd >= 0)
                return fd;
        }
    }
    std::vector<std::string> directories;
    if (bare) {
        const std::string program = moduleFilePath(nullptr);
        if (!program.empty())
            directories.push_back(program.substr(0, program.rfind('/') + 1));
    }
    directories.push_back(std::string()); // as given: absolute, or from the working directory
    for (const std::string& directory : directories) {
        for (const std::string& candidate : candidateFiles(narrow)) {
            const int fd = openReadOnly(directory + candidate);
            if (fd >= 0)
                return fd;
        }
    }
    return -1;
}

class FileCloser
{
public:
    explicit FileCloser(int fd) : m_fd(fd) {}
    ~FileCloser() { ::close(m_fd); }
    FileCloser(const FileCloser&) = delete;
    FileCloser& operator=(const FileCloser&) = delete;

private:
    int m_fd;
};

// ---- Reading the section ----------------------------------------------------------------------

bool readExactly(int fd, std::uint64_t offset, void* buffer, std::uint64_t size)
{
    auto* bytes = static_cast<unsigned char*>(buffer);
    while (size > 0) {
        const ssize_t got = ::pread(fd, bytes, size, off_t(offset));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        bytes += got;
        offset += std::uint64_t(got);
        size -= std::uint64_t(got);
    }
    return true;
}

bool liesWithin(std::uint64_t offset, std::uint64_t size, std::uint64_t fileSize)
{
    return offset <= fileSize && size <= fileSize - offset;
}

// Finds the version section through the section headers and their name table. Every offset and
// count comes from the file and is checked against its size before use.
template <class Ehdr, class Shdr>
DWORD readSectionText(int fd, std::uint64_t fileSize, std::string& text)
{
    Ehdr header;
    if (!readExactly(fd, 0, &header, sizeof header))
        return ERROR_BAD_EXE_FORMAT;
    if (header.e_shoff == 0)
        return ERROR_RESOURCE_TYPE_NOT_FOUND; // no section headers at all
    if (header.e_shentsize < sizeof(Shdr))
        return ERROR_BAD_EXE_FORMAT;

    const std::uint64_t entrySize = header.e_shentsize;
    auto readSectionHeader = [&](std::uint64_t index, Shdr& section) {
        return readExactly(fd, header.e_shoff + index * entrySize, &section, sizeof section);
    };

    // Extended numbering: the real count and name table index live in section 0.
    std::uint64_t count = header.e_shnum;
    std::uint64_t namesIndex = header.e_shstrndx;
    if (count == 0 || namesIndex == SHN_XINDEX) {
        Shdr first;
        if (!liesWithin(header.e_shoff, sizeof first, fileSize) || !readSectionHeader(0, first))
            return ERROR_BAD_EXE_FORMAT;
        if (count == 0)
            count = first.sh_size;
        if (namesIndex == SHN_XINDEX)
            namesIndex = first.sh_link;
    }
    if (count > fileSize / entrySize || !liesWithin(header.e_shoff, count * entrySize, fileSize)
        || namesIndex >= count)
        return ERROR_BAD_EXE_FORMAT;

    Shdr namesSection;
    if (!readSectionHeader(namesIndex, namesSection) || namesSection.sh_type == SHT_NOBITS
        || !liesWithin(namesSection.sh_offset, namesSection.sh_size, fileSize)
        || namesSection.sh_size > (std::uint64_t(1) << 20))
        return ERROR_BAD_EXE_FORMAT;
    std::string names(std::size_t(namesSection.sh_size), '\0');
    if (!readExactly(fd, namesSection.sh_offset, names.data(), names.size()))
        return ERROR_BAD_EXE_FORMAT;
    names.push_back('\0'); // a name at the table's end then stops here

    for (std::uint64_t index = 1; index < count; ++index) {
        Shdr section;
        if (!readSectionHeader(index, section))
            return ERROR_BAD_EXE_FORMAT;
        if (section.sh_name >= names.size() || std::strcmp(names.c_str() + section.sh_name, kSectionName) != 0)
            continue;
        if (section.sh_type == SHT_NOBITS || section.sh_size > kSectionBytesMax)
            return ERROR_INVALID_DATA;
        if (!liesWithin(section.sh_offset, section.sh_size, fileSize))
            return ERROR_BAD_EXE_FORMAT;
        text.assign(std::size_t(section.sh_size), '\0');
        if (!readExactly(fd, section.sh_offset, text.data(), text.size()))
            return ERROR_BAD_EXE_FORMAT;
        text.resize(std::strlen(text.c_str())); // the record ends at its terminator
        return ERROR_SUCCESS;
    }
    return ERROR_RESOURCE_TYPE_NOT_FOUND;
}

DWORD readVersionSection(int fd, std::string& text)
{
    struct stat status;
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode))
        return ERROR_BAD_EXE_FORMAT;
    const std::uint64_t fileSize = std::uint64_t(status.st_size);

    unsigned char ident[EI_NIDENT];
    if (!readExactly(fd, 0, ident, sizeof ident) || std::memcmp(ident, ELFMAG, SELFMAG) != 0
        || ident[EI_VERSION] != EV_CURRENT)
        return ERROR_BAD_EXE_FORMAT;
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    const unsigned char nativeOrder = ELFDATA2LSB;
#else
    const unsigned char nativeOrder = ELFDATA2MSB;
#endif
    if (ident[EI_DATA] != nativeOrder)
        return ERROR_BAD_EXE_FORMAT;
    if (ident[EI_CLASS] == ELFCLASS64)
        return readSectionText<Elf64_Ehdr, Elf64_Shdr>(fd, fileSize, text);
    if (ident[EI_CLASS] == ELFCLASS32)
        return readSectionText<Elf32_Ehdr, Elf32_Shdr>(fd, fileSize, text);
    return ERROR_BAD_EXE_FORMAT;
}

// ---- The section's text -----------------------------------------------------------------------

struct VersionValue
{
    std::wstring key;
    std::wstring name;
    std::wstring text;
};

struct VersionRecord
{
    bool hasTranslation = false;
    std::vector<WORD> translation; // language, code page, language, ...
    std::vector<VersionValue> values;
};

bool parseHexWord(const std::string& text, std::size_t at, WORD& word)
{
    word = 0;
    for (std::size_t i = at; i < at + 4; ++i) {
        const char c = text[i];
        const int digit = c >= '0' && c <= '9' ? c - '0'
                          : c >= 'a' && c <= 'f' ? c - 'a' + 10
                          : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                                 : -1;
        if (digit < 0)
            return false;
        word = WORD(word * 16 + digit);
    }
    return true;
}

// "Translation=" and keys of 8 hex digits, separated by spaces; none is an empty list.
bool parseTranslation(const std::string& list, VersionRecord& record)
{
    std::size_t at = 0;
    while (at < list.size()) {
        if (list[at] == ' ') {
            ++at;
            continue;
        }
        WORD language = 0;
        WORD codePage = 0;
        if (list.size() - at < 8 || (list.size() - at > 8 && list[at + 8] != ' ')
            || !parseHexWord(list, at, language) || !parseHexWord(list, at + 4, codePage))
            return false;
        record.translation.push_back(language);
        record.translation.push_back(codePage);
        at += 8;
    }
    record.hasTranslation = true;
    return true;
}

bool parseVersionText(const std::string& text, VersionRecord& record)
{
    bool formatSeen = false;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string::npos)
            end = text.size();
        std::string line = text.substr(start, end - start);
        start = end + 1;
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.empty())
            continue;
        if (!formatSeen) {
            if (line != kFormatLine)
                return false;
            formatSeen = true;
            continue;
        }
        const std::size_t equals = line.find('=');
        if (equals == std::string::npos)
            return false;
        const std::string path = line.substr(0, equals);
        const std::string value = line.substr(equals + 1);
        if (path == "Translation") {
            if (record.hasTranslation || !parseTranslation(value, record))
                return false;
            continue;
        }
        const std::size_t separator = path.find('\\');
        if (separator == 0 || separator == std::string::npos || separator + 1 == path.size()
            || path.find('\\', separator + 1) != std::string::npos)
            return false;
        record.values.push_back({zmu_platform::widenUtf8(path.c_str(), separator),
                                 zmu_platform::widenUtf8(path.c_str() + separator + 1),
                                 zmu_platform::widenUtf8(value.c_str(), value.size())});
    }
    return formatSeen;
}

// ---- The block ---------------------------------------------------------------------------------
//
// One allocation that holds everything, addressed by byte offsets from its start so that a copy
// of the block still works: a header, the translation pairs, one entry per value, then the texts
// as terminated wide strings. All parts are multiples of 4 bytes, so the texts stay aligned.

constexpr DWORD kBlockMagic = 0x56554D5A; // "ZMUV"
constexpr DWORD kNoTranslation = 0xFFFFFFFF;

struct BlockHeader
{
    DWORD magic;
    DWORD usedBytes; // what GetFileVersionInfoW could copy; anything past it is not there
    DWORD translationCount; // pairs, or kNoTranslation
    DWORD translationOffset;
    DWORD valueCount;
    DWORD valueOffset;
};

struct BlockValue
{
    DWORD keyOffset;
    DWORD nameOffset;
    DWORD textOffset;
    DWORD textChars; // with the terminator
};

static_assert(sizeof(wchar_t) == 4 && sizeof(BlockHeader) % 4 == 0 && sizeof(BlockValue) % 4 == 0,
              "block parts keep wide texts aligned");

std::vector<unsigned char> buildBlock(const VersionRecord& record)
{
    std::size_t size = sizeof(BlockHeader) + record.translation.size() * sizeof(WORD)
                       + record.values.size() * sizeof(BlockValue);
    for (const VersionValue& value : record.values)
        size += (value.key.size() + value.name.size() + value.text.size() + 3) * sizeof(wchar_t);
    std::vector<unsigned char> block(size, 0);

    BlockHeader header{};
    header.magic = kBlockMagic;
    header.usedBytes = DWORD(size);
    header.translationCount = record.hasTranslation ? DWORD(record.translation.size() / 2) : kNoTranslation;
    header.translationOffset = sizeof(BlockHeader);
    header.valueCount = DWORD(record.values.size());
    header.valueOffset = DWORD(header.translationOffset + record.translation.size() * sizeof(WORD));
    std::memcpy(block.data(), &header, sizeof header);
    if (!record.translation.empty())
        std::memcpy(block.data() + header.translationOffset, record.translation.data(),
                    record.translation.size() * sizeof(WORD));

    DWORD textAt = DWORD(header.valueOffset + record.values.size() * sizeof(BlockValue));
    auto placeText = [&](const std::wstring& text) {
        const DWORD at = textAt;
        std::memcpy(block.data() + at, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
        textAt += DWORD((text.size() + 1) * sizeof(wchar_t));
        return at;
    };
    for (std::size_t i = 0; i < record.values.size(); ++i) {
        const VersionValue& value = record.values[i];
        BlockValue entry{};
        entry.keyOffset = placeText(value.key);
        entry.nameOffset = placeText(value.name);
        entry.textOffset = placeText(value.text);
        entry.textChars = DWORD(value.text.size() + 1);
        std::memcpy(block.data() + header.valueOffset + i * sizeof(BlockValue), &entry, sizeof entry);
    }
    return block;
}

// Reads, parses and lays out the file's version data; the error code, or 0 with the block.
DWORD loadVersionBlock(const wchar_t* file, std::vector<unsigned char>& block)
{
    if (file == nullptr)
        return ERROR_INVALID_PARAMETER;
    const int fd = openModuleFile(file);
    if (fd < 0)
        return ERROR_FILE_NOT_FOUND;
    FileCloser closer(fd);

    std::string text;
    if (const DWORD error = readVersionSection(fd, text))
        return error;
    VersionRecord record;
    if (!parseVersionText(text, record))
        return ERROR_INVALID_DATA;
    block = buildBlock(record);
    return ERROR_SUCCESS;
}

bool liesInBlock(const BlockHeader& header, std::uint64_t offset, std::uint64_t size)
{
    return offset <= header.usedBytes && size <= header.usedBytes - offset;
}

// Compares a name of the query with a terminated text in the block, never reading past usedBytes.
bool blockTextEquals(const unsigned char* block, const BlockHeader& header, DWORD offset, const std::wstring& name)
{
    if (offset % sizeof(wchar_t) != 0 || !liesInBlock(header, offset, (name.size() + 1) * sizeof(wchar_t)))
        return false;
    for (std::size_t i = 0; i <= name.size(); ++i) {
        wchar_t c;
        std::memcpy(&c, block + offset + i * sizeof c, sizeof c); // the caller's block may be unaligned
        if (i == name.size())
            return c == L'\0';
        if (c == L'\0' || std::towlower(wint_t(c)) != std::towlower(wint_t(name[i])))
            return false;
    }
    return false;
}

bool equalsNoCase(const std::wstring& name, const wchar_t* expected)
{
    return ::wcscasecmp(name.c_str(), expected) == 0;
}

std::vector<std::wstring> splitPath(const wchar_t* subBlock)
{
    std::vector<std::wstring> names;
    std::wstring current;
    for (const wchar_t* c = subBlock; *c != L'\0'; ++c) {
        if (*c != L'\\') {
            current += *c;
        } else if (!current.empty()) {
            names.push_back(current);
            current.clear();
        }
    }
    if (!current.empty())
        names.push_back(current);
    return names;
}

} // namespace

DWORD GetFileVersionInfoSizeW(const wchar_t* file, DWORD* handle)
{
    if (handle != nullptr)
        *handle = 0;
    const DWORD kept = GetLastError(); // the loader look-ups on the way may set it
    std::vector<unsigned char> block;
    if (const DWORD error = loadVersionBlock(file, block)) {
        SetLastError(error);
        return 0;
    }
    SetLastError(kept);
    return DWORD(block.size());
}

BOOL GetFileVersionInfoW(const wchar_t* file, DWORD /*handle*/, DWORD size, void* block)
{
    if (block == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const DWORD kept = GetLastError();
    std::vector<unsigned char> data;
    if (const DWORD error = loadVersionBlock(file, data)) {
        SetLastError(error);
        return FALSE;
    }
    if (size < sizeof(BlockHeader)) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    if (size < data.size()) {
        BlockHeader header;
        std::memcpy(&header, data.data(), sizeof header);
        header.usedBytes = size;
        std::memcpy(data.data(), &header, sizeof header);
    }
    std::memcpy(block, data.data(), size < data.size() ? size : data.size());
    SetLastError(kept);
    return TRUE;
}

BOOL VerQueryValueW(const void* block, const wchar_t* subBlock, void** buffer, UINT* length)
{
    if (buffer != nullptr)
        *buffer = nullptr;
    if (length != nullptr)
        *length = 0;
    if (block == nullptr || subBlock == nullptr || buffer == nullptr || length == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    BlockHeader header;
    std::memcpy(&header, block, sizeof header);
    if (header.magic != kBlockMagic || header.usedBytes < sizeof header) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const auto* bytes = static_cast<const unsigned char*>(block);
    const std::vector<std::wstring> names = splitPath(subBlock);

    const std::uint64_t translationBytes = std::uint64_t(header.translationCount) * 2 * sizeof(WORD);
    if (names.size() == 2 && equalsNoCase(names[0], L"VarFileInfo") && equalsNoCase(names[1], L"Translation")
        && header.translationCount != kNoTranslation
        && liesInBlock(header, header.translationOffset, translationBytes)) {
        *buffer = const_cast<unsigned char*>(bytes + header.translationOffset);
        *length = UINT(translationBytes);
        return TRUE;
    }
    if (names.size() == 3 && equalsNoCase(names[0], L"StringFileInfo")) {
        for (DWORD i = 0; i < header.valueCount; ++i) {
            const std::uint64_t at = header.valueOffset + std::uint64_t(i) * sizeof(BlockValue);
            if (!liesInBlock(header, at, sizeof(BlockValue)))
                break;
            BlockValue entry;
            std::memcpy(&entry, bytes + at, sizeof entry);
            if (blockTextEquals(bytes, header, entry.keyOffset, names[1])
                && blockTextEquals(bytes, header, entry.nameOffset, names[2])
                && entry.textOffset % sizeof(wchar_t) == 0
                && liesInBlock(header, entry.textOffset, std::uint64_t(entry.textChars) * sizeof(wchar_t))) {
                *buffer = const_cast<unsigned char*>(bytes + entry.textOffset);
                *length = entry.textChars;
                return TRUE;
            }
        }
    }
    SetLastError(ERROR_RESOURCE_TYPE_NOT_FOUND);
    return FALSE;
}
