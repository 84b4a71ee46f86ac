#include "platform/LastError.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

TEST(LastError, KeepsWhatWasSet)
{
    SetLastError(ERROR_MOD_NOT_FOUND);
    EXPECT_EQ(ERROR_MOD_NOT_FOUND, GetLastError());
    SetLastError(0xFFFFFFFFu);
    EXPECT_EQ(0xFFFFFFFFu, GetLastError());
    SetLastError(0);
    EXPECT_EQ(0u, GetLastError());
}

TEST(LastErrorConcurrency, EachThreadHasItsOwn)
{
    SetLastError(ERROR_NOT_OWNER);
    DWORD seenAtStart = 1;
    DWORD seenAfterSet = 0;
    std::thread other([&] {
        seenAtStart = GetLastError();
        SetLastError(ERROR_PROC_NOT_FOUND);
        seenAfterSet = GetLastError();
    });
    other.join();
    EXPECT_EQ(0u, seenAtStart);
    EXPECT_EQ(ERROR_PROC_NOT_FOUND, seenAfterSet);
    EXPECT_EQ(ERROR_NOT_OWNER, GetLastError());
}

} // namespace
