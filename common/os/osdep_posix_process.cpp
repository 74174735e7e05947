#define MODULE "common/osdep"
#include "common/os/osdep_posix.h"

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "common/base/exitpath.h"
#include "common/base/hash.h"
#include "common/base/vector.h"
#include "common/os/osdep_process.h"
#include "common/os/osdep_temp.h"
#include "common/trace/qzdebug.h"

// The status of a captured child whose program could not be executed.
static constexpr int EXEC_FAILED = 255;
static constexpr uint32_t STATUS_BUCKETS = 5;

namespace {
// Duplicates of standard output and standard error while a capture has 1 and 2 redirected; -1:
// none.
struct SavedOutput {
    int out;
    int err;
};
} // namespace

static SavedOutput s_captureOutput = {-1, -1};
static HashTable *s_pipeStatus; // FILE * -> exit status of its command

// ---- Running ----------------------------------------------------------------------------------

// In a new child: executes the program, or returns. Until then the handler of this process stays in
// place, so that a terminal stop ends the child: a stopped child would block the parent of a vfork
// as well.
static void becomeProgram(const char *program, char *const *argv, const sigset_t *mask)
{
    for (int number = 1; number < NSIG; ++number)
        if (sigismember(osdep_signalsForChildren(), number) == 1)
            std::signal(number, SIG_DFL);
    sigprocmask(SIG_SETMASK, mask, nullptr);
    execve(program, argv, environ);
}

// Starts a child without copying this process, which takes most of a fork's time: until it executes
// the program, it runs in the memory of this process, which waits. Returns its process number, or
// -1 with errno set, also when the program could not be executed.
[[gnu::noinline]] static pid_t vforkChild(const char *program, char *const *argv,
                                          const sigset_t *mask)
{
    static volatile int s_error; // of the child
    s_error = 0;
    const pid_t child = vfork();
    if (child == 0) {
        becomeProgram(program, argv, mask);
        s_error = errno;
        _exit(EXEC_FAILED);
    }
    if (child < 0 || s_error == 0)
        return child;
    waitpid(child, nullptr, 0);
    errno = s_error;
    return -1;
}

// The same with a copy of this process. In the copy, the result is 0 when the program could not be
// executed.
static pid_t forkChild(const char *program, char *const *argv, const sigset_t *mask)
{
    const pid_t child = fork();
    if (child == 0)
        becomeProgram(program, argv, mask);
    return child;
}

// Returns the child's process number; -1 when it could not be forked; and in the child itself 0
// when the program could not be executed. A signal that arrives after the child exists, but before
// its number is known here, is held back.
static pid_t startChild(const char *program, char *const *argv)
{
    // A parent that ignores SIGCHLD passes that on to this process, and the status would be lost.
    std::signal(SIGCHLD, SIG_DFL);
    sigset_t before;
    osdep_holdAllSignals(&before);
    pid_t child = vforkChild(program, argv, &before);
    const int error = child < 0 ? errno : 0;
    if (child < 0) // the contract: the call returns in a child that finds the failure itself
        child = forkChild(program, argv, &before);
    if (child == 0)
        return 0;
    osdep_setWaitedFor(child > 0 ? child : 0);
    osdep_releaseSignals(&before);
    if (error != 0)
        TRACE("could not execute \"%s\": %s", program, std::strerror(error));
    return child;
}

static void reportSignal(const char *program, int status)
{
    TRACE("\"%s\" was ended by signal %d", program, WTERMSIG(status));
    std::fprintf(stderr, "%s: signal %d %s\n", program, WTERMSIG(status),
                 WCOREDUMP(status) ? "- Core dumped" : "");
}

// Waits for the end of a child without reaping it: while a signal could be passed on to it, its
// number must not be reused for another process.
static bool waitForEnd(pid_t child)
{
    siginfo_t info;
    int result = 0;
    do {
        result = waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT);
    } while (result < 0 && errno == EINTR);
    return result == 0;
}

static pid_t reap(pid_t child, int *status)
{
    pid_t ended = 0;
    do {
        ended = waitpid(child, status, 0);
    } while (ended < 0 && errno == EINTR);
    return ended;
}

// Waits for the child just started. Returns its exit status, or -1 when it ended in any other way.
static int finishChild(const char *program, pid_t child)
{
    waitForEnd(child);
    sigset_t before;
    osdep_holdAllSignals(&before);
    int status = 0;
    const pid_t ended = reap(child, &status);
    osdep_setWaitedFor(0);
    osdep_releaseSignals(&before);
    if (ended != child)
        TRACE("could not wait for \"%s\": %s", program, std::strerror(errno));
    else if (WIFSIGNALED(status))
        reportSignal(program, status);
    return ended == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int osdep_spawn(const char *program, char *const *argv)
{
    TRACE_ENTER("program=\"%s\"", program);
    const pid_t child = startChild(program, argv);
    if (child == 0) {
        // The trace belongs to the parent: this exiting copy must not write to it.
        gDebugFlags = 0;
        gDebugOut = nullptr;
        gFilePath = nullptr;
        return -1;
    }
    const int result = child < 0 ? -1 : finishChild(program, child);
    osdep_reinstallHandler();
    return TRACE_RETURN("%d", result);
}

// ---- Capturing --------------------------------------------------------------------------------

static void closeDuplicates()
{
    for (int *saved : {&s_captureOutput.out, &s_captureOutput.err}) {
        if (*saved >= 0)
            close(*saved);
        *saved = -1;
    }
}

// After a failed capture, its duplicates are still the ones to restore.
static bool saveOutput()
{
    if (s_captureOutput.out >= 0)
        return true;
    s_captureOutput.out = osdep_duplicate(STDOUT_FILENO);
    s_captureOutput.err = osdep_duplicate(STDERR_FILENO);
    if (s_captureOutput.out >= 0 && s_captureOutput.err >= 0)
        return true;
    closeDuplicates();
    return false;
}

namespace {
// The output of a command that is captured.
enum class Captured { OutputAndError, OutputAlone };
} // namespace

static bool redirectOutput(int descriptor, Captured what)
{
    std::fflush(stdout);
    if (!osdep_redirect(descriptor, STDOUT_FILENO))
        return false;
    std::fflush(stderr);
    return what == Captured::OutputAlone || osdep_redirect(descriptor, STDERR_FILENO);
}

void osdep_restoreOutput()
{
    TRACE_ENTER();
    if (s_captureOutput.out >= 0) {
        std::fflush(stdout);
        osdep_redirect(s_captureOutput.out, STDOUT_FILENO);
        std::fflush(stderr);
        osdep_redirect(s_captureOutput.err, STDERR_FILENO);
        closeDuplicates();
    }
}

int osdep_redirectError(FILE *stream)
{
    TRACE_ENTER("stream=%p", static_cast<void *>(stream));
    int saved = stream == nullptr ? -1 : osdep_duplicate(STDERR_FILENO);
    std::fflush(stderr);
    if (saved >= 0 && !osdep_redirect(fileno(stream), STDERR_FILENO)) {
        close(saved);
        saved = -1;
    }
    return TRACE_RETURN("%d", saved);
}

void osdep_restoreError(int saved)
{
    TRACE_ENTER("saved=%d", saved);
    if (saved >= 0) {
        std::fflush(stderr);
        osdep_redirect(saved, STDERR_FILENO);
        close(saved);
    }
}

static FILE *openCapture(const char *name, int status)
{
    FILE *fp = std::fopen(name, "re");
    if (fp == nullptr)
        return nullptr;
    if (s_pipeStatus == nullptr)
        s_pipeStatus = hash_new_func(STATUS_BUCKETS, nullptr, nullptr, MODULE, __LINE__);
    ASSERT_TEXT_AT(50, !hash_haskey(s_pipeStatus, fp), "!hash_haskey(pipe_status_tab, fp)");
    hash_insert_func(s_pipeStatus, fp, reinterpret_cast<void *>(static_cast<intptr_t>(status)),
                     MODULE, __LINE__);
    return fp;
}

// Runs the command with descriptors 1 and 2 on the capture file. Returns its exit status, or -1.
static int runCaptured(char *const *argv)
{
    errno = 0;
    const pid_t child = startChild(argv[0], argv);
    if (child == 0)
        _exit(EXEC_FAILED);
    const int status = child < 0 ? -1 : finishChild(argv[0], child);
    osdep_reinstallHandler();
    return status;
}

static FILE *capture(char *const *argv, Captured what)
{
    int descriptor = -1;
    char *name = saveOutput() ? osdep_createTempFile(nullptr, &descriptor) : nullptr;
    const bool redirected = name != nullptr && redirectOutput(descriptor, what);
    if (!redirected)
        TRACE("could not capture the output of \"%s\": %s", argv[0], std::strerror(errno));
    const int status = redirected ? runCaptured(argv) : -1;
    if (descriptor >= 0)
        close(descriptor);
    // After a command that did not exit normally the output stays redirected: see the header.
    if (status >= 0 || !redirected)
        osdep_restoreOutput();
    FILE *stream = status >= 0 ? openCapture(name, status) : nullptr;
    osdep_discardTemp(name); // the captured output lives as long as the file is open
    std::free(name);
    return stream;
}

// Frees the command.
static FILE *openCommand(Vector *command, Captured what)
{
    FILE *stream = nullptr;
    const auto *program =
        static_cast<const char *>(vec_size(command) == 0 ? nullptr : vec_elementAt(command, 0));
    struct stat info;
    if (program != nullptr && stat(program, &info) != 0) {
        TRACE("could not find \"%s\": %s", program, std::strerror(errno));
    } else if (program != nullptr) {
        if (vec_top(command) != nullptr)
            vec_add(command, nullptr);
        stream = capture(reinterpret_cast<char *const *>(command->data), what);
    }
    vec_destroy(command);
    return stream;
}

static Vector *commandOf(const char *program, va_list arguments)
{
    Vector *command = vec_new(MODULE, __LINE__);
    vec_add(command, program);
    if (program != nullptr) {
        const char *argument = nullptr;
        do {
            argument = va_arg(arguments, const char *);
            vec_add(command, argument);
        } while (argument != nullptr);
    }
    return command;
}

FILE *osdep_popen_vecCommand(Vector *command)
{
    TRACE_ENTER("command=%p", static_cast<void *>(command));
    FILE *stream = openCommand(command, Captured::OutputAndError);
    return static_cast<FILE *>(TRACE_RETURN("%p", static_cast<void *>(stream)));
}

FILE *osdep_popen_command(const char *program, ...)
{
    TRACE_ENTER("program=\"%s\"", program);
    va_list arguments;
    va_start(arguments, program);
    FILE *stream = osdep_popen_vecCommand(commandOf(program, arguments));
    va_end(arguments);
    return static_cast<FILE *>(TRACE_RETURN("%p", static_cast<void *>(stream)));
}

FILE *osdep_popen_output(const char *program, ...)
{
    TRACE_ENTER("program=\"%s\"", program);
    va_list arguments;
    va_start(arguments, program);
    FILE *stream = openCommand(commandOf(program, arguments), Captured::OutputAlone);
    va_end(arguments);
    return static_cast<FILE *>(TRACE_RETURN("%p", static_cast<void *>(stream)));
}

int osdep_pclose(FILE *stream)
{
    TRACE_ENTER("stream=%p", static_cast<void *>(stream));
    if (stream == nullptr || s_pipeStatus == nullptr || !hash_haskey(s_pipeStatus, stream))
        return TRACE_RETURN("%d", -1);
    void *status = hash_remove(s_pipeStatus, stream);
    std::fclose(stream); // read only: nothing can be lost
    return TRACE_RETURN("%d", static_cast<int>(reinterpret_cast<intptr_t>(status)));
}
