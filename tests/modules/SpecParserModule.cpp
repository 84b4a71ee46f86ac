// A resource module for the tests of the response spec parsers: serves one text, which a test sets,
// under one string ID, through the exported string loader.
#include <cwchar>
#include <string>

namespace {
unsigned int g_servedID = 0;
bool g_serving = false;
std::wstring g_servedText;
unsigned int g_lastAskedID = 0;
} // namespace

// Serves `text` (copied) as string `id` from now on; a null text serves nothing at all. Forgets
// the last ID asked for.
extern "C" __attribute__((visibility("default"))) void zmuSpecParserServe(unsigned int id, const wchar_t* text)
{
    g_lastAskedID = 0;
    g_servedID = id;
    g_serving = text != nullptr;
    g_servedText = text != nullptr ? text : L"";
}

// The ID of the last string asked for since the last zmuSpecParserServe, or 0.
extern "C" __attribute__((visibility("default"))) unsigned int zmuSpecParserLastAskedID()
{
    return g_lastAskedID;
}

// Like a string table: the text cut to bufferMax - 1 characters and terminated. An ID it does not
// serve leaves the buffer untouched and returns 0; an empty text is written and returns 0.
extern "C" __attribute__((visibility("default"))) int ZRLoadStringW(unsigned int id, wchar_t* buffer, int bufferMax)
{
    g_lastAskedID = id;
    if (!g_serving || id != g_servedID || buffer == nullptr || bufferMax < 1)
        return 0;
    int count = static_cast<int>(g_servedText.size());
    if (count >= bufferMax)
        count = bufferMax - 1;
    std::wmemcpy(buffer, g_servedText.data(), static_cast<size_t>(count));
    buffer[count] = L'\0';
    return count;
}
