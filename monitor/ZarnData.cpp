#include "monitor/ZarnData.h"

#include "foundation/free_Array.h"
#include "foundation/CriticalSection.h"
#include "foundation/DxCode.h"
#include "foundation/TObjectMap.h"
#include "foundation/UTL_String.h"
#include "monitor/Zarn.h"
#include "monitor/ZarnDataForThread.h"
#include "platform/CRuntime.h"
#include "platform/Environment.h"
#include "platform/LastError.h"
#include "platform/MessageBox.h"
#include "platform/ModuleAttachment.h"
#include "platform/Modules.h"
#include "platform/Threads.h"

#include <cctype>
#include <cstring>
#include <cwchar>
#include <new>
#include <utility>

HMODULE ZarnData::m_resModuleBootstrap = nullptr;
unsigned int ZarnData::s_logOutputLevel = 1;
bool ZarnData::s_logBackupEnabled = true;
unsigned int ZarnData::s_logMaxFileSize = 20;
unsigned int ZarnData::s_logMaxFileAge = 7;
wchar_t* ZarnData::s_logDirectory = nullptr;
bool ZarnData::s_logInformationInitialized = false;

namespace {

constexpr int kArgsQty_Max = 99;
constexpr int kDescriptionFillersQty_Min = 5;
constexpr int kDescriptionAffixID_Max = 32767;
constexpr unsigned long kSituationsCount_Max = 0xFFFFFFFFul;
constexpr unsigned int kResourceStringCharacters = 1024;
constexpr int kTempPathCharacters = MAX_PATH + 1;

// Like _stricmp: byte by byte, folding by the C library's rule for the current locale.
bool equalsIgnoringCase(const char* left, const char* right)
{
    for (;; ++left, ++right) {
        const int a = std::tolower(static_cast<unsigned char>(*left));
        const int b = std::tolower(static_cast<unsigned char>(*right));
        if (a != b)
            return false;
        if (a == 0)
            return true;
    }
}

bool isValidTag(Zarn_FORM_TAG tag)
{
    return tag >= 0 && tag < Zarn_FORM_TAG_Qty;
}

} // namespace

ZarnData::ZarnData(const i64& nonnativeInstantiatorID)
    : m_situationResponseTraitsAssessor(&ZarnData::approveSituationResponseTraits), m_argsIntQty(0), m_argsStrQty(0),
      m_argsUIntQty(0), m_behaviorCriteria(ZARN_DEFAULT_BEHAVIOR_CRITERIA), m_charSetExternal(-1),
      m_criticalSection(nullptr), m_descriptionAffixID_Min(0), m_descriptionAffixIDsQty(0),
      m_descriptionDisplayDupeOp(L'&'), m_descriptionDisplayLineWd(67), m_descriptionFillersQty(10),
      m_descriptionLogFileLineWd(0), m_displayDlgBoxCaption(nullptr), m_displayDlgBoxFunction(&MessageBoxW),
      m_displayDlgBoxParent(nullptr), m_proxyModule(nullptr), m_fileLog(), m_initialized(false), m_reserved(false),
      m_safeToAllocateMemory(false), m_logFileByteCountLimit(kDefaultLogFileByteCountLimit),
      m_proxyRespondToSituation(nullptr), m_mapOfDataForThreads(nullptr), m_sizeMapOfDataForThreads(17),
      m_nonnativeInstantiatorID(nonnativeInstantiatorID), m_owner(nullptr), m_plugIns(nullptr), m_plugInsQty(0),
      m_resourceModule(m_resModuleBootstrap), m_resStrTokenSepField(L'|'), m_resStrTokenSepGroup(L'~'),
      m_resStrTokenSepRecord(L'`'), m_resStrTokenSepUnit(L','), m_scratchpad(), m_selfDX_Code(0),
      m_selfDX_FaultTolerance(Zarn_TOLERANCE_NONE), m_reserved2(0), m_selfResourceModule(nullptr),
      m_situationMode(0), m_situationsCount(0), m_situationsQty(0), m_tags()
{
    m_fileLog.m_formMarker = L'^';
    m_fileLog.m_entryColorEven = 0xf0f0ff;
    m_fileLog.m_entryColorOdd = 0xf7f7ff;
    m_fileLog.m_varCloseBracket = L']';
    m_fileLog.m_varOpenBracket = L'[';

    SetLastError(0);
    if (m_resModuleBootstrap == nullptr) {
        m_resModuleBootstrap = GetModuleHandleW(nullptr);
        if (m_resModuleBootstrap == nullptr) {
            Zarn_TRACE(L"ZarnData::ZarnData (0x%08x) [1]: Failed to retrieve a module handle to the "
                       L"owner-application's \"bootstrap\" resources (%d/WLE%lu).\n",
                       static_cast<unsigned int>(m_nonnativeInstantiatorID), 232, GetLastError());
            SetLastError(0);
        }
    }
    if (m_resModuleBootstrap != nullptr)
        m_resourceModule = m_resModuleBootstrap;
}

ZarnData::~ZarnData()
{
    const bool entered = enterCriticalSection();
    free_Resources();
    if (entered)
        leaveCriticalSection();
    delete m_criticalSection;
    m_criticalSection = nullptr;
}

ZarnDataForThread* ZarnData::newDataForThread() const
{
    return new (std::nothrow) ZarnDataForThread;
}

void ZarnData::keepFirstDxCode(const std::exception_ptr& failure, int catchAllCode) const
{
    // "Held" counts the calling thread's engine too: a thread whose engine failed must not
    // copy its code into the data set, where it would stop every other thread.
    if (isSelfSatisfied())
        m_selfDX_Code = dxCodeOf(failure, catchAllCode);
}

// ---------------------------------------------------------------------------------------------
// Setters

bool ZarnData::setArgsIntQty(int qty)
{
    if (m_initialized || qty < 0 || qty > kArgsQty_Max)
        return false;
    m_argsIntQty = qty;
    return true;
}

bool ZarnData::setArgsStrQty(int qty)
{
    if (m_initialized || qty < 0 || qty > kArgsQty_Max)
        return false;
    m_argsStrQty = qty;
    return true;
}

bool ZarnData::setArgsUIntQty(int qty)
{
    if (m_initialized || qty < 0 || qty > kArgsQty_Max)
        return false;
    m_argsUIntQty = qty;
    return true;
}

bool ZarnData::setDescriptionFillersQty(int qty)
{
    if (m_initialized || qty < kDescriptionFillersQty_Min || qty > kArgsQty_Max)
        return false;
    m_descriptionFillersQty = qty;
    return true;
}

bool ZarnData::setCharSetExternal(int charSet)
{
    if (m_initialized || charSet < 0 || charSet > 2)
        return false;
    m_charSetExternal = charSet;
    return true;
}

Zarn_DX_MODE ZarnData::setSituationMode(Zarn_DX_MODE mode)
{
    const Zarn_DX_MODE previous = m_situationMode;
    if (!m_initialized)
        m_situationMode = mode;
    return previous;
}

bool ZarnData::setDescriptionAffixID_Min(int id)
{
    if (id < 1 || id > kDescriptionAffixID_Max)
        return false;
    m_descriptionAffixID_Min = id;
    return true;
}

bool ZarnData::setDescriptionAffixIDsQty(int qty)
{
    // No lower bound: a negative quantity is stored, and then no affix number is below it.
    if (qty > kDescriptionAffixID_Max)
        return false;
    m_descriptionAffixIDsQty = qty;
    return true;
}

Zarn_TOLERANCE ZarnData::setSelfDX_FaultTolerance(Zarn_TOLERANCE tolerance)
{
    const Zarn_TOLERANCE previous = m_selfDX_FaultTolerance;
    if (tolerance == Zarn_TOLERANCE_NONE || tolerance == Zarn_TOLERANCE_FORGIVING)
        m_selfDX_FaultTolerance = tolerance;
    return previous;
}

ZarnSituationResponseTraitsAssessor
ZarnData::setSituationResponseTraitsAssessor(ZarnSituationResponseTraitsAssessor assessor)
{
    const ZarnSituationResponseTraitsAssessor previous = m_situationResponseTraitsAssessor;
    if (assessor != nullptr)
        m_situationResponseTraitsAssessor = assessor;
    return previous;
}

unsigned long ZarnData::sizeMapOfDataForThreads(unsigned long size)
{
    const unsigned long previous = m_sizeMapOfDataForThreads;
    if (size > 0)
        m_sizeMapOfDataForThreads = size;
    return previous;
}

ZarnDisplayDlgBoxFunction ZarnData::setDisplayDlgBoxFunction(ZarnDisplayDlgBoxFunction function)
{
    return std::exchange(m_displayDlgBoxFunction, function);
}

HWND ZarnData::setDisplayDlgBoxParent(HWND parent)
{
    return std::exchange(m_displayDlgBoxParent, parent);
}

i64 ZarnData::setNonnativeInstantiatorID(i64 id)
{
    return std::exchange(m_nonnativeInstantiatorID, id);
}

Zarn* ZarnData::setOwner(Zarn* owner)
{
    return std::exchange(m_owner, owner);
}

int ZarnData::setSelfDX_Code(int code)
{
    return std::exchange(m_selfDX_Code, code);
}

HMODULE ZarnData::setSelfResourceModule(HMODULE module)
{
    return std::exchange(m_selfResourceModule, module);
}

// ---------------------------------------------------------------------------------------------
// Owned texts: caption and tags

bool ZarnData::duplicate_String(wchar_t** target, const wchar_t* source, bool freeOld)
{
    if (target == nullptr)
        return false;
    if (source == nullptr) {
        if (freeOld)
            delete[] *target;
        *target = nullptr;
        return true;
    }
    // Copied before the old text is freed, so that a target may be given its own text.
    const size_t length = std::wcslen(source);
    wchar_t* const copy = new (std::nothrow) wchar_t[length + 1];
    if (copy == nullptr)
        return false;
    std::wmemcpy(copy, source, length + 1);
    if (freeOld)
        delete[] *target;
    *target = copy;
    return true;
}

bool ZarnData::recordDialogBoxCaption(const wchar_t* caption)
{
    return duplicate_String(&m_displayDlgBoxCaption, caption, true);
}

bool ZarnData::recordDialogBoxCaption(const char* caption)
{
    if (caption == nullptr)
        return duplicate_String(&m_displayDlgBoxCaption, nullptr, true);
    try {
        const UTL_String wide(caption);
        return duplicate_String(&m_displayDlgBoxCaption, wide.wideText(), true);
    } catch (...) {
        return false;
    }
}

bool ZarnData::recordTag(const wchar_t* value, Zarn_FORM_TAG tag)
{
    if (!isValidTag(tag))
        return false;
    return duplicate_String(&m_tags[tag], value, true);
}

bool ZarnData::recordTag(const char* value, Zarn_FORM_TAG tag)
{
    if (!isValidTag(tag))
        return false;
    if (value == nullptr)
        return duplicate_String(&m_tags[tag], nullptr, true);
    try {
        const UTL_String wide(value);
        return duplicate_String(&m_tags[tag], wide.wideText(), true);
    } catch (...) {
        return false;
    }
}

const wchar_t* ZarnData::getTag(Zarn_FORM_TAG tag) const
{
    return isValidTag(tag) ? m_tags[tag] : nullptr;
}

bool ZarnData::getTag(Zarn_FORM_TAG tag, wchar_t* buffer, size_t size) const
{
    if (buffer == nullptr || size == 0)
        return false;
    std::wmemset(buffer, 0, size);
    const wchar_t* const value = getTag(tag);
    if (value == nullptr)
        return false;
    std::wcsncpy(buffer, value, size);
    buffer[size - 1] = L'\0';
    return true;
}

bool ZarnData::getTag(Zarn_FORM_TAG tag, char* buffer, size_t size) const
{
    if (buffer == nullptr || size == 0)
        return false;
    std::memset(buffer, 0, size);
    const wchar_t* const value = getTag(tag);
    if (value == nullptr)
        return false;
    try {
        const UTL_String text(value);
        std::strncpy(buffer, text.narrowText(), size);
        buffer[size - 1] = '\0';
        return true;
    } catch (...) {
        buffer[0] = '\0';
        return false;
    }
}

// ---------------------------------------------------------------------------------------------
// Static log settings

void ZarnData::setLogVariables(const wchar_t* directory, unsigned int outputLevel, bool backupEnabled,
                               unsigned int maxFileSize, unsigned int maxFileAge)
{
    s_logOutputLevel = outputLevel;
    s_logBackupEnabled = backupEnabled;
    s_logMaxFileSize = maxFileSize;
    s_logMaxFileAge = maxFileAge;
    duplicate_String(&s_logDirectory, directory, true);
    s_logInformationInitialized = true;
}

const wchar_t* ZarnData::getLogDirectory()
{
    if (s_logDirectory == nullptr) {
        wchar_t path[kTempPathCharacters] = {};
        const DWORD length = GetTempPathW(kTempPathCharacters, path);
        if (length > 0 && length < static_cast<DWORD>(kTempPathCharacters))
            duplicate_String(&s_logDirectory, path, true);
    }
    return s_logDirectory;
}

// ---------------------------------------------------------------------------------------------
// Life cycle

bool ZarnData::learnSelfResourceModule()
{
    try {
        const HMODULE self = GetModuleHandleW(L"zmu.dll");
        if (self == nullptr)
            throw 231;
        m_selfResourceModule = self;
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 231);
    }
    return isSelfSatisfied();
}

bool ZarnData::initialize()
{
    if (m_initialized)
        return isSelfSatisfied();
    try {
        if (!isSelfApproving())
            throw getSelfDX_Code();
        if (m_selfResourceModule == nullptr && !learnSelfResourceModule())
            throw 231;
        if (!isInstantiatorRunningNatively() && m_proxyRespondToSituation == nullptr) {
            if (m_proxyModule == nullptr) {
                m_proxyModule = LoadLibraryW(L"cs4s3.dll");
                if (m_proxyModule == nullptr)
                    throw 2;
            }
            m_proxyRespondToSituation = reinterpret_cast<ZarnProxyRespondToSituation>(
                GetProcAddress(m_proxyModule, "ProxyRespondToSituation"));
            if (m_proxyRespondToSituation == nullptr)
                throw 1;
        }
        if (m_criticalSection == nullptr) {
            m_criticalSection = new (std::nothrow) CriticalSection;
            if (m_criticalSection == nullptr)
                throw 264;
        }
        if (m_mapOfDataForThreads == nullptr) {
            if (m_sizeMapOfDataForThreads == 0)
                throw 278;
            try {
                m_mapOfDataForThreads = new TObjectMap<unsigned long, void*>(m_sizeMapOfDataForThreads);
            } catch (...) {
                m_mapOfDataForThreads = nullptr; // a size the map cannot have, or no memory
            }
            if (m_mapOfDataForThreads == nullptr)
                throw 274;
        }
        if (obtainDataForCurrentThread(true) == nullptr)
            throw getSelfDX_Code();
        m_initialized = true;
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 66);
    }
    return isSelfSatisfied();
}

bool ZarnData::isValid()
{
    return isValidLogFileNomenclature(m_fileLog) && m_charSetExternal != -1 && m_resourceModule != nullptr;
}

bool ZarnData::free_Resources()
{
    bool freed = true;
    if (m_proxyModule != nullptr) {
        if (!FreeLibrary(m_proxyModule))
            freed = false;
        m_proxyModule = nullptr;
        m_proxyRespondToSituation = nullptr; // its code went with the module
    }
    if (isInstantiatorRunningNatively() && m_fileLog.m_logStream != nullptr && !closeLogFile()) {
        freed = false;
        m_fileLog.m_logStream = nullptr;
    }
    if (m_fileLog.m_formStream != nullptr && !closeFile(m_fileLog.m_formStream, m_fileLog.m_formName)) {
        freed = false;
        m_fileLog.m_formStream = nullptr;
    }
    for (int index = 0; index < ZarnDataFile::kInjectorsQty; ++index) {
        if (!eliminateLogFileFormInjector(index))
            freed = false;
    }
    if (!free_Memory())
        freed = false;
    return freed;
}

bool ZarnData::free_Memory()
{
    bool freed = true;
    free_Array(m_displayDlgBoxCaption);

    free_Array(m_plugIns);
    m_plugInsQty = 0;

    for (wchar_t*& tag : m_tags) {
        free_Array(tag);
    }

    freeLogFileFormData();
    free_Array(m_fileLog.m_formName);
    free_Array(m_fileLog.m_logName);

    if (m_mapOfDataForThreads != nullptr) {
        try {
            {
                TObjectMap<unsigned long, void*>::Iterator engine(*m_mapOfDataForThreads, true);
                for (; !engine.atEnd(); engine.next()) {
                    delete static_cast<ZarnDataForThread*>(engine.value());
                    engine.value() = nullptr;
                }
            }
            m_mapOfDataForThreads->removeAll();
        } catch (...) {
            freed = false;
        }
        delete m_mapOfDataForThreads;
        m_mapOfDataForThreads = nullptr;
    }
    return freed;
}

// ---------------------------------------------------------------------------------------------
// Diagnostics

ZarnDataForThread* ZarnData::findDataForCurrentThread() const
{
    if (m_mapOfDataForThreads == nullptr)
        return nullptr;
    try {
        void* engine = nullptr;
        if (m_mapOfDataForThreads->find(GetCurrentThreadId(), &engine))
            return static_cast<ZarnDataForThread*>(engine);
    } catch (...) {
    }
    return nullptr;
}

int ZarnData::getSelfDX_Code() const
{
    if (m_selfDX_Code != 0)
        return m_selfDX_Code;
    if (m_initialized) {
        if (const ZarnDataForThread* engine = findDataForCurrentThread())
            return engine->getSelfDX_Code();
    }
    return 0;
}

void ZarnData::forgetSelfDX_Code() const
{
    // Written only when set: threads that merely pass the gate leave the shared field untouched.
    if (m_selfDX_Code != 0)
        m_selfDX_Code = 0;
    if (m_initialized) {
        if (const ZarnDataForThread* engine = findDataForCurrentThread())
            engine->forgetSelfDX_Code();
    }
}

bool ZarnData::isSelfApproving() const
{
    if (getSelfDX_Code() == 0)
        return true;
    const Zarn_TOLERANCE tolerance =
        m_selfDX_FaultTolerance == Zarn_TOLERANCE_UNSET ? Zarn_TOLERANCE_NONE : m_selfDX_FaultTolerance;
    if (tolerance == Zarn_TOLERANCE_FORGIVING)
        forgetSelfDX_Code();
    return getSelfDX_Code() == 0;
}

// ---------------------------------------------------------------------------------------------
// Engines of the threads

ZarnDataForThread* ZarnData::obtainDataForCurrentThread(bool create) const
{
    if (m_mapOfDataForThreads == nullptr)
        return nullptr;
    const unsigned long threadID = GetCurrentThreadId();
    ZarnDataForThread* engine = nullptr;
    bool created = false;
    bool inserted = false;
    bool entered = false;
    try {
        // A failed data set gives no engine to anyone.
        if (m_selfDX_Code != 0)
            throw m_selfDX_Code;
        void* found = nullptr;
        if (m_mapOfDataForThreads->find(threadID, &found))
            return static_cast<ZarnDataForThread*>(found);
        if (!create)
            return nullptr;
        entered = enterCriticalSection();
        if (!entered)
            throw 262;
        engine = newDataForThread();
        if (engine == nullptr)
            throw 270;
        created = true;
        if (!engine->initialize(const_cast<ZarnData*>(this)))
            throw engine->getSelfDX_Code();
        try {
            inserted = m_mapOfDataForThreads->add(threadID, engine);
        } catch (...) {
            inserted = false;
        }
        if (!inserted)
            throw 272;
        NoteThreadNeedsDetach(); // the thread's end removes its engine from every monitor
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 273);
    }
    if (m_selfDX_Code != 0 && created) {
        if (inserted)
            m_mapOfDataForThreads->remove(threadID, nullptr);
        delete engine;
        engine = nullptr;
    }
    if (entered && !leaveCriticalSection() && m_selfDX_Code == 0)
        m_selfDX_Code = 263;
    return engine;
}

bool ZarnData::removeThread()
{
    try {
        if (!isSelfApproving())
            throw getSelfDX_Code();
        if (m_mapOfDataForThreads == nullptr)
            throw 275;
        if (obtainDataForCurrentThread(false) == nullptr)
            return isSelfSatisfied();
        void* stored = nullptr;
        if (!m_mapOfDataForThreads->remove(GetCurrentThreadId(), &stored) || stored == nullptr)
            throw 276;
        try {
            delete static_cast<ZarnDataForThread*>(stored);
        } catch (...) {
            throw 276;
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 277);
    }
    return isSelfSatisfied();
}

// ---------------------------------------------------------------------------------------------
// Forwarders to the calling thread's engine

bool ZarnData::describeSituation()
{
    ZarnDataForThread* const engine = obtainDataForCurrentThread(true);
    return engine != nullptr && engine->describeSituation();
}

bool ZarnData::forgetSituation()
{
    ZarnDataForThread* const engine = obtainDataForCurrentThread(true);
    return engine != nullptr && engine->forgetSituation();
}

bool ZarnData::learnResponse()
{
    ZarnDataForThread* const engine = obtainDataForCurrentThread(true);
    return engine != nullptr && engine->learnResponse();
}

bool ZarnData::reportDescriptions()
{
    ZarnDataForThread* const engine = obtainDataForCurrentThread(true);
    return engine != nullptr && engine->reportDescriptions();
}

bool ZarnData::respondToSituation()
{
    ZarnDataForThread* const engine = obtainDataForCurrentThread(true);
    return engine != nullptr && engine->respondToSituation();
}

bool ZarnData::respondToSituation(char** argV)
{
    ZarnDataForThread* const engine = obtainDataForCurrentThread(true);
    if (engine == nullptr)
        return false;
    engine->setDescriptionArgV(argV);
    return engine->respondToSituation();
}

bool ZarnData::respondToSituation(va_list* args)
{
    ZarnDataForThread* const engine = obtainDataForCurrentThread(true);
    if (engine == nullptr)
        return false;
    engine->setDescriptionArgV(ZarnArgCursor(args));
    const bool responded = engine->respondToSituation();
    // A failed situation keeps its cursor, but this one reads a list that ends with our caller.
    engine->setDescriptionArgV(ZarnArgCursor());
    return responded;
}

int ZarnData::recordArgument(const char* value, int position)
{
    ZarnDataForThread* const engine = obtainDataForCurrentThread(true);
    return engine != nullptr ? engine->recordArgument(value, position) : -1;
}

int ZarnData::recordArgument(const wchar_t* value, int position)
{
    ZarnDataForThread* const engine = obtainDataForCurrentThread(true);
    return engine != nullptr ? engine->recordArgument(value, position) : -1;
}

int ZarnData::recordArgument(int value, int position)
{
    ZarnDataForThread* const engine = obtainDataForCurrentThread(true);
    return engine != nullptr ? engine->recordArgument(value, position) : -1;
}

int ZarnData::recordArgument(unsigned int value, int position)
{
    ZarnDataForThread* const engine = obtainDataForCurrentThread(true);
    return engine != nullptr ? engine->recordArgument(value, position) : -1;
}

int ZarnData::recordSituationID(int situationID)
{
    ZarnDataForThread* const engine = obtainDataForCurrentThread(true);
    return engine != nullptr ? engine->recordSituationID(situationID) : 0;
}

int ZarnData::recordSituationID_Remote(int situationID)
{
    ZarnDataForThread* const engine = obtainDataForCurrentThread(true);
    return engine != nullptr ? engine->recordSituationID_Remote(situationID) : 0;
}

unsigned int ZarnData::getArg_UInt(int index)
{
    ZarnDataForThread* const engine = obtainDataForCurrentThread(true);
    return engine != nullptr ? engine->getArg_UInt(index) : 0;
}

u64* ZarnData::getDescriptionFillers()
{
    ZarnDataForThread* const engine = obtainDataForCurrentThread(true);
    return engine != nullptr ? engine->getDescriptionFillers() : nullptr;
}

const wchar_t* ZarnData::getDescriptionForDisplay()
{
    ZarnDataForThread* const engine = obtainDataForCurrentThread(true);
    return engine != nullptr ? engine->getDescriptionForDisplay() : nullptr;
}

const wchar_t* ZarnData::getDescriptionForLogFile()
{
    ZarnDataForThread* const engine = obtainDataForCurrentThread(true);
    return engine != nullptr ? engine->getDescriptionForLogFile() : nullptr;
}

int ZarnData::getDisplayDlgBoxResult()
{
    ZarnDataForThread* const engine = obtainDataForCurrentThread(true);
    return engine != nullptr ? engine->getDisplayDlgBoxResult() : 0;
}

int ZarnData::getSituationID()
{
    ZarnDataForThread* const engine = obtainDataForCurrentThread(true);
    return engine != nullptr ? engine->getSituationID() : 0;
}

bool ZarnData::isSituationNormal()
{
    ZarnDataForThread* const engine = obtainDataForCurrentThread(true);
    return engine == nullptr || engine->isSituationNormal();
}

const wchar_t* ZarnData::formatLogHyperlinkWinSDK(unsigned long code)
{
    ZarnDataForThread* const engine = obtainDataForCurrentThread(true);
    return engine != nullptr ? engine->formatLogHyperlinkWinSDK(code) : nullptr;
}

unsigned long ZarnData::incrementSituationsCount(unsigned long n)
{
    if (m_situationsCount >= kSituationsCount_Max || n >= kSituationsCount_Max - m_situationsCount)
        m_situationsCount = kSituationsCount_Max;
    else
        m_situationsCount += n;
    return m_situationsCount;
}

unsigned long ZarnData::decrementSituationsCount(unsigned long n)
{
    m_situationsCount = n >= m_situationsCount ? 0 : m_situationsCount - n;
    return m_situationsCount;
}

// ---------------------------------------------------------------------------------------------
// Behaviour criteria and trait approval

Zarn_FUZZY_CHOICE ZarnData::canRespondToSituations(const u64& criteria)
{
    return (criteria & ZARN_RESPOND_MASK) != 0 ? Zarn_FUZZY_YES : Zarn_FUZZY_NO;
}

bool ZarnData::approveSituationResponseTraitsLevel(const u64& criteria, const u64& traits, const u64& mask,
                                                   const u64& shift)
{
    const u64 field = mask << (shift % 64);
    const u64 allowed = criteria & field;
    const u64 level = traits & field;
    if (allowed == 0 || level == 0)
        return false;
    return level <= allowed;
}

bool ZarnData::approveSituationResponseTraits(const u64& criteria, const u64& traits)
{
    if (canRespondToSituations(criteria) != Zarn_FUZZY_YES)
        return false;
    for (const ZarnLevelField& field : kZarnLevelFields) {
        if (approveSituationResponseTraitsLevel(criteria, traits, field.mask, field.shift))
            return true;
    }
    return false;
}

bool ZarnData::approveSituationResponseTraits(const u64& traits) const
{
    if (m_situationResponseTraitsAssessor == nullptr)
        return false;
    return m_situationResponseTraitsAssessor(m_behaviorCriteria, traits);
}

bool ZarnData::approveSituationResponseTraits(unsigned int kind, const u64& traits, unsigned int& enablements) const
{
    enablements = 0;
    if (canRespondToSituations() != Zarn_FUZZY_YES)
        return false;
    if (kind == 1) {
        enablements = 11;
    } else if (kind == 2) {
        for (const ZarnLevelField& field : kZarnLevelFields) {
            // The field without an enablement bit cannot be spoken to the proxy.
            if (field.enablement != 0
                && approveSituationResponseTraitsLevel(m_behaviorCriteria, traits, field.mask, field.shift))
                enablements |= field.enablement;
        }
    }
    return enablements != 0;
}

u64 ZarnData::setBehaviorCriteria(u64 criteria)
{
    if (!enterCriticalSection())
        return m_behaviorCriteria;
    const u64 previous = m_behaviorCriteria;
    m_behaviorCriteria = criteria;
    leaveCriticalSection();
    return previous;
}

HMODULE ZarnData::setResourceModule(void* module)
{
    if (module == nullptr || !enterCriticalSection())
        return nullptr;
    const HMODULE previous = m_resourceModule;
    m_resourceModule = static_cast<HMODULE>(module);
    leaveCriticalSection();
    return previous;
}

// ---------------------------------------------------------------------------------------------
// The lock

bool ZarnData::enterCriticalSection() const
{
    try {
        if (m_criticalSection == nullptr)
            m_criticalSection = new CriticalSection;
        m_criticalSection->lock();
        return true;
    } catch (...) {
        return false;
    }
}

bool ZarnData::leaveCriticalSection() const
{
    try {
        if (m_criticalSection != nullptr)
            m_criticalSection->unlock();
        return true;
    } catch (...) {
        return false;
    }
}

// ---------------------------------------------------------------------------------------------
// Hand-over to a monitor's data set

bool ZarnData::assimilateDataSetContents(ZarnData* other)
{
    try {
        if (other == nullptr || m_criticalSection != nullptr || m_fileLog.m_logStream != nullptr)
            throw 268;
        if (other->getFileLog() == nullptr)
            throw 136;
        free_Resources();

        std::wmemcpy(m_scratchpad.m_scratchA, other->m_scratchpad.m_scratchA, ZarnScratchpad::kCharacters);
        std::wmemcpy(m_scratchpad.m_scratchB, other->m_scratchpad.m_scratchB, ZarnScratchpad::kCharacters);
        std::wmemset(other->m_scratchpad.m_scratchA, 0, ZarnScratchpad::kCharacters);
        std::wmemset(other->m_scratchpad.m_scratchB, 0, ZarnScratchpad::kCharacters);

        ZarnDataFile& source = other->m_fileLog;
        m_fileLog = source;
        source.m_logStream = nullptr;
        source.m_logName = nullptr;
        source.m_formStream = nullptr;
        source.m_injectorFiles = nullptr;
        source.m_injectorStreams = nullptr;
        source.m_formName = nullptr;
        source.m_bodyVars = nullptr;
        source.m_bodyValues = nullptr;
        source.m_bodyFormat = nullptr;
        source.m_headVars = nullptr;
        source.m_headValues = nullptr;
        source.m_headFormat = nullptr;
        source.m_tailVars = nullptr;
        source.m_tailValues = nullptr;
        source.m_tailFormat = nullptr;
        source.m_varNames = nullptr;

        m_situationResponseTraitsAssessor = other->m_situationResponseTraitsAssessor;
        m_argsIntQty = other->m_argsIntQty;
        m_argsStrQty = other->m_argsStrQty;
        m_argsUIntQty = other->m_argsUIntQty;
        m_behaviorCriteria = other->m_behaviorCriteria;
        m_charSetExternal = other->m_charSetExternal;
        m_criticalSection = other->m_criticalSection;
        m_descriptionAffixID_Min = other->m_descriptionAffixID_Min;
        m_descriptionAffixIDsQty = other->m_descriptionAffixIDsQty;
        m_descriptionDisplayDupeOp = other->m_descriptionDisplayDupeOp;
        m_descriptionDisplayLineWd = other->m_descriptionDisplayLineWd;
        m_descriptionFillersQty = other->m_descriptionFillersQty;
        m_descriptionLogFileLineWd = other->m_descriptionLogFileLineWd;
        m_displayDlgBoxCaption = other->m_displayDlgBoxCaption;
        m_displayDlgBoxFunction = other->m_displayDlgBoxFunction;
        m_displayDlgBoxParent = other->m_displayDlgBoxParent;
        m_proxyModule = other->m_proxyModule;
        m_initialized = other->m_initialized;
        m_reserved = other->m_reserved;
        m_safeToAllocateMemory = other->m_safeToAllocateMemory;
        m_logFileByteCountLimit = other->m_logFileByteCountLimit;
        m_proxyRespondToSituation = other->m_proxyRespondToSituation;
        m_mapOfDataForThreads = other->m_mapOfDataForThreads;
        m_sizeMapOfDataForThreads = other->m_sizeMapOfDataForThreads;
        m_nonnativeInstantiatorID = other->m_nonnativeInstantiatorID;
        m_owner = other->m_owner;
        m_plugIns = other->m_plugIns;
        m_plugInsQty = other->m_plugInsQty;
        m_resourceModule = other->m_resourceModule;
        m_resStrTokenSepField = other->m_resStrTokenSepField;
        m_resStrTokenSepGroup = other->m_resStrTokenSepGroup;
        m_resStrTokenSepRecord = other->m_resStrTokenSepRecord;
        m_resStrTokenSepUnit = other->m_resStrTokenSepUnit;
        m_selfDX_Code = other->m_selfDX_Code;
        m_selfDX_FaultTolerance = other->m_selfDX_FaultTolerance;
        m_reserved2 = other->m_reserved2;
        m_selfResourceModule = other->m_selfResourceModule;
        m_situationMode = other->m_situationMode;
        m_situationsCount = other->m_situationsCount;
        m_situationsQty = other->m_situationsQty;

        other->m_criticalSection = nullptr;
        other->m_displayDlgBoxCaption = nullptr;
        other->m_displayDlgBoxFunction = nullptr;
        other->m_displayDlgBoxParent = nullptr;
        other->m_proxyModule = nullptr;
        other->m_mapOfDataForThreads = nullptr;
        other->m_owner = nullptr;
        other->m_plugIns = nullptr;
        other->m_resourceModule = nullptr;
        other->m_selfResourceModule = nullptr;
        for (int tag = 0; tag < Zarn_FORM_TAG_Qty; ++tag) {
            m_tags[tag] = other->m_tags[tag];
            other->m_tags[tag] = nullptr;
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 267);
    }
    return isSelfSatisfied();
}

// ---------------------------------------------------------------------------------------------
// Plug-ins and the proxy

ZarnPlugIn* ZarnData::createPlugIns(int qty)
{
    try {
        if (m_plugIns != nullptr && m_plugInsQty > 0)
            return m_plugIns;
        m_plugInsQty = 0;
        free_Array(m_plugIns);
        if (qty < 1)
            return nullptr;
        m_plugInsQty = qty;
        m_plugIns = new ZarnPlugIn[qty];
        forgetPlugIns();
        return m_plugIns;
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 219);
    }
    return nullptr;
}

void ZarnData::forgetPlugIns()
{
    if (m_plugIns == nullptr)
        return;
    for (int row = 0; row < m_plugInsQty; ++row)
        m_plugIns[row] = nullptr;
}

bool ZarnData::logSituationDescriptionViaProxy(int situationID, unsigned int kind, u64 traits,
                                               const wchar_t* description)
{
    try {
        if (!isSelfApproving())
            throw getSelfDX_Code();
        if (situationID < 1 || (kind != 1 && kind != 2) || description == nullptr || description[0] == L'\0'
            || isInstantiatorRunningNatively() || m_proxyRespondToSituation == nullptr)
            throw 209;
        unsigned int enablements = 0;
        // Traits that the criteria do not approve send nothing, and that is a success.
        if (approveSituationResponseTraits(kind, traits, enablements)) {
            if (m_proxyRespondToSituation(enablements, m_nonnativeInstantiatorID, -situationID, L"%s", description)
                == 0)
                throw 207;
        }
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 208);
    }
    return isSelfSatisfied();
}

// ---------------------------------------------------------------------------------------------
// Hyperlinks to code pages

const wchar_t* ZarnData::formatLogHyperlink(unsigned long code, unsigned int stringID, UTL_String& out) const
{
    const wchar_t* result = nullptr;
    bool entered = false;
    try {
        UTL_String format;
        out.clear();
        SetLastError(0);
        if (m_selfResourceModule == nullptr)
            throw 231;
        entered = enterCriticalSection();
        if (!entered)
            throw 56;
        // The scratchpad is the data set's, shared by every thread: it is touched under the lock only.
        m_scratchpad.setMemberVarsToDefaults(1, 8);
        if (format.loadFromModule(m_selfResourceModule, stringID, kResourceStringCharacters) < 1)
            throw 59;
        // The code is both the anchor and the visible text; the templates read it as 32 bits.
        const DWORD number = static_cast<DWORD>(code);
        if (_snwprintf(m_scratchpad.m_scratchB, ZarnScratchpad::kCharacters - 1, format.wideText(), number, number)
            < 1)
            throw 58;
        out = UTL_String(m_scratchpad.m_scratchB);
        result = out.wideText();
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 55);
    }
    if (entered) {
        m_scratchpad.setMemberVarsToDefaults(1, 8);
        if (!leaveCriticalSection() && isSelfSatisfied())
            m_selfDX_Code = 57;
    }
    if (!isSelfSatisfied()) {
        try {
            out.clear();
        } catch (...) {
        }
        result = nullptr;
        SetLastError(0);
    }
    return result;
}

// ---------------------------------------------------------------------------------------------
// The log file's record and its byte limit

bool ZarnData::isValidLogFileNomenclature(ZarnDataFile& file)
{
    int dxCode = 0;
    return isValidLogFileNomenclature(file.m_logName, file.m_formName, file.m_logKind, 2, dxCode);
}

bool ZarnData::isValidLogFileNomenclature(const wchar_t* logName, const wchar_t* const formName, Zarn_LOG kind,
                                          int charSet, int& dxCode)
{
    (void)charSet; // both forms accept any character set
    dxCode = 0;
    if (kind == Zarn_LOG_UNSET)
        dxCode = 143;
    else if (logName == nullptr)
        dxCode = 134;
    else if (isInstantiatorRunningNatively() && logName[0] == L'\0')
        dxCode = 132;
    else if (formName != nullptr && formName[0] != L'\0'
             && (isInstantiatorRunningNatively() || logName[0] != L'\0') && _wcsicmp(logName, formName) == 0)
        dxCode = 135;
    return dxCode == 0;
}

bool ZarnData::isValidLogFileNomenclature(const char* logName, const char* const formName, Zarn_LOG kind,
                                          int charSet, int& dxCode)
{
    (void)charSet;
    dxCode = 0;
    if (kind == Zarn_LOG_UNSET)
        dxCode = 143;
    else if (logName == nullptr)
        dxCode = 134;
    else if (isInstantiatorRunningNatively() && logName[0] == '\0')
        dxCode = 132;
    else if (formName != nullptr && formName[0] != '\0'
             && (isInstantiatorRunningNatively() || logName[0] != '\0') && equalsIgnoringCase(logName, formName))
        dxCode = 135;
    return dxCode == 0;
}

bool ZarnData::recordLogFileNomenclature(wchar_t* logName, const wchar_t* formName, Zarn_LOG kind)
{
    try {
        setSelfDX_Code(0);
        if (!isValidLogFileNomenclature(logName, formName, kind, getCharSetExternal(), m_selfDX_Code))
            throw m_selfDX_Code;
        if (!duplicate_String(&m_fileLog.m_logName, logName, true))
            throw 133;
        if (!duplicate_String(&m_fileLog.m_formName, formName, true))
            throw 128;
        // Text logs pass validation but are not offered: only HTML is recorded.
        if (kind != Zarn_LOG_HTML)
            throw 143;
        m_fileLog.m_logKind = kind;
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 137);
    }
    return isSelfSatisfied();
}

bool ZarnData::recordLogFileNomenclature(char* logName, const char* formName, Zarn_LOG kind)
{
    try {
        setSelfDX_Code(0);
        if (!isValidLogFileNomenclature(logName, formName, kind, getCharSetExternal(), m_selfDX_Code))
            throw m_selfDX_Code;
        const UTL_String wideLogName(logName);
        const UTL_String wideFormName(formName);
        if (!duplicate_String(&m_fileLog.m_logName, wideLogName.wideText(), true))
            throw 133;
        if (!duplicate_String(&m_fileLog.m_formName, formName != nullptr ? wideFormName.wideText() : nullptr, true))
            throw 128;
        if (kind != Zarn_LOG_HTML)
            throw 143;
        m_fileLog.m_logKind = kind;
    } catch (...) {
        keepFirstDxCode(std::current_exception(), 137);
    }
    return isSelfSatisfied();
}
