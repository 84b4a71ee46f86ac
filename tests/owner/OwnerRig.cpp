#include "OwnerRig.h"

#include "platform/Modules.h"
#include "platform/Registry.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <pwd.h>
#include <unistd.h>

namespace ownerRig {
namespace {

constexpr wchar_t kKey[] = L"SOFTWARE\\Quorvane\\Farrowlink\\AppServer";
constexpr wchar_t kValue[] = L"ZM_Assertiveness";

struct Folders
{
    QTemporaryDir root;
    int round = 0;
    QString logDirectory;
};

Folders& folders()
{
    static int argc = 1;
    static char name[] = "zmu_test_owner";
    static char* argv[] = {name, nullptr};
    if (QCoreApplication::instance() == nullptr)
        new QCoreApplication(argc, argv); // lives to the end: the program's name and folder
    static Folders made; // removed at exit with all the rounds
    return made;
}

// Zarn keeps its data set to itself and its subclasses, and so does ZarnData its log series.
struct MonitorPeek : Zarn
{
    using Zarn::getDataSet;
};
struct SeriesPeek : ZarnData
{
    using ZarnData::s_logSeriesCount;
    using ZarnData::s_logSeriesOrigin;
};

} // namespace

void prepare()
{
    Folders& made = folders();
    Zarn::destroy();
    SeriesPeek::s_logSeriesCount = 1;
    SeriesPeek::s_logSeriesOrigin[0] = L'\0';
    const QString round = made.root.path() + QStringLiteral("/%1").arg(++made.round);
    QDir().mkpath(round + QStringLiteral("/registry"));
    QDir().mkpath(round + QStringLiteral("/log"));
    qputenv("ZMU_REGISTRY_ROOT", (round + QStringLiteral("/registry")).toUtf8());
    qputenv("ZMU_BRAND_FILE", brandFile().toUtf8());
    QFile::remove(brandFile());
    QDir().rmdir(brandFile());
    made.logDirectory = round + QStringLiteral("/log/");
    ZarnData::setLogVariables(made.logDirectory.toStdWString().c_str(), 1, true, 20, 7);
}

QString logDirectory() { return folders().logDirectory; }
QString brandFile() { return folders().root.path() + QStringLiteral("/farrowlink.brand"); }
void keepFoldersAtExit() { folders().root.setAutoRemove(false); }

void writeBrandFile(const QByteArray& text)
{
    QFile file(brandFile());
    if (text == "/")
        QDir().mkdir(brandFile());
    else if (!text.isEmpty() && file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(text);
}

void storeAssertiveness(DWORD type, const void* data, DWORD size)
{
    HKEY key = nullptr;
    RegCreateKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr);
    if (data != nullptr)
        RegSetValueExW(key, kValue, 0, type, static_cast<const BYTE*>(data), size);
    RegCloseKey(key);
}

void readAssertiveness(DWORD& type, DWORD& value)
{
    HKEY key = nullptr;
    type = REG_NONE;
    value = 0;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, KEY_READ, &key) != 0)
        return;
    DWORD size = sizeof(value);
    RegQueryValueExW(key, kValue, nullptr, &type, reinterpret_cast<BYTE*>(&value), &size);
    RegCloseKey(key);
}

ZarnData* dataOf(const Zarn* monitor) { return (monitor->*&MonitorPeek::getDataSet)(); }

std::wstring readLogFile(const std::wstring& name)
{
    QFile file(QString::fromStdWString(name));
    file.open(QIODevice::ReadOnly);
    const QByteArray bytes = file.readAll();
    return QString::fromUtf16(reinterpret_cast<const char16_t*>(bytes.constData()), bytes.size() / 2).toStdWString();
}

HMODULE loadTestModule(const char* file)
{
    const std::string path = std::string(ZMU_TEST_MODULE_DIR "/") + file;
    return LoadLibraryW(std::wstring(path.begin(), path.end()).c_str());
}

std::wstring userName()
{
    const passwd* entry = ::getpwuid(::geteuid());
    return entry != nullptr ? QString::fromLocal8Bit(entry->pw_name).toStdWString() : std::wstring();
}

} // namespace ownerRig
