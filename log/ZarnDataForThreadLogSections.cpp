// The stages of ZarnDataForThread that write sections of the log file.
//
// Stand-ins until these stages are built: each keeps the frame of its stage (the guards, its own
// catch-all code, the result) and does nothing else.
#include "monitor/ZarnDataForThread.h"

#include "monitor/ZarnData.h"

bool ZarnDataForThread::logFormSection(wchar_t* const, int, Zarn_FORM_VAR* const, unsigned long long* const,
                                       unsigned long long&, bool)
{
    try {
        passGuards();
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 145);
    }
    return isSelfSatisfied();
}

bool ZarnDataForThread::logFormSectionHead()
{
    try {
        passGuards();
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 163);
    }
    return isSelfSatisfied();
}

bool ZarnDataForThread::logFormSectionBody()
{
    try {
        passGuards();
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 153);
    }
    return isSelfSatisfied();
}

bool ZarnDataForThread::logFormSectionTail()
{
    try {
        passGuards();
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 196);
    }
    return isSelfSatisfied();
}
