#!/usr/bin/env python3
"""The kernel's task iterator against /proc: two daemons, which read the same live processes from one and
from the other; a churn of short processes; streams that are none; processes that keep their readers waiting; and what
a batch costs by each.

  iterator.py BUILD_DIRECTORY [--processes NUMBER] [--churn SECONDS] [--cost SECONDS]
              [--only figures|churn|bad|exec|cost]...
"""

import argparse
import contextlib
import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import time

from gate_load import MORE_MEGABYTES, is_strict, is_timed, memory
from harness import Agent, client, fail, wait_for
from iterator_kinds import Kinds, Titled
from short_lives import Churn, Short
from silent_server import SilentServer, waiting_in_exec

VARIABLE = "QMT_TASK_ITERATOR"
RECORDS = ("PDI", "PD", "PDX")
SKIPPED = 77
OF_PROCESSES = ("PD", "PDI", "PDS", "PGM", "TERM", "USER", "WGRP")
LEAST_SLEEPERS = 300  # enough where the machine allows no more
TRIES = 6
CHURN_RATE = 1000
COST_RATE = 500
EXEC_SECONDS = 5
# Of the asking, or of what each daemon has seen before, or a quotient of two that are compared.
NOT_COMPARED = {"Record Type", "Record Time", "Interval", "Snapshot Time", "Start Time", "CPU %", "CPU % Each",
                "Run Delay %", "Avg I/O Kbytes"}
# The kernel tells a list as it is at that moment.
LISTS = {"Parent Process List", "Child Process List", "Blocked In"}
NAMES = {"Program", "Program/PID", "Name"}
# The two parts of a process's times may be a tick apart, shown in hundredths.
UNITS = {"User CPU": 0.0101, "System CPU": 0.0101, "User Seconds": 0.0101, "System Seconds": 0.0101}
FROM_PROC = "Processes are read from /proc"
KERNEL_PARENT = 2


class Place:
    """A BPF file system with the iterator in it. The daemons are given a link, which a test turns elsewhere."""

    def __init__(self, build, work):
        self.helper = build / "helpers/qmt_bpf"
        self.mount = work / "bpf"
        self.pin = self.mount / "agent/tasks"
        self.link = work / "tasks"
        self.mount.mkdir()
        self.turn(self.pin)
        os.environ[VARIABLE] = str(self.link)

    def turn(self, target):
        self.link.unlink(missing_ok=True)
        self.link.symlink_to(target)

    def __enter__(self):
        done = subprocess.run(["mount", "-t", "bpf", "bpf", self.mount], capture_output=True, text=True, check=False)
        if done.returncode != 0:
            skip(f"no BPF file system can be mounted: {done.stderr.partition(chr(10))[0]}")
        return self

    def load(self):
        done = subprocess.run([self.helper, "load", "--pin", self.pin.parent], capture_output=True, text=True,
                              check=False)
        if done.returncode != 0:
            # That the kernel refuses the program is the program's fault; all else is the machine's.
            (fail if "does not take the program" in done.stderr else skip)(done.stderr.strip())

    def unload(self):
        subprocess.run([self.helper, "unload", "--pin", self.pin.parent], check=True)

    def __exit__(self, *_):
        subprocess.run(["umount", "--lazy", self.mount], check=False)


def skip(reason):
    print(f"skipped: {reason}")
    sys.exit(SKIPPED)


def daemon(build, folder, source, schedule=""):
    folder.mkdir()
    return Agent(build, folder, f"modern\nProcess Source = {source}", schedule, gate="none")


def source(agent):
    """What the daemon reads processes from now, and why."""
    agent.ask("get", "PDI", "--raw")
    facts = agent.ask("status")["facts"]
    return facts["process_source"], facts["process_source_reason"]


def expect_source(agent, wanted, reason=""):
    told = source(agent)
    if told[0] != wanted or not re.search(reason, told[1]) or (wanted == "iterator" and told[1]):
        fail(f"the source is {told}, not {wanted!r} for {reason!r}")


# --- comparison ---


class Look:
    """The rows of one moment by one source: for each record, by process."""

    def __init__(self, agent, lists):
        self.rows = {}
        for answer in agent.ask("get", *RECORDS, "--raw"):
            rows = {}
            for row in answer["rows"]:
                if row["PID"] in rows:
                    lists.append(f"{answer['record']} {row['PID']}: is there twice")
                rows[row["PID"]] = row
            self.rows[answer["record"]] = rows


def is_same_process(rows):
    return all(row is not None and abs(row["Start Time"] - rows[0]["Start Time"]) <= 1 for row in rows)


def tidied(label, row, value):
    """What stands behind the name of a worker of the kernel may be that of an earlier work."""
    is_of_kernel = row.get("Parent PID") == KERNEL_PARENT or row.get("Anonymous Bytes", 0) is None
    return re.sub(r"(kworker/[^-+(]*)[-+][^(]*", r"\1", value) if is_of_kernel and label in NAMES else value


def is_between(label, value, before, after):
    if isinstance(value, (int, float)) and isinstance(before, (int, float)) and isinstance(after, (int, float)):
        unit = UNITS.get(label, 1e-6 * max(1.0, abs(value)) if isinstance(value, float) else 0)
        return min(before, after) - unit <= value <= max(before, after) + unit
    return value in (before, after) or (label in LISTS and before != after)


def compare_looks(problems, daemons, before, look, after):
    """Counts the figures of `look`, each of which is to lie between those of the other source. The daemons, which
    work while they are asked, need not be compared."""
    compared = 0
    for record in RECORDS:
        rows = look.rows[record]
        lasting = [pid for pid, row in before.rows[record].items()
                   if pid not in daemons and is_same_process([row, after.rows[record].get(pid)])]
        for pid in lasting:
            old, new, row = before.rows[record][pid], after.rows[record][pid], rows.get(pid)
            if row is None or not is_same_process([old, row]):
                problems[f"{record} {pid}: no row"] = old
                continue
            compared += len(row.keys() - NOT_COMPARED)
            # Most are equal, which is found out at once.
            for label in (label for label, value in row.items() if value != old[label]):
                three = [tidied(label, row, each[label]) for each in (old, row, new)]
                if label not in NOT_COMPARED and not is_between(label, three[1], three[0], three[2]):
                    problems[f"{record} {pid} {label}"] = three
    return compared


def compare(walking, iterating):
    """The faults that are there in each of some tries: others are due to what happens meanwhile."""
    lasting = None
    compared = 0
    daemons = {walking.process.pid, iterating.process.pid}
    for tries in range(1, TRIES + 1):
        twice = []
        looks = [Look(agent, twice) for agent in (walking, iterating, walking, iterating)]
        problems = {each: None for each in twice}
        compared = compare_looks(problems, daemons, *looks[:3]) + compare_looks(problems, daemons, *looks[1:])
        lasting = problems if lasting is None else {name: problems[name] for name in lasting if name in problems}
        if not lasting:
            break
    return compared, lasting, looks[3], tries


def check_named(agent):
    """What is kept of a process is read anew for who names it."""
    def seen(*choice):
        rows = agent.ask("get", "PDI", "--raw", *choice)[0]["rows"]
        return next(row["Argument List"] for row in rows if row["PID"] == titled.pid)

    with Titled() as titled:
        choices = [("--where", f"PID={titled.pid}"), ("--where", "Program=named")]
        for number in range(40):
            title = f"title {number}"
            titled.write(title)
            if seen(*choices[number % 2]) != title:
                fail(f"the row of a process that was asked for by {choices[number % 2]} has not the title {title}")
        older = 0
        for number in range(20):
            titled.write(f"later {number}")
            older += seen() != f"later {number}"
        if older == 0:
            fail("the titles of all processes are read anew in each batch")
    print(f"titles asked for by name are those of the moment; of others {older} of 20 are older", flush=True)


def check_figures(build, work, options):
    with daemon(build, work / "proc", "proc") as walking, daemon(build, work / "iterator", "iterator") as iterating:
        expect_source(walking, "proc", "Process Source")
        expect_source(iterating, "iterator")
        if not re.search(r"Process source +iterator", client(iterating, "status")):
            fail("qmtctl status does not tell the source")
        check_named(iterating)
        with Kinds(work, options.processes) as kinds:
            if len(kinds.sleepers) < min(LEAST_SLEEPERS, options.processes):
                print(f"no load: no more than {len(kinds.sleepers)} processes can be made: {kinds.error}", flush=True)
            time.sleep(1)  # until each is what it is to be
            for part in ("as they began", "changed"):
                compared, lasting, look, tries = compare(walking, iterating)
                rows = look.rows["PDI"]
                gone = {pid for pid in kinds.sleepers + kinds.pids if pid not in rows}
                if lasting or gone:
                    fail(f"{part}: {len(lasting)} of {compared} figures differ in each try, {len(gone)} processes "
                         "have no row:\n  " + "\n  ".join(f"{name} {told}" for name, told in
                                                          list(lasting.items())[:60]))
                print(f"{part}: {compared} figures of {len(rows)} processes agree in {tries} tries"
                      f"{', without ' + ', '.join(kinds.missing) if kinds.missing else ''}", flush=True)
                kinds.change()
        for agent, count in ((walking, 0), (iterating, 0)):
            expect_messages(agent, count, "the comparison")


# --- churn ---


def descriptors(agent):
    return len(os.listdir(f"/proc/{agent.process.pid}/fd"))


def threads_of_host():
    """The numbers of all threads that lead no process."""
    found = set()
    for process in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            found.update(int(each) for each in os.listdir(process / "task") if each != process.name)
        except OSError:
            pass
    return found


def batches(agent, seconds):
    """The rows of each batch of the schedule."""
    words = [agent.build / "client/qmtctl", "--socket", "run/control.sock", "watch", "PDI", "--scheduled", "--json",
             "--count", str(seconds)]
    with subprocess.Popen(words, cwd=agent.home, stdout=subprocess.PIPE, text=True) as watch:
        for line in watch.stdout:
            yield json.loads(line)[0]["rows"]


def check_batch(rows, kept, threads):
    pids = [row["PID"] for row in rows]
    known = set(pids)
    if len(known) != len(pids):
        fail(f"churn: a batch of {len(pids)} rows has {len(known)} processes")
    if missing := kept - known:
        fail(f"churn: {len(missing)} processes that live have no row, such as {min(missing)}")
    if extra := threads & known:
        fail(f"churn: {len(extra)} rows are threads, such as {min(extra)}")


def check_churn(build, work, options):
    with Kinds(work, LEAST_SLEEPERS) as kinds, \
            daemon(build, work / "churn", "iterator", "PDI = 1\n") as agent, Churn(CHURN_RATE) as churn, \
            Short() as short:
        kept = set(kinds.sleepers + kinds.pids)
        threads = threads_of_host()
        count = 0
        lived = 0
        start = None
        for rows in batches(agent, options.churn):
            whole = short.whole(rows[0]["Snapshot Time"])
            lived += len(whole)
            check_batch(rows, kept | whole, threads & threads_of_host() if count % 10 == 0 else set())
            count += 1
            if count == 5:
                start = memory(agent.process.pid), descriptors(agent)
        end = memory(agent.process.pid), descriptors(agent)
        expect_source(agent, "iterator")
        faults = [each["value"] for each in agent.ask("status")["figures"]
                  if each["name"] == "collect_process_iterator_faults"]
        if faults != [0]:
            fail(f"churn: {faults} streams had a fault")
        print(f"churn: {churn.reached():.0f} processes a second, {count} batches, each with all of {len(kept)} "
              f"processes that live and in all with {lived} times one that lived through some; memory "
              f"{start[0] / 2**20:.1f} to {end[0] / 2**20:.1f} MB, descriptors {start[1]} to {end[1]}", flush=True)
        if is_timed(build) and churn.reached() < 0.9 * CHURN_RATE:
            fail(f"churn: this machine makes no {CHURN_RATE} processes a second")
        if end[1] > start[1]:
            fail("churn: the daemon keeps descriptors")
        if is_timed(build) and (end[0] - start[0]) / 2**20 > MORE_MEGABYTES[is_strict(build)]:
            fail("churn: the daemon keeps memory")


# --- streams that are none ---


def expect_messages(agent, count, what):
    found = agent.log.read_text(errors="replace").count(FROM_PROC)
    if found != count:
        fail(f"{what}: the log tells {found} times of /proc, not {count}\n{agent.log.read_text(errors='replace')}")


def bad_files(place, work):
    """By name a file that is no stream, and what is told of it."""
    stream = place.pin.read_bytes()
    size = int.from_bytes(stream[:4], sys.byteorder)
    changed = {
        "other size": (size + 8).to_bytes(4, sys.byteorder) + stream[4:],
        "other version": stream[:4] + (99).to_bytes(4, sys.byteorder) + stream[8:],
        "cut": stream[:-10], "twice": stream + stream[:size],
    }
    for name, content in changed.items():
        (work / name).write_bytes(content)
    (work / "folder").mkdir()
    os.mkfifo(work / "fifo")
    return {"other size": "another version", "other version": "another version", "cut": "within a structure",
            "twice": "twice", "folder": "", "fifo": "regular", "/dev/zero": "regular", "nowhere": "No such file"}


def check_bad(build, work, options):
    place = options.place
    expected = 0
    with daemon(build, work / "bad", "iterator") as agent:
        for name, reason in bad_files(place, work).items():
            place.turn(place.pin)
            expect_source(agent, "iterator")
            place.turn(work / name)
            expected += 1
            for _ in range(3):
                expect_source(agent, "proc", reason)
            agent.row("PDI", PID=os.getpid())
            expect_messages(agent, expected, name)
        place.turn(place.pin)
        expect_source(agent, "iterator")
        place.unload()
        for _ in range(3):
            expect_source(agent, "proc", "No such file")
        expect_messages(agent, expected + 1, "a pin that was removed")
        place.load()
        expect_source(agent, "iterator")
        expect_messages(agent, expected + 1, "a pin that is there again")
    print(f"{expected + 1} streams that are none: each is told once, and /proc is read", flush=True)
    check_rights(build, work, place)


def check_rights(build, work, place):
    """The file is there, but the daemon lacks the right to read it."""
    place.pin.chmod(0)
    with daemon(build, work / "rights", "iterator") as agent:
        expect_source(agent, "iterator")
    without = ["setpriv", "--bounding-set", "-dac_override,-dac_read_search"]
    folder = work / "denied"
    folder.mkdir()
    with Agent(build, folder, "modern\nProcess Source = iterator", gate="none", before=without) as agent:
        for _ in range(3):
            expect_source(agent, "proc", "Permission denied")
        expect_messages(agent, 1, "no right")
        place.pin.chmod(0o440)
        expect_source(agent, "iterator")
    print("without the right to the stream: told once, and /proc is read until the right is there", flush=True)


# --- cost ---


def processor_seconds(pid):
    """What a process has used, with its threads that have ended, to the nanosecond."""
    return time.clock_gettime((~pid << 3) | 2)


def check_cost(build, work, options):
    schedule = "".join(f"{record} = 1\n" for record in OF_PROCESSES)
    with Kinds(work, LEAST_SLEEPERS) as kinds:
        for name in ("iterator", "proc"):
            with daemon(build, work / f"cost {name}", name, schedule) as agent, Churn(COST_RATE) as churn:
                wait_for("a batch", lambda: (agent.ask("status")["last_batch"] or {}).get("records", 0) >= len(OF_PROCESSES))
                time.sleep(2)
                begin = processor_seconds(agent.process.pid), time.monotonic()
                time.sleep(options.cost)
                used = processor_seconds(agent.process.pid) - begin[0]
                seconds = time.monotonic() - begin[1]
                rows = len(agent.ask("get", "PDI", "--raw")[0]["rows"])
                print(f"cost, {name}: {1000 * used / seconds:.2f} ms of a processor a second, for a batch of "
                      f"{len(OF_PROCESSES)} records of {rows} processes, {churn.reached():.0f} new ones a second",
                      flush=True)
        assert kinds.sleepers


# --- processes that keep their readers waiting ---


def is_in_exec(pid):
    """Whether its memory has a stack and no program yet."""
    size, _, _, text, _, data, _ = map(int, pathlib.Path(f"/proc/{pid}/statm").read_text().split())
    return size != 0 and text == 0 and size == data


def check_beside_exec(agent, pid, has_row):
    """has_row: whether the process that waits has one; else it is counted."""
    for record in ("PDX", "PDI"):
        began = time.monotonic()
        pids = {row["PID"] for row in agent.ask("get", record, "--raw")[0]["rows"]}
        if time.monotonic() - began > EXEC_SECONDS or os.getpid() not in pids:
            fail(f"exec: {record} has {len(pids)} rows after {time.monotonic() - began:.1f} s")
        if (pid in pids) != has_row:
            fail(f"exec: {record} has {'no' if has_row else 'a'} row of the process in execve(2)")
    skipped = next(figure["value"] for figure in agent.ask("status")["figures"]
                   if figure["name"] == "collect_process_skipped")
    if not has_row and skipped < 1:
        fail("exec: no process is told to be skipped")


def check_exec(build, work, options):
    """Nobody waits with who waits in execve(2) for a server that is silent. By the iterator it has its row where its
    program before was seen."""
    signal.signal(signal.SIGALRM, lambda *_: fail("exec: no answer"))
    for name, is_seen in (("proc", True), ("iterator", True), ("iterator", False)):
        folder = work / f"{name} {is_seen}"
        mount = work / f"mount {name} {is_seen}"
        mount.mkdir()
        with contextlib.ExitStack() as stack:
            try:
                server = stack.enter_context(SilentServer(mount))
            except OSError as error:
                print(f"exec: this machine has no FUSE: {error}", flush=True)
                return
            agent = stack.enter_context(daemon(build, folder, name))
            expect_source(agent, name)
            see = (lambda agent=agent: agent.ask("get", "PDI", "PDX", "--raw")) if is_seen else (lambda: None)
            waiting = stack.enter_context(waiting_in_exec(server, see))
            wait_for("the process in execve(2)", lambda pid=waiting.pid: is_in_exec(pid))
            signal.alarm(60)
            check_beside_exec(agent, waiting.pid, name == "iterator" and is_seen)
            signal.alarm(0)
    print("exec: a process that waits in execve(2) keeps no batch waiting", flush=True)


CHECKS = {"figures": check_figures, "churn": check_churn, "bad": check_bad, "exec": check_exec, "cost": check_cost}


def run(options):
    for name in options.only or CHECKS:
        check = CHECKS[name]
        with tempfile.TemporaryDirectory(prefix="qmt-iterator-") as work:
            work = pathlib.Path(work)
            with Place(options.build, work) as options.place:
                options.place.load()
                check(options.build, work, options)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", type=lambda path: pathlib.Path(path).resolve())
    parser.add_argument("--processes", type=int, default=2000, metavar="NUMBER")
    parser.add_argument("--churn", type=int, default=60, metavar="SECONDS")
    parser.add_argument("--cost", type=int, default=30, metavar="SECONDS")
    parser.add_argument("--only", action="append", choices=CHECKS)
    parser.add_argument("--within", action="store_true", help=argparse.SUPPRESS)
    options = parser.parse_args()
    if os.geteuid() != 0:
        skip("root alone may load a BPF program")
    if not (options.build / "helpers/qmt_bpf").exists():
        skip("qmt_bpf is not built here")
    if not options.within:
        # What is mounted is gone with these processes, whatever their end.
        if subprocess.run(["unshare", "--mount", "true"], check=False, stderr=subprocess.DEVNULL).returncode != 0:
            skip("there is no right to a mount name space of its own")
        os.execvp("unshare", ["unshare", "--mount", sys.executable, *sys.argv, "--within"])
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("ended"))
    run(options)


if __name__ == "__main__":
    main()
