// Log file paths for tests: each call names a new file in a directory of the test process's own,
// which is removed when the process ends.
#pragma once

#include <string>

std::wstring testLogPath(const wchar_t* stem = L"test");
