#!/usr/bin/env python3
"""The gate as the network sees it: who is let in, TLS, a certificate that is renewed, a Prometheus that
scrapes by TLS, and what readers of every kind cost the daemon.

  gate.py BUILD_DIRECTORY [SECONDS]     SECONDS: how long it is loaded, 15 if not given
"""

import concurrent.futures
import json
import os
import pathlib
import re
import signal
import socket
import ssl
import subprocess
import sys
import tempfile
import threading
import time

import http_api
from harness import Agent, Process, fail, fetch, free_port, wait_for

PASSWORD = "two words: here"
LATEST_SECONDS = 0.1
MEGABYTE = 2**20


def curl(agent, page, *words, scheme="https"):
    """The status of a page, and its body."""
    done = subprocess.run(["curl", "-s", "-m", "20", "-w", "\n%{http_code}", *words,
                           f"{scheme}://{agent.bare}{page}"], capture_output=True, text=True, check=False)
    body, _, status = done.stdout.rpartition("\n")
    return int(status), body


def client(agent, *words, text=None):
    done = subprocess.run([agent.build / "client/qmtctl", "--socket", "run/control.sock", *words],
                          cwd=agent.home, capture_output=True, text=True, check=False, input=text)
    if done.returncode != 0:
        fail(f"qmtctl {' '.join(words)}: {done.stderr}")
    return done.stdout


def console_token(agent):
    return re.search(r"#token=(\S+)", client(agent, "console", "--print")).group(1)


def make_certificate(agent, name):
    return client(agent, "cert", "new", "--host", "localhost", "--out", str(agent.home / name))


def install(agent, name):
    """Puts a certificate and its key in the place of those in use, as one that renews them does."""
    for ending in ("crt", "key"):
        os.rename(agent.home / f"{name}.{ending}", agent.home / f"gate.{ending}")


def hash_of(password):
    """A line of a file of users, as htpasswd makes it."""
    return subprocess.run(["htpasswd", "-nbBC", "5", "ann", password], capture_output=True, text=True,
                          check=True).stdout.strip()


def check_who_is_let_in(agent, token, metrics_token):
    trust = ["--cacert", str(agent.home / "gate.crt"), "--resolve", f"localhost:{agent.port}:127.0.0.1"]
    user = ["-u", f"ann:{PASSWORD}"]
    bearer = ["-H", f"Authorization: Bearer {metrics_token}"]
    console = ["-H", f"Authorization: Bearer {token}"]
    cases = [
        ("/-/healthy", [], 200), ("/metrics", [], 401), ("/metrics", user, 200),
        ("/metrics", bearer, 200), ("/metrics", console, 200),
        ("/api/1/status", [], 401), ("/api/1/status", user, 200), ("/api/1/status", console, 200),
        ("/api/1/status", bearer, 403), ("/api/1/status", ["-u", "ann:wrong"], 401),
        ("/api/1/status", ["-u", f"bob:{PASSWORD}"], 401),
        ("/api/1/status", ["-H", "Authorization: Bearer wrong"], 401),
        ("/", [], 200), ("/", ["-H", "Host: evil.example"], 421),
    ]
    for page, words, wanted in cases:
        status, body = curl(agent, page, *trust, *words)
        if status != wanted:
            fail(f"{page} {words[:2]}: {status}, not {wanted}: {body[:200]}")
    if curl(agent, "/-/healthy")[0] != 0:
        fail("a certificate that nobody vouches for is taken")
    if curl(agent, "/-/healthy", scheme="http")[0] not in (0, 400):
        fail("a listener with TLS answers without")
    log = agent.log.read_text()
    if PASSWORD in log or token in log or "failed" not in log:
        fail("the log has a secret, or no failed login")
    print(f"TLS: {len(cases)} questions are let in or not as they should")


def check_versions(agent):
    for version, is_taken in (("1.0", False), ("1.1", False), ("1.2", True), ("1.3", True)):
        done = subprocess.run(
            ["gnutls-cli", "--no-ca-verification", "--priority",
             f"NORMAL:-VERS-ALL:+VERS-TLS{version}:%COMPAT", "-p", str(agent.port), "127.0.0.1"],
            stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=20, check=False)
        if ("Handshake was completed" in done.stdout) != is_taken:
            fail(f"TLS {version}: {done.stdout[-300:]}{done.stderr[-300:]}")
    print("TLS: 1.2 and 1.3 are taken, 1.0 and 1.1 are not")


def fingerprint(agent):
    return ssl.get_server_certificate(("127.0.0.1", agent.port))


def check_renewal(agent):
    before = fingerprint(agent)
    make_certificate(agent, "new")
    install(agent, "new")
    wait_for("the new certificate", lambda: fingerprint(agent) != before)
    (agent.home / "gate.key").write_text("no key")
    time.sleep(1.2)
    kept = fingerprint(agent)
    if kept == before:
        fail("the certificate before the last is shown")
    make_certificate(agent, "newest")
    install(agent, "newest")
    wait_for("the newest certificate", lambda: fingerprint(agent) != kept)
    print("TLS: a renewed certificate is taken up, and a broken key takes nothing away")


def check_prometheus(agent, folder, metrics_token):
    trust = f"      tls_config: {{ca_file: {agent.home}/gate.crt, server_name: localhost}}\n"
    target = f"      static_configs: [{{targets: ['127.0.0.1:{agent.port}']}}]\n"
    config = folder / "scrape.yml"
    config.write_text(
        "global: {scrape_interval: 1s}\nscrape_configs:\n"
        "    - job_name: password\n      scheme: https\n"
        f"      basic_auth: {{username: ann, password: '{PASSWORD}'}}\n{trust}{target}"
        "    - job_name: token\n      scheme: https\n"
        f"      authorization: {{credentials: '{metrics_token}'}}\n{trust}{target}")
    port = free_port()
    with Process(["prometheus", f"--config.file={config}", "--storage.tsdb.path=data",
                  f"--web.listen-address=127.0.0.1:{port}"], folder):
        for job in ("password", "token"):
            url = f"http://127.0.0.1:{port}/api/v1/query?query=up{{job=%22{job}%22}}==1"
            wait_for(f"a scrape by {job}", lambda asked=url: json.loads(fetch(asked))["data"]["result"])
    print("TLS: a Prometheus scrapes with a password and with a token")


def check_tls(build, work):
    with Agent(build, work, "modern", gate="none") as agent:
        make_certificate(agent, "gate")
        (agent.home / "users").write_text(hash_of(PASSWORD) + "\n")
        metrics_token = client(agent, "token", "new", "scraper", "--role", "metrics",
                               "--file", str(agent.home / "tokens")).split()[0]
        for name in ("users", "tokens", "gate.key", "gate.crt"):
            os.chmod(agent.home / name, 0o600 if name == "gate.key" else 0o644)
            if os.geteuid() == 0:
                agent.give_to_gate(agent.home / name)
        agent.restart("Certificate = gate.crt\nKey = gate.key\nUsers = users\nTokens = tokens\n")
        token = console_token(agent)
        check_who_is_let_in(agent, token, metrics_token)
        check_versions(agent)
        check_prometheus(agent, work, metrics_token)
        check_renewal(agent)


def memory(pid):
    """Bytes of memory in use."""
    fields = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text()
    return int(re.search(r"^Rss:\s+(\d+)", fields, re.M).group(1)) * 1024


class Ticks:
    """When each batch of the schedule has been done, told by the daemon's own stream."""

    def __init__(self, agent):
        self.late = []
        self.agent = agent
        # A path of any length would not fit into a socket's name.
        self.socket = socket.socket(socket.AF_UNIX)
        here = os.open(".", os.O_RDONLY)
        os.chdir(agent.home)
        self.socket.connect("run/control.sock")
        os.fchdir(here)
        os.close(here)
        self.socket.sendall(b'{"op":"follow","records":["PI"]}\n')
        threading.Thread(target=self.read, daemon=True).start()

    def read(self):
        for line in self.socket.makefile("rb"):
            if line.startswith(b'{"event":"batch"'):
                # Batches begin in the middle of a second.
                self.late.append((time.time() - 0.5) % 1)

    def close(self):
        self.socket.shutdown(socket.SHUT_RDWR)
        return self.late


def check_load(build, work, seconds):
    """32 listeners, 200 slow readers, a scrape each second, and a gate that is killed again and again."""
    with Agent(build, work, "modern", "PI = 1\nPDX = 1\n") as agent:
        token = console_token(agent)
        http_api.check(f"http://{agent.bare}", token)
        head = f"Host: localhost\r\nAuthorization: Bearer {token}\r\n\r\n"
        time.sleep(2)
        gate = agent.gate_pid()
        before = memory(agent.process.pid), memory(gate)
        quiet = Ticks(agent)
        time.sleep(5)
        quiet = max(quiet.close())
        ticks = Ticks(agent)
        held = []

        def ask(page):
            one = socket.create_connection(("127.0.0.1", agent.port), 10)
            held.append(one)
            one.sendall(f"GET {page} HTTP/1.1\r\n{head}".encode())
            return one

        stop = threading.Event()

        def listen():
            one = ask("/api/1/events")
            one.settimeout(30)
            while not stop.is_set() and one.recv(65536):
                pass

        listeners = [threading.Thread(target=listen, daemon=True) for _ in range(32)]
        for listener in listeners:
            listener.start()
        end = time.monotonic() + seconds
        scrapes = 0
        while time.monotonic() < end:
            # They ask for much and take nothing.
            for _ in range(max(1, 200 // seconds)):
                try:
                    ask("/api/1/last?records=PDX")
                except OSError:
                    pass
            fetch(f"http://{agent.bare}/metrics")
            scrapes += 1
            time.sleep(1)
        stop.set()
        for one in held:
            one.close()
        late = max(ticks.close())
        if late > max(quiet, LATEST_SECONDS) + LATEST_SECONDS:
            fail(f"a batch was done {late:.3f} s after its time, without load {quiet:.3f} s")
        skipped = sum(row["skipped"] for row in agent.ask("status")["schedules"])
        time.sleep(3)
        after = memory(agent.process.pid), memory(agent.gate_pid())
        if agent.gate_pid() != gate or max(a - b for a, b in zip(after, before)) > 12 * MEGABYTE:
            fail(f"memory was {before} and is {after}")
        print(f"load: {scrapes} scrapes, 32 listeners, 200 slow readers: batches done within {late:.3f} s "
              f"({quiet:.3f} s without), {skipped} left out; memory of daemon and gate "
              f"{[round(size / MEGABYTE, 1) for size in before]} MB before, "
              f"{[round(size / MEGABYTE, 1) for size in after]} MB after")


def check_kills(build, work):
    with Agent(build, work, "modern", "PI = 1\n", gate="unit") as agent:
        ticks = Ticks(agent)

        def scrape():
            try:
                fetch(f"http://{agent.ask('status')['http']}/metrics")
            except (OSError, ValueError):
                pass

        with concurrent.futures.ThreadPoolExecutor(4) as pool:
            for _ in range(100):
                gate = subprocess.Popen([build / "gate/qmt_gate", "--control", "run/control.sock"],
                                        cwd=agent.home, stderr=subprocess.DEVNULL)
                pool.submit(scrape)
                time.sleep(0.1)
                gate.send_signal(signal.SIGKILL)
                gate.wait()
        late = max(ticks.close())
        skipped = sum(row["skipped"] for row in agent.ask("status")["schedules"])
        if late > 2 * LATEST_SECONDS or skipped:
            fail(f"a batch was done {late:.3f} s after its time, {skipped} were left out")
        print(f"100 gates killed while they are asked: batches done within {late:.3f} s, none left out")


def main():
    if len(sys.argv) not in (2, 3):
        fail("usage: gate.py BUILD_DIRECTORY [SECONDS]")
    build = pathlib.Path(sys.argv[1]).resolve()
    seconds = int(sys.argv[2]) if len(sys.argv) == 3 else 15
    with tempfile.TemporaryDirectory(prefix="qmt-e2e-") as work:
        # The gate's user has to get there.
        os.chmod(work, 0o755)
        folders = [pathlib.Path(work) / name for name in ("tls", "load", "kills")]
        for folder in folders:
            folder.mkdir()
        check_tls(build, folders[0])
        check_load(build, folders[1], seconds)
        check_kills(build, folders[2])


if __name__ == "__main__":
    main()
