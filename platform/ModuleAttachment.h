// The library's attachment hook: the notices a Windows DLL hears at its entry point, for libzmu.
//
// When the hook runs:
// - DLL_PROCESS_ATTACH: once, inside RegisterAttachmentHook, on the registering thread.
// - DLL_PROCESS_DETACH: once, when libzmu.so is unloaded; that is at the normal end of the process
//   (return from main, exit) or at its last dlclose. Not at _exit, abort or a fatal signal.
// - DLL_THREAD_DETACH: when a thread that called NoteThreadNeedsDetach ends (return from its
//   function, pthread_exit), once per thread, on that thread. Not for the process's first thread,
//   whose end is the end of the process (as Windows sends only the process detach then), and not
//   once the process detach has run.
// - DLL_THREAD_ATTACH is never sent: threads start unseen here, as threads that existed before a
//   DLL was loaded do on Windows.
// `module` is libzmu's own module handle (GetModuleHandleW("zmu.dll")), `reserved` is null. The
// result is ignored, and so is anything the hook throws.
//
// What a hook may use:
// - At thread detach the thread's C++ thread_local objects made after its first
//   NoteThreadNeedsDetach are already destroyed (those made before still live), and its trivial
//   thread_local values (GetLastError, GetCurrentThreadId) still work. Other threads run on.
// - At process detach the process is in its exit: the C++ objects of every module that were made
//   after main began (function-local statics of libzmu, of Qt and of the program, such as Qt's
//   global statics) are already destroyed; objects made while the modules loaded, plain values
//   and pointers, and heap objects that are never freed still live. Other threads may still run;
//   a program ends its threads that use monitors before it ends. The platform's own tables
//   (handles, debug output) are heap objects that live to the end, so platform calls are safe.
#pragma once

#include "platform/WinTypes.h"

constexpr DWORD DLL_PROCESS_DETACH = 0;
constexpr DWORD DLL_PROCESS_ATTACH = 1;
constexpr DWORD DLL_THREAD_ATTACH = 2;
constexpr DWORD DLL_THREAD_DETACH = 3;

using AttachmentHook = BOOL (*)(HINSTANCE module, DWORD reason, void* reserved);

// Makes `hook` the library's one hook (null: none), replacing any before it, and calls it with
// DLL_PROCESS_ATTACH. The library registers its hook while it loads; a later registration is for
// tests.
void RegisterAttachmentHook(AttachmentHook hook);

// Asks for DLL_THREAD_DETACH at the end of the calling thread. Cheap after the first call on a
// thread; called when a thread gets its first engine.
void NoteThreadNeedsDetach();
