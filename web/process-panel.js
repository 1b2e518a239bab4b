// One process beside the table: its command line, its workgroup and why, its history and all its figures.
import { ask, rows as askRows, schema } from './api.js';
import { chart } from './chart.js';
import { timeNode } from './format.js';
import { whereOf } from './looks.js';
import { figures, panel } from './panel.js';
import { state } from './state.js';
import { make } from './table.js';

const kElsewhere = ['Command Line', 'Argument List', 'Name', 'Program', 'Start Time'];

function charts(where) {
  const of = (record, lines) => lines.map((line) => ({ record, where, by: [], ...line }));
  const kbytes = (v) => v * 1024;
  return [
    { title: 'Processor, percent of one', unit: 'percent', lines: of('PDI', [{ label: 'CPU % Each', name: 'Use' }]).concat(of('PDX', [{ label: 'Run Delay %', name: 'Waited to run' }])) },
    { title: 'Memory', unit: 'bytes', stacked: true, lines: of('PDX', [{ label: 'Anonymous Bytes', name: 'Anonymous' }, { label: 'File Bytes', name: 'File' }, { label: 'Shared Bytes', name: 'Shared' }, { label: 'Swap Bytes', name: 'Swapped out' }]) },
    { title: 'Calls that read and write', unit: 'bytes/s', lines: of('PDI', [{ label: 'Throughput/sec', name: 'Throughput', transform: kbytes }]) },
    { title: 'Threads and open files', unit: 'number', lines: of('PDX', [{ label: 'Threads' }, { label: 'Open Files', name: 'Files' }]) },
  ];
}

/// Opens the panel for a key of looks.js. Gives {renew(), close()}; `onParent(pid)` opens another process.
export function processPanel(parent, { key, row, onClose, onParent }) {
  const pid = key.split('@')[0];
  const self = { key, pid, where: whereOf(key), onParent, abort: new AbortController(), parts: {} };
  self.panel = panel(parent, { title: row ? `${row.Name} ${pid}` : `Process ${pid}`, onClose });
  build(self);
  renew(self);
  return {
    renew: () => renew(self),
    close() {
      self.abort.abort();
      for (const one of self.charts) one.destroy();
      self.panel.close();
    },
  };
}

function build(self) {
  const { body } = self.panel;
  self.ended = make('p', 'note');
  self.ended.hidden = true;
  self.command = make('code', 'command-line', '-');
  self.command.tabIndex = 0;
  self.command.setAttribute('aria-label', 'Command line');
  self.place = make('dl', 'pairs');
  const box = make('div', 'panel-charts');
  self.more = make('div');
  self.interval = make('details', 'more');
  self.interval.append(make('summary', '', 'What it did in the last kept interval'));
  body.append(self.ended, make('h3', 'group', 'Command line'), self.command, self.place, box, self.more, self.interval);
  self.charts = charts(self.where).map((one) => chart(box, { height: 110, ...one }));
}

function pair(self, name, ...values) {
  const value = make('dd');
  value.append(...values);
  self.place.append(make('dt', '', name), value);
  return value;
}

/// Figures of now, or of the page's time.
async function renew(self) {
  const options = { where: self.where, signal: self.abort.signal };
  const isPast = state.at !== null;
  try {
    const [near, far] = await Promise.all([askRows('PDX', { live: !isPast, ...options }), lastOf(options)]);
    const [xSchema, iSchema] = await Promise.all([schema('PDX'), schema('PDI')]);
    if (self.abort.signal.aborted) return;
    tell(self, near.rows[0], xSchema, 'PDX');
    tell(self, far.rows[0], iSchema, 'PDI');
    if (near.rows[0]) tellWorkgroup(self);
    self.ended.hidden = Boolean(near.rows[0]);
    self.ended.textContent = isPast ? 'It is not among the processes kept at this time.' : 'It has ended. The figures are its last ones that were seen here.';
  } catch (error) {
    if (self.abort.signal.aborted) return;
    self.ended.hidden = false;
    self.ended.textContent = `Its figures can't be asked for: ${error.message}.`;
  }
}

async function lastOf(options) {
  try {
    return await askRows('PDI', options);
  } catch (error) {
    if (error.code !== 'not-scheduled') throw error;
    return askRows('PDI', { live: true, ...options });
  }
}

function tell(self, row, layout, record) {
  if (!row) return;
  if (record === 'PDX') {
    const text = row['Command Line'];
    self.command.textContent = text === null ? 'The gate does not tell arguments.' : text || `[${row.Name}] has none; it may be a thread of the kernel.`;
  } else {
    tellParent(self, row['Parent PID']);
  }
  if (self.parts[record]) {
    self.parts[record].update(row);
    return;
  }
  self.parts[record] = figures(record === 'PDX' ? self.more : self.interval, layout, row, { hide: kElsewhere });
  if (record === 'PDX') pair(self, 'Started', timeNode(row['Start Time']));
}

function tellParent(self, pid) {
  if (self.parent === pid) return;
  self.parent = pid;
  self.parentCell ??= pair(self, 'Parent');
  if (!pid) {
    self.parentCell.textContent = pid === 0 ? 'none' : '-';
    return;
  }
  const button = make('button', 'plain', String(pid));
  button.type = 'button';
  button.addEventListener('click', () => self.onParent(pid));
  self.parentCell.replaceChildren(button);
}

/// The workgroup and the rule that took it, as the agent's report tells now. It is asked once, and only while the process is
/// there: the report has a fault for one that is not.
async function tellWorkgroup(self) {
  if (state.at !== null || self.isTold) return;
  self.isTold = true;
  try {
    const { report } = await ask('workgroups', { pid: self.pid }, { signal: self.abort.signal });
    const row = report.rows[0];
    if (!row) return;
    const of = (name) => row[report.columns.indexOf(name)] ?? '';
    pair(self, 'Workgroup', of('Workgroup') || '-');
    pair(self, 'Taken by', of('Rule') || 'no rule; it belongs to what is left over');
    if (of('Also In')) pair(self, 'Also in', of('Also In'));
  } catch {
    // A process that ended meanwhile is in no workgroup.
  }
}
