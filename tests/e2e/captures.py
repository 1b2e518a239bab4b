#!/usr/bin/env python3
"""This host taken along in a file by `qmtctl capture` and shown again by `qmtctl replay`: the records
are those of the capture, with stand-ins or without; what fails or is interrupted leaves nothing.

  captures.py BUILD_DIRECTORY
"""

import io
import json
import os
import pathlib
import pwd
import re
import signal
import socket
import subprocess
import sys
import tarfile
import tempfile
import time

from harness import Agent, fail, wait_for
from terminal import Terminal

LIMIT_SECONDS = 120


class Client:
    """`qmtctl` with temporary files of its own, which must be gone after each run."""

    def __init__(self, build, work):
        self.program = build / "client/qmtctl"
        self.temporary = work / "tmp"
        self.temporary.mkdir()
        self.environment = {**os.environ, "TMPDIR": str(self.temporary), "LC_ALL": "C"}

    def start(self, *words, **options):
        return subprocess.Popen([self.program, *map(str, words)], env=self.environment, text=True,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, **options)

    def finish(self, process):
        out, err = process.communicate(timeout=LIMIT_SECONDS)
        if left := list(self.temporary.iterdir()):
            fail(f"{process.args}: {left} is left")
        return process.returncode, out, err

    def run(self, *words):
        code, out, err = self.finish(self.start(*words))
        if code != 0:
            fail(f"{words}: {code} {err}")
        return out

    def expect_failure(self, words, pattern):
        code, out, err = self.finish(self.start(*words))
        if code == 0 or out or err.count("\n") != 1 or not re.search(pattern, err):
            fail(f"{words}: {code} {out!r} {err!r} is not {pattern!r}")


def unpack(file, folder):
    folder.mkdir()
    packed = subprocess.run(["zstd", "-dc", file], stdout=subprocess.PIPE, check=True).stdout
    with tarfile.open(fileobj=io.BytesIO(packed)) as archive:
        archive.extractall(folder)
    return folder


def captured(folder):
    results = json.loads((folder / "samples/0001/records.json").read_text())
    return {f"{result['category']}:{result['record']}": result["rows"]
            for result in results if "rows" in result}


def replayed(client, source, names):
    results = json.loads(client.run("replay", source, *names, "--raw", "--json"))
    return {f"{result['category']}:{result['record']}": result["rows"] for result in results}


def differences(before, after):
    for record, rows in before.items():
        others = after.get(record, [])
        if len(rows) != len(others):
            yield f"{record}: {len(rows)} rows and {len(others)}"
        for row, other in zip(rows, others):
            yield from (f"{record} {label}: {row[label]!r} and {other.get(label)!r}"
                        for label in row if row[label] != other.get(label))


def expect_same(what, before, after):
    if found := list(differences(before, after)):
        fail(f"{what}: {found[:5]} of {len(found)}")


def people_of_host():
    return [user for user in pwd.getpwall() if user.pw_uid >= 1000 and user.pw_uid != 65534]


def private_words():
    """Names of people, of the host, and addresses of its interfaces."""
    words = [user.pw_name for user in people_of_host()] + [socket.gethostname()]
    found = subprocess.run(["ip", "-o", "address"], capture_output=True, text=True, check=True)
    words += re.findall(r"inet6? ([0-9a-f.:]+)", found.stdout)
    found = subprocess.run(["ip", "-o", "link"], capture_output=True, text=True, check=True)
    words += re.findall(r"link/ether ([0-9a-f:]+)", found.stdout)
    return [word for word in words if word not in ("127.0.0.1", "::1", "localhost")]


def check_whole(client, agent, work):
    file = work / "host.tar.zst"
    wait_for("kept rows", lambda: agent.ask("history", "PI")[0]["rows"])
    said = client.run("--socket", agent.home / "run/control.sock", "capture", file)
    if not re.search(r"host\.tar\.zst: [0-9.]+ MB, 1 sample, [1-9][0-9]* rows of history", said):
        fail(f"the capture says {said!r}")
    if file.stat().st_mode & 0o777 != 0o600:
        fail("others may read the capture")
    folder = unpack(file, work / "whole")
    kept = [json.loads(line) for line in (folder / "history/PI.jsonl").read_text().splitlines()]
    if not kept or any("Record Time" not in row for row in kept):
        fail(f"the history is {kept}")
    before = captured(folder)
    if len(before) < 15 or not before["3:PDI"] or not before["4:PI"]:
        fail(f"records are missing: {sorted(before)}")
    expect_same("the replay", before, replayed(client, file, before))
    expect_same("the replay of a folder", before, replayed(client, folder, before))
    still = json.loads(client.run("replay", file, "PI", "--json"))[0]["rows"][0]
    told = [label for label in ("Interval", "Context Switches", "Context Switches/sec") if still[label] is not None]
    if told:
        fail(f"between two looks at one sample the replay tells {told}")
    chosen = json.loads(client.run("replay", file, "PDI", "--raw", "--json", "--where", "PID=1", "--columns", "PID"))
    if [row["PID"] for row in chosen[0]["rows"]] != [1]:
        fail(f"the choice gives {chosen}")
    client.expect_failure(["capture", file], "exists already")
    client.expect_failure(["capture", folder], "not empty")


def check_private(client, agent, work):
    secret = "Xyzzy-7531-secret"
    people = [user.pw_uid for user in people_of_host()]
    owner = {"user": people[0]} if people and os.geteuid() == 0 else {}
    with subprocess.Popen(["/bin/sh", "-c", "read x # $0", secret, "\33]0;\t\303\251x\377 y"], stdin=subprocess.PIPE, **owner):
        wait_for("its kept row", lambda: any(secret in row["Command Line"]
                                             for row in agent.ask("history", "PDX")[0]["rows"]))
        client.run("--socket", agent.home / "run/control.sock", "capture",
                   work / "private.tar.zst", "--private")
    folder = unpack(work / "private.tar.zst", work / "private")
    if not json.loads((folder / "capture.json").read_text())["private"]:
        fail("the capture does not say that it is private")
    words = [re.compile(rb"(?<![0-9A-Za-z_])" + re.escape(word.encode()) + rb"(?![0-9A-Za-z_])")
             for word in [secret, *private_words()]]
    for path in folder.rglob("*"):
        text = path.read_bytes() if path.is_file() else b""
        for word in words:
            if word.search(text):
                fail(f"{path}: {word.pattern!r} is in it")
    before = captured(folder)
    kept = (folder / "history/PDX.jsonl").read_text().splitlines()
    if not any(json.loads(line)["Command Line"].startswith("/bin/sh -") for line in kept):
        fail("the history lacks a program")
    program = [row["Command Line"] for row in before["3:PDX"] if row["Command Line"].startswith("/bin/sh -")]
    if not program:
        fail("the program of a command line is gone")
    expect_same("the private replay", before, replayed(client, work / "private.tar.zst", before))
    if owner and all(row["User"] == "root" for row in before["3:PDX"]):
        fail("the processes of others are gone")


def check_figures(client, work):
    """Two captures of the same files, of which one is private."""
    tree = work / "whole/samples/0001/host"
    client.environment["QMT_HOST_ROOT"] = str(tree)
    client.run("capture", work / "plain")
    client.run("capture", work / "hidden", "--private")
    del client.environment["QMT_HOST_ROOT"]
    give_clock(work / "plain", work / "hidden")
    plain, hidden = (replayed(client, folder, captured(folder))
                     for folder in (work / "plain", work / "hidden"))
    # The space of file systems is that of the moment.
    del plain["3:FSL"]
    expect_same("the figures of a private capture", figures(plain), figures(hidden))
    if plain["3:PDX"] == hidden["3:PDX"]:
        fail("command lines are as they were")


def figures(records):
    """Without texts."""
    return {record: [{label: value for label, value in row.items() if not isinstance(value, str)}
                     for row in rows] for record, rows in records.items()}


def give_clock(model, other):
    """Rates depend on the moment, which is the same then."""
    calls = "samples/0001/calls.jsonl"
    text = (other / calls).read_text()
    for call in "gettimeofday", "clock_gettime 7":
        clock = rf'(?m)^\{{"call":"{call}".*$'
        line = re.search(clock, (model / calls).read_text())[0]
        text, count = re.subn(clock, lambda _: line, text)
        if count != 1:
            fail(f"{other}: {count} of {call}")
    (other / calls).write_text(text)


def check_bad(client, work):
    newer = work / "newer"
    newer.mkdir()
    (newer / "capture.json").write_text('{"format": 2}\n')
    client.expect_failure(["replay", newer, "PI"], "newer.*can't be played: .*format 2 is newer")
    (work / "text.tar.zst").write_text("no archive\n")
    client.expect_failure(["replay", work / "text.tar.zst", "PI"], "text.tar.zst: this is no archive")
    client.expect_failure(["replay", work / "nothing.tar.zst", "PI"], "nothing.tar.zst: No such file")
    empty = work / "empty"
    empty.mkdir()
    client.expect_failure(["replay", empty, "PI"], "empty: this is no capture")
    client.expect_failure(["capture", work / "no/such/folder"], "No such file")
    client.expect_failure(["capture", work / "host.tgz"], r"ends in \.tar\.zst")


def pack(file, entries):
    """An archive of (name, kind of tarfile, text or where a link leads)."""
    packed = io.BytesIO()
    with tarfile.open(fileobj=packed, mode="w") as archive:
        for name, kind, text in entries:
            entry = tarfile.TarInfo(name)
            entry.type = kind
            if kind == tarfile.REGTYPE:
                entry.size = len(text)
            else:
                entry.linkname = text
            archive.addfile(entry, io.BytesIO(text.encode()))
    file.write_bytes(subprocess.run(["zstd", "-qc"], input=packed.getvalue(), stdout=subprocess.PIPE,
                                    check=True).stdout)


def check_hostile(client, work):
    """Archives of a stranger's: one line, and neither a write nor a wait outside."""
    file, link, folder = tarfile.REGTYPE, tarfile.SYMTYPE, tarfile.DIRTYPE
    outside = work / "outside"
    outside.mkdir()
    (outside / "records.json").write_text("untouched")
    cases = {
        "up": ([("../outside/new", file, "x")], "leads out of the folder"),
        "absolute": ([(str(outside / "new"), file, "x")], "leads out of the folder"),
        "link": ([("l", link, str(outside)), ("l/new", file, "x")], '"l" is a link that leads out'),
        "climbing": ([("deep", link, "."), ("l", link, "deep/deep/deep/../../../etc")], '"l" is a link that leads out'),
        "hard": ([("h", tarfile.LNKTYPE, "/etc/passwd")], "is a hard link"),
        "pipe": ([("capture.json", tarfile.FIFOTYPE, "")], "is neither a file nor a folder"),
        "device": ([("capture.json", tarfile.CHRTYPE, "")], "is neither a file nor a folder"),
        "linked": ([("x", file, "{}"), ("capture.json", link, "x")], r"capture\.json: this is no regular file"),
        "deep": ([("a/" * 200 + "f", file, "x")], "folders deep"),
        "odd": ([("\33]0;x\7", link, "..")], r'entry "[^\0-\37]*" is a link'),
        "bare": ([("samples", folder, "")], "this is no capture"),
    }
    for name, (entries, pattern) in cases.items():
        pack(work / f"bad-{name}.tar.zst", entries)
        client.expect_failure(["replay", work / f"bad-{name}.tar.zst"], pattern)
    whole = (work / "host.tar.zst").read_bytes()
    for part in (0, 5, 1000, len(whole) // 2, len(whole) - 4):
        (work / "cut.tar.zst").write_bytes(whole[:part])
        client.expect_failure(["replay", work / "cut.tar.zst", "PI"], "cut short|no archive of a capture")
    if [path.name for path in outside.iterdir()] != ["records.json"]:
        fail("an archive has written elsewhere")
    # A folder that nobody has packed: the way to its files may be links as well.
    planted = unpack(work / "host.tar.zst", work / "planted")
    (planted / "samples").rename(outside / "samples")
    (planted / "samples").symlink_to(outside / "samples")
    client.expect_failure(["replay", planted, "PI"], "samples: this is no folder")


def check_view(client, work):
    """On a terminal it opens the view: the captured host, and its samples one by one."""
    tree = pathlib.Path(__file__).resolve().parent.parent / "fixtures/modern-processes/first"
    client.environment["QMT_HOST_ROOT"] = str(tree)
    client.run("capture", work / "three", "--every", "2", "--count", "3")
    del client.environment["QMT_HOST_ROOT"]
    facts = work / "three/capture.json"
    clocks = [time.strftime("%Y-%m-%d %H:%M:%S", time.localtime(sample["time"]))
              for sample in json.loads(facts.read_text())["samples"]]
    shown = r"\n *412 [^\n]* cron .*\nPDI: processes +5 of 5"
    with Terminal(work / "terminal", 120, 40, TMPDIR=str(client.temporary)) as terminal:
        terminal.run(f"{client.program} replay {work / 'three'}; echo ended=$?")
        # It stays at the last sample.
        terminal.wait_text(rf"(?s) NOW {clocks[-1][11:]} .*{shown}")
        # A daemon begins to keep rows when it starts.
        for clock in reversed(clocks[:-1]):
            terminal.type("[")
            terminal.wait_text(rf"(?s) KEPT {clock} .*{shown}")
        terminal.type("n")
        terminal.wait_text(rf" NOW {clocks[-1][11:]} ")
        terminal.type("q")
        terminal.wait_text("ended=0")
    if left := list(client.temporary.iterdir()):
        fail(f"{left} is left")


def check_interruption(client, work):
    for target, number in (("slow", signal.SIGINT), ("slow.tar.zst", signal.SIGHUP)):
        process = client.start("capture", work / target, "--count", "100", "--every", "60")
        place = work / target if target == "slow" else client.temporary
        wait_for("a sample", lambda place=place: list(place.rglob("records.json")))
        process.send_signal(number)
        code, _, err = client.finish(process)
        if code != 1 or "interrupted" not in err or (work / target).exists():
            fail(f"interrupted: {code} {err!r}")
    process = client.start("replay", work / "host.tar.zst", "PI", "--over", "600")
    path = wait_for("a daemon", lambda: list(client.temporary.rglob("control.sock")))[0]
    status = [client.program, "--socket", path, "status", "--json"]
    wait_for("the first look", lambda: json.loads(subprocess.check_output(status))["last_batch"])
    process.send_signal(signal.SIGTERM)
    begin = time.monotonic()
    code = client.finish(process)[0]
    if code != 0 or time.monotonic() - begin > 15:
        fail(f"a replay between its looks: {code} after {time.monotonic() - begin} s")


def check_stay(client, work):
    """Without a terminal and without records it stays until a signal, and serves."""
    process = client.start("replay", work / "host.tar.zst", "--speed", "10")
    path = process.stdout.readline().strip()
    answer = subprocess.run([client.program, "--socket", path, "status", "--json"],
                            capture_output=True, check=True)
    daemon = json.loads(answer.stdout)["pid"]
    process.send_signal(signal.SIGTERM)
    if client.finish(process)[0] != 0:
        fail("the replay did not end well")
    if pathlib.Path(f"/proc/{daemon}").exists():
        fail("the daemon of a replay is left")


def main():
    # Also where this is started by nohup: who ignores the signal hands that on.
    signal.signal(signal.SIGHUP, signal.SIG_DFL)
    build = pathlib.Path(sys.argv[1]).resolve()
    with tempfile.TemporaryDirectory() as folder:
        work = pathlib.Path(folder).resolve()
        client = Client(build, work)
        (work / "agent").mkdir()
        with Agent(build, work / "agent", "modern", "PI = 1\nPDX = 2\n", "History File = records.db\n",
                   gate="none") as agent:
            check_whole(client, agent, work)
            check_private(client, agent, work)
        check_figures(client, work)
        check_bad(client, work)
        check_hostile(client, work)
        check_view(client, work)
        check_interruption(client, work)
        check_stay(client, work)
    print("captures: passed")


if __name__ == "__main__":
    main()
