// The message formatter on the engine's two usual loads: a log description with a few inserts
// at width 0, and a long text wrapped for a dialog at 67 columns.
#include "platform/FormatMessage.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

namespace {

constexpr DWORD kFromArray = FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ARGUMENT_ARRAY;

u64 slot(const void* pointer)
{
    return static_cast<u64>(reinterpret_cast<std::uintptr_t>(pointer));
}

void BM_FormatMessageLogDescription(benchmark::State& state)
{
    const wchar_t* const text = L"The session of %2!s! ended with code %1!lu! after %3!u! seconds; see the series "
                                L"that began with %4.";
    const u64 inserts[] = {1168, slot(L"ALICE\\Workstation-07"), 42, slot(L"first.html")};
    wchar_t buffer[1024];
    for (auto _ : state) {
        const DWORD count = FormatMessageW(kFromArray, text, 0, 0, buffer, 1024, inserts);
        if (count == 0)
            state.SkipWithError("formatting failed");
        benchmark::DoNotOptimize(count);
        benchmark::DoNotOptimize(buffer);
    }
}
BENCHMARK(BM_FormatMessageLogDescription);

void BM_FormatMessageWrapped67(benchmark::State& state)
{
    std::wstring text;
    for (int i = 0; text.size() < 1000; ++i)
        text += std::wstring(1 + (i * 7) % 11, static_cast<wchar_t>(L'a' + i % 26)) + (i % 12 == 11 ? L"\r\n" : L" ");
    text.resize(1000);
    wchar_t buffer[1024];
    for (auto _ : state) {
        const DWORD count = FormatMessageW(kFromArray | 67, text.c_str(), 0, 0, buffer, 1024, nullptr);
        if (count == 0)
            state.SkipWithError("formatting failed");
        benchmark::DoNotOptimize(count);
        benchmark::DoNotOptimize(buffer);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * 1000 * static_cast<int64_t>(sizeof(wchar_t)));
}
BENCHMARK(BM_FormatMessageWrapped67);

} // namespace
