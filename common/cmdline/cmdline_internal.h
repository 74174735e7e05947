// What the parts of the command-line module share: reading arguments within a limit, and taking the
// result over. Not for other modules.
#ifndef COMMON_CMDLINE_CMDLINE_INTERNAL_H
#define COMMON_CMDLINE_CMDLINE_INTERNAL_H

#include <cstdint>

struct Vector;

// How one reading of standard input is to be done, and what came of it.
struct CmdlineReading {
    int singleLine; // in: stop behind the first line
    int keepEmpty;  // in: adjacent separators give empty tokens
    uint64_t limit; // in: what the input may cost: its bytes, and 256 more for each token
    uint64_t cost;  // out: what it did cost; above the limit when that ended the reading
    int failed;     // out: the reading ended early because of an input error (errno says which)
};

// Splits standard input as cmdline_readArgs() does, within the limit of `reading`, which must be
// filled in as far as it says "in". The array and its strings belong to the module.
char **cmdline_readWithin(CmdlineReading *reading, const char *promptName);

// Moves the strings of the last reading, all but entry 0, into a new vector. Both are the caller's:
// the vector to destroy, the strings to free().
Vector *cmdline_takeRead();

#endif
