// SkipList: an ordered key-to-value map.
//
//     SkipList *list = skiplist_new_func(nullptr, nullptr, nullptr, MODULE, __LINE__);
//     skiplist_insert_func(list, key, value, MODULE, __LINE__);
//     value = skiplist_get(list, key);
//     skiplist_destroy(list);
//
// Entries are kept in ascending order of their keys' hashes (unsigned), those of equal hash in
// ascending order of the comparison. Each entry is a node on 1 to 16 levels of linked lists; the
// level is drawn at random from a generator with a fixed seed, so that lists have the same shape in
// every run. Searching, inserting and removing take logarithmic time.
//
// With the default functions the order is that of the keys' low 32 bits, and two keys that differ
// by a multiple of 2 to the 32nd are one key.
//
// A list owns neither keys nor values. A null list is a broken contract and ends the run unless a
// function says otherwise.
#ifndef COMMON_BASE_SKIPLIST_H
#define COMMON_BASE_SKIPLIST_H

#include <cstdint>

struct Vector;
struct SkipList;

enum : uint32_t { SKIPLIST_LEVELS = 16 }; // the most levels a node can have

// The hash of a key: any 32 bits, always the same for one key.
using SkipHash = uint32_t (*)(const void *key);
// Orders two keys of equal hash: negative, zero (one and the same key) or positive.
using SkipCompare = int32_t (*)(const void *a, const void *b);
// The text a key is shown with; valid until the function is called again.
using SkipText = const char *(*)(const void *key);
// Visits one entry; a non-zero result stops the visit.
using SkipVisitor = int (*)(void *context, const void *key, void *value);

// One entry, with as many links as it has levels. The head of a list is a node without key and
// value.
struct SkipNode {
    void *value;
    const void *key;
    uint32_t hash;        // the key's hash, computed once at the insertion
    uint32_t level;       // links, 1 to 16; of the head: the levels in use
    uint32_t serial;      // creation number, counted over the whole process
    SkipNode *forward[1]; // the next node on each level, or null
};

// The record of a list created while recording is on; it lives to the end of the run.
struct SkipListDebugRecord {
    const SkipList *list; // for printing only: dangles once the list is destroyed
    uint32_t flags;       // bit 0 alive; bit 1 default comparison; bit 2 default hash
    const char *file;     // where it was created
    uint32_t line;
    uint32_t max_usage;    // largest count ever reached
    uint32_t clashes;      // inserts beside a node of equal hash
    uint32_t inserts;      // inserts that added an entry
    uint32_t max_chain;    // most nodes of its key's hash that one insert has met
    SkipText key_tostring; // shows a key
};

struct SkipList {
    SkipNode *head;                    // has 16 links
    SkipNode *update[SKIPLIST_LEVELS]; // where the last search left each level in use
    uint32_t count;                    // entries
    SkipHash hash;                     // the key's low 32 bits when none was given
    SkipCompare compare;               // the difference of these when none was given
    SkipListDebugRecord *debug;        // record in the master list, or null
};

// Creates an empty list, owned by the caller. A null hash or comparison means the default; a null
// text function shows a key as "%p", or "NULL". `file` must outlive the run.
SkipList *skiplist_new_func(SkipHash hash, SkipCompare compare, SkipText toText, const char *file,
                            uint32_t line);

// Removes every entry and frees the list. Null is allowed.
void skiplist_destroy(SkipList *h);

// Removes every entry; the list is as it was created.
void skiplist_clear(SkipList *h);

// Adds the pair and returns 1; returns 0 and changes nothing when the key is present. `file` and
// `line` are where a clash is traced. On a recorded list every insert also checks the whole order,
// and a list out of order is printed to the debug output and ends the run.
int skiplist_insert_func(SkipList *h, const void *key, const void *value, const char *file,
                         uint32_t line);

// Removes the key's entry and returns its value, or null when it is absent.
void *skiplist_remove(SkipList *h, const void *key);

// The value of the key, or null when it is absent; and whether it is present (1 or 0).
void *skiplist_get(SkipList *h, const void *key);
int skiplist_haskey(SkipList *h, const void *key);

// The number of entries.
uint32_t skiplist_count(const SkipList *h);

// The value of the first entry, or null when there is none.
void *skiplist_first(const SkipList *h);

// The value of the key or, when it is absent, of the entry at which the search for it stopped: the
// last one before its place. Null when there is none before it.
void *skiplist_nearest(SkipList *h, const void *key);

// The value of the entry that follows the key (or its place, when it is absent); null at the end.
void *skiplist_next(SkipList *h, const void *key);

// Calls visitor(context, key, value) for each entry in order; stops at and returns the first
// non-zero result, else returns 0. The visitor may search the list and remove the entry it was
// called for, but no other; it must not be null.
int skiplist_foreach(const SkipList *h, void *context, SkipVisitor visitor);

// New vectors of all values or keys in order, owned by the caller.
Vector *skiplist_values(const SkipList *h);
Vector *skiplist_keys(const SkipList *h);

// Returns a new list with the entries and functions of `source`, owned by the caller; null for
// null.
SkipList *skiplist_copy(const SkipList *source);

// Switches the recording of new lists in the master list, for the report at the end of the run
// (container_report.h), on (non-zero) or off.
void skiplist_debugEnable(int on);

#endif
