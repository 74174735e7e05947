// Shared by the parts of the command-line module: reading arguments within a limit, and taking over
// the result. Not for other modules.
#ifndef COMMON_CMDLINE_CMDLINE_INTERNAL_H
#define COMMON_CMDLINE_CMDLINE_INTERNAL_H

#include <cstdint>

struct Vector;

// The parameters and results of one reading of standard input.
struct CmdlineReading {
    int singleLine; // in: stop after the first line
    int keepEmpty;  // in: adjacent separators give empty tokens
    uint64_t limit; // in: the limit on the cost: the input's bytes, plus 256 for each token
    uint64_t cost;  // out: the actual cost; above the limit when that ended the reading
    int failed;     // out: the reading ended early because of an input error (errno says which)
};

// Splits standard input as cmdline_readArgs() does, within the limit of `reading`, whose "in"
// fields must be filled in. The array and its strings belong to the module.
char **cmdline_readWithin(CmdlineReading *reading, const char *promptName);

// Moves the strings of the last reading, all but entry 0, into a new vector. Both are the caller's:
// the vector to destroy, the strings to free().
Vector *cmdline_takeRead();

#endif
