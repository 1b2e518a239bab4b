"""PI, DEVD, NIND, PD, FSL and FSR against vmstat, iostat, prometheus-node-exporter, ps, ip and
df."""

import pathlib
import re

from live_findings import pairs
from live_load import ODD_NAME
from live_peers import PAGE_KBYTES, PROCESSORS, TICKS, settled

FLOAT_ROUNDING = 1e-6
# By the letter of ps.
STATES = {"R": "RUN", "S": "SLEEP", "D": "DISK", "I": "IDLE", "Z": "ZOMBIE", "T": "STOP",
          "t": "STOP"}

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
        found.expect_same(f"PD {pid} Program", settled(row["Program"]), settled(new["name"]))
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


def compare_mounts(found, _, second):
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


# Column of vmstat: the field of PI, and the unit of the column.
RATES_OF_VMSTAT = {"bi": ("Block Reads/sec", 1), "bo": ("Block Writes/sec", 1),
                   "in": ("Interrupts/sec", 1), "cs": ("Context Switches/sec", 1),
                   "us": ("User CPU %", 1), "sy": ("Kernel CPU %", 1), "id": ("Idle %", 1),
                   "wa": ("Wait %", 1)}


def compare_rates(found, rates):
    row = rates.rows["PI"][0]
    for column, (label, unit) in RATES_OF_VMSTAT.items():
        peer = rates.vmstat[column]
        # Two programs don't begin in the same moment: what a tenth of a second holds is let pass.
        slack = abs(peer) * 0.01
        found.expect(f"PI {label}", row[label], peer - slack, peer + slack, unit)
    forks = rates.forks_per_second * row["Interval"]
    # The peers are some of them, and not all start in the agent's seconds.
    found.expect("PI Processes Started", row["Processes Started"], forks * 0.99, forks * 1.01, 8)
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
