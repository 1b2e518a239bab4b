"""The parts `batch` and `processes` of bench/compare: what a sample costs, of programs side by side."""

import time

import programs
from disk import APPENDED, HISTORY, files, history_error, kept_bytes
from measures import (CLASSIC, HOST_RECORDS, MODERN, PROCESS_RECORDS, Agent, align, ratio, ratios, settings, spread,
                      stop_all, table, work)

DAY_IN_MINUTES = 1440
# Of the packaged settings.
OF_EACH_PROCESS = ("PDX", "PDI")
SELDOM = 5
# Parts of an interval: where programs are started, and where turns begin.
AT_START, AT_TURN = 0.2, 0.85
BLOCK = 4096
WARM_INTERVALS = 3
# What netdata does once, some seconds after its start, is done by then.
WARM_SECONDS = 10


def packaged(every):
    """The schedule of the packaged settings: rows of single processes in each fifth batch."""
    return {record: every * (SELDOM if record in OF_EACH_PROCESS else 1) for record in MODERN}


def batch_agents(has_iterator, every):
    made = {}
    for source, way in (("iterator", "iterator"), ("proc", "/proc")):
        if has_iterator or source != "iterator":
            made[f"as packaged, `modern`, {way}"] = ("modern", packaged(every), source)
            made[f"all its records each time, {way}"] = ("modern", dict.fromkeys(MODERN, every), source)
            made[f"those of the host alone, {way}"] = ("modern", dict.fromkeys(HOST_RECORDS, every), source)
    made["all its records each time, `classic`"] = ("classic", dict.fromkeys(CLASSIC, every), "proc")
    return {name: (profile, settings(schedule, source=source, history=HISTORY))
            for name, (profile, schedule, source) in made.items()}


def process_agents(has_iterator, every):
    made = {"all records of processes, `classic`": ("classic", PROCESS_RECORDS, "proc", ""),
            "all records of processes, `modern`, /proc": ("modern", PROCESS_RECORDS, "proc", ""),
            "all records of processes, iterator": ("modern", PROCESS_RECORDS, "iterator", ""),
            "the same, kept": ("modern", PROCESS_RECORDS, "iterator", HISTORY),
            "`PDI` alone, iterator, kept": ("modern", ("PDI",), "iterator", HISTORY)}
    return {name: (profile, settings(dict.fromkeys(records, every), source=source, history=history))
            for name, (profile, records, source, history) in made.items() if has_iterator or source != "iterator"}


def ask(running):
    """Samples that each agent says it has taken, and bytes that each program has kept."""
    runs = {name: one.runs() for name, one in running.items() if isinstance(one, Agent)}
    return runs, {name: kept_bytes(name, one) for name, one in running.items()}


def cpu(running):
    return {name: one.cpu() for name, one in running.items()}


class Turns:
    """One after the other without a gap, each of so many seconds, a multiple of the interval.

    An agent tells how many samples it has taken; the others take one in each interval. What it costs to be asked lies
    between the turns: each begins and ends with the reading of clocks."""

    def __init__(self, seconds, every, running, starting):
        self.seconds = seconds
        self.every = every
        self.running = running
        self.starting = starting
        align(every, AT_TURN)
        self.end = time.monotonic()
        self.asked = [ask(running)]

    def samples(self, name, count=1):
        """How many the program has taken in the last so many turns."""
        runs, later = self.asked[-1 - count][0], self.asked[-1][0]
        return max(1, later[name] - runs[name]) if name in runs else count * self.seconds // self.every

    def growth(self, name, count=1):
        """Bytes kept for a sample of the last so many turns; none where nothing is kept."""
        before, after = self.asked[-1 - count][1][name], self.asked[-1][1][name]
        return None if before is None else (after - before) / self.samples(name, count)

    def one(self):
        """CPU milliseconds of a sample and bytes that it adds on disk, by program."""
        used = cpu(self.running)
        started = {name: [] for name in self.starting}
        begin = self.end
        self.end = begin + self.seconds
        for second in range(0, self.seconds, self.every):
            time.sleep(max(0.0, begin + second - time.monotonic()))
            for name, program in self.starting.items():
                started[name].append(program.sample()[0])
        time.sleep(max(0.0, self.end - time.monotonic()))
        used = {name: seconds - used[name] for name, seconds in cpu(self.running).items()}
        self.asked.append(ask(self.running))
        costs = {name: used[name] / self.samples(name) * 1000 for name in self.running}
        costs.update({name: sum(values) / len(values) * 1000 for name, values in started.items()})
        sizes = {name: self.growth(name) for name in self.running}
        return costs, {name: size for name, size in sizes.items() if size is not None}

    def growths(self):
        """Bytes of a sample over all turns, and by how much that may be wrong, by program."""
        made = {}
        count = len(self.asked) - 1
        for name, program in self.running.items():
            size = self.growth(name, count)
            if size is not None:
                error = history_error(program.folder) if isinstance(program, Agent) else 0
                made[name] = size, error / self.samples(name, count)
        return made


class Netdata:
    """What netdata keeps is seen when it has ended: the difference of two runs, this being the short one."""

    def __init__(self, folder, every):
        self.every = every
        self.program = programs.netdata(folder, every)

    def bytes_of_a_sample(self, longer):
        """And by how much that may be wrong, as the file grows by blocks. Both have ended."""
        sizes = [files(one.folder, APPENDED["netdata"]) for one in (longer, self.program)]
        samples = (longer.ran() - self.program.ran()) / self.every
        return (sizes[0] - sizes[1]) / samples, BLOCK / samples


def measure(context, agents, makers, starting, intervals):
    """Costs and sizes of each turn of so many intervals, the memory of each program at their end, and the bytes of a
    sample over all turns, also of netdata where that is among them."""
    every = context.every
    seconds = every * intervals
    running = {}
    short = Netdata(context.folder / "short", every) if "netdata" in makers else None
    try:
        # All within a moment, so that no sample lies where turns begin and end.
        align(every, AT_START)
        for name, maker in makers.items():
            running[name] = maker(context.folder / name, every)
        for number, (name, (profile, ini)) in enumerate(agents.items()):
            running[name] = Agent(context.build, context.folder / f"agent{number}", ini, profile, waits=False)
        for name in agents:
            running[name].ready()
        time.sleep(max(WARM_SECONDS, WARM_INTERVALS * every))
        if short:
            short.program.stop()
        turns = Turns(seconds, every, running, starting)
        each = [turns.one() for _ in range(context.turns)]
        for name, one in running.items():
            if one.process.poll() is not None:
                raise RuntimeError(f"{name} has ended with {one.process.returncode}")
        memory = {name: one.memory() for name, one in running.items()}
        memory.update({name: one.memory() for name, one in starting.items()})
        grown = turns.growths()
    finally:
        stop_all([*running.values(), *([short.program] if short else [])])
    if short:
        grown["netdata"] = short.bytes_of_a_sample(running["netdata"])
    return each, memory, grown


def tell(context, title, turns, memory, agents, peers):
    print(f"\n### {title}, {context.population} processes, a sample in {context.every} s, {len(turns)} turns")
    rows = []
    for name in [*agents, *peers]:
        rows.append((name, spread([each[name] for each in turns]),
                     *(ratio(turns, name, peer) if name in agents else "" for peer in peers),
                     *(f"{size:.1f}" for size in memory[name])))
    table(("", "CPU of a sample, ms", *(f"to {peer}" for peer in peers), "RSS, MB", "PSS, MB"), rows)


def tell_disk(context, sizes, grown, agents, peers):
    print(f"### The same on disk, {context.population} processes, {len(sizes)} turns")
    appending = [peer for peer in peers if peer != "netdata"]

    def a_day(name):
        megabytes, error = (size * DAY_IN_MINUTES / 1e6 for size in grown[name])
        return f"{megabytes:.1f} ± {error:.1f}" if error > 0 else f"{megabytes:.1f}"

    rows = [(name, spread([each[name] for each in sizes], 0), a_day(name),
             *(ratio(sizes, name, peer) if name in agents else "" for peer in appending))
            for name in [*agents, *appending]]
    size, error = grown["netdata"]
    rows.append(("netdata", f"{size:.0f} ± {error:.0f}", a_day("netdata"), *("" for _ in appending)))
    table(("", "bytes a sample", "Mbytes a day at a sample a minute, extrapolated",
           *(f"to {peer}" for peer in appending)), rows)
    print("What files have grown by in a turn; a day is that of all turns together. The agent's history grows by pages "
          "of each of its tables and indexes; netdata's files are known once it has ended, from two runs, and grow by "
          f"blocks of {BLOCK} bytes.\n")


def batch(context):
    peers = {"sadc": programs.sadc, "collectd": programs.collectd, "netdata": programs.netdata,
             "atop": programs.atop}
    agents = batch_agents(context.has_iterator, context.every)
    turns, memory, grown = measure(context, agents, peers, {}, context.intervals(SELDOM))
    costs = [each for each, _ in turns]
    tell(context, "A batch with history", costs, memory, agents, peers)
    tell_disk(context, [sizes for _, sizes in turns], grown, agents, peers)
    work({"agent": f"the records of the packaged schedule ({' '.join(OF_EACH_PROCESS)} in each fifth batch, where it "
                   "is not each time), kept in its history",
          **{name: programs.WORK[name] for name in peers}})
    for name in agents:
        context.aims.add(f"batch, {name}, to sadc, {context.population} processes", 2.5, ratios(costs, name, "sadc"))


def processes(context):
    makers = {"atop": programs.atop, "pidstat": programs.pidstat, "apps.plugin": programs.apps}
    peers = (*makers, "ps")
    agents = process_agents(context.has_iterator, context.every)
    turns, memory, _ = measure(context, agents, makers, {"ps": programs.ps()}, context.intervals())
    costs = [each for each, _ in turns]
    tell(context, "All processes", costs, memory, agents, peers)
    work({"agent": f"the records {' '.join(PROCESS_RECORDS)}, with a row per process or summed, without history "
                   "where `kept` is not said",
          **{name: programs.WORK[name] for name in peers}})
    for name in (name for name in agents if "kept" not in name):
        for peer, aim in (("atop", 0.6), ("ps", 0.7)):
            context.aims.add(f"{name}, to {peer}, {context.population} processes", aim, ratios(costs, name, peer))
