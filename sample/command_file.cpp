#include "sample/command_file.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {
// The state of reading one command line.
struct Expansion {
    const char *program;         // for messages
    size_t files;                // read so far
    size_t bytes;                // in them
    CommandArguments *arguments; // what is being filled
};
} // namespace

static void *checked(void *memory)
{
    if (memory == nullptr) {
        fputs("out of memory\n", stderr);
        exit(1);
    }
    return memory;
}

// Appends a string, which then belongs to the list.
static void appendOwned(CommandArguments *arguments, char *text)
{
    if (arguments->count + 1 >= arguments->capacity) {
        arguments->capacity = arguments->capacity == 0 ? 64 : arguments->capacity * 2;
        arguments->items = static_cast<char **>(
            checked(realloc(arguments->items, arguments->capacity * sizeof(char *))));
    }
    arguments->items[arguments->count++] = text;
    arguments->items[arguments->count] = nullptr;
}

void commandfile_append(CommandArguments *arguments, const char *text)
{
    appendOwned(arguments, static_cast<char *>(checked(strdup(text))));
}

void commandfile_free(CommandArguments *arguments)
{
    for (size_t i = 0; i < arguments->count; i++)
        free(arguments->items[i]);
    free(arguments->items);
    *arguments = {};
}

static int isSpace(char c)
{
    return c != 0 && strchr(" \t\n\r\f\v", c) != nullptr;
}

// Writes the argument that begins at `text` to `out` without its quoting; returns what follows it.
static const char *takeArgument(const char *text, char *out)
{
    char quote = 0;
    for (; *text != 0 && (quote != 0 || !isSpace(*text)); text++) {
        if (*text == '\\' && text[1] != 0)
            *out++ = *++text;
        else if (quote == 0 && (*text == '\'' || *text == '"'))
            quote = *text;
        else if (quote != 0 && *text == quote)
            quote = 0;
        else
            *out++ = *text;
    }
    *out = 0;
    return text;
}

// Appends the text's arguments, "@file" ones unchanged.
static void split(const char *text, CommandArguments *arguments)
{
    // No argument is longer than the rest of the text.
    char *buffer = static_cast<char *>(checked(malloc(strlen(text) + 1)));
    for (;;) {
        while (isSpace(*text))
            text++;
        if (*text == 0)
            break;
        text = takeArgument(text, buffer);
        commandfile_append(arguments, buffer);
    }
    free(buffer);
}

static char *refuse(const Expansion *run, const char *name, const char *reason)
{
    fprintf(stderr, "%s: error: command file \"%s\": %s\n", run->program, name, reason);
    return nullptr;
}

// Reads the open file to its end. `name` is for messages.
static char *readStream(Expansion *run, FILE *file, const char *name)
{
    size_t length = 0;
    size_t capacity = 1 << 16;
    char *text = static_cast<char *>(checked(malloc(capacity)));
    for (size_t got; (got = fread(text + length, 1, capacity - length - 1, file)) > 0;) {
        length += got;
        run->bytes += got;
        if (run->bytes > COMMANDFILE_MAX_BYTES) {
            free(text);
            return refuse(run, name, "too large");
        }
        if (length + 1 == capacity)
            text = static_cast<char *>(checked(realloc(text, capacity *= 2)));
    }
    text[length] = 0;
    const char *reason = ferror(file)             ? strerror(errno)
                         : strlen(text) != length ? "holds a NUL character"
                                                  : nullptr;
    if (reason == nullptr)
        return text;
    free(text);
    return refuse(run, name, reason);
}

// Returns the file's text, the caller's to free, or null after a message.
static char *readFile(Expansion *run, const char *name)
{
    FILE *file = fopen(name, "rb");
    if (file == nullptr)
        return refuse(run, name, strerror(errno));
    char *text = readStream(run, file, name);
    fclose(file);
    return text;
}

static int expandFile(Expansion *run, const char *name, int depth);

static int expandArgument(Expansion *run, const char *argument, int depth)
{
    if (argument[0] == '@' && argument[1] != 0)
        return expandFile(run, argument + 1, depth + 1);
    commandfile_append(run->arguments, argument);
    return 1;
}

static int expandFile(Expansion *run, const char *name, int depth)
{
    if (depth > COMMANDFILE_MAX_DEPTH || run->files++ == COMMANDFILE_MAX_FILES) {
        refuse(run, name, "command files nest too deep or are too many");
        return 0;
    }
    char *text = readFile(run, name);
    if (text == nullptr)
        return 0;
    CommandArguments inner = {};
    split(text, &inner);
    free(text);
    int ok = 1;
    for (size_t i = 0; ok && i < inner.count; i++)
        ok = expandArgument(run, inner.items[i], depth);
    commandfile_free(&inner);
    return ok;
}

int commandfile_expand(int argc, char *const *argv, CommandArguments *arguments)
{
    Expansion run = {argc > 0 ? argv[0] : "sample", 0, 0, arguments};
    commandfile_append(arguments, run.program);
    for (int i = 1; i < argc; i++)
        if (!expandArgument(&run, argv[i], 0))
            return 0;
    return 1;
}
