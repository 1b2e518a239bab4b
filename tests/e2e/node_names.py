#!/usr/bin/env python3
"""The page under the names of the node exporter against a real one on the same host: names, labels, types
and values, but for what docs/metrics.md says is not given; and the rules that go by these names.

  node_names.py BUILD_DIRECTORY
"""

import fnmatch
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time
import urllib.error

from harness import Agent, Process, fail, fetch, free_port, wait_for

SOURCE = pathlib.Path(__file__).resolve().parents[2]
COLLECTORS = ["cpu", "diskstats", "filefd", "filesystem", "hwmon", "loadavg", "meminfo",
              "netclass", "netdev", "netstat", "os", "pressure", "sockstat", "stat", "thermal_zone",
              "time", "timex", "uname", "vmstat"]
# Debian's package leaves out more than the exporter by itself.
EXCLUDED = ["--collector.netdev.device-exclude=",
            "--collector.filesystem.mount-points-exclude="
            "^/(dev|proc|run/credentials/.+|sys|var/lib/docker/.+|var/lib/containers/storage/.+)($|/)"]
# Of the exporter itself.
ITS_OWN = re.compile(r"node_(exporter_build_info|scrape_collector_\w+)$")
SAMPLE = re.compile(r"^(\w+)(?:\{(.*)\})? (\S+)$")
LABEL = re.compile(r'(\w+)="((?:[^"\\]|\\.)*)"')
# An empty label is none, and of an interface these are empty here.
SAME_AS_EMPTY = [("address", "00:00:00:00:00:00"), ("duplex", "unknown")]
# What a look itself opens for as long as it lasts.
OPENED = 16
OF_OPENED = re.compile(r"node_(sockstat_(sockets_used|TCP_(inuse|alloc))|netstat_Tcp_CurrEstab|filefd_allocated)$")
ROUNDS = 25


class Page:
    """Families and samples of a text: {family: type}, {family: {labels: value}}."""

    def __init__(self, text):
        self.types, self.samples = {}, {}
        for line in text.splitlines():
            if line.startswith("# TYPE "):
                _, _, name, kind = line.split()
                self.types[name], self.samples[name] = kind, {}
            elif match := SAMPLE.match(line):
                labels = frozenset(pair for pair in LABEL.findall(match[2] or "")
                                   if pair[1] and pair not in SAME_AS_EMPTY)
                self.samples.setdefault(match[1], {})[labels] = float(match[3])

    def families(self):
        return {name for name in self.types if name.startswith("node_") and not ITS_OWN.match(name)}


class Documented:
    """What the tables of the document say is otherwise."""

    def __init__(self):
        text = (SOURCE / "docs/metrics.md").read_text()
        part = text[text.index("\n## Names of the node exporter"):]
        part = part[:part.index("\n## ", 5)]
        rows = [[cell.strip() for cell in line.strip("|").split("|")]
                for line in part.splitlines() if line.startswith("| ")]
        self.collectors = {row[0].strip("`"): row for row in rows if len(row) == 4}
        self.absent, self.labels = [], {}
        for row in self.collectors.values():
            for word in re.findall(r"`(node_[^`]+)`", row[3]):
                name, _, labels = word.partition("{")
                if labels:
                    self.labels[name] = set(labels.strip("}").split(","))
                else:
                    self.absent.append(name)
        self.rows = [word for row in rows if len(row) == 2 for word in re.findall(r"`(node_[^`]+)`", row[0])]

    def is_absent(self, name):
        return any(fnmatch.fnmatchcase(name, pattern) for pattern in self.absent)

    def may_lack(self, name, labels, theirs, ours):
        """Whether the row is one of those that the document says are not given."""
        if not any(fnmatch.fnmatchcase(name, pattern) for pattern in self.rows):
            return False
        labels = dict(labels)
        if name.startswith("node_disk_"):
            device = pathlib.Path("/sys/class/block") / labels["device"]
            done = any(value for family, samples in theirs.samples.items() if family.startswith("node_disk_")
                       for its, value in samples.items() if ("device", labels["device"]) in its
                       and family != "node_disk_info")
            return (device / "partition").exists() or not done and int((device / "size").read_text()) == 0
        if name.startswith("node_filesystem_"):
            its = [row for row in ours.samples["node_filesystem_size_bytes"]
                   if ("device", labels["device"]) in row]
            return (bool(its) or theirs.samples["node_filesystem_size_bytes"].get(frozenset(labels.items())) == 0
                    or name.startswith("node_filesystem_files") and labels["fstype"].startswith(("nfs", "cifs")))
        return name == "node_network_speed_bytes" and theirs.samples[name][frozenset(labels.items())] < 0

    def kept(self, name, labels):
        """The labels of a sample that both have."""
        return frozenset(pair for pair in labels if pair[0] not in self.labels.get(name, ()))


def compare_shapes(documented, theirs, ours):
    """Names, types and label sets. Which samples are on both, by (name, their labels, ours)."""
    problems = []
    for name in sorted(theirs.families()):
        if documented.is_absent(name):
            if name in ours.types:
                problems.append(f"{name} is given, and the document says that it is not")
        elif name in ours.types and ours.types[name] != theirs.types[name]:
            problems.append(f"{name} is a {ours.types[name]}, and should be a {theirs.types[name]}")
    for name in sorted(ours.families() - theirs.families()):
        problems.append(f"{name} is no name of the exporter's here")
    common = []
    for name in sorted(theirs.families()):
        known = {documented.kept(name, labels): labels for labels in ours.samples.get(name, ())}
        for labels in theirs.samples[name]:
            found = known.pop(documented.kept(name, labels), None)
            if found is not None:
                common.append((name, labels, found))
            elif not documented.is_absent(name) and not documented.may_lack(name, labels, theirs, ours):
                problems.append(f"{name}{sorted(labels)} is missing")
        problems += [f"{name}{sorted(labels)} is none of the exporter's" for labels in known.values()]
    return problems, common


def lies_between(name, first, value, last):
    low, high = min(first, last), max(first, last)
    # The last digits of a float, and times of a second each.
    room = 1 if name == "node_time_seconds" else OPENED if OF_OPENED.match(name) else 1e-9 * abs(high)
    return low - room <= value <= high + room


def compare_values(documented, exporter, page):
    """A figure agrees if ours lies between two of the exporter's once: between these two looks it has not
    gone up and down again."""
    left, problems = None, []
    for _ in range(ROUNDS):
        first, ours, last = Page(fetch(exporter)), Page(fetch(page)), Page(fetch(exporter))
        problems, common = compare_shapes(documented, first, ours)
        if left is None:
            left, count = set(common), len(common)
        left -= {(name, their, our) for name, their, our in common
                 if lies_between(name, first.samples[name][their], ours.samples[name][our],
                                 last.samples.get(name, {}).get(their, float("nan")))}
        if not problems and not left:
            return count, len(first.families() & ours.families())
        time.sleep(1.1)  # until then the page is the one before
    problems += [f"{name}{sorted(their)} is {ours.samples.get(name, {}).get(our)}, and should be between "
                 f"{first.samples[name].get(their)} and {last.samples[name].get(their)}"
                 for name, their, our in sorted(left, key=str)]
    fail("\n  ".join(["the page is not the exporter's:", *problems]))


def start_exporter(folder, *words):
    folder.mkdir()
    port = free_port()
    flags = [f"--collector.{name}" for name in COLLECTORS]
    process = Process(["prometheus-node-exporter", "--collector.disable-defaults", *flags, *EXCLUDED, *words,
                       f"--web.listen-address=127.0.0.1:{port}"], folder)
    return process, f"http://127.0.0.1:{port}/metrics"


def check_host(build, work, documented):
    exporter, url = start_exporter(work / "exporter")
    with exporter, Agent(build, folder(work, "agent"), "modern") as agent:
        wait_for("the exporter", lambda: fetch(url))
        page = f"http://{agent.address}/metrics/node"
        samples, families = compare_values(documented, url, page)
        print(f"node exporter: {families} names with {samples} samples agree")
        opened = Page(fetch(page, "application/openmetrics-text"))
        if not {"node_load1", "node_cpu_seconds", "node_uname_info"} <= set(opened.types):
            fail("the OpenMetrics text has other names")
        check_format(fetch(page))
        check_rules(work, agent)


def check_format(text):
    """What promtool has to say against the exporter's own names is left."""
    done = subprocess.run(["promtool", "check", "metrics"], input=text, capture_output=True, text=True,
                          check=False)
    told = [line for line in (done.stdout + done.stderr).splitlines() if not line.startswith("node_")]
    if told:
        fail(f"promtool: {told}")


def check_rules(work, agent):
    """A real Prometheus evaluates each rule on our page."""
    rules = SOURCE / "packaging/prometheus/node.rules.yml"
    subprocess.run(["promtool", "check", "rules", rules], check=True, stdout=subprocess.DEVNULL)
    # Rules of a minute would take a minute.
    quick = work / "quick.rules.yml"
    quick.write_text(re.sub(r"interval: \d+s", "interval: 1s", rules.read_text()))
    config = work / "scrape.yml"
    config.write_text(json.dumps({
        "global": {"scrape_interval": "1s", "evaluation_interval": "1s"}, "rule_files": [str(quick)],
        "scrape_configs": [{"job_name": "node", "metrics_path": "/metrics/node",
                            "static_configs": [{"targets": [agent.address]}]}]}))
    port = free_port()
    base = f"http://127.0.0.1:{port}/api/v1"
    names = re.findall(r"- record: (\S+)", quick.read_text())
    with Process(["prometheus", f"--config.file={config}", "--storage.tsdb.path=data",
                  f"--web.listen-address=127.0.0.1:{port}"], folder(work, "prometheus")):
        for name in names:
            wait_for(name, lambda asked=name: json.loads(fetch(
                f"{base}/query?query={asked}"))["data"]["result"])
        groups = json.loads(fetch(f"{base}/rules"))["data"]["groups"]
    rules = [rule for group in groups for rule in group["rules"]]
    if bad := [rule["name"] for rule in rules if rule.get("lastError") or rule["health"] != "ok"]:
        fail(f"Prometheus does not evaluate {bad}")
    print(f"Prometheus: {len(rules)} rules of the node exporter's names, {len(names)} of them recorded")


# Files of chips and zones, and what is in them.
CHIPS = {
    "hwmon/hwmon0": {"name": "coretemp", "temp1_input": 45500, "temp1_max": 80000, "temp1_crit": 100000,
                     "temp1_label": "Package id 0", "temp2_input": 44000},
    "hwmon/hwmon1": {"name": "board", "fan1_input": 1200, "in0_input": 1104, "in0_max": 1500,
                     "curr1_input": 2500, "curr1_crit": 9000, "power1_input": 65250000,
                     "power1_max": 90000000, "energy1_input": 123456789, "humidity1_input": 41000},
}
ZONES = {"thermal/thermal_zone0": {"type": "acpitz", "policy": "step_wise", "temp": 27800},
         "thermal/thermal_zone3": {"type": "x86_pkg_temp", "policy": "step_wise", "temp": 61000}}


def make_files(root, tree):
    for place, files in tree.items():
        at = root / "sys/class" / place
        at.mkdir(parents=True)
        for name, content in files.items():
            (at / name).write_text(f"{content}\n")
        if "hwmon" in place:  # a chip is told by its device
            device = root / f"sys/devices/platform/{files['name']}.0"
            device.mkdir(parents=True)
            (at / "device").symlink_to(device)
    (root / "proc").mkdir()


def chips_as_named(page):
    """The samples with the chip's name in the place of the exporter's word for it."""
    names = {dict(labels)["chip"]: dict(labels)["chip_name"]
             for labels in page.samples.get("node_hwmon_chip_names", {})}
    return {(family, frozenset((key, names.get(value, value) if key == "chip" else value)
                               for key, value in labels)): value
            for family, samples in page.samples.items() for labels, value in samples.items()
            if family.startswith(("node_hwmon_", "node_thermal_"))}


def check_sensors(build, work, documented, name, tree):
    """Chips that this host may not have."""
    root = folder(work, name)
    make_files(root, tree)
    exporter, url = start_exporter(work / f"{name}-exporter", f"--path.sysfs={root}/sys",
                                   f"--path.procfs={root}/proc")
    os.environ["QMT_HOST_ROOT"] = str(root)
    try:
        with exporter, Agent(build, folder(work, f"{name}-agent"), "modern") as agent:
            del os.environ["QMT_HOST_ROOT"]
            wait_for("the exporter", lambda: fetch(url))
            theirs = {key: value for key, value in chips_as_named(Page(fetch(url))).items()
                      if not documented.is_absent(key[0])}
            ours = chips_as_named(Page(fetch(f"http://{agent.address}/metrics/node")))
    finally:
        os.environ.pop("QMT_HOST_ROOT", None)
    wrong = [f"{key[0]}{sorted(key[1])}: {theirs.get(key)}, ours {ours.get(key)}"
             for key in sorted(theirs.keys() | ours.keys(), key=str)
             if key not in theirs or key not in ours or abs(theirs[key] - ours[key]) > 1e-9 * abs(theirs[key])]
    if wrong or not theirs:
        fail("\n  ".join([f"sensors, {name}:", *wrong]))
    print(f"node exporter: {len(theirs)} samples of {name} agree")


def check_classic(build, work):
    with Agent(build, folder(work, "classic")) as agent:
        try:
            fetch(f"http://{agent.address}/metrics/node")
            fail("under classic the page is there")
        except urllib.error.HTTPError as error:
            told = error.read().decode()
            if error.code != 404 or "modern" not in told:
                fail(f"under classic the page answers {error.code} {told}")


def folder(work, name):
    path = work / name
    path.mkdir()
    return path


def main():
    if len(sys.argv) != 2:
        fail("usage: node_names.py BUILD_DIRECTORY")
    build = pathlib.Path(sys.argv[1]).resolve()
    documented = Documented()
    if lacking := {name.removesuffix("_zone") for name in COLLECTORS} - set(documented.collectors):
        fail(f"docs/metrics.md does not tell of {sorted(lacking)}")
    with tempfile.TemporaryDirectory(prefix="qmt-e2e-") as work:
        work = pathlib.Path(work)
        check_host(build, work, documented)
        check_sensors(build, work, documented, "chips", CHIPS)
        check_sensors(build, work, documented, "zones", ZONES)
        check_classic(build, work)


if __name__ == "__main__":
    main()
