#define MODULE "common/alert"
#include <cstdlib>
#include <cstring>

#include "common/base/stringcache.h"
#include "common/diagnostics/alert_internal.h"
#include "common/trace/qzdebug.h"

static constexpr const char *NO_LINE = "Non line specific message";

constinit AlertSettings gAlertSettings = {};

namespace {
// A text under construction; the part that does not fit is dropped.
struct Output {
    char *data;
    size_t size; // characters that fit, without the final zero
    size_t used;
};
} // namespace

static void addPart(Output *output, const char *text, size_t length)
{
    const size_t room = output->size - output->used;
    const size_t taken = length < room ? length : room;
    std::memcpy(output->data + output->used, text, taken);
    output->used += taken;
    output->data[output->used] = '\0';
}

static void addText(Output *output, const char *text)
{
    if (text != nullptr)
        addPart(output, text, std::strlen(text));
}

static void addNumber(Output *output, uint32_t number)
{
    char digits[16];
    addPart(output, digits,
            static_cast<size_t>(std::snprintf(digits, sizeof digits, "%u", number)));
}

static void addSystemError(Output *output, int systemError)
{
    if (systemError != 0)
        addText(output, std::strerror(systemError));
}

// ---- Formats ----------------------------------------------------------------------------------

namespace {
struct FormatSource {
    const char *variable; // of the environment
    const char *text;     // the default
};
} // namespace

static constexpr FormatSource FORMAT_SOURCES[ALERT_FORMAT_COUNT] = {
    {"NVC_ERR_FORMAT", "%f: %l: (%n) %s (error)"},
    {"NVC_WARN_FORMAT", "%f: %l: (%n) %s (warning)"},
    {"NVC_MSG_FORMAT", "%f: %l: %s"},
};

void alert_chooseFormat(AlertFormat which, const char *text)
{
    TRACE_ENTER("which=%u, text=\"%s\"", which, text != nullptr ? text : "(null)");
    const FormatSource *source = &FORMAT_SOURCES[which];
    // Interning a text can itself raise a message, which then needs a format.
    gAlertSettings.formats[which] = source->text;
    const char *environment = std::getenv(source->variable);
    if (environment != nullptr)
        gAlertSettings.formats[which] = cache_string(environment);
    else if (text != nullptr)
        gAlertSettings.formats[which] = cache_string(text);
}

const char *alert_format(AlertFormat which)
{
    TRACE_ENTER("which=%u", which);
    if (gAlertSettings.formats[which] == nullptr)
        alert_chooseFormat(which, nullptr);
    return TRACE_RETURN("\"%s\"", gAlertSettings.formats[which]);
}

static AlertFormat formatOf(uint32_t kind)
{
    switch (kind) {
    case ALERT_FATAL:
    case ALERT_ERROR:
        return ALERT_FORMAT_ERROR;
    case ALERT_MESSAGE:
        return ALERT_FORMAT_MESSAGE;
    default:
        return ALERT_FORMAT_WARNING;
    }
}

// ---- The message's own text -------------------------------------------------------------------

// Adds the system's error text to a format, with its percent signs escaped.
static void addEscapedSystemError(Output *output, int systemError)
{
    const char *at = systemError != 0 ? std::strerror(systemError) : "";
    for (; *at != '\0' && output->size - output->used >= 2; ++at)
        addPart(output, *at == '%' ? "%%" : at, *at == '%' ? 2 : 1);
}

// Copies `format` with "%m" replaced. Conversions are copied whole or not at all: half of one would
// spoil the whole text.
static void expandSystemError(Output *output, const char *format, int systemError)
{
    TRACE_ENTER("format=\"%s\", systemError=%d", format, systemError);
    while (*format != '\0') {
        const size_t plain = std::strcspn(format, "%");
        addPart(output, format, plain);
        format += plain;
        if (*format == '\0')
            break;
        if (format[1] == 'm') {
            addEscapedSystemError(output, systemError);
            format += 2;
            continue;
        }
        const char *end = alert_conversionEnd(format);
        if (end == nullptr || static_cast<size_t>(end - format) > output->size - output->used)
            break;
        addPart(output, format, static_cast<size_t>(end - format));
        format = end;
    }
}

// Formats into the rest of `output`.
[[gnu::format(printf, 2, 0)]] static void addFormatted(Output *output, const char *format,
                                                       va_list values)
{
    const size_t room = output->size - output->used;
    const int needed = std::vsnprintf(output->data + output->used, room + 1, format, values);
    if (needed > 0)
        output->used += static_cast<size_t>(needed) < room ? static_cast<size_t>(needed) : room;
    output->data[output->used] = '\0';
}

// The format is the caller's, or a catalogue's text with the conversions of the built-in one; only
// "%m" has been replaced in it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
static void addExpanded(Output *output, const char *format, va_list values)
{
    addFormatted(output, format, values);
}
#pragma GCC diagnostic pop

[[gnu::format(printf, 3, 0)]] static void makeText(Output *output, const AlertMessage *message,
                                                   const char *format, va_list values)
{
    TRACE_ENTER("number=%u, format=\"%s\"", message->number, format);
    if (!gAlertSettings.formatMode && message->kind != ALERT_MESSAGE) {
        addText(output, "(");
        addNumber(output, message->number);
        addText(output, ") ");
    }
    // Longer than the text can become, so that a cut here is never visible.
    char expanded[4 * ALERT_TEXT_LENGTH];
    Output expansion = {expanded, sizeof expanded - 1, 0};
    expanded[0] = '\0';
    expandSystemError(&expansion, format, message->systemError);
    addExpanded(output, expanded, values);
}

// ---- The two forms ----------------------------------------------------------------------------

static void addFixedForm(Output *output, const AlertMessage *message, const char *text)
{
    TRACE_ENTER("text=\"%s\"", text);
    const AlertSettings *settings = &gAlertSettings;
    if (settings->file != nullptr) {
        addText(output, message->noLine ? NO_LINE : settings->file);
        addText(output, ": ");
    }
    if (settings->lineRef != nullptr && !message->noLine) {
        addNumber(output, *settings->lineRef);
        addText(output, ": ");
    }
    addText(output, text);
    if (formatOf(message->kind) == ALERT_FORMAT_WARNING)
        addText(output, " (warning)");
}

static void addColumn(Output *output)
{
    const AlertSettings *settings = &gAlertSettings;
    if (settings->lineStartRef == nullptr || settings->currentRef == nullptr)
        return;
    const uintptr_t start = reinterpret_cast<uintptr_t>(*settings->lineStartRef);
    const uintptr_t current = reinterpret_cast<uintptr_t>(*settings->currentRef);
    addNumber(output, static_cast<uint32_t>(current - start));
}

static void addPlaceholder(Output *output, char placeholder, const AlertMessage *message,
                           const char *text)
{
    switch (placeholder) {
    case 'f':
        return addText(output, message->noLine ? NO_LINE : gAlertSettings.file);
    case 'l':
        if (gAlertSettings.lineRef != nullptr && !message->noLine)
            addNumber(output, *gAlertSettings.lineRef);
        return;
    case 'c':
        return addColumn(output);
    case 'n':
        return addNumber(output, message->number);
    case 's':
        return addText(output, text);
    case 'a':
        return addText(output, gAlertSettings.program);
    case 'm':
        return addSystemError(output, message->systemError);
    default:
        return addPart(output, &placeholder, 1);
    }
}

static void addUserForm(Output *output, const AlertMessage *message, const char *text)
{
    TRACE_ENTER("text=\"%s\"", text);
    const char *format = alert_format(formatOf(message->kind));
    while (*format != '\0') {
        const size_t plain = std::strcspn(format, "%");
        addPart(output, format, plain);
        format += plain;
        if (format[0] == '\0' || format[1] == '\0')
            break;
        addPlaceholder(output, format[1], message, text);
        format += 2;
    }
}

void alert_render(const AlertMessage *message, const char *format, va_list values)
{
    TRACE_ENTER("number=%u, kind=%u, format=\"%s\"", message->number, message->kind, format);
    char text[ALERT_TEXT_LENGTH + 1] = "";
    Output own = {text, ALERT_TEXT_LENGTH, 0};
    makeText(&own, message, format, values);

    char shown[ALERT_OUTPUT_LENGTH + 1];
    shown[0] = '\0';
    Output output = {shown, ALERT_OUTPUT_LENGTH - 1, 0}; // the line end always fits
    if (gAlertSettings.formatMode)
        addUserForm(&output, message, text);
    else
        addFixedForm(&output, message, text);
    output.size = ALERT_OUTPUT_LENGTH;
    addText(&output, "\n");
    alert_emit(shown, output.used);
}

// ---- Output -----------------------------------------------------------------------------------
//
// The trace's own warnings come through here, so these functions do not trace, and warnings about
// the echo are not echoed.

void alert_emit(const char *text, size_t length)
{
    static bool echoing;
    if ((gDebugFlags & DEBUG_ALERTS) != 0 && !echoing) {
        echoing = true;
        trace_alert(text);
        echoing = false;
    }
    if (gAlertSettings.hook != nullptr) {
        gAlertSettings.hook(text);
        return;
    }
    std::fwrite(text, 1, length, stderr);
    std::fflush(stderr);
}

void alert_vprint(const char *format, va_list values)
{
    char text[ALERT_OUTPUT_LENGTH + 1];
    Output output = {text, ALERT_OUTPUT_LENGTH, 0};
    addFormatted(&output, format, values);
    addText(&output, "\n");
    alert_emit(text, output.used);
}

void alert_print(const char *format, ...)
{
    va_list values;
    va_start(values, format);
    alert_vprint(format, values);
    va_end(values);
}
