// Temporary files and directories, removed however the run ends.
//
//     char *commandFile = osdep_tempFileSuffix(".cmd");
//     ...
//     free(commandFile);
//
// Names are "/tmp/qz" and seven characters chosen by the system. An object is registered for
// removal at the end of the process that created it; a forked child removes nothing. Nobody but its
// owner may use it: a file has mode 0600, a directory 0700.
#ifndef COMMON_OS_OSDEP_TEMP_H
#define COMMON_OS_OSDEP_TEMP_H

// Creates an empty file, its name ending in `suffix` (or without one when null), and leaves it
// closed. Null on failure, with nothing registered.
char *osdep_tempFileSuffix(const char *suffix);
char *osdep_tempFile();

// Creates an empty directory. Null on failure.
char *osdep_tempDir();

// Whether to keep (non-zero) the temporary objects at the end of the run or to remove them (the
// default).
void osdep_keepTempFiles(int keep);

// Removes the registered objects (unless they are kept) and forgets them. Runs at exit; failures
// are ignored. Does nothing in a process other than the one that created them.
void osdep_removeTempFiles();

// Removes one temporary object of this process (a directory with its contents) now instead of at
// the end, and forgets it. One that cannot be removed now is tried again at the end. Does nothing
// while temporary objects are kept, or for any other path.
void osdep_discardTemp(const char *path);

// Removes a directory with all its contents. 0 on success; -1 when `path` is not a directory or
// cannot be examined; otherwise the first failing status. Symbolic links are removed, never
// followed.
int osdep_removeTree(const char *path);

#endif
