// The host's C compiler, "cc" of the search path, at work for the legacy sample programs.
#ifndef SAMPLE_HOST_COMPILER_H
#define SAMPLE_HOST_COMPILER_H

#include "sample/orb_module.h"
#include "sample/report.h"

// Runs "cc" with the arguments and shows its messages through `report`; what does not look like a
// message of a compiler is passed on as it stands. 1 when it ended with status 0; otherwise 0, and
// an error has been reported.
int host_run(const Strings *arguments, Report *report);

// Ends the program by the signal that asked it to stop while a compiler ran, if one did. Temporary
// files are removed first.
void host_stopIfAsked();

// From here on such a signal is noted for host_stopIfAsked() at any time, and a write that would
// draw a signal fails instead: for a program that is not to be stopped in the middle of what it
// does at its end, nor by a trace that cannot be written.
void host_finishOnSignals();

// Reads the relocatable file that the host's compiler made: its code and data as sections, its
// global names, each with the "_" in front that C names have on the device, as symbols. What is to
// be relocated stays as it is. 0 when the file is none that this program understands.
int host_readObject(const Buffer *file, OrbModule *module);

#endif
