// The option table: every command-line option the driver understands is one row, and a row carries
// everything about its option: name, help text, where it is listed, its handler and what the
// handler makes of it for either kind of child driver.
//
//     options_initialize(optflag::ACTIVE, 1, nullptr);
//     Vector *emitted = options_handler(arguments, family, nullptr, true, classify);
//
// The table is indexed once a process; each argument is matched against the index and the row's
// handler turns it into options of the command to be run.
#ifndef DRIVER_OPTIONS_H
#define DRIVER_OPTIONS_H

#include <cstdint>

struct Vector;
struct OptionRecord;
struct OptionState;

// The device family, used as a bit set.
enum OptionFamily : uint32_t {
    FAMILY_NONE = 0,  // no device, or one that is not recognised
    FAMILY_ORB10 = 2, // ORB10/12/14/16, built by the legacy driver
    FAMILY_ORB18 = 4, // ORB18, built by the legacy driver
    FAMILY_ORB = FAMILY_ORB10 | FAMILY_ORB18,
    FAMILY_ELM = 8, // built by elm-gcc
};

// Flag bits of a row: help classes, kinds of argument, grouping and applicability.
namespace optflag {
enum : uint32_t {
    COMMON = 0x1,         // help class "common"
    OPTIMIZERS = 0x2,     // help class "optimizers"
    PARAMS = 0x4,         // help class "params"
    TARGET = 0x8,         // help class "target"; also what "--target-help" lists
    WARNINGS = 0x10,      // help class "warnings"
    UNDOCUMENTED = 0x20,  // help class "undocumented"
    HIDDEN = 0x40,        // never listed
    ATTACHED = 0x80,      // takes an argument written directly behind its name; informational
    JOINED = 0x100,       // help class "joined": an argument follows an "="
    SEPARATE = 0x200,     // help class "separate": the next argument may be its argument
    ACTIVE = 0x400,       // belongs to the driver's active set: only these rows are indexed
    EITHER_CASE = 0x1000, // indexed in lower and in upper case
    CONTAINER = 0x2000,   // carries a list of sub-options; the group names it and its separators
    MEMBER = 0x4000,      // is a sub-option of the container of its group
    LISTED = 0x8000,      // may be listed by help even when it is not active
    OWN = 0x10000,        // keeps its handler when every row is given the default one
};
}

// What a handler is told of the argument it handles.
struct OptionCall {
    const OptionRecord *row; // the row that matched; a container's row for its unmatched items
    const OptionRecord *container; // the container whose list this is, or null at top level
    OptionFamily family;
    const char *argument; // as written
    Vector *emitted;      // where the handler appends the options it emits
    Vector *arguments;    // all arguments (inside a container, all items)
    uint32_t index;       // the argument's index among them
};

// Turns one argument into emitted options. Returns how many of the following arguments it has
// consumed (0 or 1). For FAMILY_NONE only a handler that ends the process acts; the others emit,
// consume and report nothing.
using OptionHandler = uint32_t (*)(const OptionCall &call);

// Called for an argument that matches no row, before it is passed on.
using OptionFallback = void (*)(const char *argument, OptionFamily family);

// In a row's `orb` or `elm` column: the argument is passed on as it is; it is refused (warning
// 1428) and emits nothing; or its handler answers it and ends the process.
inline constexpr char OPTION_PASS[] = "pass";
inline constexpr char OPTION_REFUSE[] = "refuse";
inline constexpr char OPTION_ANSWER[] = "answer";

struct OptionRecord {
    uint32_t flags;   // optflag bits
    const char *name; // up to, not including, any argument; null ends the table
    // A member's group name; a container's group name, a colon and the separators of its list;
    // null.
    const char *group;
    const char *help;      // one line; may be empty
    OptionHandler handler; // null: not in the active set, or not in this release
    // What the handler emits for each kind of child; how it is read is the handler's. Null:
    // nothing, or the handler knows.
    const char *orb;
    const char *elm;
    // Set when an argument matches the row, for the end of the command to see; or null.
    bool OptionState::*seen = nullptr;
};

// The table, ended by a row whose name is null.
OptionRecord *options_table();

// Indexes the table; only the first call of a process does. Rows that share no bit with `mask` are
// not indexed and lose their handler. With `keepHandlers` 0 every row without the own-handler bit
// gets the default pass-through handler. `overrides` (or null) is a table of the same form whose
// rows replace those of the same name. A malformed container row ends the run with message 1195.
void options_initialize(uint32_t mask, int keepHandlers, const OptionRecord *overrides);

// The row of `key` (an argument as written, or with `group` an item of that group's container), or
// null. First the whole key is tried, then the text before the first separator, then the first two
// characters.
const OptionRecord *option_lookup(const char *key, const char *group);

// Runs the handlers over `arguments` and returns a new vector, the caller's to destroy, of what
// they emit; what matches no row is passed on. `container` is null at top level, where the family's
// final options are appended after the walk. `fallback` may be null.
Vector *options_handler(Vector *arguments, OptionFamily family, const OptionRecord *container,
                        bool topLevel, OptionFallback fallback);

#endif
