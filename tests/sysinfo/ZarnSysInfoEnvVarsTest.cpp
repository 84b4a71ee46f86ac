#include "sysinfo/ZarnSysInfoEnvVars.h"

#include <QProcessEnvironment>

#include <gtest/gtest.h>

#include <initializer_list>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int kTextQty = 4096;

// Every pair of one walk, caption first, in order.
std::vector<std::pair<std::wstring, std::wstring>> walk(ZarnSysInfo& source)
{
    std::vector<std::pair<std::wstring, std::wstring>> pairs;
    std::vector<wchar_t> caption(kTextQty), datum(kTextQty);
    for (bool more = source.getFirstDataPair(caption.data(), datum.data(), kTextQty, kTextQty); more;
         more = source.getNextDataPair(caption.data(), datum.data(), kTextQty, kTextQty))
        pairs.emplace_back(caption.data(), datum.data());
    return pairs;
}

// Variables set for one test, removed afterwards.
struct TestVariables
{
    TestVariables(std::initializer_list<std::pair<const char*, const char*>> set) : variables(set)
    {
        for (const auto& [name, value] : variables)
            qputenv(name, value);
    }
    ~TestVariables()
    {
        for (const auto& variable : variables)
            qunsetenv(variable.first);
    }
    std::vector<std::pair<const char*, const char*>> variables;
};

} // namespace

// Each variable once, an empty value kept, and the datum cut at a second "=" on purpose.
TEST(ZarnSysInfoEnvVars, ReportsEveryVariableOnce)
{
    const TestVariables set({{"ZMU_TEST_CUT", "B=C"}, {"ZMU_TEST_EMPTY", ""}});
    ZarnSysInfoEnvVars source;
    const auto pairs = walk(source);
    EXPECT_EQ(pairs.size(), size_t(QProcessEnvironment::systemEnvironment().keys().size()));
    const std::map<std::wstring, std::wstring> byName(pairs.begin(), pairs.end());
    EXPECT_EQ(byName.size(), pairs.size()) << "a variable came twice";
    EXPECT_EQ(byName.at(L"ZMU_TEST_CUT"), L"B");
    EXPECT_EQ(byName.at(L"ZMU_TEST_EMPTY"), L"");
}

TEST(ZarnSysInfoEnvVars, ListIsTakenAtConstruction)
{
    const TestVariables before({{"ZMU_TEST_BEFORE", "here"}});
    ZarnSysInfoEnvVars source;
    const TestVariables after({{"ZMU_TEST_AFTER", "too late"}});
    qunsetenv("ZMU_TEST_BEFORE");
    const auto pairs = walk(source);
    const std::map<std::wstring, std::wstring> byName(pairs.begin(), pairs.end());
    EXPECT_EQ(byName.count(L"ZMU_TEST_BEFORE"), 1u);
    EXPECT_EQ(byName.count(L"ZMU_TEST_AFTER"), 0u);
}

TEST(ZarnSysInfoEnvVars, EmptyEnvironmentEndsTheWalkAtOnce)
{
    // Removed by name and put back: clearenv would leave no environment array at all, which the
    // system environment's reader does not expect.
    const QProcessEnvironment saved = QProcessEnvironment::systemEnvironment();
    for (const QString& name : saved.keys())
        qunsetenv(name.toLocal8Bit().constData());
    ZarnSysInfoEnvVars source;
    for (const QString& name : saved.keys())
        qputenv(name.toLocal8Bit().constData(), saved.value(name).toLocal8Bit());

    EXPECT_TRUE(walk(source).empty());
    wchar_t category[32] = {};
    EXPECT_EQ(source.getCategory(category, 32), 22);
    EXPECT_EQ(std::wstring(category), L"Environment Variables");
}

// The walk advances whatever m_updatePosition says, and getFirstDataPair starts it again.
TEST(ZarnSysInfoEnvVars, WalkIgnoresTheUpdateFlagAndRewinds)
{
    const TestVariables set({{"ZMU_TEST_W1", "1"}, {"ZMU_TEST_W2", "2"}});
    ZarnSysInfoEnvVars source;
    const auto first = walk(source);
    source.setShouldUpdateCurrentPosition(false);
    EXPECT_EQ(walk(source), first);
}
