#include "platform/SystemInformation.h"

#include "PlatformRig.h"

#include <QString>

#include <sys/statvfs.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using platform_test::outcomeOf;

std::string narrow(const wchar_t* text)
{
    return QString::fromWCharArray(text).toStdString();
}

// The type of the file system mounted last on "/", as the system lists it.
std::string rootType()
{
    std::ifstream mounts("/proc/self/mounts");
    std::string line, type;
    while (std::getline(mounts, line)) {
        std::istringstream fields(line);
        std::string device, point, kind;
        if (fields >> device >> point >> kind && point == "/")
            type = kind;
    }
    return type;
}

// Names, version, processors and memory as the system itself reports them, with the size rules.
TEST(SystemInformation, NamesVersionAndMemoryAgreeWithTheSystem)
{
    char host[256] = {};
    ASSERT_EQ(::gethostname(host, sizeof host - 1), 0);
    wchar_t name[256];
    DWORD size = 256;
    ASSERT_TRUE(GetComputerNameW(name, &size));
    EXPECT_EQ(narrow(name), host);
    EXPECT_EQ(size, DWORD(std::strlen(host)));
    DWORD tooSmall = size;
    EXPECT_EQ(outcomeOf([&] { return GetComputerNameW(name, &tooSmall); }), 111u);
    EXPECT_EQ(tooSmall, size + 1);
    size = 256;
    EXPECT_EQ(outcomeOf([&] { return GetComputerNameExW(ComputerNameNetBIOS, name, &size); }), 87u);

    struct utsname names;
    ASSERT_EQ(::uname(&names), 0);
    OSVERSIONINFOEXW version{};
    version.dwOSVersionInfoSize = sizeof version;
    ASSERT_TRUE(GetVersionExW(&version));
    EXPECT_EQ(narrow(version.szCSDVersion), names.release);
    const std::string majorMinor = std::to_string(version.dwMajorVersion) + "." + std::to_string(version.dwMinorVersion);
    EXPECT_EQ(std::string(names.release).rfind(majorMinor + ".", 0), 0u) << names.release;
    version.dwOSVersionInfoSize = 20;
    EXPECT_EQ(outcomeOf([&] { return GetVersionExW(&version); }), 122u);

    SYSTEM_INFO info;
    GetSystemInfo(&info);
    EXPECT_EQ(info.dwNumberOfProcessors, DWORD(::sysconf(_SC_NPROCESSORS_ONLN)));
    EXPECT_EQ(info.dwPageSize, DWORD(::sysconf(_SC_PAGESIZE)));

    struct sysinfo kernel;
    ASSERT_EQ(::sysinfo(&kernel), 0);
    MEMORYSTATUSEX memory{};
    memory.dwLength = sizeof memory;
    ASSERT_TRUE(GlobalMemoryStatusEx(&memory));
    EXPECT_EQ(memory.ullTotalPhys, std::uint64_t(kernel.totalram) * kernel.mem_unit);
    EXPECT_EQ(memory.ullTotalPageFile - memory.ullTotalPhys, std::uint64_t(kernel.totalswap) * kernel.mem_unit);
    EXPECT_LE(memory.ullAvailPhys, memory.ullTotalPhys);
    memory.dwLength = 0;
    EXPECT_EQ(outcomeOf([&] { return GlobalMemoryStatusEx(&memory); }), 87u);

    DWORD bytes = 0;
    EXPECT_EQ(QueryCentralProcessorValueW(0, L"NoSuchValue", nullptr, &bytes), LONG(ERROR_FILE_NOT_FOUND));
    if (QueryCentralProcessorValueW(0, L"vendoridentifier", nullptr, &bytes) == LONG(ERROR_SUCCESS)) {
        std::vector<wchar_t> vendor(bytes / sizeof(wchar_t));
        DWORD small = bytes - 1;
        EXPECT_EQ(QueryCentralProcessorValueW(0, L"VendorIdentifier", vendor.data(), &small), LONG(ERROR_MORE_DATA));
        EXPECT_EQ(small, bytes);
        EXPECT_EQ(QueryCentralProcessorValueW(0, L"VendorIdentifier", vendor.data(), &bytes), LONG(ERROR_SUCCESS));
        EXPECT_EQ(vendor.back(), L'\0');
    }
}

// The root file system is always a drive; its space and type are the system's.
TEST(SystemInformation, RootIsADriveWithTheSystemsFigures)
{
    const DWORD needed = GetLogicalDriveStringsW(0, nullptr);
    ASSERT_GE(needed, 3u);
    std::vector<wchar_t> list(needed, L'#');
    EXPECT_EQ(GetLogicalDriveStringsW(needed - 1, list.data()), needed);
    EXPECT_EQ(list[0], L'#');
    ASSERT_EQ(GetLogicalDriveStringsW(needed, list.data()), needed - 1);
    std::vector<std::string> roots;
    for (const wchar_t* root = list.data(); *root != L'\0'; root += std::wcslen(root) + 1)
        roots.push_back(narrow(root));
    EXPECT_NE(std::find(roots.begin(), roots.end(), "/"), roots.end());

    EXPECT_NE(GetDriveTypeW(L"/"), DRIVE_NO_ROOT_DIR);
    for (const wchar_t* notADrive : {L"/proc", L"/no/such/dir", static_cast<const wchar_t*>(nullptr)})
        EXPECT_EQ(GetDriveTypeW(notADrive), DRIVE_NO_ROOT_DIR);

    struct statvfs space;
    ASSERT_EQ(::statvfs("/", &space), 0);
    std::uint64_t available = 0, total = 0, free = 0;
    ASSERT_TRUE(GetDiskFreeSpaceExW(L"/", &available, &total, &free));
    EXPECT_EQ(total, std::uint64_t(space.f_blocks) * space.f_frsize);
    EXPECT_LE(available, free);
    EXPECT_EQ(outcomeOf([&] { return GetDiskFreeSpaceExW(L"/no/such/dir", nullptr, nullptr, &free); }), 3u);

    wchar_t type[64] = {};
    ASSERT_TRUE(GetVolumeInformationW(L"/", nullptr, 0, nullptr, nullptr, nullptr, type, 64));
    EXPECT_EQ(narrow(type), rootType());
    EXPECT_FALSE(GetVolumeInformationW(L"/", nullptr, 0, nullptr, nullptr, nullptr, type, 1));
    EXPECT_EQ(GetLastError(), 122u);
    EXPECT_FALSE(GetVolumeInformationW(L"/proc", nullptr, 0, nullptr, nullptr, nullptr, type, 64));
    EXPECT_EQ(GetLastError(), 144u);
}

} // namespace
