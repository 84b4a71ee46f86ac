#include "support/TestLogPath.h"

#include <QString>
#include <QTemporaryDir>

#include <atomic>

std::wstring testLogPath(const wchar_t* stem)
{
    static QTemporaryDir directory;
    static std::atomic<int> counter{0};
    const int number = ++counter;
    return directory.path().toStdWString() + L"/" + stem + L"-" + std::to_wstring(number) + L".html";
}
