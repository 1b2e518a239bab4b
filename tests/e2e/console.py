#!/usr/bin/env python3
"""The console's page in a real browser, against a real daemon and gate.

  console.py BUILD_DIRECTORY [PICTURES]     PICTURES: a folder where pictures of each page are left
"""

import contextlib
import json
import os
import pathlib
import re
import shutil
import sqlite3
import subprocess
import sys
import tempfile
import time
import urllib.parse
import urllib.request

from harness import Agent, fail, free_port, wait_for
from selenium import webdriver
from selenium.common.exceptions import NoAlertPresentException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By

PAGES = ["overview", "processes", "disks", "network", "filesystems", "groups", "applications",
         "sensors", "records", "alarms", "agent"]
SCHEDULE = "".join(f"{record} = {seconds}\n" for record, seconds in {
    "PI": 1, "CPUP": 1, "CPUX": 1, "PRES": 1, "MEMD": 1, "DISK": 1, "NETD": 1, "SOCK": 1, "PDS": 5,
    "FSL": 5, "CGRP": 5, "WGRP": 5, "APP": 5, "PDX": 5, "PDI": 5, "HOST": 60, "SENS": 60}.items())
DAYS_OF = ["PI", "CPUX", "MEMD", "PRES", "DISK", "NETD"]
ATTACK = "<img src=x onerror=alert(1)>"
GROUP_ATTACK = "<img src=x onerror=alert(3)>"
WORKGROUP_ATTACK = "<img src=x onerror=alert(4)>"
APPLICATION_ATTACK = "<img src=x onerror=alert(5)>"
# Scripts that the page brings with it are of its own address.
FOREIGN = """return [...document.querySelectorAll('img, iframe, object, embed, script')]
    .filter((one) => one.localName !== 'script' || !one.src.startsWith(location.origin + '/assets/'))
    .map((one) => one.outerHTML)"""
APPLICATION = "the daemon"
DAY = 86400
FIRST_PAINT_MS = 500
FIRST_BYTES = 150_000
ZOOM_MS = 300
DAYS_BYTES = 100_000
TRIES = 4
# What a person waits for is held by the program as it is shipped; one with sanitizers takes its time.
PATIENCE = {"release": 1.5}
SLOW = 20


class Browser:
    """A browser without a screen, whose console is looked at."""

    def __init__(self, base, patience):
        self.patience = patience
        options = webdriver.ChromeOptions()
        for word in ("--headless=new", "--no-sandbox", "--disable-gpu", "--window-size=1400,1000",
                     "--disable-dev-shm-usage", "--lang=en-US", "--force-prefers-reduced-motion"):
            options.add_argument(word)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
        self.base = base
        self.driver = webdriver.Chrome(options=options, service=Service(shutil.which("chromedriver")))
        self.driver.set_script_timeout(30)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.driver.quit()

    def show(self, address):
        """Goes to another view of the page, as a click on a link does."""
        self.driver.execute_script("location.hash = arguments[0]", "#/" + address)

    def script(self, text, *words):
        return self.driver.execute_script(text, *words)

    def all(self, selector):
        return self.driver.find_elements(By.CSS_SELECTOR, selector)

    def wait(self, what, script, *words):
        return wait_for(what, lambda: self.script(script, *words))

    def loaded(self):
        """Waits until each chart shows the page's range or says why not."""
        self.wait("the charts", """return document.querySelector('main').children.length > 0 &&
            !document.querySelector('.chart-frame[aria-busy]')""")

    def requests(self):
        """Addresses of the interface that were asked for since the last call."""
        found = []
        for entry in self.driver.get_log("performance"):
            message = json.loads(entry["message"])["message"]
            if message["method"] == "Network.requestWillBeSent":
                found.append(urllib.parse.urlsplit(message["params"]["request"]["url"]))
        return [(one.path, urllib.parse.parse_qs(one.query)) for one in found]

    def check_log(self, what, *expected):
        """Fails for anything that the page or its policy complained of, but for messages with a text of `expected`."""
        bad = [entry["message"] for entry in self.driver.get_log("browser")
               if entry["level"] in ("SEVERE", "WARNING")
               and not any(text in entry["message"] for text in expected)]
        if bad:
            fail(f"{what}: the browser's console has {bad}")

    def check_text(self, what):
        """That no text of the host has become a part of the page."""
        with contextlib.suppress(NoAlertPresentException):
            fail(f"{what}: a dialog says {self.driver.switch_to.alert.text!r}")
        if foreign := self.script(FOREIGN):
            fail(f"{what}: a text of the host is markup: {foreign}")


def console_link(agent):
    done = subprocess.run(
        [agent.build / "client/qmtctl", "--socket", "run/control.sock", "console", "--print"],
        cwd=agent.home, capture_output=True, text=True, check=True)
    return done.stdout.strip()


def add_definitions(agent):
    """An application that looks for a process whose name would be markup, and a workgroup with such a name."""
    agent.__exit__(None)
    with open(agent.home / "wgfile", "a", encoding="utf-8") as file:
        file.write(f"workgroup = {WORKGROUP_ATTACK}\nprograms = qmtdmon\n")
    (agent.home / "qmtapp").write_text(
        f"A\t{APPLICATION}\nP\t1\t1\t9\tqmtdmon\nP\t1\t0\t0\t{APPLICATION_ATTACK}\n")
    agent.start(agent.http)


def add_days(agent, days):
    """Puts days of rows before those that the daemon has kept."""
    agent.__exit__(None)
    database = sqlite3.connect(agent.home / "records.db")
    for table in DAYS_OF:
        columns = [row[1] for row in database.execute(f'PRAGMA table_info("{table}")')]
        newest = database.execute(f'SELECT max("Record Time") FROM "{table}"').fetchone()[0]
        rows = database.execute(f'SELECT * FROM "{table}" WHERE "Record Time" = ?', [newest]).fetchall()
        place = columns.index("Record Time")
        first = int(time.time()) - days * DAY + 60
        database.executemany(
            f'INSERT INTO "{table}" VALUES ({",".join("?" * len(columns))})',
            (row[:place] + (second,) + row[place + 1:]
             for second in range(first, newest - 60, 60) for row in rows))
    database.commit()
    database.close()
    agent.start(agent.http)


def best(browser, what, most, measure):
    """The least of a few measures, as other programs of this machine may have come in between; fails if that is
    too long."""
    times = []
    while not times or (times[-1] > most * browser.patience and len(times) < TRIES):
        times.append(measure())
    if min(times) > most * browser.patience:
        fail(f"{what} takes {', '.join(f'{one:.0f}' for one in times)} ms, not {most} ms")
    return min(times)


def check_first_paint(browser):
    def measure():
        browser.driver.execute_cdp_cmd("Network.clearBrowserCache", {})
        browser.driver.refresh()
        browser.loaded()
        return browser.script("return performance.getEntriesByName('first-contentful-paint')[0].startTime")

    browser.loaded()
    if "token" in browser.driver.current_url:
        fail("the token stays in the address")
    paint = best(browser, "the first paint", FIRST_PAINT_MS, measure)
    size = browser.script("""return performance.getEntriesByType('resource').concat(
        performance.getEntriesByType('navigation')).filter((one) => !one.name.includes('/api/'))
        .reduce((sum, one) => sum + one.transferSize, 0)""")
    if not FIRST_BYTES / 10 < size < FIRST_BYTES:
        fail(f"the page is {size} bytes")
    print(f"console: first paint after {paint:.0f} ms, {size} bytes")


def check_figures(browser, agent):
    """What the overview shows as now or at a time is what the daemon tells of that time."""
    def shown():
        return [one for one in browser.script("""
            return [...document.querySelectorAll('.now dd[data-time]')].map((one) => (
              {record: one.dataset.record, label: one.dataset.label, key: one.dataset.key,
               value: JSON.parse(one.dataset.value), time: Number(one.dataset.time)}))""")
                if one["time"] > 0]

    figures = wait_for("figures of now", lambda: len(shown()) > 8 and shown())
    for figure in figures:
        moment = time.strftime("%Y-%m-%d %H:%M:%S", time.localtime(figure["time"]))
        rows = wait_for("the kept row", lambda at=moment: agent.ask(
            "history", figure["record"], "--since", at, "--until", at, "--columns", "*")[0]["rows"])
        rows = [row for row in rows if not figure["key"]
                or row[figure["key"].split("=")[0]] == figure["key"].split("=")[1]]
        if rows[0]["Record Time"] != figure["time"] or rows[0][figure["label"]] != figure["value"]:
            fail(f"the page shows {figure}, the daemon {rows[0][figure['label']]}")
    return figures


def check_newest(browser, agent):
    """A chart's newest value, and the verdict on an application, are those of a row that the daemon has kept."""
    legend = wait_for("a legend", lambda: browser.script("""
        const chart = [...document.querySelectorAll('.chart')].find((one) => one.querySelector('.chart-title')
          .textContent === 'Run queue');
        const [first] = chart?.querySelectorAll('.legend-value') ?? [];
        return first && /^[0-9]/.test(first.textContent) && first.textContent"""))
    rows = agent.ask("history", "PI", "--since", "20s", "--columns", "Run Queue")[0]["rows"]
    if float(legend) not in [row["Run Queue"] for row in rows]:
        fail(f"the newest point of the run queue is {legend}, the daemon keeps {rows}")
    verdict = wait_for("the applications", lambda: browser.script("""
        const one = document.querySelector('[data-record=APP]');
        return one && { key: one.dataset.key, value: one.textContent }"""))
    row = next(row for row in agent.ask("last", "APP")[0]["rows"] if row["Application Name"] == APPLICATION)
    if verdict != {"key": f"Application Name={APPLICATION}", "value": row["Application Status"]}:
        fail(f"the page shows {verdict}, the daemon {row}")
    print("console: a chart's newest value and an application's verdict are those of the daemon")


def check_busy(browser, work):
    """A process that uses a processor stands at the top soon."""
    program = work / "qmtbusy"
    shutil.copy(shutil.which("yes"), program)
    with subprocess.Popen([program], stdout=subprocess.DEVNULL) as busy:
        try:
            browser.wait("the busy process", """
                const row = [...document.querySelectorAll('main .table tbody tr')].slice(0, 2)
                  .find((one) => one.textContent.includes('qmtbusy'));
                return row !== undefined""")
        finally:
            busy.kill()
    print("console: a busy process comes to the top")


def check_zoom(browser):
    """The time bar, and dragging in a chart, ask for the range that they show, for all charts."""
    browser.show("overview")
    browser.loaded()
    browser.requests()
    browser.all(".range")[2].click()
    browser.loaded()
    asked = [query for path, query in browser.requests() if path.endswith("/history")]
    if not asked or any(int(one["until"][0]) - int(one["since"][0]) != 6 * 3600 for one in asked):
        fail(f"6 h asks for {asked}")
    frame = browser.all(".chart-frame")[0]
    span = browser.script("""const box = arguments[0].getBoundingClientRect();
        return [box.left, box.width, box.top + box.height / 2]""", frame)
    width = span[1]
    (ActionChains(browser.driver).move_to_element_with_offset(frame, width * 0.2, 0)
     .click_and_hold().move_by_offset(int(width * 0.2), 0).release().perform())
    browser.wait("the zoom", "return location.hash.includes('from=')")
    browser.loaded()
    told = re.search(r"from=(\d+)&to=(\d+)", browser.driver.current_url)
    since, until = int(told.group(1)), int(told.group(2))
    asked = [query for path, query in browser.requests() if path.endswith("/history")]
    charts = len(browser.all(".chart-frame"))
    if not 0.1 * 21600 < until - since < 0.35 * 21600:
        fail(f"a fifth of the chart is {until - since} s of 6 h")
    if len(asked) < charts - 1 or any((int(one["since"][0]), int(one["until"][0])) != (since, until)
                                      for one in asked):
        fail(f"{since} to {until} is shown, and asked is {asked}")
    browser.driver.back()
    browser.wait("the way back", "return !location.hash.includes('from=')")
    print(f"console: a zoom in one of {charts} charts asks for its range in all")


def zoom_to(browser, since, until):
    """Milliseconds until the last chart is drawn."""
    browser.show("overview?range=14d")
    browser.loaded()
    browser.script("""
        window.zoomed = null;
        performance.clearResourceTimings();
        const frames = document.querySelectorAll('.chart-area').length;
        const begin = performance.now();
        const drawn = new Set();
        // A chart of another range is made anew.
        const look = new MutationObserver((changes) => {
          for (const { target } of changes) {
            const area = target.closest?.('.chart-area');
            if (area) drawn.add(area);
          }
          if (drawn.size < frames) return;
          look.disconnect();
          requestAnimationFrame(() => { window.zoomed = performance.now() - begin; });
        });
        look.observe(document.querySelector('main'), { childList: true, subtree: true });
        location.hash = arguments[0]""", f"#/overview?from={since}&to={until}")
    return browser.wait("the zoomed charts", "return window.zoomed")


def check_days(browser):
    """14 days in a moment, up to the last chart that is drawn."""
    end = int(time.time()) - DAY
    took = best(browser, "a zoom of 13 days", ZOOM_MS, lambda: zoom_to(browser, end - 13 * DAY, end))
    size = browser.script("""return Math.max(...performance.getEntriesByType('resource').filter(
        (one) => one.name.includes('/history')).map((one) => one.decodedBodySize))""")
    print(f"console: a zoom of 13 days takes {took:.0f} ms, the greatest answer of all lines {size} bytes")


def check_size(agent):
    """What one field of 14 days weighs."""
    link = urllib.parse.urlsplit(console_link(agent))
    query = urllib.parse.urlencode({"record": "PI", "columns": "CPU %", "points": 600, "by": "",
                                    "since": int(time.time()) - 14 * DAY})
    request = urllib.request.Request(
        f"http://{agent.bare}/api/1/history?{query}",
        headers={"Authorization": "Bearer " + link.fragment.partition("token=")[2].partition("&")[0]})
    with urllib.request.urlopen(request, timeout=20) as answer:
        body = answer.read()
    points = json.loads(body)["history"]["series"][0]["points"]["CPU %"]
    if len(points) < 500 or len(body) > DAYS_BYTES:
        fail(f"one field of 14 days: {len(points)} points in {len(body)} bytes")
    print(f"console: one field of 14 days is {len(points)} points in {len(body)} bytes")


def check_past(browser, agent):
    moment = int(time.time()) - 5
    browser.show(f"overview?at={moment}")
    figures = check_figures(browser, agent)
    if any(abs(figure["time"] - moment) > 5 for figure in figures):
        fail(f"at {moment} the page shows {figures}")
    browser.show(f"processes?at={moment}")
    browser.wait("the kept processes", "return document.querySelectorAll('main tbody tr').length > 3")
    browser.show("overview")
    print("console: a page at a past time shows the kept rows")


@contextlib.contextmanager
def hostile_group():
    """A control group with a name that would be markup, where one can be made; tells whether there is."""
    mounts = [line.split() for line in pathlib.Path("/proc/mounts").read_text().splitlines()]
    folders = [pathlib.Path(words[1]) for words in mounts if words[2] == "cgroup2"]
    folders += [pathlib.Path(words[1]) for words in mounts if words[2] == "cgroup"]
    made = []
    for folder in folders:
        with contextlib.suppress(OSError):
            (folder / GROUP_ATTACK).mkdir()
            made.append(folder / GROUP_ATTACK)
    try:
        yield bool(made)
    finally:
        for folder in made:
            folder.rmdir()


def check_attack(browser, agent, work):
    """What the host's own texts say is text: processes, control groups, workgroups and applications."""
    program = work / ATTACK
    shutil.copy(os.path.realpath("/usr/bin/python3"), program)
    words = [ATTACK, "-c", "import time; time.sleep(600)", "</td><script>alert(2)</script>"]
    with hostile_group() as has_group, subprocess.Popen(words, executable=program) as attacker:
        try:
            wait_for("the attacker's kept row", lambda: [
                row for row in agent.ask("last", "PDX")[0]["rows"] if row["PID"] == attacker.pid])
            time.sleep(5)
            hidden = urllib.parse.quote("<img")
            places = {"overview": "", f"processes?filter={hidden}": "", "groups": WORKGROUP_ATTACK,
                      "applications": APPLICATION, "records?record=PDX": "", "records?record=PDI&view=kept": "",
                      "records?record=APP": "", "agent": ""}
            if has_group:
                places["records?record=CGRP"] = GROUP_ATTACK
            for page, text in places.items():
                browser.show(page)
                browser.loaded()
                browser.wait(f"{page}: {text}", "return document.body.innerText.includes(arguments[0])", text)
                browser.check_text(page)
            browser.show("applications?application=" + urllib.parse.quote(APPLICATION))
            browser.wait("the application's conditions", """
                return document.body.innerText.includes(arguments[0])""", APPLICATION_ATTACK)
            browser.check_text("the conditions")
            browser.show(f"processes?filter={hidden}")
            browser.wait("the attacker's row", """
                const open = [...document.querySelectorAll('main tbody button.open')]
                  .find((one) => one.textContent.includes('<img src=x'));
                open?.click(); return open !== undefined""")
            browser.wait("the attacker's command line", """
                return document.querySelector('.command-line')?.textContent.includes(arguments[0])""",
                         "<script>alert(2)</script>")
            browser.loaded()
            browser.check_text("the panel")
        finally:
            attacker.kill()
    told = "" if has_group else ", but that no control group can be made here"
    print(f"console: the texts of processes, groups and applications are text everywhere{told}")


def check_restart(browser, agent):
    browser.show("overview")
    browser.loaded()
    agent.restart(agent.http)
    started = time.time()
    browser.wait("figures after the restart", """
        return [...document.querySelectorAll('.now dd[data-time]')].some(
          (one) => Number(one.dataset.time) > arguments[0]) && document.getElementById('banner').hidden""",
                 started)
    # The browser itself tells of what was refused while the daemon was away.
    browser.check_log("a restart", "net::ERR_", "status of 503 (Service Unavailable)")
    print(f"console: {time.time() - started:.1f} s after a restart of the daemon the page goes on")


def check_pictures(browser, folder):
    """Each page on a screen and on a phone, in both colours: nothing lies beside the page."""
    for width, height in ((1400, 1000), (390, 844)):
        browser.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": 1, "mobile": width < 500})
        for scheme in ("light", "dark"):
            browser.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {
                "features": [{"name": "prefers-color-scheme", "value": scheme}]})
            for page in PAGES:
                browser.show(page)
                browser.wait(page, "return document.querySelector('main').dataset.page === arguments[0]", page)
                browser.loaded()
                time.sleep(0.3)
                wide = browser.script("return document.documentElement.scrollWidth - innerWidth")
                if wide > 0:
                    fail(f"{page} at {width} pixels is {wide} pixels wider")
                picture = browser.driver.get_screenshot_as_png()
                if folder is not None:
                    (folder / f"{page}-{width}-{scheme}.png").write_bytes(picture)
    browser.driver.execute_cdp_cmd("Emulation.clearDeviceMetricsOverride", {})
    print(f"console: {len(PAGES)} pages at 1400 and 390 pixels in two colour schemes")


def run(build, work, pictures):
    agent = Agent(build, work / "root", "modern", SCHEDULE, port=free_port())
    with agent:
        add_definitions(agent)
        for record in DAYS_OF:
            wait_for(f"rows of {record}", lambda name=record: agent.ask("history", name)[0]["rows"])
        add_days(agent, 14)
        with Browser(f"http://{agent.bare}", PATIENCE.get(build.name, SLOW)) as browser:
            browser.driver.get(console_link(agent))
            check_first_paint(browser)
            check_figures(browser, agent)
            print("console: the figures of now are those of the daemon")
            check_newest(browser, agent)
            check_busy(browser, work)
            check_zoom(browser)
            check_days(browser)
            check_size(agent)
            check_past(browser, agent)
            check_attack(browser, agent, work)
            check_pictures(browser, pictures)
            browser.check_log("all pages")
            check_restart(browser, agent)


def main():
    if len(sys.argv) not in (2, 3):
        fail("usage: console.py BUILD_DIRECTORY [PICTURES]")
    build = pathlib.Path(sys.argv[1]).resolve()
    pictures = pathlib.Path(sys.argv[2]) if len(sys.argv) == 3 else None
    with tempfile.TemporaryDirectory(prefix="qmt-e2e-") as work:
        # The gate's user has to get there.
        os.chmod(work, 0o755)
        run(build, pathlib.Path(work), pictures)


if __name__ == "__main__":
    main()
