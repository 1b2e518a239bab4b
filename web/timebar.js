// Which time is shown, on every page: a range up to now, a part of it that was dragged out, or the state at a kept time.
import { now } from './clock.js';
import { timeNode } from './format.js';
import { go, kRanges, onChange, state, zoomDepth } from './state.js';

const kNames = { '15m': ['15 m', '15 minutes'], '1h': ['1 h', '1 hour'], '6h': ['6 h', '6 hours'], '24h': ['24 h', '24 hours'], '7d': ['7 d', '7 days'], '14d': ['14 d', '14 days'] };

function button(parent, text, className, onClick) {
  const node = document.createElement('button');
  node.type = 'button';
  node.textContent = text;
  node.className = className;
  node.addEventListener('click', onClick);
  parent.append(node);
  return node;
}

/// Local time in the form that a date-time field takes.
function fieldText(t) {
  const local = new Date(t * 1000 - new Date(t * 1000).getTimezoneOffset() * 60000);
  return local.toISOString().slice(0, 19);
}

export function timebar(parent) {
  const ranges = document.createElement('div');
  ranges.className = 'ranges';
  ranges.setAttribute('role', 'group');
  ranges.setAttribute('aria-label', 'Range');
  const buttons = new Map();
  for (const name of Object.keys(kRanges)) {
    const node = button(ranges, kNames[name][0], 'range', () => go({ range: { name } }));
    node.setAttribute('aria-label', `The last ${kNames[name][1]}`);
    buttons.set(name, node);
  }
  const live = button(ranges, 'Live', 'range live', () => go({ range: { name: state.range.name }, at: null }));
  const back = button(ranges, 'Back', 'range', () => history.back());
  back.title = 'Undo the last zoom';
  const span = document.createElement('p');
  span.className = 'span';
  parent.append(ranges, span, buildAt());
  const draw = () => {
    for (const [name, node] of buttons) node.setAttribute('aria-pressed', String(!state.range.isFixed && state.range.name === name));
    live.setAttribute('aria-pressed', String(state.range.isLive));
    back.hidden = zoomDepth() === 0;
    drawSpan(span);
    drawAt();
  };
  onChange(draw);
  draw();
}

function drawSpan(span) {
  span.replaceChildren();
  if (state.range.isFixed) span.append(timeNode(state.range.since), ' to ', timeNode(state.range.until));
}

const at = {};

function buildAt() {
  const form = document.createElement('form');
  form.className = 'at';
  const label = document.createElement('label');
  label.textContent = 'At';
  label.htmlFor = 'at';
  at.field = document.createElement('input');
  at.field.type = 'datetime-local';
  at.field.step = '1';
  at.field.id = 'at';
  at.field.required = true;
  at.sign = document.createElement('p');
  at.sign.className = 'as-of';
  at.sign.setAttribute('role', 'status');
  form.append(label, at.field);
  const show = button(form, 'Show', '', () => {});
  show.type = 'submit';
  form.append(at.sign);
  at.now = button(form, 'Back to now', 'primary', () => go({ at: null, range: { name: state.range.name } }));
  form.addEventListener('submit', (event) => {
    event.preventDefault();
    const time = Math.floor(new Date(at.field.value).getTime() / 1000);
    if (Number.isFinite(time) && time > 0) go({ at: time, range: { name: state.range.name } });
  });
  return form;
}

function drawAt() {
  const isAt = state.at !== null;
  at.sign.hidden = at.now.hidden = !isAt;
  document.documentElement.classList.toggle('is-at', isAt);
  if (isAt) {
    at.sign.replaceChildren('as of ', timeNode(state.at));
    at.field.value = fieldText(state.at);
  } else if (!at.field.value) {
    at.field.value = fieldText(now() - 600);
  }
}
