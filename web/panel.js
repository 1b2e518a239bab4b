// What stands beside a table: one row with all its figures, and words for what can't be shown.
import { follow } from './events.js';
import { shownOf, timeNode } from './format.js';
import { state } from './state.js';
import { make } from './table.js';

const kRetryPause = 5000;
const kFar = 300;
const kHidden = ['Record Type', 'Record Time', 'Interval'];

/// An aside with a heading and a button that closes it, as Esc does. Gives {body, close()}; `onClose` is called when the reader
/// closes it.
export function panel(parent, { title, onClose }) {
  const aside = make('aside', 'panel');
  aside.setAttribute('aria-label', title);
  const head = make('div', 'panel-head');
  const heading = make('h2', 'panel-title', title);
  heading.tabIndex = -1;
  const button = make('button', 'plain', 'Close');
  button.type = 'button';
  button.addEventListener('click', onClose);
  head.append(heading, button);
  const body = make('div', 'panel-body');
  aside.append(head, body);
  parent.append(aside);
  const escape = (event) => {
    if (event.key !== 'Escape' || event.defaultPrevented) return;
    event.preventDefault();
    onClose();
  };
  document.addEventListener('keydown', escape);
  heading.focus({ preventScroll: innerWidth > 900 });
  return {
    body,
    close() {
      document.removeEventListener('keydown', escape);
      aside.remove();
    },
  };
}

/// All figures of a row under their groups, with the schema's explanations. Gives {update(row)}.
export function figures(parent, schema, row, { hide = [], only = null } = {}) {
  const skip = new Set([...kHidden, ...hide]);
  const fields = schema.fields.filter((field) => field.source !== false && (only ? only.includes(field.label) : !skip.has(field.label)));
  const cells = [];
  let list = null;
  let group = null;
  for (const field of fields) {
    if (!list || (field.group ?? '') !== group) {
      group = field.group ?? '';
      if (group) parent.append(make('h3', 'group', group));
      list = make('dl', 'facts');
      parent.append(list);
    }
    const pair = make('div', field.type.startsWith('char[') ? 'fact is-text' : 'fact');
    const name = make('dt', '', field.label);
    if (field.help) name.title = field.help;
    const value = make('dd');
    pair.append(name, value);
    list.append(pair);
    cells.push({ field, value });
  }
  const update = (next) => {
    for (const { field, value } of cells) write(value, shownOf(field, next[field.label]));
  };
  update(row);
  return { update };
}

/// Puts a text or a node where another stood.
export function write(node, shown) {
  if (shown instanceof Node) {
    // What stands there may be marked, or be pointed at.
    if (node.textContent !== shown.textContent || !node.firstElementChild) node.replaceChildren(shown);
  } else if (node.textContent !== String(shown)) node.textContent = shown;
}

/// Says of which time the rows beside are; a time of the past that lies far from the one that was asked for stands out.
export function tellTime(node, time) {
  const isFar = state.at !== null && time > 0 && Math.abs(time - state.at) > kFar;
  node.classList.toggle('warn', isFar);
  if (!time) node.textContent = state.at === null ? 'nothing collected yet' : 'nothing kept near this time';
  else node.replaceChildren(isFar ? 'the nearest kept time is ' : 'as of ', timeNode(time));
}

/// Calls `fn` once when asking anew is worth it: at the first rows of a record that was not scheduled, else after a while
/// if the page is seen then.
/// Gives the function that stops waiting.
export function whenBack(record, error, fn) {
  if (error.code === 'not-scheduled') {
    const stop = follow(record, () => {
      stop();
      fn();
    }, { isFresh: true });
    return stop;
  }
  if (error.status !== 0 && error.status !== 503) return () => {};
  const timer = setInterval(() => {
    if (document.hidden) return;
    clearInterval(timer);
    fn();
  }, kRetryPause);
  return () => clearInterval(timer);
}

/// What stands in place of a record's rows when asking for them failed.
export function failure(parent, record, error) {
  if (error.name === 'AbortError' || error.status === 401) return null;
  const note = make('div', 'note');
  note.setAttribute('role', 'status');
  if (error.code === 'not-scheduled') {
    note.append(make('p', '', `No schedule collects ${record}, so there is nothing to show yet. This collects it each minute:`));
    note.append(make('code', 'command', `qmtctl schedule set ${record} 60`));
  } else if (error.code === 'no-history') {
    note.append(make('p', '', 'The agent keeps no history, so there is nothing of the past to show.'));
  } else {
    note.append(make('p', '', `${record} can't be shown: ${error.message}.`));
  }
  parent.append(note);
  return note;
}
