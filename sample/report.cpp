#include "sample/report.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

static const struct {
    const char *variable;
    const char *format;
} DEFAULTS[SEVERITY_COUNT] = {
    {"NVC_ERR_FORMAT", "%f: %l: (%n) %s (error)"},
    {"NVC_WARN_FORMAT", "%f: %l: (%n) %s (warning)"},
    {"NVC_MSG_FORMAT", "%f: %l: %s"},
};

void report_start(Report *report)
{
    for (int i = 0; i < SEVERITY_COUNT; i++) {
        const char *value = getenv(DEFAULTS[i].variable);
        report->formats[i] = value != nullptr ? value : DEFAULTS[i].format;
    }
}

static void addNumber(Buffer *line, unsigned value)
{
    if (value != 0)
        buffer_print(line, "%u", value);
}

static void addPlaceholder(Buffer *line, char letter, Place place, unsigned number,
                           const char *text)
{
    switch (letter) {
    case 'f':
        buffer_print(line, "%s", place.file == nullptr ? "" : place.file);
        break;
    case 'l':
        addNumber(line, place.line);
        break;
    case 'c':
        addNumber(line, place.column);
        break;
    case 'n':
        buffer_print(line, "%u", number);
        break;
    case 's':
        buffer_print(line, "%s", text);
        break;
    default:
        buffer_add(line, &letter, 1);
    }
}

void report_show(Report *report, Severity severity, Place place, unsigned number, const char *text)
{
    if (severity != SEVERITY_ERROR && (report->hideWarnings || report->threshold > 0))
        return;
    if (severity == SEVERITY_ERROR && report->errors++ >= report->limit && report->limit != 0)
        return;
    Buffer line = {};
    for (const char *at = report->formats[severity]; *at != 0; at++) {
        if (*at != '%')
            buffer_add(&line, at, 1);
        else if (at[1] != 0)
            addPlaceholder(&line, *++at, place, number, text);
    }
    fprintf(stderr, "%s\n", buffer_text(&line));
}

void report_error(Report *report, Place place, unsigned number, const char *format, ...)
{
    va_list values;
    va_start(values, format);
    char text[1024];
    vsnprintf(text, sizeof text, format, values);
    va_end(values);
    report_show(report, SEVERITY_ERROR, place, number, text);
}
