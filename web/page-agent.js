// How the agent itself is doing: its schedules, what they cost, its history, its messages, and the gate.
import { ask, keptRows, status } from './api.js';
import { card, element, reason } from './card.js';
import { follow } from './events.js';
import { bytes, duration, number, timeNode } from './format.js';
import { state } from './state.js';
import { table } from './table.js';

export const title = 'Agent';

const kLines = 200;
const kLeastPause = 10000;

function pairs(parent, list) {
  const node = element(parent, 'dl', 'pairs');
  for (const [name, value] of list) {
    element(node, 'dt', '', name);
    const cell = element(node, 'dd');
    cell.append(value === null || value === undefined || value === '' ? '-' : value);
  }
}

function schedulesTable(parent) {
  return table(parent, {
    caption: 'Schedules',
    columns: [
      { label: 'record', heading: 'Record' },
      { label: 'seconds', heading: 'Every', isNumeric: true, format: duration },
      { label: 'runs', heading: 'Runs', isNumeric: true, format: number },
      { label: 'rows', heading: 'Rows', isNumeric: true, format: number, help: 'Of the last run' },
      { label: 'skipped', heading: 'Left out', isNumeric: true, format: number, help: 'Times that were left out because the batch before was not done' },
      { label: 'last_time', heading: 'Last run', format: (t) => (t ? timeNode(t) : '-') },
      { label: 'kept', heading: 'Kept since', format: (t) => (t ? timeNode(t) : '-'), help: 'The oldest rows of the history' },
    ],
    rows: [],
    keyOf: (row) => `${row.category} ${row.record}`,
    sort: '',
  });
}

/// The figures of categories come as collect_NAME_errors and so on; each category becomes a row.
function categories(figures) {
  const all = new Map();
  for (const { name, value } of figures) {
    const match = /^(?:collect|category)_(.+)_(seconds|errors|failed|supported|entities)$/.exec(name);
    if (!match) continue;
    if (!all.has(match[1])) all.set(match[1], { category: match[1].replaceAll('_', ' ') });
    all.get(match[1])[match[2]] = value;
  }
  const found = [...all.values()].filter((row) => row.seconds !== undefined);
  // A category that nothing has asked for yet took no time, which is not the same as a quick one.
  return found.map((row) => (row.seconds === 0 ? { ...row, seconds: null, entities: null } : row));
}

function categoriesTable(parent) {
  return table(parent, {
    caption: 'Categories of figures',
    columns: [
      { label: 'category', heading: 'Category' },
      { label: 'seconds', heading: 'Last took', isNumeric: true, format: duration, help: 'How long the last collection took' },
      { label: 'entities', heading: 'Rows', isNumeric: true, format: number, help: 'Held after the last collection' },
      { label: 'errors', heading: 'Errors', isNumeric: true, format: number, help: 'Failed collections since the agent started' },
      { label: 'failed', heading: 'Last', format: (v, row) => (v ? 'failed' : row.seconds ? 'good' : '-') },
      { label: 'supported', heading: 'On this host', format: (v) => (v ? 'yes' : 'no') },
    ],
    rows: [],
    keyOf: (row) => row.category,
    sort: '-seconds',
    filter: 'Filter categories',
  });
}

function messagesTable(parent) {
  return table(parent, {
    caption: 'Messages, newest first',
    empty: 'There are no messages.',
    columns: [
      { label: 'time', heading: 'Time', format: (t) => timeNode(t) },
      { label: 'level', heading: 'Level' },
      { label: 'text', heading: 'Message' },
    ],
    rows: [],
    keyOf: (row) => row.place,
    filter: 'Filter messages',
  });
}

/// How far back each record goes is asked once, as only the oldest rows go.
function drawSchedules(schedules, parts) {
  const draw = () => parts.schedules.update(schedules.map((one) => ({ ...one, kept: parts.oldest.get(one.record) ?? null })));
  draw();
  for (const { record } of schedules) {
    if (parts.oldest.has(record)) continue;
    parts.oldest.set(record, null);
    keptRows(record, { columns: ['Record Time'], limit: 1, signal: parts.signal }).then(([row]) => {
      parts.oldest.set(record, row?.['Record Time'] ?? null);
      draw();
    }, () => {});
  }
}

function drawStatus(told, parts) {
  drawSchedules(told.schedules, parts);
  parts.categories.update(categories(told.figures));
  parts.self.replaceChildren();
  const batch = told.last_batch;
  pairs(parts.self, [
    ['Version', told.version],
    ['Process', String(told.pid)],
    ['Node', told.node],
    ['Up for', duration(told.uptime_seconds)],
    ['Host profile', told.facts?.host_profile],
    ['Process source', [told.facts?.process_source, told.facts?.process_source_reason].filter(Boolean).join(': ')],
    ['Last batch', batch ? `${duration(batch.age_seconds)} ago, took ${duration(batch.duration_seconds)}, ${number(batch.records)} records, ${number(batch.errors)} errors` : 'none yet'],
  ]);
  const { file, size_bytes: size, lost_batches: lost } = told.history;
  parts.history.body.replaceChildren();
  pairs(parts.history.body, file ? [['File', file], ['Size', bytes(size)], ['Batches that could not be kept', number(lost)]] : [['File', 'none is kept']]);
}

/// The gate's answer as names and values, whatever it holds.
function drawGate(told, parent) {
  parent.replaceChildren();
  const list = [];
  for (const [name, value] of Object.entries(told)) {
    if (Array.isArray(value)) list.push([name, value.map((one) => (one && typeof one === 'object' ? JSON.stringify(one) : String(one))).join(', ')]);
    else if (value && typeof value === 'object') list.push([name, JSON.stringify(value)]);
    else list.push([name, value === null ? null : String(value)]);
  }
  pairs(parent, list.map(([name, value]) => [name.replaceAll('_', ' '), value]));
}

function drawLog(told, log) {
  const rows = told.map((row, place) => ({ ...row, place: `${place} ${row.time}` })).reverse();
  if (state.at === null) log.update(rows);
  else log.update(rows.filter((row) => row.time <= state.at), { empty: 'The agent has no messages of that time any more, or there were none.' });
}

export function show(main) {
  const top = element(main, 'div', 'charts');
  const agent = card(top, 'Agent');
  const gate = card(top, 'Gate');
  const history = card(top, 'History');
  const tables = element(main, 'div', 'charts is-wide');
  const schedules = card(tables, 'Schedules');
  const collections = card(tables, 'Collections');
  const messages = card(main, 'Messages');
  if (state.at !== null) {
    for (const one of [agent, gate, history, schedules, collections]) element(one.head, 'span', 'chart-note', 'as it is now, not at the time above');
    element(messages.head, 'span', 'chart-note', 'up to the time above, as far as the agent still has them');
  }
  const abort = new AbortController();
  const { signal } = abort;
  const parts = {
    self: agent.body,
    history,
    schedules: schedulesTable(schedules.body),
    categories: categoriesTable(collections.body),
    oldest: new Map(),
    signal,
  };
  const log = messagesTable(messages.body);
  const failed = (parent) => (error) => {
    const why = reason('', error);
    if (!why) return;
    parent.querySelector('.note.bad')?.remove();
    element(parent, 'p', 'note bad', why);
  };
  let asked = 0;
  const look = () => {
    // Batches tell when there is something new; several of them in a row ask once.
    if (signal.aborted || Date.now() - asked < kLeastPause) return;
    asked = Date.now();
    status().then((told) => drawStatus(told, parts), failed(agent.body));
    ask('log', { lines: kLines }, { signal }).then((told) => drawLog(told.log, log), failed(messages.body));
    ask('gate', {}, { signal }).then((told) => drawGate(told.gate, gate.body), failed(gate.body));
  };
  look();
  const stop = follow('PI', () => {}, { onBatch: look, isFresh: true });
  return () => {
    abort.abort();
    stop();
  };
}
