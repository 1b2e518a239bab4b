"""A file server (FUSE) that answers all but the end of an open file, and who waits for it in execve(2)."""

import contextlib
import ctypes
import os
import struct
import subprocess
import sys
import threading

LIBC = ctypes.CDLL(None, use_errno=True)
FORCE, DETACH = 1, 2
FOLDER, FILE = 0o40755, 0o100644
ROOT_NODE, FILE_NODE = 1, 2
LOOKUP, GETATTR, OPEN, FLUSH, INIT = 1, 3, 14, 25, 26
WITHOUT_ANSWER = (2, 36, 42)  # forget, interrupt, forget many
NO_SUCH_CALL = -38
STARTER = """
import os, sys
os.open(sys.argv[1], os.O_RDONLY | os.O_CLOEXEC)
sys.stdin.readline()
os.execvp("sleep", ["sleep", "1000"])
"""


def attributes(node):
    mode = FOLDER if node == ROOT_NODE else FILE
    return struct.pack("<6Q10I", node, 0, 0, 0, 0, 0, 0, 0, 0, mode, 1, 0, 0, 0, 4096, 0)


class SilentServer:
    """Mounted at `mount` while it is entered. OSError where the machine has no FUSE."""

    def __init__(self, mount):
        self.mount = mount

    def __enter__(self):
        self.device = os.open("/dev/fuse", os.O_RDWR | os.O_CLOEXEC)
        options = f"fd={self.device},rootmode=40000,user_id=0,group_id=0".encode()
        if LIBC.mount(b"silent", os.fsencode(self.mount), b"fuse", 0, options) != 0:
            code = ctypes.get_errno()
            os.close(self.device)
            raise OSError(code, os.strerror(code))
        threading.Thread(target=self.serve, daemon=True).start()
        return self

    def __exit__(self, *_):
        self.end()
        LIBC.umount2(os.fsencode(self.mount), DETACH)
        os.close(self.device)

    def end(self):
        """Lets go who waits for an answer: a signal would not."""
        LIBC.umount2(os.fsencode(self.mount), FORCE)

    def serve(self):
        with contextlib.suppress(OSError):
            while True:
                request = os.read(self.device, 1 << 17)
                _, call, unique, node = struct.unpack("<IIQQ", request[:24])
                if call != FLUSH and call not in WITHOUT_ANSWER:
                    code, answer = self.answer(call, node)
                    os.write(self.device, struct.pack("<IiQ", 16 + len(answer), code, unique) + answer)

    @staticmethod
    def answer(call, node):
        if call == INIT:
            return 0, struct.pack("<4I2H2I2H", 7, 31, 65536, 0, 10, 10, 65536, 1, 1, 0) + bytes(28)
        if call == GETATTR:
            return 0, struct.pack("<QII", 60, 0, 0) + attributes(node)
        if call == LOOKUP:
            return 0, struct.pack("<4QII", FILE_NODE, 0, 60, 60, 0, 0) + attributes(FILE_NODE)
        return (0, struct.pack("<QII", 1, 0, 0)) if call == OPEN else (NO_SUCH_CALL, b"")


@contextlib.contextmanager
def waiting_in_exec(server, see):
    """A process that waits in execve(2) for the server, so that readers of its stat wait with it. see: called while it
    still is another program."""
    waiting = subprocess.Popen([sys.executable, "-c", STARTER, f"{server.mount}/file"], stdin=subprocess.PIPE)
    try:
        see()
        waiting.stdin.write(b"\n")
        waiting.stdin.close()
        yield waiting
    finally:
        server.end()
        waiting.kill()
        waiting.wait()
