// The host's time. The reader's own clock may be wrong, so its distance from the host's is learnt from what the gate tells.

// A Date tells whole seconds, and an answer is on its way for a while.
const kTrifle = 2;

let ahead = 0;

/// Seconds since the epoch by the host's clock, or by the reader's before the gate has told anything.
export function now() {
  return Math.floor(Date.now() / 1000 + ahead);
}

/// Takes the host's time of this moment.
export function learn(seconds) {
  const found = seconds - Date.now() / 1000;
  if (Math.abs(found - ahead) > kTrifle) ahead = found;
}
