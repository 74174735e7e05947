// Writes deviceSupport.xml to standard output; run when the suite is built.
//
// The driver takes the value of every attribute of an element two levels below the root as the name
// of a device, so these elements have the attribute "name" and nothing else.
#include <cstdio>

#include "sample/devices.h"

static void writeFamily(const char *name, DeviceGroup group)
{
    printf("  <family name=\"%s\">\n", name);
    for (const Device &device : *device_list())
        if (device_group(&device) == group)
            printf("    <device name=\"%s\"/>\n", device.name);
    printf("  </family>\n");
}

int main()
{
    printf("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<deviceSupport>\n");
    writeFamily("ORB", DEVICES_ORB);
    writeFamily("ORB18", DEVICES_ORB18);
    writeFamily("ELM", DEVICES_ELM);
    printf("</deviceSupport>\n");
    return fflush(stdout) == 0 && !ferror(stdout) ? 0 : 1;
}
