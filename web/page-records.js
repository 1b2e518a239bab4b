// Any record, any of its fields, any rows: as charts or as a table, and as CSV.
import { keptRows, records, rows, schedules, schema } from './api.js';
import { element, reason } from './card.js';
import { chart } from './chart.js';
import { csvButton } from './csv.js';
import { follow } from './events.js';
import { timeNode, unitOf, valueOf } from './format.js';
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

const rowCount = (found) => `${found.length} ${found.length === 1 ? 'row' : 'rows'}`;

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
    where.placeholder = 'LABEL=VALUE, also != < > ~';
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
    const parent = element(this.body, 'div', 'charts');
    for (const field of fields) {
      const { unit, scale } = unitOf(field);
      // A counter's row tells what happened in the seconds that it covers, which is no rate.
      const note = field.meaning === 'counter' ? 'in the time that a row covers' : '';
      const made = chart(parent, { title: field.label, unit, note, lines: [{ record: this.record, label: field.label, where, transform: (v) => v * scale }] });
      this.stops.push(() => made.destroy());
    }
    if (!fields.length) element(this.body, 'p', 'note', `${this.record} has no figures that a chart could draw.`);
  }

  /// The time heads each row, as a record of one row has no key.
  makeTable(chosen, sort, keyOf) {
    const fields = [this.layout.fields.find((field) => field.label === 'Record Time'), ...chosen];
    const head = element(this.body, 'div', 'part-head');
    const count = element(head, 'span', 'dim');
    const columns = fields.map((field) => ({
      label: field.label,
      help: field.help,
      isNumeric: isNumeric(field),
      format: (value) => (field.meaning === 'time' && value ? timeNode(value) : valueOf(field, value)),
    }));
    const list = table(this.body, { columns, rows: [], sort, filter: 'Filter rows', caption: `Rows of ${this.record}`, keyOf });
    const labels = fields.map((field) => field.label);
    head.append(csvButton(this.record, () => ({ labels, rows: list.chosen() })));
    this.stops.push(() => list.destroy());
    return { count, list };
  }

  async drawNewest(fields, where, signal) {
    const ask = () => rows(this.record, { columns: this.columnsOf(fields), where, signal });
    const first = await ask();
    if (signal.aborted) return;
    const { count, list } = this.makeTable(fields, '', this.keyByRow());
    const take = (told) => {
      list.update(told.rows);
      if (told.time) count.replaceChildren(`${rowCount(told.rows)} of `, timeNode(told.time));
    };
    take(first);
    if (state.at !== null) return;
    // With a condition only the daemon can tell which rows fit, so it is asked again.
    const again = () => ask().then(take, () => {});
    this.stops.push(follow(this.record, where ? again : take, { onGap: again }));
  }

  columnsOf(fields) {
    const keys = this.layout.fields.filter((field) => field.meaning === 'key');
    return [...new Set([...keys, ...fields].map((field) => field.label))];
  }

  /// Rows are told apart by their keys and, as two may have the same, by their place among those.
  keyByRow() {
    const keys = ['Record Time', ...this.layout.fields.filter((field) => field.meaning === 'key').map((field) => field.label)];
    return (row) => JSON.stringify(keys.slice(this.view === 'kept' ? 0 : 1).map((label) => row[label]));
  }

  async drawKept(fields, where, signal) {
    const { since, until } = state.range;
    const found = await keptRows(this.record, { since, until, columns: this.columnsOf(fields), where, sort: '-Record Time', limit: kMostKept, signal });
    if (signal.aborted) return;
    const { count, list } = this.makeTable(fields, '-Record Time', this.keyByRow());
    list.update(found, { empty: 'No rows are kept in this range.' });
    count.textContent = found.length >= kMostKept ? `The newest ${found.length} rows of the range` : rowCount(found);
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
