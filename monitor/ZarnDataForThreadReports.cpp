// The stages of ZarnDataForThread that deliver the descriptions and run the plug-ins.
//
// Stand-ins until these stages are built: each keeps the frame of its stage (the guards, its own
// catch-all code, the result) and does nothing else.
#include "monitor/ZarnDataForThread.h"

#include "monitor/ZarnData.h"

bool ZarnDataForThread::reportDescriptions()
{
    try {
        passGuards();
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 229);
    }
    return isSelfSatisfied();
}

bool ZarnDataForThread::reportDescriptionToDisplay()
{
    try {
        passGuards();
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 225);
    }
    return isSelfSatisfied();
}

bool ZarnDataForThread::reportDescriptionToLogFileDirectly()
{
    try {
        passGuards();
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 226);
    }
    return isSelfSatisfied();
}

bool ZarnDataForThread::reportDescriptionToLogFileIndirectly()
{
    try {
        passGuards();
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 228);
    }
    return isSelfSatisfied();
}

bool ZarnDataForThread::activatePlugIns()
{
    try {
        passGuards();
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 212);
    }
    return isSelfSatisfied();
}
