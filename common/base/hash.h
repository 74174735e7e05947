// HashTable: a key-to-value map with a fixed number of buckets, chaining, and caller-supplied hash
// and equality.
//
//     HashTable *table = hash_new_func(199, hash_string, hash_stringCompare, MODULE, __LINE__);
//     hash_insert_func(table, "key", value, MODULE, __LINE__);
//     value = hash_get(table, "key");
//     hash_destroy(table);
//
// A table owns neither keys nor values. It never resizes: the creator chooses the bucket count.
// Each entry remembers its key's full hash, so walking a chain costs one comparison of numbers per
// entry, and keys are compared only where the hashes agree. A table in which an insert met a long
// chain gets an index, so that keys that collide, by chance or by design, cost no more than others.
// With a comparison of the caller's own, this holds only for keys that merely share a bucket; keys
// with equal full hashes are then compared one by one. Visiting order everywhere is bucket by
// bucket, oldest entry first.
//
// A null table is a broken contract and ends the run unless a function says otherwise.
#ifndef COMMON_BASE_HASH_H
#define COMMON_BASE_HASH_H

#include <cstdint>

struct Vector;
struct HashIndex;
struct HashTable;

// The hash of a key: any 32 bits. Equal keys (compare gives 0) must have equal hashes.
using HashFunction = uint32_t (*)(const void *key);
// 0 when the keys are equal.
using HashCompare = int (*)(const void *a, const void *b);
// Visits one entry; a non-zero result stops the visit.
using HashVisitor = int (*)(void *context, const void *key, void *value);

struct HashEntry {
    void *value;
    const void *key;
    HashEntry *next;
    uint32_t hash; // the key's full hash
};

// The record of a table created while recording is on; it lives to the end of the run.
struct HashDebugRecord {
    const HashTable *table; // for printing only: dangles once the table is destroyed
    uint32_t flags;         // bit 0 alive; bit 1 uses voidcmp; bit 2 uses voidhash
    const char *file;       // where it was created
    uint32_t line;
    uint32_t capacity;  // bucket count
    uint32_t max_usage; // largest count ever reached
    uint32_t max_util;  // largest number of non-empty buckets ever reached
    uint32_t util;      // non-empty buckets now
    uint32_t clashes;   // total of chain lengths met by inserts into non-empty buckets
};

struct HashTable {
    uint32_t size;       // buckets
    uint32_t count;      // entries
    HashFunction hash;   // voidhash when none was given
    HashCompare compare; // voidcmp when none was given
    HashEntry **buckets; // chain heads
    HashIndex *index;    // finds entries without walking long chains; or null
    HashDebugRecord *debug;
};

// The defaults, identity of pointers: the pointer's low 32 bits; 0 for the same pointer, else 1.
uint32_t voidhash(const void *key);
int voidcmp(const void *a, const void *b);

// For tables keyed by text. hash_string() multiplies by 33 from 5381 and adds each byte as a signed
// number; the NoCase forms fold A-Z first. The comparisons give the difference of the first two
// bytes that differ, taken as unsigned, or 0. No argument may be null.
uint32_t hash_string(const void *text);
uint32_t hash_stringNoCase(const void *text);
int hash_stringCompare(const void *a, const void *b);
int hash_stringCompareNoCase(const void *a, const void *b);

// Creates an empty table of `size` buckets (0 is a broken contract), owned by the caller. A null
// hash or comparison means identity of pointers. `file` must outlive the run.
HashTable *hash_new_func(uint32_t size, HashFunction hash, HashCompare compare, const char *file,
                         uint32_t line);

// Adds the pair and returns 1; returns 0 and changes nothing when an equal key is present. Keys and
// values may be null as far as the table's functions allow; a null value cannot be told from an
// absent key by hash_get() and hash_remove(). `file` and `line` are the caller's own: when the
// bucket is not empty and the table is recorded, the trace line about the clash is located there.
int hash_insert_func(HashTable *table, const void *key, const void *value, const char *file,
                     uint32_t line);

// Adds the pair, taking the place of an equal key's entry, except that a key present with a null
// value keeps it.
void hash_replace(HashTable *table, const void *key, const void *value);

// The value of an equal key, or null when it is absent; and whether it is present (1 or 0).
void *hash_get(const HashTable *table, const void *key);
int hash_haskey(const HashTable *table, const void *key);

// Removes an equal key's entry and returns its value, or null when it is absent.
void *hash_remove(HashTable *table, const void *key);

// The number of entries.
uint32_t hash_count(const HashTable *table);

// Calls visitor(context, key, value) for each entry; stops at and returns the first non-zero
// result, else returns 0. The visitor may remove the entry it was called for, but no other; it
// must not be null.
int hash_foreach(const HashTable *table, void *context, HashVisitor visitor);

// New vectors of all values or keys, owned by the caller.
Vector *hash_values(const HashTable *table);
Vector *hash_keys(const HashTable *table);

// Removes every entry.
void hash_clear(HashTable *table);

// Makes `destination` (null: a new table) hold the entries of `source` in the same order, and
// returns it. A given destination takes the source's bucket count and keeps its own functions and
// record. A null source destroys the destination and gives null.
HashTable *hash_copy(HashTable *destination, const HashTable *source, const char *file,
                     uint32_t line);

// Removes every entry and frees the table. Null is allowed.
void hash_destroy(HashTable *table);

// Switches the recording of new tables in the master list, for the report at the end of the run
// (container_report.h), on (non-zero) or off.
void hash_debugEnable(int on);

#endif
