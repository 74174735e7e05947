// What a file that has just been written holds, for measuring a reader or writer beside the plain
// fread() and fwrite() of the same bytes.
#ifndef BENCH_FILE_BYTES_H
#define BENCH_FILE_BYTES_H

#include <cstdio>
#include <cstdlib>
#include <vector>

// The bytes from the start of the file to its position.
inline std::vector<char> bytesOf(FILE *file)
{
    std::vector<char> bytes(static_cast<size_t>(ftell(file)));
    rewind(file);
    if (fread(bytes.data(), 1, bytes.size(), file) != bytes.size())
        abort();
    return bytes;
}

#endif
