// All processes: as a list, a tree, or in groups; one of them opened beside it.
import { csvButton } from './csv.js';
import { bytes, duration, number, percent, rate, timeNode } from './format.js';
import { Looks, keyOf, sum } from './looks.js';
import { failure, tellTime } from './panel.js';
import { processPanel } from './process-panel.js';
import { choose, onChange, state } from './state.js';
import { make, table } from './table.js';
import { Folds, groupArrange, treeArrange } from './tree.js';

export const title = 'Processes';

const kSort = '-CPU %';
const kPause = 3000;
// The second look comes sooner, as only two make a rate.
const kFirstPause = 1000;
const kViews = {
  list: 'List',
  tree: 'Tree by parent',
  program: 'By program',
  user: 'By user',
  group: 'By control group',
  workgroup: 'By workgroup',
};
const kNames = { program: (row) => row.Name, user: (row) => row.User, group: (row) => row['Control Group'] || '-', workgroup: (row) => row.Workgroup || (state.at === null ? '-' : 'Workgroups are known of now alone') };
const kSummed = ['CPU %', 'CPU Seconds', 'Memory Bytes', 'Threads', 'Read Bytes/sec', 'Write Bytes/sec'];
const kStates = { R: 'runs', S: 'sleeps', D: 'waits for a device', T: 'is stopped', t: 'is traced', Z: 'has ended', I: 'idle thread of the kernel' };

const kColumns = [
  { label: 'Name', heading: 'Program', opens: true, format: (value, row) => (row.isGroup ? `${value} (${number(row.members)})` : value), title: (row) => (row.isGroup ? '' : row.Name) },
  { label: 'PID', isNumeric: true, format: String },
  { label: 'CPU %', isNumeric: true, format: percent, help: 'Time of the processors between two looks, in percent of one.' },
  { label: 'Memory Bytes', heading: 'Memory', isNumeric: true, format: bytes, help: 'Memory in use, of its own, of files and shared; what is shared counts for each.' },
  { label: 'Read Bytes/sec', heading: 'Read', isNumeric: true, format: (value) => rate(value, 'bytes'), help: 'Bytes fetched from storage between two looks, a second.' },
  { label: 'Write Bytes/sec', heading: 'Written', isNumeric: true, format: (value) => rate(value, 'bytes'), help: 'Bytes sent to storage between two looks, a second.' },
  { label: 'Threads', isNumeric: true, format: number },
  { label: 'State', heading: 'State', title: (row) => kStates[row.State], help: 'R runs, S sleeps, D waits for a device, T is stopped, Z has ended, I is an idle thread of the kernel.' },
  { label: 'User' },
  { label: 'CPU Seconds', heading: 'CPU time', isNumeric: true, format: duration, help: 'Time of the processors since it was started.' },
  { label: 'Start Time', heading: 'Started', isNumeric: true, format: (value) => (value ? timeNode(value) : '-') },
  { label: 'Unit', title: (row) => row['Control Group'], help: 'The service or scope that it belongs to.' },
];

export function show(main) {
  const page = new Page(main);
  page.start();
  return () => page.leave();
}

class Page {
  constructor(main) {
    this.looks = new Looks();
    this.abort = new AbortController();
    this.folds = { tree: new Folds(true), grouped: new Folds(false) };
    this.rows = [];
    this.root = make('section', 'part');
    this.root.setAttribute('aria-label', title);
    this.head = make('div', 'part-head');
    this.split = make('div', 'split');
    this.list = make('div', 'list');
    this.split.append(this.list);
    this.root.append(this.head, this.split);
    main.append(this.root);
  }

  start() {
    this.buildHead();
    const { choice } = state;
    this.table = table(this.list, {
      columns: kColumns, rows: [], keyOf, caption: title, sort: choice.sort ?? kSort, filter: 'Filter processes', filterParent: this.filterPlace, text: choice.filter, empty: 'Looking.',
      arrange: (...all) => this.arrange(...all),
      onToggle: (key) => this.foldsOfView().toggle(key),
      onOpen: (row, key) => choose('process', key),
      onSort: (sort) => choose('sort', sort, { replace: true }),
      onFilter: (text) => choose('filter', text, { replace: true }),
    });
    this.stopListening = onChange((now, before) => this.changed(now, before));
    this.visible = () => this.plan(0);
    document.addEventListener('visibilitychange', this.visible);
    this.root.classList.toggle('is-tree', this.view() !== 'list');
    this.look();
  }

  buildHead() {
    this.count = make('span', 'dim');
    this.time = make('span', 'dim');
    this.stale = make('span', 'warn');
    this.stale.setAttribute('role', 'status');
    const label = make('label', '', 'Show ');
    const select = make('select');
    for (const [name, text] of Object.entries(kViews)) {
      const option = make('option', '', text);
      option.value = name;
      select.append(option);
    }
    select.value = this.view();
    select.addEventListener('change', () => choose('view', select.value === 'list' ? null : select.value));
    label.append(select);
    this.select = select;
    const labels = ['PID', 'Start Time', 'Name', 'User', 'State', 'Control Group', 'Unit', 'Workgroup', 'Parent PID', ...kSummed];
    this.filterPlace = make('span', 'filter-place');
    this.head.append(label, this.filterPlace, this.count, this.time, this.stale, csvButton('processes', () => ({ labels, rows: this.table.chosen() })));
  }

  view() {
    return Object.hasOwn(kViews, state.choice.view ?? '') ? state.choice.view : 'list';
  }

  foldsOfView() {
    return this.view() === 'tree' ? this.folds.tree : this.folds.grouped;
  }

  arrange(rows, compare, isChosen, isFiltered) {
    const view = this.view();
    const folds = this.foldsOfView();
    if (view === 'tree') {
      const byPid = new Map(rows.map((row) => [row.PID, keyOf(row)]));
      return treeArrange({ keyOf, parentOf: (row) => byPid.get(row['Parent PID']) ?? null, folds })(rows, compare, isChosen, isFiltered);
    }
    if (view !== 'list') return groupArrange({ keyOf, nameOf: kNames[view], sumOf, folds })(rows, compare, isChosen, isFiltered);
    const chosen = rows.filter(isChosen);
    if (compare) chosen.sort(compare);
    return chosen.map((row) => ({ row, key: keyOf(row), depth: 0, children: 0 }));
  }

  changed(now, before) {
    if (now.page !== before.page || now.at !== before.at) return;
    if (now.choice.view !== before.choice.view) {
      this.select.value = this.view();
      this.root.classList.toggle('is-tree', this.view() !== 'list');
      this.draw();
      // The new view may need what the look before did not ask for.
      this.plan(0);
    }
    this.table.apply({ sort: now.choice.sort ?? kSort, text: now.choice.filter });
    if (now.choice.process !== before.choice.process) this.open(now.choice.process);
  }

  plan(milliseconds) {
    clearTimeout(this.timer);
    this.timer = setTimeout(() => this.look(), milliseconds);
  }

  async look() {
    if (document.hidden || this.abort.signal.aborted || this.isLooking) return;
    this.isLooking = true;
    const isFirst = this.timeOf === undefined;
    try {
      const { time, rows } = await this.looks.look(this.view(), this.abort.signal);
      this.take(time, rows, isFirst);
    } catch (error) {
      if (this.abort.signal.aborted) return;
      if (isFirst) this.failed ??= failure(this.list, 'PDX', error);
      else this.stale.textContent = `There was no newer look: ${error.message}.`;
    } finally {
      this.isLooking = false;
    }
    if (state.at === null && !this.abort.signal.aborted) this.plan(isFirst ? kFirstPause : kPause);
  }

  take(time, rows, isFirst) {
    if (this.abort.signal.aborted) return;
    this.failed?.remove();
    this.failed = null;
    this.stale.textContent = '';
    this.timeOf = time;
    this.rows = rows;
    this.count.textContent = `${number(rows.length)} processes`;
    tellTime(this.time, time);
    this.draw();
    if (isFirst) this.open(state.choice.process);
    else this.panel?.renew();
  }

  draw() {
    this.table.update(this.rows, { empty: state.at === null ? 'There are no processes.' : 'No rows of PDX are kept near this time. To keep them: qmtctl schedule set PDX 60' });
  }

  open(key) {
    const before = this.key;
    this.panel?.close();
    this.panel = null;
    this.key = /^\d+@\d+$/.test(key ?? '') ? key : null;
    this.table.select(this.key);
    this.root.classList.toggle('is-split', Boolean(this.key));
    if (this.key) {
      const row = this.rows.find((one) => keyOf(one) === this.key);
      this.panel = processPanel(this.split, { key: this.key, row, onClose: () => choose('process', null), onParent: (pid) => this.openPid(pid) });
    } else if (before) {
      this.table.focus(before);
    }
  }

  openPid(pid) {
    const row = this.rows.find((one) => one.PID === pid);
    if (row) choose('process', keyOf(row));
  }

  leave() {
    this.abort.abort();
    clearTimeout(this.timer);
    document.removeEventListener('visibilitychange', this.visible);
    this.stopListening();
    this.panel?.close();
    this.table.destroy();
    this.root.remove();
  }
}

/// A group as a row: sums of what its members tell.
function sumOf(members, name) {
  const row = { isGroup: true, members: members.length, Name: name };
  for (const label of kSummed) row[label] = sum(members.map((member) => member[label]));
  return row;
}
