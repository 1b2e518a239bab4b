// Alarms: those that are active, what is watched, and those of the range that is shown. One that is opened stands beside them
// with the rows that were kept with it. The open one is a choice in the address.
import { graveness, onActive } from './alarms.js';
import { ask } from './api.js';
import { card, element, reason } from './card.js';
import { alarmDetails } from './alarm-panel.js';
import { now } from './clock.js';
import { duration, number, timeNode } from './format.js';
import { panel } from './panel.js';
import { choose, onChange, state } from './state.js';
import { make, table } from './table.js';

export const title = 'Alarms';

const kMost = 1000;
const kClock = 10000;
const kStates = { active: 'bad', pending: 'warn', ok: 'good', off: 'dim' };
const kOfNow = 'as it is now, not at the time above';

/// What tells an alarm of a definition from its others.
const keyText = (row) => Object.values(row.key ?? {}).join(' / ');
const keyTitle = (row) => Object.entries(row.key ?? {}).map(([label, value]) => `${label} = ${value}`).join('\n');
const lasted = (row) => (row.until ?? now()) - row.since;

const severityColumn = { label: 'severity', heading: 'Severity', format: (word) => make('span', `severity ${graveness(word)}`, word) };

function alarmsTable(parent, caption, empty, more) {
  return table(parent, {
    caption,
    empty,
    columns: [
      { label: 'alarm', heading: 'Alarm', opens: true },
      severityColumn,
      { label: 'key', heading: 'Of', value: keyText, title: keyTitle },
      { label: 'since', heading: 'Began', format: timeNode },
      ...more,
      { label: 'text', heading: 'Text', title: (row) => row.text },
    ],
    rows: [],
    keyOf: (row) => String(row.id),
    sort: '-since',
    filter: `Filter ${caption.toLowerCase()}`,
    onOpen: (row, key) => choose('alarm', key),
  });
}

const kLasted = { label: 'lasted', heading: 'For', isNumeric: true, value: lasted, format: (seconds) => duration(Math.max(0, Math.floor(seconds))) };
const kEnded = { label: 'until', heading: 'Ended', format: (time) => (time ? timeNode(time) : 'active') };

function definitionsTable(parent) {
  return table(parent, {
    caption: 'Definitions',
    empty: 'No alarms are defined.',
    columns: [
      { label: 'alarm', heading: 'Alarm' },
      severityColumn,
      { label: 'record', heading: 'Record' },
      { label: 'state', heading: 'State', format: (word) => make('span', `verdict ${kStates[word] ?? 'dim'}`, word) },
      { label: 'active', heading: 'Active', isNumeric: true, format: number },
      { label: 'line', heading: 'Line', isNumeric: true, help: 'Where it stands in its file' },
      { label: 'why', heading: 'Why', title: (row) => row.why },
    ],
    rows: [],
    keyOf: (row) => `${row.line} ${row.alarm}`,
    filter: 'Filter definitions',
  });
}

class AlarmsPage {
  constructor(main) {
    this.abort = new AbortController();
    this.root = element(main, 'section', 'part alarms');
    this.split = element(this.root, 'div', 'split');
    const lists = element(this.split, 'div', 'alarm-lists');
    this.now = card(lists, 'Active now');
    this.past = card(lists, 'In the range above');
    this.rules = card(lists, 'Definitions');
    if (state.at !== null) for (const one of [this.now, this.rules]) element(one.head, 'span', 'chart-note', kOfNow);
    this.file = element(this.rules.head, 'span', 'chart-note');
    this.active = alarmsTable(this.now.body, 'Active alarms', 'No alarm is active.', [kLasted]);
    this.history = alarmsTable(this.past.body, 'Alarms of the range', 'No alarm was active in this range.', [kEnded, kLasted]);
    this.definitions = definitionsTable(this.rules.body);
  }

  start() {
    this.stops = [
      onActive((list, events) => this.takeActive(list, events)),
      onChange((now, before) => this.changed(now, before)),
    ];
    this.clock = setInterval(() => this.drawActive(), kClock);
    this.look();
    this.open(state.choice.alarm);
  }

  takeActive(list, events) {
    const isFirst = !this.isTold;
    this.isTold = true;
    this.list = list;
    this.drawActive();
    if (isFirst) return;
    this.look();
    if (events.some((one) => String(one.id) === this.key)) this.details?.renew();
  }

  drawActive() {
    if (this.list) this.active.update(this.list);
    else this.active.update([], { empty: 'The agent tells of no alarms.' });
  }

  async look() {
    const { range } = state;
    const mine = (this.looks = (this.looks ?? 0) + 1);
    try {
      const { alarms } = await ask('alarms', { since: range.since, until: range.until, limit: kMost }, { signal: this.abort.signal });
      if (mine !== this.looks) return;
      this.past.body.querySelector('.note.bad')?.remove();
      this.history.update(alarms.list);
      this.definitions.update(alarms.definitions);
      this.file.textContent = alarms.file ?? '';
    } catch (error) {
      const why = reason('', error);
      if (!why || this.past.body.querySelector('.note.bad')) return;
      element(this.past.body, 'p', 'note bad', why);
    }
  }

  changed(now, before) {
    if (now.page !== before.page || now.at !== before.at) return;
    if (now.range.name !== before.range.name || now.range.from !== before.range.from || now.range.to !== before.range.to) this.look();
    if (now.choice.alarm !== before.choice.alarm) this.open(now.choice.alarm);
  }

  open(key) {
    const before = this.key;
    this.details?.leave();
    this.panel?.close();
    this.panel = this.details = null;
    this.key = key;
    this.root.classList.toggle('is-split', Boolean(key));
    for (const one of [this.active, this.history]) one.select(key);
    if (!key) {
      // The row that was left stands in one of them, or in both.
      if (before) for (const one of [this.history, this.active]) one.focus(before);
      return;
    }
    this.panel = panel(this.split, { title: `Alarm ${key}`, onClose: () => choose('alarm', null) });
    this.details = alarmDetails(this.panel.body, key);
  }

  leave() {
    this.abort.abort();
    clearInterval(this.clock);
    for (const stop of this.stops) stop();
    this.details?.leave();
    this.panel?.close();
    for (const one of [this.active, this.history, this.definitions]) one.destroy();
    this.root.remove();
  }
}

export function show(main) {
  const page = new AlarmsPage(main);
  page.start();
  return () => page.leave();
}
