// A transcript: a plain file that holds a command line and everything that it leads to.
//
//     # What this one shows.
//     [arguments]            the command line, one argument a line
//     [file NAME]            a file in the current directory; NAME may begin with {VER}/
//     [program NAME]         the same for a script that can be run
//     [directory NAME]       an empty directory
//     [child PATH]           the program of VER that is to be run; elm/bin/elm-gcc when left out
//     [no child]             that program is not in the suite
//     [environment]          NAME=VALUE a line
//     [command file]         what the child is to be given, byte for byte
//     [child environment]    its variables that begin with "NVC_", NAME=VALUE a line, sorted
//     [stdout] [stderr]      what the user is to see, byte for byte
//     [status]               the exit status, one number
//
// Sections that are left out are empty; status is 0. Without a section "command file" the child
// must not have been run. {VER} is the installation, {CMD} the command file's name, and {WORK} the
// current directory.
#ifndef TESTS_CLI_TRANSCRIPT_H
#define TESTS_CLI_TRANSCRIPT_H

#include <map>
#include <string>
#include <vector>

struct Transcript {
    std::vector<std::string> arguments;
    std::map<std::string, std::string> files;
    std::map<std::string, std::string> programs;
    std::vector<std::string> directories;
    std::map<std::string, std::string> environment;
    std::string childPath = "elm/bin/elm-gcc";
    bool childMissing = false;
    bool childRuns = false;
    std::string commandFile;
    std::string childEnvironment;
    std::string out;
    std::string err;
    int status = 0;
};

// Reads a transcript; a section that is not in the list above throws a std::runtime_error.
Transcript transcript_parse(const std::string &text);

#endif
