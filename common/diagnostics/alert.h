// Numbered messages: every diagnostic a user sees has a number, a kind and a text, read from the
// installation's message file, with the built-in catalogue as fallback.
//
//     alert_raiseNumber(2044, argument);         // kind and text from the tables, rules applied
//     alert_print("%s: fatal error: ...", name); // plain text without a number
//
// The system initialises itself at the first call that needs it. Messages go to standard error (or
// the output hook) in a fixed form, "(2044) text", or, with format mode on, through three formats
// that the environment can override (NVC_ERR_FORMAT, NVC_WARN_FORMAT, NVC_MSG_FORMAT). A fatal
// message, and the error that passes the error limit, end the run with status 1 through the exit
// path. No text of a message file reaches the formatter unless its conversions are those of the
// built-in text of that number. The file format is described in docs/message-file.md.
#ifndef COMMON_DIAGNOSTICS_ALERT_H
#define COMMON_DIAGNOSTICS_ALERT_H

#include <cstdarg>
#include <cstdint>

enum AlertKind : uint32_t {
    ALERT_UNSET = 0, // the file gave an unknown kind; shown like a warning
    ALERT_FATAL = 1,
    ALERT_MESSAGE = 2,
    ALERT_ERROR = 3,
    ALERT_WARNING = 4,
    ALERT_SUPPRESSED = 5, // the result of a rule; not shown
};

struct AlertRecord {
    uint32_t kind;    // AlertKind
    uint32_t number;  // 1 to 10000
    const char *text; // interned; a printf format, plus "%m" for the system's error text
    int32_t level;    // warning level; 0 for other kinds
};

// Operations of alert_control().
enum AlertOperation : unsigned {
    ALERT_RULE_NONE = 0,
    ALERT_RULE_HIDE = 1,             // a message or warning is suppressed
    ALERT_RULE_ERROR_TO_WARNING = 2, // the warning gets the level of the current threshold
    ALERT_RULE_WARNING_TO_ERROR = 3,
    ALERT_RULE_HIDE_ALL = 4, // anything but a fatal error is suppressed
    ALERT_PUSH_RULES = 5,    // push a copy of the rules
    ALERT_POP_RULES = 6,     // back to the rules before the last push
    ALERT_HIDE_EVERY = 7,    // rule 1 for every message and warning
    ALERT_CLEAR_RULES = 8,
};

// Receives each finished text, line end included.
using AlertHook = void (*)(const char *text);

// Loads the message file `path`. Malformed lines are raised as messages and skipped. 1 when it
// exists and is (or already was) the loaded file, else 0, which leaves the tables as they were.
int alert_loadFile(const char *path);

// Searches for the message file again and loads it when it differs from the loaded one. A file that
// cannot be loaded ends the run with status 1.
void alert_reload();

// Sets the three formats; for each the environment wins, then the argument, then (null) the
// default. The texts are copied, the environment's too: it is not read again before the next call.
void alert_setFormats(const char *error, const char *warning, const char *message);

// Switches the expansion of the formats on or off (the default).
void alert_setFormatMode(int on);

// The number of errors shown before the run ends (20 at first); the level below which a warning is
// not shown (0 at first). Both return the previous value.
uint32_t alert_setErrorLimit(uint32_t limit);
int32_t alert_setThreshold(int32_t level);

// The program's name, which the placeholder %a of a format gives ("qzm-cc" at first; nothing for
// null). The string is not copied and must outlive the run.
void alert_setProgramName(const char *name);
const char *alert_programName();

// Sets the current file (null or empty: none) and the references that the scanner keeps up to date:
// the line number, the start of the line and the current character. Each may be null. The name is
// copied; the references are not: they are read whenever a message is rendered and must stay valid
// until the next call.
void alert_setPosition(const char *file, const uint32_t *lineRef, const char *const *lineStartRef,
                       const char *const *currentRef);

// Sends the finished texts to `hook` instead of standard error (null: standard error again).
void alert_setOutputHook(AlertHook hook);

// 1 when an error has been raised; with warnings counted, also when a warning has been shown.
int alert_anyErrors();
void alert_setCountWarnings(int on);

// Sets whether messages are emitted even when the caller is otherwise quiet; and returns that
// setting.
void alert_setEmitAlways(int on);
int alert_emitAlways();

// A new record for the number, the caller's to free(): kind and level from the base table (the
// first ever loaded), text from the current one, the rules applied. An unknown number gives an
// error whose text says that no description exists.
AlertRecord *alert_lookup(uint32_t number);

// Raises a message of the given number, kind and text. The kind begins with "F", "E" or "M" in
// either case, or is a warning level such as "-1"; any other is shown like a warning, but with
// level 10, as fatal errors, errors and plain messages have, and alert_setCountWarnings() does not
// count it. A null kind or format is a broken contract and ends the run.
//
// 1 when it was shown, 0 when its level was below the threshold; does not return for a fatal one,
// which no threshold hides, nor for the error that passes the limit. An error counts even when it
// was not shown. errno is kept.
[[gnu::format(printf, 3, 4)]] int alert_raise(uint32_t number, const char *kind, const char *format,
                                              ...);

// The same for a message that belongs to no line of the current file.
[[gnu::format(printf, 3, 4)]] int alert_raiseNoLine(uint32_t number, const char *kind,
                                                    const char *format, ...);

// Looks the number up and raises it with the record's kind and text. The values must be those that
// the built-in text takes. 0 when it was not shown; an error that a rule suppresses does not count,
// one below the threshold does.
int alert_raiseNumber(uint32_t number, ...);

// Sets a rule for one number, or operates on the whole rule map.
void alert_control(uint32_t number, AlertOperation operation);

// Applies a list such as "123,45:off": a number alone hides that message or warning; with ":off" it
// hides an error as well; a list that begins with 0 hides every message and warning. Null hides
// nothing.
void alert_disableList(const char *list);

// Writes plain text with a line end, cut at 8191 characters. A null format counts as an empty text.
[[gnu::format(printf, 1, 2)]] void alert_print(const char *format, ...);
[[gnu::format(printf, 1, 0)]] void alert_vprint(const char *format, va_list values);

#endif
