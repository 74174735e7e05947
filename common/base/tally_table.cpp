#define MODULE "common/tally_table"
#include "common/base/tally_table.h"

#include <cstdlib>

#include "common/base/hooks.h"
#include "common/base/memory.h"
#include "common/base/vector.h"

// Reports a failed check by the assert mode and returns whether it held.
#define CHECK_AT(line, expression) check((expression), #expression, line)

static bool check(bool holds, const char *expression, uint32_t line)
{
    if (!holds && gCheckFailed != nullptr) [[unlikely]]
        gCheckFailed(expression, MODULE, line);
    return holds;
}

// ---- Tables -----------------------------------------------------------------------------------

TallyTable *tally_new(uint32_t size, uint32_t top_list_size, HashFunction hash,
                      TallyTieBreak tie_break)
{
    if (!CHECK_AT(115, size))
        size = 1;
    CHECK_AT(116, top_list_size);
    auto *tab = static_cast<TallyTable *>(xmalloc(sizeof(TallyTable)));
    if (!CHECK_AT(118, tab != NULL))
        return nullptr;
    tab->table = hash_new_func(size, hash, nullptr, MODULE, 119);
    CHECK_AT(120, tab->table);
    tab->top = vec_new(MODULE, 122);
    tab->top_list_size = top_list_size;
    tab->tie_break = tie_break;
    return tab;
}

static int freeEntry(void *, const void *, void *entry)
{
    std::free(entry);
    return 0;
}

void tally_clear(TallyTable *t)
{
    if (t == nullptr)
        return;
    vec_removeAll(t->top);
    hash_foreach(t->table, nullptr, freeEntry);
    hash_clear(t->table);
}

void tally_destroy(TallyTable *t)
{
    if (t == nullptr)
        return;
    tally_clear(t);
    hash_destroy(t->table);
    vec_destroy(t->top);
    std::free(t);
}

// ---- The top list -----------------------------------------------------------------------------

static TallyTieBreak s_tieBreak; // of the table whose top list is being sorted

static int compareEntries(const void *slotA, const void *slotB)
{
    const auto *a = *static_cast<const TallyEntry *const *>(slotA);
    const auto *b = *static_cast<const TallyEntry *const *>(slotB);
    if (a->count != b->count)
        return a->count > b->count ? -1 : 1;
    return s_tieBreak != nullptr ? s_tieBreak(a, b) : 0;
}

static void sortTop(const TallyTable *t)
{
    s_tieBreak = t->tie_break;
    vec_sort(t->top, compareEntries);
}

static void appendToTop(const TallyTable *t, TallyEntry *te)
{
    te->in_top = 1;
    vec_add(t->top, te);
}

// The entry takes the last place of a full list if its count is the higher one. Not sorted here:
// see the header.
static void replaceLast(const TallyTable *t, TallyEntry *te)
{
    auto *last = static_cast<TallyEntry *>(vec_top(t->top));
    if (last == nullptr || last->count >= te->count)
        return;
    last->in_top = 0;
    te->in_top = 1;
    vec_setAt(t->top, te, vec_size(t->top) - 1);
}

// ---- Counting ---------------------------------------------------------------------------------

static TallyEntry *countKey(const TallyTable *t, const void *key)
{
    auto *te = static_cast<TallyEntry *>(hash_get(t->table, key));
    if (te != nullptr) {
        ++te->count;
        CHECK_AT(150, te->count != 0);
        return te;
    }
    te = static_cast<TallyEntry *>(xmalloc_must(sizeof(TallyEntry)));
    te->key = key;
    te->count = 1;
    hash_insert_func(t->table, key, te, MODULE, 157);
    return te;
}

uint32_t tally_add(TallyTable *t, const void *key)
{
    if (!CHECK_AT(146, t != NULL))
        return 0;
    TallyEntry *te = countKey(t, key);
    if (te->in_top == 0) {
        if (vec_size(t->top) >= t->top_list_size) {
            replaceLast(t, te);
            return te->count;
        }
        appendToTop(t, te);
    }
    sortTop(t);
    return te->count;
}

const void *tally_top(const TallyTable *t)
{
    if (!CHECK_AT(167, t != NULL))
        return nullptr;
    return tally_entryKey(static_cast<const TallyEntry *>(vec_elementAt(t->top, 0)));
}

Vector *tally_topList(const TallyTable *t)
{
    return t != nullptr ? t->top : nullptr;
}

const void *tally_entryKey(const TallyEntry *entry)
{
    return entry != nullptr ? entry->key : nullptr;
}
