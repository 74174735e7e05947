// Checked memory: allocations that never fail silently and always come back zero-filled.
//
//     char *path = xsprintf("%s/%s", dir, name);
//     path = xstrcat_free(path, ".cmd");
//     ...
//     free(path);
//
// Every function returns memory that the caller owns and releases with free(). When memory is
// exhausted, message 296 is raised, which ends the run. Should the report return, the function
// returns null.
#ifndef COMMON_BASE_MEMORY_H
#define COMMON_BASE_MEMORY_H

#include <cstdarg>
#include <cstdint>

// Returns `size` zeroed bytes. A size of 0 gives a pointer that may be freed but not used.
void *xmalloc(uint32_t size);

// As xmalloc(), for sizes that are computed from counts: more than 32 bits count as exhausted, and
// null is never returned (the run ends with status 1 should the report return).
void *xmalloc_must(uint64_t size);

// Grows the block `old` (or null) to `size` bytes, keeping the first `used` ones; the rest is zero.
// Fails as xmalloc_must() does.
void *xrealloc_must(void *old, uint64_t used, uint64_t size);

// Returns a new copy of a string, or of the first `length` characters of `text`, which has at least
// as many. Fail as xmalloc_must() does. A null text is a broken contract and ends the run.
char *xstrdup_must(const char *text);
char *xstrndup_must(const char *text, uint64_t length);

// Returns a new string holding `a` followed by `b`. Neither may be null.
char *xstrcat(const char *a, const char *b);

// As xstrcat(), and then frees `a`: for building a string piece by piece.
char *xstrcat_free(char *a, const char *b);

// Returns a new string holding the formatted text, cut at 4095 characters. A longer result is not
// an error: "buffer overflow in vsnprintf" (without a line end) goes to standard error and the text
// is truncated; callers rely on the limit. The format may not be null.
[[gnu::format(printf, 1, 2)]] char *xsprintf(const char *format, ...);
[[gnu::format(printf, 1, 0)]] char *xvsprintf(const char *format, va_list values);

#endif
