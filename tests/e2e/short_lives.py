"""Processes that come and go beside a daemon that is looked at."""

import os
import subprocess
import tempfile
import threading
import time

from iterator_kinds import kill


class Background:
    """What `run` does until `stop`, on a thread of its own, within a block."""

    def __init__(self):
        self.stop = threading.Event()
        self.thread = threading.Thread(target=self.run)

    def run(self):
        raise NotImplementedError

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.stop.set()
        self.thread.join()


class Churn(Background):
    """So many processes a second that end at once, one in ten of them another program."""

    # A byte tells that a piece is done.
    SCRIPT = 'while read n; do while [ $n -gt 0 ]; do (:); n=$((n-1)); done; /bin/true; printf .; done'
    PIECES = 20

    def __init__(self, rate):
        self.done = tempfile.TemporaryFile()
        self.shells = [subprocess.Popen(["/bin/sh", "-c", self.SCRIPT], stdin=subprocess.PIPE, stdout=self.done)
                       for _ in range(2)]
        self.piece = max(1, rate // self.PIECES // len(self.shells) - 1)
        super().__init__()
        self.begun = time.monotonic()

    def run(self):
        due = time.monotonic()
        while not self.stop.is_set():
            for shell in self.shells:
                shell.stdin.write(f"{self.piece}\n".encode())
                shell.stdin.flush()
            due += 1 / self.PIECES
            time.sleep(max(0, due - time.monotonic()))

    def reached(self):
        """How many of its own there were a second."""
        return os.fstat(self.done.fileno()).st_size * (self.piece + 1) / (time.monotonic() - self.begun)

    def __exit__(self, *_):
        super().__exit__()
        for shell in self.shells:
            shell.kill()
            shell.stdin.close()
            shell.wait()
        self.done.close()


class Short(Background):
    """Processes that live for some batches, begun one after the other."""

    SECONDS = 5
    EACH = 0.05

    def __init__(self):
        self.begun = []  # when, and the number
        self.fetched = 0  # of these, from the front
        super().__init__()

    def run(self):
        while not self.stop.wait(self.EACH):
            pid = os.posix_spawn("/bin/sleep", ["sleep", str(self.SECONDS)], os.environ)
            self.begun.append((time.time(), pid))
            # As many as there are at a time stay as many.
            while os.waitpid(self.begun[self.fetched][1], os.WNOHANG)[0] != 0:
                self.fetched += 1

    def whole(self, second):
        """Those that have lived from before this second to after the next one."""
        return {pid for time_, pid in list(self.begun) if second + 2 - self.SECONDS < time_ < second - 0.1}

    def __exit__(self, *_):
        super().__exit__()
        for _, pid in self.begun[self.fetched:]:
            kill(pid)
            os.waitpid(pid, 0)
