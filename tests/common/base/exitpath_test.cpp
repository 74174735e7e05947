#define MODULE "tests/exitpath"
#include "common/base/exitpath.h"

#include <cstdio>
#include <cstdlib>

#include <gtest/gtest.h>

static void routine(int status)
{
    std::fprintf(stderr, "routine %d;", status);
    std::exit(status + 1);
}

static void returningRoutine(int)
{
    std::fputs("returned;", stderr);
}

static void leaveAgain()
{
    exitpath_leave(9);
}

TEST(ExitpathDeathTest, WithoutARoutineTheProcessExitsAndRunsItsExitHandlers)
{
    EXPECT_EXIT(
        {
            std::atexit([] { std::fputs("handler", stderr); });
            exitpath_leave(3);
        },
        testing::ExitedWithCode(3), "^handler$");
}

TEST(ExitpathDeathTest, TheInstalledRoutineEndsTheRun)
{
    EXPECT_EXIT(
        {
            exitpath_setRoutine(routine);
            exitpath_leave(4);
        },
        testing::ExitedWithCode(5), "^routine 4;$");
}

TEST(ExitpathDeathTest, ARoutineThatReturnsStillEndsTheRunWithTheStatus)
{
    EXPECT_EXIT(
        {
            exitpath_setRoutine(returningRoutine);
            exitpath_leave(6);
        },
        testing::ExitedWithCode(6), "^returned;$");
}

TEST(ExitpathDeathTest, NullRestoresTheDefault)
{
    EXPECT_EXIT(
        {
            exitpath_setRoutine(routine);
            exitpath_setRoutine(nullptr);
            exitpath_leave(2);
        },
        testing::ExitedWithCode(2), "^$");
}

TEST(ExitpathDeathTest, ARoutineThatFailsStillLeavesThroughTheExitHandlers)
{
    EXPECT_EXIT(
        {
            std::atexit([] { std::fputs("handler", stderr); });
            exitpath_setRoutine([](int) {
                std::fputs("routine;", stderr);
                exitpath_leave(8);
            });
            exitpath_leave(0);
        },
        testing::ExitedWithCode(8), "^routine;handler$");
}

TEST(ExitpathDeathTest, LeavingWhileLeavingEndsAtOnce)
{
    EXPECT_EXIT(
        {
            std::atexit([] { std::fputs("not reached", stderr); });
            std::atexit(leaveAgain);
            exitpath_leave(1);
        },
        testing::ExitedWithCode(9), "^$");
}

TEST(ExitpathDeathTest, ABrokenContractNamesItsTextPlaceAndNumber)
{
    const int count = 1;
    EXPECT_EXIT(ASSERT_AT(12, count == 2), testing::ExitedWithCode(1),
                "^Assertion failed - count == 2 \\(tests/exitpath, line 12\\)\n$");
    EXPECT_EXIT(ASSERT_TEXT_AT(34, count == 2, "two"), testing::ExitedWithCode(1),
                "^Assertion failed - two \\(tests/exitpath, line 34\\)\n$");
    EXPECT_EXIT(ASSERT_PLACE_AT("countAll", 56, count == 2, "two"), testing::ExitedWithCode(1),
                "^Assertion failed - two \\(countAll, line 56\\)\n$");
}

TEST(ExitpathDeathTest, ABrokenContractLeavesThroughTheRoutine)
{
    EXPECT_EXIT(
        {
            exitpath_setRoutine(routine);
            db_assert("p", "common/x", 5);
        },
        testing::ExitedWithCode(2), "^Assertion failed - p \\(common/x, line 5\\)\nroutine 1;$");
}

TEST(Exitpath, AKeptContractIsSilent)
{
    testing::internal::CaptureStderr();
    int evaluations = 0;
    ASSERT_AT(1, ++evaluations == 1);
    EXPECT_EQ(evaluations, 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}
