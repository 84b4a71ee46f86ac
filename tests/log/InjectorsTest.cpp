// Form injectors: the injector block of a form is learned into three reports of the system, each
// in a temporary file of its own, and every head of the log series carries them.
#include "FormRig.h"
#include "InjectorRig.h"

#include "monitor/Zarn.h"
#include "platform/Modules.h"
#include "support/TraceCapture.h"
#include "sysinfo/ZarnSysInfoEnvApp.h"
#include "sysinfo/ZarnSysInfoEnvOp.h"
#include "sysinfo/ZarnSysInfoEnvVars.h"
#include "sysinfo/ZarnSysInfoFormatterHTML.h"

#include <gtest/gtest.h>

#include <QRegularExpression>

#include <memory>
#include <string>
#include <vector>

namespace {

constexpr unsigned long kAllSections = SECTION_HEAD | SECTION_BODY | SECTION_TAIL;
constexpr unsigned kApp = 1;
constexpr unsigned kOp = 2;
constexpr unsigned kVars = 4;

std::wstring dismissal(int code)
{
    return L"ZarnData::processFileLogForm (7) is dismissing exception #" + std::to_wstring(code) + L".";
}

// A form whose head shows all three reports, around the injector block `block`.
std::string formWithBlock(const std::string& block)
{
    return "^INJECT_SYS_INFO\n" + block
           + "^HEAD\n<table>[SYS_INFO_ENV_APP]</table><table>[SYS_INFO_ENV_OP]</table>"
             "<table>[SYS_INFO_VARS_ENV]</table>\n"
             "^BODY\n<p>[SITUATION_DSCRP]</p>\n^TAIL\n</html>\n";
}

// A definition line followed by its pairs: captions as <th></th>, data as <td></td>.
std::string injector(const std::string& definition, int captionPairs, int datumPairs)
{
    std::string text = definition + "\n";
    for (int pair = 0; pair < captionPairs; ++pair)
        text += "<th>\n</th>\n";
    for (int pair = 0; pair < datumPairs; ++pair)
        text += "<td>\n</td>\n";
    return text;
}

int occurrences(const QString& text, const char* what)
{
    return text.count(QLatin1String(what));
}

// The captions of one walk of a fresh source.
std::vector<QString> captionsOf(ZarnSysInfo& source)
{
    constexpr int kTextQty = ZarnSysInfoFormatterHTML::kTextQty;
    std::vector<QString> captions;
    std::vector<wchar_t> caption(kTextQty), datum(kTextQty);
    for (bool more = source.getFirstDataPair(caption.data(), datum.data(), kTextQty, kTextQty); more;
         more = source.getNextDataPair(caption.data(), datum.data(), kTextQty, kTextQty))
        captions.push_back(QString::fromWCharArray(caption.data()));
    return captions;
}

} // namespace

// Every malformed block either costs the whole form, which the built-in form replaces, or is
// learned with the injectors it could make; the files of a dismissed block leave the disk at once.
TEST(Injectors, EveryBlockIsLearnedOrDismissedWithItsCode)
{
    enum Captions
    {
        AnyForm,
        LongForm,  // every pair shows its caption
        ShortForm, // runs of pairs that share a first word show it once
    };
    struct Row
    {
        const char* name;
        std::string block;
        int dismissed; // the code the form file is dismissed with; 0 if it is kept
        unsigned held;
        int files;
        const char* reportStart = nullptr; // how the first held report begins
        Captions captions = AnyForm;       // of the first held report
        TempPathScope::Kind temporary = TempPathScope::Existing;
    };
    const std::string op = injector("SYS_INFO_ENV_OP 1 1 0", 1, 1);
    const std::string vars = injector("SYS_INFO_VARS_ENV 1 1 0", 1, 1);
    const Row rows[] = {
        {"one injector", "1\n" + op, 0, kOp, 1, "<th>"},
        {"letters before the count", "injectors: 1\n" + op, 0, kOp, 1},
        {"a count of 0 reads no further", "0\nNOT_AN_INJECTOR\n", 0, 0, 0},
        {"a count of 5 learns three and leaves the rest unread",
         "5\n" + injector("SYS_INFO_ENV_APP 1 1 0", 1, 1) + op + vars + "NOT_AN_INJECTOR 0 0 0\nx\n", 0, kApp | kOp | kVars,
         3},
        {"the same variable twice: the later report replaces the earlier",
         "2\n" + injector("SYS_INFO_VARS_ENV 1 0 0", 0, 0) + "<b>\n</b>\n" + injector("SYS_INFO_VARS_ENV 1 0 0", 0, 0)
             + "<i>\n</i>\n",
         0, kVars, 1, "<i>"},
        {"a field 2 of n=2 counts 2", "1\n" + injector("SYS_INFO_ENV_OP n=2 0 0", 2, 0), 0, kOp, 1},
        {"a definition of 1023 characters", "1\n" + paddedLine("SYS_INFO_VARS_ENV 0 0 ", 1023, '0') + "\n", 0, kVars,
         1},
        {"a field 4 of x1 is the short form", "1\n" + injector("SYS_INFO_ENV_APP 1 1 x1", 1, 1), 0, kApp, 1, nullptr,
         ShortForm},
        {"a field 4 of 10 is the short form", "1\n" + injector("SYS_INFO_ENV_APP 1 1 10", 1, 1), 0, kApp, 1, nullptr,
         ShortForm},
        {"a field 4 of 0 is the long form", "1\n" + injector("SYS_INFO_ENV_APP 1 1 0", 1, 1), 0, kApp, 1, nullptr,
         LongForm},
        {"no count", "none\n" + op, 71, 0, 0},
        {"an empty block meets the head marker", "", 71, 0, 0},
        {"three fields", "1\nSYS_INFO_ENV_OP 0 0\n", 92, 0, 0},
        {"five fields", "1\nSYS_INFO_ENV_OP 0 0 0 0\n", 92, 0, 0},
        {"a trailing blank makes a fifth field", "1\nSYS_INFO_ENV_OP 0 0 0 \n", 92, 0, 0},
        {"too few definitions meet the head marker", "2\n" + op, 92, 0, 0},
        {"a definition of 1024 characters", "1\n" + paddedLine("SYS_INFO_VARS_ENV 0 0 ", 1024, '0') + "\n", 92, 0, 0},
        {"two blanks make field 2 empty", "1\nSYS_INFO_ENV_OP  0 0\n", 69, 0, 0},
        {"field 2 without a digit", "1\nSYS_INFO_ENV_OP n 0 0\n", 69, 0, 0},
        {"field 3 without a digit", "1\nSYS_INFO_ENV_OP 0 - 0\n", 73, 0, 0},
        {"field 4 without 0 or 1", "1\nSYS_INFO_ENV_OP 0 0 2\n", 89, 0, 0},
        {"a variable that isn't an injector's", "1\nYEAR 0 0 0\n", 75, 0, 0},
        {"an injector variable in lower case", "1\nsys_info_env_op 0 0 0\n", 75, 0, 0},
        {"the form ends inside the pairs", "1\n" + injector("SYS_INFO_ENV_OP 99999 0 0", 0, 0), 79, 0, 0},
        {"a later definition fails after a report was made", "2\n" + vars + "SYS_INFO_ENV_OP 0 0\n", 92, 0, 0},
        {"the temporary directory is a plain file", "1\n" + op, 90, 0, 0, nullptr, AnyForm, TempPathScope::PlainFile},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        FormRig rig(formWithBlock(row.block));
        const TempPathScope temporary(row.temporary);
        TraceCapture trace;
        ASSERT_TRUE(rig.data().obtainLogFileFormData(kAllSections));
        const ZarnDataFile& file = rig.file();
        EXPECT_EQ(file.m_formIsBuiltIn, row.dismissed != 0);
        if (row.dismissed != 0) {
            EXPECT_TRUE(trace.contains(dismissal(row.dismissed)));
            EXPECT_EQ(file.m_injectorFiles, nullptr);
            EXPECT_EQ(file.m_injectorStreams, nullptr);
        } else {
            EXPECT_FALSE(trace.contains(L"is dismissing"));
        }
        EXPECT_EQ(injectorsWithText(file), row.held);
        if (row.temporary == TempPathScope::Existing) {
            EXPECT_EQ(countInjectorFiles(), row.files);
        }
        if (row.held == 0)
            continue;
        int first = 0;
        while ((row.held & (1u << first)) == 0)
            ++first;
        const QString report = injectorText(file, first);
        EXPECT_FALSE(report.isEmpty());
        if (row.reportStart != nullptr) {
            EXPECT_TRUE(report.startsWith(QLatin1String(row.reportStart))) << report.left(80).toStdString();
        }
        if (row.captions == LongForm) {
            EXPECT_EQ(occurrences(report, "<th>"), occurrences(report, "<td>"));
        } else if (row.captions == ShortForm) {
            EXPECT_LT(occurrences(report, "<th>"), occurrences(report, "<td>"));
        }
    }
}

namespace {

// The log directory of the process, where a successor log file is composed: the given one while
// the scope lasts, then the one before.
class LogDirectoryScope
{
public:
    explicit LogDirectoryScope(const QString& directory)
        : m_previous(ZarnData::getLogDirectory() != nullptr ? ZarnData::getLogDirectory() : L"")
    {
        record((directory + QLatin1Char('/')).toStdWString().c_str());
    }
    ~LogDirectoryScope() { record(m_previous.empty() ? nullptr : m_previous.c_str()); }

private:
    static void record(const wchar_t* directory)
    {
        ZarnData::setLogVariables(directory, ZarnData::getLogOutputLevel(), ZarnData::getLogBackupEnabled(),
                                  ZarnData::getLogMaxFileSize(), ZarnData::getLogMaxFileAge());
    }

    std::wstring m_previous;
};

// The captions of one report table as the example form lays it out, or none if the table holds
// anything but whole rows.
std::vector<QString> tableCaptions(const QString& log, const char* heading, QString* table)
{
    const QRegularExpression section(QStringLiteral("<h2>%1</h2>\r\n<table class=\"sysinfo\">\r\n(.*?)</table>")
                                         .arg(QLatin1String(heading)),
                                     QRegularExpression::DotMatchesEverythingOption);
    *table = section.match(log).captured(1);
    const QRegularExpression row(QStringLiteral("<tr class=\"(?:odd|even)\"><th>(.*?)</th><td>.*?</td></tr>"),
                                 QRegularExpression::DotMatchesEverythingOption);
    std::vector<QString> captions;
    int consumed = 0;
    for (QRegularExpressionMatchIterator rows = row.globalMatch(*table); rows.hasNext();) {
        const QRegularExpressionMatch next = rows.next();
        if (next.capturedStart() != consumed)
            return {};
        captions.push_back(next.captured(1));
        consumed = next.capturedEnd();
    }
    return consumed == table->size() ? captions : std::vector<QString>();
}

struct Source
{
    const char* heading;
    std::unique_ptr<ZarnSysInfo> (*make)();
};
const Source kSources[] = {
    {"Application Environment", [] { return std::unique_ptr<ZarnSysInfo>(new ZarnSysInfoEnvApp); }},
    {"Operating Environment", [] { return std::unique_ptr<ZarnSysInfo>(new ZarnSysInfoEnvOp); }},
    {"Environment Variables", [] { return std::unique_ptr<ZarnSysInfo>(new ZarnSysInfoEnvVars); }},
};

QString fileLogName(const Zarn* monitor)
{
    wchar_t name[MAX_PATH] = {};
    monitor->getFileLogName(name, MAX_PATH);
    return QString::fromWCharArray(name);
}

} // namespace

// The example form learns as it stands, and its reports are made once: the successor of a replaced
// log file opens with the very same tables. The reports' files go when the monitor's data set does.
TEST(InjectorsRoad, EveryFileOfTheSeriesOpensWithTheSameThreeReports)
{
    Zarn::destroy();
    const std::string module = ZMU_TEST_MODULE_DIR "/libzmu_test_report_specs.so";
    const HMODULE specs = LoadLibraryW(std::wstring(module.begin(), module.end()).c_str());
    ASSERT_NE(specs, nullptr);
    const TempPathScope temporary;
    const LogDirectoryScope successorsHere(temporary.path());
    const QString form = temporary.path() + QStringLiteral("/bpw_template.html");
    QFile formFile(form);
    ASSERT_TRUE(formFile.open(QIODevice::WriteOnly));
    formFile.write(exampleForm("bpw_template.html").c_str());
    formFile.close();
    ASSERT_EQ(countInjectorFiles(), 0);

    std::wstring logName = testLogPath(L"injected");
    ZarnData dataSet;
    dataSet.setCharSetExternal(2);
    dataSet.recordTag(L"Farrowlink", Zarn_FORM_TAG_PRODUCT_NAME);
    dataSet.recordTag(L"4.1", Zarn_FORM_TAG_PRODUCT_VERSION);
    ASSERT_TRUE(dataSet.recordLogFileNomenclature(&logName[0], form.toStdWString().c_str(), Zarn_LOG_HTML));
    TraceCapture trace;
    Zarn* const monitor = Zarn::create(&dataSet);
    ASSERT_NE(monitor, nullptr) << dataSet.getSelfDX_Code();
    EXPECT_FALSE(trace.contains(L"is dismissing")) << "the example form was dismissed";
    EXPECT_EQ(countInjectorFiles(), 3);
    for (const wchar_t* text : {L"first", L"second", L"third"})
        EXPECT_TRUE(monitor->respondToSituation(3005, specs, text)) << monitor->getSelfDX_Code();

    const QString first = fileLogName(monitor);
    unsigned long long previous = 0;
    ASSERT_TRUE(monitor->setLogFileByteCountLimit(1048576, previous));
    ASSERT_TRUE(MonitorInside::dataSetOf(monitor)->reestablishLogFile(false));
    const QString second = fileLogName(monitor);
    ASSERT_NE(second, first);
    EXPECT_TRUE(monitor->respondToSituation(3005, specs, L"fourth")) << monitor->getSelfDX_Code();
    EXPECT_EQ(countInjectorFiles(), 3) << "a successor reuses the reports";

    const QString firstLog = logFileText(first);
    const QString secondLog = logFileText(second);
    EXPECT_TRUE(firstLog.startsWith(QStringLiteral("<!DOCTYPE html>\r\n<html>\r\n<head>\r\n<title>Farrowlink 4.1 log")));
    EXPECT_EQ(firstLog.count(QStringLiteral("<td>Kind one ")), 3);
    EXPECT_EQ(secondLog.count(QStringLiteral("<td>Kind one fourth</td>")), 1);
    for (const Source& source : kSources) {
        SCOPED_TRACE(source.heading);
        QString firstTable;
        QString secondTable;
        const std::unique_ptr<ZarnSysInfo> fresh = source.make();
        EXPECT_EQ(tableCaptions(firstLog, source.heading, &firstTable), captionsOf(*fresh));
        tableCaptions(secondLog, source.heading, &secondTable);
        EXPECT_TRUE(secondTable == firstTable) << "the successor's table differs";
    }

    Zarn::destroy();
    EXPECT_EQ(countInjectorFiles(), 0);
    EXPECT_TRUE(FreeLibrary(specs));
}
