#define MODULE "common/qzdebug"
#include "common/diagnostics/qzdebug_options.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/base/exitpath.h"
#include "common/base/hash.h"
#include "common/base/skiplist.h"
#include "common/base/stringcache.h"
#include "common/base/tally_table.h"
#include "common/base/vector.h"
#include "common/diagnostics/alert.h"
#include "common/diagnostics/qzdebug_internal.h"
#include "common/os/osdep_file.h"
#include "common/os/osdep_host.h"
#include "common/os/osdep_process.h"
#include "common/trace/qzdebug.h"

static constexpr uint32_t BUCKETS = 13;
static constexpr uint32_t TOP_CALLEES = 1; // the least: the top list is not used
static constexpr uint32_t MESSAGE_NOT_OPENED = 141;
static const char DEFAULT_PACKAGE[] = "qzm_package.zip";

volatile int gInDebugger;

DebugSettings gDebugSettings = {false, false, nullptr, nullptr, 1, nullptr};

namespace {
struct SubOption;
} // namespace

namespace {
// Takes the text after an item's first ":", or null.
using SubOptionHandler = void (*)(const char *argument);

// Gives the sub-option's text in a child's option; null: nothing.
using SubOptionGenerator = const char *(*)(const SubOption *row, DebugCaller caller,
                                           const char *callee);

struct SubOption {
    const char *name;
    uint32_t bits;            // added to gDebugFlags
    SubOptionHandler handler; // null: takes no argument
    SubOptionGenerator generator;
};
} // namespace

// ---- The debug-out file -----------------------------------------------------------------------

static const char *defaultPath()
{
    return cache_sprintf("%s-%u.out", trace_application(), gDebugSettings.number);
}

// A child that appends to the same file moves the file's end while this run has it open.
static bool openOut(const char *path, const char *mode)
{
    if (gDebugOut != nullptr)
        fclose(gDebugOut); // everything is flushed already; nothing can be lost
    gDebugOut = nullptr;
    gFilePath = path;
    FILE *stream = fopen(path, mode);
    if (stream == nullptr)
        return false;
    osdep_writeAtEnd(stream);
    gDebugOut = stream;
    return true;
}

// ---- Taking a sub-option ----------------------------------------------------------------------

static void takeOut(const char *argument)
{
    if (argument == nullptr) {
        qzdebug_warning("option \"out\", must have a filename argument");
        return;
    }
    gDebugSettings.outGiven = true;
    const bool append = argument[0] == '+';
    const char *path = cache_string(append ? argument + 1 : argument);
    if (argument[0] == '\0')
        path = defaultPath();
    if (gFilePath != nullptr)
        qzdebug_warning("debug-out file was set to \"%s\", resetting to \"%s\"", gFilePath, path);
    if (!openOut(path, append ? "ae" : "we"))
        qzdebug_warning("could not open debug-out file \"%s\"", path);
}

static void takeNumber(const char *argument)
{
    if (argument == nullptr || *argument == '\0') {
        qzdebug_warning("option \"num\", must have an argument");
        return;
    }
    const long long number = strtoll(argument, nullptr, 10);
    if (number <= 0 || number > UINT32_MAX) {
        qzdebug_warning("\"num\" option must be a decimal integer > 0, using \"%u\"",
                        gDebugSettings.number);
        return;
    }
    gDebugSettings.number = static_cast<uint32_t>(number);
}

static void takeDebugged(const char *argument)
{
    Vector *names = argument == nullptr ? nullptr : cache_split(argument, ":");
    if (vec_size(names) == 0)
        qzdebug_warning("option \"debug\", must have at least one argument");
    else if (gDebugSettings.debugged == nullptr)
        gDebugSettings.debugged =
            hash_new_func(BUCKETS, hash_stringNoCase, hash_stringCompareNoCase, MODULE, __LINE__);
    for (const char *name : vec_each<const char>(names))
        hash_insert_func(gDebugSettings.debugged, name, name, MODULE, __LINE__);
    vec_destroy(names);
}

// In the order of the assert modes.
static const char *const assertWords[] = {"ignore", "fatal", "error", "warning"};

static void takeAssert(const char *argument)
{
    if (argument == nullptr) {
        qzdebug_warning("option \"assert\", must have an argument");
        return;
    }
    const char *word = cache_lower(argument);
    uint32_t mode = 0;
    for (const char *known : assertWords) {
        if (strcmp(word, known) == 0) {
            gDebugAssertMode = mode;
            return;
        }
        ++mode;
    }
    qzdebug_warning("unknown argument (%s) given to assert option", argument);
}

static void takePackage(const char *argument)
{
    if (gDebugSettings.package != nullptr) {
        qzdebug_warning("Zip file already set to \"%s\", ignoring addtional zip options",
                        gDebugSettings.package);
        return;
    }
    if (argument != nullptr && argument[0] == '+') {
        gDebugSettings.package = cache_string(argument + 1);
        return;
    }
    const bool named = argument != nullptr && *argument != '\0';
    gDebugSettings.package = cache_string(named ? argument : DEFAULT_PACKAGE);
    if (!osdep_fileExists(gDebugSettings.package))
        return;
    qzdebug_warning("Package zip \"%s\" already exists and will be over-written",
                    gDebugSettings.package);
    // If this is not a regular file, remove() could delete an empty directory or, run by root, a
    // device.
    if (!osdep_isRegularFile(gDebugSettings.package) || remove(gDebugSettings.package) != 0)
        qzdebug_warning("Unable to remove \"%s\", it will be updated if possible",
                        gDebugSettings.package);
}

// ---- Handing a sub-option on ------------------------------------------------------------------

static const char *handBits(const SubOption *row, DebugCaller, const char *)
{
    return (gDebugFlags & row->bits) != 0 ? row->name : nullptr;
}

static const char *handOut(const SubOption *row, DebugCaller, const char *)
{
    return gDebugSettings.outGiven ? cache_sprintf("%s:+%s", row->name, gFilePath) : nullptr;
}

static const char *handPackage(const SubOption *row, DebugCaller, const char *)
{
    return gDebugSettings.package == nullptr
               ? nullptr
               : cache_sprintf("%s:+%s", row->name, gDebugSettings.package);
}

static const char *handAssert(const SubOption *row, DebugCaller, const char *)
{
    return gDebugAssertMode == 0 ? nullptr
                                 : cache_sprintf("%s:%s", row->name, assertWords[gDebugAssertMode]);
}

// The legacy driver starts the compilers and must not be told to debug them.
static bool isCompiler(const char *name)
{
    return strncmp(name, "orbc", 4) == 0;
}

static const char *handDebugged(const SubOption *row, DebugCaller caller, const char *)
{
    if (caller != DBC_QZM || gDebugSettings.debugged == nullptr)
        return nullptr;
    Vector *names = hash_keys(gDebugSettings.debugged);
    Vector *words = vec_new(MODULE, __LINE__);
    vec_add(words, row->name);
    for (const char *name : vec_each<const char>(names)) {
        if (!isCompiler(name))
            vec_add(words, name);
    }
    const char *text = vec_size(words) == 1 ? nullptr : cache_join(words, 0, ":");
    vec_destroy(words);
    vec_destroy(names);
    return text;
}

static int compareCallees(const TallyEntry *a, const TallyEntry *b)
{
    return hash_stringCompareNoCase(tally_entryKey(a), tally_entryKey(b));
}

static const char *handNumber(const SubOption *row, DebugCaller, const char *callee)
{
    static TallyTable *callees;
    if (gDebugFlags == 0)
        return nullptr;
    if (callees == nullptr)
        callees = tally_new(BUCKETS, TOP_CALLEES, hash_stringNoCase, compareCallees);
    return cache_sprintf("%s:%u", row->name, tally_add(callees, cache_string(callee)));
}

// An item belongs to the first row whose name it begins with.
static const SubOption subOptions[] = {
    {"default", DEBUG_TRACE, nullptr, handBits},
    {"on", DEBUG_TRACE, nullptr, handBits},
    {"out", 0, takeOut, handOut},
    {"sdb", DEBUG_SDB, nullptr, handBits},
    {"dwarf", DEBUG_DWARF, nullptr, handBits},
    {"zip", 0, takePackage, handPackage},
    {"alerts", DEBUG_ALERTS, nullptr, handBits},
    {"assert", 0, takeAssert, handAssert},
    {"debug", 0, takeDebugged, handDebugged},
    {"adt", DEBUG_CONTAINERS, nullptr, handBits},
    {"num", 0, takeNumber, handNumber},
};

// ---- The option -------------------------------------------------------------------------------

static const SubOption *findRow(const char *item)
{
    for (const SubOption &row : subOptions) {
        if (strncmp(item, row.name, strlen(row.name)) == 0)
            return &row;
    }
    return nullptr;
}

static void takeItem(const char *item)
{
    const SubOption *row = findRow(item);
    if (row == nullptr) {
        qzdebug_warning("unknown option \"%s\"", item);
        return;
    }
    gDebugFlags |= row->bits;
    const char *colon = strchr(item, ':');
    if (row->handler != nullptr)
        row->handler(colon == nullptr ? nullptr : colon + 1);
}

static void openDefaultOut()
{
    if (gDebugFlags == 0 || gDebugOut != nullptr)
        return;
    if (!openOut(defaultPath(), "we"))
        alert_raiseNumber(MESSAGE_NOT_OPENED, "debug-out", gFilePath);
}

static void recordContainers()
{
    if ((gDebugFlags & DEBUG_CONTAINERS) == 0)
        return;
    hash_debugEnable(1);
    skiplist_debugEnable(1);
    vec_debugEnable(1);
}

void qzdebug_parse(const char *text)
{
    if (gDebugSettings.parsed) {
        qzdebug_warning("Ignoring extra --qzdebug options");
        return;
    }
    gDebugSettings.parsed = true;
    char *directory = osdep_cwd();
    gDebugSettings.directory = cache_string(directory);
    free(directory);
    if (text == nullptr) {
        trace_checkFailed("text != NULL", MODULE, 190);
        text = "";
    }
    const char *equals = strchr(text, '=');
    Vector *items = cache_split(equals == nullptr ? text : equals + 1, ",");
    for (const char *item : vec_each<const char>(items))
        takeItem(item);
    vec_destroy(items);
    openDefaultOut();
    recordContainers();
}

const char *qzdebug_childOption(DebugCaller caller, const char *callee)
{
    TRACE_ENTER("caller=%u, callee=\"%s\"", caller, callee);
    ASSERT_AT(200, caller == DBC_QZM || caller == DBC_DRIVER);
    ASSERT_AT(201, callee != NULL);
    Vector *words = vec_new(MODULE, __LINE__);
    for (const SubOption &row : subOptions) {
        const char *word = row.generator(&row, caller, callee);
        if (word != nullptr)
            vec_add(words, word);
    }
    const char *option = nullptr;
    if (vec_size(words) != 0)
        option = cache_concat("--qzdebug=", cache_join(words, 0, ","));
    vec_destroy(words);
    return TRACE_RETURN("\"%s\"", option);
}
