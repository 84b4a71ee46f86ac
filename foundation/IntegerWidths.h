// The integer names the library uses where a width matters.
#pragma once

#include <cstdint>

using u8 = std::uint8_t;
using u64 = std::uint64_t;
using i64 = std::int64_t;
