#define MODULE "common/memory"
#include "common/base/memory.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/base/exitpath.h"
#include "common/base/hooks.h"

static constexpr uint32_t FORMAT_SIZE = 4096;

// The report allocates memory, so it can run out itself.
[[gnu::cold, gnu::noinline]] static void *reportExhausted()
{
    static bool reporting;
    if (reporting || gMemoryExhausted == nullptr) {
        std::fputs("out of memory\n", stderr);
        exitpath_leave(1);
    }
    reporting = true;
    gMemoryExhausted();
    reporting = false;
    return nullptr;
}

[[gnu::cold, gnu::noinline]] static void *endExhausted()
{
    reportExhausted();
    exitpath_leave(1);
}

void *xmalloc(uint32_t size)
{
    void *p = std::calloc(size != 0 ? size : 1, 1);
    return p != nullptr ? p : reportExhausted();
}

void *xmalloc_must(uint64_t size)
{
    void *p = size <= UINT32_MAX ? std::calloc(size != 0 ? size : 1, 1) : nullptr;
    return p != nullptr ? p : endExhausted();
}

void *xrealloc_must(void *old, uint64_t used, uint64_t size)
{
    if (old == nullptr)
        return xmalloc_must(size);
    void *p = size <= UINT32_MAX ? std::realloc(old, size) : nullptr;
    if (p == nullptr)
        return endExhausted();
    std::memset(static_cast<char *>(p) + used, 0, size - used);
    return p;
}

char *xstrndup_must(const char *text, uint64_t length)
{
    ASSERT_AT(20, text != NULL);
    void *copy = xmalloc_must(length + 1); // comes zero-filled
    return static_cast<char *>(std::memcpy(copy, text, length));
}

char *xstrdup_must(const char *text)
{
    ASSERT_AT(30, text != NULL);
    return xstrndup_must(text, std::strlen(text));
}

// Allocates a string. Its size is a sum, which may not fit into 32 bits.
static char *newString(uint64_t size)
{
    void *p = size <= UINT32_MAX ? xmalloc(static_cast<uint32_t>(size)) : reportExhausted();
    return static_cast<char *>(p);
}

char *xstrcat(const char *a, const char *b)
{
    const size_t length = std::strlen(a);
    const size_t added = std::strlen(b);
    char *text = newString(uint64_t{length} + added + 1);
    if (text == nullptr)
        return nullptr;
    std::memcpy(text, a, length);
    std::memcpy(text + length, b, added);
    return text;
}

char *xstrcat_free(char *a, const char *b)
{
    char *text = xstrcat(a, b);
    std::free(a);
    return text;
}

char *xvsprintf(const char *format, va_list values)
{
    char buffer[FORMAT_SIZE];
    const int needed = std::vsnprintf(buffer, sizeof buffer, format, values);
    if (needed < 0)
        buffer[0] = '\0';
    if (needed >= static_cast<int>(sizeof buffer))
        std::fputs("buffer overflow in vsnprintf", stderr);
    const size_t length = std::strlen(buffer);
    char *text = newString(length + 1);
    return text != nullptr ? static_cast<char *>(std::memcpy(text, buffer, length)) : nullptr;
}

char *xsprintf(const char *format, ...)
{
    va_list values;
    va_start(values, format);
    char *text = xvsprintf(format, values);
    va_end(values);
    return text;
}
