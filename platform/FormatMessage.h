// FormatMessageW for message texts given as strings, with inserts from an array of 64-bit slots.
#pragma once

#include "foundation/IntegerWidths.h"
#include "platform/WinTypes.h"

constexpr DWORD FORMAT_MESSAGE_IGNORE_INSERTS = 0x200;
constexpr DWORD FORMAT_MESSAGE_FROM_STRING = 0x400;
constexpr DWORD FORMAT_MESSAGE_ARGUMENT_ARRAY = 0x2000;
constexpr DWORD FORMAT_MESSAGE_MAX_WIDTH_MASK = 0xFF;

// Like FormatMessageW with FORMAT_MESSAGE_FROM_STRING: formats the text `source` into `buffer`
// of `size` characters and returns the count written without the terminator. On failure it
// returns 0, sets the last error, and leaves an empty text in a buffer that has room for one:
//   87 (ERROR_INVALID_PARAMETER): no FORMAT_MESSAGE_FROM_STRING, any other source or
//      FORMAT_MESSAGE_ALLOCATE_BUFFER, a null text or buffer, an insert with a null `inserts`,
//      or an insert format that is not complete and valid;
//   122 (ERROR_INSUFFICIENT_BUFFER): the text and its terminator do not fit in `size`.
// Nothing is written past `size` characters. On success the last error is left as it was.
// `messageId` and `languageId` are ignored.
//
// `inserts` takes the place of the Windows `va_list* Arguments` and is always an array of
// 64-bit slots, as under FORMAT_MESSAGE_ARGUMENT_ARRAY (the flag is accepted and implied). The
// array has no length: the caller supplies a slot for every insert the text names.
//
// The text:
//   %1 .. %99   insert n from slot n-1; at most two digits are read, so "%100" is insert 10
//               followed by "0". An optional printf format between exclamation marks follows,
//               with the Windows runtime's meaning: %1!u!, %2!s!, %1!02d!, %1!I64X!, %1!5.2s!.
//               Without one the insert is !s!. s is a wide string (the slot holds a pointer;
//               null gives "(null)"), S and hs a narrow UTF-8 string; d i u x X o c take the
//               low 32 bits of the slot, also with l; ll, I64 and I take all 64 bits. A * for
//               the width or the precision takes the following slot, as Windows does:
//               %1!*.*s! reads its width from slot 0, its precision from slot 1 and the string
//               from slot 2, so the next free insert is %4. Floating-point types are refused.
//   %0          ends the text there, without a line break.
//   %n          a hard line break.
//   %r          a carriage return alone; the column starts again at 0.
//   %t %b       a tab, a space (both are white space for wrapping).
//   %% %. %!    a percent sign, a full stop, an exclamation mark.
//   %x          for any other non-digit character x: that character. A % at the very end of
//               the text has nothing to escape and is written as it is.
// With FORMAT_MESSAGE_IGNORE_INSERTS, inserts and their formats are copied unchanged and
// `inserts` is not read; the other escapes still apply, and a format without its closing ! is
// still refused.
//
// Line breaks are written as "\r\n". The low byte of `flags` is the line width:
//   0           line breaks of the text (CR LF or LF) are kept.
//   1 .. 254    the text's line breaks become blanks, and lines wrap at white space so that
//               no line is longer than the width. The blanks at a wrap are dropped; blanks at
//               the end of a line or of the text stay if they fit. A word longer than the width
//               is never split, as with Windows: it goes on a line of its own and overruns it.
//   255         the text's line breaks become blanks, and nothing wraps.
// In every mode %n is kept. A CR alone in the text acts as %r. Inserted text is laid out exactly
// like the message's own text. Tabs count as one column.
DWORD FormatMessageW(DWORD flags, const void* source, DWORD messageId, DWORD languageId, wchar_t* buffer,
                     DWORD size, const u64* inserts);
