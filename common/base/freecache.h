// A bounded free list of equal-sized objects: short-lived bookkeeping records are recycled without
// a trip to the allocator.
//
//     Freecache *cache = freecache_new(sizeof(Record), 8192);
//     Record *record = freecache_get(cache);     // zero-filled
//     ...
//     freecache_add(cache, record);              // kept for the next get, or freed when full
//     freecache_destroy(cache);
//
// Objects taken from a cache belong to the caller until they are handed back (or freed directly).
#ifndef COMMON_BASE_FREECACHE_H
#define COMMON_BASE_FREECACHE_H

#include <cstdint>

struct Freecache {
    uint64_t obj_size; // bytes of every object handed out; at least the size of a pointer
    uint32_t num_free; // objects now on the free list; at most max_free
    uint32_t max_free; // the most objects that the list may hold
    void *free_list;   // head of the list; each free object's first 8 bytes link to the next
};

// Returns a new, empty cache, owned by the caller. `obj_size` must be at least the size of a
// pointer and `max_objs` at least 1; anything else is a broken contract and ends the run.
Freecache *freecache_new(uint64_t obj_size, uint32_t max_objs);

// Frees the cache and every object on its list. Null is allowed. Returns 0.
int freecache_destroy(Freecache *cache);

// Returns a zero-filled object of obj_size bytes, owned by the caller: the one handed back last, or
// a new one. Null only for a null cache.
void *freecache_get(Freecache *cache);

// Hands `object` back. Returns the new number of free objects, or 0 when the list was full and the
// object was freed instead. Neither argument may be null.
uint32_t freecache_add(Freecache *cache, void *object);

// The number of free objects, and the most the list may hold; 0 for a null cache.
uint32_t freecache_numFree(const Freecache *cache);
uint32_t freecache_maxFree(const Freecache *cache);

// 1 when the list is full, or empty; both answer 1 for a null cache.
int freecache_isFull(const Freecache *cache);
int freecache_isEmpty(const Freecache *cache);

// Prints the cache and the address of every free object on standard error. Null is allowed.
void freecache_dump(const Freecache *cache);

#endif
