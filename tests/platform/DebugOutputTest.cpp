#include "platform/DebugOutput.h"

#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <fstream>
#include <functional>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

namespace {

// Null texts write nothing; narrow text is read as UTF-8; errno is kept.
TEST(DebugOutput, CaptureSeesEachTextWithoutItsLineEnd)
{
    TraceCapture capture;
    errno = ENOSPC;
    for (const wchar_t* text : {L"caught exception #7\n", L"second\r\n", L"", static_cast<const wchar_t*>(nullptr)})
        OutputDebugStringW(text);
    OutputDebugStringA("caf\xC3\xA9 \xE2\x82\xAC");
    OutputDebugStringA(nullptr);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(capture.lines(), (std::vector<std::wstring>{L"caught exception #7", L"second", L"", L"caf\xE9 \x20AC"}));
}

TEST(DebugOutput, ListenerGetsTheTextAsGivenUntilReplaced)
{
    std::vector<std::wstring> texts;
    const DebugOutputListener listen = [](const wchar_t* text, void* context) {
        static_cast<std::vector<std::wstring>*>(context)->push_back(text);
    };
    void* previousContext = &texts;
    const DebugOutputListener previous = SetDebugOutputListener(listen, &texts, &previousContext);
    OutputDebugStringW(L"raw\n");
    void* returnedContext = nullptr;
    EXPECT_EQ(SetDebugOutputListener(previous, previousContext, &returnedContext), listen);
    EXPECT_EQ(returnedContext, &texts);
    OutputDebugStringW(L"after removal");
    EXPECT_EQ(texts, std::vector<std::wstring>{L"raw\n"});
}

// The target is read at a process's first line, so each case runs in a fresh child (a threadsafe
// death test re-executes this program), which shows on stderr what its trace file received.
void writeToTraceFile(const std::function<void()>& write)
{
    std::string path = ::testing::TempDir() + "zmu_trace_XXXXXX";
    ::close(::mkstemp(&path[0]));
    std::ofstream(path) << "earlier\n";
    ::setenv("ZMU_TRACE", path.c_str(), 1);
    write();
    std::cerr << std::ifstream(path).rdbuf();
    std::remove(path.c_str());
    std::_Exit(0);
}

// Appended, one marked line per text; a later change of ZMU_TRACE is not seen.
TEST(DebugOutputDeathTest, FileTargetGetsOneMarkedLinePerText)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto write = [] {
        OutputDebugStringW(L"first text\n");
        ::setenv("ZMU_TRACE", "stderr", 1);
        OutputDebugStringW(L"second caf\xE9\r\n");
        OutputDebugStringA("third");
    };
    EXPECT_EXIT(writeToTraceFile(write), ::testing::ExitedWithCode(0),
                "^earlier\nzmu\\[[0-9]+:[0-9]+\\] first text\nzmu\\[[0-9]+:[0-9]+\\] second caf\xC3\xA9\n"
                "zmu\\[[0-9]+:[0-9]+\\] third\n$");
}

// Lines that threads write at the same time stay whole, and none is lost.
TEST(DebugOutputDeathTest, LinesFromManyThreadsStayWhole)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto write = [] {
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([t] {
                for (int i = 0; i < 25; ++i)
                    OutputDebugStringA((std::to_string(t) + " " + std::string(60, 'x') + "\n").c_str());
            });
        }
        for (std::thread& thread : threads)
            thread.join();
    };
    EXPECT_EXIT(writeToTraceFile(write), ::testing::ExitedWithCode(0),
                "^earlier\n(zmu\\[[0-9]+:[0-9]+\\] [0-3] x+\n){100}$");
}

TEST(DebugOutputDeathTest, StderrTargetAndAnUnopenableFile)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::pair<const char*, const char*> rows[] = {
        {"stderr", "^zmu\\[[0-9]+:[0-9]+\\] a line\n$"},
        {"/nonexistent-zmu-dir/trace.log", "^$"}, // the line is lost quietly
    };
    for (const auto& [target, output] : rows) {
        SCOPED_TRACE(target);
        EXPECT_EXIT(
            {
                ::setenv("ZMU_TRACE", target, 1);
                OutputDebugStringW(L"a line\n");
                std::_Exit(0);
            },
            ::testing::ExitedWithCode(0), output);
    }
}

// Once replaced, a listener is not called any more: each context here is freed at once, which
// would be a use after free under the sanitizers.
TEST(DebugOutputConcurrency, ReplacedListenerIsNotCalledAnyMore)
{
    std::atomic<bool> stop{false};
    std::vector<std::thread> writers;
    for (int t = 0; t < 3; ++t) {
        writers.emplace_back([&stop] {
            while (!stop) {
                OutputDebugStringW(L"busy");
                std::this_thread::yield();
            }
        });
    }
    const DebugOutputListener count = [](const wchar_t* text, void* context) {
        if (std::wcscmp(text, L"busy") == 0)
            ++*static_cast<std::atomic<int>*>(context);
    };
    for (int round = 0; round < 20; ++round) {
        auto* seen = new std::atomic<int>(0);
        void* previousContext = nullptr;
        const DebugOutputListener previous = SetDebugOutputListener(count, seen, &previousContext);
        while (*seen == 0)
            std::this_thread::yield();
        SetDebugOutputListener(previous, previousContext);
        delete seen;
    }
    stop = true;
    for (std::thread& writer : writers)
        writer.join();
}

} // namespace
