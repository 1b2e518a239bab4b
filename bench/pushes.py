"""The part `push` of bench/compare: what pushing costs, beside programs that scrape the exporter and push."""

import http.server
import threading
import time

import programs
from measures import (MODERN, Agent, align, median, megabytes, ratio, settings, spread, stop_all, table, wait_for, work)

LISTEN = "Http Listen = 127.0.0.1:0"
SLOW_SECONDS = 20
# A request holds several batches, so a turn has to hold several requests.
TURN_SECONDS = 20
SHIPPERS = ("prometheus", "vmagent")
FAST = ("plain0", "plain1", "pushing0", "pushing1")


class Sink:
    """A server that takes all that is pushed; counts requests and bytes by path."""

    def __init__(self):
        self.got = {}
        outer = self

        class Handler(http.server.BaseHTTPRequestHandler):
            protocol_version = "HTTP/1.1"

            def do_POST(self):
                size = int(self.headers["Content-Length"])
                self.rfile.read(size)
                count, total = outer.got.get(self.path, (0, 0))
                outer.got[self.path] = (count + 1, total + size)
                self.send_response(204)
                self.end_headers()

            def log_message(self, *_):
                pass

        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.url = f"http://127.0.0.1:{self.server.server_port}"
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def stop(self):
        self.server.shutdown()
        self.server.server_close()


def all_push(sink, names):
    for name in names:
        if sink.got.get(f"/{name}", (0, 0))[0] < 3:
            raise ValueError(f"{name} does not push yet")


def rests(gates, seconds):
    """The least resident memory of each of these processes within the time, Mbytes."""
    least = [float("inf")] * len(gates)
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        least = [min(kept, megabytes(gate, "Rss")[0]) for kept, gate in zip(least, gates)]
        time.sleep(min(1.0, max(0.0, end - time.monotonic())))
    return least


def start_agents(context, url, running):
    """Two that push and two that do not, as a difference of a few per cent is looked for; and two with a batch so
    seldom that the gate rests between two pushes."""
    fast, slow = dict.fromkeys(MODERN, 1), dict.fromkeys(MODERN, SLOW_SECONDS)
    for index in range(2):
        for kind, more in (("plain", ""), ("pushing", f"[Push]\nUrl = {url}/pushing{index}\n")):
            running[f"{kind}{index}"] = Agent(context.build, context.folder / f"{kind}{index}",
                                              settings(fast, history="kept.db", node=LISTEN, more=more))
    for kind, more in (("plain", ""), ("pushing", f"[Push]\nUrl = {url}/slow\n")):
        running[f"slow {kind}"] = Agent(context.build, context.folder / f"slow-{kind}",
                                        settings(slow, history="kept.db", node=LISTEN, more=more))


def turn(running, sink, gates):
    align(1, 0.9)
    pushed = sink.got["/pushing0"][1]
    runs = {name: running[name].runs() for name in FAST}
    used = {name: one.cpu() for name, one in running.items()}
    least = rests(gates, TURN_SECONDS)
    used = {name: one.cpu() - used[name] for name, one in running.items()}
    cost = {name: used[name] / (running[name].runs() - runs[name]) * 1000 for name in FAST}
    # Both shippers scrape the one exporter.
    exporter = used["exporter"] / len(SHIPPERS)
    return {"not pushed": (cost["plain0"] + cost["plain1"]) / 2, "pushed": (cost["pushing0"] + cost["pushing1"]) / 2,
            **{name: (used[name] + exporter) / TURN_SECONDS * 1000 for name in SHIPPERS},
            "slow": used["slow plain"] * 1000, "slow pushed": used["slow pushing"] * 1000,
            "bytes": (sink.got["/pushing0"][1] - pushed) / TURN_SECONDS, "rest": least}


def push(context):
    sink = Sink()
    running = {}
    try:
        start_agents(context, sink.url, running)
        exporter = running["exporter"] = programs.Exporter(context.folder / "exporter")
        for name in SHIPPERS:
            running[name] = programs.Shipper(name, context.folder / name, exporter.address, f"{sink.url}/{name}")
        wait_for(lambda: all_push(sink, ("pushing0", "pushing1", *SHIPPERS)))
        gates = [running[f"slow {kind}"].gate() for kind in ("plain", "pushing")]
        turns = [turn(running, sink, gates) for _ in range(context.turns)]
        memory = {name: one.memory() for name, one in running.items()}
        busy = [megabytes(running[f"{kind}0"].gate(), "Rss")[0] for kind in ("plain", "pushing")]
    finally:
        stop_all(running.values())
        sink.stop()
    print(f"\n### A batch a second collected, kept and pushed, {context.population} processes, {len(turns)} turns")
    rows = [(name, spread([each[key] for each in turns]),
             *(ratio(turns, key, peer) if key not in SHIPPERS else "" for peer in SHIPPERS),
             *(f"{sum(memory[one][kind] for one in of):.1f}" for kind in (0, 1)))
            for name, key, of in (("agent, not pushed", "not pushed", ("plain0",)),
                                  ("agent, pushed", "pushed", ("pushing0",)),
                                  *((f"{name} and the exporter", name, (name, "exporter")) for name in SHIPPERS))]
    table(("", "CPU of a batch, ms", *(f"to {name}" for name in SHIPPERS), "RSS, MB", "PSS, MB"), rows)
    added = [each["pushed"] - each["not pushed"] for each in turns]
    slow = [each["slow pushed"] - each["slow"] for each in turns]
    rest = [median([each["rest"][index] for each in turns]) for index in (0, 1)]
    print(f"Pushing adds {spread(added)} ms to a batch of a second, of {median([each['bytes'] for each in turns]):.0f} "
          f"bytes as it is sent, and {spread(slow)} ms to one in {SLOW_SECONDS} s. The gate has {busy[0]:.2f} MB "
          f"without pushes and {busy[1]:.2f} with them; at rest between those in {SLOW_SECONDS} s {rest[0]:.2f} and "
          f"{rest[1]:.2f}.\n")
    work({"agent": "all records of the packaged schedule by /proc each second, kept in its history",
          "the others": "scrape the exporter, with all that it has by default, once a second, keep a log of what they "
                        "send, and push to the same server"})
