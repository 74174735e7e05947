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

#endif
