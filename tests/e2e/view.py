#!/usr/bin/env python3
"""Types into the full screen and looks at it, in a terminal of tmux's: what is on top, sorting, filtering, opening,
time, sizes, hostile names, ends of all kinds, a daemon that goes or sleeps, and what it costs.

  view.py BUILD_DIRECTORY
"""

import concurrent.futures
import ctypes
import os
import pathlib
import re
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import time

from harness import Agent, fail, wait_for
from terminal import Terminal

SCHEDULE = "".join(f"{record} = 1\n" for record in ("PI", "CPUX", "PDI", "PDX", "DISK", "NETD", "PRES", "FSL", "CGRP"))
HOSTILE_WORDS = "\x1b]0;taken over\x07\x1b[2Jargv \u6f22\u5b57"
HOSTILE_NAME = "\x1b[41m\u6f22evil"
UNITS = {"": 1, **{unit: 1024**power for power, unit in enumerate("KMGT", 1)}}
# Takes 64 Mbytes once the file of its argument is there.
GROWER = """import os, sys, time
while not os.path.exists(sys.argv[1]):
    time.sleep(0.1)
kept = b"x" * (64 << 20)
time.sleep(1000)"""
ALARM = "always-loaded"
ALARMS = f"""alarm = {ALARM}
record = PI
condition = Processes > 0
severity = critical
text = load is told
"""
COST_PROCESSES = 500
COST_SECONDS = 10
# Percent of a processor. A release build takes a fraction of it; this one may be under a sanitizer, on a busy host.
COST_BOUND = 25


class Children:
    """Processes that are ended with the object."""

    def __init__(self):
        self.started = []

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for child in self.started:
            child.kill()
        for child in self.started:
            child.wait()

    def start(self, words, executable=None):
        self.started.append(subprocess.Popen(words, executable=executable, stdin=subprocess.DEVNULL))
        return self.started[-1].pid


class View:
    """The program in a terminal."""

    def __init__(self, agent, terminal):
        self.agent = agent
        self.terminal = terminal
        self.socket = agent.home / "run/control.sock"

    def command(self, *words):
        return shlex.join([str(self.agent.build / "client/qmtctl"), "--socket", str(self.socket), "view", *words])

    def start(self, *words, before=""):
        self.terminal.run(f"clear; {before} {self.command(*words)}; echo \"ended=$?\"")
        self.wait_rows()

    def wait_rows(self):
        return self.terminal.wait("rows of processes with their shares", lambda lines: has_shares(lines))

    def end(self):
        self.terminal.key("q")
        self.terminal.wait_text("ended=0")

    def press(self, text, *names):
        self.terminal.type(text)
        self.terminal.key(*names)


def heading_of(lines):
    """The number of the line of headings; none without it."""
    return next((number for number, line in enumerate(lines) if re.match(r" *PID\b.* CPU%", line)), None)


def column(lines, heading):
    """The figures below a heading, as they are shown; the last line tells the state."""
    begin = heading_of(lines)
    end = lines[begin].index(heading) + len(heading)
    cells = [line[:end].split(" ")[-1] for line in lines[begin + 1:-1]]
    return [cell for cell in cells if cell]


def numbers(cells):
    """Figures that are known, sizes as bytes."""
    found = [re.fullmatch(r"(-?[\d.]+)([KMGT]?)", cell) for cell in cells if cell != "-"]
    return [float(one.group(1)) * UNITS[one.group(2)] for one in found]


def pids(lines):
    return [int(cell) for cell in column(lines, "PID")]


def has_shares(lines):
    return heading_of(lines) is not None and any(cell != "-" for cell in column(lines, "CPU%"))


def descends(figures):
    return figures == sorted(figures, reverse=True)


def check(what, condition, lines):
    if not condition:
        fail("\n".join([f"{what}; the screen:", *lines]))


def check_sizes(agent, work, busy):
    for width, height in ((80, 24), (60, 20), (200, 50)):
        with Terminal(work / f"size-{width}", width, height) as terminal:
            view = View(agent, terminal)
            view.start("--every", "1")
            lines = terminal.wait(f"the busy child on top at {width} x {height}",
                                  lambda lines: has_shares(lines) and pids(lines)[:1] == [busy])
            shares = numbers(column(lines, "CPU%"))
            check(f"CPU% does not descend: {shares}", descends(shares) and shares[0] > 0, lines)
            check(f"the frame is not {width} x {height}", len(lines) == height and re.match("PDI: ", lines[-1]), lines)
            check("the head lacks a line", height < 16 or all(
                any(line.startswith(name) for line in lines) for name in ("CPU", "Each", "Memory", "Waits", "Disk")), lines)
            view.end()


def check_keys(agent, work, busy):
    """Sorting, filters, opening, panes, and every key that is told."""
    with Terminal(work / "keys", 120, 40) as terminal:
        view = View(agent, terminal)
        view.start()
        view.press("M")
        terminal.wait("rows by memory", lambda lines: has_shares(lines) and len(pids(lines)) > 5
                      and descends(numbers(column(lines, "Mem"))))
        view.press("N")
        terminal.wait("rows by number", lambda lines: pids(lines)[:1] == [1] and pids(lines) == sorted(pids(lines)))
        view.press("/viewbusy", "Enter")
        lines = terminal.wait_text("with viewbusy")
        check("the filter", pids(lines) == [busy] and "1 of " in lines[-1], lines)
        view.press("/", "C-u")
        view.press("PID=x", "Enter")
        lines = terminal.wait_text("(?m)^Rows with: PID=x .*\"x\"")
        check("the old filter stays", pids(lines) == [busy], lines)
        view.press("", "BSpace")
        view.press("1", "Enter")
        terminal.wait("the row of the filter", lambda lines: pids(lines) == [1] and "with PID=1" in lines[-1])
        terminal.key("Escape")
        terminal.wait("all rows", lambda lines: len(pids(lines)) > 1)
        view.press(f"/PID={busy}", "Enter")
        terminal.wait("the busy child", lambda lines: pids(lines) == [busy])
        terminal.key("Enter")
        lines = terminal.wait_text("Command line\n.*while :; do :; done")
        check("the title of what is open", f"PID {busy}" in "\n".join(lines), lines)
        lines = terminal.wait_text("Workgroup and rule")
        # What is asked for once stays while looks go on.
        terminal.wait("a later look", lambda later: later[0] != lines[0])
        time.sleep(5)
        later = terminal.lines()
        check("what is open stays", any(line.startswith("Workgroup and rule") for line in later), later)
        terminal.key("Escape")
        terminal.wait("the rows again", lambda lines: heading_of(lines) is not None and pids(lines) == [busy])
        view.press("t")
        terminal.wait("its parents above it", lambda lines: pids(lines)[-1:] == [busy] and len(pids(lines)) > 1)
        view.press("t", "Escape")
        for key, record in zip("2345678", ("CGRP", "DISK", "NETD", "FSL", "APP", "alarms of", "records that")):
            view.press(key)
            terminal.wait(f"pane {key}", lambda lines: lines[-1].startswith(record))
        terminal.key("Tab")
        terminal.wait("the first pane", lambda lines: lines[-1].startswith("PDI: ") and has_shares(lines))
        check_differences(agent, view)
        for key in "RPMDN<>ttdd[]{}nppzz  ??hhj\x1bi\x1bs\x1bf\x1b/\x1b1":
            if key == "\x1b":
                terminal.key("Escape")
            else:
                terminal.type(key)
        view.wait_rows()
        view.end()


def memory_of(lines, pid):
    return next((line.split()[-1] for line in cells_to(lines, "Mem") if line.split()[:1] == [str(pid)]), "")


def cells_to(lines, heading):
    """Rows up to the end of that column."""
    begin = heading_of(lines)
    return [] if begin is None else [line[:lines[begin].index(heading) + len(heading)] for line in lines[begin + 1:-1]]


def check_differences(agent, view):
    """What has grown since the mark is told by how much, and what stands still as nothing."""
    terminal = view.terminal
    with Children() as children:
        grower = children.start(["viewgrows", "-c", GROWER, str(view.terminal.folder / "grow")], sys.executable)
        view.press("/viewgrows", "Enter")
        terminal.wait("the process", lambda lines: memory_of(lines, grower)[-1:] == "M")
        view.press("d")
        terminal.wait("no differences yet", lambda lines: "SINCE" in lines[0] and memory_of(lines, grower) == "0")
        (terminal.folder / "grow").touch()
        lines = terminal.wait("64 Mbytes more", lambda lines: re.fullmatch(r"\+6[3-6]M", memory_of(lines, grower)))
        check("the differences", "SINCE" in lines[0], lines)
        view.press("d")
        terminal.wait("figures again", lambda lines: "SINCE" not in lines[0] and re.fullmatch(
            r"\d+M", memory_of(lines, grower)))
        terminal.key("Escape")


def check_mouse(agent, work, busy):
    """Clicks and the wheel, as the terminals of both ways of telling them send them."""
    for name in ("screen", "xterm"):
        with Terminal(work / f"mouse-{name}", 120, 30) as terminal:
            view = View(agent, terminal)
            view.start(before=f"TERM={name}")
            lines = terminal.lines()
            heading = heading_of(lines)
            number = lines[heading].index("PID")
            for is_down in (False, True, False):
                lines = terminal.click_until(
                    f"rows by number, the {'highest' if is_down else 'lowest'} first", name, number, heading,
                    lambda lines: (found := pids(lines)) and found == sorted(found, reverse=is_down))
            # The fourth row by a click, the fifth by the wheel.
            wanted = pids(lines)[4]
            terminal.click(name, 3, heading + 4)
            terminal.wheel(name, True, 3, heading + 2)
            terminal.wheel(name, True, 3, heading + 2)
            terminal.wheel(name, False, 3, heading + 2)
            terminal.key("Enter")
            terminal.wait_text(rf"PID {wanted}\b(.|\n)*Workgroup and rule")
            terminal.key("Escape")
            lines = view.wait_rows()
            terminal.click_until("the pane that was clicked", name, lines[heading - 1].index("5"), heading - 1,
                                 lambda lines: lines[-1].startswith("FSL"))
            view.end()


def check_panes(agent, work):
    """Groups as a tree, workgroups, alarms that are, and a record of the list."""
    with Terminal(work / "panes", 120, 50) as terminal:
        view = View(agent, terminal)
        view.start()
        view.press("2")
        paths = {row["Path"] for row in agent.ask("get", "CGRP", "--raw")[0]["rows"]}
        terminal.wait("control groups", lambda lines: lines[-1].startswith("CGRP") and f" of {len(paths)}" in lines[-1])
        wanted = max(paths, key=lambda path: path.count("/") + (path != "/"))
        terminal.wait(f"{wanted} below its parents", lambda lines: tree_has(lines, wanted))
        view.press("t")
        terminal.wait("whole paths", lambda lines: any(line.endswith(" " + wanted) for line in lines))
        view.press("v")
        terminal.wait("the workgroup of root", lambda lines: lines[-1].startswith("WGRP: workgroups") and any(
            re.match(r"root +[1-9]\d* ", line) for line in lines))
        view.press("1v")
        terminal.wait("what processes wait for", lambda lines: lines[-1].startswith("PDX: "))
        view.press("v")
        terminal.wait("programs", lambda lines: lines[-1].startswith("PGM: ") and any(
            re.match(r"bash|viewbusy", line) for line in lines))
        view.press("v")
        terminal.wait("users", lambda lines: lines[-1].startswith("USER: ") and any(
            re.match(r"root +[1-9]\d* ", line) for line in lines))
        view.press("7")
        terminal.wait_text(rf"{ALARM}(.|\n)*\nalarms of")
        terminal.key("Enter")
        terminal.wait_text(rf"{ALARM}(.|\n)*load is told")
        terminal.key("Escape")
        view.press("8/MEMD", "Enter")
        terminal.wait("a record of the list", lambda lines: lines[-1].startswith("records that") and any(
            line.startswith("MEMD") for line in lines))
        terminal.key("Enter")
        terminal.wait_text(r"Available Mbytes(.|\n)*\nMEMD ")
        terminal.key("Escape")
        terminal.wait("the list again", lambda lines: lines[-1].startswith("records that"))
        view.end()


def tree_has(lines, path):
    """Whether the groups of the path stand below each other, each by its name alone and further in than the one above."""
    found = [path_end(lines, name) for name in path.split("/") if name]
    return all(found) and found == sorted(found) and len({column for _, column in found}) == len(found)


def path_end(lines, name):
    """The line that ends in the name, and the column where that begins."""
    return next(((number, line.index(name)) for number, line in enumerate(lines)
                 if re.search(rf"[^/]{re.escape(name)}$", line)), None)


def kept_times(agent):
    """{time: the process numbers of its rows}, but for the newest ones that still come. A slow host may have two
    samples of a second, which are shown together."""
    kept = {}
    for row in agent.ask("history", "PDI", "--since", "1h")[0]["rows"]:
        kept.setdefault(row["Record Time"], []).append(row["PID"])
    return dict(sorted(kept.items())[:-1])


def date_of(seconds):
    return time.strftime("%Y-%m-%d %H:%M:%S", time.localtime(seconds))


def check_time(agent, work):
    with Terminal(work / "time", 100, 40) as terminal:
        view = View(agent, terminal)
        view.start()
        kept = wait_for("kept rows", lambda: len(found := kept_times(agent)) >= 5 and found)
        times = list(kept)
        middle = len(times) // 2
        view.press("N")

        def shows(when):
            wanted = sorted(kept[when])

            def is_seen(lines):
                seen = pids(lines) if heading_of(lines) is not None else []
                return (f"KEPT {date_of(when)}" in lines[0] and seen and seen == wanted[:len(seen)]
                        and f" {len(wanted)} of {len(wanted)}" in lines[-1])

            terminal.wait(f"the {len(wanted)} rows of {when}, {wanted[:5]} at first", is_seen)

        view.press(f"j@{times[middle]}", "Enter")
        shows(times[middle])
        for key, place in (("[", middle - 1), ("]", middle), ("]", middle + 1)):
            view.press(key)
            shows(times[place])
        view.press("jnever", "Enter")
        terminal.wait_text("(?m)^Time: never .*never")
        terminal.key("Escape")
        view.press("j@1000000", "Enter")
        lines = terminal.wait_text("MISSING|nothing is kept")
        check("rows of another time", heading_of(lines) is None, lines)
        view.press("n")
        terminal.wait("now", lambda lines: re.search(r"\bNOW \d", lines[0]) and has_shares(lines))
        view.press("p")
        terminal.wait_text("PAUSED")
        view.press("p")
        terminal.wait_text(r"NOW \d")
        view.end()
        # The same from the command line.
        terminal.run(f"clear; {view.command('--at', f'@{times[middle]}')}")
        terminal.wait("the moment asked for", lambda lines: f"KEPT {date_of(times[middle])}" in lines[0])
        view.press("q")


def check_resizing(agent, work):
    with Terminal(work / "resize") as terminal:
        view = View(agent, terminal)
        view.start("--every", "0.5")
        pid = terminal.child()
        for width, height in ((60, 20), (200, 50), (1, 1), (3, 2), (20, 5), (500, 3), (8, 100), (80, 24)):
            terminal.resize(width, height)
            wait_for("the size", lambda: terminal.size() == (width, height))
            if width >= 60 and height >= 20:
                terminal.wait(f"a frame of {width} x {height}", lambda lines: len(lines) == height and has_shares(lines)
                              and re.match(r"PDI: .*\? keys  q quit$", lines[-1].ljust(width)[:width].rstrip()))
            else:
                time.sleep(0.7)
                view.press("?")
                time.sleep(0.1)
                view.press("?")
            if terminal.child() != pid:
                fail(f"the view has ended at {width} x {height}")
        view.end()


def check_hostile(agent, work, hostile):
    """Names reach the terminal as text, never as what steers it."""
    cases = (("plain", {}, True, True), ("ascii", {"LC_ALL": "C"}, False, True), ("nocolor", {"NO_COLOR": "1"}, True, False))
    for name, environment, has_utf8, has_color in cases:
        with Terminal(work / name, 200, 50) as terminal:
            view = View(agent, terminal)
            terminal.clear_raw()
            view.start(before=" ".join(f"{key}={value}" for key, value in environment.items()))
            view.press(f"/PID={hostile}", "Enter")
            wide = "\u6f22\u5b57" if has_utf8 else r"\? *\?"
            # The daemon itself makes blanks of what steers in words, and leaves names as they are.
            terminal.wait_text(r"\\x1B\[41m" + r".*evil.*taken over  \[2Jargv " + wide)
            terminal.key("Enter")
            terminal.wait_text(r"Command line\n.*taken over.*2Jargv")
            terminal.key("Escape")
            view.end()
            raw = terminal.raw.read_bytes()
            check("the terminal's title", terminal.told("pane_title") != "taken over", terminal.lines())
            for bad in (b"\x1b]0;", b"\x1b[41m"):
                check(f"{bad} reaches the terminal", bad not in raw, [])
            # What the shell echoes is this test's own.
            beyond = [byte for byte in raw if byte >= 128]
            check(f"bytes beyond ASCII: {len(beyond)}", has_utf8 == bool(beyond), [])
            colours = re.findall(rb"\x1b\[[\d;]*\b(?:3[0-7]|9[0-7])m", raw)
            check(f"colours: {colours[:3]}", has_color == bool(colours), [])


def thread_of(pid):
    """A thread that is not the first."""
    return next(int(name) for name in os.listdir(f"/proc/{pid}/task") if int(name) != pid)


def send_to_thread(pid, number):
    if ctypes.CDLL(None, use_errno=True).tgkill(pid, thread_of(pid), number) != 0:
        fail(f"tgkill: {os.strerror(ctypes.get_errno())}")


def check_ends(agent, work):
    """However it ends, the terminal is as before."""
    ends = {
        "q": (lambda terminal: terminal.key("q"), {0}),
        "Ctrl-C": (lambda terminal: terminal.key("C-c"), {0, 130}),
        "SIGTERM": (lambda terminal: os.kill(terminal.child(), signal.SIGTERM), {0, 143}),
        "SIGHUP": (lambda terminal: os.kill(terminal.child(), signal.SIGHUP), {129}),
        "Ctrl-\\": (lambda terminal: terminal.key("C-\\"), {131}),
        "SIGSEGV": (lambda terminal: os.kill(terminal.child(), signal.SIGSEGV), {139}),
        "SIGABRT": (lambda terminal: os.kill(terminal.child(), signal.SIGABRT), {134}),
        "SIGSEGV of a thread": (lambda terminal: send_to_thread(terminal.child(), signal.SIGSEGV), {139}),
    }
    with Terminal(work / "ends") as terminal:
        view = View(agent, terminal)
        before = work / "before"
        # Settings that no program would make by chance.
        terminal.run("stty kill '^A' -echoctl")
        for name, (end, values) in ends.items():
            terminal.run(f"clear; stty -g >{before}; echo MARK-$((6 * 7)); {view.command()}; echo \"ended=$?\"")
            lines = view.wait_rows()
            check("not the alternate screen", terminal.told("alternate_on") == "1" and "MARK-42" not in "\n".join(lines), lines)
            end(terminal)
            lines = terminal.wait(f"the end by {name}", lambda lines: any(line.startswith("ended=") for line in lines))
            value = int(next(line for line in lines if line.startswith("ended=")).removeprefix("ended="))
            check(f"{name}: ended by {value}", value in values, lines)
            check(f"{name}: the screen of before", "MARK-42" in lines and terminal.told("alternate_on") == "0", lines)
            check(f"{name}: the cursor", terminal.told("cursor_flag") == "1", lines)
            check(f"{name}: the mouse", terminal.told("mouse_any_flag") == "0", lines)
            after = work / "after"
            terminal.run(f"stty -g >{after}.new; mv {after}.new {after}")
            wait_for("the settings", after.exists)
            check(f"{name}: the settings", before.read_text() == after.read_text(), [before.read_text(), after.read_text()])
            after.unlink()


def check_stopping(agent, work):
    """Ctrl-Z gives the terminal back, and the shell can go on with it."""
    with Terminal(work / "stopping") as terminal:
        view = View(agent, terminal)
        terminal.run(f"clear; echo MARK-$((6 * 7)); {view.command()}")
        view.wait_rows()
        terminal.key("C-z")
        lines = terminal.wait_text("(?s)MARK-42.*Stopped.*ready>")
        check("the shell's screen", terminal.told("alternate_on") == "0", lines)
        terminal.run("fg")
        view.wait_rows()
        view.press("/viewbusy", "Enter")
        terminal.wait_text("with viewbusy")
        terminal.key("q")
        terminal.wait_text("(?s)MARK-42.*Stopped.*ready>")


def check_top(agent, work):
    """`top` hears its keys after Ctrl-Z too, and leaves the terminal as it was by Ctrl-\\."""
    with Terminal(work / "top", 120) as terminal:
        top = f"{View(agent, terminal).command().removesuffix('view')} top"
        for key, value in (("C-\\", 131), ("C-z", 148)):
            terminal.run(f"clear; {top}; echo \"ended=$?\"")
            terminal.wait_text("by cpu")
            terminal.key(key)
            terminal.wait_text(f"ended={value}")
            terminal.run("stty -a | grep -ow -e -echo; echo \"silent=$?\"")
            terminal.wait_text("silent=1")
        terminal.run("clear; fg")
        terminal.wait_text("by cpu")
        terminal.key("q")
        terminal.wait("the end", lambda lines: [line for line in lines if line][-1] == "ready>")


def check_no_terminal(agent, work):
    with Terminal(work / "none") as terminal:
        view = View(agent, terminal)
        terminal.run(f"clear; TERM=nonsense {view.command()}; echo \"ended=$?\"")
        lines = [line for line in terminal.wait_text("ended=") if line and "ready>" not in line]
        text = "".join(lines)
        check("a terminal of an unknown kind", re.search("TERM=nonsense, is not one that is known *ended=[1-9]", text), lines)
        for words in (f"{view.command()} </dev/null | cat", f"{view.command()} </dev/null", f"{view.command()} | cat"):
            done = subprocess.run(["sh", "-c", words], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                                  timeout=20, check=False)
            check(f"without a terminal: {done}", len(done.stderr.splitlines()) == 1 and "terminal" in done.stderr
                  and not done.stdout, [])
        terminal.run(f"clear; {view.command('--every', '-1')}; echo \"ended=$?\"")
        terminal.wait_text(r"ended=[1-9]")


def check_daemon(agent, work):
    """A daemon that goes and comes, and one that does not answer."""
    with Terminal(work / "daemon") as terminal:
        view = View(agent, terminal)
        view.start("--every", "1")
        agent.process.kill()
        agent.process.wait()
        lines = terminal.wait_text("(?m)^trying again: ")
        check("more than a line", sum("trying again" in line for line in lines) == 1 and "trying again" in lines[-1], lines)
        agent.start(agent.http, False)
        terminal.wait("rows of the new one", lambda lines: has_shares(lines) and lines[-1].startswith("PDI: "))
        os.kill(agent.process.pid, signal.SIGSTOP)
        try:
            terminal.wait_text(r"(?m)^waiting for the daemon for \d+ s")
            view.press("?")
            terminal.wait_text("any other key closes this page")
            view.press("?")
            begin = time.monotonic()
            view.press("q")
            terminal.wait_text("ended=0")
            took = time.monotonic() - begin
        finally:
            os.kill(agent.process.pid, signal.SIGCONT)
        check(f"the end took {took:.1f} s", took < 3, [])
        return took


def check_columns(agent, work):
    """What f chose is there again the next time."""
    with Terminal(work / "columns", 100, 30) as terminal:
        view = View(agent, terminal)
        view.start()
        view.press("f")
        terminal.wait_text(r"(?m)^\[x\] User ")
        # The second one goes, the third before the first.
        view.press("", "Home", "Down")
        view.press(" --")
        terminal.wait_text(r"(?m)^\[x\] Priority .*\n\[x\] PID ")
        terminal.key("Enter")
        is_chosen = re.compile(r"(?m)^ *Pri +PID +Ni\b")
        terminal.wait("the chosen columns", lambda lines: is_chosen.search("\n".join(lines)))
        terminal.key("q")
        terminal.wait_text("ended=0")
        check("the file of the settings", "Priority,PID,Niceness" in (work / "columns/config/qmtctl/view.ini").read_text(), [])
        terminal.run(f"clear; {view.command()}")
        terminal.wait("the chosen columns again", lambda lines: is_chosen.search("\n".join(lines)))
        view.press("f")
        terminal.wait_text(r"(?m)^\[x\] Priority ")
        view.press("0")
        terminal.wait("those of the beginning", lambda lines: re.search(r"(?m)^ *PID +User", "\n".join(lines)))
        view.press("q")


def processor_seconds(pid):
    """Of a process and its threads."""
    words = pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
    return (int(words[11]) + int(words[12])) / os.sysconf("SC_CLK_TCK")


def check_cost(agent, work, children):
    """Percent of a processor that looks every 2 s at 500 processes take."""
    running = sum(name.isdigit() for name in os.listdir("/proc"))
    for _ in range(max(0, COST_PROCESSES - running)):
        children.start(["sleep", "1000"])
    with Terminal(work / "cost") as terminal:
        view = View(agent, terminal)
        view.start()
        terminal.wait("all processes", lambda lines: int(re.search(r" of (\d+)", lines[-1]).group(1)) >= COST_PROCESSES * 0.95)
        pid = terminal.child()
        begin, before = time.monotonic(), processor_seconds(pid)
        time.sleep(COST_SECONDS)
        percent = 100 * (processor_seconds(pid) - before) / (time.monotonic() - begin)
        view.end()
    check(f"qmtctl view takes {percent:.1f} % of a processor", percent < COST_BOUND, [])
    return percent


def at_once(*chains):
    """Runs the checks of each chain one after the other, and the chains side by side: most wait for looks."""
    with concurrent.futures.ThreadPoolExecutor(len(chains)) as pool:
        running = [pool.submit(lambda chain=chain: [one() for one in chain]) for chain in chains]
        for chain in running:
            chain.result()


def run(build, work):
    os.chmod(work, 0o755)
    (work / "viewbusy").symlink_to("/bin/bash")
    (work / HOSTILE_NAME).symlink_to("/bin/sleep")
    home = work / "agent/opt/qmtrx/mond/agent"
    home.mkdir(parents=True)
    (home / "alarms").write_text(ALARMS)
    with Children() as children, Agent(build, work / "agent", "modern", SCHEDULE, gate="none") as agent:
        busy = children.start(["viewbusy", "-c", "while :; do :; done"], work / "viewbusy")
        hostile = children.start([HOSTILE_WORDS, "1000"], work / HOSTILE_NAME)
        at_once([lambda: check_sizes(agent, work, busy), lambda: check_keys(agent, work, busy),
                 lambda: check_panes(agent, work), lambda: check_resizing(agent, work),
                 lambda: check_hostile(agent, work, hostile)],
                [lambda: check_mouse(agent, work, busy), lambda: check_time(agent, work),
                 lambda: check_ends(agent, work), lambda: check_stopping(agent, work), lambda: check_top(agent, work),
                 lambda: check_no_terminal(agent, work)])
        took = check_daemon(agent, work)
        check_columns(agent, work)
        percent = check_cost(agent, work, children)
        print(f"view: sizes, keys, time, names, ends and a daemon that goes are fine; with a daemon that sleeps the end takes "
              f"{took:.1f} s; {percent:.1f} % of a processor for a look every 2 s at {COST_PROCESSES} processes")


def main():
    if len(sys.argv) != 2:
        fail("usage: view.py BUILD_DIRECTORY")
    if shutil.which("tmux") is None:
        fail("no tmux: scripts/install-deps e2e")
    build = pathlib.Path(sys.argv[1]).resolve()
    with tempfile.TemporaryDirectory(prefix="qmt-e2e-") as work:
        run(build, pathlib.Path(work))


if __name__ == "__main__":
    main()
