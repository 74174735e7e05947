// Replaces a file that must never be seen half-written: the new one is written beside the old one
// and then takes its place. A null replacement is a broken contract and ends the run.
//
//     OsdepReplacement replacement;
//     if (osdep_openReplacement(&replacement, path) == 0) {
//         ... write to replacement.stream ...
//         if (complete)
//             status = osdep_commitReplacement(&replacement);
//         else
//             osdep_dropReplacement(&replacement);
//     }
#ifndef COMMON_OS_OSDEP_REPLACE_H
#define COMMON_OS_OSDEP_REPLACE_H

#include <cstdio>

struct OsdepReplacement {
    FILE *stream; // open for reading and writing
    char *name;   // ".NAME.XXXXXX" beside `path`, six characters chosen by the system; owned
    char *path;   // the file to replace; owned
};

// Creates an empty file in the directory of `path`, with the permissions of `path`, or those of a
// new file when there is none. It is registered as a temporary object until it takes its place. 0
// on success; else -1, and there is nothing to drop.
int osdep_openReplacement(OsdepReplacement *replacement, const char *path);

// Flushes the replacement to the disk, closes the stream and renames the file to `path` in one
// step. 0 on success. -1 when any of this fails: the replacement is then gone and `path` unchanged.
int osdep_commitReplacement(OsdepReplacement *replacement);

// Closes and removes the replacement; `path` is unchanged.
void osdep_dropReplacement(OsdepReplacement *replacement);

#endif
