#include "sample/qzm_options.h"

namespace {
enum Form {
    WHOLE, // the argument is exactly the name
    FRONT, // the argument begins with the name; the rest is its value, which must not be empty
    MAYBE, // the same, but the value may be empty
};

using Flag = int QzmOptions::*;
using Text = const char *QzmOptions::*;
using Texts = Strings QzmOptions::*;

// One option. At most one of the three places is set: the option stores there that it was seen, its
// value, or its value after those of earlier ones. An option without a place has no effect here.
struct Row {
    Form form;
    const char *name;
    Flag flag;
    Text text;
    Texts texts;
    const char *values; // the values allowed, between commas; null: any
    int keepsName;      // the value is the whole argument, name and all
};
} // namespace

static constexpr Row flag(const char *name, Flag place)
{
    return {WHOLE, name, place, nullptr, nullptr, nullptr, 0};
}

static constexpr Row value(const char *name, Text place, const char *values = nullptr)
{
    return {FRONT, name, nullptr, place, nullptr, values, 0};
}

static constexpr Row items(const char *name, Texts place, const char *values = nullptr)
{
    return {FRONT, name, nullptr, nullptr, place, values, 0};
}

static constexpr Row whole(const char *name, Texts place)
{
    return {FRONT, name, nullptr, nullptr, place, nullptr, 1};
}

static constexpr Row without(Form form, const char *name, const char *values = nullptr)
{
    return {form, name, nullptr, nullptr, nullptr, values, 0};
}

static constexpr Row ROWS[] = {
    // what to do
    flag("--ver", &QzmOptions::showVersion),
    flag("--pre", &QzmOptions::preprocess),
    flag("-c", &QzmOptions::compileOnly),
    flag("--pass1", &QzmOptions::pass1),
    flag("-S", &QzmOptions::assemblyOnly),
    flag("--noexec", &QzmOptions::noExecute),
    flag("-v", &QzmOptions::verbose),
    flag("--nodel", &QzmOptions::keepTemporary),
    items("--info=", &QzmOptions::info, ",defvals,builtins,"),
    without(WHOLE, "--qzmcc"),
    without(WHOLE, "-q"),
    // files
    value("-o", &QzmOptions::output),
    value("--objdir=", &QzmOptions::objectDir),
    value("--outdir=", &QzmOptions::outputDir),
    flag("-M", &QzmOptions::wantsMap),
    value("-M", &QzmOptions::mapFile),
    value("--summarydir=", &QzmOptions::summaryFile),
    items("--summary=", &QzmOptions::summary),
    value("--depfile=", &QzmOptions::dependencyFile),
    items("--dep=", &QzmOptions::dependencies),
    without(FRONT, "--metadata="),
    // preprocessor and parser
    whole("-D", &QzmOptions::preprocessor),
    whole("-U", &QzmOptions::preprocessor),
    whole("-I", &QzmOptions::preprocessor),
    items("-Z", &QzmOptions::preprocessor),
    items("-R", &QzmOptions::parser),
    value("--std=", &QzmOptions::standard, ",c90,c99,"),
    value("--char=", &QzmOptions::characters, ",signed,unsigned,"),
    flag("--strict", &QzmOptions::strict),
    without(FRONT, "--ext="),
    without(FRONT, "--double=", ",24,32,"),
    without(FRONT, "--float=", ",24,32,"),
    // assembler and linker
    flag("-P", &QzmOptions::preprocessAssembly),
    flag("--asmlist", &QzmOptions::assemblyListing),
    without(FRONT, "-A"),
    without(FRONT, "-L"),
    items("--runtime=", &QzmOptions::runtime),
    items("--output=", &QzmOptions::outputFormats),
    value("--codeoffset=", &QzmOptions::codeOffset),
    without(MAYBE, "--fill="),
    without(FRONT, "--callgraph="),
    without(FRONT, "--checksum="),
    without(FRONT, "--serial="),
    // the device and the code for it
    value("--chip=", &QzmOptions::chip),
    items("--opt=", &QzmOptions::optimize, ",none,+1,+2,+3,+s,+debug,+local,+asmfile,"),
    without(FRONT, "--isa="),
    without(FRONT, "--dfp="),
    without(FRONT, "--rom="),
    without(FRONT, "--ram="),
    without(FRONT, "--emi="),
    without(FRONT, "--cp="),
    without(FRONT, "--stack="),
    without(FRONT, "--errata="),
    without(FRONT, "--codecov="),
    without(FRONT, "--addrqual="),
    without(FRONT, "--debugger="),
    without(FRONT, "--undefints="),
    without(WHOLE, "--maxiorb"),
    without(WHOLE, "--shroud"),
    without(WHOLE, "--mafrlcsj"),
    // messages
    value("--msgdisable=", &QzmOptions::hidden),
    value("--warn=", &QzmOptions::warningLevel),
    value("--errors=", &QzmOptions::errorLimit),
    // the developers' options
    without(MAYBE, "--qzdebug"),
    without(MAYBE, "--pragmaconfig"),
};

// The options of the message formats; a pointer to member cannot name one element of an array.
static const struct {
    const char *name;
    Severity severity;
} FORMATS[] = {
    {"--errformat=", SEVERITY_ERROR},
    {"--warnformat=", SEVERITY_WARNING},
    {"--msgformat=", SEVERITY_ADVISORY},
};

static int begins(const char *text, const char *front)
{
    return strncmp(text, front, strlen(front)) == 0;
}

static int matches(const Row *row, const char *argument)
{
    return row->form == WHOLE ? strcmp(argument, row->name) == 0 : begins(argument, row->name);
}

static int isAllowed(const Row *row, const char *text)
{
    return row->values == nullptr || (strchr(text, ',') == nullptr &&
                                      strstr(row->values, arena_format(",%s,", text)) != nullptr);
}

static void take(const Row *row, const char *argument, QzmOptions *options, Report *report)
{
    const char *rest = argument + strlen(row->name);
    if (row->form == FRONT && *rest == 0) {
        report_error(report, {}, 902, "option \"%s\" needs an argument", argument);
        return;
    }
    if (row->form != WHOLE && !isAllowed(row, rest)) {
        report_error(report, {}, 1196, "value \"%s\" of option \"%s\" was not recognized", rest,
                     row->name);
        return;
    }
    if (row->flag != nullptr)
        (options->*row->flag)++;
    if (row->text != nullptr)
        options->*row->text = rest;
    // The preprocessor's own words must not be taken for the host driver's.
    if (row->texts == &QzmOptions::preprocessor && !row->keepsName)
        list_add(&options->preprocessor, "-Xpreprocessor");
    if (row->texts != nullptr)
        list_add(&(options->*row->texts), row->keepsName ? argument : rest);
}

static void parseOption(const char *argument, QzmOptions *options, Report *report)
{
    for (const auto &format : FORMATS)
        if (begins(argument, format.name)) {
            options->formats[format.severity] = argument + strlen(format.name);
            return;
        }
    for (const Row &row : ROWS)
        if (matches(&row, argument)) {
            take(&row, argument, options, report);
            return;
        }
    report_error(report, {}, 912, "option \"%s\" is not known to this program", argument);
}

int qzmoptions_parse(const CommandArguments *arguments, QzmOptions *options, Report *report)
{
    for (size_t i = 1; i < arguments->count; i++) {
        const char *argument = arguments->items[i];
        if (argument[0] == '-' && argument[1] != 0)
            parseOption(argument, options, report);
        else if (*argument != 0)
            list_add(&options->inputs, argument);
    }
    return report->errors == 0;
}

int qzmoptions_has(const Strings *list, const char *item)
{
    size_t length = strlen(item);
    for (const char *text : *list)
        for (const char *at = text; at != nullptr; at = strchr(at, ',')) {
            at += *at == ',';
            if (strncmp(at, item, length) == 0 && (at[length] == 0 || at[length] == ','))
                return 1;
        }
    return 0;
}
