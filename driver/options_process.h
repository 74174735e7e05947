// Option processing: from the argument vector to the command of the driver that builds.
#ifndef DRIVER_OPTIONS_PROCESS_H
#define DRIVER_OPTIONS_PROCESS_H

#include "driver/options.h"

// Turns the arguments into the command to run: a new vector of interned strings, driver path first,
// the caller's to destroy; null for null arguments. Options that are handled at once (help) end the
// process, as do a missing or unknown device and a missing driver (messages 2042, 2043, 2045).
Vector *options_process(Vector *arguments);

#endif
