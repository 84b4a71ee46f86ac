#include "platform/LocalMemory.h"

#include "PlatformRig.h"

#include <algorithm>
#include <cstdint>

namespace {

using platform_test::kUntouched;

// Zeroed under LMEM_ZEROINIT (the sanitizers' allocator fills a block otherwise); a block of no
// bytes is still one of its own.
TEST(LocalMemory, ZeroInitialisedAndEmptyBlocks)
{
    auto* const block = static_cast<unsigned char*>(LocalAlloc(LMEM_ZEROINIT, 4096));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(std::count(block, block + 4096, 0), 4096);
    EXPECT_EQ(LocalFree(block), nullptr);
    HLOCAL first = LocalAlloc(LMEM_FIXED, 0);
    HLOCAL second = LocalAlloc(LMEM_FIXED, 0);
    ASSERT_NE(first, nullptr);
    EXPECT_NE(first, second);
    LocalFree(first);
    LocalFree(second);
}

TEST(LocalMemory, FailuresSetTheLastErrorAndSuccessLeavesIt)
{
    HLOCAL block = nullptr;
    platform_test::expectOutcomes({
        {"movable", [] { return LocalAlloc(0x2, 16) != nullptr; }, ERROR_INVALID_PARAMETER},
        {"unknown flag", [] { return LocalAlloc(LMEM_ZEROINIT | 0x1000, 16) != nullptr; }, ERROR_INVALID_PARAMETER},
        {"more than memory", [] { return LocalAlloc(LMEM_FIXED, SIZE_MAX) != nullptr; }, ERROR_NOT_ENOUGH_MEMORY},
        {"allocate", [&] { return (block = LocalAlloc(LMEM_FIXED, 8)) != nullptr; }, kUntouched},
        {"free", [&] { return LocalFree(block) == nullptr; }, kUntouched},
        {"free null", [] { return LocalFree(nullptr) == nullptr; }, kUntouched},
    });
}

} // namespace
