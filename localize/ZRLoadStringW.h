// The library's built-in string table: the texts the library asks for by id, served in the shape
// of a module's string loader.
#pragma once

// Copies string `id` into `buffer` as wide text, cut to bufferMax - 1 characters and terminated,
// and returns the count copied without the terminator. An id the table lacks returns 0 with last
// error 2 and leaves `buffer` as it was; an empty row returns 0 with last error 0. A null buffer
// or a bufferMax below 1 returns 0 with last error 87. Texts pass through QObject::tr, so a
// translator that the host installs translates the table.
//
// Exported under this undecorated name: any module may export a loader of the same shape, and the
// string loading of the library looks it up by name in a resource module.
extern "C" __attribute__((visibility("default"))) int ZRLoadStringW(unsigned int id, wchar_t* buffer, int bufferMax);
