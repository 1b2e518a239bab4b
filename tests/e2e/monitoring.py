#!/usr/bin/env python3
"""Two agents are scraped by a real Prometheus and a real VictoriaMetrics, and what these answer is
compared with what qmtctl says of the same agents.

  monitoring.py BUILD_DIRECTORY
"""

import json
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import time
import urllib.parse

from harness import Agent, Process, fail, fetch, free_port, wait_for

SCRAPE_SECONDS = 1
TRIES = 5
METRIC = re.compile(r"(?:\w+:)?\bqmt_\w+(?::\w+)?")
CONDITION = re.compile(r" > 0|unless|ABNORMAL")


def check_format(agent):
    """The text itself, as the tools of its readers see it."""
    text = fetch(f"http://{agent.address}/metrics")
    done = subprocess.run(["promtool", "check", "metrics"], input=text, capture_output=True,
                          text=True, check=False)
    if done.returncode != 0 or done.stdout or done.stderr:
        fail(f"promtool: {done.stdout}{done.stderr}")
    opened = fetch(f"http://{agent.address}/metrics", "application/openmetrics-text")
    if not opened.endswith("# EOF\n"):
        fail("the OpenMetrics text has no end")


# A metric, the record and field that qmtctl shows of it, and how much of the latter it is.
CASES = [
    ("qmt_pi_total_physical_mem_bytes", "PI", "Total Physical Mem Mbytes", 2**20, 0),
    ("qmt_pi_boot_time_seconds", "PI", "Boot Time", 1, 1),
    ("qmt_pi_context_switches_total", "PI", "Context Switches", 1, 0.05),
    ("qmt_pi_user_mode_time_seconds_total", "PI", "Total User-Mode Time", 1, 0.05),
    ("qmt_pds_processes", "PDS", "Processes", 1, 0.5),
    ('qmt_fsl_total_size_bytes{file_system="/"}', "FSL", "Total Size Mbytes", 2**20, 1e-9),
    ('qmt_cpup_idle_time_seconds_total{processor_id="0"}', "CPUP", "Idle Time", 1, 0.05),
    ('qmt_nind_max_transmission_unit_bytes{interface="lo"}', "NIND", "Max Transmission Unit", 1, 0),
]
# The default ones, and those of the profile `modern`.
RECORDS = ["PI", "CPUP", "DEVD", "NIND", "WGRP", "PDS", "FSL", "APP",
           "PRES", "CGRP", "NETD", "SOCK", "DISK", "MEMD", "CPUX", "SENS", "HOST"]
KEYS = {"FSL": {"File System": "/"}, "CPUP": {"Processor ID": "0"}, "NIND": {"Interface": "lo"}}


def query(base, expression):
    url = f"{base}/api/v1/query?" + urllib.parse.urlencode({"query": expression})
    return json.loads(fetch(url))["data"]["result"]


def check_figure(name, base, agent, metric, record, field, scale, tolerance):
    """One figure of the store against the agent's own."""
    selector = f'instance="{agent.address}"'
    expression = (metric[:-1] + "," + selector + "}" if metric.endswith("}")
                  else f"{metric}{{{selector}}}")
    # Processes of other tests come and go between the scrape and the look: a figure that is wrong
    # differs in each try.
    for _ in range(TRIES if record == "PDS" else 1):
        answer = wait_for(f"{name}: {expression}", lambda: query(base, expression))
        stored = float(answer[0]["value"][1])
        shown = agent.row(record, **KEYS.get(record, {}))[field] * scale
        # Counters have grown between the scrape and the look; all else stands still.
        if abs(stored - shown) <= tolerance * abs(shown):
            return
        time.sleep(SCRAPE_SECONDS)
    fail(f"{name}: {expression} is {stored}, qmtctl shows {shown}")


def check_store(name, base, agents):
    """Everything that a store knows of each agent against that agent itself."""
    wait_for(f"{name}: two scrapes of each agent", lambda: len(
        query(base, "sum_over_time(up[1m]) >= 2")) >= len(agents))
    for agent in agents:
        for case in CASES:
            check_figure(name, base, agent, *case)
        built = query(base, f'qmt_agent_record_built{{instance="{agent.address}",record="PI"}}')
        if built[0]["value"][1] != "1":
            fail(f"{name}: the agent {agent.address} does not build PI")
    print(f"{name}: {len(CASES)} metrics of {len(agents)} agents agree with qmtctl")


def check_dashboard(name, base, shipped):
    """Each question of the shipped dashboard is understood, and has an answer where the store has all
    that it asks for. What is asked for under a condition need not be so."""
    panels = json.loads((shipped / "dashboard.json").read_text())["panels"]
    questions = [target["expr"].replace("$instance", ".*")
                 for panel in panels for target in panel.get("targets", [])]
    for question in questions:
        query(base, question)
        if not CONDITION.search(question):
            wait_for(f"{name}: {question}", lambda asked=question: query(base, asked) or not all(
                query(base, metric) for metric in METRIC.findall(asked)))
    print(f"{name}: the {len(questions)} questions of the dashboard are understood")


def configuration(folder, targets, rules):
    path = folder / "scrape.yml"
    lines = ["global:", f"  scrape_interval: {SCRAPE_SECONDS}s", "scrape_configs:",
             "  - job_name: qmtdmon", "    static_configs:", f"      - targets: {json.dumps(targets)}"]
    if rules:
        lines[2:2] = [f"rule_files: [{json.dumps(str(rules))}]"]
    path.write_text("\n".join(lines) + "\n")
    return path


def run(build, work):
    source = pathlib.Path(__file__).resolve().parents[2]
    folders = {name: work / name for name in ("a", "b", "prometheus", "victoria")}
    for folder in folders.values():
        folder.mkdir()
    shipped = source / "packaging/prometheus"
    subprocess.run(["promtool", "check", "config", shipped / "prometheus.yml"], check=True,
                   stdout=subprocess.DEVNULL)
    records = f"Http Records = {' '.join(RECORDS)}"
    with (Agent(build, folders["a"]) as first,
          Agent(build, folders["b"], "modern", node=records) as second):
        agents = [first, second]
        check_format(first)
        targets = [agent.address for agent in agents]
        port = free_port()
        config = configuration(folders["prometheus"], targets, shipped / "qmtdmon.rules.yml")
        with Process(["prometheus", f"--config.file={config}", "--storage.tsdb.path=data",
                      f"--web.listen-address=127.0.0.1:{port}"], folders["prometheus"]):
            check_store("Prometheus", f"http://127.0.0.1:{port}", agents)
            check_dashboard("Prometheus", f"http://127.0.0.1:{port}", shipped)
            rules = json.loads(fetch(f"http://127.0.0.1:{port}/api/v1/rules"))["data"]["groups"]
            bad = [rule["name"] for group in rules for rule in group["rules"]
                   if rule.get("lastError")]
            if not rules or bad:
                fail(f"Prometheus does not evaluate {bad or 'any rule'}")
        port = free_port()
        config = configuration(folders["victoria"], targets, None)
        with Process(["victoria-metrics", f"-promscrape.config={config}", "-storageDataPath=data",
                      f"-httpListenAddr=127.0.0.1:{port}", "-search.latencyOffset=0s"],
                     folders["victoria"]):
            check_store("VictoriaMetrics", f"http://127.0.0.1:{port}", agents)
            check_dashboard("VictoriaMetrics", f"http://127.0.0.1:{port}", shipped)


def main():
    if len(sys.argv) != 2:
        fail("usage: monitoring.py BUILD_DIRECTORY")
    build = pathlib.Path(sys.argv[1]).resolve()
    for program in ("prometheus", "promtool", "victoria-metrics"):
        if shutil.which(program) is None:
            fail(f"no {program}: scripts/install-deps e2e")
    with tempfile.TemporaryDirectory(prefix="qmt-e2e-") as work:
        run(build, pathlib.Path(work))


if __name__ == "__main__":
    main()
