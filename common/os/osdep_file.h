// Files by their paths: whether they are there, what they are, and paths that the current directory
// or a link decides about. Strings that a function returns are new and the caller's to free(). A
// null path gives null (or 0).
#ifndef COMMON_OS_OSDEP_FILE_H
#define COMMON_OS_OSDEP_FILE_H

#include <cstdint>
#include <cstdio>

struct OsdepOpenDirectory;
// The normalised path, joined to the current directory when it is not absolute.
char *osdep_absolutePath(const char *path);

// The absolute path with the current directory taken off its front; "." for the current directory
// itself; the absolute path when it lies elsewhere.
char *osdep_relativePath(const char *path);

// Whether there is anything of that name, and whether it is a directory; links are followed. What
// cannot be examined is not there.
int osdep_fileExists(const char *path);
int osdep_isDirectory(const char *path);

// Whether it is a file with content of its own, links followed: no directory, and no named pipe,
// device or socket, of which an open or a read may wait for ever or take what another is to have.
int osdep_isRegularFile(const char *path);

// Opens such a file for reading and, with a non-null `facts`, looks at it; the caller closes the
// stream. Null for anything else, and nothing is waited for.
struct OsdepFileFacts {
    uint64_t size;    // in bytes
    int64_t modified; // seconds from 1970
};
FILE *osdep_openRegularFile(const char *path, OsdepFileFacts *facts);
FILE *osdep_openRegularFileAt(const OsdepOpenDirectory *directory, const char *path,
                              OsdepFileFacts *facts);

// The path that a file opened as `path` has, or would have if it were created: while the path is a
// symbolic link its target takes its place. Null when the links do not end.
char *osdep_followLinks(const char *path);

// Whether it can be opened for reading.
int osdep_fileReadable(const char *path);

// Whether two existing paths name the same object of the file system, by whatever names.
int osdep_sameFile(const char *a, const char *b);

// Creates a directory and its parents, each with mode 0777 less the umask; what exists keeps its
// mode. 0 when it was created or exists; 1 when the path exists as something else or a parent
// failed, which leaves the parents before that one; -1 for null, an empty path or when the last
// step failed.
int osdep_mkdirs(const char *path);

#endif
