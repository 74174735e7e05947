// The recording of vectors, shared by vector.cpp and its report; not for other modules.
#ifndef COMMON_BASE_VECTOR_DEBUG_H
#define COMMON_BASE_VECTOR_DEBUG_H

#include "common/base/vector.h"

enum : uint32_t { VECTOR_ALIVE = 1 }; // bit of VectorDebugRecord.flags

// Whether new vectors are recorded; and the master list of VectorDebugRecord, null until recording
// is first switched on.
extern bool gVectorRecording;
extern Vector *gVectorRecords;

// Adds a living record of `vector`, as it is now, to the master list and returns it.
VectorDebugRecord *vec_debugRecord(const Vector *vector, const char *file, uint32_t line);

#endif
