#define MODULE "common/exitpath"
#include "common/base/exitpath.h"

#include <cstdio>
#include <cstdlib>

static ExitRoutine s_routine; // null: exit()
static enum { RUNNING, LEAVING, EXITING } s_state = RUNNING;

void exitpath_setRoutine(ExitRoutine routine)
{
    s_routine = routine;
}

void exitpath_leave(int status)
{
    if (s_state == EXITING)
        std::_Exit(status);
    if (s_state == RUNNING) {
        s_state = LEAVING;
        if (s_routine != nullptr)
            s_routine(status);
    }
    s_state = EXITING;
    std::exit(status); // also when a routine breaks its promise and returns
}

void db_assert(const char *expression, const char *source, int line)
{
    std::fprintf(stderr, "Assertion failed - %s (%s, line %d)\n", expression, source, line);
    exitpath_leave(1);
}
