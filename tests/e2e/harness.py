"""What the end-to-end tests share: programs of their own folders, and a daemon to ask."""

import json
import os
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
    """The daemon below a product root of its own, with a free port for its metrics."""

    def __init__(self, build, folder, profile="classic", schedule="", node=""):
        self.build = build
        self.home = folder / "opt/qmtrx/mond/agent"
        (self.home / "log").mkdir(parents=True)
        (self.home / "wgfile").write_text("workgroup = root\nusers = root\n")
        (self.home / "qmtagt.ini").write_text(
            f"[Node]\nHttp Listen = 127.0.0.1:0\n{node}\n[Host]\nProfile = {profile}\n"
            f"[Schedule]\n{schedule}")
        for helper in ("qmt_hostutil", "qmt_ufss"):
            (self.home / helper).symlink_to(build / "helpers" / helper)
        super().__init__([build / "agent/qmtdmon"], self.home, QMT_PRODUCT_ROOT=str(folder))
        self.address = wait_for("the agent", lambda: self.ask("status")["http"])

    def ask(self, *words):
        done = subprocess.run(
            [self.build / "client/qmtctl", "--socket", "run/control.sock", *words, "--json"],
            cwd=self.home, capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise ValueError(done.stderr)
        return json.loads(done.stdout)

    def row(self, record, **key):
        rows = self.ask("get", record, "--raw")[0]["rows"]
        return next(row for row in rows if all(row[label] == key[label] for label in key))
