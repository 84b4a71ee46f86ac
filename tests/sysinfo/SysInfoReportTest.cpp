// The HTML report of all three sources of this machine, in both forms, checked for its structure
// rather than for the machine's values.
#include "sysinfo/ZarnSysInfoEnvApp.h"
#include "sysinfo/ZarnSysInfoEnvOp.h"
#include "sysinfo/ZarnSysInfoEnvVars.h"
#include "sysinfo/ZarnSysInfoFormatterHTML.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QTextStream>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int kTextQty = ZarnSysInfoFormatterHTML::kTextQty;
const QString kRowEnd = "</td></tr>\n";

struct Kind
{
    const char* name;
    std::function<std::unique_ptr<ZarnSysInfo>()> make;
};
const Kind kKinds[] = {
    {"application environment", [] { return std::make_unique<ZarnSysInfoEnvApp>(); }},
    {"operating environment", [] { return std::make_unique<ZarnSysInfoEnvOp>(); }},
    {"environment variables", [] { return std::make_unique<ZarnSysInfoEnvVars>(); }},
};

// The captions of one walk of a fresh source, straight from the source.
std::vector<QString> captionsOf(ZarnSysInfo& source)
{
    std::vector<QString> captions;
    std::vector<wchar_t> caption(kTextQty), datum(kTextQty);
    for (bool more = source.getFirstDataPair(caption.data(), datum.data(), kTextQty, kTextQty); more;
         more = source.getNextDataPair(caption.data(), datum.data(), kTextQty, kTextQty))
        captions.push_back(QString::fromWCharArray(caption.data()));
    return captions;
}

// The source's table, as the log form decorates it: three row looks for captions and data alike.
QString reportOf(ZarnSysInfo& source, bool shortForm)
{
    ZarnSysInfoFormatterHTML formatter(nullptr);
    for (const wchar_t* prefix : {L"<tr><th class=\"c1\">", L"<tr><th class=\"c2\">", L"<tr><th class=\"c3\">"})
        formatter.addCaptionPrefix(prefix);
    formatter.addCaptionSuffix(L"</th>");
    for (const wchar_t* prefix : {L"<td class=\"d1\">", L"<td class=\"d2\">", L"<td class=\"d3\">"})
        formatter.addDatumPrefix(prefix);
    formatter.addDatumSuffix(L"</td></tr>\n");
    formatter.useShortForm(shortForm);
    formatter.setSysInfo(&source);
    QString text;
    QTextStream stream(&text);
    EXPECT_TRUE(formatter.reportSystemInformation(stream));
    return text;
}

} // namespace

// Every pair once and in order, affixes cycling 1, 2, 3, 1, ..., links only to existing absolute
// paths, and no source empty.
TEST(SysInfoReport, AllThreeSourcesInBothForms)
{
    const QRegularExpression captionPart("^<tr><th class=\"c([123])\">(.*)</th>$",
                                         QRegularExpression::DotMatchesEverythingOption);
    const QRegularExpression linkPart("<a href=\"file://([^\"]*)\">([^<]*)</a>");
    for (const bool shortForm : {false, true}) {
        for (const Kind& kind : kKinds) {
            SCOPED_TRACE(testing::Message() << kind.name << (shortForm ? ", short form" : ", long form"));
            const QString report = reportOf(*kind.make(), shortForm);
            const std::vector<QString> captions = captionsOf(*kind.make());
            ASSERT_FALSE(captions.empty());
            ASSERT_TRUE(report.endsWith(kRowEnd));

            QStringList rows = report.split(kRowEnd);
            rows.removeLast();
            ASSERT_EQ(size_t(rows.size()), captions.size());
            int shownCaptions = 0;
            for (int index = 0; index < rows.size(); ++index) {
                SCOPED_TRACE(testing::Message() << "pair " << index << ": " << captions[size_t(index)].toStdString());
                const QString look = QString::number(index % 3 + 1);
                const QString datumPrefix = "<td class=\"d" + look + "\">";
                const int datumAt = rows[index].indexOf("<td class=\"d");
                ASSERT_GE(datumAt, 0);
                EXPECT_EQ(rows[index].mid(datumAt, datumPrefix.size()), datumPrefix);
                for (auto links = linkPart.globalMatch(rows[index].mid(datumAt)); links.hasNext();) {
                    const QRegularExpressionMatch link = links.next();
                    EXPECT_EQ(link.captured(1), link.captured(2));
                    EXPECT_TRUE(QFileInfo(link.captured(1)).isAbsolute() && QFileInfo::exists(link.captured(1)))
                        << link.captured(1).toStdString();
                }
                const QString captionText = rows[index].left(datumAt);
                const QString caption = captions[size_t(index)];
                if (captionText.isEmpty()) {
                    EXPECT_TRUE(shortForm) << "the long form prints every caption";
                    EXPECT_GT(index, 0);
                    continue;
                }
                ++shownCaptions;
                const QRegularExpressionMatch match = captionPart.match(captionText);
                ASSERT_TRUE(match.hasMatch()) << captionText.toStdString();
                EXPECT_EQ(match.captured(1), look);
                EXPECT_EQ(match.captured(2), shortForm ? caption.section(' ', 0, 0) : caption);
            }
            if (shortForm && QString(kind.name) == "application environment") {
                // Seven items per module, printed under one caption each.
                EXPECT_EQ(captions.size() % ZarnSysInfoEnvApp::kItemQty, 0u);
                EXPECT_EQ(size_t(shownCaptions), captions.size() / ZarnSysInfoEnvApp::kItemQty);
            }
            if (!shortForm) {
                EXPECT_EQ(size_t(shownCaptions), captions.size());
            }
        }
    }
}
