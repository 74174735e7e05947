// elm-gcc of the sample installation: plays the ELM compiler driver with the host's C compiler.
//
// The command line, including "@" command files, is the real driver's. Options that only the real
// driver understands are dropped; everything else goes to "cc" of the search path, whose messages
// and exit status are this program's. Headers are the suite's own.
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <unistd.h>

#include "sample/command_file.h"
#include "sample/devices.h"
#include "sample/files.h"

namespace {
// The ways to compare an option in the list below with an argument.
enum Match {
    WHOLE, // the argument is exactly this
    FRONT, // the argument begins with this
};
} // namespace

// Options that the host's compiler does not know. Those with a help text are the target's own.
static const struct {
    Match match;
    const char *text;
    const char *help; // null: not shown by "--target-help"
} DROPPED[] = {
    // the device
    {FRONT, "-mmcu=", "Select the target device"},
    {FRONT, "-mcpu=", "The same"},
    {FRONT, "-mdevice=", nullptr},
    {FRONT, "-mdfp=", "Take the device's data from this device family pack"},
    {WHOLE, "-mskip-bug", "Assume that skipping a double word fails, as on early devices"},
    // the memory of the part
    {WHOLE, "-mconst-data-in-progmem", "Place constants in program memory"},
    {WHOLE, "-mno-const-data-in-progmem", "Place constants in data memory"},
    {FRONT, "-mcodeoffset=", "Leave program memory free below this address"},
    {FRONT, "--fill=", nullptr},
    {FRONT, "-mcodecov=", "Note which parts of the program have run"},
    {WHOLE, "-mvtx-stack-usage", "Report how deep the stack may get"},
    // the start-up code
    {WHOLE, "-mconfig", "Program the configuration of the device"},
    {WHOLE, "-mno-config", nullptr},
    {WHOLE, "-mdefault-config-bits", "Program the default configuration of the device"},
    {WHOLE, "-mno-default-config-bits", nullptr},
    {FRONT, "-mdownload", "Make a program for a boot loader"},
    {FRONT, "-mno-download", nullptr},
    {WHOLE, "-mosccal", "Calibrate the oscillator at the start"},
    {WHOLE, "-mno-osccal", nullptr},
    {FRONT, "-moscval", "Calibrate the oscillator with this value"},
    {FRONT, "-mno-oscval", nullptr},
    {WHOLE, "-mstackcall", "Let the stack hold return addresses that do not fit elsewhere"},
    {WHOLE, "-mno-stackcall", nullptr},
    {FRONT, "-mivt", "Place the interrupt vectors at this address"},
    {FRONT, "-mno-ivt", nullptr},
    {FRONT, "-muse-ivt", "Make a table of interrupt vectors"},
    {FRONT, "-mno-use-ivt", nullptr},
    // the language and the optimizer
    {FRONT, "-mext=", "Accept these extensions of the language"},
    {WHOLE, "-mafrlcsj", nullptr},
    {WHOLE, "-flocal", nullptr},
    {WHOLE, "-fasmfile", nullptr},
    {WHOLE, "-gcoff", nullptr},
    // the linker
    {WHOLE, "-Wl,--info-linker", nullptr},
    {FRONT, "-Wl,--memorysummary", nullptr},
    {WHOLE, "-Wl,--data-init", nullptr},
    {WHOLE, "-Wl,--no-data-init", nullptr},
};

// The name of the architecture, which can be given as a device.
static const char ARCHITECTURE[] = "elm1";

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

static void printDevices()
{
    enum { DEVICES_A_LINE = 6 };
    printf("Known MCU names:\n  %s", ARCHITECTURE);
    unsigned count = 1;
    for (const Device &device : *device_list())
        if (device_group(&device) == DEVICES_ELM)
            printf("%s%s", count++ % DEVICES_A_LINE == 0 ? "\n  " : " ", device.name);
    printf("\n");
}

// The sections are in the order of a GNU driver, which asks its assembler and its linker; the
// assembler lists the names of the devices.
static int printTargetHelp()
{
    printf("The following options are target specific:\n");
    for (const auto &option : DROPPED)
        if (option.help != nullptr)
            printf("  %-27s %s.\n", option.text, option.help);
    printf("\nAssembler options\n=================\n\n"
           "Use \"-Wa,OPTION\" to pass \"OPTION\" to the assembler.\n\n");
    printDevices();
    printf("\nLinker options\n==============\n\n"
           "Use \"-Wl,OPTION\" to pass \"OPTION\" to the linker.\n\n"
           "  --info-linker               Tell the linker who calls it.\n"
           "  --memorysummary,FILE        Write the memory used into this file.\n"
           "  --data-init                 Initialize data.\n"
           "  --no-data-init              Do not initialize data.\n");
    return fflush(stdout) == 0 && !ferror(stdout);
}

// The text after the "=" of an option that chooses the device; null for other arguments.
static const char *deviceName(const char *argument)
{
    int chooses = strncmp(argument, "-mmcu=", 6) == 0 || strncmp(argument, "-mcpu=", 6) == 0;
    return chooses ? argument + 6 : nullptr;
}

static void addDeviceMacro(const char *name, CommandArguments *command)
{
    char *macro = arena_format("-D__%s__=1", name);
    for (char *at = macro + 2; *at != 0; at++)
        *at = static_cast<char>(toupper(static_cast<unsigned char>(*at)));
    commandfile_append(command, macro);
}

// Turns the arguments into those of the host's compiler. 0 after a message.
static int translate(const CommandArguments *given, CommandArguments *command)
{
    const char *headers = path_besideProgram("include");
    if (headers == nullptr) {
        fprintf(stderr, "%s: error: cannot find out where this program is\n", given->items[0]);
        return 0;
    }
    const char *const front[] = {"cc", "-nostdinc", "-isystem", headers, "-D__ELM__=1"};
    for (const char *word : front)
        commandfile_append(command, word);
    for (size_t i = 1; i < given->count; i++) {
        const char *name = deviceName(given->items[i]);
        const Device *device = name == nullptr ? nullptr : device_find(name, DEVICES_ELM);
        if (device != nullptr) {
            addDeviceMacro(device->name, command);
        } else if (name != nullptr && strcmp(name, ARCHITECTURE) != 0) {
            fprintf(stderr, "%s: error: device \"%s\" is not known to this installation\n",
                    given->items[0], name);
            return 0;
        } else if (!isDropped(given->items[i])) {
            commandfile_append(command, given->items[i]);
        }
    }
    return 1;
}

static int run(const CommandArguments *given, CommandArguments *command)
{
    for (size_t i = 1; i < given->count; i++)
        if (strcmp(given->items[i], "--target-help") == 0)
            return printTargetHelp() ? 0 : 1;
    if (!translate(given, command))
        return 1;
    execvp(command->items[0], command->items);
    fprintf(stderr, "%s: error: cannot run the host's C compiler \"cc\": %s\n", given->items[0],
            strerror(errno));
    return 1;
}

int main(int argc, char **argv)
{
    CommandArguments given = {};
    CommandArguments command = {};
    int status = commandfile_expand(argc, argv, &given) ? run(&given, &command) : 1;
    commandfile_free(&command);
    commandfile_free(&given);
    return status;
}
