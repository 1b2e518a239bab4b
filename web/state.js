// What the page shows, as its address tells it: #/PAGE?range=1h&at=T&from=T&to=T&NAME=TEXT. Anything else in the query is a
// choice of the page. A change of the page or of `at` shows the page anew (app.js); charts follow a change of the range
// themselves; a page that has choices listens by onChange.
import { now } from './clock.js';

export const kRanges = { '15m': 900, '1h': 3600, '6h': 21600, '24h': 86400, '7d': 604800, '14d': 1209600 };
const kDefaultRange = '1h';
const kOwnNames = ['range', 'at', 'from', 'to'];
const listeners = new Set();

/// The times that are shown, in seconds. A live range moves with the clock.
class Range {
  constructor(name, from, to, at) {
    this.name = name;
    this.from = from;
    this.to = to;
    this.at = at;
  }

  get seconds() {
    return this.isFixed ? this.to - this.from : kRanges[this.name];
  }

  get isFixed() {
    return this.from !== null && this.to !== null;
  }

  get isLive() {
    return !this.isFixed && this.at === null;
  }

  get until() {
    if (this.isFixed) return this.to;
    if (this.at === null) return now();
    return Math.min(now(), this.at + Math.floor(this.seconds / 2));
  }

  get since() {
    return this.isFixed ? this.from : this.until - this.seconds;
  }
}

export const state = { page: 'overview', range: new Range(kDefaultRange, null, null, null), at: null, choice: {} };

function whole(text) {
  return text && /^\d{1,12}$/.test(text) ? Number(text) : null;
}

function read() {
  const [path, query = ''] = location.hash.replace(/^#\/?/, '').split('?');
  const told = new URLSearchParams(query);
  state.page = /^[a-z]+$/.test(path) ? path : 'overview';
  state.at = whole(told.get('at'));
  const name = told.get('range');
  let from = whole(told.get('from'));
  let to = whole(told.get('to'));
  if (from === null || to === null || to <= from) from = to = null;
  state.range = new Range(Object.hasOwn(kRanges, name ?? '') ? name : kDefaultRange, from, to, state.at);
  state.choice = {};
  for (const [key, value] of told) if (!kOwnNames.includes(key)) state.choice[key] = value;
}

/// The address (a hash) of another view. What is not given stays; another page starts without choices.
/// `range` is {name} or {from, to}; `at` null means now.
export function link({ page, choice, range, at } = {}) {
  const query = new URLSearchParams();
  const name = range?.name ?? state.range.name;
  if (name !== kDefaultRange) query.set('range', name);
  const from = range ? range.from : state.range.from;
  const to = range ? range.to : state.range.to;
  if (from !== undefined && from !== null && to) {
    query.set('from', Math.floor(from));
    query.set('to', Math.ceil(to));
  }
  const time = at === undefined ? state.at : at;
  if (time !== null) query.set('at', time);
  const choices = choice ?? (page && page !== state.page ? {} : state.choice);
  for (const [key, value] of Object.entries(choices)) if (value !== undefined && value !== null && value !== '') query.set(key, value);
  const text = query.toString();
  return `#/${page ?? state.page}${text ? `?${text}` : ''}`;
}

/// Goes to another view. `isZoom` counts a step that the time bar's "back" undoes; `replace` leaves no step in the history.
export function go(view, { replace = false, isZoom = false } = {}) {
  const hash = link(view);
  if (hash === location.hash) return;
  const depth = view.range && !isZoom ? 0 : zoomDepth() + (isZoom ? 1 : 0);
  if (replace) history.replaceState({ depth: zoomDepth() }, '', hash);
  else history.pushState({ depth }, '', hash);
  tell();
}

/// How many zooms Back can undo.
export function zoomDepth() {
  return history.state?.depth ?? 0;
}

/// Changes one choice of the page; null or '' takes it away.
export function choose(name, value, options) {
  go({ choice: { ...state.choice, [name]: value } }, options);
}

/// `fn(state, before)` after each change; gives the function that stops it.
export function onChange(fn) {
  listeners.add(fn);
  return () => listeners.delete(fn);
}

function tell() {
  const before = { ...state };
  read();
  for (const fn of [...listeners]) if (listeners.has(fn)) fn(state, before);
}

/// Reads the address for the first time and whenever the browser changes it.
export function start() {
  read();
  addEventListener('popstate', tell);
}
