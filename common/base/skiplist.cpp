#define MODULE "common/skiplist"
#include <cstdlib>

#include "common/base/exitpath.h"
#include "common/base/hash.h"
#include "common/base/memory.h"
#include "common/base/skiplist_internal.h"
#include "common/base/vector.h"

static constexpr uint32_t COPY_LINE = 260; // where copies are made and filled

static_assert(sizeof(SkipNode) == 40, "a node of one level takes 40 bytes");

static uint32_t s_nextSerial; // nodes and lists

// Only a recorded list knows whether it has been destroyed; any other is taken to be alive.
static bool isalive(const SkipList *h)
{
    return h->debug == nullptr || (h->debug->flags & SKIPLIST_ALIVE) != 0;
}

// ---- Nodes ------------------------------------------------------------------------------------

// Gives the same sequence in every run; the first draw is discarded.
static uint32_t drawNumber()
{
    static bool seeded;
    if (!seeded) {
        seeded = true;
        std::srand(0);
        (void)std::rand();
    }
    return static_cast<uint32_t>(std::rand());
}

// One node in four of a level reaches the next, and no node goes more than one level beyond the
// list's.
static uint32_t drawLevel(const SkipList *h)
{
    const uint32_t highest =
        h->head->level < SKIPLIST_LEVELS - 1 ? h->head->level : SKIPLIST_LEVELS - 1;
    uint32_t level = 1;
    while (level <= highest && (drawNumber() & 3) == 0)
        ++level;
    return level;
}

static SkipNode *newNode(uint32_t links)
{
    const uint64_t size = sizeof(SkipNode) + (links - 1) * sizeof(void *);
    auto *node = static_cast<SkipNode *>(xmalloc_must(size));
    node->serial = s_nextSerial++;
    return node;
}

// ---- Lists ------------------------------------------------------------------------------------

static int32_t defaultCompare(const void *a, const void *b)
{
    const uintptr_t difference = reinterpret_cast<uintptr_t>(a) - reinterpret_cast<uintptr_t>(b);
    return static_cast<int32_t>(static_cast<uint32_t>(difference));
}

SkipList *skiplist_new_func(SkipHash hash, SkipCompare compare, SkipText toText, const char *file,
                            uint32_t line)
{
    auto *h = static_cast<SkipList *>(xmalloc_must(sizeof(SkipList)));
    h->head = newNode(SKIPLIST_LEVELS);
    h->head->level = 1;
    h->hash = hash != nullptr ? hash : voidhash;
    h->compare = compare != nullptr ? compare : defaultCompare;
    if (gSkipListRecording) {
        h->debug = skiplist_newRecord(h, toText, file, line);
        h->debug->flags |= (h->hash == voidhash ? SKIPLIST_VOIDHASH : 0U) |
                           (h->compare == defaultCompare ? SKIPLIST_VOIDCMP : 0U);
    }
    return h;
}

static void freeNodes(SkipNode *node)
{
    while (node != nullptr) {
        SkipNode *next = node->forward[0];
        std::free(node);
        node = next;
    }
}

void skiplist_clear(SkipList *h)
{
    ASSERT_AT(225, h != NULL);
    freeNodes(h->head->forward[0]);
    for (uint32_t i = 0; i < h->head->level; ++i)
        h->head->forward[i] = nullptr;
    h->head->level = 1;
    h->count = 0;
}

void skiplist_destroy(SkipList *h)
{
    if (h == nullptr)
        return;
    freeNodes(h->head);
    if (h->debug != nullptr) {
        ASSERT_AT(241, isalive(h));
        h->debug->flags &= ~uint32_t{SKIPLIST_ALIVE};
    }
    std::free(h);
}

SkipList *skiplist_copy(const SkipList *source)
{
    if (source == nullptr)
        return nullptr;
    const SkipText toText = source->debug != nullptr ? source->debug->key_tostring : nullptr;
    SkipList *copy = skiplist_new_func(source->hash, source->compare, toText, MODULE, COPY_LINE);
    for (const SkipNode *node = source->head->forward[0]; node != nullptr; node = node->forward[0])
        skiplist_insert_func(copy, node->key, node->value, MODULE, COPY_LINE);
    return copy;
}

// ---- Searching --------------------------------------------------------------------------------

// Whether the node comes before the key's place.
static bool isBefore(const SkipList *h, const SkipNode *node, const void *key, uint32_t hash)
{
    return node->hash < hash || (node->hash == hash && h->compare(key, node->key) > 0);
}

// Leaves the last node before the key's place on each level in h->update, and returns the key's
// node, or null when it is absent. In a large list most of the time is spent waiting for memory, so
// the node at which the search may go on one level below is prefetched before it is known whether
// it does.
static SkipNode *search(SkipList *h, const void *key, uint32_t hash)
{
    SkipNode *node = h->head;
    SkipNode *stop = nullptr; // where the level above ended: known not to come before
    for (uint32_t i = h->head->level; i-- > 0;) {
        const uint32_t below = i != 0 ? i - 1 : 0;
        __builtin_prefetch(node->forward[below]);
        SkipNode *next;
        while ((next = node->forward[i]) != stop && isBefore(h, next, key, hash)) {
            node = next;
            __builtin_prefetch(node->forward[below]);
        }
        stop = next;
        h->update[i] = node;
    }
    const bool hit = stop != nullptr && stop->hash == hash && h->compare(key, stop->key) == 0;
    return hit ? stop : nullptr;
}

static SkipNode *find(SkipList *h, const void *key)
{
    return search(h, key, h->hash(key));
}

static void *valueOf(const SkipNode *node)
{
    return node != nullptr ? node->value : nullptr;
}

void *skiplist_get(SkipList *h, const void *key)
{
    ASSERT_AT(322, h != NULL);
    return valueOf(find(h, key));
}

int skiplist_haskey(SkipList *h, const void *key)
{
    ASSERT_AT(329, h != NULL);
    return find(h, key) != nullptr;
}

uint32_t skiplist_count(const SkipList *h)
{
    ASSERT_AT(336, h != NULL);
    return h->count;
}

void *skiplist_first(const SkipList *h)
{
    ASSERT_AT(342, h != NULL);
    return valueOf(h->head->forward[0]);
}

void *skiplist_nearest(SkipList *h, const void *key)
{
    ASSERT_AT(348, h != NULL);
    const SkipNode *node = find(h, key);
    return valueOf(node != nullptr ? node : h->update[0]); // the head has no value
}

void *skiplist_next(SkipList *h, const void *key)
{
    ASSERT_AT(356, h != NULL);
    const SkipNode *node = find(h, key);
    return valueOf(node != nullptr ? node->forward[0] : h->update[0]->forward[0]);
}

// ---- Inserting and removing -------------------------------------------------------------------

// A node reaches at most one level beyond the list's, where it follows the head.
static void raiseLevel(SkipList *h, uint32_t level)
{
    if (level <= h->head->level)
        return;
    h->update[h->head->level] = h->head;
    h->head->level = level;
}

static void linkNode(SkipList *h, SkipNode *node)
{
    for (uint32_t i = 0; i < node->level; ++i) {
        SkipNode *before = h->update[i];
        ASSERT_TEXT_AT(442, before != nullptr, "h->update[i] != NULL");
        node->forward[i] = before->forward[i];
        before->forward[i] = node;
    }
    ++h->count;
}

static void unlinkNode(SkipList *h, const SkipNode *node)
{
    for (uint32_t i = node->level; i-- > 0;) {
        SkipNode *before = h->update[i];
        ASSERT_TEXT_AT(498, before != nullptr, "h->update[i] != NULL");
        before->forward[i] = node->forward[i];
    }
    --h->count;
}

int skiplist_insert_func(SkipList *h, const void *key, const void *value, const char *file,
                         uint32_t line)
{
    ASSERT_AT(410, h != NULL);
    ASSERT_AT(411, h->debug == NULL || isalive(h));
    const uint32_t hash = h->hash(key);
    const bool present = search(h, key, hash) != nullptr;
    if (h->debug != nullptr) [[unlikely]]
        skiplist_recordChain(h, hash);
    if (present)
        return 0;
    const uint32_t level = drawLevel(h);
    raiseLevel(h, level);
    SkipNode *node = newNode(level);
    node->value = const_cast<void *>(value);
    node->key = key;
    node->hash = hash;
    node->level = level;
    linkNode(h, node);
    if (h->debug != nullptr) [[unlikely]]
        skiplist_recordInsert(h, node, file, line);
    return 1;
}

void *skiplist_remove(SkipList *h, const void *key)
{
    ASSERT_AT(490, h != NULL);
    SkipNode *node = find(h, key);
    if (node == nullptr)
        return nullptr;
    unlinkNode(h, node);
    void *value = node->value;
    std::free(node);
    return value;
}

// ---- Visiting ---------------------------------------------------------------------------------

int skiplist_foreach(const SkipList *h, void *context, SkipVisitor visitor)
{
    ASSERT_AT(275, h != NULL);
    ASSERT_AT(276, visitor != NULL);
    for (const SkipNode *node = h->head->forward[0]; node != nullptr;) {
        const SkipNode *next = node->forward[0]; // the visitor may remove the entry
        if (const int result = visitor(context, node->key, node->value); result != 0)
            return result;
        node = next;
    }
    return 0;
}

Vector *skiplist_values(const SkipList *h)
{
    ASSERT_AT(299, h != NULL);
    Vector *values = vec_new(MODULE, 300);
    for (const SkipNode *node = h->head->forward[0]; node != nullptr; node = node->forward[0])
        vec_add(values, node->value);
    return values;
}

Vector *skiplist_keys(const SkipList *h)
{
    ASSERT_AT(314, h != NULL);
    Vector *keys = vec_new(MODULE, 315);
    for (const SkipNode *node = h->head->forward[0]; node != nullptr; node = node->forward[0])
        vec_add(keys, node->key);
    return keys;
}
