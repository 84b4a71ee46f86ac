// The resource module of the response spec fuzzer: serves the text under test as one string ID,
// and a few description affixes beside it, through the exported string loader.
#include <cwchar>
#include <string>

namespace {

constexpr unsigned int kAffixID_Min = 20000;

unsigned int g_specID = 0;
std::wstring g_spec;

// Affix 2 is empty and affix 4 is missing: both are refused by the affix parser. Affix 3 is longer
// than the room any description has.
const std::wstring& affix(unsigned int index, bool& served)
{
    static const std::wstring s_affixes[] = {
        L"Situation %1!u!: ",
        L" (%2, %3!d!)",
        L"",
        std::wstring(700, L'-') + L"%1",
    };
    static const std::wstring s_none;
    served = index < sizeof s_affixes / sizeof *s_affixes;
    return served ? s_affixes[index] : s_none;
}

int serve(const std::wstring& text, wchar_t* buffer, int bufferMax)
{
    if (buffer == nullptr || bufferMax < 1)
        return 0;
    int count = static_cast<int>(text.size());
    if (count >= bufferMax)
        count = bufferMax - 1;
    std::wmemcpy(buffer, text.data(), static_cast<std::size_t>(count));
    buffer[count] = L'\0';
    return count;
}

} // namespace

// Serves `text` (copied, cut at its first zero like any string resource) as string `id` from now on.
extern "C" __attribute__((visibility("default"))) void zmuFuzzServeSpec(unsigned int id, const wchar_t* text)
{
    g_specID = id;
    g_spec = text;
}

extern "C" __attribute__((visibility("default"))) unsigned int zmuFuzzAffixID_Min()
{
    return kAffixID_Min;
}

// Like a string table: the text cut to bufferMax - 1 characters and terminated; an ID it lacks
// leaves the buffer untouched and gives 0.
extern "C" __attribute__((visibility("default"))) int ZRLoadStringW(unsigned int id, wchar_t* buffer, int bufferMax)
{
    if (id == g_specID)
        return serve(g_spec, buffer, bufferMax);
    bool served = false;
    const std::wstring& text = id >= kAffixID_Min ? affix(id - kAffixID_Min, served) : affix(~0u, served);
    return served ? serve(text, buffer, bufferMax) : 0;
}
