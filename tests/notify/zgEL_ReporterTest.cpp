// The event reporter as the product drives it: a monitor responds to a milestone situation, its
// plug-in writes the event, and a private journal receives it.
#include "notify/zgEL_Reporter.h"

#include "monitor/Zarn.h"
#include "monitor/ZarnData.h"
#include "platform/LastError.h"
#include "platform/Modules.h"
#include "support/JournalSandbox.h"
#include "support/TestLogPath.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// What the event-writing plug-in saw of its write.
struct WriteTurn
{
    int count = 0;
    bool wrote = false;
    unsigned long error = 0;
    DWORD lastError = 0;
};
WriteTurn g_write;

bool writeEvent(const Zarn* monitor)
{
    ++g_write.count;
    g_write.wrote = zgEL_Reporter::write(monitor);
    g_write.lastError = GetLastError();
    const zgEL_Reporter* reporter = zgEL_Reporter::getLoneInstance();
    g_write.error = reporter != nullptr ? reporter->getError() : 0;
    return g_write.wrote;
}

// The five wide strings that every situation of the test module takes as its fillers.
using Fillers = std::vector<const wchar_t*>;

class zgEL_ReporterJournal : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!JournalSandbox::whyUnavailable().empty())
            GTEST_SKIP() << JournalSandbox::whyUnavailable();
        const std::string path = ZMU_TEST_MODULE_DIR "/libzmu_test_event_specs.so";
        m_specs = LoadLibraryW(std::wstring(path.begin(), path.end()).c_str());
        ASSERT_NE(m_specs, nullptr);
    }

    void TearDown() override
    {
        zgEL_Reporter::destroy();
        Zarn::destroy();
        if (m_specs != nullptr)
            FreeLibrary(m_specs);
    }

    // A monitor with wide-string arguments whose one plug-in writes the situation's event.
    Zarn* createMonitor()
    {
        ZarnData dataSet;
        dataSet.setCharSetExternal(2);
        dataSet.createPlugIns(1)[0] = &writeEvent;
        std::wstring logName = testLogPath(L"events");
        dataSet.recordLogFileNomenclature(logName.data(), nullptr, Zarn_LOG_HTML);
        Zarn* monitor = Zarn::create(&dataSet);
        EXPECT_NE(monitor, nullptr) << "create failed with " << dataSet.getSelfDX_Code();
        return monitor;
    }

    // Responds to the situation; true if the response itself went well.
    bool respond(Zarn* monitor, int situationID, const Fillers& f = {L"a", L"b", L"c", L"d", L"e"})
    {
        g_write = WriteTurn();
        return monitor->respondToSituation(situationID, m_specs, f[0], f[1], f[2], f[3], f[4])
               && monitor->isSelfSatisfied();
    }

    HMODULE m_specs = nullptr;
};

// The session and process events deliberately carry one string more than their texts use.
TEST_F(zgEL_ReporterJournal, EachSituationWritesOneEventWithItsTextAndStrings)
{
    // `strings`: what the event carries.
    struct Row { int situationID; unsigned long firstFillerIndex; Fillers fillers; std::vector<std::string> strings;
                 const char* eventID; const char* message; };
    const Row rows[] = {
        {3313, 0, {L"north", L"s1", L"s2", L"s3", L"s4"}, {"north", "s1"}, "0x40009C49", "Session \"north\" stopped."},
        {3315, 0, {L"ada", L"s-7", L"s-ada", L"x3", L"x4"}, {"ada", "s-7", "s-ada", "x3"}, "0x40009C47",
         "User ada successfully logged on to session \"s-7\", and the session was renamed to \"s-ada\"."},
        {3317, 0, {L"4711", L"editor", L"s-7", L"y3", L"y4"}, {"4711", "editor", "s-7", "y3"}, "0x40009C4F",
         "Process #4711 (editor) started in session \"s-7\"."},
        {3319, 0, {L"4712", L"viewer", L"s-8", L"z3", L"z4"}, {"4712", "viewer", "s-8", "z3"}, "0x40009C51",
         "Process #4712 (viewer) stopped in session \"s-8\"."},
        {3322, 0, {L"south", L"t1", L"t2", L"t3", L"t4"}, {"south", "t1"}, "0x40009C53", "Session \"south\" started."},
        {3323, 0, {L"app server", L"u1", L"u2", L"u3", L"u4"}, {"app server"}, "0x40009C45",
         "The app server shut down successfully."},
        {3325, 0, {L"app server", L"v1", L"v2", L"v3", L"v4"}, {"app server"}, "0x40009C43",
         "The app server began successfully."},
        // A first filler index of 1: %1 takes the second filler.
        {3317, 1, {L"skipped", L"99", L"shell", L"s-1", L"spare"}, {"99", "shell", "s-1", "spare"}, "0x40009C4F",
         "Process #99 (shell) started in session \"s-1\"."},
    };
    JournalSandbox::run([&](JournalSandbox& journal) {
        Zarn* monitor = createMonitor();
        ASSERT_NE(monitor, nullptr);
        for (const Row& row : rows) {
            SCOPED_TRACE(row.situationID);
            zgEL_Reporter::destroy();
            const bool narrow = row.firstFillerIndex != 0; // the narrow form gets a turn too
            ASSERT_NE(narrow ? zgEL_Reporter::create("zmu-events", nullptr, row.firstFillerIndex)
                             : zgEL_Reporter::create(L"zmu-events", nullptr, row.firstFillerIndex),
                      nullptr);
            EXPECT_TRUE(respond(monitor, row.situationID, row.fillers));
            EXPECT_EQ(g_write.count, 1);
            EXPECT_TRUE(g_write.wrote);
            EXPECT_EQ(g_write.error, 0u);

            const std::vector<JournalEntry> entries = journal.takeEntries();
            ASSERT_EQ(entries.size(), 1u);
            const JournalEntry& entry = entries[0];
            EXPECT_EQ(entry.value("MESSAGE"), row.message);
            EXPECT_EQ(entry.value("ZMU_EVENT_TYPE"), "4");
            EXPECT_EQ(entry.value("ZMU_EVENT_CATEGORY"), "0");
            EXPECT_EQ(entry.value("ZMU_EVENT_ID"), row.eventID);
            EXPECT_EQ(entry.value("SYSLOG_IDENTIFIER"), "zmu-events");
            EXPECT_EQ(entry.value("ZMU_SITUATION"), std::to_string(row.situationID));
            for (size_t index = 0; index < row.strings.size(); ++index)
                EXPECT_EQ(entry.value("ZMU_STRING_" + std::to_string(index + 1)), row.strings[index]);
            EXPECT_FALSE(entry.has("ZMU_STRING_" + std::to_string(row.strings.size() + 1)));
        }
    });
}

// Each refusal is false with its error, writes nothing, and leaves the situation's response alone.
TEST_F(zgEL_ReporterJournal, RefusedOrFailedWritesWriteNothing)
{
    struct Row { const char* name; bool reporter; int situationID; unsigned long error; bool journalGone; };
    const Row rows[] = {
        {"a situation without an event", true, 3314, 87, false},
        {"a null monitor", true, 0, 87, false}, // 0: write(nullptr) instead of a situation
        {"no reporter", false, 3313, 0, false},
        {"no journal to write to", true, 3313, 1062, true}, // last: the journal stays gone
    };
    JournalSandbox::run([&](JournalSandbox& journal) {
        Zarn* monitor = createMonitor();
        ASSERT_NE(monitor, nullptr);
        for (const Row& row : rows) {
            SCOPED_TRACE(row.name);
            zgEL_Reporter::destroy();
            if (row.reporter) {
                ASSERT_NE(zgEL_Reporter::create(L"refusing", nullptr, 0), nullptr);
            }
            if (row.journalGone)
                journal.stopReceiving(true);
            g_write = WriteTurn();
            if (row.situationID != 0)
                EXPECT_TRUE(respond(monitor, row.situationID));
            else
                writeEvent(nullptr);
            EXPECT_EQ(g_write.count, 1);
            EXPECT_FALSE(g_write.wrote);
            EXPECT_EQ(g_write.error, row.error);
            if (row.reporter) {
                EXPECT_EQ(g_write.lastError, row.error) << "the error is also the thread's last error";
            }
            EXPECT_TRUE(journal.takeEntries().empty());
        }
    });
}

TEST_F(zgEL_ReporterJournal, TheFirstReporterStandsUntilDestroyed)
{
    for (const auto create : {+[] { return zgEL_Reporter::create(L"", nullptr, 0); },
                              +[] { return zgEL_Reporter::create(static_cast<const char*>(nullptr), nullptr, 0); },
                              +[] { return zgEL_Reporter::getLoneInstance(L"", nullptr, 0); }}) {
        EXPECT_EQ(create(), nullptr) << "a source needs a name";
        EXPECT_EQ(zgEL_Reporter::getLoneInstance(), nullptr);
    }
    JournalSandbox::run([&](JournalSandbox& journal) {
        zgEL_Reporter* const first = zgEL_Reporter::getLoneInstance(L"first", L"\\\\server", 0);
        ASSERT_NE(first, nullptr) << "the server is passed on, not examined";
        EXPECT_EQ(zgEL_Reporter::create(L"second", nullptr, 1), nullptr);
        EXPECT_EQ(zgEL_Reporter::getLoneInstance("third", nullptr, 1), first);

        Zarn* monitor = createMonitor();
        ASSERT_NE(monitor, nullptr);
        EXPECT_TRUE(respond(monitor, 3322, {L"kept", L"b", L"c", L"d", L"e"}));
        std::vector<JournalEntry> entries = journal.takeEntries();
        ASSERT_EQ(entries.size(), 1u);
        EXPECT_EQ(entries[0].value("SYSLOG_IDENTIFIER"), "first");
        EXPECT_EQ(entries[0].value("ZMU_STRING_1"), "kept") << "the first reporter's filler index";

        EXPECT_EQ(first->setError(1609), 0u);
        EXPECT_EQ(GetLastError(), 1609u);
        EXPECT_FALSE(first->isStatusOK());
        EXPECT_EQ(first->setError(0), 1609u);

        // Back to its defaults, the reporter has no source left to write to.
        EXPECT_FALSE(first->setMemberVarsToDefaults(0));
        EXPECT_TRUE(first->setMemberVarsToDefaults(1));
        EXPECT_TRUE(respond(monitor, 3322));
        EXPECT_FALSE(g_write.wrote);
        EXPECT_EQ(g_write.error, 87u);
        EXPECT_TRUE(journal.takeEntries().empty());

        zgEL_Reporter::destroy();
        EXPECT_EQ(zgEL_Reporter::getLoneInstance(), nullptr);
    });
}

} // namespace
