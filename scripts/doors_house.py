"""An installation as the package makes it, in namespaces of its own: what scripts/doors tries the doors of."""

import contextlib
import ctypes
import os
import pathlib
import shutil
import subprocess
import sys
import time

PROJECT = pathlib.Path(__file__).resolve().parent.parent
PACKAGING = PROJECT / "packaging"
HOME = "/var/lib/qmtdmon"
AGENT = f"{HOME}/agent"
PROGRAMS = "/opt/qmtrx/bin"
SETTINGS = "/etc/qmtdmon"
PIN = "/sys/fs/bpf/qmtdmon/tasks"
USERS = {"qmtmond": 64331, "qmtgate": 64332, "reader": 64333, "stranger": 64334}
NETWORK = "10.213.0"
HOST_ADDRESS = f"{NETWORK}.1"
PEER_ADDRESSES = [f"{NETWORK}.{number}" for number in range(2, 12)]
LOOPBACK_PORT, TLS_PORT, PLAIN_PORT = 9964, 9965, 9966
PASSWORD = "two words: here"
START_SECONDS = 30
CLONE_NEWNET = 0x40000000


def run(*words, **more):
    done = subprocess.run([str(word) for word in words], capture_output=True, text=True, check=False, **more)
    if done.returncode != 0:
        raise SystemExit(f"doors: {' '.join(str(word) for word in words)}: {done.stderr.strip()}")
    return done.stdout


def unit_settings(name):
    """The settings of section Service of a unit; several lines of one key are put behind each other."""
    settings = {}
    section = ""
    for line in (PACKAGING / name).read_text().splitlines():
        if line.startswith("["):
            section = line
        elif section == "[Service]" and "=" in line and not line.startswith("#"):
            key, _, value = line.partition("=")
            settings[key] = f"{settings[key]} {value}" if key in settings else value
    return settings


def unit_words(settings):
    """setpriv with the user, groups and capabilities that a unit gives."""
    capabilities = ",".join(f"+{word.removeprefix('CAP_').lower()}"
                            for word in settings["CapabilityBoundingSet"].split())
    ambient = ",".join(f"+{word.removeprefix('CAP_').lower()}"
                       for word in settings.get("AmbientCapabilities", "").split())
    only = "-all" + (f",{capabilities}" if capabilities else "")
    some = "-all" + (f",{ambient}" if ambient else "")
    groups = settings.get("SupplementaryGroups")
    return ["setpriv", f"--reuid={settings['User']}", f"--regid={settings['Group']}",
            f"--groups={groups}" if groups else "--clear-groups", f"--bounding-set={only}",
            f"--inh-caps={some}", f"--ambient-caps={some}",
            *(["--no-new-privs"] if settings["NoNewPrivileges"] == "yes" else [])]


def hash_of(password):
    crypt = ctypes.CDLL("libcrypt.so.1").crypt
    crypt.restype = ctypes.c_char_p
    return crypt(password.encode(), b"$2b$05$abcdefghijklmnopqrstuu").decode()


class House:
    """Root's and the package's files below a folder that is mounted for it, with the daemon and the gate at work."""

    def __init__(self, build, root, change):
        """change: a command that root runs in there once all is at work, to see that its effect is found."""
        self.root = pathlib.Path(root)
        self.build = pathlib.Path(build)
        self.started = []
        self.iterator = ""
        self._mount()
        self._system()
        self._install()
        self._network()
        self._start()
        if change:
            run("chroot", self.root, "sh", "-c", change)

    # --- files ---

    def path(self, name):
        return self.root / name.lstrip("/")

    def _mount(self):
        run("mount", "-t", "tmpfs", "-o", "mode=755", "doors", self.root)
        for name in ("usr", "dev", "proc", "sys", "etc", "tmp", "run", "var/lib", "opt", "root"):
            self.path(name).mkdir(parents=True)
        self.path("tmp").chmod(0o1777)
        self.path("root").chmod(0o700)
        run("mount", "--rbind", "/usr", self.path("usr"))
        run("mount", "-o", "remount,bind,ro", self.path("usr"))
        run("mount", "--rbind", "/dev", self.path("dev"))
        run("mount", "-t", "proc", "proc", self.path("proc"))
        run("mount", "-t", "sysfs", "sysfs", self.path("sys"))
        for link in ("bin", "sbin", "lib", "lib64"):
            source = pathlib.Path("/", link)
            if source.is_symlink():
                self.path(link).symlink_to(f"usr/{link}")
            elif source.is_dir():
                self.path(link).mkdir()
                run("mount", "--rbind", source, self.path(link))

    def _system(self):
        people = {"root": 0, **USERS}
        shell = "/bin/sh"
        self.path("etc/passwd").write_text("".join(
            f"{name}:x:{number}:{number}::/nonexistent:{shell}\n" for name, number in people.items()))
        members = {"qmtmond": "reader"}
        self.path("etc/group").write_text("".join(
            f"{name}:x:{number}:{members.get(name, '')}\n" for name, number in people.items()))
        for name, mode in (("shadow", 0o600), ("nsswitch.conf", 0o644), ("hosts", 0o644)):
            self.path(f"etc/{name}").write_text("")
            self.path(f"etc/{name}").chmod(mode)
        self.path("etc/shadow").write_text("root:secret\n")
        if os.path.exists("/etc/ld.so.cache"):
            shutil.copy("/etc/ld.so.cache", self.path("etc"))

    def _install(self):
        self.path(PROGRAMS).mkdir(parents=True)
        self.path(SETTINGS).mkdir()
        parts = ["agent/qmtdmon", "gate/qmt_gate", "client/qmtctl", "helpers/qmt_hostutil", "helpers/qmt_ufss"]
        if (self.build / "helpers/qmt_bpf").exists():
            parts.append("helpers/qmt_bpf")
        for part in parts:
            if not (self.build / part).exists():
                raise SystemExit(f"doors: there is no {self.build / part}: build it first")
            run("install", "-m", "755", self.build / part, self.path(PROGRAMS))
        run("install", "-m", "755", PACKAGING / "qmtdmon-home", self.path(PROGRAMS))
        for name in ("wgfile", "alarms"):
            run("install", "-m", "644", PACKAGING / name, self.path(SETTINGS))
        self._settings()
        self.path("opt/qmtrx/mond").symlink_to(HOME)
        run("install", "-m", "755", PACKAGING / "debian/postinst", self.path("tmp/postinst"))
        run("chroot", self.root, "/tmp/postinst", "configure")
        # The folder in which users feed figures, as docs/user-data.md has it made.
        run("chroot", self.root, "setpriv", "--reuid=qmtmond", "--regid=qmtmond", "--clear-groups", "install", "-d",
            "-m", "2775", f"{AGENT}/qmtuser", f"{AGENT}/qmtuser/userdata")
        gate = self.path("var/lib/qmtgate")
        gate.mkdir(mode=0o700)
        os.chown(gate, USERS["qmtgate"], USERS["qmtgate"])

    def client(self, *words):
        return run("chroot", self.root, f"{PROGRAMS}/qmtctl", *words)

    def _settings(self):
        """The package's settings with listeners of each kind, and with what the gate reads for them."""
        text = (PACKAGING / "qmtagt.ini").read_text()
        listen = f"Listen = 127.0.0.1:{LOOPBACK_PORT}"
        if listen not in text:
            raise SystemExit("doors: the packaged settings listen elsewhere")
        text = text.replace(listen, "\n".join((
            f"Listen = http://127.0.0.1:{LOOPBACK_PORT} https://{HOST_ADDRESS}:{TLS_PORT}"
            f" http://{HOST_ADDRESS}:{PLAIN_PORT}",
            f"Certificate = {SETTINGS}/gate.crt", f"Key = {SETTINGS}/gate.key", f"Users = {SETTINGS}/users",
            f"Tokens = {SETTINGS}/tokens", "Gate = unit")))
        self.path(f"{SETTINGS}/qmtagt.ini").write_text(text)
        self.client("cert", "new", "--host", HOST_ADDRESS, "--out", f"{SETTINGS}/gate")
        self.path(f"{SETTINGS}/users").write_text(
            f"jane:{hash_of(PASSWORD)}\nscraper:{hash_of(PASSWORD)}:metrics\n")
        self.path(f"{SETTINGS}/push.password").write_text("secret\n")
        self.path(f"{SETTINGS}/push.password").chmod(0o600)
        words = self.client("token", "new", "collector", "--role", "metrics", "--file", f"{SETTINGS}/tokens").split()
        self.token = next(word for word in words if word.startswith("collector."))
        for name in ("gate.crt", "gate.key", "users", "tokens"):
            os.chown(self.path(f"{SETTINGS}/{name}"), 0, USERS["qmtgate"])
            self.path(f"{SETTINGS}/{name}").chmod(0o640)

    # --- network ---

    def _network(self):
        run("ip", "link", "set", "lo", "up")
        self.peer = subprocess.Popen(["unshare", "-n", "sleep", "infinity"])
        self.started.append(self.peer)
        own = os.readlink("/proc/self/ns/net")
        end = time.monotonic() + START_SECONDS
        while os.readlink(f"/proc/{self.peer.pid}/ns/net") == own and time.monotonic() < end:
            time.sleep(0.02)
        run("ip", "link", "add", "doors0", "type", "veth", "peer", "name", "doors1")
        run("ip", "link", "set", "doors1", "netns", self.peer.pid)
        run("ip", "addr", "add", f"{HOST_ADDRESS}/24", "dev", "doors0")
        run("ip", "link", "set", "doors0", "up")
        there = ("nsenter", "-t", self.peer.pid, "-n", "ip")
        for address in PEER_ADDRESSES:
            run(*there, "addr", "add", f"{address}/24", "dev", "doors1")
        run(*there, "link", "set", "doors1", "up")
        run(*there, "link", "set", "lo", "up")

    def go_to_peer(self):
        """Takes the calling process into the network on the other side of the wire."""
        with open(f"/proc/{self.peer.pid}/ns/net", "rb") as space:
            if ctypes.CDLL(None, use_errno=True).setns(space.fileno(), CLONE_NEWNET) != 0:
                raise OSError(ctypes.get_errno(), "setns")

    # --- programs ---

    def _launch(self, unit, program, words, writable, folder):
        """A program as its unit starts it: user, groups, capabilities, umask, what it may write to."""
        settings = unit_settings(unit)
        self.path(writable).chmod(int(settings["StateDirectoryMode"], 8))
        script = (f'mount --bind "{self.root}{writable}" "{self.root}{writable}" &&'
                  f' mount -o remount,bind,ro "{self.root}" &&'
                  f' mount -t tmpfs -o mode=1777 private "{self.root}/tmp" &&'
                  f' umask {settings["UMask"]} && exec chroot "{self.root}" env -C {folder} "$@"')
        log = open(self.path(f"root/{program}.log"), "wb")  # pylint: disable=consider-using-with
        process = subprocess.Popen(["unshare", "-m", "--propagation", "private", "sh", "-c", script, "sh",
                                    *unit_words(settings), f"{PROGRAMS}/{program}", *words],
                                   stdout=log, stderr=log, stdin=subprocess.DEVNULL)
        log.close()
        self.started.append(process)
        return process

    def log(self, program):
        return self.path(f"root/{program}.log").read_text(errors="replace")

    def _pin(self):
        """Pins the kernel's walk of tasks as the drop-in of the unit does, where anybody may get so far; leaves the reason where that fails."""
        if not self.path(f"{PROGRAMS}/qmt_bpf").exists():
            self.iterator = "qmt_bpf is not built"
            return
        done = subprocess.run(["mount", "-t", "bpf", "-o", "mode=777", "bpf", self.path("sys/fs/bpf")],
                              capture_output=True, text=True, check=False)
        if done.returncode == 0:
            done = subprocess.run(["chroot", self.root, f"{PROGRAMS}/qmt_bpf", "load", "--group", "root"],
                                  capture_output=True, text=True, check=False)
        if done.returncode != 0 or not self.path(PIN).exists():
            self.iterator = done.stderr.strip().partition("\n")[0]

    def _start(self):
        self._pin()
        self.daemon = self._launch("qmtdmon.service", "qmtdmon", [], HOME, f"{HOME}/agent")
        self._wait("the daemon", lambda: self.client("status"))
        self.gate = self._launch("qmt_gate.service", "qmt_gate", ["--state", "/var/lib/qmtgate"], "/var/lib/qmtgate",
                                 "/")
        self._wait("the gate", lambda: f":{PLAIN_PORT}" in self.client("status", "--json"))
        # A row and the guard of user data, as a member of the group makes them, and a link with a token.
        run("chroot", "--userspec=reader:qmtmond", self.root, f"{PROGRAMS}/qmtctl", "userdata", "import", "UPI", "-",
            input="Trans Type,User Long 1\ndoors,1\n")
        self.client("get", "UPI")
        self.console = self.client("console", "--print").partition("#token=")[2].split()[0]

    def _wait(self, what, condition):
        end = time.monotonic() + START_SECONDS
        while time.monotonic() < end:
            with contextlib.suppress(SystemExit):
                if condition():
                    return
            time.sleep(0.1)
        sys.stderr.write(self.log("qmtdmon")[-2000:] + (self.log("qmt_gate")[-2000:] if what == "the gate" else ""))
        raise SystemExit(f"doors: {what} does not answer within {START_SECONDS} s")

    def stop(self):
        for process in reversed(self.started):
            process.terminate()
            try:
                process.wait(10)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
