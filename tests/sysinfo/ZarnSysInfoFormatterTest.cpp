#include "sysinfo/ZarnSysInfoFormatterHTML.h"

#include "sysinfo/ZarnSysInfo.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTextStream>

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

using Pairs = std::vector<std::pair<std::wstring, std::wstring>>;
using Add = int (ZarnSysInfoFormatter::*)(const wchar_t*);
const Add kAdds[] = {&ZarnSysInfoFormatter::addCaptionPrefix, &ZarnSysInfoFormatter::addCaptionSuffix,
                     &ZarnSysInfoFormatter::addDatumPrefix, &ZarnSysInfoFormatter::addDatumSuffix};

// Fixed pairs, rewound by getFirstDataPair; counts the pairs asked for.
class ListSource : public ZarnSysInfo
{
public:
    explicit ListSource(Pairs pairs) : m_pairs(std::move(pairs)) {}

    bool getDataPair(int position, wchar_t* caption, wchar_t* datum, int captionSize, int datumSize) override
    {
        ++asked;
        if (position >= static_cast<int>(m_pairs.size()))
            return false;
        m_position = position;
        const auto& pair = m_pairs[size_t(position)];
        return formatDataPair(caption, datum, captionSize, datumSize, pair.first.c_str(), pair.second.c_str());
    }

    int asked = 0;

protected:
    bool learnNextPosition() override { return ++m_position > 0; }

private:
    Pairs m_pairs;
};

// The report of `pairs`; `affixes` holds the caption prefixes, caption suffixes, datum prefixes
// and datum suffixes, in this order.
std::wstring report(const Pairs& pairs, const std::vector<std::vector<const wchar_t*>>& affixes = {},
                    bool shortForm = false)
{
    ListSource source(pairs);
    ZarnSysInfoFormatterHTML formatter(nullptr);
    for (size_t list = 0; list < affixes.size(); ++list)
        for (const wchar_t* text : affixes[list])
            (formatter.*kAdds[list])(text);
    formatter.useShortForm(shortForm);
    formatter.setSysInfo(&source);
    QString output;
    QTextStream stream(&output);
    EXPECT_TRUE(formatter.reportSystemInformation(stream));
    return output.toStdWString();
}

// The datum as a report writes it.
std::wstring datumOf(const std::wstring& datum)
{
    return report({{L"caption", datum}}).substr(std::wstring(L"caption").size());
}

std::wstring link(const std::wstring& path)
{
    return L"<a href=\"file://" + path + L"\">" + path + L"</a>";
}

} // namespace

// Each add grows its own list by one; a null text leaves the list as it was.
TEST(ZarnSysInfoFormatter, AddAffixCountsAndRefusesNull)
{
    for (const Add add : kAdds) {
        SCOPED_TRACE(&add - kAdds);
        ZarnSysInfoFormatterHTML formatter(nullptr);
        EXPECT_EQ((formatter.*add)(L"a"), 1);
        EXPECT_EQ((formatter.*add)(L""), 2);
        EXPECT_EQ((formatter.*add)(nullptr), -1);
        EXPECT_EQ(formatter.getError(), ZarnSysInfoFormatter::kErrorNullText);
        EXPECT_EQ((formatter.*add)(L"b"), 3);
        EXPECT_EQ(formatter.getError(), 0);
    }
}

// Three caption prefixes over seven pairs give 1, 2, 3, 1, 2, 3, 1, whatever the other lists
// hold; a second report starts every cycle and the source again.
TEST(ZarnSysInfoFormatter, AffixesCycleEachByItself)
{
    ListSource source({{L"c1", L"d1"}, {L"c2", L"d2"}, {L"c3", L"d3"}, {L"c4", L"d4"},
                       {L"c5", L"d5"}, {L"c6", L"d6"}, {L"c7", L"d7"}});
    ZarnSysInfoFormatterHTML formatter(nullptr);
    for (const wchar_t* prefix : {L"<1>", L"<2>", L"<3>"})
        formatter.addCaptionPrefix(prefix);
    formatter.addCaptionSuffix(L"|");
    formatter.addDatumPrefix(L"(a)");
    formatter.addDatumPrefix(L"(b)");
    formatter.setSysInfo(&source);
    for (int round = 0; round < 2; ++round) {
        SCOPED_TRACE(testing::Message() << "report " << round);
        QString output;
        QTextStream stream(&output);
        EXPECT_TRUE(formatter.reportSystemInformation(stream));
        EXPECT_EQ(output.toStdWString(),
                  L"<1>c1|(a)d1<2>c2|(b)d2<3>c3|(a)d3<1>c4|(b)d4<2>c5|(a)d5<3>c6|(b)d6<1>c7|(a)d7");
    }
    EXPECT_EQ(formatter.setSysInfo(nullptr), &source);
}

TEST(ZarnSysInfoFormatter, LongAndShortForms)
{
    struct Row
    {
        const char* name;
        Pairs pairs;
        std::vector<std::vector<const wchar_t*>> affixes;
        std::wstring longForm, shortForm;
    };
    const Pairs sharedWord = {{L"A b", L"1"}, {L"A c", L"2"}, {L"B d", L"3"}};
    const std::wstring tooLongAffix(ZarnSysInfoFormatterHTML::kTextQty, L'x');
    const Row rows[] = {
        {"no affixes run together", {{L"A b", L"1"}, {L"B c", L"2"}}, {}, L"A b1B c2", L"A1B2"},
        {"a shared first word is printed once", sharedWord, {{L"["}, {L"]"}, {L"("}, {L")"}},
         L"[A b](1)[A c](2)[B d](3)", L"[A](1)(2)[B](3)"},
        // The second caption is not printed, but its caption prefix is used up.
        {"caption affixes move on", sharedWord, {{L"<1>", L"<2>"}}, L"<1>A b1<2>A c2<1>B d3", L"<1>A12<1>B3"},
        {"a caption without a space is compared whole",
         {{L"LANG", L"1"}, {L"LANG", L"2"}, {L"LANGUAGE", L"3"}, {L"LANG", L"4"}, {L"LANGUAGE x", L"5"}},
         {{L"["}, {L"]"}}, L"[LANG]1[LANG]2[LANGUAGE]3[LANG]4[LANGUAGE x]5", L"[LANG]12[LANGUAGE]3[LANG]4[LANGUAGE]5"},
        {"no pairs is an empty report", {}, {{L"["}, {L"]"}, {L"("}, {L")"}}, L"", L""},
        // An affix too long for the report's texts ends the walk, and the report still succeeds.
        {"an affix that does not fit ends the walk", sharedWord,
         {{}, {}, {}, {L"", tooLongAffix.c_str()}}, L"A b1", L"A1"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(report(row.pairs, row.affixes, false), row.longForm);
        EXPECT_EQ(report(row.pairs, row.affixes, true), row.shortForm);
    }
}

TEST(ZarnSysInfoFormatter, NoStreamGivesFalseWithoutAskingTheSource)
{
    ListSource source(Pairs{{L"c", L"d"}});
    ZarnSysInfoFormatterHTML formatter(nullptr);
    formatter.setSysInfo(&source);
    EXPECT_FALSE(formatter.reportSystemInformation());
    EXPECT_EQ(source.asked, 0);
    EXPECT_FALSE(formatter.useShortForm(true));
    EXPECT_TRUE(formatter.useShortForm(false));
}

// Links only for existing absolute paths shorter than 261 characters, and lists broken after
// each ";" and each separator of the platform (":" here), which stay before the "<br>".
TEST(ZarnSysInfoFormatterHTML, PathsBecomeLinksAndListsBreak)
{
    QTemporaryDir temporary;
    ASSERT_TRUE(temporary.isValid());
    const QDir root(temporary.path());
    std::wstring made[4];
    const QString names[] = {"one", "two", "three", QString(130, 'n') + '/' + QString(130, 'n')};
    for (int index = 0; index < 4; ++index) {
        ASSERT_TRUE(root.mkpath(names[index]));
        made[index] = root.filePath(names[index]).toStdWString();
    }
    const auto& [one, two, three, tooLong] = made;
    const std::wstring file = root.filePath("file").toStdWString();
    ASSERT_TRUE(QFile(root.filePath("file")).open(QIODevice::WriteOnly));
    const std::wstring missing = one + L"/missing";
    const std::wstring relative = QDir::current().relativeFilePath(QString::fromStdWString(one)).toStdWString();
    const std::wstring native(1, static_cast<wchar_t>(QDir::listSeparator().unicode()));
    std::wstring tooManyBreaks;
    for (int index = 0; index < 900; ++index)
        tooManyBreaks += L"a;";
    // After the first element and ";<br>", room for the plain path and two characters.
    const std::wstring filler(ZarnSysInfoFormatterHTML::kTextQty - two.size() - 7, L'x');

    struct Row
    {
        const char* name;
        std::wstring datum, expected;
    };
    const Row rows[] = {
        {"existing absolute directory", one, link(one)},
        {"existing absolute file", file, link(file)},
        {"relative path", relative, relative},
        {"absolute path that does not exist", missing, missing},
        {"path of 261 characters or more", tooLong, tooLong},
        {"three directories at ;", one + L";" + two + L";" + three,
         link(one) + L";<br>" + link(two) + L";<br>" + link(three)},
        {"three directories at the platform's separator", one + native + two + native + three,
         link(one) + native + L"<br>" + link(two) + native + L"<br>" + link(three)},
        {"a missing element stays plain", one + L";" + missing + L";", link(one) + L";<br>" + missing + L";<br>"},
        {"no directories", L"a;b", L"a;<br>b"},
        {"breaks that would not fit leave the text as it was", tooManyBreaks, tooManyBreaks},
        {"a link that would not fit leaves its path plain", filler + L";" + two, filler + L";<br>" + two},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(datumOf(row.datum), row.expected);
    }
}
