// Reading and writing metadata of 1,000, 10,000 and 100,000 functions with 3 callees each, beside
// fread() and fwrite() of the same bytes.
#include "common/formats/metadata.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include <benchmark/benchmark.h>

#include "file_bytes.h"

static const int CALLEES = 3;

static Metadata *makeMetadata(int64_t functions)
{
    Metadata *metadata = metadata_create(nullptr);
    char name[64];
    for (int64_t i = 0; i < functions; ++i) {
        snprintf(name, sizeof name, "function_of_the_program_%lld", static_cast<long long>(i));
        MetadataFunction *function = metadata_addFunction(metadata, name);
        function->source_file = "source/main.c";
        function->source_line = static_cast<uint32_t>(i + 1);
    }
    for (int64_t i = 0; i < functions; ++i)
        for (int64_t c = 1; c <= CALLEES; ++c)
            metadata_addCallee(
                metadata, metadata_functionById(metadata, static_cast<uint32_t>(i + 1)),
                metadata_functionById(metadata, static_cast<uint32_t>(i * c % functions + 1)));
    return metadata;
}

// A temporary file with the metadata of `functions` functions.
static FILE *makeFile(int64_t functions)
{
    FILE *file = tmpfile();
    Metadata *metadata = makeMetadata(functions);
    if (file == nullptr || !metadata_write(metadata, file))
        abort();
    metadata_destroy(metadata);
    return file;
}

static void readMetadata(benchmark::State &state)
{
    FILE *file = makeFile(state.range(0));
    const int64_t size = ftell(file);
    for (auto _ : state) {
        rewind(file);
        Metadata *metadata = metadata_create(nullptr);
        if (!metadata_read(metadata, file))
            state.SkipWithError("not read");
        metadata_destroy(metadata);
    }
    state.SetBytesProcessed(state.iterations() * size);
    fclose(file);
}

static void readBytes(benchmark::State &state)
{
    FILE *file = makeFile(state.range(0));
    std::vector<char> bytes = bytesOf(file);
    for (auto _ : state) {
        rewind(file);
        benchmark::DoNotOptimize(fread(bytes.data(), 1, bytes.size(), file));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes.size()));
    fclose(file);
}

static void writeMetadata(benchmark::State &state)
{
    Metadata *metadata = makeMetadata(state.range(0));
    FILE *file = tmpfile();
    for (auto _ : state) {
        rewind(file);
        if (!metadata_write(metadata, file))
            state.SkipWithError("not written");
    }
    state.SetBytesProcessed(state.iterations() * ftell(file));
    fclose(file);
    metadata_destroy(metadata);
}

static void writeBytes(benchmark::State &state)
{
    FILE *file = makeFile(state.range(0));
    const std::vector<char> bytes = bytesOf(file);
    for (auto _ : state) {
        rewind(file);
        benchmark::DoNotOptimize(fwrite(bytes.data(), 1, bytes.size(), file));
        fflush(file);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes.size()));
    fclose(file);
}

BENCHMARK(readMetadata)->RangeMultiplier(10)->Range(1000, 100000)->Unit(benchmark::kMillisecond);
BENCHMARK(readBytes)->RangeMultiplier(10)->Range(1000, 100000)->Unit(benchmark::kMillisecond);
BENCHMARK(writeMetadata)->RangeMultiplier(10)->Range(1000, 100000)->Unit(benchmark::kMillisecond);
BENCHMARK(writeBytes)->RangeMultiplier(10)->Range(1000, 100000)->Unit(benchmark::kMillisecond);
