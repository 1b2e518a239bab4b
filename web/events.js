// One stream of what the schedules make, for all who follow on the page. EventSource can send no token, so the stream is
// read by fetch. It ends while the tab is hidden and goes on from the last batch that was seen.
import { address, errorOf, send } from './api.js';
import { kSet, learn, now, trust } from './clock.js';

const kSilence = 40000;
const kLeastPause = 1000;
const kMostPause = 15000;
// After a longer sleep charts ask anew for fewer points than all the rows that were missed.
const kLongSleep = 300000;
// What a follower asked for just before it followed may lack the newest batch, so this many seconds come again.
const kOverlap = 15;
// Who joins a stream that is under way lacks little; several charts of a page do so together.
const kJoinPause = 500;

// While only alarms are wanted, this is followed: few rows that there are on each host.
const kQuietRecord = 'PI';

const followers = new Set();
const alarmListeners = new Set();
const connectionListeners = new Set();
let connection = { state: 'off', message: '' };
let current = null;
// The batch to go on from; 0 for none.
let lastBatch = 0;
let pause = kLeastPause;
let timer = 0;
let hiddenSince = 0;
let isMissing = false;

/// `fn({state, message})`: 'off', 'live', 'lost' (comes back by itself), 'gone' (the daemon) or 'missed' (rows can't be read back).
export function onConnection(fn) {
  connectionListeners.add(fn);
  fn(connection);
}

function tellConnection(state, message = '') {
  connection = { state, message };
  for (const fn of connectionListeners) fn(connection);
}

/// Calls `fn({record, time, rows})` for each new run of the records; the same record and time may come twice and then
/// replaces the first. The rows of the last seconds come first, also to those who followed before, so rows may be older than
/// some that were told. `onGap` is called when rows were missed for good, or the host's clock was set, so that the
/// history is to be asked anew. With `isFresh` what was made before is not asked for.
export function follow(records, fn, { onGap, onBatch, isFresh = false } = {}) {
  const follower = { records: new Set([].concat(records)), fn, onGap, onBatch, begin: performance.now(), isServed: isFresh };
  followers.add(follower);
  plan(current?.names === wanted() ? kJoinPause : 50);
  return () => {
    followers.delete(follower);
    plan(50);
  };
}

/// Calls `fn(alarm)` when an alarm begins or ends.
export function onAlarm(fn) {
  alarmListeners.add(fn);
  plan(50);
}

function wanted() {
  const names = new Set();
  for (const one of followers) for (const record of one.records) names.add(record);
  if (!names.size && alarmListeners.size) names.add(kQuietRecord);
  return [...names].sort().join(',');
}

/// To be called when somebody has signed in.
export function resume() {
  plan(50);
}

/// To be called when nobody is signed in any more: what one was told is not gone on with for another.
export function end() {
  stop();
  lastBatch = 0;
  isMissing = false;
  pause = kLeastPause;
  tellConnection('off');
}

function stop() {
  current?.abort.abort();
  leave();
}

/// What the stream was to read back and has not told is asked for again.
function leave() {
  lastBatch = current?.resume || lastBatch;
  current = null;
}

function plan(milliseconds) {
  clearTimeout(timer);
  timer = setTimeout(settle, milliseconds);
}

/// Makes the stream the one that is wanted now.
function settle() {
  const names = document.hidden ? '' : wanted();
  if (current?.names === names && !isBehind()) return;
  stop();
  if (!names) {
    if (!document.hidden) tellConnection('off');
    return;
  }
  current = { names, abort: new AbortController(), isAsked: false, time: 0, resume: 0 };
  run(current);
}

async function run(stream) {
  try {
    await read(stream);
    fail(stream, 'the gate ended the stream');
  } catch (error) {
    // The sign-in panel stands there; the page's followers begin anew after it.
    if (error.status === 401) {
      if (stream === current) current = null;
      return;
    }
    fail(stream, error.message);
  }
}

function fail(stream, message) {
  if (stream !== current) return;
  leave();
  isMissing ||= !lastBatch;
  tellConnection('lost', message);
  plan(pause);
  pause = Math.min(pause * 2, kMostPause);
}

/// The time from which a follower lacks what the stream told before it came; Infinity for one that has had all since.
function lackedSince(one) {
  return one.isServed ? Infinity : Math.floor(now() - (performance.now() - one.begin) / 1000) - kOverlap;
}

/// Whether the stream has told what a new follower lacks.
function isBehind() {
  if (!current.isAsked) return false;
  const isLacking = [...followers].some((one) => lackedSince(one) <= current.time);
  if (!isLacking) for (const one of followers) one.isServed = true;
  return isLacking;
}

/// The batch to go on from: the last one that was seen, or an earlier one that a new follower lacks.
function resumeFrom(stream) {
  stream.isAsked = true;
  let from = lastBatch || Infinity;
  for (const one of followers) {
    from = Math.min(from, lackedSince(one));
    one.isServed = true;
  }
  if (from === Infinity) return {};
  stream.time = stream.resume = from;
  return { 'Last-Event-ID': String(from) };
}

async function read(stream) {
  const own = () => resumeFrom(stream);
  let silence = 0;
  const watch = () => {
    clearTimeout(silence);
    silence = setTimeout(() => stream.abort.abort(new Error(`nothing came for ${kSilence / 1000} s`)), kSilence);
  };
  watch();
  try {
    const answer = await send(address('events', { records: stream.names }), { own, signal: stream.abort.signal });
    if (!answer.ok) throw await errorOf(answer);
    const reader = answer.body.pipeThrough(new TextDecoderStream()).getReader();
    const take = parser();
    if (stream === current) connected();
    for (;;) {
      const { done, value } = await reader.read();
      if (done || stream !== current) return;
      pause = kLeastPause;
      watch();
      take(value);
    }
  } finally {
    clearTimeout(silence);
  }
}

/// Without an id of a batch there was no place to go on from.
function connected() {
  tellConnection('live');
  if (isMissing) tellGap();
  isMissing = false;
}

/// Takes pieces of text/event-stream as they come and hands on whole events.
function parser() {
  let rest = '';
  let event = { type: '', data: [], id: null };
  return (piece) => {
    const lines = (rest + piece).split(/\r\n|\n|\r(?!$)/);
    rest = lines.pop();
    for (const line of lines) {
      if (line === '') {
        if (event.data.length) dispatch(event);
        event = { type: '', data: [], id: null };
        continue;
      }
      const colon = line.indexOf(':');
      if (colon === 0) continue;
      const name = colon < 0 ? line : line.slice(0, colon);
      const value = colon < 0 ? '' : line.slice(colon + 1).replace(/^ /, '');
      if (name === 'event') event.type = value;
      else if (name === 'data') event.data.push(value);
      else if (name === 'id') event.id = value;
    }
  };
}

function dispatch({ type, data, id }) {
  let told;
  try {
    told = JSON.parse(data.join('\n'));
  } catch {
    return;
  }
  if (type === 'rows') {
    giveRows(told);
  } else if (type === 'batch') {
    if (id) takeBatch(Number(id));
    for (const one of [...followers]) one.onBatch?.(told);
  } else if (type === 'alarm') {
    for (const fn of alarmListeners) fn(told.alarm);
  } else if (type === 'daemon') {
    if (told.state === 'gone') tellConnection('gone');
    else tellConnection('live');
  } else if (type === 'lost') {
    tellConnection('missed', told.message);
    current.time = 0;
    current.resume = now() - kOverlap;
    tellGap();
  }
}

/// The history may have rows of a time at which the host's clock was wrong.
function giveRows(told) {
  if (told.time > now() + kSet) return;
  current.time = Math.max(current.time, told.time);
  for (const one of [...followers]) if (one.records.has(told.record)) one.fn(told);
}

/// A batch is of no later time than now, and of none before what was told, unless the host's clock was set.
function takeBatch(time) {
  const isSet = time < current.time - kSet || time > now() + kSet;
  current.time = isSet ? time : Math.max(current.time, time);
  current.resume = time;
  if (isSet) learn(time);
  // One that is read back tells nothing of now.
  if (time > now() - kSet) trust();
  if (isSet) tellGap();
}

function tellGap() {
  for (const one of [...followers]) one.onGap?.();
}

document.addEventListener('visibilitychange', () => {
  if (document.hidden) {
    hiddenSince = Date.now();
  } else if (hiddenSince && Date.now() - hiddenSince > kLongSleep) {
    lastBatch = 0;
    tellGap();
  }
  plan(0);
});
