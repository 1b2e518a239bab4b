"""How far the targets of scripts/fuzz have got, and of which build."""

import fcntl
import hashlib
import json
import pathlib
import re
import subprocess

ROOT = pathlib.Path(__file__).resolve().parent.parent
FUZZ = ROOT / "tests/fuzz"
BUILD = ROOT / "build/fuzz"
STATE = BUILD / "state"

HEADLINE = f"{'target':20} {'runs':>12} {'edges':>8} {'seconds':>8} {'findings':>9}"


class NoTurn(Exception):
    """A target can't have its turn now."""


def target_names(is_reachable=False):
    """All of them, or those that tests/fuzz/CMakeLists.txt marks."""
    mark = r" \S+ REACHABLE" if is_reachable else ""
    text = (FUZZ / "CMakeLists.txt").read_text()
    return re.findall(rf"^qmt_fuzz\(qmt_fuzz_(\w+){mark}", text, re.MULTILINE)


def program_of(name):
    return BUILD / "tests/fuzz" / f"qmt_fuzz_{name}"


def digest_of(program):
    try:
        return hashlib.sha256(program.read_bytes()).hexdigest()
    except OSError as error:
        raise NoTurn(f"its program can't be read: {error.strerror}") from error


def source_revision():
    """With a "+" if the sources differ from it; "-" if there is none."""
    git = ["git", "-C", str(ROOT)]
    name = subprocess.run([*git, "rev-parse", "--short", "HEAD"], check=False,
                          capture_output=True, text=True).stdout.strip()
    changes = subprocess.run([*git, "status", "--porcelain", "--untracked-files=no"], check=False,
                             capture_output=True, text=True).stdout
    return name + ("+" if changes else "") if name else "-"


def note_revision(names, revision):
    """Beside each program, with what it holds: one that is built by other means has none."""
    for name in names:
        program = program_of(name)
        program.with_suffix(".revision").write_text(f"{digest_of(program)} {revision}\n")


def revision_of(program, digest):
    """Of the sources that it was built of, or "-"."""
    try:
        noted, revision = program.with_suffix(".revision").read_text().split()
    except (OSError, ValueError):
        return "-"
    return revision if noted == digest else "-"


def lock():
    """An open file that keeps others from the states while it is open; None if another has it."""
    STATE.mkdir(parents=True, exist_ok=True)
    file = (STATE / "lock").open("w")
    try:
        fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        file.close()
        return None
    return file


class State:
    """How far a target has got with one build of it; kept in a file."""

    EMPTY = {"program": "", "revision": "-", "runs": 0, "edges": 0, "seconds": 0.0, "findings": 0}

    def __init__(self, name):
        self.path = STATE / f"{name}.json"
        self.values = dict(self.EMPTY)
        try:
            self.values.update(json.loads(self.path.read_text()))
        except (OSError, ValueError):
            pass

    def forget(self):
        self.values = dict(self.EMPTY)
        self.path.unlink(missing_ok=True)

    def begin(self, program):
        """Begins anew unless it is of that program."""
        digest = digest_of(program)
        if self.values["program"] != digest:
            self.values = {**self.EMPTY, "program": digest,
                           "revision": revision_of(program, digest)}
            self.save()

    def add(self, runs, edges, seconds, findings):
        self.values["runs"] += runs
        self.values["edges"] = max(self.values["edges"], edges)
        self.values["seconds"] = round(self.values["seconds"] + seconds, 2)
        self.values["findings"] += findings
        self.save()

    def save(self):
        self.path.parent.mkdir(parents=True, exist_ok=True)
        # Beside it and then in its place: what is interrupted leaves a whole file.
        beside = self.path.with_suffix(".new")
        beside.write_text(json.dumps(self.values, indent=1) + "\n")
        beside.replace(self.path)

    def has_run(self):
        return bool(self.values["runs"] or self.values["seconds"] or self.values["findings"])


def line(name, runs, edges, seconds, findings):
    return f"{name:20} {runs:12} {edges:8} {seconds:8.0f} {findings:9}"


def report(names):
    reachable = target_names(is_reachable=True)
    print("| target | others can reach it | runs | edges | CPU seconds | findings | build |\n"
          "|---|---|---|---|---|---|---|")
    for name in sorted(names, key=lambda name: (name not in reachable, name)):
        state = State(name)
        values = state.values
        figures = ["-"] * 5
        if state.has_run():
            figures = [f"{values['runs']:,}", f"{values['edges']:,}", f"{values['seconds']:,.0f}",
                       values["findings"], values["revision"]]
        print("|", " | ".join(map(str, [name, "yes" if name in reachable else "-", *figures])),
              "|")
