// What the cells of a table show, and how its rows are compared and chosen by it.

const collator = new Intl.Collator(undefined, { numeric: true });

/// A text as it is searched for.
export const folded = (text) => (text ?? '').trim().toLocaleLowerCase();

/// A row's value for a column: what is sorted by.
export function valueIn(column, row) {
  return column.value ? column.value(row) : row[column.label];
}

/// A function that compares two rows by a sort such as "-Label", or null without one; what has no value stands last either way.
export function comparison(columns, sort) {
  const isDown = sort.startsWith('-');
  const label = isDown ? sort.slice(1) : sort;
  const column = columns.find((one) => one.label === label);
  if (!column) return null;
  return (a, b) => {
    const [x, y] = [valueIn(column, a), valueIn(column, b)];
    const [isNoX, isNoY] = [isNothing(x), isNothing(y)];
    if (isNoX || isNoY) return isNoX - isNoY;
    const order = typeof x === 'number' && typeof y === 'number' ? x - y : collator.compare(String(x), String(y));
    return isDown ? -order : order;
  };
}

function isNothing(value) {
  return value === null || value === undefined || value === '';
}

/// What the column shows of a row: a text or a node.
export function textIn(column, row) {
  const value = valueIn(column, row);
  // A group has no such figure at all, which is not a figure without a source.
  if (row.isGroup && value === undefined) return '';
  const shown = column.format ? column.format(value, row) : value;
  return isNothing(shown) ? '-' : shown;
}

/// Whether any column of the row shows the text, which is folded.
export function chosenBy(columns, row, text) {
  if (!text) return true;
  return columns.some((column) => {
    const shown = textIn(column, row);
    const whole = shown instanceof Node ? `${valueIn(column, row) ?? ''} ${shown.textContent}` : String(shown);
    return whole.toLocaleLowerCase().includes(text);
  });
}
