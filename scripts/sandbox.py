"""The common part of scripts/faults and scripts/signals: a suite to run, places to run it in, and
the search for files and processes that a run leaves behind.

A place is a worker process with a directory of its own, in which every run begins alike, and, where
the system allows it (mount namespaces), a /tmp of its own. Each worker is the leader of a session
and has a supervisor above it. The system gives the supervisor the processes that outlive a run. So
they are noticed, and a stopped process that nobody waits for is treated as under a shell.
"""
import ctypes
import multiprocessing
import os
import pathlib
import re
import resource
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
VERSION = "v2.32"
TMP = pathlib.Path("/tmp")

PR_SET_PDEATHSIG = 1
PR_SET_CHILD_SUBREAPER = 36
CLONE_NEWNS = 0x00020000
CLONE_NEWUSER = 0x10000000
MS_PRIVATE_ALL = 0x4000 | 1 << 18  # MS_REC | MS_PRIVATE

PF_EXITING = 4
ENDING = sum(1 << number - 1 for number in (
    signal.SIGHUP, signal.SIGINT, signal.SIGQUIT, signal.SIGKILL, signal.SIGTERM))

FORK = multiprocessing.get_context("fork")
LIBC = ctypes.CDLL(None, use_errno=True)

# One device of each family: enough for the self-test to build something with every tool.
DEVICES = ("10z00", "18z10", "elmbig1")
DEVICE_LIST = """<?xml version="1.0" encoding="UTF-8"?>
<deviceSupport>
  <family name="ORB">
    <device name="{}"/>
    <device name="{}"/>
  </family>
  <family name="ELM">
    <device name="{}"/>
  </family>
</deviceSupport>
"""


# ---- The suite ----------------------------------------------------------------------------------

def stage(build, into):
    """Installs the program and the sample suite of a build directory as `into`/v2.32."""
    suite = into / VERSION
    for component in ([], ["--component", "sample"]):
        subprocess.run(["cmake", "--install", build, "--prefix", suite] + component, check=True,
                       stdout=subprocess.DEVNULL)
    return suite

# Replaces a compiler that is asked for its devices.
SHORT_LIST = """#!/bin/sh
case "$1" in
--chipinforaw|--target-help) exec "$0.all" "$@" | grep -w -e {} ;;
*) exec "$0.all" "$@" ;;
esac
"""


def shorten(suite):
    """Leaves the suite one device of each family, and a hash list that no longer fits: one file is
    changed afterwards, and one is added."""
    (suite / "bin/deviceSupport.xml").write_text(DEVICE_LIST.format(*DEVICES))
    for name in ("orb/bin/orbc", "orb/bin/orbc18", "elm/bin/elm-gcc"):
        compiler = suite / name
        compiler.rename(f"{compiler}.all")
        compiler.write_text(SHORT_LIST.format(" -e ".join(DEVICES)))
        compiler.chmod(0o755)
    subprocess.run([suite / "bin/qzm-cc", "--selfinit"], check=True, stdout=subprocess.DEVNULL)
    with open(suite / "orb/include/qz.h", "a", encoding="utf-8") as header:
        header.write("/* changed */\n")
    (suite / "orb/include/extra.h").write_text("/* added */\n")


# ---- A run --------------------------------------------------------------------------------------

class Outcome:
    """How a run ended."""

    def __init__(self, status, hung, survivors, out, err):
        self.status = status        # as subprocess has it: negative when a signal killed it
        self.hung = hung            # the processes that had to be killed, or nothing
        self.survivors = survivors  # names of the processes that it left behind, killed by now
        self.out = out
        self.err = err


class Place:
    """The place of a worker: `root` with the suites and the directory `work`."""

    def __init__(self, root, supervisor, own_tmp):
        self.root = root
        self.work = root / "work"
        self.own_tmp = own_tmp
        self._supervisor = supervisor
        self._before = set()

    def begin(self, files):
        """Leaves only these files (name: bytes) in `work`, and nothing in /tmp."""
        shutil.rmtree(self.work, ignore_errors=True)
        self.work.mkdir()
        for name, content in files.items():
            (self.work / name).write_bytes(content)
        if self.own_tmp:
            for entry in os.scandir(TMP):
                if entry.is_dir(follow_symlinks=False):
                    shutil.rmtree(entry.path)
                else:
                    os.unlink(entry.path)
        self._before = self._temporary()

    def _temporary(self):
        names = set(os.listdir(TMP))
        return names if self.own_tmp else {name for name in names if name.startswith("qz")}

    def temporary(self):
        """The names that the run left in /tmp."""
        return sorted(self._temporary() - self._before)

    def start(self, command):
        """Starts the command in `work`, in a process group of its own."""
        with open(self.root / "stdout", "wb") as out, open(self.root / "stderr", "wb") as err:
            return subprocess.Popen(command, cwd=self.work, stdin=subprocess.DEVNULL, stdout=out,
                                    stderr=err, process_group=0)

    def finish(self, process, limit):
        """Waits for what was started, `limit` seconds at the most."""
        hung = None if wait(process, limit) else members(process.pid)
        if hung:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()
        return Outcome(process.returncode, hung, self._end_survivors(),
                       (self.root / "stdout").read_bytes(), (self.root / "stderr").read_bytes())

    def _left(self):
        children = pathlib.Path(f"/proc/{self._supervisor}/task/{self._supervisor}/children")
        return [int(pid) for pid in children.read_text().split() if int(pid) != os.getpid()]

    def _end_survivors(self):
        names = set()
        while pids := self._left():
            for pid in pids:
                try:
                    if not is_ending(pid):
                        names.add(pathlib.Path(f"/proc/{pid}/comm").read_text().strip())
                    os.kill(pid, signal.SIGKILL)
                except OSError:
                    pass  # it has just ended
            time.sleep(0.001)
        return sorted(names)

    def anonymous(self, content):
        """The bytes without the parts that differ from run to run and place to place."""
        content = content.replace(os.fsencode(self.root), b"{ROOT}")
        return re.sub(rb"\bqz\w{7}\b", b"{TMP}", content)


def wait(process, limit):
    """Whether the process ends in time. (Popen.wait() with a limit sleeps up to 50 ms too long.)"""
    if process.poll() is not None:
        return True
    descriptor = os.pidfd_open(process.pid)
    try:
        poll = select.poll()
        poll.register(descriptor, select.POLLIN)
        if not poll.poll(limit * 1000):
            return False
    finally:
        os.close(descriptor)
    process.wait()
    return True


def members(group):
    """The processes of a group, each with its state."""
    found = []
    for path in pathlib.Path("/proc").glob("[0-9]*/stat"):
        try:
            front, _, back = path.read_text().rpartition(")")
        except OSError:
            continue  # it has ended
        state, _, its_group = back.split()[:3]
        if int(its_group) == group:
            found.append(f"{front.partition('(')[2]} {state}")
    return ", ".join(sorted(found)) or "nobody"


def is_ending(pid):
    """Whether a process is already ending, or a signal that it does not handle is pending for it."""
    fields = dict(line.split(":\t", 1) for line in
                  pathlib.Path(f"/proc/{pid}/status").read_text().splitlines())
    flags = int(pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[6])
    pending = int(fields["SigPnd"], 16) | int(fields["ShdPnd"], 16)
    handled = int(fields["SigBlk"], 16) | int(fields["SigIgn"], 16) | int(fields["SigCgt"], 16)
    return fields["State"][0] in "ZX" or flags & PF_EXITING != 0 or pending & ~handled & ENDING != 0


# ---- Workers ------------------------------------------------------------------------------------

def _enter_namespace():
    """Gives this process a /tmp of its own. Returns whether that was possible."""
    user, group = os.getuid(), os.getgid()
    if LIBC.unshare(CLONE_NEWNS) != 0:
        if LIBC.unshare(CLONE_NEWNS | CLONE_NEWUSER) != 0:
            return False
        for name, text in (("setgroups", "deny"), ("uid_map", f"{user} {user} 1"),
                           ("gid_map", f"{group} {group} 1")):
            pathlib.Path("/proc/self", name).write_text(text)
    if LIBC.mount(b"none", b"/", None, MS_PRIVATE_ALL, None) != 0:
        return False
    return LIBC.mount(b"none", b"/tmp", b"tmpfs", 0, None) == 0


def _work(work, root, suites, supervisor, own_tmp, tasks, results):
    signal.signal(signal.SIGTERM, signal.SIG_DFL)
    LIBC.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)
    os.setsid()
    signal.signal(signal.SIGCHLD, signal.SIG_DFL)
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    root.mkdir()
    for name, suite in suites.items():
        shutil.copytree(suite, root / name / VERSION, symlinks=True)
    place = Place(root, supervisor, own_tmp)
    while (task := tasks.get()) is not None:
        results.put((task, work(place, task)))


def _supervise(*task):
    signal.signal(signal.SIGTERM, signal.SIG_DFL)
    LIBC.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)
    LIBC.prctl(PR_SET_CHILD_SUBREAPER, 1)
    signal.signal(signal.SIGCHLD, signal.SIG_IGN)  # nobody waits for processes that outlive a run
    work, root, suites, own_tmp, tasks, results = task
    own_tmp = own_tmp and _enter_namespace()
    supervisor = os.getpid()
    worker = os.fork()
    if worker == 0:
        status = 1
        try:
            _work(work, root, suites, supervisor, own_tmp, tasks, results)
            status = 0
        except Exception as error:  # pylint: disable=broad-except
            results.put((None, f"{type(error).__name__}: {error}"))
        finally:
            os._exit(status)
    try:
        os.waitpid(worker, 0)
    except ChildProcessError:
        pass


def _has_namespaces():
    process = FORK.Process(target=lambda: sys.exit(not _enter_namespace()))
    process.start()
    process.join()
    return process.exitcode == 0


class Pool:
    """Workers that call `work(place, task)` for tasks; a context, in which `suites` (name:
    directory) are staged in every place."""

    def __init__(self, jobs, suites, work):
        own_tmp = _has_namespaces()
        self.jobs = jobs if own_tmp else 1
        # Not below /tmp, which the workers do not see.
        self._scratch = pathlib.Path(tempfile.mkdtemp(dir="/var/tmp", prefix="qzm-runs-"))
        self._tasks = FORK.SimpleQueue()
        self._results = FORK.SimpleQueue()
        self._supervisors = [
            FORK.Process(target=_supervise, daemon=True, args=(
                work, self._scratch / f"{number}", suites, own_tmp, self._tasks, self._results))
            for number in range(self.jobs)]

    def __enter__(self):
        signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))  # past __exit__
        for supervisor in self._supervisors:
            supervisor.start()
        return self

    def __exit__(self, *_):
        for supervisor in self._supervisors:
            supervisor.kill()  # and with it its worker
            supervisor.join()
        shutil.rmtree(self._scratch, ignore_errors=True)

    def map(self, tasks):
        """Yields (task, result) for each task, in the order in which they are done."""
        tasks = iter(tasks)
        under_way = 0
        for _ in range(2 * self.jobs):
            under_way += self._hand_out(tasks)
        while under_way > 0:
            task, result = self._results.get()
            if task is None:
                raise RuntimeError(f"a worker ended: {result}")
            under_way += self._hand_out(tasks) - 1
            yield task, result

    def _hand_out(self, tasks):
        task = next(tasks, None)
        if task is not None:
            self._tasks.put(task)
        return task is not None
