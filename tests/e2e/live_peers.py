"""The looks: what the peers show, and what the agent shows between two looks of theirs."""

import contextlib
import json
import os
import pathlib
import re
import subprocess
import time

from harness import fetch

SECONDS = 10
# In which a peer has begun.
START_SECONDS = 0.2
PAGE_KBYTES = os.sysconf("SC_PAGE_SIZE") / 1024
TICKS = os.sysconf("SC_CLK_TCK")
PROCESSORS = os.cpu_count()
PROGRAMS = ("vmstat", "iostat", "mpstat", "prometheus-node-exporter", "ps", "ip", "ss", "df",
            "free", "lscpu")
# More than it tells by itself.
EXPORTER_OPTIONS = ("--collector.vmstat.fields=.*", "--collector.netstat.fields=.*")
PLAIN = {**os.environ, "LC_ALL": "C", "TZ": "UTC"}


def output(*words):
    """What a program prints. One that a signal ended, as ps now and then when processes end below it, is asked again."""
    for _ in range(3):
        done = subprocess.run(words, capture_output=True, text=True, check=False, env=PLAIN)
        if done.returncode >= 0:
            break
    done.check_returncode()
    return done.stdout


# The peers' counters by name.

def vmstat_counters():
    pairs = (line.strip().split(" ", 1) for line in output("vmstat", "-s").splitlines())
    return {name.strip(): float(value) for value, name in pairs}


def exporter_counters(address):
    counters = {}
    for line in fetch(f"http://{address}/metrics").splitlines():
        if line.startswith("node_"):
            name, value = line.rsplit(" ", 1)
            counters[name] = float(value)
    return counters


def interfaces():
    """What `ip -s -s -j link` shows, with the addresses."""
    return {link["ifname"]: link for link in json.loads(output("ip", "-s", "-s", "-j", "addr"))}


def socket_states():
    """How many sockets of TCP there are by ss's word of their state."""
    counts = {}
    for line in output("ss", "-Htan").splitlines():
        state = line.split()[0]
        counts[state] = counts.get(state, 0) + 1
    return counts


def socket_summary():
    """The table of `ss -s`: of each kind how many in all, over IPv4 and over IPv6."""
    rows = re.findall(r"^(RAW|UDP|TCP|FRAG)\s+(\d+)\s+(\d+)\s+(\d+)", output("ss", "-s"), re.M)
    return {kind: tuple(map(int, counts)) for kind, *counts in rows}


def memory():
    """By row and column of free, in bytes."""
    lines = [line.split() for line in output("free", "-b", "-w").splitlines()]
    return {(line[0].rstrip(":"), name): int(value)
            for line in lines[1:] for name, value in zip(lines[0], line[1:])}


def processes():
    """By number: parent, user, niceness, sizes in Kbytes, class, state, age in seconds, threads,
    processor, real user, seconds of the processors and name."""
    rows = {}
    columns = ("pid=,ppid=,euid=,ni=,vsz=,rss=,cls=,state=,etimes=,nlwp=,psr=,ruser:32=,cputimes=,"
               "comm=")
    for line in output("ps", "-eo", columns).splitlines():
        (pid, ppid, user, nice, virtual, resident, kind, state, age, threads, processor, real_user,
         seconds, name) = line.split(None, 13)
        rows[int(pid)] = {"ppid": int(ppid), "user": int(user), "nice": nice,
                          "name": name.removesuffix(" <defunct>"), "virtual": int(virtual),
                          "resident": int(resident), "class": kind, "state": state, "age": int(age),
                          "threads": int(threads), "processor": int(processor),
                          "real user": real_user, "seconds": int(seconds)}
    return rows


def command_lines():
    pairs = (line.split(None, 1) for line in output("ps", "-ww", "-eo", "pid=,args=").splitlines())
    return {int(pid): words for pid, words in pairs}


def process_files(pids):
    """The texts of files of each process, the number of its open files and the place of its
    program; None for what may not be read."""
    found = {}
    for pid in pids:
        folder = pathlib.Path(f"/proc/{pid}")
        texts = {name: None for name in ("open", "exe")}
        for name in ("io", "status", "schedstat", "oom_score", "oom_score_adj", "wchan", "cgroup"):
            texts[name] = None
            with contextlib.suppress(OSError):
                texts[name] = (folder / name).read_text(errors="replace")
        with contextlib.suppress(OSError):
            texts["open"] = len(os.listdir(folder / "fd"))
        with contextlib.suppress(OSError):
            texts["exe"] = os.readlink(folder / "exe")
        if texts["status"] is not None:
            found[pid] = texts
    return found


def settled(name):
    """A worker of the kernel tells in its name what it works at just now."""
    return re.split(r"[-+]", name)[0] if name.startswith("kworker/") else name


def numbers_of(text):
    """The numbers behind the words of a text such as /proc/PID/io."""
    return {key: int(value) for key, value in re.findall(r"^(\w+):\s+(\d+)", text, re.M)}


def process_io(files):
    """syscr, syscw and the like of each process that shows them."""
    return {pid: numbers_of(texts["io"]) for pid, texts in files.items() if texts["io"]}


def process_switches(files):
    """How often each process has been given up or taken a processor: while the count stands, its
    state does."""
    return {pid: re.findall(r"ctxt_switches:\t(\d+)", texts["status"])
            for pid, texts in files.items()}


def file_systems():
    rows = {}
    lines = output("df", "-B1", "--output=source,fstype,size,used,avail,pcent,target").splitlines()
    for line in lines[1:]:
        source, kind, size, used, free, percent, target = line.split(None, 6)
        rows[target] = {"source": source, "type": kind, "size": int(size), "used": int(used),
                        "free": int(free), "percent": percent.rstrip("%")}
    return rows


class Counters:
    """One look of the peers whose counters become rates."""

    def __init__(self, exporter, group, is_end=False):
        # The exporter's answer goes through the loopback interface: that is to be no traffic of
        # the time between two looks.
        if is_end:
            self.take_counters(group)
        self.exporter = exporter_counters(exporter)
        if not is_end:
            self.take_counters(group)

    def take_counters(self, group):
        self.at = time.monotonic()
        self.links = interfaces()
        self.group = group.figures()
        self.forks = vmstat_counters()["forks"]

    def told(self, *names):
        """The sum of those of the exporter's figures that it has; None if it has none."""
        found = [self.exporter[name] for name in names if name in self.exporter]
        return sum(found) if found else None

    def labels(self, metric):
        """The labels of each sample of a metric."""
        return [dict(re.findall(r'(\w+)="((?:[^"\\]|\\.)*)"', name))
                for name in self.exporter if name.startswith(metric + "{")]


class Peers(Counters):
    """One look of all peers."""

    def __init__(self, exporter, group):
        super().__init__(exporter, group)
        self.vmstat = vmstat_counters()
        self.states = socket_states()
        self.sockets = socket_summary()
        self.memory = memory()
        self.processes = processes()
        self.commands = command_lines()
        self.files = process_files(self.processes)
        self.io = process_io(self.files)
        self.switches = process_switches(self.files)
        self.mounts = file_systems()
        self.pressure = {path.name: path.read_text() for path in
                         pathlib.Path("/proc/pressure").glob("*")}


class Look:
    """One look of the agent, with the peers' just before and just after it."""

    RECORDS = ("PI", "DEVD", "NIND", "PD", "FSL", "FSR", "NETD", "SOCK", "DISK", "MEMD", "PRES",
               "CPUX", "CGRP", "HOST", "PDX")

    def __init__(self, agent, exporter, group):
        self.group = group
        self.observers = (os.getpid(), agent.process.pid)
        self.before = Peers(exporter, group)
        self.rows = {result["record"]: result["rows"]
                     for result in agent.ask("get", *self.RECORDS, "--raw")}
        self.after = Peers(exporter, group)

    def keyed(self, record, label):
        return {row[label]: row for row in self.rows[record]}


@contextlib.contextmanager
def watcher(words):
    """A program whose output is read; it ends with the block."""
    with subprocess.Popen(words, stdout=subprocess.PIPE, text=True, env=PLAIN) as program:
        try:
            yield program
        finally:
            program.kill()


class Rates:
    """What the agent and the peers say of the same seconds as rates."""

    RECORDS = ("PI", "DEVD", "NETD", "SOCK", "DISK", "MEMD", "PRES", "CPUX", "CGRP")
    WATCHERS = (("vmstat", str(SECONDS), "2"),
                ("iostat", "-x", "-d", "-y", "-o", "JSON", str(SECONDS), "1"),
                ("mpstat", "-P", "ALL", "-o", "JSON", str(SECONDS), "1"))

    def __init__(self, agent, exporter, group):
        self.group = group
        # What they read of a disk is to be in memory: a read in their seconds alone changes a mean of few.
        with contextlib.ExitStack() as warming:
            for each in [warming.enter_context(watcher(["1" if word == str(SECONDS) else word for word in words]))
                         for words in self.WATCHERS]:
                each.communicate()
        self.before = Counters(exporter, group)
        # The client's start is in nobody's seconds, as the peers begin when the agent has looked; one
        # look of the agent is in its own and one in theirs.
        with agent.watch(self.RECORDS, SECONDS) as sample, contextlib.ExitStack() as watching:
            sample()
            watchers = [watching.enter_context(watcher(words)) for words in self.WATCHERS]
            time.sleep(START_SECONDS)
            self.within = Counters(exporter, group, is_end=True)
            results = sample()
            self.after = Counters(exporter, group, is_end=True)
            texts = [each.communicate()[0] for each in watchers]
        self.seconds = self.after.at - self.before.at
        time_of = "node_time_seconds"
        self.exporter_seconds = self.after.exporter[time_of] - self.before.exporter[time_of]
        self.seconds_within = self.after.at - self.within.at
        self.forks_per_second = (self.after.forks - self.before.forks) / self.seconds
        self.rows = {result["record"]: result["rows"] for result in results}
        lines = [line.split() for line in texts[0].splitlines()]
        self.vmstat = dict(zip(lines[1], map(float, lines[3])))
        disks, processors = (json.loads(text)["sysstat"]["hosts"][0]["statistics"][0]
                             for text in texts[1:])
        self.iostat = {disk["disk_device"]: disk for disk in disks["disk"]}
        self.mpstat = {one["cpu"]: one for one in processors["cpu-load"]}

    def keyed(self, record, label):
        return {row[label]: row for row in self.rows[record]}
