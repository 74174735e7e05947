// Files by their paths: whether they exist, what they are, and paths that depend on the current
// directory or on links. Strings that a function returns are new and the caller's to free(). A null
// path gives null (or 0).
#ifndef COMMON_OS_OSDEP_FILE_H
#define COMMON_OS_OSDEP_FILE_H

#include <cstdint>
#include <cstdio>

struct OsdepOpenDirectory;
// The normalised path, joined to the current directory when it is not absolute.
char *osdep_absolutePath(const char *path);

// The path relative to the current directory; "." for the current directory itself; the absolute
// path when it is not below it.
char *osdep_relativePath(const char *path);

// Whether the path exists, and whether it is a directory; links are followed. Something that cannot
// be examined counts as missing.
int osdep_fileExists(const char *path);
int osdep_isDirectory(const char *path);

// Whether it is a regular file, links followed: not a directory, and not a named pipe, device or
// socket, where an open or a read may wait for ever or take data meant for another reader.
int osdep_isRegularFile(const char *path);

// Opens a regular file for reading and fills in `facts`, if not null; the caller closes the stream.
// Null for anything else; it never waits.
struct OsdepFileFacts {
    uint64_t size;    // in bytes
    int64_t modified; // seconds from 1970
};
FILE *osdep_openRegularFile(const char *path, OsdepFileFacts *facts);
FILE *osdep_openRegularFileAt(const OsdepOpenDirectory *directory, const char *path,
                              OsdepFileFacts *facts);

// The path that a file opened as `path` has, or would have if it were created: as long as the path
// is a symbolic link, its target replaces it. Null when the links form a loop.
char *osdep_followLinks(const char *path);

// Whether it can be opened for reading.
int osdep_fileReadable(const char *path);

// Whether two existing paths name the same object of the file system, by whatever names.
int osdep_sameFile(const char *a, const char *b);

// Creates a directory and its parents, each with mode 0777 less the umask; existing ones keep their
// mode. 0 when it was created or exists; 1 when the path exists as something else or a parent could
// not be created (the parents above that one remain); -1 for null or an empty path, or when the
// last step failed.
int osdep_mkdirs(const char *path);

#endif
