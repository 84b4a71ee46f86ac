// The stages of ZarnDataForThread that deliver the descriptions and run the plug-ins: the log text to
// the log file (directly in the process that owns the log, else through the proxy), the display text
// to the display function, then the plug-ins that the spec named.
#include "monitor/ZarnDataForThread.h"

#include "monitor/Zarn.h"
#include "monitor/ZarnData.h"

bool ZarnDataForThread::reportDescriptions()
{
    bool entered = false;
    try {
        entered = enterCriticalSection();
        passGuards();
        if (!entered)
            throw 262;

        // The display is attempted even when the log failed; the log's failure outranks the
        // rollover's, which outranks the display's.
        const bool native = m_dataSet->isInstantiatorRunningNatively();
        int logFileCode = 0;
        if (!(native ? reportDescriptionToLogFileDirectly() : reportDescriptionToLogFileIndirectly())) {
            logFileCode = getSelfDX_Code();
            forgetSelfDX_Code();
        }
        int displayCode = 0;
        if (!reportDescriptionToDisplay()) {
            displayCode = getSelfDX_Code();
            forgetSelfDX_Code();
        }
        if (logFileCode != 0)
            throw logFileCode;

        // The rollover comes after the entry is complete, so that no entry is split over two
        // files; a file thus grows past its limit by one entry.
        if (native) {
            const ZarnDataFile* const file = m_dataSet->getFileLog();
            const u64 limit = m_dataSet->getLogFileByteCountLimit();
            if (file != nullptr && limit != 0 && file->m_logByteCount >= limit) {
                if (!m_dataSet->reestablishLogFile(false)) {
                    m_dataSet->forgetSelfDX_Code();
                    throw 230;
                }
                if (m_dataSet->getFileLog() == nullptr)
                    throw 136;
            }
        }
        if (displayCode != 0)
            throw displayCode;
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 229);
    }
    if (!isSelfSatisfied())
        Zarn_TRACE(L"ZarnDataForThread::reportDescriptions () caught exception #%d.\n", getSelfDX_Code());
    if (entered && !leaveCriticalSection()) {
        if (isSelfSatisfied())
            m_selfDX_Code = 263;
        Zarn_TRACE(L"ZarnDataForThread::reportDescriptions () failed to leave critical section.\n");
    }
    return isSelfSatisfied();
}

bool ZarnDataForThread::reportDescriptionToDisplay()
{
    // A situation that shows nothing reads 0 as the dialog's answer.
    m_displayDlgBoxResult = 0;
    try {
        passGuards();
        const wchar_t* const text = m_descriptionDisplayIsDupe ? m_descriptionForLogFile : m_descriptionForDisplay;
        if (m_dataSet->canRespondToSituations() == Zarn_FUZZY_YES && text[0] != L'\0') {
            const ZarnDisplayDlgBoxFunction display = m_dataSet->getDisplayDlgBoxFunction();
            if (display == nullptr)
                throw 4;
            int result = 0;
            try {
                result = display(m_dataSet->getDisplayDlgBoxParent(), text, m_dataSet->getDisplayDlgBoxCaption(),
                                 m_displayDlgBoxType);
            } catch (...) {
                throw 5; // whatever the caller's function raised, it is the display that failed
            }
            m_displayDlgBoxResult = result;
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 225);
    }
    return isSelfSatisfied();
}

bool ZarnDataForThread::reportDescriptionToLogFileDirectly()
{
    if (m_descriptionForLogFile[0] == L'\0')
        return isSelfSatisfied();
    bool entered = false;
    try {
        entered = enterCriticalSection();
        passGuards();
        if (!m_dataSet->isInstantiatorRunningNatively())
            throw 227;
        if (!entered)
            throw 262;
        // Neither the criteria nor the traits are asked: what this process has a spec for, it logs.
        if (!logFormSectionBody())
            throw getSelfDX_Code();
        if (!logFormSectionTail())
            throw getSelfDX_Code();
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 226);
    }
    if (!isSelfSatisfied())
        Zarn_TRACE(L"ZarnDataForThread::reportDescriptionToLogFileDirectly () caught exception #%d.\n",
                   getSelfDX_Code());
    if (entered && !leaveCriticalSection()) {
        if (isSelfSatisfied())
            m_selfDX_Code = 263;
        Zarn_TRACE(L"ZarnDataForThread::reportDescriptionToLogFileDirectly () failed to leave critical section.\n");
    }
    return isSelfSatisfied();
}

bool ZarnDataForThread::reportDescriptionToLogFileIndirectly()
{
    // No lock and no raising: the proxy call keeps its own frame, and its code is turned into ours.
    if (isSelfSatisfied() && m_descriptionForLogFile[0] != L'\0') {
        if (m_dataSet == nullptr) {
            m_selfDX_Code = 265;
        } else if (!m_dataSet->logSituationDescriptionViaProxy(m_situationID, m_situationApprovalKind,
                                                               m_situationResponseTraits, m_descriptionForLogFile)) {
            // The data set's code would stop every thread; this thread's situation carries it instead.
            m_dataSet->forgetSelfDX_Code();
            m_selfDX_Code = 228;
        }
    }
    return isSelfSatisfied();
}

bool ZarnDataForThread::activatePlugIns()
{
    if (m_plugInsIndirectQty < 1)
        return isSelfSatisfied();
    try {
        passGuards();
        const int plugInsQty = m_dataSet->getPlugInsQty();
        if (plugInsQty < 1 || plugInsQty < m_plugInsIndirectQty)
            throw 213;
        ZarnPlugIn* const plugIns = m_dataSet->getPlugIns();
        if (plugIns == nullptr)
            throw 220;
        if (m_plugInsIndirectIndices == nullptr)
            throw 218;

        const auto keepTurnCode = [this](int code) {
            if (isSelfSatisfied())
                m_selfDX_Code = code;
        };
        for (int turn = 0; turn < m_plugInsIndirectQty; ++turn) {
            const int index = m_plugInsIndirectIndices[turn];
            if (index < 0 || index >= plugInsQty) {
                keepTurnCode(216);
            } else if (plugIns[index] == nullptr) {
                keepTurnCode(215);
            } else {
                bool activated = false;
                try {
                    activated = plugIns[index](m_dataSet->getOwner());
                } catch (...) {
                    activated = false;
                }
                if (!activated)
                    keepTurnCode(214);
            }
            // Deliberate: a plug-in's failure neither stops the ones after it nor fails the
            // situation; its code lasts only for its own turn.
            forgetSelfDX_Code();
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 212);
    }
    return isSelfSatisfied();
}
