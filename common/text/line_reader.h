// Reading a text file line by line, with lines of any length up to a limit.
//
//     LineReader reader;
//     lines_start(&reader, stream);
//     while (const char *line = lines_next(&reader))
//         ...
//     if (!lines_finish(&reader)) ...          // it ended early
//
// A line is everything up to a line feed or the end of the input; the line feed is taken off, a
// carriage return is kept. A NUL inside a line ends its text for the caller. A null reader or
// stream is a broken contract and ends the run.
#ifndef COMMON_TEXT_LINE_READER_H
#define COMMON_TEXT_LINE_READER_H

#include <cstddef>
#include <cstdio>

// The longest line in characters: far longer than any real one, and a bound on the memory that a
// file without line ends can take.
inline constexpr size_t LINE_LIMIT = 16U << 20;

struct LineReader {
    FILE *stream;    // the caller's; it is read further than the lines given out
    char *buffer;    // owned, or null
    size_t capacity; // of `buffer`
    size_t start;    // where the next line begins in `buffer`
    size_t end;      // of what has been read
    size_t length;   // of the last line given out, including anything after a NUL
    bool ended;      // the input is read to its end
    bool failed;     // a line beyond the limit, or an error of the stream
};

// Prepares the reading of `stream`, which stays the caller's.
void lines_start(LineReader *reader, FILE *stream);

// The next line, valid until the next call; null at the end and after a failure.
const char *lines_next(LineReader *reader);

// Frees what the reader holds. True when nothing has failed.
bool lines_finish(LineReader *reader);

#endif
