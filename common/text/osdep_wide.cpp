#define MODULE "common/osdep"
#include "common/text/osdep_wide.h"

#include <cstdlib>
#include <cstring>

#include "common/base/exitpath.h"
#include "common/base/memory.h"
#include "common/trace/qzdebug.h"

// Only ASCII letters, whatever the locale.
static char32_t lower(char32_t c)
{
    return c >= U'A' && c <= U'Z' ? c + 32 : c;
}

char *osdep_strlwr(char *s)
{
    TRACE_ENTER("s=\"%s\"", s);
    for (char *c = s; c != nullptr && *c != '\0'; ++c)
        if (*c >= 'A' && *c <= 'Z')
            *c = static_cast<char>(*c + 32);
    return TRACE_RETURN("\"%s\"", s);
}

char *osdep_strupr(char *s)
{
    TRACE_ENTER("s=\"%s\"", s);
    for (char *c = s; c != nullptr && *c != '\0'; ++c)
        if (*c >= 'a' && *c <= 'z')
            *c = static_cast<char>(*c - 32);
    return TRACE_RETURN("\"%s\"", s);
}

static size_t wideLength(const char32_t *s)
{
    size_t length = 0;
    if (s != nullptr)
        while (s[length] != 0)
            ++length;
    return length;
}

char32_t *osdep_wcscpy(char32_t *destination, const char32_t *source)
{
    TRACE_ENTER("destination=%p, source=%p", static_cast<void *>(destination),
                static_cast<const void *>(source));
    if (destination != nullptr && source != nullptr)
        std::memmove(destination, source, (wideLength(source) + 1) * sizeof *source);
    return destination;
}

char32_t *osdep_wcsdup(const char32_t *s)
{
    TRACE_ENTER("s=%p", static_cast<const void *>(s));
    if (s == nullptr)
        return static_cast<char32_t *>(TRACE_RETURN("%p", static_cast<void *>(nullptr)));
    const size_t bytes = (wideLength(s) + 1) * sizeof *s;
    void *copy = xmalloc_must(bytes);
    std::memcpy(copy, s, bytes);
    return static_cast<char32_t *>(TRACE_RETURN("%p", copy));
}

size_t osdep_wcslen(const char32_t *s)
{
    TRACE_ENTER("s=%p", static_cast<const void *>(s));
    return TRACE_RETURN("%zu", wideLength(s));
}

int osdep_wcscmp(const char32_t *a, const char32_t *b)
{
    TRACE_ENTER("a=%p, b=%p", static_cast<const void *>(a), static_cast<const void *>(b));
    if (a == nullptr || b == nullptr)
        return TRACE_RETURN("%d", (a != nullptr) - (b != nullptr));
    while (*a == *b && *a != 0) {
        ++a;
        ++b;
    }
    return TRACE_RETURN("%d", *a < *b ? -1 : *a > *b);
}

char32_t *osdep_wcslwr(char32_t *s)
{
    TRACE_ENTER("s=%p", static_cast<void *>(s));
    for (char32_t *c = s; c != nullptr && *c != 0; ++c)
        *c = lower(*c);
    return s;
}
