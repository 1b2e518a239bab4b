// Any record, any of its fields, any rows: as charts or as a table, and as CSV.
import { keptRows, records, schedules, schema } from './api.js';
import { element, reason } from './card.js';
import { chart } from './chart.js';
import { csvButton } from './csv.js';
import { follow } from './events.js';
import { number, shownOf, timeNode, unitOf } from './format.js';
import { current, onlyNewer } from './newest.js';
import { keptCsvButton, kMostSaved, pointsCsvButton } from './records-csv.js';
import { choose, go, onChange, state } from './state.js';
import { table } from './table.js';

export const title = 'Records';

const kMostKept = 5000;
const kFirstFields = 8;
const kFirstCharts = 4;
const kViews = { newest: 'Newest rows', kept: 'Kept rows of the range', charts: 'Charts' };
const kAlways = ['Record Type', 'Record Time', 'Interval'];

const isNumeric = (field) => !field.type.startsWith('char') && field.meaning !== 'time' && field.meaning !== 'key';
const isDrawn = (field) => isNumeric(field) && field.source !== false;

/// The fields in the address, one beside another; labels may hold commas, so the sign between is another.
function chosenFields(layout, view) {
  const told = new Set((state.choice.fields ?? '').split('|').filter(Boolean));
  const possible = layout.fields.filter((field) => !kAlways.includes(field.label) && (view !== 'charts' || isDrawn(field)));
  const found = possible.filter((field) => told.has(field.label));
  if (found.length) return found;
  const shown = new Set((layout.shown ?? []).map((one) => one.label));
  const usual = possible.filter((field) => shown.has(field.label));
  if (view === 'charts') return (usual.length ? usual : possible).slice(0, kFirstCharts);
  const keys = possible.filter((field) => field.meaning === 'key');
  return usual.length ? usual : [...new Set([...keys, ...possible.filter((field) => field.source !== false)])].slice(0, kFirstFields);
}

const rowCount = (found) => `${number(found.length)} ${found.length === 1 ? 'row' : 'rows'}`;

/// The keys of rows, as a Map: their values of `labels`, and a running number where two have the same.
function keysOf(rows, labels) {
  const counts = new Map();
  return new Map(rows.map((row) => {
    const text = JSON.stringify(labels.map((label) => row[label]));
    const count = (counts.get(text) ?? 0) + 1;
    counts.set(text, count);
    return [row, `${text} ${count}`];
  }));
}

/// Gives a function that asks, one question at a time: what is wanted meanwhile is asked for once the answer is there.
function oneByOne(ask) {
  let isAsking = false;
  let isWanted = false;
  return async () => {
    isWanted = true;
    if (isAsking) return;
    isAsking = true;
    try {
      while (isWanted) {
        isWanted = false;
        await ask();
      }
    } finally {
      isAsking = false;
    }
  };
}

function labelled(parent, text, node) {
  const label = element(parent, 'label', '', text);
  label.append(node);
  return node;
}

function select(parent, text, options, value, onChoose) {
  const node = document.createElement('select');
  for (const [name, shown] of options) {
    const option = element(node, 'option', '', shown);
    option.value = name;
    option.selected = name === value;
  }
  node.addEventListener('change', () => onChoose(node.value));
  return labelled(parent, text, node);
}

class Records {
  constructor(main) {
    this.main = main;
    this.tools = element(main, 'section', 'tools');
    this.tools.setAttribute('aria-label', 'What to show');
    this.about = element(main, 'p', 'note');
    this.fields = element(main, 'details', '');
    this.body = element(main, 'section', '');
    this.body.setAttribute('aria-label', 'Figures');
    this.stops = [];
    this.stopListening = onChange((now, before) => this.changed(now, before));
    this.draw();
  }

  changed(now, before) {
    if (now.page !== before.page || now.at !== before.at) return;
    const isMoved = now.range.name !== before.range.name || now.range.from !== before.range.from || now.range.to !== before.range.to;
    if (JSON.stringify(now.choice) !== JSON.stringify(before.choice) || (isMoved && this.view === 'kept')) this.draw();
  }

  /// Ends what the choice before has begun.
  clear() {
    this.abort?.abort();
    for (const stop of this.stops) stop();
    this.stops = [];
    this.body.replaceChildren();
  }

  async draw() {
    this.clear();
    this.abort = new AbortController();
    const { signal } = this.abort;
    this.view = Object.hasOwn(kViews, state.choice.view ?? '') ? state.choice.view : 'newest';
    try {
      const [all, scheduled] = await Promise.all([records(), schedules()]);
      if (signal.aborted) return;
      const served = all.filter((one) => one.served).map((one) => one.record);
      this.record = served.includes(state.choice.record) ? state.choice.record : served.find((name) => scheduled.has(name)) ?? served[0];
      this.layout = await schema(this.record);
      if (signal.aborted) return;
      this.drawTools(served, scheduled);
      this.drawFields();
      await this.drawBody(signal);
    } catch (error) {
      const why = reason(this.record, error);
      if (why && !signal.aborted) element(this.body, 'p', 'note', why);
    }
  }

  drawTools(served, scheduled) {
    const focused = this.tools.contains(document.activeElement) ? document.activeElement.parentNode.firstChild.textContent : '';
    this.tools.replaceChildren();
    const names = served.map((name) => [name, scheduled.has(name) ? name : `${name} (not scheduled)`]);
    select(this.tools, 'Record', names, this.record, (record) => go({ choice: { record, view: state.choice.view } }));
    select(this.tools, 'Show', Object.entries(kViews), this.view, (view) => choose('view', view));
    const where = document.createElement('input');
    where.type = 'search';
    where.value = state.choice.where ?? '';
    where.placeholder = 'LABEL=VALUE, also != < > ~ !~';
    where.spellcheck = false;
    where.addEventListener('change', () => choose('where', where.value.trim()));
    labelled(this.tools, 'Rows with', where);
    this.about.textContent = this.layout.about ?? '';
    for (const label of this.tools.querySelectorAll('label')) if (label.firstChild.textContent === focused) label.lastChild.focus();
  }

  /// Checkboxes of all fields, grouped as the schema has them.
  drawFields() {
    const isOpen = this.fields.open;
    this.fields.replaceChildren();
    const chosen = new Set(chosenFields(this.layout, this.view).map((field) => field.label));
    const possible = this.layout.fields.filter((field) => !kAlways.includes(field.label) && (this.view !== 'charts' || isDrawn(field)));
    element(this.fields, 'summary', '', `Fields: ${chosen.size} of ${possible.length}`);
    const list = element(this.fields, 'div', 'columns');
    for (const field of possible) {
      const label = element(list, 'label', '');
      const box = element(label, 'input', '');
      box.type = 'checkbox';
      box.checked = chosen.has(field.label);
      element(label, 'span', '', field.label).title = [field.group, field.help].filter(Boolean).join(': ');
      box.addEventListener('change', () => {
        if (box.checked) chosen.add(field.label);
        else chosen.delete(field.label);
        choose('fields', [...chosen].join('|'), { replace: true });
      });
    }
    this.fields.open = isOpen;
  }

  async drawBody(signal) {
    const fields = chosenFields(this.layout, this.view);
    const where = state.choice.where || undefined;
    if (this.view === 'charts') this.drawCharts(fields, where);
    else if (this.view === 'kept') await this.drawKept(fields, where, signal);
    else await this.drawNewest(fields, where, signal);
  }

  drawCharts(fields, where) {
    const drawn = [];
    if (fields.length) element(this.body, 'div', 'part-head').append(pointsCsvButton(this.record, drawn));
    const parent = element(this.body, 'div', 'charts');
    for (const field of fields) {
      const { unit, scale } = unitOf(field);
      // A counter's row tells what happened in the seconds that it covers, which is no rate.
      const note = field.meaning === 'counter' ? 'in the time that a row covers' : '';
      const made = chart(parent, { title: field.label, unit, note, lines: [{ record: this.record, label: field.label, where, transform: (v) => v * scale }] });
      drawn.push({ field, scale, chart: made });
      this.stops.push(() => made.destroy());
    }
    if (!fields.length) element(this.body, 'p', 'note', `${this.record} has no figures that a chart could draw.`);
  }

  /// The time heads each row, as a record of one row has no key.
  makeTable(chosen, sort) {
    const fields = [this.layout.fields.find((field) => field.label === 'Record Time'), ...chosen];
    const head = element(this.body, 'div', 'part-head');
    const count = element(head, 'span', 'dim');
    const columns = fields.map((field) => ({
      label: field.label,
      help: field.help,
      isNumeric: isNumeric(field),
      format: (value) => shownOf(field, value),
    }));
    let keys = new Map();
    const list = table(this.body, { columns, rows: [], sort, filter: 'Filter rows', caption: `Rows of ${this.record}`, keyOf: (row) => keys.get(row) });
    this.stops.push(() => list.destroy());
    const update = (rows, changes) => {
      keys = keysOf(rows, this.keyLabels());
      list.update(rows, changes);
    };
    return { head, count, update, labels: fields.map((field) => field.label), chosen: (rows) => list.chosen(rows) };
  }

  async drawNewest(fields, where, signal) {
    const ask = () => current(this.record, { columns: this.columnsOf(fields), where, signal });
    const first = await ask();
    if (signal.aborted) return;
    const note = first.isCollected ? this.tellCollected() : null;
    const { head, count, update, labels, chosen } = this.makeTable(fields, '');
    head.append(csvButton(this.record, () => ({ labels, rows: chosen() })));
    const take = (told) => {
      if (told.isCollected === false || told.event) note?.remove();
      update(told.rows);
      if (told.time) count.replaceChildren(`${rowCount(told.rows)} of `, timeNode(told.time));
    };
    take(first);
    if (state.at !== null) return;
    const show = onlyNewer(take, first.time);
    const again = oneByOne(() => ask().then(show, () => {}));
    note?.lastChild.addEventListener('click', again);
    // With a condition only the daemon can tell which rows fit, so it is asked again.
    const newer = where ? onlyNewer(again, first.time) : show;
    const anew = () => {
      for (const one of [show, newer]) one.forget();
      again();
    };
    this.stops.push(follow(this.record, newer, { onGap: anew }));
  }

  /// What no schedule brings is collected when it is asked for, and only then.
  tellCollected() {
    const note = element(this.body, 'p', 'note', `No schedule collects ${this.record}, so these rows were collected for this look and are not kept. `);
    element(note, 'button', 'plain', 'Collect again').type = 'button';
    return note;
  }

  columnsOf(fields) {
    const keys = this.layout.fields.filter((field) => field.meaning === 'key');
    return [...new Set([...keys, ...fields].map((field) => field.label))];
  }

  /// The labels that tell rows apart.
  keyLabels() {
    const keys = this.layout.fields.filter((field) => field.meaning === 'key').map((field) => field.label);
    return this.view === 'kept' ? ['Record Time', ...keys] : keys;
  }

  async drawKept(fields, where, signal) {
    const { since, until } = state.range;
    const choice = { since, until, columns: this.columnsOf(fields), where, sort: '-Record Time' };
    const found = await keptRows(this.record, { ...choice, limit: kMostKept, signal });
    if (signal.aborted) return;
    const { head, count, update, labels, chosen } = this.makeTable(fields, '-Record Time');
    update(found, { empty: 'No rows are kept in this range.' });
    const isPart = found.length >= kMostKept;
    count.textContent = isPart ? `The newest ${rowCount(found)} of the range` : rowCount(found);
    const ask = (more) => (isPart ? keptRows(this.record, { ...choice, ...more, limit: kMostSaved }) : found);
    this.stops.push(keptCsvButton(head, { record: this.record, labels, ask, chosen }));
  }

  leave() {
    this.stopListening();
    this.clear();
  }
}

export function show(main) {
  const page = new Records(main);
  return () => page.leave();
}
