// The processes that use the processors most: what they used between two looks.
import { rows, schedules } from './api.js';
import { card, element, reason } from './card.js';
import { bytes, percent } from './format.js';
import { keyOf, sum } from './looks.js';
import { link, state } from './state.js';
import { table } from './table.js';

const kPause = 5000;
const kFirstPause = 1500;
const kMost = 5;
const kNote = 'between two looks, 100 % is one processor';
const kColumns = ['PID', 'Start Time', 'Name', 'User', 'User Seconds', 'System Seconds', 'Anonymous Bytes', 'File Bytes', 'Shared Bytes'];

const usedBy = (row) => sum([row['User Seconds'], row['System Seconds']]);

/// Rows of the second look with "CPU %", of one processor; a process that is new counts from its start.
function compared(before, after, seconds) {
  if (seconds <= 0) return [];
  const known = new Map(before.rows.map((row) => [keyOf(row), usedBy(row)]));
  const all = after.rows.map((row) => {
    const [now, then] = [usedBy(row), known.get(keyOf(row)) ?? (row['Start Time'] >= before.time ? 0 : null)];
    const size = sum([row['Anonymous Bytes'], row['File Bytes'], row['Shared Bytes']]);
    return { ...row, cpu: now === null || then === null || now < then ? null : ((now - then) / seconds) * 100, size };
  });
  return all.filter((row) => row.cpu !== null).sort((a, b) => b.cpu - a.cpu).slice(0, kMost);
}

function build(parent) {
  const { body, head, section } = card(parent, 'Processes by processor time', 'processes');
  const note = element(head, 'span', 'chart-note', kNote);
  const list = table(body, {
    caption: 'Processes that use the processors most',
    empty: 'Waiting for the second look',
    columns: [
      { label: 'Name', heading: 'Program', opens: true },
      { label: 'PID', isNumeric: true },
      { label: 'User' },
      { label: 'cpu', heading: 'CPU %', isNumeric: true, format: percent },
      { label: 'size', heading: 'Memory', isNumeric: true, format: bytes, help: 'Anonymous Bytes, File Bytes and Shared Bytes' },
    ],
    rows: [],
    keyOf,
    sort: '-cpu',
    onOpen: (row) => {
      location.hash = link({ page: 'processes', choice: { process: keyOf(row) } });
    },
  });
  return { list, note, section };
}

export function topProcesses(parent) {
  const { list, note, section } = build(parent);
  const abort = new AbortController();
  const { signal } = abort;
  let timer = 0;
  const fail = (error) => {
    const why = reason('PDX', error);
    if (why) note.textContent = why;
  };
  let before = null;
  const look = async () => {
    clearTimeout(timer);
    if (document.hidden || signal.aborted) return;
    let pause = kPause;
    try {
      const after = await rows('PDX', { live: true, columns: kColumns, signal });
      // The answer's time is in whole seconds, too coarse for a short while.
      after.clock = performance.now() / 1000;
      if (before) list.update(compared(before, after, after.clock - before.clock));
      // The second look comes soon, as the first alone tells nothing.
      else pause = kFirstPause;
      before = after;
      note.textContent = kNote;
    } catch (error) {
      fail(error);
    }
    if (!signal.aborted) timer = setTimeout(look, pause);
  };
  const seen = () => {
    before = null;
    look();
  };
  if (state.at === null) {
    document.addEventListener('visibilitychange', seen);
    look();
  } else {
    lookBack(signal).then((found) => list.update(found, { empty: 'No two kept looks around this time' }), fail);
  }
  return () => {
    document.removeEventListener('visibilitychange', seen);
    abort.abort();
    clearTimeout(timer);
    list.destroy();
    section.remove();
  };
}

/// The kept rows nearest to the page's time, compared with those of the run before.
async function lookBack(signal) {
  const after = await rows('PDX', { columns: kColumns, signal });
  const seconds = (await schedules()).get('PDX') ?? 60;
  const before = await rows('PDX', { at: after.time - seconds, columns: kColumns, signal });
  return after.time && before.time ? compared(before, after, after.time - before.time) : [];
}
