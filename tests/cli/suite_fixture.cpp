#include "tests/cli/suite_fixture.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/cli/surroundings.h"
#include "tests/cli/trace_check.h"

namespace fs = std::filesystem;

std::string readFile(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    std::stringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

bool fileExists(const std::string &path)
{
    return access(path.c_str(), F_OK) == 0;
}

void copyProgram(const std::string &from, const std::string &to)
{
    fs::create_directories(fs::path(to).parent_path());
    fs::copy_file(from, to, fs::copy_options::overwrite_existing);
}

std::string numbered(const std::string &front, int number)
{
    return front + std::to_string(number);
}

std::string replaceAll(std::string text, const std::string &what, const std::string &by)
{
    for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size())
        text.replace(at, what.size(), by);
    return text;
}

static std::vector<std::string> splitAtZero(const std::string &bytes)
{
    std::vector<std::string> texts;
    for (size_t at = 0; at < bytes.size(); at += texts.back().size() + 1)
        texts.push_back(bytes.substr(at, bytes.find('\0', at) - at));
    return texts;
}

bool SuiteTest::traced()
{
    return getenv("QZM_CLI_TRACED") != nullptr;
}

// A directory outside /tmp, so that a run with a /tmp of its own still sees it.
static std::string scratchTop()
{
    std::string top = QZM_SCRATCH_DIR;
    if (top.rfind("/tmp/", 0) == 0)
        top = "/var/tmp";
    fs::create_directories(top);
    return top;
}

SuiteTest::SuiteTest()
{
    std::string name = scratchTop() + "/suite-XXXXXX";
    if (mkdtemp(name.data()) == nullptr)
        abort();
    scratch = name;
    suite = scratch + "/v2.32";
    work = scratch + "/work";
    for (const char *directory : {"/v2.32/orb/dat", "/work", "/record", "/tmp", "/other"})
        fs::create_directories(scratch + directory);
    for (const char *directory : {"", "/work", "/record", "/tmp"})
        fs::permissions(scratch + directory, fs::perms::all);
    copyProgram(traced() ? QZM_CC_TRACED : QZM_CC, suite + "/bin/qzm-cc");
    copyProgram(QZM_RECORDING_CHILD, suite + "/elm/bin/elm-gcc");
    copyProgram(QZM_RECORDING_CHILD, suite + "/orb/bin/qzm");
    fs::copy_file(QZM_SUPPRESSIONS, scratch + "/never_freed.supp");
}

SuiteTest::~SuiteTest()
{
    std::error_code ignored;
    fs::remove_all(scratch, ignored);
}

void SuiteTest::installSampleElmGcc()
{
    copyProgram(QZM_SAMPLE_ELM_GCC, suite + "/elm/bin/elm-gcc");
    for (const char *headers : {"/include", "/include/c"})
        fs::copy(std::string(QZM_SAMPLE_DIR) + headers, suite + "/elm/include");
}

void SuiteTest::installSampleQzm()
{
    copyProgram(QZM_SAMPLE_QZM, suite + "/orb/bin/qzm");
    const fs::path headers = QZM_SAMPLE_DIR "/include";
    for (const char *header : {"qz.h", "qz.inc"}) {
        fs::create_directories(suite + "/orb/include");
        fs::copy(headers / header, suite + "/orb/include");
    }
    for (const char *library : {"c90", "c99"})
        fs::copy(headers / "c", suite + "/orb/include/" + library, fs::copy_options::recursive);
}

void SuiteTest::installSampleSuite()
{
    fs::remove_all(suite);
    for (const char *component : {"", " --component sample"}) {
        const std::string install = QZM_INSTALL " --prefix " + suite + component + " > /dev/null";
        ASSERT_EQ(system(install.c_str()), 0) << install;
    }
    if (traced())
        copyProgram(QZM_CC_TRACED, suite + "/bin/qzm-cc");
}

void SuiteTest::write(const std::string &path, const std::string &bytes) const
{
    fs::path full = path[0] == '/' ? fs::path(path) : fs::path(work) / path;
    fs::create_directories(full.parent_path());
    std::ofstream file(full, std::ios::binary);
    file << bytes;
    file.close();
    ASSERT_TRUE(file.good()) << full;
}

void SuiteTest::writeProgram(const std::string &path, const std::string &script) const
{
    write(path, script);
    fs::permissions(fs::path(work) / path, fs::perms{0755}); // an absolute path is not changed
}

bool SuiteTest::hasMounts()
{
    static const bool answer = surroundings_canMount();
    return answer;
}

bool SuiteTest::canBeNobody()
{
    static const bool answer = surroundings_canBeNobody(scratchTop());
    return answer;
}

// The environment of a run. Leaks cannot be looked for where the search itself cannot run.
static void setEnvironment(const std::string &scratch, const RunOptions &options)
{
    for (const char *name : {"NVC_ERR_FORMAT", "NVC_WARN_FORMAT", "NVC_MSG_FORMAT"})
        unsetenv(name);
    setenv("LC_ALL", "C", 1);
    std::string suppressions = "print_suppressions=0:suppressions=" + scratch + "/never_freed.supp";
    setenv("LSAN_OPTIONS", suppressions.c_str(), 1);
    if (options.fileLimit != 0 || options.noProcesses || options.tmp == Tmp::Missing)
        setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
    setenv("QZM_RECORD", (scratch + "/record/child").c_str(), 1);
    setenv("QZM_TRACE", (scratch + "/record/trace").c_str(), 1);
    for (const auto &[name, value] : options.env)
        setenv(name.c_str(), value.c_str(), 1);
}

// The steps by which a new process becomes the program.
[[noreturn]] static void becomeProgram(const std::string &scratch, std::vector<std::string> command,
                                       const RunOptions &options, bool mounts)
{
    setpgid(0, 0);
    surroundings_redirect(0, "/dev/null", O_RDONLY);
    surroundings_redirect(1, scratch + "/stdout", O_WRONLY | O_CREAT | O_TRUNC);
    surroundings_redirect(2, scratch + "/stderr", O_WRONLY | O_CREAT | O_TRUNC);
    if (mounts)
        surroundings_setTmp(options.tmp, scratch);
    if (options.asNobody)
        surroundings_becomeNobody();
    setEnvironment(scratch, options);
    if (chdir((scratch + "/work").c_str()) != 0)
        surroundings_fail("work");

    std::vector<char *> argv;
    for (std::string &word : command)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    closefrom(3); // closes descriptors that the caller of the tests has left open
    int files = options.fileLimit;
    if (files != 0 && SuiteTest::traced())
        files++; // for the trace
    surroundings_limit(files, options.noProcesses);
    execvp(argv[0], argv.data());
    surroundings_fail(argv[0]);
}

static double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

static double secondsOf(const struct timeval &time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

// Waits for the process and, once, for the recording child to be ready.
static void waitForEnd(pid_t pid, const std::string &ready, const RunOptions &options,
                       RunResult &result)
{
    auto start = std::chrono::steady_clock::now();
    bool told = !options.whileRunning;
    int status = 0;
    struct rusage usage = {};
    while (wait4(pid, &status, WNOHANG, &usage) == 0) {
        if (!told && fileExists(ready)) {
            told = true;
            options.whileRunning(pid);
        }
        if (!result.timedOut && secondsSince(start) > options.timeLimit) {
            result.timedOut = true;
            kill(-pid, SIGKILL);
        }
        usleep(500);
    }
    result.seconds = secondsSince(start);
    result.processorSeconds = secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime);
    result.peakKilobytes = usage.ru_maxrss;
    kill(-pid, SIGKILL); // a child that outlived the program
    if (WIFEXITED(status))
        result.status = WEXITSTATUS(status);
    else
        result.signal = WTERMSIG(status);
    EXPECT_FALSE(result.timedOut) << "still running after " << options.timeLimit << " seconds";
    EXPECT_TRUE(told) << "the child never got ready";
}

RunResult SuiteTest::runProgram(const std::vector<std::string> &command, const RunOptions &options)
{
    bool mounts = hasMounts();
    for (const auto &entry : fs::directory_iterator(scratch + "/record"))
        fs::remove(entry.path());

    pid_t pid = fork();
    if (pid == 0)
        becomeProgram(scratch, command, options, mounts);
    RunResult result;
    if (pid < 0) {
        ADD_FAILURE() << "fork: " << strerror(errno);
        return result;
    }
    setpgid(pid, pid); // in both processes: either may come first
    waitForEnd(pid, scratch + "/record/child.ready", options, result);
    result.out = withoutDebugOption(readFile(scratch + "/stdout"), " ");
    result.err = readFile(scratch + "/stderr");
    for (const auto &entry : fs::directory_iterator(scratch + "/tmp"))
        result.leftBehind.push_back(entry.path().filename());
    return result;
}

RunResult SuiteTest::run(const std::vector<std::string> &args, const RunOptions &options)
{
    std::vector<std::string> command = {suite + "/bin/qzm-cc"};
    command.insert(command.end(), args.begin(), args.end());
    RunResult result = runProgram(command, options);
    EXPECT_EQ(result.leftBehind, std::vector<std::string>{});
    EXPECT_FALSE(fileExists(child().commandFileName)) << child().commandFileName;
    checkTrace(options);
    return result;
}

// The traced program passes its debug option on to the legacy driver. It is removed here, since the
// expectations are the same for both runs.
std::string SuiteTest::withoutDebugOption(const std::string &text, const char *between) const
{
    const std::string option = "--qzdebug=default,on,out:+" + scratch + "/record/trace,num:1";
    return traced() ? replaceAll(text, option + between, "") : text;
}

ChildRecord SuiteTest::child() const
{
    ChildRecord record;
    std::string prefix = scratch + "/record/child";
    record.ran = fileExists(prefix + ".ready");
    if (!record.ran)
        return record;
    record.argv = splitAtZero(readFile(prefix + ".argv"));
    if (record.argv.size() > 1)
        record.commandFileName = record.argv[1].substr(1);
    record.commandFile = withoutDebugOption(readFile(prefix + ".cmd"), "\n");
    record.directory = readFile(prefix + ".cwd");
    for (const std::string &entry : splitAtZero(readFile(prefix + ".env")))
        record.env[entry.substr(0, entry.find('='))] = entry.substr(entry.find('=') + 1);
    return record;
}

void SuiteTest::checkTrace(const RunOptions &options) const
{
    if (!traced())
        return;
    std::string trace = readFile(scratch + "/record/trace");
    EXPECT_NE(trace.find("ENTER "), std::string::npos) << "there is no trace";
    EXPECT_EQ(trace_faults(trace, options.endsEarly), "");
}
