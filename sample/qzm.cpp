// qzm of the sample installation: the legacy driver of the ORB devices.
//
// It preprocesses and checks C sources with the host's C compiler, assembles, and links the results
// into an Intel HEX file. README.md says which parts of the result are real.
#define MODULE "sample/qzm"
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "common/diagnostics/qzdebug_options.h"
#include "common/trace/qzdebug.h"
#include "sample/files.h"
#include "sample/host_compiler.h"
#include "sample/orb_linker.h"
#include "sample/qzm_compile.h"

static const char NAME[] = "qzm"; // to the debug facility
static const char VERSION[] = "QZM sample C compiler driver V2.32\n";

static const char BUILTINS[] = "__builtin_nop\n__builtin_disable_interrupts\n"
                               "__builtin_enable_interrupts\n__builtin_reset\n__builtin_sleep\n";

static void writeOutput(const QzmJob *job, const char *path, const Buffer *content)
{
    TRACE("writing %zu bytes to \"%s\"", content->count, path);
    if (!file_write(path, content))
        report_error(job->report, {}, 105, "could not write file \"%s\": %s", path,
                     strerror(errno));
}

static void writeModule(const QzmJob *job, const char *path, const OrbModule *module)
{
    Buffer file = {};
    if (orbmodule_write(module, &file))
        writeOutput(job, path, &file);
    else
        report_error(job->report, {module->file, 0, 0}, 1620,
                     "object file \"%s\" would have a record that is too long", path);
}

static int isOnly(const QzmJob *job)
{
    const QzmOptions *options = job->options;
    return options->compileOnly || options->pass1 || options->assemblyOnly;
}

// Translates one source and, if nothing is linked, writes the result. Null when there is no module
// to link.
static OrbModule *moduleOf(const QzmJob *job, const char *source, int isAlone)
{
    int isC = qzm_inputKind(source) == INPUT_C;
    int keep = isOnly(job) || job->options->keepTemporary;
    const char *target = qzm_objectPath(job, source, isC ? "p1" : "o", isOnly(job) && isAlone);
    if (job->options->preprocess) {
        qzm_preprocess(job, source);
        return nullptr;
    }
    if (qzm_wantsOnlyDependencies(job)) {
        qzm_writeDependencies(job, source, target);
        return nullptr;
    }
    if (job->options->assemblyOnly && isC) {
        qzm_compileToAssembly(job, source);
        return nullptr;
    }
    OrbModule *module = isC ? qzm_compile(job, source, target) : qzm_assemble(job, source, target);
    if (module != nullptr && keep)
        writeModule(job, target, module);
    return module;
}

static OrbModule *translate(const QzmJob *job, const char *source, int isAlone)
{
    TRACE_ENTER("source=\"%s\", isAlone=%d", source, isAlone);
    return TRACE_RETURN("%p", moduleOf(job, source, isAlone));
}

static void addLibrary(const QzmJob *job, OrbProgram *program, const char *name, const Buffer *file)
{
    Library library = {};
    if (!orblibrary_read(file, &library)) {
        report_error(job->report, {}, 133, "file \"%s\" is damaged: %s", name,
                     "it is neither a module nor a library");
        return;
    }
    for (LibraryModule &module : library) {
        module.name = arena_format("%s(%s)", name, module.name);
        list_add(&program->libraryModules, module);
    }
}

static void readLinkInput(const QzmJob *job, OrbProgram *program, const char *name)
{
    // The library's modules use the bytes until the end.
    Buffer file = {};
    if (!file_read(name, &file)) {
        if (strchr(name, '/') == nullptr && *path_extension(name) == 0)
            report_error(job->report, {}, 1666, "library \"%s\" was not found", name);
        else
            report_error(job->report, {}, 104, "could not read file \"%s\": %s", name,
                         strerror(errno));
        return;
    }
    OrbModule *module = orbmodule_read(name, file.items, file.count);
    if (module == nullptr) {
        addLibrary(job, program, name, &file);
        return;
    }
    if (*module->chip != 0 && strcmp(module->chip, job->chip->name) != 0)
        report_error(job->report, {name, 0, 0}, 1405,
                     "file \"%s\" was made for device \"%s\", not \"%s\"", name, module->chip,
                     job->chip->name);
    list_add(&program->modules, module);
}

static void addLinkInput(const QzmJob *job, OrbProgram *program, const char *name)
{
    TRACE_ENTER("name=\"%s\"", name);
    readLinkInput(job, program, name);
}

static void printSummary(const QzmJob *job, const OrbProgram *program)
{
    static const char *const WANTED[] = {"mem", "+mem", "psect", "+psect", "class", "+class"};
    int wanted = 0;
    for (const char *item : WANTED)
        wanted |= qzmoptions_has(&job->options->summary, item);
    if (!wanted)
        return;
    Buffer text = {};
    orblink_writeSummary(program, &text);
    writeOutput(job, "-", &text);
}

static void writeProgram(const QzmJob *job, const OrbProgram *program, const char *output)
{
    const QzmOptions *options = job->options;
    Buffer hex = {};
    Buffer elf = {};
    Buffer map = {};
    Buffer xml = {};
    int zero = qzmoptions_has(&options->outputFormats, "+inhx032");
    orblink_writeHex(program, zero, &hex);
    writeOutput(job, path_withExtension(output, "hex"), &hex);
    if (strcmp(path_extension(output), "elf") == 0) {
        orblink_writeElf(program, &elf);
        writeOutput(job, output, &elf);
    }
    if (options->mapFile != nullptr || options->wantsMap) {
        orblink_writeMap(program, &map);
        writeOutput(
            job, options->mapFile != nullptr ? options->mapFile : path_withExtension(output, "map"),
            &map);
    }
    if (options->summaryFile != nullptr) {
        orblink_writeXml(program, &xml);
        const char *path = file_isDirectory(options->summaryFile)
                               ? path_join(options->summaryFile, "memoryfile.xml")
                               : options->summaryFile;
        writeOutput(job, path, &xml);
    }
    printSummary(job, program);
}

// "-o" in "--outdir", or the first input's name; ".hex" when it has no extension.
static const char *outputPath(const QzmOptions *options)
{
    const char *name = options->output;
    if (name == nullptr)
        name = path_withExtension(path_base(options->inputs.items[0]), "hex");
    if (*path_extension(name) == 0)
        name = path_withExtension(name, "hex");
    return path_join(options->outputDir == nullptr ? "" : options->outputDir, name);
}

static void linkProgram(const QzmJob *job, OrbProgram *program)
{
    const QzmOptions *options = job->options;
    const char *output = outputPath(options);
    TRACE_ENTER("output=\"%s\"", output);
    program->chip = job->chip;
    program->report = job->report;
    program->name = output;
    program->noStartup = qzmoptions_has(&options->runtime, "+no_startup");
    program->noLibrary = qzmoptions_has(&options->runtime, "-clib");
    if (options->codeOffset != nullptr)
        program->codeOffset =
            static_cast<uint32_t>(strtoul(options->codeOffset, nullptr, 16)) & 0xFFFFFFFEu;
    if (orblink(program))
        writeProgram(job, program, output);
}

static int isSource(const char *input)
{
    InputKind kind = qzm_inputKind(input);
    return kind == INPUT_C || kind == INPUT_ASSEMBLY;
}

static void build(const QzmJob *job)
{
    TRACE_ENTER();
    OrbProgram program = {};
    size_t sources = 0;
    int links = !isOnly(job) && !job->options->preprocess && !qzm_wantsOnlyDependencies(job);
    for (const char *input : job->options->inputs)
        sources += isSource(input) != 0;
    if (isOnly(job) && job->options->output != nullptr && sources > 1)
        report_error(job->report, {}, 128, "one output file was named for %zu input files",
                     sources);
    for (const char *input : job->options->inputs) {
        host_stopIfAsked();
        OrbModule *module = nullptr;
        if (isSource(input))
            module = translate(job, input, sources == 1);
        else if (links)
            addLinkInput(job, &program, input);
        if (module != nullptr)
            list_add(&program.modules, module);
    }
    if (links && job->report->errors == 0)
        linkProgram(job, &program);
}

static void checkDirectory(Report *report, const char *path, unsigned number, const char *what)
{
    if (path != nullptr && !file_isDirectory(path))
        report_error(report, {}, number, "%s directory \"%s\" does not exist", what, path);
}

// Everything that must be right before the first file is looked at.
static int check(const QzmOptions *options, const Device **chip, Report *report)
{
    TRACE_ENTER("chip=\"%s\"", options->chip);
    *chip = options->chip == nullptr ? nullptr
                                     : device_find(options->chip, DEVICES_ORB | DEVICES_ORB18);
    if (options->inputs.count == 0)
        report_error(report, {}, 100, "no input file was given");
    if (options->chip == nullptr)
        report_error(report, {}, 2006, "option \"--chip\" is missing");
    else if (*chip == nullptr)
        report_error(report, {}, 230, "device \"%s\" is not known to this installation",
                     options->chip);
    checkDirectory(report, options->objectDir, 2014, "object");
    checkDirectory(report, options->outputDir, 2015, "output");
    return TRACE_RETURN("%d", report->errors == 0);
}

static void printPlan(const QzmOptions *options)
{
    for (const char *input : options->inputs)
        fprintf(stderr, "%s %s for %s\n", isSource(input) ? "translate" : "link", input,
                options->chip == nullptr ? "no device" : options->chip);
}

static void startReport(const QzmOptions *options, Report *report)
{
    for (int i = 0; i < SEVERITY_COUNT; i++)
        if (options->formats[i] != nullptr)
            report->formats[i] = options->formats[i];
    report->hideWarnings = options->hidden != nullptr && strcmp(options->hidden, "0") == 0;
    if (options->warningLevel != nullptr)
        report->threshold = atoi(options->warningLevel);
    if (options->errorLimit != nullptr)
        report->limit = static_cast<unsigned>(strtoul(options->errorLimit, nullptr, 10));
}

static int printText(const char *text)
{
    return fputs(text, stdout) >= 0 && fflush(stdout) == 0 ? 0 : 1;
}

static int readOptions(const CommandArguments *arguments, QzmOptions *options, Report *report)
{
    TRACE_ENTER("%zu arguments", arguments->count - 1);
    report_start(report);
    return TRACE_RETURN("%d", qzmoptions_parse(arguments, options, report));
}

static int execute(const CommandArguments *arguments)
{
    QzmOptions options = {};
    Report report = {};
    int understood = readOptions(arguments, &options, &report);
    if (options.showVersion && understood)
        return printText(VERSION);
    if (qzmoptions_has(&options.info, "builtins") && understood)
        return printText(BUILTINS);
    startReport(&options, &report);
    const Device *chip = nullptr;
    if (!understood || !check(&options, &chip, &report))
        return 1;
    if (options.verbose)
        fputs(VERSION, stderr);
    if (options.noExecute || options.verbose)
        printPlan(&options);
    if (options.noExecute)
        return 0;
    QzmJob job = {&options, chip, &report};
    build(&job);
    host_stopIfAsked();
    return report.errors != 0 ? 1 : 0;
}

static int run(const CommandArguments *arguments)
{
    TRACE_ENTER();
    return TRACE_RETURN("%d", execute(arguments));
}

// This program is asked to trace as its caller does. It can end in many ways, some of them in code
// that it shares with the other programs here.
static void startDebugging(const CommandArguments *arguments)
{
    for (size_t i = 1; i < arguments->count; i++) {
        if (strncmp(arguments->items[i], "--qzdebug", 9) != 0)
            continue;
        host_finishOnSignals();
        trace_setApplication(NAME);
        qzdebug_setComponent(NAME);
        qzdebug_parse(arguments->items[i]);
        atexit(qzdebug_shutdown);
    }
    if (gDebugFlags != 0)
        trace_argv(static_cast<int>(arguments->count), arguments->items);
}

int main(int argc, char **argv)
{
    CommandArguments arguments = {};
    int status = 1;
    if (commandfile_expand(argc, argv, &arguments)) {
        startDebugging(&arguments);
        status = run(&arguments);
    }
    commandfile_free(&arguments);
    return status;
}
