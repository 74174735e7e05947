// The developers' debug option, end to end.
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include <sys/stat.h>

#include "tests/cli/suite_fixture.h"
#include "tests/cli/trace_check.h"

namespace fs = std::filesystem;

using Strings = std::vector<std::string>;

static constexpr char DEBUGGER[] = "/usr/bin/lldb";
static const Strings ELM = {"-mcpu=elmbig1", "-c", "main.c"};
static const Strings ORB = {"-mcpu=16z20a", "-c", "main.c"};

static Strings operator+(Strings front, const Strings &rest)
{
    front.insert(front.end(), rest.begin(), rest.end());
    return front;
}

static std::string warning(const std::string &text)
{
    return "QZDEBUG (warning): " + text + "\n";
}

static size_t count(const std::string &text, const std::string &what)
{
    size_t found = 0;
    for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += what.size())
        found++;
    return found;
}

class DebugTest : public SuiteTest {
  protected:
    std::string inWork(const std::string &name) const { return readFile(work + "/" + name); }

    Strings files() const
    {
        Strings names;
        for (const auto &entry : fs::directory_iterator(work))
            names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }

    // The package's members as Python reads them, each checked against its sum.
    std::string members(const std::string &package)
    {
        const RunResult result =
            runProgram({"python3", "-c",
                        "import sys,zipfile\n"
                        "z=zipfile.ZipFile(sys.argv[1])\n"
                        "print(*(['damaged'] if z.testzip() else []), *z.namelist())",
                        package});
        return result.out + result.err;
    }

    std::string member(const std::string &package, const std::string &name)
    {
        return runProgram({"unzip", "-p", package, name}).out;
    }

    // The remains of a run that cannot execute its child: one trace with one end, in the package.
    void expectOneEnd(const std::string &option, const std::string &name)
    {
        chmod((suite + "/elm/bin/elm-gcc").c_str(), 0644);
        const RunResult result = run(Strings{option} + ELM);
        EXPECT_EQ(result.status, 255);
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(members("qzm_package.zip"), name + "\n");
        EXPECT_EQ(count(inWork(name), "ENTER pack("), 1u);
        EXPECT_EQ(count(inWork(name), notExecuted), 1u);
        EXPECT_EQ(trace_faults(inWork(name), false), "");
        fs::remove(work + "/qzm_package.zip");
    }

    // The trace of it.
    const std::string notExecuted =
        "could not execute \"" + suite + "/elm/bin/elm-gcc\": Permission denied\n";

    static bool canRead(const char *program)
    {
        const std::string command = std::string("command -v ") + program + " > /dev/null";
        return system(command.c_str()) == 0;
    }
};

#define NEEDS(program)                                                                             \
    if (!canRead(program))                                                                         \
    GTEST_SKIP() << "there is no " << (program) << " here"

// ---- The whole thing --------------------------------------------------------------------------

TEST_F(DebugTest, DriverAndLegacyDriverTraceAndPackTheirTraces)
{
    NEEDS("python3");
    installSampleQzm();
    write("main.c", "int main(void) { return 0; }\n");
    const RunResult result = run(Strings{"--qzdebug=on,zip,adt"} + ORB);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(files(),
              (Strings{"main.c", "main.p1", "qzm-1.out", "qzm-cc-1.out", "qzm_package.zip"}));
    EXPECT_EQ(members("qzm_package.zip"), "qzm-1.out qzm-cc-1.out\n");

    for (const char *name : {"qzm-1.out", "qzm-cc-1.out"}) {
        const std::string trace = inWork(name);
        EXPECT_EQ(trace_faults(trace, false), "") << name;
        EXPECT_GT(count(trace, "ENTER "), 9u) << name;
        // The packed copy lacks the end: the packing itself and the reports.
        const std::string packed = member("qzm_package.zip", name);
        EXPECT_EQ(packed, trace.substr(0, packed.size())) << name;
        EXPECT_NE(packed.find("ENTER package_addFile("), std::string::npos) << name;
        EXPECT_EQ(packed.find("Master List"), std::string::npos) << name;
    }
}

TEST_F(DebugTest, ThePackageIsGoodToUnzip)
{
    NEEDS("unzip");
    run(Strings{"--qzdebug=on,zip"} + ELM);
    const RunResult result = runProgram({"unzip", "-t", "qzm_package.zip"});
    EXPECT_EQ(result.status, 0) << result.out;
}

TEST_F(DebugTest, TheReportsEndTheTraceInTheirOrder)
{
    run(Strings{"--qzdebug=on,zip,adt"} + ELM);
    const std::string trace = inWork("qzm-cc-1.out");
    const size_t packed = trace.find("EXIT pack()");
    const size_t hashes = trace.find("# Hash Table Master List:");
    const size_t lists = trace.find("# Skiplist Master List:\n# None.\n");
    const size_t vectors = trace.find("# Living Vector Master List:");
    EXPECT_LT(packed, hashes);
    EXPECT_LT(hashes, lists);
    EXPECT_LT(lists, vectors);
    EXPECT_NE(vectors, std::string::npos);
}

TEST_F(DebugTest, BothWriteToTheFileThatTheUserNames)
{
    NEEDS("python3");
    installSampleQzm();
    write("main.c", "int main(void) { return 0; }\n");
    write("x", "an old one\n");
    for (const char *out : {"out:x", "out:+x"}) {
        const std::string before = out[4] == '+' ? inWork("x") : "";
        const RunResult result =
            run(Strings{"--qzdebug=on,zip,assert:error," + std::string(out)} + ORB);
        EXPECT_EQ(result.status, 0);
        const std::string trace = inWork("x");
        EXPECT_EQ(trace.substr(0, before.size()), before);
        EXPECT_EQ(trace_faults(trace, false), "");
        const std::string own = trace.substr(before.size());
        const size_t spawned = own.find("ENTER osdep_spawn(");
        const size_t header = own.find("\nAPP: qzm\nARGS: " + suite + "/orb/bin/qzm ");
        const size_t compiled = own.find("ENTER translate(source=\"main.c\"");
        const size_t returned = own.find("EXIT osdep_spawn() -> 0");
        EXPECT_LT(spawned, header);
        EXPECT_LT(header, compiled);
        EXPECT_LT(compiled, returned);
        EXPECT_NE(returned, std::string::npos);
        EXPECT_EQ(members("qzm_package.zip"), "x\n");
        EXPECT_EQ(files(), (Strings{"main.c", "main.p1", "qzm_package.zip", "x"}));
        fs::remove(work + "/qzm_package.zip");
    }
}

TEST_F(DebugTest, ATraceThatCannotBeWrittenEndsNoProgram)
{
    installSampleQzm();
    write("main.c", "int main(void) { return 0; }\n");
    // Room for the output of the compiler, and not for the traces.
    const std::string limited = "ulimit -f 2; \"$0\" --qzdebug=on -mcpu=16z20a -c main.c";
    RunResult result = runProgram({"/bin/bash", "-c", limited, suite + "/bin/qzm-cc"});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
    // A reader that goes away.
    const std::string unread = "{ \"$0\" --qzdebug=on,out:/dev/stderr -mcpu=16z20a -c main.c; "
                               "echo $? >status; } 2>&1 | :";
    result = runProgram({"/bin/sh", "-c", unread, suite + "/bin/qzm-cc"});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(readFile(work + "/status"), "0\n");
}

TEST_F(DebugTest, TheLegacyDriverIsNotStoppedWhileItPacks)
{
    NEEDS("flock");
    installSampleQzm();
    write("main.c", "int main(void) { return 0; }\n");
    // It waits for the lock of the package's directory when the signal comes.
    const std::string script =
        "set -m # else what runs beside the shell is started with the signal ignored\n"
        "exec 9<. && flock 9 || exit 100\n"
        "\"$0\" --qzdebug=on,zip --chip=16z20a --pass1 main.c 9<&- &\n"
        "set +m\n"
        "until grep -qs 'ENTER osdep_lockDirectory' qzm-1.out; do sleep 0.02; done\n"
        "kill -QUIT $!; sleep 0.1; exec 9<&-; wait $!";
    const RunResult result = runProgram({"/bin/bash", "-c", script, suite + "/orb/bin/qzm"});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(members("qzm_package.zip"), "qzm-1.out\n");
    EXPECT_EQ(files(), (Strings{"main.c", "main.p1", "qzm-1.out", "qzm_package.zip"}));
}

TEST_F(DebugTest, AFailingCompileIsTracedToItsEnd)
{
    installSampleQzm();
    write("main.c", "int main(void) { return x; }\n");
    const RunResult plain = run(ORB);
    const RunResult result = run(Strings{"--qzdebug=on,zip"} + ORB);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, plain.err);
    EXPECT_NE(inWork("qzm-1.out").find("EXIT run() -> 1"), std::string::npos);
    EXPECT_NE(inWork("qzm-cc-1.out").find("Execution returned 1"), std::string::npos);
}

TEST_F(DebugTest, TheTraceBeginsWithTheArguments)
{
    run(Strings{"--qzdebug=on"} + ELM);
    EXPECT_NE(inWork("qzm-cc-1.out")
                  .find("\nAPP: qzm-cc\nARGS: " + suite +
                        "/bin/qzm-cc --qzdebug=on -mcpu=elmbig1 -c main.c\n"),
              std::string::npos);
}

TEST_F(DebugTest, MessagesAreEchoedWhenAskedFor)
{
    run(Strings{"--qzdebug=alerts", "-mstack=compiled"} + ELM);
    EXPECT_NE(inWork("qzm-cc-1.out").find("(1428) \"-mstack=compiled\" is not supported"),
              std::string::npos);
}

// ---- The option in the command ----------------------------------------------------------------

TEST_F(DebugTest, TheLegacyDriverIsGivenItsOwnInThePlaceOfTheUsers)
{
    NEEDS(DEBUGGER); // without it, "debug" draws a warning
    const RunResult result =
        run({"-mcpu=16z20a", "--qzdebug=zip:p.zip,out:x,assert:error,on,debug:none:orbc,num:4",
             "main.c"});
    EXPECT_EQ(result.err, "");
    EXPECT_NE(child().commandFile.find(
                  "\n--chip=16z20a\n"
                  "--qzdebug=default,on,out:+x,zip:+p.zip,assert:error,debug:none,num:1\nmain.c\n"),
              std::string::npos)
        << child().commandFile;
}

TEST_F(DebugTest, ElmGccIsGivenNothing)
{
    const RunResult result = run(Strings{"--qzdebug=on"} + ELM);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(child().commandFile.find("qzdebug"), std::string::npos) << child().commandFile;
    EXPECT_EQ(trace_faults(inWork("qzm-cc-1.out"), false), "");
}

TEST_F(DebugTest, ASecondOptionIsIgnoredWithAWarning)
{
    const RunResult result = run(Strings{"--qzdebug=on", "--qzdebug=out:y,xyz"} + ELM);
    EXPECT_EQ(result.err, warning("Ignoring extra --qzdebug options"));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(files(), Strings{"qzm-cc-1.out"});
}

TEST_F(DebugTest, TheOptionMayComeFromAResponseFile)
{
    write("debug.rsp", "--qzdebug=on,num:3\n");
    const RunResult result = run(Strings{"@debug.rsp"} + ELM);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(files(), (Strings{"debug.rsp", "qzm-cc-3.out"}));
}

TEST_F(DebugTest, TheCommandIsShownAsItIsGiven)
{
    const RunResult result = run(Strings{"-v", "--qzdebug=on"} + ORB);
    EXPECT_NE(
        result.out.find(" [ --qzmcc -q --opt=none -v --qzdebug=default,on,num:1 --chip=16z20a "),
        std::string::npos)
        << result.out;
}

TEST_F(DebugTest, EveryComplaintIsAWarningAndTheRestApplies)
{
    const RunResult result =
        run(Strings{"--qzdebug=xyz,num:0,assert:never,out,zip:a.zip,zip,debug,on"} + ELM,
            {.env = {{"QZM_CHILD_EXIT", "3"}}});
    EXPECT_EQ(result.err,
              warning("unknown option \"xyz\"") +
                  warning("\"num\" option must be a decimal integer > 0, using \"1\"") +
                  warning("unknown argument (never) given to assert option") +
                  warning("option \"out\", must have a filename argument") +
                  warning("Zip file already set to \"a.zip\", ignoring addtional zip options") +
                  warning("option \"debug\", must have at least one argument"));
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(files(), (Strings{"a.zip", "qzm-cc-1.out"}));
}

// ---- Early ends -------------------------------------------------------------------------------

TEST_F(DebugTest, ARunThatEndsEarlyPacksItsTraceAndIsOtherwiseTheSame)
{
    NEEDS("python3");
    const Strings lines[] = {
        {"--help"},
        {"-mcpu=unknown", "main.c"},
        {"main.c"},
        {"-mcpu=elmbig1", "main.c", "-o"},
    };
    for (const Strings &arguments : lines) {
        const RunResult plain = run(arguments);
        const RunResult result = run(Strings{"--qzdebug=on,zip"} + arguments);
        EXPECT_EQ(result.out, plain.out) << arguments[0];
        EXPECT_EQ(result.err, plain.err) << arguments[0];
        EXPECT_EQ(result.status, plain.status) << arguments[0];
        EXPECT_EQ(members("qzm_package.zip"), "qzm-cc-1.out\n") << arguments[0];
        EXPECT_EQ(trace_faults(inWork("qzm-cc-1.out"), true), "") << arguments[0];
        fs::remove(work + "/qzm_package.zip");
    }
}

// It ended before the point where the driver adds that file.
TEST_F(DebugTest, ARunThatEndsEarlyLeavesAUsersFileUnpacked)
{
    EXPECT_EQ(run({"--qzdebug=on,zip,out:x", "--help"}).status, 0);
    EXPECT_EQ(files(), Strings{"x"});
}

TEST_F(DebugTest, ASelfTestPacksItsTraceAndIsOtherwiseTheSame)
{
    NEEDS("python3");
    installSampleSuite();
    const RunResult plain = run({"--selftest=docs"});
    const RunResult result = run({"--qzdebug=on,zip,adt", "--selftest=docs"});
    EXPECT_EQ(result.err, plain.err);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(plain.status, 0);
    EXPECT_EQ(members("qzm_package.zip"), "qzm-cc-1.out\n");
    EXPECT_EQ(trace_faults(inWork("qzm-cc-1.out"), true), "");
}

TEST_F(DebugTest, ASignalWhileTheChildRunsPacksTheTraceAndGivesItsNumber)
{
    NEEDS("python3");
    for (int number : {SIGINT, SIGTERM, SIGHUP}) {
        const RunResult result = run(Strings{"--qzdebug=on,zip,adt"} + ELM,
                                     {.env = {{"QZM_CHILD_WAIT", "1"}},
                                      .whileRunning = [number](pid_t pid) { kill(pid, number); }});
        EXPECT_EQ(result.status, number);
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(files(), (Strings{"qzm-cc-1.out", "qzm_package.zip"}));
        EXPECT_EQ(members("qzm_package.zip"), "qzm-cc-1.out\n");
        EXPECT_EQ(trace_faults(inWork("qzm-cc-1.out"), true), "");
        EXPECT_NE(inWork("qzm-cc-1.out").find("# Living Vector Master List:"), std::string::npos);
        fs::remove(work + "/qzm_package.zip");
    }
}

TEST_F(DebugTest, ADeathOfTheChildIsTracedAndPacked)
{
    const RunResult result =
        run(Strings{"--qzdebug=on,zip"} + ELM, {.env = {{"QZM_CHILD_SIGNAL", "9"}}});
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(files(), (Strings{"qzm-cc-1.out", "qzm_package.zip"}));
    EXPECT_EQ(trace_faults(inWork("qzm-cc-1.out"), false), "");
}

// The copy of the program that could not become the child must not write a second end.
TEST_F(DebugTest, AChildThatCannotBeExecutedIsTracedOnce)
{
    NEEDS("python3");
    expectOneEnd("--qzdebug=on,zip,adt", "qzm-cc-1.out");
    expectOneEnd("--qzdebug=on,zip,adt,out:x", "x");
}

TEST_F(DebugTest, AChildThatCannotBeExecutedIsTracedOnceWhenOthersAreDebugged)
{
    NEEDS("python3");
    NEEDS(DEBUGGER);
    expectOneEnd("--qzdebug=on,zip,adt,out:x,debug:none", "x");
}

TEST_F(DebugTest, TheTraceSaysWhyElmGccHasNoPartInTheTargetHelp)
{
    write(suite + "/bin/deviceSupport.xml",
          "<?xml version=\"1.0\"?>\n<a><b>\n<c name=\"16z20a\" />\n</b></a>\n");
    chmod((suite + "/elm/bin/elm-gcc").c_str(), 0644);
    const RunResult result = run({"--qzdebug=on", "--target-help"}, {.endsEarly = true});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(inWork("qzm-cc-1.out").find(notExecuted), std::string::npos);
}

// ---- What goes wrong --------------------------------------------------------------------------

TEST_F(DebugTest, ADefaultFileThatCannotBeOpenedIsAnErrorOfNoConsequence)
{
    fs::create_directory(work + "/qzm-cc-1.out");
    for (int status : {0, 3}) {
        const RunResult result = run(Strings{"--qzdebug=on"} + ELM,
                                     {.env = {{"QZM_CHILD_EXIT", std::to_string(status)}}});
        EXPECT_EQ(result.err,
                  "(141) could not open debug-out file \"qzm-cc-1.out\": Is a directory\n");
        EXPECT_EQ(result.status, status);
        EXPECT_TRUE(child().ran);
    }
}

TEST_F(DebugTest, APlaceWithoutTheRightToWriteIsAnErrorOfNoConsequence)
{
    if (!canBeNobody())
        GTEST_SKIP() << "needs root, and a build folder that everybody can reach";
    fs::permissions(work, fs::perms{0555});
    const RunResult result = run(Strings{"--qzdebug=on,zip,out:x"} + ELM, {.asNobody = true});
    EXPECT_EQ(result.err,
              warning("could not open debug-out file \"x\"") +
                  "(141) could not open debug-out file \"qzm-cc-1.out\": Permission denied\n");
    EXPECT_EQ(result.status, 0);
    const RunResult packed = run(
        Strings{"--qzdebug=on,zip,out:" + scratch + "/tmp/../record/x"} + ELM, {.asNobody = true});
    EXPECT_EQ(packed.err, warning("Unable to init package zip file (qzm_package.zip) to add "
                                  "\"SYSTEM_ROOT" +
                                  scratch + "/tmp/../record/x\""));
    EXPECT_EQ(packed.status, 0);
    EXPECT_EQ(files(), Strings{});
    fs::permissions(work, fs::perms::all);
}

TEST_F(DebugTest, WhatIsNoPackageStaysAsItIs)
{
    const auto expectRefused = [&](const char *what) {
        const RunResult result =
            run(Strings{"--qzdebug=on,zip:+p.zip"} + ELM, {.env = {{"QZM_CHILD_EXIT", "3"}}});
        EXPECT_EQ(result.err, warning("Unable to open package zip file (p.zip) for reading to "
                                      "append \"qzm-cc-1.out\""))
            << what;
        EXPECT_EQ(result.status, 3) << what;
        EXPECT_EQ(files(), (Strings{"p.zip", "qzm-cc-1.out"})) << what;
    };
    write("p.zip", "PK\5\6 and so on\n");
    expectRefused("text");
    EXPECT_EQ(inWork("p.zip"), "PK\5\6 and so on\n");
    fs::resize_file(work + "/p.zip", uint64_t{1} << 32);
    expectRefused("4 GiB");
    EXPECT_EQ(fs::file_size(work + "/p.zip"), uint64_t{1} << 32);
    fs::remove(work + "/p.zip");
    fs::create_directory(work + "/p.zip");
    expectRefused("a directory");
}

TEST_F(DebugTest, AnOldPackageIsReplacedWithAWarningUnlessItIsToBeContinued)
{
    NEEDS("python3");
    EXPECT_EQ(run(Strings{"--qzdebug=on,zip"} + ELM).err, "");
    EXPECT_EQ(run(Strings{"--qzdebug=on,zip:+qzm_package.zip,num:2"} + ELM).err, "");
    EXPECT_EQ(members("qzm_package.zip"), "qzm-cc-1.out qzm-cc-2.out\n");
    EXPECT_EQ(run(Strings{"--qzdebug=on,zip,num:3"} + ELM).err,
              warning("Package zip \"qzm_package.zip\" already exists and will be over-written"));
    EXPECT_EQ(members("qzm_package.zip"), "qzm-cc-3.out\n");
}

TEST_F(DebugTest, FiftyRunsAtOnceLoseNothingOfOnePackage)
{
    NEEDS("python3");
    const RunResult result = runProgram(
        {"/bin/sh", "-c",
         "for i in $(seq 50); do \"$0\" --qzdebug=on,num:$i,zip:+p.zip -mcpu=elmbig1 -c main.c & "
         "all=\"$all $!\"; done; for i in $all; do wait $i || echo failed; done",
         suite + "/bin/qzm-cc"});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, "");
    std::set<std::string> expected;
    for (int i = 1; i <= 50; i++)
        expected.insert("qzm-cc-" + std::to_string(i) + ".out");
    std::istringstream words(members("p.zip"));
    Strings packed{std::istream_iterator<std::string>(words), {}};
    EXPECT_EQ(packed.size(), 50u);
    EXPECT_EQ(std::set<std::string>(packed.begin(), packed.end()), expected);
    EXPECT_EQ(files().size(), 51u); // and no other file
}

// ---- The debugger -----------------------------------------------------------------------------

class DebuggerTest : public DebugTest {
  protected:
    // The debugger's view of the legacy driver.
    std::string session()
    {
        installSampleQzm();
        write("main.c", "int main(void) { return 0; }\n");
        const RunResult result =
            runProgram(Strings{suite + "/bin/qzm-cc", "--qzdebug=debug:QZM"} + ORB);
        for (const std::string &left : result.leftBehind)
            EXPECT_EQ(left.find("qz"), std::string::npos) << left; // the script and command file
        return result.out + result.err;
    }

    // The reason why the debugger cannot work here, or nothing. It traces processes and needs a
    // terminal for them, which a confined machine may not allow.
    std::string reasonToSkip()
    {
        if (!fileExists(DEBUGGER))
            return std::string("there is no ") + DEBUGGER + " here";
        const RunResult result =
            runProgram({DEBUGGER, "--batch", "--one-line", "run", "--", "/bin/true"});
        if (result.out.find("exited with status = 0") != std::string::npos)
            return "";
        return "the debugger cannot run a program here: " + result.out + result.err;
    }
};

TEST_F(DebuggerTest, StopsTheChildAtMainAndTellsItWhereItRuns)
{
    const std::string reason = reasonToSkip();
    if (!reason.empty())
        GTEST_SKIP() << reason;
    const std::string text = session();
    EXPECT_NE(text.find("Breakpoint 1: where = qzm`db_assert"), std::string::npos) << text;
    EXPECT_NE(text.find("Breakpoint 2: where = qzm`main"), std::string::npos) << text;
    EXPECT_NE(text.find("stop reason = breakpoint 2"), std::string::npos) << text;
    EXPECT_NE(text.find("(volatile int) $0 = 1"), std::string::npos) << text;
    EXPECT_FALSE(fileExists(work + "/main.p1")); // it has not gone further
}

TEST_F(DebuggerTest, LeavesOtherChildrenAlone)
{
    EXPECT_EQ(run(Strings{"--qzdebug=debug:orbc:gcc"} + ELM).status, 0);
    EXPECT_EQ(child().argv.at(0), suite + "/elm/bin/elm-gcc");
}

// ---- The check of traces ----------------------------------------------------------------------

class TraceCheck : public testing::Test {
  protected:
    // The line of driver/qzm-cc.cpp that enters cleanup().
    static size_t entryOfCleanup()
    {
        std::ifstream file(QZM_SOURCES "/driver/qzm-cc.cpp");
        size_t number = 1;
        for (std::string line; std::getline(file, line); number++)
            if (line.find("TRACE_ENTER(\"status") != std::string::npos)
                return number;
        return 0;
    }

    static std::string line(size_t number, const std::string &text)
    {
        std::string location = "qzm-cc:" + std::to_string(number);
        location.resize(20, ' ');
        return location + "> " + text + "\n";
    }

    const std::string entry = line(entryOfCleanup(), "ENTER cleanup(status=0)");
};

TEST_F(TraceCheck, FindsWhatIsNotLeft)
{
    EXPECT_EQ(trace_faults(entry, true), "");
    EXPECT_EQ(trace_faults(entry, false), "never left: cleanup\n");
}

TEST_F(TraceCheck, FindsWhatWasNotEntered)
{
    const std::string text = line(entryOfCleanup(), "EXIT cleanup()");
    EXPECT_NE(trace_faults(text, true).find("not what was entered last: "), std::string::npos);
    EXPECT_NE(trace_faults(entry + line(entryOfCleanup(), "EXIT other()"), true)
                  .find("not what was entered last: "),
              std::string::npos);
}

TEST_F(TraceCheck, FindsAWrongIndent)
{
    EXPECT_EQ(trace_faults(line(entryOfCleanup(), "  ENTER cleanup(status=0)"), true).substr(0, 18),
              "not indented by 0:");
    EXPECT_EQ(trace_faults(entry + line(1, "text"), true).substr(0, 18), "not indented by 4:");
    EXPECT_EQ(trace_faults(entry + line(1, "      text"), true), "");
    EXPECT_EQ(trace_faults(entry + "\nAPP: qzm\nARGS: a\n" + line(1, "text"), true), "");
}

TEST_F(TraceCheck, FindsAPlaceThatIsNone)
{
    const std::string none = "not at such a place: ";
    EXPECT_EQ(trace_faults(line(1, "ENTER cleanup(status=0)"), true).substr(0, none.size()), none);
    EXPECT_EQ(trace_faults(line(99999, "text"), true).substr(0, none.size()), none);
    EXPECT_EQ(trace_faults("nowhere:1           > text\n", true).substr(0, none.size()), none);
    EXPECT_NE(trace_faults(line(entryOfCleanup(), "ENTER other(status=0)"), true), "");
}
