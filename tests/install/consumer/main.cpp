// A program built against an installed zmu: one monitor with its log in the directory given on the
// command line, one situation from the program's own resource module, and a look into the log file.
// Exits 0 only when the entry is in the file, and the version data of the program and of libzmu
// reads back as their builds stamped it.
#include "monitor/Zarn.h"
#include "monitor/ZarnData.h"
#include "platform/LastError.h"
#include "platform/Modules.h"
#include "platform/VersionResources.h"

#include <QByteArray>
#include <QFile>
#include <QString>

#include <cstdio>
#include <string>
#include <vector>

namespace {

// The spec in strings.rc: "Consumer run %1!u! reached %2!s!", logged only.
constexpr int kConsumerSituation = 5001;
constexpr unsigned int kRun = 7;
const wchar_t kReached[] = L"the installed log";

// The log file's text behind its byte-order mark, or an empty text if it is not UTF-16LE.
QString logText(const QString& name)
{
    QFile file(name);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    const QByteArray bytes = file.readAll();
    if (!bytes.startsWith(QByteArray("\xFF\xFE", 2)) || bytes.size() % 2 != 0)
        return QString();
    return QString::fromUtf16(reinterpret_cast<const char16_t*>(bytes.constData() + 2), (bytes.size() - 2) / 2);
}

// The file's "FileVersion" in the default key, or an empty text if it has none.
QString fileVersionOf(const wchar_t* file)
{
    const DWORD size = GetFileVersionInfoSizeW(file, nullptr);
    std::vector<unsigned char> block(size);
    void* text = nullptr;
    UINT length = 0;
    if (size == 0 || !GetFileVersionInfoW(file, 0, size, block.data())
        || !VerQueryValueW(block.data(), L"\\StringFileInfo\\040904B0\\FileVersion", &text, &length))
        return QString();
    return QString::fromWCharArray(static_cast<const wchar_t*>(text));
}

// Whether `file` carries `expected` as its file version; says what it found if not.
bool hasFileVersion(const wchar_t* file, const char* expected)
{
    const QString found = fileVersionOf(file);
    if (found == QLatin1String(expected))
        return true;
    std::fprintf(stderr, "%ls: file version \"%s\", not \"%s\"\n", file, qPrintable(found), expected);
    return false;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s <log directory>\n", argv[0]);
        return 2;
    }
    const QString directory = QString::fromLocal8Bit(argv[1]);
    const QString logName = directory + QStringLiteral("/consumer.html");
    std::wstring log = logName.toStdWString();
    // No form file under this name: the library's built-in form serves.
    const std::wstring form = (directory + QStringLiteral("/Templates/consumer-form.html")).toStdWString();

    const HMODULE specs = LoadLibraryW(QString::fromLocal8Bit(ZMU_CONSUMER_STRINGS).toStdWString().c_str());
    if (specs == nullptr) {
        std::fprintf(stderr, "cannot load %s: error %u\n", ZMU_CONSUMER_STRINGS, GetLastError());
        return 1;
    }

    ZarnData dataSet;
    dataSet.setCharSetExternal(2); // string arguments are wide
    if (!dataSet.recordLogFileNomenclature(&log[0], form.c_str(), Zarn_LOG_HTML)) {
        std::fprintf(stderr, "log file not accepted: code %d\n", dataSet.getSelfDX_Code());
        return 1;
    }
    Zarn* const monitor = Zarn::create(&dataSet);
    if (monitor == nullptr) {
        std::fprintf(stderr, "Zarn::create failed with code %d\n", dataSet.getSelfDX_Code());
        return 1;
    }
    monitor->respondToSituation(kConsumerSituation, specs, kRun, kReached);
    const int code = monitor->getSelfDX_Code();
    Zarn::destroy();
    FreeLibrary(specs);
    if (code != 0) {
        std::fprintf(stderr, "situation %d failed with code %d\n", kConsumerSituation, code);
        return 1;
    }

    const QString entry = QStringLiteral("Consumer run %1 reached %2").arg(kRun).arg(QString::fromWCharArray(kReached));
    const QString text = logText(logName);
    if (!text.contains(entry)) {
        std::fprintf(stderr, "%s holds no entry \"%s\":\n%s\n", qPrintable(logName), qPrintable(entry), qPrintable(text));
        return 1;
    }
    std::printf("logged: %s\n", qPrintable(entry));

    wchar_t program[1024] = {};
    if (GetModuleFileNameW(nullptr, program, 1024) == 0)
        return 1;
    // "zmu.dll" is libzmu itself, wherever it was installed.
    if (!hasFileVersion(program, ZMU_CONSUMER_VERSION) || !hasFileVersion(L"zmu.dll", ZMU_PACKAGE_VERSION))
        return 1;
    std::printf("versions: program %s, zmu %s\n", ZMU_CONSUMER_VERSION, ZMU_PACKAGE_VERSION);
    return 0;
}
