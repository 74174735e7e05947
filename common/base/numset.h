// NumSet: a set of unsigned 64-bit numbers.
//
//     NumSet *set = numset_new();
//     numset_add(set, 0);
//     for (numset_iterReset(set); numset_iterHasNext(set);)
//         use(numset_iterNext(set));
//     numset_iterDone(set, 0);
//     numset_destroy(set);
//
// It is a PtrSet (see there for the operations, the iterators and what null does) whose elements
// are the numbers plus one, so that 0 can be a member and the largest number cannot. Vectors and
// iterations give the numbers in ascending order.
//
// As pointers in a PtrSet do, two numbers that differ by a multiple of 2 to the 32nd count as one
// member: use it for numbers below that.
#ifndef COMMON_BASE_NUMSET_H
#define COMMON_BASE_NUMSET_H

#include <cstdint>

struct Vector;
struct NumSet; // a PtrSet with its own type

// Means "none" where a number is expected: the one number that cannot be a member.
constexpr uint64_t NUMSET_NONE = UINT64_MAX;

// Creates an empty set, owned by the caller; frees a set (null is allowed).
NumSet *numset_new();
void numset_destroy(NumSet *sp);

// Whether the number can be a member: 1, or 0 for NUMSET_NONE alone.
int numset_canContain(uint64_t n);

// Adds the number and returns 1; returns 0 when it is present. The number must be one that can be a
// member.
int numset_add(NumSet *sp, uint64_t n);

// Removes the number and returns 1; returns 0 when it is absent.
int numset_remove(NumSet *sp, uint64_t n);

// Whether the number is present (1 or 0).
int numset_has(const NumSet *sp, uint64_t n);

// Change the first set, return a new one, or copy, as their PtrSet counterparts do.
void numset_union(NumSet *sd, const NumSet *ss);
void numset_intersect(NumSet *sd, const NumSet *ss);
void numset_subtract(NumSet *sd, const NumSet *ss);
void numset_toggle(NumSet *sd, const NumSet *ss);
NumSet *numset_newUnion(const NumSet *s1, const NumSet *s2);
NumSet *numset_newIntersection(const NumSet *s1, const NumSet *s2);
NumSet *numset_newDifference(const NumSet *s1, const NumSet *s2);
void numset_copy(NumSet *dest, const NumSet *src);

// Answer as their PtrSet counterparts do (1 or 0).
int numset_queryEqual(const NumSet *sp1, const NumSet *sp2);
int numset_queryIntersect(const NumSet *sp1, const NumSet *sp2);
int numset_querySubset(const NumSet *sp1, const NumSet *sp2);
int numset_queryComplement(const NumSet *sp1, const NumSet *sp2);

// The number of members, and their sum modulo 2 to the 64th.
uint32_t numset_size(const NumSet *sp);
uint64_t numset_sum(const NumSet *sp);

// The smallest and the largest member; NUMSET_NONE for an empty set. Both visit the whole set.
uint64_t numset_min(const NumSet *sp);
uint64_t numset_max(const NumSet *sp);

// A new vector whose elements are the members themselves (as pointers, ascending; 0 is a null
// pointer), owned by the caller.
Vector *numset_elements(const NumSet *sp);

// Iterate as their PtrSet counterparts do. iterLook and iterNext give NUMSET_NONE at the end.
void numset_iterReset(NumSet *sp);
int numset_iterHasNext(const NumSet *sp);
uint64_t numset_iterLook(const NumSet *sp);
uint64_t numset_iterNext(const NumSet *sp);
int numset_iterDone(NumSet *sp, int more);

// The creation number, counted together with those of PtrSets.
uint32_t numset_id(const NumSet *sp);

#endif
