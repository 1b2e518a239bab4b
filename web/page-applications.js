// Applications that the site has defined: whether the processes that each needs run.
import { number } from './format.js';
import { write } from './panel.js';
import { rowPage } from './rowpage.js';
import { make } from './table.js';

export const title = 'Applications';

const kPause = 10000;
const kConditions = 15;

/// A verdict as a word with a mark; the word alone says it all.
export function verdict(text) {
  const kinds = { NORMAL: 'good', ABNORMAL: 'bad' };
  return make('span', `verdict ${kinds[text] ?? 'dim'}`, text || '-');
}

/// The numbers of the conditions that the application has.
function used(row) {
  return Array.from({ length: kConditions }, (_, at) => at + 1).filter((n) => row[`Monitor ${n} Kind`] || row[`Monitor ${n} Label`]);
}

function unmet(row) {
  return used(row).filter((n) => row[`Monitor ${n} Status`] === 'ABNORMAL').length;
}

function charts(row) {
  const lines = used(row).map((n) => ({ label: `Monitor ${n} Count`, name: `${n}: ${row[`Monitor ${n} Label`]}` }));
  return lines.length ? [{ title: 'Processes that fit', unit: 'number', lines }] : [];
}

/// The conditions of the open application, one line each.
function details(parent, first) {
  const box = make('div');
  parent.append(make('h3', 'group', 'Conditions'), box);
  const update = (row) => {
    const list = make('ol', 'conditions');
    for (const n of used(row)) {
      const item = make('li');
      item.value = n;
      const what = row[`Monitor ${n} Kind`] === 'CMD' ? 'Command line' : 'Program';
      const count = make('span', 'condition-count');
      write(count, `${number(row[`Monitor ${n} Count`])} of ${row[`Monitor ${n} Range`] || '-'}`);
      item.append(verdict(row[`Monitor ${n} Status`]), make('span', 'condition-kind', what), make('code', '', row[`Monitor ${n} Label`]), count);
      list.append(item);
    }
    box.replaceChildren(list.children.length ? list : make('p', 'note', 'It has no conditions.'));
  };
  update(first);
  return { update };
}

export function show(main) {
  return rowPage(main, {
    record: 'APP',
    keys: ['Application Name'],
    choice: 'application',
    noun: 'application',
    caption: 'Applications',
    sort: 'Application Status',
    pause: kPause,
    empty: 'No applications are defined.',
    columns: [
      { label: 'Application Name', heading: 'Application', opens: true, isNumeric: false }, { label: 'Application Status', heading: 'All conditions hold', format: verdict },
      { label: 'Application Exist', heading: 'Any condition holds', format: verdict }, { label: 'conditions', heading: 'Conditions', isNumeric: true, value: (row) => used(row).length, format: number },
      { label: 'unmet', heading: 'Unmet', isNumeric: true, value: unmet, format: number },
    ],
    charts,
    details,
  });
}
