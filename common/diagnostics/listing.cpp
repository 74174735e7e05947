#include "common/diagnostics/listing.h"

#include <cstdio>

#include "common/base/exitpath.h"
#include "common/diagnostics/alert.h"
#include "common/os/osdep_process.h"
#include "common/trace/qzdebug.h"

bool listing_written()
{
    TRACE_ENTER();
    const bool written = std::fflush(stdout) == 0 && ferror(stdout) == 0;
    // No complaint when the reader has simply seen enough.
    if (!written && !osdep_outputIsAbandoned())
        alert_raiseNumber(MESSAGE_NOT_WRITTEN, "standard output");
    return TRACE_RETURN("%d", written);
}

void listing_finish()
{
    TRACE_ENTER();
    if (!listing_written())
        exitpath_leave(1);
}
