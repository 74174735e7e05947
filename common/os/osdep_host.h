// The host, its clocks, and the environment. Strings that a function returns are new and the
// caller's to free() unless it says otherwise.
#ifndef COMMON_OS_OSDEP_HOST_H
#define COMMON_OS_OSDEP_HOST_H

#include <cstddef>
#include <cstdint>

#include "common/text/osdep_path.h" // OsFlag

// "SYSTEM RELEASE VERSION MACHINE" of the running kernel, or "??Error: ..."; and the flags.
// Computed once; the text is not the caller's to free.
const char *osdep_osInfo();
uint32_t osdep_osFlags();

// The longest command line, in characters, that the host accepts.
size_t osdep_maxCommandLine();

// The number of processors, at least 1. With the hint, a build server's advertised capability
// ("bamboo_capability_Cores") takes precedence when it is a non-zero number.
int osdep_numCores(int useBuildServerHint);

// The host's name; "localhost" when it cannot be read.
char *osdep_hostName();

// The path of the running executable, or null.
char *osdep_exePath();

// The current directory; null when it is unknown or longer than 20,479 characters.
char *osdep_cwd();

// Sets an environment variable for this process and its children; a null value counts as empty. 0
// on success or for a null name, else non-zero. Both are copied into one string that belongs to the
// environment and is never freed, not even when the variable is set again.
int osdep_setenv(const char *name, const char *value);

// A point in time: whole seconds and the fraction of one.
struct OsdepTime {
    int64_t seconds;
    int64_t fraction; // microseconds of the wall clock, nanoseconds of the process's own time
};

// The wall clock, counted from 1970; and the processor time that this process has used.
OsdepTime osdep_wallTime();
OsdepTime osdep_cpuTime();

#endif
