// Runs the host's C compiler, "cc" of the search path, for the legacy sample programs.
#ifndef SAMPLE_HOST_COMPILER_H
#define SAMPLE_HOST_COMPILER_H

#include "sample/orb_module.h"
#include "sample/report.h"

// Runs "cc" with the arguments and shows its messages through `report`. Lines that do not look like
// a compiler's message are passed on unchanged. 1 when it ended with status 0; otherwise 0, and an
// error has been reported.
int host_run(const Strings *arguments, Report *report);

// Ends the program by the signal that asked it to stop while a compiler ran, if one did. Temporary
// files are removed first.
void host_stopIfAsked();

// From here on such a signal is noted for host_stopIfAsked() at any time, and a write that would
// cause a signal fails instead. This is for a program that must not be stopped during its work at
// the end, nor by a trace that cannot be written.
void host_finishOnSignals();

// Reads the relocatable file that the host's compiler made: its code and data as sections, and its
// global names as symbols, each with the "_" in front that C names have on the device. Relocations
// are not carried out. 0 when this program does not understand the file.
int host_readObject(const Buffer *file, OrbModule *module);

#endif
