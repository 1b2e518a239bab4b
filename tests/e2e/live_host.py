"""HOST and PDX against ps, lscpu, free, prometheus-node-exporter and the files that hostnamectl and
they read."""

import os
import pathlib
import re
import shutil
import subprocess

from live_findings import ROUNDING
from live_network import of_exporter
from live_peers import numbers_of, output, settled

# So much of its arguments a record holds.
COMMAND_BYTES = 1023


def file_text(path):
    try:
        return pathlib.Path(path).read_text().strip()
    except OSError:
        return ""


def os_release():
    text = file_text("/etc/os-release") or file_text("/usr/lib/os-release")
    return {key: value.strip("\"'") for key, value in re.findall(r"^(\w+)=(.*)$", text, re.M)}


def label_of(peers, metric, label):
    return next((each[label] for each in peers.labels(metric)), None)


def compare_host(found, _, second):
    row, peers = second.rows["HOST"][0], second.before
    release, system = os_release(), os.uname()
    processors = [line.split(",") for line in output("lscpu", "-p=CPU,CORE,SOCKET").splitlines()
                  if not line.startswith("#")]
    for label, peer in (
            ("Name", system.nodename), ("Name", file_text("/proc/sys/kernel/hostname")),
            ("Name", label_of(peers, "node_uname_info", "nodename")),
            ("Machine ID", file_text("/etc/machine-id")),
            ("Distribution", release.get("PRETTY_NAME", "")),
            ("Distribution ID", release.get("ID", "")),
            ("Distribution Version", release.get("VERSION_ID", "")),
            ("Kernel", file_text("/proc/sys/kernel/osrelease")),
            ("Kernel", label_of(peers, "node_uname_info", "release")),
            ("Kernel Version", file_text("/proc/sys/kernel/version")),
            ("Kernel Version", label_of(peers, "node_uname_info", "version")),
            ("Architecture", system.machine),
            ("Architecture", label_of(peers, "node_uname_info", "machine")),
            ("Boot Time", peers.told("node_boot_time_seconds")),
            ("Boot Time", peers.vmstat["boot time"]),
            ("Memory Bytes", peers.memory["Mem", "total"]),
            ("Memory Bytes", peers.told("node_memory_MemTotal_bytes")),
            ("Clock Source", label_of(peers, "node_time_clocksource_current_info", "clocksource")),
            ("Clock Synchronised", peers.told("node_timex_sync_status")),
            ("Open Files Most", peers.told("node_filefd_maximum")),
            ("Tasks Most", min(int(file_text(f"/proc/sys/kernel/{name}"))
                               for name in ("pid_max", "threads-max"))),
            ("Threads", len(processors)),
            ("Cores", len({(socket, core) for _, core, socket in processors})),
            ("Sockets", len({socket for *_, socket in processors}))):
        found.expect_same(f"HOST {label}", row[label], peer)
    # lscpu has names of its own for the processors of some machines.
    if match := re.search(r"^model name\s*: (.*)$", file_text("/proc/cpuinfo"), re.M):
        found.expect_same("HOST Processor", row["Processor"], match[1].strip())
        found.expect_same("HOST Processor of lscpu", row["Processor"],
                          re.search(r"^Model name:\s+(.*)$", output("lscpu"), re.M)[1])
    found.table("HOST", row, second, {
        "Clock Offset Seconds": of_exporter("timex_offset_seconds"),
        "Clock Error Seconds": of_exporter("timex_estimated_error_seconds")}, 0.001, 0.02)
    found.table("HOST", row, second, {"Entropy": of_exporter("entropy_available_bits"),
                                      "Open Files": of_exporter("filefd_allocated")}, 64)
    # Each ps sees itself; the load makes processes that go at once.
    found.table("HOST", row, second, {"Tasks": lambda peers: sum(
        each["threads"] for each in peers.processes.values())}, 8)
    if os.path.exists("/run/reboot-required"):
        found.expect_same("HOST Reboot Needed", row["Reboot Needed"], 1)
    # What program makes the machine is not compared: hostnamectl asks the processor, which may be
    # told to answer anything, and the agent asks files of the kernel.
    if shutil.which("systemd-detect-virt"):
        done = subprocess.run(["systemd-detect-virt", "--container"], capture_output=True,
                              text=True, check=False)
        found.expect_same("HOST Container", row["Container"],
                          done.stdout.strip().replace("none", ""))


# Line of /proc/PID/status, and the bytes of its unit.
PDX_OF_STATUS = {
    "Threads": ("Threads", 1), "Voluntary Switches": ("voluntary_ctxt_switches", 1),
    "Other Switches": ("nonvoluntary_ctxt_switches", 1),
}
PDX_SIZES = {
    "Anonymous Bytes": ("RssAnon", 1024), "File Bytes": ("RssFile", 1024),
    "Shared Bytes": ("RssShmem", 1024), "Swap Bytes": ("VmSwap", 1024),
    "Peak Bytes": ("VmHWM", 1024),
}
PDX_OF_IO = {
    "Storage Read Bytes": "read_bytes", "Storage Write Bytes": "write_bytes",
    "Call Read Bytes": "rchar", "Call Write Bytes": "wchar", "Read Calls": "syscr",
    "Write Calls": "syscw",
}


def of_file(pid, name, read):
    return lambda peers: read(peers.files[pid][name]) if peers.files[pid][name] else None


def status_readers(pid, lines):
    return {label: of_file(pid, "status", lambda text, name=name, unit=unit:
                           scaled(numbers_of(text).get(name), unit))
            for label, (name, unit) in lines.items()}


def pdx_readers(pid):
    """What grows or is a number that files tell; None where they do not."""
    return {
        **status_readers(pid, PDX_OF_STATUS),
        **{label: of_file(pid, "io", lambda text, name=name: numbers_of(text).get(name))
           for label, name in PDX_OF_IO.items()},
        "Run Delay Seconds": of_file(pid, "schedstat", lambda text: int(text.split()[1]) / 1e9),
        "Oom Score Adjustment": of_file(pid, "oom_score_adj", int),
    }


def scaled(number, unit):
    return None if number is None else number * unit


def group_of(text):
    """The group that a text of /proc/PID/cgroup tells most of: that of version 2 unless it is "/"
    and there is version 1; of that the first of memory, cpu and the service manager's."""
    groups = [line.split(":", 2)[1:] for line in text.splitlines()]
    paths = {name: path for names, path in groups for name in names.split(",")}
    if paths.get("", "/") != "/" or len(groups) == 1:
        return paths.get("", "/")
    return next((paths[name] for name in ("memory", "cpu", "name=systemd")
                 if paths.get(name, "/") != "/"), "/")


def compare_processes_closely(found, first, second):
    states, told = set(), set()
    for look in (first, second):
        rows = look.keyed("PDX", "PID")
        before, after = look.before, look.after
        lasting = [pid for pid in before.processes
                   if pid in after.processes and pid in before.files and pid in after.files
                   and before.processes[pid]["name"] == after.processes[pid]["name"]
                   and before.commands.get(pid) == after.commands.get(pid)]
        found.expect_same("PDX processes missing", [pid for pid in lasting if pid not in rows], [])
        for pid in set(lasting) & set(rows):
            row = rows[pid]
            found.table(f"PDX {pid}", row, look, pdx_readers(pid))
            told |= {label for label, value in row.items() if value not in (None, "")}
            compare_process(found, row, look)
            if before.switches[pid] == after.switches[pid]:
                states |= compare_state(found, row, look)
    found.expect_same("PDX states that were not compared", sorted(set("STZ") - states), [])
    known = {*PDX_OF_STATUS, *PDX_SIZES, *PDX_OF_IO, "Run Delay Seconds", "Open Files",
             "Executable"}
    found.expect_same("PDX figures that no process has", sorted(known - told), [])


def compare_process(found, row, look):
    pid = row["PID"]
    old, new = look.before.processes[pid], look.after.processes[pid]
    files, later = look.before.files[pid], look.after.files[pid]
    found.expect_same(f"PDX {pid} Name", settled(row["Name"]), settled(new["name"]))
    found.expect_same(f"PDX {pid} User", row["User"], new["real user"])
    found.between(f"PDX {pid} Threads of ps", row["Threads"], old["threads"], new["threads"])
    # ps has whole seconds, those of both kinds added.
    found.between(f"PDX {pid} User and System Seconds", row["User Seconds"] + row["System Seconds"],
                  old["seconds"], new["seconds"] + 1, 0.02)
    # The times of the record and of the host's start are whole seconds, and ps cuts the age.
    found.between(f"PDX {pid} Start Time", row["Record Time"] - row["Start Time"], old["age"],
                  new["age"] + 1, 1)
    # Those that ask and answer have more of them meanwhile.
    found.between(f"PDX {pid} Open Files", row["Open Files"], files["open"], later["open"],
                  8 if pid in look.observers else ROUNDING)
    scores = [scaled(texts["oom_score"] and int(texts["oom_score"]), 1) for texts in (files, later)]
    found.between(f"PDX {pid} Oom Score", row["Oom Score"], *scores, 1)
    if files["cgroup"] == later["cgroup"]:
        found.expect_same(f"PDX {pid} Control Group", row["Control Group"],
                          group_of(files["cgroup"]))
    if files["exe"] == later["exe"]:
        found.expect_same(f"PDX {pid} Executable", row["Executable"], files["exe"] or "")
    # ps puts the name of a process without arguments in brackets.
    words = look.before.commands[pid]
    if words.startswith("["):
        found.expect_same(f"PDX {pid} Command Line", row["Command Line"], "")
    else:
        found.expect_same(f"PDX {pid} Command Line", row["Command Line"].encode(),
                          words.encode()[:COMMAND_BYTES].rstrip())


def compare_state(found, row, look):
    """What stays as long as the process neither gets nor gives up a processor."""
    pid = row["PID"]
    old, new = look.before.processes[pid], look.after.processes[pid]
    found.table(f"PDX {pid}", row, look, status_readers(pid, PDX_SIZES))
    if old["processor"] == new["processor"]:
        found.expect_same(f"PDX {pid} Last CPU", row["Last CPU"], new["processor"])
    channels = {texts["wchan"] for texts in (look.before.files[pid], look.after.files[pid])}
    # The agent tells it of those that wait, not of a stopped one.
    if len(channels) == 1 and old["state"] in "SDI":
        channel = channels.pop()
        found.expect_same(f"PDX {pid} Blocked In", row["Blocked In"],
                          "" if channel in (None, "0") else channel)
    if old["state"] != new["state"]:
        return set()
    found.expect_same(f"PDX {pid} State", row["State"], new["state"])
    return {new["state"]}
