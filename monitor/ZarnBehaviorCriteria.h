// The layout shared by the behaviour criteria word of a monitor and the response traits of a situation.
//
// Bits 63 to 61 are the respond mask; seven 4-bit level fields start at bit 25. In the criteria a
// field holds the highest level that passes (0: never); in the traits, the situation's level.
#pragma once

#include "foundation/IntegerWidths.h"

constexpr u64 ZARN_RESPOND_MASK = 0xE000000000000000ULL;
constexpr u64 ZARN_DEFAULT_BEHAVIOR_CRITERIA = 0xE00001E1E0000000ULL;
constexpr u64 ZARN_DEFAULT_RESPONSE_TRAITS = 0x20000000ULL;

// Position of argument slots in recordArgument: the next free slot.
constexpr int ZARN_ARG_NEXT = 0x7FFFFFFF;

// One level field: its mask before shifting, its shift, and the enablement bit that stands for it in
// the word spoken with the proxy and in the settings (0: the field has none).
struct ZarnLevelField
{
    u64 mask;
    u64 shift;
    unsigned int enablement;
};

// In the order in which approval tries them.
constexpr ZarnLevelField kZarnLevelFields[] = {
    {15, 25, 8}, {15, 29, 2}, {15, 33, 32}, {15, 37, 1}, {15, 41, 0}, {15, 45, 16}, {15, 49, 4},
};
