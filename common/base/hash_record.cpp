#define MODULE "common/hash"
#include "common/base/hash_internal.h"
#include "common/base/memory.h"
#include "common/base/vector.h"

bool gHashRecording;
Vector *gHashRecords;

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
    if (gHashRecords == nullptr)
        gHashRecords = vec_new(MODULE, 151);
    vec_add(gHashRecords, record);
}
