#define MODULE "common/osdep"
#include "common/base/sorting.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "common/base/exitpath.h"

// Quicksort around a median of three, which changes to heapsort for a range that has been split
// more often than is likely with random input, and to insertion sort for short ranges.

static constexpr size_t STACK_BUFFER = 799; // largest element that is swapped through the stack
static constexpr size_t SHORT_RANGE = 10;

namespace {
struct Sort {
    size_t size; // of an element
    OsdepCompare compare;
    char *buffer; // room for one element
};
} // namespace

static void swapElements(const Sort *sort, char *a, char *b)
{
    if (sort->size == sizeof(uint64_t)) { // as vec_sort() asks
        uint64_t left;
        uint64_t right;
        std::memcpy(&left, a, sizeof left);
        std::memcpy(&right, b, sizeof right);
        std::memcpy(a, &right, sizeof right);
        std::memcpy(b, &left, sizeof left);
        return;
    }
    if (a == b)
        return;
    std::memcpy(sort->buffer, a, sort->size);
    std::memcpy(a, b, sort->size);
    std::memcpy(b, sort->buffer, sort->size);
}

static void sortShort(const Sort *sort, char *base, size_t count)
{
    const size_t size = sort->size;
    char *end = base + count * size;
    for (char *next = base + size; next < end; next += size)
        for (char *at = next; at > base && sort->compare(at - size, at) > 0; at -= size)
            swapElements(sort, at - size, at);
}

static void siftDown(const Sort *sort, char *base, size_t root, size_t count)
{
    const size_t size = sort->size;
    for (size_t child = 2 * root + 1; child < count; child = 2 * root + 1) {
        if (child + 1 < count && sort->compare(base + child * size, base + (child + 1) * size) < 0)
            ++child;
        if (sort->compare(base + root * size, base + child * size) >= 0)
            return;
        swapElements(sort, base + root * size, base + child * size);
        root = child;
    }
}

static void sortHeap(const Sort *sort, char *base, size_t count)
{
    for (size_t root = count / 2; root-- > 0;)
        siftDown(sort, base, root, count);
    for (size_t last = count; last-- > 1;) {
        swapElements(sort, base, base + last * sort->size);
        siftDown(sort, base, 0, last);
    }
}

// Puts the median of the first, middle and last element first.
static void choosePivot(const Sort *sort, char *base, size_t count)
{
    char *middle = base + count / 2 * sort->size;
    char *last = base + (count - 1) * sort->size;
    if (sort->compare(middle, last) > 0)
        swapElements(sort, middle, last);
    if (sort->compare(base, last) > 0)
        swapElements(sort, base, last);
    else if (sort->compare(base, middle) < 0)
        swapElements(sort, base, middle);
}

// Splits around the first element and returns the index where it ends up. Both scans are bounded,
// so that a comparison that contradicts itself cannot lead them out of the array.
static size_t partition(const Sort *sort, char *base, size_t count)
{
    const size_t size = sort->size;
    size_t low = 1;
    size_t high = count - 1;
    for (;;) {
        while (low <= high && sort->compare(base + low * size, base) < 0)
            ++low;
        while (low <= high && sort->compare(base + high * size, base) > 0)
            --high;
        if (low >= high)
            break;
        swapElements(sort, base + low++ * size, base + high-- * size);
    }
    // Elements before `split` are not above the pivot; an element at which both scans stopped is
    // equal to it.
    const size_t split = low > high ? high : low;
    swapElements(sort, base, base + split * size);
    return split;
}

static void sortRange(const Sort *sort, char *base, size_t count, unsigned splits_left)
{
    while (count > SHORT_RANGE) {
        if (splits_left-- == 0) {
            sortHeap(sort, base, count);
            return;
        }
        choosePivot(sort, base, count);
        const size_t split = partition(sort, base, count);
        const size_t above = count - split - 1;
        char *upper = base + (split + 1) * sort->size;
        // Recurses into the smaller side, so that the depth stays logarithmic.
        if (split < above) {
            sortRange(sort, base, split, splits_left);
            base = upper;
            count = above;
        } else {
            sortRange(sort, upper, above, splits_left);
            count = split;
        }
    }
    sortShort(sort, base, count);
}

static unsigned allowedSplits(size_t count)
{
    unsigned bits = 0;
    for (; count > 1; count >>= 1)
        ++bits;
    return 2 * bits;
}

void osdep_qsort(void *vbase, size_t count, size_t size, OsdepCompare compare)
{
    if (count < 2 || size == 0)
        return;
    ASSERT_AT(1, vbase);
    ASSERT_AT(2, compare);
    char stack_buffer[STACK_BUFFER];
    char *heap_buffer = size > STACK_BUFFER ? static_cast<char *>(std::malloc(size)) : nullptr;
    const Sort sort = {size, compare, size > STACK_BUFFER ? heap_buffer : stack_buffer};
    if (sort.buffer != nullptr)
        sortRange(&sort, static_cast<char *>(vbase), count, allowedSplits(count));
    std::free(heap_buffer);
}

void *osdep_bsearch(const void *key, const void *base, size_t count, size_t size,
                    OsdepSearchCompare compare)
{
    size_t low = 0;
    size_t high = base == nullptr ? 0 : count;
    ASSERT_TEXT_AT(3, high == 0 || compare, "compare");
    while (low < high) {
        const size_t middle = low + (high - low) / 2;
        const char *element = static_cast<const char *>(base) + middle * size;
        const int order = compare(key, element, middle);
        if (order == 0)
            return const_cast<char *>(element);
        if (order < 0)
            high = middle;
        else
            low = middle + 1;
    }
    return nullptr;
}
