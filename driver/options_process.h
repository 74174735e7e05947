// Option processing: from the argument vector to the command of the driver that builds.
#ifndef DRIVER_OPTIONS_PROCESS_H
#define DRIVER_OPTIONS_PROCESS_H

#include "driver/options.h"

// Makes the command to run of the arguments: a new vector of interned strings, driver path first,
// the caller's to destroy; null for null arguments. Options that are answered at once (help) end
// the process, as do a missing device and a missing driver (messages 2042, 2043, 2045).
Vector *options_process(Vector *arguments);

#endif
