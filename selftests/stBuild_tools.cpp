#define MODULE "selftests/stBuild_tools"
#include <cstdio>
#include <cstring>

#include "common/base/memory.h"
#include "common/base/stringcache.h"
#include "common/base/vector.h"
#include "common/os/osdep_file.h"
#include "common/os/osdep_process.h"
#include "common/os/osdep_temp.h"
#include "common/suite/tsuite.h"
#include "common/trace/qzdebug.h"
#include "selftests/stBuild_internal.h"

// Marks the place where output was cut off.
static constexpr char CUT[] = "\n(the output goes on)\n";

// ---- Sources ----------------------------------------------------------------------------------

namespace {
struct SourceFile {
    const char *suffix;
    const char *text;
    const char *path;  // interned; null until it is written
    const char *lines; // each after its number, interned; null until they are asked for
};
} // namespace

static SourceFile s_sources[] = {
    {".sx", "#include <qz.inc>\n\tpsect foo\n\tbar:\n\t\tnop\n\tend bar\n", nullptr, nullptr},
    {".c", "#include <qz.h>\n#include <stdio.h>\nint\nmain(void) {\n}\n\n", nullptr, nullptr},
};

static bool writeText(const char *path, const char *text)
{
    TRACE_ENTER("path=\"%s\"", path);
    FILE *stream = path == nullptr ? nullptr : fopen(path, "w");
    bool written = false;
    if (stream != nullptr) {
        written = fputs(text, stream) >= 0;
        written = fclose(stream) == 0 && written;
    }
    return TRACE_RETURN("%d", written);
}

const char *stBuild_sourcePath(BuildSource source)
{
    TRACE_ENTER("source=%u", source);
    SourceFile *file = &s_sources[source];
    if (!osdep_fileExists(file->path)) {
        file->path = cache_adopt(osdep_tempFileSuffix(file->suffix));
        if (!writeText(file->path, file->text))
            file->path = nullptr;
    }
    return TRACE_RETURN("\"%s\"", file->path);
}

static const char *numbered(const char *text)
{
    TRACE_ENTER("text=\"%s\"", text);
    const char *lines = "";
    int number = 0;
    for (const char *at = text; *at != '\0';) {
        const char *next = strchr(at, '\n') + 1; // every line of a source has an end
        const char *line = cache_substring(at, static_cast<size_t>(next - at));
        lines = cache_concat(lines, cache_sprintf("%d: %s", ++number, line));
        at = next;
    }
    return TRACE_RETURN("\"%s\"", lines);
}

const char *stBuild_sourceLines(BuildSource source)
{
    TRACE_ENTER("source=%u", source);
    SourceFile *file = &s_sources[source];
    if (file->lines == nullptr)
        file->lines = numbered(file->text);
    return TRACE_RETURN("\"%s\"", file->lines);
}

// ---- Running tools ----------------------------------------------------------------------------

// Reports are text: a NUL, which a string cannot contain, shows as a blank.
static void replaceNuls(char *text, size_t length)
{
    for (size_t i = 0; i < length; ++i) {
        if (text[i] == '\0')
            text[i] = ' ';
    }
}

// The rest of the stream up to the limit.
static char *readAll(FILE *stream)
{
    TRACE_ENTER("stream=%p", static_cast<void *>(stream));
    size_t capacity = 4096;
    size_t length = 0;
    auto *text = static_cast<char *>(xmalloc_must(capacity + 1));
    while (true) {
        length += fread(text + length, 1, capacity - length, stream);
        if (length < capacity || capacity >= BUILD_OUTPUT_LIMIT)
            break;
        text = static_cast<char *>(xrealloc_must(text, length, 2 * capacity + 1));
        capacity *= 2;
    }
    replaceNuls(text, length);
    text[length] = '\0';
    if (length == capacity && getc(stream) != EOF)
        text = xstrcat_free(text, CUT);
    return static_cast<char *>(TRACE_RETURN("%p", static_cast<void *>(text)));
}

BuildRun stBuild_run(Vector *command)
{
    TRACE_ENTER("command=%p", static_cast<void *>(command));
    BuildRun run = {-1, nullptr};
    vec_add(command, nullptr);
    FILE *stream = osdep_popen_vecCommand(command);
    if (stream != nullptr) {
        run.output = readAll(stream);
        run.status = osdep_pclose(stream);
    } else {
        osdep_restoreOutput();
    }
    return run;
}

char *stBuild_readFile(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    char *text = nullptr;
    FILE *stream = osdep_openRegularFile(path, nullptr);
    if (stream != nullptr) {
        text = readAll(stream);
        fclose(stream);
    }
    return text;
}

void stBuild_fail(const char *file, uint32_t line, TestCase *test, const char *message,
                  const char *output)
{
    TRACE_ENTER("message=\"%s\"", message);
    if (strlen(output) > BUILD_RECORD_LIMIT)
        output = cache_sprintf("%.*s%s", static_cast<int>(BUILD_RECORD_LIMIT), output, CUT);
    tsuite_addTestFailFL(file, line, test, "build test", message, output);
}
