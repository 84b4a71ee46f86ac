// What the monitor's tests share: the engine and the data set with their protected parts open, an
// engine whose stages are scripted, the test modules, and the process's log directory for a while.
#pragma once

#include "foundation/CriticalSection.h"
#include "monitor/ZarnData.h"
#include "monitor/ZarnDataForThread.h"
#include "platform/Modules.h"

#include <cwchar>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace monitor_test {

constexpr i64 kNonnative = 77;

inline HMODULE loadTestModule(const char* file)
{
    const std::string path = std::string(ZMU_TEST_MODULE_DIR "/") + file;
    return LoadLibraryW(std::wstring(path.begin(), path.end()).c_str());
}

// The engine with its protected parts open.
struct OpenEngine : ZarnDataForThread
{
    using ZarnDataForThread::createArgsInt, ZarnDataForThread::createArgsStr, ZarnDataForThread::createArgsStrA,
        ZarnDataForThread::createArgsStrW;
    using ZarnDataForThread::m_argSource, ZarnDataForThread::m_argsIntCount, ZarnDataForThread::m_argsStrA,
        ZarnDataForThread::m_argsStrW, ZarnDataForThread::m_dataSet, ZarnDataForThread::m_descriptionDisplayIsDupe,
        ZarnDataForThread::m_descriptionDisplayLineWd, ZarnDataForThread::m_descriptionForDisplay,
        ZarnDataForThread::m_descriptionForLogFile, ZarnDataForThread::m_descriptionLogFileLineWd,
        ZarnDataForThread::m_displayDlgBoxResult, ZarnDataForThread::m_displayDlgBoxSpecA,
        ZarnDataForThread::m_displayDlgBoxSpecB, ZarnDataForThread::m_displayDlgBoxType,
        ZarnDataForThread::m_plugInsIndirectIndices, ZarnDataForThread::m_plugInsIndirectQty,
        ZarnDataForThread::m_responseSpecHeader, ZarnDataForThread::m_scratchpad,
        ZarnDataForThread::m_situationApprovalKind, ZarnDataForThread::m_situationResponseTraits,
        ZarnDataForThread::m_specStrictness, ZarnDataForThread::m_tokenSeparator;

    void setDescriptions(const wchar_t* display, const wchar_t* logFile)
    {
        std::wcsncpy(m_descriptionForDisplay, display, kDisplayCharacters - 1);
        std::wcsncpy(m_descriptionForLogFile, logFile, kLogFileCharacters - 1);
    }
};

// The data set with its protected parts open: its lock can be refused, and its engines come from
// `makeEngine` when one is given.
struct OpenData : ZarnData
{
    explicit OpenData(i64 instantiatorID = 0) : ZarnData(instantiatorID) {}
    using ZarnData::findDataForCurrentThread, ZarnData::isValidLogFileNomenclature;
    using ZarnData::m_criticalSection, ZarnData::m_descriptionDisplayLineWd, ZarnData::m_descriptionFillersQty,
        ZarnData::m_descriptionLogFileLineWd, ZarnData::m_fileLog, ZarnData::m_logFileByteCountLimit,
        ZarnData::m_plugIns, ZarnData::m_plugInsQty, ZarnData::m_proxyModule, ZarnData::m_proxyRespondToSituation,
        ZarnData::m_scratchpad, ZarnData::m_sizeMapOfDataForThreads;

    // A data set as an owner configures it: a character set and `qty` slots of each argument kind.
    OpenData& configure(int charSet, int qty)
    {
        if (charSet >= 0)
            setCharSetExternal(charSet);
        setArgsIntQty(qty);
        setArgsStrQty(qty);
        setArgsUIntQty(qty);
        return *this;
    }
    // The calling thread's engine, as the type that makeEngine makes.
    template <class Engine>
    Engine* engine() const
    {
        return static_cast<Engine*>(findDataForCurrentThread());
    }

    bool enterCriticalSection() const override { return !refuseLock && ZarnData::enterCriticalSection(); }
    bool leaveCriticalSection() const override { return ZarnData::leaveCriticalSection() && !refuseLeave; }

    bool refuseLock = false;
    bool refuseLeave = false;
    std::function<ZarnDataForThread*()> makeEngine;

protected:
    ZarnDataForThread* newDataForThread() const override
    {
        return makeEngine ? makeEngine() : ZarnData::newDataForThread();
    }
};

// What the stages of a ScriptedEngine do: each records its name, then fails with its scripted code,
// raises something that is not a code, succeeds without working (skipped), or does the engine's work.
struct Script
{
    std::vector<std::string> calls;
    std::map<std::string, int> failures;
    std::string throwing;
    std::vector<std::string> skipped;
    int namedPlugIns = 0; // what the header names, since the header parser forgets the plug-ins first
    int lockEntries = 0;  // by the engine itself
    CriticalSection* section = nullptr;
    bool lockHeldWhileReporting = false;
    // What the description stage found behind its cursor (a signed argument and a string), and the
    // data set's resource module at that moment.
    u64 firstArg = 0;
    u64 secondArg = 0;
    HMODULE module = nullptr;

    void reset()
    {
        calls.clear();
        failures.clear();
        throwing.clear();
        skipped.clear();
        lockEntries = 0;
    }
};

#define ZMU_SCRIPTED_STAGE(name, label) \
    bool name() override { return stage(label, [&] { return OpenEngine::name(); }); }

class ScriptedEngine : public OpenEngine
{
public:
    explicit ScriptedEngine(Script& script) : m_script(script) {}

    ZMU_SCRIPTED_STAGE(learnResponse, "learnResponse")
    ZMU_SCRIPTED_STAGE(parseDescriptionSpecLogFile, "parseDescriptionSpecLogFile")
    ZMU_SCRIPTED_STAGE(parseDescriptionSpecDisplay, "parseDescriptionSpecDisplay")
    ZMU_SCRIPTED_STAGE(formatDescriptions, "formatDescriptions")
    ZMU_SCRIPTED_STAGE(formatDescriptionForLogFile, "formatDescriptionForLogFile")
    ZMU_SCRIPTED_STAGE(formatDescriptionForDisplay, "formatDescriptionForDisplay")
    ZMU_SCRIPTED_STAGE(activatePlugIns, "activatePlugIns")
    ZMU_SCRIPTED_STAGE(forgetSituation, "forgetSituation")
    ZMU_SCRIPTED_STAGE(reportDescriptionToLogFileDirectly, "direct")
    ZMU_SCRIPTED_STAGE(reportDescriptionToLogFileIndirectly, "indirect")
    ZMU_SCRIPTED_STAGE(reportDescriptionToDisplay, "display")
    bool learnResponseSpecs(u64* f) override
    {
        return stage("learnResponseSpecs", [&] { return OpenEngine::learnResponseSpecs(f); });
    }
    bool parseResponseSpecs(u64* f) override
    {
        return stage("parseResponseSpecs", [&] { return OpenEngine::parseResponseSpecs(f); });
    }
    void forgetArgs() override { stage("forgetArgs", [&] { OpenEngine::forgetArgs(); return true; }); }

    bool describeSituation() override
    {
        ZarnArgCursor* cursor = getDescriptionArgV();
        m_script.firstArg = cursor->isEmpty() ? 0 : cursor->nextSigned();
        m_script.secondArg = cursor->isEmpty() ? 0 : cursor->nextString();
        m_script.module = getDataSet()->getResourceModule();
        return stage("describeSituation", [&] { return OpenEngine::describeSituation(); });
    }
    // Stands in for the string load, which has no specs to serve in the process image: a header of
    // kind 2 and a log text with blank width and affixes.
    bool obtainResponseSpecs() override
    {
        return stage("obtainResponseSpecs", [&] {
            std::wcscpy(m_responseSpecHeader, L"2~536870912");
            std::wcscpy(m_descriptionForLogFile, L"``log text");
            return isSelfSatisfied();
        });
    }
    bool parseResponseSpecHeader(u64* f) override
    {
        return stage("parseResponseSpecHeader", [&] {
            const bool parsed = OpenEngine::parseResponseSpecHeader(f);
            m_plugInsIndirectQty = m_script.namedPlugIns;
            return parsed;
        });
    }
    bool reportDescriptions() override
    {
        return stage("reportDescriptions", [&] {
            // Held by this thread if one release succeeds; it is taken again at once.
            m_script.lockHeldWhileReporting = m_script.section != nullptr && m_script.section->unlock();
            if (m_script.lockHeldWhileReporting)
                m_script.section->lock();
            return OpenEngine::reportDescriptions();
        });
    }
    bool enterCriticalSection() const override
    {
        ++m_script.lockEntries;
        return OpenEngine::enterCriticalSection();
    }

private:
    template <class Work>
    bool stage(const std::string& name, Work work)
    {
        m_script.calls.push_back(name);
        if (m_script.throwing == name)
            throw std::runtime_error(name);
        for (const std::string& skipped : m_script.skipped)
            if (skipped == name)
                return true;
        const auto failure = m_script.failures.find(name);
        if (failure == m_script.failures.end())
            return work();
        if (isSelfSatisfied())
            setSelfDX_Code(failure->second);
        return false;
    }

    Script& m_script;
};
#undef ZMU_SCRIPTED_STAGE

// The test proxy module "cs4s3.dll", loaded for the holder's life, and the records of its last call.
struct ProxyModule
{
    ProxyModule()
    {
        if (loaded())
            reset();
    }
    ~ProxyModule()
    {
        if (loaded())
            reset();
        if (module != nullptr)
            FreeLibrary(module);
    }
    ProxyModule(const ProxyModule&) = delete;
    ProxyModule& operator=(const ProxyModule&) = delete;

    bool loaded() const { return module != nullptr && entry("zmuProxyReset") != nullptr; }
    void reset() const { reinterpret_cast<void (*)()>(entry("zmuProxyReset"))(); }
    int& count() const { return record<int>("zmuProxyCallCount"); }
    int& refuses() const { return record<int>("zmuProxyRefuses"); }
    unsigned int enablements() const { return record<unsigned int>("zmuProxyLastEnablements"); }
    long long instantiator() const { return record<long long>("zmuProxyLastInstantiatorID"); }
    int negatedID() const { return record<int>("zmuProxyLastNegatedSituationID"); }
    const wchar_t* format() const { return &record<wchar_t>("zmuProxyLastFormat"); }
    const wchar_t* description() const { return &record<wchar_t>("zmuProxyLastDescription"); }

    const HMODULE module = loadTestModule("libcs4s3.so");

private:
    FARPROC entry(const char* name) const { return GetProcAddress(module, name); }
    template <class T>
    T& record(const char* name) const
    {
        return *reinterpret_cast<T*>(entry(name));
    }
};

// Makes `directory` (ending in '/') the process's log directory, where the successor of a replaced
// log is named, and restores the previous one at the end.
class ScopedLogDirectory
{
public:
    explicit ScopedLogDirectory(const std::wstring& directory) : m_previous(ZarnData::getLogDirectory())
    {
        record(directory);
    }
    ~ScopedLogDirectory() { record(m_previous); }
    ScopedLogDirectory(const ScopedLogDirectory&) = delete;
    ScopedLogDirectory& operator=(const ScopedLogDirectory&) = delete;

private:
    static void record(const std::wstring& directory)
    {
        ZarnData::setLogVariables(directory.c_str(), ZarnData::getLogOutputLevel(), ZarnData::getLogBackupEnabled(),
                                  ZarnData::getLogMaxFileSize(), ZarnData::getLogMaxFileAge());
    }

    std::wstring m_previous;
};

} // namespace monitor_test
