// elm-gcc of the sample installation: plays the ELM compiler driver with the host's C compiler.
//
// The command line, "@" command files included, is the real driver's. What only that one
// understands is dropped; everything else goes to "cc" of the search path, whose messages and exit
// status are this program's.
#include "sample/command_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

// How an option in the list below is compared with an argument.
enum Match {
    WHOLE, // the argument is exactly this
    FRONT, // the argument begins with this
};

// Options that the host's compiler does not know.
static const struct {
    Match match;
    const char *text;
} DROPPED[] = {
    // the device
    {FRONT, "-mmcu="},
    {FRONT, "-mdevice="},
    {FRONT, "-mdfp="},
    {WHOLE, "-mskip-bug"},
    // the memory of the part
    {WHOLE, "-mconst-data-in-progmem"},
    {WHOLE, "-mno-const-data-in-progmem"},
    {FRONT, "-mcodeoffset="},
    {FRONT, "--fill="},
    {FRONT, "-mcodecov="},
    {WHOLE, "-mvtx-stack-usage"},
    // the start-up code
    {WHOLE, "-mconfig"},
    {WHOLE, "-mno-config"},
    {WHOLE, "-mdefault-config-bits"},
    {WHOLE, "-mno-default-config-bits"},
    {FRONT, "-mdownload"},
    {FRONT, "-mno-download"},
    {WHOLE, "-mosccal"},
    {WHOLE, "-mno-osccal"},
    {FRONT, "-moscval"},
    {FRONT, "-mno-oscval"},
    {WHOLE, "-mstackcall"},
    {WHOLE, "-mno-stackcall"},
    {FRONT, "-mivt"},
    {FRONT, "-mno-ivt"},
    {FRONT, "-muse-ivt"},
    {FRONT, "-mno-use-ivt"},
    // the language and the optimizer
    {FRONT, "-mext="},
    {WHOLE, "-mafrlcsj"},
    {WHOLE, "-flocal"},
    {WHOLE, "-fasmfile"},
    {WHOLE, "-gcoff"},
    // the linker
    {WHOLE, "-Wl,--info-linker"},
    {FRONT, "-Wl,--memorysummary"},
    {WHOLE, "-Wl,--data-init"},
    {WHOLE, "-Wl,--no-data-init"},
};

static int isDropped(const char *argument)
{
    for (const auto &option : DROPPED) {
        size_t length = strlen(option.text);
        if (strncmp(argument, option.text, length) == 0 &&
            (option.match == FRONT || argument[length] == 0))
            return 1;
    }
    return 0;
}

int main(int argc, char **argv)
{
    CommandArguments given = {};
    CommandArguments command = {};
    if (!commandfile_expand(argc, argv, &given))
        return 1;
    commandfile_append(&command, "cc");
    for (size_t i = 1; i < given.count; i++)
        if (!isDropped(given.items[i]))
            commandfile_append(&command, given.items[i]);

    execvp(command.items[0], command.items);
    fprintf(stderr, "%s: error: cannot run the host's C compiler \"cc\": %s\n", given.items[0],
            strerror(errno));
    commandfile_free(&command);
    commandfile_free(&given);
    return 1;
}
