#define MODULE "selftests/selftests"
#include "selftests/selftests.h"

#include <cstdarg>
#include <cstdio>

#include "common/base/vector.h"
#include "common/diagnostics/alert.h"
#include "common/diagnostics/listing.h"
#include "common/os/osdep_directory.h"
#include "common/os/osdep_file.h"
#include "common/suite/tsuite.h"
#include "common/trace/qzdebug.h"
#include "selftests/selftests_internal.h"

static constexpr char XML_REPORT[] = "test_report.xml";
static constexpr char TEXT_REPORT[] = "test_report.txt";

// Suites are never freed; this reference keeps leak checkers from reporting them.
static TestSuite *s_suite;

void selftests_print(FILE *stream, const char *format, ...)
{
    if (gSelftest.console <= 0)
        return;
    va_list values;
    va_start(values, format);
    vfprintf(stream, format, values);
    va_end(values);
    fflush(stream); // a failure is detected at the end of the run
}

static void printText(const char *text)
{
    selftests_print(stdout, "%s", text);
}

static void addTests(TestSuite *suite, const SelftestRow *row)
{
    TRACE_ENTER("row=\"%s\"", row->name);
    Vector *tests = row->tests();
    for (TestCase *test : vec_each<TestCase>(tests))
        tsuite_addtest(suite, test);
    vec_destroy(tests);
}

// Runs the setup actions of the rows and gathers their tests.
static TestSuite *gather(Vector *rows)
{
    TRACE_ENTER("rows=%p", static_cast<void *>(rows));
    TestSuite *suite = tsuite_new("QZM-CC self test");
    for (const SelftestRow *row : vec_each<const SelftestRow>(rows)) {
        if (row->setup != nullptr)
            row->setup();
        if (row->tests != nullptr)
            addTests(suite, row);
    }
    return static_cast<TestSuite *>(TRACE_RETURN("%p", static_cast<void *>(suite)));
}

static int32_t wantedVerbosity()
{
    TRACE_ENTER();
    int32_t level = TSUITE_QUIET;
    if (gSelftest.batch > 0)
        level = TSUITE_BATCH;
    else if (gSelftest.console > 0)
        level = TSUITE_PROGRESS;
    return TRACE_RETURN("%d", level);
}

// The path of a report in the directory where the run began. Null, after a message, when a test has
// changed the directory and there is no way back: a report elsewhere would be an extraneous file.
static const char *reportPath(const OsdepOpenDirectory *first, const char *name)
{
    TRACE_ENTER("name=\"%s\"", name);
    const bool there = first == nullptr || osdep_enterDirectory(first) == 0;
    if (!there)
        alert_raiseNumber(MESSAGE_NOT_WRITTEN, name);
    return TRACE_RETURN("\"%s\"", there ? name : nullptr);
}

// Does not open the report for writing, which may erase an old one; it only reports why that will
// fail.
static bool canBeWritten(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    FILE *stream = fopen(path, "a");
    if (stream == nullptr)
        alert_raiseNumber(MESSAGE_NOT_WRITTEN, path);
    else
        fclose(stream);
    return TRACE_RETURN("%d", stream != nullptr);
}

// A suite without tests has no such report; a file from an earlier run may exist.
static void writeXmlReport(const TestSuite *suite, const OsdepOpenDirectory *first)
{
    TRACE_ENTER("suite=%p", static_cast<const void *>(suite));
    const char *path = reportPath(first, XML_REPORT);
    const bool written = tsuite_writeJUnit(suite, path) >= 0;
    if (!written && suite->tests > 0 && path != nullptr)
        alert_raiseNumber(MESSAGE_NOT_WRITTEN, path);
    else if (path != nullptr && osdep_fileExists(path))
        selftests_print(stdout, "XML test report written to: %s\n", path);
}

// Where the file cannot be opened the report goes to standard error.
static void writeTextReport(const TestSuite *suite, const OsdepOpenDirectory *first)
{
    TRACE_ENTER("suite=%p", static_cast<const void *>(suite));
    const char *path = reportPath(first, TEXT_REPORT);
    const bool opened = path != nullptr && canBeWritten(path);
    const bool written = tsuite_failDetails(suite, path) >= 0;
    if (!written && opened)
        alert_raiseNumber(MESSAGE_NOT_WRITTEN, path);
    else if (opened)
        selftests_print(stdout, "TXT test report written to: %s\n", path);
}

int selftest(const char *list)
{
    TRACE_ENTER("list=\"%s\"", list);
    Vector *rows = selftests_choose(list);
    s_suite = gather(rows);
    vec_destroy(rows);
    tsuite_setVerbosity(wantedVerbosity());
    OsdepOpenDirectory *first = osdep_openDirectory("."); // null: then no test changes directory
    tsuite_run(s_suite, printText);
    if (gSelftest.xmlReport)
        writeXmlReport(s_suite, first);
    if (gSelftest.textReport)
        writeTextReport(s_suite, first);
    osdep_closeDirectory(first);
    listing_written(); // reports a failure
    return TRACE_RETURN("%d", 0);
}
