#define MODULE "driver/option_handlers_lists"
#include "driver/option_handlers.h"

#include <cstring>

#include "common/base/stringcache.h"
#include "common/base/texts.h"
#include "common/base/vector.h"
#include "common/trace/qzdebug.h"
#include "driver/families.h"

// The handlers of options for one of the child driver's tools: lists ("-Wl,a,b"), their members,
// and the forms that pass on one argument ("-Xlinker a").

// The memory summary's file when none is named.
static const char defaultSummary[] = "memoryfile.xml";

// The file of an option written "NAME=file", or "NAME file": a next argument that begins with "-"
// is another option and is left alone; the result is then `missing`.
static const char *fileOf(const OptionCall &call, const char *missing, uint32_t *consumed)
{
    TRACE_ENTER("\"%s\"", call.argument);
    const char *equals = strchr(call.argument, '=');
    *consumed = 0;
    if (equals != nullptr)
        return TRACE_RETURN("\"%s\"", equals + 1);
    const char *file = option_argumentOf(call, consumed);
    if (*file == '-') {
        *consumed = 0;
        file = missing;
    }
    return TRACE_RETURN("\"%s\"", file);
}

uint32_t option_memorySummary(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    uint32_t consumed = 0;
    if (call.family != FAMILY_NONE) {
        const char *file = fileOf(call, defaultSummary, &consumed);
        if (*file == '\0')
            option_malformed(call.argument);
        if ((call.family & FAMILY_ORB) != 0) {
            option_emit(call, cache_string("--summary=+xml"));
            option_emit(call, cache_sprintf("--summarydir=%s", file));
        } else {
            option_emit(call, cache_sprintf("-Wl,--memorysummary,%s", file));
        }
    }
    return TRACE_RETURN("%u", consumed);
}

uint32_t option_map(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    uint32_t consumed = 0;
    if (call.family != FAMILY_NONE) {
        const char *file = fileOf(call, "", &consumed);
        if ((call.family & FAMILY_ORB) != 0)
            option_emit(call, cache_sprintf("-M%s", file));
        else
            option_emit(call, cache_sprintf("-Wl,-Map=%s", file));
    }
    return TRACE_RETURN("%u", consumed);
}

uint32_t option_dataInit(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    if ((call.family & FAMILY_ORB) != 0) {
        const char sign = text_hasPrefix(call.argument, "--no") ? '-' : '+';
        option_emit(call, cache_sprintf("--runtime=%cclear", sign));
        option_emit(call, cache_sprintf("--runtime=%cinit", sign));
    } else if ((call.family & FAMILY_ELM) != 0) {
        option_emit(call, cache_sprintf("-Wl,%s", call.argument));
    }
    return TRACE_RETURN("%u", 0U);
}

// Passes a value of "-Xlinker" to the legacy driver's linker.
static void emitLinkerValue(const OptionCall &call, const char *value)
{
    TRACE_ENTER("\"%s\"", value);
    const char *equals = strchr(value, '=');
    if (text_hasPrefix(value, "-Map")) {
        option_emit(call, cache_sprintf("-M%s", equals == nullptr ? "" : equals + 1));
    } else if (text_hasPrefix(value, "--memorysummary")) {
        const bool named = equals != nullptr && equals[1] != '\0';
        option_emit(call, cache_string("--summary=+xml"));
        option_emit(call, cache_sprintf("--summarydir=%s", named ? equals + 1 : defaultSummary));
    } else {
        option_emit(call, cache_sprintf("-L%s", value));
    }
}

// Whether the row is the form that takes one separate argument instead of a list.
static bool isSeparateForm(const OptionCall &call)
{
    return text_hasPrefix(call.row->name, "-X");
}

// On the ELM path a whole list is passed on unchanged, a single item left over from one is passed
// on after the list's own name, and the separate form is passed on with its value.
static uint32_t passList(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    uint32_t consumed = 0;
    if (call.container != nullptr)
        option_emit(call, cache_sprintf("%s,%s", call.row->name, call.argument));
    else if (isSeparateForm(call) && strcmp(call.argument, call.row->name) == 0)
        consumed = option_passWithValue(call);
    else
        option_emit(call, call.argument);
    return TRACE_RETURN("%u", consumed);
}

uint32_t option_linker(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    uint32_t consumed = 0;
    if ((call.family & FAMILY_ELM) != 0)
        consumed = passList(call);
    else if ((call.family & FAMILY_ORB) != 0 && isSeparateForm(call))
        emitLinkerValue(call, option_separateValue(call, &consumed));
    else if ((call.family & FAMILY_ORB) != 0 && call.container != nullptr)
        option_emit(call, cache_sprintf("-L%s", call.argument));
    return TRACE_RETURN("%u", consumed);
}

// Passes a value of "-Xassembler" to the legacy driver's assembler.
static void emitAssemblerValue(const OptionCall &call, const char *value)
{
    TRACE_ENTER("\"%s\"", value);
    const bool listing = strcmp(value, "-a") == 0;
    option_emit(call, listing ? cache_string("--asmlist") : cache_sprintf("-A%s", value));
}

uint32_t option_assembler(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    uint32_t consumed = 0;
    if ((call.family & FAMILY_ELM) != 0)
        consumed = passList(call);
    else if ((call.family & FAMILY_ORB) != 0 && isSeparateForm(call))
        emitAssemblerValue(call, option_separateValue(call, &consumed));
    else if ((call.family & FAMILY_ORB) != 0 && call.container != nullptr)
        option_emit(call, cache_sprintf("-A%s", call.argument));
    return TRACE_RETURN("%u", consumed);
}

// The preprocessor's list has no members of its own, so it is not a container and is split here.
static void emitPreprocessorItems(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    Vector *items = cache_split(call.argument + strlen(call.row->name), ",");
    for (const char *item : vec_each<const char>(items))
        option_emit(call, cache_sprintf("-Z%s", item));
    vec_destroy(items);
}

uint32_t option_preprocessor(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    uint32_t consumed = 0;
    if ((call.family & FAMILY_ELM) != 0)
        consumed = passList(call);
    else if ((call.family & FAMILY_ORB) != 0 && isSeparateForm(call))
        option_emit(call, cache_sprintf("-Z%s", option_separateValue(call, &consumed)));
    else if ((call.family & FAMILY_ORB) != 0)
        emitPreprocessorItems(call);
    return TRACE_RETURN("%u", consumed);
}
