#include "platform/LocalMemory.h"

#include "platform/LastError.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

TEST(LocalMemory, ZeroInitialisedBlocksAreZero)
{
    constexpr std::size_t kBytes = 4096;
    auto* const block = static_cast<unsigned char*>(LocalAlloc(LMEM_ZEROINIT, kBytes));
    ASSERT_NE(block, nullptr);
    std::size_t nonZero = 0;
    for (std::size_t i = 0; i < kBytes; ++i)
        nonZero += block[i] != 0;
    EXPECT_EQ(nonZero, 0u);
    EXPECT_EQ(LocalFree(block), nullptr);
}

TEST(LocalMemory, EmptyBlocksAreDistinct)
{
    HLOCAL first = LocalAlloc(LMEM_FIXED, 0);
    HLOCAL second = LocalAlloc(LMEM_FIXED, 0);
    ASSERT_NE(first, nullptr);
    EXPECT_NE(first, second);
    EXPECT_EQ(LocalFree(first), nullptr);
    EXPECT_EQ(LocalFree(second), nullptr);
}

TEST(LocalMemory, FailuresSetTheLastError)
{
    struct Row
    {
        const char* name;
        UINT flags;
        std::size_t bytes;
        DWORD error;
    };
    const Row rows[] = {
        {"movable", 0x2, 16, ERROR_INVALID_PARAMETER},
        {"unknown flag", LMEM_ZEROINIT | 0x1000, 16, ERROR_INVALID_PARAMETER},
        {"more than memory", LMEM_FIXED, SIZE_MAX, ERROR_NOT_ENOUGH_MEMORY},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        SetLastError(0);
        EXPECT_EQ(LocalAlloc(row.flags, row.bytes), nullptr);
        EXPECT_EQ(GetLastError(), row.error);
    }
}

TEST(LocalMemory, SuccessLeavesTheLastErrorAndNullIsIgnored)
{
    SetLastError(1234);
    HLOCAL block = LocalAlloc(LMEM_FIXED, 8);
    EXPECT_NE(block, nullptr);
    EXPECT_EQ(LocalFree(block), nullptr);
    EXPECT_EQ(LocalFree(nullptr), nullptr);
    EXPECT_EQ(GetLastError(), 1234u);
}
