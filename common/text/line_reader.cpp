#define MODULE "common/line_reader"
#include "common/text/line_reader.h"

#include <cstdlib>
#include <cstring>

#include "common/base/exitpath.h"
#include "common/base/memory.h"
#include "common/trace/qzdebug.h"

// The input is read in blocks of this size at least. Most inputs are a few lines.
static constexpr size_t FIRST_CAPACITY = 4096;

void lines_start(LineReader *reader, FILE *stream)
{
    TRACE_ENTER("stream=%p", static_cast<void *>(stream));
    ASSERT_AT(10, reader != NULL);
    ASSERT_AT(11, stream != NULL);
    *reader = {};
    reader->stream = stream;
}

// Makes room for more input after the remaining content of the buffer, and for a final NUL.
static void makeRoom(LineReader *reader)
{
    if (reader->start != 0) {
        reader->end -= reader->start;
        std::memmove(reader->buffer, reader->buffer + reader->start, reader->end);
        reader->start = 0;
    }
    if (reader->end + 1 < reader->capacity)
        return;
    const size_t capacity = reader->capacity == 0 ? FIRST_CAPACITY : 2 * reader->capacity;
    reader->buffer = static_cast<char *>(xrealloc_must(reader->buffer, reader->end, capacity));
    reader->capacity = capacity;
}

static void readMore(LineReader *reader)
{
    makeRoom(reader);
    const size_t room = reader->capacity - 1 - reader->end;
    const size_t added = std::fread(reader->buffer + reader->end, 1, room, reader->stream);
    reader->end += added;
    if (added < room) {
        reader->ended = true;
        reader->failed = std::ferror(reader->stream) != 0;
    }
}

// Takes the `length` characters of the next line out of the buffer and drops `skipped` more. Null
// when the line is too long.
static const char *takeLine(LineReader *reader, size_t length, size_t skipped)
{
    reader->failed = length > LINE_LIMIT;
    if (reader->failed)
        return nullptr;
    char *line = reader->buffer + reader->start;
    line[length] = '\0';
    reader->length = length;
    reader->start += length + skipped;
    return line;
}

const char *lines_next(LineReader *reader)
{
    ASSERT_AT(20, reader != NULL);
    size_t searched = 0; // characters of the line known to hold no line feed
    while (!reader->failed) {
        const size_t held = reader->end - reader->start;
        char *line = reader->buffer + reader->start;
        const void *feed =
            held == searched ? nullptr : std::memchr(line + searched, '\n', held - searched);
        if (feed != nullptr)
            return takeLine(reader, static_cast<size_t>(static_cast<const char *>(feed) - line), 1);
        if (reader->ended)
            return held == 0 ? nullptr : takeLine(reader, held, 0);
        searched = held;
        if (searched > LINE_LIMIT)
            reader->failed = true;
        else
            readMore(reader);
    }
    return nullptr;
}

bool lines_finish(LineReader *reader)
{
    TRACE_ENTER();
    ASSERT_AT(30, reader != NULL);
    std::free(reader->buffer);
    reader->buffer = nullptr;
    return TRACE_RETURN("%d", !reader->failed);
}
