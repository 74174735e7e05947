// How the program ends: the one exit routine and the report of a broken contract.
//
// Every early end of a run (a fatal message, a malformed option, help that has been printed, a
// broken internal contract) leaves through exitpath_leave(), so that the trace, the package and the
// reports are finished however the run ends:
//
//     exitpath_setRoutine(cleanup);      // once, in main
//     ...
//     exitpath_leave(1);                 // anywhere; does not return
//
// A contract is checked with the number of the check at the call. The number and the module's name
// are part of the printed report and do not change when the code moves:
//
//     #define MODULE "common/vector"     // once, on top of the source file
//     ASSERT_AT(290, p->data != NULL);
#ifndef COMMON_BASE_EXITPATH_H
#define COMMON_BASE_EXITPATH_H

// The exit routine: ends the process with `status` and does not return.
using ExitRoutine = void (*)(int status);

// Installs the routine that exitpath_leave() calls. Null restores the default, the C library's
// exit().
void exitpath_setRoutine(ExitRoutine routine);

// Ends the run with `status` (0-255) through the installed routine. Called again by that routine,
// it goes on with the C library's exit(), so that the handlers registered there (which remove
// temporary files) still run. Called once more (by an exit handler, say), it ends the process at
// once.
[[noreturn]] void exitpath_leave(int status);

// Reports a broken internal contract on standard error as
// "Assertion failed - EXPRESSION (SOURCE, line LINE)" and ends the run with status 1.
// A debugger may break on this name. No argument may be null.
[[noreturn]] void db_assert(const char *expression, const char *source, int line);

// Checks `expression`; when it is false, reports it under the check's fixed number `line`.
// The source file defines MODULE.
#define ASSERT_AT(line, expression) ASSERT_TEXT_AT(line, expression, #expression)

// The same, for a check whose report reads differently from the code that makes it.
#define ASSERT_TEXT_AT(line, expression, text) ASSERT_PLACE_AT(MODULE, line, expression, text)

// The same, for a check whose report names a place other than the module, such as the function.
#define ASSERT_PLACE_AT(place, line, expression, text)                                             \
    do {                                                                                           \
        if (!(expression)) [[unlikely]]                                                            \
            db_assert(text, place, line);                                                          \
    } while (0)

#endif
