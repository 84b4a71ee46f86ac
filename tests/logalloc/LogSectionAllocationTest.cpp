// The section writers' use of memory, seen through the seams of this test program (see
// AllocationSeams.h). Entries must allocate nothing of the engine's own; a head grows its result
// and gives up injected texts.
#include "AllocationSeams.h"

#include "log/ZarnDataFile.h"
#include "support/HandBuiltLog.h"

#include <QString>
#include <QStringList>

#include <gtest/gtest.h>

#include <vector>

TEST(LogSectionAllocation, EntriesAllocateNothingOfTheirOwn)
{
    HandBuiltLog log;
    const QString injected = QStringLiteral("<tr><td>report</td></tr>");
    log.setInjectors({&injected, &injected, nullptr});
    log.data().recordTag(L"Farrowlink", Zarn_FORM_TAG_PRODUCT_NAME);
    const std::vector<Zarn_FORM_VAR> every = {
        Zarn_FORM_VAR_PRODUCT_NAME, Zarn_FORM_VAR_DAY,          Zarn_FORM_VAR_ENTRY_COLOR,   Zarn_FORM_VAR_ENTRY_ID,
        Zarn_FORM_VAR_HOURS,        Zarn_FORM_VAR_LOGFILE_NAME, Zarn_FORM_VAR_MILLISECONDS,  Zarn_FORM_VAR_MINUTES,
        Zarn_FORM_VAR_MONTH,        Zarn_FORM_VAR_PROCESS_ID,   Zarn_FORM_VAR_SECONDS,       Zarn_FORM_VAR_SITUATION_DSCRP,
        Zarn_FORM_VAR_SITUATION_ID, Zarn_FORM_VAR_YEAR,         Zarn_FORM_VAR_SYS_INFO_ENV_APP};
    const wchar_t* const format = L"%1!s! %2!02d! %3!X! %4!d! %5!02d! %6!s! %7!03d! %8!02d! %9!02d! %10!lu! "
                                  L"%11!02d! %12!s! %13!d! %14!d! [%15!s!]\n";
    log.setSection(LogSection::Head, format, every);
    log.setSection(LogSection::Body, format, every);
    log.setSection(LogSection::Tail, L"</table> %1!d!\n", {Zarn_FORM_VAR_ENTRY_ID});

    {
        AllocationCount head;
        ASSERT_TRUE(log.writeHead()) << log.engine().getSelfDX_Code();
        // The counter sees the head's copies of the injected texts: it would see an entry's too.
        EXPECT_GT(head.count(), 0);
    }
    ASSERT_TRUE(log.engine().logFormSectionTail());
    const std::wstring description = L"a description of the situation";
    AllocationCount entries;
    for (int i = 0; i < 3; ++i)
        ASSERT_TRUE(log.writeEntry(description)) << log.engine().getSelfDX_Code();
    EXPECT_EQ(entries.count(), 0);
    const QStringList lines = log.text().split(QStringLiteral("\r\n"), Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 5);
    EXPECT_TRUE(lines[0].endsWith(QStringLiteral("[<tr><td>report</td></tr>]"))) << "the head has the report";
    for (int entry = 1; entry <= 3; ++entry) {
        EXPECT_TRUE(lines[entry].contains(QStringLiteral("a description of the situation")));
        EXPECT_TRUE(lines[entry].endsWith(QStringLiteral(" []"))) << "entries don't";
    }
}

TEST(LogSectionAllocation, GrowingGivesUpTheLastInjectorFirst)
{
    // 600000 characters never fit; 400000 and a table row fit the last size.
    HandBuiltLog log;
    const QString app(200000, QLatin1Char('A'));
    const QString op(200000, QLatin1Char('O'));
    const QString vars(200000, QLatin1Char('V'));
    log.setInjectors({&app, &op, &vars});
    log.setSection(LogSection::Head, L"%1!s!|%2!s!|%3!s!",
                   {Zarn_FORM_VAR_SYS_INFO_ENV_APP, Zarn_FORM_VAR_SYS_INFO_ENV_OP, Zarn_FORM_VAR_SYS_INFO_VARS_ENV});
    FormatterSeam seam;
    seam.limitToSize = true;
    {
        ArmedFormatter armed(seam);
        ASSERT_TRUE(log.writeHead()) << log.engine().getSelfDX_Code();
    }
    EXPECT_EQ(seam.allocatingSizes, climbs(2));
    const QString row = memoryLimitationRow();
    ASSERT_TRUE(row.contains(QStringLiteral(
        "We're sorry, but this information was discarded to overcome a memory limitation.")));
    EXPECT_TRUE(log.text() == app + QLatin1Char('|') + op + QLatin1Char('|') + row);
}

TEST(LogSectionAllocation, SectionWithoutTheLastInjectorGivesUpArgumentZero)
{
    // Deliberate: without SYS_INFO_VARS_ENV the first discarding step still "finds" injector 2 at
    // argument 0, and the row takes the place of whatever argument 0 is.
    HandBuiltLog log;
    log.data().recordTag(L"Quorvane", Zarn_FORM_TAG_COMPANY_NAME_LONG);
    const QString app(300000, QLatin1Char('A'));
    const QString op(300000, QLatin1Char('O'));
    log.setInjectors({&app, &op, nullptr});
    log.setSection(LogSection::Head, L"%1!s!|%2!s!|%3!s!",
                   {Zarn_FORM_VAR_COMPANY_NAME_LONG, Zarn_FORM_VAR_SYS_INFO_ENV_APP, Zarn_FORM_VAR_SYS_INFO_ENV_OP});
    FormatterSeam seam;
    seam.limitToSize = true;
    {
        ArmedFormatter armed(seam);
        ASSERT_TRUE(log.writeHead()) << log.engine().getSelfDX_Code();
    }
    EXPECT_EQ(seam.allocatingSizes, climbs(3));
    const QString row = memoryLimitationRow();
    EXPECT_TRUE(log.text() == row + QLatin1Char('|') + app + QLatin1Char('|') + row);
}

TEST(LogSectionAllocation, LoneLargeInjectorFailsWith178)
{
    HandBuiltLog log;
    const QString app(600000, QLatin1Char('A'));
    log.setInjectors({&app, nullptr, nullptr});
    log.setSection(LogSection::Head, L"%1!d! %2!s!", {Zarn_FORM_VAR_YEAR, Zarn_FORM_VAR_SYS_INFO_ENV_APP});
    FormatterSeam seam;
    seam.limitToSize = true;
    {
        ArmedFormatter armed(seam);
        EXPECT_FALSE(log.writeHead());
    }
    EXPECT_EQ(log.engine().getSelfDX_Code(), 178);
    EXPECT_EQ(seam.allocatingSizes, climbs(2));
    // The row went into argument 0, the year; the large text stayed and could never fit.
    EXPECT_EQ(log.values(LogSection::Head)[0], reinterpret_cast<unsigned long long>(log.engine().scratchB()));
    EXPECT_EQ(log.bytes(), QByteArray("\xFF\xFE", 2)) << "only the head's mark reached the file";
    EXPECT_EQ(log.file()->m_tailPosition, 0);
}

TEST(LogSectionAllocation, SuccessWithoutResultBufferGives172)
{
    HandBuiltLog log;
    log.setSection(LogSection::Head, L"<html>\n");
    FormatterSeam seam;
    seam.dropResultBuffer = true;
    {
        ArmedFormatter armed(seam);
        EXPECT_FALSE(log.writeHead());
    }
    EXPECT_EQ(log.engine().getSelfDX_Code(), 172);
    EXPECT_EQ(seam.allocatingSizes, std::vector<DWORD>{65536});
}
