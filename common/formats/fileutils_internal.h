// What the two halves of fileutils share; not for other modules.
#ifndef COMMON_FORMATS_FILEUTILS_INTERNAL_H
#define COMMON_FORMATS_FILEUTILS_INTERNAL_H

#include <cstdio>

// Opens a regular file for reading; the caller closes it. Null, with errno set, when that fails and
// for anything else: the open of a named pipe waits for its writer, and a look would take away what
// somebody else is to read.
FILE *fileid_open(const char *name);

#endif
