// The debug output channel behind the library's trace lines.
//
// A line goes to syslog at debug priority by default (and costs nothing when no syslog socket
// exists); ZMU_TRACE=stderr sends it to standard error, ZMU_TRACE=<path> appends it to that file
// (nothing, if the file cannot be opened). The variable is read once, at the first line of the
// process; a test that needs another target runs its lines in a child process. Each text becomes
// one line "zmu[<pid>:<tid>] <text>", its trailing line ends dropped, UTF-8 on the way out.
#pragma once

// Like OutputDebugStringW: writes one text to the channel; never fails, keeps errno. Thread-safe.
void OutputDebugStringW(const wchar_t* text);
void OutputDebugStringA(const char* text);

// A listener sees every text written to the channel, as it was given, before it goes out; tests
// use it to capture trace lines. Returns the previous listener (and through `previousContext`, if
// not null, its context). Thread-safe: calls to the listener are serialized, and once this
// returns, the replaced listener is not called any more.
using DebugOutputListener = void (*)(const wchar_t* text, void* context);
DebugOutputListener SetDebugOutputListener(DebugOutputListener listener, void* context);
DebugOutputListener SetDebugOutputListener(DebugOutputListener listener, void* context, void** previousContext);
