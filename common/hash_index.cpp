#define MODULE "common/hash"
#include "common/hash_internal.h"

#include <cstdlib>

#include "common/memory.h"

// Open addressing with linear probing, at most three quarters full.
struct HashSlot {
    HashEntry *entry; // null: free
    uint32_t hash;    // the entry's, so that a probe need not visit it
};

struct HashIndex {
    uint32_t mask;     // number of slots, a power of two, less one
    uint32_t shift;    // 32 less the logarithm of that number
    HashSlot *slots;   //
    HashEntry ***ends; // for each bucket the null link at its chain's end
};

static constexpr uint32_t SMALLEST_LOG = 10;
static constexpr uint32_t LARGEST_LOG = 27; // more do not fit one allocation
static constexpr uint32_t LARGEST_COUNT = (uint32_t{1} << LARGEST_LOG) / 4 * 3;

// Spreads hashes whose low bits are alike (pointers, say) over the slots.
static uint32_t home_of(const HashIndex *index, uint32_t hash)
{
    return hash * 0x9E3779B1U >> index->shift;
}

static void place_entry(HashIndex *index, HashSlot slot)
{
    uint32_t at = home_of(index, slot.hash);
    while (index->slots[at].entry != nullptr)
        at = (at + 1) & index->mask;
    index->slots[at] = slot;
}

// Gives the index empty slots, between a quarter and half of which `count` entries will fill.
static void new_slots(HashIndex *index, uint32_t count)
{
    uint32_t log = SMALLEST_LOG;
    while (log < LARGEST_LOG && (uint64_t{1} << log) <= uint64_t{count} * 2)
        ++log;
    index->mask = (uint32_t{1} << log) - 1;
    index->shift = 32 - log;
    index->slots = static_cast<HashSlot *>(xmalloc_must((uint64_t{1} << log) * sizeof(HashSlot)));
}

static void build(HashTable *table)
{
    auto *index = static_cast<HashIndex *>(xmalloc_must(sizeof(HashIndex)));
    new_slots(index, table->count);
    index->ends =
        static_cast<HashEntry ***>(xmalloc_must(uint64_t{table->size} * sizeof(HashEntry **)));
    for (uint32_t i = 0; i < table->size; ++i) {
        HashEntry **link = &table->buckets[i];
        for (; *link != nullptr; link = &(*link)->next)
            place_entry(index, {*link, (*link)->hash});
        index->ends[i] = link;
    }
    table->index = index;
}

// Moves the entries to more slots, without visiting them.
static void enlarge(HashIndex *index, uint32_t count)
{
    HashSlot *old = index->slots;
    const uint32_t last = index->mask;
    new_slots(index, count);
    for (uint32_t at = 0; at <= last; ++at) {
        if (old[at].entry != nullptr)
            place_entry(index, old[at]);
    }
    std::free(old);
}

void hash_indexDrop(HashTable *table)
{
    if (table->index == nullptr)
        return;
    std::free(table->index->slots);
    std::free(table->index->ends);
    std::free(table->index);
    table->index = nullptr;
}

void hash_indexGrow(HashTable *table)
{
    if (table->count > LARGEST_COUNT)
        hash_indexDrop(table);
    else if (table->index == nullptr)
        build(table);
    else if (table->count > table->index->mask / 4 * 3)
        enlarge(table->index, table->count);
}

HashPlace hash_indexLocate(const HashTable *table, const void *key, uint32_t hash)
{
    HashIndex *index = table->index;
    uint32_t at = home_of(index, hash);
    for (; index->slots[at].entry != nullptr; at = (at + 1) & index->mask) {
        HashSlot *slot = &index->slots[at];
        if (slot->hash == hash && table->compare(key, slot->entry->key) == 0)
            return {&slot->entry, hash, 0};
    }
    return {index->ends[hash % table->size], hash, 0};
}

void hash_indexAdd(HashTable *table, HashEntry *entry)
{
    place_entry(table->index, {entry, entry->hash});
    table->index->ends[entry->hash % table->size] = &entry->next;
}

// Fills the gap at `hole` with the entries behind it that may move there.
static void close_gap(HashIndex *index, uint32_t hole)
{
    for (uint32_t at = hole;;) {
        at = (at + 1) & index->mask;
        if (index->slots[at].entry == nullptr)
            break;
        const uint32_t home = home_of(index, index->slots[at].hash);
        if (((at - home) & index->mask) < ((at - hole) & index->mask))
            continue; // it would come to stand in front of its home
        index->slots[hole] = index->slots[at];
        hole = at;
    }
    index->slots[hole].entry = nullptr;
}

void hash_indexRemove(HashTable *table, const HashEntry *entry, HashEntry **link)
{
    HashIndex *index = table->index;
    if (entry->next == nullptr)
        index->ends[entry->hash % table->size] = link;
    uint32_t at = home_of(index, entry->hash);
    while (index->slots[at].entry != entry)
        at = (at + 1) & index->mask;
    close_gap(index, at);
}
