#include "platform/ModuleAttachment.h"
#include "platform/Modules.h"
#include "platform/Threads.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

namespace {

// What the hook heard: the notices by thread id. Never freed, as the hook may run at exit.
std::mutex s_heardLock;
auto* s_heard = new std::multimap<DWORD, DWORD>;
std::vector<HINSTANCE>* s_modules = new std::vector<HINSTANCE>;

BOOL recordingHook(HINSTANCE module, DWORD reason, void* reserved)
{
    std::lock_guard<std::mutex> guard(s_heardLock);
    s_heard->emplace(GetCurrentThreadId(), reserved == nullptr ? reason : 99);
    s_modules->push_back(module);
    return TRUE;
}

// Threads that asked 0, 1 or 3 times end together: each that asked hears one DLL_THREAD_DETACH on
// itself, the others nothing; the registration heard DLL_PROCESS_ATTACH; every notice names libzmu.
TEST(ModuleAttachmentConcurrency, EachThreadThatAskedHearsItsOwnDetachOnce)
{
    RegisterAttachmentHook(&recordingHook);
    std::multimap<DWORD, DWORD> expected{{GetCurrentThreadId(), DLL_PROCESS_ATTACH}};
    std::mutex expectedLock;
    std::vector<std::thread> workers;
    for (const int asks : {0, 1, 3, 0, 1, 3, 1, 1}) {
        workers.emplace_back([&, asks] {
            for (int ask = 0; ask < asks; ++ask)
                NoteThreadNeedsDetach();
            std::lock_guard<std::mutex> guard(expectedLock);
            if (asks > 0)
                expected.emplace(GetCurrentThreadId(), DLL_THREAD_DETACH);
        });
    }
    for (std::thread& worker : workers)
        worker.join();
    RegisterAttachmentHook(nullptr);
    std::lock_guard<std::mutex> guard(s_heardLock);
    EXPECT_EQ(*s_heard, expected);
    EXPECT_EQ(*s_modules, std::vector<HINSTANCE>(expected.size(), GetModuleHandleW(L"zmu.dll")));
}

BOOL printingHook(HINSTANCE, DWORD reason, void*)
{
    char line[8];
    const int length = std::snprintf(line, sizeof line, "[%u]", unsigned(reason));
    static_cast<void>(::write(2, line, static_cast<std::size_t>(length)));
    return TRUE;
}

// In a child: attach at registration, the detach of an ending thread, none for the first thread
// though it asked, and the process detach as the process exits.
TEST(ModuleAttachment, ProcessDetachComesOnceAtExit)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            RegisterAttachmentHook(&printingHook);
            NoteThreadNeedsDetach();
            std::thread([] { NoteThreadNeedsDetach(); }).join();
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "^\\[1\\]\\[3\\]\\[0\\]$");
}

} // namespace
