// Directories: their names, the current one, what a name leads to, and locks.
#ifndef COMMON_OS_OSDEP_DIRECTORY_H
#define COMMON_OS_OSDEP_DIRECTORY_H

#include <cstdint>

struct OsdepOpenDirectory;
struct Vector;

// The names in a directory except "." and "..", in the system's order: a new vector of new strings,
// to be freed with osdep_freeNames() (null allowed). Null when it cannot be opened or read to its
// end, with errno set. No descriptor stays open.
Vector *osdep_readDirectory(const char *path);
void osdep_freeNames(Vector *names);

// Makes `path` the current directory. 0 on success, else -1 with the old one kept.
int osdep_changeDirectory(const char *path);

// Opens a directory, to look up names in it (with the functions that end in "At") without making it
// the current one, or to come back to it. It stays the same directory when it is renamed, moved or
// removed. It need not be readable, but names in it must be accessible. Null on failure, with errno
// set. The caller closes it; null is allowed there. Children do not inherit it.
OsdepOpenDirectory *osdep_openDirectory(const char *path);
void osdep_closeDirectory(OsdepOpenDirectory *directory);

// Makes an open directory the current one. 0 on success; else -1 with the old one kept and errno
// set: the right to access names in it may have gone since it was opened.
int osdep_enterDirectory(const OsdepOpenDirectory *directory);

// osdep_readDirectory() of a path below an open directory; null: below the current one.
Vector *osdep_readDirectoryAt(const OsdepOpenDirectory *directory, const char *path);

// What tells one object of the file system from all others.
struct OsdepIdentity {
    uint64_t device;
    uint64_t number; // within the device
};

// What there is to know about an object before it is touched.
enum OsdepKind : uint32_t {
    OSDEP_NOTHING,   // there is nothing, or it cannot be examined
    OSDEP_FILE,      // a file with content of its own
    OSDEP_DIRECTORY, //
    OSDEP_OTHER,     // a named pipe, socket or device
};

struct OsdepFileInfo {
    OsdepKind kind;         // of what the path leads to, links followed
    int isLink;             // whether the path itself is a symbolic link
    OsdepIdentity identity; // of what the path leads to; zeros for OSDEP_NOTHING
};

// Fills in all of it with one inquiry (two for a link) and returns the kind. `info` may not be
// null.
OsdepKind osdep_fileInfo(const char *path, OsdepFileInfo *info);
OsdepKind osdep_fileInfoAt(const OsdepOpenDirectory *directory, const char *path,
                           OsdepFileInfo *info);

// Waits until no other process holds the directory's lock, takes it and returns a handle for
// osdep_unlockDirectory(); -1 when it cannot be locked. The lock is advisory, leaves nothing behind
// and ends with the process at the latest; children do not hold it. -1 unlocks nothing.
int osdep_lockDirectory(const char *path);
void osdep_unlockDirectory(int lock);

#endif
