#include "platform/ModuleAttachment.h"

#include "platform/Modules.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>

namespace {

// Plain atomics only: they are read at thread and process end, when objects with destructors may
// already be gone.
std::atomic<AttachmentHook> s_hook{nullptr};
std::atomic<HINSTANCE> s_module{nullptr};
std::atomic<bool> s_processDetached{false};

void tellHook(AttachmentHook hook, DWORD reason) noexcept
{
    if (hook == nullptr)
        return;
    try {
        hook(s_module.load(std::memory_order_acquire), reason, nullptr);
    } catch (...) {
        // A notice at thread or process end has nobody to report to.
    }
}

bool isFirstThreadOfProcess()
{
    return ::syscall(SYS_gettid) == ::getpid();
}

// Armed by the first NoteThreadNeedsDetach of a thread; the runtime destroys it as the thread
// ends, before the thread's POSIX key destructors run.
struct ThreadDetachNotice
{
    ~ThreadDetachNotice()
    {
        // exit() destroys the first thread's thread_local objects too, before the process detach.
        if (s_processDetached.load(std::memory_order_acquire) || isFirstThreadOfProcess())
            return;
        tellHook(s_hook.load(std::memory_order_acquire), DLL_THREAD_DETACH);
    }
};

// Runs when libzmu.so is unloaded: at dlclose, and at exit after the exit handlers (which include
// the destructors of statics made after the modules loaded).
__attribute__((destructor)) void detachProcess()
{
    if (s_processDetached.exchange(true, std::memory_order_acq_rel))
        return;
    tellHook(s_hook.load(std::memory_order_acquire), DLL_PROCESS_DETACH);
}

} // namespace

void RegisterAttachmentHook(AttachmentHook hook)
{
    if (s_module.load(std::memory_order_acquire) == nullptr)
        s_module.store(GetModuleHandleW(L"zmu.dll"), std::memory_order_release);
    s_hook.store(hook, std::memory_order_release);
    tellHook(hook, DLL_PROCESS_ATTACH);
}

void NoteThreadNeedsDetach()
{
    thread_local ThreadDetachNotice notice;
    static_cast<void>(notice);
}
