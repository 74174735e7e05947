#define MODULE "common/ptrset"
#include "common/base/ptrset.h"

#include <cstddef>

#include "common/base/exitpath.h"
#include "common/base/freecache.h"

static constexpr uint32_t RECORDS_KEPT = 8192; // of sets, and of iterators

// Created with the first record; they live to the end of the run.
static Freecache *s_sets;
static Freecache *s_iterators;
static uint32_t s_nextId;

static_assert(sizeof(PtrSet) == 32 && sizeof(PtrSetIterator) == 16, "the records' sizes");

// ---- Creation and destruction -----------------------------------------------------------------

template <class T> static T *newRecord(Freecache **cache)
{
    if (*cache == nullptr)
        *cache = freecache_new(sizeof(T), RECORDS_KEPT);
    return static_cast<T *>(freecache_get(*cache));
}

PtrSet *ptrset_new(VectorCompare order)
{
    auto *sp = newRecord<PtrSet>(&s_sets);
    sp->id = s_nextId++;
    sp->order = order;
    return sp;
}

static void dropList(PtrSet *sp)
{
    skiplist_destroy(sp->list);
    sp->list = nullptr;
}

static void popIterator(PtrSet *sp)
{
    PtrSetIterator *top = sp->iterators;
    sp->iterators = top->next;
    vec_destroy(top->snapshot);
    freecache_add(s_iterators, top);
}

void ptrset_destroy(PtrSet *sp)
{
    if (sp == nullptr)
        return;
    dropList(sp);
    while (sp->iterators != nullptr)
        popIterator(sp);
    freecache_add(s_sets, sp);
}

VectorCompare ptrset_getCmpFunc(const PtrSet *sp)
{
    ASSERT_AT(110, sp != NULL);
    return sp->order;
}

uint32_t ptrset_id(const PtrSet *sp)
{
    ASSERT_AT(116, sp != NULL);
    return sp->id;
}

// ---- Elements ---------------------------------------------------------------------------------

int ptrset_add(PtrSet *sp, const void *element)
{
    ASSERT_AT(128, sp != NULL);
    if (sp->list == nullptr)
        sp->list = skiplist_new_func(nullptr, nullptr, nullptr, MODULE, 130);
    return skiplist_insert_func(sp->list, element, element, MODULE, 131);
}

int ptrset_remove(PtrSet *sp, const void *element)
{
    ASSERT_AT(138, sp != NULL);
    if (sp->list == nullptr)
        return 0;
    // The element null has the value null, so the value does not tell whether it was there.
    const uint32_t before = skiplist_count(sp->list);
    skiplist_remove(sp->list, element);
    return skiplist_count(sp->list) != before;
}

int ptrset_has(const PtrSet *sp, const void *element)
{
    ASSERT_AT(150, sp != NULL);
    return sp->list != nullptr && skiplist_haskey(sp->list, element) != 0;
}

uint32_t ptrset_size(const PtrSet *sp)
{
    ASSERT_AT(156, sp != NULL);
    return sp->list != nullptr ? skiplist_count(sp->list) : 0;
}

// ---- Changing by another set ------------------------------------------------------------------

static int forEach(const PtrSet *sp, void *context, SkipVisitor visitor)
{
    return sp->list != nullptr ? skiplist_foreach(sp->list, context, visitor) : 0;
}

static int addTo(void *context, const void *element, void *)
{
    ptrset_add(static_cast<PtrSet *>(context), element);
    return 0;
}

static int removeFrom(void *context, const void *element, void *)
{
    ptrset_remove(static_cast<PtrSet *>(context), element);
    return 0;
}

static int toggleIn(void *context, const void *element, void *)
{
    auto *sd = static_cast<PtrSet *>(context);
    if (ptrset_remove(sd, element) == 0)
        ptrset_add(sd, element);
    return 0;
}

namespace {
struct Intersection {
    PtrSet *sd;
    const PtrSet *ss;
};
} // namespace

static int removeMissing(void *context, const void *element, void *)
{
    const auto *sets = static_cast<const Intersection *>(context);
    if (ptrset_has(sets->ss, element) == 0)
        ptrset_remove(sets->sd, element);
    return 0;
}

void ptrset_union(PtrSet *sd, const PtrSet *ss)
{
    ASSERT_AT(170, sd != NULL);
    ASSERT_AT(171, ss != NULL);
    forEach(ss, sd, addTo);
}

void ptrset_intersect(PtrSet *sd, const PtrSet *ss)
{
    ASSERT_AT(182, sd != NULL);
    ASSERT_AT(183, ss != NULL);
    if (ptrset_size(ss) == 0) {
        dropList(sd);
        return;
    }
    Intersection sets = {sd, ss};
    forEach(sd, &sets, removeMissing);
}

void ptrset_subtract(PtrSet *sd, const PtrSet *ss)
{
    ASSERT_AT(200, sd != NULL);
    ASSERT_AT(201, ss != NULL);
    forEach(ss, sd, removeFrom);
}

void ptrset_toggle(PtrSet *sd, const PtrSet *ss)
{
    ASSERT_AT(212, sd != NULL);
    ASSERT_AT(213, ss != NULL);
    forEach(ss, sd, toggleIn);
}

// ---- New sets ---------------------------------------------------------------------------------

void ptrset_copy(PtrSet *dest, const PtrSet *src)
{
    ASSERT_AT(225, dest != NULL);
    ASSERT_AT(226, src != NULL);
    ASSERT_TEXT_AT(227, dest->iterators == nullptr, "dest->iterator == NULL");
    if (dest == src)
        return;
    dropList(dest);
    if (ptrset_size(src) != 0)
        dest->list = skiplist_copy(src->list);
}

static PtrSet *combined(const PtrSet *s1, const PtrSet *s2,
                        void (*combine)(PtrSet *, const PtrSet *))
{
    ASSERT_AT(240, s1 != NULL);
    ASSERT_AT(241, s2 != NULL);
    PtrSet *sp = ptrset_new(s1->order);
    ptrset_copy(sp, s1);
    combine(sp, s2);
    return sp;
}

PtrSet *ptrset_newUnion(const PtrSet *s1, const PtrSet *s2)
{
    return combined(s1, s2, ptrset_union);
}

PtrSet *ptrset_newIntersection(const PtrSet *s1, const PtrSet *s2)
{
    return combined(s1, s2, ptrset_intersect);
}

PtrSet *ptrset_newDifference(const PtrSet *s1, const PtrSet *s2)
{
    return combined(s1, s2, ptrset_subtract);
}

// ---- Queries ----------------------------------------------------------------------------------

static int isIn(void *context, const void *element, void *)
{
    return ptrset_has(static_cast<const PtrSet *>(context), element);
}

static int isMissing(void *context, const void *element, void *)
{
    return ptrset_has(static_cast<const PtrSet *>(context), element) == 0;
}

int ptrset_queryIntersect(const PtrSet *sp1, const PtrSet *sp2)
{
    ASSERT_AT(300, sp1 != NULL);
    ASSERT_AT(301, sp2 != NULL);
    return forEach(sp2, const_cast<PtrSet *>(sp1), isIn);
}

int ptrset_querySubset(const PtrSet *sp1, const PtrSet *sp2)
{
    ASSERT_AT(312, sp1 != NULL);
    ASSERT_AT(313, sp2 != NULL);
    return forEach(sp2, const_cast<PtrSet *>(sp1), isMissing) == 0;
}

int ptrset_queryComplement(const PtrSet *sp1, const PtrSet *sp2)
{
    ASSERT_AT(324, sp1 != NULL);
    ASSERT_AT(325, sp2 != NULL);
    return forEach(sp1, const_cast<PtrSet *>(sp2), isMissing);
}

static bool sameElements(const Vector *a, const Vector *b)
{
    for (uint32_t i = 0; i < vec_size(a); ++i) {
        if (vec_elementAt(a, i) != vec_elementAt(b, i))
            return false;
    }
    return true;
}

int ptrset_queryEqual(const PtrSet *sp1, const PtrSet *sp2)
{
    ASSERT_AT(340, sp1 != NULL);
    ASSERT_AT(341, sp2 != NULL);
    if (ptrset_size(sp1) != ptrset_size(sp2))
        return 0;
    if (ptrset_size(sp1) == 0)
        return 1;
    Vector *a = ptrset_elements(sp1);
    Vector *b = ptrset_elements(sp2);
    const bool same = sameElements(a, b);
    vec_destroy(a);
    vec_destroy(b);
    return same;
}

Vector *ptrset_elements(const PtrSet *sp)
{
    ASSERT_AT(377, sp != NULL);
    if (sp->list == nullptr)
        return vec_new(MODULE, 379);
    Vector *elements = skiplist_values(sp->list);
    if (sp->order != nullptr)
        vec_sort(elements, sp->order);
    return elements;
}

static int addValue(void *context, const void *element, void *)
{
    *static_cast<uint64_t *>(context) += reinterpret_cast<uintptr_t>(element);
    return 0;
}

uint64_t ptrset_sum(const PtrSet *sp)
{
    ASSERT_AT(400, sp != NULL);
    uint64_t sum = 0;
    forEach(sp, &sum, addValue);
    return sum;
}

// ---- Iterating --------------------------------------------------------------------------------

// The snapshot of the top iterator; null, which iterates as an empty vector, where none is open on
// a set without a list.
static Vector *topSnapshot(const PtrSet *sp, int line)
{
    const bool good = sp->list == nullptr || sp->iterators != nullptr;
    if (!good)
        db_assert("sp->table == NULL || sp->iterator != NULL", MODULE, line);
    return sp->iterators != nullptr ? sp->iterators->snapshot : nullptr;
}

// An empty set pushes an iterator only when another is open: otherwise the new iteration would get
// the open one's elements.
void ptrset_iterReset(PtrSet *sp)
{
    ASSERT_AT(420, sp != NULL);
    if (sp->list == nullptr && sp->iterators == nullptr)
        return;
    auto *iterator = newRecord<PtrSetIterator>(&s_iterators);
    iterator->snapshot = ptrset_elements(sp);
    vec_iterStart(iterator->snapshot);
    iterator->next = sp->iterators;
    sp->iterators = iterator;
}

void *ptrset_iterLook(const PtrSet *sp)
{
    ASSERT_AT(440, sp != NULL);
    return vec_iterLook(topSnapshot(sp, 441));
}

int ptrset_iterHasNext(const PtrSet *sp)
{
    ASSERT_AT(450, sp != NULL);
    return vec_iterHasNext(topSnapshot(sp, 451));
}

void *ptrset_iterNext(const PtrSet *sp)
{
    ASSERT_AT(460, sp != NULL);
    return vec_iterNext(topSnapshot(sp, 461));
}

int ptrset_iterDone(PtrSet *sp, int more)
{
    ASSERT_AT(470, sp != NULL);
    if (topSnapshot(sp, 471) != nullptr && more == 0)
        popIterator(sp);
    return more;
}
