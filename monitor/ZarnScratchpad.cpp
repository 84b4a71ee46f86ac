#include "monitor/ZarnScratchpad.h"

#include <algorithm>
#include <cstring>

ZarnScratchpad::ZarnScratchpad() : m_scratchA_Bytes(sizeof m_scratchA), m_scratchB_Bytes(sizeof m_scratchB)
{
    m_scratchA[0] = L'\0';
    m_scratchB[0] = L'\0';
    setMemberVarsToDefaults(1, 10);
}

ZarnScratchpad::~ZarnScratchpad()
{
    setMemberVarsToDefaults(1, 12);
}

bool ZarnScratchpad::setMemberVarsToDefaults(int passes, unsigned long mask)
{
    if (passes < 1)
        return false;
    if ((mask & 8) != 0) {
        // The recorded sizes are public; never trust them beyond the buffers themselves.
        std::memset(m_scratchA, 0, std::min<unsigned long>(m_scratchA_Bytes, sizeof m_scratchA));
        std::memset(m_scratchB, 0, std::min<unsigned long>(m_scratchB_Bytes, sizeof m_scratchB));
    }
    return true;
}

void ZarnScratchpad::clearIfNotEmpty(wchar_t* buffer, unsigned long bytes)
{
    if (buffer != nullptr && buffer[0] != L'\0')
        std::memset(buffer, 0, bytes);
}
