// The proxy module "cs4s3.dll" for tests: its ProxyRespondToSituation records each call in exported
// globals that a test reads through GetProcAddress, and answers as the test tells it.
#include <cwchar>

#define ZMU_PROXY_EXPORT extern "C" __attribute__((visibility("default")))
#define ZMU_PROXY_DATA __attribute__((visibility("default")))

extern "C" {
// Calls so far, and the arguments of the last one (texts copied, cut to fit).
ZMU_PROXY_DATA int zmuProxyCallCount = 0;
ZMU_PROXY_DATA unsigned int zmuProxyLastEnablements = 0;
ZMU_PROXY_DATA long long zmuProxyLastInstantiatorID = 0;
ZMU_PROXY_DATA int zmuProxyLastNegatedSituationID = 0;
ZMU_PROXY_DATA wchar_t zmuProxyLastFormat[64] = {};
ZMU_PROXY_DATA wchar_t zmuProxyLastDescription[2048] = {};
// Non-zero makes the proxy refuse (return 0), as a proxy that could not take the description does.
ZMU_PROXY_DATA int zmuProxyRefuses = 0;
}

namespace {
void copyText(wchar_t* target, std::size_t capacity, const wchar_t* text)
{
    target[0] = L'\0';
    if (text != nullptr) {
        std::wcsncpy(target, text, capacity - 1);
        target[capacity - 1] = L'\0';
    }
}
} // namespace

// Puts the records back to their state at load, for a test that starts afresh.
ZMU_PROXY_EXPORT void zmuProxyReset()
{
    zmuProxyCallCount = 0;
    zmuProxyLastEnablements = 0;
    zmuProxyLastInstantiatorID = 0;
    zmuProxyLastNegatedSituationID = 0;
    zmuProxyLastFormat[0] = L'\0';
    zmuProxyLastDescription[0] = L'\0';
    zmuProxyRefuses = 0;
}

ZMU_PROXY_EXPORT int ProxyRespondToSituation(unsigned int enablements, long long instantiatorID,
                                             int negatedSituationID, const wchar_t* format,
                                             const wchar_t* description)
{
    ++zmuProxyCallCount;
    zmuProxyLastEnablements = enablements;
    zmuProxyLastInstantiatorID = instantiatorID;
    zmuProxyLastNegatedSituationID = negatedSituationID;
    copyText(zmuProxyLastFormat, sizeof zmuProxyLastFormat / sizeof zmuProxyLastFormat[0], format);
    copyText(zmuProxyLastDescription, sizeof zmuProxyLastDescription / sizeof zmuProxyLastDescription[0],
             description);
    return zmuProxyRefuses != 0 ? 0 : 1;
}
