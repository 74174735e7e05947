#define MODULE "common/hash"
#include <cstdlib>

#include "common/base/exitpath.h"
#include "common/base/hash_internal.h"
#include "common/base/hooks.h"
#include "common/base/memory.h"
#include "common/base/vector.h"

static constexpr uint32_t FIRST_BLOCK = 64; // nodes; blocks double up to the largest
static constexpr uint32_t LARGEST_BLOCK = 4096;
static constexpr uint32_t LONG_CHAIN = 16; // an index pays once an insert passes this many entries

// Nodes are shared by all tables and never returned to the allocator. They are taken from the list
// of freed nodes first, then in sequence from the newest block, so that nodes allocated together
// lie together in memory.
static HashEntry *s_free;
static HashEntry *s_unused;
static uint32_t s_unusedCount;
static uint32_t s_blockSize = FIRST_BLOCK;

// Only a recorded table knows whether it has been destroyed; any other is taken to be alive.
static bool is_alive(const HashTable *h)
{
    return h->debug == nullptr || (h->debug->flags & HASH_ALIVE) != 0;
}

// ---- Nodes ------------------------------------------------------------------------------------

[[gnu::noinline]] static void newBlock()
{
    s_unused = static_cast<HashEntry *>(xmalloc_must(s_blockSize * sizeof(HashEntry)));
    s_unusedCount = s_blockSize;
    if (s_blockSize < LARGEST_BLOCK)
        s_blockSize *= 2;
}

static HashEntry *newNode()
{
    if (s_free != nullptr) {
        HashEntry *node = s_free;
        s_free = node->next;
        return node;
    }
    if (s_unusedCount == 0) [[unlikely]]
        newBlock();
    --s_unusedCount;
    return s_unused++;
}

static void freeNode(HashEntry *node)
{
    node->next = s_free;
    s_free = node;
}

static void freeChain(HashEntry *node)
{
    while (node != nullptr) {
        HashEntry *next = node->next;
        freeNode(node);
        node = next;
    }
}

// ---- Tables -----------------------------------------------------------------------------------

uint32_t voidhash(const void *key)
{
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(key));
}

int voidcmp(const void *a, const void *b)
{
    return a != b;
}

static HashEntry **newBuckets(uint32_t size)
{
    return static_cast<HashEntry **>(xmalloc_must(uint64_t{size} * sizeof(HashEntry *)));
}

static HashTable *newTable(uint32_t size, HashFunction hash, HashCompare compare)
{
    auto *table = static_cast<HashTable *>(xmalloc_must(sizeof(HashTable)));
    table->size = size;
    table->hash = hash;
    table->compare = compare;
    table->buckets = newBuckets(size);
    return table;
}

HashTable *hash_new_func(uint32_t size, HashFunction hash, HashCompare compare, const char *file,
                         uint32_t line)
{
    ASSERT_AT(136, size != 0);
    HashTable *table =
        newTable(size, hash != nullptr ? hash : voidhash, compare != nullptr ? compare : voidcmp);
    if (gHashRecording) {
        table->debug = hash_newRecord(table, file, line);
        table->debug->flags |=
            (hash == nullptr ? HASH_VOIDHASH : 0U) | (compare == nullptr ? HASH_VOIDCMP : 0U);
        hash_listRecord(table->debug);
    }
    return table;
}

void hash_clear(HashTable *table)
{
    ASSERT_AT(165, table != NULL);
    hash_indexDrop(table);
    for (uint32_t i = 0; i < table->size; ++i) {
        freeChain(table->buckets[i]);
        table->buckets[i] = nullptr;
    }
    table->count = 0;
    if (table->debug != nullptr)
        table->debug->util = 0;
}

void hash_destroy(HashTable *h)
{
    if (h == nullptr)
        return;
    hash_clear(h);
    std::free(h->buckets);
    if (h->debug != nullptr) {
        ASSERT_AT(182, is_alive(h));
        h->debug->flags &= ~uint32_t{HASH_ALIVE};
    }
    std::free(h);
}

// ---- Entries ----------------------------------------------------------------------------------

HashPlace hash_locate(const HashTable *table, const void *key, uint32_t hash)
{
    if (table->index != nullptr) [[unlikely]]
        return hash_indexLocate(table, key, hash);
    HashEntry **link = &table->buckets[hash % table->size];
    uint32_t passed = 0;
    for (HashEntry *node; (node = *link) != nullptr; link = &node->next, ++passed) {
        if (node->hash == hash && table->compare(key, node->key) == 0)
            break;
    }
    return {link, hash, passed};
}

static HashPlace locate(const HashTable *table, const void *key)
{
    ASSERT_AT(230, table != NULL);
    return hash_locate(table, key, table->hash(key));
}

[[gnu::cold]] static void recordInsert(const HashTable *h, uint32_t passed, const void *key,
                                       const void *value, const char *file, uint32_t line)
{
    ASSERT_AT(339, is_alive(h));
    HashDebugRecord *record = h->debug;
    if (passed != 0) {
        container_trace(file, line, "HASH @ %s:%d (%u/%u) clashed %d times inserting (%p,%p)",
                        record->file, static_cast<int>(record->line), h->count, h->size,
                        static_cast<int>(passed), key, value);
    } else if (++record->util > record->max_util) {
        record->max_util = record->util;
    }
    record->clashes += passed;
    if (h->count > record->max_usage)
        record->max_usage = h->count;
}

void hash_insertAt(HashTable *table, HashPlace place, const void *key, const void *value,
                   const char *file, uint32_t line)
{
    HashEntry *node = newNode();
    node->value = const_cast<void *>(value);
    node->key = key;
    node->next = nullptr;
    node->hash = place.hash;
    *place.link = node;
    ++table->count;
    if (table->index != nullptr)
        hash_indexAdd(table, place.link);
    else if (place.passed >= LONG_CHAIN) [[unlikely]]
        hash_indexBuild(table);
    if (table->debug != nullptr) [[unlikely]]
        recordInsert(table, place.passed, key, value, file, line);
}

int hash_insert_func(HashTable *table, const void *key, const void *value, const char *file,
                     uint32_t line)
{
    const HashPlace place = locate(table, key);
    if (*place.link != nullptr)
        return 0;
    hash_insertAt(table, place, key, value, file, line);
    return 1;
}

void hash_replace(HashTable *table, const void *key, const void *value)
{
    if (hash_get(table, key) == nullptr) {
        hash_insert_func(table, key, value, MODULE, 362);
        return;
    }
    hash_remove(table, key);
    hash_insert_func(table, key, value, MODULE, 364);
}

void *hash_get(const HashTable *table, const void *key)
{
    const HashEntry *node = *locate(table, key).link;
    return node != nullptr ? node->value : nullptr;
}

int hash_haskey(const HashTable *table, const void *key)
{
    return *locate(table, key).link != nullptr;
}

void *hash_remove(HashTable *h, const void *key)
{
    const HashPlace place = locate(h, key);
    HashEntry *node = *place.link;
    if (node == nullptr)
        return nullptr;
    void *value = node->value;
    if (h->index != nullptr)
        hash_indexRemove(h, place.link);
    *place.link = node->next;
    freeNode(node);
    --h->count;
    if (h->debug != nullptr) {
        ASSERT_AT(381, is_alive(h));
        // A copied table may hold more buckets than were counted.
        if (h->buckets[place.hash % h->size] == nullptr && h->debug->util != 0)
            --h->debug->util;
    }
    return value;
}

uint32_t hash_count(const HashTable *h)
{
    ASSERT_AT(397, h != NULL);
    return h->count;
}

// ---- Visiting ---------------------------------------------------------------------------------

int hash_foreach(const HashTable *table, void *context, HashVisitor visitor)
{
    ASSERT_AT(275, table != NULL);
    ASSERT_AT(276, visitor != NULL);
    for (uint32_t i = 0; i < table->size; ++i) {
        for (HashEntry *node = table->buckets[i]; node != nullptr;) {
            HashEntry *next = node->next; // the visitor may remove the entry
            if (const int result = visitor(context, node->key, node->value); result != 0)
                return result;
            node = next;
        }
    }
    return 0;
}

static int addValue(void *context, const void *, void *value)
{
    vec_add(static_cast<Vector *>(context), value);
    return 0;
}

static int addKey(void *context, const void *key, void *)
{
    vec_add(static_cast<Vector *>(context), key);
    return 0;
}

Vector *hash_values(const HashTable *table)
{
    ASSERT_AT(292, table != NULL);
    Vector *values = vec_new(MODULE, 293);
    hash_foreach(table, values, addValue);
    return values;
}

Vector *hash_keys(const HashTable *table)
{
    ASSERT_AT(309, table != NULL);
    Vector *keys = vec_new(MODULE, 310);
    hash_foreach(table, keys, addKey);
    return keys;
}

// ---- Copying ----------------------------------------------------------------------------------

static HashEntry *copyChain(const HashEntry *source)
{
    HashEntry *head = nullptr;
    for (HashEntry **link = &head; source != nullptr; source = source->next) {
        HashEntry *node = newNode();
        *node = *source;
        node->next = nullptr;
        *link = node;
        link = &node->next;
    }
    return head;
}

// The record of a copy keeps the source's counters and flags and stays out of the master list.
static HashDebugRecord *copyRecord(const HashTable *copy, const HashDebugRecord *source,
                                   const char *file, uint32_t line)
{
    HashDebugRecord *record = hash_newRecord(copy, file, line);
    *record = *source;
    record->table = copy;
    record->file = file;
    record->line = line;
    return record;
}

static void takeSize(HashTable *table, uint32_t size)
{
    if (table->size == size)
        return;
    std::free(table->buckets);
    table->buckets = newBuckets(size);
    table->size = size;
}

HashTable *hash_copy(HashTable *destination, const HashTable *source, const char *file,
                     uint32_t line)
{
    if (source == nullptr) {
        hash_destroy(destination);
        return nullptr;
    }
    if (destination == source)
        return destination;
    if (destination == nullptr) {
        destination = newTable(source->size, source->hash, source->compare);
        if (source->debug != nullptr)
            destination->debug = copyRecord(destination, source->debug, file, line);
    } else {
        hash_clear(destination);
        takeSize(destination, source->size);
    }
    destination->count = source->count;
    for (uint32_t i = 0; i < source->size; ++i)
        destination->buckets[i] = copyChain(source->buckets[i]);
    if (source->index != nullptr)
        hash_indexBuild(destination);
    return destination;
}
