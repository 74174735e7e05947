// The functions that the fuzz targets share.
#ifndef FUZZ_SUPPORT_H
#define FUZZ_SUPPORT_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

// Ends the process, naming the place, if the condition does not hold.
inline void require(bool holds, const char *file = __builtin_FILE(), int line = __builtin_LINE())
{
    if (!holds) {
        std::fprintf(stderr, "%s:%d: does not hold\n", file, line);
        std::abort();
    }
}

// The bytes as a stream; they must outlive it.
FILE *memoryFile(const std::string &bytes);

// A directory of this process, in memory if the system has such a place; removed at its end. A
// target uses full names in it and does not change the current directory, so that libFuzzer finds
// its corpus and leaves its findings where the user looks for them.
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
// Only texts that fill their allocation are freed; the leak check sees the rest. This takes clang's
// AddressSanitizer. Without it only the seeds run: strings are interned as usual, and stay.

// Returns the value before.
bool noteStrings(bool on);
void freeNoted();

// Strings are noted in its scope, or, with false, not noted, for the target's own work in a
// callback.
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
