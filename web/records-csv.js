// Records as CSV: all kept rows of a range, which may take a while, and the points of charts.
import { csvButton, csvOf, download } from './csv.js';
import { number } from './format.js';
import { make } from './table.js';

export const kMostSaved = 200000;

/// A button that saves kept rows; `ask({onPage, signal})` gives those of the whole range. While it is asked the button stops
/// that. `chosen(rows)` are those that the reader's filter leaves. Gives the function that ends it.
export function keptCsvButton(parent, { record, labels, ask, chosen }) {
  const told = make('span', 'dim');
  told.setAttribute('role', 'status');
  const button = make('button', 'plain', 'Save as CSV');
  button.type = 'button';
  parent.append(told, button);
  let abort = null;
  const save = async () => {
    abort = new AbortController();
    const { signal } = abort;
    button.textContent = 'Stop';
    told.textContent = 'Reading rows';
    try {
      const rows = await ask({ signal, onPage: (count) => (told.textContent = `${number(count)} rows read`) });
      download(`${record}.csv`, csvOf(labels, chosen(rows)));
      told.textContent = rows.length >= kMostSaved ? `The newest ${number(rows.length)} rows were saved; the range may have more.` : '';
    } catch (error) {
      told.textContent = signal.aborted ? 'Nothing was saved.' : `Nothing was saved: ${error.message}.`;
    } finally {
      abort = null;
      button.textContent = 'Save as CSV';
    }
  };
  button.addEventListener('click', () => (abort ? abort.abort() : save()));
  return () => abort?.abort();
}

const kPointLabels = ['Record Time', 'Field', 'Row', 'Least', 'Mean', 'Greatest'];

/// A button that saves the points of charts, [{field, scale, chart}], in the unit that the field's label names.
export function pointsCsvButton(record, drawn) {
  return csvButton(`${record}-charts`, () => ({ labels: kPointLabels, rows: drawn.flatMap(pointsOf) }));
}

function pointsOf({ field, scale, chart }) {
  return chart.points().map(({ time, key, spread }) => {
    const [least, mean, greatest] = spread.map((value) => value / scale);
    return { 'Record Time': time, Field: field.label, Row: key, Least: least, Mean: mean, Greatest: greatest };
  });
}
