// The options of qzm, the legacy driver: one table row each (see qzm_options.cpp).
#ifndef SAMPLE_QZM_OPTIONS_H
#define SAMPLE_QZM_OPTIONS_H

#include "sample/arena.h"
#include "sample/command_file.h"
#include "sample/report.h"

// The requests of the command line. Texts are null and lists empty until an option sets them.
struct QzmOptions {
    // what to do
    int showVersion;   // --ver
    int preprocess;    // --pre
    int compileOnly;   // -c: leave object files of assembly sources
    int pass1;         // --pass1: leave intermediate files of C sources
    int assemblyOnly;  // -S
    int noExecute;     // --noexec
    int verbose;       // -v
    int keepTemporary; // --nodel
    Strings info;      // --info=

    // files
    Strings inputs;
    const char *output;         // -o
    const char *objectDir;      // --objdir=
    const char *outputDir;      // --outdir=
    const char *mapFile;        // -M
    int wantsMap;               // -M, with or without a name
    const char *summaryFile;    // --summarydir=
    Strings summary;            // --summary=
    Strings dependencies;       // --dep=
    const char *dependencyFile; // --depfile=

    // for the tools
    Strings preprocessor;   // the host's options: -D, -U, -I, and what -Z holds
    Strings parser;         // -R
    int preprocessAssembly; // -P
    int assemblyListing;    // --asmlist
    const char *chip;       // --chip=
    const char *standard;   // --std=
    const char *characters; // --char=
    const char *codeOffset; // --codeoffset=
    int strict;             // --strict
    Strings optimize;       // --opt=
    Strings runtime;        // --runtime=
    Strings outputFormats;  // --output=

    // messages
    const char *formats[SEVERITY_COUNT]; // --errformat=, --warnformat=, --msgformat=
    const char *hidden;                  // --msgdisable=
    const char *warningLevel;            // --warn=
    const char *errorLimit;              // --errors=
};

// Reads the arguments after the program's name. 0 after an error was reported: an option is not
// known, lacks its value, or has one that is not understood. The options point into `arguments`.
int qzmoptions_parse(const CommandArguments *arguments, QzmOptions *options, Report *report);

// Whether one of the texts is `item`, or a comma-separated list that has it.
int qzmoptions_has(const Strings *list, const char *item);

#endif
