// Environment variables and the temporary directory.
#pragma once

#include "platform/WinTypes.h"

// Like ExpandEnvironmentStringsW: replaces each %NAME% by the variable's value; a reference to an
// undefined variable, and a lone %, stay as they stand. Returns the size of the result including
// the terminator; when that is above `size`, nothing useful is written and the caller asks again.
// 0 with last error 87 for a null source.
DWORD ExpandEnvironmentStringsW(const wchar_t* source, wchar_t* destination, DWORD size);
DWORD ExpandEnvironmentStringsA(const char* source, char* destination, DWORD size);

// Like GetTempPathW: the temporary directory ($TMPDIR, else /tmp) with a trailing "/". Returns its
// length without terminator; if `size` is too small, the size needed including the terminator.
DWORD GetTempPathW(DWORD size, wchar_t* buffer);
