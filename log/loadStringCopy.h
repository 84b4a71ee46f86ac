// Loads a string of a module into a fresh heap copy, through a caller's scratch buffer.
#pragma once

#include "platform/WinTypes.h"

// Returns the length of string `id` of `module` (0 for a string that exists and is empty), and
// puts a new copy of it (new[]) in `*copy`, deleting any old value there first. The text passes
// through `scratch`, which is zeroed before and after. -1 for a null argument, a `scratchLength`
// below 1, a string the module lacks, or any other failure.
int loadStringCopy(HMODULE module, unsigned int id, wchar_t* scratch, int scratchLength, wchar_t** copy);
