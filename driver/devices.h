// devices: the devices that the suite supports, and the paths of its programs.
//
//     Vector *names = deviceListSupported(DEVICES_ORB | DEVICES_ORB18);
//     for (const char *name : vec_each<const char>(names))
//         puts(name);
//     vec_destroy(names);
//
// A device list is a new vector of interned names, the caller's to destroy, in the order of its
// source; null means that the source could not be read. It contains only names of the requested
// families, as option_DeviceType() classifies them. Data files and the output of programs are not
// trusted: bad ones give an empty list or the names that could be read.
#ifndef DRIVER_DEVICES_H
#define DRIVER_DEVICES_H

#include <cstdint>

struct Vector;

// The families of a device list, a bit set.
enum DeviceMask : uint32_t {
    DEVICES_ORB = 1, // the classic parts, ORB10/12/14/16
    DEVICES_ORB18 = 2,
    DEVICES_ELM = 4,
    DEVICES_ALL = DEVICES_ORB | DEVICES_ORB18 | DEVICES_ELM,
};

// The programs of the suite.
enum DriverKind : uint32_t {
    DRIVER_ELM = 1,          // elm-gcc
    DRIVER_ORB_COMPILER,     // orbc, or else orbcd
    DRIVER_ORB18_COMPILER,   // orbc18, or else orbc18d
    DRIVER_LEGACY,           // qzm, or else qzmd
    DRIVER_QZM_CC,           // this program
    DRIVER_LEGACY_ASSEMBLER, // legasm
    DRIVER_ORB_ASSEMBLER,    // orb-as
};

// The path of an installed program, interned; null when it does not exist or `kind` is not a
// program. The driver that runs a build is found elsewhere (driver/options_process.cpp), by other
// rules: it may also be beside this program, and without it the run ends.
const char *getDriverPath(uint32_t kind);

// Asks an ORB compiler (DRIVER_ORB_COMPILER or DRIVER_ORB18_COMPILER, which must be installed) for
// its devices. Null when it cannot be run.
Vector *getORBDeviceList_helper(uint32_t kind);
Vector *getORBDeviceList();
Vector *getORB18DeviceList();

// Asks the ELM driver. Null when it cannot be run.
Vector *getELMDeviceList();

// Asks the programs of every family in `mask`, in the order ORB, ORB18, ELM. Their complaints are
// not shown; standard error is restored afterwards. A program that is missing or fails adds
// nothing. Null when standard error cannot be hidden.
Vector *getDeviceListFromDrivers(uint32_t mask);

// The names in the XML file `path`, lower-cased. Null when it cannot be read.
Vector *getDeviceListFromXML(uint32_t mask, const char *path);

// The names in an index file of the legacy assembler, as written. Null when it cannot be read; an
// unterminated name and a file without names are broken contracts.
Vector *getDeviceListFrom8bit_device_info(const char *path);

// The names in the installation's index file, sorted byte by byte. A missing or unusable file ends
// the run with a fatal message.
Vector *deviceList8bit();

// The devices in the installation's deviceSupport.xml; without a usable one a warning is printed
// and the programs are asked. Null when neither can answer.
Vector *deviceListSupported(uint32_t mask);

// The order of names in listings: leading underscores do not count, except between names that are
// otherwise equal; a null name comes first. Negative or positive; never 0 between two names.
int deviceNameCompare(const char *a, const char *b);

#endif
