"""The load that the agent and its peers look at: disk writes, forks, page faults, memory in all its
kinds, packets, and sockets in all the states that one host can bring about."""

import contextlib
import ctypes
import mmap
import multiprocessing
import os
import pathlib
import re
import shutil
import signal
import socket
import struct
import subprocess
import time

ODD_NAME = "a b (c)"
LOOPBACK = "127.0.0.1"
# In no network that is routed.
BRIDGE_NETWORK = "198.51.100"
# Of <linux/mman.h>: in memory at once, and until it ends.
MAP_LOCKED = 0x2000


def write_disk(folder):
    with open(folder / "written", "wb", buffering=0) as file:
        while True:
            file.seek(0)
            file.write(b"x" * 262144)
            os.fsync(file.fileno())
            time.sleep(0.02)


def fork_often(_):
    while True:
        child = os.fork()
        if child == 0:
            os._exit(0)
        os.waitpid(child, 0)
        time.sleep(0.02)


def touch_pages(_):
    while True:
        with mmap.mmap(-1, 1 << 20) as memory:
            for page in range(0, len(memory), 4096):
                memory[page] = 1
        time.sleep(0.02)


def hold_memory(folder):
    """Memory of no file, of a file, shared and locked, of a size each."""
    private = mmap.mmap(-1, 48 << 20, flags=mmap.MAP_PRIVATE | mmap.MAP_ANONYMOUS)
    shared = mmap.mmap(-1, 24 << 20)
    locked = mmap.mmap(-1, 12 << 20, flags=mmap.MAP_PRIVATE | mmap.MAP_ANONYMOUS)
    for memory in (private, shared, locked):
        for page in range(0, len(memory), 4096):
            memory[page] = 1
    place = ctypes.addressof(ctypes.c_char.from_buffer(locked))
    ctypes.CDLL(None).mlock(ctypes.c_void_p(place), ctypes.c_size_t(len(locked)))
    with open(folder / "mapped", "w+b") as file:
        file.write(b"x" * (18 << 20))
        file.flush()
        mapped = mmap.mmap(file.fileno(), 0, prot=mmap.PROT_READ)
        while sum(mapped[page] for page in range(0, len(mapped), 4096)):
            time.sleep(10)


def send_packets(_):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as receiver:
        receiver.bind(("127.0.0.1", 0))
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            while True:
                sender.sendto(b"x", receiver.getsockname())
                receiver.recv(1)
                time.sleep(0.01)


def files_of(programs):
    """The files that programs consist of, this one among them."""
    paths = {str(program) for program in programs}
    for program in programs:
        done = subprocess.run(["ldd", program], capture_output=True, text=True, check=False)
        paths |= set(re.findall(r"(/\S+) \(0x", done.stdout))
    own = pathlib.Path("/proc/self/maps").read_text()
    return paths | set(re.findall(r"^\S+ r-x\S+ .* (/.*)$", own, re.M))


def hold_files(folder, programs):
    """Keeps files in memory: a host that takes pages back while they are in use, as some do, would have
    a program read its own from the disk, in the peers' seconds or in the agent's."""
    held = []
    for path in files_of(programs):
        # What is deleted, or not for this user.
        with contextlib.suppress(OSError, ValueError):
            with open(path, "rb") as file:
                held.append(mmap.mmap(file.fileno(), 0, mmap.MAP_SHARED | MAP_LOCKED, mmap.PROT_READ))
    (folder / "held").touch()
    while True:
        time.sleep(1000)


def tcp_pair(listener):
    client = socket.create_connection(listener.getsockname()[:2])
    return client, listener.accept()[0]


def fill(sender):
    """Sends until the other end takes no more."""
    sender.setblocking(False)
    with contextlib.suppress(BlockingIOError):
        while True:
            sender.send(b"x" * 65536)


def sockets_in_states():
    """Sockets that stay as they are."""
    listener = socket.create_server((LOOPBACK, 0))
    held = [listener, *(socket.create_server((LOOPBACK, 0)) for _ in range(2))]
    held += [end for _ in range(3) for end in tcp_pair(listener)]
    for _ in range(4):
        client, server = tcp_pair(listener)
        client.shutdown(socket.SHUT_WR)  # FIN_WAIT2, and CLOSE_WAIT at the other end
        held += [client, server]
    for _ in range(2):
        client, server = tcp_pair(listener)
        fill(client)
        client.shutdown(socket.SHUT_WR)  # FIN_WAIT1: what was sent is not read
        held += [client, server]
    client, server = tcp_pair(listener)
    fill(server)
    client.shutdown(socket.SHUT_WR)
    time.sleep(0.1)
    server.shutdown(socket.SHUT_WR)  # LAST_ACK
    held += [client, server]
    lite = 136
    for count, family, kind, protocol in (
            (2, socket.AF_INET, socket.SOCK_DGRAM, 0), (3, socket.AF_INET6, socket.SOCK_DGRAM, 0),
            (1, socket.AF_INET, socket.SOCK_DGRAM, lite),
            (1, socket.AF_INET, socket.SOCK_RAW, socket.IPPROTO_ICMP),
            (2, socket.AF_INET6, socket.SOCK_RAW, socket.IPPROTO_ICMPV6),
            (1, socket.AF_INET6, socket.SOCK_STREAM, 0)):
        # Not every kernel has each, and raw ones are for root.
        with contextlib.suppress(OSError):
            for _ in range(count):
                each = socket.socket(family, kind, protocol)
                if kind == socket.SOCK_DGRAM:
                    each.bind(("::1" if family == socket.AF_INET6 else LOOPBACK, 0))
                elif kind == socket.SOCK_STREAM:
                    each.bind(("::1", 0))
                    each.listen()
                held.append(each)
    return held


def hold_sockets(_):
    held = sockets_in_states()
    full = socket.create_server((LOOPBACK, 0), backlog=0)
    held += [full, socket.create_connection(full.getsockname())]
    while True:
        # SYN_SENT: nobody takes them; the kernel asks again after 1, 3 and 7 seconds.
        asking = [socket.socket() for _ in range(3)]
        for each in asking:
            each.setblocking(False)
            each.connect_ex(full.getsockname())
        time.sleep(20)
        for each in asking:
            each.close()


def use_sockets(_):
    """Connections that are opened, refused, closed and reset, and datagrams that find nobody."""
    listener = socket.create_server((LOOPBACK, 0))
    closed = socket.socket()
    closed.bind((LOOPBACK, 0))
    elsewhere = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    elsewhere.bind(("127.0.0.2", 0))
    narrow = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    narrow.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1)
    narrow.bind((LOOPBACK, 0))
    sender = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    newer = None
    with contextlib.suppress(OSError):
        newer = socket.socket(socket.AF_INET6, socket.SOCK_DGRAM)
        newer.bind(("::1", 0))
    turn = 0
    while True:
        client, server = tcp_pair(listener)
        if turn % 3 == 0:
            client.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        client.close()
        server.close()
        with contextlib.suppress(ConnectionRefusedError), socket.socket() as refused:
            refused.connect(closed.getsockname())
        sender.sendto(b"x", (LOOPBACK, elsewhere.getsockname()[1]))
        for _ in range(2):
            sender.sendto(b"x" * 3000, narrow.getsockname())
        for _ in range(3):
            if newer is not None:
                newer.sendto(b"x", newer.getsockname())
                newer.recv(1)
        turn += 1
        time.sleep(0.05)


@contextlib.contextmanager
def bridge():
    """Where the machine lets it, a bridge with a pair of interfaces and an address, and packets
    that go through them."""
    name, inner, outer = (f"qmt{kind}{os.getpid()}" for kind in "bio")

    def ip(*words):
        return subprocess.run(["ip", *words], capture_output=True, text=True, check=False)

    words = (("link", "add", name, "type", "bridge"),
             ("link", "add", inner, "type", "veth", "peer", "name", outer),
             ("link", "set", inner, "master", name, "mtu", "1400"),
             ("addr", "add", f"{BRIDGE_NETWORK}.1/24", "broadcast", "+", "dev", name),
             *(("link", "set", each, "up") for each in (name, inner, outer)))
    work = None
    try:
        answers = [ip(*each) for each in words]
        refusals = [done.stderr.strip() for done in answers if done.returncode]
        if refusals:
            print("no bridge to compare:", refusals[0])
        else:
            work = multiprocessing.Process(target=send_through, args=(name,), daemon=True)
            work.start()
        yield
    finally:
        if work is not None:
            work.kill()
            work.join()
        for each in (inner, name):
            ip("link", "del", each)


def send_through(interface):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
        sender.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
        sender.setsockopt(socket.SOL_SOCKET, socket.SO_BINDTODEVICE, interface.encode())
        while True:
            for count in range(10):
                # 224.0.0.251 is for a group of hosts, 255 for all of the network.
                target = f"{BRIDGE_NETWORK}.255" if count < 7 else "224.0.0.251"
                sender.sendto(b"x" * 1200, (target, 9))
            time.sleep(0.02)


@contextlib.contextmanager
def load(folder, programs):
    odd = folder / ODD_NAME
    shutil.copy(shutil.which("sleep"), odd)
    sleeper = subprocess.Popen([odd, "1000"])
    stopped = subprocess.Popen(["sleep", "1000"])
    stopped.send_signal(signal.SIGSTOP)
    # Nobody waits for it until the end.
    zombie = subprocess.Popen(["true"])
    loads = [multiprocessing.Process(target=work, args=(folder,), daemon=True)
             for work in (write_disk, fork_often, touch_pages, hold_memory, send_packets,
                          hold_sockets, use_sockets)]
    loads.append(multiprocessing.Process(target=hold_files, args=(folder, programs), daemon=True))
    for each in loads:
        each.start()
    try:
        with bridge():
            yield
    finally:
        for each in loads:
            each.kill()
            each.join()
        for each in (sleeper, stopped, zombie):
            each.kill()
            each.wait()
