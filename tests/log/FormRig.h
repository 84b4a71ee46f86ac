// A data set for the tests of the log form: its protected form operations opened, and a form file
// written into a temporary directory of its own.
#pragma once

#include "monitor/ZarnData.h"

#include <QFile>
#include <QString>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

class FormProbe : public ZarnData
{
public:
    using ZarnData::areLogFileFormSectionsUsable;
    using ZarnData::composeLogFileFormSectionFormat;
    using ZarnData::convertLogFileFormVarNameToIndex;
    using ZarnData::createLogFileFormSectionArgV_Enums;
    using ZarnData::createLogFileFormSectionArgV_Values;
    using ZarnData::freeLogFileFormData;
    using ZarnData::freeLogFileFormSectionHeadData;
    using ZarnData::learnLogFileFormVarNames;
    using ZarnData::obtainLogFileFormData;
    using ZarnData::reformatLogFileFormSection;

    // Where the form's injector block starts, each time the injectors were to be learned.
    std::vector<long> injectorStarts;

protected:
    bool learnLogFileFormInjectors(long injectorStart) override
    {
        injectorStarts.push_back(injectorStart);
        return ZarnData::learnLogFileFormInjectors(injectorStart);
    }
};

// A compiled section as plain values: its format (empty if none) and its variables.
struct CompiledSection
{
    bool present = false;
    std::wstring format;
    std::vector<int> vars;
};

inline CompiledSection compiledSection(const wchar_t* format, int count, const Zarn_FORM_VAR* vars)
{
    CompiledSection section;
    section.present = format != nullptr;
    if (format != nullptr)
        section.format = format;
    for (int index = 0; vars != nullptr && index < count; ++index)
        section.vars.push_back(vars[index]);
    return section;
}

inline CompiledSection headOf(const ZarnDataFile& file)
{
    return compiledSection(file.m_headFormat, file.m_headVarCount, file.m_headVars);
}
inline CompiledSection bodyOf(const ZarnDataFile& file)
{
    return compiledSection(file.m_bodyFormat, file.m_bodyVarCount, file.m_bodyVars);
}
inline CompiledSection tailOf(const ZarnDataFile& file)
{
    return compiledSection(file.m_tailFormat, file.m_tailVarCount, file.m_tailVars);
}

constexpr unsigned long kAllSections = SECTION_HEAD | SECTION_BODY | SECTION_TAIL;

// The trace of a form file that fails, just before the built-in form takes its place.
inline std::wstring dismissal(int code)
{
    return L"ZarnData::processFileLogForm (7) is dismissing exception #" + std::to_wstring(code) + L".";
}

// How the form is named to the data set.
enum class FormName
{
    File,    // a file that holds the form's bytes
    Missing, // a path where no file is
    Empty,   // an empty name
    Null,    // no name
};

// A data set in a temporary directory, named with a log file and a form, and initialised; the
// data set goes before the directory does.
class FormRig
{
public:
    explicit FormRig(const std::string& formBytes, FormName kind = FormName::File, HMODULE selfModule = nullptr)
        : m_data(new FormProbe)
    {
        const QString logPath = m_dir.filePath(QStringLiteral("zmu.html"));
        const QString formPath = m_dir.filePath(QStringLiteral("Templates_form.html"));
        if (kind == FormName::File) {
            QFile file(formPath);
            if (file.open(QIODevice::WriteOnly)) {
                file.write(formBytes.data(), static_cast<qint64>(formBytes.size()));
                file.close();
            }
        }
        m_logName = logPath.toStdWString();
        m_formName = kind == FormName::Empty ? std::wstring() : formPath.toStdWString();
        m_data->recordLogFileNomenclature(&m_logName[0], kind == FormName::Null ? nullptr : m_formName.c_str(),
                                          Zarn_LOG_HTML);
        if (selfModule != nullptr)
            m_data->setSelfResourceModule(selfModule);
        m_data->initialize();
    }

    FormProbe& data() { return *m_data; }
    ZarnDataFile& file() { return *m_data->getFileLog(); }

private:
    QTemporaryDir m_dir; // declared first, so that it outlives the data set
    std::wstring m_logName;
    std::wstring m_formName;
    std::unique_ptr<FormProbe> m_data;
};

// The three sections as the built-in HTML form compiles them, and nothing from a form file.
inline void expectBuiltInForm(FormRig& rig)
{
    const ZarnDataFile& file = rig.file();
    EXPECT_TRUE(file.m_formIsBuiltIn);
    EXPECT_EQ(file.m_formStream, nullptr);
    EXPECT_EQ(headOf(file).format,
              L"<html><body>\n<!-- ProductVersion=%1!s! FileVersion=%2!s! -->%3!d!-%4!02d!-%5!02d! "
              L"%6!02d!:%7!02d!:%8!02d!.%9!03d! The log template file is inaccessible, corrupt, or perhaps too "
              L"large to format; will use default layout instead.<br>\n");
    EXPECT_EQ(headOf(file).vars, (std::vector<int>{22, 7, 30, 15, 4, 9, 12, 23, 11}));
    EXPECT_EQ(bodyOf(file).format,
              L"<!-- SituationID=%1!d! -->%2!d!-%3!02d!-%4!02d! %5!02d!:%6!02d!:%7!02d!.%8!03d! %9!s!<br>\n");
    EXPECT_EQ(bodyOf(file).vars, (std::vector<int>{25, 30, 15, 4, 9, 12, 23, 11, 24}));
    EXPECT_EQ(tailOf(file).format, L"</body><html>\n"); // deliberately not </html>
    EXPECT_TRUE(tailOf(file).vars.empty());
}
