"""What the gate's readers cost the daemon: whether its batches keep their time, and how much memory both use."""

import contextlib
import os
import pathlib
import random
import re
import signal
import socket
import subprocess
import threading
import time
import urllib.error

from harness import LIMIT_SECONDS, Agent, console_token, fail, fetch, free_port, gate_user, wait_for

ROOT = pathlib.Path(__file__).resolve().parents[2]
LATEST_SECONDS = 0.1
MEGABYTE = 2**20
LISTENERS = 32
LISTENERS_OF_A_LOGIN = 8
SLOW_READERS = 200
SLEEPERS = 300
KILLS = 100
FLOOD_SECONDS = 5
# What daemon and gate may use at rest, and how much more afterwards, where the program is the one that is shipped.
REST_MEGABYTES = (7, 9)
MORE_MEGABYTES = {True: 1.5, False: 12}


def is_strict(build):
    return build.name == "release"


def is_timed(build):
    """Under sanitizers a batch takes longer than a second by itself, and memory is given back late."""
    return build.name != "sanitize"


def memory(pid):
    """Bytes of memory in use."""
    fields = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text()
    return int(re.search(r"^Rss:\s+(\d+)", fields, re.M).group(1)) * 1024


def processor_ticks(pid):
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(") ")[2].split()
    return int(fields[11]) + int(fields[12])


def skipped(agent):
    return sum(row["skipped"] for row in agent.ask("status")["schedules"])


class Ticks:
    """When each batch of the schedule PI = 1 has been done, told by the daemon's own stream."""

    def __init__(self, agent):
        self.agent = agent
        self.skipped = skipped(agent)
        self.times = []
        # A path of any length would not fit into a socket's name.
        self.socket = socket.socket(socket.AF_UNIX)
        here = os.open(".", os.O_RDONLY)
        os.chdir(agent.home)
        self.socket.connect("run/control.sock")
        os.fchdir(here)
        os.close(here)
        self.socket.sendall(b'{"op":"follow","records":["PI"]}\n')
        self.begin = time.time()
        self.reader = threading.Thread(target=self.read, daemon=True)
        self.reader.start()

    def read(self):
        for line in self.socket.makefile("rb"):
            if line.startswith(b'{"event":"batch"'):
                self.times.append(time.time())

    def end(self):
        """When each batch was told."""
        self.socket.shutdown(socket.SHUT_RDWR)
        self.reader.join(10)
        return self.times

    def close(self):
        """The greatest lateness in seconds. Batches begin in the middle of each second; the first one's second is
        taken as it is told, and each further one is due a second behind the one before."""
        end = time.time()
        self.end()
        lost = skipped(self.agent) - self.skipped
        if is_timed(self.agent.build) and (lost or len(self.times) < end - self.begin - 2):
            fail(f"{lost} batches were left out, {len(self.times)} were told in {end - self.begin:.1f} s")
        first = int(self.times[0] - 0.5) + 0.5
        return max(done - first - place for place, done in enumerate(self.times))


def check_lateness(build, what, late, quiet):
    """What readers add to the time that the batches take by themselves is bounded."""
    most = quiet + (1 if is_strict(build) else 2) * LATEST_SECONDS
    if is_timed(build) and late > most:
        fail(f"{what}: a batch was done {late:.3f} s after its time, without that {quiet:.3f} s")


def quiet_lateness(agent, seconds=5):
    ticks = Ticks(agent)
    time.sleep(seconds)
    return ticks.close()


def told(sizes):
    return " and ".join(f"{size / MEGABYTE:.1f}" for size in sizes) + " MB"


def check_rest(build, work):
    """What both use as they are packaged, while nobody asks."""
    packaged = (ROOT / "packaging/qmtagt.ini").read_text()
    schedule = packaged.partition("[Schedule]")[2].partition("\n[")[0]
    with Agent(build, work, "modern", schedule) as agent:
        fetch(f"http://{agent.bare}/metrics")
        gate = agent.gate_pid()
        # The start's memory is given back meanwhile.
        time.sleep(4)
        before = processor_ticks(gate)
        time.sleep(5)
        used = processor_ticks(gate) - before
        sizes = memory(agent.process.pid), memory(gate)
        if used:
            fail(f"a gate that nobody asks uses {used} ticks of the processor in 5 s")
        if is_strict(build) and any(size > most * MEGABYTE for size, most in zip(sizes, REST_MEGABYTES)):
            fail(f"daemon and gate use {told(sizes)} at rest, not {REST_MEGABYTES} MB")
        print(f"at rest: daemon and gate use {told(sizes)}, and the gate no processor")


class Reader:
    """One connection that asks for a page."""

    def __init__(self, port, page, token, buffer=None):
        self.socket = socket.socket()
        if buffer is not None:
            self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, buffer)
        self.socket.settimeout(10)
        self.received = b""
        self.socket.connect(("127.0.0.1", port))
        self.socket.sendall(f"GET {page} HTTP/1.1\r\nHost: localhost\r\nAuthorization: Bearer {token}\r\n\r\n"
                            .encode())

    def status(self):
        found = re.match(rb"HTTP/1.1 (\d+)", self.received)
        return int(found.group(1)) if found else None

    def close(self):
        self.socket.close()


class Listener(Reader):
    """Takes the events as they come, until it is closed."""

    def __init__(self, port, token):
        super().__init__(port, "/api/1/events", token)
        self.socket.settimeout(30)
        self.thread = threading.Thread(target=self.listen, daemon=True)
        self.thread.start()

    def listen(self):
        try:
            while piece := self.socket.recv(65536):
                # The head and the last event are enough to tell what has come.
                self.received = self.received[:20] + piece
                self.batches = getattr(self, "batches", 0) + piece.count(b"event: batch")
        except OSError:
            pass

    def has_heard(self):
        return self.status() == 200 and getattr(self, "batches", 0) > 0


class SlowReader(Reader):
    """Asks for much and takes a byte now and then. A live collection would be the daemon's own work, so it is what
    the schedule made last."""

    PAGE = "/api/1/last?records=PDX"

    def __init__(self, port, token):
        super().__init__(port, self.PAGE, token, buffer=2048)

    def take(self):
        try:
            self.received += self.socket.recv(1 if self.status() else 13, socket.MSG_DONTWAIT)
        except OSError:
            pass


def login_tokens(agent, count):
    """Tokens come once a second."""
    tokens = []
    while len(tokens) < count:
        time.sleep(1.1)
        tokens.append(console_token(agent))
    return tokens


def load(agent, token, seconds):
    """Loads the gate; gives what came of it: scrapes, listeners that heard, slow readers that were served."""
    tokens = login_tokens(agent, LISTENERS // LISTENERS_OF_A_LOGIN)
    listeners = [Listener(agent.port, tokens[place // LISTENERS_OF_A_LOGIN]) for place in range(LISTENERS)]
    slow = []
    scrapes = 0
    begin = time.monotonic()
    while (passed := time.monotonic() - begin) < seconds:
        while len(slow) < min(SLOW_READERS, SLOW_READERS * (passed + 1) / seconds):
            try:
                slow.append(SlowReader(agent.port, token))
            except OSError as error:
                fail(f"slow reader {len(slow)}: {error}")
        for one in slow:
            one.take()
        fetch(f"http://{agent.bare}/metrics")
        scrapes += 1
        time.sleep(max(0, begin + scrapes - time.monotonic()))
    deaf = sum(not one.has_heard() for one in listeners)
    statuses = [one.status() for one in slow]
    for one in [*listeners, *slow]:
        one.close()
    if deaf:
        fail(f"{deaf} of {LISTENERS} listeners got no events")
    if odd := set(statuses) - {200, 503, None}:
        fail(f"slow readers were answered {odd}")
    return scrapes, statuses.count(200), len(statuses)


def check_load(build, work, seconds):
    """Listeners, slow readers, and a scrape each second."""
    sleepers = [subprocess.Popen(["sleep", "600"]) for _ in range(SLEEPERS)]
    try:
        with Agent(build, work, "modern", "PI = 1\nPDX = 5\nPDI = 5\nCGRP = 5\n") as agent:
            token = console_token(agent)
            fetch(f"http://{agent.bare}/metrics")
            Reader(agent.port, SlowReader.PAGE, token).close()
            time.sleep(5)
            gate = agent.gate_pid()
            before = memory(agent.process.pid), memory(gate)
            quiet = quiet_lateness(agent)
            ticks = Ticks(agent)
            scrapes, served, asked = load(agent, token, seconds)
            late = ticks.close()
            time.sleep(3)
            after = memory(agent.process.pid), memory(agent.gate_pid())
            if served < SLOW_READERS // 4:
                fail(f"of {asked} slow readers {served} were served")
            check_lateness(build, "load", late, quiet)
            most = MORE_MEGABYTES[is_strict(build)] * MEGABYTE
            if agent.gate_pid() != gate or is_timed(build) and max(b - a for a, b in zip(before, after)) > most:
                fail(f"daemon and gate used {told(before)} before the load, {told(after)} after")
            print(f"load: {scrapes} scrapes, {LISTENERS} listeners, {served} of {asked} slow readers at once served: "
                  f"batches done within {late:.3f} s ({quiet:.3f} s without); daemon and gate used "
                  f"{told(before)} before, {told(after)} after")
    finally:
        for one in sleepers:
            one.kill()
            one.wait()


class Scraper:
    """Scrapes again and again; counts what succeeds."""

    def __init__(self, address):
        self.address = address
        self.count = 0
        self.stop = threading.Event()
        self.thread = threading.Thread(target=self.run, daemon=True)
        self.thread.start()

    def run(self):
        while not self.stop.wait(0.02):
            try:
                self.count += "qmt_" in fetch(f"http://{self.address}/metrics")
            except (OSError, ValueError, urllib.error.URLError):
                pass

    def close(self):
        self.stop.set()
        self.thread.join(15)
        return self.count


def flood(port, end):
    """Connections that say nothing, garbage, and heads without an end."""
    words = [b"", b"\0\xff\x16\x03" * 50, b"GET /metrics HTTP/1.1\r\nHost: localhost\r\nX-",
             b"GET " + b"a" * 20000, b"POST /api/1/status HTTP/1.1\r\nHost: x\r\nContent-Length: 99999999\r\n\r\n"]
    chance = random.Random(port)
    held = []
    count = 0
    while time.monotonic() < end:
        # As fast as a network brings them, and not as one that takes all of this host's processors.
        time.sleep(0.001)
        try:
            one = socket.create_connection(("127.0.0.1", port), 0.2)
            one.setblocking(False)
            one.send(chance.choice(words))
            held.append(one)
            count += 1
        except OSError:
            pass
        if len(held) > 60:
            held.pop(0).close()
    for one in held:
        one.close()
    return count


def start_gate(build, agent):
    words = [build / "gate/qmt_gate", "--control", "run/control.sock"]
    if os.geteuid() == 0:
        words += ["--user", gate_user().pw_name]
    return subprocess.Popen(words, cwd=agent.home, stderr=subprocess.DEVNULL)


def seconds_to_scrape(build, agent, address):
    """How long a gate takes from its start to the end of a first scrape."""
    gate = start_gate(build, agent)
    begin = time.monotonic()
    try:
        while time.monotonic() - begin < LIMIT_SECONDS:
            with contextlib.suppress(OSError, ValueError):
                fetch(f"http://{address}/metrics")
                return time.monotonic() - begin
            time.sleep(0.005)
    finally:
        gate.kill()
        gate.wait()
    fail(f"a gate gives no scrape within {LIMIT_SECONDS} s")


def check_kills(build, work):
    """A gate that is killed again and again while it is asked, and one that is flooded."""
    address = f"127.0.0.1:{free_port()}"
    with Agent(build, work, "modern", "PI = 1\n", gate="unit", port=int(address.rpartition(":")[2])) as agent:
        if os.geteuid() == 0:
            # As the packaged unit gives its gate a group that may read.
            os.chown(agent.home / "run/control.sock", -1, gate_user().pw_gid)
        quiet = quiet_lateness(agent, 3)
        # Some before a first scrape can be through, some behind it.
        longest = max(0.3, 2 * seconds_to_scrape(build, agent, address))
        ticks = Ticks(agent)
        scraper = Scraper(address)
        for kill in range(KILLS):
            gate = start_gate(build, agent)
            time.sleep(0.02 + (longest - 0.02) * kill / KILLS)
            gate.send_signal(signal.SIGKILL)
            gate.wait()
        scrapes = scraper.close()
        if scrapes < 10:
            fail(f"{KILLS} gates answered {scrapes} scrapes before they were killed")
        gate = start_gate(build, agent)
        try:
            wait_for("a scrape", lambda: fetch(f"http://{address}/metrics"))
            senseless = flood(int(address.rpartition(":")[2]), time.monotonic() + FLOOD_SECONDS)
            wait_for("a scrape after the flood", lambda: fetch(f"http://{address}/metrics"))
            if gate.poll() is not None:
                fail(f"the flood ended the gate: {gate.returncode}")
        finally:
            gate.kill()
            gate.wait()
        late = ticks.close()
        check_lateness(build, "kills", late, quiet)
        print(f"{KILLS} gates killed while they answer {scrapes} scrapes, and {senseless} connections that make no "
              f"sense: batches done within {late:.3f} s")
