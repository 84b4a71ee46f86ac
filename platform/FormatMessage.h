// FormatMessageW for message texts given as strings, with inserts from an array of 64-bit slots.
#pragma once

#include "foundation/IntegerWidths.h"
#include "platform/WinTypes.h"

constexpr DWORD FORMAT_MESSAGE_ALLOCATE_BUFFER = 0x100;
constexpr DWORD FORMAT_MESSAGE_IGNORE_INSERTS = 0x200;
constexpr DWORD FORMAT_MESSAGE_FROM_STRING = 0x400;
constexpr DWORD FORMAT_MESSAGE_ARGUMENT_ARRAY = 0x2000;
constexpr DWORD FORMAT_MESSAGE_MAX_WIDTH_MASK = 0xFF;

// Like FormatMessageW with FORMAT_MESSAGE_FROM_STRING: formats the text `source` and returns the
// count of characters written without the terminator. On failure it returns 0 and sets the last
// error; on success the last error is left as it was. `messageId` and `languageId` are ignored.
//   87  (ERROR_INVALID_PARAMETER): no FORMAT_MESSAGE_FROM_STRING, another source or an unknown
//       flag, a null text or buffer; or, found while formatting, a % at the very end of the
//       text, an insert with a null `inserts`, an insert format that is unclosed or not valid.
//   235 (ERROR_NO_WORK_DONE): the result is empty (an empty text, or one that starts with %0).
//   122 (ERROR_INSUFFICIENT_BUFFER): without FORMAT_MESSAGE_ALLOCATE_BUFFER only: the text and
//       its terminator do not fit in `size` characters.
//   8   (ERROR_NOT_ENOUGH_MEMORY): memory is short.
// Without FORMAT_MESSAGE_ALLOCATE_BUFFER, `buffer` has `size` characters; it receives the text,
// or on failure what was formatted before it (cut to the first size-1 characters like a text
// too long), always with a terminator, and nothing at all for a size of 0.
// With FORMAT_MESSAGE_ALLOCATE_BUFFER, `buffer` is really a `wchar_t**`, as on Windows: pass
// `(wchar_t*)&pointer`. The pointer receives a LocalAlloc block of at least `size` characters
// holding the text and its terminator, which the caller frees with LocalFree; on failure it
// receives null and nothing stays allocated. There is no other limit on the length. Into a
// caller's buffer, a field far wider than the buffer (%1!2000000000d!) costs no more than the
// buffer: only the part that can show is made.
//
// `inserts` takes the place of the Windows `va_list* Arguments` and is always an array of
// 64-bit slots, as under FORMAT_MESSAGE_ARGUMENT_ARRAY (the flag is accepted and implied). The
// array has no length: the caller supplies a slot for every insert the text names.
//
// The text:
//   %1 .. %99   insert n from slot n-1; only two digits are read, so "%123" is insert 12
//               followed by "3". An optional printf format between exclamation marks follows,
//               with the Windows runtime's meaning: %1!u!, %2!s!, %1!02d!, %1!I64X!, %1!-5.2s!.
//               Without one the insert is a wide string. s, ls and ws are wide strings (a null
//               one gives "(null)"), S and hs narrow UTF-8; d i u x X o c take the low 32 bits
//               of the slot, also with l; ll, I64 and I all 64 bits. A * takes its value from the
//               next slot, before the insert's own: %1!*.*u! reads slots 0, 1 and 2 (inserts 1,
//               2 and 3), so the next insert to use is %4. Floating point and %n are refused.
//   %0          ends the text there, without a line break.
//   %n          CR LF.
//   %r          CR.
//   %t          a tab at width 0, CR LF at any other width.
//   "% "        a space that is never a wrapping point.
//   %b          a space that is never a wrapping point, as "% " is.
//   %x          any other character x, %% %. %! included: x itself.
// The text's own line breaks (LF, CR and CR LF each count as one) become CR LF at width 0 and
// one blank at the other widths. Inserted text is copied as it is.
// With FORMAT_MESSAGE_IGNORE_INSERTS, inserts and their formats are copied unchanged, each as one
// element, and `inserts` is not read; a format without its closing ! is still refused.
//
// The low byte of `flags` is the line width; 0 and 255 never wrap. At 1 to 254 the line length
// counts the characters since the last CR or LF written. After each element (a character, an
// escape, or a whole insert) that leaves the line at the width or beyond, the line is broken
// once: its last run of blanks from the text (spaces and converted line breaks; not tabs,
// "% " or blanks of inserts) becomes CR LF, or with no such run CR LF goes right after the
// element. So an insert is never split, a longer word is cut at the width, and a line that
// ends exactly at the width gets its CR LF at once, even at the end of the text.
DWORD FormatMessageW(DWORD flags, const void* source, DWORD messageId, DWORD languageId, wchar_t* buffer,
                     DWORD size, const u64* inserts);
