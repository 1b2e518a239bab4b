// A gate of a test's own, which stands in for fetch before the page is loaded. The test sets its clock and its answers.
window.gate = {
  ahead: 0, dateAhead: 0, slept: 0, hasHistory: true, active: [], asked: [], streams: [],
  time: () => Math.floor(Date.now() / 1000) + gate.ahead,
  rows: [{ Device: 'a', 'Read Bytes/sec': 10 }, { Device: 'b', 'Read Bytes/sec': 1000 }],
  put: (event, told, id) => gate.streams.at(-1).put(`event: ${event}\n${id ? `id: ${id}\n` : ''}data: ${JSON.stringify(told)}\n\n`),
  // A batch with rows of a record.
  batch(time, rows = gate.rows, record = 'DISK') {
    gate.put('rows', { record, time, rows });
    gate.put('batch', { time }, time);
  },
  hide(isHidden) {
    Object.defineProperty(document, 'hidden', { value: isHidden, configurable: true });
    document.dispatchEvent(new Event('visibilitychange'));
  },
  pause: (milliseconds) => new Promise((done) => { setTimeout(done, milliseconds); }),
  // Until the page has taken all that was put before.
  async taken() {
    for (const state of ['gone', 'live']) {
      gate.put('daemon', { state });
      while (document.getElementById('connection').dataset.state !== state) await gate.pause(5);
    }
  },
  of: (name) => gate.asked.filter((one) => one.name === name),
};

gate.answers = {
  status: () => ({ status: { schedules: [{ record: 'DISK', seconds: 60, rows: 2 }], figures: [], history: {} } }),
  schema: () => ({ schema: { fields: [{ label: 'Record Time', type: 'ulong', meaning: 'time' }, { label: 'Device', type: 'char[16]' }, { label: 'Read Bytes/sec', type: 'double' }] } }),
  last: () => ({ results: [{ time: gate.time(), rows: gate.rows }] }),
  get: () => ({ results: [{ time: gate.time(), rows: [{ Name: 'host' }] }] }),
  alarms: () => ({ alarms: { list: gate.active, definitions: [] } }),
  alarm: (query) => ({ alarm: { id: query.get('id'), alarm: 'full', since: gate.time(), rows: [] } }),
  records: () => ({ records: [] }),
  history: (query) => ({ history: { seconds: 10, series: gate.hasHistory ? gate.rows.map((row) => ({
    key: { Device: row.Device }, points: Object.fromEntries(query.getAll('columns').map((label) => [label, [[gate.time() - 60, 1, 1, 1]]])) })) : [] } }),
};

const measured = performance.now.bind(performance);
performance.now = () => measured() + gate.slept;

const real = window.fetch;
window.fetch = async (where, { headers, signal } = {}) => {
  signal?.throwIfAborted();
  const url = new URL(where, location);
  if (!url.pathname.startsWith('/api/')) return real(where, { headers, signal });
  const name = url.pathname.split('/').pop();
  gate.asked.push({ name, query: url.searchParams, headers });
  const head = { status: 200, headers: { Date: new Date((gate.time() + gate.dateAhead) * 1000).toUTCString() } };
  if (name === 'events') {
    const bytes = new TextEncoder();
    const body = new ReadableStream({ start(to) {
      gate.streams.push({ from: Number(headers['Last-Event-ID']), isOpen: true, put: (text) => to.enqueue(bytes.encode(text)) });
      const mine = gate.streams.at(-1);
      signal.addEventListener('abort', () => { mine.isOpen = false; to.error(signal.reason); });
    } });
    return new Response(body, head);
  }
  const body = await gate.answers[name]?.(url.searchParams);
  if (!body) return new Response('{}', { ...head, status: 404 });
  return new Response(JSON.stringify({ ok: true, ...body }), head);
};
