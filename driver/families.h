// The families of devices: the list of families, and the family of a device by its name.
#ifndef DRIVER_FAMILIES_H
#define DRIVER_FAMILIES_H

#include <cstdint>

// The device family, used as a bit set.
enum OptionFamily : uint32_t {
    FAMILY_NONE = 0,  // no device, or one that is not recognised
    FAMILY_ORB10 = 2, // ORB10/12/14/16, built by the legacy driver
    FAMILY_ORB18 = 4, // ORB18, built by the legacy driver
    FAMILY_ORB = FAMILY_ORB10 | FAMILY_ORB18,
    FAMILY_ELM = 8, // built by elm-gcc
};

// The family of a device option ("-mcpu=16z20a") or of a bare device name; 0 when the device is not
// recognised. `option` must not be null.
OptionFamily option_DeviceType(const char *option);

#endif
