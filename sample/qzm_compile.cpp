#include "sample/qzm_compile.h"

#include <cctype>
#include <cerrno>

#include "sample/files.h"
#include "sample/host_compiler.h"
#include "sample/orb_assembler.h"

static const struct {
    const char *extension;
    InputKind kind;
    int needsPreprocessing;
} EXTENSIONS[] = {
    {"c", INPUT_C, 1},          {"usb", INPUT_C, 1},      {"as", INPUT_ASSEMBLY, 0},
    {"asm", INPUT_ASSEMBLY, 0}, {"s", INPUT_ASSEMBLY, 0}, {"S", INPUT_ASSEMBLY, 1},
    {"sx", INPUT_ASSEMBLY, 1},
};

InputKind qzm_inputKind(const char *name)
{
    for (const auto &row : EXTENSIONS)
        if (strcmp(row.extension, path_extension(name)) == 0)
            return row.kind;
    return INPUT_FOR_LINKER;
}

static int wantsPreprocessing(const QzmJob *job, const char *source)
{
    for (const auto &row : EXTENSIONS)
        if (strcmp(row.extension, path_extension(source)) == 0)
            return row.needsPreprocessing || job->options->preprocessAssembly;
    return 1;
}

static const char *textOrEmpty(const char *text)
{
    return text == nullptr ? "" : text;
}

const char *qzm_objectPath(const QzmJob *job, const char *source, const char *extension,
                           int takesOutput)
{
    const char *name = path_withExtension(path_base(source), extension);
    if (takesOutput && job->options->output != nullptr) {
        name = job->options->output;
        if (*path_extension(name) == 0)
            name = path_withExtension(name, extension);
    }
    return path_join(textOrEmpty(job->options->objectDir), name);
}

static int isC90(const QzmJob *job)
{
    return job->options->standard != nullptr && strcmp(job->options->standard, "c90") == 0;
}

// The suite's own headers, and those of the C library unless "--runtime=-cinc" removed them. As
// system folders they are left out of the list of "-MM".
static void addHeaders(const QzmJob *job, Strings *command)
{
    const char *headers = path_besideProgram("include");
    if (headers == nullptr)
        return;
    if (!qzmoptions_has(&job->options->runtime, "-cinc")) {
        list_add(command, "-isystem");
        list_add(command, path_join(headers, isC90(job) ? "c90" : "c99"));
    }
    list_add(command, "-isystem");
    list_add(command, headers);
}

static void addMacros(const QzmJob *job, Strings *command)
{
    char *chip = arena_copy(job->chip->name);
    for (char *at = chip; *at != 0; at++)
        *at = static_cast<char>(toupper(static_cast<unsigned char>(*at)));
    static const char *const MACROS[] = {
        "-D__QZ", "-D__QZM", "-D__QZ__", "-D__QZM__", "-D__QZM_VERSION=2320", "-D__ORB__"};
    for (const char *macro : MACROS)
        list_add(command, macro);
    list_add(command, arena_format("-D__%s__=1", chip));
    list_add(command, arena_format("-D__%s__=1", job->chip->family));
}

static void addLanguage(const QzmJob *job, Strings *command)
{
    const char *base = job->options->strict ? "c" : "gnu";
    list_add(command, arena_format("-std=%s%s", base, isC90(job) ? "90" : "99"));
    if (job->options->strict)
        list_add(command, "-pedantic");
    if (job->options->characters != nullptr)
        list_add(command, arena_format("-f%s-char", job->options->characters));
    if (job->report->hideWarnings)
        list_add(command, "-w");
}

// The options for the preprocessor, for text that is still to be preprocessed.
static void addPreprocessor(const QzmJob *job, Strings *command)
{
    list_add(command, "-nostdinc");
    list_add(command, "-undef");
    addMacros(job, command);
    for (const char *option : job->options->preprocessor)
        list_add(command, option);
    addHeaders(job, command);
}

// The command that preprocesses, without the source.
static Strings preprocessCommand(const QzmJob *job, InputKind kind)
{
    Strings command = {};
    list_add(&command, "-E");
    list_add(&command, "-fno-diagnostics-show-caret");
    addLanguage(job, &command);
    addPreprocessor(job, &command);
    if (qzmoptions_has(&job->options->info, "defvals"))
        list_add(&command, "-dM");
    list_add(&command, "-x");
    list_add(&command, kind == INPUT_C ? "c" : "assembler-with-cpp");
    return command;
}

static void addOutput(Strings *command, const char *path)
{
    list_add(command, "-o");
    list_add(command, path);
}

// Reports a file that cannot be read; the host's compiler would give its own name.
static int checkSource(const QzmJob *job, const char *source)
{
    if (!file_exists(source))
        report_error(job->report, {}, 101, "file \"%s\" does not exist", source);
    else if (file_isDirectory(source))
        report_error(job->report, {}, 102, "\"%s\" is a directory; a file is needed", source);
    else
        return 1;
    return 0;
}

static const char *temporary(const QzmJob *job, const char *extension)
{
    const char *name = temp_name(extension);
    if (name == nullptr)
        report_error(job->report, {}, 2082, "internal error: could not create a temporary file");
    return name;
}

static int wantsDependencies(const QzmJob *job)
{
    return job->options->dependencies.count != 0 || job->options->dependencyFile != nullptr;
}

static void addDependencies(const QzmJob *job, const char *source, const char *target,
                            Strings *command)
{
    const QzmOptions *options = job->options;
    int noSystem = qzmoptions_has(&options->dependencies, "-sys");
    list_add(command, noSystem ? "-MMD" : "-MD");
    const char *file = options->dependencyFile;
    if (file == nullptr)
        file = target != nullptr ? path_withExtension(target, "d")
                                 : path_withExtension(path_base(source), "d");
    list_add(command, "-MF");
    list_add(command, file);
    list_add(command, "-MT");
    list_add(command, target);
}

int qzm_wantsOnlyDependencies(const QzmJob *job)
{
    return qzmoptions_has(&job->options->dependencies, "+stop");
}

int qzm_writeDependencies(const QzmJob *job, const char *source, const char *target)
{
    if (!checkSource(job, source))
        return 0;
    Strings command = preprocessCommand(job, qzm_inputKind(source));
    int noSystem = qzmoptions_has(&job->options->dependencies, "-sys");
    list_add(&command, noSystem ? "-MM" : "-M");
    list_add(&command, "-MT");
    list_add(&command, target);
    if (job->options->dependencyFile != nullptr) {
        list_add(&command, "-MF");
        list_add(&command, job->options->dependencyFile);
    }
    list_add(&command, source);
    return host_run(&command, job->report);
}

int qzm_preprocess(const QzmJob *job, const char *source)
{
    if (!checkSource(job, source))
        return 0;
    Strings command = preprocessCommand(job, qzm_inputKind(source));
    const char *output = job->options->output;
    if (output != nullptr)
        addOutput(&command, path_join(textOrEmpty(job->options->outputDir), output));
    list_add(&command, source);
    return host_run(&command, job->report);
}

// Preprocesses into a temporary file, or, if temporary files are to be kept, into a file beside the
// object. Null after an error.
static const char *preprocessFor(const QzmJob *job, const char *source, const char *target,
                                 const char *extension)
{
    if (!checkSource(job, source))
        return nullptr;
    const char *text = job->options->keepTemporary ? qzm_objectPath(job, source, extension, 0)
                                                   : temporary(job, extension);
    if (text == nullptr)
        return nullptr;
    Strings command = preprocessCommand(job, qzm_inputKind(source));
    if (wantsDependencies(job))
        addDependencies(job, source, target, &command);
    addOutput(&command, text);
    list_add(&command, source);
    return host_run(&command, job->report) ? text : nullptr;
}

// The host's optimization that is nearest to the last "--opt=".
static const char *optimization(const QzmJob *job)
{
    const char *level = "-O0";
    for (const char *value : job->options->optimize)
        if (strchr("123s", value[1]) != nullptr && value[0] == '+')
            level = arena_format("-O%c", value[1]);
        else if (strcmp(value, "+debug") == 0)
            level = "-Og";
    return level;
}

// The command that compiles, without the source. It also preprocesses, unless that is done already.
static Strings compileCommand(const QzmJob *job, const char *what, int isPreprocessed)
{
    static const char *const FIXED[] = {
        "-pipe",
        "-ffreestanding",
        "-fno-pic",
        "-fno-common",
        "-fno-stack-protector",
        "-fno-asynchronous-unwind-tables",
        "-fno-diagnostics-show-caret",
    };
    Strings command = {};
    list_add(&command, what);
    for (const char *option : FIXED)
        list_add(&command, option);
    list_add(&command, optimization(job));
    addLanguage(job, &command);
    if (!isPreprocessed)
        addPreprocessor(job, &command);
    for (const char *option : job->options->parser)
        list_add(&command, option);
    list_add(&command, "-x");
    list_add(&command, isPreprocessed ? "cpp-output" : "c");
    return command;
}

// Runs the host's compiler on the source; `output` is its result. Each run costs as much as all the
// rest, so preprocessing has a run of its own only if its result is to be kept.
static int runCompiler(const QzmJob *job, const char *what, const char *source, const char *target,
                       const char *output)
{
    int keeps = job->options->keepTemporary;
    const char *text = keeps ? preprocessFor(job, source, target, "i") : source;
    if (text == nullptr || !checkSource(job, text))
        return 0;
    Strings command = compileCommand(job, what, keeps);
    if (!keeps && wantsDependencies(job))
        addDependencies(job, source, target, &command);
    addOutput(&command, output);
    list_add(&command, text);
    return host_run(&command, job->report);
}

OrbModule *qzm_compile(const QzmJob *job, const char *source, const char *target)
{
    const char *object = temporary(job, "o");
    if (object == nullptr || !runCompiler(job, "-c", source, target, object))
        return nullptr;
    OrbModule *module = static_cast<OrbModule *>(arena_alloc(sizeof(OrbModule)));
    *module = {};
    module->file = module->source = source;
    module->chip = job->chip->name;
    module->isIntermediate = 1;
    Buffer file = {};
    if (file_read(object, &file) && host_readObject(&file, module))
        return module;
    report_error(job->report, {source, 0, 0}, 203, "program \"cc\" left no file of a known kind");
    return nullptr;
}

int qzm_compileToAssembly(const QzmJob *job, const char *source)
{
    const char *output = qzm_objectPath(job, source, "s", 1);
    return runCompiler(job, "-S", source, output, output);
}

static void writeListing(const QzmJob *job, const char *source, const Buffer *listing)
{
    const char *path = qzm_objectPath(job, source, "lst", 0);
    if (!file_write(path, listing))
        report_error(job->report, {}, 105, "could not write file \"%s\": %s", path,
                     strerror(errno));
}

OrbModule *qzm_assemble(const QzmJob *job, const char *source, const char *target)
{
    const char *text = source;
    if (wantsPreprocessing(job, source))
        text = preprocessFor(job, source, target, "pre");
    Buffer file = {};
    if (text == nullptr || !checkSource(job, text))
        return nullptr;
    if (!file_read(text, &file)) {
        report_error(job->report, {}, 104, "could not read file \"%s\": %s", text, strerror(errno));
        return nullptr;
    }
    if (strlen(buffer_text(&file)) != file.count) {
        report_error(job->report, {}, 133, "file \"%s\" is damaged: %s", source,
                     "it holds a NUL character");
        return nullptr;
    }
    Buffer listing = {};
    int wanted = job->options->assemblyListing;
    OrbModule *module = orbasm_assemble(buffer_text(&file), source, job->chip->name, job->report,
                                        wanted ? &listing : nullptr);
    if (module != nullptr && wanted)
        writeListing(job, source, &listing);
    return module;
}
