// The recording of skip lists, shared by skiplist.cpp and its report; not for other modules.
#ifndef COMMON_BASE_SKIPLIST_INTERNAL_H
#define COMMON_BASE_SKIPLIST_INTERNAL_H

#include "common/base/skiplist.h"

enum : uint32_t {
    SKIPLIST_ALIVE = 1, // bits of SkipListDebugRecord.flags
    SKIPLIST_VOIDCMP = 2,
    SKIPLIST_VOIDHASH = 4,
};

// Whether new lists are recorded; and the master list of SkipListDebugRecord, null until the first
// list is recorded.
extern bool gSkipListRecording;
extern Vector *gSkipListRecords;

// Adds a record of `list`, alive and with all counters 0, to the master list and returns it. A null
// text function means the default.
SkipListDebugRecord *skiplist_newRecord(const SkipList *list, SkipText toText, const char *file,
                                        uint32_t line);

// Records the insert of `node`, which has just been linked in after h->update: counts it, traces a
// clash at `file` and `line` and checks the order of the list.
void skiplist_recordInsert(const SkipList *h, const SkipNode *node, const char *file,
                           uint32_t line);

// Records how many nodes with this hash the last search met on the lowest level.
void skiplist_recordChain(const SkipList *h, uint32_t hash);

#endif
