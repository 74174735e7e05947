// The developers' debug facility: the "--qzdebug" option, the option that passes it on to a child,
// running a child under the debugger, and the end of a debugged run.
//
//     qzdebug_parse("--qzdebug=on,zip,debug:qzm");        // as soon as the option is seen
//     ...
//     const char *option = qzdebug_childOption(DBC_QZM, "driver");
//     int status = qzdebug_run(program, command, 0);       // lldb when asked for, else directly
//     ...
//     qzdebug_shutdown();                                  // on every way out
//
// The option acts on the trace (common/trace/qzdebug.h) and on the recording of containers. A
// program of the suite other than this driver names itself first, with trace_setApplication().
// Every complaint about the option is a warning, and the rest of the option still applies: the
// facility never changes the status of a build. docs/debugging.md describes it for its users.
#ifndef COMMON_DIAGNOSTICS_QZDEBUG_OPTIONS_H
#define COMMON_DIAGNOSTICS_QZDEBUG_OPTIONS_H

#include <cstdint>

struct Vector;

// Who starts a child: this driver, or the driver that runs the tools of a tool chain, which does
// not pass on the list of debugged programs.
enum DebugCaller : uint32_t {
    DBC_QZM,
    DBC_DRIVER,
};

// Set to 1 by the debugger in a process that it starts.
extern volatile int gInDebugger;

// Configures the facility from the option's text ("--qzdebug=LIST", or LIST alone). Only the first
// call does; the others warn. A null text is a failed check of the debug facility (ignored unless
// gDebugAssertMode says otherwise) and changes nothing.
void qzdebug_parse(const char *text);

// The option, interned, that makes a child of the name `callee` trace as this run does; null when
// there is nothing to pass on. Each call counts as one child of that name.
const char *qzdebug_childOption(DebugCaller caller, const char *callee);

// Notes that the run got as far as starting its work under this name, which qzdebug_shutdown() asks
// for. The string must outlive the run.
void qzdebug_setComponent(const char *name);

// Runs `program` with the arguments of `args` (element 0 is the program as given; null: none) and
// waits for it, under the debugger when its name was given with "debug". `args` is unchanged
// afterwards; `flags` is for systems that have more than one way to start a process, 0 otherwise.
// Returns what osdep_spawn() returns.
int qzdebug_run(const char *program, Vector *args, unsigned flags);

// The end of the run: adds the debug-out file to the package and prints the container reports. May
// leave another directory the current one. Only the first call acts.
void qzdebug_shutdown();

#endif
