#define MODULE "common/cmdline"
#include "common/cmdline/cmdline.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/base/exitpath.h"
#include "common/base/memory.h"
#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "common/diagnostics/alert.h"
#include "common/diagnostics/listing.h"
#include "common/diagnostics/qzdebug_options.h"
#include "common/os/osdep_host.h"
#include "common/os/osdep_temp.h"
#include "common/trace/qzdebug.h"

// The format of command files: docs/command-file.md. One pass over the text gives the same result
// as one for each escaped character, in this order, and one for the quotes.
static const char COMMAND_FILE_SUFFIX[] = ".cmd";
static const char ESCAPED_CHARACTERS[] = "\\' ";
static const char QUOTING_CHARACTERS[] = " \t\n\r";
static const char SPECIAL_CHARACTERS[] = "\\' \t\n\r"; // the characters of either set

static const char *element(const Vector *command, uint32_t index)
{
    return static_cast<const char *>(vec_elementAt(command, index));
}

// ---- Running ----------------------------------------------------------------------------------

static int run(const Vector *command)
{
    TRACE_ENTER("driver=\"%s\"", element(command, 0));
    // The caller's command must not be modified.
    Vector *argv = vec_copy_func(command, MODULE, __LINE__);
    std::fflush(stdout);
    std::fflush(stderr);
    const int status = qzdebug_run(element(argv, 0), argv, 0);
    vec_destroy(argv);
    TRACE("Execution returned %d", status);
    TRACE("Returning status: %d", status);
    return TRACE_RETURN("%d", status);
}

static int runDirectly(const Vector *command, const char *text, int echo)
{
    TRACE_ENTER("echo=%d", echo);
    const char *driver = element(command, 0);
    if (echo != 0) {
        std::printf("%s %s\n", driver, text);
        listing_written(); // reports a failure
    }
    TRACE("Executing: %s %s", driver, text);
    return TRACE_RETURN("%d", run(command));
}

// ---- The command file -------------------------------------------------------------------------

// The line for an argument that needs escapes: a new string; null for any other argument. It is not
// interned, because that would keep a second copy of long arguments.
static char *escapedLine(const char *argument)
{
    TRACE_ENTER("argument=\"%s\"", argument);
    if (std::strpbrk(argument, SPECIAL_CHARACTERS) == nullptr)
        return TRACE_RETURN("%s", static_cast<char *>(nullptr));
    const bool quoted = std::strpbrk(argument, QUOTING_CHARACTERS) != nullptr;
    char *line = static_cast<char *>(xmalloc_must(uint64_t{std::strlen(argument)} * 2 + 3));
    char *to = line;
    if (quoted)
        *to++ = '"';
    for (const char *from = argument; *from != '\0'; ++from) {
        if (std::strchr(ESCAPED_CHARACTERS, *from) != nullptr || (quoted && *from == '"'))
            *to++ = '\\';
        *to++ = *from;
    }
    if (quoted)
        *to++ = '"';
    return TRACE_RETURN("%s", line);
}

static void writeLine(FILE *file, const char *argument)
{
    TRACE_ENTER("argument=\"%s\"", argument);
    char *escaped = escapedLine(argument);
    const char *line = escaped != nullptr ? escaped : argument;
    TRACE("Writing option to command file: %s", line);
    std::fputs(line, file);
    std::putc('\n', file);
    std::free(escaped);
}

// Writes the arguments and closes the file. Whether all of them were written.
static bool writeArguments(FILE *file, const Vector *command)
{
    TRACE_ENTER("count=%u", vec_size(command));
    for (uint32_t i = 1; i < vec_size(command); ++i)
        writeLine(file, element(command, i));
    const bool failed = std::ferror(file) != 0;
    const bool closed = std::fclose(file) == 0;
    return TRACE_RETURN("%d", !failed && closed);
}

// Fills the command file `name`. Whether it now holds the arguments; if not, the user has been
// told.
static bool fillCommandFile(const char *name, const Vector *command)
{
    TRACE_ENTER("name=\"%s\"", name);
    TRACE("Command file name: \"%s\"", name);
    // The file is new and empty. Opening it with truncation makes some file systems write it to the
    // disk when it is closed.
    FILE *file = std::fopen(name, "r+");
    if (file == nullptr) {
        TRACE("Could not create command file \"%s\"", name);
        TRACE("qzmcc_spawn could not create a temp file, exiting with status 1");
        alert_print("%s: fatal error: Could not open temporary file", alert_programName());
        return TRACE_RETURN("%d", false);
    }
    if (!writeArguments(file, command)) {
        TRACE("qzmcc_spawn could not write a temp file, exiting with status 1");
        alert_print("%s: fatal error: Could not write temporary file", alert_programName());
        return TRACE_RETURN("%d", false);
    }
    return TRACE_RETURN("%d", true);
}

static int runByCommandFile(const Vector *command, const char *text, int echo)
{
    TRACE_ENTER("echo=%d", echo);
    char *name = osdep_tempFileSuffix(COMMAND_FILE_SUFFIX);
    if (name == nullptr) {
        TRACE("qzmcc_spawn could not get a temp file name, exiting with status 1");
        alert_print("%s: fatal error: Could not create temporary file", alert_programName());
        return TRACE_RETURN("%d", 1);
    }
    const char *driver = element(command, 0);
    const char *fileArgument = cache_concat("@", name);
    const bool filled = fillCommandFile(name, command);
    std::free(name);
    if (!filled)
        return TRACE_RETURN("%d", 1);

    if (echo != 0) {
        std::printf("%s %s [ %s ]\n", driver, fileArgument, text);
        listing_written(); // reports a failure
    }
    TRACE("Executing: %s %s [ %s ]", driver, fileArgument, text);
    Vector *shortened = vec_new(MODULE, __LINE__);
    vec_add(shortened, driver);
    vec_add(shortened, fileArgument);
    const int status = run(shortened);
    vec_destroy(shortened);
    return TRACE_RETURN("%d", status);
}

// ---- The route --------------------------------------------------------------------------------

static bool isTooLong(const char *driver, const char *text)
{
    TRACE_ENTER("driver=\"%s\"", driver);
    const size_t length = std::strlen(driver) + std::strlen(text) + 1;
    if (length <= osdep_maxCommandLine())
        return TRACE_RETURN("%d", false);
    TRACE("Command line length is too long for OS (%u), using command file",
          static_cast<unsigned>(length));
    return TRACE_RETURN("%d", true);
}

static int cmdline_exe(Vector *command, unsigned mode, int echo)
{
    TRACE_ENTER("mode=%u, echo=%d", mode, echo);
#ifndef NDEBUG
    ASSERT_AT(40, mode <= COMMAND_FILE_NEVER);
#endif
    TRACE("Executing driver: \"%s\"", element(command, 0));
    const bool needsText = echo != 0 || mode == COMMAND_FILE_AUTO || gDebugFlags != 0;
    const char *text = needsText ? cache_join(command, 1, " ") : "";
    const bool byFile = mode == COMMAND_FILE_ALWAYS ||
                        (mode == COMMAND_FILE_AUTO && isTooLong(element(command, 0), text));
    const int status =
        byFile ? runByCommandFile(command, text, echo) : runDirectly(command, text, echo);
    return TRACE_RETURN("%d", status);
}

int cmdline_spawn(Vector *command, unsigned mode, int echo)
{
    TRACE_ENTER("command=%p, mode=%u, echo=%d", static_cast<void *>(command), mode, echo);
    if (vec_size(command) == 0) {
        TRACE("no options were found, exiting with status 1");
        alert_print("%s: fatal error: no input files\nprogram terminated.", alert_programName());
        return TRACE_RETURN("%d", 1);
    }
    return TRACE_RETURN("%d", cmdline_exe(command, mode, echo));
}
