// What the POSIX halves of osdep share; not for other modules.
#ifndef COMMON_OS_OSDEP_POSIX_H
#define COMMON_OS_OSDEP_POSIX_H

#include <csignal>

#include <sys/types.h>

struct OsdepOpenDirectory;

// What the system's ...at() functions take for an open directory, or for the current one (null).
int osdep_descriptorOf(const OsdepOpenDirectory *directory);

// Holds the asynchronous signals that the crash handler answers back, and lets them in again: for
// the moments in which the registry of temporary objects is being changed. `saved` takes the mask
// as it was.
void osdep_holdSignals(sigset_t *saved);
void osdep_releaseSignals(const sigset_t *saved);

// The same with the signals of a crash, for the moments in which a child starts or is reaped. (Held
// back, a crash of our own ends the process at once and leaves its temporary objects behind.)
void osdep_holdAllSignals(sigset_t *saved);

// Names the child that is being waited for, or 0: a signal is handed on to it before it ends the
// run. To be changed only while signals are held back, and while nothing else is half done.
void osdep_setWaitedFor(pid_t child);

// Installs the handler again where it has been installed.
void osdep_reinstallHandler();

// The signals that are ignored here and that children are to have back at their default.
const sigset_t *osdep_signalsForChildren();

// Makes the descriptor `to` a duplicate of `from`; and returns a duplicate that children do not
// inherit, clear of the standard descriptors, or -1.
bool osdep_redirect(int from, int to);
int osdep_duplicate(int descriptor);

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
