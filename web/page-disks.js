// Block devices: what they do now, and one of them over time.
import { rowPage } from './rowpage.js';

export const title = 'Disks';

const charts = () => [
  { title: 'Throughput', unit: 'bytes/s', lines: [{ label: 'Read Bytes/sec', name: 'Read' }, { label: 'Write Bytes/sec', name: 'Written' }] },
  { title: 'Operations', unit: '/s', lines: [{ label: 'Reads/sec', name: 'Reads' }, { label: 'Writes/sec', name: 'Writes' }, { label: 'Flushes/sec', name: 'Flushes' }, { label: 'Discards/sec', name: 'Discards' }] },
  { title: 'Time of an operation', unit: 'duration', lines: [{ label: 'Avg Read Seconds', name: 'Read' }, { label: 'Avg Write Seconds', name: 'Write' }, { label: 'Avg Flush Seconds', name: 'Flush' }] },
  { title: 'In use', unit: 'percent', max: 100, lines: [{ label: 'In Use %', name: 'In use' }] },
  { title: 'Operations under way', unit: 'number', lines: [{ label: 'Avg Queue Length', name: 'Mean' }] },
];

export function show(main) {
  return rowPage(main, {
    record: 'DISK',
    keys: ['Device'],
    choice: 'disk',
    noun: 'device',
    caption: 'Block devices',
    sort: 'Device',
    filter: 'Filter devices',
    empty: 'There are no block devices.',
    columns: [
      { label: 'Device', opens: true, isNumeric: false }, 'Name', 'Kind', 'Model', { label: 'Size Bytes', heading: 'Size' }, { label: 'Read Bytes/sec', heading: 'Bytes read' }, { label: 'Write Bytes/sec', heading: 'Bytes written' },
      { label: 'Reads/sec', heading: 'Reads' }, { label: 'Writes/sec', heading: 'Writes' }, { label: 'Avg Read Seconds', heading: 'Time of a read' }, { label: 'Avg Write Seconds', heading: 'Time of a write' },
      { label: 'Avg Queue Length', heading: 'Under way' }, 'In Use %', 'Errors',
    ],
    charts,
    allCharts: [
      { title: 'Read', unit: 'bytes/s', lines: [{ label: 'Read Bytes/sec' }] },
      { title: 'Written', unit: 'bytes/s', lines: [{ label: 'Write Bytes/sec' }] },
      { title: 'In use', unit: 'percent', max: 100, lines: [{ label: 'In Use %' }] },
      { title: 'Operations under way, mean', unit: 'number', lines: [{ label: 'Avg Queue Length' }] },
    ],
  });
}
