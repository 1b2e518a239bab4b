// The host's time. The reader's own clock may be wrong, so its distance from the host's is learnt from what the gate tells.

// A Date tells whole seconds, and an answer is on its way for a while.
const kTrifle = 2;

/// By more seconds a time differs from the host's only if a clock was set.
export const kSet = 30;

// So many milliseconds a batch counts for more than a Date, which a proxy may write by a clock of its own.
const kTrust = 600000;

let ahead = 0;
let trusted = -Infinity;
let trustedStart = 0;

// When the page was opened by the reader's clock as it is now: it moves as far as that is set.
const start = () => Date.now() - performance.now();

/// Seconds since the epoch by the host's clock, or by the reader's before the gate has told anything.
export function now() {
  return Math.floor(Date.now() / 1000 + ahead);
}

/// To be called when a batch has shown that now() is right, which it is until the reader's clock is set.
export function trust() {
  trusted = performance.now();
  trustedStart = start();
}

/// Takes the host's time of this moment from the Date of an answer.
export function learnFromDate(seconds) {
  const isTrusted = performance.now() - trusted < kTrust && Math.abs(start() - trustedStart) <= kTrifle * 1000;
  if (!isTrusted || Math.abs(seconds - now()) <= kSet) learn(seconds);
}

/// Takes the host's time of this moment from a batch.
export function learn(seconds) {
  const found = seconds - Date.now() / 1000;
  if (Math.abs(found - ahead) > kTrifle) ahead = found;
}
