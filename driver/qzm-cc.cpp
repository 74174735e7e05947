#define MODULE "driver/qzm-cc"
#include "common/cmdline.h"
#include "common/exitpath.h"
#include "common/qzdebug.h"
#include "common/qzdebug_options.h"
#include "driver/option_handlers.h"
#include "driver/options_process.h"

#include <cstdlib>

// The way out of every run that ends early: help, listings, fatal messages, malformed options.
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
