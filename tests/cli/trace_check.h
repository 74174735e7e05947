// Checks a trace against the rules for every trace.
#ifndef TESTS_CLI_TRACE_CHECK_H
#define TESTS_CLI_TRACE_CHECK_H

#include <string>

// The faults of the trace, one per line; empty when it has none. Every EXIT belongs to the last
// ENTER that is open. Every line is indented by four columns for each open one. Every location is a
// line of a source file of this checkout; for an ENTER and an EXIT that line has the macro that
// writes it, in the function that is named. Another program may write its own trace in between,
// after its header. Unless the run `endsEarly`, no entry is left open.
std::string trace_faults(const std::string &trace, bool endsEarly);

#endif
