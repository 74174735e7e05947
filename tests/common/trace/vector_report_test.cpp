#include "common/base/vector.h"

#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "common/trace/container_report.h"
#include "tests/common/report_lines.h"

static const char FILE_A[] = "tests/a";
static const char FILE_B[] = "tests/b";

static const char LIST_HEAD[] = "# Living Vector Master List:";
static const char LIST_COLUMNS[] = "# ptr    file:line    max_count/capacity    alive";
static const char SUMMARY_HEAD[] = "# Vector Master List Summary:";
static const char SUMMARY_GROUPS[] = "#                                                           "
                                     "       Living              Dead                Total";
static const char SUMMARY_COLUMNS[] = "#                                file:line                 "
                                      "        vectors/capacity    vectors/capacity    "
                                      "vectors/capacity";
static const char GAP[] = "                        "; // between place and numbers of a summary row

static Vector *vectorWith(uint32_t elements, const char *file, uint32_t line)
{
    Vector *v = vec_new(file, line);
    for (uint32_t i = 0; i < elements; ++i)
        vec_add(v, v);
    return v;
}

using VectorReportDeathTest = FreshProcessTest;

static void emptyMasterList()
{
    vec_destroy(vectorWith(1, FILE_A, 1)); // before recording: not listed
    vec_debugEnable(1);
    exitComparing(
        debugOutputOf(vec_report),
        {LIST_HEAD, LIST_COLUMNS, SUMMARY_HEAD, SUMMARY_GROUPS, SUMMARY_COLUMNS,
         "#                       Total Summary:0    " + std::string(GAP) + "0/0    0/0    0/0"});
}

TEST_F(VectorReportDeathTest, WithoutRecordedVectorsOnlyTheTotalsAreListed)
{
    EXPECT_EXIT(emptyMasterList(), testing::ExitedWithCode(0), "");
}

TEST_F(VectorReportDeathTest, WithoutAMasterListNothingIsPrinted)
{
    EXPECT_EXIT(exitComparing(debugOutputOf(vec_report), {}), testing::ExitedWithCode(0), "");
}

static std::string living(const Vector *v, const char *rest)
{
    return "# " + addressText(v) + "    " + rest;
}

static void sortedReport()
{
    vec_debugEnable(1);
    const Vector *empty = vectorWith(0, FILE_B, 1);
    const Vector *ten = vectorWith(10, FILE_A, 7);
    const Vector *twenty = vectorWith(11, FILE_A, 7);
    const Vector *three = vectorWith(3, FILE_B, 2);
    const Vector *alsoThree = vectorWith(3, FILE_A, 9);
    vec_destroy(vectorWith(21, FILE_A, 7));
    exitComparing(
        debugOutputOf(vec_report),
        {LIST_HEAD, LIST_COLUMNS, living(twenty, "tests/a:7    11/20    Y"),
         living(alsoThree, "tests/a:9    3/10    Y"), living(three, "tests/b:2    3/10    Y"),
         living(ten, "tests/a:7    10/10    Y"), living(empty, "tests/b:1    0/0    Y"),
         SUMMARY_HEAD, SUMMARY_GROUPS, SUMMARY_COLUMNS,
         "#                             tests/b:1    " + std::string(GAP) + "1/0    0/0    0/0",
         "#                             tests/b:2    " + std::string(GAP) + "1/10    0/0    0/0",
         "#                             tests/a:9    " + std::string(GAP) + "1/10    0/0    0/0",
         "#                             tests/a:7    " + std::string(GAP) + "2/30    1/40    0/0",
         "#                       Total Summary:0    " + std::string(GAP) +
             "5/50    1/40    6/90"});
}

TEST_F(VectorReportDeathTest, VectorsAreSortedAndSummedByTheirPlace)
{
    EXPECT_EXIT(sortedReport(), testing::ExitedWithCode(0), "");
}

// Three records that differ only in their lines and addresses.
static void reportOfEquals()
{
    vec_debugEnable(1);
    const Vector *lower = vectorWith(1, FILE_A, 8);
    const Vector *higher = vectorWith(1, FILE_A, 8);
    const Vector *earlierLine = vectorWith(1, FILE_A, 7);
    if (lower->debug > higher->debug)
        std::swap(lower, higher);
    Lines lines = debugOutputOf(vec_report);
    lines.resize(5);
    exitComparing(lines, {LIST_HEAD, LIST_COLUMNS, living(earlierLine, "tests/a:7    1/10    Y"),
                          living(higher, "tests/a:8    1/10    Y"),
                          living(lower, "tests/a:8    1/10    Y")});
}

TEST_F(VectorReportDeathTest, EqualVectorsAreSortedByTheirLinesThenTheHighestRecordFirst)
{
    EXPECT_EXIT(reportOfEquals(), testing::ExitedWithCode(0), "");
}

static void destroyedVector()
{
    vec_debugEnable(1);
    vec_destroy(vectorWith(4, FILE_A, 3));
    exitComparing(
        debugOutputOf(vec_report),
        {LIST_HEAD, LIST_COLUMNS, SUMMARY_HEAD, SUMMARY_GROUPS, SUMMARY_COLUMNS,
         "#                             tests/a:3    " + std::string(GAP) + "0/0    1/10    0/0",
         "#                       Total Summary:0    " + std::string(GAP) + "0/0    1/10    1/10"});
}

TEST_F(VectorReportDeathTest, ADestroyedVectorIsCountedOnlyInTheDeadColumnsOfItsRow)
{
    EXPECT_EXIT(destroyedVector(), testing::ExitedWithCode(0), "");
}

static void twoReports()
{
    vec_debugEnable(1);
    vec_destroy(vectorWith(4, FILE_A, 3));
    const Lines first = debugOutputOf(vec_report);
    exitComparing(debugOutputOf(vec_report), first);
}

TEST_F(VectorReportDeathTest, ASecondReportStartsItsSumsAnew)
{
    EXPECT_EXIT(twoReports(), testing::ExitedWithCode(0), "");
}

static VectorDebugRecord copyOf(const VectorDebugRecord *record)
{
    return *record;
}

TEST(VectorRecord, HighWaterMarksStayWhenElementsGo)
{
    vec_debugEnable(1);
    Vector *v = vectorWith(12, FILE_A, 5);
    vec_debugEnable(0);
    vec_pop(v);
    vec_insert(v, v, 0);
    vec_insert(v, v, 0);
    vec_removeAll(v);
    const VectorDebugRecord record = copyOf(v->debug);
    EXPECT_EQ(record.vector, v);
    EXPECT_EQ(record.file, FILE_A);
    EXPECT_EQ(record.line, 5U);
    EXPECT_EQ(record.capacity, 20U);
    EXPECT_EQ(record.max_count, 13U);
    EXPECT_EQ(record.flags, 1U);
    vec_setAt(v, v, 29);
    EXPECT_EQ(v->debug->max_count, 30U);
    EXPECT_EQ(v->debug->capacity, 40U);
    vec_destroy(v);
}

TEST(VectorRecord, ACopyOfARecordedVectorIsRecordedAtItsOwnPlace)
{
    vec_debugEnable(1);
    Vector *v = vectorWith(11, FILE_A, 5);
    vec_debugEnable(0);
    Vector *copy = vec_copy_func(v, FILE_B, 6);
    ASSERT_NE(copy->debug, nullptr);
    EXPECT_NE(copy->debug, v->debug);
    EXPECT_EQ(copy->debug->vector, copy);
    EXPECT_EQ(copy->debug->file, FILE_B);
    EXPECT_EQ(copy->debug->line, 6U);
    EXPECT_EQ(copy->debug->capacity, 20U);
    EXPECT_EQ(copy->debug->max_count, 11U);
    Vector *unrecorded = vec_new(FILE_B, 7);
    EXPECT_EQ(unrecorded->debug, nullptr);
    vec_destroy(v);
    vec_destroy(copy);
    vec_destroy(unrecorded);
}

// A vector whose record says that it was destroyed.
static Vector *deadVector()
{
    vec_debugEnable(1);
    Vector *v = vectorWith(10, FILE_A, 1);
    vec_debugEnable(0);
    v->debug->flags = 0;
    return v;
}

TEST(VectorRecordDeathTest, ADeadVectorIsABrokenContract)
{
    Vector *v = deadVector();
    const auto failure = [](int line) {
        return "^Assertion failed - is_alive\\(p\\) \\(common/vector, line " +
               std::to_string(line) + "\\)\n$";
    };
    const auto exits = testing::ExitedWithCode(1);
    EXPECT_EXIT(vec_add(v, v), exits, failure(197)); // the storage is full
    EXPECT_EXIT((vec_pop(v), vec_add(v, v)), exits, failure(293));
    EXPECT_EXIT((vec_pop(v), vec_insert(v, v, 0)), exits, failure(386));
    EXPECT_EXIT((vec_pop(v), vec_setAt(v, v, 0)), exits, failure(433));
    EXPECT_EXIT(vec_copy_func(v, FILE_A, 1), exits, failure(272));
    EXPECT_EXIT(vec_destroy(v), exits, failure(252));
    v->debug->flags = 1;
    vec_destroy(v);
}
