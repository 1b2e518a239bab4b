// One alarm with the rows that were kept with it, as tables.
import { graveness } from './alarms.js';
import { ask, records, schema as askSchema } from './api.js';
import { element, reason } from './card.js';
import { now } from './clock.js';
import { csvButton } from './csv.js';
import { duration, timeNode } from './format.js';
import { figures } from './panel.js';
import { columnOf } from './rowpage.js';
import { link } from './state.js';
import { make, table } from './table.js';

const kMostColumns = 12;

/// Asks for the alarm and shows it in `parent`. Gives {renew(), leave()}.
export function alarmDetails(parent, id) {
  const details = new AlarmDetails(parent, id);
  details.renew();
  return details;
}

class AlarmDetails {
  constructor(parent, id) {
    this.parent = parent;
    this.id = id;
    this.tables = [];
  }

  async renew() {
    this.abort?.abort();
    const { signal } = (this.abort = new AbortController());
    try {
      const { alarm } = await ask('alarm', { id: this.id }, { signal });
      const schemas = await this.schemasOf(alarm);
      if (!signal.aborted) this.draw(alarm, schemas);
    } catch (error) {
      const why = signal.aborted ? null : reason('', error);
      if (why) this.clear().append(make('p', 'note bad', why));
    }
  }

  /// Of what is no record, or has no schema to be had, figures are shown by their labels alone.
  async schemasOf(alarm) {
    const known = new Set((await records()).filter((one) => one.layout).map((one) => one.record));
    const names = new Set([alarm.record, ...(alarm.rows ?? []).map((one) => one.record)].filter((name) => known.has(name)));
    return new Map(await Promise.all([...names].map(async (name) => [name, await askSchema(name).catch(() => null)])));
  }

  clear() {
    for (const one of this.tables) one.destroy();
    this.tables = [];
    this.parent.replaceChildren();
    return this.parent;
  }

  draw(alarm, schemas) {
    const parent = this.clear();
    parent.append(make('p', 'alarm-text', alarm.text));
    this.drawFacts(parent, alarm);
    for (const [heading, values] of [['Of', alarm.key], ['Figures', alarm.values]]) drawValues(parent, heading, values, schemas.get(alarm.record));
    for (const one of alarm.rows ?? []) this.drawRows(parent, one, schemas.get(one.record));
    const lacking = (alarm.captured ?? []).filter((name) => !(alarm.rows ?? []).some((one) => one.record === name));
    if (lacking.length) element(parent, 'p', 'note', `No rows of ${lacking.join(', ')} were kept with it.`);
  }

  drawFacts(parent, alarm) {
    const seconds = Math.max(0, (alarm.until ?? now()) - alarm.since);
    const then = make('a', '', 'The host at its begin');
    then.href = link({ page: 'overview', choice: {}, at: alarm.since });
    const list = element(parent, 'dl', 'pairs');
    for (const [name, value] of [
      ['Alarm', alarm.alarm],
      ['Severity', make('span', `severity ${graveness(alarm.severity)}`, alarm.severity)],
      ['State', alarm.state === 'active' ? make('span', 'verdict bad', 'active') : alarm.state],
      ['Began', timeNode(alarm.since)],
      ['Ended', alarm.until ? timeNode(alarm.until) : '-'],
      ['For', duration(seconds)],
      ['Record', alarm.record],
      ['Then', then],
    ]) {
      element(list, 'dt', '', name);
      element(list, 'dd').append(value || '-');
    }
  }

  /// The columns for people where the schema names them; all are in the CSV.
  drawRows(parent, { record, time, rows }, schema) {
    const labels = rows.length ? Object.keys(rows[0]) : [];
    const shown = (schema?.shown ?? []).map((one) => one.label).filter((label) => labels.includes(label));
    const columns = (shown.length ? shown : labels.slice(0, kMostColumns)).map((label) => columnOf(schema ?? { fields: [] }, label));
    const head = element(parent, 'div', 'part-head captured');
    element(head, 'h3', 'group', `${record}: ${rows.length} ${rows.length === 1 ? 'row' : 'rows'}`);
    const note = element(head, 'span', 'dim');
    note.append('as of ', timeNode(time));
    const numbered = rows.map((row, place) => ({ row, place }));
    const shownRows = table(parent, {
      caption: `Rows of ${record}`,
      columns: columns.map((column) => ({ ...column, value: ({ row }) => row[column.label] })),
      rows: numbered,
      keyOf: ({ place }) => place,
      filter: `Filter ${record}`,
    });
    head.append(csvButton(`alarm-${this.id}-${record}`, () => ({ labels, rows: shownRows.chosen().map(({ row }) => row) })));
    this.tables.push(shownRows);
  }

  leave() {
    this.abort?.abort();
    this.clear();
  }
}

function drawValues(parent, heading, values, schema) {
  const labels = Object.keys(values ?? {});
  if (!labels.length) return;
  element(parent, 'h3', 'group', heading);
  const known = new Map((schema?.fields ?? []).map((field) => [field.label, field]));
  const fields = labels.map((label) => ({ ...(known.get(label) ?? { label, type: 'char[1]' }), group: '' }));
  figures(parent, { fields }, values, { only: labels });
}
