// The application environment: for each module of a list, which file of it is really on the
// machine, with its versions, checksum, link time stamp, date, directory and size. A file is found
// on disk and read as data, through its version section and a read-only mapping; no module is ever
// loaded, so a report may cover any file and runs none of its code.
//
// A position is a module number plus an item: the module numbers are 16, 32, 48, ... in list
// order, the items 1 to 7 in the order File Version, Version, Checksum, Timestamp, Date, Location,
// Size. A walk starts at 17 and ends after item 7 of the last module.
//
// The module list is configuration. The default list holds the product's modules, named as the
// platform names modules ("x.dll" is "libx.so"; an executable "x.exe" is the bare "x"), the
// system's core libraries as the rows of the system directory (the directory the loader took the
// C library from), and the running kernel's image, /boot/vmlinuz-<release>; a kernel image that
// is not there gives the kernel's rows under its expected name, with "Unknown" data. An owner may
// give its own list to the constructor.
//
// Checksum and Timestamp come from the image header. A PE image ("MZ", the header's offset at 60,
// "PE\0\0" there) gives the checksum at offset 88 and the link time stamp at offset 8 of that
// header. An ELF object has neither field: its Checksum row shows the first four bytes of its GNU
// build ID (the note of .note.gnu.build-id), read big-endian so that the row shows the ID's first
// eight hex digits, and its Timestamp row the file's last write time in seconds since 1970. Other
// files, and ELF objects without a build ID, give "Unknown" there.
#pragma once

#include "sysinfo/ZarnSysInfo.h"

#include "platform/WinTypes.h"

#include <cstddef>
#include <string>
#include <vector>

// The directories in which a module is looked for first.
enum ZarnSysInfoEnvApp_HOME_DIR_ID
{
    ZarnSysInfoEnvApp_HOME_PROGRAM_DIR = 0, // the directory of the process's executable
    ZarnSysInfoEnvApp_HOME_SYSTEM_DIR = 1,  // the system directory
    ZarnSysInfoEnvApp_HOME_DRIVERS_DIR = 2, // "drivers/" under the system directory
    ZarnSysInfoEnvApp_HOME_DIR_Qty = 3
};

// One module of a list: its file name, or null for the running kernel's image, and its home.
struct ZarnSysInfoEnvApp_MODULE
{
    const wchar_t* fileName;
    ZarnSysInfoEnvApp_HOME_DIR_ID home;
};

class ZarnSysInfoEnvApp : public ZarnSysInfo
{
public:
    static constexpr int kModuleStep = 16;
    static constexpr int kItemQty = 7;
    static constexpr int kFirstPosition = kModuleStep + 1;
    static constexpr int kNameQty = 261; // a file name or path with its terminator
    static constexpr int kTextQty = 4096;

    // The default list.
    ZarnSysInfoEnvApp();
    // An owner's list of `count` modules, copied; a file name is cut to 260 characters. A null
    // file name stands for the running kernel's image.
    ZarnSysInfoEnvApp(const ZarnSysInfoEnvApp_MODULE* modules, int count);
    ~ZarnSysInfoEnvApp() override;

    // The default list and its length.
    static const ZarnSysInfoEnvApp_MODULE* getDefaultModules(int& count);

    bool getDataPair(int position, wchar_t* caption, wchar_t* datum, int captionSize, int datumSize) override;
    // Restarts at module 16, item 1.
    bool getFirstDataPair(wchar_t* caption, wchar_t* datum, int captionSize, int datumSize) override;
    // false past the last module; opens the module at its item 1 and keeps it for the other six.
    bool getNextDataPair(wchar_t* caption, wchar_t* datum, int captionSize, int datumSize) override;

protected:
    bool learnNextPosition() override;

private:
    struct Module
    {
        std::wstring fileName;
        bool kernelImage;
        ZarnSysInfoEnvApp_HOME_DIR_ID home;
    };

    void recordModules(const ZarnSysInfoEnvApp_MODULE* modules, int count);
    bool isModuleNumber(long long module) const;

    bool learnModuleDataPairDeterminants(unsigned long module);
    bool forgetModuleDataPairDeterminants();
    bool learnModuleFileNomenclature(int module);
    bool learnKernelImageNomenclature();
    bool learnModuleFileLocation();
    bool learnModuleHomeDirectory(ZarnSysInfoEnvApp_HOME_DIR_ID id);

    // Writes item `item` of the held module; raises an int when the item cannot be produced, after
    // setting `datumObtained` if only the writing failed.
    void formatItem(int item, wchar_t* caption, wchar_t* datum, int captionSize, int datumSize, bool& datumObtained);
    void formatItemCaption(int item);
    bool learnImageWord(int item, DWORD& value);
    bool isFileOpen() const;

    HANDLE m_file;
    wchar_t m_moduleName[kNameQty];
    wchar_t m_modulePath[kNameQty];
    HANDLE m_mapping;
    wchar_t m_homeDirectories[ZarnSysInfoEnvApp_HOME_DIR_Qty][kNameQty];
    const void* m_view;
    void* m_versionBlock;
    wchar_t m_text1[kTextQty];
    wchar_t m_text2[kTextQty];
    std::size_t m_viewSize;
    std::vector<Module> m_modules;
};
