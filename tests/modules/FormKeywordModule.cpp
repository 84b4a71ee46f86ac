// A resource module for the form tests: the four marker keywords (11001 to 11004) are the test's
// choice, and every other string comes from a loader that the test hands over.
#include <cwchar>

namespace {
using Loader = int (*)(unsigned int id, wchar_t* buffer, int bufferMax);

constexpr unsigned int kKeywordID_Min = 11001;
// BODY, HEAD, INJECT_SYS_INFO, TAIL by default; a null entry is a string the module lacks.
const wchar_t* g_keywords[4] = {L"BODY", L"HEAD", L"INJECT_SYS_INFO", L"TAIL"};
Loader g_fallback = nullptr;
} // namespace

// The texts must outlive every use of the module; string literals do.
extern "C" __attribute__((visibility("default"))) void zmuTestSetFormKeywords(const wchar_t* body, const wchar_t* head,
                                                                             const wchar_t* injector,
                                                                             const wchar_t* tail, Loader fallback)
{
    g_keywords[0] = body;
    g_keywords[1] = head;
    g_keywords[2] = injector;
    g_keywords[3] = tail;
    g_fallback = fallback;
}

extern "C" __attribute__((visibility("default"))) int ZRLoadStringW(unsigned int id, wchar_t* buffer, int bufferMax)
{
    if (id < kKeywordID_Min || id >= kKeywordID_Min + 4)
        return g_fallback != nullptr ? g_fallback(id, buffer, bufferMax) : 0;
    const wchar_t* const text = g_keywords[id - kKeywordID_Min];
    if (text == nullptr || buffer == nullptr || bufferMax < 1)
        return 0;
    int count = static_cast<int>(std::wcslen(text));
    if (count >= bufferMax)
        count = bufferMax - 1;
    std::wmemcpy(buffer, text, static_cast<size_t>(count));
    buffer[count] = L'\0';
    return count;
}
