// Shared by the POSIX sources of osdep; not for other modules.
#ifndef COMMON_OS_OSDEP_POSIX_H
#define COMMON_OS_OSDEP_POSIX_H

#include <csignal>

#include <sys/types.h>

struct OsdepOpenDirectory;

// The descriptor to pass to the system's ...at() functions for an open directory, or (null) for the
// current one.
int osdep_descriptorOf(const OsdepOpenDirectory *directory);

// Blocks the asynchronous signals that the crash handler handles, and unblocks them again: for the
// moments in which the registry of temporary objects is being changed. `saved` receives the old
// mask.
void osdep_holdSignals(sigset_t *saved);
void osdep_releaseSignals(const sigset_t *saved);

// The same including the signals of a crash, for the moments in which a child starts or is reaped.
// (While they are blocked, a crash of this process ends it at once and leaves its temporary objects
// in place.)
void osdep_holdAllSignals(sigset_t *saved);

// Names the child that is being waited for, or 0: a signal is passed on to it before it ends the
// run. To be changed only while signals are blocked and nothing else is half done.
void osdep_setWaitedFor(pid_t child);

// Installs the handler again if it has been installed.
void osdep_reinstallHandler();

// The signals that this process ignores and that are set back to their default in children.
const sigset_t *osdep_signalsForChildren();

// Makes the descriptor `to` a duplicate of `from`; and returns a duplicate that children do not
// inherit and that is not a standard descriptor, or -1.
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

// The target of a symbolic link: a new string, or null when it is not a link.
char *osdep_readLink(const char *link);

// For a signal handler that is about to exit: removes the temporary objects (unless they are kept
// or belong to another process) and disowns them, without touching the heap.
void osdep_removeTempFilesOnSignal();

#endif
