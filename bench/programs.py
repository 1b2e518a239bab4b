"""The programs that bench/compare sets beside the agent: how each is started, and on what.

All of them listen on 127.0.0.1 at most, write below the folder that they are given, tell nobody outside anything
and leave the machine's settings as they are.
"""

import os
import subprocess

from measures import Once, Program, free_port

SADC = "/usr/lib/sysstat/sadc"
NETDATA = "/usr/sbin/netdata"
APPS = "/usr/lib/netdata/plugins.d/apps.plugin"
PACKAGES = ("prometheus-node-exporter", "sysstat", "atop", "procps", "collectd-core", "netdata-core", "prometheus",
            "victoria-metrics")
# What the exporter has of the agent's records of the host: CPUX, DISK, NETD, SOCK, MEMD, PRES, FSL, KERN.
COLLECTORS = ("cpu", "diskstats", "netdev", "netclass", "netstat", "sockstat", "meminfo", "vmstat", "pressure",
              "filesystem", "loadavg", "stat")

WORK = {
    "prometheus-node-exporter": "collects the host at each scrape and answers as text",
    "sadc": "the host's counters, all of them (-S ALL), appended to its file; no processes",
    "atop": "the host and all processes, packed, into its own file (-w), without the accounting of processes that end",
    "pidstat": "processor, memory, input and output and switches of the processes that did something, as text",
    "ps": "all processes as text (ps -eF), a program started for each sample",
    "collectd": "the host by plugins (cpu, memory, swap, vmem, disk, interface, df, load, protocols, tcpconns, "
                "contextswitch, users, cgroups) and the number of processes by state, appended to CSV files",
    "netdata": "the host by its own plugins, the control groups and by apps.plugin all processes, summed by groups and "
               "users, into its database, without health, machine learning and its own figures",
    "apps.plugin": "the part of netdata that looks at all processes, as text",
}

COLLECTD_PLUGINS = ("cpu", "memory", "swap", "vmem", "disk", "interface", "df", "load", "processes", "protocols",
                    "tcpconns", "contextswitch", "users", "cgroups", "csv")


def versions():
    done = subprocess.run(["dpkg-query", "-W", "-f=${Package} ${Version}\n", *PACKAGES], capture_output=True,
                          text=True, check=False, timeout=30)
    return ", ".join(done.stdout.split("\n")[:-1])


class Exporter(Program):
    def __init__(self, folder, collectors=()):
        """All that it has by default, where no collectors are named."""
        self.address = f"127.0.0.1:{free_port()}"
        only = ["--collector.disable-defaults", *(f"--collector.{name}" for name in collectors)] if collectors else []
        super().__init__(["prometheus-node-exporter", f"--web.listen-address={self.address}", *only], folder)


def sadc(folder, every):
    return Program([SADC, "-S", "ALL", str(every), folder / "sa"], folder)


# As root atop else switches on the accounting of processes, of the whole machine.
WITHOUT_ACCOUNTING = {**os.environ, "ATOPACCT": ""}


def atop(folder, every):
    return Program(["atop", "-w", folder / "atop.raw", str(every)], folder, env=WITHOUT_ACCOUNTING)


def atop_once(folder):
    return Once(["atop", "-w", folder / "atop.raw", "1", "1"], folder, env=WITHOUT_ACCOUNTING)


def pidstat(folder, every):
    return Program(["pidstat", "-u", "-r", "-d", "-w", "-l", str(every)], folder)


def apps(folder, every):
    # It ends with its standard input.
    return Program([APPS, str(every)], folder, stdin=subprocess.PIPE)


def ps():
    return Once(["ps", "-eF"])


def collectd(folder, every):
    folder.mkdir(parents=True)
    lines = [f'Interval {every}', 'Hostname "bench"', 'FQDNLookup false', f'BaseDir "{folder}"',
             f'PIDFile "{folder}/pid"', 'PluginDir "/usr/lib/collectd"', 'TypesDB "/usr/share/collectd/types.db"',
             *(f"LoadPlugin {name}" for name in COLLECTD_PLUGINS),
             f'<Plugin csv>\n  DataDir "{folder}/kept"\n</Plugin>',
             '<Plugin tcpconns>\n  AllPortsSummary true\n</Plugin>']
    (folder / "collectd.conf").write_text("\n".join(lines) + "\n")
    return Program(["/usr/sbin/collectd", "-f", "-C", folder / "collectd.conf"], folder)


def netdata(folder, every):
    for name in ("kept", "lib", "log"):
        (folder / name).mkdir(parents=True)
    # Without this file in the folder of its settings it reports to its makers.
    (folder / ".opt-out-from-anonymous-statistics").touch()
    port = free_port()
    off = ("timex", "tc", "idlejitter", "checks", "enable running new plugins", "netdata monitoring", "slabinfo",
           "nfacct", "perf", "statsd", "charts.d", "python.d", "go.d", "ebpf", "ioping", "freeipmi", "fping")
    (folder / "netdata.conf").write_text(f"""[global]
    run as user = root
    hostname = bench
    process scheduling policy = keep
[directories]
    config = {folder}
    cache = {folder}/kept
    lib = {folder}/lib
    log = {folder}/log
    home = {folder}
    registry = {folder}/lib
    lock = {folder}/lib
[logs]
    debug = none
    access = none
    error = {folder}/log/error.log
[db]
    mode = dbengine
    update every = {every}
    storage tiers = 1
[ml]
    enabled = no
[health]
    enabled = no
[statsd]
    enabled = no
[cloud]
    enabled = no
[web]
    bind to = 127.0.0.1:{port}
    web files owner = root
[plugins]
    apps = yes
""" + "".join(f"    {name} = no\n" for name in off))
    made = Program([NETDATA, "-D", "-c", folder / "netdata.conf"], folder,
                   env={**os.environ, "DISABLE_TELEMETRY": "1", "DO_NOT_TRACK": "1"})
    made.address = f"127.0.0.1:{port}"
    return made


class Shipper(Program):
    """Scrapes the target once a second and pushes to the URL."""

    def __init__(self, name, folder, target, url):
        folder.mkdir()
        scrape = ("global: {scrape_interval: 1s}\n"
                  f"scrape_configs: [{{job_name: node, static_configs: [{{targets: ['{target}']}}]}}]\n")
        listen = f"127.0.0.1:{free_port()}"
        if name == "prometheus":
            (folder / "scrape.yml").write_text(f"{scrape}remote_write: [{{url: '{url}'}}]\n")
            words = ["prometheus", "--enable-feature=agent", "--config.file=scrape.yml", "--storage.agent.path=data",
                     f"--web.listen-address={listen}"]
        else:
            (folder / "scrape.yml").write_text(scrape)
            words = ["vmagent", "-promscrape.config=scrape.yml", f"-remoteWrite.url={url}",
                     "-remoteWrite.tmpDataPath=data", f"-httpListenAddr={listen}"]
        super().__init__(words, folder)
