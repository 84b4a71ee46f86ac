#include "sysinfo/ZarnSysInfoEnvApp.h"

#include "platform/Files.h"
#include "platform/Modules.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

const char* const kItemNames[] = {"File Version", "Version", "Checksum", "Timestamp", "Date", "Location", "Size"};

std::wstring widen(const std::string& text)
{
    return std::wstring(text.begin(), text.end()); // ASCII only
}

std::wstring hex(DWORD value)
{
    wchar_t text[16];
    std::swprintf(text, 16, L"0x%08X", static_cast<unsigned>(value));
    return text;
}

std::string directoryOf(const std::string& path)
{
    return path.substr(0, path.rfind('/') + 1);
}

std::string fileOf(const std::string& path)
{
    return path.substr(path.rfind('/') + 1);
}

// Points the file search at `directory` for one test.
class ScopedLibraryPath
{
public:
    explicit ScopedLibraryPath(const std::string& directory)
    {
        if (const char* previous = std::getenv("LD_LIBRARY_PATH"))
            m_previous = std::make_unique<std::string>(previous);
        setenv("LD_LIBRARY_PATH", directory.c_str(), 1);
    }
    ~ScopedLibraryPath() { m_previous ? setenv("LD_LIBRARY_PATH", m_previous->c_str(), 1) : unsetenv("LD_LIBRARY_PATH"); }

private:
    std::unique_ptr<std::string> m_previous;
};

struct Row
{
    std::wstring caption;
    std::wstring datum;
};

std::vector<Row> walk(ZarnSysInfoEnvApp& source)
{
    std::vector<Row> rows;
    wchar_t caption[256];
    wchar_t datum[512];
    for (bool more = source.getFirstDataPair(caption, datum, 256, 512); more && rows.size() < 2000;
         more = source.getNextDataPair(caption, datum, 256, 512))
        rows.push_back({caption, datum});
    return rows;
}

std::map<std::wstring, std::wstring> byCaption(const std::vector<Row>& rows)
{
    std::map<std::wstring, std::wstring> found;
    for (const Row& row : rows)
        found[row.caption] = row.datum;
    return found;
}

std::wstring caption(const std::string& module, int item)
{
    return widen(module + " " + kItemNames[item - 1]);
}

// The first four bytes of the file's GNU build ID, found by its note's header alone in the file's
// first pages, where the linker puts the note.
bool buildIdPrefix(const std::string& path, DWORD& prefix)
{
    std::string bytes(65536, '\0');
    std::ifstream in(path, std::ios::binary);
    in.read(&bytes[0], std::streamsize(bytes.size()));
    bytes.resize(std::size_t(in.gcount()));
    const std::string header("\x03\0\0\0GNU\0", 8);
    for (std::size_t at = bytes.find(header); at != std::string::npos; at = bytes.find(header, at + 1)) {
        if (at < 8 || bytes.compare(at - 8, 4, std::string("\x04\0\0\0", 4)) != 0 || at + 12 > bytes.size())
            continue;
        const auto* id = reinterpret_cast<const unsigned char*>(bytes.data() + at + 8);
        prefix = DWORD(id[0]) << 24 | DWORD(id[1]) << 16 | DWORD(id[2]) << 8 | DWORD(id[3]);
        return true;
    }
    return false;
}

std::wstring lastWriteDate(const std::string& path, time_t* seconds = nullptr)
{
    struct stat status{};
    stat(path.c_str(), &status);
    std::tm moment{};
    gmtime_r(&status.st_mtim.tv_sec, &moment);
    char text[32];
    std::strftime(text, sizeof text, "%m/%d/%y", &moment);
    if (seconds != nullptr)
        *seconds = status.st_mtim.tv_sec;
    return widen(text);
}

std::wstring digitsOf(const std::wstring& text)
{
    std::wstring digits;
    for (wchar_t c : text)
        if (c >= L'0' && c <= L'9')
            digits += c;
    return digits;
}

int openFileCount()
{
    int count = 0;
    if (DIR* directory = opendir("/proc/self/fd")) {
        while (readdir(directory) != nullptr)
            ++count;
        closedir(directory);
    }
    return count;
}

std::string libraryPath()
{
    wchar_t path[1024] = {};
    GetModuleFileNameW(GetModuleHandleW(L"zmu.dll"), path, 1024);
    return std::string(path, path + std::wcslen(path));
}

// A PE image as far as the report reads it: DOS header with the header's offset at 60, "PE\0\0",
// the COFF header with its TimeDateStamp and a PE32 optional header with its CheckSum.
std::string peImage(DWORD stamp, DWORD checksum, DWORD headerOffset = 0x80)
{
    std::string bytes(0x80 + 24 + 0xE0, '\0');
    auto put = [&bytes](std::size_t at, DWORD value, int size) {
        for (int i = 0; i < size; ++i)
            bytes[at + i] = static_cast<char>(value >> (8 * i));
    };
    bytes[0] = 'M';
    bytes[1] = 'Z';
    put(60, headerOffset, 4);
    if (headerOffset + 92 <= bytes.size()) {
        bytes.replace(headerOffset, 4, std::string("PE\0\0", 4));
        put(headerOffset + 4, 0x14C, 2);  // machine i386
        put(headerOffset + 8, stamp, 4);  // TimeDateStamp
        put(headerOffset + 20, 0xE0, 2);  // size of the optional header
        put(headerOffset + 24, 0x10B, 2); // PE32
        put(headerOffset + 88, checksum, 4);
    }
    return bytes;
}

} // namespace

// Installed, missing and the library's own module: seven rows each, in item order, read from the
// files without loading them.
TEST(ZarnSysInfoEnvApp, ReportsModulesFromTheirFilesWithoutLoadingThem)
{
    const std::string versioned = ZMU_TEST_MODULE_DIR "/libzmu_test_versioned.so";
    const std::string library = libraryPath();
    ASSERT_EQ(GetModuleHandleW(L"zmu_test_versioned.dll"), nullptr) << "loaded by another test";
    DWORD versionedId = 0;
    DWORD libraryId = 0;
    ASSERT_TRUE(buildIdPrefix(versioned, versionedId));
    ASSERT_TRUE(buildIdPrefix(library, libraryId)) << "libzmu.so lacks a build ID: link it with -Wl,--build-id";

    const std::string missing = "libzmu_not_installed.so";
    const ScopedLibraryPath searchPath(std::string(ZMU_TEST_MODULE_DIR) + ":" + directoryOf(library));
    const std::wstring versionedName = L"libzmu_test_versioned.so";
    const std::wstring libraryName = widen(fileOf(library));
    const std::wstring missingName = widen(missing);
    const ZarnSysInfoEnvApp_MODULE modules[] = {{versionedName.c_str(), ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
                                                {missingName.c_str(), ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
                                                {libraryName.c_str(), ZarnSysInfoEnvApp_HOME_PROGRAM_DIR}};
    auto source = std::make_unique<ZarnSysInfoEnvApp>(modules, 3);
    const std::vector<Row> rows = walk(*source);

    ASSERT_EQ(rows.size(), 21u);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const std::string module = i < 7 ? "libzmu_test_versioned.so" : i < 14 ? missing : fileOf(library);
        EXPECT_EQ(rows[i].caption, caption(module, int(i % 7) + 1)) << i;
    }
    time_t written = 0;
    const std::wstring versionedDate = lastWriteDate(versioned, &written);
    char program[1024] = {};
    ASSERT_GT(readlink("/proc/self/exe", program, sizeof program - 1), 0);

    const struct
    {
        std::size_t row;
        std::wstring datum;
    } expected[] = {
        {0, L"4.1.0.7"},
        {1, L"4.1"},
        {2, hex(versionedId)},
        {3, hex(DWORD(written))}, // an ELF object's time stamp is its last write time
        {4, versionedDate},
        {5, widen(directoryOf(versioned))},
        {7, L"Unknown"},
        {8, L"Unknown"},
        {9, L"Unknown"},
        {10, L"Unknown"},
        {11, L"Unknown"},
        {12, widen(directoryOf(program))}, // where it was expected: its home directory
        {13, L"Unknown"},
        {16, hex(libraryId)},
        {19, widen(directoryOf(library))},
    };
    for (const auto& row : expected) {
        SCOPED_TRACE(row.row);
        EXPECT_EQ(rows[row.row].datum, row.datum);
    }
    struct stat status{};
    ASSERT_EQ(stat(versioned.c_str(), &status), 0);
    EXPECT_EQ(digitsOf(rows[6].datum), std::to_wstring(status.st_size));
    EXPECT_NE(rows[6].datum.find(L" bytes"), std::wstring::npos);

    source.reset();
    EXPECT_EQ(GetModuleHandleW(L"zmu_test_versioned.dll"), nullptr);
}

// Checksum and time stamp at the PE header's offsets; anything else there gives "Unknown", as
// do the versions of a file without version data, while its other items stay real.
TEST(ZarnSysInfoEnvApp, ReadsChecksumAndTimestampOfPeImages)
{
    QTemporaryDir directory;
    ASSERT_TRUE(directory.isValid());
    const std::string root = directory.path().toStdString();
    const struct
    {
        const char* file;
        std::string bytes;
        std::wstring checksum;
        std::wstring stamp;
    } cases[] = {
        {"stamped.dll", peImage(0x5E0F1234, 0x0001A2B3), L"0x0001A2B3", L"0x5E0F1234"},
        {"zero_checksum.exe", peImage(0x00000001, 0), L"0x00000000", L"0x00000001"},
        {"header_outside.dll", peImage(7, 7, 0x1000), L"Unknown", L"Unknown"},
        {"not_an_image.sys", std::string("just text, no image\n"), L"Unknown", L"Unknown"},
    };
    std::vector<std::wstring> names;
    for (const auto& image : cases) {
        std::ofstream(root + "/" + image.file, std::ios::binary) << image.bytes;
        names.push_back(widen(image.file));
    }
    std::vector<ZarnSysInfoEnvApp_MODULE> modules;
    for (const std::wstring& name : names)
        modules.push_back({name.c_str(), ZarnSysInfoEnvApp_HOME_DRIVERS_DIR});
    const ScopedLibraryPath searchPath(root);
    ZarnSysInfoEnvApp source(modules.data(), int(modules.size()));

    const int filesBefore = openFileCount();
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(cases[i].file);
        const int module = int(i + 1) * ZarnSysInfoEnvApp::kModuleStep;
        wchar_t caption[128];
        wchar_t datum[128];
        const struct
        {
            int item;
            std::wstring datum;
        } items[] = {{1, L"Unknown"},
                     {3, cases[i].checksum},
                     {4, cases[i].stamp},
                     {6, widen(root + "/")},
                     {7, std::to_wstring(cases[i].bytes.size()) + L" bytes"}};
        for (const auto& item : items) {
            ASSERT_TRUE(source.getDataPair(module + item.item, caption, datum, 128, 128)) << item.item;
            EXPECT_EQ(caption, ::caption(cases[i].file, item.item));
            EXPECT_EQ(datum, item.datum) << item.item;
        }
    }
    EXPECT_EQ(openFileCount(), filesBefore); // a module learned for one call is closed after it
}

TEST(ZarnSysInfoEnvApp, PositionsRunThroughItemsThenModules)
{
    const ZarnSysInfoEnvApp_MODULE modules[] = {{L"libfirst_missing.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
                                                {L"libsecond_missing.so", ZarnSysInfoEnvApp_HOME_SYSTEM_DIR}};
    ZarnSysInfoEnvApp source(modules, 2);
    wchar_t caption[128];
    wchar_t datum[128];

    ASSERT_EQ(walk(source).size(), 14u);
    EXPECT_FALSE(source.getNextDataPair(caption, datum, 128, 128)); // past the last module, and stays there

    // The first pair always restarts at module 16, item 1.
    ASSERT_TRUE(source.getFirstDataPair(caption, datum, 128, 128));
    EXPECT_STREQ(caption, L"libfirst_missing.so File Version");
    // A held module is trusted: a position of another module reports the held one.
    ASSERT_TRUE(source.getDataPair(32 + 6, caption, datum, 128, 128));
    EXPECT_STREQ(caption, L"libfirst_missing.so Location");

    // Without updates the walk stays where it is.
    source.setShouldUpdateCurrentPosition(false);
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(source.getNextDataPair(caption, datum, 128, 128));
        EXPECT_STREQ(caption, L"libfirst_missing.so Version");
    }
    // Items outside 1 to 7 and modules outside the list are no positions.
    for (int position : {16, 24, 31, 48 + 1, 0, -15})
        EXPECT_FALSE(source.getDataPair(position, caption, datum, 128, 128)) << position;
}

// The default list: the system's core libraries under the system directory, the product's
// drivers expected under its drivers/ folder, and the kernel's image.
TEST(ZarnSysInfoEnvApp, DefaultListReportsTheSystemRows)
{
    int count = 0;
    ZarnSysInfoEnvApp::getDefaultModules(count);
    ZarnSysInfoEnvApp source;
    const std::vector<Row> rows = walk(source);
    ASSERT_EQ(rows.size(), std::size_t(count) * 7);
    const auto found = byCaption(rows);

    wchar_t system[512] = {};
    ASSERT_GT(GetSystemDirectoryW(system, 512), 0u);
    const std::wstring systemDirectory = std::wstring(system) + L"/";
    wchar_t kernel[512] = {};
    ASSERT_GT(GetKernelImagePathW(kernel, 512), 0u);
    const std::string kernelImage(kernel, kernel + std::wcslen(kernel));

    const struct
    {
        std::wstring caption;
        std::wstring datum;
    } expected[] = {
        {L"libc.so.6 Location", systemDirectory},
        {L"libstdc++.so.6 Location", systemDirectory},
        {L"zgse.sys Location", systemDirectory + L"drivers/"},
        {L"zgse.sys Size", L"Unknown"},
        {caption(fileOf(kernelImage), 6), widen(directoryOf(kernelImage))},
    };
    for (const auto& row : expected) {
        SCOPED_TRACE(std::string(row.caption.begin(), row.caption.end()));
        ASSERT_EQ(found.count(row.caption), 1u);
        EXPECT_EQ(found.at(row.caption), row.datum);
    }
    EXPECT_NE(found.at(L"libc.so.6 Checksum"), L"Unknown");
    EXPECT_NE(found.at(L"libc.so.6 Size"), L"Unknown");
    wchar_t category[64];
    ASSERT_GT(source.getCategory(category, 64), 0);
    EXPECT_STREQ(category, L"Application Environment");
}
