// Shared by the two halves of fileutils; not for other modules.
#ifndef COMMON_FORMATS_FILEUTILS_INTERNAL_H
#define COMMON_FORMATS_FILEUTILS_INTERNAL_H

#include <cstdio>

// Opens a regular file for reading; the caller closes it. Null, with errno set, when that fails or
// when it is not a regular file: opening a named pipe waits for its writer, and reading it takes
// data meant for another reader.
FILE *fileid_open(const char *name);

#endif
