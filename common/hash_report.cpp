#define MODULE "common/hash"
#include "common/hash_internal.h"

#include "common/memory.h"
#include "common/qzdebug.h"
#include "common/vector.h"

bool gHashRecording;
static Vector *s_master; // HashDebugRecord; null until the first table is recorded

void hash_debugEnable(int on)
{
    gHashRecording = on != 0;
}

HashDebugRecord *hash_newRecord(const HashTable *table, const char *file, uint32_t line)
{
    auto *record = static_cast<HashDebugRecord *>(xmalloc_must(sizeof(HashDebugRecord)));
    record->table = table;
    record->flags = HASH_ALIVE;
    record->file = file;
    record->line = line;
    record->capacity = table->size;
    return record;
}

void hash_listRecord(HashDebugRecord *record)
{
    if (s_master == nullptr)
        s_master = vec_new(MODULE, 151);
    vec_add(s_master, record);
}

static int compareRecords(const void *slotA, const void *slotB)
{
    const auto *a = *static_cast<const HashDebugRecord *const *>(slotA);
    const auto *b = *static_cast<const HashDebugRecord *const *>(slotB);
    if (a->clashes != b->clashes)
        return a->clashes > b->clashes ? -1 : 1;
    const auto addressA = reinterpret_cast<uintptr_t>(a);
    const auto addressB = reinterpret_cast<uintptr_t>(b);
    return addressA == addressB ? 0 : addressA > addressB ? -1 : 1;
}

static void printRecord(const HashDebugRecord *record)
{
    const auto mark = [record](uint32_t flag) { return (record->flags & flag) != 0 ? 'Y' : 'n'; };
    trace_printf("# %p    %s:%d    %u/%u    %u/%u    %u    %c    %c    %c",
                 static_cast<const void *>(record->table), record->file,
                 static_cast<int>(record->line), record->max_util, record->capacity,
                 record->max_usage, record->capacity, record->clashes, mark(HASH_VOIDCMP),
                 mark(HASH_VOIDHASH), mark(HASH_ALIVE));
}

void hash_report()
{
    if (s_master == nullptr)
        return;
    vec_sort(s_master, compareRecords);
    trace_puts("# Hash Table Master List:");
    trace_puts("# ptr    file:line    max_util/capacity    max_usage/capacity    clashes    voidcmp"
               "    voidhash    alive");
    if (vec_size(s_master) == 0)
        trace_puts("# No hash tables were used");
    for (const auto *record : vec_each<HashDebugRecord>(s_master))
        printRecord(record);
}
