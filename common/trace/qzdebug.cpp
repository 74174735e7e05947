#define MODULE "common/qzdebug"

#include "common/trace/qzdebug.h"

#include <cerrno>
#include <cstring>

#include "common/base/hooks.h"
#include "common/base/stringcache.h"
#include "common/base/vector.h"

uint32_t gDebugFlags = 0;
FILE *gDebugOut = nullptr;
const char *gFilePath = nullptr;
int gDebugEcho = 0;
FILE *gDebugTty = nullptr;
uint32_t gDebugAssertMode = 0;
const char *gAlertSrc = nullptr;
[[gnu::weak]] constinit TraceMessages gTraceMessages = {};

static constexpr uint32_t DEFAULT_WIDTH = 20;
static constexpr uint32_t MINIMUM_WIDTH = 4;

// More blanks than this are of no use to a reader, and a saturated indent would be gigabytes.
static constexpr uint32_t MOST_BLANKS = 65536;

static const char *s_application = "qzm-cc";
static bool s_applicationHeader = true;
static uint32_t s_alertLine = 0;
static uint32_t s_width = DEFAULT_WIDTH;
static uint32_t s_step = 4;
static uint32_t s_level = 0;
static uint32_t s_indent = 0;

// Set while this module emits a complaint: the message functions trace as well, so one complaint
// could otherwise cause the next without end.
static bool s_complaining = false;

// ---- Writing ----------------------------------------------------------------------------------

// The terminal to echo to, or null. A terminal that cannot be opened is not tried again.
static FILE *echoStream()
{
    static bool tried = false;
    if (gDebugEcho == 0)
        return nullptr;
    if (gDebugTty == nullptr && !tried) {
        tried = true;
        gDebugTty = fopen("/dev/tty", "w");
    }
    return gDebugTty;
}

// Returns the number of characters, or a negative number when writing failed.
[[gnu::format(printf, 1, 0)]] static int putValues(const char *format, va_list values)
{
    FILE *tty = echoStream();
    if (tty != nullptr) {
        va_list copy;
        va_copy(copy, values);
        (void)vfprintf(tty, format, copy);
        va_end(copy);
    }
    return vfprintf(gDebugOut, format, values);
}

[[gnu::format(printf, 1, 2)]] static int put(const char *format, ...)
{
    va_list values;
    va_start(values, format);
    int length = putValues(format, values);
    va_end(values);
    return length;
}

// Every operation ends here, so that the log is complete when the program crashes, and errno is
// unchanged.
static void finish(int savedErrno)
{
    if (gDebugEcho != 0 && gDebugTty != nullptr)
        (void)fflush(gDebugTty);
    (void)fflush(gDebugOut);
    errno = savedErrno;
}

static const char *shown(const char *text)
{
    return text != nullptr ? text : "(null)";
}

static int blanks(uint32_t count)
{
    return static_cast<int>(count < MOST_BLANKS ? count : MOST_BLANKS);
}

static void putPrefix(const char *src, uint32_t line)
{
    const char *name = shown(src);
    const char *slash = strrchr(name, '/');
    int width = blanks(s_width);
    int used = put("%s:%d", slash != nullptr ? slash + 1 : name, static_cast<int>(line));
    put("%*s> %*s", used < 0 || used >= width ? 0 : width - used, "", blanks(s_indent), "");
}

// ---- Complaints -------------------------------------------------------------------------------

namespace {
// The message functions trace as well; this saves the indentation from their changes.
struct ComplaintState {
    bool complaining;
    uint32_t level;
    uint32_t indent;
    int savedErrno;
};
} // namespace

static ComplaintState complaintBegin()
{
    ComplaintState before = {s_complaining, s_level, s_indent, errno};
    s_complaining = true;
    return before;
}

static void complaintEnd(const ComplaintState &before)
{
    s_complaining = before.complaining;
    s_level = before.level;
    s_indent = before.indent;
    errno = before.savedErrno;
}

// Messages are cut at 8191 characters in any case.
[[gnu::format(printf, 1, 0)]] static void emitWarning(const char *format, va_list values)
{
    char text[8192];
    ComplaintState before = complaintBegin();
    if (vsnprintf(text, sizeof text, format, values) < 0)
        text[0] = '\0';
    if (gTraceMessages.warn != nullptr)
        gTraceMessages.warn(text);
    else
        fprintf(stderr, "QZDEBUG (warning): %s\n", text);
    complaintEnd(before);
}

// A complaint of the trace itself. It is dropped inside another complaint, unlike
// qzdebug_warning(), which other modules call and which is always shown (even on the way out after
// a fatal complaint).
[[gnu::format(printf, 1, 2)]] static void complain(const char *format, ...)
{
    if (s_complaining)
        return;
    va_list values;
    va_start(values, format);
    emitWarning(format, values);
    va_end(values);
}

void trace_checkFailed(const char *expression, const char *source, uint32_t line)
{
    static const uint32_t numbers[] = {0, 1503, 1502, 1501};
    if (gDebugAssertMode == 0 || gDebugAssertMode >= sizeof numbers / sizeof numbers[0])
        return;
    if (s_complaining || gTraceMessages.raise == nullptr)
        return;
    ComplaintState before = complaintBegin();
    gTraceMessages.raise(numbers[gDebugAssertMode], expression, source, line);
    complaintEnd(before);
}

// The checks of containers follow the same mode.
constinit CheckFailedHook gCheckFailed = trace_checkFailed;

static void check(bool holds, const char *expression, uint32_t line)
{
    if (!holds) [[unlikely]]
        trace_checkFailed(expression, MODULE, line);
}

void qzdebug_warning(const char *format, ...)
{
    check(format != nullptr, "fmt != NULL", 130);
    va_list values;
    va_start(values, format);
    emitWarning(format != nullptr ? format : "(null)", values);
    va_end(values);
}

// ---- Indentation ------------------------------------------------------------------------------

static uint32_t saturated(uint64_t columns)
{
    return columns > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(columns);
}

uint32_t trace_indentIn()
{
    if (s_level == UINT32_MAX)
        complain("max debug-out indent level readched");
    else
        s_level++;
    s_indent = saturated(uint64_t{s_indent} + s_step);
    return s_indent;
}

uint32_t trace_indentOut()
{
    if (s_level == 0)
        complain("min debug-out indent level reached");
    else
        s_level--;
    s_indent -= s_indent < s_step ? s_indent : s_step;
    return s_indent;
}

void trace_setIndentLevel(uint32_t level)
{
    s_level = level;
    s_indent = saturated(uint64_t{level} * s_step);
}

uint32_t trace_indentLevel()
{
    return s_level;
}

void trace_setIndentStep(uint32_t step)
{
    s_step = step;
    s_indent = saturated(uint64_t{step} * s_level);
}

uint32_t trace_indentStep()
{
    return s_step;
}

uint32_t trace_indent()
{
    return s_indent;
}

void trace_setWidth(uint32_t width)
{
    check(width != 0, "width != 0", 10);
    if (width < MINIMUM_WIDTH)
        complain("desired trace width (%u) is < default (%u)", width, DEFAULT_WIDTH);
    s_width = width;
}

uint32_t trace_width()
{
    return s_width;
}

// ---- Entries and exits ------------------------------------------------------------------------

static void enterBegin(const char *src, uint32_t line, const char *function)
{
    check(src != nullptr, "src != NULL", 20);
    check(function != nullptr, "func != NULL", 21);
    putPrefix(src, line);
    put("ENTER %s(", shown(function));
}

static void enterEnd(int savedErrno)
{
    put(")\n");
    trace_indentIn();
    finish(savedErrno);
}

void trace_enter(const char *src, uint32_t line, const char *function)
{
    if (gDebugOut == nullptr)
        return;
    const int savedErrno = errno;
    enterBegin(src, line, function);
    enterEnd(savedErrno);
}

void trace_enter(const char *src, uint32_t line, const char *function, const char *format, ...)
{
    if (gDebugOut == nullptr)
        return;
    const int savedErrno = errno;
    enterBegin(src, line, function);
    if (format != nullptr) {
        va_list values;
        va_start(values, format);
        putValues(format, values);
        va_end(values);
    }
    enterEnd(savedErrno);
}

static void exitBegin(const char *src, uint32_t line, const char *function)
{
    check(src != nullptr, "src != NULL", 30);
    check(function != nullptr, "func != NULL", 31);
    trace_indentOut();
    putPrefix(src, line);
    put("EXIT %s()", shown(function));
}

static void exitEnd(int savedErrno)
{
    put("\n");
    finish(savedErrno);
}

void trace_exit(const char *src, uint32_t line, const char *function)
{
    if (gDebugOut == nullptr)
        return;
    const int savedErrno = errno;
    exitBegin(src, line, function);
    exitEnd(savedErrno);
}

void trace_exit(const char *src, uint32_t line, const char *function, const char *format, ...)
{
    if (gDebugOut == nullptr)
        return;
    const int savedErrno = errno;
    exitBegin(src, line, function);
    if (format != nullptr) {
        va_list values;
        va_start(values, format);
        put(" -> ");
        putValues(format, values);
        va_end(values);
    }
    exitEnd(savedErrno);
}

// ---- Lines ------------------------------------------------------------------------------------

static void putLine(const char *src, uint32_t line, const char *text)
{
    putPrefix(src, line);
    put("%s\n", text);
}

[[gnu::format(printf, 3, 0)]] static void putLineValues(const char *src, uint32_t line,
                                                        const char *format, va_list values)
{
    putPrefix(src, line);
    putValues(format, values);
    put("\n");
}

// Only the first line is used as a format; the others are plain text.
[[gnu::format(printf, 3, 0)]] static void putLinesValues(const char *src, uint32_t line,
                                                         const char *format, va_list values)
{
    Vector *lines = cache_split(format, "\n");
    if (vec_size(lines) == 0)
        complain("tracef (at %s:%d) contains no lines", shown(src), static_cast<int>(line));
    for (uint32_t i = 0; i < vec_size(lines); i++) {
        const char *text = static_cast<const char *>(vec_elementAt(lines, i));
        if (i > 0) {
            putLine(src, line, text);
            continue;
        }
        // A piece of a format that the compiler has checked at the call.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        putLineValues(src, line, text, values);
#pragma GCC diagnostic pop
    }
    vec_destroy(lines);
}

// A single line, as nearly every trace is, needs no splitting.
static bool isSingleLine(const char *text)
{
    return text[0] != '\0' && strchr(text, '\n') == nullptr;
}

[[gnu::format(printf, 3, 0)]] static void traceLines(const char *src, uint32_t line,
                                                     const char *format, va_list values)
{
    if (gDebugOut == nullptr)
        return;
    const int savedErrno = errno;
    check(src != nullptr, "src != NULL", 40);
    check(format != nullptr, "fmt != NULL", 41);
    if (format != nullptr && isSingleLine(format))
        putLineValues(src, line, format, values);
    else
        putLinesValues(src, line, format != nullptr ? format : "\n", values);
    finish(savedErrno);
}

void tracef(const char *src, uint32_t line, const char *format, ...)
{
    va_list values;
    va_start(values, format);
    traceLines(src, line, format, values);
    va_end(values);
}

void trace(const char *src, uint32_t line, const char *text)
{
    if (gDebugOut == nullptr)
        return;
    const int savedErrno = errno;
    check(src != nullptr, "src != NULL", 50);
    check(text != nullptr, "txt != NULL", 51);
    Vector *lines = cache_split(text != nullptr ? text : "", "\n");
    if (vec_size(lines) == 0)
        complain("trace (at %s:%d) contains no lines", shown(src), static_cast<int>(line));
    for (const char *single : vec_each<const char>(lines))
        putLine(src, line, single);
    vec_destroy(lines);
    finish(savedErrno);
}

void trace_vprintf(const char *format, va_list values)
{
    if (gDebugOut == nullptr)
        return;
    const int savedErrno = errno;
    check(format != nullptr, "fmt != NULL", 60);
    putValues(format != nullptr ? format : "(null)", values);
    put("\n");
    finish(savedErrno);
}

[[gnu::format(printf, 3, 0)]] static void traceContainer(const char *file, uint32_t line,
                                                         const char *format, va_list values)
{
    if (file != nullptr)
        traceLines(file, line, format, values);
    else
        trace_vprintf(format, values);
}

constinit ContainerTraceHook gContainerTrace = traceContainer;

void trace_printf(const char *format, ...)
{
    va_list values;
    va_start(values, format);
    trace_vprintf(format, values);
    va_end(values);
}

void trace_puts(const char *text)
{
    if (gDebugOut == nullptr)
        return;
    const int savedErrno = errno;
    check(text != nullptr, "str != NULL", 70);
    put("%s\n", shown(text));
    finish(savedErrno);
}

// ---- Hex dump ---------------------------------------------------------------------------------

// One row of `count` bytes; it is filled up to `columns` when characters follow.
static void putRow(const unsigned char *bytes, uint32_t count, uint32_t columns, int show_chars)
{
    for (uint32_t i = 0; i < count; i++)
        put(" %02X", static_cast<unsigned>(bytes[i]));
    if (show_chars == 0)
        return;
    for (uint32_t i = count; i < columns; i++)
        put("   ");
    put(" |");
    for (uint32_t i = 0; i < count; i++)
        put("%c", bytes[i] < 32 || bytes[i] > 126 ? '.' : static_cast<int>(bytes[i]));
}

static void putRows(const unsigned char *bytes, uint32_t length, uint32_t per_row, int show_chars,
                    const char *src, uint32_t line)
{
    for (uint32_t done = 0; done < length;) {
        uint32_t count = length - done < per_row ? length - done : per_row;
        put("\n");
        putPrefix(src, line);
        put("%p |", static_cast<const void *>(bytes + done));
        putRow(bytes + done, count, per_row, show_chars);
        done += count;
    }
}

void trace_hexdump(const char *name, const void *address, uint32_t length, uint32_t per_row,
                   int show_chars, const char *src, uint32_t line)
{
    if (gDebugOut == nullptr)
        return;
    const int savedErrno = errno;
    check(name != nullptr, "name != NULL", 80);
    check(address != nullptr, "addr != NULL", 81);
    check(src != nullptr, "src != NULL", 82);
    const unsigned char *bytes = static_cast<const unsigned char *>(address);
    putPrefix(src, line);
    put("Hexdump: %s (%p)", shown(name), address);
    if (length == 0 || bytes == nullptr) {
        put(" zero bytes");
    } else if (per_row >= length || per_row == 0) {
        put(" |");
        putRow(bytes, length, length, show_chars);
    } else {
        putRows(bytes, length, per_row, show_chars, src, line);
    }
    put("\n");
    finish(savedErrno);
}

// ---- Messages ---------------------------------------------------------------------------------

void trace_alert(const char *message)
{
    if (gDebugOut == nullptr)
        return;
    const int savedErrno = errno;
    check(message != nullptr, "msg != NULL", 90);
    if (s_alertLine != 0) {
        check(gAlertSrc != nullptr, "gAlertSrc != NULL", 91);
        putPrefix(gAlertSrc, s_alertLine);
        put("%s", shown(message));
    } else {
        put("ALERT> %s", shown(message));
    }
    finish(savedErrno);
}

void trace_alertFrom(TraceEmitter emitter, const char *src, uint32_t line, const char *format, ...)
{
    check(emitter != nullptr, "alert_func != NULL", 100);
    check(src != nullptr, "src != NULL", 101);
    gAlertSrc = src;
    s_alertLine = line;
    if (emitter != nullptr) {
        va_list values;
        va_start(values, format);
        emitter(format, values);
        va_end(values);
    }
    s_alertLine = 0;
}

// ---- Argument lists ---------------------------------------------------------------------------

void trace_setApplication(const char *name)
{
    s_application = name;
}

const char *trace_application()
{
    return s_application;
}

void trace_setApplicationHeader(int on)
{
    s_applicationHeader = on != 0;
}

void trace_args(Vector *args)
{
    if (gDebugOut == nullptr)
        return;
    const int savedErrno = errno;
    check(args != nullptr, "args != NULL", 110);
    if (s_applicationHeader)
        put("\nAPP: %s\n", s_application);
    put("ARGS:");
    for (const char *argument : vec_each<const char>(args))
        put(" %s", shown(argument));
    if (vec_size(args) == 0)
        put(" None");
    put("\n");
    finish(savedErrno);
}

void trace_argv(int argc, char *const *argv)
{
    if (gDebugOut == nullptr)
        return;
    const int savedErrno = errno;
    check(argv != nullptr, "argv != NULL", 120);
    Vector *args = vec_new(MODULE, __LINE__);
    for (int i = 0; argv != nullptr && i < argc; i++)
        vec_add(args, argv[i]);
    trace_args(args);
    vec_destroy(args);
    errno = savedErrno;
}
