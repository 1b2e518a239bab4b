// Arrangements of a table's rows: as a tree by parent, or as groups with sums. See table.js, `arrange`.

/// What the reader has folded or unfolded; everything else is as at first.
export class Folds {
  constructor(isOpenAtFirst) {
    this.isOpenAtFirst = isOpenAtFirst;
    this.changed = new Set();
  }

  isOpen(key) {
    return this.changed.has(key) !== this.isOpenAtFirst;
  }

  toggle(key) {
    if (!this.changed.delete(key)) this.changed.add(key);
  }
}

/// Rows below their parents. `parentOf(row, byKey)` gives the parent's key; a row whose parent is not there is a root.
/// With a filter the rows that fit are shown with all above them, unfolded.
export function treeArrange({ keyOf, parentOf, folds }) {
  return (rows, compare, isChosen, isFiltered) => {
    const byKey = new Map(rows.map((row) => [keyOf(row), row]));
    const parents = new Map(rows.map((row) => [keyOf(row), knownParent(row, parentOf, byKey, keyOf)]));
    const shown = isFiltered ? withAncestors(rows.filter(isChosen).map(keyOf), parents) : null;
    const children = childrenOf(rows, parents, keyOf, shown, compare);
    const entries = [];
    const seen = new Set();
    const walk = (roots) => {
      // A chain of parents may be longer than the calls that the browser allows, hence a stack of our own.
      const stack = roots.map((row) => [row, 0]).reverse();
      while (stack.length) {
        const [row, depth] = stack.pop();
        const key = keyOf(row);
        if (seen.has(key)) continue;
        seen.add(key);
        const below = children.get(key) ?? [];
        const isOpen = isFiltered || folds.isOpen(key);
        entries.push({ row, key, depth, children: below.length, isOpen });
        if (isOpen) for (let at = below.length - 1; at >= 0; --at) stack.push([below[at], depth + 1]);
      }
    };
    walk(children.get(null) ?? []);
    return entries;
  };
}

function knownParent(row, parentOf, byKey, keyOf) {
  const parent = parentOf(row, byKey);
  return parent !== null && parent !== keyOf(row) && byKey.has(parent) ? parent : null;
}

function withAncestors(keys, parents) {
  const shown = new Set();
  for (let key of keys) {
    for (; key !== null && !shown.has(key); key = parents.get(key)) shown.add(key);
  }
  return shown;
}

function childrenOf(rows, parents, keyOf, shown, compare) {
  const children = new Map();
  const rooted = reaching(parents);
  for (const row of rows) {
    const key = keyOf(row);
    if (shown && !shown.has(key)) continue;
    // Two looks may disagree on who is whose parent; a ring would be shown nowhere.
    const parent = rooted.has(key) ? parents.get(key) : null;
    if (!children.has(parent)) children.set(parent, []);
    children.get(parent).push(row);
  }
  if (compare) for (const list of children.values()) list.sort(compare);
  return children;
}

/// The keys from which a root can be reached.
function reaching(parents) {
  const rooted = new Set();
  for (const start of parents.keys()) {
    const path = [];
    const onPath = new Set();
    let key = start;
    while (key !== null && !rooted.has(key) && !onPath.has(key)) {
      path.push(key);
      onPath.add(key);
      key = parents.get(key);
    }
    if (key === null || rooted.has(key)) for (const one of path) rooted.add(one);
  }
  return rooted;
}

/// The key of the nearest group above a path such as "/a/b/c" that has a row.
export function parentByPath(path, byKey) {
  let rest = path;
  while (rest.length > 1) {
    rest = rest.slice(0, Math.max(1, rest.lastIndexOf('/')));
    if (byKey.has(rest)) return rest;
    if (!rest.startsWith('/')) return null;
  }
  return null;
}

/// Rows under the groups that `nameOf(row)` names; `sumOf(rows, name)` makes the row of a group.
export function groupArrange({ keyOf, nameOf, sumOf, folds }) {
  return (rows, compare, isChosen, isFiltered) => {
    const groups = new Map();
    for (const row of rows) {
      if (!isChosen(row)) continue;
      const name = nameOf(row);
      if (!groups.has(name)) groups.set(name, []);
      groups.get(name).push(row);
    }
    const heads = [...groups].map(([name, members]) => ({ name, members, row: sumOf(members, name) }));
    if (compare) heads.sort((a, b) => compare(a.row, b.row));
    const entries = [];
    for (const { name, members, row } of heads) {
      const key = `group ${name}`;
      const isOpen = folds.isOpen(key) || (isFiltered && members.length <= 20);
      entries.push({ row, key, depth: 0, children: members.length, isOpen, isGroup: true });
      if (!isOpen) continue;
      if (compare) members.sort(compare);
      for (const member of members) entries.push({ row: member, key: keyOf(member), depth: 1, children: 0 });
    }
    return entries;
  };
}
