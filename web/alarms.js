// Which alarms are active now, for the head of every page and for the page of alarms. Asked at each begin of the stream of
// events and at each event that tells of one.
import { ask } from './api.js';
import { onAlarm, onConnection } from './events.js';

const kPause = 300;
const kRetryPause = 3000;
const kMost = 1000;
const kGrave = /^(critical|crit|error|fatal|severe|emergency|emerg|alert|page|major|high|disaster)$/i;

const listeners = new Set();
let active = null;
let timer = 0;
let asking = null;
let untold = [];

/// `fn(list, events)` now and whenever something has changed: the active alarms, newest first, or null where they are not known;
/// `events` are the alarms that have begun or ended since. Gives the function that stops it.
export function onActive(fn) {
  listeners.add(fn);
  fn(active, []);
  return () => listeners.delete(fn);
}

function tell(events) {
  for (const fn of [...listeners]) fn(active, events);
}

function plan(pause = kPause) {
  clearTimeout(timer);
  timer = setTimeout(look, pause);
}

async function look() {
  asking?.abort();
  // A tab that is seen again begins a new stream.
  if (document.hidden) return;
  const { signal } = (asking = new AbortController());
  try {
    active = (await ask('alarms', { state: 'active', limit: kMost }, { signal })).alarms.list;
    if (!signal.aborted) tell(untold.splice(0));
  } catch (error) {
    if (signal.aborted) return;
    active = null;
    // The gate may answer before the daemon does. Who signs in begins a new stream.
    if (error.status !== 401) plan(kRetryPause);
    tell([]);
  }
}

/// What one was told is not shown to another.
function forget() {
  clearTimeout(timer);
  asking?.abort();
  active = null;
  untold = [];
  tell([]);
}

/// How grave a severity is, as the name of a class; the word itself says it too.
export function graveness(severity) {
  return kGrave.test(severity ?? '') ? 'bad' : /^(warning|warn|minor|medium)$/i.test(severity ?? '') ? 'warn' : 'dim';
}

/// Draws how many there are into the link `node`, which is hidden while there are none.
export function tellActive(node) {
  onAlarm((alarm) => {
    untold.push(alarm);
    plan();
  });
  // What happened between two streams was told by neither.
  onConnection(({ state }) => {
    if (state === 'live') plan();
    else if (state === 'off') forget();
  });
  onActive((list) => {
    const count = list?.length ?? 0;
    node.hidden = count === 0;
    node.className = `alarms-active ${list?.some((one) => graveness(one.severity) === 'bad') ? 'bad' : 'warn'}`;
    const text = count === 0 ? '' : count === 1 ? '1 alarm' : `${count}${count < kMost ? '' : ' or more'} alarms`;
    if (node.textContent !== text) node.textContent = text;
    node.title = (list ?? []).slice(0, 5).map((one) => one.text).join('\n');
  });
}
