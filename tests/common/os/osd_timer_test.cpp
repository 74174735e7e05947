#include "common/os/osd_timer.h"

#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/base/stringcache.h"
#include "tests/common/suite/tsuite_fixture.h"
#include "tests/common/trace_lines.h"

namespace {

using Lines = std::vector<std::string>;

// A timer that has run between two readings of each clock.
OsdTimer ran(OsdepTime startWall, OsdepTime stopWall, OsdepTime startCpu = {},
             OsdepTime stopCpu = {})
{
    return {1, 1, startWall, startCpu, stopWall, stopCpu};
}

class OsdTimerTest : public testing::Test {
  protected:
    void SetUp() override
    {
        resetSystem();
        timer = osd_timer_new();
    }
    void TearDown() override { std::free(timer); }

    OsdTimer *timer = nullptr;
};

TEST_F(OsdTimerTest, ANewTimerHoldsNothing)
{
    const OsdTimer empty = {};
    EXPECT_EQ(timer->started, 0);
    EXPECT_EQ(timer->stopped, 0);
    EXPECT_EQ(timer->startWall.seconds, empty.startWall.seconds);
    EXPECT_EQ(timer->stopCpu.fraction, empty.stopCpu.fraction);
    EXPECT_EQ(clockReadings, "");
}

TEST_F(OsdTimerTest, WithoutMemoryThereIsNoTimer)
{
    refuseMemory = true;
    EXPECT_EQ(osd_timer_new(), nullptr);
    refuseMemory = false;
}

TEST_F(OsdTimerTest, StartReadsBothClocksAndForgetsTheLastRun)
{
    *timer = ran({1, 2}, {3, 4}, {5, 6}, {7, 8});
    fakeWall = {100, 200};
    fakeCpu = {300, 400};
    osd_timer_start(timer);
    EXPECT_EQ(timer->started, 1);
    EXPECT_EQ(timer->stopped, 0);
    EXPECT_EQ(timer->startWall.seconds, 100);
    EXPECT_EQ(timer->startWall.fraction, 200);
    EXPECT_EQ(timer->startCpu.seconds, 300);
    EXPECT_EQ(timer->startCpu.fraction, 400);
    EXPECT_EQ(timer->stopWall.seconds, 0);
    EXPECT_EQ(timer->stopWall.fraction, 0);
    EXPECT_EQ(timer->stopCpu.seconds, 0);
    EXPECT_EQ(timer->stopCpu.fraction, 0);
}

TEST_F(OsdTimerTest, TheProcessorsClockIsReadFirst)
{
    osd_timer_start(timer);
    osd_timer_stop(timer);
    EXPECT_EQ(clockReadings, "cwcw");
}

TEST_F(OsdTimerTest, StopReadsBothClocks)
{
    osd_timer_start(timer);
    fakeWall = {101, 201};
    fakeCpu = {301, 401};
    osd_timer_stop(timer);
    EXPECT_EQ(timer->stopped, 1);
    EXPECT_EQ(timer->stopWall.seconds, 101);
    EXPECT_EQ(timer->stopWall.fraction, 201);
    EXPECT_EQ(timer->stopCpu.seconds, 301);
    EXPECT_EQ(timer->stopCpu.fraction, 401);
}

TEST_F(OsdTimerTest, StoppingATimerThatWasNotStartedOnlyTraces)
{
    EXPECT_EQ(trace_lines_while("osd_timer", [this] { osd_timer_stop(timer); }),
              (Lines{"timer has not been started!"}));
    EXPECT_EQ(timer->stopped, 0);
    EXPECT_EQ(clockReadings, "");
}

TEST_F(OsdTimerTest, StartAndStopAreTraced)
{
    EXPECT_EQ(trace_lines_while("osd_timer", [this] { osd_timer_start(timer); }),
              (Lines{"starting timer"}));
    passMilliseconds(1250);
    EXPECT_EQ(trace_lines_while("osd_timer", [this] { osd_timer_stop(timer); }),
              (Lines{"elapsed time: 1.25", "stopping timer - elapsed time was 1.25 seconds"}));
}

// ---- Elapsed time -----------------------------------------------------------------------------

TEST_F(OsdTimerTest, TheWallClockCountsInMilliseconds)
{
    const OsdTimer t = ran({10, 250000}, {13, 251999}, {0, 0}, {9, 0});
    EXPECT_EQ(osd_timer_elapsed(&t), 3001 / 1000.0L);
}

TEST_F(OsdTimerTest, UnderAMillisecondTheProcessorsClockCounts)
{
    const OsdTimer t = ran({10, 0}, {10, 999}, {1, 999999000}, {2, 500});
    EXPECT_EQ(osd_timer_elapsed(&t), 1500 / 1000000000.0L);
}

TEST_F(OsdTimerTest, AMillisecondIsMeasuredByTheWallClock)
{
    const OsdTimer t = ran({10, 0}, {10, 1000}, {1, 0}, {2, 0});
    EXPECT_EQ(osd_timer_elapsed(&t), 1 / 1000.0L);
}

TEST_F(OsdTimerTest, FractionsThatRunBackwardsAreTakenOffTheSeconds)
{
    const OsdTimer t = ran({10, 900000}, {12, 100000});
    EXPECT_EQ(osd_timer_elapsed(&t), 1200 / 1000.0L);
}

TEST_F(OsdTimerTest, TheFractionsAreDividedBeforeTheSecondsAreAdded)
{
    const OsdTimer t = ran({10, 999999}, {11, 1});
    EXPECT_EQ(osd_timer_elapsed(&t), 1 / 1000.0L);
}

TEST_F(OsdTimerTest, AWallClockThatWasSetBackWrapsAround)
{
    const OsdTimer t = ran({10, 0}, {9, 0});
    EXPECT_EQ(osd_timer_elapsed(&t), 18446744073709550616ULL / 1000.0L);
}

TEST_F(OsdTimerTest, AProcessorsClockThatWasSetBackWrapsAround)
{
    const OsdTimer t = ran({10, 0}, {10, 0}, {1, 0}, {0, 999999999});
    EXPECT_EQ(osd_timer_elapsed(&t), 18446744073709551615ULL / 1000000000.0L);
}

TEST_F(OsdTimerTest, ATimerThatHasNotRunHasNoElapsedTime)
{
    osd_timer_stop(timer);
    EXPECT_EQ(osd_timer_elapsed(timer), 0.0L);
    osd_timer_start(timer);
    passMilliseconds(5000);
    EXPECT_EQ(trace_lines_while("osd_timer", [this] { EXPECT_EQ(osd_timer_elapsed(timer), 0.0L); }),
              (Lines{"could not calculate elapsed time"}));
    EXPECT_STREQ(osd_timer_elapsedString(timer), "0.00");
}

TEST_F(OsdTimerTest, TheTextHasTwoDecimalsAndIsInterned)
{
    const OsdTimer t = ran({10, 0}, {71, 156000});
    const char *text = osd_timer_elapsedString(&t);
    EXPECT_STREQ(text, "61.16");
    EXPECT_EQ(text, cache_string("61.16"));
}

TEST_F(OsdTimerTest, NoTimerReadsAsNotStarted)
{
    osd_timer_start(nullptr);
    osd_timer_stop(nullptr);
    EXPECT_EQ(osd_timer_elapsed(nullptr), 0.0L);
    EXPECT_STREQ(osd_timer_elapsedString(nullptr), "0.00");
    EXPECT_EQ(clockReadings, "");
}

} // namespace
