#include "platform/Environment.h"
#include "platform/LastError.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace {

// Sets (or, with null, unsets) a variable for one test and puts back what was there.
class ScopedVariable
{
public:
    ScopedVariable(const char* name, const char* value) : m_name(name)
    {
        if (const char* old = std::getenv(name)) {
            m_hadValue = true;
            m_oldValue = old;
        }
        if (value != nullptr)
            ::setenv(name, value, 1);
        else
            ::unsetenv(name);
    }
    ~ScopedVariable()
    {
        if (m_hadValue)
            ::setenv(m_name.c_str(), m_oldValue.c_str(), 1);
        else
            ::unsetenv(m_name.c_str());
    }
    ScopedVariable(const ScopedVariable&) = delete;
    ScopedVariable& operator=(const ScopedVariable&) = delete;

private:
    std::string m_name;
    bool m_hadValue = false;
    std::string m_oldValue;
};

struct Expansion
{
    const char* name;
    const char* source;
    const char* expected;
};

// ZMU_ENV_A=alpha, ZMU_ENV_EMPTY= (set, empty), ZMU_ENV_WIDE=café, ZMU_ENV_UNSET unset.
const Expansion kExpansions[] = {
    {"no reference", "plain text", "plain text"},
    {"empty text", "", ""},
    {"whole text", "%ZMU_ENV_A%", "alpha"},
    {"inside text", "x%ZMU_ENV_A%y", "xalphay"},
    {"twice, back to back", "%ZMU_ENV_A%%ZMU_ENV_A%", "alphaalpha"},
    {"set but empty", "[%ZMU_ENV_EMPTY%]", "[]"},
    {"non-ASCII value", "%ZMU_ENV_WIDE%!", "caf\xC3\xA9!"},
    {"undefined stays", "a%ZMU_ENV_UNSET%b", "a%ZMU_ENV_UNSET%b"},
    {"undefined takes its closing %", "%ZMU_ENV_UNSET%ZMU_ENV_A%", "%ZMU_ENV_UNSET%ZMU_ENV_A%"},
    {"undefined, then defined", "%ZMU_ENV_UNSET%%ZMU_ENV_A%", "%ZMU_ENV_UNSET%alpha"},
    {"lone %", "100% sure", "100% sure"},
    {"trailing %", "%ZMU_ENV_A%%", "alpha%"},
    {"empty name", "%%", "%%"},
    {"names are case sensitive", "%zmu_env_a%", "%zmu_env_a%"},
};

class EnvironmentExpansion : public ::testing::Test
{
protected:
    ScopedVariable m_a{"ZMU_ENV_A", "alpha"};
    ScopedVariable m_empty{"ZMU_ENV_EMPTY", ""};
    ScopedVariable m_wide{"ZMU_ENV_WIDE", "caf\xC3\xA9"};
    ScopedVariable m_unset{"ZMU_ENV_UNSET", nullptr};
};

std::wstring widenAsciiOrLatin(const std::string& utf8)
{
    // The table's texts are ASCII except "é".
    std::wstring wide;
    for (std::size_t i = 0; i < utf8.size(); ++i) {
        if (utf8.compare(i, 2, "\xC3\xA9") == 0) {
            wide.push_back(L'\xE9');
            ++i;
        } else {
            wide.push_back(static_cast<wchar_t>(utf8[i]));
        }
    }
    return wide;
}

TEST_F(EnvironmentExpansion, WideFormExpandsAndCountsTheTerminator)
{
    for (const Expansion& row : kExpansions) {
        SCOPED_TRACE(row.name);
        const std::wstring source = widenAsciiOrLatin(row.source);
        const std::wstring expected = widenAsciiOrLatin(row.expected);
        const DWORD needed = static_cast<DWORD>(expected.size() + 1);
        EXPECT_EQ(needed, ExpandEnvironmentStringsW(source.c_str(), nullptr, 0));

        std::vector<wchar_t> exact(needed, L'#');
        EXPECT_EQ(needed, ExpandEnvironmentStringsW(source.c_str(), exact.data(), needed));
        EXPECT_EQ(expected, std::wstring(exact.data()));

        // One short: the size needed again, and nothing written.
        std::vector<wchar_t> small(needed, L'#');
        EXPECT_EQ(needed, ExpandEnvironmentStringsW(source.c_str(), small.data(), needed - 1));
        EXPECT_EQ(L'#', small[0]);
    }
}

TEST_F(EnvironmentExpansion, NarrowFormCountsBytes)
{
    for (const Expansion& row : kExpansions) {
        SCOPED_TRACE(row.name);
        const std::string expected = row.expected;
        const DWORD needed = static_cast<DWORD>(expected.size() + 1);
        EXPECT_EQ(needed, ExpandEnvironmentStringsA(row.source, nullptr, 0));
        std::vector<char> exact(needed, '#');
        EXPECT_EQ(needed, ExpandEnvironmentStringsA(row.source, exact.data(), needed));
        EXPECT_EQ(expected, std::string(exact.data()));
    }
}

TEST_F(EnvironmentExpansion, ValueIsTheSystemsValue)
{
    const char* path = std::getenv("PATH");
    ASSERT_NE(nullptr, path);
    char buffer[8192];
    const DWORD count = ExpandEnvironmentStringsA("%PATH%", buffer, sizeof buffer);
    ASSERT_LE(count, sizeof buffer);
    EXPECT_STREQ(path, buffer);
}

TEST_F(EnvironmentExpansion, NullSourceFails87)
{
    wchar_t wide[4];
    char narrow[4];
    SetLastError(0);
    EXPECT_EQ(0u, ExpandEnvironmentStringsW(nullptr, wide, 4));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, GetLastError());
    SetLastError(0);
    EXPECT_EQ(0u, ExpandEnvironmentStringsA(nullptr, narrow, 4));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, GetLastError());
}

TEST(TempPath, FollowsTmpdirWithOneTrailingSlash)
{
    struct Row
    {
        const char* name;
        const char* tmpdir; // null: unset
        const wchar_t* expected;
    };
    const Row rows[] = {
        {"unset", nullptr, L"/tmp/"},
        {"empty", "", L"/tmp/"},
        {"without slash", "/var/tmp", L"/var/tmp/"},
        {"with slash", "/var/tmp/", L"/var/tmp/"},
        {"non-ASCII", "/tmp/caf\xC3\xA9", L"/tmp/caf\xE9/"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ScopedVariable tmpdir("TMPDIR", row.tmpdir);
        const std::wstring expected = row.expected;
        const DWORD length = static_cast<DWORD>(expected.size());
        wchar_t buffer[64];
        EXPECT_EQ(length, GetTempPathW(64, buffer));
        EXPECT_EQ(expected, std::wstring(buffer));
        // No room for the terminator: the size needed, terminator included.
        EXPECT_EQ(length + 1, GetTempPathW(length, buffer));
        EXPECT_EQ(length + 1, GetTempPathW(0, nullptr));
        EXPECT_EQ(length, GetTempPathW(length + 1, buffer));
    }
    SetLastError(0);
    EXPECT_EQ(0u, GetTempPathW(8, nullptr));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, GetLastError());
}

} // namespace
