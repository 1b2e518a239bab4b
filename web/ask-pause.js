// When a chart asks the history again, as a record's rows have figures that no series is of.

// The first time soon, then each time after a longer pause, as the history may never tell of them.
const kLeastPause = 5000;
const kMostPause = 300000;
// After so many runs in a row without such rows they are new ones.
const kCalmRuns = 3;

export class AskPause {
  constructor() {
    Object.assign(this, { pause: 0, asked: 0, calmRuns: 0 });
  }

  /// Takes a run of the record; tells whether to ask now.
  isDue(hasUnknown) {
    this.calmRuns = hasUnknown ? 0 : this.calmRuns + 1;
    if (this.calmRuns >= kCalmRuns) this.pause = Math.min(this.pause, kLeastPause);
    const now = performance.now();
    if (!hasUnknown || (this.pause && now < this.asked + this.pause)) return false;
    this.pause = Math.min(Math.max(2 * this.pause, kLeastPause), kMostPause);
    this.asked = now;
    return true;
  }
}
