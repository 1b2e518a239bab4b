"""The parts `scrape` and `start` of bench/compare: what an answer by HTTP costs, and how soon the first one comes."""

import json
import time
import urllib.request

import programs
from measures import (MODERN, Agent, Once, fetch, free_port, ratio, ratios, settings, spread, stop_all, table, wait_for,
                      work)

# Longer than the agent shares a batch between scrapes.
EVERY = 1.1
ALIKE = ("CPUX", "DISK", "NETD", "SOCK", "MEMD", "PRES", "FSL", "KERN")
POLL = 0.002


def page(records):
    return "/metrics?" + "&".join(f"collect[]={record}" for record in records)


def scrape(context):
    seconds = max(3, context.seconds)
    both = page((*ALIKE, "PI")), programs.COLLECTORS
    # What is asked for, of the agent and of the exporter, how the agent looks at processes, and the ratio that is
    # wanted where both do the same.
    pairs = {"like records": (page(ALIKE), programs.COLLECTORS, "proc", 0.4),
             "`/metrics/node`": ("/metrics/node", (), "proc", 0.4),
             "like records, and `PI`": (*both, "proc", None)}
    if context.has_iterator:
        pairs["like records, and `PI`, iterator"] = (*both, "iterator", None)
    pairs["all of `/metrics`"] = ("/metrics", (), "proc", None)
    targets, exporters = {}, {}
    try:
        for number, (name, (path, collectors, source, _)) in enumerate(pairs.items()):
            if collectors not in exporters:
                exporters[collectors] = programs.Exporter(context.folder / f"exporter{number}", collectors)
            agent = Agent(context.build, context.folder / f"agent{number}",
                          settings({}, source=source, node="Http Listen = 127.0.0.1:0"))
            targets[name] = (agent, path, exporters[collectors])
        for agent, path, exporter in targets.values():
            wait_for(lambda: fetch(exporter.address))
            fetch(agent.address, path)
        running = {id(one): one for agent, _, exporter in targets.values() for one in (agent, exporter)}
        turns, sizes = [], {}
        for _ in range(context.turns):
            before = {key: one.cpu() for key, one in running.items()}
            count = max(1, int(seconds / EVERY))
            for _ in range(count):
                begin = time.monotonic()
                for name, (agent, path, _) in targets.items():
                    sizes[name, "agent"] = fetch(agent.address, path)
                for collectors, exporter in exporters.items():
                    sizes[collectors] = fetch(exporter.address)
                time.sleep(max(0.0, EVERY - (time.monotonic() - begin)))
            spent = {key: (one.cpu() - before[key]) / count * 1000 for key, one in running.items()}
            turns.append({(name, side): spent[id(one)] for name, (agent, _, exporter) in targets.items()
                          for side, one in (("agent", agent), ("exporter", exporter))})
        memory = {key: one.memory() for key, one in running.items()}
    finally:
        stop_all([*(agent for agent, _, _ in targets.values()), *exporters.values()])
    print(f"\n### A scrape, {context.population} processes, {len(turns)} turns")
    rows = []
    for name, (agent, _, exporter) in targets.items():
        _, collectors, _, aim = pairs[name]
        keys = (name, "agent"), (name, "exporter")
        rows.append((name, *(spread([each[key] for each in turns]) for key in keys), ratio(turns, *keys),
                     f"{sizes[keys[0]]}, {sizes[collectors]}",
                     *(f"{memory[id(agent)][kind]:.1f}, {memory[id(exporter)][kind]:.1f}" for kind in (0, 1))))
        if aim is not None:
            peer = "the same collectors" if collectors else "the exporter's defaults"
            context.aims.add(f"scrape, {name}, to {peer}, {context.population} processes", aim, ratios(turns, *keys))
    table(("asked for", "CPU of the agent, ms", "of the exporter, ms", "ratio", "bytes", "RSS, MB", "PSS, MB"), rows)
    work({"like records": f"{page(ALIKE)} beside an exporter with {', '.join(programs.COLLECTORS)}; the agent's has "
                          "besides the places and models of disks, states of sockets and addresses of interfaces",
          "`/metrics/node`": "the exporter's names and labels, beside one with all that it has by default; "
                             "docs/metrics.md has what of that is not given",
          "and `PI`": "beside the exporter of the like records; `PI` counts processes and users, for which all "
                      "processes are looked at, and the exporter does not",
          "all of `/metrics`": "beside an exporter with all that it has by default; has control groups, workgroups and "
                               "sums over the processes besides",
          "memory": "daemon and gate together"})


def first_row(one):
    """Whether a CSV file has a row below its head."""
    if not any(b"\n" in path.read_bytes().partition(b"\n")[2] for path in one.folder.glob("kept/**/cpu*/*")):
        raise ValueError("nothing is kept yet")


def first_chart(one):
    with urllib.request.urlopen(f"http://{one.address}/api/v1/data?chart=system.cpu&points=1", timeout=5) as answer:
        if not json.load(answer)["data"]:
            raise ValueError("no figure yet")


def start(context):
    """Seconds from the start of a program to its first figures."""
    def agent(folder):
        address = f"127.0.0.1:{free_port()}"
        made = Agent(context.build, folder, settings(dict.fromkeys(MODERN, 60), source=source, history="kept.db",
                                                     node=f"Http Listen = {address}"), waits=False)
        made.address = address
        return made

    source = "iterator" if context.has_iterator else "proc"
    going = {
        "agent, rows of `PI` by its socket": (agent, lambda one: one.rows(["PI"])),
        "agent, `/metrics`": (agent, lambda one: fetch(one.address)),
        "prometheus-node-exporter, `/metrics`": (programs.Exporter, lambda one: fetch(one.address)),
        "collectd, first row kept": (lambda folder: programs.collectd(folder, 1), first_row),
        "netdata, first figure by HTTP": (lambda folder: programs.netdata(folder, 1), first_chart),
    }
    ending = {"sadc, one sample": lambda folder: Once([programs.SADC, "-S", "ALL", "1", "1", folder / "sa"], folder),
              "atop, one sample": programs.atop_once,
              "pidstat, one answer": lambda folder: Once(["pidstat", "-u", "-r", "-d", "-w", "-l"], folder),
              "ps, one answer": lambda _: programs.ps()}
    turns = []
    for number in range(context.turns):
        took = {}
        for index, (name, (maker, condition)) in enumerate(going.items()):
            one = maker(context.folder / f"going{number}.{index}")
            try:
                wait_for(lambda: condition(one), pause=POLL)
                took[name] = time.perf_counter() - one.started
            finally:
                one.stop()
        for index, (name, maker) in enumerate(ending.items()):
            folder = context.folder / f"ending{number}.{index}"
            folder.mkdir()
            took[name] = maker(folder).sample()[1]
        turns.append(took)
    print(f"\n### From the start of a program to its first figures, {context.population} processes, {len(turns)} turns")
    own = list(going)[:2]
    table(("", "ms", *(f"ratio of {name}" for name in own)),
          [(name, spread([each[name] * 1000 for each in turns], 1),
            *(ratio(turns, mine, name) if name not in own else "" for mine in own)) for name in turns[0]])
