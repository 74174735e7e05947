// The child: its status, its death, its absence, and signals while it runs.
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>

#include <sys/stat.h>

#include "tests/cli/suite_fixture.h"

using ChildTest = SuiteTest;

static const std::vector<std::string> COMPILE = {"-mcpu=elmbig1", "-c", "main.c"};

TEST_F(ChildTest, ItsExitStatusIsTheProgramsExitStatus)
{
    for (int status : {0, 1, 3, 127, 255}) {
        RunResult result = run(COMPILE, {.env = {{"QZM_CHILD_EXIT", std::to_string(status)}}});
        EXPECT_EQ(result.status, status);
        EXPECT_EQ(result.out + result.err, "");
    }
}

TEST_F(ChildTest, KilledByASignalIsReportedAndGivesStatus255)
{
    for (int number : {SIGKILL, SIGTERM, SIGUSR1}) {
        RunResult result = run(COMPILE, {.env = {{"QZM_CHILD_SIGNAL", std::to_string(number)}}});
        EXPECT_EQ(result.status, 255);
        EXPECT_EQ(result.err, suite + "/elm/bin/elm-gcc: signal " + std::to_string(number) + " \n");
        EXPECT_EQ(result.out, "");
    }
}

TEST_F(ChildTest, InTheProgramsOwnDirectoryIsTheSecondChoice)
{
    std::filesystem::rename(suite + "/elm/bin/elm-gcc", suite + "/bin/elm-gcc");
    RunResult result = run(COMPILE);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(child().argv.at(0), suite + "/bin/elm-gcc");
}

TEST_F(ChildTest, IsFoundWhenTheProgramRunsInTheOrbTree)
{
    copyProgram(suite + "/bin/qzm-cc", suite + "/orb/bin/qzm-cc");
    RunResult result = runProgram({suite + "/orb/bin/qzm-cc", "-mcpu=elmbig1", "main.c"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(child().argv.at(0), suite + "/elm/bin/elm-gcc");
}

TEST_F(ChildTest, IsFoundThroughASymbolicLinkToTheProgram)
{
    std::filesystem::create_symlink(suite + "/bin/qzm-cc", work + "/cc-link");
    RunResult result = runProgram({work + "/cc-link", "-mcpu=elmbig1", "main.c"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(child().argv.at(0), suite + "/elm/bin/elm-gcc");
}

TEST_F(ChildTest, IsNotFoundWithoutAnInstallation)
{
    copyProgram(suite + "/bin/qzm-cc", scratch + "/elsewhere/qzm-cc");
    RunResult result = runProgram({scratch + "/elsewhere/qzm-cc", "-mcpu=elmbig1", "main.c"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "(2045) could not find executable \"elm-gcc\"\n");
}

TEST_F(ChildTest, ThatIsNotExecutableGivesStatus255AndSaysNothingTwice)
{
    chmod((suite + "/elm/bin/elm-gcc").c_str(), 0644);
    std::vector<std::string> verbose = COMPILE;
    verbose.push_back("-v");
    RunResult result = run(verbose, {.endsEarly = true});
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 1) << result.out;
    EXPECT_FALSE(child().ran);
}

TEST_F(ChildTest, ThatIsNoProgramGivesStatus255)
{
    write(suite + "/elm/bin/elm-gcc", "this is no program\n");
    chmod((suite + "/elm/bin/elm-gcc").c_str(), 0755);
    RunResult result = run(COMPILE, {.endsEarly = true});
    EXPECT_EQ(result.status, 255);
}

TEST_F(ChildTest, ThatIsADirectoryGivesStatus255)
{
    std::filesystem::remove(suite + "/elm/bin/elm-gcc");
    std::filesystem::create_directory(suite + "/elm/bin/elm-gcc");
    RunResult result = run(COMPILE, {.endsEarly = true});
    EXPECT_EQ(result.status, 255);
}

// A signal at the program alone, while the child runs.
TEST_F(ChildTest, ASignalEndsTheProgramWithItsNumberAndLeavesNoFile)
{
    for (int number : {SIGINT, SIGTERM, SIGHUP}) {
        std::string commandFile;
        auto signalled = [&](pid_t pid) {
            commandFile = child().commandFileName;
            EXPECT_TRUE(hasMounts() || fileExists(commandFile)) << commandFile;
            kill(pid, number);
        };
        RunResult result =
            run(COMPILE,
                {.env = {{"QZM_CHILD_WAIT", "1"}}, .endsEarly = true, .whileRunning = signalled});
        EXPECT_EQ(result.status, number);
        EXPECT_EQ(result.signal, 0);
        EXPECT_EQ(result.out, "\n");
        EXPECT_EQ(result.err, "");
        EXPECT_FALSE(fileExists(commandFile));
    }
}

// The child would otherwise go on without its command file.
TEST_F(ChildTest, ASignalAtTheProgramAloneEndsTheChildToo)
{
    pid_t childProcess = 0;
    auto signalled = [&](pid_t pid) {
        std::ifstream("/proc/" + std::to_string(pid) + "/task/" + std::to_string(pid) +
                      "/children") >>
            childProcess;
        kill(pid, SIGTERM);
    };
    RunResult result = run(
        COMPILE, {.env = {{"QZM_CHILD_WAIT", "1"}}, .endsEarly = true, .whileRunning = signalled});
    EXPECT_EQ(result.status, SIGTERM);
    if (childProcess == 0)
        GTEST_SKIP() << "this machine does not tell a process's children";
    EXPECT_EQ(kill(childProcess, 0), -1);
    EXPECT_EQ(errno, ESRCH);
}

// The C library's exit() holds a lock then, for which it would wait forever.
TEST_F(ChildTest, ASignalThatMeetsTheEndOfARunEndsIt)
{
    const char gdb[] = "/usr/bin/gdb";
    if (!fileExists(gdb))
        GTEST_SKIP() << "there is no gdb";
    RunResult result =
        runProgram({gdb, "-batch", "-ex", "handle SIGTERM nostop noprint pass", "-ex", "break exit",
                    "-ex", "run --help >/dev/null", "-ex", "watch *(int*)&__exit_funcs_lock", "-ex",
                    "continue", "-ex", "signal SIGTERM", suite + "/bin/qzm-cc"},
                   {.env = {{"HOME", scratch}}, .timeLimit = 20});
    if (result.out.find("Old value = 0") == std::string::npos)
        GTEST_SKIP() << "gdb cannot stop this program there: " << result.out << result.err;
    EXPECT_NE(result.out.find("exited with code 017"), std::string::npos) << result.out;
}

// As a terminal does it: the child gets the signal, too.
TEST_F(ChildTest, AnInterruptOfBothEndsTheProgramWithItsNumber)
{
    RunResult result = run(COMPILE, {.env = {{"QZM_CHILD_WAIT", "1"}},
                                     .endsEarly = true,
                                     .whileRunning = [](pid_t pid) { kill(-pid, SIGINT); }});
    EXPECT_EQ(result.status, SIGINT);
}

TEST_F(ChildTest, IsRunAlthoughItsCommandCannotBeShown)
{
    RunResult result = runProgram(
        {"/bin/sh", "-c", "exec " + suite + "/bin/qzm-cc -v -mcpu=elmbig1 -c main.c >/dev/full"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err,
              "(105) could not write file \"standard output\": No space left on device\n");
    EXPECT_TRUE(child().ran);
}

TEST_F(ChildTest, AVersionRequestGoesToTheLegacyDriverWhateverTheDevice)
{
    RunResult result = run({"-mcpu=elmbig1", "--version"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(child().argv.at(0), suite + "/orb/bin/qzm");
}

// The legacy driver's own option to keep its files keeps the command file, too.
TEST_F(ChildTest, TheCommandFileIsKeptWhenTheUserAsksForIt)
{
    RunResult result = runProgram({suite + "/bin/qzm-cc", "-mcpu=18z40", "--nodel", "main.c"}, {});
    EXPECT_EQ(result.status, 0);
    const ChildRecord record = child();
    EXPECT_NE(record.commandFile.find("\n--nodel\n"), std::string::npos) << record.commandFile;
    if (hasMounts()) {
        EXPECT_EQ(result.leftBehind.size(), 1u);
        std::filesystem::remove_all(scratch + "/tmp");
    } else {
        EXPECT_TRUE(fileExists(record.commandFileName));
        std::filesystem::remove(record.commandFileName);
    }
}

// The other case in which a file stays. It also shows that these tests would notice one.
TEST_F(ChildTest, AKilledProgramLeavesItsCommandFile)
{
    if (!hasMounts())
        GTEST_SKIP() << "this machine does not allow mounts of one's own";
    RunResult result = runProgram(
        {suite + "/bin/qzm-cc", "-mcpu=elmbig1", "main.c"},
        {.env = {{"QZM_CHILD_WAIT", "1"}}, .whileRunning = [](pid_t pid) { kill(pid, SIGKILL); }});
    EXPECT_EQ(result.signal, SIGKILL);
    EXPECT_EQ(result.leftBehind.size(), 1u);
}
