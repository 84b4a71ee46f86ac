// Registry keys and typed values, with the Windows contracts, over a small store of files.
//
// The store lies under one root directory: $ZMU_REGISTRY_ROOT if set and not empty, else
// /var/lib/zmu/registry, read each time a predefined key is used. HKEY_LOCAL_MACHINE and
// HKEY_CURRENT_USER are its folders "hkey_local_machine" and "hkey_current_user"; a key is a
// folder, a value a file (layout in platform/README.md). Names are case-insensitive and kept in
// lower case, so enumerations give them back in lower case. A key handle is a number in a table:
// a closed handle fails with 6 instead of reaching another key.
//
// The store is read-only (writes fail with 5, ERROR_ACCESS_DENIED) where its files may not be
// written (access(2) says EACCES, EPERM or EROFS) and wherever the root holds a file "readonly".
#pragma once

#include "platform/TimeRecords.h"
#include "platform/WinTypes.h"

#include <cstdint>

struct HKEY__;
using HKEY = HKEY__*;
using REGSAM = DWORD;

// Windows' values: 32-bit numbers sign-extended to the handle's width.
inline const HKEY HKEY_CURRENT_USER = reinterpret_cast<HKEY>(std::intptr_t(std::int32_t(0x80000001)));
inline const HKEY HKEY_LOCAL_MACHINE = reinterpret_cast<HKEY>(std::intptr_t(std::int32_t(0x80000002)));

constexpr REGSAM KEY_QUERY_VALUE = 0x0001;
constexpr REGSAM KEY_SET_VALUE = 0x0002;
constexpr REGSAM KEY_CREATE_SUB_KEY = 0x0004;
constexpr REGSAM KEY_ENUMERATE_SUB_KEYS = 0x0008;
constexpr REGSAM KEY_NOTIFY = 0x0010;
constexpr REGSAM KEY_CREATE_LINK = 0x0020;
constexpr REGSAM KEY_READ = 0x20019;
constexpr REGSAM KEY_WRITE = 0x20006;
constexpr REGSAM KEY_ALL_ACCESS = 0xF003F;

constexpr DWORD REG_NONE = 0;
constexpr DWORD REG_SZ = 1;
constexpr DWORD REG_EXPAND_SZ = 2;
constexpr DWORD REG_BINARY = 3;
constexpr DWORD REG_DWORD = 4;
constexpr DWORD REG_MULTI_SZ = 7;
constexpr DWORD REG_QWORD = 11;

constexpr DWORD REG_OPTION_NON_VOLATILE = 0;
constexpr DWORD REG_OPTION_VOLATILE = 1;
constexpr DWORD REG_OPTION_OPEN_LINK = 8;
constexpr DWORD REG_CREATED_NEW_KEY = 1;
constexpr DWORD REG_OPENED_EXISTING_KEY = 2;

constexpr DWORD ERROR_BAD_PATHNAME = 161;
constexpr DWORD ERROR_NO_MORE_ITEMS = 259;
constexpr DWORD ERROR_REGISTRY_CORRUPT = 1015;
constexpr DWORD ERROR_REGISTRY_IO_FAILED = 1016;
constexpr DWORD ERROR_KEY_DELETED = 1018;

// All functions return a Windows error code (0, ERROR_SUCCESS, on success) and leave the thread's
// last error alone. Common failures: 6 for a handle that is neither predefined nor open, 87 for a
// null pointer that must not be null, a reserved argument that is not 0 or a name too long to
// store (over 254 bytes in its stored form), 161 for a key path with an empty part ("\a",
// "a\\b"; one trailing "\" is allowed).

// Like RegOpenKeyExW: a new handle to `subKey` below `key` (null or empty: `key` itself).
// `options` 0 or REG_OPTION_OPEN_LINK (links are not kept: an ordinary key). 2 if the key does
// not exist, 5 if `access` holds a write right (KEY_SET_VALUE, KEY_CREATE_SUB_KEY, ...) and the
// store is read-only. `*result` is null on failure.
LONG RegOpenKeyExW(HKEY key, const wchar_t* subKey, DWORD options, REGSAM access, HKEY* result);

// Like RegCreateKeyExW: opens `subKey`, creating it and any missing key above it first. No class
// is kept; REG_OPTION_VOLATILE keys are stored like others (other options: 87). `disposition`
// (optional) says REG_CREATED_NEW_KEY or REG_OPENED_EXISTING_KEY. 5 if a key must be created or
// `access` holds a write right while the store is read-only.
LONG RegCreateKeyExW(HKEY key, const wchar_t* subKey, DWORD reserved, wchar_t* keyClass, DWORD options,
                     REGSAM access, void* securityAttributes, HKEY* result, DWORD* disposition);

// Like RegQueryValueExW: the type and bytes of value `name` (null or empty: the key's default
// value). Needs KEY_QUERY_VALUE (else 5); 2 if there is no such value. `type` may be null. With a
// null `data`, `*dataSize` gets the size. A buffer smaller than the value: 234 (ERROR_MORE_DATA),
// `*dataSize` the size needed, `*type` set, `data` left as it was. `dataSize` may be null only
// with a null `data`. Strings are stored as given, so their size counts wchar_t units.
LONG RegQueryValueExW(HKEY key, const wchar_t* name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* dataSize);

// Like RegSetValueExW: stores `size` bytes of `data` with `type` (any number; the store does not
// check that the bytes fit the type) in one step: a reader sees the old value or the new one.
// Needs KEY_SET_VALUE and a writable store (else 5); 1018 if the key was removed meanwhile; 112 if
// the disk is full, 1016 for another failure of the file system.
LONG RegSetValueExW(HKEY key, const wchar_t* name, DWORD reserved, DWORD type, const BYTE* data, DWORD size);

// Like RegEnumKeyExW: the name of subkey `index` (in wcscmp order of the lower-case names) with
// `*nameSize` characters of room including the terminator; on success `*nameSize` is the length
// without it. 259 (ERROR_NO_MORE_ITEMS) past the last; 234 if the name does not fit (name and size
// untouched). The class is always empty; `lastWriteTime` (optional) is the time the subkey's
// folder last changed. Needs KEY_ENUMERATE_SUB_KEYS (else 5).
LONG RegEnumKeyExW(HKEY key, DWORD index, wchar_t* name, DWORD* nameSize, DWORD* reserved, wchar_t* keyClass,
                   DWORD* keyClassSize, FILETIME* lastWriteTime);

// Like RegQueryInfoKeyW: counts of subkeys and values, the longest subkey and value names in
// characters without terminator, the largest value in bytes; class and class lengths 0, security
// descriptor size 0. Every output is optional. Needs KEY_QUERY_VALUE (else 5).
LONG RegQueryInfoKeyW(HKEY key, wchar_t* keyClass, DWORD* keyClassSize, DWORD* reserved, DWORD* subKeys,
                      DWORD* maxSubKeyLength, DWORD* maxClassLength, DWORD* values, DWORD* maxValueNameLength,
                      DWORD* maxValueLength, DWORD* securityDescriptorSize, FILETIME* lastWriteTime);

// Like RegCloseKey: releases the handle; a predefined key is accepted and stays usable. 6 for a
// handle that is not open.
LONG RegCloseKey(HKEY key);
