// The line reader over any bytes, which come in pieces of any size and may end in an error. The
// lines are those between the line feeds, complete and in order, up to the error.
//
// The first byte is the size of the pieces; the second is odd if reading ends in an error. In the
// rest, two bytes 0xFF n mean n + 1 times 16 letters, so that a short input has long lines.
#include "common/text/line_reader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "fuzz/support.h"

enum : size_t { HEADER = 2, RUN = 16, LONGEST = 32768 };
enum : uint8_t { RUN_MARK = 0xFF };

struct Source {
    std::string bytes;
    size_t at;
    size_t piece;
    bool fails;
};

static ssize_t readPiece(void *cookie, char *buffer, size_t size)
{
    auto *source = static_cast<Source *>(cookie);
    const size_t length = std::min({size, source->piece, source->bytes.size() - source->at});
    if (length == 0 && source->fails) {
        errno = EIO;
        return -1;
    }
    std::memcpy(buffer, source->bytes.data() + source->at, length);
    source->at += length;
    return static_cast<ssize_t>(length);
}

static Source makeSource(const uint8_t *data, size_t size)
{
    Source source = {{}, 0, size_t{data[0]} * RUN + 1, (data[1] & 1) != 0};
    for (size_t i = HEADER; i < size && source.bytes.size() < LONGEST; ++i) {
        if (data[i] == RUN_MARK && i + 1 < size)
            source.bytes.append((data[++i] + size_t{1}) * RUN, 'x');
        else
            source.bytes += static_cast<char>(data[i]);
    }
    return source;
}

static void checkLines(LineReader *reader, const Source &source)
{
    const std::string &bytes = source.bytes;
    size_t at = 0;
    while (const char *line = lines_next(reader)) {
        require(at < bytes.size());
        const size_t end = std::min(bytes.find('\n', at), bytes.size());
        require(reader->length == end - at);
        require(std::memcmp(line, bytes.data() + at, reader->length) == 0);
        require(line[reader->length] == '\0');
        at = end + 1;
    }
    require(lines_next(reader) == nullptr);
    require(source.fails || at >= bytes.size());
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < HEADER)
        return 0;
    Source source = makeSource(data, size);
    FILE *stream = fopencookie(&source, "rb", {readPiece, nullptr, nullptr, nullptr});
    require(stream != nullptr);
    LineReader reader;
    lines_start(&reader, stream);
    checkLines(&reader, source);
    require(lines_finish(&reader) == !source.fails);
    std::fclose(stream);
    return 0;
}
