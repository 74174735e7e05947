// What the fuzz targets share.
#ifndef FUZZ_SUPPORT_H
#define FUZZ_SUPPORT_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

// Ends the process, with a word of where, unless it holds.
inline void require(bool holds, const char *file = __builtin_FILE(), int line = __builtin_LINE())
{
    if (!holds) {
        std::fprintf(stderr, "%s:%d: does not hold\n", file, line);
        std::abort();
    }
}

// The bytes as a stream; they must outlive it.
FILE *memoryFile(const std::string &bytes);

// A directory of this process, in memory where the system has such a place; removed at its end. A
// target works there by full names: the directory of the process stays what it is, so that
// libFuzzer finds its corpus and leaves its findings where they are looked for.
const std::string &scratchDirectory();

void writeFile(const std::string &path, const std::string &bytes);

// The bytes between the separators; the last of `count` fields takes all that is left.
std::vector<std::string> splitFields(const std::string &bytes, const std::string &separator,
                                     size_t count);

// ---- Strings ----------------------------------------------------------------------------------
//
// Interned strings live to the end of a run, and a target makes millions of runs in one process. So
// the code under test runs without interning, where every builder returns a copy:
//
//     Vector *rows = noting([&] { return selftests_choose(list); });
//     ...
//     freeNoted();                    // what has been made inside noting() and is still there
//
// Only what is a text that fills its allocation is freed; the search for lost memory sees the rest.
// It takes clang's AddressSanitizer. Without it nothing runs but the seeds: strings are interned as
// ever, and stay.

// Returns what it was before.
bool noteStrings(bool on);
void freeNoted();

// Strings are noted in its scope, or (false: for what a target itself does when it is called back)
// are not.
class Noting {
  public:
    explicit Noting(bool on = true) : before_(noteStrings(on)) {}
    ~Noting() { noteStrings(before_); }
    Noting(const Noting &) = delete;
    Noting &operator=(const Noting &) = delete;

  private:
    bool before_;
};

template <class Call> auto noting(Call call)
{
    const Noting guard;
    return call();
}

#endif
