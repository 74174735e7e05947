#define MODULE "common/osdep"
#include "common/osdep.h"

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <iterator>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "common/exitpath.h"
#include "common/hash.h"
#include "common/osdep_posix.h"
#include "common/qzdebug.h"
#include "common/vector.h"

// Duplicates of standard output and standard error; -1: none.
struct SavedOutput {
    int out;
    int err;
};

// The status of a captured child that could not become its program.
static constexpr int EXEC_FAILED = 255;
static constexpr uint32_t STATUS_BUCKETS = 5;

static SavedOutput s_crashOutput = {-1, -1};   // for the crash handler
static SavedOutput s_captureOutput = {-1, -1}; // while a capture has 1 and 2 redirected
static bool s_crashHandlers;                   // installed
static pid_t s_crashOwner;                     // the process that installed them
static void (*s_signalRoutine)();              // or null
static volatile sig_atomic_t s_waiting;        // for a child: no change of anything is under way
static HashTable *s_pipeStatus;                // FILE * -> exit status of its command

static bool redirect(int from, int to)
{
    int result = 0;
    do {
        result = dup2(from, to);
    } while (result < 0 && (errno == EINTR || errno == EBUSY));
    return result >= 0;
}

// A duplicate that children do not inherit, clear of the standard descriptors.
static int duplicate(int descriptor)
{
    return fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
}

// ---- Crash handlers ---------------------------------------------------------------------------

static constexpr int HANDLED_SIGNALS[] = {SIGHUP,  SIGQUIT, SIGKILL, SIGTSTP, SIGINT,
                                          SIGTERM, SIGABRT, SIGSEGV, SIGFPE};

// Signals that a write of ours can draw: a reader that has gone away, a limit on the size of files.
// Their default action would end the program and leave its temporary files behind. Ignored, they
// let the write fail, as any other would; children get the default action back.
static constexpr int WRITING_SIGNALS[] = {SIGPIPE, SIGXFSZ};
static bool s_writingSignalIgnored[std::size(WRITING_SIGNALS)]; // by us

static void putBack(FILE *stream, int descriptor, int *saved)
{
    std::fflush(stream);
    redirect(*saved, descriptor);
    close(*saved);
    *saved = -1;
}

// Past the stream, which may have no buffer yet and would ask the heap for one.
static void writeText(int descriptor, const char *text)
{
    for (size_t left = std::strlen(text); left > 0;) {
        const ssize_t written = write(descriptor, text, left);
        if (written <= 0)
            return; // there is nobody left to tell
        text += written;
        left -= static_cast<size_t>(written);
    }
}

// The temporary objects go first: flushing may find a stream in the middle of a change, or wait for
// a reader that has stopped. Nothing here may touch the heap, which the signal may have
// interrupted, unless a child was being waited for.
static void onSignal(int number)
{
    if (getpid() != s_crashOwner)
        _exit(number); // a child that has not become its program yet
    osdep_removeTempFilesOnSignal();
    if (s_crashOutput.out >= 0) {
        putBack(stdout, STDOUT_FILENO, &s_crashOutput.out);
        writeText(STDOUT_FILENO, "\n");
    }
    if (s_crashOutput.err >= 0)
        putBack(stderr, STDERR_FILENO, &s_crashOutput.err);
    if (s_waiting != 0 && s_signalRoutine != nullptr)
        s_signalRoutine();
    switch (number) {
    case SIGABRT:
    case SIGFPE:
    case SIGSEGV:
        writeText(STDERR_FILENO,
                  "\n\nAn unexpected problem has been encountered and the program must quit; "
                  "contact Vantrix support with details\n\n");
        std::exit(number);
    case SIGHUP:
    case SIGINT:
    case SIGQUIT:
    case SIGKILL:
    case SIGTERM:
    case SIGTSTP:
        std::exit(number);
    default:
        std::exit(1);
    }
}

static sigset_t handledSignals()
{
    sigset_t set;
    sigemptyset(&set);
    for (int number : HANDLED_SIGNALS)
        sigaddset(&set, number);
    return set;
}

// All are held back while one is handled: a second one must not enter the removal again.
static void installHandlers()
{
    struct sigaction action = {};
    action.sa_handler = onSignal;
    action.sa_flags = SA_RESTART;
    action.sa_mask = handledSignals();
    for (int number : HANDLED_SIGNALS)
        sigaction(number, &action, nullptr); // for SIGKILL it fails
}

void osdep_setSignalRoutine(void (*routine)())
{
    TRACE_ENTER();
    s_signalRoutine = routine;
    TRACE_LEAVE();
}

static void ignoreWritingSignals()
{
    for (size_t i = 0; i < std::size(WRITING_SIGNALS); ++i)
        if (std::signal(WRITING_SIGNALS[i], SIG_IGN) == SIG_DFL)
            s_writingSignalIgnored[i] = true;
}

static void restoreWritingSignals()
{
    for (size_t i = 0; i < std::size(WRITING_SIGNALS); ++i)
        if (s_writingSignalIgnored[i])
            std::signal(WRITING_SIGNALS[i], SIG_DFL);
}

static void reinstallHandlers()
{
    if (s_crashHandlers)
        installHandlers();
}

// A closed standard descriptor would be given to the next file that is opened, and what is meant
// for the terminal would be written into that file. The stand-ins fail as the closed ones did.
static void fillStandardDescriptors()
{
    for (int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(descriptor, F_GETFD) < 0)
            open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
}

void osdep_installCrashHandlers()
{
    TRACE_ENTER();
    if (!s_crashHandlers)
        fillStandardDescriptors();
    if (s_crashOutput.out < 0)
        s_crashOutput.out = duplicate(STDOUT_FILENO);
    if (s_crashOutput.err < 0)
        s_crashOutput.err = duplicate(STDERR_FILENO);
    s_crashOwner = getpid();
    installHandlers();
    ignoreWritingSignals();
    s_crashHandlers = true;
    TRACE_LEAVE();
}

// ---- Running ----------------------------------------------------------------------------------

// Returns the child's process number; -1 when it could not be forked; and in the child itself 0
// when it could not become the program.
// A signal that comes when there is a child already, and before that is known here, is held back.
static pid_t startChild(const char *program, char *const *argv)
{
    // A parent that ignores its children's ends hands that on to us, and the status would be lost.
    std::signal(SIGCHLD, SIG_DFL);
    const sigset_t handled = handledSignals();
    sigset_t before;
    sigprocmask(SIG_BLOCK, &handled, &before);
    const pid_t child = fork();
    s_waiting = child > 0;
    if (child == 0)
        restoreWritingSignals();
    sigprocmask(SIG_SETMASK, &before, nullptr);
    if (child == 0)
        execve(program, argv, environ);
    return child;
}

static void reportSignal(const char *program, int status)
{
    std::fprintf(stderr, "%s: signal %d %s\n", program, WTERMSIG(status),
                 WCOREDUMP(status) ? "- Core dumped" : "");
}

// Waits for the child just started. Its exit status, or -1 when it ended in any other way.
static int finishChild(const char *program, pid_t child)
{
    int status = 0;
    pid_t ended = 0;
    do {
        ended = waitpid(child, &status, 0);
    } while (ended < 0 && errno == EINTR);
    s_waiting = 0;
    if (ended == child && WIFEXITED(status))
        return WEXITSTATUS(status);
    if (ended == child && WIFSIGNALED(status))
        reportSignal(program, status);
    return -1;
}

int osdep_spawn(const char *program, char *const *argv)
{
    TRACE_ENTER("program=\"%s\"", program);
    const pid_t child = startChild(program, argv);
    if (child == 0) {
        // The trace is the parent's: this copy on its way out must not write into it.
        gDebugFlags = 0;
        gDebugOut = nullptr;
        gFilePath = nullptr;
        return -1;
    }
    const int result = child < 0 ? -1 : finishChild(program, child);
    reinstallHandlers();
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

// After a failed capture the duplicates of that one are still the ones to go back to.
static bool saveOutput()
{
    if (s_captureOutput.out >= 0)
        return true;
    s_captureOutput.out = duplicate(STDOUT_FILENO);
    s_captureOutput.err = duplicate(STDERR_FILENO);
    if (s_captureOutput.out >= 0 && s_captureOutput.err >= 0)
        return true;
    closeDuplicates();
    return false;
}

// What a capture takes of a command.
enum class Captured { OutputAndError, OutputAlone };

static bool redirectOutput(int descriptor, Captured what)
{
    std::fflush(stdout);
    if (!redirect(descriptor, STDOUT_FILENO))
        return false;
    std::fflush(stderr);
    return what == Captured::OutputAlone || redirect(descriptor, STDERR_FILENO);
}

void osdep_restoreOutput()
{
    TRACE_ENTER();
    if (s_captureOutput.out >= 0) {
        std::fflush(stdout);
        redirect(s_captureOutput.out, STDOUT_FILENO);
        std::fflush(stderr);
        redirect(s_captureOutput.err, STDERR_FILENO);
        closeDuplicates();
    }
    TRACE_LEAVE();
}

int osdep_redirectError(FILE *stream)
{
    TRACE_ENTER("stream=%p", static_cast<void *>(stream));
    int saved = stream == nullptr ? -1 : duplicate(STDERR_FILENO);
    std::fflush(stderr);
    if (saved >= 0 && !redirect(fileno(stream), STDERR_FILENO)) {
        close(saved);
        saved = -1;
    }
    return TRACE_RETURN("%d", saved);
}

void osdep_restoreError(int saved)
{
    TRACE_ENTER("saved=%d", saved);
    if (saved >= 0)
        putBack(stderr, STDERR_FILENO, &saved);
    TRACE_LEAVE();
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

// Runs the command with 1 and 2 on the capture file; its exit status or -1.
static int runCaptured(char *const *argv)
{
    errno = 0;
    const pid_t child = startChild(argv[0], argv);
    if (child == 0)
        _exit(EXEC_FAILED);
    const int status = child < 0 ? -1 : finishChild(argv[0], child);
    reinstallHandlers();
    return status;
}

static FILE *capture(char *const *argv, Captured what)
{
    if (!saveOutput())
        return nullptr;
    int descriptor = -1;
    char *name = osdep_createTempFile(nullptr, &descriptor);
    const bool redirected = name != nullptr && redirectOutput(descriptor, what);
    const int status = redirected ? runCaptured(argv) : -1;
    if (descriptor >= 0)
        close(descriptor);
    // A command that did not end by itself leaves the output where it is: see the header.
    if (status >= 0 || !redirected)
        osdep_restoreOutput();
    FILE *stream = status >= 0 ? openCapture(name, status) : nullptr;
    osdep_discardTemp(name); // what was captured lives as long as somebody has it open
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
    if (program != nullptr && stat(program, &info) == 0) {
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
