// The end-to-end harness: stages an installation in a scratch directory, runs the built program in
// it and tells what came out and what the child was given.
//
//     TEST_F(SuiteTest, AChildsStatusIsTheProgramsStatus)
//     {
//         RunResult result = run({"-mcpu=elmbig1", "main.c"}, {.env = {{"QZM_CHILD_EXIT", "3"}}});
//         EXPECT_EQ(result.status, 3);
//         EXPECT_EQ(child().commandFile, ...);
//     }
//
// The installation is VER = scratch/v2.32 with bin/qzm-cc, and a recording program (see
// recording_child.cpp) as elm/bin/elm-gcc and orb/bin/qzm. The program runs in scratch/work. Where
// the machine allows it (mount namespaces, as root), each run sees a /tmp of its own, and every run
// is checked to leave nothing in it.
//
// CTest runs every test twice: with the program itself, and (QZM_CLI_TRACED set) with a twin that
// puts "--qzdebug=on,out:FILE" in front of its arguments. Results must be the same, the option for
// the child aside; and the trace must be as trace_check.h says, with no entry left open except in a
// run that says it ends early.
#ifndef TESTS_CLI_SUITE_FIXTURE_H
#define TESTS_CLI_SUITE_FIXTURE_H

#include <functional>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/types.h>

using Environment = std::map<std::string, std::string>;

// The state of /tmp in a run. All but Usual need a mount namespace: see SuiteTest::hasMounts().
enum class Tmp {
    Usual,    // an empty directory of the run's own, or the machine's /tmp
    Missing,  // nothing
    ReadOnly, // a read-only file system
    NoFiles,  // a file system that has no room for another file
    NoSpace,  // a file system that has room for names, not for data
};

struct RunOptions {
    Environment env = {}; // added to the test's own environment
    Tmp tmp = Tmp::Usual;
    bool endsEarly = false;   // the run ends inside a function, so that the trace stays open
    bool asNobody = false;    // without privileges; needs root
    int fileLimit = 0;        // open descriptors allowed; 0: as many as the test has
    bool noProcesses = false; // no process can be started; needs asNobody
    double timeLimit = 60;    // seconds, after which the run is killed
    std::function<void(pid_t)> whileRunning = {}; // called once, while the recording child waits
};

struct RunResult {
    int status = -1; // exit status; -1 when it was killed
    int signal = 0;  // that killed it
    bool timedOut = false;
    double seconds = 0;                       // of wall time
    double processorSeconds = 0;              // of the program, and of a child it waited for
    long peakKilobytes = 0;                   // of memory, of the program or its child
    std::string out;                          // standard output
    std::string err;                          // standard error
    std::vector<std::string> leftBehind = {}; // names in the run's /tmp at its end
};

// The input of the recording child.
struct ChildRecord {
    bool ran = false;
    std::vector<std::string> argv; // complete
    std::string commandFileName;   // of its "@" argument
    std::string commandFile;       // the bytes of that file
    std::string directory;         // the current one
    Environment env;               // the variables that begin with "NVC_"
};

class SuiteTest : public ::testing::Test {
  public:
    static bool traced(); // whether this is the run with the traced program

  protected:
    SuiteTest();
    ~SuiteTest() override;

    // Runs VER/bin/qzm-cc with the arguments.
    RunResult run(const std::vector<std::string> &args, const RunOptions &options = {});

    // Runs any program in scratch/work in the same surroundings (no trace is looked at).
    RunResult runProgram(const std::vector<std::string> &command, const RunOptions &options = {});

    // The input of the last run's child; forgotten when the next run begins.
    ChildRecord child() const;

    // Puts the sample elm-gcc where the recording child is.
    void installSampleElmGcc();

    // Puts the sample qzm, with its include folders, where the recording child is.
    void installSampleQzm();

    // Installs the whole sample suite, with this run's program.
    void installSampleSuite();

    // Writes a file, creating its directory; a relative path is below scratch/work.
    void write(const std::string &path, const std::string &bytes) const;

    // The same for an executable script.
    void writeProgram(const std::string &path, const std::string &script) const;

    static bool hasMounts();   // whether a run can have a mount namespace
    static bool canBeNobody(); // whether a run can drop its privileges and still reach its files

    std::string scratch; // absolute
    std::string suite;   // VER
    std::string work;    // where programs run

  private:
    std::string withoutDebugOption(const std::string &text, const char *between) const;
    void checkTrace(const RunOptions &options) const;
};

std::string readFile(const std::string &path);
bool fileExists(const std::string &path);
void copyProgram(const std::string &from, const std::string &to);
std::string numbered(const std::string &front, int number); // the two joined
std::string replaceAll(std::string text, const std::string &what, const std::string &by);

#endif
