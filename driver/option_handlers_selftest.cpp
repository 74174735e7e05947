#define MODULE "driver/option_handlers_selftest"
#include "driver/option_handlers.h"

#include <cstring>

#include "common/base/exitpath.h"
#include "common/trace/qzdebug.h"
#include "selftests/selftests.h"

// The options that look after the installation instead of compiling.

// The text after the first "=", which may be missing.
static const char *optionalValue(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    const char *equals = strchr(call.argument, '=');
    return TRACE_RETURN("\"%s\"", equals == nullptr ? nullptr : equals + 1);
}

uint32_t option_selfinit(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    exitpath_leave(selfinit(optionalValue(call)));
}

uint32_t option_selftest(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    exitpath_leave(selftest(optionalValue(call)));
}
