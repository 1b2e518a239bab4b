#!/usr/bin/env python3
"""Reports of qmtctl on what a real daemon has kept, in all formats; the page in a real browser.

  report.py BUILD_DIRECTORY [PICTURES]     PICTURES: a folder where pictures of the page are left
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import time

from console import Browser
from harness import Agent, client, fail, wait_for

SCHEDULE = "".join(f"{record} = 1\n" for record in (
    "PI", "CPUP", "CPUX", "MEMD", "PRES", "DISK", "NETD", "CGRP", "WGRP", "FSL", "PDI"))
CLASSIC = "".join(f"{record} = 1\n" for record in ("PI", "CPUP", "DEVD", "WGRP", "FSL", "PD"))
PARTS = ["Busiest times", "Processors and load", "Memory", "Pressure", "Disks", "Network", "Top processes",
         "Top control groups", "Top workgroups", "File systems", "Alarms", "Restarts", "Gaps"]
WORKGROUP_ATTACK = "</script><img src=x>|`"
PROGRAM_ATTACK = "<i>|`&'\"x"
PAUSE = 4
CHARTS = """return [...document.querySelectorAll('[data-chart]')].map((place) => ({
    title: place.querySelector('.chart-title')?.textContent,
    message: place.querySelector('.chart-message')?.hidden === false,
    isDrawn: [...place.querySelectorAll('canvas')].some((canvas) => canvas.width > 0 &&
        canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height).data.some((v) => v !== 0)),
    legend: place.querySelectorAll('.legend li').length}))"""
FOREIGN = """return [...document.querySelectorAll('img, iframe, object, embed, i, link, script[src]')]
    .map((one) => one.outerHTML)"""


def report(agent, *words):
    return client(agent, "report", "--since", "10m", *words)


def refused(agent, *words):
    """Exit value and what is said of a report that can't be made."""
    done = subprocess.run([agent.build / "client/qmtctl", "--socket", "run/control.sock", "report", *words],
                          cwd=agent.home, capture_output=True, text=True, check=False)
    if done.stdout or done.stderr.count("\n") != 1:
        fail(f"report {words} printed {done.stdout!r} and said {done.stderr!r}")
    return done.returncode, done.stderr


def part_of(text, title):
    """What stands below a heading, up to the next one."""
    lines = text.splitlines()
    if title not in lines:
        fail(f"the report has no part {title!r}:\n{text}")
    begin = lines.index(title) + 1
    end = next((place for place in range(begin, len(lines)) if lines[place] in PARTS), len(lines))
    return "\n".join(lines[begin:end])


def start_busy(work):
    """A process of a hostile name that is busy."""
    program = work / PROGRAM_ATTACK
    shutil.copy(shutil.which("yes"), program)
    return subprocess.Popen([program], stdout=subprocess.DEVNULL)


def make_history(agent):
    """Some seconds of rows, a time without, and some more."""
    wait_for("rows", lambda: len(agent.ask("history", "PDI", "--where", "Program~<i>*")[0]["rows"]) > 4)
    agent.__exit__(None)
    time.sleep(PAUSE)
    agent.start(agent.http, False)
    wait_for("rows after the pause", lambda: len(agent.ask(
        "history", "WGRP", "--since", "4s", "--where", "Workgroup~</script>*")[0]["rows"]) > 1)


def check_text(agent):
    text = report(agent)
    places = [re.search(rf"^{title}$", text, re.MULTILINE) for title in PARTS]
    starts = [place.start() if place else -1 for place in places]
    if -1 in starts or starts != sorted(starts):
        fail(f"parts at {starts}:\n{text}")
    gaps = [line for line in part_of(text, "Gaps").splitlines() if re.search(r"\bPI\b", line)]
    # The first one is the time before there was a history.
    away = [float(found.group(1)) for line in gaps[1:] if (found := re.search(r"([\d.]+) s ", line))]
    if not any(PAUSE <= seconds < PAUSE + 20 for seconds in away):
        fail(f"the gaps of PI are {gaps}")
    if "Rows are missing of PI for" not in part_of(text, "Memory"):
        fail("a part does not say that rows are missing")
    if part_of(text, "Restarts").count("the agent") != 2:
        fail(f"restarts: {part_of(text, 'Restarts')}")
    by_time = part_of(text, "Top processes").partition("By memory:")[0]
    if PROGRAM_ATTACK not in by_time:
        fail(f"the busy program is not told: {by_time}")
    if WORKGROUP_ATTACK not in text:
        fail("the workgroup is not told")
    print(f"report: a text of {len(PARTS)} parts tells of the gap, both starts and the busy program")


def check_markdown(agent):
    agent_file = agent.home / "out.md"
    report(agent, "--output", "out.md")
    text = agent_file.read_text()
    widths = None
    rows = 0
    for line in text.splitlines():
        if not line.startswith("| "):
            widths = None
            continue
        width = len(re.findall(r"(?<!\\)(?:\\\\)*\|", line))
        widths = widths or width
        rows += 1
        if width != widths:
            fail(f"a row of another width: {line}")
    if rows < 20 or re.search(r"(?<!\\)<", text):
        fail(f"Markdown of {rows} rows with markup:\n{text}")
    print(f"report: Markdown of {rows} rows, each as wide as its table")


def check_page(agent, pictures):
    kept = agent.home / "kept.txt"
    kept.write_text("kept")
    (agent.home / "out.html").symlink_to(kept)
    report(agent, "--output", "out.html")
    page = agent.home / "out.html"
    if page.is_symlink() or kept.read_text() != "kept":
        fail("the report was written through a link")
    with Browser("file://", 1) as browser:
        browser.requests()
        browser.driver.get(page.as_uri())
        charts = browser.wait("the charts", CHARTS + ".every((one) => one.isDrawn) && " + CHARTS.removeprefix("return "))
        if len(charts) != 7 or any(one["message"] or one["legend"] == 0 for one in charts):
            fail(f"the charts are {charts}")
        if foreign := browser.script(FOREIGN):
            fail(f"a text of the host is markup: {foreign}")
        for text in (PROGRAM_ATTACK, WORKGROUP_ATTACK):
            if text not in browser.script("return document.querySelector('main').textContent"):
                fail(f"{text} is not in the page")
        check_zoom(browser)
        asked = [path for path, _ in browser.requests()]
        if asked != [page.as_uri().removeprefix("file://")]:
            fail(f"the page asked for {asked}")
        # The canvases are read by the test alone.
        browser.check_log("the page", "willReadFrequently")
        if pictures is not None:
            browser.driver.set_window_size(1240, 6000)
            time.sleep(1)
            (pictures / "report.png").write_bytes(browser.driver.get_screenshot_as_png())
    print(f"report: a page of {page.stat().st_size // 1024} KiB draws {len(charts)} charts and asks for nothing")


def check_zoom(browser):
    """Keys zoom all charts, and the button goes back."""
    axes = "return [...document.querySelectorAll('.chart-axis')].map((one) => one.title)"
    whole = browser.script(axes)
    browser.script("""document.querySelector('.chart-frame').dispatchEvent(
        new KeyboardEvent('keydown', { key: '+', bubbles: true }))""")
    browser.wait("a zoom", "return !document.getElementById('whole').hidden")
    near = browser.wait("the charts", "const now = (() => {" + axes + "})();"
                        "return now.every((title, place) => title !== arguments[0][place]) && now", whole)
    if len(set(near)) != 1:
        fail(f"charts show different times: {near}")
    browser.script("document.getElementById('whole').click()")
    browser.wait("the whole time", "const now = (() => {" + axes + "})();"
                 "return now.every((title, place) => title === arguments[0][place])", whole)


def check_choice(agent):
    text = report(agent, "--records", "netd,FSL")
    found = [title for title in PARTS if re.search(rf"^{title}$", text, re.MULTILINE)]
    if found != ["Busiest times", "Network", "File systems", "Alarms", "Gaps"]:
        fail(f"a report on two records has the parts {found}")
    text = report(agent, "--records", "PDS")
    if "No scheduled record has rows." not in text:
        fail(f"a report on a record without rows: {text}")
    os.mkfifo(agent.home / "pipe")
    for words, exit_value, said in (
            (("--records", "NONE"), 2, "no record \"NONE\""),
            (("--since", "1h", "--until", "2h"), 2, "must lie behind"),
            (("--output", "pipe"), 1, "pipe: is no file"),
            (("--output", "no/where.md"), 1, "no/where.md")):
        found, line = refused(agent, *words)
        if found != exit_value or said not in line:
            fail(f"{words}: {found}, {line}")
    print("report: parts of chosen records, and what can't be made is told in a line")


def check_classic(build, work):
    agent = Agent(build, work / "classic", "classic", CLASSIC, gate="none")
    with agent:
        wait_for("rows", lambda: len(agent.ask("history", "PD")[0]["rows"]) > 100)
        text = report(agent)
        for title, note in (("Pressure", "No rows of PRES are kept of this time."),
                            ("Network", "No rows of NETD are kept of this time."),
                            ("Top control groups", "No rows of CGRP are kept of this time."),
                            ("Top processes", "By I/O: no row of PD has a figure.")):
            if note not in part_of(text, title):
                fail(f"classic: {title}: {part_of(text, title)}")
        for title in ("By processor time:", "By memory:"):
            if title not in part_of(text, "Top processes"):
                fail(f"classic: {part_of(text, 'Top processes')}")
    print("report: the profile classic is told with what it has")


def run(build, work, pictures):
    agent = Agent(build, work / "root", "modern", SCHEDULE, gate="none")
    agent.__exit__(None)
    (agent.home / "wgfile").write_text(f"workgroup = {WORKGROUP_ATTACK}\nprograms = qmtdmon\n")
    (agent.home / "records.db").unlink()
    busy = start_busy(work)
    try:
        agent.start(agent.http, False)
        with agent:
            make_history(agent)
            check_text(agent)
            check_markdown(agent)
            check_page(agent, pictures)
            check_choice(agent)
    finally:
        busy.kill()
        busy.wait()
    check_classic(build, work)


def main():
    if len(sys.argv) not in (2, 3):
        fail("usage: report.py BUILD_DIRECTORY [PICTURES]")
    build = pathlib.Path(sys.argv[1]).resolve()
    pictures = pathlib.Path(sys.argv[2]) if len(sys.argv) == 3 else None
    with tempfile.TemporaryDirectory(prefix="qmt-e2e-") as work:
        run(build, pathlib.Path(work), pictures)


if __name__ == "__main__":
    main()
