#define MODULE "common/osdep"
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "common/os/osdep_file.h"
#include "common/os/osdep_host.h"
#include "common/os/osdep_process.h"
#include "common/text/osdep_path.h"
#ifdef __GLIBC__
#include <stdio_ext.h>
#endif

#include "common/base/memory.h"
#include "common/os/osdep_posix.h"
#include "common/trace/qzdebug.h"

// ---- Host -------------------------------------------------------------------------------------

namespace {
struct HostInfo {
    bool known; // the rest is filled in
    int error;  // of the failed call, or 0
    utsname names;
    char text[1024]; // empty until it is asked for
};
} // namespace

static HostInfo s_host;

static void inquireHost()
{
    if (s_host.known)
        return;
    s_host.error = uname(&s_host.names) < 0 ? errno : 0;
    s_host.known = true;
}

const char *osdep_osInfo()
{
    TRACE_ENTER();
    inquireHost();
    if (s_host.text[0] == '\0' && s_host.error != 0)
        std::snprintf(s_host.text, sizeof s_host.text, "??Error: %s", std::strerror(s_host.error));
    else if (s_host.text[0] == '\0')
        std::snprintf(s_host.text, sizeof s_host.text, "%s %s %s %s", s_host.names.sysname,
                      s_host.names.release, s_host.names.version, s_host.names.machine);
    return TRACE_RETURN("\"%s\"", static_cast<const char *>(s_host.text));
}

uint32_t osdep_osFlags()
{
    TRACE_ENTER();
    inquireHost();
    const uint32_t unknown = s_host.error != 0 ? OSFLAG_UNKNOWN : 0U;
    return TRACE_RETURN("0x%x", OSFLAG_POSIX | unknown);
}

static int atLeastOne(long number)
{
    if (number < 1)
        return 1;
    return number > INT_MAX ? INT_MAX : static_cast<int>(number);
}

int osdep_numCores(int useBuildServerHint)
{
    TRACE_ENTER("useBuildServerHint=%d", useBuildServerHint);
    const char *hint = useBuildServerHint ? std::getenv("bamboo_capability_Cores") : nullptr;
    long cores = hint == nullptr ? 0 : std::strtol(hint, nullptr, 10);
    if (cores == 0)
        cores = sysconf(_SC_NPROCESSORS_ONLN);
    return TRACE_RETURN("%d", atLeastOne(cores));
}

char *osdep_hostName()
{
    TRACE_ENTER();
    char name[256] = "";
    if (gethostname(name, sizeof name - 1) != 0 || name[0] == '\0')
        return TRACE_RETURN("\"%s\"", xstrdup_must("localhost"));
    return TRACE_RETURN("\"%s\"", xstrdup_must(name));
}

char *osdep_readLink(const char *link)
{
    char path[4097];
    const ssize_t length = readlink(link, path, sizeof path);
    if (length <= 0 || static_cast<size_t>(length) >= sizeof path) // a full buffer: cut short
        return nullptr;
    path[length] = '\0';
    return xstrdup_must(path);
}

char *osdep_exePath()
{
    TRACE_ENTER();
    return TRACE_RETURN("\"%s\"", osdep_readLink("/proc/self/exe"));
}

char *osdep_cwd()
{
    TRACE_ENTER();
    char path[20480];
    return TRACE_RETURN("\"%s\"",
                        getcwd(path, sizeof path) == nullptr ? nullptr : xstrdup_must(path));
}

int osdep_setenv(const char *name, const char *value)
{
    TRACE_ENTER("name=\"%s\", value=\"%s\"", name, value);
    if (name == nullptr)
        return TRACE_RETURN("%d", 0);
    if (value == nullptr)
        value = "";
    const size_t name_length = std::strlen(name);
    const size_t value_size = std::strlen(value) + 1;
    auto *setting = static_cast<char *>(xmalloc_must(name_length + 1 + value_size));
    std::memcpy(setting, name, name_length);
    setting[name_length] = '=';
    std::memcpy(setting + name_length + 1, value, value_size);
    return TRACE_RETURN("%d", putenv(setting));
}

// ---- Clocks -----------------------------------------------------------------------------------

static OsdepTime readClock(clockid_t clock, int64_t nanosecondsPerUnit)
{
    timespec now = {};
    clock_gettime(clock, &now); // fails only for a clock that the system does not have
    return {now.tv_sec, now.tv_nsec / nanosecondsPerUnit};
}

OsdepTime osdep_wallTime()
{
    TRACE_ENTER();
    const OsdepTime now = readClock(CLOCK_REALTIME, 1000);
    return now;
}

OsdepTime osdep_cpuTime()
{
    TRACE_ENTER();
    const OsdepTime now = readClock(CLOCK_PROCESS_CPUTIME_ID, 1);
    return now;
}

// ---- Standard input and output ----------------------------------------------------------------

int osdep_inputIsTerminal()
{
    TRACE_ENTER();
    return TRACE_RETURN("%d", isatty(STDIN_FILENO));
}

// Asks the descriptor: it still tells long after the failed write and its errno are gone.
int osdep_outputIsAbandoned()
{
    TRACE_ENTER();
    pollfd output = {STDOUT_FILENO, POLLOUT, 0};
    const int answered = poll(&output, 1, 0);
    return TRACE_RETURN("%d", answered > 0 && (output.revents & (POLLERR | POLLHUP)) != 0);
}

int osdep_writeAtEnd(FILE *stream)
{
    TRACE_ENTER("stream=%p", static_cast<void *>(stream));
    const int flags = stream == nullptr ? -1 : fcntl(fileno(stream), F_GETFL);
    const bool set = flags >= 0 && fcntl(fileno(stream), F_SETFL, flags | O_APPEND) == 0;
    return TRACE_RETURN("%d", set ? 0 : -1);
}

// The data that the stream has read ahead belongs to the old input.
static void discardInput()
{
#ifdef __GLIBC__
    __fpurge(stdin);
#else
    std::fflush(stdin);
#endif
    std::clearerr(stdin);
}

static bool isOpenDirectory(int descriptor)
{
    struct stat info;
    return fstat(descriptor, &info) != 0 || S_ISDIR(info.st_mode);
}

// Makes the open file standard input. Returns a duplicate of the old one, or -1 with nothing
// changed.
static int replaceInput(int opened)
{
    TRACE_ENTER("opened=%d", opened);
    const int saved = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (saved < 0)
        return TRACE_RETURN("%d", -1);
    std::fflush(stdin); // returns the data read ahead to the input, where possible
    if (dup2(opened, STDIN_FILENO) < 0) {
        close(saved);
        return TRACE_RETURN("%d", -1);
    }
    discardInput();
    return TRACE_RETURN("%d", saved);
}

int osdep_redirectInput(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    // Opened only once: a second open of a pipe would find it empty.
    const int opened = path == nullptr ? -1 : open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY);
    if (opened < 0)
        return TRACE_RETURN("%d", -1);
    int saved = -1;
    if (!isOpenDirectory(opened))
        saved = opened == STDIN_FILENO ? STDIN_FILENO : replaceInput(opened);
    if (saved != STDIN_FILENO)
        close(opened);
    return TRACE_RETURN("%d", saved);
}

int osdep_restoreInput(int saved)
{
    TRACE_ENTER("saved=%d", saved);
    if (saved < 0)
        return TRACE_RETURN("%d", 0);
    // An input that was closed is closed again.
    const bool restored = saved == STDIN_FILENO || dup2(saved, STDIN_FILENO) >= 0;
    if (restored) {
        close(saved);
        discardInput();
    }
    return TRACE_RETURN("%d", restored ? 0 : -1);
}

// ---- Paths ------------------------------------------------------------------------------------

int osdep_fileExists(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    struct stat info;
    return TRACE_RETURN("%d", path != nullptr && stat(path, &info) == 0);
}

static bool isDirectory(const char *path)
{
    struct stat info;
    return stat(path, &info) == 0 && S_ISDIR(info.st_mode);
}

int osdep_isDirectory(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    return TRACE_RETURN("%d", path != nullptr && isDirectory(path));
}

int osdep_isRegularFile(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    struct stat info;
    return TRACE_RETURN("%d", path != nullptr && stat(path, &info) == 0 && S_ISREG(info.st_mode));
}

int osdep_fileReadable(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    // Without O_NONBLOCK, opening a named pipe without a writer would wait.
    const int opened =
        path == nullptr ? -1 : open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (opened < 0)
        return TRACE_RETURN("%d", 0);
    close(opened);
    return TRACE_RETURN("%d", 1);
}

int osdep_sameFile(const char *a, const char *b)
{
    TRACE_ENTER("a=\"%s\", b=\"%s\"", a, b);
    struct stat left;
    struct stat right;
    if (a == nullptr || b == nullptr || stat(a, &left) != 0 || stat(b, &right) != 0)
        return TRACE_RETURN("%d", 0);
    return TRACE_RETURN("%d", left.st_dev == right.st_dev && left.st_ino == right.st_ino);
}

// Another process may create the same directory at the same moment, which is just as good.
static bool makeDirectory(const char *path)
{
    return mkdir(path, 0777) == 0 || (errno == EEXIST && isDirectory(path));
}

// Creates the missing directories above the last component. `path` is modified meanwhile and
// restored.
static bool makeParents(char *path)
{
    for (char *slash = std::strchr(path + 1, '/'); slash != nullptr;
         slash = std::strchr(slash + 1, '/')) {
        *slash = '\0';
        const bool made = isDirectory(path) || makeDirectory(path);
        *slash = '/';
        if (!made)
            return false;
    }
    return true;
}

int osdep_mkdirs(const char *path)
{
    TRACE_ENTER("path=\"%s\"", path);
    if (path == nullptr || *path == '\0')
        return TRACE_RETURN("%d", -1);
    struct stat info;
    if (stat(path, &info) == 0)
        return TRACE_RETURN("%d", S_ISDIR(info.st_mode) ? 0 : 1);
    if (std::strlen(path) >= PATH_MAX)
        return TRACE_RETURN("%d", 1); // creating the part that fits would be of no use
    char *copy = xstrdup_must(path);
    int result = 1;
    if (makeParents(copy))
        result = makeDirectory(copy) ? 0 : -1;
    std::free(copy);
    return TRACE_RETURN("%d", result);
}
