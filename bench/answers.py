"""The part `socket` of bench/compare: all processes, asked for over the daemon's socket, beside ps."""

import time

import programs
from measures import Agent, Once, ratio, ratios, settings, spread, stop_all, table, work


def socket(context):
    """Elapsed time and CPU of one answer with `PD` of all processes."""
    sources = ("proc", "iterator") if context.has_iterator else ("proc",)
    agents = {}
    turns, cpu, sizes = [], [], {}
    ps = programs.ps()
    try:
        for source in sources:
            agents[source] = Agent(context.build, context.folder / source, settings({}, source=source))
        for one in agents.values():
            one.rows(["PD"])
        for _ in range(context.turns):
            took, used = {}, {}
            for source, one in agents.items():
                raw = f"`qmtctl get PD --raw`, {source}"
                before = one.cpu()
                spent, took[raw] = Once([one.control, "--socket", "run/control.sock", "get", "PD", "--raw"],
                                        one.folder).sample()
                used[raw] = (one.cpu() - before, spent)
                bare = f"a bare client, {source}"
                before = one.cpu()
                begin, own = time.perf_counter(), time.process_time()
                sizes[bare] = one.rows(["PD"])
                took[bare] = time.perf_counter() - begin
                used[bare] = (one.cpu() - before, time.process_time() - own)
            spent, took["ps"] = ps.sample()
            # It has no daemon.
            used["ps"] = (None, spent)
            turns.append(took)
            cpu.append(used)
    finally:
        stop_all(agents.values())
    print(f"\n### `PD` over the socket, {context.population} processes, {len(turns)} turns")

    def milliseconds(name, side):
        values = [each[name][side] for each in cpu]
        return "-" if None in values else spread([value * 1000 for value in values], 0)

    table(("", "elapsed, ms", "to `ps -eF`", "CPU of the daemon, ms", "CPU of the client, ms"),
          [(name, spread([each[name] * 1000 for each in turns], 0), ratio(turns, name, "ps") if name != "ps" else "",
            *(milliseconds(name, side) for side in (0, 1))) for name in turns[0]])
    print(f"An answer has {max(sizes.values())} bytes.\n")
    work({"agent": "PD of all processes, collected for this question, as JSON; the bare client reads it and does no "
                   "more",
          "ps": programs.WORK["ps"]})
    for name in (name for name in turns[0] if name != "ps"):
        context.aims.add(f"PD, {name}, elapsed, to `ps -eF`, {context.population} processes", 1.5,
                         ratios(turns, name, "ps"))
