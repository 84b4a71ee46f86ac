// The costs of UTL_String that the library pays most: assignment, the wide accessor, conversion.
#include "foundation/UTL_String.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

namespace {

// Assigning a text no longer than the one held reuses the buffer: no allocation per call.
void assignmentReusingTheBuffer(benchmark::State& state)
{
    const UTL_String longer(L"C:/Quorvane/Farrowlink/Logs/operator_pw_log.html");
    const UTL_String shorter(L"C:/Quorvane/Farrowlink/Logs/log.html");
    UTL_String target(longer);
    for (auto _ : state) {
        target = shorter;
        benchmark::DoNotOptimize(target.wideText());
    }
}
BENCHMARK(assignmentReusingTheBuffer);

// Assignment that must allocate, for comparison: the encodings differ on every call.
void assignmentAcrossEncodings(benchmark::State& state)
{
    const UTL_String wideText(L"C:/Quorvane/Farrowlink/Logs/log.html");
    const UTL_String narrowText("C:/Quorvane/Farrowlink/Logs/log.html");
    UTL_String target;
    bool useWide = false;
    for (auto _ : state) {
        target = useWide ? wideText : narrowText;
        useWide = !useWide;
        benchmark::DoNotOptimize(target.length());
    }
}
BENCHMARK(assignmentAcrossEncodings);

void wideTextOfAWideString(benchmark::State& state)
{
    const UTL_String text(L"1~-1~2~u`s~||``test series note %1!u! %2!s!`");
    for (auto _ : state)
        benchmark::DoNotOptimize(text.wideText());
}
BENCHMARK(wideTextOfAWideString);

// The cache is rebuilt on every call, so each call converts the whole text.
void wideTextOfANarrowString(benchmark::State& state)
{
    const std::string source(size_t(state.range(0)), 'x');
    const UTL_String text(source.c_str());
    for (auto _ : state)
        benchmark::DoNotOptimize(text.wideText());
    state.SetBytesProcessed(int64_t(state.iterations()) * state.range(0));
}
BENCHMARK(wideTextOfANarrowString)->Arg(16)->Arg(256)->Arg(4096);

} // namespace
