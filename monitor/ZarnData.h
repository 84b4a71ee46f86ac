// The data set of one monitor: its settings, log file state, lock, table of per-thread engines and
// self-diagnostic code. A configuring party builds one and hands it to Zarn::create, which moves its
// contents into a fresh data set owned by the new monitor.
#pragma once

#include "foundation/IntegerWidths.h"
#include "log/ZarnDataFile.h"
#include "log/ZarnFormEnums.h"
#include "monitor/ZarnArgCursor.h"
#include "monitor/ZarnBehaviorCriteria.h"
#include "monitor/ZarnChoices.h"
#include "monitor/ZarnFwd.h"
#include "monitor/ZarnScratchpad.h"

#include <cstddef>
#include <exception>

class CriticalSection;
class QTextStream;
template <class K, class V>
class TObjectMap;

class ZarnData
{
public:
    static constexpr u64 kDefaultLogFileByteCountLimit = 20971520;

    explicit ZarnData(const i64& nonnativeInstantiatorID = 0);

    // Virtual stages, in slot order; each returns isSelfSatisfied() unless its comment says otherwise.
protected:
    virtual bool areLogFileFormSectionsUsable(unsigned long mask, Zarn_LOG kind);

public:
    virtual bool assimilateDataSetContents(ZarnData* other);

protected:
    // Closes the stream and its file; `name` is not used. false (stream left as it was) on an exception.
    virtual bool closeFile(QTextStream*& stream, const wchar_t* name);
    virtual bool closeLogFile();

public:
    virtual bool enterCriticalSection() const;
    // Learns the form (if asked), opens the log, writes the head and the first tail.
    virtual bool establishLogFile(bool learnForm);

protected:
    virtual void forgetPlugIns();

public:
    virtual bool free_Memory();
    virtual bool free_Resources();

protected:
    virtual void freeLogFileFormData();
    virtual void freeLogFileFormDataForSections();
    virtual void freeLogFileFormSectionHeadData();

public:
    virtual bool isValid();

protected:
    virtual bool isValidLogFileNomenclature(const wchar_t* logName, const wchar_t* const formName, Zarn_LOG kind,
                                            int charSet, int& dxCode);
    virtual bool isValidLogFileNomenclature(const char* logName, const char* const formName, Zarn_LOG kind,
                                            int charSet, int& dxCode);
    virtual bool learnLogFileForm(unsigned long mask);
    virtual bool learnLogFileFormInjectors(long injectorStart);
    // One section from the string table.
    virtual bool learnLogFileFormSectionFinished(unsigned int stringId, wchar_t** format, int& varCount,
                                                 Zarn_FORM_VAR** vars, unsigned long long** values, bool* hasEntryId);
    // One section from the form file.
    virtual bool learnLogFileFormSectionFinished(long start, size_t length, wchar_t* buffer, size_t bufferLength,
                                                 wchar_t** format, int& varCount, Zarn_FORM_VAR** vars,
                                                 unsigned long long** values, bool* hasEntryId);
    virtual bool learnLogFileFormSectionFinishedBasic(wchar_t** format, int& varCount, Zarn_FORM_VAR** vars,
                                                      unsigned long long** values, bool* hasEntryId);
    // The sections of the built-in form of `kind`, from the string table.
    virtual bool learnLogFileFormSectionsFinished(unsigned long mask, Zarn_LOG kind);
    // The sections of the form file, from the positions that learnLogFileFormSectionsRaw found.
    virtual bool learnLogFileFormSectionsFinished(long headStart, size_t headLength, long bodyStart,
                                                  size_t bodyLength, long tailStart, size_t tailLength,
                                                  unsigned long mask);
    // Starts are -1 when a section is absent, lengths 0.
    virtual bool learnLogFileFormSectionsRaw(long& injectorStart, long& headStart, size_t& headLength,
                                             long& bodyStart, size_t& bodyLength, long& tailStart,
                                             size_t& tailLength);
    virtual bool learnLogFileFormVarNames();

public:
    virtual bool leaveCriticalSection() const;

protected:
    // A decision, not a status: whether a section in `mask` uses an injector that the form defines.
    virtual bool mustLearnLogFileFormInjectors(long injectorStart, unsigned long mask);
    virtual bool obtainLogFileFormData(unsigned long mask);
    // openMode is a QIODevice::OpenMode value: 3 (read-write) for the log, 1 (read-only) for the form.
    virtual bool openFile(wchar_t** nameSlot, QTextStream** streamSlot, wchar_t* const name, int openMode);
    virtual bool processFileLogForm(unsigned long mask);

public:
    virtual bool recordLogFileNomenclature(wchar_t* logName, const wchar_t* formName, Zarn_LOG kind);
    virtual bool recordLogFileNomenclature(char* logName, const char* formName, Zarn_LOG kind);

private:
    // Replaces the log file with `logName`, learning the form anew only if it changed.
    virtual bool reestablishLogFile(wchar_t* logName, wchar_t* formName, Zarn_LOG kind);

public:
    virtual bool removeThread();
    virtual ~ZarnData();

protected:
    // Makes the engine of a thread that asks for the first time; a subclass may supply its own kind.
    virtual ZarnDataForThread* newDataForThread() const;
    // Composes the full path of the file that replaces the present log, into `buffer` of `size`
    // characters, through a temporary ZarnDataZGW (an int it throws leaves this call): false if
    // nothing could be composed, an empty buffer if no path came of it. Tests replace it.
    virtual bool learnSuccessorLogFileName(wchar_t* buffer, size_t size);

public:

    // Runs once, from establishLogFile: own module, proxy, lock, thread map, this thread's engine.
    bool initialize();

    // Configuring setters: refused (false) once the data set is initialised.
    bool setArgsIntQty(int qty);     // 0 to 99
    bool setArgsStrQty(int qty);     // 0 to 99
    bool setArgsUIntQty(int qty);    // 0 to 99
    bool setDescriptionFillersQty(int qty); // 5 to 99
    bool setCharSetExternal(int charSet);   // 0 to 2
    // Stores only before initialisation; returns the previous value in any case.
    Zarn_DX_MODE setSituationMode(Zarn_DX_MODE mode);

    bool setDescriptionAffixID_Min(int id);  // 1 to 32767
    bool setDescriptionAffixIDsQty(int qty); // anything not above 32767
    // Stores only 0 or 2; returns the previous value in any case.
    Zarn_TOLERANCE setSelfDX_FaultTolerance(Zarn_TOLERANCE tolerance);
    // Ignores null; returns the previous assessor.
    ZarnSituationResponseTraitsAssessor setSituationResponseTraitsAssessor(ZarnSituationResponseTraitsAssessor assessor);
    // Stores only a size above 0; returns the previous one.
    unsigned long sizeMapOfDataForThreads(unsigned long size);
    // These store unconditionally and return the previous value.
    ZarnDisplayDlgBoxFunction setDisplayDlgBoxFunction(ZarnDisplayDlgBoxFunction function);
    HWND setDisplayDlgBoxParent(HWND parent);
    i64 setNonnativeInstantiatorID(i64 id);
    Zarn* setOwner(Zarn* owner);
    int setSelfDX_Code(int code);
    HMODULE setSelfResourceModule(HMODULE module);

    // Copies of caller's texts; null frees.
    bool recordDialogBoxCaption(const char* caption);
    bool recordDialogBoxCaption(const wchar_t* caption);
    // false for a tag outside 0 to 14.
    bool recordTag(const char* value, Zarn_FORM_TAG tag);
    bool recordTag(const wchar_t* value, Zarn_FORM_TAG tag);
    const wchar_t* getTag(Zarn_FORM_TAG tag) const;
    // Clear the buffer, copy at most `size` units, force a terminator.
    bool getTag(Zarn_FORM_TAG tag, wchar_t* buffer, size_t size) const;
    bool getTag(Zarn_FORM_TAG tag, char* buffer, size_t size) const;
    // The common copier: a null source frees (only if freeOld) and nulls the target.
    static bool duplicate_String(wchar_t** target, const wchar_t* source, bool freeOld);

    int getArgsIntQty() const { return m_argsIntQty; }
    int getArgsStrQty() const { return m_argsStrQty; }
    int getArgsUIntQty() const { return m_argsUIntQty; }
    int getCharSetExternal() const { return m_charSetExternal; }
    int getDescriptionAffixID_Min() const { return m_descriptionAffixID_Min; }
    int getDescriptionAffixIDsQty() const { return m_descriptionAffixIDsQty; }
    wchar_t getDescriptionDisplayDupeOp() const { return m_descriptionDisplayDupeOp; }
    u8 getDescriptionDisplayLineWd() const { return m_descriptionDisplayLineWd; }
    int getDescriptionFillersQty() const { return m_descriptionFillersQty; }
    u8 getDescriptionLogFileLineWd() const { return m_descriptionLogFileLineWd; }
    const wchar_t* getDisplayDlgBoxCaption() const { return m_displayDlgBoxCaption; }
    ZarnDisplayDlgBoxFunction getDisplayDlgBoxFunction() const { return m_displayDlgBoxFunction; }
    HWND getDisplayDlgBoxParent() const { return m_displayDlgBoxParent; }
    ZarnDataFile* getFileLog() const { return const_cast<ZarnDataFile*>(&m_fileLog); }
    wchar_t* getFileLogName() const { return m_fileLog.m_logName; }
    bool getFileLogName(wchar_t* buffer, size_t size);
    u64 getLogFileByteCountLimit() const { return m_logFileByteCountLimit; }
    i64 getNonnativeInstantiatorID() const { return m_nonnativeInstantiatorID; }
    Zarn* getOwner() const { return m_owner; }
    ZarnPlugIn* getPlugIns() const { return m_plugIns; }
    int getPlugInsQty() const { return m_plugInsQty; }
    HMODULE getResourceModule() const { return m_resourceModule; }
    wchar_t getResStrTokenSepField() const { return m_resStrTokenSepField; }
    wchar_t getResStrTokenSepGroup() const { return m_resStrTokenSepGroup; }
    wchar_t getResStrTokenSepRecord() const { return m_resStrTokenSepRecord; }
    wchar_t getResStrTokenSepUnit() const { return m_resStrTokenSepUnit; }
    Zarn_TOLERANCE getSelfDX_FaultTolerance() const { return m_selfDX_FaultTolerance; }
    HMODULE getSelfResourceModule() const { return m_selfResourceModule; }
    Zarn_DX_MODE getSituationMode() const { return m_situationMode; }
    ZarnSituationResponseTraitsAssessor getSituationResponseTraitsAssessor() const
    {
        return m_situationResponseTraitsAssessor;
    }
    unsigned long getSituationsCount() const { return m_situationsCount; }
    unsigned long getSituationsQty() const { return m_situationsQty; }
    bool isInitialized() const { return m_initialized; }
    bool isInstantiatorRunningNatively() const { return m_nonnativeInstantiatorID == 0; }
    bool isSafeToAllocateMemory() const { return m_safeToAllocateMemory; }

    // Saturating at 0xFFFFFFFF and at 0; both return the new count.
    unsigned long incrementSituationsCount(unsigned long n);
    unsigned long decrementSituationsCount(unsigned long n);

    // Forwarders to the calling thread's engine, created at its first request. With no engine they
    // give false, null, 0, -1 (recordArgument) or true (isSituationNormal).
    bool describeSituation();
    bool forgetSituation();
    bool learnResponse();
    bool reportDescriptions();
    bool respondToSituation();
    bool respondToSituation(char** argV);
    // The variadic form: the list dies with its call, so the engine's cursor is retired on return.
    bool respondToSituation(va_list* args);
    int recordArgument(const char* value, int position);
    int recordArgument(const wchar_t* value, int position);
    int recordArgument(int value, int position);
    int recordArgument(unsigned int value, int position);
    int recordSituationID(int situationID);
    int recordSituationID_Remote(int situationID);
    unsigned int getArg_UInt(int index);
    u64* getDescriptionFillers();
    const wchar_t* getDescriptionForDisplay();
    const wchar_t* getDescriptionForLogFile();
    int getDisplayDlgBoxResult();
    int getSituationID();
    bool isSituationNormal();
    const wchar_t* formatLogHyperlinkWinSDK(unsigned long code);

    // Diagnostics: the data set's own code, else the calling thread's engine's (not created).
    int getSelfDX_Code() const;
    void forgetSelfDX_Code() const;
    bool isSelfSatisfied() const { return getSelfDX_Code() == 0; }
    // The gate of every engine operation; a held code passes only if the tolerance forgives it.
    bool isSelfApproving() const;

    // Behaviour criteria and trait approval.
    static Zarn_FUZZY_CHOICE canRespondToSituations(const u64& criteria);
    Zarn_FUZZY_CHOICE canRespondToSituations() const { return canRespondToSituations(m_behaviorCriteria); }
    static bool approveSituationResponseTraitsLevel(const u64& criteria, const u64& traits, const u64& mask,
                                                    const u64& shift);
    static bool approveSituationResponseTraits(const u64& criteria, const u64& traits);
    bool approveSituationResponseTraits(const u64& traits) const;
    bool approveSituationResponseTraits(unsigned int kind, const u64& traits, unsigned int& enablements) const;
    u64 getBehaviorCriteria() const { return m_behaviorCriteria; }
    u64 setBehaviorCriteria(u64 criteria);
    // Swaps the resource module under the lock; null is refused and returns null.
    HMODULE setResourceModule(void* module);

    // Plug-ins: the table is made once and filled by the caller.
    ZarnPlugIn* createPlugIns(int qty);
    bool logSituationDescriptionViaProxy(int situationID, unsigned int kind, u64 traits, const wchar_t* description);

    // Links to code pages in the log: string stringID of the own module printed with `code` twice.
    const wchar_t* formatLogHyperlink(unsigned long code, unsigned int stringID, UTL_String& out) const;

    // The log file: its record, replacement and byte limit.
    bool reestablishLogFile(const bool& force);
    bool setLogFileByteCountLimit(unsigned long long limit, unsigned long long& previous);

    // Settings of log maintenance, kept for the process; nothing here reads them but the getters.
    static void setLogVariables(const wchar_t* directory, unsigned int outputLevel, bool backupEnabled,
                                unsigned int maxFileSize, unsigned int maxFileAge);
    static const wchar_t* getLogDirectory();
    static unsigned int getLogOutputLevel() { return s_logOutputLevel; }
    static bool getLogBackupEnabled() { return s_logBackupEnabled; }
    static unsigned int getLogMaxFileSize() { return s_logMaxFileSize; }
    static unsigned int getLogMaxFileAge() { return s_logMaxFileAge; }
    static bool isLogInformationInitialized() { return s_logInformationInitialized; }

protected:
    // The log file and the form file.
    bool openLogFile(wchar_t* const name);
    bool openLogFileForm(wchar_t* const name);
    // Replaces all of the form's sections in `mask` with the built-in form.
    bool supplantLogFileFormFromResDLL(unsigned long mask);
    bool eliminateLogFileFormInjector(int index);

    // Form variables: the sorted name table, and compiling a section's brackets into inserts.
    Zarn_FORM_VAR convertLogFileFormVarNameToEnum(wchar_t* const name);
    int convertLogFileFormVarNameToIndex(wchar_t* const name);
    bool countLogFileFormSectionVarNames(wchar_t* const text, int& count);
    bool createLogFileFormSectionArgV_Enums(int count, Zarn_FORM_VAR** vars);
    bool createLogFileFormSectionArgV_Values(int count, unsigned long long** values);
    bool composeLogFileFormSectionFormat(wchar_t** format, int& count, Zarn_FORM_VAR** vars,
                                         unsigned long long** values);
    bool reformatLogFileFormSection(wchar_t** format, int count, Zarn_FORM_VAR* vars);
    bool isVarInLogFileFormSection(Zarn_FORM_VAR var, int count, Zarn_FORM_VAR* const vars);

protected:
    ZarnDataForThread* obtainDataForCurrentThread(bool create) const;
    // The engine of the calling thread if it has one; never creates, never raises.
    ZarnDataForThread* findDataForCurrentThread() const;
    bool isValidLogFileNomenclature(ZarnDataFile& file);
    bool learnSelfResourceModule();
    // Stores the failure's code if the data set holds none yet.
    void keepFirstDxCode(const std::exception_ptr& failure, int catchAllCode) const;

    ZarnSituationResponseTraitsAssessor m_situationResponseTraitsAssessor;
    int m_argsIntQty;
    int m_argsStrQty;
    int m_argsUIntQty;
    u64 m_behaviorCriteria;
    int m_charSetExternal;
    mutable CriticalSection* m_criticalSection;
    int m_descriptionAffixID_Min;
    int m_descriptionAffixIDsQty;
    wchar_t m_descriptionDisplayDupeOp;
    u8 m_descriptionDisplayLineWd;
    int m_descriptionFillersQty;
    u8 m_descriptionLogFileLineWd;
    wchar_t* m_displayDlgBoxCaption;
    ZarnDisplayDlgBoxFunction m_displayDlgBoxFunction;
    HWND m_displayDlgBoxParent;
    HMODULE m_proxyModule;
    ZarnDataFile m_fileLog;
    bool m_initialized;
    bool m_reserved;
    bool m_safeToAllocateMemory;
    u64 m_logFileByteCountLimit;
    ZarnProxyRespondToSituation m_proxyRespondToSituation;
    TObjectMap<unsigned long, void*>* m_mapOfDataForThreads;
    unsigned long m_sizeMapOfDataForThreads;
    i64 m_nonnativeInstantiatorID;
    Zarn* m_owner;
    ZarnPlugIn* m_plugIns;
    int m_plugInsQty;
    HMODULE m_resourceModule;
    wchar_t m_resStrTokenSepField;
    wchar_t m_resStrTokenSepGroup;
    wchar_t m_resStrTokenSepRecord;
    wchar_t m_resStrTokenSepUnit;
    mutable ZarnScratchpad m_scratchpad;
    mutable int m_selfDX_Code;
    Zarn_TOLERANCE m_selfDX_FaultTolerance;
    unsigned int m_reserved2;
    HMODULE m_selfResourceModule;
    Zarn_DX_MODE m_situationMode;
    unsigned long m_situationsCount;
    unsigned long m_situationsQty; // reset with the count; nothing adds to it, so it reads 0
    wchar_t* m_tags[Zarn_FORM_TAG_Qty];

    static HMODULE m_resModuleBootstrap;
    static unsigned int s_logOutputLevel;
    static bool s_logBackupEnabled;
    static unsigned int s_logMaxFileSize;
    static unsigned int s_logMaxFileAge;
    static wchar_t* s_logDirectory;
    static bool s_logInformationInitialized;

    // The log series of the process: the first file's name and the number of the present file.
    static wchar_t s_logSeriesOrigin[MAX_PATH + 1]; // at most 260 characters and a terminator
    static int s_logSeriesCount;

private:
    friend class ZarnDataForThread;
    friend class ZarnDataZGW; // gives a fresh data set its own module through learnSelfResourceModule
};
