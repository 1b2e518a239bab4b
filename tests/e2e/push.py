#!/usr/bin/env python3
"""Pushes to a real Prometheus and a real VictoriaMetrics while these, the daemon and its gate are killed and the
disk is full, and compares what they hold then with the agent's history, row by row.

  push.py BUILD_DIRECTORY [BATCHES]     BATCHES: how many are made while a server is away, 20 if not given
"""

import json
import math
import os
import pathlib
import resource
import shutil
import signal
import sqlite3
import struct
import subprocess
import sys
import tempfile
import time
import urllib.parse

from harness import Agent, Process, fail, fetch, free_port, wait_for

SCHEDULE = "".join(f"{record} = 1\n" for record in ("PI", "CPUX", "MEMD", "NETD", "DISK", "PRES", "FSL"))
FULL_SECONDS = 6
MEGABYTE = 2**20
# A metric, the record and field that it is, how much of the field it is, and its labels by the record's keys.
CASES = [
    ("qmt_pi_context_switches_total", "PI", "Context Switches", 1, {}),
    ("qmt_pi_free_mem_bytes", "PI", "Free Mem Mbytes", MEGABYTE, {}),
    ("qmt_pi_1_minute_run_queue_avg", "PI", "1-Minute Run Queue Avg", 1, {}),
    ("qmt_cpux_user_seconds_total", "CPUX", "User Seconds", 1, {"processor": "Processor"}),
    ("qmt_memd_cached_bytes", "MEMD", "Cached Mbytes", MEGABYTE, {}),
    ("qmt_netd_in_bytes_total", "NETD", "Bytes In", 1, {"interface": "Interface"}),
    ("qmt_disk_read_bytes_total", "DISK", "Read Bytes", 1, {"device": "Device"}),
    ("qmt_fsl_available_space_bytes", "FSL", "Available Space Mbytes", MEGABYTE, {"file_system": "File System"}),
]
# What each sample of a target has besides its own: the label of the settings and those that tell the source.
OWN_LABELS = {"site": "a b", "instance": os.uname().nodename, "job": "qmt"}


class Server(Process):
    """A server that is pushed to, with data that outlive it."""

    def __init__(self, name, folder):
        self.name = name
        self.folder = folder
        self.port = free_port()
        self.base = f"http://127.0.0.1:{self.port}"
        folder.mkdir()
        self.start()

    def start(self):
        if self.name == "prometheus":
            (self.folder / "none.yml").write_text("scrape_configs: []\n")
            words = ["prometheus", "--config.file=none.yml", "--web.enable-remote-write-receiver"]
            words += ["--storage.tsdb.path=data", f"--web.listen-address=127.0.0.1:{self.port}"]
        else:
            words = ["victoria-metrics", "-storageDataPath=data", f"-httpListenAddr=127.0.0.1:{self.port}"]
            words += ["-search.latencyOffset=0s"]
        super().__init__(words, self.folder)
        wait_for(self.name, lambda: fetch(f"{self.base}/-/ready" if self.name == "prometheus" else f"{self.base}/health"))

    def kill(self):
        self.process.kill()
        self.process.wait()

    def samples(self, metric, since):
        """{labels: {time: value}} since that time, and some seconds before."""
        seconds = int(time.time()) - since + 10
        query = urllib.parse.urlencode({"query": f"{metric}[{seconds}s]"})
        found = {}
        for series in json.loads(fetch(f"{self.base}/api/v1/query?{query}"))["data"]["result"]:
            labels = {name: value for name, value in series["metric"].items() if name != "__name__"}
            if [labels.pop(name, None) for name in OWN_LABELS] != list(OWN_LABELS.values()):
                fail(f"{self.name}: {series['metric']} lacks a label of the target, {OWN_LABELS}")
            values = {float(when): float(value) for when, value in series["values"]}
            found.setdefault(tuple(sorted(labels.items())), {}).update(values)
        return found


def settings(servers):
    return "".join(f"[Push.{server.name}]\nUrl = {server.base}/api/v1/write\nLabels = site=a b\n" for server in servers)


def behind(agent):
    """The names of the targets that have rows to send, or an error."""
    return [one["name"] for one in agent.ask("status")["push"] if one["oldest"] or one["error"]]


# Kept rows of these hold what was added since the row before; their totals stand packed in a table of their own.
GROWING = ("PI", "CPUX", "MEMD", "NETD", "DISK", "PRES")


def kept(agent, record, since, until):
    """{key of a row, without its time: rows in the order of time}, as the agent tells them."""
    rows = agent.ask("history", record, "--since", "1h")[0]["rows"]
    return [row for row in rows if since <= row["Record Time"] <= until]


def field_value(kind, data):
    if kind == "char":
        return data.split(b"\0")[0].decode(errors="replace")
    if kind == "utime":
        seconds, microseconds = struct.unpack("=ii", data)
        return seconds + microseconds / 1e6
    if kind == "float":
        # As the agent tells it: with the digits of its own precision.
        shortest = (float(f"{struct.unpack('=f', data)[0]:.{digits}g}") for digits in range(1, 10))
        return next((value for value in shortest if struct.pack("=f", value) == data), None)
    value = struct.unpack({"ushort": "=H", "long": "=i", "ulong": "=I", "double": "=d"}[kind], data)[0]
    return value if math.isfinite(value) else None


def unpacked(when, pack, layouts, record):
    """The rows of the record in a pack of totals of that time."""
    while pack:
        number, size, _ = struct.unpack("=qII", pack[:16])
        rows, pack = pack[16:16 + size], pack[16 + size:]
        layout = layouts[number]
        if layout["record"] == record:
            for begin in range(0, size, layout["size"]):
                yield {label: field_value(kind, rows[begin + offset:begin + offset + width])
                       for label, kind, offset, width in layout["fields"]} | {"Record Time": when}


def totals(agent, record, since, until):
    """The rows that are pushed."""
    span = 'WHERE "Record Time" BETWEEN ? AND ? ORDER BY rowid', [since, until]
    with sqlite3.connect(f"file:{agent.home}/records.db?mode=ro", uri=True, timeout=10) as database:
        if record not in GROWING:
            database.row_factory = sqlite3.Row
            return database.execute(f'SELECT * FROM "{record}" {span[0]}', span[1]).fetchall()
        layouts = {number: json.loads(text) for number, text in database.execute('SELECT Layout, Description FROM "qmt totals layouts"')}
        packs = database.execute(f'SELECT "Record Time", Rows FROM "qmt totals" {span[0]}', span[1]).fetchall()
    return [row for when, pack in packs for row in unpacked(when, pack, layouts, record)]


def by_labels(rows, field, scale, keys):
    """By labels and time the values; there are several where a slow host made two batches in a second."""
    found = {}
    for row in rows:
        if row[field] is not None:
            labels = tuple(sorted((label, str(row[key])) for label, key in keys.items()))
            found.setdefault(labels, {}).setdefault(float(row["Record Time"]), []).append(row[field] * scale)
    return found


def check_growth(metric, stored, grown):
    """From each second to the next a counter grows by what the history says."""
    for labels, values in grown.items():
        for when, rows in values.items():
            # What counts of a second is its first row, so the others are of the next one's growth.
            value = rows[0] + sum(values.get(when - 1, [])[1:])
            before = stored[labels].get(when - 1)
            if before is not None and abs(stored[labels][when] - before - value) > 1e-6 * max(1, abs(stored[labels][when])):
                fail(f"{metric}{dict(labels)} grows from {before} to {stored[labels][when]}, and not by {value}")


def compare(agent, servers, since, until):
    """Every row of the history is in every server with its value, and nothing besides."""
    counts = {server.name: 0 for server in servers}
    for metric, record, field, scale, keys in CASES:
        told = by_labels(kept(agent, record, since, until), field, scale, keys)
        expected = by_labels(totals(agent, record, since, until), field, scale, keys)
        times = {labels: set(values) for labels, values in told.items()}
        to_push = {labels: set(values) for labels, values in expected.items()}
        if not told or times != to_push:
            unpushed = {labels: sorted(values - to_push.get(labels, set())) for labels, values in times.items()}
            unkept = {labels: sorted(values - times.get(labels, set())) for labels, values in to_push.items()}
            fail(f"{field} of {record} from {since} to {until}: only the history has {unpushed}, only what is to be pushed {unkept}")
        for server in servers:
            stored = {labels: {when: value for when, value in values.items() if since <= when <= until}
                      for labels, values in server.samples(metric, since).items()}
            for labels, values in expected.items():
                got = stored.get(labels, {})
                lost, extra = sorted(set(values) - set(got)), sorted(set(got) - set(values))
                wrong = [when for when in values if when in got and abs(values[when][0] - got[when]) > 1e-9 * abs(values[when][0])]
                if lost or extra or wrong:
                    fail(f"{server.name}: of {metric}{dict(labels)} {len(lost)} of {len(values)} are lost, {len(extra)} too "
                         f"much, {len(wrong)} wrong: {(lost + extra + wrong)[:3]}")
                counts[server.name] += len(values)
            if set(stored) != set(expected):
                fail(f"{server.name}: {metric} has {set(stored) ^ set(expected)} besides")
            if metric.endswith("_total"):
                check_growth(metric, stored, told)
    return counts


def kill(agent, what, http):
    if what == "gate":
        os.kill(agent.gate_pid(), signal.SIGKILL)
        wait_for("a new gate", lambda: agent.ask("status")["http"])
    else:
        agent.process.kill()
        agent.process.wait()
        agent.start(http)


def batches(agent):
    return agent.ask("history", "PI", "--since", "1h")[0]["rows"]


def fill_disk(agent):
    """The file of the history can't grow, as on a disk that is full."""
    size = (agent.home / "records.db").stat().st_size
    resource.prlimit(agent.process.pid, resource.RLIMIT_FSIZE, (size, resource.RLIM_INFINITY))
    time.sleep(FULL_SECONDS)
    lost = wait_for("batches that are lost", lambda: agent.ask("status")["history"]["lost_batches"])
    resource.prlimit(agent.process.pid, resource.RLIMIT_FSIZE, (resource.RLIM_INFINITY, resource.RLIM_INFINITY))
    wait_for("the history to go on", lambda: "is written again" in (agent.home / "log.txt").read_text(errors="replace"))
    return lost


def run(build, work, count):
    # The gate's user has to get there.
    os.chmod(work, 0o755)
    with Server("prometheus", work / "prometheus") as first, Server("victoria", work / "victoria") as second:
        servers = [first, second]
        with Agent(build, work / "agent", "modern", SCHEDULE) as agent:
            http = "Gate = child\n" + settings(servers)
            agent.restart(http)
            wait_for("both targets", lambda: len(agent.ask("status")["push"]) == 2)
            # A new target has no row of before its begin.
            wait_for("the first rows", lambda: all(one["sent_rows"] for one in agent.ask("status")["push"]))
            since = int(time.time())
            first.kill()
            begin = len(batches(agent))
            middle, kills = begin + count // 2, ["gate", "daemon"]
            lost = 0
            while (made := len(batches(agent))) < begin + count:
                if kills and made >= middle:
                    kill(agent, kills.pop(0), http)
                    lost = lost or fill_disk(agent)
                time.sleep(1)
            wait_for("a server that is away to be told as such", lambda: first.name in behind(agent))
            first.start()
            wait_for("all rows to be sent", lambda: not behind(agent))
            # The rows of the last seconds may be on their way.
            counts = compare(agent, servers, since, batches(agent)[-1]["Record Time"] - 10)
            print(f"push: {len(batches(agent)) - begin} batches while a server was away, gate and daemon killed, {lost} batches lost by a "
                  f"full disk: {counts} values as in the history, none missing, none besides")


def main():
    if len(sys.argv) not in (2, 3):
        fail("usage: push.py BUILD_DIRECTORY [BATCHES]")
    for program in ("prometheus", "victoria-metrics"):
        if shutil.which(program) is None:
            fail(f"no {program}: scripts/install-deps e2e")
    build = pathlib.Path(sys.argv[1]).resolve()
    with tempfile.TemporaryDirectory(prefix="qmt-e2e-") as work:
        run(build, pathlib.Path(work), int(sys.argv[2]) if len(sys.argv) == 3 else 20)


if __name__ == "__main__":
    main()
