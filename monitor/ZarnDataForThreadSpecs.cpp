// The stages of ZarnDataForThread that fetch a response spec and parse its header.
//
// Stand-ins until these stages are built: each keeps the frame of its stage (the guards, its own
// catch-all code, the result) and does nothing else.
#include "monitor/ZarnDataForThread.h"

#include "monitor/ZarnData.h"

bool ZarnDataForThread::obtainResponseSpecs()
{
    try {
        passGuards();
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 254);
    }
    return isSelfSatisfied();
}

bool ZarnDataForThread::parseResponseSpecHeader(u64*)
{
    try {
        passGuards();
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 233);
    }
    return isSelfSatisfied();
}

bool ZarnDataForThread::parseResponseSpecHeaderFillers(u64*, wchar_t* const)
{
    try {
        passGuards();
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 236);
    }
    return isSelfSatisfied();
}

bool ZarnDataForThread::parseResponseSpecHeaderPlugInIDs(wchar_t* const)
{
    try {
        passGuards();
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 248);
    }
    return isSelfSatisfied();
}
