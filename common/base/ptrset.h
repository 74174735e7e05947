// PtrSet: a set of pointers.
//
//     PtrSet *set = ptrset_new(nullptr);
//     ptrset_add(set, element);
//     ptrset_iterReset(set);
//     while (ptrset_iterHasNext(set))
//         use(ptrset_iterNext(set));
//     ptrset_iterDone(set, 0);
//     ptrset_destroy(set);
//
// A set never owns its elements. They are kept in a skip list in the order of their low 32 bits;
// two pointers that differ by a multiple of 2 to the 32nd are one element there. Adding, removing
// and looking up take logarithmic time.
//
// An iteration goes over a snapshot of the elements, taken when it starts, so that the set may be
// changed meanwhile. Iterations form a stack on the set: nested ones each push their own and see
// only the top one.
//
// A null set is a broken contract and ends the run unless a function says otherwise. Wherever two
// sets are given they may be the same one.
#ifndef COMMON_BASE_PTRSET_H
#define COMMON_BASE_PTRSET_H

#include <cstdint>

#include "common/base/skiplist.h"
#include "common/base/vector.h"

// One open iteration; recycled through a free cache shared by all sets.
struct PtrSetIterator {
    Vector *snapshot;     // the elements, with an iteration of its own under way
    PtrSetIterator *next; // the iterator below this one on the set's stack
};

// Recycled through a free cache.
struct PtrSet {
    SkipList *list;            // each element is key and value; null: empty
    PtrSetIterator *iterators; // top of the stack of open iterators, or null
    uint32_t id;               // creation number, counted over the whole process
    VectorCompare order;       // sorts snapshots and vectors of elements, or null
};

// Creates an empty set, owned by the caller. Null: elements come in the order of their low 32 bits.
PtrSet *ptrset_new(VectorCompare order);

// Frees the set and its iterators, not its elements. Null is allowed.
void ptrset_destroy(PtrSet *sp);

// Adds the element and returns 1; returns 0 when it is present. Null is an element like any other.
int ptrset_add(PtrSet *sp, const void *element);

// Removes the element and returns 1; returns 0 when it is absent.
int ptrset_remove(PtrSet *sp, const void *element);

// Whether the element is present (1 or 0).
int ptrset_has(const PtrSet *sp, const void *element);

// Change the first set: add each element of the second; keep those that the second has as well;
// remove each element of the second; remove each element of the second that is present and add the
// others.
void ptrset_union(PtrSet *sd, const PtrSet *ss);
void ptrset_intersect(PtrSet *sd, const PtrSet *ss);
void ptrset_subtract(PtrSet *sd, const PtrSet *ss);
void ptrset_toggle(PtrSet *sd, const PtrSet *ss);

// The same into a new set with the order of the first, owned by the caller.
PtrSet *ptrset_newUnion(const PtrSet *s1, const PtrSet *s2);
PtrSet *ptrset_newIntersection(const PtrSet *s1, const PtrSet *s2);
PtrSet *ptrset_newDifference(const PtrSet *s1, const PtrSet *s2);

// Makes `dest` hold the elements of `src` in place of its own; it keeps its order and id. An open
// iterator on `dest` is a broken contract.
void ptrset_copy(PtrSet *dest, const PtrSet *src);

// Whether the sets have the same elements (1 or 0). The vectors of their elements, each sorted by
// its own set's order, are compared place by place: sets with the same elements but different
// orders may count as different.
int ptrset_queryEqual(const PtrSet *sp1, const PtrSet *sp2);

// Whether any element of the second is in the first; whether all are (also when there is none);
// whether some element of the first is not in the second.
int ptrset_queryIntersect(const PtrSet *sp1, const PtrSet *sp2);
int ptrset_querySubset(const PtrSet *sp1, const PtrSet *sp2);
int ptrset_queryComplement(const PtrSet *sp1, const PtrSet *sp2);

// The number of elements.
uint32_t ptrset_size(const PtrSet *sp);

// A new vector of the elements, sorted by the set's order, owned by the caller.
Vector *ptrset_elements(const PtrSet *sp);

// The sum of the elements' addresses, modulo 2 to the 64th.
uint64_t ptrset_sum(const PtrSet *sp);

// Starts an iteration over the elements as they are now, in the set's order. A set that holds
// nothing yet (or was emptied by an intersection) may push nothing. Its iteration has no elements
// and ends with ptrset_iterDone() like any other, but nothing may be added to the set in between.
void ptrset_iterReset(PtrSet *sp);

// 1 while the top iteration has more elements. Without an open iterator it is 0 on a set that holds
// nothing, and a broken contract otherwise.
int ptrset_iterHasNext(const PtrSet *sp);

// The next element of the top iteration, which the second also moves past; null at the end. The
// same contract.
void *ptrset_iterLook(const PtrSet *sp);
void *ptrset_iterNext(const PtrSet *sp);

// Returns `more`; when it is 0 the top iteration ends. The same contract.
int ptrset_iterDone(PtrSet *sp, int more);

// The order and the creation number.
VectorCompare ptrset_getCmpFunc(const PtrSet *sp);
uint32_t ptrset_id(const PtrSet *sp);

#endif
