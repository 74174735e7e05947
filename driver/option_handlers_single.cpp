#define MODULE "driver/option_handlers_single"
#include "driver/option_handlers.h"

#include <cstring>

#include "common/base/stringcache.h"
#include "common/base/texts.h"
#include "common/diagnostics/alert.h"
#include "common/diagnostics/qzdebug_options.h"
#include "common/os/osdep_temp.h"
#include "common/trace/qzdebug.h"
#include "driver/families.h"
#include "driver/messages.h"

// The handlers for a single option (or two spellings of one).

// Emits the debug option for a child in place of the user's, which is for this program.
static void emitChildDebugOption(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    const char *option = qzdebug_childOption(DBC_QZM, "driver");
    if (option != nullptr)
        option_emit(call, option);
}

uint32_t option_special(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    if ((call.family & FAMILY_ORB) != 0) {
        if (text_hasPrefix(call.argument, "--qzdebug")) {
            emitChildDebugOption(call);
        } else if (text_hasPrefix(call.argument, "--nodel")) {
            osdep_keepTempFiles(1);
            option_emit(call, call.argument);
        } else if (text_hasPrefix(call.argument, "--pragmaconfig")) {
            option_emit(call, call.argument);
        }
    }
    return TRACE_RETURN("%u", 0U);
}

uint32_t option_verbose(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    ++gOptionState.verbosity;
    return TRACE_RETURN("%u", option_fixed(call));
}

uint32_t option_device(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    if (call.family != FAMILY_NONE) {
        const char *device = cache_lower(option_valueOf(call));
        if ((call.family & FAMILY_ORB) != 0) {
            const size_t skip = text_hasPrefix(device, "orb") ? 3 : 0;
            option_emit(call, cache_sprintf("--chip=%s", device + skip));
        } else {
            option_emit(call, cache_sprintf("-mmcu=%s", device));
            gOptionState.deviceOption = cache_sprintf("-mdevice=%s", device);
        }
    }
    return TRACE_RETURN("%u", 0U);
}

uint32_t option_instructionSet(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    if ((call.family & FAMILY_ORB10) != 0)
        option_emitColumn(call, OPTION_REFUSE);
    else
        option_value(call);
    return TRACE_RETURN("%u", 0U);
}

uint32_t option_strict(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    if ((call.family & FAMILY_ORB) == 0 || !gOptionState.strictEmitted)
        option_fixed(call);
    gOptionState.strictEmitted = true;
    return TRACE_RETURN("%u", 0U);
}

// The language standards by name, and whether each is C90 (the others are C99).
static const struct {
    const char *name;
    bool c90;
} standards[] = {
    {"c99", false}, {"c9x", false}, {"iso9899:1999", false}, {"iso9899:199x", false},
    {"c90", true},  {"c89", true},  {"iso9899:1990", true},  {"iso9899:199409", true},
};

// Whether a standard is C90; an unknown one is reported and treated as C99.
static bool isC90(const char *name)
{
    TRACE_ENTER("\"%s\"", name);
    for (const auto &standard : standards) {
        if (strcmp(standard.name, name) == 0)
            return TRACE_RETURN("%d", standard.c90);
    }
    alert_raiseNumber(MESSAGE_UNKNOWN_STANDARD, name);
    return TRACE_RETURN("%d", false);
}

uint32_t option_standard(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    if ((call.family & FAMILY_ORB) == 0)
        return TRACE_RETURN("%u", option_fixed(call));
    const char *equals = strchr(call.argument, '=');
    if (strcmp(call.row->name, "-ansi") == 0)
        gOptionState.c90 = true;
    else if (equals == nullptr)
        option_malformed(call.argument);
    else
        gOptionState.c90 = isC90(equals + 1);
    gOptionState.standardGiven = true;
    option_emit(call, cache_string(gOptionState.c90 ? "--std=c90" : "--std=c99"));
    return TRACE_RETURN("%u", 0U);
}

uint32_t option_extension(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    if (call.family == FAMILY_NONE)
        return TRACE_RETURN("%u", 0U);
    const char *option = call.argument;
    const char *extension = "cci";
    if (strcmp(call.row->name, "-mcci") == 0) {
        alert_raiseNumber(MESSAGE_DEPRECATED_CCI);
        option = cache_string("-mext=cci");
    } else {
        extension = option_valueOf(call);
    }
    if (strcmp(extension, "qzm") == 0)
        return TRACE_RETURN("%u", 0U);
    if (strcmp(extension, "iar") == 0) {
        alert_raiseNumber(MESSAGE_UNKNOWN_EXTENSION, extension);
        return TRACE_RETURN("%u", 0U);
    }
    if (strcmp(extension, "cci") != 0)
        alert_raiseNumber(MESSAGE_UNKNOWN_OPTION, option);
    option_emit(call,
                (call.family & FAMILY_ORB) != 0 ? cache_sprintf("--ext=%s", extension) : option);
    return TRACE_RETURN("%u", 0U);
}

// "-mreserve=MEMORY@LOW:HIGH", MEMORY being ram or rom: LOW ends at the first colon, HIGH begins
// after the last.
static void emitReserved(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    const char *value = option_valueOf(call);
    const bool known = text_hasPrefix(value, "ram@") || text_hasPrefix(value, "rom@");
    const char *low = value + strlen("ram@");
    const char *lowEnd = known ? strchr(low, ':') : nullptr;
    if (lowEnd == nullptr)
        option_malformed(call.argument);
    const char *high = strrchr(low, ':') + 1;
    if (lowEnd == low || *high == '\0')
        option_malformed(call.argument);
    option_emit(call, cache_sprintf("--%s=-%s-%s", cache_substring(value, 3),
                                    cache_substring(low, static_cast<size_t>(lowEnd - low)), high));
}

uint32_t option_reserve(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    if ((call.family & FAMILY_ORB) != 0)
        emitReserved(call);
    else
        option_fixed(call);
    return TRACE_RETURN("%u", 0U);
}
