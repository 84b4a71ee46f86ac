#include "platform/DebugOutput.h"

#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace {

TEST(DebugOutput, CaptureSeesEachTextWithoutItsLineEnd)
{
    TraceCapture capture;
    OutputDebugStringW(L"ZarnData::openFile () caught exception #7\n");
    OutputDebugStringW(L"second\r\n");
    OutputDebugStringW(L"");
    OutputDebugStringW(nullptr);
    const std::vector<std::wstring> expected = {L"ZarnData::openFile () caught exception #7", L"second", L""};
    EXPECT_EQ(expected, capture.lines());
    EXPECT_TRUE(capture.contains(L"caught exception #7"));
    EXPECT_FALSE(capture.contains(L"exception #8"));
}

TEST(DebugOutput, NarrowTextIsReadAsUtf8)
{
    TraceCapture capture;
    OutputDebugStringA("caf\xC3\xA9 \xE2\x82\xAC");
    OutputDebugStringA(nullptr);
    const std::vector<std::wstring> expected = {L"caf\xE9 \x20AC"};
    EXPECT_EQ(expected, capture.lines());
}

struct Probe
{
    std::vector<std::wstring> texts;
    static void listen(const wchar_t* text, void* context) { static_cast<Probe*>(context)->texts.push_back(text); }
};

TEST(DebugOutput, ListenerGetsTheTextAsGivenAndIsReplacedWholly)
{
    Probe probe;
    void* previousContext = &probe;
    const DebugOutputListener previous = SetDebugOutputListener(&Probe::listen, &probe, &previousContext);
    OutputDebugStringW(L"raw\n");
    void* returnedContext = nullptr;
    EXPECT_EQ(&Probe::listen, SetDebugOutputListener(previous, previousContext, &returnedContext));
    EXPECT_EQ(&probe, returnedContext);
    OutputDebugStringW(L"after removal");
    EXPECT_EQ(std::vector<std::wstring>{L"raw\n"}, probe.texts);
}

TEST(DebugOutput, NestedCapturesBothSeeAndTheOuterOneComesBack)
{
    TraceCapture outer;
    {
        TraceCapture inner;
        OutputDebugStringW(L"both");
        EXPECT_EQ(std::vector<std::wstring>{L"both"}, inner.lines());
    }
    OutputDebugStringW(L"outer only");
    const std::vector<std::wstring> expected = {L"both", L"outer only"};
    EXPECT_EQ(expected, outer.lines());
}

TEST(DebugOutput, KeepsErrno)
{
    errno = ENOSPC;
    OutputDebugStringW(L"a line");
    EXPECT_EQ(ENOSPC, errno);
}

std::vector<std::string> readLines(const std::string& path)
{
    std::vector<std::string> lines;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    return lines;
}

// The text of a channel line after its "zmu[<pid>:<tid>] " mark, or "<no mark>".
std::string textOf(const std::string& line)
{
    const std::size_t end = line.find("] ");
    if (line.compare(0, 4, "zmu[") != 0 || end == std::string::npos || line.find(':') > end)
        return "<no mark>";
    return line.substr(end + 2);
}

// The channel is chosen at the first line of a process, so each case runs in a fresh child
// (a threadsafe death test re-executes this program) with ZMU_TRACE set before that line. The
// target file is made by the parent and handed down through the environment.
class DebugOutputDeathTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        if (const char* inherited = std::getenv("ZMU_TEST_TRACE_FILE")) {
            m_path = inherited; // in the child
            return;
        }
        const char* tmp = std::getenv("TMPDIR");
        std::string pattern = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/zmu_trace_XXXXXX";
        const int fd = ::mkstemp(&pattern[0]);
        ASSERT_GE(fd, 0);
        ::close(fd);
        m_path = pattern;
        ::setenv("ZMU_TEST_TRACE_FILE", m_path.c_str(), 1);
        m_owner = true;
    }
    void TearDown() override
    {
        if (!m_owner)
            return;
        ::unsetenv("ZMU_TEST_TRACE_FILE");
        std::remove(m_path.c_str());
        std::remove((m_path + ".second").c_str());
    }

    std::string m_path;
    bool m_owner = false;
};

TEST_F(DebugOutputDeathTest, FileTargetGetsOneMarkedLinePerText)
{
    EXPECT_EXIT(
        {
            ::setenv("ZMU_TRACE", m_path.c_str(), 1);
            OutputDebugStringW(L"first text\n");
            OutputDebugStringW(L"second caf\xE9\r\n");
            OutputDebugStringA("third");
            std::_Exit(0);
        },
        ::testing::ExitedWithCode(0), "");
    const std::vector<std::string> lines = readLines(m_path);
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ("first text", textOf(lines[0]));
    EXPECT_EQ("second caf\xC3\xA9", textOf(lines[1]));
    EXPECT_EQ("third", textOf(lines[2]));
}

TEST_F(DebugOutputDeathTest, FileTargetAppends)
{
    {
        std::ofstream file(m_path);
        file << "earlier\n";
    }
    EXPECT_EXIT(
        {
            ::setenv("ZMU_TRACE", m_path.c_str(), 1);
            OutputDebugStringW(L"later");
            std::_Exit(0);
        },
        ::testing::ExitedWithCode(0), "");
    const std::vector<std::string> lines = readLines(m_path);
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ("earlier", lines[0]);
    EXPECT_EQ("later", textOf(lines[1]));
}

TEST_F(DebugOutputDeathTest, TargetIsReadAtTheFirstLineOnly)
{
    EXPECT_EXIT(
        {
            ::setenv("ZMU_TRACE", m_path.c_str(), 1);
            OutputDebugStringW(L"one");
            ::setenv("ZMU_TRACE", (m_path + ".second").c_str(), 1);
            OutputDebugStringW(L"two");
            std::_Exit(0);
        },
        ::testing::ExitedWithCode(0), "");
    EXPECT_EQ(2u, readLines(m_path).size());
    EXPECT_FALSE(std::ifstream(m_path + ".second").good());
}

TEST_F(DebugOutputDeathTest, StderrTarget)
{
    EXPECT_EXIT(
        {
            ::setenv("ZMU_TRACE", "stderr", 1);
            OutputDebugStringW(L"to standard error\n");
            std::_Exit(0);
        },
        ::testing::ExitedWithCode(0), "^zmu\\[[0-9]+:[0-9]+\\] to standard error\n$");
}

TEST_F(DebugOutputDeathTest, UnopenableFileLosesLinesQuietly)
{
    EXPECT_EXIT(
        {
            ::setenv("ZMU_TRACE", "/nonexistent-zmu-dir/trace.log", 1);
            OutputDebugStringW(L"nowhere to go");
            std::_Exit(0);
        },
        ::testing::ExitedWithCode(0), "^$");
}

TEST_F(DebugOutputDeathTest, LinesFromManyThreadsStayWhole)
{
    constexpr int kThreads = 4;
    constexpr int kLines = 100;
    EXPECT_EXIT(
        {
            ::setenv("ZMU_TRACE", m_path.c_str(), 1);
            std::vector<std::thread> threads;
            for (int t = 0; t < kThreads; ++t) {
                threads.emplace_back([t] {
                    for (int i = 0; i < kLines; ++i)
                        OutputDebugStringW((L"thread " + std::to_wstring(t) + L" line " + std::to_wstring(i)
                                            + std::wstring(40, L'x') + L"\n")
                                               .c_str());
                });
            }
            for (std::thread& thread : threads)
                thread.join();
            std::_Exit(0);
        },
        ::testing::ExitedWithCode(0), "");
    const std::vector<std::string> lines = readLines(m_path);
    ASSERT_EQ(static_cast<std::size_t>(kThreads * kLines), lines.size());
    std::vector<int> next(kThreads, 0);
    for (const std::string& line : lines) {
        int thread = -1;
        int number = -1;
        ASSERT_EQ(2, std::sscanf(textOf(line).c_str(), "thread %d line %d", &thread, &number)) << line;
        ASSERT_TRUE(thread >= 0 && thread < kThreads) << line;
        EXPECT_EQ(next[thread]++, number) << line;
        EXPECT_EQ(std::string(40, 'x'), line.substr(line.size() - 40)) << line;
    }
}

TEST(DebugOutputConcurrency, CaptureSeesEveryLineOfEveryThreadInOrder)
{
    constexpr int kThreads = 4;
    constexpr int kLines = 200;
    TraceCapture capture;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < kLines; ++i)
                OutputDebugStringW((std::to_wstring(t) + L" " + std::to_wstring(i)).c_str());
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    const std::vector<std::wstring> lines = capture.lines();
    ASSERT_EQ(static_cast<std::size_t>(kThreads * kLines), lines.size());
    std::vector<int> next(kThreads, 0);
    for (const std::wstring& line : lines) {
        const std::size_t space = line.find(L' ');
        const int thread = std::stoi(line.substr(0, space));
        EXPECT_EQ(next[static_cast<std::size_t>(thread)]++, std::stoi(line.substr(space + 1)));
    }
}

TEST(DebugOutputConcurrency, CapturesComeAndGoWhileThreadsWrite)
{
    std::atomic<bool> stop{false};
    std::vector<std::thread> writers;
    for (int t = 0; t < 3; ++t) {
        writers.emplace_back([&stop] {
            while (!stop.load()) {
                OutputDebugStringW(L"busy");
                std::this_thread::yield();
            }
        });
    }
    // Each capture, installed and removed while lines fly, gets whole lines from the writers;
    // a line reaching a capture after its end would be a use after free under the sanitizers.
    for (int round = 0; round < 20; ++round) {
        TraceCapture capture;
        while (capture.lines().empty())
            std::this_thread::yield();
        for (const std::wstring& line : capture.lines())
            ASSERT_EQ(L"busy", line);
    }
    stop = true;
    for (std::thread& writer : writers)
        writer.join();
}

} // namespace
