// Local file systems: how full they are, and one of them over time.
import { percent } from './format.js';
import { rowPage } from './rowpage.js';
import { make } from './table.js';

export const title = 'File systems';

// From here on a bar says so by its colour; the figure beside it says it in words for all.
const kNearlyFull = 85;
const kFull = 95;

const charts = () => [
  { title: 'In use', unit: 'percent', max: 100, lines: [{ label: 'Mbytes in Use %', name: 'Space' }, { label: 'Total Inodes in Use %', name: 'Inodes' }] },
  { title: 'Space', unit: 'bytes', lines: [{ label: 'Mbytes in Use', name: 'In use' }, { label: 'Available Space Mbytes', name: 'Available' }, { label: 'Total Size Mbytes', name: 'Size' }] },
  { title: 'Inodes in use', unit: 'number', lines: [{ label: 'Total Inodes in Use', name: 'In use' }] },
];

/// A percentage as a bar with its figure.
export function barOf(value) {
  if (typeof value !== 'number') return '-';
  const node = make('span', 'meter');
  const bar = make('span', 'meter-track');
  const fill = make('span', value >= kFull ? 'meter-fill is-full' : value >= kNearlyFull ? 'meter-fill is-high' : 'meter-fill');
  fill.style.inlineSize = `${Math.max(0, Math.min(100, value))}%`;
  bar.append(fill);
  node.append(bar, make('span', 'meter-value', percent(value)));
  return node;
}

export function show(main) {
  return rowPage(main, {
    record: 'FSL',
    keys: ['File System'],
    choice: 'filesystem',
    noun: 'file system',
    caption: 'Local file systems',
    sort: '-Mbytes in Use %',
    filter: 'Filter file systems',
    empty: 'There are no local file systems.',
    columns: [
      { label: 'File System', opens: true, isNumeric: false }, { label: 'Mbytes in Use %', heading: 'Space in use', format: barOf }, { label: 'Mbytes in Use', heading: 'In use' },
      { label: 'Available Space Mbytes', heading: 'Available' }, { label: 'Total Size Mbytes', heading: 'Size' }, { label: 'Total Inodes in Use %', heading: 'Inodes in use' },
      { label: 'File System Type', heading: 'Type' }, { label: 'Device Name', heading: 'Device' },
    ],
    charts,
    allCharts: [{ title: 'Space in use', unit: 'percent', lines: [{ label: 'Mbytes in Use %' }] }, { title: 'Inodes in use', unit: 'percent', lines: [{ label: 'Total Inodes in Use %' }] }],
  });
}
