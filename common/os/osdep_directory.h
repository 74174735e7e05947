// Directories: reading them, the current one, facts about a path, and locks.
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

// Makes `path` the current directory. 0 on success, else -1, and the old one stays.
int osdep_changeDirectory(const char *path);

// Opens a directory, to look up names in it (with the functions that end in "At") without making it
// the current one, or to return to it later. The handle stays with that directory when it is
// renamed, moved or removed. The directory need not be readable, but it must be searchable. Null on
// failure, with errno set. The caller closes it; null is allowed there. Children do not inherit it.
OsdepOpenDirectory *osdep_openDirectory(const char *path);
void osdep_closeDirectory(OsdepOpenDirectory *directory);

// Makes an open directory the current one. 0 on success; else -1, with errno set, and the old one
// stays: the right to search the directory may be gone since it was opened.
int osdep_enterDirectory(const OsdepOpenDirectory *directory);

// osdep_readDirectory() of a path relative to an open directory, or (null) to the current one.
Vector *osdep_readDirectoryAt(const OsdepOpenDirectory *directory, const char *path);

// Identifies one object of the file system among all others.
struct OsdepIdentity {
    uint64_t device;
    uint64_t number; // within the device
};

// The kind of an object, found out without opening it.
enum OsdepKind : uint32_t {
    OSDEP_NOTHING, // it does not exist or cannot be examined
    OSDEP_FILE,    // a regular file
    OSDEP_DIRECTORY,
    OSDEP_OTHER, // a named pipe, socket or device
};

struct OsdepFileInfo {
    OsdepKind kind;         // of the object that the path leads to, links followed
    int isLink;             // whether the path itself is a symbolic link
    OsdepIdentity identity; // of that object; zeros for OSDEP_NOTHING
};

// Fills in the whole record with one system call (two for a link) and returns the kind. `info` may
// not be null.
OsdepKind osdep_fileInfo(const char *path, OsdepFileInfo *info);
OsdepKind osdep_fileInfoAt(const OsdepOpenDirectory *directory, const char *path,
                           OsdepFileInfo *info);

// Waits until no other process holds the directory's lock, takes it and returns a handle for
// osdep_unlockDirectory(); -1 when it cannot be locked. The lock is advisory, leaves nothing behind
// and ends with the process at the latest; children do not hold it. Unlocking -1 does nothing.
int osdep_lockDirectory(const char *path);
void osdep_unlockDirectory(int lock);

#endif
