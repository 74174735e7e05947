// The program is killed, and each of its system calls on files fails, at every point of an append:
// afterwards there is the old package or the new one, complete.
#include <cerrno>
#include <csignal>

#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>

#include "package_zip_fixture.h"

using namespace package_zip;

namespace {

// A child that appends, held at its first step. -1 when it cannot be watched here.
pid_t start_watched(const fs::path &path, const fs::path &file)
{
    const pid_t child = fork();
    if (child == 0) {
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
            _exit(77);
        raise(SIGSTOP);
        _exit(append(path, "new", file).empty() ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSTOPPED(status) && ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD) == 0)
        return child;
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
    return -1;
}

bool is_over(int status)
{
    return WIFEXITED(status) || WIFSIGNALED(status);
}

// Lets the child go on to where it enters or leaves a system call, or to its end.
int next_stop(pid_t child)
{
    int status = 0;
    ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
    waitpid(child, &status, 0);
    return status;
}

class InterruptedPackage : public PackageZip {
  protected:
    void SetUp() override
    {
        PackageZip::SetUp();
        ASSERT_EQ(append(path, "old", file), Strings{});
        old = bytes_of(path);
        const fs::path elsewhere = root / "d";
        fs::create_directory(elsewhere);
        fs::copy_file(path, elsewhere / "p.zip");
        put(file, "another text\n");
        ASSERT_EQ(append(elsewhere / "p.zip", "new", file), Strings{});
        fresh = bytes_of(elsewhere / "p.zip");
        fs::remove_all(elsewhere);
    }

    // True when it is the new one. Starts afresh.
    bool expect_whole(int point)
    {
        const std::string now = bytes_of(path);
        EXPECT_TRUE(now == old || now == fresh) << "after stop " << point;
        put(path, old);
        for (const auto &name : names())
            if (name.starts_with(".p.zip."))
                fs::remove(root / name);
        EXPECT_EQ(names(), (std::set<std::string>{"p.zip", "trace.out"}));
        return now == fresh;
    }

    std::string old;
    std::string fresh;
};

} // namespace

TEST_F(InterruptedPackage, IsWholeWhereverTheProgramIsKilled)
{
    bool ended = false;
    int replaced = 0;
    int point = 0;
    while (!ended) {
        const pid_t child = start_watched(path, file);
        if (child < 0)
            GTEST_SKIP() << "processes cannot be watched here";
        ++point;
        int status = next_stop(child);
        for (int stop = 1; stop < point && !is_over(status); ++stop)
            status = next_stop(child);
        ended = is_over(status);
        if (!ended) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
        }
        replaced += expect_whole(point);
    }
    EXPECT_GT(point, 40);
    EXPECT_GT(replaced, 1); // killed after the replacement, and run to the end
    EXPECT_LT(replaced, point);
}

#ifdef __x86_64__

namespace {

bool concerns_files(unsigned long long call)
{
    for (const int known :
         {SYS_read,   SYS_write, SYS_open,       SYS_openat, SYS_close,  SYS_lseek,    SYS_pread64,
          SYS_stat,   SYS_fstat, SYS_newfstatat, SYS_fsync,  SYS_rename, SYS_renameat, SYS_fchmod,
          SYS_fchown, SYS_flock, SYS_readlink,   SYS_getcwd, SYS_fcntl,  SYS_writev,   SYS_readv})
        if (call == static_cast<unsigned long long>(known))
            return true;
    return false;
}

// Runs the child with its call number `target` on files failing for lack of space. Returns its exit
// status, or -1 when it has fewer such calls.
int run_with_failure(pid_t child, int target)
{
    int calls = 0;
    int status = 0;
    for (bool failed = false;;) {
        status = next_stop(child);
        if (is_over(status))
            return failed ? WEXITSTATUS(status) + 1000 * WIFSIGNALED(status) : -1;
        user_regs_struct registers;
        ptrace(PTRACE_GETREGS, child, nullptr, &registers);
        const bool fails = concerns_files(registers.orig_rax) && ++calls == target;
        if (fails) {
            registers.orig_rax = ~0ULL; // the call is not carried out
            ptrace(PTRACE_SETREGS, child, nullptr, &registers);
        }
        status = next_stop(child);
        if (is_over(status))
            return failed ? WEXITSTATUS(status) + 1000 * WIFSIGNALED(status) : -1;
        if (fails) {
            ptrace(PTRACE_GETREGS, child, nullptr, &registers);
            registers.rax = static_cast<unsigned long long>(-ENOSPC);
            ptrace(PTRACE_SETREGS, child, nullptr, &registers);
            failed = true;
        }
    }
}

} // namespace

TEST_F(InterruptedPackage, IsWholeAndToldOfWhicheverSystemCallFails)
{
    int told = 0;
    for (int call = 1;; ++call) {
        const pid_t child = start_watched(path, file);
        if (child < 0)
            GTEST_SKIP() << "processes cannot be watched here";
        const int status = run_with_failure(child, call);
        const bool isNew = expect_whole(call);
        if (status == -1)
            break;
        EXPECT_TRUE(status == 0 || status == 1) << "call " << call << ": " << status;
        EXPECT_EQ(isNew, status == 0) << "call " << call;
        told += status == 1;
    }
    EXPECT_GT(told, 10);
}

#endif
