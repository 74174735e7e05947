// The generic first and last steps of a compiler driver: reading the command line, with response
// files, and running the command that option processing made from it.
//
//     int main(int argc, char **argv)
//     {
//         return cmdline_driver(argc, argv, options_process, COMMAND_FILE_ALWAYS, &verbosity);
//     }
#ifndef COMMON_CMDLINE_CMDLINE_H
#define COMMON_CMDLINE_CMDLINE_H

struct Vector;

// How the arguments reach the child.
enum CommandFileMode : unsigned {
    COMMAND_FILE_AUTO = 0,   // in a command file when the command line would be too long
    COMMAND_FILE_ALWAYS = 1, // in a command file
    COMMAND_FILE_NEVER = 2,  // on the command line
};

// Turns the argument vector (interned strings, in order) into the command to run, driver path
// first: a new vector, which cmdline_driver() destroys, or the one it was given. It may end the
// process.
using CmdlineProcess = Vector *(*)(Vector *arguments);

// Receives each raw argument before it is examined.
using CmdlineVisitor = void (*)(const char *argument);

// Runs the whole program: reading the arguments, options_process, execution. `verbosity` is read
// after options_process has run; non-zero shows the command. Returns the exit status of the child,
// or -1 or 1 as cmdline_spawn() says. Neither argv, the callback nor what it returns may be null; a
// null `verbosity` counts as 0.
int cmdline_driver(int argc, char **argv, CmdlineProcess options_process, unsigned spawnFlag,
                   const int *verbosity);

// Takes in the `argc` strings of `argv`, none of them null: skips the first (the program's name,
// remembered on the first call), drops empty ones, puts the arguments of response files ("@file",
// nested up to 100 levels deep) in their place, and removes the backslash before blanks, quotes and
// backslashes. Returns a new vector of interned strings, the caller's to destroy. `perArgument` may
// be null. A "@file" that cannot be read stays as written. While a response file is read, it
// replaces standard input, which is restored afterwards. A response file that names itself, is
// nested too deeply or fails while it is read, and files whose arguments together would take more
// than 64 MiB of memory, end the run (messages 918 to 921).
Vector *cmdline_args(int argc, char **argv, CmdlineVisitor perArgument);

// Splits standard input into arguments: the whole of it, or one line. Entry 0 of the result is a
// copy of `promptName`, which may not be null; a null entry ends it. The array and its strings
// belong to the module and stay valid until the next call; cmdline_args() also makes such calls for
// response files. A token of more than 2047 characters is cut, reported as message 917, and ends
// the reading.
char **cmdline_readArgs(int singleLine, const char *promptName);

// The number of entries that the last cmdline_readArgs() left, entry 0 included; 0 before the
// first.
int cmdline_readCount();

// 1 when cmdline_args() has seen an argument that begins with "--qzdebug".
int cmdline_debugSeen();

// The program's first argument, interned; null before the first cmdline_args().
const char *cmdline_programName();

// Runs `command` (driver path, arguments; not modified) and returns the child's exit status 0-255;
// -1 when it was killed by a signal or could not be started; 1, with a message, for an empty
// command or a command file that cannot be written. A non-zero `echo` shows the command on standard
// output.
int cmdline_spawn(Vector *command, unsigned mode, int echo);

#endif
