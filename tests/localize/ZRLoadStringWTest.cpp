#include "localize/ZRLoadStringW.h"

#include "platform/LastError.h"
#include "platform/Modules.h"

#include <QCoreApplication>
#include <QTranslator>

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr wchar_t kUntouched = L'#';

// The loader as a module's user finds it: by its undecorated name in "zmu.dll".
ZRLoadStringW_Function exportedLoader()
{
    return reinterpret_cast<ZRLoadStringW_Function>(GetProcAddress(GetModuleHandleW(L"zmu.dll"), "ZRLoadStringW"));
}

std::wstring load(unsigned int id, int bufferMax = 1024)
{
    std::vector<wchar_t> buffer(static_cast<size_t>(bufferMax), kUntouched);
    const int count = ZRLoadStringW(id, buffer.data(), bufferMax);
    return std::wstring(buffer.data(), static_cast<size_t>(count));
}

} // namespace

TEST(ZRLoadStringW, IsExportedFromTheLibraryUnderItsPlainName)
{
    ZRLoadStringW_Function loader = exportedLoader();
    ASSERT_NE(loader, nullptr);
    wchar_t buffer[16] = {};
    EXPECT_EQ(loader(10008, buffer, 16), 3);
    EXPECT_EQ(std::wstring(buffer), L"Log");
}

// Every id from 0 to 99999 is asked for: exactly the 129 rows answer, an unsorted table would lose some.
TEST(ZRLoadStringW, TableHasExactly129Rows)
{
    wchar_t buffer[8];
    int rows = 0;
    for (unsigned int id = 0; id < 100000; ++id) {
        SetLastError(12345);
        ZRLoadStringW(id, buffer, 8);
        if (GetLastError() == 0)
            ++rows;
        else
            ASSERT_EQ(GetLastError(), DWORD(2)) << "id " << id;
    }
    EXPECT_EQ(rows, 129);
}

TEST(ZRLoadStringW, RowsHoldTheirExactTexts)
{
    const struct
    {
        unsigned int id;
        const wchar_t* text;
    } rows[] = {
        {10001, L"<a href=\"Codes/WBT.html#%lu\">WBT%lu</a>"},
        {10006, L"1~-1~2~u`s~||``This log file is #%1!u! in a series that began with %2!s!.`"},
        {10021, L"<!-- SituationID=[SITUATION_ID] -->[YEAR]-[MONTH]-[DAY] [HOURS]:[MINUTES]:[SECONDS]."
                L"[MILLISECONDS] [SITUATION_DSCRP]<br>\n"},
        {10023, L"</body><html>\n"},
        {12031, L"YEAR"},
        {13002, L"Internal Error %ls.%0*d"},
        {14006, L" "},
        {14201, L"<a href=\\\"file://%ls\\\">%ls</a>"},
        {14205, L"%ls%.*ls%ls\r\n%ls%ls%ls\r\n"},
        {15202, L"%m/%d/%y"},
        {15402, L" "},
        {15601, L"Environment Variables"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.id);
        SetLastError(12345);
        EXPECT_EQ(load(row.id), row.text);
        EXPECT_EQ(GetLastError(), DWORD(0));
    }
}

// Ids around and between the rows, and the text log's form ids that only a resource module has.
TEST(ZRLoadStringW, MissingIdReturnsZeroWithLastError2AndLeavesBufferAlone)
{
    const unsigned int ids[] = {0, 1, 10000, 10012, 10031, 10032, 10033, 14020, 15435, 15440, 15444, 15602, UINT_MAX};
    for (unsigned int id : ids) {
        SCOPED_TRACE(id);
        wchar_t buffer[4] = {kUntouched, kUntouched, kUntouched, kUntouched};
        SetLastError(12345);
        EXPECT_EQ(ZRLoadStringW(id, buffer, 4), 0);
        EXPECT_EQ(GetLastError(), DWORD(2));
        EXPECT_EQ(std::wstring(buffer, 4), std::wstring(4, kUntouched));
    }
}

TEST(ZRLoadStringW, EmptyRowReturnsZeroWithLastError0AndTerminates)
{
    wchar_t buffer[4] = {kUntouched, kUntouched, kUntouched, kUntouched};
    SetLastError(12345);
    EXPECT_EQ(ZRLoadStringW(14015, buffer, 4), 0);
    EXPECT_EQ(GetLastError(), DWORD(0));
    EXPECT_EQ(buffer[0], L'\0');
}

TEST(ZRLoadStringW, CutsToOneLessThanBufferMaxAndTerminates)
{
    const struct
    {
        int bufferMax;
        const wchar_t* expected;
    } rows[] = {{1, L""}, {2, L"U"}, {4, L"Unk"}, {7, L"Unknow"}, {8, L"Unknown"}, {9, L"Unknown"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.bufferMax);
        std::vector<wchar_t> buffer(static_cast<size_t>(row.bufferMax) + 1, kUntouched);
        SetLastError(12345);
        const int count = ZRLoadStringW(10007, buffer.data(), row.bufferMax);
        EXPECT_EQ(std::wstring(buffer.data(), static_cast<size_t>(count)), row.expected);
        EXPECT_EQ(buffer[static_cast<size_t>(count)], L'\0');
        EXPECT_EQ(buffer[static_cast<size_t>(row.bufferMax)], kUntouched) << "wrote past bufferMax";
        EXPECT_EQ(GetLastError(), DWORD(0));
    }
}

TEST(ZRLoadStringW, RefusesNullBufferAndBufferMaxBelowOne)
{
    wchar_t buffer[2] = {kUntouched, kUntouched};
    const struct
    {
        wchar_t* buffer;
        int bufferMax;
    } rows[] = {{nullptr, 16}, {buffer, 0}, {buffer, -1}, {buffer, INT_MIN}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.bufferMax);
        SetLastError(12345);
        EXPECT_EQ(ZRLoadStringW(10007, row.buffer, row.bufferMax), 0);
        EXPECT_EQ(GetLastError(), DWORD(87));
        EXPECT_EQ(buffer[0], kUntouched);
    }
}

namespace {

// A host's translator: gives the "Unknown" of the table a text with a character beyond 16 bits.
class WideTranslator : public QTranslator
{
public:
    bool isEmpty() const override { return false; }
    QString translate(const char* context, const char* sourceText, const char*, int) const override
    {
        if (QString::fromLatin1(context) == QLatin1String("QObject") && QString::fromUtf8(sourceText) == QLatin1String("Unknown"))
            return QString::fromUtf8("ab\xF0\x9F\x98\x80" "cd"); // "ab", U+1F600, "cd"
        return QString();
    }
};

} // namespace

// A code point beyond 16 bits is one wide character here: it counts once against bufferMax and is never split.
TEST(ZRLoadStringW, TextsPassThroughTheHostsTranslator)
{
    int argc = 1;
    char name[] = "zmu_test";
    char* argv[] = {name, nullptr};
    QCoreApplication application(argc, argv);
    WideTranslator translator;
    ASSERT_TRUE(QCoreApplication::installTranslator(&translator));

    EXPECT_EQ(load(10007), std::wstring(L"ab") + wchar_t(0x1F600) + L"cd");
    EXPECT_EQ(load(10007, 4), std::wstring(L"ab") + wchar_t(0x1F600));
    EXPECT_EQ(load(10007, 3), L"ab");
    EXPECT_EQ(load(14017), load(10007)) << "the same source text translates alike";
    EXPECT_EQ(load(10008), L"Log") << "a row the translator lacks keeps its text";

    QCoreApplication::removeTranslator(&translator);
}

// Half the threads ask for missing ids, half for rows: each sees only its own outcome.
TEST(ZRLoadStringWConcurrency, ThreadsLoadAtOnceEachWithItsOwnLastError)
{
    std::atomic<int> faults{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t, &faults] {
            const bool missing = t % 2 == 0;
            wchar_t buffer[16];
            for (int i = 0; i < 500; ++i) {
                const int count = ZRLoadStringW(missing ? 10031 : 14001, buffer, 16);
                const bool right = missing ? count == 0 && GetLastError() == 2
                                           : count == 3 && std::wstring(buffer) == L"Yes" && GetLastError() == 0;
                if (!right)
                    ++faults;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(faults.load(), 0);
}
