// The linker of the sample suite: puts modules together into a program, and writes the program in
// several forms.
#ifndef SAMPLE_ORB_LINKER_H
#define SAMPLE_ORB_LINKER_H

#include "sample/devices.h"
#include "sample/orb_library.h"
#include "sample/report.h"
#include "sample/symbol_table.h"

// A symbol that other modules can use.
struct Definition {
    const char *name;
    const OrbModule *module;
    const OrbSymbol *symbol;
};

// A symbol that a module needs.
struct Need {
    const char *name;
    const OrbModule *module;
};

struct OrbProgram {
    // set by the caller
    const Device *chip;
    const char *name;                   // of the output, for the map and the summary
    uint32_t codeOffset;                // of the first byte of program memory used
    int noStartup;                      // do not add start-up code
    int noLibrary;                      // do not supply the functions of the C library
    List<OrbModule *> modules;          // to link, in order
    List<LibraryModule> libraryModules; // linked when something needs them
    Report *report;

    // worked out by orblink()
    SymbolTable names; // of the definitions, to their numbers
    List<Definition> definitions;
    List<Need> needs;
    Buffer image; // program memory from codeOffset on
    uint32_t dataUsed;
    uint32_t start; // where the program starts
};

// Links. 0 after the errors have been reported.
int orblink(OrbProgram *program);

// The address of a symbol that is defined.
uint32_t orblink_address(const OrbModule *module, const OrbSymbol *symbol);

// Intel HEX: lines of at most 16 data bytes, a line of type 4 before the first one of every further
// 64 KiB; with `startsWithZero` also before the very first line.
void orblink_writeHex(const OrbProgram *program, int startsWithZero, Buffer *file);

// A 32-bit ELF file for the ORB processor, with one segment.
void orblink_writeElf(const OrbProgram *program, Buffer *file);

// The linker's map; the memory summary as a text for people, and as XML.
void orblink_writeMap(const OrbProgram *program, Buffer *file);
void orblink_writeSummary(const OrbProgram *program, Buffer *file);
void orblink_writeXml(const OrbProgram *program, Buffer *file);

#endif
