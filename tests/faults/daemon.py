#!/usr/bin/env python3
"""The daemon, its gate and its client under a library that halves or interrupts their calls, fails those that
make files last, or leaves no room for their files: three batches, a scrape, a push, a history and a stop are as
ever, or what failed is told, the files are whole, and the next one is right.

  daemon.py BUILD_DIRECTORY [--all]

--all leaves no room for each write of a transaction of the history in turn.
"""

import concurrent.futures
import contextlib
import http.server
import json
import os
import pathlib
import socket
import sqlite3
import subprocess
import sys
import tempfile
import threading

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "e2e"))

from harness import Agent, Process, fail, fetch, gate_user, wait_for  # noqa: E402

FIXTURE = pathlib.Path(__file__).resolve().parents[1] / "fixtures/2.6.9"
RECORDS = ["CPUP", "DEVD", "NIND", "FSL", "PD", "PI", "UPI"]
USER_ROWS = "Trans Type,User Unsigned Long 1\na,1\nb,2\nc,3\n"
PRELOAD = "tests/faults/libqmt_faults.so"
# So many the daemon makes at least until its history has two batches.
WRITES = 40
# A daemon waits more than it works.
DAEMONS_AT_A_TIME = 8


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


def disturbed(build, faults):
    """Words for env that have the library stand before a program's calls."""
    return [f"QMT_FAULTS={faults}", f"LD_PRELOAD={build / PRELOAD}", "ASAN_OPTIONS=verify_asan_link_order=0"]


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

    def __init__(self, build, work, faults, is_calm=False):
        """is_calm: the file is not there yet."""
        self.switch = work / "while"
        if not is_calm:
            self.switch.touch()
        words = ["env", f"QMT_HOST_ROOT={FIXTURE}", f"QMT_FAULTS_WHILE={self.switch}", *disturbed(build, faults)]
        super().__init__(build, work / "root", schedule="PI = 1\nCPUP = 1", gate="none", before=words)
        try:
            subprocess.run([build / "client/qmtctl", "userdata", "import", "UPI", "-"], check=True, timeout=60,
                           input=USER_ROWS, text=True, stdout=subprocess.DEVNULL,
                           env={**os.environ, "QMT_PRODUCT_ROOT": str(self.folder)})
        except BaseException:
            self.__exit__(*sys.exc_info())
            raise

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
        """The batches that the history holds; none before it is there."""
        try:
            with contextlib.closing(sqlite3.connect(f"file:{self.home / 'records.db'}?mode=ro",
                                                    uri=True)) as database:
                count = 'SELECT count(DISTINCT "Record Time") FROM PI'
                return database.execute(count).fetchone()[0]
        except sqlite3.OperationalError:
            return 0

    def stop(self):
        """Ends it; all it has said."""
        self.__exit__(None)
        said = (self.log.read_text() + self.told()).replace(str(self.folder), "")
        if self.process.returncode != 0 or "anitizer" in said or "runtime error" in said:
            fail(f"exit value {self.process.returncode}: {said}")
        with contextlib.closing(sqlite3.connect(self.home / "records.db")) as database:
            if (found := database.execute("PRAGMA integrity_check").fetchone()[0]) != "ok":
                fail(f"records.db: {found}")
        return said


def started(build, faults):
    """A daemon in a folder that is gone after the block."""
    folder = tempfile.TemporaryDirectory()
    daemon = Daemon(build, pathlib.Path(folder.name), faults)
    daemon.scratch = folder
    return daemon


@contextlib.contextmanager
def running(build, faults):
    """The same, which ends it where something fails; else the block does."""
    daemon = started(build, faults)
    with daemon.scratch:
        try:
            yield daemon
        except BaseException:
            daemon.__exit__(*sys.exc_info())
            raise


def is_timeless(key):
    """Whether a field has nothing of the clock, which may stand still from batch to batch, of the disk that
    others write to, of the memory that they use, nor of a name that a helper looks up by and by."""
    return key[0] != "FSL" and not any(word in key[2] for word in ("Time", "Interval", "/sec", "%", "Mem Mbytes",
                                                                   "Network Name"))


def steady(batches):
    """What is the same in each batch."""
    first, *others = batches
    return {key: value for key, value in first.items()
            if is_timeless(key) and all(other.get(key) == value for other in others)}


def problems(said):
    """The lines of warnings and errors, but for their times."""
    return sorted({line.split(" ", 2)[2] for line in said.splitlines()
                   if len(line.split(" ")) > 4 and line.split(" ")[3] in ("W", "E")})


def walk(build, faults):
    """Three batches, a scrape, three batches kept, and what was said."""
    with running(build, faults) as daemon:
        batches, families = daemon.batches(), daemon.scrape()
        wait_for("three batches of the history", lambda: daemon.kept() >= 3)
        return batches, families, problems(daemon.stop())


def check_unseen(build, pool):
    """What is halved or interrupted is as if it were not."""
    kinds = ("short", "eintr", "short eintr")
    calm, again, *walks = pool.map(lambda faults: walk(build, faults), ("none", "none", *kinds))
    same = steady(calm[0] + again[0])
    if len(same) < 300 or any(("UPI", row, "User Unsigned Long 1") not in same for row in range(3)):
        fail(f"nothing to compare: {len(same)} fields")
    for faults, (batches, *others) in zip(kinds, walks):
        for batch in batches:
            if wrong := {key: (value, batch.get(key)) for key, value in same.items()
                         if batch.get(key) != value}:
                fail(f"{faults}: {wrong}")
        if others != list(calm[1:]):
            fail(f"{faults}: families and what was said are {others}, not {calm[1:]}")
    return len(same)


def check_full(build, what, is_told, faults=None):
    """No room for a file: batches are answered, it is told, and all is right when there is room."""
    with running(build, faults or f"full={what}") as daemon:
        expected = steady(daemon.batches())
        wait_for(f"a word about {what}", lambda: is_told(daemon))
        daemon.scrape()
        daemon.switch.unlink()
        batch = daemon.batches()[0]
        if lost := [key for key in expected if key not in batch]:
            fail(f"full {what}: {lost}")
        before = daemon.kept() if what.startswith("log") else 0
        wait_for("the history", lambda: daemon.kept() >= before + 2)
        if "has stopped" not in (said := daemon.stop()):
            fail(f"full {what}: {said}")
        return said


def check_full_history(build, faults=None):
    said = check_full(build, "records.db", lambda daemon: "can't be written" in daemon.told(), faults)
    if "is written again" not in said:
        fail(f"full history: {said}")


def check_full_log(build):
    check_full(build, "log/qmtdmon", lambda daemon: "No space left" in daemon.log.read_text())


def check_broken_sync(build):
    """The disk can't make the history last: batches are lost and told, and none once it can."""
    check_full_history(build, "eio=fsync@records.db")


def check_full_states(build):
    """No room for the states of alarms, nor for the console's tokens: it is told, and they are kept once there is."""
    with running(build, "full=alarms.state") as daemon:
        daemon.__exit__(None)
        (daemon.home / "alarms").write_text("alarm = up\nrecord = PI\ncondition = Processes >= 1\n")
        daemon.start("Gate = none\n", has_gate=False)
        wait_for("a word about alarms.state", lambda: "alarms.state" in daemon.told())
        daemon.switch.unlink()
        daemon.stop()
        if '"up"' not in (daemon.home / "alarms.state").read_text():
            fail("the states of alarms are not kept")
    with running(build, "full=console.tokens") as daemon:
        first = ask(daemon, op="console_token")[0]
        if not first["ok"] or "console.tokens" not in daemon.told():
            fail(f"a token without room for it: {first}, {daemon.told()}")
        daemon.switch.unlink()
        # There is one a second.
        wait_for("another token", lambda: ask(daemon, op="console_token")[0]["ok"])
        if not (daemon.home / "run/console.tokens").read_text():
            fail("no token is kept")
        if "has stopped" not in (said := daemon.stop()):
            fail(said)


def check_settings(build):
    """A schedule that can't be written into the ini file is refused, and the file stands as it was."""
    folder = tempfile.TemporaryDirectory()
    with folder:
        work = pathlib.Path(folder.name)
        for place, faults in enumerate(("eio=rename@qmtagt.ini", "eio=fsync@qmtagt.ini", "full=qmtagt.ini")):
            (work / str(place)).mkdir()
            with Daemon(build, work / str(place), faults, is_calm=True) as daemon:
                ini = daemon.home / "qmtagt.ini"
                before = ini.read_text()
                daemon.switch.touch()
                answer = ask(daemon, op="schedule_set", record="FSL", seconds=7)[0]
                if answer["ok"] or "qmtagt.ini" not in answer["error"]["message"] or ini.read_text() != before:
                    fail(f"{faults}: {answer}")
                if left := [path.name for path in daemon.home.iterdir() if path.name.startswith("qmtagt.ini.")]:
                    fail(f"{faults}: {left} is left")
                daemon.switch.unlink()
                answer = ask(daemon, op="schedule_set", record="FSL", seconds=7)[0]
                if not answer["ok"] or "FSL = 7" not in ini.read_text():
                    fail(f"{faults}, mended: {answer}")


def timeless(text):
    """What a client has printed, without figures that have to do with the clock."""
    def kept(value):
        if isinstance(value, dict):
            return {key: kept(part) for key, part in value.items() if key != "time" and is_timeless(("", 0, key))}
        return [kept(part) for part in value] if isinstance(value, list) else value
    if not text.startswith(("[", "{")):
        return text
    try:
        return kept(json.loads(text))
    except json.JSONDecodeError:
        return [kept(json.loads(line)) for line in text.splitlines()]


def is_as_ever(words, told, calm):
    if words[0] == "history":
        # There are more rows by then.
        rows, expected = told[0]["rows"], calm[0]["rows"]
        return len(expected) >= 2 and rows[:len(expected)] == expected
    return told == calm


def run_client(build, daemon, faults, *words):
    """The exit value, and all that it has printed."""
    done = subprocess.run(["env", *disturbed(build, faults), build / "client/qmtctl", "--socket", "run/control.sock",
                           *words], cwd=daemon.home, capture_output=True, text=True, check=False, timeout=60)
    if "anitizer" in done.stderr:
        fail(f"{words}: {done.stderr}")
    return done.returncode, done.stdout, done.stderr


# Two samples are a watch's, the others answer at once.
QUESTIONS = [["get", "DEVD", "NIND", "--raw", "--json"], ["watch", "NIND", "--every", "0.2", "--count", "2", "--json"],
             ["schema", "PI"], ["config", "--json"], ["history", "PI", "--since", "1h", "--json"]]


def check_client(build):
    """What the client says is as ever where its calls are halved and interrupted, and a file of its own is whole."""
    daemon = started(build, "none")
    with daemon.scratch, daemon:
        wait_for("the history", lambda: daemon.kept() >= 2)
        for words in QUESTIONS:
            calm, *others = (run_client(build, daemon, faults, *words) for faults in ("none", "short eintr"))
            for code, out, err in others:
                if code != 0 or err != calm[2] or not is_as_ever(words, timeless(out), timeless(calm[1])):
                    fail(f"{words}: {code} {out[-500:]} {err}, not {calm}")
        report = daemon.home / "report.txt"
        capture = daemon.home / "host.tar.zst"
        for faults in ("full=report.txt", "eio=fsync@report.txt", "eio=rename@report.txt", "short eintr"):
            code, _, err = run_client(build, daemon, faults, "report", "--since", "1h", "--output", str(report))
            if faults == "short eintr":
                if code != 0 or not report.read_text():
                    fail(f"report: {code} {err}")
            elif code == 0 or "report.txt" not in err or list(daemon.home.glob("report.txt*")):
                fail(f"{faults}: {code} {err}")
        for faults in ("full=host.tar", "eio=fsync@host.tar", "short eintr"):
            code, _, err = run_client(build, daemon, faults, "capture", str(capture))
            if faults == "short eintr":
                if code != 0 or subprocess.run(["zstd", "-tq", capture], check=False).returncode != 0:
                    fail(f"capture: {code} {err}")
            elif code == 0 or "host.tar" not in err or list(daemon.home.glob("host.tar*")):
                fail(f"{faults}: {code} {err}")


class Receiver(http.server.BaseHTTPRequestHandler):
    """Takes what is pushed."""
    bodies = 0

    def do_POST(self):
        if len(self.rfile.read(int(self.headers["Content-Length"]))) == int(self.headers["Content-Length"]):
            Receiver.bodies += 1
        self.send_response(204)
        self.end_headers()

    def log_message(self, *_):
        pass


def check_gate(build):
    """Scrapes and pushes of a gate whose calls are halved and interrupted are as ever."""
    receiver = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Receiver)
    threading.Thread(target=receiver.serve_forever, daemon=True).start()
    daemon = started(build, "none")
    with daemon.scratch:
        os.chmod(daemon.scratch.name, 0o755)
        daemon.__exit__(None)
        daemon.start(f"Gate = unit\n[Push.near]\nUrl = http://127.0.0.1:{receiver.server_port}/write\n",
                     has_gate=False)
        state = daemon.home / "gate-state"
        state.mkdir()
        if os.geteuid() == 0:
            daemon.give_to_gate(state)
            # As the packaged unit gives its gate a group that may read.
            os.chown(daemon.home / "run/control.sock", -1, gate_user().pw_gid)
        user = ["--user", gate_user().pw_name] if os.geteuid() == 0 else []
        words = ["env", *disturbed(build, "short eintr"), build / "gate/qmt_gate", "--control",
                 daemon.home / "run/control.sock", *user, "--state", state]
        with daemon, Process(words, pathlib.Path(daemon.scratch.name)) as gate:
            address = wait_for("the gate", lambda: daemon.ask("status")["http"])
            texts = [fetch(f"http://{address}/metrics") for _ in range(3)]
            if any(text.count("# TYPE") != texts[0].count("# TYPE") or not text.endswith("\n") for text in texts):
                fail(f"scrapes of {[text.count('# TYPE') for text in texts]} families")
            push = wait_for("pushes", lambda: next((one for one in daemon.ask("status")["push"]
                                                    if one["sent_rows"] >= 2), None))
            if push["failures"] or push["error"] or push["refused_samples"]:
                fail(f"{push}")
        if gate.process.returncode != 0 or "anitizer" in gate.log.read_text(errors="replace"):
            fail(f"the gate: {gate.process.returncode} {gate.log.read_text(errors='replace')}")
    receiver.shutdown()


def check_write(build, place):
    """One write of the history fails: that batch alone is lost, and told."""
    with running(build, f"full=records.db:{place}") as daemon:
        wait_for("two batches of the history", lambda: daemon.kept() >= 2)
        said = daemon.stop()
        if "can't be written" not in said or "; 1 batches since the start are missing" not in said:
            fail(f"write {place}: {said}")


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    with concurrent.futures.ThreadPoolExecutor(DAEMONS_AT_A_TIME) as pool:
        full = [pool.submit(check, build) for check in (check_full_history, check_full_log, check_broken_sync,
                                                        check_full_states, check_settings, check_client,
                                                        check_gate)]
        fields = check_unseen(build, pool)
        for check in full:
            check.result()
        print(f"halved, interrupted, failing and full: {fields} fields a batch as ever")
        if "--all" in sys.argv[2:]:
            list(pool.map(lambda place: check_write(build, place), range(1, WRITES + 1)))
            print(f"each of {WRITES} writes: a batch lost and told")


if __name__ == "__main__":
    main()
