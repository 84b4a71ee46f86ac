#include "sysinfo/ZarnSysInfoEnvOp.h"

#include "localize/ZRLoadStringW.h"
#include "platform/Registry.h"
#include "platform/SystemInformation.h"
#include "support/RegistrySandbox.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int kTextQty = 256;

// A machine of the test's own: the system files below a temporary root, an empty registry, and
// the environment variables the items read, all put back afterwards.
class FakeSystem
{
public:
    FakeSystem()
    {
        for (const char* name : {"USERDOMAIN", "LC_ALL", "LC_MESSAGES", "LANG"}) {
            const char* value = std::getenv(name);
            m_savedVariables.emplace(name, value != nullptr ? std::optional<std::string>(value) : std::nullopt);
            ::unsetenv(name);
        }
        ::setenv("LC_ALL", "C", 1);
        SetSystemInformationRoot(path("").c_str());
    }
    ~FakeSystem()
    {
        SetSystemInformationRoot(nullptr);
        for (const auto& [name, value] : m_savedVariables)
            value ? ::setenv(name.c_str(), value->c_str(), 1) : ::unsetenv(name.c_str());
    }

    std::string path(const std::string& relative) const { return m_root.path().toStdString() + "/" + relative; }
    void write(const std::string& relative, const std::string& text) const
    {
        const QString file = QString::fromStdString(path(relative));
        QDir().mkpath(QFileInfo(file).path());
        QFile out(file);
        ASSERT_TRUE(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
        out.write(text.data(), qint64(text.size()));
    }
    // A registry key below HKEY_LOCAL_MACHINE, with a text or a number value if named.
    static void writeKey(const wchar_t* key, const wchar_t* name = nullptr, const std::wstring& text = L"",
                         const DWORD* number = nullptr)
    {
        HKEY handle = nullptr;
        ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, key, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &handle, nullptr),
                  LONG(ERROR_SUCCESS));
        if (name != nullptr && number != nullptr)
            RegSetValueExW(handle, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(number), sizeof *number);
        else if (name != nullptr)
            RegSetValueExW(handle, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                           DWORD((text.size() + 1) * sizeof(wchar_t)));
        RegCloseKey(handle);
    }

private:
    QTemporaryDir m_root;
    RegistrySandbox m_registry;
    std::map<std::string, std::optional<std::string>> m_savedVariables;
};

struct Pair
{
    std::wstring caption;
    std::wstring datum;
};

// The source with its requests recorded, and a version of the test's choosing.
class RecordingEnvOp : public ZarnSysInfoEnvOp
{
public:
    bool getDataPair(int position, wchar_t* caption, wchar_t* datum, int captionSize, int datumSize) override
    {
        positions.push_back(position);
        return ZarnSysInfoEnvOp::getDataPair(position, caption, datum, captionSize, datumSize);
    }
    void setVersion(DWORD platform, DWORD major, DWORD minor, DWORD build, BYTE productType)
    {
        m_versionInfo.dwPlatformId = platform;
        m_versionInfo.dwMajorVersion = major;
        m_versionInfo.dwMinorVersion = minor;
        m_versionInfo.dwBuildNumber = build;
        m_versionInfo.wProductType = productType;
    }
    // One pair by position, or the pair that a false result left behind.
    Pair pairAt(int position, bool* result = nullptr)
    {
        wchar_t caption[kTextQty] = {};
        wchar_t datum[kTextQty] = {};
        const bool answer = getDataPair(position, caption, datum, kTextQty, kTextQty);
        if (result != nullptr)
            *result = answer;
        return Pair{caption, datum};
    }
    // A whole walk: the pairs until the first false.
    std::vector<Pair> walk()
    {
        std::vector<Pair> pairs;
        wchar_t caption[kTextQty] = {};
        wchar_t datum[kTextQty] = {};
        for (bool more = getFirstDataPair(caption, datum, kTextQty, kTextQty); more && pairs.size() < 100;
             more = getNextDataPair(caption, datum, kTextQty, kTextQty))
            pairs.push_back(Pair{caption, datum});
        return pairs;
    }

    std::vector<int> positions;
};

std::wstring builtIn(unsigned int id)
{
    wchar_t text[kTextQty] = {};
    ZRLoadStringW(id, text, kTextQty);
    return text;
}

// "<digits> MB"
bool isMegabytes(const std::wstring& datum)
{
    const size_t digits = datum.find_first_not_of(L"0123456789");
    return digits != 0 && digits != std::wstring::npos && datum.substr(digits) == L" MB";
}

const char* const kIntelBlock = "processor\t: 0\nvendor_id\t: GenuineIntel\ncpu family\t: 6\nmodel\t\t: 15\n"
                                "stepping\t: 11\ncpu MHz\t\t: 2400.012\nflags\t\t: fpu lm sse\n\n";

} // namespace

// Every position in order, 15 and 16 once for each fixed drive, and the end at 19. A CD-ROM, a
// second mount of a device, a file system without a device and a missing mount point are no
// fixed drives; a blank in a mount point comes escaped in the mount list.
TEST(ZarnSysInfoEnvOp, WalkGoesThroughThePositionsWithEachFixedDriveTwice)
{
    FakeSystem system;
    system.write("my disk/.keep", "");
    system.write("cd/.keep", "");
    system.write("bind/.keep", "");
    system.write("proc/sys/kernel/osrelease", "5.15.0-91-generic\n");
    system.write("proc/filesystems", "nodev\tsysfs\nnodev\ttmpfs\n\text4\n\txfs\n\tiso9660\n");
    system.write("proc/self/mounts", "rootdev / xfs rw 0 0\nsysfs /sys sysfs rw 0 0\n/dev/sdb1 " +
                                         system.path("my\\040disk") + " ext4 rw 0 0\n/dev/sr0 " + system.path("cd") +
                                         " iso9660 ro 0 0\n/dev/sdb1 " + system.path("bind") +
                                         " ext4 rw 0 0\ntmpfs /tmp tmpfs rw 0 0\n/dev/sdc1 " +
                                         system.path("gone") + " ext4 rw 0 0\n");
    system.write("proc/cpuinfo", kIntelBlock);
    RecordingEnvOp source;
    const std::vector<Pair> pairs = source.walk();

    const std::vector<int> expected = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 15, 16, 17, 18, 19};
    EXPECT_EQ(source.positions, expected);
    ASSERT_EQ(pairs.size(), expected.size() - 1);
    EXPECT_EQ(pairs[0].datum, L"Linux");
    EXPECT_EQ(pairs[1].datum, L"5.15");
    EXPECT_EQ(pairs[2].datum, L"0");
    EXPECT_EQ(pairs[3].datum, L"5.15.0-91-generic");
    const std::wstring disk = QString::fromStdString(system.path("my disk")).toStdWString();
    const std::pair<std::wstring, std::wstring> drives[] = {{L"/", L"xfs"}, {disk, L"ext4"}};
    for (size_t index = 0; index < 2; ++index) {
        SCOPED_TRACE(index);
        const auto& [drive, type] = drives[index];
        EXPECT_EQ(pairs[15 + 2 * index].caption, L"Available Space on Drive " + drive);
        EXPECT_TRUE(isMegabytes(pairs[15 + 2 * index].datum)) << pairs[15 + 2 * index].datum;
        EXPECT_EQ(pairs[16 + 2 * index].caption, drive + L" Partition Type");
        EXPECT_EQ(pairs[16 + 2 * index].datum, type);
    }
    EXPECT_EQ(pairs[19].caption, L"Processor Information");
}

// Position 11 adds a megabyte before dividing, position 12 reports the total; an unusable memory
// status leaves 11 and 12 unchecked and 13 and 14 unknown.
TEST(ZarnSysInfoEnvOp, MemoryItemsKeepTheirDeliberateQuirks)
{
    struct Row
    {
        const char* name;
        const char* meminfo; // null: no file
        std::vector<std::wstring> expected; // positions 11 to 14
    };
    const Row rows[] = {
        {"exact two gigabytes", "MemTotal: 2097152 kB\nMemAvailable: 1048576 kB\nSwapTotal: 1048576 kB\nSwapFree: 524288 kB\n",
         {L"2049 MB", L"2048 MB", L"3072 MB", L"1536 MB"}},
        {"kernel without MemAvailable", "MemTotal: 4194304 kB\nMemFree: 1024 kB\nBuffers: 1024 kB\nCached: 1046528 kB\n",
         {L"4097 MB", L"4096 MB", L"4096 MB", L"1024 MB"}},
        {"no memory figures", nullptr, {L"1 MB", L"0 MB", L"Unknown", L"Unknown"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        FakeSystem system;
        if (row.meminfo != nullptr)
            system.write("proc/meminfo", row.meminfo);
        RecordingEnvOp source;
        for (int position = 11; position <= 14; ++position)
            EXPECT_EQ(source.pairAt(position).datum, row.expected[size_t(position - 11)]) << position;
    }
}

// A machine whose sources all fail: each item gives its fallback, and the drive list that can't
// be read ends the walk at position 15 with error -11.
TEST(ZarnSysInfoEnvOp, SourcesThatCannotAnswerGiveTheirFallbacks)
{
    FakeSystem system;
    ::setenv("LC_ALL", "xx_YY", 1);
    const std::map<int, Pair> expected = {
        {0, {builtIn(15420), builtIn(14017)}},   {1, {L"Platform Version", L"0.0"}},
        {2, {L"Platform Build Number", L"0"}},   {3, {L"Platform Information", L"Unknown"}},
        {4, {L"Hotfixes", L"Unavailable"}},      {5, {L"Computer Name", L"Unknown"}},
        {6, {builtIn(15415), builtIn(14017)}},   {7, {builtIn(15429), L"Unknown (1168)"}},
        {8, {L"Windows Directory", L"Unknown (120)"}}, {13, {L"Maximum Pagefile Size", L"Unknown"}},
        {17, {L"Processor Information", L"Unknown"}},
    };
    for (const auto& [position, pair] : expected) {
        SCOPED_TRACE(position);
        RecordingEnvOp source;
        bool result = false;
        const Pair got = source.pairAt(position, &result);
        EXPECT_TRUE(result);
        EXPECT_EQ(got.caption, pair.caption);
        EXPECT_EQ(got.datum, pair.datum);
    }

    RecordingEnvOp source;
    const std::vector<Pair> pairs = source.walk();
    EXPECT_EQ(source.positions.back(), 15);
    EXPECT_EQ(pairs.size(), 15u);
    EXPECT_EQ(source.getError(), ZarnSysInfo::kErrorDrivesNotListed);
    bool result = true;
    const Pair drive = RecordingEnvOp().pairAt(15, &result);
    EXPECT_FALSE(result);
    EXPECT_EQ(drive.caption, L"Available Space on Drive "); // the datum is not written once m_error is set
}

// The platform's name and build number by platform id and version; 5.2 on a workstation depends
// on the processor, which is this machine's.
TEST(ZarnSysInfoEnvOp, PlatformNameAndBuildFollowTheVersion)
{
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    const unsigned int xp64OrServer = info.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_AMD64 ? 15449 : 15433;
    struct Row
    {
        DWORD platform, major, minor;
        BYTE productType;
        unsigned int nameID;
        const wchar_t* build; // of the build number 0x0A0B1234
    };
    const Row rows[] = {
        {VER_PLATFORM_LINUX, 6, 8, 0, 15450, L"168497716"},       {VER_PLATFORM_WIN32_NT, 5, 0, 1, 15431, L"168497716"},
        {VER_PLATFORM_WIN32_NT, 5, 1, 1, 15432, L"168497716"},    {VER_PLATFORM_WIN32_NT, 5, 2, 3, 15433, L"168497716"},
        {VER_PLATFORM_WIN32_NT, 5, 2, 1, xp64OrServer, L"168497716"}, {VER_PLATFORM_WIN32_NT, 6, 0, 1, 15445, L"168497716"},
        {VER_PLATFORM_WIN32_NT, 6, 0, 3, 15446, L"168497716"},    {VER_PLATFORM_WIN32_NT, 6, 1, 3, 15447, L"168497716"},
        {VER_PLATFORM_WIN32_NT, 6, 1, 1, 15448, L"168497716"},    {VER_PLATFORM_WIN32_WINDOWS, 4, 10, 0, 14017, L"4660"},
        {ZarnSysInfoEnvOp::kPlatformUnknown, 0, 0, 0, 14017, L"168497716"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << row.platform << " " << row.major << "." << row.minor << " type "
                                        << int(row.productType));
        RecordingEnvOp source;
        source.setVersion(row.platform, row.major, row.minor, 0x0A0B1234, row.productType);
        EXPECT_EQ(source.pairAt(0).datum, builtIn(row.nameID));
        EXPECT_EQ(source.pairAt(2).datum, row.build);
    }
}

// The locale as a Windows language id: a full match, a language alone, the C locale, one the
// table lacks, and the system's own setting when the environment names none.
TEST(ZarnSysInfoEnvOp, LanguageIdComesFromTheLocale)
{
    const std::pair<const char*, const wchar_t*> rows[] = {
        {"de_DE.UTF-8", L"0x0407"}, {"en_US", L"0x0409"},   {"de_LU@euro", L"0x0007"},
        {"C.UTF-8", L"0x007F"},     {"xx_YY", L"Unknown (1168)"}, {nullptr, L"0x040C"},
    };
    for (const auto& [locale, expected] : rows) {
        SCOPED_TRACE(locale != nullptr ? locale : "from /etc/default/locale");
        FakeSystem system;
        system.write("etc/default/locale", "# set by the installer\nLANG=\"fr_FR.UTF-8\"\n");
        locale != nullptr ? ::setenv("LC_ALL", locale, 1) : ::unsetenv("LC_ALL");
        EXPECT_EQ(RecordingEnvOp().pairAt(7).datum, expected);
    }
}

// USERDOMAIN first (an empty one counts as none), then the host name's domain, then
// resolv.conf; GetAccountDomainW reports the same, cut with dots to its size.
TEST(ZarnSysInfoEnvOp, DomainComesFromUserDomainThenTheSystem)
{
    struct Row
    {
        const char* name;
        const char* userDomain; // null: unset
        const char* hostname;
        const char* resolvConf;
        const wchar_t* expected;
    };
    const Row rows[] = {
        {"variable", "CORP", "vm.lab.example", "domain corp.example\n", L"CORP"},
        {"empty variable, host name", "", "vm.lab.example", "domain corp.example\n", L"lab.example"},
        {"domain line", nullptr, "vm", "nameserver 10.0.0.1\ndomain corp.example.\n", L"corp.example"},
        {"search line", nullptr, "vm", "search example.org other.org # local\n", L"example.org"},
        {"nothing", nullptr, "vm", "nameserver 10.0.0.1\n", L"Unknown"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        FakeSystem system;
        if (row.userDomain != nullptr)
            ::setenv("USERDOMAIN", row.userDomain, 1);
        system.write("proc/sys/kernel/hostname", std::string(row.hostname) + "\n");
        system.write("etc/resolv.conf", row.resolvConf);
        EXPECT_EQ(RecordingEnvOp().pairAt(6).datum, row.expected);
        wchar_t buffer[kTextQty] = {};
        EXPECT_TRUE(GetAccountDomainW(buffer, kTextQty));
        EXPECT_EQ(std::wstring(buffer), row.expected);
    }
    FakeSystem system;
    ::setenv("USERDOMAIN", "LONGDOMAINNAME", 1);
    wchar_t buffer[8] = {};
    EXPECT_TRUE(GetAccountDomainW(buffer, 8));
    EXPECT_EQ(std::wstring(buffer), L"LONG...");
}

// The processor in the shape "vendor identifier ~speed MHz", with the parts that exist.
TEST(ZarnSysInfoEnvOp, ProcessorInformationHasTheWindowsShape)
{
    const std::pair<std::string, const wchar_t*> rows[] = {
        {kIntelBlock, L"GenuineIntel Intel64 Family 6 Model 15 Stepping 11 ~2400 MHz"},
        {"processor : 0\nvendor_id : AuthenticAMD\ncpu family : 23\nmodel : 1\nstepping : 2\ncpu MHz : 3600\n"
         "flags : lm\n",
         L"AuthenticAMD AMD64 Family 23 Model 1 Stepping 2 ~3600 MHz"},
        {"processor : 0\nvendor_id : GenuineIntel\ncpu family : 6\nmodel : 15\nstepping : 11\ncpu MHz : 0\n",
         L"GenuineIntel x86 Family 6 Model 15 Stepping 11 ~"},
        {"processor : 0\nvendor_id : GenuineIntel\ncpu family : 6\nmodel : 15\nstepping : unknown\n", L"GenuineIntel"},
        {"processor : 0\nCPU implementer : 0x41\n", L"Unknown"},
    };
    for (const auto& [cpuinfo, expected] : rows) {
        SCOPED_TRACE(cpuinfo);
        FakeSystem system;
        system.write("proc/cpuinfo", cpuinfo);
        EXPECT_EQ(RecordingEnvOp().pairAt(17).datum, expected);
    }
}

// Hotfixes are the subkeys of the hotfix key, with "Installed" where it is set; an empty key is
// "None".
TEST(ZarnSysInfoEnvOp, HotfixesAreTheSubkeysOfTheHotfixKey)
{
    const wchar_t* key = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\HotFix";
    FakeSystem system;
    FakeSystem::writeKey(key);
    EXPECT_EQ(RecordingEnvOp().pairAt(4).datum, L"None");
    const DWORD one = 1;
    FakeSystem::writeKey((std::wstring(key) + L"\\KB123456").c_str(), L"Installed", L"", &one);
    FakeSystem::writeKey((std::wstring(key) + L"\\KB234567").c_str());
    // The registry keeps its names in lower case.
    EXPECT_EQ(RecordingEnvOp().pairAt(4).datum, L"kb123456(1), kb234567");
}

// Positions 19 to 21 give false; 22 to 24 are read from the windowing subsystem's command line,
// and a missing number fails all three.
TEST(ZarnSysInfoEnvOp, HeapSizesAreReachedOnlyByAskingForThem)
{
    for (int position : {19, 20, 21, 25, -1}) {
        bool result = true;
        RecordingEnvOp().pairAt(position, &result);
        EXPECT_FALSE(result) << position;
    }

    const wchar_t* key = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\SubSystems";
    struct Row
    {
        const wchar_t* commandLine;
        std::vector<std::wstring> expected; // positions 22 to 24; empty: false
    };
    const Row rows[] = {
        {L"%SystemRoot%\\csrss.exe ObjectDirectory=\\Windows sharedsection=1024,3072,512 Windows=On",
         {L"1024 KB", L"3072 KB", L"512 KB"}},
        {L"csrss.exe SharedSection=1024,3072 Windows=On", {}},
        {L"csrss.exe Windows=On", {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(QString::fromWCharArray(row.commandLine).toStdString());
        FakeSystem system;
        FakeSystem::writeKey(key, L"Windows", row.commandLine);
        RecordingEnvOp source; // one object: a failed learning is not taken for a success later
        for (int position = 22; position <= 24; ++position) {
            bool result = false;
            const Pair pair = source.pairAt(position, &result);
            EXPECT_EQ(result, !row.expected.empty()) << position;
            if (result) {
                EXPECT_EQ(pair.datum, row.expected[size_t(position - 22)]) << position;
            }
        }
    }
}

// Position 0 is never stored: a second walk starts at 0 and goes on where the first ended. With
// updates off the same pair comes again.
TEST(ZarnSysInfoEnvOp, AnObjectServesOneWalk)
{
    FakeSystem system;
    system.write("proc/self/mounts", "rootdev / ext4 rw 0 0\n");
    RecordingEnvOp source;
    source.walk();
    source.positions.clear();
    EXPECT_EQ(source.walk().size(), 1u);
    EXPECT_EQ(source.positions, (std::vector<int>{0, 21}));

    RecordingEnvOp still;
    still.setShouldUpdateCurrentPosition(false);
    EXPECT_EQ(still.walk().size(), 100u); // the walk helper's own limit
    EXPECT_EQ(still.positions, std::vector<int>(101, 0));
}

// The exported domain query builds its own source, so threads may ask at once.
TEST(ZarnSysInfoEnvOpConcurrency, AccountDomainFromManyThreads)
{
    FakeSystem system;
    ::setenv("USERDOMAIN", "CORP", 1);
    wchar_t first[kTextQty] = {};
    ASSERT_TRUE(GetAccountDomainW(first, kTextQty)); // the string table's set-up, before the threads
    std::vector<std::thread> threads;
    std::atomic<int> mismatches{0};
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            for (int round = 0; round < 25; ++round) {
                wchar_t domain[kTextQty] = {};
                if (!GetAccountDomainW(domain, kTextQty) || std::wstring(domain) != L"CORP")
                    ++mismatches;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(mismatches.load(), 0);
}

// This machine, unfaked: the walk reaches its end, with a datum for every pair.
TEST(ZarnSysInfoEnvOp, WalkOnThisMachineIsWhole)
{
    RecordingEnvOp source;
    const std::vector<Pair> pairs = source.walk();
    ASSERT_GE(pairs.size(), 19u);
    EXPECT_EQ(source.positions.back(), 19);
    EXPECT_EQ(pairs[0].datum, builtIn(15450));
    for (const Pair& pair : pairs) {
        SCOPED_TRACE(QString::fromStdWString(pair.caption).toStdString());
        EXPECT_FALSE(pair.caption.empty());
        EXPECT_FALSE(pair.datum.empty());
    }
    EXPECT_EQ(source.getError(), 0);
    wchar_t domain[kTextQty] = {};
    EXPECT_TRUE(GetAccountDomainW(domain, kTextQty));
    EXPECT_NE(domain[0], L'\0');
}
