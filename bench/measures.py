"""What the parts of bench/compare share: programs that run beside each other, live processes, what programs have
used of processor and memory, and tables of ratios.

CPU time is that of a program with all processes that it started, user and system: of the living by their clocks, of
those that have ended from /proc/PID/stat, in steps of 10 ms. Memory is that of the same processes, from smaps_rollup:
resident, and as a share (PSS), where a page that n processes map counts 1/n.
"""

import configparser
import ctypes
import json
import os
import pathlib
import select
import signal
import socket
import statistics
import subprocess
import sys
import time
import urllib.request

SOURCE = pathlib.Path(__file__).resolve().parents[1]
ANSWER_SECONDS = 60
STOP_SECONDS = 20
PR_SET_PDEATHSIG = 1
LIBC = ctypes.CDLL(None)
TICKS = os.sysconf("SC_CLK_TCK")

PROCESS_RECORDS = ("PD", "PDI", "PDS", "PGM", "TERM", "USER", "WGRP")


def packaged_records():
    """Those that the packaged settings schedule under the host profile `modern`."""
    ini = configparser.ConfigParser(interpolation=None)
    ini.optionxform = str
    ini.read_string((SOURCE / "packaging/qmtagt.ini").read_text())
    return tuple(ini["Schedule"])


MODERN = packaged_records()
HOST_RECORDS = tuple(record for record in MODERN if record not in ("WGRP", "PDS", "PDX", "PDI"))
CLASSIC = ("PI", "CPUP", "DEVD", "NIND", "WGRP", "PDS", "FSL", "PDI")


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def dies_with_parent():
    LIBC.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)


def wait_for(condition, seconds=ANSWER_SECONDS, pause=0.1):
    """What the condition returns once it raises nothing."""
    end = time.monotonic() + seconds
    while True:
        try:
            return condition()
        except (OSError, ValueError, KeyError, IndexError) as error:
            if time.monotonic() > end:
                raise RuntimeError(f"a program does not answer within {seconds} s: {error}") from error
        time.sleep(pause)


def fetch(address, path="/metrics"):
    """How many bytes the answer has."""
    with urllib.request.urlopen(f"http://{address}{path}", timeout=30) as answer:
        return len(answer.read())


def knows_children():
    """Whether the kernel tells what a process has started; without that, `tree` has the process alone."""
    pid = os.getpid()
    return pathlib.Path(f"/proc/{pid}/task/{pid}/children").exists()


def tree(pid):
    """The process and all that it started, as far as they live. Needs a kernel that tells them (`knows_children`)."""
    found = [pid]
    for one in found:
        try:
            for task in pathlib.Path(f"/proc/{one}/task").iterdir():
                found += map(int, (task / "children").read_text().split())
        except OSError:
            continue
    return found


def cpu_seconds(pid):
    """Of the process, all its threads, also those that have ended, and all that it started."""
    total = 0.0
    for one in tree(pid):
        try:
            # The clock of another process, as clock_getcpuclockid(3) makes its number.
            total += time.clock_gettime((~one << 3) | 2)
            ended = pathlib.Path(f"/proc/{one}/stat").read_text().rpartition(")")[2].split()[13:15]
            total += sum(map(int, ended)) / TICKS
        except OSError:
            continue
    return total


def megabytes(pid, *wanted):
    """Sums over the process and all that it started: `Rss` or `Pss`, as smaps_rollup names them."""
    sums = dict.fromkeys(wanted, 0.0)
    for one in tree(pid):
        try:
            lines = pathlib.Path(f"/proc/{one}/smaps_rollup").read_text().splitlines()
        except OSError:
            continue
        for line in lines:
            key = line.partition(":")[0]
            if key in sums:
                sums[key] += int(line.split()[1]) / 1024
    return tuple(sums.values())


class Program:
    """A program that goes on by itself; it ends with this one at the latest."""

    def __init__(self, words, folder, env=None, stdin=subprocess.DEVNULL):
        self.folder = folder
        folder.mkdir(parents=True, exist_ok=True)
        self.process = subprocess.Popen(words, cwd=folder, env=env, stdin=stdin,
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                        preexec_fn=dies_with_parent)
        # It returns once the program has taken the place of this one.
        self.started = time.perf_counter()
        self.asked_to_end = None
        self.pid = self.process.pid

    def stop(self):
        """Asks it to end, and makes it."""
        self.terminate()
        self.wait()

    def terminate(self):
        if self.asked_to_end is None:
            self.asked_to_end = time.perf_counter()
        self.process.terminate()

    def ran(self):
        """Seconds from its start until it was asked to end."""
        return self.asked_to_end - self.started

    def wait(self):
        try:
            self.process.wait(STOP_SECONDS)
        except subprocess.TimeoutExpired:
            print(f"compare: {self.process.args[0]} does not end", file=sys.stderr)
            self.process.kill()
            self.process.wait(STOP_SECONDS)

    def cpu(self):
        return cpu_seconds(self.pid)

    def memory(self):
        return megabytes(self.pid, "Rss", "Pss")


def stop_all(programs):
    programs = list(programs)
    for one in programs:
        one.terminate()
    for one in programs:
        one.wait()


class Once:
    """A program that is started for each sample."""

    def __init__(self, words, folder=None, env=None):
        self.words = words
        self.folder = folder
        self.env = env

    def start(self):
        return subprocess.Popen(self.words, cwd=self.folder, env=self.env, stdin=subprocess.DEVNULL,
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def sample(self):
        """Seconds of CPU and of time."""
        begin = time.perf_counter()
        process = self.start()
        try:
            _, status, usage = os.wait4(process.pid, 0)
            process.returncode = os.waitstatus_to_exitcode(status)
        finally:
            if process.returncode is None:
                process.kill()
        if process.returncode != 0:
            raise RuntimeError(f"{self.words[0]} ends with {process.returncode}")
        return usage.ru_utime + usage.ru_stime, time.perf_counter() - begin

    def memory(self):
        """The most that is seen while it runs; what wait4 tells has the memory of its parent in it."""
        process = self.start()
        most = (0.0, 0.0)
        try:
            while process.poll() is None:
                most = max(most, megabytes(process.pid, "Rss", "Pss"))
                time.sleep(0.001)
        finally:
            process.kill()
            process.wait(STOP_SECONDS)
        return most


def settings(schedule, *, source="proc", history="", node="Http Listen =", more=""):
    """The lines of settings; the schedule has the seconds by record."""
    return (f"[Node]\n{node}\nHistory File = {history}\n{more}[Host]\nProcess Source = {source}\n[Schedule]\n"
            + "".join(f"{record} = {seconds}\n" for record, seconds in schedule.items()))


class Agent(Program):
    def __init__(self, build, folder, ini, profile="modern", waits=True):
        """`ini` are the lines of its settings. Who does not wait calls `ready` later."""
        self.control = build / "client/qmtctl"
        self.ini = ini
        home = folder / "opt/qmtrx/mond/agent"
        (home / "log").mkdir(parents=True)
        (home / "wgfile").write_text("workgroup = root\nusers = root\n")
        (home / "qmtagt.ini").write_text(ini)
        for helper in ("qmt_hostutil", "qmt_ufss"):
            (home / helper).symlink_to(build / "helpers" / helper)
        super().__init__([build / "agent/qmtdmon"], home,
                         {**os.environ, "QMT_PRODUCT_ROOT": str(folder), "QMT_HOST_PROFILE": profile})
        if waits:
            self.ready()

    def ready(self):
        """Waits until it answers as it is asked to; ends it where it does not."""
        try:
            facts = wait_for(self.status)["facts"]
            if "Process Source = iterator" in self.ini and facts["process_source"] != "iterator":
                raise RuntimeError(f"the agent goes without the task iterator: {facts['process_source_reason']}")
            if "Listen = 1" in self.ini:
                self.address = wait_for(self.listening)
        except BaseException:
            self.stop()
            raise

    def listening(self):
        if address := self.status()["http"]:
            return address
        raise ValueError("the gate does not listen yet")

    def gate(self):
        """The number of the gate's process."""
        for one in tree(self.pid):
            if pathlib.Path(f"/proc/{one}/comm").read_text().strip() == "qmt_gate":
                return one
        raise RuntimeError("the daemon has no gate")

    def ask(self, question):
        """All bytes that the control socket answers to the question. No client is started for it, so that many agents
        are asked in some milliseconds."""
        with socket.socket(socket.AF_UNIX) as peer:
            peer.settimeout(ANSWER_SECONDS)
            peer.connect(str(self.folder / "run/control.sock"))
            peer.sendall(json.dumps(question).encode() + b"\n")
            parts = bytearray()
            while not parts.endswith(b"\n"):
                part = peer.recv(1 << 20)
                if not part:
                    raise OSError("the daemon hangs up")
                parts += part
        if not parts.startswith(b'{"ok":true') and not json.loads(parts)["ok"]:
            raise OSError("the daemon refuses")
        return parts

    def rows(self, records):
        """How many bytes the answer to a question for rows has."""
        return len(self.ask({"op": "get", "records": records}))

    def status(self):
        return json.loads(self.ask({"op": "status"}))["status"]

    def runs(self):
        """How often that of its schedules has run which runs most often."""
        return max(entry["runs"] for entry in self.status()["schedules"])


def process_count():
    return sum(entry.name.isdigit() for entry in pathlib.Path("/proc").iterdir())


class Load:
    """Makes up the live processes to a number, with sleeping ones."""

    def __init__(self, build, population):
        self.process = None
        missing = population - process_count()
        if missing <= 0:
            return
        self.process = subprocess.Popen([build / "bench/qmt_process_load", str(missing)], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, preexec_fn=dies_with_parent)
        ready, _, _ = select.select([self.process.stdout], [], [], ANSWER_SECONDS)
        if not ready or self.process.stdout.readline().strip() != b"ready":
            self.stop()
            raise RuntimeError(f"this machine has no room for {population} processes")

    def stop(self):
        if self.process is None:
            return
        self.process.stdin.close()
        try:
            self.process.wait(ANSWER_SECONDS)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait(STOP_SECONDS)


def align(interval, part):
    """Waits until this part of an interval of the wall clock has passed.

    The agent takes its samples in the middle of a second, others at times that go by their start, netdata's when a
    second begins."""
    time.sleep((part * interval - time.time()) % interval)


def median(values):
    return statistics.median(values)


def spread(values, digits=2):
    """The median, with the least and the most."""
    return f"{median(values):.{digits}f} ({min(values):.{digits}f} to {max(values):.{digits}f})"


def ratios(turns, name, peer):
    """Of the turns in which the peer has something."""
    return [each[name] / each[peer] for each in turns if each[peer] > 0]


def ratio(turns, name, peer):
    values = ratios(turns, name, peer)
    return spread(values) + of_turns(values, len(turns)) if values else "-"


def of_turns(values, turns):
    """How many turns there is a value of, where that is not all of them."""
    return f", {len(values)} of {turns} turns" if len(values) < turns else ""


def table(head, rows):
    print("\n| " + " | ".join(head) + " |\n|" + "---|" * len(head))
    for row in rows:
        print("| " + " | ".join(row) + " |")
    print(flush=True)


def work(lines):
    """What each does, in a line each."""
    print("".join(f"- {name}: {what}\n" for name, what in lines.items()))


class Aims:
    """What was wanted, beside what was measured in so many turns."""

    def __init__(self, turns):
        self.turns = turns
        self.rows = []

    def add(self, what, aim, values):
        if values:
            met = "met" if median(values) <= aim else "missed"
            self.rows.append((what, f"{aim:g}", spread(values) + of_turns(values, self.turns), met))
        else:
            self.rows.append((what, f"{aim:g}", "-", "not measured"))

    def are_measured(self):
        return bool(self.rows) and all(row[-1] != "not measured" for row in self.rows)

    def tell(self):
        if self.rows:
            print("\n### Aims")
            table(("", "aim", "measured", ""), self.rows)
