// The two seams that only the memory tests of the log engine have: the global operator new,
// counted on the calling thread and made to fail for one size on request, and the message
// formatter, which here keeps an allocated result within the size asked for, as the Windows
// formatter does.
#pragma once

#include "platform/WinTypes.h"

#include <QString>

#include <cstddef>
#include <vector>

// Counts the operator new calls of this thread while it lives.
class AllocationCount
{
public:
    AllocationCount();
    ~AllocationCount();
    long count() const;
};

// Makes every array new of exactly `bytes` bytes on this thread fail while it lives: the
// throwing form throws std::bad_alloc, the nothrow form returns null.
class FailedArrayAllocation
{
public:
    explicit FailedArrayAllocation(std::size_t bytes);
    ~FailedArrayAllocation();
    // How many allocations were refused so far.
    int failures() const;
};

// What the formatter seam does while a test arms it.
struct FormatterSeam
{
    bool limitToSize = false;      // an allocated result longer than `size` fails, as on Windows
    bool dropResultBuffer = false; // success is reported without a buffer
    std::vector<DWORD> allocatingSizes;
};

class ArmedFormatter
{
public:
    explicit ArmedFormatter(FormatterSeam& seam);
    ~ArmedFormatter();
};

// The sizes of `count` climbs of an allocating section from 65536 to 524288 characters.
std::vector<DWORD> climbs(int count);

// The row that takes the place of an injected text given up for lack of room.
QString memoryLimitationRow();
