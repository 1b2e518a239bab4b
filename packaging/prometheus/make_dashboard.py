#!/usr/bin/env python3
"""Writes dashboard.json, the Grafana dashboard of a fleet, beside this file."""

import json
import pathlib

HOST = 'instance=~"$instance"'
# Groups that do work, rather than hold others whose work would count twice.
WORKING = 'unless on (instance, job, path) qmt_cgrp_info{kind=~"root|slice"}'
# Groups of their own, without the sum of those beyond the bound.
GROUPS = f'{HOST},path!="other"'
# The modes of a processor's time that are work or keep it from work.
MODES = ["user", "nice", "system", "wait", "irq", "soft_irq", "steal", "guest", "guest_nice"]
# What the table of host facts leaves out.
HIDDEN_FACTS = ["Time", "Value", "__name__", "job", "machine_id", "distribution_id",
                "distribution_version", "kernel_version"]


def rate(metric, matchers=HOST):
    return f"rate({metric}_total{{{matchers}}}[5m])"


def per(time, operations, matchers=HOST):
    """How long one of the operations took."""
    return f"{rate(time, matchers)} / ({rate(operations, matchers)} > 0)"


def without(metric, expression):
    """The figure of a standing record for hosts that do not serve a better one."""
    return f"{expression} unless on (instance, job) {metric}"


def hottest(expression):
    return f"topk(10, {expression})"


# Of each row its panels: title, unit, and pairs of a question and its legend.
ROWS = [
    ("Agents", [
        ("Agents that answer", "short", [('sum(up{job="qmtdmon"})', "agents")]),
        ("Duration of collection", "s",
         [(f"sum by (instance) (qmt_agent_collect_seconds{{{HOST}}})", "{{instance}}")]),
        ("Applications out of order", "short",
         [(f'count by (instance) (qmt_app_info{{{HOST},application_status="ABNORMAL"}})',
           "{{instance}}")]),
        ("Processes", "short", [(f"qmt_pds_processes{{{HOST}}}", "{{instance}}")]),
    ]),
    ("Pressure", [
        ("Time in which some tasks waited", "percentunit",
         [(rate("qmt_pres_some_stalled_seconds"), "{{instance}} {{resource}}")]),
        ("Time in which all tasks waited", "percentunit",
         [(rate("qmt_pres_full_stalled_seconds"), "{{instance}} {{resource}}")]),
    ]),
    ("Processors", [
        ("Processors in use", "percentunit",
         [(f"instance:qmt_cpu_used:ratio{{{HOST}}}", "{{instance}}")]),
        ("Processor time by mode", "percentunit",
         [("avg by (instance) (" + rate(f"qmt_cpux_{mode}_seconds", HOST + ',processor!="all"')
           + ")", "{{instance}} " + mode.replace("_", " ")) for mode in MODES]),
        ("Run queue, 1 minute", "short",
         [(f"qmt_pi_1_minute_run_queue_avg{{{HOST}}}", "{{instance}}")]),
        ("Clock of the processors", "hertz",
         [(f"qmt_cpux_frequency_hertz{{{HOST}}}", "{{instance}} {{processor}}")]),
    ]),
    ("Memory", [
        ("Memory available", "percentunit",
         [(f"qmt_memd_available_ratio{{{HOST}}}", "{{instance}}"),
          (without("qmt_memd_available_ratio", f"1 - instance:qmt_memory_used:ratio{{{HOST}}}"),
           "{{instance}}")]),
        ("Memory by workgroup", "bytes",
         [(f"qmt_wgrp_real_mem_bytes{{{HOST}}}", "{{instance}} {{workgroup}}")]),
        ("Processes ended for want of memory", "short",
         [(f"increase(qmt_memd_oom_kills_total{{{HOST}}}[5m])", "{{instance}}")]),
        ("Allocation stalls a second", "short",
         [(rate("qmt_memd_allocation_stalls"), "{{instance}}")]),
        ("Refaults a second", "short", [(rate("qmt_memd_refaults"), "{{instance}}")]),
    ]),
    ("Control groups", [
        ("Groups with most processor time", "short",
         [(hottest(f"{rate('qmt_cgrp_cpu_seconds', GROUPS)} {WORKING}"), "{{instance}} {{path}}")]),
        ("Groups with most memory", "bytes",
         [(hottest(f"qmt_cgrp_memory_bytes{{{GROUPS}}} {WORKING}"), "{{instance}} {{path}}")]),
        ("Groups held back by their limit of time", "percentunit",
         [(hottest(per("qmt_cgrp_throttled_periods", "qmt_cgrp_periods", GROUPS)),
           "{{instance}} {{path}}")]),
        ("Groups nearest their limit of memory", "percentunit",
         [(hottest(f"qmt_cgrp_limit_ratio{{{HOST}}}"), "{{instance}} {{path}}")]),
    ]),
    ("Disks and file systems", [
        ("Time of a read or write", "s",
         [(per("qmt_disk_read_seconds", "qmt_disk_reads"), "{{instance}} {{device}} read"),
          (per("qmt_disk_write_seconds", "qmt_disk_writes"), "{{instance}} {{device}} write")]),
        ("Disks in use", "percentunit",
         [(rate("qmt_disk_in_use_seconds"), "{{instance}} {{device}}"),
          (without("qmt_disk_in_use_seconds_total",
                   f"instance_device:qmt_disk_busy:ratio{{{HOST}}}"),
           "{{instance}} {{device_name}}")]),
        ("Disk traffic", "Bps",
         [(f"{rate('qmt_disk_read_bytes')} + {rate('qmt_disk_write_bytes')}",
           "{{instance}} {{device}}"),
          (without("qmt_disk_read_bytes_total", rate("qmt_devd_io_bytes")),
           "{{instance}} {{device_name}}")]),
        ("File systems, space left", "percentunit",
         [(f"qmt_fsl_available_space_bytes{{{HOST}}} / (qmt_fsl_total_size_bytes > 0)",
           "{{instance}} {{file_system}}")]),
    ]),
    ("Network", [
        ("Network traffic", "Bps",
         [(rate("qmt_netd_in_bytes"), "{{instance}} {{interface}} in"),
          (rate("qmt_netd_out_bytes"), "{{instance}} {{interface}} out")]),
        ("Packets", "pps",
         [(f"{rate('qmt_netd_packets_in')} + {rate('qmt_netd_packets_out')}",
           "{{instance}} {{interface}}"),
          (without("qmt_netd_packets_in_total", rate("qmt_nind_pkts")),
           "{{instance}} {{interface}}")]),
        ("Packets dropped", "pps",
         [(rate("qmt_netd_drops_in"), "{{instance}} {{interface}} in"),
          (rate("qmt_netd_drops_out"), "{{instance}} {{interface}} out")]),
        ("Packets in error", "pps",
         [(f"{rate('qmt_netd_errors_in')} + {rate('qmt_netd_errors_out')}",
           "{{instance}} {{interface}}"),
          (without("qmt_netd_errors_in_total",
                   f"instance_interface:qmt_packet_errors:rate5m{{{HOST}}}"),
           "{{instance}} {{interface}}")]),
    ]),
    ("Sockets", [
        ("TCP connections", "short", [(f"qmt_sock_established{{{HOST}}}", "{{instance}}")]),
        ("TCP segments sent again", "percentunit",
         [(per("qmt_sock_retransmits", "qmt_sock_segments_out"), "{{instance}}")]),
        ("Connections not taken for a full queue", "short",
         [(rate("qmt_sock_listen_overflows"), "{{instance}}")]),
    ]),
    ("Host", [
        ("Temperatures", "celsius",
         [(f"qmt_sens_value{{{HOST}}} * on (instance, job, chip, sensor) group_left (label) "
           'qmt_sens_info{kind="temperature"}', "{{instance}} {{chip}} {{label}}")]),
        ("Bounds of the host in use", "percentunit",
         [(f"qmt_host_open_files{{{HOST}}} / (qmt_host_open_files_most > 0)",
           "{{instance}} file handles"),
          (f"qmt_host_tasks{{{HOST}}} / (qmt_host_tasks_most > 0)", "{{instance}} PIDs"),
          (f"qmt_sock_connections_tracked_ratio{{{HOST}}}", "{{instance}} tracked connections")]),
        ("Clock still to be put right", "s",
         [(f"abs(qmt_host_clock_offset_seconds{{{HOST}}})", "{{instance}}")]),
        ("Time since the start", "s",
         [(f"time() - (qmt_host_boot_time_seconds{{{HOST}}} > 0)", "{{instance}}")]),
        ("Host facts", None, [(f"qmt_host_info{{{HOST}}}", "")]),
    ]),
]


def graph(title, unit, questions):
    return {
        "title": title, "type": "timeseries",
        "datasource": {"type": "prometheus", "uid": "${datasource}"},
        "fieldConfig": {"defaults": {"unit": unit, "min": 0}, "overrides": []},
        "targets": [{"refId": chr(ord("A") + place), "expr": expression, "legendFormat": legend}
                    for place, (expression, legend) in enumerate(questions)],
    }


def table(title, questions):
    """The labels of an info metric, a line for each host."""
    [(expression, _)] = questions
    return {
        "title": title, "type": "table",
        "datasource": {"type": "prometheus", "uid": "${datasource}"},
        "targets": [{"refId": "A", "expr": expression, "format": "table", "instant": True}],
        "transformations": [{"id": "organize", "options": {
            "excludeByName": {name: True for name in HIDDEN_FACTS}}}],
    }


def placed_panels():
    """Two to a line below the title of their row; a table has a line of its own."""
    y = 0
    for row, panels in ROWS:
        yield {"title": row, "type": "row", "collapsed": False, "panels": [],
               "gridPos": {"h": 1, "w": 24, "x": 0, "y": y}}
        y += 1
        x = 0
        for title, unit, questions in panels:
            panel = table(title, questions) if unit is None else graph(title, unit, questions)
            width = 24 if unit is None else 12
            if x + width > 24:
                x, y = 0, y + 8
            panel["gridPos"] = {"h": 8, "w": width, "x": x, "y": y}
            yield panel
            x += width
        y += 8


def dashboard():
    return {
        "title": "qmtdmon", "uid": "qmtdmon", "schemaVersion": 37, "version": 1,
        "time": {"from": "now-6h", "to": "now"}, "refresh": "1m",
        "templating": {"list": [
            {"name": "datasource", "type": "datasource", "query": "prometheus"},
            {"name": "instance", "type": "query", "multi": True, "includeAll": True,
             "datasource": {"type": "prometheus", "uid": "${datasource}"},
             "query": "label_values(qmt_pi_active_cpus, instance)", "refresh": 2},
        ]},
        "panels": [{"id": number, **panel} for number, panel in enumerate(placed_panels(), 1)],
    }


def text():
    return json.dumps(dashboard(), indent=2) + "\n"


if __name__ == "__main__":
    pathlib.Path(__file__).with_name("dashboard.json").write_text(text())
