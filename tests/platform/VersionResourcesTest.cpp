#include "platform/VersionResources.h"

#include "PlatformRig.h"
#include "platform/Modules.h"

#include <elf.h>

#include <cstring>
#include <cwchar>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

namespace {

using platform_test::widen;

const std::string kModuleDir = ZMU_TEST_MODULE_DIR;
const std::string kVersioned = kModuleDir + "/libzmu_test_versioned.so";
const std::wstring kAbsent = L"<absent>";

struct Loaded
{
    DWORD size;
    DWORD error;
    std::vector<unsigned char> block;
};

// Size, then block; both calls must agree on failure and its error.
Loaded load(const std::wstring& file)
{
    DWORD handle = 77;
    SetLastError(0);
    Loaded result{GetFileVersionInfoSizeW(file.c_str(), &handle), GetLastError(), {}};
    EXPECT_EQ(handle, 0u);
    result.block.assign(result.size != 0 ? result.size : 64, 0xCD);
    SetLastError(0);
    EXPECT_EQ(GetFileVersionInfoW(file.c_str(), 0, DWORD(result.block.size()), result.block.data()),
              result.size != 0 ? TRUE : FALSE);
    EXPECT_EQ(GetLastError(), result.error);
    return result;
}

// Loads the bytes from a file of their own.
Loaded loadBytes(const std::string& bytes)
{
    static const platform_test::Scratch scratch;
    return load(widen(scratch.write("object", bytes)));
}

// The value's text, checked against the reported length; kAbsent if the query fails.
std::wstring valueOf(const void* block, const std::wstring& path)
{
    void* text = nullptr;
    UINT length = 99;
    if (!VerQueryValueW(block, path.c_str(), &text, &length)) {
        EXPECT_EQ(text, nullptr);
        EXPECT_EQ(length, 0u);
        return kAbsent;
    }
    const auto* chars = static_cast<const wchar_t*>(text);
    EXPECT_EQ(length, std::wcslen(chars) + 1) << "length counts characters with the terminator";
    return std::wstring(chars, length - 1);
}

// The translation pairs as words, or {0xFFFF} when the query fails.
std::vector<WORD> translationOf(const void* block)
{
    void* pairs = nullptr;
    UINT bytes = 0;
    if (!VerQueryValueW(block, L"\\VarFileInfo\\Translation", &pairs, &bytes))
        return {0xFFFF};
    EXPECT_EQ(bytes % 4, 0u) << "length counts bytes";
    const auto* words = static_cast<const WORD*>(pairs);
    return std::vector<WORD>(words, words + bytes / 2);
}

// A minimal object: the null section, the version section, the section name table.
template <class Ehdr, class Shdr>
std::string buildObject(const std::string& text, unsigned char elfClass,
                        const std::function<void(Ehdr&, Shdr*)>& damage = nullptr)
{
    const std::string names("\0.zmu_version\0.shstrtab\0", 24);
    Ehdr header{};
    std::memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = elfClass;
    header.e_ident[EI_DATA] = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? ELFDATA2LSB : ELFDATA2MSB;
    header.e_ident[EI_VERSION] = EV_CURRENT;
    header.e_version = EV_CURRENT;
    header.e_ehsize = sizeof(Ehdr);
    header.e_shentsize = sizeof(Shdr);
    header.e_shnum = 3;
    header.e_shstrndx = 2;
    Shdr sections[3] = {};
    sections[1].sh_name = 1;
    sections[1].sh_type = SHT_PROGBITS;
    sections[1].sh_offset = sizeof(Ehdr);
    sections[1].sh_size = text.size();
    sections[2].sh_name = 14;
    sections[2].sh_type = SHT_STRTAB;
    sections[2].sh_offset = sizeof(Ehdr) + text.size();
    sections[2].sh_size = names.size();
    header.e_shoff = sizeof(Ehdr) + text.size() + names.size();
    if (damage)
        damage(header, sections);
    return std::string(reinterpret_cast<const char*>(&header), sizeof header) + text + names
           + std::string(reinterpret_cast<const char*>(sections), sizeof sections);
}

// Paths are case-blind and need no leading "\"; only a value is an answer.
TEST(VersionResources, StampedModuleIsReadFromItsFileWithoutLoadingIt)
{
    const std::wstring file = widen(kVersioned);
    ASSERT_EQ(GetModuleHandleW(file.c_str()), nullptr);
    const Loaded loaded = load(file);
    ASSERT_NE(loaded.size, 0u);
    const void* block = loaded.block.data();

    EXPECT_EQ(translationOf(block), (std::vector<WORD>{0x0407, 0x04E4, 0x0409, 0x04B0}));
    const std::pair<const wchar_t*, std::wstring> rows[] = {
        {L"\\StringFileInfo\\040704E4\\CompanyName", L"Quorvane Pr\u00FCfstand"},
        {L"\\stringfileinfo\\040704e4\\productversion", L"4.1"},
        {L"StringFileInfo\\040704E4\\ProductName", L"Farrowlink Test"},
        {L"\\StringFileInfo\\040704E4\\LegalTrademarks", kAbsent}, // not stamped
        {L"\\StringFileInfo\\040904B0\\FileVersion", kAbsent},      // a listed language without strings
        {L"\\StringFileInfo\\040704E4", kAbsent},
        {L"\\", kAbsent},
    };
    for (const auto& [path, expected] : rows)
        EXPECT_EQ(valueOf(block, path), expected) << std::string(path, path + std::wcslen(path));
    EXPECT_EQ(GetModuleHandleW(file.c_str()), nullptr);
}

// "zmu.dll" is found among the loaded modules, as Windows finds a module by its bare name.
TEST(VersionResources, LibraryCarriesItsOwnVersionAsZmuDll)
{
    const Loaded loaded = load(L"zmu.dll");
    ASSERT_NE(loaded.size, 0u);
    EXPECT_EQ(translationOf(loaded.block.data()), (std::vector<WORD>{0x0409, 0x04B0}));
    EXPECT_EQ(valueOf(loaded.block.data(), L"\\StringFileInfo\\040904B0\\OriginalFilename"), L"zmu.dll");
}

// The section's text format, in objects of both classes.
TEST(VersionResources, SectionTextFormat)
{
    const struct {
        const char* name;
        std::string text;
        DWORD error;
        std::vector<WORD> translation;
        std::wstring fileVersion;
    } rows[] = {
        {"plain", "zmu-version 1\nTranslation=040904B0\n040904B0\\FileVersion=4.1\n", 0, {0x0409, 0x04B0}, L"4.1"},
        {"CRLF, lower-case key, empty list",
         "zmu-version 1\r\nTranslation=\r\n040904b0\\FileVersion=x=\\y\r\n", 0, {}, L"x=\\y"},
        {"no translation line, no last newline", "\nzmu-version 1\n\n040904B0\\FileVersion=", 0, {0xFFFF}, L""},
        {"text ends at its terminator", std::string("zmu-version 1\n\0junk", 19), 0, {0xFFFF}, kAbsent},
        {"empty section", "", ERROR_INVALID_DATA, {}, L""},
        {"other format", "zmu-version 2\n", ERROR_INVALID_DATA, {}, L""},
        {"short key", "zmu-version 1\nTranslation=0409 04B0\n", ERROR_INVALID_DATA, {}, L""},
        {"value without key", "zmu-version 1\nFileVersion=4.1\n", ERROR_INVALID_DATA, {}, L""},
        {"name with separator", "zmu-version 1\n040904B0\\a\\b=4.1\n", ERROR_INVALID_DATA, {}, L""},
        {"too long", "zmu-version 1\n" + std::string(65536, '\n'), ERROR_INVALID_DATA, {}, L""},
    };
    for (const bool wide : {true, false}) {
        for (const auto& row : rows) {
            SCOPED_TRACE(std::string(wide ? "ELF64 " : "ELF32 ") + row.name);
            const Loaded loaded = loadBytes(wide ? buildObject<Elf64_Ehdr, Elf64_Shdr>(row.text, ELFCLASS64)
                                                 : buildObject<Elf32_Ehdr, Elf32_Shdr>(row.text, ELFCLASS32));
            ASSERT_EQ(loaded.error, row.error);
            if (row.error != 0)
                continue;
            EXPECT_EQ(translationOf(loaded.block.data()), row.translation);
            EXPECT_EQ(valueOf(loaded.block.data(), L"\\StringFileInfo\\040904B0\\FileVersion"), row.fileVersion);
        }
    }
}

TEST(VersionResources, UnusableFilesFailWithTheirError)
{
    const platform_test::Scratch scratch;
    const std::pair<std::string, DWORD> rows[] = {
        {kModuleDir + "/libzmu_test_missing.so", ERROR_FILE_NOT_FOUND},
        {"", ERROR_FILE_NOT_FOUND},
        {kModuleDir + "/libzmu_test_plain.so", ERROR_RESOURCE_TYPE_NOT_FOUND},
        {scratch.write("text", "zmu-version 1\nTranslation=\n"), ERROR_BAD_EXE_FORMAT},
        {scratch.write("empty", ""), ERROR_BAD_EXE_FORMAT},
        {scratch.root(), ERROR_BAD_EXE_FORMAT},
    };
    for (const auto& [path, error] : rows) {
        SCOPED_TRACE(path);
        const Loaded loaded = load(widen(path));
        EXPECT_EQ(loaded.size, 0u);
        EXPECT_EQ(loaded.error, error);
    }
    EXPECT_EQ(platform_test::outcomeOf([] { return GetFileVersionInfoSizeW(nullptr, nullptr); }),
              ERROR_INVALID_PARAMETER);
}

// Headers that lie about where things are, and objects cut short: a clean failure, never a read
// outside the file (the sanitizer runs would see one).
template <class Ehdr, class Shdr>
void expectDamagedObjectsFail(unsigned char elfClass)
{
    const struct { const char* name; std::function<void(Ehdr&, Shdr*)> damage; DWORD error; } rows[] = {
        {"no such class", [](Ehdr& h, Shdr*) { h.e_ident[EI_CLASS] = 3; }, ERROR_BAD_EXE_FORMAT},
        {"other byte order", [](Ehdr& h, Shdr*) { h.e_ident[EI_DATA] ^= 3; }, ERROR_BAD_EXE_FORMAT},
        {"headers past the end", [](Ehdr& h, Shdr*) { h.e_shoff += 8; }, ERROR_BAD_EXE_FORMAT},
        {"too many headers", [](Ehdr& h, Shdr*) { h.e_shnum = 0xFEFF; }, ERROR_BAD_EXE_FORMAT},
        {"entries too small", [](Ehdr& h, Shdr*) { h.e_shentsize = 4; }, ERROR_BAD_EXE_FORMAT},
        {"name table index out of range", [](Ehdr& h, Shdr*) { h.e_shstrndx = 3; }, ERROR_BAD_EXE_FORMAT},
        {"name table past the end", [](Ehdr&, Shdr* s) { s[2].sh_offset = 1u << 30; }, ERROR_BAD_EXE_FORMAT},
        {"section past the end", [](Ehdr&, Shdr* s) { s[1].sh_size = 4096; }, ERROR_BAD_EXE_FORMAT},
        {"extended count past the end", [](Ehdr& h, Shdr* s) { h.e_shnum = 0; s[0].sh_size = 1u << 20; },
         ERROR_BAD_EXE_FORMAT},
        // A name that points anywhere just does not match; without headers there is no section.
        {"name offset out of range", [](Ehdr&, Shdr* s) { s[1].sh_name = 1000000; },
         ERROR_RESOURCE_TYPE_NOT_FOUND},
        {"no section headers", [](Ehdr& h, Shdr*) { h.e_shoff = 0; }, ERROR_RESOURCE_TYPE_NOT_FOUND},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const Loaded loaded = loadBytes(buildObject<Ehdr, Shdr>("zmu-version 1\n", elfClass, row.damage));
        EXPECT_EQ(loaded.size, 0u);
        EXPECT_EQ(loaded.error, row.error);
    }
}

TEST(VersionResources, DamagedObjectsFailCleanly)
{
    expectDamagedObjectsFail<Elf64_Ehdr, Elf64_Shdr>(ELFCLASS64);
    expectDamagedObjectsFail<Elf32_Ehdr, Elf32_Shdr>(ELFCLASS32);

    std::ifstream in(kVersioned, std::ios::binary);
    const std::string module{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    ASSERT_GT(module.size(), 1000u);
    for (const std::size_t cut : {std::size_t(0), std::size_t(10), std::size_t(40), module.size() / 2,
                                  module.size() - 1}) {
        SCOPED_TRACE(cut);
        EXPECT_EQ(loadBytes(module.substr(0, cut)).error, ERROR_BAD_EXE_FORMAT);
    }
}

// A block is self-contained: a copy answers alike, and a block cut short finds only what fits.
TEST(VersionResources, BlocksCopiedOrCut)
{
    const std::wstring file = widen(kVersioned);
    const Loaded loaded = load(file);
    ASSERT_NE(loaded.size, 0u);
    const std::wstring path = L"\\StringFileInfo\\040704E4\\ProductVersion"; // the last value
    const std::vector<unsigned char> copy = loaded.block;
    EXPECT_EQ(valueOf(copy.data(), path), L"4.1");

    std::vector<unsigned char> cut(loaded.size, 0);
    ASSERT_TRUE(GetFileVersionInfoW(file.c_str(), 0, loaded.size - 4, cut.data()));
    EXPECT_EQ(valueOf(cut.data(), path), kAbsent);
    EXPECT_EQ(valueOf(cut.data(), L"\\StringFileInfo\\040704E4\\CompanyName"), L"Quorvane Pr\u00FCfstand");
    EXPECT_EQ(platform_test::outcomeOf([&] { return GetFileVersionInfoW(file.c_str(), 0, 8, cut.data()); }),
              ERROR_INSUFFICIENT_BUFFER);

    const std::vector<unsigned char> zeros(64, 0);
    void* buffer = nullptr;
    UINT length = 0;
    for (const void* block : {static_cast<const void*>(zeros.data()), static_cast<const void*>(nullptr)})
        EXPECT_EQ(platform_test::outcomeOf([&] { return VerQueryValueW(block, L"\\", &buffer, &length); }), 87u);
}

} // namespace
