// Two work buffers of text with their recorded sizes in bytes, zeroed at birth and at death.
#pragma once

class ZarnScratchpad
{
public:
    static constexpr int kCharacters = 1024;

    ZarnScratchpad();
    virtual ~ZarnScratchpad();

    // `passes` below 1 does nothing and gives false; mask bit 8 zeroes both buffers by their recorded
    // sizes, other bits do nothing here.
    bool setMemberVarsToDefaults(int passes, unsigned long mask);

    // Zeroes a buffer if its first character is set, which is all a cleared text needs.
    static void clearIfNotEmpty(wchar_t* buffer, unsigned long bytes);

    wchar_t m_scratchA[kCharacters];
    unsigned long m_scratchA_Bytes;
    wchar_t m_scratchB[kCharacters];
    unsigned long m_scratchB_Bytes;
};
