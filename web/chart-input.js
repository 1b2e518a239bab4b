// Mouse and keys on a chart: the crosshair, and a zoom that changes the range of all charts.
import { now } from './clock.js';
import { go } from './state.js';

const kLeastDrag = 5;
const kLeastSeconds = 10;
const kSteps = 60;

/// `pointAt(time)` moves the crosshair of all charts; null takes it away.
export function listenToInput(chart, pointAt) {
  const { frame } = chart;
  frame.addEventListener('pointermove', (event) => {
    if (chart.graph) pointAt(Math.min(chart.until, Math.max(chart.since, timeAt(chart, event.clientX))));
  });
  frame.addEventListener('pointerleave', () => pointAt(null));
  frame.addEventListener('blur', () => pointAt(null));
  frame.addEventListener('pointerdown', (event) => drag(chart, event));
  frame.addEventListener('keydown', (event) => key(chart, event, pointAt));
}

function timeAt(chart, x) {
  return chart.graph.toDataXCoord(x - chart.frame.getBoundingClientRect().left) / 1000;
}

/// Dragging with the mouse chooses a range for all charts; a finger is left to scroll the page.
function drag(chart, event) {
  if (!chart.graph || event.pointerType === 'touch' || event.button !== 0) return;
  event.preventDefault();
  const { frame, selection } = chart;
  frame.focus({ preventScroll: true });
  const begin = event.clientX;
  const first = timeAt(chart, begin);
  const abort = new AbortController();
  const { signal } = abort;
  const end = () => {
    abort.abort();
    selection.hidden = true;
  };
  addEventListener('pointermove', (moved) => {
    const left = Math.min(moved.clientX, begin) - frame.getBoundingClientRect().left;
    selection.hidden = Math.abs(moved.clientX - begin) < kLeastDrag;
    selection.style.left = `${left}px`;
    selection.style.width = `${Math.abs(moved.clientX - begin)}px`;
  }, { signal });
  addEventListener('pointerup', (up) => {
    const isChosen = !selection.hidden && chart.graph;
    end();
    if (isChosen) zoom(chart, first, timeAt(chart, up.clientX));
  }, { signal });
  addEventListener('pointercancel', end, { signal });
  // Before anybody else, as Esc ends the dragging alone.
  addEventListener('keydown', (pressed) => {
    if (pressed.key !== 'Escape') return;
    pressed.preventDefault();
    end();
  }, { signal, capture: true });
}

function zoom(chart, one, other) {
  const from = Math.max(Math.floor(Math.min(one, other)), chart.since);
  const to = Math.min(Math.ceil(Math.max(one, other)), chart.until);
  if (to - from >= kLeastSeconds) go({ range: { from, to } }, { isZoom: true });
}

function widen(chart, half) {
  const to = Math.ceil(Math.min(now(), chart.until + half));
  go({ range: { from: Math.floor(chart.since - half), to } }, { isZoom: true });
}

function key(chart, event, pointAt) {
  if (!chart.graph || event.ctrlKey || event.metaKey || event.altKey) return;
  const { since, until, pointed } = chart;
  const step = (until - since) / kSteps;
  const half = (until - since) / 2;
  const middle = pointed ?? (since + until) / 2;
  if (event.key === 'ArrowLeft') pointAt(Math.max(since, (pointed ?? until) - step));
  else if (event.key === 'ArrowRight') pointAt(Math.min(until, (pointed ?? since) + step));
  else if (event.key === '+') zoom(chart, middle - half / 2, middle + half / 2);
  else if (event.key === '-') widen(chart, half);
  else return;
  event.preventDefault();
}
