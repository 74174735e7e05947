// Child processes with and without captured output, the signals that end a run, and the standard
// streams.
//
//     int status = osdep_spawn(program, argv);              // 0-255, or -1
#ifndef COMMON_OS_OSDEP_PROCESS_H
#define COMMON_OS_OSDEP_PROCESS_H

#include <cstdio>

struct Vector;

// Runs `program` with the null-terminated `argv` (element 0 is the program as given) and waits for
// it. Returns its exit status 0-255; -1 when it was killed by a signal (which is reported on
// standard error) or could not be forked. When the program cannot be executed, the call returns -1
// inside the child process, which the caller must let end. Only the trace says why there was no
// child to wait for.
int osdep_spawn(const char *program, char *const *argv);

// Runs a command with its standard output and error captured and returns a stream to read them
// from, or null: for an empty command, a program that does not exist, and a child killed by a
// signal (after which descriptors 1 and 2 stay on the capture file, see osdep_restoreOutput()).
// `command` holds the program path, the arguments and a null entry; it is freed on every path. A
// file that exists and cannot be executed is a command with status 255 and no output. The trace
// says what went wrong.
FILE *osdep_popen_vecCommand(Vector *command);

// The same for a null-terminated list of argument strings.
[[gnu::sentinel]] FILE *osdep_popen_command(const char *program, ...);

// The same, but only the standard output is captured: the command shares this process's standard
// error, and a signal that kills it is reported there.
[[gnu::sentinel]] FILE *osdep_popen_output(const char *program, ...);

// Closes a stream from osdep_popen_*() and returns the exit status of its command; -1 when the
// stream is null or not (or no longer) open for a command.
int osdep_pclose(FILE *stream);

// Points standard error at `stream` (an open file), so that nothing written to it from now on, by
// this process or its children, is shown. Returns a handle for osdep_restoreError(), or -1 with
// nothing changed. osdep_restoreError() puts the old one back; -1 does nothing. Call
// osdep_restoreOutput() first if a capture has failed in between.
int osdep_redirectError(FILE *stream);
void osdep_restoreError(int saved);

// Puts descriptors 1 and 2 back after a captured command has failed, for a caller that goes on.
// Does nothing when they are in place.
void osdep_restoreOutput();

// Saves duplicates of standard output and standard error (once) and installs the handler for
// hang-up, quit, kill, terminal stop, interrupt, terminate, abort, segmentation fault and
// floating-point error. The handler ends the process with the signal's number, after an apology for
// the last three. It writes out the buffered standard output and a newline, restores both
// descriptors and removes the temporary objects, but runs no exit handler, and writes nothing where
// it would have to wait for the reader. A child that the process waits for gets the signal first
// (the termination signal when the signal does not ask for an end) and has up to a second to end.
// Closed standard descriptors are filled first, with files on which every read and write fails. The
// signals of a failing write (no reader, the limit on file sizes) are ignored from now on, except
// in children: the write fails instead.
void osdep_installCrashHandlers();

// Sets the routine to be called when a signal ends the run while it waits for a child, once the
// child has ended and the temporary objects are gone. At any other time it is not called: the
// signal may have interrupted something that the routine needs. A routine that takes longer than
// five seconds is cut short. Null, the default: nothing is called.
void osdep_setSignalRoutine(void (*routine)());

// Makes standard input read from `path`. Returns a handle for osdep_restoreInput(), or -1 with
// nothing changed when the path is not a readable file (a directory counts as unreadable) or no
// descriptor is left to save the old input in. Data that the stream had read ahead goes back to the
// old input if that is seekable; otherwise it is lost. osdep_restoreInput() puts the old input back
// at its position, and a closed one back to closed; -1 does nothing. 0 on success, else -1 with the
// input as it is.
int osdep_redirectInput(const char *path);
int osdep_restoreInput(int saved);

// Whether standard input is a terminal.
int osdep_inputIsTerminal();

// Whether standard output leads to a reader that has gone away: output is lost, and nobody waits
// for it.
int osdep_outputIsAbandoned();

// Makes every write to `stream`, an open file, go to the end of the file, even when another process
// moves that end. 0 on success, else -1 (for null, too).
int osdep_writeAtEnd(FILE *stream);

#endif
