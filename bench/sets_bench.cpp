// The ordered containers and the tally table against their peers of the standard library: each pair
// does the same work on the same keys, in no order.
#define MODULE "bench/sets"
#include <algorithm>
#include <cstdint>
#include <map>
#include <random>
#include <set>
#include <unordered_map>
#include <vector>

#include <benchmark/benchmark.h>

#include "common/base/ptrset.h"
#include "common/base/skiplist.h"
#include "common/base/tally_table.h"

using Keys = std::vector<const void *>;

// Like the addresses of records: all different, even in their low 32 bits, and the same in each
// run.
static Keys scatteredKeys(int64_t count)
{
    Keys keys;
    for (int64_t i = 0; i < count; ++i)
        keys.push_back(reinterpret_cast<const void *>(0x10000 + 48 * static_cast<uintptr_t>(i)));
    std::shuffle(keys.begin(), keys.end(), std::mt19937(1));
    return keys;
}

static void countItems(benchmark::State &state)
{
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

static void upToAMillion(benchmark::internal::Benchmark *bench)
{
    bench->Arg(1000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
}

// ---- Skip list --------------------------------------------------------------------------------

static SkipList *listOf(const Keys &keys)
{
    SkipList *list = skiplist_new_func(nullptr, nullptr, nullptr, MODULE, __LINE__);
    for (const void *key : keys)
        skiplist_insert_func(list, key, key, MODULE, __LINE__);
    return list;
}

static void SkipListInsert(benchmark::State &state)
{
    const Keys keys = scatteredKeys(state.range(0));
    for (auto _ : state) {
        SkipList *list = listOf(keys);
        benchmark::DoNotOptimize(list->count);
        skiplist_destroy(list);
    }
    countItems(state);
}
BENCHMARK(SkipListInsert)->Apply(upToAMillion);

static void StdMapInsert(benchmark::State &state)
{
    const Keys keys = scatteredKeys(state.range(0));
    for (auto _ : state) {
        std::map<const void *, const void *> map;
        for (const void *key : keys)
            map.emplace(key, key);
        benchmark::DoNotOptimize(map.size());
    }
    countItems(state);
}
BENCHMARK(StdMapInsert)->Apply(upToAMillion);

static void SkipListLookup(benchmark::State &state)
{
    const Keys keys = scatteredKeys(state.range(0));
    SkipList *list = listOf(keys);
    for (auto _ : state) {
        for (const void *key : keys)
            benchmark::DoNotOptimize(skiplist_get(list, key));
    }
    skiplist_destroy(list);
    countItems(state);
}
BENCHMARK(SkipListLookup)->Apply(upToAMillion);

static void StdMapLookup(benchmark::State &state)
{
    const Keys keys = scatteredKeys(state.range(0));
    std::map<const void *, const void *> map;
    for (const void *key : keys)
        map.emplace(key, key);
    for (auto _ : state) {
        for (const void *key : keys)
            benchmark::DoNotOptimize(map.find(key)->second);
    }
    countItems(state);
}
BENCHMARK(StdMapLookup)->Apply(upToAMillion);

// ---- Pointer set ------------------------------------------------------------------------------

static void PtrSetAdd(benchmark::State &state)
{
    const Keys keys = scatteredKeys(state.range(0));
    for (auto _ : state) {
        PtrSet *set = ptrset_new(nullptr);
        for (const void *key : keys)
            ptrset_add(set, key);
        benchmark::DoNotOptimize(ptrset_size(set));
        ptrset_destroy(set);
    }
    countItems(state);
}
BENCHMARK(PtrSetAdd)->Apply(upToAMillion);

static void StdSetAdd(benchmark::State &state)
{
    const Keys keys = scatteredKeys(state.range(0));
    for (auto _ : state) {
        std::set<const void *> set;
        for (const void *key : keys)
            set.insert(key);
        benchmark::DoNotOptimize(set.size());
    }
    countItems(state);
}
BENCHMARK(StdSetAdd)->Apply(upToAMillion);

// ---- Tally table ------------------------------------------------------------------------------

static constexpr uint32_t BUCKETS = 5077;
static constexpr uint32_t TOP_LIST = 10;

static void addToTally(benchmark::State &state, int64_t different)
{
    const Keys keys = scatteredKeys(different);
    for (auto _ : state) {
        TallyTable *tally = tally_new(BUCKETS, TOP_LIST, nullptr, nullptr);
        for (int64_t i = 0; i < state.range(0); i += different)
            for (const void *key : keys)
                tally_add(tally, key);
        benchmark::DoNotOptimize(tally_top(tally));
        tally_destroy(tally);
    }
    countItems(state);
}

static void addToMap(benchmark::State &state, int64_t different)
{
    const Keys keys = scatteredKeys(different);
    for (auto _ : state) {
        std::unordered_map<const void *, uint32_t> tally(BUCKETS);
        for (int64_t i = 0; i < state.range(0); i += different)
            for (const void *key : keys)
                benchmark::DoNotOptimize(++tally[key]);
    }
    countItems(state);
}

static void TallyNewKeys(benchmark::State &state)
{
    addToTally(state, state.range(0));
}
BENCHMARK(TallyNewKeys)->Apply(upToAMillion);

static void StdMapNewKeys(benchmark::State &state)
{
    addToMap(state, state.range(0));
}
BENCHMARK(StdMapNewKeys)->Apply(upToAMillion);

// Each key as often as the others, so that the top list changes all the time.
static void TallyKnownKeys(benchmark::State &state)
{
    addToTally(state, 100);
}
BENCHMARK(TallyKnownKeys)->Apply(upToAMillion);

static void StdMapKnownKeys(benchmark::State &state)
{
    addToMap(state, 100);
}
BENCHMARK(StdMapKnownKeys)->Apply(upToAMillion);
