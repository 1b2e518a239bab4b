#!/usr/bin/env python3
"""A process eats memory: a real Alertmanager, a webhook and a command hear of the alarm and of its end, and the rows
that are captured with it name the process.

  alarms.py BUILD_DIRECTORY
"""

import http.server
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import threading

from harness import Agent, Process, client, fail, fetch, free_port, wait_for

SCHEDULE = "PI = 1\nMEMD = 1\nPDX = 1\n"
# So much that browsers and servers which come and go beside it make no difference.
MOST_EATEN_MEGABYTES = 1500
EATER = ("import sys, time\nhoard = bytearray(int(sys.argv[1]) << 20)\n"
         "for place in range(0, len(hoard), 4096):\n    hoard[place] = 1\n"
         "print(flush=True)\ntime.sleep(600)\n")


class Hook:
    """Takes what is posted; fails the first time, so that it is told again."""

    def __init__(self):
        self.told = []
        outer = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_POST(self):
                body = self.rfile.read(int(self.headers["Content-Length"]))
                outer.told.append(json.loads(body))
                self.send_response(503 if len(outer.told) == 1 else 200)
                self.end_headers()

            def log_message(self, *_):
                pass

        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.url = f"http://127.0.0.1:{self.server.server_port}/hook"
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def states(self, name):
        return [one["alarm"]["state"] for one in self.told if one["alarm"]["alarm"] == name]


def alertmanager(folder, port):
    folder.mkdir()
    (folder / "config.yml").write_text("route:\n  receiver: none\nreceivers:\n  - name: none\n")
    return Process(["prometheus-alertmanager", "--config.file=config.yml", "--storage.path=data", "--cluster.listen-address=",
                    f"--web.listen-address=127.0.0.1:{port}"], folder)


def alerts(port, name):
    return [one for one in json.loads(fetch(f"http://127.0.0.1:{port}/api/v2/alerts"))
            if one["labels"]["alertname"] == name]


def definitions(available, eaten):
    return f"""# Three alarms, of which the last two can't work.
alarm = memory-low
record = MEMD
condition = Available Mbytes < {available - eaten * 3 // 4}
until = Available Mbytes > {available - eaten // 2}
for = 2s
severity = critical
text = {{Available Mbytes}} Mbytes are left
capture = PDX
alarm = no-such-field
record = MEMD
condition = Available Bananas < 3
alarm = not-scheduled
record = SOCK
condition = Inuse > 1
"""


def write_command(agent):
    """A command that keeps what it is told."""
    path = agent.folder / "told"
    path.write_text("#!/bin/sh\necho \"$QMT_ALARM_NAME $QMT_ALARM_STATE $QMT_ALARM_SEVERITY $QMT_ALARM_TEXT\" >> "
                    f"{agent.folder}/told.txt\n")
    path.chmod(0o755)
    return path


def told_lines(agent):
    path = agent.folder / "told.txt"
    return path.read_text().splitlines() if path.exists() else []


def active(agent):
    return [one for one in agent.ask("alarms", "--active")["list"] if one["alarm"] == "memory-low"]


def check_definitions(agent):
    """What can't work is told by the check with its line, is off, and leaves the other at work."""
    done = subprocess.run([agent.build / "client/qmtctl", "check", "alarms", "alarms"], cwd=agent.home, capture_output=True, text=True, check=False)
    if done.returncode != 1 or "alarms:12" not in done.stdout + done.stderr:
        fail(f"check alarms says {done.returncode}: {done.stdout}{done.stderr}")
    text = (agent.home / "log.txt").read_text(errors="replace")
    for name in ("no-such-field", "not-scheduled"):
        if name not in text:
            fail(f"the log says nothing of {name}")


def run(build, work):
    # The gate's user has to get there.
    os.chmod(work, 0o755)
    (work / "agent").mkdir()
    hook, port = Hook(), free_port()
    with alertmanager(work / "alertmanager", port), Agent(build, work / "agent/root", "modern", SCHEDULE) as agent:
        wait_for("Alertmanager", lambda: fetch(f"http://127.0.0.1:{port}/-/ready"))
        available = int(agent.row("MEMD")["Available Mbytes"])
        eaten = min(MOST_EATEN_MEGABYTES, available // 4)
        (agent.home / "alarms").write_text(definitions(available, eaten))
        http = f"Gate = child\n[Alarms]\nAlertmanager = http://127.0.0.1:{port}\nWebhook = {hook.url}\nCommand = {write_command(agent)}\n"
        agent.restart(http)
        check_definitions(agent)
        with subprocess.Popen([sys.executable, "-c", EATER, str(eaten)], stdout=subprocess.PIPE) as eater:
            try:
                eater.stdout.read(1)
                begun = wait_for("the alarm", lambda: active(agent))[0]
                wait_for("Alertmanager's alert", lambda: alerts(port, "memory-low"))
                wait_for("the webhook", lambda: len(hook.states("memory-low")) >= 2)
                wait_for("the command", lambda: told_lines(agent))
                check_captured(agent, begun["id"], eater.pid)
                agent.process.kill()
                agent.process.wait()
                agent.start(http)
                again = wait_for("the alarm after a restart", lambda: active(agent))[0]
                if (again["id"], again["since"]) != (begun["id"], begun["since"]):
                    fail(f"after a restart {begun} is {again}")
            finally:
                eater.kill()
        wait_for("the end", lambda: not active(agent))
        wait_for("the end in Alertmanager", lambda: not alerts(port, "memory-low"))
        wait_for("the end by the webhook", lambda: "ended" in hook.states("memory-low"))
        wait_for("the end by the command", lambda: len(told_lines(agent)) >= 2)
        if [line.split()[:3] for line in told_lines(agent)] != [["memory-low", "active", "critical"], ["memory-low", "ended", "critical"]]:
            fail(f"the command was told {told_lines(agent)}")
        rules = client(agent, "alarms", "rules")
        done = subprocess.run(["promtool", "check", "rules", "/dev/stdin"], input=rules, capture_output=True, text=True, check=False)
        if done.returncode != 0 or "memory-low" not in rules and "memory_low" not in rules:
            fail(f"promtool: {done.stdout}{done.stderr}\n{rules}")
        print(f"alarms: {len(hook.told)} posts to the webhook, {len(told_lines(agent))} commands, begin and end in Alertmanager, the eater is among the captured rows")


def check_captured(agent, number, pid):
    shown = agent.ask("alarms", "show", str(number))
    rows = next(one["rows"] for one in shown["rows"] if one["record"] == "PDX")
    if pid not in [row["PID"] for row in rows]:
        fail(f"process {pid} is not among the {len(rows)} rows of PDX of alarm {number}")


def main():
    if len(sys.argv) != 2:
        fail("usage: alarms.py BUILD_DIRECTORY")
    for program in ("prometheus-alertmanager", "promtool"):
        if shutil.which(program) is None:
            fail(f"no {program}: scripts/install-deps e2e")
    build = pathlib.Path(sys.argv[1]).resolve()
    with tempfile.TemporaryDirectory(prefix="qmt-e2e-") as work:
        run(build, pathlib.Path(work))


if __name__ == "__main__":
    main()
