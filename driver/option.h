// An option: its row in the option table, and the arguments of its handler.
#ifndef DRIVER_OPTION_H
#define DRIVER_OPTION_H

#include <cstdint>

#include "driver/families.h"

struct Vector;
struct OptionRecord;
struct OptionState;

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
    ATTACHED = 0x80,      // takes an argument written directly after its name; informational
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

// The argument that a handler handles, and its context.
struct OptionCall {
    const OptionRecord *row; // the row that matched; a container's row for its unmatched items
    const OptionRecord *container; // the container whose list this is, or null at top level
    OptionFamily family;
    const char *argument; // the argument as written
    Vector *emitted;      // where the handler appends the options it emits
    Vector *arguments;    // all arguments (inside a container, all items)
    uint32_t index;       // the argument's index among them
};

// Turns one argument into emitted options. Returns how many of the following arguments it has
// consumed (0 or 1). For FAMILY_NONE only handlers that end the process act; the others emit,
// consume and report nothing.
using OptionHandler = uint32_t (*)(const OptionCall &call);

// Called for an argument that matches no row, before it is passed on.
using OptionFallback = void (*)(const char *argument, OptionFamily family);

// In a row's `orb` or `elm` column: the argument is passed on unchanged; it is refused (warning
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
    // The handler's output for each kind of child, in a form that the handler defines. Null:
    // nothing, or the handler decides alone.
    const char *orb;
    const char *elm;
    // How a user writes it in the reference, parts that are separate arguments after blanks. Null:
    // the name, with "=value" or " value" when the flags say so, in the list of a member's
    // container.
    const char *example = nullptr;
    // Set when an argument matches the row, for the options at the end of the command; or null.
    bool OptionState::*seen = nullptr;
};

#endif
