"""What the comparisons share: agents of their own, and what programs have used of processor and memory."""

import json
import os
import pathlib
import socket
import subprocess
import time
import urllib.request


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def cpu_seconds(pid):
    """Of all threads."""
    total = 0
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        total += int((task / "schedstat").read_text().split()[0])
    return total / 1e9


def children(pid, name):
    """The processes of that name that the process has started."""
    return [int(child) for child in pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().split()
            if pathlib.Path(f"/proc/{child}/comm").read_text().strip() == name]


def resident_megabytes(pid):
    for line in pathlib.Path(f"/proc/{pid}/status").read_text().splitlines():
        if line.startswith("VmRSS:"):
            return int(line.split()[1]) / 1024
    raise RuntimeError(f"no memory of {pid}")


def fetch(address):
    with urllib.request.urlopen(f"http://{address}/metrics", timeout=30) as answer:
        return len(answer.read())


def wait_for(condition):
    end = time.monotonic() + 30
    while time.monotonic() < end:
        try:
            return condition()
        except (OSError, ValueError, KeyError):
            time.sleep(0.1)
    raise RuntimeError("a program does not answer")


class Agent:
    def __init__(self, build, folder, ini, profile="modern"):
        """`ini` are lines of its settings."""
        self.build = build
        self.home = folder / "opt/qmtrx/mond/agent"
        (self.home / "log").mkdir(parents=True)
        (self.home / "wgfile").write_text("workgroup = root\nusers = root\n")
        (self.home / "qmtagt.ini").write_text(ini)
        for helper in ("qmt_hostutil", "qmt_ufss"):
            (self.home / helper).symlink_to(build / "helpers" / helper)
        self.process = subprocess.Popen([build / "agent/qmtdmon"], cwd=self.home,
                                        stderr=subprocess.DEVNULL,
                                        env={**os.environ, "QMT_PRODUCT_ROOT": str(folder),
                                             "QMT_HOST_PROFILE": profile})
        self.pid = self.process.pid
        self.gate = None
        wait_for(self.status)
        if "Listen = 1" in ini:
            self.address = wait_for(self.listening)
            self.gate = children(self.pid, "qmt_gate")[0]

    def listening(self):
        if address := self.status()["http"]:
            return address
        raise ValueError("the gate does not listen yet")

    def status(self):
        done = subprocess.run([self.build / "client/qmtctl", "--socket", "run/control.sock",
                               "status", "--json"], cwd=self.home, capture_output=True, text=True,
                              check=False)
        return json.loads(done.stdout)

    def runs(self):
        return min(entry["runs"] for entry in self.status()["schedules"])
