// Running the command: the content of command files, the way of the arguments, the display, and the
// status. Each case runs in a process of its own, whose outputs and exit status are compared as a
// whole. The child that it runs records its arguments.
#include "common/cmdline/cmdline.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <ostream>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "common/base/vector.h"
#include "common/diagnostics/alert.h"
#include "common/os/osdep_host.h"
#include "common/trace/qzdebug.h"
#include "tests/common/trace_lines.h"

using Strings = std::vector<std::string>;

static const char CHILD[] = QZM_RECORDING_CHILD;

// fopen() fails while this is set. There is no other way to make the opening of a file fail that
// was just created.
static bool refuseToOpen;

extern "C" FILE *__real_fopen(const char *name, const char *mode);
extern "C" FILE *__wrap_fopen(const char *name, const char *mode);

FILE *__wrap_fopen(const char *name, const char *mode)
{
    return refuseToOpen ? nullptr : __real_fopen(name, mode);
}

// How a process ended and what it wrote.
struct Outcome {
    int status; // its exit status, or 1000 + the signal
    std::string out;
    std::string err;
    bool operator==(const Outcome &) const = default;
};

static std::ostream &operator<<(std::ostream &stream, const Outcome &o)
{
    return stream << "status " << o.status << ", out \"" << o.out << "\", err \"" << o.err << "\"";
}

static std::string contents(const std::filesystem::path &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// The name of a command file differs each time.
static std::string with_name_masked(const std::string &text)
{
    return std::regex_replace(text, std::regex("/tmp/qz[A-Za-z0-9]{7}\\.cmd"), "NAME.cmd");
}

class CmdlineSpawn : public testing::Test {
  protected:
    std::filesystem::path scratch;

    void SetUp() override
    {
        char name[] = "/tmp/cmdline_spawn_test.XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        scratch = name;
        setenv("QZM_RECORD", (scratch / "record").c_str(), 1);
        for (const char *variable : {"QZM_CHILD_EXIT", "QZM_CHILD_SIGNAL", "QZM_CHILD_STDOUT",
                                     "QZM_CHILD_STDERR", "QZM_CHILD_WAIT"})
            unsetenv(variable);
    }

    void TearDown() override { std::filesystem::remove_all(scratch); }

    // Runs `action` in a process of its own, which ends with the result of `action`.
    Outcome outcome_of(const std::function<int()> &action) const
    {
        const pid_t process = fork();
        if (process == 0) {
            const bool redirected = freopen((scratch / "out").c_str(), "w", stdout) != nullptr &&
                                    freopen((scratch / "err").c_str(), "w", stderr) != nullptr;
            exit(redirected ? action() : 77);
        }
        int status = 0;
        EXPECT_EQ(waitpid(process, &status, 0), process);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status),
                with_name_masked(contents(scratch / "out")),
                with_name_masked(contents(scratch / "err"))};
    }

    Outcome spawn(const Strings &command, unsigned mode, int echo = 0) const
    {
        return outcome_of([&] { return spawn_here(command, mode, echo); });
    }

    static int spawn_here(const Strings &command, unsigned mode, int echo)
    {
        Vector *vector = vec_new("test", 1);
        for (const std::string &text : command)
            vec_add(vector, text.c_str());
        const int status = cmdline_spawn(vector, mode, echo);
        EXPECT_EQ(vec_size(vector), command.size());
        vec_destroy(vector);
        return status;
    }

    // The arguments of the child.
    Strings received() const
    {
        Strings arguments;
        const std::string bytes = contents(scratch / "record.argv");
        for (size_t at = 0; at < bytes.size(); at += arguments.back().size() + 1)
            arguments.push_back(bytes.c_str() + at);
        return arguments;
    }

    // The bytes of the command file that is written for these arguments.
    std::string file_of(Strings arguments) const
    {
        arguments.insert(arguments.begin(), CHILD);
        EXPECT_EQ(spawn(arguments, COMMAND_FILE_ALWAYS), Outcome({0, "", ""}));
        return contents(scratch / "record.cmd");
    }
};

using CommandFileFormat = CmdlineSpawn;

// ---- The format: docs/command-file.md, the constants of common/cmdline/cmdline_spawn.cpp
// ---------------

TEST_F(CommandFileFormat, OneArgumentALine)
{
    EXPECT_EQ(file_of({"-c", "main.c", "-o", "main.o"}), "-c\nmain.c\n-o\nmain.o\n");
}

TEST_F(CommandFileFormat, NoArgumentsGiveAnEmptyFile)
{
    EXPECT_EQ(file_of({}), "");
    const Strings arguments = received();
    ASSERT_EQ(arguments.size(), 2u);
    EXPECT_EQ(arguments[0], CHILD);
    EXPECT_EQ(with_name_masked(arguments[1]), "@NAME.cmd");
}

TEST_F(CommandFileFormat, BackslashAndSingleQuoteAreEscaped)
{
    EXPECT_EQ(file_of({"a'b\\c", "\\\\", "''"}), "a\\'b\\\\c\n\\\\\\\\\n\\'\\'\n");
}

TEST_F(CommandFileFormat, ASpaceIsEscapedAndTheArgumentQuoted)
{
    EXPECT_EQ(file_of({"-DMSG=a b", "\\ '", " "}), "\"-DMSG=a\\ b\"\n\"\\\\\\ \\'\"\n\"\\ \"\n");
}

TEST_F(CommandFileFormat, OtherWhiteSpaceIsQuotedButNotEscaped)
{
    EXPECT_EQ(file_of({"a\tb", "c\rd", "e\nf", "\t'\\"}),
              "\"a\tb\"\n\"c\rd\"\n\"e\nf\"\n\"\t\\'\\\\\"\n");
}

TEST_F(CommandFileFormat, ADoubleQuoteIsEscapedOnlyInsideQuotes)
{
    EXPECT_EQ(file_of({"-DS=\"x\"", "-DS=\"x y\"", "\"\t\""}),
              "-DS=\"x\"\n\"-DS=\\\"x\\ y\\\"\"\n\"\\\"\t\\\"\"\n");
}

TEST_F(CommandFileFormat, OtherBytesAndEmptyArgumentsAreWrittenAsTheyAre)
{
    EXPECT_EQ(file_of({"", "\v\f\x01\xff$`#*", "@x"}), "\n\v\f\x01\xff$`#*\n@x\n");
}

TEST_F(CommandFileFormat, ManyAndLongArgumentsArriveWhole)
{
    Strings arguments;
    std::string expected;
    for (int i = 0; i < 20'000; ++i) {
        arguments.push_back("-I/directory/" + std::to_string(i));
        expected += arguments.back() + "\n";
    }
    arguments.push_back(std::string(3'000'000, 'x'));
    expected += arguments.back() + "\n";
    EXPECT_TRUE(file_of(arguments) == expected);
}

// ---- The routes -------------------------------------------------------------------------------

TEST_F(CmdlineSpawn, NeverPassesTheArgumentsAsTheyAre)
{
    EXPECT_EQ(spawn({CHILD, "a b", "", "'\\"}, COMMAND_FILE_NEVER), Outcome({0, "", ""}));
    EXPECT_EQ(received(), Strings({CHILD, "a b", "", "'\\"}));
}

// A command whose driver, arguments and separators together have this length.
static Strings command_of_length(size_t length)
{
    Strings command = {CHILD};
    size_t left = length - command[0].size() - 1;
    for (; left > 1001; left -= 1001)
        command.push_back(std::string(1000, 'x'));
    command.push_back(std::string(left, 'y'));
    return command;
}

TEST_F(CmdlineSpawn, AutoPassesALineOfExactlyTheLimitDirectly)
{
    ASSERT_EQ(osdep_maxCommandLine(), 65535u);
    const Strings command = command_of_length(65535);
    EXPECT_EQ(spawn(command, COMMAND_FILE_AUTO), Outcome({0, "", ""}));
    EXPECT_EQ(received(), command);
}

TEST_F(CmdlineSpawn, AutoWritesALongerLineToACommandFile)
{
    const Strings command = command_of_length(65536);
    EXPECT_EQ(spawn(command, COMMAND_FILE_AUTO), Outcome({0, "", ""}));
    EXPECT_EQ(received().size(), 2u);
    std::string expected;
    for (size_t i = 1; i < command.size(); ++i)
        expected += command[i] + "\n";
    EXPECT_EQ(contents(scratch / "record.cmd"), expected);
}

TEST_F(CmdlineSpawn, AnUnknownModeIsAnErrorOrTakenForNever)
{
#ifdef NDEBUG
    EXPECT_EQ(spawn({CHILD, "a"}, 3), Outcome({0, "", ""}));
    EXPECT_EQ(received(), Strings({CHILD, "a"}));
#else
    EXPECT_EQ(spawn({CHILD, "a"}, 3), Outcome({1, "",
                                               "Assertion failed - mode <= COMMAND_FILE_NEVER "
                                               "(common/cmdline, line 40)\n"}));
#endif
}

// ---- What is shown ----------------------------------------------------------------------------

TEST_F(CmdlineSpawn, EchoShowsTheCommandBeforeTheChildsOutput)
{
    setenv("QZM_CHILD_STDOUT", "child", 1);
    const std::string driver = CHILD;
    EXPECT_EQ(spawn({driver, "a b", "'c'"}, COMMAND_FILE_ALWAYS, 1),
              Outcome({0, driver + " @NAME.cmd [ a b 'c' ]\nchild\n", ""}));
    EXPECT_EQ(spawn({driver, "a b", "'c'"}, COMMAND_FILE_NEVER, 2),
              Outcome({0, driver + " a b 'c'\nchild\n", ""}));
    EXPECT_EQ(spawn({driver, "a"}, COMMAND_FILE_AUTO, 1), Outcome({0, driver + " a\nchild\n", ""}));
}

TEST_F(CmdlineSpawn, EchoOfADriverAloneHasAnEmptyArgumentText)
{
    const std::string driver = CHILD;
    EXPECT_EQ(spawn({driver}, COMMAND_FILE_ALWAYS, 1),
              Outcome({0, driver + " @NAME.cmd [  ]\n", ""}));
    EXPECT_EQ(spawn({driver}, COMMAND_FILE_NEVER, 1), Outcome({0, driver + " \n", ""}));
}

TEST_F(CmdlineSpawn, EchoOfMegabytesIsNotCut)
{
    const std::string driver = CHILD;
    const std::string argument(4'000'000, 'x');
    EXPECT_TRUE(spawn({driver, argument}, COMMAND_FILE_ALWAYS, 1) ==
                Outcome({0, driver + " @NAME.cmd [ " + argument + " ]\n", ""}));
}

TEST_F(CmdlineSpawn, WhatWasWrittenBeforeComesFirst)
{
    setenv("QZM_CHILD_STDOUT", "child out", 1);
    setenv("QZM_CHILD_STDERR", "child err", 1);
    EXPECT_EQ(outcome_of([] {
                  setvbuf(stderr, nullptr, _IOFBF, 4096);
                  printf("parent out\n");
                  fprintf(stderr, "parent err\n");
                  return spawn_here({CHILD}, COMMAND_FILE_ALWAYS, 0);
              }),
              Outcome({0, "parent out\nchild out\n", "parent err\nchild err\n"}));
}

static Strings masked(Strings lines)
{
    for (std::string &line : lines)
        line = with_name_masked(line);
    return lines;
}

TEST_F(CmdlineSpawn, TracesTheCommandFileRoute)
{
    const std::string driver = CHILD;
    EXPECT_EQ(masked(trace_lines_while("cmdline",
                                       [&] {
                                           spawn_here({driver, "a b"}, COMMAND_FILE_ALWAYS, 0);
                                       })),
              Strings({"Executing driver: \"" + driver + "\"", "Command file name: \"NAME.cmd\"",
                       "Writing option to command file: \"a\\ b\"",
                       "Executing: " + driver + " @NAME.cmd [ a b ]", "Execution returned 0",
                       "Returning status: 0"}));
}

TEST_F(CmdlineSpawn, TracesTheDirectRouteAndALineThatIsTooLong)
{
    const std::string driver = CHILD;
    EXPECT_EQ(trace_lines_while("cmdline",
                                [&] {
                                    spawn_here({driver, "a b"}, COMMAND_FILE_NEVER, 0);
                                }),
              Strings({"Executing driver: \"" + driver + "\"", "Executing: " + driver + " a b",
                       "Execution returned 0", "Returning status: 0"}));
    const Strings lines = trace_lines_while(
        "cmdline", [&] { spawn_here(command_of_length(65536), COMMAND_FILE_AUTO, 0); });
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[1], "Command line length is too long for OS (65536), using command file");
}

// ---- What comes back --------------------------------------------------------------------------

TEST_F(CmdlineSpawn, ReturnsTheExitStatusUnchanged)
{
    for (const char *status : {"0", "1", "2", "127", "255"}) {
        setenv("QZM_CHILD_EXIT", status, 1);
        for (const unsigned mode : {COMMAND_FILE_AUTO, COMMAND_FILE_ALWAYS, COMMAND_FILE_NEVER})
            EXPECT_EQ(spawn_here({CHILD, "a"}, mode, 0), atoi(status));
    }
}

TEST_F(CmdlineSpawn, ReturnsMinusOneForAChildThatASignalKilled)
{
    setenv("QZM_CHILD_SIGNAL", "9", 1);
    const std::string driver = CHILD;
    EXPECT_EQ(outcome_of([] { return spawn_here({CHILD}, COMMAND_FILE_ALWAYS, 0) == -1 ? 5 : 6; }),
              Outcome({5, "", driver + ": signal 9 \n"}));
}

TEST_F(CmdlineSpawn, TheChildOfADriverThatCannotBeStartedEndsSilently)
{
    std::ofstream(scratch / "no program") << "text";
    for (const Strings &command :
         {Strings({"/no/such/driver", "a"}), Strings({(scratch / "no program").string(), "a"})}) {
        for (const unsigned mode : {COMMAND_FILE_ALWAYS, COMMAND_FILE_NEVER})
            EXPECT_EQ(spawn(command, mode), Outcome({255, "", ""})) << command[0];
    }
}

TEST_F(CmdlineSpawn, TheChildOfADriverThatCannotBeStartedKeepsOutOfTheTrace)
{
    const Strings lines = trace_lines_while("cmdline", [&] {
        const pid_t parent = getpid();
        const int status = spawn_here({"/no/such/driver"}, COMMAND_FILE_NEVER, 0);
        if (getpid() != parent)
            _exit(status == -1 ? 42 : 43);
    });
    EXPECT_EQ(lines,
              Strings({"Executing driver: \"/no/such/driver\"", "Executing: /no/such/driver ",
                       "Execution returned 42", "Returning status: 42"}));
}

TEST_F(CmdlineSpawn, TheCommandFileIsThereUntilTheProcessEndsAndGoneThen)
{
    std::string name;
    const auto run = [this] {
        const int status = spawn_here({CHILD, "a"}, COMMAND_FILE_ALWAYS, 0);
        const std::string file = received().at(1).substr(1);
        return status == 0 && contents(file) == "a\n" ? 0 : 1;
    };
    EXPECT_EQ(outcome_of(run), Outcome({0, "", ""}));
    EXPECT_FALSE(std::filesystem::exists(received().at(1).substr(1)));
}

// ---- What goes wrong --------------------------------------------------------------------------

static const Outcome NO_INPUT = {1, "",
                                 "qzm-cc: fatal error: no input files\nprogram terminated.\n"};

TEST_F(CmdlineSpawn, AnEmptyOrMissingCommandIsAFatalError)
{
    EXPECT_EQ(spawn({}, COMMAND_FILE_ALWAYS, 1), NO_INPUT);
    EXPECT_EQ(outcome_of([] { return cmdline_spawn(nullptr, COMMAND_FILE_ALWAYS, 1); }), NO_INPUT);
}

static void limit(__rlimit_resource resource, rlim_t value)
{
    rlimit wanted = {};
    bool done = getrlimit(resource, &wanted) == 0;
    wanted.rlim_cur = value;
    done = done && setrlimit(resource, &wanted) == 0;
    if (!done)
        _exit(76);
}

TEST_F(CmdlineSpawn, ACommandFileThatCannotBeCreatedIsAFatalError)
{
    const auto run = [] {
        limit(RLIMIT_NOFILE, 3);
        const int status = spawn_here({CHILD, "a"}, COMMAND_FILE_ALWAYS, 1);
        limit(RLIMIT_NOFILE, 64); // for the leak check at the end
        return status;
    };
    EXPECT_EQ(outcome_of(run),
              Outcome({1, "", "qzm-cc: fatal error: Could not create temporary file\n"}));
    EXPECT_EQ(received(), Strings());
}

TEST_F(CmdlineSpawn, ACommandFileThatCannotBeOpenedIsAFatalError)
{
    const auto run = [] {
        alert_print("first"); // which may look for the message file
        refuseToOpen = true;
        return spawn_here({CHILD, "a"}, COMMAND_FILE_ALWAYS, 1);
    };
    EXPECT_EQ(outcome_of(run),
              Outcome({1, "", "first\nqzm-cc: fatal error: Could not open temporary file\n"}));
    EXPECT_EQ(received(), Strings());
}

// The trace of a case that ends with a fatal error, whose text is discarded.
static Strings trace_of_failure(const std::function<int()> &spawning)
{
    alert_setOutputHook([](const char *) {});
    const Strings lines = trace_lines_while("cmdline", [&] { EXPECT_EQ(spawning(), 1); });
    alert_setOutputHook(nullptr);
    return masked(lines);
}

TEST_F(CmdlineSpawn, TracesWhyNothingIsRun)
{
    EXPECT_EQ(trace_of_failure([] { return spawn_here({}, COMMAND_FILE_ALWAYS, 0); }),
              Strings({"no options were found, exiting with status 1"}));
    const std::string driver = "Executing driver: \"" + std::string(CHILD) + "\"";
    EXPECT_EQ(
        trace_of_failure([] {
            rlimit before = {};
            getrlimit(RLIMIT_NOFILE, &before);
            limit(RLIMIT_NOFILE, 3);
            const int status = spawn_here({CHILD, "a"}, COMMAND_FILE_ALWAYS, 0);
            limit(RLIMIT_NOFILE, before.rlim_cur);
            return status;
        }),
        Strings({driver, "qzmcc_spawn could not get a temp file name, exiting with status 1"}));
    EXPECT_EQ(trace_of_failure([] {
                  refuseToOpen = true;
                  const int status = spawn_here({CHILD, "a"}, COMMAND_FILE_ALWAYS, 0);
                  refuseToOpen = false;
                  return status;
              }),
              Strings({driver, "Command file name: \"NAME.cmd\"",
                       "Could not create command file \"NAME.cmd\"",
                       "qzmcc_spawn could not create a temp file, exiting with status 1"}));
}

TEST_F(CmdlineSpawn, ACommandFileThatCannotBeWrittenIsAFatalErrorAndNothingIsRun)
{
    // A file that overflows while it is written, and one that overflows when it is closed.
    for (const size_t length : {size_t{1'000'000}, size_t{2'000}}) {
        const auto run = [length] {
            std::signal(SIGXFSZ, SIG_IGN);
            alert_print("first");
            limit(RLIMIT_FSIZE, 1000);
            return spawn_here({CHILD, std::string(length, 'x')}, COMMAND_FILE_ALWAYS, 0);
        };
        EXPECT_EQ(outcome_of(run),
                  Outcome({1, "", "first\nqzm-cc: fatal error: Could not write temporary file\n"}));
        EXPECT_EQ(received(), Strings());
    }
}
