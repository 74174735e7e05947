// The version of the suite.
#ifndef DRIVER_VERSION_H
#define DRIVER_VERSION_H

#include <cstdio>

// Major times 1000 plus minor times 10.
enum { PRODUCT_VERSION = 2320 };

// Prints the banner that the suite's tools have in common. False when it could not be written.
// qzm-cc itself passes a version request on to the child driver.
bool version_printBanner(FILE *stream);

#endif
