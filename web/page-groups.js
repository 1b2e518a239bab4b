// Control groups as a tree, and the site's workgroups.
import { rowPage } from './rowpage.js';
import { Folds, parentByPath, treeArrange } from './tree.js';

export const title = 'Groups';

// A counter without a source says that what is made of it has none either; `needs` names it.
const cgroupCharts = (row) => kControlCharts.filter((one) => row[one.needs] !== null);

const kControlCharts = [
  { needs: 'CPU Seconds', title: 'Processors, percent of one', unit: 'percent', lines: [{ label: 'User %', name: 'Programs' }, { label: 'System %', name: 'Kernel' }], stacked: true },
  { needs: 'Periods', title: 'Held back by the limit', unit: 'percent', lines: [{ label: 'Throttled %', name: 'Of the periods' }] },
  { needs: 'Memory Bytes', title: 'Memory', unit: 'bytes', stacked: true, lines: [{ label: 'Anonymous Bytes', name: 'Anonymous' }, { label: 'File Bytes', name: 'File' }, { label: 'Kernel Bytes', name: 'Kernel' }] },
  { needs: 'Read Bytes', title: 'Block devices', unit: 'bytes/s', lines: [{ label: 'Read Bytes/sec', name: 'Read' }, { label: 'Write Bytes/sec', name: 'Written' }] },
  { needs: 'CPU Some 10-Second %', title: 'Some waited, of the last 10 s', unit: 'percent', lines: [{ label: 'CPU Some 10-Second %', name: 'Processor' }, { label: 'Memory Some 10-Second %', name: 'Memory' }, { label: 'I/O Some 10-Second %', name: 'I/O' }] },
  { needs: 'Processes', title: 'Processes', unit: 'number', lines: [{ label: 'Processes' }, { label: 'Threads' }] },
];

const workgroupCharts = () => [
  { title: 'Processors, percent of all', unit: 'percent', lines: [{ label: 'CPU %', name: 'Use' }] },
  { title: 'Memory', unit: 'bytes', lines: [{ label: 'Real Mem Kbytes', name: 'Held' }] },
  { title: 'Calls that read and write', unit: 'bytes/s', lines: [{ label: 'Throughput/sec', name: 'Throughput', transform: (v) => v * 1024 }] },
  { title: 'Processes', unit: 'number', lines: [{ label: 'Process Count', name: 'Processes' }] },
];

/// The last part of a path, as the tree tells the rest.
function nameOf(path) {
  return path === '/' ? '/' : path.slice(path.lastIndexOf('/') + 1) || path;
}

export function show(main) {
  const folds = new Folds(true);
  const leaveControl = rowPage(main, {
    record: 'CGRP',
    keys: ['Path'],
    choice: 'group',
    noun: 'control group',
    title: 'Control groups',
    filter: 'Filter control groups',
    sort: '-Memory Bytes',
    empty: 'There are no control groups.',
    columns: [
      { label: 'Path', heading: 'Group', opens: true, isNumeric: false, format: (value) => nameOf(value), title: (row) => row.Path }, 'Kind', 'Processes', { label: 'CPU %', heading: 'CPU % of one' }, { label: 'Throttled %', heading: 'Throttled' },
      { label: 'Memory Bytes', heading: 'Memory' }, { label: 'Limit Bytes', heading: 'Limit' }, { label: 'Limit %', heading: 'Of limit' }, { label: 'Swap Bytes', heading: 'Swap' }, { label: 'OOM Kills', heading: 'OOM kills' },
      { label: 'Read Bytes/sec', heading: 'Read' }, { label: 'Write Bytes/sec', heading: 'Written' }, { label: 'Memory Some 10-Second %', heading: 'Memory waits' }, { label: 'Container ID', heading: 'Container', format: (value) => value?.slice(0, 12) },
    ],
    arrange: treeArrange({ keyOf: (row) => row.Path, parentOf: (row, byKey) => parentByPath(row.Path, byKey), folds }),
    onToggle: (key) => folds.toggle(key),
    charts: cgroupCharts,
  });
  const leaveWork = rowPage(main, {
    record: 'WGRP',
    keys: ['Workgroup'],
    choice: 'workgroup',
    noun: 'workgroup',
    title: 'Workgroups',
    sort: '-CPU %',
    empty: 'There are no workgroups.',
    columns: [
      { label: 'Workgroup', opens: true, isNumeric: false }, { label: 'Process Count', heading: 'Processes' }, { label: 'CPU %', heading: 'CPU % of all' }, { label: 'Real Mem Kbytes', heading: 'Memory' }, { label: 'Throughput/sec', heading: 'Read and written' },
      { label: 'Reads/sec', heading: 'Reads' }, { label: 'Writes/sec', heading: 'Writes' }, 'Users', 'Groups', 'Programs', 'Arguments',
    ],
    charts: workgroupCharts,
  });
  return () => {
    leaveControl();
    leaveWork();
  };
}
