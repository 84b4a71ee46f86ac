#include "log/ZarnDataFile.h"

#include <type_traits>

ZarnDataFile::ZarnDataFile()
    : m_logByteCount(0), m_logStream(nullptr), m_logName(nullptr), m_logKind(Zarn_LOG_HTML), m_formStream(nullptr),
      m_injectorFiles(nullptr), m_injectorStreams(nullptr), m_formIsBuiltIn(false), m_formName(nullptr),
      m_formMarker(0), m_bodyVarCount(0), m_bodyVars(nullptr), m_bodyValues(nullptr), m_entryColorEven(0),
      m_entryColorOdd(0), m_bodyFormat(nullptr), m_tailPosition(0), m_headVarCount(0), m_headVars(nullptr),
      m_headValues(nullptr), m_headFormat(nullptr), m_headHasEntryId(false), m_tailVarCount(0), m_tailVars(nullptr),
      m_tailValues(nullptr), m_tailCountsBytes(true), m_tailFormat(nullptr), m_tailHasEntryId(false),
      m_varCloseBracket(0), m_varOpenBracket(0), m_varNames(nullptr), m_varNamesQty(0)
{
}

static_assert(std::is_trivially_copyable<ZarnDataFile>::value, "ZarnDataFile is copied as bytes");
