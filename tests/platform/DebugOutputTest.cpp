#include "platform/DebugOutput.h"

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

void recordText(const wchar_t* text, void* context)
{
    static_cast<std::vector<std::wstring>*>(context)->push_back(text);
}

// Each text as given, narrow text read as UTF-8, null texts not at all; errno is kept. Replacing
// the listener gives back the one it replaced, with its context.
TEST(DebugOutput, ListenerSeesEachTextAsGivenUntilReplaced)
{
    std::vector<std::wstring> texts;
    void* previousContext = &texts;
    const DebugOutputListener previous = SetDebugOutputListener(&recordText, &texts, &previousContext);
    errno = ENOSPC;
    for (const wchar_t* text : {L"caught exception #7\r\n", L"", static_cast<const wchar_t*>(nullptr)})
        OutputDebugStringW(text);
    OutputDebugStringA("caf\xC3\xA9 \xE2\x82\xAC");
    OutputDebugStringA(nullptr);
    EXPECT_EQ(errno, ENOSPC);
    void* returnedContext = nullptr;
    EXPECT_EQ(SetDebugOutputListener(previous, previousContext, &returnedContext), &recordText);
    EXPECT_EQ(returnedContext, &texts);
    OutputDebugStringW(L"after removal");
    EXPECT_EQ(texts, (std::vector<std::wstring>{L"caught exception #7\r\n", L"", L"caf\xE9 \x20AC"}));
}

// The target is read at a process's first line, so each case runs in a fresh child (a threadsafe
// death test re-executes this program). Without a target of its own, the child traces to a file
// that held "earlier", and shows on stderr what the file holds at the end.
void traceInChild(const char* target, const std::function<void()>& write)
{
    std::string path = ::testing::TempDir() + "zmu_trace_XXXXXX";
    ::close(::mkstemp(&path[0]));
    std::ofstream(path) << "earlier\n";
    ::setenv("ZMU_TRACE", target != nullptr ? target : path.c_str(), 1);
    write();
    if (target == nullptr)
        std::cerr << std::ifstream(path).rdbuf();
    std::remove(path.c_str());
    std::_Exit(0);
}

// One marked line per text, its line ends dropped; a later change of ZMU_TRACE is not seen, and
// lines that threads write at the same time stay whole.
TEST(DebugOutputDeathTest, TargetsGetOneMarkedLinePerText)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::string mark = "zmu\\[[0-9]+:[0-9]+\\] ";
    const auto aLine = [] { OutputDebugStringW(L"a line\n"); };
    const auto manyThreads = [] {
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
    const auto texts = [] {
        OutputDebugStringW(L"first text\n");
        ::setenv("ZMU_TRACE", "stderr", 1);
        OutputDebugStringW(L"second caf\xE9\r\n");
        OutputDebugStringA("third");
    };
    const struct { const char* target; std::function<void()> write; std::string output; } rows[] = {
        {nullptr, texts, "^earlier\n" + mark + "first text\n" + mark + "second caf\xC3\xA9\n" + mark + "third\n$"},
        {nullptr, manyThreads, "^earlier\n(" + mark + "[0-3] x+\n){100}$"},
        {"stderr", aLine, "^" + mark + "a line\n$"},
        {"/nonexistent-zmu-dir/trace.log", aLine, "^$"}, // the line is lost quietly
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.output);
        EXPECT_EXIT(traceInChild(row.target, row.write), ::testing::ExitedWithCode(0), row.output);
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
            for (; !stop; std::this_thread::yield())
                OutputDebugStringW(L"busy");
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
