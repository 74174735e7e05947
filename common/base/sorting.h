// Sorting and searching arrays.
#ifndef COMMON_BASE_SORTING_H
#define COMMON_BASE_SORTING_H

#include <cstddef>

using OsdepCompare = int (*)(const void *a, const void *b);
using OsdepSearchCompare = int (*)(const void *key, const void *element, size_t index);

// Sorts `count` elements of `size` bytes in place; not stable. No input takes quadratic time or
// deep recursion. A null base or comparison with two or more elements is a broken contract.
void osdep_qsort(void *vbase, size_t count, size_t size, OsdepCompare compare);

// The matching element of a sorted array, or null, also for a null base. A null comparison with
// elements to compare is a broken contract.
void *osdep_bsearch(const void *key, const void *base, size_t count, size_t size,
                    OsdepSearchCompare compare);

#endif
