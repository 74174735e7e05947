// Linked into the tracing twin of the program: switches the trace on before main begins. The trace
// goes to the file that the environment variable QZM_TRACE names.
#include "common/qzdebug.h"

#include <cstdlib>

[[gnu::constructor]] static void trace_on()
{
    const char *path = getenv("QZM_TRACE");
    if (path == nullptr)
        return;
    gDebugOut = fopen(path, "w");
    unsetenv("QZM_TRACE"); // the programs that it runs are not to write into the same file
    gDebugFlags = DEBUG_TRACE;
}
