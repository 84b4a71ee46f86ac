// Modules and their exported entries, over the dynamic loader.
//
// A module handle is the loader's handle of a shared object. A Windows module name "x.dll" or
// "x.exe" is looked for as "libx.so", then as given; "zmu.dll" is this library itself.
#pragma once

#include "platform/WinTypes.h"

// Like GetModuleHandleW: null name gives the process image; otherwise only a module that is
// already loaded is found (null with last error 126 if not). The reference count is not raised.
HMODULE GetModuleHandleW(const wchar_t* moduleName);
HMODULE GetModuleHandleA(const char* moduleName);

// Like LoadLibraryW: loads the module (or raises its count); null with last error 126 on failure.
HMODULE LoadLibraryW(const wchar_t* fileName);
HMODULE LoadLibraryA(const char* fileName);
// Like LoadLibraryExW; the reserved handle must be null. No flag changes the search here.
HMODULE LoadLibraryExW(const wchar_t* fileName, HANDLE reserved, DWORD flags);
// Like FreeLibrary: drops one count of a loaded module. FALSE with last error 6 for a null handle.
BOOL FreeLibrary(HMODULE module);

// Like GetProcAddress: an entry that the module itself exports; never one that the loader would
// find in the module's dependencies or the global scope. Null with last error 127 if absent.
FARPROC GetProcAddress(HMODULE module, const char* procName);

// Like GetModuleFileNameW: the module's file path (null: the process image), cut to fit and
// terminated; returns the count without terminator, which equals size with last error 122 when cut.
DWORD GetModuleFileNameW(HMODULE module, wchar_t* fileName, DWORD size);

// Like LoadStringW: string `id` of the module's string table. A module's string table is its
// exported ZRLoadStringW; a module without one has no strings (0, last error 1814). Returns the
// count copied without terminator, the text cut to bufferMax - 1.
int LoadStringW(HINSTANCE module, UINT id, wchar_t* buffer, int bufferMax);
// Like LoadStringA: the same string converted to the narrow code page.
int LoadStringA(HINSTANCE module, UINT id, char* buffer, int bufferMax);

// The shape of a module's string loader.
using ZRLoadStringW_Function = int (*)(unsigned int id, wchar_t* buffer, int bufferMax);
