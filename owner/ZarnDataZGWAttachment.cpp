// The library's attachment hook: a thread that ends leaves every monitor, and a process that ends
// destroys its monitors, which closes their logs.
#include "monitor/Zarn.h"
#include "platform/ModuleAttachment.h"

namespace {

// Always reports success; the notices other than these two need nothing.
BOOL zarnAttachmentHook(HINSTANCE module, DWORD reason, void* reserved)
{
    (void)module;
    (void)reserved;
    Zarn** const monitors = Zarn::getZarnMonitors();
    if (monitors == nullptr)
        return TRUE;
    if (reason == DLL_PROCESS_DETACH) {
        Zarn::destroy();
    } else if (reason == DLL_THREAD_DETACH && Zarn::getZarnMonitorsCount() >= 1) {
        // The whole table: a destroyed monitor leaves a hole below the count.
        for (int index = 0; index < Zarn::getZarnMonitorsQty(); ++index) {
            if (monitors[index] != nullptr)
                monitors[index]->removeThread();
        }
    }
    return TRUE;
}

// Registered while the library loads, as a DLL's entry point is known from its loading.
const bool s_hookRegistered = (RegisterAttachmentHook(&zarnAttachmentHook), true);

} // namespace
