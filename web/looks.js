// Looks at all processes. A counter of two looks becomes a rate; a process is known by its number and its start, as numbers
// come again.
import { ask, rows as askRows } from './api.js';
import { state } from './state.js';

const kColumns = [
  'PID', 'Start Time', 'Name', 'User', 'State', 'Control Group', 'Unit', 'Threads', 'User Seconds', 'System Seconds', 'Anonymous Bytes', 'File Bytes', 'Shared Bytes', 'Storage Read Bytes',
  'Storage Write Bytes',
];
const kKeptColumns = ['PID', 'Start Time', 'Parent PID', 'CPU % Each'];
// Workgroups change when the site says so or a process begins; the report costs more than a look.
const kWorkgroupsLife = 15000;

export const keyOf = (row) => `${row.PID}@${row['Start Time']}`;

/// The conditions that choose one process, from its key.
export function whereOf(key) {
  const [pid, start] = key.split('@');
  return [`PID=${pid}`, `Start Time=${start}`];
}

export class Looks {
  constructor() {
    this.before = new Map();
    this.beforeTime = 0;
    this.workgroups = new Map();
    this.workgroupsTime = -Infinity;
  }

  /// {time, rows}: all processes now, or as they were kept nearest to the page's time. `needs` says what else a view is to show:
  /// 'tree' or 'workgroup'.
  async look(needs, signal) {
    const isPast = state.at !== null;
    // Kept rows of PDI tell what a process used in its interval; now the difference of two looks does.
    const wantsOther = isPast || needs === 'tree';
    const [answer, other] = await Promise.all([
      askRows('PDX', { live: !isPast, columns: kColumns, signal }),
      wantsOther ? askRows('PDI', { live: !isPast, columns: kKeptColumns, signal }).catch((error) => noRows(error)) : { rows: [] },
      needs === 'workgroup' && !isPast ? this.askWorkgroups(signal) : null,
    ]);
    const others = new Map(other.rows.map((row) => [keyOf(row), row]));
    const now = performance.now() / 1000;
    const seconds = now - this.beforeTime;
    const rows = answer.rows.map((row) => this.made(row, others.get(keyOf(row)), seconds, isPast));
    this.before = new Map(rows.map((row) => [keyOf(row), row]));
    this.beforeTime = now;
    return { time: answer.time, rows };
  }

  made(row, other, seconds, isPast) {
    const before = isPast ? null : this.before.get(keyOf(row));
    row['CPU Seconds'] = sum([row['User Seconds'], row['System Seconds']]);
    row['Memory Bytes'] = sum([row['Anonymous Bytes'], row['File Bytes'], row['Shared Bytes']]);
    row['Parent PID'] = other?.['Parent PID'] ?? null;
    row['CPU %'] = isPast ? other?.['CPU % Each'] ?? null : scaled(rateOf(row, before, 'CPU Seconds', seconds), 100);
    row['Read Bytes/sec'] = rateOf(row, before, 'Storage Read Bytes', seconds);
    row['Write Bytes/sec'] = rateOf(row, before, 'Storage Write Bytes', seconds);
    row.Workgroup = this.workgroups.get(String(row.PID)) ?? null;
    return row;
  }

  async askWorkgroups(signal) {
    if (performance.now() - this.workgroupsTime < kWorkgroupsLife) return;
    const { report } = await ask('workgroups', {}, { signal });
    const [pid, group] = [report.columns.indexOf('PID'), report.columns.indexOf('Workgroup')];
    this.workgroups = new Map(report.rows.map((row) => [row[pid], row[group]]));
    this.workgroupsTime = performance.now();
  }
}

function noRows(error) {
  if (error.name === 'AbortError') throw error;
  return { rows: [] };
}

/// The sum of what is there, nothing if nothing is.
export function sum(values) {
  const there = values.filter((value) => typeof value === 'number');
  return there.length ? there.reduce((a, b) => a + b, 0) : null;
}

function scaled(value, factor) {
  return value === null ? null : value * factor;
}

/// A counter's growth a second; nothing without a look before, and 0 where a counter fell by rounding.
function rateOf(row, before, label, seconds) {
  const [now, then] = [row[label], before?.[label]];
  if (typeof now !== 'number' || typeof then !== 'number' || seconds <= 0) return null;
  return Math.max(0, now - then) / seconds;
}
