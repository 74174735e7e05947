#define MODULE "common/vector"
#include "common/base/memory.h"
#include "common/base/vector_debug.h"

bool gVectorRecording;
Vector *gVectorRecords;

void vec_debugEnable(int on)
{
    gVectorRecording = false; // the master list must not list itself
    if (on == 0)
        return;
    if (gVectorRecords == nullptr)
        gVectorRecords = vec_new_size(10, MODULE, __LINE__);
    gVectorRecording = true;
}

VectorDebugRecord *vec_debugRecord(const Vector *vector, const char *file, uint32_t line)
{
    auto *record = static_cast<VectorDebugRecord *>(xmalloc_must(sizeof(VectorDebugRecord)));
    record->vector = vector;
    record->flags = VECTOR_ALIVE;
    record->file = file;
    record->line = line;
    record->capacity = vector->capacity;
    record->max_count = vector->count;
    vec_add(gVectorRecords, record);
    return record;
}
