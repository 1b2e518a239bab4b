// The newest rows on the overview: single figures, file systems and applications. Each figure tells in data attributes
// which value it shows, raw and of what time, so that it can be compared with what the agent answers.
import { rows } from './api.js';
import { card, element, reason } from './card.js';
import { follow } from './events.js';
import { bytes, duration, number, percent, rate, timeNode } from './format.js';
import { current, onlyNewer } from './newest.js';
import { state } from './state.js';

const kMostBars = 8;
const kHigh = 80;
const kFull = 92;
const kMbyte = 1048576;

/// The figures in the order of their places; the first record that is scheduled gives a figure.
const kFigures = [
  { name: 'Processor use', record: 'PI', label: 'CPU %', format: percent },
  { name: 'Run queue', record: 'PI', label: 'Run Queue', format: number },
  { name: 'Memory available', record: 'PI', label: 'Free Mem Mbytes', format: (v) => bytes(v * kMbyte) },
  { name: 'Memory in use', record: 'PI', label: 'Alloc Mem %', format: percent },
  { name: 'Swap in use', record: 'PI', label: 'Alloc Swap Mbytes', format: (v) => bytes(v * kMbyte) },
  { name: 'Processor pressure', record: 'PRES', label: 'Some Stalled %', key: ['Resource', 'cpu'], format: percent },
  { name: 'Memory pressure', record: 'PRES', label: 'Some Stalled %', key: ['Resource', 'memory'], format: percent },
  { name: 'I/O pressure', record: 'PRES', label: 'Some Stalled %', key: ['Resource', 'io'], format: percent },
  { name: 'Read from disks', record: 'PI', label: 'Block Reads/sec', format: (v) => rate(v * 1024, 'bytes') },
  { name: 'Written to disks', record: 'PI', label: 'Block Writes/sec', format: (v) => rate(v * 1024, 'bytes') },
  { name: 'Processes', record: 'PI', label: 'Processes', format: number },
  { name: 'Up for', record: 'PI', label: 'Boot Time', format: (v, time) => duration(time - v) },
];

/// Asks for the newest rows of a record (or those of the page's time) and shows each later run of it. `askFor` is rows() or
/// current().
function newest(record, choice, take, fail, askFor = rows) {
  const abort = new AbortController();
  const show = onlyNewer((told) => take(told.time, told.rows));
  const ask = () => askFor(record, { ...choice, signal: abort.signal }).then(show, fail);
  const askAnew = () => {
    show.forget();
    ask();
  };
  ask();
  const stop = state.at === null ? follow(record, show, { onGap: askAnew }) : null;
  return () => {
    abort.abort();
    stop?.();
  };
}

export function figuresOfNow(parent) {
  const section = element(parent, 'section', '');
  section.setAttribute('aria-label', 'Newest figures');
  const list = element(section, 'dl', 'nows');
  const asOf = element(section, 'p', 'as-of-rows dim');
  const places = kFigures.map((figure) => {
    const place = element(list, 'div', 'now');
    element(place, 'dt', '', figure.name);
    const value = element(place, 'dd', '', '-');
    value.dataset.record = figure.record;
    value.dataset.label = figure.label;
    if (figure.key) value.dataset.key = figure.key.join('=');
    return { figure, value };
  });
  const take = (record, time, found) => {
    for (const { figure, value } of places) if (figure.record === record) put(value, figure, time, found);
    if (record === 'PI' && time) asOf.replaceChildren(state.at === null ? 'Newest figures of ' : 'Figures of ', timeNode(time));
  };
  const fail = (record) => (error) => {
    const why = reason(record, error);
    if (why) element(section, 'p', 'note', why);
  };
  const stops = ['PI', 'PRES'].map((record) => {
    const columns = kFigures.filter((one) => one.record === record).flatMap((one) => [one.label, ...(one.key ? [one.key[0]] : [])]);
    return newest(record, { columns: [...new Set(columns)] }, (time, found) => take(record, time, found), fail(record));
  });
  return () => {
    for (const stop of stops) stop();
  };
}

function put(value, figure, time, found) {
  const row = figure.key ? found.find((one) => one[figure.key[0]] === figure.key[1]) : found[0];
  const raw = row?.[figure.label] ?? null;
  value.textContent = raw === null ? '-' : figure.format(raw, time);
  value.dataset.value = JSON.stringify(raw);
  value.dataset.time = String(time);
}

const noRows = () => (state.at === null ? 'There are no rows yet.' : 'No rows are kept around this time.');

export function fileSystems(parent) {
  const { body, section } = card(parent, 'File systems', 'filesystems');
  const list = element(body, 'div', 'bars');
  const note = element(body, 'p', 'note');
  const columns = ['File System', 'Total Size Mbytes', 'Available Space Mbytes', 'Mbytes in Use %'];
  const take = (time, found) => {
    const shown = found.filter((row) => row['Total Size Mbytes'] > 0 && row['Mbytes in Use %'] !== null);
    shown.sort((a, b) => b['Mbytes in Use %'] - a['Mbytes in Use %']);
    list.replaceChildren();
    for (const row of shown.slice(0, kMostBars)) bar(list, row, time);
    note.textContent = shown.length > kMostBars ? `and ${shown.length - kMostBars} more` : time ? '' : noRows();
  };
  const stop = newest('FSL', { columns }, take, (error) => {
    note.textContent = reason('FSL', error) ?? '';
  });
  return () => {
    stop();
    section.remove();
  };
}

function bar(parent, row, time) {
  const used = row['Mbytes in Use %'];
  const one = element(parent, 'div', 'bar');
  element(one, 'span', 'bar-name', row['File System']).title = row['File System'];
  const value = element(one, 'span', '', `${percent(used)}, ${bytes(row['Available Space Mbytes'] * kMbyte)} left`);
  Object.assign(value.dataset, { record: 'FSL', label: 'Mbytes in Use %', key: `File System=${row['File System']}`, value: JSON.stringify(used), time: String(time) });
  const fill = element(element(one, 'div', 'bar-track'), 'div', used >= kFull ? 'bar-fill is-full' : used >= kHigh ? 'bar-fill is-high' : 'bar-fill');
  fill.style.width = `${Math.max(0, Math.min(100, used))}%`;
}

export function applications(parent) {
  const { body, section } = card(parent, 'Applications', 'applications');
  const list = element(body, 'ul', 'bars');
  const note = element(body, 'p', 'note');
  const take = (time, found) => {
    const order = (row) => ['ABNORMAL', 'NONE'].indexOf(row['Application Status']) >>> 0;
    found.sort((a, b) => order(a) - order(b));
    list.replaceChildren();
    for (const row of found.slice(0, kMostBars)) verdict(list, row, time);
    note.textContent = found.length ? '' : time ? 'No application is defined.' : noRows();
    if (found.length > kMostBars) note.textContent = `and ${found.length - kMostBars} more`;
  };
  const fail = (error) => {
    note.textContent = reason('APP', error) ?? '';
  };
  const stop = newest('APP', { columns: ['Application Name', 'Application Status'] }, take, fail, current);
  return () => {
    stop();
    section.remove();
  };
}

function verdict(parent, row, time) {
  const status = row['Application Status'];
  const one = element(parent, 'li', 'bar');
  element(one, 'span', 'bar-name', row['Application Name']);
  const kind = { NORMAL: 'good', ABNORMAL: 'bad' }[status] ?? 'dim';
  const value = element(one, 'span', `verdict ${kind}`, status || '-');
  Object.assign(value.dataset, { record: 'APP', label: 'Application Status', key: `Application Name=${row['Application Name']}`, value: JSON.stringify(status), time: String(time) });
}
