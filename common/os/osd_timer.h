// osd_timer: measures how long something took, by the wall clock, or by the processor time when the
// wall clock shows less than a millisecond.
//
//     OsdTimer *timer = osd_timer_new();
//     osd_timer_start(timer);
//     ...
//     osd_timer_stop(timer);
//     printf("%s seconds\n", osd_timer_elapsedString(timer));
//
// A null timer is ignored and counts as not started.
#ifndef COMMON_OS_OSD_TIMER_H
#define COMMON_OS_OSD_TIMER_H

#include <cstdint>

#include "common/os/osdep_host.h"

struct OsdTimer {
    uint8_t started;     // 1 once started
    uint8_t stopped;     // 1 once stopped
    OsdepTime startWall; // fraction in microseconds
    OsdepTime startCpu;  // fraction in nanoseconds
    OsdepTime stopWall;
    OsdepTime stopCpu;
};

// A new timer, neither started nor stopped, the caller's to free(); null when memory runs out.
OsdTimer *osd_timer_new();

// Starts the timer, forgetting what it held.
void osd_timer_start(OsdTimer *timer);

// Stops the timer; on one that was not started it only traces.
void osd_timer_stop(OsdTimer *timer);

// The seconds between start and stop, to the millisecond; below one millisecond, the processor time
// to the nanosecond. 0 for a timer that has not run; absurdly large when the wall clock was set
// back in between.
long double osd_timer_elapsed(const OsdTimer *timer);

// The same with two decimals, interned.
const char *osd_timer_elapsedString(const OsdTimer *timer);

#endif
