// Interfaces, and what the host's sockets do.
import { rows, schema } from './api.js';
import { chart } from './chart.js';
import { follow } from './events.js';
import { onlyNewer } from './newest.js';
import { failure, figures, tellTime, whenBack } from './panel.js';
import { rowPage } from './rowpage.js';
import { state } from './state.js';
import { make } from './table.js';

export const title = 'Network';

const interfaceCharts = (row) => kInterfaceCharts.filter((one) => !one.needs || row[one.needs] !== null);

const kInterfaceCharts = [
  { title: 'Bytes', unit: 'bytes/s', lines: [{ label: 'Bytes In/sec', name: 'In' }, { label: 'Bytes Out/sec', name: 'Out' }] },
  { title: 'Packets', unit: '/s', lines: [{ label: 'Packets In/sec', name: 'In' }, { label: 'Packets Out/sec', name: 'Out' }] },
  { title: 'Errors and drops', unit: '/s', lines: [{ label: 'Errors In/sec', name: 'Errors in' }, { label: 'Drops In/sec', name: 'Drops in' }, { label: 'Errors Out/sec', name: 'Errors out' }, { label: 'Drops Out/sec', name: 'Drops out' }] },
  { needs: 'Speed Mbits', title: 'Of the link’s speed', unit: 'percent', lines: [{ label: 'Speed In %', name: 'In' }, { label: 'Speed Out %', name: 'Out' }] },
];

const socketCharts = [
  { title: 'TCP connections', unit: 'number', lines: [{ label: 'Established' }, { label: 'Time Wait' }, { label: 'Close Wait' }, { label: 'Listening' }] },
  { title: 'Connections begun', unit: '/s', lines: [{ label: 'Active Opens/sec', name: 'By this host' }, { label: 'Passive Opens/sec', name: 'By others' }, { label: 'Failed Opens/sec', name: 'Failed' }, { label: 'Resets/sec', name: 'Broken off' }] },
  { title: 'TCP segments', unit: '/s', lines: [{ label: 'Segments In/sec', name: 'In' }, { label: 'Segments Out/sec', name: 'Out' }] },
  { title: 'Segments sent again', unit: 'percent', lines: [{ label: 'Retransmits %', name: 'Of those sent' }] },
  { title: 'Connections not taken', unit: '/s', lines: [{ label: 'Listen Overflows/sec', name: 'Queue full' }, { label: 'Listen Drops/sec', name: 'For any reason' }] },
  { title: 'UDP datagrams', unit: '/s', lines: [{ label: 'Datagrams In/sec', name: 'In' }, { label: 'Datagrams Out/sec', name: 'Out' }, { label: 'No Port/sec', name: 'No port' }, { label: 'Receive Buffer Errors/sec', name: 'Buffer full' }] },
];

export function show(main) {
  const leaveInterfaces = rowPage(main, {
    record: 'NETD',
    keys: ['Interface'],
    choice: 'interface',
    noun: 'interface',
    title: 'Interfaces',
    sort: 'Interface',
    empty: 'There are no interfaces.',
    columns: [
      { label: 'Interface', opens: true, isNumeric: false }, 'State', 'IP Address', 'IPv6 Address', { label: 'Speed Mbits', heading: 'Mbit/s' }, { label: 'Bytes In/sec', heading: 'Bytes in' },
      { label: 'Bytes Out/sec', heading: 'Bytes out' }, { label: 'Packets In/sec', heading: 'Packets in' }, { label: 'Packets Out/sec', heading: 'Packets out' }, { label: 'Errors In/sec', heading: 'Errors in' },
      { label: 'Errors Out/sec', heading: 'Errors out' }, { label: 'Drops In/sec', heading: 'Drops in' }, { label: 'Drops Out/sec', heading: 'Drops out' }, { label: 'Speed In %', heading: 'In %' }, { label: 'Speed Out %', heading: 'Out %' },
    ],
    charts: interfaceCharts,
    allCharts: [
      { title: 'Bytes in', unit: 'bytes/s', lines: [{ label: 'Bytes In/sec' }] },
      { title: 'Bytes out', unit: 'bytes/s', lines: [{ label: 'Bytes Out/sec' }] },
    ],
  });
  const leaveSockets = sockets(main);
  return () => {
    leaveInterfaces();
    leaveSockets();
  };
}

/// SOCK has one row, so its charts stand there at once.
function sockets(main) {
  const abort = new AbortController();
  const part = make('section', 'part');
  const head = make('div', 'part-head');
  const time = make('span', 'dim');
  head.append(make('h2', 'part-title', 'Sockets'), time);
  part.append(head);
  part.setAttribute('aria-label', 'Sockets');
  main.append(part);
  const charts = [];
  let stop = null;
  const start = async () => {
    const ask = () => rows('SOCK', { signal: abort.signal });
    const [layout, answer] = await Promise.all([schema('SOCK'), ask()]);
    if (abort.signal.aborted) return;
    const grid = make('div', 'charts');
    part.append(grid);
    for (const one of socketCharts) charts.push(chart(grid, { ...one, lines: one.lines.map((line) => ({ record: 'SOCK', by: [], ...line })) }));
    const all = make('details', 'more');
    all.append(make('summary', '', 'All figures of the sockets'));
    part.append(all);
    const told = figures(all, layout, answer.rows[0] ?? {});
    tellTime(time, answer.time);
    if (state.at !== null) return;
    const newer = onlyNewer((next) => {
      tellTime(time, next.time);
      told.update(next.rows[0] ?? {});
    }, answer.time);
    const anew = () => {
      newer.forget();
      // The banner tells of a gate that does not answer; the next run brings the figures.
      ask().then(newer, () => {});
    };
    stop = follow('SOCK', newer, { onGap: anew });
  };
  const begin = () => start().catch((error) => {
    if (abort.signal.aborted) return;
    const note = failure(part, 'SOCK', error);
    if (!note || state.at !== null) return;
    stop = whenBack('SOCK', error, () => {
      note.remove();
      begin();
    });
  });
  begin();
  return () => {
    abort.abort();
    stop?.();
    for (const one of charts) one.destroy();
    part.remove();
  };
}
