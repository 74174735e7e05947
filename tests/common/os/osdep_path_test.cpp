#include "common/text/osdep_path.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/os/osdep_file.h"
#include "common/os/osdep_host.h"
#include "common/os/osdep_temp.h"
#include "common/trace/qzdebug.h"

namespace fs = std::filesystem;

namespace {

// Takes over a string that the function under test has made.
std::string taken(char *text)
{
    std::string copy = text == nullptr ? "(null)" : text;
    std::free(text);
    return copy;
}

std::string normalised(const std::string &path)
{
    return taken(osdep_normalisePath(path.c_str()));
}

// Runs each test in an empty directory of its own.
class PathTest : public testing::Test {
  protected:
    void SetUp() override
    {
        char name[] = "/tmp/osdep_path_testXXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        before_ = fs::current_path();
        root_ = name;
        fs::current_path(root_);
    }
    void TearDown() override
    {
        fs::current_path(before_);
        fs::remove_all(root_);
    }
    std::string root_;
    fs::path before_;
};

void write_file(const std::string &name, const std::string &text)
{
    std::ofstream(name) << text;
}

} // namespace

// ---- Joining ----------------------------------------------------------------------------------

TEST(PathJoin, PutsOneSlashAtTheJoin)
{
    EXPECT_EQ(taken(osdep_pathJoin("a", "b")), "a/b");
    EXPECT_EQ(taken(osdep_pathJoin("a/", "b")), "a/b");
    EXPECT_EQ(taken(osdep_pathJoin("a", "/b")), "a/b");
    EXPECT_EQ(taken(osdep_pathJoin("a/", "/b")), "a/b");
    EXPECT_EQ(taken(osdep_pathJoin("/", "b")), "/b");
    EXPECT_EQ(taken(osdep_pathJoin("a", "")), "a/");
}

TEST(PathJoin, DropsOnlyOneSlashOnEachSide)
{
    EXPECT_EQ(taken(osdep_pathJoin("a//", "//b")), "a///b");
}

TEST(PathJoin, GivesNullForAnEmptyDirectoryOrANullArgument)
{
    EXPECT_EQ(osdep_pathJoin("", "b"), nullptr);
    EXPECT_EQ(osdep_pathJoin(nullptr, "b"), nullptr);
    EXPECT_EQ(osdep_pathJoin("a", nullptr), nullptr);
}

TEST(PathJoin, JoinsPathsOfAnyLength)
{
    const std::string dir(100000, 'd');
    const std::string name(100000, 'n');
    EXPECT_EQ(taken(osdep_pathJoin(dir.c_str(), name.c_str())), dir + "/" + name);
}

TEST(PathJoinFor, SeparatesWithABackslashForWindowsOnly)
{
    EXPECT_EQ(taken(osdep_pathJoinFor(OSFLAG_WINDOWS, "a", "b")), "a\\b");
    EXPECT_EQ(taken(osdep_pathJoinFor(OSFLAG_WINDOWS, "a\\", "\\b")), "a\\b");
    EXPECT_EQ(taken(osdep_pathJoinFor(OSFLAG_WINDOWS, "a/", "/b")), "a/\\/b");
    EXPECT_EQ(taken(osdep_pathJoinFor(OSFLAG_POSIX, "a/", "/b")), "a/b");
    EXPECT_EQ(osdep_pathJoinFor(OSFLAG_WINDOWS, "", "b"), nullptr);
    EXPECT_EQ(osdep_pathJoinFor(OSFLAG_WINDOWS, "a", nullptr), nullptr);
}

// ---- Normalising ------------------------------------------------------------------------------

TEST(NormalisePath, ResolvesEverythingInOnePath)
{
    EXPECT_EQ(normalised("/a//b/./c/../d/"), "/a/b/d");
}

TEST(NormalisePath, CollapsesRepeatedSlashes)
{
    EXPECT_EQ(normalised("//"), "/");
    EXPECT_EQ(normalised("////a///b"), "/a/b");
    EXPECT_EQ(normalised("a//b////"), "a/b");
}

TEST(NormalisePath, DropsADotBetweenSlashes)
{
    EXPECT_EQ(normalised("/./a"), "/a");
    EXPECT_EQ(normalised("a/././b"), "a/b");
    EXPECT_EQ(normalised("a/.//./b/./"), "a/b");
    EXPECT_EQ(normalised("/./"), "/");
}

TEST(NormalisePath, KeepsADotThatOpensOrEndsThePath)
{
    EXPECT_EQ(normalised("."), ".");
    EXPECT_EQ(normalised("./a"), "./a");
    EXPECT_EQ(normalised("a/."), "a/.");
    EXPECT_EQ(normalised("/."), "/.");
}

TEST(NormalisePath, TakesTheComponentInFrontOfADotDotOff)
{
    EXPECT_EQ(normalised("a/../b"), "b");
    EXPECT_EQ(normalised("/a/../b"), "/b");
    EXPECT_EQ(normalised("/a/b/../../c"), "/c");
    EXPECT_EQ(normalised("./a/../b"), "./b");
    EXPECT_EQ(normalised("a/b/../"), "a/");
    EXPECT_EQ(normalised("/a/../"), "/");
}

TEST(NormalisePath, NeverClimbsAboveTheRoot)
{
    EXPECT_EQ(normalised("/../a"), "/a");
    EXPECT_EQ(normalised("/../../../a"), "/a");
    EXPECT_EQ(normalised("/a/../../b"), "/b");
    EXPECT_EQ(normalised("/../"), "/");
}

TEST(NormalisePath, KeepsADotDotThatOpensOrEndsThePath)
{
    EXPECT_EQ(normalised(".."), "..");
    EXPECT_EQ(normalised("../a"), "../a");
    EXPECT_EQ(normalised("/.."), "/..");
    EXPECT_EQ(normalised("a/.."), "a/..");
    EXPECT_EQ(normalised("../"), "..");
}

TEST(NormalisePath, KeepsNamingTheSamePlaceWhereARelativePathClimbs)
{
    EXPECT_EQ(normalised("../../b"), "../../b");
    EXPECT_EQ(normalised("a/../../b"), "../b");
    EXPECT_EQ(normalised("./../b"), "../b");
    EXPECT_EQ(normalised("a/../"), ".");
    EXPECT_EQ(normalised("ab/.././"), ".");
}

TEST(NormalisePath, KeepsTheLastSlashOfADriveRootAndOfAVeryShortPath)
{
    EXPECT_EQ(normalised("c:/"), "c:/");
    EXPECT_EQ(normalised("c://"), "c:/");
    EXPECT_EQ(normalised("c:/a/"), "c:/a");
    EXPECT_EQ(normalised("/"), "/");
    EXPECT_EQ(normalised("a/"), "a/");
    EXPECT_EQ(normalised("ab/"), "ab");
}

TEST(NormalisePath, LeavesNamesThatOnlyLookLikeDotsAlone)
{
    EXPECT_EQ(normalised("a/.../b"), "a/.../b");
    EXPECT_EQ(normalised("a/..b/c"), "a/..b/c");
    EXPECT_EQ(normalised("a/.b/c"), "a/.b/c");
}

TEST(NormalisePath, GivesAnEmptyPathForAnEmptyOneAndNullForNull)
{
    EXPECT_EQ(normalised(""), "");
    EXPECT_EQ(osdep_normalisePath(nullptr), nullptr);
}

TEST(NormalisePath, TakesTimeInProportionToTheLength)
{
    std::string path;
    for (int i = 0; i < 500000; ++i)
        path += "a/";
    for (int i = 0; i < 500000; ++i)
        path += "../";
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(normalised("/" + path + "b"), "/b");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

// ---- Absolute and relative --------------------------------------------------------------------

TEST_F(PathTest, AbsolutePathJoinsARelativePathToTheCurrentDirectory)
{
    const std::string cwd = taken(osdep_cwd());
    EXPECT_EQ(taken(osdep_absolutePath("x/../y")), cwd + "/y");
    EXPECT_EQ(taken(osdep_absolutePath("")), cwd);
    EXPECT_EQ(taken(osdep_absolutePath("../up")), taken(osdep_dirName(cwd.c_str())) + "/up");
    EXPECT_EQ(taken(osdep_absolutePath("/x//y")), "/x/y");
    EXPECT_EQ(osdep_absolutePath(nullptr), nullptr);
}

TEST_F(PathTest, RelativePathOfTheCurrentDirectoryIsADot)
{
    const std::string cwd = taken(osdep_cwd());
    EXPECT_EQ(taken(osdep_relativePath(cwd.c_str())), ".");
    EXPECT_EQ(taken(osdep_relativePath((cwd + "//").c_str())), ".");
    EXPECT_EQ(taken(osdep_relativePath(".")), ".");
    EXPECT_EQ(taken(osdep_relativePath("")), ".");
}

TEST_F(PathTest, RelativePathTakesTheCurrentDirectoryOff)
{
    const std::string cwd = taken(osdep_cwd());
    EXPECT_EQ(taken(osdep_relativePath((cwd + "/a/./b").c_str())), "a/b");
    EXPECT_EQ(taken(osdep_relativePath("a//b")), "a/b");
    EXPECT_EQ(osdep_relativePath(nullptr), nullptr);
}

TEST_F(PathTest, RelativePathOfAPlaceElsewhereIsAbsolute)
{
    EXPECT_EQ(taken(osdep_relativePath("/usr/lib")), "/usr/lib");
}

TEST_F(PathTest, RelativePathMatchesWholeComponents)
{
    const std::string cwd = taken(osdep_cwd());
    EXPECT_EQ(taken(osdep_relativePath((cwd + "c/d").c_str())), cwd + "c/d");
    EXPECT_EQ(taken(osdep_relativePath((cwd + "c").c_str())), cwd + "c");
}

TEST_F(PathTest, RelativePathInTheRootDirectory)
{
    fs::current_path("/");
    EXPECT_EQ(taken(osdep_relativePath("/")), ".");
    EXPECT_EQ(taken(osdep_relativePath("/usr/lib")), "usr/lib");
}

TEST_F(PathTest, CurrentDirectoryMayBeLongerThanTheSystemsPaths)
{
    const std::string component(200, 'd');
    std::string expected = fs::current_path();
    for (int i = 0; i < 40; ++i) {
        ASSERT_EQ(mkdir(component.c_str(), 0777), 0);
        ASSERT_EQ(chdir(component.c_str()), 0);
        expected += "/" + component;
    }
    EXPECT_EQ(taken(osdep_cwd()), expected);
    EXPECT_EQ(taken(osdep_absolutePath("x")), expected + "/x");
    ASSERT_EQ(chdir(root_.c_str()), 0);
    EXPECT_EQ(osdep_removeTree(component.c_str()), 0);
}

TEST_F(PathTest, CurrentDirectoryLongerThanTheLimitGivesNull)
{
    const std::string component(200, 'd');
    const auto below = [](const std::string &name) {
        return mkdir(name.c_str(), 0777) == 0 && chdir(name.c_str()) == 0;
    };
    size_t length = fs::current_path().string().size();
    for (; length < 20479 - 402; length += 201)
        ASSERT_TRUE(below(component));
    const size_t rest = 20479 - length - 1; // of a path as long as it may be
    ASSERT_TRUE(below(std::string(rest / 2, 'e')));
    ASSERT_TRUE(below(std::string(rest - rest / 2 - 1, 'f')));
    EXPECT_EQ(taken(osdep_cwd()).size(), 20479U);
    ASSERT_EQ(chdir(".."), 0);
    ASSERT_TRUE(below(std::string(rest - rest / 2, 'g')));
    EXPECT_EQ(osdep_cwd(), nullptr);
    ASSERT_EQ(chdir(root_.c_str()), 0);
    EXPECT_EQ(osdep_removeTree(component.c_str()), 0);
}

TEST_F(PathTest, CurrentDirectoryThatIsGoneGivesNull)
{
    ASSERT_EQ(mkdir("gone", 0777), 0);
    ASSERT_EQ(chdir("gone"), 0);
    ASSERT_EQ(rmdir("../gone"), 0);
    EXPECT_EQ(osdep_cwd(), nullptr);
    EXPECT_EQ(osdep_absolutePath("x"), nullptr);
    EXPECT_EQ(osdep_relativePath("x"), nullptr);
    EXPECT_EQ(taken(osdep_relativePath("/x")), "/x");
}

TEST(IsAbsolute, GoesByTheFirstCharacter)
{
    EXPECT_EQ(osdep_isAbsolute("/a"), 1);
    EXPECT_EQ(osdep_isAbsolute("a/b"), 0);
    EXPECT_EQ(osdep_isAbsolute(""), 0);
    EXPECT_EQ(osdep_isAbsolute(nullptr), 0);
}

// ---- Parts of a name --------------------------------------------------------------------------

TEST(BaseName, PointsBehindTheLastSlash)
{
    const char *path = "dir/sub/name.c";
    EXPECT_EQ(osdep_baseName(path), path + 8);
    const char *plain = "name.c";
    EXPECT_EQ(osdep_baseName(plain), plain);
    EXPECT_STREQ(osdep_baseName("dir/"), "");
    EXPECT_EQ(osdep_baseName(nullptr), nullptr);
}

TEST(BaseName, CopyIsANewString)
{
    EXPECT_EQ(taken(osdep_baseNameCopy("dir/name.c")), "name.c");
    EXPECT_EQ(taken(osdep_baseNameCopy("dir/")), "");
    EXPECT_EQ(osdep_baseNameCopy(nullptr), nullptr);
}

TEST(Stem, IsTheBaseNameWithoutItsExtension)
{
    EXPECT_EQ(taken(osdep_stem("dir/name.c")), "name");
    EXPECT_EQ(taken(osdep_stem("dir.x/name")), "name");
    EXPECT_EQ(taken(osdep_stem("a.b.c")), "a.b");
    EXPECT_EQ(taken(osdep_stem(".profile")), "");
    EXPECT_EQ(taken(osdep_stem("dir.x/")), "");
    EXPECT_EQ(osdep_stem(nullptr), nullptr);
}

TEST(StemDot, KeepsTheDot)
{
    EXPECT_EQ(taken(osdep_stemDot("dir/name.c")), "name.");
    EXPECT_EQ(taken(osdep_stemDot("a.b.c")), "a.b.");
    EXPECT_EQ(taken(osdep_stemDot("dir.x/name")), "name");
    EXPECT_EQ(osdep_stemDot(nullptr), nullptr);
}

TEST(Extension, StartsAtTheLastDotOfThePath)
{
    EXPECT_STREQ(osdep_extension("dir/name.c"), ".c");
    EXPECT_STREQ(osdep_extension("a.b.c"), ".c");
    EXPECT_STREQ(osdep_extension("name."), ".");
    EXPECT_STREQ(osdep_extension("dir.x/name"), ".x/name");
    EXPECT_STREQ(osdep_extension("name"), "");
    EXPECT_EQ(osdep_extension(nullptr), nullptr);
}

TEST(DirName, IsEverythingInFrontOfTheLastSlash)
{
    EXPECT_EQ(taken(osdep_dirName("dir/sub/name.c")), "dir/sub");
    EXPECT_EQ(taken(osdep_dirName("/name")), "");
    EXPECT_EQ(taken(osdep_dirName("dir/")), "dir");
    EXPECT_EQ(osdep_dirName("name"), nullptr);
    EXPECT_EQ(osdep_dirName(nullptr), nullptr);
}

// ---- What a path names ------------------------------------------------------------------------

TEST_F(PathTest, FileExistsForWhateverCanBeExamined)
{
    write_file("file", "x");
    ASSERT_EQ(symlink("nowhere", "dangling"), 0);
    EXPECT_EQ(osdep_fileExists("file"), 1);
    EXPECT_EQ(osdep_fileExists("."), 1);
    EXPECT_EQ(osdep_fileExists("missing"), 0);
    EXPECT_EQ(osdep_fileExists("dangling"), 0);
    EXPECT_EQ(osdep_fileExists(""), 0);
    EXPECT_EQ(osdep_fileExists(nullptr), 0);
}

TEST_F(PathTest, IsDirectoryFollowsLinks)
{
    write_file("file", "x");
    ASSERT_EQ(symlink(".", "link"), 0);
    EXPECT_EQ(osdep_isDirectory("."), 1);
    EXPECT_EQ(osdep_isDirectory("link"), 1);
    EXPECT_EQ(osdep_isDirectory("file"), 0);
    EXPECT_EQ(osdep_isDirectory("missing"), 0);
    EXPECT_EQ(osdep_isDirectory(nullptr), 0);
}

TEST_F(PathTest, ARegularFileIsNoDirectoryPipeOrDevice)
{
    write_file("file", "x");
    ASSERT_EQ(symlink("file", "link"), 0);
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    EXPECT_EQ(osdep_isRegularFile("file"), 1);
    EXPECT_EQ(osdep_isRegularFile("link"), 1);
    for (const char *path : {".", "pipe", "/dev/null", "missing", ""})
        EXPECT_EQ(osdep_isRegularFile(path), 0) << path;
    EXPECT_EQ(osdep_isRegularFile(nullptr), 0);
}

TEST_F(PathTest, FileReadableOpensTheFile)
{
    write_file("file", "x");
    write_file("secret", "x");
    ASSERT_EQ(chmod("secret", 0), 0);
    EXPECT_EQ(osdep_fileReadable("file"), 1);
    EXPECT_EQ(osdep_fileReadable("missing"), 0);
    EXPECT_EQ(osdep_fileReadable(nullptr), 0);
    EXPECT_EQ(osdep_fileReadable("secret"), geteuid() == 0 ? 1 : 0);
}

TEST_F(PathTest, FileReadableDoesNotWaitForTheWriterOfAPipe)
{
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    EXPECT_EQ(osdep_fileReadable("pipe"), 1);
}

TEST_F(PathTest, SameFileIsSeenThroughEveryKindOfName)
{
    write_file("x", "x");
    write_file("y", "x");
    ASSERT_EQ(link("x", "hard"), 0);
    ASSERT_EQ(symlink("x", "soft"), 0);
    EXPECT_EQ(osdep_sameFile("x", "./x"), 1);
    EXPECT_EQ(osdep_sameFile("x", "hard"), 1);
    EXPECT_EQ(osdep_sameFile("soft", "x"), 1);
    EXPECT_EQ(osdep_sameFile("x", "y"), 0);
    EXPECT_EQ(osdep_sameFile("x", "missing"), 0);
    EXPECT_EQ(osdep_sameFile("missing", "missing"), 0);
    EXPECT_EQ(osdep_sameFile(nullptr, "x"), 0);
    EXPECT_EQ(osdep_sameFile("x", nullptr), 0);
}

// ---- Making and removing directories ----------------------------------------------------------

TEST_F(PathTest, MkdirsCreatesTheParentsAndIsContentTheSecondTime)
{
    EXPECT_EQ(osdep_mkdirs("a/b/c"), 0);
    EXPECT_TRUE(fs::is_directory("a/b/c"));
    EXPECT_EQ(osdep_mkdirs("a/b/c"), 0);
}

TEST_F(PathTest, MkdirsTakesAbsolutePathsAndSlashesAtTheEnd)
{
    EXPECT_EQ(osdep_mkdirs((root_ + "/a//b/").c_str()), 0);
    EXPECT_TRUE(fs::is_directory("a/b"));
}

TEST_F(PathTest, MkdirsGivesOneWhereTheNameIsTaken)
{
    write_file("file", "x");
    EXPECT_EQ(osdep_mkdirs("file"), 1);
    EXPECT_EQ(osdep_mkdirs("file/below"), 1);
    EXPECT_EQ(osdep_mkdirs("file/below/deeper"), 1);
}

TEST_F(PathTest, MkdirsGivesMinusOneWhenOnlyTheLastStepFails)
{
    EXPECT_EQ(osdep_mkdirs(nullptr), -1);
    EXPECT_EQ(osdep_mkdirs(""), -1);
    EXPECT_EQ(osdep_mkdirs(("a/" + std::string(300, 'n')).c_str()), -1);
    EXPECT_TRUE(fs::is_directory("a"));
    ASSERT_EQ(symlink("nowhere", "dangling"), 0);
    EXPECT_EQ(osdep_mkdirs("dangling"), -1);
}

TEST_F(PathTest, MkdirsCreatesNothingOfAPathThatIsTooLong)
{
    std::string path;
    for (int i = 0; i < 5000; ++i)
        path += "a/";
    EXPECT_EQ(osdep_mkdirs(path.c_str()), 1);
    EXPECT_TRUE(fs::is_empty("."));
}

TEST_F(PathTest, MkdirsLetsTheUmaskDecide)
{
    const mode_t before = umask(027);
    EXPECT_EQ(osdep_mkdirs("a/b"), 0);
    umask(0);
    EXPECT_EQ(osdep_mkdirs("c/d"), 0);
    umask(before);
    struct stat info;
    ASSERT_EQ(stat("a/b", &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0750U);
    for (const char *name : {"c", "c/d"}) {
        ASSERT_EQ(stat(name, &info), 0);
        EXPECT_EQ(info.st_mode & 0777U, 0777U) << name;
    }
}

TEST_F(PathTest, MkdirsSucceedsWhenSomebodyElseIsFaster)
{
    for (int round = 0; round < 50; ++round) {
        const std::string path = "r" + std::to_string(round) + "/a/b/c/d";
        int first = -2;
        std::thread other([&] { first = osdep_mkdirs(path.c_str()); });
        const int second = osdep_mkdirs(path.c_str());
        other.join();
        EXPECT_EQ(first, 0);
        EXPECT_EQ(second, 0);
    }
}

TEST_F(PathTest, RemoveTreeRemovesTheDirectoryWithItsContents)
{
    fs::create_directories("tree/a/b/c");
    fs::create_directories("tree/empty");
    write_file("tree/file", "x");
    write_file("tree/a/b/c/.hidden", "x");
    EXPECT_EQ(osdep_removeTree("tree"), 0);
    EXPECT_FALSE(fs::exists("tree"));
}

TEST_F(PathTest, RemoveTreeRefusesWhatIsNoDirectory)
{
    write_file("file", "x");
    EXPECT_EQ(osdep_removeTree("file"), -1);
    EXPECT_TRUE(fs::exists("file"));
    EXPECT_EQ(osdep_removeTree("missing"), -1);
    EXPECT_EQ(osdep_removeTree(nullptr), -1);
}

TEST_F(PathTest, RemoveTreeDoesNotFollowLinks)
{
    fs::create_directories("outside/dir");
    write_file("outside/file", "x");
    fs::create_directories("tree/nested");
    ASSERT_EQ(symlink("../outside", "tree/dir_link"), 0);
    ASSERT_EQ(symlink("../../outside/file", "tree/nested/file_link"), 0);
    ASSERT_EQ(symlink("../../outside", "tree/nested/dir_link"), 0);
    ASSERT_EQ(symlink("nowhere", "tree/dangling"), 0);
    EXPECT_EQ(osdep_removeTree("tree"), 0);
    EXPECT_FALSE(fs::exists("tree"));
    EXPECT_TRUE(fs::exists("outside/file"));
    EXPECT_TRUE(fs::exists("outside/dir"));
    ASSERT_EQ(symlink("outside", "link"), 0);
    EXPECT_EQ(osdep_removeTree("link"), -1);
    EXPECT_TRUE(fs::exists("outside/file"));
}

TEST_F(PathTest, RemoveTreeCopesWithATreeDeeperThanDescriptorsAndPaths)
{
    ASSERT_EQ(mkdir("tree", 0777), 0);
    ASSERT_EQ(chdir("tree"), 0);
    for (int i = 0; i < 600; ++i) { // 5,400 characters
        ASSERT_EQ(mkdir("deeper..", 0777), 0);
        if (i % 100 == 0)
            write_file("file", "x");
        ASSERT_EQ(chdir("deeper.."), 0);
    }
    ASSERT_EQ(chdir(root_.c_str()), 0);
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit few = before;
    few.rlim_cur = 16;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    const int result = osdep_removeTree("tree");
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(result, 0);
    EXPECT_FALSE(fs::exists("tree"));
}

TEST_F(PathTest, RemoveTreeCopesWithNamesThatItWouldGiveItself)
{
    fs::create_directories("tree/qz1/qz2/qz3/qz1");
    fs::create_directories("tree/qz2/qz1/x/y");
    fs::create_directories("tree/a/b/c/d");
    write_file("tree/qz3", "x");
    write_file("tree/qz4", "x");
    EXPECT_EQ(osdep_removeTree("tree"), 0);
    EXPECT_FALSE(fs::exists("tree"));
}

TEST_F(PathTest, RemoveTreeRemovesManyEntries)
{
    for (int i = 0; i < 40; ++i) {
        const std::string dir = "tree/d" + std::to_string(i);
        fs::create_directories(dir + "/e/f");
        for (int k = 0; k < 40; ++k)
            write_file(dir + "/e/file" + std::to_string(k), "x");
    }
    EXPECT_EQ(osdep_removeTree("tree"), 0);
    EXPECT_FALSE(fs::exists("tree"));
}

TEST_F(PathTest, RemoveTreeReportsWhatItMayNotRemove)
{
    if (geteuid() == 0)
        GTEST_SKIP() << "the superuser may remove everything";
    fs::create_directories("tree/locked/inside");
    ASSERT_EQ(chmod("tree/locked", 0555), 0);
    EXPECT_EQ(osdep_removeTree("tree"), -1);
    EXPECT_TRUE(fs::exists("tree"));
    fs::permissions("tree/locked", fs::perms::owner_all);
}

// ---- Tracing ----------------------------------------------------------------------------------

TEST_F(PathTest, TracedFunctionsGiveTheSameResultsAndLeaveAsOftenAsTheyEnter)
{
    gDebugOut = std::tmpfile();
    ASSERT_NE(gDebugOut, nullptr);
    gDebugFlags = DEBUG_TRACE;
    EXPECT_EQ(osdep_pathJoin(nullptr, "%s%n"), nullptr);
    EXPECT_EQ(taken(osdep_normalisePath("/%n//%s")), "/%n/%s");
    EXPECT_EQ(osdep_absolutePath(nullptr), nullptr);
    EXPECT_EQ(taken(osdep_relativePath(".")), ".");
    EXPECT_EQ(taken(osdep_stem("dir/name.c")), "name");
    EXPECT_EQ(osdep_mkdirs("a/b"), 0);
    EXPECT_EQ(osdep_removeTree("a"), 0);
    gDebugFlags = 0;
    std::rewind(gDebugOut);
    std::string text;
    for (int c; (c = std::fgetc(gDebugOut)) != EOF;)
        text += static_cast<char>(c);
    std::fclose(gDebugOut);
    gDebugOut = nullptr;
    const auto count = [&](const std::string &word) {
        int found = 0;
        for (size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1))
            ++found;
        return found;
    };
    EXPECT_EQ(count("ENTER osdep_"), 12); // seven, and five in the two relative ones
    EXPECT_EQ(count("EXIT osdep_"), count("ENTER osdep_"));
    EXPECT_EQ(count("ENTER osdep_normalisePath(path=\"/%n//%s\")"), 1) << text;
    EXPECT_EQ(count("EXIT osdep_normalisePath() -> \"/%n/%s\""), 1) << text;
}
