#!/usr/bin/env python3
"""Writes dashboard.json, the Grafana dashboard of a fleet, beside this file."""

import json
import pathlib

PANELS = [
    ("Processors in use", "percentunit", "instance:qmt_cpu_used:ratio{instance=~\"$instance\"}", "{{instance}}"),
    ("Memory in use", "percentunit", "instance:qmt_memory_used:ratio{instance=~\"$instance\"}", "{{instance}}"),
    ("Run queue, 1 minute", "short", "qmt_pi_1_minute_run_queue_avg{instance=~\"$instance\"}", "{{instance}}"),
    ("Disks busy", "percentunit", "instance_device:qmt_disk_busy:ratio{instance=~\"$instance\"}",
     "{{instance}} {{device_name}}"),
    ("Disk traffic", "Bps", "rate(qmt_devd_io_bytes_total{instance=~\"$instance\"}[5m])",
     "{{instance}} {{device_name}}"),
    ("Packets", "pps", "rate(qmt_nind_pkts_total{instance=~\"$instance\"}[5m])",
     "{{instance}} {{interface}}"),
    ("File systems, space left", "percentunit",
     "qmt_fsl_available_space_bytes{instance=~\"$instance\"} / (qmt_fsl_total_size_bytes > 0)",
     "{{instance}} {{file_system}}"),
    ("Processes", "short", "qmt_pds_processes{instance=~\"$instance\"}", "{{instance}}"),
    ("Memory by workgroup", "bytes", "qmt_wgrp_real_mem_bytes{instance=~\"$instance\"}",
     "{{instance}} {{workgroup}}"),
    ("Applications out of order", "short",
     "count by (instance) (qmt_app_info{instance=~\"$instance\",application_status=\"ABNORMAL\"})",
     "{{instance}}"),
    ("Duration of collection", "s", "sum by (instance) (qmt_agent_collect_seconds{instance=~\"$instance\"})",
     "{{instance}}"),
    ("Agents that answer", "short", "sum(up{job=\"qmtdmon\"})", "agents"),
]


def panel(number, title, unit, expression, legend):
    return {
        "id": number + 1, "title": title, "type": "timeseries",
        "datasource": {"type": "prometheus", "uid": "${datasource}"},
        "gridPos": {"h": 8, "w": 12, "x": 12 * (number % 2), "y": 8 * (number // 2)},
        "fieldConfig": {"defaults": {"unit": unit, "min": 0}, "overrides": []},
        "targets": [{"refId": "A", "expr": expression, "legendFormat": legend}],
    }


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
        "panels": [panel(number, *rest) for number, rest in enumerate(PANELS)],
    }


if __name__ == "__main__":
    path = pathlib.Path(__file__).with_name("dashboard.json")
    path.write_text(json.dumps(dashboard(), indent=2) + "\n")
