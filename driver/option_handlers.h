// The handlers of the option table and the state that they keep for the end of the command.
//
// There are three groups of handlers: those that read everything from their row (pass-through,
// fixed text, value, sign), those that take a separate argument, and those for a single option. A
// handler decides by the family: the ORB column of its row for the legacy driver, the ELM column
// for elm-gcc, nothing without a family.
#ifndef DRIVER_OPTION_HANDLERS_H
#define DRIVER_OPTION_HANDLERS_H

#include "driver/messages.h"
#include "driver/option.h"

// Facts about the command line, set by a row that an argument matches or by a handler; read by the
// final options and by option processing. All start false.
struct OptionState {
    bool compileOnly;           // "-c"
    bool cInput;                // a C source was given
    bool assemblyInput;         // an assembly source was given
    bool preprocessAssembly;    // an assembly source that needs preprocessing was given
    bool standardGiven;         // "-ansi" or "-std"
    bool c90;                   // the last of these selected C90
    bool callGraphGiven;        // "-mcallgraph"
    bool warningLevelGiven;     // "-mwarn"
    bool warningsSuppressed;    // "-w"
    bool strictEmitted;         // the first "-Wpedantic"
    bool errorFormatGiven;      // "-Xqzm --errformat..."
    bool warningFormatGiven;    // "-Xqzm --warnformat..."
    bool messageFormatGiven;    // "-Xqzm --msgformat..."
    bool constDataGiven;        // ELM: either const-data option
    bool familyPackGiven;       // ELM: "-mdfp"
    bool deviceGiven;           // ELM: "-mdevice"
    bool printBuiltins;         // "-mprint-builtins", which this program handles itself for ELM
    const char *deviceOption;   // ELM: "-mdevice=DEV" made from "-mcpu", or null
    Vector *libraries;          // ORB: library names; null while there are none
    Vector *libraryDirectories; // ORB: library directories in order, or null while there are none
    int verbosity;              // number of "-v"
};
extern OptionState gOptionState;

// ---- Reading everything from the row ----
uint32_t option_passThrough(const OptionCall &call); // the default handler
uint32_t option_fixed(const OptionCall &call);       // the column's words
uint32_t option_value(const OptionCall &call);       // ORB: the column and the text from "=" on
uint32_t option_sign(const OptionCall &call);        // ORB: the column with "+", or "-" for "-no-"
uint32_t option_signValue(const OptionCall &call);   // the same, with ":VALUE" when one is given

// ---- With a separate argument ----
uint32_t option_joined(const OptionCall &call);        // -D -U -I
uint32_t option_output(const OptionCall &call);        // -o
uint32_t option_library(const OptionCall &call);       // -l
uint32_t option_libraryDir(const OptionCall &call);    // -L
uint32_t option_parser(const OptionCall &call);        // -Xparser -Xp1 -Xclang
uint32_t option_superDriver(const OptionCall &call);   // -Xqzm
uint32_t option_language(const OptionCall &call);      // -x
uint32_t option_dependencies(const OptionCall &call);  // -M -MD -MF -MM -MMD and their relatives
uint32_t option_memorySummary(const OptionCall &call); // --memorysummary, also in a linker list
uint32_t option_map(const OptionCall &call);           // -Map in a linker list

// ---- Lists for one tool ----
uint32_t option_linker(const OptionCall &call);       // -Wl -Xlinker
uint32_t option_dataInit(const OptionCall &call);     // --[no-]data-init in a linker list
uint32_t option_assembler(const OptionCall &call);    // -Wa -Xassembler
uint32_t option_preprocessor(const OptionCall &call); // -Wp -Xpreprocessor

// ---- One option each ----
uint32_t option_special(const OptionCall &call);  // --qzdebug --pragmaconfig --nodel
uint32_t option_selfinit(const OptionCall &call); // handled here for every family
uint32_t option_selftest(const OptionCall &call); // the same
uint32_t option_verbose(const OptionCall &call);
uint32_t option_help(const OptionCall &call);
uint32_t option_targetHelp(const OptionCall &call);
uint32_t option_printDevices(const OptionCall &call);
uint32_t option_printOrbDevices(const OptionCall &call);
uint32_t option_device(const OptionCall &call);
uint32_t option_instructionSet(const OptionCall &call);
uint32_t option_standard(const OptionCall &call);
uint32_t option_strict(const OptionCall &call);
uint32_t option_extension(const OptionCall &call);
uint32_t option_reserve(const OptionCall &call);

// ---- Shared by the handlers ----

// Appends one option to what the call emits. `text` is interned.
void option_emit(const OptionCall &call, const char *text);

// Emits according to a column: nothing (null), the argument, a refusal, or its words, interned.
void option_emitColumn(const OptionCall &call, const char *column);

// The text after the option's name, or the next argument when the option is written alone, which
// sets *consumed to 1. Without a next argument the run ends with message 2041.
const char *option_argumentOf(const OptionCall &call, uint32_t *consumed);

// The same for an option that only takes a separate argument; "OPTION=value" is accepted as well.
const char *option_separateValue(const OptionCall &call, uint32_t *consumed);

// Emits the argument, which is written alone, and the next one after it; returns 1. Without a next
// argument the run ends with message 2041.
uint32_t option_passWithValue(const OptionCall &call);

// The text after the first "=" of the argument. When there is no "=", or nothing after it, the run
// ends with message 1195.
const char *option_valueOf(const OptionCall &call);

// Ends the run with MESSAGE_MALFORMED_OPTION about `option`.
[[noreturn]] void option_malformed(const char *option);

// Ends the run with MESSAGE_MISSING_ARGUMENT about `option`.
[[noreturn]] void option_missingArgument(const char *option);

// Prints, in the form of the help, the rows of the option table that share a bit with `mask` and
// may be listed.
void options_printRows(uint32_t mask);

// Appends the options that end the command of a family (the input files have been classified).
void options_appendFinal(Vector *command, OptionFamily family);

#endif
