// A table from names to numbers. All zero is the empty table.
#ifndef SAMPLE_SYMBOL_TABLE_H
#define SAMPLE_SYMBOL_TABLE_H

#include "sample/arena.h"

struct SymbolEntry {
    const char *name; // null: free
    uint32_t number;
};

struct SymbolTable {
    SymbolEntry *entries;
    size_t count;
    size_t capacity; // a power of two, or 0
};

// The number kept for the name, to read or change until the next name is added; null when the name
// is not in the table.
uint32_t *symbols_find(SymbolTable *table, const char *name);

// Adds a name that is not in the table. The table keeps the pointer.
void symbols_add(SymbolTable *table, const char *name, uint32_t number);

#endif
