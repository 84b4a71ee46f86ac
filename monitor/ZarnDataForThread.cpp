#include "monitor/ZarnDataForThread.h"

#include "foundation/free_Array.h"
#include "foundation/DxCode.h"
#include "foundation/UTL_String.h"
#include "monitor/ZarnBehaviorCriteria.h"
#include "monitor/ZarnData.h"

#include <cwchar>
#include <new>

namespace {

constexpr u8 kDefaultDisplayLineWd = 67;
constexpr u8 kDefaultLogFileLineWd = 0;
constexpr int kDescriptionFillersQty_Min = 5;
constexpr int kDescriptionFillersQty_Max = 99;
// The formatter takes a slot for every insert a text names, up to %99 with two stars (the 101st),
// and cannot tell where the array ends: the slots behind the fillers stay zero, so that an insert
// no filler fills reads 0 or a null text instead of memory past the array.
constexpr int kFormatterSlotsQty = 101;
constexpr unsigned int kDefaultSituationApprovalKind = 2;
constexpr unsigned int kLogHyperlinkWinSDK_StringID = 10003;

// True if `create` gave an object; an allocation failure, raised by the creator, counts as none.
template <class Create>
bool isCreated(Create create)
{
    try {
        return create() != nullptr;
    } catch (...) {
        return false;
    }
}

// Allocates `qty` slots; a failed allocation is raised as boolean false, as the creators promise.
template <class T>
T* allocateSlots(int qty)
{
    T* slots = new (std::nothrow) T[static_cast<size_t>(qty)];
    if (slots == nullptr)
        throw false;
    return slots;
}

template <class T>
void fillSlots(T* slots, int qty, T value)
{
    for (int slot = 0; slot < qty; ++slot)
        slots[slot] = value;
}

} // namespace

ZarnDataForThread::ZarnDataForThread()
    : m_argsInt(nullptr),
      m_argsIntCount(0),
      m_argsStrA(nullptr),
      m_argsStrW(nullptr),
      m_argsStrCount(0),
      m_argsUInt(nullptr),
      m_argsUIntCount(0),
      m_dataSet(nullptr),
      m_descriptionArgV(),
      m_descriptionForDisplay{},
      m_descriptionDisplayIsDupe(false),
      m_descriptionDisplayLineWd(kDefaultDisplayLineWd),
      m_logHyperlink(nullptr),
      m_descriptionFillers(nullptr),
      m_argSource(0),
      m_responseSpecHeader{},
      m_descriptionForLogFile{},
      m_descriptionLogFileLineWd(kDefaultLogFileLineWd),
      m_displayDlgBoxSpecA(0),
      m_displayDlgBoxResult(0),
      m_displayDlgBoxSpecB(0),
      m_displayDlgBoxType(kDefaultDisplayDlgBoxType),
      m_plugInsIndirectIndices(nullptr),
      m_plugInsIndirectQty(0),
      m_tokenSeparator{},
      m_situationApprovalKind(kDefaultSituationApprovalKind),
      m_scratchpad(),
      m_selfDX_Code(0),
      m_specStrictness(0),
      m_situationID(0),
      m_situationID_Remote(0),
      m_situationResponseTraits(ZARN_DEFAULT_RESPONSE_TRAITS)
{
}

ZarnDataForThread::~ZarnDataForThread()
{
    try {
        free_Resources();
    } catch (...) {
        // Nothing leaves a destructor; what could not be freed is lost with the engine.
    }
}

// ---- The frame's helpers ----

void ZarnDataForThread::keepFirstDxCode(const std::exception_ptr& failure, int catchAllCode)
{
    if (m_selfDX_Code == 0)
        m_selfDX_Code = dxCodeOf(failure, catchAllCode);
}

void ZarnDataForThread::passGuards() const
{
    if (m_dataSet == nullptr)
        throw 265;
    if (!m_dataSet->isSelfApproving())
        throw m_dataSet->getSelfDX_Code();
}

// ---- Birth and release ----

bool ZarnDataForThread::initialize(ZarnData* const dataSet)
{
    try {
        if (dataSet == nullptr)
            throw 265;
        m_dataSet = dataSet;
        m_descriptionDisplayLineWd = dataSet->getDescriptionDisplayLineWd();
        m_descriptionLogFileLineWd = dataSet->getDescriptionLogFileLineWd();

        if (m_logHyperlink == nullptr && !isCreated([this] { return m_logHyperlink = new UTL_String(); }))
            throw 9;
        // Every array of a situation is made here, so that no situation has to allocate one.
        if (dataSet->getArgsIntQty() > 0 && !isCreated([this] { return createArgsInt(); }))
            throw 6;
        if (dataSet->getArgsStrQty() > 0 && !isCreated([this] { return createArgsStr(); }))
            throw 7;
        if (dataSet->getArgsUIntQty() > 0 && !isCreated([this] { return createArgsUInt(); }))
            throw 8;
        if (dataSet->getDescriptionFillersQty() > 0 && !isCreated([this] { return createDescriptionFillers(); }))
            throw 10;
        if (dataSet->getPlugInsQty() > 0 && !isCreated([this] { return createPlugInsIndirectIndices(); }))
            throw 217;
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 269);
    }
    return isSelfSatisfied();
}

void ZarnDataForThread::free_Memory()
{
    free_Array(m_argsInt);
    m_argsIntCount = 0;
    free_Array(m_argsStrA);
    free_Array(m_argsStrW);
    m_argsStrCount = 0;
    free_Array(m_argsUInt);
    m_argsUIntCount = 0;
    if (m_logHyperlink != nullptr) {
        m_logHyperlink->clear();
        delete m_logHyperlink;
        m_logHyperlink = nullptr;
    }
    free_Array(m_descriptionFillers);
    free_Array(m_plugInsIndirectIndices);
    m_plugInsIndirectQty = 0;
}

void ZarnDataForThread::free_Resources()
{
    free_Memory();
}

// ---- The creators: one shape. An existing array is cleared and kept; else it is made anew. ----

int* ZarnDataForThread::createArgsInt()
{
    if (m_dataSet == nullptr)
        return nullptr;
    const int qty = m_dataSet->getArgsIntQty();
    if (m_argsInt != nullptr && qty > 0) {
        forgetArgsInt();
        return m_argsInt;
    }
    free_Array(m_argsInt);
    m_argsIntCount = 0;
    if (qty >= 1) {
        m_argsInt = allocateSlots<int>(qty);
        forgetArgsInt();
    }
    return m_argsInt;
}

unsigned int* ZarnDataForThread::createArgsUInt()
{
    if (m_dataSet == nullptr)
        return nullptr;
    const int qty = m_dataSet->getArgsUIntQty();
    if (m_argsUInt != nullptr && qty > 0) {
        forgetArgsUInt();
        return m_argsUInt;
    }
    free_Array(m_argsUInt);
    m_argsUIntCount = 0;
    if (qty >= 1) {
        m_argsUInt = allocateSlots<unsigned int>(qty);
        forgetArgsUInt();
    }
    return m_argsUInt;
}

const char** ZarnDataForThread::createArgsStrA()
{
    // Only one string array exists, the one that fits the callers' character set.
    if (m_dataSet == nullptr || m_argsStrW != nullptr || m_dataSet->getCharSetExternal() == 2)
        return nullptr;
    const int qty = m_dataSet->getArgsStrQty();
    if (m_argsStrA != nullptr && qty > 0) {
        forgetArgsStrA();
        return m_argsStrA;
    }
    free_Array(m_argsStrA);
    m_argsStrCount = 0;
    if (qty >= 1) {
        m_argsStrA = allocateSlots<const char*>(qty);
        forgetArgsStrA();
    }
    return m_argsStrA;
}

const wchar_t** ZarnDataForThread::createArgsStrW()
{
    if (m_dataSet == nullptr || m_argsStrA != nullptr || m_dataSet->getCharSetExternal() != 2)
        return nullptr;
    const int qty = m_dataSet->getArgsStrQty();
    if (m_argsStrW != nullptr && qty > 0) {
        forgetArgsStrW();
        return m_argsStrW;
    }
    free_Array(m_argsStrW);
    m_argsStrCount = 0;
    if (qty >= 1) {
        m_argsStrW = allocateSlots<const wchar_t*>(qty);
        forgetArgsStrW();
    }
    return m_argsStrW;
}

void* ZarnDataForThread::createArgsStr()
{
    if (m_dataSet == nullptr)
        return nullptr;
    switch (m_dataSet->getCharSetExternal()) {
    case 0:
    case 1:
        return static_cast<void*>(createArgsStrA());
    case 2:
        return static_cast<void*>(createArgsStrW());
    default: // unset: the callers' strings cannot be told narrow or wide
        return nullptr;
    }
}

u64* ZarnDataForThread::createDescriptionFillers()
{
    if (m_dataSet == nullptr)
        return nullptr;
    const int qty = m_dataSet->getDescriptionFillersQty();
    if (m_descriptionFillers != nullptr && qty > 0) {
        forgetDescriptionFillers();
        return m_descriptionFillers;
    }
    free_Array(m_descriptionFillers);
    if (qty >= kDescriptionFillersQty_Min && qty <= kDescriptionFillersQty_Max) {
        m_descriptionFillers = allocateSlots<u64>(kFormatterSlotsQty);
        fillSlots<u64>(m_descriptionFillers, kFormatterSlotsQty, 0);
        forgetDescriptionFillers();
    }
    return m_descriptionFillers;
}

int* ZarnDataForThread::createPlugInsIndirectIndices()
{
    if (m_dataSet == nullptr)
        return nullptr;
    const int qty = m_dataSet->getPlugInsQty();
    if (m_plugInsIndirectIndices != nullptr && qty > 0) {
        forgetPlugInsIndirectIndices();
        return m_plugInsIndirectIndices;
    }
    free_Array(m_plugInsIndirectIndices);
    m_plugInsIndirectQty = 0;
    if (qty >= 1) {
        m_plugInsIndirectIndices = allocateSlots<int>(qty);
        forgetPlugInsIndirectIndices();
    }
    return m_plugInsIndirectIndices;
}

// ---- The forgetters: each clears its array over the data set's full quantity ----

void ZarnDataForThread::forgetArgs()
{
    forgetArgsInt();
    forgetArgsStrA();
    forgetArgsStrW();
    forgetArgsUInt();
}

void ZarnDataForThread::forgetArgsInt()
{
    if (m_argsInt != nullptr && m_dataSet != nullptr)
        fillSlots(m_argsInt, m_dataSet->getArgsIntQty(), 0);
    m_argsIntCount = 0;
}

void ZarnDataForThread::forgetArgsStrA()
{
    if (m_argsStrA != nullptr && m_dataSet != nullptr)
        fillSlots<const char*>(m_argsStrA, m_dataSet->getArgsStrQty(), nullptr);
    m_argsStrCount = 0;
}

void ZarnDataForThread::forgetArgsStrW()
{
    if (m_argsStrW != nullptr && m_dataSet != nullptr)
        fillSlots<const wchar_t*>(m_argsStrW, m_dataSet->getArgsStrQty(), nullptr);
    m_argsStrCount = 0;
}

void ZarnDataForThread::forgetArgsUInt()
{
    if (m_argsUInt != nullptr && m_dataSet != nullptr)
        fillSlots(m_argsUInt, m_dataSet->getArgsUIntQty(), 0u);
    m_argsUIntCount = 0;
}

void ZarnDataForThread::forgetDescriptionFillers()
{
    if (m_descriptionFillers != nullptr && m_dataSet != nullptr)
        fillSlots<u64>(m_descriptionFillers, m_dataSet->getDescriptionFillersQty(), 0);
}

void ZarnDataForThread::forgetPlugInsIndirectIndices()
{
    // -1 marks a free slot: 0 is a plug-in number.
    if (m_plugInsIndirectIndices != nullptr && m_dataSet != nullptr)
        fillSlots(m_plugInsIndirectIndices, m_dataSet->getPlugInsQty(), -1);
    m_plugInsIndirectQty = 0;
}

// ---- Recording a situation ----

int ZarnDataForThread::recordArgument(int value, int position)
{
    if (m_argsInt == nullptr || m_dataSet == nullptr)
        return -1;
    const int qty = m_dataSet->getArgsIntQty();
    if (qty < 1)
        return -1;
    if (position == ZARN_ARG_NEXT)
        position = m_argsIntCount;
    // A negative position would write in front of the array; it is refused like one past the end.
    if (position == ZARN_ARG_NEXT || position >= qty || position < 0)
        return -1;
    m_argsInt[position] = value;
    if (position >= m_argsIntCount)
        m_argsIntCount = position + 1;
    return position;
}

int ZarnDataForThread::recordArgument(unsigned int value, int position)
{
    if (m_argsUInt == nullptr || m_dataSet == nullptr)
        return -1;
    const int qty = m_dataSet->getArgsUIntQty();
    if (qty < 1)
        return -1;
    if (position == ZARN_ARG_NEXT)
        position = m_argsUIntCount;
    if (position == ZARN_ARG_NEXT || position >= qty || position < 0)
        return -1;
    m_argsUInt[position] = value;
    if (position >= m_argsUIntCount)
        m_argsUIntCount = position + 1;
    return position;
}

int ZarnDataForThread::recordArgument(const char* value, int position)
{
    if (m_argsStrA == nullptr || m_dataSet == nullptr)
        return -1;
    const int qty = m_dataSet->getArgsStrQty();
    if (qty < 1 || m_dataSet->getCharSetExternal() == 2)
        return -1;
    if (position == ZARN_ARG_NEXT)
        position = m_argsStrCount;
    if (position == ZARN_ARG_NEXT || position >= qty || position < 0)
        return -1;
    // The pointer, not a copy: the text must outlive the situation.
    m_argsStrA[position] = value;
    if (position >= m_argsStrCount)
        m_argsStrCount = position + 1;
    return position;
}

int ZarnDataForThread::recordArgument(const wchar_t* value, int position)
{
    if (m_argsStrW == nullptr || m_dataSet == nullptr)
        return -1;
    const int qty = m_dataSet->getArgsStrQty();
    if (qty < 1 || m_dataSet->getCharSetExternal() != 2)
        return -1;
    if (position == ZARN_ARG_NEXT)
        position = m_argsStrCount;
    if (position == ZARN_ARG_NEXT || position >= qty || position < 0)
        return -1;
    m_argsStrW[position] = value;
    if (position >= m_argsStrCount)
        m_argsStrCount = position + 1;
    return position;
}

int ZarnDataForThread::recordSituationID(int situationID)
{
    const int previous = m_situationID;
    m_situationID = situationID;
    return previous;
}

int ZarnDataForThread::recordSituationID_Remote(int situationID)
{
    const int previous = m_situationID_Remote;
    m_situationID_Remote = situationID;
    return previous;
}

void ZarnDataForThread::setDescriptionArgV(char** argV)
{
    m_descriptionArgV = argV != nullptr ? ZarnArgCursor(argV) : ZarnArgCursor();
}

void ZarnDataForThread::setDescriptionArgV(const ZarnArgCursor& cursor)
{
    m_descriptionArgV = cursor;
}

ZarnArgCursor* ZarnDataForThread::getDescriptionArgV()
{
    return &m_descriptionArgV;
}

// ---- Reading a situation ----

unsigned int ZarnDataForThread::getArg_UInt(int index) const
{
    if (m_argsUInt == nullptr || m_argsUIntCount < 1 || index >= m_argsUIntCount || index < 0 || m_dataSet == nullptr)
        return 0;
    const int qty = m_dataSet->getArgsUIntQty();
    // Deliberately also 0 when every slot is used: a completely filled array cannot be read.
    if (qty < 1 || qty <= m_argsUIntCount)
        return 0;
    return m_argsUInt[index];
}

u64* ZarnDataForThread::getDescriptionFillers() const
{
    return m_descriptionFillers;
}

const wchar_t* ZarnDataForThread::getDescriptionForDisplay() const
{
    return m_descriptionForDisplay;
}

const wchar_t* ZarnDataForThread::getDescriptionForLogFile() const
{
    return m_descriptionForLogFile;
}

int ZarnDataForThread::getDisplayDlgBoxResult() const
{
    return m_displayDlgBoxResult;
}

int ZarnDataForThread::getSelfDX_Code() const
{
    return m_selfDX_Code;
}

void ZarnDataForThread::forgetSelfDX_Code() const
{
    m_selfDX_Code = 0;
}

void ZarnDataForThread::setSelfDX_Code(int code)
{
    m_selfDX_Code = code;
}

int ZarnDataForThread::getSituationID() const
{
    return m_situationID;
}

int ZarnDataForThread::getSituationID_Remote() const
{
    return m_situationID_Remote;
}

bool ZarnDataForThread::isSelfSatisfied() const
{
    return m_selfDX_Code == 0;
}

bool ZarnDataForThread::isSituationNormal() const
{
    return m_situationID == 0;
}

const wchar_t* ZarnDataForThread::formatLogHyperlinkWinSDK(unsigned long code) const
{
    if (m_dataSet == nullptr || m_logHyperlink == nullptr)
        return nullptr;
    return m_dataSet->formatLogHyperlink(code, kLogHyperlinkWinSDK_StringID, *m_logHyperlink);
}

// ---- The lock: the data set's ----

bool ZarnDataForThread::enterCriticalSection() const
{
    return m_dataSet != nullptr && m_dataSet->enterCriticalSection();
}

bool ZarnDataForThread::leaveCriticalSection() const
{
    return m_dataSet != nullptr && m_dataSet->leaveCriticalSection();
}

// ---- The road of a situation ----

bool ZarnDataForThread::respondToSituation()
{
    bool entered = false;
    try {
        // The lock is held across the whole road, dialogs and plug-ins included.
        entered = enterCriticalSection();
        passGuards();
        if (!entered)
            throw 262;
        if (!describeSituation())
            throw getSelfDX_Code();
        if (m_plugInsIndirectQty > 0 && !activatePlugIns())
            throw getSelfDX_Code();
        // Skipped after a failure: the failed situation stays in the engine for the caller to see.
        if (!forgetSituation())
            throw getSelfDX_Code();
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 65);
    }
    ZarnScratchpad::clearIfNotEmpty(m_scratchpad.m_scratchA, m_scratchpad.m_scratchA_Bytes);
    ZarnScratchpad::clearIfNotEmpty(m_scratchpad.m_scratchB, m_scratchpad.m_scratchB_Bytes);
    if (entered && !leaveCriticalSection() && isSelfSatisfied())
        m_selfDX_Code = 263;
    return isSelfSatisfied();
}

bool ZarnDataForThread::describeSituation()
{
    try {
        passGuards();
        if (!learnResponse())
            throw getSelfDX_Code();
        if (!reportDescriptions())
            throw getSelfDX_Code();
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 3);
    }
    return isSelfSatisfied();
}

bool ZarnDataForThread::learnResponse()
{
    try {
        passGuards();
        if (!learnResponseSpecs(nullptr))
            throw getSelfDX_Code();
        // Both descriptions are tried; a formatting failure is held back and raised at the end.
        // A subclass that passes a filler array restores its saved copy in between; with none,
        // there is nothing to restore.
        int formatCode = 0;
        if (!formatDescriptions()) {
            formatCode = getSelfDX_Code();
            forgetSelfDX_Code();
        }
        if (formatCode != 0)
            throw formatCode;
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 113);
    }
    ZarnScratchpad::clearIfNotEmpty(m_scratchpad.m_scratchA, m_scratchpad.m_scratchA_Bytes);
    ZarnScratchpad::clearIfNotEmpty(m_scratchpad.m_scratchB, m_scratchpad.m_scratchB_Bytes);
    return isSelfSatisfied();
}

bool ZarnDataForThread::learnResponseSpecs(u64* fillerStrings)
{
    try {
        passGuards();
        if (!obtainResponseSpecs())
            throw getSelfDX_Code();
        if (!parseResponseSpecs(fillerStrings))
            throw getSelfDX_Code();
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 253);
    }
    if (!isSelfSatisfied()) {
        // A half-learned spec is not left behind for the reports.
        ZarnScratchpad::clearIfNotEmpty(m_descriptionForDisplay, sizeof m_descriptionForDisplay);
        ZarnScratchpad::clearIfNotEmpty(m_responseSpecHeader, sizeof m_responseSpecHeader);
        ZarnScratchpad::clearIfNotEmpty(m_descriptionForLogFile, sizeof m_descriptionForLogFile);
    }
    std::wmemset(m_scratchpad.m_scratchA, 0, ZarnScratchpad::kCharacters);
    std::wmemset(m_scratchpad.m_scratchB, 0, ZarnScratchpad::kCharacters);
    return isSelfSatisfied();
}

bool ZarnDataForThread::parseResponseSpecs(u64* fillerStrings)
{
    // No frame of its own: each parser keeps its code, and the caller raises it.
    if (m_dataSet == nullptr)
        return false;
    if (!parseResponseSpecHeader(fillerStrings))
        return false;
    if (!parseDescriptionSpecLogFile())
        return false;
    // A monitor that may not respond leaves the raw display field unparsed; it is never shown.
    if (m_dataSet->canRespondToSituations() == Zarn_FUZZY_YES && !parseDescriptionSpecDisplay())
        return false;
    return true;
}

bool ZarnDataForThread::formatDescriptions()
{
    try {
        passGuards();
        // Both are attempted, and the first failure is the one reported.
        int logFileCode = 0;
        if (!formatDescriptionForLogFile()) {
            logFileCode = getSelfDX_Code();
            forgetSelfDX_Code();
        }
        if (!formatDescriptionForDisplay()) {
            if (logFileCode == 0)
                throw getSelfDX_Code();
            forgetSelfDX_Code();
        }
        if (logFileCode != 0)
            throw logFileCode;
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 54);
    }
    return isSelfSatisfied();
}

bool ZarnDataForThread::forgetSituation()
{
    try {
        forgetArgs();
        forgetDescriptionFillers();
        forgetPlugInsIndirectIndices();

        m_descriptionArgV = ZarnArgCursor();
        m_descriptionDisplayIsDupe = false;
        m_argSource = 0;
        m_displayDlgBoxSpecA = 0;
        m_displayDlgBoxSpecB = 0;
        m_situationID = 0;
        m_situationID_Remote = 0;
        m_displayDlgBoxType = kDefaultDisplayDlgBoxType;
        m_situationApprovalKind = kDefaultSituationApprovalKind;
        m_situationResponseTraits = ZARN_DEFAULT_RESPONSE_TRAITS;
        m_descriptionDisplayLineWd =
            m_dataSet != nullptr ? m_dataSet->getDescriptionDisplayLineWd() : kDefaultDisplayLineWd;
        m_descriptionLogFileLineWd =
            m_dataSet != nullptr ? m_dataSet->getDescriptionLogFileLineWd() : kDefaultLogFileLineWd;
        if (m_logHyperlink != nullptr)
            m_logHyperlink->clear();

        ZarnScratchpad::clearIfNotEmpty(m_descriptionForDisplay, sizeof m_descriptionForDisplay);
        ZarnScratchpad::clearIfNotEmpty(m_responseSpecHeader, sizeof m_responseSpecHeader);
        ZarnScratchpad::clearIfNotEmpty(m_descriptionForLogFile, sizeof m_descriptionForLogFile);
        ZarnScratchpad::clearIfNotEmpty(m_scratchpad.m_scratchA, m_scratchpad.m_scratchA_Bytes);
        ZarnScratchpad::clearIfNotEmpty(m_scratchpad.m_scratchB, m_scratchpad.m_scratchB_Bytes);
        // The DX code and the dialog's answer stay: the caller reads both after the situation.
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 46);
    }
    return isSelfSatisfied();
}
