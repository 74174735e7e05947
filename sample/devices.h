// The devices of the sample suite. They are invented, in the patterns that the families' names
// follow. Everything else comes from the list in devices.cpp: the devices that qzm, orb-as and
// elm-gcc accept, those that orbc and orbc18 ("--chipinforaw") and elm-gcc ("--target-help") list,
// and the installation's deviceSupport.xml.
#ifndef SAMPLE_DEVICES_H
#define SAMPLE_DEVICES_H

#include "sample/arena.h"

// The groups of devices, one for each compiler.
enum DeviceGroup : unsigned {
    DEVICES_ORB = 1, // ORB10, ORB12, ORB14 and ORB16
    DEVICES_ORB18 = 2,
    DEVICES_ELM = 4,
};

struct Device {
    const char *name;      // as the suite writes it, without "orb"; letter case has no meaning
    const char *family;    // "ORB10" ... "ORB18", "ELM"
    uint32_t programBytes; // program memory, from address 0
    uint32_t dataStart;    // first byte of data memory
    uint32_t dataBytes;
};

// All devices, the groups in the order above.
const List<Device> *device_list();

DeviceGroup device_group(const Device *device);

// The device of that name in one of the groups (a union of their bits), in any case; a name that
// begins with a digit may have "orb" in front. Null when there is no such device.
const Device *device_find(const char *name, unsigned groups);

#endif
