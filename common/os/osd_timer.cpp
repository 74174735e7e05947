#define MODULE "common/osd_timer"

#include "common/os/osd_timer.h"

#include <cinttypes>

#include "common/base/memory.h"
#include "common/base/stringcache.h"
#include "common/trace/qzdebug.h"

OsdTimer *osd_timer_new()
{
    TRACE_ENTER();
    auto *timer = static_cast<OsdTimer *>(xmalloc(sizeof(OsdTimer)));
    return TRACE_RETURN("%p", timer);
}

void osd_timer_start(OsdTimer *timer)
{
    TRACE_ENTER("timer=%p", static_cast<void *>(timer));
    if (timer != nullptr) {
        TRACE("starting timer");
        *timer = {};
        timer->started = 1;
        timer->startCpu = osdep_cpuTime();
        timer->startWall = osdep_wallTime();
    }
}

void osd_timer_stop(OsdTimer *timer)
{
    TRACE_ENTER("timer=%p", static_cast<void *>(timer));
    if (timer == nullptr || !timer->started) {
        TRACE("timer has not been started!");
    } else {
        timer->stopCpu = osdep_cpuTime();
        timer->stopWall = osdep_wallTime();
        timer->stopped = 1;
        TRACE("stopping timer - elapsed time was %s seconds", osd_timer_elapsedString(timer));
    }
}

// The time between two readings of a clock, in units of 1/`perSecond` seconds; `divisor` converts
// the clock's fractions to these units. Each fraction is divided on its own, so an interval across
// the turn of a second may read as one unit more. A clock that was set back in between gives an
// absurdly long interval.
static uint64_t difference(const OsdepTime *start, const OsdepTime *stop, uint64_t perSecond,
                           int64_t divisor)
{
    TRACE_ENTER("perSecond=%" PRIu64 ", divisor=%" PRId64, perSecond, divisor);
    const uint64_t seconds =
        static_cast<uint64_t>(stop->seconds) - static_cast<uint64_t>(start->seconds);
    const auto fraction = static_cast<uint64_t>((stop->fraction - start->fraction) / divisor);
    return TRACE_RETURN("%" PRIu64, seconds * perSecond + fraction);
}

long double osd_timer_elapsed(const OsdTimer *timer)
{
    TRACE_ENTER("timer=%p", static_cast<const void *>(timer));
    if (timer == nullptr || !timer->started || !timer->stopped) {
        TRACE("could not calculate elapsed time");
        return TRACE_RETURN("%Lf", 0.0L);
    }
    const uint64_t milliseconds = difference(&timer->startWall, &timer->stopWall, 1000, 1000);
    if (milliseconds != 0)
        return TRACE_RETURN("%Lf", static_cast<long double>(milliseconds) / 1000.0L);
    const uint64_t nanoseconds = difference(&timer->startCpu, &timer->stopCpu, 1000000000, 1);
    return TRACE_RETURN("%Lf", static_cast<long double>(nanoseconds) / 1000000000.0L);
}

const char *osd_timer_elapsedString(const OsdTimer *timer)
{
    TRACE_ENTER("timer=%p", static_cast<const void *>(timer));
    const char *text = cache_sprintf("%.2Lf", osd_timer_elapsed(timer));
    TRACE("elapsed time: %s", text);
    return TRACE_RETURN("\"%s\"", text);
}
