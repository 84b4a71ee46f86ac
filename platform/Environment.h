// Environment variables and the temporary directory.
#pragma once

#include "platform/WinTypes.h"

// Like ExpandEnvironmentStringsW: replaces each %NAME% by the variable's value (names are case
// sensitive here). A reference to an undefined variable stays as it stands, both % signs with it,
// and the scan goes on after its closing %; a lone % stays too. Returns the size of the result
// including the terminator; when that is above `size` (or `destination` is null), nothing is
// written and the caller asks again. 0 with last error 87 for a null source.
DWORD ExpandEnvironmentStringsW(const wchar_t* source, wchar_t* destination, DWORD size);
// The narrow form: the same on UTF-8 text, sizes counted in bytes.
DWORD ExpandEnvironmentStringsA(const char* source, char* destination, DWORD size);

// Like GetTempPathW: the temporary directory ($TMPDIR if set and not empty, else /tmp) with a
// trailing "/". Returns its length without terminator; if `size` is too small, the size needed
// including the terminator (then nothing is written). 0 with last error 87 for a null buffer
// with a non-zero size.
DWORD GetTempPathW(DWORD size, wchar_t* buffer);
