#define MODULE "driver/options"
#include "driver/options.h"

#include <cstdio>
#include <cstring>

#include "common/base/hash.h"
#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "common/diagnostics/alert.h"
#include "common/trace/qzdebug.h"
#include "driver/messages.h"
#include "driver/option_handlers.h"

namespace {
// Room for the longest key of the index; a longer text can match no row.
enum { KEY_MAX = 64, INDEX_BUCKETS = 127, SEPARATORS_MAX = 16 };
} // namespace

static HashTable *s_index;                // key -> row
static char s_separators[SEPARATORS_MAX]; // "=" and the separators of all containers, each once

// The separators of a container's list: the text after the colon in its group. A group without them
// means a malformed table.
static const char *groupSeparators(const char *group)
{
    TRACE_ENTER("\"%s\"", group);
    const char *colon = group == nullptr ? nullptr : strchr(group, ':');
    if (colon == nullptr || colon[1] == '\0') {
        TRACE("malformed option: %s\n", group == nullptr ? "unknown" : group);
        option_malformed(group == nullptr ? "unknown" : group);
    }
    return TRACE_RETURN("\"%s\"", colon + 1);
}

static void addSeparators(const char *characters)
{
    TRACE_ENTER("\"%s\"", characters);
    for (; *characters != '\0'; ++characters) {
        const size_t length = strlen(s_separators);
        if (strchr(s_separators, *characters) == nullptr && length + 1 < SEPARATORS_MAX)
            s_separators[length] = *characters;
    }
}

static void indexRow(const OptionRecord *row)
{
    TRACE_ENTER("\"%s\"", row->name);
    const char *key = row->name;
    if ((row->flags & optflag::MEMBER) != 0)
        key = cache_sprintf("<%s>%s", row->group, row->name);
    else if ((row->flags & optflag::CONTAINER) != 0)
        addSeparators(groupSeparators(row->group));
    if ((row->flags & optflag::EITHER_CASE) != 0) {
        hash_insert_func(s_index, cache_lower(key), row, MODULE, __LINE__);
        hash_insert_func(s_index, cache_upper(key), row, MODULE, __LINE__);
    } else {
        hash_insert_func(s_index, key, row, MODULE, __LINE__);
    }
}

static void applyOverride(OptionRecord *row, const OptionRecord *overrides)
{
    TRACE_ENTER("\"%s\"", row->name);
    for (; overrides != nullptr && overrides->name != nullptr; ++overrides) {
        if (strcmp(overrides->name, row->name) == 0) {
            *row = *overrides;
            break;
        }
    }
}

void options_initialize(uint32_t mask, int keepHandlers, const OptionRecord *overrides)
{
    TRACE_ENTER("mask=0x%X, keepHandlers=%d", mask, keepHandlers);
    if (s_index != nullptr)
        return;
    s_index = hash_new_func(INDEX_BUCKETS, hash_string, hash_stringCompare, MODULE, __LINE__);
    s_separators[0] = '=';
    for (OptionRecord *row = options_table(); row->name != nullptr; ++row) {
        applyOverride(row, overrides);
        if ((row->flags & mask) == 0) {
            row->handler = nullptr;
            continue;
        }
        indexRow(row);
        if (!keepHandlers && (row->flags & optflag::OWN) == 0)
            row->handler = option_passThrough;
    }
}

// Looks up the first `length` characters of `key`, in the group's angle brackets when there is one.
static const OptionRecord *lookupExact(const char *key, size_t length, const char *group)
{
    TRACE_ENTER("key=\"%s\", length=%zu, group=\"%s\"", key, length, group);
    char text[KEY_MAX];
    const OptionRecord *row = nullptr;
    if (length + (group == nullptr ? 0 : strlen(group) + 2) < sizeof text) {
        const int start = group == nullptr ? 0 : snprintf(text, sizeof text, "<%s>", group);
        memcpy(text + start, key, length);
        text[static_cast<size_t>(start) + length] = '\0';
        row = static_cast<const OptionRecord *>(hash_get(s_index, text));
    }
    return TRACE_RETURN("%p", row);
}

const OptionRecord *option_lookup(const char *key, const char *group)
{
    TRACE_ENTER("key=\"%s\", group=\"%s\"", key, group);
    const size_t length = strlen(key);
    const OptionRecord *row = lookupExact(key, length, group);
    if (row == nullptr && length > 2) {
        const size_t cut = strcspn(key, s_separators);
        if (cut != 0 && cut != length)
            row = lookupExact(key, cut, group);
        if (row == nullptr)
            row = lookupExact(key, 2, group);
    }
    return TRACE_RETURN("%p", row);
}

namespace {
// One walk over a list of arguments, at top level or inside a container.
struct Walk {
    Vector *arguments;
    OptionFamily family;
    const OptionRecord *container; // null at top level
    const char *group;             // the container's group name, or null
    OptionFallback fallback;
    Vector *emitted;
    bool matched;  // set when an argument matched a row
    uint32_t kept; // items of a list for elm-gcc that gave nothing and were emitted unchanged
};
} // namespace

static void walkArguments(Walk *walk);

static uint32_t callHandler(const Walk *walk, const OptionRecord *row, const char *argument,
                            uint32_t index)
{
    TRACE_ENTER("\"%s\"", argument);
    const OptionCall call = {row,           walk->container, walk->family, argument,
                             walk->emitted, walk->arguments, index};
    return TRACE_RETURN("%u", row->handler(call));
}

// Splits the list after a container's name and walks it. The container's own handler gets the whole
// argument when the walk emits nothing, or only kept items, and on the ELM path also when no item
// matched.
static uint32_t handleContainer(Walk *outer, const OptionRecord *row, const char *argument,
                                uint32_t index)
{
    TRACE_ENTER("\"%s\"", argument);
    const char *list = argument + strlen(row->name);
    Vector *items = cache_split(*list == '\0' ? list : list + 1, groupSeparators(row->group));
    Walk inner = {items, outer->family, row, nullptr, nullptr, nullptr, false, 0};
    inner.emitted = vec_new(MODULE, __LINE__);
    walkArguments(&inner);

    uint32_t consumed = 0;
    const bool whole = (outer->family & FAMILY_ELM) != 0 && !inner.matched;
    if (whole || vec_size(inner.emitted) == inner.kept)
        consumed = callHandler(outer, row, argument, index);
    else
        vec_addAll(outer->emitted, inner.emitted);
    vec_destroy(inner.emitted);
    vec_destroy(items);
    return TRACE_RETURN("%u", consumed);
}

// Deals with an argument that matches no row: a container's handler gets its item, at top level the
// argument is passed on.
static void handleUnmatched(const Walk *walk, const char *argument, uint32_t index)
{
    TRACE_ENTER("\"%s\"", argument);
    if (walk->fallback != nullptr)
        walk->fallback(argument, walk->family);
    if (walk->container != nullptr) {
        callHandler(walk, walk->container, argument, index);
    } else {
        if ((walk->family & FAMILY_ORB) != 0 && *argument == '-')
            alert_raiseNumber(MESSAGE_UNKNOWN_OPTION, argument);
        vec_add(walk->emitted, argument);
    }
}

// Calls the handler of a plain row. An item for which the ELM column emits nothing is left to the
// container's handler, like an unmatched one; otherwise it would be lost when the list is taken
// apart.
static uint32_t handleMatched(Walk *walk, const OptionRecord *row, const char *argument,
                              uint32_t index)
{
    TRACE_ENTER("\"%s\"", argument);
    const uint32_t before = vec_size(walk->emitted);
    const uint32_t consumed = callHandler(walk, row, argument, index);
    if (walk->container != nullptr && (walk->family & FAMILY_ELM) != 0 &&
        vec_size(walk->emitted) == before) {
        callHandler(walk, walk->container, argument, index);
        walk->kept++;
    }
    return TRACE_RETURN("%u", consumed);
}

// By index: a handler may look at, and consume, the argument after its own.
static void walkArguments(Walk *walk)
{
    TRACE_ENTER("%u arguments", vec_size(walk->arguments));
    if (walk->container != nullptr) {
        const char *group = walk->container->group;
        const char *end = groupSeparators(group) - 1;
        walk->group = cache_substring(group, static_cast<size_t>(end - group));
    }
    const uint32_t count = vec_size(walk->arguments);
    for (uint32_t index = 0; index < count; ++index) {
        const char *argument = static_cast<const char *>(vec_elementAt(walk->arguments, index));
        const OptionRecord *row = option_lookup(argument, walk->group);
        if (row == nullptr || row->handler == nullptr) {
            handleUnmatched(walk, argument, index);
            continue;
        }
        walk->matched = true;
        if (row->seen != nullptr)
            gOptionState.*row->seen = true;
        index += (row->flags & optflag::CONTAINER) != 0
                     ? handleContainer(walk, row, argument, index)
                     : handleMatched(walk, row, argument, index);
    }
}

Vector *options_handler(Vector *arguments, OptionFamily family, const OptionRecord *container,
                        bool topLevel, OptionFallback fallback)
{
    TRACE_ENTER("family=%u, topLevel=%d", static_cast<unsigned>(family), topLevel);
    Walk walk = {arguments, family, container, nullptr, fallback, nullptr, false, 0};
    walk.emitted = vec_new(MODULE, __LINE__);
    walkArguments(&walk);
    if (topLevel)
        options_appendFinal(walk.emitted, family);
    return TRACE_RETURN("%p", walk.emitted);
}
