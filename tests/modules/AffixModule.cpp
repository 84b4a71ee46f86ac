// A resource module for the tests of description affixes: serves affix strings from ID 700 on
// through the exported string loader, as an owner's resource module does.
#include "StringRows.h"

namespace {
const StringRow kRows[] = {
    {700, L"[prefix] "},
    {701, L" [suffix]"},
    // An affix with an insert of its own: formatting runs after the affixes are in place.
    {702, L"<%1!u!>"},
    // Present and empty: an affix that adds nothing is refused.
    {703, L""},
    // Long enough to be cut by the room left in a target.
    {704, L"0123456789012345678901234567890123456789"},
    // 705 is missing on purpose.
};
} // namespace

extern "C" __attribute__((visibility("default"))) int ZRLoadStringW(unsigned int id, wchar_t* buffer, int bufferMax)
{
    return serveStringRow(kRows, id, buffer, bufferMax);
}
