#define MODULE "common/alert"
#include <cstdlib>
#include <cstring>

#include "common/base/exitpath.h"
#include "common/base/memory.h"
#include "common/diagnostics/alert_internal.h"
#include "common/os/osdep_file.h"
#include "common/os/osdep_temp.h"
#include "common/trace/qzdebug.h"

// In a run that shows one warning, most of the time is spent reading the catalogue. So each line is
// looked at once, nothing is allocated for it, and its text stays where it was read until it is
// asked for.

namespace {
// A message of a table; all zero when the table has no such number.
struct Entry {
    const char *text;    // as read; safe to format once `checked` is set
    const char *builtin; // the kind field and text of the built-in message of the number, or null
    int8_t level;        // of a warning, else 0
    uint8_t kind;        // AlertKind
    bool fromFile;       // not from the built-in catalogue
    bool checked;        // the text has been compared with the built-in one
    bool ownsText;       // the text is an allocation of its own
    bool listed;         // the entry is in the table's list of those that may own their text
    uint16_t nextListed; // the number of the next entry in that list; 0 ends it
};
} // namespace

struct AlertTable {
    char *fileText;                      // the memory that the file's texts point into, or null
    char *builtinText;                   // the same for the built-in catalogue
    bool complete;                       // the built-in messages have been added
    uint16_t firstListed;                // of the entries that may own their text; 0: none
    Entry entries[ALERT_MAX_NUMBER + 1]; // by number
};

namespace {
// One pass over the lines of a file.
struct Reader {
    AlertTable *table;
    const char *name;   // of the file, for reports
    uint32_t line;      // the number of the current line, from 1
    uint32_t malformed; // malformed lines so far
    bool fromFile;      // not the built-in catalogue
    bool copyTexts;     // the buffer will be used again
    bool skipping;      // in the part of a line that is cut off
};
} // namespace

// ---- Conversions ------------------------------------------------------------------------------

const char *alert_conversionEnd(const char *percent)
{
    const char *at = percent + 1;
    at += std::strspn(at, "-+ #0'I");
    at += std::strspn(at, "0123456789*");
    if (*at == '.')
        at += 1 + std::strspn(at + 1, "0123456789*");
    at += std::strspn(at, "hlqjzLt");
    return *at != '\0' ? at + 1 : nullptr;
}

// The next conversion that takes a value, or null after the last.
static const char *nextConversion(const char *at)
{
    for (;;) {
        at = std::strchr(at, '%');
        if (at == nullptr || (at[1] != '%' && at[1] != 'm'))
            return at;
        at += 2;
    }
}

static bool isHarmless(const char *conversion, const char *end)
{
    return std::memchr(conversion, '*', static_cast<size_t>(end - conversion)) == nullptr &&
           std::strchr("diouxXcspeEfFgGaA", end[-1]) != nullptr;
}

int alert_sameConversions(const char *text, const char *reference)
{
    TRACE_ENTER("text=\"%s\", reference=\"%s\"", text, reference);
    for (;;) {
        text = nextConversion(text);
        reference = nextConversion(reference);
        if (text == nullptr || reference == nullptr)
            return TRACE_RETURN("%d", text == reference);
        const char *end = alert_conversionEnd(text);
        if (end == nullptr || !isHarmless(text, end))
            return TRACE_RETURN("%d", 0);
        const size_t length = static_cast<size_t>(end - text);
        if (std::strncmp(text, reference, length) != 0)
            return TRACE_RETURN("%d", 0);
        text += length;
        reference += length;
    }
}

// ---- Kinds ------------------------------------------------------------------------------------

static bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}
static bool isBlank(char c)
{
    return c == ' ' || c == '\t';
}

// Reads a level of any size; digits beyond those that make a difference are ignored.
static uint32_t levelOf(const char *field, int32_t *level)
{
    const bool negative = *field == '-';
    const char *at = field + negative;
    int32_t value = 0;
    for (; isDigit(*at) && value < 10000; ++at)
        value = value * 10 + (*at - '0');
    if (at == field + negative)
        return ALERT_UNSET;
    *level = negative ? -value : value;
    return ALERT_WARNING;
}

static uint32_t kindOf(const char *field, int32_t *level)
{
    *level = 0;
    const char letter = static_cast<char>(*field | 0x20); // in lower case, if it is a letter
    if (letter == 'e')
        return ALERT_ERROR;
    if (letter == 'f')
        return ALERT_FATAL;
    if (letter == 'm')
        return ALERT_MESSAGE;
    return levelOf(field, level);
}

// The kind that a file gives; in a file, levels have a range.
static uint32_t fileKindOf(const char *field, int32_t *level)
{
    const uint32_t kind = kindOf(field, level);
    if (*level >= ALERT_MIN_LEVEL && *level <= ALERT_MAX_LEVEL)
        return kind;
    *level = 0;
    return ALERT_UNSET;
}

uint32_t alert_kindOf(const char *field, int32_t *level)
{
    TRACE_ENTER("field=\"%s\"", field);
    return TRACE_RETURN("%u", kindOf(field, level));
}

// ---- Lines ------------------------------------------------------------------------------------

[[gnu::cold, gnu::noinline]] static void reportMalformed(Reader *reader)
{
    TRACE_ENTER("line=%u", reader->line);
    ++reader->malformed;
    alert_raise(3, "M", "Malformed error information on line %u, in file %s\n", reader->line,
                reader->name);
}

// The number at the start of a line, with the position after it in `behind`; 0 when it is not from
// 1 to the highest number, or nothing follows it.
static uint32_t numberOf(const char *at, const char **behind)
{
    while (isBlank(*at))
        ++at;
    uint32_t number = 0;
    for (; isDigit(*at) && number <= ALERT_MAX_NUMBER; ++at)
        number = number * 10 + static_cast<uint32_t>(*at - '0');
    if (number > ALERT_MAX_NUMBER || !isBlank(*at))
        return 0;
    while (isBlank(*at))
        ++at;
    *behind = at;
    return *at != '\0' ? number : 0;
}

static const char *textBehind(const char *kind)
{
    while (*kind != '\0' && !isBlank(*kind))
        ++kind;
    while (isBlank(*kind))
        ++kind;
    return kind;
}

static void dropText(Entry *entry)
{
    if (entry->ownsText)
        std::free(const_cast<char *>(entry->text));
    entry->ownsText = false;
}

// Lists the entry, so that destroying the table need not visit all the others, most of them on
// pages that were never touched.
static void list(AlertTable *table, Entry *entry)
{
    if (entry->listed)
        return;
    entry->listed = true;
    entry->nextListed = table->firstListed;
    table->firstListed = static_cast<uint16_t>(entry - table->entries);
}

static void store(const Reader *reader, Entry *entry, const char *kindField, const char *text,
                  uint32_t kind, int32_t level)
{
    dropText(entry);
    const bool fromFile = reader->fromFile;
    entry->text = reader->copyTexts ? xstrdup_must(text) : text;
    entry->builtin = fromFile ? nullptr : kindField;
    entry->level = static_cast<int8_t>(level);
    entry->kind = static_cast<uint8_t>(kind);
    entry->fromFile = fromFile;
    entry->checked = !fromFile;
    entry->ownsText = reader->copyTexts;
    if (entry->ownsText)
        list(reader->table, entry);
}

// Takes the line `text`, which ends with a zero.
static void parseLine(Reader *reader, const char *text)
{
    const char *kindField;
    const uint32_t number = numberOf(text, &kindField);
    if (number == 0)
        return reportMalformed(reader);
    Entry *entry = &reader->table->entries[number];
    if (!reader->fromFile && entry->fromFile) {
        entry->builtin = kindField;
        return;
    }
    const char *message = textBehind(kindField);
    if (*message == '\0')
        return reportMalformed(reader);
    int32_t level;
    const uint32_t kind = fileKindOf(kindField, &level);
    if (kind == ALERT_UNSET)
        reportMalformed(reader);
    store(reader, entry, kindField, message, kind, level);
}

// Takes the line from `start` to `end`; the character at `end` may be overwritten.
static void takeLine(Reader *reader, char *start, char *end)
{
    ++reader->line;
    if (*start == '#' && start != end)
        return;
    if (end != start && end[-1] == '\r')
        --end;
    if (end - start > ALERT_LINE_LENGTH)
        end = start + ALERT_LINE_LENGTH;
    *end = '\0';
    parseLine(reader, start);
}

// Whether the file is evidently not a message file, so that reading on would only fill the
// terminal.
static bool isHopeless(const Reader *reader)
{
    return reader->malformed >= ALERT_MAX_MALFORMED;
}

// Takes the lines that end before `end`; returns the start of the one that does not.
static char *takeLines(Reader *reader, char *at, char *end)
{
    while (at != end && !isHopeless(reader)) {
        char *lineEnd = static_cast<char *>(std::memchr(at, '\n', static_cast<size_t>(end - at)));
        if (lineEnd == nullptr)
            return reader->skipping ? end : at;
        if (!reader->skipping)
            takeLine(reader, at, lineEnd);
        reader->skipping = false;
        at = lineEnd + 1;
    }
    return at;
}

// The same, and the last line, which needs no line end.
static void takeAllLines(Reader *reader, char *at, char *end)
{
    at = takeLines(reader, at, end);
    if (at != end && !isHopeless(reader))
        takeLine(reader, at, end);
}

// ---- Files ------------------------------------------------------------------------------------

// Takes the first lines of a long file and moves the unfinished one to the front of the buffer.
// Returns the length of that one; a line that is too long is taken up to its limit.
static size_t takePart(Reader *reader, char *buffer, char *end)
{
    char *rest = takeLines(reader, buffer, end);
    if (isHopeless(reader))
        return 0;
    size_t held = static_cast<size_t>(end - rest);
    if (held > ALERT_LINE_LENGTH) {
        takeLine(reader, rest, end);
        reader->skipping = true;
        held = 0;
    }
    std::memmove(buffer, rest, held);
    return held;
}

static bool isBuiltin(const char *text, size_t length)
{
    return length == alertBuiltinTextSize && std::memcmp(text, alertBuiltinText, length) == 0;
}

namespace {
enum ReadResult { READ_FAILED, READ_FILE, READ_BUILTIN };
} // namespace

// Reads the stream through `buffer`, which holds size + 1 characters. A file equal to the built-in
// catalogue, as an installed one most often is, is not parsed: its texts may not be needed, and it
// has no malformed lines.
static ReadResult readStream(Reader *reader, FILE *stream, char *buffer, size_t size)
{
    TRACE_ENTER("name=\"%s\"", reader->name);
    size_t held = 0;
    for (uint64_t total = 0;;) {
        const size_t got = std::fread(buffer + held, 1, size - held, stream);
        total += got;
        if (std::ferror(stream) != 0)
            return TRACE_RETURN("%d", READ_FAILED);
        char *end = buffer + held + got;
        if (got < size - held || total > ALERT_MAX_FILE || isHopeless(reader)) {
            if (!reader->copyTexts && isBuiltin(buffer, got))
                return TRACE_RETURN("%d", READ_BUILTIN);
            takeAllLines(reader, buffer, end);
            return TRACE_RETURN("%d", READ_FILE);
        }
        reader->copyTexts = true;
        held = takePart(reader, buffer, end);
    }
}

// Not zeroed: the buffer is filled at once.
static char *newBuffer(size_t size)
{
    void *buffer = std::malloc(size);
    return static_cast<char *>(buffer != nullptr ? buffer : xmalloc_must(size));
}

// 0 when reading fails.
static int readFile(AlertTable *table, FILE *stream, const char *name, uint32_t size)
{
    TRACE_ENTER("name=\"%s\"", name);
    Reader reader = {table, name, 0, 0, true, false, false};
    char *buffer = newBuffer(size_t{size} + 1);
    const ReadResult result = readStream(&reader, stream, buffer, size);
    if (reader.copyTexts)
        std::free(buffer);
    else if (result == READ_BUILTIN)
        table->builtinText = buffer;
    else
        table->fileText = buffer;
    return TRACE_RETURN("%d", result != READ_FAILED);
}

// ---- The built-in catalogue -------------------------------------------------------------------

static int writeBuiltin(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    FILE *file = std::fopen(path, "r+b"); // new and empty: nothing to truncate
    if (file == nullptr)
        return TRACE_RETURN("%d", 0);
    const bool written =
        std::fwrite(alertBuiltinText, 1, alertBuiltinTextSize, file) == alertBuiltinTextSize;
    const bool closed = std::fclose(file) == 0;
    return TRACE_RETURN("%d", written && closed);
}

// The temporary file with the built-in catalogue, written at the first call; null when there is
// nowhere to write it.
static const char *builtinPath()
{
    TRACE_ENTER();
    static bool tried;
    static char *path;
    if (!tried) {
        tried = true;
        path = osdep_tempFile();
        if (path != nullptr && !writeBuiltin(path)) {
            std::remove(path);
            std::free(path);
            path = nullptr;
        }
    }
    return TRACE_RETURN("\"%s\"", path);
}

static int readBuiltin(const char *path, char *text)
{
    TRACE_ENTER("path=\"%s\"", path);
    FILE *file = path != nullptr ? std::fopen(path, "rb") : nullptr;
    if (file == nullptr)
        return TRACE_RETURN("%d", 0);
    const size_t got = std::fread(text, 1, alertBuiltinTextSize, file);
    std::fclose(file);
    return TRACE_RETURN("%d", isBuiltin(text, got));
}

// The catalogue in a buffer of its own. If its file was changed after it was written, the program's
// copy is used, because other texts are checked against the built-in ones.
static char *makeBuiltinText()
{
    TRACE_ENTER();
    const char *path = builtinPath();
    char *text = newBuffer(alertBuiltinTextSize + 1);
    if (!readBuiltin(path, text))
        std::memcpy(text, alertBuiltinText, alertBuiltinTextSize);
    return TRACE_RETURN("%p", text);
}

// Adds the built-in messages that the table lacks, when a number is first asked for.
static void complete(AlertTable *table)
{
    TRACE_ENTER();
    table->complete = true;
    if (table->builtinText == nullptr)
        table->builtinText = makeBuiltinText();
    Reader reader = {table, ALERT_FILE_NAME, 0, 0, false, false, false};
    takeAllLines(&reader, table->builtinText, table->builtinText + alertBuiltinTextSize);
}

// ---- Tables -----------------------------------------------------------------------------------

// The table is so large that the system provides it zeroed, page by page as it is used.
static AlertTable *newTable()
{
    return static_cast<AlertTable *>(xmalloc_must(sizeof(AlertTable)));
}

void alert_tableDestroy(AlertTable *table)
{
    TRACE_ENTER("table=%p", static_cast<void *>(table));
    for (uint32_t number = table->firstListed; number != 0;) {
        dropText(&table->entries[number]);
        number = table->entries[number].nextListed;
    }
    std::free(table->fileText);
    std::free(table->builtinText);
    std::free(table);
}

AlertTable *alert_tableRead(FILE *stream, const char *name, uint32_t readSize)
{
    TRACE_ENTER("name=\"%s\", readSize=%u", name, readSize);
    ASSERT_AT(1, readSize >= ALERT_MIN_READ_SIZE);
    AlertTable *table = newTable();
    if (!readFile(table, stream, name, readSize)) {
        alert_tableDestroy(table);
        table = nullptr;
    }
    return TRACE_RETURN("%p", table);
}

AlertTable *alert_tableLoad(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    if (path == nullptr)
        return TRACE_RETURN("%p", newTable());
    FILE *stream = osdep_isRegularFile(path) ? std::fopen(path, "rb") : nullptr;
    if (stream == nullptr)
        return TRACE_RETURN("%p", static_cast<AlertTable *>(nullptr));
    AlertTable *table = alert_tableRead(stream, path, ALERT_READ_SIZE);
    std::fclose(stream);
    return TRACE_RETURN("%p", table);
}

// A file's text is checked against the built-in one only when it is asked for.
static const char *checkedText(Entry *entry)
{
    if (entry->checked)
        return entry->text;
    const char *builtin = entry->builtin != nullptr ? textBehind(entry->builtin) : nullptr;
    if (!alert_sameConversions(entry->text, builtin != nullptr ? builtin : "")) {
        dropText(entry);
        entry->text = builtin != nullptr ? builtin : ALERT_NO_DESCRIPTION;
    }
    entry->checked = true;
    return entry->text;
}

// The message of a number, or null.
static Entry *entryOf(AlertTable *table, uint32_t number)
{
    if (!table->complete)
        complete(table);
    const bool known = number <= ALERT_MAX_NUMBER && table->entries[number].text != nullptr;
    return known ? &table->entries[number] : nullptr;
}

uint32_t alert_tableKind(AlertTable *table, uint32_t number)
{
    const Entry *entry = entryOf(table, number);
    return entry != nullptr ? entry->kind : uint32_t{ALERT_UNSET};
}

int alert_tableFind(AlertTable *table, AlertRecord *record)
{
    TRACE_ENTER("number=%u", record->number);
    Entry *entry = entryOf(table, record->number);
    if (entry == nullptr)
        return TRACE_RETURN("%d", 0);
    record->kind = entry->kind;
    record->level = entry->level;
    record->text = checkedText(entry);
    return TRACE_RETURN("%d", 1);
}
