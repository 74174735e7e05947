// Hides standard error while programs of the suite are queried: their complaints do not concern the
// user.
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
    FILE *file; // a temporary file that nobody reads, in place of standard error
    int saved;  // the handle for osdep_restoreError()
};

// Points standard error at a temporary file, which is removed at exit. False, with nothing changed
// and the reason in the trace, when it cannot be created.
bool hiddenErrors_begin(HiddenErrors *hidden);

// Puts standard error back. A capture that failed in between must have been undone
// (osdep_restoreOutput()).
void hiddenErrors_end(HiddenErrors *hidden);

#endif
