// Thread and process identity.
#pragma once

#include "platform/WinTypes.h"

// Like GetCurrentThreadId: stable for the thread's life, never 0; does not touch the last error.
DWORD GetCurrentThreadId();
// Like GetCurrentProcessId: the process id.
DWORD GetCurrentProcessId();
// Like Sleep: suspends the calling thread for at least `milliseconds` (INFINITE: for ever); 0 only
// yields.
void Sleep(DWORD milliseconds);
