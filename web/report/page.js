// Puts the charts of a report into their places.
import { figures } from './api.js';
import { chart } from './chart.js';
import { goToWhole, isWhole, onChange } from './state.js';

const scaled = ({ scale, ...line }) => (scale ? { ...line, transform: (v) => v * scale } : line);

for (const place of document.querySelectorAll('[data-chart]')) {
  const { lines, ...options } = figures.charts[Number(place.dataset.chart)];
  chart(place, { ...options, lines: lines.map(scaled) });
}

const back = document.getElementById('whole');
back.addEventListener('click', goToWhole);
onChange(() => {
  back.hidden = isWhole();
});
