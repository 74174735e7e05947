// Response files that are wrong, strange or large.
#include <filesystem>
#include <fstream>

#include "tests/cli/suite_fixture.h"

// Under a sanitizer the program needs more of everything.
#ifdef __SANITIZE_ADDRESS__
static const long MEMORY_FACTOR = 10;
#else
static const long MEMORY_FACTOR = 1;
#endif

class ResponseFileTest : public SuiteTest {
  protected:
    // The lines of the command file between the device's option and the final ones.
    std::string argumentsGiven() const
    {
        std::string text = child().commandFile;
        size_t from = text.find('\n') + 1;
        return text.substr(from, text.find("-Wl,--info-linker\n") - from);
    }

    // One line on standard error that contains the name, no child, a status of failure.
    void expectRefused(const RunResult &result, const std::string &name)
    {
        EXPECT_NE(result.status, 0);
        EXPECT_EQ(result.signal, 0);
        EXPECT_NE(result.err.find(name), std::string::npos) << result.err;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        EXPECT_EQ(result.out, "");
        EXPECT_FALSE(child().ran);
        EXPECT_LT(result.processorSeconds, 5); // less than 1 in a release build
        EXPECT_LT(result.peakKilobytes, MEMORY_FACTOR * 64 * 1024);
    }
};

TEST_F(ResponseFileTest, ThatNamesItselfIsRefused)
{
    write("self.rsp", "-O2 @self.rsp\n");
    expectRefused(run({"-mcpu=elmbig1", "@self.rsp"}, {.endsEarly = true}), "self.rsp");
}

TEST_F(ResponseFileTest, ThatNamesItselfTwiceIsRefusedAtOnce)
{
    write("self.rsp", "@self.rsp @self.rsp\n");
    expectRefused(run({"-mcpu=elmbig1", "@self.rsp"}, {.endsEarly = true}), "self.rsp");
}

TEST_F(ResponseFileTest, ThatNamesItselfThroughAnotherIsRefused)
{
    write("a.rsp", "@b.rsp\n");
    write("b.rsp", "@./a.rsp\n");
    expectRefused(run({"-mcpu=elmbig1", "@a.rsp"}, {.endsEarly = true}), ".rsp");
}

TEST_F(ResponseFileTest, MayBeNamedTwiceSideBySide)
{
    write("a.rsp", "-Wall\n");
    RunResult result = run({"-mcpu=elmbig1", "@a.rsp", "@a.rsp"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(argumentsGiven(), "-Wall\n-Wall\n");
}

TEST_F(ResponseFileTest, NestsToOneHundredLevels)
{
    for (int level = 1; level < 100; level++)
        write(numbered("n", level), numbered("@n", level + 1));
    write("n100", "-Wall");
    RunResult result = run({"-mcpu=elmbig1", "@n1"});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(argumentsGiven(), "-Wall\n");
}

TEST_F(ResponseFileTest, ThatNestsDeeperThanOneHundredLevelsIsRefused)
{
    for (int level = 1; level <= 101; level++)
        write(numbered("n", level), numbered("@n", level + 1));
    write("n102", "-Wall");
    expectRefused(run({"-mcpu=elmbig1", "@n1"}, {.endsEarly = true}), "n10");
}

TEST_F(ResponseFileTest, ATokenOf2047CharactersIsKept)
{
    std::string token = "-D" + std::string(2045, 'x');
    write("long.rsp", token + "\n-Wall\n");
    RunResult result = run({"-mcpu=elmbig1", "@long.rsp"});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(argumentsGiven(), token + "\n-Wall\n");
}

TEST_F(ResponseFileTest, ALongerTokenIsCutReportedAndEndsTheFile)
{
    std::string token = "-D" + std::string(2046, 'x');
    write("long.rsp", token + "\n-Wall\n");
    RunResult result = run({"-mcpu=elmbig1", "@long.rsp", "main.c"});
    EXPECT_EQ(result.err, "(917) argument too long\n");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(argumentsGiven(), token.substr(0, 2047) + "\nmain.c\n");
}

TEST_F(ResponseFileTest, ALineOf10MegabytesOfTokensIsRead)
{
    std::string line;
    while (line.size() < 10'000'000)
        line += "-Dsome_reasonable_macro_name_" + std::string(1000, 'y') + " ";
    write("wide.rsp", line);
    RunResult result = run({"-mcpu=elmbig1", "@wide.rsp"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(argumentsGiven(), replaceAll(line, " ", "\n"));
}

TEST_F(ResponseFileTest, LeavesStandardInputToTheChild)
{
    writeProgram(suite + "/elm/bin/elm-gcc", "#!/bin/sh\ncat; head -n 8 \"${1#@}\"\n");
    write("outer.rsp", "-Wall @inner.rsp\n");
    write("inner.rsp", "-O2\n");
    const std::string compile = "\"$0\" -mcpu=elmbig1 @outer.rsp -x c -c -";
    for (const std::string &script :
         {"echo 'int x;' | " + compile, // a pipe; a file from which a line has already been read
          "(echo; echo 'int x;') > both; (read first; " + compile + ") < both"}) {
        RunResult result = runProgram({"/bin/sh", "-c", script, suite + "/bin/qzm-cc"});
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.out,
                  "int x;\n-mmcu=elmbig1\n-Wall\n-O2\n-x\nc\n-c\n-\n-Wl,--info-linker\n");
    }
}

TEST_F(ResponseFileTest, LeavesAClosedStandardInputAlone)
{
    writeProgram(suite + "/elm/bin/elm-gcc", "#!/bin/sh\nexec cat 2>/dev/null\n");
    write("file.rsp", "-O2\n");
    RunResult result = runProgram(
        {"/bin/sh", "-c", "exec \"$0\" -mcpu=elmbig1 @file.rsp main.c <&-", suite + "/bin/qzm-cc"});
    EXPECT_EQ(result.status, 1); // reading fails, as it does without a response file
    EXPECT_EQ(result.out + result.err, "");
}

TEST_F(ResponseFileTest, ANulEndsItsTokenAndTheRestCounts)
{
    write("nul.rsp", std::string("-DA\0B -Wall\n-DC\n", 16));
    RunResult result = run({"-mcpu=elmbig1", "@nul.rsp"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(argumentsGiven(), "-DA\nB\n-Wall\n-DC\n");
}

TEST_F(ResponseFileTest, UnreadableIsAnArgument)
{
    if (!canBeNobody())
        GTEST_SKIP() << "needs root, and a build folder that everybody can reach";
    write("locked.rsp", "-Wall\n");
    std::filesystem::permissions(work + "/locked.rsp", std::filesystem::perms::none);
    RunResult result = run({"-mcpu=elmbig1", "@locked.rsp"}, {.asNobody = true});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(argumentsGiven(), "@locked.rsp\n");
}

// Some 60 kilobytes of arguments, the first of which has the number given; the number of the next
// one is stored there.
static std::string someArguments(int &number, const std::string &end)
{
    std::string text;
    while (text.size() < 60'000)
        text += numbered("-D", number++) + end;
    return text;
}

// The files are never in memory as a whole, because the memory of this process counts for the
// program that it starts.
TEST_F(ResponseFileTest, WithTooManyArgumentsIsRefusedInLittleMemory)
{
    write("empty.rsp", "");
    std::filesystem::resize_file(work + "/empty.rsp", 70'000'000);
    expectRefused(run({"-mcpu=elmbig1", "@empty.rsp"}, {.endsEarly = true}), "empty.rsp");
    for (const auto &[end, size] : std::map<std::string, int>{
             {" x x x x x x x x x x x x x x x x x x x x x x x x x x x x x x x\n", 20'000'000},
             {" \\\\ ' ' \\\\ ' ' \\\\ ' ' \\\\ ' ' \\\\ ' ' \\\\ ' '\n", 25'000'000},
             {"\n", 40'000'000},
             {std::string(2000, 'x') + "\n", 70'000'000}}) {
        std::ofstream file(work + "/large.rsp", std::ios::binary);
        for (int number = 0; file.tellp() < size;)
            file << someArguments(number, end);
        file.close();
        expectRefused(run({"-mcpu=elmbig1", "@large.rsp"}, {.endsEarly = true}), "large.rsp");
    }
}

// When the file that is too many is reached, the arguments of the files before it use memory.
TEST_F(ResponseFileTest, ThatIsOneTooManyIsRefusedInLittleMemory)
{
    if (traced())
        GTEST_SKIP() << "the trace of that many arguments takes too long";
    for (const size_t length : {0, 100, 450, 2000}) {
        const std::string end = std::string(length, 'x') + "\n";
        std::vector<std::string> args = {"-mcpu=elmbig1"};
        size_t bytes = 0;
        for (int number = 0; bytes + static_cast<size_t>(number) * 256 < 70'000'000;) {
            args.push_back(numbered("@part", number));
            const std::string text = someArguments(number, end);
            write(args.back().substr(1), text);
            bytes += text.size();
        }
        expectRefused(run(args, {.endsEarly = true}), "part");
    }
}

// 100,000 arguments, all different. With the trace a tenth of that, since it writes far more.
TEST_F(ResponseFileTest, ManyArgumentsAreTakenInOrderAndInTime)
{
    std::string lines;
    int count = traced() ? 10'000 : 100'000;
    for (int i = 0; i < count; i++)
        lines += numbered(i % 2 == 0 ? "-DNAME" : "-Iinclude/dir", i) + "\n";
    write("many.rsp", lines);
    RunResult result = run({"-mcpu=elmbig1", "@many.rsp"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(argumentsGiven(), lines);
    EXPECT_LT(result.seconds, 30);
    EXPECT_LT(result.peakKilobytes, MEMORY_FACTOR * 256 * 1024);
}
