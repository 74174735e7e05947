// What the POSIX halves of osdep share; not for other modules.
#ifndef COMMON_OSDEP_POSIX_H
#define COMMON_OSDEP_POSIX_H

#include <csignal>

// Holds the asynchronous signals that the crash handler answers back, and lets them in again: for
// the moments in which the registry of temporary objects is being changed. `saved` takes the mask
// as it was.
void osdep_holdSignals(sigset_t *saved);
void osdep_releaseSignals(const sigset_t *saved);

// As osdep_tempFileSuffix(); with a non-null `descriptor` the file is left open for writing there,
// close-on-exec, and the descriptor is the caller's to close.
char *osdep_createTempFile(const char *suffix, int *descriptor);

// Creates a file from a name that ends in six "X", registers it for removal and returns its
// descriptor, open for reading and writing, close-on-exec; -1 on failure.
int osdep_createReplacement(char *name);

// Renames such a file to `path`, or removes it, and forgets it. The first returns what rename()
// does; a file that could not be renamed stays registered.
int osdep_renameReplacement(const char *name, const char *path);
void osdep_removeReplacement(const char *name);

// Whether a directory's entry is "." or "..".
bool osdep_isSelfOrParent(const char *name);

// What a symbolic link holds: a new string, or null when it is no link.
char *osdep_readLink(const char *link);

// What a signal handler that is about to exit may do about the temporary objects: removes them
// (unless they are kept or another process's) and disowns them, without touching the heap.
void osdep_removeTempFilesOnSignal();

#endif
