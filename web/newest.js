// Which rows are the newest ones: those of the schedule, or where no schedule collects a record those of now. The latter
// cost a collection each time, so only pages whose figures are of use without a schedule ask so.
import { ApiError, ask, rows, schedules } from './api.js';
import { now } from './clock.js';
import { follow } from './events.js';
import { state } from './state.js';

const kApplications = 'APP';

/// {time, rows, total, isCollected}; isCollected says that they were collected for this answer. With a time of the past the
/// kept rows.
export async function current(record, { at = state.at, ...choice } = {}) {
  if (at !== null || (await schedules()).has(record)) return { ...(await rows(record, { at, ...choice })), isCollected: false };
  const told = record === kApplications ? await applicationsNow(at, choice) : await rows(record, { at, live: true, ...choice });
  return { ...told, isCollected: true };
}

/// While no application is defined the agent has no such record to build, which is no fault. Of two records in one question
/// the answer tells a failure in its text alone, so the browser logs none.
async function applicationsNow(at, { where, signal, ...choice }) {
  try {
    if (where) return await rows(kApplications, { at, live: true, where, signal, ...choice });
    const [{ time, rows: found, error }] = (await ask('get', { records: `${kApplications},${kApplications}` }, { signal })).results;
    if (error) throw new ApiError(200, error.code, error.message, error.field);
    return { time, rows: found, total: found.length };
  } catch (error) {
    if (error.code !== 'build-failed') throw error;
    return { time: now(), rows: [], total: 0 };
  }
}

/// Gives a function that hands rows {time, ...} to `take` unless they are older than those before or than `seen`, as a stream
/// that begins anew tells older ones again. After its `forget()` any rows are taken: the host's clock may have been set back.
export function onlyNewer(take, seen = 0) {
  const give = (told) => {
    if (told.time < seen) return;
    seen = told.time;
    take(told);
  };
  give.forget = () => {
    seen = 0;
  };
  return give;
}

/// Calls `take({time, rows})` for each run of the schedule after an answer of current(). Where no schedule collects the record,
/// it is collected each `pause` milliseconds while the page is seen, until a schedule does. Gives the function that ends it.
export function goOn(record, told, take, { pause, again }) {
  let timer = 0;
  let isEnded = false;
  const look = async () => {
    clearTimeout(timer);
    if (isEnded || document.hidden) return;
    const isOn = await again();
    if (!isEnded && isOn) timer = setTimeout(look, pause);
  };
  const isPolled = told.isCollected && pause;
  const stop = follow(record, take, { onGap: again });
  if (isPolled) {
    timer = setTimeout(look, pause);
    document.addEventListener('visibilitychange', look);
  }
  return () => {
    isEnded = true;
    clearTimeout(timer);
    document.removeEventListener('visibilitychange', look);
    stop();
  };
}
