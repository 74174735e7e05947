#define MODULE "common/tsuite"

// The reports of a suite that has run; docs/test-reports.md describes them.

#include "common/suite/tsuite.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "common/base/memory.h"
#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "common/os/osd_timer.h"
#include "common/os/osdep_host.h"
#include "common/suite/tsuite_internal.h"
#include "common/trace/qzdebug.h"

// ---- Escaping ---------------------------------------------------------------------------------

static bool startsWith(const char *text, const char *prefix)
{
    return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

// The entity for the character at `text`, or null when the character stays. An ampersand that
// begins one of these entities stays, so that escaped text is not escaped twice.
static const char *entityAt(const char *text)
{
    if (*text == '<')
        return "&lt;";
    if (*text == '&' && !startsWith(text, "&amp;") && !startsWith(text, "&lt;"))
        return "&amp;";
    return nullptr;
}

static size_t escapedLength(const char *text)
{
    size_t length = 0;
    for (; *text != '\0'; ++text) {
        const char *entity = entityAt(text);
        length += entity != nullptr ? std::strlen(entity) : 1;
    }
    return length;
}

const char *makeTokenType(const char *text)
{
    TRACE_ENTER("text=\"%s\"", text);
    if (text == nullptr)
        return TRACE_RETURN("\"%s\"", text);
    auto *escaped = static_cast<char *>(xmalloc_must(uint64_t{escapedLength(text)} + 1));
    char *to = escaped;
    for (; *text != '\0'; ++text) {
        const char *entity = entityAt(text);
        const size_t length = entity != nullptr ? std::strlen(entity) : 1;
        std::memcpy(to, entity != nullptr ? entity : text, length);
        to += length;
    }
    return TRACE_RETURN("\"%s\"", cache_adopt(escaped));
}

// A text from the program or the host, escaped for an attribute.
static const char *attribute(const char *text)
{
    return tsuite_shown(makeTokenType(text));
}

// ---- Files ------------------------------------------------------------------------------------

// The report file, or null.
static FILE *openReport(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    FILE *file = path != nullptr ? std::fopen(path, "w") : nullptr;
    if (file == nullptr)
        TRACE("could not write to output file \"%s\"", path);
    return TRACE_RETURN("%p", file);
}

// Closes the report (standard error stays open). True when all of it is written; else errno says
// why it is not.
static bool closeReport(FILE *file)
{
    TRACE_ENTER();
    bool written = std::fflush(file) == 0 && std::ferror(file) == 0;
    const int error = errno;
    if (file != stderr && std::fclose(file) != 0)
        written = false;
    else
        errno = error;
    return TRACE_RETURN("%d", written);
}

// ---- JUnit ------------------------------------------------------------------------------------

// The current time in the report's form; an empty text for a time that it cannot show.
static const char *timestamp()
{
    TRACE_ENTER();
    char text[30];
    const time_t now = osdep_wallTime().seconds;
    const tm *utc = std::gmtime(&now);
    if (utc == nullptr || std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", utc) == 0)
        text[0] = '\0';
    return TRACE_RETURN("\"%s\"", cache_string(text));
}

// Type, message and output are written without escapes.
static void writeJUnitFailure(FILE *file, const TestCase *test)
{
    TRACE_ENTER("type=\"%s\"", test->failureType);
    std::fprintf(file, "\t\t<failure type=\"%s\" message=\"%s\"><![CDATA[\n%s]]></failure>\n",
                 test->failureType, tsuite_shown(test->failureMessage), tsuite_shown(test->output));
}

static void writeJUnitCase(FILE *file, const TestCase *test)
{
    TRACE_ENTER("name=\"%s\"", test->name);
    std::fprintf(file, "\t<testcase time=\"%s\" name=\"%s\">\n",
                 osd_timer_elapsedString(test->timer), attribute(test->name));
    if (test->failureType != nullptr)
        writeJUnitFailure(file, test);
    if (test->systemOutput != nullptr)
        std::fprintf(file, "\t\t<system-out>\n%s\n\t\t</system-out>\n", test->systemOutput);
    std::fputs("\t</testcase>\n", file);
}

static void writeJUnitSuite(FILE *file, const TestSuite *suite)
{
    TRACE_ENTER("name=\"%s\"", suite->name);
    std::fputs("<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n", file);
    std::fprintf(file,
                 "<testsuite name=\"%s\" timestamp=\"%s\" hostname=\"%s\" errors=\"0\" "
                 "tests=\"%d\" failures=\"%d\" time=\"%.2Lf\">\n",
                 attribute(suite->name), timestamp(), attribute(suite->hostName), suite->tests,
                 suite->failed, suite->totalTime);
    for (const TestCase *test : vec_each<TestCase>(suite->list))
        writeJUnitCase(file, test);
    std::fputs("</testsuite>\n", file);
}

int32_t tsuite_writeJUnit(const TestSuite *suite, const char *path)
{
    TRACE_ENTER("suite=%p, path=\"%s\"", static_cast<const void *>(suite), path);
    if (suite == nullptr || path == nullptr || vec_size(suite->list) == 0) {
        TRACE("could not write JUnit xml");
        return TRACE_RETURN("%d", -1);
    }
    FILE *file = openReport(path);
    if (file == nullptr)
        return TRACE_RETURN("%d", -1);
    writeJUnitSuite(file, suite);
    const bool written = closeReport(file);
    return TRACE_RETURN("%d", written ? static_cast<int32_t>(vec_size(suite->list)) : -1);
}

// ---- Text -------------------------------------------------------------------------------------

static void writeTextFailure(FILE *file, const TestCase *test)
{
    TRACE_ENTER("type=\"%s\"", test->failureType);
    std::fprintf(file, "----------%s:%s----------\n", tsuite_shown(test->group),
                 tsuite_shown(test->name));
    std::fprintf(file, "==> type: %s\n", test->failureType);
    if (test->failureMessage != nullptr)
        std::fprintf(file, "==> message: %s\n", test->failureMessage);
    if (test->details != nullptr)
        std::fprintf(file, "==> details: %s\n", test->details);
    if (test->output != nullptr) {
        std::fprintf(file, "<------Output-Start------>\n%s\n<------Output-End-------->\n",
                     test->output);
    }
    std::fputc('\n', file);
}

static void writeTextCase(FILE *file, const TestCase *test)
{
    TRACE_ENTER("name=\"%s\"", test->name);
    const bool failed = test->failureType != nullptr;
    std::fprintf(file, "%-15s %-70s %-7s (%s)\n", tsuite_shown(test->group),
                 tsuite_shown(test->name), failed ? "fail" : "pass",
                 osd_timer_elapsedString(test->timer));
    if (failed)
        writeTextFailure(file, test);
}

static void writeTextSuite(FILE *file, const TestSuite *suite)
{
    TRACE_ENTER("name=\"%s\"", suite->name);
    std::fprintf(file, "Test suite %s results. Total tests: %d; %d failed\n\n",
                 tsuite_shown(suite->name), suite->tests, suite->failed);
    std::fprintf(file, "%-15s %-70s %-7s %s\n", "GROUP", "TEST NAME", "RESULT", "TIME");
    for (const TestCase *test : vec_each<TestCase>(suite->list))
        writeTextCase(file, test);
}

int32_t tsuite_failDetails(const TestSuite *suite, const char *path)
{
    TRACE_ENTER("suite=%p, path=\"%s\"", static_cast<const void *>(suite), path);
    if (suite == nullptr)
        return TRACE_RETURN("%d", 0);
    FILE *file = openReport(path);
    if (file == nullptr)
        file = stderr;
    writeTextSuite(file, suite);
    return TRACE_RETURN("%d", closeReport(file) ? suite->failed : -1);
}
