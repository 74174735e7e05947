// The suite's library files: a directory of modules and their symbols, then the modules' bytes.
//
//     header  2 bytes 0, 16 bits of number of modules
//     module  2 bytes 0, 16 bits of number of symbols, 32 bits of size, 4 bytes 0, name, NUL
//     symbol  1 byte (0: defined, 1: needed), name, NUL        each module's, after its entry
//     then the modules' bytes, back to back in the order of the directory
#ifndef SAMPLE_ORB_LIBRARY_H
#define SAMPLE_ORB_LIBRARY_H

#include "sample/orb_module.h"

struct LibrarySymbol {
    const char *name;
    int isNeeded; // by the module, which does not define it
};

struct LibraryModule {
    const char *name;
    List<LibrarySymbol> symbols;
    const char *bytes; // of the module's file, inside the library's
    size_t size;
};

using Library = List<LibraryModule>;

// Reads the directory. 0 when the bytes are not a library, or a damaged one. The modules point into
// `file`.
int orblibrary_read(const Buffer *file, Library *library);

// Writes the library. 0 when it has too many modules, or one of them too many symbols.
int orblibrary_write(const Library *library, Buffer *file);

// Describes a module's file as an entry; 0 when the bytes are not a module. The entry points to
// them.
int orblibrary_entry(const char *name, const Buffer *file, LibraryModule *entry);

#endif
