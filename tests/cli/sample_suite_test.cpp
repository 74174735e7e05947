// The sample installation does real work.
#include <filesystem>
#include <sstream>

#include "tests/cli/suite_fixture.h"

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

// The same for the ORB families, whose driver uses different options.

class SampleOrbTest : public SuiteTest {
  protected:
    void SetUp() override { installSampleQzm(); }

    // Whether every line of an Intel HEX file is complete and its bytes add up to zero.
    static bool isHex(const std::string &text)
    {
        std::istringstream lines(text);
        std::string line;
        std::string last;
        while (std::getline(lines, line)) {
            unsigned sum = 0;
            if (line.empty() || line[0] != ':' || line.size() % 2 == 0)
                return false;
            for (size_t i = 1; i < line.size(); i += 2)
                sum += static_cast<unsigned>(std::stoul(line.substr(i, 2), nullptr, 16));
            if (sum % 256 != 0)
                return false;
            last = line;
        }
        return last == ":00000001FF";
    }
    void copyProject() const
    {
        std::filesystem::copy(QZM_SAMPLE_DIR "/project", work,
                              std::filesystem::copy_options::recursive);
    }
};

TEST_F(SampleOrbTest, CompilesToAnIntermediateFile)
{
    write("main.c", "#include <qz.h>\n#ifndef __QZM__\n#error no macro\n#endif\n"
                    "int main(void) { return 0; }\n");
    RunResult result = run({"-mcpu=16z20a", "-O2", "-c", "main.c"});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.leftBehind, std::vector<std::string>{});
    EXPECT_EQ(readFile(work + "/main.p1").rfind("Version", 0), 0U);
}

TEST_F(SampleOrbTest, LinksIntermediateFilesAndSourcesToHexWithMapAndSummary)
{
    copyProject();
    write("out/keep", "");
    EXPECT_EQ(run({"-mcpu=16z20a", "-O2", "-c", "main.c"}).status, 0);
    RunResult result = run({"-mcpu=16z20a", "main.p1", "util.c", "start.s", "-Wl,-Map=out.map",
                            "--memorysummary=mem.xml", "-o", "out/prog.hex"});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.leftBehind, std::vector<std::string>{});
    EXPECT_TRUE(isHex(readFile(work + "/out/prog.hex")));
    EXPECT_NE(readFile(work + "/out.map").find("_main"), std::string::npos);
    EXPECT_NE(readFile(work + "/mem.xml").find("device=\"16z20a\""), std::string::npos);
}

TEST_F(SampleOrbTest, ACompileErrorComesBackInTheDriversFormatWithItsStatus)
{
    write("bad.c", "int main(void) { return x; }\n");
    RunResult result = run({"-mcpu=18z40", "-c", "bad.c"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("bad.c:1:25: error: (5000) 'x' undeclared"), std::string::npos)
        << result.err;
    EXPECT_FALSE(fileExists(work + "/bad.p1"));
    EXPECT_EQ(result.leftBehind, std::vector<std::string>{});
}

TEST_F(SampleOrbTest, PreprocessesToStandardOutputAndNothingElseThere)
{
    write("main.c", "VALUE\n");
    RunResult result = run({"-mcpu=16z20a", "-E", "-DVALUE=one", "main.c"});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
    std::istringstream lines(result.out);
    std::string line;
    std::string text;
    while (std::getline(lines, line)) {
        if (line.rfind("# ", 0) != 0)
            text += line + "\n";
    }
    EXPECT_EQ(text, "one\n");
    EXPECT_NE(result.out.find("# 1 \"main.c\"\n"), std::string::npos) << result.out;
}

TEST_F(SampleOrbTest, WritesTheDependencyFile)
{
    write("main.c", "#include \"x.h\"\nint i;\n");
    write("x.h", "\n");
    RunResult result = run({"-mcpu=16z20a", "-c", "main.c", "-MMD", "-MF", "main.d"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(readFile(work + "/main.d"), "main.p1: main.c x.h\n");
}

TEST_F(SampleOrbTest, BuildsItsProjectWithMakeInParallel)
{
    copyProject();
    RunResult result =
        runProgram({"make", "-s", "-j8", "DEVICE=18z40", "CC=" + suite + "/bin/qzm-cc"});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.leftBehind, std::vector<std::string>{});
    EXPECT_TRUE(isHex(readFile(work + "/leds.hex")));
}

// The sample's own reader of command files.

class SampleElmGccTest : public SampleSuiteTest {
  protected:
    // The preprocessor's output for "main.c" with the command file's arguments.
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
