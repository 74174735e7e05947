// The hooks by which the lowest layer tells the layers above it, which it does not know, that
// memory is exhausted, a check has failed, or a container has a line for the trace.
//
// Each hook is a variable, weakly defined as null here. The module that handles it defines it again
// with its function as the initial value, and the linker takes that definition. So nothing has to
// be set when the program starts, and a program without the module still links.
#ifndef COMMON_BASE_HOOKS_H
#define COMMON_BASE_HOOKS_H

#include <cstdarg>
#include <cstdint>

// Memory is exhausted. The hook reports it, which need not end the run. Null: no report.
using MemoryExhaustedHook = void (*)();
extern MemoryExhaustedHook gMemoryExhausted;

// `expression` was false at the check with the fixed number `line` in `source`, which carries on
// all the same. Null: no report.
using CheckFailedHook = void (*)(const char *expression, const char *source, uint32_t line);
extern CheckFailedHook gCheckFailed;

// A recorded container has a line for the trace, located at `file` and `line`; with a null file the
// line has no location. Null: no trace.
using ContainerTraceHook = void (*)(const char *file, uint32_t line, const char *format,
                                    va_list values);
extern ContainerTraceHook gContainerTrace;

// Calls the last of them.
[[gnu::cold, gnu::noinline, gnu::format(printf, 3, 4)]] void
container_trace(const char *file, uint32_t line, const char *format, ...);

#endif
