// A resource module for tests: serves a few strings through the exported string loader.
#include "StringRows.h"

namespace {
const StringRow kRows[] = {
    {1, L"one"},
    {2, L""},
    {7, L"seven: a longer text for truncation"},
    {10006, L"1~-1~2~u`s~||``test series note %1!u! %2!s!`"},
};
} // namespace

extern "C" __attribute__((visibility("default"))) int ZRLoadStringW(unsigned int id, wchar_t* buffer, int bufferMax)
{
    return serveStringRow(kRows, id, buffer, bufferMax);
}

extern "C" __attribute__((visibility("default"))) int zmuTestModuleMarker()
{
    return 42;
}
