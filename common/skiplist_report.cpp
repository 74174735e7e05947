#define MODULE "common/skiplist"
#include <cstdio>

#include "common/exitpath.h"
#include "common/memory.h"
#include "common/qzdebug.h"
#include "common/skiplist_internal.h"
#include "common/vector.h"

bool gSkipListRecording;
static Vector *s_master; // SkipListDebugRecord; null until the first list is recorded

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
    if (s_master == nullptr)
        s_master = vec_new(MODULE, 206);
    vec_add(s_master, record);
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
    trace_printf("KEY: %s", key_tostring(node->key));
    trace_printf("    number: %u", node->serial);
    trace_printf("    hash:   %X", node->hash);
    trace_printf("    order:  %u", node->level);
    for (uint32_t i = 0; i < node->level; ++i) {
        const SkipNode *next = node->forward[i];
        trace_printf("        %u) %s", i, next != nullptr ? key_tostring(next->key) : "Nil");
    }
}

static void printList(const SkipList *h)
{
    trace_printf("HEAD(%4d)", static_cast<int>(h->head->level));
    for (const SkipNode *node = h->head->forward[0]; node != nullptr; node = node->forward[0])
        print_node(node, h->debug->key_tostring);
}

// ---- Inserts ----------------------------------------------------------------------------------

[[noreturn]] static void endOutOfOrder(const SkipList *h, const SkipNode *node, const char *file,
                                       uint32_t line)
{
    tracef(file, line, "SKIPLIST Node out-of-order: @ %s:%d", h->debug->file,
           static_cast<int>(h->debug->line));
    print_node(node, h->debug->key_tostring);
    trace_puts("List AFTER:");
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

// The head is no neighbour: it has no key.
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
        tracef(file, line, "SKIPLIST @ %s:%d (#%u) clashed %d times inserting (%p,%p)",
               record->file, static_cast<int>(record->line), h->count, 1, node->key, node->value);
        ++record->clashes;
    }
    ++record->inserts;
    if (h->count > record->max_usage)
        record->max_usage = h->count;
    checkOrder(h, file, line);
}

// ---- The report -------------------------------------------------------------------------------

static void printRecord(const SkipListDebugRecord *record)
{
    const auto mark = [record](uint32_t flag) { return (record->flags & flag) != 0 ? 'Y' : 'n'; };
    trace_printf("# %p    %s:%d    %u    %u/%u    %u    %c    %c    %c",
                 static_cast<const void *>(record->list), record->file,
                 static_cast<int>(record->line), record->max_usage, record->clashes,
                 record->inserts, record->max_chain, mark(SKIPLIST_VOIDCMP),
                 mark(SKIPLIST_VOIDHASH), mark(SKIPLIST_ALIVE));
}

void skiplist_report()
{
    trace_puts("# Skiplist Master List:");
    if (vec_size(s_master) == 0)
        trace_puts("# None.");
    trace_puts("# ptr    file:line    max_usage    clashes/inserts    max_chain    voidcmp    "
               "voidhash    alive");
    for (const auto *record : vec_each<SkipListDebugRecord>(s_master))
        printRecord(record);
}
