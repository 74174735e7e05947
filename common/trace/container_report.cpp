#include "common/trace/container_report.h"

#include <cinttypes>
#include <cstdlib>
#include <cstring>

#include "common/base/hash_internal.h"
#include "common/base/memory.h"
#include "common/base/skiplist_internal.h"
#include "common/base/vector_debug.h"
#include "common/trace/qzdebug.h"

// ---- Vectors ----------------------------------------------------------------------------------

namespace {
// A number of vectors and their total capacity.
struct Tally {
    uintmax_t vectors;
    uintmax_t capacity;
};

// The sums for the vectors created at one place. Only the row of totals uses `total`.
struct SummaryRow {
    const char *file;
    uint32_t line;
    Tally living;
    Tally dead;
    Tally total;
    SummaryRow *next;
};
} // namespace

// Largest storage first, then the emptiest, then by place.
static int compareVectors(const void *slotA, const void *slotB)
{
    const auto *a = *static_cast<const VectorDebugRecord *const *>(slotA);
    const auto *b = *static_cast<const VectorDebugRecord *const *>(slotB);
    if (a->capacity != b->capacity)
        return a->capacity > b->capacity ? -1 : 1;
    if (a->max_count != b->max_count)
        return a->max_count < b->max_count ? -1 : 1;
    if (const int order = std::strcmp(a->file, b->file); order != 0)
        return order;
    if (a->line != b->line)
        return a->line < b->line ? -1 : 1;
    const auto addressA = reinterpret_cast<uintptr_t>(a);
    const auto addressB = reinterpret_cast<uintptr_t>(b);
    return addressA == addressB ? 0 : addressA > addressB ? -1 : 1;
}

// The row of a creation place; a new one is added at the head of the list.
static SummaryRow *summaryRow(SummaryRow **head, const char *file, uint32_t line)
{
    for (SummaryRow *row = *head; row != nullptr; row = row->next) {
        if (row->file == file && row->line == line)
            return row;
    }
    auto *row = static_cast<SummaryRow *>(xmalloc_must(sizeof(SummaryRow)));
    row->file = file;
    row->line = line;
    row->next = *head;
    *head = row;
    return row;
}

static void tally(Tally *sum, const VectorDebugRecord *record)
{
    sum->vectors += 1;
    sum->capacity += record->capacity;
}

static void countRecord(const VectorDebugRecord *record, SummaryRow *row, SummaryRow *totals)
{
    const bool alive = (record->flags & VECTOR_ALIVE) != 0;
    tally(alive ? &row->living : &row->dead, record);
    tally(alive ? &totals->living : &totals->dead, record);
    tally(&totals->total, record);
    if (alive)
        trace_printf("# %p    %s:%d    %u/%u    %c", static_cast<const void *>(record->vector),
                     record->file, static_cast<int>(record->line), record->max_count,
                     record->capacity, 'Y');
}

static void printRow(const SummaryRow *row)
{
    trace_printf("# %35s:%-5d                        %ju/%ju    %ju/%ju    %ju/%ju", row->file,
                 static_cast<int>(row->line), row->living.vectors, row->living.capacity,
                 row->dead.vectors, row->dead.capacity, row->total.vectors, row->total.capacity);
}

// Prints the rows from the head and frees all but the totals, the last row.
static void printSummary(SummaryRow *head, const SummaryRow *totals)
{
    trace_puts("# Vector Master List Summary:");
    trace_puts("#                                                                  Living          "
               "    Dead                Total");
    trace_puts("#                                file:line                         vectors/capacity"
               "    vectors/capacity    vectors/capacity");
    while (head != totals) {
        SummaryRow *next = head->next;
        printRow(head);
        std::free(head);
        head = next;
    }
    printRow(totals);
}

void vec_report()
{
    if (gVectorRecords == nullptr)
        return;
    SummaryRow totals = {};
    totals.file = "Total Summary";
    SummaryRow *head = &totals;
    vec_sort(gVectorRecords, compareVectors);
    trace_puts("# Living Vector Master List:");
    trace_puts("# ptr    file:line    max_count/capacity    alive");
    for (const auto *record : vec_each<VectorDebugRecord>(gVectorRecords))
        countRecord(record, summaryRow(&head, record->file, record->line), &totals);
    printSummary(head, &totals);
}

// ---- Hash tables ------------------------------------------------------------------------------

static int compareTables(const void *slotA, const void *slotB)
{
    const auto *a = *static_cast<const HashDebugRecord *const *>(slotA);
    const auto *b = *static_cast<const HashDebugRecord *const *>(slotB);
    if (a->clashes != b->clashes)
        return a->clashes > b->clashes ? -1 : 1;
    const auto addressA = reinterpret_cast<uintptr_t>(a);
    const auto addressB = reinterpret_cast<uintptr_t>(b);
    return addressA == addressB ? 0 : addressA > addressB ? -1 : 1;
}

static void printTable(const HashDebugRecord *record)
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
    if (gHashRecords == nullptr)
        return;
    vec_sort(gHashRecords, compareTables);
    trace_puts("# Hash Table Master List:");
    trace_puts("# ptr    file:line    max_util/capacity    max_usage/capacity    clashes    voidcmp"
               "    voidhash    alive");
    if (vec_size(gHashRecords) == 0)
        trace_puts("# No hash tables were used");
    for (const auto *record : vec_each<HashDebugRecord>(gHashRecords))
        printTable(record);
}

// ---- Skip lists -------------------------------------------------------------------------------

static void printSkipList(const SkipListDebugRecord *record)
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
    if (vec_size(gSkipListRecords) == 0)
        trace_puts("# None.");
    trace_puts("# ptr    file:line    max_usage    clashes/inserts    max_chain    voidcmp    "
               "voidhash    alive");
    for (const auto *record : vec_each<SkipListDebugRecord>(gSkipListRecords))
        printSkipList(record);
}
