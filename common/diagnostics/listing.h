// Checks that listings on standard output could be written.
//
//     puts(device);
//     ...
//     listing_finish();
#ifndef COMMON_DIAGNOSTICS_LISTING_H
#define COMMON_DIAGNOSTICS_LISTING_H

#include <cstdint>

constexpr uint32_t MESSAGE_NOT_WRITTEN = 105; // its value names the output

// Whether the output printed so far could be written. If not, MESSAGE_NOT_WRITTEN is raised, unless
// the reader has simply gone away.
bool listing_written();

// To be called after a listing on standard output: ends the run with status 1 when it could not be
// written.
void listing_finish();

#endif
