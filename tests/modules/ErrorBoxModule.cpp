// A resource module with version data, for the error box: its file version, product name and the
// texts of a few error numbers.
#include "StringRows.h"

namespace {
const StringRow kRows[] = {
    {5, L"Five went wrong."},
    {2042, L"The journal could not be opened."},
    {2043, L""},
};
} // namespace

extern "C" __attribute__((visibility("default"))) int ZRLoadStringW(unsigned int id, wchar_t* buffer, int bufferMax)
{
    return serveStringRow(kRows, id, buffer, bufferMax);
}
