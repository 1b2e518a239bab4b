// The points of one line of a chart: from buckets of history, then rows as they come, with a gap where some are missing.

const kGap = 2.5;

/// The distance that most points have to the next one.
function usualDistance(times) {
  if (times.length < 2) return 0;
  const distances = [];
  for (let i = 1; i < times.length; i += 1) distances.push(times[i] - times[i - 1]);
  distances.sort((a, b) => a - b);
  return distances[distances.length >> 1];
}

export class Series {
  /// `seconds` is the width of a bucket; `scale` brings a value into the chart's unit.
  constructor(seconds, scale) {
    this.seconds = seconds;
    this.scale = scale;
    this.times = [];
    this.values = [];
    this.last = new Map();
    this.loaded = null;
    this.newest = null;
    this.newestTime = 0;
    this.distance = 0;
  }

  /// Takes buckets [time, least, mean, greatest] of history, oldest first.
  load(buckets) {
    for (const [time, least, mean, greatest] of buckets) {
      this.times.push(time);
      this.values.push([this.scale(least), this.scale(mean), this.scale(greatest)]);
    }
    this.newest = this.values.at(-1)?.[1] ?? null;
    this.newestTime = this.times.at(-1) ?? 0;
    this.distance = Math.max(usualDistance(this.times), this.seconds);
  }

  /// A value of a row. Rows of one bucket become its least, mean and greatest; one that comes again replaces the first.
  add(time, raw) {
    if (raw === null || raw === undefined) return;
    const value = this.scale(raw);
    const end = this.times.length - 1;
    if (end >= 0 && time < this.times[end]) return;
    this.newest = value;
    this.newestTime = time;
    if (end < 0 || time >= this.times[end] + this.seconds) {
      this.last = new Map([[time, value]]);
      this.loaded = null;
      this.times.push(time);
      this.values.push([value, value, value]);
      if (this.times.length < 5) this.distance = Math.max(usualDistance(this.times), this.seconds);
      return;
    }
    if (!this.last.size) this.loaded = { spread: this.values[end], seconds: time - this.times[end] };
    this.last.set(time, value);
    this.values[end] = this.spread();
  }

  /// What the last bucket holds. The part of it that came from the history counts by its share of the time.
  spread() {
    const seen = [...this.last.values()];
    const mean = seen.reduce((sum, v) => sum + v, 0) / seen.length;
    const [least, greatest] = [Math.min(...seen), Math.max(...seen)];
    if (!this.loaded?.seconds) return [least, mean, greatest];
    const { spread, seconds } = this.loaded;
    const times = [...this.last.keys()];
    const share = seconds / (seconds + Math.max(...times) - Math.min(...times) + 1);
    return [Math.min(least, spread[0]), spread[1] * share + mean * (1 - share), Math.max(greatest, spread[2])];
  }

  dropBefore(time) {
    let gone = 0;
    while (gone < this.times.length && this.times[gone] < time) gone += 1;
    this.times.splice(0, gone);
    this.values.splice(0, gone);
    if (!this.times.length) this.newest = null;
  }

  /// The newest value, if it can still speak for `time`; null for none.
  newestAt(time) {
    return time - this.newestTime <= this.reach() ? this.newest : null;
  }

  /// How far a point speaks for the times around it.
  reach() {
    return Math.max(this.distance, 1) * kGap;
  }

  /// The place of the point nearest to a time, if one is near enough to speak for it; -1 for none.
  nearest(time) {
    let low = 0;
    let high = this.times.length;
    while (low < high) {
      const middle = (low + high) >> 1;
      if (this.times[middle] < time) low = middle + 1;
      else high = middle;
    }
    if (low > 0 && (low === this.times.length || time - this.times[low - 1] < this.times[low] - time)) low -= 1;
    return low < this.times.length && Math.abs(this.times[low] - time) <= this.reach() ? low : -1;
  }

  /// The times at which the line breaks.
  gaps() {
    const found = [];
    for (let i = 1; i < this.times.length; i += 1) {
      if (this.distance && this.times[i] - this.times[i - 1] > kGap * this.distance) found.push(this.times[i - 1] + this.distance);
    }
    return found;
  }
}

/// The rows of a chart: [Date, value of each series...], where NaN breaks a line and null only tells that there is no
/// point of it at this time. With `isSpread` a value is [least, mean, greatest].
export function merge(all, isSpread) {
  const rows = new Map();
  const rowAt = (time) => {
    if (!rows.has(time)) rows.set(time, [new Date(time * 1000), ...all.map(() => null)]);
    return rows.get(time);
  };
  all.forEach((one, place) => {
    one.times.forEach((time, i) => {
      rowAt(time)[place + 1] = isSpread ? one.values[i] : one.values[i][1];
    });
    for (const time of one.gaps()) {
      const row = rowAt(time);
      if (row[place + 1] === null) row[place + 1] = isSpread ? [NaN, NaN, NaN] : NaN;
    }
  });
  return [...rows.keys()].sort((a, b) => a - b).map((time) => rows.get(time));
}
