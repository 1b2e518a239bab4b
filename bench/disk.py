"""What programs keep on disk: sizes of their files, and the part `rows` of bench/compare, bytes of a row."""

import contextlib
import sqlite3
import time

from measures import Agent, align, settings, spread, table, wait_for

HISTORY = "kept.db"
# Files that grow, of programs that append.
APPENDED = {"sadc": "sa", "atop": "atop.raw", "collectd": "kept/**/*", "netdata": "kept/dbengine/*"}


def files(folder, pattern):
    return sum(path.stat().st_size for path in folder.glob(pattern) if path.is_file())


def ask_history(folder, question):
    """All rows of the answer, also where the daemon writes just now."""
    def rows():
        try:
            with contextlib.closing(sqlite3.connect(f"file:{folder / HISTORY}?mode=ro", uri=True, timeout=0)) as base:
                return base.execute(question).fetchall()
        except sqlite3.OperationalError as error:
            raise OSError(str(error)) from error

    return wait_for(rows, pause=0.02)


def history_bytes(folder):
    """Of all pages, and of the file in which rows wait that came while somebody read, with the pages of its own tables.
    The journal is not counted: it is there while a batch is written."""
    pages = ask_history(folder, "SELECT page_count * page_size FROM pragma_page_count, pragma_page_size")[0][0]
    return pages + files(folder, f"{HISTORY}-waiting")


def history_error(folder):
    """By how much its growth may be wrong: the last page of each table and index may be full or have room."""
    return ask_history(folder, "SELECT page_size * (SELECT count(*) FROM sqlite_master WHERE rootpage > 0) "
                               "FROM pragma_page_size")[0][0]


def kept_bytes(name, program):
    """What the program has kept up to now; none of those that keep in memory what they write later."""
    if isinstance(program, Agent):
        return history_bytes(program.folder) if (program.folder / HISTORY).exists() else None
    return files(program.folder, APPENDED[name]) if name in APPENDED and name != "netdata" else None


def parts_of(folder):
    """Bytes by table and index, where SQLite tells them, and what nothing uses."""
    unused = ask_history(folder, "SELECT freelist_count * page_size "
                                 "FROM pragma_freelist_count, pragma_page_size")[0][0]
    try:
        return dict(ask_history(folder, "SELECT name, sum(pgsize) FROM dbstat GROUP BY name")), unused
    except RuntimeError:
        return {}, unused


def rows(context):
    """A history of PDI alone: what it grows by in a turn, by the rows of that turn."""
    source = "iterator" if context.has_iterator else "proc"
    one = Agent(context.build, context.folder / "agent",
                settings({"PDI": context.every}, source=source, history=HISTORY))

    def state():
        schedule = one.status()["schedules"][0]
        return history_bytes(one.folder), schedule["runs"], schedule["rows"]

    try:
        time.sleep(3 * context.every)
        align(1, 0)
        values, made, states = [], 0, [state()]
        before, _ = parts_of(one.folder)
        for _ in range(context.turns):
            time.sleep(context.every * context.intervals() - 0.5)
            # Batches come in the middle of a second.
            align(1, 0)
            states.append(state())
            (size, runs, _), (later, more, count) = states[-2:]
            values.append((later - size) / max(1, (more - runs) * count))
            made += (more - runs) * count
        after, unused = parts_of(one.folder)
    finally:
        one.stop()
    print(f"\n### A row of `PDI` in the history, {context.population} processes, {len(values)} turns")
    grown = {name: (size - before.get(name, 0)) / max(1, made) for name, size in after.items()}
    table(("", "bytes a row"),
          [("the history", spread(values, 1)),
           *((f"of these `{name}`", f"{value:.1f}")
             for name, value in sorted(grown.items(), key=lambda part: -part[1]) if value >= 0.05)])
    print(f"What all pages of the history grow by, {made} rows; nothing has grown old yet, {unused} bytes are in pages "
          "that nothing uses. The processes sleep, so that their figures are small and stay the same; those of busy "
          "ones take more.\n")
    context.aims.add(f"bytes a row of PDI on disk, {context.population} processes", 60, values)
