// Shared by the sources of the build tests: the files that are compiled, recording failures, and
// running tools with their output captured.
#ifndef SELFTESTS_STBUILD_INTERNAL_H
#define SELFTESTS_STBUILD_INTERNAL_H

#include <cstddef>
#include <cstdint>

struct TestCase;
struct Vector;

// The limit on reading a tool's output or a file that it wrote; and the limit on the part kept for
// the reports, once for every failed case. The text says where it was cut off.
inline constexpr size_t BUILD_OUTPUT_LIMIT = 16U << 20;
inline constexpr size_t BUILD_RECORD_LIMIT = 256U << 10;

enum BuildSource : uint32_t {
    BUILD_SOURCE_ASSEMBLER,
    BUILD_SOURCE_C,
};

// The path of a source file, which is written when it does not exist; interned. Null when it cannot
// be written.
const char *stBuild_sourcePath(BuildSource source);

// The lines of a source, each after its number, interned.
const char *stBuild_sourceLines(BuildSource source);

// The result of a tool that has run to its end: the status and all of its output, which is the
// caller's to free().
struct BuildRun {
    int status;
    char *output; // null: the tool could not be run
};

// Runs a command, given as a vector of its words, which is destroyed.
BuildRun stBuild_run(Vector *command);

// The content of a file as a string, the caller's to free(); null when it cannot be read.
char *stBuild_readFile(const char *path);

// Records a failure of a build test.
void stBuild_fail(const char *file, uint32_t line, TestCase *test, const char *message,
                  const char *output);
#define BUILD_FAIL(test, message, output) stBuild_fail(MODULE, __LINE__, test, message, output)

#endif
