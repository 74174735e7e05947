// The build tests: their cases, and the commands that they run.
#include <cstring>
#include <regex>

#include <unistd.h>

#include "common/base/stringcache.h"
#include "common/os/osdep_temp.h"
#include "selftests/selftests_internal.h"
#include "selftests/stBuild_internal.h"
#include "tests/selftests/build_fixture.h"

namespace {

class BuildTestRows : public BuildFixture {};

const char *const SUPPORT = "[build] deviceSupport.xml file exists and can be read";

const Strings CPP_NAMES = {
    "[build] Check macros & search paths for 16z10",
    "[build] Check macros & search paths for 16z20a",
    "[build] Check macros & C99 search paths for 16z30",
    "[build] Check macros & C90 search paths for 16z30",
    "[build] Check macros & C99 search paths for 18z40",
    "[build] Check macros & C90 search paths for 18z40",
    "[build] Check macros & search paths for elmbig1",
};
const Strings LIB_NAMES = {
    "[build] Ensure objects can be added to/removed from libraries for 16z10",
    "[build] Ensure objects can be added to/removed from libraries for 16z20a",
    "[build] Ensure objects can be added to/removed from libraries for 16z30",
    "[build] Ensure objects can be added to/removed from libraries for 18z40",
};

TEST_F(BuildTestRows, HaveACaseForEveryListedDeviceOfTheirFamily)
{
    EXPECT_EQ(names(stBuildDeviceSupport_tests()), Strings{SUPPORT});
    EXPECT_EQ(names(stBuildAssembleORB_tests()),
              (Strings{"[build] assemble for device 16z20a", "[build] assemble for device 18z40",
                       "[build] assemble for device 16z10"}));
    EXPECT_EQ(names(stBuildC90ORB_tests()), (Strings{"[build] C90 compile for device 16z20a",
                                                     "[build] C90 compile for device 18z40",
                                                     "[build] C90 compile for device 16z10"}));
    EXPECT_EQ(names(stBuildC99ORB_tests()), (Strings{"[build] C99 compile for device 16z20a",
                                                     "[build] C99 compile for device 18z40",
                                                     "[build] C99 compile for device 16z10"}));
    EXPECT_EQ(names(stBuildELM_tests()), Strings{"[build] compile for device elmbig1"});
}

TEST_F(BuildTestRows, HaveFixedCasesForMacrosAndLibraries)
{
    EXPECT_EQ(names(stBuildCPP_tests()), CPP_NAMES);
    EXPECT_EQ(names(stBuildLib_tests()), LIB_NAMES);
}

TEST_F(BuildTestRows, ThreeDevicesAreSkippedAsTheyAreWritten)
{
    EXPECT_TRUE(skipChip("ELMw1"));
    EXPECT_TRUE(skipChip("ELMw2"));
    EXPECT_TRUE(skipChip("ELMw3"));
    EXPECT_FALSE(skipChip("elmw1"));
    EXPECT_FALSE(skipChip("ELMw4"));
    EXPECT_FALSE(skipChip("ELMw"));
}

TEST_F(BuildTestRows, WithoutDevicesHaveNoCasesAndFailTheList)
{
    write("bin/deviceSupport.xml",
          "<?xml version=\"1.0\"?>\n<deviceSupport><family name=\"x\"/></deviceSupport>");
    for (Vector *row : {stBuildAssembleORB_tests(), stBuildC90ORB_tests(), stBuildC99ORB_tests(),
                        stBuildELM_tests()})
        EXPECT_EQ(names(row), Strings{});
    EXPECT_EQ(runOnly(stBuildDeviceSupport_tests()),
              failed("failed device list", "Could not find any supported devices"));
}

TEST_F(BuildTestRows, AListOfDevicesPasses)
{
    EXPECT_EQ(runOnly(stBuildDeviceSupport_tests()), PASSED);
}

TEST_F(BuildTestRows, ReadTheDevicesOnceSoThatAWarningIsPrintedOnce)
{
    fs::remove(root + "/bin/deviceSupport.xml");
    testing::internal::CaptureStderr();
    names(stBuild_tests());
    EXPECT_EQ(runOnly(stBuildDeviceSupport_tests()),
              failed("failed device list", "Could not find any supported devices"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "::: warning: deviceSupport.xml missing. Supported device list may be inaccurate\n");
}

using BuildTestRowsDeathTest = BuildTestRows;

TEST_F(BuildTestRowsDeathTest, AListThatNobodyCanGiveFails)
{
    EXPECT_EXIT(
        {
            forbidFiles();
            const Failure failure = runOnly(stBuildDeviceSupport_tests());
            std::cerr << failure;
            _exit(7);
        },
        testing::ExitedWithCode(7),
        "\\{build test \\| failed device list \\| Could not process deviceSupport.xml\\}");
}

// ---- Commands ---------------------------------------------------------------------------------

class BuildCommand : public BuildFixture {
  protected:
    static std::string stem(const std::string &path) { return fs::path(path).stem().string(); }
};

const std::string C_SOURCE = "#include <qz.h>\n#include <stdio.h>\nint\nmain(void) {\n}\n\n";
const std::string C_LINES = "1: #include <qz.h>\n2: #include <stdio.h>\n3: int\n4: main(void) {\n"
                            "5: }\n6: \n";
const std::string ASSEMBLER_SOURCE = "#include <qz.inc>\n\tpsect foo\n\tbar:\n\t\tnop\n\tend bar\n";
const std::string ASSEMBLER_LINES =
    "1: #include <qz.inc>\n2: \tpsect foo\n3: \tbar:\n4: \t\tnop\n5: \tend bar\n";

std::string joined(const Strings &words)
{
    std::string text;
    for (const std::string &word : words)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

TEST_F(BuildCommand, AssemblesWithTheOutputNamedUpToTheDot)
{
    tool("orb-as/bin/orb-as", "for last; do :; done; cp \"$last\" " + root + "/source\n");
    TestCase *test = caseNamed(stBuildAssembleORB_tests(), "assemble for device 16z20a");
    EXPECT_EQ(run(test), PASSED);
    const Strings words = commandOf("orb-as/bin/orb-as");
    ASSERT_EQ(words.size(), 6U);
    EXPECT_EQ(words[0], root + "/orb-as/bin/orb-as");
    EXPECT_EQ(words[1], "-v");
    EXPECT_EQ(words[2], "-v");
    EXPECT_EQ(words[3], "-mcpu=16z20a");
    EXPECT_TRUE(std::regex_match(words[4], std::regex("-o/tmp/qz.{7}/" + stem(words[5]) + "\\.")))
        << words[4];
    EXPECT_TRUE(std::regex_match(words[5], std::regex("/tmp/qz.{7}\\.sx"))) << words[5];
    EXPECT_EQ(contents(root + "/source"), ASSEMBLER_SOURCE);
    EXPECT_EQ(test->details, "\ncommand line: " + joined(words) + "\n-> test file (" +
                                 stem(words[5]) + ".sx) contents:\n" + ASSEMBLER_LINES + "\n");
}

TEST_F(BuildCommand, AssemblesForOrb18WithARangeOfMemory)
{
    tool("orb-as/bin/orb-as");
    EXPECT_EQ(run(caseNamed(stBuildAssembleORB_tests(), "assemble for device 18z40")), PASSED);
    const Strings words = commandOf("orb-as/bin/orb-as");
    ASSERT_EQ(words.size(), 7U);
    EXPECT_EQ(words[3], "-mcpu=18z40");
    EXPECT_EQ(words[4], "-mrom=default,0-100");
    EXPECT_EQ(words[5].substr(0, 9), "-o/tmp/qz");
}

TEST_F(BuildCommand, CompilesWithTheOutputNamedWithoutTheDot)
{
    tool("bin/qzm-cc", "for last; do :; done; cp \"$last\" " + root + "/source\n");
    TestCase *test = caseNamed(stBuildC90ORB_tests(), "C90 compile for device 16z20a");
    EXPECT_EQ(run(test), PASSED);
    const Strings words = commandOf("bin/qzm-cc");
    ASSERT_EQ(words.size(), 7U);
    EXPECT_EQ(Strings(words.begin(), words.begin() + 5),
              (Strings{root + "/bin/qzm-cc", "-v", "-v", "-std=c90", "-mcpu=16z20a"}));
    EXPECT_TRUE(std::regex_match(words[5], std::regex("-o/tmp/qz.{7}/" + stem(words[6]))))
        << words[5];
    EXPECT_TRUE(std::regex_match(words[6], std::regex("/tmp/qz.{7}\\.c"))) << words[6];
    EXPECT_EQ(contents(root + "/source"), C_SOURCE);
    EXPECT_EQ(test->details, "\ncommand line: " + joined(words) + "\n-> test file (" +
                                 stem(words[6]) + ".c) contents:\n" + C_LINES + "\n");
}

TEST_F(BuildCommand, CompilesForOrb18WithARangeOfMemory)
{
    tool("bin/qzm-cc");
    EXPECT_EQ(run(caseNamed(stBuildC99ORB_tests(), "C99 compile for device 18z40")), PASSED);
    const Strings words = commandOf("bin/qzm-cc");
    ASSERT_EQ(words.size(), 8U);
    EXPECT_EQ(Strings(words.begin(), words.begin() + 6),
              (Strings{root + "/bin/qzm-cc", "-v", "-v", "-std=c99", "-mcpu=18z40",
                       "-mrom=default,0-100"}));
}

TEST_F(BuildCommand, CompilesForElmIntoATemporaryFile)
{
    tool("bin/qzm-cc", "test -f \"${4#-o}\" && test ! -s \"${4#-o}\"\n");
    TestCase *test = caseNamed(stBuildELM_tests(), "compile for device elmbig1");
    EXPECT_EQ(run(test), PASSED);
    const Strings words = commandOf("bin/qzm-cc");
    ASSERT_EQ(words.size(), 5U);
    EXPECT_EQ(Strings(words.begin(), words.begin() + 3),
              (Strings{root + "/bin/qzm-cc", "-v", "-mcpu=elmbig1"}));
    EXPECT_TRUE(std::regex_match(words[3], std::regex("/tmp/qz.{7}\\.c"))) << words[3];
    EXPECT_TRUE(std::regex_match(words[4], std::regex("-o/tmp/qz.{7}"))) << words[4];
    EXPECT_EQ(test->details, "\ncommand line: " + joined(words) + "\n-> test file (" +
                                 stem(words[3]) + ".c) contents:\n" + C_LINES + "\n");
}

TEST_F(BuildCommand, PreprocessesWithTheExtraArgumentsAtTheEnd)
{
    tool("bin/qzm-cc");
    Strings seen;
    for (TestCase *test : cases(stBuildCPP_tests())) {
        run(test);
        Strings words = commandOf("bin/qzm-cc");
        ASSERT_GE(words.size(), 8U);
        EXPECT_EQ(Strings(words.end() - 3, words.end()), (Strings{"-dM", "-Wp,-v", "-E"}));
        std::string shown;
        for (const std::string &word : words) {
            if (word.rfind("-std", 0) == 0 || word.rfind("-m", 0) == 0)
                shown += word + " ";
        }
        seen.push_back(shown);
    }
    EXPECT_EQ(seen, (Strings{"-std=c99 -mcpu=16z10 ", "-std=c99 -mcpu=16z20a ",
                             "-std=c99 -mcpu=16z30 ", "-std=c90 -mcpu=16z30 ",
                             "-std=c99 -mcpu=18z40 ", "-std=c99 -mcpu=18z40 ", "-mcpu=elmbig1 "}));
}

TEST_F(BuildCommand, CompilesForALibraryAsC99WithoutLinking)
{
    tool("bin/qzm-cc");
    Strings seen;
    for (TestCase *test : cases(stBuildLib_tests())) {
        run(test);
        const Strings words = commandOf("bin/qzm-cc");
        ASSERT_EQ(words.size(), 8U);
        EXPECT_EQ(words.back(), "-c");
        seen.push_back(words[3] + " " + words[4]);
    }
    EXPECT_EQ(seen, (Strings{"-std=c99 -mcpu=16z10", "-std=c99 -mcpu=16z20a",
                             "-std=c99 -mcpu=16z30", "-std=c99 -mcpu=18z40"}));
}

TEST_F(BuildCommand, ExtraArgumentsCanBeTheWholeCommand)
{
    tool("bin/qzm-cc", "exit 1\n");
    tool("bin/other", "test \"$*\" = 'a b'\n");
    Vector *extra = cache_split((root + "/bin/other a b").c_str(), " ");
    BuildTest record = {2, "16z20a", BUILD_C99, BUILD_REPLACE, extra, nullptr};
    TestCase *test = tsuite_newtest("build", "whole", ANYORBcompile, &record);
    EXPECT_EQ(run(test), PASSED);
    EXPECT_EQ(commandOf("bin/qzm-cc"), Strings{});
    EXPECT_EQ(text(test->details).rfind("\ncommand line: " + root + "/bin/other a b\n-> test", 0),
              0U);
    free(test);
    vec_destroy(extra);
}

TEST_F(BuildCommand, TheSourceIsOneFileForAllCasesUntilItIsGone)
{
    tool("bin/qzm-cc", "for last; do :; done; rm -f \"$last\"\n");
    EXPECT_EQ(run(caseNamed(stBuildC99ORB_tests(), "C99 compile for device 16z20a")), PASSED);
    const std::string first = commandOf("bin/qzm-cc").back();
    tool("bin/qzm-cc");
    EXPECT_EQ(run(caseNamed(stBuildC99ORB_tests(), "C99 compile for device 16z20a")), PASSED);
    const std::string second = commandOf("bin/qzm-cc").back();
    EXPECT_EQ(run(caseNamed(stBuildC90ORB_tests(), "C90 compile for device 16z10")), PASSED);
    EXPECT_NE(second, first);
    EXPECT_EQ(commandOf("bin/qzm-cc").back(), second);
    EXPECT_EQ(contents(second), C_SOURCE);
}

TEST_F(BuildCommand, WhatACaseMakesGoesWithIt)
{
    tool("bin/qzm-cc",
         "for word; do case $word in -o*) echo x > \"${word#-o}.elf\";; esac; done\n");
    EXPECT_EQ(run(caseNamed(stBuildC99ORB_tests(), "C99 compile for device 16z20a")), PASSED);
    const std::string output = commandOf("bin/qzm-cc").at(5).substr(2);
    EXPECT_FALSE(fs::exists(fs::path(output).parent_path())) << output;
}

// ---- Failures ---------------------------------------------------------------------------------

class BuildFailure : public BuildFixture {
  protected:
    TestCase *assemble(const std::string &device)
    {
        return caseNamed(stBuildAssembleORB_tests(), "assemble for device " + device);
    }
    TestCase *compile(const std::string &device)
    {
        return caseNamed(stBuildC99ORB_tests(), "C99 compile for device " + device);
    }
    TestCase *compileC90(const std::string &device)
    {
        return caseNamed(stBuildC90ORB_tests(), "C90 compile for device " + device);
    }
    TestCase *elm() { return caseNamed(stBuildELM_tests(), "compile for device elmbig1"); }
};

TEST_F(BuildFailure, AMissingDriverIsNamedByFamily)
{
    EXPECT_EQ(run(assemble("16z20a")), failed("ORB assemble", "Could not find orb-as driver"));
    EXPECT_EQ(run(assemble("18z40")), failed("ORB18 assemble", "Could not find orb-as driver"));
    EXPECT_EQ(run(compile("16z20a")), failed("ORB compile", "Could not find qzm-cc driver"));
    EXPECT_EQ(run(compileC90("18z40")), failed("ORB18 compile", "Could not find qzm-cc driver"));
    EXPECT_EQ(run(elm()), failed("ELM compile", "Could not find qzm-cc driver"));
}

TEST_F(BuildFailure, AStatusOtherThanZeroIsRecordedWithAllOutput)
{
    for (const char *name : {"orb-as/bin/orb-as", "bin/qzm-cc"})
        tool(name, "echo out; echo err >&2; exit 3\n");
    EXPECT_EQ(run(assemble("16z20a")), failed("failed to assemble for 16z20a", "out\nerr\n"));
    EXPECT_EQ(run(compile("18z40")), failed("failed C99 compile for 18z40", "out\nerr\n"));
    EXPECT_EQ(run(compileC90("16z10")), failed("failed C90 compile for 16z10", "out\nerr\n"));
    EXPECT_EQ(run(elm()), failed("failed to compile for elmbig1", "out\nerr\n"));
}

TEST_F(BuildFailure, AToolThatCannotBeExecutedHasAStatusAndNoOutput)
{
    write("orb-as/bin/orb-as", "no program");
    EXPECT_EQ(run(assemble("16z20a")), failed("failed to assemble for 16z20a", ""));
}

TEST_F(BuildFailure, AToolThatIsKilledIsRecordedAndTheRunGoesOn)
{
    for (const char *name : {"orb-as/bin/orb-as", "bin/qzm-cc"})
        tool(name, "kill -9 $$\n");
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const Failure assembled = run(assemble("18z40"));
    const Failure compiled = run(compile("16z20a"));
    const Failure compiledC90 = run(compileC90("16z20a"));
    const Failure compiledElm = run(elm());
    puts("still shown");
    fputs("here too\n", stderr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "still shown\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "here too\n");
    EXPECT_EQ(assembled, failed("failed to assemble for 18z40", "could not execute assembler"));
    EXPECT_EQ(compiled, failed("failed C99 compile for 16z20a", "could not execute compiler"));
    EXPECT_EQ(compiledC90, failed("failed C90 compile for 16z20a", "could not execute compiler"));
    EXPECT_EQ(compiledElm, failed("failed to compile for elmbig1", "could not execute compiler"));
}

TEST_F(BuildFailure, OutputThatIsNoTextIsKeptWithBlanksForZeros)
{
    tool("bin/qzm-cc", "printf 'a\\0b\\377\\0'; exit 1\n");
    EXPECT_EQ(run(compile("16z20a")), failed("failed C99 compile for 16z20a", "a b\xff "));
}

TEST_F(BuildFailure, EndlessOutputIsCutWhichIsSaid)
{
    tool("bin/qzm-cc", "head -c 20000000 /dev/zero | tr '\\0' x; exit 1\n");
    const Failure failure = run(compile("16z20a"));
    EXPECT_EQ(failure.message, "failed C99 compile for 16z20a");
    EXPECT_EQ(failure.output, std::string(BUILD_RECORD_LIMIT, 'x') + "\n(the output goes on)\n");
}

TEST_F(BuildFailure, AFailingToolReplacesWhatTheCheckerRecorded)
{
    tool("bin/qzm-cc", "echo text; exit 1\n");
    EXPECT_EQ(run(cases(stBuildCPP_tests()).at(0)),
              failed("failed C99 compile for 16z10", "text\n"));
    EXPECT_EQ(run(cases(stBuildCPP_tests()).at(6)),
              failed("failed to compile for elmbig1", "text\n"));
}

TEST_F(BuildFailure, ASuccessfulToolLeavesWhatTheCheckerRecorded)
{
    tool("bin/qzm-cc");
    EXPECT_EQ(run(cases(stBuildCPP_tests()).at(0)),
              failed("failed preprocess test for 16z10", "no compiler output found"));
}

using BuildFailureDeathTest = BuildFailure;

TEST_F(BuildFailureDeathTest, NoRoomForTemporaryFilesIsRecorded)
{
    tool("bin/qzm-cc");
    TestCase *test = compile("16z20a");
    EXPECT_EXIT(
        {
            forbidFiles();
            std::cerr << run(test);
            osdep_removeTempFiles();
            _exit(7);
        },
        testing::ExitedWithCode(7),
        "\\{build test \\| failed C99 compile for 16z20a \\| could not create a temporary file\\}");
}

} // namespace
