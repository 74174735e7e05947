// Most of these tests fork: effects at the end of a process, or on its descriptors and signals,
// happen to a process made for them.
#include "common/os/osdep_process.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <stdio_ext.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "common/base/vector.h"
#include "common/os/osdep_temp.h"
#include "tests/common/trace_lines.h"

#if defined(__SANITIZE_ADDRESS__)
#define WITH_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define WITH_ADDRESS_SANITIZER 1
#endif
#endif

namespace fs = std::filesystem;

namespace {

struct Outcome {
    int status = -1; // exit status; 1000 + n when killed by signal n
    std::string out;
    std::string err;
};

std::string contents_of(int descriptor)
{
    std::string text;
    lseek(descriptor, 0, SEEK_SET);
    char buffer[4096];
    for (ssize_t n; (n = read(descriptor, buffer, sizeof buffer)) > 0;)
        text.append(buffer, static_cast<size_t>(n));
    return text;
}

int unnamed_file()
{
    FILE *file = std::tmpfile();
    const int descriptor = dup(fileno(file));
    std::fclose(file);
    return descriptor;
}

// Runs `body` in a process of its own, which exits with its result.
Outcome in_process(const std::function<int()> &body)
{
    const int out = unnamed_file();
    const int err = unnamed_file();
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        dup2(out, 1);
        dup2(err, 2);
        close(out);
        close(err);
        std::exit(body());
    }
    int status = 0;
    waitpid(child, &status, 0);
    Outcome outcome;
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    outcome.out = contents_of(out);
    outcome.err = contents_of(err);
    close(out);
    close(err);
    return outcome;
}

std::vector<std::string> lines(const std::string &text)
{
    std::vector<std::string> result;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        result.push_back(line);
    return result;
}

// Writes more to standard output than any buffer holds.
void say(const std::string &text)
{
    if (write(1, text.data(), text.size()) < 0)
        std::abort();
}

std::string taken(char *text)
{
    std::string copy = text == nullptr ? "(null)" : text;
    std::free(text);
    return copy;
}

int spawn_shell(const char *script)
{
    const char *argv[] = {"/bin/sh", "-c", script, nullptr};
    return osdep_spawn("/bin/sh", const_cast<char *const *>(argv));
}

// Its result; a child that could not become the program ends with status 255.
int spawn_alone(const char *program)
{
    const char *argv[] = {program, nullptr};
    const pid_t parent = getpid();
    const int result = osdep_spawn(program, const_cast<char *const *>(argv));
    if (getpid() != parent)
        _exit(255);
    return result;
}

// The module's lines in the trace while `action` runs.
std::string traced(const std::function<void()> &action)
{
    std::string text;
    for (const std::string &line : trace_lines_while("osdep", action))
        text += line + "\n";
    return text;
}

FILE *capture_shell(const char *script)
{
    return osdep_popen_command("/bin/sh", "-c", script, nullptr);
}

std::string read_all(FILE *stream)
{
    std::string text;
    for (int c; (c = std::fgetc(stream)) != EOF;)
        text += static_cast<char>(c);
    return text;
}

int open_descriptors()
{
    int count = 0;
    for (const auto &entry : fs::directory_iterator("/proc/self/fd")) {
        (void)entry;
        ++count;
    }
    return count;
}

void limit(decltype(RLIMIT_NOFILE) resource, rlim_t value)
{
    rlimit values;
    getrlimit(resource, &values);
    values.rlim_cur = value;
    setrlimit(resource, &values);
}

std::vector<std::string> files_in_tmp_with(const std::string &suffix)
{
    std::vector<std::string> found;
    for (const auto &entry : fs::directory_iterator("/tmp")) {
        const std::string name = entry.path().filename();
        if (name.size() > suffix.size() && name.ends_with(suffix))
            found.push_back(name);
    }
    return found;
}

// A suffix that no other process uses.
std::string own_suffix()
{
    return "." + std::to_string(getpid()) + "test";
}

// Gives this process a /tmp of its own; false if the machine does not allow that.
bool mount_tmp(const char *options, unsigned long flags)
{
    if (unshare(CLONE_NEWNS) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
        return false;
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return false;
    return mount("tmpfs", "/tmp", "tmpfs", flags, options) == 0;
}

constexpr int NOT_ALLOWED = 99;

// Ends a process that lacks the means for a leak check at its exit.
[[noreturn]] void end_at_once(bool succeeded)
{
    _exit(succeeded ? 0 : 1);
}

} // namespace

// ---- Temporary objects ------------------------------------------------------------------------

TEST(TemporaryObjects, AreTheirOwnersAlone)
{
    const Outcome run = in_process([] {
        umask(0);
        struct stat file;
        struct stat directory;
        if (stat(taken(osdep_tempFileSuffix(".cmd")).c_str(), &file) != 0 ||
            stat(taken(osdep_tempDir()).c_str(), &directory) != 0)
            return 1;
        return (file.st_mode & 07777) == 0600 && (directory.st_mode & 07777) == 0700 ? 0 : 2;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(TemporaryFile, IsEmptyAndNamedByTheTemplateWithTheSuffix)
{
    const Outcome run = in_process([] {
        const std::string name = taken(osdep_tempFileSuffix(".cmd"));
        struct stat info;
        if (stat(name.c_str(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_size != 0)
            return 1;
        say(name);
        return 0;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_TRUE(std::regex_match(run.out, std::regex("/tmp/qz.{7}\\.cmd"))) << run.out;
}

TEST(TemporaryFile, HasNoSuffixWhenNoneIsGiven)
{
    const Outcome run = in_process([] {
        say(taken(osdep_tempFileSuffix(nullptr)) + "\n" + taken(osdep_tempFile()) + "\n");
        return 0;
    });
    const auto names = lines(run.out);
    ASSERT_EQ(names.size(), 2U);
    EXPECT_TRUE(std::regex_match(names[0], std::regex("/tmp/qz.{7}"))) << names[0];
    EXPECT_TRUE(std::regex_match(names[1], std::regex("/tmp/qz.{7}"))) << names[1];
    EXPECT_NE(names[0], names[1]);
}

TEST(TemporaryFile, LeavesNoDescriptorOpen)
{
    const Outcome run = in_process([] {
        const int before = open_descriptors();
        std::free(osdep_tempFile());
        std::free(osdep_tempDir());
        return open_descriptors() - before;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(TemporaryObjects, AreRemovedAtTheEndOfTheProcess)
{
    const Outcome run = in_process([] {
        const std::string dir = taken(osdep_tempDir());
        fs::create_directories(dir + "/a/b");
        std::ofstream(dir + "/a/b/file") << "x";
        const std::string file = taken(osdep_tempFile());
        const std::string removed = taken(osdep_tempFileSuffix(".x"));
        fs::remove(removed);
        say(dir + "\n" + file + "\n" + removed + "\n");
        return fs::exists(file) && fs::is_directory(dir) ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    for (const std::string &name : lines(run.out)) {
        EXPECT_EQ(name.substr(0, 7), "/tmp/qz");
        EXPECT_FALSE(fs::exists(name)) << name;
    }
}

TEST(TemporaryObjects, AreRemovedAndForgottenWhenTheyAreDiscarded)
{
    const Outcome run = in_process([] {
        const std::string dir = taken(osdep_tempDir());
        std::ofstream(dir + "/file") << "x";
        const std::string file = taken(osdep_tempFile());
        osdep_discardTemp(dir.c_str());
        osdep_discardTemp(file.c_str());
        if (fs::exists(dir) || fs::exists(file))
            return 1;
        std::ofstream(file) << "somebody else's by now";
        osdep_discardTemp(file.c_str());
        osdep_removeTempFiles();
        return fs::remove(file) ? 0 : 2;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(TemporaryObjects, ThatCannotBeDiscardedAreRemovedAtTheEnd)
{
    const Outcome run = in_process([] {
        const std::string dir = taken(osdep_tempDir());
        std::ofstream(dir + "/file") << "x";
        rlimit limit;
        getrlimit(RLIMIT_NOFILE, &limit);
        const rlimit none = {0, limit.rlim_max}; // to read the directory takes a descriptor
        setrlimit(RLIMIT_NOFILE, &none);
        osdep_discardTemp(dir.c_str());
        setrlimit(RLIMIT_NOFILE, &limit);
        if (!fs::exists(dir))
            return 1;
        osdep_removeTempFiles();
        return fs::exists(dir) ? 2 : 0;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(TemporaryObjects, AreNotDiscardedWhileTheyAreToBeKept)
{
    const Outcome run = in_process([] {
        osdep_discardTemp(nullptr);
        const std::string file = taken(osdep_tempFile());
        osdep_keepTempFiles(1);
        osdep_discardTemp(file.c_str());
        const bool kept = fs::exists(file);
        osdep_keepTempFiles(0);
        return kept ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(TemporaryObjects, SurviveWhenTheyAreToBeKept)
{
    const Outcome run = in_process([] {
        osdep_keepTempFiles(1);
        say(taken(osdep_tempFile()) + "\n" + taken(osdep_tempDir()) + "\n");
        return 0;
    });
    const auto names = lines(run.out);
    ASSERT_EQ(names.size(), 2U);
    EXPECT_TRUE(fs::is_regular_file(names[0]));
    EXPECT_TRUE(fs::is_directory(names[1]));
    fs::remove(names[0]);
    fs::remove(names[1]);
}

TEST(TemporaryObjects, AreForgottenOnceKept)
{
    const Outcome run = in_process([] {
        const std::string name = taken(osdep_tempFile());
        osdep_keepTempFiles(1);
        osdep_removeTempFiles();
        osdep_keepTempFiles(0);
        osdep_removeTempFiles();
        return fs::exists(name) && fs::remove(name) ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(TemporaryObjects, AreForgottenOnceRemovedAndStartAfresh)
{
    const Outcome run = in_process([] {
        const std::string first = taken(osdep_tempFile());
        osdep_removeTempFiles();
        if (fs::exists(first))
            return 1;
        std::ofstream(first) << "somebody else's by now";
        const std::string second = taken(osdep_tempFile());
        osdep_removeTempFiles();
        const bool firstStays = fs::exists(first);
        fs::remove(first);
        osdep_removeTempFiles();
        return firstStays && !fs::exists(second) ? 0 : 2;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(TemporaryObjects, OutliveAForkedChild)
{
    const Outcome run = in_process([] {
        const std::string name = taken(osdep_tempFile());
        const std::string dir = taken(osdep_tempDir());
        const pid_t child = fork();
        if (child == 0)
            std::exit(0);
        waitpid(child, nullptr, 0);
        return fs::exists(name) && fs::exists(dir) ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(TemporaryObjects, OfAForkedChildAreRemovedAtItsOwnEnd)
{
    const Outcome run = in_process([] {
        const std::string parents = taken(osdep_tempFile());
        const Outcome child = in_process([] {
            say(taken(osdep_tempFile()));
            return 0;
        });
        const bool childsIsGone = child.out.substr(0, 7) == "/tmp/qz" && !fs::exists(child.out);
        return childsIsGone && fs::exists(parents) ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(TemporaryFile, IsNullForASuffixThatMakesNoName)
{
    EXPECT_EQ(osdep_tempFileSuffix("/a/b"), nullptr);
    EXPECT_EQ(osdep_tempFileSuffix(std::string(300, 's').c_str()), nullptr);
    EXPECT_EQ(osdep_tempFileSuffix(std::string(10000000, 's').c_str()), nullptr);
}

TEST(TemporaryFile, IsNullWhenNoDescriptorIsLeft)
{
    const std::string suffix = own_suffix();
    const Outcome run = in_process([&]() -> int {
        limit(RLIMIT_NOFILE, 3);
        end_at_once(osdep_tempFileSuffix(suffix.c_str()) == nullptr);
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(files_in_tmp_with(suffix), std::vector<std::string>{});
}

TEST(TemporaryObjects, AreNullWhereTmpTakesNothing)
{
    const auto nothing_created = [](const char *options, unsigned long flags) {
        return in_process([&] {
                   if (!mount_tmp(options, flags))
                       return NOT_ALLOWED;
                   if (options != nullptr) // the root directory takes the only place
                       for (int i = 0; i < 10; ++i)
                           close(open(("/tmp/fill" + std::to_string(i)).c_str(), O_CREAT | O_WRONLY,
                                      0600));
                   return osdep_tempFile() == nullptr && osdep_tempDir() == nullptr &&
                                  osdep_tempFileSuffix(".cmd") == nullptr &&
                                  capture_shell("echo x") == nullptr
                              ? 0
                              : 1;
               })
            .status;
    };
    const int readOnly = nothing_created(nullptr, MS_RDONLY);
    if (readOnly == NOT_ALLOWED)
        GTEST_SKIP() << "mounting is not allowed here";
    EXPECT_EQ(readOnly, 0);
    EXPECT_EQ(nothing_created("nr_inodes=4", 0), 0);
}

TEST(TemporaryObjects, AreNullWhereThereIsNoTmp)
{
    const Outcome run = in_process([] {
        if (!mount_tmp(nullptr, 0) || mkdir("/tmp/root", 0755) != 0 || chroot("/tmp/root") != 0 ||
            chdir("/") != 0)
            return NOT_ALLOWED;
        end_at_once(osdep_tempFile() == nullptr && osdep_tempDir() == nullptr);
    });
    if (run.status == NOT_ALLOWED)
        GTEST_SKIP() << "mounting is not allowed here";
    EXPECT_EQ(run.status, 0);
}

// ---- Running ----------------------------------------------------------------------------------

TEST(Spawn, ReturnsTheExitStatus)
{
    EXPECT_EQ(spawn_shell("exit 0"), 0);
    EXPECT_EQ(spawn_shell("exit 3"), 3);
    EXPECT_EQ(spawn_shell("exit 255"), 255);
}

TEST(Spawn, PassesArgumentsAndEnvironmentOnUnchanged)
{
    const Outcome run = in_process([] {
        setenv("OSDEP_TEST_VARIABLE", "v w", 1);
        const char *argv[] = {"named", "-c",   "echo \"$0|$1|$2|$OSDEP_TEST_VARIABLE\"", "zero", "",
                              "a b",   nullptr};
        return osdep_spawn("/bin/sh", const_cast<char *const *>(argv));
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "zero||a b|v w\n");
    EXPECT_EQ(run.err, "");
}

TEST(Spawn, ReportsAChildKilledByASignal)
{
    const Outcome run = in_process([] {
        limit(RLIMIT_CORE, 0);
        return spawn_shell("kill -9 $$") == -1 && spawn_shell("kill -11 $$") == -1 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "/bin/sh: signal 9 \n/bin/sh: signal 11 \n");
}

// Whether a child that aborts leaves a core file here.
bool cores_are_written()
{
    const pid_t child = fork();
    if (child == 0) {
        execl("/bin/sh", "/bin/sh", "-c", "kill -6 $$", nullptr);
        _exit(1);
    }
    int status = 0;
    return waitpid(child, &status, 0) == child && WIFSIGNALED(status) && WCOREDUMP(status);
}

TEST(Spawn, TellsOfACoreThatWasWritten)
{
    const Outcome run = in_process([] {
        const std::string scratch = taken(osdep_tempDir());
        fs::current_path(scratch);
        limit(RLIMIT_CORE, RLIM_INFINITY);
        if (!cores_are_written())
            return 77;
        const bool died = spawn_shell("kill -6 $$") == -1;
        fs::current_path("/");
        return died ? 0 : 1;
    });
    if (run.status == 77)
        GTEST_SKIP() << "no cores are written here";
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "/bin/sh: signal 6 - Core dumped\n");
}

TEST(Spawn, ReturnsMinusOneInsideTheChildThatCannotBecomeItsProgram)
{
    const Outcome run = in_process([] {
        const std::string name = taken(osdep_tempFile());
        const char *argv[] = {"/nonexistent/program", nullptr};
        const pid_t parent = getpid();
        const int result = osdep_spawn(argv[0], const_cast<char *const *>(argv));
        if (getpid() != parent)
            return result == -1 ? 77 : 1; // ends along the caller's failure path, exit handlers too
        return result == 77 && fs::exists(name) ? 0 : 2;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
}

TEST(Spawn, ReturnsMinusOneWhenTheProcessCannotBeForked)
{
    const Outcome run = in_process([] {
        if (geteuid() == 0 && setresuid(65534, 65534, 65534) != 0)
            return NOT_ALLOWED;
        limit(RLIMIT_NPROC, 0);
        end_at_once(spawn_shell("exit 0") == -1);
    });
    if (run.status == NOT_ALLOWED)
        GTEST_SKIP() << "the user cannot be changed here";
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out + run.err, "");
}

TEST(Spawn, TracesWhyTheProgramCouldNotBeExecuted)
{
    EXPECT_EQ(traced([] { spawn_alone("/nonexistent/program"); }),
              "could not execute \"/nonexistent/program\": No such file or directory\n");
    EXPECT_EQ(traced([] { spawn_alone("/etc/passwd"); }),
              "could not execute \"/etc/passwd\": Permission denied\n");
}

TEST(Spawn, TracesWhyTheProcessCouldNotBeForked)
{
    const Outcome run = in_process([] {
        if (geteuid() == 0 && setresuid(65534, 65534, 65534) != 0)
            return NOT_ALLOWED;
        limit(RLIMIT_NPROC, 0);
        say(traced([] { spawn_shell("exit 0"); }));
        end_at_once(true);
    });
    if (run.status == NOT_ALLOWED)
        GTEST_SKIP() << "the user cannot be changed here";
    EXPECT_EQ(run.out, "could not execute \"/bin/sh\": Resource temporarily unavailable\n");
}

TEST(Spawn, TracesTheSignalThatEndedTheProgram)
{
    const Outcome run = in_process([] {
        say(traced([] { spawn_shell("kill -9 $$"); }));
        return 0;
    });
    EXPECT_EQ(run.out, "\"/bin/sh\" was ended by signal 9\n");
}

TEST(Spawn, KeepsWaitingWhenASignalInterruptsIt)
{
    const Outcome run = in_process([] {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        sigaction(SIGALRM, &action, nullptr);
        itimerval often = {{0, 20000}, {0, 20000}};
        setitimer(ITIMER_REAL, &often, nullptr);
        return spawn_shell("sleep 0.3; exit 5");
    });
    EXPECT_EQ(run.status, 5);
}

TEST(Spawn, LearnsTheStatusAlthoughChildrensEndsWereIgnored)
{
    const Outcome run = in_process([] {
        std::signal(SIGCHLD, SIG_IGN);
        return spawn_shell("exit 6");
    });
    EXPECT_EQ(run.status, 6);
}

TEST(Spawn, GivesTheChildOnlyTheStandardDescriptors)
{
    const Outcome run = in_process([] {
        close_range(3, ~0U, 0); // inherited by the test program
        osdep_installCrashHandlers();
        FILE *stream = capture_shell("ls /proc/self/fd");
        say(read_all(stream));
        const int status = spawn_shell("ls /proc/self/fd"); // ls opens the directory as number 3
        osdep_pclose(stream);
        return status;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "0\n1\n2\n3\n0\n1\n2\n3\n");
}

// ---- Capturing --------------------------------------------------------------------------------

TEST(Capture, HoldsBothOutputsAndTheStatus)
{
    FILE *stream = capture_shell("echo one; echo two >&2; echo three; exit 3");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(read_all(stream), "one\ntwo\nthree\n");
    EXPECT_EQ(osdep_pclose(stream), 3);
    EXPECT_EQ(osdep_pclose(stream), -1);
}

TEST(Capture, TakesTheCommandFromAVector)
{
    Vector *command = vec_new("test", 1);
    for (const char *argument : {"/bin/echo", "a b", ""})
        vec_add(command, argument);
    vec_add(command, nullptr);
    FILE *stream = osdep_popen_vecCommand(command);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(read_all(stream), "a b \n");
    EXPECT_EQ(osdep_pclose(stream), 0);
}

TEST(Capture, KeepsSeveralStreamsApart)
{
    FILE *streams[12];
    for (int i = 0; i < 12; ++i)
        streams[i] =
            capture_shell(("echo " + std::to_string(i) + "; exit " + std::to_string(i)).c_str());
    for (int i = 11; i >= 0; --i) {
        EXPECT_EQ(read_all(streams[i]), std::to_string(i) + "\n");
        EXPECT_EQ(osdep_pclose(streams[i]), i);
    }
}

TEST(Capture, MayBeOfAnySize)
{
    FILE *stream = capture_shell("head -c 20000000 /dev/zero");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(std::fseek(stream, 0, SEEK_END), 0);
    EXPECT_EQ(std::ftell(stream), 20000000);
    EXPECT_EQ(osdep_pclose(stream), 0);
}

TEST(Capture, LeavesTheCallersOutputInPlaceAndInOrder)
{
    const Outcome run = in_process([] {
        std::printf("before ");
        FILE *stream = capture_shell("echo captured");
        std::printf("after");
        std::fprintf(stderr, "error");
        return osdep_pclose(stream);
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "before after");
    EXPECT_EQ(run.err, "error");
}

TEST(Capture, LeavesNoDescriptorBehind)
{
    const Outcome run = in_process([] {
        osdep_pclose(capture_shell("exit 0"));
        const int before = open_descriptors();
        for (int i = 0; i < 5; ++i)
            osdep_pclose(capture_shell("echo x"));
        return open_descriptors() - before;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(Capture, FilesGoBeforeTheProcessEndsUnlessTheyAreKept)
{
    for (int kept : {0, 1}) {
        const Outcome run = in_process([kept] {
            osdep_keepTempFiles(kept);
            FILE *stream = capture_shell("readlink /proc/self/fd/1");
            const std::string name = lines(read_all(stream)).at(0);
            osdep_pclose(stream);
            say(name.substr(0, 7) + (fs::exists(name) ? " stays" : " goes"));
            fs::remove(name);
            return 0;
        });
        EXPECT_EQ(run.out, kept != 0 ? "/tmp/qz stays" : "/tmp/qz goes");
        EXPECT_EQ(run.status, 0);
    }
}

TEST(Capture, IsNullForAnEmptyOrMissingCommand)
{
    EXPECT_EQ(osdep_popen_vecCommand(vec_new("test", 1)), nullptr);
    EXPECT_EQ(osdep_popen_vecCommand(nullptr), nullptr);
    EXPECT_EQ(osdep_popen_command(nullptr, nullptr), nullptr);
    EXPECT_EQ(osdep_popen_command("/nonexistent/program", "a", nullptr), nullptr);
}

TEST(Capture, OfAFileThatIsNoProgramHasStatus255)
{
    FILE *stream = osdep_popen_command("/etc/passwd", nullptr);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(read_all(stream), "");
    EXPECT_EQ(osdep_pclose(stream), 255);
}

TEST(Capture, TracesWhyItFailed)
{
    const auto failing = [](const char *program) {
        return traced([program] { osdep_pclose(osdep_popen_command(program, nullptr)); });
    };
    EXPECT_EQ(failing("/nonexistent/program"),
              "could not find \"/nonexistent/program\": No such file or directory\n");
    EXPECT_EQ(failing("/etc/passwd"), "could not execute \"/etc/passwd\": Permission denied\n");
    const Outcome run = in_process([]() -> int {
        const int used = dup(0);
        close(used);
        const std::string text = traced([used] {
            limit(RLIMIT_NOFILE, static_cast<rlim_t>(used) + 2); // the trace and a duplicate
            capture_shell("exit 0");
        });
        say(text);
        end_at_once(true);
    });
    EXPECT_EQ(run.out, "could not capture the output of \"/bin/sh\": Too many open files\n");
}

TEST(Capture, OfAKilledCommandLeavesTheOutputRedirectedUntilItIsPutBack)
{
    const Outcome run = in_process([] {
        std::printf("before ");
        FILE *stream = capture_shell("echo lost; kill -9 $$");
        std::printf("captured");
        std::fflush(stdout);
        std::string captured = contents_of(1);
        osdep_restoreOutput();
        osdep_restoreOutput();
        std::printf("after: %s", captured.c_str());
        std::fprintf(stderr, "error");
        return stream == nullptr ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "before after: lost\n/bin/sh: signal 9 \ncaptured");
    EXPECT_EQ(run.err, "error");
}

TEST(Capture, OfTheOutputAloneLeavesTheErrorsWhereTheyAre)
{
    const Outcome run = in_process([] {
        std::printf("before ");
        FILE *stream = osdep_popen_output("/bin/sh", "-c", "echo a; echo b >&2; exit 3", nullptr);
        say("after");
        return read_all(stream) == "a\n" ? osdep_pclose(stream) : 1;
    });
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(run.out, "before after");
    EXPECT_EQ(run.err, "b\n");
}

TEST(Capture, OfTheOutputAloneOfAKilledCommandReportsTheSignalOnStandardError)
{
    const Outcome run = in_process([] {
        FILE *stream = osdep_popen_output("/bin/sh", "-c", "echo lost; kill -9 $$", nullptr);
        osdep_restoreOutput();
        say("after");
        return stream == nullptr ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "after");
    EXPECT_EQ(run.err, "/bin/sh: signal 9 \n");
}

TEST(Capture, OfTheOutputAloneOfNoProgramIsNull)
{
    EXPECT_EQ(osdep_popen_output(nullptr, nullptr), nullptr);
    EXPECT_EQ(osdep_popen_output("/nonexistent/program", "a", nullptr), nullptr);
}

TEST(Capture, AfterAFailedOneGoesBackToTheFirstOutput)
{
    const Outcome run = in_process([] {
        FILE *failed = capture_shell("kill -9 $$");
        FILE *stream = capture_shell("echo captured");
        say("out");
        return failed == nullptr && read_all(stream) == "captured\n" ? osdep_pclose(stream) : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "out");
}

TEST(Capture, IsNullWhenTheProcessCannotBeForked)
{
    const Outcome run = in_process([] {
        if (geteuid() == 0 && setresuid(65534, 65534, 65534) != 0)
            return NOT_ALLOWED;
        limit(RLIMIT_NPROC, 0);
        FILE *stream = capture_shell("exit 0");
        osdep_restoreOutput();
        say("out");
        osdep_removeTempFiles();
        end_at_once(stream == nullptr);
    });
    if (run.status == NOT_ALLOWED)
        GTEST_SKIP() << "the user cannot be changed here";
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "out");
}

TEST(Capture, IsNullHoweverFewDescriptorsAreLeft)
{
    const Outcome run = in_process([] {
        const rlim_t used = static_cast<rlim_t>(dup(0));
        close(static_cast<int>(used));
        int failures = 0;
        FILE *stream = nullptr;
        for (rlim_t more = 0; stream == nullptr && more < 10; ++more) {
            limit(RLIMIT_NOFILE, used + more);
            stream = capture_shell("exit 4");
            failures += stream == nullptr;
            osdep_restoreOutput();
            say("out ");
        }
        return failures == 3 ? osdep_pclose(stream) : 1; // two duplicates and the capture file
    });
    EXPECT_EQ(run.status, 4);
    EXPECT_EQ(run.out, "out out out out ");
}

TEST(Capture, IsNullWhenAnOutputIsClosed)
{
    for (int closed : {1, 2}) {
        const Outcome run = in_process([&] {
            const int kept = dup(3 - closed);
            close(closed);
            FILE *stream = capture_shell("exit 0");
            if (write(kept, "out", 3) != 3 || fcntl(closed, F_GETFD) >= 0)
                return 1;
            return stream == nullptr ? 0 : 2;
        });
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.out + run.err, "out");
    }
}

TEST(Capture, WorksWithStandardInputClosed)
{
    const Outcome run = in_process([] {
        close(0);
        FILE *stream = capture_shell("echo x");
        return read_all(stream) == "x\n" ? osdep_pclose(stream) : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(Capture, FileIsRemovedAtTheEndOfTheProcess)
{
    const Outcome run = in_process([] {
        FILE *stream = capture_shell("readlink /proc/self/fd/1");
        say(read_all(stream));
        return osdep_pclose(stream);
    });
    EXPECT_EQ(run.status, 0);
    ASSERT_TRUE(std::regex_match(run.out, std::regex("/tmp/qz.{7}\n"))) << run.out;
    EXPECT_FALSE(fs::exists(run.out.substr(0, run.out.size() - 1)));
}

TEST(Pclose, IsMinusOneForAStreamThatIsNoCapture)
{
    EXPECT_EQ(osdep_pclose(nullptr), -1);
    FILE *file = std::tmpfile();
    EXPECT_EQ(osdep_pclose(file), -1);
    EXPECT_EQ(std::fputc('x', file), 'x'); // still open
    std::fclose(file);
}

// ---- Crash handlers ---------------------------------------------------------------------------

namespace {
const char APOLOGY[] = "\n\nAn unexpected problem has been encountered and the program must quit; "
                       "contact Vantrix support with details\n\n";

Outcome struck_by(int number)
{
    return in_process([&] {
        osdep_installCrashHandlers();
        const std::string file = taken(osdep_tempFile());
        const std::string dir = taken(osdep_tempDir());
        std::ofstream(dir + "/file") << "x";
        say(file + "\n" + dir + "\n");
        std::printf("buffered");
        raise(number);
        return 123;
    });
}

void expect_gone(const Outcome &run, const char *rest)
{
    const auto names = lines(run.out);
    ASSERT_GE(names.size(), 2U);
    EXPECT_FALSE(fs::exists(names[0]));
    EXPECT_FALSE(fs::exists(names[1]));
    EXPECT_EQ(run.out, names[0] + "\n" + names[1] + "\n" + rest);
}
} // namespace

TEST(CrashHandler, ExitsWithTheNumberOfASignalThatAsksToStop)
{
    for (int number : {SIGHUP, SIGQUIT, SIGTSTP, SIGINT, SIGTERM}) {
        const Outcome run = struck_by(number);
        EXPECT_EQ(run.status, number);
        EXPECT_EQ(run.err, "");
        expect_gone(run, "buffered\n");
    }
}

TEST(CrashHandler, ApologisesForACrash)
{
    for (int number : {SIGABRT, SIGSEGV, SIGFPE}) {
        const Outcome run = struck_by(number);
        EXPECT_EQ(run.status, number);
        EXPECT_EQ(run.err, APOLOGY);
        expect_gone(run, "buffered\n");
    }
}

TEST(CrashHandler, KeepsWhatIsToBeKept)
{
    const Outcome run = in_process([] {
        osdep_installCrashHandlers();
        osdep_keepTempFiles(1);
        say(taken(osdep_tempFile()) + "\n");
        raise(SIGTERM);
        return 123;
    });
    EXPECT_EQ(run.status, SIGTERM);
    const auto names = lines(run.out);
    ASSERT_FALSE(names.empty());
    EXPECT_TRUE(fs::exists(names[0]));
    fs::remove(names[0]);
}

TEST(CrashHandler, CleansUpWhileAChildRuns)
{
    for (int number : {SIGHUP, SIGINT, SIGTERM}) {
        const Outcome run = in_process([&] {
            osdep_installCrashHandlers();
            say(taken(osdep_tempFileSuffix(".cmd")) + "\n");
            spawn_shell(("kill -" + std::to_string(number) + " $PPID; exec sleep 0.1").c_str());
            return 123;
        });
        EXPECT_EQ(run.status, number);
        const auto names = lines(run.out);
        ASSERT_FALSE(names.empty());
        EXPECT_FALSE(fs::exists(names[0]));
    }
}

TEST(CrashHandler, PutsTheOutputBackWhenACaptureIsCutShort)
{
    const Outcome run = in_process([] {
        osdep_installCrashHandlers();
        capture_shell("echo captured; kill -15 $PPID; exec sleep 0.1");
        return 123;
    });
    EXPECT_EQ(run.status, SIGTERM);
    EXPECT_EQ(run.out, "\n");
    EXPECT_EQ(run.err, "");
}

TEST(CrashHandler, LeavesTheParentsFilesToTheParent)
{
    const Outcome run = in_process([] {
        osdep_installCrashHandlers();
        const std::string name = taken(osdep_tempFile());
        const pid_t child = fork();
        if (child == 0) {
            raise(SIGTERM);
            _exit(1);
        }
        int status = 0;
        waitpid(child, &status, 0);
        return fs::exists(name) && WIFEXITED(status) ? WEXITSTATUS(status) : 1;
    });
    EXPECT_EQ(run.status, SIGTERM);
    EXPECT_EQ(run.out, "");
}

TEST(CrashHandler, IsBackInPlaceAfterAChildHasRun)
{
    for (bool captured : {false, true}) {
        const Outcome run = in_process([&] {
            osdep_installCrashHandlers();
            std::signal(SIGINT, SIG_IGN);
            if (captured)
                osdep_pclose(capture_shell("exit 0"));
            else
                spawn_shell("exit 0");
            raise(SIGINT);
            return 123;
        });
        EXPECT_EQ(run.status, SIGINT);
    }
}

TEST(CrashHandler, IsNotInstalledByRunningAChild)
{
    const Outcome run = in_process([] {
        spawn_shell("exit 0");
        raise(SIGTERM);
        return 123;
    });
    EXPECT_EQ(run.status, 1000 + SIGTERM);
}

TEST(CrashHandler, InstalledTwiceKeepsTheFirstDuplicates)
{
    const Outcome run = in_process([] {
        osdep_installCrashHandlers();
        const int before = open_descriptors();
        osdep_installCrashHandlers();
        return open_descriptors() - before;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(CrashHandler, StandsInForClosedStandardDescriptors)
{
    const Outcome run = in_process([] {
        for (int descriptor : {0, 1, 2})
            close(descriptor);
        osdep_installCrashHandlers();
        char byte = 0;
        const bool fails = read(0, &byte, 1) < 0 && write(1, "x", 1) < 0 && write(2, "x", 1) < 0;
        const int next = open("/dev/null", O_RDONLY);
        return fails && next > 2 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(CrashHandler, GivesStandardOutputNoBufferFromAHeapItMayHaveInterrupted)
{
    const Outcome run = in_process([] {
        stdout = fdopen(dup(1), "w"); // a stream that has not been written to
        osdep_installCrashHandlers();
        osdep_setSignalRoutine([] { end_at_once(__fbufsize(stdout) == 0); });
        return spawn_shell("kill -15 $PPID; exec sleep 60");
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "\n");
}

// exit() may be the interrupted function, with its lock held.
TEST(CrashHandler, RunsNoExitHandlers)
{
    const Outcome run = in_process([] {
        osdep_installCrashHandlers();
        std::atexit([] { say("an exit handler"); });
        raise(SIGTERM);
        return 123;
    });
    EXPECT_EQ(run.status, SIGTERM);
    EXPECT_EQ(run.out, "\n");
}

namespace {
// Makes a full pipe that nobody reads standard output.
void block_output()
{
    int ends[2];
    if (pipe(ends) != 0)
        std::abort();
    fcntl(ends[1], F_SETFL, O_NONBLOCK);
    const std::string block(4096, 'x');
    while (write(ends[1], block.data(), block.size()) > 0)
        continue;
    fcntl(ends[1], F_SETFL, 0);
    dup2(ends[1], 1);
}

double seconds_since(const timespec &start)
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec - start.tv_sec) +
           static_cast<double>(now.tv_nsec - start.tv_nsec) / 1e9;
}
} // namespace

TEST(CrashHandler, LeavesTheNewlineOutWhereNobodyReads)
{
    for (bool waiting : {false, true}) {
        timespec start;
        clock_gettime(CLOCK_MONOTONIC, &start);
        const Outcome run = in_process([&] {
            block_output();
            osdep_installCrashHandlers();
            std::printf("buffered");
            if (waiting)
                return spawn_shell("kill -15 $PPID; exec sleep 60");
            raise(SIGTERM);
            return 123;
        });
        EXPECT_EQ(run.status, SIGTERM);
        EXPECT_LT(seconds_since(start), 2);
    }
}

TEST(CrashHandler, EndsAWriteThatNobodyReads)
{
    const Outcome run = in_process([] {
        block_output();
        osdep_installCrashHandlers();
        const pid_t parent = getpid();
        if (fork() == 0) {
            usleep(50000);
            kill(parent, SIGTERM);
            _exit(0);
        }
        say("more");
        return 123;
    });
    EXPECT_EQ(run.status, SIGTERM);
}

TEST(CrashHandler, EndsARunWhoseLastStepNeverEnds)
{
    const Outcome run = in_process([] {
        osdep_installCrashHandlers();
        say(taken(osdep_tempFile()) + "\n");
        osdep_setSignalRoutine([] {
            say(taken(osdep_tempFile()) + "\n");
            for (;;)
                pause();
        });
        return spawn_shell("kill -15 $PPID; exec sleep 60");
    });
    EXPECT_EQ(run.status, SIGTERM);
    const auto names = lines(run.out);
    ASSERT_EQ(names.size(), 3U);
    EXPECT_FALSE(fs::exists(names[0]));
    EXPECT_FALSE(fs::exists(names[2]));
}

// ---- Signals and children ---------------------------------------------------------------------

namespace {
// A shell reacts to a signal between two commands.
const char WAIT_A_WHILE[] = "i=0; while [ $i -lt 500 ]; do sleep 0.01; i=$((i + 1)); done";

// Runs a shell that reports the signals it gets; at its first signal this process gets one.
Outcome child_told_of(int number, bool captured)
{
    return in_process([&] {
        osdep_installCrashHandlers();
        const std::string file = taken(osdep_tempFile());
        const std::string script = "for s in 1 2 3 15; do trap \"echo told $s >&3; echo x >" +
                                   file + "; exit 0\" $s; done; kill -" + std::to_string(number) +
                                   " $PPID; " + WAIT_A_WHILE;
        dup2(1, 3);
        if (captured)
            capture_shell(script.c_str());
        else
            spawn_shell(script.c_str());
        return 123;
    });
}
} // namespace

TEST(Signal, IsHandedOnToTheChildThatIsBeingWaitedFor)
{
    for (bool captured : {false, true})
        for (int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
            const Outcome run = child_told_of(number, captured);
            EXPECT_EQ(run.status, number);
            EXPECT_EQ(run.out, "told " + std::to_string(number) + "\n\n");
        }
}

TEST(Signal, ThatDoesNotAskForAnEndIsHandedOnAsOneThatDoes)
{
    for (int number : {SIGTSTP, SIGABRT, SIGSEGV, SIGFPE}) {
        const Outcome run = child_told_of(number, false);
        EXPECT_EQ(run.status, number);
        EXPECT_EQ(run.out, "told 15\n\n") << "signal " << number;
    }
}

TEST(Signal, RemovesWhatTheChildHasMadeOnItsWayOut)
{
    const std::string suffix = own_suffix();
    const Outcome run = in_process([&] {
        osdep_installCrashHandlers();
        const std::string file = taken(osdep_tempFileSuffix(suffix.c_str()));
        const std::string script =
            "trap 'sleep 0.2; echo x >" + file + "; exit 0' TERM; kill -15 $PPID; " + WAIT_A_WHILE;
        return spawn_shell(script.c_str());
    });
    EXPECT_EQ(run.status, SIGTERM);
    EXPECT_EQ(files_in_tmp_with(suffix), std::vector<std::string>{});
}

namespace {
// From outside its process group, stops a process and its children after a while. Kills them if the
// process still exists three seconds later.
void stop_group_later(pid_t group, unsigned microseconds)
{
    if (fork() != 0)
        return;
    setpgid(0, 0);
    usleep(microseconds);
    kill(-group, SIGTSTP);
    for (int i = 0; i < 300 && getppid() == group; ++i)
        usleep(10000);
    if (getppid() == group)
        kill(-group, SIGKILL);
    _exit(0);
}
} // namespace

// A child that stops before it is its program would also stop its parent.
TEST(Signal, ThatStopsTheGroupWhileChildrenStartEndsTheRun)
{
    for (unsigned round = 0; round < 300; ++round) {
        const Outcome run = in_process([&]() -> int {
            setpgid(0, 0);
            osdep_installCrashHandlers();
            stop_group_later(getpid(), 500 + round * 7);
            for (;;)
                spawn_shell("exit 0");
        });
        ASSERT_EQ(run.status, SIGTSTP) << "round " << round;
    }
}

TEST(Signal, WakesAStoppedChildToEndIt)
{
    const Outcome run = in_process([] {
        osdep_installCrashHandlers();
        return spawn_shell("trap 'echo told; exit 0' TERM; "
                           "(sleep 0.1; kill -15 $PPID) & kill -STOP $$; sleep 1");
    });
    EXPECT_EQ(run.status, SIGTERM);
    EXPECT_EQ(run.out, "told\n\n");
}

TEST(Signal, IsNotHeldUpByAChildThatIgnoresIt)
{
    timespec start;
    clock_gettime(CLOCK_MONOTONIC, &start);
    const Outcome run = in_process([] {
        osdep_installCrashHandlers();
        return spawn_shell("trap '' TERM; echo $$; kill -15 $PPID; exec sleep 60");
    });
    EXPECT_EQ(run.status, SIGTERM);
    EXPECT_GE(seconds_since(start), 1);
    EXPECT_LT(seconds_since(start), 4);
    const pid_t child = std::atoi(run.out.c_str());
    ASSERT_GT(child, 0);
    EXPECT_EQ(kill(child, SIGKILL), 0); // it still exists
}

TEST(CrashHandler, IsJoinedByWritesThatFailInsteadOfEndingTheProgram)
{
    const Outcome run = in_process([] {
        osdep_installCrashHandlers();
        const std::string name = taken(osdep_tempFile());
        int ends[2];
        if (pipe(ends) != 0)
            return 1;
        close(ends[0]);
        if (write(ends[1], "x", 1) >= 0 || errno != EPIPE)
            return 2;
        limit(RLIMIT_FSIZE, 0);
        std::FILE *file = std::fopen(name.c_str(), "w");
        std::fputc('x', file);
        return std::fclose(file) == 0 ? 3 : 0;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(CrashHandler, LeavesChildrenTheSignalsOfTheirWrites)
{
    for (int number : {SIGPIPE, SIGXFSZ}) {
        const Outcome run = in_process([&] {
            limit(RLIMIT_CORE, 0);
            osdep_installCrashHandlers();
            return spawn_shell(("kill -" + std::to_string(number) + " $$; exit 3").c_str());
        });
        EXPECT_EQ(run.status, 255);
        EXPECT_EQ(run.err, "/bin/sh: signal " + std::to_string(number) + " \n");
    }
}

TEST(CrashHandler, LeavesAnIgnoredSignalIgnoredInChildren)
{
    const Outcome run = in_process([] {
        std::signal(SIGPIPE, SIG_IGN);
        osdep_installCrashHandlers();
        return spawn_shell("kill -13 $$; exit 3");
    });
    EXPECT_EQ(run.status, 3);
}

// Two signals that arrive together: the second must not enter the removal again.
TEST(CrashHandler, HoldsTheOtherSignalsBackWhileItHandlesOne)
{
    for (int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGTSTP, SIGABRT}) {
        static int second;
        second = number;
        const Outcome run = in_process([] {
            osdep_installCrashHandlers();
            osdep_setSignalRoutine([] {
                raise(second);
                say("to the end\n");
            });
            return spawn_shell("kill -15 $PPID; exec sleep 0.1");
        });
        EXPECT_EQ(run.status, SIGTERM) << number;
        EXPECT_EQ(run.out, "\nto the end\n") << number;
        EXPECT_EQ(run.err, "") << number;
    }
}

// A signal that arrives as soon as there is a child, or 0: before its parent, which holds signals
// back meanwhile, lets them in again. The linker puts this in the place of the system's function.
static int s_raisedAtStart;

extern "C" {
int __real_sigprocmask(int how, const sigset_t *set, sigset_t *old);
int __wrap_sigprocmask(int how, const sigset_t *set, sigset_t *old);
}

int __wrap_sigprocmask(int how, const sigset_t *set, sigset_t *old)
{
    siginfo_t info;
    const int any = WEXITED | WNOHANG | WNOWAIT;
    if (how == SIG_SETMASK && s_raisedAtStart != 0 && waitid(P_ALL, 0, &info, any) == 0)
        raise(s_raisedAtStart);
    return __real_sigprocmask(how, set, old);
}

TEST(CrashHandler, KnowsOfAChildThatHasJustBeenStarted)
{
    for (bool captured : {false, true}) {
        const Outcome run = in_process([&] {
            osdep_installCrashHandlers();
            osdep_setSignalRoutine([] { say("while a child runs\n"); });
            s_raisedAtStart = SIGTERM;
            if (captured)
                capture_shell("exec sleep 0.1");
            else
                spawn_shell("exec sleep 0.1");
            return 123;
        });
        EXPECT_EQ(run.status, SIGTERM);
        EXPECT_EQ(run.out, "\nwhile a child runs\n");
    }
}

#ifndef WITH_ADDRESS_SANITIZER // whose allocator a signal must not interrupt
TEST(CrashHandler, LeavesNothingWhicheverMomentItComes)
{
    const std::string suffix = own_suffix();
    for (int round = 0; round < 200; ++round) {
        const Outcome run = in_process([&] {
            osdep_installCrashHandlers();
            sigevent event = {};
            event.sigev_notify = SIGEV_SIGNAL;
            event.sigev_signo = SIGTERM;
            timer_t timer;
            timer_create(CLOCK_MONOTONIC, &event, &timer);
            const itimerspec once = {{0, 0}, {0, 1000 * (200 + round * 37)}};
            timer_settime(timer, 0, &once, nullptr);
            for (;;) {
                for (int i = 0; i < 5; ++i)
                    std::free(osdep_tempFileSuffix(suffix.c_str()));
                osdep_removeTempFiles();
            }
            return 123;
        });
        ASSERT_EQ(run.status, SIGTERM) << "round " << round;
    }
    EXPECT_EQ(files_in_tmp_with(suffix), std::vector<std::string>{});
}
#endif

// ---- Standard input ---------------------------------------------------------------------------

namespace {
class InputTest : public testing::Test {
  protected:
    void SetUp() override
    {
        char name[] = "/tmp/osdep_input_testXXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        root_ = name;
        write_file("first", "first line\nsecond line\n");
        write_file("other", "other line\n");
    }
    void TearDown() override { fs::remove_all(root_); }
    std::string path(const char *name) const { return root_ + "/" + name; }
    void write_file(const char *name, const char *text) const { std::ofstream(path(name)) << text; }
    std::string root_;
};

std::string input_line()
{
    char line[100] = "";
    return std::fgets(line, sizeof line, stdin) == nullptr ? "(end)" : line;
}
} // namespace

TEST_F(InputTest, RedirectedReadsTheNewFileAndForgetsWhatWasReadAhead)
{
    const Outcome run = in_process([&] {
        if (osdep_redirectInput(path("first").c_str()) < 0 || input_line() != "first line\n")
            return 1;
        if (osdep_redirectInput(path("other").c_str()) < 0)
            return 2;
        return input_line() == "other line\n" && input_line() == "(end)" ? 0 : 3;
    });
    EXPECT_EQ(run.status, 0);
}

TEST_F(InputTest, RedirectedAfterTheEndReadsAgain)
{
    const Outcome run = in_process([&] {
        osdep_redirectInput("/dev/null");
        if (input_line() != "(end)" || osdep_redirectInput(path("other").c_str()) < 0)
            return 1;
        return input_line() == "other line\n" ? 0 : 2;
    });
    EXPECT_EQ(run.status, 0);
}

TEST_F(InputTest, StaysAsItWasWhenThePathIsNoReadableFile)
{
    const Outcome run = in_process([&] {
        osdep_redirectInput(path("first").c_str());
        input_line();
        const int before = open_descriptors();
        for (const std::string &name : {root_, std::string("/nonexistent"), std::string()})
            if (osdep_redirectInput(name.c_str()) != -1)
                return 1;
        if (osdep_redirectInput(nullptr) != -1 || osdep_restoreInput(-1) != 0)
            return 2;
        return input_line() == "second line\n" && open_descriptors() == before ? 0 : 3;
    });
    EXPECT_EQ(run.status, 0);
}

TEST_F(InputTest, StaysAsItWasWhenNoDescriptorIsLeftToKeepIt)
{
    const Outcome run = in_process([&] {
        osdep_redirectInput(path("first").c_str());
        input_line();
        const int next = open("/dev/null", O_RDONLY);
        close(next);
        limit(RLIMIT_NOFILE, static_cast<rlim_t>(next) + 1);
        if (osdep_redirectInput(path("other").c_str()) != -1 || fcntl(next, F_GETFD) != -1)
            return 1;
        return input_line() == "second line\n" ? 0 : 2;
    });
    EXPECT_EQ(run.status, 0);
}

TEST_F(InputTest, RestoredGoesOnWhereTheOldOneStood)
{
    const Outcome run = in_process([&] {
        const int before = open_descriptors();
        osdep_redirectInput(path("first").c_str());
        input_line(); // which has read ahead
        const int saved = osdep_redirectInput(path("other").c_str());
        const int inner = osdep_redirectInput("/dev/null");
        if (input_line() != "(end)" || osdep_restoreInput(inner) != 0)
            return 1;
        if (input_line() != "other line\n" || osdep_restoreInput(saved) != 0)
            return 2;
        if (fcntl(STDIN_FILENO, F_GETFD) != 0 || open_descriptors() != before + 1)
            return 3;
        return spawn_shell("cat");
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "second line\n");
}

TEST_F(InputTest, RestoredAfterItWasClosedIsClosedAgain)
{
    const Outcome run = in_process([&] {
        close(STDIN_FILENO);
        const int before = open_descriptors();
        const int saved = osdep_redirectInput(path("other").c_str());
        if (saved < 0 || input_line() != "other line\n" || osdep_restoreInput(saved) != 0)
            return 1;
        return fcntl(STDIN_FILENO, F_GETFD) < 0 && open_descriptors() == before ? 0 : 2;
    });
    EXPECT_EQ(run.status, 0);
}

TEST_F(InputTest, RedirectedToItselfIsReadFromTheBeginning)
{
    const Outcome run = in_process([&] {
        osdep_redirectInput(path("first").c_str());
        input_line();
        const int saved = osdep_redirectInput("/dev/stdin");
        if (saved < 0 || input_line() != "first line\n" || osdep_restoreInput(saved) != 0)
            return 1;
        return input_line() == "second line\n" ? 0 : 2;
    });
    EXPECT_EQ(run.status, 0);
}

TEST_F(InputTest, RedirectedToAPipeOpensItOnce)
{
    const std::string pipe = path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const Outcome run = in_process([&] {
        const pid_t writer = fork();
        if (writer == 0) {
            const int end = open(pipe.c_str(), O_WRONLY);
            _exit(write(end, "piped\n", 6) == 6 ? 0 : 1);
        }
        alarm(20);
        const int result = osdep_redirectInput(pipe.c_str());
        const bool read = input_line() == "piped\n" && input_line() == "(end)";
        waitpid(writer, nullptr, 0);
        return result >= 0 && read ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST_F(InputTest, FileIsNoTerminal)
{
    const Outcome run = in_process([&] {
        osdep_redirectInput(path("first").c_str());
        return osdep_inputIsTerminal();
    });
    EXPECT_EQ(run.status, 0);
}

TEST(Input, TerminalIsSeen)
{
    const Outcome run = in_process([] {
        const int master = posix_openpt(O_RDWR | O_NOCTTY);
        if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0)
            return NOT_ALLOWED;
        const int terminal = open(ptsname(master), O_RDWR | O_NOCTTY);
        if (terminal < 0)
            return NOT_ALLOWED;
        dup2(terminal, 0);
        return osdep_inputIsTerminal();
    });
    if (run.status == NOT_ALLOWED)
        GTEST_SKIP() << "no terminal can be made here";
    EXPECT_EQ(run.status, 1);
}
