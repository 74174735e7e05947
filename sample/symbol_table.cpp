#include "sample/symbol_table.h"

// The entry of the name, or the free one where it belongs.
static SymbolEntry *entryFor(const SymbolTable *table, const char *name)
{
    uint32_t hash = 2166136261u;
    for (const char *at = name; *at != 0; at++)
        hash = (hash ^ static_cast<uint8_t>(*at)) * 16777619u;
    size_t place = hash & (table->capacity - 1);
    while (table->entries[place].name != nullptr && strcmp(table->entries[place].name, name) != 0)
        place = (place + 1) & (table->capacity - 1);
    return &table->entries[place];
}

uint32_t *symbols_find(SymbolTable *table, const char *name)
{
    if (table->capacity == 0)
        return nullptr;
    SymbolEntry *entry = entryFor(table, name);
    return entry->name == nullptr ? nullptr : &entry->number;
}

static void grow(SymbolTable *table)
{
    SymbolTable larger = {nullptr, table->count, table->capacity == 0 ? 64 : table->capacity * 2};
    larger.entries = static_cast<SymbolEntry *>(arena_alloc(larger.capacity * sizeof(SymbolEntry)));
    for (size_t i = 0; i < table->capacity; i++)
        if (table->entries[i].name != nullptr)
            *entryFor(&larger, table->entries[i].name) = table->entries[i];
    *table = larger;
}

void symbols_add(SymbolTable *table, const char *name, uint32_t number)
{
    if (table->count * 2 >= table->capacity)
        grow(table);
    *entryFor(table, name) = {name, number};
    table->count++;
}
