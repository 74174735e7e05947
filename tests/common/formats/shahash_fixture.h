// The fixture of the tests of digests, hash lists and manifests.
#ifndef TESTS_COMMON_FORMATS_SHAHASH_FIXTURE_H
#define TESTS_COMMON_FORMATS_SHAHASH_FIXTURE_H

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/base/vector.h"
#include "common/formats/shahash.h"
#include "common/os/osdep_temp.h"

namespace shahash_test {

namespace fs = std::filesystem;

// Digests of "abc", of "" and of "a".
inline const std::string digestAbc =
    "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
inline const std::string digestEmpty =
    "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
inline const std::string digestA =
    "ca978112ca1bbdcafac231b39a23dc4da786eff8147c4e72b9807785afee48bb";

// A regular file that everybody may open and nobody can read from its start.
inline const char *const unreadable = "/proc/self/mem";
inline const char *const unreadableMessage = "^!! Cannot open file \"/proc/self/mem\"\n$";

// Name and digest.
using Entry = std::pair<std::string, std::string>;
using Entries = std::vector<Entry>;

inline Entries contents(Vector *files)
{
    Entries entries;
    for (const FileEntry *file : vec_each<const FileEntry>(files))
        entries.emplace_back(file->name, file->digest);
    return entries;
}

inline Entries sorted(Entries entries)
{
    std::sort(entries.begin(), entries.end());
    return entries;
}

// Works in a new directory that everybody may enter.
class ShaHash : public testing::Test {
  protected:
    void SetUp() override
    {
        char name[] = "/tmp/shahash_testXXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        root = fs::canonical(name);
        ASSERT_EQ(chmod(name, 0755), 0);
        fs::current_path(root);
        fs::create_directory("tree");
    }

    void TearDown() override
    {
        fs::current_path("/");
        osdep_removeTree(root.c_str());
    }

    static void put(const std::string &name, const std::string &text)
    {
        if (fs::path(name).has_parent_path())
            fs::create_directories(fs::path(name).parent_path());
        std::ofstream(name, std::ios::binary) << text;
    }

    static std::string get(const std::string &name)
    {
        std::ifstream file(name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    // For the body of a death test: root may read everything, so it changes the user.
    static void becomeNobody()
    {
        if (geteuid() == 0 && setresuid(65534, 65534, 65534) != 0)
            _exit(99);
    }

    fs::path root;
};

} // namespace shahash_test

#endif
