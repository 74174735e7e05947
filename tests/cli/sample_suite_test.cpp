// The sample installation does real work.
#include "tests/cli/suite_fixture.h"

#include <filesystem>

class SampleSuiteTest : public SuiteTest {
  protected:
    void SetUp() override { installSampleElmGcc(); }

    bool isElf(const std::string &name) const
    {
        return readFile(work + "/" + name).substr(0, 4) == "\177ELF";
    }
};

TEST_F(SampleSuiteTest, CompilesAFile)
{
    write("main.c", "#ifndef __QZM__\n#error no macro\n#endif\nint main(void) { return 0; }\n");
    RunResult result = run({"-mcpu=elmbig1", "-O2", "-c", "main.c", "-o", "main.o"});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(isElf("main.o"));
}

TEST_F(SampleSuiteTest, LinksAProgramOfSeveralFilesInANamedFolder)
{
    write("a b/main.c", "int f(void);\nint main(void) { return f(); }\n");
    write("a b/f.c", "int f(void) { return NUMBER; }\n");
    RunResult result = run({"-mcpu=elmbig1", "-DNUMBER=0", "a b/main.c", "a b/f.c",
                            "-Wl,-Map=x.map", "-o", "a b/prog"});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(isElf("a b/prog"));
    EXPECT_NE(readFile(work + "/x.map"), "");
}

TEST_F(SampleSuiteTest, ACompileErrorComesBackWithTextAndStatus)
{
    write("bad.c", "int main(void) { return x; }\n");
    RunResult result = run({"-mcpu=elmbig1", "-c", "bad.c"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("bad.c:1:25: error: 'x' undeclared"), std::string::npos)
        << result.err;
    EXPECT_FALSE(fileExists(work + "/bad.o"));
}

TEST_F(SampleSuiteTest, PreprocessesToStandardOutput)
{
    write("main.c", "VALUE \n");
    RunResult result = run({"-mcpu=elmbig1", "-E", "-P", "-DVALUE=it is \"this\"", "main.c"});
    EXPECT_EQ(result.out, "it is \"this\"\n");
    EXPECT_EQ(result.status, 0);
}

TEST_F(SampleSuiteTest, WritesTheDependencyFile)
{
    write("main.c", "#include \"x.h\"\nint i;\n");
    write("x.h", "\n");
    RunResult result =
        run({"-mcpu=elmbig1", "-c", "main.c", "-MMD", "-MP", "-MF", "main.d", "-o", "main.o"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(readFile(work + "/main.d"), "main.o: main.c x.h\nx.h:\n");
}

TEST_F(SampleSuiteTest, BuildsItsProjectWithMake)
{
    std::filesystem::copy(QZM_SAMPLE_DIR "/project", work,
                          std::filesystem::copy_options::recursive);
    RunResult result = runProgram({"make", "-s", "CC=" + suite + "/bin/qzm-cc"});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(isElf("leds.elf"));
}

TEST_F(SampleSuiteTest, AParallelBuildOf200FilesLeavesNothingBehind)
{
    std::string makefile = "all:";
    for (int i = 0; i < 200; i++) {
        std::string name = numbered("f", i);
        write(name + ".c", "int " + name + "(int a) { return a + " + std::to_string(i) + "; }\n");
        makefile += " " + name + ".o";
    }
    write("Makefile", makefile + "\n%.o: %.c\n\t$(CC) -mcpu=elmbig1 -c $< -o $@\n");
    RunResult result =
        runProgram({"make", "-s", "-j8", "CC=" + suite + "/bin/qzm-cc"}, {.timeLimit = 240});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.leftBehind, std::vector<std::string>{});
    for (int i = 0; i < 200; i++)
        EXPECT_TRUE(isElf(numbered("f", i) + ".o")) << i;
}

// The sample's own reader of command files.

class SampleElmGccTest : public SampleSuiteTest {
  protected:
    // What the preprocessor makes of "main.c" with the command file's arguments.
    RunResult preprocess(const std::string &commandFile)
    {
        write("main.c", "A B C\n");
        write("given.cmd", commandFile);
        return runProgram({suite + "/elm/bin/elm-gcc", "-E", "-P", "main.c", "@given.cmd"});
    }
};

TEST_F(SampleElmGccTest, ReadsQuotesAndBackslashesAsAGnuDriverDoes)
{
    RunResult result =
        preprocess("-DA='one \"two\"'\n\"-DB=\\\"three\\\" it's\"\r\n\t-DC=a\\ \\\\b\\'\f");
    EXPECT_EQ(result.out, "one \"two\" \"three\" it's a \\b'\n");
    EXPECT_EQ(result.status, 0);
}

TEST_F(SampleElmGccTest, ReadsCommandFilesNamedByCommandFiles)
{
    write("inner", "-DB=2 -DC=3");
    EXPECT_EQ(preprocess("-DA=1 @inner\n").out, "1 2 3\n");
}

TEST_F(SampleElmGccTest, DropsWhatOnlyTheRealOneKnows)
{
    RunResult result = preprocess("-mmcu=elmbig1 -mdevice=elmbig1 -mdfp=x -mconst-data-in-progmem "
                                  "-mno-const-data-in-progmem -Wl,--info-linker "
                                  "-Wl,--memorysummary,m.xml -mskip-bug -mcodeoffset=4 -DA=1");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, "1 B C\n");
    EXPECT_EQ(result.status, 0);
}

TEST_F(SampleElmGccTest, RefusesAMissingCommandFile)
{
    RunResult result = runProgram({suite + "/elm/bin/elm-gcc", "@nowhere.cmd"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, suite + "/elm/bin/elm-gcc: error: command file \"nowhere.cmd\": "
                                  "No such file or directory\n");
}

TEST_F(SampleElmGccTest, RefusesACommandFileThatNamesItself)
{
    RunResult result = preprocess("@given.cmd @given.cmd");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, suite + "/elm/bin/elm-gcc: error: command file \"given.cmd\": "
                                  "command files nest too deep or are too many\n");
}

TEST_F(SampleElmGccTest, RefusesACommandFileWithANul)
{
    RunResult result = preprocess(std::string("-DA=1\0 -DB=2", 12));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, suite + "/elm/bin/elm-gcc: error: command file \"given.cmd\": "
                                  "holds a NUL character\n");
}

TEST_F(SampleElmGccTest, GivesTheCompilersStatusAndText)
{
    RunResult result = preprocess("no-such-file.c");
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("no-such-file.c: No such file or directory"), std::string::npos);
}
