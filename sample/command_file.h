// Reading "@" command files, for the programs that play the suite's children.
//
// A child receives its real command line through one argument, "@" and the name of a file. The file
// is read as a GNU driver reads it:
//
//   - white space (blank, tab, newline, carriage return, form feed, vertical tab) separates the
//     arguments and is otherwise dropped;
//   - single and double quotes hold white space and the other kind of quote; they are dropped and
//     may begin and end anywhere inside an argument; an empty pair is an empty argument;
//   - a backslash, inside and outside of quotes, makes the next character an ordinary one;
//   - an argument that is again "@" and a name is replaced by what that file holds.
//
//     CommandArguments arguments = {};
//     if (!commandfile_expand(argc, argv, &arguments))
//         return 1;                        // the reason is on standard error
//     ... arguments.items[1] ... arguments.items[arguments.count - 1] ...
//     commandfile_free(&arguments);
//
// A file that cannot be read, one that holds a NUL, and one that goes past the limits below (it
// names itself, say) are refused. An argument of "@" alone is ordinary.
#ifndef SAMPLE_COMMAND_FILE_H
#define SAMPLE_COMMAND_FILE_H

#include <cstddef>

enum {
    COMMANDFILE_MAX_DEPTH = 32,        // levels of files named by files
    COMMANDFILE_MAX_FILES = 1000,      // files read for one command line
    COMMANDFILE_MAX_BYTES = 256 << 20, // of all of them together
};

// A growing list of arguments. All zero is the empty list.
struct CommandArguments {
    char **items;    // each string is the list's own; a null entry follows the last one
    size_t count;    // strings in the list
    size_t capacity; // entries allocated, the null entry included
};

// Appends a copy of `text`. Ends the program with a message and status 1 when memory is used up.
void commandfile_append(CommandArguments *arguments, const char *text);

// Appends the arguments of the command line: element 0 (the program's name) unchanged, and after it
// each "@file" replaced by the file's arguments. Returns 1 on success. Otherwise returns 0 after a
// message on standard error that begins with the program's name and names the file; the list then
// holds the arguments before it.
int commandfile_expand(int argc, char *const *argv, CommandArguments *arguments);

// Frees the strings and leaves the empty list.
void commandfile_free(CommandArguments *arguments);

#endif
