// orb-as of the sample installation: the ORB assembler, with the options of a GNU tool.
//
//     orb-as -mcpu=DEVICE [-v] [-mrom=RANGES] [-mram=RANGES] [-DNAME] [-IDIR] [-oFILE] SOURCE
//
// Without "-o" the object file is the source's name with ".o"; a FILE that ends in a dot gets the
// "o" added. Sources with the extensions ".S" and ".sx" are preprocessed first.
#include <cerrno>
#include <cstdio>

#include "sample/files.h"
#include "sample/qzm_compile.h"

// Turns the arguments into those of the legacy driver's option table.
static int parse(const CommandArguments *arguments, QzmOptions *options, Report *report)
{
    static const char *const HOST[] = {"-D", "-U", "-I"};
    for (size_t i = 1; i < arguments->count; i++) {
        const char *argument = arguments->items[i];
        int isHost = 0;
        for (const char *front : HOST)
            isHost |= strncmp(argument, front, 2) == 0 && argument[2] != 0;
        if (isHost)
            list_add(&options->preprocessor, argument);
        else if (strncmp(argument, "-mcpu=", 6) == 0)
            options->chip = argument + 6;
        else if (strcmp(argument, "-o") == 0 && i + 1 < arguments->count)
            options->output = arguments->items[++i];
        else if (strncmp(argument, "-o", 2) == 0 && argument[2] != 0)
            options->output = argument + 2;
        else if (strcmp(argument, "-v") == 0)
            options->verbose++;
        else if (*argument != '-')
            list_add(&options->inputs, argument);
        else if (strncmp(argument, "-mrom=", 6) != 0 && strncmp(argument, "-mram=", 6) != 0)
            report_error(report, {}, 912, "option \"%s\" is not known to this program", argument);
    }
    return report->errors == 0;
}

static const char *objectPath(const QzmOptions *options)
{
    if (options->output == nullptr)
        return path_withExtension(path_base(options->inputs.items[0]), "o");
    size_t length = strlen(options->output);
    return options->output[length - 1] == '.' ? arena_format("%so", options->output)
                                              : options->output;
}

static int run(const CommandArguments *arguments)
{
    QzmOptions options = {};
    Report report = {};
    report_start(&report);
    if (!parse(arguments, &options, &report))
        return 1;
    const Device *chip = nullptr;
    if (options.chip == nullptr)
        report_error(&report, {}, 2006, "no device was given; use -mcpu to choose one");
    else if ((chip = device_find(options.chip, DEVICES_ORB | DEVICES_ORB18)) == nullptr)
        report_error(&report, {}, 230, "device \"%s\" is not known to this installation",
                     options.chip);
    if (options.inputs.count != 1)
        report_error(&report, {}, 100, "one source is needed; %zu were given",
                     options.inputs.count);
    if (report.errors != 0)
        return 1;
    QzmJob job = {&options, chip, &report};
    const char *path = objectPath(&options);
    if (options.verbose)
        fprintf(stderr, "assembling %s for %s into %s\n", options.inputs.items[0], chip->name,
                path);
    OrbModule *module = qzm_assemble(&job, options.inputs.items[0], path);
    Buffer file = {};
    if (module == nullptr)
        return 1;
    if (!orbmodule_write(module, &file) || !file_write(path, &file))
        report_error(&report, {}, 105, "could not write file \"%s\": %s", path, strerror(errno));
    return report.errors != 0 ? 1 : 0;
}

int main(int argc, char **argv)
{
    CommandArguments arguments = {};
    int status = commandfile_expand(argc, argv, &arguments) ? run(&arguments) : 1;
    commandfile_free(&arguments);
    return status;
}
