// Machines in a bad state: no place or permission to write, no descriptors, no processes.
#include "tests/cli/suite_fixture.h"

static const std::vector<std::string> COMPILE = {"-mcpu=elmbig1", "-c", "main.c"};
static const char *const NEEDS_MOUNTS = "this machine does not allow mounts of one's own";
static const char *const NEEDS_NOBODY = "needs root, and a build folder that everybody can reach";

class SurroundingsTest : public SuiteTest {
  protected:
    void expectNoCommandFile(const RunOptions &options)
    {
        RunResult result = run(COMPILE, options);
        EXPECT_EQ(result.err,
                  suite + "/bin/qzm-cc: fatal error: Could not create temporary file\n");
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.status, 1);
        EXPECT_FALSE(child().ran);
    }
};

TEST_F(SurroundingsTest, AMissingTmpIsAFatalError)
{
    if (!hasMounts())
        GTEST_SKIP() << NEEDS_MOUNTS;
    expectNoCommandFile({.tmp = Tmp::Missing});
}

TEST_F(SurroundingsTest, AReadOnlyTmpIsAFatalError)
{
    if (!hasMounts())
        GTEST_SKIP() << NEEDS_MOUNTS;
    expectNoCommandFile({.tmp = Tmp::ReadOnly});
}

TEST_F(SurroundingsTest, ATmpWithoutRoomForAFileIsAFatalError)
{
    if (!hasMounts())
        GTEST_SKIP() << NEEDS_MOUNTS;
    expectNoCommandFile({.tmp = Tmp::NoFiles});
}

TEST_F(SurroundingsTest, AFullTmpIsAFatalErrorAndNoChildSeesHalfACommand)
{
    if (!hasMounts())
        GTEST_SKIP() << NEEDS_MOUNTS;
    RunResult result = run(COMPILE, {.tmp = Tmp::NoSpace});
    EXPECT_EQ(result.err.rfind(suite + "/bin/qzm-cc: fatal error: ", 0), 0U) << result.err;
    EXPECT_NE(result.err.find("temporary file"), std::string::npos) << result.err;
    EXPECT_EQ(result.status, 1);
    EXPECT_FALSE(child().ran);
}

TEST_F(SurroundingsTest, NoDescriptorLeftIsAFatalError)
{
    expectNoCommandFile({.fileLimit = 5});
}

TEST_F(SurroundingsTest, NoProcessLeftGivesStatus255)
{
    if (!canBeNobody())
        GTEST_SKIP() << NEEDS_NOBODY;
    RunResult result = run(COMPILE, {.asNobody = true, .noProcesses = true});
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(result.out, "");
    EXPECT_FALSE(child().ran);
}

TEST_F(SurroundingsTest, AnUnprivilegedUserNeedsNothingMore)
{
    if (!canBeNobody())
        GTEST_SKIP() << NEEDS_NOBODY;
    RunResult result = run(COMPILE, {.asNobody = true});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(child().ran);
}

// A run without output does not notice a closed standard output.
TEST_F(SurroundingsTest, ClosedStandardStreamsDoNotGetTheCommandFilesDescriptor)
{
    RunResult result = runProgram(
        {"/bin/sh", "-c", "exec \"$0\" -mcpu=elmbig1 main.c >&- 2>&- <&-", suite + "/bin/qzm-cc"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(child().commandFile.substr(0, 15), "-mmcu=elmbig1\nm");
}

TEST_F(SurroundingsTest, AReaderThatHasGoneAwayLeavesNoFile)
{
    runProgram({"/bin/sh", "-c", "(sleep 0.2; exec \"$0\" -v -mcpu=elmbig1 main.c) | true",
                suite + "/bin/qzm-cc"});
    EXPECT_TRUE(child().ran);
    EXPECT_FALSE(fileExists(child().commandFileName));
}

TEST_F(SurroundingsTest, ALimitOnFileSizesIsAFatalErrorAndLeavesNoFile)
{
    RunResult result =
        runProgram({"/bin/sh", "-c", "ulimit -f 0; exec \"$0\" -mcpu=elmbig1 main.c 2>/dev/null",
                    suite + "/bin/qzm-cc"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.signal, 0);
    EXPECT_FALSE(child().ran);
}
