"""CGRP against the files of a control group that the test makes, with a process in it that
computes, holds memory and writes."""

import contextlib
import mmap
import multiprocessing
import os
import pathlib
import re
import time

from live_findings import ROUNDING
from live_peers import PROCESSORS, TICKS

ROOT = pathlib.Path("/sys/fs/cgroup")
CONTROLLERS = ("cpu", "cpuacct", "memory", "blkio", "pids")
HELD_BYTES = 24 << 20
LIMIT_BYTES = 64 << 20
FILE_BYTES = 96 << 20
# Half of a processor: some periods end before the work.
QUOTA_MICROSECONDS = 50000
PERIOD_MICROSECONDS = 100000


def mounts():
    """By version 1's controller, or "unified", where it is mounted."""
    found = {}
    for line in pathlib.Path("/proc/self/mounts").read_text().splitlines():
        _, place, kind, options, *_ = line.split()
        if kind == "cgroup2":
            found.setdefault("unified", pathlib.Path(place))
        elif kind == "cgroup":
            for option in options.split(","):
                if option in CONTROLLERS:
                    found.setdefault(option, pathlib.Path(place))
    return found


class Group:
    """A group in all hierarchies where the machine lets one be made; as a context, it is there with
    its process and is gone behind it."""

    def __init__(self, folder):
        self.name = f"qmt-live-{os.getpid()}"
        self.folder = folder
        self.places = {}  # by hierarchy
        self.work = None

    def __enter__(self):
        try:
            self.make()
        except BaseException:
            self.remove()
            raise
        return self

    def __exit__(self, *_):
        self.remove()

    def make(self):
        refusals = {}
        for hierarchy, mount in mounts().items():
            place = mount / self.name
            try:
                # Two controllers may share a hierarchy.
                place.mkdir(exist_ok=place in self.places.values())
                self.places[hierarchy] = place
            except OSError as error:
                refusals[hierarchy] = error.strerror
        if not self.places:
            print("no control group to compare:", refusals or "none is mounted")
            return
        for name, text in (("memory.limit_in_bytes", str(LIMIT_BYTES)),
                           ("memory.max", str(LIMIT_BYTES)),
                           ("cpu.cfs_period_us", str(PERIOD_MICROSECONDS)),
                           ("cpu.cfs_quota_us", str(QUOTA_MICROSECONDS)),
                           ("cpu.max", f"{QUOTA_MICROSECONDS} {PERIOD_MICROSECONDS}")):
            for place in self.places.values():
                if (place / name).exists():
                    (place / name).write_text(text)
        self.work = multiprocessing.Process(target=use_group, args=(self,), daemon=True)
        self.work.start()

    def remove(self):
        if self.work is not None:
            self.work.kill()
            self.work.join()
        for place in set(self.places.values()):
            # The kernel may still be at the end of the process.
            for _ in range(50):
                with contextlib.suppress(FileNotFoundError, OSError):
                    place.rmdir()
                if not place.exists():
                    break
                time.sleep(0.1)
        self.places = {}

    def text(self, hierarchy, name):
        place = self.places.get(hierarchy)
        with contextlib.suppress(OSError):
            return (place / name).read_text() if place else None
        return None

    def number(self, hierarchy, name, unit=1, key=None):
        """What the file tells, or the line of that key; None if it does not."""
        text = self.text(hierarchy, name)
        if text is None:
            return None
        if key is not None:
            match = re.search(rf"^{key} (\d+)$", text, re.M)
            return float(match[1]) * unit if match else None
        return float(text) * unit if text.strip().isdigit() else None

    def total(self, hierarchy, name, pattern):
        """The sum over devices."""
        text = self.text(hierarchy, name)
        return None if text is None else float(sum(map(int, re.findall(pattern, text, re.M))))

    def counted(self, name, way):
        """The same of version 1, where 0 both ways tells nothing: a kernel of today counts only for a
        limit."""
        both = [self.total("blkio", name, rf"{word} (\d+)") for word in ("Read", "Write")]
        return None if None in both or sum(both) == 0 else both[way]

    def figures(self):
        """By label of CGRP what the files of the group tell; version 1 is before version 2."""
        if not self.places:
            return {}
        read, total, counted = self.number, self.total, self.counted
        bytes_file, count_file = (f"blkio.throttle.{name}_recursive"
                                  for name in ("io_service_bytes", "io_serviced"))
        of_both = {
            "CPU Seconds": (read("cpuacct", "cpuacct.usage", 1e-9),
                            read("unified", "cpu.stat", 1e-6, "usage_usec")),
            "User Seconds": (read("cpuacct", "cpuacct.stat", 1 / TICKS, "user"),
                             read("unified", "cpu.stat", 1e-6, "user_usec")),
            "System Seconds": (read("cpuacct", "cpuacct.stat", 1 / TICKS, "system"),
                               read("unified", "cpu.stat", 1e-6, "system_usec")),
            "Periods": (read("cpu", "cpu.stat", 1, "nr_periods"),
                        read("unified", "cpu.stat", 1, "nr_periods")),
            "Throttled Periods": (read("cpu", "cpu.stat", 1, "nr_throttled"),
                                  read("unified", "cpu.stat", 1, "nr_throttled")),
            "Throttled Seconds": (read("cpu", "cpu.stat", 1e-9, "throttled_time"),
                                  read("unified", "cpu.stat", 1e-6, "throttled_usec")),
            "Memory Bytes": (read("memory", "memory.usage_in_bytes"),
                             read("unified", "memory.current")),
            "Anonymous Bytes": (read("memory", "memory.stat", 1, "total_rss"),
                                read("unified", "memory.stat", 1, "anon")),
            "File Bytes": (read("memory", "memory.stat", 1, "total_cache"),
                           read("unified", "memory.stat", 1, "file")),
            "Kernel Bytes": (read("memory", "memory.kmem.usage_in_bytes"),
                             read("unified", "memory.stat", 1, "kernel")),
            "Swap Bytes": (read("memory", "memory.stat", 1, "total_swap"),
                           read("unified", "memory.swap.current")),
            "Limit Bytes": (read("memory", "memory.limit_in_bytes"),
                            read("unified", "memory.max")),
            "OOM Kills": (read("memory", "memory.oom_control", 1, "oom_kill"),
                          read("unified", "memory.events", 1, "oom_kill")),
            "High Events": (None, read("unified", "memory.events", 1, "high")),
            "Max Events": (read("memory", "memory.failcnt"),
                           read("unified", "memory.events", 1, "max")),
            "Read Bytes": (counted(bytes_file, 0),
                           total("unified", "io.stat", r"rbytes=(\d+)")),
            "Write Bytes": (counted(bytes_file, 1),
                            total("unified", "io.stat", r"wbytes=(\d+)")),
            "Reads": (counted(count_file, 0),
                      total("unified", "io.stat", r"rios=(\d+)")),
            "Writes": (counted(count_file, 1),
                       total("unified", "io.stat", r"wios=(\d+)")),
            "Threads": (read("pids", "pids.current"), read("unified", "pids.current")),
            **{f"{label} {kind} 10-Second %": (None, pressure(self.text("unified", f"{name}.pressure"),
                                                         kind.lower()))
               for label, name in (("CPU", "cpu"), ("Memory", "memory"), ("I/O", "io"))
               for kind in ("Some", "Full")},
        }
        return {label: second if first is None else first
                for label, (first, second) in of_both.items()}


def pressure(text, kind):
    match = re.search(rf"^{kind} avg10=(\S+)", text or "", re.M)
    return float(match[1]) if match else None


def use_group(group):
    for place in group.places.values():
        with open(place / "cgroup.procs", "w", encoding="ascii") as file:
            file.write(str(os.getpid()))
    held = mmap.mmap(-1, HELD_BYTES, flags=mmap.MAP_PRIVATE | mmap.MAP_ANONYMOUS)
    for page in range(0, HELD_BYTES, 4096):
        held[page] = 1
    block = mmap.mmap(-1, 65536)
    path = group.folder / "group"
    # More than the limit lets the cache hold, so that it is met.
    with open(path, "wb") as file:
        for _ in range(FILE_BYTES >> 20):
            file.write(bytes(1 << 20))
    os.sync()
    # Past the cache: what the cache writes is not the group's for version 1.
    straight = os.open(path, os.O_RDWR | getattr(os, "O_DIRECT", 0))
    turn = 0
    while True:
        os.pwrite(straight, block, (turn % 64) * len(block))
        if turn % 2 == 0:
            os.preadv(straight, [block], 0)
        end = time.monotonic() + 0.05
        while time.monotonic() < end:
            pass
        turn += 1


# What the kernel counts in batches or hands on late, or the load moves; all else is exact.
GROUP_UNITS = {"Memory Bytes": 1 << 20, "Anonymous Bytes": 1 << 20, "File Bytes": 1 << 20,
               "Kernel Bytes": 1 << 16, "User Seconds": 0.05, "System Seconds": 0.05}
PERCENTS = {"CPU %": "CPU Seconds", "User %": "User Seconds", "System %": "System Seconds"}


def compare_groups(found, first, second):
    for look in (first, second):
        rows = look.keyed("CGRP", "Path")
        missing = {"/" + str(place.relative_to(mount)) for mount in mounts().values()
                   for place in mount.glob("*") if place.is_dir()} - set(rows)
        # Groups of others come and go.
        found.expect_same("CGRP groups missing",
                          sorted(path for path in missing if any((mount / path[1:]).exists() for
                                                                 mount in mounts().values())), [])
        if not look.group.places:
            continue
        row = rows[f"/{look.group.name}"]
        found.expect_same("CGRP Kind", row["Kind"], "group")
        found.expect_same("CGRP Processes", row["Processes"], 1)
        for label, value in look.before.group.items():
            if label.endswith("10-Second %"):
                found.gauge(f"CGRP {label}", row[label], value, look.after.group[label], 1)
            else:
                found.between(f"CGRP {label}", row[label], value, look.after.group[label],
                              GROUP_UNITS.get(label, ROUNDING))
        if row["Limit Bytes"] is not None:
            percent = 100 * row["Memory Bytes"] / row["Limit Bytes"]
            found.between("CGRP Limit %", row["Limit %"], percent, percent, 0.01)


def compare_group_rates(found, rates):
    if not rates.group.places:
        return
    row = rates.keyed("CGRP", "Path")[f"/{rates.group.name}"]
    readers = {label: lambda peers, label=label: peers.group[label] for label in rates.before.group}
    found.rates("CGRP", row, rates, rates.seconds, readers)
    grown = {label: read(rates.after) - read(rates.before) for label, read in readers.items()
             if read(rates.before) is not None}
    for label, counter in PERCENTS.items():
        if counter in grown:
            percent = 100 * grown[counter] / rates.seconds
            found.between(f"CGRP {label}", row[label], percent, percent, 0.5, 0.04)
    if "CPU Seconds" in grown:
        percent = 100 * grown["CPU Seconds"] / rates.seconds / PROCESSORS
        found.between("CGRP All CPUs %", row["All CPUs %"], percent, percent, 0.25, 0.04)
    if grown.get("Periods"):
        percent = 100 * grown["Throttled Periods"] / grown["Periods"]
        found.between("CGRP Throttled %", row["Throttled %"], percent, percent, 4)
