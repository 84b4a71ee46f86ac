// An owner's monitor as the product gets it: the log's name and directory, the form's path, the
// tags, the rollover to a fresh file, and the attachment hook at thread and process end.
#include "owner/ZarnDataZGW.h"

#include "OwnerRig.h"
#include "foundation/TObjectMap.h"
#include "foundation/UTL_String.h"
#include "owner/ZRpbr.h"
#include "platform/Modules.h"
#include "platform/Threads.h"
#include "support/TraceCapture.h"
#include "sysinfo/ZarnSysInfoEnvOp.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSysInfo>
#include <QTextStream>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>

namespace {

using Z = ZarnDataZGW;

const QString kStamp = QStringLiteral("(\\d{4}-\\d\\d-\\d\\d_\\d\\d-\\d\\d-\\d\\d-\\d{3})");
const QString kProgram = QStringLiteral("zmu_test_owner");

// The time stamp of a log file named `<directory><prefix><stamp>.html`, invalid if the name has
// another shape.
QDateTime stampOf(const QString& name, const QString& prefix)
{
    const QRegularExpression shape(QLatin1Char('^') + QRegularExpression::escape(ownerRig::logDirectory() + prefix)
                                   + kStamp + QStringLiteral("\\.html$"));
    const QRegularExpressionMatch match = shape.match(name);
    return match.hasMatch() ? QDateTime::fromString(match.captured(1), QStringLiteral("yyyy-MM-dd_HH-mm-ss-zzz"))
                            : QDateTime();
}

QString logNameOf(const Zarn* monitor)
{
    return QString::fromWCharArray(ownerRig::dataOf(monitor)->getFileLogName());
}

// The engines a data set holds by thread.
struct MapPeek : ZarnData
{
    using ZarnData::m_mapOfDataForThreads;
};
bool hasEngineOf(const Zarn* monitor, unsigned long threadID)
{
    void* engine = nullptr;
    return (ownerRig::dataOf(monitor)->*&MapPeek::m_mapOfDataForThreads)->find(threadID, &engine);
}

class ZarnDataZGWOwner : public testing::Test
{
protected:
    void SetUp() override { ownerRig::prepare(); ASSERT_NE(m_versionFile, nullptr); }
    void TearDown() override { Zarn::destroy(); FreeLibrary(m_versionFile); }
    // The product's version file, which gives FILE_VERSION and PRODUCT_VERSION.
    HMODULE m_versionFile = ownerRig::loadTestModule("libpv.so");
};

} // namespace

// What the table of owners changes: the user in the log's name, the form, the module's brand text.
TEST_F(ZarnDataZGWOwner, OwnerGetsALogNamedByTheRuleWithTheFormAndModuleNameOfItsRow)
{
    struct Row { long long ownerID; bool userInName; const char* form; int moduleNameText; };
    const Row rows[] = {
        {ZGW_OWNER_PW, true, "bpw_template.html", ZRpbr::kBrandTextModuleNamePW},
        {ZGW_OWNER_CM, false, "bpw_template.html", ZRpbr::kBrandTextModuleNameCM},
        {ZGW_OWNER_LOGON, true, "bpw_template.html", ZRpbr::kBrandTextModuleNameLogon},
        {ZGW_OWNER_APS, false, "aps_template.html", ZRpbr::kBrandTextProductName},
        {0x1234, false, "bpw_template.html", ZRpbr::kBrandTextProductName}, // any other
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.ownerID);
        const QDateTime before = QDateTime::currentDateTime();
        ZarnDataZGW owner(row.ownerID, true, nullptr, nullptr, Zarn_LOG_HTML);
        Zarn* monitor = owner.createZarnMonitor();
        const QDateTime after = QDateTime::currentDateTime();
        ASSERT_NE(monitor, nullptr) << Z::getDX_Code1() << "/" << Z::getDX_Code2();
        const QString prefix = (row.userInName ? QString::fromStdWString(ownerRig::userName()) + QLatin1Char('_')
                                               : QString()) + kProgram + QLatin1Char('_');
        const QDateTime stamp = stampOf(logNameOf(monitor), prefix);
        EXPECT_TRUE(stamp.isValid() && before <= stamp && stamp <= after) << logNameOf(monitor).toStdString();
        EXPECT_TRUE(QFileInfo::exists(logNameOf(monitor)));
        EXPECT_EQ(QString::fromWCharArray(ownerRig::dataOf(monitor)->getFileLog()->m_formName),
                  ownerRig::logDirectory() + QStringLiteral("Templates/") + QLatin1String(row.form));
        wchar_t brand[64];
        EXPECT_STREQ(monitor->getTag(Zarn_FORM_TAG_MODULE_NAME),
                     ZRpbr::getProductBrander()->getBrandText(row.moduleNameText, brand, 64));
        EXPECT_TRUE(Z::destroyZarnMonitor(monitor));
        EXPECT_EQ(monitor, nullptr);
    }
}

TEST_F(ZarnDataZGWOwner, TagsComeFromTheBrandTextsTheVersionFileAndTheSystem)
{
    ownerRig::writeBrandFile("0=Know base\n1=Long name\n2=Short\n3=https://web\n20=Workspace PW\n29=The suite\n");
    ZarnDataZGW owner(ZGW_OWNER_PW, true, nullptr, nullptr, Zarn_LOG_HTML);
    Zarn* monitor = owner.createZarnMonitor();
    ASSERT_NE(monitor, nullptr) << Z::getDX_Code1() << "/" << Z::getDX_Code2();
    wchar_t domain[256] = {};
    ASSERT_TRUE(GetAccountDomainW(domain, 256));
    struct Row { Zarn_FORM_TAG tag; std::wstring value; };
    const Row rows[] = {
        {Zarn_FORM_TAG_COMPANY_KNOW_BASE, L"Know base"}, {Zarn_FORM_TAG_COMPANY_NAME_LONG, L"Long name"},
        {Zarn_FORM_TAG_COMPANY_NAME_SHORT, L"Short"},    {Zarn_FORM_TAG_COMPANY_WEBSITE, L"https://web"},
        {Zarn_FORM_TAG_FILE_VERSION, L"9.8.7.6"},        {Zarn_FORM_TAG_PRODUCT_VERSION, L"9.8"},
        {Zarn_FORM_TAG_HOME_DIRECTORY, QCoreApplication::applicationDirPath().toStdWString()},
        {Zarn_FORM_TAG_MODULE_FILE_NAME, L"Unknown"}, // the test program carries no version data
        {Zarn_FORM_TAG_MODULE_NAME, L"Workspace PW"},    {Zarn_FORM_TAG_PRODUCT_NAME, L"Workspace PW"},
        {Zarn_FORM_TAG_NAME_OF_DOMAIN, domain},          {Zarn_FORM_TAG_NAME_OF_SESSION, L"Unknown"},
        {Zarn_FORM_TAG_NAME_OF_HOST, QSysInfo::machineHostName().toStdWString()},
        {Zarn_FORM_TAG_NAME_OF_USER, ownerRig::userName()}, {Zarn_FORM_TAG_SUITE_NAME, L"The suite"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.tag);
        EXPECT_EQ(std::wstring(monitor->getTag(row.tag)), row.value);
    }
    EXPECT_STREQ(ownerRig::dataOf(monitor)->getDisplayDlgBoxCaption(), L"Workspace PW");
    // The path is handed out only to a buffer with a module path's room.
    wchar_t path[MAX_PATH] = {L'x'};
    EXPECT_EQ(QString::fromWCharArray(owner.getLogFileFQPath(path, MAX_PATH)), logNameOf(monitor));
    EXPECT_STREQ(owner.getLogFileFQPath(path, MAX_PATH - 1), L"");
}

TEST_F(ZarnDataZGWOwner, RolloverMovesToAFreshlyNamedFileThatOpensWithTheSeriesNote)
{
    ZarnData::setLogVariables(ownerRig::logDirectory().toStdWString().c_str(), 1, true, 1048576, 7);
    const HMODULE specs = ownerRig::loadTestModule("libzmu_test_report_specs.so");
    ASSERT_NE(specs, nullptr);
    ZarnDataZGW owner(ZGW_OWNER_PW, true, nullptr, specs, Zarn_LOG_HTML);
    Zarn* monitor = owner.createZarnMonitor();
    ASSERT_NE(monitor, nullptr) << Z::getDX_Code1();
    ZarnData* data = ownerRig::dataOf(monitor);
    ASSERT_EQ(data->getLogFileByteCountLimit(), 1048576u);
    const std::wstring first = data->getFileLogName();

    // The decision reads the byte count; writing a whole mebibyte of entries would only be slow.
    data->getFileLog()->m_logByteCount = data->getLogFileByteCountLimit();
    std::this_thread::sleep_for(std::chrono::milliseconds(2)); // a name the clock has not given yet
    const QDateTime before = QDateTime::currentDateTime();
    EXPECT_TRUE(monitor->respondToSituation(3005, specs, L"last words"));
    EXPECT_EQ(monitor->getSelfDX_Code(), 0);

    // Owner 0 composes the successor's name: no user name in it.
    const QString second = logNameOf(monitor);
    EXPECT_GE(stampOf(second, kProgram + QLatin1Char('_')), before) << second.toStdString();
    const std::wstring firstText = ownerRig::readLogFile(first);
    EXPECT_NE(firstText.find(L"Kind one last words"), std::wstring::npos);

    EXPECT_TRUE(monitor->respondToSituation(3005, specs, L"after the turn"));
    EXPECT_EQ(ownerRig::readLogFile(first), firstText) << "the first file is left as it was";
    const std::wstring secondText = ownerRig::readLogFile(second.toStdWString());
    const size_t note = secondText.find(L"This log file is #2 in a series that began with " + first + L".");
    ASSERT_NE(note, std::wstring::npos);
    EXPECT_EQ(secondText.find(L"Kind one"), secondText.find(L"Kind one after the turn"));
    EXPECT_LT(note, secondText.find(L"Kind one after the turn"));
    EXPECT_TRUE(Z::destroyZarnMonitor(monitor));
    FreeLibrary(specs);
}

TEST_F(ZarnDataZGWOwner, FailuresLeaveTheirCodes)
{
    struct Row { const char* name; std::function<void()> act; int code1; unsigned long code2; const wchar_t* trace; };
    const Row rows[] = {
        {"no brander: the constructor throws 4 with the brander's code",
         [] {
             ownerRig::writeBrandFile("not a brand line\n");
             EXPECT_THROW(ZarnDataZGW(ZGW_OWNER_CM, true, nullptr, nullptr, Zarn_LOG_HTML), int);
         },
         4, 5, L"ZarnDataZGW::ZarnDataZGW (0x80000040, 0x00000000, 0) [3] failed (ZGW4/WLE5)."},
        {"an unusable log directory fails the form path, and that failure stands",
         [] {
             ZarnData::setLogVariables(L"", 1, true, 20, 7);
             EXPECT_THROW(ZarnDataZGW(ZGW_OWNER_CM, false, nullptr, nullptr, Zarn_LOG_HTML), int);
         },
         43, 3, L"is ignoring the failure of learnLogFormFQPath"},
        {"a second hand-over finds no data set",
         [] {
             ZarnDataZGW owner(ZGW_OWNER_CM, true, nullptr, nullptr, Zarn_LOG_HTML);
             EXPECT_NE(owner.createZarnMonitor(), nullptr);
             EXPECT_EQ(owner.createZarnMonitor(), nullptr);
         },
         7, 0, L"ZarnDataZGW::createZarnMonitor () failed (ZGW status codes 7/0)."},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ownerRig::prepare();
        TraceCapture capture;
        row.act();
        EXPECT_EQ(Z::getDX_Code1(), row.code1);
        EXPECT_EQ(Z::getDX_Code2(), row.code2);
        EXPECT_TRUE(capture.contains(row.trace));
        EXPECT_EQ(ZRpbr::getProductBrander(), nullptr) << "the brander went with its owner";
    }
}

TEST_F(ZarnDataZGWOwner, LogDirectoryIsTakenAsConfiguredOrMadeInASecondPass)
{
    const QString base = ownerRig::logDirectory();
    QFile(base + QStringLiteral("plain")).open(QIODevice::WriteOnly);
    qputenv("ZMU_TEST_LOG_BASE", base.toUtf8());
    struct Row { const char* name; QString configured; QString expected; bool existsAfter; }; // expected empty: fails
    const auto in = [&base](const char* tail) { return base + QLatin1String(tail); };
    const Row rows[] = {
        {"a reference is expanded, a separator added, nothing made", "%ZMU_TEST_LOG_BASE%later", in("later/"), false},
        {"a separator is kept", in("kept/"), in("kept/"), false},
        {"a file passes the narrow first pass", in("plain"), in("plain/"), true},
        {"empty: the second pass can make nothing", QString(), QString(), false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ZarnData::setLogVariables(row.configured.toStdWString().c_str(), 1, true, 20, 7);
        TraceCapture capture;
        UTL_String directory(L"stale");
        EXPECT_EQ(Z::obtainLogDirectorySpecifier(directory, nullptr), !row.expected.isEmpty());
        EXPECT_EQ(QString::fromWCharArray(directory.wideText()), row.expected);
        if (row.expected.isEmpty()) {
            EXPECT_EQ(Z::getDX_Code1(), 43);
            EXPECT_TRUE(capture.contains(L"obtainLogDirectorySpecifier () [1] failed in its second pass (ZGW43/"));
        } else {
            EXPECT_EQ(QFileInfo::exists(row.expected.chopped(1)), row.existsAfter);
        }
    }

    // A path that leaves no room for the separator fails the first pass; the second takes it as
    // it is, makes its last level, and puts no separator back because it cut none off.
    QString deep = base;
    while (deep.size() + 201 < 1023)
        deep += QString(200, QLatin1Char('d')) + QLatin1Char('/');
    QDir().mkpath(deep);
    deep += QString(1023 - deep.size(), QLatin1Char('e'));
    ZarnData::setLogVariables(deep.toStdWString().c_str(), 1, true, 20, 7);
    UTL_String directory;
    EXPECT_TRUE(Z::obtainLogDirectorySpecifier(directory, nullptr)) << Z::getDX_Code1();
    EXPECT_EQ(QString::fromWCharArray(directory.wideText()), deep);
    EXPECT_TRUE(QFileInfo(deep).isDir());
}

// Engines of a thread that ends are removed from every monitor by the attachment hook.
TEST(ZarnDataZGWAttachmentConcurrency, EndingThreadLeavesEveryMonitor)
{
    ownerRig::prepare();
    ZarnDataZGW first(ZGW_OWNER_CM, true, nullptr, nullptr, Zarn_LOG_HTML);
    ZarnDataZGW second(ZGW_OWNER_PW, true, nullptr, nullptr, Zarn_LOG_HTML);
    Zarn* monitors[] = {first.createZarnMonitor(), second.createZarnMonitor()};
    ASSERT_TRUE(monitors[0] != nullptr && monitors[1] != nullptr);

    unsigned long threadID = 0;
    std::thread([&] {
        threadID = GetCurrentThreadId();
        for (Zarn* monitor : monitors) {
            monitor->recordSituationID(1); // the thread's first request makes its engine
            EXPECT_TRUE(hasEngineOf(monitor, threadID));
        }
    }).join();
    for (Zarn* monitor : monitors)
        EXPECT_FALSE(hasEngineOf(monitor, threadID));
    Zarn::destroy();
}

// A process that ends with a live monitor closes its log through the hook: bytes that only a
// close writes out reach the file.
TEST(ZarnDataZGWAttachment, ProcessExitClosesTheLogsOfLiveMonitors)
{
    GTEST_FLAG_SET(death_test_style, "fast");
    ownerRig::prepare();
    const QString marker = QStringLiteral("written out at exit");
    const auto child = [&marker] {
        ownerRig::keepFoldersAtExit();
        // The owner goes at once; its monitor stays.
        Zarn* monitor = ZarnDataZGW(ZGW_OWNER_CM, true, nullptr, nullptr, Zarn_LOG_HTML).createZarnMonitor();
        if (monitor == nullptr)
            std::_Exit(2);
        const std::wstring name = ownerRig::dataOf(monitor)->getFileLogName();
        // Into the file's own buffer, which nothing but a flush or a close writes out.
        ownerRig::dataOf(monitor)->getFileLog()->m_logStream->device()->write(
            reinterpret_cast<const char*>(marker.utf16()), 2 * marker.size());
        if (ownerRig::readLogFile(name).find(marker.toStdWString()) != std::wstring::npos)
            std::_Exit(3);
        std::exit(0);
    };
    EXPECT_EXIT(child(), testing::ExitedWithCode(0), "");
    const QStringList logs = QDir(ownerRig::logDirectory()).entryList({QStringLiteral("*.html")}, QDir::Files);
    ASSERT_EQ(logs.size(), 1);
    EXPECT_NE(ownerRig::readLogFile((ownerRig::logDirectory() + logs[0]).toStdWString()).find(marker.toStdWString()),
              std::wstring::npos);
}
