"""Live processes of many kinds, which the two sources of processes are compared by."""

import ctypes
import errno
import fcntl
import mmap
import os
import pathlib
import pty
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import termios
import threading
import time

LIBC = ctypes.CDLL(None, use_errno=True)
SET_NAME = 15
KEEP_SECONDS = "900"
USER, GROUP = 61001, 62001
PAGE = mmap.PAGESIZE


def rename(name):
    LIBC.prctl(SET_NAME, name, 0, 0, 0)


def burn(seconds):
    end = time.thread_time() + seconds
    while time.thread_time() < end:
        os.getppid()


def threads_of_all_ages():
    """Some wait, and some have ended with times, faults and bytes that stay with the process."""
    def work():
        burn(0.03)
        pathlib.Path("/proc/self/status").read_text(encoding="utf-8", errors="replace")
        bytearray(1 << 20)
    for _ in range(4):
        done = threading.Thread(target=work)
        done.start()
        done.join()
    for _ in range(5):
        threading.Thread(target=signal.pause, daemon=True).start()


def leader_ended():
    threading.Thread(target=time.sleep, args=(float(KEEP_SECONDS),)).start()
    burn(0.02)
    LIBC.pthread_exit(None)


def threads_come_and_go():
    def churn():
        while True:
            each = threading.Thread(target=burn, args=(0.0005,))
            each.start()
            each.join()
            time.sleep(0.01)
    threading.Thread(target=churn, daemon=True).start()


def bad_name():
    rename(b"a b) (\xff\xc3\xa4 R")


def blanks_at_end():
    rename(b" \n\t) S 1 2 ")


def all_ids_differ():
    os.setgroups([GROUP + 9, GROUP + 8])
    os.setresgid(GROUP, GROUP + 1, GROUP + 2)
    os.setresuid(USER, USER + 1, USER + 2)


def greatest_ids():
    os.setresgid(2**32 - 2, 2**32 - 2, 2**32 - 2)
    os.setresuid(2**32 - 2, 2**31, 2**31 + 1)


def traced():
    LIBC.ptrace(0, 0, None, None)
    os.kill(os.getpid(), signal.SIGSTOP)


def of_terminal():
    leader, follower = pty.openpty()
    os.setsid()
    fcntl.ioctl(follower, termios.TIOCSCTTY, 0)
    os.close(leader)


def background_of_terminal():
    """In a group that is not the terminal's foreground one."""
    _, follower = pty.openpty()
    os.setsid()
    fcntl.ioctl(follower, termios.TIOCSCTTY, 0)
    if os.fork() == 0:
        os.setpgid(0, 0)


def memory_of_kinds():
    held = [mmap.mmap(-1, 24 << 20, mmap.MAP_PRIVATE | mmap.MAP_ANONYMOUS), mmap.mmap(-1, 6 << 20)]
    with tempfile.TemporaryFile() as file:
        file.truncate(5 << 20)
        held.append(mmap.mmap(file.fileno(), 5 << 20))
    for each in held:
        for place in range(0, len(each), PAGE):
            each[place] = 1
    # The most stays behind what is resident.
    held[0].close()
    globals()["held"] = held


def locked_memory():
    held = mmap.mmap(-1, 1 << 20, mmap.MAP_PRIVATE | mmap.MAP_ANONYMOUS)
    LIBC.mlockall(3)
    globals()["held"] = held


def input_and_output():
    with tempfile.TemporaryFile(dir=os.getcwd()) as file:
        for _ in range(50):
            file.write(b"x" * 20_000)
        file.flush()
        os.fsync(file.fileno())
        file.write(b"y" * 400_000)
        file.flush()
        # What was to be written and no longer is.
        file.truncate(0)
        file.seek(0)
        file.read(100)


def children_waited_for():
    for _ in range(3):
        child = os.fork()
        if child == 0:
            burn(0.03)
            os._exit(0)
        os.waitpid(child, 0)


def many_descriptors():
    globals()["held"] = [os.open("/dev/null", os.O_RDONLY) for _ in range(300)]


def small_limits():
    resource.setrlimit(resource.RLIMIT_NOFILE, (123, 456))
    resource.setrlimit(resource.RLIMIT_CPU, (1000, 2000))
    resource.setrlimit(resource.RLIMIT_STACK, (1 << 20, 1 << 24))


def score_adjusted():
    pathlib.Path("/proc/self/oom_score_adj").write_text("321", encoding="ascii")


def busy():
    def work():
        while True:
            burn(0.002)
            time.sleep(0.03)
    threading.Thread(target=work, daemon=True).start()


def policy(number, priority=0, nice=0):
    def change():
        os.nice(nice)
        os.sched_setscheduler(0, number, os.sched_param(priority))
    return change


FORKED = {
    "plain": lambda: None, "threads": threads_of_all_ages, "leader ended": leader_ended,
    "churn of threads": threads_come_and_go, "bad name": bad_name, "blanks": blanks_at_end,
    "ids": all_ids_differ, "greatest ids": greatest_ids, "traced": traced,
    "stopped": lambda: os.kill(os.getpid(), signal.SIGSTOP), "zombie": lambda: os._exit(3),
    "terminal": of_terminal, "background": background_of_terminal, "memory": memory_of_kinds,
    "locked": locked_memory, "input and output": input_and_output,
    "waited for": children_waited_for, "descriptors": many_descriptors, "limits": small_limits,
    "score": score_adjusted, "busy": busy, "nice": lambda: os.nice(7),
    "less nice": lambda: os.nice(-13), "round robin": policy(os.SCHED_RR, 5),
    "first in": policy(os.SCHED_FIFO, 99), "batch": policy(os.SCHED_BATCH, nice=3),
    "idle": policy(os.SCHED_IDLE), "group": os.setpgrp, "session": os.setsid,
}
# Programs, each with what it needs besides sleep.
PROGRAMS = (
    ("unshare", "--pid", "--fork", "--mount-proc"), ("unshare", "--user", "--map-root-user"),
    ("unshare", "--time", "--boottime", "100000", "--fork"), ("unshare", "--cgroup", "--net"),
    ("nice", "-n", "4"), ("setsid", "-w"), ("strace", "-o", "/dev/null", "-f"),
)
# What a process turns into when it is told to.
CHANGERS = (
    f"read x; exec sleep {KEEP_SECONDS} 0", f"read x; exec tail -f /dev/null '' \"a  b\" /dev/null",
    f"read x; ulimit -n 77; cd /usr; exec sleep {KEEP_SECONDS}", "read x; exit 4",
)


class Titled:
    """A process that writes a title over its arguments, as often as it is told to."""

    SCRIPT = """
import ctypes, sys
start, end = (int(word) for word in open("/proc/self/stat").read().rpartition(")")[2].split()[45:47])
for line in sys.stdin:
    ctypes.memmove(start, line.strip().encode().ljust(end - start, bytes(1)), end - start)
    print(flush=True)
"""

    def __enter__(self):
        self.process = subprocess.Popen([sys.executable, "-c", self.SCRIPT], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, text=True)
        self.pid = self.process.pid
        return self

    def write(self, title):
        self.process.stdin.write(f"{title}\n")
        self.process.stdin.flush()
        self.process.stdout.readline()

    def __exit__(self, *_):
        self.process.kill()
        self.process.communicate()


class Kinds:
    """They are there with the object; `sleepers` are alike and do nothing but be there."""

    def __init__(self, folder, count):
        self.folder = folder
        self.pids = []
        self.changers = []
        self.sleepers = []
        self.missing = []
        self.error = None
        try:
            self.make(count)
        except BaseException:
            self.end()
            raise

    def make(self, count):
        for name, become in FORKED.items():
            self.fork(name, become)
        for words in PROGRAMS:
            if shutil.which(words[0]) is None:
                self.missing.append(words[0])
                continue
            self.pids.append(self.spawn(*words, "sleep", KEEP_SECONDS))
        for script in CHANGERS:
            self.changers.append(subprocess.Popen(["/bin/sh", "-c", script], cwd=self.folder,
                                                  stdin=subprocess.PIPE,
                                                  stdout=subprocess.DEVNULL,
                                                  stderr=subprocess.DEVNULL))
        while len(self.sleepers) < count:
            try:
                self.sleepers.append(os.posix_spawn(
                    "/bin/sleep", ["sleep", KEEP_SECONDS, "0" * (1 + len(self.sleepers) % 1500)],
                    os.environ))
            except OSError as error:
                if error.errno != errno.EAGAIN:
                    raise
                self.error = error
                break

    def spawn(self, *words):
        done = subprocess.Popen(words, cwd=self.folder, stdin=subprocess.DEVNULL,
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                start_new_session=True)
        done.returncode = 0  # it is ended and waited for by its number
        return done.pid

    def fork(self, name, become):
        sys.stdout.flush()
        child = os.fork()
        if child != 0:
            self.pids.append(child)
            return
        try:
            os.chdir(self.folder)
            signal.signal(signal.SIGTERM, signal.SIG_DFL)
            rename(name.encode())
            become()
            while True:
                signal.pause()
        finally:
            os._exit(1)

    def change(self):
        """Other programs, names, priorities and states of processes that have been seen."""
        for each in self.changers:
            if each.stdin is not None:
                each.stdin.close()
                each.stdin = None
        for pid in self.sleepers[:8]:
            os.setpriority(os.PRIO_PROCESS, pid, 9)
        for pid in self.sleepers[8:12]:
            os.sched_setscheduler(pid, os.SCHED_FIFO, os.sched_param(3))
        for pid in self.sleepers[12:16]:
            os.kill(pid, signal.SIGSTOP)
        for pid in self.sleepers[16:20]:
            os.kill(pid, signal.SIGKILL)

    def end(self):
        for each in self.changers:
            each.kill()
            each.wait()
        for pid in self.pids:
            for child in children_of(pid):
                kill(child)
        for pid in self.pids + self.sleepers:
            kill(pid)
        for pid in self.pids + self.sleepers:
            os.waitpid(pid, 0)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.end()


def kill(pid):
    try:
        os.kill(pid, signal.SIGKILL)
    except ProcessLookupError:
        pass


def children_of(pid):
    """All below it."""
    try:
        own = [int(each) for each in pathlib.Path(
            f"/proc/{pid}/task/{pid}/children").read_text(encoding="ascii").split()]
    except OSError:
        return []
    return own + [below for each in own for below in children_of(each)]
