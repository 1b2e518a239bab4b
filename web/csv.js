// Rows as comma-separated values (RFC 4180: a quote is doubled, lines end with CR LF), saved as a file.

const kFormulaBegin = /^[=+\-@\t\r]/;

/// A text that a spreadsheet would take for a formula gets an apostrophe; numbers stay numbers.
export function cellOf(value) {
  if (value === null || value === undefined) return '';
  if (typeof value === 'number') return String(value);
  let text = String(value);
  const isFormula = kFormulaBegin.test(text);
  if (isFormula) text = `'${text}`;
  return isFormula || /[",\r\n]/.test(text) ? `"${text.replaceAll('"', '""')}"` : text;
}

/// The labels as the first line, then one line for each row.
export function csvOf(labels, rows) {
  const lines = [labels.map(cellOf), ...rows.map((row) => labels.map((label) => cellOf(row[label])))];
  return lines.map((line) => line.join(',')).join('\r\n') + '\r\n';
}

/// Saves the text under the name; the page stays.
export function download(name, text) {
  const address = URL.createObjectURL(new Blob([text], { type: 'text/csv;charset=utf-8' }));
  const link = document.createElement('a');
  link.href = address;
  link.download = name.replace(/[^\w.-]+/g, '-');
  document.body.append(link);
  link.click();
  link.remove();
  // The browser reads the blob after the click has returned.
  setTimeout(() => URL.revokeObjectURL(address), 10000);
}

/// A button that saves what rowsOf() gives at the time of the click.
export function csvButton(name, rowsOf) {
  const button = document.createElement('button');
  button.type = 'button';
  button.className = 'plain';
  button.textContent = 'Save as CSV';
  button.addEventListener('click', () => {
    const { labels, rows } = rowsOf();
    download(`${name}.csv`, csvOf(labels, rows));
  });
  return button;
}
