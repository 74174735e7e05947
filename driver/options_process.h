// Option processing: from the argument vector to the command of the driver that builds.
#ifndef DRIVER_OPTIONS_PROCESS_H
#define DRIVER_OPTIONS_PROCESS_H

#include "driver/options.h"

// The family of a device option ("-mcpu=16z20a") or of a bare device name; 0 when the device is not
// recognised. `option` must not be null.
OptionFamily option_DeviceType(const char *option);

// Makes the command to run of the arguments: a new vector of interned strings, driver path first,
// the caller's to destroy; null for null arguments. Options that are answered at once (help) end
// the process, as do a missing device and a missing driver (messages 2042, 2043, 2045).
Vector *options_process(Vector *arguments);

#endif
