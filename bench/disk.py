"""The parts `disk` and `rows` of bench/compare: what is kept on disk, of a sample and of a row.

Each is the difference of two runs, a short and a long one, after both have ended in good order: what a file has
from the first moment is in neither, and what a program holds back in memory, or in a log before its file, is in both.
"""

import sqlite3
import time

import programs
from measures import (MODERN, CLASSIC, Agent, align, median, ratio, settings, spread, stop_all, table, work)

SHORT_INTERVALS = 4
LONG_INTERVALS = 16
DAY = 86400


def size(folder, pattern="**/*"):
    return sum(path.stat().st_size for path in folder.glob(pattern) if path.is_file() and not path.is_symlink())


class Keeper:
    """A program that keeps samples: how it is started, and the files that grow."""

    def __init__(self, start, pattern):
        self.start = start
        self.pattern = pattern


def agent_keeper(context, records, profile, source):
    ini = settings(records, every=context.every, source=source, history="kept.db")
    return Keeper(lambda folder, _: Agent(context.build, folder, ini, profile), "kept.db*")


def growth(context, keepers, number):
    """By keeper: bytes and samples that the long run has more than the short one, and the folder of the long one."""
    kept = {}
    for kind, intervals in (("short", SHORT_INTERVALS), ("long", LONG_INTERVALS)):
        running = {}
        runs = {}
        try:
            for index, (name, keeper) in enumerate(keepers.items()):
                running[name] = keeper.start(context.folder / f"{kind}{number}.{index}", context.every)
            align(context.every, 0.5)
            time.sleep(intervals * context.every)
            runs = {name: one.runs() if isinstance(one, Agent) else intervals for name, one in running.items()}
        finally:
            stop_all(running.values())
        for name, one in running.items():
            kept[name, kind] = (size(one.folder, keepers[name].pattern), runs[name], one.folder)
    return {name: (kept[name, "long"][0] - kept[name, "short"][0], kept[name, "long"][1] - kept[name, "short"][1],
                   kept[name, "short"][2], kept[name, "long"][2]) for name in keepers}


def disk(context):
    keepers = {}
    if context.has_iterator:
        keepers["packaged schedule, `modern`, iterator"] = agent_keeper(context, MODERN, "modern", "iterator")
    keepers["packaged schedule, `modern`, /proc"] = agent_keeper(context, MODERN, "modern", "proc")
    keepers["packaged schedule, `classic`"] = agent_keeper(context, CLASSIC, "classic", "proc")
    agents = list(keepers)
    peers = {"sadc": Keeper(programs.sadc, "sa"), "atop": Keeper(programs.atop, "atop.raw"),
             "collectd": Keeper(programs.collectd, "kept/**/*"),
             "netdata": Keeper(programs.netdata, "kept/dbengine/*")}
    keepers.update(peers)
    turns = []
    for number in range(context.turns):
        turns.append({name: grown / max(1, samples) for name, (grown, samples, _, _) in
                      growth(context, keepers, number).items()})
    print(f"\n### Kept on disk, {context.population} processes, {len(turns)} turns")
    table(("", "bytes a sample", "Mbytes a day at a sample a minute, extrapolated", *(f"to {peer}" for peer in peers)),
          [(name, spread([each[name] for each in turns], 0),
            f"{median([each[name] for each in turns]) * DAY / 60 / 1e6:.1f}",
            *(ratio(turns, name, peer) if name in agents else "" for peer in peers)) for name in turns[0]])
    work({"agent": "all records of the packaged schedule each time, history after the write-ahead log has gone into the "
                   "file; the packaged schedule has those of processes each fifth minute only",
          **{name: programs.WORK[name] for name in peers}})


def rows_of(folder):
    """Of a history: rows of PDI, bytes of its table, of its indexes, and of pages that nothing uses."""
    with sqlite3.connect(f"file:{folder / 'kept.db'}?mode=ro", uri=True) as base:
        count = base.execute("SELECT count(*) FROM PDI").fetchone()[0]
        page = base.execute("PRAGMA page_size").fetchone()[0]
        unused = base.execute("PRAGMA freelist_count").fetchone()[0] * page
        parts = {}
        try:
            parts = dict(base.execute("SELECT name, sum(pgsize) FROM dbstat GROUP BY name"))
        except sqlite3.OperationalError:
            pass
    return count, parts, unused


def rows(context):
    keepers = {"PDI": agent_keeper(context, ("PDI",), "modern", "iterator" if context.has_iterator else "proc")}
    values = []
    for number in range(context.turns):
        grown, _, short, long = growth(context, keepers, number)["PDI"]
        before, after = rows_of(short), rows_of(long)
        values.append(grown / (after[0] - before[0]))
    parts = {name: (after[1][name] - before[1].get(name, 0)) / (after[0] - before[0]) for name in after[1]}
    print(f"\n### A row of `PDI` in the history, {context.population} processes, {len(values)} turns")
    table(("", "bytes a row"),
          [("the file", spread(values, 1)),
           *((f"of these {name}, last turn", f"{value:.1f}")
             for name, value in sorted(parts.items(), key=lambda part: -part[1]) if value >= 0.05)])
    print(f"The file after the write-ahead log has gone into it, and nothing has been deleted yet ({after[2]} bytes in "
          f"unused pages): {after[0]} rows in the long run. The processes sleep, so that their figures are small and "
          "stay the same; those of busy ones take more.\n")
    context.aims.add(f"bytes a row of PDI on disk, {context.population} processes", 60, values)
