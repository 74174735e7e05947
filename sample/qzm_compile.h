// The work of qzm on one source file.
#ifndef SAMPLE_QZM_COMPILE_H
#define SAMPLE_QZM_COMPILE_H

#include "sample/devices.h"
#include "sample/orb_module.h"
#include "sample/qzm_options.h"
#include "sample/report.h"

enum InputKind { INPUT_C, INPUT_ASSEMBLY, INPUT_FOR_LINKER };

// By the extension: ".c" and ".usb" are C sources; ".as", ".asm", ".s", ".S" and ".sx" are assembly
// sources; the linker identifies everything else.
InputKind qzm_inputKind(const char *name);

struct QzmJob {
    const QzmOptions *options;
    const Device *chip;
    Report *report;
};

// The path of a file that is made of the source: in "--objdir" under the source's base name with
// the extension, or the name of "-o" when `takesOutput`.
const char *qzm_objectPath(const QzmJob *job, const char *source, const char *extension,
                           int takesOutput);

// Preprocesses for the user ("--pre"): to standard output, or the file of "-o".
int qzm_preprocess(const QzmJob *job, const char *source);

// Whether only dependencies are wanted, and writing them: to the file of "--depfile" or standard
// output. `target` is the file that depends on the source.
int qzm_wantsOnlyDependencies(const QzmJob *job);
int qzm_writeDependencies(const QzmJob *job, const char *source, const char *target);

// Translate a source. Null after the errors have been reported. A dependency file is also written
// if it was asked for; `target` is the file that depends on the source.
OrbModule *qzm_compile(const QzmJob *job, const char *source, const char *target);
OrbModule *qzm_assemble(const QzmJob *job, const char *source, const char *target);

// Writes the host's assembly text of a C source ("-S").
int qzm_compileToAssembly(const QzmJob *job, const char *source);

#endif
