// The system's last error: one value per thread, as GetLastError/SetLastError keep it.
#pragma once

#include "platform/WinTypes.h"

// Like GetLastError: the calling thread's last error; 0 in a new thread.
DWORD GetLastError();
// Like SetLastError: sets the calling thread's last error.
void SetLastError(DWORD error);
