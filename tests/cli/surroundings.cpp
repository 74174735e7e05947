#include "tests/cli/surroundings.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <grp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

static const uid_t NOBODY = 65534;

void surroundings_fail(const std::string &what)
{
    dprintf(2, "surroundings: %s: %s\n", what.c_str(), strerror(errno));
    _exit(125);
}

static void need(bool ok, const std::string &what)
{
    if (!ok)
        surroundings_fail(what);
}

// Whether `attempt` succeeds in a process of its own.
static bool tryInAnotherProcess(const std::function<bool()> &attempt)
{
    pid_t pid = fork();
    if (pid == 0)
        _exit(attempt() ? 0 : 1);
    int status = 1;
    return pid > 0 && waitpid(pid, &status, 0) == pid && status == 0;
}

static bool leaveSharedMounts()
{
    return unshare(CLONE_NEWNS) == 0 &&
           mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

bool surroundings_canMount()
{
    return tryInAnotherProcess(
        [] { return leaveSharedMounts() && mount("tmpfs", "/tmp", "tmpfs", 0, "size=4096") == 0; });
}

static bool dropToNobody()
{
    return setgroups(0, nullptr) == 0 && setgid(NOBODY) == 0 && setuid(NOBODY) == 0;
}

bool surroundings_canBeNobody(const std::string &directory)
{
    return tryInAnotherProcess(
        [&] { return dropToNobody() && access(directory.c_str(), R_OK | X_OK) == 0; });
}

void surroundings_becomeNobody()
{
    need(dropToNobody(), "cannot become nobody");
}

void surroundings_redirect(int descriptor, const std::string &path, int flags)
{
    int opened = open(path.c_str(), flags, 0666);
    need(opened >= 0 && dup2(opened, descriptor) == descriptor, path);
    close(opened);
}

// Enters a root directory that has everything but /tmp.
static void hideTmp(const std::string &root)
{
    need(mount("tmpfs", root.c_str(), "tmpfs", 0, "mode=755") == 0, root);
    for (const auto &entry : std::filesystem::directory_iterator("/")) {
        std::string from = entry.path();
        std::string to = root + from;
        if (from == "/tmp")
            continue;
        if (entry.is_symlink()) {
            std::string target = std::filesystem::read_symlink(entry.path());
            need(symlink(target.c_str(), to.c_str()) == 0, to);
        } else if (entry.is_directory()) {
            need(mkdir(to.c_str(), 0755) == 0, to);
            need(mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0, to);
        }
    }
    need(chroot(root.c_str()) == 0, root);
}

// A file system of one page, which a file fills.
static void mountFullFileSystem()
{
    need(mount("tmpfs", "/tmp", "tmpfs", 0, "size=4096,mode=1777") == 0, "/tmp");
    int file = open("/tmp/filler", O_WRONLY | O_CREAT, 0600);
    char page[4096] = {};
    need(file >= 0 && write(file, page, sizeof page) == sizeof page, "/tmp/filler");
    close(file);
}

void surroundings_setTmp(Tmp tmp, const std::string &scratch)
{
    need(leaveSharedMounts(), "no mounts of its own");
    switch (tmp) {
    case Tmp::Usual: {
        std::string own = scratch + "/tmp";
        need(mount(own.c_str(), "/tmp", nullptr, MS_BIND, nullptr) == 0, own);
        break;
    }
    case Tmp::Missing:
        hideTmp(scratch + "/other");
        break;
    case Tmp::ReadOnly:
        need(mount("tmpfs", "/tmp", "tmpfs", MS_RDONLY, nullptr) == 0, "/tmp");
        break;
    case Tmp::NoFiles:
        // The one file is the root directory.
        need(mount("tmpfs", "/tmp", "tmpfs", 0, "nr_inodes=1,mode=1777") == 0, "/tmp");
        break;
    case Tmp::NoSpace:
        mountFullFileSystem();
        break;
    }
}

static void limit(int resource, rlim_t value)
{
    struct rlimit both = {value, value};
    need(setrlimit(static_cast<__rlimit_resource>(resource), &both) == 0, "limit");
}

void surroundings_limit(int files, bool noProcesses)
{
    limit(RLIMIT_CORE, 0);
    if (files != 0)
        limit(RLIMIT_NOFILE, static_cast<rlim_t>(files));
    if (noProcesses)
        limit(RLIMIT_NPROC, 0);
}
