// Writes docs/options.md to standard output: every option that may be given, with its help text and
// the options that each kind of child driver gets for it. These come from the option's own handler.
#include <cstdio>
#include <cstring>

#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "common/diagnostics/alert.h"
#include "driver/families.h"
#include "driver/option_handlers.h"
#include "driver/options.h"

static char warning[1024]; // the last message that a handler raised

static void keepWarning(const char *text)
{
    snprintf(warning, sizeof warning, "%s", text);
}

static const char *containerOf(const char *group)
{
    return strcmp(group, "LKR") == 0 ? "-Wl," : "-Wa,";
}

// The option as a user would write it; blanks separate the parts that are separate arguments.
static const char *exampleOf(const OptionRecord *row)
{
    if (row->example != nullptr)
        return row->example;
    if ((row->flags & optflag::MEMBER) != 0)
        return cache_sprintf("%s%s", containerOf(row->group), row->name);
    if ((row->flags & optflag::JOINED) != 0)
        return cache_sprintf("%s=value", row->name);
    if ((row->flags & optflag::SEPARATE) != 0)
        return cache_sprintf("%s value", row->name);
    return row->name;
}

// The text for options that handlers only remember, because they are emitted at the end of the
// command.
static const char *rememberedFor(const OptionRecord *row, OptionFamily family)
{
    if ((family & FAMILY_ORB) == 0)
        return "";
    if (strcmp(row->name, "-c") == 0)
        return "`--pass1` for C sources, `-c` for assembly sources";
    if (strcmp(row->name, "-l") == 0)
        return "the library's path, at the end of the command";
    if (strcmp(row->name, "-L") == 0)
        return "(searched for `-l`)";
    return "";
}

static void printFamily(const OptionRecord *row, const char *example, OptionFamily family)
{
    // The handler would end this program as well.
    if (((family & FAMILY_ORB) != 0 ? row->orb : row->elm) == OPTION_ANSWER) {
        printf(" (answered by qzm-cc) |");
        return;
    }
    warning[0] = '\0';
    Vector *arguments = cache_split(example, " ");
    Vector *emitted = options_handler(arguments, family, nullptr, false, nullptr);
    if (strstr(warning, "(1428)") != nullptr)
        printf(" not supported |");
    else if (vec_size(emitted) == 0)
        printf(" %s |", rememberedFor(row, family));
    else
        printf(" `%s` |", cache_join(emitted, 0, "` `"));
    vec_destroy(emitted);
    vec_destroy(arguments);
    // Anything that this option's handler remembers must not show in the next option's row.
    vec_destroy(gOptionState.libraries);
    vec_destroy(gOptionState.libraryDirectories);
    gOptionState = {};
}

static bool isDocumented(const OptionRecord *row)
{
    return row->handler != nullptr && (row->flags & optflag::HIDDEN) == 0;
}

static void printRow(const OptionRecord *row)
{
    const char *example = exampleOf(row);
    printf("| `%s` | %s |", example, row->help);
    printFamily(row, example, FAMILY_ORB18);
    printFamily(row, example, FAMILY_ELM);
    printf("\n");
}

int main()
{
    alert_setOutputHook(keepWarning);
    options_initialize(optflag::ACTIVE, 1, nullptr);
    printf(
        "# Options of qzm-cc\n\n"
        "What each option becomes for the driver that builds: `qzm` for the ORB families,\n"
        "`elm-gcc` for ELM. An empty cell means that nothing is handed on. An option that is not\n"
        "supported draws warning 1428 and is left out; an option that is not listed here is\n"
        "passed on as it is (for ORB with warning 2044).\n\n"
        "A list for the linker or the assembler is taken apart when one of its items has a row of\n"
        "its own. Each item then becomes what it would be alone, in the order of the list:\n"
        "`elm-gcc` gets `-Wa,-a=file,--warn` as `-Wa,-a=file` `-Wa,--warn`. A list without such "
        "an\n"
        "item, or with nothing but `-a...` in it, goes to `elm-gcc` whole.\n\n"
        "This page is generated from the option table: `build/release/docs/option_reference`.\n\n"
        "| Option | Meaning | ORB | ELM |\n"
        "|---|---|---|---|\n");
    for (const OptionRecord *row = options_table(); row->name != nullptr; ++row) {
        if (isDocumented(row))
            printRow(row);
    }
    return 0;
}
