// The conditions of rows, "LABEL OP VALUE", as the daemon understands them; for rows that come by themselves.

export function meets(text, row) {
  const match = /^(.*?)\s*(!=|<=|>=|=|<|>|~)\s*(.*)$/.exec(text);
  if (!match) return true;
  const [, label, op, value] = match;
  const found = row[label];
  if (op === '~') return patternOf(value).test(String(found));
  const isSame = typeof found === 'number' ? found === Number(value) : String(found) === value;
  if (op === '=') return isSame;
  if (op === '!=') return !isSame;
  if (found === null || found === undefined) return false;
  const [a, b] = [Number(found), Number(value)];
  return { '<': a < b, '<=': a <= b, '>': a > b, '>=': a >= b }[op];
}

/// A shell's pattern of * and ?; anything else stands for itself.
function patternOf(text) {
  const escaped = text.replace(/[\\^$.|+()[\]{}]/g, '\\$&');
  return new RegExp(`^${escaped.replaceAll('*', '.*').replaceAll('?', '.')}$`, 's');
}
