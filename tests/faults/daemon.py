#!/usr/bin/env python3
"""The daemon under a library that halves or interrupts its calls, or leaves no room for its files: three
batches, a scrape, a history and a stop are as ever, or the batch is lost, told, and the next one right.

  daemon.py BUILD_DIRECTORY [--all]

--all leaves no room for each write of a transaction of the history in turn.
"""

import json
import pathlib
import socket
import sqlite3
import sys
import tempfile

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "e2e"))

from harness import Agent, fail, wait_for  # noqa: E402

FIXTURE = pathlib.Path(__file__).resolve().parents[1] / "fixtures/2.6.9"
RECORDS = ["CPUP", "DEVD", "NIND", "FSL", "PD", "PI"]
PRELOAD = "tests/faults/libqmt_faults.so"
# Until the daemon has written one transaction of a history.
MOST_WRITES = 40


def ask(agent, **message):
    """The answer's line, and what stands behind it of one that tells "bytes"."""
    with socket.socket(socket.AF_UNIX) as client:
        client.settimeout(20)
        client.connect(str(agent.home / "run/control.sock"))
        client.sendall(json.dumps(message).encode() + b"\n")
        with client.makefile("rb") as stream:
            answer = json.loads(stream.readline())
            size = answer.get("metrics", {}).get("bytes", 0)
            return answer, stream.read(size).decode()


def flat(answer):
    """Each field of each row by its place."""
    if not answer["ok"]:
        fail(f"{answer}")
    return {(result["record"], number, field): value
            for result in answer["results"]
            for number, row in enumerate(result.get("rows", [result.get("error")]))
            for field, value in row.items()}


class Daemon(Agent):
    """One whose calls are disturbed as the words say, for as long as the file `while` stands."""

    def __init__(self, build, work, faults):
        self.switch = work / "while"
        self.switch.touch()
        words = ["env", f"QMT_HOST_ROOT={FIXTURE}", f"QMT_FAULTS={faults}",
                 f"QMT_FAULTS_WHILE={self.switch}", f"LD_PRELOAD={build / PRELOAD}",
                 "ASAN_OPTIONS=verify_asan_link_order=0"]
        super().__init__(build, work / "root", schedule="PI = 1\nCPUP = 1", gate="none", before=words)

    def batches(self):
        return [flat(ask(self, op="get", rates=False, records=RECORDS)[0]) for _ in range(3)]

    def scrape(self):
        text = ask(self, op="metrics", format="openmetrics")[1]
        if not text.endswith("# EOF\n"):
            fail(f"half a scrape: {text[-200:]!r}")
        return sum(line.startswith("# TYPE") for line in text.splitlines())

    def told(self):
        return (self.home / "log/qmtdmon.log").read_text()

    def kept(self):
        """The batches that the history holds."""
        with sqlite3.connect(f"file:{self.home / 'records.db'}?mode=ro", uri=True) as database:
            return database.execute('SELECT count(DISTINCT "Record Time") FROM PI').fetchone()[0]

    def stop(self):
        """Ends it; all it has said."""
        self.__exit__(None)
        said = (self.log.read_text() + self.told()).replace(str(self.folder), "")
        if self.process.returncode != 0 or "anitizer" in said or "runtime error" in said:
            fail(f"exit value {self.process.returncode}: {said}")
        with sqlite3.connect(self.home / "records.db") as database:
            if (found := database.execute("PRAGMA integrity_check").fetchone()[0]) != "ok":
                fail(f"records.db: {found}")
        return said


def started(build, faults):
    """A daemon in a folder that is gone after the block."""
    folder = tempfile.TemporaryDirectory()
    daemon = Daemon(build, pathlib.Path(folder.name), faults)
    daemon.scratch = folder
    return daemon


def steady(batches):
    """What is the same in each batch."""
    first, *others = batches
    return {key: value for key, value in first.items()
            if all(other.get(key) == value for other in others)}


def problems(said):
    """The lines of warnings and errors, but for their times."""
    return sorted({line.split(" ", 2)[2] for line in said.splitlines()
                   if len(line.split(" ")) > 4 and line.split(" ")[3] in ("W", "E")})


def walk(build, faults):
    """Three batches, a scrape, three batches kept, and what was said."""
    daemon = started(build, faults)
    with daemon.scratch:
        try:
            batches, families = daemon.batches(), daemon.scrape()
            wait_for("three batches of the history", lambda: daemon.kept() >= 3)
        except BaseException:
            daemon.__exit__(*sys.exc_info())
            raise
        return batches, families, problems(daemon.stop())


def check_unseen(build):
    """What is halved or interrupted is as if it were not."""
    calm, calm_families, calm_problems = walk(build, "none")
    again, _, _ = walk(build, "none")
    same = steady(calm + again)
    if len(same) < 40:
        fail(f"nothing to compare: {len(same)} fields")
    for faults in ("short", "eintr", "short eintr"):
        batches, families, said = walk(build, faults)
        for batch in batches:
            if wrong := {key: (value, batch.get(key)) for key, value in same.items()
                         if batch.get(key) != value}:
                fail(f"{faults}: {wrong}")
        if families != calm_families or said != calm_problems:
            fail(f"{faults}: {families} families, not {calm_families}; {said}, not {calm_problems}")
    return len(same)


def check_full(build, what, is_told):
    """No room for a file: batches are answered, it is told, and all is right when there is room."""
    daemon = started(build, f"full={what}")
    with daemon.scratch:
        try:
            expected = steady(daemon.batches())
            wait_for(f"a word about {what}", lambda: is_told(daemon))
            daemon.scrape()
            daemon.switch.unlink()
            if lost := [key for key in expected if key not in daemon.batches()[0]]:
                fail(f"full {what}: {lost}")
            before = daemon.kept() if what.startswith("log") else 0
            wait_for("the history", lambda: daemon.kept() >= before + 2)
        except BaseException:
            daemon.__exit__(*sys.exc_info())
            raise
        if "has stopped" not in (said := daemon.stop()):
            fail(f"full {what}: {said}")
        return said


def check_full_history(build):
    said = check_full(build, "records.db", lambda daemon: "can't be written" in daemon.told())
    if "is written again" not in said:
        fail(f"full history: {said}")


def check_full_log(build):
    check_full(build, "log/qmtdmon", lambda daemon: "No space left" in daemon.log.read_text())


def check_each_write(build):
    """One write of the history fails: one batch is lost at most, and told."""
    lost = 0
    for place in range(1, MOST_WRITES + 1):
        daemon = started(build, f"full=records.db:{place}")
        with daemon.scratch:
            try:
                wait_for("two batches of the history", lambda daemon=daemon: daemon.kept() >= 2)
            except BaseException:
                daemon.__exit__(*sys.exc_info())
                raise
            lost += "can't be written" in daemon.stop()
    if lost < MOST_WRITES // 2:
        fail(f"{lost} of {MOST_WRITES} failed writes were told")
    return lost


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    fields = check_unseen(build)
    check_full_history(build)
    check_full_log(build)
    print(f"halved, interrupted and full: {fields} fields a batch as ever")
    if "--all" in sys.argv[2:]:
        print(f"each write: {check_each_write(build)} of {MOST_WRITES} lost a batch and told it")


if __name__ == "__main__":
    main()
