#include "AllocationSeams.h"

#include "platform/FormatMessage.h"
#include "platform/LastError.h"
#include "platform/LocalMemory.h"
#include "platform/Modules.h"

#include <dlfcn.h>

#include <cstdlib>
#include <new>

namespace {

thread_local bool t_countingAllocations = false;
thread_local long t_allocations = 0;
thread_local std::size_t t_failedArrayBytes = 0; // 0: none fails
thread_local int t_arrayFailures = 0;

void* allocateCounted(std::size_t bytes)
{
    if (t_countingAllocations)
        ++t_allocations;
    void* const block = std::malloc(bytes == 0 ? 1 : bytes);
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}

void* allocateArray(std::size_t bytes)
{
    if (t_failedArrayBytes != 0 && bytes == t_failedArrayBytes) {
        ++t_arrayFailures;
        throw std::bad_alloc();
    }
    return allocateCounted(bytes);
}

FormatterSeam* g_formatterSeam = nullptr;

const std::vector<DWORD> kOneClimb = {65536, 131072, 262144, 524288};

} // namespace

void* operator new(std::size_t bytes) { return allocateCounted(bytes); }
void* operator new[](std::size_t bytes) { return allocateArray(bytes); }
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept
{
    try {
        return allocateCounted(bytes);
    } catch (...) {
        return nullptr;
    }
}
void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept
{
    try {
        return allocateArray(bytes);
    } catch (...) {
        return nullptr;
    }
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t) noexcept { std::free(block); }

// Takes the place of the library's formatter for the whole program, and hands every call on to it.
DWORD FormatMessageW(DWORD flags, const void* source, DWORD messageId, DWORD languageId, wchar_t* buffer, DWORD size,
                     const u64* inserts)
{
    using Formatter = DWORD (*)(DWORD, const void*, DWORD, DWORD, wchar_t*, DWORD, const u64*);
    static const auto library = reinterpret_cast<Formatter>(dlsym(RTLD_NEXT, "_Z14FormatMessageWjPKvjjPwjPKm"));
    if (library == nullptr)
        std::abort();
    const DWORD count = library(flags, source, messageId, languageId, buffer, size, inserts);
    FormatterSeam* const seam = g_formatterSeam;
    if (seam == nullptr || (flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) == 0)
        return count;
    seam->allocatingSizes.push_back(size);
    wchar_t** const result = reinterpret_cast<wchar_t**>(buffer);
    if (count != 0 && seam->limitToSize && count + 1 > size) {
        *result = static_cast<wchar_t*>(LocalFree(*result));
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return 0;
    }
    if (count != 0 && seam->dropResultBuffer)
        *result = static_cast<wchar_t*>(LocalFree(*result));
    return count;
}

AllocationCount::AllocationCount()
{
    t_allocations = 0;
    t_countingAllocations = true;
}

AllocationCount::~AllocationCount()
{
    t_countingAllocations = false;
}

long AllocationCount::count() const
{
    return t_allocations;
}

FailedArrayAllocation::FailedArrayAllocation(std::size_t bytes)
{
    t_arrayFailures = 0;
    t_failedArrayBytes = bytes;
}

FailedArrayAllocation::~FailedArrayAllocation()
{
    t_failedArrayBytes = 0;
}

int FailedArrayAllocation::failures() const
{
    return t_arrayFailures;
}

ArmedFormatter::ArmedFormatter(FormatterSeam& seam)
{
    g_formatterSeam = &seam;
}

ArmedFormatter::~ArmedFormatter()
{
    g_formatterSeam = nullptr;
}

std::vector<DWORD> climbs(int count)
{
    std::vector<DWORD> sizes;
    for (int i = 0; i < count; ++i)
        sizes.insert(sizes.end(), kOneClimb.begin(), kOneClimb.end());
    return sizes;
}

QString memoryLimitationRow()
{
    wchar_t row[1024] = {};
    LoadStringW(GetModuleHandleW(L"zmu.dll"), 10034, row, 1024);
    return QString::fromWCharArray(row);
}
