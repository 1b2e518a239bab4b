"""What the end-to-end tests share: programs of their own folders, and a daemon to ask."""

import contextlib
import json
import os
import pathlib
import pwd
import re
import select
import signal
import socket
import subprocess
import sys
import time
import urllib.error
import urllib.request

LIMIT_SECONDS = 90


def fail(text):
    raise SystemExit(f"{os.path.basename(sys.argv[0])}: {text}")


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def fetch(url, accept=None):
    request = urllib.request.Request(url, headers={"Accept": accept} if accept else {})
    with urllib.request.urlopen(request, timeout=10) as answer:
        return answer.read().decode()


def wait_for(what, condition):
    """Calls `condition` until it gives something true, which is returned."""
    end = time.monotonic() + LIMIT_SECONDS
    last = None
    while time.monotonic() < end:
        try:
            if value := condition():
                return value
        except (urllib.error.URLError, ConnectionError, KeyError, IndexError, ValueError) as error:
            last = error
        time.sleep(0.2)
    fail(f"{what}: nothing within {LIMIT_SECONDS} s ({last})")


def gate_user():
    """Whom the gate of a daemon of root's becomes."""
    try:
        return pwd.getpwnam("qmtgate")
    except KeyError:
        return pwd.getpwnam("nobody")


class Process:
    """A program in a folder of its own, ended with the object."""

    def __init__(self, words, folder, **environment):
        self.log = folder / "log.txt"
        with open(self.log, "wb") as log:
            self.process = subprocess.Popen(words, cwd=folder, stdout=log, stderr=log,
                                            env={**os.environ, **environment})

    def __enter__(self):
        return self

    def __exit__(self, kind, *_):
        self.process.send_signal(signal.SIGTERM)
        try:
            self.process.wait(20)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        if kind is not None:
            sys.stderr.write(f"== {self.log}\n{self.log.read_text(errors='replace')[-4000:]}\n")


class Agent(Process):
    """The daemon below a product root of its own, and its gate on a free port."""

    def __init__(self, build, folder, profile="classic", schedule="", node="", gate="child",
                 port=0, before=()):
        """before: words that the daemon is started by, such as those of setpriv."""
        self.build = build
        self.before = before
        self.folder = folder
        self.home = folder / "opt/qmtrx/mond/agent"
        self.settings = (f"[Node]\n{node}\n[Host]\nProfile = {profile}\n[Schedule]\n{schedule}\n"
                         f"[Http]\nListen = 127.0.0.1:{port}\n")
        (self.home / "log").mkdir(parents=True)
        (self.home / "wgfile").write_text("workgroup = root\nusers = root\n")
        for helper in ("qmt_hostutil", "qmt_ufss"):
            (self.home / helper).symlink_to(build / "helpers" / helper)
        self.http = f"Gate = {gate}\n"
        self.start(self.http, gate == "child")

    def start(self, http, has_gate=True):
        (self.home / "qmtagt.ini").write_text(self.settings + http)
        super().__init__([*self.before, self.build / "agent/qmtdmon"], self.home,
                         QMT_PRODUCT_ROOT=str(self.folder))
        try:
            wait_for("the agent", lambda: self.ask("status")["pid"])
            if has_gate:
                self.address = wait_for("the gate", lambda: self.ask("status")["http"])
                self.bare = self.address.removeprefix("https://")
                self.port = int(self.bare.rpartition(":")[2])
        except BaseException:
            # Nobody else would end it, as there is no object yet.
            self.__exit__(*sys.exc_info())
            raise

    def restart(self, http):
        """The same with other lines of section Http."""
        self.__exit__(None)
        self.start(http)

    def gate_pid(self):
        """The process that the daemon has started for the network."""
        pid = self.process.pid
        children = pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().split()
        return next(int(child) for child in children
                    if pathlib.Path(f"/proc/{child}/comm").read_text().strip() == "qmt_gate")

    def give_to_gate(self, path):
        """Makes a file that of the user whom the gate becomes where the daemon is root's."""
        user = gate_user()
        os.chown(path, user.pw_uid, user.pw_gid)

    def ask(self, *words):
        done = subprocess.run(
            [self.build / "client/qmtctl", "--socket", "run/control.sock", *words, "--json"],
            cwd=self.home, capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise ValueError(done.stderr)
        return json.loads(done.stdout)

    @contextlib.contextmanager
    def watch(self, records, seconds):
        """What gives the next sample of two looks of the client's, as soon as it is there."""
        words = [self.build / "client/qmtctl", "--socket", "run/control.sock", "watch", *records, "--every",
                 str(seconds), "--count", "2", "--json"]
        with subprocess.Popen(words, cwd=self.home, stdout=subprocess.PIPE, text=True) as program:
            def sample():
                if not select.select([program.stdout], [], [], seconds + LIMIT_SECONDS)[0]:
                    raise ValueError(f"{words}: nothing within {seconds + LIMIT_SECONDS} s")
                return json.loads(program.stdout.readline())
            try:
                yield sample
            finally:
                program.kill()

    def row(self, record, **key):
        rows = self.ask("get", record, "--raw")[0]["rows"]
        return next(row for row in rows if all(row[label] == key[label] for label in key))


def client(agent, *words):
    """What the client prints for people."""
    done = subprocess.run([agent.build / "client/qmtctl", "--socket", "run/control.sock", *words],
                          cwd=agent.home, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        fail(f"qmtctl {' '.join(words)}: {done.stderr}")
    return done.stdout


def console_token(agent):
    return re.search(r"#token=(\S+)", client(agent, "console", "--print")).group(1)
