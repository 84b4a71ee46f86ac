// Modules and their exported entries, over the dynamic loader.
//
// A module handle is the loader's handle of a shared object (a dlopen handle). A Windows module
// name "x.dll" or "x.exe" is looked for as "libx.so", then as given; a name without extension
// counts as "x.dll"; "zmu.dll" is this library itself. A name with a path follows the same rule
// on its file name part. A handle must be null or one these functions gave out for a module that
// is still loaded: like Windows, the loader cannot tell a stale handle.
#pragma once

#include "platform/WinTypes.h"

// Like GetModuleHandleW: null name gives the process image; otherwise only a module that is
// already loaded is found, under any name the loader knows it by or by its file name alone
// (null with last error 126 if not). The reference count is not raised.
HMODULE GetModuleHandleW(const wchar_t* moduleName);
HMODULE GetModuleHandleA(const char* moduleName);

// Like LoadLibraryW: loads the module with its imports bound at once (or raises its count);
// null with last error 126 on failure, 87 for a null or empty name.
HMODULE LoadLibraryW(const wchar_t* fileName);
HMODULE LoadLibraryA(const char* fileName);
// Like LoadLibraryExW; the reserved handle must be null (else 87). No flag changes the search here.
HMODULE LoadLibraryExW(const wchar_t* fileName, HANDLE reserved, DWORD flags);
// Like FreeLibrary: drops one count of a loaded module. FALSE with last error 6 for a null handle
// or one the loader refuses.
BOOL FreeLibrary(HMODULE module);

// Like GetProcAddress: an entry that the module itself exports; never one that the loader would
// find in the module's dependencies or the global scope. Null with last error 127 if absent,
// 6 for a null module.
FARPROC GetProcAddress(HMODULE module, const char* procName);

// Like GetModuleFileNameW: the module's file path (null: the process image, /proc/self/exe),
// cut to fit and terminated; returns the count without terminator, which equals size with last
// error 122 when cut. 0 with last error 122 for a size of 0, 87 for a null buffer.
DWORD GetModuleFileNameW(HMODULE module, wchar_t* fileName, DWORD size);

// Like LoadStringW: string `id` of the module's string table (null module: the process image).
// A module's string table is its own exported ZRLoadStringW; a module without one has no strings
// (0, last error 1814). Returns the count copied without terminator, the text cut to
// bufferMax - 1 and terminated, with last error 0; an id the table lacks gives 0 with last error
// 1814, an empty string 0 with last error 0. A bufferMax below 1 (Windows' request for a pointer
// into the resource) or a null buffer is 0 with last error 87.
int LoadStringW(HINSTANCE module, UINT id, wchar_t* buffer, int bufferMax);
// Like LoadStringA: the same string converted to the narrow code page, cut to bufferMax - 1
// bytes at a character boundary; returns the byte count.
int LoadStringA(HINSTANCE module, UINT id, char* buffer, int bufferMax);

// The shape of a module's string loader.
using ZRLoadStringW_Function = int (*)(unsigned int id, wchar_t* buffer, int bufferMax);
