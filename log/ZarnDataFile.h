// The record of a data set's log file and its form: streams, names, compiled sections, counters.
//
// A plain record: the data set that embeds it owns what its pointers hold, and hands them over
// field by field when a monitor takes the data set's contents.
#pragma once

#include "log/ZarnFormEnums.h"

class QTemporaryFile;
class QTextStream;

class ZarnDataFile
{
public:
    static constexpr int kInjectorsQty = 3;

    // Zeroes every field but m_tailCountsBytes, which starts true.
    ZarnDataFile();
    // Copies every field as it stands, pointers included: the record is trivially copyable.
    ZarnDataFile(const ZarnDataFile& other) = default;
    ZarnDataFile& operator=(const ZarnDataFile& other) = default;

    unsigned long long m_logByteCount; // bytes toward the limit; saturates at all ones
    QTextStream* m_logStream;           // owns its QFile through its device
    wchar_t* m_logName;
    Zarn_LOG m_logKind;
    QTextStream* m_formStream;
    QTemporaryFile* m_injectorFiles; // array of kInjectorsQty
    QTextStream** m_injectorStreams; // array of kInjectorsQty; an entry may be null
    bool m_formIsBuiltIn;
    wchar_t* m_formName;
    wchar_t m_formMarker;
    int m_bodyVarCount;
    Zarn_FORM_VAR* m_bodyVars;
    unsigned long long* m_bodyValues;
    unsigned int m_entryColorEven;
    unsigned int m_entryColorOdd;
    wchar_t* m_bodyFormat;
    int m_tailPosition; // where the next entry is written
    int m_headVarCount;
    Zarn_FORM_VAR* m_headVars;
    unsigned long long* m_headValues;
    wchar_t* m_headFormat;
    bool m_headHasEntryId;
    int m_tailVarCount;
    Zarn_FORM_VAR* m_tailVars;
    unsigned long long* m_tailValues;
    bool m_tailCountsBytes;
    wchar_t* m_tailFormat;
    bool m_tailHasEntryId;
    wchar_t m_varCloseBracket;
    wchar_t m_varOpenBracket;
    wchar_t** m_varNames;
    int m_varNamesQty;
};
