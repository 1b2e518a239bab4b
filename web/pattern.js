// Patterns as the shell has them: * and ?, [abc], [a-z], [!a], [[:digit:]], and a backslash before what stands for itself.

const kClasses = {
  alnum: 'A-Za-z0-9', alpha: 'A-Za-z', blank: ' \\t', cntrl: '\\x00-\\x1f\\x7f', digit: '0-9', graph: '\\x21-\\x7e', lower: 'a-z', print: '\\x20-\\x7e',
  punct: '\\x21-\\x2f\\x3a-\\x40\\x5b-\\x60\\x7b-\\x7e', space: '\\s', upper: 'A-Z', xdigit: '0-9A-Fa-f',
};
const kNothing = /(?!)/;

const plain = (sign) => sign.replace(/[\\^$.*+?()[\]{}|/]/, '\\$&');
const plainInSet = (sign) => sign.replace(/[\\\]^[-]/, '\\$&');

/// A function that tells whether a text fits the pattern as a whole.
export function patternOf(text) {
  const signs = [...text];
  let source = '';
  for (let at = 0; at < signs.length; at += 1) {
    const sign = signs[at];
    if (sign === '*') source += '.*';
    else if (sign === '?') source += '.';
    else if (sign === '[') {
      const set = setAt(signs, at);
      source += set ? set.source : '\\[';
      if (set) at = set.end;
    } else if (sign === '\\') {
      at += 1;
      // A backslash at the end escapes nothing, so nothing fits.
      source += at < signs.length ? plain(signs[at]) : '(?!)';
    } else {
      source += plain(sign);
    }
  }
  const form = expression(source);
  return (sought) => form.test(sought);
}

/// A range that runs backwards holds nothing.
function expression(source) {
  try {
    return new RegExp(`^${source}$`, 'su');
  } catch {
    return kNothing;
  }
}

/// The set that begins at a bracket and where it ends, or null if it has no end and the bracket stands for itself.
function setAt(signs, begin) {
  let at = begin + 1;
  const isOther = signs[at] === '!' || signs[at] === '^';
  if (isOther) at += 1;
  let source = '';
  // A bracket that closes at once is one of the set.
  for (let isFirst = true; at < signs.length; isFirst = false, at += 1) {
    const sign = signs[at];
    if (sign === ']' && !isFirst) return { source: `[${isOther ? '^' : ''}${source}]`, end: at };
    const named = /^\[:([a-z]+):\]/.exec(signs.slice(at, at + 12).join(''));
    if (named && Object.hasOwn(kClasses, named[1])) {
      source += kClasses[named[1]];
      at += named[0].length - 1;
    } else if (sign === '-' && !isFirst && signs[at + 1] !== ']') {
      source += '-';
    } else if (sign === '\\') {
      at += 1;
      if (at < signs.length) source += plainInSet(signs[at]);
    } else {
      source += plainInSet(sign);
    }
  }
  return null;
}
