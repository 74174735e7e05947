// A scratch directory with packages, the members that other programs read in them, and archives
// made byte by byte.
#ifndef TESTS_COMMON_DIAGNOSTICS_PACKAGE_ZIP_FIXTURE_H
#define TESTS_COMMON_DIAGNOSTICS_PACKAGE_ZIP_FIXTURE_H

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "common/diagnostics/package_zip.h"

namespace package_zip {

namespace fs = std::filesystem;

using Strings = std::vector<std::string>;

// Runs the steps as a caller does; returns those that failed, in order.
inline Strings append(const fs::path &path, const std::string &member, const fs::path &file)
{
    Strings failed;
    const auto step = [&failed](const char *name, int good) {
        if (!good)
            failed.emplace_back(name);
        return good;
    };
    Package *package = package_claim(path.c_str());
    int open = 0;
    if (package_exists(package)) {
        open = step("open", package_openReader(package));
        if (open)
            step("convert", package_toWriter(package));
    } else {
        open = step("start", package_startWriter(package));
    }
    if (open) {
        step("add", package_addFile(package, member.c_str(), file.c_str()));
        step("finalise", package_finalise(package));
        step("end", package_end(package));
    }
    package_release(package);
    return failed;
}

inline std::string bytes_of(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void put(const fs::path &path, const std::string &bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

inline std::string output_of(const std::string &command)
{
    std::string output;
    FILE *stream = popen((command + " 2>&1").c_str(), "r");
    char buffer[4096];
    for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, stream)) > 0;)
        output.append(buffer, n);
    const int status = pclose(stream);
    return status == 0 ? output : output + "[status " + std::to_string(WEXITSTATUS(status)) + "]";
}

// Python's view: a line "name:size" for every member, and the comment. All contents are checked
// against their sums.
inline std::string listing(const fs::path &path)
{
    return output_of("python3 -c 'import sys,zipfile\n"
                     "z=zipfile.ZipFile(sys.argv[1])\n"
                     "print(\"bad\",z.testzip()) if z.testzip() else None\n"
                     "for i in z.infolist(): print(i.filename,i.file_size,sep=\":\")\n"
                     "if z.comment: print(repr(z.comment))' '" +
                     path.string() + "'");
}

// The result of `action` in a process of its own, 0-255; 1000 + n when signal n killed it.
inline int in_child(const std::function<int()> &body)
{
    const pid_t child = fork();
    if (child == 0)
        _exit(body());
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

class PackageZip : public testing::Test {
  protected:
    void SetUp() override
    {
        char name[] = "/tmp/package_zip_test.XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        root = name;
        path = root / "p.zip";
        file = root / "trace.out";
        put(file, "one\n");
    }
    void TearDown() override { fs::remove_all(root); }

    // The names in the directory.
    std::set<std::string> names() const
    {
        std::set<std::string> found;
        for (const auto &entry : fs::directory_iterator(root))
            found.insert(entry.path().filename());
        return found;
    }

    // Expects that appending to an existing package fails in this way, and that the package stays
    // as it is, without other files beside it.
    void expect_refused(const std::string &bytes, const Strings &failed)
    {
        put(path, bytes);
        EXPECT_EQ(append(path, "m", file), failed);
        EXPECT_TRUE(bytes_of(path) == bytes);
        EXPECT_EQ(names(), (std::set<std::string>{"p.zip", "trace.out"}));
    }

    fs::path root;
    fs::path path; // of the package; not there yet
    fs::path file; // to be added
};

// ---- Archives byte by byte --------------------------------------------------------------------

inline std::string little(uint64_t value, int bytes)
{
    std::string text;
    for (int i = 0; i < bytes; ++i)
        text += static_cast<char>(value >> 8 * i);
    return text;
}

struct Archive {
    struct Member {
        std::string name;
        std::string data; // stored as it is
        uint64_t crc = 0;
        uint64_t flags = 0;
        int64_t offsetLie = 0; // added to what is true
        int64_t sizeLie = 0;
        int64_t commentLie = 0; // length of the entry's comment, which is empty
    };
    std::vector<Member> members;
    std::string comment;
    std::string front;
    bool zip64 = false;
    uint64_t disk = 0;
    int64_t countLie = 0;
    int64_t sizeLie = 0;
    int64_t offsetLie = 0;
    int64_t commentLie = 0;
    int64_t locatorLie = 0;
};

inline uint64_t lied(uint64_t value, int64_t lie)
{
    return value + static_cast<uint64_t>(lie);
}

inline std::string fields_of(const Archive::Member &member)
{
    const uint64_t size = lied(member.data.size(), member.sizeLie);
    return little(20, 2) + little(member.flags, 2) + little(0, 2) + little(0, 2) + little(0x21, 2) +
           little(member.crc, 4) + little(size, 4) + little(size, 4) +
           little(member.name.size(), 2) + little(0, 2);
}

inline std::string ends_of(const Archive &archive, uint64_t offset, uint64_t size)
{
    const uint64_t count = lied(archive.members.size(), archive.countLie);
    const uint64_t saidSize = lied(size, archive.sizeLie);
    const uint64_t saidOffset = lied(offset, archive.offsetLie);
    std::string text;
    if (archive.zip64)
        text = "PK\6\6" + little(44, 8) + little(45, 2) + little(45, 2) + little(archive.disk, 4) +
               little(0, 4) + little(count, 8) + little(count, 8) + little(saidSize, 8) +
               little(saidOffset, 8) + "PK\6\7" + little(0, 4) +
               little(lied(offset + size, archive.locatorLie), 8) + little(1, 4);
    const uint64_t all = archive.zip64 ? ~uint64_t{0} : 0;
    return text + "PK\5\6" + little(archive.zip64 ? 0 : archive.disk, 2) + little(0, 2) +
           little(count | all, 2) + little(count | all, 2) + little(saidSize | all, 4) +
           little(saidOffset | all, 4) +
           little(lied(archive.comment.size(), archive.commentLie), 2) + archive.comment;
}

inline std::string bytes_of(const Archive &archive)
{
    std::string text;
    std::string entries;
    for (const auto &member : archive.members) {
        entries += "PK\1\2" + little(20, 2) + fields_of(member) +
                   little(static_cast<uint64_t>(member.commentLie), 2) + little(0, 8) +
                   little(lied(text.size(), member.offsetLie), 4) + member.name;
        text += "PK\3\4" + fields_of(member) + member.name + member.data;
    }
    return archive.front + text + entries + ends_of(archive, text.size(), entries.size());
}

// Two members, the sums of their contents right.
inline Archive two_members()
{
    Archive archive;
    archive.members = {{"a", "aaa", 0xf007732d, 0, 0, 0, 0}, {"b", "", 0, 0, 0, 0, 0}};
    return archive;
}

} // namespace package_zip

#endif
