// Small parts that several pages are made of.
import { link } from './state.js';

export function element(parent, name, className, text) {
  const node = document.createElement(name);
  if (className) node.className = className;
  if (text !== undefined) node.textContent = text;
  parent.append(node);
  return node;
}

/// A part of a page under a heading, which links to the `page` that tells more.
export function card(parent, heading, page) {
  const section = element(parent, 'section', 'card');
  const head = element(section, 'div', 'card-head');
  const title = element(head, 'h2', '', page ? undefined : heading);
  if (page) element(title, 'a', '', heading).href = link({ page, choice: {} });
  return { section, head, body: element(section, 'div', 'card-body') };
}

/// What stands in place of figures that could not be asked for; null if nobody is to be told.
export function reason(record, error) {
  if (error.name === 'AbortError' || error.status === 401) return null;
  if (error.code === 'not-scheduled') return `${record} is not scheduled, so there are no figures. To schedule it: qmtctl schedule set ${record} 60`;
  if (error.code === 'no-history') return 'The agent keeps no history.';
  return error.message;
}
