// Reads back a file that has just been written. The benchmarks compare a reader or writer with
// plain fread() and fwrite() of these bytes.
#ifndef BENCH_FILE_BYTES_H
#define BENCH_FILE_BYTES_H

#include <cstdio>
#include <cstdlib>
#include <vector>

// The bytes from the start of the file to its current position.
inline std::vector<char> bytesOf(FILE *file)
{
    std::vector<char> bytes(static_cast<size_t>(ftell(file)));
    rewind(file);
    if (fread(bytes.data(), 1, bytes.size(), file) != bytes.size())
        abort();
    return bytes;
}

#endif
