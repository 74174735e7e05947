// What the sources of the module share.
#ifndef COMMON_SHAHASH_INTERNAL_H
#define COMMON_SHAHASH_INTERNAL_H

#include "common/shahash.h"

// Ends the run with status 1: there is a file, but it cannot be opened or read.
[[noreturn]] void shahash_cannotOpen(const char *path);

// A new entry, the caller's to free(), with interned copies of both strings.
FileEntry *shahash_newEntry(const char *name, const char *digest);

// `prefix` joined with `name`, or a copy of `name` when there is no prefix (null or empty); the
// caller's to free().
char *shahash_join(uint32_t style, const char *prefix, const char *name);

// Changes into `directory` (null: stays) and hands out where to go back to, for
// shahash_leaveDirectory(). False when that fails, with nothing changed.
bool shahash_enterDirectory(const char *directory, char **previous);
void shahash_leaveDirectory(char *previous);

#endif
