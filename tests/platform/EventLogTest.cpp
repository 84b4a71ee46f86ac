#include "platform/EventLog.h"

#include "PlatformRig.h"
#include "support/JournalSandbox.h"

#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

using platform_test::kUntouched;

const wchar_t* testMessages(DWORD eventID)
{
    switch (eventID) {
    case 0x00000010: return L"Succeeded %1!s!\r\n";
    case 0x40000011: return L"Told %1 and %2!s!.\r\n";
    case 0x80000012: return L"Warned %1\r\n";
    case 0xC0000013: return L"Failed %1!s!\r\n";
    case 0x40000014: return L"Only %1 and %2!s!, never %3\r\n";
    default: return nullptr;
    }
}

class EventLogJournal : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!JournalSandbox::whyUnavailable().empty())
            GTEST_SKIP() << JournalSandbox::whyUnavailable();
        SetEventMessageTable(&testMessages);
    }
    void TearDown() override { SetEventMessageTable(nullptr); }
};
class EventLogJournalConcurrency : public EventLogJournal
{
};

TEST(EventLog, RefusalsNameTheirErrorAndSuccessKeepsTheLastError)
{
    HANDLE closed = RegisterEventSourceW(nullptr, L"closed");
    ASSERT_TRUE(DeregisterEventSource(closed));
    HANDLE open = nullptr;
    const wchar_t* strings[] = {L"x"};
    const auto report = [&strings](HANDLE source, WORD count, DWORD dataSize, bool withStrings) {
        return ReportEventW(source, 4, 0, 0x40000011, nullptr, count, dataSize, withStrings ? strings : nullptr,
                            nullptr) != FALSE;
    };
    platform_test::expectOutcomes({
        {"narrow source null", [] { return RegisterEventSourceA(nullptr, nullptr) != nullptr; }, 87},
        {"wide source null", [] { return RegisterEventSourceW(nullptr, nullptr) != nullptr; }, 87},
        {"a server is not examined", [&] { return (open = RegisterEventSourceW(L"\\\\far", L"open")) != nullptr; },
         kUntouched},
        {"deregister null", [] { return DeregisterEventSource(nullptr) != FALSE; }, 6},
        {"deregister twice", [&] { return DeregisterEventSource(closed) != FALSE; }, 6},
        {"report on a closed source", [&] { return report(closed, 1, 0, true); }, 6},
        {"strings announced but null", [&] { return report(open, 1, 0, false); }, 87},
        {"raw data announced but null", [&] { return report(open, 0, 1, true); }, 87},
        {"closing an open source", [&] { return DeregisterEventSource(open) != FALSE; }, kUntouched},
    });
}

// Exactly these fields: the message, the priority from the id's severity, the source's name, the
// id, type and category, and each string.
TEST_F(EventLogJournal, EachReportIsOneEntryWithItsFields)
{
    const struct {
        const char* name;
        DWORD eventID;
        WORD type;
        std::vector<const wchar_t*> strings;
        std::vector<std::string> fields; // the message, the priority, the id, the strings
    } rows[] = {
        {"success", 0x10, 0, {L"once"}, {"Succeeded once", "5", "0x00000010", "once"}},
        {"informational, an insert without format", 0x40000011, 4, {L"a", L"b"},
         {"Told a and b.", "6", "0x40000011", "a", "b"}},
        {"warning", 0x80000012, 2, {L"w"}, {"Warned w", "4", "0x80000012", "w"}},
        {"error", 0xC0000013, 1, {L"e"}, {"Failed e", "3", "0xC0000013", "e"}},
        {"missing strings show as inserts", 0x40000014, 4, {L"one"},
         {"Only one and %2, never %3", "6", "0x40000014", "one"}},
        {"beyond ASCII, a null string", 0x40000011, 4, {L"Zo\u00eb \u2713", nullptr},
         {"Told Zo\xC3\xAB \xE2\x9C\x93 and (null).", "6", "0x40000011", "Zo\xC3\xAB \xE2\x9C\x93", ""}},
        {"no text for the id", 0x4000ABCD, 4, {L"l", L"r"}, {"Event 0x4000ABCD l r", "6", "0x4000ABCD", "l", "r"}},
    };
    JournalSandbox::run([&rows](JournalSandbox& journal) {
        bool narrow = false;
        for (const auto& row : rows) {
            SCOPED_TRACE(row.name);
            narrow = !narrow;
            HANDLE source = narrow ? RegisterEventSourceA(nullptr, "narrow") : RegisterEventSourceW(nullptr, L"wide");
            std::vector<const wchar_t*> strings = row.strings;
            EXPECT_TRUE(ReportEventW(source, row.type, 7, row.eventID, nullptr, WORD(strings.size()), 0, strings.data(),
                                     nullptr));
            EXPECT_TRUE(DeregisterEventSource(source));

            const std::vector<JournalEntry> entries = journal.takeEntries();
            ASSERT_EQ(entries.size(), 1u);
            std::multiset<std::string> expected = {
                "MESSAGE=" + row.fields[0], "PRIORITY=" + row.fields[1], "ZMU_EVENT_ID=" + row.fields[2],
                std::string("SYSLOG_IDENTIFIER=") + (narrow ? "narrow" : "wide"),
                "ZMU_EVENT_TYPE=" + std::to_string(row.type), "ZMU_EVENT_CATEGORY=7"};
            for (size_t index = 3; index < row.fields.size(); ++index)
                expected.insert("ZMU_STRING_" + std::to_string(index - 2) + "=" + row.fields[index]);
            std::multiset<std::string> actual;
            for (const auto& [name, value] : entries[0].fields)
                actual.insert(name + "=" + value);
            EXPECT_EQ(actual, expected);
        }
    });
}

TEST_F(EventLogJournal, RawDataAndScopedFieldsJoinTheEntry)
{
    JournalSandbox::run([](JournalSandbox& journal) {
        HANDLE source = RegisterEventSourceW(nullptr, L"scoped");
        char data[] = {'a', '\0', '\n', 'b'};
        const auto report = [&] {
            EXPECT_TRUE(ReportEventW(source, 2, 0, 0x80000012, nullptr, 0, sizeof data, nullptr, data));
            const std::vector<JournalEntry> entries = journal.takeEntries();
            return entries.size() == 1 ? entries[0] : JournalEntry();
        };
        {
            EventReportFields outer({"ZMU_OUTER=1"});
            {
                EventReportFields inner({"ZMU_INNER=2", "ZMU_INNER_TOO=3"});
                const JournalEntry entry = report();
                EXPECT_EQ(entry.value("ZMU_EVENT_DATA"), std::string(data, sizeof data));
                ASSERT_GE(entry.fields.size(), 3u);
                EXPECT_EQ(entry.fields[entry.fields.size() - 3].first, "ZMU_OUTER") << "the outer scope's come first";
                EXPECT_EQ(entry.value("ZMU_INNER_TOO"), "3");
            }
            const JournalEntry entry = report();
            EXPECT_EQ(entry.value("ZMU_OUTER"), "1");
            EXPECT_FALSE(entry.has("ZMU_INNER")) << "the inner scope has ended";
        }
        EXPECT_FALSE(report().has("ZMU_OUTER"));
        DeregisterEventSource(source);
    });
}

TEST_F(EventLogJournal, WithNoJournalToReachAReportFailsWithItsError)
{
    for (const bool removeSocket : {false, true}) {
        SCOPED_TRACE(removeSocket ? "no journal socket" : "a socket nobody listens on");
        JournalSandbox::run([removeSocket](JournalSandbox& journal) {
            HANDLE source = RegisterEventSourceW(nullptr, L"unheard");
            journal.stopReceiving(removeSocket);
            const wchar_t* strings[] = {L"x"};
            EXPECT_EQ(platform_test::outcomeOf([&] {
                          return ReportEventW(source, 4, 0, 0x40000011, nullptr, 1, 0, strings, nullptr) != FALSE;
                      }),
                      ERROR_SERVICE_NOT_ACTIVE);
            DeregisterEventSource(source);
        });
    }
}

// Sources open and close on several threads at once, and each thread's fields stay its own.
TEST_F(EventLogJournalConcurrency, ThreadsReportAtOnce)
{
    static constexpr int kThreads = 4;
    static constexpr int kReportsEach = 2; // all of them fit the socket's queue before it is read
    JournalSandbox::run([](JournalSandbox& journal) {
        std::vector<std::thread> threads;
        for (int thread = 0; thread < kThreads; ++thread) {
            threads.emplace_back([thread] {
                HANDLE source = RegisterEventSourceW(nullptr, (L"source-" + std::to_wstring(thread)).c_str());
                EventReportFields fields({"ZMU_THREAD=" + std::to_string(thread)});
                const wchar_t* strings[] = {L"t"};
                for (int report = 0; report < kReportsEach; ++report)
                    EXPECT_TRUE(ReportEventW(source, 2, 0, 0x80000012, nullptr, 1, 0, strings, nullptr));
                EXPECT_TRUE(DeregisterEventSource(source));
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        std::map<std::string, int> reportsBySource;
        for (const JournalEntry& entry : journal.takeEntries()) {
            EXPECT_EQ(entry.value("SYSLOG_IDENTIFIER"), "source-" + entry.value("ZMU_THREAD"));
            ++reportsBySource[entry.value("SYSLOG_IDENTIFIER")];
        }
        EXPECT_EQ(reportsBySource.size(), size_t(kThreads));
        for (const auto& [source, reports] : reportsBySource)
            EXPECT_EQ(reports, kReportsEach) << source;
    });
}

} // namespace
