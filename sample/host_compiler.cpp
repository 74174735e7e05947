#include "sample/host_compiler.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {
enum { MAX_MESSAGES = 16 << 20 };
} // namespace

// The signals that a write can cause: the reader has gone away, or the file is at its size limit.
static const int WRITING_SIGNALS[] = {SIGPIPE, SIGXFSZ};

static volatile sig_atomic_t stopSignal;
static volatile sig_atomic_t childProcess;

// The compiler gets the signal; its end then ends the wait below.
static void onStop(int number)
{
    stopSignal = number;
    if (childProcess > 0)
        kill(childProcess, number);
}

static void installHandlers()
{
    static const int STOPS[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};
    struct sigaction action = {};
    action.sa_handler = onStop;
    for (int number : STOPS)
        sigaction(number, &action, nullptr);
}

void host_finishOnSignals()
{
    installHandlers();
    for (int number : WRITING_SIGNALS)
        signal(number, SIG_IGN);
}

void host_stopIfAsked()
{
    if (stopSignal == 0)
        return;
    // exit() removes the temporary files; the status is the one that a shell gives for the signal.
    exit(128 + stopSignal);
}

// In the child: never returns.
[[noreturn]] static void execCompiler(char *const *arguments, int messages)
{
    dup2(messages, 2);
    for (int number : WRITING_SIGNALS)
        signal(number, SIG_DFL); // the compiler would inherit that they are ignored
    setenv("LC_ALL", "C", 1);
    execvp(arguments[0], arguments);
    _exit(127);
}

static void readMessages(int descriptor, Buffer *messages)
{
    char block[4096];
    for (;;) {
        ssize_t got = read(descriptor, block, sizeof block);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        if (messages->count < MAX_MESSAGES)
            buffer_add(messages, block, static_cast<size_t>(got));
    }
    close(descriptor);
}

static int waitFor(pid_t child)
{
    int status;
    while (waitpid(child, &status, 0) < 0)
        if (errno != EINTR)
            return -1;
    childProcess = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Returns the exit status, or -1 when the compiler did not end by itself or could not be started.
static int run(char *const *arguments, Buffer *messages)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return -1;
    installHandlers();
    fflush(stdout);
    pid_t child = fork();
    if (child == 0)
        execCompiler(arguments, ends[1]);
    close(ends[1]);
    childProcess = child;
    readMessages(ends[0], messages);
    return child < 0 ? -1 : waitFor(child);
}

static const struct {
    const char *mark;
    Severity severity;
    unsigned number;
} MARKS[] = {
    {": fatal error: ", SEVERITY_ERROR, NUMBER_HOST_ERROR},
    {": error: ", SEVERITY_ERROR, NUMBER_HOST_ERROR},
    {": warning: ", SEVERITY_WARNING, NUMBER_HOST_WARNING},
    {": note: ", SEVERITY_ADVISORY, NUMBER_HOST_NOTE},
};

// Cuts ":NUMBER" off the end of `text`; 0 if it does not end in one.
static unsigned cutNumber(char *text)
{
    char *colon = strrchr(text, ':');
    if (colon == nullptr || colon[1] < '0' || colon[1] > '9')
        return 0;
    char *end;
    unsigned long number = strtoul(colon + 1, &end, 10);
    if (*end != 0)
        return 0;
    *colon = 0;
    return static_cast<unsigned>(number);
}

// Such lines have only the place of a message.
static int isContext(const char *line)
{
    size_t length = strlen(line);
    return length == 0 || strncmp(line, "In file included from ", 22) == 0 ||
           strncmp(line, "                 from ", 22) == 0 ||
           strcmp(line, "compilation terminated.") == 0 ||
           (line[length - 1] == ':' && (strstr(line, ": In ") || strstr(line, ": At ")));
}

static void reportLine(char *line, Report *report)
{
    for (const auto &mark : MARKS) {
        char *found = strstr(line, mark.mark);
        if (found == nullptr)
            continue;
        *found = 0;
        unsigned last = cutNumber(line);
        unsigned first = cutNumber(line);
        Place place = first != 0 ? Place{line, first, last} : Place{line, last, 0};
        report_show(report, mark.severity, place, mark.number, found + strlen(mark.mark));
        return;
    }
    if (!isContext(line))
        fprintf(stderr, "%s\n", line);
}

static void reportMessages(const char *messages, Report *report)
{
    char *line = arena_copy(messages);
    while (*line != 0) {
        char *end = line + strcspn(line, "\n");
        int more = *end != 0;
        *end = 0;
        reportLine(line, report);
        line = end + more;
    }
}

int host_run(const Strings *arguments, Report *report)
{
    char **command = static_cast<char **>(arena_alloc((arguments->count + 2) * sizeof(char *)));
    command[0] = arena_copy("cc");
    for (size_t i = 0; i < arguments->count; i++)
        command[i + 1] = const_cast<char *>(arguments->items[i]);
    Buffer messages = {};
    unsigned before = report->errors;
    int status = run(command, &messages);
    host_stopIfAsked();
    reportMessages(buffer_text(&messages), report);
    if (status == 0)
        return 1;
    if (status == 127 || status < 0)
        report_error(report, {}, 200, "could not start program \"cc\"");
    else if (report->errors == before)
        report_error(report, {}, 203, "program \"cc\" ended with status %d", status);
    return 0;
}
