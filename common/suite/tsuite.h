// tsuite: the small test framework of the installation self-test. A suite is created, filled with
// cases, run once with a progress display, and then reported.
//
//     TestSuite *suite = tsuite_new("QZM-CC self test");
//     tsuite_addtest(suite, tsuite_newtest("docs", "check if readme file exists", docTest, data));
//     tsuite_setVerbosity(TSUITE_PROGRESS);
//     tsuite_run(suite, print);
//     tsuite_writeJUnit(suite, "test_report.xml");
//     tsuite_failDetails(suite, "test_report.txt");
//
// A test function records a failure with TSUITE_FAIL (the last record of a case stays). All strings
// are interned copies. Suites, cases and timers are never freed: the process ends soon after. Every
// operation accepts null and reports it by its result; a missing text shows as an empty one.
#ifndef COMMON_SUITE_TSUITE_H
#define COMMON_SUITE_TSUITE_H

#include <cstdint>

struct OsdTimer;
struct TestCase;
struct Vector;

// Runs one case; the result is ignored.
using TestFunction = int (*)(TestCase *test);

// Prints one text unchanged.
using TestPrint = void (*)(const char *text);

struct TestCase {
    const char *file;           // where the failure was recorded, or null
    uint32_t line;              // the line there, or 0
    const char *group;          // null: shown as a group with an empty name
    const char *name;           // need not be unique
    const char *failureType;    // not null: the case has failed
    const char *failureMessage; // or null
    const char *output;         // of the step that failed, or null
    const char *systemOutput;   // for the XML report, or null
    const char *details;        // free text for the text report, or null
    OsdTimer *timer;            // null until the case has run
    TestFunction function;      // null: the case is skipped
    void *data;                 // the test function's own
    TestPrint print;            // for progress texts of the test; set before it runs
};

struct TestSuite {
    const char *name;
    int32_t tests;         // the length of the list
    int32_t failed;        // of the cases that have run
    int32_t skipped;       // cases without a function; in no report
    long double totalTime; // total seconds of the cases in the last run
    const char *hostName;  // at the time the suite was created
    Vector *list;          // of TestCase, in the order added
};

// The console display. The numbers are bits: 2 and 4 both erase in place, whatever else is set. A
// number without them, other than 0 and 1, prints all names one after the other.
enum TestVerbosity : int32_t {
    TSUITE_QUIET = 0,    // no lines for groups and tests
    TSUITE_BATCH = 1,    // nothing is erased
    TSUITE_ERASE = 2,    // the running test's name is erased in place
    TSUITE_PROGRESS = 4, // exactly 4, the default: the same, with percentage and time to completion
};

// A new suite; null when memory runs out. Without a name it gets a numbered one.
TestSuite *tsuite_new(const char *name);

// A new case of a group (or null); null when memory runs out. Without a name it gets a fixed one.
TestCase *tsuite_newtest(const char *group, const char *name, TestFunction function, void *data);

// Appends the case. Returns the new number of tests, or -1.
int32_t tsuite_addtest(TestSuite *suite, TestCase *test);

// Marks the case failed with copies of the texts (each may be null, but without a type the case
// counts as passed).
void tsuite_addTestFailFL(const char *file, uint32_t line, TestCase *test, const char *type,
                          const char *message, const char *output);
#define TSUITE_FAIL(test, type, message, output)                                                   \
    tsuite_addTestFailFL(MODULE, __LINE__, test, type, message, output)

// Attaches free text for the text report.
void tsuite_addTestDetail(TestCase *test, const char *details);

// Runs all cases, showing progress through `print` (null: none). Returns the number of failed
// cases, or -1 when there is nothing to run. First it takes a fraction of a second to measure the
// machine's speed for the time to completion. Run a suite only once: the counts of failed and
// skipped cases are never reset.
int32_t tsuite_run(TestSuite *suite, TestPrint print);

// Prints a text of a running test through the print function of the run.
void tsuite_print(const char *text);

// Write the JUnit report (the number of tests, or -1; nothing without cases) and the text report
// (the number of failed tests; to standard error when the file cannot be opened). The formats are
// described in docs/test-reports.md. Both give -1, with errno set, for a report that could not be
// written whole.
int32_t tsuite_writeJUnit(const TestSuite *suite, const char *path);
int32_t tsuite_failDetails(const TestSuite *suite, const char *path);

void tsuite_setVerbosity(int32_t level); // TestVerbosity

// The text with "&" and "<" escaped for XML; existing entities for these are kept. Interned; null
// for null.
const char *makeTokenType(const char *text);

#endif
