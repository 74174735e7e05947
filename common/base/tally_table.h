// TallyTable: counts how often each key is added, and keeps the keys with the highest counts at
// hand in a short top list.
//
//     TallyTable *t = tally_new(199, 10, nullptr, nullptr);
//     tally_add(t, cache_string("main.c"));
//     const void *most = tally_top(t);
//     tally_destroy(t);
//
// Keys are equal only when they are the same pointer: interned strings, for example. A table owns
// its entries and not its keys.
//
// The top list is ordered by falling count when an add sorts it. An add that only puts a key into
// its last place, instead of the key with the lowest count there, does not sort. Until the next add
// that does, the last count may be higher than the one before it. The longer the list, the more an
// add of a key in it costs.
//
// Null tables and wrong arguments are checked as gDebugAssertMode says (see qzdebug.h), which may
// end the run; each function says what it does where it does not.
#ifndef COMMON_BASE_TALLY_TABLE_H
#define COMMON_BASE_TALLY_TABLE_H

#include <cstdint>

#include "common/base/hash.h"

struct Vector;

// One key and its count; owned by the table.
struct TallyEntry {
    const void *key; // the counted key
    uint32_t count;  // times added
    uint8_t in_top;  // 1 while the entry is in the top list
};

// Orders two entries of equal count in the top list: negative when the first is to come first.
using TallyTieBreak = int (*)(const TallyEntry *a, const TallyEntry *b);

struct TallyTable {
    HashTable *table;        // key to entry
    uint32_t top_list_size;  // the most entries the top list holds
    Vector *top;             // TallyEntry; the top list
    TallyTieBreak tie_break; // null: equal counts come in any order
};

// Creates an empty table, owned by the caller. The number of buckets and the size of the top list
// are checked not to be 0; where that does not end the run, the table gets one bucket, or counts
// without a top list. A null hash function means the pointer's low 32 bits. A tie break must not
// add to a tally table. Null when memory is exhausted and its report returns.
TallyTable *tally_new(uint32_t size, uint32_t top_list_size, HashFunction hash,
                      TallyTieBreak tie_break);

// Counts the key and returns its new count; 0 for a null table. A count beyond 32 bits is a failed
// check, and starts again from 0.
uint32_t tally_add(TallyTable *t, const void *key);

// The key with the highest count (the first of the top list), or null when there is none or the
// table is null.
const void *tally_top(const TallyTable *t);

// The top list of TallyEntry, owned by the table and valid until the table is cleared or destroyed;
// null for a null table, which is not checked.
Vector *tally_topList(const TallyTable *t);

// The entry's key; null for null.
const void *tally_entryKey(const TallyEntry *entry);

// Forgets every key; frees the table as well. Null is allowed.
void tally_clear(TallyTable *t);
void tally_destroy(TallyTable *t);

#endif
