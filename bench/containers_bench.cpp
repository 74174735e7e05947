// The containers against their peers of the standard library: each pair does the same work.
#define MODULE "bench/containers"
#include <cstdint>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <benchmark/benchmark.h>

#include "common/base/hash.h"
#include "common/base/stringcache.h"
#include "common/base/vector.h"

// Texts that look like arguments, all different. `tag` keeps the sets of two benchmarks apart.
static std::vector<std::string> argumentTexts(const std::string &tag, int64_t count)
{
    std::vector<std::string> texts;
    for (int64_t i = 0; i < count; ++i)
        texts.push_back("-Iproject/include/" + tag + std::to_string(i));
    return texts;
}

// ---- Vector -----------------------------------------------------------------------------------

static void VectorAppend(benchmark::State &state)
{
    int element = 0;
    for (auto _ : state) {
        Vector *v = vec_new(MODULE, __LINE__);
        for (int64_t i = 0; i < state.range(0); ++i)
            vec_add(v, &element);
        benchmark::DoNotOptimize(v->data);
        vec_destroy(v);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(VectorAppend)->Arg(10)->Arg(1000)->Arg(100000);

static void StdVectorAppend(benchmark::State &state)
{
    int element = 0;
    for (auto _ : state) {
        std::vector<void *> v;
        for (int64_t i = 0; i < state.range(0); ++i)
            v.push_back(&element);
        benchmark::DoNotOptimize(v.data());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(StdVectorAppend)->Arg(10)->Arg(1000)->Arg(100000);

static void VectorIterate(benchmark::State &state)
{
    Vector *v = vec_new(MODULE, __LINE__);
    std::vector<int> elements(static_cast<size_t>(state.range(0)), 1);
    for (int &element : elements)
        vec_add(v, &element);
    for (auto _ : state) {
        int64_t sum = 0;
        for (const int *element : vec_each<const int>(v))
            sum += *element;
        benchmark::DoNotOptimize(sum);
    }
    vec_destroy(v);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(VectorIterate)->Arg(10)->Arg(1000)->Arg(100000);

static void StdVectorIterate(benchmark::State &state)
{
    std::vector<void *> v;
    std::vector<int> elements(static_cast<size_t>(state.range(0)), 1);
    for (int &element : elements)
        v.push_back(&element);
    for (auto _ : state) {
        int64_t sum = 0;
        for (const void *element : v)
            sum += *static_cast<const int *>(element);
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(StdVectorIterate)->Arg(10)->Arg(1000)->Arg(100000);

// ---- Hash table -------------------------------------------------------------------------------

static constexpr uint32_t BUCKETS = 5077;

static void HashInsert(benchmark::State &state)
{
    const auto texts = argumentTexts("a", state.range(0));
    for (auto _ : state) {
        HashTable *table =
            hash_new_func(BUCKETS, hash_string, hash_stringCompare, MODULE, __LINE__);
        for (const std::string &text : texts)
            hash_insert_func(table, text.c_str(), text.c_str(), MODULE, __LINE__);
        benchmark::DoNotOptimize(table->count);
        hash_destroy(table);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(HashInsert)->Arg(1000)->Arg(10000)->Arg(100000);

static void StdMapInsert(benchmark::State &state)
{
    const auto texts = argumentTexts("a", state.range(0));
    for (auto _ : state) {
        std::unordered_map<std::string, const void *> table(BUCKETS);
        for (const std::string &text : texts)
            table.emplace(text, text.c_str());
        benchmark::DoNotOptimize(table.size());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(StdMapInsert)->Arg(1000)->Arg(10000)->Arg(100000);

static void HashLookup(benchmark::State &state)
{
    const auto texts = argumentTexts("b", state.range(0));
    HashTable *table = hash_new_func(BUCKETS, hash_string, hash_stringCompare, MODULE, __LINE__);
    for (const std::string &text : texts)
        hash_insert_func(table, text.c_str(), text.c_str(), MODULE, __LINE__);
    for (auto _ : state) {
        for (const std::string &text : texts)
            benchmark::DoNotOptimize(hash_get(table, text.c_str()));
    }
    hash_destroy(table);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(HashLookup)->Arg(1000)->Arg(10000)->Arg(100000);

static void StdMapLookup(benchmark::State &state)
{
    const auto texts = argumentTexts("b", state.range(0));
    std::unordered_map<std::string, const void *> table(BUCKETS);
    for (const std::string &text : texts)
        table.emplace(text, text.c_str());
    for (auto _ : state) {
        for (const std::string &text : texts)
            benchmark::DoNotOptimize(table.find(text)->second);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(StdMapLookup)->Arg(1000)->Arg(10000)->Arg(100000);

// ---- String cache -----------------------------------------------------------------------------

// Interned strings are never freed. So there is one round, and each size has its own texts. The
// peer inserts into one set in the same way.
static void InternNew(benchmark::State &state)
{
    const auto texts = argumentTexts(std::to_string(state.range(0)) + "/", state.range(0));
    for (auto _ : state) {
        for (const std::string &text : texts)
            benchmark::DoNotOptimize(cache_string(text.c_str()));
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(InternNew)->Arg(1000)->Arg(10000)->Arg(100000)->Iterations(1);

static std::unordered_set<std::string> &peerSet()
{
    static std::unordered_set<std::string> set(BUCKETS);
    return set;
}

static void StdSetInternNew(benchmark::State &state)
{
    const auto texts = argumentTexts(std::to_string(state.range(0)) + "/", state.range(0));
    for (auto _ : state) {
        for (const std::string &text : texts)
            benchmark::DoNotOptimize(&*peerSet().emplace(text.c_str()).first);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(StdSetInternNew)->Arg(1000)->Arg(10000)->Arg(100000)->Iterations(1);

// The texts that the benchmarks above have interned.
static void InternAgain(benchmark::State &state)
{
    const auto texts = argumentTexts(std::to_string(state.range(0)) + "/", state.range(0));
    for (auto _ : state) {
        for (const std::string &text : texts)
            benchmark::DoNotOptimize(cache_string(text.c_str()));
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(InternAgain)->Arg(1000)->Arg(10000)->Arg(100000);

static void StdSetInternAgain(benchmark::State &state)
{
    const auto texts = argumentTexts(std::to_string(state.range(0)) + "/", state.range(0));
    for (auto _ : state) {
        for (const std::string &text : texts)
            benchmark::DoNotOptimize(&*peerSet().emplace(text.c_str()).first);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(StdSetInternAgain)->Arg(1000)->Arg(10000)->Arg(100000);
