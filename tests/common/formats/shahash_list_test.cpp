// Hash lists; their format is described in docs/hash-list.md.
#include <csignal>
#include <cstdio>

#include <sys/resource.h>

#include "common/base/exitpath.h"
#include "common/os/osdep_host.h"
#include "common/text/osdep_path.h"
#include "tests/common/formats/shahash_fixture.h"

using namespace shahash_test;

namespace {

class HashList : public ShaHash {
  protected:
    void SetUp() override
    {
        ShaHash::SetUp();
        put("tree/bin/abc", "abc");
    }

    // Reads a list of this text.
    static Entries read(const std::string &text, const char *prefix = nullptr)
    {
        put("list", text);
        Vector *entries = shahash_readList("list", prefix);
        Entries result = contents(entries);
        shahash_freeEntries(entries);
        return result;
    }

    static bool isReadable(const std::string &text)
    {
        put("list", text);
        Vector *entries = shahash_readList("list", nullptr);
        shahash_freeEntries(entries);
        return entries != nullptr;
    }

    static int check(const std::string &text, const char *directory = nullptr)
    {
        put("list", text);
        return shahash_checkList(directory, "list");
    }

    static int checkTree(const std::string &text) { return check(text, "tree"); }
};

const std::string lineAbc = digestAbc + " *./bin/abc\n";

} // namespace

// ---- Writing ----------------------------------------------------------------------------------

TEST_F(HashList, FormatIsDigestBlankStarName)
{
    EXPECT_TRUE(shahash_writeList(OSFLAG_POSIX, "tree", "list"));
    EXPECT_EQ(get("list"), digestAbc + " *tree/bin/abc\n");
    fs::current_path("tree");
    EXPECT_TRUE(shahash_writeListDefault(".", "../list"));
    EXPECT_EQ(get("../list"), lineAbc);
    EXPECT_TRUE(shahash_writeList(OSFLAG_WINDOWS, ".", "../list"));
    EXPECT_EQ(get("../list"), digestAbc + " *.\\bin\\abc\n");
}

TEST_F(HashList, FormatKeepsTheOrderOfTheWalk)
{
    put("tree/a", "a");
    put("tree/bin/empty", "");
    Vector *files = vec_new("test", 1);
    process_dir(OSFLAG_POSIX, files, "tree", "tree");
    std::string expected;
    for (const FileEntry *file : vec_each<const FileEntry>(files))
        expected += std::string(file->digest) + " *" + file->name + "\n";
    shahash_freeEntries(files);
    EXPECT_TRUE(shahash_writeList(OSFLAG_POSIX, "tree", "list"));
    EXPECT_EQ(get("list"), expected);
}

TEST_F(HashList, NoFilesGiveAnEmptyList)
{
    put("list", "old");
    fs::create_directory("empty");
    EXPECT_TRUE(shahash_writeList(OSFLAG_POSIX, "empty", "list"));
    EXPECT_EQ(get("list"), "");
}

TEST_F(HashList, IsReadBackAndMatches)
{
    for (const char *name : {" two  words ", "*star", "\xff latin \xe4", "back\\slash", "tab\t\r"})
        put(std::string("tree/") + name, "a");
    fs::current_path("tree");
    ASSERT_TRUE(shahash_writeListDefault(".", "../list"));
    Vector *files = vec_new("test", 1);
    process_dir(OSFLAG_POSIX, files, ".", ".");
    Vector *entries = shahash_readList("../list", nullptr);
    EXPECT_EQ(contents(entries), contents(files));
    EXPECT_EQ(shahash_checkEntries(entries), 1);
    shahash_freeEntries(entries);
    shahash_freeEntries(files);
    fs::current_path("..");
    EXPECT_EQ(shahash_checkList("tree", "list"), 1);
    put("tree/bin/abc", "abd");
    EXPECT_EQ(shahash_checkList("tree", "list"), 0);
}

TEST_F(HashList, IsOneOfTheChecksumTools)
{
    for (const char *name : {" two  words ", "*star", "\xff latin \xe4", "back\\slash"})
        put(std::string("tree/") + name, "a");
    fs::current_path("tree");
    ASSERT_TRUE(shahash_writeListDefault(".", "../list"));
    EXPECT_EQ(std::system("sha256sum --check --strict --quiet ../list"), 0);
}

TEST_F(HashList, OldListIsAFileLikeAnyOther)
{
    put("tree/manifest", "a");
    ASSERT_TRUE(shahash_writeList(OSFLAG_POSIX, "tree", "tree/manifest"));
    Vector *entries = shahash_readList("tree/manifest", nullptr);
    EXPECT_EQ(sorted(contents(entries)),
              (Entries{{"tree/bin/abc", digestAbc}, {"tree/manifest", digestA}}));
    EXPECT_EQ(shahash_checkEntries(entries), 0);
    shahash_freeEntries(entries);
}

TEST_F(HashList, ANameWithALineEndCannotBeListed)
{
    put("list", "old");
    put("tree/line\nend", "a");
    testing::internal::CaptureStderr();
    EXPECT_FALSE(shahash_writeList(OSFLAG_POSIX, "tree", "list"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "The name \"tree/line\nend\" holds a line end and cannot be listed\n");
    EXPECT_EQ(get("list"), "old");
}

TEST_F(HashList, IsNotWrittenWhereItCannotBe)
{
    EXPECT_FALSE(shahash_writeList(OSFLAG_POSIX, "tree", "none/list"));
    EXPECT_FALSE(shahash_writeList(OSFLAG_POSIX, "tree", "tree"));
    EXPECT_FALSE(shahash_writeList(OSFLAG_POSIX, "tree", "/dev/full"));
    EXPECT_FALSE(shahash_writeList(OSFLAG_POSIX, "tree", nullptr));
}

TEST_F(HashList, IsNotWrittenWithoutATemporaryFile)
{
    put("list", "old");
    rlimit old;
    getrlimit(RLIMIT_NOFILE, &old);
    const rlimit none = {3, old.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    const bool written = shahash_writeList(OSFLAG_POSIX, "tree", "list");
    setrlimit(RLIMIT_NOFILE, &old);
    EXPECT_FALSE(written);
    EXPECT_EQ(get("list"), "old");
}

TEST_F(HashList, IsNotWrittenWhenTheTemporaryFileCannotBeOpened)
{
    put("list", "old");
    ASSERT_EQ(chmod("list", 0666), 0);
    EXPECT_EXIT(
        {
            becomeNobody();
            umask(0277); // it is made without the permission to write
            exitpath_leave(shahash_writeList(OSFLAG_POSIX, "tree", "list") ? 1 : 0);
        },
        testing::ExitedWithCode(0), "^$");
    EXPECT_EQ(get("list"), "old");
}

TEST_F(HashList, IsNotWrittenWhereThereIsNoRoomForIt)
{
    put("list", "old");
    rlimit old;
    getrlimit(RLIMIT_FSIZE, &old);
    const auto handler = signal(SIGXFSZ, SIG_IGN);
    for (const int files : {1, 500}) { // fails when the file is closed, and when lines are written
        for (int i = 0; i < files; ++i)
            put("tree/" + std::to_string(i), "");
        const rlimit full = {8, old.rlim_max};
        setrlimit(RLIMIT_FSIZE, &full);
        const bool written = shahash_writeList(OSFLAG_POSIX, "tree", "list");
        setrlimit(RLIMIT_FSIZE, &old);
        EXPECT_FALSE(written) << files;
        EXPECT_EQ(get("list"), "old") << files;
    }
    signal(SIGXFSZ, handler);
}

TEST_F(HashList, IsNotWrittenWhenAFileCannotBeRead)
{
    put("list", "old");
    fs::create_symlink(unreadable, "tree/mem");
    EXPECT_EXIT(shahash_writeList(OSFLAG_POSIX, "tree", "list"), testing::ExitedWithCode(1),
                "^!! Cannot open file \"tree/mem\"\n$");
    EXPECT_EQ(get("list"), "old");
}

// ---- Reading ----------------------------------------------------------------------------------

TEST_F(HashList, KeepsTheOrderOfTheLines)
{
    EXPECT_EQ(read("2 *b\n1 *a\n3 *c"), (Entries{{"b", "2"}, {"a", "1"}, {"c", "3"}}));
    EXPECT_EQ(read("1 *a\n1 *a\n"), (Entries{{"a", "1"}, {"a", "1"}}));
}

TEST_F(HashList, AStarBeforeTheNameIsDroppedOnce)
{
    EXPECT_EQ(read("1 a\n1 *a\n1 **a\n1  a\n1 \t *a\n1 * a\n"),
              (Entries{{"a", "1"}, {"a", "1"}, {"*a", "1"}, {"a", "1"}, {"a", "1"}, {" a", "1"}}));
}

TEST_F(HashList, LinesAreSplitAtTheFirstSpace)
{
    EXPECT_EQ(read("1 *two words \n"), (Entries{{"two words ", "1"}}));
    EXPECT_EQ(read("1\t2 *a\n"), (Entries{{"a", "1\t2"}}));
    EXPECT_EQ(read(" *a\n"), (Entries{{"a", ""}}));
    EXPECT_EQ(read("1 \n1 *\n"), (Entries{{"", "1"}, {"", "1"}}));
}

TEST_F(HashList, ACarriageReturnIsPartOfTheName)
{
    EXPECT_EQ(read("1 *a\r\n"), (Entries{{"a\r", "1"}}));
}

TEST_F(HashList, APrefixGoesBeforeEveryName)
{
    EXPECT_EQ(read("1 *./a\n1 */b\n1 *../c\n", "dir"),
              (Entries{{"dir/./a", "1"}, {"dir/b", "1"}, {"dir/../c", "1"}}));
    EXPECT_EQ(read("1 *a\n", "dir/"), (Entries{{"dir/a", "1"}}));
    EXPECT_EQ(read("1 *a\n", ""), (Entries{{"a", "1"}}));
}

TEST_F(HashList, AnEmptyNameGetsNoPrefix)
{
    EXPECT_EQ(read("1 *\n", "tree"), (Entries{{"", "1"}}));
}

TEST_F(HashList, ALineWithoutABlankMakesAListUnreadable)
{
    EXPECT_FALSE(isReadable("noblank\n" + lineAbc));
    EXPECT_FALSE(isReadable(lineAbc + "noblank"));
    EXPECT_FALSE(isReadable(lineAbc + "\n"));
    EXPECT_FALSE(isReadable("tab\tonly\n"));
    EXPECT_TRUE(isReadable(lineAbc));
}

TEST_F(HashList, AnEmptyListReadsAsNothing)
{
    EXPECT_FALSE(isReadable(""));
}

TEST_F(HashList, AZeroByteMakesAListUnreadable)
{
    EXPECT_FALSE(isReadable(std::string("1 *a\0b\n", 7)));
    EXPECT_FALSE(isReadable(std::string("1 *a\0", 5)));
    EXPECT_EQ(checkTree(digestAbc + " *bin/abc" + std::string(1, '\0')), 0);
}

TEST_F(HashList, BinaryDataIsNoList)
{
    std::string bytes;
    for (int i = 0; i < 4096; ++i)
        bytes += static_cast<char>(i * 7919 >> 3);
    EXPECT_FALSE(isReadable(bytes));
    EXPECT_EQ(check(bytes), 0);
}

TEST_F(HashList, LongLinesAreReadUpToTheLimit)
{
    const std::string name(1U << 20, 'n');
    EXPECT_EQ(read("1 *" + name + "\n2 *a\n"), (Entries{{name, "1"}, {"a", "2"}}));
    EXPECT_EQ(check(digestAbc + " *" + name + "\n"), 0);
    EXPECT_FALSE(isReadable(std::string(1U << 20, 'n')));
    EXPECT_FALSE(isReadable("1 *" + std::string(40U << 20, 'n')));
    EXPECT_EQ(shahash_checkList(nullptr, "list"), 0);
}

TEST_F(HashList, WhatIsNoFileIsNoList)
{
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    for (const char *path : {"none", "tree", "pipe", "/dev/null", unreadable}) {
        EXPECT_EQ(shahash_readList(path, nullptr), nullptr) << path;
        EXPECT_EQ(shahash_checkList(nullptr, path), 0) << path;
    }
    EXPECT_EQ(shahash_readList(nullptr, nullptr), nullptr);
    EXPECT_EQ(shahash_checkList(nullptr, nullptr), 0);
}

// ---- Checking ---------------------------------------------------------------------------------

TEST_F(HashList, MatchesWhenEveryFileDoes)
{
    put("tree/a", "a");
    EXPECT_EQ(checkTree(lineAbc + digestA + " a\n"), 1);
    EXPECT_EQ(checkTree(lineAbc + digestA + " *a"), 1);
    EXPECT_EQ(checkTree(lineAbc + digestEmpty + " *a\n"), 0);
    EXPECT_EQ(checkTree(lineAbc + digestA + " *none\n"), 0);
    EXPECT_EQ(checkTree(digestA + " **a\n"), 0);
}

TEST_F(HashList, AnEmptyListFails)
{
    EXPECT_EQ(checkTree(""), 0);
}

TEST_F(HashList, ABadLineFails)
{
    EXPECT_EQ(checkTree("noblank\n" + lineAbc), 0);
    EXPECT_EQ(checkTree(lineAbc + "noblank\n"), 0);
    EXPECT_EQ(checkTree(lineAbc + "\n"), 0);
    EXPECT_EQ(checkTree(" *./bin/abc\n"), 0);
    EXPECT_EQ(checkTree(digestAbc + " \n"), 0);
    EXPECT_EQ(checkTree(digestAbc + " *\n"), 0);
}

TEST_F(HashList, ADigestMustBeTheWholeTextInLowerCase)
{
    std::string upper = digestAbc;
    std::transform(upper.begin(), upper.end(), upper.begin(), ::toupper);
    EXPECT_EQ(checkTree(upper + " *bin/abc\n"), 0);
    EXPECT_EQ(checkTree(digestAbc.substr(1) + " *bin/abc\n"), 0);
    EXPECT_EQ(checkTree(digestAbc + "0 *bin/abc\n"), 0);
}

TEST_F(HashList, NamesAreLookedUpInTheCurrentDirectoryWithoutAnother)
{
    EXPECT_EQ(check(digestAbc + " *tree/bin/abc\n"), 1);
    EXPECT_EQ(check(digestAbc + " *bin/abc\n"), 0);
}

TEST_F(HashList, TheListItselfIsLookedUpFromWhereTheCallerIs)
{
    put("tree/list", "not this one");
    EXPECT_EQ(checkTree(lineAbc), 1);
}

TEST_F(HashList, TheCurrentDirectoryStaysWhatItIs)
{
    EXPECT_EQ(checkTree(lineAbc), 1);
    EXPECT_EQ(fs::current_path(), root);
    EXPECT_EQ(checkTree("noblank"), 0);
    EXPECT_EQ(fs::current_path(), root);
    EXPECT_EQ(check(lineAbc, "none"), 0);
    EXPECT_EQ(check(lineAbc, ""), 0);
    EXPECT_EQ(fs::current_path(), root);
}

TEST_F(HashList, ACurrentDirectoryThatIsGoneIsNoHindrance)
{
    put("list", lineAbc);
    const std::string list = root / "list";
    const std::string tree = root / "tree";
    fs::create_directory("gone");
    fs::current_path("gone");
    fs::remove(root / "gone");
    EXPECT_EQ(shahash_checkList(tree.c_str(), list.c_str()), 1);
    EXPECT_EQ(osdep_cwd(), nullptr);
}

// A directory that was entered, and cannot be entered again by its path.
TEST_F(HashList, ACurrentDirectoryWithoutAWayBackStaysTheCurrentOne)
{
    put("list", lineAbc);
    const std::string list = root / "list";
    const std::string tree = root / "tree";
    fs::create_directories("closed/work");
    fs::current_path("closed/work");
    fs::permissions(root / "closed", fs::perms::none);
    EXPECT_EXIT(
        {
            becomeNobody();
            struct stat before;
            struct stat after;
            const bool same = stat(".", &before) == 0 &&
                              shahash_checkList(tree.c_str(), list.c_str()) == 1 &&
                              stat(".", &after) == 0 && before.st_ino == after.st_ino;
            _exit(same ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    fs::current_path(root);
    fs::permissions("closed", fs::perms::owner_all);
}

TEST_F(HashList, ATreeThatMayBeAccessedAndNotReadIsChecked)
{
    fs::permissions("tree", fs::perms{0711});
    put("list", lineAbc);
    EXPECT_EXIT(
        {
            becomeNobody();
            _exit(shahash_checkList("tree", "list") == 1 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(HashList, TheCheckStopsAtTheFirstMismatch)
{
    const std::string last = digestAbc + " *" + unreadable + "\n";
    EXPECT_EQ(check(digestAbc + " *none\n" + last), 0);
    EXPECT_EXIT(check(digestAbc + " *tree/bin/abc\n" + last), testing::ExitedWithCode(1),
                unreadableMessage);
}

TEST_F(HashList, AnUnreadableFileEndsTheRun)
{
    ASSERT_EQ(chmod("tree/bin/abc", 0), 0);
    put("list", lineAbc);
    EXPECT_EXIT(
        {
            becomeNobody();
            shahash_checkList("tree", "list");
        },
        testing::ExitedWithCode(1), "^!! Cannot open file \"\\./bin/abc\"\n$");
}

TEST_F(HashList, NamesThatLeaveTheTreeAreLookedUpThere)
{
    put("outside", "a");
    EXPECT_EQ(checkTree(digestA + " *../outside\n"), 1);
    EXPECT_EQ(checkTree(digestA + " *" + (root / "outside").string() + "\n"), 1);
    EXPECT_EQ(checkTree(digestA + " *../../../../../../../../../none\n"), 0);
}

TEST_F(HashList, WhatIsNoFileDoesNotMatchAndIsNotOpened)
{
    ASSERT_EQ(mkfifo("tree/pipe", 0600), 0);
    for (const char *name : {"pipe", "bin", ".", "/dev/zero", "/dev/null"})
        EXPECT_EQ(checkTree(digestEmpty + " *" + name + "\n"), 0) << name;
}
