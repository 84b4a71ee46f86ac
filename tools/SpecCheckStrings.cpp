// The resource module of the spec checker: a string table that the checker fills at run time with
// the rows of a string-table script. The library loads a script's specs and affixes from it as it
// would from a module built from the script, through the exported ZRLoadStringW.
//
// One table per process: the last rows served are the ones answered.
#include <algorithm>
#include <cstddef>
#include <cwchar>

namespace {
const unsigned int* g_ids = nullptr;
const wchar_t* const* g_texts = nullptr;
const unsigned long* g_lengths = nullptr;
std::size_t g_count = 0;
} // namespace

// Serves `count` rows from now on, their ids ascending. The arrays stay the caller's and must live
// as long as they are served; a count of 0 serves nothing.
extern "C" __attribute__((visibility("default"))) void zmuSpecCheckServeRows(const unsigned int* ids,
                                                                            const wchar_t* const* texts,
                                                                            const unsigned long* lengths,
                                                                            std::size_t count)
{
    g_ids = ids;
    g_texts = texts;
    g_lengths = lengths;
    g_count = ids != nullptr && texts != nullptr && lengths != nullptr ? count : 0;
}

// Like a string table: the text cut to bufferMax - 1 characters and terminated. An id it does not
// hold leaves the buffer untouched and returns 0; an empty text is written and returns 0.
extern "C" __attribute__((visibility("default"))) int ZRLoadStringW(unsigned int id, wchar_t* buffer, int bufferMax)
{
    if (buffer == nullptr || bufferMax < 1 || g_count == 0)
        return 0;
    const unsigned int* const end = g_ids + g_count;
    const unsigned int* const row = std::lower_bound(g_ids, end, id);
    if (row == end || *row != id)
        return 0;
    const std::size_t index = static_cast<std::size_t>(row - g_ids);
    std::size_t count = g_lengths[index];
    if (count >= static_cast<std::size_t>(bufferMax))
        count = static_cast<std::size_t>(bufferMax) - 1;
    std::wmemcpy(buffer, g_texts[index], count);
    buffer[count] = L'\0';
    return static_cast<int>(count);
}
