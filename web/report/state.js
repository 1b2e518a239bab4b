// The time that the charts of a report show: its whole stretch, or the part that was zoomed to.
import { figures } from './api.js';

const listeners = new Set();
const whole = { since: figures.since, until: figures.until };

const rangeOf = ({ since, until }) => ({ name: '', from: since, to: until, since, until, isLive: false, isFixed: true });

export const state = { page: 'report', range: rangeOf(whole), at: null, choice: {} };

export const isWhole = () => state.range.since === whole.since && state.range.until === whole.until;

function change(range) {
  const before = { ...state };
  state.range = rangeOf(range);
  for (const fn of [...listeners]) fn(state, before);
}

/// Shows another time, which does not go beyond the stretch.
export function go({ range }) {
  change({ since: Math.max(whole.since, range.from), until: Math.min(whole.until, range.to) });
}

export function goToWhole() {
  change(whole);
}

/// `fn(state, before)` after each change; gives the function that stops it.
export function onChange(fn) {
  listeners.add(fn);
  return () => listeners.delete(fn);
}
