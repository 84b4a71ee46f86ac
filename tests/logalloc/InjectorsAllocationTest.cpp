// Form injectors under memory limits: reports too large for the head give way one at a time, and
// a report whose affix can't be stored is abandoned alone. Seen through this program's seams.
#include "AllocationSeams.h"

#include "log/FormRig.h"
#include "log/InjectorRig.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <QByteArray>
#include <QFile>
#include <QString>

#include <string>
#include <vector>

namespace {

// One injector whose four affixes are lines of `affixLength` characters, each starting with its
// own tag so that the report can be told apart.
std::string largeInjector(const char* variable, const char* tag, size_t affixLength)
{
    std::string text = std::string(variable) + " 1 1 0\n";
    for (const char* side : {"cp", "cs", "dp", "ds"})
        text += paddedLine(std::string("<") + tag + side, affixLength, '.') + "\n";
    return text;
}

const std::string kBodyAndTail = "^BODY\n<p>[SITUATION_DSCRP]</p>\n^TAIL\n</html>\n";

// Environment variables that make the report of the environment as long as the test needs.
class PaddingVariables
{
public:
    explicit PaddingVariables(int count) : m_count(count)
    {
        for (int index = 0; index < m_count; ++index)
            qputenv(name(index).constData(), "padding");
    }
    ~PaddingVariables()
    {
        for (int index = 0; index < m_count; ++index)
            qunsetenv(name(index).constData());
    }

private:
    static QByteArray name(int index) { return "ZMU_PADDING_" + QByteArray::number(index); }
    int m_count;
};

class InjectorsAllocation : public testing::Test
{
protected:
    void SetUp() override { Zarn::destroy(); }
    void TearDown() override { Zarn::destroy(); }

    // A monitor whose log is made with the given form, with the formatter held to the size asked for.
    Zarn* createMonitor(const std::string& form)
    {
        const QString formName = m_temporary.path() + QStringLiteral("/form.html");
        QFile file(formName);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(form.c_str());
        file.close();
        m_logName = QString::fromStdWString(testLogPath(L"injected"));
        std::wstring logName = m_logName.toStdWString();
        ZarnData dataSet;
        dataSet.setCharSetExternal(2);
        dataSet.recordTag(L"Farrowlink", Zarn_FORM_TAG_PRODUCT_NAME);
        EXPECT_TRUE(dataSet.recordLogFileNomenclature(&logName[0], formName.toStdWString().c_str(), Zarn_LOG_HTML));
        m_seam.limitToSize = true;
        const ArmedFormatter armed(m_seam);
        Zarn* const monitor = Zarn::create(&dataSet);
        EXPECT_NE(monitor, nullptr) << "create failed with " << dataSet.getSelfDX_Code();
        return monitor;
    }

    const TempPathScope m_temporary;
    FormatterSeam m_seam;
    QString m_logName;
};

} // namespace

// Together the three reports never fit; without the last one they do, and it alone gives way.
TEST_F(InjectorsAllocation, ThirdOfThreeLargeReportsGivesWayToTheMemoryRow)
{
    const PaddingVariables padding(150);
    const std::string form = "^INJECT_SYS_INFO\n3\n" + largeInjector("SYS_INFO_ENV_APP", "a", 60)
                             + largeInjector("SYS_INFO_ENV_OP", "o", 200)
                             + largeInjector("SYS_INFO_VARS_ENV", "v", 1000)
                             + "^HEAD\n<h>[PRODUCT_NAME]|[SYS_INFO_ENV_APP]|[SYS_INFO_ENV_OP]|[SYS_INFO_VARS_ENV]</h>\n"
                             + kBodyAndTail;
    Zarn* const monitor = createMonitor(form);
    ASSERT_NE(monitor, nullptr);
    const ZarnDataFile& file = *MonitorInside::dataSetOf(monitor)->getFileLog();
    const QString app = injectorText(file, 0);
    const QString op = injectorText(file, 1);
    const QString vars = injectorText(file, 2);
    const QString row = memoryLimitationRow();
    // The premises of the test: the reports are sized as it needs.
    ASSERT_GT(app.size() + op.size() + vars.size(), 524288);
    ASSERT_LT(app.size() + op.size() + row.size(), 524288 - 1024);

    ASSERT_GE(m_seam.allocatingSizes.size(), 5u);
    EXPECT_EQ(std::vector<DWORD>(m_seam.allocatingSizes.begin(), m_seam.allocatingSizes.begin() + 5),
              (std::vector<DWORD>{65536, 131072, 262144, 524288, 65536}))
        << "one climb, then one text given up";
    EXPECT_TRUE(logFileText(m_logName).startsWith(QStringLiteral("<h>Farrowlink|") + app + QLatin1Char('|') + op
                                                  + QLatin1Char('|') + row + QStringLiteral("</h>")));
}

// The row takes argument 0, the product name, and the report that stays never fits: the form
// file gives way to the built-in form, whose head has no reports.
TEST_F(InjectorsAllocation, LoneHugeApplicationReportFailsTheHeadAndTheBuiltInFormTakesOver)
{
    const std::string form = "^INJECT_SYS_INFO\n1\n" + largeInjector("SYS_INFO_ENV_APP", "a", 500)
                             + "^HEAD\n<h>[PRODUCT_NAME]|[SYS_INFO_ENV_APP]</h>\n" + kBodyAndTail;
    Zarn* const monitor = createMonitor(form);
    ASSERT_NE(monitor, nullptr);
    EXPECT_EQ(monitor->getSelfDX_Code(), 0);
    std::vector<DWORD> sizes = climbs(2);
    sizes.push_back(65536); // the built-in head
    EXPECT_EQ(m_seam.allocatingSizes, sizes);
    const QString log = logFileText(m_logName);
    EXPECT_TRUE(log.startsWith(QStringLiteral("<html><body>\r\n<!-- ProductVersion=")))
        << log.left(200).toStdString();
    EXPECT_TRUE(log.endsWith(QStringLiteral("</body><html>\r\n")));
    EXPECT_EQ(MonitorInside::dataSetOf(monitor)->getFileLog()->m_injectorFiles, nullptr);
    EXPECT_EQ(countInjectorFiles(), 0) << "the report's file went with the form's head";
}

// An affix that can't be stored abandons its injector: the rest of its lines are still read, so
// the next definition is learned as usual, and the form is kept.
TEST_F(InjectorsAllocation, FailedAffixAbandonsOnlyItsInjector)
{
    constexpr size_t kFailingLength = 997; // stored in (997 + 1) * 4 bytes
    const std::string failing = std::string(kFailingLength, 'x') + "\n";
    struct Row
    {
        const char* name;
        std::string opPairs; // caption pairs 1 and 2, then the datum pair
    };
    const Row rows[] = {
        {"caption prefix of the first pair", failing + "</th>\n<th>\n</th>\n<td>\n</td>\n"},
        {"datum suffix of the last pair", "<th>\n</th>\n<th>\n</th>\n<td>\n" + failing},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        FormRig rig("^INJECT_SYS_INFO\n2\nSYS_INFO_ENV_OP 2 1 0\n" + row.opPairs
                    + "SYS_INFO_VARS_ENV 1 1 0\n<th>\n</th>\n<td>\n</td>\n"
                      "^HEAD\n<h>[SYS_INFO_ENV_OP]|[SYS_INFO_VARS_ENV]</h>\n"
                    + kBodyAndTail);
        const TempPathScope temporary;
        TraceCapture trace;
        {
            const FailedArrayAllocation refused((kFailingLength + 1) * sizeof(wchar_t));
            ASSERT_TRUE(rig.data().obtainLogFileFormData(kAllSections));
            EXPECT_GE(refused.failures(), 1);
        }
        EXPECT_FALSE(trace.contains(L"is dismissing"));
        EXPECT_FALSE(rig.file().m_formIsBuiltIn);
        EXPECT_EQ(injectorsWithText(rig.file()), 4u) << "only the environment's report";
        EXPECT_TRUE(injectorText(rig.file(), 2).startsWith(QStringLiteral("<th>")));
        EXPECT_EQ(countInjectorFiles(), 2) << "an abandoned report's file stays until the form goes";
    }
}
