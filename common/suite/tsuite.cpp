#define MODULE "common/tsuite"

#include "common/suite/tsuite.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

#include "common/base/memory.h"
#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "common/os/osd_timer.h"
#include "common/os/osdep_host.h"
#include "common/suite/tsuite_internal.h"
#include "common/trace/qzdebug.h"

static int32_t s_unnamedSuites;
static TestPrint s_print; // of the current run, or the last one
static int32_t s_verbosity = TSUITE_PROGRESS;

// ---- Suites and cases -------------------------------------------------------------------------

TestSuite *tsuite_new(const char *name)
{
    TRACE_ENTER("name=\"%s\"", name);
    auto *suite = static_cast<TestSuite *>(xmalloc(sizeof(TestSuite)));
    if (suite == nullptr) {
        TRACE("could not allocate memory for test suite");
        return TRACE_RETURN("%p", suite);
    }
    if (name != nullptr)
        suite->name = cache_string(name);
    else
        suite->name = cache_sprintf("test suite %d", s_unnamedSuites++);
    suite->hostName = cache_adopt(osdep_hostName());
    suite->list = vec_new(MODULE, __LINE__);
    return TRACE_RETURN("%p", suite);
}

TestCase *tsuite_newtest(const char *group, const char *name, TestFunction function, void *data)
{
    TRACE_ENTER("group=\"%s\", name=\"%s\", data=%p", group, name, data);
    auto *test = static_cast<TestCase *>(xmalloc(sizeof(TestCase)));
    if (test == nullptr) {
        TRACE("could not allocate memory for test case");
        return TRACE_RETURN("%p", test);
    }
    test->group = cache_string(group);
    // Every unnamed case has the same name: unlike suites, cases are not counted.
    test->name = name != nullptr ? cache_string(name) : cache_sprintf("test case %d", 0);
    test->function = function;
    test->data = data;
    return TRACE_RETURN("%p", test);
}

int32_t tsuite_addtest(TestSuite *suite, TestCase *test)
{
    TRACE_ENTER("suite=%p, test=%p", static_cast<void *>(suite), static_cast<void *>(test));
    if (suite == nullptr || test == nullptr || suite->list == nullptr) {
        TRACE("could not add test");
        return TRACE_RETURN("%d", -1);
    }
    vec_add(suite->list, test);
    suite->tests = static_cast<int32_t>(vec_size(suite->list));
    return TRACE_RETURN("%d", suite->tests);
}

void tsuite_addTestFailFL(const char *file, uint32_t line, TestCase *test, const char *type,
                          const char *message, const char *output)
{
    TRACE_ENTER("file=\"%s\", line=%u, test=%p, type=\"%s\", message=\"%s\"", file, line,
                static_cast<void *>(test), type, message);
    if (test != nullptr) {
        test->file = cache_string(file);
        test->line = line;
        test->failureType = cache_string(type);
        test->failureMessage = cache_string(message);
        test->output = cache_string(output);
    }
}

void tsuite_addTestDetail(TestCase *test, const char *details)
{
    TRACE_ENTER("test=%p, details=\"%s\"", static_cast<void *>(test), details);
    if (test != nullptr)
        test->details = cache_string(details);
}

// ---- The console ------------------------------------------------------------------------------

void tsuite_setVerbosity(int32_t level)
{
    TRACE_ENTER("level=%d", level);
    s_verbosity = level;
}

// Prints the first and the last line of a run, which do not depend on the verbosity.
static void printAlways(const char *text)
{
    TRACE_ENTER("text=\"%s\"", text);
    if (s_print != nullptr)
        s_print(text);
}

void tsuite_print(const char *text)
{
    TRACE_ENTER("text=\"%s\"", text);
    if (text != nullptr && s_verbosity != TSUITE_QUIET)
        printAlways(text);
}

// Steps back over `count` characters, leaving blanks.
static void printErasure(size_t count)
{
    TRACE_ENTER("count=%zu", count);
    static const char step[] = {'\b', ' ', '\b'};
    auto *text = static_cast<char *>(xmalloc_must(uint64_t{count} * sizeof step + 1));
    for (size_t i = 0; i < count; ++i)
        std::memcpy(text + i * sizeof step, step, sizeof step);
    tsuite_print(text);
    std::free(text);
}

// Erases `line` from the console if the display erases; otherwise ends the line.
static void eraseLine(const char *line)
{
    TRACE_ENTER("line=\"%s\"", line);
    if (s_print != nullptr && line != nullptr) {
        if ((s_verbosity & (TSUITE_ERASE | TSUITE_PROGRESS)) != 0)
            printErasure(std::strlen(line));
        else if (s_verbosity == TSUITE_BATCH)
            tsuite_print("\n");
    }
}

// ---- The run ----------------------------------------------------------------------------------

namespace {
// The progress of a run.
struct Progress {
    TestSuite *suite;
    double workFactor;
    int32_t run;           // cases run so far
    bool groupPassed;      // no case of the current group has failed
    const char *lastGroup; // null before the first case
    const char *line;      // the text shown after the group, or null
    double percent;
    long double eta; // seconds
};
} // namespace

// The whole part of a number, limited to the range of "%d": a clock that was set back during a test
// makes the estimate absurd.
static int32_t wholePart(long double number)
{
    if (!(number < INT32_MAX))
        return INT32_MAX;
    return number > INT32_MIN ? static_cast<int32_t>(number) : INT32_MIN;
}

static const char *progressSuffix(const Progress *at)
{
    TRACE_ENTER("percent=%f, eta=%Lf", at->percent, at->eta);
    if (s_verbosity != TSUITE_PROGRESS)
        return TRACE_RETURN("\"%s\"", "");
    const long double hours = std::trunc(at->eta / 3600.0L);
    const long double minutes = std::trunc((at->eta - hours * 3600) / 60.0L);
    const long double seconds = std::trunc(at->eta - hours * 3600 - minutes * 60);
    return TRACE_RETURN("\"%s\"",
                        cache_sprintf(" - %.2f%% complete, ETA %dhrs %dmins %dsecs", at->percent,
                                      wholePart(hours), wholePart(minutes), wholePart(seconds)));
}

static void endGroup(const Progress *at)
{
    TRACE_ENTER("groupPassed=%d", at->groupPassed);
    eraseLine(at->line);
    tsuite_print(at->groupPassed ? "pass\n" : "fail\n");
}

// If the case is the first of a group, ends the previous group and shows the new one.
static void showGroup(Progress *at, const TestCase *test)
{
    TRACE_ENTER("group=\"%s\", name=\"%s\"", test->group, test->name);
    const char *group = tsuite_shown(test->group);
    const bool first = at->lastGroup == nullptr;
    if (first || std::strcmp(at->lastGroup, group) != 0) {
        if (!first)
            endGroup(at);
        at->lastGroup = group;
        at->line = tsuite_shown(test->name);
        at->groupPassed = true;
        tsuite_print(cache_sprintf("[%15s] %s", group, at->line));
    }
}

// Shows the case in place of the previous one. The line of a group's first case is there already.
static void showTest(Progress *at, const TestCase *test)
{
    TRACE_ENTER("name=\"%s\"", test->name);
    const char *name = tsuite_shown(test->name);
    if (std::strcmp(at->line, name) != 0) {
        eraseLine(at->line);
        at->line = cache_concat(name, progressSuffix(at));
        tsuite_print(at->line);
    }
}

static void runTest(TestSuite *suite, TestCase *test)
{
    TRACE_ENTER("name=\"%s\"", test->name);
    test->print = tsuite_print;
    test->timer = osd_timer_new();
    osd_timer_start(test->timer);
    test->function(test);
    osd_timer_stop(test->timer);
    suite->totalTime += osd_timer_elapsed(test->timer);
}

// The mean time of the tests so far, plus a share of the work factor that shrinks as the run
// proceeds, for each remaining test.
static void estimate(Progress *at)
{
    TRACE_ENTER("run=%d", at->run);
    const TestSuite *suite = at->suite;
    at->percent = static_cast<double>(at->run) / suite->tests * 100.0;
    const double left = (100.0 - at->percent) / 100.0;
    at->eta = (suite->totalTime / at->run + static_cast<long double>(left * at->workFactor)) *
              (suite->tests - at->run);
}

static void stepThrough(Progress *at, TestCase *test)
{
    TRACE_ENTER("name=\"%s\"", test->name);
    showGroup(at, test);
    if (test->function == nullptr) {
        at->suite->skipped += 1;
        TRACE("test case \"%s\" was skipped", test->name);
        return;
    }
    showTest(at, test);
    at->run += 1;
    runTest(at->suite, test);
    estimate(at);
    if (test->failureType != nullptr) {
        at->suite->failed += 1;
        at->groupPassed = false;
        TRACE("test case \"%s\" failed", test->name);
    } else {
        TRACE("test case \"%s\" passed", test->name);
    }
}

int32_t tsuite_runCases(TestSuite *suite, TestPrint print, double workFactor)
{
    TRACE_ENTER("suite=%p, workFactor=%f", static_cast<void *>(suite), workFactor);
    suite->totalTime = 0;
    s_print = print;
    printAlways(cache_sprintf("Starting test suite: %s, %d test(s):\n", tsuite_shown(suite->name),
                              suite->tests));
    Progress at = {};
    at.suite = suite;
    at.workFactor = workFactor;
    at.groupPassed = true;
    for (TestCase *test : vec_each<TestCase>(suite->list))
        stepThrough(&at, test);
    endGroup(&at);
    printAlways(
        cache_sprintf("Complete. Total tests: %d; %d failed\n", suite->tests, suite->failed));
    return TRACE_RETURN("%d", suite->failed);
}

// ---- Calibration ------------------------------------------------------------------------------

static void countTo(uint64_t limit)
{
    // As far as the compiler knows, the empty statement may change the counter, so it cannot remove
    // the loop.
    for (uint64_t i = 0; i < limit; ++i)
        asm volatile("" : "+r"(i));
}

long double tsuite_calibrate(uint64_t limit)
{
    TRACE_ENTER("limit=%llu", static_cast<unsigned long long>(limit));
    OsdTimer timer = {};
    osd_timer_start(&timer);
    countTo(limit);
    osd_timer_stop(&timer);
    return TRACE_RETURN("%Lf", osd_timer_elapsed(&timer));
}

double tsuite_workFactor(long double calibration)
{
    TRACE_ENTER("calibration=%Lf", calibration);
    return TRACE_RETURN("%f", static_cast<double>(calibration / 0.41L * 0.7L));
}

int32_t tsuite_run(TestSuite *suite, TestPrint print)
{
    TRACE_ENTER("suite=%p", static_cast<void *>(suite));
    if (suite == nullptr || vec_size(suite->list) == 0) {
        TRACE("could not run test suite");
        return TRACE_RETURN("%d", -1);
    }
    const double workFactor = tsuite_workFactor(tsuite_calibrate(TSUITE_CALIBRATION_COUNT));
    return TRACE_RETURN("%d", tsuite_runCases(suite, print, workFactor));
}
