#include "platform/Environment.h"

#include "PlatformRig.h"

#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string>
#include <utility>

namespace {

// The size query, a buffer one short (nothing written), and the exact size.
TEST(EnvironmentExpansion, ReplacesDefinedReferencesAndKeepsUndefinedOnes)
{
    ::setenv("ZMU_ENV_A", "alpha", 1);
    ::setenv("ZMU_ENV_EMPTY", "", 1);
    ::setenv("ZMU_ENV_WIDE", "caf\xC3\xA9", 1);
    ::unsetenv("ZMU_ENV_UNSET");
    const std::pair<const char*, const char*> rows[] = {
        {"plain text", "plain text"},      {"", ""},
        {"x%ZMU_ENV_A%y", "xalphay"},      {"%ZMU_ENV_A%%ZMU_ENV_A%", "alphaalpha"},
        {"[%ZMU_ENV_EMPTY%]", "[]"},       {"%ZMU_ENV_WIDE%!", "caf\xC3\xA9!"},
        {"a%ZMU_ENV_UNSET%b", "a%ZMU_ENV_UNSET%b"},
        {"%ZMU_ENV_UNSET%ZMU_ENV_A%", "%ZMU_ENV_UNSET%ZMU_ENV_A%"}, // the undefined reference takes its closing %
        {"%ZMU_ENV_UNSET%%ZMU_ENV_A%", "%ZMU_ENV_UNSET%alpha"},
        {"100% sure", "100% sure"},        {"%ZMU_ENV_A%%", "alpha%"},
        {"%%", "%%"},                      {"%zmu_env_a%", "%zmu_env_a%"}, // names are case sensitive
    };
    for (const auto& [source, expected] : rows) {
        SCOPED_TRACE(source);
        const DWORD needed = DWORD(std::strlen(expected) + 1);
        std::string buffer(needed, '#');
        EXPECT_EQ(ExpandEnvironmentStringsA(source, nullptr, 0), needed);
        EXPECT_EQ(ExpandEnvironmentStringsA(source, &buffer[0], needed - 1), needed);
        EXPECT_EQ(buffer[0], '#');
        EXPECT_EQ(ExpandEnvironmentStringsA(source, &buffer[0], needed), needed);
        EXPECT_EQ(buffer, std::string(expected, needed));
    }
    // The wide form reads names and values as UTF-8 and counts characters.
    wchar_t wide[8] = L"#";
    EXPECT_EQ(ExpandEnvironmentStringsW(L"a%ZMU_ENV_UNSET%b", wide, 8), 18u);
    EXPECT_EQ(wide[0], L'#');
    EXPECT_EQ(ExpandEnvironmentStringsW(L"%ZMU_ENV_WIDE%%ZMU_ENV_A%", wide, 8), 10u);
    EXPECT_EQ(ExpandEnvironmentStringsW(L"%ZMU_ENV_WIDE%!", wide, 8), 6u);
    EXPECT_STREQ(wide, L"caf\xE9!");
    for (const char* name : {"ZMU_ENV_A", "ZMU_ENV_EMPTY", "ZMU_ENV_WIDE"})
        ::unsetenv(name);

    EXPECT_EQ(platform_test::outcomeOf([&] { return ExpandEnvironmentStringsW(nullptr, wide, 8) != 0; }), 87u);
    EXPECT_EQ(platform_test::outcomeOf([] { return ExpandEnvironmentStringsA(nullptr, nullptr, 0) != 0; }), 87u);
}

// $TMPDIR if set and not empty, else /tmp, with one trailing slash.
TEST(TempPath, FollowsTmpdirWithOneTrailingSlash)
{
    const char* saved = std::getenv("TMPDIR");
    const std::string old = saved != nullptr ? saved : "";
    const std::pair<const char*, const wchar_t*> rows[] = {
        {nullptr, L"/tmp/"}, {"", L"/tmp/"}, {"/var/tmp", L"/var/tmp/"}, {"/var/tmp/", L"/var/tmp/"},
        {"/tmp/caf\xC3\xA9", L"/tmp/caf\xE9/"}};
    for (const auto& [tmpdir, expected] : rows) {
        SCOPED_TRACE(tmpdir != nullptr ? tmpdir : "unset");
        tmpdir != nullptr ? ::setenv("TMPDIR", tmpdir, 1) : ::unsetenv("TMPDIR");
        const DWORD length = DWORD(std::wcslen(expected));
        wchar_t buffer[64];
        EXPECT_EQ(GetTempPathW(64, buffer), length);
        EXPECT_EQ(std::wstring(buffer), expected);
        EXPECT_EQ(GetTempPathW(length, buffer), length + 1); // no room for the terminator
        EXPECT_EQ(GetTempPathW(0, nullptr), length + 1);
        EXPECT_EQ(GetTempPathW(length + 1, buffer), length);
    }
    saved != nullptr ? ::setenv("TMPDIR", old.c_str(), 1) : ::unsetenv("TMPDIR");
    EXPECT_EQ(platform_test::outcomeOf([] { return GetTempPathW(8, nullptr) != 0; }), 87u);
}

} // namespace
