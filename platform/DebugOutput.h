// The debug output channel behind the library's trace lines.
//
// A line goes to syslog at debug priority by default (and costs nothing when no syslog socket
// exists); ZMU_TRACE=stderr sends it to standard error, ZMU_TRACE=<path> appends it to that file.
// The variable is read at the first line of the process.
#pragma once

// Like OutputDebugStringW: writes one text to the channel; never fails.
void OutputDebugStringW(const wchar_t* text);
void OutputDebugStringA(const char* text);

// A listener sees every text written to the channel, before it goes out; tests use it to capture
// trace lines. Returns the previous listener. Not for use while other threads write.
using DebugOutputListener = void (*)(const wchar_t* text, void* context);
DebugOutputListener SetDebugOutputListener(DebugOutputListener listener, void* context);
