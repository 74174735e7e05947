// What the two sources of the module "devices" share.
#ifndef DRIVER_DEVICES_INTERNAL_H
#define DRIVER_DEVICES_INTERNAL_H

#include <cstdint>

struct Vector;

// Whether a name is of one of the families of `mask` (DeviceMask).
bool devices_isSelected(const char *name, uint32_t mask);

// getDeviceListFrom8bit_device_info() for a caller that deals with an empty list itself.
Vector *devices_readIndex(const char *path);

#endif
