// The data pair source of the operating environment: the platform and its version, hotfixes,
// the computer's name and domain, language, directories, memory, drives and processor.
#pragma once

#include "platform/SystemInformation.h"
#include "platform/WinTypes.h"
#include "sysinfo/ZarnSysInfo.h"

#include <string>
#include <vector>

class ZarnSysInfoEnvOp : public ZarnSysInfo
{
public:
    static constexpr int kTextQty = 1024;
    static constexpr DWORD kFixedDrivesUnlearned = 0xFFFFFFFF;
    static constexpr DWORD kPlatformUnknown = 0xFFFFFF;
    static constexpr int kDriveQty = 32;

    // Takes the memory status and the version once; the category is "Operating Environment".
    ZarnSysInfoEnvOp();
    ~ZarnSysInfoEnvOp() override;

    // The pair at `position`, 0 to 18 and 22 to 24; 15 and 16 describe the current drive. An item
    // whose source can't answer gives its fallback datum. 19 to 21 and 25 on give false.
    bool getDataPair(int position, wchar_t* caption, wchar_t* datum, int captionSize, int datumSize) override;

protected:
    // One step on, except that 16 goes back to 15 while drives remain. Position 0 is never stored,
    // so an object serves one walk.
    bool learnNextPosition() override;

    bool m_desktopInfoLearned;
    int m_perDesktopHeapKB;
    int m_systemWideHeapKB;
    int m_nonInteractiveHeapKB;
    MEMORYSTATUSEX m_memoryStatus; // a zero length marks it unusable
    // One bit for each entry of m_driveRoots still to report, bit 0 the first.
    DWORD m_fixedDrives;
    OSVERSIONINFOEXW m_versionInfo;
    wchar_t m_text1[kTextQty];
    wchar_t m_text2[kTextQty];
    // A drive here is a mounted file system, named by its mount point: the list is taken at the
    // first need of the drive items, and m_driveRoot is the current one.
    std::vector<std::wstring> m_driveRoots;
    std::wstring m_driveRoot;

private:
    bool learnNumFixedDrives();
    bool learnDesktopInfo();
    void recordDriveRoot(int index);

    // The sources of the items: each writes its datum into m_text2 or throws.
    unsigned int learnPlatformNameID() const;
    void obtainHotfixes(std::wstring& list) const;
    void obtainAccountDomain();
    void obtainProcessorInformation();
    void obtainMegabytes(std::uint64_t bytes);

    bool formatFallbackPair(int position, DWORD error, wchar_t* caption, wchar_t* datum, int captionSize,
                            int datumSize);
    bool formatIntrinsicPair(unsigned int captionID, const wchar_t* datumText, wchar_t* caption, wchar_t* datum,
                             int captionSize, int datumSize);
};

// The account's domain as item 6 of ZarnSysInfoEnvOp reports it, cut to `size` - 1 characters
// with "..." when longer; false if the walk would have ended there. Safe from any thread.
extern "C" __attribute__((visibility("default"))) bool GetAccountDomainW(wchar_t* buffer, int size);
