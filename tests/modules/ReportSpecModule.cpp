// A resource module for the tests of a situation's whole road: serves response specs and affixes
// through the exported string loader, as an owner's resource module does.
//
// Every message text has an explicit line width of 0 (the text as it stands) or 255 (only hard
// breaks), so that what a test expects does not depend on wrapping.
#include "StringRows.h"

namespace {
const StringRow kRows[] = {
    // Situation 0 exists here only so that the proxy road, and not the string load, refuses it.
    {0, L"1~0~2~s||0``Situation zero %1!s!"},
    // Cursor arguments of all three letters; a dialog spec of three numbers.
    {3001, L"2~536870912~2~d`u`s|36`1`2~0``Shown %1!d! %2!u! %3!s!|0``Logged %1!d! %2!u! %3!s!"},
    // Recorded arguments, chosen by slot; a blank dialog spec keeps the default style.
    {3002, L"2~536870912~1~u0`s1`d2|~0``Recorded %1!u! %2!s! %3!d!|0``Recorded log %1!u! %2!s! %3!d!"},
    // The dupe form: the dialog shows the log text.
    {3003, L"2~536870912~2~s|&|0``Dupe of %1!s!"},
    // Plug-ins 0, 2 and 3, with a recorded argument for them to read.
    {3004, L"2~536870912~1~u0~0`2`3|~0``Plug %1!u!|0``Plug log %1!u!"},
    // Kind 1, no display text.
    {3005, L"1~0~2~s||0``Kind one %1!s!"},
    // Kind 2 at level 5 in the field of enablement bit 2 (shift 29).
    {3006, L"2~2684354560~2~s||0``Level five %1!s!"},
    // Kind 2 at level 2 (shift 29, bit 2) and level 4 (shift 37, bit 1).
    {3007, L"2~550829555712~2~s||0``Two fields %1!s!"},
    // Style 1 and width 255, which keeps only the hard break.
    {3008, L"2~536870912~2~u|1~255``Pressed %1!u!%nSecond line|0``Logged %1!u!"},
    // Prefix affix 0 and suffix affix 1 around the text; the suffix has an insert of its own.
    {3009, L"2~536870912~2~u|~0`0`Affix %1!u!`1|0`0`Logged affix %1!u!`1"},
    // The dupe form followed by a blank and more text.
    {3010, L"2~536870912~2~s|& more|0``Dupe again %1!s!"},
    // The affixes, as string IDs 4000 and 4001 (affix ID minimum 4000).
    {4000, L"[Pre] "},
    {4001, L" [Post %1!u!]"},
};
} // namespace

extern "C" __attribute__((visibility("default"))) int ZRLoadStringW(unsigned int id, wchar_t* buffer, int bufferMax)
{
    return serveStringRow(kRows, id, buffer, bufferMax);
}
