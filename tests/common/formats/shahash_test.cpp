// Digests of files, entries, and the walk over a tree.
#include <cstdio>
#include <cstring>

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "common/os/osdep_directory.h"
#include "common/text/osdep_path.h"
#include "tests/common/formats/shahash_fixture.h"

using namespace shahash_test;

namespace {

Entries walk(const char *dir, const char *prefix, uint32_t style = OSFLAG_POSIX)
{
    Vector *files = vec_new("test", 1);
    process_dir(style, files, dir, prefix);
    Entries entries = sorted(contents(files));
    shahash_freeEntries(files);
    return entries;
}

Entries walkTree()
{
    return walk("tree", ".");
}

// Leaves the process no descriptors beyond `count`.
class DescriptorLimit {
  public:
    explicit DescriptorLimit(rlim_t count)
    {
        getrlimit(RLIMIT_NOFILE, &old_);
        const rlimit limit = {count, old_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &old_); }

  private:
    rlimit old_;
};

// Makes a directory in a directory in a directory ..., and a file in the last.
void makeDeep(const fs::path &top, const char *name, int levels)
{
    const fs::path back = fs::current_path();
    fs::current_path(top);
    for (int i = 0; i < levels; ++i) {
        ASSERT_EQ(mkdir(name, 0755), 0);
        ASSERT_EQ(chdir(name), 0);
    }
    std::ofstream("file") << "abc";
    fs::current_path(back);
}

} // namespace

// ---- Digests of files -------------------------------------------------------------------------

TEST_F(ShaHash, DigestsAFile)
{
    put("empty", "");
    put("abc", "abc");
    put("million", std::string(1000000, 'a'));
    EXPECT_EQ(sha256_path("empty"), digestEmpty);
    EXPECT_EQ(sha256_path("abc"), digestAbc);
    EXPECT_STREQ(sha256_path("million"),
                 "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
    EXPECT_STREQ(sha1_path("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
}

TEST_F(ShaHash, DigestsFilesAroundTheSizeOfABlock)
{
    const std::pair<size_t, const char *> expected[] = {
        {16383, "d0f49ce40ce0b9625cb8bc972d093cb34b7a20f85e99f58cf0f38eddfbb15786"},
        {16384, "1536c422c31cc98834759d7085cda394a3510a03d78188248986a6b1a7207d03"},
        {16385, "39061532d423f2d385027b9d40fc07e2bedf7bf3151e8f8bdd5ff005cd5136d1"},
        {32768, "427965f49a857174e308658227325dbd23ff4eccbe399d5ad4817dda3ec79f87"},
    };
    for (const auto &[size, digest] : expected) {
        put("file", std::string(size, 'x'));
        EXPECT_STREQ(sha256_path("file"), digest) << size;
    }
}

TEST_F(ShaHash, DigestsTheRestOfAStream)
{
    put("file", "12abc");
    FILE *file = fopen("file", "rb");
    ASSERT_EQ(fgetc(file), '1');
    ASSERT_EQ(fgetc(file), '2');
    uint8_t digest[SHA256_SIZE];
    EXPECT_TRUE(sha256_file(file, digest));
    fclose(file);
    EXPECT_EQ(digest[0], 0xba);
    EXPECT_EQ(digest[31], 0xad);
}

TEST_F(ShaHash, AReadErrorIsNoDigest)
{
    FILE *directory = fopen("tree", "rb");
    ASSERT_NE(directory, nullptr);
    uint8_t digest[SHA256_SIZE];
    EXPECT_FALSE(sha256_file(directory, digest));
    rewind(directory);
    EXPECT_FALSE(sha1_file(directory, digest));
    fclose(directory);
}

TEST_F(ShaHash, WhatCannotBeReadEndsTheRun)
{
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    EXPECT_EXIT(sha256_path("none"), testing::ExitedWithCode(1),
                "^!! Cannot open file \"none\"\n$");
    EXPECT_EXIT(sha1_path("none"), testing::ExitedWithCode(1), "^!! Cannot open file \"none\"\n$");
    EXPECT_EXIT(sha256_path("tree"), testing::ExitedWithCode(1),
                "^!! Cannot open file \"tree\"\n$");
    EXPECT_EXIT(sha256_path("pipe"), testing::ExitedWithCode(1),
                "^!! Cannot open file \"pipe\"\n$");
    EXPECT_EXIT(sha256_path(unreadable), testing::ExitedWithCode(1), unreadableMessage);
}

// ---- Entries ----------------------------------------------------------------------------------

TEST_F(ShaHash, AFileMatchesItsDigestOnly)
{
    put("abc", "abc");
    EXPECT_TRUE(shahash_checkFile(digestAbc.c_str(), "abc"));
    EXPECT_FALSE(shahash_checkFile(digestEmpty.c_str(), "abc"));
    EXPECT_FALSE(shahash_checkFile("BA7816BF", "abc"));
    EXPECT_FALSE(shahash_checkFile("", "abc"));
    EXPECT_FALSE(shahash_checkFile(nullptr, "abc"));
    EXPECT_FALSE(shahash_checkFile(digestAbc.c_str(), "none"));
    EXPECT_FALSE(shahash_checkFile(digestAbc.c_str(), nullptr));
}

TEST_F(ShaHash, WhatIsNoFileMatchesNothingAndIsNotOpened)
{
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    EXPECT_FALSE(shahash_checkFile(digestEmpty.c_str(), "pipe"));
    EXPECT_FALSE(shahash_checkFile(digestEmpty.c_str(), "/dev/zero"));
    EXPECT_FALSE(shahash_checkFile(digestEmpty.c_str(), "/dev/null"));
    EXPECT_FALSE(shahash_checkFile(digestEmpty.c_str(), "tree"));
}

TEST_F(ShaHash, EveryEntryMustMatch)
{
    put("abc", "abc");
    put("a", "a");
    FileEntry abc = {"abc", digestAbc.c_str()};
    FileEntry a = {"a", digestA.c_str()};
    FileEntry bad[] = {{"abc", digestA.c_str()},
                       {"none", digestA.c_str()},
                       {"", digestA.c_str()},
                       {nullptr, digestA.c_str()},
                       {"abc", ""},
                       {"abc", nullptr}};
    Vector *entries = vec_new("test", 1);
    EXPECT_EQ(shahash_checkEntries(entries), 1);
    vec_add(entries, &abc);
    vec_add(entries, &a);
    EXPECT_EQ(shahash_checkEntries(entries), 1);
    for (FileEntry &entry : bad) {
        vec_insert(entries, &entry, 1);
        EXPECT_EQ(shahash_checkEntries(entries), 0);
        vec_removeAt(entries, 1);
    }
    vec_add(entries, nullptr);
    EXPECT_EQ(shahash_checkEntries(entries), 0);
    vec_destroy(entries);
    EXPECT_EQ(shahash_checkEntries(nullptr), 0);
}

TEST_F(ShaHash, EntriesBehindAMismatchAreStillDigested)
{
    FileEntry missing = {"none", digestAbc.c_str()};
    FileEntry last = {unreadable, digestAbc.c_str()};
    Vector *entries = vec_new("test", 1);
    vec_add(entries, &missing);
    vec_add(entries, &last);
    EXPECT_EXIT(shahash_checkEntries(entries), testing::ExitedWithCode(1), unreadableMessage);
    vec_destroy(entries);
}

// ---- The walk ---------------------------------------------------------------------------------

TEST_F(ShaHash, WalksIntoDirectories)
{
    put("tree/a", "a");
    put("tree/sub/abc", "abc");
    put("tree/sub/sub/empty", "");
    fs::create_directory("tree/nothing");
    EXPECT_EQ(
        walkTree(),
        (Entries{{"./a", digestA}, {"./sub/abc", digestAbc}, {"./sub/sub/empty", digestEmpty}}));
}

TEST_F(ShaHash, ListsInTheOrderOfTheSystem)
{
    for (int i = 0; i < 50; ++i)
        put("tree/file" + std::to_string(i * 7919 % 50), "");
    Vector *names = osdep_readDirectory("tree");
    Entries expected;
    for (const char *name : vec_each<const char>(names))
        expected.emplace_back(std::string("p/") + name, digestEmpty);
    osdep_freeNames(names);
    Vector *files = vec_new("test", 1);
    process_dir(OSFLAG_POSIX, files, "tree", "p");
    EXPECT_EQ(contents(files), expected);
    shahash_freeEntries(files);
}

TEST_F(ShaHash, AddsToWhatIsThere)
{
    put("tree/a", "a");
    FileEntry first = {"first", ""};
    Vector *files = vec_new("test", 1);
    vec_add(files, &first);
    process_dir(OSFLAG_POSIX, files, "tree", ".");
    EXPECT_EQ(contents(files), (Entries{{"first", ""}, {"./a", digestA}}));
    vec_removeAt(files, 0);
    shahash_freeEntries(files);
}

TEST_F(ShaHash, JoinsWithOneSeparator)
{
    put("tree/sub/a", "a");
    const Entries inTree = {{"tree/sub/a", digestA}};
    EXPECT_EQ(walk("tree", "tree"), inTree);
    EXPECT_EQ(walk("tree/", "tree/"), inTree);
    EXPECT_EQ(walk("tree", "/"), (Entries{{"/sub/a", digestA}}));
    EXPECT_EQ(walk("tree", ""), (Entries{{"sub/a", digestA}}));
    EXPECT_EQ(walk("tree", nullptr), (Entries{{"sub/a", digestA}}));
}

TEST_F(ShaHash, TheBackslashStyleChangesTheListedNamesOnly)
{
    put("tree/sub/a", "a");
    EXPECT_EQ(walk("tree", ".", OSFLAG_WINDOWS), (Entries{{".\\sub\\a", digestA}}));
    EXPECT_EQ(walk("tree", ".\\", OSFLAG_WINDOWS), (Entries{{".\\sub\\a", digestA}}));
    EXPECT_EQ(walk("tree", ".", OSFLAG_WINDOWS | OSFLAG_POSIX | 1U),
              (Entries{{".\\sub\\a", digestA}}));
}

TEST_F(ShaHash, ADirectoryThatCannotBeOpenedAddsNothing)
{
    put("file", "a");
    EXPECT_EQ(walk("none", "."), Entries{});
    EXPECT_EQ(walk("file", "."), Entries{});
    EXPECT_EQ(walk("", "."), Entries{});
}

TEST_F(ShaHash, AnUnreadableDirectoryBelowAddsNothing)
{
    put("tree/locked/a", "a");
    put("tree/abc", "abc");
    ASSERT_EQ(chmod("tree/locked", 0), 0);
    EXPECT_EXIT(
        {
            becomeNobody();
            _exit(walkTree() == Entries{{"./abc", digestAbc}} ? 0 : 1);
        },
        testing::ExitedWithCode(0), "^$");
}

TEST_F(ShaHash, NullArgumentsOfAWalkAreBrokenContracts)
{
    Vector *files = vec_new("test", 1);
    EXPECT_EXIT(process_dir(0, nullptr, "tree", "."), testing::ExitedWithCode(1),
                "^Assertion failed - files != NULL \\(common/shahash, line 10\\)\n$");
    EXPECT_EXIT(process_dir(0, files, nullptr, "."), testing::ExitedWithCode(1),
                "^Assertion failed - dir != NULL \\(common/shahash, line 11\\)\n$");
    vec_destroy(files);
}

TEST_F(ShaHash, NullArgumentsOfADigestAreAFailure)
{
    uint8_t digest[SHA256_SIZE];
    EXPECT_FALSE(sha256_file(nullptr, digest));
    EXPECT_FALSE(sha1_file(nullptr, digest));
    EXPECT_FALSE(sha256_file(stdin, nullptr));
    EXPECT_FALSE(sha1_file(stdin, nullptr));
}

TEST_F(ShaHash, AnUnreadableFileEndsTheRun)
{
    put("tree/secret", "abc");
    ASSERT_EQ(chmod("tree/secret", 0), 0);
    EXPECT_EXIT(
        {
            becomeNobody();
            walkTree();
        },
        testing::ExitedWithCode(1), "^!! Cannot open file \"tree/secret\"\n$");
}

TEST_F(ShaHash, NamesAreListedAsTheyAre)
{
    const std::string names[] = {" two  words ",        "*star",
                                 "\xff\xfe latin \xe4", "back\\slash",
                                 "tab\tand\rreturn",    "line\nend"};
    Entries expected;
    for (const std::string &name : names) {
        put("tree/" + name, "a");
        expected.emplace_back("./" + name, digestA);
    }
    EXPECT_EQ(walkTree(), sorted(expected));
}

TEST_F(ShaHash, PipesSocketsAndDevicesAreLeftAlone)
{
    ASSERT_EQ(mkfifo("tree/pipe", 0600), 0);
    const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "tree/socket");
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    fs::create_symlink("pipe", "tree/to_pipe");
    fs::create_symlink("/dev/zero", "tree/to_zero");
    put("tree/a", "a");
    EXPECT_EQ(walkTree(), (Entries{{"./a", digestA}}));
    close(listener);
}

// ---- Symbolic links ---------------------------------------------------------------------------

TEST_F(ShaHash, ALinkToAFileIsDigested)
{
    put("abc", "abc");
    fs::create_symlink("../abc", "tree/link");
    EXPECT_EQ(walkTree(), (Entries{{"./link", digestAbc}}));
}

TEST_F(ShaHash, ALinkThatLeadsNowhereEndsTheRun)
{
    fs::create_symlink("nowhere", "tree/link");
    EXPECT_EXIT(walkTree(), testing::ExitedWithCode(1), "^!! Cannot open file \"tree/link\"\n$");
    fs::remove("tree/link");
    fs::create_symlink("link", "tree/link");
    EXPECT_EXIT(walkTree(), testing::ExitedWithCode(1), "^!! Cannot open file \"tree/link\"\n$");
}

TEST_F(ShaHash, ALinkToADirectoryIsWalked)
{
    put("outside/sub/abc", "abc");
    fs::create_directory_symlink("../outside", "tree/link");
    EXPECT_EQ(walkTree(), (Entries{{"./link/sub/abc", digestAbc}}));
}

TEST_F(ShaHash, ATreeMayBeReachedThroughALink)
{
    put("tree/a", "a");
    fs::create_directory_symlink("tree", "link");
    EXPECT_EQ(walk("link", "."), (Entries{{"./a", digestA}}));
}

TEST_F(ShaHash, LinksBackUpAreNotWalked)
{
    put("tree/sub/a", "a");
    fs::create_directory_symlink(".", "tree/self");
    fs::create_directory_symlink("..", "tree/sub/up");
    fs::create_directory_symlink("../../tree", "tree/sub/again");
    EXPECT_EQ(walkTree(), (Entries{{"./sub/a", digestA}}));
}

TEST_F(ShaHash, ADirectoryIsListedByItsOwnNameAndBehindOneLink)
{
    put("tree/lib/a", "a");
    fs::create_directory_symlink("lib", "tree/lib64");
    EXPECT_EQ(walkTree(), (Entries{{"./lib/a", digestA}, {"./lib64/a", digestA}}));
    fs::create_directory_symlink("lib", "tree/lib128");
    const Entries entries = walkTree();
    EXPECT_EQ(entries.size(), 2U);
    EXPECT_EQ(std::count(entries.begin(), entries.end(), Entry("./lib/a", digestA)), 1);
}

TEST_F(ShaHash, TwoDirectoriesThatLeadToEachOtherEnd)
{
    put("tree/a/file", "a");
    put("tree/b/file", "a");
    fs::create_directory_symlink("../b", "tree/a/b");
    fs::create_directory_symlink("../a", "tree/b/a");
    EXPECT_EQ(walkTree(), (Entries{{"./a/b/file", digestA},
                                   {"./a/file", digestA},
                                   {"./b/a/file", digestA},
                                   {"./b/file", digestA}}));
}

// Two ways from each of 40 directories to the next would be 2^40 paths.
TEST_F(ShaHash, ChainsOfLinksDoNotMultiply)
{
    const size_t count = 40;
    for (size_t i = 0; i < count; ++i) {
        const std::string directory = "tree/d" + std::to_string(i);
        put(directory + "/file", "a");
        const std::string next = "../d" + std::to_string(i + 1);
        if (i + 1 < count) {
            fs::create_directory_symlink(next, directory + "/left");
            fs::create_directory_symlink(next, directory + "/right");
        }
    }
    EXPECT_EQ(walkTree().size(), count + count - 1);
}

// ---- Depth ------------------------------------------------------------------------------------

TEST_F(ShaHash, DeepNestingNeedsNoDescriptorALevel)
{
    const int levels = 300;
    makeDeep("tree", "d", levels);
    std::string name = "./";
    for (int i = 0; i < levels; ++i)
        name += "d/";
    const DescriptorLimit limit(32);
    EXPECT_EQ(walkTree(), (Entries{{name + "file", digestAbc}}));
}

TEST_F(ShaHash, APathThatIsTooLongEndsTheRun)
{
    makeDeep("tree", std::string(250, 'n').c_str(), 17);
    EXPECT_EXIT(walkTree(), testing::ExitedWithCode(1),
                "^!! Cannot open file \"tree/nnn[^\n]*/nnn[^\n]*\"\n$");
}
