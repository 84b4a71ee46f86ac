#include "platform/EventLog.h"

#include "platform/LastError.h"
#include "support/JournalSandbox.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace {

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
    constexpr DWORD kUntouched = 0xBADu; // the row succeeds
    HANDLE closed = RegisterEventSourceW(nullptr, L"closed");
    ASSERT_TRUE(DeregisterEventSource(closed));
    HANDLE open = nullptr;
    const wchar_t* strings[] = {L"x"};
    const auto report = [&strings](HANDLE source, WORD count, DWORD dataSize, bool withStrings) {
        return ReportEventW(source, 4, 0, 0x40000011, nullptr, count, dataSize, withStrings ? strings : nullptr,
                            nullptr) != FALSE;
    };
    struct Row
    {
        const char* name;
        std::function<bool()> succeeds;
        DWORD error;
    };
    const Row rows[] = {
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
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        SetLastError(kUntouched);
        EXPECT_EQ(row.succeeds(), row.error == kUntouched);
        EXPECT_EQ(GetLastError(), row.error);
    }
}

TEST_F(EventLogJournal, EachReportIsOneEntryWithItsFields)
{
    struct Row
    {
        const char* name;
        DWORD eventID;
        WORD type;
        std::vector<const wchar_t*> strings;
        std::vector<std::string> stringFields;
        const char* message;
        const char* priority;
        const char* eventIDText;
    };
    const Row rows[] = {
        {"success", 0x10, 0, {L"once"}, {"once"}, "Succeeded once", "5", "0x00000010"},
        {"informational, an insert without format", 0x40000011, 4, {L"a", L"b"}, {"a", "b"}, "Told a and b.", "6",
         "0x40000011"},
        {"warning", 0x80000012, 2, {L"w"}, {"w"}, "Warned w", "4", "0x80000012"},
        {"error", 0xC0000013, 1, {L"e"}, {"e"}, "Failed e", "3", "0xC0000013"},
        {"missing strings show as inserts", 0x40000014, 4, {L"one"}, {"one"}, "Only one and %2, never %3", "6",
         "0x40000014"},
        {"beyond ASCII, a null string", 0x40000011, 4, {L"Zo\u00eb \u2713", nullptr}, {"Zo\xC3\xAB \xE2\x9C\x93", ""},
         "Told Zo\xC3\xAB \xE2\x9C\x93 and (null).", "6", "0x40000011"},
        {"no text for the id", 0x4000ABCD, 4, {L"l", L"r"}, {"l", "r"}, "Event 0x4000ABCD l r", "6", "0x4000ABCD"},
    };
    JournalSandbox::run([&rows](JournalSandbox& journal) {
        bool narrow = false;
        for (const Row& row : rows) {
            SCOPED_TRACE(row.name);
            narrow = !narrow;
            HANDLE source = narrow ? RegisterEventSourceA(nullptr, "narrow") : RegisterEventSourceW(nullptr, L"wide");
            std::vector<const wchar_t*> strings = row.strings;
            EXPECT_TRUE(ReportEventW(source, row.type, 7, row.eventID, nullptr, WORD(strings.size()), 0, strings.data(),
                                     nullptr));
            EXPECT_TRUE(DeregisterEventSource(source));

            const std::vector<JournalEntry> entries = journal.takeEntries();
            ASSERT_EQ(entries.size(), 1u);
            const JournalEntry& entry = entries[0];
            EXPECT_EQ(entry.value("MESSAGE"), row.message);
            EXPECT_EQ(entry.value("PRIORITY"), row.priority);
            EXPECT_EQ(entry.value("SYSLOG_IDENTIFIER"), narrow ? "narrow" : "wide");
            EXPECT_EQ(entry.value("ZMU_EVENT_ID"), row.eventIDText);
            EXPECT_EQ(entry.value("ZMU_EVENT_TYPE"), std::to_string(row.type));
            EXPECT_EQ(entry.value("ZMU_EVENT_CATEGORY"), "7");
            for (size_t index = 0; index < row.stringFields.size(); ++index)
                EXPECT_EQ(entry.value("ZMU_STRING_" + std::to_string(index + 1)), row.stringFields[index]);
            EXPECT_EQ(entry.fields.size(), 6 + strings.size()) << "no field beyond the strings";
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
            SetLastError(0);
            const wchar_t* strings[] = {L"x"};
            EXPECT_FALSE(ReportEventW(source, 4, 0, 0x40000011, nullptr, 1, 0, strings, nullptr));
            EXPECT_EQ(GetLastError(), ERROR_SERVICE_NOT_ACTIVE);
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
