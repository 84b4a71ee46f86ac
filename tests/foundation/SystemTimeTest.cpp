#include "foundation/SystemTime.h"
#include "foundation/UTL_String.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <cwchar>
#include <string>

// The text is built from the calendar fields, so one comparison checks them all.
TEST(SystemTime, ReadsTheMomentInTheLocalZone)
{
    const char* savedZone = std::getenv("TZ");
    const std::string saved = savedZone != nullptr ? savedZone : "";
    // XST5 is five hours behind UTC, YST-9 nine hours ahead.
    const struct { const char* zone; long long moment; const wchar_t* text; } rows[] = {
        {"UTC", 0, L"1970-01-01_00-00-00"}, {"XST5", 0, L"1969-12-31_19-00-00"},
        {"YST-9", 0, L"1970-01-01_09-00-00"}, {"UTC", 951868799, L"2000-02-29_23-59-59"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.zone) + " " + std::to_string(row.moment));
        ::setenv("TZ", row.zone, 1);
        ::tzset();
        const zr::SystemTime stamp(row.moment);
        const UTL_String text = stamp;
        EXPECT_EQ(static_cast<long long>(stamp), row.moment);
        EXPECT_STREQ(text.wideText(), row.text);
    }
    savedZone != nullptr ? ::setenv("TZ", saved.c_str(), 1) : ::unsetenv("TZ");
    ::tzset();
}

TEST(SystemTime, DefaultIsTheCurrentMoment)
{
    const std::time_t before = std::time(nullptr);
    const zr::SystemTime now;
    const std::time_t stamped = std::time_t(static_cast<long long>(now));
    EXPECT_GE(stamped, before);
    EXPECT_LE(stamped, std::time(nullptr));
    wchar_t expected[64];
    std::wcsftime(expected, 64, L"%Y-%m-%d_%H-%M-%S", std::localtime(&stamped));
    const UTL_String text = now;
    EXPECT_STREQ(text.wideText(), expected);
}
