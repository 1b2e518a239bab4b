"""The parts `batch` and `processes` of bench/compare: what a sample a second costs, of programs side by side."""

import time

import programs
from measures import (CLASSIC, HOST_RECORDS, MODERN, PROCESS_RECORDS, Agent, align, median, ratio, ratios, settings,
                      spread, stop_all, table, work)

WARM_INTERVALS = 3


def batch_agents(has_iterator, every):
    made = {"packaged schedule, `modern`, iterator, kept": ("modern", MODERN, "iterator"),
            "packaged schedule, `modern`, /proc, kept": ("modern", MODERN, "proc"),
            "packaged schedule, `classic`, kept": ("classic", CLASSIC, "proc"),
            "its records of the host alone, `modern`, kept": ("modern", HOST_RECORDS, "proc")}
    return {name: (profile, settings(records, every=every, source=source, history="kept.db"))
            for name, (profile, records, source) in made.items() if has_iterator or source != "iterator"}


def process_agents(has_iterator, every):
    made = {"all records of processes, `classic`": ("classic", PROCESS_RECORDS, "proc", ""),
            "all records of processes, `modern`, /proc": ("modern", PROCESS_RECORDS, "proc", ""),
            "all records of processes, iterator": ("modern", PROCESS_RECORDS, "iterator", ""),
            "the same, kept": ("modern", PROCESS_RECORDS, "iterator", "kept.db"),
            "`PDI` alone, iterator, kept": ("modern", ("PDI",), "iterator", "kept.db")}
    return {name: (profile, settings(records, every=every, source=source, history=history))
            for name, (profile, records, source, history) in made.items() if has_iterator or source != "iterator"}


def turn(seconds, every, running, starting):
    """CPU milliseconds of a sample, by program, in one turn of so many seconds, a multiple of the interval.

    The agent tells how many samples it has taken; the others take one in each interval."""
    align(every, 0.5)
    runs = {name: one.runs() for name, one in running.items() if isinstance(one, Agent)}
    used = {name: one.cpu() for name, one in running.items()}
    started = {name: [] for name in starting}
    begin = time.monotonic()
    for second in range(0, seconds, every):
        time.sleep(max(0.0, begin + second - time.monotonic()))
        for name, one in starting.items():
            started[name].append(one.sample()[0])
    time.sleep(max(0.0, begin + seconds - time.monotonic()))
    took = time.monotonic() - begin
    used = {name: one.cpu() - used[name] for name, one in running.items()}
    runs = {name: running[name].runs() - count for name, count in runs.items()}
    costs = {name: spent / max(1, runs.get(name, round(took / every))) * 1000 for name, spent in used.items()}
    costs.update({name: sum(values) / len(values) * 1000 for name, values in started.items()})
    return costs


def measure(context, agents, makers, starting):
    """The turns, and the memory of each at their end."""
    every = context.every
    seconds = every * max(3, context.seconds // every)
    running = {}
    try:
        for number, (name, (profile, ini)) in enumerate(agents.items()):
            running[name] = Agent(context.build, context.folder / f"agent{number}", ini, profile)
        for name, maker in makers.items():
            running[name] = maker(context.folder / name, every)
        time.sleep(WARM_INTERVALS * every)
        turns = [turn(seconds, every, running, starting) for _ in range(context.turns)]
        for name, one in running.items():
            if one.process.poll() is not None:
                raise RuntimeError(f"{name} has ended with {one.process.returncode}")
        memory = {name: one.memory() for name, one in running.items()}
        memory.update({name: (one.sample()[2], None) for name, one in starting.items()})
        return turns, memory
    finally:
        stop_all(running.values())


def tell(context, title, turns, memory, agents, peers):
    print(f"\n### {title}, {context.population} processes, a sample in {context.every} s, {len(turns)} turns")
    rows = []
    for name in turns[0]:
        rss, pss = memory[name]
        rows.append((name, spread([each[name] for each in turns]),
                     *(ratio(turns, name, peer) if name in agents else "" for peer in peers),
                     f"{rss:.1f}", "-" if pss is None else f"{pss:.1f}"))
    table(("", "CPU of a sample, ms", *(f"to {peer}" for peer in peers), "RSS, MB", "PSS, MB"), rows)


def batch(context):
    peers = {"sadc": programs.sadc, "collectd": programs.collectd, "netdata": programs.netdata,
             "atop": programs.atop}
    agents = batch_agents(context.has_iterator, context.every)
    turns, memory = measure(context, agents, peers, {})
    tell(context, "A batch with history", turns, memory, agents, peers)
    work({"agent": "the records of the packaged schedule, all of them each time, kept in its history",
          **{name: programs.WORK[name] for name in peers}})
    for name in agents:
        context.aims.add(f"{name}, to sadc, {context.population} processes", 2.5, ratios(turns, name, "sadc"))


def processes(context):
    makers = {"atop": programs.atop, "pidstat": programs.pidstat, "apps.plugin": programs.apps}
    peers = (*makers, "ps")
    agents = process_agents(context.has_iterator, context.every)
    turns, memory = measure(context, agents, makers, {"ps": programs.ps()})
    tell(context, "All processes", turns, memory, agents, peers)
    work({"agent": f"the records {' '.join(PROCESS_RECORDS)}, with a row per process or summed, without history "
                   "where `kept` is not said",
          **{name: programs.WORK[name] for name in peers}})
    for name in (name for name in agents if "kept" not in name):
        for peer, aim in (("atop", 0.6), ("ps", 0.7)):
            context.aims.add(f"{name}, to {peer}, {context.population} processes", aim, ratios(turns, name, peer))
