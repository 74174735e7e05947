// Memory, lists and texts of the legacy sample programs.
//
// These programs run for the fraction of a second that one file takes, so nothing is given back
// before the end: all memory comes from one arena that lives as long as the program.
#ifndef SAMPLE_ARENA_H
#define SAMPLE_ARENA_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

// `size` zeroed bytes that live until the program ends. Ends the program with a message and status
// 1 when memory is used up.
void *arena_alloc(size_t size);

// A copy of the text, or of its first `length` characters.
char *arena_copy(const char *text);
char *arena_copyPart(const char *text, size_t length);

// The text that printf would write.
[[gnu::format(printf, 1, 2)]] char *arena_format(const char *format, ...);

// A growing list. All zero is the empty list.
template <typename T> struct List {
    T *items;
    size_t count;
    size_t capacity;

    T *begin() const { return items; }
    T *end() const { return items + count; }
};

// Makes room for `more` further items.
template <typename T> void list_reserve(List<T> *list, size_t more)
{
    if (list->capacity - list->count >= more)
        return;
    size_t capacity = (list->count + more) * 2 + 8;
    T *items = static_cast<T *>(arena_alloc(capacity * sizeof(T)));
    if (list->count != 0)
        memcpy(items, list->items, list->count * sizeof(T));
    list->items = items;
    list->capacity = capacity;
}

// Appends a copy of `item`; returns its place, which is good until the next item is added.
template <typename T> T *list_add(List<T> *list, const std::type_identity_t<T> &item)
{
    list_reserve(list, 1);
    list->items[list->count] = item;
    return &list->items[list->count++];
}

using Strings = List<const char *>;

// Growing bytes. The byte after the last one is kept zero, so `items` is also a text.
using Buffer = List<char>;

void buffer_add(Buffer *buffer, const void *bytes, size_t size);
[[gnu::format(printf, 2, 3)]] void buffer_print(Buffer *buffer, const char *format, ...);

// The buffer's bytes as a text; "" for the empty buffer.
const char *buffer_text(const Buffer *buffer);

// Numbers with the low byte first: appended, overwritten, and read at `at`, which the caller has
// checked.
void buffer_add16(Buffer *buffer, uint32_t value);
void buffer_add32(Buffer *buffer, uint32_t value);
void bytes_put16(char *at, uint32_t value);
uint32_t bytes_get16(const char *at);
uint32_t bytes_get32(const char *at);

#endif
