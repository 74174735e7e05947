// Shared by the three files of the message system: alert.cpp raises and keeps the settings,
// alert_table.cpp reads message files into tables, alert_render.cpp turns a raised message into the
// text that is shown. Nobody else includes this, tests and the fuzzer aside.
#ifndef COMMON_DIAGNOSTICS_ALERT_INTERNAL_H
#define COMMON_DIAGNOSTICS_ALERT_INTERNAL_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "common/diagnostics/alert.h"

// ---- Message files ----------------------------------------------------------------------------
//
// The format is docs/message-file.md; the tests AlertFileFormat in
// tests/common/diagnostics/alert_file_test.cpp pin it.

constexpr uint32_t ALERT_MAX_NUMBER = 10000; // the highest message number
constexpr uint32_t ALERT_LINE_LENGTH = 255;  // a longer line is cut here
constexpr int32_t ALERT_MIN_LEVEL = -9;      // the warning levels that a file may give
constexpr int32_t ALERT_MAX_LEVEL = 8;
constexpr uint32_t ALERT_MAX_MALFORMED = 10000;  // reading stops after this many malformed lines
constexpr uint64_t ALERT_MAX_FILE = 1ULL << 30;  // bytes of a file that are read
constexpr uint32_t ALERT_READ_SIZE = 256 * 1024; // a file up to this size is read in one go
constexpr uint32_t ALERT_MIN_READ_SIZE = 512;    // must hold a line of the full length
constexpr const char *ALERT_FILE_NAME = "en_msgs.txt";

// The text of a number that no file describes.
constexpr const char *ALERT_NO_DESCRIPTION =
    "An error, warning or message was generated, but no description is available";

// The built-in catalogue, made from common/diagnostics/en_msgs.txt by the build: the exact bytes,
// followed by a zero that is not included in the size.
extern const char alertBuiltinText[];
extern const size_t alertBuiltinTextSize;

// ---- Tables -----------------------------------------------------------------------------------

// The messages of one file, with the built-in ones for the numbers that it lacks.
struct AlertTable;

// Reads the file `path`, or (null) the built-in catalogue alone. A new table, for
// alert_tableDestroy(); null when the file is not a regular one or cannot be read. Malformed lines
// are raised as messages and skipped.
AlertTable *alert_tableLoad(const char *path);

// The same from an open stream, `readSize` (at least ALERT_MIN_READ_SIZE) bytes at a time; `name`
// is used in reports. The stream stays the caller's.
AlertTable *alert_tableRead(FILE *stream, const char *name, uint32_t readSize);

void alert_tableDestroy(AlertTable *table);

// Fills in the kind, level and text of the number in `record` and returns 1, or returns 0 and
// changes nothing when the table does not have it. The text belongs to the table; its conversions
// are those of the built-in text of that number.
int alert_tableFind(AlertTable *table, AlertRecord *record);

// The kind of a number; ALERT_UNSET when the table does not have it.
uint32_t alert_tableKind(AlertTable *table, uint32_t number);

// The kind given by a kind field: its first character decides ("F", "E", "M" in either case, a
// warning level). ALERT_UNSET when it gives none. Stores the level of a warning, else 0.
uint32_t alert_kindOf(const char *field, int32_t *level);

// Whether the texts take the same values: the same conversions in the same order, "%%" and "%m"
// aside, and none of them writes or takes its width from a value.
int alert_sameConversions(const char *text, const char *reference);

// The character after the conversion that begins at `percent`, or null when the text ends inside
// it.
const char *alert_conversionEnd(const char *percent);

// ---- Rendering --------------------------------------------------------------------------------

enum AlertFormat : unsigned { ALERT_FORMAT_ERROR, ALERT_FORMAT_WARNING, ALERT_FORMAT_MESSAGE };
constexpr unsigned ALERT_FORMAT_COUNT = 3;

constexpr uint32_t ALERT_TEXT_LENGTH = 511;    // characters of a message's own text
constexpr uint32_t ALERT_OUTPUT_LENGTH = 8191; // characters of what is shown, line end included

// The settings that rendering goes by.
struct AlertSettings {
    const char *formats[ALERT_FORMAT_COUNT]; // null until alert_format() determines them
    int formatMode;                          // expand the formats; otherwise the fixed form
    const char *file;                        // the current file, interned, or null
    const uint32_t *lineRef;                 // the scanner's position; each may be null
    const char *const *lineStartRef;
    const char *const *currentRef;
    AlertHook hook;                 // null: standard error
    const char *program = "qzm-cc"; // the program's name, as it was called
};
extern AlertSettings gAlertSettings;

// A message on its way out.
struct AlertMessage {
    uint32_t number;
    uint32_t kind;   // AlertKind
    int systemError; // errno at the time it was raised; 0: none
    int noLine;      // it belongs to no line of the current file
};

// The format in use: the one chosen last, at first the environment's or the default.
const char *alert_format(AlertFormat which);

// Chooses a format: the environment wins, then `text`, then (null) the default.
void alert_chooseFormat(AlertFormat which, const char *text);

// Renders a message and shows it. The values must match `format`.
[[gnu::format(printf, 2, 0)]] void alert_render(const AlertMessage *message, const char *format,
                                                va_list values);

// Shows a finished text: the hook gets it, or standard error, and the debug log too when messages
// are echoed.
void alert_emit(const char *text, size_t length);

#endif
