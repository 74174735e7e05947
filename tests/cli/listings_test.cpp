// Listings in bad surroundings: an output that cannot be written, drivers that misbehave, data
// files that are not readable files.
#include <algorithm>
#include <filesystem>

#include <sys/stat.h>

#include "tests/cli/suite_fixture.h"

static const std::vector<std::string> LISTINGS = {"--help", "--target-help", "-mprint-devices",
                                                  "-mprint-orb-devices"};
static const std::string MISSING =
    "::: warning: deviceSupport.xml missing. Supported device list may be inaccurate\n";
static const std::string UNREADABLE =
    "::: warning: deviceSupport.xml could not be read. Supported device list may be inaccurate\n";
static const std::string NAMES = "Known device names:\n";
static const char *const NEEDS_MOUNTS = "this machine does not allow mounts of one's own";
static const char *const NEEDS_NOBODY = "needs root, and a build folder that everybody can reach";

class ListingsTest : public SuiteTest {
  protected:
    ListingsTest()
    {
        writeProgram(suite + "/orb/bin/orbc", "#!/bin/sh\necho 16z20a:1\n");
        writeProgram(suite + "/orb/bin/orbc18", "#!/bin/sh\necho 18z40:1\n");
        elmDriver("echo 'Known MCU names:'\necho ' elm1 elmbig1'\n");
    }
    void elmDriver(const std::string &script) const
    {
        writeProgram(suite + "/elm/bin/elm-gcc", "#!/bin/sh\n" + script);
    }
    void deviceFile(const std::vector<std::string> &names) const
    {
        std::string text = "<?xml version=\"1.0\"?>\n<a><b>\n";
        for (const std::string &name : names)
            text += "<c name=\"" + name + "\" />\n";
        write(suite + "/bin/deviceSupport.xml", text + "</b></a>\n");
    }

    // A listing, from a shell that redirects it and cannot write anything itself afterwards.
    RunResult runRedirected(const std::string &argument, const std::string &redirection)
    {
        return runProgram(
            {"/bin/sh", "-c", "exec \"$0\" " + argument + redirection, suite + "/bin/qzm-cc"});
    }
};

static RunOptions ending()
{
    return {.endsEarly = true};
}

static std::string behind(const std::string &text, const std::string &front)
{
    const size_t at = text.find(front);
    return at == std::string::npos ? "(nothing)" : text.substr(at + front.size());
}

TEST_F(ListingsTest, AFullOutputIsAnError)
{
    deviceFile({"16z20a"});
    for (const std::string &listing : LISTINGS) {
        RunResult result = runRedirected(listing, " >/dev/full");
        EXPECT_EQ(result.err,
                  "(105) could not write file \"standard output\": No space left on device\n")
            << listing;
        EXPECT_EQ(result.status, 1) << listing;
    }
}

TEST_F(ListingsTest, AClosedOutputIsAnError)
{
    deviceFile({"16z20a"});
    for (const std::string &listing : LISTINGS) {
        RunResult result = runRedirected(listing, " >&-");
        EXPECT_EQ(result.err,
                  "(105) could not write file \"standard output\": Bad file descriptor\n")
            << listing;
        EXPECT_EQ(result.status, 1) << listing;
    }
}

// Like gcc's. The self-test writes many times, so the failure is long past at its end.
TEST_F(ListingsTest, AnOutputWhoseReaderHasGoneEndsTheRunWithoutAWord)
{
    deviceFile({"16z20a"});
    ASSERT_EQ(mkfifo((work + "/pipe").c_str(), 0666), 0);
    std::vector<std::string> outputs = LISTINGS;
    const std::string selftest = "--selftest=verbose,docs"; // its status is not about the output
    outputs.insert(outputs.end(),
                   {"-mcpu=elmbig1 -mprint-builtins", "--selftest=help", "--selfinit", selftest});
    for (const std::string &output : outputs) {
        RunResult result = runRedirected(output, " 3<>pipe >pipe 3>&-");
        EXPECT_EQ(result.err, "") << output;
        EXPECT_EQ(result.status, output == selftest ? 0 : 1) << output;
    }
}

TEST_F(ListingsTest, AnOutputThatFillsUpInTheElmHelpIsAnError)
{
    deviceFile({"16z20a"});
    elmDriver("ulimit -S -f unlimited\n"
              "echo 'The following options:'\nhead -c 3000000 /dev/zero | tr '\\0' x\n");
    // The limit on the size of files has room for the beginning.
    const std::string limited = "ulimit -S -f 200; exec \"$0\" --target-help >help";
    RunResult result = runProgram({"/bin/sh", "-c", limited, suite + "/bin/qzm-cc"});
    EXPECT_EQ(result.err, "(105) could not write file \"standard output\": File too large\n");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(std::filesystem::file_size(work + "/help"), 200U * 512);
}

TEST_F(ListingsTest, AClosedStandardErrorHidesTheWarningAlone)
{
    RunResult result = runRedirected("-mprint-devices", " 2>&-");
    EXPECT_EQ(result.out, "16z20a\n18z40\nelmbig1\n");
    EXPECT_EQ(result.status, 0);
}

TEST_F(ListingsTest, NothingIsPrintedTwiceIntoAPipe)
{
    deviceFile({"16z20a"});
    elmDriver("echo 'The following options:'\necho '  -mmcu=MCU'\n");
    RunResult whole = run({"--target-help"}, ending());
    RunResult piped = runRedirected("--target-help", " 2>&1 | cat");
    EXPECT_EQ(piped.out, whole.out);
    EXPECT_EQ(std::count(whole.out.begin(), whole.out.end(), '\n'),
              std::count(piped.out.begin(), piped.out.end(), '\n'));
    EXPECT_EQ(behind(whole.out, "The following options are ELM target specific:\n"),
              "\n  -mmcu=MCU\n" + NAMES + "              16z20a \n");
}

TEST_F(ListingsTest, ThatEndEndTheRunAtTheFirst)
{
    deviceFile({"16z20a", "elm2"});
    EXPECT_EQ(run({"-mprint-orb-devices", "-mprint-devices"}, ending()).out, "16z20a\n");
    EXPECT_EQ(run({"-mprint-devices", "--help"}, ending()).out, "16z20a\nelm2\n");
}

TEST_F(ListingsTest, ADriverThatIsMissingLeavesTheOthers)
{
    std::filesystem::remove(suite + "/orb/bin/orbc");
    RunResult result = run({"-mprint-devices"}, ending());
    EXPECT_EQ(result.out, "18z40\nelmbig1\n");
    EXPECT_EQ(result.err, MISSING);
    EXPECT_EQ(result.status, 0);
}

TEST_F(ListingsTest, ADriverThatDiesLeavesTheOthersAndTheDescriptors)
{
    for (const char *end : {"kill -9 $$", "kill -11 $$", "kill -15 $$"}) {
        writeProgram(suite + "/orb/bin/orbc", std::string("#!/bin/sh\necho 16z20a\n") + end);
        RunResult result = run({"-mprint-devices"}, ending());
        EXPECT_EQ(result.out, "18z40\nelmbig1\n") << end;
        EXPECT_EQ(result.err, MISSING) << end;
        EXPECT_EQ(result.status, 0) << end;
    }
}

// A message after the listing would be lost if standard error had not been restored.
TEST_F(ListingsTest, StandardErrorIsPutBackAfterADriverHasDied)
{
    elmDriver("kill -9 $$\n");
    RunResult result = runRedirected("-mprint-devices", " >/dev/full");
    EXPECT_EQ(result.err,
              MISSING +
                  "(105) could not write file \"standard output\": No space left on device\n");
    EXPECT_EQ(result.status, 1);
}

TEST_F(ListingsTest, ADriverThatCannotBeExecutedHasNoDevices)
{
    write(suite + "/orb/bin/orbc", "16z30\n");
    std::filesystem::permissions(suite + "/orb/bin/orbc", std::filesystem::perms{0644});
    EXPECT_EQ(run({"-mprint-devices"}, ending()).out, "18z40\nelmbig1\n");
}

TEST_F(ListingsTest, MegabytesOfADriversHelpAreCopied)
{
    deviceFile({"16z20a"});
    elmDriver("echo 'The following options:'\nyes '  -moption' | head -n 300000\n");
    RunResult result = run({"--target-help"}, ending());
    std::string expected;
    for (int i = 0; i < 300000; ++i)
        expected += "  -moption\n";
    EXPECT_TRUE(behind(result.out, "ELM target specific:\n\n") ==
                expected + NAMES + "              16z20a \n");
    EXPECT_EQ(result.err, "");
}

TEST_F(ListingsTest, BinaryOutputOfADriverIsHarmless)
{
    elmDriver("head -c 1000000 /dev/urandom\necho\necho 'The following options:'\n"
              "head -c 3000000 /dev/zero\n");
    RunResult result = run({"--target-help"}, ending());
    EXPECT_EQ(behind(result.out, NAMES), "              16z20a                18z40 \n");
    EXPECT_EQ(result.err, MISSING);
    EXPECT_EQ(result.status, 0);
}

TEST_F(ListingsTest, ANamedPipeAsDeviceFileIsNotWaitedFor)
{
    ASSERT_EQ(mkfifo((suite + "/bin/deviceSupport.xml").c_str(), 0666), 0);
    RunResult result = run({"-mprint-devices"}, {.endsEarly = true, .timeLimit = 20});
    EXPECT_EQ(result.out, "16z20a\n18z40\nelmbig1\n");
    EXPECT_EQ(result.err, UNREADABLE);
}

TEST_F(ListingsTest, ADeviceFileThatMayNotBeReadIsReported)
{
    if (!canBeNobody())
        GTEST_SKIP() << NEEDS_NOBODY;
    deviceFile({"16z30"});
    std::filesystem::permissions(suite + "/bin/deviceSupport.xml", std::filesystem::perms::none);
    RunResult result = run({"-mprint-devices"}, {.endsEarly = true, .asNobody = true});
    EXPECT_EQ(result.out, "16z20a\n18z40\nelmbig1\n");
    EXPECT_EQ(result.err, UNREADABLE);
}

TEST_F(ListingsTest, WithoutTemporaryFilesTheDriversAreNotAsked)
{
    if (!hasMounts())
        GTEST_SKIP() << NEEDS_MOUNTS;
    RunResult result = run({"-mprint-devices"}, {.tmp = Tmp::Missing, .endsEarly = true});
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, MISSING);
    EXPECT_EQ(result.status, 0);
    deviceFile({"16z30"});
    elmDriver("echo 'The following options:'\necho '  -mmcu=MCU'\n");
    result = run({"--target-help"}, {.tmp = Tmp::ReadOnly, .endsEarly = true});
    EXPECT_EQ(behind(result.out, NAMES), "               16z30 \n");
    EXPECT_EQ(result.out.find("ELM target specific"), std::string::npos);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
}

TEST_F(ListingsTest, WithFewDescriptorsTheListingsGoOn)
{
    for (int limit = 5; limit < 12; ++limit) {
        RunResult result =
            run({"--target-help"}, {.endsEarly = true, .fileLimit = limit, .timeLimit = 20});
        EXPECT_NE(result.out.find(NAMES), std::string::npos) << limit;
        EXPECT_EQ(result.err, MISSING) << limit;
        EXPECT_EQ(result.status, 0) << limit;
    }
}

TEST_F(ListingsTest, AHundredThousandDevicesAreSorted)
{
    std::vector<std::string> names;
    std::string expected;
    for (int i = 100000; i < 200000; ++i) {
        names.push_back(numbered("16Z", 299999 - i));
        expected += numbered("16z", i) + "\n";
    }
    deviceFile(names);
    RunResult result = run({"-mprint-devices"}, ending());
    EXPECT_TRUE(result.out == expected);
    EXPECT_EQ(result.err, "");
}
