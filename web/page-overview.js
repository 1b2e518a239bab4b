// The host at a glance: the figures of now, small multiples of the last hour, and who loads it most.
import { schedules } from './api.js';
import { chart } from './chart.js';
import { applications, fileSystems, figuresOfNow } from './overview-now.js';
import { topProcesses } from './overview-top.js';

export const title = 'Overview';

const kAll = 'Processor=all';

function line(record, label, name, more = {}) {
  return { record, label, name, ...more };
}

/// Charts, each by the first of its records that is scheduled.
const kCharts = [
  {
    title: 'Processor use',
    unit: 'percent',
    stacked: true,
    max: 100,
    ways: [
      [['User', 'programs'], ['Nice', 'niced'], ['System', 'kernel'], ['IRQ', 'interrupts'], ['Soft IRQ', 'soft interrupts'], ['Steal', 'stolen'], ['Wait', 'waiting for I/O']].map(([mode, name]) => line('CPUX', `${mode} %`, name, { where: kAll, by: [] })),
      [line('PI', 'User CPU %', 'programs'), line('PI', 'Kernel CPU %', 'kernel'), line('PI', 'Wait %', 'waiting for I/O')],
    ],
  },
  {
    title: 'Run queue',
    unit: 'number',
    note: 'tasks',
    ways: [[line('PI', 'Run Queue', 'now'), line('PI', '1-Minute Run Queue Avg', 'load, 1 min'), line('PI', '5-Minute Run Queue Avg', 'load, 5 min'), line('PI', '15-Minute Run Queue Avg', 'load, 15 min')]],
  },
  {
    title: 'Memory',
    unit: 'bytes',
    stacked: true,
    ways: [
      [line('MEMD', 'Anonymous Mbytes', 'anonymous'), line('MEMD', 'Slab Mbytes', 'kernel slab'), line('MEMD', 'Page Tables Mbytes', 'page tables'), line('MEMD', 'Buffers Mbytes', 'buffers'), line('MEMD', 'Cached Mbytes', 'cached'), line('MEMD', 'Free Mbytes', 'free')],
      [line('PI', 'Alloc Mem Mbytes', 'in use'), line('PI', 'Free Mem Mbytes', 'available')],
    ],
  },
  { title: 'Pressure', unit: 'percent', note: 'time in which some task was stalled', ways: [[line('PRES', 'Some Stalled %')]] },
  {
    title: 'Disk throughput',
    unit: 'bytes/s',
    ways: [
      // The host's own figures are in Kbytes, which their labels do not say.
      [line('PI', 'Block Reads/sec', 'read', { transform: (v) => v * 1024 }), line('PI', 'Block Writes/sec', 'written', { transform: (v) => v * 1024 })],
      [line('DISK', 'Read Bytes/sec', 'read'), line('DISK', 'Write Bytes/sec', 'written')],
    ],
  },
  { title: 'Network throughput', unit: 'bytes/s', note: 'loopback left out', ways: [[line('NETD', 'Bytes In/sec', 'in', { where: 'Interface!=lo' }), line('NETD', 'Bytes Out/sec', 'out', { where: 'Interface!=lo' })]] },
];

export function show(main) {
  const stops = [];
  stops.push(figuresOfNow(main));
  const charts = document.createElement('section');
  charts.className = 'charts';
  charts.setAttribute('aria-label', 'Charts');
  main.append(charts);
  let isLeft = false;
  // Which record draws a chart hangs on the schedules; if they can't be told, the first is tried.
  schedules().catch(() => new Map()).then((known) => {
    if (isLeft) return;
    for (const { ways, ...options } of kCharts) {
      const lines = ways.find((way) => known.has(way[0].record)) ?? ways[0];
      const made = chart(charts, { ...options, lines });
      stops.push(() => made.destroy());
    }
    for (const make of [fileSystems, topProcesses, applications]) stops.push(make(charts));
  });
  return () => {
    isLeft = true;
    for (const stop of stops) stop();
  };
}
