// Shared by hash.cpp with its report and with the string cache, which finds and inserts in one
// walk; not for other modules.
#ifndef COMMON_BASE_HASH_INTERNAL_H
#define COMMON_BASE_HASH_INTERNAL_H

#include "common/base/hash.h"

enum : uint32_t {
    HASH_ALIVE = 1, // bits of HashDebugRecord.flags
    HASH_VOIDCMP = 2,
    HASH_VOIDHASH = 4,
};

// Where a key's entry is linked in, or would be. Valid until the table is changed.
struct HashPlace {
    HashEntry **link; // *link is the entry; null when the key is absent
    uint32_t hash;    // the key's full hash
    uint32_t passed;  // entries of the chain before it
};

// The byte in lower case: only A-Z change, whatever the locale.
inline uint8_t hash_foldCase(uint8_t c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<uint8_t>(c + 32) : c;
}

// Finds the place of `key`, whose full hash is given.
HashPlace hash_locate(const HashTable *table, const void *key, uint32_t hash);

// Adds the pair at the place where its key was found to be absent.
void hash_insertAt(HashTable *table, HashPlace place, const void *key, const void *value,
                   const char *file, uint32_t line);

// The index: a second way to an entry that does not walk its chain, built when an insert has passed
// a long one (the bucket count is fixed, and whoever chooses the keys may choose them to collide).
// The chains stay as they are and keep the order of visiting. Where too many keys have the same
// hash, the index changes to a hash of its own, which differs from run to run, so that keys made to
// collide are found as fast as others. This needs a comparison that the index knows:
// hash_stringCompare(), hash_stringCompareNoCase() or voidcmp().

// Builds the index of a table that has none.
void hash_indexBuild(HashTable *table);

// Frees the index, if there is one.
void hash_indexDrop(HashTable *table);

// As hash_locate(), through the index. `passed` is right for a key that is absent.
HashPlace hash_indexLocate(const HashTable *table, const void *key, uint32_t hash);

// The first adds the entry that `link` points to, the last of its chain. The second removes the
// entry that `link` still points to.
void hash_indexAdd(HashTable *table, HashEntry **link);
void hash_indexRemove(HashTable *table, HashEntry **link);

// Whether new tables are recorded; and the master list of HashDebugRecord, null until the first
// table is recorded.
extern bool gHashRecording;
extern Vector *gHashRecords;

// Returns a new record of `table`, alive and with all counters 0; and adds it to the master list.
HashDebugRecord *hash_newRecord(const HashTable *table, const char *file, uint32_t line);
void hash_listRecord(HashDebugRecord *record);

#endif
