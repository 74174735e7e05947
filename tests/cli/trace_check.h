// Holds a trace to what every trace must be.
#ifndef TESTS_CLI_TRACE_CHECK_H
#define TESTS_CLI_TRACE_CHECK_H

#include <string>

// What is wrong with the trace, a line each; empty when nothing is. Every EXIT belongs to the last
// ENTER that is open; every line is indented by four columns for each; and every location is a line
// of a source file of this checkout, which for an ENTER and an EXIT has the macro that writes it,
// in the function that is named. Another program may write its own trace in between, behind its
// header. Unless the run `endsEarly`, no entry is left open.
std::string trace_faults(const std::string &trace, bool endsEarly);

#endif
