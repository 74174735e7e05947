// The trace to a file: lines per second of functions that enter, trace a line and leave, two levels
// deep, compared with fprintf() of the same lines and a flush after each. Also the cost of the
// macros while the trace is off.
#define MODULE "bench/trace_bench"
#include <cstdio>
#include <cstdlib>

#include <benchmark/benchmark.h>

#include "common/trace/qzdebug.h"

static constexpr int LINES = 6; // of one call of outer()

[[gnu::noinline]] static int inner(const char *name, int number)
{
    TRACE_ENTER("name=\"%s\", number=%d", name, number);
    TRACE("looking at \"%s\"", name);
    benchmark::DoNotOptimize(number);
    return TRACE_RETURN("%d", number + 1);
}

[[gnu::noinline]] static int outer(const char *name)
{
    TRACE_ENTER("name=\"%s\"", name);
    TRACE("found %d of them", 3);
    return TRACE_RETURN("%d", inner(name, 7));
}

static FILE *openScratch()
{
    FILE *file = fopen("trace_bench.out", "w");
    if (file == nullptr)
        abort();
    return file;
}

static void closeScratch(FILE *file)
{
    fclose(file);
    remove("trace_bench.out");
}

static void traceToFile(benchmark::State &state)
{
    gDebugOut = openScratch();
    gDebugFlags = DEBUG_TRACE;
    for (auto round : state)
        benchmark::DoNotOptimize(outer("main.c"));
    gDebugFlags = 0;
    closeScratch(gDebugOut);
    gDebugOut = nullptr;
    state.SetItemsProcessed(state.iterations() * LINES);
}
BENCHMARK(traceToFile);

static void fprintfAndFlush(benchmark::State &state)
{
    FILE *file = openScratch();
    for (auto round : state)
        for (int line = 0; line < LINES; line++) {
            fprintf(file, "%-20s> %*sENTER %s(name=\"%s\", number=%d)\n", "trace_bench:25", 4, "",
                    "inner", "main.c", line);
            fflush(file);
        }
    closeScratch(file);
    state.SetItemsProcessed(state.iterations() * LINES);
}
BENCHMARK(fprintfAndFlush);

static void traceIsOff(benchmark::State &state)
{
    for (auto round : state)
        benchmark::DoNotOptimize(outer("main.c"));
}
BENCHMARK(traceIsOff);
