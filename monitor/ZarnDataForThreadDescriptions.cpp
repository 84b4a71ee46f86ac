// The stages of ZarnDataForThread that parse the description specs and format the descriptions.
//
// Stand-ins until these stages are built: each keeps the frame of its stage (the guards, its own
// catch-all code, the result) and does nothing else.
#include "monitor/ZarnDataForThread.h"

#include "monitor/ZarnData.h"

bool ZarnDataForThread::parseDescriptionSpecLogFile()
{
    try {
        passGuards();
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 25);
    }
    return isSelfSatisfied();
}

bool ZarnDataForThread::parseDescriptionSpecDisplay()
{
    try {
        passGuards();
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 11);
    }
    return isSelfSatisfied();
}

bool ZarnDataForThread::parseDescriptionSpecDisplayDlgBox(wchar_t* const)
{
    try {
        passGuards();
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 12);
    }
    return isSelfSatisfied();
}

bool ZarnDataForThread::parseDescriptionSpec_MessageFormat(wchar_t* const, Zarn_MSG_FMT, wchar_t*, unsigned long)
{
    try {
        passGuards();
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 35);
    }
    return isSelfSatisfied();
}

bool ZarnDataForThread::parseDescriptionSpec_MessageAffix(wchar_t*, wchar_t*, u64)
{
    try {
        passGuards();
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 30);
    }
    return isSelfSatisfied();
}

bool ZarnDataForThread::formatDescriptionForDisplay()
{
    try {
        passGuards();
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 48);
    }
    return isSelfSatisfied();
}

bool ZarnDataForThread::formatDescriptionForLogFile()
{
    try {
        passGuards();
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 51);
    }
    return isSelfSatisfied();
}
