// qzm-ar of the sample installation: the librarian.
//
//     qzm-ar -r LIBRARY FILE...     puts modules into the library, which is created when missing
//     qzm-ar -d LIBRARY NAME...     takes modules out
//     qzm-ar -x LIBRARY [NAME...]   writes modules, or all of them, into the current directory
//     qzm-ar -t LIBRARY             lists the modules
#include <cerrno>
#include <cstdio>

#include "sample/command_file.h"
#include "sample/files.h"
#include "sample/orb_library.h"
#include "sample/report.h"

namespace {
struct Run {
    Report report;
    const char *path; // of the library
    Library library;
    char *const *names; // the arguments after the library
    size_t count;
};
} // namespace

static int readLibrary(Run *run, int mayBeMissing)
{
    if (mayBeMissing && !file_exists(run->path))
        return 1;
    Buffer file = {};
    if (!file_read(run->path, &file))
        report_error(&run->report, {}, 104, "could not read file \"%s\": %s", run->path,
                     strerror(errno));
    else if (!orblibrary_read(&file, &run->library))
        report_error(&run->report, {}, 1756, "file \"%s\" is not a library", run->path);
    return run->report.errors == 0;
}

static int writeLibrary(Run *run)
{
    Buffer file = {};
    if (!orblibrary_write(&run->library, &file))
        report_error(&run->report, {}, 1761, "library \"%s\" has more than %u modules", run->path,
                     65535u);
    else if (!file_write(run->path, &file))
        report_error(&run->report, {}, 1755, "library \"%s\" could not be written: %s", run->path,
                     strerror(errno));
    return run->report.errors == 0;
}

static LibraryModule *findModule(Run *run, const char *name)
{
    for (LibraryModule &module : run->library)
        if (strcmp(module.name, name) == 0)
            return &module;
    return nullptr;
}

static int isNamed(const Run *run, const char *name)
{
    for (size_t i = 0; i < run->count; i++)
        if (strcmp(run->names[i], name) == 0)
            return 1;
    return run->count == 0;
}

static void putFile(Run *run, const char *path)
{
    Buffer file = {};
    LibraryModule entry = {};
    const char *name = path_base(path);
    if (!file_read(path, &file)) {
        report_error(&run->report, {}, 104, "could not read file \"%s\": %s", path,
                     strerror(errno));
        return;
    }
    if (!orblibrary_entry(name, &file, &entry)) {
        report_error(&run->report, {}, 1763,
                     "file \"%s\" is neither an object file nor an intermediate file", path);
        return;
    }
    LibraryModule *old = findModule(run, name);
    if (old != nullptr)
        *old = entry;
    else
        list_add(&run->library, entry);
}

static int commandReplace(Run *run)
{
    if (!readLibrary(run, 1))
        return 0;
    for (size_t i = 0; i < run->count; i++)
        putFile(run, run->names[i]);
    return run->report.errors == 0 && writeLibrary(run);
}

static int checkNames(Run *run)
{
    for (size_t i = 0; i < run->count; i++)
        if (findModule(run, run->names[i]) == nullptr)
            report_error(&run->report, {}, 1760, "library \"%s\" has no module \"%s\"", run->path,
                         run->names[i]);
    return run->report.errors == 0;
}

static int commandDelete(Run *run)
{
    if (!readLibrary(run, 0) || !checkNames(run))
        return 0;
    Library kept = {};
    for (const LibraryModule &module : run->library)
        if (run->count == 0 || !isNamed(run, module.name))
            list_add(&kept, module);
    run->library = kept;
    return writeLibrary(run);
}

// A module's name comes from the file; it must not lead out of the directory.
static void extract(Run *run, const LibraryModule *module)
{
    Buffer file = {};
    buffer_add(&file, module->bytes, module->size);
    if (strchr(module->name, '/') != nullptr || !file_write(module->name, &file))
        report_error(&run->report, {}, 1766,
                     "module \"%s\" would be extracted over file \"%s\", which cannot be written",
                     module->name, module->name);
}

static int commandExtract(Run *run)
{
    if (!readLibrary(run, 0) || !checkNames(run))
        return 0;
    for (const LibraryModule &module : run->library)
        if (isNamed(run, module.name))
            extract(run, &module);
    return run->report.errors == 0;
}

static int commandList(Run *run)
{
    if (!readLibrary(run, 0))
        return 0;
    for (const LibraryModule &module : run->library)
        printf("%s\n", module.name);
    return fflush(stdout) == 0 && !ferror(stdout);
}

static const struct {
    const char *name;
    int (*run)(Run *run);
} COMMANDS[] = {
    {"-r", commandReplace},
    {"-d", commandDelete},
    {"-x", commandExtract},
    {"-t", commandList},
};

static int runCommand(const CommandArguments *arguments)
{
    Run run = {};
    report_start(&run.report);
    if (arguments->count < 2) {
        report_error(&run.report, {}, 1751, "no command was given; use -r, -d, -x or -t");
        return 0;
    }
    if (arguments->count < 3) {
        report_error(&run.report, {}, 1750, "no library was named");
        return 0;
    }
    run.path = arguments->items[2];
    run.names = arguments->items + 3;
    run.count = arguments->count - 3;
    for (const auto &command : COMMANDS)
        if (strcmp(command.name, arguments->items[1]) == 0)
            return command.run(&run);
    report_error(&run.report, {}, 1752, "command \"%s\" is not known", arguments->items[1]);
    return 0;
}

int main(int argc, char **argv)
{
    CommandArguments arguments = {};
    int done = commandfile_expand(argc, argv, &arguments) && runCommand(&arguments);
    commandfile_free(&arguments);
    return done ? 0 : 1;
}
