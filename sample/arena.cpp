#include "sample/arena.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace {
// Blocks stay chained, so that what they hold is in use until the end for a leak checker, too.
struct ArenaBlock {
    ArenaBlock *next;
    size_t used;
    size_t size;
};

enum { BLOCK_SIZE = 1 << 16, ALIGNMENT = 16 };
} // namespace

static ArenaBlock *blocks;

static ArenaBlock *newBlock(size_t size)
{
    size_t header = (sizeof(ArenaBlock) + ALIGNMENT - 1) / ALIGNMENT * ALIGNMENT;
    if (size < BLOCK_SIZE)
        size = BLOCK_SIZE;
    ArenaBlock *block =
        size > SIZE_MAX / 2 ? nullptr : static_cast<ArenaBlock *>(calloc(1, header + size));
    if (block == nullptr) {
        fputs("out of memory\n", stderr);
        exit(1);
    }
    *block = {blocks, header, header + size};
    blocks = block;
    return block;
}

void *arena_alloc(size_t size)
{
    size = (size + ALIGNMENT - 1) / ALIGNMENT * ALIGNMENT;
    ArenaBlock *block = blocks;
    if (block == nullptr || block->size - block->used < size)
        block = newBlock(size);
    void *memory = reinterpret_cast<char *>(block) + block->used;
    block->used += size;
    return memory;
}

char *arena_copyPart(const char *text, size_t length)
{
    char *copy = static_cast<char *>(arena_alloc(length + 1));
    memcpy(copy, text, length);
    return copy;
}

char *arena_copy(const char *text)
{
    return arena_copyPart(text, strlen(text));
}

[[gnu::format(printf, 1, 0)]] static char *formatText(const char *format, va_list values)
{
    va_list again;
    va_copy(again, values);
    int length = vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (length < 0)
        return arena_copy("");
    char *text = static_cast<char *>(arena_alloc(static_cast<size_t>(length) + 1));
    vsnprintf(text, static_cast<size_t>(length) + 1, format, values);
    return text;
}

char *arena_format(const char *format, ...)
{
    va_list values;
    va_start(values, format);
    char *text = formatText(format, values);
    va_end(values);
    return text;
}

void buffer_add(Buffer *buffer, const void *bytes, size_t size)
{
    list_reserve(buffer, size + 1);
    if (size != 0)
        memcpy(buffer->items + buffer->count, bytes, size);
    buffer->count += size;
    buffer->items[buffer->count] = 0;
}

void buffer_print(Buffer *buffer, const char *format, ...)
{
    va_list values;
    va_start(values, format);
    const char *text = formatText(format, values);
    va_end(values);
    buffer_add(buffer, text, strlen(text));
}

const char *buffer_text(const Buffer *buffer)
{
    return buffer->items == nullptr ? "" : buffer->items;
}

void bytes_put16(char *at, uint32_t value)
{
    at[0] = static_cast<char>(value);
    at[1] = static_cast<char>(value >> 8);
}

uint32_t bytes_get16(const char *at)
{
    return static_cast<uint8_t>(at[0]) | static_cast<uint32_t>(static_cast<uint8_t>(at[1])) << 8;
}

uint32_t bytes_get32(const char *at)
{
    return bytes_get16(at) | bytes_get16(at + 2) << 16;
}

void buffer_add16(Buffer *buffer, uint32_t value)
{
    char bytes[2];
    bytes_put16(bytes, value);
    buffer_add(buffer, bytes, sizeof bytes);
}

void buffer_add32(Buffer *buffer, uint32_t value)
{
    buffer_add16(buffer, value);
    buffer_add16(buffer, value >> 16);
}
