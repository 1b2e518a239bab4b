"""Who plays at the doors, and what each role tries: an attempt gives a word, such as "yes", EACCES or a status."""

import ctypes
import encodings.idna  # noqa: F401  what is found only at need is not found in another root
import errno
import fcntl
import json
import os
import signal
import socket
import ssl
import struct
import time

from doors_house import USERS

ATTEMPT_SECONDS = 25
PR_SET_KEEPCAPS = 8
PTRACE_ATTACH, PTRACE_DETACH = 16, 17
GETVAL, IPC_RMID = 12, 0
GUARD_SECONDS = 5
SOON_SECONDS = 5
CAPABILITY_VERSION = 0x20080522
CAPABILITIES = {"CAP_DAC_READ_SEARCH": 2, "CAP_SYS_PTRACE": 19}
LIBC = ctypes.CDLL(None, use_errno=True)


def word_of(error):
    return errno.errorcode.get(error.errno, str(error)) if error.errno else type(error).__name__


def checked(result):
    if result < 0:
        raise OSError(ctypes.get_errno(), "call")
    return result


class Role:
    """A user with its groups and capabilities, on this host or on the other side of the wire."""

    def __init__(self, name, user=None, groups=(), capabilities=(), mounts_of=None, peer=None):
        """mounts_of: a process whose view of the files is taken; peer: takes a process to the peer's network."""
        self.name = name
        self.number = None if user is None else USERS[user]
        self.groups = [USERS[group] for group in groups]
        self.capabilities = [CAPABILITIES[word] for word in capabilities]
        self.mounts_of = mounts_of
        self.peer = peer

    def _become(self, root):
        if self.peer:
            self.peer()
        folder = f"/proc/{self.mounts_of}/root" if self.mounts_of else root
        os.chroot(folder)
        os.chdir("/")
        os.umask(0o022)
        if self.number is None:
            return
        LIBC.prctl(PR_SET_KEEPCAPS, 1, 0, 0, 0)
        os.setgroups(self.groups)
        os.setresgid(self.number, self.number, self.number)
        os.setresuid(self.number, self.number, self.number)
        bits = sum(1 << number for number in self.capabilities)
        header = struct.pack("=Ii", CAPABILITY_VERSION, 0)
        checked(LIBC.capset(header, struct.pack("=6I", bits, bits, bits, 0, 0, 0)))

    def play(self, root, attempt):
        """What a process of the role gets by an attempt."""
        return end(self.begin(root, attempt))

    def begin(self, root, attempt):
        """Starts a process of the role that makes an attempt, for `end`."""
        reading, writing = os.pipe()
        child = os.fork()
        if child == 0:
            word = "no answer"
            try:
                os.close(reading)
                signal.alarm(ATTEMPT_SECONDS)
                self._become(root)
                word = attempt() or "yes"
            except OSError as error:
                word = word_of(error)
            except Exception as error:  # pylint: disable=broad-exception-caught
                word = f"{type(error).__name__}: {error}"
            finally:
                os.write(writing, word.encode()[:4000])
                os._exit(0)
        os.close(writing)
        return child, reading


def end(handle):
    """What came of an attempt that was begun."""
    child, reading = handle
    with os.fdopen(reading, "rb") as pipe:
        word = pipe.read().decode(errors="replace")
    os.waitpid(child, 0)
    return word or f"nothing within {ATTEMPT_SECONDS} s"


# --- attempts on files ---


def read(path):
    def attempt():
        with open(os.open(path, os.O_RDONLY | os.O_NONBLOCK), "rb") as file:
            file.read(64)
    return attempt


def write(path):
    """Opens for writing, and writes nothing."""
    return lambda: os.close(os.open(path, os.O_WRONLY | os.O_APPEND | os.O_NONBLOCK))


def make(folder):
    def attempt():
        path = f"{folder}/made.by.doors"
        os.close(os.open(path, os.O_CREAT | os.O_EXCL | os.O_WRONLY, 0o600))
        os.unlink(path)
    return attempt


def enter(folder):
    return lambda: os.listdir(folder) and None


def replace(path):
    """Puts a link in the place of a file, and the file back."""
    def attempt():
        os.rename(path, path + ".doors")
        os.rename(path + ".doors", path)
    return attempt


def lock(path, how):
    """Takes the lock of a file by flock or lockf."""
    def attempt():
        for flags in (os.O_RDWR, os.O_RDONLY):
            try:
                descriptor = os.open(path, flags | os.O_NONBLOCK)
                break
            except OSError as error:
                refusal = error
        else:
            raise refusal
        kind = fcntl.LOCK_EX if how == "flock" or flags == os.O_RDWR else fcntl.LOCK_SH
        try:
            getattr(fcntl, how)(descriptor, kind | fcntl.LOCK_NB)
        except BlockingIOError:
            return "held"
        return "yes"
    return attempt


def plant(path, kind):
    """Puts something that is no file of figures where the agent reads; one that is stands beside it then."""
    rows = f"{path}.rows"

    def attempt():
        if os.path.isfile(path) and not os.path.islink(path):
            os.rename(path, rows)
        elif os.path.lexists(path):
            os.unlink(path)
        if kind == "fifo":
            os.mkfifo(path)
        elif kind == "folder":
            os.mkdir(path)
        else:
            os.symlink(rows if kind == "rows" else kind, path)
    return attempt


# --- attempts on processes and the kernel ---


def send_signal(number, process):
    return lambda: os.kill(process, number)


def trace(process):
    def attempt():
        checked(LIBC.ptrace(PTRACE_ATTACH, process, 0, 0))
        os.waitpid(process, 0)
        LIBC.ptrace(PTRACE_DETACH, process, 0, 0)
    return attempt


def own(path):
    return lambda: os.chown(path, USERS["stranger"], USERS["stranger"])


def become_root():
    os.setuid(0)


def mount():
    checked(LIBC.mount(b"doors", b"/tmp", b"tmpfs", 0, None))


def raw_socket():
    socket.socket(socket.AF_INET, socket.SOCK_RAW, socket.IPPROTO_ICMP).close()


def at_guard(key, act):
    """An attempt on the guard of a kind of user data, which is there only while somebody reads or writes."""
    def attempt():
        finish = time.monotonic() + GUARD_SECONDS
        while True:
            try:
                act(checked(LIBC.semget(key, 0, 0)))
                return
            except OSError as error:
                if error.errno not in (errno.ENOENT, errno.EINVAL, errno.EIDRM) or time.monotonic() > finish:
                    raise
    return attempt


def look_at_guard(key):
    return at_guard(key, lambda number: checked(LIBC.semctl(number, 0, GETVAL, 0)))


def remove_guard(key):
    return at_guard(key, lambda number: checked(LIBC.semctl(number, 0, IPC_RMID, 0)))


def keep_asking(path, question):
    """Asks the same until the process is ended."""
    def attempt():
        signal.alarm(0)
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as client:
            client.connect(path)
            lines = client.makefile("rb")
            while True:
                client.sendall(json.dumps(question).encode() + b"\n")
                if not lines.readline():
                    return "closed"
    return attempt


# --- attempts on the control socket ---


def connect(path):
    def attempt():
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as client:
            client.connect(path)
    return attempt


def answer_to(path, question):
    """The answer to one question, which is asked again where the daemon is busy, and the seconds that it took."""
    for _ in range(5):
        begin = time.monotonic()
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as client:
            client.settimeout(20)
            client.connect(path)
            client.sendall((question if isinstance(question, bytes) else json.dumps(question).encode()) + b"\n")
            answer = json.loads(client.makefile("rb").readline())
        seconds = time.monotonic() - begin
        if answer["ok"] or answer["error"]["code"] != "busy":
            break
        time.sleep(0.5)
    return answer, seconds


def ask(path, question):
    """Asks one question: "yes" or the code of the error."""
    def attempt():
        answer, _ = answer_to(path, question)
        return "yes" if answer["ok"] else answer["error"]["code"]
    return attempt


def ask_for_no_rows(path, record, other):
    """The record has none, and the other one beside it has some, in no time."""
    def attempt():
        answer, seconds = answer_to(path, {"op": "get", "records": [record, other]})
        if not answer["ok"]:
            return answer["error"]["code"]
        rows = {result["record"]: len(result.get("rows", ())) for result in answer["results"]}
        return "yes" if rows[record] == 0 < rows[other] and seconds < SOON_SECONDS else f"{rows} in {seconds:.1f} s"
    return attempt


# --- attempts over the network ---


def send(address, port, data, tls, source=""):
    """Sends bytes from an address and gives the status of the answer, or what came of it."""
    with socket.create_connection((address, port), timeout=15, source_address=(source, 0)) as plain:
        client = plain
        if tls:
            context = ssl.create_default_context()
            context.check_hostname = False
            context.verify_mode = ssl.CERT_NONE
            client = context.wrap_socket(plain)
        try:
            client.sendall(data)
            line = client.recv(4096)
        except (ConnectionResetError, BrokenPipeError, ssl.SSLError):
            return "closed"
        words = line.split(b" ", 2)
        return words[1].decode() if line.startswith(b"HTTP/") and len(words) > 1 else "closed"


def http(address, port, page, tls=False, method="GET", headers=(), host=None, source=""):
    def attempt():
        lines = [f"{method} {page} HTTP/1.1", f"Host: {host or f'{address}:{port}'}", "Connection: close", *headers]
        return send(address, port, ("\r\n".join(lines) + "\r\n\r\n").encode("latin-1"), tls, source)
    return attempt


def bytes_of_http(address, port, data, tls=False):
    return lambda: send(address, port, data, tls)


def slow(address, port, others):
    """Holds many connections with a request that never ends, and asks as others do meanwhile."""
    def attempt():
        held = []
        for _ in range(others):
            client = socket.create_connection((address, port), timeout=10)
            client.sendall(b"GET /-/healthy HTTP/1.1\r\nHost: ")
            held.append(client)
        time.sleep(0.3)
        word = http(address, port, "/-/healthy")()
        for client in held:
            client.close()
        return word
    return attempt


def is_dropped(address, port, seconds):
    """Whether a request that comes a byte a second is ended within so many seconds."""
    def attempt():
        with socket.create_connection((address, port), timeout=10) as client:
            client.sendall(b"GET /-/healthy HTTP/1.1\r\nHost: ")
            client.settimeout(1)
            for _ in range(seconds):
                try:
                    client.sendall(b"a")
                    answer = client.recv(4096)
                    return "dropped" if not answer or b" 408 " in answer else answer[:40].decode()
                except TimeoutError:
                    continue
                except (ConnectionResetError, BrokenPipeError):
                    return "dropped"
        return f"held for {seconds} s"
    return attempt
