#define MODULE "driver/option_handlers"
#include "driver/option_handlers.h"

#include <cstring>

#include "common/base/exitpath.h"
#include "common/base/stringcache.h"
#include "common/base/texts.h"
#include "common/base/vector.h"
#include "common/diagnostics/alert.h"
#include "common/trace/qzdebug.h"
#include "driver/families.h"
#include "driver/messages.h"

// The handlers that read everything from their row, and functions for all handlers.

OptionState gOptionState;

void option_emit(const OptionCall &call, const char *text)
{
    TRACE_ENTER("\"%s\"", text);
    vec_add(call.emitted, text);
}

void option_emitColumn(const OptionCall &call, const char *column)
{
    TRACE_ENTER("\"%s\"", column);
    if (column == OPTION_PASS) {
        option_emit(call, call.argument);
    } else if (column == OPTION_REFUSE) {
        alert_raiseNumber(MESSAGE_NOT_SUPPORTED, call.argument);
    } else if (column != nullptr) {
        Vector *words = cache_split(column, " ");
        vec_addAll(call.emitted, words);
        vec_destroy(words);
    }
}

void option_malformed(const char *option)
{
    TRACE_ENTER("\"%s\"", option);
    alert_raiseNumber(MESSAGE_MALFORMED_OPTION, option);
    exitpath_leave(1);
}

void option_missingArgument(const char *option)
{
    TRACE_ENTER("\"%s\"", option);
    alert_raiseNumber(MESSAGE_MISSING_ARGUMENT, option);
    // A loaded message file may give the message a kind that returns; the run ends all the same.
    exitpath_leave(1);
}

const char *option_valueOf(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    const char *equals = strchr(call.argument, '=');
    if (equals == nullptr || equals[1] == '\0')
        option_malformed(call.argument);
    return TRACE_RETURN("\"%s\"", equals + 1);
}

const char *option_argumentOf(const OptionCall &call, uint32_t *consumed)
{
    TRACE_ENTER("\"%s\"", call.argument);
    *consumed = 0;
    const char *text = call.argument + strlen(call.row->name);
    if (*text == '\0') {
        text = static_cast<const char *>(vec_elementAt(call.arguments, call.index + 1));
        if (text == nullptr)
            option_missingArgument(call.argument);
        *consumed = 1;
    }
    return TRACE_RETURN("\"%s\"", text);
}

uint32_t option_passThrough(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    option_emit(call, call.argument);
    return TRACE_RETURN("%u", 0U);
}

uint32_t option_fixed(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    if ((call.family & FAMILY_ORB) != 0)
        option_emitColumn(call, call.row->orb);
    else if ((call.family & FAMILY_ELM) != 0)
        option_emitColumn(call, call.row->elm);
    return TRACE_RETURN("%u", 0U);
}

uint32_t option_value(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    if ((call.family & FAMILY_ORB) != 0)
        option_emit(call, cache_sprintf("%s=%s", call.row->orb, option_valueOf(call)));
    else if ((call.family & FAMILY_ELM) != 0)
        option_emitColumn(call, call.row->elm);
    return TRACE_RETURN("%u", 0U);
}

// "-" for the negative form of an option that can be switched off, else "+".
static const char *signOf(const char *argument)
{
    TRACE_ENTER("\"%s\"", argument);
    const bool negative = text_hasPrefix(argument, "-mno") || text_hasPrefix(argument, "-fno");
    return TRACE_RETURN("\"%s\"", negative ? "-" : "+");
}

// Replaces a column's "%s" by the sign. It is expanded here because the compiler can check only
// literal formats.
static const char *withSign(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    const char *place = strstr(call.row->orb, "%s");
    const char *head = cache_substring(call.row->orb, static_cast<size_t>(place - call.row->orb));
    return TRACE_RETURN("\"%s\"", cache_sprintf("%s%s%s", head, signOf(call.argument), place + 2));
}

uint32_t option_sign(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    if ((call.family & FAMILY_ORB) != 0)
        option_emit(call, withSign(call));
    else if ((call.family & FAMILY_ELM) != 0)
        option_emitColumn(call, call.row->elm);
    return TRACE_RETURN("%u", 0U);
}

uint32_t option_signValue(const OptionCall &call)
{
    TRACE_ENTER("\"%s\"", call.argument);
    if ((call.family & FAMILY_ORB) != 0 && strchr(call.argument, '=') != nullptr)
        option_emit(call, cache_sprintf("%s:%s", withSign(call), option_valueOf(call)));
    else
        option_sign(call);
    return TRACE_RETURN("%u", 0U);
}
