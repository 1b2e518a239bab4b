// A page part that shows the newest rows of a record as a table, live; a row that is opened stands beside it with its charts and
// all its figures. The open row is a choice in the address.
import { rows, schema as askSchema } from './api.js';
import { chart } from './chart.js';
import { csvButton } from './csv.js';
import { shownOf, unitOf } from './format.js';
import { current, goOn, onlyNewer } from './newest.js';
import { failure, figures, panel, tellTime, whenBack } from './panel.js';
import { choose, onChange, state } from './state.js';
import { make, table } from './table.js';

/// A column of table.js for a field, as its schema tells.
export function columnOf(schema, label, more = {}) {
  const field = schema.fields.find((one) => one.label === label) ?? { label, type: 'char[1]' };
  const isText = unitOf(field).unit === 'text';
  return { label, heading: label, help: field.help, isNumeric: !isText, format: (value) => shownOf(field, value), ...more };
}

/// options: record, keys (labels that name a row), columns (labels, or {label, ...more} with members of table.js), choice (its name in the address),
/// noun ("disk"), title (heading of the part, if the page has several), sort, charts(row) -> options of chart.js for the open row, allCharts:
/// such options for all rows, arrange and onToggle as in table.js, filter, empty, pause (milliseconds between looks where no schedule collects the
/// record; without it such a record is told to need one), details(parent, row, schema) instead of all figures, titleOf(row).
/// Gives the function that takes it away.
export function rowPage(parent, options) {
  const part = new RowPart(parent, options);
  part.start();
  return () => part.leave();
}

class RowPart {
  constructor(parent, options) {
    this.options = options;
    this.abort = new AbortController();
    this.rows = [];
    this.charts = [];
    this.newer = onlyNewer(({ time, rows: found }) => this.take(time, found));
    this.root = make('section', 'part');
    this.root.setAttribute('aria-label', options.title ?? options.caption ?? options.record);
    this.head = make('div', 'part-head');
    if (options.title) this.head.append(make('h2', 'part-title', options.title));
    this.split = make('div', 'split');
    this.list = make('div', 'list');
    this.split.append(this.list);
    this.root.append(this.head, this.split);
    this.below = make('div', 'charts');
    this.root.append(this.below);
    this.root.classList.toggle('is-tree', Boolean(options.arrange));
    parent.append(this.root);
  }

  async start() {
    const { record } = this.options;
    try {
      const [schema, answer] = await Promise.all([askSchema(record), this.ask()]);
      if (this.abort.signal.aborted) return;
      this.schema = schema;
      this.build();
      this.newer(answer);
      if (state.at === null) this.stopFollowing = goOn(record, answer, this.newer, { pause: this.options.pause, again: () => this.again() });
    } catch (error) {
      if (!this.abort.signal.aborted) this.fail(error);
    }
  }

  fail(error) {
    const { record } = this.options;
    const note = failure(this.list, record, error);
    if (!note || state.at !== null) return;
    this.stopWaiting = whenBack(record, error, () => {
      note.remove();
      this.start();
    });
  }

  build() {
    const { options, schema } = this;
    const columns = options.columns.map((one) => (typeof one === 'string' ? columnOf(schema, one) : columnOf(schema, one.label, one)));
    this.count = make('span', 'dim');
    this.time = make('span', 'dim');
    this.head.append(this.count, this.time);
    this.filterPlace = make('span', 'filter-place');
    this.head.append(this.filterPlace, csvButton(options.record, () => ({ labels: schema.fields.map((field) => field.label), rows: this.table.chosen() })));
    this.table = table(this.list, {
      columns, rows: [], keyOf: (row) => this.keyOf(row), sort: state.choice[`${options.choice}-sort`] ?? options.sort, filter: options.filter, filterParent: this.filterPlace, text: state.choice[`${options.choice}-filter`], caption: options.caption ?? options.title,
      empty: options.empty, arrange: options.arrange, onToggle: options.onToggle, onOpen: (row, key) => choose(options.choice, key),
      onSort: (sort) => choose(`${options.choice}-sort`, sort, { replace: true }), onFilter: (text) => choose(`${options.choice}-filter`, text, { replace: true }),
    });
    this.stopListening = onChange((now, before) => {
      if (now.page !== before.page || now.at !== before.at) return;
      if (now.choice[options.choice] !== before.choice[options.choice]) this.open(now.choice[options.choice]);
      this.table.apply({ sort: now.choice[`${options.choice}-sort`] ?? options.sort, text: now.choice[`${options.choice}-filter`] });
    });
  }

  ask() {
    const { record, pause } = this.options;
    return (pause ? current : rows)(record, { signal: this.abort.signal });
  }

  /// Whether it is to be asked again, as no schedule brings the rows.
  async again() {
    this.newer.forget();
    try {
      const answer = await this.ask();
      if (this.abort.signal.aborted) return false;
      this.newer(answer);
      return answer.isCollected;
    } catch (error) {
      // The banner tells of a gate that does not answer; the next batch brings the rows.
      return error.status !== 401;
    }
  }

  keyOf(row) {
    return this.options.keys.map((label) => String(row[label] ?? '')).join(' / ');
  }

  take(time, found) {
    const isFirst = !this.isBegun;
    this.isBegun = true;
    this.rows = found;
    const { noun } = this.options;
    this.count.textContent = noun ? `${found.length} ${found.length === 1 ? noun : `${noun}s`}` : '';
    tellTime(this.time, time);
    this.draw();
    if (isFirst) this.open(state.choice[this.options.choice]);
    else this.renew();
  }

  draw() {
    const { record, empty } = this.options;
    this.table.update(this.rows, { empty: state.at === null ? empty : `No rows of ${record} are kept near this time. To keep them: qmtctl schedule set ${record} 60` });
  }

  /// The figures of the open row go along with the table.
  renew() {
    const row = this.rows.find((one) => this.keyOf(one) === this.key);
    if (!this.panel || !row) return;
    if (this.figures) this.figures.update(row);
    else this.fillPanel(row);
  }

  open(key) {
    const before = this.key;
    this.closePanel();
    this.key = key;
    this.table.select(key);
    this.root.classList.toggle('is-split', Boolean(key));
    this.drawBelow(!key);
    if (!key) {
      if (before) this.table.focus(before);
      return;
    }
    const row = this.rows.find((one) => this.keyOf(one) === key);
    const title = (row && this.options.titleOf?.(row)) ?? key;
    this.panel = panel(this.split, { title, onClose: () => choose(this.options.choice, null) });
    if (row) this.fillPanel(row);
    else this.panel.body.append(make('p', 'note', 'It is not among these rows; it may be gone, or be known only at other times.'));
  }

  /// Charts of all rows stand below the table as long as none is open.
  drawBelow(isShown) {
    if (!isShown || !this.rows.length) return;
    for (const one of this.options.allCharts ?? []) {
      this.charts.push(chart(this.below, { height: 150, ...one, lines: one.lines.map((line) => ({ record: this.options.record, ...line })) }));
    }
  }

  fillPanel(row) {
    const { body } = this.panel;
    body.replaceChildren();
    const where = this.options.keys.map((label) => `${label}=${row[label]}`);
    const box = make('div', 'panel-charts');
    body.append(box);
    for (const one of this.options.charts(row)) {
      this.charts.push(chart(box, { height: 120, ...one, lines: one.lines.map((line) => ({ record: this.options.record, where, by: [], ...line })) }));
    }
    this.figures = this.options.details ? this.options.details(body, row, this.schema) : figures(body, this.schema, row);
  }

  closePanel() {
    for (const one of this.charts) one.destroy();
    this.charts = [];
    this.figures = null;
    this.panel?.close();
    this.panel = null;
  }

  leave() {
    this.abort.abort();
    this.stopFollowing?.();
    this.stopWaiting?.();
    this.stopListening?.();
    this.closePanel();
    this.table?.destroy();
    this.root.remove();
  }
}
