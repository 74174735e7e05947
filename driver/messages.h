// The messages that the driver and the self-test raise.
#ifndef DRIVER_MESSAGES_H
#define DRIVER_MESSAGES_H

#include <cstdint>

// The messages that the driver raises; their texts and kinds are the catalogue's.
enum DriverMessage : uint32_t {
    MESSAGE_MALFORMED_OPTION = 1195, // the option
    MESSAGE_NOT_SUPPORTED = 1428,    // the option
    MESSAGE_MISSING_ARGUMENT = 2041, // the option
    MESSAGE_NO_DEVICE = 2042,
    MESSAGE_UNKNOWN_DEVICE = 2043,
    MESSAGE_UNKNOWN_OPTION = 2044, // the option
    MESSAGE_NO_DRIVER = 2045,      // the driver's file name
    MESSAGE_INDEX_MISSING = 2046,
    MESSAGE_INDEX_UNUSABLE = 2047,
    MESSAGE_UNKNOWN_EXTENSION = 2048, // the language extension
    MESSAGE_DEPRECATED_CCI = 2050,
    MESSAGE_UNKNOWN_STANDARD = 2054, // the language standard
};

#endif
