#define MODULE "tests/tsuite"

#include "common/suite/tsuite.h"

#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "common/os/osd_timer.h"
#include "common/os/osdep_host.h"
#include "common/suite/tsuite_internal.h"
#include "tests/common/suite/tsuite_fixture.h"
#include "tests/common/trace_lines.h"

namespace {

using Lines = std::vector<std::string>;

template <class Action> Lines traced(Action action)
{
    return trace_lines_while("tsuite", action);
}

TestSuite *suiteOf(const char *name, const std::vector<TestCase *> &tests)
{
    TestSuite *suite = tsuite_new(name);
    for (TestCase *test : tests)
        tsuite_addtest(suite, test);
    return suite;
}

// The console of a run of these cases on a machine with the given work factor.
std::string consoleOf(const std::vector<TestCase *> &tests, double workFactor = 0)
{
    console.clear();
    tsuite_runCases(suiteOf("s", tests), toConsole, workFactor);
    return readableConsole();
}

// ---- Suites -----------------------------------------------------------------------------------

TEST_F(TsuiteTest, ANewSuiteIsEmptyAndKnowsItsHost)
{
    const TestSuite *suite = tsuite_new("self test");
    EXPECT_EQ(suite->name, cache_string("self test"));
    EXPECT_EQ(suite->tests, 0);
    EXPECT_EQ(suite->failed, 0);
    EXPECT_EQ(suite->skipped, 0);
    EXPECT_EQ(suite->totalTime, 0.0L);
    EXPECT_EQ(suite->hostName, cache_adopt(osdep_hostName()));
    EXPECT_EQ(vec_size(suite->list), 0U);
}

void namesOfUnnamedSuites()
{
    std::string names;
    for (const char *name :
         {static_cast<const char *>(nullptr), "named", "", static_cast<const char *>(nullptr)})
        names += tsuite_new(name)->name + std::string(";");
    std::_Exit(names == "test suite 0;named;;test suite 1;" ? 0 : 1);
}

TEST_F(TsuiteTest, UnnamedSuitesAreNumberedFromZero)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(namesOfUnnamedSuites(), testing::ExitedWithCode(0), "");
    GTEST_FLAG_SET(death_test_style, "fast");
}

TEST_F(TsuiteTest, WithoutMemoryThereIsNoSuite)
{
    refuseMemory = true;
    EXPECT_EQ(traced([] { EXPECT_EQ(tsuite_new("s"), nullptr); }),
              (Lines{"could not allocate memory for test suite"}));
}

// ---- Cases ------------------------------------------------------------------------------------

int nothing(TestCase *)
{
    return 0;
}

TEST_F(TsuiteTest, ANewCaseHoldsWhatItIsGivenAndNothingElse)
{
    int data = 0;
    const std::string group = "docs";
    const std::string name = "readme";
    const TestCase *test = tsuite_newtest(group.c_str(), name.c_str(), nothing, &data);
    EXPECT_EQ(test->group, cache_string("docs"));
    EXPECT_EQ(test->name, cache_string("readme"));
    EXPECT_EQ(test->function, nothing);
    EXPECT_EQ(test->data, &data);
    EXPECT_EQ(test->file, nullptr);
    EXPECT_EQ(test->line, 0U);
    EXPECT_EQ(test->failureType, nullptr);
    EXPECT_EQ(test->failureMessage, nullptr);
    EXPECT_EQ(test->output, nullptr);
    EXPECT_EQ(test->systemOutput, nullptr);
    EXPECT_EQ(test->details, nullptr);
    EXPECT_EQ(test->timer, nullptr);
    EXPECT_EQ(test->print, nullptr);
}

TEST_F(TsuiteTest, TwoUnnamedCasesGetTheSameName)
{
    EXPECT_STREQ(tsuite_newtest("g", nullptr, nothing, nullptr)->name, "test case 0");
    EXPECT_STREQ(tsuite_newtest("g", nullptr, nothing, nullptr)->name, "test case 0");
}

TEST_F(TsuiteTest, ACaseNeedsNoGroup)
{
    EXPECT_EQ(tsuite_newtest(nullptr, "n", nothing, nullptr)->group, nullptr);
}

TEST_F(TsuiteTest, WithoutMemoryThereIsNoCase)
{
    refuseMemory = true;
    EXPECT_EQ(traced([] { EXPECT_EQ(tsuite_newtest("g", "n", nothing, nullptr), nullptr); }),
              (Lines{"could not allocate memory for test case"}));
}

TEST_F(TsuiteTest, AddingReturnsTheNewNumberOfTests)
{
    TestSuite *suite = tsuite_new("s");
    TestCase *first = passing("g", "a");
    TestCase *second = passing("g", "b");
    EXPECT_EQ(tsuite_addtest(suite, first), 1);
    EXPECT_EQ(tsuite_addtest(suite, second), 2);
    EXPECT_EQ(suite->tests, 2);
    EXPECT_EQ(vec_elementAt(suite->list, 0), first);
    EXPECT_EQ(vec_elementAt(suite->list, 1), second);
}

TEST_F(TsuiteTest, NothingIsAddedWhenSomethingIsMissing)
{
    TestSuite *suite = tsuite_new("s");
    TestSuite withoutList = {};
    TestCase *test = passing("g", "a");
    EXPECT_EQ(traced([&] {
                  EXPECT_EQ(tsuite_addtest(nullptr, test), -1);
                  EXPECT_EQ(tsuite_addtest(suite, nullptr), -1);
                  EXPECT_EQ(tsuite_addtest(&withoutList, test), -1);
              }),
              (Lines{"could not add test", "could not add test", "could not add test"}));
    EXPECT_EQ(suite->tests, 0);
}

TEST_F(TsuiteTest, AFailureIsKeptInInternedCopies)
{
    TestCase *test = passing("g", "a");
    const std::string type = "fatal";
    tsuite_addTestFailFL("place", 77, test, type.c_str(), "message", "output");
    EXPECT_EQ(test->file, cache_string("place"));
    EXPECT_EQ(test->line, 77U);
    EXPECT_EQ(test->failureType, cache_string("fatal"));
    EXPECT_EQ(test->failureMessage, cache_string("message"));
    EXPECT_EQ(test->output, cache_string("output"));
}

TEST_F(TsuiteTest, TheLastFailureStays)
{
    TestCase *test = passing("g", "a");
    tsuite_addTestFailFL("place", 77, test, "type", "message", "output");
    tsuite_addTestFailFL("other", 78, test, "another", nullptr, nullptr);
    EXPECT_STREQ(test->file, "other");
    EXPECT_EQ(test->line, 78U);
    EXPECT_STREQ(test->failureType, "another");
    EXPECT_EQ(test->failureMessage, nullptr);
    EXPECT_EQ(test->output, nullptr);
}

TEST_F(TsuiteTest, TheShortFormKnowsWhereTheFailureIs)
{
    TestCase *test = passing("g", "a");
    const uint32_t line = __LINE__ + 1;
    TSUITE_FAIL(test, "type", "message", "output");
    EXPECT_STREQ(test->file, "tests/tsuite");
    EXPECT_EQ(test->line, line);
}

TEST_F(TsuiteTest, DetailsAreKeptInAnInternedCopy)
{
    TestCase *test = passing("g", "a");
    const std::string details = "three files";
    tsuite_addTestDetail(test, details.c_str());
    EXPECT_EQ(test->details, cache_string("three files"));
}

TEST_F(TsuiteTest, WithoutACaseNothingIsRecorded)
{
    tsuite_addTestFailFL("place", 1, nullptr, "type", "message", "output");
    tsuite_addTestFailFL(nullptr, 1, nullptr, nullptr, nullptr, nullptr);
    tsuite_addTestDetail(nullptr, "details");
}

// ---- The run ----------------------------------------------------------------------------------

TEST_F(TsuiteTest, ARunCountsFailedAndSkippedCasesAndAddsUpTheTime)
{
    TestSuite *suite = suiteOf("s", {passing("g", "a", 1500), failing("g", "b", 250),
                                     skipped("g", "c"), failing("h", "d", 1000)});
    suite->totalTime = 77;
    EXPECT_EQ(tsuite_runCases(suite, toConsole, 0), 2);
    EXPECT_EQ(suite->tests, 4);
    EXPECT_EQ(suite->failed, 2);
    EXPECT_EQ(suite->skipped, 1);
    EXPECT_NEAR(static_cast<double>(suite->totalTime), 2.75, 1e-9);
}

TEST_F(TsuiteTest, EachCaseThatRunsHasItsOwnTimer)
{
    TestCase *first = passing("g", "a", 1500);
    TestCase *second = passing("g", "b", 20);
    TestCase *third = skipped("g", "c");
    tsuite_runCases(suiteOf("s", {first, second, third}), toConsole, 0);
    EXPECT_STREQ(osd_timer_elapsedString(first->timer), "1.50");
    EXPECT_STREQ(osd_timer_elapsedString(second->timer), "0.02");
    EXPECT_EQ(third->timer, nullptr);
}

TEST_F(TsuiteTest, ACaseRunsWithoutATimerWhenMemoryRunsOut)
{
    const auto runOut = [](TestCase *) {
        refuseMemory = true;
        return 0;
    };
    TestCase *last = passing("g", "b", 1000);
    TestSuite *suite = suiteOf("s", {tsuite_newtest("g", "a", runOut, nullptr), last});
    EXPECT_EQ(tsuite_runCases(suite, toConsole, 0), 0);
    EXPECT_EQ(last->timer, nullptr);
    EXPECT_EQ(suite->totalTime, 0.0L);
}

TEST_F(TsuiteTest, AnIntervalUnderAMillisecondAddsProcessorTime)
{
    const auto compute = [](TestCase *) {
        fakeWall.fraction += 999;
        fakeCpu.fraction += 700;
        return 0;
    };
    TestSuite *suite = suiteOf("s", {tsuite_newtest("g", "a", compute, nullptr)});
    tsuite_runCases(suite, toConsole, 0);
    EXPECT_EQ(suite->totalTime, 700 / 1000000000.0L);
}

TEST_F(TsuiteTest, TheResultOfATestFunctionIsIgnored)
{
    const auto function = [](TestCase *) { return 1; };
    EXPECT_EQ(
        tsuite_runCases(suiteOf("s", {tsuite_newtest("g", "a", function, nullptr)}), toConsole, 0),
        0);
}

TEST_F(TsuiteTest, AFailureWithoutATypeCountsAsPassed)
{
    const auto function = [](TestCase *test) {
        TSUITE_FAIL(test, nullptr, "message", "output");
        return 0;
    };
    tsuite_setVerbosity(TSUITE_ERASE);
    EXPECT_EQ(consoleOf({tsuite_newtest("g", "a", function, nullptr)}),
              "Starting test suite: s, 1 test(s):\n"
              "[              g] a{1}pass\n"
              "Complete. Total tests: 1; 0 failed\n");
}

TEST_F(TsuiteTest, ACaseThatIsAddedDuringTheRunIsRun)
{
    static TestSuite *suite;
    const auto function = [](TestCase *) {
        tsuite_addtest(suite, failing("g", "b"));
        return 0;
    };
    suite = suiteOf("s", {tsuite_newtest("g", "a", function, nullptr)});
    EXPECT_EQ(tsuite_runCases(suite, toConsole, 0), 1);
}

TEST_F(TsuiteTest, EachCaseIsTracedWithWhatBecameOfIt)
{
    TestSuite *suite = suiteOf("s", {passing("g", "a"), failing("g", "b"), skipped("g", "c")});
    EXPECT_EQ(
        traced([&] { tsuite_runCases(suite, nullptr, 0); }),
        (Lines{"test case \"a\" passed", "test case \"b\" failed", "test case \"c\" was skipped"}));
}

TEST_F(TsuiteTest, ThereIsNothingToRunWithoutCases)
{
    TestSuite withoutList = {};
    TestSuite *empty = tsuite_new("s");
    EXPECT_EQ(traced([&] {
                  EXPECT_EQ(tsuite_run(nullptr, toConsole), -1);
                  EXPECT_EQ(tsuite_run(&withoutList, toConsole), -1);
                  EXPECT_EQ(tsuite_run(empty, toConsole), -1);
              }),
              (Lines{"could not run test suite", "could not run test suite",
                     "could not run test suite"}));
    EXPECT_EQ(console, "");
    EXPECT_EQ(clockReadings, "");
}

// ---- Calibration ------------------------------------------------------------------------------

// No machine counts that far in less time; otherwise the compiler has removed the counting.
TEST_F(TsuiteTest, TheCalibrationReallyCounts)
{
    EXPECT_EQ(TSUITE_CALIBRATION_COUNT, 0x0FFFFFFFU);
    realClocks = true;
    EXPECT_GT(tsuite_calibrate(TSUITE_CALIBRATION_COUNT), 0.01L);
}

TEST_F(TsuiteTest, TheWorkFactorIsSevenTenthsOnTheMachineOfReference)
{
    EXPECT_DOUBLE_EQ(tsuite_workFactor(0.41L), 0.7);
    EXPECT_DOUBLE_EQ(tsuite_workFactor(0.82L), 1.4);
}

// Each interval is 41 seconds. The calibration gives a work factor of 70, and after the first of
// two tests half a run is left.
TEST_F(TsuiteTest, ARunIsCalibratedBeforeItsFirstTest)
{
    fakeWallStep = 41;
    TestSuite *suite = suiteOf("s", {passing("g", "a"), passing("g", "b")});
    EXPECT_EQ(tsuite_run(suite, toConsole), 0);
    EXPECT_EQ(clockReadings, "cwcwcwcwcwcw");
    EXPECT_EQ(suite->totalTime, 82.0L);
    EXPECT_EQ(readableConsole(),
              "Starting test suite: s, 2 test(s):\n"
              "[              g] a{1}b - 50.00% complete, ETA 0hrs 1mins 16secs{42}pass\n"
              "Complete. Total tests: 2; 0 failed\n");
}

// ---- The console ------------------------------------------------------------------------------

std::string goldenConsole(int32_t verbosity)
{
    tsuite_setVerbosity(verbosity);
    console.clear();
    TestSuite *suite =
        suiteOf("golden", {passing("docs", "readme", 2000), failing("docs", "user guide", 4000),
                           passing("docs", "user guide"), skipped("integrity", "manifest"),
                           passing("integrity", "manifest"), passing("integrity", "hashes", 6000),
                           skipped("build", nullptr), failing("build", nullptr)});
    EXPECT_EQ(tsuite_runCases(suite, toConsole, 4000), 2);
    return readableConsole();
}

const char GOLDEN_ERASED[] = "Starting test suite: golden, 8 test(s):\n"
                             "[           docs] readme{6}user guide{10}fail\n"
                             "[      integrity] manifest{8}hashes{6}pass\n"
                             "[          build] test case 0{11}fail\n"
                             "Complete. Total tests: 8; 2 failed\n";

TEST_F(TsuiteTest, AtVerbosity0OnlyTheFirstAndTheLastLineArePrinted)
{
    EXPECT_EQ(goldenConsole(TSUITE_QUIET), "Starting test suite: golden, 8 test(s):\n"
                                           "Complete. Total tests: 8; 2 failed\n");
}

TEST_F(TsuiteTest, AtVerbosity1LinesAreEndedWhereTheyWouldBeErased)
{
    EXPECT_EQ(goldenConsole(TSUITE_BATCH), "Starting test suite: golden, 8 test(s):\n"
                                           "[           docs] readme\n"
                                           "user guide\n"
                                           "fail\n"
                                           "[      integrity] manifest\n"
                                           "hashes\n"
                                           "pass\n"
                                           "[          build] test case 0\n"
                                           "fail\n"
                                           "Complete. Total tests: 8; 2 failed\n");
    EXPECT_EQ(console.find('\b'), std::string::npos);
}

TEST_F(TsuiteTest, AtVerbosity2NamesAreErasedInPlace)
{
    EXPECT_EQ(goldenConsole(TSUITE_ERASE), GOLDEN_ERASED);
}

TEST_F(TsuiteTest, AtVerbosity4NamesCarryTheProgress)
{
    EXPECT_EQ(goldenConsole(TSUITE_PROGRESS),
              "Starting test suite: golden, 8 test(s):\n"
              "[           docs] readme"
              "{6}user guide - 12.50% complete, ETA 6hrs 48mins 34secs"
              "{52}user guide - 25.00% complete, ETA 5hrs 0mins 18secs{51}fail\n"
              "[      integrity] manifest"
              "{8}hashes - 50.00% complete, ETA 2hrs 13mins 26secs{48}pass\n"
              "[          build] test case 0{11}fail\n"
              "Complete. Total tests: 8; 2 failed\n");
}

TEST_F(TsuiteTest, TheVerbosityIsFourAtFirst)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            tsuite_runCases(suiteOf("s", {passing("g", "a"), passing("g", "b")}), toConsole, 0);
            std::_Exit(console.find("b - 50.00% complete, ETA") != std::string::npos ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    GTEST_FLAG_SET(death_test_style, "fast");
}

TEST_F(TsuiteTest, EitherBitErasesAndOnlyExactly4ShowsTheProgress)
{
    for (int32_t verbosity : {3, 5, 6, 7, 10, -1})
        EXPECT_EQ(goldenConsole(verbosity), GOLDEN_ERASED) << verbosity;
}

TEST_F(TsuiteTest, OtherNumbersNeitherEraseNorEndLines)
{
    for (int32_t verbosity : {8, 9, -8})
        EXPECT_EQ(goldenConsole(verbosity), "Starting test suite: golden, 8 test(s):\n"
                                            "[           docs] readmeuser guidefail\n"
                                            "[      integrity] manifesthashespass\n"
                                            "[          build] test case 0fail\n"
                                            "Complete. Total tests: 8; 2 failed\n")
            << verbosity;
}

TEST_F(TsuiteTest, ACharacterIsErasedByBackspaceBlankBackspace)
{
    tsuite_setVerbosity(TSUITE_ERASE);
    consoleOf({passing("g", "ab")});
    EXPECT_EQ(console, "Starting test suite: s, 1 test(s):\n"
                       "[              g] ab\b \b\b \bpass\n"
                       "Complete. Total tests: 1; 0 failed\n");
}

TEST_F(TsuiteTest, BeforeTheFirstTestHasRunTheProgressIsZero)
{
    EXPECT_EQ(consoleOf({skipped("g", "a"), passing("g", "b", 5000)}, 4000),
              "Starting test suite: s, 2 test(s):\n"
              "[              g] a{1}b - 0.00% complete, ETA 0hrs 0mins 0secs{40}pass\n"
              "Complete. Total tests: 2; 0 failed\n");
}

TEST_F(TsuiteTest, AThirdOfTheRunIsRoundedToTwoDecimals)
{
    EXPECT_EQ(consoleOf({passing("g", "a"), passing("g", "b"), passing("g", "c")}),
              "Starting test suite: s, 3 test(s):\n"
              "[              g] a"
              "{1}b - 33.33% complete, ETA 0hrs 0mins 0secs"
              "{41}c - 66.67% complete, ETA 0hrs 0mins 0secs{41}pass\n"
              "Complete. Total tests: 3; 0 failed\n");
}

TEST_F(TsuiteTest, AnAbsurdEstimateIsHeldToWhatCanBeShown)
{
    const auto setClockBack = [](TestCase *) {
        fakeWall.seconds -= 10;
        return 0;
    };
    const std::string text =
        consoleOf({tsuite_newtest("g", "a", setClockBack, nullptr), passing("g", "b")});
    EXPECT_NE(text.find("b - 50.00% complete, ETA 2147483647hrs "), std::string::npos) << text;
}

TEST_F(TsuiteTest, AFailureOfOneGroupIsForgottenInTheNext)
{
    tsuite_setVerbosity(TSUITE_BATCH);
    EXPECT_EQ(consoleOf({failing("g", "a"), passing("g", "b"), passing("h", "c")}),
              "Starting test suite: s, 3 test(s):\n"
              "[              g] a\nb\nfail\n"
              "[              h] c\npass\n"
              "Complete. Total tests: 3; 1 failed\n");
}

TEST_F(TsuiteTest, AGroupThatReturnsIsShownAgain)
{
    tsuite_setVerbosity(TSUITE_BATCH);
    EXPECT_EQ(consoleOf({passing("g", "a"), passing("h", "a"), passing("g", "a")}),
              "Starting test suite: s, 3 test(s):\n"
              "[              g] a\npass\n"
              "[              h] a\npass\n"
              "[              g] a\npass\n"
              "Complete. Total tests: 3; 0 failed\n");
}

TEST_F(TsuiteTest, GroupsAreComparedByTheirText)
{
    const char one[] = "group";
    const char two[] = "group";
    TestCase *first = passing(nullptr, "a");
    TestCase *second = passing(nullptr, "b");
    first->group = one;
    second->group = two;
    tsuite_setVerbosity(TSUITE_ERASE);
    EXPECT_EQ(consoleOf({first, second}), "Starting test suite: s, 2 test(s):\n"
                                          "[          group] a{1}b{1}pass\n"
                                          "Complete. Total tests: 2; 0 failed\n");
}

TEST_F(TsuiteTest, AMissingGroupIsAGroupWithAnEmptyName)
{
    tsuite_setVerbosity(TSUITE_ERASE);
    EXPECT_EQ(consoleOf({passing(nullptr, "a"), passing(nullptr, "b"), passing("g", "c"),
                         passing(nullptr, "d"), passing("", "e")}),
              "Starting test suite: s, 5 test(s):\n"
              "[               ] a{1}b{1}pass\n"
              "[              g] c{1}pass\n"
              "[               ] d{1}e{1}pass\n"
              "Complete. Total tests: 5; 0 failed\n");
}

TEST_F(TsuiteTest, LongNamesAreShownWhole)
{
    tsuite_setVerbosity(TSUITE_ERASE);
    const std::string group(100, 'g');
    const std::string name(5000, 'n');
    EXPECT_EQ(consoleOf({passing(group.c_str(), name.c_str())}),
              "Starting test suite: s, 1 test(s):\n"
              "[" +
                  group + "] " + name +
                  "{5000}pass\n"
                  "Complete. Total tests: 1; 0 failed\n");
}

TEST_F(TsuiteTest, RecordsWithoutNamesAreShownWithoutOne)
{
    tsuite_setVerbosity(TSUITE_ERASE);
    TestSuite *suite = suiteOf("s", {passing("g", "a")});
    static_cast<TestCase *>(vec_elementAt(suite->list, 0))->name = nullptr;
    suite->name = nullptr;
    tsuite_runCases(suite, toConsole, 0);
    EXPECT_EQ(readableConsole(), "Starting test suite: , 1 test(s):\n"
                                 "[              g] pass\n"
                                 "Complete. Total tests: 1; 0 failed\n");
}

TEST_F(TsuiteTest, WithoutAPrintFunctionARunIsSilent)
{
    EXPECT_EQ(tsuite_runCases(suiteOf("s", {passing("g", "a"), failing("g", "b")}), nullptr, 0), 1);
    EXPECT_EQ(console, "");
}

// ---- Texts of a running test ------------------------------------------------------------------

int printTexts(TestCase *test)
{
    test->print("half ");
    test->print(nullptr);
    test->print("way 100%s ");
    return 0;
}

TEST_F(TsuiteTest, ATestPrintsThroughThePrintFunctionOfTheRun)
{
    tsuite_setVerbosity(TSUITE_BATCH);
    EXPECT_EQ(consoleOf({tsuite_newtest("g", "a", printTexts, nullptr)}),
              "Starting test suite: s, 1 test(s):\n"
              "[              g] ahalf way 100%s \npass\n"
              "Complete. Total tests: 1; 0 failed\n");
}

TEST_F(TsuiteTest, AtVerbosity0ATestPrintsNothing)
{
    tsuite_setVerbosity(TSUITE_QUIET);
    EXPECT_EQ(consoleOf({tsuite_newtest("g", "a", printTexts, nullptr)}),
              "Starting test suite: s, 1 test(s):\n"
              "Complete. Total tests: 1; 0 failed\n");
}

TEST_F(TsuiteTest, WithoutAPrintFunctionATestPrintsNothing)
{
    tsuite_runCases(suiteOf("s", {tsuite_newtest("g", "a", printTexts, nullptr)}), nullptr, 0);
    tsuite_print("more");
    EXPECT_EQ(console, "");
}

} // namespace
