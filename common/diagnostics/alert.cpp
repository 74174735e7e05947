#define MODULE "common/alert"
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "common/base/exitpath.h"
#include "common/base/hooks.h"
#include "common/base/memory.h"
#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "common/diagnostics/alert_internal.h"
#include "common/install/registry.h"
#include "common/os/osdep_file.h"
#include "common/os/osdep_host.h"
#include "common/trace/qzdebug.h"

// The level that the threshold sees for everything but a warning.
static constexpr int32_t LEVEL_OF_OTHERS = 10;

static constexpr uint32_t MESSAGE_TOO_MANY_ERRORS = 1;
static constexpr uint32_t MESSAGE_OUT_OF_MEMORY = 296;

// Kinds come from the first table ever loaded, so that a translated file cannot change them.
static AlertTable *s_base;
static AlertTable *s_current;
static const char *s_loadedFile; // interned; null while the built-in catalogue is in use
static bool s_loading;           // a message raised now must not load a file itself

static uint32_t s_errors;
static uint32_t s_warnings; // the number shown
static uint32_t s_errorLimit = 20;
static int32_t s_threshold;
static int s_countWarnings;
static int s_emitAlways;

static Vector *s_rules; // the stack of maps; a map holds AlertOperation codes by number

// ---- Finding and loading the message file -----------------------------------------------------

static const char *ifExists(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    return TRACE_RETURN("\"%s\"", osdep_fileExists(path) ? path : nullptr);
}

// "dat" beside the directory of the running executable.
static const char *fileBesideProgram()
{
    TRACE_ENTER();
    char *directory = osdep_exePath();
    char *slash = directory != nullptr ? std::strrchr(directory, '/') : nullptr;
    const char *path = nullptr;
    if (slash != nullptr) {
        while (slash != directory && (slash[-1] == '.' || slash[-1] == '/'))
            --slash;
        *slash = '\0';
        slash = std::strrchr(directory, '/');
    }
    if (slash != nullptr) {
        *slash = '\0';
        path = cache_sprintf("%s/dat/%s", directory, ALERT_FILE_NAME);
    }
    std::free(directory);
    return TRACE_RETURN("\"%s\"", path);
}

// The path of the message file to use, or null for the built-in catalogue.
static const char *findFile()
{
    TRACE_ENTER();
    const char *path = ifExists(reg_mkpath(REG_DAT, ALERT_FILE_NAME));
    if (path == nullptr)
        path = ifExists(fileBesideProgram());
    if (path == nullptr)
        path = ifExists(ALERT_FILE_NAME);
    return TRACE_RETURN("\"%s\"", path);
}

static bool isLoaded(const char *path)
{
    if (s_current == nullptr)
        return false;
    return path != nullptr ? s_loadedFile != nullptr && std::strcmp(path, s_loadedFile) == 0
                           : s_loadedFile == nullptr;
}

// Makes the file (null: the built-in catalogue) the current table. 0 when it cannot be read.
static int load(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    if (isLoaded(path))
        return TRACE_RETURN("%d", 1);
    if (s_loading)
        return TRACE_RETURN("%d", 0);
    s_loading = true;
    AlertTable *table = alert_tableLoad(path);
    s_loading = false;
    if (table == nullptr)
        return TRACE_RETURN("%d", 0);
    if (s_current != s_base)
        alert_tableDestroy(s_current);
    s_current = table;
    if (s_base == nullptr)
        s_base = table;
    s_loadedFile = cache_string(path);
    return TRACE_RETURN("%d", 1);
}

// Loads the message file at the first call that needs one. A file that cannot be read is not tried
// again: every number then has no description.
static void needTables()
{
    TRACE_ENTER();
    static bool tried;
    if (s_base == nullptr && !tried && !s_loading) {
        tried = true;
        load(findFile());
    }
}

int alert_loadFile(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    return TRACE_RETURN("%d", path != nullptr ? load(path) : 0);
}

void alert_reload()
{
    TRACE_ENTER();
    const char *path = findFile();
    if (!load(path)) {
        alert_print("Could not open message file %s\n", path);
        exitpath_leave(1);
    }
}

// ---- Settings ---------------------------------------------------------------------------------

void alert_setFormats(const char *error, const char *warning, const char *message)
{
    TRACE_ENTER("error=\"%s\", warning=\"%s\", message=\"%s\"", error, warning, message);
    alert_chooseFormat(ALERT_FORMAT_ERROR, error);
    alert_chooseFormat(ALERT_FORMAT_WARNING, warning);
    alert_chooseFormat(ALERT_FORMAT_MESSAGE, message);
}

void alert_setFormatMode(int on)
{
    TRACE_ENTER("on=%d", on);
    gAlertSettings.formatMode = on;
}

uint32_t alert_setErrorLimit(uint32_t limit)
{
    TRACE_ENTER("limit=%u", limit);
    const uint32_t previous = s_errorLimit;
    s_errorLimit = limit;
    return TRACE_RETURN("%u", previous);
}

int32_t alert_setThreshold(int32_t level)
{
    TRACE_ENTER("level=%d", level);
    const int32_t previous = s_threshold;
    s_threshold = level;
    return TRACE_RETURN("%d", previous);
}

void alert_setProgramName(const char *name)
{
    TRACE_ENTER("name=\"%s\"", name);
    gAlertSettings.program = name;
}

const char *alert_programName()
{
    TRACE_ENTER();
    return TRACE_RETURN("\"%s\"", gAlertSettings.program);
}

void alert_setPosition(const char *file, const uint32_t *lineRef, const char *const *lineStartRef,
                       const char *const *currentRef)
{
    TRACE_ENTER("file=\"%s\"", file);
    const bool named = file != nullptr && *file != '\0';
    gAlertSettings.file = named ? cache_string(file) : nullptr;
    gAlertSettings.lineRef = lineRef;
    gAlertSettings.lineStartRef = lineStartRef;
    gAlertSettings.currentRef = currentRef;
}

void alert_setOutputHook(AlertHook hook)
{
    TRACE_ENTER("hook=%d", hook != nullptr);
    gAlertSettings.hook = hook;
}

int alert_anyErrors()
{
    TRACE_ENTER();
    return TRACE_RETURN("%d", s_errors != 0 || (s_countWarnings && s_warnings != 0));
}

void alert_setCountWarnings(int on)
{
    TRACE_ENTER("on=%d", on);
    s_countWarnings = on;
}

void alert_setEmitAlways(int on)
{
    TRACE_ENTER("on=%d", on);
    s_emitAlways = on;
}

int alert_emitAlways()
{
    TRACE_ENTER();
    return TRACE_RETURN("%d", s_emitAlways);
}

// ---- Rules ------------------------------------------------------------------------------------

static Vector *topRules()
{
    TRACE_ENTER();
    if (s_rules == nullptr) {
        s_rules = vec_new(MODULE, __LINE__);
        vec_add(s_rules, vec_new(MODULE, __LINE__));
    }
    return TRACE_RETURN("%p", static_cast<Vector *>(vec_top(s_rules)));
}

static void setRule(Vector *rules, uint32_t number, AlertOperation rule)
{
    TRACE_ENTER("number=%u, rule=%u", number, rule);
    if (number != 0 && number <= ALERT_MAX_NUMBER)
        vec_setAt(rules, reinterpret_cast<void *>(uintptr_t{rule}), number);
}

static void pushRules()
{
    TRACE_ENTER();
    vec_add(s_rules, vec_copy_func(topRules(), MODULE, __LINE__));
}

static void popRules()
{
    TRACE_ENTER();
    topRules();
    if (vec_size(s_rules) > 1)
        vec_destroy(static_cast<Vector *>(vec_pop(s_rules)));
}

static void clearRules()
{
    TRACE_ENTER();
    topRules();
    vec_destroy(static_cast<Vector *>(vec_pop(s_rules)));
    vec_add(s_rules, vec_new(MODULE, __LINE__));
}

static void hideEvery()
{
    TRACE_ENTER();
    needTables();
    Vector *rules = topRules();
    for (uint32_t number = 1; number <= ALERT_MAX_NUMBER && s_base != nullptr; ++number) {
        const uint32_t kind = alert_tableKind(s_base, number);
        if (kind == ALERT_MESSAGE || kind == ALERT_WARNING)
            setRule(rules, number, ALERT_RULE_HIDE);
    }
}

void alert_control(uint32_t number, AlertOperation operation)
{
    TRACE_ENTER("number=%u, operation=%u", number, operation);
    switch (operation) {
    case ALERT_PUSH_RULES:
        pushRules();
        break;
    case ALERT_POP_RULES:
        popRules();
        break;
    case ALERT_HIDE_EVERY:
        hideEvery();
        break;
    case ALERT_CLEAR_RULES:
        clearRules();
        break;
    default:
        if (operation <= ALERT_RULE_HIDE_ALL)
            setRule(topRules(), number, operation);
        break;
    }
}

// Applies one item of a list, "45" or "45:off". Anything else is ignored.
static void disableItem(const char *item, const char *end)
{
    TRACE_ENTER("item=\"%.*s\"", static_cast<int>(end - item), item);
    uint32_t number = 0;
    const char *at = item;
    for (; at != end && *at >= '0' && *at <= '9' && number <= ALERT_MAX_NUMBER; ++at)
        number = number * 10 + static_cast<uint32_t>(*at - '0');
    const size_t rest = static_cast<size_t>(end - at);
    if (at != item && rest == 0)
        alert_control(number, ALERT_RULE_HIDE);
    else if (at != item && rest == 4 && std::memcmp(at, ":off", 4) == 0)
        alert_control(number, ALERT_RULE_HIDE_ALL);
}

void alert_disableList(const char *list)
{
    TRACE_ENTER("list=\"%s\"", list);
    if (list != nullptr && *list == '0') {
        alert_control(0, ALERT_HIDE_EVERY);
        list = nullptr;
    }
    while (list != nullptr) {
        const char *comma = std::strchr(list, ',');
        disableItem(list, comma != nullptr ? comma : list + std::strlen(list));
        list = comma != nullptr ? comma + 1 : nullptr;
    }
}

static void applyRule(AlertRecord *record)
{
    TRACE_ENTER("number=%u, kind=%u", record->number, record->kind);
    void *slot = s_rules != nullptr ? vec_elementAt(topRules(), record->number) : nullptr;
    switch (reinterpret_cast<uintptr_t>(slot)) {
    case ALERT_RULE_HIDE:
        if (record->kind == ALERT_MESSAGE || record->kind == ALERT_WARNING)
            record->kind = ALERT_SUPPRESSED;
        break;
    case ALERT_RULE_ERROR_TO_WARNING:
        if (record->kind == ALERT_ERROR) {
            record->kind = ALERT_WARNING;
            record->level = s_threshold;
        }
        break;
    case ALERT_RULE_WARNING_TO_ERROR:
        if (record->kind == ALERT_WARNING)
            record->kind = ALERT_ERROR;
        break;
    case ALERT_RULE_HIDE_ALL:
        if (record->kind != ALERT_FATAL)
            record->kind = ALERT_SUPPRESSED;
        break;
    default:
        break;
    }
}

// ---- Lookup -----------------------------------------------------------------------------------

// The record of a number. Its text belongs to a table.
static AlertRecord lookUp(uint32_t number)
{
    TRACE_ENTER("number=%u", number);
    needTables();
    AlertRecord record = {ALERT_ERROR, number, ALERT_NO_DESCRIPTION, 0};
    if (s_base != nullptr)
        alert_tableFind(s_base, &record);
    if (s_current != s_base) {
        AlertRecord current = record;
        alert_tableFind(s_current, &current);
        record.text = current.text;
    }
    applyRule(&record);
    TRACE("kind %u, level %d, text \"%s\"", record.kind, record.level, record.text);
    return record;
}

AlertRecord *alert_lookup(uint32_t number)
{
    TRACE_ENTER("number=%u", number);
    AlertRecord *record = static_cast<AlertRecord *>(xmalloc_must(sizeof(AlertRecord)));
    *record = lookUp(number);
    record->text = cache_string(record->text);
    return TRACE_RETURN("%p", record);
}

// ---- Raising ----------------------------------------------------------------------------------

// The text comes from a table, which has compared its conversions with the built-in text's. No rule
// applies: this is the only message that says why the run ends.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
[[noreturn]] static void endAtLimit()
{
    TRACE_ENTER();
    alert_raise(MESSAGE_TOO_MANY_ERRORS, "M", lookUp(MESSAGE_TOO_MANY_ERRORS).text, s_errors);
    exitpath_leave(1);
}
#pragma GCC diagnostic pop

// Counts an error and ends the run when the limit is passed.
static void countError()
{
    TRACE_ENTER();
    if (s_errors++ >= s_errorLimit)
        endAtLimit();
}

[[gnu::format(printf, 3, 0)]] static int raiseMessage(const AlertMessage *message, int32_t level,
                                                      const char *format, va_list values)
{
    TRACE_ENTER("number=%u, kind=%u, level=%d", message->number, message->kind, level);
    if (message->kind == ALERT_ERROR)
        countError();
    const bool warning = message->kind == ALERT_WARNING;
    // Even a threshold above every level does not hide a fatal message, which ends the run.
    if ((warning ? level : LEVEL_OF_OTHERS) < s_threshold && message->kind != ALERT_FATAL)
        return TRACE_RETURN("%d", 0);
    if (warning)
        ++s_warnings;
    alert_render(message, format, values);
    if (message->kind == ALERT_FATAL)
        exitpath_leave(1);
    return TRACE_RETURN("%d", 1);
}

// The common part of the raising functions that take a kind. Keeps errno.
[[gnu::format(printf, 4, 0)]] static int raiseByKind(uint32_t number, const char *kind, int noLine,
                                                     const char *format, va_list values)
{
    const int systemError = errno;
    TRACE_ENTER("number=%u, kind=\"%s\", noLine=%d", number, kind, noLine);
    int32_t level;
    const AlertMessage message = {number, alert_kindOf(kind, &level), systemError, noLine};
    const int shown = raiseMessage(&message, level, format, values);
    errno = systemError;
    return TRACE_RETURN("%d", shown);
}

int alert_raise(uint32_t number, const char *kind, const char *format, ...)
{
    TRACE_ENTER("number=%u, kind=\"%s\", format=\"%s\"", number, kind, format);
    ASSERT_AT(2, kind != nullptr && format != nullptr);
    va_list values;
    va_start(values, format);
    const int shown = raiseByKind(number, kind, 0, format, values);
    va_end(values);
    return TRACE_RETURN("%d", shown);
}

int alert_raiseNoLine(uint32_t number, const char *kind, const char *format, ...)
{
    TRACE_ENTER("number=%u, kind=\"%s\", format=\"%s\"", number, kind, format);
    ASSERT_AT(3, kind != nullptr && format != nullptr);
    va_list values;
    va_start(values, format);
    const int shown = raiseByKind(number, kind, 1, format, values);
    va_end(values);
    return TRACE_RETURN("%d", shown);
}

// The text comes from a table, which has compared its conversions with the built-in text's.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
static int raiseRecord(const AlertRecord *record, int systemError, va_list values)
{
    TRACE_ENTER("number=%u", record->number);
    const AlertMessage message = {record->number, record->kind, systemError, 0};
    return TRACE_RETURN("%d", raiseMessage(&message, record->level, record->text, values));
}
#pragma GCC diagnostic pop

int alert_raiseNumber(uint32_t number, ...)
{
    const int systemError = errno;
    TRACE_ENTER("number=%u", number);
    const AlertRecord record = lookUp(number);
    va_list values;
    va_start(values, number);
    const int shown =
        record.kind != ALERT_SUPPRESSED ? raiseRecord(&record, systemError, values) : 0;
    va_end(values);
    errno = systemError;
    return TRACE_RETURN("%d", shown);
}

// ---- Hooks of the lower layers -----------------------------------------------------------------

static void raiseExhausted()
{
    alert_raiseNumber(MESSAGE_OUT_OF_MEMORY);
}

constinit MemoryExhaustedHook gMemoryExhausted = raiseExhausted;

static void warnOfTrace(const char *text)
{
    alert_print("QZDEBUG (warning): %s", text);
}

static void raiseCheck(uint32_t number, const char *expression, const char *source, uint32_t line)
{
    alert_raiseNumber(number, expression, source, line);
}

constinit TraceMessages gTraceMessages = {.warn = warnOfTrace, .raise = raiseCheck};
