// The option table: each option that the driver understands is one row. A row has everything about
// its option: name, help text, where it is listed, its handler, and the handler's output for either
// kind of child driver.
//
//     options_initialize(optflag::ACTIVE, 1, nullptr);
//     Vector *emitted = options_handler(arguments, family, nullptr, true, classify);
//
// The table is indexed once per process; each argument is matched against the index and the row's
// handler turns it into options of the command to be run.
#ifndef DRIVER_OPTIONS_H
#define DRIVER_OPTIONS_H

#include <cstdint>

#include "driver/option.h"

// The table, which ends with a row whose name is null.
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
// they emit; an argument that matches no row is passed on. `container` is null at top level, where
// the family's final options are appended after the walk. `fallback` may be null.
Vector *options_handler(Vector *arguments, OptionFamily family, const OptionRecord *container,
                        bool topLevel, OptionFallback fallback);

#endif
