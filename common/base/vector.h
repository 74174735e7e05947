// Vector: the growable sequence of untyped pointers that everything else is built with.
//
//     Vector *names = vec_new(MODULE, __LINE__);
//     vec_add(names, "a");
//     for (const char *name : vec_each<const char>(names))
//         puts(name);
//     vec_destroy(names);
//
// A vector never owns its elements. Storage is allocated by the first addition and only grows.
// Iterators form a stack on the vector: nested loops over one vector each push their own, and
// insertion and removal keep every open iterator on its element. Creation records the caller's
// module name and line (a module with a fixed number gives that number, others __LINE__), which the
// report at the end of a debugged run lists.
//
// A null vector is a broken contract and ends the run unless a function says otherwise.
#ifndef COMMON_BASE_VECTOR_H
#define COMMON_BASE_VECTOR_H

#include <cstdint>

#include "common/base/exitpath.h"

// One open iteration; recycled through a free cache shared by all vectors.
struct VectorIterator {
    uint32_t index;       // position of the next element to return
    VectorIterator *next; // the iterator below this one on the vector's stack
};

struct Vector;

// The record of a vector created while recording is on; it lives to the end of the run.
struct VectorDebugRecord {
    const Vector *vector; // for printing only: dangles once the vector is destroyed
    uint32_t flags;       // bit 0: the vector is alive
    const char *file;     // where it was created
    uint32_t line;
    uint32_t capacity;  // slots allocated now
    uint32_t max_count; // largest count ever reached
};

struct Vector {
    uint32_t count;            // elements in use
    uint32_t capacity;         // slots allocated; 0 while there is no storage
    uint32_t initial_capacity; // slots of the first allocation
    VectorIterator *iterators; // top of the stack of open iterators, or null
    void **data;               // the slots; null until the first growth
    uint32_t serial;           // creation number, counted over the whole process from 0
    VectorDebugRecord *debug;  // record in the master list, or null
};

// Comparison for sorting: receives pointers to two slots; negative, zero or positive.
using VectorCompare = int (*)(const void *slotA, const void *slotB);

// Creates an empty vector, owned by the caller: its first allocation has 10 slots, or
// `initial_capacity` (which must not be 0). `file` must outlive the run.
Vector *vec_new(const char *file, uint32_t line);
Vector *vec_new_size(uint32_t initial_capacity, const char *file, uint32_t line);

// Returns a copy with the same elements and serial number and no open iterators; null for null.
Vector *vec_copy_func(const Vector *source, const char *file, uint32_t line);

// Frees the vector and its iterators, not its elements. Null is allowed.
void vec_destroy(Vector *p);

// Appends; returns the element's index.
uint32_t vec_add(Vector *p, const void *element);

// Returns the index of the first slot holding this very pointer, appending it when there is none.
uint32_t vec_addNotPresent(Vector *p, const void *element);

// Appends every element of `n` (or each one not yet present) in order; returns n's count.
uint32_t vec_addAll(Vector *p, Vector *n);
uint32_t vec_addAllNotPresent(Vector *p, Vector *n);

// Inserts at `index`, or at the end when `index` is beyond it.
void vec_insert(Vector *p, const void *element, uint32_t index);

// Moves the element at `from` to position `to` (which may lie beyond the count; the two must
// differ), shifting those between. Nothing happens when there is no element at `from`. Open
// iterators are not adjusted.
void vec_move(Vector *p, uint32_t from, uint32_t to);

// Stores at `index`, growing the count to index + 1 when needed. The slots skipped keep their
// content: null where nothing was stored or it was removed, the old elements after vec_removeAll().
// Open iterators are not adjusted.
void vec_setAt(Vector *p, const void *element, uint32_t index);

// Removes the first equal element, or the one at `index`; 1 when removed, 0 when there is none.
// vec_remove() on a vector that never held storage is a broken contract.
int vec_remove(Vector *p, const void *element);
int vec_removeAt(Vector *p, uint32_t index);

// Empties the vector but keeps its storage and what is in it: see vec_setAt().
void vec_removeAll(Vector *p);

// The element at `index`, or null when `index` is beyond the end.
void *vec_elementAt(const Vector *p, uint32_t index);

// The first index of this very pointer, or -1.
int64_t vec_indexOf(const Vector *p, const void *element);

// The number of elements; 0 for null.
uint32_t vec_size(const Vector *p);

// The last element, or null when empty; vec_pop() also removes it.
void *vec_top(const Vector *p);
void *vec_pop(Vector *p);

// Sorts the slots in place; not stable. The comparison must not be null.
void vec_sort(Vector *p, VectorCompare compare);

// The iteration primitives below vec_each(). vec_iterStart() and vec_iterFirst() push an iterator,
// which vec_iterDone(p, 0) pops. A null vector iterates like an empty one.
//
// vec_iterStart() begins at the first element; vec_iterFirst() returns it (null when there is none)
// and moves on to the second. vec_iterLook() and vec_iterNext() return the element at which the top
// iterator is, null at the end; the latter also moves on. vec_iterDone() returns `more`. All but
// the two that push an iterator need an open one.
void vec_iterStart(Vector *p);
void *vec_iterFirst(Vector *p);
void *vec_iterLook(Vector *p);
int vec_iterDone(Vector *p, int more);

// These two run once per element, so they are inline.
inline void *vec_iterNext(Vector *p)
{
    if (p == nullptr)
        return nullptr;
    VectorIterator *it = p->iterators;
    if (it == nullptr) [[unlikely]]
        db_assert("p->iterator != NULL", "common/vector", 533);
    return it->index < p->count ? p->data[it->index++] : nullptr;
}

inline int vec_iterHasNext(Vector *p)
{
    if (p == nullptr)
        return 0;
    if (p->iterators == nullptr) [[unlikely]]
        db_assert("p->iterator != NULL", "common/vector", 590);
    return p->iterators->index < p->count;
}

// Switches the recording of new vectors in the master list, for the report at the end of the run
// (container_report.h), on (non-zero) or off.
void vec_debugEnable(int on);

// One pass over a vector in a range-for loop. It pushes an iterator on construction and pops it on
// destruction, so that the loop may be left early and the vector may be changed inside it.
template <class T> class VectorRange {
  public:
    explicit VectorRange(Vector *vector) : vector_(vector) { vec_iterStart(vector_); }
    ~VectorRange() { vec_iterDone(vector_, 0); }
    VectorRange(const VectorRange &) = delete;
    VectorRange &operator=(const VectorRange &) = delete;

    struct End {};
    struct Cursor {
        Vector *vector;
        T *operator*() const { return static_cast<T *>(vec_iterNext(vector)); }
        void operator++() {}
        bool operator!=(End) const { return vec_iterHasNext(vector) != 0; }
    };
    Cursor begin() const { return {vector_}; }
    End end() const { return {}; }

  private:
    Vector *vector_;
};

// Iterates over the elements of `vector` (null: none) as pointers to T.
template <class T> VectorRange<T> vec_each(Vector *vector)
{
    return VectorRange<T>(vector);
}

#endif
