// Listings on standard output: whether they could be written.
//
//     puts(device);
//     ...
//     listing_finish();
#ifndef COMMON_DIAGNOSTICS_LISTING_H
#define COMMON_DIAGNOSTICS_LISTING_H

#include <cstdint>

constexpr uint32_t MESSAGE_NOT_WRITTEN = 105; // takes what could not be written

// Whether what was printed on standard output could be written; when not, MESSAGE_NOT_WRITTEN says
// so, and nothing does when its reader has gone away.
bool listing_written();

// To be called after a listing on standard output: ends the run with status 1 when it could not be
// written.
void listing_finish();

#endif
