#include "sample/orb_chips.h"

#include <cstdio>
#include <cstring>
#include <strings.h>

static const OrbChip CHIPS[] = {
    // name, family, program bytes, data start, data bytes
    {"10z02", "ORB10", 0x400, 0x10, 0x10},    {"10z06", "ORB10", 0x800, 0x10, 0x20},
    {"12z08", "ORB12", 0x1000, 0x20, 0x60},   {"12z40", "ORB12", 0x2000, 0x20, 0x80},
    {"14z12", "ORB14", 0x2000, 0x20, 0x100},  {"14z50", "ORB14", 0x4000, 0x20, 0x200},
    {"16z05", "ORB16", 0x2000, 0x20, 0x100},  {"16z10", "ORB16", 0x4000, 0x20, 0x200},
    {"16z20a", "ORB16", 0x4000, 0x20, 0x400}, {"16z30", "ORB16", 0x8000, 0x20, 0x800},
    {"16z84", "ORB16", 0x8000, 0x20, 0x800},  {"18z20", "ORB18", 0x8000, 0x60, 0x800},
    {"18z40", "ORB18", 0x10000, 0x60, 0xF00}, {"18z80", "ORB18", 0x20000, 0x60, 0xF00},
    {"zq16", "ORB16", 0x4000, 0x20, 0x400},
};

const OrbChip *orbchip_find(const char *name)
{
    for (const OrbChip &chip : CHIPS)
        if (strcasecmp(chip.name, name) == 0)
            return &chip;
    return nullptr;
}

int orbchip_list(int orb18)
{
    for (const OrbChip &chip : CHIPS)
        if ((strcmp(chip.family, "ORB18") == 0) == (orb18 != 0))
            printf("%s:%s:%x:%x\n", chip.name, chip.family, chip.programBytes, chip.dataBytes);
    return fflush(stdout) == 0 && !ferror(stdout);
}
