#define MODULE "common/exitpath"
#include "common/exitpath.h"

#include <cstdio>
#include <cstdlib>

static ExitRoutine s_routine; // null: exit()
static bool s_leaving;

void exitpath_setRoutine(ExitRoutine routine)
{
    s_routine = routine;
}

void exitpath_leave(int status)
{
    if (s_leaving)
        std::_Exit(status);
    s_leaving = true;
    if (s_routine != nullptr)
        s_routine(status);
    std::exit(status); // also for a routine that breaks its promise and returns
}

void db_assert(const char *expression, const char *source, int line)
{
    std::fprintf(stderr, "Assertion failed - %s (%s, line %d)\n", expression, source, line);
    exitpath_leave(1);
}
