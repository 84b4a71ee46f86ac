// Form injectors: reports of the system written once into temporary files and read by each head.
#include "monitor/ZarnData.h"

#include "monitor/Zarn.h"
#include "platform/WinTypes.h"

#include <QTemporaryFile>
#include <QTextStream>

bool ZarnData::mustLearnLogFileFormInjectors(long injectorStart, unsigned long mask)
{
    struct Section
    {
        unsigned long bit;
        int count;
        const Zarn_FORM_VAR* vars;
    };
    const Section sections[] = {
        {SECTION_HEAD, m_fileLog.m_headVarCount, m_fileLog.m_headVars},
        {SECTION_BODY, m_fileLog.m_bodyVarCount, m_fileLog.m_bodyVars},
        {SECTION_TAIL, m_fileLog.m_tailVarCount, m_fileLog.m_tailVars},
    };
    bool requested = false;
    for (const Section& section : sections) {
        if ((mask & section.bit) == 0 || section.vars == nullptr)
            continue;
        for (int index = 0; index < section.count && !requested; ++index) {
            const Zarn_FORM_VAR var = section.vars[index];
            requested = var >= Zarn_FORM_VAR_SYS_INFO_ENV_APP && var <= Zarn_FORM_VAR_SYS_INFO_VARS_ENV;
        }
        if (requested)
            break;
    }
    // However much the block holds, it is read only if a section asks for what it defines.
    if (!requested)
        return false;
    if (injectorStart >= 0)
        return true;
    // The variable then comes out as an empty string.
    Zarn_TRACE(L"ZarnData::mustLearnLogFileFormInjectors (%ld, %lu) detected a request for an undefined log file "
               L"form injector.\n",
               static_cast<LONG>(injectorStart), static_cast<DWORD>(mask));
    return false;
}

bool ZarnData::learnLogFileFormInjectors(long)
{
    return isSelfSatisfied();
}

bool ZarnData::eliminateLogFileFormInjector(int index)
{
    if (index < 0 || index >= ZarnDataFile::kInjectorsQty)
        return false;
    try {
        if (m_fileLog.m_injectorFiles != nullptr) {
            if (m_fileLog.m_injectorStreams != nullptr) {
                delete m_fileLog.m_injectorStreams[index];
                m_fileLog.m_injectorStreams[index] = nullptr;
            }
            // Closed only: the file leaves the disk when its array is deleted.
            m_fileLog.m_injectorFiles[index].close();
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 1150);
        return false;
    }
    return true;
}
