#define MODULE "common/skiplist"
#include <cstdio>

#include "common/base/exitpath.h"
#include "common/base/hooks.h"
#include "common/base/memory.h"
#include "common/base/skiplist_internal.h"
#include "common/base/vector.h"

bool gSkipListRecording;
Vector *gSkipListRecords;

// ---- Records ----------------------------------------------------------------------------------

void skiplist_debugEnable(int on)
{
    gSkipListRecording = on != 0;
}

static const char *defaultText(const void *key)
{
    static char text[2 + 2 * sizeof key + 1];
    if (key == nullptr)
        return "NULL";
    (void)snprintf(text, sizeof text, "%p", key);
    return text;
}

SkipListDebugRecord *skiplist_newRecord(const SkipList *list, SkipText toText, const char *file,
                                        uint32_t line)
{
    auto *record = static_cast<SkipListDebugRecord *>(xmalloc_must(sizeof(SkipListDebugRecord)));
    record->list = list;
    record->flags = SKIPLIST_ALIVE;
    record->file = file;
    record->line = line;
    record->key_tostring = toText != nullptr ? toText : defaultText;
    if (gSkipListRecords == nullptr)
        gSkipListRecords = vec_new(MODULE, 206);
    vec_add(gSkipListRecords, record);
    return record;
}

void skiplist_recordChain(const SkipList *h, uint32_t hash)
{
    const SkipNode *above = h->head->level > 1 ? h->update[1] : h->head;
    uint32_t chain = 0;
    for (const SkipNode *node = above; node != h->update[0];) {
        node = node->forward[0];
        chain += node->hash == hash ? 1 : 0;
    }
    const SkipNode *stop = h->update[0]->forward[0];
    chain += stop != nullptr && stop->hash == hash ? 1 : 0;
    if (chain > h->debug->max_chain)
        h->debug->max_chain = chain;
}

// ---- Printing a list --------------------------------------------------------------------------

static void print_node(const SkipNode *node, SkipText key_tostring)
{
    ASSERT_AT(150, key_tostring != NULL);
    container_trace(nullptr, 0, "KEY: %s", key_tostring(node->key));
    container_trace(nullptr, 0, "    number: %u", node->serial);
    container_trace(nullptr, 0, "    hash:   %X", node->hash);
    container_trace(nullptr, 0, "    order:  %u", node->level);
    for (uint32_t i = 0; i < node->level; ++i) {
        const SkipNode *next = node->forward[i];
        container_trace(nullptr, 0, "        %u) %s", i,
                        next != nullptr ? key_tostring(next->key) : "Nil");
    }
}

static void printList(const SkipList *h)
{
    container_trace(nullptr, 0, "HEAD(%4d)", static_cast<int>(h->head->level));
    for (const SkipNode *node = h->head->forward[0]; node != nullptr; node = node->forward[0])
        print_node(node, h->debug->key_tostring);
}

// ---- Inserts ----------------------------------------------------------------------------------

[[noreturn]] static void endOutOfOrder(const SkipList *h, const SkipNode *node, const char *file,
                                       uint32_t line)
{
    container_trace(file, line, "SKIPLIST Node out-of-order: @ %s:%d", h->debug->file,
                    static_cast<int>(h->debug->line));
    print_node(node, h->debug->key_tostring);
    container_trace(nullptr, 0, "List AFTER:");
    printList(h);
    db_assert("n->hash <= n->forward[i]->hash", MODULE, 474);
}

static void checkOrder(const SkipList *h, const char *file, uint32_t line)
{
    for (uint32_t i = h->head->level; i-- > 0;) {
        uint32_t hash = 0;
        for (const SkipNode *node = h->head->forward[i]; node != nullptr; node = node->forward[i]) {
            if (node->hash < hash)
                endOutOfOrder(h, node, file, line);
            hash = node->hash;
        }
    }
}

// The head is not a neighbour: it has no key.
static bool hasClash(const SkipList *h, const SkipNode *node)
{
    const SkipNode *before = h->update[0];
    const SkipNode *after = node->forward[0];
    return (before != h->head && before->hash == node->hash) ||
           (after != nullptr && after->hash == node->hash);
}

void skiplist_recordInsert(const SkipList *h, const SkipNode *node, const char *file, uint32_t line)
{
    SkipListDebugRecord *record = h->debug;
    if (hasClash(h, node)) {
        container_trace(file, line, "SKIPLIST @ %s:%d (#%u) clashed %d times inserting (%p,%p)",
                        record->file, static_cast<int>(record->line), h->count, 1, node->key,
                        node->value);
        ++record->clashes;
    }
    ++record->inserts;
    if (h->count > record->max_usage)
        record->max_usage = h->count;
    checkOrder(h, file, line);
}
