#include "common/os/osdep_replace.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "common/os/osdep_file.h"
#include "common/os/osdep_temp.h"
#include "tests/common/broken_contract.h"

namespace fs = std::filesystem;

namespace {

class Replacement : public testing::Test {
  protected:
    void SetUp() override
    {
        char name[] = "/tmp/osdep_replace_test.XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        root = name;
        path = root / "file";
    }
    void TearDown() override { fs::remove_all(root); }

    void put(const std::string &text) { std::ofstream(path) << text; }
    std::string text() const
    {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    // Names in the directory, without the file to be replaced.
    std::vector<std::string> others() const
    {
        std::vector<std::string> names;
        for (const auto &entry : fs::directory_iterator(root))
            if (entry.path() != path)
                names.push_back(entry.path().filename());
        return names;
    }

    fs::path root;
    fs::path path;
};

mode_t modeOf(const fs::path &path)
{
    struct stat info = {};
    stat(path.c_str(), &info);
    return info.st_mode & 07777;
}

std::string followed(const fs::path &path)
{
    char *reached = osdep_followLinks(path.c_str());
    std::string text = reached == nullptr ? "(null)" : reached;
    std::free(reached);
    return text;
}

} // namespace

TEST_F(Replacement, TakesThePlaceOfTheFileInOneStep)
{
    put("old");
    OsdepReplacement replacement;
    ASSERT_EQ(osdep_openReplacement(&replacement, path.c_str()), 0);
    std::fputs("new", replacement.stream);
    std::fflush(replacement.stream);
    EXPECT_EQ(text(), "old");
    ASSERT_EQ(others().size(), 1U);
    EXPECT_EQ(others()[0].substr(0, 6), ".file.");
    EXPECT_EQ(osdep_commitReplacement(&replacement), 0);
    EXPECT_EQ(text(), "new");
    EXPECT_EQ(others(), std::vector<std::string>{});
}

TEST_F(Replacement, LeavesTheFileAloneWhenItIsDropped)
{
    put("old");
    OsdepReplacement replacement;
    ASSERT_EQ(osdep_openReplacement(&replacement, path.c_str()), 0);
    std::fputs("new", replacement.stream);
    osdep_dropReplacement(&replacement);
    EXPECT_EQ(text(), "old");
    EXPECT_EQ(others(), std::vector<std::string>{});
}

TEST_F(Replacement, HasThePermissionsOfTheFile)
{
    put("old");
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    OsdepReplacement replacement;
    ASSERT_EQ(osdep_openReplacement(&replacement, path.c_str()), 0);
    EXPECT_EQ(modeOf(replacement.name), 0640U);
    EXPECT_EQ(osdep_commitReplacement(&replacement), 0);
    EXPECT_EQ(modeOf(path), 0640U);
}

TEST_F(Replacement, HasThePermissionsOfANewFileWhenThereIsNone)
{
    const mode_t before = umask(027);
    OsdepReplacement replacement;
    const int opened = osdep_openReplacement(&replacement, path.c_str());
    umask(before);
    ASSERT_EQ(opened, 0);
    EXPECT_EQ(osdep_commitReplacement(&replacement), 0);
    EXPECT_EQ(modeOf(path), 0640U);
}

TEST_F(Replacement, IsRemovedWhenItCannotTakeThePlace)
{
    fs::create_directories(path / "not empty");
    OsdepReplacement replacement;
    ASSERT_EQ(osdep_openReplacement(&replacement, path.c_str()), 0);
    EXPECT_EQ(osdep_commitReplacement(&replacement), -1);
    EXPECT_TRUE(fs::is_directory(path / "not empty"));
    EXPECT_EQ(others(), std::vector<std::string>{});
}

TEST_F(Replacement, IsRemovedWhenItCannotBeWritten)
{
    put("old");
    const pid_t child = fork();
    if (child == 0) {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit limit = {10, 10};
        setrlimit(RLIMIT_FSIZE, &limit);
        OsdepReplacement replacement;
        if (osdep_openReplacement(&replacement, path.c_str()) != 0)
            _exit(2);
        std::fputs("more than ten characters", replacement.stream);
        _exit(osdep_commitReplacement(&replacement) == -1 ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(text(), "old");
    EXPECT_EQ(others(), std::vector<std::string>{});
}

TEST_F(Replacement, IsRemovedAtTheEndOfAProcessThatLeavesEarlyFromAnywhere)
{
    put("old");
    const pid_t child = fork();
    if (child == 0) {
        fs::current_path(root);
        OsdepReplacement replacement;
        if (osdep_openReplacement(&replacement, "file") != 0)
            _exit(2);
        fs::current_path("/");
        osdep_removeTempFiles(); // as at exit
        _exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(text(), "old");
    EXPECT_EQ(others(), std::vector<std::string>{});
}

TEST_F(Replacement, OnceInPlaceOutlivesTheProcess)
{
    const pid_t child = fork();
    if (child == 0) {
        OsdepReplacement replacement;
        if (osdep_openReplacement(&replacement, path.c_str()) != 0)
            _exit(2);
        std::fputs("new", replacement.stream);
        const int status = osdep_commitReplacement(&replacement);
        osdep_removeTempFiles();
        _exit(status);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(text(), "new");
}

TEST_F(Replacement, OfAFileWithTheLongestNameIsPossible)
{
    path = root / std::string(255, 'n');
    put("old");
    OsdepReplacement replacement;
    ASSERT_EQ(osdep_openReplacement(&replacement, path.c_str()), 0);
    EXPECT_EQ(osdep_commitReplacement(&replacement), 0);
    EXPECT_EQ(text(), "");
}

TEST_F(Replacement, IsRefusedWithoutADirectoryOrAPath)
{
    OsdepReplacement replacement;
    EXPECT_EQ(osdep_openReplacement(&replacement, (root / "none" / "file").c_str()), -1);
    EXPECT_EQ(osdep_openReplacement(&replacement, nullptr), -1);
    EXPECT_EQ(others(), std::vector<std::string>{});
}

TEST_F(Replacement, OpensRegularFilesOnlyAndWaitsForNothing)
{
    put("old");
    ASSERT_EQ(mkfifo((root / "pipe").c_str(), 0600), 0);
    fs::create_symlink(path, root / "link");
    OsdepFileFacts facts = {};
    FILE *stream = osdep_openRegularFile((root / "link").c_str(), &facts);
    ASSERT_NE(stream, nullptr);
    std::fclose(stream);
    struct stat info = {};
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(facts.size, 3U);
    EXPECT_EQ(facts.modified, info.st_mtime);
    EXPECT_EQ(osdep_openRegularFile((root / "pipe").c_str(), &facts), nullptr);
    EXPECT_EQ(osdep_openRegularFile(root.c_str(), &facts), nullptr);
    EXPECT_EQ(osdep_openRegularFile((root / "none").c_str(), &facts), nullptr);
    EXPECT_EQ(osdep_openRegularFile("/dev/null", nullptr), nullptr);
    EXPECT_EQ(osdep_openRegularFile(nullptr, nullptr), nullptr);
}

TEST_F(Replacement, FollowsLinksToWhatIsThereOrIsToBe)
{
    fs::create_directory(root / "d");
    fs::create_symlink("d/second", root / "first");
    fs::create_symlink("third", root / "d/second");
    EXPECT_EQ(followed(root / "first"), (root / "d/third").string());
    fs::create_symlink(path, root / "absolute");
    EXPECT_EQ(followed(root / "absolute"), path.string());
    EXPECT_EQ(followed(path), path.string());
    EXPECT_EQ(followed("no-such-file"), "no-such-file");
}

TEST_F(Replacement, GivesUpOnLinksThatGoRoundInCircles)
{
    fs::create_symlink("b", root / "a");
    fs::create_symlink("a", root / "b");
    EXPECT_EQ(followed(root / "a"), "(null)");
    EXPECT_EQ(osdep_followLinks(nullptr), nullptr);
}

TEST(ReplacementDeathTest, ANullReplacementIsABrokenContract)
{
    EXPECT_BROKEN_IN("common/osdep", osdep_openReplacement(nullptr, "a"), "replacement != NULL",
                     41);
    EXPECT_BROKEN_IN("common/osdep", osdep_commitReplacement(nullptr), "replacement != NULL", 42);
    EXPECT_BROKEN_IN("common/osdep", osdep_dropReplacement(nullptr), "replacement != NULL", 43);
}
