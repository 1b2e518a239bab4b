"""A terminal that a test types into and looks at: a tmux server of its own with one shell."""

import os
import pathlib
import re
import shlex
import subprocess
import time

from harness import fail, wait_for


class Terminal:
    """One window of that size, which runs a plain shell; ended with the object."""

    def __init__(self, folder, width=80, height=24, **environment):
        self.folder = folder
        self.raw = folder / "raw"
        folder.mkdir()
        self.words = ["tmux", "-u", "-S", str(folder / "tmux"), "-f", "/dev/null"]
        shell = ["env", "-i", f"PATH={os.environ['PATH']}", f"HOME={folder}", f"XDG_CONFIG_HOME={folder}/config",
                 "TERM=screen", "LC_ALL=C.UTF-8", "PS1=ready> ", "ENV="]
        shell += [f"{name}={value}" for name, value in environment.items()]
        words = ["start-server", ";", "set", "-g", "status", "off", ";", "set", "-s", "escape-time", "0"]
        words += [";", "new-session", "-d", "-x", str(width), "-y", str(height), shlex.join([*shell, "sh", "-i"])]
        self.tmux(*words, env={**os.environ, "LC_ALL": "C.UTF-8"})
        self.pid = int(self.told("pane_pid"))
        # All that programs send, before the terminal makes something of it.
        self.tmux("pipe-pane", f"cat >>{shlex.quote(str(self.raw))}")
        self.wait("a shell", lambda lines: any("ready>" in line for line in lines))
        self.run("ulimit -c 0")

    def __enter__(self):
        return self

    def __exit__(self, kind, *_):
        if kind is not None:
            print("== the screen", *self.lines(), sep="\n")
        subprocess.run([*self.words, "kill-server"], check=False, capture_output=True)

    def tmux(self, *words, env=None):
        return subprocess.run([*self.words, *words], check=True, capture_output=True, text=True, env=env).stdout

    def told(self, name):
        """What tmux knows of the window."""
        return self.tmux("display-message", "-p", f"#{{{name}}}").strip()

    def size(self):
        return int(self.told("pane_width")), int(self.told("pane_height"))

    def resize(self, width, height):
        self.tmux("resize-window", "-x", str(width), "-y", str(height))

    def type(self, text):
        self.tmux("send-keys", "-l", "--", text)

    def key(self, *names):
        self.tmux("send-keys", *names)

    def click(self, kind, column, line):
        """The first button there, counted from 0, as a terminal of that TERM tells it."""
        self.mouse(kind, 0, column, line)
        self.mouse(kind, None, column, line)

    def click_until(self, what, kind, column, line, condition):
        """Clicks there, and again each few seconds as a person would, until the screen is so."""
        clicked = 0

        def seen():
            nonlocal clicked
            lines = self.lines()
            if condition(lines):
                return lines
            if time.monotonic() - clicked > 4:
                self.click(kind, column, line)
                clicked = time.monotonic()
            return None

        return wait_for(what, seen)

    def wheel(self, kind, is_down, column, line):
        self.mouse(kind, 65 if is_down else 64, column, line)

    def mouse(self, kind, button, column, line):
        """A button, none for one that is let go."""
        if kind == "xterm":
            told = f"\x1b[<{button or 0};{column + 1};{line + 1}{'m' if button is None else 'M'}"
        else:
            told = "\x1b[M" + "".join(chr(32 + part) for part in (3 if button is None else button, column + 1, line + 1))
        self.tmux("send-keys", "-H", *(f"{byte:x}" for byte in told.encode("latin-1")))

    def run(self, command):
        self.type(command)
        self.key("Enter")

    def lines(self):
        """What is seen, each line without the blanks at its end."""
        return self.tmux("capture-pane", "-p").split("\n")[:-1]

    def wait(self, what, condition):
        """The lines of the first screen of which `condition` is true."""

        def seen():
            lines = self.lines()
            return lines if condition(lines) else None

        return wait_for(what, seen)

    def wait_text(self, pattern):
        return self.wait(f"{pattern!r} on the screen", lambda lines: re.search(pattern, "\n".join(lines)))

    def clear_raw(self):
        self.raw.write_bytes(b"")

    def child(self):
        """The program that the shell runs."""
        children = pathlib.Path(f"/proc/{self.pid}/task/{self.pid}/children").read_text().split()
        if len(children) != 1:
            fail(f"the shell runs {len(children)} programs")
        return int(children[0])
