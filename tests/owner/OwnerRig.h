// What the owner tests share: a Qt application (which gives the program's name and folder), the
// settings store, the brand file and the log directory in temporary folders of the test process,
// and readers of what a monitor holds.
#pragma once

#include "monitor/Zarn.h"
#include "monitor/ZarnData.h"

#include <QString>

#include <string>

namespace ownerRig {

// Makes the application and the folders once, points ZMU_REGISTRY_ROOT and ZMU_BRAND_FILE at
// them, and empties the store and the log variables' directory for the next test.
void prepare();
// The folder the log variables name, with a trailing "/".
QString logDirectory();
QString brandFile();
// Writes the brand file; removeBrandFile takes it away, so the built-in texts answer.
void writeBrandFile(const QByteArray& text);
void removeBrandFile();
// In a forked child: its exit must not remove the parent's folders.
void keepFoldersAtExit();

// The ZM_Assertiveness value: its key made, the value written with `type` and `size` bytes of
// `data` (null: the key alone), or read back.
void storeAssertiveness(DWORD type, const void* data, DWORD size);
void readAssertiveness(DWORD& type, DWORD& value); // REG_NONE and 0 if there is none

ZarnData* dataOf(const Zarn* monitor);
// The text of a log file: UTF-16 behind a leading U+FEFF.
std::wstring readLogFile(const std::wstring& name);
// The log series of the process starts afresh.
void restartLogSeries();
HMODULE loadTestModule(const char* file);
std::wstring userName();

} // namespace ownerRig
