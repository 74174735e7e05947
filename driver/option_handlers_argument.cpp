#define MODULE "driver/option_handlers_argument"
#include "driver/option_handlers.h"

#include <cstring>

#include "common/base/stringcache.h"
#include "common/base/texts.h"
#include "common/base/vector.h"
#include "common/diagnostics/alert.h"
#include "common/text/osdep_path.h"
#include "common/trace/qzdebug.h"
#include "driver/families.h"
#include "driver/messages.h"

// The handlers of options whose argument may be the next one on the command line.

uint32_t option_joined(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    uint32_t consumed = 0;
    if (call.family != FAMILY_NONE) {
        const char *text = option_argumentOf(call, &consumed);
        option_emit(call,
                    consumed == 0 ? call.argument : cache_sprintf("%s%s", call.row->name, text));
    }
    return TRACE_RETURN("%u", consumed);
}

// The legacy driver takes the directory and the name of its output as separate options.
static void emitOrbOutput(const OptionCall &call, const char *file)
{
    TRACE_ENTER("\"%s\"", file);
    const char *directory = cache_dirPart(file);
    option_emit(call, cache_sprintf("-o%s", osdep_baseName(file)));
    if (directory != nullptr) {
        if (*directory == '\0')
            directory = "/";
        option_emit(call, cache_sprintf("--objdir=%s", directory));
        option_emit(call, cache_sprintf("--outdir=%s", directory));
    }
}

uint32_t option_output(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    uint32_t consumed = 0;
    if ((call.family & FAMILY_ORB) != 0)
        emitOrbOutput(call, option_argumentOf(call, &consumed));
    else
        consumed = option_joined(call);
    return TRACE_RETURN("%u", consumed);
}

// Adds a name to a list, which is created for its first name.
static void remember(Vector **list, const char *name)
{
    TRACE_ENTER("\"%s\"", name);
    if (*list == nullptr)
        *list = vec_new(MODULE, __LINE__);
    vec_add(*list, cache_string(name));
}

uint32_t option_library(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    uint32_t consumed = 0;
    if ((call.family & FAMILY_ORB) != 0)
        remember(&gOptionState.libraries, option_argumentOf(call, &consumed));
    else
        consumed = option_joined(call);
    return TRACE_RETURN("%u", consumed);
}

uint32_t option_libraryDir(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    uint32_t consumed = 0;
    if ((call.family & FAMILY_ORB) != 0)
        remember(&gOptionState.libraryDirectories, option_argumentOf(call, &consumed));
    else
        consumed = option_joined(call);
    return TRACE_RETURN("%u", consumed);
}

const char *option_separateValue(const OptionCall &call, uint32_t *consumed)
{
    TRACE_ENTER("\"%s\"", call.argument);
    const char *text = option_argumentOf(call, consumed);
    if (*consumed == 0 && *text == '=')
        ++text;
    return TRACE_RETURN("\"%s\"", text);
}

// Refuses an option together with the value after it, if there is one.
static uint32_t refuseWithValue(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    option_emitColumn(call, OPTION_REFUSE);
    const bool alone = strcmp(call.argument, call.row->name) == 0;
    const bool follows = call.index + 1 < vec_size(call.arguments);
    return TRACE_RETURN("%u", alone && follows ? 1U : 0U);
}

uint32_t option_parser(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    uint32_t consumed = 0;
    if ((call.family & FAMILY_ORB) != 0)
        option_emit(call, cache_sprintf("-R%s", option_separateValue(call, &consumed)));
    else if ((call.family & FAMILY_ELM) != 0)
        consumed = refuseWithValue(call);
    return TRACE_RETURN("%u", consumed);
}

uint32_t option_superDriver(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    uint32_t consumed = 0;
    if ((call.family & FAMILY_ORB) != 0) {
        const char *value = option_separateValue(call, &consumed);
        gOptionState.errorFormatGiven |= text_hasPrefix(value, "--errformat");
        gOptionState.warningFormatGiven |= text_hasPrefix(value, "--warnformat");
        gOptionState.messageFormatGiven |= text_hasPrefix(value, "--msgformat");
        option_emit(call, cache_string(value));
    } else if ((call.family & FAMILY_ELM) != 0) {
        consumed = refuseWithValue(call);
    }
    return TRACE_RETURN("%u", consumed);
}

uint32_t option_passWithValue(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    const char *value = static_cast<const char *>(vec_elementAt(call.arguments, call.index + 1));
    if (value == nullptr)
        option_missingArgument(call.argument);
    option_emit(call, call.argument);
    option_emit(call, value);
    return TRACE_RETURN("%u", 1U);
}

uint32_t option_language(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    uint32_t consumed = 0;
    const bool alone = strcmp(call.argument, call.row->name) == 0;
    if ((call.family & FAMILY_ORB) != 0) {
        const char *language = option_argumentOf(call, &consumed);
        if (strcmp(language, "assembler-with-cpp") == 0)
            option_emit(call, cache_string("-P"));
        else if (strcmp(language, "assembler") != 0 && strcmp(language, "c") != 0)
            alert_raiseNumber(MESSAGE_NOT_SUPPORTED, call.row->name);
    } else if ((call.family & FAMILY_ELM) != 0) {
        if (alone)
            consumed = option_passWithValue(call);
        else
            option_emit(call, call.argument);
    }
    return TRACE_RETURN("%u", consumed);
}

// Whether the option takes a value of its own: "-MF", and the related options that the table has
// only as "-M".
static bool takesDependencyValue(const char *argument)
{
    TRACE_ENTER("\"%s\"", argument);
    const bool takes = strcmp(argument, "-MF") == 0 || strcmp(argument, "-MT") == 0 ||
                       strcmp(argument, "-MQ") == 0;
    return TRACE_RETURN("%d", takes);
}

// The legacy driver knows a dependency file, but neither targets nor phony targets. Makefiles and
// build systems ask for those on every compile, so they are refused with a warning that does not
// end the run.
static uint32_t orbDependencies(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    uint32_t consumed = 0;
    const bool fileOption = text_hasPrefix(call.argument, "-MF");
    if (fileOption) {
        // "-MFfile" matches the row "-M", so the file is the text after the first three characters.
        const char *file = call.argument + 3;
        if (*file == '\0')
            file = option_argumentOf(call, &consumed);
        option_emit(call, cache_string("--dep=+gcc"));
        option_emit(call, cache_sprintf("--depfile=%s", file));
    } else if (strcmp(call.argument, call.row->name) == 0) {
        option_emit(call, cache_string(call.row->orb));
    } else {
        option_emitColumn(call, OPTION_REFUSE);
        if (takesDependencyValue(call.argument) && call.index + 1 < vec_size(call.arguments))
            consumed = 1;
    }
    return TRACE_RETURN("%u", consumed);
}

uint32_t option_dependencies(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    uint32_t consumed = 0;
    if ((call.family & FAMILY_ORB) != 0)
        consumed = orbDependencies(call);
    else if ((call.family & FAMILY_ELM) != 0 && takesDependencyValue(call.argument))
        consumed = option_passWithValue(call);
    else
        option_fixed(call);
    return TRACE_RETURN("%u", consumed);
}
