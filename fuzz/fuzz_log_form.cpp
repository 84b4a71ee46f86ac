// Log forms from fuzz bytes: the bytes become a form file, which a data set learns as it does when
// it establishes its log: the markers cut it into the injector block and the sections, the
// sections' bracketed variables are compiled into inserts, and the injector block writes its
// reports into temporary files. Then the form is put to work: a second data set establishes a log
// file with it (head and first tail) and writes one entry, the library's own series note.
//
// A bad form costs the layout only: the built-in form takes its place, so learning must succeed
// whatever the file holds. The compiled sections must be whole, and when a data set goes, its
// temporary files go with it.
#include "FuzzSupport.h"

#include "foundation/IntegerWidths.h"
#include "log/ZarnDataFile.h"
#include "log/ZarnFormEnums.h"
#include "monitor/ZarnData.h"
#include "platform/Modules.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QString>
#include <QStringList>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <memory>
#include <string>

namespace {

// The form operations of a data set, opened.
class FormProbe : public ZarnData
{
public:
    using ZarnData::obtainLogFileFormData;
};

constexpr unsigned long kAllSections = SECTION_HEAD | SECTION_BODY | SECTION_TAIL;
// The library's own situation that tells a log file's place in its series: an unsigned number and
// a text, from the argument cursor.
constexpr int kSeriesNoteSituation = 10006;

struct FormFiles
{
    QString formPath;
    std::wstring formName;
    std::wstring logName;
};

const FormFiles& formFiles()
{
    static const FormFiles s_files = [] {
        FormFiles files;
        const QDir scratch(zmu_fuzz::ScratchDirectory::path());
        files.formPath = scratch.filePath(QStringLiteral("form.html"));
        files.formName = files.formPath.toStdWString();
        files.logName = scratch.filePath(QStringLiteral("zmu.html")).toStdWString();
        return files;
    }();
    return s_files;
}

int countInjectorFiles()
{
    return QDir(zmu_fuzz::ScratchDirectory::path())
        .entryList(QStringList(QStringLiteral("Farrowlink*")), QDir::Files | QDir::Hidden | QDir::System)
        .size();
}

// A compiled section: null, or a format with a variable for each insert and no brackets left
// once it has variables.
void checkSection(const wchar_t* format, int varCount, const Zarn_FORM_VAR* vars, const unsigned long long* values)
{
    if (format == nullptr) {
        zmu_fuzz::check(varCount == 0, "variables without a section");
        return;
    }
    zmu_fuzz::check(varCount >= 0, "a negative variable count");
    // A section without variables is its own format, an unclosed bracket included.
    if (varCount == 0)
        return;
    zmu_fuzz::check(std::wcschr(format, L'[') == nullptr && std::wcschr(format, L']') == nullptr,
                    "a bracket left in a compiled section");
    zmu_fuzz::check(vars != nullptr && values != nullptr, "a section's variables without their arrays");
    for (int index = 0; index < varCount; ++index)
        zmu_fuzz::check(vars[index] >= 0 && vars[index] < Zarn_FORM_VAR_Qty, "a variable outside the table");
}

// The form at work, on a fresh log file. Sections are text the formatter reads, a stray % of the
// form's own among it, so writing may fail with a code; it must not do worse.
void writeWithForm(const FormFiles& files)
{
    QFile::remove(QString::fromStdWString(files.logName));
    auto dataSet = std::make_unique<ZarnData>();
    std::wstring logName = files.logName;
    dataSet->setResourceModule(GetModuleHandleW(L"zmu.dll")); // where the series note's spec is
    dataSet->recordLogFileNomenclature(&logName[0], files.formName.c_str(), Zarn_LOG_HTML);
    if (!dataSet->establishLogFile(true))
        return;
    u64 arguments[] = {2, static_cast<u64>(reinterpret_cast<std::uintptr_t>(L"zmu-0.html"))};
    char* cursor = reinterpret_cast<char*>(arguments);
    dataSet->recordSituationID(kSeriesNoteSituation);
    dataSet->respondToSituation(&cursor);
    if (std::getenv("ZMU_FUZZ_VERBOSE") != nullptr) { // for reading what a saved input does
        dataSet.reset();
        QFile log(QString::fromStdWString(files.logName));
        if (log.open(QIODevice::ReadOnly)) {
            const QByteArray bytes = log.readAll();
            const QString text = QString::fromUtf16(reinterpret_cast<const char16_t*>(bytes.constData()),
                                                    static_cast<int>(bytes.size() / 2));
            std::fprintf(stderr, "%s\n", text.toLocal8Bit().constData());
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    zmu_fuzz::quietEnvironment();
    formFiles();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const FormFiles& files = formFiles();
    {
        QFile form(files.formPath);
        if (!form.open(QIODevice::WriteOnly | QIODevice::Truncate)
            || form.write(reinterpret_cast<const char*>(data), static_cast<qint64>(size)) != static_cast<qint64>(size))
            zmu_fuzz::fail("the form file cannot be written");
    }

    {
        auto dataSet = std::make_unique<FormProbe>();
        std::wstring logName = files.logName;
        zmu_fuzz::check(dataSet->recordLogFileNomenclature(&logName[0], files.formName.c_str(), Zarn_LOG_HTML),
                        "the names are refused");
        zmu_fuzz::check(dataSet->initialize(), "the data set does not initialise");
        zmu_fuzz::check(dataSet->obtainLogFileFormData(kAllSections), "no form learned, not even the built-in one");

        const ZarnDataFile& file = *dataSet->getFileLog();
        checkSection(file.m_headFormat, file.m_headVarCount, file.m_headVars, file.m_headValues);
        checkSection(file.m_bodyFormat, file.m_bodyVarCount, file.m_bodyVars, file.m_bodyValues);
        checkSection(file.m_tailFormat, file.m_tailVarCount, file.m_tailVars, file.m_tailValues);
        zmu_fuzz::check(file.m_headFormat != nullptr && file.m_bodyFormat != nullptr && file.m_tailFormat != nullptr,
                        "a section missing from a learned form");
        bool bodyTells = false;
        for (int index = 0; index < file.m_bodyVarCount; ++index)
            bodyTells = bodyTells || file.m_bodyVars[index] == Zarn_FORM_VAR_SITUATION_DSCRP;
        zmu_fuzz::check(bodyTells, "a body without the description");
    }
    zmu_fuzz::check(countInjectorFiles() == 0, "an injector's file outlives its data set");
    writeWithForm(files);
    zmu_fuzz::check(countInjectorFiles() == 0, "an injector's file outlives its data set");
    return 0;
}
