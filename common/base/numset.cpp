#define MODULE "common/numset"
#include "common/base/numset.h"

#include <cstddef>

#include "common/base/exitpath.h"
#include "common/base/ptrset.h"

static PtrSet *asSet(NumSet *sp)
{
    return reinterpret_cast<PtrSet *>(sp);
}

static const PtrSet *asSet(const NumSet *sp)
{
    return reinterpret_cast<const PtrSet *>(sp);
}

static NumSet *asNumbers(PtrSet *sp)
{
    return reinterpret_cast<NumSet *>(sp);
}

static const void *asPointer(uint64_t n)
{
    return reinterpret_cast<const void *>(uintptr_t{n}); // NOLINT(performance-no-int-to-ptr)
}

static const void *elementOf(uint64_t n)
{
    return asPointer(n + 1);
}

// Null means "no element" and is not a number.
static uint64_t numberOf(const void *element)
{
    return uint64_t{reinterpret_cast<uintptr_t>(element)} - 1;
}

// The list is ordered by the low 32 bits of the numbers plus one, which is not the numbers' order.
static int compareSlots(const void *slotA, const void *slotB)
{
    const uint64_t a = numberOf(*static_cast<const void *const *>(slotA));
    const uint64_t b = numberOf(*static_cast<const void *const *>(slotB));
    return a == b ? 0 : a < b ? -1 : 1;
}

NumSet *numset_new()
{
    return asNumbers(ptrset_new(compareSlots));
}

void numset_destroy(NumSet *sp)
{
    ptrset_destroy(asSet(sp));
}

// ---- Members ----------------------------------------------------------------------------------

int numset_canContain(uint64_t n)
{
    return n != NUMSET_NONE;
}

int numset_add(NumSet *sp, uint64_t n)
{
    ASSERT_AT(35, sp != NULL);
    ASSERT_AT(36, numset_canContain(n));
    return ptrset_add(asSet(sp), elementOf(n));
}

// NUMSET_NONE plus one is 0 and would collide with the element of another number.
int numset_remove(NumSet *sp, uint64_t n)
{
    ASSERT_AT(43, sp != NULL);
    return numset_canContain(n) != 0 ? ptrset_remove(asSet(sp), elementOf(n)) : 0;
}

int numset_has(const NumSet *sp, uint64_t n)
{
    ASSERT_AT(50, sp != NULL);
    return numset_canContain(n) != 0 ? ptrset_has(asSet(sp), elementOf(n)) : 0;
}

uint32_t numset_size(const NumSet *sp)
{
    ASSERT_AT(56, sp != NULL);
    return ptrset_size(asSet(sp));
}

// ---- Two sets ---------------------------------------------------------------------------------

void numset_union(NumSet *sd, const NumSet *ss)
{
    ASSERT_AT(70, sd != NULL);
    ASSERT_AT(71, ss != NULL);
    ptrset_union(asSet(sd), asSet(ss));
}

void numset_intersect(NumSet *sd, const NumSet *ss)
{
    ASSERT_AT(80, sd != NULL);
    ASSERT_AT(81, ss != NULL);
    ptrset_intersect(asSet(sd), asSet(ss));
}

void numset_subtract(NumSet *sd, const NumSet *ss)
{
    ASSERT_AT(90, sd != NULL);
    ASSERT_AT(91, ss != NULL);
    ptrset_subtract(asSet(sd), asSet(ss));
}

void numset_toggle(NumSet *sd, const NumSet *ss)
{
    ASSERT_AT(100, sd != NULL);
    ASSERT_AT(101, ss != NULL);
    ptrset_toggle(asSet(sd), asSet(ss));
}

static NumSet *combined(const NumSet *s1, const NumSet *s2,
                        PtrSet *(*combine)(const PtrSet *, const PtrSet *))
{
    ASSERT_AT(110, s1 != NULL);
    ASSERT_AT(111, s2 != NULL);
    return asNumbers(combine(asSet(s1), asSet(s2)));
}

NumSet *numset_newUnion(const NumSet *s1, const NumSet *s2)
{
    return combined(s1, s2, ptrset_newUnion);
}

NumSet *numset_newIntersection(const NumSet *s1, const NumSet *s2)
{
    return combined(s1, s2, ptrset_newIntersection);
}

NumSet *numset_newDifference(const NumSet *s1, const NumSet *s2)
{
    return combined(s1, s2, ptrset_newDifference);
}

void numset_copy(NumSet *dest, const NumSet *src)
{
    ASSERT_AT(120, dest != NULL);
    ASSERT_AT(121, src != NULL);
    ptrset_copy(asSet(dest), asSet(src));
}

// ---- Queries ----------------------------------------------------------------------------------

static int ask(const NumSet *sp1, const NumSet *sp2, int (*query)(const PtrSet *, const PtrSet *))
{
    ASSERT_AT(130, sp1 != NULL);
    ASSERT_AT(131, sp2 != NULL);
    return query(asSet(sp1), asSet(sp2));
}

int numset_queryEqual(const NumSet *sp1, const NumSet *sp2)
{
    return ask(sp1, sp2, ptrset_queryEqual);
}

int numset_queryIntersect(const NumSet *sp1, const NumSet *sp2)
{
    return ask(sp1, sp2, ptrset_queryIntersect);
}

int numset_querySubset(const NumSet *sp1, const NumSet *sp2)
{
    return ask(sp1, sp2, ptrset_querySubset);
}

int numset_queryComplement(const NumSet *sp1, const NumSet *sp2)
{
    return ask(sp1, sp2, ptrset_queryComplement);
}

uint64_t numset_sum(const NumSet *sp)
{
    ASSERT_AT(140, sp != NULL);
    return ptrset_sum(asSet(sp)) - ptrset_size(asSet(sp));
}

static int keepSmallest(void *context, const void *element, void *)
{
    auto *least = static_cast<uint64_t *>(context);
    if (numberOf(element) < *least)
        *least = numberOf(element);
    return 0;
}

static int keepLargest(void *context, const void *element, void *)
{
    auto *most = static_cast<uint64_t *>(context);
    if (*most == NUMSET_NONE || numberOf(element) > *most)
        *most = numberOf(element);
    return 0;
}

static uint64_t extreme(const NumSet *sp, SkipVisitor keep)
{
    uint64_t number = NUMSET_NONE;
    if (const SkipList *list = asSet(sp)->list; list != nullptr)
        skiplist_foreach(list, &number, keep);
    return number;
}

uint64_t numset_min(const NumSet *sp)
{
    ASSERT_AT(150, sp != NULL);
    return extreme(sp, keepSmallest);
}

uint64_t numset_max(const NumSet *sp)
{
    ASSERT_AT(156, sp != NULL);
    return extreme(sp, keepLargest);
}

Vector *numset_elements(const NumSet *sp)
{
    ASSERT_AT(162, sp != NULL);
    Vector *elements = ptrset_elements(asSet(sp));
    for (uint32_t i = 0; i < vec_size(elements); ++i) {
        const void *element = vec_elementAt(elements, i);
        vec_setAt(elements, asPointer(numberOf(element)), i);
    }
    return elements;
}

// ---- Iterating --------------------------------------------------------------------------------

void numset_iterReset(NumSet *sp)
{
    ASSERT_AT(180, sp != NULL);
    ptrset_iterReset(asSet(sp));
}

int numset_iterHasNext(const NumSet *sp)
{
    ASSERT_AT(186, sp != NULL);
    return ptrset_iterHasNext(asSet(sp));
}

uint64_t numset_iterLook(const NumSet *sp)
{
    ASSERT_AT(192, sp != NULL);
    return numberOf(ptrset_iterLook(asSet(sp)));
}

uint64_t numset_iterNext(const NumSet *sp)
{
    ASSERT_AT(198, sp != NULL);
    return numberOf(ptrset_iterNext(asSet(sp)));
}

int numset_iterDone(NumSet *sp, int more)
{
    ASSERT_AT(204, sp != NULL);
    return ptrset_iterDone(asSet(sp), more);
}

uint32_t numset_id(const NumSet *sp)
{
    ASSERT_AT(210, sp != NULL);
    return ptrset_id(asSet(sp));
}
