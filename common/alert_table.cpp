#define MODULE "common/alert"
#include "common/alert_internal.h"

#include <cstdlib>
#include <cstring>

#include "common/exitpath.h"
#include "common/memory.h"
#include "common/osdep.h"
#include "common/qzdebug.h"
#include "common/vector.h"

// Reading a catalogue is most of what a run spends that shows one warning. So a line is looked at
// once, nothing is allocated for it but a slot of a block, and its text stays where it was read
// until somebody asks for it.

// A message of a table.
struct Entry {
    const char *text;    // as read; once `checked` is set it is safe to format
    const char *builtin; // the built-in text of the number, or null
    int32_t level;       // of a warning, else 0
    uint8_t kind;        // AlertKind
    bool fromFile;       // not from the built-in catalogue
    bool checked;
    bool ownsText; // the text is an allocation of its own
};

struct EntryBlock {
    EntryBlock *next;
    uint32_t used;
    Entry entries[128];
};

static constexpr uint32_t BLOCK_ENTRIES = sizeof(EntryBlock::entries) / sizeof(Entry);

struct AlertTable {
    Vector *entries;    // Entry or null, by number
    EntryBlock *blocks; // where the entries live; the newest first
    char *fileText;     // what the texts point into, or null
    char *builtinText;  //
};

// One pass over the lines of a file.
struct Reader {
    AlertTable *table;
    const char *name;   // of the file, for reports
    uint32_t line;      // the number of the current line, from 1
    uint32_t malformed; // malformed lines so far
    bool fromFile;      // not the built-in catalogue
    bool copyTexts;     // the buffer will be used again
    bool skipping;      // inside the part of a line that is cut off
};

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

// The next conversion that takes a value, or null behind the last.
static const char *next_conversion(const char *at)
{
    for (;;) {
        at = std::strchr(at, '%');
        if (at == nullptr || (at[1] != '%' && at[1] != 'm'))
            return at;
        at += 2;
    }
}

static bool is_harmless(const char *conversion, const char *end)
{
    return std::memchr(conversion, '*', static_cast<size_t>(end - conversion)) == nullptr &&
           std::strchr("diouxXcspeEfFgGaA", end[-1]) != nullptr;
}

int alert_sameConversions(const char *text, const char *reference)
{
    TRACE_ENTER("text=\"%s\", reference=\"%s\"", text, reference);
    for (;;) {
        text = next_conversion(text);
        reference = next_conversion(reference);
        if (text == nullptr || reference == nullptr)
            return TRACE_RETURN("%d", text == reference);
        const char *end = alert_conversionEnd(text);
        if (end == nullptr || !is_harmless(text, end))
            return TRACE_RETURN("%d", 0);
        const size_t length = static_cast<size_t>(end - text);
        if (std::strncmp(text, reference, length) != 0)
            return TRACE_RETURN("%d", 0);
        text += length;
        reference += length;
    }
}

// ---- Kinds ------------------------------------------------------------------------------------

static bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}
static bool is_blank(char c)
{
    return c == ' ' || c == '\t';
}

static uint32_t level_of(const char *field, int32_t *level)
{
    const bool negative = *field == '-';
    const char *at = field + negative;
    int32_t value = 0;
    for (; is_digit(*at) && value <= -ALERT_MIN_LEVEL; ++at)
        value = value * 10 + (*at - '0');
    value = negative ? -value : value;
    if (at == field + negative || value < ALERT_MIN_LEVEL || value > ALERT_MAX_LEVEL)
        return ALERT_UNSET;
    *level = value;
    return ALERT_WARNING;
}

uint32_t alert_kindOf(const char *field, int32_t *level)
{
    *level = 0;
    switch (*field) {
    case 'F':
    case 'f':
        return ALERT_FATAL;
    case 'E':
    case 'e':
        return ALERT_ERROR;
    case 'M':
    case 'm':
        return ALERT_MESSAGE;
    default:
        return level_of(field, level);
    }
}

// ---- Lines ------------------------------------------------------------------------------------

static Entry *new_entry(AlertTable *table)
{
    EntryBlock *block = table->blocks;
    if (block == nullptr || block->used == BLOCK_ENTRIES) {
        block = static_cast<EntryBlock *>(xmalloc_must(sizeof(EntryBlock)));
        block->next = table->blocks;
        table->blocks = block;
    }
    return &block->entries[block->used++];
}

[[gnu::cold, gnu::noinline]] static void report_malformed(Reader *reader)
{
    TRACE_ENTER("line=%u", reader->line);
    ++reader->malformed;
    alert_raise(3, "M", "Malformed error information on line %u, in file %s\n", reader->line,
                reader->name);
    TRACE_LEAVE();
}

// The number at the start of a line, and in `behind` where it ends; 0 when it is not one from 1 to
// the highest, or nothing follows it.
static uint32_t number_of(const char *at, const char **behind)
{
    while (is_blank(*at))
        ++at;
    uint32_t number = 0;
    for (; is_digit(*at) && number <= ALERT_MAX_NUMBER; ++at)
        number = number * 10 + static_cast<uint32_t>(*at - '0');
    if (number > ALERT_MAX_NUMBER || !is_blank(*at))
        return 0;
    while (is_blank(*at))
        ++at;
    *behind = at;
    return *at != '\0' ? number : 0;
}

static const char *text_behind(const char *kind)
{
    while (*kind != '\0' && !is_blank(*kind))
        ++kind;
    while (is_blank(*kind))
        ++kind;
    return kind;
}

static void store(const Reader *reader, uint32_t number, Entry *entry, uint32_t kind, int32_t level,
                  const char *text)
{
    if (entry == nullptr) {
        entry = new_entry(reader->table);
        vec_setAt(reader->table->entries, entry, number);
    } else if (entry->ownsText) {
        std::free(const_cast<char *>(entry->text));
    }
    const bool fromFile = reader->fromFile;
    const char *kept = reader->copyTexts ? xstrcat(text, "") : text;
    *entry = {kept,      fromFile ? nullptr : kept, level, static_cast<uint8_t>(kind), fromFile,
              !fromFile, reader->copyTexts};
}

// Takes the line `text`, which a zero ends.
static void parse_line(Reader *reader, const char *text)
{
    const char *kindField;
    const uint32_t number = number_of(text, &kindField);
    if (number == 0)
        return report_malformed(reader);
    const char *message = text_behind(kindField);
    Entry *entry = static_cast<Entry *>(vec_elementAt(reader->table->entries, number));
    if (!reader->fromFile && entry != nullptr && entry->fromFile) {
        entry->builtin = message;
        return;
    }
    if (*message == '\0')
        return report_malformed(reader);
    int32_t level;
    const uint32_t kind = alert_kindOf(kindField, &level);
    if (kind == ALERT_UNSET)
        report_malformed(reader);
    store(reader, number, entry, kind, level, message);
}

// Takes the line from `start` to `end`, where a character can be overwritten.
static void take_line(Reader *reader, char *start, char *end)
{
    ++reader->line;
    if (*start == '#' && start != end)
        return;
    if (end != start && end[-1] == '\r')
        --end;
    if (end - start > ALERT_LINE_LENGTH)
        end = start + ALERT_LINE_LENGTH;
    *end = '\0';
    parse_line(reader, start);
}

// Whether the file is evidently none of messages, so that reading on would only fill the terminal.
static bool is_hopeless(const Reader *reader)
{
    return reader->malformed >= ALERT_MAX_MALFORMED;
}

// Takes the lines that end before `end`; returns the start of the one that does not.
static char *take_lines(Reader *reader, char *at, char *end)
{
    while (at != end && !is_hopeless(reader)) {
        char *lineEnd = static_cast<char *>(std::memchr(at, '\n', static_cast<size_t>(end - at)));
        if (lineEnd == nullptr)
            return reader->skipping ? end : at;
        if (!reader->skipping)
            take_line(reader, at, lineEnd);
        reader->skipping = false;
        at = lineEnd + 1;
    }
    return at;
}

// The same, and the last line, which needs no line end.
static void take_all_lines(Reader *reader, char *at, char *end)
{
    at = take_lines(reader, at, end);
    if (at != end && !is_hopeless(reader))
        take_line(reader, at, end);
}

// ---- Files ------------------------------------------------------------------------------------

// Takes the first lines of what is a long file and moves the unfinished one to the front of the
// buffer. Returns that one's length; a line that is too long is taken as far as it counts.
static size_t take_part(Reader *reader, char *buffer, char *end)
{
    char *rest = take_lines(reader, buffer, end);
    if (is_hopeless(reader))
        return 0;
    size_t held = static_cast<size_t>(end - rest);
    if (held > ALERT_LINE_LENGTH) {
        take_line(reader, rest, end);
        reader->skipping = true;
        held = 0;
    }
    std::memmove(buffer, rest, held);
    return held;
}

// Reads the stream through `buffer`, which holds size + 1 characters. 0 when reading fails.
static int read_stream(Reader *reader, FILE *stream, char *buffer, size_t size)
{
    TRACE_ENTER("name=\"%s\"", reader->name);
    size_t held = 0;
    for (uint64_t total = 0;;) {
        const size_t got = std::fread(buffer + held, 1, size - held, stream);
        total += got;
        if (std::ferror(stream) != 0)
            return TRACE_RETURN("%d", 0);
        char *end = buffer + held + got;
        if (got < size - held || total > ALERT_MAX_FILE || is_hopeless(reader)) {
            take_all_lines(reader, buffer, end);
            return TRACE_RETURN("%d", 1);
        }
        reader->copyTexts = true;
        held = take_part(reader, buffer, end);
    }
}

static int read_file(AlertTable *table, FILE *stream, const char *name, uint32_t size)
{
    TRACE_ENTER("name=\"%s\"", name);
    Reader reader = {table, name, 0, 0, true, false, false};
    char *buffer = static_cast<char *>(xmalloc_must(uint64_t{size} + 1));
    const int done = read_stream(&reader, stream, buffer, size);
    if (reader.copyTexts)
        std::free(buffer);
    else
        table->fileText = buffer;
    return TRACE_RETURN("%d", done);
}

// ---- The built-in catalogue -------------------------------------------------------------------

static int write_builtin(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    FILE *file = std::fopen(path, "wb");
    if (file == nullptr)
        return TRACE_RETURN("%d", 0);
    const bool written =
        std::fwrite(alertBuiltinText, 1, alertBuiltinTextSize, file) == alertBuiltinTextSize;
    const bool closed = std::fclose(file) == 0;
    return TRACE_RETURN("%d", written && closed);
}

// The temporary file with the built-in catalogue, written at the first call; null when there is
// nowhere to write it.
static const char *builtin_path()
{
    TRACE_ENTER();
    static bool tried;
    static char *path;
    if (!tried) {
        tried = true;
        path = osdep_tempFile();
        if (path != nullptr && !write_builtin(path)) {
            std::remove(path);
            std::free(path);
            path = nullptr;
        }
    }
    return TRACE_RETURN("\"%s\"", path);
}

static int read_builtin(const char *path, char *text)
{
    TRACE_ENTER("path=\"%s\"", path);
    FILE *file = path != nullptr ? std::fopen(path, "rb") : nullptr;
    if (file == nullptr)
        return TRACE_RETURN("%d", 0);
    const size_t got = std::fread(text, 1, alertBuiltinTextSize, file);
    std::fclose(file);
    return TRACE_RETURN("%d", got == alertBuiltinTextSize);
}

// Fills the numbers that the table lacks. Without its file the catalogue is taken from where it is.
static void add_builtin(AlertTable *table)
{
    TRACE_ENTER();
    const char *path = builtin_path();
    table->builtinText = static_cast<char *>(xmalloc_must(alertBuiltinTextSize + 1));
    if (!read_builtin(path, table->builtinText))
        std::memcpy(table->builtinText, alertBuiltinText, alertBuiltinTextSize);
    Reader reader = {table, path != nullptr ? path : ALERT_FILE_NAME, 0, 0, false, false, false};
    take_all_lines(&reader, table->builtinText, table->builtinText + alertBuiltinTextSize);
    TRACE_LEAVE();
}

// ---- Tables -----------------------------------------------------------------------------------

static AlertTable *new_table()
{
    AlertTable *table = static_cast<AlertTable *>(xmalloc_must(sizeof(AlertTable)));
    table->entries = vec_new_size(ALERT_MAX_NUMBER + 1, MODULE, __LINE__);
    return table;
}

void alert_tableDestroy(AlertTable *table)
{
    TRACE_ENTER("table=%p", static_cast<void *>(table));
    while (table->blocks != nullptr) {
        EntryBlock *block = table->blocks;
        table->blocks = block->next;
        for (uint32_t i = 0; i < block->used; ++i) {
            if (block->entries[i].ownsText)
                std::free(const_cast<char *>(block->entries[i].text));
        }
        std::free(block);
    }
    vec_destroy(table->entries);
    std::free(table->fileText);
    std::free(table->builtinText);
    std::free(table);
    TRACE_LEAVE();
}

AlertTable *alert_tableRead(FILE *stream, const char *name, uint32_t readSize)
{
    TRACE_ENTER("name=\"%s\", readSize=%u", name, readSize);
    ASSERT_AT(1, readSize >= ALERT_MIN_READ_SIZE);
    AlertTable *table = new_table();
    if (!read_file(table, stream, name, readSize)) {
        alert_tableDestroy(table);
        return TRACE_RETURN("%p", static_cast<AlertTable *>(nullptr));
    }
    add_builtin(table);
    return TRACE_RETURN("%p", table);
}

static AlertTable *builtin_table()
{
    TRACE_ENTER();
    AlertTable *table = new_table();
    add_builtin(table);
    return TRACE_RETURN("%p", table);
}

AlertTable *alert_tableLoad(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    if (path == nullptr)
        return TRACE_RETURN("%p", builtin_table());
    FILE *stream = std::fopen(path, "rb");
    if (stream == nullptr)
        return TRACE_RETURN("%p", static_cast<AlertTable *>(nullptr));
    AlertTable *table = alert_tableRead(stream, path, ALERT_READ_SIZE);
    std::fclose(stream);
    return TRACE_RETURN("%p", table);
}

// The check of a file's text against the built-in one waits until the text is wanted.
static const char *checked_text(Entry *entry)
{
    if (entry->checked)
        return entry->text;
    const char *builtin = entry->builtin;
    const char *fallback = builtin != nullptr ? builtin : ALERT_NO_DESCRIPTION;
    if (!alert_sameConversions(entry->text, builtin != nullptr ? builtin : "")) {
        if (entry->ownsText)
            std::free(const_cast<char *>(entry->text));
        entry->ownsText = false;
        entry->text = fallback;
    }
    entry->checked = true;
    return entry->text;
}

uint32_t alert_tableKind(const AlertTable *table, uint32_t number)
{
    const Entry *entry = static_cast<const Entry *>(vec_elementAt(table->entries, number));
    return entry != nullptr ? entry->kind : uint32_t{ALERT_UNSET};
}

int alert_tableFind(const AlertTable *table, AlertRecord *record)
{
    TRACE_ENTER("number=%u", record->number);
    Entry *entry = static_cast<Entry *>(vec_elementAt(table->entries, record->number));
    if (entry == nullptr)
        return TRACE_RETURN("%d", 0);
    record->kind = entry->kind;
    record->level = entry->level;
    record->text = checked_text(entry);
    return TRACE_RETURN("%d", 1);
}
