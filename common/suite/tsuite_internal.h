// What tsuite keeps to itself, open to its tests: the run without the measuring of the machine that
// precedes it.
#ifndef COMMON_SUITE_TSUITE_INTERNAL_H
#define COMMON_SUITE_TSUITE_INTERNAL_H

#include "common/suite/tsuite.h"

// Counting to this number is the measure of the machine.
inline constexpr uint64_t TSUITE_CALIBRATION_COUNT = 268435455;

// The seconds that it takes to count from 0 to `limit`.
long double tsuite_calibrate(uint64_t limit);

// What a machine that counts in `calibration` seconds adds to the estimate of each test to come, in
// seconds, at the start of a run.
double tsuite_workFactor(long double calibration);

// tsuite_run() behind the refusals and the calibration. The suite has at least one case.
int32_t tsuite_runCases(TestSuite *suite, TestPrint print, double workFactor);

// The text, or an empty one for null: what is missing shows as nothing.
inline const char *tsuite_shown(const char *text)
{
    return text != nullptr ? text : "";
}

#endif
