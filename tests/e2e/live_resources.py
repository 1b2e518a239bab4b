"""DISK, MEMD, PRES and CPUX against iostat, mpstat, free and prometheus-node-exporter."""

import os
import pathlib
import re

from live_findings import ROUNDING
from live_network import of_exporter
from live_peers import PROCESSORS, TICKS

# Of node_disk_, and how much of that one unit of the field is.
DISK_OF_EXPORTER = {
    "Reads": ("reads_completed_total", 1), "Reads Merged": ("reads_merged_total", 1),
    "Read Bytes": ("read_bytes_total", 1), "Read Seconds": ("read_time_seconds_total", 1),
    "Writes": ("writes_completed_total", 1), "Writes Merged": ("writes_merged_total", 1),
    "Write Bytes": ("written_bytes_total", 1), "Write Seconds": ("write_time_seconds_total", 1),
    "Discards": ("discards_completed_total", 1), "Discards Merged": ("discards_merged_total", 1),
    "Discard Bytes": ("discarded_sectors_total", 1 / 512),
    "Discard Seconds": ("discard_time_seconds_total", 1),
    "Flushes": ("flush_requests_total", 1),
    "Flush Seconds": ("flush_requests_time_seconds_total", 1),
    "In Use Seconds": ("io_time_seconds_total", 1),
    "Weighted Seconds": ("io_time_weighted_seconds_total", 1),
}
# Column of iostat: the field, how much of the column one unit of it is, and the column's unit.
DISK_OF_IOSTAT = {
    "r/s": ("Reads/sec", 1, 1), "w/s": ("Writes/sec", 1, 1), "d/s": ("Discards/sec", 1, 1),
    "f/s": ("Flushes/sec", 1, 1), "rkB/s": ("Read Bytes/sec", 1 / 1024, 20),
    "wkB/s": ("Write Bytes/sec", 1 / 1024, 20), "dkB/s": ("Discard Bytes/sec", 1 / 1024, 20),
    "rareq-sz": ("Avg Read Bytes", 1 / 1024, 0.5), "wareq-sz": ("Avg Write Bytes", 1 / 1024, 0.5),
    "dareq-sz": ("Avg Discard Bytes", 1 / 1024, 0.5), "r_await": ("Avg Read Seconds", 1000, 0.05),
    "w_await": ("Avg Write Seconds", 1000, 0.05), "d_await": ("Avg Discard Seconds", 1000, 0.05),
    "f_await": ("Avg Flush Seconds", 1000, 0.05), "aqu-sz": ("Avg Queue Length", 1, 0.02),
    "util": ("In Use %", 1, 0.5),
}
NO_DISK = re.compile(r"(loop|ram|zram|fd)\d")


def disk_readers(name):
    return {label: lambda peers, metric=metric, scale=scale:
            scaled(peers.told(f'node_disk_{metric}{{device="{name}"}}'), scale)
            for label, (metric, scale) in DISK_OF_EXPORTER.items()}


def scaled(figure, scale):
    return None if figure is None else figure / scale


def compare_disks_closely(found, first, second):
    for look in (first, second):
        rows = look.keyed("DISK", "Device")
        peers = {each["device"] for each in look.before.labels("node_disk_reads_completed_total")}
        peers = {name for name in peers if not NO_DISK.match(name)
                 and not pathlib.Path(f"/sys/class/block/{name}/partition").exists()
                 and sectors_of(name) > 0}
        found.expect_same("DISK devices missing", sorted(peers - set(rows)), [])
        for name in peers & set(rows):
            found.table(f"DISK {name}", rows[name], look, disk_readers(name))
            found.gauges(f"DISK {name}", rows[name], look,
                        {"In Flight": lambda peers: peers.told(
                            f'node_disk_io_now{{device="{name}"}}')}, 8)
            found.expect_same(f"DISK {name} Size Bytes", rows[name]["Size Bytes"],
                              sectors_of(name) * 512)
            scheduler = pathlib.Path(f"/sys/class/block/{name}/queue/scheduler").read_text()
            found.expect_same(f"DISK {name} Scheduler", f"[{rows[name]['Scheduler']}]" in scheduler
                              or rows[name]["Scheduler"] == scheduler.strip(), True)
            for each in look.before.labels("node_disk_info"):
                # The exporter has them of udev, where that is.
                for label, key in (("Model", "model"), ("Serial Number", "serial")):
                    if each["device"] == name and each[key] and rows[name][label]:
                        found.expect_same(f"DISK {name} {label}", letters(rows[name][label]),
                                          letters(each[key]))


def letters(text):
    """udev has underscores in the place of blanks."""
    return re.sub(r"[\s_]+", " ", text).strip()


def sectors_of(name):
    return int(pathlib.Path(f"/sys/class/block/{name}/size").read_text())


def compare_disk_rates(found, rates):
    for name, row in rates.keyed("DISK", "Device").items():
        found.rates(f"DISK {name}", row, rates, rates.exporter_seconds, disk_readers(name))
        peer = rates.iostat.get(name, {})
        for column, (label, scale, unit) in DISK_OF_IOSTAT.items():
            if column not in peer:
                continue
            # The mean of nothing is none for the agent and 0 for iostat.
            value = row[label] if row[label] is None else row[label] * scale
            if value is None and label.startswith("Avg") and peer[column] == 0:
                continue
            found.expect(f"DISK {name} {label}", value, peer[column] * 0.98, peer[column] * 1.02,
                         unit)


# Field of MEMD: the name in node_memory_NAME_bytes.
MEMD_BYTES = {
    "Total": "MemTotal", "Free": "MemFree", "Available": "MemAvailable", "Buffers": "Buffers",
    "Cached": "Cached", "Swap Cached": "SwapCached", "Active": "Active", "Inactive": "Inactive",
    "Active Anonymous": "Active_anon", "Inactive Anonymous": "Inactive_anon",
    "Active File": "Active_file", "Inactive File": "Inactive_file", "Unevictable": "Unevictable",
    "Locked": "Mlocked", "Dirty": "Dirty", "Writeback": "Writeback", "Anonymous": "AnonPages",
    "Mapped": "Mapped", "Shared": "Shmem", "Kernel Reclaimable": "KReclaimable", "Slab": "Slab",
    "Slab Reclaimable": "SReclaimable", "Slab Unreclaimable": "SUnreclaim",
    "Kernel Stack": "KernelStack", "Page Tables": "PageTables",
    "Second Page Tables": "SecPageTables", "NFS Unstable": "NFS_Unstable", "Bounce": "Bounce",
    "Writeback Temporary": "WritebackTmp", "Commit Limit": "CommitLimit",
    "Committed": "Committed_AS", "Vmalloc Used": "VmallocUsed", "Per CPU": "Percpu",
    "Hardware Corrupted": "HardwareCorrupted", "Anonymous Huge": "AnonHugePages",
    "Shared Huge": "ShmemHugePages", "Shared Huge Mapped": "ShmemPmdMapped",
    "File Huge": "FileHugePages", "File Huge Mapped": "FilePmdMapped", "CMA Total": "CmaTotal",
    "CMA Free": "CmaFree", "Unaccepted": "Unaccepted", "Balloon": "Balloon",
    "Huge Page": "Hugepagesize", "Huge Pages In All": "Hugetlb", "Swap Total": "SwapTotal",
    "Swap Free": "SwapFree", "Zswap": "Zswap", "Zswapped": "Zswapped",
}
# What the load moves back and forth, in Mbytes, and what the agent's own children take while it
# looks, which is much of one under the sanitizers; all others may be off by a quarter of one.
MEMD_UNITS = {"Free": 32, "Available": 32, "Anonymous": 16, "Inactive Anonymous": 16, "Active": 16,
              "Inactive": 16, "Active Anonymous": 16, "Inactive File": 8, "Active File": 4,
              "Dirty": 2, "Writeback": 2, "Committed": 64, "Cached": 4, "Page Tables": 2}
# Counts of node_memory_.
MEMD_COUNTS = {"Huge Pages": "HugePages_Total", "Huge Pages Free": "HugePages_Free",
               "Huge Pages Reserved": "HugePages_Rsvd", "Huge Pages Surplus": "HugePages_Surp"}
# Of /proc/vmstat, which the exporter shows.
MEMD_OF_VMSTAT = {
    "OOM Kills": ("oom_kill",),
    "Allocation Stalls": tuple(f"allocstall_{zone}" for zone in
                               ("dma", "dma32", "normal", "movable", "device", "high")),
    "Faults": ("pgfault",), "Major Faults": ("pgmajfault",), "Swap-In Pages": ("pswpin",),
    "Swap-Out Pages": ("pswpout",), "Swap Read-Aheads": ("swap_ra",),
    "Swap Read-Ahead Hits": ("swap_ra_hit",), "Zswap-In Pages": ("zswpin",),
    "Zswap-Out Pages": ("zswpout",), "Zswap Writebacks": ("zswpwb",),
    "Page Cache Drops": ("drop_pagecache",), "Slab Drops": ("drop_slab",),
    "Scanned Direct": ("pgscan_direct",), "Scanned Kswapd": ("pgscan_kswapd",),
    "Scanned Khugepaged": ("pgscan_khugepaged",), "Reclaimed Direct": ("pgsteal_direct",),
    "Reclaimed Kswapd": ("pgsteal_kswapd",), "Reclaimed Khugepaged": ("pgsteal_khugepaged",),
    "Refaults": ("workingset_refault_anon", "workingset_refault_file"),
    "Refaults Anonymous": ("workingset_refault_anon",),
    "Refaults File": ("workingset_refault_file",),
    "Refaults Activated": ("workingset_activate_anon", "workingset_activate_file"),
    "Refaults Activated Anonymous": ("workingset_activate_anon",),
    "Refaults Activated File": ("workingset_activate_file",),
    "Refaults Restored": ("workingset_restore_anon", "workingset_restore_file"),
    "Refaults Restored Anonymous": ("workingset_restore_anon",),
    "Refaults Restored File": ("workingset_restore_file",),
    "Shadow Nodes Reclaimed": ("workingset_nodereclaim",),
    "Compaction Stalls": ("compact_stall",), "Compaction Fails": ("compact_fail",),
    "Compaction Successes": ("compact_success",),
    "Compaction Scanned": ("compact_migrate_scanned",),
    "Compaction Free Scanned": ("compact_free_scanned",),
    "Compaction Daemon Wakes": ("compact_daemon_wake",), "Migrated Pages": ("pgmigrate_success",),
    "Migrate Fails": ("pgmigrate_fail",), "Huge Faults": ("thp_fault_alloc",),
    "Huge Fault Fallbacks": ("thp_fault_fallback",), "Huge Collapses": ("thp_collapse_alloc",),
    "Huge Splits": ("thp_split_page",), "NUMA Hits": ("numa_hit",), "NUMA Misses": ("numa_miss",),
    "NUMA Foreign": ("numa_foreign",), "NUMA Local": ("numa_local",),
    "NUMA Other": ("numa_other",), "NUMA Interleaved": ("numa_interleave",),
    "NUMA Migrated": ("numa_pages_migrated",), "NUMA Hint Faults": ("numa_hint_faults",),
    "NUMA Hint Faults Local": ("numa_hint_faults_local",),
}
MEMD_READERS = {label: of_exporter(*(f"vmstat_{name}" for name in names))
                for label, names in MEMD_OF_VMSTAT.items()}
# By row and columns of `free -b -w`.
MEMD_OF_FREE = {
    "Total": ("Mem", "total"), "Free": ("Mem", "free"), "Available": ("Mem", "available"),
    "Shared": ("Mem", "shared"), "Buffers": ("Mem", "buffers"), "Swap Total": ("Swap", "total"),
    "Swap Free": ("Swap", "free"),
}


def allow_for_program(pid):
    """Of its own program, which it gives back at rest, the daemon maps up to a half while it looks."""
    program = os.readlink(f"/proc/{pid}/exe")
    size = 0
    for line in pathlib.Path(f"/proc/{pid}/maps").read_text(encoding="utf-8", errors="replace").splitlines():
        if line.endswith(program):
            begin, end = (int(word, 16) for word in line.split(" ", 1)[0].split("-"))
            size += end - begin
    MEMD_UNITS["Mapped"] = max(4, size / 2**20 / 2)


def compare_memory(found, first, second):
    for look in (first, second):
        row = look.rows["MEMD"][0]
        for label, name in MEMD_BYTES.items():
            read = of_exporter(f"memory_{name}_bytes")
            low, high = (scaled(read(peers), 2**20) for peers in (look.before, look.after))
            found.gauge(f"MEMD {label} Mbytes", row[f"{label} Mbytes"], low, high,
                          MEMD_UNITS.get(label, 0.25))
        for label, place in MEMD_OF_FREE.items():
            low, high = (peers.memory[place] / 2**20 for peers in (look.before, look.after))
            found.gauge(f"MEMD {label} Mbytes of free", row[f"{label} Mbytes"], low, high,
                          MEMD_UNITS.get(label, 0.25))
        # free counts what the kernel can give back with the cache.
        cached = [peers.memory["Mem", "cache"] / 2**20 for peers in (look.before, look.after)]
        found.gauge("MEMD Cached Mbytes of free",
                      row["Cached Mbytes"] + row["Slab Reclaimable Mbytes"], *cached, 4)
        available = [100 * peers.memory["Mem", "available"] / peers.memory["Mem", "total"]
                     for peers in (look.before, look.after)]
        found.gauge("MEMD Available %", row["Available %"], *available, 0.1)
        swap = [100 * (1 - peers.memory["Swap", "free"] / peers.memory["Swap", "total"])
                if peers.memory["Swap", "total"] else None for peers in (look.before, look.after)]
        found.between("MEMD Swap Used %", row["Swap Used %"], *swap, 0.1)
        found.table("MEMD", row, look, {label: of_exporter(f"memory_{name}")
                                        for label, name in MEMD_COUNTS.items()})
        found.table("MEMD", row, look, MEMD_READERS)


def compare_memory_rates(found, rates):
    # The peers' seconds have the pages that the agent takes for its two looks, at their ends.
    own = {label: read for label, read in MEMD_READERS.items()
           if label in ("Faults", "NUMA Hits", "NUMA Local")}
    others = {label: read for label, read in MEMD_READERS.items() if label not in own}
    row = rates.rows["MEMD"][0]
    found.rates("MEMD", row, rates, rates.exporter_seconds, others)
    found.rates("MEMD", row, rates, rates.exporter_seconds, own, unit=1000)


def pressure_readers(resource):
    words = {"Some": "waiting", "Full": "stalled"}
    return {f"{kind} Stalled Seconds": of_exporter(f"pressure_{resource}_{word}_seconds_total")
            for kind, word in words.items()
            # The exporter has what some tasks waited for a processor, not what all did, and
            # nothing of interrupts.
            if (resource, kind) != ("cpu", "Full") and resource != "irq"}


def compare_pressure(found, first, second):
    for look in (first, second):
        rows = look.keyed("PRES", "Resource")
        found.expect_same("PRES resources", sorted(rows), sorted(look.before.pressure))
        for resource in set(rows) & set(look.before.pressure):
            found.table(f"PRES {resource}", rows[resource], look, pressure_readers(resource))
            found.gauges(f"PRES {resource}", rows[resource], look,
                         {f"{kind} {seconds}-Second %": lambda peers, kind=kind, seconds=seconds:
                          pressure_mean(resource, peers.pressure[resource], kind, seconds)
                          for kind in ("Some", "Full") for seconds in (10, 60, 300)}, 0.1)


def pressure_mean(resource, text, kind, seconds):
    """No peer shows these but the kernel, which measures nothing where its `full` of cpu is 0."""
    match = re.search(rf"^{kind.lower()} .*avg{seconds}=(\S+).* total=(\d+)", text, re.M)
    is_told = match and ((resource, kind) != ("cpu", "Full") or int(match[2]) > 0)
    return float(match[1]) if is_told else None


def compare_pressure_rates(found, rates):
    for resource, row in rates.keyed("PRES", "Resource").items():
        for label, read in pressure_readers(resource).items():
            percents = [None, None]
            if read(rates.before) is not None:
                percents = [min(100 * (read(rates.after) - read(look)) / seconds, 100)
                            for look, seconds in ((rates.before, rates.exporter_seconds),
                                                  (rates.within, rates.seconds_within))]
            label = label.replace("Seconds", "%")
            found.between(f"PRES {resource} {label}", row[label], *percents, 1, 0.03)


# Field of CPUX: mode of the exporter, and column of mpstat.
CPU_MODES = {
    "User": ("user", "usr"), "Nice": ("nice", "nice"), "System": ("system", "sys"),
    "Idle": ("idle", "idle"), "Wait": ("iowait", "iowait"), "IRQ": ("irq", "irq"),
    "Soft IRQ": ("softirq", "soft"), "Steal": ("steal", "steal"), "Guest": (None, "guest"),
    "Guest Nice": (None, "gnice"),
}
GUEST_MODES = {"Guest": "user", "Guest Nice": "nice"}
CPU_FREQUENCIES = {"Lowest MHz": "min", "Highest MHz": "max"}
# Idle time and that of waiting go back by a tick now and then.
CPU_UNIT = 2 / TICKS


def cpu_seconds(peers, label, processor):
    guest, mode = GUEST_MODES.get(label), CPU_MODES[label][0]
    name = f'{{cpu="{processor}",mode="{guest or mode}"}}'
    seconds = peers.told(("node_cpu_guest_seconds_total" if guest else "node_cpu_seconds_total") +
                         name)
    # The exporter leaves what guests got with the programs of the host too.
    if mode in ("user", "nice"):
        seconds -= peers.told(f"node_cpu_guest_seconds_total{name}")
    return seconds


def compare_processors(found, first, second):
    for look in (first, second):
        rows = look.keyed("CPUX", "Processor")
        names = sorted({each["cpu"] for each in look.before.labels("node_cpu_seconds_total")})
        found.expect_same("CPUX processors", sorted(rows), sorted([*names, "all"]))
        for label in CPU_MODES:
            for name in names:
                found.between(f"CPUX {name} {label} Seconds", rows[name][f"{label} Seconds"],
                              cpu_seconds(look.before, label, name),
                              cpu_seconds(look.after, label, name), CPU_UNIT)
            sums = [sum(cpu_seconds(peers, label, name) for name in names)
                    for peers in (look.before, look.after)]
            found.between(f"CPUX all {label} Seconds", rows["all"][f"{label} Seconds"], *sums,
                          CPU_UNIT * PROCESSORS)
        for label, word in CPU_FREQUENCIES.items():
            for name in names:
                hertz = look.before.told(f'node_cpu_frequency_{word}_hertz{{cpu="{name}"}}')
                found.between(f"CPUX {name} {label}", rows[name][label], scaled(hertz, 1e6),
                              scaled(hertz, 1e6), ROUNDING)


def compare_processor_rates(found, rates):
    for name, row in rates.keyed("CPUX", "Processor").items():
        peer = rates.mpstat[name]
        for label, (_, column) in CPU_MODES.items():
            # Two programs don't begin in the same moment.
            found.expect(f"CPUX {name} {label} %", row[f"{label} %"], peer[column], peer[column], 1)
        busy = 100 - peer["idle"] - peer["iowait"] - peer["steal"]
        found.expect(f"CPUX {name} CPU %", row["CPU %"], busy, busy, 1)
