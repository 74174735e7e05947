// orbc and orbc18 of the sample installation: the part of the ORB compilers that others than qzm
// use. They answer "--chipinforaw" with their devices, one per line:
//
//     NAME:FAMILY:PROGRAM BYTES:DATA BYTES
//
// ORBC_18 is 1 in orbc18.
#include <cstdio>

#include "sample/devices.h"

// 0 when the list cannot be written.
static int listDevices()
{
    for (const Device &device : *device_list())
        if (device_group(&device) == (ORBC_18 ? DEVICES_ORB18 : DEVICES_ORB))
            printf("%s:%s:%x:%x\n", device.name, device.family, device.programBytes,
                   device.dataBytes);
    return fflush(stdout) == 0 && !ferror(stdout);
}

int main(int argc, char **argv)
{
    if (argc == 2 && strcmp(argv[1], "--chipinforaw") == 0)
        return listDevices() ? 0 : 1;
    fprintf(stderr, "usage: %s --chipinforaw\n", argc > 0 ? argv[0] : "orbc");
    return 1;
}
