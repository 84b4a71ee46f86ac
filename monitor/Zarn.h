// The monitor that every module of the product holds: a guarded front to its data set, and the
// process-wide registry of at most 10 monitors.
#pragma once

#include "foundation/IntegerWidths.h"
#include "log/ZarnFormEnums.h"
#include "monitor/ZarnChoices.h"
#include "monitor/ZarnFwd.h"

#include <cstddef>
#include <exception>

class Zarn
{
public:
    // Moves the contents of `dataSet` into a fresh data set, establishes its log and registers the
    // new monitor. Null on failure, with the code written into `dataSet`.
    static Zarn* create(ZarnData* dataSet);
    // Destroys every registered monitor; returns how many (negated if the walk was cut short).
    static int destroy();
    // Destroys one monitor, searched from startIndex (wrapping if asked), and nulls *monitor.
    static bool destroy(Zarn** monitor, int startIndex, bool wrap);
    static Zarn* getZarnMonitor(int index);
    static Zarn** getZarnMonitors();
    static int getZarnMonitorsCount();
    static int getZarnMonitorsQty();

    // "(NULL)" for null; "(BLANK)" for an empty text if blankIsMarked; otherwise the text itself.
    static const char* getPrintableString(const char* text, bool blankIsMarked);
    static const wchar_t* getPrintableString(const wchar_t* text, bool blankIsMarked);

    // The one caller of the message formatter: FormatMessageW with the text as source.
    static unsigned long formatMessage(unsigned long flags, wchar_t* format, wchar_t* output, int outputSize,
                                       u64* inserts);

    // Copies share the data set; nothing in the product copies a monitor.
    Zarn(const Zarn& other);
    Zarn& operator=(const Zarn& other);

    // Reports a situation whose arguments follow, read by its spec's fillers. True once past the
    // guard, whatever became of the situation: read isSelfSatisfied() for that.
    bool respondToSituation(int situationID, void* resourceModule, ...);
    // Reports a situation whose arguments lie in 8-byte slots behind *argV; returns the data set's result.
    bool respondToSituation(int situationID, char** argV, void* resourceModule);
    // Reports what recordSituationID and recordArgument prepared.
    bool respondToSituation();

    Zarn_FUZZY_CHOICE canRespondToSituations() const;
    bool forgetSituation();
    const wchar_t* formatLogHyperlink(unsigned long code, unsigned int stringID, UTL_String& out) const;
    const wchar_t* formatLogHyperlinkWinSDK(unsigned long code) const;
    u64 getBehaviorCriteria() const;
    u64* getDescriptionFillers() const;
    HWND getDisplayDlgBoxParent() const;
    int getDisplayDlgBoxResult() const;
    bool getFileLogName(wchar_t* buffer, size_t size) const;
    int getSituationID() const;
    Zarn_DX_MODE getSituationMode() const;
    unsigned long getSituationsCount() const;
    unsigned long getSituationsQty() const;
    const wchar_t* getTag(Zarn_FORM_TAG tag) const;
    bool isSituationNormal() const;
    int recordArgument(const char* value, int position);
    int recordArgument(const wchar_t* value, int position);
    int recordArgument(int value, int position);
    int recordArgument(unsigned int value, int position);
    int recordSituationID(int situationID);
    int recordSituationID_Remote(int situationID);
    bool removeThread();
    ZarnDisplayDlgBoxFunction setDisplayDlgBoxFunction(ZarnDisplayDlgBoxFunction function);
    HWND setDisplayDlgBoxParent(HWND parent);
    bool setLogFileByteCountLimit(unsigned long long limit, unsigned long long& previous);
    HMODULE setResourceModule(void* module);

    bool getDescriptionForDisplay(wchar_t* buffer, int size) const;
    bool getDescriptionForLogFile(wchar_t* buffer, int size) const;
    unsigned int getArg_UInt(int index) const;

    int getSelfDX_Code() const;
    bool isSelfSatisfied() const { return getSelfDX_Code() == 0; }
    void forgetSelfDX_Code();
    // Deliberately sets the criteria of every registered monitor, not only of this one.
    void setBehaviorCriteria(u64 criteria);

    // Virtual operations in slot order: free_Memory, initialize, reestablishLogFile, the destructor.
protected:
    virtual bool free_Memory();
    virtual bool initialize(ZarnData* const dataSet);

public:
    virtual bool reestablishLogFile(const bool& force);

protected:
    virtual ~Zarn();
    explicit Zarn(ZarnData* const dataSet);
    ZarnData* getDataSet() const { return m_dataSet; }

private:
    // Stores the failure's code while the monitor is still self-satisfied.
    void keepFirstDxCode(const std::exception_ptr& failure, int catchAllCode);

    ZarnData* m_dataSet;
    bool m_initialized;
    int m_selfDX_Code;

    static Zarn* m_zarnMonitors[10];
    static int m_zarnMonitorsCount;
    static int m_zarnMonitorsQty;
};

// The library's diagnostics: one formatted line (at most 1023 characters) to the debug output
// channel. They never fail and never touch a DX code.
void Zarn_TRACE(const wchar_t* format, ...);
void Zarn_TRACE_W(const wchar_t* format, ...);
