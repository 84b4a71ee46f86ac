// What the platform's tests share: ASCII text made wide, a scratch folder, and calls checked for
// their outcome and the last error they leave.
#pragma once

#include "platform/LastError.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <fstream>
#include <functional>
#include <initializer_list>
#include <string>

namespace platform_test {

inline std::wstring widen(const std::string& ascii)
{
    return std::wstring(ascii.begin(), ascii.end());
}

// The outcome of a call that succeeded and left the last error as it found it; the other two
// flag a call that broke the contract of the last error.
constexpr DWORD kUntouched = 0xBADu;
constexpr DWORD kSucceededButSetAnError = 0xFFFFFFFEu;
constexpr DWORD kFailedWithoutAnError = 0xFFFFFFFFu;

// Runs `call` (true: it succeeded) with the last error set to kUntouched: the error it left if it
// failed, else kUntouched.
inline DWORD outcomeOf(const std::function<bool()>& call)
{
    SetLastError(kUntouched);
    const bool succeeded = call();
    const DWORD error = GetLastError();
    if (succeeded)
        return error == kUntouched ? kUntouched : kSucceededButSetAnError;
    return error == kUntouched ? kFailedWithoutAnError : error;
}

// A table's row: a call and the outcome it must have, in order.
struct Call
{
    const char* name;
    std::function<bool()> call;
    DWORD outcome;
};

inline void expectOutcomes(std::initializer_list<Call> calls)
{
    for (const Call& row : calls)
        EXPECT_EQ(outcomeOf(row.call), row.outcome) << row.name;
}

// A folder of the test's own, open to every user (so that a test may drop root's rights), removed
// with what it holds at the end.
class Scratch
{
public:
    Scratch() { ::chmod(m_root.path().toUtf8().constData(), 0755); }
    bool isValid() const { return m_root.isValid(); }
    std::string root() const { return m_root.path().toStdString(); }
    std::string path(const std::string& name) const { return root() + "/" + name; }
    std::wstring wide(const std::string& name) const { return widen(path(name)); }
    // Writes the file `name` with `bytes`; gives its path.
    std::string write(const std::string& name, const std::string& bytes) const
    {
        std::ofstream(path(name), std::ios::binary | std::ios::trunc) << bytes;
        return path(name);
    }

private:
    QTemporaryDir m_root;
};

} // namespace platform_test
