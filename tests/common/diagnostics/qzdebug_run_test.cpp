// Running programs for the debug facility, directly or under the debugger.
#include <cstring>

#include "common/base/vector.h"
#include "common/diagnostics/qzdebug_options.h"
#include "qzdebug_fixture.h"

// The linker replaces the real functions by these (see CMakeLists.txt): the test decides whether
// there is a debugger, and the command to be run under it is noted.

namespace {

enum { AS_IT_IS, MISSING, NOTED } s_debugger = AS_IT_IS;

constexpr char DEBUGGER[] = "/usr/bin/lldb";

} // namespace

extern "C" {
int __real__Z16osdep_fileExistsPKc(const char *path);
int __wrap__Z16osdep_fileExistsPKc(const char *path);
int __real__Z11osdep_spawnPKcPKPc(const char *program, char *const *argv);
int __wrap__Z11osdep_spawnPKcPKPc(const char *program, char *const *argv);
}

int __wrap__Z16osdep_fileExistsPKc(const char *path)
{
    if (s_debugger != AS_IT_IS && path != nullptr && strcmp(path, DEBUGGER) == 0)
        return s_debugger == NOTED;
    return __real__Z16osdep_fileExistsPKc(path);
}

// Notes the arguments, with the content of the command file in place of its name.
int __wrap__Z11osdep_spawnPKcPKPc(const char *program, char *const *argv)
{
    if (s_debugger != NOTED)
        return __real__Z11osdep_spawnPKcPKPc(program, argv);
    answer(program);
    for (; *argv != nullptr; ++argv)
        answer(strncmp(*argv, "/tmp/qz", 7) == 0 && fs::exists(*argv) && fs::is_regular_file(*argv)
                   ? "{" + contents(*argv) + "}"
                   : std::string(*argv));
    return 42;
}

namespace {

class QzdebugRun : public QzdebugProcess {
  protected:
    // An executable script in work().
    fs::path script(const std::string &name, const std::string &text) const
    {
        const fs::path path = work() / name;
        std::ofstream(path) << "#!/bin/sh\n" << text;
        fs::permissions(path, fs::perms::owner_all);
        return path;
    }
};

Vector *words(const std::vector<const char *> &list)
{
    Vector *vector = vec_new("test", 1);
    for (const char *word : list)
        vec_add(vector, word);
    return vector;
}

} // namespace

TEST_F(QzdebugRun, RunsTheProgramWithItsArgumentsAndReturnsItsStatus)
{
    const std::string program = script("tool", "echo \"$0|$1|$2|$#\"; exit 7\n");
    const Outcome outcome = inProcess([&] {
        Vector *args = words({program.c_str(), "a b", "c"});
        answer(std::to_string(qzdebug_run(program.c_str(), args, 0)));
        answer(std::to_string(vec_size(args)));
    });
    EXPECT_EQ(outcome.output, program + "|a b|c|2\n");
    EXPECT_EQ(outcome.answers, "7\n3\n");
}

TEST_F(QzdebugRun, WithoutArgumentsTheProgramAloneIsRun)
{
    const std::string program = script("tool", "echo \"$0 $#\"\n");
    const Outcome outcome =
        inProcess([&] { answer(std::to_string(qzdebug_run(program.c_str(), nullptr, 0))); });
    EXPECT_EQ(outcome.output, program + " 0\n");
    EXPECT_EQ(outcome.answers, "0\n");
}

TEST_F(QzdebugRun, AProgramThatIsNotToBeDebuggedRunsDirectly)
{
    const std::string program = script("tool", "echo direct\n");
    const Outcome outcome = inProcess([&] {
        qzdebug_parse("--qzdebug=debug:other");
        answer(std::to_string(qzdebug_run(program.c_str(), nullptr, 0)));
    });
    EXPECT_EQ(outcome.output, "direct\n");
    EXPECT_EQ(outcome.answers, "0\n");
}

TEST_F(QzdebugRun, AMissingDebuggerIsSaidOnceAndTheProgramRunsDirectly)
{
    const std::string program = script("tool", "echo direct\n");
    const Outcome outcome = inProcess([&] {
        s_debugger = MISSING;
        qzdebug_parse("--qzdebug=debug:other");
        qzdebug_run(program.c_str(), nullptr, 0);
        qzdebug_run(program.c_str(), nullptr, 0);
    });
    EXPECT_EQ(outcome.output, "direct\ndirect\n");
    EXPECT_EQ(outcome.errors, warning("Debugger \"/usr/bin/lldb\" is not available"));
}

TEST_F(QzdebugRun, WithoutProgramsToDebugTheDebuggerIsNotLookedFor)
{
    const std::string program = script("tool", "echo direct\n");
    const Outcome outcome = inProcess([&] {
        s_debugger = MISSING;
        qzdebug_parse("--qzdebug=on");
        qzdebug_run(program.c_str(), nullptr, 0);
    });
    EXPECT_EQ(outcome.output, "direct\n");
    EXPECT_EQ(outcome.errors, "");
}

TEST_F(QzdebugRun, AProgramToDebugIsGivenToTheDebuggerWithItsScript)
{
    const std::string script = "{break set --name db_assert\nbreak set --name main\n"
                               "break command add 2\nexpr gInDebugger=1\nDONE\nrun}\n";
    const Outcome outcome = inProcess([] {
        s_debugger = NOTED;
        qzdebug_parse("--qzdebug=debug:Foo");
        Vector *args = words({"/opt/bin/foo.x", "@file", "a b"});
        answer(std::to_string(qzdebug_run("/opt/bin/foo.x", args, 0)));
        answer(std::to_string(vec_size(args)));
    });
    EXPECT_EQ(outcome.answers, "/usr/bin/lldb\n/usr/bin/lldb\n-s\n" + script +
                                   "--\n/opt/bin/foo.x\n@file\na b\n42\n3\n");
    EXPECT_EQ(outcome.errors, "");
}

TEST_F(QzdebugRun, AProgramToDebugWithoutArgumentsIsGivenAlone)
{
    const Outcome outcome = inProcess([] {
        s_debugger = NOTED;
        qzdebug_parse("--qzdebug=debug:foo");
        qzdebug_run("/opt/bin/FOO", nullptr, 0);
    });
    EXPECT_EQ(outcome.answers.substr(outcome.answers.find("--\n")), "--\n/opt/bin/FOO\n");
}

TEST_F(QzdebugRun, TheScriptIsGoneAfterTheRun)
{
    const Outcome outcome = inProcess([] {
        s_debugger = NOTED;
        qzdebug_parse("--qzdebug=debug:foo");
        Names before;
        for (const auto &entry : fs::directory_iterator("/tmp"))
            before.push_back(entry.path());
        qzdebug_run("/opt/bin/foo", nullptr, 0);
        for (const auto &entry : fs::directory_iterator("/tmp")) {
            const std::string path = entry.path();
            if (std::find(before.begin(), before.end(), path) == before.end() &&
                fs::is_regular_file(path) &&
                contents(path).find("gInDebugger") != std::string::npos)
                answer("left: " + path);
        }
    });
    EXPECT_EQ(outcome.answers.find("left:"), std::string::npos) << outcome.answers;
}
