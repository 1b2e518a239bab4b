"""Trees of hosts that are too large to be had: what scripts/large-host shows to a daemon."""

# What a host of scale 1 has.
FULL = {"processes": 50000, "processors": 4096, "disks": 2000, "mounts": 5000, "interfaces": 5000, "groups": 10000}
# What is defined by hand does not grow with the host.
WORKGROUPS, ITEMS, APPLICATIONS, CONDITIONS = 64, 100, 64, 15
PROGRAMS = 97
FIRST_PROCESS = 100
FOLDER_OF_GROUPS = 100
REMOTE_EVERY = 10
DISK_FIGURES = "100 5 8000 40 50 2 4000 30 0 60 70"
PRESSURE = "some avg10=0.00 avg60=0.00 avg300=0.00 total=1000\nfull avg10=0.00 avg60=0.00 avg300=0.00 total=500\n"


def counts(scale):
    return {name: max(1, round(number * scale)) for name, number in FULL.items()}


NEW_RECORDS = {"CGRP", "NETD", "DISK", "CPUX", "PDX", "HOST", "PRES", "MEMD", "KERN"}


def expected_rows(count, profile):
    """The least rows of each record that such a host is made for."""
    remote = len(range(0, count["mounts"], REMOTE_EVERY))
    rows = dict.fromkeys(("PI", "DEVS", "NINS", "PDS", "TERM", "USER", "HOST", "PRES", "MEMD", "KERN"), 1)
    rows.update(dict.fromkeys(("PD", "PDI", "PDX"), count["processes"]))
    rows.update(dict.fromkeys(("CPUP", "CPUX"), count["processors"]))
    rows.update(dict.fromkeys(("DEVD", "DISK"), count["disks"]))
    rows.update(dict.fromkeys(("NIND", "NETD"), count["interfaces"]))
    rows.update(FSR=remote, FSL=count["mounts"] - remote, CGRP=count["groups"], PGM=min(PROGRAMS, count["processes"]),
                WGRP=WORKGROUPS + 1, APP=APPLICATIONS)
    if profile == "classic":
        # Its processors are those of the machine that it runs on.
        rows["CPUP"] = 1
        rows = {record: least for record, least in rows.items() if record not in NEW_RECORDS}
    return rows


def disk_name(number):
    """Of letters alone: one that ends in a digit is taken for a part of a disk."""
    letters = ""
    while number >= 0:
        letters = chr(ord("a") + number % 26) + letters
        number = number // 26 - 1
    return "sd" + letters


def write(path, text):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)


def add_process(proc, pid):
    size, resident, ticks, name = 4000 + pid % 1000, 900 + pid % 300, pid % 700, f"worker-{pid % PROGRAMS}"
    folder = proc / str(pid)
    folder.mkdir(parents=True)
    (folder / "stat").write_text(
        f"{pid} ({name}) S 1 {pid} {pid} 0 -1 4194560 1012 0 14 0 {ticks} {ticks // 2} 0 0 20 0 1 0 {1000 + pid} "
        f"{size * 4096} {resident} 18446744073709551615 1 2 3 0 0 0 0 4096 1260 0 0 0 17 2 0 0 12 0 0 4 5 6 7 8 9 10 0\n")
    (folder / "statm").write_text(f"{size} {resident} {resident // 2} 75 0 1033 0\n")
    (folder / "status").write_text(
        f"Name:\t{name}\nState:\tS (sleeping)\nTgid:\t{pid}\nPid:\t{pid}\nPPid:\t1\nTracerPid:\t0\nUid:\t0\t0\t0\t0\n"
        f"Gid:\t0\t0\t0\t0\nFDSize:\t64\nVmPeak:\t{size * 4} kB\nVmSize:\t{size * 4} kB\nVmRSS:\t{resident * 4} kB\n"
        "VmData:\t18712 kB\nVmStk:\t132 kB\nVmExe:\t936 kB\nThreads:\t1\n")
    (folder / "cmdline").write_bytes(f"/usr/bin/{name}\0--instance\0{pid}\0".encode())


def add_system(proc, processors):
    write(proc / "stat", "cpu  1000 0 500 90000 10 0 5 0 0 0\n"
          + "".join(f"cpu{cpu} 10 0 5 900 1 0 0 0 0 0\n" for cpu in range(processors))
          + "intr 12345 1 2 3\nctxt 99999\nbtime 1700000000\nprocesses 4711\nprocs_running 2\nprocs_blocked 0\n")
    write(proc / "cpuinfo", "".join(
        f"processor\t: {cpu}\nvendor_id\t: Plain\nmodel name\t: Plain\ncpu MHz\t\t: 2000.000\n"
        f"physical id\t: {cpu // 64}\ncore id\t\t: {cpu % 64}\n\n" for cpu in range(processors)))
    write(proc / "meminfo", "MemTotal: 16000000 kB\nMemFree: 8000000 kB\nMemAvailable: 9000000 kB\n"
          "Buffers: 100000 kB\nCached: 900000 kB\nSwapTotal: 0 kB\nSwapFree: 0 kB\n")
    write(proc / "uptime", "100000.00 90000.00\n")
    write(proc / "loadavg", "0.10 0.20 0.30 2/500 4711\n")
    write(proc / "version", "Linux version 6.1.0 (builder) #1 SMP\n")
    write(proc / "sys/kernel/osrelease", "6.1.0\n")
    write(proc / "vmstat", "pgpgin 1000\npgpgout 2000\npswpin 0\npswpout 0\npgfault 9\npgmajfault 1\n")
    for name in ("cpu", "memory", "io"):
        write(proc / "pressure" / name, PRESSURE)


def add_disks(root, names):
    # Between two whole disks there is room for the parts of the first.
    places = [(16 * number, name) for number, name in enumerate(names)]
    write(root / "proc/diskstats", "".join(f"   8 {minor:4} {name} {DISK_FIGURES}\n" for minor, name in places))
    write(root / "proc/partitions", "major minor  #blocks  name\n\n" + "".join(
        f"   8 {minor:4} 1048576 {name}\n" for minor, name in places))
    for minor, name in places:
        write(root / "sys/block" / name / "stat", DISK_FIGURES + "\n")
        write(root / "sys/block" / name / "dev", f"8:{minor}\n")
        write(root / "sys/block" / name / "size", "2097152\n")


def add_mounts(root, names, count):
    mounts = [(f"server{number % 7}:/export/{number}", f"/mnt/m{number}", "nfs") if number % REMOTE_EVERY == 0
              else (f"/dev/{names[number % len(names)]}", f"/mnt/m{number}", "ext4") for number in range(count)]
    table = "".join(f"{device} {place} {kind} rw 0 0\n" for device, place, kind in mounts)
    info = "29 1 0:25 / /sys/fs/cgroup rw - cgroup2 cgroup2 rw\n" + "".join(
        f"{number + 30} 1 8:{number} / {place} rw - {kind} {device} rw\n"
        for number, (device, place, kind) in enumerate(mounts))
    write(root / "etc/mtab", table)
    write(root / "proc/mounts", table)
    for process in ("1", "self"):
        write(root / "proc" / process / "mountinfo", info)
    for _, place, _ in mounts:
        (root / place[1:]).mkdir(parents=True)


def add_interfaces(root, count):
    figures = "100 10 0 0 0 0 0 0 200 20 0 0 0 0 0 0"
    write(root / "proc/net/dev", "Inter-|   Receive |  Transmit\n face |bytes packets\n" + "".join(
        f"  eth{number}: {figures}\n" for number in range(count)))
    # Most of what such a folder may have is missing, which must cost no more than what is there.
    for number in range(count):
        folder = root / f"sys/class/net/eth{number}"
        write(folder / "ifindex", f"{number + 1}\n")
        write(folder / "statistics/rx_bytes", "100\n")
        write(folder / "statistics/tx_bytes", "200\n")


def add_groups(root, count):
    top = root / "sys/fs/cgroup"
    write(top / "cgroup.procs", "")
    for number in range(count):
        part = top / f"part{number % FOLDER_OF_GROUPS}.slice"
        write(part / "cgroup.procs", "")
        folder = part / f"g{number}.service"
        write(folder / "cgroup.procs", f"{FIRST_PROCESS + number}\n")
        write(folder / "cpu.stat", "usage_usec 1000\nuser_usec 600\nsystem_usec 400\n")
        write(folder / "memory.current", "1048576\n")
        write(folder / "pids.current", "1\n")


def make_host(root, count):
    add_system(root / "proc", count["processors"])
    disks = [disk_name(number) for number in range(count["disks"])]
    add_disks(root, disks)
    add_mounts(root, disks, count["mounts"])
    add_interfaces(root, count["interfaces"])
    add_groups(root, count["groups"])
    for pid in range(FIRST_PROCESS, FIRST_PROCESS + count["processes"]):
        add_process(root / "proc", pid)


def define(home):
    """Workgroups and applications, of which each looks at each process."""
    write(home / "wgfile", "".join(
        f"workgroup = group{group}\nprograms = "
        + " ".join([f"other{group}-{item}" for item in range(ITEMS - 1)] + [f"worker-{group}"]) + "\n"
        for group in range(WORKGROUPS)))
    conditions = "".join(
        f"P\t1\t0\t65535\tworker-{item}\n" if item % 3 else f"P\t2\t0\t65535\t*worker-{item} *instance*9\n"
        for item in range(CONDITIONS))
    write(home / "qmtapp", "".join(f"A\tapp{number}\n{conditions}" for number in range(APPLICATIONS)))
