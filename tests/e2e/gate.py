#!/usr/bin/env python3
"""The gate as the network sees it: who is let in, TLS, a certificate that is renewed, a Prometheus that
scrapes by TLS, all that it documents, and what readers of every kind cost the daemon.

  gate.py BUILD_DIRECTORY [PART] [SECONDS]     PART: network, load or kills, all if not given
                                               SECONDS: how long it is loaded, 15 if not given
"""

import contextlib
import json
import os
import pathlib
import re
import sqlite3
import ssl
import subprocess
import sys
import tempfile
import time

import gate_load
import http_api
from harness import Agent, Process, client, console_token, fail, fetch, free_port, wait_for

PASSWORD = "two words: here"
ALL_VERSIONS = "NORMAL:-VERS-ALL:+VERS-TLS1.0:+VERS-TLS1.1:+VERS-TLS1.2:+VERS-TLS1.3:+SIGN-ALL:%COMPAT"


def curl(agent, page, *words, scheme="https"):
    """The status of a page, and its body."""
    done = subprocess.run(["curl", "-s", "-m", "20", "-w", "\n%{http_code}", *words,
                           f"{scheme}://{agent.bare}{page}"], capture_output=True, text=True, check=False)
    body, _, status = done.stdout.rpartition("\n")
    return int(status), body


def make_certificate(agent, name):
    client(agent, "cert", "new", "--host", "localhost", "--out", str(agent.home / name))
    if os.geteuid() == 0:
        for ending in ("crt", "key"):
            agent.give_to_gate(agent.home / f"{name}.{ending}")


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
        ("/metrics/node", [], 401), ("/metrics/node", bearer, 200),
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


def shakes_hands(port, version):
    """Whether a server takes a version of TLS, and what its client said."""
    done = subprocess.run(
        ["gnutls-cli", "--no-ca-verification", "--priority",
         f"NORMAL:-VERS-ALL:+VERS-TLS{version}:+SIGN-ALL:%COMPAT", "-p", str(port), "127.0.0.1"],
        stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=20, check=False)
    return "Handshake was completed" in done.stdout, done.stdout[-300:] + done.stderr[-300:]


def check_versions(agent, folder):
    """A server that takes all versions shows that the client is able to ask for each."""
    folder = folder / "control"
    folder.mkdir()
    port = free_port()
    with Process(["gnutls-serv", "--port", str(port), "--http", "--priority", ALL_VERSIONS,
                  "--x509certfile", str(agent.home / "gate.crt"),
                  "--x509keyfile", str(agent.home / "gate.key")], folder):
        wait_for("gnutls-serv", lambda: shakes_hands(port, "1.3")[0])
        for version, is_taken in (("1.0", False), ("1.1", False), ("1.2", True), ("1.3", True)):
            taken, why = shakes_hands(port, version)
            if not taken:
                fail(f"TLS {version} can't be asked for: {why}")
            taken, why = shakes_hands(agent.port, version)
            if taken != is_taken:
                fail(f"TLS {version}: {why}")
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
        for name in ("users", "tokens"):
            os.chmod(agent.home / name, 0o600)
            if os.geteuid() == 0:
                agent.give_to_gate(agent.home / name)
        agent.restart("Certificate = gate.crt\nKey = gate.key\nUsers = users\nTokens = tokens\n")
        token = console_token(agent)
        check_who_is_let_in(agent, token, metrics_token)
        check_versions(agent, work)
        check_prometheus(agent, work, metrics_token)
        check_renewal(agent)


def add_tokens(agent):
    """Puts a console token that has expired, and one that has not, where the daemon reads them at its start."""
    tokens = {"expired": "e" * 43, "good": "g" * 43}
    agent.__exit__(None)
    file = agent.home / "run/console.tokens"
    now = int(time.time())
    file.write_text(f"{tokens['expired']} {now - 1}\n{tokens['good']} {now + 3600}\n")
    os.chmod(file, 0o600)
    agent.start(agent.http)
    return tokens


def check_tokens(agent):
    """Without TLS too a token alone lets in, whoever asks on this host."""
    tokens = add_tokens(agent)
    if curl(agent, "/api/1/status", "-H", f"Authorization: Bearer {tokens['good']}", scheme="http")[0] != 200:
        fail("a token of the file is not taken")
    askers = [[]]
    if os.geteuid() == 0:
        askers.append(["runuser", "-u", "nobody", "--"])
    for asker in askers:
        for words in ([], ["-H", f"Authorization: Bearer {tokens['expired']}"]):
            done = subprocess.run(
                [*asker, "curl", "-s", "-m", "20", "-w", "\n%{http_code}", *words,
                 f"http://{agent.bare}/api/1/status"], capture_output=True, text=True, check=False)
            body, _, status = done.stdout.rpartition("\n")
            if status != "401" or json.loads(body)["error"]["code"] != "unauthorized":
                fail(f"{asker} {words}: {status}, not 401: {body}")
    print("HTTP: a token that has expired lets nobody in, nor does none, nor another user of this host")


def check_locked_history(agent, token):
    """A history that another program holds is none, until it lets go."""
    def ask():
        status, body = curl(agent, "/api/1/history?record=PI&limit=1",
                            "-H", f"Authorization: Bearer {token}", scheme="http")
        return status, json.loads(body).get("error", {}).get("code")

    if ask()[0] != 200:
        fail("no history before it is locked")
    with contextlib.closing(sqlite3.connect(agent.home / "records.db", timeout=20,
                                            isolation_level=None)) as database:
        database.execute("BEGIN EXCLUSIVE")
        told = ask()
        database.execute("ROLLBACK")
    if told != (503, "no-history"):
        fail(f"a locked history gives {told}")
    wait_for("the history", lambda: ask()[0] == 200)
    print("HTTP: a locked history is told as none")


def check_api(build, work):
    with Agent(build, work, "modern", "PI = 1\nCGRP = 2\n") as agent:
        token = console_token(agent)
        http_api.check(f"http://{agent.bare}", token)
        check_locked_history(agent, token)
        check_tokens(agent)


def check_network(build, work):
    for name in ("tls", "api"):
        (work / name).mkdir()
    check_tls(build, work / "tls")
    check_api(build, work / "api")


def check_load(build, work, seconds):
    for name in ("rest", "load"):
        (work / name).mkdir()
    gate_load.check_rest(build, work / "rest")
    gate_load.check_load(build, work / "load", seconds)


def main():
    words = sys.argv[1:]
    seconds = int(words.pop()) if words and words[-1].isdigit() else 15
    parts = {"network": check_network,
             "load": lambda build, work: check_load(build, work, seconds),
             "kills": gate_load.check_kills}
    if len(words) not in (1, 2) or not set(words[1:]) <= set(parts):
        fail("usage: gate.py BUILD_DIRECTORY [PART] [SECONDS]")
    build = pathlib.Path(words[0]).resolve()
    for part in words[1:] or parts:
        with tempfile.TemporaryDirectory(prefix="qmt-e2e-") as work:
            # The gate's user has to get there.
            os.chmod(work, 0o755)
            parts[part](build, pathlib.Path(work))


if __name__ == "__main__":
    main()
