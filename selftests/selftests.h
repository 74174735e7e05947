// The installation self-test ("--selftest") and the generation of the installation's hash list
// ("--selfinit").
//
//     exitpath_leave(selftest(option_valueOf(call)));
//
// Both print on standard output, return the exit status of the process and are meant to be called
// once per run.
#ifndef SELFTESTS_SELFTESTS_H
#define SELFTESTS_SELFTESTS_H

// Runs the tests that `list` selects (null or empty: the default set) and writes the reports it
// asks for into the current directory. Returns 0 whatever the results are, even after the message
// that a report or the console could not be written. "help" in the list prints the help and ends
// the run with status 0.
int selftest(const char *list);

// Writes the hash list of the installation at `directory` (null or empty: this program's). 0 on
// success, else 1 after a message, even when the list was saved but some directory could not be
// read.
int selfinit(const char *directory);

#endif
