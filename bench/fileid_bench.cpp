// Identifying object files (the rate is files a second), C sources, and libraries of many modules.
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "common/formats/fileutils.h"

namespace fs = std::filesystem;

static std::string number(uint64_t value, int size)
{
    std::string bytes;
    for (int i = 0; i < size; ++i)
        bytes += static_cast<char>(value >> (8 * i));
    return bytes;
}

// An object file of 20 records.
static std::string objectBytes()
{
    std::string bytes;
    for (int i = 0; i < 19; ++i)
        bytes += number(100, 2) + '\1' + std::string(100, 't');
    return bytes + number(0, 2) + '\6';
}

static std::string libraryBytes(int64_t modules)
{
    const std::string object = objectBytes();
    std::string directory = number(0, 2) + number(static_cast<uint64_t>(modules), 2);
    std::string data;
    for (int64_t i = 0; i < modules; ++i) {
        directory += number(0, 2) + number(2, 2) + number(object.size(), 4) + number(0, 4) +
                     "module_" + std::to_string(i) + ".o" + '\0';
        directory += "T_first_symbol_of_" + std::to_string(i) + '\0';
        directory += "T_second_symbol_of_" + std::to_string(i) + '\0';
        data += object;
    }
    return directory + data;
}

static fs::path makeDirectory()
{
    char name[] = "/tmp/fileid_bench_XXXXXX";
    if (mkdtemp(name) == nullptr)
        abort();
    return name;
}

static void identifyObjectFiles(benchmark::State &state)
{
    const fs::path directory = makeDirectory();
    const std::string bytes = objectBytes();
    std::vector<std::string> names;
    for (int64_t i = 0; i < state.range(0); ++i) {
        names.push_back(directory / (std::to_string(i) + ".o"));
        std::ofstream(names.back(), std::ios::binary) << bytes;
    }
    for (auto _ : state)
        for (const std::string &name : names)
            if (fileid(name.c_str()) != FILEID_OBJECT)
                state.SkipWithError("not identified");
    state.SetItemsProcessed(state.iterations() * state.range(0));
    fs::remove_all(directory);
}

static void identifyCSource(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(fileid("source/main.c"));
    state.SetItemsProcessed(state.iterations());
}

static void identifyLibrary(benchmark::State &state)
{
    const fs::path directory = makeDirectory();
    const std::string name = directory / "big.a";
    std::ofstream(name, std::ios::binary) << libraryBytes(state.range(0));
    for (auto _ : state)
        if (fileid(name.c_str()) != FILEID_LIBRARY_OBJECT)
            state.SkipWithError("not identified");
    state.SetItemsProcessed(state.iterations() * state.range(0));
    fs::remove_all(directory);
}

BENCHMARK(identifyObjectFiles)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);
BENCHMARK(identifyCSource);
BENCHMARK(identifyLibrary)->Arg(2000)->Arg(20000)->Unit(benchmark::kMillisecond);
