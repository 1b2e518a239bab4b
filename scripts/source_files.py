"""The project's C++ files and what the checks need to know of their text."""

import pathlib
import re
import subprocess
import sys

sys.dont_write_bytecode = True
ROOT = pathlib.Path(__file__).resolve().parent.parent

_TOKEN = re.compile(
    r"""
    (?P<comment>//[^\n]*|/\*.*?(?:\*/|\Z))
  | (?P<raw>(?:u8|[uUL])?R"(?P<tag>[^()\\\s]{0,16})\(.*?\)(?P=tag)")
  | (?P<string>"(?:\\.|[^"\\\n])*")
  | (?P<char>'(?:\\.|[^'\\\n])+')
  | (?P<number>\.?[0-9](?:'?[\w.])*)
  | (?P<word>[A-Za-z_]\w*)
    """,
    re.VERBOSE | re.DOTALL,
)


def listed(*patterns):
    """Tracked and new files of these patterns, as {path from the root: text}."""
    names = subprocess.run(
        ["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard", "--", *patterns],
        cwd=ROOT, check=True, capture_output=True).stdout.decode().split("\0")
    paths = {name: ROOT / name for name in sorted(set(names)) if name}
    return {name: path.read_text(errors="replace") for name, path in paths.items()
            if path.is_file()}


def cpp_files():
    return listed("*.h", "*.cpp", "*.def")


def without_comments(text):
    """The same text, every character at its place, with comments blanked."""
    def blank(match):
        if match.lastgroup != "comment":
            return match.group()
        return re.sub(r"[^\n]", " ", match.group())
    return _TOKEN.sub(blank, text)


def tokens(text):
    """(kind, text, offset) of each word, string, raw string and other character; comments, blanks
    and numbers are left out."""
    position = 0
    while position < len(text):
        match = _TOKEN.match(text, position)
        if match is None:
            if not text[position].isspace():
                yield "mark", text[position], position
            position += 1
            continue
        kind = "raw" if match.group("raw") else match.lastgroup
        if kind not in ("comment", "number"):
            yield kind, match.group(), position
        position = match.end()


def line_of(text, offset):
    return text.count("\n", 0, offset) + 1


def report(problems):
    """Prints the problems; the exit value of a check."""
    for problem in problems:
        print(problem, file=sys.stderr)
    return 1 if problems else 0


def self_test(check, samples):
    """Each sample is (name, files, parts of the problems expected, in order)."""
    failures = []
    for name, files, expected in samples:
        problems = check(files)
        if len(problems) != len(expected) or any(
                part not in problem for part, problem in zip(expected, problems)):
            failures.append(f"self-test: {name}: expected {expected}, found {problems}")
    return report(failures)
