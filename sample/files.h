// Files, paths and temporary files of the legacy sample programs. Texts returned are the arena's.
#ifndef SAMPLE_FILES_H
#define SAMPLE_FILES_H

#include "sample/arena.h"

// Reads the whole file. 0 when it cannot be read (errno says why), is not an ordinary file, or is
// larger than 64 MiB.
int file_read(const char *path, Buffer *content);

// Writes the whole file ("-": standard output), replacing an old one. 0 on failure, with errno set;
// then no part of the file is left.
int file_write(const char *path, const Buffer *content);

int file_exists(const char *path);
int file_isDirectory(const char *path);

// `name` in `directory`; `name` itself when it is absolute or `directory` is empty.
const char *path_join(const char *directory, const char *name);

// The text after the last "/".
const char *path_base(const char *path);

// The text after the last "." of the base name; "" without one.
const char *path_extension(const char *path);

// The path with its extension replaced, or added if it has none.
const char *path_withExtension(const char *path, const char *extension);

// The directory `name` beside the one that holds the running program: ".../orb/bin/qzm" and
// "include" give ".../orb/include". Null when the program's own path cannot be determined.
const char *path_besideProgram(const char *name);

// The name of a temporary file with the extension, in a directory of this run that is created by
// the first call, in TMPDIR or /tmp; null when it cannot be. The directory and its files are
// removed when the program ends.
const char *temp_name(const char *extension);

#endif
