// A module: the result of a compilation or an assembly, and the linker's input.
//
// It is kept in one of two kinds of file. Assembly leaves an object file: records of a 3-byte
// header (length as 16 bits, low byte first; then the type) and `length` data bytes, at most 512:
//
//     IDENT  7  device, NUL, source, NUL
//     PSECT  2  flags (1: data memory), 32 bits of size, name, NUL     sections, numbered from 0
//     TEXT   1  16 bits of section, 32 bits of offset, the bytes
//     SYM    4  flags (1: global), 16 bits of section, 32 bits of value, name, NUL
//     RELOC  3  kind, 16 bits of section, 32 bits of offset, 16 bits of symbol, 32 bits to add
//     START  5  16 bits of the symbol where the program starts
//     END    6  nothing
//
// A section number 0xFFFF means a symbol that is not defined here, 0xFFFE a constant.
// Compilation leaves an intermediate file, a text that begins with the line
//
//     Version 2.32 NORVELL Software Intermediate Code
//
// and goes on with one item a line: "chip NAME", "source NAME", "section code|data SIZE NAME",
// "bytes OFFSET HEX...", "symbol SECTION VALUE NAME" (SECTION "-": not defined here), "end".
#ifndef SAMPLE_ORB_MODULE_H
#define SAMPLE_ORB_MODULE_H

#include "sample/arena.h"

enum { SECTION_UNDEFINED = 0xFFFF, SECTION_CONSTANT = 0xFFFE, SECTION_MAX = 0xFFF0 };

enum RelocKind : uint8_t {
    RELOC_WORD_ADDRESS = 1, // 16 bits: the address divided by 2, where calls and jumps go
    RELOC_LOW_BYTE = 2,     // 8 bits: the low byte of the address
    RELOC_ADDRESS = 3,      // 16 bits: the address
};

struct OrbSection {
    const char *name;
    int isData;    // in data memory
    uint32_t size; // in bytes; those after `bytes` are zero
    Buffer bytes;
    uint32_t address; // given by the linker
};

struct OrbSymbol {
    const char *name;
    uint32_t section; // number, SECTION_UNDEFINED or SECTION_CONSTANT
    uint32_t value;   // offset in the section, or the constant
    int isGlobal;
    unsigned line; // where it was defined, 0 when not known; not kept in files
};

struct OrbReloc {
    RelocKind kind;
    uint32_t section;
    uint32_t offset;
    uint32_t symbol; // number
    uint32_t add;
};

struct OrbModule {
    const char *file; // where it came from, for messages
    const char *chip;
    const char *source;
    List<OrbSection> sections;
    List<OrbSymbol> symbols;
    List<OrbReloc> relocs;
    int isIntermediate; // made by compilation
    int hasStart;
    uint32_t start; // number of the symbol
};

// The bytes of the module's file: an intermediate file if it is one, else an object file. 0 when a
// name is too long for a record.
int orbmodule_write(const OrbModule *module, Buffer *file);

// Reads either kind. Null when the bytes are not such a file, or a damaged one. `name` becomes the
// module's `file`.
OrbModule *orbmodule_read(const char *name, const char *bytes, size_t size);

// The intermediate file's half of the two (orb_module_p1.cpp).
OrbModule *orbmodule_readIntermediate(const char *text, size_t size);
void orbmodule_writeIntermediate(const OrbModule *module, Buffer *file);

#endif
