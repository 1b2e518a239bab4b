// Asks the gate. Each request carries the token, and a header that keeps the browser's own sign-in dialog away.
import { learnFromDate } from './clock.js';
import { state } from './state.js';

const kTokenName = 'token';
const kStatusLife = 10000;
const kMostRows = 100000;
let credentials = '';
// What the gate has refused is not sent again: each refusal makes it slower to answer this address.
let isRefused = false;
let isProven = false;
let proving = null;
const refusedListeners = new Set();

export class ApiError extends Error {
  constructor(status, code, message, field) {
    super(message);
    this.name = 'ApiError';
    this.status = status;
    this.code = code;
    this.field = field || '';
  }
}

/// Takes the token out of the address, where others could read it, into this tab's memory.
export function takeToken() {
  const match = /^#(?:.*[?&])?token=([^&]+)/.exec(location.hash);
  if (match) {
    let token = match[1];
    try {
      token = decodeURIComponent(token);
    } catch {
      // A token that was not encoded for an address is taken as it stands.
    }
    sessionStorage.setItem(kTokenName, token);
    history.replaceState(null, '', location.pathname);
  }
  const token = sessionStorage.getItem(kTokenName);
  signInBy(token ? `Bearer ${token}` : '');
}

function signInBy(text) {
  credentials = text;
  isRefused = isProven = false;
  proving = null;
  // What one was told is not shown to another.
  lists.clear();
}

export function signInByToken(token) {
  sessionStorage.setItem(kTokenName, token);
  signInBy(`Bearer ${token}`);
}

/// The password is kept in memory alone, so a reload asks for it again.
export function signInByPassword(user, password) {
  const bytes = new TextEncoder().encode(`${user}:${password}`);
  signInBy(`Basic ${btoa(String.fromCharCode(...bytes))}`);
}

export function isSignedIn() {
  return credentials !== '';
}

export function signOut() {
  sessionStorage.removeItem(kTokenName);
  signInBy('');
}

/// `fn` is called when the gate refuses what we sign in with.
export function onRefused(fn) {
  refusedListeners.add(fn);
}

async function sent(where, { own, signal }) {
  const headers = { 'X-Requested-With': 'qmt-console', Authorization: credentials, ...own?.() };
  const answer = await fetch(where, { headers, signal, cache: 'no-store', credentials: 'omit' });
  const time = Date.parse(answer.headers.get('Date'));
  if (time) learnFromDate(time / 1000);
  return answer;
}

/// Sends a question, whose answer may be any. Without a sign-in nothing is sent. With new credentials the first question
/// goes alone, so that a page full of them costs one refusal. `own()` gives headers of its own, at the moment when it goes.
export async function send(where, { own, signal } = {}) {
  const mine = credentials;
  while (proving && !isProven) await proving;
  signal?.throwIfAborted();
  if (!mine || isRefused || mine !== credentials) throw new ApiError(401, 'unauthorized', 'the sign-in is over');
  if (isProven) return judged(await sent(where, { own, signal }), mine);
  const asked = sent(where, { own, signal });
  const judging = asked.then((answer) => judged(answer, mine));
  const isOver = judging.then(() => {}, () => {}).then(() => {
    if (proving === isOver) proving = null;
  });
  proving = isOver;
  return judging;
}

/// An answer to what was signed in with before says nothing of what is used now.
function judged(answer, mine) {
  if (mine !== credentials) return answer;
  if (answer.status === 401) {
    isRefused = true;
    sessionStorage.removeItem(kTokenName);
  } else {
    isProven = true;
  }
  return answer;
}

export function address(path, params = {}) {
  const query = [];
  for (const [name, value] of Object.entries(params)) {
    if (value === undefined || value === null || value === '') continue;
    for (const one of Array.isArray(value) ? value : [value]) query.push(`${encodeURIComponent(name)}=${encodeURIComponent(one)}`);
  }
  return `/api/1/${path}${query.length ? `?${query.join('&')}` : ''}`;
}

/// The error that an answer other than 200 tells; a refusal is told to the sign-in panel too.
export async function errorOf(answer) {
  let told = {};
  try {
    const body = await answer.json();
    told = body.error || body.results?.[0]?.error || {};
  } catch {
    // Not from the gate itself, so the status is all that there is.
  }
  const error = new ApiError(answer.status, told.code || 'http', told.message || `the gate answered ${answer.status}`, told.field);
  if (isRefused) for (const fn of refusedListeners) fn(error);
  return error;
}

/// One question. `params` may hold arrays, which are given several times. Throws ApiError, or AbortError by `signal`.
export async function ask(path, params = {}, { signal } = {}) {
  let answer;
  try {
    answer = await send(address(path, params), { signal });
  } catch (error) {
    if (error.name === 'AbortError' || error.name === 'ApiError') throw error;
    throw new ApiError(0, 'unreachable', 'the gate does not answer');
  }
  if (!answer.ok) throw await errorOf(answer);
  const told = await answer.json();
  if (told.ok === false) throw new ApiError(answer.status, told.error.code, told.error.message, told.error.field);
  return told;
}

function choices({ columns, where, sort, limit }) {
  return { columns: columns && [...new Set(['Record Time', ...columns])], where, sort, limit };
}

/// Rows as {time, rows, total}: the newest of the schedule, with `live` collected now, or those kept nearest to `at`
/// (by default the page's time). A `time` of 0 means that there are none yet.
export async function rows(record, { live = false, at = state.at, signal, ...chosen } = {}) {
  if (at !== null) return rowsAt(record, at, chosen, signal);
  // What is known to fail is not asked, so that the browser's console stays clean.
  if (!live && !(await schedules()).has(record)) throw new ApiError(404, 'not-scheduled', `no schedule collects the record ${record}`);
  const told = await ask(live ? 'get' : 'last', { records: record, ...choices(chosen) }, { signal });
  const result = told.results[0];
  if (result.error) throw new ApiError(200, result.error.code, result.error.message, result.error.field);
  return { time: result.time, rows: result.rows, total: result.rows_total ?? result.rows.length };
}

async function rowsAt(record, at, chosen, signal) {
  const found = await keptRows(record, { at, ...chosen, signal });
  return { time: found.length ? found[0]['Record Time'] : 0, rows: found, total: found.length };
}

/// Kept rows, page after page, at most `limit` of them; `onPage(count)` is told how many there are so far.
export async function keptRows(record, { since, until, at, limit = 10000, sort, signal, onPage, ...chosen } = {}) {
  const all = [];
  let after;
  do {
    const params = { record, since, until, at, after, ...choices({ ...chosen, sort, limit: Math.min(limit - all.length, kMostRows) }) };
    const page = (await ask('history', params, { signal })).history;
    for (const row of page.rows) all.push(row);
    after = page.next ? page.next.join(',') : undefined;
    onPage?.(all.length);
  } while (after && all.length < limit);
  return all;
}

/// Series of buckets: {since, until, seconds, series: [{key, points: {LABEL: [[time, least, mean, greatest]]}}], omitted}.
/// `by` undefined gives one for each key, [] one of all rows.
export async function points(record, columns, { since, until, points: count, where, by, signal } = {}) {
  const keys = by && by.length === 0 ? [''] : by;
  return (await ask('history', { record, columns, since, until, points: count, where, by: keys }, { signal })).history;
}

const schemas = new Map();

/// The layout of a record, asked once: {record, category, fields, about, shown}.
export function schema(record) {
  return remembered(schemas, record, async () => (await ask('schema', { record })).schema);
}

const lists = new Map();

/// What the agent knows: [{record, category, served, layout}].
export function records() {
  return remembered(lists, 'records', async () => (await ask('records')).records);
}

/// The agent's status, at most ten seconds old.
export function status() {
  const found = lists.get('status');
  if (found && Date.now() - found.since < kStatusLife) return found;
  lists.delete('status');
  const asked = remembered(lists, 'status', async () => (await ask('status')).status);
  asked.since = Date.now();
  return asked;
}

/// The seconds of each scheduled record, as a Map of names.
export async function schedules() {
  return new Map((await status()).schedules.map((one) => [one.record, one.seconds]));
}

/// How many rows the last run of each scheduled record had, as a Map of names.
export async function runs() {
  return new Map((await status()).schedules.map((one) => [one.record, one.rows]));
}

function remembered(store, name, make) {
  if (store.has(name)) return store.get(name);
  const made = make();
  store.set(name, made);
  made.catch(() => store.delete(name));
  return made;
}
