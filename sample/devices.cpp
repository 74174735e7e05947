#include "sample/devices.h"

#include <cctype>

#include <strings.h>

namespace {
// Devices with the same memory. Names are in the case in which the suite writes them.
struct Series {
    const char *family;
    uint32_t programBytes;
    uint32_t dataStart;
    uint32_t dataBytes;
    const char *names; // a blank between two
};
} // namespace

// clang-format off
static const Series SERIES[] = {
    {"ORB10", 0x400, 0x10, 0x10,
     "10z00 10z00a 10z01 10z01a 10z02 10z02a 10z03 10z03a 10zl00 10zl01 10zl02 10zl03"},
    {"ORB10", 0x800, 0x10, 0x20,
     "10z04 10z04a 10z05 10z05a 10z06 10z06a 10z07 10z07a 10z08 10z08a 10z09 10z09a "
     "10zl04 10zl05 10zl06 10zl07 10zl08 10zl09"},
    {"ORB12", 0x1000, 0x20, 0x60,
     "12z04 12z04a 12z04b 12z06 12z06a 12z06b 12z08 12z08a 12z08b 12z10 12z10a 12z10b "
     "12z12 12z12a 12z12b 12zl04 12zl06 12zl08 12zl10 12zl12"},
    {"ORB12", 0x2000, 0x20, 0x80,
     "12z30 12z30a 12z32 12z32a 12z34 12z34a 12z36 12z36a 12z38 12z38a 12z40 12z40a "
     "12z42 12z42a 12z44 12z44a 12z46 12z46a 12z48 12z48a"},
    {"ORB14", 0x2000, 0x20, 0x100,
     "14z10 14z10a 14z12 14z12a 14z14 14z14a 14z16 14z16a 14z18 14z18a 14z20 14z20a "
     "14z22 14z22a 14z24 14z24a 14z26 14z26a 14z28 14z28a 14zl10 14zl12 14zl14 14zl16 "
     "14zl18 14zl20 14zl22 14zl24 14zl26 14zl28"},
    {"ORB14", 0x4000, 0x20, 0x200,
     "14z40 14z40a 14z42 14z42a 14z44 14z44a 14z46 14z46a 14z48 14z48a 14z50 14z50a "
     "14z52 14z52a 14z54 14z54a 14z56 14z56a 14z58 14z58a"},
    {"ORB16", 0x2000, 0x20, 0x100,
     "16z01 16z01a 16z02 16z02a 16z03 16z03a 16z04 16z04a 16z05 16z05a 16z06 16z06a "
     "16z07 16z07a 16z08 16z08a 16z09 16z09a 16zl01 16zl02 16zl03 16zl04 16zl05 16zl06 "
     "16zl07 16zl08 16zl09"},
    {"ORB16", 0x4000, 0x20, 0x200,
     "16z10 16z10a 16z11 16z11a 16z12 16z12a 16z13 16z13a 16z14 16z14a 16z15 16z15a "
     "16z16 16z16a 16z17 16z17a 16z18 16z18a 16z19 16z19a 16zl10 16zl11 16zl12 16zl13 "
     "16zl14 16zl15 16zl16 16zl17 16zl18 16zl19"},
    {"ORB16", 0x4000, 0x20, 0x400,
     "16z20 16z20a 16z20b 16z21 16z21a 16z21b 16z22 16z22a 16z22b 16z23 16z23a 16z23b "
     "16z24 16z24a 16z24b 16z25 16z25a 16z25b 16z26 16z26a 16z26b 16z27 16z27a 16z27b "
     "16z28 16z28a 16z28b 16z29 16z29a 16z29b 16zl20 16zl21 16zl22 16zl23 16zl24 "
     "16zl25 16zl26 16zl27 16zl28 16zl29"},
    {"ORB16", 0x8000, 0x20, 0x800,
     "16z30 16z30a 16z32 16z32a 16z34 16z34a 16z36 16z36a 16z38 16z38a 16z40 16z40a "
     "16z42 16z42a 16z44 16z44a 16z46 16z46a 16z48 16z48a 16z80 16z80a 16z82 16z82a "
     "16z84 16z84a 16z86 16z86a 16z88 16z88a"},
    {"ORB16", 0x10000, 0x20, 0x1000,
     "16zx50 16zx50a 16zx50b 16zx52 16zx52a 16zx52b 16zx54 16zx54a 16zx54b 16zx56 "
     "16zx56a 16zx56b 16zx58 16zx58a 16zx58b 16zx60 16zx60a 16zx60b 16zx62 16zx62a "
     "16zx62b 16zx64 16zx64a 16zx64b 16zx66 16zx66a 16zx66b 16zx68 16zx68a 16zx68b"},
    {"ORB16", 0x4000, 0x20, 0x400,
     "ZQ10 ZQ11 ZQ12 ZQ13 ZQ14 ZQ15 ZQ16 ZQ17 ZQ18 ZQ19 ZQ20 ZQ21 ZQ22 ZQ23 ZQ24 ZQ25 "
     "WTX1 WTX2 WTX3 WTX4 WTX5 WTX6 WTX7 WTX8 WTY1 WTY2 WTY3 WTY4 WTY5 WTY6 WTY7 WTY8"},
    {"ORB18", 0x8000, 0x60, 0x800,
     "18z10 18z10a 18z12 18z12a 18z14 18z14a 18z16 18z16a 18z18 18z18a 18z20 18z20a "
     "18z22 18z22a 18z24 18z24a 18z26 18z26a 18z28 18z28a 18zl10 18zl12 18zl14 18zl16 "
     "18zl18 18zl20 18zl22 18zl24 18zl26 18zl28"},
    {"ORB18", 0x10000, 0x60, 0xF00,
     "18z32 18z32a 18z34 18z34a 18z36 18z36a 18z38 18z38a 18z40 18z40a 18z42 18z42a "
     "18z44 18z44a 18z46 18z46a 18z48 18z48a 18z50 18z50a 18z52 18z52a 18z54 18z54a "
     "18zl32 18zl34 18zl36 18zl38 18zl40 18zl42 18zl44 18zl46 18zl48 18zl50 18zl52 "
     "18zl54"},
    {"ORB18", 0x20000, 0x60, 0xF00,
     "18z70 18z70a 18z72 18z72a 18z74 18z74a 18z76 18z76a 18z78 18z78a 18z80 18z80a "
     "18z82 18z82a 18z84 18z84a 18z86 18z86a 18z88 18z88a 18z90 18z90a 18z92 18z92a "
     "18zl70 18zl72 18zl74 18zl76 18zl78 18zl80 18zl82 18zl84 18zl86 18zl88 18zl90 "
     "18zl92"},
    {"ORB18", 0x20000, 0x60, 0x2000,
     "18ZX20 18ZX22 18ZX24 18ZX26 18ZX28 18ZX30 18ZX32 18ZX34 18ZX36 18ZX38 18ZX40 "
     "18ZX42 18ZX44 18ZX46 18ZX48 18ZX50 18ZX52 18ZX54 18ZX56 18ZX58"},
    {"ELM", 0x2000, 0x40, 0x200,
     "elmmini1 elmmini2 elmmini3 elmmini4 elmmini5 elmmini6 elmmini7 elmmini8 elmmini9 "
     "elmmini10 elmmini11 elmmini12 elmmini13 elmmini14 elmmini15 elmmini16 elmmini17 "
     "elmmini18 elmmini19 elmmini20 elmmini21 elmmini22 elmmini23 elmmini24 elmmini25 "
     "elmmini26 elmmini27 elmmini28 elmmini29 elmmini30 elmmini31 elmmini32 elmmini33 "
     "elmmini34 elmmini35 elmmini36 elmmini37 elmmini38 elmmini39 elmmini40"},
    {"ELM", 0x8000, 0x60, 0x800,
     "elmmid1 elmmid2 elmmid3 elmmid4 elmmid5 elmmid6 elmmid7 elmmid8 elmmid9 elmmid10 "
     "elmmid11 elmmid12 elmmid13 elmmid14 elmmid15 elmmid16 elmmid17 elmmid18 elmmid19 "
     "elmmid20 elmmid21 elmmid22 elmmid23 elmmid24 elmmid25 elmmid26 elmmid27 elmmid28 "
     "elmmid29 elmmid30 elmmid31 elmmid32 elmmid33 elmmid34 elmmid35 elmmid36 elmmid37 "
     "elmmid38 elmmid39 elmmid40 elmmid1p elmmid2p elmmid3p elmmid4p elmmid5p elmmid6p "
     "elmmid7p elmmid8p elmmid9p elmmid10p elmmid11p elmmid12p elmmid13p elmmid14p "
     "elmmid15p elmmid16p elmmid17p elmmid18p elmmid19p elmmid20p"},
    {"ELM", 0x20000, 0x100, 0x2000,
     "elmbig1 elmbig2 elmbig3 elmbig4 elmbig5 elmbig6 elmbig7 elmbig8 elmbig9 elmbig10 "
     "elmbig11 elmbig12 elmbig13 elmbig14 elmbig15 elmbig16 elmbig17 elmbig18 elmbig19 "
     "elmbig20 elmbig21 elmbig22 elmbig23 elmbig24 elmbig25 elmbig26 elmbig27 elmbig28 "
     "elmbig29 elmbig30 elmbig31 elmbig32 elmbig33 elmbig34 elmbig35 elmbig36 elmbig37 "
     "elmbig38 elmbig39 elmbig40 elmbig1x elmbig2x elmbig3x elmbig4x elmbig5x elmbig6x "
     "elmbig7x elmbig8x elmbig9x elmbig10x elmbig11x elmbig12x elmbig13x elmbig14x "
     "elmbig15x elmbig16x elmbig17x elmbig18x elmbig19x elmbig20x"},
    {"ELM", 0x10000, 0x100, 0x1000,
     "ELMw1 ELMw2 ELMw3 ELMw4 ELMw5 ELMw6 ELMw7 ELMw8 ELMw9 ELMw10 ELMw11 ELMw12"},
    {"ELM", 0x4000, 0x40, 0x400,
     "KVmini1 KVmini2 KVmini3 KVmini4 KVmini5 KVmini6 KVmini7 KVmini8 KVmini9 KVmini10 "
     "KVmini11 KVmini12 kv10 kv11 kv12 kv13 kv14 kv15 kv16 kv17 kv18 kv19 kv20 kv21 "
     "kv22 kv23 kv24 kv25 kv26 kv27"},
};
// clang-format on

static void addSeries(const Series *series, List<Device> *devices)
{
    const char *name = series->names;
    while (*name != 0) {
        size_t length = strcspn(name, " ");
        list_add(devices, Device{arena_copyPart(name, length), series->family, series->programBytes,
                                 series->dataStart, series->dataBytes});
        name += length;
        name += *name == ' ';
    }
}

const List<Device> *device_list()
{
    static List<Device> devices;
    if (devices.count == 0)
        for (const Series &series : SERIES)
            addSeries(&series, &devices);
    return &devices;
}

DeviceGroup device_group(const Device *device)
{
    if (strcmp(device->family, "ELM") == 0)
        return DEVICES_ELM;
    return strcmp(device->family, "ORB18") == 0 ? DEVICES_ORB18 : DEVICES_ORB;
}

const Device *device_find(const char *name, unsigned groups)
{
    if (strncasecmp(name, "orb", 3) == 0 && isdigit(static_cast<unsigned char>(name[3])))
        name += 3;
    for (const Device &device : *device_list())
        if (strcasecmp(device.name, name) == 0 && (device_group(&device) & groups) != 0)
            return &device;
    return nullptr;
}
