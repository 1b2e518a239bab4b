"""One target of scripts/fuzz: runs its program and takes what that finds."""

import ctypes
import dataclasses
import os
import pathlib
import re
import shutil
import signal
import subprocess
import threading
import time

from fuzz_state import BUILD, FUZZ, ROOT, NoTurn, State, program_of

MOST_KEPT = 1024  # bytes of an input that is kept among the tests
SLICE = 60  # seconds of the processor from one entry in a state to the next
MOST_WAIT = 1800  # seconds of the clock after which a slice is told to end
MOST_MERGE = 300  # that a merge of a corpus may take
MOST_END = 30  # that a target has to end when all are interrupted
MOST_UNIT = 30  # that an input may take
MOST_NICE_UNIT = 600  # and where others have the processor
SLOW = 10  # seconds of the processor from which on an input takes too long
# A line of progress: runs so far and edges that were reached.
PROGRESS = re.compile(r"^#(\d+):?\s.*?\bcov: (\d+)", re.MULTILINE)
READ = re.compile(r"^#(\d+):?\s+INITED\b", re.MULTILINE)
RUNS = re.compile(r"^stat::number_of_executed_units:\s*(\d+)", re.MULTILINE)
FOUND = re.compile(r"^(?:crash|leak|oom|timeout|slow-unit)-")
LATE = re.compile(r"^(?:timeout|slow-unit)-")
TICKS = os.sysconf("SC_CLK_TCK")
LIBC = ctypes.CDLL(None)
PR_SET_PDEATHSIG = 1

# All are to end.
interrupted = threading.Event()


def processor_seconds(pid):
    _, _, fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")
    user, system = fields.split()[11:13]
    return (int(user) + int(system)) / TICKS


def dies_with_parent():
    LIBC.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)


@dataclasses.dataclass
class Run:
    """What came of a program."""

    is_good: bool = False  # it has ended as it should
    is_late: bool = False  # it was killed for the time of the clock that it took
    output: str = ""
    seconds: float = 0.0  # of the processor
    reading: float = 0.0  # of those, the ones before its corpus was read

    def has_read(self):
        return READ.search(self.output) is not None

    def counts(self):
        """The runs, with those of a corpus that was read, and edges."""
        progress = PROGRESS.findall(self.output)
        runs = RUNS.findall(self.output) or [entry[0] for entry in progress[-1:]]
        return int(runs[-1]) if runs else 0, int(progress[-1][1]) if progress else 0

    def fuzzed(self):
        """The runs, edges and seconds after the corpus was read; no runs before."""
        runs, edges = self.counts()
        read = READ.search(self.output)
        if read is None:
            return 0, edges, 0.0
        return max(0, runs - int(read.group(1))), edges, self.seconds - self.reading


class Target:
    def __init__(self, name, scratch):
        self.name = name
        self.program = program_of(name)
        self.seeds = FUZZ / "corpus" / name
        self.found = FUZZ / "reproducers" / name
        self.grown = BUILD / "corpus" / name
        self.scratch = pathlib.Path(scratch) / name
        self.scratch.mkdir()
        self.state = State(name)

    def findings(self):
        """Those of now: names of files that were not there."""
        return sorted(path for path in self.scratch.iterdir() if FOUND.match(path.name))

    def run(self, *arguments, slice_seconds=None, most_seconds=None, most_wait=MOST_WAIT):
        """Runs the program, which is told to end after so many seconds of the processor, of which
        those that it takes to read its corpus are none, and killed after so many of the processor
        or of the clock."""
        dictionary = FUZZ / "dictionaries" / f"{self.name}.dict"
        words = [f"-dict={dictionary}"] if dictionary.exists() else []
        temporary = self.scratch / "tmp"
        temporary.mkdir(exist_ok=True)
        log = self.scratch / "log"
        most_unit = MOST_NICE_UNIT if os.nice(0) > 0 else MOST_UNIT
        with log.open("wb") as output:
            try:
                # In a session of its own an interrupt does not reach it but by the one that
                # counts. Its parent is this thread, which waits for it.
                process = subprocess.Popen(
                    [self.program, *words, f"-artifact_prefix={self.scratch}/",
                     f"-timeout={most_unit}", f"-report_slow_units={MOST_UNIT}",
                     "-rss_limit_mb=2048", "-print_final_stats=1", *map(str, arguments)],
                    cwd=self.scratch, env={**os.environ, "TMPDIR": str(temporary)},
                    stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT,
                    start_new_session=True, preexec_fn=dies_with_parent)
            except OSError as error:
                raise NoTurn(f"its program can't be run: {error.strerror}") from error
            try:
                run = self.await_end(process, log, slice_seconds, most_seconds, most_wait)
            finally:
                if process.returncode is None:
                    os.killpg(process.pid, signal.SIGKILL)
                    process.wait()
        run.output = log.read_text(errors="replace")
        shutil.rmtree(temporary, ignore_errors=True)
        return run

    @staticmethod
    def await_end(process, log, slice_seconds, most_seconds, most_wait):
        run = Run()
        last = time.monotonic() + most_wait
        used = 0.0
        end = None  # in seconds of the processor
        is_told = False
        while True:
            ended, status, usage = os.wait4(process.pid, os.WNOHANG)
            if ended:
                process.returncode = os.waitstatus_to_exitcode(status)
                run.is_good = process.returncode == 0
                run.seconds = usage.ru_utime + usage.ru_stime
                if end is None:
                    # It may have read its corpus since the last look.
                    run.reading = used
                return run
            used = processor_seconds(process.pid)
            if slice_seconds and end is None and READ.search(log.read_text(errors="replace")):
                run.reading = used
                end = used + slice_seconds
            run.is_late = time.monotonic() > last
            # One that is told to end would say that it has merged the whole.
            is_useless = interrupted.is_set() and not slice_seconds
            if run.is_late or is_useless or (most_seconds and used > most_seconds):
                os.killpg(process.pid, signal.SIGKILL)
            elif not is_told and (interrupted.is_set() or (end is not None and used >= end)):
                os.kill(process.pid, signal.SIGUSR1)
                is_told = True
            if interrupted.is_set():
                last = min(last, time.monotonic() + MOST_END)
            time.sleep(0.2)

    def inputs(self):
        return [path for path in (self.seeds, self.found) if path.is_dir()]

    def fuzz(self, minutes):
        """Goes on until the target has had so many minutes, unless something is found."""
        self.grown.mkdir(parents=True, exist_ok=True)
        while not interrupted.is_set():
            # It may have been built anew.
            self.state.begin(self.program)
            lacking = minutes * 60 - self.state.values["seconds"]
            if lacking <= 0 or self.state.values["findings"]:
                break
            # An input in which it hangs is to end it before it is killed.
            run = self.run(f"-max_total_time={MOST_WAIT}", self.grown, *self.inputs(),
                           slice_seconds=min(SLICE, lacking),
                           most_wait=MOST_WAIT + 2 * MOST_NICE_UNIT)
            is_unread = not run.has_read() and (run.is_good or run.is_late)
            findings = self.take_findings(run, interrupted.is_set() or is_unread)
            self.state.add(*run.fuzzed(), findings)
            if is_unread and not findings and not interrupted.is_set():
                raise NoTurn("it has not read its corpus")

    def begin_shrink(self):
        """The places of a smaller corpus and of the one that it takes the place of, which are
        beside the corpus: to be renamed. What an interrupted one has left is put right."""
        small, old = (self.grown.with_name(f"{self.name}.{what}") for what in ("small", "old"))
        if old.exists() and not self.grown.exists():
            old.rename(self.grown)
        for folder in (small, old):
            shutil.rmtree(folder, ignore_errors=True)
        return small, old

    def shrink(self):
        """Leaves in the corpus the fewest of its inputs that reach the same; leaves it as it is
        if that takes long."""
        small, old = self.begin_shrink()
        small.mkdir()
        if self.run("-merge=1", f"-max_len={1 << 20}", small, self.grown,
                    most_wait=MOST_MERGE).is_good:
            self.grown.rename(old)
            small.rename(self.grown)
        self.begin_shrink()

    def keep(self):
        self.seeds.mkdir(parents=True, exist_ok=True)
        self.run("-merge=1", f"-max_len={MOST_KEPT}", self.seeds, self.grown,
                 most_wait=MOST_MERGE)

    def check(self, seconds):
        """The runs that were made: the last one may be bad."""
        runs = [self.run("-runs=0", *self.inputs())] if self.inputs() else []
        if all(run.is_good for run in runs):
            # Without a corpus of its own nothing is written to that of the tests.
            own = self.scratch / "own"
            own.mkdir()
            runs.append(self.run(f"-max_total_time={seconds}", own, *self.inputs()))
        return runs

    def is_slow(self, path):
        """Whether an input takes too long by itself too: beside others it may have waited."""
        alone = self.run("-timeout=0", f"-report_slow_units={MOST_WAIT}", path, most_seconds=SLOW,
                         most_wait=MOST_NICE_UNIT)
        if alone.seconds > SLOW:
            return True
        if interrupted.is_set():
            # It is not known yet: the next run reads it first.
            self.grown.mkdir(parents=True, exist_ok=True)
            shutil.move(path, self.grown / path.name)
            return False
        if not alone.is_good:
            return True
        path.unlink()
        return False

    def take_findings(self, run, is_excused=False):
        """Tells what was found and keeps it among the tests; how many. A run that is not good and
        has left no input is one too, unless it is excused."""
        findings = []
        for path in self.findings():
            if LATE.match(path.name) and not self.is_slow(path):
                is_excused = is_excused or path.name.startswith("timeout-")
            else:
                findings.append(path)
        for path in findings:
            self.found.mkdir(parents=True, exist_ok=True)
            shutil.move(path, self.found / path.name)
            place = (self.found / path.name).relative_to(ROOT)
            print(f"  {place}\n"
                  f"    see it:  {self.program.relative_to(ROOT)} {place}\n"
                  f"    keep it: it is run by fuzz --check from now on; once it is mended, add a\n"
                  f"             case with what it comes down to beside the tests of that parser",
                  flush=True)
        is_good = run.is_good or is_excused
        if findings or not is_good:
            log = BUILD / f"{self.name}.log"
            log.write_text(run.output)
            print(f"  its last words: {log.relative_to(ROOT)}", flush=True)
        return len(findings) or int(not is_good)
