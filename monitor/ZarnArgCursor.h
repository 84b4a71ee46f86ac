// The argument cursor of a situation: reads the caller's arguments in order, one 8-byte slot per
// filler, either from an array of slots (the vector form of respondToSituation) or from the list of
// a variadic call.
//
// A variadic list cannot be walked as an array of slots on this platform, so the cursor reads it
// with va_arg, by the filler's letter: d an int, u an unsigned int, s a pointer. An array cursor
// reads the same values from 8-byte slots and moves the caller's own cursor (`*argV`), as the
// filler parser advances it. A variadic list lives only as long as its call: the data set retires
// such a cursor when the call returns.
#pragma once

#include "foundation/IntegerWidths.h"

#include <cstdarg>

class ZarnArgCursor
{
public:
    // A cursor with no arguments behind it.
    ZarnArgCursor();
    // Walks the slots that `*argV` points at; each read advances `*argV` by 8 bytes.
    explicit ZarnArgCursor(char** argV);
    // Reads from a started variadic list, which the caller ends.
    explicit ZarnArgCursor(va_list* args);

    // True if there are no arguments behind the cursor (a null argV, or none given).
    bool isEmpty() const;

    // Filler d: a signed 32-bit value, widened with its sign.
    u64 nextSigned();
    // Filler u: an unsigned 32-bit value, widened with zeros.
    u64 nextUnsigned();
    // Filler s: a string pointer, as it stands.
    u64 nextString();

    // Drops what the cursor points at; it reads nothing afterwards.
    void forget();

private:
    u64 nextSlot();

    char** m_argV;
    va_list* m_args;
};
