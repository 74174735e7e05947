// Shared by the two sources of the module "devices".
#ifndef DRIVER_DEVICES_INTERNAL_H
#define DRIVER_DEVICES_INTERNAL_H

#include <cstdint>

struct Vector;

// Ask an ORB compiler and the ELM driver for their devices. `driver` is the program's path; null
// gives null, as does a program that cannot be run.
Vector *devices_askOrbCompiler(const char *driver);
Vector *devices_askElmDriver(const char *driver);

// Whether a name belongs to one of the families in `mask` (DeviceMask).
bool devices_isSelected(const char *name, uint32_t mask);

// getDeviceListFrom8bit_device_info() for a caller that handles an empty list itself.
Vector *devices_readIndex(const char *path);

#endif
