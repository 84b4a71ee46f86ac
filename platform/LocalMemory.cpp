#include "platform/LocalMemory.h"

#include "platform/LastError.h"

#include <cstdint>
#include <cstdlib>

HLOCAL LocalAlloc(UINT flags, std::size_t bytes)
{
    if ((flags & ~LMEM_ZEROINIT) != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    // Refused here rather than asked of malloc: no heap gives a block of half the address space,
    // and a sanitizer's allocator would stop the process instead of failing.
    if (bytes > static_cast<std::size_t>(PTRDIFF_MAX) / 2) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    const std::size_t blockBytes = bytes == 0 ? 1 : bytes;
    void* const block = (flags & LMEM_ZEROINIT) != 0 ? std::calloc(1, blockBytes) : std::malloc(blockBytes);
    if (block == nullptr)
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return block;
}

HLOCAL LocalFree(HLOCAL memory)
{
    std::free(memory);
    return nullptr;
}
