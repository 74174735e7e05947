// Letters of narrow strings, and wide strings of 32-bit characters.
#ifndef COMMON_TEXT_OSDEP_WIDE_H
#define COMMON_TEXT_OSDEP_WIDE_H

#include <cstddef>

// Fold the ASCII letters of `s` in place; return it.
char *osdep_strlwr(char *s);
char *osdep_strupr(char *s);

// Strings of 32-bit characters, ended by a zero character. Sizes count characters, not bytes. Null
// is allowed everywhere: its length is 0, it compares below every string and equal to itself, a
// duplicate or folding of it is null, and copying it leaves the destination unchanged.
//
// wcscpy and wcslwr return their first argument. A destination needs room for the source and its
// end, and may overlap the source. The duplicate is the caller's to free(). Compare returns -1, 0
// or 1, by the unsigned values of the first characters that differ. Only ASCII letters are folded.
char32_t *osdep_wcscpy(char32_t *destination, const char32_t *source);
char32_t *osdep_wcsdup(const char32_t *s);
size_t osdep_wcslen(const char32_t *s);
int osdep_wcscmp(const char32_t *a, const char32_t *b);
char32_t *osdep_wcslwr(char32_t *s);

#endif
