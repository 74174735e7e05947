// The debug trace: a readable log of the run for the suite's own developers.
//
// A function that traces begins with TRACE_ENTER and, when it has a result, returns it through
// TRACE_RETURN:
//
//     int fileid_isObject(const char *name)
//     {
//         TRACE_ENTER("name=\"%s\"", name);
//         if (!valid_ext(name, "obj:o"))
//             return TRACE_RETURN("%d", 0);
//         TRACE("found extension \"%s\"", name);
//         ...
//     }
//
// While debugging is off, each costs one load and test of a global word and evaluates no argument.
// They keep errno. The compiler checks every format. The modules that the trace itself is built on
// (memory helpers, containers, string cache, the trace) do not trace.
#ifndef COMMON_TRACE_QZDEBUG_H
#define COMMON_TRACE_QZDEBUG_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>

struct Vector;

// Feature bits of gDebugFlags.
enum DebugFlag : uint32_t {
    DEBUG_TRACE = 1,       // general tracing
    DEBUG_SDB = 2,         // for child tools
    DEBUG_DWARF = 4,       // for child tools
    DEBUG_ALERTS = 8,      // echo every emitted message
    DEBUG_CONTAINERS = 16, // record containers and report on them
};

extern uint32_t gDebugFlags;      // feature mask; 0: debugging is off
extern FILE *gDebugOut;           // the debug-out file; nothing is written while it is null
extern const char *gFilePath;     // path of the debug-out file, interned, or null
extern int gDebugEcho;            // also write everything to /dev/tty
extern FILE *gDebugTty;           // /dev/tty, opened when an echo is first needed
extern uint32_t gDebugAssertMode; // null arguments: 0 ignored, 1 fatal, 2 an error, 3 a warning
extern const char *gAlertSrc;     // where the message being emitted was raised, or null

// Writes "ENTER function(arguments)", then goes one level deeper. The form without a format is for
// functions without arguments.
[[gnu::cold, gnu::noinline]] void trace_enter(const char *src, uint32_t line, const char *function);
[[gnu::cold, gnu::noinline, gnu::format(printf, 4, 5)]] void
trace_enter(const char *src, uint32_t line, const char *function, const char *format, ...);

// Goes one level shallower, then writes "EXIT function() -> result", or "EXIT function()".
[[gnu::cold, gnu::noinline]] void trace_exit(const char *src, uint32_t line, const char *function);
[[gnu::cold, gnu::noinline, gnu::format(printf, 4, 5)]] void
trace_exit(const char *src, uint32_t line, const char *function, const char *format, ...);

// Writes one prefixed line per line of the format; the values go to the first line, later lines are
// written unchanged. trace() takes plain text.
[[gnu::cold, gnu::noinline, gnu::format(printf, 3, 4)]] void tracef(const char *src, uint32_t line,
                                                                    const char *format, ...);
[[gnu::cold, gnu::noinline]] void trace(const char *src, uint32_t line, const char *text);

// Dumps `length` bytes from `address` in rows of `per_row` (0: one row), with their characters when
// wanted. A null address reads as no bytes.
void trace_hexdump(const char *name, const void *address, uint32_t length, uint32_t per_row,
                   int show_chars, const char *src, uint32_t line);

// Echoes a message that is being emitted; the text includes its line end.
void trace_alert(const char *message);

// Calls `emitter(format, values)` with src and line recorded as the place the message comes from.
using TraceEmitter = void (*)(const char *format, va_list values);
[[gnu::format(printf, 4, 5)]] void trace_alertFrom(TraceEmitter emitter, const char *src,
                                                   uint32_t line, const char *format, ...);

// The program that writes the trace ("qzm-cc" at first; the string must outlive the run), and
// whether the header of the argument list names it (it does at first).
void trace_setApplication(const char *name);
const char *trace_application();
void trace_setApplicationHeader(int on);

// Writes the argument list, after the application's header.
void trace_args(Vector *args);
void trace_argv(int argc, char *const *argv);

// Write text and a line end without a prefix.
[[gnu::format(printf, 1, 2)]] void trace_printf(const char *format, ...);
[[gnu::format(printf, 1, 0)]] void trace_vprintf(const char *format, va_list values);
void trace_puts(const char *text);

// Emits the warning "QZDEBUG (warning): TEXT" through the plain message output, also while no
// debug-out file is open. A null format is a null argument and shows as "(null)".
[[gnu::format(printf, 1, 2)]] void qzdebug_warning(const char *format, ...);

// Raises the message that gDebugAssertMode asks for (a fatal one ends the run; nothing in mode 0):
// `expression` was false at the check with the fixed number `line` in `source`. The caller carries
// on. Only for checks whose failure the caller can survive; no argument may be null.
[[gnu::cold, gnu::noinline]] void trace_checkFailed(const char *expression, const char *source,
                                                    uint32_t line);

// Indentation and the width of the location column. The level and the indent saturate; at most
// 65536 blanks are written for either. A width below 4 gives a warning and is stored all the same.
uint32_t trace_indentIn();
uint32_t trace_indentOut();
void trace_setIndentLevel(uint32_t level);
uint32_t trace_indentLevel();
void trace_setIndentStep(uint32_t step);
uint32_t trace_indentStep();
uint32_t trace_indent();
void trace_setWidth(uint32_t width);
uint32_t trace_width();

// How the trace reaches the user. Messages are a layer above it, so the message module defines this
// variable with its functions, as for the hooks in hooks.h. While they are null, a warning goes to
// standard error, and a failed check is not reported.
struct TraceMessages {
    void (*warn)(const char *text); // shows "QZDEBUG (warning): TEXT"
    void (*raise)(uint32_t number, const char *expression, const char *source, uint32_t line);
};
extern TraceMessages gTraceMessages;

// Whether to trace now. QZM_NO_TRACE removes all calls from the program, to measure their cost.
#ifdef QZM_NO_TRACE
#define TRACE_IS_ON false
#else
#define TRACE_IS_ON (gDebugFlags != 0)
#endif

// The name of a source file in trace locations: its file name without folder and extension.
struct TraceSource {
    char name[64] = {};
    template <size_t N> consteval explicit TraceSource(const char (&path)[N])
    {
        size_t begin = 0;
        for (size_t i = 0; i < N; ++i)
            if (path[i] == '/' || path[i] == '\\')
                begin = i + 1;
        for (size_t i = begin; i < N && path[i] != '.'; ++i)
            name[i - begin] = path[i];
    }
};
static constexpr TraceSource TRACE_SOURCE(__BASE_FILE__);

// A traced entry whose exit has not been traced yet. Its destructor traces the exit of a function
// that returns nothing.
struct TraceScope {
    const char *source;
    const char *function;
    uint32_t line;
    bool open;

    ~TraceScope()
    {
        if (open) [[unlikely]]
            trace_exit(source, line, function);
    }
};

// Traces the entry and, for a function that returns nothing, the exit, at the same location. The
// exit is traced only if the entry was.
#define TRACE_ENTER(...)                                                                           \
    TraceScope traceScope_ = {TRACE_SOURCE.name, __func__, __LINE__, TRACE_IS_ON};                 \
    if (traceScope_.open) [[unlikely]]                                                             \
    trace_enter(TRACE_SOURCE.name, __LINE__, __func__ __VA_OPT__(, ) __VA_ARGS__)

// The value as passed to the formatter. A null string is a value like any other here (it shows as
// "(null)"), so the compiler must not warn where it can see that null is returned.
template <class T> inline T trace_shown(T value)
{
    volatile T shown = value;
    return shown;
}

// Traces the result with `format`; the expression's value is that result. The value is evaluated
// once.
#define TRACE_RETURN(format, value)                                                                \
    __extension__({                                                                                \
        auto traceResult_ = (value);                                                               \
        if (traceScope_.open) [[unlikely]] {                                                       \
            traceScope_.open = false;                                                              \
            trace_exit(TRACE_SOURCE.name, __LINE__, __func__, format, trace_shown(traceResult_));  \
        }                                                                                          \
        traceResult_;                                                                              \
    })

// Writes a free-form trace line.
#define TRACE(...)                                                                                 \
    do {                                                                                           \
        if (TRACE_IS_ON) [[unlikely]]                                                              \
            tracef(TRACE_SOURCE.name, __LINE__, __VA_ARGS__);                                      \
    } while (0)

#endif
