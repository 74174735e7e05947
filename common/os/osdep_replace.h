// A file that must never be seen half-written is written beside the old one and takes its place. A
// null replacement is a broken contract and ends the run.
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
    char *path;   // what it is to replace; owned
};

// Creates an empty file in the directory of `path`, with the permissions of `path`, or those of a
// new file when there is none. It is registered as a temporary object until it takes its place. 0
// on success; -1 otherwise, with nothing to be dropped.
int osdep_openReplacement(OsdepReplacement *replacement, const char *path);

// Brings what was written to the disk, closes the stream and puts the file in the place of `path`
// in one step. 0 on success. -1 when any of it fails: the replacement is gone, `path` as it was.
int osdep_commitReplacement(OsdepReplacement *replacement);

// Closes and removes the replacement; `path` stays as it was.
void osdep_dropReplacement(OsdepReplacement *replacement);

#endif
