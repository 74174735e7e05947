// The fixture of the tests of the timer and of the test framework: clocks that stand still until a
// test moves them, memory that runs out when a test says so, and a console that records.
#ifndef TESTS_COMMON_SUITE_TSUITE_FIXTURE_H
#define TESTS_COMMON_SUITE_TSUITE_FIXTURE_H

#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "common/os/osdep_host.h"
#include "common/suite/tsuite.h"

// The times of the two clocks, and the seconds by which each reading moves the wall clock on.
extern OsdepTime fakeWall;
extern OsdepTime fakeCpu;
extern int64_t fakeWallStep;

// While set, the clocks are the real ones.
extern bool realClocks;

// The order in which the clocks were read: "c" and "w".
extern std::string clockReadings;

// While set, xmalloc() refuses blocks.
extern bool refuseMemory;

// 2024-02-29 23:59:58 UTC.
inline constexpr int64_t FAKE_NOW = 1709251198;

// Clocks that stand still at FAKE_NOW and 0, no readings, memory available.
void resetSystem();

// Moves the wall clock on.
void passMilliseconds(int64_t milliseconds);

// Everything that went through the print function `toConsole`.
extern std::string console;
void toConsole(const char *text);

// The console with each run of N times backspace, blank, backspace shown as "{N}".
std::string readableConsole();

// Everything as at the start of a program, except the counter of unnamed suites.
class TsuiteTest : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;
};

// A case that takes `milliseconds` and passes, or fails with type, message and output.
TestCase *passing(const char *group, const char *name, int milliseconds = 0);
TestCase *failing(const char *group, const char *name, int milliseconds = 0);
TestCase *skipped(const char *group, const char *name);

#endif
