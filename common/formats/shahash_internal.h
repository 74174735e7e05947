// Shared by the sources of the module.
#ifndef COMMON_FORMATS_SHAHASH_INTERNAL_H
#define COMMON_FORMATS_SHAHASH_INTERNAL_H

#include "common/formats/shahash.h"

struct OsdepOpenDirectory;

// Ends the run with status 1: the file exists, but cannot be opened or read.
[[noreturn]] void shahash_cannotOpen(const char *path);

// A new entry, the caller's to free(), with interned copies of both strings.
FileEntry *shahash_newEntry(const char *name, const char *digest);

// `prefix` joined with `name`, or a copy of `name` when there is no prefix (null or empty); the
// caller's to free().
char *shahash_join(uint32_t style, const char *prefix, const char *name);

// Opens the directory in which the names of a list are looked up, for osdep_closeDirectory(). Null
// stays null and means the current one. False when it cannot be opened.
bool shahash_openDirectory(const char *directory, OsdepOpenDirectory **opened);

// shahash_checkFile(), shahash_checkEntries() and process_dir() with the names looked up in `from`
// (null: the current directory), and the digest text of such a file. The last fills `unread` (or
// null) as shahash_writeListOf() does.
bool shahash_checkFileAt(const OsdepOpenDirectory *from, const char *digest, const char *path);
int shahash_checkEntriesAt(const OsdepOpenDirectory *from, Vector *entries);
const char *shahash_digestAt(const OsdepOpenDirectory *from, const char *path);
void shahash_walk(const OsdepOpenDirectory *from, uint32_t style, Vector *files, Vector *unread,
                  const char *dir, const char *prefix);

#endif
