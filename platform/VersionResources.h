// Version resources of module files: the StringFileInfo values and the translation list that
// Windows keeps in a file's VS_VERSIONINFO, kept here as text in the ELF section ".zmu_version"
// (format in platform/README.md; cmake/ZmuVersion.cmake writes it). The section is read from the
// file; the module is never loaded.
//
// A file name is found as LoadLibraryW would name it: "x.dll" or "x.exe" is tried as "libx.so",
// then as given. A name without a directory is first looked for among the loaded modules
// (GetModuleHandleW, so "zmu.dll" is this library), then in the program's directory, then in the
// working directory. A file that cannot be opened counts as missing.
#pragma once

#include "platform/WinTypes.h"

// Like GetFileVersionInfoSizeW: the size in bytes of the block that GetFileVersionInfoW fills;
// sets *handle (if not null) to 0. On failure 0 and the last error: 87 for a null name, 2 for a
// file that is missing, 193 for one that is no ELF object of this machine's byte order or whose
// headers do not hold together, 1813 for an object without the section, 13 for a section whose
// text is not in the format.
DWORD GetFileVersionInfoSizeW(const wchar_t* file, DWORD* handle);

// Like GetFileVersionInfoW: fills `block` with the file's version data; `handle` is ignored. A
// `size` below the needed one cuts the block, and values that no longer fit in it are not found
// (as Windows truncates); a size too small for the block's own header fails with 122. Failures of
// the file as for GetFileVersionInfoSizeW; 87 for a null name or block.
BOOL GetFileVersionInfoW(const wchar_t* file, DWORD handle, DWORD size, void* block);

// Like VerQueryValueW on a block filled by GetFileVersionInfoW; names are separated by "\" and
// compared without regard to case.
// - "\VarFileInfo\Translation": *buffer points to the (WORD language, WORD code page) pairs in
//   the block, *length is their size in BYTES; an empty list gives TRUE with *length 0.
// - "\StringFileInfo\<key>\<name>": *buffer points to the value's wide text in the block, and
//   *length counts its CHARACTERS including the terminator.
// - "\" (the fixed VS_FIXEDFILEINFO), and anything else the block lacks: FALSE with last error
//   1813, *buffer null and *length 0. There is no fixed information on this platform.
// FALSE with last error 87 for a null argument or a block that GetFileVersionInfoW did not fill.
BOOL VerQueryValueW(const void* block, const wchar_t* subBlock, void** buffer, UINT* length);
