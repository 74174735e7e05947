// Internal functions of tsuite that its tests use: the run without the preceding measurement of the
// machine.
#ifndef COMMON_SUITE_TSUITE_INTERNAL_H
#define COMMON_SUITE_TSUITE_INTERNAL_H

#include "common/suite/tsuite.h"

// The machine's speed is measured by counting to this number.
inline constexpr uint64_t TSUITE_CALIBRATION_COUNT = 268435455;

// The seconds that it takes to count from 0 to `limit`.
long double tsuite_calibrate(uint64_t limit);

// The seconds added at the start of a run to the estimate for each remaining test, on a machine
// that took `calibration` seconds to count.
double tsuite_workFactor(long double calibration);

// tsuite_run() after its checks and the calibration. The suite must have at least one case.
int32_t tsuite_runCases(TestSuite *suite, TestPrint print, double workFactor);

// The text, or an empty one for null.
inline const char *tsuite_shown(const char *text)
{
    return text != nullptr ? text : "";
}

#endif
