#!/usr/bin/env python3
"""The console's page of the source, in a real browser, before a gate that says what the test wants it to say.

  console_page.py [BUILD_DIRECTORY]     which is not needed
"""

import contextlib
import functools
import http.server
import pathlib
import threading
import time

from console import Browser
from harness import fail

HERE = pathlib.Path(__file__).resolve().parent
WEB = HERE.parent.parent / "web"
LIBRARY = pathlib.Path("/usr/share/javascript/dygraphs")
GATE = (HERE / "console_gate.js").read_text(encoding="utf-8")
BATCH = "gate.batch(gate.time())"
LEGEND = """[...document.querySelector('.chart .legend').children].map((one) => one.innerText.replace(/\\s+/g, ' ').trim()).join()"""


class Files(http.server.SimpleHTTPRequestHandler):
    """The page's files at the addresses that the gate has for them."""

    def translate_path(self, path):
        name = path.partition("?")[0].removeprefix("/assets").strip("/") or "index.html"
        return str((LIBRARY if name == "dygraph.min.js" else WEB) / name)

    def log_message(self, *_):
        pass


class Page:
    """A page whose gate is the test's."""

    def __init__(self, browser):
        self.browser = browser
        browser.driver.execute_cdp_cmd("Page.addScriptToEvaluateOnNewDocument", {"source": """
            sessionStorage.setItem('token', 't');""" + GATE})

    def show(self, address, before=""):
        """Opens a page anew; `before` sets what the gate says."""
        added = self.browser.driver.execute_cdp_cmd("Page.addScriptToEvaluateOnNewDocument", {"source": before})
        self.browser.driver.get("about:blank")
        self.browser.driver.get(f"{self.browser.base}/#/{address}")
        self.browser.driver.execute_cdp_cmd("Page.removeScriptToEvaluateOnNewDocument", added)
        self.wait("a stream", "gate.streams.length > 0")

    def do(self, text):
        return self.browser.script(text)

    def get(self, text):
        return self.do("return " + text)

    def wait(self, what, text, seconds=20):
        """Waits until a term is true."""
        end = time.monotonic() + seconds
        while not self.get(text):
            if time.monotonic() > end:
                fail(f"{what}: still not {text}; the page says {self.get('document.body.innerText')!r}, "
                     f"streams begin at {self.get('gate.streams.map((one) => one.from - gate.time())')}")
            time.sleep(0.05)

    def settle(self):
        """Waits until the charts stand and the stream is the one that they want."""
        self.wait("the charts", "document.querySelector('main .chart') && !document.querySelector('.chart-frame[aria-busy]')")
        count = -1
        while count != (count := self.get("gate.streams.length")):
            time.sleep(0.6)


def check_stream(page):
    """A chart that joins a stream is told what it lacks, once, and nobody else anything old."""
    page.show("disks")
    page.settle()
    page.do(BATCH)
    page.do("window.before = gate.streams.length; location.hash = '#/disks?disk=a'")
    page.wait("a stream for who joins", "gate.streams.length > before && gate.streams.at(-1).from < gate.time() - 10")
    page.settle()
    page.do("gate.batch(window.last = gate.time()); return gate.taken().then(() => gate.hide(true))")
    page.wait("no stream for a hidden tab", "!gate.streams.at(-1).isOpen")
    page.do("gate.hide(false)")
    page.wait("the stream after a pause", "gate.streams.at(-1).from === last")
    page.show("overview", """const told = gate.answers.status;
        gate.answers.status = async () => {
          while (!document.querySelector('main .nows')) await gate.pause(20);
          for (const isHidden of [true, false, false]) { await gate.pause(100); gate.hide(isHidden); }
          await gate.pause(100);
          return told();
        }""")
    page.wait("what followers lack, after a stream that was dropped unasked", "gate.streams[0].from > 0")


def check_older(page):
    """Older rows that come again replace none, and where only the gate can tell which rows fit it is asked once at a time."""
    known = """gate.answers.records = () => ({ records: [{ record: 'DISK', served: true }] });
        gate.answers.status = () => ({ status: { figures: [], history: {},
          schedules: ['DISK', 'SOCK'].map((record) => ({ record, seconds: 60, rows: 2 })) } });"""
    text = "[...document.querySelectorAll('main .part-head, main .facts')].map((one) => one.textContent).join()"
    for address, record, shown in (("disks", "DISK", "2 devices"), ("records?record=DISK", "DISK", "2 rows"),
                                   ("network", "SOCK", "Devicec")):
        page.show(address, known)
        page.wait(f"{address} with rows", text)
        page.do(f"gate.rows = [{{ Device: 'c' }}, gate.rows[0]]; gate.batch(gate.time(), gate.rows, '{record}')")
        page.wait(f"{address} with new rows", f"{text}.includes('{shown}')")
        page.do(f"gate.batch(gate.time() - 10, [{{ Device: 'd' }}], '{record}'); return gate.taken()")
        if shown not in page.get(text):
            fail(f"{address}: older rows replace newer ones: {page.get(text)}")
    page.do("gate.put('lost', { message: 'x' })")
    page.wait("the question after a gap", "gate.of('last').filter((one) => one.query.get('records') === 'SOCK').length === 2")
    page.show("records?record=DISK&where=Device!%3Dx", known)
    page.wait("the rows that fit", f"{text}.includes('2 rows')")
    asked = page.do("""const told = gate.answers.last;
        gate.answers.last = () => gate.pause(300).then(told);
        const count = () => gate.of('last').length;
        const before = count();
        const tell = async (...aheads) => {
          for (const ahead of aheads) gate.batch(gate.time() + ahead);
          await gate.taken();
          await gate.pause(900);
          return count() - before;
        };
        return tell(-10, -9, -8).then(async (older) => [older, await tell(1, 2, 3)]);""")
    if asked != [0, 2]:
        fail(f"older runs, and then three new ones at once, have led to {asked} questions")
    page.show("disks", known)
    page.wait("disks with rows", text)
    page.do("""gate.answers.last = () => gate.pause(600).then(() => ({ results: [{ time: gate.time() - 20, rows: [{ Device: 'd' }] }] }));
        gate.put('lost', { message: 'x' }); gate.batch(gate.time(), [...gate.rows, { Device: 'c' }]); return gate.pause(1000);""")
    if "3 devices" not in page.get(text):
        fail(f"an answer that was on its way replaces newer rows: {page.get(text)}")


def check_chart(page):
    """Rows of what a chart does not know ask the history again; a line without figures has no newest one."""
    page.show("disks", "gate.hasHistory = false")
    page.wait("the empty chart", "document.querySelector('.chart-message')?.innerText.includes('No figures')")
    page.settle()
    page.do("gate.hasHistory = true;" + BATCH)
    page.wait("a line for each device", LEGEND + " === 'a 10 B/s,b 1,000 B/s' || " + LEGEND + " === 'a 1 B/s,b 1 B/s'")
    page.show("disks")
    page.settle()
    page.do("gate.rows.push({ Device: 'c', 'Read Bytes/sec': 5 });" + BATCH)
    page.wait("a line for the new device", "document.querySelector('.legend').children.length === 3")
    page.settle()
    for times in (1, 2):
        page.do(f"gate.slept = {times} * 4e5; window.before = gate.of('history').length;"
                "gate.batch(gate.time(), [{ Device: 'd', 'Read Bytes/sec': 5 }])")
        page.wait("the question for what the history lacks", "gate.of('history').length > before")
        page.settle()
    page.do("gate.slept += 6000; for (const _ of 'xxx') gate.batch(gate.time());"
            "gate.rows.push({ Device: 'e', 'Read Bytes/sec': 5 });" + BATCH)
    page.wait("a line for what is new after runs that told nothing new", "document.querySelector('.legend').children.length === 4")
    page.settle()
    page.do("gate.rows.splice(2);" + BATCH)
    page.wait("no figure of what is gone", LEGEND + " === 'a 10 B/s,b 1,000 B/s,c -,e -'")


def check_clock(page):
    """The host's clock counts, whatever the reader's says, also when it is set back."""
    page.show("disks", "gate.ahead = -7200")
    page.settle()
    off = page.get("[...gate.of('history').map((one) => one.query.get('until')), gate.streams.at(-1).from].map((one) => one - gate.time())")
    if any(abs(one) > 120 for one in off):
        fail(f"with a reader's clock that is 2 h fast the page asks for times that are {off} s off the host's")
    for address, told in (("disks", "3 devices"), ("overview", "33 %")):
        page.show(address)
        page.settle()
        page.do(BATCH + ";gate.batch(gate.time(), [{ 'CPU %': 11 }], 'PI')")
        page.do("gate.ahead = -7200; gate.rows.push({ Device: 'c', 'CPU %': 33 }); gate.rows.reverse();"
                + BATCH + ";gate.batch(gate.time(), gate.rows, 'PI')")
        page.wait(f"{address} after the clock was set back", f"document.querySelector('main').innerText.includes('{told}')")
    page.show("disks", "gate.dateAhead = -500")
    for _ in "xx":
        page.settle()
        page.do("window.before = gate.of('history').length;" + BATCH + ";return gate.taken()")
    page.settle()
    if page.get("gate.of('history').length !== before || gate.of('history').at(-1).query.get('until') < gate.time() - 60"):
        fail("a Date that is not the host's counts although batches tell the host's time")
    page.show("disks")
    page.settle()
    page.do(BATCH + """;return gate.taken().then(() => {
        const unset = Date.now;
        Date.now = () => unset() + 3e5;
        gate.ahead = -300;
    })""")
    for address in ("disks?disk=a", "disks"):
        page.do(f"location.hash = '#/{address}'")
        page.settle()
    if abs(off := page.get("gate.of('history').at(-1).query.get('until') - gate.time()")) > 60:
        fail(f"after the reader's clock was put forward the page asks for a time that is {off} s off the host's")


def check_alarms(page):
    """The head tells of alarms, a hidden tab asks for none, and whoever signs out leaves nothing."""
    page.show("alarms?alarm=7", "gate.active = Array.from({ length: 1000 }, (_, id) => ({ id, alarm: 'full', since: 1, text: 'x' }))")
    page.wait("the alarms", "document.getElementById('alarms').innerText === '1000 or more alarms'")
    page.wait("the host", "document.getElementById('host').innerText === 'host'")
    time.sleep(0.5)
    page.do("""window.before = gate.of('alarm').length;
        gate.put('alarm', { alarm: { id: 7 } }); gate.put('alarm', { alarm: { id: 8 } });""")
    page.wait("the open alarm", "gate.of('alarm').length > before")
    page.do("""gate.put('alarm', { alarm: { id: 8 } });
        return gate.taken().then(() => { window.before = gate.of('alarms').length; gate.hide(true); return gate.pause(600); })""")
    if page.get("gate.of('alarms').length > before"):
        fail("a hidden tab asks for alarms")
    page.do("gate.hide(false)")
    page.wait("the alarms after that", "gate.streams.at(-1).isOpen && gate.of('alarms').length > before")
    page.do("document.getElementById('sign-out').click()")
    page.wait("the end of what was signed in for", """!gate.streams.at(-1).isOpen && document.getElementById('alarms').hidden &&
        document.getElementById('host').innerText === 'Console' && document.title === 'Alarms'""")
    page.do("before = gate.of('status').length; document.getElementById('token').value = 'u';"
            "document.getElementById('by-token').requestSubmit()")
    page.wait("the status as told to who signs in then", "gate.of('status').length > before")
    # Ten times as fast.
    page.show("disks", """gate.answers.last = () => { throw new TypeError(); };
        for (const name of ['setTimeout', 'setInterval']) {
          const slow = window[name];
          window[name] = (fn, pause) => slow(fn, pause / 10);
        }""")
    page.wait("the failure", "document.querySelector('main .note')?.innerText.includes('does not answer')")
    page.do("gate.hide(true); window.before = gate.of('last').length; return gate.pause(5500)")
    if page.get("gate.of('last').length > before"):
        fail("a hidden tab asks for rows")
    page.do("gate.hide(false)")
    page.wait("the rows asked for again", "gate.of('last').length > before")


def check_processes(page):
    """A process without figures has none, and figures that can't be renewed are told."""
    page.show("overview", """gate.answers.get = () => ({ results: [{ time: gate.time(), rows: [
        { PID: 1, 'Start Time': 1, Name: 'idle', 'User Seconds': null, 'System Seconds': null },
        { PID: 2, 'Start Time': 1, Name: 'busy', 'User Seconds': Date.now() / 1000, 'System Seconds': null }] }] })""")
    page.wait("the busy process", "document.querySelector('main .table tbody')?.innerText.includes('busy')")
    if page.get("document.querySelector('main .table tbody').innerText.includes('idle')"):
        fail("a process without figures has a use of the processor")
    page.show("processes?process=1@1", """gate.answers.get = gate.answers.last = () => ({ results: [{ time: gate.time(), rows: [
        { PID: 1, 'Start Time': 1, Name: 'one', 'Parent PID': null }] }] })""")
    page.wait("an unknown parent", "document.querySelector('.panel .pairs')?.innerText.replace(/\\s+/g, ' ').includes('Parent -')")
    page.do("const all = gate.answers.get; gate.answers.get = (query) => (query.has('where') ? null : all())")
    page.wait("the failed renewal", "[...document.querySelectorAll('.panel .note:not([hidden])')].some((one) => one.innerText.includes('404'))")


@contextlib.contextmanager
def served():
    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), functools.partial(Files)) as server:
        threading.Thread(target=server.serve_forever, daemon=True).start()
        try:
            yield f"http://127.0.0.1:{server.server_port}"
        finally:
            server.shutdown()


def main():
    begin = time.monotonic()
    with served() as base, Browser(base, 1) as browser:
        page = Page(browser)
        for check in (check_stream, check_older, check_chart, check_clock, check_alarms, check_processes):
            check(page)
            browser.check_text(check.__name__)
    print(f"console page: streams, older rows, charts, clocks, alarms and processes, {time.monotonic() - begin:.1f} s")


if __name__ == "__main__":
    main()
