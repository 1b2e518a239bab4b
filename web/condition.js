// The conditions of rows, "LABEL OP VALUE", as the daemon understands them; for rows that come by themselves.
import { patternOf } from './pattern.js';

// A longer operator stands before its own beginning; the first place that fits is the operator.
const kForm = /^(.*?)(!=|!~|<=|>=|=|<|>|~)(.*)$/s;
const kDate = /^(\d{1,4})-(\d\d?)-(\d\d?)(?: +(\d\d?):(\d\d?):(\d\d?))?$/;
const kDecimals = 3;
const kLarge = 1e15;

const trimmed = (text) => text.replace(/^[ \t]+|[ \t]+$/g, '');

export function meets(text, row) {
  const match = kForm.exec(text);
  if (!match) return true;
  const op = match[2];
  const label = labelIn(row, trimmed(match[1]));
  const value = trimmed(match[3]);
  const found = row[label];
  if (found === null || found === undefined) return op === '!=' || op === '!~';
  if (op === '~' || op === '!~') return patternOf(value)(shownText(found, label)) === (op === '~');
  return typeof found === 'number' ? compare(op, found, numberOf(value)) : compare(op, String(found), value);
}

/// The row's label that is meant: the very same, or the only one that differs by case alone.
function labelIn(row, sought) {
  if (Object.hasOwn(row, sought)) return sought;
  const folded = lower(sought);
  const found = Object.keys(row).filter((label) => lower(label) === folded);
  return found.length === 1 ? found[0] : sought;
}

function lower(text) {
  return text.replace(/[A-Z]/g, (letter) => letter.toLowerCase());
}

/// A number, or the seconds of a date in local time; "-" is the time that is none.
function numberOf(text) {
  if (text === '-') return 0;
  const date = kDate.exec(text);
  if (!date) return text === '' ? NaN : Number(text);
  const [year, month, day, hour = 0, minute = 0, second = 0] = date.slice(1).map((part) => (part === undefined ? undefined : Number(part)));
  return new Date(year, month - 1, day, hour, minute, second).getTime() / 1000;
}

function compare(op, left, right) {
  if (op === '=') return left === right;
  if (op === '!=') return left !== right;
  if (op === '<') return left < right;
  if (op === '<=') return left <= right;
  return op === '>' ? left > right : left >= right;
}

/// What a pattern is held against: the value as a table of the command line shows it.
function shownText(value, label) {
  if (typeof value !== 'number') return String(value);
  if (/ Time$/.test(label) && Number.isInteger(value)) return dateText(value);
  return Math.abs(value) < kLarge ? String(Number(value.toFixed(kDecimals))) : String(value);
}

function dateText(seconds) {
  if (seconds === 0) return '-';
  const time = new Date(seconds * 1000);
  const two = (part) => String(part).padStart(2, '0');
  const date = [time.getFullYear(), two(time.getMonth() + 1), two(time.getDate())].join('-');
  return `${date} ${[time.getHours(), time.getMinutes(), time.getSeconds()].map(two).join(':')}`;
}
