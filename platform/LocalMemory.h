// Local memory blocks: the fixed blocks that FormatMessageW hands out and its callers free.
#pragma once

#include "platform/WinTypes.h"

#include <cstddef>

using HLOCAL = void*;

constexpr UINT LMEM_FIXED = 0x0;
constexpr UINT LMEM_ZEROINIT = 0x40;

// Like LocalAlloc with LMEM_FIXED: a block of `bytes` whose handle is its address, zeroed under
// LMEM_ZEROINIT; a size of 0 still gives a block of its own. Null with last error 8
// (ERROR_NOT_ENOUGH_MEMORY) when memory is short, and 87 for any other flag: movable blocks are
// not given out. Success leaves the last error as it was.
HLOCAL LocalAlloc(UINT flags, std::size_t bytes);

// Like LocalFree for a block of LocalAlloc: frees it and returns null; a null handle is ignored
// and also gives null. Does not touch the last error.
HLOCAL LocalFree(HLOCAL memory);
