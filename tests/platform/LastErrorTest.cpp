#include "platform/LastError.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

// Each thread keeps its own value, 0 at its start.
TEST(LastErrorConcurrency, EachThreadHasItsOwn)
{
    SetLastError(0xFFFFFFFFu);
    EXPECT_EQ(GetLastError(), 0xFFFFFFFFu);
    SetLastError(ERROR_NOT_OWNER);
    DWORD seenAtStart = 1;
    DWORD seenAfterSet = 0;
    std::thread([&] {
        seenAtStart = GetLastError();
        SetLastError(ERROR_PROC_NOT_FOUND);
        seenAfterSet = GetLastError();
    }).join();
    EXPECT_EQ(seenAtStart, 0u);
    EXPECT_EQ(seenAfterSet, ERROR_PROC_NOT_FOUND);
    EXPECT_EQ(GetLastError(), ERROR_NOT_OWNER);
}

} // namespace
