// The self-test of the sample installation, and the hash list that it uses.
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <regex>
#include <sstream>

#include <sys/stat.h>

#include "tests/cli/suite_fixture.h"

namespace fs = std::filesystem;

class SelftestTest : public SuiteTest {
  protected:
    void SetUp() override
    {
        installSampleSuite();
        write(
            suite + "/bin/deviceSupport.xml",
            "<?xml version=\"1.0\"?>\n<deviceSupport>\n<family>\n<device name=\"16z20a\"/>\n"
            "<device name=\"18z40\"/>\n<device name=\"elmbig1\"/>\n</family>\n</deviceSupport>\n");
    }

    // Both end inside the handler of their option.
    RunResult selfinit(const std::string &value = "", RunOptions options = {})
    {
        options.endsEarly = true;
        return run({"--selfinit" + value}, options);
    }
    RunResult selftest(const std::string &value, RunOptions options = {})
    {
        options.endsEarly = true;
        return run({"--selftest" + value}, options);
    }
    // The trace of a run.
    std::string traceOf(const std::string &value)
    {
        const std::string path = scratch + "/record/trace";
        std::vector<std::string> arguments = {"--selftest" + value};
        if (!traced())
            arguments.insert(arguments.begin(), "--qzdebug=on,out:" + path);
        run(arguments, {.endsEarly = true});
        return readFile(path);
    }
    std::string report(const char *name) const { return readFile(work + "/" + name); }

    std::string found() const { return "Compiler installation found at: " + suite + "\n"; }
    std::string saved(const std::string &system) const
    {
        return found() + "Compiler installation identified as " + system +
               "windows OS\nGenerating installation integrity hashes...done\n"
               "Compiler integrity hash file saved to: " +
               suite + "/manifest\n";
    }
};

// The rows whose run is on record, in the order of the default set. Rows are named one by one, here
// and below, where a group would bring in every row that is added to it.
static const std::string DOCS_ROWS = "docs_readme,docs_userguide";
static const std::string INTEGRITY_ROWS = "integrity_manifest,integrity_sha,integrity_extra";
static const std::string DEVICE_ROWS =
    "build_devicesupport,build_assembleORB,build_C90ORB,build_C99ORB";
static const std::string RECORDED_ROWS =
    DOCS_ROWS + "," + INTEGRITY_ROWS + "," + DEVICE_ROWS + ",build_CPP,build_lib,build_ELM";

// A file beside this one.
static std::string golden(const std::string &name)
{
    return readFile(QZM_SELFTEST_GOLDEN "/" + name);
}

// The output on a terminal, one line for each state of it: an erased line stays on record.
static std::string shown(const std::string &out)
{
    std::string all;
    std::string line;
    bool erasing = false;
    for (char c : out) {
        if (c == '\b') {
            if (!erasing)
                all += line + "\n";
            erasing = true;
            EXPECT_FALSE(line.empty()) << "a backspace at the start of a line, behind " << all;
            line.resize(line.empty() ? 0 : line.size() - 1);
        } else if (c == '\n') {
            all += line + "\n";
            line.clear();
            erasing = false;
        } else {
            line += c;
            erasing = erasing && c == ' ';
        }
    }
    return all + line;
}

// The text without the parts that differ from run to run.
static std::string masked(std::string text)
{
    const std::pair<const char *, const char *> masks[] = {
        {"ETA \\d+hrs \\d+mins \\d+secs", "ETA ..."},
        {"\\(\\d+\\.\\d\\d\\)", "(...)"},
        {"time=\"\\d+\\.\\d\\d\"", "time=\"...\""},
        {"timestamp=\"\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ\"", "timestamp=\"...\""},
        {"hostname=\"[^\"]*\"", "hostname=\"...\""},
    };
    for (const auto &[what, by] : masks)
        text = std::regex_replace(text, std::regex(what), by);
    return text;
}

// The help without the lines of rows that are not in "help.txt": only rows of groups may be added
// without a change there.
static std::string recordedHelp(const std::string &out)
{
    const std::string recorded = golden("help.txt");
    std::istringstream lines(out);
    std::string all;
    for (std::string line; std::getline(lines, line);) {
        const bool added = recorded.find(line + "\n") == std::string::npos &&
                           std::regex_match(line, std::regex("  [* ]  [a-z]+_\\w+ +\\S.*"));
        if (!added)
            all += line + "\n";
    }
    return all;
}

// The lines that are not about a passed test.
static std::string failures(const std::string &textReport)
{
    std::istringstream lines(textReport);
    std::string all;
    for (std::string line; std::getline(lines, line);) {
        if (!std::regex_search(line, std::regex(" pass +\\(")))
            all += line + "\n";
    }
    return masked(all);
}

// A row of the text report.
static std::string reportRow(std::string group, std::string name, std::string result,
                             const std::string &time)
{
    group.resize(15, ' ');
    name.resize(70, ' ');
    result.resize(7, ' ');
    return group + " " + name + " " + result + " " + time + "\n";
}

// The text report's entry for a file that fails the check.
static std::string unverified(const std::string &name, const std::string &output)
{
    return reportRow("integrity", name, "fail", "(...)") + "----------integrity:" + name +
           "----------\n==> type: integrity test\n==> message: failed verification\n"
           "<------Output-Start------>\n" +
           output + "\n<------Output-End-------->\n\n";
}

// ---- A sound installation ---------------------------------------------------------------------

TEST_F(SelftestTest, TheSampleInstallationPassesTheDefaultTests)
{
    ASSERT_EQ(selfinit().status, 0);
    RunResult result = selftest("", {.env = {{"NVC_ERR_FORMAT", "mine %s"}}});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    const std::string all = shown(result.out);
    const std::regex end("\\] pass\nComplete. Total tests: \\d+; 0 failed\n"
                         "TXT test report written to: test_report.txt\n$");
    EXPECT_TRUE(std::regex_search(all, end)) << all;
    EXPECT_FALSE(fileExists(work + "/test_report.xml"));
    const std::string byDefault = masked(report("test_report.txt"));
    EXPECT_NE(byDefault.find("; 0 failed\n"), std::string::npos) << byDefault;

    selftest("=txtreport,docs,integrity,build");
    EXPECT_EQ(masked(report("test_report.txt")), byDefault);
}

TEST_F(SelftestTest, TheDisplayShowsTheTestsAndWhatIsDone)
{
    ASSERT_EQ(selfinit().status, 0);
    RunResult result = selftest("=verbose,txtreport," + RECORDED_ROWS);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(masked(shown(result.out)), golden("console.txt"));
    EXPECT_EQ(masked(report("test_report.txt")), golden("report.txt"));
    EXPECT_FALSE(fileExists(work + "/test_report.xml"));
}

TEST_F(SelftestTest, AllTestsRunInBatchModeAndWriteBothReports)
{
    ASSERT_EQ(selfinit().status, 0);
    RunResult result = selftest("=all");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out.find('\b'), std::string::npos);
    EXPECT_NE(result.out.find("; 0 failed\nXML test report written to: test_report.xml\n"
                              "TXT test report written to: test_report.txt\n"),
              std::string::npos)
        << result.out;
    EXPECT_NE(report("test_report.txt").find("integrity       SHA256 check qz.h "),
              std::string::npos);
}

TEST_F(SelftestTest, BatchModeErasesNothingAndBothReportsShowEveryTest)
{
    ASSERT_EQ(selfinit().status, 0);
    RunResult result = selftest("=verbose,batchverbose,xmlreport,txtreport," + RECORDED_ROWS);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(masked(result.out), golden("batch.txt"));
    EXPECT_EQ(masked(report("test_report.xml")), golden("report.xml"));
    EXPECT_EQ(masked(report("test_report.txt")), golden("report.txt"));
}

TEST_F(SelftestTest, TheDefaultTestsWithoutDisplayAreSilentAndWriteTheReport)
{
    ASSERT_EQ(selfinit().status, 0);
    RunResult result = selftest("=default,-verbose");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    const std::string silent = masked(report("test_report.txt"));
    selftest("");
    EXPECT_EQ(silent, masked(report("test_report.txt")));
}

TEST_F(SelftestTest, BatchModeAloneIsSilent)
{
    RunResult result = selftest("=batchverbose,docs,txtreport");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(fileExists(work + "/test_report.txt"));
}

TEST_F(SelftestTest, AReportWithoutTestsIsNotWritten)
{
    RunResult result = selftest("=xmlreport");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_FALSE(fileExists(work + "/test_report.xml"));
    EXPECT_FALSE(fileExists(work + "/test_report.txt"));
}

TEST_F(SelftestTest, HelpListsTheWordsAndRunsNothing)
{
    for (const char *list : {"=help,none", "=docs,txtreport,help"}) {
        RunResult result = selftest(list);
        EXPECT_EQ(recordedHelp(result.out), golden("help.txt"));
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.status, 0);
        EXPECT_FALSE(fileExists(work + "/test_report.txt"));
    }
}

TEST_F(SelftestTest, EveryFamilyAnswersTheOptions)
{
    for (const char *device : {"-mcpu=elmbig1", "-mcpu=16z20a", "-mcpu=18z40"}) {
        RunResult result = run({device, "--selftest=help"}, {.endsEarly = true});
        EXPECT_EQ(recordedHelp(result.out), golden("help.txt")) << device;
        EXPECT_EQ(result.status, 0) << device;
    }
}

// ---- A broken installation --------------------------------------------------------------------

TEST_F(SelftestTest, OneChangedFileFailsExactlyTheTestsOfItsContent)
{
    ASSERT_EQ(selfinit().status, 0);
    write(suite + "/orb/include/qz.h", readFile(suite + "/orb/include/qz.h") + "\n");
    RunResult result =
        selftest("=" + INTEGRITY_ROWS + ",integrity_detailedsha," + DOCS_ROWS + ",txtreport");
    EXPECT_EQ(result.status, 0);
    const std::string manifest = readFile(suite + "/manifest");
    const auto listed = std::count(manifest.begin(), manifest.end(), '\n');
    EXPECT_EQ(failures(report("test_report.txt")),
              "Test suite QZM-CC self test results. Total tests: " + std::to_string(listed + 5) +
                  "; 2 failed\n\n" + reportRow("GROUP", "TEST NAME", "RESULT", "TIME") +
                  unverified("SHA256 check", "The integrity test did not successfully validate") +
                  unverified("SHA256 check qz.h",
                             "Hash did not match file for file: " + suite + "/./orb/include/qz.h"));
}

TEST_F(SelftestTest, AFileThatCannotBeReadEndsTheRun)
{
    if (!canBeNobody())
        GTEST_SKIP() << "this machine does not allow dropping privileges";
    ASSERT_EQ(selfinit().status, 0);
    fs::permissions(suite + "/orb/include/qz.h", fs::perms::none);
    RunResult result = selftest("=integrity_sha", {.asNobody = true});
    EXPECT_EQ(result.err, "!! Cannot open file \"./orb/include/qz.h\"\n");
    EXPECT_EQ(result.status, 1);
}

TEST_F(SelftestTest, AMissingToolFailsItsTestsAndShowsInBothReports)
{
    fs::remove(suite + "/orb-as/bin/orb-as");
    RunResult result = selftest("=build_assembleORB,build_ELM,txtreport,xmlreport");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(report("test_report.txt").find("==> message: ORB assemble\n"), std::string::npos);
    EXPECT_NE(report("test_report.xml")
                  .find("\t\t<failure type=\"build test\" message=\"ORB18 assemble\"><![CDATA[\n"
                        "Could not find orb-as driver]]></failure>\n"),
              std::string::npos);
    EXPECT_NE(report("test_report.txt").find("Total tests: 3; 2 failed"), std::string::npos);
}

TEST_F(SelftestTest, AProgramOutsideOfAnInstallationFailsItsTests)
{
    copyProgram(suite + "/bin/qzm-cc", scratch + "/other/qzm-cc");
    RunResult result =
        runProgram({scratch + "/other/qzm-cc", "--selftest=verbose,txtreport," + DOCS_ROWS + "," +
                                                   INTEGRITY_ROWS + "," + DEVICE_ROWS +
                                                   ",build_CPP,build_ELM"});
    EXPECT_EQ(result.err,
              "::: warning: deviceSupport.xml missing. Supported device list may be inaccurate\n");
    // Nothing unexpected lies in a root that is not there.
    EXPECT_EQ(report("test_report.txt")
                  .rfind("Test suite QZM-CC self test results. Total tests: "
                         "13; 12 failed\n",
                         0),
              0U);
    EXPECT_EQ(result.status, 0);
}

// ---- Reports and output that cannot be written ------------------------------------------------

TEST_F(SelftestTest, AReportThatCannotBeOpenedIsSaid)
{
    fs::create_directory(work + "/test_report.txt");
    fs::create_directory(work + "/test_report.xml");
    RunResult result = selftest("=verbose,docs,txtreport,xmlreport");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err.rfind("(105) could not write file \"test_report.xml\": Is a "
                               "directory\n(105) could not write file \"test_report.txt\": Is a "
                               "directory\nTest suite QZM-CC self test results.",
                               0),
              0U)
        << result.err;
    EXPECT_EQ(result.out.find("written to"), std::string::npos) << result.out;
}

TEST_F(SelftestTest, AFullDiskIsSaid)
{
    fs::create_symlink("/dev/full", work + "/test_report.txt");
    fs::create_symlink("/dev/full", work + "/test_report.xml");
    RunResult result = selftest("=verbose,docs,txtreport,xmlreport");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err,
              "(105) could not write file \"test_report.xml\": No space left on device\n"
              "(105) could not write file \"test_report.txt\": No space left "
              "on device\n");
    EXPECT_EQ(result.out.find("written to"), std::string::npos) << result.out;
}

TEST_F(SelftestTest, TheTraceTellsWhyThereIsNoReport)
{
    EXPECT_NE(traceOf("=xmlreport").find(" could not write JUnit xml\n"), std::string::npos);
    fs::create_directory(work + "/test_report.txt");
    fs::create_directory(work + "/test_report.xml");
    const std::string trace = traceOf("=docs,txtreport,xmlreport");
    for (const char *name : {"test_report.txt", "test_report.xml"})
        EXPECT_NE(trace.find(" could not write to output file \"" + std::string(name) + "\"\n"),
                  std::string::npos)
            << name;
}

// The first directory has been entered and cannot be entered again by its path.
TEST_F(SelftestTest, ReportsAreWrittenWhereTheRunBeganAndNotWhereATestHasBeen)
{
    if (!canBeNobody())
        GTEST_SKIP() << "this machine does not allow dropping privileges";
    ASSERT_EQ(selfinit().status, 0);
    fs::permissions(suite, fs::perms::all);
    RunResult result =
        runProgram({"sh", "-c",
                    "mkdir -p closed/first && cd closed/first && chmod 0 .. && exec " + suite +
                        "/bin/qzm-cc --selftest=integrity_sha,build_lib,txtreport,xmlreport"},
                   {.asNobody = true});
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.leftBehind, std::vector<std::string>{});
    EXPECT_EQ(failures(report("closed/first/test_report.txt")),
              "Test suite QZM-CC self test results. Total tests: 5; 0 failed\n\n" +
                  reportRow("GROUP", "TEST NAME", "RESULT", "TIME"));
    EXPECT_TRUE(fileExists(work + "/closed/first/test_report.xml"));
    EXPECT_FALSE(fileExists(suite + "/test_report.txt"));
    EXPECT_FALSE(fileExists(suite + "/test_report.xml"));
}

TEST_F(SelftestTest, AWayBackThatFailsIsSaidAndNoReportIsWrittenElsewhere)
{
    if (!canBeNobody())
        GTEST_SKIP() << "this machine does not allow dropping privileges";
    const std::string librarian = suite + "/bin/qzm-ar";
    fs::rename(librarian, librarian + "-real");
    writeProgram(librarian, "#!/bin/sh\ntest $1 = -r || chmod 0 " + work + "/first\nexec " +
                                librarian + "-real \"$@\"\n");
    RunResult result =
        runProgram({"sh", "-c",
                    "mkdir first && cd first && exec " + suite +
                        "/bin/qzm-cc --selftest=verbose,build_lib,txtreport,xmlreport"},
                   {.asNobody = true});
    EXPECT_EQ(result.status, 0);
    const std::string denied = ": Permission denied\n";
    EXPECT_EQ(result.err.rfind("(105) could not write file \"test_report.xml\"" + denied +
                                   "(105) could not write file \"test_report.txt\"" + denied +
                                   "Test suite QZM-CC self test results. Total tests: 4; ",
                               0),
              0U)
        << result.err;
    EXPECT_NE(result.err.find("<------Output-Start------>\ncould not go back to the first "
                              "directory" +
                              denied),
              std::string::npos)
        << result.err;
    EXPECT_EQ(result.out.find("written to"), std::string::npos) << result.out;
    EXPECT_EQ(result.leftBehind, std::vector<std::string>{});
}

TEST_F(SelftestTest, OutputThatCannotBeWrittenIsSaid)
{
    const std::pair<const char *, int> options[] = {
        {"--selftest=verbose,docs", 0}, {"--selftest=help", 1}, {"--selfinit", 1}};
    for (const auto &[option, status] : options) {
        RunResult result =
            runProgram({"sh", "-c", suite + "/bin/qzm-cc " + option + " > /dev/full"});
        EXPECT_EQ(result.status, status) << option;
        EXPECT_NE(result.err.find("could not write file \"standard output\""), std::string::npos)
            << option << ": " << result.err;
    }
}

TEST_F(SelftestTest, AnInterruptInTheMiddleLeavesNothingBehind)
{
    copyProgram(QZM_RECORDING_CHILD, suite + "/orb-as/bin/orb-as");
    RunResult result = selftest(
        "=docs,build_assembleORB",
        {.env = {{"QZM_CHILD_WAIT", "1"}}, .whileRunning = [](pid_t pid) { kill(-pid, SIGINT); }});
    EXPECT_EQ(result.status, SIGINT);
    EXPECT_EQ(child().argv.at(3), "-mcpu=16z20a");
    EXPECT_FALSE(fileExists(child().argv.back()));
    EXPECT_FALSE(fileExists(work + "/test_report.txt"));
}

// ---- The hash list ----------------------------------------------------------------------------

TEST_F(SelftestTest, TheHashListIsTheOneOfTheUsualTools)
{
    RunResult result = selfinit();
    EXPECT_EQ(result.out, saved("non-"));
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
    result = runProgram({"sh", "-c",
                         "cd " + suite +
                             " && sha256sum --quiet -c manifest && wc -l < manifest && "
                             "find . -type f ! -name manifest | wc -l"});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
    const size_t half = result.out.size() / 2;
    EXPECT_EQ(result.out.substr(0, half), result.out.substr(half)) << "files are missing";
}

TEST_F(SelftestTest, TheInstallationCanBeAnother)
{
    const std::string other = scratch + "/other/v9";
    copyProgram(suite + "/bin/qzm-cc", other + "/bin/qzm-cc");
    RunResult result = selfinit("=../other//v9/");
    EXPECT_EQ(result.out, replaceAll(saved("non-"), suite, other));
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(readFile(other + "/manifest").substr(64), " *./bin/qzm-cc\n");
    EXPECT_FALSE(fileExists(suite + "/manifest"));
}

TEST_F(SelftestTest, DotsAtTheEndOfTheInstallationAreFollowed)
{
    const std::string other = scratch + "/other/v9";
    copyProgram(suite + "/bin/qzm-cc", other + "/bin/qzm-cc");
    for (const char *dots : {"/.", "/bin/.."}) {
        const RunResult result = selfinit("=../other/v9" + std::string(dots));
        EXPECT_EQ(result.out, replaceAll(saved("non-"), suite, other)) << dots;
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.status, 0);
    }
}

TEST_F(SelftestTest, TheListOfAnInstallationForWindowsHasItsSeparators)
{
    const std::string other = scratch + "/other/v9";
    write(other + "/bin/qzm-cc.exe", "x");
    write(other + "/bin/qzm-cc", "x");
    RunResult result = selfinit("=" + other);
    EXPECT_EQ(result.out, replaceAll(saved(""), suite, other));
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(readFile(other + "/manifest").find(" *.\\bin\\qzm-cc.exe\n"), std::string::npos);
}

TEST_F(SelftestTest, WhatIsNoInstallationIsSaid)
{
    const std::string none = "A valid compiler installation could not be found at: ";
    RunResult result = selfinit("=nowhere");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, none + "nowhere\n");
    EXPECT_EQ(result.status, 1);

    result = selfinit("=../other");
    EXPECT_EQ(result.out, "Compiler installation found at: " + scratch + "/other\n");
    EXPECT_EQ(result.err, none + "../other\n");
    EXPECT_EQ(result.status, 1);

    copyProgram(suite + "/bin/qzm-cc", scratch + "/other/qzm-cc");
    for (const char *option : {"--selfinit", "--selfinit="}) {
        result = runProgram({scratch + "/other/qzm-cc", option});
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, none + "\n");
        EXPECT_EQ(result.status, 1);
    }
}

TEST_F(SelftestTest, AListThatCannotBeSavedIsSaidAndNothingIsWaitedFor)
{
    const std::string manifest = suite + "/manifest";
    const std::function<void()> obstacles[] = {
        [&] { fs::create_directory(manifest); },
        [&] { ASSERT_EQ(mkfifo(manifest.c_str(), 0666), 0); },
        [&] { fs::create_symlink("/dev/full", manifest); },
    };
    for (const auto &obstruct : obstacles) {
        obstruct();
        RunResult result = selfinit("", {.timeLimit = 20});
        EXPECT_EQ(result.out, found() + "Compiler installation identified as non-windows OS\n"
                                        "Generating installation integrity hashes...failed\n");
        EXPECT_EQ(result.err, "Could not save the compiler integrity hash file to: " + manifest +
                                  " (not a regular file)\n");
        EXPECT_EQ(result.status, 1);
        fs::remove(manifest);
    }
}

TEST_F(SelftestTest, AListThatThereIsNoRoomForIsSaid)
{
    if (!hasMounts())
        GTEST_SKIP() << "this machine does not allow mounts";
    RunResult result = selfinit("", {.tmp = Tmp::NoSpace});
    EXPECT_EQ(result.out, found() + "Compiler installation identified as non-windows OS\n"
                                    "Generating installation integrity hashes...failed\n");
    EXPECT_EQ(result.err,
              "Could not save the compiler integrity hash file to: " + suite + "/manifest\n");
    EXPECT_EQ(result.status, 1);
}

TEST_F(SelftestTest, DirectoriesThatCannotBeReadAreLeftOutAndSaid)
{
    if (!canBeNobody())
        GTEST_SKIP() << "this machine does not allow dropping privileges";
    fs::permissions(suite, fs::perms::all);
    fs::permissions(suite + "/orb/include", fs::perms::none);
    RunResult result = selfinit("", {.asNobody = true});
    EXPECT_EQ(result.out, saved("non-"));
    EXPECT_EQ(result.err, "Could not read directory: \"./orb/include\": Permission denied\n");
    EXPECT_EQ(result.status, 1);
    const std::string manifest = readFile(suite + "/manifest");
    EXPECT_NE(manifest.find(" *./orb/bin/qzm\n"), std::string::npos);
    EXPECT_EQ(manifest.find(" *./orb/include"), std::string::npos);
}

TEST_F(SelftestTest, ARootThatMayBeAccessedAndNotReadIsSaidAndTheOldListKept)
{
    if (!canBeNobody())
        GTEST_SKIP() << "this machine does not allow dropping privileges";
    write(suite + "/manifest", "old");
    fs::permissions(suite + "/manifest", fs::perms{0666});
    fs::permissions(suite, fs::perms{0111});
    RunResult result = selfinit("", {.asNobody = true});
    fs::permissions(suite, fs::perms::owner_all);
    EXPECT_EQ(result.out, found() + "Compiler installation identified as non-windows OS\n"
                                    "Generating installation integrity hashes...failed\n");
    EXPECT_EQ(result.err, "Could not save the compiler integrity hash file to: " + suite +
                              "/manifest\nCould not read directory: \".\": Permission denied\n");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(readFile(suite + "/manifest"), "old");
}

TEST_F(SelftestTest, ADirectoryThatFailsHalfWayIsLeftOutAndSaid)
{
    if (system("strace -o /dev/null true 2> /dev/null") != 0)
        GTEST_SKIP() << "strace is missing or may not trace";
    const std::string failing = suite + "/orb/include";
    RunResult result =
        runProgram({"strace", "-o", "/dev/null", "-P", failing, "-e",
                    "inject=getdents64:error=EIO:when=2", suite + "/bin/qzm-cc", "--selfinit"},
                   {.env = {{"ASAN_OPTIONS", "detect_leaks=0"}}});
    EXPECT_EQ(result.out, saved("non-"));
    EXPECT_EQ(result.err, "Could not read directory: \"./orb/include\": Input/output error\n");
    EXPECT_EQ(result.status, 1);
    const std::string manifest = readFile(suite + "/manifest");
    EXPECT_NE(manifest.find(" *./orb/bin/qzm\n"), std::string::npos);
    EXPECT_EQ(manifest.find(" *./orb/include"), std::string::npos);
}
