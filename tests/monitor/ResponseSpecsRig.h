// What the tests of the response spec parsers share: an engine with its protected parts open, a data
// set for it, and the test module that serves one settable spec.
#pragma once

#include "MonitorRig.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>

namespace spec_test {

constexpr int kSituation = 4242;
constexpr int kArgsQty = 3;
constexpr int kPlugInsQty = 4;

// The two forgetters can be made to throw a few times, which is how a stage meets an exception that
// is not a code.
class SpecEngine : public monitor_test::OpenEngine
{
public:
    void forgetDescriptionFillers() override
    {
        if (fillersForgetThrows > 0) {
            --fillersForgetThrows;
            throw std::runtime_error("forgetDescriptionFillers");
        }
        ZarnDataForThread::forgetDescriptionFillers();
    }
    void forgetPlugInsIndirectIndices() override
    {
        if (plugInsForgetThrows > 0) {
            --plugInsForgetThrows;
            throw std::runtime_error("forgetPlugInsIndirectIndices");
        }
        ZarnDataForThread::forgetPlugInsIndirectIndices();
    }

    int fillersForgetThrows = 0;
    int plugInsForgetThrows = 0;
};

// A data set with three slots of each argument kind and, unless told otherwise, four plug-ins;
// and an engine on it, holding the situation kSituation.
struct SpecRig
{
    explicit SpecRig(int charSet = 2, bool withPlugIns = true)
    {
        dataSet.configure(charSet, kArgsQty);
        if (withPlugIns)
            dataSet.createPlugIns(kPlugInsQty);
        EXPECT_TRUE(engine.initialize(&dataSet)) << engine.getSelfDX_Code();
        engine.recordSituationID(kSituation);
    }

    monitor_test::OpenData dataSet;
    SpecEngine engine;
};

// The test module that serves one settable text as one string ID.
class SpecModule
{
public:
    SpecModule() : m_module(monitor_test::loadTestModule("libzmu_test_spec_parser.so"))
    {
        EXPECT_NE(m_module, nullptr);
        m_serve = reinterpret_cast<Serve>(GetProcAddress(m_module, "zmuSpecParserServe"));
        m_lastAskedID = reinterpret_cast<LastAskedID>(GetProcAddress(m_module, "zmuSpecParserLastAskedID"));
        EXPECT_NE(m_serve, nullptr);
        EXPECT_NE(m_lastAskedID, nullptr);
    }
    ~SpecModule()
    {
        if (m_module != nullptr)
            FreeLibrary(m_module);
    }
    SpecModule(const SpecModule&) = delete;
    SpecModule& operator=(const SpecModule&) = delete;

    HMODULE get() const { return m_module; }
    // A null text serves nothing.
    void serve(unsigned int id, const wchar_t* text) const { m_serve(id, text); }
    unsigned int lastAskedID() const { return m_lastAskedID(); }

private:
    using Serve = void (*)(unsigned int, const wchar_t*);
    using LastAskedID = unsigned int (*)();

    HMODULE m_module;
    Serve m_serve = nullptr;
    LastAskedID m_lastAskedID = nullptr;
};

// True if every character of the buffer is zero: a cut text can have a zero in front of its rest.
inline bool isZeroed(const wchar_t* buffer, std::size_t characters)
{
    return std::all_of(buffer, buffer + characters, [](wchar_t c) { return c == L'\0'; });
}

template <class Character>
u64 fillerOf(const Character* text)
{
    return static_cast<u64>(reinterpret_cast<std::uintptr_t>(text));
}

} // namespace spec_test
