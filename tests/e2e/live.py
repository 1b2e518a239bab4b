#!/usr/bin/env python3
"""What the agent shows of this host under the profile `modern`, against what the programs show that
people know: vmstat, iostat, mpstat, prometheus-node-exporter, ps, ip, ss, free, lscpu and df, over
the same seconds of a load of disk writes, forks, page faults, packets and connections.

  live.py BUILD_DIRECTORY
"""

import pathlib
import shutil
import signal
import sys
import tempfile

from harness import Agent, Process, fail, free_port, wait_for
from live_classic import (compare_disks, compare_links, compare_mounts, compare_overview,
                          compare_processes, compare_rates)
from live_findings import Findings
from live_groups import Group, compare_group_rates, compare_groups
from live_host import compare_host, compare_processes_closely
from live_load import load
from live_network import (compare_link_rates, compare_links_closely, compare_socket_rates,
                          compare_sockets)
from live_peers import EXPORTER_OPTIONS, PROGRAMS, Look, Rates, exporter_counters
from live_resources import (allow_for_program, compare_disk_rates, compare_disks_closely, compare_memory,
                            compare_memory_rates, compare_pressure, compare_pressure_rates,
                            compare_processor_rates, compare_processors)

TRIES = 4
# Each of two looks, ten seconds apart, and what is said of these seconds.
OF_LOOKS = (compare_overview, compare_disks, compare_links, compare_processes, compare_mounts,
            compare_links_closely, compare_sockets, compare_disks_closely, compare_memory,
            compare_pressure, compare_processors, compare_groups, compare_host,
            compare_processes_closely)
OF_RATES = (compare_rates, compare_link_rates, compare_socket_rates, compare_disk_rates,
            compare_memory_rates, compare_pressure_rates, compare_processor_rates,
            compare_group_rates)


def compare(*sources):
    found = Findings()
    first = Look(*sources)
    rates = Rates(*sources)
    second = Look(*sources)
    for parts, looks in ((OF_LOOKS, (first, second)), (OF_RATES, (rates,))):
        for part in parts:
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
    programs = [*map(shutil.which, PROGRAMS),
                *(build / folder / name for folder, name in (
                    ("agent", "qmtdmon"), ("client", "qmtctl"), ("gate", "qmt_gate"),
                    ("helpers", "qmt_hostutil"), ("helpers", "qmt_ufss")))]
    exporter = ["prometheus-node-exporter", f"--web.listen-address={address}", *EXPORTER_OPTIONS]
    with Agent(build, folders["agent"], "modern") as agent, \
            Process(exporter, folders["exporter"]), Group(folders["load"]) as group, \
            load(folders["load"], programs):
        wait_for("prometheus-node-exporter", lambda: exporter_counters(address))
        wait_for("files in memory", (folders["load"] / "held").exists)
        allow_for_program(agent.process.pid)
        # Other programs of this machine jump in between two looks: a figure that is wrong differs
        # in each try.
        lasting = None
        for attempt in range(TRIES):
            found = compare(agent, address, group)
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
    for program in PROGRAMS:
        if shutil.which(program) is None:
            fail(f"no {program}: scripts/install-deps e2e")
    # What was made of the machine goes in this case too.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("ended"))
    # Not in a file system of memory: the load is to reach a disk.
    with tempfile.TemporaryDirectory(prefix="qmt-live-", dir=build) as work:
        run(build, pathlib.Path(work))


if __name__ == "__main__":
    main()
