#define MODULE "common/hash"
#include <cstdlib>
#include <ctime>

#include "common/base/hash_internal.h"
#include "common/base/memory.h"

namespace {
// Open addressing with linear probing, at most three quarters full.
struct HashSlot {
    HashEntry *entry; // null: free
    HashEntry **link; // the link to the entry in its chain
    uint32_t spread;  // of the entry's key, so that a probe need not read the entry
};

struct ChainEnd {
    HashEntry **link; // the null link after the last entry
    uint32_t length;  // entries before it
};
} // namespace

using SpreadFunction = uint32_t (*)(const void *key);

struct HashIndex {
    uint32_t mask;  // number of slots, a power of two, less one
    uint32_t shift; // 32 less the logarithm of that number
    HashSlot *slots;
    ChainEnd *ends;        // for each bucket
    SpreadFunction secret; // hashes the key itself with a secret; null: its hash is spread
};

static constexpr uint32_t SMALLEST_LOG = 10;
static constexpr uint32_t CROWD = 256; // an insert passes this many slots only when the hash is bad

// ---- Spreading --------------------------------------------------------------------------------

namespace {
// Two numbers that nobody outside this run can know.
struct Secret {
    uint64_t start;
    uint64_t factor; // odd
};
} // namespace

// Made from things that differ from run to run: the time, and the addresses of the stack and the
// heap.
static Secret newSecret(const void *heap)
{
    constexpr uint64_t golden = 0x9E3779B97F4A7C15U;
    timespec now = {};
    std::timespec_get(&now, TIME_UTC);
    const uint64_t moment =
        static_cast<uint64_t>(now.tv_sec) << 30 ^ static_cast<uint64_t>(now.tv_nsec);
    uint64_t sum = moment * golden;
    const auto add = [&sum](uint64_t value) {
        sum = (sum ^ sum >> 31 ^ value) * golden;
        return sum ^ sum >> 29;
    };
    add(reinterpret_cast<uintptr_t>(&now));
    const uint64_t start = add(reinterpret_cast<uintptr_t>(heap));
    return {start, add(start) | 1};
}

static Secret s_secret;

// Anybody can make any number of keys with equal hashes. To make them collide here as well, one
// would have to know the secret.
static uint64_t stir(uint64_t spread, uint64_t value)
{
    spread = (spread ^ value) * s_secret.factor;
    return spread ^ spread >> 32;
}

static uint32_t highBits(uint64_t spread)
{
    return static_cast<uint32_t>(spread * s_secret.factor >> 32);
}

static uint32_t spreadText(const void *text)
{
    uint64_t spread = s_secret.start;
    for (const auto *c = static_cast<const uint8_t *>(text); *c != 0; ++c)
        spread = stir(spread, *c);
    return highBits(spread);
}

static uint32_t spreadTextNoCase(const void *text)
{
    uint64_t spread = s_secret.start;
    for (const auto *c = static_cast<const uint8_t *>(text); *c != 0; ++c)
        spread = stir(spread, hash_foldCase(*c));
    return highBits(spread);
}

static uint32_t spreadPointer(const void *pointer)
{
    return highBits(stir(s_secret.start, reinterpret_cast<uintptr_t>(pointer)));
}

// How to spread the keys that a comparison of this library tells apart, so that equal ones stay
// together; null for a comparison of the caller's own, of which only the hash is known.
static SpreadFunction secretSpread(HashCompare compare)
{
    static constexpr struct {
        HashCompare compare;
        SpreadFunction spread;
    } rows[] = {
        {hash_stringCompare, spreadText},
        {hash_stringCompareNoCase, spreadTextNoCase},
        {voidcmp, spreadPointer},
    };
    for (const auto &row : rows) {
        if (row.compare == compare)
            return row.spread;
    }
    return nullptr;
}

// The number whose high bits say where to look for a key's entry. Equal keys have the same.
static uint32_t spreadOf(const HashIndex *index, const void *key, uint32_t hash)
{
    return index->secret != nullptr ? index->secret(key) : hash * 0x9E3779B1U;
}

// ---- Slots ------------------------------------------------------------------------------------

// Returns the number of slots passed.
static uint32_t placeSlot(HashIndex *index, HashSlot slot)
{
    uint32_t at = slot.spread >> index->shift;
    uint32_t passed = 0;
    for (; index->slots[at].entry != nullptr; ++passed)
        at = (at + 1) & index->mask;
    index->slots[at] = slot;
    return passed;
}

// Gives the index empty slots, so many that `count` entries will fill between a quarter and half of
// them.
static void newSlots(HashIndex *index, uint32_t count)
{
    uint32_t log = SMALLEST_LOG;
    while (log < 31 && (uint64_t{1} << log) <= uint64_t{count} * 2)
        ++log;
    index->mask = (uint32_t{1} << log) - 1;
    index->shift = 32 - log;
    index->slots = static_cast<HashSlot *>(xmalloc_must((uint64_t{1} << log) * sizeof(HashSlot)));
}

// Moves the entries to new slots, enough for the table's count. The entries themselves are read
// only when they are to be spread anew.
static void moveSlots(HashTable *table, bool anew)
{
    HashIndex *index = table->index;
    HashSlot *old = index->slots;
    const uint32_t last = index->mask;
    newSlots(index, table->count);
    for (uint32_t at = 0; at <= last; ++at) {
        HashSlot slot = old[at];
        if (slot.entry == nullptr)
            continue;
        if (anew)
            slot.spread = spreadOf(index, slot.entry->key, slot.entry->hash);
        placeSlot(index, slot);
    }
    std::free(old);
}

// Spreads the keys by the secret from now on, if the index knows the comparison.
[[gnu::cold]] static void keepSecret(HashTable *table)
{
    if (s_secret.factor == 0)
        s_secret = newSecret(table->index);
    table->index->secret = secretSpread(table->compare);
    if (table->index->secret != nullptr)
        moveSlots(table, true);
}

static uint32_t findSlot(const HashIndex *index, const HashEntry *entry)
{
    uint32_t at = spreadOf(index, entry->key, entry->hash) >> index->shift;
    while (index->slots[at].entry != entry)
        at = (at + 1) & index->mask;
    return at;
}

// Fills the gap at `hole` with the entries after it that may move there.
static void closeGap(HashIndex *index, uint32_t hole)
{
    for (uint32_t at = hole;;) {
        at = (at + 1) & index->mask;
        if (index->slots[at].entry == nullptr)
            break;
        const uint32_t home = index->slots[at].spread >> index->shift;
        if (((at - home) & index->mask) < ((at - hole) & index->mask))
            continue; // it would end up before its home
        index->slots[hole] = index->slots[at];
        hole = at;
    }
    index->slots[hole].entry = nullptr;
}

// ---- The index --------------------------------------------------------------------------------

void hash_indexBuild(HashTable *table)
{
    auto *index = static_cast<HashIndex *>(xmalloc_must(sizeof(HashIndex)));
    newSlots(index, table->count);
    index->ends = static_cast<ChainEnd *>(xmalloc_must(uint64_t{table->size} * sizeof(ChainEnd)));
    table->index = index;
    for (uint32_t i = 0; i < table->size; ++i) {
        HashEntry **link = &table->buckets[i];
        index->ends[i].link = link;
        for (; *link != nullptr; link = &(*link)->next)
            hash_indexAdd(table, link);
    }
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

HashPlace hash_indexLocate(const HashTable *table, const void *key, uint32_t hash)
{
    const HashIndex *index = table->index;
    const uint32_t spread = spreadOf(index, key, hash);
    const HashSlot *slot;
    for (uint32_t at = spread >> index->shift; (slot = &index->slots[at])->entry != nullptr;
         at = (at + 1) & index->mask) {
        if (slot->spread == spread && table->compare(key, slot->entry->key) == 0)
            return {slot->link, hash, 0};
    }
    const ChainEnd *end = &index->ends[hash % table->size];
    return {end->link, hash, end->length};
}

void hash_indexAdd(HashTable *table, HashEntry **link)
{
    HashIndex *index = table->index;
    HashEntry *entry = *link;
    if (table->count > index->mask / 4 * 3)
        moveSlots(table, false);
    ChainEnd *end = &index->ends[entry->hash % table->size];
    end->link = &entry->next;
    ++end->length;
    const HashSlot slot = {entry, link, spreadOf(index, entry->key, entry->hash)};
    if (placeSlot(index, slot) > CROWD && index->secret == nullptr)
        keepSecret(table);
}

void hash_indexRemove(HashTable *table, HashEntry **link)
{
    HashIndex *index = table->index;
    const HashEntry *entry = *link;
    ChainEnd *end = &index->ends[entry->hash % table->size];
    --end->length;
    if (entry->next != nullptr)
        index->slots[findSlot(index, entry->next)].link = link;
    else
        end->link = link;
    closeGap(index, findSlot(index, entry));
}
