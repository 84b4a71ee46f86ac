#include "sysinfo/ZarnSysInfoEnvApp.h"

#include "platform/Files.h"
#include "platform/Modules.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
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

// Points the file search at `directory` for one test.
class ScopedLibraryPath
{
public:
    explicit ScopedLibraryPath(const std::string& directory)
    {
        if (const char* previous = std::getenv("LD_LIBRARY_PATH"))
            m_previous = previous;
        setenv("LD_LIBRARY_PATH", directory.c_str(), 1);
    }
    ~ScopedLibraryPath() { m_previous ? setenv("LD_LIBRARY_PATH", m_previous->c_str(), 1) : unsetenv("LD_LIBRARY_PATH"); }

private:
    std::optional<std::string> m_previous;
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

// An installed and a missing module: seven rows each, in item order, read from the file without
// loading it.
TEST(ZarnSysInfoEnvApp, ReportsModulesFromTheirFilesWithoutLoadingThem)
{
    const std::string versioned = ZMU_TEST_MODULE_DIR "/libzmu_test_versioned.so";
    ASSERT_EQ(GetModuleHandleW(L"zmu_test_versioned.dll"), nullptr) << "loaded by another test";
    DWORD versionedId = 0;
    ASSERT_TRUE(buildIdPrefix(versioned, versionedId));

    const ScopedLibraryPath searchPath(ZMU_TEST_MODULE_DIR);
    const ZarnSysInfoEnvApp_MODULE modules[] = {{L"libzmu_test_versioned.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR},
                                                {L"libzmu_not_installed.so", ZarnSysInfoEnvApp_HOME_PROGRAM_DIR}};
    auto source = std::make_unique<ZarnSysInfoEnvApp>(modules, 2);
    const std::vector<Row> rows = walk(*source);

    const QDateTime written = QFileInfo(QString::fromStdString(versioned)).lastModified().toUTC();
    char program[1024] = {};
    ASSERT_GT(readlink("/proc/self/exe", program, sizeof program - 1), 0);
    const std::wstring expected[] = {
        L"4.1.0.7", L"4.1", hex(versionedId),
        hex(DWORD(written.toSecsSinceEpoch())), // an ELF object's time stamp is its last write time
        written.toString("MM/dd/yy").toStdWString(), widen(directoryOf(versioned)), L"",
        L"Unknown", L"Unknown", L"Unknown", L"Unknown", L"Unknown",
        widen(directoryOf(program)), // where it was expected: its home directory
        L"Unknown",
    };
    ASSERT_EQ(rows.size(), std::size(expected));
    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(i);
        const char* module = i < 7 ? "libzmu_test_versioned.so" : "libzmu_not_installed.so";
        EXPECT_EQ(rows[i].caption, caption(module, int(i % 7) + 1));
        if (i != 6) { // the size, below
            EXPECT_EQ(rows[i].datum, expected[i]);
        }
    }
    const QString size = QString::fromStdWString(rows[6].datum);
    EXPECT_TRUE(size.endsWith(" bytes")) << size.toStdString();
    EXPECT_EQ(size.chopped(6).remove(QRegularExpression("[^0-9]")).toLongLong(),
              QFileInfo(QString::fromStdString(versioned)).size());

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

    const QDir descriptors("/proc/self/fd");
    const uint filesBefore = descriptors.count();
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
    descriptors.refresh();
    EXPECT_EQ(descriptors.count(), filesBefore); // a module learned for one call is closed after it
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
    std::map<std::wstring, std::wstring> found;
    for (const Row& row : rows)
        found[row.caption] = row.datum;

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
        {caption(kernelImage.substr(kernelImage.rfind('/') + 1), 6), widen(directoryOf(kernelImage))},
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
