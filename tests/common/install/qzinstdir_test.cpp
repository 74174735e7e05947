#include "common/install/qzinstdir.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "common/base/stringcache.h"
#include "tests/common/trace_lines.h"

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

struct Answer {
    int status;
    std::string text;
};

Answer run(const std::string &command)
{
    FILE *pipe = popen(command.c_str(), "r");
    std::string text;
    for (int c = getc(pipe); c != EOF; c = getc(pipe))
        text += static_cast<char>(c);
    int status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text};
}

// A scratch directory with an installation's directories and programs below it.
class QzinstdirTest : public testing::Test {
  protected:
    void SetUp() override
    {
        char name[] = "/tmp/instdir_testXXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        root = name;
        version = root + "/opt/v2.32";
    }

    void TearDown() override { fs::remove_all(root); }

    // A copy of the probe as `path`, whose directories are created.
    std::string program(const std::string &path)
    {
        fs::create_directories(fs::path(path).parent_path());
        fs::copy_file(QZINSTDIR_PROBE, path);
        return path;
    }

    void directory(const std::string &path) { fs::create_directories(path); }

    std::string everyKind() const
    {
        std::string orb = version + "/orb/";
        return root + "/opt\n" + version + "\n" + version + "/bin\n" + version + "/docs\n" +
               version + "/include\n" + version + "/etc\n" + version + "/orb\n" + version +
               "/elm\n" + version + "/legasm\n" + version + "/orb-as\n--\n" + version + "/orb\n" +
               orb + "bin\n" + orb + "lib\n" + orb + "help\n" + orb + "include\n" + orb + "dat\n" +
               orb + "sources\n" + orb + "resources\n" + orb + "docs\n" + orb + "qzm\n" + orb +
               "include\n" + orb + "dat/en_msgs.txt\n/abs/x\n";
    }

    static std::string nothing()
    {
        std::string text;
        for (int kind = 0; kind < QZINSTDIR_LAST; kind++)
            text += "(null)\n";
        text += "--\n";
        for (int kind = 0; kind < 12; kind++)
            text += "(null)\n";
        return text + "/abs/x\n";
    }

    Lines traceOf(const std::string &path, int kind, int status)
    {
        Answer answer = run(path + " trace " + std::to_string(kind));
        EXPECT_EQ(answer.status, status);
        return trace_lines_of(answer.text, "qzinstdir");
    }

    std::string root;
    std::string version;
};

// ---- Where the program runs -------------------------------------------------------------------

TEST_F(QzinstdirTest, AProgramInBinFindsEveryDirectory)
{
    directory(version + "/orb");
    EXPECT_EQ(run(program(version + "/bin/qzm-cc") + " list").text, everyKind());
}

TEST_F(QzinstdirTest, AProgramInTheOrbTreeFindsTheSameDirectories)
{
    EXPECT_EQ(run(program(version + "/orb/bin/qzm-cc") + " list").text, everyKind());
}

TEST_F(QzinstdirTest, AProgramInTheOrbAssemblerTreeFindsTheSameDirectories)
{
    directory(version + "/orb");
    EXPECT_EQ(run(program(version + "/orb-as/bin/qzm-cc") + " list").text, everyKind());
}

TEST_F(QzinstdirTest, AProgramStartedThroughALinkFindsItsOwnInstallation)
{
    directory(version + "/orb");
    fs::create_symlink(program(version + "/bin/qzm-cc"), root + "/link");
    EXPECT_EQ(run(root + "/link list").text, everyKind());
}

TEST_F(QzinstdirTest, AnOrbThatIsALinkToADirectoryCounts)
{
    directory(root + "/elsewhere");
    std::string path = program(version + "/bin/qzm-cc");
    fs::create_directory_symlink(root + "/elsewhere", version + "/orb");
    EXPECT_EQ(run(path + " list").text, everyKind());
}

TEST_F(QzinstdirTest, WithoutOrbNothingIsFound)
{
    EXPECT_EQ(run(program(version + "/bin/qzm-cc") + " list").text, nothing());
    EXPECT_EQ(run(program(version + "/orb-as/bin/qzm-cc") + " list").text, nothing());
}

TEST_F(QzinstdirTest, AnOrbThatIsAFileIsNotFound)
{
    std::string path = program(version + "/bin/qzm-cc");
    std::ofstream(version + "/orb") << "file";
    EXPECT_EQ(run(path + " list").text, nothing());
}

TEST_F(QzinstdirTest, AProgramOutsideBinFindsNothing)
{
    directory(version + "/orb");
    EXPECT_EQ(run(program(version + "/sbin/qzm-cc") + " list").text, nothing());
    EXPECT_EQ(run(program(version + "/bin2/qzm-cc") + " list").text, nothing());
    EXPECT_EQ(run(program(version + "/Bin/qzm-cc") + " list").text, nothing());
    EXPECT_EQ(run(program(version + "/qzm-cc") + " list").text, nothing());
}

TEST_F(QzinstdirTest, ADirectoryNamedLikeOrbWithAnExtensionIsAVersionDirectory)
{
    version = root + "/opt/orb.old";
    directory(version + "/orb");
    EXPECT_EQ(run(program(version + "/bin/qzm-cc") + " list").text, everyKind());
}

TEST_F(QzinstdirTest, TrailingDotsOfTheProgramsDirectoryAreTakenOff)
{
    directory(version + "/orb");
    EXPECT_EQ(run(program(version + "/bin../qzm-cc") + " list").text, everyKind());
}

TEST_F(QzinstdirTest, AFailureIsTriedAgain)
{
    std::string path = program(version + "/bin/qzm-cc");
    EXPECT_EQ(run(path + " later " + version + "/orb").text, "(null)\n" + version + "\n");
}

TEST_F(QzinstdirTest, TheDirectoriesAreWorkedOutOnce)
{
    directory(version + "/orb");
    std::string path = program(version + "/bin/qzm-cc");
    EXPECT_EQ(run(path + " moved " + root + "/opt " + root + "/moved").text,
              version + "\n" + version + "\n");
}

// ---- What the trace says ----------------------------------------------------------------------

TEST_F(QzinstdirTest, TheTraceOfAPlainInstallation)
{
    directory(version + "/orb");
    Lines expected = {"Application appears to be running from directory: \"" + version + "/bin\"",
                      "Identified 'orb' directory: \"" + version + "/orb\"",
                      "qzinstall_ver has been set to: \"" + version + "\"",
                      "qzinstall_dir has been set to: \"" + root + "/opt\"",
                      "Returning install directory: \"" + root + "/opt\""};
    EXPECT_EQ(traceOf(program(version + "/bin/qzm-cc"), 0, 0), expected);
}

TEST_F(QzinstdirTest, TheTraceOfTheOrbTree)
{
    Lines expected = {"Application appears to be running from directory: \"" + version +
                          "/orb/bin\"",
                      "Identified as running from the 'orb' directory: \"" + version + "/orb\"",
                      "Identified 'orb' directory: \"" + version + "/orb\"",
                      "qzinstall_ver has been set to: \"" + version + "\"",
                      "qzinstall_dir has been set to: \"" + root + "/opt\"",
                      "Returning ver directory: \"" + version + "\""};
    EXPECT_EQ(traceOf(program(version + "/orb/bin/qzm-cc"), 1, 0), expected);
}

TEST_F(QzinstdirTest, TheTraceOfTheOrbAssemblerTree)
{
    directory(version + "/orb");
    Lines expected = {
        "Application appears to be running from directory: \"" + version + "/orb-as/bin\"",
        "Identified as running from the 'orb-as' directory: \"" + version + "/orb-as\"",
        "Identified 'orb' directory: \"" + version + "/orb\"",
        "qzinstall_ver has been set to: \"" + version + "\"",
        "qzinstall_dir has been set to: \"" + root + "/opt\"",
        "Returning concatenation of \"" + version + "\" and \"legasm\""};
    EXPECT_EQ(traceOf(program(version + "/orb-as/bin/qzm-cc"), 8, 0), expected);
}

TEST_F(QzinstdirTest, TheTraceWithoutOrb)
{
    Lines expected = {"Application appears to be running from directory: \"" + version + "/bin\"",
                      "The 'orb' directory could not be found: \"" + version + "/orb\""};
    EXPECT_EQ(traceOf(program(version + "/bin/qzm-cc"), 0, 1), expected);
}

TEST_F(QzinstdirTest, TheTraceOutsideBin)
{
    Lines expected = {"Application appears to be running from directory: \"" + version + "/sbin\"",
                      "ERROR - the application is not running from a 'bin' directory"};
    EXPECT_EQ(traceOf(program(version + "/sbin/qzm-cc"), 0, 1), expected);
}

// ---- Near the root of the file system ---------------------------------------------------------

// These copies lie outside the scratch directory and need the right to write there.
class QzinstdirRootTest : public QzinstdirTest {
  protected:
    void TearDown() override
    {
        for (const std::string &path : made)
            fs::remove_all(path);
        QzinstdirTest::TearDown();
    }

    // 0 when `path`, directly below the root, already exists or cannot be made.
    bool make(const std::string &path)
    {
        std::error_code error;
        if (fs::exists(path) || !fs::create_directory(path, error))
            return false;
        made.push_back(path);
        return true;
    }

    Lines made;
};

TEST_F(QzinstdirRootTest, AVersionDirectoryBelowTheRootIsInstalledInTheRoot)
{
    std::string below = "/instdir_test" + std::to_string(getpid());
    if (!make(below))
        GTEST_SKIP() << "cannot create a directory in /";
    directory(below + "/orb");
    std::string answer = run(program(below + "/bin/qzm-cc") + " list").text;
    EXPECT_EQ(answer.substr(0, answer.find("/docs")),
              "/\n" + below + "\n" + below + "/bin\n" + below);
}

TEST_F(QzinstdirRootTest, AProgramInTheRootFindsNothing)
{
    std::string path = "/instdir_probe" + std::to_string(getpid());
    std::error_code error;
    if (!fs::copy_file(QZINSTDIR_PROBE, path, error))
        GTEST_SKIP() << "cannot create a file in /";
    made.push_back(path);
    EXPECT_EQ(traceOf(path, 0, 1), Lines{"ERROR - couldn't get a path based on progname"});
}

TEST_F(QzinstdirRootTest, TheRootIsNoVersionDirectory)
{
    if (!make("/orb"))
        GTEST_SKIP() << "cannot create /orb";
    Lines expected = {"Application appears to be running from directory: \"/orb/bin\"",
                      "Identified as running from the 'orb' directory: \"/orb\"",
                      "Identified 'orb' directory: \"/orb\"",
                      "qzinstall_ver has been set to: \"/\""};
    std::string path = program("/orb/bin/qzm-cc");
    EXPECT_EQ(traceOf(path, 0, 1), expected);
    EXPECT_EQ(run(path + " list").text, nothing());
}

// ---- Set by the caller ------------------------------------------------------------------------

TEST_F(QzinstdirTest, ASetDirectoryIsUsedInsteadOfThePrograms)
{
    directory(version);
    Lines lines = trace_lines_while("qzinstdir", [&] { qzinstdir_set(version.c_str()); });
    EXPECT_EQ(lines, Lines{"Install dir set to: \"" + version + "\""});
    EXPECT_STREQ(qzinstdir(QZINSTDIR_INSTALL), (root + "/opt").c_str());
    EXPECT_STREQ(qzinstdir(QZINSTDIR_VERSION), version.c_str());
    EXPECT_STREQ(qzinstdir(QZINSTDIR_ORB_AS), (version + "/orb-as").c_str());
}

TEST_F(QzinstdirTest, EveryAnswerIsInterned)
{
    directory(version);
    ASSERT_EQ(qzinstdir_set(version.c_str()), 0);
    for (int kind = QZINSTDIR_FIRST; kind < QZINSTDIR_LAST; kind++)
        EXPECT_EQ(qzinstdir(kind), cache_string(qzinstdir(kind)));
}

TEST_F(QzinstdirTest, ASetDirectoryNeedsNoOrb)
{
    directory(version);
    EXPECT_EQ(qzinstdir_set(version.c_str()), 0);
    EXPECT_EQ(qzinstdir_hasOrb(), 0);
    directory(version + "/orb");
    EXPECT_EQ(qzinstdir_hasOrb(), 1);
}

TEST_F(QzinstdirTest, AnotherSetDirectoryReplacesTheFirst)
{
    directory(version + "/orb");
    directory(root + "/other");
    EXPECT_EQ(qzinstdir_set(version.c_str()), 0);
    EXPECT_EQ(qzinstdir_hasOrb(), 1);
    EXPECT_EQ(qzinstdir_set((root + "/other").c_str()), 0);
    EXPECT_EQ(qzinstdir_hasOrb(), 0);
    EXPECT_EQ(qzinstdir(QZINSTDIR_INSTALL), cache_string(root.c_str()));
}

TEST_F(QzinstdirTest, ASetDirectoryIsNormalised)
{
    directory(version);
    EXPECT_EQ(qzinstdir_set((root + "//opt/./v2.32/").c_str()), 0);
    EXPECT_STREQ(qzinstdir(QZINSTDIR_INSTALL), (root + "/opt").c_str());
    EXPECT_STREQ(qzinstdir(QZINSTDIR_VERSION), version.c_str());
}

TEST_F(QzinstdirTest, AMissingDirectoryIsRefusedAndChangesNothing)
{
    directory(version);
    ASSERT_EQ(qzinstdir_set(version.c_str()), 0);
    int status = 0;
    std::string missing = root + "/missing";
    Lines lines = trace_lines_while("qzinstdir", [&] { status = qzinstdir_set(missing.c_str()); });
    EXPECT_EQ(status, 1);
    EXPECT_EQ(lines, Lines{"Path doesn't exist: \"" + missing + "\""});
    EXPECT_STREQ(qzinstdir(QZINSTDIR_VERSION), version.c_str());
}

TEST_F(QzinstdirTest, ANullDirectoryIsRefused)
{
    directory(version);
    ASSERT_EQ(qzinstdir_set(version.c_str()), 0);
    EXPECT_EQ(qzinstdir_set(nullptr), 1);
    EXPECT_EQ(qzinstdir_set(""), 1);
    EXPECT_STREQ(qzinstdir(QZINSTDIR_VERSION), version.c_str());
}

TEST_F(QzinstdirTest, ADirectoryWithoutAParentIsRefused)
{
    int status = 0;
    Lines lines = trace_lines_while("qzinstdir", [&] { status = qzinstdir_set("/"); });
    EXPECT_EQ(status, 1);
    EXPECT_EQ(lines, Lines{"Path doesn't exist: \"(null)\""});
}

TEST_F(QzinstdirTest, ASetDirectoryBelowTheRootIsInstalledInTheRoot)
{
    ASSERT_EQ(qzinstdir_set("/tmp"), 0);
    EXPECT_STREQ(qzinstdir(QZINSTDIR_INSTALL), "/");
    EXPECT_STREQ(qzinstdir(QZINSTDIR_BIN), "/tmp/bin");
}

TEST_F(QzinstdirTest, AKindOutsideTheTableIsABrokenContract)
{
    const char *report = "Assertion failed - \\(path >= QZINSTDIR_FIRST\\) && "
                         "\\(path < QZINSTDIR_LAST\\) \\(common/qzinstdir, line 10\\)\n";
    EXPECT_EXIT(qzinstdir(10), testing::ExitedWithCode(1), report);
    EXPECT_EXIT(qzinstdir(-1), testing::ExitedWithCode(1), report);
}

} // namespace
