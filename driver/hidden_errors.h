// Hiding standard error while programs of the suite are asked for what they know: their complaints
// are not the user's business.
//
//     HiddenErrors hidden;
//     if (hiddenErrors_begin(&hidden)) {
//         ...                             // run them
//         hiddenErrors_end(&hidden);
//     }
#ifndef DRIVER_HIDDEN_ERRORS_H
#define DRIVER_HIDDEN_ERRORS_H

#include <cstdio>

struct HiddenErrors {
    FILE *file; // where standard error goes instead: a temporary file that nobody reads
    int saved;  // what osdep_restoreError() needs
};

// Points standard error at a temporary file, which is removed at exit. False, with nothing changed
// and the reason in the trace, when there can be none.
bool hiddenErrors_begin(HiddenErrors *hidden);

// Puts standard error back. A capture that failed in between must have been undone
// (osdep_restoreOutput()).
void hiddenErrors_end(HiddenErrors *hidden);

#endif
