// The per-thread situation engine: carries one situation of one thread from its number to its
// reports, in phases that are virtual so that a subclass can replace any stage.
//
// Every text stage works in fixed buffers allocated once in initialize; only the thread that owns
// the engine touches it, and threads meet only at the data set's lock.
#pragma once

#include "foundation/IntegerWidths.h"
#include "log/ZarnFormEnums.h"
#include "monitor/ZarnArgCursor.h"
#include "monitor/ZarnFwd.h"
#include "monitor/ZarnMsgFmt.h"
#include "monitor/ZarnScratchpad.h"

#include <exception>

class ZarnDataForThread
{
public:
    static constexpr int kDisplayCharacters = 512;
    static constexpr int kHeaderCharacters = 256;
    static constexpr int kLogFileCharacters = 1024;
    static constexpr unsigned int kDefaultDisplayDlgBoxType = 48;

    ZarnDataForThread();

    // Slot order of the virtual stages; a subclass replaces any of them.
    virtual bool activatePlugIns();
    virtual bool describeSituation();
    virtual bool enterCriticalSection() const;
    virtual void forgetArgs();
    virtual void forgetArgsInt();
    virtual void forgetArgsStrA();
    virtual void forgetArgsStrW();
    virtual void forgetArgsUInt();
    virtual void forgetDescriptionFillers();
    virtual void forgetPlugInsIndirectIndices();
    virtual bool forgetSituation();
    virtual bool formatDescriptionForDisplay();
    virtual bool formatDescriptionForLogFile();
    virtual bool formatDescriptions();
    virtual void free_Memory();
    virtual void free_Resources();
    virtual bool learnResponse();
    virtual bool learnResponseSpecs(u64* fillerStrings);
    virtual bool leaveCriticalSection() const;

protected:
    virtual bool logFormSection(wchar_t* const format, int varCount, Zarn_FORM_VAR* const vars,
                                unsigned long long* const values, unsigned long long& bytesWritten, bool countBytes);

public:
    virtual bool obtainResponseSpecs();
    virtual bool parseDescriptionSpec_MessageAffix(wchar_t* text, wchar_t* target, u64 targetCharacters);
    virtual bool parseDescriptionSpec_MessageFormat(wchar_t* const text, Zarn_MSG_FMT format, wchar_t* scratch,
                                                    unsigned long scratchBytes);
    virtual bool parseDescriptionSpecDisplay();
    virtual bool parseDescriptionSpecDisplayDlgBox(wchar_t* const text);
    virtual bool parseDescriptionSpecLogFile();
    virtual bool parseResponseSpecHeader(u64* fillerStrings);
    virtual bool parseResponseSpecHeaderFillers(u64* fillerStrings, wchar_t* const text);
    virtual bool parseResponseSpecHeaderPlugInIDs(wchar_t* const text);
    virtual bool parseResponseSpecs(u64* fillerStrings);
    virtual bool reportDescriptions();
    virtual bool reportDescriptionToDisplay();
    virtual bool reportDescriptionToLogFileDirectly();
    virtual bool reportDescriptionToLogFileIndirectly();
    virtual ~ZarnDataForThread();

    bool initialize(ZarnData* const dataSet);

    // The whole road of a situation on this thread, under the data set's lock.
    bool respondToSituation();

    // Each stores the argument in a slot and returns its position, or -1 on refusal (no DX code).
    int recordArgument(const char* value, int position);
    int recordArgument(const wchar_t* value, int position);
    int recordArgument(int value, int position);
    int recordArgument(unsigned int value, int position);
    // Each stores and returns the previous value.
    int recordSituationID(int situationID);
    int recordSituationID_Remote(int situationID);

    // The argument cursor of the present situation. A null argV gives a cursor with nothing behind it.
    void setDescriptionArgV(char** argV);
    void setDescriptionArgV(const ZarnArgCursor& cursor);
    ZarnArgCursor* getDescriptionArgV();

    unsigned int getArg_UInt(int index) const;
    u64* getDescriptionFillers() const;
    const wchar_t* getDescriptionForDisplay() const;
    const wchar_t* getDescriptionForLogFile() const;
    int getDisplayDlgBoxResult() const;
    int getSelfDX_Code() const;
    void forgetSelfDX_Code() const;
    void setSelfDX_Code(int code);
    int getSituationID() const;
    int getSituationID_Remote() const;
    bool isSelfSatisfied() const;
    bool isSituationNormal() const;
    u64* createDescriptionFillers();
    int* createPlugInsIndirectIndices();
    const wchar_t* formatLogHyperlinkWinSDK(unsigned long code) const;
    bool logFormSectionHead();
    bool logFormSectionTail();

protected:
    bool logFormSectionBody();

    int* createArgsInt();
    unsigned int* createArgsUInt();
    void* createArgsStr();
    const char** createArgsStrA();
    const wchar_t** createArgsStrW();

    ZarnData* getDataSet() const { return m_dataSet; }
    // Stores the failure's code if the engine holds none yet.
    void keepFirstDxCode(const std::exception_ptr& failure, int catchAllCode);
    // 265 with no data set; the held code when the gate refuses. Both raise an int.
    void passGuards() const;

    int* m_argsInt;
    int m_argsIntCount;
    const char** m_argsStrA;
    const wchar_t** m_argsStrW;
    int m_argsStrCount;
    unsigned int* m_argsUInt;
    int m_argsUIntCount;
    ZarnData* m_dataSet;
    ZarnArgCursor m_descriptionArgV;
    wchar_t m_descriptionForDisplay[kDisplayCharacters];
    bool m_descriptionDisplayIsDupe;
    u8 m_descriptionDisplayLineWd;
    UTL_String* m_logHyperlink;
    u64* m_descriptionFillers;
    int m_argSource;
    wchar_t m_responseSpecHeader[kHeaderCharacters];
    wchar_t m_descriptionForLogFile[kLogFileCharacters];
    u8 m_descriptionLogFileLineWd;
    int m_displayDlgBoxSpecA;
    int m_displayDlgBoxResult;
    int m_displayDlgBoxSpecB;
    unsigned int m_displayDlgBoxType;
    int* m_plugInsIndirectIndices;
    int m_plugInsIndirectQty;
    wchar_t m_tokenSeparator[2];
    unsigned int m_situationApprovalKind;
    ZarnScratchpad m_scratchpad;
    mutable int m_selfDX_Code;
    int m_specStrictness;
    int m_situationID;
    int m_situationID_Remote;
    u64 m_situationResponseTraits;
};
