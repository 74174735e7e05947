#define MODULE "common/vector"
#include "common/base/vector.h"

#include <cstdlib>
#include <cstring>

#include "common/base/exitpath.h"
#include "common/base/freecache.h"
#include "common/base/memory.h"
#include "common/base/sorting.h"
#include "common/base/vector_debug.h"

static constexpr uint32_t DEFAULT_CAPACITY = 10;
static constexpr uint32_t ITERATORS_KEPT = 8192;

static Freecache *s_iterators; // created with the first vector; lives to the end of the run
static uint32_t s_nextSerial;

// Only a recorded vector knows whether it has been destroyed; any other is taken to be alive.
static bool is_alive(const Vector *p)
{
    return p->debug == nullptr || (p->debug->flags & VECTOR_ALIVE) != 0;
}

static void *asSlot(const void *element)
{
    return const_cast<void *>(element);
}

// ---- Creation and destruction -----------------------------------------------------------------

Vector *vec_new_size(uint32_t initial_capacity, const char *file, uint32_t line)
{
    ASSERT_AT(229, initial_capacity != 0);
    if (s_iterators == nullptr)
        s_iterators = freecache_new(sizeof(VectorIterator), ITERATORS_KEPT);
    Vector *p = static_cast<Vector *>(xmalloc_must(sizeof(Vector)));
    p->initial_capacity = initial_capacity;
    p->serial = s_nextSerial++;
    if (gVectorRecording)
        p->debug = vec_debugRecord(p, file, line);
    return p;
}

Vector *vec_new(const char *file, uint32_t line)
{
    return vec_new_size(DEFAULT_CAPACITY, file, line);
}

Vector *vec_copy_func(const Vector *source, const char *file, uint32_t line)
{
    if (source == nullptr)
        return nullptr;
    ASSERT_TEXT_AT(272, is_alive(source), "is_alive(p)");
    Vector *copy = static_cast<Vector *>(xmalloc_must(sizeof(Vector)));
    *copy = *source;
    copy->data = static_cast<void **>(xmalloc_must(uint64_t{source->capacity} * sizeof(void *)));
    if (source->count != 0)
        std::memcpy(copy->data, source->data, source->count * sizeof(void *));
    copy->iterators = nullptr;
    copy->debug = source->debug != nullptr ? vec_debugRecord(copy, file, line) : nullptr;
    return copy;
}

static void popIterator(Vector *p)
{
    VectorIterator *top = p->iterators;
    p->iterators = top->next;
    freecache_add(s_iterators, top);
}

void vec_destroy(Vector *p)
{
    if (p == nullptr)
        return;
    std::free(p->data);
    while (p->iterators != nullptr)
        popIterator(p);
    if (p->debug != nullptr) {
        ASSERT_AT(252, is_alive(p));
        p->debug->flags &= ~uint32_t{VECTOR_ALIVE};
    }
    std::free(p);
}

// ---- Growth -----------------------------------------------------------------------------------

// The capacity that holds index `need`. A result above 32 bits makes the allocation fail.
static uint64_t grownCapacity(const Vector *p, uint32_t need)
{
    if (p->capacity == 0 && need < p->initial_capacity)
        return p->initial_capacity;
    uint64_t capacity = p->capacity != 0 ? p->capacity : p->initial_capacity;
    do
        capacity *= 2;
    while (need >= capacity);
    return capacity;
}

[[gnu::noinline]] static void grow(Vector *p, uint32_t need)
{
    const uint64_t capacity = grownCapacity(p, need);
    const uint64_t used = uint64_t{p->count} * sizeof(void *);
    p->data = static_cast<void **>(xrealloc_must(p->data, used, capacity * sizeof(void *)));
    p->capacity = static_cast<uint32_t>(capacity);
    if (p->debug != nullptr) {
        ASSERT_AT(197, is_alive(p));
        p->debug->capacity = p->capacity;
    }
}

// Makes room for index `n` and one more element.
static void ensureCapacity(Vector *p, uint32_t n)
{
    const uint32_t need = p->count > n ? p->count : n;
    if (need >= p->capacity) [[unlikely]]
        grow(p, need);
}

static void noteCount(Vector *p)
{
    if (p->count > p->debug->max_count)
        p->debug->max_count = p->count;
}

// ---- Adding -----------------------------------------------------------------------------------

uint32_t vec_add(Vector *p, const void *element)
{
    ASSERT_AT(287, p != NULL);
    ensureCapacity(p, 0);
    ASSERT_AT(290, p->data != NULL);
    const uint32_t index = p->count++;
    p->data[index] = asSlot(element);
    if (p->debug != nullptr) [[unlikely]] {
        ASSERT_AT(293, is_alive(p));
        noteCount(p);
    }
    return index;
}

uint32_t vec_addNotPresent(Vector *p, const void *element)
{
    ASSERT_AT(304, p != NULL);
    const int64_t index = vec_indexOf(p, element);
    return index >= 0 ? static_cast<uint32_t>(index) : vec_add(p, element);
}

// Adds only what `n` holds at the start, so that a vector may be added to itself.
static uint32_t addAll(Vector *p, Vector *n, uint32_t (*add)(Vector *, const void *))
{
    const uint32_t count = n->count;
    uint32_t left = count;
    for (const void *element : vec_each<const void>(n)) {
        add(p, element);
        if (--left == 0)
            break;
    }
    return count;
}

uint32_t vec_addAll(Vector *p, Vector *n)
{
    ASSERT_AT(320, p != NULL);
    ASSERT_AT(321, n != NULL);
    return addAll(p, n, vec_add);
}

uint32_t vec_addAllNotPresent(Vector *p, Vector *n)
{
    ASSERT_AT(337, p != NULL);
    ASSERT_AT(338, n != NULL);
    return addAll(p, n, vec_addNotPresent);
}

void vec_insert(Vector *p, const void *element, uint32_t index)
{
    ASSERT_AT(368, p != NULL);
    ensureCapacity(p, 0);
    const uint32_t pos = index < p->count ? index : p->count;
    for (VectorIterator *it = p->iterators; it != nullptr; it = it->next) {
        if (it->index >= pos)
            ++it->index;
    }
    std::memmove(p->data + pos + 1, p->data + pos, (p->count - pos) * sizeof(void *));
    p->data[pos] = asSlot(element);
    ++p->count;
    if (p->debug != nullptr) {
        ASSERT_AT(386, is_alive(p));
        noteCount(p);
    }
}

void vec_move(Vector *p, uint32_t from, uint32_t to)
{
    ASSERT_AT(397, p != NULL);
    if (from >= p->count)
        return;
    ensureCapacity(p, to);
    void *saved = p->data[from];
    if (from < to)
        std::memmove(p->data + from, p->data + from + 1, (to - from) * sizeof(void *));
    else
        std::memmove(p->data + to + 1, p->data + to, (from - to) * sizeof(void *));
    p->data[to] = saved;
}

void vec_setAt(Vector *p, const void *element, uint32_t index)
{
    ASSERT_AT(424, p != NULL);
    ensureCapacity(p, index);
    if (index >= p->count)
        p->count = index + 1;
    if (p->debug != nullptr) {
        ASSERT_AT(433, is_alive(p));
        noteCount(p);
    }
    p->data[index] = asSlot(element);
}

// ---- Removing ---------------------------------------------------------------------------------

static void removeSlot(Vector *p, uint32_t pos)
{
    --p->count;
    for (VectorIterator *it = p->iterators; it != nullptr; it = it->next) {
        if (it->index > pos)
            --it->index;
    }
    std::memmove(p->data + pos, p->data + pos + 1, (p->count - pos) * sizeof(void *));
    p->data[p->count] = nullptr;
}

int vec_remove(Vector *p, const void *element)
{
    ASSERT_AT(446, p != NULL);
    ASSERT_AT(447, p->data != NULL);
    const int64_t index = vec_indexOf(p, element);
    if (index < 0)
        return 0;
    removeSlot(p, static_cast<uint32_t>(index));
    return 1;
}

int vec_removeAt(Vector *p, uint32_t index)
{
    ASSERT_AT(465, p != NULL);
    if (index >= p->count)
        return 0;
    removeSlot(p, index);
    return 1;
}

void vec_removeAll(Vector *p)
{
    ASSERT_AT(480, p != NULL);
    p->count = 0;
}

void *vec_pop(Vector *p)
{
    ASSERT_AT(486, p != NULL);
    void *last = vec_top(p);
    if (p->count != 0)
        removeSlot(p, p->count - 1);
    return last;
}

// ---- Access -----------------------------------------------------------------------------------

void *vec_elementAt(const Vector *p, uint32_t index)
{
    ASSERT_AT(494, p != NULL);
    return index < p->count ? p->data[index] : nullptr;
}

int64_t vec_indexOf(const Vector *p, const void *element)
{
    ASSERT_AT(501, p != NULL);
    for (uint32_t i = 0; i < p->count; ++i) {
        if (p->data[i] == element)
            return i;
    }
    return -1;
}

uint32_t vec_size(const Vector *p)
{
    return p != nullptr ? p->count : 0;
}

void *vec_top(const Vector *p)
{
    ASSERT_AT(514, p != NULL);
    return p->count != 0 ? p->data[p->count - 1] : nullptr;
}

void vec_sort(Vector *p, VectorCompare compare)
{
    ASSERT_AT(597, p != NULL);
    if (p->count == 0)
        return;
    ASSERT_AT(600, p->data != NULL);
    osdep_qsort(p->data, p->count, sizeof(void *), compare);
}

// ---- Iterating --------------------------------------------------------------------------------

void vec_iterStart(Vector *p)
{
    if (p == nullptr)
        return;
    VectorIterator *it = static_cast<VectorIterator *>(freecache_get(s_iterators));
    it->next = p->iterators;
    p->iterators = it;
}

void *vec_iterFirst(Vector *p)
{
    vec_iterStart(p);
    return vec_iterNext(p);
}

void *vec_iterLook(Vector *p)
{
    if (p == nullptr)
        return nullptr;
    ASSERT_TEXT_AT(545, p->iterators != nullptr, "p->iterator != NULL");
    return vec_elementAt(p, p->iterators->index);
}

int vec_iterDone(Vector *p, int more)
{
    if (p == nullptr) {
        ASSERT_AT(568, more == 0);
        return more;
    }
    ASSERT_TEXT_AT(571, p->iterators != nullptr, "p->iterator != NULL");
    if (more == 0)
        popIterator(p);
    return more;
}
