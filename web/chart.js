// A chart: history of the page's range at once, then the rows as they come. All charts of the page have one crosshair and
// one range. Dygraph draws; it gets names of our own (s0, s1, ...), as text of a host must never become markup.
import { points, runs, schedules } from './api.js';
import { AskPause } from './ask-pause.js';
import { listenToInput } from './chart-input.js';
import { meets } from './condition.js';
import { follow } from './events.js';
import { inUnit, timeNode, unitOf, utcText } from './format.js';
import { Series, merge } from './series.js';
import { onChange, state } from './state.js';

const kMostPoints = 600;
const kMostColumns = 16;
const kMostSeries = 12;
const kLeastPoints = 30;
const kColours = 8;
const kSummaryPause = 10000;
const charts = new Set();
let isPrepared = false;
const colourSchemes = matchMedia('(prefers-color-scheme: dark)');

/// The series of the `most` keys whose values are the greatest, in the order that they came in.
function greatest(series, most) {
  if (series.length <= most) return series;
  const sizeOf = ({ points: byLabel }) => Object.values(byLabel).flat().reduce((sum, [, , mean]) => sum + Math.abs(mean), 0);
  const sizes = new Map(series.map((one) => [one, sizeOf(one)]));
  const chosen = new Set([...series].sort((a, b) => sizes.get(b) - sizes.get(a)).slice(0, most));
  return series.filter((one) => chosen.has(one));
}

function element(name, className, parent, text) {
  const node = document.createElement(name);
  if (className) node.className = className;
  if (text !== undefined) node.textContent = text;
  parent?.append(node);
  return node;
}

const meetsAll = (line, row) => [].concat(line.where ?? []).every((text) => meets(text, row));

const variable = (name) => getComputedStyle(document.documentElement).getPropertyValue(name).trim();

/// Takes away the plugins that write texts as markup or set style attributes, which the page's policy forbids.
function prepare() {
  if (!isPrepared) Dygraph.PLUGINS = [Dygraph.Plugins.Axes, Dygraph.Plugins.Grid];
  isPrepared = true;
}

/// One crosshair for all charts; null takes it away.
function pointAt(time) {
  for (const one of charts) one.point(time);
}

class Chart {
  constructor(parent, { title, unit = 'number', lines, stacked = false, height = 160, max, note }) {
    Object.assign(this, { title, unit, lines, stacked, max });
    prepare();
    this.series = [];
    this.askPauses = new Map(this.records().map((record) => [record, new AskPause()]));
    this.figure = element('figure', 'chart', parent);
    const head = element('figcaption', 'chart-head', this.figure);
    element('span', 'chart-title', head, title);
    if (note) element('span', 'chart-note', head, note);
    this.clock = element('span', 'chart-clock', head);
    this.frame = element('div', 'chart-frame', this.figure);
    this.frame.style.height = `${height}px`;
    this.frame.tabIndex = 0;
    this.frame.setAttribute('role', 'group');
    this.frame.setAttribute('aria-label', title);
    this.area = element('div', 'chart-area', this.frame);
    this.area.setAttribute('aria-hidden', 'true');
    this.cross = element('div', 'chart-cross', this.frame);
    this.mark = element('div', 'chart-mark', this.frame);
    this.selection = element('div', 'chart-selection', this.frame);
    for (const node of [this.cross, this.mark, this.selection]) node.hidden = true;
    this.axis = element('div', 'chart-axis', this.frame);
    this.message = element('p', 'chart-message', this.frame, 'Loading');
    this.legend = element('ul', 'legend', this.figure);
    this.listen();
    charts.add(this);
    this.load();
  }

  listen() {
    this.stops = [
      onChange((now, before) => {
        if (now.page === before.page && (now.at !== before.at || now.range.name !== before.range.name || now.range.from !== before.range.from || now.range.to !== before.range.to)) this.load();
      }),
    ];
    const recolour = () => this.draw(true);
    colourSchemes.addEventListener('change', recolour);
    this.stops.push(() => colourSchemes.removeEventListener('change', recolour));
    let width = 0;
    const sized = new ResizeObserver(() => {
      if (width && this.frame.clientWidth && width !== this.frame.clientWidth) this.graph?.resize();
      width = this.frame.clientWidth;
      this.placeMark();
    });
    sized.observe(this.frame);
    this.stops.push(() => sized.disconnect());
    listenToInput(this, pointAt);
  }

  /// The lines that one question can answer.
  questions() {
    const found = new Map();
    for (const line of this.lines) {
      const id = JSON.stringify([line.record, line.where, line.by]);
      const lists = found.get(id) ?? found.set(id, [[]]).get(id);
      if (lists.at(-1).length === kMostColumns) lists.push([]);
      lists.at(-1).push(line);
    }
    return [...found.values()].flat();
  }

  async load() {
    this.abort?.abort();
    this.abort = new AbortController();
    const { signal } = this.abort;
    this.stopFollowing();
    this.frame.setAttribute('aria-busy', 'true');
    this.point(null);
    try {
      const counts = await runs().catch(() => new Map());
      if (signal.aborted) return;
      // The first answer of all tells the host's time.
      const { since, until } = state.range;
      const answers = await Promise.all(this.questions().map(async (lines) => {
        const { record, where, by } = lines[0];
        const columns = [...new Set(lines.map((line) => line.label))];
        return { lines, answer: await points(record, columns, { since, until, points: this.pointCount(lines[0], counts), where, by, signal }) };
      }));
      if (signal.aborted) return;
      this.take(answers);
      this.since = since;
      this.until = until;
      this.draw(true);
      this.tellEmpty(signal);
      if (state.range.isLive) this.followRows();
    } catch (error) {
      if (error.name === 'AbortError' || error.status === 401) return;
      this.tell(error.code === 'no-history' ? 'The agent keeps no history.' : error.message);
      // Rows that come show that it can be asked again.
      const isPassing = error.status === 0 || error.status >= 500;
      if (state.range.isLive && isPassing) this.stopRows = follow(this.records(), () => this.load(), { onGap: () => this.load(), isFresh: true });
    } finally {
      if (this.abort.signal === signal) this.frame.removeAttribute('aria-busy');
    }
  }

  /// A point for each two pixels. Of many rows only some are drawn, but all are told, so there are fewer points of each.
  pointCount({ record, where, by }, counts) {
    // The shade shows what lies between, and a zoom is drawn in half the time.
    const width = Math.min(kMostPoints, Math.floor((this.frame.clientWidth || 300) / 2));
    const isOne = by || [].concat(where ?? []).some((text) => /^[^!<>=~]*=/.test(text));
    const share = isOne ? 1 : kMostSeries / Math.max(kMostSeries, (counts.get(record) ?? 1) * this.lines.length);
    return Math.max(kLeastPoints, Math.floor(width * share));
  }

  take(answers) {
    this.series = [];
    this.rowTimes = new Map();
    this.omitted = 0;
    for (const { lines, answer } of answers) {
      const isSeveral = answer.series.length > 1;
      const drawn = greatest(answer.series, Math.max(1, Math.floor(kMostSeries / lines.length)));
      this.omitted = Math.max(this.omitted, (answer.omitted ?? 0) + answer.series.length - drawn.length);
      const found = drawn.length ? drawn : [{ key: {}, points: {} }];
      for (const { key, points: byLabel } of found) for (const line of lines) this.addSeries(line, key, byLabel[line.label] ?? [], answer.seconds, isSeveral);
      // Which keys there are is told by the history alone, unless one line is of all rows.
      if (!drawn.length && lines[0].by?.length !== 0) for (const one of this.series.slice(-lines.length)) one.key = null;
    }
  }

  addSeries(line, key, buckets, seconds, isSeveral) {
    const { unit, scale } = unitOf({ label: line.label });
    const toUnit = line.transform ?? (unit === this.unit && scale !== 1 ? (v) => v * scale : (v) => v);
    const one = new Series(seconds, (v) => (v === null ? null : toUnit(v)));
    one.line = line;
    one.key = key;
    one.name = this.nameOf(line, key, isSeveral);
    one.load(buckets);
    this.series.push(one);
    this.sawRows(line.record, one.newestTime);
  }

  nameOf(line, key, isSeveral) {
    const keyText = Object.values(key).join(' ');
    if (!keyText || !isSeveral) return line.name ?? (this.lines.length > 1 || !keyText ? line.label : keyText);
    return line.name || this.lines.length > 1 ? `${keyText} ${line.name ?? line.label}` : keyText;
  }

  records() {
    return [...new Set(this.lines.map((line) => line.record))];
  }

  followRows() {
    this.stopRows = follow(this.records(), (told) => this.addRows(told), { onGap: () => this.load() });
  }

  stopFollowing() {
    this.stopRows?.();
    this.stopRows = null;
  }

  sawRows(record, time) {
    this.rowTimes.set(record, Math.max(this.rowTimes.get(record) ?? 0, time));
  }

  addRows({ record, time, rows }) {
    if (this.askPauses.get(record).isDue(this.hasUnknown(record, rows))) {
      this.load();
      return;
    }
    this.sawRows(record, time);
    for (const one of this.series) {
      if (one.line.record !== record) continue;
      const fitting = rows.filter((row) => this.fits(one, row)).map((row) => row[one.line.label]).filter((v) => v !== null && v !== undefined);
      // One series of all rows is their mean, as the history's buckets are.
      if (fitting.length) one.add(time, fitting.reduce((sum, v) => sum + v, 0) / fitting.length);
    }
    this.plan();
  }

  fits(one, row) {
    return one.key !== null && Object.entries(one.key).every(([label, value]) => String(row[label]) === String(value)) && meetsAll(one.line, row);
  }

  /// Whether a row has a figure that no series is of: of a device that is new, or all while the chart began empty.
  hasUnknown(record, rows) {
    if (this.omitted) return false;
    return this.lines.some((line) => {
      const own = this.series.filter((one) => one.line === line);
      return line.record === record && rows.some((row) => (row[line.label] ?? null) !== null && meetsAll(line, row) && !own.some((one) => this.fits(one, row)));
    });
  }

  /// Several records come in one batch, and are drawn once.
  plan() {
    if (this.planned) return;
    this.planned = true;
    requestAnimationFrame(() => {
      this.planned = false;
      if (!charts.has(this) || !state.range.isLive) return;
      this.since = state.range.since;
      this.until = state.range.until;
      for (const one of this.series) one.dropBefore(this.since);
      this.draw(false);
    });
  }

  draw(isNew) {
    const data = merge(this.drawn(), !this.stacked);
    if (!data.length) {
      this.graph?.destroy();
      this.graph = null;
      this.showLegend(null);
      return;
    }
    this.message.hidden = true;
    this.axis.title = `${utcText(this.since)} to ${utcText(this.until)}`;
    const window = [this.since * 1000, this.until * 1000];
    if (!isNew && this.graph) {
      this.graph.updateOptions({ file: data, dateWindow: window });
    } else {
      this.graph?.destroy();
      this.graph = new Dygraph(this.area, data, this.options(window));
    }
    this.placeMark();
    this.point(this.pointed ?? null);
    this.summarize();
  }

  /// Dygraph puts the last one at the bottom of a stack; the legend's first belongs there.
  drawn() {
    return this.stacked ? [...this.series].reverse() : this.series;
  }

  options(dateWindow) {
    const colours = this.drawn().map((one) => variable(`--c${this.series.indexOf(one) % kColours}`));
    return {
      labels: ['t', ...this.series.map((_, place) => `s${place}`)],
      interactionModel: {},
      dateWindow,
      colors: colours,
      customBars: !this.stacked,
      stackedGraph: this.stacked,
      stackedGraphNaNFill: 'none',
      connectSeparatedPoints: !this.stacked,
      fillAlpha: this.stacked ? 0.55 : 0.18,
      strokeWidth: this.stacked ? 0.8 : 1.4,
      includeZero: true,
      // A little room, so that the label of the greatest value is not cut.
      valueRange: this.max ? [0, this.max * 1.06] : undefined,
      rightGap: 4,
      gridLineColor: variable('--grid'),
      axisLineColor: variable('--grid'),
      axisLabelFontSize: 11,
      labelsKMG2: this.unit.startsWith('bytes'),
      // A point that stands alone would hardly be seen.
      pointSize: 2,
      highlightCircleSize: 0,
      axes: {
        y: { axisLabelWidth: 66, pixelsPerLabel: 28, axisLabelFormatter: (v) => inUnit(this.unit, v) },
        x: { pixelsPerLabel: 76 },
      },
    };
  }

  /// The figures under the crosshair, or at the page's time, or the newest ones.
  showLegend(asked) {
    const time = asked ?? state.at;
    while (this.legend.children.length > Math.min(this.series.length, kMostSeries)) this.legend.lastChild.remove();
    this.series.slice(0, kMostSeries).forEach((one, place) => {
      const item = this.legend.children[place] ?? this.legendItem(place);
      const found = time === null ? -1 : one.nearest(time);
      item.children[1].textContent = one.name;
      item.children[2].textContent = inUnit(this.unit, time === null ? this.newestOf(one) : one.values[found]?.[1]);
    });
    const more = Math.max(0, this.series.length - kMostSeries) + (this.omitted ?? 0);
    if (time !== null) this.clock.replaceChildren(timeNode(Math.round(time)));
    else this.clock.textContent = more > 0 ? `and ${more} more` : '';
  }

  /// Nothing where the record's newest rows have none.
  newestOf(one) {
    return one.newestAt(this.rowTimes.get(one.line.record));
  }

  legendItem(place) {
    const item = element('li', '', this.legend);
    element('span', 'swatch', item).style.background = `var(--c${place % kColours})`;
    element('span', 'legend-name', item);
    element('span', 'legend-value', item);
    return item;
  }

  /// What a screen reader says of the chart, not oftener than one can listen.
  summarize() {
    if (Date.now() - (this.summarized ?? 0) < kSummaryPause) return;
    this.summarized = Date.now();
    const newest = this.series.slice(0, kMostSeries).map((one) => `${one.name} ${inUnit(this.unit, this.newestOf(one))}`);
    this.frame.setAttribute('aria-label', `${this.title}, newest: ${newest.join(', ')}. Arrow keys move the crosshair, plus and minus zoom.`);
  }

  point(time) {
    this.pointed = time;
    const x = time === null || !this.graph ? null : this.graph.toDomXCoord(time * 1000);
    this.cross.hidden = x === null || x < 0;
    if (!this.cross.hidden) this.cross.style.transform = `translateX(${Math.round(x)}px)`;
    if (this.graph) this.showLegend(time);
  }

  placeMark() {
    const isShown = state.at !== null && Boolean(this.graph);
    this.mark.hidden = !isShown;
    if (isShown) this.mark.style.transform = `translateX(${Math.round(this.graph.toDomXCoord(state.at * 1000))}px)`;
  }

  /// Says why there is no line.
  async tellEmpty(signal) {
    if (this.series.some((one) => one.times.length)) return;
    this.tell('No figures in this range.');
    const known = await schedules().catch(() => null);
    const missing = known && this.lines.map((line) => line.record).find((record) => !known.has(record));
    if (missing && !signal.aborted) this.tell(`${missing} is not scheduled, so nothing is kept. To schedule it: qmtctl schedule set ${missing} 60`);
  }

  /// What is drawn: [{time, key, spread: [least, mean, greatest]}], in the chart's unit.
  points() {
    return this.series.flatMap((one) => {
      const key = Object.values(one.key ?? {}).join(' ');
      return one.times.map((time, place) => ({ time, key, spread: one.values[place] }));
    });
  }

  tell(text) {
    this.message.textContent = text;
    this.message.hidden = false;
  }

  destroy() {
    this.abort?.abort();
    this.stopFollowing();
    for (const stop of this.stops) stop();
    charts.delete(this);
    this.graph?.destroy();
    this.figure.remove();
  }
}

/// Puts a chart below `parent`. `unit` is 'percent', 'bytes', 'bytes/s', '/s', 'duration' or 'number'; each line is {record, label, name,
/// where, by, transform}; values of labels in Mbytes or Kbytes come in bytes by themselves. `max` fixes the axis.
export function chart(parent, options) {
  return new Chart(parent, options);
}
