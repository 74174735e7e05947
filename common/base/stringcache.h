// The string cache: every string-producing helper builds its result in one scratch buffer and
// interns it, so that equal texts are the same pointer.
//
//     const char *option = cache_sprintf("--chip=%s", cache_lower(device));
//     if (option == cache_string("--chip=16z20a")) ...
//
// Interned strings live until the end of the run; callers neither modify nor free them. Where a
// function says "or null", null gives null; elsewhere null is not allowed. Running out of memory
// ends the run.
#ifndef COMMON_BASE_STRINGCACHE_H
#define COMMON_BASE_STRINGCACHE_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>

struct Vector;

// The intern table's bucket count (5077 unless set before the first string is interned). 0 switches
// interning off: every builder then returns a fresh heap copy that nobody frees.
void cache_setSize(uint32_t buckets);

// The limit on the number of remembered strings (0: none). With a limit L the table takes L + 1
// strings; later texts come back as heap copies that are not remembered.
void cache_setLimit(uint32_t count);

// The interned copy of `text` (or null).
const char *cache_string(const char *text);

// Interns the caller's own heap string (or null) without copying it: the cache takes it over, and
// frees it when an equal text is already there. Returns the interned pointer.
const char *cache_adopt(char *text);

// The interned copy of the first `length` bytes of `text`, or of all of it when it is shorter.
const char *cache_substring(const char *text, size_t length);

// The formatted text, of any length.
[[gnu::format(printf, 1, 2)]] const char *cache_sprintf(const char *format, ...);
[[gnu::format(printf, 1, 0)]] const char *cache_vsprintf(const char *format, va_list values);

// `a` followed by `b`. When one is null the other is returned as it is, not interned.
const char *cache_concat(const char *a, const char *b);

// `text` with every tab replaced by four blanks; and the same of a formatted text.
const char *cache_expandTabs(const char *text);
[[gnu::format(printf, 1, 2)]] const char *cache_sprintfTabs(const char *format, ...);
[[gnu::format(printf, 1, 0)]] const char *cache_vsprintfTabs(const char *format, va_list values);

// `text` with `escape` (0: backslash) written before every character that is in `set`.
const char *cache_escape(const char *text, const char *set, char escape);

// `text` in double quotes, with a backslash before every double quote inside.
const char *cache_quote(const char *text);

// `text` with A-Z and a-z folded.
const char *cache_lower(const char *text);
const char *cache_upper(const char *text);

// A new vector, owned by the caller, of the interned tokens between runs of delimiters; runs never
// give empty tokens.
Vector *cache_split(const char *text, const char *delimiters);

// The strings of `texts` from index `first` on, with `separator` between them.
const char *cache_join(Vector *texts, uint32_t first, const char *separator);

// `text` without the blanks and tabs at both ends; without the line ends (\r, \n) at its end; and
// with every "/" and "\" replaced by `separator`.
const char *cache_trim(const char *text);
const char *cache_trimLineEnd(const char *text);
const char *cache_separators(const char *text, char separator);

// `name` with the text after its last "." replaced by `suffix`; with ".suffix" added (a suffix that
// begins with "." keeps one dot); and without the text from its last "." on, unless a "/" follows
// that dot.
const char *cache_replaceSuffix(const char *name, const char *suffix);
const char *cache_addSuffix(const char *name, const char *suffix);
const char *cache_stripSuffix(const char *name);

// The text before the last "/" of `path` (or null), or null when it has none.
const char *cache_dirPart(const char *path);

#endif
