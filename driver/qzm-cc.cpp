#define MODULE "driver/qzm-cc"
#include <cstdlib>

#include "common/base/exitpath.h"
#include "common/cmdline/cmdline.h"
#include "common/diagnostics/qzdebug_options.h"
#include "common/trace/qzdebug.h"
#include "driver/option_handlers.h"
#include "driver/options_process.h"

// The exit routine of every run that ends early: help, listings, fatal messages, malformed options.
static void cleanup(int status)
{
    TRACE_ENTER("status=%d", status);
    qzdebug_shutdown();
    exit(status);
}

int main(int argc, char **argv)
{
    exitpath_setRoutine(cleanup);
    return cmdline_driver(argc, argv, options_process, COMMAND_FILE_ALWAYS,
                          &gOptionState.verbosity);
}
