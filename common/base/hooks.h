// What the lowest layer has to say to the ones above it, which it does not know: memory is used up,
// a check did not hold, a container has something for the trace.
//
// Each hook is a variable with a weak definition here that says nothing. The module that answers it
// defines it again with its function as the initial value, and the linker takes that one: nothing
// has to be set when the program starts, and a program without the module still links.
#ifndef COMMON_BASE_HOOKS_H
#define COMMON_BASE_HOOKS_H

#include <cstdarg>
#include <cstdint>

// Memory is used up. The hook reports that, which need not end the run. Null: nobody reports.
using MemoryExhaustedHook = void (*)();
extern MemoryExhaustedHook gMemoryExhausted;

// `expression` did not hold at the check with the fixed number `line` in `source`, which carries on
// all the same. Null: nobody wants to know.
using CheckFailedHook = void (*)(const char *expression, const char *source, uint32_t line);
extern CheckFailedHook gCheckFailed;

// A recorded container has a line for the trace, located at `file` and `line`; with a null file the
// line has no location. Null: nobody traces.
using ContainerTraceHook = void (*)(const char *file, uint32_t line, const char *format,
                                    va_list values);
extern ContainerTraceHook gContainerTrace;

// Calls the last of them.
[[gnu::cold, gnu::noinline, gnu::format(printf, 3, 4)]] void
container_trace(const char *file, uint32_t line, const char *format, ...);

#endif
