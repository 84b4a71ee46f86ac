#include "owner/ZRpbr.h"

#include "platform/Modules.h"

#include <QByteArray>
#include <QFile>
#include <QFileInfo>
#include <QString>
#include <QStringList>

#include <cwchar>
#include <map>
#include <new>
#include <string>

struct ZRpbr::Texts
{
    std::map<int, std::wstring> byID;
};

std::atomic<ZRpbr*> ZRpbr::s_brander{nullptr};
int ZRpbr::s_selfDX_Code = 0;

namespace {

constexpr int kUnknownFailure = 1;
constexpr int kKindRefused = 2;
constexpr int kAlreadyAlive = 3;
constexpr int kFileUnreadable = 4;
constexpr int kFileMalformed = 5;
constexpr int kBrandTextID_Max = 65535;
constexpr wchar_t kBrandFileLeafName[] = L"zbr4u.brand";

struct BuiltInText
{
    int id;
    const wchar_t* text;
};

// What the product is called when no brand file says otherwise.
constexpr BuiltInText kBuiltInTexts[] = {
    {ZRpbr::kBrandTextCompanyKnowBase, L"https://support.quorvane.com"},
    {ZRpbr::kBrandTextCompanyNameLong, L"Quorvane Software"},
    {ZRpbr::kBrandTextCompanyNameShort, L"Quorvane"},
    {ZRpbr::kBrandTextCompanyWebsite, L"https://www.quorvane.com"},
    {ZRpbr::kBrandTextProductName, L"Farrowlink"},
    {ZRpbr::kBrandTextModuleNameCM, L"Farrowlink Connection Manager"},
    {ZRpbr::kBrandTextModuleNameLogon, L"Farrowlink Logon"},
    {ZRpbr::kBrandTextModuleNamePW, L"Farrowlink Workspace"},
    {ZRpbr::kBrandTextSuiteName, L"Farrowlink Suite"},
};

// Reads `file` into `texts`, keeping the first line of each id; raises the status code.
void readBrandFile(const QString& file, std::map<int, std::wstring>& texts)
{
    QFile input(file);
    if (!input.open(QIODevice::ReadOnly))
        throw kFileUnreadable;
    const QByteArray bytes = input.readAll();
    if (input.error() != QFileDevice::NoError)
        throw kFileUnreadable;
    const QStringList lines = QString::fromUtf8(bytes).split(QLatin1Char('\n'));
    for (QString line : lines) {
        if (line.endsWith(QLatin1Char('\r')))
            line.chop(1);
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
            continue;
        const int equals = line.indexOf(QLatin1Char('='));
        bool isNumber = false;
        const int id = equals > 0 ? line.left(equals).toInt(&isNumber, 10) : -1;
        // Digits only: no sign and no blanks around the id, which toInt would let pass.
        if (!isNumber || id < 0 || id > kBrandTextID_Max || !line.at(0).isDigit() || !line.at(equals - 1).isDigit())
            throw kFileMalformed;
        texts.emplace(id, line.mid(equals + 1).toStdWString());
    }
}

} // namespace

ZRpbr::ZRpbr() : m_texts(nullptr) {}

ZRpbr::~ZRpbr()
{
    delete m_texts;
}

ZRpbr* ZRpbr::getProductBrander()
{
    return s_brander.load();
}

int ZRpbr::getSelfDX_Code()
{
    return s_selfDX_Code;
}

const wchar_t* ZRpbr::getBrandFileName(wchar_t* buffer, unsigned long long capacity)
{
    if (buffer == nullptr || capacity == 0)
        return buffer;
    std::wmemset(buffer, 0, capacity);
    QString file = qEnvironmentVariable("ZMU_BRAND_FILE");
    if (file.isEmpty()) {
        wchar_t program[1024] = {};
        const DWORD length = GetModuleFileNameW(nullptr, program, 1024);
        if (length == 0 || length >= 1024)
            return buffer;
        file = QFileInfo(QString::fromWCharArray(program, static_cast<int>(length))).path() + QLatin1Char('/')
               + QString::fromWCharArray(kBrandFileLeafName);
    }
    // A name that does not fit comes back empty rather than cut to some other file's name.
    if (static_cast<unsigned long long>(file.size()) < capacity)
        file.toWCharArray(buffer);
    return buffer;
}

ZRpbr* ZRpbr::create(int kind)
{
    ZRpbr* made = nullptr;
    try {
        s_selfDX_Code = 0;
        if (kind != kKindWide)
            throw kKindRefused;
        if (s_brander.load() != nullptr)
            throw kAlreadyAlive;
        made = new ZRpbr;
        made->m_texts = new Texts;
        for (const BuiltInText& builtIn : kBuiltInTexts)
            made->m_texts->byID[builtIn.id] = builtIn.text;

        wchar_t file[1024] = {};
        getBrandFileName(file, 1024);
        const QString name = QString::fromWCharArray(file);
        if (!name.isEmpty() && QFileInfo::exists(name)) {
            std::map<int, std::wstring> fromFile;
            readBrandFile(name, fromFile);
            for (auto& entry : fromFile)
                made->m_texts->byID[entry.first] = std::move(entry.second);
        }
        ZRpbr* expected = nullptr;
        if (!s_brander.compare_exchange_strong(expected, made))
            throw kAlreadyAlive;
        return made;
    } catch (int code) {
        s_selfDX_Code = code;
    } catch (...) {
        s_selfDX_Code = kUnknownFailure;
    }
    delete made;
    return nullptr;
}

void ZRpbr::destroy()
{
    delete s_brander.exchange(nullptr);
}

wchar_t* ZRpbr::getBrandText(int id, wchar_t* buffer, unsigned long long capacity) const
{
    if (buffer == nullptr || capacity == 0)
        return buffer;
    buffer[0] = L'\0';
    const auto found = m_texts->byID.find(id);
    if (found == m_texts->byID.end())
        return buffer;
    const std::wstring& text = found->second;
    const size_t count = text.size() < capacity ? text.size() : static_cast<size_t>(capacity - 1);
    std::wmemcpy(buffer, text.data(), count);
    buffer[count] = L'\0';
    return buffer;
}
