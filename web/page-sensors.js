// Temperatures, fans, voltages and what else the hardware measures.
import { number } from './format.js';
import { rowPage } from './rowpage.js';

export const title = 'Sensors';

// A look at a sensor may wake its bus, so it is not looked at oftener where no schedule does.
const kPause = 10000;
const kSigns = { celsius: '°C', rpm: 'rpm', volts: 'V', amperes: 'A', watts: 'W', joules: 'J', percent: '%' };

function withUnit(value, row) {
  return typeof value === 'number' ? `${number(value)} ${kSigns[row.Unit] ?? row.Unit}` : '-';
}

function charts(row) {
  const lines = [{ label: 'Value', name: row.Label || row.Sensor }];
  if (row.High !== null) lines.push({ label: 'High' });
  if (row.Critical !== null) lines.push({ label: 'Critical' });
  return [{ title: `${row.Kind}, ${row.Unit}`, unit: 'number', lines }];
}

export function show(main) {
  return rowPage(main, {
    record: 'SENS',
    keys: ['Chip', 'Sensor'],
    choice: 'sensor',
    noun: 'sensor',
    caption: 'Sensors of the hardware',
    sort: 'Chip',
    filter: 'Filter sensors',
    pause: kPause,
    empty: 'This host shows no sensors; virtual machines seldom have any.',
    titleOf: (row) => `${row.Chip} ${row.Label || row.Sensor}`,
    columns: [
      { label: 'Sensor', opens: true, isNumeric: false, format: (value, row) => row.Label || value }, { label: 'Chip', isNumeric: false }, 'Kind', { label: 'Value', format: withUnit }, { label: 'High', format: withUnit },
      { label: 'Critical', format: withUnit }, { label: 'Alarm', isNumeric: false, format: (value) => (value === null ? '-' : value ? 'yes' : 'no') },
    ],
    charts,
  });
}
