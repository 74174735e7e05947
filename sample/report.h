// The messages of the legacy sample programs, with numbers and in the formats that they were given.
//
//     Report report = {};
//     report_start(&report);                   // formats of the environment, or the defaults
//     report_error(&report, {"a.s", 3, 0}, 1210, "instruction \"%s\" is not known", name);
//     ... return report.errors != 0; ...
//
// The numbers and texts are those of the suite's message file. The host's compiler has no numbers;
// its messages get one of the three below.
#ifndef SAMPLE_REPORT_H
#define SAMPLE_REPORT_H

#include "sample/arena.h"

enum Severity { SEVERITY_ERROR, SEVERITY_WARNING, SEVERITY_ADVISORY, SEVERITY_COUNT };

enum { NUMBER_HOST_ERROR = 5000, NUMBER_HOST_WARNING = 5001, NUMBER_HOST_NOTE = 5002 };

// The place of a message. A null file, and line and column 0, are shown as nothing.
struct Place {
    const char *file;
    unsigned line;
    unsigned column;
};

struct Report {
    const char *formats[SEVERITY_COUNT]; // with %f %l %c %n %s, and any other "%x" for "x"
    int hideWarnings;                    // warnings and advisories are not shown
    int threshold;                       // above 0: as hideWarnings, for warnings of level 0
    unsigned limit;                      // errors shown; 0: all
    unsigned errors;                     // so far
};

// Takes the formats from NVC_ERR_FORMAT, NVC_WARN_FORMAT and NVC_MSG_FORMAT where they are set.
void report_start(Report *report);

// Shows one message on standard error, and counts it when it is an error.
void report_show(Report *report, Severity severity, Place place, unsigned number, const char *text);

[[gnu::format(printf, 4, 5)]] void report_error(Report *report, Place place, unsigned number,
                                                const char *format, ...);

#endif
