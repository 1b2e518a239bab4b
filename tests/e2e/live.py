#!/usr/bin/env python3
"""What the agent shows of this host under the profile `modern`, against what the programs show that
people know: vmstat, iostat, prometheus-node-exporter, ps, ip and df, over the same seconds of a
load of disk writes, forks, page faults and packets.

  live.py BUILD_DIRECTORY
"""

import contextlib
import json
import mmap
import multiprocessing
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

from harness import Agent, Process, fail, fetch, free_port, wait_for

SECONDS = 10
TRIES = 4
TOLERANCE = 0.02
FLOAT_ROUNDING = 1e-6
PAGE_KBYTES = os.sysconf("SC_PAGE_SIZE") / 1024
TICKS = os.sysconf("SC_CLK_TCK")
PROCESSORS = os.cpu_count()
ODD_NAME = "a b (c)"
# By the letter of ps.
STATES = {"R": "RUN", "S": "SLEEP", "D": "DISK", "I": "IDLE", "Z": "ZOMBIE", "T": "STOP",
          "t": "STOP"}


def output(*words):
    return subprocess.run(words, capture_output=True, text=True, check=True,
                          env={**os.environ, "LC_ALL": "C", "TZ": "UTC"}).stdout


# The peers' counters by name.

def vmstat_counters():
    pairs = (line.strip().split(" ", 1) for line in output("vmstat", "-s").splitlines())
    return {name.strip(): float(value) for value, name in pairs}


def exporter_counters(address):
    counters = {}
    for line in fetch(f"http://{address}/metrics").splitlines():
        if line.startswith("node_"):
            name, value = line.rsplit(" ", 1)
            counters[name] = float(value)
    return counters


def interfaces():
    return {link["ifname"]: link for link in json.loads(output("ip", "-s", "-j", "addr"))}


def processes():
    """By number: parent, user, niceness, sizes in Kbytes, class, state, age in seconds and name."""
    rows = {}
    columns = "pid=,ppid=,euid=,ni=,vsz=,rss=,cls=,state=,etimes=,comm="
    for line in output("ps", "-eo", columns).splitlines():
        pid, ppid, user, nice, virtual, resident, kind, state, age, name = line.split(None, 9)
        rows[int(pid)] = {"ppid": int(ppid), "user": int(user), "nice": nice,
                          "name": name.removesuffix(" <defunct>"), "virtual": int(virtual),
                          "resident": int(resident), "class": kind, "state": state, "age": int(age)}
    return rows


def process_io(pids):
    """syscr, syscw and the like of each process that shows them."""
    found = {}
    for pid in pids:
        with contextlib.suppress(OSError):
            text = pathlib.Path(f"/proc/{pid}/io").read_text()
            found[pid] = {key: int(value) for key, value in re.findall(r"(\w+): (\d+)", text)}
    return found


def process_switches(pids):
    """How often each process has been given up or taken a processor: while the count stands, its
    state does."""
    found = {}
    for pid in pids:
        with contextlib.suppress(OSError):
            text = pathlib.Path(f"/proc/{pid}/status").read_text()
            found[pid] = re.findall(r"ctxt_switches:\t(\d+)", text)
    return found


def file_systems():
    rows = {}
    lines = output("df", "-B1", "--output=source,fstype,size,used,avail,pcent,target").splitlines()
    for line in lines[1:]:
        source, kind, size, used, free, percent, target = line.split(None, 6)
        rows[target] = {"source": source, "type": kind, "size": int(size), "used": int(used),
                        "free": int(free), "percent": percent.rstrip("%")}
    return rows


class Peers:
    """One look of all peers."""

    def __init__(self, exporter):
        self.vmstat = vmstat_counters()
        self.exporter = exporter_counters(exporter)
        self.links = interfaces()
        self.processes = processes()
        self.io = process_io(self.processes)
        self.switches = process_switches(self.processes)
        self.mounts = file_systems()


class Look:
    """One look of the agent, with the peers' just before and just after it."""

    RECORDS = ("PI", "DEVD", "NIND", "PD", "FSL", "FSR")

    def __init__(self, agent, exporter):
        self.before = Peers(exporter)
        self.rows = {result["record"]: result["rows"]
                     for result in agent.ask("get", *self.RECORDS, "--raw")}
        self.after = Peers(exporter)

    def keyed(self, record, label):
        return {row[label]: row for row in self.rows[record]}


class Findings:
    def __init__(self):
        self.problems = []
        self.compared = 0

    def expect(self, what, value, low, high, unit, tolerance=TOLERANCE):
        """That a figure lies between two, give or take one unit or the tolerance."""
        self.compared += 1
        if value is None:
            self.problems.append(f"{what}: the agent has no figure")
            return
        slack = max(unit, tolerance * max(abs(low), abs(high)))
        if not low - slack <= value <= high + slack:
            self.problems.append(f"{what}: {value:g}, the peer has {low:g} to {high:g}")

    def expect_same(self, what, value, peer):
        self.compared += 1
        if value != peer:
            self.problems.append(f"{what}: {value!r}, the peer has {peer!r}")

    def growth(self, what, first, second, label, read, unit, wraps=2**32):
        """How much a counter has grown, against what it can have grown by in the peer's eyes.

        first and second: the agent's row and the peer's looks before and after it."""
        row1, before1, after1 = first
        row2, before2, after2 = second
        if row1[label] is None or row2[label] is None:
            self.expect(what, None, 0, 0, 0)
            return
        grown = row2[label] - row1[label]
        if isinstance(row1[label], int):
            grown %= wraps
        self.expect(what, grown, read(before2) - read(after1), read(after2) - read(before1), unit)


# Field of PI: what vmstat -s shows of it, and how much of that one unit of the field is.
PI_OF_VMSTAT = {
    "Block Reads": (["K paged in"], 1),
    "Block Writes": (["K paged out"], 1),
    "Pages In": (["K paged in"], PAGE_KBYTES),
    "Pages Out": (["K paged out"], PAGE_KBYTES),
    "Swapped-In Pages": (["pages swapped in"], 1),
    "Swapped-Out Pages": (["pages swapped out"], 1),
    "Interrupts": (["interrupts"], 1),
    "Context Switches": (["CPU context switches"], 1),
    "Total User-Mode Time": (["non-nice user cpu ticks", "nice user cpu ticks"], TICKS),
    "Total Kernel-Mode Time": (["system cpu ticks", "IRQ cpu ticks", "softirq cpu ticks"], TICKS),
    "Total Idle Time": (["idle cpu ticks"], TICKS),
    "Total Wait Time": (["IO-wait cpu ticks"], TICKS),
}
PI_OF_EXPORTER = {
    "Major Faults": ("node_vmstat_pgmajfault", 1),
    "Faults": ("node_vmstat_pgfault", 1),
    "UDP Pkts In": (("node_netstat_Udp_InDatagrams", "node_netstat_Udp6_InDatagrams"), 1),
    "TCP Pkts In": (("node_netstat_Tcp_InSegs",), 1),
}
DEVD_OF_EXPORTER = {
    "Read Ops": ("reads_completed_total", 1, 1),
    "Write Ops": ("writes_completed_total", 1, 1),
    "Read Mbytes": ("read_bytes_total", 2**20, 0.1),
    "Write Mbytes": ("written_bytes_total", 2**20, 0.1),
    "Total Busy Time": ("io_time_seconds_total", 1, 0.01),
    "Wait Length Time": ("io_time_weighted_seconds_total", 1, 0.01),
}
NIND_OF_IP = {
    "Pkts Rcvd": ("rx", "packets"), "Pkts Xmitd": ("tx", "packets"),
    "Pkt Receive Errors": ("rx", "errors"), "Pkt Xmit Errors": ("tx", "errors"),
}


def compare_overview(found, first, second):
    for label, (names, scale) in PI_OF_VMSTAT.items():
        is_time = scale == TICKS
        unit = PROCESSORS / TICKS if is_time else 1
        found.growth(f"PI {label}", *pairs(first, second, lambda look: look.rows["PI"][0]), label,
                     lambda peers: sum(peers.vmstat[name] for name in names) / scale, unit)
    for label, (names, scale) in PI_OF_EXPORTER.items():
        names = (names,) if isinstance(names, str) else names
        found.growth(f"PI {label}", *pairs(first, second, lambda look: look.rows["PI"][0]), label,
                     lambda peers: sum(peers.exporter.get(name, 0) for name in names) / scale, 1)
    row = second.rows["PI"][0]
    total = second.before.vmstat["K total memory"] / 1024
    found.expect("PI Total Physical Mem Mbytes", row["Total Physical Mem Mbytes"], total, total, 1)
    free = [peers.exporter["node_memory_MemAvailable_bytes"] / 2**20
            for peers in (second.before, second.after)]
    found.expect("PI Free Mem Mbytes", row["Free Mem Mbytes"], min(free), max(free), 1)
    counts = [len(peers.processes) for peers in (second.before, second.after)]
    # Each ps sees itself.
    found.expect("PI Processes", row["Processes"], min(counts) - 1, max(counts), 1)
    boot = second.before.vmstat["boot time"]
    found.expect("PI Boot Time", row["Boot Time"], boot, boot, 1)


def compare_disks(found, first, second):
    rows1, rows2 = disks_of(first), disks_of(second)
    used = re.compile(r'node_disk_(?:reads|writes)_completed_total\{device="([^"]+)"\}')
    peers = {match[1] for name, value in second.before.exporter.items()
             if (match := used.fullmatch(name)) and value > 0}
    peers = {name for name in peers if not re.match(r"(loop|ram|zram|fd)\d", name)
             and not pathlib.Path(f"/sys/class/block/{name}/partition").exists()}
    found.expect_same("DEVD disks missing", sorted(peers - set(rows2)), [])
    for name in peers & set(rows1) & set(rows2):
        for label, (metric, scale, unit) in DEVD_OF_EXPORTER.items():
            key = f'node_disk_{metric}{{device="{name}"}}'
            found.growth(f"DEVD {name} {label}",
                         *pairs(first, second, lambda look: disks_of(look)[name]), label,
                         lambda peer: peer.exporter[key] / scale, unit)


def disks_of(look):
    """By the kernel's name, which is the first word."""
    return {row["Device Name"].split()[0]: row for row in look.rows["DEVD"]}


def compare_links(found, first, second):
    rows1, rows2 = first.keyed("NIND", "Interface"), second.keyed("NIND", "Interface")
    links = {name: link for name, link in second.before.links.items() if name in second.after.links}
    found.expect_same("NIND interfaces missing", sorted(set(links) - set(rows2)), [])
    for name in set(links) & set(rows1) & set(rows2):
        row, link = rows2[name], links[name]
        found.expect_same(f"NIND {name} MTU", row["Max Transmission Unit"], link["mtu"])
        found.expect_same(f"NIND {name} IP Address", row["IP Address"], first_address(link))
        flags = set(re.split(r"[ ,]+", row["Flags"]))
        found.expect_same(f"NIND {name} Flags", sorted(set(link["flags"]) - flags - {"NO-CARRIER"}),
                          [])
        for label, (side, counter) in NIND_OF_IP.items():
            found.growth(f"NIND {name} {label}",
                         *pairs(first, second, lambda look: look.keyed("NIND", "Interface")[name]),
                         label, lambda peers: peers.links[name]["stats64"][side][counter], 1)


def first_address(link):
    """The first global IPv4 address, else the first."""
    own = [entry for entry in link.get("addr_info", []) if entry["family"] == "inet"]
    own = [entry for entry in own if entry["scope"] == "global"] or own
    return own[0]["local"] if own else ""


def compare_processes(found, first, second):
    rows = second.keyed("PD", "PID")
    states = set()
    before, after = second.before.processes, second.after.processes
    lasting = [pid for pid in before
               if pid in after and before[pid]["name"] == after[pid]["name"]]
    found.expect_same("PD processes missing", [pid for pid in lasting if pid not in rows], [])
    for pid in lasting:
        if pid not in rows:
            continue
        row, old, new = rows[pid], before[pid], after[pid]
        found.expect_same(f"PD {pid} Program", row["Program"], new["name"])
        if old["ppid"] == new["ppid"]:
            found.expect_same(f"PD {pid} Parent PID", row["Parent PID"], new["ppid"])
        found.expect_same(f"PD {pid} User ID", row["User ID"], new["user"])
        if new["nice"] != "-":
            found.expect_same(f"PD {pid} Niceness", row["Niceness"], int(new["nice"]))
        found.expect_same(f"PD {pid} Scheduler Class", row["Scheduler Class"], new["class"])
        # The start of the host is told in whole seconds, and ps cuts the age to whole ones.
        found.expect(f"PD {pid} Elapsed Time", row["Elapsed Time"], old["age"], new["age"] + 1, 1, 0)
        switches = second.before.switches.get(pid)
        if old["state"] == new["state"] and switches == second.after.switches.get(pid):
            states.add(old["state"])
            found.expect_same(f"PD {pid} State", row["State"], STATES[new["state"]])
        for label, key in (("Virtual Mem Kbytes", "virtual"), ("Real Mem Kbytes", "resident")):
            # Address sanitizers take more than the word holds.
            sizes = [min(look[key], 2**32 - 1) for look in (old, new)]
            found.expect(f"PD {pid} {label}", row[label], min(sizes), max(sizes), 1)
    for pid, io in second.before.io.items():
        if pid in lasting and pid in second.after.io and pid in rows:
            later = second.after.io[pid]
            for label, keys in (("Reads", ["syscr"]), ("Writes", ["syscw"]),
                                ("Total I/O Ops", ["syscr", "syscw"])):
                found.expect(f"PD {pid} {label}", rows[pid][label],
                             sum(io[key] for key in keys) % 2**32,
                             sum(later[key] for key in keys) % 2**32, 1)
            found.expect(f"PD {pid} Total I/O Kbytes", rows[pid]["Total I/O Kbytes"],
                         (io["rchar"] + io["wchar"]) / 1024,
                         (later["rchar"] + later["wchar"]) / 1024, 1, FLOAT_ROUNDING)
    found.expect_same("PD states that were not compared", sorted(set("STZ") - states), [])
    names = {row["Program"] for row in rows.values()}
    found.expect_same(f"PD a process named {ODD_NAME}", ODD_NAME in names, True)


def compare_mounts(found, second):
    rows = {**second.keyed("FSL", "File System"), **second.keyed("FSR", "File System")}
    mounts = {target: row for target, row in second.before.mounts.items()
              if target in second.after.mounts and row["size"] > 0}
    found.expect_same("FSL, FSR file systems missing", sorted(set(mounts) - set(rows)), [])
    for target in set(mounts) & set(rows):
        row, old, new = rows[target], mounts[target], second.after.mounts[target]
        for label, key in (("Total Size Mbytes", "size"), ("Mbytes in Use", "used"),
                           ("Available Space Mbytes", "free")):
            values = [old[key] / 2**20, new[key] / 2**20]
            found.expect(f"FSL {target} {label}", row[label], min(values), max(values), 1)
        # df rounds up.
        percents = [int(look["percent"]) for look in (old, new) if look["percent"] != "-"]
        if percents:
            found.expect(f"FSL {target} Mbytes in Use %", row["Mbytes in Use %"],
                         min(percents), max(percents), 1, 0)


def pairs(first, second, row_of):
    return ((row_of(first), first.before, first.after), (row_of(second), second.before,
                                                         second.after))


# Column of vmstat: the field of PI, and the unit of the column.
RATES_OF_VMSTAT = {"bi": ("Block Reads/sec", 1), "bo": ("Block Writes/sec", 1),
                   "in": ("Interrupts/sec", 1), "cs": ("Context Switches/sec", 1),
                   "us": ("User CPU %", 1), "sy": ("Kernel CPU %", 1), "id": ("Idle %", 1),
                   "wa": ("Wait %", 1)}


class Rates:
    """What the agent, vmstat and iostat say of the same seconds as rates."""

    def __init__(self, agent):
        before = (vmstat_counters()["forks"], time.monotonic())
        watchers = [subprocess.Popen(words, stdout=subprocess.PIPE, text=True,
                                     env={**os.environ, "LC_ALL": "C"})
                    for words in (["vmstat", str(SECONDS), "2"],
                                  ["iostat", "-x", "-d", "-y", "-o", "JSON", str(SECONDS), "1"])]
        results = agent.ask("get", "PI", "DEVD", "--over", str(SECONDS))
        after = (vmstat_counters()["forks"], time.monotonic())
        self.forks_per_second = (after[0] - before[0]) / (after[1] - before[1])
        self.rows = {result["record"]: result["rows"] for result in results}
        texts = [watcher.communicate()[0] for watcher in watchers]
        lines = [line.split() for line in texts[0].splitlines()]
        self.vmstat = dict(zip(lines[1], map(float, lines[3])))
        host = json.loads(texts[1])["sysstat"]["hosts"][0]
        self.iostat = {disk["disk_device"]: disk for disk in host["statistics"][0]["disk"]}


def compare_rates(found, rates):
    row = rates.rows["PI"][0]
    for column, (label, unit) in RATES_OF_VMSTAT.items():
        peer = rates.vmstat[column]
        # Two programs don't begin in the same moment: what a tenth of a second holds is let pass.
        slack = abs(peer) * 0.01
        found.expect(f"PI {label}", row[label], peer - slack, peer + slack, unit)
    forks = rates.forks_per_second * row["Interval"]
    found.expect("PI Processes Started", row["Processes Started"], forks * 0.99, forks * 1.01, 1)
    for device in rates.rows["DEVD"]:
        name = device["Device Name"].split()[0]
        peer = rates.iostat.get(name)
        if peer is None or peer["r/s"] + peer["w/s"] < 1:
            continue
        for label, value, unit in (
                ("Reads/sec", peer["r/s"], 1), ("Writes/sec", peer["w/s"], 1),
                ("Busy %", peer["util"], 1),
                ("Mbytes Xferd/sec", (peer["rkB/s"] + peer["wkB/s"]) / 1024, 0.1)):
            found.expect(f"DEVD {name} {label}", device[label], value * 0.99, value * 1.01, unit)


# The load.

def write_disk(folder):
    with open(folder / "written", "wb", buffering=0) as file:
        while True:
            file.seek(0)
            file.write(b"x" * 262144)
            os.fsync(file.fileno())
            time.sleep(0.02)


def fork_often(_):
    while True:
        child = os.fork()
        if child == 0:
            os._exit(0)
        os.waitpid(child, 0)
        time.sleep(0.02)


def touch_pages(_):
    while True:
        with mmap.mmap(-1, 1 << 20) as memory:
            for page in range(0, len(memory), 4096):
                memory[page] = 1
        time.sleep(0.02)


def send_packets(_):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as receiver:
        receiver.bind(("127.0.0.1", 0))
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            while True:
                sender.sendto(b"x", receiver.getsockname())
                receiver.recv(1)
                time.sleep(0.01)


@contextlib.contextmanager
def load(folder):
    odd = folder / ODD_NAME
    shutil.copy(shutil.which("sleep"), odd)
    sleeper = subprocess.Popen([odd, "1000"])
    stopped = subprocess.Popen(["sleep", "1000"])
    stopped.send_signal(signal.SIGSTOP)
    # Nobody waits for it until the end.
    zombie = subprocess.Popen(["true"])
    loads = [multiprocessing.Process(target=work, args=(folder,), daemon=True)
             for work in (write_disk, fork_often, touch_pages, send_packets)]
    for each in loads:
        each.start()
    try:
        yield
    finally:
        for each in loads:
            each.kill()
            each.join()
        for each in (sleeper, stopped, zombie):
            each.kill()
            each.wait()


def compare(agent, exporter):
    found = Findings()
    first = Look(agent, exporter)
    rates = Rates(agent)
    second = Look(agent, exporter)
    for part, looks in ((compare_overview, (first, second)), (compare_disks, (first, second)),
                        (compare_links, (first, second)), (compare_processes, (first, second)),
                        (compare_mounts, (second,)), (compare_rates, (rates,))):
        try:
            part(found, *looks)
        except (KeyError, IndexError) as gone:
            found.problems.append(f"{part.__name__}: {gone!r} is not in all looks")
    return found


def run(build, work):
    folders = {name: work / name for name in ("agent", "exporter", "load")}
    for folder in folders.values():
        folder.mkdir()
    address = f"127.0.0.1:{free_port()}"
    exporter = ["prometheus-node-exporter", f"--web.listen-address={address}"]
    with Agent(build, folders["agent"], "modern") as agent, \
            Process(exporter, folders["exporter"]), load(folders["load"]):
        wait_for("prometheus-node-exporter", lambda: exporter_counters(address))
        # Other programs of this machine jump in between two looks: a figure that is wrong differs
        # in each try.
        lasting = None
        for attempt in range(TRIES):
            found = compare(agent, address)
            names = {problem.split(":")[0] for problem in found.problems}
            lasting = names if lasting is None else lasting & names
            if not lasting:
                print(f"{found.compared} figures agree with those of the peers")
                return
            print(f"try {attempt + 1}:", *found.problems, sep="\n  ", flush=True)
    fail(f"{len(lasting)} of {found.compared} figures differ from those of the peers in each try")


def main():
    if len(sys.argv) != 2:
        fail("usage: live.py BUILD_DIRECTORY")
    build = pathlib.Path(sys.argv[1]).resolve()
    for program in ("vmstat", "iostat", "prometheus-node-exporter", "ps", "ip", "df"):
        if shutil.which(program) is None:
            fail(f"no {program}: scripts/install-deps e2e")
    # Not in a file system of memory: the load is to reach a disk.
    with tempfile.TemporaryDirectory(prefix="qmt-live-", dir=build) as work:
        run(build, pathlib.Path(work))


if __name__ == "__main__":
    main()
