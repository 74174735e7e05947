// The ORB devices that the sample suite knows.
#ifndef SAMPLE_ORB_CHIPS_H
#define SAMPLE_ORB_CHIPS_H

#include <cstdint>

struct OrbChip {
    const char *name;      // in lower case, without "orb"
    const char *family;    // "ORB10" ... "ORB18"
    uint32_t programBytes; // program memory, from address 0
    uint32_t dataStart;    // first byte of data memory
    uint32_t dataBytes;
};

// The device of the name, whatever its case; null when there is none.
const OrbChip *orbchip_find(const char *name);

// Writes one line a device to standard output, "NAME:FAMILY:..."; the ORB18 devices or all others.
// 0 when it cannot be written.
int orbchip_list(int orb18);

#endif
