#define MODULE "common/osdep"
#include "common/os/osdep_posix.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <ctime>
#include <initializer_list>
#include <iterator>

#include <fcntl.h>
#include <poll.h>
#include <stdio_ext.h>
#include <sys/wait.h>
#include <unistd.h>

#include "common/os/osdep_process.h"
#include "common/trace/qzdebug.h"

static constexpr int HANDLED_SIGNALS[] = {SIGHUP,  SIGQUIT, SIGKILL, SIGTSTP, SIGINT,
                                          SIGTERM, SIGABRT, SIGSEGV, SIGFPE};

// Signals that a write of this process can cause: the reader has gone away, or a limit on file
// sizes is reached. Their default action would end the program and leave its temporary files in
// place. When they are ignored, the write fails like any other; children get the default action
// back.
static constexpr int WRITING_SIGNALS[] = {SIGPIPE, SIGXFSZ};

static constexpr int PATIENCE = 1000;      // milliseconds for a child that was told to end
static constexpr unsigned LAST_RESORT = 5; // seconds for everything that the handler does

// Duplicates of standard output and standard error; -1: none.
static int s_savedOut = -1;
static int s_savedErr = -1;

static bool s_installed;
static pid_t s_owner;                      // the process that installed the handler
static void (*s_signalRoutine)();          // or null
static volatile sig_atomic_t s_child;      // the child that is being waited for, or 0
static volatile sig_atomic_t s_exitStatus; // of a run that a signal ends
static sigset_t s_ignored; // the writing signals that are ignored now; empty at first

void osdep_holdSignals(sigset_t *saved)
{
    sigset_t held;
    sigemptyset(&held);
    for (int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGTSTP})
        sigaddset(&held, number);
    sigprocmask(SIG_BLOCK, &held, saved);
}

static sigset_t handledSignals()
{
    sigset_t set;
    sigemptyset(&set);
    for (int number : HANDLED_SIGNALS)
        sigaddset(&set, number);
    return set;
}

void osdep_holdAllSignals(sigset_t *saved)
{
    const sigset_t held = handledSignals();
    sigprocmask(SIG_BLOCK, &held, saved);
}

void osdep_releaseSignals(const sigset_t *saved)
{
    sigprocmask(SIG_SETMASK, saved, nullptr);
}

void osdep_setWaitedFor(pid_t child)
{
    s_child = child;
}

bool osdep_redirect(int from, int to)
{
    int result = 0;
    do {
        result = dup2(from, to);
    } while (result < 0 && (errno == EINTR || errno == EBUSY));
    return result >= 0;
}

int osdep_duplicate(int descriptor)
{
    return fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
}

// ---- The handler ------------------------------------------------------------------------------
//
// A signal may have interrupted anything: malloc(), a stream that is being written, exit() itself
// with its lock held. So nothing below takes a lock, touches the heap or runs an exit handler,
// unless the process was waiting for a child: then nothing else was in progress.

// Whether a short text can be written without waiting for the reader, which may be stopped.
static bool hasRoom(int descriptor)
{
    pollfd asked = {descriptor, POLLOUT, 0};
    return poll(&asked, 1, 0) > 0;
}

// Bypasses the stream, which may have no buffer yet and would allocate one.
static void writeText(int descriptor, const char *text)
{
    if (hasRoom(descriptor) && write(descriptor, text, std::strlen(text)) < 0)
        return; // nobody is left to be told
}

// A pipe with room takes at least PIPE_BUF bytes. fflush() would take the stream's lock.
static void writePending(FILE *stream, int descriptor)
{
    if (__fpending(stream) <= PIPE_BUF && hasRoom(descriptor))
        fflush_unlocked(stream);
}

static void putBack(FILE *stream, int descriptor, int *saved)
{
    writePending(stream, descriptor);
    osdep_redirect(*saved, descriptor);
    close(*saved);
    *saved = -1;
}

// Passes the signal on to the child and waits for its end: otherwise the child would go on without
// its command file and write its output after the temporary files are gone. A signal that does not
// ask the child to end is replaced by one that does, and a stopped child is woken up to receive it.
static void endChild(pid_t child, int number)
{
    const bool asksToEnd =
        number == SIGHUP || number == SIGINT || number == SIGQUIT || number == SIGTERM;
    kill(child, asksToEnd ? number : SIGTERM);
    kill(child, SIGCONT);
    const timespec millisecond = {0, 1000000};
    for (int waited = 0; waited < PATIENCE && waitpid(child, nullptr, WNOHANG) == 0; ++waited)
        nanosleep(&millisecond, nullptr);
}

[[noreturn]] static void onLastResort(int)
{
    osdep_removeTempFilesOnSignal();
    _exit(s_exitStatus);
}

// A lock that another process holds or a terminal that has been stopped must not keep a run from
// ending: all signals but this one are blocked by now.
static void setLastResort(int status)
{
    s_exitStatus = status;
    std::signal(SIGALRM, onLastResort);
    alarm(LAST_RESORT);
}

static bool isCrash(int number)
{
    return number == SIGABRT || number == SIGFPE || number == SIGSEGV;
}

static void onSignal(int number)
{
    if (getpid() != s_owner)
        _exit(number); // a child that has not executed its program yet
    const pid_t child = s_child;
    setLastResort(number);
    if (child != 0)
        endChild(child, number);
    // This comes first: the rest may find a stream in the middle of a change.
    osdep_removeTempFilesOnSignal();
    if (s_savedOut >= 0) {
        putBack(stdout, STDOUT_FILENO, &s_savedOut);
        writeText(STDOUT_FILENO, "\n");
    }
    if (s_savedErr >= 0)
        putBack(stderr, STDERR_FILENO, &s_savedErr);
    if (child != 0 && s_signalRoutine != nullptr)
        s_signalRoutine();
    if (isCrash(number))
        writeText(STDERR_FILENO,
                  "\n\nAn unexpected problem has been encountered and the program must quit; "
                  "contact Vantrix support with details\n\n");
    _exit(number);
}

// ---- Installing -------------------------------------------------------------------------------

// All are blocked while one is handled: a second one must not enter the removal again.
static void installHandler()
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
}

static void ignoreWritingSignals()
{
    for (int number : WRITING_SIGNALS)
        if (std::signal(number, SIG_IGN) == SIG_DFL)
            sigaddset(&s_ignored, number);
}

const sigset_t *osdep_signalsForChildren()
{
    return &s_ignored;
}

void osdep_reinstallHandler()
{
    if (s_installed)
        installHandler();
}

// The next file opened would get a closed standard descriptor, and output for the terminal would be
// written into that file. Reads and writes of the stand-ins fail as those of the closed descriptors
// did.
static void fillStandardDescriptors()
{
    for (int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(descriptor, F_GETFD) < 0)
            open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
}

void osdep_installCrashHandlers()
{
    TRACE_ENTER();
    if (!s_installed)
        fillStandardDescriptors();
    if (s_savedOut < 0)
        s_savedOut = osdep_duplicate(STDOUT_FILENO);
    if (s_savedErr < 0)
        s_savedErr = osdep_duplicate(STDERR_FILENO);
    s_owner = getpid();
    installHandler();
    ignoreWritingSignals();
    s_installed = true;
}
