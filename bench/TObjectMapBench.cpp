// The object map's two hot operations: a thread finding its own engine, and adding one. Run with
// one thread and with several to see what the map's single lock costs under contention.
#include "foundation/TObjectMap.h"

#include <benchmark/benchmark.h>

#include <memory>

namespace {

using ThreadMap = TObjectMap<unsigned long, void*>;

constexpr unsigned long k_presentKeyQty = 64; // a process with many threads that have reported

void* pointerFor(unsigned long key)
{
    return reinterpret_cast<void*>(key * 16 + 8);
}

} // namespace

static std::unique_ptr<ThreadMap> s_map;

static void setUpFilledMap(const benchmark::State&)
{
    s_map = std::make_unique<ThreadMap>(0);
    for (unsigned long key = 0; key < k_presentKeyQty; ++key)
        s_map->add(key, pointerFor(key));
}

static void tearDownMap(const benchmark::State&)
{
    s_map.reset();
}

// Each thread looks up a key of its own, as an engine looks up its thread's id.
static void BM_TObjectMapFind(benchmark::State& state)
{
    const unsigned long key = static_cast<unsigned long>(state.thread_index()) % k_presentKeyQty;
    void* value = nullptr;
    for (auto _ : state) {
        benchmark::DoNotOptimize(s_map->find(key, &value));
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(BM_TObjectMapFind)->Setup(setUpFilledMap)->Teardown(tearDownMap)->Threads(1)->Threads(4)->UseRealTime();

// Each thread keeps replacing the value of its own key: the lock and the lookup, without growth.
static void BM_TObjectMapAddExisting(benchmark::State& state)
{
    const unsigned long key = static_cast<unsigned long>(state.thread_index()) % k_presentKeyQty;
    unsigned long round = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(s_map->add(key, pointerFor(++round)));
}
BENCHMARK(BM_TObjectMapAddExisting)->Setup(setUpFilledMap)->Teardown(tearDownMap)->Threads(1)->Threads(4)->UseRealTime();

// Each thread adds fresh keys of its own, so the table keeps growing by eight. The iterations are
// capped to keep the table's memory modest.
static void BM_TObjectMapAddNew(benchmark::State& state)
{
    unsigned long key = k_presentKeyQty + static_cast<unsigned long>(state.thread_index());
    const unsigned long step = static_cast<unsigned long>(state.threads());
    for (auto _ : state) {
        benchmark::DoNotOptimize(s_map->add(key, pointerFor(key)));
        key += step;
    }
}
BENCHMARK(BM_TObjectMapAddNew)
    ->Setup(setUpFilledMap)
    ->Teardown(tearDownMap)
    ->Iterations(1 << 18)
    ->Threads(1)
    ->Threads(4)
    ->UseRealTime();
