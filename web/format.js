// Figures as people read them, in the manner of the browser's language. What has no source is "-", never 0.

const kNothing = '-';
const kUnits = ['B', 'KiB', 'MiB', 'GiB', 'TiB', 'PiB', 'EiB'];
const kMbyte = 1048576;
const formats = new Map();

const isNothing = (v) => v === null || v === undefined || v === '' || (typeof v === 'number' && !Number.isFinite(v));

function fixed(v, digits) {
  if (!formats.has(digits)) formats.set(digits, new Intl.NumberFormat(undefined, { minimumFractionDigits: 0, maximumFractionDigits: digits }));
  return formats.get(digits).format(v);
}

/// Three digits that count, and never fewer than the whole number has.
function short(v) {
  const size = Math.abs(v);
  if (size >= 100) return fixed(v, 0);
  if (size >= 10) return fixed(v, 1);
  if (size >= 0.1 || size === 0) return fixed(v, 2);
  return fixed(v, 4);
}

export function number(v) {
  if (isNothing(v)) return kNothing;
  return Number.isInteger(v) ? fixed(v, 0) : short(v);
}

export function bytes(v) {
  if (isNothing(v)) return kNothing;
  let unit = 0;
  let size = v;
  while (Math.abs(size) >= 1024 && unit < kUnits.length - 1) {
    size /= 1024;
    unit += 1;
  }
  return `${short(size)} ${kUnits[unit]}`;
}

/// A figure a second; `unit` 'bytes' tells bytes.
export function rate(v, unit) {
  if (isNothing(v)) return kNothing;
  return `${unit === 'bytes' ? bytes(v) : short(v)}/s`;
}

export function percent(v) {
  if (isNothing(v)) return kNothing;
  return `${fixed(v, Math.abs(v) >= 10 ? 1 : 2)} %`;
}

export function duration(s) {
  if (isNothing(s)) return kNothing;
  if (typeof s !== 'number') return String(s);
  if (s < 0.001 && s > 0) return `${short(s * 1e6)} µs`;
  if (s < 1 && s > 0) return `${short(s * 1000)} ms`;
  if (s < 60) return `${short(s)} s`;
  const whole = Math.floor(s);
  const [days, hours, minutes, seconds] = [Math.floor(whole / 86400), Math.floor(whole / 3600) % 24, Math.floor(whole / 60) % 60, whole % 60];
  if (days) return `${fixed(days, 0)} d ${hours} h`;
  if (hours) return minutes ? `${hours} h ${minutes} min` : `${hours} h`;
  return seconds ? `${minutes} min ${seconds} s` : `${minutes} min`;
}

const dateTime = new Intl.DateTimeFormat(undefined, { dateStyle: 'medium', timeStyle: 'medium' });

/// Seconds since the epoch in local time; 0 is none.
export function timeText(t) {
  return isNothing(t) || t === 0 ? kNothing : dateTime.format(t * 1000);
}

/// Seconds since the epoch in UTC.
export function utcText(t) {
  return `${new Date(t * 1000).toISOString().slice(0, 19).replace('T', ' ')} UTC`;
}

/// The same as timeText as an element that tells UTC on hover.
export function timeNode(t) {
  const node = document.createElement('time');
  node.textContent = timeText(t);
  if (!isNothing(t) && t !== 0) {
    node.dateTime = new Date(t * 1000).toISOString();
    node.title = utcText(t);
  }
  return node;
}

/// Whether a field of a schema tells a time, as some keys do.
export function isTime({ label, type = '', meaning = '' }) {
  return meaning === 'time' || (meaning === 'key' && type === 'long' && / Time$/.test(label));
}

/// The unit of a field of a schema: 'percent', 'bytes', 'bytes/s', '/s', 'duration', 'time', 'text' or 'number'; and what
/// its values are multiplied with to come in that unit.
export function unitOf({ label, type = '', meaning = '', of = '' }) {
  if (isTime({ label, type, meaning })) return { unit: 'time', scale: 1 };
  if (type.startsWith('char')) return { unit: 'text', scale: 1 };
  if (meaning === 'percent' || / %$/.test(label)) return { unit: 'percent', scale: 1 };
  const isRate = meaning === 'rate' || /\/sec$/.test(label);
  // A rate such as "Throughput/sec" is in the unit of the counter that it divides.
  const name = `${label} ${of}`;
  if (/\bMbytes\b/.test(name)) return { unit: isRate ? 'bytes/s' : 'bytes', scale: kMbyte };
  if (/\bKbytes\b/.test(name)) return { unit: isRate ? 'bytes/s' : 'bytes', scale: 1024 };
  if (/\bBytes\b/.test(name)) return { unit: isRate ? 'bytes/s' : 'bytes', scale: 1 };
  if (isRate) return { unit: '/s', scale: 1 };
  if (type === 'utime' || meaning === 'duration' || /\bSeconds$/.test(label)) return { unit: 'duration', scale: 1 };
  return { unit: 'number', scale: 1 };
}

const byUnit = {
  percent,
  bytes,
  'bytes/s': (v) => rate(v, 'bytes'),
  '/s': (v) => rate(v),
  duration,
  time: timeText,
  number,
};

/// A value that is in the unit already.
export function inUnit(unit, v) {
  return (byUnit[unit] ?? number)(v);
}

/// The value of a record's field as text; `field` is of the schema: {label, type, meaning}.
export function valueOf(field, v) {
  if (isNothing(v)) return kNothing;
  const { unit, scale } = unitOf(field);
  if (unit === 'text' || typeof v !== 'number') return String(v);
  if (field.meaning === 'key' && unit !== 'time') return String(v);
  return inUnit(unit, v * scale);
}

/// The same as it is shown: a time as an element that tells UTC on hover.
export function shownOf(field, v) {
  return isTime(field) && v ? timeNode(v) : valueOf(field, v);
}
