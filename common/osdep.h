// osdep: the one place where the program touches the operating system.
//
//     char *commandFile = osdep_tempFileSuffix(".cmd");    // removed at exit
//     ...
//     int status = osdep_spawn(program, argv);              // 0-255, or -1
//
// Temporary objects, child processes with and without captured output, crash handlers, questions
// about the host, path names, sorting and searching, integers in a chosen byte order, wide strings.
// Strings that a function returns are new and the caller's to free() unless it says otherwise; a
// null path gives null (or 0). Nothing here reports through the message system: failures are null,
// -1 or 0 as stated, and the caller reports them.
#ifndef COMMON_OSDEP_H
#define COMMON_OSDEP_H

#include <cstddef>
#include <cstdint>
#include <cstdio>

struct OsdepOpenDirectory;
struct Vector;

// ---- Temporary objects ------------------------------------------------------------------------
//
// Names are "/tmp/qz" and seven characters chosen by the system. An object is registered for
// removal at the end of the process that created it; a forked child removes nothing. Nobody but its
// owner may use it: a file has mode 0600, a directory 0700.

// Creates an empty file, its name ending in `suffix` (or without one when null), and leaves it
// closed. Null on failure, with nothing registered.
char *osdep_tempFileSuffix(const char *suffix);
char *osdep_tempFile();

// Creates an empty directory. Null on failure.
char *osdep_tempDir();

// Keeps (non-zero) the temporary objects at the end of the run, or removes them (the default).
void osdep_keepTempFiles(int keep);

// Removes the registered objects (unless they are kept) and forgets them. Runs at exit; failures
// are ignored. Does nothing in a process other than the one that created them.
void osdep_removeTempFiles();

// Removes one temporary object of this process (a directory with its contents) now instead of at
// the end, and forgets it; one that cannot be removed now is tried again at the end. Does nothing
// while they are kept, and for any other path.
void osdep_discardTemp(const char *path);

// Removes a directory with all its contents. 0 on success; -1 when `path` is no directory or cannot
// be examined; otherwise the first failing status. Symbolic links are removed, never followed.
int osdep_removeTree(const char *path);

// ---- Processes --------------------------------------------------------------------------------

// Runs `program` with the null-terminated `argv` (element 0 is the program as given) and waits for
// it. Returns its exit status 0-255; -1 when it was killed by a signal (which is reported on
// standard error) or could not be forked. When the program cannot be executed the call returns -1
// inside the child process, which the caller must let end. Why there was no child to wait for is
// said in the trace alone.
int osdep_spawn(const char *program, char *const *argv);

// Runs a command with its standard output and error captured and returns a stream to read them
// from, or null: for an empty command, a program that does not exist, and a child killed by a
// signal (after which descriptors 1 and 2 stay on the capture file, see osdep_restoreOutput()).
// `command` holds the program path, the arguments and a null entry; it is freed on every path. A
// file that exists and cannot be executed is a command with status 255 and no output. The trace
// says what went wrong.
FILE *osdep_popen_vecCommand(Vector *command);

// The same from a list of argument strings that a null ends.
[[gnu::sentinel]] FILE *osdep_popen_command(const char *program, ...);

// The same of the command's standard output alone: its standard error stays where this process has
// it, and a signal that kills it is reported there.
[[gnu::sentinel]] FILE *osdep_popen_output(const char *program, ...);

// Closes a stream from osdep_popen_*() and returns the exit status of its command; -1 when the
// stream is null or not (or no longer) open for a command.
int osdep_pclose(FILE *stream);

// Points standard error at `stream` (an open file), so that what is written there from here on, by
// children too, is not shown. Returns a handle for osdep_restoreError(), or -1 with nothing
// changed. osdep_restoreError() puts the old one back; -1 does nothing. A capture that has failed
// in between is undone first, with osdep_restoreOutput().
int osdep_redirectError(FILE *stream);
void osdep_restoreError(int saved);

// Puts descriptors 1 and 2 back after a captured command has failed, for a caller that goes on.
// Does nothing when they are in place.
void osdep_restoreOutput();

// Saves duplicates of standard output and standard error (once) and installs the handler for
// hang-up, quit, kill, terminal stop, interrupt, terminate, abort, segmentation fault and
// floating-point error. The handler ends the process with the signal's number, after a word of
// apology for the last three: it writes what standard output still holds and a newline, restores
// both descriptors and removes the temporary objects, but runs no exit handler, and writes nothing
// to a reader who would have to be waited for. A child that is being waited for is handed the
// signal first (the termination signal, where the signal does not ask for an end) and gets up to a
// second to end.
// Standard descriptors that are closed are filled first, with something that fails every read and
// write. The signals that a failing write brings (no reader, the limit on file sizes) are ignored
// from here on, except in children: the write fails instead.
void osdep_installCrashHandlers();

// Has `routine` called when a signal ends the run while a child is being waited for, once the child
// has ended and the temporary objects are gone; anywhere else a signal may have interrupted what
// the routine needs, and it is not called. A routine that takes longer than five seconds is cut
// short. Null: nothing is called (as at first).
void osdep_setSignalRoutine(void (*routine)());

// Makes standard input read from `path`. Returns a handle for osdep_restoreInput(), or -1 with
// nothing changed when the path is no readable file (a directory is none) or no descriptor is left
// to keep the old input in. What the stream had read ahead of the old input goes back to it where
// it can be positioned, else it is lost.
// osdep_restoreInput() puts the old input back where it stood, a closed one too; -1 does nothing.
// 0 on success, else -1 with the input as it is.
int osdep_redirectInput(const char *path);
int osdep_restoreInput(int saved);

// Whether standard input is a terminal.
int osdep_inputIsTerminal();

// Whether standard output leads to a reader that has gone away: what is written to it is lost, and
// nobody waits for it.
int osdep_outputIsAbandoned();

// Has every write to `stream`, an open file, go to the end of the file, wherever another process
// has moved that in the meantime. 0 on success, else -1 (for null, too).
int osdep_writeAtEnd(FILE *stream);

// ---- Host -------------------------------------------------------------------------------------

enum OsFlag : uint32_t {
    OSFLAG_WINDOWS = 0x10000,             // backslash separates paths, programs end in ".exe"
    OSFLAG_POSIX = 0x80000,               //
    OSFLAG_UNKNOWN = 0x100000,            // the system could not be identified
    OSFLAG_LONG_COMMAND_LINE = 0x1000000, // Windows: the newer command-line limit
};

// "SYSTEM RELEASE VERSION MACHINE" of the running kernel, or "??Error: ..."; and the flags.
// Computed once; the text is not the caller's to free.
const char *osdep_osInfo();
uint32_t osdep_osFlags();

// The longest command line, in characters, that the host accepts.
size_t osdep_maxCommandLine();

// The number of processors, at least 1. With the hint asked for, a build server's advertised
// capability ("bamboo_capability_Cores") wins when it is a non-zero number.
int osdep_numCores(int useBuildServerHint);

// The host's name; "localhost" when it cannot be read.
char *osdep_hostName();

// The path of the running executable, or null.
char *osdep_exePath();

// The current directory; null when it cannot be told or is longer than 20,479 characters.
char *osdep_cwd();

// Sets an environment variable for this process and its children; a null value counts as empty. 0
// on success or for a null name, else non-zero. Both are copied into one string that belongs to the
// environment and is never freed, not even when the variable is set again.
int osdep_setenv(const char *name, const char *value);

// A point in time: whole seconds and the fraction of one.
struct OsdepTime {
    int64_t seconds;
    int64_t fraction; // microseconds of the wall clock, nanoseconds of the process's own time
};

// The wall clock, counted from 1970; and the processor time that this process has used.
OsdepTime osdep_wallTime();
OsdepTime osdep_cpuTime();

// ---- Directories ------------------------------------------------------------------------------

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

// ---- Replacing a file -------------------------------------------------------------------------
//
// A file that must never be seen half-written is written beside the old one and takes its place. A
// null replacement is a broken contract and ends the run.
//
//     OsdepReplacement replacement;
//     if (osdep_openReplacement(&replacement, path) == 0) {
//         ... write to replacement.stream ...
//         if (complete)
//             status = osdep_commitReplacement(&replacement);
//         else
//             osdep_dropReplacement(&replacement);
//     }

struct OsdepReplacement {
    FILE *stream; // open for reading and writing
    char *name;   // ".NAME.XXXXXX" beside `path`, six characters chosen by the system; owned
    char *path;   // what it is to replace; owned
};

// Creates an empty file in the directory of `path`, with the permissions of `path`, or those of a
// new file when there is none. It is registered as a temporary object until it takes its place. 0
// on success; -1 otherwise, with nothing to be dropped.
int osdep_openReplacement(OsdepReplacement *replacement, const char *path);

// Brings what was written to the disk, closes the stream and puts the file in the place of `path`
// in one step. 0 on success. -1 when any of it fails: the replacement is gone, `path` as it was.
int osdep_commitReplacement(OsdepReplacement *replacement);

// Closes and removes the replacement; `path` stays as it was.
void osdep_dropReplacement(OsdepReplacement *replacement);

// ---- Paths ------------------------------------------------------------------------------------

// dir + "/" + name. One "/" at the end of dir and one at the start of name are dropped, so that
// "a/" and "/b" give "a/b"; further ones stay. An empty name leaves the "/" at the end, an empty
// dir gives null. The second form has a backslash in place of "/", also in what is dropped, when
// `flags` say Windows.
char *osdep_pathJoin(const char *dir, const char *name);
char *osdep_pathJoinFor(uint32_t flags, const char *dir, const char *name);

// Collapses repeated slashes, drops "/./", resolves "/../" (never above the start) and drops one
// trailing "/", except that of a drive root or of a result shorter than three characters. A "." or
// ".." that opens or ends the path stays; so does the ".." of a relative path that climbs above its
// start. Links are not looked at. Nothing but an empty path gives an empty result.
char *osdep_normalisePath(const char *path);

// The normalised path, joined to the current directory when it is not absolute.
char *osdep_absolutePath(const char *path);

// The absolute path with the current directory taken off its front; "." for the current directory
// itself; the absolute path when it lies elsewhere.
char *osdep_relativePath(const char *path);

// Whether the path begins at the root.
int osdep_isAbsolute(const char *path);

// The text behind the last "/": a pointer into the argument, or a copy.
const char *osdep_baseName(const char *path);
char *osdep_baseNameCopy(const char *path);

// The base name without its extension; and the same with the extension's dot kept.
char *osdep_stem(const char *path);
char *osdep_stemDot(const char *path);

// A pointer to the last "." of the path, or to an empty string.
const char *osdep_extension(const char *path);

// Everything before the last "/", or null when there is none.
char *osdep_dirName(const char *path);

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

// ---- Strings ----------------------------------------------------------------------------------

// Fold the ASCII letters of `s` in place; return it.
char *osdep_strlwr(char *s);
char *osdep_strupr(char *s);

// Strings of 32-bit characters, ended by a zero character. Sizes count characters, not bytes. Null
// is allowed everywhere: its length is 0, it compares below every string and equal to itself, a
// duplicate or folding of it is null, and copying it leaves the destination unchanged.
//
// wcscpy and wcslwr return their first argument. A destination needs room for the source and its
// end, and may overlap the source. The duplicate is the caller's to free(). Compare returns -1, 0
// or 1, by the unsigned values of the first characters that differ. Only ASCII letters are folded.
char32_t *osdep_wcscpy(char32_t *destination, const char32_t *source);
char32_t *osdep_wcsdup(const char32_t *s);
size_t osdep_wcslen(const char32_t *s);
int osdep_wcscmp(const char32_t *a, const char32_t *b);
char32_t *osdep_wcslwr(char32_t *s);

// ---- Integers in a chosen byte order ----------------------------------------------------------
//
// A null stream or value is a broken contract, whose report names the function. The little-endian
// and 8-bit readers and every writer return the number of items moved (1 or 0). After a failed
// big-endian read the value is unspecified and the stream's state tells.

size_t osdep_readU8(FILE *f, uint8_t *val);
size_t osdep_readLEU16(FILE *f, uint16_t *val);
size_t osdep_readLEU32(FILE *f, uint32_t *val);
size_t osdep_readLEU64(FILE *f, uint64_t *val);
void osdep_readBEU16(FILE *f, uint16_t *val);
void osdep_readBEU32(FILE *f, uint32_t *val);
void osdep_readBEU64(FILE *f, uint64_t *val);

size_t osdep_writeU8(FILE *f, uint8_t val);
size_t osdep_writeLEU16(FILE *f, uint16_t val);
size_t osdep_writeLEU32(FILE *f, uint32_t val);
size_t osdep_writeLEU64(FILE *f, uint64_t val);
size_t osdep_writeBEU16(FILE *f, uint16_t val);
size_t osdep_writeBEU32(FILE *f, uint32_t val);
size_t osdep_writeBEU64(FILE *f, uint64_t val);

// The number that stands at `bytes` in memory, the little end first.
inline uint16_t osdep_getLEU16(const uint8_t *bytes)
{
    return static_cast<uint16_t>(bytes[0] | bytes[1] << 8);
}

inline uint32_t osdep_getLEU32(const uint8_t *bytes)
{
    return osdep_getLEU16(bytes) | static_cast<uint32_t>(osdep_getLEU16(bytes + 2)) << 16;
}

inline uint64_t osdep_getLEU64(const uint8_t *bytes)
{
    return osdep_getLEU32(bytes) | static_cast<uint64_t>(osdep_getLEU32(bytes + 4)) << 32;
}

#endif
