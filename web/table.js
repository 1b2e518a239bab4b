// A table that stays where it is while its figures change: rows are known by key, cells are written only where the text changed,
// so focus, selection and scroll survive each look. Whatever a row holds is text, never markup.

import { chosenBy, comparison, folded, textIn, valueIn } from './cells.js';

const kMostRows = 400;

/// options: columns [{label, heading, help, format(value, row), value(row), title(row), isNumeric, width, opens}], rows, keyOf(row),
/// onOpen(row, key), sort ("-Label" descending), filter (true, or the field's name for screen readers) and where it stands (filterParent), caption, empty (what stands
/// there without rows), arrange(rows, compare, isChosen, isFiltered) -> [{row, key, depth, children, isOpen, isGroup}],
/// onToggle(key), onSort(sort), text and onFilter(text) of the filter. `format` gives a text or a node; nothing is shown as "-".
export function table(parent, options) {
  const self = {
    options, rows: options.rows ?? [], sort: options.sort ?? '', text: folded(options.text), most: kMostRows, lines: new Map(), byRow: new WeakMap(), active: null, selected: null,
  };
  build(self, parent);
  draw(self);
  return {
    update(rows, changes) {
      Object.assign(self.options, changes ?? {});
      self.rows = rows;
      draw(self);
    },
    select(key) {
      self.selected = key ?? null;
      for (const line of self.lines.values()) mark(self, line);
    },
    focus(key) {
      self.lines.get(key)?.button?.focus();
    },
    /// Takes sort and filter from outside, as when the reader goes back.
    apply({ sort = '', text }) {
      // What is being typed has not come into the address yet.
      const next = self.timer ? self.text : folded(text);
      if (sort === self.sort && next === self.text) return;
      self.sort = sort;
      self.text = next;
      if (self.input && folded(self.input.value) !== next) self.input.value = text ?? '';
      draw(self);
    },
    /// The rows that fit the filter, in order; folded ones too.
    chosen(rows = self.rows) {
      const { columns } = self.options;
      const chosen = rows.filter((row) => chosenBy(columns, row, self.text));
      const compare = comparison(columns, self.sort);
      return compare ? chosen.sort(compare) : chosen;
    },
    columns: () => self.options.columns,
    destroy() {
      clearTimeout(self.timer);
      self.root.remove();
    },
  };
}

/// An element with a class and a text.
export function make(name, className, text) {
  const node = document.createElement(name);
  if (className) node.className = className;
  if (text !== undefined && text !== null) node.textContent = text;
  return node;
}

function build(self, parent) {
  const { options } = self;
  self.root = make('div', 'table-frame');
  if (options.filter) (options.filterParent ?? self.root).append(filterField(self));
  const box = make('div', 'table-box');
  // A box that scrolls must be reachable without a mouse.
  box.tabIndex = 0;
  box.setAttribute('role', 'region');
  box.setAttribute('aria-label', options.caption ?? 'Table');
  self.table = make('table', 'table');
  if (options.caption) self.table.append(make('caption', 'hidden', options.caption));
  self.head = make('tr');
  const head = make('thead');
  head.append(self.head);
  self.body = make('tbody');
  self.table.append(head, self.body);
  box.append(self.table);
  self.note = make('p', 'table-note');
  self.note.setAttribute('role', 'status');
  self.root.append(box, self.note);
  buildHead(self);
  self.body.addEventListener('click', (event) => clicked(self, event));
  self.body.addEventListener('keydown', (event) => keyed(self, event));
  self.body.addEventListener('focusin', (event) => {
    const line = lineOf(self, event.target);
    if (line) activate(self, line);
  });
  parent.append(self.root);
}

function filterField(self) {
  const name = typeof self.options.filter === 'string' ? self.options.filter : 'Filter';
  const input = make('input', 'filter');
  self.input = input;
  input.type = 'search';
  input.placeholder = name;
  input.setAttribute('aria-label', name);
  input.spellcheck = false;
  input.value = self.options.text ?? '';
  input.addEventListener('input', () => {
    self.text = folded(input.value);
    self.most = kMostRows;
    draw(self);
    // An address for each letter would be more than browsers allow.
    clearTimeout(self.timer);
    self.timer = setTimeout(() => {
      self.timer = 0;
      self.options.onFilter?.(input.value.trim());
    }, 400);
  });
  return input;
}

function buildHead(self) {
  self.heads = self.options.columns.map((column) => {
    const cell = make('th', column.isNumeric ? 'number' : '');
    cell.scope = 'col';
    if (column.width) cell.style.width = column.width;
    const button = make('button', 'sort', column.heading ?? column.label);
    button.type = 'button';
    if (column.help) button.title = column.help;
    button.addEventListener('click', () => sortBy(self, column));
    cell.append(button);
    self.head.append(cell);
    return { column, cell };
  });
}

/// Figures begin with the greatest, names with the first.
function sortBy(self, column) {
  const [up, down] = [column.label, `-${column.label}`];
  if (self.sort === up) self.sort = down;
  else if (self.sort === down) self.sort = up;
  else self.sort = column.isNumeric ? down : up;
  self.options.onSort?.(self.sort);
  draw(self);
}

/// The lines to show: by the arrangement where there is one, else filtered and sorted.
function arranged(self) {
  const { columns } = self.options;
  const compare = comparison(columns, self.sort);
  const choose = (row) => chosenBy(columns, row, self.text);
  if (self.options.arrange) return self.options.arrange(self.rows, compare, choose, self.text !== '');
  const rows = self.rows.filter(choose);
  if (compare) rows.sort(compare);
  return rows.map((row) => ({ row, key: self.options.keyOf(row), depth: 0, children: 0 }));
}

function draw(self) {
  for (const { column, cell } of self.heads) {
    const isUp = self.sort === column.label;
    const isDown = self.sort === `-${column.label}`;
    cell.setAttribute('aria-sort', isUp ? 'ascending' : isDown ? 'descending' : 'none');
  }
  const all = arranged(self);
  place(self, all.slice(0, self.most));
  tellNote(self, all.length);
}

function place(self, entries) {
  const focused = self.body.contains(document.activeElement) ? lineOf(self, document.activeElement) : null;
  const focusedNode = document.activeElement;
  const keys = new Set(entries.map((entry) => entry.key));
  for (const [key, line] of self.lines) {
    if (keys.has(key)) continue;
    line.row.remove();
    self.lines.delete(key);
  }
  let before = self.body.firstChild;
  for (const entry of entries) {
    const line = self.lines.get(entry.key) ?? newLine(self, entry);
    fill(self, line, entry);
    if (line.row === before) before = before.nextSibling;
    else self.body.insertBefore(line.row, before);
  }
  if (focused && self.lines.has(focused.key) && document.activeElement !== focusedNode) focusedNode.focus({ preventScroll: true });
  if (!self.lines.has(self.active)) {
    self.active = null;
    const first = entries.length ? self.lines.get(entries[0].key) : null;
    if (first) activate(self, first);
  }
}

function newLine(self, entry) {
  const row = make('tr');
  const line = { key: entry.key, row, cells: [], entry };
  const opening = Math.max(0, self.options.columns.findIndex((column) => column.opens));
  self.options.columns.forEach((column, place) => {
    const cell = make(place === opening ? 'th' : 'td', column.isNumeric ? 'number' : 'text');
    if (place === opening) {
      cell.scope = 'row';
      buildOpening(self, line, cell);
    }
    row.append(cell);
    line.cells.push({ cell, target: place === opening ? line.button ?? line.plain : cell, last: null });
  });
  self.lines.set(entry.key, line);
  self.byRow.set(row, line);
  mark(self, line);
  return line;
}

/// The cell that names the row: it opens it, and folds what lies below it.
function buildOpening(self, line, cell) {
  cell.classList.add('opening');
  line.indent = make('span', 'indent');
  cell.append(line.indent);
  line.toggle = make('button', 'toggle');
  line.toggle.type = 'button';
  line.toggle.tabIndex = -1;
  line.toggle.hidden = true;
  line.indent.append(line.toggle);
  if (self.options.onOpen) {
    line.button = make('button', 'open');
    line.button.type = 'button';
    line.button.tabIndex = -1;
    cell.append(line.button);
  } else {
    line.plain = make('span');
    cell.append(line.plain);
  }
}

function fill(self, line, entry) {
  line.entry = entry;
  line.row.classList.toggle('is-group', Boolean(entry.isGroup));
  const depth = Math.min(entry.depth ?? 0, 12);
  if (line.depth !== depth) line.indent.style.paddingInlineStart = `${depth * 0.9}rem`;
  line.depth = depth;
  line.toggle.hidden = !entry.children;
  line.indent.classList.toggle('has-toggle', Boolean(entry.children));
  if (entry.children) {
    line.toggle.setAttribute('aria-expanded', String(entry.isOpen));
    line.toggle.setAttribute('aria-label', entry.isOpen ? 'Fold' : 'Unfold');
    if (entry.isGroup) line.button?.setAttribute('aria-expanded', String(entry.isOpen));
  }
  self.options.columns.forEach((column, place) => {
    const part = line.cells[place];
    const shown = textIn(column, entry.row);
    if (shown instanceof Node) {
      if (part.last !== shown.textContent + valueIn(column, entry.row)) part.target.replaceChildren(shown);
      part.last = shown.textContent + valueIn(column, entry.row);
    } else if (part.last !== shown) {
      part.target.textContent = String(shown);
      part.last = shown;
    }
    if (column.title) part.cell.title = column.title(entry.row) ?? '';
  });
}

function mark(self, line) {
  const isSelected = line.key === self.selected;
  line.row.classList.toggle('is-selected', isSelected);
  if (isSelected) line.button?.setAttribute('aria-current', 'true');
  else line.button?.removeAttribute('aria-current');
}

function tellNote(self, total) {
  const shown = Math.min(total, self.most);
  self.note.replaceChildren();
  if (!total) {
    self.note.textContent = self.text ? 'Nothing fits the filter.' : self.options.empty ?? 'There are no rows.';
  } else if (shown < total) {
    self.note.append(`${shown} of ${total} rows. `);
    const more = make('button', 'plain', 'Show all');
    more.type = 'button';
    more.addEventListener('click', () => {
      self.most = Infinity;
      draw(self);
    });
    self.note.append(more);
  }
  self.note.hidden = total > 0 && shown === total;
}

function lineOf(self, node) {
  return self.byRow.get(node?.closest?.('tr')) ?? null;
}

/// One row alone takes part in the order of Tab; the arrows go to the others.
function activate(self, line) {
  const before = self.lines.get(self.active);
  if (before?.button) before.button.tabIndex = -1;
  self.active = line.key;
  if (line.button) line.button.tabIndex = 0;
}

function toggle(self, line) {
  self.options.onToggle?.(line.key);
  draw(self);
}

function clicked(self, event) {
  const line = lineOf(self, event.target);
  if (!line) return;
  if (event.target.closest('.toggle')) return toggle(self, line);
  if (line.entry.isGroup) return toggle(self, line);
  // Text that was just marked is to be copied, not to open anything.
  if (!event.target.closest('button') && String(getSelection())) return;
  self.options.onOpen?.(line.entry.row, line.key);
}

function keyed(self, event) {
  const line = lineOf(self, event.target);
  if (!line || event.altKey || event.ctrlKey || event.metaKey) return;
  const rows = [...self.body.rows];
  const at = rows.indexOf(line.row);
  const places = { ArrowDown: at + 1, ArrowUp: at - 1, Home: 0, End: rows.length - 1, PageDown: at + 15, PageUp: at - 15 };
  if (event.key in places) {
    const next = lineOf(self, rows[Math.max(0, Math.min(rows.length - 1, places[event.key]))]);
    next?.button?.focus();
    event.preventDefault();
  } else if (line.entry.children && (event.key === 'ArrowRight') !== Boolean(line.entry.isOpen) && ['ArrowRight', 'ArrowLeft'].includes(event.key)) {
    toggle(self, line);
    event.preventDefault();
  }
}
